// Point operations: table builders and the operations that apply them.
#include "imgproc/point.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace quilla {

namespace {

uint8_t clamp255(long v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); }

// A real table value truncated toward zero and clamped; NaN gives 0.
uint8_t clampReal(double v) {
  if (!(v > 0)) return 0;
  if (v >= 255) return 255;
  return static_cast<uint8_t>(static_cast<int>(v));
}

// Inverts the bits of a bilevel picture inside the rectangle.
void invertBits(TslPicture *pic, const OpRect &r) {
  const int x0 = r.x, x1 = r.x + r.width;  // [x0, x1)
  const int first_full = (x0 + 7) / 8, last_full = x1 / 8;  // whole bytes [first_full, last_full)
  for (int y = r.y; y < r.y + r.height; ++y) {
    uint8_t *row = RowOf(pic, static_cast<uint32_t>(y));
    if (first_full < last_full) {
      for (int x = x0; x < first_full * 8; ++x) SetBit(row, x, !GetBit(row, x));
      for (int b = first_full; b < last_full; ++b) row[b] = static_cast<uint8_t>(~row[b]);
      for (int x = last_full * 8; x < x1; ++x) SetBit(row, x, !GetBit(row, x));
    } else {
      for (int x = x0; x < x1; ++x) SetBit(row, x, !GetBit(row, x));
    }
  }
}

// Colour count after the three-table adjustments: 256 for the palette-like
// models (any of the three lowest model bits set).
void widenColorCount(TslPicture *pic) {
  if (pic->color_model & 7) pic->colors = 256;
}

int applyAndWiden(TslPicture *src, TslPicture *dst, const OpRect *rect, const uint8_t *t0, const uint8_t *t1,
                  const uint8_t *t2) {
  int status = ApplyLut3(src, dst, rect, t0, t1, t2);
  if (status == kOpDone) widenColorCount(dst ? dst : src);
  return status;
}

}  // namespace

void BrightnessTable(int b, uint8_t t[256]) {
  for (int i = 0; i < 256; ++i) t[i] = clamp255(static_cast<long>(i) + b);
}

void ContrastTable(int c, uint8_t t[256]) {
  for (int i = 0; i < 256; ++i) {
    double v;
    if (c > 0) {
      v = (i - c) * 255.0 / (255 - 2 * c);  // 255 - 2c is odd, never 0
    } else {
      v = i * (255 + 2 * c) / 255.0 - c;
    }
    // trunc toward zero, then clamp (a negative truncation clamps to 0 as well)
    t[i] = v >= 255 ? 255 : v <= 0 ? 0 : static_cast<uint8_t>(static_cast<int>(v));
  }
}

void GammaTable(double g, uint8_t t[256]) {
  for (int i = 0; i < 256; ++i) t[i] = clampReal(std::pow(i / 255.0, 1.0 / g) * 255.0 + 0.5);
}

void LogarithmTable(uint8_t t[256]) {
  for (int i = 0; i < 256; ++i) t[i] = clampReal(std::log(i + 1.0) * 255.0 / std::log(256.0));
}

void SolarizeTable(int threshold, uint8_t t[256]) {
  for (int i = 0; i < 256; ++i) t[i] = static_cast<uint8_t>(i <= threshold ? i : 255 - i);
}

void PosterizeTable(int n, uint8_t t[256]) {
  for (int i = 0; i < 256; ++i) t[i] = static_cast<uint8_t>(i);
  if (n < 2 || n > 256) return;  // one level divides by zero; more than 256 is the identity
  const int step = 255 / (n - 1), width = 256 / n;
  int s = 0, v = 0;
  while (s <= 255) {
    if (s + step > 255) {
      for (int i = s; i <= 255; ++i) t[i] = 255;
      break;
    }
    for (int i = s; i < s + width && i <= 255; ++i) t[i] = static_cast<uint8_t>(v);
    s += width;
    v += step;
  }
}

int ChannelHistograms(const TslPicture *pic, uint64_t hist[4][256]) {
  std::memset(hist, 0, sizeof(uint64_t) * 4 * 256);
  const int bpp = pic->bytes_per_pixel;
  const int channels = bpp == 4 ? 3 : std::min(bpp, 4);
  const size_t w = pic->width;
  const int h = static_cast<int>(pic->height);
  const int bands = ParallelBandCount(h, w * bpp);
  // Per-band 32-bit counts, merged at the end (a band holds fewer than 2^32 bytes).
  std::vector<uint32_t> counts(static_cast<size_t>(bands) * 4 * 256, 0);
  std::vector<int> band_start(static_cast<size_t>(bands) + 1);
  for (int b = 0; b <= bands; ++b) band_start[b] = static_cast<int>(static_cast<int64_t>(h) * b / bands);
  ParallelFor(bands, [&](int b) {
    {
      uint32_t *c = &counts[static_cast<size_t>(b) * 1024];
      for (int y = band_start[b]; y < band_start[b + 1]; ++y) {
        const uint8_t *p = RowOf(pic, static_cast<uint32_t>(y));
        if (bpp == 1) {
          for (size_t x = 0; x < w; ++x) ++c[p[x]];
        } else {
          for (size_t x = 0; x < w; ++x, p += bpp)
            for (int k = 0; k < channels; ++k) ++c[k * 256 + p[k]];
        }
      }
    }
  });
  for (int b = 0; b < bands; ++b)
    for (int k = 0; k < 4; ++k)
      for (int i = 0; i < 256; ++i) hist[k][i] += counts[static_cast<size_t>(b) * 1024 + k * 256 + i];
  return channels;
}

int Negative(TslPicture *src, TslPicture *dst, const OpRect *rect) {
  if (src->color_model != TSL_BINARY) {
    uint8_t t[256];
    for (int i = 0; i < 256; ++i) t[i] = static_cast<uint8_t>(255 - i);
    return ApplyLut(src, dst, rect, t);
  }
  OpRect r;
  if (!ClipRect(src, rect, &r)) return kOpEmptyRect;
  TslPicture *pic = src;
  if (dst) {
    if (CopyToDest(src, dst) != kOpDone) return kOpNoMemory;
    pic = dst;
  }
  invertBits(pic, r);
  return kOpDone;
}

int Brightness(TslPicture *src, TslPicture *dst, const OpRect *rect, int b) {
  uint8_t t[256];
  BrightnessTable(b, t);
  return ApplyLut(src, dst, rect, t);
}

int Contrast(TslPicture *src, TslPicture *dst, const OpRect *rect, int c) {
  uint8_t t[256];
  ContrastTable(c, t);
  return ApplyLut(src, dst, rect, t);
}

int ChangeGamma(TslPicture *src, TslPicture *dst, const OpRect *rect, double g) {
  uint8_t t[256];
  GammaTable(g, t);
  return ApplyLut(src, dst, rect, t);
}

int LogarithmicLut(TslPicture *src, TslPicture *dst, const OpRect *rect) {
  uint8_t t[256];
  LogarithmTable(t);
  return ApplyLut(src, dst, rect, t);
}

int Solarize(TslPicture *src, TslPicture *dst, const OpRect *rect, int threshold) {
  uint8_t t[256];
  SolarizeTable(threshold, t);
  return ApplyLut(src, dst, rect, t);
}

int Posterize(TslPicture *src, TslPicture *dst, const OpRect *rect, int n) {
  uint8_t t[256];
  PosterizeTable(n, t);
  return ApplyLut(src, dst, rect, t);
}

int ColorBalance(TslPicture *src, TslPicture *dst, const OpRect *rect, int dr, int dg, int db) {
  uint8_t tr[256], tg[256], tb[256];
  BrightnessTable(dr, tr);
  BrightnessTable(dg, tg);
  BrightnessTable(db, tb);
  return applyAndWiden(src, dst, rect, tr, tg, tb);
}

// Normalize and Equalize build one table per channel from the histograms of
// the whole picture.  A one-channel picture (grey or indexed) uses its one
// table for the three palette planes.
int Normalize(TslPicture *src, TslPicture *dst, const OpRect *rect) {
  if (src->color_model == TSL_BINARY) return kOpNotBilevel;
  OpRect r;
  if (!ClipRect(src, rect, &r)) return kOpEmptyRect;
  uint64_t hist[4][256];
  const int channels = ChannelHistograms(src, hist);
  uint8_t t[3][256];
  for (int k = 0; k < 3; ++k) {
    for (int i = 0; i < 256; ++i) t[k][i] = static_cast<uint8_t>(i);
    if (k >= channels) continue;
    int lo = 0, hi = 255;
    while (lo < 256 && hist[k][lo] == 0) ++lo;
    while (hi >= 0 && hist[k][hi] == 0) --hi;
    if (lo >= hi) continue;  // a single value (or none): the channel stays as it is
    for (int i = 0; i < 256; ++i)
      t[k][i] = static_cast<uint8_t>(i < lo ? 0 : i > hi ? 255 : (i - lo) * 255 / (hi - lo));
  }
  const int c1 = channels > 1 ? 1 : 0, c2 = channels > 2 ? 2 : 0;
  return applyAndWiden(src, dst, rect, t[0], t[c1], t[c2]);
}

int Equalize(TslPicture *src, TslPicture *dst, const OpRect *rect) {
  if (src->color_model == TSL_BINARY) return kOpNotBilevel;
  OpRect r;
  if (!ClipRect(src, rect, &r)) return kOpEmptyRect;
  uint64_t hist[4][256];
  const int channels = ChannelHistograms(src, hist);
  uint8_t t[3][256];
  for (int k = 0; k < 3; ++k) {
    uint64_t cum[256], run = 0;
    for (int i = 0; i < 256; ++i) cum[i] = run += hist[k][i];
    int64_t d = static_cast<int64_t>(cum[255] - cum[0]);
    if (d <= 0) d = 1;
    for (int i = 0; i < 256; ++i)
      t[k][i] = clampReal(static_cast<double>(cum[i] - cum[0]) * 255.0 / static_cast<double>(d));
  }
  const int c1 = channels > 1 ? 1 : 0, c2 = channels > 2 ? 2 : 0;
  return applyAndWiden(src, dst, rect, t[0], t[c1], t[c2]);
}

}  // namespace quilla
