// Start-up decisions that need no display.
#ifndef QUILLA_CORE_STARTUP_H
#define QUILLA_CORE_STARTUP_H

#include <cstdio>
#include <string>
#include <vector>

namespace quilla {

struct StartOptions {
  bool help = false;          // -help / -h as the first argument
  long visual_id = -1;        // -visualid, hexadecimal
  bool own = false, popup = false, browser = false, all = false, full = false, verbose = false;
  bool nores = false, force_fit = false;
  std::string slide;          // -slide <file>
  std::vector<std::string> files;  // everything from the first non-option on
};

// The option pass over argv[1..]; `open_all_default` is Start.OpenAll.
StartOptions ParseStartOptions(int argc, char **argv, bool open_all_default);
// The value of the first "-ini" that is not the last argument, or nullptr.
const char *FindIniPath(int argc, char **argv);
bool HasNoResOption(int argc, char **argv);

// The four banner lines and the usage text (each element one write).
std::vector<std::string> BannerLines();
std::vector<std::string> UsageLines(const char *argv0, const std::vector<std::string> &visual_lines);
// "                0x%x : %-15s / % 2d planes\n"
std::string VisualListLine(unsigned long id, const char *class_name, int depth);

// The fallback resource list (nullptr-terminated, 132 lines).
const char *const *FallbackResources();
int FallbackResourceCount();

}  // namespace quilla

#endif
