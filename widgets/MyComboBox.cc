// MyComboBox: a Motif primitive that draws the chosen item and a down arrow,
// and pops up a grab shell with a scrolled list of the items below itself.
#include "widgets/MyComboBoxP.h"

#include <X11/ShellP.h>
#include <Xm/DrawP.h>
#include <Xm/Frame.h>
#include <Xm/GrabShell.h>
#include <Xm/List.h>
#include <Xm/XmP.h>

#include <algorithm>
#include <cstdio>

#define Part(w) (reinterpret_cast<MyComboBoxWidget>(w)->combo)

static XtResource resources[] = {
    {const_cast<char *>(XmNfontList), const_cast<char *>(XmCFontList), XmRFontList, sizeof(XmFontList),
     XtOffsetOf(MyComboBoxRec, combo.font_list), XmRString,
     const_cast<char *>("-*-lucidatypewriter-medium-r-normal-*-*-120-75-75-*-*-iso8859-1")},
    {const_cast<char *>(MyNlistMarginHeight), const_cast<char *>(XmCMarginHeight), XmRVerticalDimension,
     sizeof(Dimension), XtOffsetOf(MyComboBoxRec, combo.list_margin_height), XmRImmediate,
     reinterpret_cast<XtPointer>(1)},
    {const_cast<char *>(MyNlistMarginWidth), const_cast<char *>(XmCMarginWidth), XmRHorizontalDimension,
     sizeof(Dimension), XtOffsetOf(MyComboBoxRec, combo.list_margin_width), XmRImmediate,
     reinterpret_cast<XtPointer>(1)},
    {const_cast<char *>(MyNlistSpacing), const_cast<char *>(XmCSpacing), XmRVerticalDimension, sizeof(Dimension),
     XtOffsetOf(MyComboBoxRec, combo.list_spacing), XmRImmediate, reinterpret_cast<XtPointer>(0)},
    {const_cast<char *>(MyNtopItemPosition), const_cast<char *>(XmCTopItemPosition), XmRInt, sizeof(int),
     XtOffsetOf(MyComboBoxRec, combo.top_item_position), XmRImmediate, reinterpret_cast<XtPointer>(1)},
    {const_cast<char *>(MyNvisibleItemCount), const_cast<char *>(XmCVisibleItemCount), XmRInt, sizeof(int),
     XtOffsetOf(MyComboBoxRec, combo.visible_item_count), XmRImmediate, reinterpret_cast<XtPointer>(8)},
    {const_cast<char *>(MyNarrowColor), const_cast<char *>(MyCArrowColor), XmRPixel, sizeof(Pixel),
     XtOffsetOf(MyComboBoxRec, combo.arrow_color), XmRString, const_cast<char *>("#707070")},
    {const_cast<char *>(XmNcallback), const_cast<char *>(XmCCallback), XmRCallback, sizeof(XtCallbackList),
     XtOffsetOf(MyComboBoxRec, combo.callback), XmRImmediate, nullptr},
};

static void Initialize(Widget req, Widget w, ArgList, Cardinal *);
static void Destroy(Widget w);
static void Redisplay(Widget w, XEvent *, Region);
static void Realize(Widget w, XtValueMask *mask, XSetWindowAttributes *attrs);
static Boolean SetValues(Widget old, Widget req, Widget w, ArgList, Cardinal *);
static XtGeometryResult QueryGeometry(Widget w, XtWidgetGeometry *request, XtWidgetGeometry *reply);
static void ActivateAction(Widget w, XEvent *event, String *, Cardinal *);
static void NextItemAction(Widget w, XEvent *event, String *, Cardinal *);
static void PreviousItemAction(Widget w, XEvent *event, String *, Cardinal *);
static void KbdCancelAction(Widget w, XEvent *, String *, Cardinal *);

static XtActionsRec actions[] = {
    {const_cast<char *>("ComboBoxActivate"), ActivateAction},
    {const_cast<char *>("ComboBoxNextItem"), NextItemAction},
    {const_cast<char *>("ComboBoxPreviousItem"), PreviousItemAction},
};

// The list's action lives in the application's table: the list is not of
// this class.
static XtActionsRec list_actions[] = {
    {const_cast<char *>("ComboBoxKbdCancel"), KbdCancelAction},
};

static char translations[] =
    "<Key>osfDown: ComboBoxActivate()\n"
    "<Btn1Down>,<Btn1Up>: ComboBoxActivate()\n"
    "<Key>osfSelect: ComboBoxActivate()\n"
    "~s ~m ~a <Key>space: ComboBoxActivate()\n"
    "<Key>osfRight: ComboBoxNextItem()\n"
    "<Key>osfLeft: ComboBoxPreviousItem()";

static char list_translations[] = "<Key>osfCancel: ComboBoxKbdCancel()";

MyComboBoxClassRec myComboBoxClassRec = {
    {
        reinterpret_cast<WidgetClass>(&xmPrimitiveClassRec),  // superclass
        const_cast<char *>("MyComboBox"),                     // class_name
        sizeof(MyComboBoxRec),                                // widget_size
        nullptr, nullptr, False,                              // class_initialize, part init, inited
        Initialize, nullptr,                                  // initialize, hook
        Realize, actions, XtNumber(actions),                  // realize, actions
        resources, XtNumber(resources), NULLQUARK,            // resources
        True, XtExposeCompressMaximal, True, False,           // compress motion/exposure/enterleave, visible
        Destroy, nullptr, Redisplay,                          // destroy, resize, expose
        SetValues, nullptr, XtInheritSetValuesAlmost,         // set_values, hook, almost
        nullptr, nullptr, XtVersion, nullptr,                 // get_values_hook, accept_focus, version, callbacks
        translations, QueryGeometry, nullptr, nullptr,        // tm_table, query_geometry, accelerator, extension
    },
    {
        XmInheritBorderHighlight, XmInheritBorderUnhighlight, XtInheritTranslations, nullptr, nullptr, 0, nullptr,
    },
    {0},
};

WidgetClass myComboBoxWidgetClass = reinterpret_cast<WidgetClass>(&myComboBoxClassRec);

static bool CheckClass(Widget w, const char *function) {
  if (w && XtIsSubclass(w, myComboBoxWidgetClass)) return true;
  char text[128];
  std::snprintf(text, sizeof text, "%s: widget has invalid class", function);
  XtWarning(text);
  return false;
}

// Space between the field's border and its text.
static int Inset(Widget w) {
  MyComboBoxWidget cw = reinterpret_cast<MyComboBoxWidget>(w);
  return cw->primitive.shadow_thickness + cw->primitive.highlight_thickness;
}

static void PassListResources(Widget w) {
  MyComboBoxPart &c = Part(w);
  XtVaSetValues(c.list, XmNfontList, c.font_list, XmNlistMarginHeight, c.list_margin_height,
                XmNlistMarginWidth, c.list_margin_width, XmNlistSpacing, c.list_spacing, XmNvisibleItemCount,
                std::max(1, c.visible_item_count), nullptr);
  if (c.top_item_position > 0) XtVaSetValues(c.list, XmNtopItemPosition, c.top_item_position, nullptr);
}

static void SetShown(Widget w, XmString text) {
  MyComboBoxPart &c = Part(w);
  if (c.text) XmStringFree(c.text);
  c.text = text ? XmStringCopy(text) : XmStringCreateLocalized(const_cast<char *>(""));
  if (XtIsRealized(w)) XClearArea(XtDisplay(w), XtWindow(w), 0, 0, 0, 0, True);
}

// The list chose an item: show it and tell the callbacks.
static void Choose(Widget w, int position, XEvent *event) {
  MyComboBoxPart &c = Part(w);
  XmString *items = nullptr;
  int count = 0;
  XtVaGetValues(c.list, XmNitems, &items, XmNitemCount, &count, nullptr);
  if (position < 1 || position > count) return;
  c.chosen = position;
  SetShown(w, items[position - 1]);
  MyComboBoxCallbackStruct cb;
  cb.reason = MyCR_COMBOBOX_SELECT;
  cb.event = event;
  cb.item = c.text;
  cb.position = position;
  XtCallCallbackList(w, c.callback, &cb);
}

static Widget ComboOfList(Widget list) {
  for (Widget p = list; p; p = XtParent(p))
    if (XtIsSubclass(p, myComboBoxWidgetClass)) return p;
  return nullptr;
}

static void Popdown(Widget w) {
  MyComboBoxPart &c = Part(w);
  if (!c.shell || !MyComboBoxIsPoppedUp(w)) return;
  XtPopdown(c.shell);
  // The grab shell took the keyboard focus; the window that had it before
  // gets it back (the server would give it to the root window).
  Display *d = XtDisplay(w);
  if (c.old_focus != None && c.old_focus != PointerRoot) {
    XWindowAttributes a;
    Window focus;
    int revert;
    XGetInputFocus(d, &focus, &revert);
    if ((focus == PointerRoot || focus == None || focus == RootWindowOfScreen(XtScreen(w)) ||
         focus == XtWindow(c.shell)) &&
        XGetWindowAttributes(d, c.old_focus, &a) && a.map_state == IsViewable)
      XSetInputFocus(d, c.old_focus, c.old_revert, CurrentTime);
  }
  c.old_focus = None;
  // Back to what the field shows: moving in the list chose nothing.
  XmListDeselectAllItems(c.list);
  if (c.chosen > 0) XmListSelectPos(c.list, c.chosen, False);
  XmProcessTraversal(w, XmTRAVERSE_CURRENT);
}

// Browse selection: a click ends the interaction; moving with the keys only
// moves the highlight until Return (the default action) or Escape.  The
// widget's own selections never notify the list's callbacks.
static void ListBrowse(Widget list, XtPointer client, XtPointer call) {
  Widget w = static_cast<Widget>(client);
  XmListCallbackStruct *cb = static_cast<XmListCallbackStruct *>(call);
  XEvent *ev = cb->event;
  // The list reports keyboard moves without an event.
  if (!ev || (ev->type != ButtonPress && ev->type != ButtonRelease)) return;
  (void)list;
  Popdown(w);
  Choose(w, cb->item_position, ev);
}

static void ListDefault(Widget, XtPointer client, XtPointer call) {
  Widget w = static_cast<Widget>(client);
  XmListCallbackStruct *cb = static_cast<XmListCallbackStruct *>(call);
  Part(w).chosen = cb->item_position;  // the pop-down keeps it selected
  Popdown(w);
  Choose(w, cb->item_position, cb->event);
}

static void Initialize(Widget req, Widget w, ArgList, Cardinal *) {
  MyComboBoxPart &c = Part(w);
  XtAppAddActions(XtWidgetToApplicationContext(w), list_actions, XtNumber(list_actions));
  // The primitive's traversal translations, merged in by its initialize,
  // bind the arrow keys too: ours come first again.
  static XtTranslations own = nullptr;
  if (!own) own = XtParseTranslationTable(translations);
  XtOverrideTranslations(w, own);
  if (!c.font_list) c.font_list = XmeGetDefaultRenderTable(w, XmTEXT_FONTLIST);
  c.font_list = XmFontListCopy(c.font_list);
  c.text = XmStringCreateLocalized(const_cast<char *>(""));
  c.chosen = 0;
  c.text_gc = c.arrow_gc = nullptr;
  c.old_focus = None;
  c.old_revert = RevertToParent;

  c.shell = XtVaCreatePopupShell("ComboBoxMenuShell", xmGrabShellWidgetClass, w, XmNallowShellResize, True,
                                 XmNshadowThickness, 0, XmNownerEvents, True, XmNgrabStyle, GrabModeAsync,
                                 nullptr);
  c.frame = XtVaCreateManagedWidget("ComboBoxFrame", xmFrameWidgetClass, c.shell, XmNshadowType, XmSHADOW_OUT,
                                    XmNshadowThickness, 1, nullptr);
  Arg args[4];
  Cardinal n = 0;
  XtSetArg(args[n], XmNselectionPolicy, XmBROWSE_SELECT), ++n;
  XtSetArg(args[n], XmNscrollBarDisplayPolicy, XmAS_NEEDED), ++n;
  XtSetArg(args[n], XmNlistSizePolicy, XmVARIABLE), ++n;
  XtSetArg(args[n], XmNhighlightThickness, 0), ++n;
  c.list = XmCreateScrolledList(c.frame, const_cast<char *>("ComboBoxList"), args, n);
  XtManageChild(c.list);
  XtOverrideTranslations(c.list, XtParseTranslationTable(list_translations));
  XtAddCallback(c.list, XmNbrowseSelectionCallback, ListBrowse, w);
  XtAddCallback(c.list, XmNdefaultActionCallback, ListDefault, w);
  PassListResources(w);

  // The superclass may have given a size already; only one asked for counts.
  if (req->core.width == 0) w->core.width = 140;
  if (req->core.height == 0) {
    Dimension fh = XmStringHeight(c.font_list, c.text);
    if (fh == 0) fh = 14;
    w->core.height = static_cast<Dimension>(fh + 2 * Inset(w) + 6);
  }
}

static void Realize(Widget w, XtValueMask *mask, XSetWindowAttributes *attrs) {
  XtCreateWindow(w, InputOutput, CopyFromParent, *mask, attrs);
  MyComboBoxPart &c = Part(w);
  XGCValues v;
  v.foreground = reinterpret_cast<MyComboBoxWidget>(w)->primitive.foreground;
  c.text_gc = XtGetGC(w, GCForeground, &v);
  v.foreground = c.arrow_color;
  c.arrow_gc = XtGetGC(w, GCForeground, &v);
}

static void Destroy(Widget w) {
  MyComboBoxPart &c = Part(w);
  if (c.text) XmStringFree(c.text);
  if (c.font_list) XmFontListFree(c.font_list);
  if (c.text_gc) XtReleaseGC(w, c.text_gc);
  if (c.arrow_gc) XtReleaseGC(w, c.arrow_gc);
}

static void Redisplay(Widget w, XEvent *, Region) {
  if (!XtIsRealized(w)) return;
  MyComboBoxPart &c = Part(w);
  MyComboBoxWidget cw = reinterpret_cast<MyComboBoxWidget>(w);
  Display *d = XtDisplay(w);
  Window win = XtWindow(w);
  const int ht = cw->primitive.highlight_thickness, st = cw->primitive.shadow_thickness;
  const int inset = ht + st;
  const int width = w->core.width, height = w->core.height;
  const int inner_h = height - 2 * inset;
  if (width <= 2 * inset || inner_h <= 0) return;
  // The arrow takes a square at the right end.
  const int arrow = inner_h;
  const int text_w = std::max(0, width - 2 * inset - arrow - 4);
  if (c.text && text_w > 0) {
    Dimension tw = 0, th = 0;
    XmStringExtent(c.font_list, c.text, &tw, &th);
    XRectangle clip = {static_cast<short>(inset + 3), static_cast<short>(inset), static_cast<unsigned short>(text_w),
                       static_cast<unsigned short>(inner_h)};
    XmStringDraw(d, win, c.font_list, c.text, c.text_gc, static_cast<Position>(inset + 3),
                 static_cast<Position>(inset + (inner_h - th) / 2), static_cast<Dimension>(text_w),
                 XmALIGNMENT_BEGINNING, XmSTRING_DIRECTION_L_TO_R, &clip);
  }
  const int ax = width - inset - arrow + 2, ay = inset + 2, as = std::max(4, arrow - 4);
  XmeDrawArrow(d, win, cw->primitive.top_shadow_GC, cw->primitive.bottom_shadow_GC, c.arrow_gc, ax, ay, as, as, 1,
               XmARROW_DOWN);
  XmeDrawShadows(d, win, cw->primitive.top_shadow_GC, cw->primitive.bottom_shadow_GC, ht, ht, width - 2 * ht,
                 height - 2 * ht, st, XmSHADOW_IN);
  if (cw->primitive.highlighted) {
    XtWidgetProc highlight = reinterpret_cast<XmPrimitiveWidgetClass>(XtClass(w))->primitive_class.border_highlight;
    if (highlight) highlight(w);
  }
}

static Boolean SetValues(Widget old, Widget, Widget w, ArgList, Cardinal *) {
  MyComboBoxPart &o = Part(old), &c = Part(w);
  Boolean redraw = False;
  if (c.font_list != o.font_list) {
    XmFontListFree(o.font_list);
    c.font_list = XmFontListCopy(c.font_list ? c.font_list : XmeGetDefaultRenderTable(w, XmTEXT_FONTLIST));
    redraw = True;
  }
  if (c.font_list != o.font_list || c.list_margin_height != o.list_margin_height ||
      c.list_margin_width != o.list_margin_width || c.list_spacing != o.list_spacing ||
      c.top_item_position != o.top_item_position || c.visible_item_count != o.visible_item_count)
    PassListResources(w);
  if (c.arrow_color != o.arrow_color && XtIsRealized(w)) {
    XtReleaseGC(w, c.arrow_gc);
    XGCValues v;
    v.foreground = c.arrow_color;
    c.arrow_gc = XtGetGC(w, GCForeground, &v);
    redraw = True;
  }
  return redraw;
}

static XtGeometryResult QueryGeometry(Widget w, XtWidgetGeometry *request, XtWidgetGeometry *reply) {
  MyComboBoxPart &c = Part(w);
  Dimension fh = XmStringHeight(c.font_list, c.text);
  if (fh == 0) fh = 14;
  reply->request_mode = CWHeight;
  reply->height = static_cast<Dimension>(fh + 2 * Inset(w) + 6);
  if ((request->request_mode & CWHeight) && request->height == reply->height) return XtGeometryYes;
  if (reply->height == w->core.height) return XtGeometryNo;
  return XtGeometryAlmost;
}

// ---- actions

static void Activate(Widget w) {
  MyComboBoxPart &c = Part(w);
  if (MyComboBoxIsPoppedUp(w)) return;
  XmString *items = nullptr;
  int count = 0;
  XtVaGetValues(c.list, XmNitems, &items, XmNitemCount, &count, nullptr);
  if (count == 0) return;
  Dimension widest = 0;
  for (int i = 0; i < count; ++i) widest = std::max(widest, XmStringWidth(c.font_list, items[i]));
  XtVaSetValues(c.list, XmNwidth, static_cast<Dimension>(widest + MyComboBoxListExtraWidth), nullptr);
  XtRealizeWidget(c.shell);
  // Below the field, moved left or up so that it ends at the screen's edge
  // rather than running past it.
  Position rx = 0, ry = 0;
  XtTranslateCoords(w, 0, 0, &rx, &ry);
  Screen *screen = XtScreen(w);
  const int sw = WidthOfScreen(screen), sh = HeightOfScreen(screen);
  const int pw = c.shell->core.width + 2 * c.shell->core.border_width;
  const int ph = c.shell->core.height + 2 * c.shell->core.border_width;
  int x = rx, y = ry + w->core.height;
  if (x + pw > sw) x = sw - pw;
  if (y + ph > sh) y = sh - ph;
  x = std::max(0, x);
  y = std::max(0, y);
  XtVaSetValues(c.shell, XmNx, static_cast<Position>(x), XmNy, static_cast<Position>(y), nullptr);
  XmListDeselectAllItems(c.list);
  if (c.chosen > 0) {
    XmListSelectPos(c.list, c.chosen, False);
    XmListSetKbdItemPos(c.list, c.chosen);
    if (c.chosen >= c.top_item_position + c.visible_item_count || c.chosen < c.top_item_position)
      XmListSetBottomPos(c.list, c.chosen);
  }
  XGetInputFocus(XtDisplay(w), &c.old_focus, &c.old_revert);
  XtPopup(c.shell, XtGrabNone);
  XmProcessTraversal(c.list, XmTRAVERSE_CURRENT);
}

static void ActivateAction(Widget w, XEvent *, String *, Cardinal *) { Activate(w); }

static void Step(Widget w, XEvent *event, int delta) {
  MyComboBoxPart &c = Part(w);
  const int count = MyComboBoxGetItemCount(w);
  const int pos = c.chosen + delta;
  // No wrap: the ends stay where they are.
  if (count == 0 || pos < 1 || pos > count) return;
  XmListDeselectAllItems(c.list);
  XmListSelectPos(c.list, pos, False);
  Choose(w, pos, event);
}

static void NextItemAction(Widget w, XEvent *event, String *, Cardinal *) { Step(w, event, 1); }
static void PreviousItemAction(Widget w, XEvent *event, String *, Cardinal *) { Step(w, event, -1); }

static void KbdCancelAction(Widget list, XEvent *, String *, Cardinal *) {
  Widget w = ComboOfList(list);
  if (w) Popdown(w);
}

// ---- public functions

extern "C" {

Widget MyCreateComboBox(Widget parent, const char *name, ArgList args, Cardinal n) {
  return XtCreateWidget(name, myComboBoxWidgetClass, parent, args, n);
}

void MyComboBoxAddItem(Widget w, XmString item, int position) {
  if (!CheckClass(w, "MyComboBoxAddItem")) return;
  MyComboBoxPart &c = Part(w);
  XmListAddItemUnselected(c.list, item, position);
  // An item put before the shown one moves it down.
  if (c.chosen > 0 && position > 0 && position <= c.chosen) ++c.chosen;
}

void MyComboBoxDeleteAllItems(Widget w) {
  if (!CheckClass(w, "MyComboBoxDeleteAllItems")) return;
  MyComboBoxPart &c = Part(w);
  Popdown(w);
  XmListDeleteAllItems(c.list);
  c.chosen = 0;
  SetShown(w, nullptr);
}

void MyComboBoxSetItem(Widget w, int position) {
  if (!CheckClass(w, "MyComboBoxSetItem")) return;
  MyComboBoxPart &c = Part(w);
  if (position >= 1 && position <= MyComboBoxGetItemCount(w)) XmListSetPos(c.list, position);
}

void MyComboBoxSelectItem(Widget w, XmString item) {
  if (!CheckClass(w, "MyComboBoxSelectItem")) return;
  MyComboBoxPart &c = Part(w);
  const int pos = item ? XmListItemPos(c.list, item) : 0;
  if (pos <= 0) return;
  XmListDeselectAllItems(c.list);
  XmListSelectPos(c.list, pos, False);
  Choose(w, pos, nullptr);
}

void MyComboBoxSelectPos(Widget w, int position) {
  if (!CheckClass(w, "MyComboBoxSelectPos")) return;
  MyComboBoxPart &c = Part(w);
  if (position < 1 || position > MyComboBoxGetItemCount(w)) return;
  XmListDeselectAllItems(c.list);
  XmListSelectPos(c.list, position, False);
  Choose(w, position, nullptr);
}

int MyComboBoxGetSelectedPos(Widget w) {
  if (!CheckClass(w, "MyComboBoxGetSelectedPos")) return 0;
  int *positions = nullptr, count = 0;
  if (!XmListGetSelectedPos(Part(w).list, &positions, &count) || count == 0) return 0;
  const int first = positions[0];
  XtFree(reinterpret_cast<char *>(positions));
  return first;
}

int MyComboBoxGetItemCount(Widget w) {
  if (!CheckClass(w, "MyComboBoxGetItemCount")) return 0;
  int count = 0;
  XtVaGetValues(Part(w).list, XmNitemCount, &count, nullptr);
  return count;
}

XmString MyComboBoxGetText(Widget w) {
  if (!CheckClass(w, "MyComboBoxGetText")) return nullptr;
  return XmStringCopy(Part(w).text);
}

void MyComboBoxPopdown(Widget w) {
  if (!CheckClass(w, "MyComboBoxPopdown")) return;
  Popdown(w);
}

Boolean MyComboBoxIsPoppedUp(Widget w) {
  if (!w || !XtIsSubclass(w, myComboBoxWidgetClass)) return False;
  Widget shell = Part(w).shell;
  return shell && reinterpret_cast<ShellWidget>(shell)->shell.popped_up ? True : False;
}

}  // extern "C"
