// Bubble help on a real X server: shows after the delay below its button,
// hides on leave and on a click, stays on the screen at the right edge, and
// honours the switch.
#include <gtest/gtest.h>

#include <X11/Intrinsic.h>
#include <X11/StringDefs.h>
#include <Xm/PushB.h>
#include <Xm/Xm.h>

#include <chrono>
#include <cstdlib>

#include "gui_util.h"
#include "widgets/BubbleHelp.h"

namespace {

bool g_enabled = true;
Boolean Enabled() { return g_enabled ? True : False; }

// One connection for the whole suite, as in the program (Motif keeps
// per-display caches that outlive a closed connection).
class BubbleTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    const char *name = std::getenv("QUILLA_TEST_DISPLAY");
    if (!name) return;
    XtToolkitInitialize();
    app_ = XtCreateApplicationContext();
    int argc = 0;
    dpy_ = XtOpenDisplay(app_, name, "test", "Quilla", nullptr, 0, &argc, nullptr);
  }
  void SetUp() override {
    if (!dpy_) GTEST_SKIP() << "no X server (scripts/test starts one)";
    BubbleHelpSetDelay(200);
    BubbleHelpSetEnabledProc(Enabled);
    g_enabled = true;
  }
  void TearDown() override {
    if (!dpy_) return;
    if (shell_) XtDestroyWidget(shell_);
    Pump(20);
  }
  // A shell at (x, y) holding one button with a bubble.
  void MakeButton(int x, int y) {
    shell_ = XtVaAppCreateShell("test", "Quilla", applicationShellWidgetClass, dpy_, XmNx, x, XmNy, y,
                                XmNoverrideRedirect, True, nullptr);
    button_ = XtVaCreateManagedWidget("tbZoomIn", xmPushButtonWidgetClass, shell_, XmNwidth, 24, XmNheight, 24,
                                      XmNrecomputeSize, False, nullptr);
    BubbleHelpAttach(button_, "Zoom In (+) and a rather long text to reach past the edge");
    XtRealizeWidget(shell_);
    Pump(200);
  }
  static void Pump(int ms) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (std::chrono::steady_clock::now() < end) {
      XSync(dpy_, False);
      while (XtAppPending(app_)) XtAppProcessEvent(app_, XtIMAll);
      struct timespec t {0, 5000000};
      nanosleep(&t, nullptr);
    }
  }
  // Crossing and button events sent to the button's window, as the server
  // would deliver them; the real pointer is shared with the other tests.
  void Send(int type) {
    XEvent e{};
    e.xany.type = type;
    e.xany.display = dpy_;
    e.xany.window = XtWindow(button_);
    if (type == EnterNotify || type == LeaveNotify) {
      e.xcrossing.x = e.xcrossing.y = 5;
      e.xcrossing.mode = NotifyNormal;
      e.xcrossing.detail = NotifyAncestor;
      e.xcrossing.same_screen = True;
    } else {
      e.xbutton.button = 1;
      e.xbutton.same_screen = True;
    }
    const long mask = type == EnterNotify ? EnterWindowMask : type == LeaveNotify ? LeaveWindowMask : ButtonPressMask;
    XSendEvent(dpy_, XtWindow(button_), False, mask, &e);
    XFlush(dpy_);
  }
  static XtAppContext app_;
  static Display *dpy_;
  Widget shell_ = nullptr, button_ = nullptr;
};

XtAppContext BubbleTest::app_ = nullptr;
Display *BubbleTest::dpy_ = nullptr;

TEST_F(BubbleTest, ShowsAfterTheDelayBelowTheButtonAndHidesOnLeaveAndClick) {
  MakeButton(100, 100);
  Send(EnterNotify);
  Pump(80);
  EXPECT_EQ(BubbleHelpShown(), nullptr) << "before the delay";
  Pump(400);
  Widget bubble = BubbleHelpShown();
  ASSERT_NE(bubble, nullptr);
  EXPECT_EQ(guitest::LabelText(bubble, "BubbleText"), "Zoom In (+) and a rather long text to reach past the edge");
  Position bx, by, rx, ry;
  XtVaGetValues(bubble, XmNx, &bx, XmNy, &by, nullptr);
  XtTranslateCoords(button_, 0, 0, &rx, &ry);
  EXPECT_GE(by, ry + 24) << "below the button";
  EXPECT_NEAR(bx, rx, 8);
  Send(LeaveNotify);
  Pump(100);
  EXPECT_EQ(BubbleHelpShown(), nullptr) << "hidden on leave";
  Send(EnterNotify);
  Pump(400);
  ASSERT_NE(BubbleHelpShown(), nullptr);
  Send(ButtonPress);
  Pump(100);
  EXPECT_EQ(BubbleHelpShown(), nullptr) << "hidden on a click";
  // Leaving before the delay: nothing shows.
  Send(EnterNotify);
  Pump(50);
  Send(LeaveNotify);
  Pump(400);
  EXPECT_EQ(BubbleHelpShown(), nullptr);
}

TEST_F(BubbleTest, StaysOnTheScreenAtTheRightEdgeAndHonoursTheSwitch) {
  const int sw = DisplayWidth(dpy_, DefaultScreen(dpy_));
  MakeButton(sw - 30, 200);
  g_enabled = false;
  Send(EnterNotify);
  Pump(400);
  EXPECT_EQ(BubbleHelpShown(), nullptr) << "tool tips switched off";
  g_enabled = true;
  Send(LeaveNotify);
  Send(EnterNotify);
  Pump(400);
  Widget bubble = BubbleHelpShown();
  ASSERT_NE(bubble, nullptr);
  Position bx;
  Dimension bw, border;
  XtVaGetValues(bubble, XmNx, &bx, XmNwidth, &bw, XmNborderWidth, &border, nullptr);
  EXPECT_LE(bx + bw + 2 * border, sw);
  EXPECT_GT(bw, 100) << "the whole text";
  Send(LeaveNotify);
  Pump(50);
}

}  // namespace
