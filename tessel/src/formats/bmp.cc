// Windows and OS/2 bitmaps (BMP): reader for 1/2/4/8/16/24/32 bits, RLE4,
// RLE8 and bit fields with the Windows 3, V4, V5, OS/2 1.x and OS/2 2.x
// headers; writer for bilevel, indexed, grey and true colour pictures with an
// optional RLE8 coding and an optional OS/2 1.x header.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "../bgr_rows.h"
#include "../bytes.h"
#include "../format.h"

namespace tessel {

namespace {

constexpr uint32_t kBiRgb = 0, kBiRle8 = 1, kBiRle4 = 2, kBiBitfields = 3, kBiJpeg = 4, kBiPng = 5,
                   kBiAlphaBitfields = 6;

struct BmpHeader {
  uint32_t data_offset = 0;
  uint32_t header_size = 0;
  bool os2_core = false;  // 12-byte OS/2 1.x header
  bool os2_v2 = false;    // OS/2 2.x header
  uint32_t width = 0, height = 0;
  bool top_down = false;
  int bits = 0;
  uint32_t compression = kBiRgb;
  uint32_t clr_used = 0;
  uint32_t xppm = 0, yppm = 0;
  uint32_t masks[4] = {0, 0, 0, 0};  // red, green, blue, alpha
  bool alpha_declared = false;       // the header names an alpha mask
  size_t palette_offset = 0;
  int palette_entry = 4;
};

bool knownHeaderSize(uint32_t hs) { return hs == 12 || (hs >= 16 && hs <= 64) || hs == 108 || hs == 124; }

bool sniffBmp(const uint8_t *d, size_t n) {
  return n >= 18 && d[0] == 'B' && d[1] == 'M' && knownHeaderSize(le32(d + 14));
}

// Reads and checks the headers.  Returns TSL_OK or an error code (message set
// for TSL_ERR_BAD_FILE).
int parseHeader(const Source &src, BmpHeader *h, char *msg, size_t msg_size) {
  const uint8_t *d = src.data;
  if (src.size < 18 || d[0] != 'B' || d[1] != 'M') {
    if (src.size >= 2 && d[0] == 'B' && d[1] == 'M') return TSL_ERR_READ;
    std::snprintf(msg, msg_size, "Not a BMP file");
    return TSL_ERR_BAD_FILE;
  }
  h->data_offset = le32(d + 10);
  const uint32_t hs = le32(d + 14);
  h->header_size = hs;
  if (!knownHeaderSize(hs)) {
    std::snprintf(msg, msg_size, "BMP: unknown header size %u", hs);
    return TSL_ERR_BAD_FILE;
  }
  if (src.size < 14 + static_cast<uint64_t>(hs)) return TSL_ERR_READ;
  const uint8_t *ih = d + 14;
  int64_t width, height;
  int planes;
  if (hs == 12) {
    h->os2_core = true;
    width = le16(ih + 4);
    height = le16(ih + 6);
    planes = le16(ih + 8);
    h->bits = le16(ih + 10);
    h->palette_entry = 3;
  } else {
    h->os2_v2 = hs != 40 && hs != 52 && hs != 56 && hs != 108 && hs != 124;
    width = static_cast<int32_t>(le32(ih + 4));
    height = static_cast<int32_t>(le32(ih + 8));
    planes = le16(ih + 12);
    h->bits = le16(ih + 14);
    if (hs >= 20) h->compression = le32(ih + 16);
    if (hs >= 32) {
      h->xppm = le32(ih + 24);
      h->yppm = le32(ih + 28);
    }
    if (hs >= 36) h->clr_used = le32(ih + 32);
    if (hs >= 52 && !h->os2_v2) {
      h->masks[0] = le32(ih + 40);
      h->masks[1] = le32(ih + 44);
      h->masks[2] = le32(ih + 48);
    }
    if (hs >= 56 && !h->os2_v2) {
      h->masks[3] = le32(ih + 52);
      h->alpha_declared = h->masks[3] != 0;
    }
  }
  h->palette_offset = 14 + static_cast<size_t>(hs);
  if (!h->os2_core && hs < 52 && (h->compression == kBiBitfields || h->compression == kBiAlphaBitfields) &&
      !h->os2_v2) {
    // Masks follow a short header.
    const size_t n = h->compression == kBiAlphaBitfields ? 4 : 3;
    if (src.size < h->palette_offset + 4 * n) return TSL_ERR_READ;
    for (size_t i = 0; i < n; ++i) h->masks[i] = le32(d + h->palette_offset + 4 * i);
    if (n == 4) h->alpha_declared = h->masks[3] != 0;
    h->palette_offset += 4 * n;
  }
  if (width <= 0 || height == 0 || height < -(int64_t(1) << 31) + 1) {
    std::snprintf(msg, msg_size, "BMP: bad picture size %lldx%lld", static_cast<long long>(width),
                  static_cast<long long>(height));
    return TSL_ERR_BAD_FILE;
  }
  h->top_down = height < 0;
  h->width = static_cast<uint32_t>(width);
  h->height = static_cast<uint32_t>(height < 0 ? -height : height);
  if (planes != 1 && planes != 0) {
    std::snprintf(msg, msg_size, "BMP: %d planes are not supported", planes);
    return TSL_ERR_BAD_FILE;
  }
  const int b = h->bits;
  if (b != 1 && b != 2 && b != 4 && b != 8 && b != 16 && b != 24 && b != 32) {
    std::snprintf(msg, msg_size, "BMP: %d bits per pixel are not supported", b);
    return TSL_ERR_BAD_FILE;
  }
  const uint32_t c = h->compression;
  if (h->os2_v2 && c > kBiRle4) {
    std::snprintf(msg, msg_size, "BMP: OS/2 compression %u is not supported", c);
    return TSL_ERR_BAD_FILE;
  }
  if (c == kBiJpeg || c == kBiPng) {
    std::snprintf(msg, msg_size, "BMP: embedded %s data is not supported", c == kBiJpeg ? "JPEG" : "PNG");
    return TSL_ERR_BAD_FILE;
  }
  if (c > kBiAlphaBitfields || (c == kBiRle8 && b != 8) || (c == kBiRle4 && b != 4) ||
      ((c == kBiBitfields || c == kBiAlphaBitfields) && b != 16 && b != 32)) {
    std::snprintf(msg, msg_size, "BMP: compression %u with %d bits per pixel is not valid", c, b);
    return TSL_ERR_BAD_FILE;
  }
  if (c != kBiBitfields && c != kBiAlphaBitfields) {
    // Header masks only count with bit fields; a declared alpha mask stays.
    if (b == 16) {
      h->masks[0] = 0x7C00;
      h->masks[1] = 0x03E0;
      h->masks[2] = 0x001F;
    } else if (b == 32) {
      h->masks[0] = 0x00FF0000;
      h->masks[1] = 0x0000FF00;
      h->masks[2] = 0x000000FF;
      // The fourth byte may carry alpha; it counts only when it varies.
      if (!h->alpha_declared) h->masks[3] = 0xFF000000;
    }
  }
  if (b == 16 || b == 32) {
    if ((h->masks[0] | h->masks[1] | h->masks[2]) == 0) {
      std::snprintf(msg, msg_size, "BMP: empty colour masks");
      return TSL_ERR_BAD_FILE;
    }
    if (b == 16)
      for (uint32_t &m : h->masks) m &= 0xFFFF;
  }
  return TSL_OK;
}

// A palette of at most 256 entries read from the file.
struct Palette {
  int count = 0;
  uint8_t rgb[256][3];
};

void readPalette(const Source &src, const BmpHeader &h, Palette *pal) {
  pal->count = 0;
  if (h.bits > 8) return;
  uint64_t want = h.clr_used && !h.os2_core ? h.clr_used : (1u << h.bits);
  if (want > 256) want = 256;
  // Entries must lie inside the file and before the pixel data when the
  // pixel data starts after them.
  uint64_t limit = src.size;
  if (h.data_offset > h.palette_offset && h.data_offset < limit) limit = h.data_offset;
  uint64_t room = limit > h.palette_offset ? (limit - h.palette_offset) / h.palette_entry : 0;
  if (want > room) want = room;
  for (uint64_t i = 0; i < want; ++i) {
    const uint8_t *e = src.data + h.palette_offset + i * h.palette_entry;
    pal->rgb[i][0] = e[2];
    pal->rgb[i][1] = e[1];
    pal->rgb[i][2] = e[0];
  }
  pal->count = static_cast<int>(want);
  if (pal->count == 0) {
    // No palette at all: a grey ramp over the index range.
    const int n = 1 << h.bits;
    for (int i = 0; i < n; ++i) pal->rgb[i][0] = pal->rgb[i][1] = pal->rgb[i][2] = static_cast<uint8_t>(i * 255 / (n - 1));
    pal->count = n;
  }
}

// 0: not black and white; 1: index 0 black, 1 white; 2: index 0 white, 1 black.
int blackWhite(const Palette &pal) {
  if (pal.count != 2) return 0;
  auto is = [&](int i, int v) { return pal.rgb[i][0] == v && pal.rgb[i][1] == v && pal.rgb[i][2] == v; };
  if (is(0, 0) && is(1, 255)) return 1;
  if (is(0, 255) && is(1, 0)) return 2;
  return 0;
}

// A channel mask: its shift and width, and the scaling of its value to 8 bits.
struct Channel {
  uint32_t mask = 0;
  int shift = 0;
  int bits = 0;
  uint8_t get(uint32_t pixel, uint8_t none) const {
    if (!mask) return none;
    uint32_t v = (pixel & mask) >> shift;
    if (bits >= 8) return static_cast<uint8_t>(v >> (bits - 8));
    uint32_t max = (1u << bits) - 1;
    return static_cast<uint8_t>((v * 255 + max / 2) / max);
  }
};

Channel makeChannel(uint32_t mask) {
  Channel c;
  c.mask = mask;
  if (!mask) return c;
  while (!((mask >> c.shift) & 1)) ++c.shift;
  uint32_t m = mask >> c.shift;
  while (c.bits < 32 && ((m >> c.bits) & 1)) ++c.bits;
  // Holes in a mask: keep the contiguous low part only.
  c.mask = c.bits >= 32 ? 0xFFFFFFFFu : ((1u << c.bits) - 1) << c.shift;
  return c;
}

int modelFor(const BmpHeader &h, const Palette &pal) {
  if (h.bits <= 8) return h.bits == 1 && blackWhite(pal) ? TSL_BINARY : TSL_INDEXED;
  return (h.bits == 16 || h.bits == 32) && h.masks[3] ? TSL_RGBA : TSL_RGB;
}

uint32_t dpiOf(uint32_t ppm) { return static_cast<uint32_t>(ppm * 0.0254 + 0.5); }

int infoBmp(const Source &src, int /*page*/, TslFileInfo *info) {
  BmpHeader h;
  int code = parseHeader(src, &h, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  Palette pal;
  readPalette(src, h, &pal);
  info->width = h.width;
  info->height = h.height;
  info->color_model = modelFor(h, pal);
  if (info->color_model == TSL_RGBA && !h.alpha_declared) info->color_model = TSL_RGB;
  info->has_alpha = info->color_model == TSL_RGBA;
  if (h.bits <= 8) {
    info->bits_per_plane = h.bits;
    info->planes = 1;
    info->colors = pal.count;
  } else {
    info->bits_per_plane = h.bits == 16 ? 5 : 8;
    info->planes = info->has_alpha ? 4 : 3;
    info->colors = 1L << 24;
  }
  info->compression = h.compression == kBiRle4 || h.compression == kBiRle8 ? TSL_COMP_RLE : TSL_COMP_NONE;
  info->dpi_x = static_cast<int>(dpiOf(h.xppm));
  info->dpi_y = static_cast<int>(dpiOf(h.yppm));
  info->origin = h.top_down ? 0 : 1;
  info->pages = 1;
  return TSL_OK;
}

// Decodes RLE8 or RLE4 data into an indexed picture.  Returns TSL_OK, TSL_STOPPED
// or TSL_ERR_READ when the data ends before the picture is complete.
int decodeRle(const Source &src, const BmpHeader &h, TslPicture *pic, LoadContext &ctx) {
  const bool rle4 = h.compression == kBiRle4;
  const uint8_t *d = src.data;
  const size_t end = src.size;
  size_t p = h.data_offset;
  uint64_t x = 0, r = 0;
  const uint64_t w = h.width, rows = h.height;
  auto put = [&](uint8_t v) {
    if (x < w && r < rows) rowOf(pic, h.top_down ? static_cast<uint32_t>(r) : static_cast<uint32_t>(rows - 1 - r))[x] = v;
    ++x;
  };
  while (r < rows) {
    // Data that stops once the last row is complete lacks only its end codes.
    if (p + 2 > end) return r + 1 == rows && x >= w ? TSL_OK : TSL_ERR_READ;
    const uint8_t b0 = d[p], b1 = d[p + 1];
    p += 2;
    if (b0 > 0) {
      for (int i = 0; i < b0; ++i) put(rle4 ? ((i & 1) ? (b1 & 15) : (b1 >> 4)) : b1);
      continue;
    }
    if (b1 == 0) {  // end of line
      x = 0;
      ++r;
      if (ctx.progress(r, rows)) return TSL_STOPPED;
    } else if (b1 == 1) {  // end of bitmap
      return TSL_OK;
    } else if (b1 == 2) {  // delta
      if (p + 2 > end) return TSL_ERR_READ;
      x += d[p];
      if (d[p + 1]) {
        r += d[p + 1];
        if (ctx.progress(r, rows)) return TSL_STOPPED;
      }
      p += 2;
    } else {  // absolute run of b1 pixels, padded to a word
      const size_t bytes = rle4 ? (b1 + 1u) / 2 : b1;
      if (p + bytes > end) {
        for (size_t i = 0; p + i < end && i < bytes; ++i) {
          if (rle4) {
            put(d[p + i] >> 4);
            if (2 * i + 1 < b1) put(d[p + i] & 15);
          } else {
            put(d[p + i]);
          }
        }
        return TSL_ERR_READ;
      }
      for (int i = 0; i < b1; ++i) put(rle4 ? ((i & 1) ? (d[p + i / 2] & 15) : (d[p + i / 2] >> 4)) : d[p + i]);
      p += (bytes + 1) & ~static_cast<size_t>(1);
    }
  }
  return TSL_OK;
}

int loadBmp(const Source &src, TslPicture *pic, LoadContext &ctx) {
  BmpHeader h;
  char msg[256] = {0};
  int code = parseHeader(src, &h, msg, sizeof msg);
  if (code != TSL_OK) return ctx.fail(code, msg);
  Palette pal;
  readPalette(src, h, &pal);
  const int model = modelFor(h, pal);
  if (!ctx.sizeAllowed(h.width, h.height)) return TSL_ERR_MEMORY;
  code = ctx.alloc(pic, model, h.width, h.height);
  if (code != TSL_OK) return code;
  pic->attr_pair[0] = dpiOf(h.xppm);
  pic->attr_pair[1] = dpiOf(h.yppm);
  const int bw = h.bits == 1 ? blackWhite(pal) : 0;
  if (model == TSL_INDEXED) {
    for (int i = 0; i < pal.count; ++i) {
      pic->palette[i] = pal.rgb[i][0];
      pic->palette[256 + i] = pal.rgb[i][1];
      pic->palette[512 + i] = pal.rgb[i][2];
    }
    pic->colors = static_cast<int16_t>(pal.count);
  }

  if (h.compression == kBiRle4 || h.compression == kBiRle8) {
    code = h.data_offset < src.size ? decodeRle(src, h, pic, ctx) : TSL_ERR_READ;
    if (code == TSL_ERR_READ && ctx.keepDamaged()) code = TSL_OK;
    // The end-of-bitmap code replaces the last row's end of line: report the whole.
    if (code == TSL_OK) ctx.progress(h.height, h.height);
    return code;
  }

  const uint64_t stride = (static_cast<uint64_t>(h.width) * h.bits + 31) / 32 * 4;
  const uint64_t needed = (static_cast<uint64_t>(h.width) * h.bits + 7) / 8;
  Channel ch[4];
  for (int i = 0; i < 4; ++i) ch[i] = makeChannel(h.masks[i]);
  for (uint32_t r = 0; r < h.height; ++r) {
    const uint64_t at = h.data_offset + stride * r;
    if (at > src.size || src.size - at < needed) {
      if (!ctx.keepDamaged()) return TSL_ERR_READ;
      break;
    }
    const uint8_t *s = src.data + at;
    uint8_t *out = rowOf(pic, h.top_down ? r : h.height - 1 - r);
    const uint32_t w = h.width;
    switch (h.bits) {
      case 1:
        if (bw) {
          std::memcpy(out, s, needed);
          if (bw == 2)
            for (uint64_t i = 0; i < needed; ++i) out[i] = static_cast<uint8_t>(~out[i]);
          break;
        }
        [[fallthrough]];
      case 2:
      case 4: {
        const int b = h.bits, per = 8 / b, mask = (1 << b) - 1;
        for (uint32_t x = 0; x < w; ++x)
          out[x] = static_cast<uint8_t>((s[x / per] >> (8 - b * (x % per + 1))) & mask);
        break;
      }
      case 8:
        std::memcpy(out, s, w);
        break;
      case 24:
        for (uint32_t x = 0; x < w; ++x) {
          out[3 * x] = s[3 * x + 2];
          out[3 * x + 1] = s[3 * x + 1];
          out[3 * x + 2] = s[3 * x];
        }
        break;
      default: {  // 16 or 32 bits through the masks
        const int n = pic->bytes_per_pixel;
        for (uint32_t x = 0; x < w; ++x) {
          const uint32_t v = h.bits == 16 ? le16(s + 2 * x) : le32(s + 4 * x);
          uint8_t *o = out + static_cast<size_t>(x) * n;
          o[0] = ch[0].get(v, 0);
          o[1] = ch[1].get(v, 0);
          o[2] = ch[2].get(v, 0);
          if (n == 4) o[3] = ch[3].get(v, 255);
        }
      }
    }
    if (ctx.progress(r + 1, h.height)) return TSL_STOPPED;
  }
  if (model == TSL_RGBA) dropUselessAlpha(pic);
  return TSL_OK;
}

// ---- Writer ----------------------------------------------------------------

// RLE8 coding of one row: runs of 2 or more, literal strings of 3 or more.
void encodeRle8Row(const uint8_t *row, uint32_t w, std::vector<uint8_t> *out) {
  uint32_t i = 0;
  while (i < w) {
    uint32_t run = 1;
    while (i + run < w && run < 255 && row[i + run] == row[i]) ++run;
    if (run >= 2) {
      out->push_back(static_cast<uint8_t>(run));
      out->push_back(row[i]);
      i += run;
      continue;
    }
    uint32_t j = i;
    while (j < w && j - i < 255) {
      if (j + 2 < w && row[j] == row[j + 1] && row[j] == row[j + 2]) break;
      ++j;
    }
    const uint32_t n = j - i;
    if (n >= 3) {
      out->push_back(0);
      out->push_back(static_cast<uint8_t>(n));
      out->insert(out->end(), row + i, row + j);
      if (n & 1) out->push_back(0);
    } else {
      for (uint32_t k = i; k < j; ++k) {
        out->push_back(1);
        out->push_back(row[k]);
      }
    }
    i = j;
  }
}

int saveBmp(FILE *f, const TslPicture *p, SaveContext &ctx) {
  const TslParams &params = ctx.params();
  const bool os2 = params.os2_header != 0;
  const int model = p->color_model;
  const uint32_t w = p->width, hgt = p->height;
  if (os2 && (w > 0xFFFF || hgt > 0xFFFF)) return TSL_ERR_CANT_SAVE;
  if (w > 0x7FFFFFFF || hgt > 0x7FFFFFFF) return TSL_ERR_CANT_SAVE;

  int bits;
  int colors = 0;
  uint8_t pal[768];  // red, green and blue planes
  std::memset(pal, 0, sizeof pal);
  const bool alpha = TSL_IS_TRUECOLOR(model) && channelLayout(model).a >= 0 && !os2;
  if (model == TSL_BINARY) {
    bits = 1;
    colors = 2;
    pal[1] = pal[256 + 1] = pal[512 + 1] = 255;
  } else if (model == TSL_GREY) {
    bits = 8;
    colors = 256;
    for (int i = 0; i < 256; ++i) pal[i] = pal[256 + i] = pal[512 + i] = static_cast<uint8_t>(i);
  } else if (model == TSL_INDEXED) {
    colors = p->colors > 0 && p->colors <= 256 ? p->colors : 256;
    bits = colors <= 2 ? 1 : colors <= 16 ? 4 : 8;
    for (int plane = 0; plane < 3; ++plane) std::memcpy(pal + 256 * plane, p->palette + 256 * plane, colors);
  } else if (TSL_IS_TRUECOLOR(model)) {
    bits = alpha ? 32 : 24;
  } else {
    return TSL_ERR_CANT_SAVE;
  }
  const bool rle = params.compression == 1 && bits == 8 && !os2;
  const bool v4 = bits == 32;  // alpha needs the masks of a V4 header
  const uint32_t header_size = os2 ? 12 : v4 ? 108 : 40;
  const int pal_entries = bits > 8 ? 0 : os2 ? (1 << bits) : colors;
  const uint32_t data_offset = 14 + header_size + pal_entries * (os2 ? 3 : 4);
  const uint64_t stride = (static_cast<uint64_t>(w) * bits + 31) / 32 * 4;
  const uint64_t image_size = rle ? 0 : stride * hgt;
  if (data_offset + image_size > 0xFFFFFFFFu) return TSL_ERR_CANT_SAVE;

  uint32_t dpi_x = params.dpi_x > 0 ? static_cast<uint32_t>(params.dpi_x) : p->attr_pair[0];
  uint32_t dpi_y = params.dpi_y > 0 ? static_cast<uint32_t>(params.dpi_y) : p->attr_pair[1];
  if (dpi_y == 0) dpi_y = dpi_x;
  const uint32_t ppm_x = static_cast<uint32_t>(dpi_x / 0.0254 + 0.5), ppm_y = static_cast<uint32_t>(dpi_y / 0.0254 + 0.5);

  const long base = std::ftell(f);
  bool ok = put8(f, 'B') && put8(f, 'M') && put32le(f, static_cast<uint32_t>(data_offset + image_size)) &&
            put32le(f, 0) && put32le(f, data_offset) && put32le(f, header_size);
  if (os2) {
    ok = ok && put16le(f, w) && put16le(f, hgt) && put16le(f, 1) && put16le(f, bits);
  } else {
    ok = ok && put32le(f, w) && put32le(f, hgt) && put16le(f, 1) && put16le(f, bits) &&
         put32le(f, rle ? kBiRle8 : v4 ? kBiBitfields : kBiRgb) && put32le(f, static_cast<uint32_t>(image_size)) &&
         put32le(f, ppm_x) && put32le(f, ppm_y) && put32le(f, pal_entries) && put32le(f, 0);
    if (v4) {
      ok = ok && put32le(f, 0x00FF0000) && put32le(f, 0x0000FF00) && put32le(f, 0x000000FF) &&
           put32le(f, 0xFF000000) && put32le(f, 0x73524742);  // 'sRGB'
      for (int i = 0; i < 12 && ok; ++i) ok = put32le(f, 0);  // endpoints and gamma
    }
  }
  ok = ok && putBgrPalette(f, pal, pal_entries, !os2);
  if (!ok) return TSL_ERR_WRITE;

  std::vector<uint8_t> line(static_cast<size_t>(stride));
  std::vector<uint8_t> rgba(static_cast<size_t>(w) * 4);
  std::vector<uint8_t> coded;
  uint64_t rle_bytes = 0;
  for (uint32_t r = 0; r < hgt && ok; ++r) {
    const uint32_t y = hgt - 1 - r;
    const uint8_t *src = rowOf(p, y);
    std::fill(line.begin(), line.end(), 0);
    if (model == TSL_BINARY) {
      std::memcpy(line.data(), src, packedLine(w));
      if (w % 8) line[w / 8] &= static_cast<uint8_t>(0xFF00 >> (w % 8));
    } else if (bits == 8) {
      std::memcpy(line.data(), src, w);
    } else if (bits == 1 || bits == 4) {
      const int per = 8 / bits, mask = (1 << bits) - 1;
      for (uint32_t x = 0; x < w; ++x)
        line[x / per] = static_cast<uint8_t>(line[x / per] | (src[x] & mask) << (8 - bits * (x % per + 1)));
    } else {
      bgrRow(p, y, bits / 8, rgba.data(), line.data());
    }
    if (rle) {
      coded.clear();
      encodeRle8Row(line.data(), w, &coded);
      coded.push_back(0);
      coded.push_back(r + 1 == hgt ? 1 : 0);  // end of line, or of the bitmap after the last
      ok = putBytes(f, coded.data(), coded.size());
      rle_bytes += coded.size();
    } else {
      ok = putBytes(f, line.data(), line.size());
    }
    ctx.progress(r + 1, hgt);
  }
  if (!ok) return TSL_ERR_WRITE;
  if (rle) {
    if (data_offset + rle_bytes > 0xFFFFFFFFu) return TSL_ERR_CANT_SAVE;
    if (base < 0 || std::fseek(f, base + 2, SEEK_SET) != 0 ||
        !put32le(f, static_cast<uint32_t>(data_offset + rle_bytes)) || std::fseek(f, base + 34, SEEK_SET) != 0 ||
        !put32le(f, static_cast<uint32_t>(rle_bytes)) || std::fseek(f, 0, SEEK_END) != 0)
      return TSL_ERR_WRITE;
  }
  return TSL_OK;
}

}  // namespace

extern const FormatDef kBmpFormat = {
    "bmp", "Windows/OS2 Bitmap", "bmp;dib;rle",
    {{1, 2, -1, -1}, {2, 256, -1, -1}, {4, 256, -1, -1}, {1008, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, false, sniffBmp, infoBmp, loadBmp, saveBmp, nullptr};

}  // namespace tessel
