// The screen capture dialog QuillCapture ("Capture setup"): the desktop, a
// window chosen by clicking, or one chosen from the list of the screen's
// windows, dumped by xwd into a temporary file that opens in a new view.
#ifndef QUILLA_FILES_CAPTURE_X_H
#define QUILLA_FILES_CAPTURE_X_H

#include <X11/Intrinsic.h>

#include "files/capture_model.h"

namespace quilla {

// Shows the dialog (one at a time; an open one is brought forward) with a
// fresh window list.  Returns its shell.
Widget ShowCaptureDialog(Widget owner);

// The window tree from `root`, as the list is built from it.  Windows that
// vanish during the walk are left out.
CaptureWindow WalkWindowTree(Display *dpy, Window root);

// The dialog now shown, or nullptr (for tests and scripted use).
Widget ShownCaptureDialog();

}  // namespace quilla

#endif
