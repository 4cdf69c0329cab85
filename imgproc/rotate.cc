// Rotation: exact quarter turns by tiled transposition, and any angle by
// bilinear sampling onto a grown canvas.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "imgproc/convert.h"
#include "imgproc/convert_rows.h"
#include "imgproc/geometry.h"
#include "imgproc/parallel.h"

namespace quilla {

namespace {

constexpr uint32_t kTile = 64;

// dst(X, Y) = the source pixel at origin + X * step_x + Y * step_y (byte
// offsets), tile by tile so that the strided side of the copy stays in
// cache.  `Px` bytes per pixel.
template <int Px>
void transposeTiles(const TslPicture *src, TslPicture *dst, ptrdiff_t origin, ptrdiff_t step_x, ptrdiff_t step_y) {
  const uint32_t dw = dst->width, dh = dst->height;
  const uint32_t bands = (dh + kTile - 1) / kTile;
  ForRowBands(bands, static_cast<uint64_t>(dw) * kTile * Px, [&](uint32_t b0, uint32_t b1) {
    for (uint32_t ty = b0 * kTile; ty < b1 * kTile && ty < dh; ty += kTile) {
      const uint32_t ty1 = std::min(dh, ty + kTile);
      for (uint32_t tx = 0; tx < dw; tx += kTile) {
        const uint32_t n = std::min(dw, tx + kTile) - tx;
        for (uint32_t Y = ty; Y < ty1; ++Y) {
          uint8_t *d = RowOf(dst, Y) + static_cast<size_t>(tx) * Px;
          const uint8_t *s = src->pixels + origin + static_cast<ptrdiff_t>(tx) * step_x + static_cast<ptrdiff_t>(Y) * step_y;
          for (uint32_t i = 0; i < n; ++i, d += Px, s += step_x) std::memcpy(d, s, Px);
        }
      }
    }
  });
}

// Bilevel: bit by bit through the mapping, tile by tile.
template <typename Map>
void transposeBits(const TslPicture *src, TslPicture *dst, Map map) {
  const uint32_t dw = dst->width, dh = dst->height;
  for (uint32_t ty = 0; ty < dh; ty += kTile) {
    const uint32_t ty1 = std::min(dh, ty + kTile);
    for (uint32_t tx = 0; tx < dw; tx += kTile) {
      const uint32_t tx1 = std::min(dw, tx + kTile);
      for (uint32_t Y = ty; Y < ty1; ++Y) {
        uint8_t *d = RowOf(dst, Y);
        for (uint32_t X = tx; X < tx1; ++X) {
          uint32_t sx, sy;
          map(X, Y, &sx, &sy);
          SetBit(d, static_cast<int>(X), GetBit(RowOf(src, sy), static_cast<int>(sx)));
        }
      }
    }
  }
}

template <typename Map>
void transposeAny(const TslPicture *src, TslPicture *dst, Map map) {
  if (src->color_model == TSL_BINARY) {
    transposeBits(src, dst, map);
    return;
  }
  // The byte offsets of the mapping, read from three of its points.
  const int px = src->bytes_per_pixel;
  const ptrdiff_t bpl = src->bytes_per_line;
  uint32_t x0, y0, x1, y1, x2, y2;
  map(0, 0, &x0, &y0);
  map(1, 0, &x1, &y1);
  map(0, 1, &x2, &y2);
  const ptrdiff_t origin = static_cast<ptrdiff_t>(y0) * bpl + static_cast<ptrdiff_t>(x0) * px;
  // Differences modulo 2^32 (a point may lie one step outside a 1-pixel side).
  auto diff = [](uint32_t a, uint32_t b) { return static_cast<ptrdiff_t>(static_cast<int32_t>(a - b)); };
  const ptrdiff_t step_x = diff(y1, y0) * bpl + diff(x1, x0) * px;
  const ptrdiff_t step_y = diff(y2, y0) * bpl + diff(x2, x0) * px;
  if (px == 1) transposeTiles<1>(src, dst, origin, step_x, step_y);
  else if (px == 3) transposeTiles<3>(src, dst, origin, step_x, step_y);
  else transposeTiles<4>(src, dst, origin, step_x, step_y);
}

template <int Px>
void reverseRow(const uint8_t *s, uint8_t *d, uint32_t w) {
  s += static_cast<size_t>(w - 1) * Px;
  for (uint32_t x = 0; x < w; ++x, d += Px, s -= Px) std::memcpy(d, s, Px);
}

// Half turn: each destination row is a source row read backwards.
void halfTurn(const TslPicture *src, TslPicture *dst) {
  const uint32_t w = src->width, h = src->height;
  const int bpp = src->bytes_per_pixel;
  ForRowBands(h, w, [&](uint32_t y0, uint32_t y1) {
    for (uint32_t y = y0; y < y1; ++y) {
      const uint8_t *s = RowOf(src, h - 1 - y);
      uint8_t *d = RowOf(dst, y);
      if (src->color_model == TSL_BINARY) {
        for (uint32_t x = 0; x < w; ++x) SetBit(d, static_cast<int>(x), GetBit(s, static_cast<int>(w - 1 - x)));
      } else if (bpp == 1) {
        reverseRow<1>(s, d, w);
      } else if (bpp == 3) {
        reverseRow<3>(s, d, w);
      } else {
        reverseRow<4>(s, d, w);
      }
    }
  });
}

}  // namespace

int RotateQuarters(const TslPicture *src, TslPicture *dst, int quarters) {
  if (!rows::Usable(src) || !dst) return kOpEmptyRect;
  const int q = ((quarters % 4) + 4) % 4;
  if (q == 0) return CopyToDest(src, dst);
  TslPicture out;
  std::memset(&out, 0, sizeof out);
  if (q == 2) {
    if (tslCopyPicture(&out, src) != TSL_OK) return kOpNoMemory;
    halfTurn(src, &out);
    *dst = out;
    return kOpDone;
  }
  if (tslCopyPictureRotated(&out, src) != TSL_OK) return kOpNoMemory;
  const uint32_t sw = src->width, sh = src->height;
  if (q == 1) {
    // Counter-clockwise: source (x, y) lands on (y, sw - 1 - x).
    transposeAny(src, &out, [sw](uint32_t X, uint32_t Y, uint32_t *sx, uint32_t *sy) {
      *sx = sw - 1 - Y;
      *sy = X;
    });
  } else {
    // Clockwise: source (x, y) lands on (sh - 1 - y, x).
    transposeAny(src, &out, [sh](uint32_t X, uint32_t Y, uint32_t *sx, uint32_t *sy) {
      *sx = Y;
      *sy = sh - 1 - X;
    });
  }
  *dst = out;
  return kOpDone;
}

namespace {

// Bilinear rotation of a grey or true-colour picture into `out`, whose
// pixel centres are mapped back into the source by the inverse rotation in
// 16.16 fixed point; samples outside the source take the background, so
// the edges blend into it.
template <int CH>
void rotateBilinear(const TslPicture *src, TslPicture *out, double degrees, const uint8_t *bg) {
  const double a = degrees * M_PI / 180.0, c = std::cos(a), s = std::sin(a);
  const int64_t sw = src->width, sh = src->height;
  const double dcx = out->width / 2.0, dcy = out->height / 2.0, scx = sw / 2.0 - 0.5, scy = sh / 2.0 - 0.5;
  const int64_t step_x = std::llround(c * 65536.0), step_y = std::llround(s * 65536.0);
  ForRowBands(out->height, out->width * 4ull, [&](uint32_t y0, uint32_t y1) {
    for (uint32_t Y = y0; Y < y1; ++Y) {
      const double dy = Y + 0.5 - dcy, dx = 0.5 - dcx;
      int64_t fx = std::llround((dx * c - dy * s + scx) * 65536.0);
      int64_t fy = std::llround((dx * s + dy * c + scy) * 65536.0);
      uint8_t *d = RowOf(out, Y);
      for (uint32_t X = 0; X < out->width; ++X, fx += step_x, fy += step_y, d += CH) {
        const int64_t ix = fx >> 16, iy = fy >> 16;
        if (ix < -1 || iy < -1 || ix >= sw || iy >= sh) {
          std::memcpy(d, bg, CH);
          continue;
        }
        const uint32_t wx = static_cast<uint32_t>(fx >> 8) & 255, wy = static_cast<uint32_t>(fy >> 8) & 255;
        const uint32_t w00 = (256 - wx) * (256 - wy), w10 = wx * (256 - wy), w01 = (256 - wx) * wy, w11 = wx * wy;
        const uint8_t *p00, *p10, *p01, *p11;
        if (ix >= 0 && iy >= 0 && ix + 1 < sw && iy + 1 < sh) {
          p00 = RowOf(src, static_cast<uint32_t>(iy)) + ix * CH;
          p10 = p00 + CH;
          p01 = p00 + src->bytes_per_line;
          p11 = p01 + CH;
        } else {
          auto at = [&](int64_t x, int64_t y) -> const uint8_t * {
            if (x < 0 || y < 0 || x >= sw || y >= sh) return bg;
            return RowOf(src, static_cast<uint32_t>(y)) + x * CH;
          };
          p00 = at(ix, iy);
          p10 = at(ix + 1, iy);
          p01 = at(ix, iy + 1);
          p11 = at(ix + 1, iy + 1);
        }
        for (int k = 0; k < CH; ++k)
          d[k] = static_cast<uint8_t>((p00[k] * w00 + p10[k] * w10 + p01[k] * w01 + p11[k] * w11 + 32768) >> 16);
      }
    }
  });
}

}  // namespace

int RotatePicture(const TslPicture *src, TslPicture *dst, double degrees, uint32_t background) {
  if (!rows::Usable(src) || !dst || !std::isfinite(degrees)) return kOpEmptyRect;
  double turn = std::fmod(degrees, 360.0);
  if (turn < 0) turn += 360.0;
  if (std::fabs(turn - std::round(turn / 90.0) * 90.0) < 1e-9)
    return RotateQuarters(src, dst, static_cast<int>(std::lround(turn / 90.0)));
  TslPicture work;
  std::memset(&work, 0, sizeof work);
  const TslPicture *from = src;
  if (src->color_model == TSL_BINARY) {
    if (ConvertToGrey256(src, &work) != kOpDone) return kOpNoMemory;
    from = &work;
  } else if (src->color_model == TSL_INDEXED) {
    if (ConvertToTrueColor(src, &work) != kOpDone) return kOpNoMemory;
    from = &work;
  }
  const double a = turn * M_PI / 180.0;
  const double fw = std::fabs(src->width * std::cos(a)) + std::fabs(src->height * std::sin(a));
  const double fh = std::fabs(src->width * std::sin(a)) + std::fabs(src->height * std::cos(a));
  const double nw = std::ceil(fw - 1e-6), nh = std::ceil(fh - 1e-6);
  TslPicture out;
  std::memset(&out, 0, sizeof out);
  int status = kOpNoMemory;
  if (nw <= 4294967295.0 && nh <= 4294967295.0 &&
      tslAllock(&out, from->color_model, src->alloc_param, static_cast<uint32_t>(nw), static_cast<uint32_t>(nh))) {
    rows::CopyAttributes(src, &out);
    out.colors = from->colors;
    const int r = background >> 16 & 255, g = background >> 8 & 255, b = background & 255;
    uint8_t bg[4] = {rows::Luma(r, g, b), 0, 0, 0};
    if (TSL_IS_TRUECOLOR(from->color_model)) {
      const rows::Layout L = rows::LayoutOf(from->color_model);
      bg[L.r] = static_cast<uint8_t>(r);
      bg[L.g] = static_cast<uint8_t>(g);
      bg[L.b] = static_cast<uint8_t>(b);
      if (L.a >= 0) bg[L.a] = 255;
    }
    switch (from->bytes_per_pixel) {
      case 1: rotateBilinear<1>(from, &out, turn, bg); break;
      case 3: rotateBilinear<3>(from, &out, turn, bg); break;
      default: rotateBilinear<4>(from, &out, turn, bg); break;
    }
    status = kOpDone;
  }
  if (from == &work) tslFree(&work);
  if (status == kOpDone) *dst = out;
  return status;
}

}  // namespace quilla
