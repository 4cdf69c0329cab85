// The operation catalogue: rows and order, lookup, the converter command
// line of every kind, and the list runner.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "imgproc/catalogue.h"
#include "test_util.h"

using namespace quilla;

namespace {

TEST(Catalogue, RowsInOrderWithBoundsAndDefaults) {
  ASSERT_EQ(OpCatalogueCount(), 55);
  const OpEntry *c = OpCatalogue();
  std::string names;
  for (int k = 0; k < OpCatalogueCount(); ++k) {
    ASSERT_NE(c[k].operation, nullptr) << k;
    ASSERT_EQ(c[k].option[0], '-') << k;
    ASSERT_LT(std::strlen(c[k].name), 36u);
    names += c[k].name;
    names += ";";
  }
  EXPECT_EQ(names,
            "Convert to True Colors;Convert to Greyscale;Convert to Colors;Convert to Binary;Resize;Crop;Resize Canvas;"
            "Set DPI;Flip Horizontal;Flip Vertical;Rotate;Negative;Brightness;Contrast;Change Gamma;Color Balance;"
            "Logarithmic Lut;Solarize;Posterize;Normalize;Equalize;Swap Component;Enhance Detail;Enhance Focus;"
            "Enhance Edges;Focus Restoration;Edge detect Light;Edge detect Medium;Edge detect Heavy;Emboss;Emboss More;"
            "Average;Soften;Blur;Gaussian Blur;Maximum;Minimum;Median Box;Median Cross;Sharpen;Reduce noise;"
            "Add uniform noise;Add gaussian noise;Add laplacian noise;Add poisson noise;Mosaic;Slice;Tile;Shear;"
            "Oil Painting;Swirl;Spread;Lens;Waves;De-interlace;");
  const int balance = OpCatalogueFind("-balance", nullptr);
  ASSERT_EQ(balance, 15);
  EXPECT_EQ(c[balance].count, 3);
  EXPECT_STREQ(c[balance].desc[1].label, "Green");
  EXPECT_EQ(c[balance].desc[2].min, -100);
  const int waves = OpCatalogueFind("-waves", nullptr);
  EXPECT_EQ(c[waves].kind, kKindReal3);
  EXPECT_STREQ(c[waves].desc[1].label, "Phase");
  EXPECT_EQ(c[waves].desc[1].max, 36000);
  EXPECT_EQ(c[OpCatalogueFind("-gamma", nullptr)].desc[0].max, 500);
  EXPECT_EQ(c[OpCatalogueFind("-rotate", nullptr)].desc[0].min, -180);
  EXPECT_EQ(c[OpCatalogueFind("-noise", "gaussian")].desc[0].max, 1000);
  EXPECT_EQ(c[OpCatalogueFind("-resize", nullptr)].def_word, 65536u);
  EXPECT_EQ(c[OpCatalogueFind("-canvas", nullptr)].def_word, 65536u);
  EXPECT_EQ(c[OpCatalogueFind("-crop", nullptr)].def_int[3], 256);
}

TEST(Catalogue, FindWithSubOptions) {
  EXPECT_EQ(OpCatalogueFind("-noise", "gaussian"), 42);
  EXPECT_EQ(OpCatalogueFind("-edgedetect", "heavy"), 28);
  EXPECT_EQ(OpCatalogueFind("-noise", nullptr), -1);
  EXPECT_EQ(OpCatalogueFind("-noise", "pink"), -1);
  EXPECT_EQ(OpCatalogueFind("-nothing", nullptr), -1);
  EXPECT_EQ(OpCatalogueFind("-deinter", nullptr), 54);
  EXPECT_TRUE(OpOptionHasSubOptions("-edgedetect"));
  EXPECT_FALSE(OpOptionHasSubOptions("-sharpen"));
}

TEST(Catalogue, CommandLineOfEveryDefault) {
  OpProcessList all;
  for (int k = 0; k < OpCatalogueCount(); ++k) all.push_back(OpDefaultProcess(k));
  EXPECT_EQ(OpProcessListCommandLine(all),
            "-truecolors -grey 256 -colors 256 -binary pattern -rtype linear -resize 0 0 -crop 0 0 256 256 "
            "-canvas 0 0 -dpi -xflip -yflip -rotate 0 -negate -brightness 0 -contrast 0 -gamma 1.00 "
            "-balance 0 0 0 -log -solarize 255 -posterize 256 -normalize -equalize -swap rbg -edetail -efocus "
            "-eedge 1 -frestore -edgedetect light -edgedetect medium -edgedetect heavy -emboss -embossmore "
            "-average 3 -soften 1 -blur 1 -gauss 3 -maximum 3 -minimum 3 -medianb 3 -medianc 3 -sharpen 1 "
            "-noise reduce -noise 0.10 uniform -noise 0.40 gaussian -noise 0.10 laplacian -noise 1.00 poisson "
            "-mosaic 1 -slice -tile 1 -shear -oil 1 -swirl 0 -spread 1 -lens 1 -waves 3.00 5.00 0.00 "
            "-deinter even dup ");
}

std::string Line(const char *option, const char *sub, void (*set)(OpParams &)) {
  OpProcess p = OpDefaultProcess(OpCatalogueFind(option, sub));
  set(p.params);
  return OpProcessCommandLine(p);
}

TEST(Catalogue, CommandLineDecodesEachKind) {
  EXPECT_EQ(Line("-colors", nullptr, [](OpParams &p) { p.i[0] = 12; p.i[1] = 1; }), "-dither -colors 8 ");
  EXPECT_EQ(Line("-colors", nullptr, [](OpParams &p) { p.i[0] = 17; }), "-colors 216 ");
  EXPECT_EQ(Line("-colors", nullptr, [](OpParams &p) { p.i[0] = 2; }), "-colors 256 ");
  EXPECT_EQ(Line("-grey", nullptr, [](OpParams &p) { p.i[0] = 2; p.i[1] = 1; }), "-dither -grey 4 ");
  EXPECT_EQ(Line("-grey", nullptr, [](OpParams &p) { p.i[0] = 7; }), "-grey 128 ");
  EXPECT_EQ(Line("-grey", nullptr, [](OpParams &p) { p.i[0] = 12; }), "-grey 256 ");
  EXPECT_EQ(Line("-binary", nullptr, [](OpParams &p) { p.i[0] = 2; }), "-binary halft45 ");
  EXPECT_EQ(Line("-binary", nullptr, [](OpParams &p) { p.i[0] = 3; }), "-binary halft90 ");
  EXPECT_EQ(Line("-binary", nullptr, [](OpParams &p) { p.i[0] = 5; }), "-binary floyd ");
  EXPECT_EQ(Line("-swap", nullptr, [](OpParams &p) { p.i[0] = 1; }), "-swap bgr ");
  EXPECT_EQ(Line("-swap", nullptr, [](OpParams &p) { p.i[0] = 2; }), "-swap brg ");
  EXPECT_EQ(Line("-swap", nullptr, [](OpParams &p) { p.i[0] = 3; }), "-swap grb ");
  EXPECT_EQ(Line("-swap", nullptr, [](OpParams &p) { p.i[0] = 9; }), "-swap gbr ");
  EXPECT_EQ(Line("-deinter", nullptr, [](OpParams &p) { p.i[0] = 0; }), "-deinter odd int ");
  EXPECT_EQ(Line("-deinter", nullptr, [](OpParams &p) { p.i[0] = 2; }), "-deinter odd dup ");
  EXPECT_EQ(Line("-resize", nullptr, [](OpParams &p) {
              p.keep_ratio = 1; p.resample = kResampleQuick; p.width_percent = 50; p.height_percent = 25;
            }), "-ratio -rtype quick -resize 50% 25% ");
  EXPECT_EQ(Line("-resize", nullptr, [](OpParams &p) { p.width = 640; p.height = 480; p.resample = kResampleBicubic; }),
            "-rtype linear -resize 640 480 ");
  EXPECT_EQ(Line("-canvas", nullptr, [](OpParams &p) { p.keep_ratio = 1; p.width_percent = 120; p.height_percent = 80; }),
            "-ratio -canvas 120% 80% ");
  EXPECT_EQ(Line("-dpi", nullptr, [](OpParams &p) { p.i[0] = 300; p.i[1] = 300; }), "-dpi ");
  EXPECT_EQ(Line("-noise", "poisson", [](OpParams &p) { p.r[0] = 0.5; }), "-noise 0.50 poisson ");
  EXPECT_EQ(Line("-rotate", nullptr, [](OpParams &p) { p.i[0] = -90; }), "-rotate -90 ");
  EXPECT_EQ(Line("-crop", nullptr, [](OpParams &p) { p.i[0] = 1; p.i[1] = 2; p.i[2] = 3; p.i[3] = 4; }), "-crop 1 2 3 4 ");
  EXPECT_EQ(OpProcessCommandLine(OpDefaultProcess(55)), "");
}

TEST(Catalogue, RunListInOrder) {
  testutil::Pic p(testutil::MakePicture(TSL_GREY, 3, 2));
  testutil::Fill(p, 100);
  OpProcessList list;
  OpProcess b = OpDefaultProcess(OpCatalogueFind("-brightness", nullptr));
  b.params.i[0] = 200;
  list.push_back(b);                                                      // 100 -> 255
  list.push_back(OpDefaultProcess(OpCatalogueFind("-negate", nullptr)));  // 255 -> 0
  b.params.i[0] = 7;
  list.push_back(b);  // 0 -> 7
  EXPECT_EQ(OpRunProcessList(&p, list), kOpDone);
  EXPECT_EQ(p->pixels[0], 7);
  // A refused entry is reported, and the rest of the list still runs.
  OpProcess bad;
  bad.index = 99;
  list.insert(list.begin(), bad);
  testutil::Fill(p, 100);
  EXPECT_EQ(OpRunProcessList(&p, list), kOpEmptyRect);
  EXPECT_EQ(p->pixels[0], 7);
  testutil::Pic bin(testutil::MakePicture(TSL_BINARY, 8, 1));
  EXPECT_EQ(OpRunProcessList(&bin, {OpDefaultProcess(OpCatalogueFind("-sharpen", nullptr))}), kOpNotBilevel);
}

}  // namespace
