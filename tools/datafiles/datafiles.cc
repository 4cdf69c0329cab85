// quilla_datafiles DIR: writes the files an installation carries beside the
// programs, made from the program's own tables so they never drift apart:
//   DIR/Quilla      the app-defaults file: the fallback resources, one a line
//   DIR/quilla.png  the 64x64 program icon, for the desktop entry
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/icon.h"
#include "core/startup.h"
#include "tessel.h"

namespace {

bool WriteAppDefaults(const std::string &path) {
  FILE *f = std::fopen(path.c_str(), "w");
  if (!f) return false;
  std::fprintf(f,
               "! Quilla application defaults: the program's built-in resources.\n"
               "! Copy lines to ~/.Xresources (or edit here) to change them.\n");
  for (const char *const *line = quilla::FallbackResources(); *line; ++line) std::fprintf(f, "%s\n", *line);
  return std::fclose(f) == 0;
}

bool WriteIcon(const std::string &path) {
  size_t size = 0;
  const unsigned char *data = quilla::Icon64Data(&size);
  quilla::IconImage icon;
  std::string error;
  if (!quilla::ParseIcon(data, size, &icon, &error) || icon.colours.empty()) {
    std::fprintf(stderr, "quilla_datafiles: icon: %s\n", error.c_str());
    return false;
  }
  TslPicture pic;
  std::memset(&pic, 0, sizeof pic);
  if (!tslAllock(&pic, TSL_RGBA, 0, static_cast<uint32_t>(icon.width), static_cast<uint32_t>(icon.height)))
    return false;
  // Blank pixels are the background: transparent on a desktop.
  std::memset(pic.pixels, 0, static_cast<size_t>(pic.bytes_per_line) * pic.height);
  for (const quilla::IconColour &c : icon.colours)
    for (const quilla::IconPoint &p : c.points) {
      uint8_t *px = pic.pixels + static_cast<size_t>(p.y) * pic.bytes_per_line + static_cast<size_t>(p.x) * 4;
      px[0] = c.red, px[1] = c.green, px[2] = c.blue, px[3] = 255;
    }
  TslParams params;
  tslDefaultParams(&params);
  params.format = tslFormatGetIndex("png");
  params.compression = 9;
  const int code = tslSave(path.c_str(), &pic, &params);
  tslFree(&pic);
  return code == TSL_OK;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: quilla_datafiles DIR\n");
    return 2;
  }
  tslInitLibrary();
  const std::string dir = argv[1];
  if (!WriteAppDefaults(dir + "/Quilla") || !WriteIcon(dir + "/quilla.png")) {
    std::fprintf(stderr, "quilla_datafiles: cannot write into %s: %s\n", dir.c_str(), std::strerror(errno));
    return 1;
  }
  return 0;
}
