// pbm, pgm, ppm: not written yet.
#include "../format.h"

namespace tessel {

extern const FormatDef kPbmFormat = {
    "pbm", "Portable Bitmap", "pbm",
    {{1,2,-1,-1},{-1,0,0,0}},
    kMagicStrong, false, nullptr, nullptr, nullptr, nullptr, nullptr};

extern const FormatDef kPgmFormat = {
    "pgm", "Portable Greymap", "pgm",
    {{2,256,-1,-1},{-1,0,0,0}},
    kMagicStrong, false, nullptr, nullptr, nullptr, nullptr, nullptr};

extern const FormatDef kPpmFormat = {
    "ppm", "Portable Pixmap", "ppm;pnm;pam",
    {{1008,-1,-1,-1},{-1,0,0,0}},
    kMagicStrong, false, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace tessel
