// bmp: not written yet.
#include "../format.h"

namespace tessel {

extern const FormatDef kBmpFormat = {
    "bmp", "Windows/OS2 Bitmap", "bmp;dib;rle",
    {{1,2,-1,-1},{4,256,-1,-1},{1008,-1,-1,-1},{-1,0,0,0}},
    kMagicStrong, false, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace tessel
