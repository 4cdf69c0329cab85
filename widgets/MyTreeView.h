/* MyTreeView: a tree of labelled items with optional pictures, one item per
 * row, indented by depth.  Made by MyCreateScrolledTreeView it scrolls itself
 * with its scrolled window's bars; as the work area of an automatic
 * XmScrolledWindow it grows to the size of its rows.  Either way the selected
 * item is scrolled into view.  Items belong to the widget; callers hold
 * pointers to them until they are deleted. */
#ifndef QUILLA_WIDGETS_MYTREEVIEW_H
#define QUILLA_WIDGETS_MYTREEVIEW_H

#include <Xm/Xm.h>

#ifdef __cplusplus
extern "C" {
#endif

extern WidgetClass myTreeViewWidgetClass;

typedef struct _MyTreeViewItem MyTreeViewItem;

/* Resources: the three callback lists (besides XmNfontList). */
#define MyNselectCallback "selectCallback"
#define MyNexpandCallback "expandCallback"
#define MyNcollapseCallback "collapseCallback"
/* Return or a double click on an item (after its expansion was toggled). */
#define MyNactivateCallback "activateCallback"
/* Pixels per depth level. */
#define MyNindentation "indentation"
#define MyCIndentation "Indentation"

/* Callback reasons. */
#define MyCR_TREE_SELECT 128
#define MyCR_TREE_EXPAND 129
#define MyCR_TREE_COLLAPSE 130
#define MyCR_TREE_ACTIVATE 131

typedef struct {
  int reason;
  XEvent *event; /* NULL when a function call caused it */
  MyTreeViewItem *item;
} MyTreeViewCallbackStruct;

Widget MyCreateTreeView(Widget parent, const char *name, ArgList args, Cardinal n);
/* The tree in a scrolled window named name + "SW" (managed; the tree is
 * returned unmanaged), with scroll bars of its own: any number of rows,
 * where an automatic scrolled window stops at the window system's 32767
 * pixels. */
Widget MyCreateScrolledTreeView(Widget parent, const char *name, ArgList args, Cardinal n);

/* Adds an item as the last child of `parent`; with no parent it becomes the
 * root when the tree has none, otherwise nothing is added and 0 returned.
 * Pictures may be XmUNSPECIFIED_PIXMAP; `expand_pixmap` shows while the item
 * is expanded and must have the size of `pixmap`. */
MyTreeViewItem *MyTreeViewAddItem(Widget w, MyTreeViewItem *parent, Boolean expandable, Boolean expanded,
                                  Pixmap pixmap, Pixmap expand_pixmap, const char *text);
/* Adds the item as the last child of the deepest last item at depth - 1
 * (an empty tree: the item becomes the root). */
MyTreeViewItem *MyTreeViewAddRow(Widget w, int depth, Boolean expandable, Boolean expanded, Pixmap pixmap,
                                 Pixmap expand_pixmap, const char *text);
/* Replace an existing item's label or pictures; the row is redrawn. */
void MyTreeViewSetItemString(Widget w, MyTreeViewItem *item, const char *text);
void MyTreeViewSetItemPixmap(Widget w, MyTreeViewItem *item, Pixmap pixmap, Pixmap expand_pixmap);

/* The label's text, a copy to XtFree (NULL for no item). */
char *MyTreeViewGetString(Widget w, MyTreeViewItem *item);
MyTreeViewItem *MyTreeViewGetRoot(Widget w);
MyTreeViewItem *MyTreeViewGetParent(Widget w, MyTreeViewItem *item);
/* First child; next sibling; previous sibling. */
MyTreeViewItem *MyTreeViewGetChildren(Widget w, MyTreeViewItem *item);
MyTreeViewItem *MyTreeViewGetNextChildren(Widget w, MyTreeViewItem *item);
MyTreeViewItem *MyTreeViewGetPrevChildren(Widget w, MyTreeViewItem *item);
MyTreeViewItem *MyTreeViewGetSelected(Widget w);

/* True suspends layout and drawing; False lays out, redraws and brings the
 * selected item into view. */
void MyTreeViewUpdate(Widget w, Boolean suspended);
Boolean MyTreeViewIsExpanded(Widget w, MyTreeViewItem *item);

/* Removes the item's children; the item stays. */
void MyTreeViewDeleteAllChild(Widget w, MyTreeViewItem *item);
/* Removes the item with its subtree. */
void MyTreeViewDeleteItem(Widget w, MyTreeViewItem *item);
void MyTreeViewDeleteAllItems(Widget w);

/* expand: 1 expands, 0 collapses; only expandable items whose state differs
 * change, with their callback. */
void MyTreeViewExpandItem(Widget w, MyTreeViewItem *item, Boolean expand);
/* Expands the collapsed ancestors, selects, calls selectCallback when the
 * selection changed, and scrolls the item into view.  NULL clears the
 * selection. */
void MyTreeViewSelectItem(Widget w, MyTreeViewItem *item);

/* Layout queries: the row height, and the item's row among the shown rows
 * (-1 when hidden or not laid out). */
int MyTreeViewGetRowHeight(Widget w);
int MyTreeViewGetItemRow(Widget w, MyTreeViewItem *item);

/* Folder pictures of 16 x 16 in the widget's depth and colours: closed, open
 * and no access.  Free them with XFreePixmap. */
void MyTreeViewFolderPixmaps(Widget w, Pixmap *closed, Pixmap *open, Pixmap *no_access);

#ifdef __cplusplus
}
#endif
#endif
