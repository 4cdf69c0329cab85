// JPEG 2000 reading and writing through the tsl calls, checked against
// opj_decompress on files opj_compress wrote.
#include <gtest/gtest.h>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

TslParams Jp2Params(int quality) {
  TslParams p = Params("jp2");
  p.quality = quality;
  return p;
}

// Binary PGM/PPM with any maxval (two bytes per sample above 255).
std::string Pnm(const TslPicture &p, int maxval) {
  const bool grey = p.color_model == TSL_GREY;
  std::string out = std::string(grey ? "P5" : "P6") + "\n" + std::to_string(p.width) + " " +
                    std::to_string(p.height) + "\n" + std::to_string(maxval) + "\n";
  std::vector<uint8_t> row(p.width * 3);
  for (uint32_t y = 0; y < p.height; ++y) {
    const uint8_t *s = grey ? p.pixels + y * p.bytes_per_line : row.data();
    if (!grey) tslGetRowRGB(&p, y, row.data());
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
  for (int model : {TSL_GREY, TSL_RGB, TSL_RGBA, TSL_BGR})
    for (uint32_t size : {1u, 3u, 70u}) {
      SCOPED_TRACE(testing::Message() << model << " size " << size);
      Pic src(MakePicture(model, size, size * 2 / 3 + 1, 4)), back;
      const std::string path = dir.file("l.jp2");
      ASSERT_EQ(Save(path, src, Jp2Params(100)), TSL_OK);
      ASSERT_EQ(Load(path, &back), TSL_OK);
      EXPECT_EQ(back->color_model, model == TSL_BGR ? TSL_RGB : model);
      EXPECT_TRUE(SameColors(src, back, 0, true));
      Info info;
      ASSERT_EQ(FileInfo(path, &info), TSL_OK);
      EXPECT_EQ(info->compression, TSL_COMP_JPEG2000);
      EXPECT_EQ(info->planes, model == TSL_GREY ? 1 : model == TSL_RGBA ? 4 : 3);
      EXPECT_EQ(info->has_alpha, model == TSL_RGBA);
    }
}

TEST(Jp2, LossyQualityBoundsTheError) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 160, 120, 2));
  std::vector<size_t> sizes;
  std::vector<double> errors;
  for (int q : {100, 90, 40}) {
    const std::string path = dir.file("q" + std::to_string(q) + ".jp2");
    Pic back;
    ASSERT_EQ(Save(path, src, Jp2Params(q)), TSL_OK);
    ASSERT_EQ(Load(path, &back), TSL_OK);
    sizes.push_back(ReadFile(path).size());
    errors.push_back(MeanAbsDiff(src, back));
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
  Pic rgb(MakePicture(TSL_RGB, 83, 59, 6)), grey(MakePicture(TSL_GREY, 83, 59, 7));
  WriteFile(dir.file("rgb.ppm"), Pnm(rgb, 255));
  WriteFile(dir.file("grey.pgm"), Pnm(grey, 255));
  WriteFile(dir.file("grey12.pgm"), Pnm(grey, 4095));
  WriteFile(dir.file("rgb5.ppm"), Pnm(rgb, 31));
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
    ASSERT_EQ(Sh("opj_compress -i '" + dir.file(c.input) + "' -o '" + out + "' " + c.options +
                 " && opj_decompress -i '" + out + "' -o '" + ref + "'"),
              0);
    Pic ours, theirs;
    ASSERT_EQ(Load(out, &ours), TSL_OK);
    ASSERT_TRUE(ReadPnm(ref, &theirs));
    EXPECT_EQ(ours->color_model, c.model);
    EXPECT_TRUE(SamePixels(ours, theirs));
  }
  Info info;
  ASSERT_EQ(FileInfo(dir.file("e.j2k"), &info), TSL_OK);
  EXPECT_EQ(info->bits_per_plane, 12);
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
  yuv += std::string(w / 2 * h / 2, char(100)) + std::string(w / 2 * h / 2, char(170));  // Cb, Cr
  WriteFile(dir.file("in.raw"), yuv);
  const std::string out = dir.file("s.j2k");
  ASSERT_EQ(Sh("opj_compress -i '" + dir.file("in.raw") + "' -o '" + out + "' -F 64,32,3,8,u@1x1:2x2:2x2 -mct 0 -n 3"),
            0);
  Pic pic;
  ASSERT_EQ(Load(out, &pic), TSL_OK);
  ASSERT_EQ(pic->color_model, TSL_RGB);
  ASSERT_EQ(pic->width, 64u);
  ASSERT_EQ(pic->height, 32u);
  auto clamp = [](double v) { return v < 0 ? 0 : v > 255 ? 255 : v; };
  for (int x = 0; x < w; x += 7) {
    const double Y = 40 + x * 3, cb = 100 - 128, cr = 170 - 128;
    EXPECT_NEAR(Px(pic, x, 9, 0), clamp(Y + 1.402 * cr), 1.5) << x;
    EXPECT_NEAR(Px(pic, x, 9, 1), clamp(Y - 0.344136 * cb - 0.714136 * cr), 1.5) << x;
    EXPECT_NEAR(Px(pic, x, 9, 2), clamp(Y + 1.772 * cb), 1.5) << x;
  }
}

TEST(Jp2, ReducedLoadUsesTheResolutionLevels) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 400, 300, 8));
  const std::string path = dir.file("r.jp2");
  ASSERT_EQ(Save(path, src, Jp2Params(100)), TSL_OK);
  TslParams load = Params();
  load.target_width = load.target_height = 60;
  Pic small, full;
  ASSERT_EQ(tslLoad(path.c_str(), &small, &load), TSL_OK);
  EXPECT_EQ(small->width, 60u);
  EXPECT_EQ(small->height, 45u);
  ASSERT_EQ(Load(path, &full), TSL_OK);
  // Average colour is kept by both the wavelet reduction and the averaging.
  auto mean = [](const TslPicture &p) {
    double sum = 0;
    for (uint32_t y = 0; y < p.height; ++y)
      for (uint32_t x = 0; x < p.width * 3; ++x) sum += p.pixels[y * p.bytes_per_line + x];
    return sum / (p.width * p.height * 3.0);
  };
  EXPECT_NEAR(mean(small), mean(full), 3.0);
}

TEST(Jp2, DamagedAbsurdLimitedAndStopped) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 120, 90, 3));
  const std::string good = dir.file("good.jp2");
  ASSERT_EQ(Save(good, src, Jp2Params(100)), TSL_OK);
  const std::string data = ReadFile(good);
  ExpectCutHandled(dir, good, data.size() / 2);
  for (size_t n : {size_t(12), size_t(60), size_t(100)}) {
    int code;
    Info info;
    LoadBytes(dir, data.substr(0, n), &code);
    EXPECT_NE(code, TSL_OK) << n;
    EXPECT_NE(FileInfo(dir.file("made.bin"), &info), TSL_OK) << n;
  }
  // A file whose header box and SIZ marker claim 60000 x 60000 pixels.
  std::string huge = data;
  const size_t siz = huge.find("\xFF\x4F\xFF\x51"), ihdr = huge.find("ihdr");
  ASSERT_NE(siz, std::string::npos);
  ASSERT_NE(ihdr, std::string::npos);
  for (size_t at : {ihdr + 4, ihdr + 8, siz + 8, siz + 12, siz + 24, siz + 28})  // Xsiz, Ysiz, XTsiz, YTsiz
    huge.replace(at, 4, std::string("\0\0\xEA\x60", 4));
  int code;
  LoadBytes(dir, huge, &code);
  EXPECT_EQ(code, TSL_ERR_MEMORY);
  ExpectLimitAndStop(good, 120 * 90);
}

}  // namespace
