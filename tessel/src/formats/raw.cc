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

int rawInfo(const Source &, int, TslFileInfo *info) {
  // The geometry is not in the file: it comes with the load parameters.
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
  const bool grey = p.channel_type == TSL_CHANNEL_GREY;
  const bool planar = p.channel_type == TSL_CHANNEL_PLANAR;
  const uint64_t channels = grey ? 1 : 3;
  const uint64_t pixels = static_cast<uint64_t>(w) * h;
  const uint64_t need = pixels * channels;
  const uint64_t offset = static_cast<uint64_t>(p.offset);
  const uint64_t avail = src.size > offset ? src.size - offset : 0;
  if (avail < need && !ctx.keepDamaged()) {
    ctx.setMessage("Raw data is too short: %llu bytes for %ux%u %s pixels",
                   static_cast<unsigned long long>(avail), w, h, grey ? "grey" : "RGB");
    return TSL_ERR_BAD_FILE;
  }
  if (!ctx.sizeAllowed(w, h)) return TSL_ERR_MEMORY;
  int code = ctx.alloc(picture, grey ? TSL_GREY : TSL_RGB, w, h);
  if (code != TSL_OK) return code;
  const uint8_t *data = src.data + (avail ? offset : 0);
  const int *order = orderOf(p.channel_order);
  for (uint32_t y = 0; y < h; ++y) {
    uint8_t *out = rowOf(picture, y);
    const uint64_t first = static_cast<uint64_t>(y) * w;  // pixel index of the row start
    if (grey) {
      if (first + w > avail) break;
      std::memcpy(out, data + first, w);
    } else if (planar) {
      if (2 * pixels + first + w > avail) break;
      for (int i = 0; i < 3; ++i) {
        const uint8_t *plane = data + static_cast<uint64_t>(i) * pixels + first;
        for (uint32_t x = 0; x < w; ++x) out[3 * x + order[i]] = plane[x];
      }
    } else {
      if (3 * (first + w) > avail) break;
      const uint8_t *in = data + 3 * first;
      for (uint32_t x = 0; x < w; ++x)
        for (int i = 0; i < 3; ++i) out[3 * x + order[i]] = in[3 * x + i];
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
  const bool grey = p.channel_type == TSL_CHANNEL_GREY;
  const bool planar = p.channel_type == TSL_CHANNEL_PLANAR;
  const int *order = orderOf(p.channel_order);
  std::vector<uint8_t> rgb(static_cast<size_t>(w) * 3), line(static_cast<size_t>(w) * 3);
  // Planar files are written one plane after the other: three passes over the rows.
  const int passes = planar ? 3 : 1;
  for (int pass = 0; pass < passes; ++pass) {
    for (uint32_t y = 0; y < h; ++y) {
      tslGetRowRGB(pic, y, rgb.data());
      size_t n = w;
      if (grey) {
        for (uint32_t x = 0; x < w; ++x) {
          const uint8_t *c = &rgb[3 * x];
          line[x] = pic->color_model == TSL_GREY
                        ? c[0]
                        : static_cast<uint8_t>((c[0] * 299 + c[1] * 587 + c[2] * 114 + 500) / 1000);
        }
      } else if (planar) {
        for (uint32_t x = 0; x < w; ++x) line[x] = rgb[3 * x + order[pass]];
      } else {
        for (uint32_t x = 0; x < w; ++x)
          for (int i = 0; i < 3; ++i) line[3 * x + i] = rgb[3 * x + order[i]];
        n = 3 * static_cast<size_t>(w);
      }
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

extern const FormatDef kRawFormat = {
    "raw", "Raw pixels (headerless)", "raw;rgb24;data",
    {{2, 256, -1, -1}, {1008, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicNone, false, nullptr, rawInfo, rawLoad, rawSave, nullptr};

extern const FormatDef kYuvFormat = {
    "yuv", "YUV 4:2:2 frames (headerless)", "yuv;uyvy",
    {{1008, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicNone, true, nullptr, yuvInfo, yuvLoad, yuvSave, nullptr};

}  // namespace tessel
