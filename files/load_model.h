// The toolkit-free half of the central load: the library parameters built
// from the Load settings, the LUT text-file reader, and the texts the load
// shows (progress label, error messages).
#ifndef QUILLA_FILES_LOAD_MODEL_H
#define QUILLA_FILES_LOAD_MODEL_H

#include <cstdint>
#include <string>
#include <vector>

#include "core/settings.h"
#include "imgproc/lut_file.h"
#include "tessel.h"

namespace quilla {

// PostScript page size in points for Load.PostscriptPageSize; 0 x 0 for
// values outside the table.
struct PageSize {
  int width = 0, height = 0;
};
PageSize PostscriptPageSize(int value);

// Everything tslLoad needs for one load.  The LUT planes live here, so the
// parameters are valid while this object is; it is not copyable for that
// reason.
struct LoadRequest {
  TslParams params;
  Lut lut;
  LoadRequest() = default;
  LoadRequest(const LoadRequest &) = delete;
  LoadRequest &operator=(const LoadRequest &) = delete;
};

// Fills *req from the library's defaults and the Load settings: format index
// `format` (negative: the library finds out), page `page`, the raw geometry
// when the format's short name is "raw" and the YUV geometry otherwise,
// PcdBase, GrobBpp + 1, channel order and type, PostScript resolution and
// page size, the LUT (UseLut, Lut10to8Name, 1024 entries), flag 0x400 for
// IgnoreError and flag 1 for `app_switch`.  The progress callback is left
// to the caller.
void FillLoadRequest(const SettingsRecord &settings, int format, int page, bool app_switch, LoadRequest *req);

// The file name without its directory.
std::string FileNameOnly(const char *path);
// "Loading <file name>", the progress dialog's label.
std::string LoadingLabel(const char *path);
// The user's text for a library result code (tslErrorText's table); the
// library's own message is used for code 9 when it gave one.
std::string LoadErrorText(const char *path, int code, const char *library_message);

}  // namespace quilla

#endif
