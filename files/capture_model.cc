// Window list, id parsing and the xwd run of the screen capture.
#include "files/capture_model.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace quilla {

namespace {

void Walk(const CaptureWindow &w, std::vector<std::string> *lines) {
  if (w.has_name && w.viewable && !w.input_only) {
    char id[16];
    std::snprintf(id, sizeof id, "%x", w.id);
    lines->push_back(w.name + " (" + id + ")");
  }
  for (const CaptureWindow &c : w.children) Walk(c, lines);
}

}  // namespace

std::vector<std::string> CaptureWindowList(const CaptureWindow &root) {
  std::vector<std::string> lines;
  Walk(root, &lines);
  return lines;
}

bool WindowIdFromLine(const std::string &line, uint32_t *id) {
  const size_t open = line.rfind('(');
  if (open == std::string::npos) return false;
  const char *start = line.c_str() + open + 1;
  char *end = nullptr;
  errno = 0;
  const unsigned long v = std::strtoul(start, &end, 16);
  if (end == start || errno != 0 || v > 0xffffffffUL || *start == '-' || *start == '+') return false;
  *id = static_cast<uint32_t>(v);
  return true;
}

std::vector<std::string> CaptureArguments(CaptureMode mode, bool decorations, const uint32_t *window,
                                          const std::string &out) {
  switch (mode) {
    case CaptureMode::kSingle:
      return {"xwd", "-silent", decorations ? "-frame" : "-nobdrs", "-out", out};
    case CaptureMode::kDesktop:
      return {"xwd", "-root", "-out", out};
    case CaptureMode::kSelect: {
      if (!window) return {};
      char id[16];
      std::snprintf(id, sizeof id, "0x%x", *window);
      return {"xwd", "-silent", "-nobdrs", "-id", id, "-out", out};
    }
  }
  return {};
}

std::string MakeCaptureFile() {
  const char *base = std::getenv("TMPDIR");
  std::string templ = std::string(base && *base ? base : "/tmp") + "/quilla-capture-XXXXXX";
  const int fd = ::mkstemp(&templ[0]);
  if (fd < 0) return std::string();
  ::close(fd);
  return templ;
}

int RunAndWait(const std::vector<std::string> &args) {
  if (args.empty()) return -1;
  std::vector<char *> argv;
  for (const std::string &a : args) argv.push_back(const_cast<char *>(a.c_str()));
  argv.push_back(nullptr);
  const pid_t child = ::fork();
  if (child < 0) return -1;
  if (child == 0) {
    ::execvp(argv[0], argv.data());
    ::_exit(127);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace quilla
