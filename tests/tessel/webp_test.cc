// WebP reading and writing through the tsl calls, checked against dwebp on
// files cwebp and img2webp wrote.
#include <gtest/gtest.h>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

TEST(Webp, LosslessRoundTripIsExactLossyIsClose) {
  TempDir dir;
  for (int model : {TSL_RGB, TSL_RGBA, TSL_BGR, TSL_GREY}) {
    SCOPED_TRACE(model);
    Pic src(MakePicture(model, 45, 31, 7)), back;
    if (model == TSL_RGBA) src->pixels[3] = 0;  // a fully transparent pixel keeps its colour
    const std::string path = dir.file("l.webp");
    if (model == TSL_GREY) {
      EXPECT_EQ(Save(path, src, "webp", 1), TSL_ERR_CANT_SAVE);
      continue;
    }
    ASSERT_EQ(Save(path, src, "webp", 1), TSL_OK);
    ASSERT_EQ(Load(path, &back), TSL_OK);
    EXPECT_EQ(back->color_model, model == TSL_RGBA ? TSL_RGBA : TSL_RGB);
    EXPECT_TRUE(SameColors(src, back, 0, true));
    Info info;
    ASSERT_EQ(FileInfo(path, &info), TSL_OK);
    EXPECT_EQ(info->compression, TSL_COMP_WEBP_LOSSLESS);
    EXPECT_EQ(info->has_alpha, model == TSL_RGBA);
    EXPECT_EQ(info->pages, 1);
  }
  // Lossy: higher quality, smaller error and larger file.
  Pic src(MakePicture(TSL_RGB, 128, 96, 3)), a, b;
  TslParams params = Params("webp");
  const std::string hi = dir.file("hi.webp"), lo = dir.file("lo.webp");
  params.quality = 95;
  ASSERT_EQ(Save(hi, src, params), TSL_OK);
  params.quality = 10;
  ASSERT_EQ(Save(lo, src, params), TSL_OK);
  ASSERT_EQ(Load(hi, &a), TSL_OK);
  ASSERT_EQ(Load(lo, &b), TSL_OK);
  EXPECT_LT(MeanAbsDiff(src, a), 8.0);
  EXPECT_GT(MeanAbsDiff(src, b), MeanAbsDiff(src, a));
  EXPECT_LT(ReadFile(lo).size(), ReadFile(hi).size());
  Info info;
  ASSERT_EQ(FileInfo(hi, &info), TSL_OK);
  EXPECT_EQ(info->compression, TSL_COMP_WEBP_LOSSY);
  EXPECT_EQ(info->color_model, TSL_RGB);
}

TEST(Webp, MatchesDwebpOnCwebpFiles) {
  if (!HaveTool("cwebp") || !HaveTool("dwebp")) GTEST_SKIP() << "cwebp/dwebp missing";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 90, 70, 5));
  WritePpm(dir.file("in.ppm"), src);
  for (const char *options : {"-q 80", "-lossless", "-q 50 -sharp_yuv"}) {
    SCOPED_TRACE(options);
    const std::string webp = dir.file("x.webp");
    ASSERT_EQ(RunWith(std::string("cwebp -quiet ") + options + " SRC -o OUT", dir.file("in.ppm"), webp), 0);
    Pic ours, theirs;
    ASSERT_EQ(Load(webp, &ours), TSL_OK);
    ASSERT_TRUE(ToolPnm("dwebp -quiet '" + webp + "' -ppm -o -", dir, &theirs));
    EXPECT_TRUE(SamePixels(ours, theirs));
  }
}

// Three frames: the second changes only a small square, so the encoder
// stores a sub-rectangle that must be composited over the first frame.
TEST(Webp, AnimationFramesArePagesAsShown) {
  if (!HaveTool("img2webp")) GTEST_SKIP() << "img2webp missing";
  TempDir dir;
  Pic f[3];
  f[0] = Pic(MakePicture(TSL_RGB, 64, 48, 1));
  f[1] = f[0].clone();
  for (uint32_t y = 10; y < 20; ++y) std::memset(f[1]->pixels + y * f[1]->bytes_per_line + 3 * 30, 200, 3 * 15);
  f[2] = Pic(MakePicture(TSL_RGB, 64, 48, 2));
  std::string frames;
  for (int i = 0; i < 3; ++i) {
    const std::string name = dir.file("f" + std::to_string(i) + ".ppm");
    WritePpm(name, f[i]);
    frames += " -d " + std::to_string(100 * (i + 1)) + " '" + name + "'";
  }
  const std::string anim = dir.file("anim.webp");
  ASSERT_EQ(Sh("img2webp -lossless -loop 3" + frames + " -o '" + anim + "'"), 0);
  Info info;
  ASSERT_EQ(FileInfo(anim, &info), TSL_OK);
  EXPECT_EQ(info->pages, 3);
  EXPECT_EQ(info->loop_count, 3);
  ASSERT_NE(info->delays, nullptr);
  EXPECT_EQ(std::vector<int>(info->delays, info->delays + 3), (std::vector<int>{100, 200, 300}));
  EXPECT_EQ(info->width, 64u);
  for (int page = 0; page < 3; ++page) {
    Pic pic;
    ASSERT_EQ(Load(anim, &pic, page), TSL_OK);
    EXPECT_TRUE(SameColors(pic, f[page])) << page;
  }
  Pic none;
  EXPECT_NE(Load(anim, &none, 3), TSL_OK);
  EXPECT_EQ(none->pixels, nullptr);
}

TEST(Webp, DamagedAbsurdLimitedAndStopped) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 200, 150, 9));
  const std::string good = dir.file("good.webp"), big = dir.file("big.webp");
  ASSERT_EQ(Save(good, src, "webp"), TSL_OK);
  const std::string data = ReadFile(good);
  ExpectCutHandled(dir, good, data.size() * 2 / 3);
  int code;
  Info info, binfo;
  LoadBytes(dir, data.substr(0, 24), &code);
  EXPECT_NE(code, TSL_OK);
  // Garbage after a valid RIFF/WEBP header.
  LoadBytes(dir, data.substr(0, 12) + std::string(200, '\x5a'), &code);
  EXPECT_NE(code, TSL_OK);
  EXPECT_NE(FileInfo(dir.file("made.bin"), &info), TSL_OK);
  // A lossless file claiming 16384 x 16384 pixels: the header's 14-bit
  // width-1 and height-1 fields all set.
  ASSERT_EQ(Save(big, src, "webp", 1), TSL_OK);
  std::string b = ReadFile(big);
  const size_t vp8l = b.find("VP8L");
  ASSERT_NE(vp8l, std::string::npos);
  b[vp8l + 9] = b[vp8l + 10] = b[vp8l + 11] = char(0xff);
  b[vp8l + 12] = char((b[vp8l + 12] & 0xf0) | 0x0f);
  WriteFile(big, b);
  Pic pic;
  TslParams limit = Params();
  limit.max_pixels = 1000000;
  EXPECT_EQ(tslLoad(big.c_str(), &pic, &limit), TSL_ERR_MEMORY);
  ASSERT_EQ(FileInfo(big, &binfo), TSL_OK);
  EXPECT_EQ(binfo->width, 16384u);
  ExpectLimitAndStop(good, 200 * 150, 1);
}

}  // namespace
