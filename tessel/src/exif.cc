// EXIF orientation from a TIFF-structured block and from the PNG and WebP
// chunks that hold one.
#include "exif.h"

#include <cstring>

#include "bytes.h"

namespace tessel {

int exifOrientation(const uint8_t *data, size_t size) {
  if (size >= 6 && std::memcmp(data, "Exif\0\0", 6) == 0) {
    data += 6;
    size -= 6;
  }
  if (size < 8) return 0;
  bool le;
  if (data[0] == 'I' && data[1] == 'I') le = true;
  else if (data[0] == 'M' && data[1] == 'M') le = false;
  else return 0;
  auto u16 = [&](size_t off) -> unsigned { return le ? le16(data + off) : be16(data + off); };
  auto u32 = [&](size_t off) -> uint32_t { return le ? le32(data + off) : be32(data + off); };
  if (u16(2) != 42) return 0;
  const uint32_t ifd = u32(4);
  if (ifd < 8 || ifd > size || size - ifd < 2) return 0;
  const unsigned count = u16(ifd);
  for (unsigned i = 0; i < count; ++i) {
    const size_t entry = ifd + 2 + static_cast<size_t>(i) * 12;
    if (entry + 12 > size) return 0;
    if (u16(entry) != 0x0112) continue;
    if (u16(entry + 2) != 3 || u32(entry + 4) != 1) return 0;  // one SHORT
    const unsigned v = u16(entry + 8);
    return v >= 1 && v <= 8 ? static_cast<int>(v) : 0;
  }
  return 0;
}

int pngExifOrientation(const uint8_t *data, size_t size) {
  size_t at = 8;  // after the signature
  while (at + 12 <= size) {
    const uint32_t length = be32(data + at);
    if (length > size - at - 12) return 0;
    const uint8_t *type = data + at + 4;
    if (std::memcmp(type, "eXIf", 4) == 0) return exifOrientation(type + 4, length);
    if (std::memcmp(type, "IEND", 4) == 0) return 0;
    at += 12 + static_cast<size_t>(length);
  }
  return 0;
}

int webpExifOrientation(const uint8_t *data, size_t size) {
  if (size < 12) return 0;
  // The RIFF size may overstate the file; the bytes present bound the walk.
  size_t end = static_cast<size_t>(le32(data + 4)) + 8;
  if (end > size) end = size;
  size_t at = 12;
  while (at + 8 <= end) {
    const uint32_t length = le32(data + at + 4);
    if (length > end - at - 8) return 0;
    if (std::memcmp(data + at, "EXIF", 4) == 0) return exifOrientation(data + at + 8, length);
    at += 8 + static_cast<size_t>(length) + (length & 1);
  }
  return 0;
}

}  // namespace tessel
