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
#include <set>
#include <string>
#include <vector>

#include "core/app_x.h"
#include "core/settings.h"
#include "files/load_model.h"
#include "files/load_x.h"
#include "gui_util.h"
#include "test_util.h"
#include "widgets/MyProgressBar.h"

namespace {

using quilla::App;

std::function<void(Widget)> g_on_dialog;
void Trampoline(Widget shell) {
  if (g_on_dialog) g_on_dialog(shell);
}

void Press(Widget shell, const char *button) {
  Widget w = XtNameToWidget(shell, button);
  ASSERT_NE(w, nullptr) << button;
  XtCallCallbacks(w, XmNactivateCallback, nullptr);
}

// What a window manager sends when the user closes a window.
void SendClose(Widget shell) {
  Display *dpy = XtDisplay(shell);
  XClientMessageEvent ev{};
  ev.type = ClientMessage;
  ev.window = XtWindow(shell);
  ev.message_type = XInternAtom(dpy, "WM_PROTOCOLS", False);
  ev.format = 32;
  ev.data.l[0] = static_cast<long>(XInternAtom(dpy, "WM_DELETE_WINDOW", False));
  XSendEvent(dpy, ev.window, False, NoEventMask, reinterpret_cast<XEvent *>(&ev));
  XFlush(dpy);
}

// A 1000x1000 picture, enough rows for the library to report progress often.
std::string WriteBig(const std::string &path) {
  testutil::OwnedPicture pic;
  if (!tslAllock(&pic.p, TSL_RGB, 0, 1000, 1000)) return "";
  for (uint32_t i = 0; i < pic.p.bytes_per_line * 1000; ++i) pic.p.pixels[i] = static_cast<unsigned char>(i % 251);
  TslParams params;
  tslDefaultParams(&params);
  params.format = tslFormatGetIndex("png");
  return tslSave(path.c_str(), &pic.p, &params) == TSL_OK ? path : "";
}

class CentralLoad : public guitest::GuiTest {
 protected:
  void SetUp() override {
    Open();
    if (IsSkipped()) return;
    quilla::SetDialogHook(Trampoline);
    ASSERT_FALSE(WriteBig(big_).empty());
    // Message boxes are answered with O.K. and their texts kept; the
    // progress dialog's Stop is pressed after stop_after_ pump calls.
    g_on_dialog = [this](Widget shell) {
      std::string name = XtName(shell);
      if (name == "QuillMessage") {
        messages_.push_back(Label(shell, "*labelMessage"));
        Press(shell, "*buttonOK");
      } else if (name == "QuillProgress") {
        ++pumps_;
        percents_.push_back(MyProgressBarGetValue(XtNameToWidget(shell, "*progressBar")));
        if (stop_after_ >= 0 && pumps_ > stop_after_) Press(shell, "*buttonStop");
      }
    };
  }
  void TearDown() override {
    g_on_dialog = nullptr;
    quilla::SetDialogHook(nullptr);
    for (Widget w : std::set<Widget>(windows_)) XtDestroyWidget(w);
    App() = quilla::AppState();
  }
  // A second top-level window, owner of dialogs that should go with it.
  Widget MakeWindow() {
    Widget w = XtVaCreatePopupShell("QuillView", topLevelShellWidgetClass, shell_, XmNwidth, 100, XmNheight, 80,
                                    nullptr);
    XtRealizeWidget(w);
    windows_.insert(w);
    XtAddCallback(w, XtNdestroyCallback, [](Widget w, XtPointer set, XtPointer) {
      static_cast<std::set<Widget> *>(set)->erase(w);
    }, &windows_);
    return w;
  }
  int Load(Widget owner, const std::string &path, TslPicture *pic, bool report = true) {
    return quilla::CentralLoad(owner, path.c_str(), 0, pic, nullptr, report);
  }

  std::string big_ = dir_.file("big.png");
  std::set<Widget> windows_;
  std::vector<std::string> messages_;
  std::vector<int> percents_;
  int pumps_ = 0, stop_after_ = -1;
};

TEST_F(CentralLoad, GoodLoadShowsProgressAndNoMessage) {
  std::string title, label;
  auto answer = g_on_dialog;
  g_on_dialog = [&](Widget shell) {
    if (title.empty()) title = Title(shell), label = Label(shell, "*labelProgress");
    answer(shell);
  };
  testutil::OwnedPicture pic;
  EXPECT_EQ(Load(shell_, big_, &pic.p), 0);
  EXPECT_EQ(pic.p.width, 1000u);
  EXPECT_TRUE(messages_.empty());
  EXPECT_EQ(title, "Loading");
  EXPECT_EQ(label, "Loading big.png");
  ASSERT_GT(pumps_, 10);
  EXPECT_TRUE(std::is_sorted(percents_.begin(), percents_.end()));
  EXPECT_EQ(percents_.back(), 100);
  EXPECT_EQ(quilla::ShownProgress(), nullptr);  // closed again
}

TEST_F(CentralLoad, ErrorsAreShownWithTheirTexts) {
  std::string missing = dir_.file("missing.png"), text = dir_.file("notes.txt"), cut = dir_.file("cut.png");
  testutil::WriteFile(text, "these are no pixels at all\n");
  std::string whole = testutil::ReadFile(big_);
  testutil::WriteFile(cut, whole.substr(0, whole.size() / 2));
  testutil::OwnedPicture pic;
  EXPECT_EQ(Load(shell_, missing, &pic.p), 3);
  EXPECT_EQ(Load(shell_, text, &pic.p), 2);
  EXPECT_EQ(Load(shell_, missing, &pic.p, false), 3);  // not reported
  int code = Load(shell_, cut, &pic.p);
  EXPECT_TRUE(code != 0 && code != 15) << code;
  EXPECT_EQ(pic.p.pixels, nullptr);
  ASSERT_EQ(messages_.size(), 3u);
  EXPECT_EQ(messages_[0], "Can't open file \n<" + missing + ">");
  EXPECT_EQ(messages_[1], "Don't know how to read \n<" + text + ">");
  testutil::OwnedInfo info;
  tslFileInformation(cut.c_str(), -1, 0, &info.i);
  EXPECT_EQ(messages_[2], quilla::LoadErrorText(cut.c_str(), code, info.i.message));

  quilla::Settings().Load.IgnoreError = true;  // keep what could be decoded
  EXPECT_EQ(Load(shell_, cut, &pic.p), 0);
  EXPECT_NE(pic.p.pixels, nullptr);
  EXPECT_EQ(messages_.size(), 3u);
}

TEST_F(CentralLoad, StopOrTheOwnerGoingAwayEndsTheLoadSilently) {
  stop_after_ = 0;  // Stop from the first progress call
  testutil::OwnedPicture pic;
  EXPECT_EQ(Load(shell_, big_, &pic.p), 15);
  EXPECT_EQ(pic.p.pixels, nullptr);
  EXPECT_EQ(pumps_, 1);  // the library gave up at once

  // Closing the dialog is Stop too; the pump must dispatch the event for it.
  stop_after_ = -1;
  pumps_ = 0;
  auto answer = g_on_dialog;
  g_on_dialog = [&](Widget shell) {
    answer(shell);
    if (pumps_ == 1) SendClose(shell);
  };
  EXPECT_EQ(Load(shell_, big_, &pic.p), 15);
  EXPECT_LT(pumps_, 90);

  pumps_ = 0;
  Widget view = MakeWindow();
  g_on_dialog = [&](Widget shell) {
    answer(shell);
    if (pumps_ == 3) XtDestroyWidget(view);  // takes the progress dialog with it
  };
  EXPECT_EQ(quilla::CentralLoadBusy(view, big_.c_str(), 0, &pic.p, nullptr, true), 15);
  EXPECT_TRUE(windows_.empty());
  EXPECT_TRUE(messages_.empty());
  EXPECT_EQ(quilla::ShownProgress(), nullptr);
}

TEST_F(CentralLoad, BusyCursorNestsAndSparesTheMainWindow) {
  Widget view = MakeWindow();
  Widget child = XtVaCreateManagedWidget("child", xmLabelWidgetClass, view, nullptr);
  quilla::SetBusy(child, true);
  quilla::SetBusy(view, true);
  EXPECT_EQ(quilla::BusyDepth(view), 2);  // one count per shell
  for (int i = 0; i < 3; ++i) quilla::SetBusy(child, false);
  EXPECT_EQ(quilla::BusyDepth(view), 0);  // unmatched calls do nothing

  std::vector<int> depth;
  g_on_dialog = [&](Widget) { depth.push_back(quilla::BusyDepth(view)); };
  testutil::OwnedPicture a, b;
  EXPECT_EQ(quilla::CentralLoadBusy(child, big_.c_str(), 0, &a.p, nullptr, false), 0);
  EXPECT_EQ(depth.front(), 1);
  EXPECT_EQ(quilla::BusyDepth(view), 0);
  App().main_window = view;
  depth.clear();
  EXPECT_EQ(quilla::CentralLoadBusy(child, big_.c_str(), 0, &b.p, nullptr, false), 0);
  EXPECT_EQ(depth.front(), 0);
}

TEST_F(CentralLoad, ConfirmAnsweredEveryWay) {
  std::vector<std::string> seen;
  const char *press = "*buttonOK";
  g_on_dialog = [&](Widget shell) {
    EXPECT_EQ(quilla::ShownConfirm(), shell);
    seen = {XtName(shell), Title(shell), Label(shell, "*labelMessage"), Label(shell, "shootConfirm.buttonOK"),
            Label(shell, "shootConfirm.buttonCancel")};
    press ? Press(shell, press) : SendClose(shell);
  };
  EXPECT_TRUE(quilla::AskConfirm(shell_, "Overwrite this file !! \nConfirm ?"));
  EXPECT_EQ(seen, (std::vector<std::string>{"QuillConfirm", "Confirmation", "Overwrite this file !! \nConfirm ?",
                                            "O.K.", "Cancel"}));
  press = "*buttonCancel";
  EXPECT_FALSE(quilla::AskConfirm(shell_, "Again ?"));
  press = nullptr;
  EXPECT_FALSE(quilla::AskConfirm(shell_, "Close me ?"));
  EXPECT_EQ(quilla::ShownConfirm(), nullptr);
}

TEST_F(CentralLoad, ModalDialogsNestAndSurviveTheirOwner) {
  std::vector<std::string> seen;
  g_on_dialog = [&](Widget shell) {
    seen.push_back(XtName(shell));
    if (seen.size() == 1) {
      quilla::ShowMessage(shell, "inner");  // asked from inside the question
      EXPECT_EQ(quilla::ShownMessageBox(), nullptr);
      EXPECT_EQ(quilla::ShownConfirm(), shell);
    } else {
      EXPECT_EQ(Label(shell, "*labelMessage"), "inner");
    }
    Press(shell, "*buttonOK");
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
}

}  // namespace
