// Lossless JPEG rotation and flipping in place: the DCT coefficients are
// rearranged by libturbojpeg's transform (partial edge blocks left where
// they are, every marker copied), the EXIF orientation is folded into the
// transform and reset to 1, and the result replaces the source through a
// flushed temporary file.  A failure at any stage leaves the source as it
// was, byte for byte.
#ifndef QUILLA_FILES_JPEGTRANS_H
#define QUILLA_FILES_JPEGTRANS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace quilla {

// The transform codes of the dialog.
enum JpegTransformCode {
  kJpegNone = 0,       // the file is rewritten unchanged
  kJpegRotate90 = 1,   // clockwise
  kJpegRotate180 = 2,
  kJpegRotate270 = 3,  // clockwise
  kJpegFlipV = 4,
  kJpegFlipH = 5,
};

// The temporary name: the path with its last character replaced by "_".
std::string JpegTempPath(const std::string &path);

// The EXIF orientation (1..8) of a JPEG held in memory; 0 when it has no
// EXIF block or no valid orientation.
int JpegExifOrientation(const uint8_t *data, size_t size);

// The EXIF pixel width and height (the EXIF directory's); false when the
// file records none.
bool JpegExifPixelSize(const uint8_t *data, size_t size, uint32_t *width, uint32_t *height);

// Edits the EXIF block of a JPEG in memory: the orientation, when present,
// becomes 1, and with `swap_dimensions` the EXIF pixel width and height
// (and the first directory's width and length) trade places.  The length
// never changes.  False when there is no EXIF block to edit.
bool JpegResetExifOrientation(uint8_t *data, size_t size, bool swap_dimensions);

// The transform a picture shown with EXIF orientation `orientation` needs so
// that its pixels, turned by `code` as the user saw them, display the same
// with orientation 1: a libturbojpeg operation (TJXOP_*).
int JpegCombinedOperation(int code, int orientation);

// Transforms a JPEG held in memory.  False with the library's reason in
// *error when it is no JPEG the library can transform.
bool TransformJpegData(const std::vector<uint8_t> &source, int code, std::vector<uint8_t> *result,
                       std::string *error);

// Transforms the file at `path` in place.  Returns 1 on success, 0 on
// failure (the source untouched, no temporary file left; an existing file
// with the temporary name is never overwritten).
int TransformJpegFile(const std::string &path, int code);

}  // namespace quilla

#endif
