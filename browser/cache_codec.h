// Payload codecs of the thumbnail cache: raw rows, one-call zlib, and
// baseline JPEG of quality 50 or 75 to and from memory.  Toolkit-free.
#ifndef QUILLA_BROWSER_CACHE_CODEC_H
#define QUILLA_BROWSER_CACHE_CODEC_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quilla {

enum CacheMode {
  kCacheRaw = 0,       // "None"
  kCacheZip = 1,       // "Lossless (ZIP)"
  kCacheJpegLow = 2,   // "Lossy Low (JPEG)", quality 50
  kCacheJpegHigh = 3,  // "Lossy High (JPEG)", quality 75
};

// Rows of a thumbnail: `samples` bytes per pixel (1 grey, 3 RGB), rows
// `stride` bytes apart.
struct CacheRows {
  uint32_t width = 0, height = 0, stride = 0;
  int samples = 0;
};

// Encodes height x stride bytes of rows by the mode into *out.  False when
// the codec failed (nothing is to be stored then).
bool EncodeCachePayload(int mode, const CacheRows &rows, const uint8_t *pixels, std::vector<uint8_t> *out);

// Decodes a payload into height x stride bytes at *pixels.  False when the
// payload does not decode to exactly that picture.
bool DecodeCachePayload(int mode, const CacheRows &rows, const uint8_t *data, size_t size, uint8_t *pixels);

}  // namespace quilla

#endif
