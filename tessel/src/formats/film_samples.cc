// Sample packing and 8-bit conversion tables of the film-scan formats.
#include "film_samples.h"

#include <cstring>

#include "../bytes.h"

namespace tessel {

namespace {

uint32_t word(const FilmLayout &l, const uint8_t *p) { return l.little_endian ? le32(p) : be32(p); }

uint64_t words(uint64_t n, uint64_t per_word) { return (n + per_word - 1) / per_word; }

}  // namespace

uint64_t filmRowBytes(const FilmLayout &l, uint64_t count) {
  switch (l.bits) {
    case 8: return 4 * words(count, 4);
    case 16: return 4 * words(count, 2);
    case 10:
    case 12:
      if (l.packing == FilmPacking::kStream) return 4 * words(count * static_cast<uint64_t>(l.bits), 32);
      return 4 * words(count, l.bits == 10 ? 3 : 2);
    default: return 0;
  }
}

void filmUnpackRow(const FilmLayout &l, const uint8_t *row, uint32_t count, uint16_t *out) {
  if (l.bits == 8) {
    for (uint32_t i = 0; i < count; ++i) out[i] = row[i];
  } else if (l.bits == 16) {
    for (uint32_t i = 0; i < count; ++i) out[i] = l.little_endian ? le16(row + 2 * i) : be16(row + 2 * i);
  } else if (l.packing == FilmPacking::kStream) {
    const uint32_t mask = (1u << l.bits) - 1;
    for (uint32_t i = 0; i < count; ++i) {
      const uint64_t bit = static_cast<uint64_t>(i) * l.bits;
      const size_t w = static_cast<size_t>(bit / 32);
      const uint32_t off = static_cast<uint32_t>(bit % 32);
      uint64_t pair = static_cast<uint64_t>(word(l, row + 4 * w)) << 32;
      if (off + static_cast<uint32_t>(l.bits) > 32) pair |= word(l, row + 4 * w + 4);
      out[i] = static_cast<uint16_t>(pair >> (64 - off - static_cast<uint32_t>(l.bits)) & mask);
    }
  } else if (l.bits == 10) {
    const int base = l.packing == FilmPacking::kFilledA ? 22 : 20;
    for (uint32_t i = 0; i < count; ++i) {
      const uint32_t w = word(l, row + 4 * (i / 3));
      const int slot = static_cast<int>(l.low_first ? 2 - i % 3 : i % 3);
      out[i] = static_cast<uint16_t>(w >> (base - 10 * slot) & 0x3ff);
    }
  } else {  // 12 bits, one per 16-bit word
    for (uint32_t i = 0; i < count; ++i) {
      const uint16_t v = l.little_endian ? le16(row + 2 * i) : be16(row + 2 * i);
      out[i] = static_cast<uint16_t>(l.packing == FilmPacking::kFilledA ? v >> 4 : v & 0xfff);
    }
  }
}

FilmToEight::FilmToEight(int bits, const TslParams &params) : size_(size_t(1) << bits), table_(4 * size_) {
  const uint32_t max = static_cast<uint32_t>(size_ - 1);
  const bool lut = params.lut_size > 0 && params.lut[0];
  const uint64_t lut_max = lut ? static_cast<uint64_t>(params.lut_size) - 1 : 0;
  for (int c = 0; c < 4; ++c) {  // the fourth, alpha, is always scaled
    const uint16_t *plane = lut && c < 3 ? (params.lut[c] ? params.lut[c] : params.lut[0]) : nullptr;
    for (uint32_t v = 0; v <= max; ++v) {
      uint32_t out;
      if (plane) {
        const uint64_t index = (static_cast<uint64_t>(v) * lut_max + max / 2) / max;
        out = plane[index] > 255 ? 255 : plane[index];
      } else {
        out = (v * 255u + max / 2) / max;
      }
      table_[c * size_ + v] = static_cast<uint8_t>(out);
    }
  }
}

EightToFilm::EightToFilm(int bits, const TslParams &params) : table_(3 * 256) {
  const uint32_t max = (1u << bits) - 1;
  const bool lut = params.lut_size > 0 && params.lut[0];
  const uint64_t lut_max = lut ? static_cast<uint64_t>(params.lut_size) - 1 : 0;
  for (int c = 0; c < 3; ++c) {
    const uint16_t *plane = lut ? (params.lut[c] ? params.lut[c] : params.lut[0]) : nullptr;
    for (uint32_t v = 0; v < 256; ++v) {
      uint32_t out;
      if (plane) {
        const uint32_t ten = plane[(v * lut_max + 127) / 255] > 1023 ? 1023 : plane[(v * lut_max + 127) / 255];
        out = (ten * max + 511) / 1023;
      } else {
        out = (v * max + 127) / 255;
      }
      table_[static_cast<size_t>(c) * 256 + v] = static_cast<uint16_t>(out);
    }
  }
}

void filmPackRow(int bits, bool low_first, const uint16_t *samples, uint32_t count, std::vector<uint8_t> &out) {
  if (bits == 8) {
    for (uint32_t i = 0; i < count; ++i) out.push_back(static_cast<uint8_t>(samples[i]));
    out.insert(out.end(), (4 - count % 4) % 4, 0);
    return;
  }
  for (uint32_t i = 0; i < count; i += 3) {
    uint32_t w = 0;
    for (uint32_t k = 0; k < 3; ++k)
      if (i + k < count) w |= static_cast<uint32_t>(samples[i + k] & 0x3ff) << (low_first ? 2 + 10 * k : 22 - 10 * k);
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(w >> shift));
  }
}

}  // namespace tessel

namespace tessel {

void filmFillInfo(const FilmImage &image, const char *comment, TslFileInfo *info) {
  info->width = image.width;
  info->height = image.height;
  info->bits_per_plane = image.layout.bits;
  info->planes = image.channels;
  info->color_model = image.channels == 1 ? TSL_GREY : image.channels == 4 ? TSL_RGBA : TSL_RGB;
  info->has_alpha = image.channels == 4;
  info->colors = image.channels == 1 ? 256 : 1L << 24;
  info->compression = TSL_COMP_NONE;
  info->origin = image.flip_y ? 1 : 0;
  info->pages = 1;
  if (comment[0]) info->comment = strdup(comment);
}

int filmLoadPixels(const Source &src, const FilmImage &im, TslPicture *picture, LoadContext &ctx) {
  const uint64_t count = static_cast<uint64_t>(im.width) * static_cast<uint64_t>(im.channels);
  if (!ctx.sizeAllowed(im.width, im.height)) return TSL_ERR_MEMORY;
  uint64_t row_bytes = filmRowBytes(im.layout, count);
  // Rows of 16-bit words are padded to 32 bits by some writers and to 16 bits
  // by others: the file's length tells which.
  const bool words16 = im.layout.bits == 16 || (im.layout.bits == 12 && im.layout.packing != FilmPacking::kStream);
  if (words16 && im.offset <= src.size && (row_bytes + im.eol_padding) * im.height > src.size - im.offset)
    row_bytes = 2 * count;
  if (row_bytes == 0) {
    ctx.setMessage("%d-bit samples in this packing are not supported", im.layout.bits);
    return TSL_ERR_BAD_FILE;
  }
  const uint64_t stride = row_bytes + im.eol_padding;
  if (im.offset > src.size) return TSL_ERR_READ;
  const uint64_t avail = src.size - im.offset;
  if (stride * (im.height - 1) + row_bytes > avail && !ctx.keepDamaged()) return TSL_ERR_READ;
  const int model = im.channels == 1 ? TSL_GREY : im.channels == 4 ? TSL_RGBA : TSL_RGB;
  int code = ctx.alloc(picture, model, im.width, im.height);
  if (code != TSL_OK) return code;
  const FilmToEight eight(im.layout.bits, ctx.params());
  std::vector<uint16_t> samples(static_cast<size_t>(count));
  const int out_channels = picture->bytes_per_pixel;
  for (uint32_t y = 0; y < im.height; ++y) {
    const uint64_t at = stride * y;
    if (at + row_bytes > avail) break;  // only with damaged files kept
    filmUnpackRow(im.layout, src.data + im.offset + at, static_cast<uint32_t>(count), samples.data());
    uint8_t *out = rowOf(picture, im.flip_y ? im.height - 1 - y : y);
    for (uint32_t x = 0; x < im.width; ++x) {
      const uint16_t *s = samples.data() + static_cast<size_t>(x) * im.channels;
      uint8_t *px = out + static_cast<size_t>(im.flip_x ? im.width - 1 - x : x) * out_channels;
      for (int c = 0; c < im.channels; ++c) {
        const int to = im.order[c];
        px[to] = eight(to, s[c]);
      }
    }
    if (ctx.progress(y + 1, im.height)) return TSL_STOPPED;
  }
  return TSL_OK;
}

int filmSavePixels(FILE *file, const TslPicture *pic, int bits, int channels, bool low_first, SaveContext &ctx) {
  const EightToFilm film(bits, ctx.params());
  std::vector<uint8_t> rgba(static_cast<size_t>(pic->width) * 4), packed;
  std::vector<uint16_t> samples(static_cast<size_t>(pic->width) * channels);
  for (uint32_t y = 0; y < pic->height; ++y) {
    if (channels == 1) {
      const uint8_t *in = rowOf(pic, y);
      for (uint32_t x = 0; x < pic->width; ++x) samples[x] = film(0, in[x]);
    } else {
      tslGetRowRGBA(pic, y, rgba.data());
      for (uint32_t x = 0; x < pic->width; ++x)
        for (int c = 0; c < channels; ++c)
          samples[static_cast<size_t>(x) * channels + c] =
              c == 3 ? static_cast<uint16_t>((rgba[4 * x + 3] * ((1u << bits) - 1) + 127) / 255) : film(c, rgba[4 * x + c]);
    }
    packed.clear();
    filmPackRow(bits, low_first, samples.data(), static_cast<uint32_t>(samples.size()), packed);
    if (!putBytes(file, packed.data(), packed.size())) return TSL_ERR_WRITE;
    ctx.progress(y + 1, pic->height);
  }
  return TSL_OK;
}

void putBe32(uint8_t *p, uint32_t v) {
  for (int k = 0; k < 4; ++k) p[k] = static_cast<uint8_t>(v >> (24 - 8 * k));
}
void putBe16(uint8_t *p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v >> 8);
  p[1] = static_cast<uint8_t>(v);
}
void putBeFloat(uint8_t *p, float v) {
  uint32_t bits;
  std::memcpy(&bits, &v, 4);
  putBe32(p, bits);
}

}  // namespace tessel
