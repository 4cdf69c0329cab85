// The file selector, the confirmation dialog and the format list on real X
// servers, driven by keys typed with xdotool as a user types them.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <X11/IntrinsicP.h>
#include <X11/Shell.h>
#include <Xm/List.h>
#include <Xm/TextF.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "core/app_x.h"
#include "files/selector_x.h"
#include "gui_util.h"
#include "test_util.h"
#include "view/view_hooks_x.h"
#include "view/view_x.h"
#include "widgets/MyComboBox.h"

namespace {

using namespace quilla;

class SelectorTest;
SelectorTest *g_test = nullptr;

class SelectorTest : public guitest::GuiTest {
 protected:
  void Open(const char *env) {
    guitest::GuiTest::Open(env, true);
    if (IsSkipped()) return;
    SetSelectorDirectory("");
    g_test = this;
    SetSelectorHook([](Widget shell) { g_test->SelectorUp(shell); });
    SetDialogHook([](Widget shell) { g_test->DialogUp(shell); });
  }
  void TearDown() override {
    if (!dpy_) return;
    Stop();
    SetSelectorHook(nullptr);
    SetDialogHook(nullptr);
    guitest::CloseAllViews();
    if (Widget f = ShownFormatList()) XtDestroyWidget(f);
    Pump();
    g_test = nullptr;
  }
  // ---- driving the dialogs

  // Keys with xdotool, into the window that has the keyboard.
  void Type(const std::string &text) { Xdo("type --delay 2 '" + text + "'"); }
  void Key(const std::string &keys) { Xdo("key --delay 20 " + keys); }
  void Focus(Widget shell) { guitest::FocusWhenMapped(dpy_, shell); }

  // The steps run while the selector is up: the first when it appears, each
  // next one a moment later, once the keys before it were handled.
  void SelectorUp(Widget shell) {
    ++selectors_;
    Focus(shell);
    Widget text = XtNameToWidget(shell, "*textField1");
    insertion_at_end_ = XmTextFieldGetInsertionPosition(text) == XmTextFieldGetLastPosition(text);
    step_ = 0;
    waits_ = 0;
    focus_at_open_.clear();
    After(20);
  }
  // One chain of steps at a time: a new selector or the test's end drops
  // the timer of the one before.
  void After(unsigned long ms) {
    Stop();
    timer_ = XtAppAddTimeOut(App().app, ms, [](XtPointer, XtIntervalId *) {
      g_test->timer_ = 0;
      g_test->NextStep();
    }, nullptr);
  }
  void Stop() {
    if (timer_) XtRemoveTimeOut(timer_);
    timer_ = 0;
  }
  void NextStep() {
    Widget shell = ShownFileSelector();
    if (step_ == 0 && shell) {
      // The window manager's part done, the keyboard is where the dialog
      // put it: wait for that before typing.
      Widget focus = XmGetFocusWidget(shell);
      focus_at_open_ = focus ? XtName(focus) : "";
      if (focus != XtNameToWidget(shell, "*textField1") && ++waits_ < 100) return After(20);
    }
    if (step_ >= steps_.size()) {
      // A lost key would leave a dialog waiting for ever: after a while it
      // is cancelled and the test fails instead of hanging.
      Widget stuck = ShownConfirm() ? ShownConfirm() : shell;
      if (!stuck) return;
      if (++waits_ < 200) return After(25);
      ADD_FAILURE() << XtName(stuck) << " still waits after its last step";
      XtCallCallbacks(XtNameToWidget(stuck, "*buttonCancel"), XmNactivateCallback, nullptr);
      return;
    }
    auto step = steps_[step_++];
    if (shell) {
      Focus(shell);  // back from a question that had the keyboard
      step(shell);
    }
    waits_ = 0;
    After(250);
  }
  // The confirmation dialog is answered with a key; message boxes are kept.
  void DialogUp(Widget shell) {
    if (shell == ShownConfirm()) {
      questions_.push_back(Label(shell, "*labelMessage"));
      Focus(shell);
      Key(confirm_key_);
    } else if (shell == ShownMessageBox()) {
      messages_.push_back(Label(shell, "*labelMessage"));
      XtCallCallbacks(XtNameToWidget(shell, "*buttonOK"), XmNactivateCallback, nullptr);
    }
  }

  static std::string Field(Widget shell) { return guitest::GuiTest::Field(shell, "*textField1"); }
  // Selects the line of `name` in the file list, as a click does.
  void SelectFile(Widget shell, const std::string &name) {
    Widget list = XtNameToWidget(shell, "*scrolledList2");
    XmString *items = nullptr;
    int count = 0;
    XtVaGetValues(list, XmNitems, &items, XmNitemCount, &count, nullptr);
    for (int i = 0; i < count; ++i)
      if (guitest::XmText(items[i]).compare(0, name.size() + 1, name + " ") == 0) {
        XmListSelectPos(list, i + 1, True);
        return;
      }
    ADD_FAILURE() << name << " is not in the file list";
  }

  std::string Picture(const std::string &name, int model = TSL_RGB, const char *format = "png") {
    return Png(name, 24, 16, model, 3, format);
  }

  std::vector<std::function<void(Widget)>> steps_;
  size_t step_ = 0;
  int waits_ = 0;
  int selectors_ = 0;
  std::string focus_at_open_;
  XtIntervalId timer_ = 0;
  bool insertion_at_end_ = false;
  std::string confirm_key_ = "Escape";
  std::vector<std::string> questions_, messages_;
};

TEST_F(SelectorTest, TypedPathAndReturnOpensAViewFromTheStartWindow) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  const std::string path = Picture("typed_name.png");
  Picture("other.png");
  std::string title, button;
  steps_ = {[&](Widget shell) {
    title = Title(shell);
    button = Label(shell, "*pushButton2");
    Type(path);
    Key("Return");
  }};
  // The start window has no view: the command gets none.
  ASSERT_TRUE(RunFileCommand(nullptr, owner_, "open"));
  EXPECT_EQ(selectors_, 1);
  EXPECT_EQ(title, "Load Files...");
  EXPECT_EQ(button, "Open");
  EXPECT_EQ(focus_at_open_, "textField1");
  EXPECT_TRUE(insertion_at_end_);
  EXPECT_EQ(ShownFileSelector(), nullptr);
  ASSERT_EQ(ViewCount(), 1);
  ViewState s;
  ASSERT_TRUE(GetViewState(ViewShellAt(0), &s));
  EXPECT_EQ(s.path, path);
  EXPECT_EQ(s.width, 24u);
  EXPECT_STREQ(Settings().PathLoad, dir_.path().c_str());
  EXPECT_EQ(RecentDirectories(Settings()).front(), dir_.path());
  EXPECT_TRUE(messages_.empty());
}

TEST_F(SelectorTest, TabCompletesAndEscapeCancels) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  ::mkdir(dir_.file("photos").c_str(), 0755);
  Picture("photos/summer_01.png");
  Picture("photos/summer_02.png");
  std::vector<std::string> fields;
  steps_ = {[&](Widget) {
              Type("pho");
              Key("Tab");
              Type("su");
              Key("Tab");
            },
            [&](Widget shell) {
              fields.push_back(Field(shell));  // several matches: their common prefix
              Type("2");
              Key("Tab");
            },
            [&](Widget shell) {
              fields.push_back(Field(shell));  // one match: completed
              Key("Escape");
            }};
  SelectorRequest req;
  req.title = "Load Files...";
  req.initial = dir_.path();
  SelectorResult res;
  EXPECT_FALSE(RunFileSelector(owner_, req, &res));
  ASSERT_EQ(fields.size(), 2u);
  EXPECT_EQ(fields[0], "photos/summer_0");
  EXPECT_EQ(fields[1], "photos/summer_02.png");
  EXPECT_TRUE(res.paths.empty());
  EXPECT_EQ(ShownFileSelector(), nullptr);
  EXPECT_TRUE(RecentDirectories(Settings()).empty());  // a cancelled dialog remembers nothing
}

TEST_F(SelectorTest, OverwriteDeclinedKeepsTheFileAcceptedReplacesIt) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  const std::string source = Picture("source.png");
  const std::string target = Picture("target.png", TSL_GREY);
  const std::string before = testutil::ReadFile(target);
  Widget view = OpenViewOnFile(App().shell, source.c_str(), 0);
  ASSERT_NE(view, nullptr);

  // The field holds the view's own name; a new name is typed over it.
  std::string first_field;
  steps_ = {[&](Widget shell) {
              first_field = Field(shell);
              XmTextFieldSetString(XtNameToWidget(shell, "*textField1"), const_cast<char *>(""));
              Type("target.png");
              Key("Return");  // asks; Escape answers Cancel
            },
            [&](Widget) { Key("Escape"); }};  // the selector stays up until cancelled
  confirm_key_ = "Escape";
  RunViewCommand(view, "saveFiles");
  EXPECT_EQ(first_field, "source.png");
  ASSERT_EQ(questions_.size(), 1u);
  EXPECT_EQ(questions_[0], "Overwrite this file !! \nConfirm ?");
  EXPECT_EQ(testutil::ReadFile(target), before);

  // Return answers O.K.: the file is replaced, the view follows its new name.
  steps_ = {[&](Widget shell) {
    XmTextFieldSetString(XtNameToWidget(shell, "*textField1"), const_cast<char *>("target.png"));
    Key("Return");
  }};
  confirm_key_ = "Return";
  RunViewCommand(view, "saveFiles");
  ASSERT_EQ(questions_.size(), 2u);
  EXPECT_NE(testutil::ReadFile(target), before);
  testutil::OwnedInfo info;
  ASSERT_EQ(testutil::FileInfo(target, &info), 0);
  EXPECT_EQ(info->format, tslFormatGetIndex("png"));
  EXPECT_EQ(info->width, 24u);
  ViewState s;
  ASSERT_TRUE(GetViewState(view, &s));
  EXPECT_EQ(s.path, target);
  EXPECT_FALSE(s.modified);
  EXPECT_TRUE(messages_.empty());
}

TEST_F(SelectorTest, SaveFormatFollowsTheTypedExtensionElseTheComboBox) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  const std::string source = Picture("source.png", TSL_INDEXED);
  Widget view = OpenViewOnFile(App().shell, source.c_str(), 0);
  ASSERT_NE(view, nullptr);
  std::snprintf(Settings().Convert.DefaultFormat, sizeof Settings().Convert.DefaultFormat, "%s", "bmp");
  Settings().Save.AddExtensionIfNotExist = true;
  std::string shown_type;
  steps_ = {[&](Widget shell) {
    XmString s = MyComboBoxGetText(XtNameToWidget(shell, "*comboBox"));
    shown_type = guitest::XmText(s);
    XmStringFree(s);
    XmTextFieldSetString(XtNameToWidget(shell, "*textField1"), const_cast<char *>("as_gif.gif"));
    Key("Return");
  }};
  RunViewCommand(view, "saveFiles");
  EXPECT_EQ(shown_type.compare(0, 7, "Windows"), 0) << shown_type;  // preselected from Convert.DefaultFormat
  testutil::OwnedInfo gif;
  ASSERT_EQ(testutil::FileInfo(dir_.file("as_gif.gif"), &gif), 0);
  EXPECT_EQ(gif->format, tslFormatGetIndex("gif"));

  // No extension: the combo box's format, and its extension appended.
  steps_ = {[&](Widget shell) {
    XmTextFieldSetString(XtNameToWidget(shell, "*textField1"), const_cast<char *>("plain"));
    Key("Return");
  }};
  RunViewCommand(view, "saveFiles");
  testutil::OwnedInfo bmp;
  ASSERT_EQ(testutil::FileInfo(dir_.file("plain.bmp"), &bmp), 0);
  EXPECT_EQ(bmp->format, tslFormatGetIndex("bmp"));
  ViewState s;
  ASSERT_TRUE(GetViewState(view, &s));
  EXPECT_EQ(s.path, dir_.file("plain.bmp"));
  EXPECT_TRUE(questions_.empty());
}

TEST_F(SelectorTest, OwnerGoingAwayEndsTheSelector) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  Widget window = XtVaCreatePopupShell("QuillView", topLevelShellWidgetClass, App().shell, XmNwidth, 100, XmNheight,
                                       80, nullptr);
  XtPopup(window, XtGrabNone);
  Pump();
  Picture("one.png");
  steps_ = {[&](Widget shell) {
    SelectFile(shell, "one.png");  // a preview window and colours to give back
    XtDestroyWidget(window);
  }};
  SelectorRequest req;
  req.title = "Load Files...";
  req.initial = dir_.path();
  SelectorResult res;
  EXPECT_FALSE(RunFileSelector(window, req, &res));
  EXPECT_EQ(ShownFileSelector(), nullptr);
  EXPECT_TRUE(res.paths.empty());
  Pump();
}

// Closing the view while its "Save File..." selector is up: the close waits
// for the command to end, then the view goes and nothing is written.
TEST_F(SelectorTest, ViewClosedDuringItsSaveDialogClosesAfterIt) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  const std::string path = Picture("keep.png");
  Widget view = OpenViewOnFile(App().shell, path.c_str(), 0);
  ASSERT_NE(view, nullptr);
  Pump();
  steps_ = {[&](Widget) { RunViewCommand(view, "close"); },
            [&](Widget shell) {
              EXPECT_EQ(ViewCount(), 1) << "the view stays while its command runs";
              XtCallCallbacks(XtNameToWidget(shell, "*buttonCancel"), XmNactivateCallback, nullptr);
            }};
  RunViewCommand(view, "saveFiles");
  Pump();
  EXPECT_EQ(ViewCount(), 0);
  EXPECT_EQ(selectors_, 1);
}

TEST_F(SelectorTest, SavingOntoADirectoryEntersItWithoutAsking) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  ::mkdir(dir_.file("inner").c_str(), 0755);
  std::string place, field;
  steps_ = {[&](Widget) {
              Type("inner");
              Key("Return");
            },
            [&](Widget shell) {
              place = Label(shell, "*ancestor");
              field = Field(shell);
              Key("Escape");
            }};
  SelectorRequest req;
  req.title = "Save File...";
  req.mode = kSelectorSave;
  req.initial = dir_.path();
  SelectorResult res;
  EXPECT_FALSE(RunFileSelector(owner_, req, &res));
  EXPECT_TRUE(questions_.empty());
  EXPECT_EQ(place, dir_.file("inner"));
  EXPECT_EQ(field, "");
}

TEST_F(SelectorTest, DirectoryModeAcceptsTheDirectoryAndSeveralFilesOpenAsAList) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  ::mkdir(dir_.file("out").c_str(), 0755);
  steps_ = {[&](Widget) {
    Type("/out");
    Key("Return");
  }};
  SelectorRequest req;
  req.title = "Select Output Directory ...";
  req.mode = kSelectorDirectory;
  req.initial = dir_.path();
  SelectorResult res;
  ASSERT_TRUE(RunFileSelector(owner_, req, &res));
  EXPECT_EQ(res.paths, std::vector<std::string>{dir_.file("out")});

  const std::string a = Picture("a.png"), b = Picture("b.png");
  steps_ = {[&](Widget shell) {
    // Both lines selected, as a drag over them does.
    Widget list = XtNameToWidget(shell, "*scrolledList2");
    XmString *items = nullptr;
    XtVaGetValues(list, XmNitems, &items, nullptr);
    XtVaSetValues(list, XmNselectedItems, items, XmNselectedItemCount, 2, nullptr);
    Key("Return");
  }};
  SetSelectorDirectory(dir_.path());
  ASSERT_TRUE(RunFileCommand(nullptr, owner_, "open"));
  ASSERT_EQ(ViewCount(), 1);
  ViewState s;
  ASSERT_TRUE(GetViewState(ViewShellAt(0), &s));
  EXPECT_EQ(s.list_count, 2);
  EXPECT_EQ(s.path, a);
}

TEST_F(SelectorTest, ExtractIntoWritesThePagesWhereChosen) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  const std::string path = dir_.file("pages.gif");
  ASSERT_TRUE(guitest::WritePages(path, "gif", 2, TSL_INDEXED, 20, 10));
  ::mkdir(dir_.file("out").c_str(), 0755);
  Settings().View.DisableAnimation = true;
  Widget view = OpenViewOnFile(App().shell, path.c_str(), 0);
  ASSERT_NE(view, nullptr);
  std::string title, field;
  steps_ = {[&](Widget shell) {
    title = Title(shell);
    field = Field(shell);  // the directory itself, ready to be extended
    Type("/out");
    Key("Return");
  }};
  RunViewCommand(view, "extractInto");
  EXPECT_EQ(title, "Select Output Directory ...");
  EXPECT_EQ(field, dir_.path());
  EXPECT_STREQ(Settings().PathExtract, dir_.file("out").c_str());
  for (int i = 1; i <= 2; ++i) {
    TslPicture page{};
    EXPECT_TRUE(testutil::ReadPnm(dir_.file("out/pages_extract_00" + std::to_string(i) + ".ppm"), &page)) << i;
    EXPECT_EQ(page.width, 20u);
    tslFree(&page);
  }
}

TEST_F(SelectorTest, AncestorAndRecentMenusMove) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  ::mkdir(dir_.file("a").c_str(), 0755);
  ::mkdir(dir_.file("a/b").c_str(), 0755);
  RememberDirectory(&Settings(), dir_.file("a"));
  const char *home = std::getenv("HOME");
  const std::string old_home = home ? home : "";
  setenv("HOME", dir_.path().c_str(), 1);
  std::vector<std::string> ancestors, recent, places;
  steps_ = {[&](Widget shell) {
    for (int i = 0; Widget item = XtNameToWidget(shell, ("*ancestorItem" + std::to_string(i)).c_str()); ++i)
      if (XtIsManaged(item)) ancestors.push_back(Label(shell, ("*ancestorItem" + std::to_string(i)).c_str()));
    for (int i = 0; Widget item = XtNameToWidget(shell, ("*dirItem" + std::to_string(i)).c_str()); ++i)
      if (XtIsManaged(item)) recent.push_back(Label(shell, ("*dirItem" + std::to_string(i)).c_str()));
    XtCallCallbacks(XtNameToWidget(shell, "*ancestorItem2"), XmNactivateCallback, nullptr);
    places.push_back(Label(shell, "*ancestor"));
    XtCallCallbacks(XtNameToWidget(shell, "*dirItem1"), XmNactivateCallback, nullptr);
    places.push_back(Label(shell, "*ancestor"));
    Key("Escape");
  }};
  SelectorRequest req;
  req.title = "Load Files...";
  req.initial = dir_.file("a/b");
  EXPECT_FALSE(RunFileSelector(owner_, req, nullptr));
  if (home) setenv("HOME", old_home.c_str(), 1); else unsetenv("HOME");
  ASSERT_GE(ancestors.size(), 4u);
  EXPECT_EQ(ancestors[0], dir_.file("a/b"));
  EXPECT_EQ(ancestors[1], dir_.file("a"));
  EXPECT_EQ(ancestors[2], dir_.path());
  EXPECT_EQ(ancestors.back(), "/");
  EXPECT_EQ(recent, (std::vector<std::string>{dir_.path(), dir_.file("a")}));  // home, then the recent ones
  EXPECT_EQ(places, (std::vector<std::string>{dir_.path(), dir_.file("a")}));
}

TEST_F(SelectorTest, PreviewShowsInformationOrUnavailable) {
  for (const char *env : {"QUILLA_TEST_DISPLAY", "QUILLA_TEST_DISPLAY8"}) {
    SCOPED_TRACE(env);
    Open(env);
    if (!dpy_) continue;
    Picture("colour.png");
    Picture("grey.png", TSL_GREY);
    testutil::WriteFile(dir_.file("notes.txt"), "no picture here\n");
    std::vector<std::vector<std::string>> seen;
    auto labels = [&](Widget shell) {
      std::vector<std::string> l;
      for (const char *n : {"*labelType", "*labelWidth", "*labelHeight", "*labelBits", "*labelPlanes", "*labelColors"})
        l.push_back(Label(shell, n));
      seen.push_back(l);
    };
    steps_ = {[&](Widget shell) {
      SelectFile(shell, "colour.png");
      labels(shell);
      SelectFile(shell, "grey.png");
      labels(shell);
      SelectFile(shell, "notes.txt");
      labels(shell);
      XmToggleButtonSetState(XtNameToWidget(shell, "*togglePreview"), False, True);
      labels(shell);
      Key("Escape");
    }};
    SelectorRequest req;
    req.title = "Load Files...";
    req.initial = dir_.path();
    EXPECT_FALSE(RunFileSelector(owner_, req, nullptr));
    ASSERT_EQ(seen.size(), 4u);
    EXPECT_EQ(seen[0], (std::vector<std::string>{"Type: Portable Network Graphics", "Width: 24", "Height: 16",
                                                 "Bits Per Plane: 8", "# Planes: 3", "# Colors: 16 Millions"}));
    EXPECT_EQ(seen[1][5], "# Colors:  256");
    EXPECT_EQ(seen[2], std::vector<std::string>(6, "Unavailable"));
    EXPECT_EQ(seen[3][1], "Width:");  // no preview, no information
    TearDown();
    dpy_ = nullptr;
  }
}

TEST_F(SelectorTest, FormatListSortedByNameOrById) {
  Open("QUILLA_TEST_DISPLAY");
  if (IsSkipped() || HasFatalFailure()) return;
  Widget shell = ShowFormatList(owner_);
  ASSERT_NE(shell, nullptr);
  Pump();
  EXPECT_EQ(Title(shell), "Available formats");
  EXPECT_EQ(Label(shell, "*label"), "Name                             Read Write Extension");
  Widget list = XtNameToWidget(shell, "*scrolledList");
  auto lines = [&]() {
    XmString *items = nullptr;
    int count = 0;
    XtVaGetValues(list, XmNitems, &items, XmNitemCount, &count, nullptr);
    std::vector<std::string> out;
    for (int i = 0; i < count; ++i) out.push_back(guitest::XmText(items[i]));
    return out;
  };
  std::vector<std::string> by_name = lines();
  ASSERT_EQ(static_cast<int>(by_name.size()), tslCount());
  EXPECT_TRUE(std::is_sorted(by_name.begin(), by_name.end(), [](const std::string &a, const std::string &b) {
    return strcasecmp(a.c_str(), b.c_str()) < 0;
  }));
  XmToggleButtonSetState(XtNameToWidget(shell, "*toggleSortById"), True, True);
  std::vector<std::string> by_id = lines();
  ASSERT_EQ(by_id.size(), by_name.size());
  EXPECT_EQ(by_id[0].compare(0, std::strlen(tslFormatGetDescription(0)), tslFormatGetDescription(0)), 0);
  EXPECT_NE(by_id, by_name);
  EXPECT_EQ(ShowFormatList(owner_), shell);  // one at a time
  // Escape closes it as O.K. does.
  Focus(shell);
  Key("Escape");
  Pump();
  EXPECT_EQ(ShownFormatList(), nullptr);
}

}  // namespace
