// Softimage pictures (.pic): a 104-byte big-endian header (magic
// 0x5380F634, version, comment, "PICT", width, height, aspect ratio,
// fields), a chain of channel packets (chained flag, bits, coding, channel
// mask 0x80 red, 0x40 green, 0x20 blue, 0x10 alpha), then the rows top down,
// each row holding every packet's channels in turn: verbatim, in pure runs
// (count, value) or mixed (count < 128: count + 1 literal pixels; 128: a
// 16-bit count then a value; above: count - 127 copies of a value).
// Writer: RGB in one packet plus alpha in a second, mixed runs when
// compression is 1, verbatim otherwise.
#include <algorithm>
#include <cstring>
#include <vector>

#include "../bytes.h"
#include "../format.h"

namespace tessel {

namespace {

constexpr uint32_t kMagic = 0x5380F634;
constexpr size_t kHeaderSize = 104;
constexpr int kMaxPackets = 8;
enum { kVerbatim = 0, kPureRuns = 1, kMixedRuns = 2 };

struct Packet {
  int coding = 0;
  int channels[4] = {0};  // output channels (0 red .. 3 alpha) in stored order
  int count = 0;
};

struct SoftHeader {
  uint32_t width = 0, height = 0;
  int fields = 3;
  char comment[81] = {0};
  Packet packets[kMaxPackets];
  int npackets = 0;
  bool alpha = false;
  size_t data = 0;
};

int parseHeader(const Source &src, SoftHeader *h, char *msg, size_t msg_size) {
  if (src.size < 4) return TSL_ERR_READ;
  if (be32(src.data) != kMagic) {
    std::snprintf(msg, msg_size, "Not a Softimage picture");
    return TSL_ERR_BAD_FILE;
  }
  if (src.size < kHeaderSize) return TSL_ERR_READ;
  const uint8_t *d = src.data;
  std::memcpy(h->comment, d + 8, 80);
  if (std::memcmp(d + 88, "PICT", 4) != 0) {
    std::snprintf(msg, msg_size, "Softimage picture without its PICT mark");
    return TSL_ERR_BAD_FILE;
  }
  h->width = be16(d + 92);
  h->height = be16(d + 94);
  h->fields = be16(d + 100);
  if (h->width == 0 || h->height == 0) {
    std::snprintf(msg, msg_size, "Softimage picture has no size");
    return TSL_ERR_BAD_FILE;
  }
  size_t at = kHeaderSize;
  int chained = 1;
  while (chained) {
    if (at + 4 > src.size) return TSL_ERR_READ;
    if (h->npackets == kMaxPackets) {
      std::snprintf(msg, msg_size, "Softimage picture has too many channel packets");
      return TSL_ERR_BAD_FILE;
    }
    chained = d[at];
    const int bits = d[at + 1], coding = d[at + 2], mask = d[at + 3];
    at += 4;
    Packet &p = h->packets[h->npackets++];
    p.coding = coding;
    for (int c = 0; c < 4; ++c)
      if (mask & (0x80 >> c)) p.channels[p.count++] = c;
    if (bits != 8 || coding > kMixedRuns || p.count == 0 || (mask & 0x0f)) {
      std::snprintf(msg, msg_size, "Softimage: a packet of %d bits, coding %d, channels 0x%02x is not supported", bits,
                    coding, mask);
      return TSL_ERR_BAD_FILE;
    }
    if (mask & 0x10) h->alpha = true;
  }
  h->data = at;
  return TSL_OK;
}

int softInfo(const Source &src, int, TslFileInfo *info) {
  SoftHeader h;
  int code = parseHeader(src, &h, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  info->width = h.width;
  info->height = h.height;
  info->bits_per_plane = 8;
  info->planes = h.alpha ? 4 : 3;
  info->color_model = h.alpha ? TSL_RGBA : TSL_RGB;
  info->has_alpha = h.alpha;
  info->colors = 1L << 24;
  bool runs = false;
  for (int i = 0; i < h.npackets; ++i) runs |= h.packets[i].coding != kVerbatim;
  info->compression = runs ? TSL_COMP_RLE : TSL_COMP_NONE;
  info->pages = 1;
  if (h.comment[0]) info->comment = strdup(h.comment);
  return TSL_OK;
}

// Decodes one packet of one row into the RGBA row; false when the data ends
// early or a run overfills the row.
bool decodePacket(ByteReader &r, const Packet &p, uint32_t width, uint8_t *out) {
  auto pixel = [&](uint8_t *px) {
    for (int c = 0; c < p.count; ++c) px[p.channels[c]] = r.u8();
  };
  uint32_t x = 0;
  while (x < width) {
    if (p.coding == kVerbatim) {
      pixel(out + 4 * static_cast<size_t>(x++));
    } else {
      uint32_t count = r.u8();
      bool literal = false;
      if (p.coding == kPureRuns) {
        if (count == 0) return false;
      } else if (count < 128) {
        literal = true;
        ++count;
      } else if (count == 128) {
        count = r.u16be();
        if (count == 0) return false;
      } else {
        count -= 127;
      }
      if (count > width - x) return false;
      if (literal) {
        for (uint32_t k = 0; k < count; ++k) pixel(out + 4 * static_cast<size_t>(x++));
      } else {
        uint8_t value[4] = {0};
        pixel(value);
        for (uint32_t k = 0; k < count; ++k, ++x)
          for (int c = 0; c < p.count; ++c) out[4 * static_cast<size_t>(x) + p.channels[c]] = value[p.channels[c]];
      }
    }
    if (!r.ok()) return false;
  }
  return true;
}

int softLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  SoftHeader h;
  char msg[256] = {0};
  int code = parseHeader(src, &h, msg, sizeof msg);
  if (code != TSL_OK) return ctx.fail(code, msg);
  if (!ctx.sizeAllowed(h.width, h.height)) return TSL_ERR_MEMORY;
  // A run codes at most 65535 pixels in four bytes: a file far too short
  // for its size fails before the allocation.
  if ((static_cast<uint64_t>(h.width) * h.height) / 65535 * 3 > src.size - h.data && !ctx.keepDamaged())
    return TSL_ERR_READ;
  code = ctx.alloc(picture, h.alpha ? TSL_RGBA : TSL_RGB, h.width, h.height);
  if (code != TSL_OK) return code;
  std::vector<uint8_t> row(static_cast<size_t>(h.width) * 4, 255);
  ByteReader r(src.data, src.size);
  r.seek(h.data);
  for (uint32_t y = 0; y < h.height; ++y) {
    std::fill(row.begin(), row.end(), h.alpha ? 0 : 255);
    for (int i = 0; i < h.npackets; ++i) {
      if (!decodePacket(r, h.packets[i], h.width, row.data())) {
        if (!ctx.keepDamaged()) {
          if (!r.ok()) return TSL_ERR_READ;
          ctx.setMessage("Softimage run-length data is damaged");
          return TSL_ERR_CORRUPT;
        }
        return TSL_OK;  // what was decoded stays, the rest is black
      }
    }
    uint8_t *out = rowOf(picture, y);
    if (h.alpha) {
      std::memcpy(out, row.data(), row.size());
    } else {
      for (uint32_t x = 0; x < h.width; ++x) std::memcpy(out + 3 * static_cast<size_t>(x), &row[4 * x], 3);
    }
    if (ctx.progress(y + 1, h.height)) return TSL_STOPPED;
  }
  return TSL_OK;
}

void setBe32(uint8_t *p, uint32_t v) {
  for (int k = 0; k < 4; ++k) p[k] = static_cast<uint8_t>(v >> (24 - 8 * k));
}

// Appends the mixed-run code of `n` pixels of `channels` bytes each.
void encodeMixed(const uint8_t *px, uint32_t n, int channels, std::vector<uint8_t> &out) {
  auto same = [&](uint32_t a, uint32_t b) { return std::memcmp(px + a * channels, px + b * channels, channels) == 0; };
  uint32_t i = 0;
  while (i < n) {
    uint32_t run = 1;
    while (i + run < n && run < 65535 && same(i, i + run)) ++run;
    if (run >= 2) {
      if (run <= 128) {
        out.push_back(static_cast<uint8_t>(run + 127));
      } else {
        out.push_back(128);
        out.push_back(static_cast<uint8_t>(run >> 8));
        out.push_back(static_cast<uint8_t>(run));
      }
      out.insert(out.end(), px + i * channels, px + (i + 1) * channels);
      i += run;
      continue;
    }
    uint32_t start = i;
    while (i < n && i - start < 128 && !(i + 1 < n && same(i, i + 1))) ++i;
    out.push_back(static_cast<uint8_t>(i - start - 1));
    out.insert(out.end(), px + start * channels, px + i * channels);
  }
}

int softSave(FILE *file, const TslPicture *pic, SaveContext &ctx) {
  const uint32_t w = pic->width, h = pic->height;
  if (w > 0xffff || h > 0xffff) return TSL_ERR_CANT_SAVE;
  const bool alpha = channelLayout(pic->color_model).a >= 0;
  const bool runs = ctx.params().compression == 1;
  uint8_t hd[kHeaderSize] = {0};
  setBe32(hd, kMagic);
  const float version = 3.71f;
  uint32_t vbits;
  std::memcpy(&vbits, &version, 4);
  setBe32(hd + 4, vbits);
  if (ctx.params().comment) std::strncpy(reinterpret_cast<char *>(hd + 8), ctx.params().comment, 79);
  std::memcpy(hd + 88, "PICT", 4);
  hd[92] = static_cast<uint8_t>(w >> 8), hd[93] = static_cast<uint8_t>(w);
  hd[94] = static_cast<uint8_t>(h >> 8), hd[95] = static_cast<uint8_t>(h);
  const float ratio = 1.0f;
  uint32_t rbits;
  std::memcpy(&rbits, &ratio, 4);
  setBe32(hd + 96, rbits);
  hd[101] = 3;  // both fields: a full frame
  if (!putBytes(file, hd, sizeof hd)) return TSL_ERR_WRITE;
  const uint8_t coding = runs ? kMixedRuns : kVerbatim;
  const uint8_t packets[] = {static_cast<uint8_t>(alpha), 8, coding, 0xE0, 0, 8, coding, 0x10};
  if (!putBytes(file, packets, alpha ? 8 : 4)) return TSL_ERR_WRITE;
  std::vector<uint8_t> rgba(static_cast<size_t>(w) * 4), rgb(static_cast<size_t>(w) * 3), a(w), out;
  for (uint32_t y = 0; y < h; ++y) {
    tslGetRowRGBA(pic, y, rgba.data());
    for (uint32_t x = 0; x < w; ++x) {
      std::memcpy(&rgb[3 * x], &rgba[4 * x], 3);
      a[x] = rgba[4 * x + 3];
    }
    out.clear();
    if (runs) encodeMixed(rgb.data(), w, 3, out);
    else out.insert(out.end(), rgb.begin(), rgb.end());
    if (alpha) {
      if (runs) encodeMixed(a.data(), w, 1, out);
      else out.insert(out.end(), a.begin(), a.end());
    }
    if (!putBytes(file, out.data(), out.size())) return TSL_ERR_WRITE;
    ctx.progress(y + 1, h);
  }
  return TSL_OK;
}

bool softSniff(const uint8_t *data, size_t size) {
  return size >= kHeaderSize && be32(data) == kMagic && std::memcmp(data + 88, "PICT", 4) == 0;
}

}  // namespace

extern const FormatDef kSoftFormat = {
    "soft", "Softimage", "pic;si;softimage",
    {{1, 2, -1, -1}, {2, 256, -1, -1}, {4, 256, -1, -1}, {1008, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, false, softSniff, softInfo, softLoad, softSave, nullptr};

}  // namespace tessel
