// Portable bitmap, greymap and pixmap files (PBM, PGM, PPM) in their ASCII
// and raw forms, and the arbitrary map (PAM) for reading.  Samples up to
// 65535 are scaled to 8 bits; several pictures in one file are pages.
#include <cstring>
#include <string>
#include <vector>

#include "../bytes.h"
#include "../format.h"

namespace tessel {

namespace {

constexpr int kMaxPages = 65535;

struct PnmHeader {
  int kind = 0;            // 1..7 from the magic "P1".."P7"
  uint64_t width = 0, height = 0;
  uint32_t depth = 1;      // samples per pixel
  uint32_t maxval = 1;
  bool bilevel = false;    // one sample, 0/1
  bool inverted = false;   // PBM: 1 = black
  bool alpha = false;
  size_t data = 0;         // offset of the raster
  bool ascii() const { return kind <= 3; }
  int model() const {
    if (bilevel && !alpha) return TSL_BINARY;
    if (alpha) return TSL_RGBA;
    return depth >= 3 ? TSL_RGB : TSL_GREY;
  }
};

bool isSpace(uint8_t c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }
bool isDigit(uint8_t c) { return c >= '0' && c <= '9'; }

// Cursor over the header and ASCII raster: numbers separated by blanks and
// comments (from '#' to the end of the line).
struct Scanner {
  const uint8_t *d;
  size_t size;
  size_t pos;
  void skipBlanks() {
    while (pos < size) {
      if (d[pos] == '#') {
        while (pos < size && d[pos] != '\n' && d[pos] != '\r') ++pos;
      } else if (isSpace(d[pos])) {
        ++pos;
      } else {
        break;
      }
    }
  }
  // A decimal number; saturates far above any sensible value.  False when
  // there is none.
  bool number(uint64_t *v) {
    skipBlanks();
    if (pos >= size || !isDigit(d[pos])) return false;
    uint64_t n = 0;
    while (pos < size && isDigit(d[pos])) {
      if (n < (uint64_t(1) << 40)) n = n * 10 + (d[pos] - '0');
      ++pos;
    }
    *v = n;
    return true;
  }
  // One PBM ASCII digit: '0' or '1', blanks optional.
  bool bit(uint64_t *v) {
    skipBlanks();
    if (pos >= size || (d[pos] != '0' && d[pos] != '1')) return false;
    *v = d[pos++] - '0';
    return true;
  }
};

bool sniffKind(const uint8_t *d, size_t n, const char *kinds) {
  return n >= 3 && d[0] == 'P' && std::strchr(kinds, d[1]) && d[1] && isSpace(d[2]);
}
bool sniffPbm(const uint8_t *d, size_t n) { return sniffKind(d, n, "14"); }
bool sniffPgm(const uint8_t *d, size_t n) { return sniffKind(d, n, "25"); }
bool sniffPpm(const uint8_t *d, size_t n) { return sniffKind(d, n, "367"); }

// The word after a PAM keyword, upper case as written.
std::string wordAt(const uint8_t *d, size_t size, size_t *pos) {
  while (*pos < size && (d[*pos] == ' ' || d[*pos] == '\t')) ++*pos;
  size_t s = *pos;
  while (*pos < size && !isSpace(d[*pos])) ++*pos;
  return std::string(reinterpret_cast<const char *>(d + s), *pos - s);
}

int parsePam(const Source &src, size_t pos, PnmHeader *h, char *msg, size_t msg_size) {
  const uint8_t *d = src.data;
  const size_t n = src.size;
  std::string tupltype;
  bool have_w = false, have_h = false, have_d = false, have_m = false;
  for (;;) {
    while (pos < n && isSpace(d[pos])) ++pos;
    if (pos >= n) return TSL_ERR_READ;
    if (d[pos] == '#') {
      while (pos < n && d[pos] != '\n') ++pos;
      continue;
    }
    std::string key = wordAt(d, n, &pos);
    if (key == "ENDHDR") {
      while (pos < n && d[pos] != '\n') ++pos;
      if (pos >= n) return TSL_ERR_READ;
      h->data = pos + 1;
      break;
    }
    if (key == "TUPLTYPE") {
      if (tupltype.empty()) tupltype = wordAt(d, n, &pos);
      while (pos < n && d[pos] != '\n') ++pos;
      continue;
    }
    Scanner sc{d, n, pos};
    uint64_t v = 0;
    if (key == "WIDTH" || key == "HEIGHT" || key == "DEPTH" || key == "MAXVAL") {
      if (!sc.number(&v)) {
        std::snprintf(msg, msg_size, "PAM: %s without a value", key.c_str());
        return TSL_ERR_BAD_FILE;
      }
      pos = sc.pos;
      if (key == "WIDTH") h->width = v, have_w = true;
      else if (key == "HEIGHT") h->height = v, have_h = true;
      else if (key == "DEPTH") h->depth = static_cast<uint32_t>(v > 1000 ? 1000 : v), have_d = true;
      else h->maxval = static_cast<uint32_t>(v > 70000 ? 70000 : v), have_m = true;
    } else {
      std::snprintf(msg, msg_size, "PAM: unknown header line \"%.40s\"", key.c_str());
      return TSL_ERR_BAD_FILE;
    }
  }
  if (!have_w || !have_h || !have_d || !have_m) {
    std::snprintf(msg, msg_size, "PAM: header misses WIDTH, HEIGHT, DEPTH or MAXVAL");
    return TSL_ERR_BAD_FILE;
  }
  if (h->depth < 1 || h->depth > 4) {
    std::snprintf(msg, msg_size, "PAM: depth %u is not supported", h->depth);
    return TSL_ERR_BAD_FILE;
  }
  const bool has_alpha_name = tupltype.size() > 6 && tupltype.compare(tupltype.size() - 6, 6, "_ALPHA") == 0;
  const std::string base = has_alpha_name ? tupltype.substr(0, tupltype.size() - 6) : tupltype;
  const uint32_t colour_depth = h->depth == 2 || h->depth == 4 ? h->depth - 1 : h->depth;
  h->alpha = has_alpha_name || h->depth == 2 || h->depth == 4;
  if ((has_alpha_name && h->depth != 2 && h->depth != 4) ||
      (base == "RGB" && colour_depth != 3) || ((base == "GRAYSCALE" || base == "BLACKANDWHITE") && colour_depth != 1)) {
    std::snprintf(msg, msg_size, "PAM: tuple type %.40s with depth %u", tupltype.c_str(), h->depth);
    return TSL_ERR_BAD_FILE;
  }
  h->bilevel = base == "BLACKANDWHITE";
  return TSL_OK;
}

// Reads the header of the picture starting at pos (blanks before it allowed).
int parseHeader(const Source &src, size_t pos, PnmHeader *h, char *msg, size_t msg_size) {
  const uint8_t *d = src.data;
  while (pos < src.size && isSpace(d[pos])) ++pos;
  if (pos + 2 > src.size) return TSL_ERR_READ;
  if (d[pos] != 'P' || d[pos + 1] < '1' || d[pos + 1] > '7') {
    std::snprintf(msg, msg_size, "Not a PBM/PGM/PPM/PAM file");
    return TSL_ERR_BAD_FILE;
  }
  *h = PnmHeader();
  h->kind = d[pos + 1] - '0';
  pos += 2;
  if (h->kind == 7) {
    int code = parsePam(src, pos, h, msg, msg_size);
    if (code != TSL_OK) return code;
  } else {
    Scanner sc{d, src.size, pos};
    uint64_t mv = 1;
    if (!sc.number(&h->width) || !sc.number(&h->height)) return sc.pos >= src.size ? TSL_ERR_READ : TSL_ERR_BAD_FILE;
    if (h->kind != 1 && h->kind != 4 && !sc.number(&mv)) return sc.pos >= src.size ? TSL_ERR_READ : TSL_ERR_BAD_FILE;
    h->maxval = static_cast<uint32_t>(mv > 70000 ? 70000 : mv);
    h->depth = h->kind == 3 || h->kind == 6 ? 3 : 1;
    h->bilevel = h->kind == 1 || h->kind == 4;
    h->inverted = h->bilevel;
    // One blank (or a comment ending in a line break) ends the header.
    if (sc.pos < src.size && d[sc.pos] == '#') {
      while (sc.pos < src.size && d[sc.pos] != '\n') ++sc.pos;
    }
    if (sc.pos >= src.size) {
      if (!h->ascii()) return TSL_ERR_READ;
    } else if (!isSpace(d[sc.pos])) {
      std::snprintf(msg, msg_size, "PNM: garbage after the header");
      return TSL_ERR_BAD_FILE;
    }
    h->data = sc.pos + 1;
  }
  if (h->width == 0 || h->height == 0) {
    std::snprintf(msg, msg_size, "PNM: bad picture size %llux%llu", static_cast<unsigned long long>(h->width),
                  static_cast<unsigned long long>(h->height));
    return TSL_ERR_BAD_FILE;
  }
  if (h->maxval < 1 || h->maxval > 65535 || (h->bilevel && h->kind == 7 && h->maxval != 1)) {
    std::snprintf(msg, msg_size, "PNM: bad maximum value %u", h->maxval);
    return TSL_ERR_BAD_FILE;
  }
  return TSL_OK;
}

// Bytes of one raw raster row, 0 on overflow.
uint64_t rawRowBytes(const PnmHeader &h) {
  if (h.kind == 4) return (h.width + 7) / 8;
  const uint64_t bytes = h.maxval > 255 ? 2 : 1;
  if (h.width > (uint64_t(1) << 40)) return 0;
  return h.width * h.depth * bytes;
}

// Offset just after the raster of a picture, or 0 when the raster is incomplete.
size_t rasterEnd(const Source &src, const PnmHeader &h) {
  if (!h.ascii()) {
    const uint64_t row = rawRowBytes(h);
    if (row == 0 || h.height > (uint64_t(1) << 40) / row) return 0;
    const uint64_t end = h.data + row * h.height;
    return end <= src.size ? static_cast<size_t>(end) : 0;
  }
  Scanner sc{src.data, src.size, h.data};
  if (h.width > (uint64_t(1) << 40) / h.height) return 0;
  const uint64_t total = h.width * h.height * h.depth;
  uint64_t v;
  for (uint64_t i = 0; i < total; ++i)
    if (!(h.kind == 1 ? sc.bit(&v) : sc.number(&v))) return 0;
  return sc.pos;
}

// Finds the header of page `page`.
int findPage(const Source &src, int page, PnmHeader *h, char *msg, size_t msg_size) {
  size_t pos = 0;
  for (int i = 0;; ++i) {
    int code = parseHeader(src, pos, h, msg, msg_size);
    if (code != TSL_OK && i == 0) return code;
    if (code != TSL_OK) {
      std::snprintf(msg, msg_size, "PNM: page %d is not in the file", page);
      return TSL_ERR_BAD_FILE;
    }
    if (i == page) return TSL_OK;
    pos = rasterEnd(src, *h);
    if (pos == 0) {
      std::snprintf(msg, msg_size, "PNM: page %d is not in the file", page);
      return TSL_ERR_BAD_FILE;
    }
  }
}

int countPages(const Source &src) {
  PnmHeader h;
  char msg[256];
  size_t pos = 0;
  int pages = 0;
  while (pages < kMaxPages && parseHeader(src, pos, &h, msg, sizeof msg) == TSL_OK) {
    ++pages;
    pos = rasterEnd(src, h);
    if (pos == 0) break;
    size_t p = pos;
    while (p < src.size && isSpace(src.data[p])) ++p;
    if (p >= src.size) break;
  }
  return pages ? pages : 1;
}

int infoPnm(const Source &src, int page, TslFileInfo *info) {
  PnmHeader h;
  int code = findPage(src, page, &h, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  if (h.width > 0xFFFFFFFFu || h.height > 0xFFFFFFFFu) {
    std::snprintf(info->message, sizeof info->message, "PNM: picture too large");
    return TSL_ERR_BAD_FILE;
  }
  info->width = static_cast<uint32_t>(h.width);
  info->height = static_cast<uint32_t>(h.height);
  info->color_model = h.model();
  info->planes = static_cast<int>(h.depth);
  int bits = 1;
  while (bits < 16 && (1u << bits) - 1 < h.maxval) ++bits;
  info->bits_per_plane = bits;
  info->colors = h.depth >= 3 ? 1L << 24 : h.maxval + 1 > 256 ? 256 : h.maxval + 1;
  info->has_alpha = h.alpha;
  info->compression = TSL_COMP_NONE;
  info->pages = countPages(src);
  return TSL_OK;
}

uint8_t scale(uint64_t v, uint32_t maxval) {
  if (v > maxval) v = maxval;
  if (maxval == 255) return static_cast<uint8_t>(v);
  return static_cast<uint8_t>((v * 255 + maxval / 2) / maxval);
}

int loadPnm(const Source &src, TslPicture *pic, LoadContext &ctx) {
  PnmHeader h;
  char msg[256] = {0};
  int code = findPage(src, ctx.page() < 0 ? 0 : ctx.page(), &h, msg, sizeof msg);
  if (code != TSL_OK) return ctx.fail(code, msg);
  if (!ctx.sizeAllowed(h.width, h.height)) return TSL_ERR_MEMORY;
  const int model = h.model();
  code = ctx.alloc(pic, model, static_cast<uint32_t>(h.width), static_cast<uint32_t>(h.height));
  if (code != TSL_OK) return code;
  if (model == TSL_GREY) pic->colors = static_cast<int16_t>(h.maxval + 1 > 256 ? 256 : h.maxval + 1);
  const uint32_t w = pic->width, rows = pic->height, depth = h.depth;
  const int out_n = pic->bytes_per_pixel;
  std::vector<uint8_t> samples(static_cast<size_t>(w) * depth);
  Scanner sc{src.data, src.size, h.data};
  const uint64_t row_bytes = rawRowBytes(h);
  const bool wide = h.maxval > 255;
  for (uint32_t y = 0; y < rows; ++y) {
    uint8_t *out = rowOf(pic, y);
    bool complete = true;
    if (h.kind == 4) {
      const uint64_t at = h.data + row_bytes * y;
      if (at > src.size || src.size - at < row_bytes) {
        complete = false;
      } else {
        for (uint64_t i = 0; i < row_bytes; ++i) out[i] = static_cast<uint8_t>(~src.data[at + i]);
      }
    } else {
      if (h.ascii()) {
        uint64_t v = 0;
        for (size_t i = 0; i < samples.size(); ++i) {
          if (!(h.kind == 1 ? sc.bit(&v) : sc.number(&v))) {
            complete = false;
            break;
          }
          samples[i] = h.bilevel ? static_cast<uint8_t>(v != 0) : scale(v, h.maxval);
        }
      } else {
        const uint64_t at = h.data + row_bytes * y;
        if (at > src.size || src.size - at < row_bytes) {
          complete = false;
        } else {
          const uint8_t *s = src.data + at;
          for (size_t i = 0; i < samples.size(); ++i) {
            const uint32_t v = wide ? be16(s + 2 * i) : s[i];
            samples[i] = h.bilevel ? static_cast<uint8_t>(v != 0) : scale(v, h.maxval);
          }
        }
      }
      if (complete) {
        if (model == TSL_BINARY) {
          for (uint32_t x = 0; x < w; ++x) setBit(out, x, h.inverted ? !samples[x] : samples[x]);
        } else if (depth == static_cast<uint32_t>(out_n) && !h.bilevel) {
          std::memcpy(out, samples.data(), samples.size());
        } else {
          // Grey or bilevel samples with or without alpha spread to RGB(A).
          const uint32_t colour = depth == 2 || depth == 4 ? depth - 1 : depth;
          for (uint32_t x = 0; x < w; ++x) {
            const uint8_t *s = samples.data() + static_cast<size_t>(x) * depth;
            uint8_t *o = out + static_cast<size_t>(x) * out_n;
            for (int c = 0; c < 3 && c < out_n; ++c) {
              uint8_t v = s[colour == 3 ? c : 0];
              o[c] = h.bilevel ? (v ? 255 : 0) : v;
            }
            if (out_n == 4) o[3] = colour < depth ? s[depth - 1] : 255;
          }
        }
      }
    }
    if (!complete) {
      if (ctx.keepDamaged()) return TSL_OK;
      return TSL_ERR_READ;
    }
    if (ctx.progress(y + 1, rows)) return TSL_STOPPED;
  }
  return TSL_OK;
}

// ---- Writers ----------------------------------------------------------------

// Collects ASCII samples into lines of at most 70 characters.
class AsciiLines {
 public:
  explicit AsciiLines(FILE *f) : f_(f) {}
  void add(const char *text, bool separate) {
    const size_t n = std::strlen(text);
    if (!line_.empty() && line_.size() + n + (separate ? 1 : 0) > 70) flush();
    if (!line_.empty() && separate) line_ += ' ';
    line_ += text;
  }
  void flush() {
    if (line_.empty()) return;
    line_ += '\n';
    ok_ = ok_ && putBytes(f_, line_.data(), line_.size());
    line_.clear();
  }
  bool ok() const { return ok_; }

 private:
  FILE *f_;
  std::string line_;
  bool ok_ = true;
};

bool writeHeader(FILE *f, char magic, const TslPicture *p, const TslParams &params, bool maxval) {
  std::string head = std::string("P") + magic + "\n";
  if (params.comment && *params.comment) {
    head += "# ";
    for (const char *c = params.comment; *c; ++c) head += *c == '\n' ? std::string("\n# ") : std::string(1, *c);
    head += '\n';
  }
  head += std::to_string(p->width) + " " + std::to_string(p->height) + "\n";
  if (maxval) head += "255\n";
  return putBytes(f, head.data(), head.size());
}

int saveAny(FILE *f, const TslPicture *p, SaveContext &ctx, int kind) {
  const bool ascii = ctx.params().ppm_ascii != 0;
  const uint32_t w = p->width, rows = p->height;
  const char magic = static_cast<char>('0' + kind + (ascii ? 0 : 3));
  if (!writeHeader(f, magic, p, ctx.params(), kind != 1)) return TSL_ERR_WRITE;
  std::vector<uint8_t> line(static_cast<size_t>(w) * 3);
  AsciiLines text(f);
  bool ok = true;
  char num[8];
  for (uint32_t y = 0; y < rows && ok; ++y) {
    const uint8_t *row = rowOf(p, y);
    size_t n;
    if (kind == 1) {
      n = packedLine(w);
      for (size_t i = 0; i < n; ++i) line[i] = static_cast<uint8_t>(~row[i]);
      if (w % 8) line[n - 1] &= static_cast<uint8_t>(0xFF00 >> (w % 8));
    } else if (kind == 2) {
      n = w;
      std::memcpy(line.data(), row, n);
    } else {
      n = static_cast<size_t>(w) * 3;
      tslGetRowRGB(p, y, line.data());
    }
    if (!ascii) {
      ok = putBytes(f, line.data(), n);
    } else {
      if (kind == 1) {
        for (uint32_t x = 0; x < w; ++x) text.add(getBit(line.data(), x) ? "1" : "0", false);
      } else {
        for (size_t i = 0; i < n; ++i) {
          std::snprintf(num, sizeof num, "%u", line[i]);
          text.add(num, true);
        }
      }
      text.flush();
      ok = text.ok();
    }
    ctx.progress(y + 1, rows);
  }
  return ok ? TSL_OK : TSL_ERR_WRITE;
}

int savePbm(FILE *f, const TslPicture *p, SaveContext &ctx) {
  return p->color_model == TSL_BINARY ? saveAny(f, p, ctx, 1) : TSL_ERR_CANT_SAVE;
}
int savePgm(FILE *f, const TslPicture *p, SaveContext &ctx) {
  return p->color_model == TSL_GREY ? saveAny(f, p, ctx, 2) : TSL_ERR_CANT_SAVE;
}
int savePpm(FILE *f, const TslPicture *p, SaveContext &ctx) { return saveAny(f, p, ctx, 3); }

}  // namespace

extern const FormatDef kPbmFormat = {
    "pbm", "Portable Bitmap", "pbm",
    {{1, 2, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, true, sniffPbm, infoPnm, loadPnm, savePbm, nullptr};

extern const FormatDef kPgmFormat = {
    "pgm", "Portable Greymap", "pgm",
    {{2, 256, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, true, sniffPgm, infoPnm, loadPnm, savePgm, nullptr};

// Palette pictures are written as true colour.
extern const FormatDef kPpmFormat = {
    "ppm", "Portable Pixmap", "ppm;pnm;pam",
    {{1008, -1, -1, -1}, {4, 256, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, true, sniffPpm, infoPnm, loadPnm, savePpm, nullptr};

}  // namespace tessel
