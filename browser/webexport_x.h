// The web page export on X: the options dialog QuillThumb ("Thumbnail
// create") bound to the Html.* settings, and the export run as a work
// procedure, one picture per call, with a progress dialog and Stop.
#ifndef QUILLA_BROWSER_WEBEXPORT_X_H
#define QUILLA_BROWSER_WEBEXPORT_X_H

#include <X11/Intrinsic.h>

#include <functional>
#include <string>
#include <vector>

namespace quilla {

// The pictures to export, given the sort setting chosen in the dialog.
using WebExportPictures = std::function<std::vector<std::string>(int sort)>;

// Opens the dialog (one at a time: an open one is raised and keeps its
// pictures).  "O.K." stores the options in the settings and starts the
// export of `pictures` in the chosen order from `directory` (where the
// description file is read).  Returns the dialog's shell, or nullptr while
// an export runs.
Widget OpenWebExport(Widget owner, const std::string &directory, const WebExportPictures &pictures);

// For tests and scripted use: the dialog now shown, and whether an export runs.
Widget ShownWebExport();
bool WebExportRunning();

}  // namespace quilla

#endif
