// Menus and tool bar of the view window (internal to view/).
#ifndef QUILLA_VIEW_VIEW_MENUS_X_H
#define QUILLA_VIEW_VIEW_MENUS_X_H

#include <X11/Intrinsic.h>

namespace quilla {

// The pop-up menu "MenuPopup" used instead of the menu bar.
Widget CreateViewPopupMenu(Widget parent);
// The tool bar "toolBar" (unmanaged; the caller manages it).
Widget CreateViewToolBar(Widget parent);
// A fit mode chosen from the fit menu of the view holding `w`.
void SetViewFitMode(Widget w, int mode);

}  // namespace quilla

#endif
