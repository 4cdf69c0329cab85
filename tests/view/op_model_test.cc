#include "view/op_model.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>

#include "test_util.h"

namespace quilla {
namespace {

int Row(const char *option, const char *sub = nullptr) { return OpCatalogueFind(option, sub); }

TEST(OpMenus, EveryRowIsReachedOnceAndEveryWordLeadsBackToIt) {
  std::map<int, int> entries;  // row -> menu entries running it
  std::set<std::string> names;
  for (int top = 0; top < 3; ++top)
    for (int sub = kSubNone; sub < kOpSubmenuCount; ++sub)
      for (const OpMenuItem &item : OpMenuItems(top, sub)) {
        ++entries[item.row];
        EXPECT_TRUE(names.insert(item.name).second) << "widget name used twice: " << item.name;
        int row = -1, choice = -2;
        ASSERT_TRUE(OpParseCommandWord(item.word.c_str(), &row, &choice)) << item.word;
        EXPECT_EQ(row, item.row) << item.word;
        EXPECT_EQ(choice, item.choice) << item.word;
      }
  EXPECT_EQ(static_cast<int>(entries.size()), OpCatalogueCount());
  // One entry per row, except the rows offered as a list of choices.
  EXPECT_EQ(entries[Row("-negate")], 1);
  EXPECT_EQ(entries[Row("-binary")], 4);
  EXPECT_EQ(entries[Row("-colors")], 7);  // 8 .. 256: four colours has no code
  EXPECT_EQ(entries[Row("-grey")], 7);    // 4 .. 256 without 216
  // Every submenu has entries and sits in the menu its name belongs to.
  for (int sub = 0; sub < kOpSubmenuCount; ++sub)
    EXPECT_FALSE(OpMenuItems(kOpSubmenus[sub].top, sub).empty()) << kOpSubmenus[sub].name;
  int top, sub;
  ASSERT_TRUE(OpMenuPlace(Row("-noise", "poisson"), &top, &sub));
  EXPECT_EQ(std::string(kOpSubmenus[sub].name), "MenuNoise");
  ASSERT_TRUE(OpMenuPlace(Row("-waves"), &top, &sub));
  EXPECT_EQ(std::string(kOpSubmenus[sub].name), "MenuEffects");
  EXPECT_FALSE(OpMenuPlace(-1, &top, &sub));
  EXPECT_FALSE(OpMenuPlace(OpCatalogueCount(), &top, &sub));
}

TEST(OpMenus, LabelsSayWhetherADialogFollows) {
  std::map<std::string, std::string> labels;
  for (int top = 0; top < 3; ++top)
    for (int sub = kSubNone; sub < kOpSubmenuCount; ++sub)
      for (const OpMenuItem &item : OpMenuItems(top, sub)) labels[item.word] = item.label;
  EXPECT_EQ(labels["op-negate"], "Negative");
  EXPECT_EQ(labels["op-brightness"], "Brightness...");
  EXPECT_EQ(labels["op-noise/gaussian"], "Add gaussian noise...");
  EXPECT_EQ(labels["op-truecolors"], "True Colors");
  EXPECT_EQ(labels["op-colors=1"], "8 Colors");
  EXPECT_EQ(labels["op-grey=0"], "4 Grey Levels");
  EXPECT_EQ(labels["op-binary=1"], "Floyd Steindberg");
  // Widget names are plain words resources can name.
  for (const OpMenuItem &item : OpMenuItems(kTopFilter, kSubNoise))
    EXPECT_EQ(item.name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"),
              std::string::npos) << item.name;
  for (const OpMenuItem &item : OpMenuItems(kTopFilter, kSubNoise))
    if (item.row == Row("-noise", "uniform")) {
      EXPECT_EQ(item.name, "opNoiseUniform");
    }
}

TEST(OpMenus, MalformedWordsAreRefused) {
  int row, choice;
  for (const char *bad : {"", "op-", "op", "crop", "op-nothing", "op-noise", "op-noise/", "op-noise/bogus",
                          "op-negate/x", "op-colors=", "op-colors=a", "op-colors=0", "op-colors=8", "op-grey=6",
                          "op-negate=0", "op-colors=-1", "op-colors=0001"})
    EXPECT_FALSE(OpParseCommandWord(bad, &row, &choice)) << bad;
  EXPECT_FALSE(OpParseCommandWord(nullptr, &row, &choice));
  ASSERT_TRUE(OpParseCommandWord("op-edgedetect/heavy", &row, &choice));
  EXPECT_EQ(row, Row("-edgedetect", "heavy"));
  EXPECT_EQ(choice, -1);
}

// The stored defaults go through every panel and come out as the same
// converter options.
TEST(OpPanels, DefaultsSurviveTheirPanel) {
  for (int row = 0; row < OpCatalogueCount(); ++row) {
    const int kind = OpCatalogue()[row].kind;
    if (kind == kKindResize || kind == kKindCanvas) continue;  // size 0 is no size
    OpProcess p = OpDefaultProcess(row);
    OpProcess q = p;
    q.params = OpParams();
    OpPanelApply(row, OpPanelValues(row, p.params), &q.params);
    EXPECT_EQ(OpProcessCommandLine(q), OpProcessCommandLine(p)) << OpCatalogue()[row].name;
  }
}

TEST(OpPanels, KindsGetTheirNamedControlsAndBounds) {
  const OpPanel colors = OpPanelFor(Row("-colors"));
  ASSERT_EQ(colors.groups.size(), 1u);
  ASSERT_EQ(colors.groups[0].toggles.size(), 8u);
  EXPECT_EQ(colors.groups[0].toggles[0].name, "toggleLevel4");
  EXPECT_FALSE(colors.groups[0].toggles[0].sensitive);
  EXPECT_EQ(colors.groups[0].toggles[6].name, "toggleLevel216");
  EXPECT_TRUE(colors.groups[0].toggles[6].sensitive);
  ASSERT_EQ(colors.checks.size(), 1u);
  EXPECT_EQ(colors.checks[0].name, "toggleLevelDithered");
  EXPECT_FALSE(OpPanelFor(Row("-grey")).groups[0].toggles[6].sensitive);

  const OpPanel resize = OpPanelFor(Row("-resize"));
  EXPECT_TRUE(resize.size_panel);
  std::set<std::string> names;
  for (const PanelGroup &g : resize.groups) {
    names.insert(g.name);
    for (const PanelToggle &t : g.toggles) names.insert(t.name);
  }
  for (const PanelToggle &t : resize.checks) names.insert(t.name);
  for (const char *n : {"toggleSizePixel", "toggleSizePerc", "toggleSizeRatio", "toggleSizeDecr", "toggleSizeIncr",
                        "optionSizeResample"})
    EXPECT_TRUE(names.count(n)) << n;
  // Resize Canvas has the same panel without a resampling method.
  const OpPanel canvas = OpPanelFor(Row("-canvas"));
  EXPECT_EQ(canvas.groups.size(), 1u);

  const OpPanel gamma = OpPanelFor(Row("-gamma"));
  ASSERT_EQ(gamma.sliders.size(), 1u);
  EXPECT_EQ(gamma.sliders[0].min, 1);
  EXPECT_EQ(gamma.sliders[0].max, 500);
  EXPECT_EQ(gamma.sliders[0].decimals, 2);
  const OpPanel waves = OpPanelFor(Row("-waves"));
  ASSERT_EQ(waves.sliders.size(), 3u);
  EXPECT_EQ(waves.sliders[1].label, "Phase");
  EXPECT_EQ(waves.sliders[1].max, 36000);
  const OpPanel sizes = OpPanelFor(Row("-medianb"));
  ASSERT_EQ(sizes.groups[0].toggles.size(), 6u);
  EXPECT_EQ(sizes.groups[0].toggles[5].label, "13x13");
  EXPECT_EQ(OpPanelFor(Row("-crop")).fields.size(), 4u);
  EXPECT_EQ(OpPanelFor(Row("-deinter")).groups.size(), 2u);
  EXPECT_FALSE(OpHasParameters(Row("-negate")));
  EXPECT_FALSE(OpHasParameters(Row("-truecolors")));
  EXPECT_TRUE(OpHasParameters(Row("-swap")));
}

TEST(OpPanels, OutOfRangeValuesAndUnknownCodesAreMadeValid) {
  OpParams p;
  p.i[0] = 999;
  OpPanelApply(Row("-brightness"), OpPanelValues(Row("-brightness"), p), &p);
  EXPECT_EQ(p.i[0], 255);
  p = OpParams();
  p.r[0] = 0.001;
  OpPanelApply(Row("-gamma"), OpPanelValues(Row("-gamma"), p), &p);
  EXPECT_DOUBLE_EQ(p.r[0], 0.01);
  p.i[0] = 4;  // an even size
  OpPanelApply(Row("-gauss"), OpPanelValues(Row("-gauss"), p), &p);
  EXPECT_EQ(p.i[0], 3);
  p.i[0] = 11;  // a colour code meaning 4 colours does not exist
  p.i[1] = 1;
  OpPanelApply(Row("-colors"), OpPanelValues(Row("-colors"), p), &p);
  EXPECT_EQ(p.i[0], 18);
  EXPECT_EQ(p.i[1], 1);
  p.i[0] = 9;
  OpPanelApply(Row("-swap"), OpPanelValues(Row("-swap"), p), &p);
  EXPECT_EQ(p.i[0], 4);
}

TEST(OpPanels, SizePanelWritesPixelsOrPercent) {
  const int row = Row("-resize");
  PanelValues v;
  v.groups = {1, 2};  // percent, nearest neighbour
  v.fields = {50, 25};
  v.checks = {1, 0, 1};
  OpParams p;
  p.width = 640;
  OpPanelApply(row, v, &p);
  EXPECT_EQ(p.width, 0);
  EXPECT_EQ(p.width_percent, 50);
  EXPECT_EQ(p.height_percent, 25);
  EXPECT_EQ(p.keep_ratio, 1);
  EXPECT_EQ(p.only_increase, 1);
  EXPECT_EQ(p.resample, kResampleBicubic);
  EXPECT_EQ(OpPanelValues(row, p), v);
  v.groups = {0, 0};
  v.fields = {0, 70000};  // out of range both ways
  OpPanelApply(row, v, &p);
  EXPECT_EQ(p.width_percent, 0);
  EXPECT_EQ(p.width, 1);
  EXPECT_EQ(p.height, 65535);
  OpProcess np = OpNewProcess(row);
  EXPECT_EQ(OpProcessCommandLine(np), "-ratio -rtype linear -resize 100% 100% ");
  EXPECT_EQ(OpProcessCommandLine(OpNewProcess(Row("-canvas"))), "-ratio -canvas 100% 100% ");
}

TEST(OpPanels, SizeFieldsFollowTheRatioAndTheUnit) {
  EXPECT_EQ(SizeOtherSide(60, true, false, 120, 90), 45);
  EXPECT_EQ(SizeOtherSide(45, false, false, 120, 90), 60);
  EXPECT_EQ(SizeOtherSide(1, true, false, 1000, 1), 1);         // never 0
  EXPECT_EQ(SizeOtherSide(60000, true, false, 1, 1000), 65535);  // nor past the field
  EXPECT_EQ(SizeOtherSide(37, true, true, 120, 90), 37);         // percent: the same number
  EXPECT_EQ(SizeOtherSide(60, true, false, 0, 90), -1);          // size unknown
  EXPECT_EQ(SizeOtherSide(0, true, false, 120, 90), -1);
  EXPECT_EQ(SizeInOtherUnit(60, true, 120), 50);
  EXPECT_EQ(SizeInOtherUnit(50, false, 90), 45);
  EXPECT_EQ(SizeInOtherUnit(1, true, 100000), 1);
  EXPECT_EQ(SizeInOtherUnit(640, true, 0), 100);
  EXPECT_EQ(SizeInOtherUnit(100, false, 0), 100);
  EXPECT_EQ(SizeInOtherUnit(0, false, 90), 90);
}

TEST(OpPanels, NumberTextsAndTheirParsing) {
  EXPECT_EQ(PanelNumberText(105, 2), "1.05");
  EXPECT_EQ(PanelNumberText(-50, 2), "-0.50");
  EXPECT_EQ(PanelNumberText(-7, 0), "-7");
  PanelNumber gamma{"t", "g", 1, 500, 2};
  int v = 0;
  EXPECT_TRUE(PanelNumberParse("2.5", gamma, &v));
  EXPECT_EQ(v, 250);
  EXPECT_TRUE(PanelNumberParse(" 0.01 ", gamma, &v));
  EXPECT_EQ(v, 1);
  for (const char *bad : {"", "  ", "abc", "5.01", "0", "1.5x", "nan", "inf"})
    EXPECT_FALSE(PanelNumberParse(bad, gamma, &v)) << bad;
  PanelNumber bright{"t", "b", -255, 255, 0};
  EXPECT_TRUE(PanelNumberParse("-255", bright, &v));
  EXPECT_EQ(v, -255);
  EXPECT_FALSE(PanelNumberParse("256", bright, &v));
  EXPECT_FALSE(PanelNumberParse("12x", bright, &v));
  EXPECT_FALSE(PanelNumberParse(nullptr, bright, &v));
}

TEST(OpLastValues, RecallStoreAndSharedSlots) {
  int32_t last[kLastValueCount];
  for (int32_t &x : last) x = kNoLastValue;
  // Nothing kept: the catalogue's defaults.
  for (int row = 0; row < OpCatalogueCount(); ++row)
    EXPECT_EQ(OpProcessCommandLine({row, OpRecallParams(row, last)}), OpProcessCommandLine(OpDefaultProcess(row)));
  OpParams p = OpDefaultProcess(Row("-brightness")).params;
  p.i[0] = -40;
  OpStoreParams(Row("-brightness"), p, last);
  EXPECT_EQ(OpRecallParams(Row("-brightness"), last).i[0], -40);
  EXPECT_EQ(OpRecallParams(Row("-contrast"), last).i[0], 0);  // its own slot
  // Strength is one value for the four strength filters.
  p.i[0] = 40;
  OpStoreParams(Row("-blur"), p, last);
  EXPECT_EQ(OpRecallParams(Row("-sharpen"), last).i[0], 40);
  // Reals are kept in hundredths.
  p = OpParams();
  p.r[0] = 2.35;
  OpStoreParams(Row("-noise", "gaussian"), p, last);
  EXPECT_DOUBLE_EQ(OpRecallParams(Row("-noise", "gaussian"), last).r[0], 2.35);
  EXPECT_DOUBLE_EQ(OpRecallParams(Row("-noise", "uniform"), last).r[0], 0.1);
  // The dithering is shared by grey and colour reduction.
  p = OpDefaultProcess(Row("-grey")).params;
  p.i[1] = 1;
  OpStoreParams(Row("-grey"), p, last);
  EXPECT_EQ(last[kDitherSlot], 1);
  EXPECT_EQ(OpRecallParams(Row("-colors"), last).i[1], 1);
  // A value from an edited settings file is made valid.
  last[21] = 99;  // oil painting allows 1..16
  EXPECT_EQ(OpRecallParams(Row("-oil"), last).i[0], 16);
  last[1] = 3;    // no colour code
  EXPECT_EQ(OpRecallParams(Row("-colors"), last).i[0], 18);
  // Rows without a slot leave the array alone.
  int32_t before[kLastValueCount];
  std::memcpy(before, last, sizeof last);
  OpStoreParams(Row("-waves"), OpDefaultProcess(Row("-waves")).params, last);
  OpStoreParams(-1, OpParams(), last);
  EXPECT_EQ(std::memcmp(before, last, sizeof last), 0);
}

TEST(OpLastValues, ProcessLabelNamesTheEntryAndItsOptions) {
  EXPECT_EQ(OpProcessLabel(OpDefaultProcess(Row("-noise", "gaussian"))), "Add gaussian noise  -noise 0.40 gaussian");
  EXPECT_EQ(OpProcessLabel(OpDefaultProcess(Row("-negate"))), "Negative  -negate");
  EXPECT_EQ(OpProcessLabel(OpProcess{-3, OpParams()}), "");
}

TEST(OpSelection, WindowPointsToPictureRectangles) {
  // 1:1, picture at (10, 20): the exact rectangle, whichever corner comes first.
  OpRect r = SelectionRect(60, 70, 20, 30, 10, 20, 100, 300, 200);
  EXPECT_EQ(r.x, 10);
  EXPECT_EQ(r.y, 10);
  EXPECT_EQ(r.width, 40);
  EXPECT_EQ(r.height, 40);
  // 200%: window pixels are halved, to the nearest pixel boundary.
  r = SelectionRect(21, 41, 121, 100, 0, 0, 200, 300, 200);
  EXPECT_EQ(r.x, 11);  // 10.5 rounds up
  EXPECT_EQ(r.y, 21);
  EXPECT_EQ(r.width, 61 - 11);
  EXPECT_EQ(r.height, 50 - 21);
  // 50%: doubled.
  r = SelectionRect(5, 5, 15, 25, 0, 0, 50, 300, 200);
  EXPECT_EQ(r.x, 10);
  EXPECT_EQ(r.width, 20);
  EXPECT_EQ(r.height, 40);
  // Clipped to the picture; wholly outside gives nothing.
  r = SelectionRect(-50, -50, 1000, 1000, 0, 0, 100, 300, 200);
  EXPECT_EQ(r.x, 0);
  EXPECT_EQ(r.width, 300);
  EXPECT_EQ(r.height, 200);
  r = SelectionRect(400, 10, 500, 50, 0, 0, 100, 300, 200);
  EXPECT_EQ(r.width, 0);
  // A zero zoom is taken as 1:1 rather than dividing by zero.
  r = SelectionRect(0, 0, 10, 10, 0, 0, 0, 300, 200);
  EXPECT_EQ(r.width, 10);
  // Back to the window: the outline lands on the points drawn.
  for (double zoom : {50.0, 100.0, 200.0, 300.0}) {
    const OpRect sel{12, 8, 40, 30};
    const OpRect w = SelectionOnWindow(sel, 5, 7, zoom);
    const OpRect back = SelectionRect(w.x, w.y, w.x + w.width, w.y + w.height, 5, 7, zoom, 300, 200);
    EXPECT_EQ(back.x, sel.x) << zoom;
    EXPECT_EQ(back.width, sel.width) << zoom;
    EXPECT_EQ(back.height, sel.height) << zoom;
  }
  EXPECT_EQ(SelectionText(OpRect{3, 4, 50, 60}), "Selection 50x60 at 3,4");
}

TslPicture Filled(int model, uint32_t w, uint32_t h, uint8_t value) {
  TslPicture p = testutil::MakePicture(model, w, h);
  for (uint32_t y = 0; y < h; ++y) std::memset(p.pixels + y * p.bytes_per_line, value, p.bytes_per_line);
  return p;
}

TEST(OpAutoCrop, BorderWithinToleranceIsTrimmed) {
  TslPicture p = Filled(TSL_RGB, 40, 30, 250);
  // A near-white border (250) around a dark block at (5..14, 7..9).
  for (uint32_t y = 7; y < 10; ++y)
    for (uint32_t x = 5; x < 15; ++x) std::memset(p.pixels + y * p.bytes_per_line + x * 3, 10, 3);
  OpRect r{};
  ASSERT_TRUE(AutoCropRect(p, 0xFFFFFF, 5, &r));
  EXPECT_EQ(r.x, 5);
  EXPECT_EQ(r.y, 7);
  EXPECT_EQ(r.width, 10);
  EXPECT_EQ(r.height, 3);
  // A difference of exactly the tolerance is background; one more is not.
  ASSERT_TRUE(AutoCropRect(p, 0xFFFFFF, 4, &r));
  EXPECT_EQ(r.width, 40);
  // Only one channel differing counts.
  p.pixels[29 * p.bytes_per_line + 39 * 3 + 1] = 200;
  ASSERT_TRUE(AutoCropRect(p, 0xFFFFFF, 5, &r));
  EXPECT_EQ(r.x + r.width, 40);
  EXPECT_EQ(r.y + r.height, 30);
  tslFree(&p);
  // All background: nothing would be left.
  TslPicture flat = Filled(TSL_GREY, 8, 8, 0);
  EXPECT_FALSE(AutoCropRect(flat, 0x000000, 0, &r));
  EXPECT_TRUE(AutoCropRect(flat, 0x000100, 0, &r));  // green 1 differs
  tslFree(&flat);
  TslPicture empty{};
  EXPECT_FALSE(AutoCropRect(empty, 0, 0, &r));
}

TEST(OpAutoCrop, IndexedPicturesCompareTheirPaletteColours) {
  TslPicture p = Filled(TSL_INDEXED, 10, 10, 3);
  p.palette[3] = 0, p.palette[256 + 3] = 0, p.palette[512 + 3] = 255;  // index 3 is blue
  p.palette[0] = 0, p.palette[256] = 0, p.palette[512] = 254;          // index 0 is almost blue
  p.pixels[4 * p.bytes_per_line + 6] = 0;
  OpRect r{};
  ASSERT_TRUE(AutoCropRect(p, 0x0000FF, 0, &r));
  EXPECT_EQ(r.x, 6);
  EXPECT_EQ(r.y, 4);
  EXPECT_EQ(r.width, 1);
  EXPECT_FALSE(AutoCropRect(p, 0x0000FF, 1, &r));
  tslFree(&p);
}

TEST(OpMessages, StatusesInWordsAUserUnderstands) {
  EXPECT_EQ(OpStatusText(0), "");
  EXPECT_EQ(OpStatusText(1), "Not enough memory");
  const std::string empty = OpStatusText(16), bilevel = OpStatusText(17);
  EXPECT_NE(empty, bilevel);
  EXPECT_EQ(empty.find("16"), std::string::npos);
  EXPECT_NE(bilevel.find("black and white"), std::string::npos);
  EXPECT_NE(OpStatusText(99).find("99"), std::string::npos);
}

}  // namespace
}  // namespace quilla
