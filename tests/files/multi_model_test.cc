// Multi-page file creation on real files through the library's TIFF
// writer: the output name's suffix, the first error stopping the run with
// the pages before it kept, and the bilevel compression setting passed as
// stored.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "default_settings.h"
#include "files/multi_model.h"
#include "test_util.h"

namespace quilla {
namespace {

class MultiPage : public ::testing::Test {
 protected:
  std::string Input(const std::string &name, int model, const char *format = "png", uint32_t seed = 1) {
    TslPicture p = testutil::MakePicture(model, 24, 16, seed);
    TslParams params;
    tslDefaultParams(&params);
    params.format = tslFormatGetIndex(format);
    const std::string path = dir_.file(name);
    EXPECT_EQ(tslSave(path.c_str(), &p, &params), 0) << name;
    tslFree(&p);
    return path;
  }
  TslFileInfo Page(const std::string &path, int page) {
    TslFileInfo info{};
    EXPECT_EQ(tslFileInformation(path.c_str(), -1, page, &info), TSL_OK) << path << " page " << page;
    return info;
  }
  testutil::DefaultSettings settings_;
  testutil::TempDir dir_;
  const int tiff_ = tslFormatGetIndex("tiff");
};

TEST_F(MultiPage, OutputNameGetsTheSuffixOnlyWithoutAnyDot) {
  EXPECT_EQ(MultiOutputPath("/a/pages", tiff_), "/a/pages.tif");
  EXPECT_EQ(MultiOutputPath("/a.b/pages", tiff_), "/a.b/pages");
  EXPECT_EQ(MultiOutputPath("/a/pages.", tiff_), "/a/pages.");
  EXPECT_EQ(MultiOutputPath("/a/pages.x", tiff_), "/a/pages.x");
  const std::vector<int> offered = MultiPageFormats();
  for (const char *name : {"tiff", "dcx"})
    EXPECT_NE(std::find(offered.begin(), offered.end(), tslFormatGetIndex(name)), offered.end()) << name;
}

TEST_F(MultiPage, ThreePagesInListOrder) {
  const std::vector<std::string> in = {Input("1.png", TSL_RGB, "png", 1), Input("2.png", TSL_GREY, "png", 2),
                                       Input("3.png", TSL_INDEXED, "png", 3)};
  const MultiResult r = CreateMultiPage(settings_.rec, dir_.file("out.tif"), tiff_, in);
  EXPECT_EQ(r.code, 0) << r.error;
  EXPECT_EQ(r.pages, 3);
  for (int page = 0; page < 3; ++page) {
    TslFileInfo info = Page(r.path, page);
    EXPECT_EQ(info.pages, 3);
    EXPECT_EQ(info.color_model, page == 0 ? TSL_RGB : page == 1 ? TSL_GREY : TSL_INDEXED) << page;
    tslFileInformationFree(&info);
  }
}

TEST_F(MultiPage, AFailingThirdInputLeavesTwoPagesAndNamesIt) {
  const std::string bad = dir_.file("3.png");
  testutil::WriteFile(bad, "\x89PNG\r\n\x1a\n not really");
  const std::vector<std::string> in = {Input("1.png", TSL_RGB), Input("2.png", TSL_RGB, "png", 2), bad,
                                       Input("4.png", TSL_RGB, "png", 4)};
  const MultiResult r = CreateMultiPage(settings_.rec, dir_.file("out.tif"), tiff_, in);
  EXPECT_NE(r.code, 0);
  EXPECT_NE(r.error.find(bad), std::string::npos) << r.error;
  EXPECT_EQ(r.pages, 2);
  TslFileInfo info = Page(dir_.file("out.tif"), 0);
  EXPECT_EQ(info.pages, 2);
  tslFileInformationFree(&info);
  // Nothing is left beside it.
  std::string listing;
  testutil::Run("ls -A '" + dir_.path() + "'", &listing);
  EXPECT_EQ(listing.find(".out"), std::string::npos) << listing;
}

TEST_F(MultiPage, BilevelCompressionIsPassedAsStored) {
  // 3 in the settings' list of bilevel methods is CCITT G3 for the single
  // save, which adds one; here the library gets 3 itself, which it writes
  // as LZW for a bilevel page.
  settings_.rec.Save.TiffBinaryCompress = 3;
  settings_.rec.Save.TiffCompress = TSL_TIFF_DEFLATE;
  const std::vector<std::string> in = {Input("bw.pbm", TSL_BINARY, "pbm"), Input("c.png", TSL_RGB)};
  const MultiResult r = CreateMultiPage(settings_.rec, dir_.file("bw.tif"), tiff_, in);
  ASSERT_EQ(r.code, 0) << r.error;
  TslFileInfo bw = Page(r.path, 0), colour = Page(r.path, 1);
  EXPECT_EQ(bw.compression, TSL_COMP_LZW);
  EXPECT_EQ(colour.compression, TSL_COMP_DEFLATE);
  tslFileInformationFree(&bw);
  tslFileInformationFree(&colour);
}

}  // namespace
}  // namespace quilla
