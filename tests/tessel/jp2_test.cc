// JPEG 2000 reading and writing through the tsl calls, checked against
// opj_decompress on files opj_compress wrote.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test_util.h"
#include "tessel.h"

namespace {

using testutil::HaveTool;
using testutil::MakePicture;
using testutil::ReadFile;
using testutil::TempDir;
using testutil::WriteFile;

TslParams Jp2Params() {
  TslParams p;
  tslDefaultParams(&p);
  p.format = tslFormatGetIndex("jp2");
  return p;
}

using Pic = testutil::OwnedPicture;
using Info = testutil::OwnedInfo;

int StopAt(int what, int value, void *) { return what == 0 && value >= 20; }

// Binary PGM/PPM with any maxval (two bytes per sample above 255).
std::string Pnm(const TslPicture &p, int maxval) {
  const bool grey = p.color_model == TSL_GREY;
  std::string out = std::string(grey ? "P5" : "P6") + "\n" + std::to_string(p.width) + " " +
                    std::to_string(p.height) + "\n" + std::to_string(maxval) + "\n";
  std::vector<uint8_t> row(p.width * 3);
  for (uint32_t y = 0; y < p.height; ++y) {
    const uint8_t *s = row.data();
    if (grey) s = p.pixels + y * p.bytes_per_line;
    else tslGetRowRGB(&p, y, row.data());
    for (uint32_t i = 0; i < p.width * (grey ? 1 : 3); ++i) {
      const unsigned v = s[i] * maxval / 255u;
      if (maxval > 255) out += char(v >> 8);
      out += char(v & 0xff);
    }
  }
  return out;
}

TEST(Jp2, LosslessRoundTripIsExact) {
  TempDir dir;
  for (int model : {TSL_GREY, TSL_RGB, TSL_RGBA, TSL_BGR}) {
    for (uint32_t size : {1u, 3u, 70u}) {
      SCOPED_TRACE(std::to_string(model) + " size " + std::to_string(size));
      Pic src;
      src.p = MakePicture(model, size, size * 2 / 3 + 1, 4);
      const std::string path = dir.file("l.jp2");
      TslParams params = Jp2Params();
      params.quality = 100;
      ASSERT_EQ(tslSave(path.c_str(), &src.p, &params), TSL_OK);
      Pic back;
      ASSERT_EQ(tslLoad(path.c_str(), &back.p, nullptr), TSL_OK);
      EXPECT_EQ(back.p.color_model, model == TSL_BGR ? TSL_RGB : model);
      EXPECT_TRUE(testutil::SameColors(src.p, back.p, 0, true));
      Info info;
      ASSERT_EQ(tslFileInformation(path.c_str(), -1, 0, &info.i), TSL_OK);
      EXPECT_EQ(info.i.compression, TSL_COMP_JPEG2000);
      EXPECT_EQ(info.i.planes, model == TSL_GREY ? 1 : model == TSL_RGBA ? 4 : 3);
      EXPECT_EQ(info.i.has_alpha, model == TSL_RGBA);
    }
  }
}

TEST(Jp2, LossyQualityBoundsTheError) {
  TempDir dir;
  Pic src;
  src.p = MakePicture(TSL_RGB, 160, 120, 2);
  TslParams params = Jp2Params();
  std::vector<size_t> sizes;
  std::vector<double> errors;
  for (int q : {100, 90, 40}) {
    params.quality = q;
    const std::string path = dir.file("q" + std::to_string(q) + ".jp2");
    ASSERT_EQ(tslSave(path.c_str(), &src.p, &params), TSL_OK);
    Pic back;
    ASSERT_EQ(tslLoad(path.c_str(), &back.p, nullptr), TSL_OK);
    sizes.push_back(ReadFile(path).size());
    errors.push_back(testutil::MeanAbsDiff(src.p, back.p));
  }
  EXPECT_EQ(errors[0], 0.0);
  EXPECT_GT(sizes[0], sizes[1]);
  EXPECT_GT(sizes[1], sizes[2]);
  EXPECT_LT(errors[1], errors[2]);
  EXPECT_LT(errors[1], 6.0);
}

TEST(Jp2, MatchesOpjDecompressOnOpjCompressFiles) {
  if (!HaveTool("opj_compress") || !HaveTool("opj_decompress")) GTEST_SKIP() << "openjpeg tools missing";
  TempDir dir;
  Pic rgb, grey;
  rgb.p = MakePicture(TSL_RGB, 83, 59, 6);
  grey.p = MakePicture(TSL_GREY, 83, 59, 7);
  WriteFile(dir.file("rgb.ppm"), Pnm(rgb.p, 255));
  WriteFile(dir.file("grey.pgm"), Pnm(grey.p, 255));
  WriteFile(dir.file("grey12.pgm"), Pnm(grey.p, 4095));
  WriteFile(dir.file("rgb5.ppm"), Pnm(rgb.p, 31));
  const struct {
    const char *input, *output, *options, *ref;
    int model;
  } cases[] = {
      {"rgb.ppm", "a.jp2", "", "ppm", TSL_RGB},
      {"rgb.ppm", "b.j2k", "-r 20 -I", "ppm", TSL_RGB},
      {"rgb.ppm", "c.jp2", "-n 3 -p RLCP -t 32,32", "ppm", TSL_RGB},
      {"grey.pgm", "d.jp2", "-r 10", "pgm", TSL_GREY},
      {"grey12.pgm", "e.j2k", "", "pgm", TSL_GREY},
      {"rgb5.ppm", "f.jp2", "", "ppm", TSL_RGB},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.output);
    const std::string out = dir.file(c.output), ref = dir.file(std::string("ref.") + c.ref);
    ASSERT_EQ(testutil::Run("opj_compress -i '" + dir.file(c.input) + "' -o '" + out + "' " + c.options), 0);
    ASSERT_EQ(testutil::Run("opj_decompress -i '" + out + "' -o '" + ref + "'"), 0);
    Pic ours, theirs;
    ASSERT_EQ(tslLoad(out.c_str(), &ours.p, nullptr), TSL_OK);
    ASSERT_TRUE(testutil::ReadPnm(ref, &theirs.p));
    EXPECT_EQ(ours.p.color_model, c.model);
    EXPECT_TRUE(testutil::SamePixels(ours.p, theirs.p));
  }
  Info info;
  ASSERT_EQ(tslFileInformation(dir.file("e.j2k").c_str(), -1, 0, &info.i), TSL_OK);
  EXPECT_EQ(info.i.bits_per_plane, 12);
}

// Chroma at half resolution in both directions (4:2:0), as YCC.
TEST(Jp2, SubsampledChromaIsUpsampled) {
  if (!HaveTool("opj_compress")) GTEST_SKIP() << "opj_compress missing";
  TempDir dir;
  // A raw 4:2:0 YUV picture: Y ramps across, Cb/Cr constant (a flat colour
  // tint), so the expected RGB can be computed per pixel.
  const int w = 64, h = 32;
  std::string yuv;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) yuv += char(40 + x * 3);
  yuv += std::string(w / 2 * h / 2, char(100));  // Cb
  yuv += std::string(w / 2 * h / 2, char(170));  // Cr
  WriteFile(dir.file("in.raw"), yuv);
  const std::string out = dir.file("s.j2k");
  ASSERT_EQ(testutil::Run("opj_compress -i '" + dir.file("in.raw") + "' -o '" + out + "' -F " + std::to_string(w) +
                          "," + std::to_string(h) + ",3,8,u@1x1:2x2:2x2 -mct 0 -n 3"),
            0);
  Pic pic;
  ASSERT_EQ(tslLoad(out.c_str(), &pic.p, nullptr), TSL_OK);
  ASSERT_EQ(pic.p.color_model, TSL_RGB);
  ASSERT_EQ(pic.p.width, 64u);
  ASSERT_EQ(pic.p.height, 32u);
  for (int x = 0; x < w; x += 7) {
    const double Y = 40 + x * 3, cb = 100 - 128, cr = 170 - 128;
    const uint8_t *p = pic.p.pixels + 9 * pic.p.bytes_per_line + 3 * x;
    auto clamp = [](double v) { return v < 0 ? 0 : v > 255 ? 255 : v; };
    EXPECT_NEAR(p[0], clamp(Y + 1.402 * cr), 1.5) << x;
    EXPECT_NEAR(p[1], clamp(Y - 0.344136 * cb - 0.714136 * cr), 1.5) << x;
    EXPECT_NEAR(p[2], clamp(Y + 1.772 * cb), 1.5) << x;
  }
}

TEST(Jp2, ReducedLoadUsesTheResolutionLevels) {
  TempDir dir;
  Pic src;
  src.p = MakePicture(TSL_RGB, 400, 300, 8);
  const std::string path = dir.file("r.jp2");
  TslParams params = Jp2Params();
  params.quality = 100;
  ASSERT_EQ(tslSave(path.c_str(), &src.p, &params), TSL_OK);
  TslParams load;
  tslDefaultParams(&load);
  load.target_width = 60;
  load.target_height = 60;
  Pic small;
  ASSERT_EQ(tslLoad(path.c_str(), &small.p, &load), TSL_OK);
  EXPECT_EQ(small.p.width, 60u);
  EXPECT_EQ(small.p.height, 45u);
  Pic full;
  ASSERT_EQ(tslLoad(path.c_str(), &full.p, nullptr), TSL_OK);
  // Average colour is kept by both the wavelet reduction and the averaging.
  double a = 0, b = 0;
  for (uint32_t y = 0; y < small.p.height; ++y)
    for (uint32_t x = 0; x < small.p.width * 3; ++x) a += small.p.pixels[y * small.p.bytes_per_line + x];
  for (uint32_t y = 0; y < full.p.height; ++y)
    for (uint32_t x = 0; x < full.p.width * 3; ++x) b += full.p.pixels[y * full.p.bytes_per_line + x];
  EXPECT_NEAR(a / (60 * 45 * 3), b / (400 * 300 * 3), 3.0);
}

TEST(Jp2, DamagedAbsurdLimitedAndStopped) {
  TempDir dir;
  Pic src;
  src.p = MakePicture(TSL_RGB, 120, 90, 3);
  const std::string good = dir.file("good.jp2");
  TslParams params = Jp2Params();
  params.quality = 100;
  ASSERT_EQ(tslSave(good.c_str(), &src.p, &params), TSL_OK);
  const std::string data = ReadFile(good);

  const std::string cut = dir.file("cut.jp2");
  WriteFile(cut, data.substr(0, data.size() / 2));
  Pic pic;
  int code = tslLoad(cut.c_str(), &pic.p, nullptr);
  EXPECT_TRUE(code == TSL_ERR_READ || code == TSL_ERR_CORRUPT) << code;
  TslParams keep;
  tslDefaultParams(&keep);
  keep.flags = TSL_FLAG_KEEP_DAMAGED;
  ASSERT_EQ(tslLoad(cut.c_str(), &pic.p, &keep), TSL_OK);
  EXPECT_EQ(pic.p.width, 120u);
  tslFree(&pic.p);
  for (size_t n : {size_t(12), size_t(60), size_t(100)}) {
    WriteFile(cut, data.substr(0, n));
    EXPECT_NE(tslLoad(cut.c_str(), &pic.p, nullptr), TSL_OK) << n;
    Info info;
    EXPECT_NE(tslFileInformation(cut.c_str(), -1, 0, &info.i), TSL_OK) << n;
  }

  // A file whose header box and SIZ marker claim 60000 x 60000 pixels.
  std::string huge = data;
  const size_t siz = huge.find("\xFF\x4F\xFF\x51");
  const size_t ihdr = huge.find("ihdr");
  ASSERT_NE(siz, std::string::npos);
  ASSERT_NE(ihdr, std::string::npos);
  for (size_t at : {ihdr + 4, ihdr + 8, siz + 8, siz + 12, siz + 24, siz + 28}) {  // Xsiz, Ysiz, XTsiz, YTsiz
    huge[at] = 0;
    huge[at + 1] = 0;
    huge[at + 2] = char(0xEA);
    huge[at + 3] = char(0x60);
  }
  const std::string big = dir.file("big.jp2");
  WriteFile(big, huge);
  EXPECT_EQ(tslLoad(big.c_str(), &pic.p, nullptr), TSL_ERR_MEMORY);

  TslParams limit;
  tslDefaultParams(&limit);
  limit.max_pixels = 120 * 90 - 1;
  EXPECT_EQ(tslLoad(good.c_str(), &pic.p, &limit), TSL_ERR_MEMORY);

  TslParams stop;
  tslDefaultParams(&stop);
  stop.progress = StopAt;
  EXPECT_EQ(tslLoad(good.c_str(), &pic.p, &stop), TSL_STOPPED);
  EXPECT_EQ(pic.p.pixels, nullptr);
}

}  // namespace
