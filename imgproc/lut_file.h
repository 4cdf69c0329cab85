// LUT text files: the tables that map 10-bit film samples to 8 bits when
// loading and 8 bits to 10 when saving (Cineon and DPX).  Read by the
// program's load and save and by the converter's -lut10to8 and -lut8to10.
#ifndef QUILLA_IMGPROC_LUT_FILE_H
#define QUILLA_IMGPROC_LUT_FILE_H

#include <cstdint>
#include <vector>

#include "tessel.h"

namespace quilla {

// A look-up table: three planes of `size` 16-bit entries.  An empty table
// (size 0) means no LUT is used.
struct Lut {
  std::vector<uint16_t> plane[3];
  int size = 0;
  bool empty() const { return size == 0; }
};

// Reads a LUT text file for a table of `size` entries (1024 when loading,
// 256 when saving).  Only the first 127 characters of a line count; lines
// starting with "#" are comments, lines before the header are skipped.  The
// header "LUT: <channels> <entries>" (or "lut: ...") is refused only when
// the channel count is neither 1 nor 3 and the entry count differs from
// `size`: any 1- or 3-channel header is accepted, whatever its count.
// Each later "%d" line is one entry: with 3 channels it fills the same entry
// of all three planes, otherwise the first plane in order.  Entries past
// `size` are ignored.  Returns false, leaving *lut empty, when the file is
// missing, has no header or its header is refused.
bool ReadLutFile(const char *path, int size, Lut *lut);

// Points the parameters' table at `lut` (which must outlive them); an empty
// table leaves them without one.
void UseLut(const Lut &lut, TslParams *params);

}  // namespace quilla

#endif
