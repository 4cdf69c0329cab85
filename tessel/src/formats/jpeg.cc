// jpeg: not written yet.
#include "../format.h"

namespace tessel {

extern const FormatDef kJpegFormat = {
    "jpeg", "JPEG / JFIF", "jpg;jpeg;jpe;jfif",
    {{2,256,-1,-1},{1008,-1,-1,-1},{-1,0,0,0}},
    kMagicStrong, false, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace tessel
