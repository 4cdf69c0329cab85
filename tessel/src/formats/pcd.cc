// Kodak Photo CD image packs (.pcd): 2048-byte sectors, "PCD_IPI" at the
// start of the second, the picture's rotation in the low bits of byte
// 0x0E02, and the picture stored at several resolutions.  The three
// uncompressed ones are read: Base/16 (192 x 128) at 0x2000, Base/4
// (384 x 256) at 0xB800 and Base (768 x 512) at 0x30000, each as groups of
// two luma rows followed by one row of each half-width chroma (PhotoYCC
// 4:2:0).  The resolution index of the parameters picks 0 Base/16, 1 Base/4,
// 2 Base; larger indices name the Huffman-coded 4Base and 16Base residuals,
// which are not read: they give Base.
#include <algorithm>
#include <cstring>
#include <vector>

#include "../format.h"

namespace tessel {

namespace {

constexpr size_t kSignature = 0x800;
constexpr size_t kRotation = 0x0E02;

struct Resolution {
  uint32_t width, height;
  size_t offset;
};
constexpr Resolution kResolutions[] = {{192, 128, 0x2000}, {384, 256, 0xB800}, {768, 512, 0x30000}};
constexpr int kLargest = 2;

uint64_t bytesOf(const Resolution &r) { return static_cast<uint64_t>(r.width) * r.height * 3 / 2; }

int checkHeader(const Source &src, char *msg, size_t msg_size) {
  if (src.size < kSignature + 7) return TSL_ERR_READ;
  if (std::memcmp(src.data + kSignature, "PCD_IPI", 7) != 0) {
    std::snprintf(msg, msg_size, "Not a Photo CD image pack");
    return TSL_ERR_BAD_FILE;
  }
  return src.size > kRotation ? TSL_OK : TSL_ERR_READ;
}

// Quarter turns clockwise that bring the stored picture upright.
int turnsOf(const Source &src) {
  switch (src.data[kRotation] & 3) {
    case 1: return 3;  // stored turned a quarter clockwise
    case 2: return 2;
    case 3: return 1;
    default: return 0;
  }
}

int pcdInfo(const Source &src, int, TslFileInfo *info) {
  int code = checkHeader(src, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  const Resolution &r = kResolutions[kLargest];
  const bool sideways = turnsOf(src) % 2 == 1;
  info->width = sideways ? r.height : r.width;
  info->height = sideways ? r.width : r.height;
  info->bits_per_plane = 8;
  info->planes = 3;
  info->color_model = TSL_RGB;
  info->colors = 1L << 24;
  info->compression = TSL_COMP_NONE;
  info->pages = 1;
  return TSL_OK;
}

uint8_t clamp(double v) { return static_cast<uint8_t>(v <= 0 ? 0 : v >= 255 ? 255 : v + 0.5); }

int pcdLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  char msg[256] = {0};
  int code = checkHeader(src, msg, sizeof msg);
  if (code != TSL_OK) return ctx.fail(code, msg);
  const int index = std::min(std::max(ctx.params().pcd_base, 0), kLargest);
  const Resolution &r = kResolutions[index];
  if (r.offset + bytesOf(r) > src.size && !ctx.keepDamaged()) return TSL_ERR_READ;
  const int turns = turnsOf(src);
  const bool sideways = turns % 2 == 1;
  const uint32_t out_w = sideways ? r.height : r.width, out_h = sideways ? r.width : r.height;
  code = ctx.alloc(picture, TSL_RGB, out_w, out_h);
  if (code != TSL_OK) return code;
  const uint32_t w = r.width, cw = w / 2;
  const size_t group = static_cast<size_t>(w) * 3;  // two luma rows, two chroma rows
  for (uint32_t pair = 0; pair < r.height / 2; ++pair) {
    const size_t at = r.offset + group * pair;
    if (at + group > src.size) break;  // only with damaged files kept
    const uint8_t *y0 = src.data + at, *c1 = y0 + 2 * static_cast<size_t>(w), *c2 = c1 + cw;
    for (uint32_t dy = 0; dy < 2; ++dy) {
      const uint32_t y = 2 * pair + dy;
      const uint8_t *luma = y0 + static_cast<size_t>(dy) * w;
      for (uint32_t x = 0; x < w; ++x) {
        // PhotoYCC to RGB; reference white (luma 189) comes out at 255.
        const double l = 1.3584 * luma[x];
        const double b = 2.2179 * (c1[x / 2] - 156.0);
        const double rr = 1.8215 * (c2[x / 2] - 137.0);
        uint32_t ox = x, oy = y;
        switch (turns) {
          case 1: ox = r.height - 1 - y, oy = x; break;
          case 2: ox = w - 1 - x, oy = r.height - 1 - y; break;
          case 3: ox = y, oy = w - 1 - x; break;
          default: break;
        }
        uint8_t *px = rowOf(picture, oy) + 3 * static_cast<size_t>(ox);
        px[0] = clamp(l + rr);
        px[1] = clamp(l - 0.194 * b - 0.509 * rr);
        px[2] = clamp(l + b);
      }
    }
    if (ctx.progress(pair + 1, r.height / 2)) return TSL_STOPPED;
  }
  return TSL_OK;
}

bool pcdSniff(const uint8_t *data, size_t size) {
  return size >= kSignature + 7 && std::memcmp(data + kSignature, "PCD_IPI", 7) == 0;
}

}  // namespace

extern const FormatDef kPcdFormat = {
    "pcd", "Kodak Photo CD", "pcd",
    {{-1, 0, 0, 0}},
    kMagicStrong, false, pcdSniff, pcdInfo, pcdLoad, nullptr, nullptr};

}  // namespace tessel
