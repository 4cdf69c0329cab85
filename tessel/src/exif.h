// EXIF orientation: the tag that says how a stored picture is turned or
// mirrored relative to how it is meant to be seen, found in the containers
// that carry it.  Every reader checks each offset against the bytes it has.
#ifndef TESSEL_SRC_EXIF_H
#define TESSEL_SRC_EXIF_H

#include <cstddef>
#include <cstdint>

namespace tessel {

// The Orientation (1..8) of IFD0 of a TIFF-structured EXIF block, with or
// without the "Exif\0\0" prefix of JPEG's APP1 marker; 0 when absent or bad.
int exifOrientation(const uint8_t *data, size_t size);

// The orientation stored in a PNG file's eXIf chunk, 0 when none.
int pngExifOrientation(const uint8_t *data, size_t size);

// The orientation stored in a WebP file's EXIF chunk, 0 when none.
int webpExifOrientation(const uint8_t *data, size_t size);

}  // namespace tessel

#endif
