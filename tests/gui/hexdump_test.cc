// The hex dump window on real X servers: its lines and scroll range, the
// keys typed with xdotool, the size limit, and "View Files..." opening it.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <X11/IntrinsicP.h>
#include <X11/Shell.h>
#include <X11/Xutil.h>
#include <Xm/TextF.h>
#include <Xm/Xm.h>
#include <unistd.h>

#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "core/app_x.h"
#include "files/hexdump_model.h"
#include "files/hexdump_x.h"
#include "files/load_x.h"
#include "files/selector_x.h"
#include "gui_util.h"
#include "test_util.h"
#include "view/view_hooks_x.h"
#include "view/view_x.h"

namespace {

using namespace quilla;

std::vector<std::string> *g_messages = nullptr;

class HexDumpTest : public guitest::GuiFixture<::testing::TestWithParam<const char *>> {
 protected:
  void SetUp() override {
    Open(GetParam());
    if (IsSkipped()) return;
    g_messages = &messages_;
    SetDialogHook([](Widget shell) {
      if (shell != ShownMessageBox()) return;
      g_messages->push_back(guitest::LabelText(shell, "*labelMessage"));
      XtCallCallbacks(XtNameToWidget(shell, "*buttonOK"), XmNactivateCallback, nullptr);
    });
  }
  void TearDown() override {
    if (!dpy_) return;
    while (Widget s = HexDumpShellAt(0)) XtDestroyWidget(s);
    Pump();
    SetDialogHook(nullptr);
    SetSelectorHook(nullptr);
    g_messages = nullptr;
  }
  void Pump(int rounds = 3) {
    for (int r = 0; r < rounds; ++r) {
      XSync(dpy_, False);
      usleep(20000);
      while (XtAppPending(App().app)) XtAppProcessEvent(App().app, XtIMAll);
    }
  }
  // Gives the window the keyboard, as a window manager would.
  void Focus(Widget shell) {
    guitest::FocusWhenMapped(dpy_, shell);
    Pump();
  }
  void Key(const std::string &keys) {
    Xdo("key --delay 20 " + keys);
    Pump();
  }
  HexDumpState State(Widget shell) {
    HexDumpState s;
    EXPECT_TRUE(GetHexDumpState(shell, &s));
    return s;
  }
  // The distinct pixel values drawn in a widget's window.
  std::set<unsigned long> Pixels(Widget w) {
    XWindowAttributes a;
    XGetWindowAttributes(dpy_, XtWindow(w), &a);
    XImage *img = XGetImage(dpy_, XtWindow(w), 0, 0, a.width, a.height, AllPlanes, ZPixmap);
    std::set<unsigned long> seen;
    for (int y = 0; img && y < a.height; ++y)
      for (int x = 0; x < a.width; ++x) seen.insert(XGetPixel(img, x, y));
    if (img) XDestroyImage(img);
    return seen;
  }
  std::string Bytes(size_t n) {
    std::string data(n, '\0');
    for (size_t i = 0; i < n; ++i) data[i] = static_cast<char>(i * 7 + 3);
    return data;
  }

  std::vector<std::string> messages_;
};

TEST_P(HexDumpTest, ShowsTheLinesOfAKnownFileWithTheScrollRangeOverThem) {
  const std::string path = dir_.file("known.bin");
  const std::string data = Bytes(1000);  // 62 full lines and one of 8 bytes
  testutil::WriteFile(path, data);
  Widget shell = OpenHexDump(owner_, path);
  ASSERT_NE(shell, nullptr);
  Pump();
  EXPECT_STREQ(XtName(shell), "QuillDump");
  char *title = nullptr;
  XtVaGetValues(shell, XmNtitle, &title, nullptr);
  EXPECT_EQ(std::string(title), "Dump: " + path);
  for (const char *name : {"*drawingAreaDump", "*drawingAreaText", "*scrollV", "*pushButtonOK"})
    EXPECT_NE(XtNameToWidget(shell, name), nullptr) << name;
  EXPECT_EQ(guitest::LabelText(shell, "*pushButtonOK"), "O.K.");

  HexDumpState s = State(shell);
  EXPECT_EQ(s.lines, 63u);
  EXPECT_EQ(s.scroll_max, 63);
  EXPECT_GT(s.visible, 10);
  EXPECT_EQ(s.slider, std::min(s.visible, 63));
  EXPECT_EQ(s.first_line, HexDumpLine(reinterpret_cast<const uint8_t *>(data.data()), 16, 0));
  // Text reached both areas: more than the background in each.
  EXPECT_GT(Pixels(XtNameToWidget(shell, "*drawingAreaDump")).size(), 1u);
  EXPECT_GT(Pixels(XtNameToWidget(shell, "*drawingAreaText")).size(), 1u);

  // "O.K." closes the window.
  XtCallCallbacks(XtNameToWidget(shell, "*pushButtonOK"), XmNactivateCallback, nullptr);
  Pump();
  EXPECT_EQ(HexDumpCount(), 0);
}

TEST_P(HexDumpTest, EmptyFileShowsNothingAndAMissingOneIsReported) {
  const std::string empty = dir_.file("empty");
  testutil::WriteFile(empty, "");
  Widget shell = OpenHexDump(owner_, empty);
  ASSERT_NE(shell, nullptr);
  Pump();
  HexDumpState s = State(shell);
  EXPECT_EQ(s.lines, 0u);
  EXPECT_EQ(s.first_line, "");
  EXPECT_EQ(s.top, 0);
  EXPECT_EQ(Pixels(XtNameToWidget(shell, "*drawingAreaDump")).size(), 1u);
  Focus(shell);
  Key("End Down Next");
  EXPECT_EQ(State(shell).top, 0);

  const std::string missing = dir_.file("missing");
  EXPECT_EQ(OpenHexDump(owner_, missing), nullptr);
  EXPECT_EQ(OpenHexDump(owner_, dir_.path()), nullptr);
  ASSERT_EQ(messages_.size(), 2u);
  EXPECT_EQ(messages_[0], "Can't open file : " + missing);
  EXPECT_EQ(messages_[1], "Can't open file : " + dir_.path());
  EXPECT_EQ(HexDumpCount(), 1);
}

TEST_P(HexDumpTest, KeysScrollByLineAndPageToEitherEndAndEscapeCloses) {
  const std::string path = dir_.file("keys.bin");
  testutil::WriteFile(path, Bytes(3001));  // 188 lines, the last of one byte
  Widget shell = OpenHexDump(owner_, path);
  ASSERT_NE(shell, nullptr);
  Focus(shell);
  const int visible = State(shell).visible;
  const int last = 188 - visible;
  Key("Up");
  EXPECT_EQ(State(shell).top, 0);
  Key("Down Down");
  EXPECT_EQ(State(shell).top, 2);
  Key("Next");
  EXPECT_EQ(State(shell).top, 2 + visible - 1);
  Key("Prior Prior");
  EXPECT_EQ(State(shell).top, 0);
  Key("End");
  HexDumpState s = State(shell);
  EXPECT_EQ(s.top, last);
  Key("Down Next");
  EXPECT_EQ(State(shell).top, last);
  // The scroll bar followed the keys.
  int value = -1;
  XtVaGetValues(XtNameToWidget(shell, "*scrollV"), XmNvalue, &value, nullptr);
  EXPECT_EQ(value, last);
  Key("Home");
  EXPECT_EQ(State(shell).top, 0);
  Key("Escape");
  EXPECT_EQ(HexDumpCount(), 0);
}

TEST_P(HexDumpTest, FileOverTheLimitIsRefusedAndOneAtTheLimitScrollsToItsEnd) {
  // Sparse files: nothing is written but their size.
  const std::string big = dir_.file("big.bin");
  const std::string limit = dir_.file("limit.bin");
  ASSERT_EQ(truncate((testutil::WriteFile(big, ""), big).c_str(), (off_t{1} << 30) + 1), 0);
  ASSERT_EQ(truncate((testutil::WriteFile(limit, ""), limit).c_str(), off_t{1} << 30), 0);
  EXPECT_EQ(OpenHexDump(owner_, big), nullptr);
  ASSERT_EQ(messages_.size(), 1u);
  EXPECT_EQ(messages_[0], "File too large : " + big);
  EXPECT_EQ(HexDumpCount(), 0);

  Widget shell = OpenHexDump(owner_, limit);
  ASSERT_NE(shell, nullptr);
  Focus(shell);
  HexDumpState s = State(shell);
  EXPECT_EQ(s.lines, uint64_t{1} << 26);
  EXPECT_EQ(s.scroll_max, 1 << 26);
  Key("End");
  s = State(shell);
  EXPECT_EQ(s.top, (1 << 26) - s.visible);
  const uint8_t zeros[16] = {};
  EXPECT_EQ(s.first_line, HexDumpLine(zeros, 16, uint64_t((1 << 26) - s.visible) * 16));
}

TEST_P(HexDumpTest, ViewFilesSelectorOpensTheChosenFile) {
  const std::string path = dir_.file("chosen.bin");
  testutil::WriteFile(path, "chosen");
  static std::string chosen;
  static std::string title;
  chosen = path;
  title.clear();
  SetSelectorHook([](Widget shell) {
    char *t = nullptr;
    XtVaGetValues(shell, XmNtitle, &t, nullptr);
    title = t ? t : "";
    XmTextFieldSetString(XtNameToWidget(shell, "*textField1"), const_cast<char *>(chosen.c_str()));
    XtCallActionProc(XtNameToWidget(shell, "*textField1"), "activate", nullptr, nullptr, 0);
  });
  ASSERT_TRUE(RunFileCommand(nullptr, owner_, "viewHexa"));
  Pump();
  EXPECT_EQ(title, "View Files...");
  ASSERT_EQ(HexDumpCount(), 1);
  HexDumpState s = State(HexDumpShellAt(0));
  EXPECT_EQ(s.path, path);
  EXPECT_EQ(s.lines, 1u);
  EXPECT_EQ(s.first_line.substr(58), "chosen          ");
  // Without a view there is no current file to dump; a view's file is dumped.
  ASSERT_TRUE(RunFileCommand(nullptr, owner_, "openHexa"));
  EXPECT_EQ(HexDumpCount(), 1);
  TslPicture pic = testutil::MakePicture(TSL_RGB, 8, 8);
  TslParams params;
  tslDefaultParams(&params);
  params.format = tslFormatGetIndex("png");
  const std::string picture = dir_.file("shown.png");
  ASSERT_EQ(tslSave(picture.c_str(), &pic, &params), 0);
  tslFree(&pic);
  Widget view = OpenViewOnFile(App().shell, picture.c_str(), 0);
  ASSERT_NE(view, nullptr);
  ASSERT_TRUE(RunFileCommand(view, view, "openHexa"));
  ASSERT_EQ(HexDumpCount(), 2);
  s = State(HexDumpShellAt(1));
  EXPECT_EQ(s.path, picture);
  EXPECT_EQ(s.first_line.substr(0, 14), "00000000: 89 5");  // the PNG signature
  RunViewCommand(view, "close");
  Pump();
}

INSTANTIATE_TEST_SUITE_P(Depths, HexDumpTest, ::testing::Values("QUILLA_TEST_DISPLAY", "QUILLA_TEST_DISPLAY8"));

}  // namespace
