// Sun raster files: a 32-byte big-endian header (magic, width, height,
// depth, data length, type, colour map type and length), an optional colour
// map of three planes, then rows padded to an even number of bytes.  Depths
// 1, 8, 24 and 32; type 1 stores blue first, type 3 red first; type 2 is the
// byte-oriented run-length code (0x80 n v: n + 1 copies of v, 0x80 0: 0x80).
// Writer: bilevel, grey, palette and 24-bit, run-length coded when
// compression is 1.
#include <algorithm>
#include <cstring>
#include <vector>

#include "../bytes.h"
#include "../format.h"

namespace tessel {

namespace {

constexpr uint32_t kMagic = 0x59a66a95;
constexpr size_t kHeaderSize = 32;
enum { kTypeOld = 0, kTypeStandard = 1, kTypeRle = 2, kTypeRgb = 3 };
enum { kMapNone = 0, kMapRgb = 1, kMapRaw = 2 };

struct RasHeader {
  uint32_t width, height, depth, length, type, map_type, map_length;
  uint64_t line;  // bytes of one stored row, padded to even
  int model;
};

int parseHeader(const Source &src, RasHeader *h, char *msg, size_t msg_size) {
  if (src.size < kHeaderSize) return TSL_ERR_READ;
  ByteReader r(src.data, src.size);
  if (r.u32be() != kMagic) {
    std::snprintf(msg, msg_size, "Not a Sun raster file");
    return TSL_ERR_BAD_FILE;
  }
  h->width = r.u32be();
  h->height = r.u32be();
  h->depth = r.u32be();
  h->length = r.u32be();
  h->type = r.u32be();
  h->map_type = r.u32be();
  h->map_length = r.u32be();
  if (h->depth != 1 && h->depth != 8 && h->depth != 24 && h->depth != 32) {
    std::snprintf(msg, msg_size, "Sun raster: depth %u is not supported", h->depth);
    return TSL_ERR_BAD_FILE;
  }
  if (h->type > kTypeRgb) {
    std::snprintf(msg, msg_size, "Sun raster: type %u is not supported", h->type);
    return TSL_ERR_BAD_FILE;
  }
  if (h->map_type > kMapRaw || (h->map_type == kMapRgb && (h->map_length % 3 != 0 || h->map_length > 768))) {
    std::snprintf(msg, msg_size, "Sun raster: bad colour map (type %u, %u bytes)", h->map_type, h->map_length);
    return TSL_ERR_BAD_FILE;
  }
  if (h->width == 0 || h->height == 0) {
    std::snprintf(msg, msg_size, "Sun raster picture has no size");
    return TSL_ERR_BAD_FILE;
  }
  if (kHeaderSize + static_cast<uint64_t>(h->map_length) > src.size) return TSL_ERR_READ;
  h->line = (static_cast<uint64_t>(h->width) * h->depth + 15) / 16 * 2;
  const bool has_map = h->map_type == kMapRgb && h->map_length >= 3;
  if (h->depth == 1) h->model = has_map ? TSL_INDEXED : TSL_BINARY;
  else if (h->depth == 8) h->model = has_map ? TSL_INDEXED : TSL_GREY;
  else h->model = TSL_RGB;
  return TSL_OK;
}

int rasInfo(const Source &src, int, TslFileInfo *info) {
  RasHeader h;
  int code = parseHeader(src, &h, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  info->width = h.width;
  info->height = h.height;
  info->bits_per_plane = h.depth <= 8 ? static_cast<int>(h.depth) : 8;
  info->planes = h.depth <= 8 ? 1 : static_cast<int>(h.depth / 8);
  info->color_model = h.model;
  info->colors = h.model == TSL_INDEXED ? h.map_length / 3 : h.model == TSL_GREY ? 256 : h.model == TSL_BINARY ? 2 : 1L << 24;
  info->compression = h.type == kTypeRle ? TSL_COMP_RLE : TSL_COMP_NONE;
  info->pages = 1;
  return TSL_OK;
}

// Expands the run-length code of in[0 .. n) into out[0 .. want); returns the
// bytes produced (fewer than want when the data ends early).
size_t unpackRle(const uint8_t *in, size_t n, uint8_t *out, size_t want) {
  size_t i = 0, o = 0;
  while (o < want && i < n) {
    uint8_t b = in[i++];
    if (b != 0x80) {
      out[o++] = b;
      continue;
    }
    if (i >= n) break;
    size_t count = in[i++];
    if (count == 0) {
      out[o++] = 0x80;
      continue;
    }
    if (i >= n) break;
    uint8_t v = in[i++];
    for (++count; count > 0 && o < want; --count) out[o++] = v;
  }
  return o;
}

int rasLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  RasHeader h;
  char msg[256] = {0};
  int code = parseHeader(src, &h, msg, sizeof msg);
  if (code != TSL_OK) return ctx.fail(code, msg);
  if (!ctx.sizeAllowed(h.width, h.height)) return TSL_ERR_MEMORY;
  const uint8_t *data = src.data + kHeaderSize + h.map_length;
  const size_t avail = src.size - kHeaderSize - h.map_length;
  const uint64_t want = h.line * h.height;
  // Uncompressed data must be in the file before anything is allocated; RLE
  // expands at most 256 times.
  if (h.type != kTypeRle && want > avail && !ctx.keepDamaged()) return TSL_ERR_READ;
  if (h.type == kTypeRle && want / 256 > avail && !ctx.keepDamaged()) return TSL_ERR_READ;
  std::vector<uint8_t> unpacked;
  const uint8_t *pixels = data;
  size_t have = avail;
  if (h.type == kTypeRle) {
    // Three bytes of code give at most 256 bytes: a damaged file kept in
    // part never needs more than that.
    unpacked.resize(static_cast<size_t>(std::min<uint64_t>(want, (avail / 3 + 1) * 256)));
    have = unpackRle(data, avail, unpacked.data(), unpacked.size());
    pixels = unpacked.data();
  }
  code = ctx.alloc(picture, h.model, h.width, h.height);
  if (code != TSL_OK) return code;
  if (h.model == TSL_INDEXED) {
    const uint32_t n = h.map_length / 3;
    const uint8_t *map = src.data + kHeaderSize;
    for (uint32_t k = 0; k < n; ++k)
      for (int c = 0; c < 3; ++c) picture->palette[256 * c + k] = map[c * n + k];
    picture->colors = static_cast<int16_t>(h.depth == 1 && n > 2 ? 2 : n);
  }
  const bool red_first = h.type == kTypeRgb;
  for (uint32_t y = 0; y < h.height; ++y) {
    const uint64_t at = h.line * y;
    if (at + h.line > have) {
      if (!ctx.keepDamaged()) return TSL_ERR_READ;
      break;
    }
    const uint8_t *in = pixels + at;
    uint8_t *out = rowOf(picture, y);
    switch (h.depth) {
      case 1:
        if (h.model == TSL_BINARY) {
          for (uint32_t i = 0; i < picture->bytes_per_line; ++i) out[i] = static_cast<uint8_t>(~in[i]);
        } else {
          for (uint32_t x = 0; x < h.width; ++x) out[x] = static_cast<uint8_t>(getBit(in, x));
        }
        break;
      case 8:
        std::memcpy(out, in, h.width);
        break;
      default: {
        const int step = h.depth == 32 ? 4 : 3, skip = h.depth == 32 ? 1 : 0;
        for (uint32_t x = 0; x < h.width; ++x) {
          const uint8_t *p = in + static_cast<size_t>(x) * step + skip;
          out[3 * x] = red_first ? p[0] : p[2];
          out[3 * x + 1] = p[1];
          out[3 * x + 2] = red_first ? p[2] : p[0];
        }
      }
    }
    if (ctx.progress(y + 1, h.height)) return TSL_STOPPED;
  }
  return TSL_OK;
}

// Appends the run-length code of bytes in[0 .. n).
void packRle(const uint8_t *in, size_t n, std::vector<uint8_t> &out) {
  size_t i = 0;
  while (i < n) {
    size_t run = 1;
    while (i + run < n && run < 256 && in[i + run] == in[i]) ++run;
    if (run >= 3 || in[i] == 0x80) {
      if (run == 1) {
        out.push_back(0x80);
        out.push_back(0);
      } else {
        out.push_back(0x80);
        out.push_back(static_cast<uint8_t>(run - 1));
        out.push_back(in[i]);
      }
    } else {
      out.insert(out.end(), run, in[i]);
    }
    i += run;
  }
}

int rasSave(FILE *file, const TslPicture *pic, SaveContext &ctx) {
  const int model = pic->color_model;
  const uint32_t depth = model == TSL_BINARY ? 1 : model == TSL_GREY || model == TSL_INDEXED ? 8 : 24;
  const bool rle = ctx.params().compression == 1;
  const uint32_t line = (pic->width * depth + 15) / 16 * 2;
  const uint32_t map_entries = model == TSL_INDEXED ? (pic->colors > 0 && pic->colors <= 256 ? pic->colors : 256) : 0;

  std::vector<uint8_t> data;
  std::vector<uint8_t> row(line), rgb(static_cast<size_t>(pic->width) * 3);
  for (uint32_t y = 0; y < pic->height; ++y) {
    const uint8_t *in = rowOf(pic, y);
    std::memset(row.data(), 0, line);
    if (model == TSL_BINARY) {
      for (uint32_t i = 0; i < packedLine(pic->width); ++i) row[i] = static_cast<uint8_t>(~in[i]);
      if (pic->width % 8) row[pic->width / 8] &= static_cast<uint8_t>(0xff00 >> (pic->width % 8));
    } else if (depth == 8) {
      std::memcpy(row.data(), in, pic->width);
    } else {
      tslGetRowRGB(pic, y, rgb.data());
      for (uint32_t x = 0; x < pic->width; ++x) {
        row[3 * x] = rgb[3 * x + 2];
        row[3 * x + 1] = rgb[3 * x + 1];
        row[3 * x + 2] = rgb[3 * x];
      }
    }
    if (rle) packRle(row.data(), line, data);
    else data.insert(data.end(), row.begin(), row.end());
    ctx.progress(y + 1, pic->height);
  }
  if (data.size() > 0xffffffffu) return TSL_ERR_CANT_SAVE;
  bool ok = put32be(file, kMagic) && put32be(file, pic->width) && put32be(file, pic->height) &&
            put32be(file, depth) && put32be(file, static_cast<uint32_t>(data.size())) &&
            put32be(file, rle ? kTypeRle : kTypeStandard) && put32be(file, map_entries ? kMapRgb : kMapNone) &&
            put32be(file, map_entries * 3);
  for (int c = 0; ok && c < 3 && map_entries; ++c) ok = putBytes(file, pic->palette + 256 * c, map_entries);
  if (!ok || !putBytes(file, data.data(), data.size())) return TSL_ERR_WRITE;
  return TSL_OK;
}

bool rasSniff(const uint8_t *data, size_t size) { return size >= kHeaderSize && be32(data) == kMagic; }

}  // namespace

extern const FormatDef kRasFormat = {
    "ras", "Sun Raster", "ras;sun;rs;im1;im8;im24;im32",
    {{1, 2, -1, -1}, {2, 256, -1, -1}, {4, 256, -1, -1}, {1008, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, false, rasSniff, rasInfo, rasLoad, rasSave, nullptr};

}  // namespace tessel
