// libtiff plumbing shared by the TIFF reader and writer: client procedures
// over the in-memory input and over the output file descriptor, and
// per-handle message handlers (warnings dropped, the first error kept).
#ifndef TESSEL_SRC_FORMATS_TIFF_IO_H
#define TESSEL_SRC_FORMATS_TIFF_IO_H

#include <tiffio.h>

#include <cstddef>
#include <cstdint>

namespace tessel {

struct TiffMessages {
  char text[256] = {0};
  bool has = false;
};

struct TiffMemory {
  const uint8_t *data;
  uint64_t size;
  uint64_t pos;
};

// Opens an in-memory file for reading; no single allocation of libtiff may
// exceed max_alloc bytes.  nullptr on failure (messages->text says why).
TIFF *tiffOpenMemory(TiffMemory *mem, TiffMessages *messages, uint64_t max_alloc);

// Opens a descriptor for writing a new file from its current position.
TIFF *tiffOpenWrite(int *fd, TiffMessages *messages);

}  // namespace tessel

#endif
