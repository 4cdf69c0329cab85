// X bitmap reader and writer.
#include <gtest/gtest.h>

#include <algorithm>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

int Bit(const uint8_t *row, uint32_t x) { return (row[x / 8] >> (7 - x % 8)) & 1; }

TEST(Xbm, RoundTripAndWrittenForm) {
  TempDir dir;
  Pic src(MakePicture(TSL_BINARY, 21, 9, 4));
  const std::string path = dir.file("my-icon.2.xbm");
  ASSERT_EQ(Save(path, src, "xbm"), TSL_OK);
  Pic back;
  ASSERT_EQ(Load(path, &back), TSL_OK);
  EXPECT_TRUE(SamePixels(src, back));
  // The base name becomes the identifier; 12 values per line.
  const std::string text = ReadFile(path);
  EXPECT_EQ(text.find("#define my_icon_2_width 21\n#define my_icon_2_height 9\nstatic char my_icon_2_bits[] = {\n"),
            0u);
  size_t line_start = text.find("{\n") + 2;
  size_t line_end = text.find('\n', line_start);
  const std::string first = text.substr(line_start, line_end - line_start);
  EXPECT_EQ(std::count(first.begin(), first.end(), 'x'), 12) << first;
  if (HaveTool("convert")) {
    Pic im;
    ASSERT_TRUE(ToolPnm("convert '" + path + "' ppm:-", dir, &im));
    EXPECT_TRUE(SameColors(src, im));
  }
}

TEST(Xbm, ReadsOtherWritersAndX10) {
  TempDir dir;
  Pic src(MakePicture(TSL_BINARY, 35, 14, 6));
  const std::string pbm = dir.file("src.pbm"), x = dir.file("x.xbm");
  ASSERT_EQ(Save(pbm, src, "pbm"), TSL_OK);
  std::vector<std::string> makes;
  if (HaveTool("pbmtoxbm")) makes = {"pbmtoxbm '" + pbm + "'", "pbmtoxbm -x10 '" + pbm + "'"};
  if (HaveTool("convert")) makes.push_back("convert '" + pbm + "' xbm:-");
  for (const std::string &make : makes) {
    ASSERT_EQ(Sh(make + " > '" + x + "'"), 0) << make;
    Pic ours;
    ASSERT_EQ(Load(x, &ours), TSL_OK) << make;
    EXPECT_TRUE(SamePixels(src, ours)) << make;
  }
  // Comments, a hot spot, decimal values and "unsigned char".
  WriteFile(x,
                      "/* made by hand */\n#define a_width 10\n#define a_height 2\n#define a_x_hot 1\n"
                      "#define a_y_hot 1\nstatic unsigned char a_bits[] = {\n 1, 0x02, /* row 2 */ 255, 3 };\n");
  Pic hand;
  ASSERT_EQ(Load(x, &hand), TSL_OK);
  ASSERT_EQ(hand->width, 10u);
  // Row 0: only pixel 0 black, pixel 9 black; row 1: pixels 0..9 black.
  for (uint32_t px = 0; px < 10; ++px) {
    EXPECT_EQ(Bit(hand->pixels, px), px == 0 || px == 9 ? 0 : 1) << px;
    EXPECT_EQ(Bit(hand->pixels + hand->bytes_per_line, px), 0) << px;
  }
}

TEST(Xbm, TruncatedAndAbsurdInput) {
  TempDir dir;
  Pic src(MakePicture(TSL_BINARY, 40, 30, 2));
  const std::string good = dir.file("g.xbm");
  ASSERT_EQ(Save(good, src, "xbm"), TSL_OK);
  ExpectCutHandled(dir, good, ReadFile(good).size() / 2, -1, 0, 0, 1);
  Pic p;
  const std::pair<const char *, int> bad[] = {
      {"#define a_width 8\nstatic char a_bits[] = { 0 };\n", TSL_ERR_BAD_FILE},          // no height
      {"#define a_width 0\n#define a_height 4\nstatic char a_bits[] = {0};", TSL_ERR_BAD_FILE},
      {"#define a_width 99999999\n#define a_height 99999999\nstatic char a_bits[] = {0};", TSL_ERR_BAD_FILE},
      {"#define a_width 100000\n#define a_height 100000\nstatic char a_bits[] = {0};", TSL_ERR_READ},
      {"#define a_width 8\n#define a_height 2\nstatic char a_bits[] = {0x01, zz};", TSL_ERR_CORRUPT},
  };
  for (const auto &b : bad) {
    WriteFile(dir.file("b.xbm"), b.first);
    EXPECT_EQ(Load(dir.file("b.xbm"), &p), b.second) << b.first;
  }
}

}  // namespace
