// Geometry: resize, crop, canvas, resolution, flips and rotation, and their
// catalogue entry points.  Resampling is in resample.cc, rotation in rotate.cc.
#include "imgproc/geometry.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "imgproc/convert_rows.h"
#include "imgproc/operations.h"

namespace quilla {

namespace {

constexpr int64_t kMaxSide = 0x7fffffff;

int64_t scaled(int64_t size, double factor) { return static_cast<int64_t>(std::llround(size * factor)); }

}  // namespace

bool ResizeTarget(const TslPicture *src, const OpParams &p, uint32_t *width, uint32_t *height) {
  if (!rows::Usable(src)) return false;
  const int64_t sw = src->width, sh = src->height;
  int64_t tw, th;
  if (p.width_percent > 0) {
    const int hp = p.height_percent > 0 && !p.keep_ratio ? p.height_percent : p.width_percent;
    tw = scaled(sw, p.width_percent / 100.0);
    th = scaled(sh, hp / 100.0);
  } else {
    tw = p.width;
    th = p.height;
    if (tw <= 0 && th <= 0) return false;
    if (tw <= 0) {
      tw = scaled(sw, static_cast<double>(th) / sh);
    } else if (th <= 0) {
      th = scaled(sh, static_cast<double>(tw) / sw);
    } else if (p.keep_ratio) {
      const double f = std::min(static_cast<double>(tw) / sw, static_cast<double>(th) / sh);
      tw = std::min(tw, scaled(sw, f));
      th = std::min(th, scaled(sh, f));
    }
  }
  tw = std::clamp<int64_t>(tw, 1, kMaxSide);
  th = std::clamp<int64_t>(th, 1, kMaxSide);
  *width = static_cast<uint32_t>(tw);
  *height = static_cast<uint32_t>(th);
  return true;
}

int CropPicture(const TslPicture *src, TslPicture *dst, const OpRect &rect) {
  OpRect r;
  if (!rows::Usable(src) || !dst || !ClipRect(src, &rect, &r)) return kOpEmptyRect;
  TslPicture out;
  std::memset(&out, 0, sizeof out);
  if (!tslAllock(&out, src->color_model, src->alloc_param, static_cast<uint32_t>(r.width),
                 static_cast<uint32_t>(r.height)))
    return kOpNoMemory;
  rows::CopyAttributes(src, &out);
  if (src->palette && out.palette) std::memcpy(out.palette, src->palette, 768);
  out.colors = src->colors;
  out.transparent_index = src->transparent_index;
  for (int y = 0; y < r.height; ++y) {
    const uint8_t *s = RowOf(src, static_cast<uint32_t>(r.y + y));
    uint8_t *d = RowOf(&out, static_cast<uint32_t>(y));
    if (src->color_model == TSL_BINARY) {
      for (int x = 0; x < r.width; ++x) SetBit(d, x, GetBit(s, r.x + x));
    } else {
      std::memcpy(d, s + static_cast<size_t>(r.x) * src->bytes_per_pixel, static_cast<size_t>(r.width) * src->bytes_per_pixel);
    }
  }
  *dst = out;
  return kOpDone;
}

int CanvasPicture(const TslPicture *src, TslPicture *dst, uint32_t width, uint32_t height, uint32_t background) {
  if (!rows::Usable(src) || !dst || width == 0 || height == 0) return kOpEmptyRect;
  TslPicture out;
  std::memset(&out, 0, sizeof out);
  if (!tslAllock(&out, src->color_model, src->alloc_param, width, height)) return kOpNoMemory;
  rows::CopyAttributes(src, &out);
  if (src->palette && out.palette) std::memcpy(out.palette, src->palette, 768);
  out.colors = src->colors;
  out.transparent_index = src->transparent_index;

  // The background as one pixel of the picture's model.
  const int r = background >> 16 & 255, g = background >> 8 & 255, b = background & 255;
  uint8_t px[4] = {0, 0, 0, 0};
  const int bpp = src->bytes_per_pixel;
  switch (src->color_model) {
    case TSL_BINARY:
      break;
    case TSL_GREY:
      px[0] = rows::Luma(r, g, b);
      break;
    case TSL_INDEXED: {
      const int n = src->colors > 0 && src->colors <= 256 ? src->colors : 256;
      int best = 1 << 30;
      for (int k = 0; k < n; ++k) {
        if (k == src->transparent_index) continue;
        const int dr = src->palette[k] - r, dg = src->palette[256 + k] - g, db = src->palette[512 + k] - b;
        const int d = dr * dr + dg * dg + db * db;
        if (d < best) best = d, px[0] = static_cast<uint8_t>(k);
      }
      break;
    }
    default: {
      const rows::Layout L = rows::LayoutOf(src->color_model);
      px[L.r] = static_cast<uint8_t>(r);
      px[L.g] = static_cast<uint8_t>(g);
      px[L.b] = static_cast<uint8_t>(b);
      if (L.a >= 0) px[L.a] = 255;
    }
  }

  // Offsets of the source in the canvas (negative: the source is cut).
  const int64_t ox = (static_cast<int64_t>(width) - src->width) / 2;
  const int64_t oy = (static_cast<int64_t>(height) - src->height) / 2;
  const int64_t x0 = std::max<int64_t>(ox, 0), x1 = std::min<int64_t>(ox + src->width, width);
  for (uint32_t y = 0; y < height; ++y) {
    uint8_t *d = RowOf(&out, y);
    const int64_t sy = static_cast<int64_t>(y) - oy;
    const bool inside = sy >= 0 && sy < src->height && x0 < x1;
    if (src->color_model == TSL_BINARY) {
      std::memset(d, 0xff, out.bytes_per_line);  // white
      if (inside) {
        const uint8_t *s = RowOf(src, static_cast<uint32_t>(sy));
        for (int64_t x = x0; x < x1; ++x) SetBit(d, static_cast<int>(x), GetBit(s, static_cast<int>(x - ox)));
      }
      continue;
    }
    if (bpp == 1) {
      std::memset(d, px[0], width);
    } else {
      for (uint32_t x = 0; x < width; ++x) std::memcpy(d + static_cast<size_t>(x) * bpp, px, bpp);
    }
    if (inside)
      std::memcpy(d + x0 * bpp, RowOf(src, static_cast<uint32_t>(sy)) + (x0 - ox) * bpp, static_cast<size_t>(x1 - x0) * bpp);
  }
  *dst = out;
  return kOpDone;
}

// ---- Catalogue entry points ----------------------------------------------

namespace {

// The result of a geometry function moved into dst, or into the source
// record when there is no destination.
template <typename Make>
int finish(TslPicture *src, TslPicture *dst, Make make) {
  TslPicture out;
  std::memset(&out, 0, sizeof out);
  const int status = make(&out);
  if (status != kOpDone) return status;
  HandOver(src, dst, &out);
  return kOpDone;
}

// Nothing to change: the destination, when given, receives a copy.
int unchanged(TslPicture *src, TslPicture *dst) { return dst ? CopyToDest(src, dst) : kOpDone; }

// The size change is against the only-decrease / only-increase switches.
bool refused(const TslPicture *src, const OpParams &p, uint32_t w, uint32_t h) {
  if (p.only_decrease && (w > src->width || h > src->height)) return true;
  if (p.only_increase && (w < src->width || h < src->height)) return true;
  return false;
}

}  // namespace

// Resize, canvas and rotation concern the whole picture; their rectangle is
// not used.  Crop takes its rectangle from the parameters (x, y, width, height).
int OpResize(TslPicture *src, TslPicture *dst, const OpRect *, const OpParams &p) {
  uint32_t w, h;
  if (!rows::Usable(src) || !ResizeTarget(src, p, &w, &h)) return kOpEmptyRect;
  if (refused(src, p, w, h) || (w == src->width && h == src->height)) return unchanged(src, dst);
  return finish(src, dst, [&](TslPicture *out) { return ResizePicture(src, out, w, h, p.resample); });
}

int OpCrop(TslPicture *src, TslPicture *dst, const OpRect *, const OpParams &p) {
  const OpRect r{p.i[0], p.i[1], p.i[2], p.i[3]};
  if (!rows::Usable(src)) return kOpEmptyRect;
  return finish(src, dst, [&](TslPicture *out) { return CropPicture(src, out, r); });
}

int OpCanvas(TslPicture *src, TslPicture *dst, const OpRect *, const OpParams &p) {
  uint32_t w, h;
  if (!rows::Usable(src) || !ResizeTarget(src, p, &w, &h)) return kOpEmptyRect;
  if (refused(src, p, w, h) || (w == src->width && h == src->height)) return unchanged(src, dst);
  return finish(src, dst, [&](TslPicture *out) { return CanvasPicture(src, out, w, h, p.background); });
}

int OpSetDpi(TslPicture *src, TslPicture *dst, const OpRect *, const OpParams &p) {
  if (!rows::Usable(src) || p.i[0] < 0 || p.i[1] < 0) return kOpEmptyRect;
  TslPicture *pic = src;
  if (dst) {
    if (CopyToDest(src, dst) != kOpDone) return kOpNoMemory;
    pic = dst;
  }
  pic->attr_pair[0] = static_cast<uint32_t>(p.i[0]);
  pic->attr_pair[1] = static_cast<uint32_t>(p.i[1]);
  return kOpDone;
}

namespace {

// Mirrors the rectangle of `pic` in place, left-right or top-bottom.
void flipInPlace(TslPicture *pic, const OpRect &r, bool horizontal) {
  const int bpp = pic->bytes_per_pixel;
  if (horizontal) {
    for (int y = r.y; y < r.y + r.height; ++y) {
      uint8_t *row = RowOf(pic, static_cast<uint32_t>(y));
      for (int a = r.x, b = r.x + r.width - 1; a < b; ++a, --b) {
        if (pic->color_model == TSL_BINARY) {
          const int va = GetBit(row, a);
          SetBit(row, a, GetBit(row, b));
          SetBit(row, b, va);
        } else {
          uint8_t t[4];
          uint8_t *pa = row + static_cast<size_t>(a) * bpp, *pb = row + static_cast<size_t>(b) * bpp;
          std::memcpy(t, pa, bpp);
          std::memcpy(pa, pb, bpp);
          std::memcpy(pb, t, bpp);
        }
      }
    }
    return;
  }
  for (int a = r.y, b = r.y + r.height - 1; a < b; ++a, --b) {
    uint8_t *ra = RowOf(pic, static_cast<uint32_t>(a)), *rb = RowOf(pic, static_cast<uint32_t>(b));
    if (pic->color_model == TSL_BINARY) {
      for (int x = r.x; x < r.x + r.width; ++x) {
        const int va = GetBit(ra, x);
        SetBit(ra, x, GetBit(rb, x));
        SetBit(rb, x, va);
      }
    } else {
      std::swap_ranges(ra + static_cast<size_t>(r.x) * bpp, ra + static_cast<size_t>(r.x + r.width) * bpp,
                       rb + static_cast<size_t>(r.x) * bpp);
    }
  }
}

int flip(TslPicture *src, TslPicture *dst, const OpRect *rect, bool horizontal) {
  OpRect r;
  if (!rows::Usable(src) || !ClipRect(src, rect, &r)) return kOpEmptyRect;
  TslPicture *pic = src;
  if (dst) {
    if (CopyToDest(src, dst) != kOpDone) return kOpNoMemory;
    pic = dst;
  }
  flipInPlace(pic, r, horizontal);
  return kOpDone;
}

}  // namespace

int OrientPicture(const TslPicture *src, TslPicture *dst, int orientation) {
  if (!rows::Usable(src)) return kOpEmptyRect;
  // Quarter turns counter-clockwise, then a mirror (1 left-right, 2 top-bottom).
  static const int kQuarters[9] = {0, 0, 0, 2, 0, 3, 3, 3, 1};
  static const int kMirror[9] = {0, 0, 1, 0, 2, 1, 0, 2, 0};
  const int o = orientation >= 1 && orientation <= 8 ? orientation : 1;
  const int code = kQuarters[o] ? RotateQuarters(src, dst, kQuarters[o]) : CopyToDest(src, dst);
  if (code != kOpDone || !kMirror[o]) return code;
  const OpRect whole{0, 0, static_cast<int>(dst->width), static_cast<int>(dst->height)};
  flipInPlace(dst, whole, kMirror[o] == 1);
  return kOpDone;
}

int OpFlipHorizontal(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) {
  return flip(src, dst, rect, true);
}

int OpFlipVertical(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) {
  return flip(src, dst, rect, false);
}

int OpRotate(TslPicture *src, TslPicture *dst, const OpRect *, const OpParams &p) {
  if (!rows::Usable(src)) return kOpEmptyRect;
  if (p.i[0] % 360 == 0) return unchanged(src, dst);
  return finish(src, dst, [&](TslPicture *out) { return RotatePicture(src, out, p.i[0], p.background); });
}

}  // namespace quilla
