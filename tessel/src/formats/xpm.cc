// X pixmaps (XPM3): "/* XPM */" and a C array of strings: the values
// "width height ncolors cpp [x_hot y_hot]", one string per colour ("<chars>
// c <colour> [m ..] [g ..] [s ..]"), then one string of width * cpp
// characters per row.  Up to 256 colours load as an indexed picture, more as
// true colour; "None" is the transparent colour.
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "../bytes.h"
#include "../format.h"
#include "colornames.h"
#include "ctext.h"

namespace tessel {

namespace {

constexpr uint32_t kMaxCpp = 8;

// Walks the string literals of the C text, skipping comments and everything
// between strings.
class StringScanner {
 public:
  StringScanner(const uint8_t *data, size_t size) : d_(data), n_(size) {}
  bool atEnd() const { return p_ >= n_; }

  // The next string's contents (escapes resolved); false at the end of the
  // array or the file.
  bool next(std::string *out) {
    out->clear();
    while (p_ < n_) {
      const uint8_t c = d_[p_];
      if (c == '"') break;
      if (c == '}') return false;
      if (c == '/' && p_ + 1 < n_ && d_[p_ + 1] == '*') {
        p_ += 2;
        while (p_ + 1 < n_ && !(d_[p_] == '*' && d_[p_ + 1] == '/')) ++p_;
        p_ = p_ + 2 < n_ ? p_ + 2 : n_;
        continue;
      }
      if (c == '/' && p_ + 1 < n_ && d_[p_ + 1] == '/') {
        while (p_ < n_ && d_[p_] != '\n') ++p_;
        continue;
      }
      ++p_;
    }
    if (p_ >= n_) return false;
    ++p_;
    const size_t start = p_;
    while (p_ < n_ && d_[p_] != '"' && d_[p_] != '\\' && d_[p_] != '\n') ++p_;
    out->assign(reinterpret_cast<const char *>(d_ + start), p_ - start);
    while (p_ < n_ && d_[p_] != '"' && d_[p_] != '\n') {
      if (d_[p_] == '\\' && p_ + 1 < n_) ++p_;
      out->push_back(static_cast<char>(d_[p_++]));
    }
    if (p_ >= n_ || d_[p_] != '"') {
      ended_early_ = true;
      p_ = n_;
      return false;
    }
    ++p_;
    return true;
  }
  bool endedEarly() const { return ended_early_ || p_ >= n_; }

 private:
  const uint8_t *d_;
  size_t n_, p_ = 0;
  bool ended_early_ = false;
};

struct XpmValues {
  uint64_t width = 0, height = 0, ncolors = 0, cpp = 0;
};

std::vector<std::string> words(const std::string &s) {
  std::vector<std::string> out;
  size_t i = 0;
  while (i < s.size()) {
    while (i < s.size() && (s[i] == ' ' || s[i] == '\t')) ++i;
    size_t start = i;
    while (i < s.size() && s[i] != ' ' && s[i] != '\t') ++i;
    if (i > start) out.push_back(s.substr(start, i - start));
  }
  return out;
}

bool toNumber(const std::string &s, uint64_t *v) {
  if (s.empty() || s.size() > 12) return false;
  uint64_t n = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
    n = n * 10 + static_cast<uint64_t>(c - '0');
  }
  *v = n;
  return true;
}

int parseValues(StringScanner &sc, XpmValues *v, const char **why) {
  *why = nullptr;
  std::string s;
  if (!sc.next(&s)) {
    *why = "XPM file has no values string";
    return TSL_ERR_BAD_FILE;
  }
  std::vector<std::string> w = words(s);
  if (w.size() < 4 || !toNumber(w[0], &v->width) || !toNumber(w[1], &v->height) ||
      !toNumber(w[2], &v->ncolors) || !toNumber(w[3], &v->cpp)) {
    *why = "XPM values string is invalid";
    return TSL_ERR_BAD_FILE;
  }
  if (v->width == 0 || v->height == 0 || v->width > 0xffffffu || v->height > 0xffffffu) {
    *why = "XPM picture size is invalid";
    return TSL_ERR_BAD_FILE;
  }
  if (v->ncolors == 0 || v->ncolors > (1u << 24) || v->cpp == 0 || v->cpp > kMaxCpp) {
    *why = "XPM colour count or characters per pixel are invalid";
    return TSL_ERR_BAD_FILE;
  }
  return TSL_OK;
}

bool hexValue(const std::string &s, size_t from, size_t n, uint32_t *v) {
  uint32_t r = 0;
  for (size_t i = from; i < from + n; ++i) {
    const char c = s[i];
    int h = c >= '0' && c <= '9' ? c - '0' : (c | 32) >= 'a' && (c | 32) <= 'f' ? (c | 32) - 'a' + 10 : -1;
    if (h < 0) return false;
    r = r * 16 + static_cast<uint32_t>(h);
  }
  *v = r;
  return true;
}

// Parses a colour value; false for "None".  Unknown names give black.
bool parseColor(const std::string &text, uint8_t rgb[3]) {
  rgb[0] = rgb[1] = rgb[2] = 0;
  if (text.size() == 4 && (text[0] | 32) == 'n' && (text[1] | 32) == 'o' && (text[2] | 32) == 'n' &&
      (text[3] | 32) == 'e')
    return false;
  if (!text.empty() && text[0] == '#') {
    const size_t digits = text.size() - 1;
    if (digits == 0 || digits % 3 != 0 || digits > 12) return true;
    const size_t k = digits / 3;
    const uint32_t max = (1u << (4 * k)) - 1;
    for (int c = 0; c < 3; ++c) {
      uint32_t v;
      if (!hexValue(text, 1 + c * k, k, &v)) return true;
      rgb[c] = static_cast<uint8_t>((static_cast<uint64_t>(v) * 255 + max / 2) / max);
    }
    return true;
  }
  lookupColorName(text.data(), text.size(), &rgb[0], &rgb[1], &rgb[2]);
  return true;
}

// The colour of one colour-definition string (after its pixel characters):
// the "c" value, else "g", "g4", "m".
std::string pickColor(const std::string &def) {
  std::vector<std::string> w = words(def);
  std::string values[4];  // c, g, g4, m
  int current = -1;
  for (const std::string &word : w) {
    int key = word == "c" ? 0 : word == "g" ? 1 : word == "g4" ? 2 : word == "m" ? 3 : word == "s" ? 4 : -1;
    if (key >= 0) {
      current = key;
      if (key < 4) values[key].clear();
      continue;
    }
    if (current < 0 || current == 4) continue;
    if (!values[current].empty()) values[current] += ' ';
    values[current] += word;
  }
  for (const std::string &v : values)
    if (!v.empty()) return v;
  return std::string();
}

int xpmInfo(const Source &src, int, TslFileInfo *info) {
  StringScanner sc(src.data, src.size);
  XpmValues v;
  const char *why;
  int code = parseValues(sc, &v, &why);
  if (code != TSL_OK) {
    if (why) std::snprintf(info->message, sizeof info->message, "%s", why);
    return code;
  }
  info->width = static_cast<uint32_t>(v.width);
  info->height = static_cast<uint32_t>(v.height);
  info->color_model = v.ncolors <= 256 ? TSL_INDEXED : TSL_RGB;
  info->planes = v.ncolors <= 256 ? 1 : 3;
  info->bits_per_plane = 8;
  info->colors = static_cast<long>(v.ncolors);
  info->pages = 1;
  return TSL_OK;
}

// Maps pixel character sequences to colour indices.
class ColorKeys {
 public:
  explicit ColorKeys(uint32_t cpp) : cpp_(cpp) {
    if (cpp == 1) small_.assign(256, -1);
    else if (cpp == 2) small_.assign(65536, -1);
  }
  void add(const char *key, int index) {
    if (cpp_ <= 2) {
      int &slot = small_[code(key)];
      if (slot < 0) slot = index;
    } else {
      map_.emplace(std::string(key, cpp_), index);
    }
  }
  int find(const char *key) const {
    if (cpp_ <= 2) return small_[code(key)];
    auto it = map_.find(std::string(key, cpp_));
    return it == map_.end() ? -1 : it->second;
  }

 private:
  uint32_t code(const char *key) const {
    return cpp_ == 1 ? static_cast<uint8_t>(key[0])
                     : static_cast<uint32_t>(static_cast<uint8_t>(key[0])) << 8 | static_cast<uint8_t>(key[1]);
  }
  uint32_t cpp_;
  std::vector<int> small_;
  std::unordered_map<std::string, int> map_;
};

int xpmLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  StringScanner sc(src.data, src.size);
  XpmValues v;
  const char *why;
  int code = parseValues(sc, &v, &why);
  if (code != TSL_OK) {
    if (why) ctx.setMessage("%s", why);
    return code;
  }
  const uint32_t w = static_cast<uint32_t>(v.width), h = static_cast<uint32_t>(v.height);
  const uint32_t cpp = static_cast<uint32_t>(v.cpp);
  // Every colour string and every row takes at least its characters: a file
  // too short for its values is refused before anything is allocated.
  if (v.ncolors * (cpp + 2) > src.size) return TSL_ERR_READ;
  if (v.width * cpp * v.height > src.size && !ctx.keepDamaged()) return TSL_ERR_READ;
  if (!ctx.sizeAllowed(w, h)) return TSL_ERR_MEMORY;

  ColorKeys keys(cpp);
  std::vector<uint8_t> colors(static_cast<size_t>(v.ncolors) * 3);
  int transparent = -1;
  std::string s;
  for (uint32_t i = 0; i < v.ncolors; ++i) {
    if (!sc.next(&s)) return sc.endedEarly() ? TSL_ERR_READ : TSL_ERR_CORRUPT;
    if (s.size() < cpp) {
      ctx.setMessage("XPM colour definition is too short");
      return TSL_ERR_BAD_FILE;
    }
    keys.add(s.data(), static_cast<int>(i));
    if (!parseColor(pickColor(s.substr(cpp)), &colors[3 * i]) && transparent < 0) transparent = static_cast<int>(i);
  }
  const bool indexed = v.ncolors <= 256;
  const int model = indexed ? TSL_INDEXED : transparent >= 0 ? TSL_RGBA : TSL_RGB;
  code = ctx.alloc(picture, model, w, h);
  if (code != TSL_OK) return code;
  if (indexed) {
    for (uint32_t i = 0; i < v.ncolors; ++i) {
      picture->palette[i] = colors[3 * i];
      picture->palette[256 + i] = colors[3 * i + 1];
      picture->palette[512 + i] = colors[3 * i + 2];
    }
    picture->colors = static_cast<int16_t>(v.ncolors);
    picture->transparent_index = static_cast<int16_t>(transparent);
  }
  const int bpp = picture->bytes_per_pixel;
  for (uint32_t y = 0; y < h; ++y) {
    if (!sc.next(&s)) {
      if (ctx.keepDamaged()) return TSL_OK;
      return sc.endedEarly() ? TSL_ERR_READ : TSL_ERR_CORRUPT;
    }
    const uint32_t have = static_cast<uint32_t>(s.size() / cpp < w ? s.size() / cpp : w);
    if (have < w && !ctx.keepDamaged()) return TSL_ERR_CORRUPT;
    uint8_t *out = rowOf(picture, y);
    for (uint32_t x = 0; x < have; ++x) {
      int index = keys.find(s.data() + static_cast<size_t>(x) * cpp);
      if (index < 0) index = 0;  // undefined characters take the first colour
      if (indexed) {
        out[x] = static_cast<uint8_t>(index);
      } else {
        uint8_t *p = out + static_cast<size_t>(x) * bpp;
        std::memcpy(p, &colors[3 * static_cast<size_t>(index)], 3);
        if (bpp == 4) p[3] = index == transparent ? 0 : 255;
      }
    }
    if (ctx.progress(y + 1, h)) return TSL_STOPPED;
  }
  return TSL_OK;
}

// Pixel characters, printable and needing no escape in a C string.
const char kChars[] =
    " .XoO+@#$%&*=-;:>,<1234567890qwertyuipasdfghjklzxcvbnmMNBVCZASDFGHJKLPIUYTREWQ!~^/()_`'][{}|";

int xpmSave(FILE *file, const TslPicture *pic, SaveContext &ctx) {
  const uint32_t w = pic->width, h = pic->height;
  const int ncolors = pic->colors > 0 && pic->colors <= 256 ? pic->colors : 256;
  const int nchars = static_cast<int>(sizeof kChars - 1);
  const int cpp = ncolors <= nchars ? 1 : 2;
  auto key = [&](int i) {
    std::string k;
    if (cpp == 1) k += kChars[i];
    else {
      k += kChars[i / nchars];
      k += kChars[i % nchars];
    }
    return k;
  };
  const std::string name = identifierForFile(file, "image");
  std::string text = "/* XPM */\nstatic char *" + name + "[] = {\n/* columns rows colors chars-per-pixel */\n\"" +
                     std::to_string(w) + " " + std::to_string(h) + " " + std::to_string(ncolors) + " " +
                     std::to_string(cpp) + " \",\n";
  for (int i = 0; i < ncolors; ++i) {
    char color[16];
    if (i == pic->transparent_index) std::snprintf(color, sizeof color, "None");
    else std::snprintf(color, sizeof color, "#%02X%02X%02X", pic->palette[i], pic->palette[256 + i],
                       pic->palette[512 + i]);
    text += "\"" + key(i) + " c " + color + "\",\n";
  }
  text += "/* pixels */\n";
  std::vector<std::string> keys(256);
  for (int i = 0; i < 256; ++i) keys[i] = key(i < ncolors ? i : 0);
  for (uint32_t y = 0; y < h; ++y) {
    const uint8_t *row = rowOf(pic, y);
    text += '"';
    for (uint32_t x = 0; x < w; ++x) text += keys[row[x]];
    text += y + 1 < h ? "\",\n" : "\"\n};\n";
    if (text.size() > 65536 || y + 1 == h) {
      if (!putBytes(file, text.data(), text.size())) return TSL_ERR_WRITE;
      text.clear();
    }
    ctx.progress(y + 1, h);
  }
  return TSL_OK;
}

bool xpmSniff(const uint8_t *data, size_t size) {
  // "/* XPM */", allowing blanks inside the comment.
  size_t i = 0;
  while (i < size && i < 64 && (data[i] == ' ' || data[i] == '\t' || data[i] == '\n' || data[i] == '\r')) ++i;
  if (i + 2 > size || data[i] != '/' || data[i + 1] != '*') return false;
  i += 2;
  while (i < size && data[i] == ' ') ++i;
  return i + 3 <= size && std::memcmp(data + i, "XPM", 3) == 0;
}

}  // namespace

extern const FormatDef kXpmFormat = {
    "xpm", "X11 Pixmap", "xpm;pm",
    {{4, 256, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, false, xpmSniff, xpmInfo, xpmLoad, xpmSave, nullptr};

}  // namespace tessel
