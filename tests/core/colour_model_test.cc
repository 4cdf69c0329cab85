#include "core/colour_model.h"

#include <gtest/gtest.h>

namespace quilla {
namespace {

VisualInfo V(unsigned long id, int cls, int depth) {
  VisualInfo v;
  v.id = id;
  v.cls = cls;
  v.depth = depth;
  if (cls == kTrueColor || cls == kDirectColor) {
    if (depth == 16) v.red_mask = 0xf800, v.green_mask = 0x07e0, v.blue_mask = 0x001f;
    else v.red_mask = 0xff0000, v.green_mask = 0xff00, v.blue_mask = 0xff;
  }
  return v;
}

TEST(VisualChoice, KeepsDefaultOfSameDepthAndSwitchesDepth) {
  std::vector<VisualInfo> list = {V(0x21, kTrueColor, 24), V(0x22, kDirectColor, 24)};
  EXPECT_EQ(ChooseVisual(list, list[0], -1), 0);
  // 8-bit PseudoColor default with a 24-bit TrueColor available: switch.
  list = {V(0x20, kPseudoColor, 8), V(0x21, kTrueColor, 24), V(0x22, kTrueColor, 24)};
  EXPECT_EQ(ChooseVisual(list, list[0], -1), 1);  // first among equal depths
  // A DirectColor default of the same depth as the best TrueColor is kept.
  list = {V(0x30, kDirectColor, 24), V(0x31, kTrueColor, 24)};
  EXPECT_EQ(ChooseVisual(list, list[0], -1), 0);
  // GrayScale is never chosen by the search.
  list = {V(0x40, kGrayScale, 8), V(0x41, kStaticGray, 8)};
  EXPECT_EQ(ChooseVisual(list, list[0], -1), 0);  // StaticGray found, same depth: default kept
}

TEST(VisualChoice, RequestedIds) {
  std::vector<VisualInfo> list = {V(0x20, kPseudoColor, 8), V(0x21, kTrueColor, 24)};
  EXPECT_EQ(ChooseVisual(list, list[0], 0), 0);     // 0 = the default visual
  EXPECT_EQ(ChooseVisual(list, list[0], 0x20), 0);
  EXPECT_EQ(ChooseVisual(list, list[0], 0x99), 1);  // unknown: automatic choice
  EXPECT_EQ(ChooseVisual({}, list[0], -1), -1);
}

TEST(VisualChoice, ShiftsLevelsAndMessages) {
  VisualDesc d = DescribeVisual(V(0x21, kTrueColor, 16));
  EXPECT_EQ(d.red_shift, 11);
  EXPECT_EQ(d.red_levels, 32);
  EXPECT_EQ(d.green_shift, 5);
  EXPECT_EQ(d.green_levels, 64);
  EXPECT_EQ(d.blue_levels, 32);
  d = DescribeVisual(V(0x20, kPseudoColor, 8));
  EXPECT_EQ(d.red_levels, 1);
  EXPECT_EQ(d.red_shift, 0);
  EXPECT_EQ(VisualChoiceMessage(V(0x21, kTrueColor, 24)), "Use TrueColor visual (0x21) with 24 bits...\n");
  EXPECT_EQ(VisualChoiceMessage(V(0x20, kPseudoColor, 8)), "Use PseudoColor visual (0x20) with 8 bits...\n");
}

TEST(Dither, ChannelTablesAndThresholds) {
  DitherRecord d;
  BuildDitherRecord(8, 8, 4, &d);
  // 255 in a 4-level channel: q = 2 with fraction 63, upper level 3 everywhere.
  EXPECT_EQ(d.blue[255].fraction, 63);
  EXPECT_EQ(d.blue[255].lower, 2);
  EXPECT_EQ(d.blue[255].upper, 3);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) EXPECT_EQ(DitherIndex(d, x, y, 255, 255, 255), 255);
  EXPECT_EQ(DitherIndex(d, 3, 5, 0, 0, 0), 0);
  // Contributions: red q*ng*nb, green q*nb, blue q.
  EXPECT_EQ(d.red[255].upper, 7 * 32);
  EXPECT_EQ(d.green[255].upper, 7 * 4);
  // The matrix is used as it stands: M[0][0] = 0 < k for every k > 0.
  EXPECT_EQ(d.threshold[0][0][0], 0);
  EXPECT_EQ(d.threshold[0][0][1], 1);
  EXPECT_EQ(d.threshold[0][7][50], 0);  // M = 50 is not < 50
  EXPECT_EQ(d.threshold[0][7][51], 1);
  // A mid grey dithers between two levels: about half the cells take the upper one.
  int upper = 0;
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) upper += d.threshold[y][x][d.blue[128].fraction] ? 1 : 0;
  EXPECT_GT(upper, 16);
  EXPECT_LT(upper, 48);
}

TEST(Dither, CubeColoursAndOrder) {
  EXPECT_EQ(kCubes[0].kind, 1);
  EXPECT_EQ(kCubes[1].nr * kCubes[1].ng * kCubes[1].nb, 216);
  uint16_t r, g, b;
  CubeColor(kCubes[0], 7, 3, 1, &r, &g, &b);
  EXPECT_EQ(r, 65535);
  EXPECT_EQ(g, 3 * 65535 / 7);
  EXPECT_EQ(b, 65535 / 3);
  EXPECT_EQ(&GetDitherRecord(6, 6, 6), &GetDitherRecord(6, 6, 6));  // made once
}

}  // namespace
}  // namespace quilla
