// Helpers shared by the channel, field, noise and effect operations
// (effects.cc, noise.cc): channel positions per colour model, an owning
// picture holder, the indexed-to-true-colour step and pixel samplers.
//
// How each operation treats the picture kinds (grey, indexed, true colour
// with or without alpha, bilevel):
//   Swap Component   true colour: the three colour bytes are permuted, alpha
//                    untouched; indexed: the 256 palette entries are permuted
//                    (the rectangle plays no part, as for the point
//                    operations); grey: nothing to swap; bilevel: 17.
//   De-interlace     duplication moves rows on every kind (bits, indices);
//                    interpolation averages grey and true-colour bytes,
//                    converts an indexed picture to RGB first, and falls back
//                    to duplication on a bilevel picture.
//   Reduce noise     grey and true colour: per channel, a pixel lying outside
//                    the range of its eight neighbours is replaced by the
//                    median of the 3x3 window (alpha untouched); indexed and
//                    bilevel: a pixel whose value none of its eight
//                    neighbours shares takes the most frequent neighbour value.
//   Add ... noise    grey and true colour channels (alpha untouched); indexed
//                    pictures are converted to RGB first; bilevel: 17.
//   Mosaic           block means of every byte; bilevel blocks take their
//                    majority; indexed pictures are converted to RGB first.
//   Slice, Shear,    move whole pixels, so they work on every kind, indices
//   Tile, Spread     and bits included; the palette is kept.
//   Oil Painting     grey/true colour: mean colour of the most frequent
//                    intensity class; indexed and bilevel: most frequent
//                    index or bit (the palette is kept).
//   Swirl, Lens,     bilinear sampling on grey and true colour; nearest
//   Waves            neighbour on indexed and bilevel pictures, so indices
//                    are moved and the palette is kept.
#ifndef QUILLA_IMGPROC_EFFECTS_H
#define QUILLA_IMGPROC_EFFECTS_H

#include <cstdint>
#include <cstring>

#include "imgproc/op.h"

namespace quilla {
namespace fx {

// Byte positions of red, green, blue and alpha inside a pixel; alpha is -1
// when the model has none.  For grey and indexed models all three colour
// positions are 0.
struct ChannelLayout {
  int r, g, b, a;
};
ChannelLayout LayoutOf(int color_model);

// Owns a picture record and frees it at scope end unless it was handed over
// (HandOver clears the record it moves from).
struct OwnedPicture {
  TslPicture pic;
  OwnedPicture() { std::memset(&pic, 0, sizeof pic); }
  ~OwnedPicture() {
    if (pic.pixels) tslFree(&pic);
  }
  OwnedPicture(const OwnedPicture &) = delete;
  OwnedPicture &operator=(const OwnedPicture &) = delete;
};

// Converts an indexed picture to an RGB one of the same size, keeping the
// allocation parameter, attribute word and attribute pair.  Returns false
// when memory runs out (out left empty).
bool ToTrueColor(const TslPicture *src, TslPicture *out);

// A fresh copy of src (pixels, palette, attributes).  False on no memory.
bool CopyFresh(const TslPicture *src, TslPicture *out);

// The working picture of an operation that changes pixels in place: the
// destination after the source was copied into it, or the source itself.
// Returns kOpDone or kOpNoMemory.
int InPlaceTarget(TslPicture *src, TslPicture *dst, TslPicture **work);

// Whether sampling may blend neighbouring values (grey and true colour) or
// must pick one pixel (bilevel and indexed).
inline bool CanBlend(const TslPicture *p) { return p->color_model != TSL_BINARY && p->color_model != TSL_INDEXED; }

// Writes to `out` (one pixel of the result) the source pixel at the real
// position (fx, fy), clamped to the rectangle r: bilinear for grey and true
// colour, nearest for indexed; for bilevel pictures the bit is written at x
// of row `out_row`.
void SamplePixel(const TslPicture *src, const OpRect &r, double fx, double fy, uint8_t *out_row, int out_x);

}  // namespace fx
}  // namespace quilla

#endif
