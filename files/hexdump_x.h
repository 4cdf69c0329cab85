// The hex dump window QuillDump: offset, sixteen bytes in hexadecimal and
// the same bytes as characters, read from the file as the view scrolls.
#ifndef QUILLA_FILES_HEXDUMP_X_H
#define QUILLA_FILES_HEXDUMP_X_H

#include <X11/Intrinsic.h>

#include <cstdint>
#include <string>

namespace quilla {

// Opens a dump window on `path`.  A file that cannot be opened or is too
// large to show is reported in the message box on `owner`; nullptr then.
Widget OpenHexDump(Widget owner, const std::string &path);

// "View Files...", then a dump window on each chosen file.
void ViewHexaCommand(Widget owner);

// What a dump window shows, for tests.
struct HexDumpState {
  Widget shell = nullptr;
  std::string path;
  uint64_t lines = 0;    // the file's line count
  int top = 0;           // the first line shown (the scroll bar's value)
  int visible = 0;       // lines that fit in the window
  int scroll_max = 0;    // the scroll bar's maximum
  int slider = 0;        // its slider size
  std::string first_line;  // the text of the top line ("" when none)
};
int HexDumpCount();
Widget HexDumpShellAt(int index);
bool GetHexDumpState(Widget shell, HexDumpState *out);

}  // namespace quilla

#endif
