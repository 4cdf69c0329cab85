// The toolkit-free half of the screen capture: the window list built from a
// walk of the window tree (given as plain data), the window id read back
// from a list line, and the xwd argument vector, run without a shell.
#ifndef QUILLA_FILES_CAPTURE_MODEL_H
#define QUILLA_FILES_CAPTURE_MODEL_H

#include <cstdint>
#include <string>
#include <vector>

namespace quilla {

// One window of the tree as the X side found it.
struct CaptureWindow {
  uint32_t id = 0;
  bool has_name = false;  // XFetchName gave a name
  std::string name;
  bool viewable = false;    // map state IsViewable
  bool input_only = false;  // class InputOnly
  std::vector<CaptureWindow> children;
};

// The list lines of the tree, depth first from `root`: "%s (%x)" for every
// named, viewable, input-output window.
std::vector<std::string> CaptureWindowList(const CaptureWindow &root);

// The hexadecimal id after the last "(" of a list line; false when there is none.
bool WindowIdFromLine(const std::string &line, uint32_t *id);

enum class CaptureMode { kDesktop, kSingle, kSelect };

// The xwd arguments (program name first) writing to `out`.  Empty for
// kSelect without a selected window: nothing is to be run then.
std::vector<std::string> CaptureArguments(CaptureMode mode, bool decorations, const uint32_t *window,
                                          const std::string &out);

// A new empty file for the dump, made safely (never a guessed name);
// "" when none can be made.
std::string MakeCaptureFile();

// Runs `args` (looked up in PATH) and waits; no shell sees the words, so
// names with blanks or quotes reach the program as they are.  Returns the
// exit status, 127 when the program could not be run, -1 when no process
// could be made or it died from a signal.
int RunAndWait(const std::vector<std::string> &args);

}  // namespace quilla

#endif
