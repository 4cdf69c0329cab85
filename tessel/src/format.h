// Internal interface between the library core and the format modules.
#ifndef TESSEL_SRC_FORMAT_H
#define TESSEL_SRC_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "tessel.h"

namespace tessel {

// A whole input file, mapped into memory.  Readers never look outside
// data[0 .. size).
struct Source {
  const uint8_t *data = nullptr;
  size_t size = 0;
  const char *path = "";
};

// Everything a reader needs besides the bytes: the caller's parameters, the
// pixel limit, progress reporting, the damaged-file policy and a message slot
// for TSL_ERR_BAD_FILE.
class LoadContext {
 public:
  explicit LoadContext(const TslParams &params);

  const TslParams &params() const { return params_; }
  int page() const { return params_.page; }
  bool keepDamaged() const { return (params_.flags & TSL_FLAG_KEEP_DAMAGED) != 0; }
  uint64_t maxPixels() const { return max_pixels_; }
  // Requested reduced size, 0 when the full picture is wanted.
  int targetWidth() const { return params_.target_width; }
  int targetHeight() const { return params_.target_height; }

  // True when width x height is allowed (non-zero and within the pixel limit).
  bool sizeAllowed(uint64_t width, uint64_t height) const;
  // tslAllock with the pixel limit of these parameters: TSL_OK or TSL_ERR_MEMORY.
  int alloc(TslPicture *picture, int color_model, uint32_t width, uint32_t height);

  // Reports done/total to the progress callback (when the percentage moved)
  // and returns true when the caller asked to stop.
  bool progress(uint64_t done, uint64_t total);
  bool stopped() const { return stopped_; }

  // printf-style message for TSL_ERR_BAD_FILE.
  void setMessage(const char *format, ...) __attribute__((format(printf, 2, 3)));
  // A failed step's code, its message (when it wrote one) kept as the load's.
  int fail(int code, const char *message);
  const char *message() const { return message_; }

 private:
  const TslParams &params_;
  uint64_t max_pixels_;
  int last_percent_ = -1;
  bool stopped_ = false;
  char message_[256] = {0};
};

class SaveContext {
 public:
  explicit SaveContext(const TslParams &params) : params_(params) {}
  const TslParams &params() const { return params_; }
  // Progress of a save; a save cannot be stopped, the callback's answer is ignored.
  void progress(uint64_t done, uint64_t total);

 private:
  const TslParams &params_;
  int last_percent_ = -1;
};

// How sure a sniff is: strong magic numbers are tried before weak ones, and
// formats without any are chosen only by extension.
enum Magic { kMagicNone = 0, kMagicWeak = 1, kMagicStrong = 2 };

// Multi-page writer state, owned by the format module.
struct PageWriter {
  virtual ~PageWriter() = default;
  virtual int add(const TslPicture *picture, SaveContext &ctx) = 0;
  // Finishes the file; the FILE itself is closed by the core.
  virtual int finish() = 0;
};

struct FormatDef {
  const char *name;          // short name, at most 10 characters
  const char *description;
  const char *extensions;    // "jpg;jpeg;jpe": the first is the default suffix
  TslCapability caps[TSL_MAX_CAPS];  // writer's accepted kinds, ended by kind -1
  Magic magic;
  bool multi_read;           // several pages or frames are read

  // Content test on the first bytes of the file (size may be small).
  bool (*sniff)(const uint8_t *data, size_t size);
  // Fills width, height, bits, planes, colors, model, compression, pages...
  // (format index, message and the release of comment/delays are the core's).
  int (*info)(const Source &src, int page, TslFileInfo *info);
  // Decodes page ctx.page() into *picture (allocated with ctx.alloc).
  int (*load)(const Source &src, TslPicture *picture, LoadContext &ctx);
  // Writes one picture to an open file.
  int (*save)(FILE *file, const TslPicture *picture, SaveContext &ctx);
  // Starts a multi-page file; nullptr when the format has no such writer.
  PageWriter *(*create)(FILE *file, int pages, SaveContext &ctx, int *error);
};

// The format table, in the library's order.
int formatCount();
const FormatDef &formatAt(int index);

// File information of a headerless file (raw, yuv) with the geometry and
// channel layout of `params`; -1 when `format` is not headerless.
int headerlessInfo(const FormatDef &format, const Source &src, const TslParams &params, TslFileInfo *info);

// Row helpers shared by the writers (any colour model in).
inline uint32_t packedLine(uint32_t width) { return (width + 7) / 8; }
inline int getBit(const uint8_t *row, uint32_t x) { return (row[x / 8] >> (7 - x % 8)) & 1; }
inline void setBit(uint8_t *row, uint32_t x, int v) {
  row[x / 8] = static_cast<uint8_t>((row[x / 8] & ~(0x80 >> (x % 8))) | ((v & 1) << (7 - x % 8)));
}
inline uint8_t *rowOf(TslPicture *p, uint32_t y) { return p->pixels + static_cast<size_t>(y) * p->bytes_per_line; }
inline const uint8_t *rowOf(const TslPicture *p, uint32_t y) {
  return p->pixels + static_cast<size_t>(y) * p->bytes_per_line;
}
// Offsets of red, green, blue and alpha (-1: none) inside a true-colour pixel.
struct ChannelLayout { int r, g, b, a; };
ChannelLayout channelLayout(int color_model);

// Sets a grey ramp of n entries (0..255) in a palette.
void greyPalette(uint8_t *palette, int n);

// True when every palette entry in use is grey (r == g == b).
bool paletteIsGrey(const TslPicture *picture);

// The size of a sw x sh picture fitted inside bw x bh with its aspect kept
// (at least 1 x 1).  False when it already fits: nothing to reduce.
bool fitInside(uint64_t sw, uint64_t sh, uint64_t bw, uint64_t bh, uint64_t *dw, uint64_t *dh);

// Reduces a picture to fit width x height (aspect kept) by area averaging.
// Indexed and bilevel pictures come back as true colour or grey.  Returns a
// TSL_ code; on success *picture is replaced.
int reducePicture(TslPicture *picture, int width, int height);

}  // namespace tessel

#endif
