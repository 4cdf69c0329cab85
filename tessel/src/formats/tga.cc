// tga: not written yet.
#include "../format.h"

namespace tessel {

extern const FormatDef kTgaFormat = {
    "tga", "Truevision Targa", "tga;targa;vda;icb;vst",
    {{2,256,-1,-1},{4,256,-1,-1},{1008,-1,-1,-1},{-1,0,0,0}},
    kMagicWeak, false, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace tessel
