// The application shell side of start-up: the start-up state, the named
// actions, the signal handlers, the window icon, the start window, the About
// box and quit.
#include "core/app_x.h"
#include "widgets/BubbleHelp.h"

#include <X11/IntrinsicP.h>
#include <X11/CoreP.h>
#include <Xm/Xm.h>
#include <Xm/Form.h>
#include <Xm/Label.h>
#include <Xm/Protocols.h>
#include <Xm/PushB.h>
#include <Xm/Separator.h>
#include <Xm/TextF.h>
#include <Xm/DialogS.h>
#include <X11/Shell.h>
#include <X11/Xatom.h>

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "browser/browser_x.h"
#include "core/display_x.h"
#include "core/options_x.h"
#include "core/settings.h"
#include "core/shell_command.h"
#include "tessel.h"
#include "view/view_x.h"

namespace quilla {

namespace {

const char kWebAddress[] = "https://quilla.example.org/";
const char kMailAddress[] = "quilla@example.org";

// ---- named actions --------------------------------------------------------

// The file lists are not part of the program yet; their action is
// registered so that translations naming it parse, and does nothing.
void FilelistDoCommandAction(Widget, XEvent *, String *, Cardinal *) {}
void DoBubbleAction(Widget w, XEvent *event, String *params, Cardinal *count) {
  BubbleHelpAction(w, event, params, count);
}

// The About box's link labels: the web browser from WEBBROWSER, through the
// shell and in the background, on the web address, or on a mail command for
// the mail label.  The addresses are quoted for the shell.
void UrlClickAction(Widget w, XEvent *, String *, Cardinal *) {
  const bool mail = std::strcmp(XtName(w), "labelEmail") == 0;
  const std::string command = BrowserLaunchLine(WebBrowserCommand(), mail ? kMailAddress : kWebAddress, mail);
  if (std::system(command.c_str()) == -1) std::perror("UrlClick");
}

XtActionsRec kActions[] = {
    {const_cast<String>("ViewDoCommand"), ViewDoCommandAction},
    {const_cast<String>("ViewKeyScroll"), ViewKeyScrollAction},
    {const_cast<String>("ViewClose"), ViewCloseAction},
    {const_cast<String>("BrowserDoCommand"), BrowserDoCommandAction},
    {const_cast<String>("BrowserDoPopup"), BrowserDoPopupAction},
    {const_cast<String>("UrlClick"), UrlClickAction},
    {const_cast<String>("FilelistDoCommand"), FilelistDoCommandAction},
    {const_cast<String>("DoBubble"), DoBubbleAction},
};

// ---- signals ----------------------------------------------------------------
// The handlers use write(2) and _exit(2) only: they may interrupt anything,
// malloc and stdio included.  Our own diagnostics on standard output are
// written the same way, so nothing of ours waits in a stdio buffer.

void WriteRaw(const char *text) {
  size_t left = std::strlen(text);
  while (left > 0) {
    ssize_t n = ::write(STDOUT_FILENO, text, left);
    if (n <= 0) return;
    text += n;
    left -= static_cast<size_t>(n);
  }
}

extern "C" void OnInterrupt(int) {
  WriteRaw("****** Interrupt detected ******\n");
  AppState &a = App();
  if (++a.interrupts > 2) _exit(1);
  // One-shot semantics: the handler was reset on entry and puts itself back,
  // before the announcement, so that a Ctrl+C following it is always seen.
  sysv_signal(SIGINT, OnInterrupt);
  // "Hit %d Ctrl+C..." with 3 minus the count (1 or 2 here), by hand.
  char line[] = "****** Hit 0 Ctrl+C for exiting without saving ******\n";
  line[11] = static_cast<char>('0' + (3 - a.interrupts));
  WriteRaw(line);
}

extern "C" void OnFatalSignal(int) {
  WriteRaw("****** Error detected ******\n");
  _exit(0);
}

extern "C" void OnAlarm(int) {
  WriteRaw("****** Alarm signal ******\n");
  _exit(0);
}

// ---- start window and About box ------------------------------------------

void StartWindowClosed(Widget, XtPointer, XtPointer) { QuitWritingSettings(); }

Widget g_about = nullptr;

void AboutDestroyed(Widget, XtPointer, XtPointer) { g_about = nullptr; }
void AboutOk(Widget, XtPointer client, XtPointer) { XtDestroyWidget(static_cast<Widget>(client)); }

XmString Text(const char *s) { return XmStringCreateLocalized(const_cast<char *>(s)); }

// A left-aligned label under `above` (or at the top), right of `beside` (or
// at the left edge).
Widget Label(const char *name, Widget parent, const char *text, Widget above, Widget beside) {
  XmString s = Text(text);
  Widget w = XtVaCreateManagedWidget(
      name, xmLabelWidgetClass, parent, XmNlabelString, s, XmNalignment, XmALIGNMENT_BEGINNING, XmNtopAttachment,
      above ? XmATTACH_WIDGET : XmATTACH_FORM, XmNtopWidget, above, XmNtopOffset, above ? 2 : 10,
      XmNleftAttachment, beside ? XmATTACH_WIDGET : XmATTACH_FORM, XmNleftWidget, beside, XmNleftOffset,
      beside ? 16 : 10, XmNrightAttachment, XmATTACH_FORM, XmNrightOffset, 10, nullptr);
  XmStringFree(s);
  return w;
}

}  // namespace

AppState &App() {
  static AppState state;
  return state;
}

void RegisterActions(XtAppContext app) {
  XtAppAddActions(app, kActions, XtNumber(kActions));
  SetCachePageHook(FillCachePage);
}

void InstallSignalHandlers() {
  sysv_signal(SIGINT, OnInterrupt);
  sysv_signal(SIGFPE, OnFatalSignal);
  sysv_signal(SIGBUS, OnFatalSignal);
  sysv_signal(SIGSEGV, OnFatalSignal);
  sysv_signal(SIGALRM, OnAlarm);
}

Widget ShellOf(Widget w) {
  while (w && !XtIsShell(w)) w = XtParent(w);
  return w;
}

bool WidgetAlive(Widget w) { return w && !w->core.being_destroyed; }

Widget DialogParent(Widget owner) {
  Widget s = ShellOf(owner);
  if (WidgetAlive(s)) return s;
  s = ShellOf(App().main_window);
  if (WidgetAlive(s)) return s;
  return WidgetAlive(App().shell) ? App().shell : nullptr;
}

void Bell() {
  if (App().dpy) XBell(App().dpy, 0);
}

std::string FieldText(Widget field) {
  char *s = XmTextFieldGetString(field);
  std::string out = s ? s : "";
  XtFree(s);
  return out;
}

void SetLabelText(Widget label, const std::string &text) {
  XmString s = XmStringCreateLocalized(const_cast<char *>(text.c_str()));
  XtVaSetValues(label, XmNlabelString, s, nullptr);
  XmStringFree(s);
}

Widget BottomRowButton(Widget form, Widget above, const char *name, const char *label, int left, int right) {
  XmString l = XmStringCreateLocalized(const_cast<char *>(label));
  Widget b = XtVaCreateManagedWidget(name, xmPushButtonWidgetClass, form, XmNlabelString, l, XmNtopAttachment,
                                     XmATTACH_WIDGET, XmNtopWidget, above, XmNtopOffset, 8, XmNbottomAttachment,
                                     XmATTACH_FORM, XmNleftAttachment, XmATTACH_POSITION, XmNleftPosition, left,
                                     XmNrightAttachment, XmATTACH_POSITION, XmNrightPosition, right, nullptr);
  XmStringFree(l);
  return b;
}

namespace {

std::string g_selection_text;

Boolean ConvertTextSelection(Widget w, Atom *, Atom *target, Atom *type, XtPointer *value, unsigned long *length,
                             int *format) {
  Display *dpy = XtDisplay(w);
  const Atom utf8 = XInternAtom(dpy, "UTF8_STRING", False), targets = XInternAtom(dpy, "TARGETS", False);
  if (*target == targets) {
    auto *list = reinterpret_cast<Atom *>(XtMalloc(3 * sizeof(Atom)));
    list[0] = targets, list[1] = utf8, list[2] = XA_STRING;
    *type = XA_ATOM, *value = list, *length = 3, *format = 32;
    return True;
  }
  if (*target != XA_STRING && *target != utf8 && *target != XInternAtom(dpy, "TEXT", False)) return False;
  char *copy = XtMalloc(static_cast<Cardinal>(g_selection_text.size() + 1));
  std::memcpy(copy, g_selection_text.c_str(), g_selection_text.size() + 1);
  *type = *target == utf8 ? utf8 : XA_STRING;
  *value = copy, *length = g_selection_text.size(), *format = 8;
  return True;
}

}  // namespace

bool OwnTextSelection(Widget w, const std::string &text) {
  if (!w || !XtIsRealized(w)) return false;
  g_selection_text = text;
  const Time now = XtLastTimestampProcessed(XtDisplay(w));
  const Atom clipboard = XInternAtom(XtDisplay(w), "CLIPBOARD", False);
  const bool primary = XtOwnSelection(w, XA_PRIMARY, now, ConvertTextSelection, nullptr, nullptr);
  const bool board = XtOwnSelection(w, clipboard, now, ConvertTextSelection, nullptr, nullptr);
  return primary && board;
}

void SetWindowIcon(Widget shell) {
  if (shell && App().icon) XtVaSetValues(shell, XmNiconPixmap, App().icon, nullptr);
}

Widget OpenStartWindow(Widget parent) {
  // Closing the start window through the window manager ends the program as
  // its quit command does (settings written): it is the only window, and a
  // program without a window could not be reached any more.  Motif is told
  // to do nothing itself so that the shell is still whole when we quit.
  Widget shell = XtVaCreatePopupShell("QuillInit", topLevelShellWidgetClass, parent, XmNtitle, "Quilla v1.50",
                                      XmNiconName, "Quilla", XmNdeleteResponse, XmDO_NOTHING, nullptr);
  SetWindowIcon(shell);
  Atom wm_delete = XmInternAtom(XtDisplay(shell), const_cast<char *>("WM_DELETE_WINDOW"), False);
  XmAddWMProtocolCallback(shell, wm_delete, StartWindowClosed, nullptr);

  Widget form = XtVaCreateWidget("form", xmFormWidgetClass, shell, nullptr);
  // The menus of an empty view: open, browse, options, quit (Ctrl+Q) ...
  Widget menu = CreateViewMenuBar(form);
  XtVaSetValues(menu, XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment,
                XmATTACH_FORM, nullptr);
  XtManageChild(menu);
  // Wide enough for every menu on one row, Help at the right.
  Dimension width = 0;
  XtVaGetValues(form, XmNwidth, &width, nullptr);
  const int needed = MenuBarNeededWidth(menu);
  if (needed > width) XtVaSetValues(form, XmNwidth, static_cast<Dimension>(needed), nullptr);
  XmString s = Text("Open pictures with File > Open (Ctrl+O),\nor name them on the command line.");
  XtVaCreateManagedWidget("label", xmLabelWidgetClass, form, XmNlabelString, s, XmNtopAttachment,
                          XmATTACH_WIDGET, XmNtopWidget, menu, XmNleftAttachment, XmATTACH_FORM,
                          XmNrightAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_FORM, XmNtopOffset, 4,
                          XmNbottomOffset, 4, nullptr);
  XmStringFree(s);
  XtManageChild(form);
  XtPopup(shell, XtGrabNone);
  return shell;
}

void OpenAbout(Widget parent) {
  if (g_about) {  // already open: bring it forward
    XtPopup(g_about, XtGrabNone);
    if (XtWindow(g_about)) XRaiseWindow(XtDisplay(g_about), XtWindow(g_about));
    return;
  }
  Widget shell = XtVaCreatePopupShell("QuillAbout", xmDialogShellWidgetClass, parent, XmNtitle, "About Quilla",
                                      XmNdeleteResponse, XmDESTROY, nullptr);
  g_about = shell;
  XtAddCallback(shell, XmNdestroyCallback, AboutDestroyed, nullptr);
  Widget form = XtVaCreateWidget("form", xmFormWidgetClass, shell, XmNautoUnmanage, False, XmNnoResize, True,
                                 nullptr);

  Widget icon = nullptr;
  if (App().icon) {
    icon = XtVaCreateManagedWidget("labelPixmap", xmLabelWidgetClass, form, XmNlabelType, XmPIXMAP, XmNlabelPixmap,
                            App().icon, XmNtopAttachment, XmATTACH_FORM, XmNtopOffset, 10, XmNleftAttachment,
                            XmATTACH_FORM, XmNleftOffset, 10, nullptr);
  }
  char version[16] = {0};
  tslVersion(version);
  const std::string lib = std::string("Libtessel Version ") + version;
  const char *const lines[8] = {
      "Quilla for X11/Motif",
      "Version 1.50",
      lib.c_str(),
      "A picture viewer, browser and converter, free software.",
      "Built on the X Toolkit Intrinsics and the Motif widget set.",
      "This software is based in part on the work of the Independent JPEG Group.",
      "PNG support uses libpng, by the PNG Development Group.",
      "Compression uses zlib, by Jean-loup Gailly and Mark Adler.",
  };
  Widget above = nullptr;
  for (int i = 0; i < 8; ++i) {
    char name[8];
    std::snprintf(name, sizeof name, "label%d", i + 1);
    above = Label(name, form, lines[i], above, icon);
  }

  XtTranslations links = XtParseTranslationTable("    <Btn1Down>:        UrlClick() \n");
  Widget email = Label("labelEmail", form, kMailAddress, above, icon);
  Widget url = Label("labelUrl", form, kWebAddress, email, icon);
  for (Widget w : {email, url})
    XtVaSetValues(w, XmNtranslations, links, XtVaTypedArg, XmNforeground, XmRString, "Blue", 5, nullptr);

  Widget sep = XtVaCreateManagedWidget("separator", xmSeparatorWidgetClass, form, XmNtopAttachment, XmATTACH_WIDGET,
                                       XmNtopWidget, url, XmNtopOffset, 8, XmNleftAttachment, XmATTACH_FORM,
                                       XmNrightAttachment, XmATTACH_FORM, nullptr);
  XmString ok = Text("O.K.");
  Widget button = XtVaCreateManagedWidget(
      "buttonOk", xmPushButtonWidgetClass, form, XmNlabelString, ok, XmNtopAttachment, XmATTACH_WIDGET,
      XmNtopWidget, sep, XmNtopOffset, 8, XmNbottomAttachment, XmATTACH_FORM, XmNbottomOffset, 8,
      XmNleftAttachment, XmATTACH_POSITION, XmNleftPosition, 40, XmNrightAttachment, XmATTACH_POSITION,
      XmNrightPosition, 60, nullptr);
  XmStringFree(ok);
  XtAddCallback(button, XmNactivateCallback, AboutOk, shell);
  XtVaSetValues(form, XmNdefaultButton, button, nullptr);
  SetWindowIcon(shell);
  XtManageChild(form);  // a dialog shell pops up with its child
}

[[noreturn]] void Quit() {
  AppState &a = App();
  if (a.dpy && a.icon) XFreePixmap(a.dpy, a.icon);
  a.icon = 0;
  if (a.dpy) FreeAllColourData(a.dpy);
  FreeToolbarPixmaps();
  tslExitLibrary();
  for (Cursor &c : a.cursors)
    if (a.dpy && c) {
      XFreeCursor(a.dpy, c);
      c = 0;
    }
  if (a.dpy) XFlush(a.dpy);
  std::exit(0);
}

[[noreturn]] void QuitWritingSettings() {
  SaveSettings();
  Quit();
}

}  // namespace quilla
