// The web export dialog on a real X server: the title typed into the field
// that has the keyboard, Return creating the pages, thumbnails and copies of
// three pictures and starting the web browser, Escape closing it unused.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <X11/Intrinsic.h>
#include <Xm/TextF.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "browser/filelist.h"
#include "browser/webexport.h"
#include "browser/webexport_x.h"
#include "core/app_x.h"
#include "core/settings.h"
#include "gui_util.h"
#include "test_util.h"

namespace {

using namespace quilla;
using testutil::FileExists;
using testutil::ReadFile;

class WebExportTest : public guitest::GuiTest {
 protected:
  void SetUp() override { Open("QUILLA_TEST_DISPLAY", true); }
  void TearDown() override {
    if (!dpy_) return;
    if (Widget d = ShownWebExport()) XtDestroyWidget(d);
    RunUntil(20000, [] { return !WebExportRunning(); });
    unsetenv("WEBBROWSER");
  }
  // xdotool's `command` into `shell`, given the keyboard; what it typed handled.
  void Keys(Widget shell, const std::string &command) {
    Xdo(command, shell);
    RunFor(60);
  }
};

TEST_F(WebExportTest, ReturnCreatesThePagesEscapeCancels) {
  const std::string src = dir_.file("src"), out = dir_.file("out");
  mkdir(src.c_str(), 0755);
  for (const char *name : {"a.png", "b.png", "c.png"}) {
    testutil::Pic p(testutil::MakePicture(TSL_RGB, 60, 40));
    TslParams params;
    tslDefaultParams(&params);
    params.format = tslFormatGetIndex("png");
    ASSERT_EQ(tslSave((src + "/" + name).c_str(), &p, &params), TSL_OK);
  }
  // The "web browser" writes down the page it was asked to show.
  const std::string browser = dir_.file("browser.sh"), launched = dir_.file("launched");
  testutil::WriteFile(browser, "#!/bin/sh\necho \"$1\" > " + launched + "\n");
  chmod(browser.c_str(), 0755);
  setenv("WEBBROWSER", browser.c_str(), 1);
  auto &html = Settings().Html;
  html.TableColumns = 2, html.TableRows = 1;
  std::snprintf(html.OutputDirectory, sizeof html.OutputDirectory, "%s", out.c_str());

  FileList list;
  ASSERT_TRUE(list.read(src));
  const std::vector<FileEntry> entries = ExportEntries(list);
  const WebExportPictures pictures = [&](int sort) { return SortedExportPaths(src, entries, sort); };

  Widget shell = OpenWebExport(owner_, src, pictures);
  ASSERT_NE(shell, nullptr);
  EXPECT_EQ(guitest::LabelText(shell, "*toggleGif"), "Gif");
  EXPECT_FALSE(XtIsSensitive(XtNameToWidget(shell, "*textJpeg")));
  Keys(shell, "key --delay 30 A l b u m");
  Keys(shell, "key Return");
  ASSERT_TRUE(RunUntil(20000, [&] { return ShownWebExport() == nullptr && !WebExportRunning(); }));

  EXPECT_TRUE(FileExists(out + "/Album.html"));
  EXPECT_TRUE(FileExists(out + "/Album2.html"));
  for (const char *name : {"a.png", "b.png", "c.png"}) {
    EXPECT_TRUE(FileExists(out + "/thumb/t_" + std::string(name))) << name;
    EXPECT_EQ(ReadFile(out + "/original/" + name), ReadFile(src + "/" + name)) << name;
  }
  EXPECT_NE(ReadFile(out + "/Album2.html").find("thumb/t_c.png"), std::string::npos);
  EXPECT_EQ(html.TableColumns, 2);
  EXPECT_TRUE(RunUntil(20000, [&] { return FileExists(launched) && !ReadFile(launched).empty(); }));
  EXPECT_EQ(ReadFile(launched), out + "/Album.html\n");

  // Escape leaves without exporting.
  shell = OpenWebExport(owner_, src, pictures);
  ASSERT_NE(shell, nullptr);
  XmTextFieldSetString(XtNameToWidget(shell, "*textTitle"), const_cast<char *>("Other"));
  Keys(shell, "key Escape");
  ASSERT_TRUE(RunUntil(20000, [&] { return ShownWebExport() == nullptr; }));
  EXPECT_FALSE(WebExportRunning());
  EXPECT_FALSE(FileExists(out + "/Other.html"));
}

}  // namespace
