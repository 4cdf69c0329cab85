// Colour-model conversions: true colour, grey levels, palettes, bilevel.
#include "imgproc/operations.h"

namespace quilla {

int OpTrueColors(TslPicture *, TslPicture *, const OpRect *, const OpParams &) { return kOpEmptyRect; }
int OpGrey(TslPicture *, TslPicture *, const OpRect *, const OpParams &) { return kOpEmptyRect; }
int OpColors(TslPicture *, TslPicture *, const OpRect *, const OpParams &) { return kOpEmptyRect; }
int OpBinary(TslPicture *, TslPicture *, const OpRect *, const OpParams &) { return kOpEmptyRect; }

}  // namespace quilla
