// png: not written yet.
#include "../format.h"

namespace tessel {

extern const FormatDef kPngFormat = {
    "png", "Portable Network Graphics", "png",
    {{1,2,-1,-1},{2,256,-1,-1},{4,256,-1,-1},{1008,-1,-1,-1},{-1,0,0,0}},
    kMagicStrong, false, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace tessel
