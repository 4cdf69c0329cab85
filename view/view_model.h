// What a view window decides without a display: zoom steps, fit modes, the
// information label, the colour-picker texts, the command table and the
// tiles an exposed area is drawn in.  Toolkit-free.
#ifndef QUILLA_VIEW_VIEW_MODEL_H
#define QUILLA_VIEW_VIEW_MODEL_H

#include <cstdint>
#include <string>
#include <vector>

#include "tessel.h"

namespace quilla {

// The 18 zoom percentages, largest first.
extern const int kZoomSteps[18];

// Index of the current step for a picture in a drawing area: the first
// percentage (from 1600 down) at which the picture fits the area; 17 (7%)
// when none does.
int CurrentZoomStep(uint32_t pic_w, uint32_t pic_h, int area_w, int area_h);

// The zoom command: "+..." one step in, "-..." one step out (clamped at the
// ends of the table), anything else a percentage read as a number.
// Stepping starts from the step at which the picture fits the drawing area;
// when the view already shows one of the table's percentages (the user has
// zoomed away from the fit), it starts from that one instead, so that
// repeated steps keep going whatever the window's size.  current_zoom <= 0
// means "not known".
int ZoomFromParameter(const char *param, uint32_t pic_w, uint32_t pic_h, int area_w, int area_h,
                      double current_zoom = 0);

// Fit modes, in the order of the fit menu.
enum FitMode {
  kNoFit = 0,           // 100%, window left as it is
  kFitWindow = 1,       // window sized to the picture; shrunk to the screen when larger
  kFitImageLarge = 2,   // picture shrunk to the window when larger, never enlarged
  kFitImageAll = 3,     // picture scaled up or down to fill the window (aspect kept)
  kFitImageWidth = 4,   // picture scaled to the window's width
  kFitImageHeight = 5,  // picture scaled to the window's height
  kFitDesktopLarge = 6, // picture shrunk to the screen when larger; window sized to it
  kFitDesktopAll = 7,   // picture scaled up or down to fill the screen; window sized to it
};
extern const char *const kFitModeNames[8];  // "noFit", "fitWindow", ...

struct FitResult {
  double zoom;        // percent
  bool resize_window; // the window is to be sized to the displayed picture
  int view_w, view_h; // displayed picture size at that zoom
};

// Zoom and window decision for a fit mode.  area = the drawing area's size,
// screen = the room a window may take on the screen.
FitResult ComputeFit(int mode, uint32_t pic_w, uint32_t pic_h, int area_w, int area_h, int screen_w, int screen_h);

// Pieces of the information label.
struct InfoLabel {
  int list_pos = 0, list_count = 0;  // 1-based position in the file list; count 0 = no list
  uint32_t width = 0, height = 0;
  int depth = 0;                     // bits: 1 for bilevel, else bytes per pixel * 8
  int color_model = 0;
  int colors = 0;
  int zoom = 100;
  int frame = 0, frames = 0;         // frames > 1 for animations and multi-page files
};
InfoLabel InfoFor(const TslPicture &pic);
std::string InfoLabelText(const InfoLabel &info);

// The colour-picker texts for the pixel at (x, y) of a picture.
std::string ColorPickerText(const TslPicture &pic, int x, int y);

// View commands, in the order ViewDoCommand compares them.
extern const char *const kViewCommands[];
extern const int kViewCommandCount;
// Index of a command word, or -1.
int ViewCommandIndex(const char *word);

// Internal codes of the view's picture-operation routine.
enum ViewOpCode { kOpFlipVertical = 13, kOpFlipHorizontal = 14, kOpRotateRight = 15, kOpRotateLeft = 16 };

// A rectangle in window coordinates.
struct TileRect {
  int x, y, w, h;
  bool operator==(const TileRect &o) const { return x == o.x && y == o.y && w == o.w && h == o.h; }
};

// The tiles (at most 256x256 window pixels) that draw the part of an exposed
// rectangle covered by a picture whose top-left is at (org_x, org_y) and
// whose displayed size is view_w x view_h: row by row from the top, left to
// right, cut at the picture's right and bottom edges.
std::vector<TileRect> TilesForExpose(int org_x, int org_y, int view_w, int view_h, const TileRect &expose);

// The file a page is extracted to: "%s/%s_extract_%03d.ppm" with the output
// directory, the picture's file name without directory and extension, and
// the page number counted from 1.
std::string ExtractFileName(const std::string &dir, const std::string &path, int page_index);

// Scroll step of ViewKeyScroll and the clamped new scroll position.
int ScrollStep(int page);
int ClampScroll(int pos, int view_size, int area_size);

// Which scroll bars a picture displayed at view_w x view_h needs in a space
// of free_w x free_h (the drawing area with no bar shown).  A bar takes
// vbar_w columns (vertical) or hbar_h rows (horizontal) from the space, so
// one bar can make the other necessary.
struct ScrollBarNeed {
  bool h = false, v = false;
};
ScrollBarNeed ScrollBarsNeeded(int view_w, int view_h, int free_w, int free_h, int vbar_w, int hbar_h);

}  // namespace quilla

#endif
