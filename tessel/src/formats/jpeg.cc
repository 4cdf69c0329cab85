// JPEG / JFIF through libjpeg-turbo: baseline, progressive, grey and
// CMYK/YCCK reading (with DCT-domain reduction for thumbnails), grey and
// true-colour writing with quality, progressive, optimised Huffman tables,
// a comment and the JFIF resolution.
//
// libjpeg reports fatal errors by longjmp.  Every libjpeg call is made from
// one of the small shim functions below whose frames hold only plain data,
// so a longjmp never skips a destructor.
#include <csetjmp>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

// jpeglib.h needs size_t and FILE first.
#include <jerror.h>
#include <jpeglib.h>

#include "../bytes.h"
#include "../exif.h"
#include "../format.h"

namespace tessel {
namespace {

// More scans than this is not a real progressive file but an attempt to make
// the decoder spin (each scan reruns the whole coefficient buffer).
constexpr int kMaxScans = 1000;

struct ErrorMgr {
  jpeg_error_mgr pub;
  jmp_buf jump;
  int corrupt_warnings;   // corrupt-data warnings (bad Huffman code, resync, ...)
  bool too_many_scans;
};

// Memory source over the mapped file that remembers running out of data.
struct MemorySource {
  jpeg_source_mgr pub;
  bool eof;
};

struct Decoder {
  jpeg_decompress_struct cinfo;
  ErrorMgr err;
  MemorySource src;
  jpeg_progress_mgr monitor;
  bool created;
};

const JOCTET kFakeEoi[2] = {0xFF, JPEG_EOI};

void srcInit(j_decompress_ptr) {}
boolean srcFill(j_decompress_ptr cinfo) {
  // The whole file was handed over at once: being asked for more means the
  // data ended early.  Insert an EOI so the decoder pads and finishes.
  auto *src = reinterpret_cast<MemorySource *>(cinfo->src);
  src->eof = true;
  src->pub.next_input_byte = kFakeEoi;
  src->pub.bytes_in_buffer = 2;
  return TRUE;
}
void srcSkip(j_decompress_ptr cinfo, long n) {
  auto *src = reinterpret_cast<MemorySource *>(cinfo->src);
  if (n <= 0) return;
  while (static_cast<size_t>(n) > src->pub.bytes_in_buffer) {
    n -= static_cast<long>(src->pub.bytes_in_buffer);
    srcFill(cinfo);
    if (src->eof) return;
  }
  src->pub.next_input_byte += n;
  src->pub.bytes_in_buffer -= static_cast<size_t>(n);
}
void srcTerm(j_decompress_ptr) {}

[[noreturn]] void onError(j_common_ptr cinfo) {
  auto *err = reinterpret_cast<ErrorMgr *>(cinfo->err);
  longjmp(err->jump, 1);
}

void onMessage(j_common_ptr cinfo, int level) {
  if (level >= 0) return;  // trace messages
  auto *err = reinterpret_cast<ErrorMgr *>(cinfo->err);
  switch (err->pub.msg_code) {
    case JWRN_HUFF_BAD_CODE:
    case JWRN_HIT_MARKER:
    case JWRN_MUST_RESYNC:
    case JWRN_BOGUS_PROGRESSION:
      ++err->corrupt_warnings;
      break;
    default:
      break;  // extraneous bytes, odd JFIF revisions and the like are harmless
  }
  ++err->pub.num_warnings;
}

void silentOutput(j_common_ptr) {}

void onProgress(j_common_ptr cinfo) {
  if (!cinfo->is_decompressor) return;
  auto *d = reinterpret_cast<j_decompress_ptr>(cinfo);
  if (d->input_scan_number > kMaxScans) {
    reinterpret_cast<ErrorMgr *>(cinfo->err)->too_many_scans = true;
    onError(cinfo);
  }
}

// The result code for a fatal libjpeg error on reading.
int readErrorCode(const Decoder *d) {
  if (d->err.too_many_scans) return TSL_ERR_CORRUPT;
  if (d->src.eof) return TSL_ERR_READ;
  switch (d->err.pub.msg_code) {
    case JERR_OUT_OF_MEMORY:
    case JERR_NO_BACKING_STORE:
      return TSL_ERR_MEMORY;
    case JERR_NO_SOI:
      return TSL_ERR_FORMAT;
    default:
      return TSL_ERR_JPEG;
  }
}

void setupErrors(ErrorMgr *err) {
  jpeg_std_error(&err->pub);
  err->pub.error_exit = onError;
  err->pub.emit_message = onMessage;
  err->pub.output_message = silentOutput;
  err->corrupt_warnings = 0;
  err->too_many_scans = false;
}

// Shim: creates the decompressor over the data and reads the header.
int shimOpen(Decoder *d, const uint8_t *data, size_t size, bool save_markers, uint64_t memory_limit) {
  d->cinfo.err = &d->err.pub;
  setupErrors(&d->err);
  if (setjmp(d->err.jump)) return readErrorCode(d);
  jpeg_create_decompress(&d->cinfo);
  d->created = true;
  // libjpeg-turbo refuses (instead of swapping to disk) to allocate more
  // than this; whole-image coefficient buffers of absurd headers stop here.
  d->cinfo.mem->max_memory_to_use = static_cast<long>(memory_limit);
  d->src.pub.init_source = srcInit;
  d->src.pub.fill_input_buffer = srcFill;
  d->src.pub.skip_input_data = srcSkip;
  d->src.pub.resync_to_restart = jpeg_resync_to_restart;
  d->src.pub.term_source = srcTerm;
  d->src.pub.next_input_byte = data;
  d->src.pub.bytes_in_buffer = size;
  d->src.eof = false;
  d->cinfo.src = &d->src.pub;
  d->monitor.progress_monitor = onProgress;
  d->cinfo.progress = &d->monitor;
  if (save_markers) {
    jpeg_save_markers(&d->cinfo, JPEG_COM, 0xFFFF);
    jpeg_save_markers(&d->cinfo, JPEG_APP0 + 1, 0xFFFF);
  }
  jpeg_read_header(&d->cinfo, TRUE);
  return TSL_OK;
}

// Shim: output dimensions for a scale of num/8.
int shimCalcOutput(Decoder *d, unsigned num) {
  if (setjmp(d->err.jump)) return readErrorCode(d);
  d->cinfo.scale_num = num;
  d->cinfo.scale_denom = 8;
  jpeg_calc_output_dimensions(&d->cinfo);
  return TSL_OK;
}

void shimDestroy(Decoder *d) {
  if (!d->created) return;
  if (setjmp(d->err.jump)) return;
  jpeg_destroy_decompress(&d->cinfo);
  d->created = false;
}

// Where decoded rows go.
struct RowSink {
  TslPicture *picture;
  uint8_t *cmyk;          // one CMYK row per call when the file is CMYK/YCCK
  bool adobe_inverted;    // Adobe CMYK: 255 means no ink
  LoadContext *ctx;
  bool stopped;
};

void cmykToRgb(const uint8_t *in, uint8_t *out, uint32_t width, bool inverted) {
  for (uint32_t x = 0; x < width; ++x, in += 4, out += 3) {
    unsigned c = in[0], m = in[1], y = in[2], k = in[3];
    if (!inverted) {
      c = 255 - c;
      m = 255 - m;
      y = 255 - y;
      k = 255 - k;
    }
    out[0] = static_cast<uint8_t>((c * k + 127) / 255);
    out[1] = static_cast<uint8_t>((m * k + 127) / 255);
    out[2] = static_cast<uint8_t>((y * k + 127) / 255);
  }
}

// Shim: decompresses into the picture rows.
int shimDecode(Decoder *d, RowSink *sink) {
  if (setjmp(d->err.jump)) return readErrorCode(d);
  jpeg_start_decompress(&d->cinfo);
  TslPicture *pic = sink->picture;
  const JDIMENSION height = d->cinfo.output_height;
  JSAMPROW rows[16];
  while (d->cinfo.output_scanline < height) {
    const JDIMENSION y = d->cinfo.output_scanline;
    JDIMENSION n;
    if (sink->cmyk) {
      rows[0] = sink->cmyk;
      n = jpeg_read_scanlines(&d->cinfo, rows, 1);
      if (n == 1) cmykToRgb(sink->cmyk, rowOf(pic, y), pic->width, sink->adobe_inverted);
    } else {
      JDIMENSION want = height - y < 16 ? height - y : 16;
      for (JDIMENSION i = 0; i < want; ++i) rows[i] = rowOf(pic, y + i);
      n = jpeg_read_scanlines(&d->cinfo, rows, want);
    }
    if (n == 0) break;
    if (sink->ctx->progress(d->cinfo.output_scanline, height)) {
      sink->stopped = true;
      return TSL_STOPPED;
    }
  }
  jpeg_finish_decompress(&d->cinfo);
  return TSL_OK;
}

struct DecoderDeleter {
  void operator()(Decoder *d) const {
    shimDestroy(d);
    std::free(d);
  }
};
using DecoderPtr = std::unique_ptr<Decoder, DecoderDeleter>;

DecoderPtr newDecoder() { return DecoderPtr(static_cast<Decoder *>(std::calloc(1, sizeof(Decoder)))); }

uint64_t memoryLimitFor(uint64_t max_pixels) {
  // Coefficient buffers take 2 bytes per sample, three samples per pixel
  // (more for CMYK), plus working space.
  uint64_t limit = max_pixels * 8 + (uint64_t(64) << 20);
  const uint64_t cap = uint64_t(1) << 62;
  return limit > cap || limit < max_pixels ? cap : limit;
}

void densityToDpi(const jpeg_decompress_struct &c, int *dx, int *dy) {
  *dx = *dy = 0;
  if (!c.saw_JFIF_marker || c.X_density == 0 || c.Y_density == 0) return;
  if (c.density_unit == 1) {
    *dx = c.X_density;
    *dy = c.Y_density;
  } else if (c.density_unit == 2) {
    *dx = static_cast<int>(c.X_density * 2.54 + 0.5);
    *dy = static_cast<int>(c.Y_density * 2.54 + 0.5);
  }
}

bool jpegSniff(const uint8_t *d, size_t n) { return n >= 3 && d[0] == 0xFF && d[1] == 0xD8 && d[2] == 0xFF; }

int jpegInfo(const Source &src, int, TslFileInfo *info) {
  DecoderPtr d = newDecoder();
  if (!d) return TSL_ERR_MEMORY;
  int code = shimOpen(d.get(), src.data, src.size, true, memoryLimitFor(tslGetMaxPixels()));
  if (code != TSL_OK) return code;
  const jpeg_decompress_struct &c = d->cinfo;
  info->width = c.image_width;
  info->height = c.image_height;
  info->bits_per_plane = c.data_precision;
  info->planes = c.num_components;
  const bool grey = c.jpeg_color_space == JCS_GRAYSCALE;
  info->colors = grey ? 256 : (1L << 24);
  info->color_model = grey ? TSL_GREY : TSL_RGB;
  info->compression = c.progressive_mode ? TSL_COMP_JPEG_PROG : TSL_COMP_JPEG;
  densityToDpi(c, &info->dpi_x, &info->dpi_y);
  info->pages = 1;
  for (jpeg_saved_marker_ptr m = c.marker_list; m; m = m->next) {
    if (m->marker == JPEG_COM && !info->comment && m->data_length > 0) {
      info->comment = static_cast<char *>(std::malloc(m->data_length + 1));
      if (info->comment) {
        std::memcpy(info->comment, m->data, m->data_length);
        info->comment[m->data_length] = 0;
      }
    } else if (m->marker == JPEG_APP0 + 1 && info->orientation == 0) {
      info->orientation = exifOrientation(m->data, m->data_length);
    }
  }
  return TSL_OK;
}

// The smallest DCT scale (num/8) whose output still covers the size the
// picture will be reduced to, so the final area averaging sees enough pixels.
int chooseScale(Decoder *d, int tw, int th) {
  const uint64_t sw = d->cinfo.image_width, sh = d->cinfo.image_height;
  const uint64_t bw = tw > 0 ? static_cast<uint64_t>(tw) : UINT32_MAX;
  const uint64_t bh = th > 0 ? static_cast<uint64_t>(th) : UINT32_MAX;
  uint64_t dw, dh;
  if (!fitInside(sw, sh, bw, bh, &dw, &dh)) return 8;
  for (unsigned num = 1; num < 8; ++num) {
    if (shimCalcOutput(d, num) != TSL_OK) return 8;
    if (d->cinfo.output_width >= dw && d->cinfo.output_height >= dh) return static_cast<int>(num);
  }
  return 8;
}

int jpegLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  DecoderPtr d = newDecoder();
  if (!d) return TSL_ERR_MEMORY;
  int code = shimOpen(d.get(), src.data, src.size, false, memoryLimitFor(ctx.maxPixels()));
  if (code != TSL_OK) return code;
  jpeg_decompress_struct &c = d->cinfo;
  bool cmyk = false;
  int model = TSL_RGB;
  switch (c.jpeg_color_space) {
    case JCS_GRAYSCALE:
      c.out_color_space = JCS_GRAYSCALE;
      model = TSL_GREY;
      break;
    case JCS_CMYK:
    case JCS_YCCK:
      c.out_color_space = JCS_CMYK;
      cmyk = true;
      break;
    default:
      c.out_color_space = JCS_RGB;
      break;
  }
  // A progressive or multi-scan file keeps coefficients for the whole
  // picture, whatever the output scale.
  if (jpeg_has_multiple_scans(&c) && !ctx.sizeAllowed(c.image_width, c.image_height)) return TSL_ERR_MEMORY;
  int num = 8;
  if (ctx.targetWidth() > 0 || ctx.targetHeight() > 0) num = chooseScale(d.get(), ctx.targetWidth(), ctx.targetHeight());
  code = shimCalcOutput(d.get(), static_cast<unsigned>(num));
  if (code != TSL_OK) return code;
  code = ctx.alloc(picture, model, c.output_width, c.output_height);
  if (code != TSL_OK) return code;
  if (model == TSL_GREY) picture->colors = 256;
  int dx, dy;
  densityToDpi(c, &dx, &dy);
  picture->attr_pair[0] = static_cast<uint32_t>(dx);
  picture->attr_pair[1] = static_cast<uint32_t>(dy);

  std::vector<uint8_t> cmyk_row;
  if (cmyk) cmyk_row.resize(static_cast<size_t>(c.output_width) * 4);
  RowSink sink{picture, cmyk ? cmyk_row.data() : nullptr, c.saw_Adobe_marker != 0, &ctx, false};
  code = shimDecode(d.get(), &sink);
  if (code == TSL_OK && (d->src.eof || d->err.corrupt_warnings > 0) && !ctx.keepDamaged())
    code = d->src.eof ? TSL_ERR_READ : TSL_ERR_CORRUPT;
  if (code != TSL_OK && code != TSL_STOPPED && code != TSL_ERR_MEMORY && ctx.keepDamaged() && c.output_scanline > 0)
    code = TSL_OK;
  return code;
}

// ---- Writing ---------------------------------------------------------------

struct Encoder {
  jpeg_compress_struct cinfo;
  ErrorMgr err;
  bool created;
};

struct WriteJob {
  FILE *file;
  const TslPicture *picture;
  int quality;
  bool progressive;
  bool optimize;
  bool grey;
  unsigned dpi_x, dpi_y;
  const char *comment;
  uint8_t *row;     // conversion buffer for non-RGB true colour
  SaveContext *ctx;
};

int writeErrorCode(const Encoder *e) {
  switch (e->err.pub.msg_code) {
    case JERR_FILE_WRITE: return TSL_ERR_WRITE;
    case JERR_OUT_OF_MEMORY: return TSL_ERR_MEMORY;
    default: return TSL_ERR_JPEG;
  }
}

// Shim: the whole compression.
int shimEncode(Encoder *e, WriteJob *job) {
  e->cinfo.err = &e->err.pub;
  setupErrors(&e->err);
  if (setjmp(e->err.jump)) return writeErrorCode(e);
  jpeg_create_compress(&e->cinfo);
  e->created = true;
  jpeg_compress_struct &c = e->cinfo;
  jpeg_stdio_dest(&c, job->file);
  const TslPicture *p = job->picture;
  c.image_width = p->width;
  c.image_height = p->height;
  c.input_components = job->grey ? 1 : 3;
  c.in_color_space = job->grey ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_set_defaults(&c);
  jpeg_set_quality(&c, job->quality, TRUE);
  if (job->progressive) jpeg_simple_progression(&c);
  c.optimize_coding = job->optimize ? TRUE : FALSE;
  if (job->dpi_x && job->dpi_y) {
    c.write_JFIF_header = TRUE;
    c.density_unit = 1;
    c.X_density = static_cast<UINT16>(job->dpi_x > 65535 ? 65535 : job->dpi_x);
    c.Y_density = static_cast<UINT16>(job->dpi_y > 65535 ? 65535 : job->dpi_y);
  }
  jpeg_start_compress(&c, TRUE);
  if (job->comment && *job->comment) {
    size_t n = std::strlen(job->comment);
    if (n > 65533) n = 65533;
    jpeg_write_marker(&c, JPEG_COM, reinterpret_cast<const JOCTET *>(job->comment), static_cast<unsigned>(n));
  }
  while (c.next_scanline < c.image_height) {
    const uint32_t y = c.next_scanline;
    JSAMPROW row;
    if (job->grey || p->color_model == TSL_RGB) {
      row = const_cast<JSAMPROW>(rowOf(p, y));
    } else {
      tslGetRowRGB(p, y, job->row);
      row = job->row;
    }
    jpeg_write_scanlines(&c, &row, 1);
    job->ctx->progress(y + 1, c.image_height);
  }
  jpeg_finish_compress(&c);
  return TSL_OK;
}

void shimDestroyEncoder(Encoder *e) {
  if (!e->created) return;
  if (setjmp(e->err.jump)) return;
  jpeg_destroy_compress(&e->cinfo);
  e->created = false;
}

int jpegSave(FILE *file, const TslPicture *picture, SaveContext &ctx) {
  const TslParams &params = ctx.params();
  WriteJob job{};
  job.file = file;
  job.picture = picture;
  job.quality = params.quality < 1 ? 1 : params.quality > 100 ? 100 : params.quality;
  job.progressive = params.progressive != 0;
  job.optimize = params.optimize_huffman != 0;
  job.grey = picture->color_model == TSL_GREY;
  if (params.dpi_x > 0) {
    job.dpi_x = static_cast<unsigned>(params.dpi_x);
    job.dpi_y = static_cast<unsigned>(params.dpi_y > 0 ? params.dpi_y : params.dpi_x);
  } else {
    job.dpi_x = picture->attr_pair[0];
    job.dpi_y = picture->attr_pair[1] ? picture->attr_pair[1] : picture->attr_pair[0];
  }
  job.comment = params.comment;
  job.ctx = &ctx;
  std::vector<uint8_t> row(static_cast<size_t>(picture->width) * 3);
  job.row = row.data();
  auto *e = static_cast<Encoder *>(std::calloc(1, sizeof(Encoder)));
  if (!e) return TSL_ERR_MEMORY;
  int code = shimEncode(e, &job);
  shimDestroyEncoder(e);
  std::free(e);
  if (code == TSL_OK && std::ferror(file)) code = TSL_ERR_WRITE;
  return code;
}

}  // namespace

extern const FormatDef kJpegFormat = {
    "jpeg", "JPEG / JFIF", "jpg;jpeg;jpe;jfif",
    {{2, 256, -1, -1}, {TSL_KIND_TRUECOLOR, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, false, jpegSniff, jpegInfo, jpegLoad, jpegSave, nullptr};

}  // namespace tessel
