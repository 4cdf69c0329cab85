// The Options dialog's table: every settings key reachable once, values
// surviving the text form and the settings file, bounds refused.
#include "core/options_model.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "core/settings.h"
#include "tessel.h"
#include "test_util.h"

namespace {

using namespace quilla;

class OptionsModel : public ::testing::Test {
 protected:
  void SetUp() override {
    tslInitLibrary();
    ReadSettingsFile(&record_, dir_.file("absent.rc"));
  }
  void TearDown() override { FreeFileTypes(&record_); }
  std::string Value(const char *key) { return OptionValueText(record_, *FindOption(key)); }
  bool Set(const char *key, const std::string &text) { return SetOptionValue(&record_, *FindOption(key), text); }

  testutil::TempDir dir_;
  SettingsRecord record_{};
};

TEST_F(OptionsModel, EverySettingsKeyHasExactlyOneRowOnARealPageWithUniqueWidgets) {
  std::map<std::string, int> rows;
  std::set<std::string> widgets;
  std::set<OptionPage> pages;
  for (const OptionEntry &e : OptionTable()) {
    ++rows[e.key];
    EXPECT_TRUE(widgets.insert(e.widget).second) << "widget name twice: " << e.widget;
    EXPECT_FALSE(e.label.empty()) << e.key;
    EXPECT_NE(e.page, OptionPage::kFileTypes) << e.key;
    pages.insert(e.page);
    for (const OptionChoice &c : e.choices) EXPECT_TRUE(widgets.insert(c.widget).second) << c.widget;
    if (e.kind == OptionKind::kChoice) {
      EXPECT_GE(e.choices.size(), 2u) << e.key;
    }
  }
  size_t keys = 0;
  for (const KeyRef &k : KeyTable(record_)) {
    ++keys;
    EXPECT_EQ(rows[KeyName(k)], 1) << KeyName(k);
  }
  EXPECT_EQ(rows.size(), keys) << "rows naming keys the settings do not have";
  EXPECT_EQ(pages.size(), static_cast<size_t>(OptionPage::kCount) - 1);  // every page but the file types
  // Names other windows and resources look the widgets up by.
  EXPECT_EQ(FindOption("Save.JpegQuality")->widget, "OptionJpegText");
  EXPECT_EQ(FindOption("Cache.IsActive")->widget, "tbCache");
  const OptionEntry *cache = FindOption("Cache.Compression");
  EXPECT_EQ(cache->widget, "optionMenuCache");
  ASSERT_EQ(cache->choices.size(), 4u);
  EXPECT_EQ(cache->choices[2].widget, "OptionCacheLossyLow");
  EXPECT_STREQ(cache->choices[3].label, "Lossy High (JPEG)");
  EXPECT_STREQ(OptionPageName(OptionPage::kCache), "PCache");
  EXPECT_STREQ(OptionPageName(OptionPage::kFileTypes), "PFileTypes");
}

TEST_F(OptionsModel, DefaultsShowAsTheirTextAndReadBackUnchanged) {
  EXPECT_EQ(Value("Save.JpegQuality"), "100");
  EXPECT_EQ(Value("View.UseUndo"), "True");
  EXPECT_EQ(Value("View.Gamma"), "1.00");
  EXPECT_EQ(Value("ContactSheet.TextColor"), "#FFFFFF");
  EXPECT_EQ(Value("Rename.Template"), "name.#");
  EXPECT_EQ(Value("Convert.DefaultFormat"), "jpeg");
  EXPECT_EQ(Value("Start.X"), "-1");
  EXPECT_EQ(Value("Process.LastValue_24"), "-255");
  for (const OptionEntry &e : OptionTable()) {
    const std::string before = OptionValueText(record_, e);
    EXPECT_TRUE(SetOptionValue(&record_, e, before)) << e.key << " = " << before;
    EXPECT_EQ(OptionValueText(record_, e), before) << e.key;
  }
}

// Another valid value of the row, in its text form.
std::string OtherValue(const OptionEntry &e, const std::string &now) {
  switch (e.kind) {
    case OptionKind::kToggle: return now == "True" ? "False" : "True";
    case OptionKind::kNumber: return std::to_string(now == std::to_string(e.lo + 1) ? e.lo + 2 : e.lo + 1);
    case OptionKind::kReal: return "2.50";
    case OptionKind::kColor: return "#12AB5F";
    case OptionKind::kChoice: return std::to_string(e.choices.back().value);
    case OptionKind::kFormat: return now == "png" ? "bmp" : "png";
    case OptionKind::kText: return "/some/where_" + e.key;
  }
  return now;
}

TEST_F(OptionsModel, EveryChangedValueSurvivesTheSettingsFile) {
  std::map<std::string, std::string> wanted;
  for (const OptionEntry &e : OptionTable()) {
    if (e.key == "Start.PurgeMostRecentlyUsed") continue;  // it would empty the recent lists
    const std::string v = OtherValue(e, OptionValueText(record_, e));
    ASSERT_TRUE(SetOptionValue(&record_, e, v)) << e.key << " = " << v;
    wanted[e.key] = OptionValueText(record_, e);
    EXPECT_EQ(wanted[e.key], v) << e.key;
  }
  const std::string path = dir_.file("rc");
  ASSERT_TRUE(WriteSettingsFile(&record_, path));
  ReadSettingsFile(&record_, path);
  // The keys the file never keeps go back to their defaults, and so does a
  // rename step other than 0 or 1 (written as a number, read as a switch).
  EXPECT_EQ(wanted["Rename.Step"], "2");
  const std::set<std::string> unkept = {"Load.ChannelOrder", "Load.ChannelType", "Html.TableRows", "Rename.Step"};
  for (const OptionEntry &e : OptionTable()) {
    if (!wanted.count(e.key)) continue;
    if (unkept.count(e.key))
      EXPECT_NE(OptionValueText(record_, e), wanted[e.key]) << e.key;
    else
      EXPECT_EQ(OptionValueText(record_, e), wanted[e.key]) << e.key;
  }
}

TEST_F(OptionsModel, BadTextsAndOutOfBoundsValuesLeaveTheRecordAlone) {
  const struct {
    const char *key;
    std::vector<const char *> bad;
  } cases[] = {
      {"Save.JpegQuality", {"0", "101", "abc", "50x", "", "5 0", "0x50"}},
      {"Save.GifTransparentIndex", {"256", "-1"}},
      {"Save.PngCompressionLevel", {"10"}},
      {"Start.X", {"2147483648", "-2147483649", "1e3"}},
      {"Slide.Timer", {"0", "65536"}},
      {"View.UseUndo", {"yes", "2", "true", ""}},
      {"View.Gamma", {"0", "-1", "nan", "inf", "1,5", "11"}},
      {"ContactSheet.TextColor", {"#GGGGGG", "123456", "#12345", "#1234567"}},
      {"Cache.Compression", {"4", "-1", "None"}},
      {"Save.TiffCompress", {"4", "5"}},  // the bilevel-only methods
      {"Convert.DefaultFormat", {"nosuch", "", "jpeg x"}},
  };
  for (const auto &c : cases) {
    const std::string before = Value(c.key);
    for (const char *t : c.bad) {
      EXPECT_FALSE(Set(c.key, t)) << c.key << " = '" << t << "'";
      EXPECT_EQ(Value(c.key), before) << c.key;
    }
  }
  // The edges themselves are values; blanks around a number are ignored.
  EXPECT_TRUE(Set("Save.JpegQuality", " 1 "));
  EXPECT_EQ(record_.Save.JpegQuality, 1);
  EXPECT_TRUE(Set("Start.X", "-2147483648"));
  EXPECT_EQ(record_.Start.X, INT32_MIN);
  EXPECT_TRUE(Set("Save.TiffBinaryCompress", "5"));
  EXPECT_EQ(record_.Save.TiffBinaryCompress, 5);
  EXPECT_TRUE(Set("ContactSheet.BackgroundColor", "#00ff80"));
  EXPECT_EQ(record_.ContactSheet.BackgroundColor, 0x00FF80);
  EXPECT_TRUE(Set("View.Gamma", "2.2"));
  EXPECT_DOUBLE_EQ(record_.View.Gamma, 2.2);
  // Format names are stored as the library spells them.
  EXPECT_TRUE(Set("Convert.DefaultFormat", "PNG"));
  EXPECT_EQ(Value("Convert.DefaultFormat"), "png");
  // A format the library reads but cannot write is no default format.
  for (int i = 0; i < tslCount(); ++i) {
    if (tslFormatIsWritable(i)) continue;
    EXPECT_FALSE(Set("Save.DefaultFormat", tslFormatGetName(i))) << tslFormatGetName(i);
    break;
  }
}

TEST_F(OptionsModel, LongTextIsCutAtTheFieldSize) {
  EXPECT_EQ(FindOption("Rename.Template")->max_length, 63u);
  EXPECT_EQ(FindOption("PathLoad")->max_length, 4095u);
  ASSERT_TRUE(Set("Rename.Template", std::string(100, 'a')));
  EXPECT_EQ(Value("Rename.Template"), std::string(63, 'a'));
  ASSERT_TRUE(Set("ContactSheet.HeadNote", "  kept as typed  "));
  EXPECT_EQ(Value("ContactSheet.HeadNote"), "  kept as typed  ");
  ASSERT_TRUE(Set("PathLoad", std::string(5000, 'p')));
  EXPECT_EQ(Value("PathLoad").size(), 4095u);
}

TEST_F(OptionsModel, FileTypeLinesNameEveryFormat) {
  const int jpeg = tslFormatGetIndex("jpeg");
  ASSERT_GE(jpeg, 0);
  const std::string line = FileTypeLine(jpeg);
  EXPECT_EQ(line.substr(0, 11), "jpeg       ");
  EXPECT_GT(line.size(), 11u);
}

}  // namespace
