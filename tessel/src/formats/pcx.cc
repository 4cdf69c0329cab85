// pcx, dcx: not written yet.
#include "../format.h"

namespace tessel {

extern const FormatDef kPcxFormat = {
    "pcx", "ZSoft Paintbrush", "pcx;pcc",
    {{1,2,-1,-1},{4,256,-1,-1},{1008,-1,-1,-1},{-1,0,0,0}},
    kMagicWeak, false, nullptr, nullptr, nullptr, nullptr, nullptr};

extern const FormatDef kDcxFormat = {
    "dcx", "ZSoft Multi-page Paintbrush", "dcx",
    {{1,2,-1,-1},{4,256,-1,-1},{1008,-1,-1,-1},{-1,0,0,0}},
    kMagicStrong, true, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace tessel
