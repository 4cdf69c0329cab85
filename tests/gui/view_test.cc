// The view window on real X servers: widget tree, fit on open, key bindings
// driving zoom, scroll, next and rotation, the pixels that reach the window
// at 1:1, pages and animation, and the 8-bit cube.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <unistd.h>

#include <X11/Intrinsic.h>
#include <X11/Shell.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <Xm/Label.h>
#include <Xm/Xm.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/app_x.h"
#include "core/display_x.h"
#include "core/settings.h"
#include "files/load_x.h"
#include "gui_util.h"
#include "test_util.h"
#include "view/view_x.h"

namespace {

using namespace quilla;

using guitest::Pump;
using guitest::RunFor;

// The channel value of a pixel through a visual mask.
int Channel(unsigned long pixel, unsigned long mask) {
  int shift = 0;
  while (mask && !(mask & 1)) mask >>= 1, ++shift;
  return static_cast<int>(((pixel >> shift) & mask) * 255 / mask);
}

class ViewTest : public guitest::GuiTest {
 protected:
  void TearDown() override {
    if (dpy_) guitest::CloseAllViews();
  }
  std::string Picture(const char *name, int model, int w, int h, uint32_t seed = 1) {
    return Png(name, w, h, model, seed);
  }
  // The pointer moved to (x, y) of the canvas.
  void Motion(const ViewState &s, int x, int y) {
    XMotionEvent ev{};
    ev.type = MotionNotify;
    ev.display = dpy_;
    ev.window = s.canvas;
    ev.x = x;
    ev.y = y;
    ev.same_screen = True;
    XSendEvent(dpy_, s.canvas, True, PointerMotionMask, reinterpret_cast<XEvent *>(&ev));
    Pump();
  }
  // A list of the given files, for OpenViewOnList (which takes it over).
  static FileListEntry *List(const std::vector<std::string> &paths) {
    auto *list = static_cast<FileListEntry *>(std::calloc(paths.size(), sizeof(FileListEntry)));
    for (size_t i = 0; i < paths.size(); ++i) std::snprintf(list[i].path, sizeof list[i].path, "%s", paths[i].c_str());
    return list;
  }
  // Counts the canvas pixels at 1:1 that differ from the file decoded
  // directly, over a w x h block at the picture's (x, y); -1 when the
  // window cannot be read.
  int WrongAtOneToOne(Widget shell, const std::string &path, int x0, int y0, int w, int h) {
    ViewState s = State(shell);
    XImage *im = XGetImage(dpy_, s.canvas, s.org_x + x0, s.org_y + y0, w, h, AllPlanes, ZPixmap);
    if (!im) return -1;
    testutil::Pic pic;
    TslParams params;
    tslDefaultParams(&params);
    EXPECT_EQ(tslLoad(path.c_str(), &pic, &params), 0);
    const VisualInfo &vi = CurrentVisual().info;
    int wrong = 0;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const unsigned long px = XGetPixel(im, x, y);
        const uint8_t *p = pic->pixels + (y0 + y) * pic->bytes_per_line + (x0 + x) * 3;
        if (Channel(px, vi.red_mask) != p[0] || Channel(px, vi.green_mask) != p[1] ||
            Channel(px, vi.blue_mask) != p[2])
          ++wrong;
      }
    XDestroyImage(im);
    return wrong;
  }
  std::string Label(Widget shell) { return guitest::LabelText(shell, "*labelInfo"); }
};

TEST_F(ViewTest, OpensWithItsWidgetTreeAtOneToOne) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  const std::string path = Picture("a.png", TSL_RGB, 300, 200);
  Widget shell = OpenViewOnFile(App().shell, path.c_str(), 0);
  ASSERT_NE(shell, nullptr);
  Pump();
  EXPECT_STREQ(XtName(shell), "QuillView");
  for (const char *name : {"*MenuBar", "*toolBar", "*messageWindow"})
    EXPECT_NE(XtNameToWidget(shell, name), nullptr) << name;
  EXPECT_EQ(Title(shell), "Quilla v1.50");
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
    TearDown();
  }
}

// M shows the transparency mask of a picture with alpha and goes back;
// a picture without transparency has no mask.
TEST_F(ViewTest, MaskOfAPictureWithAlpha) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
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
  if (IsSkipped() || HasFatalFailure()) return;
  if (!testutil::HaveTool("exiftool")) GTEST_SKIP() << "exiftool missing";
  const std::string path = dir_.file("turned.png");
  ASSERT_TRUE(guitest::WriteTurnedPicture(path));
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
  if (IsSkipped() || HasFatalFailure()) return;
  if (CurrentVisual().info.cls != kTrueColor) GTEST_SKIP() << "needs a TrueColor visual";
  const std::string path = Picture("b.png", TSL_RGB, 120, 90, 7);
  Widget shell = OpenViewOnFile(App().shell, path.c_str(), 0);
  ASSERT_NE(shell, nullptr);
  Pump();
  EXPECT_EQ(WrongAtOneToOne(shell, path, 0, 0, 120, 90), 0);
}

TEST_F(ViewTest, KeysZoomScrollRotateAndUndo) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  Widget shell = OpenViewOnFile(App().shell, Picture("c.png", TSL_RGB, 200, 100).c_str(), 0);
  ASSERT_NE(shell, nullptr);
  Pump();
  ViewKey(shell, XK_plus, ShiftMask);
  EXPECT_DOUBLE_EQ(State(shell).zoom, 200.0);
  ViewKey(shell, XK_plus, ShiftMask);
  EXPECT_DOUBLE_EQ(State(shell).zoom, 300.0);
  EXPECT_NE(Label(shell).find("300%"), std::string::npos);
  // The picture is now larger than the window: the arrows scroll.
  ViewState before = State(shell);
  ViewKey(shell, XK_Right);
  ViewKey(shell, XK_Down);
  ViewState after = State(shell);
  EXPECT_GT(after.scroll_x, before.scroll_x);
  EXPECT_GT(after.scroll_y, before.scroll_y);
  ViewKey(shell, XK_Left);
  EXPECT_LT(State(shell).scroll_x, after.scroll_x);
  ViewKey(shell, XK_asterisk, ShiftMask);
  EXPECT_DOUBLE_EQ(State(shell).zoom, 100.0);
  ViewKey(shell, XK_minus);
  EXPECT_DOUBLE_EQ(State(shell).zoom, 70.0);
  ViewKey(shell, XK_KP_Add);
  EXPECT_DOUBLE_EQ(State(shell).zoom, 100.0);

  // Shift+R turns right: the sides swap and the picture is modified; Ctrl+Z
  // takes it back.
  ViewKey(shell, XK_R, ShiftMask);
  ViewState turned = State(shell);
  EXPECT_EQ(turned.width, 100u);
  EXPECT_EQ(turned.height, 200u);
  EXPECT_TRUE(turned.modified);
  ViewKey(shell, XK_z, ControlMask);
  EXPECT_EQ(State(shell).width, 200u);
  EXPECT_FALSE(State(shell).modified);
  // Shift+L then Shift+R come back to the same pixels as a double flip
  // does to a double flip.
  ViewKey(shell, XK_L, ShiftMask);
  EXPECT_EQ(State(shell).width, 100u);
  ViewKey(shell, XK_R, ShiftMask);
  EXPECT_EQ(State(shell).width, 200u);
}

TEST_F(ViewTest, ActionNeedsExactlyOneParameter) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
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
  // The top of the zoom table holds.
  for (int i = 0; i < 12; ++i) XtCallActionProc(area, "ViewDoCommand", nullptr, two, 1);
  EXPECT_DOUBLE_EQ(State(shell).zoom, 1600.0);
}

TEST_F(ViewTest, OneViewWalksItsListWithSpaceAndPageKeys) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  FileListEntry *list = List({Picture("l1.png", TSL_RGB, 50, 40), Picture("l2.png", TSL_RGB, 60, 40),
                               Picture("l3.png", TSL_RGB, 70, 40)});
  Widget shell = OpenViewOnList(App().shell, list, 3, 0);
  ASSERT_NE(shell, nullptr);
  Pump();
  EXPECT_EQ(State(shell).list_count, 3);
  EXPECT_NE(Label(shell).find("1/3"), std::string::npos) << Label(shell);
  ViewKey(shell, XK_space);
  EXPECT_EQ(State(shell).list_pos, 1);
  EXPECT_EQ(State(shell).width, 60u);
  ViewKey(shell, XK_Next);  // PageDown
  EXPECT_EQ(State(shell).list_pos, 2);
  ViewKey(shell, XK_Next);  // past the end: stays
  EXPECT_EQ(State(shell).list_pos, 2);
  ViewKey(shell, XK_Home);
  EXPECT_EQ(State(shell).list_pos, 0);
  ViewKey(shell, XK_End);
  ViewKey(shell, XK_Prior);  // PageUp
  EXPECT_EQ(State(shell).list_pos, 1);
  EXPECT_NE(Label(shell).find("2/3"), std::string::npos);
}

TEST_F(ViewTest, PagesAndAnimation) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  const std::string path = dir_.file("anim.gif");
  ASSERT_TRUE(guitest::WritePages(path, "gif", 3, TSL_INDEXED, 40, 30));

  Settings().View.DisableAnimation = true;
  Widget shell = OpenViewOnFile(App().shell, path.c_str(), 0);
  ASSERT_NE(shell, nullptr);
  Pump();
  ViewState s = State(shell);
  EXPECT_EQ(s.pages, 3);
  EXPECT_FALSE(s.animating);
  EXPECT_NE(Label(shell).find("Frame 1/3"), std::string::npos) << Label(shell);
  ViewKey(shell, XK_Next, ShiftMask);
  EXPECT_EQ(State(shell).page, 1);
  ViewKey(shell, XK_End, ShiftMask);
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

TEST_F(ViewTest, EightBitWindowUsesTheColourCube) {
  Open("QUILLA_TEST_DISPLAY8");
  if (IsSkipped() || HasFatalFailure()) return;
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

TEST_F(ViewTest, OnlyOneViewLoadsIntoTheOpenWindowAndPickerFollowsThePointer) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  Settings().View.OnlyOneView = true;
  Widget first = OpenViewOnFile(App().shell, Picture("o1.png", TSL_RGB, 80, 60).c_str(), 0);
  Widget second = OpenViewOnFile(App().shell, Picture("o2.png", TSL_GREY, 90, 70).c_str(), 0);
  Settings().View.OnlyOneView = false;
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(second, first);
  EXPECT_EQ(ViewCount(), 1);
  EXPECT_EQ(State(first).width, 90u);

  // Ctrl+Shift+I: the colour under the pointer in the ColorPicker tip.
  ViewKey(first, XK_I, ControlMask | ShiftMask);
  ViewState s = State(first);
  ASSERT_TRUE(s.picker);
  Motion(s, s.org_x + 5, s.org_y + 7);
  Widget tip = XtNameToWidget(first, "ColorPicker");
  ASSERT_NE(tip, nullptr);
  const std::string text = guitest::LabelText(tip, "ColorPickerText");
  EXPECT_EQ(text.rfind("X: 5, Y: 7\n  INDEX (", 0), 0u) << text;
  EXPECT_NE(text.find(")\n  HTML (#"), std::string::npos) << text;
}

// A JPEG three times the screen's size in each direction: it opens at a
// third, from a reduced decode.  With `turned`, the file is stored turned
// (EXIF orientation 6: turn right to view), so its rows are the upright
// picture's columns.  The left third of the stored picture is red; the
// rest has ramps and a checkerboard of 4-pixel squares, detail that a
// reduced decode loses.
std::string BigJpeg(const std::string &path, int w, int h, bool turned = false) {
  TslPicture big{};
  EXPECT_TRUE(tslAllock(&big, TSL_RGB, 0, w, h));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      uint8_t *px = big.pixels + static_cast<size_t>(y) * big.bytes_per_line + x * 3;
      const bool red = x < w / 3;
      px[0] = red ? 255 : static_cast<uint8_t>(x);
      px[1] = red ? 0 : static_cast<uint8_t>(y);
      px[2] = red ? 0 : ((x / 4 + y / 4) & 1) * 255;
    }
  TslParams params;
  tslDefaultParams(&params);
  params.format = tslFormatGetIndex("jpeg");
  params.quality = 90;
  EXPECT_EQ(tslSave(path.c_str(), &big, &params), 0);
  tslFree(&big);
  if (turned) {
    EXPECT_TRUE(guitest::SetExifOrientation(path, 6));
  }
  return path;
}

bool Red(int r, int g, int b) { return r > 200 && g < 60 && b < 60; }

// The pixels of the picture's part of the canvas (at most its visible part).
std::vector<unsigned long> CanvasPixels(Display *dpy, const ViewState &s) {
  XWindowAttributes wa;
  XGetWindowAttributes(dpy, s.canvas, &wa);
  const int w = std::min(s.view_w, wa.width - s.org_x), h = std::min(s.view_h, wa.height - s.org_y);
  std::vector<unsigned long> out;
  if (w <= 0 || h <= 0) return out;
  XImage *im = XGetImage(dpy, s.canvas, std::max(0, s.org_x), std::max(0, s.org_y), w, h, AllPlanes, ZPixmap);
  if (!im) return out;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) out.push_back(XGetPixel(im, x, y));
  XDestroyImage(im);
  return out;
}

class LargeJpegTest : public ViewTest {
 protected:
  // Runs the event loop until the full picture has replaced the reduced
  // one (at most 20 s).
  bool WaitForFull(Widget shell) {
    for (int i = 0; i < 1000 && State(shell).preview; ++i) RunFor(20);
    return !State(shell).preview;
  }
};

// The reduced first paint stays on the screen: the full picture decoded in
// the background takes the reduced one's place without a redraw, on the
// 24-bit and the 8-bit server alike.  A later command works on the full one.
TEST_F(LargeJpegTest, FullPictureArrivesInTheBackgroundWithoutChangingTheScreen) {
  for (const char *env : {"QUILLA_TEST_DISPLAY", "QUILLA_TEST_DISPLAY8"}) {
    Open(env);
    if (IsSkipped()) return;
    const int sw = DisplayWidth(dpy_, App().screen), sh = DisplayHeight(dpy_, App().screen);
    const std::string path = BigJpeg(dir_.file("big.jpg"), sw * 3, sh * 3);
    Widget shell = OpenViewOnFile(App().shell, path.c_str(), 0);
    ASSERT_NE(shell, nullptr);
    ViewState first = State(shell);
    EXPECT_TRUE(first.preview) << env;
    EXPECT_LT(first.width, static_cast<uint32_t>(sw));  // decoded at the displayed size
    EXPECT_LT(first.zoom, 50.0);
    const std::string size = std::to_string(sw * 3) + "x" + std::to_string(sh * 3);
    EXPECT_NE(Label(shell).find(size + "x24"), std::string::npos) << Label(shell);
    Pump();
    const std::vector<unsigned long> painted = CanvasPixels(dpy_, State(shell));
    ASSERT_FALSE(painted.empty());
    ASSERT_TRUE(WaitForFull(shell)) << env;
    ViewState full = State(shell);
    EXPECT_EQ(full.width, static_cast<uint32_t>(sw * 3));
    EXPECT_EQ(full.height, static_cast<uint32_t>(sh * 3));
    EXPECT_DOUBLE_EQ(full.zoom, first.zoom);
    EXPECT_EQ(full.view_w, first.view_w);
    EXPECT_EQ(full.view_h, first.view_h);
    EXPECT_NE(Label(shell).find(size + "x24"), std::string::npos) << Label(shell);
    Pump();
    EXPECT_TRUE(CanvasPixels(dpy_, State(shell)) == painted) << env << ": the screen changed";
    // Hidden and shown again, the window still shows the first paint.
    XClearArea(dpy_, full.canvas, 0, 0, 0, 0, True);
    Pump();
    EXPECT_TRUE(CanvasPixels(dpy_, State(shell)) == painted) << env << ": the redraw differs";
    // Zooming out needs no more detail, but is drawn from the full picture.
    RunViewCommand(shell, "zoom-");
    Pump();
    EXPECT_LT(State(shell).zoom, first.zoom);
    EXPECT_LT(State(shell).view_w, first.view_w);
    RunViewCommand(shell, "close");
    Pump();
  }
}

// Zooming to 1:1, an operation or the mask while the full picture is still
// being decoded wait for it, and show its own pixels.
TEST_F(LargeJpegTest, CommandsWaitForTheFullPicture) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  if (CurrentVisual().info.cls != kTrueColor) GTEST_SKIP() << "needs a TrueColor visual";
  const int sw = DisplayWidth(dpy_, App().screen), sh = DisplayHeight(dpy_, App().screen);
  const std::string path = BigJpeg(dir_.file("big.jpg"), sw * 3, sh * 3);
  Widget shell = OpenViewOnFile(App().shell, path.c_str(), 0);
  ASSERT_NE(shell, nullptr);
  Pump();  // the first paint starts the background decode
  RunViewCommand(shell, "zoom100");
  ViewState s = State(shell);
  EXPECT_FALSE(s.preview);
  EXPECT_DOUBLE_EQ(s.zoom, 100.0);
  EXPECT_EQ(s.view_w, sw * 3);
  Pump();
  // The middle at full detail: exactly the file's pixels.
  EXPECT_EQ(WrongAtOneToOne(shell, path, sw * 3 / 2 - 32, sh * 3 / 2 - 32, 64, 64), 0);
  RunViewCommand(shell, "close");
  Pump();

  // The colour picker, on from the start, reads the full picture's pixels.
  Settings().View.DisplayColorInformation = true;
  shell = OpenViewOnFile(App().shell, path.c_str(), 0);
  ASSERT_NE(shell, nullptr);
  Pump();
  s = State(shell);
  ASSERT_TRUE(s.picker);
  Motion(s, s.org_x + 10, s.org_y + 20);
  EXPECT_FALSE(State(shell).preview);
  Widget tip = XtNameToWidget(shell, "ColorPicker");
  ASSERT_NE(tip, nullptr);
  const std::string expected = "X: " + std::to_string(static_cast<int>(10 * 100.0 / s.zoom)) +
                               ", Y: " + std::to_string(static_cast<int>(20 * 100.0 / s.zoom)) + "\n";
  EXPECT_EQ(guitest::LabelText(tip, "ColorPickerText").rfind(expected, 0), 0u)
      << guitest::LabelText(tip, "ColorPickerText");
  RunViewCommand(shell, "close");
  Pump();
  Settings().View.DisplayColorInformation = false;

  // Before the first paint (no decode started yet) and right after it.
  for (bool painted : {false, true}) {
    shell = OpenViewOnFile(App().shell, path.c_str(), 0);
    ASSERT_NE(shell, nullptr);
    if (painted) Pump();
    ASSERT_TRUE(State(shell).preview);
    RunViewCommand(shell, "rotateLeft");
    s = State(shell);
    EXPECT_FALSE(s.preview);
    EXPECT_EQ(s.width, static_cast<uint32_t>(sh * 3));
    EXPECT_EQ(s.height, static_cast<uint32_t>(sw * 3));
    EXPECT_TRUE(s.modified);
    const TslPicture *pic = ViewCurrentPicture(shell);
    ASSERT_NE(pic, nullptr);
    // Turned left, the stored left third (red) is at the bottom.
    const uint8_t *bottom = pic->pixels + static_cast<size_t>(pic->height - 1) * pic->bytes_per_line + 5 * 3;
    EXPECT_TRUE(Red(bottom[0], bottom[1], bottom[2]));
    RunViewCommand(shell, "undo");
    RunViewCommand(shell, "close");
    Pump();
  }
  EXPECT_EQ(ViewCount(), 0);
}

// Moving to the next file or closing the window while the full picture is
// decoded drops that decode: nothing of the first file reaches the second,
// and nothing is left behind (the sanitizer build checks the leaks).
TEST_F(LargeJpegTest, NextFileOrCloseDuringTheBackgroundDecode) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  const int sw = DisplayWidth(dpy_, App().screen), sh = DisplayHeight(dpy_, App().screen);
  const std::string a = BigJpeg(dir_.file("a.jpg"), sw * 3, sh * 3);
  const std::string b = BigJpeg(dir_.file("b.jpg"), sw * 4, sh * 4);
  Widget shell = OpenViewOnList(App().shell, List({a, b}), 2, 0);
  ASSERT_NE(shell, nullptr);
  Pump();
  RunViewCommand(shell, "next");
  EXPECT_TRUE(State(shell).preview);
  EXPECT_EQ(State(shell).path, b);
  Pump();
  ASSERT_TRUE(WaitForFull(shell));
  ViewState s = State(shell);
  EXPECT_EQ(s.path, b);
  EXPECT_EQ(s.list_pos, 1);
  EXPECT_EQ(s.width, static_cast<uint32_t>(sw * 4));
  EXPECT_EQ(s.height, static_cast<uint32_t>(sh * 4));
  // Back and forth before any decode is done, then closed in the middle of one.
  RunViewCommand(shell, "prev");
  Pump();
  RunViewCommand(shell, "next");
  Pump();
  RunViewCommand(shell, "prev");
  Pump();
  EXPECT_EQ(State(shell).path, a);
  RunViewCommand(shell, "close");
  Pump();
  EXPECT_EQ(ViewCount(), 0);
  RunFor(200);  // a worker left running would now touch freed memory
}

// A large JPEG cut short: its window, built while the reduced decode ran,
// goes again, and the file is loaded as any other, whose error is shown
// once.  No window of it is left behind.
TEST_F(LargeJpegTest, CutShortOpensNoWindow) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  const int sw = DisplayWidth(dpy_, App().screen), sh = DisplayHeight(dpy_, App().screen);
  const std::string path = BigJpeg(dir_.file("cut.jpg"), sw * 3, sh * 3);
  ASSERT_EQ(truncate(path.c_str(), 4000), 0);
  {
    guitest::AnswerMessageBoxes boxes;
    EXPECT_EQ(OpenViewOnFile(App().shell, path.c_str(), 0), nullptr);
    Pump();
    EXPECT_EQ(boxes.Texts().size(), 1u);
  }
  EXPECT_EQ(ViewCount(), 0);
  EXPECT_EQ(XtNameToWidget(App().shell, "QuillView"), nullptr);
}

// A large JPEG stored turned is upright from the reduced first paint to the
// full picture decoded in the background.
TEST_F(LargeJpegTest, StoredTurnedStaysUprightOnBothDecodes) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  if (!testutil::HaveTool("exiftool")) GTEST_SKIP() << "exiftool missing";
  const int sw = DisplayWidth(dpy_, App().screen), sh = DisplayHeight(dpy_, App().screen);
  // Stored 3 screen heights wide: upright it is 3 screen heights tall.
  const std::string path = BigJpeg(dir_.file("turned.jpg"), sh * 3, sw * 3 / 2, true);
  Widget shell = OpenViewOnFile(App().shell, path.c_str(), 0);
  ASSERT_NE(shell, nullptr);
  ViewState first = State(shell);
  ASSERT_TRUE(first.preview);
  EXPECT_GT(first.height, first.width);
  EXPECT_NE(Label(shell).find(std::to_string(sw * 3 / 2) + "x" + std::to_string(sh * 3)), std::string::npos)
      << Label(shell);
  Pump();
  // The first paint: red along the top, not down the left side.
  first = State(shell);
  XImage *im = XGetImage(dpy_, first.canvas, first.org_x, first.org_y, first.view_w, first.view_h, AllPlanes,
                         ZPixmap);
  ASSERT_NE(im, nullptr);
  const VisualInfo &vi = CurrentVisual().info;
  const unsigned long top_px = XGetPixel(im, first.view_w / 2, 2), left_px = XGetPixel(im, 2, first.view_h - 3);
  XDestroyImage(im);
  if (vi.cls == kTrueColor) {
    EXPECT_TRUE(Red(Channel(top_px, vi.red_mask), Channel(top_px, vi.green_mask), Channel(top_px, vi.blue_mask)));
    EXPECT_FALSE(
        Red(Channel(left_px, vi.red_mask), Channel(left_px, vi.green_mask), Channel(left_px, vi.blue_mask)));
  }
  ASSERT_TRUE(WaitForFull(shell));
  ViewState s = State(shell);
  EXPECT_EQ(s.width, static_cast<uint32_t>(sw * 3 / 2));
  EXPECT_EQ(s.height, static_cast<uint32_t>(sh * 3));
  const TslPicture *pic = ViewCurrentPicture(shell);
  ASSERT_NE(pic, nullptr);
  // Turned right to view: the stored left third (red) is at the top.
  const uint8_t *top = pic->pixels + 5 * pic->bytes_per_line + (pic->width / 2) * 3;
  const uint8_t *bottom = pic->pixels + static_cast<size_t>(pic->height - 5) * pic->bytes_per_line + 5 * 3;
  EXPECT_TRUE(Red(top[0], top[1], top[2]));
  EXPECT_FALSE(Red(bottom[0], bottom[1], bottom[2]));
}

}  // namespace

// A damaged picture met in an open view: the message box says why, the
// view keeps what it showed, goes on to the next picture and answers keys;
// the same picture (or one that is no picture at all) opened on its own
// makes no window and harms no other.
TEST_F(ViewTest, DamagedPictureShowsTheBoxAndTheViewGoesOn) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  const std::string whole = testutil::ReadFile(Picture("whole.png", TSL_RGB, 70, 40, 2));
  const std::string cut = dir_.file("cut.png"), junk = dir_.file("junk.png");
  testutil::WriteFile(cut, whole.substr(0, whole.size() / 2));
  testutil::WriteFile(junk, "not a picture at all");
  guitest::AnswerMessageBoxes boxes;
  const std::vector<std::string> &texts = boxes.Texts();
  FileListEntry *list = List({Picture("first.png", TSL_RGB, 50, 40), cut, Picture("third.png", TSL_RGB, 80, 40, 3)});
  Widget shell = OpenViewOnList(App().shell, list, 3, 0);
  ASSERT_NE(shell, nullptr);
  Pump();
  ViewKey(shell, XK_space);
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_FALSE(texts[0].empty());
  EXPECT_EQ(ViewCount(), 1);
  EXPECT_EQ(State(shell).width, 50u);  // still the first picture
  ViewKey(shell, XK_space);
  EXPECT_EQ(State(shell).list_pos, 2);
  EXPECT_EQ(State(shell).width, 80u);
  EXPECT_EQ(texts.size(), 1u);

  EXPECT_EQ(OpenViewOnFile(App().shell, cut.c_str(), 0), nullptr);
  EXPECT_EQ(OpenViewOnFile(App().shell, junk.c_str(), 0), nullptr);
  EXPECT_EQ(texts.size(), 3u);
  EXPECT_EQ(ViewCount(), 1);
  const double zoom = State(shell).zoom;
  RunViewCommand(shell, "zoom+");
  EXPECT_GT(State(shell).zoom, zoom);
}
