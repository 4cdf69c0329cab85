// Silicon Graphics image reader and writer.
#include <gtest/gtest.h>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

TEST(Sgi, RoundTripVerbatimAndRle) {
  TempDir dir;
  for (int compression : {0, 1}) {
    for (int model : {TSL_GREY, TSL_RGB, TSL_RGBA}) {
      Pic src(MakePicture(model, 61, 19, 7));
      // Long runs as well as noise, so both kinds of RLE packet occur.
      for (uint32_t x = 0; x < 61 * src->bytes_per_pixel; ++x) src->pixels[x] = 200;
      const std::string path = dir.file("rt.sgi");
      ASSERT_EQ(Save(path, src, "sgi", compression), TSL_OK);
      Info info;
      ASSERT_EQ(FileInfo(path, &info), TSL_OK);
      EXPECT_EQ(info->compression, compression ? TSL_COMP_RLE : TSL_COMP_NONE);
      Pic back;
      ASSERT_EQ(Load(path, &back), TSL_OK);
      EXPECT_TRUE(SamePixels(src, back)) << model << " " << compression;
      if (HaveTool("convert")) {
        Pic im;
        ASSERT_TRUE(ToolPnm("convert '" + path + "' ppm:-", dir, &im));
        EXPECT_TRUE(SameColors(src, im)) << model << " " << compression;
      }
    }
  }
}

TEST(Sgi, ReadsImageMagickAndNetpbmFiles) {
  if (!HaveTool("convert") || !HaveTool("pnmtosgi")) GTEST_SKIP() << "convert/pnmtosgi missing";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 37, 23, 5));
  const std::string s = dir.file("src.ppm"), x = dir.file("x.sgi");
  ASSERT_EQ(Save(s, src, "ppm"), TSL_OK);
  const std::string makes[] = {
      "convert '" + s + "' '" + x + "'",
      "convert '" + s + "' -compress RLE '" + x + "'",
      "convert '" + s + "' -depth 16 '" + x + "'",
      "convert '" + s + "' -depth 16 -compress RLE '" + x + "'",
      "pnmtosgi '" + s + "' > '" + x + "'",
      "pnmtosgi -verbatim '" + s + "' > '" + x + "'",
  };
  for (const std::string &make : makes) {
    ASSERT_EQ(Sh(make), 0) << make;
    Pic ours;
    ASSERT_EQ(Load(x, &ours), TSL_OK) << make;
    EXPECT_TRUE(SameColors(src, ours)) << make;
  }
  // Grey (one channel) from netpbm.
  ASSERT_EQ(Sh("convert '" + s + "' -colorspace gray pgm:- | pnmtosgi > '" + x + "'"), 0);
  Pic grey, ref;
  ASSERT_EQ(Load(x, &grey), TSL_OK);
  EXPECT_EQ(grey->color_model, TSL_GREY);
  ASSERT_TRUE(ToolPnm("convert '" + s + "' -colorspace gray pgm:-", dir, &ref));
  EXPECT_TRUE(SamePixels(ref, grey));
}

TEST(Sgi, TruncatedAndDamagedInput) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 40, 30, 2));
  const std::string good = dir.file("g.sgi");
  for (int rle : {0, 1}) {
    ASSERT_EQ(Save(good, src, "sgi", rle), TSL_OK);
    // Rows are stored bottom-up: the last row of the picture comes first.
    ExpectCutHandled(dir, good, ReadFile(good).size() - 5, -1, 0, 29, 1);
  }
  // An RLE row whose offset points outside the file, and one whose runs
  // overfill the row (kept when damaged files are).
  const std::string d = ReadFile(good);
  std::string outside = d, overfull = d;
  outside[512] = '\x7f';
  overfull[static_cast<uint8_t>(d[512]) << 24 | static_cast<uint8_t>(d[513]) << 16 | static_cast<uint8_t>(d[514]) << 8 |
           static_cast<uint8_t>(d[515])] = '\x7f';  // a run of 127 in a row of 40
  int code;
  LoadBytes(dir, outside, &code);
  EXPECT_EQ(code, TSL_ERR_CORRUPT);
  LoadBytes(dir, overfull, &code);
  EXPECT_EQ(code, TSL_ERR_CORRUPT);
  Pic kept;
  EXPECT_EQ(Load(dir.file("made.bin"), &kept, 0, TSL_FLAG_KEEP_DAMAGED), TSL_OK);
  // Absurd headers: bad bytes per channel, no size, only a header.
  for (int field : {3, 7}) {
    std::string bad = d;
    bad[field] = field == 3 ? 9 : 0;
    bad[field - 1] = 0;
    LoadBytes(dir, bad, &code, Fmt("sgi"));
    EXPECT_EQ(code, TSL_ERR_BAD_FILE) << field;
  }
  LoadBytes(dir, d.substr(0, 300), &code);
  EXPECT_EQ(code, TSL_ERR_READ);
}

}  // namespace
