// The view window QuillView: the picture in a drawing area, scrolled and
// zoomed, the menus or pop-up menu, the tool bar, the information label and
// the commands that arrive as ViewDoCommand words.
//
// The widgets use the screen's default visual; the picture is drawn into a
// child window of the drawing area created on the visual chosen at start-up
// (which may be deeper than the default one), with the colour data's
// colormap.  Events of that window reach the drawing area's handlers through
// XtRegisterDrawable, and key presses propagate to the drawing area, whose
// translations hold the key bindings.
#include "view/view_x.h"

#include <X11/Xatom.h>
#include <X11/Xutil.h>
#include <Xm/DrawingA.h>
#include <Xm/Form.h>
#include <Xm/Label.h>
#include <Xm/MainW.h>
#include <Xm/MwmUtil.h>
#include <Xm/Protocols.h>
#include <Xm/RowColumn.h>
#include <Xm/ScrollBar.h>
#include <Xm/Xm.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "core/app_x.h"
#include "core/options_x.h"
#include "core/display_x.h"
#include "core/settings.h"
#include "files/load_model.h"
#include "files/load_x.h"
#include "imgproc/geometry.h"
#include "imgproc/operations.h"
#include "view/render_x.h"
#include "view/view_hooks_x.h"
#include "view/view_menus_x.h"
#include "view/view_model.h"
#include "view/op_model.h"

namespace quilla {

namespace {

const char kTitle[] = "Quilla v1.50";

// Frames of an animation kept in memory at most (bytes); past it frames are
// decoded again on each pass.
constexpr size_t kFrameCacheBudget = size_t{256} << 20;

// The full picture behind a reduced first paint is decoded this long (ms)
// after that paint.
constexpr unsigned long kFullDecodeDelayMs = 50;

struct ViewRecord;

// The reduced first decode of a large JPEG opened in a new window, run on a
// worker thread while the main thread builds the window.
struct ReducedDecode {
  std::string path;
  int page = 0;
  FitResult fit{};
  LoadRequest req;
  TslPicture pic{};
  int code = -1;
  std::thread worker;
};

// The full decode of a picture shown from its reduced decode, run on a
// worker thread that calls the image library only.  The worker writes one
// byte into the pipe when it is done; Xt watches the read end, so the
// result is taken over on the main thread.
struct FullDecode {
  ViewRecord *view = nullptr;
  std::string path;
  int orientation = 0;
  LoadRequest req;
  std::atomic<bool> cancelled{false};
  TslPicture pic{};
  int code = 0;
  int fds[2] = {-1, -1};
  XtInputId input = 0;
  std::thread worker;
};

struct ViewRecord {
  Widget shell = nullptr, main_window = nullptr, menu = nullptr, popup = nullptr, toolbar = nullptr;
  Widget scroll_h = nullptr, scroll_v = nullptr, drawing_area = nullptr, message_window = nullptr,
         label_info = nullptr;
  Widget picker_shell = nullptr, picker_label = nullptr;
  Window canvas = 0;
  GC gc = nullptr;
  ColourData *colours = nullptr;
  DisplayObject *display = nullptr;

  TslPicture pic{};   // the picture as loaded (or as changed by operations)
  TslPicture undo{};  // one undo copy (View.UseUndo)
  bool undo_modified = false;
  TslPicture mask{};  // transparency mask shown by showMask
  bool show_mask = false;
  bool modified = false;

  std::string path;
  int format = -1;
  FileListEntry *list = nullptr;
  int count = 0, pos = 0;
  int page = 0, pages = 1;

  // Animation: frame delays in ms, the frames decoded so far (frame 0 is pic).
  std::vector<int> delays;
  std::vector<TslPicture> frames;
  size_t frame_bytes = 0;
  bool animating = false;
  XtIntervalId timer = 0;

  double zoom = 100.0;
  int view_w = 0, view_h = 0;  // displayed picture size
  int scroll_x = 0, scroll_y = 0;
  bool full_screen = false;
  Position saved_x = 0, saved_y = 0;
  Dimension saved_w = 0, saved_h = 0;
  bool picker = false;
  int drag_x = -1, drag_y = -1;
  // The crop selection, in picture coordinates: drawn with the left button
  // from the anchor (a pixel boundary) to the pointer.
  OpRect sel{0, 0, 0, 0};
  bool selecting = false;
  int anchor_x = 0, anchor_y = 0;
  unsigned pressed = 0;  // the button held down (1 or 2), 0 none
  int press_x = 0, press_y = 0;
  bool moved = false;    // the pointer went further than a click allows
  // A large JPEG that opens shrunk to the screen is first shown from a
  // reduced decode (the codec's own scaling, at the displayed size).  Its
  // first paint goes through a server-side pixmap, after which the reduced
  // picture is freed; the full picture is decoded in the background and
  // takes its place without a redraw.  The pixmap stays on the screen until
  // the zoom or the picture changes.
  bool preview = false;
  uint32_t full_w = 0, full_h = 0;
  double preview_zoom = 100;
  int preview_w = 0, preview_h = 0;  // the reduced picture's size
  InfoLabel preview_info;            // its label, the full size
  int preview_model = 0;
  Pixmap fit_pixmap = 0;             // the reduced picture as drawn, view_w x view_h
  FullDecode *decode = nullptr;      // the background decode running
  XtIntervalId decode_timer = 0;     // it starts shortly after the first paint
  ReducedDecode *ahead = nullptr;    // the first decode, started before the window
  bool decode_failed = false;        // it failed: the next command reports why
  int min_area_w = 64;        // narrower, the menu bar or tool bar would wrap
  bool placing_bars = false;  // scroll bars being managed or unmanaged
  int busy = 0;               // loads running inside this view's event pumping
  bool close_pending = false; // a close asked for while busy
  int in_module = 0;          // commands of other modules running (their dialogs pump events)
  int orientation = 0;        // the file's EXIF orientation, applied to what is shown
};

std::vector<ViewRecord *> g_views;

bool Alive(const ViewRecord *v) { return std::find(g_views.begin(), g_views.end(), v) != g_views.end(); }

ViewRecord *FindView(Widget w) {
  Widget shell = ShellOf(w);
  for (ViewRecord *v : g_views)
    if (v->shell == shell || (v->picker_shell && v->picker_shell == shell)) return v;
  // Menus live in shells of their own below the view's shell.
  for (Widget p = shell ? XtParent(shell) : nullptr; p; p = XtParent(p))
    for (ViewRecord *v : g_views)
      if (v->shell == p) return v;
  return nullptr;
}

const TslPicture *Shown(const ViewRecord *v) {
  if (v->show_mask && v->mask.pixels) return &v->mask;
  if (v->page > 0 && v->page < static_cast<int>(v->frames.size()) && v->frames[v->page].pixels)
    return &v->frames[v->page];
  return &v->pic;
}

void FreeFrames(ViewRecord *v) {
  for (TslPicture &f : v->frames) tslFree(&f);
  v->frames.clear();
  v->frame_bytes = 0;
}

void StopAnimation(ViewRecord *v) {
  if (v->timer) XtRemoveTimeOut(v->timer);
  v->timer = 0;
  v->animating = false;
}

void AreaSize(const ViewRecord *v, int *w, int *h) {
  Dimension dw = 0, dh = 0;
  if (v->drawing_area) XtVaGetValues(v->drawing_area, XmNwidth, &dw, XmNheight, &dh, nullptr);
  *w = std::max<int>(1, dw);
  *h = std::max<int>(1, dh);
}

void Origin(const ViewRecord *v, int *x, int *y) {
  int aw, ah;
  AreaSize(v, &aw, &ah);
  *x = v->view_w < aw ? (aw - v->view_w) / 2 : -v->scroll_x;
  *y = v->view_h < ah ? (ah - v->view_h) / 2 : -v->scroll_y;
}

void UpdateLabel(ViewRecord *v) {
  if (!v->label_info) return;
  InfoLabel info = v->preview ? v->preview_info : InfoFor(v->pic);
  if (v->count > 1) {
    info.list_pos = v->pos + 1;
    info.list_count = v->count;
  }
  info.zoom = static_cast<int>(v->zoom + 0.5);
  if (v->pages > 1) {
    info.frame = v->page + 1;
    info.frames = v->pages;
  }
  std::string text = InfoLabelText(info);
  if (Settings().View.ShowFilename && !v->path.empty()) text = v->path + "  " + text;
  if (v->sel.width > 0 && v->sel.height > 0) text += "  " + SelectionText(v->sel);
  XmString s = XmStringCreateLocalized(const_cast<char *>(text.c_str()));
  XtVaSetValues(v->label_info, XmNlabelString, s, nullptr);
  XmStringFree(s);
}

// The room a scroll bar takes from the drawing area: its thickness and the
// main window's spacing.
int BarRoom(const ViewRecord *v, Widget bar) {
  Dimension w = 0, h = 0, spacing = 0;
  XtVaGetValues(bar, XmNwidth, &w, XmNheight, &h, nullptr);
  XtVaGetValues(v->main_window, XmNspacing, &spacing, nullptr);
  return (bar == v->scroll_v ? w : h) + spacing;
}

// Shows a scroll bar only in a direction where the picture is larger than
// the drawing area.  Managing a bar resizes the area, which comes back here
// through the resize callback: the flag stops that round.
void ShowNeededScrollBars(ViewRecord *v, int free_w, int free_h) {
  if (!v->scroll_h || !v->scroll_v || v->placing_bars) return;
  v->placing_bars = true;
  const ScrollBarNeed need = ScrollBarsNeeded(v->view_w, v->view_h, free_w, free_h, BarRoom(v, v->scroll_v),
                                              BarRoom(v, v->scroll_h));
  for (auto [bar, wanted] : {std::pair<Widget, bool>{v->scroll_h, need.h}, {v->scroll_v, need.v}}) {
    if (wanted && !XtIsManaged(bar)) XtManageChild(bar);
    if (!wanted && XtIsManaged(bar)) XtUnmanageChild(bar);
  }
  v->placing_bars = false;
}

// The drawing area's size with no scroll bar shown.
void FreeAreaSize(const ViewRecord *v, int *w, int *h) {
  AreaSize(v, w, h);
  if (v->scroll_v && XtIsManaged(v->scroll_v)) *w += BarRoom(v, v->scroll_v);
  if (v->scroll_h && XtIsManaged(v->scroll_h)) *h += BarRoom(v, v->scroll_h);
}

void UpdateScrollBars(ViewRecord *v) {
  int aw, ah;
  FreeAreaSize(v, &aw, &ah);
  ShowNeededScrollBars(v, aw, ah);
  AreaSize(v, &aw, &ah);
  v->scroll_x = ClampScroll(v->scroll_x, v->view_w, aw);
  v->scroll_y = ClampScroll(v->scroll_y, v->view_h, ah);
  auto set = [](Widget sb, int total, int area, int value) {
    if (!sb) return;
    const int max = std::max(total, area);
    const int slider = std::max(1, std::min(area, max));
    XtVaSetValues(sb, XmNminimum, 0, XmNmaximum, max, XmNsliderSize, slider, XmNvalue, std::min(value, max - slider),
                  XmNincrement, ScrollStep(area), XmNpageIncrement, std::max(1, area * 9 / 10), nullptr);
  };
  set(v->scroll_h, v->view_w, aw, v->scroll_x);
  set(v->scroll_v, v->view_h, ah, v->scroll_y);
}

void Redraw(ViewRecord *v) {
  if (v->canvas) XClearArea(XtDisplay(v->shell), v->canvas, 0, 0, 0, 0, True);
}

void DropFitPixmap(ViewRecord *v) {
  if (v->fit_pixmap) XFreePixmap(App().dpy, v->fit_pixmap);
  v->fit_pixmap = 0;
}

// Picture, zoom or page changed: choose the converter again and redraw.
// The reduced first picture (or its pixmap) is shown as it is.
void Refresh(ViewRecord *v) {
  const TslPicture *p = Shown(v);
  if (v->preview) {
    v->view_w = v->preview_w;
    v->view_h = v->preview_h;
  } else {
    DropFitPixmap(v);
    v->view_w = std::max(1, static_cast<int>(p->width * v->zoom / 100.0));
    v->view_h = std::max(1, static_cast<int>(p->height * v->zoom / 100.0));
  }
  if (v->display && p->pixels) {
    SetDisplayZoom(v->display, v->preview ? 100.0 : v->zoom);
    PrepareDisplay(v->display, p, v->view_w, v->view_h);
  }
  UpdateScrollBars(v);
  UpdateLabel(v);
  Redraw(v);
}

// Room a view window may take: the screen less the window's own chrome
// (menus, tool bar, label, scroll bars) and the window manager's frame.
void Chrome(const ViewRecord *v, int *cw, int *ch) {
  *cw = 24;
  *ch = 110;
  if (v->shell && XtIsRealized(v->shell)) {
    Dimension sw, sh;
    int aw, ah;
    XtVaGetValues(v->shell, XmNwidth, &sw, XmNheight, &sh, nullptr);
    AreaSize(v, &aw, &ah);
    *cw = std::max(0, sw - aw);
    *ch = std::max(0, sh - ah);
  }
}

void ScreenRoom(const ViewRecord *v, int *w, int *h) {
  Display *dpy = App().dpy;
  int cw, ch;
  Chrome(v, &cw, &ch);
  *w = std::max(64, DisplayWidth(dpy, App().screen) - cw - (v->full_screen ? 0 : 16));
  *h = std::max(64, DisplayHeight(dpy, App().screen) - ch - (v->full_screen ? 0 : 40));
}

// Sizes the window so that the drawing area shows w x h pixels.
void SizeAreaTo(ViewRecord *v, int w, int h) {
  if (v->full_screen) return;
  int rw, rh;
  ScreenRoom(v, &rw, &rh);
  w = std::min(std::max(w, v->min_area_w), rw);
  h = std::min(std::max(h, 64), rh);
  // The bars the new size needs are placed first, so the window is sized
  // around the area alone when the picture fits.
  ShowNeededScrollBars(v, w, h);
  if (!XtIsRealized(v->shell)) {
    XtVaSetValues(v->drawing_area, XmNwidth, w, XmNheight, h, nullptr);
    return;
  }
  int cw, ch;
  Chrome(v, &cw, &ch);
  XtVaSetValues(v->shell, XmNwidth, w + cw, XmNheight, h + ch, nullptr);
}

void ApplyFit(ViewRecord *v, bool resize_window) {
  const TslPicture *p = Shown(v);
  if (v->preview) {  // already decoded at the fitted size
    v->zoom = v->preview_zoom;
    v->scroll_x = v->scroll_y = 0;
    if (resize_window) SizeAreaTo(v, v->preview_w, v->preview_h);
    Refresh(v);
    return;
  }
  int aw, ah, rw, rh;
  FreeAreaSize(v, &aw, &ah);
  ScreenRoom(v, &rw, &rh);
  FitResult f = ComputeFit(Settings().View.Fit, p->width, p->height, aw, ah, rw, rh);
  v->zoom = f.zoom;
  v->scroll_x = v->scroll_y = 0;
  v->view_w = f.view_w;
  v->view_h = f.view_h;
  if (f.resize_window && resize_window) SizeAreaTo(v, f.view_w, f.view_h);
  Refresh(v);
}

Widget Owner(const ViewRecord *v) {
  if (v && v->shell && XtIsRealized(v->shell)) return v->shell;
  return App().main_window ? App().main_window : App().shell;
}

void ScheduleFrame(ViewRecord *v);

// A reduced first decode pays when the codec can scale while decoding
// (JPEG) and the picture opens at less than half its size.
// A picture stored turned (EXIF orientations 2..8) is shown upright; the
// file keeps its pixels until the picture is saved.
void Upright(TslPicture *pic, int orientation) {
  if (orientation < 2 || orientation > 8 || !pic->pixels) return;
  TslPicture turned{};
  if (OrientPicture(pic, &turned, orientation) != kOpDone) return;  // shown as stored
  tslFree(pic);
  *pic = turned;
}

// Orientations 5..8 exchange the stored width and height.
bool Transposed(int orientation) { return orientation >= 5 && orientation <= 8; }

bool WantPreview(const ViewRecord *v, const TslFileInfo &info, FitResult *fit) {
  const char *name = tslFormatGetName(info.format);
  if (!name || std::strcmp(name, "jpeg") != 0 || App().own_colormap) return false;
  const int mode = Settings().View.Fit;
  if (mode != kFitWindow && mode != kFitDesktopLarge) return false;
  if (v->shell && Settings().View.KeepZoomFactor) return false;
  int rw, rh;
  ScreenRoom(v, &rw, &rh);
  *fit = ComputeFit(mode, info.width, info.height, rw, rh, rw, rh);
  return fit->zoom < 50.0;
}

// ---- the full picture behind a reduced first decode --------------------------

void DecodeDone(XtPointer client, int *, XtInputId *);

// The worker's stop test, through the library's progress callback.
int StopWhenCancelled(int, int, void *data) {
  return static_cast<const FullDecode *>(data)->cancelled.load(std::memory_order_relaxed) ? 1 : 0;
}

// Runs on the worker thread (or inline when no thread could be started).
void DecodeFull(FullDecode *job) {
  job->code = tslLoad(job->path.c_str(), &job->pic, &job->req.params);
  if (job->code == 0)
    Upright(&job->pic, job->orientation);
  else
    tslFree(&job->pic);
  const char done = 1;
  while (job->fds[1] >= 0 && write(job->fds[1], &done, 1) < 0 && errno == EINTR) {
  }
}

// Starts the full decode of the view's file on a worker thread.
void StartFullDecode(ViewRecord *v) {
  auto *job = new FullDecode;
  job->view = v;
  job->path = v->path;
  job->orientation = v->orientation;
  FillLoadRequest(Settings(), v->format, v->page, App().verbose, &job->req);
  job->req.params.progress = StopWhenCancelled;
  job->req.params.progress_data = job;
  v->decode = job;
  if (pipe2(job->fds, O_CLOEXEC) == 0) {
    try {
      job->worker = std::thread(DecodeFull, job);
      job->input = XtAppAddInput(App().app, job->fds[0], reinterpret_cast<XtPointer>(XtInputReadMask), DecodeDone,
                                 job);
      return;
    } catch (const std::system_error &) {
    }
  }
  // No pipe or no thread: decode here and now.
  for (int &fd : job->fds) {
    if (fd >= 0) close(fd);
    fd = -1;
  }
  DecodeFull(job);
}

// Waits for the worker and frees what the decode still holds.
void EndDecode(FullDecode *job) {
  if (job->worker.joinable()) job->worker.join();
  if (job->input) XtRemoveInput(job->input);
  for (int fd : job->fds)
    if (fd >= 0) close(fd);
  tslFree(&job->pic);
  if (job->view && job->view->decode == job) job->view->decode = nullptr;
  delete job;
}

// A move to another file or a close: the decode stops at its next band of
// rows and its picture is dropped.
void CancelFullDecode(ViewRecord *v) {
  if (v->decode_timer) XtRemoveTimeOut(v->decode_timer);
  v->decode_timer = 0;
  if (!v->decode) return;
  v->decode->cancelled = true;
  EndDecode(v->decode);
}

void ArmBenchExit(ViewRecord *v);

// The full picture takes the reduced one's place.  A pixmap on the screen
// stays there: at the fitted zoom it shows all the detail the screen can.
void InstallFullPicture(ViewRecord *v, FullDecode *job) {
  tslFree(&v->pic);
  v->pic = job->pic;
  job->pic = TslPicture{};
  v->preview = false;
  v->zoom = v->preview_zoom;
  if (v->fit_pixmap)
    UpdateLabel(v);
  else
    Refresh(v);
  ArmBenchExit(v);
}

// The worker is done: take its picture over, unless it failed (the next
// command that needs the full picture then decodes again and reports).
void DecodeDone(XtPointer client, int *, XtInputId *) {
  auto *job = static_cast<FullDecode *>(client);
  ViewRecord *v = job->view;
  if (job->worker.joinable()) job->worker.join();
  if (job->code == 0)
    InstallFullPicture(v, job);
  else
    v->decode_failed = true;
  EndDecode(job);
}

// Waits, with the busy cursor, until the full picture replaces the reduced
// first one.  Returns false when the full picture could not be read: the
// view then keeps showing the reduced picture and stays marked as such, so
// that no operation or save ever works on it.
bool FinishFullLoad(ViewRecord *v) {
  if (!v->preview) return true;
  // No events are handled until the full picture is in, so nothing draws
  // from the freed reduced picture meanwhile; freeing it first keeps the
  // memory peak at the full picture's size.
  tslFree(&v->pic);
  SetBusy(v->shell, true);
  if (v->decode_timer) XtRemoveTimeOut(v->decode_timer);
  v->decode_timer = 0;
  if (!v->decode) StartFullDecode(v);
  FullDecode *job = v->decode;
  if (job->worker.joinable()) job->worker.join();
  SetBusy(v->shell, false);
  const int code = job->code;
  if (code == 0) InstallFullPicture(v, job);
  EndDecode(job);
  if (code != 0) {
    // Show something again: a second reduced decode.
    LoadRequest req;
    FillLoadRequest(Settings(), v->format, v->page, App().verbose, &req);
    req.params.target_width = Transposed(v->orientation) ? v->view_h : v->view_w;
    req.params.target_height = Transposed(v->orientation) ? v->view_w : v->view_h;
    if (tslLoad(v->path.c_str(), &v->pic, &req.params) != 0) tslFree(&v->pic);
    Upright(&v->pic, v->orientation);
    Refresh(v);
    ShowLoadError(v->shell, v->path.c_str(), code, nullptr);
    return false;
  }
  return true;
}

void DecodeReduced(ReducedDecode *r) {
  r->code = tslLoad(r->path.c_str(), &r->pic, &r->req.params);
  if (r->code != 0) tslFree(&r->pic);
}

// Starts the reduced first decode of `path` on a worker thread when the
// picture is one shown that way; false when it is not.
bool StartReducedDecode(ViewRecord *v, const char *path, int page) {
  TslFileInfo info{};
  if (tslFileInformation(path, -1, page, &info) != 0) return false;
  if (Transposed(info.orientation)) std::swap(info.width, info.height);
  FitResult f;
  const bool wanted = WantPreview(v, info, &f);
  if (wanted) {
    auto *r = new ReducedDecode;
    r->path = path;
    r->page = page;
    r->fit = f;
    FillLoadRequest(Settings(), info.format, page, App().verbose, &r->req);
    r->req.params.target_width = Transposed(info.orientation) ? f.view_h : f.view_w;
    r->req.params.target_height = Transposed(info.orientation) ? f.view_w : f.view_h;
    v->ahead = r;
    try {
      r->worker = std::thread(DecodeReduced, r);
    } catch (const std::system_error &) {
      DecodeReduced(r);
    }
  }
  tslFileInformationFree(&info);
  return wanted;
}

// Waits for the reduced first decode; false when it failed.
bool ReducedDecodeDone(ViewRecord *v) {
  if (v->ahead->worker.joinable()) v->ahead->worker.join();
  return v->ahead->code == 0;
}

void DropReducedDecode(ViewRecord *v) {
  if (!v->ahead) return;
  if (v->ahead->worker.joinable()) v->ahead->worker.join();
  tslFree(&v->ahead->pic);
  delete v->ahead;
  v->ahead = nullptr;
}

// The first paint is on the screen: the full decode starts, unless a
// command has already waited for it.
void StartFullDecodeTick(XtPointer client, XtIntervalId *) {
  auto *v = static_cast<ViewRecord *>(client);
  v->decode_timer = 0;
  if (v->preview && !v->decode) StartFullDecode(v);
}

// Reads the file information and the picture of `path` page `page` into
// the view.  Nothing changes when the load fails.
int LoadInto(ViewRecord *v, const char *path, int page, bool report) {
  // The full decode of the picture being left is of no use any more (when
  // this load fails, the next command that needs it decodes again).
  CancelFullDecode(v);
  TslFileInfo info{};
  const bool have_info = tslFileInformation(path, -1, page, &info) == 0;
  const int orientation = have_info ? info.orientation : 0;
  if (Transposed(orientation)) std::swap(info.width, info.height);  // the upright size
  TslPicture pic{};
  double preview_zoom = 0;
  FitResult f;
  if (ReducedDecode *r = v->ahead; r && r->path == path && r->page == page) {
    if (r->worker.joinable()) r->worker.join();
    if (r->code == 0) {
      preview_zoom = r->fit.zoom;
      pic = r->pic;
      r->pic = TslPicture{};
    }
  } else if (have_info && WantPreview(v, info, &f)) {
    preview_zoom = f.zoom;
    LoadRequest req;
    FillLoadRequest(Settings(), info.format, page, App().verbose, &req);
    req.params.target_width = Transposed(orientation) ? f.view_h : f.view_w;
    req.params.target_height = Transposed(orientation) ? f.view_w : f.view_h;
    if (tslLoad(path, &pic, &req.params) != 0) {
      tslFree(&pic);
      preview_zoom = 0;
    }
  }
  int code = 0;
  if (!pic.pixels) {
    ++v->busy;
    code = CentralLoad(Owner(v), path, page, &pic, have_info ? &info : nullptr, report);
    --v->busy;
  }
  if (code != 0) {
    if (have_info) tslFileInformationFree(&info);
    return code;
  }
  Upright(&pic, orientation);
  DropFitPixmap(v);
  v->decode_failed = false;
  v->orientation = orientation;
  v->preview = preview_zoom > 0;
  v->preview_zoom = preview_zoom;
  v->full_w = have_info ? info.width : pic.width;
  v->full_h = have_info ? info.height : pic.height;
  v->preview_w = static_cast<int>(pic.width);
  v->preview_h = static_cast<int>(pic.height);
  v->preview_model = pic.color_model;
  v->preview_info = InfoFor(pic);
  v->preview_info.width = v->full_w;
  v->preview_info.height = v->full_h;
  DropReducedDecode(v);
  StopAnimation(v);
  FreeFrames(v);
  tslFree(&v->pic);
  tslFree(&v->undo);
  tslFree(&v->mask);
  v->show_mask = false;
  v->sel = OpRect{0, 0, 0, 0};
  v->pic = pic;
  v->modified = false;
  v->path = path;
  v->page = page;
  v->pages = have_info ? std::max(1, info.pages) : 1;
  v->format = have_info ? info.format : -1;
  v->delays.clear();
  if (have_info && info.delays && info.pages > 1) v->delays.assign(info.delays, info.delays + info.pages);
  if (have_info) tslFileInformationFree(&info);
  return 0;
}

bool IsAnimation(const ViewRecord *v) {
  if (v->pages < 2 || v->delays.empty() || Settings().View.DisableAnimation) return false;
  const char *name = tslFormatGetName(v->format);
  if (!name) return false;
  if (std::strcmp(name, "gif") == 0 || std::strcmp(name, "webp") == 0 || std::strcmp(name, "jxl") == 0) return true;
  return Settings().View.EnableBmpAnimation && std::strcmp(name, "bmp") == 0;
}

void AnimationTick(XtPointer client, XtIntervalId *) {
  auto *v = static_cast<ViewRecord *>(client);
  v->timer = 0;
  if (!Alive(v) || !v->animating) return;
  if (v->busy) {  // a load is pumping events: try again shortly
    v->timer = XtAppAddTimeOut(App().app, 50, AnimationTick, v);
    return;
  }
  const int next = (v->page + 1) % v->pages;
  if (v->frames.size() < static_cast<size_t>(v->pages)) v->frames.resize(v->pages);
  if (next > 0 && !v->frames[next].pixels) {
    TslParams params;
    tslDefaultParams(&params);
    params.format = v->format;
    params.page = next;
    TslPicture frame{};
    if (tslLoad(v->path.c_str(), &frame, &params) != 0) {
      StopAnimation(v);
      return;
    }
    v->frames[next] = frame;
    v->frame_bytes += static_cast<size_t>(frame.bytes_per_line) * frame.height;
  }
  v->page = next;
  // Past the budget only the frame on screen is kept; the others are
  // decoded again when their turn comes.
  if (v->frame_bytes > kFrameCacheBudget) {
    for (size_t i = 1; i < v->frames.size(); ++i)
      if (static_cast<int>(i) != next) tslFree(&v->frames[i]);
    v->frame_bytes = next > 0 ? static_cast<size_t>(v->frames[next].bytes_per_line) * v->frames[next].height : 0;
  }
  Refresh(v);
  ScheduleFrame(v);
}

void ScheduleFrame(ViewRecord *v) {
  if (!v->animating) return;
  int delay = v->page < static_cast<int>(v->delays.size()) ? v->delays[v->page] : 100;
  // Browsers treat delays under 20 ms as 100 ms; so do we.
  if (delay < 20) delay = 100;
  v->timer = XtAppAddTimeOut(App().app, static_cast<unsigned long>(delay), AnimationTick, v);
}

void StartAnimationIfAny(ViewRecord *v) {
  if (!IsAnimation(v) || !v->shell) return;
  v->animating = true;
  ScheduleFrame(v);
}

// After a new picture: fit (or keep the zoom), redraw, animate.
void PictureChanged(ViewRecord *v, bool first) {
  if (v->display) {
    ReleaseDisplayObject(v->display);
    v->display = nullptr;
  }
  if (v->colours && App().own_colormap) {
    // A private colormap holds the picture's own colours: take new ones.
    ColourData *fresh = GetColourData(App().dpy, App().screen, &v->pic, true);
    if (fresh) {
      ReleaseColourData(App().dpy, v->colours);
      v->colours = fresh;
      if (v->canvas) XSetWindowColormap(App().dpy, v->canvas, v->colours->colormap);
    }
  }
  if (v->colours) v->display = MakeDisplayObject(App().dpy, CurrentVisual().info.depth, v->colours);
  if (first || !Settings().View.KeepZoomFactor)
    ApplyFit(v, true);
  else
    Refresh(v);
  StartAnimationIfAny(v);
}

// ---- picture operations (flips and rotations) -----------------------------

void KeepUndo(ViewRecord *v) {
  if (!Settings().View.UseUndo) return;
  tslFree(&v->undo);
  if (tslCopyPicture(&v->undo, &v->pic) == 0) v->undo_modified = v->modified;
}

// The view's picture-operation routine with its internal codes.
// Before the picture changes: an animation stops on the frame shown, which
// becomes the picture; the mask goes; the undo copy is kept.
bool BeginChange(ViewRecord *v) {
  if (!v->pic.pixels) return false;
  if (v->animating || v->page >= 1) {
    StopAnimation(v);
    if (v->page > 0 && v->page < static_cast<int>(v->frames.size()) && v->frames[v->page].pixels) {
      tslFree(&v->pic);
      v->pic = v->frames[v->page];
      v->frames[v->page] = TslPicture{};
    }
  }
  tslFree(&v->mask);
  v->show_mask = false;
  KeepUndo(v);
  return true;
}

void RunOperation(ViewRecord *v, int code) {
  if (!BeginChange(v)) return;
  SetBusy(v->shell, true);
  OpParams params;
  int status = kOpDone;
  switch (code) {
    case kOpFlipVertical: status = OpFlipVertical(&v->pic, nullptr, nullptr, params); break;
    case kOpFlipHorizontal: status = OpFlipHorizontal(&v->pic, nullptr, nullptr, params); break;
    case kOpRotateLeft: params.i[0] = 90; status = OpRotate(&v->pic, nullptr, nullptr, params); break;
    case kOpRotateRight: params.i[0] = 270; status = OpRotate(&v->pic, nullptr, nullptr, params); break;
    default: break;
  }
  SetBusy(v->shell, false);
  if (status != kOpDone) {
    ShowMessage(v->shell, status == kOpNoMemory ? "Not enough memory" : "Operation failed");
    return;
  }
  v->modified = true;
  v->sel = OpRect{0, 0, 0, 0};
  if (code == kOpRotateLeft || code == kOpRotateRight) {
    if (Settings().View.KeepZoomFactor)
      Refresh(v);
    else
      ApplyFit(v, true);
  } else {
    Refresh(v);
  }
}

// The mask of a picture with transparency: white where opaque, black where
// transparent, grey levels for partial alpha.
bool BuildMask(const TslPicture &pic, TslPicture *mask) {
  const int m = pic.color_model;
  const bool alpha = m == TSL_RGBA || m == TSL_BGRA || m == TSL_ARGB || m == TSL_ABGR;
  const bool keyed = pic.transparent_index >= 0 && (m == TSL_INDEXED || m == TSL_GREY);
  if (!alpha && !keyed) return false;
  if (!tslAllock(mask, TSL_GREY, 0, pic.width, pic.height)) return false;
  mask->colors = 256;
  const int a_off = (m == TSL_ARGB || m == TSL_ABGR) ? 0 : 3;
  for (uint32_t y = 0; y < pic.height; ++y) {
    const uint8_t *s = pic.pixels + static_cast<size_t>(y) * pic.bytes_per_line;
    uint8_t *d = mask->pixels + static_cast<size_t>(y) * mask->bytes_per_line;
    for (uint32_t x = 0; x < pic.width; ++x)
      d[x] = alpha ? s[x * 4 + a_off] : (s[x] == pic.transparent_index ? 0 : 255);
  }
  return true;
}

// ---- full screen --------------------------------------------------------------

void SetDecorations(ViewRecord *v, bool on) {
  XtVaSetValues(v->shell, XmNmwmDecorations, on ? -1 : 0, nullptr);
  if (XtIsRealized(v->shell)) {
    // The window manager reads the hints again when the window is remapped.
    Display *dpy = XtDisplay(v->shell);
    Atom hints = XInternAtom(dpy, "_MOTIF_WM_HINTS", False);
    long data[5] = {MWM_HINTS_DECORATIONS, 0, on ? MWM_DECOR_ALL : 0, 0, 0};
    XChangeProperty(dpy, XtWindow(v->shell), hints, hints, 32, PropModeReplace,
                    reinterpret_cast<unsigned char *>(data), 5);
  }
}

void ToggleFullScreen(ViewRecord *v) {
  Display *dpy = XtDisplay(v->shell);
  if (!v->full_screen) {
    XtVaGetValues(v->shell, XmNx, &v->saved_x, XmNy, &v->saved_y, XmNwidth, &v->saved_w, XmNheight, &v->saved_h,
                  nullptr);
    v->full_screen = true;
    SetDecorations(v, false);
    XtVaSetValues(v->shell, XmNx, 0, XmNy, 0, XmNwidth, DisplayWidth(dpy, App().screen), XmNheight,
                  DisplayHeight(dpy, App().screen), nullptr);
  } else {
    v->full_screen = false;
    SetDecorations(v, true);
    XtVaSetValues(v->shell, XmNx, v->saved_x, XmNy, v->saved_y, XmNwidth, v->saved_w, XmNheight, v->saved_h,
                  nullptr);
  }
}

// ---- colour information ------------------------------------------------------

bool FinishFullLoad(ViewRecord *v);

void ShowPicker(ViewRecord *v, int wx, int wy, int root_x, int root_y) {
  // Only the full picture's values are shown: the picker waits for it (once:
  // when it cannot be read, the picker stays silent).
  if (v->preview && (v->decode_failed || !FinishFullLoad(v))) {
    v->decode_failed = true;
    return;
  }
  const TslPicture *p = Shown(v);
  int ox, oy;
  Origin(v, &ox, &oy);
  const int px = static_cast<int>(std::floor((wx - ox) * 100.0 / v->zoom));
  const int py = static_cast<int>(std::floor((wy - oy) * 100.0 / v->zoom));
  std::string text = ColorPickerText(*p, px, py);
  if (text.empty()) {
    if (v->picker_shell) XtPopdown(v->picker_shell);
    return;
  }
  if (!v->picker_shell) {
    v->picker_shell = XtVaCreatePopupShell("ColorPicker", overrideShellWidgetClass, v->shell, XmNborderWidth, 1,
                                           nullptr);
    v->picker_label = XtVaCreateManagedWidget("ColorPickerText", xmLabelWidgetClass, v->picker_shell, XmNalignment,
                                              XmALIGNMENT_BEGINNING, nullptr);
  }
  XmString s = XmStringCreateLtoR(const_cast<char *>(text.c_str()), const_cast<char *>(XmFONTLIST_DEFAULT_TAG));
  XtVaSetValues(v->picker_label, XmNlabelString, s, nullptr);
  XmStringFree(s);
  XtVaSetValues(v->picker_shell, XmNx, root_x + 16, XmNy, root_y + 16, nullptr);
  XtPopup(v->picker_shell, XtGrabNone);
}

void HidePicker(ViewRecord *v) {
  if (v->picker_shell) XtPopdown(v->picker_shell);
}

// ---- list and pages ------------------------------------------------------------

bool ConfirmLeave(ViewRecord *v);

// Loads entry `pos` of the list into the view.
void ShowListEntry(ViewRecord *v, int pos) {
  if (LoadInto(v, v->list[pos].path, 0, true) != 0) {
    if (!Alive(v)) return;
    // The failed file keeps its place; the position moves on so that the
    // next step goes past it.
    v->pos = pos;
    UpdateLabel(v);
    return;
  }
  if (!Alive(v)) return;
  v->pos = pos;
  PictureChanged(v, false);
}

void GoToFile(ViewRecord *v, int pos) {
  if (!v->list || v->count < 2) return;
  pos = std::min(std::max(pos, 0), v->count - 1);
  if (pos == v->pos) {
    XBell(XtDisplay(v->shell), 0);
    return;
  }
  if (!ConfirmLeave(v)) return;
  ShowListEntry(v, pos);
}

void GoToPage(ViewRecord *v, int page) {
  if (v->pages < 2) return;
  page = std::min(std::max(page, 0), v->pages - 1);
  if (page == v->page && !v->animating) {
    XBell(XtDisplay(v->shell), 0);
    return;
  }
  if (!ConfirmLeave(v)) return;
  StopAnimation(v);
  const std::string path = v->path;
  const int pages = v->pages;
  if (LoadInto(v, path.c_str(), page, true) != 0 || !Alive(v)) return;
  v->pages = pages;
  // Stepping through the frames by hand: the animation stays stopped.
  Refresh(v);
}

void DestroyView(ViewRecord *v);

bool AnyOtherWindow() {
  if (!App().shell) return false;
  static const char *const kNames[] = {"QuillInit", "Browser", "QuillSlide"};
  for (const char *n : kNames) {
    Widget w = XtNameToWidget(App().shell, n);
    if (w && XtIsRealized(w)) return true;
  }
  return false;
}

bool SaveInPlace(ViewRecord *v) {
  TslParams params;
  tslDefaultParams(&params);
  params.format = v->format >= 0 ? v->format : tslFormatFromExtension(v->path.c_str());
  params.flags |= TSL_FLAG_SAVE;
  params.quality = Settings().Save.JpegQuality ? Settings().Save.JpegQuality : 100;
  if (v->pages > 1) {
    // Writing the one page shown would lose the file's other pages.
    ShowMessage(v->shell, "Only one page of this file is in the window: it is not saved over the whole file.");
    return false;
  }
  if (params.format < 0 || !tslFormatIsWritable(params.format)) {
    ShowLoadError(v->shell, v->path.c_str(), TSL_ERR_CANT_SAVE, nullptr);
    return false;
  }
  SetBusy(v->shell, true);
  const int code = tslSave(v->path.c_str(), &v->pic, &params);
  SetBusy(v->shell, false);
  if (code != 0) {
    ShowLoadError(v->shell, v->path.c_str(), code, nullptr);
    return false;
  }
  v->modified = false;
  return true;
}

// Before a modified picture is closed or replaced by another file or page:
// asks whether to save it.  False when the save was wanted and failed (the
// picture then stays).
bool ConfirmLeave(ViewRecord *v) {
  if (!v->modified) return true;
  char text[4096 + 64];
  std::snprintf(text, sizeof text, "Do you want to save changes to \n  '%s' ?", v->path.c_str());
  ++v->busy;
  const bool save = AskConfirm(v->shell, text);
  --v->busy;
  return !save || SaveInPlace(v);
}

void CloseView(ViewRecord *v) {
  if (v->busy || v->in_module) {
    v->close_pending = true;
    return;
  }
  if (!ConfirmLeave(v)) return;  // keep the window when the save failed
  DestroyView(v);
  if (g_views.empty() && !AnyOtherWindow()) QuitWritingSettings();
}

void DoCommand(ViewRecord *v, const char *word);

// ---- event handlers ------------------------------------------------------------

Boolean ExitWhenIdle(XtPointer) {
  XSync(App().dpy, False);
  std::_Exit(0);
}

// Measurement switch for the benchmarks: QUILLA_EXIT_AFTER_PAINT ends the
// program when it is idle after the first paint ("full": once the full
// picture behind a reduced first decode is in).
void ArmBenchExit(ViewRecord *v) {
  static bool armed = false;
  const char *bench = std::getenv("QUILLA_EXIT_AFTER_PAINT");
  if (!bench || armed || (std::strcmp(bench, "full") == 0 && v->preview)) return;
  armed = true;
  XtAppAddWorkProc(App().app, ExitWhenIdle, nullptr);
}

// The first paint of a reduced decode: the picture is converted once into
// a pixmap, which the server then copies for every Expose; the reduced
// picture itself is freed, so that only the full one is in memory while it
// is decoded.  Without the pixmap the picture is drawn directly.
void MakeFitPixmap(ViewRecord *v) {
  if (v->fit_pixmap || !v->pic.pixels || !v->display) return;
  Display *dpy = XtDisplay(v->shell);
  v->fit_pixmap = XCreatePixmap(dpy, v->canvas, v->view_w, v->view_h, CurrentVisual().info.depth);
  DrawExposedArea(v->fit_pixmap, v->gc, v->display, 0, 0, 0, 0, v->view_w, v->view_h);
  tslFree(&v->pic);
}

// ---- crop selection ------------------------------------------------------------

// The outline of the selection as a dashed black and white rectangle.
void DrawSelection(ViewRecord *v) {
  if (v->sel.width <= 0 || v->sel.height <= 0 || !v->gc) return;
  int ox, oy;
  Origin(v, &ox, &oy);
  const OpRect r = SelectionOnWindow(v->sel, ox, oy, v->zoom);
  Display *dpy = XtDisplay(v->shell);
  XSetForeground(dpy, v->gc, v->colours->white);
  XSetBackground(dpy, v->gc, v->colours->black);
  XSetLineAttributes(dpy, v->gc, 1, LineDoubleDash, CapButt, JoinMiter);
  XDrawRectangle(dpy, v->canvas, v->gc, r.x, r.y, std::max(0, r.width - 1), std::max(0, r.height - 1));
  XSetLineAttributes(dpy, v->gc, 0, LineSolid, CapButt, JoinMiter);
}

// Redraws the picture under the outline of the selection (its four edges).
void EraseSelection(ViewRecord *v) {
  if (v->sel.width <= 0 || v->sel.height <= 0) return;
  int ox, oy;
  Origin(v, &ox, &oy);
  const OpRect r = SelectionOnWindow(v->sel, ox, oy, v->zoom);
  Display *dpy = XtDisplay(v->shell);
  XClearArea(dpy, v->canvas, r.x, r.y, r.width, 1, True);
  XClearArea(dpy, v->canvas, r.x, r.y + r.height - 1, r.width, 1, True);
  XClearArea(dpy, v->canvas, r.x, r.y, 1, r.height, True);
  XClearArea(dpy, v->canvas, r.x + r.width - 1, r.y, 1, r.height, True);
}

void SetSelection(ViewRecord *v, const OpRect &sel) {
  EraseSelection(v);
  v->sel = sel;
  DrawSelection(v);
  UpdateLabel(v);
}

// The selection from the anchor to the window point (x, y).
void DragSelection(ViewRecord *v, int x, int y) {
  const TslPicture *p = Shown(v);
  int ox, oy;
  Origin(v, &ox, &oy);
  const OpRect b = SelectionRect(x, y, x, y, ox, oy, v->zoom, p->width, p->height);
  SetSelection(v, OpRect{std::min(v->anchor_x, b.x), std::min(v->anchor_y, b.y), std::abs(b.x - v->anchor_x),
                         std::abs(b.y - v->anchor_y)});
}

void CanvasEvent(Widget, XtPointer client, XEvent *ev, Boolean *) {
  auto *v = static_cast<ViewRecord *>(client);
  // The canvas covers the drawing area at 0,0, so the drawing area's own
  // button events (a menu's passive grab delivers them there) mean the same.
  const bool button = ev->type == ButtonPress || ev->type == ButtonRelease;
  if (ev->xany.window != v->canvas && !(button && ev->xany.window == XtWindow(v->drawing_area))) return;
  switch (ev->type) {
    case Expose: {
      if (v->preview && !v->fit_pixmap) MakeFitPixmap(v);
      if (!v->display || !v->gc || (!Shown(v)->pixels && !v->fit_pixmap)) break;
      // Every Expose of the canvas already queued joins this one: resizes
      // and redraws queue several whole-area ones, and each would convert
      // the whole picture again.
      Display *dpy = XtDisplay(v->shell);
      int x0 = ev->xexpose.x, y0 = ev->xexpose.y;
      int x1 = x0 + ev->xexpose.width, y1 = y0 + ev->xexpose.height;
      XEvent more;
      while (XCheckTypedWindowEvent(dpy, v->canvas, Expose, &more)) {
        x0 = std::min(x0, more.xexpose.x);
        y0 = std::min(y0, more.xexpose.y);
        x1 = std::max(x1, more.xexpose.x + more.xexpose.width);
        y1 = std::max(y1, more.xexpose.y + more.xexpose.height);
      }
      int ox, oy;
      Origin(v, &ox, &oy);
      if (v->fit_pixmap) {
        x0 = std::max(x0, ox), y0 = std::max(y0, oy);
        x1 = std::min(x1, ox + v->view_w), y1 = std::min(y1, oy + v->view_h);
        if (x1 > x0 && y1 > y0)
          XCopyArea(dpy, v->fit_pixmap, v->canvas, v->gc, x0 - ox, y0 - oy, x1 - x0, y1 - y0, x0, y0);
      } else {
        DrawExposedArea(v->canvas, v->gc, v->display, ox, oy, x0, y0, x1 - x0, y1 - y0);
      }
      DrawSelection(v);
      // A quick reduced picture is on the screen: the full one is decoded
      // in the background, unless the program is only asked to show its
      // first paint.
      const char *bench = std::getenv("QUILLA_EXIT_AFTER_PAINT");
      const bool first_paint_only = bench && std::strcmp(bench, "full") != 0;
      // The decode waits until the server has drawn the first paint and a
      // little longer, so that it does not take the processor from the
      // server (or from the window manager) while they put it on the screen.
      if (v->preview && !v->decode && !v->decode_timer && !v->decode_failed && !first_paint_only) {
        XSync(dpy, False);
        v->decode_timer = XtAppAddTimeOut(App().app, kFullDecodeDelayMs, StartFullDecodeTick, v);
      }
      ArmBenchExit(v);
      break;
    }
    case MotionNotify:
      if (v->pressed && std::abs(ev->xmotion.x - v->press_x) + std::abs(ev->xmotion.y - v->press_y) > 3)
        v->moved = true;
      if (v->picker) ShowPicker(v, ev->xmotion.x, ev->xmotion.y, ev->xmotion.x_root, ev->xmotion.y_root);
      if (v->selecting && (ev->xmotion.state & Button1Mask)) DragSelection(v, ev->xmotion.x, ev->xmotion.y);
      if ((ev->xmotion.state & (Button1Mask | Button2Mask)) && v->drag_x >= 0) {
        v->scroll_x += v->drag_x - ev->xmotion.x;
        v->scroll_y += v->drag_y - ev->xmotion.y;
        v->drag_x = ev->xmotion.x;
        v->drag_y = ev->xmotion.y;
        UpdateScrollBars(v);
        Redraw(v);
      }
      break;
    case LeaveNotify:
      HidePicker(v);
      break;
    case ButtonPress: {
      const unsigned b = ev->xbutton.button;
      XmProcessTraversal(v->drawing_area, XmTRAVERSE_CURRENT);
      if (b == Button3 && v->popup) {
        XmMenuPosition(v->popup, &ev->xbutton);
        XtManageChild(v->popup);
      } else if (b == Button1 || b == Button2) {
        // A click of the left or middle button moves to the next or previous
        // file (View.MouseNavigation); dragging with the left button draws the
        // crop selection, with Shift + left or the middle button it moves the
        // picture.
        v->press_x = ev->xbutton.x;
        v->press_y = ev->xbutton.y;
        v->pressed = b;
        v->moved = false;
      }
      if ((b == Button1 && (ev->xbutton.state & ShiftMask)) || b == Button2) {
        v->drag_x = ev->xbutton.x;
        v->drag_y = ev->xbutton.y;
      } else if (b == Button1 && Shown(v)->pixels && !v->preview) {
        const TslPicture *p = Shown(v);
        int ox, oy;
        Origin(v, &ox, &oy);
        const OpRect a = SelectionRect(ev->xbutton.x, ev->xbutton.y, ev->xbutton.x, ev->xbutton.y, ox, oy, v->zoom,
                                       p->width, p->height);
        v->anchor_x = a.x;
        v->anchor_y = a.y;
        v->selecting = true;
        SetSelection(v, OpRect{a.x, a.y, 0, 0});
      } else if (b == Button4 || b == Button5) {
        int aw, ah;
        AreaSize(v, &aw, &ah);
        v->scroll_y += (b == Button4 ? -1 : 1) * ScrollStep(ah);
        UpdateScrollBars(v);
        Redraw(v);
      }
      break;
    }
    case ButtonRelease: {
      const unsigned b = ev->xbutton.button;
      if (v->selecting && b == Button1) {
        DragSelection(v, ev->xbutton.x, ev->xbutton.y);
        v->selecting = false;
      }
      v->drag_x = v->drag_y = -1;
      if (b == v->pressed) {
        v->pressed = 0;
        if (!v->moved && Settings().View.MouseNavigation) DoCommand(v, b == Button1 ? "next" : "prev");
      }
      break;
    }
    default:
      break;
  }
}

void AreaResized(Widget, XtPointer client, XtPointer) {
  auto *v = static_cast<ViewRecord *>(client);
  if (!v->canvas) return;
  int aw, ah;
  AreaSize(v, &aw, &ah);
  XResizeWindow(XtDisplay(v->shell), v->canvas, aw, ah);
  UpdateScrollBars(v);
  Redraw(v);
}

void Scrolled(Widget w, XtPointer client, XtPointer call) {
  auto *v = static_cast<ViewRecord *>(client);
  auto *cb = static_cast<XmScrollBarCallbackStruct *>(call);
  if (w == v->scroll_h)
    v->scroll_x = cb->value;
  else
    v->scroll_y = cb->value;
  Redraw(v);
}

void WmDelete(Widget, XtPointer client, XtPointer) {
  auto *v = static_cast<ViewRecord *>(client);
  if (Alive(v)) CloseView(v);
}

// Key bindings of the drawing area.  Xt takes the first line that matches,
// so the lines with more modifiers come first.
const char kViewTranslations[] =
    "Ctrl Shift ~Alt<Key>s: ViewDoCommand(statusBar)\n"
    "Ctrl Shift ~Alt<Key>S: ViewDoCommand(statusBar)\n"
    "Ctrl Shift ~Alt<Key>t: ViewDoCommand(toolBar)\n"
    "Ctrl Shift ~Alt<Key>T: ViewDoCommand(toolBar)\n"
    "Ctrl Shift ~Alt<Key>i: ViewDoCommand(colorInformation)\n"
    "Ctrl Shift ~Alt<Key>I: ViewDoCommand(colorInformation)\n"
    "Ctrl ~Shift ~Alt<Key>o: ViewDoCommand(open)\n"
    "Ctrl ~Shift ~Alt<Key>h: ViewDoCommand(viewHexa)\n"
    "Ctrl ~Shift ~Alt<Key>b: ViewDoCommand(browseFiles)\n"
    "Ctrl ~Shift ~Alt<Key>r: ViewDoCommand(reopenFiles)\n"
    "Ctrl ~Shift ~Alt<Key>w: ViewDoCommand(close)\n"
    "Ctrl ~Shift ~Alt<Key>s: ViewDoCommand(saveFiles)\n"
    "Ctrl ~Shift ~Alt<Key>l: ViewDoCommand(slideShow)\n"
    "Ctrl ~Shift ~Alt<Key>n: ViewDoCommand(sequenceConvert)\n"
    "Ctrl ~Shift ~Alt<Key>u: ViewDoCommand(multiConvert)\n"
    "Ctrl ~Shift ~Alt<Key>q: ViewDoCommand(quit)\n"
    "Ctrl ~Shift ~Alt<Key>z: ViewDoCommand(undo)\n"
    "Ctrl ~Shift ~Alt<Key>y: ViewDoCommand(crop)\n"
    "Ctrl ~Shift ~Alt<Key>d: ViewDoCommand(describe)\n"
    "Ctrl ~Shift ~Alt<Key>e: ViewDoCommand(properties)\n"
    "Ctrl ~Shift ~Alt<Key>a: ViewDoCommand(adaptiveSize)\n"
    "Ctrl ~Shift ~Alt<Key>t: ViewDoCommand(fitImage)\n"
    "Ctrl ~Shift ~Alt<Key>f: ViewDoCommand(fullScreen)\n"
    "Shift ~Ctrl ~Alt<Key>s: ViewDoCommand(resize)\n"
    "Shift ~Ctrl ~Alt<Key>S: ViewDoCommand(resize)\n"
    "Shift ~Ctrl ~Alt<Key>l: ViewDoCommand(rotateLeft)\n"
    "Shift ~Ctrl ~Alt<Key>L: ViewDoCommand(rotateLeft)\n"
    "Shift ~Ctrl ~Alt<Key>r: ViewDoCommand(rotateRight)\n"
    "Shift ~Ctrl ~Alt<Key>R: ViewDoCommand(rotateRight)\n"
    "Shift ~Ctrl ~Alt<Key>v: ViewDoCommand(flipVertical)\n"
    "Shift ~Ctrl ~Alt<Key>V: ViewDoCommand(flipVertical)\n"
    "Shift ~Ctrl ~Alt<Key>h: ViewDoCommand(flipHorizontal)\n"
    "Shift ~Ctrl ~Alt<Key>H: ViewDoCommand(flipHorizontal)\n"
    "Shift ~Ctrl ~Alt<Key>osfBeginLine: ViewDoCommand(pageFirst)\n"
    "Shift ~Ctrl ~Alt<Key>osfPageDown: ViewDoCommand(pageNext)\n"
    "Shift ~Ctrl ~Alt<Key>osfPageUp: ViewDoCommand(pagePrev)\n"
    "Shift ~Ctrl ~Alt<Key>osfEndLine: ViewDoCommand(pageLast)\n"
    "~Shift ~Ctrl ~Alt<Key>osfBeginLine: ViewDoCommand(first)\n"
    "~Shift ~Ctrl ~Alt<Key>osfPageDown: ViewDoCommand(next)\n"
    "~Shift ~Ctrl ~Alt<Key>osfPageUp: ViewDoCommand(prev)\n"
    "~Shift ~Ctrl ~Alt<Key>osfEndLine: ViewDoCommand(last)\n"
    "~Shift ~Ctrl ~Alt<Key>space: ViewDoCommand(next)\n"
    "Meta<Key>minus: ViewDoCommand(zoom-)\n"
    "Meta<Key>plus: ViewDoCommand(zoom+)\n"
    "Meta<Key>asterisk: ViewDoCommand(zoom100)\n"
    "<Key>minus: ViewDoCommand(zoom-)\n"
    "<Key>plus: ViewDoCommand(zoom+)\n"
    "<Key>asterisk: ViewDoCommand(zoom100)\n"
    "<Key>KP_Subtract: ViewDoCommand(zoom-)\n"
    "<Key>KP_Add: ViewDoCommand(zoom+)\n"
    "<Key>KP_Multiply: ViewDoCommand(zoom100)\n"
    "Alt ~Ctrl ~Shift<Key>c: ViewDoCommand(copyTo)\n"
    "Alt ~Ctrl ~Shift<Key>m: ViewDoCommand(moveTo)\n"
    "~Ctrl ~Alt<Key>m: ViewDoCommand(showMask)\n"
    "~Ctrl ~Alt<Key>M: ViewDoCommand(showMask)\n"
    "<Key>F2: ViewDoCommand(rename)\n"
    "~Shift ~Ctrl ~Alt<Key>osfDelete: ViewDoCommand(delete)\n"
    "~Shift ~Ctrl ~Alt<Key>Delete: ViewDoCommand(delete)\n"
    "<Key>osfRight: ViewKeyScroll(0)\n"
    "<Key>osfLeft: ViewKeyScroll(1)\n"
    "<Key>osfUp: ViewKeyScroll(2)\n"
    "<Key>osfDown: ViewKeyScroll(3)\n"
    "<Key>osfCancel: ViewClose()\n";

// ---- creation and destruction ----------------------------------------------------

bool CreateWindow(ViewRecord *v, Widget parent) {
  Display *dpy = App().dpy;
  v->shell = XtVaCreatePopupShell("QuillView", topLevelShellWidgetClass, parent ? parent : App().shell, XmNtitle,
                                  kTitle, XmNiconName, kTitle, XmNdeleteResponse, XmDO_NOTHING, nullptr);
  Atom wm_delete = XmInternAtom(dpy, const_cast<char *>("WM_DELETE_WINDOW"), False);
  XmAddWMProtocolCallback(v->shell, wm_delete, WmDelete, v);
  SetWindowIcon(v->shell);

  v->main_window = XtVaCreateManagedWidget("mainWindow", xmMainWindowWidgetClass, v->shell, XmNscrollingPolicy,
                                           XmAPPLICATION_DEFINED, XmNshowSeparator, False, nullptr);
  v->drawing_area = XtVaCreateManagedWidget("drawingArea", xmDrawingAreaWidgetClass, v->main_window,
                                            XmNtraversalOn, True, XmNmarginWidth, 0, XmNmarginHeight, 0,
                                            XmNresizePolicy, XmRESIZE_NONE, nullptr);
  const bool popup = App().menu_bar_mode == 0 || Settings().View.UsePopupInView;
  if (popup)
    v->popup = CreateViewPopupMenu(v->drawing_area);
  else
    v->menu = CreateViewMenuBar(v->main_window);
  v->toolbar = CreateViewToolBar(v->main_window);
  if (Settings().View.ToolBar) XtManageChild(v->toolbar);
  v->scroll_h = XtVaCreateManagedWidget("scrollBarH", xmScrollBarWidgetClass, v->main_window, XmNorientation,
                                        XmHORIZONTAL, nullptr);
  v->scroll_v = XtVaCreateManagedWidget("scrollBarV", xmScrollBarWidgetClass, v->main_window, XmNorientation,
                                        XmVERTICAL, nullptr);
  v->message_window = XtVaCreateWidget("messageWindow", xmFormWidgetClass, v->main_window, nullptr);
  v->label_info = XtVaCreateManagedWidget("labelInfo", xmLabelWidgetClass, v->message_window, XmNalignment,
                                          XmALIGNMENT_BEGINNING, XmNleftAttachment, XmATTACH_FORM,
                                          XmNrightAttachment, XmATTACH_FORM, XmNtopAttachment, XmATTACH_FORM,
                                          XmNbottomAttachment, XmATTACH_FORM, nullptr);
  if (Settings().View.StatusBar) XtManageChild(v->message_window);
  XmMainWindowSetAreas(v->main_window, v->menu, v->toolbar, v->scroll_h, v->scroll_v, v->drawing_area);
  XtVaSetValues(v->main_window, XmNmessageWindow, v->message_window, nullptr);
  for (Widget sb : {v->scroll_h, v->scroll_v}) {
    XtAddCallback(sb, XmNvalueChangedCallback, Scrolled, v);
    XtAddCallback(sb, XmNdragCallback, Scrolled, v);
  }
  XtAddCallback(v->drawing_area, XmNresizeCallback, AreaResized, v);
  XtOverrideTranslations(v->drawing_area, XtParseTranslationTable(kViewTranslations));
  // A picture narrower than the tool bar or menu bar gets a window as wide
  // as they are, with the picture centred, rather than wrapped bars.
  for (Widget bar : {v->toolbar, v->menu}) {
    XtWidgetGeometry pref;
    if (bar && XtIsManaged(bar) && XtQueryGeometry(bar, nullptr, &pref) != XtGeometryNo)
      v->min_area_w = std::max<int>(v->min_area_w, pref.width);
  }
  if (v->menu) v->min_area_w = std::max(v->min_area_w, MenuBarNeededWidth(v->menu));

  // The first size: the fit decides; before the window exists the chrome is
  // estimated.
  // (While the reduced first decode runs, the size it is decoded to.)
  uint32_t pw = v->pic.width, ph = v->pic.height;
  if (v->ahead) pw = v->ahead->fit.view_w, ph = v->ahead->fit.view_h;
  int rw, rh;
  ScreenRoom(v, &rw, &rh);
  FitResult f = ComputeFit(Settings().View.Fit, pw, ph, rw, rh, rw, rh);
  if (Settings().View.Fit == kNoFit)
    f.view_w = std::min(static_cast<int>(pw), rw), f.view_h = std::min(static_cast<int>(ph), rh);
  v->view_w = std::max(1, static_cast<int>(pw * f.zoom / 100.0));
  v->view_h = std::max(1, static_cast<int>(ph * f.zoom / 100.0));
  SizeAreaTo(v, f.view_w, f.view_h);

  XtRealizeWidget(v->shell);
  {
    // The main window may have given the drawing area less than asked for:
    // now that the chrome is known, size the window again.
    int aw, ah;
    AreaSize(v, &aw, &ah);
    if (aw != f.view_w || ah != f.view_h) SizeAreaTo(v, f.view_w, f.view_h);
  }

  // The picture window on the chosen visual.
  v->colours = GetColourData(dpy, App().screen, v->pic.pixels ? &v->pic : nullptr, App().own_colormap);
  if (!v->colours) return false;
  int aw, ah;
  AreaSize(v, &aw, &ah);
  XColor bg;
  bg.red = 0x90 * 257, bg.green = 0xab * 257, bg.blue = 0xb1 * 257, bg.flags = DoRed | DoGreen | DoBlue;
  if (!XAllocColor(dpy, v->colours->colormap, &bg)) bg.pixel = v->colours->black;
  XSetWindowAttributes attr;
  attr.colormap = v->colours->colormap;
  attr.background_pixel = bg.pixel;
  attr.border_pixel = 0;
  attr.event_mask = ExposureMask | PointerMotionMask | ButtonPressMask | ButtonReleaseMask | LeaveWindowMask;
  const VisualDesc &vd = CurrentVisual();
  v->canvas = XCreateWindow(dpy, XtWindow(v->drawing_area), 0, 0, aw, ah, 0, vd.info.depth, InputOutput,
                            CurrentXVisual(), CWColormap | CWBackPixel | CWBorderPixel | CWEventMask, &attr);
  XtRegisterDrawable(dpy, v->canvas, v->drawing_area);
  XtAddEventHandler(v->drawing_area,
                    ExposureMask | PointerMotionMask | ButtonPressMask | ButtonReleaseMask | LeaveWindowMask, False,
                    CanvasEvent, v);
  Window cmap_windows[2] = {v->canvas, XtWindow(v->shell)};
  XSetWMColormapWindows(dpy, XtWindow(v->shell), cmap_windows, 2);
  XMapWindow(dpy, v->canvas);
  XGCValues gcv;
  gcv.graphics_exposures = False;  // the fit pixmap's copies need no events back
  v->gc = XCreateGC(dpy, v->canvas, GCGraphicsExposures, &gcv);
  v->display = MakeDisplayObject(dpy, vd.info.depth, v->colours);

  v->picker = Settings().View.DisplayColorInformation;
  if (App().full_screen) ToggleFullScreen(v);
  XtPopup(v->shell, XtGrabNone);
  XmProcessTraversal(v->drawing_area, XmTRAVERSE_CURRENT);
  return true;
}

void FreeRecord(ViewRecord *v) {
  StopAnimation(v);
  CancelFullDecode(v);
  DropReducedDecode(v);
  FreeFrames(v);
  tslFree(&v->pic);
  tslFree(&v->undo);
  tslFree(&v->mask);
  std::free(v->list);
  delete v;
}

// Destroys the window of a view and everything drawn with it; the record
// stays.
void DestroyWindow(ViewRecord *v) {
  Display *dpy = App().dpy;
  DropFitPixmap(v);
  if (v->display) ReleaseDisplayObject(v->display);
  v->display = nullptr;
  if (v->gc) XFreeGC(dpy, v->gc);
  v->gc = nullptr;
  if (v->canvas) {
    XtUnregisterDrawable(dpy, v->canvas);
    XDestroyWindow(dpy, v->canvas);
  }
  v->canvas = 0;
  if (v->colours) ReleaseColourData(dpy, v->colours);
  v->colours = nullptr;
  if (v->shell) XtDestroyWidget(v->shell);
  if (App().main_window == v->shell) App().main_window = nullptr;
  v->shell = v->main_window = v->menu = v->popup = v->toolbar = nullptr;
  v->scroll_h = v->scroll_v = v->drawing_area = v->message_window = v->label_info = nullptr;
  v->picker_shell = v->picker_label = nullptr;
}

void DestroyView(ViewRecord *v) {
  auto it = std::find(g_views.begin(), g_views.end(), v);
  if (it == g_views.end()) {
    std::fprintf(stderr, "Error DelView: Wid not find\n");
    return;
  }
  g_views.erase(it);
  DestroyWindow(v);
  FreeRecord(v);
}

// New values from the Options dialog reach the open views: their tool and
// status bars and their information labels.
void FollowOptions() {
  for (ViewRecord *v : g_views) {
    if (v->toolbar) (Settings().View.ToolBar ? XtManageChild : XtUnmanageChild)(v->toolbar);
    if (v->message_window) (Settings().View.StatusBar ? XtManageChild : XtUnmanageChild)(v->message_window);
    UpdateLabel(v);
  }
}

// Opens a view whose record already holds the list; the first file of the
// list from `pos` on that loads is shown.
Widget OpenView(Widget parent, ViewRecord *v, int page) {
  AddOptionsAppliedHook(FollowOptions);
  // One view only: the existing view takes the new file or list.
  if (Settings().View.OnlyOneView && !g_views.empty()) {
    ViewRecord *old = g_views.front();
    std::free(old->list);
    old->list = v->list;
    old->count = v->count;
    old->pos = 0;
    v->list = nullptr;
    const std::string path = v->path;
    delete v;
    const char *first = old->list ? old->list[0].path : path.c_str();
    if (LoadInto(old, first, page, true) == 0 && Alive(old)) PictureChanged(old, false);
    if (Alive(old)) XRaiseWindow(XtDisplay(old->shell), XtWindow(old->shell));
    return Alive(old) ? old->shell : nullptr;
  }
  g_views.push_back(v);
  int code = -1;
  // A single large JPEG: the window is built while its reduced first decode
  // runs.  When that decode fails, the window goes and the file is loaded
  // as any other (with its progress and its error message).
  bool built = false;
  if (!v->list && StartReducedDecode(v, v->path.c_str(), page)) {
    built = CreateWindow(v, parent) && ReducedDecodeDone(v) && LoadInto(v, v->path.c_str(), page, false) == 0 &&
            v->preview;
    if (!built) {
      DestroyWindow(v);
      DropReducedDecode(v);
      if (v->preview) {  // the full load below starts from nothing
        tslFree(&v->pic);
        v->preview = false;
      }
    }
  }
  if (built) {
    code = 0;
  } else if (v->list) {
    for (int i = 0; i < v->count && Alive(v); ++i) {
      code = LoadInto(v, v->list[i].path, page, true);
      if (code == 0) {
        v->pos = i;
        break;
      }
    }
  } else {
    code = LoadInto(v, v->path.c_str(), page, true);
  }
  if (!Alive(v)) return nullptr;
  if (code != 0 || (!built && !CreateWindow(v, parent))) {
    g_views.erase(std::find(g_views.begin(), g_views.end(), v));
    if (v->shell) XtDestroyWidget(v->shell);
    if (v->colours) ReleaseColourData(App().dpy, v->colours);
    FreeRecord(v);
    return nullptr;
  }
  if (!App().main_window) App().main_window = v->shell;
  PictureChanged(v, true);
  if (v->close_pending) {
    v->close_pending = false;
    Widget shell = v->shell;
    CloseView(v);
    return Alive(v) ? shell : nullptr;
  }
  return v->shell;
}

void ResolvePath(const char *in, char *out) {
  char buf[PATH_MAX];
  if (realpath(in, buf))
    std::snprintf(out, 4096, "%s", buf);
  else
    std::snprintf(out, 4096, "%s", in);
}

// ---- the commands -----------------------------------------------------------------

// Writes every page of the view's file as a PPM file into `dir` (empty: the
// extraction directory Settings PathExtract, else the picture's own).
void ExtractPages(ViewRecord *v, std::string dir = "") {
  if (v->pages < 2) return Bell();
  if (dir.empty()) dir = Settings().PathExtract;
  if (dir.empty()) dir = v->path.substr(0, v->path.find_last_of('/'));
  if (dir.empty()) dir = "/";
  TslParams load, save;
  tslDefaultParams(&load);
  tslDefaultParams(&save);
  load.format = v->format;
  save.format = tslFormatGetIndex("ppm");
  save.flags |= TSL_FLAG_SAVE;
  SetBusy(v->shell, true);
  for (int page = 0; page < v->pages; ++page) {
    TslPicture pic{};
    load.page = page;
    int code = tslLoad(v->path.c_str(), &pic, &load);
    const std::string out = ExtractFileName(dir, v->path, page);
    if (code == 0) code = tslSave(out.c_str(), &pic, &save);
    tslFree(&pic);
    if (code != 0) {
      SetBusy(v->shell, false);
      ShowLoadError(v->shell, code == TSL_ERR_CREATE || code == TSL_ERR_WRITE ? out.c_str() : v->path.c_str(),
                    code, nullptr);
      return;
    }
  }
  SetBusy(v->shell, false);
}

void DoCommandBody(ViewRecord *v, const char *word);

// Runs a command; a close asked for while it pumped events (a load, a
// question) is carried out afterwards.
void DoCommand(ViewRecord *v, const char *word) {
  DoCommandBody(v, word);
  if (v && Alive(v) && v->close_pending && !v->busy && !v->in_module) {
    v->close_pending = false;
    CloseView(v);
  }
}

void DoCommandBody(ViewRecord *v, const char *word) {
  const int index = ViewCommandIndex(word);
  if (std::strcmp(word, "stopAnim") == 0) {
    if (v) StopAnimation(v);
    return;
  }
  if (std::strcmp(word, "extract") == 0) {
    if (v && !v->busy) ExtractPages(v);
    return;
  }
  const std::string w = word;
  if (w == "quit") QuitWritingSettings();
  if (v && v->busy) return;  // a load is pumping events for this view
  // Every command but leaving works on the full picture.
  if (v && v->preview && w != "close" && w != "next" && w != "prev" && w != "first" && w != "last" &&
      !FinishFullLoad(v))
    return Bell();
  // The commands of the file, operation and information modules; without a
  // view (the start window) they get a null view and the application shell.
  {
    Widget view = v ? v->shell : nullptr;
    Widget owner = v ? v->shell : (App().main_window ? App().main_window : App().shell);
    // Their dialogs run event loops: a close of this view asked for meanwhile
    // waits until the command is over, so the view stays valid under it.
    if (v) ++v->in_module;
    const bool done = RunFileCommand(view, owner, word) || RunOperationCommand(view, owner, word) ||
                      RunInfoCommand(view, owner, word);
    if (v && Alive(v)) --v->in_module;
    if (done) return;
  }
  if (index < 0) return;
  if (!v) return;  // the start window runs only what needs no picture
  if (w == "reopenFiles") {
    if (!ConfirmLeave(v)) return;
    const std::string path = v->path;
    if (LoadInto(v, path.c_str(), v->page, true) == 0 && Alive(v)) PictureChanged(v, false);
  } else if (w == "close") {
    CloseView(v);
  } else if (w == "undo") {
    if (!v->undo.pixels) return Bell();
    StopAnimation(v);
    std::swap(v->pic, v->undo);
    std::swap(v->modified, v->undo_modified);
    v->sel = OpRect{0, 0, 0, 0};
    tslFree(&v->mask);
    v->show_mask = false;
    if (v->page > 0 && v->page < static_cast<int>(v->frames.size())) tslFree(&v->frames[v->page]);
    Refresh(v);
  } else if (w == "adaptiveSize") {
    SizeAreaTo(v, v->view_w, v->view_h);
  } else if (w == "fitImage") {
    ApplyFit(v, true);
  } else if (w == "fullScreen") {
    ToggleFullScreen(v);
  } else if (w == "statusBar") {
    Settings().View.StatusBar = !Settings().View.StatusBar;
    if (Settings().View.StatusBar)
      XtManageChild(v->message_window);
    else
      XtUnmanageChild(v->message_window);
  } else if (w == "toolBar") {
    Settings().View.ToolBar = !Settings().View.ToolBar;
    if (Settings().View.ToolBar)
      XtManageChild(v->toolbar);
    else
      XtUnmanageChild(v->toolbar);
  } else if (w == "colorInformation") {
    v->picker = !v->picker;
    Settings().View.DisplayColorInformation = v->picker;  // new views start the same way
    if (!v->picker) HidePicker(v);
  } else if (w == "zoom+" || w == "zoom-" || w == "zoom100") {
    const char *param = w == "zoom+" ? "+1" : w == "zoom-" ? "-1" : "100";
    const TslPicture *p = Shown(v);
    int aw, ah;
    AreaSize(v, &aw, &ah);
    const int percent = ZoomFromParameter(param, p->width, p->height, aw, ah, v->zoom);
    // Keep the centre of what is on screen in the centre.
    const double cx = (v->scroll_x + std::min(aw, v->view_w) / 2.0) / v->zoom;
    const double cy = (v->scroll_y + std::min(ah, v->view_h) / 2.0) / v->zoom;
    v->zoom = percent;
    v->scroll_x = static_cast<int>(cx * percent - aw / 2.0);
    v->scroll_y = static_cast<int>(cy * percent - ah / 2.0);
    Refresh(v);
  } else if (w == "showMask") {
    if (!v->show_mask) {
      if (!v->mask.pixels && !BuildMask(*Shown(v), &v->mask)) return Bell();
      StopAnimation(v);
      v->show_mask = true;
    } else {
      v->show_mask = false;
      tslFree(&v->mask);
      StartAnimationIfAny(v);
    }
    Refresh(v);
  } else if (w == "first" || w == "last" || w == "next" || w == "prev") {
    if (!v->list || v->count < 2) return Bell();
    const int pos = w == "first" ? 0 : w == "last" ? v->count - 1 : w == "next" ? v->pos + 1 : v->pos - 1;
    if (pos < 0 || pos >= v->count) return Bell();
    GoToFile(v, pos);
  } else if (w == "pageFirst" || w == "pageLast" || w == "pageNext" || w == "pagePrev") {
    if (v->pages < 2) return Bell();
    const int page = w == "pageFirst" ? 0 : w == "pageLast" ? v->pages - 1 : w == "pageNext" ? v->page + 1 : v->page - 1;
    if (page < 0 || page >= v->pages) return Bell();
    GoToPage(v, page);
  } else if (w == "flipVertical") {
    RunOperation(v, kOpFlipVertical);
  } else if (w == "flipHorizontal") {
    RunOperation(v, kOpFlipHorizontal);
  } else if (w == "rotateLeft") {
    RunOperation(v, kOpRotateLeft);
  } else if (w == "rotateRight") {
    RunOperation(v, kOpRotateRight);
  } else {
    // The commands no module has answered (the hex dump, the browser, the
    // slide show, batch conversion and the file operations) open windows
    // this program does not have yet: their menu entries are insensitive
    // and their keys only ring the bell.
    Bell();
  }
}

}  // namespace

// ---- public entry points ---------------------------------------------------------------

Widget OpenViewOnFile(Widget parent, const char *path, int page) {
  if (!path) return nullptr;
  auto *v = new ViewRecord;
  char resolved[4096];
  ResolvePath(path, resolved);
  v->path = resolved;
  return OpenView(parent, v, page);
}

Widget OpenViewOnList(Widget parent, FileListEntry *list, int count, int page) {
  if (!list || count <= 0) {
    std::free(list);
    return nullptr;
  }
  auto *v = new ViewRecord;
  v->path = list[0].path;
  if (count == 1) {
    std::free(list);
  } else {
    v->list = list;
    v->count = count;
  }
  return OpenView(parent, v, page);
}

void ViewDoCommandAction(Widget w, XEvent *, String *params, Cardinal *count) {
  if (!count || *count != 1 || !params || !params[0]) return;
  RunViewCommand(w, params[0]);
}

void ViewKeyScrollAction(Widget w, XEvent *, String *params, Cardinal *count) {
  if (!count || *count != 1) return;
  ViewRecord *v = FindView(w);
  if (!v) return;
  int aw, ah;
  AreaSize(v, &aw, &ah);
  switch (std::atoi(params[0])) {
    case 0: v->scroll_x += ScrollStep(aw); break;
    case 1: v->scroll_x -= ScrollStep(aw); break;
    case 2: v->scroll_y -= ScrollStep(ah); break;
    case 3: v->scroll_y += ScrollStep(ah); break;
    default: return;
  }
  UpdateScrollBars(v);
  Redraw(v);
}

void ViewCloseAction(Widget w, XEvent *, String *, Cardinal *) {
  ViewRecord *v = FindView(w);
  if (v) CloseView(v);
}

void RunViewCommand(Widget w, const char *word) {
  if (!word) return;
  DoCommand(FindView(w), word);
}

void SetViewFitMode(Widget w, int mode) {
  if (mode < 0 || mode > 7) return;
  Settings().View.Fit = static_cast<uint8_t>(mode);
  ViewRecord *v = FindView(w);
  if (v) ApplyFit(v, true);
}

int ViewCount() { return static_cast<int>(g_views.size()); }

bool GetViewState(Widget w, ViewState *out) {
  ViewRecord *v = FindView(w);
  if (!v || !out) return false;
  out->shell = v->shell;
  out->drawing_area = v->drawing_area;
  out->canvas = v->canvas;
  out->path = v->path;
  out->format = v->format;
  out->list_pos = v->pos;
  out->list_count = v->count;
  out->page = v->page;
  out->pages = v->pages;
  out->zoom = v->zoom;
  out->scroll_x = v->scroll_x;
  out->scroll_y = v->scroll_y;
  const TslPicture *p = Shown(v);
  out->width = v->preview ? v->preview_w : p->width;
  out->height = v->preview ? v->preview_h : p->height;
  out->color_model = v->preview ? v->preview_model : p->color_model;
  out->modified = v->modified;
  out->full_screen = v->full_screen;
  out->picker = v->picker;
  out->show_mask = v->show_mask;
  out->animating = v->animating;
  out->preview = v->preview;
  Origin(v, &out->org_x, &out->org_y);
  out->view_w = v->view_w;
  out->view_h = v->view_h;
  return true;
}

TslPicture *ViewBeginChange(Widget w) {
  ViewRecord *v = FindView(w);
  if (!v || v->busy) return nullptr;
  if (v->preview && !FinishFullLoad(v)) return nullptr;
  if (!Alive(v) || !BeginChange(v)) return nullptr;
  return &v->pic;
}

void ViewEndChange(Widget w, bool geometry_changed) {
  ViewRecord *v = FindView(w);
  if (!v) return;
  v->modified = true;
  v->sel = OpRect{0, 0, 0, 0};
  if (geometry_changed && !Settings().View.KeepZoomFactor)
    ApplyFit(v, true);
  else
    Refresh(v);
}

const TslPicture *ViewCurrentPicture(Widget w) {
  ViewRecord *v = FindView(w);
  if (!v || v->busy) return nullptr;
  if (v->preview && !FinishFullLoad(v)) return nullptr;
  if (!Alive(v)) return nullptr;
  const TslPicture *p = Shown(v);
  if (p == &v->mask) p = &v->pic;
  return p->pixels ? p : nullptr;
}

void ViewSetFile(Widget w, const char *path, int format, bool modified) {
  ViewRecord *v = FindView(w);
  if (!v || !path) return;
  char resolved[4096];
  ResolvePath(path, resolved);
  v->path = resolved;
  if (v->list && v->pos >= 0 && v->pos < v->count)
    std::snprintf(v->list[v->pos].path, sizeof v->list[v->pos].path, "%s", resolved);
  if (format >= 0) v->format = format;
  v->modified = modified;
  UpdateLabel(v);
}

void ViewForgetFile(Widget w) {
  ViewRecord *v = FindView(w);
  if (!v || v->busy) return;
  v->modified = false;
  if (!v->list || v->count < 2 || v->pos < 0 || v->pos >= v->count) return CloseView(v);
  std::memmove(&v->list[v->pos], &v->list[v->pos + 1], static_cast<size_t>(v->count - v->pos - 1) * sizeof *v->list);
  --v->count;
  const int pos = std::min(v->pos, v->count - 1);
  v->pos = -1;  // nothing of the list is shown now
  ShowListEntry(v, pos);
}

void ExtractViewPages(Widget w, const char *dir) {
  ViewRecord *v = FindView(w);
  if (v && !v->busy) ExtractPages(v, dir ? dir : "");
}

bool ViewGetSelection(Widget w, OpRect *out) {
  ViewRecord *v = FindView(w);
  if (!v || !out || v->sel.width <= 0 || v->sel.height <= 0) return false;
  *out = v->sel;
  return true;
}

void ViewGoToPage(Widget w, int page) {
  ViewRecord *v = FindView(w);
  if (v && !v->busy) GoToPage(v, page);
}

Widget ViewShellAt(int index) {
  if (index < 0 || index >= static_cast<int>(g_views.size())) return nullptr;
  return g_views[index]->shell;
}

}  // namespace quilla
