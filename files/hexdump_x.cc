// The hex dump window: two drawing areas side by side (offset and bytes in
// hexadecimal; the characters), a vertical scroll bar over the line count
// and "O.K.".  The lines are read from the file as they come into view.
#include "files/hexdump_x.h"

#include <X11/IntrinsicP.h>
#include <X11/Shell.h>
#include <X11/keysym.h>
#include <Xm/DrawingA.h>
#include <Xm/Form.h>
#include <Xm/Protocols.h>
#include <Xm/PushB.h>
#include <Xm/ScrollBar.h>
#include <Xm/Xm.h>

#include <algorithm>
#include <vector>

#include "core/app_x.h"
#include "core/settings.h"
#include "files/hexdump_model.h"
#include "files/load_x.h"
#include "files/selector_x.h"

namespace quilla {

namespace {

constexpr const char *kFallbackFont = "-*-fixed-medium-r-normal--13-*-*-*-*-*-*-*";
constexpr int kHexColumns = 58;   // "%08x: " and sixteen "%02x "
constexpr int kTextColumns = 16;  // the characters
constexpr int kMargin = 4;
constexpr int kInitialLines = 24;

struct DumpRecord {
  Widget shell = nullptr, dump = nullptr, text = nullptr, scroll = nullptr;
  std::string path;
  HexDumpFile file;
  XFontStruct *font = nullptr;
  GC gc = nullptr;
  int line_h = 1, char_w = 1;
  int top = 0;
};

std::vector<DumpRecord *> &Dumps() {
  static std::vector<DumpRecord *> dumps;
  return dumps;
}

DumpRecord *FindDump(Widget shell) {
  for (DumpRecord *d : Dumps())
    if (d->shell == shell) return d;
  return nullptr;
}

// The font named by the fontList resource of the dump area, else the fixed
// font, else the server's "fixed".
XFontStruct *LoadDumpFont(Widget area) {
  String name = nullptr;
  XtResource res = {const_cast<char *>("fontList"), const_cast<char *>("FontList"), const_cast<char *>(XtRString),
                    sizeof(String), 0, const_cast<char *>(XtRString), const_cast<char *>(kFallbackFont)};
  XtGetApplicationResources(area, &name, &res, 1, nullptr, 0);
  Display *dpy = XtDisplay(area);
  XFontStruct *font = nullptr;
  if (name && *name) {
    // A font list may carry a tag ("font=tag") or several fonts: the first name counts.
    std::string first = name;
    first = first.substr(0, first.find_first_of(",=:"));
    font = XLoadQueryFont(dpy, first.c_str());
  }
  if (!font) font = XLoadQueryFont(dpy, kFallbackFont);
  if (!font) font = XLoadQueryFont(dpy, "fixed");
  return font;
}

int VisibleLines(const DumpRecord *d) {
  Dimension h = 0;
  XtVaGetValues(d->dump, XmNheight, &h, nullptr);
  return std::max(1, (static_cast<int>(h) - 2 * kMargin) / d->line_h);
}

int LastTop(const DumpRecord *d) {
  const int64_t lines = static_cast<int64_t>(d->file.line_count());
  return static_cast<int>(std::max<int64_t>(0, lines - VisibleLines(d)));
}

// The scroll bar follows the line count, the window's height and the top line.
void UpdateScrollBar(DumpRecord *d) {
  const int lines = static_cast<int>(d->file.line_count());
  const int maximum = std::max(1, lines);
  const int slider = std::max(1, std::min(VisibleLines(d), maximum));
  d->top = std::max(0, std::min(d->top, LastTop(d)));
  XtVaSetValues(d->scroll, XmNminimum, 0, XmNmaximum, maximum, XmNsliderSize, slider, XmNvalue,
                std::min(d->top, maximum - slider), XmNincrement, 1, XmNpageIncrement, std::max(1, slider - 1),
                nullptr);
}

void Draw(DumpRecord *d) {
  if (!d->gc || !XtIsRealized(d->dump)) return;
  Display *dpy = XtDisplay(d->dump);
  const int count = VisibleLines(d) + 1;
  const std::vector<std::string> lines = d->file.Lines(static_cast<uint64_t>(d->top), static_cast<size_t>(count));
  XClearWindow(dpy, XtWindow(d->dump));
  XClearWindow(dpy, XtWindow(d->text));
  int y = kMargin + d->font->ascent;
  for (const std::string &line : lines) {
    XDrawString(dpy, XtWindow(d->dump), d->gc, kMargin, y, line.data(), kHexColumns);
    XDrawString(dpy, XtWindow(d->text), d->gc, kMargin, y, line.data() + kHexColumns, kTextColumns);
    y += d->line_h;
  }
}

void ScrollTo(DumpRecord *d, int top) {
  d->top = std::max(0, std::min(top, LastTop(d)));
  UpdateScrollBar(d);
  Draw(d);
}

void Close(DumpRecord *d) {
  if (!d->shell->core.being_destroyed) XtDestroyWidget(d->shell);
}

void Exposed(Widget, XtPointer data, XtPointer call) {
  auto *cb = static_cast<XmDrawingAreaCallbackStruct *>(call);
  if (cb && cb->event && cb->event->type == Expose && cb->event->xexpose.count != 0) return;
  Draw(static_cast<DumpRecord *>(data));
}

void Resized(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<DumpRecord *>(data);
  UpdateScrollBar(d);
  Draw(d);
}

void Scrolled(Widget, XtPointer data, XtPointer call) {
  auto *d = static_cast<DumpRecord *>(data);
  d->top = static_cast<XmScrollBarCallbackStruct *>(call)->value;
  Draw(d);
}

void OkPressed(Widget, XtPointer data, XtPointer) { Close(static_cast<DumpRecord *>(data)); }

void WmDelete(Widget, XtPointer data, XtPointer) { Close(static_cast<DumpRecord *>(data)); }

// Arrows by a line, Page Up/Down by a window less one line, Home and End
// to either end, Escape closes; the wheel scrolls three lines.
void Input(Widget, XtPointer data, XEvent *event, Boolean *) {
  auto *d = static_cast<DumpRecord *>(data);
  if (event->type == ButtonPress) {
    if (event->xbutton.button == Button4) ScrollTo(d, d->top - 3);
    if (event->xbutton.button == Button5) ScrollTo(d, d->top + 3);
    return;
  }
  if (event->type != KeyPress) return;
  const int page = std::max(1, VisibleLines(d) - 1);
  switch (XLookupKeysym(&event->xkey, 0)) {
    case XK_Up: case XK_KP_Up: ScrollTo(d, d->top - 1); break;
    case XK_Down: case XK_KP_Down: ScrollTo(d, d->top + 1); break;
    case XK_Prior: case XK_KP_Prior: ScrollTo(d, d->top - page); break;
    case XK_Next: case XK_KP_Next: ScrollTo(d, d->top + page); break;
    case XK_Home: case XK_KP_Home: ScrollTo(d, 0); break;
    case XK_End: case XK_KP_End: ScrollTo(d, LastTop(d)); break;
    case XK_Escape: Close(d); break;
    default: break;
  }
}

void Destroyed(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<DumpRecord *>(data);
  auto &dumps = Dumps();
  dumps.erase(std::remove(dumps.begin(), dumps.end(), d), dumps.end());
  Display *dpy = XtDisplay(d->shell);
  if (d->gc) XFreeGC(dpy, d->gc);
  if (d->font) XFreeFont(dpy, d->font);
  delete d;
}

}  // namespace

Widget OpenHexDump(Widget owner, const std::string &path) {
  auto *d = new DumpRecord;
  std::string error;
  if (!d->file.Open(path, &error)) {
    delete d;
    ShowMessage(owner, error);
    return nullptr;
  }
  d->path = path;
  const std::string title = HexDumpTitle(path);
  Widget parent = App().shell ? App().shell : ShellOf(owner);
  d->shell = XtVaCreatePopupShell("QuillDump", topLevelShellWidgetClass, parent, XmNtitle, title.c_str(),
                                  XmNiconName, title.c_str(), XmNdeleteResponse, XmDO_NOTHING, nullptr);
  SetWindowIcon(d->shell);
  XmAddWMProtocolCallback(d->shell, XmInternAtom(XtDisplay(d->shell), const_cast<char *>("WM_DELETE_WINDOW"), False),
                          WmDelete, d);
  XtAddCallback(d->shell, XmNdestroyCallback, Destroyed, d);
  Dumps().push_back(d);

  Widget form = XtVaCreateWidget("form", xmFormWidgetClass, d->shell, XmNmarginWidth, 6, XmNmarginHeight, 6, nullptr);
  XmString ok_label = XmStringCreateLocalized(const_cast<char *>("O.K."));
  Widget ok = XtVaCreateManagedWidget("pushButtonOK", xmPushButtonWidgetClass, form, XmNlabelString, ok_label,
                                      XmNbottomAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_POSITION,
                                      XmNleftPosition, 40, XmNrightAttachment, XmATTACH_POSITION, XmNrightPosition,
                                      60, nullptr);
  XmStringFree(ok_label);
  XtAddCallback(ok, XmNactivateCallback, OkPressed, d);
  d->scroll = XtVaCreateManagedWidget("scrollV", xmScrollBarWidgetClass, form, XmNorientation, XmVERTICAL,
                                      XmNtopAttachment, XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM,
                                      XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget, ok, XmNbottomOffset, 6,
                                      nullptr);
  d->dump = XtVaCreateWidget("drawingAreaDump", xmDrawingAreaWidgetClass, form, XmNtraversalOn, True,
                             XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM,
                             XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget, ok, XmNbottomOffset, 6, nullptr);
  d->text = XtVaCreateWidget("drawingAreaText", xmDrawingAreaWidgetClass, form, XmNtraversalOn, False,
                             XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget,
                             d->dump, XmNleftOffset, 4, XmNrightAttachment, XmATTACH_WIDGET, XmNrightWidget,
                             d->scroll, XmNrightOffset, 2, XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget, ok,
                             XmNbottomOffset, 6, nullptr);
  d->font = LoadDumpFont(d->dump);
  if (d->font) {
    d->line_h = std::max(1, d->font->ascent + d->font->descent);
    d->char_w = std::max(1, static_cast<int>(d->font->max_bounds.width));
  }
  XtVaSetValues(d->dump, XmNwidth, kHexColumns * d->char_w + 2 * kMargin, XmNheight,
                kInitialLines * d->line_h + 2 * kMargin, nullptr);
  XtVaSetValues(d->text, XmNwidth, kTextColumns * d->char_w + 2 * kMargin, nullptr);
  for (Widget area : {d->dump, d->text}) {
    XtAddCallback(area, XmNexposeCallback, Exposed, d);
    XtAddEventHandler(area, KeyPressMask | ButtonPressMask, False, Input, d);
  }
  XtAddCallback(d->dump, XmNresizeCallback, Resized, d);
  XtAddCallback(d->scroll, XmNvalueChangedCallback, Scrolled, d);
  XtAddCallback(d->scroll, XmNdragCallback, Scrolled, d);
  XtManageChild(d->dump);
  XtManageChild(d->text);
  XtVaSetValues(form, XmNinitialFocus, d->dump, XmNcancelButton, ok, nullptr);
  XtManageChild(form);
  XtRealizeWidget(d->shell);
  if (d->font) {
    XGCValues v;
    Pixel fg = BlackPixelOfScreen(XtScreen(d->dump));
    XtVaGetValues(d->dump, XmNforeground, &fg, nullptr);
    v.foreground = fg;
    v.font = d->font->fid;
    d->gc = XCreateGC(XtDisplay(d->dump), XtWindow(d->dump), GCForeground | GCFont, &v);
  }
  UpdateScrollBar(d);
  XtPopup(d->shell, XtGrabNone);
  XmProcessTraversal(d->dump, XmTRAVERSE_CURRENT);
  return d->shell;
}

void ViewHexaCommand(Widget owner) {
  SelectorRequest req;
  req.title = "View Files...";
  req.multiple = true;
  req.initial = Settings().PathLoad;
  SelectorResult res;
  if (!RunFileSelector(owner, req, &res)) return;
  for (const std::string &path : res.paths) OpenHexDump(owner, path);
}

int HexDumpCount() { return static_cast<int>(Dumps().size()); }

Widget HexDumpShellAt(int index) {
  return index >= 0 && index < HexDumpCount() ? Dumps()[static_cast<size_t>(index)]->shell : nullptr;
}

bool GetHexDumpState(Widget shell, HexDumpState *out) {
  DumpRecord *d = FindDump(shell);
  if (!d) return false;
  out->shell = d->shell;
  out->path = d->path;
  out->lines = d->file.line_count();
  out->top = d->top;
  out->visible = VisibleLines(d);
  XtVaGetValues(d->scroll, XmNmaximum, &out->scroll_max, XmNsliderSize, &out->slider, nullptr);
  const std::vector<std::string> first = d->file.Lines(static_cast<uint64_t>(d->top), 1);
  out->first_line = first.empty() ? "" : first.front();
  return true;
}

}  // namespace quilla
