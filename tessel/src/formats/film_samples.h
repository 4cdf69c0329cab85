// Sample packing shared by the film-scan formats (Cineon and DPX): rows of
// 8-, 10-, 12- or 16-bit samples in 32-bit words of either byte order, and
// the tables that turn them into 8-bit values and back, through the caller's
// look-up table when the parameters carry one.
#ifndef TESSEL_SRC_FORMATS_FILM_SAMPLES_H
#define TESSEL_SRC_FORMATS_FILM_SAMPLES_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "../format.h"

namespace tessel {

enum class FilmPacking {
  kStream,   // samples back to back, most significant bit first, in 32-bit words
  kFilledA,  // 10 bits: three per 32-bit word from the top (two low bits spare);
             // 12 bits: one per 16-bit word, in its top bits
  kFilledB,  // the same with the spare bits at the top
};

struct FilmLayout {
  int bits = 10;  // 1, 8, 10, 12 or 16
  FilmPacking packing = FilmPacking::kFilledA;
  bool little_endian = false;
  // 10 bits filled: the first sample of a word in its low bits rather than
  // its top ones (how one-channel DPX files are commonly written).
  bool low_first = false;
};

// Bytes of a row of `count` samples, rounded up to whole 32-bit words; 0 when
// the layout is not one we read.
uint64_t filmRowBytes(const FilmLayout &layout, uint64_t count);

// Unpacks `count` samples of a row that starts at `row` (filmRowBytes bytes).
void filmUnpackRow(const FilmLayout &layout, const uint8_t *row, uint32_t count, uint16_t *out);

// Sample value -> 8 bits, per channel (0..2 colour, 3 alpha): colours through the load look-up table of the
// parameters (its index scaled from the sample range) or by linear scaling.
class FilmToEight {
 public:
  FilmToEight(int bits, const TslParams &params);
  uint8_t operator()(int channel, uint16_t v) const {
    return table_[static_cast<size_t>(channel) * size_ + (v < size_ ? v : size_ - 1)];
  }

 private:
  size_t size_;
  std::vector<uint8_t> table_;
};

// 8 bits -> a sample of `bits` bits, per channel, through the save look-up
// table of the parameters (entries are 10-bit values, rescaled to `bits`)
// or by linear scaling.
class EightToFilm {
 public:
  EightToFilm(int bits, const TslParams &params);
  uint16_t operator()(int channel, uint8_t v) const { return table_[(channel < 3 ? channel : 0) * 256 + v]; }

 private:
  std::vector<uint16_t> table_;
};

// Appends one row of 8-bit samples (padded to 32 bits) or of 10-bit samples
// (three per big-endian 32-bit word, the spare bits at the bottom, the first
// sample at the top or with low_first at the bottom) to out.
void filmPackRow(int bits, bool low_first, const uint16_t *samples, uint32_t count, std::vector<uint8_t> &out);

// Where and how a film-scan picture's samples are stored.
struct FilmImage {
  FilmLayout layout;
  uint64_t offset = 0;      // first byte of the first stored row
  uint64_t eol_padding = 0; // bytes after each row's last word
  uint32_t width = 0, height = 0;
  int channels = 3;         // 1 grey, 3 RGB, 4 RGBA
  int order[4] = {0, 1, 2, 3};  // output channel of each stored sample of a pixel
  bool flip_x = false, flip_y = false;
};

// Allocates the picture (grey, RGB or RGBA) and decodes the samples into it.
// Data that ends early fails before the allocation, or with
// TSL_FLAG_KEEP_DAMAGED leaves the missing rows black.
int filmLoadPixels(const Source &src, const FilmImage &image, TslPicture *picture, LoadContext &ctx);

// The file information of a film-scan picture: size, depth, colour model
// from the channel count, orientation, and `comment` when not empty.
void filmFillInfo(const FilmImage &image, const char *comment, TslFileInfo *info);

// Writes a picture's rows as 8- or 10-bit samples, 1 (grey), 3 (RGB) or
// 4 (RGBA) per pixel, in the layouts of filmPackRow.
int filmSavePixels(FILE *file, const TslPicture *picture, int bits, int channels, bool low_first, SaveContext &ctx);

// Big-endian fields of a header being written.
void putBe32(uint8_t *p, uint32_t v);
void putBe16(uint8_t *p, uint16_t v);
void putBeFloat(uint8_t *p, float v);

}  // namespace tessel

#endif
