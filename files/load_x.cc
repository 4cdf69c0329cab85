// The central load on X: the progress dialog with its Stop button, the load
// pump that keeps the interface alive inside tslLoad, the application's
// message box and confirmation dialog, and the busy cursor.
//
// Every dialog here may outlive neither its owner nor the call that made it:
// records shared with callbacks are freed only once both the call and the
// widget are done with them, and callbacks that could fire late are removed
// before a widget is destroyed.
#include "files/load_x.h"

#include <X11/cursorfont.h>
#include <Xm/AtomMgr.h>
#include <Xm/DialogS.h>
#include <Xm/Form.h>
#include <Xm/Label.h>
#include <Xm/Protocols.h>
#include <Xm/PushB.h>
#include <Xm/Xm.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <vector>

#include "core/app_x.h"
#include "core/settings.h"
#include "files/load_model.h"
#include "widgets/MyProgressBar.h"

namespace quilla {

namespace {

DialogHook g_hook = nullptr;

XmString MakeString(const std::string &text) { return XmStringCreateLocalized(const_cast<char *>(text.c_str())); }

Atom DeleteWindowAtom(Widget w) {
  return XmInternAtom(XtDisplay(w), const_cast<char *>("WM_DELETE_WINDOW"), False);
}

void RemoveLast(std::vector<Widget> *list, Widget w) {
  auto it = std::find(list->rbegin(), list->rend(), w);
  if (it != list->rend()) list->erase(std::next(it).base());
}

// ---- modal message box and confirmation dialog

struct Modal {
  Widget shell = nullptr, form = nullptr;
  bool done = false, answer = false;
  bool destroyed = false;  // the shell went away (its owner was destroyed)
  bool returned = false;   // the modal call is over; the destroy callback frees the record
};

std::vector<Widget> g_messages, g_confirms;

void ModalDestroyed(Widget, XtPointer data, XtPointer) {
  Modal *m = static_cast<Modal *>(data);
  if (m->returned) {
    delete m;
    return;
  }
  m->destroyed = true;
  m->done = true;
}

void ModalOk(Widget, XtPointer data, XtPointer) {
  Modal *m = static_cast<Modal *>(data);
  if (m->done) return;
  m->answer = true;
  m->done = true;
}

void ModalCancel(Widget, XtPointer data, XtPointer) {
  Modal *m = static_cast<Modal *>(data);
  if (m->done) return;
  m->answer = false;
  m->done = true;
}

// A dialog shell `shell_name` titled `title` holding the form `form_name`:
// the text on a label, "O.K." and, for questions, "Cancel".
Modal *BuildModal(Widget parent, const char *shell_name, const char *title, const char *form_name,
                  const std::string &text, bool question) {
  Modal *m = new Modal;
  m->shell = XtVaCreatePopupShell(shell_name, xmDialogShellWidgetClass, parent, XmNtitle, title, XmNdeleteResponse,
                                  XmDO_NOTHING, XmNallowShellResize, True, nullptr);
  XtAddCallback(m->shell, XtNdestroyCallback, ModalDestroyed, m);
  XmAddWMProtocolCallback(m->shell, DeleteWindowAtom(m->shell), ModalCancel, m);
  m->form = XtVaCreateWidget(form_name, xmFormWidgetClass, m->shell, XmNdialogStyle, XmDIALOG_FULL_APPLICATION_MODAL,
                             XmNautoUnmanage, False, XmNmarginWidth, 12, XmNmarginHeight, 12, nullptr);
  XmString s = MakeString(text);
  Widget label = XtVaCreateManagedWidget(
      "labelMessage", xmLabelWidgetClass, m->form, XmNlabelString, s, XmNtopAttachment, XmATTACH_FORM,
      XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, nullptr);
  XmStringFree(s);
  s = MakeString("O.K.");
  Widget ok = XtVaCreateManagedWidget(
      "buttonOK", xmPushButtonWidgetClass, m->form, XmNlabelString, s, XmNtopAttachment, XmATTACH_WIDGET,
      XmNtopWidget, label, XmNtopOffset, 12, XmNbottomAttachment, XmATTACH_FORM, XmNleftAttachment,
      XmATTACH_POSITION, XmNleftPosition, question ? 10 : 35, XmNrightAttachment, XmATTACH_POSITION,
      XmNrightPosition, question ? 40 : 65, nullptr);
  XmStringFree(s);
  XtAddCallback(ok, XmNactivateCallback, ModalOk, m);
  Widget cancel = ok;
  if (question) {
    s = MakeString("Cancel");
    cancel = XtVaCreateManagedWidget(
        "buttonCancel", xmPushButtonWidgetClass, m->form, XmNlabelString, s, XmNtopAttachment, XmATTACH_WIDGET,
        XmNtopWidget, label, XmNtopOffset, 12, XmNbottomAttachment, XmATTACH_FORM, XmNleftAttachment,
        XmATTACH_POSITION, XmNleftPosition, 60, XmNrightAttachment, XmATTACH_POSITION, XmNrightPosition, 90,
        nullptr);
    XmStringFree(s);
    XtAddCallback(cancel, XmNactivateCallback, ModalCancel, m);
  }
  XtVaSetValues(m->form, XmNdefaultButton, ok, XmNcancelButton, cancel, nullptr);
  return m;
}

// Shows the dialog and runs a local event loop until it is answered or its
// owner goes away.  Nested calls (a handler run by this loop asking again)
// each wait for their own dialog.
bool RunModal(Modal *m, std::vector<Widget> *shown) {
  Widget shell = m->shell;
  XtAppContext app = XtWidgetToApplicationContext(shell);
  shown->push_back(shell);
  XtManageChild(m->form);  // pops the dialog shell up
  XFlush(XtDisplay(shell));
  if (g_hook && !m->done) g_hook(shell);
  // XtAppProcessEvent rather than XtAppNextEvent: it returns after a timer
  // or input callback too, so an answer given there ends the loop at once.
  while (!m->done && !XtAppGetExitFlag(app)) XtAppProcessEvent(app, XtIMAll);
  RemoveLast(shown, shell);
  bool answer = m->answer && !m->destroyed;
  if (m->destroyed) {
    delete m;
  } else {
    m->returned = true;
    XtUnmanageChild(m->form);
    XtDestroyWidget(shell);  // frees m, now or when the current dispatch ends
  }
  return answer;
}

// ---- progress dialog

struct Progress {
  Widget handle = nullptr;  // the shell as handed out; kept after destruction
  Widget parent = nullptr, shell = nullptr, form = nullptr, bar = nullptr, stop = nullptr;
  bool stopped = false, destroyed = false;
};

std::vector<Progress *> g_progress;  // open progress dialogs, innermost last
std::vector<Progress *> g_loads;     // the dialogs of running loads, innermost last

void ProgressDestroyed(Widget, XtPointer data, XtPointer) {
  Progress *p = static_cast<Progress *>(data);
  p->destroyed = true;
  p->shell = p->form = p->bar = p->stop = nullptr;
}

void ProgressStop(Widget, XtPointer data, XtPointer) { static_cast<Progress *>(data)->stopped = true; }

void SetProgressRecord(Progress *p, int percent) {
  if (!p || p->destroyed) return;
  percent = std::max(0, std::min(100, percent));
  char text[16];
  std::snprintf(text, sizeof text, "%d%%", percent);
  XmString s = MakeString(text);
  MyProgressBarSetComponents(p->bar, s, 0, 100, percent);
  XmStringFree(s);
  XmUpdateDisplay(p->shell);
}

Progress *OpenProgressRecord(Widget owner, const char *title, const std::string &text) {
  Widget parent = DialogParent(owner);
  if (!parent) return nullptr;
  Progress *p = new Progress;
  p->parent = parent;
  p->shell = XtVaCreatePopupShell("QuillProgress", xmDialogShellWidgetClass, parent, XmNtitle, title,
                                  XmNdeleteResponse, XmDO_NOTHING, XmNallowShellResize, True, nullptr);
  p->handle = p->shell;
  XtAddCallback(p->shell, XtNdestroyCallback, ProgressDestroyed, p);
  // Closing it through the window manager is the same as Stop.
  XmAddWMProtocolCallback(p->shell, DeleteWindowAtom(p->shell), ProgressStop, p);
  p->form = XtVaCreateWidget("form", xmFormWidgetClass, p->shell, XmNautoUnmanage, False, XmNmarginWidth, 12,
                             XmNmarginHeight, 12, nullptr);
  XmString s = MakeString(text);
  Widget label = XtVaCreateManagedWidget(
      "labelProgress", xmLabelWidgetClass, p->form, XmNlabelString, s, XmNalignment, XmALIGNMENT_BEGINNING,
      XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, nullptr);
  XmStringFree(s);
  Arg args[8];
  Cardinal n = 0;
  XtSetArg(args[n], XmNwidth, 300), ++n;
  XtSetArg(args[n], XmNheight, 24), ++n;
  XtSetArg(args[n], XmNtopAttachment, XmATTACH_WIDGET), ++n;
  XtSetArg(args[n], XmNtopWidget, label), ++n;
  XtSetArg(args[n], XmNtopOffset, 8), ++n;
  XtSetArg(args[n], XmNleftAttachment, XmATTACH_FORM), ++n;
  XtSetArg(args[n], XmNrightAttachment, XmATTACH_FORM), ++n;
  p->bar = MyCreateProgressBar(p->form, "progressBar", args, n);
  XtManageChild(p->bar);
  s = MakeString("Stop");
  p->stop = XtVaCreateManagedWidget(
      "buttonStop", xmPushButtonWidgetClass, p->form, XmNlabelString, s, XmNtopAttachment, XmATTACH_WIDGET,
      XmNtopWidget, p->bar, XmNtopOffset, 12, XmNbottomAttachment, XmATTACH_FORM, XmNleftAttachment,
      XmATTACH_POSITION, XmNleftPosition, 35, XmNrightAttachment, XmATTACH_POSITION, XmNrightPosition, 65, nullptr);
  XmStringFree(s);
  XtAddCallback(p->stop, XmNactivateCallback, ProgressStop, p);
  XtVaSetValues(p->form, XmNdefaultButton, p->stop, XmNcancelButton, p->stop, nullptr);
  s = MakeString("0%");
  MyProgressBarSetComponents(p->bar, s, 0, 100, 0);
  XmStringFree(s);
  g_progress.push_back(p);
  XtManageChild(p->form);  // pops the dialog shell up
  XmUpdateDisplay(p->shell);
  XFlush(XtDisplay(p->shell));
  return p;
}

void CloseProgressRecord(Progress *p) {
  if (!p) return;
  g_progress.erase(std::remove(g_progress.begin(), g_progress.end(), p), g_progress.end());
  if (!p->destroyed) {
    // The widgets may only die at the end of the current dispatch: nothing
    // may call back into the record after it is freed.
    XtRemoveCallback(p->shell, XtNdestroyCallback, ProgressDestroyed, p);
    XmRemoveWMProtocolCallback(p->shell, DeleteWindowAtom(p->shell), ProgressStop, p);
    XtRemoveCallback(p->stop, XmNactivateCallback, ProgressStop, p);
    XtUnmanageChild(p->form);
    XtDestroyWidget(p->shell);
    XFlush(XtDisplay(p->parent));
  }
  delete p;
}

Progress *FindProgress(Widget handle) {
  if (!handle) return nullptr;
  for (auto it = g_progress.rbegin(); it != g_progress.rend(); ++it)
    if ((*it)->handle == handle) return *it;
  return nullptr;
}

// The load pump: the library's progress callback during a central load.
int LoadPump(int what, int value, void *) {
  Progress *p = g_loads.empty() ? nullptr : g_loads.back();
  if (p && !p->destroyed && what == 0) SetProgressRecord(p, value);
  if (g_hook && p && !p->destroyed) g_hook(p->shell);
  XtAppContext app = p && !p->destroyed ? XtWidgetToApplicationContext(p->shell) : App().app;
  if (app) PumpXEvents(app);
  // A dialog destroyed with its owner stops the load as Stop does.
  return p && (p->stopped || p->destroyed) ? 1 : 0;
}

// ---- busy cursor

std::map<Widget, int> g_busy;  // shell -> unmatched SetBusy(true) calls

void BusyShellDestroyed(Widget w, XtPointer, XtPointer) { g_busy.erase(w); }

void DefineBusyCursor(Widget shell, bool busy) {
  if (!XtIsRealized(shell)) return;
  Display *dpy = XtDisplay(shell);
  if (busy) {
    Cursor watch = XCreateFontCursor(dpy, XC_watch);
    XDefineCursor(dpy, XtWindow(shell), watch);
    XFreeCursor(dpy, watch);  // the window keeps it while defined
  } else {
    XUndefineCursor(dpy, XtWindow(shell));
  }
  XFlush(dpy);
}

void BusyOnShell(Widget shell) {
  if (!WidgetAlive(shell)) return;
  int &depth = g_busy[shell];
  if (depth++ == 0) {
    XtAddCallback(shell, XtNdestroyCallback, BusyShellDestroyed, nullptr);
    DefineBusyCursor(shell, true);
  }
}

// Takes the shell rather than a widget below it, which may be gone by now:
// a destroyed shell has left the table already.
void BusyOffShell(Widget shell) {
  auto it = g_busy.find(shell);
  if (it == g_busy.end()) return;
  if (--it->second > 0) return;
  g_busy.erase(it);
  XtRemoveCallback(shell, XtNdestroyCallback, BusyShellDestroyed, nullptr);
  if (WidgetAlive(shell)) DefineBusyCursor(shell, false);
}

}  // namespace

// ---- the central load

int CentralLoad(Widget owner, const char *path, int page, TslPicture *pic, const TslFileInfo *info,
                bool report_errors) {
  if (!pic) return TSL_ERR_INTERNAL;
  if (!path) path = "";
  if (!owner) owner = App().main_window ? App().main_window : App().shell;
  Progress *p = OpenProgressRecord(owner, "Loading", LoadingLabel(path));
  g_loads.push_back(p);

  TslFileInfo own_info;
  bool asked = false;
  if (!info) {
    // The load goes on whatever this says: with IgnoreError the library may
    // still keep part of a file it cannot describe.
    tslFileInformation(path, -1, 0, &own_info);
    info = &own_info;
    asked = true;
  }
  LoadRequest req;
  FillLoadRequest(Settings(), info->format, page, App().verbose, &req);
  req.params.progress = LoadPump;
  req.params.progress_data = nullptr;

  pic->pixels = nullptr;
  pic->palette = nullptr;
  int code = tslLoad(path, pic, &req.params);

  if (code != TSL_OK && code != TSL_STOPPED && report_errors) {
    // The owner may have been destroyed by an event handled during the load;
    // the progress dialog, its child, tells.
    Widget where = p && !p->destroyed ? p->parent : nullptr;
    ShowLoadError(where, path, code, info->message);
  }
  g_loads.erase(std::find(g_loads.rbegin(), g_loads.rend(), p).base() - 1);
  CloseProgressRecord(p);
  if (asked) tslFileInformationFree(&own_info);
  return code & 0xff;
}

int CentralLoadBusy(Widget owner, const char *path, int page, TslPicture *pic, const TslFileInfo *info,
                    bool report_errors) {
  Widget main_shell = ShellOf(App().main_window);
  Widget shell = ShellOf(owner);
  bool busy = shell && shell != main_shell;
  if (busy) BusyOnShell(shell);
  int code = CentralLoad(owner, path, page, pic, info, report_errors);
  if (busy) BusyOffShell(shell);
  return code;
}

// ---- message box and confirmation

void ShowMessage(Widget owner, const std::string &text) {
  Widget parent = DialogParent(owner);
  if (!parent) {
    std::fprintf(stderr, "%s\n", text.c_str());
    return;
  }
  RunModal(BuildModal(parent, "QuillMessage", "Message", "shootMessage", text, false), &g_messages);
}

void ShowLoadError(Widget owner, const char *path, int code, const char *library_message) {
  ShowMessage(owner, LoadErrorText(path, code, library_message));
}

bool AskConfirm(Widget owner, const std::string &text) {
  Widget parent = DialogParent(owner);
  if (!parent) return false;
  return RunModal(BuildModal(parent, "QuillConfirm", "Confirmation", "shootConfirm", text, true), &g_confirms);
}

// ---- progress dialog

Widget OpenProgress(Widget owner, const char *title, const char *label) {
  Progress *p = OpenProgressRecord(owner, title ? title : "", label ? label : "");
  return p ? p->handle : nullptr;
}

void SetProgress(Widget dialog, int percent) { SetProgressRecord(FindProgress(dialog), percent); }

bool ProgressStopped(Widget dialog) {
  Progress *p = FindProgress(dialog);
  return p && (p->stopped || p->destroyed);
}

void CloseProgress(Widget dialog) { CloseProgressRecord(FindProgress(dialog)); }

// ---- busy cursor

void SetBusy(Widget w, bool busy) {
  Widget shell = ShellOf(w);
  if (busy)
    BusyOnShell(shell);
  else
    BusyOffShell(shell);
}

int BusyDepth(Widget w) {
  auto it = g_busy.find(ShellOf(w));
  return it == g_busy.end() ? 0 : it->second;
}

// ---- test hooks

Widget ShownMessageBox() { return g_messages.empty() ? nullptr : g_messages.back(); }
Widget ShownConfirm() { return g_confirms.empty() ? nullptr : g_confirms.back(); }

Widget ShownProgress() {
  for (auto it = g_progress.rbegin(); it != g_progress.rend(); ++it)
    if (!(*it)->destroyed) return (*it)->shell;
  return nullptr;
}

DialogHook SetDialogHook(DialogHook hook) {
  DialogHook old = g_hook;
  g_hook = hook;
  return old;
}

void CallDialogHook(Widget shell) {
  if (g_hook) g_hook(shell);
}

void PumpXEvents(XtAppContext app) {
  while (XtAppPending(app) & XtIMXEvent) {
    XEvent event;
    XtAppNextEvent(app, &event);
    XtDispatchEvent(&event);
  }
}

}  // namespace quilla
