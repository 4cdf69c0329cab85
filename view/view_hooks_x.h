// The view commands implemented outside the view window's own file.  Each
// module answers the words it knows and returns false for the others.
// `view` is the view's shell, or nullptr when the command comes from the
// start window; `owner` is the shell to put dialogs on (never nullptr).
#ifndef QUILLA_VIEW_VIEW_HOOKS_X_H
#define QUILLA_VIEW_VIEW_HOOKS_X_H

#include <X11/Intrinsic.h>

#include <functional>
#include <string>

namespace quilla {

// open, saveFiles, extractInto, formats, viewHexa, openHexa, capture
// (files/file_commands_x.cc).
bool RunFileCommand(Widget view, Widget owner, const char *word);
// crop, resize and the picture operations of the menus (view/op_commands_x.cc).
bool RunOperationCommand(Widget view, Widget owner, const char *word);
// options, properties, describe and the small dialogs (view/info_commands_x.cc).
bool RunInfoCommand(Widget view, Widget owner, const char *word);

// The properties dialog and the description dialog of any file (the
// browser's entries); `saved` runs after a description was written.
void ShowFileProperties(Widget owner, const std::string &path);
void DescribeFile(Widget owner, const std::string &path, const std::function<void()> &saved);

}  // namespace quilla

#endif
