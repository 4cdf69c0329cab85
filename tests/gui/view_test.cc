// The view window on real X servers: widget tree, fit on open, key bindings
// driving zoom, scroll, next and rotation, the pixels that reach the window
// at 1:1, pages and animation, and the 8-bit cube.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <X11/Intrinsic.h>
#include <X11/Shell.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <Xm/Label.h>
#include <Xm/Xm.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>

#include "core/app_x.h"
#include "core/display_x.h"
#include "core/settings.h"
#include "files/load_x.h"
#include "gui_util.h"
#include "test_util.h"
#include "view/view_x.h"

namespace {

using namespace quilla;

class ViewTest : public ::testing::Test {
 protected:
  void Open(const char *env) {
    const char *name = std::getenv(env);
    if (!name || !*name) GTEST_SKIP() << env << " not set (scripts/test starts the X servers)";
    static XtAppContext app = nullptr;
    if (!app) {
      XtToolkitInitialize();
      app = XtCreateApplicationContext();
      RegisterActions(app);
    }
    // One connection and one application shell per server for the whole
    // program: Motif keeps per-display caches that do not survive closing
    // a display and opening it again.
    struct Conn {
      Display *dpy;
      Widget shell, keeper;
    };
    static std::map<std::string, Conn> conns;
    Conn &c = conns[name];
    if (!c.dpy) {
      int argc = 0;
      c.dpy = XtOpenDisplay(app, name, "quilla", "Quilla", nullptr, 0, &argc, nullptr);
      ASSERT_NE(c.dpy, nullptr);
      c.shell = XtVaAppCreateShell("quilla", "Quilla", applicationShellWidgetClass, c.dpy, XmNmappedWhenManaged,
                                   False, XmNwidth, 10, XmNheight, 10, nullptr);
      XtRealizeWidget(c.shell);
      // A realised start window keeps the last view's close from quitting.
      c.keeper = XtVaCreatePopupShell("QuillInit", topLevelShellWidgetClass, c.shell, XmNwidth, 10, XmNheight, 10,
                                      nullptr);
      XtRealizeWidget(c.keeper);
    }
    dpy_ = c.dpy;
    App().app = app;
    App().dpy = dpy_;
    App().screen = DefaultScreen(dpy_);
    App().shell = c.shell;
    App().main_window = nullptr;
    InitVisual(dpy_, App().screen, -1, false);
    ReadSettingsFile(&Settings(), dir_.file("none.rc"));
  }
  void TearDown() override {
    if (!dpy_) return;
    // Modified pictures are closed without saving.
    DialogHook old = SetDialogHook([](Widget box) {
      if (box == ShownConfirm()) XtCallCallbacks(XtNameToWidget(box, "*buttonCancel"), XmNactivateCallback, nullptr);
    });
    while (Widget s = ViewShellAt(0)) RunViewCommand(s, "close");
    SetDialogHook(old);
    Pump();
  }
  void Pump(int rounds = 3) {
    for (int r = 0; r < rounds; ++r) {
      XSync(dpy_, False);
      while (XtAppPending(App().app)) XtAppProcessEvent(App().app, XtIMAll);
    }
  }
  // Runs the event loop for `ms` milliseconds (time-outs included).
  void RunFor(int ms) {
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (std::chrono::steady_clock::now() < end) {
      XSync(dpy_, False);
      if (XtAppPending(App().app))
        XtAppProcessEvent(App().app, XtIMAll);
      else
        usleep(2000);
    }
  }
  std::string Picture(const char *name, int model, int w, int h, uint32_t seed = 1) {
    TslPicture p = testutil::MakePicture(model, w, h, seed);
    TslParams params;
    tslDefaultParams(&params);
    params.format = tslFormatGetIndex("png");
    const std::string path = dir_.file(name);
    EXPECT_EQ(tslSave(path.c_str(), &p, &params), 0);
    tslFree(&p);
    return path;
  }
  ViewState State(Widget shell) {
    ViewState s;
    EXPECT_TRUE(GetViewState(shell, &s));
    return s;
  }
  // A key press and release sent to the view's drawing area.
  void Key(Widget shell, KeySym sym, unsigned state = 0) {
    ViewState s = State(shell);
    XKeyEvent ev{};
    ev.type = KeyPress;
    ev.display = dpy_;
    ev.window = XtWindow(s.drawing_area);
    ev.root = DefaultRootWindow(dpy_);
    ev.state = state;
    ev.keycode = XKeysymToKeycode(dpy_, sym);
    ev.same_screen = True;
    ev.time = CurrentTime;
    XSendEvent(dpy_, ev.window, True, KeyPressMask, reinterpret_cast<XEvent *>(&ev));
    ev.type = KeyRelease;
    XSendEvent(dpy_, ev.window, True, KeyReleaseMask, reinterpret_cast<XEvent *>(&ev));
    Pump();
  }
  std::string Label(Widget shell) { return guitest::LabelText(shell, "*labelInfo"); }
  testutil::TempDir dir_;
  Display *dpy_ = nullptr;
};

// The channel value of a pixel through a visual mask.
int Channel(unsigned long pixel, unsigned long mask) {
  int shift = 0;
  while (mask && !(mask & 1)) mask >>= 1, ++shift;
  return static_cast<int>(((pixel >> shift) & mask) * 255 / mask);
}

TEST_F(ViewTest, OpensWithItsWidgetTreeAtOneToOne) {
  Open("QUILLA_TEST_DISPLAY");
  const std::string path = Picture("a.png", TSL_RGB, 300, 200);
  Widget shell = OpenViewOnFile(App().shell, path.c_str(), 0);
  ASSERT_NE(shell, nullptr);
  Pump();
  EXPECT_STREQ(XtName(shell), "QuillView");
  for (const char *name : {"*mainWindow", "*MenuBar", "*toolBar", "*scrollBarH", "*scrollBarV", "*drawingArea",
                           "*labelInfo", "*messageWindow"})
    EXPECT_NE(XtNameToWidget(shell, name), nullptr) << name;
  char *title = nullptr;
  XtVaGetValues(shell, XmNtitle, &title, nullptr);
  EXPECT_STREQ(title, "Quilla v1.50");
  // Fit 1: a picture smaller than the screen opens at 100% in a window
  // sized to it.
  ViewState s = State(shell);
  EXPECT_DOUBLE_EQ(s.zoom, 100.0);
  Dimension aw, ah;
  XtVaGetValues(s.drawing_area, XmNwidth, &aw, XmNheight, &ah, nullptr);
  EXPECT_GE(aw, 300);  // at least as wide as the tool bar
  EXPECT_EQ(ah, 200);
  EXPECT_EQ(s.view_w, 300);
  EXPECT_EQ(s.org_x, (aw - 300) / 2);
  const std::string label = Label(shell);
  EXPECT_NE(label.find("300x200x24"), std::string::npos) << label;
  EXPECT_NE(label.find("True Colors"), std::string::npos) << label;
  EXPECT_NE(label.find("100%"), std::string::npos) << label;
}

// A scroll bar shows only where the picture is larger than the drawing
// area; the window keeps its size when bars come and go while zooming.
TEST_F(ViewTest, ScrollBarsOnlyWhereThePictureIsLarger) {
  for (const char *env : {"QUILLA_TEST_DISPLAY", "QUILLA_TEST_DISPLAY8"}) {
    Open(env);
    if (IsSkipped()) return;
    const std::string path = Picture("bars.png", TSL_RGB, 400, 300);
    Widget shell = OpenViewOnFile(App().shell, path.c_str(), 0);
    ASSERT_NE(shell, nullptr);
    Pump();
    ViewState s = State(shell);
    Widget h = XtNameToWidget(shell, "*scrollBarH"), v = XtNameToWidget(shell, "*scrollBarV");
    EXPECT_FALSE(XtIsManaged(h)) << env;
    EXPECT_FALSE(XtIsManaged(v)) << env;
    Dimension aw, ah, sw, sh, sw2, sh2;
    XtVaGetValues(s.drawing_area, XmNwidth, &aw, XmNheight, &ah, nullptr);
    EXPECT_EQ(ah, 300) << "the window is sized to the picture alone";
    XtVaGetValues(shell, XmNwidth, &sw, XmNheight, &sh, nullptr);
    RunViewCommand(shell, "zoom+");
    Pump();
    EXPECT_TRUE(XtIsManaged(h));
    EXPECT_TRUE(XtIsManaged(v));
    XtVaGetValues(shell, XmNwidth, &sw2, XmNheight, &sh2, nullptr);
    EXPECT_EQ(sw2, sw);
    EXPECT_EQ(sh2, sh);
    RunViewCommand(shell, "zoom100");
    Pump();
    EXPECT_FALSE(XtIsManaged(h));
    EXPECT_FALSE(XtIsManaged(v));
    XtVaGetValues(shell, XmNwidth, &sw2, XmNheight, &sh2, nullptr);
    EXPECT_EQ(sw2, sw);
    EXPECT_EQ(sh2, sh);
    XtVaGetValues(s.drawing_area, XmNwidth, &aw, XmNheight, &ah, nullptr);
    EXPECT_EQ(ah, 300);
    TearDown();
  }
}

// M shows the transparency mask of a picture with alpha and goes back;
// a picture without transparency has no mask.
TEST_F(ViewTest, MaskOfAPictureWithAlpha) {
  Open("QUILLA_TEST_DISPLAY");
  const std::string path = Picture("alpha.png", TSL_RGBA, 64, 48, 3);
  Widget shell = OpenViewOnFile(App().shell, path.c_str(), 0);
  ASSERT_NE(shell, nullptr);
  Pump();
  RunViewCommand(shell, "showMask");
  Pump();
  ViewState s = State(shell);
  EXPECT_TRUE(s.show_mask);
  EXPECT_EQ(s.color_model, TSL_GREY);
  RunViewCommand(shell, "showMask");
  Pump();
  EXPECT_FALSE(State(shell).show_mask);
  const std::string plain = Picture("plain.png", TSL_RGB, 64, 48, 3);
  Widget other = OpenViewOnFile(App().shell, plain.c_str(), 0);
  ASSERT_NE(other, nullptr);
  Pump();
  RunViewCommand(other, "showMask");
  Pump();
  EXPECT_FALSE(State(other).show_mask);
}

// A picture stored turned (EXIF orientation 6: turn right to view) opens
// upright; the file itself is not changed and the view is not modified.
TEST_F(ViewTest, ExifOrientationIsShownUpright) {
  Open("QUILLA_TEST_DISPLAY");
  if (std::system("command -v exiftool >/dev/null 2>&1") != 0) GTEST_SKIP() << "exiftool missing";
  // 60x20: the left third red, the rest blue.
  TslPicture p{};
  ASSERT_TRUE(tslAllock(&p, TSL_RGB, 0, 60, 20));
  for (uint32_t y = 0; y < 20; ++y)
    for (uint32_t x = 0; x < 60; ++x) {
      uint8_t *px = p.pixels + y * p.bytes_per_line + x * 3;
      px[0] = x < 20 ? 255 : 0;
      px[2] = x < 20 ? 0 : 255;
    }
  TslParams params;
  tslDefaultParams(&params);
  params.format = tslFormatGetIndex("png");
  const std::string path = dir_.file("turned.png");
  ASSERT_EQ(tslSave(path.c_str(), &p, &params), 0);
  tslFree(&p);
  ASSERT_EQ(std::system(("exiftool -q -overwrite_original -n -Orientation=6 '" + path + "'").c_str()), 0);
  Widget shell = OpenViewOnFile(App().shell, path.c_str(), 0);
  ASSERT_NE(shell, nullptr);
  Pump();
  ViewState s = State(shell);
  EXPECT_EQ(s.width, 20u);
  EXPECT_EQ(s.height, 60u);
  EXPECT_FALSE(s.modified);
  const TslPicture *shown = ViewCurrentPicture(shell);
  ASSERT_NE(shown, nullptr);
  const uint8_t *top = shown->pixels + 5 * shown->bytes_per_line + 10 * 3;  // the stored left edge
  const uint8_t *bottom = shown->pixels + 55 * shown->bytes_per_line + 10 * 3;
  EXPECT_EQ(top[0], 255);
  EXPECT_EQ(bottom[2], 255);
}

TEST_F(ViewTest, WindowPixelsAreThePicturePixelsAtOneToOne) {
  Open("QUILLA_TEST_DISPLAY");
  if (CurrentVisual().info.cls != kTrueColor) GTEST_SKIP() << "needs a TrueColor visual";
  const std::string path = Picture("b.png", TSL_RGB, 120, 90, 7);
  Widget shell = OpenViewOnFile(App().shell, path.c_str(), 0);
  ASSERT_NE(shell, nullptr);
  Pump();
  ViewState s = State(shell);
  XWindowAttributes wa;
  XGetWindowAttributes(dpy_, s.canvas, &wa);
  ASSERT_EQ(wa.map_state, IsViewable);
  ASSERT_GE(wa.width, s.org_x + 120);
  ASSERT_GE(wa.height, s.org_y + 90);
  XImage *im = XGetImage(dpy_, s.canvas, s.org_x, s.org_y, 120, 90, AllPlanes, ZPixmap);
  ASSERT_NE(im, nullptr);
  TslPicture pic{};
  TslParams params;
  tslDefaultParams(&params);
  ASSERT_EQ(tslLoad(path.c_str(), &pic, &params), 0);
  const VisualInfo &vi = CurrentVisual().info;
  int wrong = 0;
  for (int y = 0; y < 90; ++y)
    for (int x = 0; x < 120; ++x) {
      const unsigned long px = XGetPixel(im, x, y);
      const uint8_t *p = pic.pixels + y * pic.bytes_per_line + x * 3;
      if (Channel(px, vi.red_mask) != p[0] || Channel(px, vi.green_mask) != p[1] || Channel(px, vi.blue_mask) != p[2])
        ++wrong;
    }
  EXPECT_EQ(wrong, 0);
  XDestroyImage(im);
  tslFree(&pic);
}

TEST_F(ViewTest, KeysZoomScrollRotateAndUndo) {
  Open("QUILLA_TEST_DISPLAY");
  Widget shell = OpenViewOnFile(App().shell, Picture("c.png", TSL_RGB, 200, 100).c_str(), 0);
  ASSERT_NE(shell, nullptr);
  Pump();
  Key(shell, XK_plus, ShiftMask);
  EXPECT_DOUBLE_EQ(State(shell).zoom, 200.0);
  Key(shell, XK_plus, ShiftMask);
  EXPECT_DOUBLE_EQ(State(shell).zoom, 300.0);
  EXPECT_NE(Label(shell).find("300%"), std::string::npos);
  // The picture is now larger than the window: the arrows scroll.
  ViewState before = State(shell);
  Key(shell, XK_Right);
  Key(shell, XK_Down);
  ViewState after = State(shell);
  EXPECT_GT(after.scroll_x, before.scroll_x);
  EXPECT_GT(after.scroll_y, before.scroll_y);
  Key(shell, XK_Left);
  EXPECT_LT(State(shell).scroll_x, after.scroll_x);
  Key(shell, XK_asterisk, ShiftMask);
  EXPECT_DOUBLE_EQ(State(shell).zoom, 100.0);
  Key(shell, XK_minus);
  EXPECT_DOUBLE_EQ(State(shell).zoom, 70.0);
  Key(shell, XK_KP_Add);
  EXPECT_DOUBLE_EQ(State(shell).zoom, 100.0);

  // Shift+R turns right: the sides swap and the picture is modified; Ctrl+Z
  // takes it back.
  Key(shell, XK_R, ShiftMask);
  ViewState turned = State(shell);
  EXPECT_EQ(turned.width, 100u);
  EXPECT_EQ(turned.height, 200u);
  EXPECT_TRUE(turned.modified);
  Key(shell, XK_z, ControlMask);
  EXPECT_EQ(State(shell).width, 200u);
  EXPECT_FALSE(State(shell).modified);
  // Shift+L then Shift+R come back to the same pixels as a double flip
  // does to a double flip.
  Key(shell, XK_L, ShiftMask);
  EXPECT_EQ(State(shell).width, 100u);
  Key(shell, XK_R, ShiftMask);
  EXPECT_EQ(State(shell).width, 200u);
}

TEST_F(ViewTest, ActionNeedsExactlyOneParameter) {
  Open("QUILLA_TEST_DISPLAY");
  Widget shell = OpenViewOnFile(App().shell, Picture("d.png", TSL_RGB, 64, 64).c_str(), 0);
  ASSERT_NE(shell, nullptr);
  Pump();
  Widget area = State(shell).drawing_area;
  String two[2] = {const_cast<char *>("zoom+"), const_cast<char *>("zoom+")};
  XtCallActionProc(area, "ViewDoCommand", nullptr, two, 2);
  XtCallActionProc(area, "ViewDoCommand", nullptr, nullptr, 0);
  EXPECT_DOUBLE_EQ(State(shell).zoom, 100.0);
  XtCallActionProc(area, "ViewDoCommand", nullptr, two, 1);
  EXPECT_DOUBLE_EQ(State(shell).zoom, 200.0);
  // zoom100 from the top of the table comes back in one step.
  for (int i = 0; i < 12; ++i) XtCallActionProc(area, "ViewDoCommand", nullptr, two, 1);
  EXPECT_DOUBLE_EQ(State(shell).zoom, 1600.0);
  String hundred[1] = {const_cast<char *>("zoom100")};
  XtCallActionProc(area, "ViewDoCommand", nullptr, hundred, 1);
  EXPECT_DOUBLE_EQ(State(shell).zoom, 100.0);
}

TEST_F(ViewTest, OneViewWalksItsListWithSpaceAndPageKeys) {
  Open("QUILLA_TEST_DISPLAY");
  const char *names[3] = {"l1.png", "l2.png", "l3.png"};
  auto *list = static_cast<FileListEntry *>(std::calloc(3, sizeof(FileListEntry)));
  for (int i = 0; i < 3; ++i) {
    const std::string p = Picture(names[i], TSL_RGB, 50 + 10 * i, 40);
    std::snprintf(list[i].path, sizeof list[i].path, "%s", p.c_str());
  }
  Widget shell = OpenViewOnList(App().shell, list, 3, 0);
  ASSERT_NE(shell, nullptr);
  Pump();
  EXPECT_EQ(State(shell).list_count, 3);
  EXPECT_NE(Label(shell).find("1/3"), std::string::npos) << Label(shell);
  Key(shell, XK_space);
  EXPECT_EQ(State(shell).list_pos, 1);
  EXPECT_EQ(State(shell).width, 60u);
  Key(shell, XK_Next);  // PageDown
  EXPECT_EQ(State(shell).list_pos, 2);
  Key(shell, XK_Next);  // past the end: stays
  EXPECT_EQ(State(shell).list_pos, 2);
  Key(shell, XK_Home);
  EXPECT_EQ(State(shell).list_pos, 0);
  Key(shell, XK_End);
  EXPECT_EQ(State(shell).list_pos, 2);
  Key(shell, XK_Prior);  // PageUp
  EXPECT_EQ(State(shell).list_pos, 1);
  EXPECT_NE(Label(shell).find("2/3"), std::string::npos);
}

TEST_F(ViewTest, PagesAndAnimation) {
  Open("QUILLA_TEST_DISPLAY");
  const std::string path = dir_.file("anim.gif");
  TslParams params;
  tslDefaultParams(&params);
  TslFile *file = nullptr;
  ASSERT_EQ(tslFileCreate(&file, path.c_str(), tslFormatGetIndex("gif"), 3, &params), 0);
  for (int i = 0; i < 3; ++i) {
    TslPicture p = testutil::MakePicture(TSL_INDEXED, 40, 30, 3 + i, 16);
    ASSERT_EQ(tslFileAddPicture(file, &p, &params), 0);
    tslFree(&p);
  }
  ASSERT_EQ(tslFileClose(file), 0);

  Settings().View.DisableAnimation = true;
  Widget shell = OpenViewOnFile(App().shell, path.c_str(), 0);
  ASSERT_NE(shell, nullptr);
  Pump();
  ViewState s = State(shell);
  EXPECT_EQ(s.pages, 3);
  EXPECT_FALSE(s.animating);
  EXPECT_NE(Label(shell).find("Frame 1/3"), std::string::npos) << Label(shell);
  Key(shell, XK_Next, ShiftMask);
  EXPECT_EQ(State(shell).page, 1);
  Key(shell, XK_End, ShiftMask);
  EXPECT_EQ(State(shell).page, 2);
  EXPECT_NE(Label(shell).find("Frame 3/3"), std::string::npos);
  // The page menu's extraction writes every page as PPM.
  const std::string out = dir_.file("pages");
  mkdir(out.c_str(), 0755);
  std::snprintf(Settings().PathExtract, sizeof Settings().PathExtract, "%s", out.c_str());
  RunViewCommand(shell, "extract");
  for (int i = 1; i <= 3; ++i) {
    TslPicture page{};
    EXPECT_TRUE(testutil::ReadPnm(out + "/anim_extract_00" + std::to_string(i) + ".ppm", &page)) << i;
    EXPECT_EQ(page.width, 40u);
    tslFree(&page);
  }
  Settings().PathExtract[0] = 0;
  RunViewCommand(shell, "close");
  Pump();

  Settings().View.DisableAnimation = false;
  shell = OpenViewOnFile(App().shell, path.c_str(), 0);
  ASSERT_NE(shell, nullptr);
  EXPECT_TRUE(State(shell).animating);
  std::set<int> seen;
  auto end = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  while (seen.size() < 3 && std::chrono::steady_clock::now() < end) {
    RunFor(20);
    seen.insert(State(shell).page);
  }
  EXPECT_EQ(seen.size(), 3u);
}

TEST_F(ViewTest, UnreadableFileOpensNoView) {
  Open("QUILLA_TEST_DISPLAY");
  const std::string junk = dir_.file("junk.png");
  testutil::WriteFile(junk, "not a picture at all");
  // The error box is modal: the dialog hook answers it.
  static int boxes;
  boxes = 0;
  DialogHook old = SetDialogHook([](Widget box) {
    if (box != ShownMessageBox()) return;
    ++boxes;
    XtCallCallbacks(XtNameToWidget(box, "*buttonOK"), XmNactivateCallback, nullptr);
  });
  EXPECT_EQ(OpenViewOnFile(App().shell, junk.c_str(), 0), nullptr);
  SetDialogHook(old);
  EXPECT_EQ(boxes, 1);
  EXPECT_EQ(ViewCount(), 0);
}

TEST_F(ViewTest, EightBitWindowUsesTheColourCube) {
  Open("QUILLA_TEST_DISPLAY8");
  if (CurrentVisual().info.depth != 8) GTEST_SKIP() << "needs an 8-bit visual";
  Widget shell = OpenViewOnFile(App().shell, Picture("e.png", TSL_RGB, 64, 48, 5).c_str(), 0);
  ASSERT_NE(shell, nullptr);
  Pump();
  ViewState s = State(shell);
  ColourData *cd = GetColourData(dpy_, App().screen, nullptr, false);
  ASSERT_NE(cd, nullptr);
  ASSERT_GT(cd->cube_kind, 0);
  std::set<unsigned long> cube(cd->pixels, cd->pixels + cd->colour_count);
  XImage *im = XGetImage(dpy_, s.canvas, s.org_x, s.org_y, 64, 48, AllPlanes, ZPixmap);
  ASSERT_NE(im, nullptr);
  std::set<unsigned long> used;
  for (int y = 0; y < 48; ++y)
    for (int x = 0; x < 64; ++x) used.insert(XGetPixel(im, x, y));
  XDestroyImage(im);
  ReleaseColourData(dpy_, cd);
  for (unsigned long p : used) EXPECT_TRUE(cube.count(p)) << "pixel " << p << " is not a cube colour";
  EXPECT_GT(used.size(), 8u);  // dithered, not flat
}

}  // namespace

namespace {

TEST_F(ViewTest, OnlyOneViewLoadsIntoTheOpenWindowAndPickerFollowsThePointer) {
  Open("QUILLA_TEST_DISPLAY");
  Settings().View.OnlyOneView = true;
  Widget first = OpenViewOnFile(App().shell, Picture("o1.png", TSL_RGB, 80, 60).c_str(), 0);
  Widget second = OpenViewOnFile(App().shell, Picture("o2.png", TSL_GREY, 90, 70).c_str(), 0);
  Settings().View.OnlyOneView = false;
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(second, first);
  EXPECT_EQ(ViewCount(), 1);
  EXPECT_EQ(State(first).width, 90u);

  // Ctrl+Shift+I: the colour under the pointer in the ColorPicker tip.
  Key(first, XK_I, ControlMask | ShiftMask);
  ViewState s = State(first);
  ASSERT_TRUE(s.picker);
  XMotionEvent ev{};
  ev.type = MotionNotify;
  ev.display = dpy_;
  ev.window = s.canvas;
  ev.x = s.org_x + 5;
  ev.y = s.org_y + 7;
  ev.same_screen = True;
  XSendEvent(dpy_, s.canvas, True, PointerMotionMask, reinterpret_cast<XEvent *>(&ev));
  Pump();
  Widget tip = XtNameToWidget(first, "ColorPicker");
  ASSERT_NE(tip, nullptr);
  const std::string text = guitest::LabelText(tip, "ColorPickerText");
  EXPECT_EQ(text.rfind("X: 5, Y: 7\n  INDEX (", 0), 0u) << text;
  EXPECT_NE(text.find(")\n  HTML (#"), std::string::npos) << text;
}

}  // namespace

namespace {

TEST_F(ViewTest, LargeJpegShowsAReducedFirstPaintThenTheFullPicture) {
  Open("QUILLA_TEST_DISPLAY");
  const int sw = DisplayWidth(dpy_, App().screen), sh = DisplayHeight(dpy_, App().screen);
  TslPicture big = testutil::MakePicture(TSL_RGB, sw * 3, sh * 3, 11);
  TslParams params;
  tslDefaultParams(&params);
  params.format = tslFormatGetIndex("jpeg");
  params.quality = 90;
  const std::string path = dir_.file("big.jpg");
  ASSERT_EQ(tslSave(path.c_str(), &big, &params), 0);
  tslFree(&big);
  Widget shell = OpenViewOnFile(App().shell, path.c_str(), 0);
  ASSERT_NE(shell, nullptr);
  ViewState first = State(shell);
  EXPECT_TRUE(first.preview);
  EXPECT_LT(first.width, static_cast<uint32_t>(sw));  // decoded at the displayed size
  EXPECT_NE(Label(shell).find(std::to_string(sw * 3) + "x" + std::to_string(sh * 3)), std::string::npos);
  RunFor(300);  // the first paint, then the full load
  ViewState full = State(shell);
  EXPECT_FALSE(full.preview);
  EXPECT_EQ(full.width, static_cast<uint32_t>(sw * 3));
  EXPECT_DOUBLE_EQ(full.zoom, first.zoom);
  EXPECT_EQ(full.view_w, first.view_w);
  // A command on a view still showing the reduced picture works on the full one.
  RunViewCommand(shell, "close");
  Pump();
  shell = OpenViewOnFile(App().shell, path.c_str(), 0);
  ASSERT_NE(shell, nullptr);
  ASSERT_TRUE(State(shell).preview);
  RunViewCommand(shell, "rotateLeft");
  EXPECT_FALSE(State(shell).preview);
  EXPECT_EQ(State(shell).width, static_cast<uint32_t>(sh * 3));
}

}  // namespace

// A damaged picture met in an open view: the message box says why, the
// view keeps what it showed, goes on to the next picture and answers keys;
// the same picture opened on its own makes no window and harms no other.
TEST_F(ViewTest, DamagedPictureShowsTheBoxAndTheViewGoesOn) {
  Open("QUILLA_TEST_DISPLAY");
  const std::string whole = Picture("whole.png", TSL_RGB, 70, 40, 2);
  const std::string cut = dir_.file("cut.png");
  testutil::WriteFile(cut, testutil::ReadFile(whole).substr(0, testutil::ReadFile(whole).size() / 2));
  const std::string paths[3] = {Picture("first.png", TSL_RGB, 50, 40), cut, Picture("third.png", TSL_RGB, 80, 40, 3)};
  auto *list = static_cast<FileListEntry *>(std::calloc(3, sizeof(FileListEntry)));
  for (int i = 0; i < 3; ++i) std::snprintf(list[i].path, sizeof list[i].path, "%s", paths[i].c_str());
  static std::vector<std::string> texts;
  texts.clear();
  DialogHook old = SetDialogHook([](Widget box) {
    if (box != ShownMessageBox()) return;
    texts.push_back(guitest::LabelText(box, "*labelMessage"));
    XtCallCallbacks(XtNameToWidget(box, "*buttonOK"), XmNactivateCallback, nullptr);
  });
  Widget shell = OpenViewOnList(App().shell, list, 3, 0);
  ASSERT_NE(shell, nullptr);
  Pump();
  Key(shell, XK_space);
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_FALSE(texts[0].empty());
  EXPECT_EQ(ViewCount(), 1);
  EXPECT_EQ(State(shell).width, 50u);  // still the first picture
  Key(shell, XK_space);
  EXPECT_EQ(State(shell).list_pos, 2);
  EXPECT_EQ(State(shell).width, 80u);
  EXPECT_EQ(texts.size(), 1u);

  EXPECT_EQ(OpenViewOnFile(App().shell, cut.c_str(), 0), nullptr);
  EXPECT_EQ(texts.size(), 2u);
  EXPECT_EQ(ViewCount(), 1);
  const double zoom = State(shell).zoom;
  RunViewCommand(shell, "zoom+");
  EXPECT_GT(State(shell).zoom, zoom);
  SetDialogHook(old);
}
