// mksamples: draws a handful of synthetic sample pictures and writes them
// through libtessel in every format that can be written at run time.
//
//   mksamples DIR                 the sample set into DIR
//   mksamples -scene WxH FILE     only the photo-like scene, at any size, in
//                                 the format of FILE's extension (benchmarks)
#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tessel.h"
#include "tools/tesconv/tesconv.h"

namespace {

uint8_t Clamp(double v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v + 0.5); }

// A small deterministic hash for grain.
uint32_t Hash(uint32_t x, uint32_t y) {
  uint32_t h = x * 374761393u + y * 668265263u;
  h = (h ^ (h >> 13)) * 1274126177u;
  return h ^ (h >> 16);
}

bool Alloc(TslPicture *p, int model, uint32_t w, uint32_t h) {
  std::memset(p, 0, sizeof *p);
  return tslAllock(p, model, 0, w, h) != 0;
}

// Sky, sun, hills, a lake with reflections and a few coloured balloons,
// with a little grain so that the lossy writers see photo-like content.
bool DrawScene(TslPicture *p, uint32_t w, uint32_t h) {
  if (!Alloc(p, TSL_RGB, w, h)) return false;
  const double sx = w / 640.0, sy = h / 480.0;
  struct Balloon { double x, y, r; double c[3]; } balloons[] = {
      {150, 120, 28, {230, 40, 50}}, {220, 90, 20, {250, 200, 30}}, {470, 150, 24, {60, 90, 230}},
      {520, 80, 16, {200, 60, 200}}};
  const double horizon = 0.74 * h;
  for (uint32_t y = 0; y < h; ++y) {
    uint8_t *row = p->pixels + static_cast<size_t>(y) * p->bytes_per_line;
    for (uint32_t x = 0; x < w; ++x) {
      const double fx = x / sx, fy = y / sy;  // 640x480 coordinates
      double c[3];
      // Sky: deep blue at the top to warm haze at the horizon.
      double t = std::min(1.0, fy / 300.0);
      c[0] = 40 + 200 * t;
      c[1] = 90 + 130 * t;
      c[2] = 200 + 30 * t;
      // Sun with a soft glow.
      double ds = std::hypot(fx - 400, fy - 230);
      double glow = std::exp(-ds * ds / 9000.0);
      for (int k = 0; k < 3; ++k) c[k] += (k == 2 ? 60 : 120) * glow;
      if (ds < 40) c[0] = 255, c[1] = 235, c[2] = 170;
      // Two rows of hills.
      double hill1 = 300 + 35 * std::sin(fx / 70.0) + 15 * std::sin(fx / 23.0 + 1);
      double hill2 = 330 + 25 * std::sin(fx / 50.0 + 2) + 10 * std::sin(fx / 17.0);
      if (fy > hill1) c[0] = 70 + 0.1 * (fy - hill1), c[1] = 110 - 0.2 * (fy - hill1), c[2] = 90;
      if (fy > hill2) c[0] = 40 + 0.3 * (fy - hill2), c[1] = 140 - 0.3 * (fy - hill2), c[2] = 50;
      // Lake below the horizon: the sky mirrored, darker, with ripples.
      if (y > horizon) {
        double my = 2 * horizon / sy - fy + 3 * std::sin(fx / 6.0 + fy / 3.0);
        double mt = std::min(1.0, std::max(0.0, my / 300.0));
        double md = std::hypot(fx - 400, my - 230);
        double mg = std::exp(-md * md / 9000.0);
        c[0] = 0.6 * (40 + 200 * mt + 120 * mg);
        c[1] = 0.6 * (90 + 130 * mt + 120 * mg);
        c[2] = 0.7 * (200 + 30 * mt + 60 * mg);
      }
      // Balloons with shading.
      for (const Balloon &b : balloons) {
        double d = std::hypot(fx - b.x, fy - b.y);
        if (d < b.r) {
          double shade = 1.1 - 0.6 * std::hypot(fx - (b.x - b.r / 3), fy - (b.y - b.r / 3)) / (1.4 * b.r);
          for (int k = 0; k < 3; ++k) c[k] = b.c[k] * shade;
        }
      }
      double grain = static_cast<int>(Hash(x, y) % 9) - 4;
      for (int k = 0; k < 3; ++k) row[3 * x + k] = Clamp(c[k] + grain);
    }
  }
  p->attr_pair[0] = p->attr_pair[1] = 72;
  return true;
}

// A grey ramp: 256 steps across, a coarse staircase below.
bool DrawGreyRamp(TslPicture *p) {
  const uint32_t w = 512, h = 128;
  if (!Alloc(p, TSL_GREY, w, h)) return false;
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x)
      p->pixels[y * p->bytes_per_line + x] = static_cast<uint8_t>(y < h / 2 ? x / 2 : (x / 64) * 255 / 7);
  p->colors = 256;
  return true;
}

// Sixteen colours in rings and wedges.
bool DrawPalette16(TslPicture *p) {
  const uint32_t w = 320, h = 240;
  if (!Alloc(p, TSL_INDEXED, w, h)) return false;
  static const uint8_t kColors[16][3] = {
      {0, 0, 0},     {128, 0, 0},   {0, 128, 0},   {128, 128, 0},   {0, 0, 128},   {128, 0, 128},
      {0, 128, 128}, {192, 192, 192}, {128, 128, 128}, {255, 0, 0}, {0, 255, 0},   {255, 255, 0},
      {0, 0, 255},   {255, 0, 255}, {0, 255, 255}, {255, 255, 255}};
  for (int k = 0; k < 16; ++k)
    for (int c = 0; c < 3; ++c) p->palette[256 * c + k] = kColors[k][c];
  p->colors = 16;
  for (uint32_t y = 0; y < h; ++y) {
    for (uint32_t x = 0; x < w; ++x) {
      double dx = x - w / 2.0, dy = y - h / 2.0;
      int ring = static_cast<int>(std::hypot(dx, dy) / 14);
      int wedge = static_cast<int>((std::atan2(dy, dx) + M_PI) / (2 * M_PI) * 8);
      p->pixels[y * p->bytes_per_line + x] = static_cast<uint8_t>((ring + wedge * 2) % 16);
    }
  }
  return true;
}

// Black and white: a checkerboard with a ring and diagonal lines.
bool DrawBilevel(TslPicture *p) {
  const uint32_t w = 256, h = 256;
  if (!Alloc(p, TSL_BINARY, w, h)) return false;
  for (uint32_t y = 0; y < h; ++y) {
    uint8_t *row = p->pixels + static_cast<size_t>(y) * p->bytes_per_line;
    for (uint32_t x = 0; x < w; ++x) {
      bool white = ((x / 32) + (y / 32)) % 2 == 0;
      double d = std::hypot(x - 128.0, y - 128.0);
      if (d > 70 && d < 90) white = !white;
      if ((x + y) % 16 == 0) white = false;
      if (white) row[x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
    }
  }
  p->colors = 2;
  return true;
}

// Colour wheel whose alpha falls off from the centre; the corners are fully transparent.
bool DrawAlpha(TslPicture *p) {
  const uint32_t w = 256, h = 256;
  if (!Alloc(p, TSL_RGBA, w, h)) return false;
  for (uint32_t y = 0; y < h; ++y) {
    uint8_t *row = p->pixels + static_cast<size_t>(y) * p->bytes_per_line;
    for (uint32_t x = 0; x < w; ++x) {
      double dx = x - 127.5, dy = y - 127.5;
      double a = (std::atan2(dy, dx) + M_PI) / (2 * M_PI) * 6;
      double d = std::hypot(dx, dy) / 128.0;
      double r = std::fabs(std::fmod(a, 6) - 3) - 1, g = 2 - std::fabs(std::fmod(a + 4, 6) - 3),
             b = 2 - std::fabs(std::fmod(a + 2, 6) - 3);
      row[4 * x + 0] = Clamp(255 * std::min(1.0, std::max(0.0, r)));
      row[4 * x + 1] = Clamp(255 * std::min(1.0, std::max(0.0, g)));
      row[4 * x + 2] = Clamp(255 * std::min(1.0, std::max(0.0, b)));
      row[4 * x + 3] = Clamp(d >= 1 ? 0 : 255 * (1 - d * d));
    }
  }
  return true;
}

// One frame of the animation: a ball bouncing across a striped floor.
bool DrawFrame(TslPicture *p, int frame) {
  const uint32_t w = 128, h = 96;
  if (!Alloc(p, TSL_INDEXED, w, h)) return false;
  const uint8_t pal[4][3] = {{250, 250, 240}, {40, 60, 160}, {220, 50, 40}, {60, 160, 60}};
  for (int k = 0; k < 4; ++k)
    for (int c = 0; c < 3; ++c) p->palette[256 * c + k] = pal[k][c];
  p->colors = 4;
  const double bx = 24 + frame * 40, by = 30 + (frame == 1 ? 0 : 20);
  for (uint32_t y = 0; y < h; ++y) {
    for (uint32_t x = 0; x < w; ++x) {
      uint8_t v = y > 76 ? ((x / 8) % 2 ? 3 : 1) : 0;
      if (std::hypot(x - bx, y - by) < 14) v = 2;
      p->pixels[y * p->bytes_per_line + x] = v;
    }
  }
  return true;
}

bool MakeDir(const std::string &dir) {
  std::string path;
  for (size_t i = 0; i <= dir.size(); ++i) {
    if ((i == dir.size() || dir[i] == '/') && !path.empty() && ::mkdir(path.c_str(), 0777) != 0 && errno != EEXIST)
      return false;
    if (i < dir.size()) path += dir[i];
  }
  return true;
}

// Writes a copy of the picture in a format, converted when the format needs it.
// Formats that cannot be written (or whose writer refuses) are skipped quietly.
bool WriteAs(const TslPicture &picture, const std::string &path_base, const char *format_name, int *count) {
  const int f = tslFormatGetIndex(format_name);
  if (f < 0 || !tslFormatIsWritable(f)) return false;
  TslPicture copy;
  if (tslCopyPicture(&copy, &picture) != TSL_OK) return false;
  std::string why;
  if (quilla::FitPictureToFormat(&copy, f, &why) != TSL_OK) {
    tslFree(&copy);
    return false;
  }
  std::vector<char> path(4096, 0);
  std::snprintf(path.data(), path.size(), "%s.%s", path_base.c_str(), tslFormatGetDefaultSuffix(f));
  TslParams params;
  tslDefaultParams(&params);
  params.format = f;
  params.flags = TSL_FLAG_SAVE | TSL_FLAG_UNATTENDED;
  params.comment = "Quilla sample picture";
  int code = tslSave(path.data(), &copy, &params);
  tslFree(&copy);
  if (code != TSL_OK) return false;
  std::printf("wrote %s (%ux%u, %s)\n", path.data(), picture.width, picture.height, format_name);
  ++*count;
  return true;
}

bool WriteAnimation(const std::string &path, int *count) {
  const int f = tslFormatGetIndex("gif");
  if (f < 0 || !tslFormatIsMultiPage(f)) return false;
  TslParams params;
  tslDefaultParams(&params);
  params.format = f;
  params.flags = TSL_FLAG_SAVE | TSL_FLAG_UNATTENDED;
  TslFile *file = nullptr;
  if (tslFileCreate(&file, path.c_str(), f, 3, &params) != TSL_OK) return false;
  int code = TSL_OK;
  for (int k = 0; k < 3 && code == TSL_OK; ++k) {
    TslPicture frame;
    if (!DrawFrame(&frame, k)) {
      code = TSL_ERR_MEMORY;
      break;
    }
    code = tslFileAddPicture(file, &frame, &params);
    tslFree(&frame);
  }
  int closed = tslFileClose(file);
  if (code != TSL_OK || closed != TSL_OK) {
    std::remove(path.c_str());
    return false;
  }
  std::printf("wrote %s (128x96, gif, 3 frames)\n", path.c_str());
  ++*count;
  return true;
}

int Scene(const char *geometry, const char *path) {
  unsigned w = 0, h = 0;
  if (std::sscanf(geometry, "%ux%u", &w, &h) != 2 || w == 0 || h == 0 || w > 100000 || h > 100000) {
    std::fprintf(stderr, "mksamples: -scene WIDTHxHEIGHT FILE\n");
    return 2;
  }
  int f = tslFormatFromExtension(path);
  if (f < 0 || !tslFormatIsWritable(f)) {
    std::fprintf(stderr, "mksamples: %s: no writable format has this extension\n", path);
    return 2;
  }
  TslPicture scene;
  if (!DrawScene(&scene, w, h)) {
    std::fprintf(stderr, "mksamples: Not enough memory\n");
    return 1;
  }
  std::string why;
  int code = quilla::FitPictureToFormat(&scene, f, &why);
  TslParams params;
  tslDefaultParams(&params);
  params.format = f;
  params.flags = TSL_FLAG_SAVE | TSL_FLAG_UNATTENDED;
  if (code == TSL_OK) code = tslSave(path, &scene, &params);
  tslFree(&scene);
  if (code != TSL_OK) {
    std::fprintf(stderr, "mksamples: %s\n", quilla::ErrorLine(path, code, nullptr).c_str());
    return 1;
  }
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  tslInitLibrary();
  if (argc == 4 && std::strcmp(argv[1], "-scene") == 0) return Scene(argv[2], argv[3]);
  if (argc != 2 || argv[1][0] == '-') {
    std::fprintf(stderr, "usage: mksamples DIR\n       mksamples -scene WIDTHxHEIGHT FILE\n");
    return 2;
  }
  std::string dir = argv[1];
  if (!MakeDir(dir)) {
    std::fprintf(stderr, "mksamples: cannot create %s\n", dir.c_str());
    return 1;
  }
  if (dir.back() != '/') dir += '/';

  struct Sample {
    const char *name;
    bool (*draw)(TslPicture *);
    std::vector<const char *> formats;
  };
  const std::vector<Sample> samples = {
      {"scene", [](TslPicture *p) { return DrawScene(p, 640, 480); },
       {"jpeg", "png", "gif", "tiff", "bmp", "pcx", "tga", "ppm", "webp", "jp2", "sgi", "xwd", "iff"}},
      {"grey-ramp", DrawGreyRamp, {"png", "pgm", "tiff", "bmp", "jpeg"}},
      {"palette16", DrawPalette16, {"gif", "png", "bmp", "pcx", "tga", "xpm", "iff"}},
      {"bilevel", DrawBilevel, {"pbm", "xbm", "tiff", "png", "bmp"}},
      {"alpha", DrawAlpha, {"png", "tga", "webp", "tiff"}},
  };
  int count = 0;
  for (const Sample &s : samples) {
    TslPicture pic;
    if (!s.draw(&pic)) {
      std::fprintf(stderr, "mksamples: %s: Not enough memory\n", s.name);
      continue;
    }
    for (const char *f : s.formats) WriteAs(pic, dir + s.name, f, &count);
    tslFree(&pic);
  }
  WriteAnimation(dir + "anim.gif", &count);
  std::printf("%d sample pictures in %s\n", count, argv[1]);
  tslExitLibrary();
  return count > 0 ? 0 : 1;
}
