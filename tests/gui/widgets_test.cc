// The progress and status bar widgets on a real X server.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <X11/Intrinsic.h>
#include <X11/StringDefs.h>
#include <Xm/Form.h>
#include <Xm/Xm.h>

#include <cstdlib>
#include <string>

#include "widgets/MyProgressBar.h"
#include "widgets/MyStatusBar.h"

namespace {

std::string g_warning;
void CatchWarning(String message) { g_warning = message; }

class WidgetsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char *name = std::getenv("QUILLA_TEST_DISPLAY");
    if (!name) name = std::getenv("DISPLAY");
    if (!name) GTEST_SKIP() << "no X server (scripts/test starts one)";
    XtToolkitInitialize();
    app_ = XtCreateApplicationContext();
    int argc = 0;
    display_ = XtOpenDisplay(app_, name, "test", "Quilla", nullptr, 0, &argc, nullptr);
    ASSERT_NE(display_, nullptr) << "cannot open " << name;
    XtAppSetWarningHandler(app_, CatchWarning);
    shell_ = XtVaAppCreateShell("test", "Quilla", applicationShellWidgetClass, display_, XmNwidth, 300, XmNheight,
                                100, nullptr);
    form_ = XmCreateForm(shell_, const_cast<char *>("form"), nullptr, 0);
    XtManageChild(form_);
    bar_ = MyCreateProgressBar(form_, "bar", nullptr, 0);
    status_ = MyCreateStatusBar(form_, "status", nullptr, 0);
    XtManageChild(bar_);
    XtManageChild(status_);
  }
  void TearDown() override {
    if (shell_) XtDestroyWidget(shell_);
    if (app_) XtDestroyApplicationContext(app_);
  }
  void Realize() {
    XtRealizeWidget(shell_);
    XSync(display_, False);
  }
  XtAppContext app_ = nullptr;
  Display *display_ = nullptr;
  Widget shell_ = nullptr, form_ = nullptr, bar_ = nullptr, status_ = nullptr;
};

TEST_F(WidgetsTest, ProgressStepsCountBothEndsOfTheRange) {
  Realize();
  MyProgressBarSetComponents(bar_, nullptr, 0, 99, 0);
  for (int i = 0; i < 99; ++i) MyProgressBarStepIt(bar_);
  EXPECT_EQ(MyProgressBarGetValue(bar_), 99);
  EXPECT_EQ(MyProgressBarGetPercent(bar_), 99);  // 0..99 ends at 99%
  long redraws = MyProgressBarRedrawCount(bar_);
  MyProgressBarStepIt(bar_);  // at the maximum: value stays, nothing redrawn
  EXPECT_EQ(MyProgressBarGetValue(bar_), 99);
  EXPECT_EQ(MyProgressBarRedrawCount(bar_), redraws);

  MyProgressBarSetComponents(bar_, nullptr, 1, 4, 1);
  for (int i = 0; i < 3; ++i) MyProgressBarStepIt(bar_);
  EXPECT_EQ(MyProgressBarGetPercent(bar_), 100);  // 1..N ends at 100%
}

TEST_F(WidgetsTest, StatusBarIgnoresBadPartsAndUnrealisedWidgets) {
  MyStatusBarSetNumberOfParts(status_, 3);
  XmString hello = XmStringCreateLocalized(const_cast<char *>("hello"));
  MyStatusBarSetText(status_, 0, hello, 0);  // not realised yet: nothing happens
  EXPECT_EQ(MyStatusBarGetText(status_, 0), nullptr);
  Realize();
  MyStatusBarSetText(status_, 5, hello, 0);  // part 5 of 3: nothing happens
  MyStatusBarSetText(status_, 1, hello, 0);
  XmString got = MyStatusBarGetText(status_, 1);
  ASSERT_NE(got, nullptr);
  EXPECT_TRUE(XmStringCompare(got, hello));
  XmStringFree(got);
  EXPECT_EQ(MyStatusBarGetValue(status_, 2), -1);
  MyStatusBarSetValue(status_, 2, 42);
  EXPECT_EQ(MyStatusBarGetValue(status_, 2), 42);
  XmStringFree(hello);
}

TEST_F(WidgetsTest, WrongClassGivesTheWarning) {
  g_warning.clear();
  MyProgressBarStepIt(form_);
  EXPECT_EQ(g_warning, "MyProgressBarStepIt: widget has invalid class");
  MyStatusBarSetNumberOfParts(bar_, 2);
  EXPECT_EQ(g_warning, "MyStatusBarSetNumberOfParts: widget has invalid class");
  MyProgressBarSetComponents(status_, nullptr, 0, 1, 0);
  EXPECT_EQ(g_warning, "MyProgressBarSetComponents: widget has invalid class");
}

}  // namespace
