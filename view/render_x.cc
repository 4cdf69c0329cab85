// Rendering pictures to X images.  A converter is a pair: a reader that
// turns a span of picture pixels into 8-bit RGB (one per colour model, with
// a 1:1 and a scaled variant) and a packer that turns RGB into pixels of the
// image's layout (direct 32-bit, general masks, colour cube with dither,
// private palette, black and white).
#include "view/render_x.h"

#include <X11/Xutil.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "view/view_model.h"

namespace quilla {

namespace {

constexpr int kTile = 256;

enum class Packer { kNone, kDirect32, kMasks, kCube, kPalette, kBlackWhite };

}  // namespace

struct DisplayObject {
  Display *dpy = nullptr;
  int depth = 0;
  ColourData *colours = nullptr;
  XImage *image = nullptr;
  // Work buffers: one RGB line (or index line) and the column sums of a
  // reduced tile row.
  std::vector<uint8_t> line;
  std::vector<uint32_t> sums;
  double zoom = 100.0;
  const TslPicture *pic = nullptr;
  int view_w = 0, view_h = 0;
  Packer packer = Packer::kNone;
  uint8_t pad = 0;          // top byte of direct 32-bit pixels: opaque alpha on 32-bit visuals
  bool index_mode = false;  // the private colormap holds the picture's own colours
  bool have_last = false;
  int last_org_x = 0, last_org_y = 0;
  TileRect last{0, 0, 0, 0};
  RenderStats stats;
};

namespace {

// Byte offsets of red, green and blue in a true-colour pixel; false for a
// model this renderer does not know.
bool ChannelOffsets(int model, int *r, int *g, int *b) {
  switch (model) {
    case TSL_RGB: case TSL_RGBA: *r = 0, *g = 1, *b = 2; return true;
    case TSL_BGR: case TSL_BGRA: *r = 2, *g = 1, *b = 0; return true;
    case TSL_ARGB: *r = 1, *g = 2, *b = 3; return true;
    case TSL_ABGR: *r = 3, *g = 2, *b = 1; return true;
    default: return false;
  }
}

bool KnownModel(const TslPicture *pic) {
  int r, g, b;
  switch (pic->color_model) {
    case TSL_BINARY: return true;
    case TSL_GREY: return pic->bytes_per_pixel == 1;
    case TSL_INDEXED: return pic->bytes_per_pixel == 1;
    default:
      return ChannelOffsets(pic->color_model, &r, &g, &b) &&
             pic->bytes_per_pixel >= (pic->color_model == TSL_RGB || pic->color_model == TSL_BGR ? 3 : 4);
  }
}

// Picture pixels x0..x1-1 of row y as RGB triples.
void ReadSpanRGB(const TslPicture *pic, int y, int x0, int x1, uint8_t *out) {
  const uint8_t *row = pic->pixels + static_cast<size_t>(y) * pic->bytes_per_line;
  switch (pic->color_model) {
    case TSL_BINARY:
      for (int x = x0; x < x1; ++x, out += 3) out[0] = out[1] = out[2] = ((row[x >> 3] >> (7 - (x & 7))) & 1) ? 255 : 0;
      return;
    case TSL_GREY:
      for (int x = x0; x < x1; ++x, out += 3) out[0] = out[1] = out[2] = row[x];
      return;
    case TSL_INDEXED: {
      const uint8_t *pal = pic->palette;
      for (int x = x0; x < x1; ++x, out += 3) {
        const uint8_t i = row[x];
        if (pal) out[0] = pal[i], out[1] = pal[256 + i], out[2] = pal[512 + i];
        else out[0] = out[1] = out[2] = i;
      }
      return;
    }
    default: {
      int r = 0, g = 1, b = 2;
      ChannelOffsets(pic->color_model, &r, &g, &b);
      const int bpp = pic->bytes_per_pixel;
      const uint8_t *p = row + static_cast<size_t>(x0) * bpp;
      for (int x = x0; x < x1; ++x, out += 3, p += bpp) out[0] = p[r], out[1] = p[g], out[2] = p[b];
      return;
    }
  }
}

// Pixels x0..x1-1 of row y as indices into a private colormap holding the
// picture's palette or grey ramp.
void ReadSpanIndex(const TslPicture *pic, int y, int x0, int x1, int count, uint8_t *out) {
  const uint8_t *row = pic->pixels + static_cast<size_t>(y) * pic->bytes_per_line;
  if (pic->color_model == TSL_INDEXED) {
    for (int x = x0; x < x1; ++x) *out++ = row[x];
  } else {  // grey into a ramp of `count` steps
    const int top = count > 1 ? count - 1 : 1;
    for (int x = x0; x < x1; ++x) *out++ = static_cast<uint8_t>((row[x] * top + 127) / 255);
  }
}

// Source range [s0, s1) of display coordinate d at the zoom factor.
inline void SourceRange(int d, double zoom, int limit, int *s0, int *s1) {
  const double f = 100.0 / zoom;
  int a = static_cast<int>(std::floor(d * f + 1e-9));
  int b = static_cast<int>(std::floor((d + 1) * f + 1e-9));
  if (a >= limit) a = limit - 1;
  if (a < 0) a = 0;
  if (b <= a) b = a + 1;
  if (b > limit) b = limit;
  *s0 = a;
  *s1 = b;
}

inline void PutBytes(uint8_t *p, int bytes, unsigned long v, bool msb) {
  if (msb)
    for (int k = bytes - 1; k >= 0; --k, v >>= 8) p[k] = static_cast<uint8_t>(v);
  else
    for (int k = 0; k < bytes; ++k, v >>= 8) p[k] = static_cast<uint8_t>(v);
}

// One image row from an RGB line (or an index line in palette mode).
void PackRow(DisplayObject *o, const uint8_t *src, int w, int img_y, int win_x, int win_y) {
  XImage *im = o->image;
  uint8_t *dst = reinterpret_cast<uint8_t *>(im->data) + static_cast<size_t>(img_y) * im->bytes_per_line;
  const bool msb = im->byte_order == MSBFirst;
  const ColourData *cd = o->colours;
  switch (o->packer) {
    case Packer::kDirect32:
      for (int x = 0; x < w; ++x, src += 3, dst += 4) {
        if (msb) dst[0] = o->pad, dst[1] = src[0], dst[2] = src[1], dst[3] = src[2];
        else dst[0] = src[2], dst[1] = src[1], dst[2] = src[0], dst[3] = o->pad;
      }
      return;
    case Packer::kMasks: {
      const VisualDesc &v = cd->visual;
      const int bytes = im->bits_per_pixel / 8;
      const bool whole = im->bits_per_pixel % 8 == 0 && bytes >= 1 && bytes <= 4;
      for (int x = 0; x < w; ++x, src += 3) {
        const unsigned long pixel = (static_cast<unsigned long>(src[0] * v.red_levels >> 8) << v.red_shift) |
                                    (static_cast<unsigned long>(src[1] * v.green_levels >> 8) << v.green_shift) |
                                    (static_cast<unsigned long>(src[2] * v.blue_levels >> 8) << v.blue_shift);
        if (whole) PutBytes(dst + x * bytes, bytes, pixel, msb);
        else XPutPixel(im, x, img_y, pixel);
      }
      return;
    }
    case Packer::kCube: {
      const DitherRecord &d = *cd->dither;
      if (im->bits_per_pixel == 8) {
        for (int x = 0; x < w; ++x, src += 3)
          dst[x] = static_cast<uint8_t>(cd->pixels[DitherIndex(d, win_x + x, win_y, src[0], src[1], src[2])]);
      } else {
        for (int x = 0; x < w; ++x, src += 3)
          XPutPixel(im, x, img_y, cd->pixels[DitherIndex(d, win_x + x, win_y, src[0], src[1], src[2])]);
      }
      return;
    }
    case Packer::kPalette:
      for (int x = 0; x < w; ++x) {
        const unsigned long pixel = cd->pixels[src[x]];
        if (im->bits_per_pixel == 8) dst[x] = static_cast<uint8_t>(pixel);
        else XPutPixel(im, x, img_y, pixel);
      }
      return;
    case Packer::kBlackWhite:
      // Ordered dither of the luminance between the two pixels.
      for (int x = 0; x < w; ++x, src += 3) {
        const int lum = (src[0] * 77 + src[1] * 150 + src[2] * 29) >> 8;  // 0..255
        const int level = lum * 64 / 256;                                  // 0..63
        XPutPixel(im, x, img_y, level > kDitherMatrix[win_y & 7][(win_x + x) & 7] ? cd->white : cd->black);
      }
      return;
    case Packer::kNone:
      return;
  }
}

// Fills the image's top-left w x h from display coordinates (dx, dy) relative
// to the picture origin; (win_x, win_y) is where the tile lands in the window
// (the dither cell).
void ConvertTile(DisplayObject *o, int dx, int dy, int w, int h, int win_x, int win_y) {
  const TslPicture *pic = o->pic;
  const int pw = static_cast<int>(pic->width), ph = static_cast<int>(pic->height);
  const bool scaled = std::fabs(o->zoom - 100.0) > 1e-9;
  if (o->line.size() < static_cast<size_t>(w) * 3) o->line.resize(static_cast<size_t>(w) * 3);
  uint8_t *line = o->line.data();

  if (!scaled) {
    for (int j = 0; j < h; ++j) {
      const int sy = dy + j;
      const int x1 = dx + w;
      if (o->index_mode) ReadSpanIndex(pic, sy, dx, x1, o->colours->colour_count, line);
      else ReadSpanRGB(pic, sy, dx, x1, line);
      PackRow(o, line, w, j, win_x, win_y + j);
    }
    return;
  }

  // Scaled: the source columns of every display column of the tile.
  std::vector<int> col0(w), col1(w);
  for (int i = 0; i < w; ++i) SourceRange(dx + i, o->zoom, pw, &col0[i], &col1[i]);
  const int sx_first = col0[0], sx_last = col1[w - 1];
  const int span = sx_last - sx_first;
  std::vector<uint8_t> src(static_cast<size_t>(span) * 3);
  std::vector<uint8_t> idx(o->index_mode ? static_cast<size_t>(span) : 0);
  const bool reduce = o->zoom < 100.0 && !o->index_mode;
  if (reduce && o->sums.size() < static_cast<size_t>(w) * 3) o->sums.resize(static_cast<size_t>(w) * 3);
  int cached_row = -1;

  for (int j = 0; j < h; ++j) {
    int sy0, sy1;
    SourceRange(dy + j, o->zoom, ph, &sy0, &sy1);
    if (o->index_mode) {
      if (cached_row != sy0) ReadSpanIndex(pic, sy0, sx_first, sx_last, o->colours->colour_count, idx.data());
      cached_row = sy0;
      for (int i = 0; i < w; ++i) line[i] = idx[col0[i] - sx_first];
    } else if (!reduce) {
      if (cached_row != sy0) ReadSpanRGB(pic, sy0, sx_first, sx_last, src.data());
      cached_row = sy0;
      for (int i = 0; i < w; ++i) std::memcpy(line + i * 3, &src[static_cast<size_t>(col0[i] - sx_first) * 3], 3);
    } else {
      // Averages every source pixel that falls into each screen pixel.
      uint32_t *sums = o->sums.data();
      std::memset(sums, 0, static_cast<size_t>(w) * 3 * sizeof(uint32_t));
      for (int sy = sy0; sy < sy1; ++sy) {
        ReadSpanRGB(pic, sy, sx_first, sx_last, src.data());
        for (int i = 0; i < w; ++i) {
          const uint8_t *p = &src[static_cast<size_t>(col0[i] - sx_first) * 3];
          uint32_t r = 0, g = 0, b = 0;
          for (int sx = col0[i]; sx < col1[i]; ++sx, p += 3) r += p[0], g += p[1], b += p[2];
          sums[i * 3] += r, sums[i * 3 + 1] += g, sums[i * 3 + 2] += b;
        }
      }
      const int rows = sy1 - sy0;
      for (int i = 0; i < w; ++i) {
        const uint32_t n = static_cast<uint32_t>((col1[i] - col0[i]) * rows);
        for (int c = 0; c < 3; ++c) line[i * 3 + c] = static_cast<uint8_t>((sums[i * 3 + c] + n / 2) / n);
      }
    }
    PackRow(o, line, w, j, win_x, win_y + j);
  }
}

// The packer for this object's image and colour data.
Packer ChoosePacker(const DisplayObject *o, const TslPicture *pic, bool *index_mode) {
  *index_mode = false;
  const ColourData *cd = o->colours;
  const XImage *im = o->image;
  if (!cd || !im) return Packer::kNone;
  const VisualDesc &v = cd->visual;
  const int cls = v.info.cls;
  if (cls == kPseudoColor || cls == kGrayScale) {
    if (cd->dither) return Packer::kCube;
    if (cd->colour_count > 2 && (pic->color_model == TSL_INDEXED || pic->color_model == TSL_GREY)) {
      *index_mode = true;
      return Packer::kPalette;
    }
    if (cd->colour_count == 2) return Packer::kBlackWhite;
    return Packer::kNone;
  }
  if (im->bits_per_pixel == 32 && v.info.red_mask == 0xff0000 && v.info.green_mask == 0x00ff00 &&
      v.info.blue_mask == 0x0000ff)
    return Packer::kDirect32;
  if (v.red_levels > 1 || v.green_levels > 1 || v.blue_levels > 1) return Packer::kMasks;
  return Packer::kNone;
}

}  // namespace

DisplayObject *MakeDisplayObject(Display *dpy, int depth, ColourData *colours) {
  Visual *visual = CurrentXVisual();
  XImage *im = XCreateImage(dpy, visual, static_cast<unsigned>(depth), ZPixmap, 0, nullptr, kTile, kTile, 32, 0);
  if (!im) return nullptr;
  if (colours) {
    im->red_mask = colours->visual.info.red_mask;
    im->green_mask = colours->visual.info.green_mask;
    im->blue_mask = colours->visual.info.blue_mask;
  }
  im->data = static_cast<char *>(std::calloc(static_cast<size_t>(im->bytes_per_line), kTile));
  if (!im->data) {
    XDestroyImage(im);
    return nullptr;
  }
  auto *o = new DisplayObject;
  o->dpy = dpy;
  o->depth = depth;
  o->pad = depth == 32 ? 0xff : 0;
  o->colours = colours;
  o->image = im;
  return o;
}

void ReleaseDisplayObject(DisplayObject *obj) {
  if (!obj) return;
  if (obj->image) XDestroyImage(obj->image);  // frees the pixel buffer too
  delete obj;
}

void SetDisplayZoom(DisplayObject *obj, double percent) {
  if (!obj || !(percent > 0)) return;
  obj->zoom = percent;
  obj->have_last = false;
}

bool PrepareDisplay(DisplayObject *obj, const TslPicture *pic, int width, int height) {
  if (!obj) return false;
  obj->have_last = false;
  obj->pic = pic;
  obj->view_w = width;
  obj->view_h = height;
  obj->packer = Packer::kNone;
  if (pic && pic->pixels && pic->width > 0 && pic->height > 0 && KnownModel(pic))
    obj->packer = ChoosePacker(obj, pic, &obj->index_mode);
  if (obj->packer == Packer::kNone) {
    std::fprintf(stderr, "******** ERROR : ConvertBitmapToImage NULL \n");
    obj->pic = nullptr;
    return false;
  }
  return true;
}

void DrawExposedArea(Drawable d, GC gc, DisplayObject *obj, int org_x, int org_y, int x, int y, int w, int h) {
  if (!obj || !obj->pic || obj->packer == Packer::kNone) return;
  // The clipped rectangle: the exposed area inside the picture's extent.
  const int cx0 = std::max(x, org_x), cy0 = std::max(y, org_y);
  const int cx1 = std::min(x + w, org_x + obj->view_w), cy1 = std::min(y + h, org_y + obj->view_h);
  if (cx1 <= cx0 || cy1 <= cy0) return;
  const TileRect clipped{cx0, cy0, cx1 - cx0, cy1 - cy0};
  if (obj->have_last && obj->last_org_x == org_x && obj->last_org_y == org_y && obj->last == clipped) {
    XPutImage(obj->dpy, d, gc, obj->image, 0, 0, clipped.x, clipped.y, static_cast<unsigned>(clipped.w),
              static_cast<unsigned>(clipped.h));
    ++obj->stats.tiles_reused;
    return;
  }
  const std::vector<TileRect> tiles = TilesForExpose(org_x, org_y, obj->view_w, obj->view_h, TileRect{x, y, w, h});
  for (const TileRect &t : tiles) {
    ConvertTile(obj, t.x - org_x, t.y - org_y, t.w, t.h, t.x, t.y);
    XPutImage(obj->dpy, d, gc, obj->image, 0, 0, t.x, t.y, static_cast<unsigned>(t.w), static_cast<unsigned>(t.h));
    ++obj->stats.tiles_converted;
  }
  if (!tiles.empty()) {
    obj->have_last = true;
    obj->last_org_x = org_x;
    obj->last_org_y = org_y;
    obj->last = tiles.back();
  }
}

Pixmap PictureToPixmap(DisplayObject *obj, Drawable where, const TslPicture *pic) {
  if (!obj || !pic || pic->width == 0 || pic->height == 0 || pic->width > 32767 || pic->height > 32767) return 0;
  // The object's own picture and zoom come back afterwards.
  const double saved_zoom = obj->zoom;
  const TslPicture *saved_pic = obj->pic;
  const int saved_w = obj->view_w, saved_h = obj->view_h;
  const Packer saved_packer = obj->packer;
  const bool saved_index = obj->index_mode;
  auto restore = [&]() {
    obj->zoom = saved_zoom;
    obj->pic = saved_pic;
    obj->view_w = saved_w;
    obj->view_h = saved_h;
    obj->packer = saved_packer;
    obj->index_mode = saved_index;
    obj->have_last = false;
  };
  obj->zoom = 100.0;
  const int w = static_cast<int>(pic->width), h = static_cast<int>(pic->height);
  if (!PrepareDisplay(obj, pic, w, h)) {
    restore();
    return 0;
  }
  Pixmap pm = XCreatePixmap(obj->dpy, where, static_cast<unsigned>(w), static_cast<unsigned>(h),
                            static_cast<unsigned>(obj->depth));
  GC gc = XCreateGC(obj->dpy, pm, 0, nullptr);
  // Converted a tile at a time through the object's one image.
  for (int ty = 0; ty < h; ty += kTile)
    for (int tx = 0; tx < w; tx += kTile) {
      const int tw = std::min(kTile, w - tx), th = std::min(kTile, h - ty);
      ConvertTile(obj, tx, ty, tw, th, tx, ty);
      XPutImage(obj->dpy, pm, gc, obj->image, 0, 0, tx, ty, static_cast<unsigned>(tw), static_cast<unsigned>(th));
      ++obj->stats.tiles_converted;
    }
  XFreeGC(obj->dpy, gc);
  restore();
  return pm;
}

const RenderStats &GetRenderStats(const DisplayObject *obj) { return obj->stats; }

}  // namespace quilla
