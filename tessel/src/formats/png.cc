// Portable Network Graphics through libpng.  Every bit depth and colour type
// is read (16-bit samples scaled to 8); the writer stores bilevel pictures as
// 1-bit grey, grey as 8-bit grey, palettes with the smallest bit depth that
// holds them (and an optional transparent entry), true colour as RGB or RGBA.
//
// libpng reports errors by longjmp: the calls are kept in small shim
// functions whose frames hold only plain data.
//
// Non-interlaced files are compressed here rather than by libpng (which
// writes the header chunks): rows are filtered with the per-row choice of
// the smallest sum of residuals, and the picture is cut into bands of rows
// deflated independently on every core, each band ending on a full flush so
// that the bands join into one zlib stream whose Adler-32 is combined from
// theirs.  Photographs leave almost nothing for LZ77 matching after the
// filter: there Huffman codes alone are both the fastest and the smallest
// coding, while drawings and smooth synthetic pictures need LZ77.  A sample
// of each band compressed both ways picks one for the band; LZ77 runs at
// the requested zlib level (at most 7).  The bands do not depend on the
// number of threads, so neither does the file.
#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#include "../exif.h"
#include "../format.h"


// An AVX2 copy of the hot loop, chosen at load time.  ThreadSanitizer builds
// keep one copy: the loader's resolver would run before its runtime starts.
#if defined(__SANITIZE_THREAD__)
#define QUILLA_AVX2_CLONES
#else
#define QUILLA_AVX2_CLONES __attribute__((target_clones("avx2", "default")))
#endif

namespace tessel {
namespace {

// ---- Reading ---------------------------------------------------------------

struct Reader {
  png_structp png;
  png_infop info;
  const uint8_t *data;
  size_t size;
  size_t pos;
  bool eof;           // the data ended before libpng was done
  bool signature_ok;  // the first eight bytes are a PNG signature
};

void readFn(png_structp png, png_bytep out, png_size_t length) {
  auto *r = static_cast<Reader *>(png_get_io_ptr(png));
  if (r->size - r->pos < length) {
    r->eof = true;
    png_error(png, "file ends early");
  }
  std::memcpy(out, r->data + r->pos, length);
  r->pos += length;
}

void errorFn(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void warningFn(png_structp, png_const_charp) {}

int readErrorCode(const Reader *r) {
  if (!r->signature_ok) return TSL_ERR_FORMAT;
  return r->eof ? TSL_ERR_READ : TSL_ERR_CORRUPT;
}

// Shim: reader creation and everything up to the first IDAT.
int shimOpen(Reader *r) {
  r->png = png_create_read_struct(PNG_LIBPNG_VER_STRING, r, errorFn, warningFn);
  if (!r->png) return TSL_ERR_MEMORY;
  r->info = png_create_info_struct(r->png);
  if (!r->info) return TSL_ERR_MEMORY;
  if (setjmp(png_jmpbuf(r->png))) return readErrorCode(r);
  r->signature_ok = r->size >= 8 && png_sig_cmp(r->data, 0, 8) == 0;
  if (!r->signature_ok) return TSL_ERR_FORMAT;
  png_set_read_fn(r->png, r, readFn);
  // The pixel limit of the load decides what is too big, not libpng's
  // default of a million pixels per side.
  png_set_user_limits(r->png, 0x7fffffff, 0x7fffffff);
  png_read_info(r->png, r->info);
  return TSL_OK;
}

void destroyReader(Reader *r) {
  if (r->png) png_destroy_read_struct(&r->png, r->info ? &r->info : nullptr, nullptr);
  r->png = nullptr;
  r->info = nullptr;
}

// What the file becomes in memory.
struct Plan {
  int model;
  int transparent_index;  // indexed pictures with one fully transparent entry
  bool expand_palette;    // palette with partial alpha: decoded to RGBA
};

Plan planFor(png_structp png, png_infop info) {
  const int type = png_get_color_type(png, info);
  const int depth = png_get_bit_depth(png, info);
  const bool trns = png_get_valid(png, info, PNG_INFO_tRNS) != 0;
  Plan plan{TSL_RGB, -1, false};
  switch (type) {
    case PNG_COLOR_TYPE_GRAY:
      plan.model = trns ? TSL_RGBA : depth == 1 ? TSL_BINARY : TSL_GREY;
      break;
    case PNG_COLOR_TYPE_GRAY_ALPHA:
    case PNG_COLOR_TYPE_RGB_ALPHA:
      plan.model = TSL_RGBA;
      break;
    case PNG_COLOR_TYPE_RGB:
      plan.model = trns ? TSL_RGBA : TSL_RGB;
      break;
    case PNG_COLOR_TYPE_PALETTE: {
      plan.model = TSL_INDEXED;
      png_bytep alpha = nullptr;
      int count = 0;
      png_colorp palette = nullptr;
      int entries = 0;
      png_get_PLTE(png, info, &palette, &entries);
      if (trns && png_get_tRNS(png, info, &alpha, &count, nullptr) && alpha) {
        int clear = 0, partial = 0, clear_at = -1;
        for (int i = 0; i < count && i < entries; ++i) {
          if (alpha[i] == 0) {
            ++clear;
            clear_at = i;
          } else if (alpha[i] != 255) {
            ++partial;
          }
        }
        if (partial == 0 && clear <= 1) {
          plan.transparent_index = clear_at;
        } else {
          plan.model = TSL_RGBA;
          plan.expand_palette = true;
        }
      }
      break;
    }
    default:
      break;
  }
  return plan;
}

// Shim: sets the transformations for the plan; returns the number of passes.
int shimTransform(Reader *r, const Plan &plan, int *passes) {
  if (setjmp(png_jmpbuf(r->png))) return readErrorCode(r);
  png_structp png = r->png;
  const int type = png_get_color_type(png, r->info);
  png_set_scale_16(png);
  if (plan.model == TSL_INDEXED) {
    png_set_packing(png);
  } else if (plan.model == TSL_GREY) {
    png_set_expand_gray_1_2_4_to_8(png);
  } else if (plan.model != TSL_BINARY) {
    png_set_expand(png);  // palette to RGB, grey to 8 bits, tRNS to alpha
    if (type == PNG_COLOR_TYPE_GRAY || type == PNG_COLOR_TYPE_GRAY_ALPHA) png_set_gray_to_rgb(png);
  }
  *passes = png_set_interlace_handling(png);
  png_read_update_info(png, r->info);
  return TSL_OK;
}

// Shim: decodes the rows (all passes) into the picture.
int shimRows(Reader *r, TslPicture *pic, int passes, LoadContext *ctx, uint32_t *rows_done) {
  if (setjmp(png_jmpbuf(r->png))) return readErrorCode(r);
  const uint64_t total = static_cast<uint64_t>(passes) * pic->height;
  for (int pass = 0; pass < passes; ++pass) {
    for (uint32_t y = 0; y < pic->height; ++y) {
      png_read_row(r->png, rowOf(pic, y), nullptr);
      *rows_done = *rows_done + 1;
      if (ctx->progress(static_cast<uint64_t>(pass) * pic->height + y + 1, total)) return TSL_STOPPED;
    }
  }
  return TSL_OK;
}

int dpiOf(png_uint_32 ppm) { return static_cast<int>(ppm * 0.0254 + 0.5); }

void readDpi(png_structp png, png_infop info, int *dx, int *dy) {
  png_uint_32 x = 0, y = 0;
  int unit = 0;
  *dx = *dy = 0;
  if (png_get_pHYs(png, info, &x, &y, &unit) && unit == PNG_RESOLUTION_METER) {
    *dx = dpiOf(x);
    *dy = dpiOf(y);
  }
}

struct ReaderGuard {
  Reader *r;
  ~ReaderGuard() { destroyReader(r); }
};

bool pngSniff(const uint8_t *d, size_t n) { return n >= 8 && png_sig_cmp(d, 0, 8) == 0; }

int pngInfo(const Source &src, int, TslFileInfo *out) {
  Reader r{};
  r.data = src.data;
  r.size = src.size;
  ReaderGuard guard{&r};
  int code = shimOpen(&r);
  if (code != TSL_OK) return code;
  png_structp png = r.png;
  png_infop info = r.info;
  const Plan plan = planFor(png, info);
  const int depth = png_get_bit_depth(png, info);
  const int type = png_get_color_type(png, info);
  out->width = png_get_image_width(png, info);
  out->height = png_get_image_height(png, info);
  out->bits_per_plane = depth;
  out->planes = png_get_channels(png, info);
  out->color_model = plan.model;
  if (type == PNG_COLOR_TYPE_PALETTE) {
    png_colorp palette = nullptr;
    int entries = 0;
    png_get_PLTE(png, info, &palette, &entries);
    out->colors = entries;
  } else if (type == PNG_COLOR_TYPE_GRAY) {
    out->colors = 1L << std::min(depth, 8);
  } else {
    out->colors = 1L << 24;
  }
  out->compression = TSL_COMP_DEFLATE;
  out->has_alpha = plan.model == TSL_RGBA || plan.transparent_index >= 0;
  out->pages = 1;
  out->orientation = pngExifOrientation(src.data, src.size);
  readDpi(png, info, &out->dpi_x, &out->dpi_y);
  png_textp text = nullptr;
  int count = 0;
  if (png_get_text(png, info, &text, &count) > 0) {
    for (int i = 0; i < count; ++i) {
      if (text[i].key && std::strcmp(text[i].key, "Comment") == 0 && text[i].text) {
        out->comment = strdup(text[i].text);
        break;
      }
    }
  }
  return TSL_OK;
}

int pngLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  Reader r{};
  r.data = src.data;
  r.size = src.size;
  ReaderGuard guard{&r};
  int code = shimOpen(&r);
  if (code != TSL_OK) return code;
  const uint32_t width = png_get_image_width(r.png, r.info);
  const uint32_t height = png_get_image_height(r.png, r.info);
  if (!ctx.sizeAllowed(width, height)) return TSL_ERR_MEMORY;
  const Plan plan = planFor(r.png, r.info);
  int passes = 1;
  code = shimTransform(&r, plan, &passes);
  if (code != TSL_OK) return code;
  code = ctx.alloc(picture, plan.model, width, height);
  if (code != TSL_OK) return code;
  // libpng's row must be exactly what the picture holds per row.
  if (png_get_rowbytes(r.png, r.info) != picture->bytes_per_line) return TSL_ERR_INTERNAL;
  if (plan.model == TSL_INDEXED) {
    png_colorp palette = nullptr;
    int entries = 0;
    png_get_PLTE(r.png, r.info, &palette, &entries);
    for (int i = 0; i < entries && i < 256; ++i) {
      picture->palette[i] = palette[i].red;
      picture->palette[256 + i] = palette[i].green;
      picture->palette[512 + i] = palette[i].blue;
    }
    picture->colors = static_cast<int16_t>(entries > 0 ? entries : 1);
    picture->transparent_index = static_cast<int16_t>(plan.transparent_index);
  } else if (plan.model == TSL_GREY) {
    picture->colors = 256;
  }
  int dx, dy;
  readDpi(r.png, r.info, &dx, &dy);
  picture->attr_pair[0] = static_cast<uint32_t>(dx);
  picture->attr_pair[1] = static_cast<uint32_t>(dy);
  uint32_t rows_done = 0;
  code = shimRows(&r, picture, passes, &ctx, &rows_done);
  if (code != TSL_OK && code != TSL_STOPPED && code != TSL_ERR_MEMORY && ctx.keepDamaged() && rows_done > 0)
    code = TSL_OK;
  return code;
}

// ---- Writing ---------------------------------------------------------------

struct WriteJob {
  FILE *file;
  bool write_failed;
  const TslPicture *picture;
  int color_type;
  int depth;
  int palette_size;
  int transparent;       // palette index written as transparent, -1 = none
  int level;
  bool interlace;
  unsigned dpi_x, dpi_y;
  const char *comment;
  uint8_t *row;          // conversion buffer for true colour
  SaveContext *ctx;
};

void writeFn(png_structp png, png_bytep data, png_size_t length) {
  auto *job = static_cast<WriteJob *>(png_get_io_ptr(png));
  if (std::fwrite(data, 1, length, job->file) != length) {
    job->write_failed = true;
    png_error(png, "write error");
  }
}
void flushFn(png_structp) {}

// The PNG scanline of row y (bytes as the file holds them, before
// filtering): a row of the picture itself where it already has that layout,
// else converted into `scratch` (width * 4 bytes at least).
const uint8_t *scanline(const WriteJob &job, uint32_t y, uint8_t *scratch) {
  const TslPicture *p = job.picture;
  const uint8_t *row = rowOf(p, y);
  if (job.color_type == PNG_COLOR_TYPE_RGB && p->color_model != TSL_RGB) {
    tslGetRowRGB(p, y, scratch);
    return scratch;
  }
  if (job.color_type == PNG_COLOR_TYPE_RGB_ALPHA && p->color_model != TSL_RGBA) {
    tslGetRowRGBA(p, y, scratch);
    return scratch;
  }
  if (job.color_type == PNG_COLOR_TYPE_PALETTE && job.depth < 8) {
    // One index per byte in the picture, packed most significant first.
    const int per_byte = 8 / job.depth;
    std::memset(scratch, 0, (p->width + per_byte - 1) / per_byte);
    for (uint32_t x = 0; x < p->width; ++x) {
      const int shift = 8 - job.depth * (1 + static_cast<int>(x % per_byte));
      scratch[x / per_byte] |= static_cast<uint8_t>((row[x] & ((1 << job.depth) - 1)) << shift);
    }
    return scratch;
  }
  return row;
}

// Bytes of one PNG scanline without its filter byte.
size_t scanlineBytes(const WriteJob &job) {
  const uint64_t channels = job.color_type == PNG_COLOR_TYPE_RGB         ? 3
                            : job.color_type == PNG_COLOR_TYPE_RGB_ALPHA ? 4
                                                                          : 1;
  return static_cast<size_t>((job.picture->width * channels * job.depth + 7) / 8);
}

// Residual sizes are compared as signed bytes: 255 is as small as 1.
inline unsigned magnitude(uint8_t v) { return v < 128 ? v : 256u - v; }

inline uint8_t paethPredictor(int a, int b, int c) {
  const int pa = std::abs(b - c), pb = std::abs(a - c), pc = std::abs(a + b - 2 * c);
  return static_cast<uint8_t>(pa <= pb && pa <= pc ? a : pb <= pc ? b : c);
}

// Filters scanline `cur` (row above: `up`, all zeros for the first row) into
// out[0] = filter type, out[1..n] = residuals, with the filter whose
// residuals have the smallest sum of magnitudes (ties: the lower type).
// `work` holds 4 * n bytes.  bpp: bytes per complete pixel.
QUILLA_AVX2_CLONES void filterAdaptive(const uint8_t *__restrict cur,
                                                                     const uint8_t *__restrict up, size_t n,
                                                                     size_t bpp, uint8_t *work, uint8_t *out) {
  uint8_t *__restrict sub = work;
  uint8_t *__restrict upf = work + n;
  uint8_t *__restrict avg = work + 2 * n;
  uint8_t *__restrict pae = work + 3 * n;
  unsigned long s_none = 0, s_sub = 0, s_up = 0, s_avg = 0, s_pae = 0;
  const size_t head = std::min(bpp, n);
  for (size_t x = 0; x < head; ++x) {  // no pixel to the left: a = c = 0
    const int b = up[x];
    sub[x] = cur[x];
    upf[x] = static_cast<uint8_t>(cur[x] - b);
    avg[x] = static_cast<uint8_t>(cur[x] - (b >> 1));
    pae[x] = static_cast<uint8_t>(cur[x] - b);  // the predictor picks b
  }
  for (size_t x = head; x < n; ++x) {
    const int a = cur[x - bpp], b = up[x], c = up[x - bpp];
    sub[x] = static_cast<uint8_t>(cur[x] - a);
    upf[x] = static_cast<uint8_t>(cur[x] - b);
    avg[x] = static_cast<uint8_t>(cur[x] - ((a + b) >> 1));
    pae[x] = static_cast<uint8_t>(cur[x] - paethPredictor(a, b, c));
  }
  for (size_t x = 0; x < n; ++x) {
    s_none += magnitude(cur[x]);
    s_sub += magnitude(sub[x]);
    s_up += magnitude(upf[x]);
    s_avg += magnitude(avg[x]);
    s_pae += magnitude(pae[x]);
  }
  const unsigned long sums[5] = {s_none, s_sub, s_up, s_avg, s_pae};
  const uint8_t *rows[5] = {cur, sub, upf, avg, pae};
  int best = 0;
  for (int k = 1; k < 5; ++k)
    if (sums[k] < sums[best]) best = k;
  out[0] = static_cast<uint8_t>(best);
  std::memcpy(out + 1, rows[best], n);
}

// Deflates `data` as raw deflate blocks appended to *out; the last band
// ends the stream, the others end on a full flush (byte-aligned, no
// reference to earlier data).  False on a zlib failure.
bool deflateRaw(const uint8_t *data, size_t size, int level, int strategy, bool last, std::vector<uint8_t> *out) {
  z_stream z;
  std::memset(&z, 0, sizeof z);
  if (deflateInit2(&z, level, Z_DEFLATED, -15, 9, strategy) != Z_OK) return false;
  constexpr size_t kPiece = size_t(1) << 30;  // zlib counts in 32 bits
  size_t used = out->size();
  out->resize(used + deflateBound(&z, static_cast<uLong>(std::min(size, kPiece))) + 16);
  size_t left = size;
  int status = Z_OK;
  do {
    const size_t piece = std::min(left, kPiece);
    z.next_in = const_cast<Bytef *>(data + (size - left));
    z.avail_in = static_cast<uInt>(piece);
    left -= piece;
    const int flush = left > 0 ? Z_NO_FLUSH : last ? Z_FINISH : Z_FULL_FLUSH;
    do {  // until zlib leaves room in the output: then the piece is done
      if (out->size() - used < 4096) out->resize(used + std::max<size_t>(out->size() / 2, 65536));
      const size_t room = std::min(out->size() - used, kPiece);
      z.next_out = out->data() + used;
      z.avail_out = static_cast<uInt>(room);
      status = deflate(&z, flush);
      used += room - z.avail_out;
    } while (status != Z_STREAM_ERROR && z.avail_out == 0);
  } while (left > 0 && status == Z_OK);
  deflateEnd(&z);
  out->resize(used);
  return last ? status == Z_STREAM_END : status == Z_OK || status == Z_BUF_ERROR;
}

// One band of rows: its compressed bytes and the Adler-32 of its filtered bytes.
struct Band {
  uint32_t first, end;        // rows [first, end)
  std::vector<uint8_t> data;
  uLong adler = 1;
  uint64_t length = 0;        // filtered bytes (the Adler-32 length)
  bool done = false, failed = false;
};

// Filters and deflates one band.
bool compressBand(const WriteJob &job, Band *band, bool last) {
  const TslPicture *p = job.picture;
  const size_t n = scanlineBytes(job);
  const bool filtered = job.level > 0 && job.depth == 8 && job.color_type != PNG_COLOR_TYPE_PALETTE;
  const size_t bpp = job.color_type == PNG_COLOR_TYPE_RGB ? 3 : job.color_type == PNG_COLOR_TYPE_RGB_ALPHA ? 4 : 1;
  const size_t rows = band->end - band->first;
  std::vector<uint8_t> scratch_a(std::max<size_t>(n, p->width * size_t(4))), scratch_b(scratch_a.size());
  std::vector<uint8_t> zeros(filtered ? n : 0), work(filtered ? 4 * n : 0), plain((n + 1) * rows);
  const uint8_t *up = nullptr;
  if (filtered) up = band->first > 0 ? scanline(job, band->first - 1, scratch_b.data()) : zeros.data();
  for (size_t i = 0; i < rows; ++i) {
    // Never the buffer that may hold the row above.
    uint8_t *scratch = up == scratch_a.data() ? scratch_b.data() : scratch_a.data();
    const uint8_t *cur = scanline(job, band->first + static_cast<uint32_t>(i), scratch);
    uint8_t *out = plain.data() + i * (n + 1);
    if (filtered) {
      filterAdaptive(cur, up, n, bpp, work.data(), out);
      up = cur;
    } else {
      out[0] = 0;
      std::memcpy(out + 1, cur, n);
    }
  }
  band->length = plain.size();
  band->adler = adler32_z(adler32_z(0, nullptr, 0), plain.data(), plain.size());
  if (band->first == 0) {  // the zlib header, with the level hint
    band->data.push_back(0x78);
    band->data.push_back(job.level <= 1 ? 0x01 : job.level <= 5 ? 0x5E : job.level == 6 ? 0x9C : 0xDA);
  }
  int strategy = Z_DEFAULT_STRATEGY;
  if (filtered && job.level > 0) {
    // A sample from the middle of the band decides: when the fastest LZ77
    // level does not beat Huffman codes alone there, neither will the
    // requested level do much better on the band (photographs).
    const size_t sample = std::min<size_t>(plain.size(), 64 * 1024);
    const uint8_t *from = plain.data() + (plain.size() - sample) / 2;
    std::vector<uint8_t> huffman, lz;
    if (!deflateRaw(from, sample, 1, Z_HUFFMAN_ONLY, true, &huffman) ||
        !deflateRaw(from, sample, 1, Z_DEFAULT_STRATEGY, true, &lz))
      return false;
    if (lz.size() >= huffman.size()) strategy = Z_HUFFMAN_ONLY;
  }
  // zlib's levels 8 and 9 search match chains up to 4096 long: on smooth
  // synthetic pictures 5 to 10 times the time of level 7 for 2 to 7% less,
  // seconds per picture at the GUI's default of 9.  They run as level 7.
  const int level = strategy == Z_HUFFMAN_ONLY ? 1 : std::min(job.level, 7);
  return deflateRaw(plain.data(), plain.size(), level, strategy, last, &band->data);
}

bool putU32(FILE *f, uint32_t v) {
  const uint8_t b[4] = {static_cast<uint8_t>(v >> 24), static_cast<uint8_t>(v >> 16), static_cast<uint8_t>(v >> 8),
                        static_cast<uint8_t>(v)};
  return std::fwrite(b, 1, 4, f) == 4;
}

// Writes one chunk (length, type, data, CRC).
bool writeChunk(FILE *f, const char *type, const uint8_t *data, size_t size) {
  uLong crc = crc32_z(crc32_z(0, nullptr, 0), reinterpret_cast<const Bytef *>(type), 4);
  if (size > 0) crc = crc32_z(crc, data, size);  // a null buffer would reset it
  return putU32(f, static_cast<uint32_t>(size)) && std::fwrite(type, 1, 4, f) == 4 &&
         (size == 0 || std::fwrite(data, 1, size, f) == size) && putU32(f, static_cast<uint32_t>(crc));
}

// Rows per band: about a megabyte of scanlines, at least one row.
uint32_t bandRows(const WriteJob &job) {
  const size_t n = scanlineBytes(job) + 1;
  return static_cast<uint32_t>(std::max<size_t>(1, (size_t(1) << 20) / n));
}

// Compresses the picture in bands over the cores and writes the IDAT
// chunks in order, then IEND.  Only the calling thread reports progress
// and writes; workers only filter and deflate, and never run ahead of the
// writer by more than a few bands.
int writeImageData(const WriteJob &job) {
  const TslPicture *p = job.picture;
  const uint32_t per_band = bandRows(job);
  std::vector<Band> bands;
  try {
    bands.resize((p->height + per_band - 1) / per_band);
  } catch (const std::bad_alloc &) {
    return TSL_ERR_MEMORY;
  }
  for (size_t i = 0; i < bands.size(); ++i) {
    bands[i].first = static_cast<uint32_t>(i * per_band);
    bands[i].end = static_cast<uint32_t>(std::min<uint64_t>(p->height, (i + 1) * uint64_t(per_band)));
  }
  unsigned cores = std::thread::hardware_concurrency();
  if (cores == 0) cores = 1;
  const size_t workers = std::min<size_t>(cores, bands.size()) - 1;
  const size_t window = 2 * (workers + 1) + 1;

  std::mutex mutex;
  std::condition_variable changed;
  size_t next = 0, written = 0;
  bool stop = false;
  // Claims the next band when it is within the window; runs it unlocked.
  auto work_one = [&](std::unique_lock<std::mutex> &lock) -> bool {
    if (stop || next >= bands.size() || next >= written + window) return false;
    Band &band = bands[next++];
    const bool last = &band == &bands.back();
    lock.unlock();
    bool ok;
    try {
      ok = compressBand(job, &band, last);
    } catch (const std::bad_alloc &) {
      ok = false;
    }
    lock.lock();
    band.failed = !ok;
    band.done = true;
    changed.notify_all();
    return true;
  };
  std::vector<std::thread> threads;
  for (size_t t = 0; t < workers; ++t) {
    try {
      threads.emplace_back([&] {
        std::unique_lock<std::mutex> lock(mutex);
        while (!stop && next < bands.size())
          if (!work_one(lock)) changed.wait(lock);
      });
    } catch (const std::system_error &) {
      break;  // fewer threads: the calling thread does the rest
    }
  }

  int code = TSL_OK;
  uLong adler = adler32_z(0, nullptr, 0);
  std::unique_lock<std::mutex> lock(mutex);
  while (written < bands.size()) {
    Band &band = bands[written];
    if (!band.done) {
      if (!work_one(lock)) changed.wait(lock);
      continue;
    }
    lock.unlock();
    if (band.failed) {
      code = TSL_ERR_MEMORY;
    } else {
      adler = adler32_combine(adler, band.adler, static_cast<z_off_t>(band.length));
      if (&band == &bands.back())
        for (int shift = 24; shift >= 0; shift -= 8) band.data.push_back(static_cast<uint8_t>(adler >> shift));
      if (!writeChunk(job.file, "IDAT", band.data.data(), band.data.size())) code = TSL_ERR_WRITE;
      std::vector<uint8_t>().swap(band.data);
      job.ctx->progress(band.end, p->height);
    }
    lock.lock();
    if (code != TSL_OK) {
      stop = true;
      changed.notify_all();
      break;
    }
    ++written;
    changed.notify_all();
  }
  lock.unlock();
  for (std::thread &t : threads) t.join();
  if (code == TSL_OK && !writeChunk(job.file, "IEND", nullptr, 0)) code = TSL_ERR_WRITE;
  return code;
}

// Shim: the header chunks through libpng and, for interlaced files, the
// rows and the end too (the other files get their image data from
// writeImageData); *png_out is kept for destruction by the caller.
int shimWrite(WriteJob *job, png_structp *png_out, png_infop *info_out) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, job, errorFn, warningFn);
  *png_out = png;
  if (!png) return TSL_ERR_MEMORY;
  png_infop info = png_create_info_struct(png);
  *info_out = info;
  if (!info) return TSL_ERR_MEMORY;
  if (setjmp(png_jmpbuf(png))) return job->write_failed ? TSL_ERR_WRITE : TSL_ERR_INTERNAL;
  const TslPicture *p = job->picture;
  png_set_write_fn(png, job, writeFn, flushFn);
  png_set_compression_level(png, job->level);
  png_set_IHDR(png, info, p->width, p->height, job->depth, job->color_type,
               job->interlace ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  if (job->color_type == PNG_COLOR_TYPE_PALETTE) {
    png_color palette[256];
    for (int i = 0; i < job->palette_size; ++i) {
      palette[i].red = p->palette[i];
      palette[i].green = p->palette[256 + i];
      palette[i].blue = p->palette[512 + i];
    }
    png_set_PLTE(png, info, palette, job->palette_size);
    if (job->transparent >= 0) {
      png_byte alpha[256];
      std::memset(alpha, 255, sizeof alpha);
      alpha[job->transparent] = 0;
      png_set_tRNS(png, info, alpha, job->transparent + 1, nullptr);
    }
  }
  if (job->dpi_x && job->dpi_y)
    png_set_pHYs(png, info, static_cast<png_uint_32>(job->dpi_x / 0.0254 + 0.5),
                 static_cast<png_uint_32>(job->dpi_y / 0.0254 + 0.5), PNG_RESOLUTION_METER);
  if (job->comment && *job->comment) {
    png_text text;
    std::memset(&text, 0, sizeof text);
    text.compression = PNG_TEXT_COMPRESSION_NONE;
    text.key = const_cast<char *>("Comment");
    text.text = const_cast<char *>(job->comment);
    text.text_length = std::strlen(job->comment);
    png_set_text(png, info, &text, 1);
  }
  png_write_info(png, info);
  if (!job->interlace) return TSL_OK;
  if (job->color_type == PNG_COLOR_TYPE_PALETTE && job->depth < 8) png_set_packing(png);
  const int passes = png_set_interlace_handling(png);
  const uint64_t total = static_cast<uint64_t>(passes) * p->height;
  for (int pass = 0; pass < passes; ++pass) {
    for (uint32_t y = 0; y < p->height; ++y) {
      png_const_bytep row;
      if (job->color_type == PNG_COLOR_TYPE_RGB && p->color_model != TSL_RGB) {
        tslGetRowRGB(p, y, job->row);
        row = job->row;
      } else if (job->color_type == PNG_COLOR_TYPE_RGB_ALPHA && p->color_model != TSL_RGBA) {
        tslGetRowRGBA(p, y, job->row);
        row = job->row;
      } else {
        row = rowOf(p, y);
      }
      png_write_row(png, row);
      job->ctx->progress(static_cast<uint64_t>(pass) * p->height + y + 1, total);
    }
  }
  png_write_end(png, info);
  return TSL_OK;
}

int pngSave(FILE *file, const TslPicture *picture, SaveContext &ctx) {
  const TslParams &params = ctx.params();
  WriteJob job{};
  job.file = file;
  job.picture = picture;
  job.transparent = -1;
  job.level = params.compression >= 0 && params.compression <= 9 ? params.compression : 6;
  job.interlace = params.progressive != 0;
  job.comment = params.comment;
  job.ctx = &ctx;
  if (params.dpi_x > 0) {
    job.dpi_x = static_cast<unsigned>(params.dpi_x);
    job.dpi_y = static_cast<unsigned>(params.dpi_y > 0 ? params.dpi_y : params.dpi_x);
  } else {
    job.dpi_x = picture->attr_pair[0];
    job.dpi_y = picture->attr_pair[1] ? picture->attr_pair[1] : picture->attr_pair[0];
  }
  std::vector<uint8_t> row;
  const int model = picture->color_model;
  if (model == TSL_BINARY) {
    job.color_type = PNG_COLOR_TYPE_GRAY;
    job.depth = 1;
  } else if (model == TSL_GREY) {
    job.color_type = PNG_COLOR_TYPE_GRAY;
    job.depth = 8;
  } else if (model == TSL_INDEXED) {
    if (!picture->palette) return TSL_ERR_INTERNAL;
    job.color_type = PNG_COLOR_TYPE_PALETTE;
    // Enough entries for the colour count and for every index in use.
    int size = picture->colors >= 1 && picture->colors <= 256 ? picture->colors : 256;
    for (uint32_t y = 0; y < picture->height && size < 256; ++y) {
      const uint8_t *r = rowOf(picture, y);
      for (uint32_t x = 0; x < picture->width; ++x) size = std::max(size, r[x] + 1);
    }
    int ti = params.transparent_index >= 0 ? params.transparent_index : picture->transparent_index;
    if (ti >= 0 && ti < 256) {
      job.transparent = ti;
      size = std::max(size, ti + 1);
    }
    job.palette_size = size;
    job.depth = size <= 2 ? 1 : size <= 4 ? 2 : size <= 16 ? 4 : 8;
  } else if (TSL_IS_TRUECOLOR(model)) {
    const bool alpha = channelLayout(model).a >= 0;
    job.color_type = alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB;
    job.depth = 8;
    row.resize(static_cast<size_t>(picture->width) * 4);
    job.row = row.data();
  } else {
    return TSL_ERR_CANT_SAVE;
  }
  png_structp png = nullptr;
  png_infop info = nullptr;
  int code = shimWrite(&job, &png, &info);
  if (code == TSL_OK && !job.interlace) code = writeImageData(job);
  if (png) png_destroy_write_struct(&png, info ? &info : nullptr);
  return code;
}

}  // namespace

extern const FormatDef kPngFormat = {
    "png", "Portable Network Graphics", "png",
    {{1, 2, -1, -1}, {2, 256, -1, -1}, {4, 256, -1, -1}, {TSL_KIND_TRUECOLOR, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, false, pngSniff, pngInfo, pngLoad, pngSave, nullptr};

}  // namespace tessel
