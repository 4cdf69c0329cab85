// Visual choice, channel layout, colour cubes and dither records.
#include "core/colour_model.h"

#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <tuple>

namespace quilla {

const char *VisualClassName(int cls) {
  static const char *const kNames[] = {"StaticGray", "GrayScale", "StaticColor", "PseudoColor", "TrueColor",
                                       "DirectColor"};
  return cls >= 0 && cls <= 5 ? kNames[cls] : "Unknown";
}

void MaskShiftLevels(unsigned long mask, int *shift, int *levels) {
  *shift = 0;
  *levels = 1;
  if (!mask) return;
  int s = 0;
  while (!((mask >> s) & 1)) ++s;
  int bits = 0;
  while (s + bits < static_cast<int>(sizeof mask * 8) && ((mask >> (s + bits)) & 1)) ++bits;
  *shift = s;
  *levels = 1 << bits;
}

VisualDesc DescribeVisual(const VisualInfo &v) {
  VisualDesc d;
  d.info = v;
  if (v.cls == kTrueColor || v.cls == kDirectColor || v.cls == kStaticColor || v.cls == kStaticGray) {
    MaskShiftLevels(v.red_mask, &d.red_shift, &d.red_levels);
    MaskShiftLevels(v.green_mask, &d.green_shift, &d.green_levels);
    MaskShiftLevels(v.blue_mask, &d.blue_shift, &d.blue_levels);
  }
  return d;
}

int ChooseVisual(const std::vector<VisualInfo> &visuals, const VisualInfo &def, long requested_id) {
  if (visuals.empty()) return -1;
  int default_index = -1;
  for (size_t i = 0; i < visuals.size(); ++i)
    if (visuals[i].id == def.id) default_index = static_cast<int>(i);
  if (requested_id == 0 && default_index >= 0) return default_index;
  if (requested_id > 0) {
    for (size_t i = 0; i < visuals.size(); ++i)
      if (visuals[i].id == static_cast<unsigned long>(requested_id)) return static_cast<int>(i);
  }
  int found = -1;
  for (int cls : {kTrueColor, kDirectColor, kPseudoColor, kStaticColor, kStaticGray}) {
    for (size_t i = 0; i < visuals.size(); ++i) {
      if (visuals[i].cls != cls) continue;
      if (found < 0 || visuals[i].depth > visuals[static_cast<size_t>(found)].depth) found = static_cast<int>(i);
    }
    if (found >= 0) break;
  }
  if (found < 0 || visuals[static_cast<size_t>(found)].depth == def.depth)
    return default_index >= 0 ? default_index : (found >= 0 ? found : 0);
  return found;
}

std::string VisualChoiceMessage(const VisualInfo &v) {
  char buf[128];
  std::snprintf(buf, sizeof buf, "Use %s visual (0x%x) with %d bits...\n", VisualClassName(v.cls),
                static_cast<unsigned>(v.id), v.depth);
  return buf;
}

const CubeShape kCubes[5] = {{1, 8, 8, 4}, {2, 6, 6, 6}, {3, 4, 8, 4}, {4, 4, 4, 4}, {5, 2, 2, 2}};

void CubeColor(const CubeShape &c, int r, int g, int b, uint16_t *red, uint16_t *green, uint16_t *blue) {
  *red = static_cast<uint16_t>(r * 65535 / (c.nr - 1));
  *green = static_cast<uint16_t>(g * 65535 / (c.ng - 1));
  *blue = static_cast<uint16_t>(b * 65535 / (c.nb - 1));
}

const uint8_t kDitherMatrix[8][8] = {
    {0, 38, 9, 47, 2, 40, 11, 50},  {25, 12, 35, 22, 27, 15, 37, 24}, {6, 44, 3, 41, 8, 47, 5, 43},
    {31, 19, 28, 15, 34, 21, 31, 18}, {1, 39, 11, 49, 0, 39, 10, 48},  {27, 14, 36, 23, 26, 13, 35, 23},
    {7, 46, 4, 43, 7, 45, 3, 42},   {33, 20, 30, 17, 32, 19, 29, 16},
};

namespace {

void BuildChannel(int n, int unit, DitherEntry *table, const char *error_format) {
  const double step = 255.0 / (n - 1);
  for (int v = 0; v < 256; ++v) {
    int q = static_cast<int>(v / step);
    if (q == n - 1) q = n - 2;
    // (v - q*step) / (step/63), evaluated so that a value exactly on the upper
    // level gives 63 rather than 62.999...
    int fraction = static_cast<int>((v - q * step) * 63.0 / step);
    if (fraction > 63) std::printf(error_format, v, fraction);
    table[v].fraction = static_cast<uint8_t>(fraction > 63 ? 63 : fraction);
    table[v].lower = static_cast<uint8_t>(q * unit);
    table[v].upper = static_cast<uint8_t>((q + 1) * unit);
    table[v].pad = 0;
  }
}

}  // namespace

void BuildDitherRecord(int nr, int ng, int nb, DitherRecord *d) {
  d->nr = nr;
  d->ng = ng;
  d->nb = nb;
  for (int i = 0; i < 8; ++i)
    for (int j = 0; j < 8; ++j)
      for (int k = 0; k < 64; ++k) d->threshold[i][j][k] = kDitherMatrix[i][j] < k ? 1 : 0;
  BuildChannel(nr, ng * nb, d->red, "ERROR ptr->red: %d  %d \n");
  BuildChannel(ng, nb, d->green, "ERROR ptr->green: %d   %d \n");
  BuildChannel(nb, 1, d->blue, "ERROR ptr->blue: %d   %d \n");
}

const DitherRecord &GetDitherRecord(int nr, int ng, int nb) {
  static std::mutex lock;
  static std::map<std::tuple<int, int, int>, std::unique_ptr<DitherRecord>> records;
  std::lock_guard<std::mutex> guard(lock);
  auto &slot = records[std::make_tuple(nr, ng, nb)];
  if (!slot) {
    slot.reset(new DitherRecord);
    BuildDitherRecord(nr, ng, nb, slot.get());
  }
  return *slot;
}

}  // namespace quilla
