// webp: not written yet.
#include "../format.h"

namespace tessel {

extern const FormatDef kWebpFormat = {
    "webp", "Google WebP", "webp",
    {{1008,-1,-1,-1},{-1,0,0,0}},
    kMagicStrong, true, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace tessel
