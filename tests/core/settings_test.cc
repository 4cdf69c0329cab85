#include "core/settings.h"

#include <gtest/gtest.h>

#include <memory>

#include "test_util.h"

namespace quilla {
namespace {

struct SettingsFixture : ::testing::Test {
  testutil::TempDir dir;
  std::unique_ptr<SettingsRecord> rec{new SettingsRecord{}};
  void TearDown() override { FreeFileTypes(rec.get()); }

  void ReadText(const std::string &text) {
    testutil::WriteFile(dir.file("rc"), text);
    ReadSettingsFile(rec.get(), dir.file("rc"));
  }
  bool FileTypeEnabled(const char *name) {
    for (int i = 0; i < rec->file_type_count; ++i)
      if (std::string(rec->file_types[i].name) == name) return rec->file_types[i].enabled;
    ADD_FAILURE() << "no file type " << name;
    return false;
  }
};

TEST_F(SettingsFixture, MissingFileGivesDefaults) {
  ReadSettingsFile(rec.get(), dir.file("absent"));
  EXPECT_EQ(rec->Start.X, -1);
  EXPECT_EQ(rec->View.Fit, 1);
  EXPECT_TRUE(rec->View.StatusBar);
  EXPECT_DOUBLE_EQ(rec->View.Gamma, 1.0);
  EXPECT_EQ(rec->Browser.IconWidth, 92);
  EXPECT_EQ(rec->Browser.IconHeight, 69);
  EXPECT_STREQ(rec->Save.DefaultFormat, "jpeg");
  EXPECT_STREQ(rec->Rename.Template, "name.#");
  EXPECT_EQ(rec->Rename.Step, 1);
  EXPECT_EQ(rec->Process.LastValue[24], -255);
  EXPECT_EQ(rec->ContactSheet.TextColor, 0xffffff);
  EXPECT_EQ(rec->Start.ToolbarViewConfig, -100664321);
  ASSERT_EQ(rec->file_type_count, tslCount());
  for (int i = 0; i < rec->file_type_count; ++i) EXPECT_TRUE(rec->file_types[i].enabled);
}

TEST_F(SettingsFixture, BooleanReadingRules) {
  ReadText(
      "View.UseGamma = yes\n"
      "View.HideMouse = 2\n"
      "View.UseUndo = 0\n"
      "View.KeepZoomFactor = TRUE\n"
      "Slide.Random = 1\n"
      "View.StatusBar = fAlSe\n");
  EXPECT_FALSE(rec->View.UseGamma);        // a word that is no number reads false
  EXPECT_FALSE(rec->View.HideMouse);       // 2 gives the default (false)
  EXPECT_FALSE(rec->View.UseUndo);         // default true, 0 reads false
  EXPECT_TRUE(rec->View.KeepZoomFactor);
  EXPECT_TRUE(rec->Slide.Random);
  EXPECT_FALSE(rec->View.StatusBar);
  ReadText("View.StatusBar = 7\n");
  EXPECT_TRUE(rec->View.StatusBar);        // default true
}

TEST_F(SettingsFixture, IntegerAndStringRules) {
  ReadText(
      "Save.JpegQuality = 0x50\n"
      "Browser.IconWidth = 120abc\n"
      "PathLoad = /home/a b/pics\n"
      "Slide.Timer = 3\n"
      "Slide.Timer = 9\n"
      "Start.X=5\n"
      "PathSave = \n"
      "Save.DefaultFormat = averyveryverylongname\n"
      "View.Gamma = 2.2\n");
  EXPECT_EQ(rec->Save.JpegQuality, 0);
  EXPECT_EQ(rec->Browser.IconWidth, 120);
  EXPECT_STREQ(rec->PathLoad, "/home/a");
  EXPECT_EQ(rec->Slide.Timer, 3);          // the first line wins
  EXPECT_EQ(rec->Start.X, -1);             // no blanks around "=": not parsed
  EXPECT_STREQ(rec->PathSave, "");
  EXPECT_STREQ(rec->Save.DefaultFormat, "averyveryverylo");  // cut at 15 + NUL
  EXPECT_DOUBLE_EQ(rec->View.Gamma, 2.2);
}

TEST_F(SettingsFixture, FileTypesDefaultFollowsJpegKey) {
  ReadText("FileTypes.jpeg = False\n");
  EXPECT_FALSE(FileTypeEnabled("jpeg"));
  EXPECT_FALSE(FileTypeEnabled("png"));
  ReadText("FileTypes.jpeg = True\nFileTypes.gif = True\n");
  EXPECT_TRUE(FileTypeEnabled("jpeg"));
  EXPECT_TRUE(FileTypeEnabled("gif"));
  EXPECT_FALSE(FileTypeEnabled("bmp"));
  ReadText("FileTypes.gif = False\n");
  EXPECT_FALSE(FileTypeEnabled("gif"));
  EXPECT_TRUE(FileTypeEnabled("bmp"));
}

TEST_F(SettingsFixture, WriteBackRules) {
  ReadText(
      "Start.ToolbarViewConfig = 0\n"
      "Html.TableRows = 7\n"
      "Load.ChannelOrder = 3\n"
      "View.Gamma = 1.5\n"
      "FileName_3 = /tmp/x.png\n");
  EXPECT_EQ(rec->Html.TableRows, 7);  // honoured while running
  EXPECT_EQ(rec->Load.ChannelOrder, 3);
  rec->Rename.Start = 5;
  ASSERT_TRUE(WriteSettingsFile(rec.get(), dir.file("out")));
  EXPECT_EQ(rec->file_types, nullptr);  // saving frees the file-type table
  std::string text = testutil::ReadFile(dir.file("out"));
  EXPECT_NE(text.find("Start.ToolbarViewConfig = -100664321\n"), std::string::npos);
  EXPECT_NE(text.find("View.Gamma = 1.50\n"), std::string::npos);
  EXPECT_NE(text.find("Rename.Start = 5\n"), std::string::npos);
  EXPECT_NE(text.find("FileName_3 = /tmp/x.png\n"), std::string::npos);
  EXPECT_NE(text.find("FileName_0 = \n"), std::string::npos);  // empty entries are written
  EXPECT_NE(text.find("View.StatusBar = True\n"), std::string::npos);
  EXPECT_NE(text.find("FileTypes.jpeg = True\n"), std::string::npos);
  EXPECT_EQ(text.find("Html.TableRows"), std::string::npos);
  EXPECT_EQ(text.find("Load.ChannelOrder"), std::string::npos);
  EXPECT_NE(text.find("Save.ChannelOrder = 0\n"), std::string::npos);
  // Order: the table's order, file types last.
  EXPECT_LT(text.find("PathLoad = "), text.find("Start.X = "));
  EXPECT_LT(text.find("Start.X = "), text.find("Convert.DefaultFormat = jpeg\n"));
  EXPECT_LT(text.find("Convert.DefaultFormat"), text.find("FileTypes."));

  ReadSettingsFile(rec.get(), dir.file("out"));
  EXPECT_EQ(rec->Rename.Start, 0);  // read as a boolean: 5 reverts to the default
  EXPECT_EQ(rec->Html.TableRows, 4);
  EXPECT_EQ(rec->Start.ToolbarViewConfig, -100664321);
  EXPECT_STREQ(rec->FileName[3], "/tmp/x.png");
}

TEST_F(SettingsFixture, PurgeEmptiesRecentLists) {
  ReadText("Start.PurgeMostRecentlyUsed = True\nFileName_0 = /a\nDirName_1 = /b\nFile.DirName_2 = /c\n");
  ASSERT_TRUE(WriteSettingsFile(rec.get(), dir.file("out")));
  std::string text = testutil::ReadFile(dir.file("out"));
  EXPECT_NE(text.find("FileName_0 = \n"), std::string::npos);
  EXPECT_NE(text.find("DirName_1 = \n"), std::string::npos);
  EXPECT_NE(text.find("File.DirName_2 = \n"), std::string::npos);
}

TEST_F(SettingsFixture, UnwritablePathReportsAndKeepsOldFile) {
  ReadText("Slide.Timer = 4\n");
  testing::internal::CaptureStderr();
  EXPECT_FALSE(WriteSettingsFile(rec.get(), dir.file("no/such/dir/rc")));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error in creating <" + dir.file("no/such/dir/rc") + ">\n");
}

TEST_F(SettingsFixture, PathChoice) {
  ::mkdir(dir.file("start").c_str(), 0777);
  ::mkdir(dir.file("home").c_str(), 0777);
  setenv("HOME", dir.file("home").c_str(), 1);
  // Nothing in the start directory: the home file, whether it exists or not.
  EXPECT_EQ(ChooseSettingsPath(nullptr, dir.file("start")), dir.file("home") + "/.quillarc");
  testutil::WriteFile(dir.file("start/.quillarc"), "");
  EXPECT_EQ(ChooseSettingsPath(nullptr, dir.file("start")), dir.file("start") + "/.quillarc");
  EXPECT_EQ(ChooseSettingsPath("", dir.file("start")), dir.file("start") + "/.quillarc");
  // -ini naming a directory falls back to the home file.
  EXPECT_EQ(ChooseSettingsPath(dir.file("start").c_str(), dir.file("start")), dir.file("home") + "/.quillarc");
  testutil::WriteFile(dir.file("my.rc"), "");
  EXPECT_EQ(ChooseSettingsPath(dir.file("my.rc").c_str(), dir.file("start")), dir.file("my.rc"));
}

TEST(SettingsTableTest, GrowsAtEightyPercentCountingDuplicates) {
  SettingsTable t;
  EXPECT_EQ(t.slots(), 1024u);
  for (int i = 0; i < 819; ++i) t.insert("dup", std::to_string(i));
  EXPECT_EQ(t.slots(), 1024u);  // 819 insertions stay below 80% of 1024 (819.2)
  t.insert("dup", "x");
  EXPECT_EQ(t.slots(), 2048u);
  EXPECT_EQ(*t.find("dup"), "0");
  for (int i = 0; i < 3000; ++i) t.insert("k" + std::to_string(i), std::to_string(i));
  for (int i = 0; i < 3000; i += 97) EXPECT_EQ(*t.find("k" + std::to_string(i)), std::to_string(i));
  EXPECT_EQ(t.find("absent"), nullptr);
}

}  // namespace
}  // namespace quilla
