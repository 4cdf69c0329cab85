// Helpers shared by the tests of the small legacy formats (BMP, PNM, PCX/DCX,
// TGA): save/load shortcuts, independent decoders and truncation sweeps.
#ifndef QUILLA_TESTS_TESSEL_LEGACY_TEST_HELPERS_H
#define QUILLA_TESTS_TESSEL_LEGACY_TEST_HELPERS_H

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tessel.h"
#include "test_util.h"

namespace legacy {

inline int Fmt(const char *name) { return tslFormatGetIndex(name); }

inline int Save(const std::string &path, const TslPicture &pic, const char *format, int compression = 0,
                int ascii = 0, int os2 = 0) {
  TslParams p;
  tslDefaultParams(&p);
  p.format = Fmt(format);
  p.compression = compression;
  p.ppm_ascii = ascii;
  p.os2_header = os2;
  return tslSave(path.c_str(), &pic, &p);
}

struct LoadOptions {
  int format = -1;  // -1: detect
  unsigned flags = 0;
  int page = 0;
  uint64_t max_pixels = 0;
  TslProgressFunc progress = nullptr;
};

inline int Load(const std::string &path, TslPicture *pic, const LoadOptions &o = LoadOptions()) {
  TslParams p;
  tslDefaultParams(&p);
  p.format = o.format;
  p.flags = o.flags;
  p.page = o.page;
  p.max_pixels = o.max_pixels;
  p.progress = o.progress;
  return tslLoad(path.c_str(), pic, &p);
}

// A picture decoded by ImageMagick ("convert file ppm:-"), or by another
// tool of the same command line (GraphicsMagick's "gm convert"), as RGB.
inline bool DecodeWithConvert(const testutil::TempDir &dir, const std::string &file, TslPicture *out,
                              const std::string &tool = "convert", const std::string &options = "") {
  const std::string ppm = dir.file("independent.ppm");
  if (testutil::Run(tool + " '" + file + "' " + options + " -depth 8 ppm:'" + ppm + "'") != 0) return false;
  return testutil::ReadPnm(ppm, out);
}

// Runs an independent netpbm decoder ("tool file > out.pnm") and reads its output.
inline bool DecodeWithNetpbm(const testutil::TempDir &dir, const std::string &tool, const std::string &file,
                             TslPicture *out) {
  const std::string pnm = dir.file("netpbm.pnm");
  if (testutil::Run("(" + tool + " '" + file + "' > '" + pnm + "')") != 0) return false;
  return testutil::ReadPnm(pnm, out);
}

// Owns a picture for the duration of a test.
struct Pic {
  TslPicture p;
  Pic() { std::memset(&p, 0, sizeof p); }
  explicit Pic(const TslPicture &q) : p(q) {}
  ~Pic() {
    if (p.pixels) tslFree(&p);
  }
  Pic(Pic &&o) noexcept : p(o.p) { std::memset(&o.p, 0, sizeof o.p); }
  Pic(const Pic &) = delete;
  Pic &operator=(const Pic &) = delete;
  TslPicture *operator&() { return &p; }
  TslPicture &operator*() { return p; }
  TslPicture *operator->() { return &p; }
};

// Cuts a valid file at several lengths (the last one inside the last row): each load fails with a read or
// corruption error (never a crash), and with TSL_FLAG_KEEP_DAMAGED every cut
// after the header gives a picture of the full size.
// `trailer` bytes at the end follow the pixel data (palettes, footers).
inline void CheckTruncations(const testutil::TempDir &dir, const std::string &file, int format, size_t header,
                             size_t trailer = 0) {
  const std::string data = testutil::ReadFile(file);
  ASSERT_GT(data.size(), header + trailer + 3);
  const std::string cut = dir.file("cut");
  for (size_t len : {size_t(1), header / 2, header + 1, (header + data.size()) / 2, data.size() - trailer - 3}) {
    if (len == 0 || len >= data.size()) continue;
    testutil::WriteFile(cut, data.substr(0, len));
    Pic pic;
    LoadOptions o;
    o.format = format;
    int code = Load(cut, &pic, o);
    EXPECT_TRUE(code == TSL_ERR_READ || code == TSL_ERR_CORRUPT || (len < header && code == TSL_ERR_BAD_FILE))
        << "length " << len << " gave " << code;
    EXPECT_EQ(pic->pixels, nullptr);
    if (len > header) {
      Pic kept;
      o.flags = TSL_FLAG_KEEP_DAMAGED;
      EXPECT_EQ(Load(cut, &kept, o), TSL_OK) << "length " << len;
      TslFileInfo info;
      ASSERT_EQ(tslFileInformation(file.c_str(), format, 0, &info), TSL_OK);
      EXPECT_EQ(kept->width, info.width);
      EXPECT_EQ(kept->height, info.height);
      tslFileInformationFree(&info);
    }
  }
}

// Writes an RGB picture as a binary PPM without using our writer, as input
// for the independent encoders.
inline void WritePpm(const std::string &path, const TslPicture &pic) {
  std::string out = "P6\n" + std::to_string(pic.width) + " " + std::to_string(pic.height) + "\n255\n";
  std::vector<unsigned char> row(pic.width * 3);
  for (uint32_t y = 0; y < pic.height; ++y) {
    tslGetRowRGB(&pic, y, row.data());
    out.append(reinterpret_cast<const char *>(row.data()), row.size());
  }
  testutil::WriteFile(path, out);
}

inline std::string Le16(unsigned v) { return std::string{char(v & 0xFF), char(v >> 8 & 0xFF)}; }
inline std::string Le32(uint32_t v) { return Le16(v & 0xFFFF) + Le16(v >> 16); }

inline int StopAtOnce(int, int, void *) { return 1; }

}  // namespace legacy

#endif
