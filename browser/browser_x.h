// The browser window "Browser": the directory tree, the icon view of one
// directory drawn from the file list, the preview pane, the tool bar and
// the status bar, driven by command words (BrowserDoCommand), with the
// thumbnail loop running as a work procedure.
#ifndef QUILLA_BROWSER_BROWSER_X_H
#define QUILLA_BROWSER_BROWSER_X_H

#include <X11/Intrinsic.h>

#include <string>

namespace quilla {

class FileList;
class ThumbCache;

// Opens the browser on `directory` (nullptr: its start directory, the last
// one browsed or the start-up directory).  One browser at a time: when it is
// open already it is raised, and goes to `directory` when one is given.
// Returns its shell, or nullptr when the window could not be made.
Widget OpenBrowser(Widget parent, const char *directory);
// The browser's start directory: Browser.StartupDirectory when
// Browser.StartupIn is 2, else nullptr (its default).
const char *BrowserStartDirectory();

// The named actions BrowserDoCommand (one parameter, the command word) and
// BrowserDoPopup.
void BrowserDoCommandAction(Widget w, XEvent *event, String *params, Cardinal *count);
void BrowserDoPopupAction(Widget w, XEvent *event, String *params, Cardinal *count);
// Runs one command word in the browser (ignored when none is open).
void RunBrowserCommand(const char *word);

// The Options dialog's cache page: its list and three buttons.
void FillCachePage(Widget page);

// The process's thumbnail cache (made on first use).
ThumbCache &BrowserCache();
// Closes the thumbnail cache (quit, and at exit).
void CloseBrowserCache();

// What the browser shows, for tests.
struct BrowserState {
  Widget shell = nullptr, icon_view = nullptr;
  Window canvas = 0;       // the window the entries are drawn in
  std::string directory;   // ends with "/"
  int view_mode = 0, sort_setting = 0, columns = 0, layout = 0;
  int current = -1;        // display position of the current entry
  int scroll = 0;          // vertical scroll offset of the view
  int cell_x = 0, cell_y = 0, cell_w = 0, cell_h = 0;  // the current entry's cell in the canvas
  bool loop_running = false;
  int thumbnails = 0;      // entries holding a thumbnail of the view mode
  bool tree_shown = false, preview_shown = false, status_shown = false, tool_shown = false;
};
bool GetBrowserState(BrowserState *out);
// The listed directory's model (nullptr when no browser is open).
const FileList *BrowserFileList();

}  // namespace quilla

#endif
