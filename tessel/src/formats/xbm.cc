// xbm: not written yet.
#include "../format.h"

namespace tessel {

extern const FormatDef kXbmFormat = {
    "xbm", "X11 Bitmap", "xbm;bm",
    {{1,2,-1,-1},{-1,0,0,0}},
    kMagicWeak, false, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace tessel
