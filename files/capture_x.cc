// The capture dialog: mode toggles, the window list, and Apply running xwd
// with an argument vector (no shell), then opening its dump in a view.
#include "files/capture_x.h"

#include <X11/IntrinsicP.h>
#include <X11/Xutil.h>
#include <Xm/DialogS.h>
#include <Xm/Form.h>
#include <Xm/List.h>
#include <Xm/PushB.h>
#include <Xm/RowColumn.h>
#include <Xm/Separator.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "core/app_x.h"
#include "files/load_x.h"
#include "view/view_x.h"

namespace quilla {

namespace {

struct CaptureDialog {
  Widget shell = nullptr, desktop = nullptr, single = nullptr, select = nullptr, decorations = nullptr,
         list = nullptr;
};

CaptureDialog *g_dialog = nullptr;

// Windows may go away while they are walked or raised: their errors are
// ignored instead of ending the program.
int IgnoreXError(Display *, XErrorEvent *) { return 0; }

void Walk(Display *dpy, Window w, CaptureWindow *out) {
  out->id = static_cast<uint32_t>(w);
  XWindowAttributes a;
  if (XGetWindowAttributes(dpy, w, &a)) {
    out->viewable = a.map_state == IsViewable;
    out->input_only = a.c_class == InputOnly;
  }
  char *name = nullptr;
  if (XFetchName(dpy, w, &name) && name) {
    out->has_name = true;
    out->name = name;
    XFree(name);
  }
  Window root_ret = 0, parent_ret = 0, *children = nullptr;
  unsigned int count = 0;
  if (!XQueryTree(dpy, w, &root_ret, &parent_ret, &children, &count)) return;
  out->children.resize(count);
  for (unsigned int i = 0; i < count; ++i) Walk(dpy, children[i], &out->children[i]);
  if (children) XFree(children);
}

void FillList(CaptureDialog *d) {
  Display *dpy = XtDisplay(d->shell);
  const std::vector<std::string> lines = CaptureWindowList(WalkWindowTree(dpy, RootWindowOfScreen(XtScreen(d->shell))));
  XmListDeleteAllItems(d->list);
  for (const std::string &line : lines) {
    XmString s = XmStringCreateLocalized(const_cast<char *>(line.c_str()));
    XmListAddItemUnselected(d->list, s, 0);
    XmStringFree(s);
  }
}

std::string SelectedLine(const CaptureDialog *d) {
  XmString *items = nullptr;
  int count = 0;
  XtVaGetValues(d->list, XmNselectedItems, &items, XmNselectedItemCount, &count, nullptr);
  if (count < 1) return std::string();
  char *text = static_cast<char *>(XmStringUnparse(items[0], nullptr, XmCHARSET_TEXT, XmCHARSET_TEXT, nullptr, 0,
                                                   XmOUTPUT_ALL));
  std::string line = text ? text : "";
  XtFree(text);
  return line;
}

void Destroyed(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<CaptureDialog *>(data);
  if (g_dialog == d) g_dialog = nullptr;
  delete d;
}

void Cancel(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<CaptureDialog *>(data);
  if (!d->shell->core.being_destroyed) XtDestroyWidget(d->shell);
}

// Gives the chosen window the top of the stack and lets it redraw there
// before it is dumped.
void RaiseAndWait(Display *dpy, Window target) {
  XSync(dpy, False);
  XErrorHandler old = XSetErrorHandler(IgnoreXError);
  if (target) XRaiseWindow(dpy, target);
  XSync(dpy, False);
  XSetErrorHandler(old);
  PumpXEvents(App().app);
  sleep(1);
  PumpXEvents(App().app);
}

void Apply(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<CaptureDialog *>(data);
  CaptureMode mode = CaptureMode::kDesktop;
  if (XmToggleButtonGetState(d->single)) mode = CaptureMode::kSingle;
  if (XmToggleButtonGetState(d->select)) mode = CaptureMode::kSelect;
  uint32_t id = 0;
  const bool have_id = mode == CaptureMode::kSelect && WindowIdFromLine(SelectedLine(d), &id);
  // "Select a window" without a chosen line runs nothing; the dialog stays.
  if (mode == CaptureMode::kSelect && !have_id) {
    XBell(XtDisplay(d->shell), 0);
    return;
  }
  Widget owner = XtParent(d->shell);
  const std::string out = MakeCaptureFile();
  if (out.empty()) return ShowMessage(owner, "Can't create temporary file");
  std::vector<std::string> args =
      CaptureArguments(mode, XmToggleButtonGetState(d->decorations), have_id ? &id : nullptr, out);
  Display *dpy = XtDisplay(d->shell);
  // xwd dumps the program's own display, whatever DISPLAY says (-display may have chosen another).
  args.insert(args.begin() + 1, {"-display", DisplayString(dpy)});
  XtPopdown(d->shell);
  XtDestroyWidget(d->shell);  // popped down before the capture, so it is not in the picture
  RaiseAndWait(dpy, have_id ? id : 0);
  const int status = RunAndWait(args);
  if (status == 127) {
    ShowMessage(owner, "Can't run xwd");
  } else {
    // A failed dump leaves an empty or partial file: the load reports it.
    OpenViewOnFile(App().shell, out.c_str(), 0);
  }
  unlink(out.c_str());
}

// "Include decorations" only means something for "Single window".
void ModeChanged(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<CaptureDialog *>(data);
  XtSetSensitive(d->decorations, XmToggleButtonGetState(d->single));
}

// Choosing a line of the list chooses "Select a window" too.
void LineChosen(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<CaptureDialog *>(data);
  if (!XmToggleButtonGetState(d->select)) XmToggleButtonSetState(d->select, True, True);
}

Widget Toggle(Widget parent, const char *name, const char *label, bool set, bool radio) {
  XmString l = XmStringCreateLocalized(const_cast<char *>(label));
  Widget t = XtVaCreateManagedWidget(name, xmToggleButtonWidgetClass, parent, XmNlabelString, l, XmNset,
                                     set ? XmSET : XmUNSET, XmNindicatorType, radio ? XmONE_OF_MANY : XmN_OF_MANY,
                                     nullptr);
  XmStringFree(l);
  return t;
}

}  // namespace

CaptureWindow WalkWindowTree(Display *dpy, Window root) {
  CaptureWindow tree;
  XSync(dpy, False);
  XErrorHandler old = XSetErrorHandler(IgnoreXError);
  Walk(dpy, root, &tree);
  XSync(dpy, False);
  XSetErrorHandler(old);
  return tree;
}

Widget ShownCaptureDialog() { return g_dialog ? g_dialog->shell : nullptr; }

Widget ShowCaptureDialog(Widget owner) {
  if (g_dialog) {
    FillList(g_dialog);
    if (XtWindow(g_dialog->shell)) XRaiseWindow(XtDisplay(g_dialog->shell), XtWindow(g_dialog->shell));
    return g_dialog->shell;
  }
  auto *d = new CaptureDialog;
  d->shell = XtVaCreatePopupShell("QuillCapture", xmDialogShellWidgetClass, ShellOf(owner), XmNtitle,
                                  "Capture setup", XmNdeleteResponse, XmDESTROY, nullptr);
  XtAddCallback(d->shell, XmNdestroyCallback, Destroyed, d);
  g_dialog = d;
  Widget form = XtVaCreateWidget("form", xmFormWidgetClass, d->shell, XmNautoUnmanage, False, XmNmarginWidth, 10,
                                 XmNmarginHeight, 10, nullptr);
  Widget radio = XmCreateRadioBox(form, const_cast<char *>("radioBox"), nullptr, 0);
  XtVaSetValues(radio, XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM, nullptr);
  d->desktop = Toggle(radio, "toggleDesktop", "Desktop", true, true);
  d->single = Toggle(radio, "toggleSingle", "Single window", false, true);
  d->select = Toggle(radio, "toggleSelect", "Select a window", false, true);
  XtManageChild(radio);
  for (Widget t : {d->desktop, d->single, d->select}) XtAddCallback(t, XmNvalueChangedCallback, ModeChanged, d);
  d->decorations = Toggle(form, "toggleDecorations", "Include decorations", false, false);
  XtVaSetValues(d->decorations, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, radio, XmNleftAttachment,
                XmATTACH_FORM, XmNleftOffset, 20, nullptr);
  Arg args[3];
  XtSetArg(args[0], XmNvisibleItemCount, 10);
  XtSetArg(args[1], XmNselectionPolicy, XmBROWSE_SELECT);
  XtSetArg(args[2], XmNscrollBarDisplayPolicy, XmSTATIC);
  d->list = XmCreateScrolledList(form, const_cast<char *>("scrolledList"), args, 3);
  XtVaSetValues(XtParent(d->list), XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, d->decorations, XmNtopOffset, 6,
                XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, XmNwidth, 320, nullptr);
  XtManageChild(d->list);
  XtAddCallback(d->list, XmNbrowseSelectionCallback, LineChosen, d);
  XtAddCallback(d->list, XmNdefaultActionCallback, Apply, d);  // a double click captures that window
  Widget sep = XtVaCreateManagedWidget("separator", xmSeparatorWidgetClass, form, XmNtopAttachment, XmATTACH_WIDGET,
                                       XmNtopWidget, XtParent(d->list), XmNtopOffset, 8, XmNleftAttachment,
                                       XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, nullptr);
  Widget apply = BottomRowButton(form, sep, "buttonApply", "Apply", 10, 40);
  Widget cancel = BottomRowButton(form, sep, "buttonCancel", "Cancel", 60, 90);
  XtAddCallback(apply, XmNactivateCallback, Apply, d);
  XtAddCallback(cancel, XmNactivateCallback, Cancel, d);
  XtVaSetValues(form, XmNdefaultButton, apply, XmNcancelButton, cancel, XmNinitialFocus, radio, nullptr);
  FillList(d);
  ModeChanged(nullptr, d, nullptr);
  XtManageChild(form);
  return d->shell;
}

}  // namespace quilla
