// Silicon Graphics image files (.rgb, .sgi, .bw): a 512-byte big-endian
// header, then channel planes of rows stored bottom-up, either verbatim or
// run-length encoded with per-row offset and length tables.
#include <cstring>
#include <vector>

#include "../bytes.h"
#include "../format.h"

namespace tessel {

namespace {

constexpr uint16_t kMagic = 474;
constexpr size_t kHeaderSize = 512;

struct SgiHeader {
  int storage;    // 0 verbatim, 1 RLE
  int bpc;        // bytes per channel: 1 or 2
  int dimension;
  uint32_t width, height, channels;
  char name[80];
};

int parseHeader(const Source &src, SgiHeader *h, const char **why) {
  *why = nullptr;
  if (src.size < kHeaderSize) {
    *why = "SGI header is incomplete";
    return TSL_ERR_READ;
  }
  const uint8_t *d = src.data;
  if (be16(d) != kMagic) {
    *why = "Not an SGI image file";
    return TSL_ERR_BAD_FILE;
  }
  h->storage = d[2];
  h->bpc = d[3];
  h->dimension = be16(d + 4);
  h->width = be16(d + 6);
  h->height = be16(d + 8);
  h->channels = be16(d + 10);
  std::memcpy(h->name, d + 24, 80);
  h->name[79] = 0;
  if (h->storage > 1 || (h->bpc != 1 && h->bpc != 2) || h->dimension < 1 || h->dimension > 3) {
    *why = "SGI header has an invalid storage, depth or dimension";
    return TSL_ERR_BAD_FILE;
  }
  if (h->dimension == 1) h->height = 1;
  if (h->dimension < 3) h->channels = 1;
  if (h->width == 0 || h->height == 0 || h->channels == 0) {
    *why = "SGI picture has no size";
    return TSL_ERR_BAD_FILE;
  }
  return TSL_OK;
}

int modelFor(uint32_t channels) {
  return channels >= 4 || channels == 2 ? TSL_RGBA : channels == 3 ? TSL_RGB : TSL_GREY;
}

// Decodes one RLE row of `count` samples into out (sample values 0..65535).
// Returns false when the row runs outside its data or overfills the row.
bool decodeRleRow(const uint8_t *p, size_t len, int bpc, uint32_t count, uint16_t *out) {
  size_t pos = 0;
  uint32_t n = 0;
  auto sample = [&](uint16_t *v) {
    if (pos + static_cast<size_t>(bpc) > len) return false;
    *v = bpc == 1 ? p[pos] : be16(p + pos);
    pos += static_cast<size_t>(bpc);
    return true;
  };
  for (;;) {
    uint16_t c;
    if (!sample(&c)) return n == count;
    uint32_t run = c & 0x7f;
    if (run == 0) break;
    if (run > count - n) return false;
    if (c & 0x80) {
      for (uint32_t i = 0; i < run; ++i)
        if (!sample(&out[n++])) return false;
    } else {
      uint16_t v;
      if (!sample(&v)) return false;
      for (uint32_t i = 0; i < run; ++i) out[n++] = v;
    }
  }
  return n == count;
}

int sgiInfo(const Source &src, int, TslFileInfo *info) {
  SgiHeader h;
  const char *why;
  int code = parseHeader(src, &h, &why);
  if (code != TSL_OK) {
    if (why) std::snprintf(info->message, sizeof info->message, "%s", why);
    return code;
  }
  info->width = h.width;
  info->height = h.height;
  info->planes = static_cast<int>(h.channels);
  info->bits_per_plane = 8 * h.bpc;
  info->color_model = modelFor(h.channels);
  info->has_alpha = info->color_model == TSL_RGBA;
  info->colors = info->color_model == TSL_GREY ? 256 : 1L << 24;
  info->compression = h.storage ? TSL_COMP_RLE : TSL_COMP_NONE;
  info->origin = 1;
  info->pages = 1;
  if (h.name[0]) info->comment = strdup(h.name);
  return TSL_OK;
}

int sgiLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  SgiHeader h;
  const char *why;
  int code = parseHeader(src, &h, &why);
  if (code != TSL_OK) {
    if (why) ctx.setMessage("%s", why);
    return code;
  }
  const uint32_t w = h.width, ht = h.height, nch = h.channels;
  // Channels used and where each goes in the output pixel.
  const uint32_t used = nch == 2 ? 2 : nch > 4 ? 4 : nch;
  static const int kGreyAlpha[2] = {0, 3};
  const uint64_t table_entries = static_cast<uint64_t>(ht) * nch;
  const uint64_t row_bytes = static_cast<uint64_t>(w) * h.bpc;
  // A file too short for its tables or planes fails before anything is allocated.
  if (h.storage == 1 && kHeaderSize + table_entries * 8 > src.size) {
    ctx.setMessage("SGI run-length tables are incomplete");
    return TSL_ERR_READ;
  }
  if (h.storage == 0 && kHeaderSize + row_bytes * ht * nch > src.size && !ctx.keepDamaged()) return TSL_ERR_READ;
  const int model = modelFor(nch);
  code = ctx.alloc(picture, model, w, ht);
  if (code != TSL_OK) return code;
  const int bpp = picture->bytes_per_pixel;
  std::vector<uint16_t> samples(w);
  bool damaged = false;
  for (uint32_t y = 0; y < ht; ++y) {
    const uint32_t file_row = ht - 1 - y;  // rows are stored bottom-up
    uint8_t *out = rowOf(picture, y);
    for (uint32_t c = 0; c < used; ++c) {
      const int dest = nch == 2 ? kGreyAlpha[c] : static_cast<int>(c);
      bool ok;
      if (h.storage == 0) {
        const uint64_t at = kHeaderSize + (static_cast<uint64_t>(c) * ht + file_row) * row_bytes;
        ok = at + row_bytes <= src.size;
        if (ok) {
          const uint8_t *p = src.data + at;
          for (uint32_t x = 0; x < w; ++x) samples[x] = h.bpc == 1 ? p[x] : be16(p + 2 * x);
        }
      } else {
        const uint64_t index = static_cast<uint64_t>(c) * ht + file_row;
        const uint32_t start = be32(src.data + kHeaderSize + 4 * index);
        const uint32_t len = be32(src.data + kHeaderSize + 4 * table_entries + 4 * index);
        ok = start >= kHeaderSize && static_cast<uint64_t>(start) + len <= src.size &&
             decodeRleRow(src.data + start, len, h.bpc, w, samples.data());
      }
      if (!ok) {
        damaged = true;
        continue;
      }
      for (uint32_t x = 0; x < w; ++x) {
        const uint8_t v = h.bpc == 1 ? static_cast<uint8_t>(samples[x])
                                     : static_cast<uint8_t>((samples[x] * 255u + 32767u) / 65535u);
        if (nch == 2 && c == 0) {
          out[4 * x] = out[4 * x + 1] = out[4 * x + 2] = v;
        } else {
          out[static_cast<size_t>(x) * bpp + dest] = v;
        }
      }
    }
    if (damaged && !ctx.keepDamaged()) {
      if (h.storage == 0) return TSL_ERR_READ;
      ctx.setMessage("SGI run-length data is damaged");
      return TSL_ERR_CORRUPT;
    }
    if (ctx.progress(y + 1, ht)) return TSL_STOPPED;
  }
  return TSL_OK;
}

// Appends the run-length code of one row of bytes.
void encodeRleRow(const uint8_t *in, uint32_t n, std::vector<uint8_t> &out) {
  uint32_t i = 0;
  while (i < n) {
    // A run of equal bytes worth coding (3 or more, or what ends the row).
    uint32_t run = 1;
    while (i + run < n && run < 126 && in[i + run] == in[i]) ++run;
    if (run >= 3 || i + run == n) {
      out.push_back(static_cast<uint8_t>(run));
      out.push_back(in[i]);
      i += run;
      continue;
    }
    // Literal bytes up to the next run of three.
    uint32_t start = i, count = 0;
    while (i < n && count < 126) {
      if (i + 2 < n && in[i] == in[i + 1] && in[i] == in[i + 2]) break;
      ++i;
      ++count;
    }
    out.push_back(static_cast<uint8_t>(0x80 | count));
    out.insert(out.end(), in + start, in + start + count);
  }
  out.push_back(0);
}

int sgiSave(FILE *file, const TslPicture *pic, SaveContext &ctx) {
  const uint32_t w = pic->width, h = pic->height;
  if (w > 0xffff || h > 0xffff) return TSL_ERR_CANT_SAVE;
  const bool grey = pic->color_model == TSL_GREY;
  const uint32_t nch = grey ? 1 : channelLayout(pic->color_model).a >= 0 ? 4 : 3;
  const bool rle = ctx.params().compression == 1;

  uint8_t header[kHeaderSize] = {0};
  header[0] = kMagic >> 8;
  header[1] = kMagic & 0xff;
  header[2] = rle ? 1 : 0;
  header[3] = 1;
  header[4] = 0;
  header[5] = grey ? 2 : 3;
  header[6] = static_cast<uint8_t>(w >> 8);
  header[7] = static_cast<uint8_t>(w);
  header[8] = static_cast<uint8_t>(h >> 8);
  header[9] = static_cast<uint8_t>(h);
  header[11] = static_cast<uint8_t>(nch);
  header[19] = 255;  // maximum sample value
  if (ctx.params().comment) std::strncpy(reinterpret_cast<char *>(header + 24), ctx.params().comment, 79);
  if (!putBytes(file, header, sizeof header)) return TSL_ERR_WRITE;

  // The planes, each with its rows bottom-up.
  std::vector<uint8_t> rgba(static_cast<size_t>(w) * 4);
  std::vector<std::vector<uint8_t>> planes(nch, std::vector<uint8_t>(static_cast<size_t>(w) * h));
  for (uint32_t y = 0; y < h; ++y) {
    const size_t at = static_cast<size_t>(h - 1 - y) * w;
    if (grey) {
      std::memcpy(planes[0].data() + at, rowOf(pic, y), w);
    } else {
      tslGetRowRGBA(pic, y, rgba.data());
      for (uint32_t x = 0; x < w; ++x)
        for (uint32_t c = 0; c < nch; ++c) planes[c][at + x] = rgba[4 * x + c];
    }
    ctx.progress(y + 1, 2 * static_cast<uint64_t>(h));
  }
  if (!rle) {
    for (const auto &plane : planes)
      if (!putBytes(file, plane.data(), plane.size())) return TSL_ERR_WRITE;
    ctx.progress(1, 1);
    return TSL_OK;
  }
  const uint64_t entries = static_cast<uint64_t>(h) * nch;
  std::vector<uint32_t> starts(entries), lengths(entries);
  std::vector<uint8_t> data;
  uint64_t offset = kHeaderSize + entries * 8;
  for (uint32_t c = 0; c < nch; ++c) {
    for (uint32_t row = 0; row < h; ++row) {
      size_t before = data.size();
      encodeRleRow(planes[c].data() + static_cast<size_t>(row) * w, w, data);
      if (offset + before > 0xffffffffu) return TSL_ERR_CANT_SAVE;
      starts[c * h + row] = static_cast<uint32_t>(offset + before);
      lengths[c * h + row] = static_cast<uint32_t>(data.size() - before);
    }
  }
  for (uint32_t v : starts)
    if (!put32be(file, v)) return TSL_ERR_WRITE;
  for (uint32_t v : lengths)
    if (!put32be(file, v)) return TSL_ERR_WRITE;
  if (!putBytes(file, data.data(), data.size())) return TSL_ERR_WRITE;
  ctx.progress(1, 1);
  return TSL_OK;
}

bool sgiSniff(const uint8_t *data, size_t size) {
  return size >= 6 && be16(data) == kMagic && data[2] <= 1 && (data[3] == 1 || data[3] == 2);
}

}  // namespace

extern const FormatDef kSgiFormat = {
    "sgi", "Silicon Graphics Image", "sgi;rgb;rgba;bw;int;inta",
    {{2, 256, -1, -1}, {1008, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, false, sgiSniff, sgiInfo, sgiLoad, sgiSave, nullptr};

}  // namespace tessel
