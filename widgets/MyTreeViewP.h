/* MyTreeView: class, instance and item records. */
#ifndef QUILLA_WIDGETS_MYTREEVIEWP_H
#define QUILLA_WIDGETS_MYTREEVIEWP_H

#include <Xm/PrimitiveP.h>

#include "widgets/MyTreeView.h"

typedef struct {
  int empty;
} MyTreeViewClassPart;

typedef struct _MyTreeViewClassRec {
  CoreClassPart core_class;
  XmPrimitiveClassPart primitive_class;
  MyTreeViewClassPart tree_class;
} MyTreeViewClassRec;

extern MyTreeViewClassRec myTreeViewClassRec;

struct _MyTreeViewItem {
  XmString label;
  char *text;
  Dimension label_width; /* pixel width + 4 */
  Dimension label_height;
  Pixmap pixmap, expand_pixmap; /* XmUNSPECIFIED_PIXMAP when absent */
  Dimension pixmap_width, pixmap_height;
  unsigned int pixmap_depth;
  unsigned char expandable, expanded, selected;
  int depth;
  int child_count;
  int row; /* among the shown rows, -1 when hidden */
  struct _MyTreeViewItem *parent, *first_child, *prev, *next;
};

typedef struct {
  Pixmap pixmap;
  unsigned int width, height, depth;
} MyTreeViewPixmapSize;

typedef struct {
  /* resources */
  XtCallbackList select_callback, expand_callback, collapse_callback, activate_callback;
  XmFontList font_list;
  Dimension indentation;
  /* state */
  MyTreeViewItem *root, *selected;
  Dimension row_height;
  Boolean suspended;    /* by the caller */
  int busy;             /* nested internal suspensions */
  Boolean layout_valid; /* rows match the tree */
  MyTreeViewItem **rows;
  int row_count, row_alloc;
  Dimension content_width;
  GC text_gc, select_gc, select_text_gc, line_gc;
  Time last_click;
  MyTreeViewItem *last_click_item;
  unsigned long deletions; /* counts removals, to notice them in callbacks */
  MyTreeViewPixmapSize pixmap_sizes[4]; /* sizes of the pictures seen last */
  int next_pixmap_size;
  Widget key_clip;
  /* own scroll bars (MyCreateScrolledTreeView) and the offsets they set */
  Widget vsb, hsb;
  int top, left; /* the scrolled window's clip, whose page keys we take */
} MyTreeViewPart;

typedef struct _MyTreeViewRec {
  CorePart core;
  XmPrimitivePart primitive;
  MyTreeViewPart tree;
} MyTreeViewRec, *MyTreeViewWidget;

#endif
