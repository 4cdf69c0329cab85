// Geometry: resize, crop, canvas, resolution, flips and rotation.
#include "imgproc/operations.h"

namespace quilla {

int OpResize(TslPicture *, TslPicture *, const OpRect *, const OpParams &) { return kOpEmptyRect; }
int OpCrop(TslPicture *, TslPicture *, const OpRect *, const OpParams &) { return kOpEmptyRect; }
int OpCanvas(TslPicture *, TslPicture *, const OpRect *, const OpParams &) { return kOpEmptyRect; }
int OpSetDpi(TslPicture *, TslPicture *, const OpRect *, const OpParams &) { return kOpEmptyRect; }
int OpFlipHorizontal(TslPicture *, TslPicture *, const OpRect *, const OpParams &) { return kOpEmptyRect; }
int OpFlipVertical(TslPicture *, TslPicture *, const OpRect *, const OpParams &) { return kOpEmptyRect; }
int OpRotate(TslPicture *, TslPicture *, const OpRect *, const OpParams &) { return kOpEmptyRect; }

}  // namespace quilla
