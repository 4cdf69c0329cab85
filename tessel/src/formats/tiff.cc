// tiff: not written yet.
#include "../format.h"

namespace tessel {

extern const FormatDef kTiffFormat = {
    "tiff", "Tagged Image File Format", "tif;tiff",
    {{1,2,-1,-1},{2,256,-1,-1},{4,256,-1,-1},{1008,-1,-1,-1},{-1,0,0,0}},
    kMagicStrong, true, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace tessel
