// MyTreeView: a Motif primitive drawing a tree of items from its own records
// (no child widget per item).  Rows are the items whose ancestors are all
// expanded, in depth-first order; each row shows connecting lines, an expand
// box for expandable items, the picture and the label.
#include "widgets/MyTreeViewP.h"

#include <Xm/DrawP.h>
#include <Xm/ScrollBar.h>
#include <Xm/ScrolledW.h>
#include <Xm/XmP.h>
#include <X11/keysym.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#define Tree(w) (reinterpret_cast<MyTreeViewWidget>(w)->tree)

namespace {

const int kBoxSize = 9;        // the expand box, odd so its sign is centred
const int kPictureOffset = 13;  // from the box's left edge to the picture
const char kPixmapWarning[] = "TreeViewSetItemPixmap: pixmap and expand_pixmap have not the same size !";

char defaultTranslations[] =
    "<Btn1Down>: TreeClick()\n"
    "<Btn4Down>: TreeWheel(up)\n"
    "<Btn5Down>: TreeWheel(down)\n"
    "<Key>osfUp: TreeMove(up)\n"
    "<Key>osfDown: TreeMove(down)\n"
    "<Key>osfPageUp: TreeMove(pageup)\n"
    "<Key>osfPageDown: TreeMove(pagedown)\n"
    "<Key>osfBeginLine: TreeMove(home)\n"
    "<Key>osfEndLine: TreeMove(end)\n"
    "~s ~c <Key>Home: TreeMove(home)\n"
    "~s ~c <Key>End: TreeMove(end)\n"
    "<Key>osfLeft: TreeLeft()\n"
    "<Key>osfRight: TreeRight()\n"
    "<Key>plus: TreeRight()\n"
    "<Key>minus: TreeLeft()\n"
    "<Key>KP_Add: TreeRight()\n"
    "<Key>KP_Subtract: TreeLeft()\n"
    "<Key>Return: TreeActivate()\n"
    "<Key>KP_Enter: TreeActivate()\n"
    "<Key>osfActivate: TreeActivate()\n"
    "<Key>space: TreeActivate()\n"
    "s ~m ~a <Key>Tab: PrimitivePrevTabGroup()\n"
    "~m ~a <Key>Tab: PrimitiveNextTabGroup()\n"
    "<FocusIn>: PrimitiveFocusIn()\n"
    "<FocusOut>: PrimitiveFocusOut()\n"
    "<Unmap>: PrimitiveUnmap()\n"
    ":<Key>osfHelp: PrimitiveHelp()";

void ActClick(Widget w, XEvent *event, String *, Cardinal *);
void ActMove(Widget w, XEvent *event, String *params, Cardinal *count);
void ActLeft(Widget w, XEvent *event, String *, Cardinal *);
void ActRight(Widget w, XEvent *event, String *, Cardinal *);
void ActActivate(Widget w, XEvent *event, String *, Cardinal *);
void ClipKeys(Widget, XtPointer closure, XEvent *event, Boolean *go_on);
void ActWheel(Widget w, XEvent *event, String *params, Cardinal *count);

XtActionsRec actions[] = {
    {const_cast<char *>("TreeClick"), ActClick},       {const_cast<char *>("TreeMove"), ActMove},
    {const_cast<char *>("TreeLeft"), ActLeft},         {const_cast<char *>("TreeRight"), ActRight},
    {const_cast<char *>("TreeActivate"), ActActivate}, {const_cast<char *>("TreeWheel"), ActWheel},
};

XtResource resources[] = {
    {const_cast<char *>(MyNselectCallback), const_cast<char *>(XmCCallback), XmRCallback, sizeof(XtCallbackList),
     XtOffsetOf(MyTreeViewRec, tree.select_callback), XmRImmediate, nullptr},
    {const_cast<char *>(MyNexpandCallback), const_cast<char *>(XmCCallback), XmRCallback, sizeof(XtCallbackList),
     XtOffsetOf(MyTreeViewRec, tree.expand_callback), XmRImmediate, nullptr},
    {const_cast<char *>(MyNcollapseCallback), const_cast<char *>(XmCCallback), XmRCallback,
     sizeof(XtCallbackList), XtOffsetOf(MyTreeViewRec, tree.collapse_callback), XmRImmediate, nullptr},
    {const_cast<char *>(MyNactivateCallback), const_cast<char *>(XmCCallback), XmRCallback,
     sizeof(XtCallbackList), XtOffsetOf(MyTreeViewRec, tree.activate_callback), XmRImmediate, nullptr},
    {const_cast<char *>(XmNfontList), const_cast<char *>(XmCFontList), XmRFontList, sizeof(XmFontList),
     XtOffsetOf(MyTreeViewRec, tree.font_list), XmRImmediate, nullptr},
    {const_cast<char *>(MyNindentation), const_cast<char *>(MyCIndentation), XmRDimension, sizeof(Dimension),
     XtOffsetOf(MyTreeViewRec, tree.indentation), XmRImmediate, reinterpret_cast<XtPointer>(18)},
};

void Initialize(Widget req, Widget w, ArgList, Cardinal *);
void Destroy(Widget w);
void Redisplay(Widget w, XEvent *event, Region region);
void Realize(Widget w, XtValueMask *mask, XSetWindowAttributes *attrs);
void Resize(Widget w);
Boolean SetValues(Widget old, Widget req, Widget w, ArgList, Cardinal *);
void Highlight(Widget w);
void Unhighlight(Widget w);

}  // namespace

MyTreeViewClassRec myTreeViewClassRec = {
    {
        reinterpret_cast<WidgetClass>(&xmPrimitiveClassRec),  // superclass
        const_cast<char *>("MyTreeView"),                      // class_name
        sizeof(MyTreeViewRec),                                 // widget_size
        nullptr, nullptr, False,                               // class_initialize, part init, inited
        Initialize, nullptr,                                   // initialize, hook
        Realize, actions, XtNumber(actions),                   // realize, actions, num_actions
        resources, XtNumber(resources), NULLQUARK,             // resources
        True, XtExposeCompressMaximal, True, False,            // compress motion/exposure/enterleave, visible
        Destroy, Resize, Redisplay,                            // destroy, resize, expose
        SetValues, nullptr, nullptr,                           // set_values, hook, almost
        nullptr, nullptr, XtVersion, nullptr,                  // get_values_hook, accept_focus, version, callbacks
        defaultTranslations, nullptr, nullptr, nullptr,        // tm_table, query_geometry, accelerator, extension
    },
    {
        Highlight, Unhighlight, nullptr, nullptr, nullptr, 0, nullptr,
    },
    {0},
};

WidgetClass myTreeViewWidgetClass = reinterpret_cast<WidgetClass>(&myTreeViewClassRec);

namespace {

bool CheckClass(Widget w, const char *function) {
  if (w && XtIsSubclass(w, myTreeViewWidgetClass)) return true;
  char text[128];
  std::snprintf(text, sizeof text, "%s: widget has invalid class", function);
  XtWarning(text);
  return false;
}

bool HavePixmap(Pixmap p) { return p != XmUNSPECIFIED_PIXMAP && p != 0; }

// ---- geometry of a row, in the coordinates of the whole tree (drawing
// subtracts the scrolled offsets `left` and `top`)

int TopMargin(Widget w) { return reinterpret_cast<MyTreeViewWidget>(w)->primitive.highlight_thickness; }
int BoxX(Widget w, int depth) { return TopMargin(w) + 2 + depth * Tree(w).indentation; }
int RowY(Widget w, int row) { return TopMargin(w) + row * Tree(w).row_height; }
int PictureX(Widget w, const MyTreeViewItem *it) { return BoxX(w, it->depth) + kPictureOffset; }
int LabelX(Widget w, const MyTreeViewItem *it) {
  return PictureX(w, it) + (HavePixmap(it->pixmap) ? it->pixmap_width + 3 : 0);
}
bool ShowsBox(const MyTreeViewItem *it) { return it->expandable && !(it->expanded && it->child_count == 0); }

bool IsBelow(const MyTreeViewItem *item, const MyTreeViewItem *ancestor) {
  for (const MyTreeViewItem *a = item ? item->parent : nullptr; a; a = a->parent)
    if (a == ancestor) return true;
  return false;
}

bool InTree(const MyTreeViewItem *first, const MyTreeViewItem *item) {
  for (const MyTreeViewItem *c = first; c; c = c->next)
    if (c == item || InTree(c->first_child, item)) return true;
  return false;
}

// ---- rows

void AddRow(MyTreeViewPart &t, MyTreeViewItem *it) {
  if (t.row_count == t.row_alloc) {
    t.row_alloc = t.row_alloc ? t.row_alloc * 2 : 64;
    t.rows = reinterpret_cast<MyTreeViewItem **>(
        XtRealloc(reinterpret_cast<char *>(t.rows), static_cast<Cardinal>(t.row_alloc * sizeof(MyTreeViewItem *))));
  }
  it->row = t.row_count;
  t.rows[t.row_count++] = it;
}

// Items under a collapsed ancestor get row -1.
void CollectFrom(Widget w, MyTreeViewItem *first, bool shown) {
  MyTreeViewPart &t = Tree(w);
  for (MyTreeViewItem *it = first; it; it = it->next) {
    if (shown) {
      AddRow(t, it);
      const int right = LabelX(w, it) + it->label_width;
      if (right > t.content_width) t.content_width = static_cast<Dimension>(right);
    } else {
      it->row = -1;
    }
    if (it->first_child) CollectFrom(w, it->first_child, shown && it->expanded);
  }
}

void CollectRows(Widget w) {
  MyTreeViewPart &t = Tree(w);
  t.row_count = 0;
  t.content_width = 0;
  CollectFrom(w, t.root, true);
  t.layout_valid = True;
}

bool CanDraw(Widget w) {
  const MyTreeViewPart &t = Tree(w);
  return XtIsRealized(w) && !t.suspended && t.busy == 0;
}

int ContentWidth(Widget w) { return Tree(w).content_width + TopMargin(w) + 2; }
int ContentHeight(Widget w) { return Tree(w).row_count * Tree(w).row_height + 2 * TopMargin(w); }

// With scroll bars of its own: their ranges follow the rows and the
// window; the offsets stay inside.  The horizontal bar shows when needed.
void UpdateScrollBars(Widget w) {
  MyTreeViewPart &t = Tree(w);
  const int view_h = w->core.height, view_w = w->core.width;
  const int content_h = ContentHeight(w), content_w = ContentWidth(w);
  if (t.top > content_h - view_h) t.top = content_h - view_h;
  if (t.top < 0) t.top = 0;
  if (t.left > content_w - view_w) t.left = content_w - view_w;
  if (t.left < 0) t.left = 0;
  const int rh = t.row_height > 0 ? t.row_height : 1;
  const int max_h = content_h > view_h ? content_h : view_h;
  XtVaSetValues(t.vsb, XmNminimum, 0, XmNmaximum, max_h, XmNsliderSize, view_h > 0 ? view_h : 1, XmNvalue, t.top,
                XmNincrement, rh, XmNpageIncrement, view_h > rh ? view_h - rh : 1, nullptr);
  const int max_w = content_w > view_w ? content_w : view_w;
  XtVaSetValues(t.hsb, XmNminimum, 0, XmNmaximum, max_w, XmNsliderSize, view_w > 0 ? view_w : 1, XmNvalue, t.left,
                XmNincrement, 8, XmNpageIncrement, view_w > 16 ? view_w - 16 : 1, nullptr);
  if (content_w > view_w && !XtIsManaged(t.hsb)) XtManageChild(t.hsb);
  else if (content_w <= view_w && XtIsManaged(t.hsb)) XtUnmanageChild(t.hsb);
}

// Collects the rows; then either sets the scroll bars or asks the parent
// for the size the rows need (an automatic scrolled window scrolls it).
void Refit(Widget w) {
  CollectRows(w);
  MyTreeViewPart &t = Tree(w);
  if (t.vsb) {
    UpdateScrollBars(w);
    return;
  }
  int width = ContentWidth(w);
  int height = ContentHeight(w);
  if (width < 1) width = 1;
  if (height < 1) height = 1;
  if (width == w->core.width && height == w->core.height) return;
  Dimension got_w = 0, got_h = 0;
  if (XtMakeResizeRequest(w, static_cast<Dimension>(width), static_cast<Dimension>(height), &got_w, &got_h) ==
      XtGeometryAlmost)
    XtMakeResizeRequest(w, got_w, got_h, nullptr, nullptr);
}

// Lays the tree out again and has the whole window redrawn, unless updates
// are suspended or there is no window yet (then the layout waits).
void Relayout(Widget w) {
  Tree(w).layout_valid = False;
  if (!CanDraw(w)) return;
  Refit(w);
  XClearArea(XtDisplay(w), XtWindow(w), 0, 0, 0, 0, True);
}

void EnsureRows(Widget w) {
  if (!Tree(w).layout_valid) CollectRows(w);
}

// ---- drawing

void DrawRow(Widget w, MyTreeViewItem *it) {
  MyTreeViewPart &t = Tree(w);
  Display *d = XtDisplay(w);
  Window win = XtWindow(w);
  const int rh = t.row_height;
  const int y0 = RowY(w, it->row) - t.top;
  const int cy = y0 + rh / 2;
  const int bx = BoxX(w, it->depth) - t.left;
  const int px = PictureX(w, it) - t.left;

  // Connecting lines: the item's own branch from its parent's column, the
  // columns of ancestors that continue below, the stem to its children.
  if (it->parent) {
    const int col = BoxX(w, it->depth - 1) - t.left + kBoxSize / 2;
    XDrawLine(d, win, t.line_gc, col, y0, col, it->next ? y0 + rh - 1 : cy);
    XDrawLine(d, win, t.line_gc, col, cy, px - 2, cy);
    for (const MyTreeViewItem *a = it->parent; a->parent; a = a->parent)
      if (a->next) {
        const int acol = BoxX(w, a->depth - 1) - t.left + kBoxSize / 2;
        XDrawLine(d, win, t.line_gc, acol, y0, acol, y0 + rh - 1);
      }
  }
  if (it->expanded && it->first_child)
    XDrawLine(d, win, t.line_gc, bx + kBoxSize / 2, cy, bx + kBoxSize / 2, y0 + rh - 1);
  if (ShowsBox(it)) {
    const int by = cy - kBoxSize / 2;
    XClearArea(d, win, bx, by, kBoxSize, kBoxSize, False);
    XDrawRectangle(d, win, t.text_gc, bx, by, kBoxSize - 1, kBoxSize - 1);
    XDrawLine(d, win, t.text_gc, bx + 2, cy, bx + kBoxSize - 3, cy);
    if (!it->expanded) XDrawLine(d, win, t.text_gc, bx + kBoxSize / 2, by + 2, bx + kBoxSize / 2, by + kBoxSize - 3);
  }

  Pixmap pic = it->expanded && HavePixmap(it->expand_pixmap) ? it->expand_pixmap : it->pixmap;
  if (HavePixmap(pic)) {
    const int py = y0 + (rh - static_cast<int>(it->pixmap_height)) / 2;
    if (it->pixmap_depth == w->core.depth)
      XCopyArea(d, pic, win, t.text_gc, 0, 0, it->pixmap_width, it->pixmap_height, px, py);
    else if (it->pixmap_depth == 1)
      XCopyPlane(d, pic, win, t.text_gc, 0, 0, it->pixmap_width, it->pixmap_height, px, py, 1);
  }

  if (it->label && t.font_list) {
    const int lx = LabelX(w, it) - t.left;
    GC gc = t.text_gc;
    if (it->selected) {
      XFillRectangle(d, win, t.select_gc, lx, y0 + 1, it->label_width, static_cast<unsigned>(rh > 2 ? rh - 2 : 1));
      gc = t.select_text_gc;
    }
    // The keyboard focus shows as a dotted frame around the selection.
    if (it->selected && reinterpret_cast<MyTreeViewWidget>(w)->primitive.highlighted)
      XDrawRectangle(d, win, t.line_gc, lx - 1, y0, it->label_width + 1, static_cast<unsigned>(rh > 1 ? rh - 1 : 1));
    XmStringDraw(d, win, t.font_list, it->label, gc, static_cast<Position>(lx + 2),
                 static_cast<Position>(y0 + (rh - static_cast<int>(it->label_height)) / 2),
                 static_cast<Dimension>(it->label_width), XmALIGNMENT_BEGINNING, XmSTRING_DIRECTION_L_TO_R, nullptr);
  }
}

void RedrawItem(Widget w, MyTreeViewItem *it) {
  if (!it || !CanDraw(w) || !Tree(w).layout_valid || it->row < 0) return;
  XClearArea(XtDisplay(w), XtWindow(w), 0, RowY(w, it->row) - Tree(w).top, w->core.width, Tree(w).row_height,
             False);
  DrawRow(w, it);
}

void Redisplay(Widget w, XEvent *, Region region) {
  if (!CanDraw(w)) return;
  EnsureRows(w);
  MyTreeViewPart &t = Tree(w);
  if (t.row_count == 0 || t.row_height == 0) return;
  int first = 0, last = t.row_count - 1;
  if (region) {
    XRectangle r;
    XClipBox(region, &r);
    first = (r.y + t.top - TopMargin(w)) / t.row_height;
    last = (r.y + r.height + t.top - TopMargin(w)) / t.row_height;
    if (first < 0) first = 0;
    if (last > t.row_count - 1) last = t.row_count - 1;
  }
  for (int i = first; i <= last; ++i) DrawRow(w, t.rows[i]);
}

// Focus in and out: the selected row is drawn with or without its frame
// (the widget may be far larger than what shows of it, so no border).
void SetHighlight(Widget w, bool on) {
  MyTreeViewWidget tw = reinterpret_cast<MyTreeViewWidget>(w);
  tw->primitive.highlighted = on ? True : False;
  tw->primitive.highlight_drawn = on ? True : False;
  RedrawItem(w, Tree(w).selected);
}
void Highlight(Widget w) { SetHighlight(w, true); }
void Unhighlight(Widget w) { SetHighlight(w, false); }

// ---- scrolling inside an XmScrolledWindow

// The clip window when the tree is the work area of an automatic one.
Widget ClipOf(Widget w) {
  Widget clip = XtParent(w);
  Widget sw = clip ? XtParent(clip) : nullptr;
  return sw && XmIsScrolledWindow(sw) ? clip : nullptr;
}


// Moves a scroll bar the least so that [lo, hi) shows, its start first.
void ScrollBarTo(Widget sb, int view, int lo, int hi) {
  if (!sb || !XtIsManaged(sb)) return;
  int value = 0, slider = 0, inc = 0, page = 0, minimum = 0, maximum = 0;
  XmScrollBarGetValues(sb, &value, &slider, &inc, &page);
  XtVaGetValues(sb, XmNminimum, &minimum, XmNmaximum, &maximum, nullptr);
  int target = value;
  if (hi > target + view) target = hi - view;
  if (lo < target) target = lo;
  if (target > maximum - slider) target = maximum - slider;
  if (target < minimum) target = minimum;
  if (target != value) XmScrollBarSetValues(sb, target, slider, inc, page, True);
}

// The scroll bars that move the tree and the size of the part that shows:
// its own, or those of the automatic scrolled window around it.
bool ScrollBars(Widget w, Widget *vsb, Widget *hsb, int *view_w, int *view_h) {
  MyTreeViewPart &t = Tree(w);
  if (t.vsb) {
    *vsb = t.vsb;
    *hsb = t.hsb;
    *view_w = w->core.width;
    *view_h = w->core.height;
    return true;
  }
  Widget clip = ClipOf(w);
  if (!clip) return false;
  *vsb = *hsb = nullptr;
  XtVaGetValues(XtParent(clip), XmNverticalScrollBar, vsb, XmNhorizontalScrollBar, hsb, nullptr);
  *view_w = clip->core.width;
  *view_h = clip->core.height;
  return true;
}

void ScrollIntoView(Widget w, MyTreeViewItem *it) {
  if (!it || !CanDraw(w)) return;
  EnsureRows(w);
  if (it->row < 0) return;
  Widget vsb, hsb;
  int view_w, view_h;
  if (!ScrollBars(w, &vsb, &hsb, &view_w, &view_h)) return;
  // The first and last rows bring the margins along.
  const MyTreeViewPart &t = Tree(w);
  const int y0 = it->row == 0 ? 0 : RowY(w, it->row);
  const int y1 = it->row == t.row_count - 1 ? ContentHeight(w) : RowY(w, it->row) + t.row_height;
  ScrollBarTo(vsb, view_h, y0, y1);
  ScrollBarTo(hsb, view_w, BoxX(w, it->depth), LabelX(w, it) + it->label_width);
}

// Own scroll bars moved: the window shows the rows from the new offsets.
void Scrolled(Widget sb, XtPointer closure, XtPointer data) {
  Widget w = static_cast<Widget>(closure);
  MyTreeViewPart &t = Tree(w);
  const int value = static_cast<XmScrollBarCallbackStruct *>(data)->value;
  int &offset = sb == t.vsb ? t.top : t.left;
  if (offset == value) return;
  offset = value;
  if (XtIsRealized(w)) XClearArea(XtDisplay(w), XtWindow(w), 0, 0, 0, 0, True);
}

void Resize(Widget w) {
  if (Tree(w).vsb && CanDraw(w)) {
    EnsureRows(w);
    UpdateScrollBars(w);
  }
}

// ---- item records

void CallCallbacks(Widget w, const char *list, int reason, XEvent *event, MyTreeViewItem *item) {
  MyTreeViewCallbackStruct cbs = {reason, event, item};
  XtCallCallbacks(w, list, &cbs);
}

void UpdateRowHeight(MyTreeViewPart &t, const MyTreeViewItem *it) {
  const Dimension h = it->label_height > it->pixmap_height ? it->label_height : it->pixmap_height;
  t.row_height = static_cast<Dimension>(h + 2);
}

void SetLabel(Widget w, MyTreeViewItem *it, const char *text) {
  MyTreeViewPart &t = Tree(w);
  if (it->label) XmStringFree(it->label);
  XtFree(it->text);
  it->text = XtNewString(text ? text : "");
  it->label = XmStringCreateLocalized(it->text);
  Dimension lw = 0, lh = 0;
  if (t.font_list) XmStringExtent(t.font_list, it->label, &lw, &lh);
  it->label_width = static_cast<Dimension>(lw + 4);
  it->label_height = lh;
  UpdateRowHeight(t, it);
}

// The size of a picture from the server, remembered for the few pictures a
// tree uses over and over, so that adding many items costs no round trips.
bool PixmapSize(Widget w, Pixmap p, unsigned *width, unsigned *height, unsigned *depth) {
  MyTreeViewPart &t = Tree(w);
  const int slots = static_cast<int>(XtNumber(t.pixmap_sizes));
  for (int i = 0; i < slots; ++i) {
    const MyTreeViewPixmapSize &c = t.pixmap_sizes[i];
    if (c.pixmap == p && p != 0) {
      *width = c.width;
      *height = c.height;
      *depth = c.depth;
      return true;
    }
  }
  Window root;
  int x, y;
  unsigned border;
  if (!XGetGeometry(XtDisplay(w), p, &root, &x, &y, width, height, &border, depth)) return false;
  MyTreeViewPixmapSize &slot = t.pixmap_sizes[t.next_pixmap_size];
  t.next_pixmap_size = (t.next_pixmap_size + 1) % slots;
  slot.pixmap = p;
  slot.width = *width;
  slot.height = *height;
  slot.depth = *depth;
  return true;
}

void SetPixmaps(Widget w, MyTreeViewItem *it, Pixmap pixmap, Pixmap expand_pixmap) {
  unsigned pw = 0, ph = 0, pd = 0;
  if (!HavePixmap(pixmap) || !PixmapSize(w, pixmap, &pw, &ph, &pd)) {
    pixmap = XmUNSPECIFIED_PIXMAP;
    pw = ph = pd = 0;
  }
  if (HavePixmap(expand_pixmap)) {
    unsigned ew = 0, eh = 0, ed = 0;
    if (!PixmapSize(w, expand_pixmap, &ew, &eh, &ed) || ew != pw || eh != ph || ed != pd) {
      XtWarning(kPixmapWarning);
      expand_pixmap = XmUNSPECIFIED_PIXMAP;
    }
  } else {
    expand_pixmap = XmUNSPECIFIED_PIXMAP;
  }
  it->pixmap = pixmap;
  it->expand_pixmap = expand_pixmap;
  it->pixmap_width = static_cast<Dimension>(pw);
  it->pixmap_height = static_cast<Dimension>(ph);
  it->pixmap_depth = pd;
  UpdateRowHeight(Tree(w), it);
}

void FreeSubtree(MyTreeViewItem *it) {
  MyTreeViewItem *c = it->first_child;
  while (c) {
    MyTreeViewItem *next = c->next;
    FreeSubtree(c);
    c = next;
  }
  if (it->label) XmStringFree(it->label);
  XtFree(it->text);
  XtFree(reinterpret_cast<char *>(it));
}

void FreeChildren(MyTreeViewItem *it) {
  MyTreeViewItem *c = it->first_child;
  while (c) {
    MyTreeViewItem *next = c->next;
    FreeSubtree(c);
    c = next;
  }
  it->first_child = nullptr;
  it->child_count = 0;
}

// Moves the selection to `to` without a callback (the old item is gone).
void MoveSelection(MyTreeViewPart &t, MyTreeViewItem *to) {
  t.selected = to;
  if (to) to->selected = 1;
  t.last_click_item = nullptr;
}

MyTreeViewItem *NewItem(Widget w, MyTreeViewItem *parent, Boolean expandable, Boolean expanded, Pixmap pixmap,
                        Pixmap expand_pixmap, const char *text) {
  MyTreeViewPart &t = Tree(w);
  if (!parent && t.root) return nullptr;  // a second parentless item has no place
  MyTreeViewItem *it = reinterpret_cast<MyTreeViewItem *>(XtCalloc(1, sizeof(MyTreeViewItem)));
  it->row = -1;
  it->pixmap = it->expand_pixmap = XmUNSPECIFIED_PIXMAP;
  if (parent) {
    MyTreeViewItem **link = &parent->first_child;
    MyTreeViewItem *prev = nullptr;
    while (*link) {
      prev = *link;
      link = &(*link)->next;
    }
    *link = it;
    it->prev = prev;
    it->parent = parent;
    it->depth = parent->depth + 1;
    ++parent->child_count;
  } else {
    t.root = it;
  }
  ++t.busy;
  SetPixmaps(w, it, pixmap, expand_pixmap);
  SetLabel(w, it, text);
  it->expandable = expandable ? 1 : 0;
  it->expanded = expanded ? 1 : 0;
  --t.busy;
  Relayout(w);
  return it;
}

void Expand(Widget w, MyTreeViewItem *it, XEvent *event, bool wanted) {
  MyTreeViewPart &t = Tree(w);
  if (!it || !it->expandable || (it->expanded != 0) == wanted) return;
  if (!wanted) {
    // The selection cannot stay hidden: it moves up to the collapsing item.
    if (t.selected && (t.selected == it || IsBelow(t.selected, it))) {
      if (t.selected != it) {
        t.selected->selected = 0;
        MoveSelection(t, it);
      }
      CallCallbacks(w, MyNselectCallback, MyCR_TREE_SELECT, nullptr, it);
    }
    it->expanded = 0;
    CallCallbacks(w, MyNcollapseCallback, MyCR_TREE_COLLAPSE, event, it);
  } else {
    it->expanded = 1;
    CallCallbacks(w, MyNexpandCallback, MyCR_TREE_EXPAND, event, it);
  }
  Relayout(w);
}

void Select(Widget w, MyTreeViewItem *it, XEvent *event) {
  MyTreeViewPart &t = Tree(w);
  if (!it) {
    MyTreeViewItem *old = t.selected;
    if (old) {
      old->selected = 0;
      t.selected = nullptr;
      RedrawItem(w, old);
    }
    return;
  }
  // Collapsed ancestors open from the top down, so the item shows.  An
  // expand callback that reloads the children deletes the item itself:
  // then nothing is selected.
  for (int steps = it->depth; steps > 0; --steps) {
    MyTreeViewItem *closed = nullptr;
    for (MyTreeViewItem *a = it->parent; a; a = a->parent)
      if (!a->expanded && a->expandable) closed = a;
    if (!closed) break;
    const unsigned long deletions = t.deletions;
    Expand(w, closed, nullptr, true);
    if (t.deletions != deletions && !InTree(t.root, it)) return;
  }
  if (!it->selected) {
    MyTreeViewItem *old = t.selected;
    if (old) {
      old->selected = 0;
      RedrawItem(w, old);
    }
    it->selected = 1;
    t.selected = it;
    CallCallbacks(w, MyNselectCallback, MyCR_TREE_SELECT, event, it);
    RedrawItem(w, t.selected);  // the callback may have changed the tree
  }
  ScrollIntoView(w, t.selected);
}

// ---- the widget's methods

void Initialize(Widget, Widget w, ArgList, Cardinal *) {
  MyTreeViewPart &t = Tree(w);
  t.root = t.selected = nullptr;
  t.suspended = False;
  t.busy = 0;
  t.layout_valid = False;
  t.rows = nullptr;
  t.row_count = t.row_alloc = 0;
  t.content_width = 0;
  t.text_gc = t.select_gc = t.select_text_gc = t.line_gc = nullptr;
  t.last_click = 0;
  t.last_click_item = nullptr;
  if (!t.font_list) t.font_list = XmeGetDefaultRenderTable(w, XmLABEL_FONTLIST);
  t.font_list = XmFontListCopy(t.font_list);
  XmString probe = XmStringCreateLocalized(const_cast<char *>("Ay"));
  Dimension pw = 0, ph = 0;
  XmStringExtent(t.font_list, probe, &pw, &ph);
  XmStringFree(probe);
  t.row_height = static_cast<Dimension>(ph + 2);
  if (w->core.width == 0) w->core.width = 120;
  if (w->core.height == 0) w->core.height = 100;
  t.key_clip = nullptr;
  t.vsb = t.hsb = nullptr;
  t.top = t.left = 0;
  t.deletions = 0;
  std::memset(t.pixmap_sizes, 0, sizeof t.pixmap_sizes);
  t.next_pixmap_size = 0;
}

// An automatic XmScrolledWindow grabs the page and end keys on its clip
// window to scroll it.  While the tree has the focus they move its selection
// instead (which scrolls too): a handler ahead of the clip's own takes them.
void ClipKeys(Widget, XtPointer closure, XEvent *event, Boolean *go_on) {
  Widget w = static_cast<Widget>(closure);
  if (event->type != KeyPress || XmGetFocusWidget(w) != w) return;
  const char *how = nullptr;
  switch (XLookupKeysym(&event->xkey, 0)) {
    case XK_Prior: case XK_KP_Prior: how = "pageup"; break;
    case XK_Next: case XK_KP_Next: how = "pagedown"; break;
    case XK_Home: case XK_KP_Home: how = "home"; break;
    case XK_End: case XK_KP_End: how = "end"; break;
    default: return;
  }
  String params[1] = {const_cast<char *>(how)};
  Cardinal count = 1;
  ActMove(w, event, params, &count);
  *go_on = False;
}

// A GC whose font XmStringDraw may change.
GC TextGC(Widget w, Pixel fg, Pixel bg) {
  XGCValues v;
  v.foreground = fg;
  v.background = bg;
  return XtAllocateGC(w, 0, GCForeground | GCBackground, &v, GCFont | GCClipMask | GCClipXOrigin | GCClipYOrigin, 0);
}

void Realize(Widget w, XtValueMask *mask, XSetWindowAttributes *attrs) {
  XtCreateWindow(w, InputOutput, CopyFromParent, *mask, attrs);
  MyTreeViewPart &t = Tree(w);
  const Pixel fg = reinterpret_cast<MyTreeViewWidget>(w)->primitive.foreground;
  const Pixel bg = w->core.background_pixel;
  t.text_gc = TextGC(w, fg, bg);
  t.select_text_gc = TextGC(w, bg, fg);
  XGCValues v;
  v.foreground = fg;
  t.select_gc = XtGetGC(w, GCForeground, &v);
  v.line_style = LineOnOffDash;
  v.dashes = 1;
  t.line_gc = XtGetGC(w, GCForeground | GCLineStyle | GCDashList, &v);
  // The scrolled window makes its clip window the parent after creation.
  t.key_clip = ClipOf(w);
  if (t.key_clip) XtInsertEventHandler(t.key_clip, KeyPressMask, False, ClipKeys, w, XtListHead);
  if (!t.suspended) Refit(w);
}

void Destroy(Widget w) {
  MyTreeViewPart &t = Tree(w);
  if (t.key_clip) XtRemoveEventHandler(t.key_clip, KeyPressMask, False, ClipKeys, w);
  if (t.root) FreeSubtree(t.root);
  t.root = t.selected = nullptr;
  XtFree(reinterpret_cast<char *>(t.rows));
  if (t.font_list) XmFontListFree(t.font_list);
  if (t.text_gc) XtReleaseGC(w, t.text_gc);
  if (t.select_text_gc) XtReleaseGC(w, t.select_text_gc);
  if (t.select_gc) XtReleaseGC(w, t.select_gc);
  if (t.line_gc) XtReleaseGC(w, t.line_gc);
}

// A new font measures every label again; a new indentation moves the rows.
void Relabel(Widget w, MyTreeViewItem *first) {
  for (MyTreeViewItem *it = first; it; it = it->next) {
    Dimension lw = 0, lh = 0;
    XmStringExtent(Tree(w).font_list, it->label, &lw, &lh);
    it->label_width = static_cast<Dimension>(lw + 4);
    it->label_height = lh;
    UpdateRowHeight(Tree(w), it);
    Relabel(w, it->first_child);
  }
}

Boolean SetValues(Widget old, Widget, Widget w, ArgList, Cardinal *) {
  MyTreeViewPart &was = Tree(old), &t = Tree(w);
  bool relayout = t.indentation != was.indentation;
  if (t.font_list != was.font_list) {
    if (!t.font_list) t.font_list = XmeGetDefaultRenderTable(w, XmLABEL_FONTLIST);
    t.font_list = XmFontListCopy(t.font_list);
    XmFontListFree(was.font_list);
    Relabel(w, t.root);
    relayout = true;
  }
  if (relayout) Relayout(w);
  return False;
}

// ---- actions

MyTreeViewItem *ItemAtY(Widget w, int y) {
  MyTreeViewPart &t = Tree(w);
  EnsureRows(w);
  y += t.top;
  if (t.row_height == 0 || y < TopMargin(w)) return nullptr;
  const int row = (y - TopMargin(w)) / t.row_height;
  return row < t.row_count ? t.rows[row] : nullptr;
}

void Activate(Widget w, MyTreeViewItem *it, XEvent *event) {
  if (!it) return;
  Expand(w, it, event, !it->expanded);
  CallCallbacks(w, MyNactivateCallback, MyCR_TREE_ACTIVATE, event, Tree(w).selected);
}

void ActClick(Widget w, XEvent *event, String *, Cardinal *) {
  XmProcessTraversal(w, XmTRAVERSE_CURRENT);
  if (!event || event->type != ButtonPress) return;
  MyTreeViewPart &t = Tree(w);
  MyTreeViewItem *it = ItemAtY(w, event->xbutton.y);
  if (!it) return;
  const int bx = BoxX(w, it->depth) - t.left;
  if (ShowsBox(it) && event->xbutton.x >= bx - 2 && event->xbutton.x < bx + kBoxSize + 2) {
    Expand(w, it, event, !it->expanded);
    t.last_click_item = nullptr;
    return;
  }
  const Time now = event->xbutton.time;
  const bool twice = it == t.last_click_item &&
                     now - t.last_click <= static_cast<Time>(XtGetMultiClickTime(XtDisplay(w)));
  Select(w, it, event);
  if (twice && Tree(w).selected == it) {
    t.last_click_item = nullptr;
    Activate(w, it, event);
  } else {
    t.last_click_item = it;
    t.last_click = now;
  }
}

void ActMove(Widget w, XEvent *event, String *params, Cardinal *count) {
  MyTreeViewPart &t = Tree(w);
  EnsureRows(w);
  if (t.row_count == 0 || !params || !count || *count < 1) return;
  const char *how = params[0];
  const int current = t.selected && t.selected->row >= 0 ? t.selected->row : -1;
  Widget vsb, hsb;
  int view_w = 0, view_h = w->core.height;
  ScrollBars(w, &vsb, &hsb, &view_w, &view_h);
  int page = t.row_height ? view_h / t.row_height - 1 : 1;
  if (page < 1) page = 1;
  int row = current;
  if (!std::strcmp(how, "up")) row = current < 0 ? 0 : current - 1;
  else if (!std::strcmp(how, "down")) row = current + 1;
  else if (!std::strcmp(how, "pageup")) row = current - page;
  else if (!std::strcmp(how, "pagedown")) row = current < 0 ? page : current + page;
  else if (!std::strcmp(how, "home")) row = 0;
  else if (!std::strcmp(how, "end")) row = t.row_count - 1;
  if (row < 0) row = 0;
  if (row > t.row_count - 1) row = t.row_count - 1;
  if (row != current) Select(w, t.rows[row], event);
}

void ActLeft(Widget w, XEvent *event, String *, Cardinal *) {
  MyTreeViewItem *it = Tree(w).selected;
  if (!it) return;
  if (it->expanded && it->expandable) Expand(w, it, event, false);
  else if (it->parent) Select(w, it->parent, event);
}

void ActRight(Widget w, XEvent *event, String *, Cardinal *) {
  MyTreeViewItem *it = Tree(w).selected;
  if (!it) return;
  if (it->expandable && !it->expanded) Expand(w, it, event, true);
  else if (it->expanded && it->first_child) Select(w, it->first_child, event);
}

void ActActivate(Widget w, XEvent *event, String *, Cardinal *) { Activate(w, Tree(w).selected, event); }

// The wheel scrolls three rows, the selection stays.
void ActWheel(Widget w, XEvent *, String *params, Cardinal *count) {
  Widget vsb, hsb;
  int view_w, view_h;
  if (!count || *count < 1 || !ScrollBars(w, &vsb, &hsb, &view_w, &view_h) || !vsb) return;
  int value = 0, slider = 0, inc = 0, page = 0, minimum = 0, maximum = 0;
  XmScrollBarGetValues(vsb, &value, &slider, &inc, &page);
  XtVaGetValues(vsb, XmNminimum, &minimum, XmNmaximum, &maximum, nullptr);
  const int step = 3 * Tree(w).row_height;
  int target = value + (std::strcmp(params[0], "up") == 0 ? -step : step);
  if (target > maximum - slider) target = maximum - slider;
  if (target < minimum) target = minimum;
  if (target != value) XmScrollBarSetValues(vsb, target, slider, inc, page, True);
}

// ---- folder pictures

const char *const kClosedFolder[16] = {
    "................", "................", ".ooooo..........", "ollllloooooooo..",
    "olyyyyyyyyyyyyo.", "olyyyyyyyyyyyyod", "olyyyyyyyyyyyyod", "olyyyyyyyyyyyyod",
    "olyyyyyyyyyyyyod", "olyyyyyyyyyyyyod", "olyyyyyyyyyyyyod", "olyyyyyyyyyyyyod",
    "olyyyyyyyyyyyyod", "oooooooooooooood", ".dddddddddddddd.", "................",
};
const char *const kOpenFolder[16] = {
    "................", "................", ".ooooo..........", "ollllloooooooo..",
    "olddddddddddddo.", "old.oooooooooooo", "olooyyyyyyyyyyyo", "oloyyyyyyyyyyyo.",
    "oloyyyyyyyyyyyo.", "ooyyyyyyyyyyyo..", "ooyyyyyyyyyyyo..", "oyyyyyyyyyyyyo..",
    "oyyyyyyyyyyyo...", "ooooooooooooo...", ".ddddddddddd....", "................",
};
const char *const kNoAccessFolder[16] = {
    "................", "................", ".ooooo..........", "ogggggoooooooo..",
    "oGGGGGGGGGGGGGo.", "oGGGGGGGGGGGGGod", "oGGGGGGGGGGGGGod", "oGGGGGrrGGGGrrGd",
    "oGGGGGGrrGGrrGGd", "oGGGGGGGrrrrGGGd", "oGGGGGGGGrrGGGGd", "oGGGGGGGrrrrGGGd",
    "oGGGGGGrrGGrrGGd", "oooooorroooorrod", ".dddddddddddddd.", "................",
};

struct PaletteEntry {
  char key;
  unsigned short r, g, b;
};
const PaletteEntry kFolderColours[] = {
    {'o', 0x6000, 0x4000, 0x0000}, {'l', 0xffff, 0xf000, 0xa000}, {'y', 0xf000, 0xc800, 0x5000},
    {'d', 0x9000, 0x9000, 0x9000}, {'g', 0xa000, 0xa000, 0xa000}, {'G', 0xd800, 0xd800, 0xd800},
    {'r', 0xd000, 0x1000, 0x1000},
};

Pixmap DrawPicture(Widget w, const char *const rows[16], const Pixel *pixels) {
  Display *d = XtDisplay(w);
  Pixmap p = XCreatePixmap(d, RootWindowOfScreen(XtScreen(w)), 16, 16, w->core.depth);
  GC gc = XCreateGC(d, p, 0, nullptr);
  XSetForeground(d, gc, w->core.background_pixel);
  XFillRectangle(d, p, gc, 0, 0, 16, 16);
  for (int y = 0; y < 16; ++y) {
    for (int x = 0; x < 16; ++x) {
      const char c = rows[y][x];
      for (size_t k = 0; k < XtNumber(kFolderColours); ++k)
        if (kFolderColours[k].key == c) {
          XSetForeground(d, gc, pixels[k]);
          XDrawPoint(d, p, gc, x, y);
        }
    }
  }
  XFreeGC(d, gc);
  return p;
}

}  // namespace

extern "C" {

Widget MyCreateTreeView(Widget parent, const char *name, ArgList args, Cardinal n) {
  return XtCreateWidget(name, myTreeViewWidgetClass, parent, args, n);
}

Widget MyCreateScrolledTreeView(Widget parent, const char *name, ArgList args, Cardinal n) {
  char sw_name[256];
  std::snprintf(sw_name, sizeof sw_name, "%sSW", name);
  Widget sw = XtVaCreateManagedWidget(sw_name, xmScrolledWindowWidgetClass, parent, XmNscrollingPolicy,
                                      XmAPPLICATION_DEFINED, XmNvisualPolicy, XmVARIABLE, nullptr);
  Widget vsb = XtVaCreateManagedWidget("VertScrollBar", xmScrollBarWidgetClass, sw, XmNorientation, XmVERTICAL,
                                       nullptr);
  Widget hsb = XtVaCreateWidget("HorScrollBar", xmScrollBarWidgetClass, sw, XmNorientation, XmHORIZONTAL, nullptr);
  Widget w = XtCreateWidget(name, myTreeViewWidgetClass, sw, args, n);
  MyTreeViewPart &t = Tree(w);
  t.vsb = vsb;
  t.hsb = hsb;
  for (Widget sb : {vsb, hsb}) {
    XtAddCallback(sb, XmNvalueChangedCallback, Scrolled, w);
    XtAddCallback(sb, XmNdragCallback, Scrolled, w);
    XtAddCallback(sb, XmNincrementCallback, Scrolled, w);
    XtAddCallback(sb, XmNdecrementCallback, Scrolled, w);
    XtAddCallback(sb, XmNpageIncrementCallback, Scrolled, w);
    XtAddCallback(sb, XmNpageDecrementCallback, Scrolled, w);
    XtAddCallback(sb, XmNtoTopCallback, Scrolled, w);
    XtAddCallback(sb, XmNtoBottomCallback, Scrolled, w);
  }
  XtVaSetValues(sw, XmNworkWindow, w, XmNverticalScrollBar, vsb, XmNhorizontalScrollBar, hsb, nullptr);
  return w;
}

MyTreeViewItem *MyTreeViewAddItem(Widget w, MyTreeViewItem *parent, Boolean expandable, Boolean expanded,
                                  Pixmap pixmap, Pixmap expand_pixmap, const char *text) {
  if (!CheckClass(w, "MyTreeViewAddItem")) return nullptr;
  return NewItem(w, parent, expandable, expanded, pixmap, expand_pixmap, text);
}

MyTreeViewItem *MyTreeViewAddRow(Widget w, int depth, Boolean expandable, Boolean expanded, Pixmap pixmap,
                                 Pixmap expand_pixmap, const char *text) {
  if (!CheckClass(w, "MyTreeViewAddRow")) return nullptr;
  MyTreeViewItem *parent = Tree(w).root;
  while (parent && parent->depth != depth - 1 && parent->first_child) {
    MyTreeViewItem *last = parent->first_child;
    while (last->next) last = last->next;
    parent = last;
  }
  return NewItem(w, parent, expandable, expanded, pixmap, expand_pixmap, text);
}

void MyTreeViewSetItemString(Widget w, MyTreeViewItem *item, const char *text) {
  if (!CheckClass(w, "MyTreeViewAddItem") || !item) return;
  SetLabel(w, item, text);
  if (!CanDraw(w)) return;
  Refit(w);
  RedrawItem(w, item);
}

void MyTreeViewSetItemPixmap(Widget w, MyTreeViewItem *item, Pixmap pixmap, Pixmap expand_pixmap) {
  if (!CheckClass(w, "MyTreeViewAddItem") || !item) return;
  SetPixmaps(w, item, pixmap, expand_pixmap);
  if (!CanDraw(w)) return;
  Refit(w);
  RedrawItem(w, item);
}

char *MyTreeViewGetString(Widget w, MyTreeViewItem *item) {
  if (!CheckClass(w, "MyTreeViewGetString") || !item) return nullptr;
  return XtNewString(item->text);
}

MyTreeViewItem *MyTreeViewGetRoot(Widget w) { return CheckClass(w, "MyTreeViewGetRoot") ? Tree(w).root : nullptr; }

MyTreeViewItem *MyTreeViewGetParent(Widget w, MyTreeViewItem *item) {
  return CheckClass(w, "MyTreeViewGetParent") && item ? item->parent : nullptr;
}

MyTreeViewItem *MyTreeViewGetChildren(Widget w, MyTreeViewItem *item) {
  return CheckClass(w, "MyTreeViewGetChildren") && item ? item->first_child : nullptr;
}

MyTreeViewItem *MyTreeViewGetNextChildren(Widget w, MyTreeViewItem *item) {
  return CheckClass(w, "MyTreeViewGetChildren") && item ? item->next : nullptr;
}

MyTreeViewItem *MyTreeViewGetPrevChildren(Widget w, MyTreeViewItem *item) {
  return CheckClass(w, "MyTreeViewGetChildren") && item ? item->prev : nullptr;
}

MyTreeViewItem *MyTreeViewGetSelected(Widget w) {
  return CheckClass(w, "MyTreeViewGetSelected") ? Tree(w).selected : nullptr;
}

void MyTreeViewUpdate(Widget w, Boolean suspended) {
  if (!CheckClass(w, "MyTreeViewUpdate")) return;
  MyTreeViewPart &t = Tree(w);
  t.suspended = suspended ? True : False;
  if (suspended) return;
  Relayout(w);
  ScrollIntoView(w, t.selected);
}

Boolean MyTreeViewIsExpanded(Widget w, MyTreeViewItem *item) {
  return CheckClass(w, "MyTreeViewUpdate") && item && item->expanded ? True : False;
}

void MyTreeViewDeleteAllChild(Widget w, MyTreeViewItem *item) {
  if (!CheckClass(w, "MyTreeViewDeleteAllChild") || !item) return;
  MyTreeViewPart &t = Tree(w);
  if (t.selected && IsBelow(t.selected, item)) MoveSelection(t, item);
  if (item->first_child) ++t.deletions;
  FreeChildren(item);
  Relayout(w);
}

void MyTreeViewDeleteItem(Widget w, MyTreeViewItem *item) {
  if (!CheckClass(w, "MyTreeViewDeleteAllChild") || !item) return;
  MyTreeViewPart &t = Tree(w);
  MyTreeViewItem *parent = item->parent;
  if (t.selected && (t.selected == item || IsBelow(t.selected, item))) MoveSelection(t, parent);
  if (item->prev) item->prev->next = item->next;
  else if (parent) parent->first_child = item->next;
  if (item->next) item->next->prev = item->prev;
  if (parent) --parent->child_count;
  if (item == t.root) t.root = nullptr;
  ++t.deletions;
  FreeSubtree(item);
  Relayout(w);
}

void MyTreeViewDeleteAllItems(Widget w) {
  if (!CheckClass(w, "MyTreeViewDeleteAllItems")) return;
  MyTreeViewPart &t = Tree(w);
  if (t.root) FreeSubtree(t.root);
  t.root = nullptr;
  ++t.deletions;
  MoveSelection(t, nullptr);
  Relayout(w);
}

void MyTreeViewExpandItem(Widget w, MyTreeViewItem *item, Boolean expand) {
  if (!CheckClass(w, "MyTreeViewExpandItem")) return;
  Expand(w, item, nullptr, expand != 0);
}

void MyTreeViewSelectItem(Widget w, MyTreeViewItem *item) {
  if (!CheckClass(w, "MyTreeViewSelectItem")) return;
  Select(w, item, nullptr);
}

int MyTreeViewGetRowHeight(Widget w) {
  return CheckClass(w, "MyTreeViewGetRowHeight") ? Tree(w).row_height : 0;
}

int MyTreeViewGetItemRow(Widget w, MyTreeViewItem *item) {
  if (!CheckClass(w, "MyTreeViewGetItemRow") || !item) return -1;
  EnsureRows(w);
  return item->row;
}

void MyTreeViewFolderPixmaps(Widget w, Pixmap *closed, Pixmap *open, Pixmap *no_access) {
  if (!CheckClass(w, "MyTreeViewFolderPixmaps")) return;
  Display *d = XtDisplay(w);
  Screen *screen = XtScreen(w);
  Pixel pixels[XtNumber(kFolderColours)];
  for (size_t k = 0; k < XtNumber(kFolderColours); ++k) {
    XColor c;
    c.red = kFolderColours[k].r;
    c.green = kFolderColours[k].g;
    c.blue = kFolderColours[k].b;
    c.flags = DoRed | DoGreen | DoBlue;
    if (XAllocColor(d, w->core.colormap, &c)) {
      pixels[k] = c.pixel;
    } else {  // a full colormap: dark colours black, light ones white
      const unsigned luma = (c.red * 3u + c.green * 6u + c.blue) / 10u;
      pixels[k] = luma < 0x8000 ? BlackPixelOfScreen(screen) : WhitePixelOfScreen(screen);
    }
  }
  if (closed) *closed = DrawPicture(w, kClosedFolder, pixels);
  if (open) *open = DrawPicture(w, kOpenFolder, pixels);
  if (no_access) *no_access = DrawPicture(w, kNoAccessFolder, pixels);
}

}  // extern "C"
