// The combo box widget on a real X server: its class warnings, the pop-up
// list's geometry near the screen's edges, its children, and choosing by
// keys and by calls.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <X11/IntrinsicP.h>
#include <X11/Shell.h>
#include <X11/StringDefs.h>
#include <Xm/Form.h>
#include <Xm/List.h>
#include <Xm/XmP.h>

#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "gui_util.h"
#include "widgets/MyComboBox.h"

namespace {

std::vector<std::string> g_warnings;
void CatchWarning(String message) { g_warnings.push_back(message); }

struct Chosen {
  int reason = 0, position = 0, calls = 0;
  std::string item;
  bool had_event = false;
};

void Record(Widget, XtPointer client, XtPointer call) {
  auto *out = static_cast<Chosen *>(client);
  auto *cb = static_cast<MyComboBoxCallbackStruct *>(call);
  out->reason = cb->reason;
  out->position = cb->position;
  out->item = guitest::XmText(cb->item);
  out->had_event = cb->event != nullptr;
  ++out->calls;
}

XmString Str(const char *s) { return XmStringCreateLocalized(const_cast<char *>(s)); }

class ComboBoxTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char *name = std::getenv("QUILLA_TEST_DISPLAY");
    if (!name || !*name) GTEST_SKIP() << "QUILLA_TEST_DISPLAY unset (scripts/test starts the X servers)";
    // One connection for the whole program: Motif keeps per-display caches
    // that do not survive closing a display and opening it again.
    static XtAppContext app = nullptr;
    static Widget top = nullptr;
    if (!app) {
      XtToolkitInitialize();
      app = XtCreateApplicationContext();
      int argc = 0;
      Display *dpy = XtOpenDisplay(app, name, "test", "Quilla", nullptr, 0, &argc, nullptr);
      ASSERT_NE(dpy, nullptr) << "cannot open " << name;
      XtAppSetWarningHandler(app, CatchWarning);
      top = XtVaAppCreateShell("test", "Quilla", applicationShellWidgetClass, dpy, XmNmappedWhenManaged, False,
                               XmNwidth, 10, XmNheight, 10, nullptr);
      XtRealizeWidget(top);
    }
    app_ = app;
    dpy_ = XtDisplay(top);
    shell_ = XtVaCreatePopupShell("window", topLevelShellWidgetClass, top, XmNwidth, 200, XmNheight, 40, XmNx, 0,
                                  XmNy, 0, nullptr);
    form_ = XmCreateForm(shell_, const_cast<char *>("form"), nullptr, 0);
    XtManageChild(form_);
    combo_ = MyCreateComboBox(form_, "comboBox", nullptr, 0);
    XtVaSetValues(combo_, XmNwidth, 200, XmNleftAttachment, XmATTACH_FORM, XmNtopAttachment, XmATTACH_FORM, nullptr);
    XtManageChild(combo_);
    XtAddCallback(combo_, XmNcallback, Record, &chosen_);
    g_warnings.clear();
  }
  void TearDown() override {
    if (shell_) XtDestroyWidget(shell_);
    if (app_) Pump();
  }
  void Realize() {
    XtPopup(shell_, XtGrabNone);
    Pump();
  }
  void Pump() {
    for (int r = 0; r < 3; ++r) {
      XSync(dpy_, False);
      while (XtAppPending(app_)) XtAppProcessEvent(app_, XtIMAll);
    }
  }
  void Add(const std::vector<const char *> &items) {
    for (const char *i : items) {
      XmString s = Str(i);
      MyComboBoxAddItem(combo_, s, 0);
      XmStringFree(s);
    }
  }
  std::string Shown() {
    XmString s = MyComboBoxGetText(combo_);
    std::string t = guitest::XmText(s);
    XmStringFree(s);
    return t;
  }
  void Action(const char *name, Widget w = nullptr) { XtCallActionProc(w ? w : combo_, name, nullptr, nullptr, 0); }
  Widget Popup() { return XtNameToWidget(combo_, "ComboBoxMenuShell"); }
  Widget List() { return XtNameToWidget(combo_, "ComboBoxMenuShell.ComboBoxFrame*ComboBoxList"); }
  // The widest item's width in the combo box's font.
  int Widest(const std::vector<const char *> &items) {
    XmFontList fonts = nullptr;
    XtVaGetValues(combo_, XmNfontList, &fonts, nullptr);
    int widest = 0;
    for (const char *i : items) {
      XmString s = Str(i);
      widest = std::max(widest, static_cast<int>(XmStringWidth(fonts, s)));
      XmStringFree(s);
    }
    return widest;
  }
  void MoveShellTo(int x, int y) {
    XtVaSetValues(shell_, XmNx, x, XmNy, y, nullptr);
    XMoveWindow(dpy_, XtWindow(shell_), x, y);
    Pump();
  }

  XtAppContext app_ = nullptr;
  Display *dpy_ = nullptr;
  Widget shell_ = nullptr, form_ = nullptr, combo_ = nullptr;
  Chosen chosen_;
};

TEST_F(ComboBoxTest, EveryFunctionWarnsOnAnotherClass) {
  XmString s = Str("x");
  MyComboBoxAddItem(form_, s, 0);
  MyComboBoxDeleteAllItems(form_);
  MyComboBoxSetItem(form_, 1);
  MyComboBoxSelectItem(form_, s);
  MyComboBoxSelectPos(form_, 1);
  EXPECT_EQ(MyComboBoxGetSelectedPos(form_), 0);
  MyComboBoxAddItem(nullptr, s, 0);
  XmStringFree(s);
  const std::vector<std::string> expected = {
      "MyComboBoxAddItem: widget has invalid class",        "MyComboBoxDeleteAllItems: widget has invalid class",
      "MyComboBoxSetItem: widget has invalid class",        "MyComboBoxSelectItem: widget has invalid class",
      "MyComboBoxSelectPos: widget has invalid class",      "MyComboBoxGetSelectedPos: widget has invalid class",
      "MyComboBoxAddItem: widget has invalid class"};
  EXPECT_EQ(g_warnings, expected);
}

TEST_F(ComboBoxTest, ChoosingByCallsShowsTheItemAndNotifies) {
  Realize();
  Add({"jpeg", "png", "gif"});
  EXPECT_EQ(MyComboBoxGetItemCount(combo_), 3);
  EXPECT_EQ(MyComboBoxGetSelectedPos(combo_), 0);
  EXPECT_EQ(Shown(), "");

  XmString png = Str("png");
  MyComboBoxSelectItem(combo_, png);
  XmStringFree(png);
  EXPECT_EQ(Shown(), "png");
  EXPECT_EQ(MyComboBoxGetSelectedPos(combo_), 2);
  EXPECT_EQ(chosen_.calls, 1);
  EXPECT_EQ(chosen_.reason, 128);
  EXPECT_EQ(chosen_.position, 2);
  EXPECT_EQ(chosen_.item, "png");
  EXPECT_FALSE(chosen_.had_event);

  MyComboBoxSelectPos(combo_, 3);
  EXPECT_EQ(Shown(), "gif");
  EXPECT_EQ(MyComboBoxGetSelectedPos(combo_), 3);
  EXPECT_EQ(chosen_.calls, 2);
  // Out of range and unknown items change nothing.
  MyComboBoxSelectPos(combo_, 4);
  MyComboBoxSelectPos(combo_, 0);
  XmString none = Str("tiff");
  MyComboBoxSelectItem(combo_, none);
  XmStringFree(none);
  EXPECT_EQ(chosen_.calls, 2);
  EXPECT_EQ(MyComboBoxGetSelectedPos(combo_), 3);

  MyComboBoxDeleteAllItems(combo_);
  EXPECT_EQ(Shown(), "");
  EXPECT_EQ(MyComboBoxGetSelectedPos(combo_), 0);
  EXPECT_EQ(MyComboBoxGetItemCount(combo_), 0);
  Action("ComboBoxActivate");  // nothing to show: no pop-up
  EXPECT_FALSE(MyComboBoxIsPoppedUp(combo_));
  EXPECT_TRUE(g_warnings.empty());
}

TEST_F(ComboBoxTest, PopupOpensBelowWithTheWidestItemPlus42) {
  const std::vector<const char *> items = {"a", "a much longer item than the others", "bb"};
  Realize();
  MoveShellTo(100, 100);
  Add(items);
  MyComboBoxSelectPos(combo_, 2);
  Action("ComboBoxActivate");
  Pump();
  ASSERT_TRUE(MyComboBoxIsPoppedUp(combo_));
  // The pop-up's children, by name, and the list resources passed on.
  ASSERT_NE(List(), nullptr);
  EXPECT_TRUE(XtIsShell(Popup()));
  int visible = 0;
  XtVaGetValues(List(), XmNvisibleItemCount, &visible, nullptr);
  EXPECT_EQ(visible, 8);
  EXPECT_EQ(XtWidth(List()), Widest(items) + 42);
  Position cx = 0, cy = 0;
  XtTranslateCoords(combo_, 0, 0, &cx, &cy);
  EXPECT_EQ(XtX(Popup()), cx);
  EXPECT_EQ(XtY(Popup()), cy + XtHeight(combo_));
  EXPECT_EQ(MyComboBoxGetSelectedPos(combo_), 2);  // the shown item is highlighted

  // Escape in the list takes it down without a choice.
  const int calls = chosen_.calls;
  Action("ComboBoxKbdCancel", List());
  Pump();
  EXPECT_FALSE(MyComboBoxIsPoppedUp(combo_));
  EXPECT_EQ(chosen_.calls, calls);
  EXPECT_EQ(Shown(), items[1]);
}

TEST_F(ComboBoxTest, PopupNearTheEdgesStaysOnScreen) {
  const std::vector<const char *> items = {"one", "two", "three", "four", "a rather wide item to push it left",
                                           "six", "seven", "eight", "nine", "ten"};
  Realize();
  Add(items);
  Screen *screen = XtScreen(shell_);
  const int sw = WidthOfScreen(screen), sh = HeightOfScreen(screen);
  MoveShellTo(sw - 100, sh - 30);  // the combo box half off the bottom-right corner
  Action("ComboBoxActivate");
  Pump();
  ASSERT_TRUE(MyComboBoxIsPoppedUp(combo_));
  Widget p = Popup();
  const int pw = XtWidth(p) + 2 * XtBorderWidth(p), ph = XtHeight(p) + 2 * XtBorderWidth(p);
  EXPECT_EQ(XtX(p) + pw, sw);  // moved left to end at the edge
  EXPECT_EQ(XtY(p) + ph, sh);  // and up
  EXPECT_GE(XtX(p), 0);
  EXPECT_GE(XtY(p), 0);
  EXPECT_EQ(XtWidth(List()), Widest(items) + 42);
  // The window itself is where the widget says.
  XWindowAttributes attrs;
  XGetWindowAttributes(dpy_, XtWindow(p), &attrs);
  EXPECT_EQ(attrs.x + attrs.width + 2 * attrs.border_width, sw);
  EXPECT_EQ(attrs.map_state, IsViewable);
  MyComboBoxPopdown(combo_);
  Pump();
  EXPECT_FALSE(MyComboBoxIsPoppedUp(combo_));
}

TEST_F(ComboBoxTest, KeysOpenMoveChooseAndCancel) {
  if (std::system("command -v xdotool >/dev/null 2>&1") != 0) GTEST_SKIP() << "xdotool is not installed";
  Realize();
  Add({"jpeg", "png", "gif"});
  MyComboBoxSelectPos(combo_, 1);
  chosen_ = Chosen();
  guitest::FocusWhenMapped(dpy_, shell_);
  Pump();
  XmProcessTraversal(combo_, XmTRAVERSE_CURRENT);
  Pump();
  const std::string xdo = std::string("DISPLAY=") + DisplayString(dpy_) + " xdotool key --delay 30 ";
  auto keys = [&](const char *k) {
    ASSERT_EQ(std::system((xdo + k).c_str()), 0);
    for (int i = 0; i < 5; ++i) {
      Pump();
      usleep(10000);
    }
  };
  keys("Right");  // the next item, chosen at once
  EXPECT_EQ(chosen_.calls, 1);
  EXPECT_EQ(chosen_.position, 2);
  EXPECT_TRUE(chosen_.had_event);
  keys("Down");  // opens the list
  ASSERT_TRUE(MyComboBoxIsPoppedUp(combo_));
  keys("Down Return");  // moves in it, then chooses
  EXPECT_FALSE(MyComboBoxIsPoppedUp(combo_));
  EXPECT_EQ(chosen_.calls, 2);
  EXPECT_EQ(Shown(), "gif");
  keys("space");
  ASSERT_TRUE(MyComboBoxIsPoppedUp(combo_));
  keys("Up Escape");  // moved, then cancelled: nothing chosen
  EXPECT_FALSE(MyComboBoxIsPoppedUp(combo_));
  EXPECT_EQ(chosen_.calls, 2);
  EXPECT_EQ(Shown(), "gif");
  EXPECT_EQ(MyComboBoxGetSelectedPos(combo_), 3);
  keys("Left Left Left");  // stops at the first
  EXPECT_EQ(MyComboBoxGetSelectedPos(combo_), 1);
  EXPECT_EQ(chosen_.calls, 4);
}

}  // namespace
