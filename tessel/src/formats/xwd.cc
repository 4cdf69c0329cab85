// xwd: not written yet.
#include "../format.h"

namespace tessel {

extern const FormatDef kXwdFormat = {
    "xwd", "X Window Dump", "xwd;dmp",
    {{1,2,-1,-1},{4,256,-1,-1},{1008,-1,-1,-1},{-1,0,0,0}},
    kMagicWeak, false, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace tessel
