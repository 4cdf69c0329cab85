// Small helpers shared by the tests: temporary directories, synthetic
// pictures, an independent PNM reader and running external tools.
#ifndef QUILLA_TESTS_TEST_UTIL_H
#define QUILLA_TESTS_TEST_UTIL_H

#include <dirent.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <algorithm>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "tessel.h"

namespace testutil {

// A fresh directory removed with its contents at scope end.
class TempDir {
 public:
  TempDir() {
    const char *base = std::getenv("QUILLA_TEST_TMP");
    std::string root = base && *base ? base : "/tmp";
    ::mkdir(root.c_str(), 0777);
    std::string templ = root + "/qtXXXXXX";
    std::vector<char> buf(templ.begin(), templ.end());
    buf.push_back(0);
    path_ = ::mkdtemp(buf.data()) ? buf.data() : root;
  }
  ~TempDir() { std::system(("rm -rf '" + path_ + "'").c_str()); }
  const std::string &path() const { return path_; }
  std::string file(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline std::string ReadFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

inline void WriteFile(const std::string &path, const std::string &data) {
  std::ofstream out(path, std::ios::binary);
  out << data;
}

inline bool FileExists(const std::string &path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

// A picture released at scope end.  It stands for its record: &pic is the
// TslPicture * the tsl calls take, and it converts to TslPicture &.
struct Pic {
  TslPicture p{};
  Pic() = default;
  explicit Pic(const TslPicture &q) : p(q) {}
  Pic(Pic &&o) noexcept : p(o.p) { o.p = TslPicture{}; }
  Pic(const Pic &) = delete;
  Pic &operator=(const Pic &) = delete;
  Pic &operator=(Pic &&o) noexcept {
    if (&o.p != &p) {
      tslFree(&p);
      p = o.p;
      o.p = TslPicture{};
    }
    return *this;
  }
  ~Pic() { tslFree(&p); }
  TslPicture *operator&() { return &p; }
  const TslPicture *operator&() const { return &p; }
  TslPicture *operator->() { return &p; }
  const TslPicture *operator->() const { return &p; }
  operator TslPicture &() { return p; }
  operator const TslPicture &() const { return p; }
  Pic clone() const {
    Pic c;
    tslCopyPicture(&c.p, &p);
    return c;
  }
};
using OwnedPicture = Pic;

// File information released at scope end.
struct Info {
  TslFileInfo i{};
  ~Info() { tslFileInformationFree(&i); }
  TslFileInfo *operator&() { return &i; }
  const TslFileInfo *operator->() const { return &i; }
};
using OwnedInfo = Info;

// tslFileInformation into *info (detected format and page 0 unless told); returns its code.
inline int FileInfo(const std::string &path, TslFileInfo *info, int format = -1, int page = 0) {
  return tslFileInformation(path.c_str(), format, page, info);
}

// Byte c of pixel (x, y) of a grey or true-colour picture.
inline int Px(const TslPicture &p, int x, int y, int c = 0) {
  return p.pixels[static_cast<size_t>(y) * p.bytes_per_line + static_cast<size_t>(x) * p.bytes_per_pixel + c];
}

// A w x h grey picture of the given values, row by row.
inline TslPicture Grey(int w, int h, const std::vector<int> &values) {
  TslPicture p{};
  tslAllock(&p, TSL_GREY, 0, w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) p.pixels[static_cast<size_t>(y) * p.bytes_per_line + x] = static_cast<uint8_t>(values[y * w + x]);
  return p;
}

// Every byte of the picture set to v.
inline void Fill(TslPicture &p, int v) { std::memset(p.pixels, v, static_cast<size_t>(p.bytes_per_line) * p.height); }

// Writes any picture as a binary PPM without our writer, as input for other programs.
inline void WritePpm(const std::string &path, const TslPicture &pic) {
  std::string out = "P6\n" + std::to_string(pic.width) + " " + std::to_string(pic.height) + "\n255\n";
  std::vector<unsigned char> row(pic.width * 3);
  for (uint32_t y = 0; y < pic.height; ++y) {
    tslGetRowRGB(&pic, y, row.data());
    out.append(reinterpret_cast<const char *>(row.data()), row.size());
  }
  WriteFile(path, out);
}

// Runs a shell command, returns its exit status; output is captured into *out when given.
inline int Run(const std::string &cmd, std::string *out = nullptr) {
  FILE *p = ::popen((cmd + " 2>&1").c_str(), "r");
  if (!p) return -1;
  std::string text;
  char buf[4096];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) text.append(buf, n);
  int status = ::pclose(p);
  if (out) *out = text;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline bool HaveTool(const std::string &name) { return Run("command -v " + name + " >/dev/null") == 0; }

// A picture of the given model filled with a deterministic pattern: smooth
// gradients plus noise from the seed, so both lossless and lossy paths get
// realistic content.  Indexed pictures get a `colors`-entry palette.
inline TslPicture MakePicture(int model, uint32_t w, uint32_t h, uint32_t seed = 1, int colors = 256) {
  TslPicture p;
  std::memset(&p, 0, sizeof p);
  if (!tslAllock(&p, model, 0, w, h)) return p;
  std::mt19937 rng(seed);
  if (model == TSL_INDEXED) {
    p.colors = static_cast<int16_t>(colors);
    for (int k = 0; k < 256; ++k) {
      p.palette[k] = static_cast<uint8_t>(rng());
      p.palette[256 + k] = static_cast<uint8_t>(rng());
      p.palette[512 + k] = static_cast<uint8_t>(rng());
    }
  }
  if (model == TSL_GREY) p.colors = 256;
  for (uint32_t y = 0; y < h; ++y) {
    uint8_t *row = p.pixels + static_cast<size_t>(y) * p.bytes_per_line;
    if (model == TSL_BINARY) {
      for (uint32_t x = 0; x < p.bytes_per_line; ++x) row[x] = static_cast<uint8_t>(rng());
      continue;
    }
    for (uint32_t x = 0; x < w; ++x) {
      for (int c = 0; c < p.bytes_per_pixel; ++c) {
        uint8_t v;
        if (model == TSL_INDEXED) v = static_cast<uint8_t>(rng() % static_cast<uint32_t>(colors));
        else v = static_cast<uint8_t>((x * (c + 1) * 255 / (w ? w : 1) + y * 255 / (h ? h : 1)) / 2 + rng() % 8);
        row[static_cast<size_t>(x) * p.bytes_per_pixel + c] = v;
      }
    }
  }
  return p;
}

// Pixels and palette (entries in use) equal; unused padding bits are ignored.
inline bool SamePixels(const TslPicture &a, const TslPicture &b) {
  if (a.width != b.width || a.height != b.height || a.color_model != b.color_model) return false;
  for (uint32_t y = 0; y < a.height; ++y) {
    const uint8_t *ra = a.pixels + static_cast<size_t>(y) * a.bytes_per_line;
    const uint8_t *rb = b.pixels + static_cast<size_t>(y) * b.bytes_per_line;
    if (a.color_model == TSL_BINARY) {
      for (uint32_t x = 0; x < a.width; ++x)
        if (((ra[x / 8] >> (7 - x % 8)) & 1) != ((rb[x / 8] >> (7 - x % 8)) & 1)) return false;
    } else if (std::memcmp(ra, rb, static_cast<size_t>(a.width) * a.bytes_per_pixel) != 0) {
      return false;
    }
  }
  if (a.color_model == TSL_INDEXED && a.palette && b.palette) {
    const int n = a.colors > 0 && a.colors <= 256 ? a.colors : 256;
    for (int plane = 0; plane < 3; ++plane)
      if (std::memcmp(a.palette + 256 * plane, b.palette + 256 * plane, static_cast<size_t>(n)) != 0) return false;
  }
  return true;
}

// Same pixels and, when either has one, the same 768 palette bytes.
inline bool SamePicture(const TslPicture &a, const TslPicture &b) {
  if (!SamePixels(a, b) || (a.palette == nullptr) != (b.palette == nullptr)) return false;
  return !a.palette || std::memcmp(a.palette, b.palette, 768) == 0;
}

// Same colours pixel by pixel, whatever the colour models (via RGBA rows).
inline bool SameColors(const TslPicture &a, const TslPicture &b, int tolerance = 0, bool alpha = false) {
  if (a.width != b.width || a.height != b.height) return false;
  std::vector<uint8_t> ra(a.width * 4), rb(b.width * 4);
  for (uint32_t y = 0; y < a.height; ++y) {
    tslGetRowRGBA(&a, y, ra.data());
    tslGetRowRGBA(&b, y, rb.data());
    for (uint32_t i = 0; i < a.width * 4; ++i) {
      if (!alpha && i % 4 == 3) continue;
      if (std::abs(ra[i] - rb[i]) > tolerance) return false;
    }
  }
  return true;
}

// Mean absolute difference per channel over RGB, for lossy comparisons.
inline double MeanAbsDiff(const TslPicture &a, const TslPicture &b) {
  if (a.width != b.width || a.height != b.height) return 1e9;
  std::vector<uint8_t> ra(a.width * 4), rb(b.width * 4);
  double sum = 0;
  for (uint32_t y = 0; y < a.height; ++y) {
    tslGetRowRGBA(&a, y, ra.data());
    tslGetRowRGBA(&b, y, rb.data());
    for (uint32_t x = 0; x < a.width; ++x)
      for (int c = 0; c < 3; ++c) sum += std::abs(ra[4 * x + c] - rb[4 * x + c]);
  }
  return sum / (3.0 * a.width * a.height);
}

// An independent reader of binary PNM files (P4, P5, P6, maxval 255 or
// 65535) into an RGB or grey picture; used to compare our decoders with
// pixels written by other programs (e.g. "convert x.gif ppm:-").
inline bool ReadPnm(const std::string &path, TslPicture *out) {
  std::string d = ReadFile(path);
  size_t pos = 0;
  auto token = [&]() -> std::string {
    while (pos < d.size()) {
      if (d[pos] == '#') {
        while (pos < d.size() && d[pos] != '\n') ++pos;
      } else if (std::isspace(static_cast<unsigned char>(d[pos]))) {
        ++pos;
      } else {
        break;
      }
    }
    size_t s = pos;
    while (pos < d.size() && !std::isspace(static_cast<unsigned char>(d[pos]))) ++pos;
    return d.substr(s, pos - s);
  };
  std::string magic = token();
  if (magic != "P4" && magic != "P5" && magic != "P6") return false;
  int w = std::atoi(token().c_str()), h = std::atoi(token().c_str());
  int maxval = magic == "P4" ? 1 : std::atoi(token().c_str());
  ++pos;
  std::memset(out, 0, sizeof *out);
  int model = magic == "P6" ? TSL_RGB : magic == "P5" ? TSL_GREY : TSL_BINARY;
  if (w <= 0 || h <= 0 || !tslAllock(out, model, 0, w, h)) return false;
  const int ch = magic == "P6" ? 3 : 1;
  const int bytes = maxval > 255 ? 2 : 1;
  for (int y = 0; y < h; ++y) {
    uint8_t *row = out->pixels + static_cast<size_t>(y) * out->bytes_per_line;
    if (magic == "P4") {
      size_t n = (w + 7) / 8;
      if (pos + n > d.size()) return false;
      for (size_t i = 0; i < n; ++i) row[i] = static_cast<uint8_t>(~d[pos + i]);  // PBM 1 = black
      pos += n;
      continue;
    }
    for (int i = 0; i < w * ch; ++i) {
      if (pos + bytes > d.size()) return false;
      unsigned v = static_cast<uint8_t>(d[pos]);
      if (bytes == 2) v = (v << 8 | static_cast<uint8_t>(d[pos + 1]));
      pos += bytes;
      row[i] = static_cast<uint8_t>(maxval == 255 ? v : (v * 255 + maxval / 2) / maxval);
    }
  }
  return true;
}

// The names in a directory, sorted; those starting with "." only when
// `hidden` ("." and ".." never).
inline std::vector<std::string> DirNames(const std::string &dir, bool hidden = false) {
  std::vector<std::string> names;
  if (DIR *d = ::opendir(dir.c_str())) {
    while (dirent *e = ::readdir(d)) {
      const std::string n = e->d_name;
      if (n != "." && n != ".." && (hidden || n[0] != '.')) names.push_back(n);
    }
    ::closedir(d);
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace testutil

#endif
