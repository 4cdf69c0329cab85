#include "bgr_rows.h"

#include "bytes.h"
#include "format.h"

namespace tessel {

void bgrRow(const TslPicture *picture, uint32_t y, int bytes, uint8_t *rgba, uint8_t *out) {
  tslGetRowRGBA(picture, y, rgba);
  for (uint32_t x = 0; x < picture->width; ++x) {
    uint8_t *o = out + static_cast<size_t>(x) * bytes;
    o[0] = rgba[4 * x + 2];
    o[1] = rgba[4 * x + 1];
    o[2] = rgba[4 * x];
    if (bytes == 4) o[3] = rgba[4 * x + 3];
  }
}

bool putBgrPalette(FILE *f, const uint8_t *palette, int count, bool pad) {
  bool ok = true;
  for (int i = 0; i < count && ok; ++i) {
    ok = put8(f, palette[512 + i]) && put8(f, palette[256 + i]) && put8(f, palette[i]);
    if (pad) ok = ok && put8(f, 0);
  }
  return ok;
}

void dropUselessAlpha(TslPicture *p) {
  bool all0 = true, all255 = true;
  for (uint32_t y = 0; y < p->height && (all0 || all255); ++y) {
    const uint8_t *row = rowOf(p, y);
    for (uint32_t x = 0; x < p->width; ++x) {
      all0 = all0 && row[4 * x + 3] == 0;
      all255 = all255 && row[4 * x + 3] == 255;
    }
  }
  if (!all0 && !all255) return;
  const size_t line = static_cast<size_t>(p->width) * 3;
  for (uint32_t y = 0; y < p->height; ++y) {
    const uint8_t *s = p->pixels + static_cast<size_t>(y) * p->bytes_per_line;
    uint8_t *d = p->pixels + static_cast<size_t>(y) * line;
    for (uint32_t x = 0; x < p->width; ++x) {
      d[3 * x] = s[4 * x];
      d[3 * x + 1] = s[4 * x + 1];
      d[3 * x + 2] = s[4 * x + 2];
    }
  }
  p->color_model = TSL_RGB;
  p->bytes_per_pixel = 3;
  p->bytes_per_line = static_cast<uint32_t>(line);
}

}  // namespace tessel
