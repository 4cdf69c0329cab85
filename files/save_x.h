// The central save: format choice, conversion dialog, progress dialog with
// the save pump, the Save settings' parameters and the error texts.
#ifndef QUILLA_FILES_SAVE_X_H
#define QUILLA_FILES_SAVE_X_H

#include <X11/Intrinsic.h>

#include <string>

#include "files/save_model.h"
#include "tessel.h"

namespace quilla {

// Saves *pic as `path` in the library format `format` (-1: from the path's
// extension, else Convert.DefaultFormat).  Asks for a conversion when the
// format cannot store the picture as it is; reports errors in the message
// box.  Returns 0 on success, 255 when the user cancelled the conversion
// (or it failed), else the library's result code.  *pic is left as it was.
// The picture must stay alive until the call returns: events are handled
// while the library writes (see SaveRunning).
int CentralSave(Widget owner, const char *path, const TslPicture *pic, int format);

// The same with every switch of the save (SaveOptions): batch conversion
// passes unattended, remember (false for its first file, true for the
// others, so one answer serves the whole run) with a memory of its own, no
// progress, and may give the conversion itself so that nothing is asked.
// *path receives the default extension when one is added.
int CentralSaveWith(Widget owner, std::string *path, int format, const TslPicture *pic, const SaveOptions &options);

// The conversion dialog QuillSaveCnv for saving `path` in `format`:
// `preselected` (a code 1..32) is chosen when it opens, choices the format
// cannot store are insensitive.  Returns the code 1..32 of the choice, or
// 255 for "Cancel", Escape, closing it or its owner going away.
int AskSaveConversion(Widget owner, const char *path, const TslFormatInfo &format, int preselected);

// How many central saves are running (a window closed while this is not 0
// must keep its picture until they end).
int SaveRunning();

// For tests and scripted use: the shell of the conversion dialog now
// shown, or nullptr.  The dialog hook of files/load_x.h is called with it
// when it is up and about to wait for its answer.
Widget ShownSaveConversion();

}  // namespace quilla

#endif
