// How long a key press waits while the browser makes thumbnails: the
// browser opens on a directory (large icons, no cache), and every 100 ms,
// as long as its thumbnail loop runs, a Right key reaches the icon view;
// the time until the current entry has moved is one sample.  The event loop
// runs as in the program (work procedures when idle).
//
//   keylatency DISPLAY DIRECTORY
// prints "samples N median MS max MS loop S" on standard output.
#include <X11/Intrinsic.h>
#include <X11/Shell.h>
#include <X11/keysym.h>
#include <Xm/Xm.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "browser/browser_x.h"
#include "core/app_x.h"
#include "core/display_x.h"
#include "core/settings.h"

using namespace quilla;
using Clock = std::chrono::steady_clock;

namespace {

void SendRight(Display *dpy, Window win) {
  XKeyEvent ev{};
  ev.type = KeyPress;
  ev.display = dpy;
  ev.window = win;
  ev.root = DefaultRootWindow(dpy);
  ev.keycode = XKeysymToKeycode(dpy, XK_Right);
  ev.same_screen = True;
  XSendEvent(dpy, win, True, KeyPressMask, reinterpret_cast<XEvent *>(&ev));
  ev.type = KeyRelease;
  XSendEvent(dpy, win, True, KeyReleaseMask, reinterpret_cast<XEvent *>(&ev));
  XFlush(dpy);
}

// One round of the program's main loop, bounded to `ms` of waiting.
void Step(XtAppContext app, unsigned long ms) {
  XtIntervalId t = XtAppAddTimeOut(app, ms, [](XtPointer, XtIntervalId *) {}, nullptr);
  XtAppProcessEvent(app, XtIMAll);
  XtRemoveTimeOut(t);
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: keylatency DISPLAY DIRECTORY\n");
    return 2;
  }
  XtToolkitInitialize();
  XtAppContext app = XtCreateApplicationContext();
  RegisterActions(app);
  int xargc = 0;
  Display *dpy = XtOpenDisplay(app, argv[1], "quilla", "Quilla", nullptr, 0, &xargc, nullptr);
  if (!dpy) {
    std::fprintf(stderr, "keylatency: cannot open %s\n", argv[1]);
    return 1;
  }
  App().app = app;
  App().dpy = dpy;
  App().screen = DefaultScreen(dpy);
  App().shell = XtVaAppCreateShell("quilla", "Quilla", applicationShellWidgetClass, dpy, XmNmappedWhenManaged, False,
                                   XmNwidth, 10, XmNheight, 10, nullptr);
  XtRealizeWidget(App().shell);
  InitVisual(dpy, App().screen, -1, false);
  ReadSettingsFile(&Settings(), "/nonexistent/settings");
  Settings().Cache.IsActive = false;

  const auto start = Clock::now();
  if (!OpenBrowser(App().shell, argv[2])) return 1;
  BrowserState st;
  GetBrowserState(&st);
  std::vector<double> samples;
  auto next = Clock::now();
  while (GetBrowserState(&st) && st.loop_running) {
    if (Clock::now() < next) {
      Step(app, 5);
      continue;
    }
    next = Clock::now() + std::chrono::milliseconds(100);
    const int before = st.current;
    const auto sent = Clock::now();
    SendRight(dpy, XtWindow(st.icon_view));
    while (GetBrowserState(&st) && st.current == before && Clock::now() - sent < std::chrono::seconds(5))
      Step(app, 1);
    if (st.current == before) break;  // at the last entry: no more samples
    samples.push_back(std::chrono::duration<double, std::milli>(Clock::now() - sent).count());
  }
  const double loop_s = std::chrono::duration<double>(Clock::now() - start).count();
  std::sort(samples.begin(), samples.end());
  std::printf("samples %zu median %.1f max %.1f loop %.2f\n", samples.size(),
              samples.empty() ? 0.0 : samples[samples.size() / 2], samples.empty() ? 0.0 : samples.back(), loop_s);
  return 0;
}
