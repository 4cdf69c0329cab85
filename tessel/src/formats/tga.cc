// Truevision Targa (TGA): colour-mapped, true-colour and grey pictures,
// uncompressed or RLE (types 1, 2, 3, 9, 10, 11).  The format has no magic
// number; a plausible header (and the TRUEVISION-XFILE footer of version 2
// files when present) identifies it.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "../bgr_rows.h"
#include "../bytes.h"
#include "../format.h"

namespace tessel {

namespace {

const char kFooterText[] = "TRUEVISION-XFILE.";  // followed by a NUL: 18 bytes

struct TgaHeader {
  int id_length = 0, cm_type = 0, type = 0;
  int cm_first = 0, cm_length = 0, cm_bits = 0;
  uint32_t width = 0, height = 0;
  int depth = 0, descriptor = 0;
  size_t palette_at = 0;  // colour map offset
  size_t data_at = 0;     // pixel data offset
  size_t data_end = 0;    // end of the pixel data (before extension area / footer)
  bool rle() const { return type >= 9; }
  bool top_down() const { return (descriptor & 0x20) != 0; }
  bool right_to_left() const { return (descriptor & 0x10) != 0; }
};

bool hasFooter(const uint8_t *d, size_t n) { return n >= 18 + 26 && std::memcmp(d + n - 18, kFooterText, 18) == 0; }

// Checks the fields of the 18-byte header; msg explains a refusal.
bool validHeader(const uint8_t *d, char *msg, size_t msg_size) {
  const int cm_type = d[1], type = d[2], cm_bits = d[7], depth = d[16];
  const int cm_length = le16(d + 5);
  if (cm_type > 1) {
    std::snprintf(msg, msg_size, "TGA: colour map type %d is not valid", cm_type);
    return false;
  }
  if (type != 1 && type != 2 && type != 3 && type != 9 && type != 10 && type != 11) {
    std::snprintf(msg, msg_size, "TGA: picture type %d is not supported", type);
    return false;
  }
  if (le16(d + 12) == 0 || le16(d + 14) == 0) {
    std::snprintf(msg, msg_size, "TGA: empty picture");
    return false;
  }
  if (cm_type == 1 && (cm_length == 0 || (cm_bits != 15 && cm_bits != 16 && cm_bits != 24 && cm_bits != 32))) {
    std::snprintf(msg, msg_size, "TGA: colour map of %d entries of %d bits is not valid", cm_length, cm_bits);
    return false;
  }
  const int kind = type & 7;
  if ((kind == 1 && (cm_type != 1 || depth != 8)) || (kind == 2 && depth != 15 && depth != 16 && depth != 24 && depth != 32) ||
      (kind == 3 && depth != 8)) {
    std::snprintf(msg, msg_size, "TGA: picture type %d with %d bits per pixel is not supported", type, depth);
    return false;
  }
  return true;
}

bool sniffTga(const uint8_t *d, size_t n) {
  if (n < 18) return false;
  char msg[128];
  if (!validHeader(d, msg, sizeof msg)) return false;
  if ((d[17] & 0xC0) != 0) return false;  // interleaving is obsolete
  // Without a colour map the map fields should be empty.
  if (d[1] == 0 && (le16(d + 5) != 0 || d[7] != 0) && !hasFooter(d, n)) return false;
  const uint64_t cm_bytes = d[1] ? static_cast<uint64_t>(le16(d + 5)) * ((d[7] + 7) / 8) : 0;
  return 18 + d[0] + cm_bytes <= n;
}

int parseHeader(const Source &src, TgaHeader *h, char *msg, size_t msg_size) {
  const uint8_t *d = src.data;
  if (src.size < 18) return TSL_ERR_READ;
  if (!validHeader(d, msg, msg_size)) return TSL_ERR_BAD_FILE;
  h->id_length = d[0];
  h->cm_type = d[1];
  h->type = d[2];
  h->cm_first = le16(d + 3);
  h->cm_length = le16(d + 5);
  h->cm_bits = d[7];
  h->width = le16(d + 12);
  h->height = le16(d + 14);
  h->depth = d[16];
  h->descriptor = d[17];
  h->palette_at = 18 + static_cast<size_t>(h->id_length);
  const size_t cm_bytes = h->cm_type ? static_cast<size_t>(h->cm_length) * ((h->cm_bits + 7) / 8) : 0;
  h->data_at = h->palette_at + cm_bytes;
  if (h->data_at > src.size) return TSL_ERR_READ;
  h->data_end = src.size;
  if (hasFooter(d, src.size)) {
    h->data_end = src.size - 26;
    for (size_t at : {src.size - 26, src.size - 22}) {
      const uint32_t off = le32(d + at);
      if (off >= h->data_at && off < h->data_end) h->data_end = off;
    }
  }
  return TSL_OK;
}

int modelFor(const TgaHeader &h) {
  switch (h.type & 7) {
    case 1: return TSL_INDEXED;
    case 3: return TSL_GREY;
    default: return h.depth == 32 ? TSL_RGBA : TSL_RGB;
  }
}

// The image ID as a NUL-terminated string, or nullptr when empty.
char *imageId(const Source &src, const TgaHeader &h) {
  size_t n = 0;
  while (n < static_cast<size_t>(h.id_length) && 18 + n < src.size && src.data[18 + n]) ++n;
  while (n > 0 && src.data[18 + n - 1] == ' ') --n;
  if (n == 0) return nullptr;
  char *s = static_cast<char *>(std::malloc(n + 1));
  if (!s) return nullptr;
  std::memcpy(s, src.data + 18, n);
  s[n] = 0;
  return s;
}

int infoTga(const Source &src, int /*page*/, TslFileInfo *info) {
  TgaHeader h;
  int code = parseHeader(src, &h, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  info->width = h.width;
  info->height = h.height;
  info->color_model = modelFor(h);
  const int kind = h.type & 7;
  info->bits_per_plane = kind == 2 ? (h.depth <= 16 ? 5 : 8) : 8;
  info->planes = kind == 2 ? (h.depth == 32 ? 4 : 3) : 1;
  info->colors = kind == 1 ? (h.cm_first + h.cm_length > 256 ? 256 : h.cm_first + h.cm_length) : kind == 3 ? 256 : 1L << 24;
  info->has_alpha = h.depth == 32 && (h.descriptor & 15) != 0;
  if (!info->has_alpha && info->color_model == TSL_RGBA) info->color_model = TSL_RGB;
  info->compression = h.rle() ? TSL_COMP_RLE : TSL_COMP_NONE;
  info->origin = h.top_down() ? 0 : 1;
  info->pages = 1;
  info->comment = imageId(src, h);
  return TSL_OK;
}

// 15/16-bit pixel (ARRRRRGG GGGBBBBB, little endian) to 8-bit RGB.
void rgb555(uint16_t v, uint8_t *o) {
  const int r = (v >> 10) & 31, g = (v >> 5) & 31, b = v & 31;
  o[0] = static_cast<uint8_t>(r << 3 | r >> 2);
  o[1] = static_cast<uint8_t>(g << 3 | g >> 2);
  o[2] = static_cast<uint8_t>(b << 3 | b >> 2);
}

// File pixels, RLE packets or plain, bounded by `end`; packets may span rows.
class PixelStream {
 public:
  PixelStream(const uint8_t *d, size_t pos, size_t end, int bytes, bool rle)
      : d_(d), pos_(pos), end_(end), bytes_(bytes), rle_(rle) {}
  // Fills n pixels; false when the data ends first.
  bool read(uint8_t *out, size_t n) {
    for (size_t i = 0; i < n; ++i) {
      uint8_t *o = out + i * bytes_;
      if (rle_ && left_ == 0) {
        if (pos_ >= end_) return false;
        const uint8_t head = d_[pos_++];
        left_ = (head & 0x7F) + 1u;
        repeat_ = (head & 0x80) != 0;
        if (repeat_) {
          if (end_ - pos_ < static_cast<size_t>(bytes_)) return false;
          std::memcpy(value_, d_ + pos_, bytes_);
          pos_ += bytes_;
        }
      }
      if (rle_ && repeat_) {
        std::memcpy(o, value_, bytes_);
      } else {
        if (pos_ > end_ || end_ - pos_ < static_cast<size_t>(bytes_)) return false;
        std::memcpy(o, d_ + pos_, bytes_);
        pos_ += bytes_;
      }
      if (rle_) --left_;
    }
    return true;
  }

 private:
  const uint8_t *d_;
  size_t pos_, end_;
  int bytes_;
  bool rle_;
  unsigned left_ = 0;
  bool repeat_ = false;
  uint8_t value_[4] = {0, 0, 0, 0};
};

int loadTga(const Source &src, TslPicture *pic, LoadContext &ctx) {
  TgaHeader h;
  char msg[256] = {0};
  int code = parseHeader(src, &h, msg, sizeof msg);
  if (code != TSL_OK) return ctx.fail(code, msg);
  if (!ctx.sizeAllowed(h.width, h.height)) return TSL_ERR_MEMORY;
  const int model = modelFor(h);
  code = ctx.alloc(pic, model, h.width, h.height);
  if (code != TSL_OK) return code;
  if (model == TSL_INDEXED) {
    const int entry = (h.cm_bits + 7) / 8;
    int colors = 0;
    for (int i = 0; i < h.cm_length; ++i) {
      const int index = h.cm_first + i;
      if (index > 255) break;
      const uint8_t *e = src.data + h.palette_at + static_cast<size_t>(i) * entry;
      uint8_t rgb[3];
      if (entry == 2) {
        rgb555(le16(e), rgb);
      } else {
        rgb[0] = e[2];
        rgb[1] = e[1];
        rgb[2] = e[0];
      }
      pic->palette[index] = rgb[0];
      pic->palette[256 + index] = rgb[1];
      pic->palette[512 + index] = rgb[2];
      colors = index + 1;
    }
    pic->colors = static_cast<int16_t>(colors);
  }
  const int bytes = (h.depth + 7) / 8;
  PixelStream stream(src.data, h.data_at, h.data_end, bytes, h.rle());
  const uint32_t w = h.width;
  std::vector<uint8_t> line(static_cast<size_t>(w) * bytes);
  const int n = pic->bytes_per_pixel;
  for (uint32_t r = 0; r < h.height; ++r) {
    const bool complete = stream.read(line.data(), w);
    if (!complete && !ctx.keepDamaged()) return TSL_ERR_READ;
    if (!complete) break;
    uint8_t *out = rowOf(pic, h.top_down() ? r : h.height - 1 - r);
    for (uint32_t c = 0; c < w; ++c) {
      const uint8_t *s = line.data() + static_cast<size_t>(c) * bytes;
      const uint32_t x = h.right_to_left() ? w - 1 - c : c;
      uint8_t *o = out + static_cast<size_t>(x) * n;
      if (n == 1) {
        o[0] = s[0];
      } else if (bytes == 2) {
        rgb555(le16(s), o);
      } else {
        o[0] = s[2];
        o[1] = s[1];
        o[2] = s[0];
        if (n == 4) o[3] = s[3];
      }
    }
    if (ctx.progress(r + 1, h.height)) return TSL_STOPPED;
  }
  if (model == TSL_RGBA) dropUselessAlpha(pic);
  return TSL_OK;
}

// ---- Writer ----------------------------------------------------------------

// RLE packets of one row of `bytes`-byte pixels.
void encodeRow(const uint8_t *s, uint32_t w, int bytes, std::vector<uint8_t> *out) {
  auto same = [&](uint32_t a, uint32_t b) { return std::memcmp(s + a * bytes, s + b * bytes, bytes) == 0; };
  uint32_t i = 0;
  while (i < w) {
    uint32_t run = 1;
    while (i + run < w && run < 128 && same(i, i + run)) ++run;
    if (run >= 2) {
      out->push_back(static_cast<uint8_t>(0x80 | (run - 1)));
      out->insert(out->end(), s + static_cast<size_t>(i) * bytes, s + static_cast<size_t>(i + 1) * bytes);
      i += run;
      continue;
    }
    uint32_t j = i + 1;
    while (j < w && j - i < 128 && !(j + 1 < w && same(j, j + 1))) ++j;
    out->push_back(static_cast<uint8_t>(j - i - 1));
    out->insert(out->end(), s + static_cast<size_t>(i) * bytes, s + static_cast<size_t>(j) * bytes);
    i = j;
  }
}

int saveTga(FILE *f, const TslPicture *p, SaveContext &ctx) {
  const int model = p->color_model;
  const uint32_t w = p->width, rows = p->height;
  if (w > 65535 || rows > 65535) return TSL_ERR_CANT_SAVE;
  const bool rle = ctx.params().compression == 1;
  int kind, depth, alpha_bits = 0, colors = 0;
  if (model == TSL_GREY) {
    kind = 3;
    depth = 8;
  } else if (model == TSL_INDEXED) {
    kind = 1;
    depth = 8;
    colors = p->colors > 0 && p->colors <= 256 ? p->colors : 256;
  } else if (TSL_IS_TRUECOLOR(model)) {
    kind = 2;
    const bool alpha = channelLayout(model).a >= 0;
    depth = alpha ? 32 : 24;
    alpha_bits = alpha ? 8 : 0;
  } else {
    return TSL_ERR_CANT_SAVE;
  }
  const char *comment = ctx.params().comment ? ctx.params().comment : "";
  size_t id_length = std::strlen(comment);
  if (id_length > 255) id_length = 255;

  uint8_t head[18];
  std::memset(head, 0, sizeof head);
  head[0] = static_cast<uint8_t>(id_length);
  head[1] = kind == 1 ? 1 : 0;
  head[2] = static_cast<uint8_t>(kind + (rle ? 8 : 0));
  head[5] = static_cast<uint8_t>(colors & 0xFF);
  head[6] = static_cast<uint8_t>(colors >> 8);
  head[7] = kind == 1 ? 24 : 0;
  head[12] = static_cast<uint8_t>(w & 0xFF);
  head[13] = static_cast<uint8_t>(w >> 8);
  head[14] = static_cast<uint8_t>(rows & 0xFF);
  head[15] = static_cast<uint8_t>(rows >> 8);
  head[16] = static_cast<uint8_t>(depth);
  head[17] = static_cast<uint8_t>(alpha_bits);  // origin bottom left
  bool ok = putBytes(f, head, sizeof head) && putBytes(f, comment, id_length);
  ok = ok && putBgrPalette(f, p->palette, colors, false);
  if (!ok) return TSL_ERR_WRITE;

  const int bytes = depth / 8;
  std::vector<uint8_t> line(static_cast<size_t>(w) * bytes);
  std::vector<uint8_t> rgba(static_cast<size_t>(w) * 4);
  std::vector<uint8_t> coded;
  for (uint32_t r = 0; r < rows && ok; ++r) {
    const uint32_t y = rows - 1 - r;
    if (bytes == 1) {
      std::memcpy(line.data(), rowOf(p, y), w);
    } else {
      bgrRow(p, y, bytes, rgba.data(), line.data());
    }
    if (rle) {
      coded.clear();
      encodeRow(line.data(), w, bytes, &coded);
      ok = putBytes(f, coded.data(), coded.size());
    } else {
      ok = putBytes(f, line.data(), line.size());
    }
    ctx.progress(r + 1, rows);
  }
  // Version 2 footer without extension or developer areas.
  ok = ok && put32le(f, 0) && put32le(f, 0) && putBytes(f, kFooterText, 18);
  return ok ? TSL_OK : TSL_ERR_WRITE;
}

}  // namespace

extern const FormatDef kTgaFormat = {
    "tga", "Truevision Targa", "tga;targa;vda;icb;vst",
    {{2, 256, -1, -1}, {4, 256, -1, -1}, {1008, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicWeak, false, sniffTga, infoTga, loadTga, saveTga, nullptr};

}  // namespace tessel
