// WebP reading and writing through the tsl calls, checked against dwebp on
// files cwebp and img2webp wrote.
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

TslParams WebpParams() {
  TslParams p;
  tslDefaultParams(&p);
  p.format = tslFormatGetIndex("webp");
  return p;
}

using Pic = testutil::OwnedPicture;
using Info = testutil::OwnedInfo;

int StopAt(int what, int value, void *) { return what == 0 && value >= 1; }

std::string Ppm(const TslPicture &p) {
  std::string out = "P6\n" + std::to_string(p.width) + " " + std::to_string(p.height) + "\n255\n";
  std::vector<uint8_t> row(p.width * 3);
  for (uint32_t y = 0; y < p.height; ++y) {
    tslGetRowRGB(&p, y, row.data());
    out.append(reinterpret_cast<char *>(row.data()), row.size());
  }
  return out;
}

TEST(Webp, LosslessRoundTripIsExact) {
  TempDir dir;
  for (int model : {TSL_RGB, TSL_RGBA, TSL_BGR, TSL_GREY}) {
    SCOPED_TRACE(model);
    Pic src;
    src.p = MakePicture(model, 45, 31, 7);
    if (model == TSL_RGBA) src.p.pixels[3] = 0;  // a fully transparent pixel keeps its colour
    const std::string path = dir.file("l.webp");
    TslParams params = WebpParams();
    params.compression = 1;
    if (model == TSL_GREY) {
      EXPECT_EQ(tslSave(path.c_str(), &src.p, &params), TSL_ERR_CANT_SAVE);
      continue;
    }
    ASSERT_EQ(tslSave(path.c_str(), &src.p, &params), TSL_OK);
    Pic back;
    ASSERT_EQ(tslLoad(path.c_str(), &back.p, nullptr), TSL_OK);
    EXPECT_EQ(back.p.color_model, model == TSL_RGBA ? TSL_RGBA : TSL_RGB);
    EXPECT_TRUE(testutil::SameColors(src.p, back.p, 0, true));
    Info info;
    ASSERT_EQ(tslFileInformation(path.c_str(), -1, 0, &info.i), TSL_OK);
    EXPECT_EQ(info.i.compression, TSL_COMP_WEBP_LOSSLESS);
    EXPECT_EQ(info.i.has_alpha, model == TSL_RGBA);
    EXPECT_EQ(info.i.pages, 1);
  }
}

TEST(Webp, LossyQualityBoundsTheError) {
  TempDir dir;
  Pic src;
  src.p = MakePicture(TSL_RGB, 128, 96, 3);
  TslParams params = WebpParams();
  const std::string hi = dir.file("hi.webp"), lo = dir.file("lo.webp");
  params.quality = 95;
  ASSERT_EQ(tslSave(hi.c_str(), &src.p, &params), TSL_OK);
  params.quality = 10;
  ASSERT_EQ(tslSave(lo.c_str(), &src.p, &params), TSL_OK);
  Pic a, b;
  ASSERT_EQ(tslLoad(hi.c_str(), &a.p, nullptr), TSL_OK);
  ASSERT_EQ(tslLoad(lo.c_str(), &b.p, nullptr), TSL_OK);
  EXPECT_LT(testutil::MeanAbsDiff(src.p, a.p), 8.0);
  EXPECT_GT(testutil::MeanAbsDiff(src.p, b.p), testutil::MeanAbsDiff(src.p, a.p));
  EXPECT_LT(ReadFile(lo).size(), ReadFile(hi).size());
  Info info;
  ASSERT_EQ(tslFileInformation(hi.c_str(), -1, 0, &info.i), TSL_OK);
  EXPECT_EQ(info.i.compression, TSL_COMP_WEBP_LOSSY);
  EXPECT_EQ(info.i.color_model, TSL_RGB);
}

TEST(Webp, MatchesDwebpOnCwebpFiles) {
  if (!HaveTool("cwebp") || !HaveTool("dwebp")) GTEST_SKIP() << "cwebp/dwebp missing";
  TempDir dir;
  Pic src;
  src.p = MakePicture(TSL_RGB, 90, 70, 5);
  WriteFile(dir.file("in.ppm"), Ppm(src.p));
  for (const char *options : {"-q 80", "-lossless", "-q 50 -sharp_yuv"}) {
    SCOPED_TRACE(options);
    const std::string webp = dir.file("x.webp"), ref = dir.file("ref.ppm");
    ASSERT_EQ(testutil::Run(std::string("cwebp -quiet ") + options + " '" + dir.file("in.ppm") + "' -o '" + webp + "'"),
              0);
    ASSERT_EQ(testutil::Run("dwebp -quiet '" + webp + "' -ppm -o '" + ref + "'"), 0);
    Pic ours, theirs;
    ASSERT_EQ(tslLoad(webp.c_str(), &ours.p, nullptr), TSL_OK);
    ASSERT_TRUE(testutil::ReadPnm(ref, &theirs.p));
    EXPECT_TRUE(testutil::SamePixels(ours.p, theirs.p));
  }
}

// Three frames: the second changes only a small square, so the encoder
// stores a sub-rectangle that must be composited over the first frame.
TEST(Webp, AnimationFramesArePagesAsShown) {
  if (!HaveTool("img2webp")) GTEST_SKIP() << "img2webp missing";
  TempDir dir;
  Pic f[3];
  f[0].p = MakePicture(TSL_RGB, 64, 48, 1);
  ASSERT_EQ(tslCopyPicture(&f[1].p, &f[0].p), TSL_OK);
  for (uint32_t y = 10; y < 20; ++y)
    for (uint32_t x = 30; x < 45; ++x) std::memset(f[1].p.pixels + y * f[1].p.bytes_per_line + 3 * x, 200, 3);
  f[2].p = MakePicture(TSL_RGB, 64, 48, 2);
  std::string frames;
  for (int i = 0; i < 3; ++i) {
    const std::string name = dir.file("f" + std::to_string(i) + ".ppm");
    WriteFile(name, Ppm(f[i].p));
    frames += " -d " + std::to_string(100 * (i + 1)) + " '" + name + "'";
  }
  const std::string anim = dir.file("anim.webp");
  ASSERT_EQ(testutil::Run("img2webp -lossless -loop 3" + frames + " -o '" + anim + "'"), 0);

  Info info;
  ASSERT_EQ(tslFileInformation(anim.c_str(), -1, 0, &info.i), TSL_OK);
  EXPECT_EQ(info.i.pages, 3);
  EXPECT_EQ(info.i.loop_count, 3);
  ASSERT_NE(info.i.delays, nullptr);
  EXPECT_EQ(info.i.delays[0], 100);
  EXPECT_EQ(info.i.delays[1], 200);
  EXPECT_EQ(info.i.delays[2], 300);
  EXPECT_EQ(info.i.width, 64u);

  TslParams params;
  tslDefaultParams(&params);
  for (int page = 0; page < 3; ++page) {
    SCOPED_TRACE(page);
    params.page = page;
    Pic pic;
    ASSERT_EQ(tslLoad(anim.c_str(), &pic.p, &params), TSL_OK);
    EXPECT_TRUE(testutil::SameColors(pic.p, f[page].p));
  }
  params.page = 3;
  Pic none;
  EXPECT_NE(tslLoad(anim.c_str(), &none.p, &params), TSL_OK);
  EXPECT_EQ(none.p.pixels, nullptr);
}

TEST(Webp, DamagedAbsurdLimitedAndStopped) {
  TempDir dir;
  Pic src;
  src.p = MakePicture(TSL_RGB, 200, 150, 9);
  const std::string good = dir.file("good.webp");
  TslParams params = WebpParams();
  ASSERT_EQ(tslSave(good.c_str(), &src.p, &params), TSL_OK);
  const std::string data = ReadFile(good);

  const std::string cut = dir.file("cut.webp");
  WriteFile(cut, data.substr(0, data.size() * 2 / 3));
  Pic pic;
  EXPECT_EQ(tslLoad(cut.c_str(), &pic.p, nullptr), TSL_ERR_READ);
  TslParams keep;
  tslDefaultParams(&keep);
  keep.flags = TSL_FLAG_KEEP_DAMAGED;
  ASSERT_EQ(tslLoad(cut.c_str(), &pic.p, &keep), TSL_OK);
  EXPECT_EQ(pic.p.width, 200u);
  tslFree(&pic.p);
  WriteFile(cut, data.substr(0, 24));
  EXPECT_NE(tslLoad(cut.c_str(), &pic.p, nullptr), TSL_OK);

  // Garbage after a valid RIFF/WEBP header.
  std::string junk = data.substr(0, 12) + std::string(200, '\x5a');
  WriteFile(cut, junk);
  EXPECT_NE(tslLoad(cut.c_str(), &pic.p, nullptr), TSL_OK);
  Info info;
  EXPECT_NE(tslFileInformation(cut.c_str(), -1, 0, &info.i), TSL_OK);

  // A lossless file claiming 16384 x 16384 pixels: the header's 14-bit
  // width-1 and height-1 fields all set.
  TslParams ll = WebpParams();
  ll.compression = 1;
  const std::string big = dir.file("big.webp");
  ASSERT_EQ(tslSave(big.c_str(), &src.p, &ll), TSL_OK);
  std::string b = ReadFile(big);
  const size_t vp8l = b.find("VP8L");
  ASSERT_NE(vp8l, std::string::npos);
  b[vp8l + 9] = char(0xff);
  b[vp8l + 10] = char(0xff);
  b[vp8l + 11] = char(0xff);
  b[vp8l + 12] = char((b[vp8l + 12] & 0xf0) | 0x0f);
  WriteFile(big, b);
  TslParams limit;
  tslDefaultParams(&limit);
  limit.max_pixels = 1000000;
  EXPECT_EQ(tslLoad(big.c_str(), &pic.p, &limit), TSL_ERR_MEMORY);
  Info binfo;
  ASSERT_EQ(tslFileInformation(big.c_str(), -1, 0, &binfo.i), TSL_OK);
  EXPECT_EQ(binfo.i.width, 16384u);

  limit.max_pixels = 200 * 150 - 1;
  EXPECT_EQ(tslLoad(good.c_str(), &pic.p, &limit), TSL_ERR_MEMORY);

  TslParams stop;
  tslDefaultParams(&stop);
  stop.progress = StopAt;
  EXPECT_EQ(tslLoad(good.c_str(), &pic.p, &stop), TSL_STOPPED);
  EXPECT_EQ(pic.p.pixels, nullptr);
}

}  // namespace
