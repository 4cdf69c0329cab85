// Load parameters from the settings, the LUT reader and the load's texts.
#include <gtest/gtest.h>

#include <string>

#include "files/load_model.h"
#include "default_settings.h"
#include "test_util.h"

namespace quilla {
namespace {

using DefaultSettings = testutil::DefaultSettings;

TEST(LoadRequest, SettingsReachTheParameters) {
  DefaultSettings s;
  auto &load = s.rec.Load;
  LoadRequest req;
  FillLoadRequest(s.rec, -1, 3, false, &req);
  EXPECT_EQ(req.params.page, 3);
  EXPECT_EQ(req.params.flags, 0u);
  EXPECT_EQ(req.params.width, 720);  // YUV geometry unless the format is "raw"
  EXPECT_EQ(req.params.grob_bpp, 1);  // GrobBpp 0 + 1
  EXPECT_EQ(req.params.lut[0], nullptr);

  load.RawWidth = 11, load.RawHeight = 22, load.RawOffset = 33, load.YuvOffset = 66;
  load.GrobBpp = 7, load.ChannelOrder = 5, load.ChannelType = 2, load.PostscriptDpi = 300;
  load.PostscriptPageSize = 6, load.IgnoreError = true;
  int raw = tslFormatGetIndex("raw");
  ASSERT_GE(raw, 0);
  FillLoadRequest(s.rec, raw, 0, true, &req);
  const TslParams &p = req.params;
  EXPECT_EQ(p.format, raw);
  EXPECT_EQ(p.width, 11);
  EXPECT_EQ(p.height, 22);
  EXPECT_EQ(p.offset, 33);
  EXPECT_EQ(p.flags, 0x401u);  // start-up switch and IgnoreError
  EXPECT_EQ(p.grob_bpp, 8);
  EXPECT_EQ(p.channel_order, 5);
  EXPECT_EQ(p.channel_type, 2);
  EXPECT_EQ(p.ps_dpi, 300);
  EXPECT_EQ(p.ps_page_width, 595);
  EXPECT_EQ(p.ps_page_height, 842);
  FillLoadRequest(s.rec, tslFormatGetIndex("yuv"), 0, false, &req);
  EXPECT_EQ(req.params.offset, 66);
}

TEST(LoadRequest, PostscriptPageSizes) {
  const int expect[][3] = {{0, 0, 0},        {1, 792, 1224},  {9, 501, 709},  {10, 1224, 792},
                           {11, 612, 1008}, {13, 612, 792}, {14, 0, 0}, {65535, 0, 0}};
  for (const auto &e : expect) {
    PageSize ps = PostscriptPageSize(e[0]);
    EXPECT_EQ(ps.width * 100000 + ps.height, e[1] * 100000 + e[2]) << "value " << e[0];
  }
}

class LutFile : public ::testing::Test {
 protected:
  bool Read(const std::string &text, int size) {
    testutil::WriteFile(path_, text);
    return ReadLutFile(path_.c_str(), size, &lut_);
  }
  testutil::TempDir dir_;
  std::string path_ = dir_.file("t.lut");
  Lut lut_;
};

TEST_F(LutFile, HeaderTestIsLenient) {
  EXPECT_FALSE(ReadLutFile(dir_.file("none.lut").c_str(), 8, &lut_));
  EXPECT_FALSE(Read("1\n2\n", 8));         // no header
  EXPECT_FALSE(Read("Lut: 1 8\n1\n", 8));  // only "LUT:" and "lut:" are headers
  EXPECT_TRUE(Read("LUT: 2 8\n", 8));      // odd channel count, right size
  EXPECT_TRUE(Read("LUT: 3 5\n", 8));      // three channels, any size
  EXPECT_TRUE(Read("lut: 1 7000\n", 8));
  EXPECT_EQ(lut_.size, 8);                 // the caller's size, not the header's
  EXPECT_FALSE(Read("LUT: 2 5\n1\n", 8));  // wrong on both counts: refused
  EXPECT_TRUE(lut_.empty());
}

TEST_F(LutFile, ValuesFillThePlanes) {
  ASSERT_TRUE(Read("# comment\nLUT: 3 4\n10\n# inside\n20\n", 4));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(lut_.plane[i], (std::vector<uint16_t>{10, 20, 0, 0}));
  ASSERT_TRUE(Read("LUT: 1 4\n1\n2\n3\n4\n5\n", 4));  // one channel; entries past 4 ignored
  EXPECT_EQ(lut_.plane[0], (std::vector<uint16_t>{1, 2, 3, 4}));
  EXPECT_EQ(lut_.plane[1], (std::vector<uint16_t>{0, 0, 0, 0}));
  // Only 127 characters of a line count: a number in column 128 is not read.
  ASSERT_TRUE(Read("LUT: 1 4\n" + std::string(127, ' ') + "9\n7\n" + std::string(126, ' ') + "8\n", 4));
  EXPECT_EQ(lut_.plane[0], (std::vector<uint16_t>{7, 8, 0, 0}));

  // The Load settings' LUT reaches the parameters only with UseLut.
  DefaultSettings s;
  std::snprintf(s.rec.Load.Lut10to8Name, sizeof s.rec.Load.Lut10to8Name, "%s", path_.c_str());
  LoadRequest req;
  FillLoadRequest(s.rec, -1, 0, false, &req);
  EXPECT_EQ(req.params.lut[0], nullptr);
  s.rec.Load.UseLut = true;
  FillLoadRequest(s.rec, -1, 0, false, &req);
  ASSERT_EQ(req.params.lut_size, 1024);
  EXPECT_EQ(req.params.lut[0][1], 8);
}

TEST(LoadTexts, LabelAndErrors) {
  EXPECT_EQ(FileNameOnly("/dir/"), "");
  EXPECT_EQ(LoadingLabel("plain.gif"), "Loading plain.gif");
  EXPECT_EQ(LoadingLabel("/tmp/x.y/cat.jpg"), "Loading cat.jpg");
  EXPECT_EQ(LoadErrorText("/a.png", 3, nullptr), "Can't open file \n</a.png>");
  EXPECT_EQ(LoadErrorText("/a.png", 9, "Bad header"), "Bad header");
  EXPECT_EQ(LoadErrorText("/a.png", 9, ""), "Bad picture file");
  for (int code : {0, 7, 12, 15}) EXPECT_EQ(LoadErrorText("/a.png", code, nullptr), "Contact your dealer") << code;
  std::string longPath(5000, 'd');  // longer than any fixed buffer: comes back whole
  EXPECT_EQ(LoadErrorText(longPath.c_str(), 2, nullptr), "Don't know how to read \n<" + longPath + ">");
}

}  // namespace
}  // namespace quilla
