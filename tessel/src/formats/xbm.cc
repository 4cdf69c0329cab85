// X bitmaps: C source with "#define name_width W", "#define name_height H"
// (optional hot spot) and "static char name_bits[] = { 0x.., ... };".  The
// X10 form stores 16-bit "short" values.  Bits run least significant first
// within each value and a set bit is black.
#include <cstring>
#include <string>
#include <vector>

#include "../bytes.h"
#include "../format.h"
#include "ctext.h"

namespace tessel {

namespace {

// A small lexer over the C text.
class Lexer {
 public:
  Lexer(const uint8_t *data, size_t size) : d_(data), n_(size) {}
  bool atEnd() const { return p_ >= n_; }
  size_t pos() const { return p_; }

  // Skips blanks and C/C++ comments.
  void skipSpace() {
    while (p_ < n_) {
      const uint8_t c = d_[p_];
      if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v') {
        ++p_;
      } else if (c == '/' && p_ + 1 < n_ && d_[p_ + 1] == '*') {
        p_ += 2;
        while (p_ + 1 < n_ && !(d_[p_] == '*' && d_[p_ + 1] == '/')) ++p_;
        p_ = p_ + 2 < n_ ? p_ + 2 : n_;
      } else if (c == '/' && p_ + 1 < n_ && d_[p_ + 1] == '/') {
        while (p_ < n_ && d_[p_] != '\n') ++p_;
      } else {
        break;
      }
    }
  }
  static bool wordChar(uint8_t c) { return c == '_' || c == '#' || (c >= '0' && c <= '9') || ((c | 32) >= 'a' && (c | 32) <= 'z'); }
  // The next word (identifier, keyword or number), or one punctuation character.
  std::string token() {
    skipSpace();
    if (p_ >= n_) return std::string();
    size_t s = p_;
    if (wordChar(d_[p_])) {
      while (p_ < n_ && wordChar(d_[p_])) ++p_;
    } else {
      ++p_;
    }
    return std::string(reinterpret_cast<const char *>(d_ + s), p_ - s);
  }
  // A decimal or 0x hexadecimal number; false when the next token is none.
  bool number(uint64_t *value) {
    skipSpace();
    if (p_ >= n_ || d_[p_] < '0' || d_[p_] > '9') return false;
    uint64_t v = 0;
    if (d_[p_] == '0' && p_ + 1 < n_ && (d_[p_ + 1] | 32) == 'x') {
      p_ += 2;
      int digits = 0;
      while (p_ < n_) {
        const uint8_t c = d_[p_];
        int h = c >= '0' && c <= '9' ? c - '0' : (c | 32) >= 'a' && (c | 32) <= 'f' ? (c | 32) - 'a' + 10 : -1;
        if (h < 0) break;
        if (v < (uint64_t(1) << 56)) v = v * 16 + static_cast<uint64_t>(h);
        ++p_;
        ++digits;
      }
      if (digits == 0) return false;
    } else {
      while (p_ < n_ && d_[p_] >= '0' && d_[p_] <= '9') {
        if (v < (uint64_t(1) << 56)) v = v * 10 + (d_[p_] - '0');
        ++p_;
      }
    }
    *value = v;
    return true;
  }
  // The next run of non-blank characters (a macro name may hold any of them).
  std::string word() {
    skipSpace();
    size_t s = p_;
    while (p_ < n_ && d_[p_] != ' ' && d_[p_] != '\t' && d_[p_] != '\n' && d_[p_] != '\r') ++p_;
    return std::string(reinterpret_cast<const char *>(d_ + s), p_ - s);
  }
  uint8_t peek() {
    skipSpace();
    return p_ < n_ ? d_[p_] : 0;
  }
  void advance() { ++p_; }

 private:
  const uint8_t *d_;
  size_t n_, p_ = 0;
};

bool endsWith(const std::string &s, const char *suffix) {
  size_t n = std::strlen(suffix);
  return s.size() >= n && s.compare(s.size() - n, n, suffix) == 0;
}

struct XbmHeader {
  uint64_t width = 0, height = 0;
  bool x10 = false;
  size_t data_pos = 0;  // just after the '{'
};

// Reads the defines up to the opening brace of the bits array.
int parseHeader(const Source &src, XbmHeader *h, const char **why) {
  *why = nullptr;
  Lexer lx(src.data, src.size);
  bool have_w = false, have_h = false;
  for (;;) {
    std::string t = lx.token();
    if (t.empty()) {
      *why = "XBM file has no bits array";
      return have_w && have_h ? TSL_ERR_READ : TSL_ERR_BAD_FILE;
    }
    if (t == "#define") {
      std::string name = lx.word();
      uint64_t v;
      if (!lx.number(&v)) continue;
      if (name == "width" || endsWith(name, "_width")) {
        h->width = v;
        have_w = true;
      } else if (name == "height" || endsWith(name, "_height")) {
        h->height = v;
        have_h = true;
      }
    } else if (t == "short") {
      h->x10 = true;
    } else if (t == "char") {
      h->x10 = false;
    } else if (t == "{") {
      break;
    }
  }
  if (!have_w || !have_h || h->width == 0 || h->height == 0) {
    *why = "XBM file lacks its width or height";
    return TSL_ERR_BAD_FILE;
  }
  if (h->width > 0xffffffu || h->height > 0xffffffu) {
    *why = "XBM size is not plausible";
    return TSL_ERR_BAD_FILE;
  }
  h->data_pos = lx.pos();
  return TSL_OK;
}

uint8_t reverseBits(uint8_t v) {
  v = static_cast<uint8_t>((v & 0xF0) >> 4 | (v & 0x0F) << 4);
  v = static_cast<uint8_t>((v & 0xCC) >> 2 | (v & 0x33) << 2);
  return static_cast<uint8_t>((v & 0xAA) >> 1 | (v & 0x55) << 1);
}

int xbmInfo(const Source &src, int, TslFileInfo *info) {
  XbmHeader h;
  const char *why;
  int code = parseHeader(src, &h, &why);
  if (code != TSL_OK) {
    if (why) std::snprintf(info->message, sizeof info->message, "%s", why);
    return code;
  }
  info->width = static_cast<uint32_t>(h.width);
  info->height = static_cast<uint32_t>(h.height);
  info->color_model = TSL_BINARY;
  info->planes = 1;
  info->bits_per_plane = 1;
  info->colors = 2;
  info->pages = 1;
  return TSL_OK;
}

int xbmLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  XbmHeader h;
  const char *why;
  int code = parseHeader(src, &h, &why);
  if (code != TSL_OK) {
    if (why) ctx.setMessage("%s", why);
    return code;
  }
  const uint32_t w = static_cast<uint32_t>(h.width), ht = static_cast<uint32_t>(h.height);
  // Each value takes at least two characters ("0,"), so a file too short for
  // its size is refused before anything is allocated.
  const uint64_t unit_bytes = h.x10 ? 2 : 1;
  const uint64_t values_per_row = (h.width + 8 * unit_bytes - 1) / (8 * unit_bytes);
  if ((src.size - h.data_pos) / 2 < values_per_row * ht && !ctx.keepDamaged()) return TSL_ERR_READ;
  code = ctx.alloc(picture, TSL_BINARY, w, ht);
  if (code != TSL_OK) return code;

  Lexer lx(src.data, src.size);
  while (lx.pos() < h.data_pos) lx.advance();
  std::vector<uint8_t> row(values_per_row * unit_bytes);
  for (uint32_t y = 0; y < ht; ++y) {
    for (uint64_t i = 0; i < values_per_row; ++i) {
      uint64_t v;
      while (lx.peek() == ',') lx.advance();
      if (!lx.number(&v)) return ctx.keepDamaged() ? TSL_OK : lx.atEnd() ? TSL_ERR_READ : TSL_ERR_CORRUPT;
      row[i * unit_bytes] = static_cast<uint8_t>(v);
      if (h.x10) row[i * unit_bytes + 1] = static_cast<uint8_t>(v >> 8);
    }
    uint8_t *out = rowOf(picture, y);
    const uint32_t bytes = packedLine(w);
    for (uint32_t b = 0; b < bytes; ++b) out[b] = static_cast<uint8_t>(~reverseBits(row[b]));
    if (ctx.progress(y + 1, ht)) return TSL_STOPPED;
  }
  return TSL_OK;
}

int xbmSave(FILE *file, const TslPicture *pic, SaveContext &ctx) {
  const std::string name = identifierForFile(file, "image");
  const uint32_t w = pic->width, h = pic->height, bytes = packedLine(w);
  if (std::fprintf(file, "#define %s_width %u\n#define %s_height %u\nstatic char %s_bits[] = {\n", name.c_str(), w,
                   name.c_str(), h, name.c_str()) < 0)
    return TSL_ERR_WRITE;
  const uint64_t total = static_cast<uint64_t>(bytes) * h;
  uint64_t n = 0;
  std::string line;
  for (uint32_t y = 0; y < h; ++y) {
    const uint8_t *row = rowOf(pic, y);
    for (uint32_t b = 0; b < bytes; ++b) {
      uint8_t v = static_cast<uint8_t>(~row[b]);
      // Bits past the width are written as zero.
      if (b == bytes - 1 && (w & 7)) v = static_cast<uint8_t>(v & (0xff << (8 - (w & 7))));
      char text[8];
      std::snprintf(text, sizeof text, "0x%02x", reverseBits(v));
      line += n % 12 == 0 ? "   " : " ";
      line += text;
      ++n;
      line += n == total ? "};\n" : n % 12 == 0 ? ",\n" : ",";
      if (line.size() > 4096 || n == total) {
        if (!putBytes(file, line.data(), line.size())) return TSL_ERR_WRITE;
        line.clear();
      }
    }
    ctx.progress(y + 1, h);
  }
  return TSL_OK;
}

bool xbmSniff(const uint8_t *data, size_t size) {
  Lexer lx(data, size < 4096 ? size : 4096);
  lx.skipSpace();
  return lx.token() == "#define";
}

}  // namespace

extern const FormatDef kXbmFormat = {
    "xbm", "X11 Bitmap", "xbm;bm",
    {{1, 2, -1, -1}, {-1, 0, 0, 0}},
    kMagicWeak, false, xbmSniff, xbmInfo, xbmLoad, xbmSave, nullptr};

}  // namespace tessel
