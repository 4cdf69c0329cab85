// The program's window icons and cursor shapes, toolkit-free.
//
// An icon is kept in a compact form: width and height (32-bit each,
// little-endian), a word whose first byte is the blank character code, the
// number of colours, then per colour one character code followed by a 24-bit
// RGB value, then the rows of character codes.  The X side allocates each
// colour once and draws all of its points in one request.
#ifndef QUILLA_CORE_ICON_H
#define QUILLA_CORE_ICON_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace quilla {

// Same layout as Xlib's XPoint, so a point list can be handed to XDrawPoints.
struct IconPoint {
  int16_t x, y;
};

struct IconColour {
  char code;
  uint8_t red, green, blue;
  std::vector<IconPoint> points;  // every pixel of this colour, row by row
};

struct IconImage {
  int width = 0, height = 0;
  char blank = ' ';  // pixels with this code take the first colour (background)
  std::vector<IconColour> colours;
};

// Parses and validates the compact form.  Returns false with a reason in
// *error (when given) on a short or overlong buffer, a size out of 1..256, a
// colour count out of 1..64, a repeated or blank colour code, or a pixel
// whose code is neither blank nor a colour.
bool ParseIcon(const unsigned char *data, size_t size, IconImage *out, std::string *error = nullptr);

// The program's two icons in the compact form (a quill over a framed picture).
const unsigned char *Icon32Data(size_t *size);
const unsigned char *Icon64Data(size_t *size);

// One entry of the window manager's preferred icon sizes.
struct IconSizeRange {
  int min_width, min_height, max_width, max_height;
};
// 64 when the first entry whose minimum is at most 64 and whose maximum is at
// least 64 in both directions exists, otherwise 32 (also for an empty list).
int ChooseIconSize(const std::vector<IconSizeRange> &sizes);

// A 32x32 two-colour cursor shape in X bitmap order (rows of 4 bytes, least
// significant bit leftmost).
struct CursorBitmap {
  unsigned char source[128];
  unsigned char mask[128];
  int hot_x, hot_y;
};
// The shared cursors: 0 the busy hourglass, 1 the crosshair of the colour
// picker.
const CursorBitmap &SharedCursorBitmap(int which);

}  // namespace quilla

#endif
