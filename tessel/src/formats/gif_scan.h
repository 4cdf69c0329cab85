// Structure of a GIF file found without decoding any pixels: the logical
// screen, the colour tables, and one record per frame with its graphic
// control settings and the byte offset of its image descriptor.
#ifndef TESSEL_SRC_FORMATS_GIF_SCAN_H
#define TESSEL_SRC_FORMATS_GIF_SCAN_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tessel {

struct GifFrameInfo {
  size_t offset = 0;          // position of the image separator ','
  uint32_t left = 0, top = 0, width = 0, height = 0;
  bool interlaced = false;
  const uint8_t *local_map = nullptr;  // local colour table (RGB triples), nullptr = none
  int local_count = 0;
  int disposal = 0;           // 0 unspecified, 1 keep, 2 background, 3 previous
  int transparent = -1;       // transparent index, -1 = none
  int delay = 0;              // hundredths of a second
  bool complete = true;       // the image data ends with its terminator inside the file
};

struct GifScan {
  uint32_t screen_width = 0, screen_height = 0;
  uint32_t width = 0, height = 0;  // canvas: the screen, grown to hold the first frame
  int background = 0;
  int version89 = 0;
  const uint8_t *global_map = nullptr;
  int global_count = 0;
  std::vector<GifFrameInfo> frames;
  int loop_count = -1;        // NETSCAPE2.0 repetitions, -1 = no such extension
  bool has_comment = false;
  std::string comment;
  bool truncated = false;     // the file ends before its trailer

  // The colour table frame i is drawn with (local, else global, else nullptr).
  const uint8_t *mapOf(size_t i, int *count) const;
  // True when every frame is drawn with the same colours.
  bool onePalette() const;
  // True when some pixel of some page is not covered by an opaque frame.
  bool needsAlpha() const;
};

// Returns TSL_OK, TSL_ERR_FORMAT (no GIF signature) or TSL_ERR_READ (the
// header or colour table is cut short).  A file cut inside the frames still
// scans successfully with `truncated` set.
int scanGif(const uint8_t *data, size_t size, GifScan *scan);

}  // namespace tessel

#endif
