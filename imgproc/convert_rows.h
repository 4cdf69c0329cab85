// Row readers shared by the colour conversions and the geometry code: any
// picture model to luminance or to RGBA bytes.  Internal to imgproc.
#ifndef QUILLA_IMGPROC_CONVERT_ROWS_H
#define QUILLA_IMGPROC_CONVERT_ROWS_H

#include <cstdint>

#include "imgproc/op.h"

namespace quilla {
namespace rows {

// Luminance 0.299 R + 0.587 G + 0.114 B in 16-bit fixed point; exact for grey.
inline uint8_t Luma(int r, int g, int b) {
  return static_cast<uint8_t>((19595 * r + 38470 * g + 7471 * b + 32768) >> 16);
}

// Byte offsets of red, green, blue and alpha (-1 = none) in a true-colour pixel.
struct Layout {
  int r, g, b, a;
};
Layout LayoutOf(int model);
bool HasAlpha(int model);

// Row y of any picture as luminance bytes (width bytes).
void GreyRow(const TslPicture *p, uint32_t y, uint8_t *out);

// Width and height of a picture are usable and its pixels exist.
inline bool Usable(const TslPicture *p) { return p && p->pixels && p->width > 0 && p->height > 0; }

// Carries allocation-independent attributes from one record to another.
inline void CopyAttributes(const TslPicture *from, TslPicture *to) {
  to->attr_word = from->attr_word;
  to->attr_pair[0] = from->attr_pair[0];
  to->attr_pair[1] = from->attr_pair[1];
}

}  // namespace rows
}  // namespace quilla

#endif
