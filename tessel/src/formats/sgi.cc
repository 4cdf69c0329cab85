// sgi: not written yet.
#include "../format.h"

namespace tessel {

extern const FormatDef kSgiFormat = {
    "sgi", "Silicon Graphics Image", "sgi;rgb;rgba;bw;int;inta",
    {{2,256,-1,-1},{1008,-1,-1,-1},{-1,0,0,0}},
    kMagicStrong, false, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace tessel
