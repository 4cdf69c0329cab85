// The view's tool bar: which command each button runs and its 16x16 glyph.
// Toolkit-free.
#ifndef QUILLA_VIEW_TOOLBAR_ICONS_H
#define QUILLA_VIEW_TOOLBAR_ICONS_H

#include <cstdint>

namespace quilla {

struct ToolbarButton {
  const char *command;   // a view command word
  const char *name;      // widget name of the button
  const char *glyph[16]; // 16 rows of 16 characters, '#' = ink
};

extern const ToolbarButton kToolbarButtons[];
extern const int kToolbarButtonCount;

// Bit i of a tool bar mask shows button i.  A stored mask of 0 means the
// default mask.
bool ToolbarButtonShown(int32_t mask, int index);

// The glyph as X bitmap data (16 rows of 2 bytes, least significant bit
// first).  `out` takes 32 bytes.
void ToolbarGlyphBits(const ToolbarButton &button, unsigned char out[32]);

}  // namespace quilla

#endif
