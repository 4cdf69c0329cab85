// Row and palette helpers of the formats that store colours as blue, green,
// red (BMP and Targa): true-colour rows, palette entries and the clean-up of
// an alpha channel that carries nothing.
#ifndef TESSEL_SRC_BGR_ROWS_H
#define TESSEL_SRC_BGR_ROWS_H

#include <cstdint>
#include <cstdio>

#include "tessel.h"

namespace tessel {

// Row y of any true-colour picture as `bytes` (3 or 4) bytes per pixel in
// blue, green, red (, alpha) order.  `rgba` is scratch of 4 * width bytes.
void bgrRow(const TslPicture *picture, uint32_t y, int bytes, uint8_t *rgba, uint8_t *out);

// Writes `count` entries of a planar palette (red, green and blue planes of
// 256 bytes) as blue, green, red, followed by a zero byte when `pad`.
// Returns false on a write error.
bool putBgrPalette(FILE *f, const uint8_t *palette, int count, bool pad);

// An RGBA picture whose alpha carries nothing (all 0 or all 255) becomes RGB in place.
void dropUselessAlpha(TslPicture *picture);

}  // namespace tessel

#endif
