// The central load: progress dialog with Stop, the load pump, error texts in
// the application's message box, busy cursor.
#ifndef QUILLA_FILES_LOAD_X_H
#define QUILLA_FILES_LOAD_X_H

#include <X11/Intrinsic.h>

#include <string>

#include "tessel.h"

namespace quilla {

// Loads page `page` of `path` into *pic (which must be empty).  `info` is the
// library's file information for the file (its format index and, for error
// 9, its message); nullptr asks the library first.  Errors other than 15
// (stopped) are shown in the message box when report_errors.  Returns the
// result code's low 8 bits.
int CentralLoad(Widget owner, const char *path, int page, TslPicture *pic, const TslFileInfo *info,
                bool report_errors);
// The same inside a busy cursor on the owner.
int CentralLoadBusy(Widget owner, const char *path, int page, TslPicture *pic, const TslFileInfo *info,
                    bool report_errors);

// The application's modal message box (a label and "O.K.").
void ShowMessage(Widget owner, const std::string &text);
// The error text of a result code in the message box.
void ShowLoadError(Widget owner, const char *path, int code, const char *library_message);

// The progress dialog QuillProgress: title, label, a MyProgressBar and Stop.
Widget OpenProgress(Widget owner, const char *title, const char *label);
void SetProgress(Widget dialog, int percent);
bool ProgressStopped(Widget dialog);
void CloseProgress(Widget dialog);

// The busy cursor on a widget's shell.  Calls nest: the cursor goes back
// when every SetBusy(w, true) on that shell has been matched.
void SetBusy(Widget w, bool busy);
// How many SetBusy(true) calls on w's shell are unmatched (0: not busy).
int BusyDepth(Widget w);

// The application's modal yes/no dialog QuillConfirm ("Confirmation") with
// "O.K." and "Cancel": true for "O.K."; "Cancel", closing it through the
// window manager or the owner going away count as no.
bool AskConfirm(Widget owner, const std::string &text);

// For tests and scripted use: the shell of the innermost message box,
// confirmation dialog and progress dialog now shown, or nullptr.
Widget ShownMessageBox();
Widget ShownConfirm();
Widget ShownProgress();
// A hook called with the dialog's shell when a message box or confirmation
// dialog is up and about to wait for its answer, and from the load pump
// after the progress bar was set.  Returns the previous hook.
using DialogHook = void (*)(Widget shell);
DialogHook SetDialogHook(DialogHook hook);
// Calls the hook, if one is set, with a dialog's shell (for the dialogs of
// other files that wait for an answer or pump events the same way).
void CallDialogHook(Widget shell);

// Handles every pending X event, so that the screen (and a progress
// dialog's Stop) stays serviced while the library works.
void PumpXEvents(XtAppContext app);

}  // namespace quilla

#endif
