// Contact sheets from the browser: the file selector names the first page,
// then the pages are built by a work procedure, one picture per call, and
// each is written through the central save.
#ifndef QUILLA_BROWSER_CONTACT_SHEET_X_H
#define QUILLA_BROWSER_CONTACT_SHEET_X_H

#include <X11/Intrinsic.h>

#include <string>
#include <vector>

namespace quilla {

// Asks for the name of the first page (later pages get "_2", "_3"... before
// the extension) and starts making the sheets of `paths` with the
// ContactSheet settings.  False when nothing was started (no pictures, the
// selector cancelled, or sheets are being made already).
bool MakeContactSheets(Widget owner, const std::vector<std::string> &paths);

// For tests and scripted use: whether sheets are being made.
bool ContactSheetsRunning();

}  // namespace quilla

#endif
