// Channel swap, de-interlace and the artistic effects (mosaic, slice, tile,
// shear, oil painting, swirl, spread, lens, waves).  How each one treats
// indexed and bilevel pictures is summed up in effects.h.
#include "imgproc/effects.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "imgproc/convert_rows.h"
#include "imgproc/noise.h"
#include "imgproc/operations.h"

namespace quilla {
namespace fx {

ChannelLayout LayoutOf(int model) {
  if (!TSL_IS_TRUECOLOR(model)) return {0, 0, 0, -1};
  const rows::Layout l = rows::LayoutOf(model);
  return {l.r, l.g, l.b, l.a};
}

bool ToTrueColor(const TslPicture *src, TslPicture *out) {
  std::memset(out, 0, sizeof *out);
  if (!tslAllock(out, TSL_RGB, src->alloc_param, src->width, src->height)) return false;
  out->attr_word = src->attr_word;
  out->attr_pair[0] = src->attr_pair[0];
  out->attr_pair[1] = src->attr_pair[1];
  for (uint32_t y = 0; y < src->height; ++y) tslGetRowRGB(src, y, RowOf(out, y));
  return true;
}

bool CopyFresh(const TslPicture *src, TslPicture *out) { return tslCopyPicture(out, src) == TSL_OK; }

int InPlaceTarget(TslPicture *src, TslPicture *dst, TslPicture **work) {
  *work = src;
  if (dst) {
    if (CopyToDest(src, dst) != kOpDone) return kOpNoMemory;
    *work = dst;
  }
  return kOpDone;
}

void SamplePixel(const TslPicture *src, const OpRect &r, double fx, double fy, uint8_t *out_row, int out_x) {
  const double left = r.x, right = r.x + r.width - 1.0;
  const double top = r.y, bottom = r.y + r.height - 1.0;
  if (!(fx >= left)) fx = left;  // also catches NaN
  if (!(fx <= right)) fx = right;
  if (!(fy >= top)) fy = top;
  if (!(fy <= bottom)) fy = bottom;
  if (!CanBlend(src)) {
    const uint32_t sx = static_cast<uint32_t>(std::min(std::floor(fx + 0.5), right));
    const uint32_t sy = static_cast<uint32_t>(std::min(std::floor(fy + 0.5), bottom));
    if (src->color_model == TSL_BINARY) {
      SetBit(out_row, out_x, GetBit(RowOf(src, sy), static_cast<int>(sx)));
    } else {
      out_row[out_x] = RowOf(src, sy)[sx];
    }
    return;
  }
  const int x0 = static_cast<int>(std::floor(fx)), y0 = static_cast<int>(std::floor(fy));
  const int x1 = std::min(x0 + 1, r.x + r.width - 1), y1 = std::min(y0 + 1, r.y + r.height - 1);
  const int ax = static_cast<int>(std::lround((fx - x0) * 256.0));
  const int ay = static_cast<int>(std::lround((fy - y0) * 256.0));
  const int bpp = src->bytes_per_pixel;
  const uint8_t *p00 = RowOf(src, static_cast<uint32_t>(y0)) + static_cast<size_t>(x0) * bpp;
  const uint8_t *p01 = RowOf(src, static_cast<uint32_t>(y0)) + static_cast<size_t>(x1) * bpp;
  const uint8_t *p10 = RowOf(src, static_cast<uint32_t>(y1)) + static_cast<size_t>(x0) * bpp;
  const uint8_t *p11 = RowOf(src, static_cast<uint32_t>(y1)) + static_cast<size_t>(x1) * bpp;
  uint8_t *o = out_row + static_cast<size_t>(out_x) * bpp;
  for (int c = 0; c < bpp; ++c) {
    const int top_v = p00[c] * (256 - ax) + p01[c] * ax;
    const int bot_v = p10[c] * (256 - ax) + p11[c] * ax;
    o[c] = static_cast<uint8_t>((top_v * (256 - ay) + bot_v * ay + 32768) >> 16);
  }
}

}  // namespace fx

using fx::OwnedPicture;

namespace {

constexpr double kPi = 3.14159265358979323846;

bool usable(const TslPicture *p) { return p && p->pixels && p->width > 0 && p->height > 0; }

// The checks most effects start with: a usable picture, an integer parameter
// within lo..hi and a rectangle that meets the picture (clipped into *r).
bool startOp(const TslPicture *src, const OpRect *rect, int value, int lo, int hi, OpRect *r) {
  return usable(src) && value >= lo && value <= hi && ClipRect(src, rect, r);
}

// Copies pixel sx of row `from` to pixel dx of row `to` (any model).
inline void copyPixel(const TslPicture *pic, const uint8_t *from, int sx, uint8_t *to, int dx) {
  if (pic->color_model == TSL_BINARY) {
    SetBit(to, dx, GetBit(from, sx));
  } else {
    const int bpp = pic->bytes_per_pixel;
    std::memcpy(to + static_cast<size_t>(dx) * bpp, from + static_cast<size_t>(sx) * bpp, bpp);
  }
}

// Copies columns x0..x0+w-1 of row `from` over the same columns of row `to`.
void copyRowPart(TslPicture *pic, uint32_t from, uint32_t to, int x0, int w) {
  const uint8_t *s = RowOf(pic, from);
  uint8_t *d = RowOf(pic, to);
  if (pic->color_model == TSL_BINARY) {
    for (int x = x0; x < x0 + w; ++x) SetBit(d, x, GetBit(s, x));
  } else {
    const size_t bpp = pic->bytes_per_pixel;
    std::memcpy(d + x0 * bpp, s + x0 * bpp, w * bpp);
  }
}

// Rotates columns x0..x0+w-1 of row y to the right by `shift` (wrapping),
// using tmp as scratch of at least w * bytes-per-pixel bytes.
void rotateRowPart(TslPicture *pic, uint32_t y, int x0, int w, int64_t shift, std::vector<uint8_t> &tmp) {
  int s = static_cast<int>(((shift % w) + w) % w);
  if (s == 0) return;
  uint8_t *row = RowOf(pic, y);
  if (pic->color_model == TSL_BINARY) {
    for (int x = 0; x < w; ++x) tmp[x] = static_cast<uint8_t>(GetBit(row, x0 + x));
    for (int x = 0; x < w; ++x) SetBit(row, x0 + (x + s) % w, tmp[x]);
    return;
  }
  const size_t bpp = pic->bytes_per_pixel;
  uint8_t *seg = row + x0 * bpp;
  std::memcpy(tmp.data(), seg, w * bpp);
  std::memcpy(seg + s * bpp, tmp.data(), (w - s) * bpp);
  std::memcpy(seg, tmp.data() + (w - s) * bpp, s * bpp);
}

// Rotates the part of each row inside the rectangle sideways, wrapping
// around: row y of the rectangle (0 = its top row) moves shiftOf(r, y)
// pixels to the right (negative: to the left).  Pixels are only moved, so
// every kind of picture works and the work is done in place.
template <typename Shift>
int shiftRows(TslPicture *src, TslPicture *dst, const OpRect *rect, Shift shiftOf) {
  if (!usable(src)) return kOpEmptyRect;
  OpRect r;
  if (!ClipRect(src, rect, &r)) return kOpEmptyRect;
  std::vector<uint8_t> tmp;
  try {
    tmp.resize(static_cast<size_t>(r.width) * std::max<int>(src->bytes_per_pixel, 1));
  } catch (const std::bad_alloc &) {
    return kOpNoMemory;
  }
  TslPicture *pic;
  if (fx::InPlaceTarget(src, dst, &pic) != kOpDone) return kOpNoMemory;
  for (int y = 0; y < r.height; ++y)
    rotateRowPart(pic, static_cast<uint32_t>(r.y + y), r.x, r.width, static_cast<int64_t>(shiftOf(r, y)), tmp);
  return kOpDone;
}

}  // namespace

// ---- Swap Component -------------------------------------------------------

int OpSwapComponent(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  if (!usable(src)) return kOpEmptyRect;
  if (src->color_model == TSL_BINARY) return kOpNotBilevel;
  OpRect r;
  if (!ClipRect(src, rect, &r)) return kOpEmptyRect;
  // For each new channel (red, green, blue): which old channel it takes.
  static const int kPerm[5][3] = {{0, 2, 1}, {2, 1, 0}, {2, 0, 1}, {1, 0, 2}, {1, 2, 0}};
  const int *perm = kPerm[p.i[0] >= 0 && p.i[0] <= 3 ? p.i[0] : 4];
  TslPicture *pic;
  if (fx::InPlaceTarget(src, dst, &pic) != kOpDone) return kOpNoMemory;
  if (pic->color_model == TSL_INDEXED) {
    uint8_t *pal = pic->palette;
    if (!pal) return kOpDone;
    for (int k = 0; k < 256; ++k) {
      const uint8_t old[3] = {pal[k], pal[256 + k], pal[512 + k]};
      for (int c = 0; c < 3; ++c) pal[256 * c + k] = old[perm[c]];
    }
    return kOpDone;
  }
  if (!TSL_IS_TRUECOLOR(pic->color_model)) return kOpDone;  // grey: nothing to swap
  const fx::ChannelLayout l = fx::LayoutOf(pic->color_model);
  const int pos[3] = {l.r, l.g, l.b};
  const int bpp = pic->bytes_per_pixel;
  for (int y = r.y; y < r.y + r.height; ++y) {
    uint8_t *px = RowOf(pic, static_cast<uint32_t>(y)) + static_cast<size_t>(r.x) * bpp;
    for (int x = 0; x < r.width; ++x, px += bpp) {
      const uint8_t old[3] = {px[pos[0]], px[pos[1]], px[pos[2]]};
      for (int c = 0; c < 3; ++c) px[pos[c]] = old[perm[c]];
    }
  }
  return kOpDone;
}

// ---- De-interlace ---------------------------------------------------------

// The rows of one field (even or odd row numbers of the picture) are
// replaced inside the rectangle; the other field is never written, so the
// work can be done in place.  A replaced row copies the row above (the row
// below for row 0), or takes the rounded mean of the rows above and below;
// at the top and bottom edge, where only one neighbour exists, it is copied.
int OpDeinterlace(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  if (!usable(src)) return kOpEmptyRect;
  OpRect r;
  if (!ClipRect(src, rect, &r)) return kOpEmptyRect;
  const int parity = (p.i[0] & 1) ? 0 : 1;  // bit 0 set: even rows go
  const bool interpolate = (p.i[0] & 2) == 0 && src->color_model != TSL_BINARY;
  const int h = static_cast<int>(src->height);

  OwnedPicture conv;
  TslPicture *pic;
  if (interpolate && src->color_model == TSL_INDEXED) {
    if (!fx::ToTrueColor(src, &conv.pic)) return kOpNoMemory;
    pic = &conv.pic;
  } else if (fx::InPlaceTarget(src, dst, &pic) != kOpDone) {
    return kOpNoMemory;
  }
  const size_t bpp = pic->bytes_per_pixel;
  int first = r.y + ((r.y & 1) != parity ? 1 : 0);
  for (int y = first; y < r.y + r.height; y += 2) {
    const bool above = y > 0, below = y + 1 < h;
    if (!above && !below) continue;
    if (!interpolate || !above || !below) {
      copyRowPart(pic, static_cast<uint32_t>(above ? y - 1 : y + 1), static_cast<uint32_t>(y), r.x, r.width);
      continue;
    }
    const uint8_t *a = RowOf(pic, static_cast<uint32_t>(y - 1)) + r.x * bpp;
    const uint8_t *b = RowOf(pic, static_cast<uint32_t>(y + 1)) + r.x * bpp;
    uint8_t *o = RowOf(pic, static_cast<uint32_t>(y)) + r.x * bpp;
    for (size_t i = 0; i < r.width * bpp; ++i) o[i] = static_cast<uint8_t>((a[i] + b[i] + 1) >> 1);
  }
  if (conv.pic.pixels) HandOver(src, dst, &conv.pic);
  return kOpDone;
}

// ---- Mosaic ----------------------------------------------------------------

// Square blocks of i[0] pixels, laid from the rectangle's top-left corner
// and cut at its edges, each filled with the rounded mean of its pixels
// (every byte, alpha included).  Bilevel blocks take their majority, white
// on a tie.  Indexed pictures are converted to RGB first (block size 1
// leaves any picture as it is).
int OpMosaic(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  const int n = p.i[0];
  OpRect r;
  if (!startOp(src, rect, n, 1, 64, &r)) return kOpEmptyRect;
  OwnedPicture conv;
  TslPicture *pic;
  if (n > 1 && src->color_model == TSL_INDEXED) {
    if (!fx::ToTrueColor(src, &conv.pic)) return kOpNoMemory;
    pic = &conv.pic;
  } else if (fx::InPlaceTarget(src, dst, &pic) != kOpDone) {
    return kOpNoMemory;
  }
  if (n > 1) {
    const int bpp = pic->bytes_per_pixel;
    const bool bits = pic->color_model == TSL_BINARY;
    for (int by = r.y; by < r.y + r.height; by += n) {
      const int bh = std::min(n, r.y + r.height - by);
      for (int bx = r.x; bx < r.x + r.width; bx += n) {
        const int bw = std::min(n, r.x + r.width - bx);
        const uint32_t count = static_cast<uint32_t>(bw * bh);
        uint32_t sum[8] = {0, 0, 0, 0, 0, 0, 0, 0};
        for (int y = by; y < by + bh; ++y) {
          const uint8_t *row = RowOf(pic, static_cast<uint32_t>(y));
          for (int x = bx; x < bx + bw; ++x) {
            if (bits) {
              sum[0] += static_cast<uint32_t>(GetBit(row, x));
            } else {
              for (int c = 0; c < bpp && c < 8; ++c) sum[c] += row[static_cast<size_t>(x) * bpp + c];
            }
          }
        }
        uint8_t mean[8];
        for (int c = 0; c < 8; ++c) mean[c] = static_cast<uint8_t>((sum[c] + count / 2) / count);
        const int white = 2 * sum[0] >= count ? 1 : 0;
        for (int y = by; y < by + bh; ++y) {
          uint8_t *row = RowOf(pic, static_cast<uint32_t>(y));
          for (int x = bx; x < bx + bw; ++x) {
            if (bits) {
              SetBit(row, x, white);
            } else {
              for (int c = 0; c < bpp && c < 8; ++c) row[static_cast<size_t>(x) * bpp + c] = mean[c];
            }
          }
        }
      }
    }
  }
  if (conv.pic.pixels) HandOver(src, dst, &conv.pic);
  return kOpDone;
}

// ---- Slice -----------------------------------------------------------------

// Horizontal strips of about a sixteenth of the rectangle's height (at least
// two rows) are shifted sideways by a twentieth of its width (at least one
// pixel), to the right and to the left in turn; what leaves one side comes
// back on the other, so no pixel is lost and no fill colour is needed.
int OpSlice(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) {
  return shiftRows(src, dst, rect, [](const OpRect &r, int y) {
    const int strip = std::max(2, r.height / 16);
    const int shift = std::max(1, r.width / 20);
    return ((y / strip) & 1) ? -shift : shift;
  });
}

// ---- Tile ------------------------------------------------------------------

// The rectangle's content, reduced i[0] times (nearest pixel), repeated
// i[0] times across and down: output pixel u of a row takes source pixel
// (u * n) mod width, and the same for rows.  Any kind of picture works as
// pixels are only moved; 1 leaves the picture as it is.
int OpTile(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  const int n = p.i[0];
  OpRect r;
  if (!startOp(src, rect, n, 1, 64, &r)) return kOpEmptyRect;
  OwnedPicture res;
  if (!fx::CopyFresh(src, &res.pic)) return kOpNoMemory;
  for (int y = 0; y < r.height; ++y) {
    const int sy = r.y + static_cast<int>((static_cast<int64_t>(y) * n) % r.height);
    const uint8_t *from = RowOf(src, static_cast<uint32_t>(sy));
    uint8_t *to = RowOf(&res.pic, static_cast<uint32_t>(r.y + y));
    for (int x = 0; x < r.width; ++x) {
      const int sx = r.x + static_cast<int>((static_cast<int64_t>(x) * n) % r.width);
      copyPixel(src, from, sx, to, r.x + x);
    }
  }
  HandOver(src, dst, &res.pic);
  return kOpDone;
}

// ---- Shear -----------------------------------------------------------------

// A fixed horizontal shear of slope 1/5 (about 11 degrees) about the
// rectangle's middle row: rows above it move right, rows below move left, by
// a whole number of pixels, wrapping around inside the rectangle (the
// canvas keeps its size, and every kind of picture works).
int OpShear(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) {
  return shiftRows(src, dst, rect, [](const OpRect &r, int y) {
    // t = twice the distance above the middle row; shift = round(t / 10).
    const int64_t t = static_cast<int64_t>(r.height - 1) - 2 * static_cast<int64_t>(y);
    return (t + 5 >= 0) ? (t + 5) / 10 : -((-(t + 5) + 9) / 10);
  });
}

// ---- Oil Painting ------------------------------------------------------------

// For each pixel, the (2 i[0] + 1)-square neighbourhood (edge pixels
// replicated outward, as for the other neighbourhood filters) is sorted into
// classes: 32 intensity classes for grey and true colour (intensity =
// (77 R + 150 G + 29 B) / 256, class = intensity / 8), the index itself for
// indexed pictures, the bit for bilevel ones.  The most frequent class wins
// (the darkest / lowest on a tie); grey and true-colour pixels become the
// rounded mean of the neighbourhood pixels of that class, indexed and
// bilevel pixels take the class value.  The class histogram slides along the
// row: one column enters and one leaves per step.
int OpOilPainting(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  const int radius = p.i[0];
  OpRect r;
  if (!startOp(src, rect, radius, 1, 16, &r)) return kOpEmptyRect;
  OwnedPicture res;
  if (!fx::CopyFresh(src, &res.pic)) return kOpNoMemory;

  const int model = src->color_model;
  const bool bits = model == TSL_BINARY;
  const bool blend = fx::CanBlend(src);
  const int classes = bits ? 2 : model == TSL_INDEXED ? 256 : 32;
  const int bpp = bits ? 1 : src->bytes_per_pixel;
  const int nb = std::min(bpp, 8);
  const fx::ChannelLayout l = fx::LayoutOf(model);
  const int w = static_cast<int>(src->width), h = static_cast<int>(src->height);
  const int size = 2 * radius + 1;

  uint32_t count[256];
  uint32_t sum[32][8];
  std::vector<const uint8_t *> rows(size);

  auto classOf = [&](const uint8_t *row, int x) -> int {
    if (bits) return GetBit(row, x);
    const uint8_t *px = row + static_cast<size_t>(x) * bpp;
    if (model == TSL_INDEXED) return px[0];
    if (!TSL_IS_TRUECOLOR(model)) return px[0] >> 3;
    return ((77 * px[l.r] + 150 * px[l.g] + 29 * px[l.b]) >> 8) >> 3;
  };
  auto addColumn = [&](int x, int sign) {
    x = std::clamp(x, 0, w - 1);
    for (int k = 0; k < size; ++k) {
      const int c = classOf(rows[k], x);
      count[c] = static_cast<uint32_t>(static_cast<int32_t>(count[c]) + sign);
      if (blend) {
        const uint8_t *px = rows[k] + static_cast<size_t>(x) * bpp;
        for (int b = 0; b < nb; ++b) sum[c][b] = static_cast<uint32_t>(static_cast<int32_t>(sum[c][b]) + sign * px[b]);
      }
    }
  };

  for (int y = r.y; y < r.y + r.height; ++y) {
    for (int k = 0; k < size; ++k) rows[k] = RowOf(src, static_cast<uint32_t>(std::clamp(y - radius + k, 0, h - 1)));
    std::memset(count, 0, sizeof count);
    std::memset(sum, 0, sizeof sum);
    for (int x = r.x - radius; x <= r.x + radius; ++x) addColumn(x, 1);
    uint8_t *out = RowOf(&res.pic, static_cast<uint32_t>(y));
    for (int x = r.x; x < r.x + r.width; ++x) {
      if (x > r.x) {
        addColumn(x - radius - 1, -1);
        addColumn(x + radius, 1);
      }
      int best = 0;
      for (int c = 1; c < classes; ++c)
        if (count[c] > count[best]) best = c;
      if (bits) {
        SetBit(out, x, best);
      } else if (!blend) {
        out[x] = static_cast<uint8_t>(best);
      } else {
        const uint32_t n = count[best];
        uint8_t *px = out + static_cast<size_t>(x) * bpp;
        for (int b = 0; b < nb; ++b) px[b] = static_cast<uint8_t>((sum[best][b] + n / 2) / n);
      }
    }
  }
  HandOver(src, dst, &res.pic);
  return kOpDone;
}

// ---- Geometric distortions ----------------------------------------------------

namespace {

// Runs a backward mapping over the rectangle: for every output pixel, map()
// gives the real source position (or returns false to keep the pixel).
template <typename Map>
int distort(TslPicture *src, TslPicture *dst, const OpRect &r, Map map) {
  OwnedPicture res;
  if (!fx::CopyFresh(src, &res.pic)) return kOpNoMemory;
  for (int y = r.y; y < r.y + r.height; ++y) {
    uint8_t *out = RowOf(&res.pic, static_cast<uint32_t>(y));
    for (int x = r.x; x < r.x + r.width; ++x) {
      double sx, sy;
      if (map(x, y, &sx, &sy)) fx::SamplePixel(src, r, sx, sy, out, x);
    }
  }
  HandOver(src, dst, &res.pic);
  return kOpDone;
}

// The circle inscribed in a rectangle: centre and radius (half the smaller side).
struct Circle {
  double cx, cy, radius;
};
Circle inscribed(const OpRect &r) {
  return {r.x + (r.width - 1) / 2.0, r.y + (r.height - 1) / 2.0, std::min(r.width, r.height) / 2.0};
}

}  // namespace

// Swirl: inside the circle inscribed in the rectangle (radius R = half the
// smaller side, centred on the rectangle) each pixel at distance d from the
// centre takes the source turned by i[0] * (1 - d / R)^2 degrees: the full
// angle at the centre, fading to nothing at the rim.  Outside the circle
// nothing moves; 0 degrees leaves the picture as it is.
int OpSwirl(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  const int degrees = p.i[0];
  OpRect r;
  if (!startOp(src, rect, degrees, 0, 359, &r)) return kOpEmptyRect;
  if (degrees == 0) return dst ? CopyToDest(src, dst) : kOpDone;
  const Circle c = inscribed(r);
  const double radius = c.radius, angle = degrees * kPi / 180.0;
  return distort(src, dst, r, [&](int x, int y, double *sx, double *sy) {
    const double dx = x - c.cx, dy = y - c.cy;
    const double d = std::sqrt(dx * dx + dy * dy);
    if (d >= radius) return false;
    const double t = 1.0 - d / radius;
    const double a = angle * t * t;
    const double ca = std::cos(a), sa = std::sin(a);
    *sx = c.cx + dx * ca - dy * sa;
    *sy = c.cy + dx * sa + dy * ca;
    return true;
  });
}

// Lens: a spherical lens over the circle inscribed in the rectangle.  A pixel
// at relative distance t = d / R takes the source at distance
// t * (1 - k * sqrt(1 - t^2)), k = 0.8 * i[0] / 100: the centre is magnified
// 1 / (1 - k) times (up to 5 times at strength 100), the rim not at all.
int OpLens(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  const int strength = p.i[0];
  OpRect r;
  if (!startOp(src, rect, strength, 1, 100, &r)) return kOpEmptyRect;
  const Circle c = inscribed(r);
  const double radius = c.radius, k = 0.8 * strength / 100.0;
  return distort(src, dst, r, [&](int x, int y, double *sx, double *sy) {
    const double dx = x - c.cx, dy = y - c.cy;
    const double t2 = (dx * dx + dy * dy) / (radius * radius);
    if (t2 >= 1.0) return false;
    const double f = 1.0 - k * std::sqrt(1.0 - t2);
    *sx = c.cx + dx * f;
    *sy = c.cy + dy * f;
    return true;
  });
}

// Waves: each column is moved up or down by r[2] * sin(2 pi u / L + r[1]
// degrees) pixels, u being the column's distance from the rectangle's left
// edge and the wave length L being r[0] percent of the rectangle's width.
// Rows are sampled inside the rectangle (its edge rows repeat); amount 0
// leaves the picture as it is.
int OpWaves(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  if (!usable(src)) return kOpEmptyRect;
  const double length = p.r[0], phase = p.r[1], amount = p.r[2];
  if (!std::isfinite(length) || !std::isfinite(phase) || !std::isfinite(amount) || length <= 0 ||
      std::fabs(amount) > 1e6)
    return kOpEmptyRect;
  OpRect r;
  if (!ClipRect(src, rect, &r)) return kOpEmptyRect;
  if (amount == 0) return dst ? CopyToDest(src, dst) : kOpDone;
  const double period = length / 100.0 * r.width;
  std::vector<double> offset;
  try {
    offset.resize(static_cast<size_t>(r.width));
  } catch (const std::bad_alloc &) {
    return kOpNoMemory;
  }
  const double ph = std::fmod(phase, 360.0) * kPi / 180.0;
  for (int u = 0; u < r.width; ++u) offset[u] = amount * std::sin(2.0 * kPi * std::fmod(u / period, 1.0) + ph);
  return distort(src, dst, r, [&](int x, int y, double *sx, double *sy) {
    *sx = x;
    *sy = y - offset[x - r.x];
    return true;
  });
}

// ---- Spread --------------------------------------------------------------------

// Every pixel of the rectangle, in row order, is swapped with a random pixel
// at most i[0] pixels away on each axis (a partner outside the rectangle
// means no swap).  The result is a permutation of the rectangle's pixels,
// so every kind of picture works; the stream comes from the seed.
int OpSpread(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  const int dist = p.i[0];
  OpRect r;
  if (!startOp(src, rect, dist, 1, 32, &r)) return kOpEmptyRect;
  TslPicture *pic;
  if (fx::InPlaceTarget(src, dst, &pic) != kOpDone) return kOpNoMemory;
  NoiseRng rng(p.seed);
  const uint32_t span = static_cast<uint32_t>(2 * dist + 1);
  const bool bits = pic->color_model == TSL_BINARY;
  const size_t bpp = pic->bytes_per_pixel;
  uint8_t tmp[16];
  for (int y = r.y; y < r.y + r.height; ++y) {
    uint8_t *row = RowOf(pic, static_cast<uint32_t>(y));
    for (int x = r.x; x < r.x + r.width; ++x) {
      const int tx = x + static_cast<int>(rng.below(span)) - dist;
      const int ty = y + static_cast<int>(rng.below(span)) - dist;
      if (tx < r.x || tx >= r.x + r.width || ty < r.y || ty >= r.y + r.height) continue;
      uint8_t *other = RowOf(pic, static_cast<uint32_t>(ty));
      if (bits) {
        const int a = GetBit(row, x), b = GetBit(other, tx);
        SetBit(row, x, b);
        SetBit(other, tx, a);
      } else if (bpp <= sizeof tmp) {
        uint8_t *pa = row + x * bpp, *pb = other + tx * bpp;
        std::memcpy(tmp, pa, bpp);
        std::memcpy(pa, pb, bpp);
        std::memcpy(pb, tmp, bpp);
      }
    }
  }
  return kOpDone;
}

}  // namespace quilla
