// Sun raster reader and writer.
#include <gtest/gtest.h>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

TEST(SunRaster, ReadsImageMagickAndNetpbmFiles) {
  if (!HaveTool("convert") || !HaveTool("pnmtorast")) GTEST_SKIP() << "convert/pnmtorast missing";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 37, 23, 5));  // odd width: every row is padded
  ExpectToolFileMatches(dir, src, "convert SRC OUT", "x.ras", TSL_RGB);
  ExpectToolFileMatches(dir, src, "convert SRC -alpha on OUT", "x.ras", TSL_RGB);  // 32-bit pixels
  ExpectToolFileMatches(dir, src, "convert SRC -colors 19 OUT", "x.ras", TSL_INDEXED);
  ExpectToolFileMatches(dir, src, "convert SRC -colorspace gray OUT", "x.ras", -1);
  ExpectToolFileMatches(dir, src, "convert SRC -monochrome OUT", "x.ras", -1);
  // netpbm's files, decoded by netpbm too (ImageMagick's decoder drops the
  // end of run-length data): run-length coded, standard, colour-mapped, bilevel.
  Pic mono(MakePicture(TSL_BINARY, 21, 9, 6));
  WritePpm(dir.file("m.ppm"), mono);
  WritePpm(dir.file("src.ppm"), src);
  const std::string s = "'" + dir.file("src.ppm") + "'", x = "'" + dir.file("x.ras") + "'";
  for (const std::string &cmd :
       {"pnmtorast -rle " + s, "pnmtorast -standard " + s, "convert " + s + " -colors 7 ppm:- | pnmtorast -rle",
        "convert '" + dir.file("m.ppm") + "' pbm:- | pnmtorast -rle"}) {
    ASSERT_EQ(Sh(cmd + " > " + x), 0) << cmd;
    Pic ours, theirs;
    ASSERT_EQ(Load(dir.file("x.ras"), &ours), TSL_OK) << cmd;
    ASSERT_TRUE(ToolPnm("rasttopnm " + x, dir, &theirs));
    EXPECT_TRUE(SameColors(ours, theirs)) << cmd;
  }
}

TEST(SunRaster, RoundTripsEveryModelBothCodings) {
  TempDir dir;
  for (int rle : {0, 1}) {
    for (int model : {TSL_BINARY, TSL_GREY, TSL_INDEXED, TSL_RGB, TSL_BGRA}) {
      SCOPED_TRACE(std::to_string(model) + " rle " + std::to_string(rle));
      Pic src(MakePicture(model, 45, 11, 9, 200));
      if (model != TSL_BINARY) {
        // Long runs, and 0x80 (the run marker) alone and repeated.
        for (uint32_t x = 0; x < 40; ++x) src->pixels[x] = 0x80;
        src->pixels[src->bytes_per_line + 3] = 0x80;
      }
      const std::string path = dir.file("rt.ras");
      ASSERT_EQ(Save(path, src, "ras", rle), TSL_OK);
      Pic back;
      ASSERT_EQ(Load(path, &back), TSL_OK);
      if (model == TSL_BGRA) EXPECT_TRUE(SameColors(src, back));
      else EXPECT_TRUE(SamePixels(src, back));
      // netpbm decodes our files; ImageMagick's decoder drops the end of
      // run-length data, so it checks only the plain ones.
      if (HaveTool("rasttopnm")) {
        Pic theirs;
        ASSERT_TRUE(ToolPnm("rasttopnm '" + path + "'", dir, &theirs));
        EXPECT_TRUE(SameColors(src, theirs));
      }
      if (!rle && HaveTool("convert")) {
        Pic theirs;
        ASSERT_TRUE(DecodeWithConvert(dir, path, &theirs));
        EXPECT_TRUE(SameColors(src, theirs));
      }
    }
  }
}

TEST(SunRaster, TruncatedAndAbsurdFiles) {
  TempDir dir;
  Pic src(MakePicture(TSL_INDEXED, 40, 30, 2, 40));
  const std::string good = dir.file("g.ras");
  for (int rle : {0, 1}) {
    ASSERT_EQ(Save(good, src, "ras", rle), TSL_OK);
    CheckTruncations(dir, good, Fmt("ras"), 32 + 120);
  }
  ExpectLimitAndStop(good, 40 * 30);
  const std::string d = ReadFile(good);
  auto with = [&](size_t at, uint32_t v) {
    std::string b = d;
    for (int k = 0; k < 4; ++k) b[at + k] = static_cast<char>(v >> (24 - 8 * k));
    return b;
  };
  int code;
  // Depth 5, type 4, a colour map of 769 bytes or longer than the file, no width.
  for (auto [at, v] : std::vector<std::pair<size_t, uint32_t>>{{12, 5}, {20, 4}, {28, 769}, {4, 0}}) {
    LoadBytes(dir, with(at, v), &code);
    EXPECT_EQ(code, TSL_ERR_BAD_FILE) << at;
  }
  // A huge picture claimed by a small uncompressed or run-length file.
  std::string huge = with(4, 16000);
  for (int k = 0; k < 4; ++k) huge[8 + k] = huge[4 + k];
  LoadBytes(dir, huge, &code);
  EXPECT_EQ(code, TSL_ERR_READ);
  huge[23] = 2;
  LoadBytes(dir, huge, &code);
  EXPECT_EQ(code, TSL_ERR_READ);
  LoadRandomlyDamaged(dir, d, 21);
}

}  // namespace
