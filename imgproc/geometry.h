// Geometry of pictures: resampling, quarter turns, rotation by any angle,
// crop, canvas and flips.  No X, no Motif.
//
// Kinds of results:
//   resize      quick (nearest): the source's model, palette included.
//               linear, bicubic (Catmull-Rom), lanczos3: grey and true-colour
//               pictures keep their model; a binary picture becomes TSL_GREY
//               and an indexed one TSL_RGB (TSL_RGBA with a transparent index)
//               before filtering, since averaging needs intensities.
//               Pictures with alpha are filtered premultiplied, so fully
//               transparent pixels lend no colour to their neighbours.
//   quarter turns, crop, canvas, flips: the source's model on every kind.
//   any angle   grey and true colour keep their model; binary becomes
//               TSL_GREY and indexed TSL_RGB/TSL_RGBA first.
// The functions taking a `dst` build a new picture there (an empty record,
// distinct from the source) and return kOpDone, kOpNoMemory or kOpEmptyRect.
#ifndef QUILLA_IMGPROC_GEOMETRY_H
#define QUILLA_IMGPROC_GEOMETRY_H

#include <cstdint>

#include "imgproc/op.h"

namespace quilla {

// The size asked for by the resize fields of a parameter block: percentages
// when width_percent > 0 (height_percent <= 0 repeats the width's), else
// pixels; a missing side (<= 0) follows the other keeping the aspect ratio;
// keep_ratio fits the picture inside the box.  False when no size results.
bool ResizeTarget(const TslPicture *src, const OpParams &p, uint32_t *width, uint32_t *height);

// Resamples to exactly width x height with an OpResample method.  Shrinking
// widens the filter by the reduction factor, so each output pixel averages
// the whole area it covers.  The same size gives an identical copy.
int ResizePicture(const TslPicture *src, TslPicture *dst, uint32_t width, uint32_t height, int resample);

// Turns by quarter turns counter-clockwise (1 = 90 degrees left, 2 = half
// turn, 3 = 90 degrees right; any integer, taken modulo 4).  Exact.
int RotateQuarters(const TslPicture *src, TslPicture *dst, int quarters);

// Rotates counter-clockwise by `degrees` around the centre with bilinear
// sampling; the canvas grows to hold the whole turned picture and the
// uncovered corners take `background` (0xRRGGBB; its luminance on grey).
// Multiples of 90 degrees go to RotateQuarters.
int RotatePicture(const TslPicture *src, TslPicture *dst, double degrees, uint32_t background);

// Turns a picture stored with EXIF orientation `orientation` upright: 2
// mirrors left-right, 3 turns half round, 4 mirrors top-bottom, 5
// transposes, 6 turns a quarter clockwise, 7 transposes across the other
// diagonal, 8 turns a quarter counter-clockwise.  1, 0 and unknown values
// give an identical copy.  Exact, on every colour model.
int OrientPicture(const TslPicture *src, TslPicture *dst, int orientation);

// The picture placed centred on a width x height canvas filled with
// `background` (0xRRGGBB, alpha opaque; the nearest palette entry on
// indexed pictures, white on binary ones).  A smaller canvas crops around
// the centre.
int CanvasPicture(const TslPicture *src, TslPicture *dst, uint32_t width, uint32_t height, uint32_t background);

// The part of the picture inside the (clipped) rectangle.
int CropPicture(const TslPicture *src, TslPicture *dst, const OpRect &rect);

}  // namespace quilla

#endif
