// MyStatusBar: parts laid out left to right; part 0 takes what the others
// leave, the others share a quarter of the width each at most.
#include "widgets/MyStatusBarP.h"

#include <Xm/DrawP.h>
#include <Xm/XmP.h>

#include <cstdio>
#include <cstdlib>

#define Part(w) (reinterpret_cast<MyStatusBarWidget>(w)->status)

static XtResource resources[] = {
    {const_cast<char *>(XmNfontList), const_cast<char *>(XmCFontList), XmRFontList, sizeof(XmFontList),
     XtOffsetOf(MyStatusBarRec, status.font_list), XmRImmediate, nullptr},
};

static void Initialize(Widget req, Widget w, ArgList, Cardinal *);
static void Destroy(Widget w);
static void Redisplay(Widget w, XEvent *, Region);
static void Resize(Widget w);
static void Realize(Widget w, XtValueMask *mask, XSetWindowAttributes *attrs);

MyStatusBarClassRec myStatusBarClassRec = {
    {
        reinterpret_cast<WidgetClass>(&xmPrimitiveClassRec), const_cast<char *>("MyStatusBar"),
        sizeof(MyStatusBarRec), nullptr, nullptr, False, Initialize, nullptr, Realize, nullptr, 0, resources,
        XtNumber(resources), NULLQUARK, True, XtExposeCompressMaximal, True, False, Destroy, Resize, Redisplay,
        nullptr, nullptr, nullptr, nullptr, nullptr, XtVersion, nullptr, XtInheritTranslations, nullptr, nullptr,
        nullptr,
    },
    {XmInheritBorderHighlight, XmInheritBorderUnhighlight, nullptr, nullptr, nullptr, 0, nullptr},
    {0},
};

WidgetClass myStatusBarWidgetClass = reinterpret_cast<WidgetClass>(&myStatusBarClassRec);

static bool CheckClass(Widget w, const char *function) {
  if (w && XtIsSubclass(w, myStatusBarWidgetClass)) return true;
  char text[128];
  std::snprintf(text, sizeof text, "%s: widget has invalid class", function);
  XtWarning(text);
  return false;
}

static void Layout(Widget w) {
  MyStatusBarPart &s = Part(w);
  if (s.count <= 0) return;
  const int width = w->core.width;
  const int others = s.count - 1;
  const int each = others > 0 ? width / (others + 3) : 0;  // part 0 gets three shares
  int x = 0;
  for (int i = 0; i < s.count; ++i) {
    int pw = i == 0 ? width - others * each : each;
    s.parts[i].x = static_cast<short>(x);
    s.parts[i].width = static_cast<short>(pw);
    x += pw;
  }
}

static void Initialize(Widget, Widget w, ArgList, Cardinal *) {
  MyStatusBarPart &s = Part(w);
  s.count = 0;
  s.parts = nullptr;
  s.text_gc = nullptr;
  if (!s.font_list) s.font_list = XmeGetDefaultRenderTable(w, XmLABEL_FONTLIST);
  s.font_list = XmFontListCopy(s.font_list);
  if (w->core.width == 0) w->core.width = 300;
  if (w->core.height == 0) w->core.height = 22;
}

static void Realize(Widget w, XtValueMask *mask, XSetWindowAttributes *attrs) {
  XtCreateWindow(w, InputOutput, CopyFromParent, *mask, attrs);
  XGCValues v;
  v.foreground = reinterpret_cast<MyStatusBarWidget>(w)->primitive.foreground;
  Part(w).text_gc = XtGetGC(w, GCForeground, &v);
  Layout(w);
}

static void FreeParts(MyStatusBarPart &s) {
  for (int i = 0; i < s.count; ++i)
    if (s.parts[i].text) XmStringFree(s.parts[i].text);
  std::free(s.parts);
  s.parts = nullptr;
  s.count = 0;
}

static void Destroy(Widget w) {
  MyStatusBarPart &s = Part(w);
  FreeParts(s);
  if (s.font_list) XmFontListFree(s.font_list);
  if (s.text_gc) XtReleaseGC(w, s.text_gc);
}

static void Resize(Widget w) { Layout(w); }

static void DrawPart(Widget w, int i) {
  MyStatusBarPart &s = Part(w);
  MyStatusBarWidget sw = reinterpret_cast<MyStatusBarWidget>(w);
  const MyStatusPart &p = s.parts[i];
  Display *d = XtDisplay(w);
  Window win = XtWindow(w);
  if (p.width <= 4 || w->core.height <= 4) return;
  XClearArea(d, win, p.x, 0, static_cast<unsigned>(p.width), w->core.height, False);
  XmeDrawShadows(d, win, sw->primitive.top_shadow_GC, sw->primitive.bottom_shadow_GC, p.x + 1, 1,
                 static_cast<Dimension>(p.width - 2), static_cast<Dimension>(w->core.height - 2), 1, XmSHADOW_IN);
  if (p.text && s.font_list) {
    Dimension tw = 0, th = 0;
    XmStringExtent(s.font_list, p.text, &tw, &th);
    XRectangle clip = {static_cast<short>(p.x + 2), 2, static_cast<unsigned short>(p.width - 4),
                       static_cast<unsigned short>(w->core.height - 4)};
    XmStringDraw(d, win, s.font_list, p.text, s.text_gc, static_cast<Position>(p.x + 4),
                 static_cast<Position>((w->core.height - th) / 2), static_cast<Dimension>(p.width - 8),
                 XmALIGNMENT_BEGINNING, XmSTRING_DIRECTION_L_TO_R, &clip);
  }
}

static void Redisplay(Widget w, XEvent *, Region) {
  if (!XtIsRealized(w)) return;
  for (int i = 0; i < Part(w).count; ++i) DrawPart(w, i);
}

// Stores a part's text or value, lays out again and redraws that part alone
// when its place did not move, else every part.
static void UpdatePart(Widget w, int part, XmString text, bool set_text, int value) {
  MyStatusBarPart &s = Part(w);
  if (!XtIsRealized(w) || part < 0 || part >= s.count) return;
  MyStatusPart &p = s.parts[part];
  const short old_x = p.x, old_w = p.width;
  if (set_text) {
    if (p.text) XmStringFree(p.text);
    p.text = text ? XmStringCopy(text) : nullptr;
    p.text_value = value;
  } else {
    p.value = value;
  }
  Layout(w);
  if (p.x == old_x && p.width == old_w) DrawPart(w, part);
  else Redisplay(w, nullptr, nullptr);
}

extern "C" {

Widget MyCreateStatusBar(Widget parent, const char *name, ArgList args, Cardinal n) {
  return XtCreateWidget(name, myStatusBarWidgetClass, parent, args, n);
}

void MyStatusBarSetNumberOfParts(Widget w, int count) {
  if (!CheckClass(w, "MyStatusBarSetNumberOfParts")) return;
  MyStatusBarPart &s = Part(w);
  FreeParts(s);
  if (count <= 0) return;
  s.parts = static_cast<MyStatusPart *>(std::calloc(static_cast<size_t>(count), sizeof(MyStatusPart)));
  if (!s.parts) return;
  s.count = count;
  for (int i = 0; i < count; ++i) s.parts[i].value = -1;
  Layout(w);
  if (XtIsRealized(w)) {
    XClearArea(XtDisplay(w), XtWindow(w), 0, 0, 0, 0, False);
    Redisplay(w, nullptr, nullptr);
  }
}

void MyStatusBarSetText(Widget w, int part, XmString text, int value) {
  if (!CheckClass(w, "MyStatusBarSetText")) return;
  UpdatePart(w, part, text, true, value);
}

void MyStatusBarSetValue(Widget w, int part, int value) {
  if (!CheckClass(w, "MyStatusBarSetText")) return;
  UpdatePart(w, part, nullptr, false, value);
}

int MyStatusBarGetNumberOfParts(Widget w) {
  return CheckClass(w, "MyStatusBarGetNumberOfParts") ? Part(w).count : 0;
}

int MyStatusBarGetValue(Widget w, int part) {
  if (!CheckClass(w, "MyStatusBarGetValue") || part < 0 || part >= Part(w).count) return -1;
  return Part(w).parts[part].value;
}

XmString MyStatusBarGetText(Widget w, int part) {
  if (!CheckClass(w, "MyStatusBarGetText") || part < 0 || part >= Part(w).count) return nullptr;
  XmString t = Part(w).parts[part].text;
  return t ? XmStringCopy(t) : nullptr;
}

}  // extern "C"
