// raw, yuv: not written yet.
#include "../format.h"

namespace tessel {

extern const FormatDef kRawFormat = {
    "raw", "Raw pixels (headerless)", "raw;rgb24;data",
    {{2,256,-1,-1},{1008,-1,-1,-1},{-1,0,0,0}},
    kMagicNone, false, nullptr, nullptr, nullptr, nullptr, nullptr};

extern const FormatDef kYuvFormat = {
    "yuv", "YUV 4:2:2 frames (headerless)", "yuv;uyvy",
    {{1008,-1,-1,-1},{-1,0,0,0}},
    kMagicNone, true, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace tessel
