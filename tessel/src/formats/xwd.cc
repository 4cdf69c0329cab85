// X Window Dump (file version 7): the format written by the xwd tool.
//
// A header of 25 32-bit fields (always most significant byte first as xwd
// writes it; little-endian headers from other writers are accepted too), the
// window name, the colormap as 12-byte XWDColor entries, then the pixels in
// the byte order and bit order the header names.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "../bytes.h"
#include "../format.h"

namespace tessel {

namespace {

enum Field {
  kHeaderSize, kVersion, kPixmapFormat, kDepth, kWidth, kHeight, kXOffset, kByteOrder, kBitmapUnit,
  kBitOrder, kBitmapPad, kBitsPerPixel, kBytesPerLine, kVisualClass, kRedMask, kGreenMask, kBlueMask,
  kBitsPerRgb, kColormapEntries, kNColors, kWindowWidth, kWindowHeight, kWindowX, kWindowY, kBorderWidth,
  kFieldCount
};

enum { kXYBitmap = 0, kXYPixmap = 1, kZPixmap = 2 };
enum { kStaticGray = 0, kGrayScale = 1, kStaticColor = 2, kPseudoColor = 3, kTrueColor = 4, kDirectColor = 5 };
enum { kLsbFirst = 0, kMsbFirst = 1 };

constexpr uint32_t kMaxHeaderSize = 1u << 20;
constexpr uint32_t kMaxColors = 65536;

struct XwdColor {
  uint32_t pixel;
  uint16_t r, g, b;
};

struct XwdFile {
  uint32_t f[kFieldCount];
  bool little_endian;
  std::string name;
  std::vector<XwdColor> colors;
  size_t data_offset;
  uint64_t plane_size;  // bytes_per_line * height
  int planes;           // data planes (XYPixmap: depth, else 1)
};

uint32_t rd32(const uint8_t *p, bool le) { return le ? le32(p) : be32(p); }
uint16_t rd16(const uint8_t *p, bool le) { return le ? le16(p) : be16(p); }

bool headerLooksValid(const uint8_t *data, size_t size, bool le) {
  if (size < 100) return false;
  uint32_t hs = rd32(data, le), version = rd32(data + 4, le), format = rd32(data + 8, le),
           depth = rd32(data + 12, le);
  return version == 7 && hs >= 100 && hs <= kMaxHeaderSize && format <= 2 && depth >= 1 && depth <= 32;
}

// Reads and checks the header; returns TSL_OK or an error code with *why set.
int parseHeader(const Source &src, XwdFile *x, const char **why) {
  *why = nullptr;
  if (src.size < 100) {
    *why = "XWD header is incomplete";
    return TSL_ERR_READ;
  }
  if (headerLooksValid(src.data, src.size, false)) x->little_endian = false;
  else if (headerLooksValid(src.data, src.size, true)) x->little_endian = true;
  else {
    *why = "Not an XWD version 7 file";
    return TSL_ERR_BAD_FILE;
  }
  for (int i = 0; i < kFieldCount; ++i) x->f[i] = rd32(src.data + 4 * i, x->little_endian);
  const uint32_t *f = x->f;
  if (f[kHeaderSize] > src.size) {
    *why = "XWD header is incomplete";
    return TSL_ERR_READ;
  }
  const uint8_t *name = src.data + 100;
  size_t name_len = f[kHeaderSize] - 100;
  x->name.assign(reinterpret_cast<const char *>(name), strnlen(reinterpret_cast<const char *>(name), name_len));

  if (f[kWidth] == 0 || f[kHeight] == 0 || f[kWidth] > 0x7fffffff || f[kHeight] > 0x7fffffff) {
    *why = "XWD picture size is invalid";
    return TSL_ERR_BAD_FILE;
  }
  if (f[kByteOrder] > 1 || f[kBitOrder] > 1) {
    *why = "XWD byte or bit order is invalid";
    return TSL_ERR_BAD_FILE;
  }
  const uint32_t depth = f[kDepth];
  uint64_t bits_needed;  // bits of one row of one plane
  if (f[kPixmapFormat] == kZPixmap) {
    const uint32_t bpp = f[kBitsPerPixel];
    if (bpp != 1 && bpp != 4 && bpp != 8 && bpp != 16 && bpp != 24 && bpp != 32) {
      *why = "XWD bits per pixel are not supported";
      return TSL_ERR_BAD_FILE;
    }
    if (depth > bpp) {
      *why = "XWD depth exceeds the bits per pixel";
      return TSL_ERR_BAD_FILE;
    }
    if (bpp == 1 && f[kBitmapUnit] != 8 && f[kBitmapUnit] != 16 && f[kBitmapUnit] != 32) {
      *why = "XWD bitmap unit is invalid";
      return TSL_ERR_BAD_FILE;
    }
    bits_needed = (static_cast<uint64_t>(f[kWidth]) + f[kXOffset]) * bpp;
  } else {
    if (f[kPixmapFormat] == kXYBitmap && depth != 1) {
      *why = "XWD bitmap depth is not 1";
      return TSL_ERR_BAD_FILE;
    }
    if (f[kBitmapUnit] != 8 && f[kBitmapUnit] != 16 && f[kBitmapUnit] != 32) {
      *why = "XWD bitmap unit is invalid";
      return TSL_ERR_BAD_FILE;
    }
    bits_needed = static_cast<uint64_t>(f[kWidth]) + f[kXOffset];
  }
  if (f[kXOffset] > 0xffff || f[kBytesPerLine] < (bits_needed + 7) / 8 || f[kBytesPerLine] > (1u << 30)) {
    *why = "XWD bytes per line do not fit the width";
    return TSL_ERR_BAD_FILE;
  }
  const bool masks = f[kVisualClass] == kTrueColor || f[kVisualClass] == kDirectColor;
  if (f[kVisualClass] > kDirectColor || (!masks && depth > 8)) {
    *why = "XWD visual with more than 8 bits of colormap index is not supported";
    return TSL_ERR_BAD_FILE;
  }
  if (masks && depth > 8 && (f[kRedMask] == 0 || f[kGreenMask] == 0 || f[kBlueMask] == 0)) {
    *why = "XWD colour masks are missing";
    return TSL_ERR_BAD_FILE;
  }
  if (f[kNColors] > kMaxColors) {
    *why = "XWD colormap is too large";
    return TSL_ERR_BAD_FILE;
  }
  const uint64_t cmap_end = static_cast<uint64_t>(f[kHeaderSize]) + static_cast<uint64_t>(f[kNColors]) * 12;
  if (cmap_end > src.size) {
    *why = "XWD colormap is incomplete";
    return TSL_ERR_READ;
  }
  x->colors.resize(f[kNColors]);
  for (uint32_t i = 0; i < f[kNColors]; ++i) {
    const uint8_t *p = src.data + f[kHeaderSize] + 12 * static_cast<size_t>(i);
    x->colors[i] = {rd32(p, x->little_endian), rd16(p + 4, x->little_endian), rd16(p + 6, x->little_endian),
                    rd16(p + 8, x->little_endian)};
  }
  x->data_offset = static_cast<size_t>(cmap_end);
  // Some writers state a bytes-per-line larger than the rows they write:
  // when the data is exactly the rows padded to bitmap_pad, use that size.
  const uint64_t pad = f[kBitmapPad] == 8 || f[kBitmapPad] == 16 || f[kBitmapPad] == 32 ? f[kBitmapPad] : 8;
  const uint64_t padded = (bits_needed + pad - 1) / pad * pad / 8;
  const uint64_t data = src.size - cmap_end;
  const uint64_t planes = f[kPixmapFormat] == kXYPixmap ? depth : 1;
  if (static_cast<uint64_t>(f[kBytesPerLine]) * f[kHeight] * planes > data && padded < f[kBytesPerLine] &&
      padded * f[kHeight] * planes == data)
    x->f[kBytesPerLine] = static_cast<uint32_t>(padded);
  x->plane_size = static_cast<uint64_t>(f[kBytesPerLine]) * f[kHeight];
  x->planes = f[kPixmapFormat] == kXYPixmap ? static_cast<int>(depth) : 1;
  return TSL_OK;
}

bool usesMasks(const XwdFile &x) {
  const uint32_t c = x.f[kVisualClass];
  return (c == kTrueColor || c == kDirectColor) && x.f[kRedMask] && x.f[kGreenMask] && x.f[kBlueMask];
}

// Bit `pos` of a row stored in bitmap units of the given size, byte order and bit order.
inline int unitBit(const uint8_t *row, uint64_t pos, uint32_t unit, uint32_t byte_order, uint32_t bit_order) {
  const uint32_t unit_bytes = unit / 8;
  const uint64_t u = pos / unit;
  uint32_t b = static_cast<uint32_t>(pos % unit);
  uint32_t significance = bit_order == kLsbFirst ? b : unit - 1 - b;
  uint32_t byte = byte_order == kMsbFirst ? unit_bytes - 1 - significance / 8 : significance / 8;
  return (row[u * unit_bytes + byte] >> (significance % 8)) & 1;
}

// Pixel values of one row into out[0 .. width).  `base` is the start of the pixel data.
void rowValues(const XwdFile &x, const uint8_t *base, uint32_t y, uint32_t *out) {
  const uint32_t *f = x.f;
  const uint32_t w = f[kWidth];
  const uint64_t xoff = f[kXOffset];
  const uint8_t *row = base + static_cast<uint64_t>(y) * f[kBytesPerLine];
  const bool msb = f[kByteOrder] == kMsbFirst;
  if (f[kPixmapFormat] != kZPixmap) {
    for (uint32_t i = 0; i < w; ++i) out[i] = 0;
    for (int k = 0; k < x.planes; ++k) {
      const uint8_t *plane_row = row + static_cast<uint64_t>(k) * x.plane_size;
      for (uint32_t i = 0; i < w; ++i)
        out[i] = out[i] << 1 | static_cast<uint32_t>(unitBit(plane_row, i + xoff, f[kBitmapUnit], f[kByteOrder],
                                                              f[kBitOrder]));
    }
    return;
  }
  switch (f[kBitsPerPixel]) {
    case 1:
      for (uint32_t i = 0; i < w; ++i) out[i] = static_cast<uint32_t>(unitBit(row, i + xoff, f[kBitmapUnit],
                                                                               f[kByteOrder], f[kBitOrder]));
      break;
    case 4:
      for (uint32_t i = 0; i < w; ++i) {
        uint64_t n = i + xoff;
        uint8_t v = row[n / 2];
        out[i] = (n & 1) == (msb ? 0u : 1u) ? v >> 4 : v & 15;
      }
      break;
    case 8:
      for (uint32_t i = 0; i < w; ++i) out[i] = row[i + xoff];
      break;
    case 16:
      for (uint32_t i = 0; i < w; ++i) {
        const uint8_t *p = row + 2 * (i + xoff);
        out[i] = msb ? be16(p) : le16(p);
      }
      break;
    case 24:
      for (uint32_t i = 0; i < w; ++i) {
        const uint8_t *p = row + 3 * (i + xoff);
        out[i] = msb ? (uint32_t(p[0]) << 16 | p[1] << 8 | p[2]) : (uint32_t(p[2]) << 16 | p[1] << 8 | p[0]);
      }
      break;
    default:
      for (uint32_t i = 0; i < w; ++i) {
        const uint8_t *p = row + 4 * (i + xoff);
        out[i] = msb ? be32(p) : le32(p);
      }
      break;
  }
  const uint32_t keep = f[kDepth] >= 32 ? 0xffffffffu : (1u << f[kDepth]) - 1;
  if (!usesMasks(x))
    for (uint32_t i = 0; i < w; ++i) out[i] &= keep;
}

// Per-channel translation of a masked pixel value to 8 bits.
struct MaskChannel {
  uint32_t mask = 0;
  int shift = 0;
  uint32_t max = 0;
  std::vector<uint8_t> table;  // from the colormap (DirectColor) or a linear scale

  void setup(uint32_t m) {
    mask = m;
    shift = m ? __builtin_ctz(m) : 0;
    max = m >> shift;
    if (max > 0xffff) return;  // wider than 16 bits: scaled on the fly
    table.resize(static_cast<size_t>(max) + 1);
    for (uint32_t v = 0; v <= max; ++v) table[v] = static_cast<uint8_t>(max ? (v * 255u + max / 2) / max : 0);
  }
  uint8_t value(uint32_t pixel) const {
    uint32_t v = (pixel & mask) >> shift;
    if (!table.empty()) return table[v <= max ? v : max];
    return static_cast<uint8_t>(static_cast<uint64_t>(v) * 255 / max);
  }
};

// The colormap as a 256-entry palette (pixels without an entry stay black);
// returns the number of entries in use.
int buildPalette(const XwdFile &x, uint8_t *palette) {
  // Only visuals of up to 8 bits go through a palette.
  const uint32_t depth = x.f[kDepth] < 8 ? x.f[kDepth] : 8;
  const int levels = 1 << depth;
  std::memset(palette, 0, 768);
  if (x.colors.empty()) {
    greyPalette(palette, levels);
    return levels;
  }
  int used = 0;
  for (const XwdColor &c : x.colors) {
    if (c.pixel >= static_cast<uint32_t>(levels)) continue;
    palette[c.pixel] = static_cast<uint8_t>(c.r >> 8);
    palette[256 + c.pixel] = static_cast<uint8_t>(c.g >> 8);
    palette[512 + c.pixel] = static_cast<uint8_t>(c.b >> 8);
    if (static_cast<int>(c.pixel) + 1 > used) used = static_cast<int>(c.pixel) + 1;
  }
  if (used < 2 && depth == 1) used = 2;
  return used ? used : levels;
}

// The colour model the reader produces for this file.
int modelFor(const XwdFile &x, const uint8_t *palette, int used, bool *invert) {
  *invert = false;
  if (usesMasks(x)) return TSL_RGB;
  if (x.f[kDepth] == 1) {
    bool black0 = palette[0] == 0 && palette[256] == 0 && palette[512] == 0;
    bool white0 = palette[0] == 255 && palette[256] == 255 && palette[512] == 255;
    bool black1 = palette[1] == 0 && palette[257] == 0 && palette[513] == 0;
    bool white1 = palette[1] == 255 && palette[257] == 255 && palette[513] == 255;
    if (black0 && white1) return TSL_BINARY;
    if (white0 && black1) {
      *invert = true;
      return TSL_BINARY;
    }
    return TSL_INDEXED;
  }
  if (x.f[kVisualClass] == kStaticGray || x.f[kVisualClass] == kGrayScale) {
    bool grey = true;
    for (int i = 0; i < used && grey; ++i) grey = palette[i] == palette[256 + i] && palette[i] == palette[512 + i];
    if (grey) return TSL_GREY;
  }
  // A full 256-entry identity grey ramp is a grey picture whatever the
  // visual (grey pictures are written that way: not every reader takes an
  // 8-bit GrayScale dump).
  if (x.f[kDepth] == 8 && used == 256) {
    bool ramp = true;
    for (int i = 0; i < 256 && ramp; ++i) ramp = palette[i] == i && palette[256 + i] == i && palette[512 + i] == i;
    if (ramp) return TSL_GREY;
  }
  return TSL_INDEXED;
}

int xwdInfo(const Source &src, int, TslFileInfo *info) {
  XwdFile x;
  const char *why;
  int code = parseHeader(src, &x, &why);
  if (code != TSL_OK) {
    if (why) std::snprintf(info->message, sizeof info->message, "%s", why);
    return code;
  }
  info->width = x.f[kWidth];
  info->height = x.f[kHeight];
  uint8_t palette[768];
  int used = buildPalette(x, palette);
  bool invert;
  info->color_model = modelFor(x, palette, used, &invert);
  if (info->color_model == TSL_RGB) {
    info->planes = 3;
    info->bits_per_plane = 8;
    info->colors = 1L << 24;
  } else {
    info->planes = 1;
    info->bits_per_plane = static_cast<int>(x.f[kDepth]);
    info->colors = info->color_model == TSL_INDEXED ? used : 1L << (x.f[kDepth] < 8 ? x.f[kDepth] : 8);
  }
  info->compression = TSL_COMP_NONE;
  info->pages = 1;
  if (!x.name.empty()) info->comment = strdup(x.name.c_str());
  return TSL_OK;
}

int xwdLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  XwdFile x;
  const char *why;
  int code = parseHeader(src, &x, &why);
  if (code != TSL_OK) {
    if (why) ctx.setMessage("%s", why);
    return code;
  }
  const uint32_t w = x.f[kWidth], h = x.f[kHeight];
  if (!ctx.sizeAllowed(w, h)) {
    ctx.setMessage("XWD picture of %ux%u is too large", w, h);
    return TSL_ERR_MEMORY;
  }
  // Rows whose bytes are all inside the file (for every plane).
  const uint64_t avail = src.size - x.data_offset;
  const uint64_t bpl = x.f[kBytesPerLine];
  uint64_t complete_rows;
  if (x.planes > 1) {
    const uint64_t last_plane = (static_cast<uint64_t>(x.planes) - 1) * x.plane_size;
    complete_rows = avail >= last_plane ? (avail - last_plane) / bpl : 0;
  } else {
    complete_rows = avail / bpl;
  }
  const uint32_t rows = complete_rows < h ? static_cast<uint32_t>(complete_rows) : h;
  if (rows < h && !ctx.keepDamaged()) return TSL_ERR_READ;

  uint8_t palette[768];
  int used = buildPalette(x, palette);
  bool invert;
  const int model = modelFor(x, palette, used, &invert);
  code = ctx.alloc(picture, model, w, h);
  if (code != TSL_OK) return code;

  MaskChannel red, green, blue;
  if (model == TSL_RGB) {
    red.setup(x.f[kRedMask]);
    green.setup(x.f[kGreenMask]);
    blue.setup(x.f[kBlueMask]);
    if (x.f[kVisualClass] == kDirectColor) {
      // A DirectColor colormap maps each channel's index to its intensity.
      for (const XwdColor &c : x.colors) {
        uint32_t r = (c.pixel & red.mask) >> red.shift, g = (c.pixel & green.mask) >> green.shift,
                 b = (c.pixel & blue.mask) >> blue.shift;
        if (r < red.table.size()) red.table[r] = static_cast<uint8_t>(c.r >> 8);
        if (g < green.table.size()) green.table[g] = static_cast<uint8_t>(c.g >> 8);
        if (b < blue.table.size()) blue.table[b] = static_cast<uint8_t>(c.b >> 8);
      }
    }
  } else if (model == TSL_INDEXED) {
    std::memcpy(picture->palette, palette, 768);
    picture->colors = static_cast<int16_t>(used);
  } else if (model == TSL_GREY) {
    picture->colors = static_cast<int16_t>(1 << (x.f[kDepth] < 8 ? x.f[kDepth] : 8));
  }

  std::vector<uint32_t> values(w);
  const uint8_t *base = src.data + x.data_offset;
  for (uint32_t y = 0; y < rows; ++y) {
    rowValues(x, base, y, values.data());
    uint8_t *out = rowOf(picture, y);
    switch (model) {
      case TSL_RGB:
        for (uint32_t i = 0; i < w; ++i) {
          out[3 * i] = red.value(values[i]);
          out[3 * i + 1] = green.value(values[i]);
          out[3 * i + 2] = blue.value(values[i]);
        }
        break;
      case TSL_BINARY:
        for (uint32_t i = 0; i < w; ++i) setBit(out, i, static_cast<int>(values[i] ^ (invert ? 1u : 0u)));
        break;
      case TSL_GREY:
        for (uint32_t i = 0; i < w; ++i) out[i] = palette[values[i] & 0xff];
        break;
      default:
        for (uint32_t i = 0; i < w; ++i) out[i] = static_cast<uint8_t>(values[i]);
        break;
    }
    if (ctx.progress(y + 1, h)) return TSL_STOPPED;
  }
  return TSL_OK;
}

int xwdSave(FILE *file, const TslPicture *pic, SaveContext &ctx) {
  const uint32_t w = pic->width, h = pic->height;
  uint32_t f[kFieldCount] = {0};
  std::vector<XwdColor> colors;
  const char *comment = ctx.params().comment ? ctx.params().comment : "";
  const std::string name(comment, strnlen(comment, 4096));
  uint64_t bpl;
  if (pic->color_model == TSL_BINARY) {
    bpl = (static_cast<uint64_t>(w) + 31) / 32 * 4;
    f[kPixmapFormat] = kXYBitmap;
    f[kDepth] = 1;
    f[kBitsPerPixel] = 1;
    f[kVisualClass] = kStaticGray;
    f[kBitsPerRgb] = 1;
    f[kColormapEntries] = 2;
    colors.push_back({0, 0, 0, 0});
    colors.push_back({1, 0xffff, 0xffff, 0xffff});
  } else if (pic->color_model == TSL_GREY || pic->color_model == TSL_INDEXED) {
    bpl = (static_cast<uint64_t>(w) + 3) / 4 * 4;
    f[kPixmapFormat] = kZPixmap;
    f[kDepth] = 8;
    f[kBitsPerPixel] = 8;
    f[kBitsPerRgb] = 8;
    f[kColormapEntries] = 256;
    f[kVisualClass] = kPseudoColor;
    if (pic->color_model == TSL_GREY) {
      for (uint32_t i = 0; i < 256; ++i) colors.push_back({i, uint16_t(i * 257), uint16_t(i * 257), uint16_t(i * 257)});
    } else {
      int n = pic->colors > 0 && pic->colors <= 256 ? pic->colors : 256;
      for (int i = 0; i < n; ++i)
        colors.push_back({static_cast<uint32_t>(i), uint16_t(pic->palette[i] * 257),
                          uint16_t(pic->palette[256 + i] * 257), uint16_t(pic->palette[512 + i] * 257)});
    }
  } else {
    bpl = static_cast<uint64_t>(w) * 4;
    f[kPixmapFormat] = kZPixmap;
    f[kDepth] = 24;
    f[kBitsPerPixel] = 32;
    f[kVisualClass] = kTrueColor;
    f[kRedMask] = 0xff0000;
    f[kGreenMask] = 0xff00;
    f[kBlueMask] = 0xff;
    f[kBitsPerRgb] = 8;
    f[kColormapEntries] = 256;
  }
  if (bpl > 0xffffffffu) return TSL_ERR_CANT_SAVE;
  f[kHeaderSize] = static_cast<uint32_t>(100 + name.size() + 1);
  f[kVersion] = 7;
  f[kWidth] = f[kWindowWidth] = w;
  f[kHeight] = f[kWindowHeight] = h;
  f[kByteOrder] = kMsbFirst;
  f[kBitmapUnit] = 32;
  f[kBitOrder] = kMsbFirst;
  f[kBitmapPad] = 32;
  f[kBytesPerLine] = static_cast<uint32_t>(bpl);
  f[kNColors] = static_cast<uint32_t>(colors.size());
  for (uint32_t v : f)
    if (!put32be(file, v)) return TSL_ERR_WRITE;
  if (!putBytes(file, name.c_str(), name.size() + 1)) return TSL_ERR_WRITE;
  for (const XwdColor &c : colors) {
    if (!put32be(file, c.pixel) || !put16be(file, c.r) || !put16be(file, c.g) || !put16be(file, c.b) ||
        !put8(file, 7) || !put8(file, 0))
      return TSL_ERR_WRITE;
  }
  std::vector<uint8_t> line(static_cast<size_t>(bpl), 0), rgb(static_cast<size_t>(w) * 3);
  for (uint32_t y = 0; y < h; ++y) {
    const uint8_t *row = rowOf(pic, y);
    if (pic->color_model == TSL_BINARY) {
      std::memcpy(line.data(), row, packedLine(w));
    } else if (pic->color_model == TSL_GREY || pic->color_model == TSL_INDEXED) {
      std::memcpy(line.data(), row, w);
    } else {
      tslGetRowRGB(pic, y, rgb.data());
      for (uint32_t i = 0; i < w; ++i) {
        line[4 * i] = 0;
        line[4 * i + 1] = rgb[3 * i];
        line[4 * i + 2] = rgb[3 * i + 1];
        line[4 * i + 3] = rgb[3 * i + 2];
      }
    }
    if (!putBytes(file, line.data(), line.size())) return TSL_ERR_WRITE;
    ctx.progress(y + 1, h);
  }
  return TSL_OK;
}

bool xwdSniff(const uint8_t *data, size_t size) {
  if (size < 100) return false;
  return headerLooksValid(data, size, false) || headerLooksValid(data, size, true);
}

}  // namespace

extern const FormatDef kXwdFormat = {
    "xwd", "X Window Dump", "xwd;dmp",
    {{1, 2, -1, -1}, {2, 256, -1, -1}, {4, 256, -1, -1}, {1008, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicWeak, false, xwdSniff, xwdInfo, xwdLoad, xwdSave, nullptr};

}  // namespace tessel
