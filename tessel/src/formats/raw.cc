// Headerless pictures, chosen by extension with their geometry from the
// parameters: "raw" (8-bit grey, interleaved or planar RGB in any channel
// order, at a byte offset) and "yuv" (UYVY 4:2:2 frames, BT.601 studio range,
// one page per frame).
#include <cstring>
#include <vector>

#include "../bytes.h"
#include "../format.h"

namespace tessel {

namespace {

// Where the bytes of each channel order go: position i of a pixel in the file
// holds channel kOrder[order][i] (0 red, 1 green, 2 blue).
const int kOrder[6][3] = {{0, 1, 2}, {2, 1, 0}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}};

const int *orderOf(int order) { return kOrder[order >= 0 && order < 6 ? order : 0]; }

// How the bytes of one pixel are laid out in a headerless file.
struct Layout {
  enum Kind { kGrey, kRgb, kRgba, kAbgr, kCmy, kCmyk } kind;
  int channels;
  const int *order;  // kRgb: the channel of each byte
  bool planar;
  int model() const { return kind == kGrey ? TSL_GREY : kind == kRgba || kind == kAbgr ? TSL_RGBA : TSL_RGB; }
};

Layout layoutOf(const TslParams &p) {
  const bool planar = p.channel_type == TSL_CHANNEL_PLANAR;
  if (p.channel_type == TSL_CHANNEL_GREY) return {Layout::kGrey, 1, nullptr, false};
  switch (p.channel_order) {
    case TSL_ORDER_RGBA: return {Layout::kRgba, 4, nullptr, planar};
    case TSL_ORDER_ABGR: return {Layout::kAbgr, 4, nullptr, planar};
    case TSL_ORDER_CMY: return {Layout::kCmy, 3, nullptr, planar};
    case TSL_ORDER_CMYK: return {Layout::kCmyk, 4, nullptr, planar};
    default: return {Layout::kRgb, 3, orderOf(p.channel_order), planar};
  }
}

// The file's bytes s[0 .. channels) of one pixel into the picture's pixel.
inline void decodePixel(const Layout &L, const uint8_t *s, uint8_t *out) {
  switch (L.kind) {
    case Layout::kGrey: out[0] = s[0]; break;
    case Layout::kRgb:
      for (int i = 0; i < 3; ++i) out[L.order[i]] = s[i];
      break;
    case Layout::kRgba: std::memcpy(out, s, 4); break;
    case Layout::kAbgr: out[0] = s[3], out[1] = s[2], out[2] = s[1], out[3] = s[0]; break;
    case Layout::kCmy:
      for (int i = 0; i < 3; ++i) out[i] = static_cast<uint8_t>(255 - s[i]);
      break;
    case Layout::kCmyk:
      for (int i = 0; i < 3; ++i) out[i] = static_cast<uint8_t>(((255 - s[i]) * (255 - s[3]) + 127) / 255);
      break;
  }
}

// An RGBA pixel into the file's bytes (grey by the usual luma weights,
// black as the complement of the brightest channel).
inline void encodePixel(const Layout &L, const uint8_t *c, bool grey_picture, uint8_t *s) {
  switch (L.kind) {
    case Layout::kGrey:
      s[0] = grey_picture ? c[0] : static_cast<uint8_t>((c[0] * 299 + c[1] * 587 + c[2] * 114 + 500) / 1000);
      break;
    case Layout::kRgb:
      for (int i = 0; i < 3; ++i) s[i] = c[L.order[i]];
      break;
    case Layout::kRgba: std::memcpy(s, c, 4); break;
    case Layout::kAbgr: s[0] = c[3], s[1] = c[2], s[2] = c[1], s[3] = c[0]; break;
    case Layout::kCmy:
      for (int i = 0; i < 3; ++i) s[i] = static_cast<uint8_t>(255 - c[i]);
      break;
    case Layout::kCmyk: {
      const int top = c[0] > c[1] ? (c[0] > c[2] ? c[0] : c[2]) : (c[1] > c[2] ? c[1] : c[2]);
      s[3] = static_cast<uint8_t>(255 - top);
      for (int i = 0; i < 3; ++i) s[i] = top ? static_cast<uint8_t>(((top - c[i]) * 255 + top / 2) / top) : 0;
      break;
    }
  }
}

int rawInfo(const Source &, int, TslFileInfo *info) {
  // The geometry is not in the file: it comes with the load parameters
  // (see headerlessInfo).
  info->width = 0;
  info->height = 0;
  info->color_model = TSL_RGB;
  info->planes = 3;
  info->bits_per_plane = 8;
  info->colors = 1L << 24;
  info->compression = TSL_COMP_NONE;
  info->pages = 1;
  return TSL_OK;
}

int rawLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  const TslParams &p = ctx.params();
  if (p.width <= 0 || p.height <= 0) {
    ctx.setMessage("Raw pictures need a width and a height");
    return TSL_ERR_BAD_FILE;
  }
  if (p.offset < 0) {
    ctx.setMessage("Raw offset is negative");
    return TSL_ERR_BAD_FILE;
  }
  const uint32_t w = static_cast<uint32_t>(p.width), h = static_cast<uint32_t>(p.height);
  const Layout L = layoutOf(p);
  const uint64_t channels = static_cast<uint64_t>(L.channels);
  const uint64_t pixels = static_cast<uint64_t>(w) * h;
  const uint64_t need = pixels * channels;
  const uint64_t offset = static_cast<uint64_t>(p.offset);
  const uint64_t avail = src.size > offset ? src.size - offset : 0;
  if (avail < need && !ctx.keepDamaged()) {
    ctx.setMessage("Raw data is too short: %llu bytes for %ux%u pixels of %d bytes",
                   static_cast<unsigned long long>(avail), w, h, L.channels);
    return TSL_ERR_BAD_FILE;
  }
  if (!ctx.sizeAllowed(w, h)) return TSL_ERR_MEMORY;
  int code = ctx.alloc(picture, L.model(), w, h);
  if (code != TSL_OK) return code;
  const uint8_t *data = src.data + (avail ? offset : 0);
  const int bpp = picture->bytes_per_pixel;
  for (uint32_t y = 0; y < h; ++y) {
    uint8_t *out = rowOf(picture, y);
    const uint64_t first = static_cast<uint64_t>(y) * w;  // pixel index of the row start
    if (L.planar) {
      if ((channels - 1) * pixels + first + w > avail) break;
      uint8_t s[4];
      for (uint32_t x = 0; x < w; ++x) {
        for (int i = 0; i < L.channels; ++i) s[i] = data[static_cast<uint64_t>(i) * pixels + first + x];
        decodePixel(L, s, out + static_cast<size_t>(x) * bpp);
      }
    } else {
      if (channels * (first + w) > avail) break;
      const uint8_t *in = data + channels * first;
      for (uint32_t x = 0; x < w; ++x) decodePixel(L, in + channels * x, out + static_cast<size_t>(x) * bpp);
    }
    if (ctx.progress(y + 1, h)) return TSL_STOPPED;
  }
  return TSL_OK;
}

int rawSave(FILE *file, const TslPicture *pic, SaveContext &ctx) {
  const TslParams &p = ctx.params();
  const uint32_t w = pic->width, h = pic->height;
  for (long i = 0; i < p.offset; ++i)
    if (!put8(file, 0)) return TSL_ERR_WRITE;
  const Layout L = layoutOf(p);
  const bool grey_picture = pic->color_model == TSL_GREY;
  std::vector<uint8_t> rgba(static_cast<size_t>(w) * 4), line(static_cast<size_t>(w) * 4);
  // Planar files are written one plane after the other: a pass over the
  // rows per channel.
  const int passes = L.planar ? L.channels : 1;
  for (int pass = 0; pass < passes; ++pass) {
    for (uint32_t y = 0; y < h; ++y) {
      tslGetRowRGBA(pic, y, rgba.data());
      uint8_t s[4];
      for (uint32_t x = 0; x < w; ++x) {
        if (L.planar) {
          encodePixel(L, &rgba[4 * static_cast<size_t>(x)], grey_picture, s);
          line[x] = s[pass];
        } else {
          encodePixel(L, &rgba[4 * static_cast<size_t>(x)], grey_picture, &line[static_cast<size_t>(x) * L.channels]);
        }
      }
      const size_t n = L.planar ? w : static_cast<size_t>(w) * L.channels;
      if (!putBytes(file, line.data(), n)) return TSL_ERR_WRITE;
      ctx.progress(static_cast<uint64_t>(pass) * h + y + 1, static_cast<uint64_t>(passes) * h);
    }
  }
  return TSL_OK;
}

// ---- UYVY ----------------------------------------------------------------

uint64_t frameBytes(uint32_t w, uint32_t h) { return (static_cast<uint64_t>(w) + 1) / 2 * 4 * h; }

// Frame sizes tried when the geometry is not given: the common video formats.
const uint32_t kVideoSizes[][2] = {{720, 576}, {720, 486}, {720, 480}, {1920, 1080}, {1280, 720},
                                   {640, 480}, {352, 288}, {352, 240}, {176, 144}};

int yuvInfo(const Source &src, int, TslFileInfo *info) {
  // The geometry comes with the load parameters; a file made of whole frames
  // of a common video size is described with that size.
  info->color_model = TSL_RGB;
  info->planes = 3;
  info->bits_per_plane = 8;
  info->colors = 1L << 24;
  info->compression = TSL_COMP_NONE;
  info->pages = 1;
  for (const auto &s : kVideoSizes) {
    const uint64_t frame = frameBytes(s[0], s[1]);
    if (src.size >= frame && src.size % frame == 0) {
      info->width = s[0];
      info->height = s[1];
      info->pages = static_cast<int>(src.size / frame < 0x7fffffff ? src.size / frame : 0x7fffffff);
      break;
    }
  }
  return TSL_OK;
}

inline uint8_t clamp8(int v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); }

// BT.601 studio range to RGB, 16.16 fixed point.
inline void yuvToRgb(int y, int u, int v, uint8_t *out) {
  const int c = (y - 16) * 76309;  // 1.164
  const int d = u - 128, e = v - 128;
  out[0] = clamp8((c + 104597 * e + 32768) >> 16);             // 1.596
  out[1] = clamp8((c - 25675 * d - 53279 * e + 32768) >> 16);  // 0.392, 0.813
  out[2] = clamp8((c + 132201 * d + 32768) >> 16);             // 2.017
}

int yuvLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  const TslParams &p = ctx.params();
  if (p.width <= 0 || p.height <= 0 || p.offset < 0) {
    ctx.setMessage("YUV frames need a width and a height");
    return TSL_ERR_BAD_FILE;
  }
  const uint32_t w = static_cast<uint32_t>(p.width), h = static_cast<uint32_t>(p.height);
  const uint64_t frame = frameBytes(w, h);
  const uint64_t offset = static_cast<uint64_t>(p.offset);
  const uint64_t avail = src.size > offset ? src.size - offset : 0;
  const uint64_t page = p.page > 0 ? static_cast<uint64_t>(p.page) : 0;
  const uint64_t start = page * frame;
  if (start >= avail && page > 0) {
    ctx.setMessage("YUV file has no frame %llu", static_cast<unsigned long long>(page + 1));
    return TSL_ERR_BAD_FILE;
  }
  if (start + frame > avail && !ctx.keepDamaged()) {
    ctx.setMessage("YUV data is too short for a %ux%u frame", w, h);
    return TSL_ERR_BAD_FILE;
  }
  if (!ctx.sizeAllowed(w, h)) return TSL_ERR_MEMORY;
  int code = ctx.alloc(picture, TSL_RGB, w, h);
  if (code != TSL_OK) return code;
  const uint64_t have = avail > start ? avail - start : 0;
  const uint8_t *data = have ? src.data + offset + start : src.data;
  const uint64_t line = (static_cast<uint64_t>(w) + 1) / 2 * 4;
  for (uint32_t y = 0; y < h; ++y) {
    if ((static_cast<uint64_t>(y) + 1) * line > have) break;
    const uint8_t *in = data + y * line;
    uint8_t *out = rowOf(picture, y);
    for (uint32_t x = 0; x < w; x += 2) {
      const uint8_t *q = in + 2 * x;  // U Y0 V Y1
      yuvToRgb(q[1], q[0], q[2], out + 3 * x);
      if (x + 1 < w) yuvToRgb(q[3], q[0], q[2], out + 3 * (x + 1));
    }
    if (ctx.progress(y + 1, h)) return TSL_STOPPED;
  }
  return TSL_OK;
}

int yuvSave(FILE *file, const TslPicture *pic, SaveContext &ctx) {
  const uint32_t w = pic->width, h = pic->height;
  for (long i = 0; i < ctx.params().offset; ++i)
    if (!put8(file, 0)) return TSL_ERR_WRITE;
  std::vector<uint8_t> rgb(static_cast<size_t>(w + 1) * 3), line(static_cast<size_t>(w + 1) / 2 * 4);
  for (uint32_t y = 0; y < h; ++y) {
    tslGetRowRGB(pic, y, rgb.data());
    if (w & 1) std::memcpy(&rgb[3 * w], &rgb[3 * (w - 1)], 3);  // odd width: repeat the last pixel
    for (uint32_t x = 0; x < w; x += 2) {
      const uint8_t *a = &rgb[3 * x], *b = &rgb[3 * x + 3];
      // BT.601 studio range, 16.16 fixed point; chroma from the pair's mean.
      auto luma = [](const uint8_t *c) {
        return static_cast<uint8_t>(((16 << 16) + 16829 * c[0] + 33039 * c[1] + 6416 * c[2] + 32768) >> 16);
      };
      const int r = a[0] + b[0], g = a[1] + b[1], bl = a[2] + b[2];
      const int u = (128 << 17) - 9714 * r - 19070 * g + 28784 * bl + 65536;
      const int v = (128 << 17) + 28784 * r - 24103 * g - 4681 * bl + 65536;
      uint8_t *q = &line[2 * x];
      q[0] = clamp8(u >> 17);
      q[1] = luma(a);
      q[2] = clamp8(v >> 17);
      q[3] = luma(b);
    }
    if (!putBytes(file, line.data(), line.size())) return TSL_ERR_WRITE;
    ctx.progress(y + 1, h);
  }
  return TSL_OK;
}

}  // namespace

extern const FormatDef kRawFormat, kYuvFormat;

int headerlessInfo(const FormatDef &format, const Source &src, const TslParams &params, TslFileInfo *info) {
  if (&format != &kRawFormat && &format != &kYuvFormat) return -1;
  int code = format.info(src, params.page, info);
  if (code != TSL_OK || params.width <= 0 || params.height <= 0) return code;
  info->width = static_cast<uint32_t>(params.width);
  info->height = static_cast<uint32_t>(params.height);
  const uint64_t offset = params.offset > 0 ? static_cast<uint64_t>(params.offset) : 0;
  const uint64_t avail = src.size > offset ? src.size - offset : 0;
  if (&format == &kYuvFormat) {
    const uint64_t frames = avail / frameBytes(info->width, info->height);
    info->pages = frames < 1 ? 1 : frames > 0x7fffffff ? 0x7fffffff : static_cast<int>(frames);
    return TSL_OK;
  }
  const Layout L = layoutOf(params);
  info->color_model = L.model();
  info->planes = L.channels;
  info->colors = L.kind == Layout::kGrey ? 256 : 1L << 24;
  info->has_alpha = L.model() == TSL_RGBA;
  return TSL_OK;
}

extern const FormatDef kRawFormat = {
    "raw", "Raw pixels (headerless)", "raw;rgb24;data",
    {{2, 256, -1, -1}, {1008, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicNone, false, nullptr, rawInfo, rawLoad, rawSave, nullptr};

extern const FormatDef kYuvFormat = {
    "yuv", "YUV 4:2:2 frames (headerless)", "yuv;uyvy",
    {{1008, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicNone, true, nullptr, yuvInfo, yuvLoad, yuvSave, nullptr};

}  // namespace tessel
