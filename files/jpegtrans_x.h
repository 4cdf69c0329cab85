// The lossless JPEG dialog QuillJpegTrans and the commands that use it: the
// view's (the shown file) and the browser's (every selected JPEG file).
#ifndef QUILLA_FILES_JPEGTRANS_X_H
#define QUILLA_FILES_JPEGTRANS_X_H

#include <X11/Intrinsic.h>

#include <string>
#include <vector>

namespace quilla {

// The command word of the view and the browser.
extern const char kJpegTransformCommand[];  // "jpegTransform"

// Asks for a transformation: modal; returns the code of the chosen toggle
// (JpegTransformCode), or 0 on Cancel.
int AskJpegTransform(Widget owner);

// The view command: only for a shown JPEG file; asks, transforms the file
// in place and loads it again.  False for other words.
bool RunViewJpegCommand(Widget view, Widget owner, const char *word);

// The browser command: asks once, transforms each of `names` in `dir` that
// the library reads as "jpeg" (others are skipped without a word), then
// refreshes the list so the thumbnails are made (and cached) anew.
void TransformJpegFiles(Widget owner, const std::string &dir, const std::vector<std::string> &names);

}  // namespace quilla

#endif
