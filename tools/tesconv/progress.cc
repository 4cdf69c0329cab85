// The progress line tesconv shows on a terminal while it converts.
#include <cstdio>
#include <string>

#include "tools/tesconv/tesconv.h"

namespace quilla {

namespace {

// "m:ss", or "h:mm:ss" from an hour on.
std::string Clock(double seconds) {
  long s = seconds < 0 ? 0 : static_cast<long>(seconds + 0.5);
  char buf[32];
  if (s >= 3600)
    std::snprintf(buf, sizeof buf, "%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
  else
    std::snprintf(buf, sizeof buf, "%ld:%02ld", s / 60, s % 60);
  return buf;
}

}  // namespace

std::string ProgressLine(size_t done, size_t total, const std::string &name, double elapsed, size_t width) {
  // The estimate is the mean time per finished file times the files left;
  // before the first file ends there is nothing to base it on.
  const std::string left = done == 0 || done >= total ? "--:--" : Clock(elapsed / done * (total - done));
  char head[96];
  std::snprintf(head, sizeof head, "[%zu/%zu] %s elapsed, %s left  ", done, total, Clock(elapsed).c_str(),
                left.c_str());
  std::string line = head;
  if (width == 0) width = 80;
  // One column stays free so the terminal never wraps the line.
  const size_t room = line.size() + 1 < width ? width - 1 - line.size() : 0;
  if (name.size() <= room)
    line += name;
  else if (room > 3)
    line += "..." + name.substr(name.size() - (room - 3));
  return line.size() < width ? line : line.substr(0, width - 1);
}

}  // namespace quilla
