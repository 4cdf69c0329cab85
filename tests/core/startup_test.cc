#include "core/startup.h"

#include <gtest/gtest.h>

#include <cstring>

namespace quilla {
namespace {

StartOptions Parse(std::vector<std::string> args, bool all_default = false) {
  std::vector<char *> argv;
  for (auto &a : args) argv.push_back(&a[0]);
  return ParseStartOptions(static_cast<int>(argv.size()), argv.data(), all_default);
}

TEST(StartOptionsTest, HelpOnlyAsFirstArgument) {
  EXPECT_TRUE(Parse({"quilla", "-h"}).help);
  EXPECT_TRUE(Parse({"quilla", "-help"}).help);
  StartOptions o = Parse({"quilla", "x", "-h"});
  EXPECT_FALSE(o.help);
  ASSERT_EQ(o.files.size(), 2u);
  EXPECT_EQ(o.files[1], "-h");
}

TEST(StartOptionsTest, PassStopsAtFirstFileAndDoubleHyphenIsAFile) {
  StartOptions o = Parse({"quilla", "-visualid", "21", "-own", "--", "a.jpg"});
  EXPECT_EQ(o.visual_id, 0x21);
  EXPECT_TRUE(o.own);
  ASSERT_EQ(o.files.size(), 2u);
  EXPECT_EQ(o.files[0], "--");
  EXPECT_EQ(o.files[1], "a.jpg");
  EXPECT_EQ(Parse({"quilla", "-visualid", "0x22"}).visual_id, 0x22);
  EXPECT_EQ(Parse({"quilla", "-visualid"}).visual_id, -1);  // last argument: skipped
  EXPECT_EQ(Parse({"quilla", "-slide"}).slide, "");
}

TEST(StartOptionsTest, IniNoresAndDefaults) {
  std::vector<std::string> args = {"quilla", "-nores", "-ini", "/tmp/rc", "pic.png"};
  std::vector<char *> argv;
  for (auto &a : args) argv.push_back(&a[0]);
  EXPECT_STREQ(FindIniPath(5, argv.data()), "/tmp/rc");
  EXPECT_TRUE(HasNoResOption(5, argv.data()));
  StartOptions o = ParseStartOptions(5, argv.data(), true);
  EXPECT_TRUE(o.nores);
  EXPECT_TRUE(o.all);  // Start.OpenAll is the default of -all
  ASSERT_EQ(o.files.size(), 1u);
  EXPECT_EQ(o.files[0], "pic.png");
  std::vector<std::string> last = {"quilla", "a", "-ini"};
  std::vector<char *> argv2;
  for (auto &a : last) argv2.push_back(&a[0]);
  EXPECT_EQ(FindIniPath(3, argv2.data()), nullptr);
}

TEST(StartTexts, UsageAndVisualLines) {
  auto lines = UsageLines("quilla", {"              Visual available : \n", VisualListLine(0x21, "TrueColor", 24)});
  ASSERT_EQ(lines.size(), 4u + 3 + 2 + 10);
  EXPECT_EQ(lines[4], "Usage : quilla [options] file ...\n");
  EXPECT_EQ(lines[7], "              Visual available : \n");
  EXPECT_EQ(lines[8], "                0x21 : TrueColor       /  24 planes\n");
  EXPECT_EQ(lines[10], "          -nores         : No default ressources\n");
  EXPECT_EQ(lines.back(), "          -fi            : Force \"Fit to Image\"\n");
  EXPECT_EQ(VisualListLine(0x20, "PseudoColor", 8), "                0x20 : PseudoColor     /  8 planes\n");
  auto banner = BannerLines();
  EXPECT_EQ(banner[0].rfind("** ", 0), 0u);
  EXPECT_NE(banner[0].find(" **\n"), std::string::npos);
  EXPECT_NE(banner[0].find("1.50"), std::string::npos);
  EXPECT_NE(banner[0].find(std::string("(") + __DATE__ + "/"), std::string::npos);
  EXPECT_EQ(banner[1].rfind("        Version for ", 0), 0u);
  EXPECT_NE(banner[1].find("/Motif\n"), std::string::npos);
  EXPECT_EQ(banner[3], "\n");
}

TEST(StartTexts, FallbackResources) {
  ASSERT_EQ(FallbackResourceCount(), 132);
  const char *const *r = FallbackResources();
  int doubled_margin = 0, doubled_label_type = 0;
  for (int i = 0; i < 132; ++i) {
    std::string row = r[i];
    size_t colon = row.find(':');
    ASSERT_NE(colon, std::string::npos) << row;
    if (row.rfind("Quilla", 0) == 0) {
      EXPECT_EQ(row[colon + 1], ' ');
      EXPECT_NE(row[colon + 2], ' ') << row;
    } else {
      EXPECT_NE(row[40], ' ') << row;  // the value starts in column 41
      EXPECT_EQ(row[39], ' ') << row;
    }
    if (row.rfind("*XmRowColumn.marginHeight:", 0) == 0) ++doubled_margin;
    if (row.rfind("Quilla*FileSelector*labelType.fontList:", 0) == 0) ++doubled_label_type;
  }
  EXPECT_EQ(doubled_margin, 2);
  EXPECT_EQ(doubled_label_type, 2);
  EXPECT_EQ(r[132], nullptr);
  EXPECT_STREQ(r[1], "*background:                            #d9d9d9");
}

}  // namespace
}  // namespace quilla
