// The slide show window and its dialog on the test X servers: order, pause,
// stepping back with button 1, skipping unreadable files, random order,
// the pixels that reach the window, and the dialog driven by keys.
#include <gtest/gtest.h>

#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <Xm/List.h>
#include <Xm/TextF.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "core/app_x.h"
#include "files/selector_x.h"
#include "files/slide_x.h"
#include "gui_util.h"
#include "test_util.h"
#include "view/view_x.h"

namespace {

using namespace quilla;

std::string g_answer;                // what the file selector is answered with
std::vector<std::string> g_selector_titles;

class SlideTest : public guitest::GuiTest {
 protected:
  void Open(const char *env, bool xdotool = false) {
    guitest::GuiTest::Open(env, xdotool);
    if (IsSkipped()) return;
    boxes_.reset();  // a second Open gives back the first hook before taking it again
    boxes_ = std::make_unique<guitest::AnswerMessageBoxes>();
  }
  void TearDown() override {
    if (!dpy_) return;
    if (ShownSlideShow()) Key(XK_Escape);
    if (Widget d = ShownSlideDialog()) XtCallCallbacks(XtNameToWidget(d, "*buttonCancel"), XmNactivateCallback, nullptr);
    while (Widget s = ViewShellAt(0)) RunViewCommand(s, "close");
    boxes_.reset();
    Pump();
  }
  // A picture of one colour.
  std::string Solid(const char *name, int w, int h, int r, int g, int b) {
    testutil::Pic p(testutil::MakePicture(TSL_RGB, static_cast<uint32_t>(w), static_cast<uint32_t>(h)));
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        uint8_t *px = p->pixels + static_cast<size_t>(y) * p->bytes_per_line + static_cast<size_t>(x) * 3;
        px[0] = static_cast<uint8_t>(r), px[1] = static_cast<uint8_t>(g), px[2] = static_cast<uint8_t>(b);
      }
    const std::string path = dir_.file(name);
    EXPECT_TRUE(guitest::SavePicture(path, p));
    return path;
  }
  // Three pictures of different sizes, each told apart by its pixmap size.
  std::vector<std::string> Three() {
    return {Solid("a.png", 120, 80, 255, 0, 0), Solid("b.png", 90, 60, 0, 255, 0), Solid("c.png", 60, 100, 0, 0, 255)};
  }
  SlideShowState State() {
    SlideShowState s;
    EXPECT_TRUE(GetSlideShowState(&s));
    return s;
  }
  int Index() {
    SlideShowState s;
    return GetSlideShowState(&s) ? s.index : -2;
  }
  void Send(XEvent *ev, long mask) {
    XSendEvent(dpy_, ev->xany.window, True, mask, ev);
    Pump();
  }
  void Key(KeySym sym) {
    SlideShowState s = State();
    XKeyEvent ev{};
    ev.type = KeyPress;
    ev.display = dpy_;
    ev.window = XtWindow(s.drawing_area);
    ev.root = DefaultRootWindow(dpy_);
    ev.keycode = XKeysymToKeycode(dpy_, sym);
    ev.same_screen = True;
    Send(reinterpret_cast<XEvent *>(&ev), KeyPressMask);
  }
  void Click(unsigned button) {
    SlideShowState s = State();
    XButtonEvent ev{};
    ev.type = ButtonPress;
    ev.display = dpy_;
    ev.window = XtWindow(s.drawing_area);
    ev.root = DefaultRootWindow(dpy_);
    ev.button = button;
    ev.x = ev.y = 5;
    ev.same_screen = True;
    Send(reinterpret_cast<XEvent *>(&ev), ButtonPressMask);
  }
  // The colour of the window pixel at the centre of the drawing area.
  XColor CentrePixel() {
    SlideShowState s = State();
    Dimension w, h;
    XtVaGetValues(s.drawing_area, XmNwidth, &w, XmNheight, &h, nullptr);
    XImage *img = XGetImage(dpy_, XtWindow(s.drawing_area), w / 2, h / 2, 1, 1, AllPlanes, ZPixmap);
    XColor c{};
    if (!img) return c;
    c.pixel = XGetPixel(img, 0, 0);
    XDestroyImage(img);
    Colormap cmap;
    XtVaGetValues(XtParent(s.drawing_area), XmNcolormap, &cmap, nullptr);
    XQueryColor(dpy_, cmap, &c);
    return c;
  }
  // The texts of the message boxes shown.
  std::vector<std::string> &Boxes() { return guitest::AnswerMessageBoxes::Texts(); }
  std::unique_ptr<guitest::AnswerMessageBoxes> boxes_;
};

TEST_F(SlideTest, PlaysInOrderPausesOnSpaceStepsBackWithButtonOneAndEnds) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped()) return;
  const std::vector<std::string> files = Three();
  Widget shell = StartSlideShow(files, kSlideTimer | kSlideNoErrors, 150);
  ASSERT_NE(shell, nullptr);
  Pump();
  EXPECT_STREQ(XtName(shell), "QuillSlideView");
  SlideShowState s = State();
  EXPECT_EQ(s.index, 0);
  EXPECT_EQ(s.title, files[0]);
  char *title = nullptr;
  XtVaGetValues(shell, XmNtitle, &title, nullptr);
  EXPECT_EQ(std::string(title), files[0]);
  EXPECT_EQ(s.width, 120);
  EXPECT_EQ(s.height, 80);
  EXPECT_TRUE(s.scheduled);
  // The window takes the size of a picture smaller than the screen.
  Dimension w, h;
  XtVaGetValues(shell, XmNwidth, &w, XmNheight, &h, nullptr);
  EXPECT_EQ(w, 120);
  EXPECT_EQ(h, 80);

  ASSERT_TRUE(RunUntil(3000, [&] { return Index() == 1; }));
  EXPECT_EQ(State().width, 90);
  // Space pauses: nothing moves for several intervals; space again resumes.
  Key(XK_space);
  EXPECT_FALSE(State().scheduled);
  RunFor(500);
  EXPECT_EQ(Index(), 1);
  Key(XK_space);
  EXPECT_TRUE(State().scheduled);
  // Button 1 steps back, button 3 forward, any other key forward.
  Click(Button1);
  EXPECT_EQ(Index(), 0);
  Click(Button3);
  EXPECT_EQ(Index(), 1);
  Key(XK_a);
  EXPECT_EQ(Index(), 2);
  EXPECT_EQ(State().height, 100);
  // Without the loop switch, stepping past the end ends the show.
  Key(XK_Right);
  EXPECT_EQ(ShownSlideShow(), nullptr);
  EXPECT_TRUE(Boxes().empty());
  EXPECT_EQ(SlideShowHistory(), (std::vector<int>{0, 1, 0, 1, 2}));
}

TEST_F(SlideTest, EscapeEndsAndLeftWrapsOnlyWithLoop) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped()) return;
  const std::vector<std::string> files = Three();
  ASSERT_NE(StartSlideShow(files, kSlideLoop, 1000), nullptr);
  // Without the timer nothing is scheduled and space does nothing.
  EXPECT_FALSE(State().scheduled);
  Key(XK_space);
  EXPECT_FALSE(State().scheduled);
  EXPECT_EQ(Index(), 0);
  Key(XK_Left);
  EXPECT_EQ(Index(), 2);
  Key(XK_Right);
  EXPECT_EQ(Index(), 0);
  Key(XK_Escape);
  EXPECT_EQ(ShownSlideShow(), nullptr);
  // Without the loop, stepping back from the first entry ends the show.
  ASSERT_NE(StartSlideShow(files, 0, 1000), nullptr);
  Click(Button1);
  EXPECT_EQ(ShownSlideShow(), nullptr);
}

TEST_F(SlideTest, UnreadableEntriesAreSkippedAtOnceAndReportedOnlyWithoutBit128) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped()) return;
  std::vector<std::string> files = Three();
  const std::string bad = dir_.file("bad.png");
  testutil::WriteFile(bad, "not a picture at all");
  files.insert(files.begin() + 1, bad);
  ASSERT_NE(StartSlideShow(files, kSlideNoErrors, 1000), nullptr);
  Key(XK_Right);
  // The unreadable entry is named in the title while it is tried.
  EXPECT_EQ(State().title, bad);
  EXPECT_EQ(State().pixmap, 0u);
  EXPECT_TRUE(State().scheduled);
  EXPECT_TRUE(RunUntil(200, [&] { return Index() == 2; }));
  EXPECT_EQ(State().width, 90);
  EXPECT_TRUE(Boxes().empty());
  Key(XK_Escape);

  // Reported, with the same skip, when read errors are wanted.
  ASSERT_NE(StartSlideShow(files, 0, 1000), nullptr);
  Key(XK_Right);
  EXPECT_TRUE(RunUntil(500, [&] { return Index() == 2; }));
  EXPECT_EQ(Boxes().size(), 1u);
  Key(XK_Escape);

  // A list of nothing but unreadable files ends instead of spinning.
  StartSlideShow({bad, bad}, kSlideLoop | kSlideNoErrors, 1000);
  EXPECT_TRUE(RunUntil(500, [] { return ShownSlideShow() == nullptr; }));
}

TEST_F(SlideTest, RandomLoopShowsEachEntryOnceBeforeAnyRepeat) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped()) return;
  ASSERT_NE(StartSlideShow(Three(), kSlideTimer | kSlideLoop | kSlideRandom | kSlideNoErrors, 20), nullptr);
  ASSERT_TRUE(RunUntil(5000, [] { return SlideShowHistory().size() >= 12; }));
  const std::vector<int> h = SlideShowHistory();
  for (size_t start = 0; start + 3 <= 12; start += 3) {
    std::set<int> block(h.begin() + static_cast<long>(start), h.begin() + static_cast<long>(start) + 3);
    EXPECT_EQ(block, (std::set<int>{0, 1, 2})) << "steps " << start << ".." << start + 2;
  }
}

TEST_F(SlideTest, PictureColoursReachTheWindowAtBothDepths) {
  for (const char *env : {"QUILLA_TEST_DISPLAY", "QUILLA_TEST_DISPLAY8"}) {
    SCOPED_TRACE(env);
    Open(env);
    if (IsSkipped()) return;
    const std::string red = Solid("red.png", 200, 150, 230, 20, 20), blue = Solid("blue.png", 150, 200, 20, 20, 230);
    ASSERT_NE(StartSlideShow({red, blue}, kSlideFull | kSlideCenter, 1000), nullptr);
    Pump();
    // Full screen: the window covers the screen, the picture in its centre.
    Dimension w, h;
    XtVaGetValues(ShownSlideShow(), XmNwidth, &w, XmNheight, &h, nullptr);
    EXPECT_EQ(w, WidthOfScreen(DefaultScreenOfDisplay(dpy_)));
    EXPECT_EQ(h, HeightOfScreen(DefaultScreenOfDisplay(dpy_)));
    XColor c = CentrePixel();
    EXPECT_GT(c.red >> 8, 150);
    EXPECT_LT(c.blue >> 8, 100);
    Key(XK_Right);
    c = CentrePixel();
    EXPECT_GT(c.blue >> 8, 150);
    EXPECT_LT(c.red >> 8, 100);
    Key(XK_Escape);
    EXPECT_EQ(ShownSlideShow(), nullptr);
  }
}

// A picture stored turned (EXIF orientation 6) is shown upright, as the
// view shows it.
TEST_F(SlideTest, ExifOrientationIsShownUpright) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped()) return;
  if (!testutil::HaveTool("exiftool")) GTEST_SKIP() << "exiftool missing";
  const std::string path = dir_.file("turned.png");
  ASSERT_TRUE(guitest::WriteTurnedPicture(path));
  ASSERT_NE(StartSlideShow({path}, 0, 1000), nullptr);
  SlideShowState s = State();
  ASSERT_EQ(s.width, 20);
  ASSERT_EQ(s.height, 60);
  XImage *img = XGetImage(dpy_, s.pixmap, 0, 0, 20, 60, AllPlanes, ZPixmap);
  ASSERT_NE(img, nullptr);
  const Visual *v = DefaultVisual(dpy_, App().screen);
  EXPECT_EQ(XGetPixel(img, 10, 5) & v->red_mask, v->red_mask);     // the stored left edge, now on top
  EXPECT_EQ(XGetPixel(img, 10, 55) & v->blue_mask, v->blue_mask);
  XDestroyImage(img);
}

TEST_F(SlideTest, DialogListButtonsAndGoOnReturnThenEscapeEndsTheShow) {
  Open("QUILLA_TEST_DISPLAY", true);
  if (IsSkipped()) return;
  SlideList empty;
  Widget d = OpenSlideDialog(empty);
  ASSERT_NE(d, nullptr);
  EXPECT_STREQ(XtName(d), "QuillSlide");
  EXPECT_EQ(Label(d, "*buttonOk"), "Go");
  // The list buttons wait for entries.
  for (const char *n : {"*filelistDelAll", "*filelistDel", "*filelistUp", "*filelistDown"})
    EXPECT_FALSE(XtIsSensitive(XtNameToWidget(d, n))) << n;
  // The timer and the keyboard-or-mouse stepping exclude each other.
  Widget timer = XtNameToWidget(d, "*SlideTimer"), keybd = XtNameToWidget(d, "*SlideKeybd");
  XmToggleButtonSetState(keybd, True, True);
  EXPECT_FALSE(XmToggleButtonGetState(timer));
  XmToggleButtonSetState(timer, True, True);
  EXPECT_FALSE(XmToggleButtonGetState(keybd));

  // Given a list, the dialog shows it; Down moves the selected entry.
  const std::vector<std::string> files = Three();
  SlideList l;
  l.entries = files;
  l.switches = 0;
  OpenSlideDialog(l);
  Widget list = XtNameToWidget(d, "*filelist");
  int count = 0;
  XtVaGetValues(list, XmNitemCount, &count, nullptr);
  EXPECT_EQ(count, 3);
  EXPECT_TRUE(XtIsSensitive(XtNameToWidget(d, "*filelistDel")));
  XtCallCallbacks(XtNameToWidget(d, "*filelistDown"), XmNactivateCallback, nullptr);
  XtCallCallbacks(XtNameToWidget(d, "*filelistDel"), XmNactivateCallback, nullptr);
  // Removed: the first entry, moved to second place.
  XtVaGetValues(list, XmNitemCount, &count, nullptr);
  EXPECT_EQ(count, 2);

  // Return is Go: the show starts on the list as it now stands.
  Xdo("key --delay 20 Return", d);
  ASSERT_TRUE(RunUntil(2000, [] { return ShownSlideShow() != nullptr; }));
  EXPECT_EQ(ShownSlideDialog(), nullptr);
  EXPECT_EQ(State().title, files[1]);
  // The show's keys work as soon as it appears.
  Xdo("key --delay 20 Escape", ShownSlideShow());
  EXPECT_TRUE(RunUntil(2000, [] { return ShownSlideShow() == nullptr; }));
}

TEST_F(SlideTest, DialogSavesAndLoadsSlideFilesAddingTheExtension) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped()) return;
  const std::vector<std::string> files = Three();
  SlideList l;
  l.entries = files;
  l.switches = kSlideTimer | kSlideLoop;
  l.timer = 7;
  Widget d = OpenSlideDialog(l);
  ASSERT_NE(d, nullptr);
  // The selector is answered with a typed name, as a user would.
  g_selector_titles.clear();
  SetSelectorHook([](Widget shell) {
    g_selector_titles.push_back(XtName(shell));
    char *title = nullptr;
    XtVaGetValues(shell, XmNtitle, &title, nullptr);
    g_selector_titles.back() = title;
    XtAppAddTimeOut(App().app, 20, [](XtPointer client, XtIntervalId *) {
      Widget sh = static_cast<Widget>(client);
      XmTextFieldSetString(XtNameToWidget(sh, "*textField1"), const_cast<char *>(g_answer.c_str()));
      XtCallCallbacks(XtNameToWidget(sh, "*pushButton2"), XmNactivateCallback, nullptr);
    }, shell);
  });
  g_answer = dir_.file("saved");
  XtCallCallbacks(XtNameToWidget(d, "*slideSave"), XmNactivateCallback, nullptr);
  const std::string saved = dir_.file("saved.sld");
  ASSERT_TRUE(testutil::FileExists(saved));
  const std::string text = testutil::ReadFile(saved);
  EXPECT_EQ(text.rfind("# Slide Show Sequence\nTimer = 7\nLoop = 1\n", 0), 0u) << text;
  for (const std::string &f : files) EXPECT_NE(text.find("\"" + f + "\"\n"), std::string::npos) << f;

  // Emptied, then loaded again: the entries and switches come back.
  XtCallCallbacks(XtNameToWidget(d, "*filelistDelAll"), XmNactivateCallback, nullptr);
  XmToggleButtonSetState(XtNameToWidget(d, "*SlideLoop"), False, False);
  Widget list = XtNameToWidget(d, "*filelist");
  int count = -1;
  XtVaGetValues(list, XmNitemCount, &count, nullptr);
  EXPECT_EQ(count, 0);
  EXPECT_FALSE(XtIsSensitive(XtNameToWidget(d, "*filelistDel")));
  g_answer = saved;
  XtCallCallbacks(XtNameToWidget(d, "*slideLoad"), XmNactivateCallback, nullptr);
  XtVaGetValues(list, XmNitemCount, &count, nullptr);
  EXPECT_EQ(count, 3);
  EXPECT_TRUE(XmToggleButtonGetState(XtNameToWidget(d, "*SlideLoop")));
  char *value = XmTextFieldGetString(XtNameToWidget(d, "*SlideTimerValue"));
  EXPECT_STREQ(value, "7");
  XtFree(value);
  // An empty list saves nothing.
  XtCallCallbacks(XtNameToWidget(d, "*filelistDelAll"), XmNactivateCallback, nullptr);
  g_answer = dir_.file("none.sld");
  XtCallCallbacks(XtNameToWidget(d, "*slideSave"), XmNactivateCallback, nullptr);
  EXPECT_FALSE(testutil::FileExists(g_answer));
  SetSelectorHook(nullptr);
  EXPECT_TRUE(Boxes().empty());
  EXPECT_EQ(g_selector_titles,
            (std::vector<std::string>{"Save Slide File...", "Load Slide File...", "Save Slide File..."}));
}

TEST_F(SlideTest, SlideFileStartsItsShowAndUnopenableFileIsReported) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped()) return;
  const std::vector<std::string> files = Three();
  const std::string sld = dir_.file("show.sld");
  testutil::WriteFile(sld, "# Slide Show Sequence\nTimer = 0\nLoop = 1\nReadErrors = 1\n\"" + files[2] + "\"\n\"" +
                               files[0] + "\"\n");
  ASSERT_NE(OpenSlideShow(owner_, sld.c_str()), nullptr);
  SlideShowState s = State();
  EXPECT_EQ(s.title, files[2]);
  // Timer 0 runs the timer at one second; title bar off by default, read
  // errors reported as the file asks.
  EXPECT_EQ(s.switches, kSlideTimer | kSlideLoop | kSlideNoTitle);
  EXPECT_TRUE(s.scheduled);
  Key(XK_Escape);

  const std::string missing = dir_.file("missing.sld");
  EXPECT_EQ(OpenSlideShow(owner_, missing.c_str()), nullptr);
  EXPECT_EQ(Boxes(), (std::vector<std::string>{"Can't open file : " + missing}));

  // A file that is not a slide file opens the dialog, with no message.
  Boxes().clear();
  testutil::WriteFile(sld, "\"" + files[0] + "\"\n");
  Widget d = OpenSlideShow(owner_, sld.c_str());
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d, ShownSlideDialog());
  EXPECT_TRUE(Boxes().empty());
}

TEST_F(SlideTest, ViewCommandOpensTheDialog) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped()) return;
  const std::string a = Solid("a.png", 40, 30, 10, 10, 10);
  Widget view = OpenViewOnFile(App().shell, a.c_str(), 0);
  ASSERT_NE(view, nullptr);
  RunViewCommand(view, "slideShow");
  Pump();
  Widget d = ShownSlideDialog();
  ASSERT_NE(d, nullptr);
  // Escape cancels the dialog.
  if (testutil::HaveTool("xdotool")) {
    Xdo("key --delay 20 Escape", d);
    EXPECT_TRUE(RunUntil(2000, [] { return ShownSlideDialog() == nullptr; }));
  }
}

}  // namespace
