#include "view/view_model.h"

#include <gtest/gtest.h>

#include <set>

#include "test_util.h"

namespace quilla {
namespace {

TEST(ViewZoom, CurrentStepIsFirstThatFits) {
  EXPECT_EQ(kZoomSteps[CurrentZoomStep(100, 50, 1600, 800)], 1600);
  EXPECT_EQ(kZoomSteps[CurrentZoomStep(100, 50, 1599, 800)], 1200);
  EXPECT_EQ(kZoomSteps[CurrentZoomStep(1000, 1000, 1000, 1000)], 100);
  EXPECT_EQ(kZoomSteps[CurrentZoomStep(100000, 100000, 10, 10)], 7);  // nothing fits: the last entry
}

TEST(ViewZoom, StepsAndPercentages) {
  // A 100x100 picture in a 1000x1000 area fits at 800%: one step in is 1200, out is 700.
  EXPECT_EQ(ZoomFromParameter("+1", 100, 100, 1000, 1000), 1200);
  EXPECT_EQ(ZoomFromParameter("-1", 100, 100, 1000, 1000), 700);
  EXPECT_EQ(ZoomFromParameter("100", 100, 100, 1000, 1000), 100);
  EXPECT_EQ(ZoomFromParameter("250", 100, 100, 1000, 1000), 250);
  // At the ends the table holds.
  EXPECT_EQ(ZoomFromParameter("+1", 1, 1, 1000, 1000), 1600);
  EXPECT_EQ(ZoomFromParameter("-1", 100000, 100000, 10, 10), 7);
  // Away from the fit, steps go on from the zoom on screen; a zoom that is
  // not in the table (a fit) steps from the area rule.
  EXPECT_EQ(ZoomFromParameter("+1", 100, 100, 150, 150, 200), 300);
  EXPECT_EQ(ZoomFromParameter("-1", 100, 100, 150, 150, 400), 300);
  EXPECT_EQ(ZoomFromParameter("+1", 100, 100, 150, 150, 1600), 1600);
  EXPECT_EQ(ZoomFromParameter("+1", 1000, 1000, 150, 150, 14.9), 20);
}

TEST(ViewFit, DefaultModeKeepsSmallPicturesAtFullSize) {
  FitResult small = ComputeFit(kFitWindow, 640, 480, 300, 300, 1024, 768);
  EXPECT_DOUBLE_EQ(small.zoom, 100.0);
  EXPECT_TRUE(small.resize_window);
  EXPECT_EQ(small.view_w, 640);
  FitResult big = ComputeFit(kFitWindow, 4000, 3000, 300, 300, 1000, 700);
  EXPECT_NEAR(big.zoom, 700.0 / 3000 * 100, 1e-9);
  EXPECT_LE(big.view_w, 1000);
  EXPECT_LE(big.view_h, 700);
  EXPECT_DOUBLE_EQ(ComputeFit(kNoFit, 4000, 3000, 300, 300, 1000, 700).zoom, 100.0);
  EXPECT_DOUBLE_EQ(ComputeFit(kFitImageLarge, 100, 100, 300, 300, 1000, 700).zoom, 100.0);
  EXPECT_DOUBLE_EQ(ComputeFit(kFitImageAll, 100, 100, 300, 200, 1000, 700).zoom, 200.0);
  EXPECT_DOUBLE_EQ(ComputeFit(kFitImageWidth, 100, 100, 300, 200, 1000, 700).zoom, 300.0);
  EXPECT_DOUBLE_EQ(ComputeFit(kFitImageHeight, 100, 100, 300, 200, 1000, 700).zoom, 200.0);
  EXPECT_DOUBLE_EQ(ComputeFit(kFitDesktopAll, 100, 100, 300, 200, 1000, 700).zoom, 700.0);
}

TEST(ViewTiles, ExposeIsCutIntoTilesInsideThePicture) {
  auto t = TilesForExpose(0, 0, 300, 100, {0, 0, 1000, 1000});
  ASSERT_EQ(t.size(), 2u);
  EXPECT_EQ(t[0], (TileRect{0, 0, 256, 100}));
  EXPECT_EQ(t[1], (TileRect{256, 0, 44, 100}));
  EXPECT_TRUE(TilesForExpose(0, 0, 300, 100, {400, 0, 50, 50}).empty());
  // Origin offset and a rectangle straddling rows: top row first, left to right.
  t = TilesForExpose(10, 20, 600, 600, {0, 0, 300, 300});
  ASSERT_EQ(t.size(), 4u);
  EXPECT_EQ(t[0], (TileRect{10, 20, 256, 256}));
  EXPECT_EQ(t[1], (TileRect{266, 20, 34, 256}));
  EXPECT_EQ(t[2], (TileRect{10, 276, 256, 24}));
}

TEST(ViewLabels, InformationLabelPieces) {
  InfoLabel in;
  in.list_pos = 2;
  in.list_count = 5;
  in.width = 640;
  in.height = 480;
  in.depth = 8;
  in.color_model = TSL_INDEXED;
  in.colors = 16;
  in.zoom = 50;
  EXPECT_EQ(InfoLabelText(in), "2/5  640x480x8  16 Colors  50%");
  in.color_model = TSL_GREY;
  in.colors = 256;
  in.frames = 3;
  in.frame = 2;
  EXPECT_EQ(InfoLabelText(in), "2/5  640x480x8  256 Grey Scale  50%  Frame 2/3");
  in.list_count = 0;
  in.color_model = TSL_RGB;
  in.depth = 24;
  in.frames = 1;
  EXPECT_EQ(InfoLabelText(in), "640x480x24  True Colors  50%");
}

TEST(ViewLabels, ColorPickerTexts) {
  TslPicture rgb = testutil::MakePicture(TSL_RGB, 4, 4);
  uint8_t *p = rgb.pixels + rgb.bytes_per_line + 2 * 3;
  p[0] = 255, p[1] = 16, p[2] = 1;
  EXPECT_EQ(ColorPickerText(rgb, 2, 1), "X: 2, Y: 1\n  RGB (255,16,1)\n  HTML (#FF1001)");
  TslPicture ind = testutil::MakePicture(TSL_INDEXED, 4, 4);
  ind.pixels[0] = 7;
  ind.palette[7] = 1, ind.palette[256 + 7] = 2, ind.palette[512 + 7] = 171;
  EXPECT_EQ(ColorPickerText(ind, 0, 0), "X: 0, Y: 0\n  INDEX (7)\n  RGB (1,2,171)\n  HTML (#0102AB)");
  TslPicture grey = testutil::MakePicture(TSL_GREY, 4, 4);
  grey.pixels[3] = 200;
  EXPECT_EQ(ColorPickerText(grey, 3, 0), "X: 3, Y: 0\n  INDEX (200)\n  HTML (#C8)");
  EXPECT_EQ(ColorPickerText(grey, 4, 0), "");
  tslFree(&rgb);
  tslFree(&ind);
  tslFree(&grey);
}

TEST(ViewCommands, NamesAreUniqueAndUnknownOnesAreRefused) {
  std::set<std::string> seen;
  for (int i = 0; i < kViewCommandCount; ++i) EXPECT_TRUE(seen.insert(kViewCommands[i]).second) << kViewCommands[i];
  EXPECT_EQ(ViewCommandIndex(kViewCommands[kViewCommandCount - 1]), kViewCommandCount - 1);
  EXPECT_EQ(ViewCommandIndex("nonsense"), -1);
  EXPECT_EQ(ViewCommandIndex(nullptr), -1);
}

}  // namespace
}  // namespace quilla

TEST(ViewExtract, FileNameTakesTheBaseNameAndCountsPagesFromOne) {
  EXPECT_EQ(quilla::ExtractFileName("/out", "/pics/scan.v2.tif", 0), "/out/scan.v2_extract_001.ppm");
  EXPECT_EQ(quilla::ExtractFileName("/out", "noext", 41), "/out/noext_extract_042.ppm");
  EXPECT_EQ(quilla::ExtractFileName("/o", "/d/.hidden", 1000), "/o/.hidden_extract_1001.ppm");
}

namespace quilla {
namespace {

TEST(ViewScrollBars, OneBarCanMakeTheOtherNecessary) {
  auto need = [](int vw, int vh, int fw, int fh) {
    const ScrollBarNeed n = ScrollBarsNeeded(vw, vh, fw, fh, 20, 20);
    return std::string(n.h ? "h" : "") + (n.v ? "v" : "");
  };
  EXPECT_EQ(need(400, 300, 400, 300), "");    // exactly fits
  EXPECT_EQ(need(401, 300, 400, 300), "hv");  // the horizontal bar takes the rows the picture needed
  EXPECT_EQ(need(401, 280, 400, 300), "h");
  EXPECT_EQ(need(390, 301, 400, 300), "hv");  // the vertical bar leaves 380 columns
  EXPECT_EQ(need(380, 301, 400, 300), "v");
  EXPECT_EQ(need(800, 600, 400, 300), "hv");
}

}  // namespace
}  // namespace quilla
