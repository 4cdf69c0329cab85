// xpm: not written yet.
#include "../format.h"

namespace tessel {

extern const FormatDef kXpmFormat = {
    "xpm", "X11 Pixmap", "xpm;pm",
    {{4,256,-1,-1},{-1,0,0,0}},
    kMagicStrong, false, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace tessel
