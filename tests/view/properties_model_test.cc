// The size texts at their unit boundaries and the properties dialog's lines.
#include "view/properties_model.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using namespace quilla;

TEST(SizeText, StepsOf1024WithTwoDecimals) {
  EXPECT_EQ(SizeText(0), "0 bytes");
  EXPECT_EQ(SizeText(1023), "1023 bytes");
  EXPECT_EQ(SizeText(1024), "1.00 Kb");
  EXPECT_EQ(SizeText(1536), "1.50 Kb");
  EXPECT_EQ(SizeText(1048575), "1024.00 Kb");  // rounds up in print, still below a megabyte
  EXPECT_EQ(SizeText(1048576), "1.00 Mb");
  EXPECT_EQ(SizeText(1073741823), "1024.00 Mb");
  EXPECT_EQ(SizeText(1073741824), "1.00 Gb");
  EXPECT_EQ(SizeText(5.0 * 1073741824 * 1024), "5120.00 Gb");  // no larger unit
}

TEST(PropertyLines, OptionalLinesOnlyWhenTheFileHasThem) {
  TslFileInfo info;
  std::memset(&info, 0, sizeof info);
  info.format = tslFormatGetIndex("png");
  info.width = 300;
  info.height = 200;
  info.bits_per_plane = 8;
  info.planes = 3;
  info.colors = 1L << 24;
  info.pages = 1;
  auto names = [](const std::vector<PropertyLine> &lines) {
    std::string s;
    for (const PropertyLine &l : lines) s += l.name + " ";
    return s;
  };
  std::vector<PropertyLine> lines = PropertyLines("/p/a.png", 2048, info);
  EXPECT_EQ(names(lines), "File Size Format Dimensions Colors Compression Resolution ");
  EXPECT_EQ(lines[1].value, "2.00 Kb");
  EXPECT_EQ(lines[3].value, "300 x 200, 8 bit(s) x 3 plane(s)");
  EXPECT_EQ(lines[6].value, "Unknown");
  EXPECT_EQ(lines[4].value.find("colors"), std::string::npos);  // true colour gives no count

  char comment[] = "hello";
  info.pages = 3;
  info.orientation = 6;
  info.comment = comment;
  info.dpi_x = 300;
  info.dpi_y = 150;
  info.colors = 16;
  lines = PropertyLines("/p/a.png", 10, info);
  EXPECT_EQ(names(lines), "File Size Format Dimensions Colors Compression Resolution Pages Orientation Comment ");
  EXPECT_EQ(lines[6].value, "300 x 150 dpi");
  EXPECT_EQ(lines[7].value, "3");
  EXPECT_EQ(lines[8].value, "6 - Right-top (rotate 90 clockwise)");
  EXPECT_NE(lines[4].value.find("16 colors"), std::string::npos);
  // Orientations outside EXIF's 1..8 are not shown.
  for (int o : {0, 9, -1}) {
    info.orientation = o;
    EXPECT_EQ(names(PropertyLines("x", 1, info)).find("Orientation"), std::string::npos) << o;
  }
}

}  // namespace
