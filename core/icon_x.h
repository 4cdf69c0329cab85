// The X side of the window icon and the shared cursors.
#ifndef QUILLA_CORE_ICON_X_H
#define QUILLA_CORE_ICON_X_H

#include <X11/Xlib.h>

#include "core/icon.h"

namespace quilla {

// Draws an icon into a new pixmap of the screen's default depth, allocating
// each colour in the default colormap ("Error XAllocColor : <%x %x %x>\n" on
// standard error for a colour that cannot be had; its points keep the
// background) and drawing each colour's points in one request.  Returns 0
// with "Bad Visual \n" on standard error when the default visual is unusable.
Pixmap DrawIconPixmap(Display *dpy, int screen, const IconImage &icon);

// The window icon of the start-up: 64x64 when the window manager's preferred
// sizes on the root window allow it, else 32x32.  0 on failure.
Pixmap BuildWindowIcon(Display *dpy, int screen);

// The two shared 32x32 bitmap cursors (0 busy, 1 colour picker), black on
// white.
void CreateSharedCursors(Display *dpy, Drawable d, Cursor out[2]);

}  // namespace quilla

#endif
