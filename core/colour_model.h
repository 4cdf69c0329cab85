// Display colour decisions that need no display: choosing a visual from a
// list of visual descriptions, channel shifts and levels, colour cubes and
// the ordered-dither records.  The Xlib side (colormaps, XAllocColor) lives
// in the display shell and feeds these functions plain data.
#ifndef QUILLA_CORE_COLOUR_MODEL_H
#define QUILLA_CORE_COLOUR_MODEL_H

#include <cstdint>
#include <string>
#include <vector>

namespace quilla {

// X visual classes, with Xlib's numbering.
enum VisualClass { kStaticGray = 0, kGrayScale = 1, kStaticColor = 2, kPseudoColor = 3, kTrueColor = 4,
                   kDirectColor = 5 };

const char *VisualClassName(int cls);

// What the program needs to know of one visual.
struct VisualInfo {
  unsigned long id = 0;
  int cls = kTrueColor;
  int depth = 24;
  int colormap_size = 256;
  unsigned long red_mask = 0, green_mask = 0, blue_mask = 0;
};

// The visual description filled at start-up.
struct VisualDesc {
  VisualInfo info;
  int red_shift = 0, green_shift = 0, blue_shift = 0;
  int red_levels = 1, green_levels = 1, blue_levels = 1;
};

// Shift = position of the mask's lowest set bit; levels = 2^(run of set bits
// from there).  Only for TrueColor, DirectColor, StaticColor and StaticGray;
// otherwise shift 0 and levels 1.
VisualDesc DescribeVisual(const VisualInfo &v);
void MaskShiftLevels(unsigned long mask, int *shift, int *levels);

// The visual to use: the deepest TrueColor, else DirectColor, PseudoColor,
// StaticColor, StaticGray (first in list order among equal depths); the
// default visual is kept when the found one has its depth.  requested_id:
// -1 none, 0 the default visual, else that id when the list holds it.
// Returns an index into `visuals`, or -1 when the list is empty.
int ChooseVisual(const std::vector<VisualInfo> &visuals, const VisualInfo &default_visual, long requested_id);

// "Use TrueColor visual (0x%x) with %d bits...\n" and its siblings.
std::string VisualChoiceMessage(const VisualInfo &v);

// Cube shapes by kind: 1 = 8x8x4, 2 = 6x6x6, 3 = 4x8x4, 4 = 4x4x4, 5 = 2x2x2.
struct CubeShape {
  int kind, nr, ng, nb;
};
extern const CubeShape kCubes[5];  // in the order they are tried

// Colour of cube index (r, g, b) with 16-bit channels (r*65535/(nr-1)...).
void CubeColor(const CubeShape &cube, int r, int g, int b, uint16_t *red, uint16_t *green, uint16_t *blue);

// The 8x8 threshold matrix, used exactly as it stands.
extern const uint8_t kDitherMatrix[8][8];

// One channel-table entry: fraction 0..63 between the lower and the upper
// level, and the cube-index contributions of both levels.
struct DitherEntry {
  uint8_t fraction;
  uint8_t lower;
  uint8_t upper;
  uint8_t pad;
};

struct DitherRecord {
  int nr = 0, ng = 0, nb = 0;
  DitherEntry red[256], green[256], blue[256];
  uint8_t threshold[8][8][64];  // 1 when M[i][j] < k
};

// Builds the record for a cube; fraction overflows print the
// "ERROR ptr->red: ..." messages on standard output.
void BuildDitherRecord(int nr, int ng, int nb, DitherRecord *record);

// The cached record of a cube shape (made on first use, kept until exit).
const DitherRecord &GetDitherRecord(int nr, int ng, int nb);

// Cube index of an RGB colour at screen cell (x, y) (row y & 7, column x & 7).
inline int DitherIndex(const DitherRecord &d, int x, int y, uint8_t r, uint8_t g, uint8_t b) {
  const uint8_t *t = d.threshold[y & 7][x & 7];
  const DitherEntry &R = d.red[r], &G = d.green[g], &B = d.blue[b];
  return (t[R.fraction] ? R.upper : R.lower) + (t[G.fraction] ? G.upper : G.lower) +
         (t[B.fraction] ? B.upper : B.lower);
}

}  // namespace quilla

#endif
