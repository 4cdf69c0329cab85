// JPEG 2000 through openjpeg: JP2 files and raw J2K codestreams are read
// from memory (grey, grey + alpha, RGB, RGBA, sYCC with subsampled chroma,
// CMYK; any sample precision scaled to 8 bits), and written as JP2, lossless
// at quality 100 and with a compression ratio derived from the quality below.
#include <openjpeg.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "../format.h"

namespace tessel {
namespace {

const uint8_t kJp2Signature[12] = {0, 0, 0, 0x0C, 'j', 'P', ' ', ' ', 0x0D, 0x0A, 0x87, 0x0A};
const uint8_t kJ2kSignature[4] = {0xFF, 0x4F, 0xFF, 0x51};

bool isJp2(const uint8_t *d, size_t n) { return n >= 12 && std::memcmp(d, kJp2Signature, 12) == 0; }
bool isJ2k(const uint8_t *d, size_t n) { return n >= 4 && std::memcmp(d, kJ2kSignature, 4) == 0; }
bool jp2Sniff(const uint8_t *d, size_t n) { return isJp2(d, n) || isJ2k(d, n); }

void quiet(const char *, void *) {}

// ---- Reading ---------------------------------------------------------------

// The mapped file as an openjpeg input stream.  Reading reports progress over
// the first half of the load and can stop it.
struct MemoryInput {
  const uint8_t *data;
  size_t size;
  size_t pos;
  bool eof;
  LoadContext *ctx;
  bool stopped;
};

OPJ_SIZE_T readFn(void *buffer, OPJ_SIZE_T n, void *user) {
  auto *in = static_cast<MemoryInput *>(user);
  if (in->stopped) return static_cast<OPJ_SIZE_T>(-1);
  if (in->pos >= in->size) {
    in->eof = true;
    return static_cast<OPJ_SIZE_T>(-1);
  }
  const size_t take = std::min<size_t>(n, in->size - in->pos);
  std::memcpy(buffer, in->data + in->pos, take);
  in->pos += take;
  if (in->ctx && in->ctx->progress(in->pos, static_cast<uint64_t>(in->size) * 2)) {
    in->stopped = true;
    return static_cast<OPJ_SIZE_T>(-1);
  }
  return take;
}

OPJ_OFF_T skipFn(OPJ_OFF_T n, void *user) {
  auto *in = static_cast<MemoryInput *>(user);
  if (n < 0) {
    if (static_cast<size_t>(-n) > in->pos) return -1;
    in->pos -= static_cast<size_t>(-n);
    return n;
  }
  if (static_cast<uint64_t>(n) > in->size - in->pos) {
    in->pos = in->size;
    in->eof = true;
    return -1;
  }
  in->pos += static_cast<size_t>(n);
  return n;
}

OPJ_BOOL seekFn(OPJ_OFF_T pos, void *user) {
  auto *in = static_cast<MemoryInput *>(user);
  if (pos < 0 || static_cast<uint64_t>(pos) > in->size) return OPJ_FALSE;
  in->pos = static_cast<size_t>(pos);
  return OPJ_TRUE;
}

struct CodecDeleter {
  void operator()(opj_codec_t *c) const { opj_destroy_codec(c); }
};
struct StreamDeleter {
  void operator()(opj_stream_t *s) const { opj_stream_destroy(s); }
};
struct ImageDeleter {
  void operator()(opj_image_t *i) const { opj_image_destroy(i); }
};
using CodecPtr = std::unique_ptr<opj_codec_t, CodecDeleter>;
using StreamPtr = std::unique_ptr<opj_stream_t, StreamDeleter>;
using ImagePtr = std::unique_ptr<opj_image_t, ImageDeleter>;

// A decoder with its header read.
struct Opened {
  MemoryInput input{};
  CodecPtr codec;
  StreamPtr stream;
  ImagePtr image;
};

int openDecoder(const Source &src, LoadContext *ctx, bool strict, Opened *o) {
  if (!jp2Sniff(src.data, src.size)) return TSL_ERR_FORMAT;
  o->input = MemoryInput{src.data, src.size, 0, false, ctx, false};
  o->codec.reset(opj_create_decompress(isJp2(src.data, src.size) ? OPJ_CODEC_JP2 : OPJ_CODEC_J2K));
  if (!o->codec) return TSL_ERR_MEMORY;
  opj_set_info_handler(o->codec.get(), quiet, nullptr);
  opj_set_warning_handler(o->codec.get(), quiet, nullptr);
  opj_set_error_handler(o->codec.get(), quiet, nullptr);
  opj_dparameters_t dp;
  opj_set_default_decoder_parameters(&dp);
  if (!opj_setup_decoder(o->codec.get(), &dp)) return TSL_ERR_INTERNAL;
  opj_decoder_set_strict_mode(o->codec.get(), strict ? OPJ_TRUE : OPJ_FALSE);
  o->stream.reset(opj_stream_create(64 * 1024, OPJ_TRUE));
  if (!o->stream) return TSL_ERR_MEMORY;
  opj_stream_set_user_data(o->stream.get(), &o->input, nullptr);
  opj_stream_set_user_data_length(o->stream.get(), src.size);
  opj_stream_set_read_function(o->stream.get(), readFn);
  opj_stream_set_skip_function(o->stream.get(), skipFn);
  opj_stream_set_seek_function(o->stream.get(), seekFn);
  opj_image_t *image = nullptr;
  const bool ok = opj_read_header(o->stream.get(), o->codec.get(), &image);
  o->image.reset(image);
  if (o->input.stopped) return TSL_STOPPED;
  if (!ok || !image) return o->input.eof ? TSL_ERR_READ : TSL_ERR_CORRUPT;
  if (image->numcomps < 1 || image->x1 <= image->x0 || image->y1 <= image->y0) return TSL_ERR_CORRUPT;
  return TSL_OK;
}

// How the components become a picture.
enum class Layout { kGrey, kGreyAlpha, kRgb, kRgba, kYcc, kCmyk };

Layout layoutOf(const opj_image_t *image) {
  const unsigned n = image->numcomps;
  if (n >= 4 && image->color_space == OPJ_CLRSPC_CMYK) return Layout::kCmyk;
  if (n >= 3 && (image->color_space == OPJ_CLRSPC_SYCC || image->color_space == OPJ_CLRSPC_EYCC)) return Layout::kYcc;
  // Subsampled chroma without a colour space is YCC as well.
  if (n == 3 && image->color_space != OPJ_CLRSPC_SRGB && image->comps[0].dx == 1 && image->comps[0].dy == 1 &&
      (image->comps[1].dx > 1 || image->comps[1].dy > 1))
    return Layout::kYcc;
  if (n >= 4) return Layout::kRgba;
  if (n == 3) return Layout::kRgb;
  return n == 2 ? Layout::kGreyAlpha : Layout::kGrey;
}

int modelOf(Layout l) {
  switch (l) {
    case Layout::kGrey: return TSL_GREY;
    case Layout::kGreyAlpha:
    case Layout::kRgba: return TSL_RGBA;
    default: return TSL_RGB;
  }
}

unsigned componentsUsed(Layout l) {
  switch (l) {
    case Layout::kGrey: return 1;
    case Layout::kGreyAlpha: return 2;
    case Layout::kRgb:
    case Layout::kYcc: return 3;
    default: return 4;
  }
}

int jp2Info(const Source &src, int, TslFileInfo *info) {
  Opened o;
  int code = openDecoder(src, nullptr, false, &o);
  if (code != TSL_OK) return code;
  const opj_image_t *image = o.image.get();
  const Layout layout = layoutOf(image);
  info->width = image->x1 - image->x0;
  info->height = image->y1 - image->y0;
  info->bits_per_plane = static_cast<int>(image->comps[0].prec);
  info->planes = static_cast<int>(image->numcomps);
  info->color_model = modelOf(layout);
  info->colors = info->color_model == TSL_GREY ? 256 : (1L << 24);
  info->has_alpha = layout == Layout::kGreyAlpha || layout == Layout::kRgba;
  info->compression = TSL_COMP_JPEG2000;
  info->pages = 1;
  return TSL_OK;
}

// Samples of one component, scaled to 0..255, for the rows of the picture
// (nearest-neighbour upsampling of subsampled components).
class Plane {
 public:
  Plane(const opj_image_comp_t &c, uint32_t out_w, uint32_t out_h) : c_(c), out_w_(out_w), out_h_(out_h) {
    prec_ = std::min<unsigned>(std::max<unsigned>(c.prec, 1), 31);
    max_ = (int64_t(1) << prec_) - 1;
    offset_ = c.sgnd ? int64_t(1) << (prec_ - 1) : 0;
    xmap_.resize(out_w);
    for (uint32_t x = 0; x < out_w; ++x)
      xmap_[x] = static_cast<uint32_t>(std::min<uint64_t>(uint64_t(x) * c.w / out_w, c.w - 1));
  }
  // Fills out[0], out[step], ... with row y.
  void row(uint32_t y, uint8_t *out, int step) const {
    const uint64_t cy = std::min<uint64_t>(uint64_t(y) * c_.h / out_h_, c_.h - 1);
    const OPJ_INT32 *src = c_.data + cy * c_.w;
    for (uint32_t x = 0; x < out_w_; ++x, out += step) {
      int64_t v = static_cast<int64_t>(src[xmap_[x]]) + offset_;
      v = v < 0 ? 0 : v > max_ ? max_ : v;
      out[0] = static_cast<uint8_t>(prec_ == 8 ? v : (v * 255 + max_ / 2) / max_);
    }
  }

 private:
  const opj_image_comp_t &c_;
  uint32_t out_w_, out_h_;
  unsigned prec_;
  int64_t max_, offset_;
  std::vector<uint32_t> xmap_;
};

uint8_t clamp255(double v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v + 0.5); }

// The largest resolution reduction whose result still covers the size the
// picture is reduced to afterwards.
unsigned reduceFactor(opj_codec_t *codec, const opj_image_t *image, int tw, int th) {
  const uint64_t sw = image->x1 - image->x0, sh = image->y1 - image->y0;
  const uint64_t bw = tw > 0 ? static_cast<uint64_t>(tw) : UINT32_MAX;
  const uint64_t bh = th > 0 ? static_cast<uint64_t>(th) : UINT32_MAX;
  uint64_t dw, dh;
  if (!fitInside(sw, sh, bw, bh, &dw, &dh)) return 0;
  unsigned resolutions = 1;
  if (opj_codestream_info_v2_t *cs = opj_get_cstr_info(codec)) {
    if (cs->m_default_tile_info.tccp_info) {
      resolutions = cs->m_default_tile_info.tccp_info[0].numresolutions;
      for (unsigned i = 1; i < cs->nbcomps; ++i)
        resolutions = std::min(resolutions, cs->m_default_tile_info.tccp_info[i].numresolutions);
    }
    opj_destroy_cstr_info(&cs);
  }
  unsigned r = 0;
  while (r + 1 < resolutions && r < 30 && ((sw + (uint64_t(1) << (r + 1)) - 1) >> (r + 1)) >= std::max<uint64_t>(dw, 1) &&
         ((sh + (uint64_t(1) << (r + 1)) - 1) >> (r + 1)) >= std::max<uint64_t>(dh, 1))
    ++r;
  return r;
}

int jp2Load(const Source &src, TslPicture *picture, LoadContext &ctx) {
  Opened o;
  int code = openDecoder(src, &ctx, !ctx.keepDamaged(), &o);
  if (code != TSL_OK) return code;
  opj_image_t *image = o.image.get();
  const Layout layout = layoutOf(image);
  const unsigned used = componentsUsed(layout);
  // openjpeg keeps 32-bit samples of every decoded component in memory.
  if (!ctx.sizeAllowed(image->x1 - image->x0, image->y1 - image->y0)) return TSL_ERR_MEMORY;
  if (image->numcomps > used) {
    std::vector<OPJ_UINT32> wanted(used);
    for (unsigned i = 0; i < used; ++i) wanted[i] = i;
    opj_set_decoded_components(o.codec.get(), used, wanted.data(), OPJ_FALSE);
  }
  if (ctx.targetWidth() > 0 || ctx.targetHeight() > 0) {
    const unsigned r = reduceFactor(o.codec.get(), image, ctx.targetWidth(), ctx.targetHeight());
    if (r > 0) opj_set_decoded_resolution_factor(o.codec.get(), r);
  }
  const bool decoded = opj_decode(o.codec.get(), o.stream.get(), image) &&
                       opj_end_decompress(o.codec.get(), o.stream.get());
  if (o.input.stopped) return TSL_STOPPED;
  if (!decoded && !ctx.keepDamaged()) return o.input.eof ? TSL_ERR_READ : TSL_ERR_CORRUPT;
  for (unsigned i = 0; i < used; ++i) {
    const opj_image_comp_t &c = image->comps[i];
    if (!c.data || c.w == 0 || c.h == 0) return o.input.eof ? TSL_ERR_READ : TSL_ERR_CORRUPT;
  }
  const uint32_t width = image->comps[0].w, height = image->comps[0].h;
  const int model = modelOf(layout);
  code = ctx.alloc(picture, model, width, height);
  if (code != TSL_OK) return code;
  if (model == TSL_GREY) picture->colors = 256;

  std::vector<Plane> planes;
  planes.reserve(used);
  for (unsigned i = 0; i < used; ++i) planes.emplace_back(image->comps[i], width, height);
  std::vector<uint8_t> tmp(static_cast<size_t>(width) * 4);
  for (uint32_t y = 0; y < height; ++y) {
    uint8_t *row = rowOf(picture, y);
    switch (layout) {
      case Layout::kGrey:
        planes[0].row(y, row, 1);
        break;
      case Layout::kGreyAlpha:
        planes[0].row(y, row, 4);
        planes[1].row(y, row + 3, 4);
        for (uint32_t x = 0; x < width; ++x) row[4 * x + 1] = row[4 * x + 2] = row[4 * x];
        break;
      case Layout::kRgb:
      case Layout::kRgba:
        for (unsigned i = 0; i < used; ++i) planes[i].row(y, row + i, static_cast<int>(used));
        break;
      case Layout::kYcc:
        for (unsigned i = 0; i < 3; ++i) planes[i].row(y, row + i, 3);
        for (uint32_t x = 0; x < width; ++x) {
          uint8_t *p = row + 3 * x;
          const double Y = p[0], cb = p[1] - 128.0, cr = p[2] - 128.0;
          p[0] = clamp255(Y + 1.402 * cr);
          p[1] = clamp255(Y - 0.344136 * cb - 0.714136 * cr);
          p[2] = clamp255(Y + 1.772 * cb);
        }
        break;
      case Layout::kCmyk:
        for (unsigned i = 0; i < 4; ++i) planes[i].row(y, tmp.data() + i, 4);
        for (uint32_t x = 0; x < width; ++x) {
          const unsigned k = 255 - tmp[4 * x + 3];
          for (int c = 0; c < 3; ++c) row[3 * x + c] = static_cast<uint8_t>(((255 - tmp[4 * x + c]) * k + 127) / 255);
        }
        break;
    }
    if (ctx.progress(static_cast<uint64_t>(height) + y + 1, static_cast<uint64_t>(height) * 2)) return TSL_STOPPED;
  }
  return TSL_OK;
}

// ---- Writing ---------------------------------------------------------------

struct FileOutput {
  FILE *file;
  bool failed;
};

OPJ_SIZE_T writeFn(void *buffer, OPJ_SIZE_T n, void *user) {
  auto *out = static_cast<FileOutput *>(user);
  if (std::fwrite(buffer, 1, n, out->file) != n) {
    out->failed = true;
    return static_cast<OPJ_SIZE_T>(-1);
  }
  return n;
}
OPJ_OFF_T writeSkipFn(OPJ_OFF_T n, void *user) {
  auto *out = static_cast<FileOutput *>(user);
  return std::fseek(out->file, n, SEEK_CUR) == 0 ? n : -1;
}
OPJ_BOOL writeSeekFn(OPJ_OFF_T pos, void *user) {
  auto *out = static_cast<FileOutput *>(user);
  return std::fseek(out->file, pos, SEEK_SET) == 0 ? OPJ_TRUE : OPJ_FALSE;
}

// Quality 100 is lossless (reversible 5/3 wavelet); below that the
// irreversible 9/7 wavelet at a compression ratio growing as quality drops:
// about 4:1 at 90, 14:1 at 75, 36:1 at 50, 100:1 at 1.
float ratioFor(int quality) {
  const double q = std::clamp(quality, 1, 99);
  return static_cast<float>(1.0 + std::pow(100.0 - q, 1.5) / 10.0);
}

int jp2Save(FILE *file, const TslPicture *picture, SaveContext &ctx) {
  const TslParams &params = ctx.params();
  const bool grey = picture->color_model == TSL_GREY;
  const bool alpha = TSL_IS_TRUECOLOR(picture->color_model) && channelLayout(picture->color_model).a >= 0;
  const unsigned n = grey ? 1 : alpha ? 4 : 3;
  const uint32_t w = picture->width, h = picture->height;

  opj_image_cmptparm_t parms[4];
  std::memset(parms, 0, sizeof parms);
  for (unsigned i = 0; i < n; ++i) {
    parms[i].dx = parms[i].dy = 1;
    parms[i].w = w;
    parms[i].h = h;
    parms[i].prec = 8;
    parms[i].sgnd = 0;
  }
  ImagePtr image(opj_image_create(n, parms, grey ? OPJ_CLRSPC_GRAY : OPJ_CLRSPC_SRGB));
  if (!image) return TSL_ERR_MEMORY;
  image->x0 = image->y0 = 0;
  image->x1 = w;
  image->y1 = h;
  if (alpha) image->comps[3].alpha = 1;
  std::vector<uint8_t> rgba(static_cast<size_t>(w) * 4);
  for (uint32_t y = 0; y < h; ++y) {
    const size_t base = static_cast<size_t>(y) * w;
    if (grey) {
      const uint8_t *row = rowOf(picture, y);
      for (uint32_t x = 0; x < w; ++x) image->comps[0].data[base + x] = row[x];
    } else {
      tslGetRowRGBA(picture, y, rgba.data());
      for (unsigned c = 0; c < n; ++c) {
        OPJ_INT32 *d = image->comps[c].data + base;
        for (uint32_t x = 0; x < w; ++x) d[x] = rgba[4 * x + c];
      }
    }
    ctx.progress(y + 1, static_cast<uint64_t>(h) * 4);
  }

  opj_cparameters_t cp;
  opj_set_default_encoder_parameters(&cp);
  cp.tcp_numlayers = 1;
  cp.cp_disto_alloc = 1;
  if (params.quality >= 100) {
    cp.irreversible = 0;
    cp.tcp_rates[0] = 0;  // lossless
  } else {
    cp.irreversible = 1;
    cp.tcp_rates[0] = ratioFor(params.quality);
  }
  cp.tcp_mct = n >= 3 ? 1 : 0;
  // Each resolution level halves the picture; the smallest must keep a pixel.
  int levels = 1;
  while (levels < 6 && (std::min(w, h) >> levels) > 0) ++levels;
  cp.numresolution = levels;

  CodecPtr codec(opj_create_compress(OPJ_CODEC_JP2));
  if (!codec) return TSL_ERR_MEMORY;
  opj_set_info_handler(codec.get(), quiet, nullptr);
  opj_set_warning_handler(codec.get(), quiet, nullptr);
  opj_set_error_handler(codec.get(), quiet, nullptr);
  if (!opj_setup_encoder(codec.get(), &cp, image.get())) return TSL_ERR_INTERNAL;
  FileOutput out{file, false};
  StreamPtr stream(opj_stream_create(1 << 20, OPJ_FALSE));
  if (!stream) return TSL_ERR_MEMORY;
  opj_stream_set_user_data(stream.get(), &out, nullptr);
  opj_stream_set_write_function(stream.get(), writeFn);
  opj_stream_set_skip_function(stream.get(), writeSkipFn);
  opj_stream_set_seek_function(stream.get(), writeSeekFn);
  ctx.progress(1, 4);
  const bool ok = opj_start_compress(codec.get(), image.get(), stream.get()) &&
                  opj_encode(codec.get(), stream.get()) && opj_end_compress(codec.get(), stream.get());
  if (!ok || out.failed) return out.failed ? TSL_ERR_WRITE : TSL_ERR_INTERNAL;
  ctx.progress(1, 1);
  return TSL_OK;
}

}  // namespace

extern const FormatDef kJp2Format = {
    "jp2", "JPEG 2000", "jp2;j2k;jpc;j2c;jpf",
    {{2, 256, -1, -1}, {TSL_KIND_TRUECOLOR, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, false, jp2Sniff, jp2Info, jp2Load, jp2Save, nullptr};

}  // namespace tessel
