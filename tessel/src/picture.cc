// The picture allocator, copies, row access in RGB(A) and area-averaging reduction.
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <thread>
#include <vector>

#include "format.h"

namespace {

std::atomic<uint64_t> g_max_pixels{uint64_t(1) << 28};

// Row stride for a model and width, or 0 on overflow.
uint64_t strideFor(int model, uint64_t width, int align) {
  uint64_t bpp = static_cast<uint64_t>(tslBytesPerPixel(model));
  uint64_t line = model == TSL_BINARY ? (width + 7) / 8 : width * bpp;
  if (align > 1) line = (line + static_cast<uint64_t>(align) - 1) / static_cast<uint64_t>(align) * static_cast<uint64_t>(align);
  return line;
}

// Asks for transparent huge pages under the 2 MB-aligned middle of a large
// buffer.  Filling a fresh 36 MB picture otherwise takes some 9000 page
// faults, as much time as decoding a quarter of it; with 2 MB pages the
// kernel faults it in a few dozen steps.  A no-op where the kernel says no.
void adviseHugePages(void *buffer, size_t size) {
#ifdef MADV_HUGEPAGE
  constexpr uintptr_t kHuge = uintptr_t(2) << 20;
  if (size < 4 * kHuge) return;
  const uintptr_t begin = (reinterpret_cast<uintptr_t>(buffer) + kHuge - 1) & ~(kHuge - 1);
  const uintptr_t end = (reinterpret_cast<uintptr_t>(buffer) + size) & ~(kHuge - 1);
  if (end > begin) madvise(reinterpret_cast<void *>(begin), end - begin, MADV_HUGEPAGE);
#else
  (void)buffer;
  (void)size;
#endif
}

}  // namespace

extern "C" {

void tslSetMaxPixels(uint64_t max_pixels) { g_max_pixels = max_pixels ? max_pixels : (uint64_t(1) << 28); }
uint64_t tslGetMaxPixels(void) { return g_max_pixels; }

int tslBytesPerPixel(int model) {
  switch (model) {
    case TSL_BINARY:
    case TSL_GREY:
    case TSL_INDEXED:
      return 1;
    case TSL_RGB:
    case TSL_BGR:
      return 3;
    default:
      return TSL_IS_TRUECOLOR(model) ? 4 : 0;
  }
}

int tslAllock(TslPicture *p, int model, int alloc_param, uint32_t width, uint32_t height) {
  if (!p) return 0;
  if (tslBytesPerPixel(model) == 0 || width == 0 || height == 0) return 0;
  if (static_cast<uint64_t>(width) * height > g_max_pixels.load()) return 0;
  int align = alloc_param > 0 && alloc_param <= 64 ? alloc_param : 0;
  uint64_t line = strideFor(model, width, align);
  if (line > 0xffffffffu) return 0;
  uint64_t total = line * height;
  if (total / height != line || total > (uint64_t(1) << 40)) return 0;
  auto *pixels = static_cast<unsigned char *>(std::calloc(static_cast<size_t>(total), 1));
  if (!pixels) return 0;
  adviseHugePages(pixels, static_cast<size_t>(total));
  unsigned char *palette = nullptr;
  if (model == TSL_INDEXED) {
    palette = static_cast<unsigned char *>(std::calloc(768, 1));
    if (!palette) {
      std::free(pixels);
      return 0;
    }
  }
  p->width = width;
  p->height = height;
  p->bytes_per_line = static_cast<uint32_t>(line);
  p->color_model = static_cast<int16_t>(model);
  p->bytes_per_pixel = static_cast<uint16_t>(tslBytesPerPixel(model));
  p->alloc_param = static_cast<int16_t>(alloc_param);
  p->colors = model == TSL_BINARY ? 2 : model == TSL_GREY ? 256 : model == TSL_INDEXED ? 256 : 0;
  p->transparent_index = -1;
  p->palette = palette;
  p->pixels = pixels;
  return 1;
}

void tslFree(TslPicture *p) {
  if (!p) return;
  std::free(p->pixels);
  std::free(p->palette);
  p->pixels = nullptr;
  p->palette = nullptr;
}

int tslCopyPicture(TslPicture *dest, const TslPicture *src) {
  TslPicture out;
  std::memset(&out, 0, sizeof out);
  if (!src || !src->pixels || !tslAllock(&out, src->color_model, src->alloc_param, src->width, src->height)) {
    std::memset(dest, 0, sizeof *dest);
    return TSL_ERR_MEMORY;
  }
  std::memcpy(out.pixels, src->pixels, static_cast<size_t>(src->bytes_per_line) * src->height);
  if (src->palette && out.palette) std::memcpy(out.palette, src->palette, 768);
  out.attr_word = src->attr_word;
  out.attr_pair[0] = src->attr_pair[0];
  out.attr_pair[1] = src->attr_pair[1];
  out.colors = src->colors;
  out.transparent_index = src->transparent_index;
  *dest = out;
  return TSL_OK;
}

int tslCopyPictureRotated(TslPicture *dest, const TslPicture *src) {
  TslPicture out;
  std::memset(&out, 0, sizeof out);
  if (!src || !tslAllock(&out, src->color_model, src->alloc_param, src->height, src->width)) {
    std::memset(dest, 0, sizeof *dest);
    return TSL_ERR_MEMORY;
  }
  if (src->palette && out.palette) std::memcpy(out.palette, src->palette, 768);
  out.attr_word = src->attr_word;
  out.attr_pair[0] = src->attr_pair[0];
  out.attr_pair[1] = src->attr_pair[1];
  out.colors = src->colors;
  out.transparent_index = src->transparent_index;
  *dest = out;
  return TSL_OK;
}

void tslGetRowRGBA(const TslPicture *p, uint32_t y, unsigned char *out) {
  const uint8_t *row = tessel::rowOf(p, y);
  const uint32_t w = p->width;
  switch (p->color_model) {
    case TSL_BINARY:
      for (uint32_t x = 0; x < w; ++x) {
        uint8_t v = tessel::getBit(row, x) ? 255 : 0;
        out[4 * x] = out[4 * x + 1] = out[4 * x + 2] = v;
        out[4 * x + 3] = 255;
      }
      return;
    case TSL_GREY:
      for (uint32_t x = 0; x < w; ++x) {
        out[4 * x] = out[4 * x + 1] = out[4 * x + 2] = row[x];
        out[4 * x + 3] = 255;
      }
      return;
    case TSL_INDEXED: {
      const uint8_t *pal = p->palette;
      for (uint32_t x = 0; x < w; ++x) {
        uint8_t i = row[x];
        out[4 * x] = pal ? pal[i] : i;
        out[4 * x + 1] = pal ? pal[256 + i] : i;
        out[4 * x + 2] = pal ? pal[512 + i] : i;
        out[4 * x + 3] = (p->transparent_index >= 0 && i == p->transparent_index) ? 0 : 255;
      }
      return;
    }
    default: {
      tessel::ChannelLayout L = tessel::channelLayout(p->color_model);
      const int n = p->bytes_per_pixel;
      for (uint32_t x = 0; x < w; ++x) {
        const uint8_t *s = row + static_cast<size_t>(x) * n;
        out[4 * x] = s[L.r];
        out[4 * x + 1] = s[L.g];
        out[4 * x + 2] = s[L.b];
        out[4 * x + 3] = L.a >= 0 ? s[L.a] : 255;
      }
    }
  }
}

void tslGetRowRGB(const TslPicture *p, uint32_t y, unsigned char *out) {
  if (p->color_model == TSL_RGB) {
    std::memcpy(out, tessel::rowOf(p, y), static_cast<size_t>(p->width) * 3);
    return;
  }
  if (p->color_model == TSL_GREY) {
    const uint8_t *row = tessel::rowOf(p, y);
    for (uint32_t x = 0; x < p->width; ++x) out[3 * x] = out[3 * x + 1] = out[3 * x + 2] = row[x];
    return;
  }
  std::vector<uint8_t> tmp(static_cast<size_t>(p->width) * 4);
  tslGetRowRGBA(p, y, tmp.data());
  for (uint32_t x = 0; x < p->width; ++x) {
    out[3 * x] = tmp[4 * x];
    out[3 * x + 1] = tmp[4 * x + 1];
    out[3 * x + 2] = tmp[4 * x + 2];
  }
}

}  // extern "C"

namespace tessel {

ChannelLayout channelLayout(int model) {
  switch (model) {
    case TSL_RGB: return {0, 1, 2, -1};
    case TSL_BGR: return {2, 1, 0, -1};
    case TSL_RGBA: return {0, 1, 2, 3};
    case TSL_BGRA: return {2, 1, 0, 3};
    case TSL_ARGB: return {1, 2, 3, 0};
    case TSL_ABGR: return {3, 2, 1, 0};
    default: return {0, 1, 2, -1};
  }
}

void greyPalette(uint8_t *palette, int n) {
  if (n < 2) n = 2;
  if (n > 256) n = 256;
  for (int i = 0; i < n; ++i) {
    uint8_t v = static_cast<uint8_t>(i * 255 / (n - 1));
    palette[i] = palette[256 + i] = palette[512 + i] = v;
  }
}

bool paletteIsGrey(const TslPicture *p) {
  if (!p->palette) return false;
  int n = p->colors > 0 && p->colors <= 256 ? p->colors : 256;
  for (int i = 0; i < n; ++i)
    if (p->palette[i] != p->palette[256 + i] || p->palette[i] != p->palette[512 + i]) return false;
  return true;
}

bool fitInside(uint64_t sw, uint64_t sh, uint64_t bw, uint64_t bh, uint64_t *dw, uint64_t *dh) {
  if (sw <= bw && sh <= bh) return false;
  *dw = bw;
  *dh = sh * bw / sw;
  if (*dh > bh) {
    *dh = bh;
    *dw = sw * bh / sh;
  }
  if (*dw < 1) *dw = 1;
  if (*dh < 1) *dh = 1;
  return true;
}

namespace {

// (acc + div/2) / div for every sample: one multiplication by the
// reciprocal and an exact correction instead of a 64-bit division.
void writeMeans(uint64_t *acc, size_t n, uint64_t div, uint8_t *dst) {
  // The sums stay far below 2^63: signed conversions, which have single
  // instructions, give the same values.
  const double inv = 1.0 / static_cast<double>(static_cast<int64_t>(div));
  for (size_t i = 0; i < n; ++i) {
    const uint64_t v = acc[i] + div / 2;
    uint64_t q = static_cast<uint64_t>(static_cast<int64_t>(static_cast<double>(static_cast<int64_t>(v)) * inv));
    if (q * div > v) --q;
    else if ((q + 1) * div <= v) ++q;
    dst[i] = static_cast<uint8_t>(q);
    acc[i] = 0;
  }
}

// The reduction of an RGB picture, destination rows [y0, y1): the same sums
// as the general loop of reducePicture, read straight from the rows, with
// 32-bit row sums (at most 255 * width).  A band starts inside the source
// row it shares with the band above, so bands are independent.
void reduceRgbBand(const TslPicture *pic, TslPicture *out, uint32_t y0, uint32_t y1, const uint32_t *first,
                   const uint64_t *w0) {
  const uint32_t sw = pic->width, sh = pic->height, dw = out->width, dh = out->height;
  const size_t n = static_cast<size_t>(dw) * 3;
  std::vector<uint32_t> rowacc(n);
  std::vector<uint64_t> acc(n, 0);
  const uint64_t div = static_cast<uint64_t>(sw) * sh;
  uint64_t sy = static_cast<uint64_t>(y0) * sh / dh;
  uint64_t skip = static_cast<uint64_t>(y0) * sh - sy * dh;  // units of row sy above row y0
  uint64_t yfill = 0;
  uint32_t oy = y0;
  for (; sy < sh && oy < y1; ++sy) {
    const uint8_t *src = rowOf(pic, static_cast<uint32_t>(sy));
    std::fill(rowacc.begin(), rowacc.end(), 0u);
    for (uint32_t sx = 0; sx < sw; ++sx, src += 3) {
      const uint32_t ox = first[sx];
      if (ox >= dw) break;
      const uint32_t a = static_cast<uint32_t>(w0[sx]), b = dw - a;
      uint32_t *d = &rowacc[static_cast<size_t>(ox) * 3];
      d[0] += src[0] * a;
      d[1] += src[1] * a;
      d[2] += src[2] * a;
      if (b && ox + 1 < dw) {
        d[3] += src[0] * b;
        d[4] += src[1] * b;
        d[5] += src[2] * b;
      }
    }
    uint64_t left = dh - skip;
    skip = 0;
    while (left > 0 && oy < y1) {
      const uint64_t take = std::min(left, sh - yfill);
      for (size_t i = 0; i < n; ++i) acc[i] += rowacc[i] * take;
      left -= take;
      yfill += take;
      if (yfill == sh) {
        writeMeans(acc.data(), n, div, rowOf(out, oy));
        yfill = 0;
        ++oy;
      }
    }
  }
}

}  // namespace

// Area-averaging reduction: each destination pixel is the weighted mean of
// the source area it covers (fixed point, weights in 1/256 of a source pixel).
int reducePicture(TslPicture *picture, int tw, int th) {
  const uint32_t sw = picture->width, sh = picture->height;
  uint64_t dw, dh;
  if (tw <= 0 || th <= 0 || !fitInside(sw, sh, tw, th, &dw, &dh)) return TSL_OK;
  const bool grey = picture->color_model == TSL_GREY || picture->color_model == TSL_BINARY ||
                    (picture->color_model == TSL_INDEXED && paletteIsGrey(picture));
  const bool alpha = picture->color_model == TSL_RGBA || picture->color_model == TSL_BGRA ||
                     picture->color_model == TSL_ARGB || picture->color_model == TSL_ABGR;
  const int model = grey ? TSL_GREY : alpha ? TSL_RGBA : TSL_RGB;
  const int ch = tslBytesPerPixel(model);
  TslPicture out;
  std::memset(&out, 0, sizeof out);
  if (!tslAllock(&out, model, picture->alloc_param, static_cast<uint32_t>(dw), static_cast<uint32_t>(dh)))
    return TSL_ERR_MEMORY;
  out.attr_word = picture->attr_word;
  out.attr_pair[0] = picture->attr_pair[0];
  out.attr_pair[1] = picture->attr_pair[1];

  // Horizontal weights: source column x contributes to destination columns
  // in proportion to the overlap, measured in units of 1/(sw) of dest pixels.
  // We accumulate in "scaled" space: each source pixel spans dw units, each
  // destination pixel spans sw units.
  std::vector<uint8_t> rgba(static_cast<size_t>(sw) * 4);
  std::vector<uint64_t> acc(static_cast<size_t>(dw) * ch, 0);
  std::vector<uint64_t> rowacc(static_cast<size_t>(dw) * ch);
  // Horizontal weights, the same for every row: source pixel sx spans dw
  // units and destination pixel ox spans sw units, so (reducing) a source
  // pixel falls into at most two destination pixels: `first[sx]` takes
  // `w0[sx]` units of it and the next one the rest.
  std::vector<uint32_t> first(sw);
  std::vector<uint64_t> w0(sw);
  {
    uint64_t xfill = 0;
    uint32_t ox = 0;
    for (uint32_t sx = 0; sx < sw; ++sx) {
      first[sx] = ox;
      const uint64_t take = std::min<uint64_t>(dw, sw - xfill);
      w0[sx] = take;
      xfill += dw;
      if (xfill >= sw) {
        xfill -= sw;
        ++ox;
      }
    }
  }
  if (model == TSL_RGB && picture->color_model == TSL_RGB && sw < (1u << 24)) {
    // Large pictures in two bands, the lower one on a second thread.
    const bool two = dw * dh >= (1u << 18) && std::thread::hardware_concurrency() > 1;
    const uint32_t half = two ? static_cast<uint32_t>(dh / 2) : 0;
    std::thread lower;
    if (half > 0) {
      try {
        lower = std::thread(reduceRgbBand, picture, &out, half, static_cast<uint32_t>(dh), first.data(), w0.data());
      } catch (const std::system_error &) {
      }
    }
    reduceRgbBand(picture, &out, 0, lower.joinable() ? half : static_cast<uint32_t>(dh), first.data(), w0.data());
    if (lower.joinable()) lower.join();
    tslFree(picture);
    *picture = out;
    return TSL_OK;
  }
  uint64_t ypos = 0;  // in units where a source row is dh and a dest row is sh
  uint32_t oy = 0;
  uint64_t yfill = 0;  // units accumulated in the current dest row
  for (uint32_t sy = 0; sy < sh && oy < dh; ++sy) {
    tslGetRowRGBA(picture, sy, rgba.data());
    // Horizontal pass into rowacc (weights sum to sw per dest pixel).
    std::fill(rowacc.begin(), rowacc.end(), 0);
    for (uint32_t sx = 0; sx < sw; ++sx) {
      const uint8_t *src = &rgba[static_cast<size_t>(sx) * 4];
      const uint32_t ox = first[sx];
      if (ox >= dw) break;
      const uint64_t a = w0[sx], b = dw - a;
      uint64_t *d0 = &rowacc[static_cast<size_t>(ox) * ch];
      if (grey) {
        d0[0] += src[0] * a;
        if (b && ox + 1 < dw) d0[1] += src[0] * b;
      } else {
        for (int c = 0; c < ch; ++c) d0[c] += src[c] * a;
        if (b && ox + 1 < dw)
          for (int c = 0; c < ch; ++c) d0[ch + c] += src[c] * b;
      }
    }
    // Vertical accumulation.
    uint64_t left = dh;
    while (left > 0 && oy < dh) {
      uint64_t take = std::min(left, sh - yfill);
      for (size_t i = 0; i < acc.size(); ++i) acc[i] += rowacc[i] * take;
      left -= take;
      yfill += take;
      if (yfill == sh) {
        writeMeans(acc.data(), acc.size(), static_cast<uint64_t>(sw) * sh, rowOf(&out, oy));
        yfill = 0;
        ++oy;
      }
    }
    ypos += dh;
  }
  tslFree(picture);
  *picture = out;
  return TSL_OK;
}

}  // namespace tessel
