// The view window QuillView: one picture, zoomed and scrolled, with its
// menus, tool bar, information label and the commands of the view.
#ifndef QUILLA_VIEW_VIEW_X_H
#define QUILLA_VIEW_VIEW_X_H

#include <X11/Intrinsic.h>

#include <cstdint>
#include <string>

#include "imgproc/op.h"
#include "tessel.h"

namespace quilla {

// One entry of the file list a view walks: the resolved path and three
// words the view fills in (4108 bytes).
struct FileListEntry {
  char path[4096];
  int32_t words[3];
};
static_assert(sizeof(FileListEntry) == 4108, "file list record size");

// Opens a view on one file (page = page index).  Returns the view's shell,
// or nullptr when the view could not be created.
Widget OpenViewOnFile(Widget parent, const char *path, int page);
// Opens a view on a list (malloc'ed; the view takes it over, and frees it at
// once when count is 1).  Returns the shell or nullptr.
Widget OpenViewOnList(Widget parent, FileListEntry *list, int count, int page);

// The named actions of the view.
void ViewDoCommandAction(Widget w, XEvent *event, String *params, Cardinal *count);
void ViewKeyScrollAction(Widget w, XEvent *event, String *params, Cardinal *count);
void ViewCloseAction(Widget w, XEvent *event, String *params, Cardinal *count);

// Runs one view command word for the window that holds `w`.  Outside a view
// (the start window) the commands that need no picture still run.
void RunViewCommand(Widget w, const char *word);

// The menus of a view, also used by the empty start window: a menu bar
// (named "MenuBar") under `parent`, with keyboard accelerators.
Widget CreateViewMenuBar(Widget parent);
// The width a menu bar needs to show its entries on one row with Help at
// the right (its own preferred width leaves Help's room out).
int MenuBarNeededWidth(Widget bar);

// Number of open views.
int ViewCount();

// Frees the tool bar pixmaps (quit).
void FreeToolbarPixmaps();

// What a view shows, for tests and for the windows that drive views.
struct ViewState {
  Widget shell = nullptr, drawing_area = nullptr;
  Window canvas = 0;  // the window the picture is drawn in
  std::string path;
  int format = -1;  // the library's format index of the file
  int list_pos = 0, list_count = 0;  // count 0 = no list
  int page = 0, pages = 1;
  double zoom = 100;
  int scroll_x = 0, scroll_y = 0;
  int org_x = 0, org_y = 0;    // the picture's top-left in the canvas
  int view_w = 0, view_h = 0;  // displayed size
  uint32_t width = 0, height = 0;
  int color_model = 0;
  bool modified = false, full_screen = false, picker = false, show_mask = false, animating = false;
  bool preview = false;  // a reduced first decode is shown; the full picture follows
};
// The state of the view holding `w`; false when `w` is in no view.
bool GetViewState(Widget w, ViewState *out);
// The shell of the index-th open view, or nullptr.
Widget ViewShellAt(int index);

// ---- for the commands of the other modules (view_hooks_x.h) ----------------

// Prepares the picture of the view holding `w` for a change: finishes a
// reduced first decode, stops an animation (the frame shown becomes the
// picture), drops the mask and keeps the undo copy when View.UseUndo.
// Returns the picture to change in place or to replace (tslFree the old one
// first), or nullptr when there is no view, it is busy or holds no picture.
TslPicture *ViewBeginChange(Widget w);
// After a successful change: marks the picture modified and redraws;
// refits when the size changed (unless View.KeepZoomFactor).
void ViewEndChange(Widget w, bool geometry_changed);
// The full picture as shown (the current page or frame) for reading, or
// nullptr (no view, busy, no picture).
const TslPicture *ViewCurrentPicture(Widget w);
// The view's file is now `path` (a save under another name): the list
// entry and label follow; format -1 keeps the format index.
void ViewSetFile(Widget w, const char *path, int format, bool modified);
// Writes every page of the view's multi-page file as PPM files into `dir`
// (as the view's own extract command does with its directory).
void ExtractViewPages(Widget w, const char *dir);
// The rectangle drawn with the left button, in picture coordinates; false
// when there is none (or it is empty).
bool ViewGetSelection(Widget w, OpRect *out);
// Shows page `page` (from 0, clamped) of the multi-page file of the view
// holding `w`, as the page commands do.
void ViewGoToPage(Widget w, int page);

}  // namespace quilla

#endif
