// The parts of a path as text.
#include "imgproc/path_text.h"

namespace quilla {

std::string FileNamePart(const std::string &path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string DirectoryPart(const std::string &path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return std::string();
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string DirectoryWithSlash(const std::string &path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

}  // namespace quilla
