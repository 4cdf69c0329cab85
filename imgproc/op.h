// The calling convention shared by every picture operation: working
// rectangle, destination handling, status codes, row fetcher, bit helpers and
// the table appliers.  No X, no Motif.
#ifndef QUILLA_IMGPROC_OP_H
#define QUILLA_IMGPROC_OP_H

#include <cstddef>
#include <cstdint>
#include <functional>

#include "tessel.h"

namespace quilla {

// Status of an operation (OpStatus).
enum OpStatus {
  kOpDone = 0,
  kOpNoMemory = 1,      // a tslAllock or a working buffer failed; nothing changed
  kOpEmptyRect = 16,    // the clipped working rectangle is empty (also: bad size)
  kOpNotBilevel = 17,   // the operation does not accept a bilevel picture
};

// Working rectangle; a null pointer means the whole picture.
struct OpRect {
  int32_t x, y, width, height;
};

// Resample codes of the resize parameters (and of the Resize.Resample setting).
enum OpResample {
  kResampleLinear = 1,   // bilinear
  kResampleQuick = 2,    // nearest neighbour
  kResampleBicubic = 3,  // Catmull-Rom bicubic
  kResampleLanczos = 4,  // Lanczos, 3 lobes
};

// The parameter block of a process entry: four integers, three reals and the
// resize fields, plus the few extras our own operations take.
struct OpParams {
  int32_t i[4] = {0, 0, 0, 0};
  double r[3] = {0, 0, 0};
  int32_t width = 0, height = 0;                 // new size in pixels
  int16_t width_percent = 0, height_percent = 0; // new size in percent (used when > 0)
  int16_t keep_ratio = 0;
  int16_t resample = kResampleLinear;
  int16_t only_decrease = 0, only_increase = 0;
  uint32_t word = 0;        // carried, never interpreted (65536 for Resize and Resize Canvas)
  uint32_t background = 0;  // 0xRRGGBB fill for canvas growth and rotation
  uint32_t seed = 1;        // random operations are repeatable for a given seed
};

// Uniform entry point of every catalogue operation.
using OpFunc = int (*)(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &params);

// Clips a rectangle (nullptr = whole picture) to the picture.  Returns false
// when the result is empty (the operation then returns kOpEmptyRect).
bool ClipRect(const TslPicture *pic, const OpRect *rect, OpRect *out);

// Allocates dst like src (model, allocation parameter, size) and copies
// pixels, palette, attributes, colour count and transparent index.
// Returns kOpDone or kOpNoMemory (dst left empty).
int CopyToDest(const TslPicture *src, TslPicture *dst);

// For operations that build their result in a fresh record: when dst is
// given the result is moved there; otherwise the source's buffers are freed
// and the result moved into the source record.
void HandOver(TslPicture *src, TslPicture *dst, TslPicture *result);

// Copies row `row` (clamped to 0..height-1) into buf starting size/2 pixels
// in and replicates the first and last pixel into the size/2 pixels on each
// side.  buf holds (width + size - 1) * bytes_per_pixel bytes.
void FetchBorderRow(uint8_t *buf, const TslPicture *pic, int row, int size);

inline int GetBit(const uint8_t *row, int x) { return (row[x / 8] >> (7 - x % 8)) & 1; }
inline void SetBit(uint8_t *row, int x, int v) {
  row[x / 8] = static_cast<uint8_t>((row[x / 8] & ~(1 << (7 - x % 8))) | ((v & 1) << (7 - x % 8)));
}

inline uint8_t *RowOf(TslPicture *p, uint32_t y) { return p->pixels + static_cast<size_t>(y) * p->bytes_per_line; }
inline const uint8_t *RowOf(const TslPicture *p, uint32_t y) {
  return p->pixels + static_cast<size_t>(y) * p->bytes_per_line;
}

// Runs fn(first, last) over the rows [begin, end) split into contiguous
// bands, one per processor, when the work (rows x bytes_per_row) is large
// enough to pay for the threads; otherwise, or when a thread cannot be
// started, the bands run on the calling thread.  fn must only write rows of
// its own band.
void ParallelRows(int begin, int end, size_t bytes_per_row, const std::function<void(int, int)> &fn);
// Runs fn(0) .. fn(count - 1), each task on its own thread (task 0 on the
// calling thread); tasks whose thread cannot be started run on the caller.
void ParallelFor(int count, const std::function<void(int)> &fn);
// The number of bands ParallelRows would use for that work.
int ParallelBandCount(int rows, size_t bytes_per_row);

// Point operations by table (one table, or one per channel).
int ApplyLut(TslPicture *src, TslPicture *dst, const OpRect *rect, const uint8_t table[256]);
int ApplyLut3(TslPicture *src, TslPicture *dst, const OpRect *rect, const uint8_t r[256], const uint8_t g[256],
              const uint8_t b[256]);

}  // namespace quilla

#endif
