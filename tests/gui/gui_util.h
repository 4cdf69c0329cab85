// Helpers shared by the GUI tests.
#ifndef QUILLA_TESTS_GUI_UTIL_H
#define QUILLA_TESTS_GUI_UTIL_H

#include <gtest/gtest.h>

#include <X11/IntrinsicP.h>
#include <X11/Shell.h>
#include <Xm/Xm.h>

#include <Xm/TextF.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "core/app_x.h"
#include "core/display_x.h"
#include "core/settings.h"
#include "files/load_x.h"
#include "view/view_x.h"
#include "tessel.h"
#include "test_util.h"

namespace guitest {

// Gives a shown shell the keyboard, as a window manager would, once it is
// mapped (waiting a second at most).
inline void FocusWhenMapped(Display *dpy, Widget shell) {
  for (int i = 0; i < 200; ++i) {
    XWindowAttributes a;
    XSync(dpy, False);
    if (XGetWindowAttributes(dpy, XtWindow(shell), &a) && a.map_state == IsViewable) break;
    usleep(5000);
  }
  XSetInputFocus(dpy, XtWindow(shell), RevertToPointerRoot, CurrentTime);
  XSync(dpy, False);
}

// Handles every pending event, `rounds` times after syncing with the server.
inline void Pump(int rounds = 3) {
  for (int r = 0; r < rounds; ++r) {
    XSync(quilla::App().dpy, False);
    while (XtAppPending(quilla::App().app)) XtAppProcessEvent(quilla::App().app, XtIMAll);
  }
}

// Runs the event loop for `ms` milliseconds, time-outs included.
inline void RunFor(int ms) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (std::chrono::steady_clock::now() < end) {
    XSync(quilla::App().dpy, False);
    if (XtAppPending(quilla::App().app))
      XtAppProcessEvent(quilla::App().app, XtIMAll);
    else
      usleep(2000);
  }
}

// A key press and release sent to `win`.
inline void SendKey(Display *dpy, Window win, KeySym sym, unsigned state = 0) {
  for (int type : {KeyPress, KeyRelease}) {
    XEvent ev{};
    ev.xkey.type = type;
    ev.xkey.display = dpy;
    ev.xkey.window = win;
    ev.xkey.root = DefaultRootWindow(dpy);
    ev.xkey.state = state;
    ev.xkey.keycode = XKeysymToKeycode(dpy, sym);
    ev.xkey.same_screen = True;
    XSendEvent(dpy, win, True, type == KeyPress ? KeyPressMask : KeyReleaseMask, &ev);
  }
}

// Saves `pic` to `path` in the named format; false when it fails.
inline bool SavePicture(const std::string &path, const TslPicture &pic, const char *format = "png") {
  TslParams params;
  tslDefaultParams(&params);
  params.format = tslFormatGetIndex(format);
  return tslSave(path.c_str(), &pic, &params) == 0;
}

// Writes `count` pages of `model` pictures to a file of `format`: page i is
// (w + i * w_step) x h, its seed differs per page.  False when it fails.
inline bool WritePages(const std::string &path, const char *format, int count, int model, uint32_t w, uint32_t h,
                       uint32_t w_step = 0) {
  TslParams params;
  tslDefaultParams(&params);
  TslFile *file = nullptr;
  if (tslFileCreate(&file, path.c_str(), tslFormatGetIndex(format), count, &params) != 0) return false;
  bool ok = true;
  for (int i = 0; i < count; ++i) {
    TslPicture p = testutil::MakePicture(model, w + i * w_step, h, 3 + i, 16);
    ok = ok && tslFileAddPicture(file, &p, &params) == 0;
    tslFree(&p);
  }
  return tslFileClose(file) == 0 && ok;
}

// Sets the EXIF orientation of a file with exiftool; false when it fails.
inline bool SetExifOrientation(const std::string &path, int orientation) {
  const std::string cmd =
      "exiftool -q -overwrite_original -n -Orientation=" + std::to_string(orientation) + " '" + path + "'";
  return std::system(cmd.c_str()) == 0;
}

// Writes `path` as a 60x20 PNG, its left third red and the rest blue, stored
// turned (EXIF orientation 6: turn right to view), so the upright picture is
// 20x60 with red on top.  False when it could not be made.
inline bool WriteTurnedPicture(const std::string &path) {
  TslPicture p{};
  if (!tslAllock(&p, TSL_RGB, 0, 60, 20)) return false;
  for (uint32_t y = 0; y < 20; ++y)
    for (uint32_t x = 0; x < 60; ++x) {
      uint8_t *px = p.pixels + y * p.bytes_per_line + x * 3;
      px[0] = x < 20 ? 255 : 0;
      px[2] = x < 20 ? 0 : 255;
    }
  const bool saved = SavePicture(path, p);
  tslFree(&p);
  return saved && SetExifOrientation(path, 6);
}

// One X server of the tests, as the program would hold it.
struct TestServer {
  std::string name;
  Display *dpy = nullptr;
  Widget shell = nullptr;   // the application shell, never mapped
  Widget keeper = nullptr;  // a realised start window: the last view's close does not quit
};

// The server named by the environment variable `env` (QUILLA_TEST_DISPLAY
// or QUILLA_TEST_DISPLAY8), or nullptr when it is unset.  One application
// context with the program's actions serves the whole test program, and
// one connection per server, made on first use and never closed: Motif
// keeps per-display caches that do not survive closing a display.  The
// application record App() is pointed at the server.
inline const TestServer *UseTestServer(const char *env) {
  const char *name = std::getenv(env);
  if (!name || !*name) return nullptr;
  static XtAppContext app = nullptr;
  if (!app) {
    XtToolkitInitialize();
    app = XtCreateApplicationContext();
    quilla::RegisterActions(app);
  }
  static std::map<std::string, TestServer> servers;
  TestServer &s = servers[name];
  if (!s.dpy) {
    int argc = 0;
    s.name = name;
    s.dpy = XtOpenDisplay(app, name, "quilla", "Quilla", nullptr, 0, &argc, nullptr);
    if (!s.dpy) {
      ADD_FAILURE() << "cannot open " << name;
      servers.erase(name);
      return nullptr;
    }
    s.shell = XtVaAppCreateShell("quilla", "Quilla", applicationShellWidgetClass, s.dpy, XmNmappedWhenManaged, False,
                                 XmNwidth, 10, XmNheight, 10, nullptr);
    XtRealizeWidget(s.shell);
    s.keeper = XtVaCreatePopupShell("QuillInit", topLevelShellWidgetClass, s.shell, XmNwidth, 10, XmNheight, 10,
                                    nullptr);
    XtRealizeWidget(s.keeper);
  }
  quilla::App().app = app;
  quilla::App().dpy = s.dpy;
  quilla::App().screen = DefaultScreen(s.dpy);
  quilla::App().shell = s.shell;
  quilla::App().main_window = nullptr;
  return &s;
}

// The text of a compound string, separators as "\n".
inline std::string XmText(XmString s) {
  XmParseTable table = reinterpret_cast<XmParseTable>(XtMalloc(sizeof(XmParseMapping)));
  XmString sep = XmStringSeparatorCreate();
  Arg args[3];
  XtSetArg(args[0], XmNincludeStatus, XmINSERT);
  XtSetArg(args[1], XmNsubstitute, sep);
  XtSetArg(args[2], XmNpattern, const_cast<char *>("\n"));
  table[0] = XmParseMappingCreate(args, 3);
  XmStringFree(sep);
  char *t = static_cast<char *>(XmStringUnparse(s, nullptr, XmCHARSET_TEXT, XmCHARSET_TEXT, table, 1, XmOUTPUT_ALL));
  std::string out = t ? t : "";
  XtFree(t);
  XmParseTableFree(table, 1);
  return out;
}

// The label string of a widget found by name under `root`.
inline std::string LabelText(Widget root, const char *name) {
  Widget w = XtNameToWidget(root, name);
  if (!w) return "<no " + std::string(name) + ">";
  XmString s = nullptr;
  XtVaGetValues(w, XmNlabelString, &s, nullptr);
  std::string out = XmText(s);
  XmStringFree(s);
  return out;
}

// Closes every open view; modified pictures are closed without saving.
inline void CloseAllViews() {
  quilla::DialogHook old = quilla::SetDialogHook([](Widget box) {
    if (box == quilla::ShownConfirm())
      XtCallCallbacks(XtNameToWidget(box, "*buttonCancel"), XmNactivateCallback, nullptr);
  });
  while (Widget s = quilla::ViewShellAt(0)) quilla::RunViewCommand(s, "close");
  quilla::SetDialogHook(old);
  Pump();
}

// While it lives, every message box is answered with OK and its text kept
// in Texts().
class AnswerMessageBoxes {
 public:
  AnswerMessageBoxes() {
    Texts().clear();
    old_ = quilla::SetDialogHook(&Answer);
  }
  ~AnswerMessageBoxes() { quilla::SetDialogHook(old_); }
  AnswerMessageBoxes(const AnswerMessageBoxes &) = delete;
  AnswerMessageBoxes &operator=(const AnswerMessageBoxes &) = delete;
  static std::vector<std::string> &Texts() {
    static std::vector<std::string> texts;
    return texts;
  }

 private:
  static void Answer(Widget box) {
    if (box != quilla::ShownMessageBox()) return;
    Texts().push_back(LabelText(box, "*labelMessage"));
    if (Widget ok = XtNameToWidget(box, "*buttonOK")) XtCallCallbacks(ok, XmNactivateCallback, nullptr);
  }
  quilla::DialogHook old_ = nullptr;
};

// The base of the GUI test fixtures: a server of the tests, a temporary
// directory, the event loop and the keyboard.  `Base` is ::testing::Test or
// a ::testing::TestWithParam.
template <typename Base = ::testing::Test>
class GuiFixture : public Base {
 protected:
  // Points the program at the server named by `env`, with every setting at
  // its default and the temporary directory as the start directory.  Skips
  // the test when `env` is unset or, with `xdotool`, when xdotool is not
  // installed: a caller outside SetUp returns when IsSkipped().
  void Open(const char *env = "QUILLA_TEST_DISPLAY", bool xdotool = false) {
    if (xdotool && !testutil::HaveTool("xdotool")) GTEST_SKIP() << "xdotool is needed to type into the dialogs";
    const TestServer *server = UseTestServer(env);
    if (!server) GTEST_SKIP() << env << " not set (scripts/test starts the X servers)";
    display_ = server->name;
    dpy_ = server->dpy;
    shell_ = server->shell;
    owner_ = server->keeper;
    quilla::App().start_dir = dir_.path();
    quilla::InitVisual(dpy_, quilla::App().screen, -1, false);
    quilla::ReadSettingsFile(&quilla::Settings(), dir_.file("none.rc"));
  }

  static void Pump(int rounds = 3) { guitest::Pump(rounds); }
  static void RunFor(int ms) { guitest::RunFor(ms); }
  // Runs the event loop, work procedures included, until `done` or `ms`
  // milliseconds passed; whether `done` came true.
  template <typename F>
  static bool RunUntil(int ms, F done) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (std::chrono::steady_clock::now() < end) {
      if (done()) return true;
      // Waiting for an event runs the work procedures; the time-out bounds the wait.
      XtAppAddTimeOut(quilla::App().app, 5, [](XtPointer, XtIntervalId *) {}, nullptr);
      XtAppProcessEvent(quilla::App().app, XtIMAll);
    }
    return done();
  }

  // A key press and release sent to the widget that has the keyboard in
  // `shell`, as a user typing into the dialog.
  void Key(Widget shell, KeySym sym, unsigned state = 0) {
    // Motif takes typing only in a window that has the keyboard; tests
    // running side by side on the server take it from each other.
    Window has;
    int revert;
    XGetInputFocus(dpy_, &has, &revert);
    if (has != XtWindow(shell)) {
      XSetInputFocus(dpy_, XtWindow(shell), RevertToParent, CurrentTime);
      Pump();
    }
    Widget focus = XmGetFocusWidget(shell);
    ASSERT_NE(focus, nullptr) << XtName(shell);
    while (!XtIsWidget(focus)) focus = XtParent(focus);  // gadgets take keys through their parent
    SendKey(dpy_, XtWindow(focus), sym, state);
    Pump();
  }
  // Lower-case letters, digits, blanks, dots and minus signs.
  void Type(Widget shell, const std::string &text) {
    for (char c : text)
      Key(shell, c == ' '   ? XK_space
                 : c == '.' ? XK_period
                 : c == '-' ? XK_minus
                            : static_cast<KeySym>(c));
  }
  // Empties the text field that has the keyboard with BackSpace (the text
  // the dialog selected may have lost its selection to another client),
  // then types `text`.
  void Retype(Widget shell, const std::string &text) {
    Widget f = XmGetFocusWidget(shell);
    ASSERT_TRUE(f && XmIsTextField(f));
    Key(shell, XK_End);
    for (int n = XmTextFieldGetLastPosition(f); n >= 0; --n) Key(shell, XK_BackSpace);
    Type(shell, text);
  }
  // A key press and release sent to a view's drawing area.
  void ViewKey(Widget view, KeySym sym, unsigned state = 0) {
    SendKey(dpy_, XtWindow(State(view).drawing_area), sym, state);
    Pump();
  }

  // Runs xdotool with `args` on the server, as a user typing; the events
  // wait in the queue for the caller's loop.  Tests sharing the server take turns through a lock file,
  // so that none takes the keyboard away in between.  With `shell`, that
  // shell is given the keyboard and the pointer first.
  void Xdo(const std::string &args, Widget shell = nullptr) {
    const std::string lock = "/tmp/quilla-keyboard" + display_ + ".lock";
    const int fd = open(lock.c_str(), O_CREAT | O_RDWR, 0666);
    if (fd >= 0) flock(fd, LOCK_EX);
    if (shell) {
      FocusWhenMapped(dpy_, shell);
      XWarpPointer(dpy_, 0, XtWindow(shell), 0, 0, 0, 0, 5, 5);
    }
    XSync(dpy_, False);
    EXPECT_EQ(testutil::Run("DISPLAY=" + display_ + " xdotool " + args), 0) << args;
    if (fd >= 0) close(fd);  // releases the lock
  }
  // Text, then keys (both may be empty), typed by xdotool into `shell`.
  void XdoType(Widget shell, const std::string &text, const std::string &keys = "") {
    if (!text.empty()) Xdo("type --delay 5 '" + text + "'", shell);
    if (!keys.empty()) Xdo("key --delay 20 " + keys, shell);
  }

  // The pop-up child `name` of `parent` that is not being destroyed, or nullptr.
  static Widget Dialog(Widget parent, const char *name) {
    Widget w = XtNameToWidget(parent, name);
    return w && !w->core.being_destroyed ? w : nullptr;
  }
  // The text of the text field `name` under `shell`.
  static std::string Field(Widget shell, const char *name) {
    Widget w = XtNameToWidget(shell, name);
    if (!w) return std::string("<no ") + name + ">";
    char *t = XmTextFieldGetString(w);
    std::string s = t;
    XtFree(t);
    return s;
  }
  static std::string Label(Widget shell, const char *name) { return LabelText(shell, name); }
  static std::string Title(Widget shell) {
    char *t = nullptr;
    XtVaGetValues(shell, XmNtitle, &t, nullptr);
    return t ? t : "";
  }
  // The name of the widget that has the keyboard in `shell`.
  static std::string FocusName(Widget shell) {
    Widget f = XmGetFocusWidget(shell);
    return f ? XtName(f) : "<none>";
  }
  static quilla::ViewState State(Widget view) {
    quilla::ViewState s;
    EXPECT_TRUE(quilla::GetViewState(view, &s));
    return s;
  }

  // A test picture saved as `name` in the temporary directory; its path.
  std::string Png(const std::string &name, int w, int h, int model = TSL_RGB, uint32_t seed = 7,
                  const char *format = "png") {
    const std::string path = dir_.file(name);
    EXPECT_TRUE(SavePicture(path, testutil::Pic(testutil::MakePicture(model, w, h, seed)), format));
    return path;
  }

  testutil::TempDir dir_;
  std::string display_;
  Display *dpy_ = nullptr;
  Widget shell_ = nullptr;  // the application shell
  Widget owner_ = nullptr;  // a realised start window
};

using GuiTest = GuiFixture<>;

}  // namespace guitest

#endif
