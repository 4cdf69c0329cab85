// ZSoft Paintbrush (PCX) pictures and their multi-page container (DCX).
// Reader: versions 0..5, 1 to 4 planes of 1 bit, 2, 4 and 8 bits packed,
// 8-bit with the 256-colour palette at the end, 3 or 4 planes of 8 bits; RLE
// or uncompressed.  Writer: bilevel, 16 colours in 4 planes, 256 colours,
// 24-bit in 3 planes, RLE when compression is 1.
#include <cstring>
#include <vector>

#include "../bytes.h"
#include "../format.h"

namespace tessel {

namespace {

constexpr uint32_t kDcxMagic = 987654321;
constexpr int kDcxMaxPages = 1023;
constexpr size_t kDcxTableBytes = 4 + 4 * (kDcxMaxPages + 1);

const uint8_t kEgaPalette[16][3] = {
    {0x00, 0x00, 0x00}, {0x00, 0x00, 0xAA}, {0x00, 0xAA, 0x00}, {0x00, 0xAA, 0xAA},
    {0xAA, 0x00, 0x00}, {0xAA, 0x00, 0xAA}, {0xAA, 0x55, 0x00}, {0xAA, 0xAA, 0xAA},
    {0x55, 0x55, 0x55}, {0x55, 0x55, 0xFF}, {0x55, 0xFF, 0x55}, {0x55, 0xFF, 0xFF},
    {0xFF, 0x55, 0x55}, {0xFF, 0x55, 0xFF}, {0xFF, 0xFF, 0x55}, {0xFF, 0xFF, 0xFF}};

struct PcxHeader {
  int version = 0, encoding = 0, bpp = 0, planes = 0;
  uint32_t width = 0, height = 0;
  uint32_t bpl = 0;  // bytes per line of one plane
  int hdpi = 0, vdpi = 0;
  const uint8_t *cmap = nullptr;  // 16 entries in the header
  int palette_info = 0;
  bool trailing_palette = false;  // 0x0C + 768 bytes at the end
};

bool validVersion(int v) { return v == 0 || v == 2 || v == 3 || v == 4 || v == 5; }

bool sniffPcx(const uint8_t *d, size_t n) {
  if (n < 128 || d[0] != 0x0A || !validVersion(d[1]) || d[2] > 1) return false;
  const int bpp = d[3], planes = d[65];
  if (!(bpp == 1 || bpp == 2 || bpp == 4 || bpp == 8) || planes < 1 || planes > 4) return false;
  return le16(d + 8) >= le16(d + 4) && le16(d + 10) >= le16(d + 6) && le16(d + 66) != 0;
}

// Reads the 128-byte header of a PCX picture held in d[0 .. n).
int parseHeader(const uint8_t *d, size_t n, PcxHeader *h, char *msg, size_t msg_size) {
  if (n < 128) return TSL_ERR_READ;
  if (d[0] != 0x0A || !validVersion(d[1]) || d[2] > 1) {
    std::snprintf(msg, msg_size, "Not a PCX picture");
    return TSL_ERR_BAD_FILE;
  }
  h->version = d[1];
  h->encoding = d[2];
  h->bpp = d[3];
  const int xmin = le16(d + 4), ymin = le16(d + 6), xmax = le16(d + 8), ymax = le16(d + 10);
  h->hdpi = le16(d + 12);
  h->vdpi = le16(d + 14);
  h->cmap = d + 16;
  h->planes = d[65];
  h->bpl = le16(d + 66);
  h->palette_info = le16(d + 68);
  if (xmax < xmin || ymax < ymin) {
    std::snprintf(msg, msg_size, "PCX: bad picture window %d,%d-%d,%d", xmin, ymin, xmax, ymax);
    return TSL_ERR_BAD_FILE;
  }
  h->width = static_cast<uint32_t>(xmax - xmin + 1);
  h->height = static_cast<uint32_t>(ymax - ymin + 1);
  const int b = h->bpp, p = h->planes;
  if (!((b == 1 && p >= 1 && p <= 4) || (b == 2 && p == 1) || (b == 4 && p == 1) ||
        (b == 8 && (p == 1 || p == 3 || p == 4)))) {
    std::snprintf(msg, msg_size, "PCX: %d planes of %d bits are not supported", p, b);
    return TSL_ERR_BAD_FILE;
  }
  if (h->bpl < (static_cast<uint64_t>(h->width) * b + 7) / 8) {
    std::snprintf(msg, msg_size, "PCX: %u bytes per line are too few for %u pixels", h->bpl, h->width);
    return TSL_ERR_BAD_FILE;
  }
  h->trailing_palette = b == 8 && p == 1 && n >= 128 + 769 && d[n - 769] == 0x0C;
  return TSL_OK;
}

int modelFor(const PcxHeader &h, const uint8_t *d, size_t n) {
  if (h.bpp == 1 && h.planes == 1) return TSL_BINARY;
  if (h.bpp == 8 && h.planes == 3) return TSL_RGB;
  if (h.bpp == 8 && h.planes == 4) return TSL_RGBA;
  if (h.bpp == 8) {
    if (!h.trailing_palette) return TSL_GREY;
    // A palette that is exactly the grey ramp gives a grey picture.
    const uint8_t *pal = d + n - 768;
    for (int i = 0; i < 256; ++i)
      if (pal[3 * i] != i || pal[3 * i + 1] != i || pal[3 * i + 2] != i) return TSL_INDEXED;
    return TSL_GREY;
  }
  return TSL_INDEXED;
}

// The RLE (or plain) byte stream of the picture data, bounded by `end`.
class PcxStream {
 public:
  PcxStream(const uint8_t *d, size_t pos, size_t end, bool rle) : d_(d), pos_(pos), end_(end), rle_(rle) {}
  // Fills n bytes; false when the data ends first (the rest is zero).
  bool read(uint8_t *out, size_t n) {
    size_t i = 0;
    while (i < n) {
      if (run_ > 0) {
        size_t k = run_ < n - i ? run_ : n - i;
        std::memset(out + i, value_, k);
        run_ -= k;
        i += k;
        continue;
      }
      if (pos_ >= end_) {
        std::memset(out + i, 0, n - i);
        return false;
      }
      const uint8_t b = d_[pos_++];
      if (!rle_) {
        out[i++] = b;
      } else if ((b & 0xC0) == 0xC0) {
        if (pos_ >= end_) {
          std::memset(out + i, 0, n - i);
          return false;
        }
        run_ = b & 0x3F;
        value_ = d_[pos_++];
      } else {
        out[i++] = b;
      }
    }
    return true;
  }

 private:
  const uint8_t *d_;
  size_t pos_, end_;
  bool rle_;
  size_t run_ = 0;
  uint8_t value_ = 0;
};

void fillInfo(const PcxHeader &h, int model, TslFileInfo *info) {
  info->width = h.width;
  info->height = h.height;
  info->color_model = model;
  info->bits_per_plane = h.bpp;
  info->planes = h.planes;
  info->colors = h.bpp == 8 && h.planes >= 3 ? 1L << 24 : 1L << (h.bpp * h.planes);
  info->has_alpha = model == TSL_RGBA;
  info->compression = h.encoding ? TSL_COMP_RLE : TSL_COMP_NONE;
  info->dpi_x = h.hdpi;
  info->dpi_y = h.vdpi;
}

int infoPcx(const Source &src, int /*page*/, TslFileInfo *info) {
  PcxHeader h;
  int code = parseHeader(src.data, src.size, &h, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  fillInfo(h, modelFor(h, src.data, src.size), info);
  info->pages = 1;
  return TSL_OK;
}

// Decodes one PCX picture held in d[0 .. n).
int decodePcx(const uint8_t *d, size_t n, TslPicture *pic, LoadContext &ctx) {
  PcxHeader h;
  char msg[256] = {0};
  int code = parseHeader(d, n, &h, msg, sizeof msg);
  if (code != TSL_OK) return ctx.fail(code, msg);
  if (!ctx.sizeAllowed(h.width, h.height)) return TSL_ERR_MEMORY;
  const int model = modelFor(h, d, n);
  code = ctx.alloc(pic, model, h.width, h.height);
  if (code != TSL_OK) return code;
  pic->attr_pair[0] = static_cast<uint32_t>(h.hdpi);
  pic->attr_pair[1] = static_cast<uint32_t>(h.vdpi);
  if (model == TSL_INDEXED) {
    if (h.bpp == 8) {
      const uint8_t *pal = d + n - 768;
      for (int i = 0; i < 256; ++i) {
        pic->palette[i] = pal[3 * i];
        pic->palette[256 + i] = pal[3 * i + 1];
        pic->palette[512 + i] = pal[3 * i + 2];
      }
      pic->colors = 256;
    } else {
      const int colors = 1 << (h.bpp * h.planes);
      bool empty = true;
      for (int i = 0; i < 3 * colors; ++i) empty = empty && h.cmap[i] == 0;
      // Version 3 files carry no palette: the EGA colours apply.
      const bool ega = empty || h.version == 3;
      for (int i = 0; i < colors; ++i) {
        const uint8_t *e = ega ? kEgaPalette[i] : h.cmap + 3 * i;
        pic->palette[i] = e[0];
        pic->palette[256 + i] = e[1];
        pic->palette[512 + i] = e[2];
      }
      pic->colors = static_cast<int16_t>(colors);
    }
  }
  const size_t end = h.trailing_palette ? n - 769 : n;
  PcxStream stream(d, 128, end, h.encoding == 1);
  const size_t line_bytes = static_cast<size_t>(h.bpl) * h.planes;
  std::vector<uint8_t> line(line_bytes);
  const uint32_t w = h.width;
  for (uint32_t y = 0; y < h.height; ++y) {
    const bool complete = stream.read(line.data(), line_bytes);
    if (!complete && !ctx.keepDamaged()) return TSL_ERR_READ;
    uint8_t *out = rowOf(pic, y);
    const uint8_t *s = line.data();
    if (model == TSL_BINARY) {
      std::memcpy(out, s, packedLine(w));
    } else if (h.bpp == 1) {
      for (uint32_t x = 0; x < w; ++x) {
        int v = 0;
        for (int p = 0; p < h.planes; ++p) v |= getBit(s + static_cast<size_t>(p) * h.bpl, x) << p;
        out[x] = static_cast<uint8_t>(v);
      }
    } else if (h.bpp == 2) {
      for (uint32_t x = 0; x < w; ++x) out[x] = (s[x / 4] >> (6 - 2 * (x % 4))) & 3;
    } else if (h.bpp == 4) {
      for (uint32_t x = 0; x < w; ++x) out[x] = (x & 1) ? (s[x / 2] & 15) : (s[x / 2] >> 4);
    } else if (h.planes == 1) {
      std::memcpy(out, s, w);
    } else {
      const int np = h.planes;
      for (int p = 0; p < np; ++p) {
        const uint8_t *plane = s + static_cast<size_t>(p) * h.bpl;
        for (uint32_t x = 0; x < w; ++x) out[static_cast<size_t>(x) * np + p] = plane[x];
      }
    }
    if (!complete) break;  // the partial row is kept, the rest stays empty
    if (ctx.progress(y + 1, h.height)) return TSL_STOPPED;
  }
  return TSL_OK;
}

int loadPcx(const Source &src, TslPicture *pic, LoadContext &ctx) { return decodePcx(src.data, src.size, pic, ctx); }

// ---- Writer ----------------------------------------------------------------

void encodeRle(const uint8_t *s, size_t n, std::vector<uint8_t> *out) {
  size_t i = 0;
  while (i < n) {
    size_t run = 1;
    while (i + run < n && run < 63 && s[i + run] == s[i]) ++run;
    if (run > 1 || (s[i] & 0xC0) == 0xC0) {
      out->push_back(static_cast<uint8_t>(0xC0 | run));
    }
    out->push_back(s[i]);
    i += run;
  }
}

int savePcx(FILE *f, const TslPicture *p, SaveContext &ctx) {
  const int model = p->color_model;
  const uint32_t w = p->width, rows = p->height;
  if (w > 65535 || rows > 65536) return TSL_ERR_CANT_SAVE;
  int bpp, planes, palette_info = 1;
  uint8_t cmap[48];
  std::memset(cmap, 0, sizeof cmap);
  bool trailing = false;
  int colors = 0;
  if (model == TSL_BINARY) {
    bpp = 1;
    planes = 1;
    cmap[3] = cmap[4] = cmap[5] = 255;
  } else if (model == TSL_INDEXED) {
    colors = p->colors > 0 && p->colors <= 256 ? p->colors : 256;
    if (colors <= 16) {
      bpp = 1;
      planes = 4;
      for (int i = 0; i < 16; ++i) {
        cmap[3 * i] = p->palette[i];
        cmap[3 * i + 1] = p->palette[256 + i];
        cmap[3 * i + 2] = p->palette[512 + i];
      }
    } else {
      bpp = 8;
      planes = 1;
      trailing = true;
    }
  } else if (model == TSL_GREY) {
    bpp = 8;
    planes = 1;
    trailing = true;
    palette_info = 2;
  } else if (TSL_IS_TRUECOLOR(model)) {
    bpp = 8;
    planes = 3;
  } else {
    return TSL_ERR_CANT_SAVE;
  }
  uint32_t bpl = static_cast<uint32_t>((static_cast<uint64_t>(w) * bpp + 7) / 8);
  bpl += bpl & 1;  // lines are an even number of bytes
  if (bpl > 65535) return TSL_ERR_CANT_SAVE;
  const bool rle = ctx.params().compression == 1;
  uint32_t dpi_x = ctx.params().dpi_x > 0 ? static_cast<uint32_t>(ctx.params().dpi_x) : p->attr_pair[0];
  uint32_t dpi_y = ctx.params().dpi_y > 0 ? static_cast<uint32_t>(ctx.params().dpi_y) : p->attr_pair[1];
  if (dpi_y == 0) dpi_y = dpi_x;

  uint8_t head[128];
  std::memset(head, 0, sizeof head);
  head[0] = 0x0A;
  head[1] = 5;
  head[2] = rle ? 1 : 0;
  head[3] = static_cast<uint8_t>(bpp);
  head[8] = static_cast<uint8_t>((w - 1) & 0xFF);
  head[9] = static_cast<uint8_t>((w - 1) >> 8);
  head[10] = static_cast<uint8_t>((rows - 1) & 0xFF);
  head[11] = static_cast<uint8_t>((rows - 1) >> 8);
  head[12] = static_cast<uint8_t>(dpi_x > 65535 ? 0xFF : dpi_x & 0xFF);
  head[13] = static_cast<uint8_t>(dpi_x > 65535 ? 0xFF : dpi_x >> 8);
  head[14] = static_cast<uint8_t>(dpi_y > 65535 ? 0xFF : dpi_y & 0xFF);
  head[15] = static_cast<uint8_t>(dpi_y > 65535 ? 0xFF : dpi_y >> 8);
  std::memcpy(head + 16, cmap, 48);
  head[65] = static_cast<uint8_t>(planes);
  head[66] = static_cast<uint8_t>(bpl & 0xFF);
  head[67] = static_cast<uint8_t>(bpl >> 8);
  head[68] = static_cast<uint8_t>(palette_info);
  if (!putBytes(f, head, sizeof head)) return TSL_ERR_WRITE;

  std::vector<uint8_t> line(static_cast<size_t>(bpl) * planes);
  std::vector<uint8_t> rgb(static_cast<size_t>(w) * 3);
  std::vector<uint8_t> coded;
  bool ok = true;
  for (uint32_t y = 0; y < rows && ok; ++y) {
    const uint8_t *s = rowOf(p, y);
    std::fill(line.begin(), line.end(), 0);
    if (model == TSL_BINARY) {
      std::memcpy(line.data(), s, packedLine(w));
      if (w % 8) line[w / 8] &= static_cast<uint8_t>(0xFF00 >> (w % 8));
    } else if (bpp == 1) {
      for (uint32_t x = 0; x < w; ++x)
        for (int pl = 0; pl < 4; ++pl)
          if ((s[x] >> pl) & 1) line[static_cast<size_t>(pl) * bpl + x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
    } else if (planes == 1) {
      std::memcpy(line.data(), s, w);
    } else {
      tslGetRowRGB(p, y, rgb.data());
      for (int pl = 0; pl < 3; ++pl)
        for (uint32_t x = 0; x < w; ++x) line[static_cast<size_t>(pl) * bpl + x] = rgb[3 * x + pl];
    }
    if (rle) {
      coded.clear();
      for (int pl = 0; pl < planes; ++pl) encodeRle(line.data() + static_cast<size_t>(pl) * bpl, bpl, &coded);
      ok = putBytes(f, coded.data(), coded.size());
    } else {
      ok = putBytes(f, line.data(), line.size());
    }
    ctx.progress(y + 1, rows);
  }
  if (ok && trailing) {
    uint8_t pal[769];
    pal[0] = 0x0C;
    for (int i = 0; i < 256; ++i) {
      if (model == TSL_GREY) {
        pal[1 + 3 * i] = pal[2 + 3 * i] = pal[3 + 3 * i] = static_cast<uint8_t>(i);
      } else {
        pal[1 + 3 * i] = p->palette[i];
        pal[2 + 3 * i] = p->palette[256 + i];
        pal[3 + 3 * i] = p->palette[512 + i];
      }
    }
    ok = putBytes(f, pal, sizeof pal);
  }
  return ok ? TSL_OK : TSL_ERR_WRITE;
}

// ---- DCX ---------------------------------------------------------------------

bool sniffDcx(const uint8_t *d, size_t n) { return n >= 8 && le32(d) == kDcxMagic; }

// Page offsets of a DCX file (the table ends at a zero entry).
int dcxTable(const Source &src, std::vector<uint32_t> *offsets, char *msg, size_t msg_size) {
  if (src.size < 8) return TSL_ERR_READ;
  if (le32(src.data) != kDcxMagic) {
    std::snprintf(msg, msg_size, "Not a DCX file");
    return TSL_ERR_BAD_FILE;
  }
  offsets->clear();
  for (int i = 0; i < kDcxMaxPages; ++i) {
    const size_t at = 4 + 4 * static_cast<size_t>(i);
    if (at + 4 > src.size) break;
    const uint32_t off = le32(src.data + at);
    if (off == 0) break;
    offsets->push_back(off);
  }
  if (offsets->empty()) {
    std::snprintf(msg, msg_size, "DCX: the file holds no page");
    return TSL_ERR_BAD_FILE;
  }
  return TSL_OK;
}

// The byte range of one page: from its offset to the next larger one or the end.
int dcxPage(const Source &src, int page, const uint8_t **data, size_t *size, char *msg, size_t msg_size) {
  std::vector<uint32_t> offsets;
  int code = dcxTable(src, &offsets, msg, msg_size);
  if (code != TSL_OK) return code;
  if (page < 0 || static_cast<size_t>(page) >= offsets.size()) {
    std::snprintf(msg, msg_size, "DCX: page %d is not in the file", page);
    return TSL_ERR_BAD_FILE;
  }
  const uint32_t start = offsets[page];
  if (start >= src.size) return TSL_ERR_READ;
  size_t end = src.size;
  for (uint32_t off : offsets)
    if (off > start && off < end) end = off;
  *data = src.data + start;
  *size = end - start;
  return TSL_OK;
}

int infoDcx(const Source &src, int page, TslFileInfo *info) {
  std::vector<uint32_t> offsets;
  int code = dcxTable(src, &offsets, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  const uint8_t *d;
  size_t n;
  code = dcxPage(src, page, &d, &n, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  PcxHeader h;
  code = parseHeader(d, n, &h, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  fillInfo(h, modelFor(h, d, n), info);
  info->pages = static_cast<int>(offsets.size());
  return TSL_OK;
}

int loadDcx(const Source &src, TslPicture *pic, LoadContext &ctx) {
  const uint8_t *d;
  size_t n;
  char msg[256] = {0};
  int code = dcxPage(src, ctx.page(), &d, &n, msg, sizeof msg);
  if (code != TSL_OK) return ctx.fail(code, msg);
  return decodePcx(d, n, pic, ctx);
}

// Writes the table first with zeros, one PCX per page after it, and the
// page offsets into the table at the end.
class DcxWriter : public PageWriter {
 public:
  DcxWriter(FILE *f, long base) : f_(f), base_(base) {}
  int add(const TslPicture *picture, SaveContext &ctx) override {
    if (offsets_.size() >= static_cast<size_t>(kDcxMaxPages)) return TSL_ERR_CANT_SAVE;
    const long pos = std::ftell(f_);
    if (pos < base_ || static_cast<uint64_t>(pos - base_) > 0xFFFFFFFFu) return TSL_ERR_WRITE;
    int code = savePcx(f_, picture, ctx);
    if (code == TSL_OK) offsets_.push_back(static_cast<uint32_t>(pos - base_));
    else std::fseek(f_, pos, SEEK_SET);
    return code;
  }
  int finish() override {
    if (std::fseek(f_, base_ + 4, SEEK_SET) != 0) return TSL_ERR_WRITE;
    for (uint32_t off : offsets_)
      if (!put32le(f_, off)) return TSL_ERR_WRITE;
    return std::fseek(f_, 0, SEEK_END) == 0 ? TSL_OK : TSL_ERR_WRITE;
  }

 private:
  FILE *f_;
  long base_;
  std::vector<uint32_t> offsets_;
};

PageWriter *createDcx(FILE *f, int /*pages*/, SaveContext & /*ctx*/, int *error) {
  const long base = std::ftell(f);
  std::vector<uint8_t> table(kDcxTableBytes, 0);
  table[0] = kDcxMagic & 0xFF;
  table[1] = (kDcxMagic >> 8) & 0xFF;
  table[2] = (kDcxMagic >> 16) & 0xFF;
  table[3] = kDcxMagic >> 24;
  if (base < 0 || !putBytes(f, table.data(), table.size())) {
    *error = TSL_ERR_WRITE;
    return nullptr;
  }
  return new DcxWriter(f, base);
}

int saveDcx(FILE *f, const TslPicture *p, SaveContext &ctx) {
  int error = TSL_OK;
  PageWriter *w = createDcx(f, 1, ctx, &error);
  if (!w) return error;
  int code = w->add(p, ctx);
  int done = w->finish();
  delete w;
  return code != TSL_OK ? code : done;
}

}  // namespace

extern const FormatDef kPcxFormat = {
    "pcx", "ZSoft Paintbrush", "pcx;pcc",
    {{1, 2, -1, -1}, {2, 256, -1, -1}, {4, 256, -1, -1}, {1008, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicWeak, false, sniffPcx, infoPcx, loadPcx, savePcx, nullptr};

extern const FormatDef kDcxFormat = {
    "dcx", "ZSoft Multi-page Paintbrush", "dcx",
    {{1, 2, -1, -1}, {2, 256, -1, -1}, {4, 256, -1, -1}, {1008, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, true, sniffDcx, infoDcx, loadDcx, saveDcx, createDcx};

}  // namespace tessel
