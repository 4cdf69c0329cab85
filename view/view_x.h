// The view window QuillView: one picture, zoomed and scrolled, with its
// menus, tool bar, information label and the commands of the view.
#ifndef QUILLA_VIEW_VIEW_X_H
#define QUILLA_VIEW_VIEW_X_H

#include <X11/Intrinsic.h>

#include <cstdint>

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

// Number of open views.
int ViewCount();

// Frees the tool bar pixmaps (quit).
void FreeToolbarPixmaps();

}  // namespace quilla

#endif
