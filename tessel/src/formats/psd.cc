// Adobe Photoshop documents (.psd, and the large-document variant .psb):
// the flattened composite picture stored after the colour mode data, the
// image resources and the layers.  Bitmap, grey (and duotone, shown as
// grey), indexed, RGB and CMYK composites of 1, 8 or 16 bits, raw or
// PackBits-coded; an extra channel after the colour channels is alpha.
#include <cstring>
#include <vector>

#include "../bytes.h"
#include "../format.h"

namespace tessel {

namespace {

constexpr size_t kHeaderSize = 26;
enum { kBitmap = 0, kGrey = 1, kIndexed = 2, kRgb = 3, kCmyk = 4, kDuotone = 8 };

struct PsdHeader {
  int version = 1;
  uint32_t channels = 0, width = 0, height = 0, depth = 0, mode = 0;
  const uint8_t *palette = nullptr;  // 768 bytes, three planes
  size_t data = 0;                   // the composite's compression word
  int compression = 0;
  uint32_t colour_channels = 0;      // channels read as colour
  bool alpha = false;
  int model = 0;
};

// Skips a section that starts with a length of `bytes` bytes.
bool skipSection(ByteReader &r, int bytes) {
  uint64_t n = bytes == 8 ? (static_cast<uint64_t>(r.u32be()) << 32 | r.u32be()) : r.u32be();
  return r.ok() && n <= r.remaining() && r.skip(static_cast<size_t>(n));
}

int parseHeader(const Source &src, PsdHeader *h, char *msg, size_t msg_size) {
  ByteReader r(src.data, src.size);
  if (src.size < 4 || std::memcmp(src.data, "8BPS", 4) != 0) {
    std::snprintf(msg, msg_size, "Not a Photoshop document");
    return TSL_ERR_BAD_FILE;
  }
  if (src.size < kHeaderSize + 4) return TSL_ERR_READ;
  r.skip(4);
  h->version = r.u16be();
  r.skip(6);
  h->channels = r.u16be();
  h->height = r.u32be();
  h->width = r.u32be();
  h->depth = r.u16be();
  h->mode = r.u16be();
  if (h->version != 1 && h->version != 2) {
    std::snprintf(msg, msg_size, "Photoshop: version %d is not supported", h->version);
    return TSL_ERR_BAD_FILE;
  }
  if (h->channels < 1 || h->channels > 56 || h->width == 0 || h->height == 0) {
    std::snprintf(msg, msg_size, "Photoshop: bad size %ux%u or %u channels", h->width, h->height, h->channels);
    return TSL_ERR_BAD_FILE;
  }
  uint32_t needed;
  switch (h->mode) {
    case kBitmap: needed = 1; h->model = TSL_BINARY; break;
    case kGrey: case kDuotone: needed = 1; h->model = TSL_GREY; break;
    case kIndexed: needed = 1; h->model = TSL_INDEXED; break;
    case kRgb: needed = 3; h->model = TSL_RGB; break;
    case kCmyk: needed = 4; h->model = TSL_RGB; break;
    default:
      std::snprintf(msg, msg_size, "Photoshop: colour mode %u is not supported", h->mode);
      return TSL_ERR_BAD_FILE;
  }
  bool depth_ok;
  if (h->mode == kBitmap) depth_ok = h->depth == 1;
  else if (h->mode == kIndexed) depth_ok = h->depth == 8;
  else depth_ok = h->depth == 8 || h->depth == 16;
  if (!depth_ok || h->channels < needed) {
    std::snprintf(msg, msg_size, "Photoshop: %u-bit colour mode %u with %u channels is not supported", h->depth,
                  h->mode, h->channels);
    return TSL_ERR_BAD_FILE;
  }
  h->colour_channels = needed;
  h->alpha = h->channels > needed && (h->mode == kGrey || h->mode == kRgb || h->mode == kCmyk);
  if (h->alpha) h->model = TSL_RGBA;
  // Colour mode data: the palette of indexed documents.
  const uint32_t mode_len = r.u32be();
  if (!r.ok() || mode_len > r.remaining()) return TSL_ERR_READ;
  if (h->mode == kIndexed) {
    if (mode_len < 768) {
      std::snprintf(msg, msg_size, "Photoshop: indexed document without a colour table");
      return TSL_ERR_BAD_FILE;
    }
    h->palette = r.here();
  }
  r.skip(mode_len);
  if (!skipSection(r, 4) || !skipSection(r, h->version == 2 ? 8 : 4)) return TSL_ERR_READ;
  h->data = r.pos();
  h->compression = r.u16be();
  if (!r.ok()) return TSL_ERR_READ;
  if (h->compression > 1) {
    std::snprintf(msg, msg_size, "Photoshop: composite compression %d is not supported", h->compression);
    return TSL_ERR_BAD_FILE;
  }
  return TSL_OK;
}

int psdInfo(const Source &src, int, TslFileInfo *info) {
  PsdHeader h;
  int code = parseHeader(src, &h, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  info->width = h.width;
  info->height = h.height;
  info->bits_per_plane = static_cast<int>(h.depth);
  info->planes = static_cast<int>(h.colour_channels + (h.alpha ? 1 : 0));
  info->color_model = h.model;
  info->has_alpha = h.alpha;
  info->colors = h.model == TSL_BINARY ? 2 : h.model == TSL_GREY || h.model == TSL_INDEXED ? 256 : 1L << 24;
  info->compression = h.compression == 1 ? TSL_COMP_PACKBITS : TSL_COMP_NONE;
  info->pages = 1;
  return TSL_OK;
}

// Expands one PackBits row; false when the data is short or overfills.
bool unpackBits(const uint8_t *in, size_t n, uint8_t *out, size_t want) {
  size_t i = 0, o = 0;
  while (o < want) {
    if (i >= n) return false;
    const int c = static_cast<int8_t>(in[i++]);
    if (c >= 0) {
      const size_t len = static_cast<size_t>(c) + 1;
      if (len > n - i || len > want - o) return false;
      std::memcpy(out + o, in + i, len);
      i += len;
      o += len;
    } else if (c != -128) {
      const size_t len = static_cast<size_t>(1 - c);
      if (i >= n || len > want - o) return false;
      std::memset(out + o, in[i++], len);
      o += len;
    }
  }
  return true;
}

int psdLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  PsdHeader h;
  char msg[256] = {0};
  int code = parseHeader(src, &h, msg, sizeof msg);
  if (code != TSL_OK) return ctx.fail(code, msg);
  if (!ctx.sizeAllowed(h.width, h.height)) return TSL_ERR_MEMORY;
  const uint32_t planes = h.colour_channels + (h.alpha ? 1 : 0);
  const uint64_t row_bytes = (static_cast<uint64_t>(h.width) * h.depth + 7) / 8;
  const uint64_t rows = static_cast<uint64_t>(h.height) * h.channels;  // every channel's rows
  size_t at = h.data + 2;
  // Where each stored row starts and how long it is.
  std::vector<uint64_t> start, length;
  if (h.compression == 0) {
    if (at + row_bytes * h.height * planes > src.size && !ctx.keepDamaged()) return TSL_ERR_READ;
  } else {
    const size_t count_size = h.version == 2 ? 4 : 2;
    if (rows * count_size > src.size - at) return TSL_ERR_READ;
    const uint64_t used = static_cast<uint64_t>(h.height) * planes;
    start.resize(static_cast<size_t>(used));
    length.resize(static_cast<size_t>(used));
    uint64_t pos = at + rows * count_size;
    for (uint64_t k = 0; k < used; ++k) {
      const uint8_t *p = src.data + at + k * count_size;
      length[k] = count_size == 4 ? be32(p) : be16(p);
      start[k] = pos;
      pos += length[k];
    }
    if (pos > src.size && !ctx.keepDamaged()) return TSL_ERR_READ;
  }
  code = ctx.alloc(picture, h.model, h.width, h.height);
  if (code != TSL_OK) return code;
  if (h.model == TSL_INDEXED) {
    std::memcpy(picture->palette, h.palette, 768);
    picture->colors = 256;
  }
  const int bpp = picture->bytes_per_pixel;
  // The planes are decoded one after another into the picture; CMYK is
  // gathered first and turned into RGB at the end.
  std::vector<uint8_t> row(static_cast<size_t>(row_bytes));
  std::vector<uint8_t> cmyk;
  if (h.mode == kCmyk) cmyk.assign(static_cast<size_t>(h.width) * h.height * 4, 255);
  const uint64_t total = static_cast<uint64_t>(planes) * h.height;
  for (uint32_t c = 0; c < planes; ++c) {
    for (uint32_t y = 0; y < h.height; ++y) {
      const uint64_t k = static_cast<uint64_t>(c) * h.height + y;
      bool ok;
      if (h.compression == 0) {
        const uint64_t from = at + k * row_bytes;
        ok = from + row_bytes <= src.size;
        if (ok) std::memcpy(row.data(), src.data + from, row.size());
      } else {
        ok = start[k] + length[k] <= src.size &&
             unpackBits(src.data + start[k], static_cast<size_t>(length[k]), row.data(), row.size());
      }
      if (!ok) {
        if (!ctx.keepDamaged()) return h.compression == 0 ? TSL_ERR_READ : TSL_ERR_CORRUPT;
        continue;
      }
      uint8_t *out = rowOf(picture, y);
      if (h.model == TSL_BINARY) {  // a set bit is black
        for (uint32_t i = 0; i < picture->bytes_per_line; ++i) out[i] = static_cast<uint8_t>(~row[i]);
        continue;
      }
      const int dest = c < h.colour_channels ? static_cast<int>(c) : 3;
      for (uint32_t x = 0; x < h.width; ++x) {
        const uint8_t v = h.depth == 16 ? static_cast<uint8_t>((be16(row.data() + 2 * x) * 255u + 32767u) / 65535u)
                                        : row[x];
        if (h.mode == kCmyk) {
          if (c < 4) cmyk[(static_cast<size_t>(y) * h.width + x) * 4 + c] = v;
          else out[static_cast<size_t>(x) * bpp + 3] = v;
        } else if (h.colour_channels == 1 && bpp == 4 && dest == 0) {
          out[4 * x] = out[4 * x + 1] = out[4 * x + 2] = v;
        } else {
          out[static_cast<size_t>(x) * bpp + dest] = v;
        }
      }
      if (ctx.progress(k + 1, total)) return TSL_STOPPED;
    }
  }
  if (h.mode == kCmyk) {
    // Stored values are 255 - ink: red = (255 - cyan ink) * (255 - black ink) / 255.
    for (uint32_t y = 0; y < h.height; ++y) {
      uint8_t *out = rowOf(picture, y);
      for (uint32_t x = 0; x < h.width; ++x) {
        const uint8_t *s = &cmyk[(static_cast<size_t>(y) * h.width + x) * 4];
        for (int c = 0; c < 3; ++c) out[static_cast<size_t>(x) * bpp + c] = static_cast<uint8_t>((s[c] * s[3] + 127) / 255);
      }
    }
  }
  return TSL_OK;
}

bool psdSniff(const uint8_t *data, size_t size) {
  return size >= kHeaderSize && std::memcmp(data, "8BPS", 4) == 0 && data[4] == 0 && (data[5] == 1 || data[5] == 2);
}

}  // namespace

extern const FormatDef kPsdFormat = {
    "psd", "Adobe Photoshop", "psd;psb",
    {{-1, 0, 0, 0}},
    kMagicStrong, false, psdSniff, psdInfo, psdLoad, nullptr, nullptr};

}  // namespace tessel
