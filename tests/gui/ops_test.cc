// The picture operations of the view on real X servers: the Image, Filter
// and Effects menus, a parameter dialog answered by keys (Return accepts,
// Escape cancels) with the pixels checked against the operation and undone,
// the crop selection drawn with the mouse at two zooms, resize to a size,
// the Advanced Operations list built and applied, and the user filters.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <X11/Intrinsic.h>
#include <X11/Shell.h>
#include <X11/keysym.h>
#include <Xm/List.h>
#include <Xm/RowColumn.h>
#include <Xm/TextF.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include "core/app_x.h"
#include "core/settings.h"
#include "gui_util.h"
#include "imgproc/point.h"
#include "imgproc/userfilter.h"
#include "test_util.h"
#include "view/op_dialogs_x.h"
#include "view/op_model.h"
#include "view/view_x.h"

namespace {

using namespace quilla;
using guitest::Pump;

// What the test does when a dialog of the operations is up.
std::function<void(Widget)> g_step;
std::vector<std::string> g_seen;  // names of the dialogs that came up
void Hook(Widget shell) {
  g_seen.push_back(XtName(shell));
  if (g_step) g_step(shell);
}

class OpsTest : public guitest::GuiTest {
 protected:
  void Open(const char *env) {
    guitest::GuiTest::Open(env);
    if (IsSkipped()) return;
    Settings().View.MouseNavigation = false;
    SetOpDialogHook(Hook);
    g_seen.clear();
    g_step = nullptr;
  }
  void TearDown() override {
    g_step = nullptr;
    SetOpDialogHook(nullptr);
    if (dpy_) guitest::CloseAllViews();
  }
  Widget OpenPicture(int model, int w, int h) {
    return OpenFile(testutil::Pic(testutil::MakePicture(model, w, h, 5)));
  }
  Widget OpenFile(const TslPicture &p) {
    const std::string path = dir_.file("p.png");
    EXPECT_TRUE(guitest::SavePicture(path, p));
    Widget shell = OpenViewOnFile(App().shell, path.c_str(), 0);
    Pump();
    return shell;
  }
  // A copy of the view's picture (empty when there is none).
  testutil::Pic Copy(Widget shell) {
    testutil::Pic c;
    const TslPicture *p = ViewCurrentPicture(shell);
    EXPECT_NE(p, nullptr);
    if (p) {
      EXPECT_EQ(tslCopyPicture(&c, p), 0);
    }
    return c;
  }
  // `original` with `op` applied, as the view should show it.
  template <typename Op>
  testutil::Pic Applied(const testutil::Pic &original, Op op) {
    testutil::Pic out = original.clone();
    EXPECT_EQ(op(&out), 0);
    return out;
  }
  // A key sent to a window (the view's drawing area, a dialog's focus).
  void SendKey(Window win, KeySym sym, unsigned state = 0) { guitest::SendKey(dpy_, win, sym, state); }
  // Types into the widget with the keyboard in a dialog: its text replaced
  // by `text`, then `last` (Return, Escape or nothing).
  void Type(Widget dialog, const std::string &text, KeySym last) {
    Widget focus = XmGetFocusWidget(dialog);
    ASSERT_NE(focus, nullptr);
    const Window win = XtWindow(focus);
    SendKey(win, XK_End);
    for (int k = 0; k < 8; ++k) SendKey(win, XK_BackSpace);
    for (char c : text) SendKey(win, c == '-' ? XK_minus : c == '.' ? XK_period : XK_0 + (c - '0'));
    if (last) SendKey(win, last);
  }
  // A button event at window point (x, y) of the view's picture window.
  void Mouse(Widget shell, int type, int x, int y, unsigned state = 0) {
    const ViewState s = State(shell);
    XEvent ev{};
    if (type == MotionNotify) {
      ev.xmotion.type = MotionNotify;
      ev.xmotion.display = dpy_;
      ev.xmotion.window = s.canvas;
      ev.xmotion.x = x, ev.xmotion.y = y;
      ev.xmotion.state = state;
      ev.xmotion.same_screen = True;
      XSendEvent(dpy_, s.canvas, True, PointerMotionMask, &ev);
    } else {
      ev.xbutton.type = type;
      ev.xbutton.display = dpy_;
      ev.xbutton.window = s.canvas;
      ev.xbutton.x = x, ev.xbutton.y = y;
      ev.xbutton.button = Button1;
      ev.xbutton.state = state;
      ev.xbutton.same_screen = True;
      XSendEvent(dpy_, s.canvas, True, type == ButtonPress ? ButtonPressMask : ButtonReleaseMask, &ev);
    }
    Pump();
  }
  // Draws the selection from picture point (x0, y0) to (x1, y1) at the zoom shown.
  void DrawSelection(Widget shell, int x0, int y0, int x1, int y1) {
    const ViewState s = State(shell);
    auto wx = [&](int px) { return s.org_x + static_cast<int>(px * s.zoom / 100.0 + 0.5); };
    auto wy = [&](int py) { return s.org_y + static_cast<int>(py * s.zoom / 100.0 + 0.5); };
    Mouse(shell, ButtonPress, wx(x0), wy(y0));
    Mouse(shell, MotionNotify, (wx(x0) + wx(x1)) / 2, (wy(y0) + wy(y1)) / 2, Button1Mask);
    Mouse(shell, MotionNotify, wx(x1), wy(y1), Button1Mask);
    Mouse(shell, ButtonRelease, wx(x1), wy(y1), Button1Mask);
  }
  // Activates the menu entry `name` of the view's menus.
  void Menu(Widget shell, const char *name) {
    Widget b = XtNameToWidget(shell, (std::string("*") + name).c_str());
    ASSERT_NE(b, nullptr) << name;
    ASSERT_TRUE(XtIsSensitive(b)) << name;
    XtCallCallbacks(b, XmNactivateCallback, nullptr);
    Pump();
  }
  std::string Label(Widget shell) { return guitest::LabelText(shell, "*labelInfo"); }
};

// The sub-picture (x, y, w, h) of a picture equals another picture.
bool SameRegion(const TslPicture &big, int x, int y, const TslPicture &small) {
  const int bpp = big.bytes_per_pixel;
  for (uint32_t r = 0; r < small.height; ++r)
    if (std::memcmp(big.pixels + (y + r) * big.bytes_per_line + x * bpp, small.pixels + r * small.bytes_per_line,
                    small.width * bpp) != 0)
      return false;
  return true;
}

TEST_F(OpsTest, MenusReachEveryOperationAndEveryEntryRunsOne) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  Widget shell = OpenPicture(TSL_RGB, 80, 60);
  ASSERT_NE(shell, nullptr);
  EXPECT_TRUE(XtIsSensitive(XtNameToWidget(shell, "*MenuEdit.crop")));
  EXPECT_TRUE(XtIsSensitive(XtNameToWidget(shell, "*MenuEdit.resize")));
  // Every catalogue row has a sensitive entry somewhere in the menus.
  std::set<int> rows;
  for (int top = 0; top < 3; ++top)
    for (int sub = kSubNone; sub < kOpSubmenuCount; ++sub)
      for (const OpMenuItem &item : OpMenuItems(top, sub)) {
        Widget b = XtNameToWidget(shell, ("*" + item.name).c_str());
        ASSERT_NE(b, nullptr) << item.name;
        if (XtIsSensitive(b)) rows.insert(item.row);
      }
  EXPECT_EQ(static_cast<int>(rows.size()), OpCatalogueCount());
  // An entry without parameters runs at once: Negative twice is the picture.
  testutil::Pic before = Copy(shell);
  Menu(shell, "opNegate");
  EXPECT_TRUE(State(shell).modified);
  testutil::Pic once = Copy(shell);
  EXPECT_FALSE(testutil::SamePixels(before, once));
  Menu(shell, "opNegate");
  testutil::Pic twice = Copy(shell);
  EXPECT_TRUE(testutil::SamePixels(before, twice));
  EXPECT_TRUE(g_seen.empty());
  // A choice entry runs with the menu's dithering: 16 grey levels.
  Menu(shell, "opGrey2");
  const TslPicture *grey = ViewCurrentPicture(shell);
  ASSERT_NE(grey, nullptr);
  std::set<int> levels;
  std::vector<uint8_t> rgb(grey->width * 3);
  for (uint32_t y = 0; y < grey->height; ++y) {
    tslGetRowRGB(grey, y, rgb.data());
    for (uint32_t x = 0; x < grey->width; ++x) {
      EXPECT_TRUE(rgb[x * 3] == rgb[x * 3 + 1] && rgb[x * 3] == rgb[x * 3 + 2]);
      levels.insert(rgb[x * 3]);
    }
  }
  EXPECT_LE(levels.size(), 16u);
  EXPECT_GT(levels.size(), 2u);
}

TEST_F(OpsTest, ParameterDialogReturnAppliesEscapeCancelsUndoRestores) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  Widget shell = OpenPicture(TSL_RGB, 90, 70);
  ASSERT_NE(shell, nullptr);
  testutil::Pic original = Copy(shell);
  // Escape: the picture stays as it was, not modified.
  g_step = [this](Widget d) { Type(d, "99", XK_Escape); };
  Menu(shell, "opBrightness");
  ASSERT_EQ(g_seen, std::vector<std::string>{"QuillParameters"});
  testutil::Pic after_cancel = Copy(shell);
  EXPECT_TRUE(testutil::SamePixels(original, after_cancel));
  EXPECT_FALSE(State(shell).modified);
  // Return: the keyboard starts in the value's field; the typed value is
  // applied exactly as the operation computes it.
  std::string focus;
  g_step = [&](Widget d) {
    Widget f = XmGetFocusWidget(d);
    focus = f ? XtName(f) : "";
    Type(d, "-60", XK_Return);
  };
  Menu(shell, "opBrightness");
  EXPECT_EQ(focus, "textValue0");
  testutil::Pic expected = Applied(original, [](TslPicture *p) { return Brightness(p, nullptr, nullptr, -60); });
  testutil::Pic shown = Copy(shell);
  EXPECT_TRUE(testutil::SamePixels(expected, shown));
  EXPECT_TRUE(State(shell).modified);
  EXPECT_EQ(Settings().Process.LastValue[5], -60);
  // The next time the dialog shows the value remembered.
  std::string remembered;
  g_step = [&](Widget d) {
    char *s = XmTextFieldGetString(XtNameToWidget(d, "*textValue0"));
    remembered = s;
    XtFree(s);
    Type(d, "", XK_Escape);
  };
  Menu(shell, "opBrightness");
  EXPECT_EQ(remembered, "-60");
  // Ctrl+Z: back to the original.
  ViewKey(shell, XK_z, ControlMask);
  testutil::Pic undone = Copy(shell);
  EXPECT_TRUE(testutil::SamePixels(original, undone));
  EXPECT_FALSE(State(shell).modified);
}

TEST_F(OpsTest, RefusedOperationIsExplainedAndChangesNothing) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  Widget shell = OpenPicture(TSL_BINARY, 40, 30);
  ASSERT_NE(shell, nullptr);
  guitest::AnswerMessageBoxes boxes;
  testutil::Pic before = Copy(shell);
  Menu(shell, "opEdetail");
  EXPECT_EQ(boxes.Texts(), std::vector<std::string>{OpStatusText(17)});
  testutil::Pic after = Copy(shell);
  EXPECT_TRUE(testutil::SamePixels(before, after));
  EXPECT_FALSE(State(shell).modified);
}

TEST_F(OpsTest, CropToTheRectangleDrawnAtTwoZooms) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  Widget shell = OpenPicture(TSL_RGB, 120, 90);
  ASSERT_NE(shell, nullptr);
  ASSERT_DOUBLE_EQ(State(shell).zoom, 100.0);
  testutil::Pic original = Copy(shell);
  DrawSelection(shell, 10, 20, 60, 50);
  EXPECT_NE(Label(shell).find("Selection 50x30 at 10,20"), std::string::npos) << Label(shell);
  OpRect sel{};
  ASSERT_TRUE(ViewGetSelection(shell, &sel));
  ViewKey(shell, XK_y, ControlMask);
  EXPECT_TRUE(g_seen.empty());  // no question with a selection
  ViewState s = State(shell);
  ASSERT_EQ(s.width, 50u);
  ASSERT_EQ(s.height, 30u);
  testutil::Pic cropped = Copy(shell);
  EXPECT_TRUE(SameRegion(original, 10, 20, cropped));
  EXPECT_FALSE(ViewGetSelection(shell, &sel));  // the selection went with the crop
  EXPECT_EQ(Label(shell).find("Selection"), std::string::npos);
  ViewKey(shell, XK_z, ControlMask);
  EXPECT_EQ(State(shell).width, 120u);

  // At 300% (scrolled when larger than the window) the same picture points
  // give the same rectangle.
  ViewKey(shell, XK_plus, ShiftMask);
  ViewKey(shell, XK_plus, ShiftMask);
  s = State(shell);
  ASSERT_NE(s.zoom, 100.0);
  ViewKey(shell, XK_Right);
  DrawSelection(shell, 7, 3, 37, 33);
  ASSERT_TRUE(ViewGetSelection(shell, &sel));
  EXPECT_EQ(sel.x, 7);
  EXPECT_EQ(sel.y, 3);
  EXPECT_EQ(sel.width, 30);
  EXPECT_EQ(sel.height, 30);
  ViewKey(shell, XK_y, ControlMask);
  testutil::Pic cropped2 = Copy(shell);
  ASSERT_EQ(cropped2->width, 30u);
  EXPECT_TRUE(SameRegion(original, 7, 3, cropped2));
  // A click without a drag takes the selection away.
  ViewKey(shell, XK_z, ControlMask);
  DrawSelection(shell, 5, 5, 20, 20);
  ASSERT_TRUE(ViewGetSelection(shell, &sel));
  const ViewState z = State(shell);
  Mouse(shell, ButtonPress, z.org_x + 40, z.org_y + 40);
  Mouse(shell, ButtonRelease, z.org_x + 40, z.org_y + 40);
  EXPECT_FALSE(ViewGetSelection(shell, &sel));
}

TEST_F(OpsTest, CropWithoutSelectionAsksForTheRectangle) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  Widget shell = OpenPicture(TSL_RGB, 64, 48);
  ASSERT_NE(shell, nullptr);
  g_step = [this](Widget d) {
    // X, Y, Width, Height: the keyboard starts in X.
    Type(d, "4", 0);
    XmTextFieldSetString(XtNameToWidget(d, "*textWidth"), const_cast<char *>("16"));
    XmTextFieldSetString(XtNameToWidget(d, "*textHeight"), const_cast<char *>("8"));
    SendKey(XtWindow(XmGetFocusWidget(d)), XK_Return);
  };
  ViewKey(shell, XK_y, ControlMask);
  EXPECT_EQ(g_seen, std::vector<std::string>{"QuillParameters"});
  EXPECT_EQ(State(shell).width, 16u);
  EXPECT_EQ(State(shell).height, 8u);
}

TEST_F(OpsTest, AutoCropTrimsTheBackgroundBorderOrSaysNothingIsLeft) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  testutil::Pic p(testutil::MakePicture(TSL_RGB, 40, 30));
  for (uint32_t y = 0; y < 30; ++y)
    for (uint32_t x = 0; x < 40; ++x) {
      const bool inside = x >= 6 && x < 31 && y >= 4 && y < 20;
      std::memset(p->pixels + y * p->bytes_per_line + x * 3, inside ? 0x20 : 0xF8, 3);
    }
  Widget shell = OpenFile(p);
  ASSERT_NE(shell, nullptr);
  Settings().AutoCrop.BackColor = 0xFFFFFF;
  Settings().AutoCrop.Tolerance = 8;
  Menu(shell, "autoCrop");
  EXPECT_EQ(State(shell).width, 25u);
  EXPECT_EQ(State(shell).height, 16u);
  // What is left is all of one colour: a background that matches it leaves nothing.
  guitest::AnswerMessageBoxes boxes;
  Settings().AutoCrop.BackColor = 0x202020;
  Menu(shell, "autoCrop");
  ASSERT_EQ(boxes.Texts().size(), 1u);
  EXPECT_NE(boxes.Texts()[0].find("nothing would be left"), std::string::npos) << boxes.Texts()[0];
  EXPECT_EQ(State(shell).width, 25u);
}

TEST_F(OpsTest, ResizeToATypedSizeKeepingTheRatio) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  Widget shell = OpenPicture(TSL_RGB, 120, 90);
  ASSERT_NE(shell, nullptr);
  Settings().Resize.KeepRatio = true;
  Settings().Resize.Resample = kResampleQuick;
  std::string focus, height, resample;
  g_step = [&](Widget d) {
    Widget f = XmGetFocusWidget(d);
    focus = f ? XtName(f) : "";
    Type(d, "60", 0);
    Pump();
    char *s = XmTextFieldGetString(XtNameToWidget(d, "*textSizeHeight"));
    height = s;
    XtFree(s);
    Widget chosen = nullptr;
    XtVaGetValues(XtNameToWidget(d, "*optionSizeResample"), XmNmenuHistory, &chosen, nullptr);
    resample = chosen ? XtName(chosen) : "";
    SendKey(XtWindow(f), XK_Return);
  };
  ViewKey(shell, XK_S, ShiftMask);
  EXPECT_EQ(focus, "textSizeWidth");
  EXPECT_EQ(height, "45");  // the ratio is kept while typing
  EXPECT_EQ(resample, "resample2");
  ViewState s = State(shell);
  EXPECT_EQ(s.width, 60u);
  EXPECT_EQ(s.height, 45u);
  EXPECT_TRUE(s.modified);
  // Percent, ratio off: the settings remember the choices.
  g_step = [&](Widget d) {
    XmToggleButtonSetState(XtNameToWidget(d, "*toggleSizeRatio"), False, True);
    XmToggleButtonSetState(XtNameToWidget(d, "*toggleSizePerc"), True, True);
    XmTextFieldSetString(XtNameToWidget(d, "*textSizeWidth"), const_cast<char *>("200"));
    XmTextFieldSetString(XtNameToWidget(d, "*textSizeHeight"), const_cast<char *>("100"));
    SendKey(XtWindow(XmGetFocusWidget(d)), XK_Return);
  };
  ViewKey(shell, XK_S, ShiftMask);
  s = State(shell);
  EXPECT_EQ(s.width, 120u);
  EXPECT_EQ(s.height, 45u);
  EXPECT_FALSE(Settings().Resize.KeepRatio);
}

TEST_F(OpsTest, AdvancedOperationsListIsBuiltAppliedAndKept) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  Widget shell = OpenPicture(TSL_RGB, 50, 40);
  ASSERT_NE(shell, nullptr);
  testutil::Pic original = Copy(shell);
  std::string command;
  int items = 0;
  g_step = [&](Widget d) {
    Widget choice = XtNameToWidget(d, "*listChoice");
    Widget add = XtNameToWidget(d, "*buttonAdd");
    for (const char *opt : {"-negate", "-xflip", "-posterize"}) {
      XmListSelectPos(choice, OpCatalogueFind(opt, nullptr) + 1, False);
      XtCallCallbacks(add, XmNactivateCallback, nullptr);
    }
    // The last entry shows its panel: two posterize levels.
    XmTextFieldSetString(XtNameToWidget(d, "*textValue0"), const_cast<char *>("2"));
    // Remove takes the selected entry away; the list then applies.
    XmListSelectPos(XtNameToWidget(d, "*listProcess"), 2, True);
    XtCallCallbacks(XtNameToWidget(d, "*buttonRemove"), XmNactivateCallback, nullptr);
    XtVaGetValues(XtNameToWidget(d, "*listProcess"), XmNitemCount, &items, nullptr);
    command = guitest::LabelText(d, "*labelCommand");
    XtCallCallbacks(XtNameToWidget(d, "*buttonApply"), XmNactivateCallback, nullptr);
    SendKey(XtWindow(XmGetFocusWidget(d)), XK_Return);
  };
  Menu(shell, "advancedOperations");
  EXPECT_EQ(g_seen, std::vector<std::string>{"QuillOp"});
  EXPECT_EQ(items, 2);
  EXPECT_EQ(command, "-negate -posterize 2 ");
  OpProcessList list = {OpDefaultProcess(OpCatalogueFind("-negate", nullptr)),
                        OpDefaultProcess(OpCatalogueFind("-posterize", nullptr))};
  list[1].params.i[0] = 2;
  testutil::Pic expected = Applied(original, [&](TslPicture *p) { return OpRunProcessList(p, list); });
  testutil::Pic shown = Copy(shell);
  EXPECT_TRUE(testutil::SamePixels(expected, shown));
  // The list stays for the next time; Escape leaves it as it was.
  int again = 0;
  g_step = [&](Widget d) {
    XtVaGetValues(XtNameToWidget(d, "*listProcess"), XmNitemCount, &again, nullptr);
    XtCallCallbacks(XtNameToWidget(d, "*buttonRemoveAll"), XmNactivateCallback, nullptr);
    SendKey(XtWindow(XmGetFocusWidget(d)), XK_Escape);
  };
  Menu(shell, "advancedOperations");
  EXPECT_EQ(again, 2);
  g_step = [&](Widget d) {
    XtVaGetValues(XtNameToWidget(d, "*listProcess"), XmNitemCount, &again, nullptr);
    SendKey(XtWindow(XmGetFocusWidget(d)), XK_Escape);
  };
  Menu(shell, "advancedOperations");
  EXPECT_EQ(again, 2);
}

TEST_F(OpsTest, UserFiltersApplyAndAreSavedOnlyWhenChanged) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  const std::string home = dir_.file("home");
  ASSERT_EQ(std::system(("mkdir -p '" + home + "/.quilla'").c_str()), 0);
  const std::string file = home + "/.quilla/udf.dat";
  {
    std::ofstream out(file);
    out << "# header\nSharpen | 3 0 0 | -1x4 12 -1x4\n";
  }
  const char *old_home = std::getenv("HOME");
  const std::string saved_home = old_home ? old_home : "";
  setenv("HOME", home.c_str(), 1);
  Widget shell = OpenPicture(TSL_RGB, 40, 30);
  ASSERT_NE(shell, nullptr);
  testutil::Pic original = Copy(shell);
  std::string focus, name;
  int count = 0;
  g_step = [&](Widget d) {
    Widget f = XmGetFocusWidget(d);
    focus = f ? XtName(f) : "";
    XtVaGetValues(XtNameToWidget(d, "*filterList"), XmNitemCount, &count, nullptr);
    char *s = XmTextFieldGetString(XtNameToWidget(d, "*filterName"));
    name = s;
    XtFree(s);
    XtCallCallbacks(XtNameToWidget(d, "*buttonApply"), XmNactivateCallback, nullptr);
    SendKey(XtWindow(f), XK_Return);  // O.K. with nothing changed
  };
  Menu(shell, "userFilter");
  EXPECT_EQ(focus, "filterName");
  EXPECT_EQ(count, 1);
  EXPECT_EQ(name, "Sharpen");
  UserFilter f;
  ASSERT_TRUE(ParseUserFilterLine("Sharpen | 3 0 0 | -1x4 12 -1x4", &f));
  testutil::Pic expected = Applied(original, [&](TslPicture *p) { return ApplyUserFilter(p, nullptr, nullptr, f); });
  testutil::Pic shown = Copy(shell);
  EXPECT_TRUE(testutil::SamePixels(expected, shown));
  auto read = [&] {
    std::ifstream in(file);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
  };
  EXPECT_EQ(read(), "# header\nSharpen | 3 0 0 | -1x4 12 -1x4\n");  // not rewritten
  // New filter, then Cancel: nothing written; then New and O.K.: saved.
  for (KeySym answer : {XK_Escape, XK_Return}) {
    g_step = [&](Widget d) {
      Type(d, "", 0);
      const Window name_win = XtWindow(XmGetFocusWidget(d));
      SendKey(name_win, XK_B, ShiftMask);
      SendKey(name_win, XK_o);
      SendKey(name_win, XK_x);
      Pump();
      XmTextFieldSetString(XtNameToWidget(d, "*filterDivisor"), const_cast<char *>("9"));
      for (int k = 0; k < 9; ++k)
        XmTextFieldSetString(XtNameToWidget(d, ("*Value" + std::to_string(k / 3 * 7 + k % 3)).c_str()),
                             const_cast<char *>("1"));
      XtCallCallbacks(XtNameToWidget(d, "*buttonNew"), XmNactivateCallback, nullptr);
      XtVaGetValues(XtNameToWidget(d, "*filterList"), XmNitemCount, &count, nullptr);
      SendKey(XtWindow(XmGetFocusWidget(d)), answer);
    };
    Menu(shell, "userFilter");
    EXPECT_EQ(count, 2);
    if (answer == XK_Escape) {
      EXPECT_EQ(read(), "# header\nSharpen | 3 0 0 | -1x4 12 -1x4\n");
    }
  }
  EXPECT_EQ(read(), std::string(kUserFilterHeader) + "Box | 3 9 0 | 1x9 \nSharpen  | 3 1 0 | -1x4 12 -1x4 \n");
  if (old_home) setenv("HOME", saved_home.c_str(), 1);
}

TEST_F(OpsTest, EightBitScreenRunsTheSameDialogs) {
  Open("QUILLA_TEST_DISPLAY8");
  if (IsSkipped() || HasFatalFailure()) return;
  Widget shell = OpenPicture(TSL_INDEXED, 60, 40);
  ASSERT_NE(shell, nullptr);
  testutil::Pic original = Copy(shell);
  g_step = [this](Widget d) { Type(d, "30", XK_Return); };
  Menu(shell, "opBrightness");
  testutil::Pic expected = Applied(original, [](TslPicture *p) { return Brightness(p, nullptr, nullptr, 30); });
  testutil::Pic shown = Copy(shell);
  EXPECT_TRUE(testutil::SamePixels(expected, shown));
  DrawSelection(shell, 2, 2, 22, 12);
  ViewKey(shell, XK_y, ControlMask);
  EXPECT_EQ(State(shell).width, 20u);
  EXPECT_EQ(State(shell).height, 10u);
}

}  // namespace
