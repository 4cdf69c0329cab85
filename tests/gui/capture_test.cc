// The capture dialog on real X servers: the window list from the server's
// window tree, Apply without a chosen window, and a capture of a window of
// the test's own whose view must hold that window's pixels.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <X11/IntrinsicP.h>
#include <X11/Shell.h>
#include <X11/Xutil.h>
#include <Xm/List.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "core/app_x.h"
#include "core/display_x.h"
#include "core/settings.h"
#include "files/capture_x.h"
#include "files/load_x.h"
#include "gui_util.h"
#include "test_util.h"
#include "view/view_hooks_x.h"
#include "view/view_x.h"

namespace {

using namespace quilla;

class CaptureTest : public ::testing::TestWithParam<const char *> {
 protected:
  void SetUp() override {
    if (!testutil::HaveTool("xwd")) GTEST_SKIP() << "xwd is not installed";
    const guitest::TestServer *server = guitest::UseTestServer(GetParam());
    if (!server) GTEST_SKIP() << GetParam() << " not set (scripts/test starts the X servers)";
    dpy_ = server->dpy;
    owner_ = server->keeper;
    App().start_dir = dir_.path();
    InitVisual(dpy_, App().screen, -1, false);
    ReadSettingsFile(&Settings(), dir_.file("none.rc"));
    SetDialogHook([](Widget shell) {
      if (shell == ShownMessageBox())
        XtCallCallbacks(XtNameToWidget(shell, "*buttonOK"), XmNactivateCallback, nullptr);
    });
  }
  void TearDown() override {
    if (!dpy_) return;
    if (Widget d = ShownCaptureDialog()) XtDestroyWidget(d);
    while (Widget s = ViewShellAt(0)) RunViewCommand(s, "close");
    for (Window w : windows_) XDestroyWindow(dpy_, w);
    if (pixmap_) XFreePixmap(dpy_, pixmap_);
    Pump();
    SetDialogHook(nullptr);
  }
  void Pump() { guitest::Pump(); }
  // A top-level window of the test's own; the server paints its background
  // pixmap, so it needs no redrawing of ours.
  Window MakeWindow(const char *name, bool map) {
    Window root = DefaultRootWindow(dpy_);
    Window w = XCreateSimpleWindow(dpy_, root, 40, 300, kW, kH, 0, 0, 0);
    XSetWindowAttributes a;
    a.override_redirect = True;
    XChangeWindowAttributes(dpy_, w, CWOverrideRedirect, &a);
    if (name) XStoreName(dpy_, w, name);
    if (map) XMapRaised(dpy_, w);
    windows_.push_back(w);
    XSync(dpy_, False);
    return w;
  }
  // Four quadrants of four colours as the window's background.
  void PaintQuadrants(Window w) {
    Colormap cmap = DefaultColormap(dpy_, DefaultScreen(dpy_));
    const char *names[4] = {"red", "#00c000", "blue", "yellow"};
    pixmap_ = XCreatePixmap(dpy_, w, kW, kH, static_cast<unsigned>(DefaultDepth(dpy_, DefaultScreen(dpy_))));
    GC gc = XCreateGC(dpy_, pixmap_, 0, nullptr);
    for (int i = 0; i < 4; ++i) {
      XColor c, exact;
      ASSERT_TRUE(XAllocNamedColor(dpy_, cmap, names[i], &c, &exact));
      colors_[i] = c;
      XSetForeground(dpy_, gc, c.pixel);
      XFillRectangle(dpy_, pixmap_, gc, (i % 2) * kW / 2, (i / 2) * kH / 2, kW / 2, kH / 2);
    }
    XFreeGC(dpy_, gc);
    XSetWindowBackgroundPixmap(dpy_, w, pixmap_);
    XClearWindow(dpy_, w);
    XSync(dpy_, False);
  }
  std::vector<std::string> ListLines(Widget dialog) {
    Widget list = XtNameToWidget(dialog, "*scrolledList");
    XmString *items = nullptr;
    int count = 0;
    XtVaGetValues(list, XmNitems, &items, XmNitemCount, &count, nullptr);
    std::vector<std::string> lines;
    for (int i = 0; i < count; ++i) lines.push_back(guitest::XmText(items[i]));
    return lines;
  }
  static std::string Line(const std::string &name, Window w) {
    char id[32];
    std::snprintf(id, sizeof id, " (%lx)", static_cast<unsigned long>(w));
    return name + id;
  }
  void Apply(Widget dialog) {
    XtCallCallbacks(XtNameToWidget(dialog, "*buttonApply"), XmNactivateCallback, nullptr);
    Pump();
  }
  // The red, green and blue of a picture's pixel.
  static void Rgb(const TslPicture &p, int x, int y, int out[3]) {
    const unsigned char *px = p.pixels + static_cast<size_t>(y) * p.bytes_per_line;
    if (p.color_model == TSL_INDEXED || p.color_model == TSL_GREY) {
      const int i = px[x];
      for (int c = 0; c < 3; ++c) out[c] = p.palette ? p.palette[c * 256 + i] : i;
      return;
    }
    px += static_cast<size_t>(x) * p.bytes_per_pixel;
    switch (p.color_model) {
      case TSL_RGB: case TSL_RGBA: out[0] = px[0], out[1] = px[1], out[2] = px[2]; break;
      case TSL_BGR: case TSL_BGRA: out[0] = px[2], out[1] = px[1], out[2] = px[0]; break;
      case TSL_ARGB: out[0] = px[1], out[1] = px[2], out[2] = px[3]; break;
      default: out[0] = px[3], out[1] = px[2], out[2] = px[1]; break;  // ABGR
    }
  }

  static constexpr int kW = 64, kH = 48;
  testutil::TempDir dir_;
  Display *dpy_ = nullptr;
  Widget owner_ = nullptr;
  std::vector<Window> windows_;
  Pixmap pixmap_ = 0;
  XColor colors_[4] = {};
};

TEST_P(CaptureTest, ListHoldsNamedViewableWindowsWithTheirIds) {
  const Window shown = MakeWindow("a (b)", true);
  const Window hidden = MakeWindow("hidden window", false);
  const Window nameless = MakeWindow(nullptr, true);
  Window input_only = XCreateWindow(dpy_, DefaultRootWindow(dpy_), 0, 0, 10, 10, 0, 0, InputOnly, CopyFromParent,
                                    0, nullptr);
  XStoreName(dpy_, input_only, "input only window");
  XMapWindow(dpy_, input_only);
  windows_.push_back(input_only);
  ASSERT_TRUE(RunFileCommand(nullptr, owner_, "capture"));
  Widget dialog = ShownCaptureDialog();
  ASSERT_NE(dialog, nullptr);
  Pump();
  char *title = nullptr;
  XtVaGetValues(dialog, XmNtitle, &title, nullptr);
  EXPECT_STREQ(title, "Capture setup");
  for (const char *name : {"*toggleDesktop", "*toggleSingle", "*toggleSelect", "*toggleDecorations",
                           "*buttonApply", "*buttonCancel"})
    EXPECT_NE(XtNameToWidget(dialog, name), nullptr) << name;
  EXPECT_TRUE(XmToggleButtonGetState(XtNameToWidget(dialog, "*toggleDesktop")));

  const std::vector<std::string> lines = ListLines(dialog);
  int found = 0;
  for (const std::string &line : lines) {
    EXPECT_EQ(line.find("hidden window"), std::string::npos);
    EXPECT_EQ(line.find("input only window"), std::string::npos);
    EXPECT_EQ(line.find(Line("", nameless).substr(1)), std::string::npos) << line;
    if (line == Line("a (b)", shown)) ++found;
  }
  EXPECT_EQ(found, 1);
  (void)hidden;

  // Asked again, the one dialog comes forward with a fresh list.
  XUnmapWindow(dpy_, shown);
  XSync(dpy_, False);
  EXPECT_EQ(ShowCaptureDialog(owner_), dialog);
  for (const std::string &line : ListLines(dialog)) EXPECT_NE(line, Line("a (b)", shown));
  XtCallCallbacks(XtNameToWidget(dialog, "*buttonCancel"), XmNactivateCallback, nullptr);
  Pump();
  EXPECT_EQ(ShownCaptureDialog(), nullptr);
  EXPECT_EQ(ViewCount(), 0);
}

TEST_P(CaptureTest, SelectWithoutAChosenWindowRunsNothing) {
  Widget dialog = ShowCaptureDialog(owner_);
  XmToggleButtonSetState(XtNameToWidget(dialog, "*toggleSelect"), True, True);
  Apply(dialog);
  EXPECT_EQ(ShownCaptureDialog(), dialog);
  EXPECT_EQ(ViewCount(), 0);
}

TEST_P(CaptureTest, ChosenWindowOpensAViewWithItsPixels) {
  const Window target = MakeWindow("capture target", true);
  PaintQuadrants(target);
  Widget dialog = ShowCaptureDialog(owner_);
  Pump();
  Widget decorations = XtNameToWidget(dialog, "*toggleDecorations");
  EXPECT_FALSE(XtIsSensitive(decorations));
  XmToggleButtonSetState(XtNameToWidget(dialog, "*toggleSingle"), True, True);
  EXPECT_TRUE(XtIsSensitive(decorations));
  const std::vector<std::string> lines = ListLines(dialog);
  int pos = 0;
  for (size_t i = 0; i < lines.size(); ++i)
    if (lines[i] == Line("capture target", target)) pos = static_cast<int>(i) + 1;
  ASSERT_GT(pos, 0);
  // Choosing the line chooses its mode.
  XmListSelectPos(XtNameToWidget(dialog, "*scrolledList"), pos, True);
  EXPECT_TRUE(XmToggleButtonGetState(XtNameToWidget(dialog, "*toggleSelect")));
  EXPECT_FALSE(XmToggleButtonGetState(XtNameToWidget(dialog, "*toggleSingle")));
  EXPECT_FALSE(XtIsSensitive(decorations));
  Apply(dialog);
  EXPECT_EQ(ShownCaptureDialog(), nullptr);
  ASSERT_EQ(ViewCount(), 1);
  ViewState state;
  ASSERT_TRUE(GetViewState(ViewShellAt(0), &state));
  EXPECT_EQ(state.format, tslFormatGetIndex("xwd"));
  // The dump was a temporary file, gone once the view holds the picture.
  EXPECT_FALSE(testutil::FileExists(state.path));
  const TslPicture *pic = ViewCurrentPicture(ViewShellAt(0));
  ASSERT_NE(pic, nullptr);
  ASSERT_EQ(pic->width, static_cast<uint32_t>(kW));
  ASSERT_EQ(pic->height, static_cast<uint32_t>(kH));
  int bad = 0;
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x) {
      const XColor &want = colors_[(y >= kH / 2) * 2 + (x >= kW / 2)];
      int got[3];
      Rgb(*pic, x, y, got);
      const int expect[3] = {want.red >> 8, want.green >> 8, want.blue >> 8};
      for (int c = 0; c < 3; ++c)
        if (std::abs(got[c] - expect[c]) > 1 && bad++ < 5)
          ADD_FAILURE() << "pixel " << x << "," << y << " channel " << c << ": " << got[c] << " for " << expect[c];
    }
  EXPECT_EQ(bad, 0);
}

INSTANTIATE_TEST_SUITE_P(Depths, CaptureTest, ::testing::Values("QUILLA_TEST_DISPLAY", "QUILLA_TEST_DISPLAY8"));

}  // namespace
