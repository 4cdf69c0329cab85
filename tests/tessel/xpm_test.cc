// X pixmap reader and writer.
#include <gtest/gtest.h>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

TEST(Xpm, RoundTripOneAndTwoCharsPerPixel) {
  TempDir dir;
  for (int colors : {2, 90, 256}) {
    Pic src(MakePicture(TSL_INDEXED, 33, 12, 8, colors));
    if (colors == 90) {
      // "None" carries no colour: it reads back as black.
      src->transparent_index = 7;
      src->palette[7] = src->palette[256 + 7] = src->palette[512 + 7] = 0;
    }
    const std::string path = dir.file("icon.xpm");
    ASSERT_EQ(Save(path, src, "xpm"), TSL_OK);
    Pic back;
    ASSERT_EQ(Load(path, &back), TSL_OK);
    EXPECT_TRUE(SamePixels(src, back)) << colors;
    EXPECT_EQ(back->colors, colors);
    EXPECT_EQ(back->transparent_index, colors == 90 ? 7 : -1);
    EXPECT_TRUE(SameColors(src, back, 0, true));
    const std::string text = ReadFile(path);
    EXPECT_EQ(text.find("/* XPM */\nstatic char *icon[] = {"), 0u);
    EXPECT_NE(text.find("\"33 12 " + std::to_string(colors) + (colors > 90 ? " 2 \"" : " 1 \"")), std::string::npos);
    if (HaveTool("convert") && colors != 90) {
      Pic im;
      ASSERT_TRUE(ToolPnm("convert '" + path + "' ppm:-", dir, &im));
      EXPECT_TRUE(SameColors(src, im)) << colors;
    }
  }
}

TEST(Xpm, ReadsOtherWriters) {
  TempDir dir;
  Pic rgb(MakePicture(TSL_RGB, 37, 23, 5));
  Pic few(MakePicture(TSL_INDEXED, 37, 23, 5, 40));
  const std::string s = dir.file("src.ppm"), f = dir.file("few.ppm"), x = dir.file("x.xpm");
  ASSERT_EQ(Save(s, rgb, "ppm"), TSL_OK);
  ASSERT_EQ(Save(f, few, "ppm"), TSL_OK);
  struct Case {
    std::string make;
    const TslPicture *expect;
    int model;
  } cases[] = {
      {"ppmtoxpm '" + f + "'", &few, TSL_INDEXED},
      {"ppmtoxpm -hexonly '" + s + "'", &rgb, TSL_RGB},  // many colours, several characters per pixel
      {"convert '" + f + "' xpm:-", &few, TSL_INDEXED},
  };
  for (const Case &c : cases) {
    if (!HaveTool(c.make.substr(0, c.make.find(' ')))) continue;
    ASSERT_EQ(Sh(c.make + " > '" + x + "'"), 0) << c.make;
    Pic ours;
    ASSERT_EQ(Load(x, &ours), TSL_OK) << c.make;
    EXPECT_EQ(ours->color_model, c.model) << c.make;
    EXPECT_TRUE(SameColors(*c.expect, ours)) << c.make;
  }
}

TEST(Xpm, ColourNamesKeysAndTransparency) {
  TempDir dir;
  const std::string path = dir.file("n.xpm");
  WriteFile(path,
                      "/* XPM */\n/* a comment with \"quotes\" */\nstatic char * n_xpm[] = {\n"
                      "\"7 1 7 1 0 0\",\n"
                      "\"a\tc Light Goldenrod Yellow\",\n"
                      "\"b c GREY50 s background\",\n"
                      "\"c m white g4 black\",\n"  // no "c" key: g4 wins over m
                      "\"d c none\",\n"
                      "\"e c #F0A\",\n"
                      "\"f c #FFFF80000000\",\n"
                      "\"g c rebeccapurple\",\n"
                      "\"abcdefg\"};\n");
  Pic p;
  ASSERT_EQ(Load(path, &p), TSL_OK);
  ASSERT_EQ(p->color_model, TSL_INDEXED);
  EXPECT_EQ(p->colors, 7);
  EXPECT_EQ(p->transparent_index, 3);
  const uint8_t expect[7][3] = {{250, 250, 210}, {127, 127, 127}, {0, 0, 0}, {0, 0, 0},
                                {255, 0, 170},   {255, 128, 0},   {102, 51, 153}};
  for (int i = 0; i < 7; ++i) {
    if (i == 3) continue;
    for (int c = 0; c < 3; ++c) EXPECT_EQ(p->palette[256 * c + i], expect[i][c]) << i << " " << c;
  }
  // More than 256 colours with a transparent one: true colour with alpha.
  std::string big = "/* XPM */\nstatic char *b[] = {\n\"300 1 300 2\",\n";
  std::string row;
  for (int i = 0; i < 300; ++i) {
    char key[3] = {char('A' + i / 26), char('a' + i % 26), 0};
    big += std::string("\"") + key + (i == 5 ? " c None" : " c #0000" + std::string(i % 2 ? "FF" : "00")) + "\",\n";
    row += key;
  }
  big += "\"" + row + "\"\n};\n";
  WriteFile(path, big);
  Pic q;
  ASSERT_EQ(Load(path, &q), TSL_OK);
  ASSERT_EQ(q->color_model, TSL_RGBA);
  EXPECT_EQ(q->pixels[4 * 5 + 3], 0);
  EXPECT_EQ(q->pixels[4 * 7 + 2], 255);
  EXPECT_EQ(q->pixels[4 * 7 + 3], 255);
}

TEST(Xpm, TruncatedAndAbsurdInput) {
  TempDir dir;
  Pic src(MakePicture(TSL_INDEXED, 40, 30, 2, 16));
  const std::string good = dir.file("g.xpm");
  ASSERT_EQ(Save(good, src, "xpm"), TSL_OK);
  ExpectCutHandled(dir, good, ReadFile(good).size() * 2 / 3, -1, 0, 0, 1);
  Pic p;
  const std::pair<const char *, int> bad[] = {
      {"/* XPM */\nstatic char *a[] = {\"2 2\"};", TSL_ERR_BAD_FILE},
      {"/* XPM */\nstatic char *a[] = {\"0 2 1 1\", \"a c red\"};", TSL_ERR_BAD_FILE},
      {"/* XPM */\nstatic char *a[] = {\"2 2 1 99\", \"a c red\"};", TSL_ERR_BAD_FILE},
      {"/* XPM */\nstatic char *a[] = {\"100000 100000 1 1\", \"a c red\", \"aa\"};", TSL_ERR_READ},
      {"/* XPM */\nstatic char *a[] = {\"2 2 99999999 1\", \"a c red\"};", TSL_ERR_BAD_FILE},
      {"/* XPM */\nstatic char *a[] = {\"2 2 1 1\", \"a c red\", \"aa\", \"a\"};", TSL_ERR_CORRUPT},
      {"/* XPM */\nstatic char *a[] = {\"2 2 1 1\", \"a c red\", \"aa\", \"aa", TSL_ERR_READ},
  };
  for (const auto &b : bad) {
    WriteFile(dir.file("b.xpm"), b.first);
    EXPECT_EQ(Load(dir.file("b.xpm"), &p), b.second) << b.first;
  }
}

}  // namespace
