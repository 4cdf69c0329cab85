// The central load, its progress dialog, the message box and the
// confirmation dialog on a real X server.  Dialogs are answered from the
// dialog hook, which the modal calls run before they wait.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <X11/Intrinsic.h>
#include <X11/Shell.h>
#include <X11/StringDefs.h>
#include <Xm/Label.h>
#include <Xm/Xm.h>

#include <cstdlib>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/app_x.h"
#include "core/settings.h"
#include "files/load_model.h"
#include "files/load_x.h"
#include "test_util.h"
#include "widgets/MyProgressBar.h"

// The application state lives with the application shell's code; until that
// is linked in, the tests bring their own.
namespace quilla {
__attribute__((weak)) AppState &App() {
  static AppState state;
  return state;
}
}  // namespace quilla

namespace {

using quilla::App;

std::function<void(Widget)> g_on_dialog;
void Trampoline(Widget shell) {
  if (g_on_dialog) g_on_dialog(shell);
}

std::string Text(XmString s) {
  XmParseTable table = reinterpret_cast<XmParseTable>(XtMalloc(sizeof(XmParseMapping)));
  XmString sep = XmStringSeparatorCreate();
  Arg args[3];
  XtSetArg(args[0], XmNincludeStatus, XmINSERT);
  XtSetArg(args[1], XmNsubstitute, sep);
  XtSetArg(args[2], XmNpattern, const_cast<char *>("\n"));
  table[0] = XmParseMappingCreate(args, 3);
  XmStringFree(sep);
  char *t = static_cast<char *>(
      XmStringUnparse(s, nullptr, XmCHARSET_TEXT, XmCHARSET_TEXT, table, 1, XmOUTPUT_ALL));
  std::string out = t ? t : "";
  XtFree(t);
  XmParseTableFree(table, 1);
  return out;
}

std::string Label(Widget shell, const char *child) {
  Widget w = XtNameToWidget(shell, child);
  if (!w) return "<no " + std::string(child) + ">";
  XmString s = nullptr;
  XtVaGetValues(w, XmNlabelString, &s, nullptr);
  std::string out = Text(s);
  XmStringFree(s);
  return out;
}

std::string Title(Widget shell) {
  char *title = nullptr;
  XtVaGetValues(shell, XmNtitle, &title, nullptr);
  return title ? title : "";
}

void Press(Widget shell, const char *button) {
  Widget w = XtNameToWidget(shell, button);
  ASSERT_NE(w, nullptr) << button;
  XtCallCallbacks(w, XmNactivateCallback, nullptr);
}

std::string WriteGradient(const std::string &path, uint32_t w, uint32_t h) {
  testutil::OwnedPicture pic;
  if (!tslAllock(&pic.p, TSL_RGB, 0, w, h)) return "";
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      unsigned char *px = pic.p.pixels + y * pic.p.bytes_per_line + x * 3;
      px[0] = static_cast<unsigned char>(x);
      px[1] = static_cast<unsigned char>(y);
      px[2] = static_cast<unsigned char>(x ^ y);
    }
  TslParams params;
  tslDefaultParams(&params);
  params.format = tslFormatGetIndex("png");
  return tslSave(path.c_str(), &pic.p, &params) == TSL_OK ? path : "";
}

class CentralLoad : public ::testing::Test {
 protected:
  void SetUp() override { Open("QUILLA_TEST_DISPLAY"); }
  // One connection and application shell per server for the whole program:
  // Motif keeps per-display caches that do not survive closing a display
  // and opening it again.
  void Open(const char *env) {
    const char *name = std::getenv(env);
    if (!name || !*name) GTEST_SKIP() << env << " unset (scripts/test starts the X servers)";
    static XtAppContext app = nullptr;
    if (!app) {
      XtToolkitInitialize();
      app = XtCreateApplicationContext();
    }
    struct Conn {
      Display *dpy = nullptr;
      Widget shell = nullptr;
    };
    static std::map<std::string, Conn> conns;
    Conn &c = conns[name];
    if (!c.dpy) {
      int argc = 0;
      c.dpy = XtOpenDisplay(app, name, "quilla", "Quilla", nullptr, 0, &argc, nullptr);
      ASSERT_NE(c.dpy, nullptr) << "cannot open " << name;
      c.shell = XtVaAppCreateShell("quilla", "Quilla", applicationShellWidgetClass, c.dpy, XmNwidth, 200,
                                   XmNheight, 100, nullptr);
      XtRealizeWidget(c.shell);
    }
    app_ = app;
    dpy_ = c.dpy;
    shell_ = c.shell;
    App().app = app_;
    App().dpy = dpy_;
    App().shell = shell_;
    App().main_window = nullptr;
    quilla::ReadSettingsFile(&quilla::Settings(), dir_.file("none.rc"));  // every default
    quilla::SetDialogHook(Trampoline);
    big_ = WriteGradient(dir_.file("big.png"), 1000, 1000);
    ASSERT_FALSE(big_.empty());
  }
  void TearDown() override {
    g_on_dialog = nullptr;
    quilla::SetDialogHook(nullptr);
    for (Widget w : std::set<Widget>(windows_)) XtDestroyWidget(w);
    if (dpy_) XSync(dpy_, False);
    App() = quilla::AppState();
  }

  // A second top-level window, owner of dialogs that should go with it.
  Widget MakeWindow() {
    Widget w = XtVaCreatePopupShell("QuillView", topLevelShellWidgetClass, shell_, XmNwidth, 100, XmNheight, 80,
                                    nullptr);
    XtRealizeWidget(w);
    windows_.insert(w);
    XtAddCallback(w, XtNdestroyCallback, Forget, &windows_);
    return w;
  }
  static void Forget(Widget w, XtPointer set, XtPointer) { static_cast<std::set<Widget> *>(set)->erase(w); }

  // Answers message boxes with O.K., recording their texts; presses Stop in
  // the progress dialog after `stop_after` pump calls (never when < 0).
  void AnswerMessages(int stop_after = -1) {
    g_on_dialog = [this, stop_after](Widget shell) {
      std::string name = XtName(shell);
      if (name == "QuillMessage") {
        messages_.push_back(Label(shell, "*labelMessage"));
        Press(shell, "*buttonOK");
      } else if (name == "QuillProgress") {
        ++pumps_;
        percents_.push_back(MyProgressBarGetValue(XtNameToWidget(shell, "*progressBar")));
        if (stop_after >= 0 && pumps_ > stop_after) Press(shell, "*buttonStop");
      }
    };
  }

  testutil::TempDir dir_;
  std::string big_;
  XtAppContext app_ = nullptr;
  Display *dpy_ = nullptr;
  Widget shell_ = nullptr;
  std::set<Widget> windows_;
  std::vector<std::string> messages_;
  std::vector<int> percents_;
  int pumps_ = 0;
};

TEST_F(CentralLoad, GoodLoadShowsProgressAndNoMessage) {
  std::string title, label;
  AnswerMessages();
  auto answer = g_on_dialog;
  g_on_dialog = [&](Widget shell) {
    if (std::string(XtName(shell)) == "QuillProgress" && title.empty()) {
      title = Title(shell);
      label = Label(shell, "*labelProgress");
      EXPECT_EQ(quilla::ShownProgress(), shell);
    }
    answer(shell);
  };
  testutil::OwnedPicture pic;
  EXPECT_EQ(quilla::CentralLoad(shell_, big_.c_str(), 0, &pic.p, nullptr, true), 0);
  EXPECT_EQ(pic.p.width, 1000u);
  EXPECT_EQ(pic.p.height, 1000u);
  EXPECT_TRUE(messages_.empty());
  EXPECT_EQ(title, "Loading");
  EXPECT_EQ(label, "Loading big.png");
  ASSERT_GT(pumps_, 10);
  for (size_t i = 1; i < percents_.size(); ++i) EXPECT_LE(percents_[i - 1], percents_[i]);
  EXPECT_EQ(percents_.back(), 100);
  EXPECT_EQ(quilla::ShownProgress(), nullptr);  // closed again

  // The caller's file information is used as given.
  testutil::OwnedInfo info;
  ASSERT_EQ(tslFileInformation(big_.c_str(), -1, 0, &info.i), 0);
  testutil::OwnedPicture again;
  EXPECT_EQ(quilla::CentralLoad(nullptr, big_.c_str(), 0, &again.p, &info.i, true), 0);
  EXPECT_EQ(again.p.width, 1000u);
}

TEST_F(CentralLoad, ErrorsAreShownWithTheirTexts) {
  AnswerMessages();
  std::string missing = dir_.file("missing.png");
  testutil::OwnedPicture pic;
  EXPECT_EQ(quilla::CentralLoad(shell_, missing.c_str(), 0, &pic.p, nullptr, true), 3);
  ASSERT_EQ(messages_.size(), 1u);
  EXPECT_EQ(messages_[0], "Can't open file \n<" + missing + ">");

  std::string text = dir_.file("notes.txt");
  testutil::WriteFile(text, "these are no pixels at all\n");
  EXPECT_EQ(quilla::CentralLoad(shell_, text.c_str(), 0, &pic.p, nullptr, true), 2);
  ASSERT_EQ(messages_.size(), 2u);
  EXPECT_EQ(messages_[1], "Don't know how to read \n<" + text + ">");
  EXPECT_EQ(pic.p.pixels, nullptr);

  // Not reported when the caller does not ask.
  EXPECT_EQ(quilla::CentralLoad(shell_, missing.c_str(), 0, &pic.p, nullptr, false), 3);
  EXPECT_EQ(messages_.size(), 2u);
}

TEST_F(CentralLoad, DamagedFileIsReportedOrKeptWithIgnoreError) {
  AnswerMessages();
  std::string whole = testutil::ReadFile(big_);
  std::string cut = dir_.file("cut.png");
  testutil::WriteFile(cut, whole.substr(0, whole.size() / 2));
  testutil::OwnedPicture pic;
  int code = quilla::CentralLoad(shell_, cut.c_str(), 0, &pic.p, nullptr, true);
  EXPECT_NE(code, 0);
  EXPECT_NE(code, 15);
  EXPECT_EQ(pic.p.pixels, nullptr);
  ASSERT_EQ(messages_.size(), 1u);
  testutil::OwnedInfo info;
  tslFileInformation(cut.c_str(), -1, 0, &info.i);
  EXPECT_EQ(messages_[0], quilla::LoadErrorText(cut.c_str(), code, info.i.message));
  EXPECT_NE(messages_[0], "Contact your dealer");

  quilla::Settings().Load.IgnoreError = true;  // keep what could be decoded
  EXPECT_EQ(quilla::CentralLoad(shell_, cut.c_str(), 0, &pic.p, nullptr, true), 0);
  EXPECT_EQ(pic.p.width, 1000u);
  EXPECT_NE(pic.p.pixels, nullptr);
  EXPECT_EQ(messages_.size(), 1u);
}

TEST_F(CentralLoad, StopEndsTheLoadWithoutAMessage) {
  AnswerMessages(0);  // Stop from the first progress call
  testutil::OwnedPicture pic;
  EXPECT_EQ(quilla::CentralLoad(shell_, big_.c_str(), 0, &pic.p, nullptr, true), 15);
  EXPECT_EQ(pic.p.pixels, nullptr);
  EXPECT_TRUE(messages_.empty());
  EXPECT_LE(pumps_, 2);  // the library gave up at once
  EXPECT_EQ(quilla::ShownProgress(), nullptr);
}

TEST_F(CentralLoad, OwnerDestroyedDuringTheLoadStopsIt) {
  Widget view = MakeWindow();
  AnswerMessages();
  auto answer = g_on_dialog;
  g_on_dialog = [&](Widget shell) {
    answer(shell);
    if (view && std::string(XtName(shell)) == "QuillProgress" && pumps_ == 3) {
      XtDestroyWidget(view);  // takes the progress dialog with it
      view = nullptr;
    }
  };
  testutil::OwnedPicture pic;
  EXPECT_EQ(quilla::CentralLoadBusy(view, big_.c_str(), 0, &pic.p, nullptr, true), 15);
  EXPECT_EQ(view, nullptr);
  EXPECT_TRUE(messages_.empty());
  EXPECT_EQ(quilla::ShownProgress(), nullptr);
}

TEST_F(CentralLoad, BusyCursorNestsAndFollowsTheOwner) {
  Widget view = MakeWindow();
  Widget child = XtVaCreateManagedWidget("child", xmLabelWidgetClass, view, nullptr);
  EXPECT_EQ(quilla::BusyDepth(child), 0);
  quilla::SetBusy(child, true);
  quilla::SetBusy(view, true);
  EXPECT_EQ(quilla::BusyDepth(view), 2);  // one count per shell
  quilla::SetBusy(view, false);
  EXPECT_EQ(quilla::BusyDepth(child), 1);
  quilla::SetBusy(child, false);
  quilla::SetBusy(child, false);  // unmatched: no effect
  EXPECT_EQ(quilla::BusyDepth(view), 0);
  XSync(dpy_, False);

  // Busy during a load on another window, not on the main window.
  int depth = -1;
  g_on_dialog = [&](Widget shell) {
    if (depth < 0 && std::string(XtName(shell)) == "QuillProgress") depth = quilla::BusyDepth(view);
  };
  testutil::OwnedPicture pic;
  EXPECT_EQ(quilla::CentralLoadBusy(child, big_.c_str(), 0, &pic.p, nullptr, false), 0);
  EXPECT_EQ(depth, 1);
  EXPECT_EQ(quilla::BusyDepth(view), 0);
  tslFree(&pic.p);
  pic.p = TslPicture{};

  App().main_window = view;
  depth = -1;
  EXPECT_EQ(quilla::CentralLoadBusy(child, big_.c_str(), 0, &pic.p, nullptr, false), 0);
  EXPECT_EQ(depth, 0);
}

TEST_F(CentralLoad, ConfirmAnsweredBothWays) {
  std::string title, label, ok, cancel, form;
  const char *press = "*buttonOK";
  g_on_dialog = [&](Widget shell) {
    ASSERT_STREQ(XtName(shell), "QuillConfirm");
    EXPECT_EQ(quilla::ShownConfirm(), shell);
    title = Title(shell);
    label = Label(shell, "*labelMessage");
    ok = Label(shell, "*buttonOK");
    cancel = Label(shell, "*buttonCancel");
    form = XtNameToWidget(shell, "shootConfirm") ? "shootConfirm" : "";
    Press(shell, press);
  };
  EXPECT_TRUE(quilla::AskConfirm(shell_, "Overwrite this file !! \nConfirm ?"));
  EXPECT_EQ(title, "Confirmation");
  EXPECT_EQ(label, "Overwrite this file !! \nConfirm ?");
  EXPECT_EQ(ok, "O.K.");
  EXPECT_EQ(cancel, "Cancel");
  EXPECT_EQ(form, "shootConfirm");
  press = "*buttonCancel";
  EXPECT_FALSE(quilla::AskConfirm(shell_, "Again ?"));
  EXPECT_EQ(quilla::ShownConfirm(), nullptr);
}

TEST_F(CentralLoad, ConfirmClosedByTheWindowManagerIsCancel) {
  g_on_dialog = [&](Widget shell) {
    XClientMessageEvent ev{};
    ev.type = ClientMessage;
    ev.window = XtWindow(shell);
    ev.message_type = XInternAtom(dpy_, "WM_PROTOCOLS", False);
    ev.format = 32;
    ev.data.l[0] = static_cast<long>(XInternAtom(dpy_, "WM_DELETE_WINDOW", False));
    ev.data.l[1] = CurrentTime;
    XSendEvent(dpy_, XtWindow(shell), False, NoEventMask, reinterpret_cast<XEvent *>(&ev));
    XFlush(dpy_);
  };
  EXPECT_FALSE(quilla::AskConfirm(shell_, "Close me ?"));
}

TEST_F(CentralLoad, ModalDialogsNestAndSurviveTheirOwner) {
  // A message shown from inside a question: each waits for its own answer.
  std::vector<std::string> seen;
  g_on_dialog = [&](Widget shell) {
    std::string name = XtName(shell);
    seen.push_back(name);
    if (name == "QuillConfirm") {
      quilla::ShowMessage(shell, "inner");
      EXPECT_EQ(quilla::ShownMessageBox(), nullptr);
      EXPECT_EQ(quilla::ShownConfirm(), shell);
      Press(shell, "*buttonOK");
    } else {
      EXPECT_EQ(Label(shell, "*labelMessage"), "inner");
      EXPECT_NE(quilla::ShownConfirm(), nullptr);
      Press(shell, "*buttonOK");
    }
  };
  EXPECT_TRUE(quilla::AskConfirm(shell_, "outer"));
  EXPECT_EQ(seen, (std::vector<std::string>{"QuillConfirm", "QuillMessage"}));

  // The owner goes away while the dialog waits: no answer, no hang.
  Widget view = MakeWindow();
  g_on_dialog = [&](Widget) { XtDestroyWidget(view); };
  EXPECT_FALSE(quilla::AskConfirm(view, "gone ?"));
  view = MakeWindow();
  quilla::ShowMessage(view, "gone");
  EXPECT_EQ(quilla::ShownMessageBox(), nullptr);
  EXPECT_EQ(quilla::ShownConfirm(), nullptr);
}

TEST_F(CentralLoad, ProgressDialogByHandle) {
  Widget d = quilla::OpenProgress(shell_, "Saving...", "Saving a.png");
  ASSERT_NE(d, nullptr);
  EXPECT_STREQ(XtName(d), "QuillProgress");
  EXPECT_EQ(Title(d), "Saving...");
  EXPECT_EQ(Label(d, "*labelProgress"), "Saving a.png");
  EXPECT_EQ(Label(d, "*buttonStop"), "Stop");
  quilla::SetProgress(d, 42);
  EXPECT_EQ(MyProgressBarGetValue(XtNameToWidget(d, "*progressBar")), 42);
  EXPECT_FALSE(quilla::ProgressStopped(d));
  Press(d, "*buttonStop");
  EXPECT_TRUE(quilla::ProgressStopped(d));
  quilla::CloseProgress(d);
  EXPECT_EQ(quilla::ShownProgress(), nullptr);
  EXPECT_FALSE(quilla::ProgressStopped(d));  // unknown handle now
  quilla::CloseProgress(d);                  // twice is harmless
  XSync(dpy_, False);
}

// The same dialogs and the load at 8 bits per pixel.
TEST_F(CentralLoad, WorksOnAnEightBitServer) {
  TearDown();
  Open("QUILLA_TEST_DISPLAY8");
  if (IsSkipped()) return;
  ASSERT_EQ(DefaultDepth(dpy_, DefaultScreen(dpy_)), 8);
  AnswerMessages();
  testutil::OwnedPicture pic;
  EXPECT_EQ(quilla::CentralLoad(shell_, big_.c_str(), 0, &pic.p, nullptr, true), 0);
  EXPECT_GT(pumps_, 10);
  EXPECT_EQ(quilla::CentralLoad(shell_, dir_.file("none.png").c_str(), 0, &pic.p, nullptr, true), 3);
  EXPECT_EQ(messages_.size(), 1u);
  g_on_dialog = [](Widget shell) { Press(shell, "*buttonCancel"); };
  EXPECT_FALSE(quilla::AskConfirm(shell_, "eight bits ?"));
}

}  // namespace
