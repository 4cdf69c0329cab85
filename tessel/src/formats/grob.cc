// HP48/HP49 graphic objects (GROB).  A binary transfer file is "HPHP48-" or
// "HPHP49-" and one letter, then the object as 4-bit nibbles, low nibble of
// each byte first: the prolog 02B1E, the object size, height and width (five
// nibbles each, least significant first), then the rows, each a whole number
// of bytes, four pixels a nibble with the leftmost in the lowest bit; a set
// bit is black.  The calculators' text form "GROB <width> <height> <hex>"
// holds the same nibbles as hexadecimal digits.
// Grey GROBs stack their bit planes vertically: with grob_bpp bits per pixel
// the picture is height / grob_bpp rows high and a pixel's darkness is the
// number of planes that set it.
// Writer: bilevel pictures, with the HP49 header when hp49_header is set.
#include <cctype>
#include <algorithm>
#include <cstring>
#include <vector>

#include "../bytes.h"
#include "../format.h"

namespace tessel {

namespace {

constexpr uint32_t kProlog = 0x02B1E;
constexpr size_t kBinaryHeader = 8;

// The object's nibbles, from the binary or the text form.
struct Nibbles {
  std::vector<uint8_t> store;  // text form: decoded digits
  const uint8_t *bytes = nullptr;
  size_t count = 0;             // nibbles available
  bool text = false;

  int at(size_t i) const {
    if (text) return store[i];
    return i & 1 ? bytes[i / 2] >> 4 : bytes[i / 2] & 0x0f;
  }
  uint32_t field(size_t i) const {  // five nibbles, least significant first
    uint32_t v = 0;
    for (int k = 4; k >= 0; --k) v = v << 4 | static_cast<uint32_t>(at(i + static_cast<size_t>(k)));
    return v;
  }
};

struct GrobHeader {
  uint32_t width = 0, height = 0;  // of the whole object (all planes)
  size_t data = 0;                 // first nibble of the rows
  Nibbles nib;
};

bool isBinary(const uint8_t *d, size_t n) {
  return n >= kBinaryHeader && (std::memcmp(d, "HPHP48-", 7) == 0 || std::memcmp(d, "HPHP49-", 7) == 0);
}

// "GROB" after optional blanks, at the start of a text file.
size_t textStart(const uint8_t *d, size_t n) {
  size_t i = 0;
  while (i < n && i < 64 && std::isspace(d[i])) ++i;
  return i + 5 <= n && std::memcmp(d + i, "GROB", 4) == 0 && std::isspace(d[i + 4]) ? i + 4 : 0;
}

// Reads an unsigned decimal number after blanks; false when there is none.
bool textNumber(const uint8_t *d, size_t n, size_t *pos, uint32_t *v) {
  while (*pos < n && std::isspace(d[*pos])) ++*pos;
  uint64_t value = 0;
  size_t start = *pos;
  while (*pos < n && std::isdigit(d[*pos]) && value < 0x100000) value = value * 10 + (d[(*pos)++] - '0');
  *v = static_cast<uint32_t>(value);
  return *pos > start && value < 0x100000;
}

int parseHeader(const Source &src, GrobHeader *h, char *msg, size_t msg_size) {
  const uint8_t *d = src.data;
  const size_t text = textStart(d, src.size);
  if (isBinary(d, src.size)) {
    h->nib.bytes = d + kBinaryHeader;
    h->nib.count = 2 * (src.size - kBinaryHeader);
    if (h->nib.count < 20) return TSL_ERR_READ;
    if (h->nib.field(0) != kProlog) {
      std::snprintf(msg, msg_size, "The HP48/49 object is not a graphic object");
      return TSL_ERR_BAD_FILE;
    }
    h->height = h->nib.field(10);
    h->width = h->nib.field(15);
    h->data = 20;
  } else if (text) {
    size_t pos = text;
    if (!textNumber(d, src.size, &pos, &h->width) || !textNumber(d, src.size, &pos, &h->height)) {
      std::snprintf(msg, msg_size, "GROB text without its size");
      return TSL_ERR_BAD_FILE;
    }
    h->nib.text = true;
    for (; pos < src.size; ++pos) {
      const int c = d[pos];
      if (std::isxdigit(c)) h->nib.store.push_back(static_cast<uint8_t>(std::isdigit(c) ? c - '0' : (c | 0x20) - 'a' + 10));
      else if (!std::isspace(c)) break;
    }
    h->nib.count = h->nib.store.size();
    h->data = 0;
  } else {
    std::snprintf(msg, msg_size, "Not an HP48/49 graphic object");
    return TSL_ERR_BAD_FILE;
  }
  if (h->width == 0 || h->height == 0) {
    std::snprintf(msg, msg_size, "The graphic object has no size");
    return TSL_ERR_BAD_FILE;
  }
  return TSL_OK;
}

// Bits per pixel from the parameters, when the object's height holds that many planes.
int planesFor(const GrobHeader &h, const TslParams &params) {
  const int bpp = params.grob_bpp;
  return bpp > 1 && bpp <= 8 && h.height % static_cast<uint32_t>(bpp) == 0 ? bpp : 1;
}

int grobInfo(const Source &src, int, TslFileInfo *info) {
  GrobHeader h;
  int code = parseHeader(src, &h, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  info->width = h.width;
  info->height = h.height;
  info->bits_per_plane = 1;
  info->planes = 1;
  info->color_model = TSL_BINARY;
  info->colors = 2;
  info->compression = TSL_COMP_NONE;
  info->pages = 1;
  return TSL_OK;
}

int grobLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  GrobHeader h;
  char msg[256] = {0};
  int code = parseHeader(src, &h, msg, sizeof msg);
  if (code != TSL_OK) return ctx.fail(code, msg);
  const int planes = planesFor(h, ctx.params());
  const uint32_t rows = h.height / static_cast<uint32_t>(planes);
  if (!ctx.sizeAllowed(h.width, rows)) return TSL_ERR_MEMORY;
  const uint64_t row_nibbles = (static_cast<uint64_t>(h.width) + 7) / 8 * 2;
  const uint64_t need = h.data + row_nibbles * h.height;
  if (need > h.nib.count && !ctx.keepDamaged()) return TSL_ERR_READ;
  code = ctx.alloc(picture, planes == 1 ? TSL_BINARY : TSL_GREY, h.width, rows);
  if (code != TSL_OK) return code;
  if (planes > 1) picture->colors = static_cast<int16_t>(planes + 1);
  std::vector<uint8_t> dark(h.width);
  for (uint32_t y = 0; y < rows; ++y) {
    std::fill(dark.begin(), dark.end(), 0);
    for (int p = 0; p < planes; ++p) {
      const uint64_t at = h.data + row_nibbles * (static_cast<uint64_t>(p) * rows + y);
      for (uint32_t x = 0; x < h.width; ++x) {
        const uint64_t n = at + x / 4;
        if (n < h.nib.count && (h.nib.at(static_cast<size_t>(n)) >> (x % 4) & 1)) ++dark[x];
      }
    }
    uint8_t *out = rowOf(picture, y);
    for (uint32_t x = 0; x < h.width; ++x) {
      if (planes == 1) setBit(out, x, dark[x] ? 0 : 1);
      else out[x] = static_cast<uint8_t>(255 - dark[x] * 255 / planes);
    }
    if (ctx.progress(y + 1, rows)) return TSL_STOPPED;
  }
  return TSL_OK;
}

int grobSave(FILE *file, const TslPicture *pic, SaveContext &ctx) {
  const uint32_t w = pic->width, h = pic->height;
  const uint64_t row_nibbles = (static_cast<uint64_t>(w) + 7) / 8 * 2;
  const uint64_t size = 15 + row_nibbles * h;  // size, height, width and the rows
  if (w > 0xfffff || h > 0xfffff || size > 0xfffff) return TSL_ERR_CANT_SAVE;
  std::vector<uint8_t> nib;
  auto field = [&](uint32_t v) {
    for (int k = 0; k < 5; ++k) nib.push_back(static_cast<uint8_t>(v >> (4 * k) & 0xf));
  };
  field(kProlog);
  field(static_cast<uint32_t>(size));
  field(h);
  field(w);
  for (uint32_t y = 0; y < h; ++y) {
    const uint8_t *row = rowOf(pic, y);
    for (uint64_t n = 0; n < row_nibbles; ++n) {
      uint8_t v = 0;
      for (uint32_t k = 0; k < 4; ++k) {
        const uint64_t x = n * 4 + k;
        if (x < w && !getBit(row, static_cast<uint32_t>(x))) v |= static_cast<uint8_t>(1u << k);
      }
      nib.push_back(v);
    }
    ctx.progress(y + 1, h);
  }
  if (nib.size() % 2) nib.push_back(0);
  std::vector<uint8_t> bytes(nib.size() / 2);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(nib[2 * i] | nib[2 * i + 1] << 4);
  const char *header = ctx.params().hp49_header ? "HPHP49-C" : "HPHP48-R";
  if (!putBytes(file, header, kBinaryHeader) || !putBytes(file, bytes.data(), bytes.size())) return TSL_ERR_WRITE;
  return TSL_OK;
}

bool grobSniff(const uint8_t *d, size_t size) {
  if (isBinary(d, size)) return size >= kBinaryHeader + 3 && (d[8] | d[9] << 8 | (d[10] & 0xf) << 16) == kProlog;
  return textStart(d, size) != 0;
}

}  // namespace

extern const FormatDef kGrobFormat = {
    "grob", "HP48/49 Graphic Object", "grob;gro;hp",
    {{1, 2, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, false, grobSniff, grobInfo, grobLoad, grobSave, nullptr};

}  // namespace tessel
