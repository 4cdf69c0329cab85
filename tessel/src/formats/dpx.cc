// Digital Picture Exchange (DPX) files: a 2048-byte header (file, image,
// orientation, film and television parts) in either byte order ("SDPX" big,
// "XPDS" little endian), then the samples of the first image element.
// Reader: luma, RGB, RGBA and ABGR elements of 8, 10, 12 or 16 bits, packed
// or filled to 32-bit words, in any of the four unrotated orientations.
// Writer: big-endian, grey (luma), RGB or RGBA, 8 bits or (dpx_10bits) 10
// bits filled three to a word; the parameters' look-up table maps 8-bit
// values to 10-bit codes.  Luma words hold their first sample in the low
// bits, colour words their first in the top bits, as common readers expect.
#include <cstring>

#include "../bytes.h"
#include "../format.h"
#include "film_samples.h"

namespace tessel {

namespace {

constexpr size_t kHeaderSize = 2048;
constexpr size_t kImageHeader = 768;
constexpr size_t kElement = 780;  // first image element
constexpr uint32_t kUndefined = 0xffffffffu;

struct DpxHeader {
  FilmImage image;
  int descriptor = 0;
  int elements = 0;
  char creator[101] = {0};
};

int parseHeader(const Source &src, DpxHeader *h, char *msg, size_t msg_size) {
  if (src.size < 4) return TSL_ERR_READ;
  const uint8_t *d = src.data;
  bool little;
  if (std::memcmp(d, "SDPX", 4) == 0) little = false;
  else if (std::memcmp(d, "XPDS", 4) == 0) little = true;
  else {
    std::snprintf(msg, msg_size, "Not a DPX file");
    return TSL_ERR_BAD_FILE;
  }
  if (src.size < kElement + 72) return TSL_ERR_READ;
  auto u32 = [&](size_t at) { return little ? le32(d + at) : be32(d + at); };
  auto u16 = [&](size_t at) { return little ? le16(d + at) : be16(d + at); };
  FilmImage &im = h->image;
  im.layout.little_endian = little;
  const int orientation = u16(kImageHeader);
  h->elements = u16(kImageHeader + 2);
  im.width = u32(kImageHeader + 4);
  im.height = u32(kImageHeader + 8);
  h->descriptor = d[kElement + 20];
  im.layout.bits = d[kElement + 23];
  const int packing = u16(kElement + 24);
  const int encoding = u16(kElement + 26);
  const uint32_t data_offset = u32(kElement + 28);
  const uint32_t eol = u32(kElement + 32);
  std::memcpy(h->creator, d + 160, 100);
  if (h->elements < 1 || h->elements > 8) {
    std::snprintf(msg, msg_size, "DPX: %d image elements", h->elements);
    return TSL_ERR_BAD_FILE;
  }
  if (im.width == 0 || im.height == 0 || im.width == kUndefined || im.height == kUndefined) {
    std::snprintf(msg, msg_size, "DPX picture has no size");
    return TSL_ERR_BAD_FILE;
  }
  switch (h->descriptor) {
    case 1: case 2: case 3: case 6: im.channels = 1; break;  // one component, shown as grey
    case 50: im.channels = 3; break;
    case 51: im.channels = 4; break;
    case 52:
      im.channels = 4;
      im.order[0] = 3, im.order[1] = 2, im.order[2] = 1, im.order[3] = 0;
      break;
    default:
      std::snprintf(msg, msg_size, "DPX: element descriptor %d is not supported", h->descriptor);
      return TSL_ERR_BAD_FILE;
  }
  const int bits = im.layout.bits;
  if (!(bits == 8 || bits == 10 || bits == 12 || bits == 16) || packing > 2) {
    std::snprintf(msg, msg_size, "DPX: %d-bit samples with packing %d are not supported", bits, packing);
    return TSL_ERR_BAD_FILE;
  }
  if (encoding != 0 && encoding != 0xffff) {
    std::snprintf(msg, msg_size, "DPX: run-length coded elements are not supported");
    return TSL_ERR_BAD_FILE;
  }
  im.layout.low_first = im.channels == 1;
  im.layout.packing = packing == 0 ? FilmPacking::kStream : packing == 1 ? FilmPacking::kFilledA : FilmPacking::kFilledB;
  im.offset = data_offset != 0 && data_offset != kUndefined ? data_offset : u32(4);
  im.eol_padding = eol == kUndefined ? 0 : eol;
  // Orientations 0..3: rows left to right or right to left, top down or bottom up.
  if (orientation <= 3) {
    im.flip_x = orientation & 1;
    im.flip_y = (orientation & 2) != 0;
  }
  return TSL_OK;
}

int dpxInfo(const Source &src, int, TslFileInfo *info) {
  DpxHeader h;
  int code = parseHeader(src, &h, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  filmFillInfo(h.image, h.creator, info);
  return TSL_OK;
}

int dpxLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  DpxHeader h;
  char msg[256] = {0};
  int code = parseHeader(src, &h, msg, sizeof msg);
  if (code != TSL_OK) return ctx.fail(code, msg);
  return filmLoadPixels(src, h.image, picture, ctx);
}

int dpxSave(FILE *file, const TslPicture *pic, SaveContext &ctx) {
  const int bits = ctx.params().dpx_10bits ? 10 : 8;
  const int channels = pic->color_model == TSL_GREY ? 1 : channelLayout(pic->color_model).a >= 0 ? 4 : 3;
  const uint64_t row = filmRowBytes(FilmLayout{bits, FilmPacking::kFilledA, false},
                                    static_cast<uint64_t>(pic->width) * channels);
  const uint64_t total = kHeaderSize + row * pic->height;
  if (total > 0xffffffffu) return TSL_ERR_CANT_SAVE;

  uint8_t h[kHeaderSize] = {0};
  std::memcpy(h, "SDPX", 4);
  putBe32(h + 4, kHeaderSize);
  std::memcpy(h + 8, "V2.0", 4);
  putBe32(h + 16, static_cast<uint32_t>(total));
  putBe32(h + 20, 1);                       // ditto key: a new picture
  putBe32(h + 24, 1664);                    // generic header
  putBe32(h + 28, 384);                     // industry header
  std::snprintf(reinterpret_cast<char *>(h + 160), 100, "tessel %s", TSL_VERSION_TEXT);
  putBe32(h + 660, kUndefined);             // not encrypted
  putBe16(h + kImageHeader, 0);             // left to right, top down
  putBe16(h + kImageHeader + 2, 1);
  putBe32(h + kImageHeader + 4, pic->width);
  putBe32(h + kImageHeader + 8, pic->height);
  uint8_t *e = h + kElement;
  putBe32(e + 12, (1u << bits) - 1);        // reference high code
  e[20] = static_cast<uint8_t>(channels == 1 ? 6 : channels == 4 ? 51 : 50);
  e[21] = 2;                                // linear transfer
  e[22] = 2;                                // linear colorimetry
  e[23] = static_cast<uint8_t>(bits);
  putBe16(e + 24, 1);                       // filled to 32-bit words
  putBe32(e + 28, kHeaderSize);
  for (size_t at = kElement + 72; at < kElement + 8 * 72; ++at) h[at] = 0xff;  // unused elements
  if (ctx.params().comment) std::strncpy(reinterpret_cast<char *>(e + 40), ctx.params().comment, 31);
  if (!putBytes(file, h, sizeof h)) return TSL_ERR_WRITE;
  return filmSavePixels(file, pic, bits, channels, channels == 1, ctx);
}

bool dpxSniff(const uint8_t *data, size_t size) {
  return size >= 4 && (std::memcmp(data, "SDPX", 4) == 0 || std::memcmp(data, "XPDS", 4) == 0);
}

}  // namespace

extern const FormatDef kDpxFormat = {
    "dpx", "Digital Picture Exchange", "dpx",
    {{2, 256, -1, -1}, {1008, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, false, dpxSniff, dpxInfo, dpxLoad, dpxSave, nullptr};

}  // namespace tessel
