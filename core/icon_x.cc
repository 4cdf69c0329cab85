// The X side of the window icon and the shared cursors.
#include "core/icon_x.h"

#include <X11/Xutil.h>

#include <cstddef>
#include <cstdio>
#include <vector>

namespace quilla {

// Point lists go to XDrawPoints as they are.
static_assert(sizeof(IconPoint) == sizeof(XPoint) && offsetof(IconPoint, x) == offsetof(XPoint, x) &&
                  offsetof(IconPoint, y) == offsetof(XPoint, y),
              "IconPoint must match XPoint");

Pixmap DrawIconPixmap(Display *dpy, int screen, const IconImage &icon) {
  if (icon.width < 1 || icon.height < 1 || icon.colours.empty()) return 0;
  // The icon is drawn with the screen's default visual and colormap: the
  // window manager shows it on the root window, whatever visual the
  // program's own windows use.
  XVisualInfo templ;
  templ.visualid = XVisualIDFromVisual(DefaultVisual(dpy, screen));
  templ.screen = screen;
  int n = 0;
  XVisualInfo *vi = XGetVisualInfo(dpy, VisualIDMask | VisualScreenMask, &templ, &n);
  const bool usable = vi && n > 0 && vi[0].depth == DefaultDepth(dpy, screen) && vi[0].depth > 0;
  if (vi) XFree(vi);
  if (!usable) {
    std::fputs("Bad Visual \n", stderr);
    return 0;
  }

  const Colormap cmap = DefaultColormap(dpy, screen);
  std::vector<unsigned long> pixels(icon.colours.size());
  std::vector<bool> allocated(icon.colours.size(), false);
  for (size_t i = 0; i < icon.colours.size(); ++i) {
    const IconColour &c = icon.colours[i];
    XColor xc;
    xc.red = static_cast<unsigned short>(c.red * 257);
    xc.green = static_cast<unsigned short>(c.green * 257);
    xc.blue = static_cast<unsigned short>(c.blue * 257);
    xc.flags = DoRed | DoGreen | DoBlue;
    if (XAllocColor(dpy, cmap, &xc)) {
      pixels[i] = xc.pixel;
      allocated[i] = true;
    } else {
      std::fprintf(stderr, "Error XAllocColor : <%x %x %x>\n", c.red, c.green, c.blue);
    }
  }

  const Window root = RootWindow(dpy, screen);
  Pixmap pix = XCreatePixmap(dpy, root, static_cast<unsigned>(icon.width), static_cast<unsigned>(icon.height),
                             static_cast<unsigned>(DefaultDepth(dpy, screen)));
  GC gc = XCreateGC(dpy, pix, 0, nullptr);
  // Blank pixels take the first colour, the icon's background.
  XSetForeground(dpy, gc, allocated[0] ? pixels[0] : WhitePixel(dpy, screen));
  XFillRectangle(dpy, pix, gc, 0, 0, static_cast<unsigned>(icon.width), static_cast<unsigned>(icon.height));
  for (size_t i = 0; i < icon.colours.size(); ++i) {
    const IconColour &c = icon.colours[i];
    if (!allocated[i] || c.points.empty()) continue;
    XSetForeground(dpy, gc, pixels[i]);
    XDrawPoints(dpy, pix, gc, reinterpret_cast<XPoint *>(const_cast<IconPoint *>(c.points.data())),
                static_cast<int>(c.points.size()), CoordModeOrigin);
  }
  XFreeGC(dpy, gc);
  return pix;
}

Pixmap BuildWindowIcon(Display *dpy, int screen) {
  XIconSize *list = nullptr;
  int count = 0;
  std::vector<IconSizeRange> sizes;
  if (XGetIconSizes(dpy, RootWindow(dpy, screen), &list, &count) && list) {
    for (int i = 0; i < count; ++i)
      sizes.push_back({list[i].min_width, list[i].min_height, list[i].max_width, list[i].max_height});
    XFree(list);
  }
  size_t size = 0;
  const unsigned char *data = ChooseIconSize(sizes) == 64 ? Icon64Data(&size) : Icon32Data(&size);
  IconImage icon;
  std::string error;
  if (!ParseIcon(data, size, &icon, &error)) {
    std::fprintf(stderr, "Bad icon data: %s\n", error.c_str());
    return 0;
  }
  return DrawIconPixmap(dpy, screen, icon);
}

void CreateSharedCursors(Display *dpy, Drawable d, Cursor out[2]) {
  XColor black, white;
  black.red = black.green = black.blue = 0;
  white.red = white.green = white.blue = 65535;
  black.flags = white.flags = DoRed | DoGreen | DoBlue;
  for (int i = 0; i < 2; ++i) {
    const CursorBitmap &shape = SharedCursorBitmap(i);
    Pixmap source = XCreateBitmapFromData(dpy, d, reinterpret_cast<const char *>(shape.source), 32, 32);
    Pixmap mask = XCreateBitmapFromData(dpy, d, reinterpret_cast<const char *>(shape.mask), 32, 32);
    out[i] = XCreatePixmapCursor(dpy, source, mask, &black, &white, static_cast<unsigned>(shape.hot_x),
                                 static_cast<unsigned>(shape.hot_y));
    XFreePixmap(dpy, source);
    XFreePixmap(dpy, mask);
  }
}

}  // namespace quilla
