// Helpers shared by the GUI tests.
#ifndef QUILLA_TESTS_GUI_UTIL_H
#define QUILLA_TESTS_GUI_UTIL_H

#include <gtest/gtest.h>

#include <X11/Shell.h>
#include <Xm/Xm.h>

#include <unistd.h>

#include <cstdlib>
#include <map>
#include <string>

#include "core/app_x.h"
#include "tessel.h"

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
  TslParams params;
  tslDefaultParams(&params);
  params.format = tslFormatGetIndex("png");
  const bool saved = tslSave(path.c_str(), &p, &params) == 0;
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

}  // namespace guitest

#endif
