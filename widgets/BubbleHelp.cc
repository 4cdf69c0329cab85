// Bubble help on tool bar buttons (see BubbleHelp.h).
#include "widgets/BubbleHelp.h"

#include <X11/Shell.h>
#include <Xm/Label.h>
#include <Xm/Xm.h>

#include <cstring>
#include <map>
#include <string>

namespace {

struct State {
  std::map<Widget, std::string> texts;  // the widgets with a bubble
  Widget shell = nullptr, label = nullptr;
  Widget pending = nullptr;             // waiting for the delay
  Widget shown_for = nullptr;
  XtIntervalId timer = 0;
  unsigned long delay = 500;
  Boolean (*enabled)(void) = nullptr;
};

State &S() {
  static State s;
  return s;
}

void Hide() {
  State &s = S();
  if (s.timer) XtRemoveTimeOut(s.timer);
  s.timer = 0;
  s.pending = nullptr;
  if (s.shell && s.shown_for) XtPopdown(s.shell);
  s.shown_for = nullptr;
}

void ShellDestroyed(Widget, XtPointer, XtPointer) {
  State &s = S();
  if (s.timer) XtRemoveTimeOut(s.timer);
  s.timer = 0;
  s.shell = s.label = s.pending = s.shown_for = nullptr;
}

// One shell per application, made on first use under the first widget's
// application shell.
bool EnsureShell(Widget w) {
  State &s = S();
  if (s.shell && XtDisplay(s.shell) == XtDisplay(w)) return true;
  if (s.shell) XtDestroyWidget(s.shell);
  Widget top = w;
  while (XtParent(top)) top = XtParent(top);
  s.shell = XtVaCreatePopupShell("bubbleHelp", overrideShellWidgetClass, top, XmNborderWidth, 1,
                                 XmNallowShellResize, True, XmNsaveUnder, True, nullptr);
  s.label = XtVaCreateManagedWidget("BubbleText", xmLabelWidgetClass, s.shell, XmNmarginWidth, 4, XmNmarginHeight,
                                    2, XmNtraversalOn, False, nullptr);
  XtAddCallback(s.shell, XtNdestroyCallback, ShellDestroyed, nullptr);
  return true;
}

void Show(XtPointer, XtIntervalId *) {
  State &s = S();
  s.timer = 0;
  Widget w = s.pending;
  s.pending = nullptr;
  auto it = s.texts.find(w);
  if (!w || it == s.texts.end() || !XtIsRealized(w) || !XtIsManaged(w)) return;
  if (s.enabled && !s.enabled()) return;
  if (!EnsureShell(w)) return;
  XmString text = XmStringCreateLocalized(const_cast<char *>(it->second.c_str()));
  XtVaSetValues(s.label, XmNlabelString, text, nullptr);
  XmStringFree(text);
  if (!XtIsRealized(s.shell)) XtRealizeWidget(s.shell);
  // Below the widget, moved left or above it when the screen ends.
  Dimension wh = 0, bw = 0, bh = 0, border = 0;
  XtVaGetValues(w, XmNheight, &wh, nullptr);
  XtWidgetGeometry pref{};
  XtQueryGeometry(s.label, nullptr, &pref);
  bw = pref.width;
  bh = pref.height;
  XtVaGetValues(s.shell, XmNborderWidth, &border, nullptr);
  Position rx = 0, ry = 0;
  XtTranslateCoords(w, 0, 0, &rx, &ry);
  Screen *scr = XtScreen(w);
  const int sw = WidthOfScreen(scr), sh = HeightOfScreen(scr);
  const int full_w = bw + 2 * border, full_h = bh + 2 * border;
  int x = rx + 4, y = ry + wh + 2;
  if (x + full_w > sw) x = sw - full_w;
  if (x < 0) x = 0;
  if (y + full_h > sh) y = ry - full_h - 2;
  if (y < 0) y = 0;
  XtVaSetValues(s.shell, XmNx, static_cast<Position>(x), XmNy, static_cast<Position>(y), XmNwidth, bw, XmNheight, bh,
                nullptr);
  XtPopup(s.shell, XtGrabNone);
  XRaiseWindow(XtDisplay(s.shell), XtWindow(s.shell));
  s.shown_for = w;
}

void Arm(Widget w) {
  State &s = S();
  Hide();
  s.pending = w;
  s.timer = XtAppAddTimeOut(XtWidgetToApplicationContext(w), s.delay, Show, nullptr);
}

void EventSeen(Widget w, XtPointer, XEvent *event, Boolean *) {
  if (event->type == EnterNotify)
    Arm(w);
  else
    Hide();
}

void WidgetDestroyed(Widget w, XtPointer, XtPointer) {
  State &s = S();
  if (s.pending == w || s.shown_for == w) Hide();
  s.texts.erase(w);
}

constexpr EventMask kMask = EnterWindowMask | LeaveWindowMask | ButtonPressMask | KeyPressMask;

}  // namespace

extern "C" {

void BubbleHelpAttach(Widget w, const char *text) {
  if (!w) return;
  State &s = S();
  const bool known = s.texts.count(w) != 0;
  if (!text) {
    if (!known) return;
    XtRemoveEventHandler(w, kMask, False, EventSeen, nullptr);
    XtRemoveCallback(w, XtNdestroyCallback, WidgetDestroyed, nullptr);
    WidgetDestroyed(w, nullptr, nullptr);
    return;
  }
  s.texts[w] = text;
  if (known) return;
  XtAddEventHandler(w, kMask, False, EventSeen, nullptr);
  XtAddCallback(w, XtNdestroyCallback, WidgetDestroyed, nullptr);
}

void BubbleHelpSetEnabledProc(Boolean (*enabled)(void)) { S().enabled = enabled; }

void BubbleHelpSetDelay(unsigned long ms) { S().delay = ms; }

void BubbleHelpAction(Widget w, XEvent *event, String *params, Cardinal *count) {
  const bool show = !count || *count == 0 || std::strcmp(params[0], "show") == 0;
  if (show && event && event->type == EnterNotify && S().texts.count(w))
    Arm(w);
  else
    Hide();
}

Widget BubbleHelpShown(void) { return S().shown_for ? S().shell : nullptr; }

}  // extern "C"
