// The modal frame of the file dialogs.
#include "files/modal_x.h"

#include <Xm/AtomMgr.h>
#include <Xm/DialogS.h>
#include <Xm/Form.h>
#include <Xm/Protocols.h>
#include <Xm/PushB.h>
#include <Xm/TextF.h>
#include <Xm/Xm.h>

#include "core/app_x.h"
#include "files/load_x.h"

namespace quilla {

namespace {

void ModalDestroyed(Widget, XtPointer client, XtPointer) {
  auto *m = static_cast<ModalDialog *>(client);
  m->destroyed = m->done = true;
  m->ok = false;
}

}  // namespace

void ModalDialogOk(Widget, XtPointer client, XtPointer) {
  auto *m = static_cast<ModalDialog *>(client);
  if (m->done) return;
  m->ok = m->done = true;
}

void ModalDialogCancel(Widget, XtPointer client, XtPointer) {
  auto *m = static_cast<ModalDialog *>(client);
  if (m->done) return;
  m->ok = false;
  m->done = true;
}

bool BuildModalDialog(ModalDialog *m, Widget owner, const char *shell_name, const char *title,
                      const char *form_name) {
  Widget parent = DialogParent(owner);
  if (!parent) return false;
  m->shell = XtVaCreatePopupShell(shell_name, xmDialogShellWidgetClass, parent, XmNtitle, title, XmNdeleteResponse,
                                  XmDO_NOTHING, XmNallowShellResize, True, nullptr);
  XtAddCallback(m->shell, XtNdestroyCallback, ModalDestroyed, m);
  Atom del = XmInternAtom(XtDisplay(m->shell), const_cast<char *>("WM_DELETE_WINDOW"), False);
  XmAddWMProtocolCallback(m->shell, del, ModalDialogCancel, m);
  m->form = XtVaCreateWidget(form_name, xmFormWidgetClass, m->shell, XmNdialogStyle, XmDIALOG_FULL_APPLICATION_MODAL,
                             XmNautoUnmanage, False, XmNmarginWidth, 10, XmNmarginHeight, 10, XmNhorizontalSpacing,
                             6, XmNverticalSpacing, 6, nullptr);
  SetWindowIcon(m->shell);
  return true;
}

Widget ModalButton(Widget parent, const char *name, const char *label) {
  XmString s = XmStringCreateLocalized(const_cast<char *>(label));
  Widget b = XtVaCreateManagedWidget(name, xmPushButtonWidgetClass, parent, XmNlabelString, s, nullptr);
  XmStringFree(s);
  return b;
}

bool RunModalDialog(ModalDialog *m, Widget focus) {
  XtAppContext app = XtWidgetToApplicationContext(m->shell);
  if (focus) XtVaSetValues(m->form, XmNinitialFocus, focus, nullptr);
  XtManageChild(m->form);  // pops the dialog shell up
  if (focus) {
    XmProcessTraversal(focus, XmTRAVERSE_CURRENT);
    if (XmIsTextField(focus)) {
      const XmTextPosition end = XmTextFieldGetLastPosition(focus);
      XmTextFieldSetSelection(focus, 0, end, XtLastTimestampProcessed(XtDisplay(focus)));
      XmTextFieldSetInsertionPosition(focus, end);
    }
  }
  XFlush(XtDisplay(m->shell));
  if (!m->done) CallDialogHook(m->shell);
  while (!m->done && !XtAppGetExitFlag(app)) XtAppProcessEvent(app, XtIMAll);
  if (!m->destroyed) {
    XtRemoveCallback(m->shell, XtNdestroyCallback, ModalDestroyed, m);
    XtUnmanageChild(m->form);
    XtDestroyWidget(m->shell);
  }
  return m->ok && !m->destroyed;
}

}  // namespace quilla
