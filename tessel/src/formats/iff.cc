// Amiga IFF ILBM: a FORM of chunks (BMHD header, CMAP colours, CAMG display
// mode, BODY interleaved bitplanes, each row plane by plane, optionally
// ByteRun1-compressed).  1..8 planes give an indexed picture (EHB doubles a
// 32-colour palette with half-bright copies), HAM6/HAM8 and 24/32-plane
// "deep" files give true colour.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "../bytes.h"
#include "../format.h"

namespace tessel {

namespace {

constexpr uint32_t kCamgHam = 0x800;
constexpr uint32_t kCamgEhb = 0x80;
enum { kMaskNone = 0, kMaskPlane = 1, kMaskTransparent = 2 };

struct Ilbm {
  uint32_t width = 0, height = 0;
  int planes = 0, masking = 0, compression = 0, transparent = 0;
  uint32_t camg = 0;
  bool have_bmhd = false;
  std::vector<uint8_t> cmap;  // r, g, b triples
  const uint8_t *body = nullptr;
  size_t body_size = 0;
  std::string annotation;
};

bool chunkIs(const uint8_t *p, const char *id) { return std::memcmp(p, id, 4) == 0; }

int parseChunks(const Source &src, Ilbm *f, const char **why) {
  *why = nullptr;
  if (src.size < 12 || !chunkIs(src.data, "FORM") || !chunkIs(src.data + 8, "ILBM")) {
    *why = "Not an IFF ILBM file";
    return TSL_ERR_BAD_FILE;
  }
  uint64_t end = 8 + static_cast<uint64_t>(be32(src.data + 4));
  if (end > src.size) end = src.size;  // a short FORM is read as far as it goes
  size_t pos = 12;
  while (pos + 8 <= end) {
    const uint8_t *c = src.data + pos;
    const uint64_t len = be32(c + 4);
    const uint64_t have = end - pos - 8 < len ? end - pos - 8 : len;
    const uint8_t *d = c + 8;
    if (chunkIs(c, "BMHD")) {
      if (have < 20) {
        *why = "IFF BMHD chunk is too short";
        return TSL_ERR_BAD_FILE;
      }
      f->width = be16(d);
      f->height = be16(d + 2);
      f->planes = d[8];
      f->masking = d[9];
      f->compression = d[10];
      f->transparent = be16(d + 12);
      f->have_bmhd = true;
    } else if (chunkIs(c, "CMAP")) {
      f->cmap.assign(d, d + have / 3 * 3);
    } else if (chunkIs(c, "CAMG") && have >= 4) {
      f->camg = be32(d);
    } else if ((chunkIs(c, "ANNO") || chunkIs(c, "NAME")) && f->annotation.empty()) {
      f->annotation.assign(reinterpret_cast<const char *>(d), strnlen(reinterpret_cast<const char *>(d), have));
    } else if (chunkIs(c, "BODY")) {
      f->body = d;
      f->body_size = static_cast<size_t>(have);
      break;
    }
    pos += 8 + static_cast<size_t>(len) + (len & 1);  // chunks are padded to even sizes
  }
  if (!f->have_bmhd) {
    *why = "IFF file has no BMHD chunk";
    return TSL_ERR_BAD_FILE;
  }
  if (f->width == 0 || f->height == 0) {
    *why = "IFF picture has no size";
    return TSL_ERR_BAD_FILE;
  }
  if (!((f->planes >= 1 && f->planes <= 8) || f->planes == 24 || f->planes == 32)) {
    *why = "IFF picture has an unsupported number of planes";
    return TSL_ERR_BAD_FILE;
  }
  if (f->compression > 1) {
    *why = "IFF compression method is not supported";
    return TSL_ERR_BAD_FILE;
  }
  return TSL_OK;
}

bool isHam(const Ilbm &f) { return (f.camg & kCamgHam) && (f.planes == 6 || f.planes == 8); }
// Extra-half-brite: flagged in CAMG, or implied by six planes with a 32-colour map.
bool isEhb(const Ilbm &f) {
  return !isHam(f) && f.planes == 6 && ((f.camg & kCamgEhb) || (!f.cmap.empty() && f.cmap.size() <= 32 * 3));
}

int modelFor(const Ilbm &f) {
  if (f.planes == 32) return TSL_RGBA;
  if (f.planes == 24 || isHam(f)) return TSL_RGB;
  return TSL_INDEXED;
}

// Reads the BODY byte stream, decompressing ByteRun1 on the fly; runs may
// cross row boundaries, as some writers produce them.
class BodyReader {
 public:
  BodyReader(const uint8_t *data, size_t size, bool packed) : data_(data), size_(size), packed_(packed) {}
  // Fills n bytes; false when the data ends first (the rest is zero).
  bool read(uint8_t *out, size_t n) {
    if (!packed_) {
      size_t have = size_ - pos_ < n ? size_ - pos_ : n;
      std::memcpy(out, data_ + pos_, have);
      std::memset(out + have, 0, n - have);
      pos_ += have;
      return have == n;
    }
    size_t done = 0;
    while (done < n) {
      if (literal_ == 0 && repeat_ == 0) {
        if (pos_ >= size_) break;
        int8_t code = static_cast<int8_t>(data_[pos_++]);
        if (code >= 0) {
          literal_ = static_cast<size_t>(code) + 1;
        } else if (code != -128) {
          if (pos_ >= size_) break;
          value_ = data_[pos_++];
          repeat_ = static_cast<size_t>(1 - code);
        }
        continue;
      }
      if (literal_) {
        size_t take = literal_ < n - done ? literal_ : n - done;
        if (take > size_ - pos_) take = size_ - pos_;
        if (take == 0) break;
        std::memcpy(out + done, data_ + pos_, take);
        pos_ += take;
        done += take;
        literal_ -= take;
      } else {
        size_t take = repeat_ < n - done ? repeat_ : n - done;
        std::memset(out + done, value_, take);
        done += take;
        repeat_ -= take;
      }
    }
    std::memset(out + done, 0, n - done);
    return done == n;
  }

 private:
  const uint8_t *data_;
  size_t size_, pos_ = 0;
  bool packed_;
  size_t literal_ = 0, repeat_ = 0;
  uint8_t value_ = 0;
};

int iffInfo(const Source &src, int, TslFileInfo *info) {
  Ilbm f;
  const char *why;
  int code = parseChunks(src, &f, &why);
  if (code != TSL_OK) {
    if (why) std::snprintf(info->message, sizeof info->message, "%s", why);
    return code;
  }
  info->width = f.width;
  info->height = f.height;
  info->color_model = modelFor(f);
  info->planes = f.planes >= 24 ? f.planes / 8 : 1;
  info->bits_per_plane = f.planes >= 24 ? 8 : f.planes;
  info->has_alpha = f.planes == 32;
  info->colors = info->color_model == TSL_INDEXED ? (isEhb(f) ? 64 : 1L << f.planes) : 1L << 24;
  info->compression = f.compression ? TSL_COMP_BYTERUN1 : TSL_COMP_NONE;
  info->pages = 1;
  if (!f.annotation.empty()) info->comment = strdup(f.annotation.c_str());
  return TSL_OK;
}

int iffLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  Ilbm f;
  const char *why;
  int code = parseChunks(src, &f, &why);
  if (code != TSL_OK) {
    if (why) ctx.setMessage("%s", why);
    return code;
  }
  if (!f.body) {
    ctx.setMessage("IFF file has no BODY chunk");
    return TSL_ERR_READ;
  }
  const uint32_t w = f.width, h = f.height;
  const size_t row_bytes = ((static_cast<size_t>(w) + 15) / 16) * 2;
  const int stored_planes = f.planes + (f.masking == kMaskPlane ? 1 : 0);
  // A BODY that cannot hold the picture (ByteRun1 expands a byte at most 64
  // times: two bytes give a run of 128) fails before anything is allocated.
  const uint64_t needed = static_cast<uint64_t>(row_bytes) * static_cast<uint64_t>(stored_planes) * h;
  const uint64_t can_give = static_cast<uint64_t>(f.body_size) * (f.compression ? 64 : 1);
  if (can_give < needed && !ctx.keepDamaged()) return f.compression ? TSL_ERR_CORRUPT : TSL_ERR_READ;
  const int model = modelFor(f);
  code = ctx.alloc(picture, model, w, h);
  if (code != TSL_OK) return code;

  // The colour map, with 256 entries and the EHB half-bright copies.
  uint8_t pal[768] = {0};
  const size_t ncmap = f.cmap.size() / 3 < 256 ? f.cmap.size() / 3 : 256;
  for (size_t i = 0; i < ncmap; ++i) {
    pal[i] = f.cmap[3 * i];
    pal[256 + i] = f.cmap[3 * i + 1];
    pal[512 + i] = f.cmap[3 * i + 2];
  }
  if (ncmap == 0 && f.planes <= 8) greyPalette(pal, 1 << f.planes);
  const bool ham = isHam(f);
  if (isEhb(f))
    for (int i = 0; i < 32; ++i)
      for (int c = 0; c < 3; ++c) pal[c * 256 + 32 + i] = pal[c * 256 + i] >> 1;
  if (model == TSL_INDEXED) {
    std::memcpy(picture->palette, pal, 768);
    picture->colors = static_cast<int16_t>(1 << f.planes);
    if (f.masking == kMaskTransparent && f.transparent < (1 << f.planes))
      picture->transparent_index = static_cast<int16_t>(f.transparent);
  }

  std::vector<uint8_t> planes(row_bytes * static_cast<size_t>(stored_planes));
  std::vector<uint32_t> values(w);
  BodyReader body(f.body, f.body_size, f.compression == 1);
  const int ham_bits = f.planes - 2;  // 4 for HAM6, 6 for HAM8
  for (uint32_t y = 0; y < h; ++y) {
    bool ok = true;
    for (int p = 0; p < stored_planes; ++p) ok = body.read(planes.data() + p * row_bytes, row_bytes) && ok;
    if (!ok && !ctx.keepDamaged()) return f.compression ? TSL_ERR_CORRUPT : TSL_ERR_READ;
    if (!ok) break;
    // Gather each pixel's value from the planes (the mask plane, last, is skipped).
    std::fill(values.begin(), values.end(), 0);
    for (int p = 0; p < f.planes; ++p) {
      const uint8_t *pl = planes.data() + p * row_bytes;
      for (uint32_t x = 0; x < w; ++x) values[x] |= static_cast<uint32_t>((pl[x >> 3] >> (7 - (x & 7))) & 1) << p;
    }
    uint8_t *out = rowOf(picture, y);
    if (model == TSL_INDEXED) {
      for (uint32_t x = 0; x < w; ++x) out[x] = static_cast<uint8_t>(values[x]);
    } else if (ham) {
      // Hold-and-modify: the top two bits pick a palette colour or change one channel of the previous pixel.
      uint8_t r = pal[0], g = pal[256], b = pal[512];
      const uint32_t low = (1u << ham_bits) - 1;
      for (uint32_t x = 0; x < w; ++x) {
        const uint32_t v = values[x] & low;
        const uint8_t scaled =
            ham_bits == 4 ? static_cast<uint8_t>(v * 17) : static_cast<uint8_t>(v << 2 | v >> 4);
        switch (values[x] >> ham_bits) {
          case 0: r = pal[v]; g = pal[256 + v]; b = pal[512 + v]; break;
          case 1: b = scaled; break;
          case 2: r = scaled; break;
          default: g = scaled; break;
        }
        out[3 * x] = r;
        out[3 * x + 1] = g;
        out[3 * x + 2] = b;
      }
    } else {
      const int n = model == TSL_RGBA ? 4 : 3;
      for (uint32_t x = 0; x < w; ++x)
        for (int c = 0; c < n; ++c) out[n * x + c] = static_cast<uint8_t>(values[x] >> (8 * c));
    }
    if (ctx.progress(y + 1, h)) return TSL_STOPPED;
  }
  return TSL_OK;
}

// ByteRun1 code of one plane row.
void packRow(const uint8_t *in, size_t n, std::vector<uint8_t> &out) {
  size_t i = 0;
  while (i < n) {
    size_t run = 1;
    while (i + run < n && run < 128 && in[i + run] == in[i]) ++run;
    if (run >= 3 || (run == 2 && i + run == n)) {
      out.push_back(static_cast<uint8_t>(static_cast<int8_t>(1 - static_cast<int>(run))));
      out.push_back(in[i]);
      i += run;
      continue;
    }
    size_t start = i, count = 0;
    while (i < n && count < 128) {
      if (i + 2 < n && in[i] == in[i + 1] && in[i] == in[i + 2]) break;
      ++i;
      ++count;
    }
    out.push_back(static_cast<uint8_t>(count - 1));
    out.insert(out.end(), in + start, in + start + count);
  }
}

void putChunkHeader(std::vector<uint8_t> &out, const char *id, uint32_t size) {
  out.insert(out.end(), id, id + 4);
  for (int s = 24; s >= 0; s -= 8) out.push_back(static_cast<uint8_t>(size >> s));
}

int iffSave(FILE *file, const TslPicture *pic, SaveContext &ctx) {
  const uint32_t w = pic->width, h = pic->height;
  if (w > 0xffff || h > 0xffff) return TSL_ERR_CANT_SAVE;
  const bool indexed = pic->color_model == TSL_INDEXED;
  int planes = 24;
  int ncolors = 0;
  if (indexed) {
    ncolors = pic->colors > 0 && pic->colors <= 256 ? pic->colors : 256;
    planes = 1;
    while ((1 << planes) < ncolors) ++planes;
  }
  const bool packed = ctx.params().compression == 1;
  const bool transparent = indexed && pic->transparent_index >= 0 && pic->transparent_index < ncolors;

  std::vector<uint8_t> out;
  putChunkHeader(out, "FORM", 0);
  out.insert(out.end(), {'I', 'L', 'B', 'M'});
  putChunkHeader(out, "BMHD", 20);
  const uint8_t bmhd[20] = {uint8_t(w >> 8), uint8_t(w), uint8_t(h >> 8), uint8_t(h), 0, 0, 0, 0,
                            static_cast<uint8_t>(planes), transparent ? uint8_t(kMaskTransparent) : uint8_t(0),
                            packed ? uint8_t(1) : uint8_t(0), 0,
                            0, transparent ? uint8_t(pic->transparent_index) : uint8_t(0),
                            1, 1, uint8_t(w >> 8), uint8_t(w), uint8_t(h >> 8), uint8_t(h)};
  out.insert(out.end(), bmhd, bmhd + 20);
  if (indexed) {
    putChunkHeader(out, "CMAP", static_cast<uint32_t>(3 * ncolors));
    for (int i = 0; i < ncolors; ++i) {
      out.push_back(pic->palette[i]);
      out.push_back(pic->palette[256 + i]);
      out.push_back(pic->palette[512 + i]);
    }
    if (out.size() & 1) out.push_back(0);
  }
  const size_t body_at = out.size();
  putChunkHeader(out, "BODY", 0);

  const size_t row_bytes = ((static_cast<size_t>(w) + 15) / 16) * 2;
  std::vector<uint8_t> plane(row_bytes), rgb(static_cast<size_t>(w) * 3);
  for (uint32_t y = 0; y < h; ++y) {
    const uint8_t *row = rowOf(pic, y);
    if (!indexed) tslGetRowRGB(pic, y, rgb.data());
    for (int p = 0; p < planes; ++p) {
      std::fill(plane.begin(), plane.end(), 0);
      for (uint32_t x = 0; x < w; ++x) {
        const int bit = indexed ? (row[x] >> p) & 1 : (rgb[3 * x + p / 8] >> (p % 8)) & 1;
        if (bit) plane[x >> 3] |= static_cast<uint8_t>(0x80 >> (x & 7));
      }
      if (packed) packRow(plane.data(), row_bytes, out);
      else out.insert(out.end(), plane.begin(), plane.end());
    }
    ctx.progress(y + 1, h);
  }
  const uint64_t body_size = out.size() - body_at - 8;
  if (out.size() & 1) out.push_back(0);
  if (out.size() - 8 > 0xffffffffu) return TSL_ERR_CANT_SAVE;
  for (int s = 0; s < 4; ++s) {
    out[body_at + 4 + s] = static_cast<uint8_t>(body_size >> (24 - 8 * s));
    out[4 + s] = static_cast<uint8_t>((out.size() - 8) >> (24 - 8 * s));
  }
  return putBytes(file, out.data(), out.size()) ? TSL_OK : TSL_ERR_WRITE;
}

bool iffSniff(const uint8_t *data, size_t size) {
  return size >= 12 && chunkIs(data, "FORM") && chunkIs(data + 8, "ILBM");
}

}  // namespace

extern const FormatDef kIffFormat = {
    "iff", "Amiga IFF ILBM", "iff;ilbm;lbm",
    {{4, 256, -1, -1}, {1008, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, false, iffSniff, iffInfo, iffLoad, iffSave, nullptr};

}  // namespace tessel
