// The parts of a path as text, without touching the file system: shared by
// the program's dialogs and models and by the converter.
#ifndef QUILLA_IMGPROC_PATH_TEXT_H
#define QUILLA_IMGPROC_PATH_TEXT_H

#include <string>

namespace quilla {

// The text after the last "/" (the whole path when there is none).
std::string FileNamePart(const std::string &path);
// The text before the last "/": "/" for a file at the root, "" when the
// path has no "/".
std::string DirectoryPart(const std::string &path);
// The text up to and with the last "/"; "" when the path has none.
std::string DirectoryWithSlash(const std::string &path);

}  // namespace quilla

#endif
