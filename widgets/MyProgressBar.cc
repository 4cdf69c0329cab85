// MyProgressBar: a Motif primitive that draws a filled bar and a centred label.
#include "widgets/MyProgressBarP.h"

#include <Xm/DrawP.h>
#include <Xm/XmP.h>

#include <cstdio>

#define Part(w) (reinterpret_cast<MyProgressBarWidget>(w)->progress)

static XtResource resources[] = {
    {const_cast<char *>(MyNbarColor), const_cast<char *>(MyCBarColor), XmRPixel, sizeof(Pixel),
     XtOffsetOf(MyProgressBarRec, progress.bar_color), XmRString, const_cast<char *>("#707070")},
    {const_cast<char *>(XmNfontList), const_cast<char *>(XmCFontList), XmRFontList, sizeof(XmFontList),
     XtOffsetOf(MyProgressBarRec, progress.font_list), XmRImmediate, nullptr},
};

static void Initialize(Widget req, Widget w, ArgList, Cardinal *);
static void Destroy(Widget w);
static void Redisplay(Widget w, XEvent *, Region);
static void Realize(Widget w, XtValueMask *mask, XSetWindowAttributes *attrs);

MyProgressBarClassRec myProgressBarClassRec = {
    {
        reinterpret_cast<WidgetClass>(&xmPrimitiveClassRec),  // superclass
        const_cast<char *>("MyProgressBar"),                  // class_name
        sizeof(MyProgressBarRec),                             // widget_size
        nullptr, nullptr, False,                              // class_initialize, part init, inited
        Initialize, nullptr,                                  // initialize, hook
        Realize, nullptr, 0,                                  // realize, actions, num_actions
        resources, XtNumber(resources), NULLQUARK,            // resources
        True, XtExposeCompressMaximal, True, False,           // compress motion/exposure/enterleave, visible
        Destroy, nullptr, Redisplay,                          // destroy, resize, expose
        nullptr, nullptr, nullptr,                            // set_values, hook, almost
        nullptr, nullptr, XtVersion, nullptr,                 // get_values_hook, accept_focus, version, callbacks
        XtInheritTranslations, nullptr, nullptr, nullptr,     // tm_table, query_geometry, accelerator, extension
    },
    {
        XmInheritBorderHighlight, XmInheritBorderUnhighlight, nullptr, nullptr, nullptr, 0, nullptr,
    },
    {0},
};

WidgetClass myProgressBarWidgetClass = reinterpret_cast<WidgetClass>(&myProgressBarClassRec);

static bool CheckClass(Widget w, const char *function) {
  if (w && XtIsSubclass(w, myProgressBarWidgetClass)) return true;
  char text[128];
  std::snprintf(text, sizeof text, "%s: widget has invalid class", function);
  XtWarning(text);
  return false;
}

static void Initialize(Widget, Widget w, ArgList, Cardinal *) {
  MyProgressBarPart &p = Part(w);
  p.minimum = 0;
  p.maximum = 100;
  p.value = 0;
  p.last_percent = -1;
  p.label = XmStringCreateLocalized(const_cast<char *>(""));
  p.bar_gc = p.text_gc = nullptr;
  p.redraws = 0;
  if (!p.font_list) p.font_list = XmeGetDefaultRenderTable(w, XmLABEL_FONTLIST);
  p.font_list = XmFontListCopy(p.font_list);
  if (w->core.width == 0) w->core.width = 200;
  if (w->core.height == 0) w->core.height = 20;
}

static void Realize(Widget w, XtValueMask *mask, XSetWindowAttributes *attrs) {
  XtCreateWindow(w, InputOutput, CopyFromParent, *mask, attrs);
  MyProgressBarPart &p = Part(w);
  XGCValues v;
  v.foreground = p.bar_color;
  p.bar_gc = XtGetGC(w, GCForeground, &v);
  v.foreground = reinterpret_cast<MyProgressBarWidget>(w)->primitive.foreground;
  p.text_gc = XtGetGC(w, GCForeground, &v);
}

static void Destroy(Widget w) {
  MyProgressBarPart &p = Part(w);
  if (p.label) XmStringFree(p.label);
  if (p.font_list) XmFontListFree(p.font_list);
  if (p.bar_gc) XtReleaseGC(w, p.bar_gc);
  if (p.text_gc) XtReleaseGC(w, p.text_gc);
}

static void Redisplay(Widget w, XEvent *, Region) {
  if (!XtIsRealized(w)) return;
  MyProgressBarPart &p = Part(w);
  MyProgressBarWidget pw = reinterpret_cast<MyProgressBarWidget>(w);
  const Dimension st = pw->primitive.shadow_thickness, ht = pw->primitive.highlight_thickness;
  const int inset = st + ht;
  const int iw = static_cast<int>(w->core.width) - 2 * inset, ih = static_cast<int>(w->core.height) - 2 * inset;
  ++p.redraws;
  if (iw <= 0 || ih <= 0) return;
  const long range = static_cast<long>(p.maximum) - p.minimum;
  long filled = range > 0 ? static_cast<long>(iw) * (p.value - p.minimum) / range : 0;
  if (filled < 0) filled = 0;
  if (filled > iw) filled = iw;
  Display *d = XtDisplay(w);
  Window win = XtWindow(w);
  if (filled > 0) XFillRectangle(d, win, p.bar_gc, inset, inset, static_cast<unsigned>(filled), static_cast<unsigned>(ih));
  XmeDrawShadows(d, win, pw->primitive.top_shadow_GC, pw->primitive.bottom_shadow_GC, ht, ht,
                 w->core.width - 2 * ht, w->core.height - 2 * ht, st, XmSHADOW_IN);
  if (p.label && p.font_list) {
    Dimension lw = 0, lh = 0;
    XmStringExtent(p.font_list, p.label, &lw, &lh);
    XmStringDraw(d, win, p.font_list, p.label, p.text_gc, static_cast<Position>((w->core.width - lw) / 2),
                 static_cast<Position>((w->core.height - lh) / 2), lw, XmALIGNMENT_CENTER, XmSTRING_DIRECTION_L_TO_R,
                 nullptr);
  }
}

extern "C" {

Widget MyCreateProgressBar(Widget parent, const char *name, ArgList args, Cardinal n) {
  return XtCreateWidget(name, myProgressBarWidgetClass, parent, args, n);
}

void MyProgressBarSetComponents(Widget w, XmString label, int minimum, int maximum, int value) {
  if (!CheckClass(w, "MyProgressBarSetComponents")) return;
  MyProgressBarPart &p = Part(w);
  p.minimum = minimum;
  p.maximum = maximum;
  p.value = value;
  if (p.label) XmStringFree(p.label);
  p.label = label ? XmStringCopy(label) : XmStringCreateLocalized(const_cast<char *>(""));
  if (XtIsRealized(w)) {
    MyProgressBarWidget pw = reinterpret_cast<MyProgressBarWidget>(w);
    const int b = pw->primitive.shadow_thickness + pw->primitive.highlight_thickness;
    if (static_cast<int>(w->core.width) > 2 * b && static_cast<int>(w->core.height) > 2 * b)
      XClearArea(XtDisplay(w), XtWindow(w), b, b, w->core.width - 2 * b, w->core.height - 2 * b, False);
    Redisplay(w, nullptr, nullptr);
  }
}

void MyProgressBarStepIt(Widget w) {
  if (!CheckClass(w, "MyProgressBarStepIt")) return;
  MyProgressBarPart &p = Part(w);
  int value = p.value + 1;
  if (value > p.maximum) value = p.maximum;
  p.value = value;
  // The divisor counts both ends of the range, so 0..99 ends at 99%.
  const long divisor = static_cast<long>(p.maximum) - p.minimum + 1;
  const int percent = divisor == 0 ? 0 : static_cast<int>(static_cast<long>(value) * 100 / divisor);
  if (percent == p.last_percent) return;
  p.last_percent = percent;
  char text[32];
  std::snprintf(text, sizeof text, "%d%%", percent);
  XmString label = XmStringCreateLocalized(text);
  MyProgressBarSetComponents(w, label, p.minimum, p.maximum, value);
  XmStringFree(label);
}

int MyProgressBarGetValue(Widget w) { return CheckClass(w, "MyProgressBarGetValue") ? Part(w).value : 0; }
int MyProgressBarGetPercent(Widget w) { return CheckClass(w, "MyProgressBarGetPercent") ? Part(w).last_percent : -1; }
long MyProgressBarRedrawCount(Widget w) { return CheckClass(w, "MyProgressBarRedrawCount") ? Part(w).redraws : 0; }

}  // extern "C"
