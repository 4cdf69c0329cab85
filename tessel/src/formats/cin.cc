// Kodak Cineon film scans: a file header (magic 0x802A5FD7 in either byte
// order, data offset, version), an image header with up to eight channel
// records, the data format (interleave, packing, eol padding) and an origin
// part, then the pixel-interleaved samples.
// Reader: one (grey) or three (RGB) channels of 8, 10, 12 or 16 bits; 10 and
// 12 bits packed back to back or three to a 32-bit word; any of the four
// unrotated orientations.  Writer: big-endian 10-bit RGB, three
// samples to a word; the parameters' look-up table maps 8-bit values to
// 10-bit codes.
#include <cstring>

#include "../bytes.h"
#include "../format.h"
#include "film_samples.h"

namespace tessel {

namespace {

constexpr uint32_t kMagic = 0x802A5FD7;
constexpr size_t kHeaderSize = 2048;
constexpr size_t kImage = 192;     // image information
constexpr size_t kChannel = 196;   // first channel record, 28 bytes each
constexpr size_t kFormat = 680;    // data format information
constexpr size_t kOrigin = 712;    // origination information

struct CinHeader {
  FilmImage image;
  char label[201] = {0};
};

int parseHeader(const Source &src, CinHeader *h, char *msg, size_t msg_size) {
  if (src.size < 4) return TSL_ERR_READ;
  const uint8_t *d = src.data;
  bool little;
  if (be32(d) == kMagic) little = false;
  else if (le32(d) == kMagic) little = true;
  else {
    std::snprintf(msg, msg_size, "Not a Cineon file");
    return TSL_ERR_BAD_FILE;
  }
  if (src.size < kOrigin) return TSL_ERR_READ;
  auto u32 = [&](size_t at) { return little ? le32(d + at) : be32(d + at); };
  FilmImage &im = h->image;
  im.layout.little_endian = little;
  const int orientation = d[kImage];
  const int channels = d[kImage + 1];
  im.layout.bits = d[kChannel + 2];
  im.width = u32(kChannel + 4);
  im.height = u32(kChannel + 8);
  std::memcpy(h->label, d + 452, 200);
  if (channels != 1 && channels != 3) {
    std::snprintf(msg, msg_size, "Cineon: %d channels are not supported", channels);
    return TSL_ERR_BAD_FILE;
  }
  for (int c = 1; c < channels; ++c) {
    const uint8_t *ch = d + kChannel + 28 * c;
    if (ch[2] != im.layout.bits || u32(kChannel + 28 * c + 4) != im.width || u32(kChannel + 28 * c + 8) != im.height) {
      std::snprintf(msg, msg_size, "Cineon: channels of different sizes are not supported");
      return TSL_ERR_BAD_FILE;
    }
  }
  if (im.width == 0 || im.height == 0) {
    std::snprintf(msg, msg_size, "Cineon picture has no size");
    return TSL_ERR_BAD_FILE;
  }
  im.channels = channels;
  const int interleave = d[kFormat], packing = d[kFormat + 1];
  const int bits = im.layout.bits;
  // Packing 0 uses every bit; 5 and 6 fill 32-bit words from the top or the
  // bottom.  8- and 16-bit samples are whole bytes whatever the packing.
  const bool packing_ok = bits == 8 || bits == 16 || packing == 0 || packing == 5 || packing == 6;
  if (interleave != 0 || !(bits == 8 || bits == 10 || bits == 12 || bits == 16) || !packing_ok) {
    std::snprintf(msg, msg_size, "Cineon: %d-bit samples with interleave %d and packing %d are not supported", bits,
                  interleave, packing);
    return TSL_ERR_BAD_FILE;
  }
  im.layout.packing = packing == 0 ? FilmPacking::kStream : packing == 6 ? FilmPacking::kFilledB : FilmPacking::kFilledA;
  im.offset = u32(4);
  const uint32_t eol = u32(kFormat + 4);
  im.eol_padding = eol == 0xffffffffu ? 0 : eol;
  // 0: left to right, top down; 1: bottom up; 2: right to left; 3: both.
  if (orientation <= 3) {
    im.flip_y = orientation & 1;
    im.flip_x = (orientation & 2) != 0;
  }
  return TSL_OK;
}

int cinInfo(const Source &src, int, TslFileInfo *info) {
  CinHeader h;
  int code = parseHeader(src, &h, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  filmFillInfo(h.image, h.label, info);
  return TSL_OK;
}

int cinLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  CinHeader h;
  char msg[256] = {0};
  int code = parseHeader(src, &h, msg, sizeof msg);
  if (code != TSL_OK) return ctx.fail(code, msg);
  return filmLoadPixels(src, h.image, picture, ctx);
}

int cinSave(FILE *file, const TslPicture *pic, SaveContext &ctx) {
  // Grey pictures too are written as three channels: readers of one-channel
  // files are rare.
  const int channels = 3;
  const uint64_t row = filmRowBytes(FilmLayout{10, FilmPacking::kFilledA, false},
                                    static_cast<uint64_t>(pic->width) * channels);
  const uint64_t total = kHeaderSize + row * pic->height;
  if (total > 0xffffffffu) return TSL_ERR_CANT_SAVE;

  uint8_t h[kHeaderSize] = {0};
  putBe32(h, kMagic);
  putBe32(h + 4, kHeaderSize);
  putBe32(h + 8, 1024);   // generic header
  putBe32(h + 12, 1024);  // industry header
  putBe32(h + 20, static_cast<uint32_t>(total));
  std::memcpy(h + 24, "V4.5", 4);
  h[kImage] = 0;
  h[kImage + 1] = static_cast<uint8_t>(channels);
  for (int c = 0; c < 8; ++c) {
    uint8_t *ch = h + kChannel + 28 * c;
    if (c >= channels) {
      std::memset(ch, 0xff, 28);
      continue;
    }
    ch[0] = 0;                                                // universal metric
    ch[1] = static_cast<uint8_t>(c + 1);  // red, green, blue
    ch[2] = 10;
    putBe32(ch + 4, pic->width);
    putBe32(ch + 8, pic->height);
    putBeFloat(ch + 12, 0.0f);
    putBeFloat(ch + 16, 0.0f);
    putBeFloat(ch + 20, 1023.0f);
    putBeFloat(ch + 24, 2.048f);
  }
  if (ctx.params().comment) std::strncpy(reinterpret_cast<char *>(h + 452), ctx.params().comment, 199);
  h[kFormat] = 0;      // pixel interleaved
  h[kFormat + 1] = 5;  // three samples to a 32-bit word, from the top
  if (!putBytes(file, h, sizeof h)) return TSL_ERR_WRITE;
  return filmSavePixels(file, pic, 10, channels, false, ctx);
}

bool cinSniff(const uint8_t *data, size_t size) { return size >= 4 && (be32(data) == kMagic || le32(data) == kMagic); }

}  // namespace

extern const FormatDef kCinFormat = {
    "cin", "Kodak Cineon", "cin;cineon",
    {{2, 256, -1, -1}, {1008, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, false, cinSniff, cinInfo, cinLoad, cinSave, nullptr};

}  // namespace tessel
