// The slide show window QuillSlideView and the dialog QuillSlide.
#include "files/slide_x.h"

#include <X11/Shell.h>
#include <X11/keysym.h>
#include <Xm/DialogS.h>
#include <Xm/DrawingA.h>
#include <Xm/Form.h>
#include <Xm/Label.h>
#include <Xm/List.h>
#include <Xm/AtomMgr.h>
#include <Xm/MwmUtil.h>
#include <Xm/Protocols.h>
#include <Xm/PushB.h>
#include <Xm/RowColumn.h>
#include <Xm/TextF.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "core/app_x.h"
#include "core/display_x.h"
#include "core/settings.h"
#include "files/load_x.h"
#include "files/selector_x.h"
#include "imgproc/geometry.h"
#include "imgproc/path_text.h"
#include "view/render_x.h"
#include "view/view_x.h"

namespace quilla {

namespace {

// ---- the show ------------------------------------------------------------------------

struct SlideShow {
  Widget shell = nullptr, area = nullptr;
  XtIntervalId timer = 0;
  std::vector<std::string> entries;
  SlideOrder order{0, 0};
  unsigned switches = 0;
  int interval_ms = 1000;
  ColourData *colours = nullptr;
  DisplayObject *display = nullptr;
  GC gc = nullptr;
  Cursor blank = 0;
  Pixmap pixmap = 0;
  int pix_w = 0, pix_h = 0;
  int shown = -1;            // the entry shown last
  int failures = 0;          // unreadable entries in a row
  bool loading = false;      // a load is under way (it may pump events)
  bool end_pending = false;  // Escape came during a load
  std::string title;
};

SlideShow *g_show = nullptr;
std::vector<int> g_history;

void EndShow(SlideShow *s);
void StepShow(SlideShow *s, int direction);

void Tick(XtPointer client, XtIntervalId *) {
  auto *s = static_cast<SlideShow *>(client);
  if (s != g_show) return;
  s->timer = 0;
  StepShow(s, 1);
}

void Schedule(SlideShow *s, int ms) {
  if (s->timer) XtRemoveTimeOut(s->timer);
  s->timer = XtAppAddTimeOut(App().app, static_cast<unsigned long>(ms), Tick, s);
}

void FreePixmap(SlideShow *s) {
  if (s->pixmap) XFreePixmap(App().dpy, s->pixmap);
  s->pixmap = 0;
  s->pix_w = s->pix_h = 0;
}

void AreaSize(const SlideShow *s, int *w, int *h) {
  Dimension aw = 0, ah = 0;
  XtVaGetValues(s->area, XmNwidth, &aw, XmNheight, &ah, nullptr);
  *w = aw, *h = ah;
}

// The picture centred in the drawing area; the rest is background.
void Redraw(SlideShow *s) {
  if (!XtIsRealized(s->area)) return;
  Display *dpy = App().dpy;
  Window win = XtWindow(s->area);
  int aw, ah;
  AreaSize(s, &aw, &ah);
  if (!s->pixmap) {
    XClearWindow(dpy, win);
    return;
  }
  const int x = (aw - s->pix_w) / 2, y = (ah - s->pix_h) / 2;
  XCopyArea(dpy, s->pixmap, win, s->gc, 0, 0, static_cast<unsigned>(s->pix_w), static_cast<unsigned>(s->pix_h), x,
            y);
  // The borders around the picture.
  if (y > 0) XClearArea(dpy, win, 0, 0, static_cast<unsigned>(aw), static_cast<unsigned>(y), False);
  if (y + s->pix_h < ah) XClearArea(dpy, win, 0, y + s->pix_h, static_cast<unsigned>(aw), 0, False);
  if (x > 0) XClearArea(dpy, win, 0, y, static_cast<unsigned>(x), static_cast<unsigned>(s->pix_h), False);
  if (x + s->pix_w < aw) XClearArea(dpy, win, x + s->pix_w, y, 0, static_cast<unsigned>(s->pix_h), False);
}

void Exposed(Widget, XtPointer client, XtPointer) { Redraw(static_cast<SlideShow *>(client)); }

// A picture stored turned (EXIF orientations 2..8) is shown upright.
void Upright(TslPicture *pic, int orientation) {
  if (orientation < 2 || orientation > 8 || !pic->pixels) return;
  TslPicture turned{};
  if (OrientPicture(pic, &turned, orientation) != kOpDone) return;  // shown as stored
  tslFree(pic);
  *pic = turned;
}

// Sizes (and places) the window for the picture, then renders it into the
// pixmap, scaled down when it is larger than the window.
void Render(SlideShow *s, const TslPicture *pic) {
  Display *dpy = App().dpy;
  Screen *scr = XtScreen(s->shell);
  const SlidePlacement p =
      PlaceSlide(s->switches, static_cast<int>(pic->width), static_cast<int>(pic->height), WidthOfScreen(scr),
                 HeightOfScreen(scr));
  if (p.resize) {
    XtVaSetValues(s->shell, XmNwidth, p.width, XmNheight, p.height, nullptr);
  } else if (!(s->switches & kSlideFull)) {
    // A picture as large as the screen gets the whole screen.
    XtVaSetValues(s->shell, XmNx, 0, XmNy, 0, XmNwidth, WidthOfScreen(scr), XmNheight, HeightOfScreen(scr), nullptr);
  }
  if (p.move) XtVaSetValues(s->shell, XmNx, p.x, XmNy, p.y, nullptr);
  int aw, ah;
  AreaSize(s, &aw, &ah);
  if (p.resize) aw = p.width, ah = p.height;
  const double zoom = std::min({100.0, 100.0 * aw / pic->width, 100.0 * ah / pic->height});
  const int w = std::max(1, static_cast<int>(pic->width * zoom / 100.0));
  const int h = std::max(1, static_cast<int>(pic->height * zoom / 100.0));
  FreePixmap(s);
  SetDisplayZoom(s->display, zoom);
  if (!PrepareDisplay(s->display, pic, w, h)) return;
  s->pixmap = XCreatePixmap(dpy, XtWindow(s->area), static_cast<unsigned>(w), static_cast<unsigned>(h),
                            static_cast<unsigned>(CurrentVisual().info.depth));
  DrawExposedArea(s->pixmap, s->gc, s->display, 0, 0, 0, 0, w, h);
  s->pix_w = w, s->pix_h = h;
}

void ShowEntry(SlideShow *s, int index) {
  const std::string path = s->entries[static_cast<size_t>(index)];
  s->title = path;
  XtVaSetValues(s->shell, XmNtitle, path.c_str(), XmNiconName, path.c_str(), nullptr);
  TslFileInfo info{};
  const bool have_info = tslFileInformation(path.c_str(), -1, 0, &info) == 0;
  const int orientation = have_info ? info.orientation : 0;
  TslPicture pic{};
  s->loading = true;
  const int code = CentralLoad(s->shell, path.c_str(), 0, &pic, have_info ? &info : nullptr,
                               !(s->switches & kSlideNoErrors));
  s->loading = false;
  if (have_info) tslFileInformationFree(&info);
  if (s->end_pending) {
    tslFree(&pic);
    return EndShow(s);
  }
  if (code != 0) {
    tslFree(&pic);
    FreePixmap(s);
    Redraw(s);
    // Unreadable files are skipped at once; a list of nothing but
    // unreadable files ends the show rather than spinning.
    if (++s->failures >= static_cast<int>(s->entries.size())) return EndShow(s);
    return Schedule(s, 10);
  }
  s->failures = 0;
  Upright(&pic, orientation);
  Render(s, &pic);
  tslFree(&pic);
  Redraw(s);
  if (s->switches & kSlideTimer) Schedule(s, s->interval_ms);
}

void StepShow(SlideShow *s, int direction) {
  if (s->loading) return;
  if (s->timer) XtRemoveTimeOut(s->timer);
  s->timer = 0;
  const int index = s->order.Step(direction);
  if (index < 0) return EndShow(s);
  g_history.push_back(index);
  s->shown = index;
  ShowEntry(s, index);
}

// Whether a window other than `closing` keeps the program running.
bool AnyOtherWindow(Widget closing) {
  for (const char *n : {"QuillInit", "Browser", "QuillSlide"}) {
    Widget w = XtNameToWidget(App().shell, n);
    if (w && w != closing && XtIsRealized(w)) return true;
  }
  return ViewCount() > 0 || (g_show && g_show->shell != closing);
}

void EndShow(SlideShow *s) {
  if (s->loading) {
    s->end_pending = true;
    return;
  }
  if (g_show == s) g_show = nullptr;
  Display *dpy = App().dpy;
  if (s->timer) XtRemoveTimeOut(s->timer);
  FreePixmap(s);
  if (s->display) ReleaseDisplayObject(s->display);
  if (s->gc) XFreeGC(dpy, s->gc);
  if (s->blank) XFreeCursor(dpy, s->blank);
  if (s->colours) {
    if (!s->colours->shared) XUninstallColormap(dpy, s->colours->colormap);
    ReleaseColourData(dpy, s->colours);
  }
  const bool was_main = App().main_window == s->shell;
  if (was_main) App().main_window = nullptr;
  Widget shell = s->shell;
  delete s;
  // A show started alone (from the command line) ends the program with it.
  if (was_main && !AnyOtherWindow(shell)) QuitWritingSettings();
  if (shell) XtDestroyWidget(shell);
}

// ---- input -----------------------------------------------------------------------------

void Act(SlideInput input) {
  SlideShow *s = g_show;
  if (!s) return;
  int direction = 0;
  switch (ActionForInput(input, s->switches, &direction)) {
    case SlideAction::kStep: return StepShow(s, direction);
    case SlideAction::kEnd: return EndShow(s);
    case SlideAction::kPauseOrResume:
      if (s->loading) return;
      if (s->timer) {
        XtRemoveTimeOut(s->timer);
        s->timer = 0;
      } else {
        Schedule(s, s->interval_ms);
      }
      return;
    case SlideAction::kNone: return;
  }
}

void SlideKbdCancel(Widget, XEvent *, String *, Cardinal *) { Act(SlideInput::kEscape); }

void SlideKbd(Widget, XEvent *event, String *, Cardinal *) {
  if (!event || event->type != KeyPress) return;
  KeySym sym = XLookupKeysym(&event->xkey, 0);
  if (IsModifierKey(sym)) return;  // Shift or Ctrl alone is no step
  SlideInput in = SlideInput::kOtherKey;
  if (sym == XK_Right || sym == XK_KP_Right) in = SlideInput::kRight;
  if (sym == XK_Left || sym == XK_KP_Left) in = SlideInput::kLeft;
  if (sym == XK_space) in = SlideInput::kSpace;
  if (sym == XK_Escape) in = SlideInput::kEscape;
  Act(in);
}

void SlideButton(Widget, XEvent *event, String *, Cardinal *) {
  if (!event || event->type != ButtonPress) return;
  const unsigned b = event->xbutton.button;
  Act(b == Button1 ? SlideInput::kButton1 : b == Button3 ? SlideInput::kButton3 : SlideInput::kOtherButton);
}

const char kSlideTranslations[] =
    "<Key>osfCancel: SlideKbdCancel()\n"
    "<Key>Escape: SlideKbdCancel()\n"
    "<KeyDown>: SlideKbd()\n"
    "<BtnDown>: SlideButton()\n";

void RegisterSlideActions() {
  static XtAppContext done = nullptr;
  if (done == App().app) return;
  static XtActionsRec actions[] = {
      {const_cast<String>("SlideKbdCancel"), SlideKbdCancel},
      {const_cast<String>("SlideKbd"), SlideKbd},
      {const_cast<String>("SlideButton"), SlideButton},
  };
  XtAppAddActions(App().app, actions, XtNumber(actions));
  done = App().app;
}

void WmClose(Widget, XtPointer client, XtPointer) { EndShow(static_cast<SlideShow *>(client)); }

bool CreateShowWindow(SlideShow *s) {
  Display *dpy = App().dpy;
  RegisterSlideActions();
  s->colours = GetColourData(dpy, App().screen, nullptr, App().own_colormap);
  if (!s->colours) return false;
  const VisualDesc &vd = CurrentVisual();
  Screen *scr = ScreenOfDisplay(dpy, App().screen);
  const int sw = WidthOfScreen(scr), sh = HeightOfScreen(scr);
  const bool full = s->switches & kSlideFull;
  // Outside full screen the window starts at half the screen; each picture
  // smaller than the screen then sizes it.
  s->shell = XtVaCreatePopupShell(
      "QuillSlideView", topLevelShellWidgetClass, App().shell, XmNvisual, CurrentXVisual(), XmNdepth, vd.info.depth,
      XmNcolormap, s->colours->colormap, XmNwidth, full ? sw : sw / 2, XmNheight, full ? sh : sh / 2, XmNx, 0, XmNy,
      0, XmNdeleteResponse, XmDO_NOTHING, XmNtitle, "Slide Show", XmNmwmDecorations,
      (full || (s->switches & kSlideNoTitle)) ? 0 : MWM_DECOR_ALL, nullptr);
  Atom wm_delete = XmInternAtom(dpy, const_cast<char *>("WM_DELETE_WINDOW"), False);
  XmAddWMProtocolCallback(s->shell, wm_delete, WmClose, s);
  SetWindowIcon(s->shell);
  s->area = XtVaCreateManagedWidget("slideDrawingArea", xmDrawingAreaWidgetClass, s->shell, XmNbackground,
                                    s->colours->black, XmNmarginWidth, 0, XmNmarginHeight, 0, XmNtraversalOn, True,
                                    XmNresizePolicy, XmRESIZE_NONE, nullptr);
  XtAddCallback(s->area, XmNexposeCallback, Exposed, s);
  XtAddCallback(s->area, XmNresizeCallback, Exposed, s);
  XtOverrideTranslations(s->area, XtParseTranslationTable(kSlideTranslations));
  XtRealizeWidget(s->shell);
  s->gc = XCreateGC(dpy, XtWindow(s->area), 0, nullptr);
  s->display = MakeDisplayObject(dpy, vd.info.depth, s->colours);
  if (!s->display) return false;
  if (s->switches & kSlideHideMouse) {
    static const char bits[1] = {0};
    Pixmap empty = XCreateBitmapFromData(dpy, XtWindow(s->area), bits, 1, 1);
    XColor c{};
    s->blank = XCreatePixmapCursor(dpy, empty, empty, &c, &c, 0, 0);
    XFreePixmap(dpy, empty);
    XDefineCursor(dpy, XtWindow(s->area), s->blank);
  }
  if (!s->colours->shared) XInstallColormap(dpy, s->colours->colormap);
  XtPopup(s->shell, XtGrabNone);
  XmProcessTraversal(s->area, XmTRAVERSE_CURRENT);
  return true;
}

// ---- the dialog ------------------------------------------------------------------------

struct SlideDialog {
  Widget shell = nullptr, form = nullptr, list = nullptr, timer = nullptr, timer_value = nullptr, keybd = nullptr,
         full = nullptr, random = nullptr, loop = nullptr;
  Widget del_all = nullptr, del = nullptr, up = nullptr, down = nullptr;
  std::vector<std::string> entries;
};

SlideDialog *g_dialog = nullptr;

void FillList(SlideDialog *d, int select) {
  XmListDeleteAllItems(d->list);
  for (const std::string &e : d->entries) {
    XmString s = XmStringCreateLocalized(const_cast<char *>(e.c_str()));
    XmListAddItemUnselected(d->list, s, 0);
    XmStringFree(s);
  }
  const bool any = !d->entries.empty();
  for (Widget b : {d->del_all, d->del, d->up, d->down}) XtSetSensitive(b, any);
  if (any && select >= 0) XmListSelectPos(d->list, std::min<int>(select, static_cast<int>(d->entries.size())) + 1, False);
}

int Selected(SlideDialog *d) {
  int *pos = nullptr, n = 0;
  if (!XmListGetSelectedPos(d->list, &pos, &n) || n == 0) return -1;
  const int i = pos[0] - 1;
  XtFree(reinterpret_cast<char *>(pos));
  return i;
}

void SetToggle(Widget w, bool on) { XmToggleButtonSetState(w, on, False); }
bool Toggle(Widget w) { return XmToggleButtonGetState(w); }

// The dialog's switches on a list (the rest come from the settings).
void ShowSwitches(SlideDialog *d, const SlideList &list) {
  SetToggle(d->timer, list.switches & kSlideTimer);
  SetToggle(d->keybd, !(list.switches & kSlideTimer));
  SetToggle(d->full, list.switches & kSlideFull);
  SetToggle(d->random, list.switches & kSlideRandom);
  SetToggle(d->loop, list.switches & kSlideLoop);
  XmTextFieldSetString(d->timer_value, const_cast<char *>(std::to_string(list.timer).c_str()));
}

SlideList DialogList(SlideDialog *d) {
  SlideList l;
  const SettingsRecord &st = Settings();
  l.switches = 0;
  if (Toggle(d->timer)) l.switches |= kSlideTimer;
  if (Toggle(d->loop)) l.switches |= kSlideLoop;
  if (Toggle(d->full)) l.switches |= kSlideFull;
  if (Toggle(d->random)) l.switches |= kSlideRandom;
  if (st.Slide.Center) l.switches |= kSlideCenter;
  if (st.Slide.NoTitle) l.switches |= kSlideNoTitle;
  if (st.Slide.NoError) l.switches |= kSlideNoErrors;
  if (st.Slide.HideMouse) l.switches |= kSlideHideMouse;
  char *t = XmTextFieldGetString(d->timer_value);
  l.timer = std::atoi(t);
  XtFree(t);
  if (l.timer <= 0) l.timer = 1;
  l.show_filename = st.Slide.ShowFilename;
  l.entries = d->entries;
  return l;
}

void StoreSettings(const SlideList &l) {
  auto &s = Settings().Slide;
  s.UseTimer = l.switches & kSlideTimer;
  s.Timer = static_cast<uint16_t>(std::min(l.timer, 65535));
  s.Loop = l.switches & kSlideLoop;
  s.Full = l.switches & kSlideFull;
  s.Random = l.switches & kSlideRandom;
}

// The record goes with its window, however the window goes (closed here,
// or with its parent).
void DialogDestroyed(Widget, XtPointer client, XtPointer) {
  auto *d = static_cast<SlideDialog *>(client);
  if (g_dialog == d) g_dialog = nullptr;
  delete d;
}

void CloseDialog(SlideDialog *d) {
  if (g_dialog == d) g_dialog = nullptr;
  XtDestroyWidget(d->shell);
}

void ListButton(Widget w, XtPointer client, XtPointer) {
  auto *d = static_cast<SlideDialog *>(client);
  const std::string name = XtName(w);
  int i = Selected(d);
  const int n = static_cast<int>(d->entries.size());
  if (name == "filelistAdd") {
    SelectorRequest req;
    req.title = "Load Files...";
    req.multiple = true;
    req.initial = Settings().PathLoad;
    SelectorResult res;
    if (!RunFileSelector(d->shell, req, &res) || g_dialog != d) return;
    d->entries.insert(d->entries.end(), res.paths.begin(), res.paths.end());
    i = static_cast<int>(d->entries.size()) - 1;
  } else if (name == "filelistDelAll") {
    d->entries.clear();
  } else if (i < 0 || i >= n) {
    return;
  } else if (name == "filelistDel") {
    d->entries.erase(d->entries.begin() + i);
  } else if (name == "filelistUp" && i > 0) {
    std::swap(d->entries[static_cast<size_t>(i)], d->entries[static_cast<size_t>(i - 1)]);
    --i;
  } else if (name == "filelistDown" && i + 1 < n) {
    std::swap(d->entries[static_cast<size_t>(i)], d->entries[static_cast<size_t>(i + 1)]);
    ++i;
  }
  FillList(d, i);
}

void LoadOrSave(Widget w, XtPointer client, XtPointer) {
  auto *d = static_cast<SlideDialog *>(client);
  const bool save = std::strcmp(XtName(w), "slideSave") == 0;
  SelectorRequest req;
  req.title = save ? "Save Slide File..." : "Load Slide File...";
  req.mode = save ? kSelectorSave : 0;
  req.initial = Settings().PathSlide;
  SelectorResult res;
  if (!RunFileSelector(d->shell, req, &res) || res.paths.empty() || g_dialog != d) return;
  const std::string path = WithSlideExtension(res.paths.front());
  std::snprintf(Settings().PathSlide, kPathSize, "%s", DirectoryPart(path).c_str());
  if (save) {
    if (!WriteSlideFile(path, DialogList(d))) ShowMessage(d->shell, CantOpenSlideText(path));
    return;
  }
  SlideList l;
  if (!ReadSlideFile(path, &l)) return ShowMessage(d->shell, CantOpenSlideText(path));
  d->entries = l.entries;
  ShowSwitches(d, l);
  FillList(d, 0);
}

void TimerToggled(Widget w, XtPointer client, XtPointer) {
  auto *d = static_cast<SlideDialog *>(client);
  // The timer and keyboard-or-mouse stepping exclude each other.
  const bool timer = (w == d->timer) == Toggle(w);
  SetToggle(d->timer, timer);
  SetToggle(d->keybd, !timer);
  XtSetSensitive(d->timer_value, timer);
}

void Go(Widget, XtPointer client, XtPointer) {
  auto *d = static_cast<SlideDialog *>(client);
  if (d->entries.empty()) {
    if (App().dpy) XBell(App().dpy, 0);
    return;
  }
  const SlideList l = DialogList(d);
  StoreSettings(l);
  const bool was_main = App().main_window == d->shell;
  CloseDialog(d);
  Widget show = StartSlideShow(l.entries, l.switches, l.IntervalMs());
  // The show takes the dialog's place as the program's main window.
  if (was_main) App().main_window = show;
}

// Cancel closes the dialog; the program ends when it was its last window.
void Cancel(Widget, XtPointer client, XtPointer) {
  auto *d = static_cast<SlideDialog *>(client);
  Widget shell = d->shell;
  const bool last = !AnyOtherWindow(shell);
  if (App().main_window == shell) App().main_window = nullptr;
  CloseDialog(d);
  if (last) QuitWritingSettings();
}

Widget Button(const char *name, const char *label, Widget parent, XtCallbackProc cb, void *client) {
  XmString s = XmStringCreateLocalized(const_cast<char *>(label));
  Widget b = XtVaCreateManagedWidget(name, xmPushButtonWidgetClass, parent, XmNlabelString, s, nullptr);
  XmStringFree(s);
  if (cb) XtAddCallback(b, XmNactivateCallback, cb, client);
  return b;
}

Widget ToggleButton(const char *name, const char *label, Widget parent) {
  XmString s = XmStringCreateLocalized(const_cast<char *>(label));
  Widget b = XtVaCreateManagedWidget(name, xmToggleButtonWidgetClass, parent, XmNlabelString, s, nullptr);
  XmStringFree(s);
  return b;
}

// Gives every widget of a tree the foreground and shadows that go with its
// background: the dialog's background comes from the resources (black by
// default) while the program-wide foreground is black.
void MatchColours(Widget w) {
  if (!XtIsWidget(w)) return;
  Pixel bg = 0;
  XtVaGetValues(w, XmNbackground, &bg, nullptr);
  XmChangeColor(w, bg);
  if (!XtIsComposite(w)) return;
  WidgetList children = nullptr;
  Cardinal n = 0;
  XtVaGetValues(w, XmNchildren, &children, XmNnumChildren, &n, nullptr);
  for (Cardinal i = 0; i < n; ++i) MatchColours(children[i]);
}

SlideDialog *BuildDialog(Widget owner) {
  auto *d = new SlideDialog;
  d->shell = XtVaCreatePopupShell("QuillSlide", xmDialogShellWidgetClass, owner, XmNtitle, "Slide Show",
                                  XmNdeleteResponse, XmDO_NOTHING, nullptr);
  XtAddCallback(d->shell, XtNdestroyCallback, DialogDestroyed, d);
  Atom wm_delete = XmInternAtom(App().dpy, const_cast<char *>("WM_DELETE_WINDOW"), False);
  XmAddWMProtocolCallback(d->shell, wm_delete, Cancel, d);
  d->form = XtVaCreateWidget("form", xmFormWidgetClass, d->shell, XmNmarginWidth, 8, XmNmarginHeight, 8,
                             XmNautoUnmanage, False, nullptr);
  // Left: the switches.
  Widget sw = XtVaCreateManagedWidget("switches", xmRowColumnWidgetClass, d->form, XmNtopAttachment, XmATTACH_FORM,
                                      XmNleftAttachment, XmATTACH_FORM, nullptr);
  Widget timer_row = XtVaCreateManagedWidget("timerRow", xmRowColumnWidgetClass, sw, XmNorientation, XmHORIZONTAL,
                                             nullptr);
  d->timer = ToggleButton("SlideTimer", "Timer (seconds)", timer_row);
  d->timer_value = XtVaCreateManagedWidget("SlideTimerValue", xmTextFieldWidgetClass, timer_row, XmNcolumns, 4,
                                           nullptr);
  d->keybd = ToggleButton("SlideKeybd", "Use Keyboard Press or Mouse Click", sw);
  d->full = ToggleButton("SlideFull", "Full screen", sw);
  d->random = ToggleButton("SlideRandom", "Use Random Order", sw);
  d->loop = ToggleButton("SlideLoop", "Loop", sw);
  XtAddCallback(d->timer, XmNvalueChangedCallback, TimerToggled, d);
  XtAddCallback(d->keybd, XmNvalueChangedCallback, TimerToggled, d);
  Widget files = XtVaCreateManagedWidget("slideFiles", xmRowColumnWidgetClass, sw, XmNorientation, XmHORIZONTAL,
                                         nullptr);
  Button("slideSave", "Save...", files, LoadOrSave, d);
  Button("slideLoad", "Load...", files, LoadOrSave, d);
  // "More Options..." has no page of its own yet: the options it would hold
  // are read from the settings file.
  XtSetSensitive(Button("slideMore", "More Options...", sw, nullptr, nullptr), False);

  // Bottom: Go and Cancel.
  Widget bottom = XtVaCreateManagedWidget("buttons", xmRowColumnWidgetClass, d->form, XmNorientation, XmHORIZONTAL,
                                          XmNbottomAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM,
                                          nullptr);
  Widget ok = Button("buttonOk", "Go", bottom, Go, d);
  Widget cancel = Button("buttonCancel", "Cancel", bottom, Cancel, d);

  // Right: the list and its buttons.
  Widget lb = XtVaCreateManagedWidget("listButtons", xmRowColumnWidgetClass, d->form, XmNorientation, XmHORIZONTAL,
                                      XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_WIDGET,
                                      XmNleftWidget, sw, XmNleftOffset, 8, nullptr);
  Button("filelistAdd", "Add...", lb, ListButton, d);
  d->del_all = Button("filelistDelAll", "Delete All", lb, ListButton, d);
  d->del = Button("filelistDel", "Delete", lb, ListButton, d);
  d->up = Button("filelistUp", "Up", lb, ListButton, d);
  d->down = Button("filelistDown", "Down", lb, ListButton, d);
  Arg args[8];
  Cardinal n = 0;
  XtSetArg(args[n], XmNvisibleItemCount, 12), ++n;
  XtSetArg(args[n], XmNselectionPolicy, XmBROWSE_SELECT), ++n;
  XtSetArg(args[n], XmNtopAttachment, XmATTACH_WIDGET), ++n;
  XtSetArg(args[n], XmNtopWidget, lb), ++n;
  XtSetArg(args[n], XmNleftAttachment, XmATTACH_WIDGET), ++n;
  XtSetArg(args[n], XmNleftWidget, sw), ++n;
  XtSetArg(args[n], XmNrightAttachment, XmATTACH_FORM), ++n;
  XtSetArg(args[n], XmNbottomAttachment, XmATTACH_WIDGET), ++n;
  d->list = XmCreateScrolledList(d->form, const_cast<char *>("filelist"), args, n);
  XtVaSetValues(XtParent(d->list), XmNleftOffset, 8, XmNbottomWidget, bottom, XmNbottomOffset, 8, XmNwidth, 360,
                nullptr);
  XtManageChild(d->list);
  XtVaSetValues(d->form, XmNdefaultButton, ok, XmNcancelButton, cancel, XmNinitialFocus, d->timer_value, nullptr);
  MatchColours(d->form);
  return d;
}

}  // namespace

Widget OpenSlideDialog(const SlideList &list) {
  if (g_dialog) {
    if (!list.entries.empty()) {
      g_dialog->entries = list.entries;
      ShowSwitches(g_dialog, list);
      FillList(g_dialog, 0);
    }
    XRaiseWindow(App().dpy, XtWindow(g_dialog->shell));
    return g_dialog->shell;
  }
  // A window of its own, on the application shell: it outlives the view
  // that opened it and keeps the program running.
  SlideDialog *d = BuildDialog(App().shell);
  g_dialog = d;
  d->entries = list.entries;
  ShowSwitches(d, list);
  XtSetSensitive(d->timer_value, list.switches & kSlideTimer);
  FillList(d, 0);
  XtManageChild(d->form);
  XtPopup(d->shell, XtGrabNone);
  return d->shell;
}

Widget StartSlideShow(const std::vector<std::string> &entries, unsigned switches, int interval_ms) {
  if (g_show) EndShow(g_show);
  if (g_show || entries.empty()) return nullptr;  // the old show is still loading
  std::srand(static_cast<unsigned>(std::time(nullptr)));
  g_history.clear();
  auto *s = new SlideShow;
  g_show = s;
  s->entries = entries;
  s->switches = switches;
  s->interval_ms = interval_ms > 0 ? interval_ms : 1000;
  s->order = SlideOrder(entries.size(), switches);
  if (!CreateShowWindow(s)) {
    EndShow(s);
    return nullptr;
  }
  Widget shell = s->shell;
  StepShow(s, 1);
  return g_show == s ? shell : nullptr;
}

SlideList SlideListFromSettings() {
  const auto &st = Settings().Slide;
  SlideList l;
  l.switches = (st.UseTimer ? kSlideTimer : 0) | (st.Loop ? kSlideLoop : 0) | (st.Full ? kSlideFull : 0) |
               (st.Center ? kSlideCenter : 0) | (st.NoTitle ? kSlideNoTitle : 0) |
               (st.NoError ? kSlideNoErrors : 0) | (st.HideMouse ? kSlideHideMouse : 0) |
               (st.Random ? kSlideRandom : 0);
  l.timer = st.Timer > 0 ? st.Timer : 1;
  l.show_filename = st.ShowFilename;
  return l;
}

Widget OpenSlideShow(Widget parent, const char *slide_file) {
  SlideList list;
  const std::string path = slide_file ? slide_file : "";
  if (!ReadSlideFile(path, &list)) {
    ShowMessage(parent, CantOpenSlideText(path));
    return nullptr;
  }
  if (list.entries.empty()) return OpenSlideDialog(list);
  return StartSlideShow(list.entries, list.switches, list.IntervalMs());
}

Widget ShownSlideShow() { return g_show ? g_show->shell : nullptr; }

bool GetSlideShowState(SlideShowState *out) {
  if (!g_show) return false;
  out->index = g_show->shown;
  out->scheduled = g_show->timer != 0;
  out->switches = g_show->switches;
  out->title = g_show->title;
  out->drawing_area = g_show->area;
  out->pixmap = g_show->pixmap;
  out->width = g_show->pix_w;
  out->height = g_show->pix_h;
  return true;
}

Widget ShownSlideDialog() { return g_dialog ? g_dialog->shell : nullptr; }

const std::vector<int> &SlideShowHistory() { return g_history; }

}  // namespace quilla
