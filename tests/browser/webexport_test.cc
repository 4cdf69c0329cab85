// The web export: pages against golden files for one, two and three pages,
// the navigation of longer runs, the Html settings, and whole exports into
// real directories with their thumbnails, copies and failures.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <string>
#include <vector>

#include "browser/filelist.h"
#include "browser/webexport.h"
#include "test_util.h"

namespace quilla {
namespace {

using testutil::FileExists;
using testutil::ReadFile;
using testutil::TempDir;

std::string Golden(const std::string &name) {
  return ReadFile(std::string(QUILLA_SOURCE_DIR) + "/tests/browser/golden/" + name);
}

WebPicture Small(const std::string &name) {
  WebPicture p;
  p.name = name;
  p.path = "/pics/" + name;
  p.thumb_name = WebThumbName(name);
  p.thumb_width = p.thumb_height = 8;
  return p;
}

TEST(WebPages, OnePageWithEveryCaption) {
  WebOptions o;
  o.title = "Holiday";
  o.columns = 2, o.rows = 2, o.border = 3;
  o.display = kWebShowName | kWebShowSize | kWebShowDimensions | kWebShowDate | kWebShowAnnotation;
  WebPicture beach{"beach.jpg", "/p/beach.jpg", 200000, 1600, 800, 24, 0, "2024-07-01 10:00", "Sunset",
                   false, "t_beach.jpg", 32, 16};
  WebPicture icon{"icon.gif", "/p/icon.gif", 1023, 20, 10, 4, 16, "2024-07-02 11:30", "", true, "icon.gif", 20, 10};
  WebPicture scan{"scan.png", "/p/scan.png", 2047, 300, 400, 8, 256, "2024-07-03 12:45", "", false, "t_scan.png",
                  24, 32};
  EXPECT_EQ(WebPageCount(3, 2, 2), 1);
  EXPECT_EQ(WebPageText(o, {beach, icon, scan}, 1), Golden("webexport_1page.html"));
}

TEST(WebPages, TwoAndThreePagesLinkEachOther) {
  WebOptions o;
  o.title = "T";
  o.columns = 1, o.rows = 1, o.border = 0;
  o.copy_sources = false;
  o.display = 0;
  const std::vector<WebPicture> two = {Small("a.png"), Small("b.png")};
  EXPECT_EQ(WebPageText(o, two, 1), Golden("webexport_2pages_1.html"));
  EXPECT_EQ(WebPageText(o, two, 2), Golden("webexport_2pages_2.html"));
  const std::vector<WebPicture> three = {Small("a.png"), Small("b.png"), Small("c.png")};
  for (int p = 1; p <= 3; ++p)
    EXPECT_EQ(WebPageText(o, three, p), Golden("webexport_3pages_" + std::to_string(p) + ".html")) << p;

  EXPECT_EQ(WebNavigation("T", 3, 5), "Page 3 of 5  \n| <A href=\"T2.html\">Previous</A> | <A href=\"T4.html\">Next</A> |<BR>\n");
  EXPECT_EQ(WebNavigation("T", 5, 5), "Page 5 of 5  \n| <A href=\"T4.html\">Previous</A> |<BR>\n");
  EXPECT_EQ(WebNavigation("T", 1, 1), "");
  EXPECT_EQ(WebPageCount(12, 4, 3), 1);
  EXPECT_EQ(WebPageCount(13, 4, 3), 2);
  EXPECT_EQ(WebPageCount(0, 4, 3), 0);
  EXPECT_EQ(WebPageFileName("/o/", "T", 1), "/o/T.html");
  EXPECT_EQ(WebPageFileName("/o/", "T", 2), "/o/T2.html");
}

TEST(WebPages, SettingsThumbSizeAndBrowserCommand) {
  SettingsRecord rec{};
  ReadSettingsFile(&rec, "/nonexistent/.quillarc");
  WebOptions o = WebOptionsFromSettings(rec);
  EXPECT_EQ(o.columns, 4);
  EXPECT_EQ(o.rows, 4);
  EXPECT_EQ(o.thumb_width, 32);
  EXPECT_FALSE(o.jpeg);
  EXPECT_EQ(o.display, kWebShowName);
  o.output_dir = "/out/web";
  FreeFileTypes(&rec);

  int w, h;
  WebThumbSize(100, 50, 32, 32, &w, &h);
  EXPECT_EQ(w * 1000 + h, 32016);
  WebThumbSize(10000, 1, 32, 32, &w, &h);
  EXPECT_EQ(w * 1000 + h, 32001);
  WebThumbSize(20, 10, 32, 32, &w, &h);  // never enlarged
  EXPECT_EQ(w * 1000 + h, 20010);

  o.title = "My Album";
  EXPECT_EQ(WebBrowserArguments("firefox  --new-window", o),
            (std::vector<std::string>{"firefox", "--new-window", "/out/web/My Album.html"}));
  EXPECT_EQ(WebBrowserArguments(nullptr, o)[0], "netscape");
}

TEST(WebPages, SelectionOrAllFilesInTheChosenOrder) {
  TempDir dir;
  testutil::WriteFile(dir.file("b.png"), "xxx");
  testutil::WriteFile(dir.file("a.gif"), "x");
  testutil::WriteFile(dir.file("c.jpg"), "xx");
  ::mkdir(dir.file("sub").c_str(), 0777);
  FileList list;
  ASSERT_TRUE(list.read(dir.path()));
  list.sort(kSortName);
  const std::string d = dir.path() + "/";
  // Nothing selected (or only a directory): every file.
  for (int i = 0; i < list.count(); ++i) list.at(i).selected = list.at(i).isDirectory();
  EXPECT_EQ(SortedExportPaths(d, ExportEntries(list), kSortSize | kSortReverse),
            (std::vector<std::string>{d + "b.png", d + "c.jpg", d + "a.gif"}));
  EXPECT_EQ(SortedExportPaths(dir.path(), ExportEntries(list), kSortExtension),
            (std::vector<std::string>{d + "a.gif", d + "c.jpg", d + "b.png"}));
  for (int i = 0; i < list.count(); ++i) list.at(i).selected = list.at(i).name[0] != 'b';
  EXPECT_EQ(SortedExportPaths(d, ExportEntries(list), kSortName | kSortReverse),
            (std::vector<std::string>{d + "c.jpg", d + "a.gif"}));
}

class ScriptedUi : public WebExportUi {
 public:
  std::vector<std::string> status, messages, questions;
  std::vector<bool> answers;
  void ShowStatus(const std::string &t) override { status.push_back(t); }
  void Message(const std::string &t) override { messages.push_back(t); }
  bool Confirm(const std::string &q) override {
    questions.push_back(q);
    bool a = !answers.empty() && answers.front();
    if (!answers.empty()) answers.erase(answers.begin());
    return a;
  }
};

void Save(const std::string &path, TslPicture pic, const char *format) {
  testutil::Pic owned(pic);
  TslParams p;
  tslDefaultParams(&p);
  p.format = tslFormatGetIndex(format);
  p.flags = TSL_FLAG_SAVE;
  ASSERT_EQ(tslSave(path.c_str(), &owned, &p), TSL_OK);
}

int Width(const std::string &path, int *height) {
  testutil::Pic pic;
  TslParams p;
  tslDefaultParams(&p);
  if (tslLoad(path.c_str(), &pic, &p) != TSL_OK) return -1;
  *height = static_cast<int>(pic.p.height);
  return static_cast<int>(pic.p.width);
}

TEST(WebExportRun, ThumbnailsCopiesAndPages) {
  SettingsRecord rec{};
  ReadSettingsFile(&rec, "/nonexistent/.quillarc");
  TempDir src, out;
  Save(src.file("wide.png"), testutil::MakePicture(TSL_RGB, 100, 50, 1), "png");
  Save(src.file("tiny.png"), testutil::MakePicture(TSL_RGB, 20, 10, 2), "png");
  Save(src.file("grey.png"), testutil::MakePicture(TSL_GREY, 64, 64, 3), "png");
  for (bool jpeg : {false, true}) {
    WebOptions o = WebOptionsFromSettings(rec);
    o.title = jpeg ? "J" : "G";
    o.jpeg = jpeg;
    o.columns = 2, o.rows = 1;
    o.output_dir = out.file(jpeg ? "jpeg" : "gif/");
    WebExport run(o, rec, {src.file("wide.png"), src.file("tiny.png"), src.file("grey.png")});
    run.description = [](const std::string &p) { return p.find("wide") != std::string::npos ? "wide one" : ""; };
    ScriptedUi ui;
    ASSERT_TRUE(run.Start(ui));
    int steps = 1;
    while (!run.Step(ui)) ++steps;
    EXPECT_EQ(steps, 3);
    EXPECT_TRUE(run.ok());
    EXPECT_TRUE(ui.questions.empty() && ui.messages.empty());
    const std::string d = run.options().output_dir;
    int h = 0;
    EXPECT_EQ(Width(d + "thumb/t_wide.png", &h), 32);
    EXPECT_EQ(h, 16);
    EXPECT_EQ(Width(d + "thumb/t_grey.png", &h), 32);
    EXPECT_FALSE(FileExists(d + "thumb/t_tiny.png"));  // small enough to be its own thumbnail
    for (const char *name : {"wide.png", "tiny.png", "grey.png"})
      EXPECT_EQ(ReadFile(d + "original/" + name), ReadFile(src.file(name))) << name;
    const std::string page1 = ReadFile(d + o.title + ".html"), page2 = ReadFile(d + o.title + "2.html");
    EXPECT_NE(page1.find("<IMG src=\"original/tiny.png\" border=\"0\" alt=\"tiny.png\" width=\"20\" height=\"10\">"),
              std::string::npos);
    EXPECT_NE(page2.find("<IMG src=\"thumb/t_grey.png\""), std::string::npos);
    EXPECT_FALSE(FileExists(d + o.title + "3.html"));
    EXPECT_EQ(ui.status.front(), "Creating...");
  }
  FreeFileTypes(&rec);
}

TEST(WebExportRun, FailuresQuestionsAndBreak) {
  SettingsRecord rec{};
  ReadSettingsFile(&rec, "/nonexistent/.quillarc");
  TempDir src, out;
  Save(src.file("a.png"), testutil::MakePicture(TSL_RGB, 40, 40, 1), "png");
  testutil::WriteFile(src.file("bad.png"), "not a picture");
  Save(src.file("c.png"), testutil::MakePicture(TSL_RGB, 40, 40, 2), "png");
  WebOptions o;
  o.title = "F";
  o.copy_sources = false;

  // A directory that cannot be made.
  testutil::WriteFile(out.file("file"), "x");
  o.output_dir = out.file("file/web");
  {
    WebExport run(o, rec, {src.file("a.png")});
    ScriptedUi ui;
    EXPECT_FALSE(run.Start(ui));
    EXPECT_EQ(ui.messages, std::vector<std::string>{"Can't create " + out.file("file/web/")});
    EXPECT_TRUE(run.Step(ui));
  }
  // "No" to the load question ends the export; the pages hold what was done.
  o.output_dir = out.file("web");
  {
    WebExport run(o, rec, {src.file("a.png"), src.file("bad.png"), src.file("c.png")});
    ScriptedUi ui;
    ASSERT_TRUE(run.Start(ui));
    while (!run.Step(ui)) {
    }
    ASSERT_EQ(ui.questions.size(), 1u);
    EXPECT_NE(ui.questions[0].find("bad.png"), std::string::npos);
    EXPECT_EQ(ui.questions[0].substr(ui.questions[0].size() - 27), "\n\nDo you want to continue ?");
    EXPECT_EQ(run.pictures().size(), 1u);
    EXPECT_FALSE(FileExists(out.file("web/thumb/t_c.png")));
    EXPECT_NE(ReadFile(out.file("web/F.html")).find("t_a.png"), std::string::npos);
  }
  // "Yes" goes on past it; a break asks first.
  {
    WebExport run(o, rec, {src.file("a.png"), src.file("bad.png"), src.file("c.png")});
    ScriptedUi ui;
    ui.answers = {true, true};
    ASSERT_TRUE(run.Start(ui));
    EXPECT_FALSE(run.Step(ui));
    EXPECT_FALSE(run.Step(ui));
    run.Break();
    EXPECT_TRUE(run.Step(ui));
    EXPECT_EQ(ui.questions.back(), "Break process ?");
    EXPECT_EQ(run.pictures().size(), 1u);
  }
  FreeFileTypes(&rec);
}

}  // namespace
}  // namespace quilla
