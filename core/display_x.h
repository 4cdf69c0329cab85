// The X side of display colour: the chosen visual, per-visual colour data
// shared by reference count, colormaps and colour cubes.  Decisions come
// from core/colour_model.h.
#ifndef QUILLA_CORE_DISPLAY_X_H
#define QUILLA_CORE_DISPLAY_X_H

#include <X11/Xlib.h>

#include "core/colour_model.h"
#include "tessel.h"

namespace quilla {

// Per-visual colour data (one entry per visual in use).
struct ColourData {
  int cube_kind = 0;            // 1..5, 0 = no cube
  Colormap colormap = 0;
  bool shared = false;
  int ref_count = 0;
  int colour_count = 0;
  unsigned long pixels[256] = {0};
  unsigned long black = 0, white = 0;
  const DitherRecord *dither = nullptr;
  VisualDesc visual;
  Display *display = nullptr;   // the connection the colours belong to
  ColourData *next = nullptr;
};

// Chooses the visual once at start-up (exits with "Error obtaining X visual
// info for %s\n" when the server gives none).  requested_id as -visualid.
const VisualDesc &InitVisual(Display *dpy, int screen, long requested_id, bool verbose);
const VisualDesc &CurrentVisual();
Visual *CurrentXVisual();

// Takes colour data for a window (shared unless a private colormap is
// wanted); `pic` guides a private colormap's contents.  Release gives it back.
ColourData *GetColourData(Display *dpy, int screen, const TslPicture *pic, bool private_map);
void ReleaseColourData(Display *dpy, ColourData *data);
void FreeAllColourData(Display *dpy);

}  // namespace quilla

#endif
