// The contact sheet command on a real X server: the file selector names the
// first page, the work procedure builds and saves every page, later pages
// getting "_2", "_3"... before the extension.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <X11/Intrinsic.h>
#include <Xm/TextF.h>

#include <chrono>
#include <string>
#include <vector>

#include "browser/contact_sheet_x.h"
#include "core/app_x.h"
#include "core/display_x.h"
#include "core/settings.h"
#include "files/selector_x.h"
#include "gui_util.h"
#include "test_util.h"

namespace {

using namespace quilla;

std::string g_chosen;  // what the selector is answered with

TEST(ContactSheetGui, SelectorNamesThePagesAndEachIsSaved) {
  const guitest::TestServer *server = guitest::UseTestServer("QUILLA_TEST_DISPLAY");
  if (!server) GTEST_SKIP() << "QUILLA_TEST_DISPLAY not set (scripts/test starts the X servers)";
  testutil::TempDir dir;
  App().start_dir = dir.path();
  InitVisual(server->dpy, App().screen, -1, false);
  ReadSettingsFile(&Settings(), dir.file("none.rc"));
  std::vector<std::string> paths;
  for (const char *name : {"a.png", "b.png", "c.png"}) {
    testutil::Pic p(testutil::MakePicture(TSL_RGB, 60, 40));
    TslParams params;
    tslDefaultParams(&params);
    params.format = tslFormatGetIndex("png");
    paths.push_back(dir.file(name));
    ASSERT_EQ(tslSave(paths.back().c_str(), &p, &params), TSL_OK);
  }
  g_chosen = dir.file("sheet.png");
  SetSelectorHook([](Widget shell) {
    Widget text = XtNameToWidget(shell, "*textField1");
    XmTextFieldSetString(text, const_cast<char *>(g_chosen.c_str()));
    XtCallActionProc(text, "activate", nullptr, nullptr, 0);
  });
  auto &c = Settings().ContactSheet;
  c.Width = 200, c.Height = 120, c.Columns = 2, c.Rows = 1;

  const bool started = MakeContactSheets(server->keeper, paths);
  SetSelectorHook(nullptr);
  ASSERT_TRUE(started);
  EXPECT_FALSE(MakeContactSheets(server->keeper, paths));  // one run at a time
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (ContactSheetsRunning() && std::chrono::steady_clock::now() < end) {
    XtAppAddTimeOut(App().app, 5, [](XtPointer, XtIntervalId *) {}, nullptr);
    XtAppProcessEvent(App().app, XtIMAll);
  }
  ASSERT_FALSE(ContactSheetsRunning());
  for (const char *name : {"sheet.png", "sheet_2.png"}) {
    testutil::Pic page;
    TslParams params;
    tslDefaultParams(&params);
    ASSERT_EQ(tslLoad(dir.file(name).c_str(), &page, &params), TSL_OK) << name;
    EXPECT_EQ(page->width * 1000 + page->height, 200120u) << name;
  }
  EXPECT_FALSE(testutil::FileExists(dir.file("sheet_3.png")));
}

}  // namespace
