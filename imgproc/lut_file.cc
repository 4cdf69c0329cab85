// LUT text files.
#include "imgproc/lut_file.h"

#include <cstdio>
#include <string>

namespace quilla {

namespace {

// Reads one line of any length; only its first 127 characters are kept.
bool ReadLine(FILE *f, std::string *line) {
  line->clear();
  int c;
  bool any = false;
  while ((c = std::fgetc(f)) != EOF) {
    any = true;
    if (c == '\n') break;
    if (line->size() < 127) line->push_back(static_cast<char>(c));
  }
  return any;
}

bool ParseHeader(const char *text, int *channels, int *entries) {
  return std::sscanf(text, "LUT: %d %d", channels, entries) == 2 ||
         std::sscanf(text, "lut: %d %d", channels, entries) == 2;
}

uint16_t ClampEntry(int v) { return static_cast<uint16_t>(v < 0 ? 0 : v > 65535 ? 65535 : v); }

}  // namespace

bool ReadLutFile(const char *path, int size, Lut *lut) {
  *lut = Lut();
  if (!path || !*path || size <= 0) return false;
  FILE *f = std::fopen(path, "r");
  if (!f) return false;
  std::string line;
  int channels = 0, entries = 0;
  bool header = false;
  int next = 0;
  while (ReadLine(f, &line)) {
    if (line[0] == '#') continue;
    if (!header) {
      if (!ParseHeader(line.c_str(), &channels, &entries)) continue;
      // Deliberately lenient: only a header wrong in both respects is refused.
      if (channels != 1 && channels != 3 && entries != size) break;
      header = true;
      for (auto &p : lut->plane) p.assign(static_cast<size_t>(size), 0);
      lut->size = size;
      continue;
    }
    int value;
    if (std::sscanf(line.c_str(), "%d", &value) != 1) continue;
    if (next >= size) continue;  // past the table: ignored
    uint16_t v = ClampEntry(value);
    lut->plane[0][next] = v;
    if (channels == 3) lut->plane[1][next] = lut->plane[2][next] = v;
    ++next;
  }
  std::fclose(f);
  if (!header) *lut = Lut();
  return header;
}

void UseLut(const Lut &lut, TslParams *params) {
  if (lut.empty()) return;
  for (int i = 0; i < 3; ++i) params->lut[i] = const_cast<uint16_t *>(lut.plane[i].data());
  params->lut_size = lut.size;
}

}  // namespace quilla
