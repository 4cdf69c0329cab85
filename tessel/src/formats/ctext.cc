// Identifiers for the C-source picture formats.
#include "ctext.h"

#include <unistd.h>

#include <cctype>
#include <climits>

namespace tessel {

std::string sanitizeIdentifier(const std::string &text, const char *fallback) {
  std::string id;
  for (char ch : text) {
    unsigned char c = static_cast<unsigned char>(ch);
    id += (std::isalnum(c) || c == '_') && c < 128 ? ch : '_';
  }
  if (id.empty()) return fallback;
  if (std::isdigit(static_cast<unsigned char>(id[0]))) id.insert(id.begin(), '_');
  return id;
}

std::string identifierForFile(FILE *file, const char *fallback) {
  // Saves write to a temporary file beside the target, named
  // "<target>.tsl<pid>_<n>~"; the target's base name is what the file is
  // known by afterwards.
  char link[64], path[PATH_MAX];
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", fileno(file));
  ssize_t n = readlink(link, path, sizeof path - 1);
  if (n <= 0) return fallback;
  std::string name(path, static_cast<size_t>(n));
  size_t slash = name.rfind('/');
  if (slash != std::string::npos) name.erase(0, slash + 1);
  if (!name.empty() && name.back() == '~') {
    size_t tsl = name.rfind(".tsl");
    if (tsl != std::string::npos) {
      bool temp = true;
      for (size_t i = tsl + 4; i + 1 < name.size(); ++i)
        if (!std::isdigit(static_cast<unsigned char>(name[i])) && name[i] != '_') temp = false;
      if (temp) name.erase(tsl);
    }
  }
  size_t dot = name.rfind('.');
  if (dot != std::string::npos && dot > 0) name.erase(dot);
  return sanitizeIdentifier(name, fallback);
}

}  // namespace tessel
