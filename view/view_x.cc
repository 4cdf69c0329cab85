// The view window QuillView (being built: entry points only for now).
#include "view/view_x.h"

#include <Xm/Xm.h>
#include <Xm/RowColumn.h>

#include <cstdlib>

namespace quilla {

Widget OpenViewOnFile(Widget, const char *, int) { return nullptr; }
Widget OpenViewOnList(Widget, FileListEntry *list, int, int) {
  std::free(list);
  return nullptr;
}
void ViewDoCommandAction(Widget, XEvent *, String *, Cardinal *) {}
void ViewKeyScrollAction(Widget, XEvent *, String *, Cardinal *) {}
void ViewCloseAction(Widget, XEvent *, String *, Cardinal *) {}
void RunViewCommand(Widget, const char *) {}
Widget CreateViewMenuBar(Widget parent) { return XmCreateMenuBar(parent, const_cast<char *>("MenuBar"), nullptr, 0); }
int ViewCount() { return 0; }
void FreeToolbarPixmaps() {}

}  // namespace quilla
