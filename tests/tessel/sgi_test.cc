// Silicon Graphics image reader and writer.
#include <gtest/gtest.h>

#include "xfmt_util.h"

using testutil::HaveTool;
using testutil::MakePicture;
using testutil::ReadFile;
using testutil::SameColors;
using testutil::SamePixels;
using testutil::TempDir;
using xfmt::Load;
using xfmt::Pic;
using xfmt::Save;

namespace {

TEST(Sgi, RoundTripVerbatimAndRle) {
  TempDir dir;
  for (int compression : {0, 1}) {
    for (int model : {TSL_GREY, TSL_RGB, TSL_RGBA}) {
      Pic src(MakePicture(model, 61, 19, 7));
      // Long runs as well as noise, so both kinds of RLE packet occur.
      for (uint32_t x = 0; x < 61 * src->bytes_per_pixel; ++x) src->pixels[x] = 200;
      const std::string path = dir.file("rt.sgi");
      ASSERT_EQ(Save(*src, path, "sgi", compression), TSL_OK);
      TslFileInfo info;
      ASSERT_EQ(tslFileInformation(path.c_str(), -1, 0, &info), TSL_OK);
      EXPECT_EQ(info.compression, compression ? TSL_COMP_RLE : TSL_COMP_NONE);
      tslFileInformationFree(&info);
      Pic back;
      ASSERT_EQ(Load(path, &back), TSL_OK);
      EXPECT_TRUE(SamePixels(*src, *back)) << model << " " << compression;
      if (HaveTool("convert")) {
        Pic im;
        ASSERT_TRUE(xfmt::ToolPnm("convert '" + path + "' ppm:-", dir, &im));
        EXPECT_TRUE(SameColors(*src, *im)) << model << " " << compression;
      }
    }
  }
}

TEST(Sgi, ReadsImageMagickAndNetpbmFiles) {
  if (!HaveTool("convert") || !HaveTool("pnmtosgi")) GTEST_SKIP() << "convert/pnmtosgi missing";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 37, 23, 5));
  const std::string s = dir.file("src.ppm"), x = dir.file("x.sgi");
  ASSERT_EQ(Save(*src, s, "ppm"), TSL_OK);
  const std::string makes[] = {
      "convert '" + s + "' '" + x + "'",
      "convert '" + s + "' -compress RLE '" + x + "'",
      "convert '" + s + "' -depth 16 '" + x + "'",
      "convert '" + s + "' -depth 16 -compress RLE '" + x + "'",
      "pnmtosgi '" + s + "' > '" + x + "'",
      "pnmtosgi -verbatim '" + s + "' > '" + x + "'",
  };
  for (const std::string &make : makes) {
    ASSERT_EQ(xfmt::Sh(make), 0) << make;
    Pic ours;
    ASSERT_EQ(Load(x, &ours), TSL_OK) << make;
    EXPECT_TRUE(SameColors(*src, *ours)) << make;
  }
  // Grey (one channel) from netpbm.
  ASSERT_EQ(xfmt::Sh("convert '" + s + "' -colorspace gray pgm:- | pnmtosgi > '" + x + "'"), 0);
  Pic grey, ref;
  ASSERT_EQ(Load(x, &grey), TSL_OK);
  EXPECT_EQ(grey->color_model, TSL_GREY);
  ASSERT_TRUE(xfmt::ToolPnm("convert '" + s + "' -colorspace gray pgm:-", dir, &ref));
  EXPECT_TRUE(SamePixels(*ref, *grey));
}

TEST(Sgi, TruncatedAndDamagedInput) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 40, 30, 2));
  for (int compression : {0, 1}) {
    const std::string good = dir.file("g.sgi");
    ASSERT_EQ(Save(*src, good, "sgi", compression), TSL_OK);
    const size_t size = ReadFile(good).size();
    // Rows are stored bottom-up: the last row of the picture comes first.
    xfmt::ExpectTruncationHandled(good, dir, size - 5, -1, 29);
  }
  // An RLE row whose offset points outside the file, and one whose runs overfill the row.
  const std::string good = dir.file("g.sgi");
  std::string d = ReadFile(good);
  std::string bad = d;
  bad[512] = '\x7f';
  testutil::WriteFile(dir.file("b.sgi"), bad);
  Pic p;
  EXPECT_EQ(Load(dir.file("b.sgi"), &p), TSL_ERR_CORRUPT);
  bad = d;
  const size_t start = (static_cast<uint8_t>(d[512]) << 24 | static_cast<uint8_t>(d[513]) << 16 |
                        static_cast<uint8_t>(d[514]) << 8 | static_cast<uint8_t>(d[515]));
  bad[start] = '\x7f';  // a run of 127 in a row of 40
  testutil::WriteFile(dir.file("b.sgi"), bad);
  Pic q, kept;
  EXPECT_EQ(Load(dir.file("b.sgi"), &q), TSL_ERR_CORRUPT);
  EXPECT_EQ(Load(dir.file("b.sgi"), &kept, TSL_FLAG_KEEP_DAMAGED), TSL_OK);
  // Absurd headers: bad bytes per channel, no size, only a header.
  for (int field : {3, 7}) {
    bad = d;
    bad[field] = field == 3 ? 9 : 0;
    bad[field - 1] = 0;
    testutil::WriteFile(dir.file("b.sgi"), bad);
    Pic r;
    EXPECT_EQ(Load(dir.file("b.sgi"), &r, 0, xfmt::Format("sgi")), TSL_ERR_BAD_FILE) << field;
  }
  testutil::WriteFile(dir.file("b.sgi"), d.substr(0, 300));
  Pic r;
  EXPECT_EQ(Load(dir.file("b.sgi"), &r), TSL_ERR_READ);
}

}  // namespace
