// View decisions: zoom, fit, labels, commands, tiles.
#include "view/view_model.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace quilla {

const int kZoomSteps[18] = {1600, 1200, 800, 700, 600, 500, 400, 300, 200, 100, 70, 50, 30, 25, 20, 15, 10, 7};

int CurrentZoomStep(uint32_t pic_w, uint32_t pic_h, int area_w, int area_h) {
  for (int i = 0; i < 18; ++i) {
    const uint64_t w = static_cast<uint64_t>(pic_w) * kZoomSteps[i] / 100;
    const uint64_t h = static_cast<uint64_t>(pic_h) * kZoomSteps[i] / 100;
    if (w <= static_cast<uint64_t>(std::max(area_w, 0)) && h <= static_cast<uint64_t>(std::max(area_h, 0))) return i;
  }
  return 17;
}

int ZoomFromParameter(const char *param, uint32_t pic_w, uint32_t pic_h, int area_w, int area_h,
                      double current_zoom) {
  if (!param) return 100;
  if (param[0] == '+' || param[0] == '-') {
    int step = CurrentZoomStep(pic_w, pic_h, area_w, area_h);
    for (int i = 0; i < 18; ++i)
      if (current_zoom == kZoomSteps[i]) step = i;
    step += param[0] == '+' ? -1 : 1;  // the table runs from large to small
    step = std::min(std::max(step, 0), 17);
    return kZoomSteps[step];
  }
  int percent = std::atoi(param);
  return percent > 0 ? percent : 100;
}

const char *const kFitModeNames[8] = {"noFit",         "fitWindow",      "fitImageLarge",   "fitImageAll",
                                      "fitImageWidth", "fitImageHeight", "fitDesktopLarge", "fitDesktopAll"};

FitResult ComputeFit(int mode, uint32_t pic_w, uint32_t pic_h, int area_w, int area_h, int screen_w,
                     int screen_h) {
  FitResult r{100.0, false, 0, 0};
  const double pw = pic_w ? pic_w : 1, ph = pic_h ? pic_h : 1;
  auto fit = [&](int box_w, int box_h, bool enlarge) {
    double z = std::min(box_w / pw, box_h / ph) * 100.0;
    if (!enlarge && z > 100.0) z = 100.0;
    return z > 0 ? z : 100.0;
  };
  switch (mode) {
    case kFitWindow:
    case kFitDesktopLarge:
      r.zoom = fit(screen_w, screen_h, false);
      r.resize_window = true;
      break;
    case kFitDesktopAll:
      r.zoom = fit(screen_w, screen_h, true);
      r.resize_window = true;
      break;
    case kFitImageLarge:
      r.zoom = fit(area_w, area_h, false);
      break;
    case kFitImageAll:
      r.zoom = fit(area_w, area_h, true);
      break;
    case kFitImageWidth:
      r.zoom = area_w > 0 ? area_w / pw * 100.0 : 100.0;
      break;
    case kFitImageHeight:
      r.zoom = area_h > 0 ? area_h / ph * 100.0 : 100.0;
      break;
    default:
      break;
  }
  r.view_w = std::max(1, static_cast<int>(pw * r.zoom / 100.0));
  r.view_h = std::max(1, static_cast<int>(ph * r.zoom / 100.0));
  return r;
}

InfoLabel InfoFor(const TslPicture &pic) {
  InfoLabel info;
  info.width = pic.width;
  info.height = pic.height;
  info.depth = pic.color_model == TSL_BINARY ? 1 : pic.bytes_per_pixel * 8;
  info.color_model = pic.color_model;
  info.colors = pic.colors;
  return info;
}

std::string InfoLabelText(const InfoLabel &in) {
  char buf[256];
  std::string s;
  if (in.list_count > 0) {
    std::snprintf(buf, sizeof buf, "%d/%d", in.list_pos, in.list_count);
    s += buf;
    s += "  ";
  }
  std::snprintf(buf, sizeof buf, "%dx%dx%d", static_cast<int>(in.width), static_cast<int>(in.height), in.depth);
  s += buf;
  s += "  ";
  if (in.color_model == TSL_INDEXED || in.color_model == TSL_BINARY)
    std::snprintf(buf, sizeof buf, "%d Colors", in.color_model == TSL_BINARY ? 2 : in.colors);
  else if (in.color_model == TSL_GREY)
    std::snprintf(buf, sizeof buf, "%d Grey Scale", in.colors);
  else
    std::snprintf(buf, sizeof buf, "True Colors");
  s += buf;
  std::snprintf(buf, sizeof buf, "  %d%%", in.zoom);
  s += buf;
  if (in.frames > 1) {
    std::snprintf(buf, sizeof buf, "  Frame %d/%d", in.frame, in.frames);
    s += buf;
  }
  return s;
}

std::string ColorPickerText(const TslPicture &pic, int x, int y) {
  char buf[160];
  if (x < 0 || y < 0 || static_cast<uint32_t>(x) >= pic.width || static_cast<uint32_t>(y) >= pic.height ||
      !pic.pixels)
    return "";
  const uint8_t *row = pic.pixels + static_cast<size_t>(y) * pic.bytes_per_line;
  if (TSL_IS_TRUECOLOR(pic.color_model)) {
    std::vector<uint8_t> rgba(static_cast<size_t>(pic.width) * 4);
    tslGetRowRGBA(&pic, static_cast<uint32_t>(y), rgba.data());
    const uint8_t *p = &rgba[static_cast<size_t>(x) * 4];
    std::snprintf(buf, sizeof buf, "X: %d, Y: %d\n  RGB (%u,%u,%u)\n  HTML (#%02X%02X%02X)", x, y, p[0], p[1], p[2],
                  p[0], p[1], p[2]);
  } else if (pic.color_model == TSL_INDEXED && pic.palette) {
    unsigned i = row[x];
    unsigned r = pic.palette[i], g = pic.palette[256 + i], b = pic.palette[512 + i];
    std::snprintf(buf, sizeof buf, "X: %d, Y: %d\n  INDEX (%u)\n  RGB (%u,%u,%u)\n  HTML (#%02X%02X%02X)", x, y, i, r,
                  g, b, r, g, b);
  } else {
    unsigned v = pic.color_model == TSL_BINARY ? ((row[x / 8] >> (7 - x % 8)) & 1) * 255u : row[x];
    std::snprintf(buf, sizeof buf, "X: %d, Y: %d\n  INDEX (%u)\n  HTML (#%02X)", x, y, v, v);
  }
  return buf;
}

const char *const kViewCommands[] = {
    "open",       "viewHexa",       "browseFiles",  "reopenFiles", "close",     "saveFiles",   "slideShow",
    "sequenceConvert", "multiConvert", "quit",      "undo",        "crop",      "options",     "adaptiveSize",
    "fitImage",   "fullScreen",     "statusBar",    "toolBar",     "colorInformation", "zoom+", "zoom-",
    "zoom100",    "showMask",       "first",        "last",        "next",      "prev",        "pageFirst",
    "pageLast",   "pageNext",       "pagePrev",     "describe",    "properties", "copyTo",     "moveTo",
    "rename",     "delete",         "resize",       "flipVertical", "flipHorizontal", "rotateLeft", "rotateRight",
};
const int kViewCommandCount = static_cast<int>(sizeof kViewCommands / sizeof kViewCommands[0]);

int ViewCommandIndex(const char *word) {
  if (!word) return -1;
  for (int i = 0; i < kViewCommandCount; ++i)
    if (std::strcmp(kViewCommands[i], word) == 0) return i;
  return -1;
}

std::vector<TileRect> TilesForExpose(int org_x, int org_y, int view_w, int view_h, const TileRect &e) {
  std::vector<TileRect> tiles;
  const int x0 = std::max(e.x, org_x), y0 = std::max(e.y, org_y);
  const int x1 = std::min(e.x + e.w, org_x + view_w), y1 = std::min(e.y + e.h, org_y + view_h);
  if (x1 <= x0 || y1 <= y0) return tiles;
  for (int y = y0; y < y1; y += 256)
    for (int x = x0; x < x1; x += 256) tiles.push_back({x, y, std::min(256, x1 - x), std::min(256, y1 - y)});
  return tiles;
}

std::string ExtractFileName(const std::string &dir, const std::string &path, int page_index) {
  std::string base = path.substr(path.find_last_of('/') + 1);
  const size_t dot = base.find_last_of('.');
  if (dot != std::string::npos && dot > 0) base.resize(dot);
  std::vector<char> buf(dir.size() + base.size() + 32);
  std::snprintf(buf.data(), buf.size(), "%s/%s_extract_%03d.ppm", dir.c_str(), base.c_str(), page_index + 1);
  return buf.data();
}

int ScrollStep(int page) { return std::max(8, page / 10); }

ScrollBarNeed ScrollBarsNeeded(int view_w, int view_h, int free_w, int free_h, int vbar_w, int hbar_h) {
  ScrollBarNeed need;
  need.h = view_w > free_w;
  need.v = view_h > (need.h ? free_h - hbar_h : free_h);
  if (need.v && !need.h) need.h = view_w > free_w - vbar_w;
  return need;
}

int ClampScroll(int pos, int view_size, int area_size) {
  const int max = std::max(0, view_size - area_size);
  return std::min(std::max(pos, 0), max);
}

}  // namespace quilla
