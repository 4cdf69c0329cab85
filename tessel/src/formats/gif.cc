// gif: not written yet.
#include "../format.h"

namespace tessel {

extern const FormatDef kGifFormat = {
    "gif", "CompuServe GIF", "gif",
    {{4,256,-1,-1},{-1,0,0,0}},
    kMagicStrong, true, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace tessel
