// The Options dialog and the view's small dialogs on real X servers, driven
// by keys sent to the widget that has the keyboard: values kept through the
// settings file, Escape discarding, the Save page alone, the properties'
// size text, descriptions written, the page and resolution dialogs.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <X11/Intrinsic.h>
#include <X11/IntrinsicP.h>
#include <X11/Shell.h>
#include <X11/keysym.h>
#include <Xm/List.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>
#include <sys/stat.h>

#include <string>

#include "core/app_x.h"
#include "core/options_x.h"
#include "gui_util.h"
#include "view/view_x.h"

namespace {

using namespace quilla;

class OptionsTest : public guitest::GuiTest {
 public:
  using guitest::GuiTest::Key;  // for the time-out in SavePageAloneAnswersItsCaller
  using guitest::GuiTest::Retype;

 protected:
  void TearDown() override {
    if (!dpy_) return;
    if (Widget s = ShownOptions()) XtDestroyWidget(s);
    guitest::CloseAllViews();
    FreeFileTypes(&Settings());
  }
  // Runs the view command `word` and returns the dialog `name` it shows.
  Widget Command(Widget view, const char *word, const char *name) {
    RunViewCommand(view, word);
    Pump();
    return Dialog(view, name);
  }
  Widget OpenView(const std::string &path) {
    Widget shell = OpenViewOnFile(App().shell, path.c_str(), 0);
    Pump();
    return shell;
  }

  const std::string rc_ = dir_.file("rc");
};

TEST_F(OptionsTest, TypedValueIsKeptThroughTheSettingsFileAndEscapeDiscards) {
  for (const char *env : {"QUILLA_TEST_DISPLAY", "QUILLA_TEST_DISPLAY8"}) {
    SCOPED_TRACE(env);
    Open(env);
    if (HasFatalFailure() || IsSkipped()) return;
    // From the start window (no view): the command opens the dialog on its
    // first page with the first field's text selected, so typing replaces it.
    RunViewCommand(App().shell, "options");
    Pump();
    Widget shell = ShownOptions();
    ASSERT_NE(shell, nullptr);
    EXPECT_STREQ(XtName(shell), "QuillOption");
    EXPECT_EQ(FocusName(shell), "OptionStartXText");
    Retype(shell, "321");
    // A switch and a file type changed with the mouse, then Return for O.K.
    XmToggleButtonSetState(XtNameToWidget(shell, "*OptionViewUseUndo"), False, False);
    Widget types = XtNameToWidget(shell, "*PFileTypes*scrolledList");
    int jpeg = -1;
    for (int i = 0; i < Settings().file_type_count; ++i)
      if (std::string(Settings().file_types[i].name) == "jpeg") jpeg = i;
    ASSERT_GE(jpeg, 0);
    XmListDeselectPos(types, jpeg + 1);
    Key(shell, XK_Return);
    EXPECT_EQ(ShownOptions(), nullptr);
    EXPECT_EQ(Settings().Start.X, 321);
    EXPECT_FALSE(Settings().View.UseUndo);
    EXPECT_FALSE(Settings().file_types[jpeg].enabled);

    // Quitting writes the record; the next start reads it and the dialog shows it.
    ASSERT_TRUE(WriteSettingsFile(&Settings(), rc_));
    const std::string text = testutil::ReadFile(rc_);
    for (const char *line : {"\nStart.X = 321\n", "\nView.UseUndo = False\n", "\nFileTypes.jpeg = False\n",
                             "\nSave.JpegQuality = 100\n"})
      EXPECT_NE(text.find(line), std::string::npos) << line;
    ReadSettingsFile(&Settings(), rc_);
    RunViewCommand(App().shell, "options");
    Pump();
    shell = ShownOptions();
    ASSERT_NE(shell, nullptr);
    EXPECT_EQ(Field(shell, "*OptionStartXText"), "321");
    EXPECT_FALSE(XmToggleButtonGetState(XtNameToWidget(shell, "*OptionViewUseUndo")));
    EXPECT_FALSE(XmListPosSelected(XtNameToWidget(shell, "*PFileTypes*scrolledList"), jpeg + 1));

    // Escape throws the typing away.
    Retype(shell, "999");
    EXPECT_EQ(Field(shell, "*OptionStartXText"), "999");
    Key(shell, XK_Escape);
    EXPECT_EQ(ShownOptions(), nullptr);
    EXPECT_EQ(Settings().Start.X, 321);
    FreeFileTypes(&Settings());
  }
}

TEST_F(OptionsTest, OpenViewsFollowTheBarsChosenWithOk) {
  Open("QUILLA_TEST_DISPLAY");
  if (HasFatalFailure() || IsSkipped()) return;
  Settings().View.ToolBar = Settings().View.StatusBar = true;
  Widget view = OpenView(Png("a.png", 40, 30));
  ASSERT_NE(view, nullptr);
  Widget bar = XtNameToWidget(view, "*toolBar"), status = XtNameToWidget(view, "*messageWindow");
  ASSERT_TRUE(bar && status && XtIsManaged(bar) && XtIsManaged(status));
  RunViewCommand(view, "options");
  Pump();
  Widget shell = ShownOptions();
  ASSERT_NE(shell, nullptr);
  XmToggleButtonSetState(XtNameToWidget(shell, "*OptionViewToolBar"), False, False);
  XmToggleButtonSetState(XtNameToWidget(shell, "*OptionViewStatusBar"), False, False);
  Key(shell, XK_Return);
  EXPECT_FALSE(XtIsManaged(bar));
  EXPECT_FALSE(XtIsManaged(status));
}

TEST_F(OptionsTest, InvalidValueKeepsTheDialogOpenAndChangesNothing) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  RunViewCommand(App().shell, "options");
  Pump();
  Widget shell = ShownOptions();
  ASSERT_NE(shell, nullptr);
  XmToggleButtonSetState(XtNameToWidget(shell, "*OptionStartSavePosition"), True, False);
  XmTextFieldSetString(XtNameToWidget(shell, "*OptionJpegText"), const_cast<char *>("101"));
  Retype(shell, "55");  // a good value before the bad one: nothing is stored either
  Key(shell, XK_Return);
  ASSERT_EQ(ShownOptions(), shell);
  EXPECT_EQ(Settings().Start.X, -1);
  EXPECT_FALSE(Settings().Start.SavePosition);
  EXPECT_EQ(Settings().Save.JpegQuality, 100);
  EXPECT_NE(Label(shell, "*labelMessage").find("JPEG quality"), std::string::npos);
  // The Save page is shown with the wrong field holding the keyboard.
  EXPECT_TRUE(XtIsManaged(XtNameToWidget(shell, "*PSave")));
  EXPECT_FALSE(XtIsManaged(XtNameToWidget(shell, "*PStart")));
  EXPECT_EQ(FocusName(shell), "OptionJpegText");
  Retype(shell, "75");
  Key(shell, XK_Return);
  EXPECT_EQ(ShownOptions(), nullptr);
  EXPECT_EQ(Settings().Save.JpegQuality, 75);
  EXPECT_EQ(Settings().Start.X, 55);
  EXPECT_TRUE(Settings().Start.SavePosition);
}

TEST_F(OptionsTest, SavePageAloneAnswersItsCaller) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  static OptionsTest *self;
  self = this;
  static std::string focus;
  static bool start_page;
  for (bool escape : {false, true}) {
    SCOPED_TRACE(escape ? "Escape" : "Return");
    static bool esc;
    esc = escape;
    XtAppAddTimeOut(App().app, 200, [](XtPointer, XtIntervalId *) {
      Widget shell = ShownOptions();
      if (!shell) return;
      focus = XmGetFocusWidget(shell) ? XtName(XmGetFocusWidget(shell)) : "<none>";
      start_page = XtNameToWidget(shell, "*PStart") != nullptr;
      self->Retype(shell, "80");
      self->Key(shell, esc ? XK_Escape : XK_Return);
      if (ShownOptions() == shell)  // not answered: end the loop, the test fails
        XtCallCallbacks(XtNameToWidget(shell, "*buttonCancel"), XmNactivateCallback, nullptr);
    }, nullptr);
    const bool applied = ShowSaveOptions(App().shell);
    EXPECT_EQ(applied, !escape);
    EXPECT_EQ(focus, "OptionJpegText");
    EXPECT_FALSE(start_page);
    EXPECT_EQ(Settings().Save.JpegQuality, 80);
    EXPECT_EQ(ShownOptions(), nullptr);
  }
}

TEST_F(OptionsTest, PropertiesShowTheSizeTextAndFormat) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  const std::string path = Png("props.png", 300, 200);
  struct stat st;
  ASSERT_EQ(stat(path.c_str(), &st), 0);
  ASSERT_GT(st.st_size, 1024);
  ASSERT_LT(st.st_size, 1048576);
  char size[64];
  std::snprintf(size, sizeof size, "%.2f Kb", st.st_size / 1024.0);
  Widget view = OpenView(path);
  ASSERT_NE(view, nullptr);
  Widget box = Command(view, "properties", "QuillProperties");
  ASSERT_NE(box, nullptr);
  EXPECT_EQ(Label(box, "*labelSize"), size);
  EXPECT_EQ(Label(box, "*labelFile"), path);
  EXPECT_EQ(Label(box, "*labelFormat").substr(0, 4), "png ");
  EXPECT_NE(Label(box, "*labelDimensions").find("300 x 200"), std::string::npos);
  // A second Ctrl+E brings the same dialog forward; Escape closes it.
  EXPECT_EQ(Command(view, "properties", "QuillProperties"), box);
  Key(box, XK_Escape);
  EXPECT_EQ(Dialog(view, "QuillProperties"), nullptr);
}

TEST_F(OptionsTest, DescribeWritesTheDescriptionFile) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  const std::string path = Png("my pic.png", 40, 30);
  testutil::WriteFile(dir_.file(".description"), "other.png Kept as it was\n");
  Widget view = OpenView(path);
  ASSERT_NE(view, nullptr);
  Widget box = Command(view, "describe", "quillDesc");
  ASSERT_NE(box, nullptr);
  EXPECT_EQ(FocusName(box), "textDesc");
  Retype(box, "a walk");
  Key(box, XK_Return);
  EXPECT_EQ(Dialog(view, "quillDesc"), nullptr);
  EXPECT_EQ(testutil::ReadFile(dir_.file(".description")),
            "\"other.png\" Kept as it was\n\"my pic.png\" a walk\n");
  // Opened again it shows the text; Escape changes nothing.
  box = Command(view, "describe", "quillDesc");
  ASSERT_NE(box, nullptr);
  EXPECT_EQ(Field(box, "*textDesc"), "a walk");
  Retype(box, "lost");
  Key(box, XK_Escape);
  EXPECT_EQ(Dialog(view, "quillDesc"), nullptr);
  EXPECT_NE(testutil::ReadFile(dir_.file(".description")).find("a walk"), std::string::npos);
  // An emptied text removes the file's line.
  box = Command(view, "describe", "quillDesc");
  ASSERT_NE(box, nullptr);
  Retype(box, "");
  Key(box, XK_Return);
  EXPECT_EQ(testutil::ReadFile(dir_.file(".description")), "\"other.png\" Kept as it was\n");
}

TEST_F(OptionsTest, DescriptionThatCannotBeWrittenSaysSoAndStaysOpen) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  const std::string path = Png("pic.png", 20, 20);
  ::mkdir(dir_.file(".description").c_str(), 0755);  // in the way of the file
  Widget view = OpenView(path);
  ASSERT_NE(view, nullptr);
  Widget box = Command(view, "describe", "quillDesc");
  ASSERT_NE(box, nullptr);
  Retype(box, "text");
  Key(box, XK_Return);
  ASSERT_EQ(Dialog(view, "quillDesc"), box);
  EXPECT_EQ(Label(box, "*labelMessage"), "Can't save the description in " + dir_.file(".description"));
  EXPECT_EQ(Field(box, "*textDesc"), "text");  // nothing typed is lost
  Key(box, XK_Escape);
  EXPECT_EQ(Dialog(view, "quillDesc"), nullptr);
}

TEST_F(OptionsTest, PageNumberAndResolutionDialogs) {
  Open("QUILLA_TEST_DISPLAY8");
  if (IsSkipped() || HasFatalFailure()) return;
  const std::string path = dir_.file("pages.tif");
  ASSERT_TRUE(guitest::WritePages(path, "tiff", 4, TSL_RGB, 30, 20, 1));
  Widget view = OpenView(path);
  ASSERT_NE(view, nullptr);
  ASSERT_EQ(State(view).pages, 4);

  // A page outside the file keeps the dialog open; page 3 goes there.
  Widget box = Command(view, "pageNumber", "QuillPage");
  ASSERT_NE(box, nullptr);
  EXPECT_EQ(Field(box, "*textPage"), "1");
  Retype(box, "5");
  Key(box, XK_Return);
  ASSERT_EQ(Dialog(view, "QuillPage"), box);
  EXPECT_NE(Label(box, "*labelMessage").find("1 to 4"), std::string::npos);
  Retype(box, "3");
  Key(box, XK_Return);
  Pump();
  EXPECT_EQ(Dialog(view, "QuillPage"), nullptr);
  EXPECT_EQ(State(view).page, 2);
  EXPECT_EQ(State(view).width, 32u);

  // The resolution: Tab goes to the second field; O.K. marks the picture changed.
  box = Command(view, "changeDpi", "QuillDpi");
  ASSERT_NE(box, nullptr);
  EXPECT_EQ(FocusName(box), "textDpiX");
  Retype(box, "300");
  Key(box, XK_Tab);
  EXPECT_EQ(FocusName(box), "textDpiY");
  Retype(box, "150");
  Key(box, XK_Return);
  EXPECT_EQ(Dialog(view, "QuillDpi"), nullptr);
  const TslPicture *pic = ViewCurrentPicture(view);
  ASSERT_NE(pic, nullptr);
  EXPECT_EQ(pic->attr_pair[0], 300u);
  EXPECT_EQ(pic->attr_pair[1], 150u);
  EXPECT_TRUE(State(view).modified);
}

TEST_F(OptionsTest, ThanksFromTheStartWindowClosesOnReturn) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  RunViewCommand(App().shell, "thanks");
  Pump();
  Widget box = Dialog(App().shell, "QuillThanks");
  ASSERT_NE(box, nullptr);
  EXPECT_NE(Label(box, "*label1").find("Thanks"), std::string::npos);
  Key(box, XK_Return);
  EXPECT_EQ(Dialog(App().shell, "QuillThanks"), nullptr);
}

}  // namespace
