// The browser window.  The icon view is one drawing area: the entries are
// drawn from the file list into a window of the visual chosen at start-up,
// only the cells in sight, so a directory of any size costs one window.
// The thumbnail loop hands one finished entry per work-procedure call; when
// the next one is still being decoded on a worker thread the procedure
// steps aside and an input callback on the loop's pipe brings it back, so
// the event loop never waits for a decode.
#include "browser/browser_x.h"

#include <X11/IntrinsicP.h>
#include <X11/CoreP.h>
#include <X11/Xatom.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <Xm/CascadeB.h>
#include <Xm/DrawingA.h>
#include <Xm/Form.h>
#include <Xm/Frame.h>
#include <Xm/List.h>
#include <Xm/Protocols.h>
#include <Xm/PushB.h>
#include <Xm/RowColumn.h>
#include <Xm/ScrollBar.h>
#include <Xm/Separator.h>
#include <Xm/TextF.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "browser/browser_dialogs_x.h"
#include "browser/cache_db.h"
#include "browser/contact_sheet_x.h"
#include "browser/descriptions.h"
#include "browser/dirtree_x.h"
#include "browser/filelist.h"
#include "browser/icon_layout.h"
#include "browser/thumb_queue.h"
#include "browser/webexport.h"
#include "browser/webexport_x.h"
#include "core/app_x.h"
#include "core/display_x.h"
#include "core/options_x.h"
#include "core/settings.h"
#include "files/batch_x.h"
#include "files/fileop_x.h"
#include "files/hexdump_x.h"
#include "files/jpegtrans_x.h"
#include "files/multi_x.h"
#include "files/slide_x.h"
#include "files/load_x.h"
#include "view/render_x.h"
#include "view/toolbar_icons.h"
#include "view/view_hooks_x.h"
#include "view/view_x.h"
#include "widgets/BubbleHelp.h"
#include "widgets/MyStatusBar.h"

namespace quilla {

namespace {

const int kThumbSizes[11][2] = {{32, 32},  {48, 48},   {64, 48},   {64, 64},   {85, 64},  {85, 85},
                                {92, 69},  {100, 100}, {192, 144}, {384, 288}, {768, 576}};
const char *const kViewWords[4] = {"viewAsIcons", "viewAsSmallIcons", "viewAsList", "viewAsColumn"};
const char *const kSortWords[6] = {"arrangeByName", "arrangeByExt",  "arrangeByDate",
                                   "arrangeBySize", "arrangeByType", "arrangeByDesc"};
const char *const kColumnWords[kColumnKinds] = {"showColumnSize", "showColumnProp", "showColumnType",
                                                "showColumnDate", "showColumnPerm", "showColumnDesc"};
const char *const kMoveWords[8] = {"itemRight",  "itemLeft",     "itemUp",   "itemDown",
                                   "itemPageUp", "itemPageDown", "itemHome", "itemEnd"};
constexpr int kLayouts = 3;
constexpr int kPaneWidth = 220, kPreviewHeight = 200;

// ---- the thumbnail cache: one for the process ------------------------------

ThumbCache *g_cache = nullptr;
void CloseCacheAtExit();

ThumbCache &Cache() {
  if (!g_cache) {
    g_cache = new ThumbCache(ThumbCache::DefaultRoot());
    std::atexit(CloseCacheAtExit);
  }
  return *g_cache;
}

// ---- the window record --------------------------------------------------------

struct Browser {
  Widget shell = nullptr, form = nullptr, menu_bar = nullptr, tool_bar = nullptr, work = nullptr;
  Widget icon_pane = nullptr, icon_view = nullptr, vbar = nullptr, hbar = nullptr;
  Widget preview_frame = nullptr, preview = nullptr, status = nullptr, popup = nullptr;
  Widget rename_field = nullptr;
  DirTreePane *tree = nullptr;
  std::vector<Pixmap> glyphs;

  // Drawing.
  ColourData *colours = nullptr;
  DisplayObject *display = nullptr;
  XFontStruct *font = nullptr;
  Window canvas = 0, preview_canvas = 0;
  GC gc = nullptr;
  Pixmap back = 0, preview_pm = 0;
  int canvas_w = 1, canvas_h = 1;
  Pixel white = 0, black = 0, select = 0, grey = 0, dark = 0, folder = 0, title = 0;

  // The listing.
  FileList list;
  IconLayout layout;
  int view_mode = 0, sort = 1, columns = 255;
  int current = -1, scroll = 0, hscroll = 0;
  std::string typed;
  Time typed_time = 0, click_time = 0;
  int click_pos = -1;

  // The thumbnail loop.
  ThumbLoop *loop = nullptr;
  bool caching = false;
  XtWorkProcId work_id = 0;
  XtInputId input_id = 0;
  std::string progress;
  bool exit_when_done = false;

  // The preview.
  XtIntervalId preview_timer = 0;
  int preview_zoom = 0;  // steps of 2 from the fitted size
};

Browser *g_browser = nullptr;

XmString Str(const std::string &s) { return XmStringCreateLocalized(const_cast<char *>(s.c_str())); }

void CloseCacheAtExit() {
  // Quitting from any window: the loop's threads end before the program,
  // and the current database's header count reaches the disk.
  if (g_browser && g_browser->loop) {
    g_browser->loop->stop();
    delete g_browser->loop;
    g_browser->loop = nullptr;
  }
  CloseBrowserCache();
}

void DoCommand(Browser *b, const std::string &w);
void Redraw(Browser *b);
void SchedulePreview(Browser *b);

void SetStatus(Browser *b, const std::string &text) {
  if (!b->status || !XtIsRealized(b->status)) return;
  XmString s = Str(text);
  MyStatusBarSetText(b->status, 0, s, 0);
  XmStringFree(s);
}

void ShowListStatus(Browser *b) { SetStatus(b, StatusText(b->list)); }

// ---- thumbnails -----------------------------------------------------------------

void FreeThumb(Browser *b, Thumbnail *t) {
  if (t->handle) XFreePixmap(XtDisplay(b->shell), static_cast<Pixmap>(t->handle));
  *t = Thumbnail{};
}

void ReleaseThumbnails(Browser *b, bool large, bool small) {
  for (FileEntry &e : b->list.entries()) {
    if (large) FreeThumb(b, &e.large);
    if (small) FreeThumb(b, &e.small);
  }
}

Boolean ThumbWork(XtPointer client);

void LoopInput(XtPointer client, int *, XtInputId *) {
  auto *b = static_cast<Browser *>(client);
  b->loop->drainReady();
  if (b->input_id) XtRemoveInput(b->input_id);
  b->input_id = 0;
  if (!b->work_id && b->loop->running()) b->work_id = XtAppAddWorkProc(App().app, ThumbWork, b);
}

void StopLoop(Browser *b) {
  if (b->work_id) XtRemoveWorkProc(b->work_id);
  if (b->input_id) XtRemoveInput(b->input_id);
  b->work_id = 0;
  b->input_id = 0;
  if (b->loop) b->loop->stop();
}

void StartLoop(Browser *b) {
  StopLoop(b);
  if (!b->loop || b->list.count() == 0) return;
  const SettingsRecord &s = Settings();
  ThumbSettings ts;
  ts.view_mode = b->view_mode;
  ts.width = s.Browser.IconWidth;
  ts.height = s.Browser.IconHeight;
  ts.known_extensions_only = s.Browser.RecognizeByExt;
  ts.sort_setting = b->sort;
  b->loop->start(ts);
  b->progress.clear();
  b->work_id = XtAppAddWorkProc(App().app, ThumbWork, b);
}

void DrawCell(Browser *b, int pos);

void Relayout(Browser *b);

Boolean ThumbWork(XtPointer client) {
  auto *b = static_cast<Browser *>(client);
  if (!b->loop->nextReady()) {
    // Wait for the decode off the event loop: the pipe says when.
    b->work_id = 0;
    if (!b->input_id)
      b->input_id = XtAppAddInput(App().app, b->loop->readyFd(), reinterpret_cast<XtPointer>(XtInputReadMask),
                                  LoopInput, b);
    return True;
  }
  ThumbStep step = b->loop->step();
  if (step.position >= 0 && step.hasPicture()) {
    FileEntry &e = b->list.at(step.position);
    TslPicture pic = step.take();
    Thumbnail &t = b->view_mode == kViewIcons ? e.large : e.small;
    FreeThumb(b, &t);
    const Pixmap pm = PictureToPixmap(b->display, b->canvas, &pic);
    if (pm) t = Thumbnail{pm, static_cast<int>(pic.width), static_cast<int>(pic.height)};
    tslFree(&pic);
  }
  if (step.position >= 0 && step.redraw) DrawCell(b, step.position);
  if (!step.progress.empty() && step.progress != b->progress) {
    b->progress = step.progress;
    SetStatus(b, step.progress);
  }
  if (!step.finished) return False;
  b->work_id = 0;
  if (step.resorted) {
    Relayout(b);
    Redraw(b);
  }
  ShowListStatus(b);
  if (b->exit_when_done) DoCommand(b, "quit");
  return True;
}

// ---- drawing --------------------------------------------------------------------------

// A colour of the window's colormap: allocated, or when the map is full (a
// private map on an 8-bit screen) the nearest one it holds.
Pixel AllocPixel(Browser *b, int r, int g, int bl) {
  Display *dpy = XtDisplay(b->shell);
  XColor c;
  c.red = static_cast<unsigned short>(r * 257);
  c.green = static_cast<unsigned short>(g * 257);
  c.blue = static_cast<unsigned short>(bl * 257);
  c.flags = DoRed | DoGreen | DoBlue;
  if (XAllocColor(dpy, b->colours->colormap, &c)) return c.pixel;
  const int cells = std::min(CurrentVisual().info.colormap_size, 256);
  std::vector<XColor> map(static_cast<size_t>(std::max(cells, 0)));
  for (int i = 0; i < cells; ++i) map[i].pixel = static_cast<unsigned long>(i);
  if (cells > 0) XQueryColors(dpy, b->colours->colormap, map.data(), cells);
  Pixel best = b->colours->black;
  long best_d = LONG_MAX;
  for (const XColor &m : map) {
    const long dr = (m.red >> 8) - r, dg = (m.green >> 8) - g, db = (m.blue >> 8) - bl;
    const long d = dr * dr + dg * dg + db * db;
    if (d < best_d) best_d = d, best = m.pixel;
  }
  return best;
}

int ViewHeight(const Browser *b) { return std::max(1, b->canvas_h - b->layout.titleHeight()); }

int LineHeight(const Browser *b) { return b->font->ascent + b->font->descent; }

// The text cut with "..." to fit `width` pixels.
std::string FitText(const Browser *b, const std::string &text, int width) {
  auto w = [&](const std::string &s) { return XTextWidth(b->font, s.c_str(), static_cast<int>(s.size())); };
  if (w(text) <= width) return text;
  std::string s = text;
  while (!s.empty() && w(s + "...") > width) s.pop_back();
  return s + "...";
}

void DrawText(Browser *b, Drawable d, int x, int y, const std::string &text) {
  XDrawString(XtDisplay(b->shell), d, b->gc, x, y + b->font->ascent, text.c_str(), static_cast<int>(text.size()));
}

// The picture an entry without thumbnail shows, in a w x h box.
void DrawGlyph(Browser *b, Drawable d, const FileEntry &e, int x, int y, int w, int h) {
  Display *dpy = XtDisplay(b->shell);
  const int gw = std::min(w, 40), gh = std::min(h, 32);
  const int gx = x + (w - gw) / 2, gy = y + (h - gh) / 2;
  if (e.isDirectory()) {
    XSetForeground(dpy, b->gc, b->folder);
    XFillRectangle(dpy, d, b->gc, gx, gy + gh / 5, gw, gh - gh / 5);
    XFillRectangle(dpy, d, b->gc, gx, gy, gw / 2, gh / 5 + 1);
    XSetForeground(dpy, b->gc, b->dark);
    XDrawRectangle(dpy, d, b->gc, gx, gy + gh / 5, gw - 1, gh - gh / 5 - 1);
    if (e.kind & kEntryNoAccess) {
      XDrawLine(dpy, d, b->gc, gx, gy, gx + gw - 1, gy + gh - 1);
      XDrawLine(dpy, d, b->gc, gx + gw - 1, gy, gx, gy + gh - 1);
    }
    return;
  }
  const int pw = std::max(4, gw * 3 / 4);
  const int px = x + (w - pw) / 2;
  XSetForeground(dpy, b->gc, b->white);
  XFillRectangle(dpy, d, b->gc, px, gy, pw, gh);
  XSetForeground(dpy, b->gc, b->dark);
  XDrawRectangle(dpy, d, b->gc, px, gy, pw - 1, gh - 1);
  if (e.state & kStateUnreadable) {
    XDrawLine(dpy, d, b->gc, px, gy, px + pw - 1, gy + gh - 1);
  } else {
    for (int ly = gy + 4; ly < gy + gh - 3; ly += 4) XDrawLine(dpy, d, b->gc, px + 3, ly, px + pw - 4, ly);
  }
}

void DrawThumbOrGlyph(Browser *b, Drawable d, const FileEntry &e, const Thumbnail &t, int x, int y, int w, int h) {
  if (t.handle && !e.isDirectory()) {
    const int tx = x + (w - t.width) / 2, ty = y + (h - t.height) / 2;
    XCopyArea(XtDisplay(b->shell), static_cast<Pixmap>(t.handle), d, b->gc, 0, 0, static_cast<unsigned>(t.width),
              static_cast<unsigned>(t.height), tx, ty);
  } else {
    DrawGlyph(b, d, e, x, y, w, h);
  }
}

// Draws one cell into the back pixmap at its place in the canvas.
void PaintCell(Browser *b, int pos) {
  Display *dpy = XtDisplay(b->shell);
  const FileEntry &e = b->list.at(pos);
  int cx, cy;
  b->layout.cell(pos, &cx, &cy);
  const int x = cx - b->hscroll, y = cy - b->scroll + b->layout.titleHeight();
  const int cw = b->layout.cellWidth(), ch = b->layout.cellHeight();
  if (y + ch <= b->layout.titleHeight() || y >= b->canvas_h) return;
  XSetForeground(dpy, b->gc, b->white);
  XFillRectangle(dpy, b->back, b->gc, x, y, cw, ch);
  const int lh = LineHeight(b);
  const bool sel = e.selected;
  if (b->view_mode == kViewIcons) {
    const int tw = Settings().Browser.IconWidth, th = Settings().Browser.IconHeight;
    const int fx = x + (cw - tw) / 2 - 3, fy = y + 4;
    XSetForeground(dpy, b->gc, sel ? b->select : b->grey);
    XDrawRectangle(dpy, b->back, b->gc, fx, fy, tw + 5, th + 5);
    DrawThumbOrGlyph(b, b->back, e, e.large, fx + 3, fy + 3, tw, th);
    const std::string name = FitText(b, e.name, cw - 6);
    const int nw = XTextWidth(b->font, name.c_str(), static_cast<int>(name.size()));
    const int ly = fy + th + 8;
    if (sel) {
      XSetForeground(dpy, b->gc, b->select);
      XFillRectangle(dpy, b->back, b->gc, x + (cw - nw) / 2 - 2, ly, nw + 4, lh);
    }
    XSetForeground(dpy, b->gc, sel ? b->white : b->black);
    DrawText(b, b->back, x + (cw - nw) / 2, ly, name);
    if (e.state & kStateKnown) {
      const std::string dims = std::to_string(e.info.width) + "x" + std::to_string(e.info.height);
      const int dw = XTextWidth(b->font, dims.c_str(), static_cast<int>(dims.size()));
      XSetForeground(dpy, b->gc, b->dark);
      DrawText(b, b->back, x + (cw - dw) / 2, ly + lh, dims);
    }
  } else {
    if (sel) {
      XSetForeground(dpy, b->gc, b->select);
      XFillRectangle(dpy, b->back, b->gc, x, y, b->view_mode == kViewColumns ? cw - 4 : cw, ch);
    }
    const int ty = y + (ch - lh) / 2;
    if (b->view_mode == kViewSmallIcons)
      DrawThumbOrGlyph(b, b->back, e, e.small, x + 4, y + (ch - 16) / 2, 16, 16);
    else
      DrawGlyph(b, b->back, e, x + 4, y + (ch - 16) / 2, 16, 16);
    XSetForeground(dpy, b->gc, sel ? b->white : b->black);
    if (b->view_mode == kViewColumns) {
      DrawText(b, b->back, x + 24, ty, FitText(b, e.name, cw - 32));
    } else {
      for (const LayoutColumn &c : b->layout.columns()) {
        const int inset = c.bit == 0 ? 24 : 4;
        DrawText(b, b->back, x + c.x + inset, ty, FitText(b, ColumnText(e, c.bit), c.width - inset - 4));
      }
    }
  }
  if (pos == b->current) {
    // The keyboard's place: a dotted frame.
    XSetForeground(dpy, b->gc, b->black);
    XSetLineAttributes(dpy, b->gc, 1, LineOnOffDash, CapButt, JoinMiter);
    XDrawRectangle(dpy, b->back, b->gc, x + 1, y + 1, cw - 3, ch - 3);
    XSetLineAttributes(dpy, b->gc, 0, LineSolid, CapButt, JoinMiter);
  }
}

void PaintTitles(Browser *b) {
  if (!b->layout.titleHeight()) return;
  Display *dpy = XtDisplay(b->shell);
  XSetForeground(dpy, b->gc, b->title);
  XFillRectangle(dpy, b->back, b->gc, 0, 0, b->canvas_w, b->layout.titleHeight());
  for (const LayoutColumn &c : b->layout.columns()) {
    const int x = c.x - b->hscroll;
    XSetForeground(dpy, b->gc, b->black);
    DrawText(b, b->back, x + 6, 3, c.title);
    XSetForeground(dpy, b->gc, b->dark);
    XDrawLine(dpy, b->back, b->gc, x + c.width - 1, 0, x + c.width - 1, b->layout.titleHeight() - 1);
  }
  XDrawLine(dpy, b->back, b->gc, 0, b->layout.titleHeight() - 1, b->canvas_w, b->layout.titleHeight() - 1);
}

// The range of positions in sight.
void VisibleRange(const Browser *b, int *first, int *last) {
  const int ch = b->layout.cellHeight(), per = b->layout.perRow();
  *first = std::max(0, b->scroll / ch * per);
  *last = std::min(b->list.count() - 1, ((b->scroll + ViewHeight(b)) / ch + 1) * per - 1);
}

void Redraw(Browser *b) {
  if (!b->canvas || !b->back) return;
  Display *dpy = XtDisplay(b->shell);
  XSetForeground(dpy, b->gc, b->white);
  XFillRectangle(dpy, b->back, b->gc, 0, 0, b->canvas_w, b->canvas_h);
  int first, last;
  VisibleRange(b, &first, &last);
  for (int pos = first; pos <= last; ++pos) PaintCell(b, pos);
  PaintTitles(b);
  XCopyArea(dpy, b->back, b->canvas, b->gc, 0, 0, b->canvas_w, b->canvas_h, 0, 0);
}

void DrawCell(Browser *b, int pos) {
  if (!b->canvas || !b->back || pos < 0 || pos >= b->list.count()) return;
  int first, last;
  VisibleRange(b, &first, &last);
  if (pos < first || pos > last) return;
  PaintCell(b, pos);
  PaintTitles(b);
  int cx, cy;
  b->layout.cell(pos, &cx, &cy);
  const int x = cx - b->hscroll, y = cy - b->scroll + b->layout.titleHeight();
  XCopyArea(XtDisplay(b->shell), b->back, b->canvas, b->gc, x, y, b->layout.cellWidth(), b->layout.cellHeight(), x,
            y);
}

void UpdateScrollBars(Browser *b) {
  const int vh = ViewHeight(b);
  const int total = std::max(b->layout.contentHeight(), vh);
  b->scroll = std::clamp(b->scroll, 0, total - vh);
  XtVaSetValues(b->vbar, XmNmaximum, total, XmNsliderSize, vh, XmNvalue, b->scroll, XmNincrement,
                b->layout.cellHeight(), XmNpageIncrement, std::max(1, vh - b->layout.cellHeight()), nullptr);
  const int tw = std::max(b->layout.contentWidth(), b->canvas_w);
  b->hscroll = std::clamp(b->hscroll, 0, tw - b->canvas_w);
  XtVaSetValues(b->hbar, XmNmaximum, tw, XmNsliderSize, b->canvas_w, XmNvalue, b->hscroll, XmNincrement, 16,
                XmNpageIncrement, std::max(1, b->canvas_w - 16), nullptr);
}

void Relayout(Browser *b) {
  const SettingsRecord &s = Settings();
  const int char_w = std::max(1, XTextWidth(b->font, "n", 1));
  b->layout.set(b->view_mode, b->list.count(), b->canvas_w, s.Browser.IconWidth, s.Browser.IconHeight,
                LineHeight(b), char_w, b->columns);
  if (b->current >= b->list.count()) b->current = b->list.count() - 1;
  const bool wide = b->view_mode == kViewSmallIcons || b->view_mode == kViewList;
  if (wide != static_cast<bool>(XtIsManaged(b->hbar))) {
    if (wide) {
      XtManageChild(b->hbar);
      XtVaSetValues(b->icon_view, XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget, b->hbar, nullptr);
    } else {
      XtVaSetValues(b->icon_view, XmNbottomAttachment, XmATTACH_FORM, nullptr);
      XtUnmanageChild(b->hbar);
      b->hscroll = 0;
    }
  }
  UpdateScrollBars(b);
}

void ShowPosition(Browser *b, int pos) {
  const int s = b->layout.scrollToShow(pos, b->scroll, ViewHeight(b));
  if (s != b->scroll) {
    b->scroll = s;
    UpdateScrollBars(b);
    Redraw(b);
  }
}

// Moves the keyboard's place; the selection follows it.
void SetCurrent(Browser *b, int pos, bool select_only) {
  if (b->list.count() == 0) return;
  pos = std::clamp(pos, 0, b->list.count() - 1);
  const int old = b->current;
  b->current = pos;
  if (select_only) {
    for (int i = 0; i < b->list.count(); ++i) {
      FileEntry &e = b->list.at(i);
      const bool want = i == pos;
      if (e.selected != want) {
        e.selected = want;
        if (i != old) DrawCell(b, i);
      }
    }
  }
  DrawCell(b, old);
  DrawCell(b, pos);
  ShowPosition(b, pos);
  ShowListStatus(b);
  SchedulePreview(b);
}

int PositionOfName(const Browser *b, const std::string &name) {
  for (int i = 0; i < b->list.count(); ++i)
    if (name == b->list.at(i).name) return i;
  return -1;
}

// ---- the preview pane ------------------------------------------------------------

void ClearPreview(Browser *b) {
  if (!b->preview_canvas) return;
  Display *dpy = XtDisplay(b->shell);
  XSetWindowBackground(dpy, b->preview_canvas, b->white);
  XClearWindow(dpy, b->preview_canvas);
  if (b->preview_pm) XFreePixmap(dpy, b->preview_pm);
  b->preview_pm = 0;
}

// The first bytes of a file as text lines, or as a hex dump.
std::vector<std::string> ContentLines(const std::string &path, bool ascii, int max_lines) {
  std::vector<std::string> lines;
  FILE *f = std::fopen(path.c_str(), "rb");
  if (!f) return lines;
  unsigned char buf[2048];
  const size_t n = std::fread(buf, 1, sizeof buf, f);
  std::fclose(f);
  if (ascii) {
    std::string line;
    for (size_t i = 0; i < n && static_cast<int>(lines.size()) < max_lines; ++i) {
      if (buf[i] == '\n') {
        lines.push_back(line);
        line.clear();
      } else if (buf[i] != '\r') {
        line += (buf[i] >= 32 && buf[i] < 127) ? static_cast<char>(buf[i]) : '.';
      }
    }
    if (!line.empty() && static_cast<int>(lines.size()) < max_lines) lines.push_back(line);
  } else {
    for (size_t off = 0; off < n && static_cast<int>(lines.size()) < max_lines; off += 8) {
      char text[64];
      int k = std::snprintf(text, sizeof text, "%04zx ", off);
      for (size_t i = off; i < off + 8 && i < n; ++i) k += std::snprintf(text + k, sizeof text - k, "%02x", buf[i]);
      lines.push_back(text);
    }
  }
  return lines;
}

void UpdatePreview(Browser *b) {
  b->preview_timer = 0;
  if (!b->preview_canvas || !XtIsManaged(b->preview_frame)) return;
  ClearPreview(b);
  if (b->current < 0 || b->current >= b->list.count()) return;
  const FileEntry &e = b->list.at(b->current);
  if (e.isDirectory()) return;
  Dimension pw = 1, ph = 1;
  XtVaGetValues(b->preview, XmNwidth, &pw, XmNheight, &ph, nullptr);
  Display *dpy = XtDisplay(b->shell);
  const std::string path = b->list.pathOf(e);
  Pixmap pm = XCreatePixmap(dpy, b->preview_canvas, pw, ph, static_cast<unsigned>(CurrentVisual().info.depth));
  XSetForeground(dpy, b->gc, b->white);
  XFillRectangle(dpy, pm, b->gc, 0, 0, pw, ph);
  const double factor = b->preview_zoom >= 0 ? (1 << b->preview_zoom) : 1.0 / (1 << -b->preview_zoom);
  const bool fit = Settings().Browser.FitPreviewWindow;
  TslPicture pic{};
  TslFileInfo info{};
  // Fitted, or at most twice the pane (its middle shown): a reduced decode
  // either way, so resting on a large photo costs little.
  const double scale = factor * (fit ? 1 : 2);
  const int tw = std::max(1, static_cast<int>(pw * scale)), th = std::max(1, static_cast<int>(ph * scale));
  bool shown = false;
  if (!(e.state & kStateUnreadable) &&
      ThumbnailLoad(path.c_str(), &pic, &info, tw, th, Settings().Browser.RecognizeByExt) == TSL_OK) {
    const Pixmap p = PictureToPixmap(b->display, b->preview_canvas, &pic);
    if (p) {
      const int w = static_cast<int>(pic.width), h = static_cast<int>(pic.height);
      XCopyArea(dpy, p, pm, b->gc, std::max(0, (w - pw) / 2), std::max(0, (h - ph) / 2), std::min<int>(w, pw),
                std::min<int>(h, ph), std::max(0, (pw - w) / 2), std::max(0, (ph - h) / 2));
      XFreePixmap(dpy, p);
      shown = true;
    }
  }
  tslFree(&pic);
  tslFileInformationFree(&info);
  if (!shown && Settings().Browser.ShowContent) {
    XSetForeground(dpy, b->gc, b->black);
    int y = 2;
    for (const std::string &line : ContentLines(path, Settings().Browser.ShowInAscii, ph / LineHeight(b))) {
      DrawText(b, pm, 2, y, line);
      y += LineHeight(b);
    }
  }
  b->preview_pm = pm;
  XSetWindowBackgroundPixmap(dpy, b->preview_canvas, pm);
  XClearWindow(dpy, b->preview_canvas);
}

void PreviewTimer(XtPointer client, XtIntervalId *) { UpdatePreview(static_cast<Browser *>(client)); }

// Waits for the keyboard to rest before decoding.
void SchedulePreview(Browser *b) {
  if (!b->preview_canvas || !XtIsManaged(b->preview_frame)) return;
  if (b->preview_timer) XtRemoveTimeOut(b->preview_timer);
  b->preview_timer = XtAppAddTimeOut(App().app, 150, PreviewTimer, b);
}

void PreviewResized(Widget, XtPointer client, XtPointer) {
  auto *b = static_cast<Browser *>(client);
  if (!b->preview_canvas) return;
  Dimension w = 1, h = 1;
  XtVaGetValues(b->preview, XmNwidth, &w, XmNheight, &h, nullptr);
  XResizeWindow(XtDisplay(b->shell), b->preview_canvas, std::max<Dimension>(1, w), std::max<Dimension>(1, h));
  SchedulePreview(b);
}

// ---- the listing ---------------------------------------------------------------

std::string WithSlash(std::string dir) {
  if (dir.empty() || dir.back() != '/') dir += '/';
  return dir;
}

// Names beginning with a dot, unless the settings show them ("..", the way
// up, always shows).
void DropHidden(FileList *list) {
  if (Settings().Browser.ShowHiddenFile) return;
  list->removeIf([](const FileEntry &e) { return e.name[0] == '.' && !e.isDotDot(); });
}

void SetTitle(Browser *b) {
  const std::string title = "Quilla Browser - " + b->list.directory();
  XtVaSetValues(b->shell, XmNtitle, title.c_str(), XmNiconName, "Quilla Browser", nullptr);
}

// Reads `dir` into the window; the entry named `select` becomes current.
// A directory that cannot be read leaves the listing as it was.
bool ChangeDirectory(Browser *b, const std::string &dir_in, const std::string &select = "") {
  char resolved[PATH_MAX];
  const std::string dir = WithSlash(realpath(dir_in.c_str(), resolved) ? resolved : dir_in);
  StopLoop(b);
  if (b->caching) {
    Cache().setThumbnailSize(Settings().Browser.IconWidth, Settings().Browser.IconHeight);
    Cache().setDirectory(dir);
  }
  const DescriptionTable table = LoadDescriptions(dir);
  FileList fresh;
  const bool ok = fresh.read(dir, [&table](const char *name) -> const char * {
    const std::string *t = FindDescription(table, name);
    return t ? t->c_str() : nullptr;
  });
  if (!ok) {
    if (b->caching && !b->list.directory().empty()) Cache().setDirectory(b->list.directory());
    XBell(XtDisplay(b->shell), 0);
    SetStatus(b, "Can't read directory " + dir);
    StartLoop(b);
    return false;
  }
  ReleaseThumbnails(b, true, true);
  b->list = std::move(fresh);
  DropHidden(&b->list);
  b->list.sort(b->sort);
  b->scroll = b->hscroll = 0;
  b->current = b->list.count() ? 0 : -1;
  const int found = select.empty() ? -1 : PositionOfName(b, select);
  if (found >= 0) b->current = found;
  if (b->current >= 0) b->list.at(b->current).selected = true;
  std::strncpy(Settings().PathBrowse, dir.c_str(), kPathSize - 1);
  SetTitle(b);
  Relayout(b);
  ShowPosition(b, b->current);
  Redraw(b);
  ShowListStatus(b);
  if (b->tree) b->tree->Show(dir);
  SchedulePreview(b);
  StartLoop(b);
  return true;
}

void RereadDescriptions(Browser *b) {
  const DescriptionTable table = LoadDescriptions(b->list.directory());
  for (FileEntry &e : b->list.entries()) {
    const std::string *t = FindDescription(table, e.name);
    e.has_description = t != nullptr;
    e.description = t ? *t : std::string();
  }
  Redraw(b);
}

void QuickRefresh(Browser *b) {
  StopLoop(b);
  const std::string keep = b->current >= 0 ? b->list.at(b->current).name : "";
  const int old_position = b->current;
  const std::string dir = b->list.directory();
  const DescriptionTable table = LoadDescriptions(dir);
  const bool ok = b->list.quickRefresh(
      [&table](const char *name) -> const char * {
        const std::string *t = FindDescription(table, name);
        return t ? t->c_str() : nullptr;
      },
      [b](const Thumbnail &t) {
        if (t.handle) XFreePixmap(XtDisplay(b->shell), static_cast<Pixmap>(t.handle));
      });
  if (ok) {
    b->list.removeIf([b](const FileEntry &e) {
      // Thumbnails of hidden entries kept from before go with them.
      if (Settings().Browser.ShowHiddenFile || e.name[0] != '.' || e.isDotDot()) return false;
      if (e.large.handle) XFreePixmap(XtDisplay(b->shell), static_cast<Pixmap>(e.large.handle));
      if (e.small.handle) XFreePixmap(XtDisplay(b->shell), static_cast<Pixmap>(e.small.handle));
      return true;
    });
    b->list.sort(b->sort);
    b->current = keep.empty() ? -1 : PositionOfName(b, keep);
    // The current file went (moved, deleted): the one that took its place.
    if (b->current < 0 && b->list.count()) b->current = std::clamp(old_position, 0, b->list.count() - 1);
  }
  Relayout(b);
  Redraw(b);
  ShowListStatus(b);
  StartLoop(b);
}

void Resort(Browser *b, int sort) {
  StopLoop(b);
  const std::string keep = b->current >= 0 ? b->list.at(b->current).name : "";
  b->sort = sort;
  Settings().Browser.ArrangeBy = sort;
  b->list.sort(sort);
  if (!keep.empty()) b->current = PositionOfName(b, keep);
  Redraw(b);
  ShowPosition(b, b->current);
  if (b->list.count()) StartLoop(b);
}

// ---- menus and tool bar ------------------------------------------------------------

struct Item {
  const char *word;  // command word and widget name; nullptr: separator
  const char *label;
  const char *accel;  // translation syntax
  const char *accel_text;
  char kind;  // 'p' push, 't' toggle, 'r' radio
  bool available;
};

const Item kFileItems[] = {
    {"open", "Open", "Ctrl<Key>o", "Ctrl+O", 'p', true},
    {"openHexa", "Open In Hex Dump", "Ctrl<Key>h", "Ctrl+H", 'p', true},
    {nullptr, nullptr, nullptr, nullptr, 0, false},
    {"describe", "Description...", "Ctrl<Key>d", "Ctrl+D", 'p', true},
    {"properties", "Properties...", "Ctrl<Key>e", "Ctrl+E", 'p', true},
    {"rename", "Rename", nullptr, "F2", 'p', true},
    {"copyTo", "Copy To...", "Alt<Key>c", "Alt+C", 'p', true},
    {"moveTo", "Move To...", "Alt<Key>m", "Alt+M", 'p', true},
    {"delete", "Delete", nullptr, "Del", 'p', true},
    {"copyLocation", "Copy Location", nullptr, nullptr, 'p', true},
    {"jpegTransform", "JPEG Lossless Transformations...", nullptr, nullptr, 'p', true},
    {"multiPage", "Multi-page File...", nullptr, nullptr, 'p', true},
    {nullptr, nullptr, nullptr, nullptr, 0, false},
    {"convert", "Batch Convert...", "Ctrl<Key>n", "Ctrl+N", 'p', true},
    {"slideShow", "Slide Show...", "Ctrl<Key>l", "Ctrl+L", 'p', true},
    {"webPage", "Web Page...", nullptr, nullptr, 'p', true},
    {"contactSheet", "Contact Sheet...", nullptr, nullptr, 'p', true},
    {nullptr, nullptr, nullptr, nullptr, 0, false},
    {"close", "Close", "Ctrl<Key>w", "Ctrl+W", 'p', true},
    {"quit", "Quit", "Ctrl<Key>q", "Ctrl+Q", 'p', true},
};
const Item kEditItems[] = {
    {"selectAll", "Select All", "Ctrl<Key>a", "Ctrl+A", 'p', true},
    {nullptr, nullptr, nullptr, nullptr, 0, false},
    {"options", "Options...", nullptr, nullptr, 'p', true},
};
const Item kViewItems[] = {
    {"showDirList", "Directory Tree", nullptr, nullptr, 't', true},
    {"showPreview", "Preview", nullptr, nullptr, 't', true},
    {"showStatusBar", "Status Bar", nullptr, nullptr, 't', true},
    {"showToolBar", "Tool Bar", nullptr, nullptr, 't', true},
    {"showHidden", "Hidden Files", "Ctrl<Key>period", "Ctrl+.", 't', true},
    {nullptr, nullptr, nullptr, nullptr, 0, false},
    {"viewAsIcons", "Icons", "Ctrl<Key>1", "Ctrl+1", 'r', true},
    {"viewAsSmallIcons", "Small Icons", "Ctrl<Key>2", "Ctrl+2", 'r', true},
    {"viewAsList", "List", "Ctrl<Key>3", "Ctrl+3", 'r', true},
    {"viewAsColumn", "Columns", "Ctrl<Key>4", "Ctrl+4", 'r', true},
    {nullptr, nullptr, nullptr, nullptr, 0, false},
    {"layout", "Next Layout", nullptr, nullptr, 'p', true},
    {"quickRefresh", "Refresh", "<Key>F5", "F5", 'p', true},
    {"refresh", "Refresh All", "Ctrl<Key>r", "Ctrl+R", 'p', true},
};
const Item kColumnItems[] = {
    {"showColumnSize", "Size", nullptr, nullptr, 't', true},
    {"showColumnProp", "Properties", nullptr, nullptr, 't', true},
    {"showColumnType", "Type", nullptr, nullptr, 't', true},
    {"showColumnDate", "Date", nullptr, nullptr, 't', true},
    {"showColumnPerm", "Permissions", nullptr, nullptr, 't', true},
    {"showColumnDesc", "Description", nullptr, nullptr, 't', true},
};
const Item kArrangeItems[] = {
    {"arrangeByName", "By Name", nullptr, nullptr, 'r', true},
    {"arrangeByExt", "By Extension", nullptr, nullptr, 'r', true},
    {"arrangeByDate", "By Date", nullptr, nullptr, 'r', true},
    {"arrangeBySize", "By Size", nullptr, nullptr, 'r', true},
    {"arrangeByType", "By Type", nullptr, nullptr, 'r', true},
    {"arrangeByDesc", "By Description", nullptr, nullptr, 'r', true},
    {nullptr, nullptr, nullptr, nullptr, 0, false},
    {"sortForward", "Ascending", nullptr, nullptr, 'r', true},
    {"sortReverse", "Descending", nullptr, nullptr, 'r', true},
};
const Item kPreviewItems[] = {
    {"fitWindow", "Fit Window", nullptr, nullptr, 't', true},
    {"showContent", "Show Content", nullptr, nullptr, 't', true},
    {"showInAscii", "Show In ASCII", nullptr, nullptr, 't', true},
    {nullptr, nullptr, nullptr, nullptr, 0, false},
    {"zoom+", "Zoom In", nullptr, "+", 'p', true},
    {"zoom-", "Zoom Out", nullptr, "-", 'p', true},
};
const Item kGoItems[] = {
    {"goUp", "Parent Directory", nullptr, "Backspace", 'p', true},
    {"goHome", "Home Directory", nullptr, nullptr, 'p', true},
};
const Item kBookmarkItems[] = {
    {"addBookmark", "Add Bookmark", nullptr, nullptr, 'p', true},
    {"editBookmarks", "Edit Bookmarks...", nullptr, nullptr, 'p', true},
    {nullptr, nullptr, nullptr, nullptr, 0, false},
};
const Item kHelpItems[] = {
    {"about", "About...", nullptr, nullptr, 'p', true},
};

void ItemActivated(Widget, XtPointer client, XtPointer) {
  if (g_browser) DoCommand(g_browser, static_cast<const char *>(client));
}

void AddItems(Widget menu, const Item *items, int count) {
  for (int i = 0; i < count; ++i) {
    const Item &it = items[i];
    if (!it.word) {
      XtCreateManagedWidget("separator", xmSeparatorWidgetClass, menu, nullptr, 0);
      continue;
    }
    Arg args[6];
    int n = 0;
    XmString label = Str(it.label);
    XmString acc = it.accel_text ? Str(it.accel_text) : nullptr;
    XtSetArg(args[n], XmNlabelString, label), ++n;
    if (acc) XtSetArg(args[n], XmNacceleratorText, acc), ++n;
    if (it.accel) XtSetArg(args[n], XmNaccelerator, it.accel), ++n;
    Widget w;
    if (it.kind == 'p') {
      w = XtCreateManagedWidget(it.word, xmPushButtonWidgetClass, menu, args, n);
      XtAddCallback(w, XmNactivateCallback, ItemActivated, const_cast<char *>(it.word));
    } else {
      XtSetArg(args[n], XmNindicatorType, it.kind == 'r' ? XmONE_OF_MANY : XmN_OF_MANY), ++n;
      XtSetArg(args[n], XmNvisibleWhenOff, True), ++n;
      w = XtCreateManagedWidget(it.word, xmToggleButtonWidgetClass, menu, args, n);
      XtAddCallback(w, XmNvalueChangedCallback, ItemActivated, const_cast<char *>(it.word));
    }
    XmStringFree(label);
    if (acc) XmStringFree(acc);
    if (!it.available) XtSetSensitive(w, False);
  }
}

Widget AddMenu(Widget bar, const char *name, const char *label, char mnemonic, const Item *items, int count) {
  Widget pull = XmCreatePulldownMenu(bar, const_cast<char *>((std::string("Menu") + name).c_str()), nullptr, 0);
  AddItems(pull, items, count);
  XmString s = Str(label);
  XtVaCreateManagedWidget(name, xmCascadeButtonWidgetClass, bar, XmNsubMenuId, pull, XmNlabelString, s, XmNmnemonic,
                          mnemonic, nullptr);
  XmStringFree(s);
  return pull;
}

Widget AddSubmenu(Widget menu, const char *name, const char *label, const Item *items, int count) {
  Widget pull = XmCreatePulldownMenu(menu, const_cast<char *>((std::string("Menu") + name).c_str()), nullptr, 0);
  AddItems(pull, items, count);
  XmString s = Str(label);
  XtVaCreateManagedWidget(name, xmCascadeButtonWidgetClass, menu, XmNsubMenuId, pull, XmNlabelString, s, nullptr);
  XmStringFree(s);
  return pull;
}

void ThumbSizeChosen(Widget, XtPointer client, XtPointer call) {
  if (!static_cast<XmToggleButtonCallbackStruct *>(call)->set || !g_browser) return;
  const int i = static_cast<int>(reinterpret_cast<intptr_t>(client));
  DoCommand(g_browser, "thumbnail" + std::to_string(kThumbSizes[i][0]) + "x" + std::to_string(kThumbSizes[i][1]));
}

void BookmarkChosen(Widget w, XtPointer, XtPointer) {
  XtPointer data = nullptr;
  XtVaGetValues(w, XmNuserData, &data, nullptr);
  const int index = static_cast<int>(reinterpret_cast<intptr_t>(data));
  if (g_browser && index >= 0 && index < Bookmarks().count())
    ChangeDirectory(g_browser, Bookmarks().items()[index].path);
}

// The bookmark entries below the menu's fixed items, made anew each time
// the menu opens.
void BookmarkMenuShown(Widget, XtPointer client, XtPointer) {
  Widget menu = static_cast<Widget>(client);
  WidgetList children = nullptr;
  Cardinal n = 0;
  XtVaGetValues(menu, XmNchildren, &children, XmNnumChildren, &n, nullptr);
  const std::vector<Widget> old(children, children + n);
  for (Widget c : old)
    if (std::strncmp(XtName(c), "bookmark", 8) == 0) XtDestroyWidget(c);
  const std::vector<Bookmark> &items = Bookmarks().items();
  for (size_t i = 0; i < items.size(); ++i) {
    XmString s = Str(items[i].name.empty() ? items[i].path : items[i].name);
    Widget b = XtVaCreateManagedWidget(("bookmark" + std::to_string(i)).c_str(), xmPushButtonWidgetClass, menu,
                                       XmNlabelString, s, XmNuserData, reinterpret_cast<XtPointer>(i), nullptr);
    XmStringFree(s);
    XtAddCallback(b, XmNactivateCallback, BookmarkChosen, nullptr);
  }
}

#define COUNT(a) static_cast<int>(sizeof a / sizeof a[0])

Widget CreateMenuBar(Browser *b) {
  Widget bar = XmCreateMenuBar(b->form, const_cast<char *>("MenuBar"), nullptr, 0);
  AddMenu(bar, "File", "File", 'F', kFileItems, COUNT(kFileItems));
  AddMenu(bar, "Edit", "Edit", 'E', kEditItems, COUNT(kEditItems));
  Widget view = AddMenu(bar, "View", "View", 'V', kViewItems, COUNT(kViewItems));
  AddSubmenu(view, "Columns", "Columns", kColumnItems, COUNT(kColumnItems));
  Widget sizes = XmCreatePulldownMenu(view, const_cast<char *>("MenuThumbnailSize"), nullptr, 0);
  XtVaSetValues(sizes, XmNradioBehavior, True, nullptr);
  for (int i = 0; i < 11; ++i) {
    const std::string text = std::to_string(kThumbSizes[i][0]) + "x" + std::to_string(kThumbSizes[i][1]);
    XmString s = Str(text);
    Widget t = XtVaCreateManagedWidget(("thumbnail" + text).c_str(), xmToggleButtonWidgetClass, sizes,
                                       XmNlabelString, s, XmNindicatorType, XmONE_OF_MANY, nullptr);
    XmStringFree(s);
    XtAddCallback(t, XmNvalueChangedCallback, ThumbSizeChosen, reinterpret_cast<XtPointer>(static_cast<intptr_t>(i)));
  }
  XmString s = Str("Thumbnail Size");
  XtVaCreateManagedWidget("ThumbnailSize", xmCascadeButtonWidgetClass, view, XmNsubMenuId, sizes, XmNlabelString, s,
                          nullptr);
  XmStringFree(s);
  AddMenu(bar, "Arrange", "Arrange", 'A', kArrangeItems, COUNT(kArrangeItems));
  AddMenu(bar, "Preview", "Preview", 'P', kPreviewItems, COUNT(kPreviewItems));
  AddMenu(bar, "Go", "Go", 'G', kGoItems, COUNT(kGoItems));
  Widget marks = AddMenu(bar, "Bookmarks", "Bookmarks", 'B', kBookmarkItems, COUNT(kBookmarkItems));
  XtAddCallback(XtNameToWidget(bar, "Bookmarks"), XmNcascadingCallback, BookmarkMenuShown, marks);
  AddMenu(bar, "Help", "Help", 'H', kHelpItems, COUNT(kHelpItems));
  XtVaSetValues(bar, XmNmenuHelpWidget, XtNameToWidget(bar, "Help"), nullptr);
  XtManageChild(bar);
  return bar;
}

void SetToggle(Browser *b, const std::string &name, bool on) {
  Widget w = XtNameToWidget(b->menu_bar, ("*" + name).c_str());
  if (w) XmToggleButtonSetState(w, on ? True : False, False);
}

// The menus' toggles and radio entries as the window now is.
void SyncMenus(Browser *b) {
  const SettingsRecord &s = Settings();
  SetToggle(b, "showDirList", s.Browser.ShowDirList);
  SetToggle(b, "showPreview", s.Browser.ShowPreview);
  SetToggle(b, "showStatusBar", s.Browser.ShowStatusBar);
  SetToggle(b, "showToolBar", s.Browser.ShowToolBar);
  SetToggle(b, "showHidden", s.Browser.ShowHiddenFile);
  SetToggle(b, "fitWindow", s.Browser.FitPreviewWindow);
  SetToggle(b, "showContent", s.Browser.ShowContent);
  SetToggle(b, "showInAscii", s.Browser.ShowInAscii);
  for (int i = 0; i < 4; ++i) SetToggle(b, kViewWords[i], b->view_mode == i);
  for (int i = 0; i < 6; ++i) SetToggle(b, kSortWords[i], (b->sort & 0x7f) == i + 1);
  for (int i = 0; i < kColumnKinds; ++i) SetToggle(b, kColumnWords[i], (b->columns & (1 << i)) != 0);
  SetToggle(b, "sortForward", !(b->sort & kSortReverse));
  SetToggle(b, "sortReverse", (b->sort & kSortReverse) != 0);
  for (const auto &size : kThumbSizes)
    SetToggle(b, "thumbnail" + std::to_string(size[0]) + "x" + std::to_string(size[1]),
              s.Browser.IconWidth == size[0] && s.Browser.IconHeight == size[1]);
}

const ToolbarButton kTools[] = {
    {"goUp", "buttonUp", {"                ", "       ##       ", "      ####      ", "     ######     ",
                          "    ########    ", "   ##########   ", "      ####      ", "      ####      ",
                          "      ####      ", "      ####      ", "      ####      ", "      ####      ",
                          "      ####      ", "                ", "                ", "                "}},
    {"quickRefresh", "buttonRefresh", {"                ", "     #####      ", "   ##     ## #  ", "  #         ##  ",
                                       "  #        ###  ", " #              ", " #              ", " #              ",
                                       " #             #", "              # ", "  ###         # ", "  ##         #  ",
                                       "  # ##     ##   ", "      #####     ", "                ", "                "}},
    {"viewAsIcons", "buttonIcons", {"                ", " #####   #####  ", " #   #   #   #  ", " #   #   #   #  ",
                                    " #####   #####  ", "                ", "                ", " #####   #####  ",
                                    " #   #   #   #  ", " #   #   #   #  ", " #####   #####  ", "                ",
                                    "                ", "                ", "                ", "                "}},
    {"viewAsSmallIcons", "buttonSmallIcons", {"                ", " ##  #######    ", " ##             ",
                                              "                ", " ##  #######    ", " ##             ",
                                              "                ", " ##  #######    ", " ##             ",
                                              "                ", " ##  #######    ", " ##             ",
                                              "                ", "                ", "                ",
                                              "                "}},
    {"viewAsList", "buttonList", {"                ", " ############## ", "                ", " ##### ### #### ",
                                  "                ", " ##### ### #### ", "                ", " ##### ### #### ",
                                  "                ", " ##### ### #### ", "                ", " ##### ### #### ",
                                  "                ", "                ", "                ", "                "}},
    {"viewAsColumn", "buttonColumns", {"                ", " #####  #####   ", "                ", " #####  #####   ",
                                       "                ", " #####  #####   ", "                ", " #####  #####   ",
                                       "                ", " #####          ", "                ", "                ",
                                       "                ", "                ", "                ", "                "}},
    {"open", "buttonOpen", {"                ", "                ", "    ########    ", "   #        #   ",
                            "  #   ####   #  ", " #   #    #   # ", " #   # ## #   # ", " #   # ## #   # ",
                            "  #   ####   #  ", "   #        #   ", "    ########    ", "                ",
                            "                ", "                ", "                ", "                "}},
    {"properties", "buttonProperties", {"                ", "       ##       ", "       ##       ",
                                        "                ", "      ###       ", "       ##       ",
                                        "       ##       ", "       ##       ", "       ##       ",
                                        "       ##       ", "      ####      ", "                ",
                                        "                ", "                ", "                ",
                                        "                "}},
    {"showDirList", "buttonTree", {"                ", " ###            ", " ###            ", "  #             ",
                                   "  #  ###        ", "  ### ##        ", "  #  ###        ", "  #             ",
                                   "  #  ###        ", "  ### ##        ", "     ###        ", "                ",
                                   "                ", "                ", "                ", "                "}},
    {"showPreview", "buttonPreview", {"                ", " ############## ", " #            # ", " #  ##        # ",
                                      " #  ##        # ", " #       #    # ", " #      ###   # ", " #     #####  # ",
                                      " #    ####### # ", " #   ######## # ", " ############## ", "                ",
                                      "                ", "                ", "                ", "                "}},
    {"options", "buttonOptions", {"                ", "      ####      ", "   #  #  #  #   ", "  ### #  # ###  ",
                                  "   ##########   ", "    ##    ##    ", " ####      #### ", " #  #      #  # ",
                                  " ####      #### ", "    ##    ##    ", "   ##########   ", "  ### #  # ###  ",
                                  "   #  #  #  #   ", "      ####      ", "                ", "                "}},
};

// The menu label and key of a command, for its tool bar button's bubble.
std::string ToolText(const char *word) {
  for (const auto &group : {std::make_pair(kFileItems, COUNT(kFileItems)), std::make_pair(kEditItems, COUNT(kEditItems)),
                            std::make_pair(kViewItems, COUNT(kViewItems)), std::make_pair(kGoItems, COUNT(kGoItems))})
    for (int i = 0; i < group.second; ++i) {
      const Item &it = group.first[i];
      if (!it.word || std::strcmp(it.word, word) != 0) continue;
      std::string text = it.label;
      if (text.size() > 3 && text.compare(text.size() - 3, 3, "...") == 0) text.resize(text.size() - 3);
      if (it.accel_text) text += std::string(" (") + it.accel_text + ")";
      return text;
    }
  return word;
}

Boolean ToolTipsWanted() {
  return Settings().Start.ShowToolTipsInToolbar && Settings().Browser.ShowToolTips ? True : False;
}

Widget CreateToolBar(Browser *b) {
  Widget bar = XtVaCreateWidget("toolBar", xmRowColumnWidgetClass, b->form, XmNorientation, XmHORIZONTAL,
                                XmNpacking, XmPACK_TIGHT, XmNspacing, 0, XmNmarginHeight, 1, XmNmarginWidth, 1,
                                nullptr);
  BubbleHelpSetEnabledProc(ToolTipsWanted);
  for (const ToolbarButton &tb : kTools) {
    Widget w = XtVaCreateManagedWidget(tb.name, xmPushButtonWidgetClass, bar, XmNlabelType, XmPIXMAP, XmNmarginWidth,
                                       2, XmNmarginHeight, 2, XmNtraversalOn, False, nullptr);
    Pixel fg, bg;
    Cardinal depth;
    XtVaGetValues(w, XmNforeground, &fg, XmNbackground, &bg, XmNdepth, &depth, nullptr);
    unsigned char bits[32];
    ToolbarGlyphBits(tb, bits);
    const Pixmap pm = XCreatePixmapFromBitmapData(XtDisplay(bar), DefaultRootWindow(XtDisplay(bar)),
                                                  reinterpret_cast<char *>(bits), 16, 16, fg, bg, depth);
    b->glyphs.push_back(pm);
    XtVaSetValues(w, XmNlabelPixmap, pm, nullptr);
    XtAddCallback(w, XmNactivateCallback, ItemActivated, const_cast<char *>(tb.command));
    BubbleHelpAttach(w, ToolText(tb.command).c_str());
  }
  return bar;
}

// ---- window layout -----------------------------------------------------------

void Attach(Widget w, int top, Widget top_w, int bottom, Widget bottom_w, int left, Widget left_w, int right,
            Widget right_w) {
  XtVaSetValues(w, XmNtopAttachment, top, XmNtopWidget, top_w, XmNbottomAttachment, bottom, XmNbottomWidget,
                bottom_w, XmNleftAttachment, left, XmNleftWidget, left_w, XmNrightAttachment, right, XmNrightWidget,
                right_w, nullptr);
}

// Places the tree, the icon pane and the preview by the layout number and
// the panes shown.
void ApplyLayout(Browser *b) {
  const SettingsRecord &s = Settings();
  const bool tree = s.Browser.ShowDirList, prev = s.Browser.ShowPreview;
  Widget tree_w = b->tree ? b->tree->scrolled() : nullptr;
  Widget icons = b->icon_pane, pv = b->preview_frame;
  XtUnmanageChild(icons);
  if (tree_w) XtUnmanageChild(tree_w);
  XtUnmanageChild(pv);
  const int F = XmATTACH_FORM, N = XmATTACH_NONE, W = XmATTACH_WIDGET;
  const bool has_tree = tree && tree_w;
  switch (((s.Browser.Layout % kLayouts) + kLayouts) % kLayouts) {
    case 1:  // tree | icons | preview
      if (tree_w) Attach(tree_w, F, nullptr, F, nullptr, F, nullptr, N, nullptr);
      Attach(pv, F, nullptr, F, nullptr, N, nullptr, F, nullptr);
      Attach(icons, F, nullptr, F, nullptr, has_tree ? W : F, has_tree ? tree_w : nullptr, prev ? W : F,
             prev ? pv : nullptr);
      break;
    case 2:  // tree | icons over preview
      if (tree_w) Attach(tree_w, F, nullptr, F, nullptr, F, nullptr, N, nullptr);
      Attach(pv, N, nullptr, F, nullptr, has_tree ? W : F, has_tree ? tree_w : nullptr, F, nullptr);
      Attach(icons, F, nullptr, prev ? W : F, prev ? pv : nullptr, has_tree ? W : F, has_tree ? tree_w : nullptr, F,
             nullptr);
      break;
    default:  // tree over preview | icons
      if (tree_w) Attach(tree_w, F, nullptr, prev ? W : F, prev ? pv : nullptr, F, nullptr, N, nullptr);
      Attach(pv, N, nullptr, F, nullptr, F, nullptr, N, nullptr);
      Attach(icons, F, nullptr, F, nullptr, has_tree ? W : prev ? W : F, has_tree ? tree_w : prev ? pv : nullptr, F,
             nullptr);
      break;
  }
  if (tree_w) XtVaSetValues(tree_w, XmNwidth, kPaneWidth, nullptr);
  XtVaSetValues(pv, XmNwidth, kPaneWidth, XmNheight, kPreviewHeight, nullptr);
  if (prev) XtManageChild(pv);
  if (has_tree) XtManageChild(tree_w);
  XtManageChild(icons);
}

// Menu bar, tool bar, work area and status bar from top to bottom.
void ApplyChrome(Browser *b) {
  const SettingsRecord &s = Settings();
  XtUnmanageChild(b->work);
  if (s.Browser.ShowToolBar) {
    XtVaSetValues(b->tool_bar, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, b->menu_bar, XmNleftAttachment,
                  XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, nullptr);
    XtManageChild(b->tool_bar);
  } else {
    XtUnmanageChild(b->tool_bar);
  }
  if (s.Browser.ShowStatusBar) {
    XtVaSetValues(b->status, XmNbottomAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM,
                  XmNrightAttachment, XmATTACH_FORM, nullptr);
    XtManageChild(b->status);
  } else {
    XtUnmanageChild(b->status);
  }
  XtVaSetValues(b->work, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget,
                s.Browser.ShowToolBar ? b->tool_bar : b->menu_bar, XmNbottomAttachment,
                s.Browser.ShowStatusBar ? XmATTACH_WIDGET : XmATTACH_FORM, XmNbottomWidget,
                s.Browser.ShowStatusBar ? b->status : nullptr, XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment,
                XmATTACH_FORM, nullptr);
  XtManageChild(b->work);
  if (s.Browser.ShowStatusBar && XtIsRealized(b->status)) {
    MyStatusBarSetNumberOfParts(b->status, 1);
    ShowListStatus(b);
  }
}

// ---- events of the icon view ------------------------------------------------------

void IconViewResized(Widget, XtPointer client, XtPointer) {
  auto *b = static_cast<Browser *>(client);
  if (!b->canvas) return;
  Dimension w = 1, h = 1;
  XtVaGetValues(b->icon_view, XmNwidth, &w, XmNheight, &h, nullptr);
  b->canvas_w = std::max<int>(1, w);
  b->canvas_h = std::max<int>(1, h);
  Display *dpy = XtDisplay(b->shell);
  XResizeWindow(dpy, b->canvas, b->canvas_w, b->canvas_h);
  if (b->back) XFreePixmap(dpy, b->back);
  b->back = XCreatePixmap(dpy, b->canvas, b->canvas_w, b->canvas_h, static_cast<unsigned>(CurrentVisual().info.depth));
  Relayout(b);
  Redraw(b);
}

void Scrolled(Widget w, XtPointer client, XtPointer call) {
  auto *b = static_cast<Browser *>(client);
  const int value = static_cast<XmScrollBarCallbackStruct *>(call)->value;
  if (w == b->vbar)
    b->scroll = value;
  else
    b->hscroll = value;
  Redraw(b);
}

void ScrollBy(Browser *b, int dy) {
  b->scroll += dy;
  UpdateScrollBars(b);
  Redraw(b);
}

// A click on a column title sorts by that column; a second one reverses.
void ClickTitle(Browser *b, int x) {
  static const int kKeyOfColumn[][2] = {{0, kSortName},         {kColumnSize, kSortSize}, {kColumnType, kSortType},
                                        {kColumnDate, kSortDate}, {kColumnDesc, kSortDescription}};
  for (const LayoutColumn &c : b->layout.columns()) {
    if (x < c.x || x >= c.x + c.width) continue;
    for (const auto &k : kKeyOfColumn)
      if (k[0] == c.bit) {
        const int same = (b->sort & 0x7f) == k[1];
        Resort(b, k[1] | (same ? (b->sort & kSortReverse) ^ kSortReverse : (b->sort & kSortReverse)));
        SyncMenus(b);
      }
    return;
  }
}

void CanvasEvent(Widget, XtPointer client, XEvent *ev, Boolean *) {
  auto *b = static_cast<Browser *>(client);
  if (ev->type == Expose && ev->xexpose.window == b->canvas) {
    if (ev->xexpose.count == 0) Redraw(b);
    return;
  }
  if (ev->type != ButtonPress || ev->xbutton.window != b->canvas) return;
  XmProcessTraversal(b->icon_view, XmTRAVERSE_CURRENT);
  const XButtonEvent &be = ev->xbutton;
  if (be.button == Button4 || be.button == Button5) {
    ScrollBy(b, (be.button == Button4 ? -1 : 1) * b->layout.cellHeight());
    return;
  }
  if (be.y < b->layout.titleHeight()) {
    if (be.button == Button1) ClickTitle(b, be.x + b->hscroll);
    return;
  }
  const int pos = b->layout.hit(be.x + b->hscroll, be.y - b->layout.titleHeight() + b->scroll);
  if (be.button == Button3) {
    if (pos >= 0 && !b->list.at(pos).selected) SetCurrent(b, pos, true);
    if (b->popup) {
      XmMenuPosition(b->popup, const_cast<XButtonPressedEvent *>(&be));
      XtManageChild(b->popup);
    }
    return;
  }
  if (be.button != Button1 || pos < 0) return;
  const bool double_click = pos == b->click_pos && be.time - b->click_time < 400;
  b->click_pos = pos;
  b->click_time = be.time;
  if (be.state & ControlMask) {
    FileEntry &e = b->list.at(pos);
    e.selected = !e.selected;
    SetCurrent(b, pos, false);
    return;
  }
  if ((be.state & ShiftMask) && b->current >= 0) {
    // From the current entry to the one clicked.
    const int from = std::min(b->current, pos), to = std::max(b->current, pos);
    for (int i = 0; i < b->list.count(); ++i) b->list.at(i).selected = i >= from && i <= to;
    Redraw(b);
    SetCurrent(b, pos, false);
    return;
  }
  SetCurrent(b, pos, true);
  if (double_click) {
    b->click_pos = -1;
    DoCommand(b, "itemActivate");
  }
}

// Typing the first letters of a name goes to it.
void TypeAhead(Widget, XtPointer client, XEvent *ev, Boolean *) {
  auto *b = static_cast<Browser *>(client);
  if (ev->type != KeyPress || (ev->xkey.state & (ControlMask | Mod1Mask))) return;
  char buf[8];
  KeySym sym;
  const int n = XLookupString(&ev->xkey, buf, sizeof buf, &sym, nullptr);
  if (n != 1 || static_cast<unsigned char>(buf[0]) <= ' ' || buf[0] == '+' || buf[0] == '-' || buf[0] == 127) return;
  if (ev->xkey.time - b->typed_time > 1000) b->typed.clear();
  b->typed_time = ev->xkey.time;
  b->typed += buf[0];
  const int from = b->typed.size() == 1 ? b->current + 1 : std::max(0, b->current);
  const int pos = FindByPrefix(b->list, b->typed, from < b->list.count() ? from : 0);
  if (pos >= 0) SetCurrent(b, pos, true);
}

const char kIconTranslations[] =
    "~Shift ~Ctrl ~Alt<Key>osfRight: BrowserDoCommand(itemRight)\n"
    "~Shift ~Ctrl ~Alt<Key>osfLeft: BrowserDoCommand(itemLeft)\n"
    "~Shift ~Ctrl ~Alt<Key>osfUp: BrowserDoCommand(itemUp)\n"
    "~Shift ~Ctrl ~Alt<Key>osfDown: BrowserDoCommand(itemDown)\n"
    "~Shift ~Ctrl ~Alt<Key>osfPageUp: BrowserDoCommand(itemPageUp)\n"
    "~Shift ~Ctrl ~Alt<Key>osfPageDown: BrowserDoCommand(itemPageDown)\n"
    "~Shift ~Ctrl ~Alt<Key>osfBeginLine: BrowserDoCommand(itemHome)\n"
    "~Shift ~Ctrl ~Alt<Key>osfEndLine: BrowserDoCommand(itemEnd)\n"
    "~Shift ~Ctrl ~Alt<Key>Home: BrowserDoCommand(itemHome)\n"
    "~Shift ~Ctrl ~Alt<Key>End: BrowserDoCommand(itemEnd)\n"
    "<Key>Return: BrowserDoCommand(itemActivate)\n"
    "<Key>KP_Enter: BrowserDoCommand(itemActivate)\n"
    "<Key>osfActivate: BrowserDoCommand(itemActivate)\n"
    "<Key>osfBackSpace: BrowserDoCommand(goUp)\n"
    "<Key>BackSpace: BrowserDoCommand(goUp)\n"
    "~Ctrl<Key>space: BrowserDoCommand(itemSelect)\n"
    "<Key>F2: BrowserDoCommand(rename)\n"
    "~Shift ~Ctrl ~Alt<Key>osfDelete: BrowserDoCommand(delete)\n"
    "~Shift ~Ctrl ~Alt<Key>Delete: BrowserDoCommand(delete)\n"
    "<Key>plus: BrowserDoCommand(zoom+)\n"
    "<Key>minus: BrowserDoCommand(zoom-)\n"
    "<Key>KP_Add: BrowserDoCommand(zoom+)\n"
    "<Key>KP_Subtract: BrowserDoCommand(zoom-)\n";

const char kRenameTranslations[] = "<Key>osfCancel: BrowserDoCommand(cancelRename)\n";

// ---- rename in place ------------------------------------------------------------

void EndRename(Browser *b) {
  if (!b->rename_field) return;
  Widget f = b->rename_field;
  b->rename_field = nullptr;
  XtDestroyWidget(f);
  XmProcessTraversal(b->icon_view, XmTRAVERSE_CURRENT);
}

void RenameDone(Widget w, XtPointer client, XtPointer) {
  auto *b = static_cast<Browser *>(client);
  if (b->rename_field != w || b->current < 0) return;
  char *text = XmTextFieldGetString(w);
  const std::string to = text ? text : "";
  XtFree(text);
  const std::string from = b->list.at(b->current).name;
  EndRename(b);
  if (to.empty() || to == from) return;
  const std::string dir = b->list.directory();
  struct stat st;
  if (to.find('/') != std::string::npos || lstat((dir + to).c_str(), &st) == 0) {
    ShowMessage(b->shell, "Can't rename \"" + from + "\" to \"" + to + "\": the name is taken or not valid.");
    return;
  }
  if (std::rename((dir + from).c_str(), (dir + to).c_str()) != 0) {
    ShowMessage(b->shell, "Can't rename \"" + from + "\" to \"" + to + "\".");
    return;
  }
  // The description and the cached thumbnail go with the file.
  CarryDescription(dir + from, dir + to, false);
  StopLoop(b);
  CarryThumbnails({{dir + from, dir + to}});
  QuickRefresh(b);
  const int pos = PositionOfName(b, to);
  if (pos >= 0) SetCurrent(b, pos, true);
}

void StartRename(Browser *b) {
  if (b->current < 0 || b->rename_field) return;
  const FileEntry &e = b->list.at(b->current);
  if (e.isDotDot()) {
    XBell(XtDisplay(b->shell), 0);
    return;
  }
  ShowPosition(b, b->current);
  int cx, cy;
  b->layout.cell(b->current, &cx, &cy);
  int x = cx - b->hscroll, y = cy - b->scroll + b->layout.titleHeight();
  int w = b->layout.cellWidth();
  if (b->view_mode == kViewIcons) {
    y += Settings().Browser.IconHeight + 10;
  } else if (!b->layout.columns().empty()) {
    x += 20;
    w = b->layout.columns()[0].width - 20;
  }
  b->rename_field = XtVaCreateManagedWidget("textRename", xmTextFieldWidgetClass, b->icon_view, XmNx, x, XmNy, y,
                                            XmNwidth, std::max(w, 120), XmNvalue, e.name, XmNmarginHeight, 1,
                                            nullptr);
  XtOverrideTranslations(b->rename_field, XtParseTranslationTable(kRenameTranslations));
  XtAddCallback(b->rename_field, XmNactivateCallback, RenameDone, b);
  XtAddCallback(b->rename_field, XmNlosingFocusCallback, RenameDone, b);  // a click elsewhere keeps the name
  XmTextFieldSetSelection(b->rename_field, 0, static_cast<XmTextPosition>(std::strlen(e.name)), CurrentTime);
  XmProcessTraversal(b->rename_field, XmTRAVERSE_CURRENT);
}

// ---- commands ---------------------------------------------------------------------

void SaveWindowSettings(Browser *b) {
  Dimension w = 0, h = 0;
  XtVaGetValues(b->shell, XmNwidth, &w, XmNheight, &h, nullptr);
  SettingsRecord &s = Settings();
  s.Browser.Width = w;
  s.Browser.Height = h;
  s.Browser.Viewas = b->view_mode;
  s.Browser.ArrangeBy = b->sort;
  s.Browser.ViewColumn = b->columns;
}

bool OtherWindowOpen() {
  if (ViewCount() > 0) return true;
  for (const char *name : {"QuillInit", "QuillSlide"}) {
    Widget w = XtNameToWidget(App().shell, name);
    if (w && !w->core.being_destroyed) return true;
  }
  return false;
}

void CloseBrowser(Browser *b) {
  EndRename(b);
  SaveWindowSettings(b);
  StopLoop(b);
  delete b->loop;
  b->loop = nullptr;
  if (b->caching) Cache().close();
  if (b->preview_timer) XtRemoveTimeOut(b->preview_timer);
  ReleaseThumbnails(b, true, true);
  Display *dpy = XtDisplay(b->shell);
  delete b->tree;
  b->tree = nullptr;
  if (b->canvas) {
    XtUnregisterDrawable(dpy, b->canvas);
    XDestroyWindow(dpy, b->canvas);
  }
  if (b->preview_canvas) {
    XtUnregisterDrawable(dpy, b->preview_canvas);
    XDestroyWindow(dpy, b->preview_canvas);
  }
  if (b->back) XFreePixmap(dpy, b->back);
  if (b->preview_pm) XFreePixmap(dpy, b->preview_pm);
  for (Pixmap p : b->glyphs) XFreePixmap(dpy, p);
  if (b->gc) XFreeGC(dpy, b->gc);
  if (b->font) XFreeFont(dpy, b->font);
  if (b->display) ReleaseDisplayObject(b->display);
  if (b->colours) ReleaseColourData(dpy, b->colours);
  if (App().main_window == b->shell) App().main_window = nullptr;
  XtDestroyWidget(b->shell);
  if (g_browser == b) g_browser = nullptr;
  delete b;
}

// The names of the selected files (directories and ".." left out), or the
// current entry's when none is selected.
// In the order the browser shows them (a slide show, a multi-page file and
// a batch take them in that order).
std::vector<std::string> SelectedFileNames(Browser *b) {
  std::vector<std::string> names;
  for (int i = 0; i < b->list.count(); ++i) {
    const FileEntry &e = b->list.at(i);
    if (e.selected && !e.isDirectory() && !e.isDotDot()) names.push_back(e.name);
  }
  if (names.empty() && b->current >= 0) {
    const FileEntry &e = b->list.at(b->current);
    if (!e.isDirectory() && !e.isDotDot()) names.push_back(e.name);
  }
  return names;
}

// copyTo, moveTo and delete on the selection.
void FileOperation(Browser *b, const std::string &w) {
  const std::vector<std::string> names = SelectedFileNames(b);
  if (names.empty() || FileOpRunning()) {
    XBell(XtDisplay(b->shell), 0);
    return;
  }
  const FileOpKind kind = w == "copyTo" ? FileOpKind::kCopy : w == "moveTo" ? FileOpKind::kMove : FileOpKind::kDelete;
  std::string target;
  if (kind == FileOpKind::kDelete ? !ConfirmDelete(b->shell, names.size())
                                  : !AskTargetDirectory(b->shell, kind, &target))
    return;
  if (g_browser == b) StartFileOp(b->shell, kind, b->list.directory(), names, target, {});
}

void OpenSelection(Browser *b) {
  std::vector<std::string> paths;
  for (int i = 0; i < b->list.count(); ++i) {
    const FileEntry &e = b->list.at(i);
    // Files the loop found unreadable stay out of the view's list.
    if (e.selected && !e.isDirectory() && !(e.state & kStateUnreadable)) paths.push_back(b->list.pathOf(e));
  }
  if (paths.empty()) return DoCommand(b, "itemActivate");
  auto *list = static_cast<FileListEntry *>(std::calloc(paths.size(), sizeof(FileListEntry)));
  if (!list) return;
  for (size_t i = 0; i < paths.size(); ++i) std::strncpy(list[i].path, paths[i].c_str(), sizeof list[i].path - 1);
  OpenViewOnList(App().shell, list, static_cast<int>(paths.size()), 0);
}

// "Copy Location": the paths of the selected entries (or of the current
// one), one per line, become what a paste inserts.
void CopyLocation(Browser *b) {
  std::string text;
  for (int i = 0; i < b->list.count(); ++i) {
    const FileEntry &e = b->list.at(i);
    if (e.selected && !e.isDotDot()) text += (text.empty() ? "" : "\n") + b->list.pathOf(e);
  }
  if (text.empty() && b->current >= 0 && b->current < b->list.count()) text = b->list.pathOf(b->list.at(b->current));
  if (text.empty() || !OwnTextSelection(b->icon_view, text)) XBell(XtDisplay(b->shell), 0);
}

void Activate(Browser *b) {
  if (b->current < 0 || b->current >= b->list.count()) return;
  const FileEntry &e = b->list.at(b->current);
  if (e.isDotDot()) return DoCommand(b, "goUp");
  const std::string path = b->list.pathOf(e);
  if (e.isDirectory()) {
    ChangeDirectory(b, path);
    return;
  }
  OpenViewOnFile(App().shell, path.c_str(), 0);
}

void GoUp(Browser *b) {
  std::string dir = b->list.directory();
  if (dir.size() <= 1) return;
  dir.pop_back();
  const size_t slash = dir.rfind('/');
  const std::string name = dir.substr(slash + 1);
  ChangeDirectory(b, slash == 0 ? "/" : dir.substr(0, slash), name);
}

void SetViewMode(Browser *b, int mode) {
  if (mode < 0 || mode > 3) return;
  StopLoop(b);
  b->view_mode = mode;
  Settings().Browser.Viewas = mode;
  Relayout(b);
  ShowPosition(b, b->current);
  Redraw(b);
  StartLoop(b);
}

void SetThumbnailSize(Browser *b, int w, int h) {
  StopLoop(b);
  Settings().Browser.IconWidth = w;
  Settings().Browser.IconHeight = h;
  if (b->caching) Cache().setThumbnailSize(w, h);
  ReleaseThumbnails(b, true, false);
  Relayout(b);
  Redraw(b);
  StartLoop(b);
}

bool Toggle(bool *flag) { return *flag = !*flag; }

void DoCommand(Browser *b, const std::string &w) {
  SettingsRecord &s = Settings();
  b->typed.clear();  // a command ends the name being typed
  for (int i = 0; i < 8; ++i)
    if (w == kMoveWords[i]) {
      if ((b->view_mode == kViewSmallIcons || b->view_mode == kViewList) && (i == 0 || i == 1)) {
        b->hscroll += i == 0 ? 32 : -32;
        UpdateScrollBars(b);
        Redraw(b);
        return;
      }
      SetCurrent(b, b->layout.move(b->current, i + 1, b->layout.pageRows(ViewHeight(b))), true);
      return;
    }
  for (int i = 0; i < 4; ++i)
    if (w == kViewWords[i]) return SetViewMode(b, i), SyncMenus(b);
  for (int i = 0; i < 6; ++i)
    if (w == kSortWords[i]) return Resort(b, (b->sort & kSortReverse) | (i + 1)), SyncMenus(b);
  for (int i = 0; i < kColumnKinds; ++i)
    if (w == kColumnWords[i]) {
      b->columns ^= 1 << i;
      s.Browser.ViewColumn = b->columns;
      Relayout(b);
      Redraw(b);
      return SyncMenus(b);
    }
  for (const auto &size : kThumbSizes)
    if (w == "thumbnail" + std::to_string(size[0]) + "x" + std::to_string(size[1]))
      return SetThumbnailSize(b, size[0], size[1]), SyncMenus(b);

  if (w == "close") {
    const bool last = !OtherWindowOpen();
    CloseBrowser(b);
    if (last) QuitWritingSettings();
    return;  // the record is gone
  } else if (w == "quit") {
    EndRename(b);
    SaveWindowSettings(b);
    CloseCacheAtExit();
    QuitWritingSettings();
  } else if (w == "options") {
    OpenOptions(b->shell);
  } else if (w == "refresh") {
    StopLoop(b);
    const std::string keep = b->current >= 0 ? b->list.at(b->current).name : "";
    ChangeDirectory(b, b->list.directory(), keep);
  } else if (w == "quickRefresh") {
    QuickRefresh(b);
  } else if (w == "showDirList") {
    Toggle(&s.Browser.ShowDirList);
    ApplyLayout(b);
  } else if (w == "showPreview") {
    Toggle(&s.Browser.ShowPreview);
    ApplyLayout(b);
    SchedulePreview(b);
  } else if (w == "showStatusBar") {
    Toggle(&s.Browser.ShowStatusBar);
    ApplyChrome(b);
  } else if (w == "showToolBar") {
    Toggle(&s.Browser.ShowToolBar);
    ApplyChrome(b);
  } else if (w == "showHidden") {
    Toggle(&s.Browser.ShowHiddenFile);
    QuickRefresh(b);
  } else if (w == "fitWindow") {
    Toggle(&s.Browser.FitPreviewWindow);
    b->preview_zoom = 0;
    SchedulePreview(b);
  } else if (w == "showContent") {
    Toggle(&s.Browser.ShowContent);
    SchedulePreview(b);
  } else if (w == "showInAscii") {
    Toggle(&s.Browser.ShowInAscii);
    SchedulePreview(b);
  } else if (w == "zoom+" || w == "zoom-") {
    b->preview_zoom = std::clamp(b->preview_zoom + (w == "zoom+" ? 1 : -1), -3, 3);
    if (!s.Browser.FitPreviewWindow) {
      s.Browser.FitPreviewWindow = true;  // zooming works on the fitted picture
      b->preview_zoom = w == "zoom+" ? 1 : -1;
    }
    SchedulePreview(b);
  } else if (w == "selectAll") {
    for (FileEntry &e : b->list.entries()) e.selected = !e.isDotDot();
    Redraw(b);
    ShowListStatus(b);
  } else if (w == "openHexa") {
    // The selected files (the current one when none is), each in its own dump.
    const std::vector<std::string> names = SelectedFileNames(b);
    if (names.empty()) XBell(XtDisplay(b->shell), 0);
    for (const std::string &name : names) OpenHexDump(b->shell, b->list.directory() + name);
  } else if (w == "copyLocation") {
    CopyLocation(b);
  } else if (w == "open") {
    OpenSelection(b);
  } else if (w == "slideShow") {
    // The dialog prepared with the selected pictures (the current one when
    // none is selected), in the browser's order.
    SlideList slides = SlideListFromSettings();
    for (const std::string &name : SelectedFileNames(b)) slides.entries.push_back(b->list.directory() + name);
    OpenSlideDialog(slides);
  } else if (w == "convert") {
    std::vector<std::string> paths;
    for (const std::string &name : SelectedFileNames(b)) paths.push_back(b->list.directory() + name);
    OpenMultiConvert(b->shell, paths);
  } else if (w == "itemActivate") {
    Activate(b);
  } else if (w == "itemSelect") {
    if (b->current < 0) return;
    FileEntry &e = b->list.at(b->current);
    e.selected = !e.selected;
    DrawCell(b, b->current);
    ShowListStatus(b);
  } else if (w == "describe" || w == "properties") {
    if (b->current < 0 || b->list.at(b->current).isDotDot()) {
      XBell(XtDisplay(b->shell), 0);
      return;
    }
    const std::string path = b->list.pathOf(b->list.at(b->current));
    if (w == "properties")
      ShowFileProperties(b->shell, path);
    else
      DescribeFile(b->shell, path, [] {
        if (g_browser) RereadDescriptions(g_browser);
      });
  } else if (w == "copyTo" || w == "moveTo" || w == "delete") {
    FileOperation(b, w);
    if (g_browser != b) return;
  } else if (w == kJpegTransformCommand) {
    TransformJpegFiles(b->shell, b->list.directory(), SelectedFileNames(b));
    if (g_browser != b) return;
  } else if (w == kMultiPageCommand) {
    std::vector<std::string> paths;
    for (const std::string &name : SelectedFileNames(b)) paths.push_back(b->list.directory() + name);
    OpenMultiDialog(b->shell, paths);
  } else if (w == "webPage" || w == "contactSheet") {
    std::vector<FileEntry> entries = ExportEntries(b->list);
    if (entries.empty()) {
      XBell(XtDisplay(b->shell), 0);
    } else if (w == "webPage") {
      const std::string dir = b->list.directory();
      OpenWebExport(b->shell, dir, [dir, entries](int sort) { return SortedExportPaths(dir, entries, sort); });
    } else {
      MakeContactSheets(b->shell, SortedExportPaths(b->list.directory(), std::move(entries), b->sort));
    }
  } else if (w == "rename") {
    StartRename(b);
  } else if (w == "cancelRename") {
    EndRename(b);
  } else if (w == "layout") {
    s.Browser.Layout = (s.Browser.Layout + 1) % kLayouts;
    ApplyLayout(b);
  } else if (w == "sortForward" || w == "sortReverse") {
    Resort(b, w == "sortReverse" ? (b->sort | kSortReverse) : (b->sort & ~kSortReverse));
  } else if (w == "goUp") {
    GoUp(b);
  } else if (w == "goHome") {
    const char *home = std::getenv("HOME");
    ChangeDirectory(b, home && *home ? home : "/");
  } else if (w == "addBookmark") {
    std::string dir = b->list.directory();
    std::string name = dir.size() > 1 ? dir.substr(0, dir.size() - 1) : dir;
    name = name.substr(name.rfind('/') + 1);
    Bookmarks().add(dir, name.empty() ? "/" : name.c_str());
    SaveBookmarks();
  } else if (w == "editBookmarks") {
    OpenBookmarkEditor(b->shell);
  } else if (w == "about") {
    OpenAbout(b->shell);
  }
  SyncMenus(b);
}

void PopupItems(Browser *b) {
  static const Item kPopup[] = {
      {"open", "Open", nullptr, nullptr, 'p', true},
      {"describe", "Description...", nullptr, nullptr, 'p', true},
      {"properties", "Properties...", nullptr, nullptr, 'p', true},
      {"rename", "Rename", nullptr, nullptr, 'p', true},
      {nullptr, nullptr, nullptr, nullptr, 0, false},
      {"selectAll", "Select All", nullptr, nullptr, 'p', true},
      {"quickRefresh", "Refresh", nullptr, nullptr, 'p', true},
  };
  b->popup = XmCreatePopupMenu(b->icon_view, const_cast<char *>("MenuPopup"), nullptr, 0);
  AddItems(b->popup, kPopup, COUNT(kPopup));
}

void WmDelete(Widget, XtPointer client, XtPointer) { DoCommand(static_cast<Browser *>(client), "close"); }

// ---- creation ---------------------------------------------------------------------------

// A window of the chosen visual over a drawing area; its events go to the
// drawing area's handlers.
Window MakeCanvas(Browser *b, Widget area, long events) {
  Display *dpy = XtDisplay(b->shell);
  Dimension w = 1, h = 1;
  XtVaGetValues(area, XmNwidth, &w, XmNheight, &h, nullptr);
  XSetWindowAttributes attr;
  attr.colormap = b->colours->colormap;
  attr.background_pixel = b->white;
  attr.border_pixel = 0;
  attr.event_mask = events;
  const Window win = XCreateWindow(dpy, XtWindow(area), 0, 0, std::max<Dimension>(1, w), std::max<Dimension>(1, h),
                                   0, CurrentVisual().info.depth, InputOutput, CurrentXVisual(),
                                   CWColormap | CWBackPixel | CWBorderPixel | CWEventMask, &attr);
  XtRegisterDrawable(dpy, win, area);
  XMapWindow(dpy, win);
  return win;
}

Browser *CreateBrowser(Widget parent) {
  auto *b = new Browser;
  SettingsRecord &s = Settings();
  Display *dpy = App().dpy;
  const int width = s.Browser.Width >= 400 ? s.Browser.Width : 860;
  const int height = s.Browser.Height >= 300 ? s.Browser.Height : 620;
  b->shell = XtVaCreatePopupShell("Browser", topLevelShellWidgetClass, parent, XmNtitle, "Quilla Browser",
                                  XmNiconName, "Quilla Browser", XmNdeleteResponse, XmDO_NOTHING, nullptr);
  Atom wm_delete = XmInternAtom(dpy, const_cast<char *>("WM_DELETE_WINDOW"), False);
  XmAddWMProtocolCallback(b->shell, wm_delete, WmDelete, b);
  SetWindowIcon(b->shell);
  b->form = XtVaCreateManagedWidget("form", xmFormWidgetClass, b->shell, XmNwidth, width, XmNheight, height, nullptr);
  b->menu_bar = CreateMenuBar(b);
  XtVaSetValues(b->menu_bar, XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment,
                XmATTACH_FORM, nullptr);
  b->tool_bar = CreateToolBar(b);
  Arg status_args[1];
  XtSetArg(status_args[0], XmNheight, 24);
  b->status = MyCreateStatusBar(b->form, "statusBar", status_args, 1);
  b->work = XtVaCreateWidget("workArea", xmFormWidgetClass, b->form, nullptr);

  b->tree = new DirTreePane(b->work);
  b->tree->on_select = [](const std::string &path) {
    if (g_browser) ChangeDirectory(g_browser, path);
  };
  b->icon_pane = XtVaCreateWidget("iconPane", xmFormWidgetClass, b->work, nullptr);
  b->vbar = XtVaCreateManagedWidget("verticalBar", xmScrollBarWidgetClass, b->icon_pane, XmNorientation, XmVERTICAL,
                                    XmNtopAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_FORM,
                                    XmNrightAttachment, XmATTACH_FORM, XmNtraversalOn, False, nullptr);
  b->hbar = XtVaCreateWidget("horizontalBar", xmScrollBarWidgetClass, b->icon_pane, XmNorientation, XmHORIZONTAL,
                             XmNbottomAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM,
                             XmNrightAttachment, XmATTACH_WIDGET, XmNrightWidget, b->vbar, XmNtraversalOn, False,
                             nullptr);
  b->icon_view = XtVaCreateManagedWidget(
      "iconView", xmDrawingAreaWidgetClass, b->icon_pane, XmNtraversalOn, True, XmNmarginWidth, 0, XmNmarginHeight, 0,
      XmNresizePolicy, XmRESIZE_NONE, XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM,
      XmNrightAttachment, XmATTACH_WIDGET, XmNrightWidget, b->vbar, XmNbottomAttachment, XmATTACH_FORM, XmNwidth, 400,
      XmNheight, 300, nullptr);
  for (const char *cb : {XmNvalueChangedCallback, XmNdragCallback}) {
    XtAddCallback(b->vbar, cb, Scrolled, b);
    XtAddCallback(b->hbar, cb, Scrolled, b);
  }
  XtOverrideTranslations(b->icon_view, XtParseTranslationTable(kIconTranslations));
  XtAddCallback(b->icon_view, XmNresizeCallback, IconViewResized, b);
  XtAddEventHandler(b->icon_view, ExposureMask | ButtonPressMask, False, CanvasEvent, b);
  XtAddEventHandler(b->icon_view, KeyPressMask, False, TypeAhead, b);
  PopupItems(b);

  b->preview_frame = XtVaCreateWidget("previewFrame", xmFrameWidgetClass, b->work, XmNshadowType, XmSHADOW_IN,
                                      nullptr);
  b->preview = XtVaCreateManagedWidget("preview", xmDrawingAreaWidgetClass, b->preview_frame, XmNmarginWidth, 0,
                                       XmNmarginHeight, 0, XmNresizePolicy, XmRESIZE_NONE, XmNtraversalOn, False,
                                       nullptr);
  XtAddCallback(b->preview, XmNresizeCallback, PreviewResized, b);

  ApplyLayout(b);
  ApplyChrome(b);
  XtVaSetValues(b->form, XmNinitialFocus, b->work, nullptr);
  XtVaSetValues(b->work, XmNinitialFocus, b->icon_pane, nullptr);
  XtVaSetValues(b->icon_pane, XmNinitialFocus, b->icon_view, nullptr);
  XtRealizeWidget(b->shell);

  // Drawing on the chosen visual.
  b->colours = GetColourData(dpy, App().screen, nullptr, App().own_colormap);
  if (!b->colours) {
    XtDestroyWidget(b->shell);
    delete b->tree;
    delete b;
    return nullptr;
  }
  b->display = MakeDisplayObject(dpy, CurrentVisual().info.depth, b->colours);
  b->white = b->colours->white;
  b->black = b->colours->black;
  b->select = AllocPixel(b, 0x30, 0x50, 0xa0);
  b->grey = AllocPixel(b, 0xc0, 0xc0, 0xc0);
  b->dark = AllocPixel(b, 0x70, 0x70, 0x70);
  b->folder = AllocPixel(b, 0xe8, 0xc8, 0x60);
  b->title = AllocPixel(b, 0xdc, 0xdc, 0xdc);
  b->font = XLoadQueryFont(dpy, "-*-helvetica-medium-r-normal--12-*-*-*-*-*-iso8859-1");
  if (!b->font) b->font = XLoadQueryFont(dpy, "fixed");
  b->canvas = MakeCanvas(b, b->icon_view, ExposureMask | ButtonPressMask);
  b->preview_canvas = MakeCanvas(b, b->preview, 0);
  b->gc = XCreateGC(dpy, b->canvas, 0, nullptr);
  if (b->font) XSetFont(dpy, b->gc, b->font->fid);
  Window cmap_windows[3] = {b->canvas, b->preview_canvas, XtWindow(b->shell)};
  XSetWMColormapWindows(dpy, XtWindow(b->shell), cmap_windows, 3);

  b->view_mode = std::clamp(s.Browser.Viewas, 0, 3);
  b->sort = s.Browser.ArrangeBy;
  b->columns = s.Browser.ViewColumn;
  b->caching = s.Cache.IsActive;
  if (b->caching) {
    Cache().configure(true, s.Cache.Compression);
    Cache().open(false);
  }
  b->loop = new ThumbLoop(&b->list, b->caching ? &Cache() : nullptr);
  const char *exit_env = std::getenv("QUILLA_EXIT_AFTER_THUMBNAILS");
  b->exit_when_done = exit_env && std::strcmp(exit_env, "1") == 0;
  IconViewResized(nullptr, b, nullptr);
  SyncMenus(b);
  return b;
}

std::string DefaultDirectory() {
  const char *last = Settings().PathBrowse;
  struct stat st;
  if (last[0] && stat(last, &st) == 0 && S_ISDIR(st.st_mode)) return last;
  return App().start_dir.empty() ? "/" : App().start_dir;
}

}  // namespace

const char *BrowserStartDirectory() {
  const SettingsRecord &s = Settings();
  return s.Browser.StartupIn == 2 && s.Browser.StartupDirectory[0] ? s.Browser.StartupDirectory : nullptr;
}

Widget OpenBrowser(Widget parent, const char *directory) {
  if (g_browser) {
    XtPopup(g_browser->shell, XtGrabNone);
    XRaiseWindow(XtDisplay(g_browser->shell), XtWindow(g_browser->shell));
    if (directory) ChangeDirectory(g_browser, directory);
    return g_browser->shell;
  }
  Browser *b = CreateBrowser(parent ? parent : App().shell);
  if (!b) return nullptr;
  g_browser = b;
  XtPopup(b->shell, XtGrabNone);
  MyStatusBarSetNumberOfParts(b->status, 1);
  XmProcessTraversal(b->icon_view, XmTRAVERSE_CURRENT);
  if (!App().main_window) App().main_window = b->shell;
  if (!ChangeDirectory(b, directory ? directory : DefaultDirectory()) && b->list.directory().empty())
    ChangeDirectory(b, "/");
  return b->shell;
}

void RunBrowserCommand(const char *word) {
  if (g_browser && word) DoCommand(g_browser, word);
}

void BrowserDoCommandAction(Widget, XEvent *, String *params, Cardinal *count) {
  if (count && *count >= 1) RunBrowserCommand(params[0]);
}

void BrowserDoPopupAction(Widget, XEvent *event, String *, Cardinal *) {
  if (!g_browser || !g_browser->popup || !event || event->type != ButtonPress) return;
  XmMenuPosition(g_browser->popup, &event->xbutton);
  XtManageChild(g_browser->popup);
}

ThumbCache &BrowserCache() { return Cache(); }

void CloseBrowserCache() {
  if (!g_cache) return;
  while (g_cache->isOpen()) g_cache->close();
}

bool GetBrowserState(BrowserState *out) {
  Browser *b = g_browser;
  if (!b || !out) return false;
  const SettingsRecord &s = Settings();
  out->shell = b->shell;
  out->icon_view = b->icon_view;
  out->canvas = b->canvas;
  out->directory = b->list.directory();
  out->view_mode = b->view_mode;
  out->sort_setting = b->sort;
  out->columns = b->columns;
  out->layout = s.Browser.Layout;
  out->current = b->current;
  out->scroll = b->scroll;
  if (b->current >= 0) {
    int cx, cy;
    b->layout.cell(b->current, &cx, &cy);
    out->cell_x = cx - b->hscroll;
    out->cell_y = cy - b->scroll + b->layout.titleHeight();
    out->cell_w = b->layout.cellWidth();
    out->cell_h = b->layout.cellHeight();
  }
  out->loop_running = b->loop && b->loop->running();
  out->thumbnails = 0;
  if (b->view_mode == kViewIcons || b->view_mode == kViewSmallIcons)
    for (const FileEntry &e : b->list.entries())
      if ((b->view_mode == kViewIcons ? e.large : e.small).handle) ++out->thumbnails;
  out->tree_shown = b->tree && XtIsManaged(b->tree->scrolled());
  out->preview_shown = XtIsManaged(b->preview_frame);
  out->status_shown = XtIsManaged(b->status);
  out->tool_shown = XtIsManaged(b->tool_bar);
  return true;
}

const FileList *BrowserFileList() { return g_browser ? &g_browser->list : nullptr; }

}  // namespace quilla
