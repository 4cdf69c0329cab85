// The multi-page file dialog QuillMulti ("Create Multi-page file..."): a
// list of input files, the output directory, name and format, and Create,
// which joins the inputs one page each (files/multi_model.h).
#ifndef QUILLA_FILES_MULTI_X_H
#define QUILLA_FILES_MULTI_X_H

#include <X11/Intrinsic.h>

#include <string>
#include <vector>

namespace quilla {

// The command word of the view and the browser.
extern const char kMultiPageCommand[];  // "multiPage"

// Opens the dialog on the owner's shell with `files` in its list (one at a
// time: an open dialog is raised and gets the files added).  Returns its
// shell.
Widget OpenMultiDialog(Widget owner, const std::vector<std::string> &files);

// For tests and scripted use: the dialog now shown, or nullptr.
Widget ShownMultiDialog();

}  // namespace quilla

#endif
