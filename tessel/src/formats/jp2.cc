// jp2: not written yet.
#include "../format.h"

namespace tessel {

extern const FormatDef kJp2Format = {
    "jp2", "JPEG 2000", "jp2;j2k;jpc;j2c;jpf",
    {{2,256,-1,-1},{1008,-1,-1,-1},{-1,0,0,0}},
    kMagicStrong, false, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace tessel
