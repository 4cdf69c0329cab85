// PNG reading and writing through the tsl calls: exact round trips of every
// writable kind, files of every colour type written by ImageMagick compared
// with its own decoding, damaged and absurd files.
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

TslParams PngParams() {
  TslParams p;
  tslDefaultParams(&p);
  p.format = tslFormatGetIndex("png");
  p.compression = 6;
  return p;
}

using Pic = testutil::OwnedPicture;
using Info = testutil::OwnedInfo;

int StopAt(int what, int value, void *) { return what == 0 && value >= 40; }

TEST(Png, ExactRoundTripOfEveryKind) {
  TempDir dir;
  const struct {
    int model;
    int colors;
    int bits;  // bit depth the writer should choose
    int loaded_model;
  } cases[] = {{TSL_BINARY, 2, 1, TSL_BINARY},    {TSL_GREY, 256, 8, TSL_GREY},   {TSL_INDEXED, 2, 1, TSL_INDEXED},
               {TSL_INDEXED, 4, 2, TSL_INDEXED},  {TSL_INDEXED, 16, 4, TSL_INDEXED}, {TSL_INDEXED, 200, 8, TSL_INDEXED},
               {TSL_RGB, 0, 8, TSL_RGB},          {TSL_RGBA, 0, 8, TSL_RGBA},     {TSL_BGR, 0, 8, TSL_RGB},
               {TSL_ARGB, 0, 8, TSL_RGBA}};
  for (const auto &c : cases) {
    for (int interlace : {0, 1}) {
      SCOPED_TRACE(std::to_string(c.model) + "/" + std::to_string(c.colors) + (interlace ? " interlaced" : ""));
      Pic src;
      src.p = MakePicture(c.model, 37, 23, 11, c.colors > 0 ? c.colors : 256);
      const std::string path = dir.file("rt.png");
      TslParams params = PngParams();
      params.progressive = interlace;
      ASSERT_EQ(tslSave(path.c_str(), &src.p, &params), TSL_OK);
      Pic back;
      ASSERT_EQ(tslLoad(path.c_str(), &back.p, nullptr), TSL_OK);
      EXPECT_EQ(back.p.color_model, c.loaded_model);
      EXPECT_TRUE(testutil::SameColors(src.p, back.p, 0, true));
      if (c.model == TSL_INDEXED) {
        EXPECT_EQ(back.p.colors, c.colors);
        EXPECT_TRUE(testutil::SamePixels(src.p, back.p));
        EXPECT_EQ(back.p.transparent_index, -1);
      }
      Info info;
      ASSERT_EQ(tslFileInformation(path.c_str(), -1, 0, &info.i), TSL_OK);
      EXPECT_EQ(info.i.bits_per_plane, c.bits);
      EXPECT_EQ(info.i.color_model, c.loaded_model);
      EXPECT_EQ(info.i.compression, TSL_COMP_DEFLATE);
    }
  }
}

TEST(Png, IndexesBeyondTheColourCountAreKept) {
  TempDir dir;
  Pic src;
  src.p = MakePicture(TSL_INDEXED, 20, 10, 3, 40);
  src.p.colors = 3;  // understated: indexes up to 39 are in use
  const std::string path = dir.file("idx.png");
  TslParams params = PngParams();
  ASSERT_EQ(tslSave(path.c_str(), &src.p, &params), TSL_OK);
  Pic back;
  ASSERT_EQ(tslLoad(path.c_str(), &back.p, nullptr), TSL_OK);
  EXPECT_TRUE(testutil::SameColors(src.p, back.p));
}

TEST(Png, TransparencyResolutionAndComment) {
  TempDir dir;
  Pic src;
  src.p = MakePicture(TSL_INDEXED, 30, 20, 5, 16);
  src.p.attr_pair[0] = 96;
  src.p.attr_pair[1] = 96;
  const std::string path = dir.file("t.png");
  TslParams params = PngParams();
  params.transparent_index = 7;
  params.comment = "a comment";
  params.dpi_x = 300;
  params.dpi_y = 150;
  ASSERT_EQ(tslSave(path.c_str(), &src.p, &params), TSL_OK);
  Pic back;
  ASSERT_EQ(tslLoad(path.c_str(), &back.p, nullptr), TSL_OK);
  ASSERT_EQ(back.p.color_model, TSL_INDEXED);
  EXPECT_EQ(back.p.transparent_index, 7);
  EXPECT_EQ(back.p.attr_pair[0], 300u);
  EXPECT_EQ(back.p.attr_pair[1], 150u);
  Info info;
  ASSERT_EQ(tslFileInformation(path.c_str(), -1, 0, &info.i), TSL_OK);
  ASSERT_NE(info.i.comment, nullptr);
  EXPECT_STREQ(info.i.comment, "a comment");
  EXPECT_TRUE(info.i.has_alpha);
  EXPECT_EQ(info.i.dpi_x, 300);

  // Without explicit values the picture's resolution is written.
  params = PngParams();
  ASSERT_EQ(tslSave(path.c_str(), &src.p, &params), TSL_OK);
  Pic again;
  ASSERT_EQ(tslLoad(path.c_str(), &again.p, nullptr), TSL_OK);
  EXPECT_EQ(again.p.attr_pair[0], 96u);
  EXPECT_EQ(again.p.transparent_index, -1);
}

TEST(Png, CompressionLevels) {
  TempDir dir;
  Pic src;
  src.p = MakePicture(TSL_RGB, 120, 90, 8);
  TslParams params = PngParams();
  std::vector<size_t> sizes;
  for (int level : {0, 9, 42, 6}) {
    params.compression = level;
    const std::string path = dir.file("c" + std::to_string(level) + ".png");
    ASSERT_EQ(tslSave(path.c_str(), &src.p, &params), TSL_OK);
    sizes.push_back(ReadFile(path).size());
    Pic back;
    ASSERT_EQ(tslLoad(path.c_str(), &back.p, nullptr), TSL_OK);
    EXPECT_TRUE(testutil::SamePixels(src.p, back.p));
  }
  EXPECT_GT(sizes[0], sizes[1]);
  EXPECT_EQ(sizes[2], sizes[3]);  // out of range: the default level
}

// Files of each PNG colour type written by ImageMagick, decoded by us and by
// ImageMagick into PPM/PGM.
TEST(Png, MatchesImageMagickOnItsFiles) {
  if (!HaveTool("convert")) GTEST_SKIP() << "ImageMagick missing";
  TempDir dir;
  const std::string src = dir.file("src.png");
  ASSERT_EQ(testutil::Run("convert -size 61x43 gradient:'#102030-#f0c080' -swirl 90 '" + src + "'"), 0);
  const struct {
    const char *make;  // options between the input and the output
    const char *prefix;
    int model;
    const char *ref;   // output type for the reference decode
  } cases[] = {
      {"", "PNG24:", TSL_RGB, "ppm"},
      {"-depth 16", "PNG48:", TSL_RGB, "ppm"},
      {"-alpha set -channel A -evaluate set 50% +channel", "PNG32:", TSL_RGBA, "ppm"},
      {"-colors 200", "PNG8:", TSL_INDEXED, "ppm"},
      {"-colorspace Gray", "PNG:", TSL_GREY, "pgm"},
      {"-colorspace Gray -depth 16", "PNG:", TSL_GREY, "pgm"},
      {"-colorspace Gray -depth 2", "PNG:", TSL_GREY, "pgm"},
      {"-colorspace Gray -alpha set -channel A -evaluate set 70% +channel", "PNG:", TSL_RGBA, "pgm"},
      {"-colorspace Gray -threshold 50% -type Bilevel", "PNG:", TSL_BINARY, "pgm"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.make);
    const std::string png = dir.file("x.png"), ref = dir.file(std::string("ref.") + c.ref);
    ASSERT_EQ(testutil::Run("convert '" + src + "' " + c.make + " " + c.prefix + "'" + png + "'"), 0);
    ASSERT_EQ(testutil::Run("convert '" + png + "' -alpha off " + c.ref + ":'" + ref + "'"), 0);
    Pic ours, theirs;
    ASSERT_EQ(tslLoad(png.c_str(), &ours.p, nullptr), TSL_OK);
    ASSERT_TRUE(testutil::ReadPnm(ref, &theirs.p));
    EXPECT_EQ(ours.p.color_model, c.model);
    // 16-bit samples may round one level differently.
    EXPECT_TRUE(testutil::SameColors(ours.p, theirs.p, 1));
  }
}

TEST(Png, PaletteTransparencyKinds) {
  if (!HaveTool("convert")) GTEST_SKIP() << "ImageMagick missing";
  TempDir dir;
  const std::string one = dir.file("one.png"), partial = dir.file("partial.png");
  // Four colours, one of them fully transparent.
  ASSERT_EQ(testutil::Run("convert -size 8x8 xc:red -fill blue -draw 'rectangle 0,0 3,3' -fill green -draw "
                          "'rectangle 4,4 7,7' -fill none -draw 'color 7,0 point' PNG8:'" + one + "'"),
            0);
  ASSERT_EQ(testutil::Run("convert -size 8x8 xc:red -alpha set -fill '#0000ff80' -draw 'color 0,0 reset' "
                          "-fill '#00ff00' -draw 'rectangle 0,0 3,3' -fill none -draw 'color 7,7 point' "
                          "-type PaletteAlpha PNG:'" + partial + "'"),
            0);
  Pic a;
  ASSERT_EQ(tslLoad(one.c_str(), &a.p, nullptr), TSL_OK);
  Info ia;
  ASSERT_EQ(tslFileInformation(one.c_str(), -1, 0, &ia.i), TSL_OK);
  if (ia.i.planes == 1 && ia.i.bits_per_plane <= 8 && a.p.color_model == TSL_INDEXED) {
    ASSERT_GE(a.p.transparent_index, 0);
    EXPECT_EQ(a.p.pixels[7], a.p.transparent_index);
    EXPECT_NE(a.p.pixels[0], a.p.transparent_index);
  } else {
    ADD_FAILURE() << "ImageMagick wrote model " << a.p.color_model;
  }
  Pic b;
  ASSERT_EQ(tslLoad(partial.c_str(), &b.p, nullptr), TSL_OK);
  Info ib;
  ASSERT_EQ(tslFileInformation(partial.c_str(), -1, 0, &ib.i), TSL_OK);
  ASSERT_EQ(ib.i.planes, 1);  // a palette file with partial alpha
  ASSERT_EQ(b.p.color_model, TSL_RGBA);
  EXPECT_EQ(b.p.pixels[1], 255);                     // opaque green
  EXPECT_EQ(b.p.pixels[3], 255);
  EXPECT_EQ(b.p.pixels[(7 * 8 + 7) * 4 + 3], 0);     // cleared point
  EXPECT_EQ(b.p.pixels[(7 * 8 + 0) * 4 + 2], 255);   // half-transparent blue
  EXPECT_EQ(b.p.pixels[(7 * 8 + 0) * 4 + 3], 0x80);
}

TEST(Png, DamagedAndAbsurdFiles) {
  TempDir dir;
  Pic src;
  src.p = MakePicture(TSL_RGB, 100, 80, 1);
  const std::string good = dir.file("good.png");
  TslParams params = PngParams();
  params.compression = 0;  // stored: a cut leaves the top rows intact
  ASSERT_EQ(tslSave(good.c_str(), &src.p, &params), TSL_OK);
  const std::string data = ReadFile(good);

  const std::string cut = dir.file("cut.png");
  WriteFile(cut, data.substr(0, data.size() / 2));
  Pic pic;
  EXPECT_EQ(tslLoad(cut.c_str(), &pic.p, nullptr), TSL_ERR_READ);
  TslParams keep;
  tslDefaultParams(&keep);
  keep.flags = TSL_FLAG_KEEP_DAMAGED;
  ASSERT_EQ(tslLoad(cut.c_str(), &pic.p, &keep), TSL_OK);
  EXPECT_EQ(std::memcmp(pic.p.pixels, src.p.pixels, 300 * 10), 0);
  tslFree(&pic.p);

  WriteFile(cut, data.substr(0, 20));
  Info info;
  EXPECT_EQ(tslFileInformation(cut.c_str(), -1, 0, &info.i), TSL_ERR_READ);

  // A flipped bit inside IDAT fails its CRC.
  std::string bad = data;
  const size_t idat = bad.find("IDAT");
  ASSERT_NE(idat, std::string::npos);
  bad[idat + 200] ^= 0x10;
  WriteFile(cut, bad);
  EXPECT_EQ(tslLoad(cut.c_str(), &pic.p, nullptr), TSL_ERR_CORRUPT);

  // IHDR claiming 100000 x 100000 (with a correct CRC computed by zlib's
  // polynomial over the chunk type and data).
  std::string huge = data;
  auto put32 = [&](size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) huge[at + i] = char(v >> (24 - 8 * i));
  };
  put32(16, 100000);
  put32(20, 100000);
  uint32_t crc = 0xffffffffu;
  for (size_t i = 12; i < 29; ++i) {
    crc ^= static_cast<uint8_t>(huge[i]);
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1)));
  }
  put32(29, ~crc);
  const std::string big = dir.file("big.png");
  WriteFile(big, huge);
  EXPECT_EQ(tslLoad(big.c_str(), &pic.p, nullptr), TSL_ERR_MEMORY);
  Info binfo;
  ASSERT_EQ(tslFileInformation(big.c_str(), -1, 0, &binfo.i), TSL_OK);
  EXPECT_EQ(binfo.i.width, 100000u);

  TslParams limit;
  tslDefaultParams(&limit);
  limit.max_pixels = 100 * 80 - 1;
  EXPECT_EQ(tslLoad(good.c_str(), &pic.p, &limit), TSL_ERR_MEMORY);

  TslParams stop;
  tslDefaultParams(&stop);
  stop.progress = StopAt;
  EXPECT_EQ(tslLoad(good.c_str(), &pic.p, &stop), TSL_STOPPED);
  EXPECT_EQ(pic.p.pixels, nullptr);
}

}  // namespace
