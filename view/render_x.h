// Rendering pictures to X images: one display object per drawing surface
// (a view's drawing area, a preview), drawing exposed areas in 256x256 tiles
// through one reusable XImage, and whole-picture pixmaps for thumbnails.
#ifndef QUILLA_VIEW_RENDER_X_H
#define QUILLA_VIEW_RENDER_X_H

#include <X11/Xlib.h>

#include "core/display_x.h"
#include "tessel.h"

namespace quilla {

struct DisplayObject;

// Makes a display object drawing with `colours` at `depth` (allocates the
// 256x256 image).  Returns nullptr when the image cannot be made.
DisplayObject *MakeDisplayObject(Display *dpy, int depth, ColourData *colours);
void ReleaseDisplayObject(DisplayObject *obj);

// Zoom factor in percent (100 = 1:1).
void SetDisplayZoom(DisplayObject *obj, double percent);

// Chooses the converter for a picture (prints "******** ERROR :
// ConvertBitmapToImage NULL \n" when there is none).  width/height are the
// displayed size.  Returns false when nothing can be drawn.
bool PrepareDisplay(DisplayObject *obj, const TslPicture *pic, int width, int height);

// Draws the part of an exposed rectangle covered by the picture whose
// top-left is at (org_x, org_y) in the window.
void DrawExposedArea(Drawable d, GC gc, DisplayObject *obj, int org_x, int org_y, int x, int y, int w, int h);

// A server-side pixmap of the whole picture at 1:1 (thumbnails, previews).
Pixmap PictureToPixmap(DisplayObject *obj, Drawable where, const TslPicture *pic);

// Counters for tests: conversions run and last-tile reuses.
struct RenderStats {
  long tiles_converted = 0;
  long tiles_reused = 0;
};
const RenderStats &GetRenderStats(const DisplayObject *obj);

}  // namespace quilla

#endif
