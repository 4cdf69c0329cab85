// The X side of display colour: the visual chosen at start-up and the
// per-visual colour data (colormap, colour cube pixels, dither record),
// shared between windows and counted by reference.
#include "core/display_x.h"

#include <X11/Xutil.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <vector>

namespace quilla {

namespace {

VisualDesc g_visual;
Visual *g_xvisual = nullptr;
ColourData *g_list = nullptr;
bool g_verbose = false;
// Colours allocated outside the pixel table (DirectColor ramps), given back at exit.
std::map<ColourData *, std::vector<unsigned long>> g_extra_pixels;

VisualInfo FromX(const XVisualInfo &x) {
  VisualInfo v;
  v.id = x.visualid;
  v.cls = x.c_class;
  v.depth = x.depth;
  v.colormap_size = x.colormap_size;
  v.red_mask = x.red_mask;
  v.green_mask = x.green_mask;
  v.blue_mask = x.blue_mask;
  return v;
}

[[noreturn]] void NoVisualInfo(Display *dpy) {
  std::fprintf(stderr, "Error obtaining X visual info for %s\n", DisplayString(dpy));
  std::exit(0);
}

bool IsMappedClass(int cls) { return cls == kPseudoColor || cls == kGrayScale; }

// Allocates one cube in a shared colormap; on the first failure every colour
// already taken for it is given back and the cube is refused.
bool AllocCube(Display *dpy, ColourData *cd, const CubeShape &cube) {
  int idx = 0;
  for (int r = 0; r < cube.nr; ++r)
    for (int g = 0; g < cube.ng; ++g)
      for (int b = 0; b < cube.nb; ++b) {
        XColor c;
        CubeColor(cube, r, g, b, &c.red, &c.green, &c.blue);
        c.flags = DoRed | DoGreen | DoBlue;
        if (!XAllocColor(dpy, cd->colormap, &c)) {
          if (idx > 0) XFreeColors(dpy, cd->colormap, cd->pixels, idx, 0);
          for (int k = 0; k < idx; ++k) cd->pixels[k] = 0;
          return false;
        }
        cd->pixels[idx++] = c.pixel;
      }
  return true;
}

// Stores a cube into a private colormap, colour i at pixel i.
void StoreCube(Display *dpy, ColourData *cd, const CubeShape &cube) {
  std::vector<XColor> colours;
  for (int r = 0; r < cube.nr; ++r)
    for (int g = 0; g < cube.ng; ++g)
      for (int b = 0; b < cube.nb; ++b) {
        XColor c;
        CubeColor(cube, r, g, b, &c.red, &c.green, &c.blue);
        c.flags = DoRed | DoGreen | DoBlue;
        c.pixel = colours.size();
        cd->pixels[colours.size()] = c.pixel;
        colours.push_back(c);
      }
  XStoreColors(dpy, cd->colormap, colours.data(), static_cast<int>(colours.size()));
}

void UseCube(ColourData *cd, const CubeShape &cube) {
  const int n = cube.nr * cube.ng * cube.nb;
  cd->cube_kind = cube.kind;
  cd->colour_count = n;
  cd->black = cd->pixels[0];
  cd->white = cd->pixels[n - 1];
  cd->dither = &GetDitherRecord(cube.nr, cube.ng, cube.nb);
  if (g_verbose) std::fprintf(stderr, "Use %dx%dx%d colormap \n", cube.nr, cube.ng, cube.nb);
}

const CubeShape &CubeOfKind(int kind) {
  for (const CubeShape &c : kCubes)
    if (c.kind == kind) return c;
  return kCubes[0];
}

// A private colormap holding the picture's own colours, entry i at pixel i.
void StorePictureColours(Display *dpy, ColourData *cd, const TslPicture *pic, int size) {
  int count = pic->colors > 0 ? pic->colors : 256;
  if (count > 256) count = 256;
  if (count > size) count = size;
  std::vector<XColor> colours(count);
  int darkest = 0, brightest = 0, dmin = 1 << 30, dmax = -1;
  for (int i = 0; i < count; ++i) {
    XColor &c = colours[i];
    if (pic->palette && pic->color_model == TSL_INDEXED) {
      c.red = static_cast<unsigned short>(pic->palette[i] * 257);
      c.green = static_cast<unsigned short>(pic->palette[256 + i] * 257);
      c.blue = static_cast<unsigned short>(pic->palette[512 + i] * 257);
    } else {
      const unsigned short v = count > 1 ? static_cast<unsigned short>(i * 65535L / (count - 1)) : 0;
      c.red = c.green = c.blue = v;
    }
    c.flags = DoRed | DoGreen | DoBlue;
    c.pixel = static_cast<unsigned long>(i);
    cd->pixels[i] = c.pixel;
    const int lum = c.red + c.green + c.blue;
    if (lum < dmin) dmin = lum, darkest = i;
    if (lum > dmax) dmax = lum, brightest = i;
  }
  if (count > 0) XStoreColors(dpy, cd->colormap, colours.data(), count);
  cd->colour_count = count;
  cd->black = cd->pixels[darkest];
  cd->white = cd->pixels[brightest];
}

void FillPixelTable(Display *dpy, ColourData *cd, const TslPicture *pic, bool private_map) {
  for (unsigned long &p : cd->pixels) p = 0;
  cd->colour_count = 0;
  const int depth = cd->visual.info.depth;
  if (depth <= 2) {
    XColor black{}, white{};
    white.red = white.green = white.blue = 65535;
    black.flags = white.flags = DoRed | DoGreen | DoBlue;
    if (!XAllocColor(dpy, cd->colormap, &black)) std::fprintf(stderr, "Failed to allocate\n");
    if (!XAllocColor(dpy, cd->colormap, &white)) std::fprintf(stderr, "Failed to allocate\n");
    cd->pixels[0] = cd->black = black.pixel;
    cd->pixels[1] = cd->white = white.pixel;
    cd->colour_count = 2;
    return;
  }
  if (depth <= 4) {
    const CubeShape &c = CubeOfKind(5);
    if (AllocCube(dpy, cd, c)) UseCube(cd, c);
    return;
  }
  if (private_map) {
    if (pic && !TSL_IS_TRUECOLOR(pic->color_model) && pic->color_model != TSL_BINARY) {
      StorePictureColours(dpy, cd, pic, cd->visual.info.colormap_size);
    } else {
      const CubeShape &c = CubeOfKind(1);
      StoreCube(dpy, cd, c);
      UseCube(cd, c);
    }
    return;
  }
  for (const CubeShape &c : kCubes)
    if (AllocCube(dpy, cd, c)) {
      UseCube(cd, c);
      return;
    }
}

void AllocDirectRamps(Display *dpy, ColourData *cd) {
  const VisualDesc &v = cd->visual;
  const int size = v.info.colormap_size;
  std::vector<unsigned long> &taken = g_extra_pixels[cd];
  for (int i = 0; i < size; ++i) {
    const long value = size > 1 ? static_cast<long>(i) * 65535 / (size - 1) : 0;
    auto step_down = [value](int levels) {
      const long step = 65536 / (levels > 0 ? levels : 1);
      return static_cast<unsigned short>(value / step * step);
    };
    XColor c;
    c.red = step_down(v.red_levels);
    c.green = step_down(v.green_levels);
    c.blue = step_down(v.blue_levels);
    c.flags = DoRed | DoGreen | DoBlue;
    if (XAllocColor(dpy, cd->colormap, &c)) taken.push_back(c.pixel);
  }
}

void FreeEntry(Display *dpy, ColourData *cd) {
  Colormap def = DefaultColormap(dpy, DefaultScreen(dpy));
  auto extra = g_extra_pixels.find(cd);
  if (cd->shared) {
    // Colours taken from a colormap that may stay (the default one) go back.
    if (extra != g_extra_pixels.end() && !extra->second.empty())
      XFreeColors(dpy, cd->colormap, extra->second.data(), static_cast<int>(extra->second.size()), 0);
    if (cd->shared && IsMappedClass(cd->visual.info.cls) && cd->colour_count > 0)
      XFreeColors(dpy, cd->colormap, cd->pixels, cd->colour_count, 0);
  }
  if (extra != g_extra_pixels.end()) g_extra_pixels.erase(extra);
  if (cd->colormap && cd->colormap != def) XFreeColormap(dpy, cd->colormap);
  delete cd;
}

}  // namespace

const VisualDesc &InitVisual(Display *dpy, int screen, long requested_id, bool verbose) {
  g_verbose = verbose;
  XVisualInfo templ;
  int n = 0;
  templ.visualid = XVisualIDFromVisual(DefaultVisual(dpy, screen));
  XVisualInfo *def = XGetVisualInfo(dpy, VisualIDMask, &templ, &n);
  if (!def || n < 1) NoVisualInfo(dpy);
  VisualInfo default_visual = FromX(def[0]);
  XFree(def);

  templ.screen = screen;
  XVisualInfo *list = XGetVisualInfo(dpy, VisualScreenMask, &templ, &n);
  if (!list || n < 1) NoVisualInfo(dpy);
  std::vector<VisualInfo> visuals;
  for (int i = 0; i < n; ++i) visuals.push_back(FromX(list[i]));
  const int chosen = ChooseVisual(visuals, default_visual, requested_id);
  if (chosen < 0) {
    XFree(list);
    NoVisualInfo(dpy);
  }
  g_xvisual = list[chosen].visual;
  g_visual = DescribeVisual(visuals[chosen]);
  XFree(list);
  if (verbose) std::fputs(VisualChoiceMessage(g_visual.info).c_str(), stderr);
  return g_visual;
}

const VisualDesc &CurrentVisual() { return g_visual; }
Visual *CurrentXVisual() { return g_xvisual; }

ColourData *GetColourData(Display *dpy, int screen, const TslPicture *pic, bool private_map) {
  const VisualDesc &v = g_visual;
  Visual *xv = g_xvisual ? g_xvisual : DefaultVisual(dpy, screen);
  // A private colormap only makes sense where colours are looked up in it.
  if (!IsMappedClass(v.info.cls) || v.info.depth < 8) private_map = false;

  if (!private_map)
    for (ColourData *cd = g_list; cd; cd = cd->next)
      if (cd->visual.info.id == v.info.id && cd->shared && cd->display == dpy) {
        ++cd->ref_count;
        return cd;
      }

  ColourData *cd = new ColourData;
  cd->visual = v;
  cd->display = dpy;
  cd->next = g_list;
  g_list = cd;
  const int cls = v.info.cls;
  if (cls == kTrueColor || cls == kDirectColor || cls == kStaticColor || cls == kStaticGray) {
    cd->black = 0;
    cd->white = (static_cast<unsigned long>(v.red_levels * 255 / 256) << v.red_shift) |
                (static_cast<unsigned long>(v.green_levels * 255 / 256) << v.green_shift) |
                (static_cast<unsigned long>(v.blue_levels * 255 / 256) << v.blue_shift);
  }
  if (!private_map && xv == DefaultVisual(dpy, screen)) {
    cd->colormap = DefaultColormap(dpy, screen);
    cd->shared = true;
  } else if (private_map) {
    cd->colormap = XCreateColormap(dpy, RootWindow(dpy, screen), xv, AllocAll);
    cd->shared = false;
  } else {
    cd->colormap = XCreateColormap(dpy, RootWindow(dpy, screen), xv, AllocNone);
    cd->shared = true;
  }
  if (cls == kDirectColor) AllocDirectRamps(dpy, cd);
  if (IsMappedClass(cls)) FillPixelTable(dpy, cd, pic, private_map);
  cd->ref_count = 1;
  return cd;
}

void ReleaseColourData(Display *dpy, ColourData *data) {
  if (!data || data->ref_count <= 0) return;
  if (--data->ref_count > 0 || data->shared) return;
  for (ColourData **p = &g_list; *p; p = &(*p)->next)
    if (*p == data) {
      *p = data->next;
      break;
    }
  FreeEntry(dpy, data);
}

void FreeAllColourData(Display *dpy) {
  for (ColourData **p = &g_list; *p;) {
    ColourData *cd = *p;
    if (cd->display != dpy) {
      p = &cd->next;
      continue;
    }
    *p = cd->next;
    FreeEntry(dpy, cd);
  }
}

}  // namespace quilla
