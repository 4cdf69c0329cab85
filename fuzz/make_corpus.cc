// make_corpus: seed corpora for the reader fuzz targets.  For every format
// that can be written, small synthetic pictures of each colour model are
// saved (converted when the format needs it); formats that are only read get
// hand-built files.  Then damaged copies are made of each: truncations and
// deterministic bit flips, mostly in the header.
//
//   make_corpus DIR     writes DIR/<format>/<picture>[.<variant>].<ext>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tessel.h"
#include "tools/tesconv/tesconv.h"

namespace {

bool Make(TslPicture *p, int model, uint32_t w, uint32_t h, uint32_t seed) {
  std::memset(p, 0, sizeof *p);
  if (!tslAllock(p, model, 0, w, h)) return false;
  std::mt19937 rng(seed);
  if (model == TSL_INDEXED) {
    p->colors = 16;
    for (int k = 0; k < 16; ++k)
      for (int c = 0; c < 3; ++c) p->palette[256 * c + k] = static_cast<uint8_t>(rng());
  }
  for (uint32_t y = 0; y < h; ++y) {
    uint8_t *row = p->pixels + static_cast<size_t>(y) * p->bytes_per_line;
    if (model == TSL_BINARY) {
      for (uint32_t x = 0; x < p->bytes_per_line; ++x) row[x] = static_cast<uint8_t>((x + y) % 3 ? 0xF0 : 0x3C);
      continue;
    }
    for (uint32_t x = 0; x < w * p->bytes_per_pixel; ++x)
      row[x] = model == TSL_INDEXED ? static_cast<uint8_t>((x / 3 + y) % 16)
                                    : static_cast<uint8_t>(x * 255 / (w * p->bytes_per_pixel) ^ (y * 16));
  }
  return true;
}

bool WriteBytes(const std::string &path, const std::vector<uint8_t> &data, size_t size) {
  FILE *f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  bool ok = std::fwrite(data.data(), 1, size, f) == size;
  return std::fclose(f) == 0 && ok;
}

bool ReadAll(const std::string &path, std::vector<uint8_t> *data) {
  FILE *f = std::fopen(path.c_str(), "rb");
  if (!f) return false;
  uint8_t buf[65536];
  size_t n;
  data->clear();
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) data->insert(data->end(), buf, buf + n);
  std::fclose(f);
  return true;
}

// Truncated and bit-flipped copies of one seed file.
int Variants(const std::string &seed_path, const std::string &stem, const std::string &ext, uint32_t seed) {
  std::vector<uint8_t> data;
  if (!ReadAll(seed_path, &data) || data.empty()) return 0;
  int written = 0;
  const size_t cuts[] = {data.size() / 2, data.size() / 4, std::min<size_t>(24, data.size()), data.size() - 1};
  for (size_t k = 0; k < 4; ++k)
    written += WriteBytes(stem + ".cut" + std::to_string(k) + "." + ext, data, cuts[k]);
  std::mt19937 rng(seed);
  for (int k = 0; k < 4; ++k) {
    std::vector<uint8_t> flipped = data;
    const int flips = 1 << (2 * k);  // 1, 4, 16, 64
    for (int n = 0; n < flips; ++n) {
      // Half the flips hit the first 64 bytes, where the headers are.
      size_t span = n % 2 ? flipped.size() : std::min<size_t>(64, flipped.size());
      flipped[rng() % span] ^= static_cast<uint8_t>(1u << (rng() % 8));
    }
    written += WriteBytes(stem + ".flip" + std::to_string(k) + "." + ext, flipped, flipped.size());
  }
  // Header bytes set to 0xff: absurd sizes, counts and offsets.
  std::vector<uint8_t> big = data;
  for (size_t i = 4; i < std::min<size_t>(32, big.size()); i += 3) big[i] = 0xff;
  written += WriteBytes(stem + ".big." + ext, big, big.size());
  return written;
}

std::string Be16(unsigned v) { return std::string{char(v >> 8 & 0xff), char(v & 0xff)}; }
std::string Be32(uint32_t v) { return Be16(v >> 16) + Be16(v & 0xffff); }

// Seeds for the formats that are read but not written, built from their
// published layouts: format, file name, bytes.
struct Seed {
  const char *format, *name;
  std::string bytes;
};

std::vector<Seed> ReadOnlySeeds() {
  std::vector<Seed> seeds;
  // Photoshop: RGB in PackBits rows, and raw indexed.
  auto psd = [](int mode, int channels, const std::string &mode_data, int compression, const std::string &data) {
    return "8BPS" + Be16(1) + std::string(6, '\0') + Be16(channels) + Be32(4) + Be32(6) + Be16(8) + Be16(mode) +
           Be32(static_cast<uint32_t>(mode_data.size())) + mode_data + Be32(0) + Be32(0) + Be16(compression) + data;
  };
  std::string counts, rows;
  for (int k = 0; k < 12; ++k) {
    const std::string row = k % 2 ? std::string("\xfb\x40", 2) : std::string("\x05\x01\x02\x03\x04\x05\x06", 7);
    counts += Be16(static_cast<unsigned>(row.size()));
    rows += row;
  }
  seeds.push_back({"psd", "rgb_packbits", psd(3, 3, "", 1, counts + rows)});
  std::string palette(768, '\0');
  for (int k = 0; k < 768; ++k) palette[k] = static_cast<char>(k * 5);
  std::string indices;
  for (int k = 0; k < 24; ++k) indices += static_cast<char>(k * 11);
  seeds.push_back({"psd", "indexed_raw", psd(2, 1, palette, 0, indices)});
  // Photo CD: the 192 x 128 resolution only, with a rotation.
  std::string pcd(0x2000, '\0');
  pcd.replace(0x800, 7, "PCD_IPI");
  pcd[0xE02] = 1;
  for (int pair = 0; pair < 64; ++pair)
    for (int k = 0; k < 3 * 192; ++k) pcd += static_cast<char>(k < 384 ? (k + pair) % 256 : 130 + k % 40);
  seeds.push_back({"pcd", "base16", pcd});
  return seeds;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_corpus DIR\n");
    return 2;
  }
  tslInitLibrary();
  const std::string root = argv[1];
  if (::mkdir(root.c_str(), 0777) != 0 && errno != EEXIST) {
    std::fprintf(stderr, "make_corpus: cannot create %s\n", root.c_str());
    return 1;
  }
  struct Kind {
    const char *name;
    int model;
    uint32_t w, h;
  } kinds[] = {{"rgb", TSL_RGB, 23, 17},    {"grey", TSL_GREY, 16, 9}, {"palette", TSL_INDEXED, 19, 11},
               {"binary", TSL_BINARY, 33, 7}, {"rgba", TSL_RGBA, 12, 12}};
  int files = 0;
  for (int f = 0; f < tslCount(); ++f) {
    if (!tslFormatIsWritable(f)) continue;
    const std::string dir = root + "/" + tslFormatGetName(f);
    ::mkdir(dir.c_str(), 0777);
    const std::string ext = tslFormatGetDefaultSuffix(f);
    uint32_t seed = 1;
    for (const Kind &k : kinds) {
      TslPicture pic;
      if (!Make(&pic, k.model, k.w, k.h, seed)) continue;
      std::string why;
      TslParams params;
      tslDefaultParams(&params);
      params.format = f;
      params.flags = TSL_FLAG_SAVE | TSL_FLAG_UNATTENDED;
      params.width = static_cast<int>(pic.width);
      params.height = static_cast<int>(pic.height);
      const std::string stem = dir + "/" + k.name;
      const std::string path = stem + "." + ext;
      if (quilla::FitPictureToFormat(&pic, f, &why) == TSL_OK && tslSave(path.c_str(), &pic, &params) == TSL_OK) {
        ++files;
        files += Variants(path, stem, ext, seed * 7919u + static_cast<uint32_t>(f));
      }
      tslFree(&pic);
      ++seed;
    }
  }
  uint32_t seed = 1000;
  for (const Seed &s : ReadOnlySeeds()) {
    const int f = tslFormatGetIndex(s.format);
    if (f < 0) continue;
    const std::string dir = root + "/" + s.format, ext = tslFormatGetDefaultSuffix(f);
    ::mkdir(dir.c_str(), 0777);
    const std::string stem = dir + "/" + s.name, path = stem + "." + ext;
    const std::vector<uint8_t> bytes(s.bytes.begin(), s.bytes.end());
    if (!WriteBytes(path, bytes, bytes.size())) continue;
    files += 1 + Variants(path, stem, ext, ++seed);
  }
  // Read-only formats get hand-written seeds: PostScript with and without
  // DSC comments, EPS, and a DOS EPS binary header around PostScript.
  const std::string ps_dir = root + "/ps";
  ::mkdir(ps_dir.c_str(), 0777);
  const std::string two_pages =
      "%!PS-Adobe-3.0\n%%Pages: 2\n%%BoundingBox: 0 0 40 20\n%%EndComments\n"
      "%%Page: 1 1\n1 0 0 setrgbcolor 0 0 40 20 rectfill showpage\n"
      "%%Page: 2 2\n0 0 1 setrgbcolor 0 0 20 20 rectfill showpage\n%%EOF\n";
  const std::string eps = "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 10 10 30 30\n0.5 setgray 10 10 20 20 rectfill\n";
  std::string dos = "\xC5\xD0\xD3\xC6";
  for (uint32_t v : {30u, static_cast<uint32_t>(eps.size()), 0u, 0u, 0u, 0u})
    for (int b = 0; b < 4; ++b) dos += static_cast<char>(v >> (8 * b) & 0xff);
  dos += std::string(2, '\xff') + eps;
  const std::pair<const char *, std::string> seeds[] = {{"pages", two_pages}, {"eps", eps}, {"dos", dos}};
  for (const auto &s : seeds) {
    const std::string stem = ps_dir + "/" + s.first, path = stem + ".ps";
    const std::vector<uint8_t> bytes(s.second.begin(), s.second.end());
    if (WriteBytes(path, bytes, bytes.size())) files += 1 + Variants(path, stem, "ps", static_cast<uint32_t>(bytes.size()));
  }
  // EXIF blocks in both byte orders, as JPEG's APP1 holds them.
  const std::string exif_dir = root + "/exif";
  ::mkdir(exif_dir.c_str(), 0777);
  const std::string le = std::string("Exif\0\0II*\0\x08\0\0\0\x01\0\x12\x01\x03\0\x01\0\0\0\x06\0\0\0\0\0\0\0", 32);
  const std::string be = std::string("MM\0*\0\0\0\x08\0\x01\x01\x12\0\x03\0\0\0\x01\0\x08\0\0\0\0\0\0", 26);
  for (const auto &s : {std::make_pair("le", le), std::make_pair("be", be)}) {
    const std::string stem = exif_dir + "/" + s.first, path = stem + ".exif";
    const std::vector<uint8_t> bytes(s.second.begin(), s.second.end());
    if (WriteBytes(path, bytes, bytes.size())) files += 1 + Variants(path, stem, "exif", static_cast<uint32_t>(bytes.size()));
  }
  std::printf("make_corpus: %d files in %s\n", files, root.c_str());
  return files > 0 ? 0 : 1;
}
