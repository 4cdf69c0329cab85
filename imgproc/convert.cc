// Colour-model conversions: true colour, grey levels, black and white, and
// the conversion codes of the save flow.  The palette reduction lives in
// quantize.cc.
#include "imgproc/convert.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <vector>

#include "imgproc/convert_rows.h"
#include "imgproc/operations.h"

namespace quilla {

namespace rows {

Layout LayoutOf(int model) {
  switch (model) {
    case TSL_BGR: return {2, 1, 0, -1};
    case TSL_RGBA: return {0, 1, 2, 3};
    case TSL_BGRA: return {2, 1, 0, 3};
    case TSL_ARGB: return {1, 2, 3, 0};
    case TSL_ABGR: return {3, 2, 1, 0};
    default: return {0, 1, 2, -1};
  }
}

bool HasAlpha(int model) {
  return model == TSL_RGBA || model == TSL_BGRA || model == TSL_ARGB || model == TSL_ABGR;
}

void GreyRow(const TslPicture *p, uint32_t y, uint8_t *out) {
  const uint8_t *row = RowOf(p, y);
  const uint32_t w = p->width;
  switch (p->color_model) {
    case TSL_BINARY:
      for (uint32_t x = 0; x < w; ++x) out[x] = GetBit(row, static_cast<int>(x)) ? 255 : 0;
      return;
    case TSL_GREY:
      std::memcpy(out, row, w);
      return;
    case TSL_INDEXED: {
      uint8_t lut[256];
      for (int k = 0; k < 256; ++k)
        lut[k] = p->palette ? Luma(p->palette[k], p->palette[256 + k], p->palette[512 + k]) : static_cast<uint8_t>(k);
      for (uint32_t x = 0; x < w; ++x) out[x] = lut[row[x]];
      return;
    }
    default: {
      const Layout L = LayoutOf(p->color_model);
      const int n = p->bytes_per_pixel;
      for (uint32_t x = 0; x < w; ++x, row += n) out[x] = Luma(row[L.r], row[L.g], row[L.b]);
    }
  }
}

}  // namespace rows

using rows::CopyAttributes;
using rows::Usable;

int ConvertToTrueColor(const TslPicture *src, TslPicture *dst) {
  if (!Usable(src) || !dst) return kOpEmptyRect;
  const bool alpha = rows::HasAlpha(src->color_model) ||
                     (src->color_model == TSL_INDEXED && src->transparent_index >= 0 && src->transparent_index < 256);
  const int model = alpha ? TSL_RGBA : TSL_RGB;
  TslPicture out;
  std::memset(&out, 0, sizeof out);
  if (!tslAllock(&out, model, src->alloc_param, src->width, src->height)) return kOpNoMemory;
  CopyAttributes(src, &out);
  for (uint32_t y = 0; y < src->height; ++y) {
    if (alpha) tslGetRowRGBA(src, y, RowOf(&out, y));
    else tslGetRowRGB(src, y, RowOf(&out, y));
  }
  *dst = out;
  return kOpDone;
}

namespace {

// Level index and level value tables for `levels` evenly spaced intensities.
struct Levels {
  uint8_t index[256];
  uint8_t value[256];
  explicit Levels(int levels) {
    const int n = levels - 1;
    for (int k = 0; k <= n; ++k) value[k] = static_cast<uint8_t>((k * 255 + n / 2) / n);
    for (int v = 0; v < 256; ++v) index[v] = static_cast<uint8_t>((v * n + 127) / 255);
  }
};

// Floyd-Steinberg error diffusion of one grey row onto a set of output
// values.  `cur` holds the error (x16) arriving at this row, `next` gathers
// the error for the following row; both are width + 2 long, offset by one.
// `quant` maps a clamped value to the output value.
template <typename Quant>
void diffuseRow(const uint8_t *in, uint8_t *out, int w, bool reverse, int *cur, int *next, Quant quant) {
  std::fill(next, next + w + 2, 0);
  const int step = reverse ? -1 : 1;
  int x = reverse ? w - 1 : 0;
  for (int i = 0; i < w; ++i, x += step) {
    int v = in[x] + (cur[x + 1] + (cur[x + 1] >= 0 ? 8 : -8)) / 16;
    v = std::clamp(v, 0, 255);
    const int q = quant(x, v);
    out[x] = static_cast<uint8_t>(q);
    const int e = v - q;
    cur[x + 1 + step] += e * 7;
    next[x + 1 - step] += e * 3;
    next[x + 1] += e * 5;
    next[x + 1 + step] += e;
  }
}

}  // namespace

int ConvertToGrey(const TslPicture *src, TslPicture *dst, int levels, bool dither) {
  if (!Usable(src) || !dst || levels < 2 || levels > 256) return kOpEmptyRect;
  TslPicture out;
  std::memset(&out, 0, sizeof out);
  if (!tslAllock(&out, TSL_GREY, src->alloc_param, src->width, src->height)) return kOpNoMemory;
  CopyAttributes(src, &out);
  out.colors = static_cast<int16_t>(levels);
  const int w = static_cast<int>(src->width);
  const Levels lv(levels);
  std::vector<uint8_t> grey(src->width);
  std::vector<int> e0, e1;
  if (dither && levels < 256) {
    e0.assign(static_cast<size_t>(w) + 2, 0);
    e1.assign(static_cast<size_t>(w) + 2, 0);
  }
  for (uint32_t y = 0; y < src->height; ++y) {
    uint8_t *o = RowOf(&out, y);
    rows::GreyRow(src, y, levels == 256 ? o : grey.data());
    if (levels == 256) continue;
    if (dither) {
      diffuseRow(grey.data(), o, w, y & 1, e0.data(), e1.data(),
                 [&lv](int, int v) { return static_cast<int>(lv.value[lv.index[v]]); });
      std::swap(e0, e1);
    } else {
      for (int x = 0; x < w; ++x) o[x] = lv.value[lv.index[grey[static_cast<size_t>(x)]]];
    }
  }
  *dst = out;
  return kOpDone;
}

int ConvertToGrey256(const TslPicture *src, TslPicture *dst) { return ConvertToGrey(src, dst, 256, false); }

namespace {

// 8x8 Bayer matrix, values 0..63.
const uint8_t kBayer8[8][8] = {
    {0, 32, 8, 40, 2, 34, 10, 42},  {48, 16, 56, 24, 50, 18, 58, 26}, {12, 44, 4, 36, 14, 46, 6, 38},
    {60, 28, 52, 20, 62, 30, 54, 22}, {3, 35, 11, 43, 1, 33, 9, 41},  {51, 19, 59, 27, 49, 17, 57, 25},
    {15, 47, 7, 39, 13, 45, 5, 37},   {63, 31, 55, 23, 61, 29, 53, 21}};

// Threshold of rank r (0..63) in an 8x8 screen: white when the value exceeds it.
inline uint8_t thresholdOfRank(int r) { return static_cast<uint8_t>(r * 4 + 2); }

// Clustered-dot screens.  The spot function is highest at the dot centres,
// which turn black first as the picture darkens; at 45 degrees the 8x8 tile
// holds two dots on a diagonal lattice, at 90 degrees one dot on the square
// lattice.
void buildScreen(int method, uint8_t table[8][8]) {
  if (method == kBinaryPattern) {
    for (int y = 0; y < 8; ++y)
      for (int x = 0; x < 8; ++x) table[y][x] = thresholdOfRank(kBayer8[y][x]);
    return;
  }
  const double k = 2.0 * M_PI / 8.0;
  double spot[64];
  for (int y = 0; y < 8; ++y) {
    for (int x = 0; x < 8; ++x) {
      const double u = (x + 0.5) * k, v = (y + 0.5) * k;
      spot[y * 8 + x] = method == kBinaryHalftone45 ? std::cos(u) * std::cos(v) : std::cos(u) + std::cos(v);
    }
  }
  int order[64];
  std::iota(order, order + 64, 0);
  // Highest spot value first; ties alternate between the dots by position.
  std::stable_sort(order, order + 64, [&spot](int a, int b) { return spot[a] > spot[b] + 1e-9; });
  for (int r = 0; r < 64; ++r) table[order[r] / 8][order[r] % 8] = thresholdOfRank(63 - r);
}

}  // namespace

int ConvertToBinary(const TslPicture *src, TslPicture *dst, int method) {
  if (!Usable(src) || !dst || method < kBinaryPattern || method > kBinaryHalftone90) return kOpEmptyRect;
  if (src->color_model == TSL_BINARY) return CopyToDest(src, dst);
  TslPicture out;
  std::memset(&out, 0, sizeof out);
  if (!tslAllock(&out, TSL_BINARY, src->alloc_param, src->width, src->height)) return kOpNoMemory;
  CopyAttributes(src, &out);
  out.colors = 2;
  const int w = static_cast<int>(src->width);
  std::vector<uint8_t> grey(src->width), bw(src->width);
  std::vector<int> e0, e1;
  uint8_t screen[8][8];
  if (method == kBinaryFloyd) {
    e0.assign(static_cast<size_t>(w) + 2, 0);
    e1.assign(static_cast<size_t>(w) + 2, 0);
  } else {
    buildScreen(method, screen);
  }
  for (uint32_t y = 0; y < src->height; ++y) {
    rows::GreyRow(src, y, grey.data());
    uint8_t *o = RowOf(&out, y);
    if (method == kBinaryFloyd) {
      diffuseRow(grey.data(), bw.data(), w, y & 1, e0.data(), e1.data(), [](int, int v) { return v >= 128 ? 255 : 0; });
      std::swap(e0, e1);
      for (int x = 0; x < w; ++x) SetBit(o, x, bw[static_cast<size_t>(x)] != 0);
    } else {
      const uint8_t *t = screen[y & 7];
      for (int x = 0; x < w; ++x) SetBit(o, x, grey[static_cast<size_t>(x)] > t[x & 7]);
    }
  }
  *dst = out;
  return kOpDone;
}

int ConvertByCode(const TslPicture *src, TslPicture *dst, int code) {
  static const int kGrey[7] = {4, 8, 16, 32, 64, 128, 256};
  static const int kColors[7] = {8, 16, 32, 64, 128, 216, 256};
  if (code >= 1 && code <= 4) return ConvertToBinary(src, dst, code);
  if (code >= 5 && code <= 11) return ConvertToGrey(src, dst, kGrey[code - 5], false);
  if (code >= 12 && code <= 17) return ConvertToGrey(src, dst, kGrey[code - 12], true);
  if (code >= 18 && code <= 24) return ConvertToColors(src, dst, kColors[code - 18], false);
  if (code >= 25 && code <= 31) return ConvertToColors(src, dst, kColors[code - 25], true);
  if (code == 32) return ConvertToTrueColor(src, dst);
  return kOpEmptyRect;
}

// ---- Catalogue entry points ----------------------------------------------
// A colour-model change concerns the whole picture: the rectangle is only
// checked (an empty one gives kOpEmptyRect), never used to limit the work.

namespace {

template <typename Convert>
int runConversion(TslPicture *src, TslPicture *dst, const OpRect *rect, Convert convert) {
  OpRect r;
  if (!Usable(src) || !ClipRect(src, rect, &r)) return kOpEmptyRect;
  TslPicture out;
  std::memset(&out, 0, sizeof out);
  const int status = convert(src, &out);
  if (status != kOpDone) return status;
  HandOver(src, dst, &out);
  return kOpDone;
}

int greyLevelsOfCode(int code) { return code >= 2 && code <= 7 ? 1 << code : 256; }

int colorsOfCode(int code) {
  static const int kColors[6] = {8, 16, 32, 64, 128, 216};
  return code >= 12 && code <= 17 ? kColors[code - 12] : 256;
}

}  // namespace

int OpTrueColors(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) {
  return runConversion(src, dst, rect, [](const TslPicture *s, TslPicture *d) { return ConvertToTrueColor(s, d); });
}

int OpGrey(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  const int levels = greyLevelsOfCode(p.i[0]);
  const bool dither = p.i[1] == 1;
  return runConversion(src, dst, rect,
                       [=](const TslPicture *s, TslPicture *d) { return ConvertToGrey(s, d, levels, dither); });
}

int OpColors(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  const int count = colorsOfCode(p.i[0]);
  const bool dither = p.i[1] == 1;
  return runConversion(src, dst, rect,
                       [=](const TslPicture *s, TslPicture *d) { return ConvertToColors(s, d, count, dither); });
}

int OpBinary(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  const int method = p.i[0] == 2 ? kBinaryHalftone45 : p.i[0] == 3 ? kBinaryHalftone90 : p.i[0] == 5 ? kBinaryFloyd
                                                                                                      : kBinaryPattern;
  return runConversion(src, dst, rect, [=](const TslPicture *s, TslPicture *d) { return ConvertToBinary(s, d, method); });
}

}  // namespace quilla
