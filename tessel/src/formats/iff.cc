// iff: not written yet.
#include "../format.h"

namespace tessel {

extern const FormatDef kIffFormat = {
    "iff", "Amiga IFF ILBM", "iff;ilbm;lbm",
    {{4,256,-1,-1},{1008,-1,-1,-1},{-1,0,0,0}},
    kMagicStrong, false, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace tessel
