// Colour-model conversions: to true colour, to grey levels, to a palette of
// 8..256 colours and to black and white.  No X, no Motif.
//
// Every function here reads `src` (any model: binary, grey, indexed or any
// true-colour layout) and builds a new picture in `dst`, which must be an
// empty record distinct from `src`.  The result keeps width, height,
// allocation parameter, attribute word and attribute pair of the source.
// Results: kOpDone, kOpNoMemory (dst left empty) or kOpEmptyRect (a bad
// level/colour count or method, or a source without pixels).
#ifndef QUILLA_IMGPROC_CONVERT_H
#define QUILLA_IMGPROC_CONVERT_H

#include "imgproc/op.h"

namespace quilla {

// Methods of the conversion to black and white.
enum BinaryMethod {
  kBinaryPattern = 1,     // ordered dither, 8x8 Bayer matrix
  kBinaryFloyd = 2,       // Floyd-Steinberg error diffusion (serpentine)
  kBinaryHalftone45 = 3,  // clustered-dot screen at 45 degrees
  kBinaryHalftone90 = 4,  // clustered-dot screen at 90 degrees
};

// TSL_RGB, or TSL_RGBA when the source carries alpha (any four-byte layout,
// or an indexed picture with a transparent index: alpha 0 on that index,
// 255 elsewhere).  An RGB or RGBA source is copied as it is.
int ConvertToTrueColor(const TslPicture *src, TslPicture *dst);

// TSL_GREY with `levels` (2..256) evenly spaced intensities, level k having
// the value round(k * 255 / (levels - 1)); colors = levels.  Colour becomes
// luminance (0.299 R + 0.587 G + 0.114 B); alpha is dropped.  `dither`
// diffuses the quantisation error with Floyd-Steinberg weights.
int ConvertToGrey(const TslPicture *src, TslPicture *dst, int levels, bool dither);
// The 256-level grey picture the thumbnail cache stores for bilevel and grey pictures.
int ConvertToGrey256(const TslPicture *src, TslPicture *dst);

// TSL_INDEXED with at most `count` (2..256) palette entries; colors = the
// number of entries used.  A picture with no more than `count` distinct
// colours comes out exact (its own colours, in order of first appearance),
// whatever `count`.  Otherwise 216 is the 6x6x6 colour cube and any other
// count a palette chosen by Wu's variance-minimising box cut refined by
// k-means passes; pixels take the nearest entry, or with `dither` the
// Floyd-Steinberg error-diffused one.  A source with alpha (or a transparent
// index) keeps its transparency: pixels with alpha below 128 share one entry
// that becomes the transparent index, and the other colours get count - 1
// entries.
int ConvertToColors(const TslPicture *src, TslPicture *dst, int count, bool dither);

// TSL_BINARY (set bit = white) from the luminance by one of BinaryMethod.
// A binary source is copied.
int ConvertToBinary(const TslPicture *src, TslPicture *dst, int method);

// The conversion codes of the save flow:
//   1..4   binary: pattern, Floyd-Steinberg, halftone 45, halftone 90
//   5..11  grey 4, 8, 16, 32, 64, 128, 256 levels, plain
//   12..17 grey 4, 8, 16, 32, 64, 128 levels, dithered
//   18..24 palette 8, 16, 32, 64, 128, 216, 256 colours, plain
//   25..31 the same palettes, dithered
//   32     true colour
// Returns kOpDone or a non-zero status (kOpEmptyRect for a code outside 1..32).
int ConvertByCode(const TslPicture *src, TslPicture *dst, int code);

}  // namespace quilla

#endif
