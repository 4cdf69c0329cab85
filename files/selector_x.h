// The file selector FileSelector (open, save, directory), and the format
// list QuillFormat.
#ifndef QUILLA_FILES_SELECTOR_X_H
#define QUILLA_FILES_SELECTOR_X_H

#include <X11/Intrinsic.h>

#include <string>
#include <vector>

#include "files/selector_model.h"

namespace quilla {

struct SelectorRequest {
  std::string title;           // "Load Files...", "Save File...", ...
  int mode = 0;                // kSelectorSave, kSelectorDirectory, kSelectorNoOverwriteQuestion
  bool multiple = false;       // open: several files may be chosen at once
  std::string initial;         // where to start: a directory, or a file (its name goes into the path
                               // field); empty: the directory of the last use, else the start directory
  std::string default_format;  // save: the short name preselected in the file-type combo box
};

struct SelectorResult {
  std::vector<std::string> paths;  // absolute: the chosen files, or the one directory
  int format = -1;                 // save: the format to write (from the name's extension, else the combo's)
};

// Runs the selector as a modal dialog on `owner`'s shell and returns when
// it is answered: true with *out filled when accepted, false on Cancel,
// Escape, closing it, or the owner going away.
bool RunFileSelector(Widget owner, const SelectorRequest &request, SelectorResult *out);

// "Select Output Directory ...": the selector in directory mode, starting at
// `initial`; true with the chosen directory in *dir.
bool ChooseOutputDirectory(Widget owner, const std::string &initial, std::string *dir);

// The directory the next selector opens in when given no place (the last
// one used, initially the start directory).
std::string SelectorDirectory();
void SetSelectorDirectory(const std::string &dir);

// The format list dialog QuillFormat ("Available formats"); one at a time.
// Returns its shell.
Widget ShowFormatList(Widget owner);

// For tests and scripted use: the selector now shown, and a hook called
// with its shell when it is up and about to wait for its answer.  Returns
// the previous hook.
Widget ShownFileSelector();
using SelectorHook = void (*)(Widget shell);
SelectorHook SetSelectorHook(SelectorHook hook);
// The format list now shown, or nullptr.
Widget ShownFormatList();

}  // namespace quilla

#endif
