// The central save: format choice, conversion dialog, progress dialog with
// Stop, the Save settings' parameters and the error texts.
#ifndef QUILLA_FILES_SAVE_X_H
#define QUILLA_FILES_SAVE_X_H

#include <X11/Intrinsic.h>

#include "tessel.h"

namespace quilla {

// Saves *pic as `path` in the library format `format` (-1: from the path's
// extension, else Convert.DefaultFormat).  Asks for a conversion when the
// format cannot store the picture as it is; reports errors in the message
// box.  Returns 0 on success, 255 when the user cancelled the conversion,
// 15 when stopped, else the library's result code.  *pic is left as it was.
int CentralSave(Widget owner, const char *path, const TslPicture *pic, int format);

}  // namespace quilla

#endif
