// Catalogue entry points of the operations built on geometry, colour
// reduction, noise and effects.  Each takes the parameter block of a process
// entry (see catalogue.h for the meaning of its fields per row).
#ifndef QUILLA_IMGPROC_OPERATIONS_H
#define QUILLA_IMGPROC_OPERATIONS_H

#include "imgproc/op.h"

namespace quilla {

// Colour conversions (convert.cc).
//   OpGrey:   i[0] level code (2..7 -> 4..128 levels, other -> 256), i[1] == 1 dithered
//   OpColors: i[0] colour code (12..17 -> 8,16,32,64,128,216, other -> 256), i[1] == 1 dithered
//   OpBinary: i[0] method (2 halftone 45, 3 halftone 90, 5 Floyd-Steinberg, other ordered pattern)
int OpTrueColors(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpGrey(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpColors(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpBinary(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);

// Geometry (geometry.cc).
//   OpResize/OpCanvas: width/height or width_percent/height_percent, keep_ratio,
//     resample (OpResample), only_decrease/only_increase; OpCanvas fills with background
//   OpCrop: i[0..3] = x, y, width, height
//   OpSetDpi: i[0], i[1] = horizontal and vertical dots per inch (kept in attr_pair)
//   OpRotate: i[0] = angle in degrees, counter-clockwise positive; multiples of 90 are exact
int OpResize(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpCrop(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpCanvas(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpSetDpi(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpFlipHorizontal(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpFlipVertical(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpRotate(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);

// Channels, fields, noise and effects (effects.cc, noise.cc).
//   OpSwapComponent: i[0] 0 rbg, 1 bgr, 2 brg, 3 grb, other gbr
//   OpDeinterlace: i[0] bit 0 set = replace even fields (else odd), bit 1 set = duplicate (else interpolate)
//   noise: r[0] amount, seed; mosaic/tile/oil/swirl/spread/lens: i[0]; waves: r[0..2] length, phase, amount
int OpSwapComponent(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpDeinterlace(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpReduceNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpAddUniformNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpAddGaussianNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpAddLaplacianNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpAddPoissonNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpMosaic(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpSlice(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpTile(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpShear(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpOilPainting(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpSwirl(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpSpread(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpLens(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);
int OpWaves(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p);

}  // namespace quilla

#endif
