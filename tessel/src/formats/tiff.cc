// tiff: Tagged Image File Format through libtiff.  Pages are directories.
// Strips and tiles of bilevel, grey, palette, RGB(A), CMYK and JPEG-coded
// YCbCr pictures are decoded here sample by sample; every other layout
// libtiff knows goes through its RGBA image interface.
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "../format.h"
#include "tiff_io.h"

namespace tessel {
namespace {

// ---- Reading ---------------------------------------------------------------

enum class Path { kNative, kRgbaImage };

struct Layout {
  uint32_t width = 0, height = 0;
  uint16_t bps = 1, spp = 1, photometric = PHOTOMETRIC_MINISBLACK, planar = PLANARCONFIG_CONTIG;
  uint16_t compression = COMPRESSION_NONE, sample_format = SAMPLEFORMAT_UINT;
  int colors_channels = 1;  // colour samples before the extra ones
  int alpha = -1;           // sample index of the alpha channel, -1 = none
  bool associated = false;  // alpha premultiplied
  bool cmyk = false;
  bool minwhite = false;
  int model = TSL_GREY;
  Path path = Path::kNative;
};

// Works out how a directory is decoded and what it loads as.
int describe(TIFF *tif, Layout *L, char *why, size_t why_size) {
  if (!TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &L->width) || !TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &L->height) ||
      L->width == 0 || L->height == 0) {
    std::snprintf(why, why_size, "TIFF directory without picture size");
    return TSL_ERR_BAD_FILE;
  }
  TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &L->bps);
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &L->spp);
  TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &L->planar);
  TIFFGetFieldDefaulted(tif, TIFFTAG_COMPRESSION, &L->compression);
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLEFORMAT, &L->sample_format);
  if (!TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &L->photometric))
    L->photometric = L->spp >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
  uint16_t extra_count = 0;
  uint16_t *extra = nullptr;
  TIFFGetFieldDefaulted(tif, TIFFTAG_EXTRASAMPLES, &extra_count, &extra);
  if (extra_count > L->spp) extra_count = 0;
  L->colors_channels = L->spp - extra_count;

  bool native = L->bps >= 1 && L->bps <= 16 && L->sample_format == SAMPLEFORMAT_UINT && L->spp >= 1;
  if (native) {
    switch (L->photometric) {
      case PHOTOMETRIC_MINISWHITE:
      case PHOTOMETRIC_MINISBLACK:
        L->minwhite = L->photometric == PHOTOMETRIC_MINISWHITE;
        L->colors_channels = 1;
        break;
      case PHOTOMETRIC_PALETTE:
        native = L->bps <= 8 && L->spp == 1;
        L->colors_channels = 1;
        break;
      case PHOTOMETRIC_RGB:
        native = L->spp >= 3;
        L->colors_channels = 3;
        break;
      case PHOTOMETRIC_SEPARATED: {
        uint16_t inkset = INKSET_CMYK;
        TIFFGetFieldDefaulted(tif, TIFFTAG_INKSET, &inkset);
        native = inkset == INKSET_CMYK && L->spp >= 4;
        L->colors_channels = 4;
        L->cmyk = true;
        break;
      }
      case PHOTOMETRIC_YCBCR:
        // libtiff's JPEG codec hands out RGB when asked to.
        native = L->compression == COMPRESSION_JPEG && L->planar == PLANARCONFIG_CONTIG && L->bps == 8 &&
                 L->spp == 3 && TIFFSetField(tif, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
        L->colors_channels = 3;
        break;
      default:
        native = false;
    }
  }
  if (native) {
    // The first extra sample beyond the colour ones is alpha when declared so.
    const int first_extra = L->colors_channels;
    const int k = first_extra - (L->spp - extra_count);
    if (k >= 0 && k < extra_count && first_extra < L->spp &&
        (extra[k] == EXTRASAMPLE_ASSOCALPHA || extra[k] == EXTRASAMPLE_UNASSALPHA)) {
      L->alpha = first_extra;
      L->associated = extra[k] == EXTRASAMPLE_ASSOCALPHA;
    }
    if (L->photometric == PHOTOMETRIC_PALETTE) L->model = TSL_INDEXED;
    else if (L->alpha >= 0) L->model = TSL_RGBA;
    else if (L->colors_channels == 1) L->model = L->bps == 1 ? TSL_BINARY : TSL_GREY;
    else L->model = TSL_RGB;
    L->path = Path::kNative;
    return TSL_OK;
  }
  char emsg[1024] = {0};
  if (!TIFFRGBAImageOK(tif, emsg)) {
    std::snprintf(why, why_size, "%s", emsg[0] ? emsg : "Unsupported TIFF picture layout");
    return TSL_ERR_BAD_FILE;
  }
  L->path = Path::kRgbaImage;
  L->alpha = -1;
  for (int i = 0; i < extra_count; ++i)
    if (extra[i] == EXTRASAMPLE_ASSOCALPHA || extra[i] == EXTRASAMPLE_UNASSALPHA) L->alpha = 3;
  L->model = L->alpha >= 0 ? TSL_RGBA : TSL_RGB;
  return TSL_OK;
}

int compressionOf(uint16_t c) {
  switch (c) {
    case COMPRESSION_NONE: return TSL_COMP_NONE;
    case COMPRESSION_LZW: return TSL_COMP_LZW;
    case COMPRESSION_PACKBITS: return TSL_COMP_PACKBITS;
    case COMPRESSION_ADOBE_DEFLATE:
    case COMPRESSION_DEFLATE: return TSL_COMP_DEFLATE;
    case COMPRESSION_JPEG:
    case COMPRESSION_OJPEG: return TSL_COMP_JPEG;
    case COMPRESSION_CCITTRLE:
    case COMPRESSION_CCITTRLEW: return TSL_COMP_CCITT_RLE;
    case COMPRESSION_CCITTFAX3: return TSL_COMP_CCITT_G3;
    case COMPRESSION_CCITTFAX4: return TSL_COMP_CCITT_G4;
    default: return TSL_COMP_OTHER;
  }
}

// Resolution in dots per inch, 0 when the file gives none.
void resolutionOf(TIFF *tif, int *dpi_x, int *dpi_y) {
  float x = 0, y = 0;
  uint16_t unit = RESUNIT_INCH;
  TIFFGetFieldDefaulted(tif, TIFFTAG_RESOLUTIONUNIT, &unit);
  if (!TIFFGetField(tif, TIFFTAG_XRESOLUTION, &x)) x = 0;
  if (!TIFFGetField(tif, TIFFTAG_YRESOLUTION, &y)) y = x;
  const double scale = unit == RESUNIT_CENTIMETER ? 2.54 : unit == RESUNIT_INCH ? 1.0 : 0.0;
  auto dpi = [scale](float v) {
    double d = v * scale;
    return std::isfinite(d) && d > 0 && d < 1e6 ? static_cast<int>(d + 0.5) : 0;
  };
  *dpi_x = dpi(x);
  *dpi_y = dpi(y);
}

// Bytes libtiff may allocate at once for this load: enough for any strip or
// tile of a picture within the pixel limit.
uint64_t allocLimit(uint64_t max_pixels) {
  uint64_t limit = max_pixels > (UINT64_MAX / 16) ? UINT64_MAX : max_pixels * 16;
  return std::max<uint64_t>(limit, uint64_t(64) << 20);
}

class TiffFile {
 public:
  TiffFile(const Source &src, uint64_t max_alloc) : mem_{src.data, src.size, 0} {
    tif_ = tiffOpenMemory(&mem_, &messages_, max_alloc);
  }
  ~TiffFile() {
    if (tif_) TIFFClose(tif_);
  }
  TIFF *tif() { return tif_; }
  const char *message() const { return messages_.has ? messages_.text : "Bad TIFF file"; }
  uint64_t size() const { return mem_.size; }

 private:
  TiffMemory mem_;
  TiffMessages messages_;
  TIFF *tif_ = nullptr;
};

// True when the file ends before the first directory its header points to.
bool endsBeforeDirectory(const Source &src) {
  const uint8_t *d = src.data;
  if (src.size < 8) return true;
  const bool le = d[0] == 'I';
  auto get = [&](size_t at, int n) {
    uint64_t v = 0;
    for (int i = 0; i < n; ++i) v |= uint64_t(d[at + (le ? i : n - 1 - i)]) << (8 * i);
    return v;
  };
  const bool big = get(2, 2) == 43;
  if (big && src.size < 16) return true;
  const uint64_t offset = big ? get(8, 8) : get(4, 4);
  const int count_bytes = big ? 8 : 2;
  if (offset >= src.size || src.size - offset < static_cast<uint64_t>(count_bytes)) return true;
  // The directory's entries and next-directory offset must fit too.
  const uint64_t count = get(static_cast<size_t>(offset), count_bytes);
  const uint64_t entry = big ? 20 : 12, next = big ? 8 : 4;
  return count > (src.size - offset - count_bytes) / entry ||
         src.size - offset - count_bytes - count * entry < next;
}

int selectPage(const Source &src, TiffFile &file, int page, char *why, size_t why_size) {
  if (!file.tif()) {
    std::snprintf(why, why_size, "%s", file.message());
    return endsBeforeDirectory(src) ? TSL_ERR_READ : TSL_ERR_BAD_FILE;
  }
  if (page < 0 || (page > 0 && !TIFFSetDirectory(file.tif(), static_cast<tdir_t>(page)))) {
    std::snprintf(why, why_size, "TIFF file has no page %d", page + 1);
    return TSL_ERR_BAD_FILE;
  }
  return TSL_OK;
}

int tiffInfo(const Source &src, int page, TslFileInfo *info) {
  TiffFile file(src, allocLimit(tslGetMaxPixels()));
  int code = selectPage(src, file, page, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  TIFF *tif = file.tif();
  Layout L;
  code = describe(tif, &L, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  info->width = L.width;
  info->height = L.height;
  info->bits_per_plane = L.bps;
  info->planes = L.spp;
  info->color_model = L.model;
  info->colors = L.model == TSL_BINARY ? 2
                 : L.model == TSL_GREY || L.model == TSL_INDEXED ? (1L << std::min<int>(L.bps, 8))
                                                                  : (1L << 24);
  info->compression = compressionOf(L.compression);
  resolutionOf(tif, &info->dpi_x, &info->dpi_y);
  info->has_alpha = L.alpha >= 0;
  uint16_t orientation = 0;
  if (TIFFGetField(tif, TIFFTAG_ORIENTATION, &orientation) && orientation >= 1 && orientation <= 8)
    info->orientation = orientation;
  const char *text = nullptr;
  if (TIFFGetField(tif, TIFFTAG_IMAGEDESCRIPTION, &text) && text) info->comment = strdup(text);
  info->pages = TIFFNumberOfDirectories(tif);
  return TSL_OK;
}

inline uint8_t to8(uint32_t v, int bps) {
  if (bps == 8) return static_cast<uint8_t>(v);
  if (bps == 16) return static_cast<uint8_t>((v * 255 + 32767) / 65535);
  const uint32_t max = (1u << bps) - 1;
  return static_cast<uint8_t>((v * 255 + max / 2) / max);
}

// Unpacks n samples of bps bits (MSB first; 16-bit ones in host order).
void unpack(const uint8_t *src, uint32_t n, int bps, uint16_t *out) {
  if (bps == 8) {
    for (uint32_t i = 0; i < n; ++i) out[i] = src[i];
  } else if (bps == 16) {
    std::memcpy(out, src, static_cast<size_t>(n) * 2);
  } else {
    uint64_t bit = 0;
    for (uint32_t i = 0; i < n; ++i) {
      uint32_t v = 0;
      for (int k = 0; k < bps; ++k, ++bit) v = v << 1 | ((src[bit >> 3] >> (7 - (bit & 7))) & 1);
      out[i] = static_cast<uint16_t>(v);
    }
  }
}

class NativeReader {
 public:
  NativeReader(TIFF *tif, const Layout &L, TslPicture *pic, LoadContext &ctx, uint64_t file_size)
      : tif_(tif), L_(L), pic_(pic), ctx_(ctx), file_size_(file_size) {}

  int run() {
    const bool separate = L_.planar == PLANARCONFIG_SEPARATE && L_.spp > 1;
    planes_ = separate ? L_.spp : 1;
    per_pixel_ = separate ? 1 : L_.spp;
    const uint64_t row_bits = uint64_t(L_.width) * per_pixel_ * L_.bps;
    row_bytes_ = (row_bits + 7) / 8;
    tiled_ = TIFFIsTiled(tif_);
    uint32_t band = 0;
    if (tiled_) {
      if (!TIFFGetField(tif_, TIFFTAG_TILEWIDTH, &tile_w_) || !TIFFGetField(tif_, TIFFTAG_TILELENGTH, &band) ||
          tile_w_ == 0 || band == 0 || !ctx_.sizeAllowed(tile_w_, band))
        return TSL_ERR_MEMORY;
      tile_bytes_ = TIFFTileSize64(tif_);
      tile_row_bytes_ = (uint64_t(tile_w_) * per_pixel_ * L_.bps + 7) / 8;
      if (tile_bytes_ == 0 || tile_bytes_ < tile_row_bytes_ * band) return TSL_ERR_BAD_FILE;
    } else {
      TIFFGetFieldDefaulted(tif_, TIFFTAG_ROWSPERSTRIP, &band);
      if (band == 0 || band > L_.height) band = L_.height;
    }
    if (!ctx_.sizeAllowed(L_.width, band)) return TSL_ERR_MEMORY;
    band_ = band;
    plane_bytes_ = row_bytes_ * band;
    try {
      buffer_.assign(static_cast<size_t>(plane_bytes_ * planes_), 0);
      if (tiled_) tile_.assign(static_cast<size_t>(tile_bytes_), 0);
      samples_.assign(static_cast<size_t>(planes_) * L_.width * per_pixel_, 0);
    } catch (const std::bad_alloc &) {
      return TSL_ERR_MEMORY;
    }
    for (uint32_t y0 = 0; y0 < L_.height; y0 += band_) {
      const uint32_t rows = std::min(band_, L_.height - y0);
      int code = tiled_ ? readTiles(y0, rows) : readStrips(y0, rows);
      if (code != TSL_OK) return code;
      for (uint32_t r = 0; r < rows; ++r) convertRow(r, y0 + r);
      if (ctx_.progress(y0 + rows, L_.height)) return TSL_STOPPED;
    }
    return TSL_OK;
  }

 private:
  // A chunk libtiff could not decode: what to answer for it.
  int failed(uint64_t chunk, uint8_t *dst, size_t n) {
    if (ctx_.keepDamaged()) {
      std::memset(dst, 0, n);
      return TSL_OK;
    }
    const uint64_t off = TIFFGetStrileOffset(tif_, static_cast<uint32_t>(chunk));
    const uint64_t len = TIFFGetStrileByteCount(tif_, static_cast<uint32_t>(chunk));
    return off >= file_size_ || len > file_size_ - off ? TSL_ERR_READ : TSL_ERR_CORRUPT;
  }

  int readStrips(uint32_t y0, uint32_t rows) {
    for (int p = 0; p < planes_; ++p) {
      uint8_t *dst = buffer_.data() + plane_bytes_ * p;
      const size_t want = static_cast<size_t>(row_bytes_ * rows);
      const uint32_t strip = TIFFComputeStrip(tif_, y0, static_cast<uint16_t>(p));
      tmsize_t got = TIFFReadEncodedStrip(tif_, strip, dst, static_cast<tmsize_t>(want));
      if (got < 0) {
        int code = failed(strip, dst, want);
        if (code != TSL_OK) return code;
      } else if (static_cast<size_t>(got) < want) {
        std::memset(dst + got, 0, want - static_cast<size_t>(got));
      }
    }
    return TSL_OK;
  }

  int readTiles(uint32_t y0, uint32_t rows) {
    for (int p = 0; p < planes_; ++p) {
      uint8_t *plane = buffer_.data() + plane_bytes_ * p;
      for (uint32_t x0 = 0; x0 < L_.width; x0 += tile_w_) {
        const uint32_t tile = TIFFComputeTile(tif_, x0, y0, 0, static_cast<uint16_t>(p));
        tmsize_t got = TIFFReadEncodedTile(tif_, tile, tile_.data(), static_cast<tmsize_t>(tile_bytes_));
        if (got < 0) {
          int code = failed(tile, tile_.data(), tile_.size());
          if (code != TSL_OK) return code;
        }
        const uint64_t at = (uint64_t(x0) * per_pixel_ * L_.bps) / 8;
        const size_t n = static_cast<size_t>(std::min(tile_row_bytes_, row_bytes_ - at));
        for (uint32_t r = 0; r < rows; ++r)
          std::memcpy(plane + row_bytes_ * r + at, tile_.data() + tile_row_bytes_ * r, n);
      }
    }
    return TSL_OK;
  }

  void convertRow(uint32_t r, uint32_t y) {
    uint8_t *out = rowOf(pic_, y);
    const uint8_t *src = buffer_.data() + row_bytes_ * r;
    if (pic_->color_model == TSL_BINARY && per_pixel_ == 1) {
      // Set bit = white: MinIsBlack bits already are intensities.
      const size_t n = packedLine(L_.width);
      for (size_t i = 0; i < n; ++i) out[i] = L_.minwhite ? static_cast<uint8_t>(~src[i]) : src[i];
      return;
    }
    const uint32_t n = L_.width * per_pixel_;
    for (int p = 0; p < planes_; ++p)
      unpack(src + plane_bytes_ * p, n, L_.bps, samples_.data() + static_cast<size_t>(p) * n);
    const uint16_t *s = samples_.data();
    auto sample = [&](uint32_t x, int c) -> uint32_t {
      return planes_ > 1 ? s[static_cast<size_t>(c) * L_.width + x] : s[static_cast<size_t>(x) * per_pixel_ + c];
    };
    const int bps = L_.bps;
    switch (pic_->color_model) {
      case TSL_BINARY:  // bilevel with more than one sample per pixel: first only
        for (uint32_t x = 0; x < L_.width; ++x) setBit(out, x, (sample(x, 0) != 0) != L_.minwhite);
        return;
      case TSL_GREY:
        for (uint32_t x = 0; x < L_.width; ++x) {
          uint8_t v = to8(sample(x, 0), bps);
          out[x] = L_.minwhite ? static_cast<uint8_t>(255 - v) : v;
        }
        return;
      case TSL_INDEXED:
        for (uint32_t x = 0; x < L_.width; ++x) out[x] = static_cast<uint8_t>(sample(x, 0));
        return;
      default:
        break;
    }
    const int n_out = pic_->color_model == TSL_RGBA ? 4 : 3;
    for (uint32_t x = 0; x < L_.width; ++x, out += n_out) {
      uint32_t r8, g8, b8;
      if (L_.colors_channels == 1) {
        r8 = g8 = b8 = L_.minwhite ? 255 - to8(sample(x, 0), bps) : to8(sample(x, 0), bps);
      } else if (L_.cmyk) {
        const uint32_t k = 255 - to8(sample(x, 3), bps);
        r8 = k * (255 - to8(sample(x, 0), bps)) / 255;
        g8 = k * (255 - to8(sample(x, 1), bps)) / 255;
        b8 = k * (255 - to8(sample(x, 2), bps)) / 255;
      } else {
        r8 = to8(sample(x, 0), bps);
        g8 = to8(sample(x, 1), bps);
        b8 = to8(sample(x, 2), bps);
      }
      if (n_out == 4) {
        const uint32_t a = to8(sample(x, L_.alpha), bps);
        if (L_.associated && a > 0 && a < 255) {
          r8 = std::min<uint32_t>(255, (r8 * 255 + a / 2) / a);
          g8 = std::min<uint32_t>(255, (g8 * 255 + a / 2) / a);
          b8 = std::min<uint32_t>(255, (b8 * 255 + a / 2) / a);
        }
        out[3] = static_cast<uint8_t>(a);
      }
      out[0] = static_cast<uint8_t>(r8);
      out[1] = static_cast<uint8_t>(g8);
      out[2] = static_cast<uint8_t>(b8);
    }
  }

  TIFF *tif_;
  const Layout &L_;
  TslPicture *pic_;
  LoadContext &ctx_;
  uint64_t file_size_;
  int planes_ = 1, per_pixel_ = 1;
  bool tiled_ = false;
  uint32_t band_ = 0, tile_w_ = 0;
  uint64_t row_bytes_ = 0, plane_bytes_ = 0, tile_bytes_ = 0, tile_row_bytes_ = 0;
  std::vector<uint8_t> buffer_, tile_;
  std::vector<uint16_t> samples_;
};

// Any other layout: libtiff's RGBA image interface, a band of rows at a time.
int readRgbaImage(TIFF *tif, const Layout &L, TslPicture *pic, LoadContext &ctx, char *why, size_t why_size) {
  char emsg[1024] = {0};
  TIFFRGBAImage img;
  if (!TIFFRGBAImageBegin(&img, tif, 0, emsg)) {
    std::snprintf(why, why_size, "%s", emsg[0] ? emsg : "Unsupported TIFF picture layout");
    return TSL_ERR_BAD_FILE;
  }
  // The stored order, as every other path reads it; the orientation is
  // reported by the file information, and turning is the caller's choice.
  uint16_t orientation = ORIENTATION_TOPLEFT;
  TIFFGetFieldDefaulted(tif, TIFFTAG_ORIENTATION, &orientation);
  img.req_orientation = orientation;
  uint32_t band = std::min<uint32_t>(64, L.height);
  if (!ctx.sizeAllowed(L.width, band)) band = 1;
  int code = TSL_OK;
  std::vector<uint32_t> raster;
  try {
    raster.assign(static_cast<size_t>(L.width) * band, 0);
  } catch (const std::bad_alloc &) {
    code = TSL_ERR_MEMORY;
  }
  const bool alpha = pic->color_model == TSL_RGBA;
  for (uint32_t y0 = 0; code == TSL_OK && y0 < L.height; y0 += band) {
    const uint32_t rows = std::min(band, L.height - y0);
    img.row_offset = static_cast<int>(y0);
    img.col_offset = 0;
    if (!TIFFRGBAImageGet(&img, raster.data(), L.width, rows) && !ctx.keepDamaged()) {
      code = TSL_ERR_CORRUPT;
      break;
    }
    for (uint32_t r = 0; r < rows; ++r) {
      uint8_t *out = rowOf(pic, y0 + r);
      const uint32_t *in = raster.data() + static_cast<size_t>(r) * L.width;
      for (uint32_t x = 0; x < L.width; ++x) {
        uint32_t v = in[x];
        uint32_t R = TIFFGetR(v), G = TIFFGetG(v), B = TIFFGetB(v), A = TIFFGetA(v);
        if (alpha) {
          // The RGBA interface premultiplies; pictures hold straight alpha.
          if (A > 0 && A < 255) {
            R = std::min<uint32_t>(255, (R * 255 + A / 2) / A);
            G = std::min<uint32_t>(255, (G * 255 + A / 2) / A);
            B = std::min<uint32_t>(255, (B * 255 + A / 2) / A);
          }
          out[4 * x] = static_cast<uint8_t>(R);
          out[4 * x + 1] = static_cast<uint8_t>(G);
          out[4 * x + 2] = static_cast<uint8_t>(B);
          out[4 * x + 3] = static_cast<uint8_t>(A);
        } else {
          out[3 * x] = static_cast<uint8_t>(R);
          out[3 * x + 1] = static_cast<uint8_t>(G);
          out[3 * x + 2] = static_cast<uint8_t>(B);
        }
      }
    }
    if (ctx.progress(y0 + rows, L.height)) code = TSL_STOPPED;
  }
  TIFFRGBAImageEnd(&img);
  return code;
}

void readPalette(TIFF *tif, const Layout &L, TslPicture *pic) {
  uint16_t *r = nullptr, *g = nullptr, *b = nullptr;
  const int n = 1 << L.bps;
  pic->colors = static_cast<int16_t>(n);
  if (!TIFFGetField(tif, TIFFTAG_COLORMAP, &r, &g, &b) || !r || !g || !b) {
    greyPalette(pic->palette, n);
    return;
  }
  // Old writers stored 8-bit values in the 16-bit colour map.
  bool eight = true;
  for (int i = 0; i < n && eight; ++i) eight = r[i] < 256 && g[i] < 256 && b[i] < 256;
  auto level = [eight](uint16_t v) { return eight ? static_cast<uint8_t>(v) : to8(v, 16); };
  for (int i = 0; i < n; ++i) {
    pic->palette[i] = level(r[i]);
    pic->palette[256 + i] = level(g[i]);
    pic->palette[512 + i] = level(b[i]);
  }
}

int tiffLoad(const Source &src, TslPicture *pic, LoadContext &ctx) {
  TiffFile file(src, allocLimit(ctx.maxPixels()));
  char why[256] = {0};
  int code = selectPage(src, file, ctx.page(), why, sizeof why);
  if (code == TSL_OK) code = [&] {
    TIFF *tif = file.tif();
    Layout L;
    int c = describe(tif, &L, why, sizeof why);
    if (c != TSL_OK) return c;
    if (!ctx.sizeAllowed(L.width, L.height)) return TSL_ERR_MEMORY;
    c = ctx.alloc(pic, L.model, L.width, L.height);
    if (c != TSL_OK) return c;
    if (L.model == TSL_INDEXED) readPalette(tif, L, pic);
    if (L.model == TSL_GREY) pic->colors = static_cast<int16_t>(1 << std::min<int>(L.bps, 8));
    int dx = 0, dy = 0;
    resolutionOf(tif, &dx, &dy);
    pic->attr_pair[0] = static_cast<uint32_t>(dx);
    pic->attr_pair[1] = static_cast<uint32_t>(dy);
    if (L.path == Path::kRgbaImage) return readRgbaImage(tif, L, pic, ctx, why, sizeof why);
    NativeReader reader(tif, L, pic, ctx, file.size());
    c = reader.run();
    if (c == TSL_ERR_BAD_FILE) std::snprintf(why, sizeof why, "%s", file.message());
    return c;
  }();
  if (code == TSL_ERR_BAD_FILE) ctx.setMessage("%s", why[0] ? why : file.message());
  return code;
}

bool tiffSniff(const uint8_t *d, size_t n) {
  return n >= 4 && ((d[0] == 'I' && d[1] == 'I' && (d[2] == 42 || d[2] == 43) && d[3] == 0) ||
                    (d[0] == 'M' && d[1] == 'M' && d[2] == 0 && (d[3] == 42 || d[3] == 43)));
}

// ---- Writing ---------------------------------------------------------------

int writePage(TIFF *tif, const TslPicture *pic, SaveContext &ctx, int index, int pages) {
  const TslParams &params = ctx.params();
  const int model = pic->color_model;
  const bool binary = model == TSL_BINARY;
  const bool truecolor = TSL_IS_TRUECOLOR(model);
  const bool alpha = truecolor && channelLayout(model).a >= 0;
  if (!binary && model != TSL_GREY && model != TSL_INDEXED && !truecolor) return TSL_ERR_CANT_SAVE;

  uint16_t compression;
  switch (params.compression) {
    case TSL_TIFF_LZW: compression = COMPRESSION_LZW; break;
    case TSL_TIFF_PACKBITS: compression = COMPRESSION_PACKBITS; break;
    case TSL_TIFF_DEFLATE: compression = COMPRESSION_ADOBE_DEFLATE; break;
    case TSL_TIFF_JPEG:
      compression = model == TSL_GREY || (truecolor && !alpha) ? COMPRESSION_JPEG : COMPRESSION_LZW;
      break;
    case TSL_TIFF_CCITT_G3: compression = binary ? COMPRESSION_CCITTFAX3 : COMPRESSION_LZW; break;
    case TSL_TIFF_CCITT_G4: compression = binary ? COMPRESSION_CCITTFAX4 : COMPRESSION_LZW; break;
    default: compression = COMPRESSION_NONE; break;
  }
  const uint16_t spp = truecolor ? (alpha ? 4 : 3) : 1;
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, pic->width);
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, pic->height);
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, binary ? 1 : 8);
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, spp);
  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tif, TIFFTAG_COMPRESSION, compression);
  if (binary) {
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
  } else if (model == TSL_GREY) {
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  } else if (model == TSL_INDEXED) {
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_PALETTE);
    uint16_t map[3][256];
    for (int c = 0; c < 3; ++c)
      for (int i = 0; i < 256; ++i) map[c][i] = static_cast<uint16_t>(pic->palette[256 * c + i] * 257);
    TIFFSetField(tif, TIFFTAG_COLORMAP, map[0], map[1], map[2]);
  } else if (compression == COMPRESSION_JPEG) {
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_YCBCR);
  } else {
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
  }
  if (alpha) {
    const uint16_t extra = EXTRASAMPLE_UNASSALPHA;
    TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, &extra);
  }
  if (compression == COMPRESSION_JPEG) {
    TIFFSetField(tif, TIFFTAG_JPEGQUALITY, std::clamp(params.quality, 1, 100));
    if (truecolor) TIFFSetField(tif, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
  }
  if ((compression == COMPRESSION_LZW || compression == COMPRESSION_ADOBE_DEFLATE) && (truecolor || model == TSL_GREY))
    TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
  TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tif, 0));

  const uint32_t dpi_x = params.dpi_x > 0 ? static_cast<uint32_t>(params.dpi_x) : pic->attr_pair[0];
  const uint32_t dpi_y = params.dpi_x > 0 ? static_cast<uint32_t>(params.dpi_y > 0 ? params.dpi_y : params.dpi_x)
                                          : (pic->attr_pair[1] ? pic->attr_pair[1] : pic->attr_pair[0]);
  if (dpi_x > 0 && dpi_y > 0) {
    TIFFSetField(tif, TIFFTAG_XRESOLUTION, static_cast<float>(dpi_x));
    TIFFSetField(tif, TIFFTAG_YRESOLUTION, static_cast<float>(dpi_y));
    TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
  }
  if (params.comment && *params.comment) TIFFSetField(tif, TIFFTAG_IMAGEDESCRIPTION, params.comment);
  if (pages > 1) {
    TIFFSetField(tif, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
    TIFFSetField(tif, TIFFTAG_PAGENUMBER, static_cast<uint16_t>(index), static_cast<uint16_t>(pages));
  }

  std::vector<uint8_t> line;
  try {
    line.resize(static_cast<size_t>(pic->width) * 4 + 8);
  } catch (const std::bad_alloc &) {
    return TSL_ERR_MEMORY;
  }
  for (uint32_t y = 0; y < pic->height; ++y) {
    const uint8_t *row = rowOf(pic, y);
    if (binary) {
      const size_t n = packedLine(pic->width);
      for (size_t i = 0; i < n; ++i) line[i] = static_cast<uint8_t>(~row[i]);  // MinIsWhite: 1 = black
    } else if (!truecolor) {
      std::memcpy(line.data(), row, pic->width);
    } else if (alpha) {
      tslGetRowRGBA(pic, y, line.data());
    } else {
      tslGetRowRGB(pic, y, line.data());
    }
    if (TIFFWriteScanline(tif, line.data(), y, 0) < 0) return TSL_ERR_WRITE;
    ctx.progress(y + 1, pic->height);
  }
  return TIFFWriteDirectory(tif) ? TSL_OK : TSL_ERR_WRITE;
}

class TiffWriter : public PageWriter {
 public:
  TiffWriter(FILE *file, int pages) : pages_(pages) {
    std::fflush(file);
    fd_ = fileno(file);
    tif_ = tiffOpenWrite(&fd_, &messages_);
  }
  ~TiffWriter() override {
    if (tif_) TIFFClose(tif_);
  }
  bool ok() const { return tif_ != nullptr; }

  int add(const TslPicture *pic, SaveContext &ctx) override {
    if (!tif_) return TSL_ERR_WRITE;
    int code = writePage(tif_, pic, ctx, index_, pages_);
    if (code == TSL_OK) ++index_;
    return code;
  }

  int finish() override {
    if (!tif_) return TSL_ERR_WRITE;
    TIFFClose(tif_);  // flushes nothing more: each page was written with its directory
    tif_ = nullptr;
    return index_ > 0 && !messages_.has ? TSL_OK : TSL_ERR_WRITE;
  }

 private:
  int pages_;
  int index_ = 0;
  int fd_ = -1;
  TiffMessages messages_;
  TIFF *tif_ = nullptr;
};

int tiffSave(FILE *file, const TslPicture *pic, SaveContext &ctx) {
  TiffWriter writer(file, 1);
  if (!writer.ok()) return TSL_ERR_WRITE;
  int code = writer.add(pic, ctx);
  if (code != TSL_OK) return code;
  return writer.finish();
}

PageWriter *tiffCreate(FILE *file, int pages, SaveContext &, int *error) {
  auto *w = new (std::nothrow) TiffWriter(file, pages < 1 ? 2 : pages);
  if (!w) {
    *error = TSL_ERR_MEMORY;
    return nullptr;
  }
  if (!w->ok()) {
    delete w;
    *error = TSL_ERR_WRITE;
    return nullptr;
  }
  return w;
}

}  // namespace

extern const FormatDef kTiffFormat = {
    "tiff", "Tagged Image File Format", "tif;tiff",
    {{1, 2, -1, -1}, {2, 256, -1, -1}, {4, 256, -1, -1}, {TSL_KIND_TRUECOLOR, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, true, tiffSniff, tiffInfo, tiffLoad, tiffSave, tiffCreate};

}  // namespace tessel
