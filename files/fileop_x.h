// The file operations on X: copy, move, rename and delete run one step per
// call of a work procedure with the progress dialog QuillProgress and its
// Stop button; the target dialog QuillFileOp, the rename dialog quillRename
// and the delete confirmation ask first.  Thumbnail cache entries and
// descriptions follow the files, and the browser's list is refreshed at the
// end.
#ifndef QUILLA_FILES_FILEOP_X_H
#define QUILLA_FILES_FILEOP_X_H

#include <X11/Intrinsic.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "files/fileop_model.h"

namespace quilla {

// How many recent target directories the target dialog offers (kept in the
// top-level DirName_* settings, most recent first).
constexpr int kFileOpRows = 5;

// The target dialog QuillFileOp for a copy or a move: one row per recent
// directory (`dir%d` starts the operation into the row's `edit%d` field,
// `button%d` "..." chooses a directory) and "Cancel".  True with *dir set
// when a row was chosen; the directory becomes the most recent one.
bool AskTargetDirectory(Widget owner, FileOpKind kind, std::string *dir);
// The rename dialog quillRename: true with *name set on "O.K." with a name
// that differs from `current`.
bool AskNewName(Widget owner, const std::string &current, std::string *name);
// The delete question, asked only when File.ConfirmFileDelete is set.
bool ConfirmDelete(Widget owner, size_t count);

// Starts an operation on `names` of `dir` (one at a time: false, with a
// bell, while another runs).  `after` runs at its end, once the cache
// entries and descriptions have followed and the browser was refreshed.
bool StartFileOp(Widget owner, FileOpKind kind, const std::string &dir, const std::vector<std::string> &names,
                 const std::string &target, const std::vector<std::string> &new_names,
                 const std::function<void(const FileOp &)> &after = nullptr);
// Whether an operation is running.
bool FileOpRunning();

// The thumbnail cache entries of files that moved or were copied (full
// paths, from -> to) are stored again under their new place; the files must
// be at their new place already.
void CarryThumbnails(const std::vector<std::pair<std::string, std::string>> &moves);
// A file's description follows it: a copy or a move into another directory
// copies the text, a rename in its directory moves it, a delete (`to`
// empty) removes it.
void CarryDescription(const std::string &from, const std::string &to, bool keep_source);

// The view commands copyTo, moveTo, rename and delete on the view's file
// (false for other words).  The view shows the file where it went, or the
// next one after a delete.
bool RunViewFileOpCommand(Widget view, Widget owner, const char *word);

}  // namespace quilla

#endif
