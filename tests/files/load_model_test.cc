// Load parameters from the settings, the LUT reader and the load's texts.
#include <gtest/gtest.h>

#include <string>

#include "files/load_model.h"
#include "test_util.h"

namespace quilla {
namespace {

// A settings record with every default, as a missing settings file gives.
struct DefaultSettings {
  SettingsRecord rec{};
  DefaultSettings() { ReadSettingsFile(&rec, "/nonexistent/.quillarc"); }
  ~DefaultSettings() { FreeFileTypes(&rec); }
};

TEST(LoadRequest, DefaultsGiveYuvGeometryAndNoExtras) {
  DefaultSettings s;
  LoadRequest req;
  FillLoadRequest(s.rec, -1, 3, false, &req);
  const TslParams &p = req.params;
  EXPECT_EQ(p.format, -1);
  EXPECT_EQ(p.page, 3);
  EXPECT_EQ(p.flags, 0u);
  EXPECT_EQ(p.width, 720);
  EXPECT_EQ(p.height, 576);
  EXPECT_EQ(p.offset, 0);
  EXPECT_EQ(p.grob_bpp, 1);  // GrobBpp 0 + 1
  EXPECT_EQ(p.ps_dpi, 72);
  EXPECT_EQ(p.ps_page_width, 0);
  EXPECT_EQ(p.ps_page_height, 0);
  EXPECT_EQ(p.channel_order, 0);
  EXPECT_EQ(p.channel_type, 1);
  EXPECT_EQ(p.lut[0], nullptr);
  EXPECT_EQ(p.lut_size, 0);
  EXPECT_EQ(p.progress, nullptr);
  EXPECT_EQ(p.quality, 90);  // untouched library defaults stay
}

TEST(LoadRequest, GeometryFollowsTheFormatName) {
  DefaultSettings s;
  auto &load = s.rec.Load;
  load.RawWidth = 11, load.RawHeight = 22, load.RawOffset = 33;
  load.YuvWidth = 44, load.YuvHeight = 55, load.YuvOffset = 66;
  int raw = tslFormatGetIndex("raw"), yuv = tslFormatGetIndex("yuv"), png = tslFormatGetIndex("png");
  ASSERT_GE(raw, 0);
  ASSERT_GE(yuv, 0);
  ASSERT_GE(png, 0);
  LoadRequest req;
  FillLoadRequest(s.rec, raw, 0, false, &req);
  EXPECT_EQ(req.params.format, raw);
  EXPECT_EQ(req.params.width, 11);
  EXPECT_EQ(req.params.height, 22);
  EXPECT_EQ(req.params.offset, 33);
  for (int f : {yuv, png}) {
    FillLoadRequest(s.rec, f, 0, false, &req);
    EXPECT_EQ(req.params.width, 44);
    EXPECT_EQ(req.params.height, 55);
    EXPECT_EQ(req.params.offset, 66);
  }
}

TEST(LoadRequest, SettingsAndSwitchesReachTheParameters) {
  DefaultSettings s;
  auto &load = s.rec.Load;
  load.PcdBase = 4, load.GrobBpp = 7, load.ChannelOrder = 5, load.ChannelType = 2, load.PostscriptDpi = 300;
  load.PostscriptPageSize = 6;
  load.IgnoreError = true;
  LoadRequest req;
  FillLoadRequest(s.rec, -1, 0, true, &req);
  const TslParams &p = req.params;
  EXPECT_EQ(p.flags, static_cast<unsigned>(TSL_FLAG_APP | TSL_FLAG_KEEP_DAMAGED));
  EXPECT_EQ(p.flags, 0x401u);
  EXPECT_EQ(p.pcd_base, 4);
  EXPECT_EQ(p.grob_bpp, 8);
  EXPECT_EQ(p.channel_order, 5);
  EXPECT_EQ(p.channel_type, 2);
  EXPECT_EQ(p.ps_dpi, 300);
  EXPECT_EQ(p.ps_page_width, 595);
  EXPECT_EQ(p.ps_page_height, 842);
}

TEST(LoadRequest, PostscriptPageSizeTable) {
  const int expect[][3] = {{0, 0, 0},       {1, 792, 1224},  {2, 2380, 3368}, {3, 1684, 2380}, {4, 1190, 1684},
                           {5, 842, 1190},  {6, 595, 842},   {7, 421, 595},   {8, 709, 1002},  {9, 501, 709},
                           {10, 1224, 792}, {11, 612, 1008}, {12, 612, 792},  {13, 612, 792},  {14, 0, 0},
                           {-1, 0, 0},      {65535, 0, 0}};
  for (const auto &e : expect) {
    PageSize ps = PostscriptPageSize(e[0]);
    EXPECT_EQ(ps.width, e[1]) << "value " << e[0];
    EXPECT_EQ(ps.height, e[2]) << "value " << e[0];
  }
}

TEST(LoadRequest, LutIsUsedOnlyWhenSwitchedOnAndReadable) {
  testutil::TempDir dir;
  std::string path = dir.file("10to8.lut");
  testutil::WriteFile(path, "# ten to eight\nLUT: 3 1024\n0\n1\n2\n1023\n");
  DefaultSettings s;
  std::snprintf(s.rec.Load.Lut10to8Name, sizeof s.rec.Load.Lut10to8Name, "%s", path.c_str());
  LoadRequest req;
  FillLoadRequest(s.rec, -1, 0, false, &req);
  EXPECT_EQ(req.params.lut[0], nullptr);  // UseLut off

  s.rec.Load.UseLut = true;
  FillLoadRequest(s.rec, -1, 0, false, &req);
  ASSERT_EQ(req.params.lut_size, 1024);
  for (int i = 0; i < 3; ++i) {
    ASSERT_NE(req.params.lut[i], nullptr);
    EXPECT_EQ(req.params.lut[i][3], 1023);
  }

  std::snprintf(s.rec.Load.Lut10to8Name, sizeof s.rec.Load.Lut10to8Name, "%s", dir.file("gone.lut").c_str());
  FillLoadRequest(s.rec, -1, 0, false, &req);
  EXPECT_EQ(req.params.lut[0], nullptr);
  EXPECT_EQ(req.params.lut_size, 0);
}

// ---- LUT reader

class LutFile : public ::testing::Test {
 protected:
  bool Read(const std::string &text, int size) {
    std::string path = dir_.file("t.lut");
    testutil::WriteFile(path, text);
    return ReadLutFile(path.c_str(), size, &lut_);
  }
  testutil::TempDir dir_;
  Lut lut_;
};

TEST_F(LutFile, MissingFileOrNoHeaderLeavesTheTableEmpty) {
  EXPECT_FALSE(ReadLutFile(dir_.file("none.lut").c_str(), 1024, &lut_));
  EXPECT_TRUE(lut_.empty());
  EXPECT_FALSE(Read("1\n2\n3\n", 4));
  EXPECT_TRUE(lut_.empty());
  EXPECT_FALSE(Read("Lut: 1 4\n1\n", 4));  // only "LUT:" and "lut:" are headers
  EXPECT_TRUE(lut_.empty());
}

TEST_F(LutFile, HeaderTestIsLenient) {
  EXPECT_TRUE(Read("LUT: 2 8\n", 8));  // odd channel count, right size
  EXPECT_TRUE(Read("LUT: 3 5\n", 8));  // three channels, any size
  EXPECT_TRUE(Read("lut: 1 7000\n", 8));
  EXPECT_EQ(lut_.size, 8);  // the caller's size, not the header's
  EXPECT_FALSE(Read("LUT: 2 5\n1\n", 8));  // wrong on both counts: refused
  EXPECT_TRUE(lut_.empty());
  EXPECT_FALSE(Read("LUT: 0 0\n", 8));
}

TEST_F(LutFile, ChannelsFillPlanes) {
  ASSERT_TRUE(Read("# comment\nLUT: 3 4\n10\n# inside\n20\n30\n", 4));
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(lut_.plane[i].size(), 4u);
    EXPECT_EQ(lut_.plane[i][0], 10);
    EXPECT_EQ(lut_.plane[i][1], 20);
    EXPECT_EQ(lut_.plane[i][2], 30);
    EXPECT_EQ(lut_.plane[i][3], 0);
  }
  ASSERT_TRUE(Read("LUT: 1 4\n5\n6\n", 4));
  EXPECT_EQ(lut_.plane[0][0], 5);
  EXPECT_EQ(lut_.plane[0][1], 6);
  EXPECT_EQ(lut_.plane[1][0], 0);  // one channel: only the first plane
  EXPECT_EQ(lut_.plane[2][1], 0);
}

TEST_F(LutFile, EntriesPastTheTableAndLongLines) {
  ASSERT_TRUE(Read("LUT: 1 4\n1\n2\n3\n4\n5\n6\n", 4));
  EXPECT_EQ(lut_.plane[0], (std::vector<uint16_t>{1, 2, 3, 4}));
  // Only 127 characters of a line count: a number in column 128 is not read.
  std::string late(127, ' ');
  ASSERT_TRUE(Read("LUT: 1 4\n" + late + "9\n7\n", 4));
  EXPECT_EQ(lut_.plane[0][0], 7);
  std::string fits(126, ' ');
  ASSERT_TRUE(Read("LUT: 1 4\n" + fits + "9\n7\n", 4));
  EXPECT_EQ(lut_.plane[0][0], 9);
  EXPECT_EQ(lut_.plane[0][1], 7);
}

// ---- texts

TEST(LoadTexts, FileNameAndLabel) {
  EXPECT_EQ(FileNameOnly("/home/u/pics/a.b.png"), "a.b.png");
  EXPECT_EQ(FileNameOnly("plain.gif"), "plain.gif");
  EXPECT_EQ(FileNameOnly("/dir/"), "");
  EXPECT_EQ(LoadingLabel("/tmp/x/cat.jpg"), "Loading cat.jpg");
}

TEST(LoadTexts, ErrorTable) {
  const char *p = "/tmp/x/cat.jpg";
  EXPECT_EQ(LoadErrorText(p, 1, nullptr), "Not enough memory");
  EXPECT_EQ(LoadErrorText(p, 2, nullptr), "Don't know how to read \n</tmp/x/cat.jpg>");
  EXPECT_EQ(LoadErrorText(p, 3, nullptr), "Can't open file \n</tmp/x/cat.jpg>");
  EXPECT_EQ(LoadErrorText(p, 4, nullptr), "Can't read file \n</tmp/x/cat.jpg>");
  EXPECT_EQ(LoadErrorText(p, 5, nullptr), "Can't create file \n</tmp/x/cat.jpg>");
  EXPECT_EQ(LoadErrorText(p, 6, nullptr), "Can't write file \n</tmp/x/cat.jpg>");
  EXPECT_EQ(LoadErrorText(p, 8, nullptr), "Can't save in this format !!");
  EXPECT_EQ(LoadErrorText(p, 9, "Bad header"), "Bad header");
  EXPECT_EQ(LoadErrorText(p, 9, ""), "Bad picture file");
  EXPECT_EQ(LoadErrorText(p, 10, nullptr), "Corrupt image");
  EXPECT_EQ(LoadErrorText(p, 11, nullptr), "Problem with JPEG");
  for (int code : {0, 7, 12, 15, 200}) EXPECT_EQ(LoadErrorText(p, code, nullptr), "Contact your dealer") << code;
  // A path longer than any fixed buffer comes back whole.
  std::string longPath(5000, 'd');
  EXPECT_EQ(LoadErrorText(longPath.c_str(), 3, nullptr), "Can't open file \n<" + longPath + ">");
}

}  // namespace
}  // namespace quilla
