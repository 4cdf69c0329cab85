// The frame of the file dialogs that ask and wait: a dialog shell with a
// full-application-modal form, a local event loop until an answer, and the
// clean-up that copes with the owner going away under the loop.  Used by
// the target, rename and lossless-JPEG dialogs.
#ifndef QUILLA_FILES_MODAL_X_H
#define QUILLA_FILES_MODAL_X_H

#include <X11/Intrinsic.h>

#include <string>

namespace quilla {

// Shared with the callbacks while the dialog runs; lives in the caller's
// frame.  `choice` is free for the dialog's own use (a row, a toggle).
struct ModalDialog {
  Widget shell = nullptr, form = nullptr;
  bool done = false, ok = false, destroyed = false;
  int choice = -1;
};

// Makes the shell `shell_name` titled `title` on the owner's dialog parent,
// and its form `form_name` (not yet managed).  False when there is no
// window to put it on.
bool BuildModalDialog(ModalDialog *m, Widget owner, const char *shell_name, const char *title,
                      const char *form_name);
// A push button under `parent` labelled `label`.
Widget ModalButton(Widget parent, const char *name, const char *label);
// Callbacks answering the dialog (client data: the ModalDialog).
void ModalDialogOk(Widget w, XtPointer client, XtPointer call);
void ModalDialogCancel(Widget w, XtPointer client, XtPointer call);
// Shows the dialog with the keyboard in `focus` (a text field gets its text
// selected, so typing replaces it), calls the dialog hook of load_x.h and
// runs events until answered.  Then takes the dialog down.  Returns m->ok
// (false when the dialog went away with its owner).
bool RunModalDialog(ModalDialog *m, Widget focus);


}  // namespace quilla

#endif
