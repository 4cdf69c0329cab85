// What the file properties dialog shows, and the size texts.  Toolkit-free.
#ifndef QUILLA_VIEW_PROPERTIES_MODEL_H
#define QUILLA_VIEW_PROPERTIES_MODEL_H

#include <string>
#include <vector>

#include "tessel.h"

namespace quilla {

// A byte count as "%ld bytes" below 1024, then "%.2lf Kb", "%.2lf Mb" and
// "%.2lf Gb" in steps of 1024.
std::string SizeText(double bytes);

// The words for an EXIF orientation 1..8; "" for any other value.
const char *OrientationText(int orientation);

// One line of the dialog: a name for its widgets ("File", "Size", ...), the
// caption and the value.
struct PropertyLine {
  std::string name, caption, value;
};

// The lines for `path` of `size` bytes with the library's information on
// it: file, size, format, dimensions, colours, compression, resolution,
// then pages, orientation and comment when the file has them.
std::vector<PropertyLine> PropertyLines(const std::string &path, long long size, const TslFileInfo &info);

}  // namespace quilla

#endif
