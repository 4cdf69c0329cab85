// The browser window on real X servers: listing and sorting, the four view
// modes, thumbnails reaching the window, the cache written and read back
// across a close and a reopen, a directory that cannot be read, keyboard
// navigation typed with xdotool, and the program quitting by itself after
// its thumbnails.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <X11/Intrinsic.h>
#include <X11/Xatom.h>
#include <X11/Shell.h>
#include <X11/Xutil.h>
#include <Xm/List.h>
#include <Xm/PushB.h>
#include <Xm/SelectioB.h>
#include <Xm/TextF.h>
#include <Xm/Xm.h>

#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utime.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "browser/browser_dialogs_x.h"
#include "browser/browser_x.h"
#include "browser/filelist.h"
#include "core/app_x.h"
#include "files/hexdump_x.h"
#include "files/slide_x.h"
#include "core/display_x.h"
#include "core/options_x.h"
#include "core/settings.h"
#include "gui_util.h"
#include "test_util.h"
#include "view/view_x.h"

namespace {

using namespace quilla;
using namespace testutil;
using guitest::Pump;

// One HOME for the whole program: the thumbnail cache lives under it and is
// made once per process.
const std::string &Home() {
  static TempDir *home = nullptr;
  if (!home) {
    home = new TempDir;
    setenv("HOME", home->path().c_str(), 1);
  }
  return home->path();
}

std::vector<std::string> Names(const FileList &list) {
  std::vector<std::string> out;
  for (int i = 0; i < list.count(); ++i) out.push_back(list.at(i).name);
  return out;
}

uint32_t BigEndian32(const std::string &bytes, size_t at) {
  if (bytes.size() < at + 4) return 0xffffffffu;
  const auto *p = reinterpret_cast<const unsigned char *>(bytes.data() + at);
  return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

class BrowserTest : public guitest::GuiTest {
 protected:
  void Open(const char *env) {
    Home();
    guitest::GuiTest::Open(env);
  }
  void TearDown() override {
    if (!dpy_) return;
    RunBrowserCommand("close");
    while (Widget s = ViewShellAt(0)) RunViewCommand(s, "close");
    Pump();
  }
  BrowserState State() {
    BrowserState st;
    EXPECT_TRUE(GetBrowserState(&st));
    return st;
  }
  // Runs the event loop until the browser's work is done (20 s at most).
  bool Settled() {
    return RunUntil(20000, [] {
      BrowserState st;
      return GetBrowserState(&st) && !st.loop_running;
    });
  }
  // A directory of pictures made by the library, plus a text file and a
  // subdirectory.
  std::string MakeDirectory(const std::string &name) {
    const std::string d = dir_.file(name);
    mkdir(d.c_str(), 0755);
    mkdir((d + "/sub").c_str(), 0755);
    Pic red(MakePicture(TSL_RGB, 60, 40));
    for (uint32_t y = 0; y < red->height; ++y)
      for (uint32_t x = 0; x < red->width; ++x) {
        uint8_t *p = red->pixels + y * red->bytes_per_line + x * 3;
        p[0] = 255, p[1] = 0, p[2] = 0;
      }
    EXPECT_TRUE(guitest::SavePicture(d + "/b.png", red));
    EXPECT_TRUE(guitest::SavePicture(d + "/a.png", red));
    WriteFile(d + "/c.txt", "not a picture\n");
    return d;
  }
  void Keys(const std::string &keys) {
    Xdo("key --delay 40 " + keys);
    for (int i = 0; i < 10; ++i) {
      Pump();
      usleep(10000);
    }
  }
  // Whether any pixel of the canvas is clearly red.
  bool CanvasShowsRed() {
    const BrowserState st = State();
    XWindowAttributes a;
    XGetWindowAttributes(dpy_, st.canvas, &a);
    XImage *img = XGetImage(dpy_, st.canvas, 0, 0, a.width, a.height, AllPlanes, ZPixmap);
    if (!img) return false;
    std::map<unsigned long, XColor> seen;
    bool red = false;
    for (int y = 0; y < a.height && !red; y += 2)
      for (int x = 0; x < a.width && !red; x += 2) {
        const unsigned long px = XGetPixel(img, x, y);
        auto it = seen.find(px);
        if (it == seen.end()) {
          XColor c;
          c.pixel = px;
          XQueryColor(dpy_, a.colormap, &c);
          it = seen.emplace(px, c).first;
        }
        red = it->second.red > 0xc000 && it->second.green < 0x4000 && it->second.blue < 0x4000;
      }
    XDestroyImage(img);
    return red;
  }
};

TEST_F(BrowserTest, ListsSortsAndDrawsTheFourModes) {
  for (const char *env : {"QUILLA_TEST_DISPLAY", "QUILLA_TEST_DISPLAY8"}) {
    SCOPED_TRACE(env);
    Open(env);
    if (!dpy_) return;
    const std::string d = MakeDirectory(std::string("list") + env);
    Settings().Browser.ArrangeBy = kSortName;
    ASSERT_NE(OpenBrowser(App().shell, d.c_str()), nullptr);
    Pump();
    EXPECT_EQ(State().directory, d + "/");
    EXPECT_EQ(Names(*BrowserFileList()), (std::vector<std::string>{"..", "sub", "a.png", "b.png", "c.txt"}));
    // Reverse keeps ".." and the directories first.
    RunBrowserCommand("sortReverse");
    EXPECT_EQ(Names(*BrowserFileList()), (std::vector<std::string>{"..", "sub", "c.txt", "b.png", "a.png"}));
    RunBrowserCommand("arrangeByExt");
    EXPECT_EQ(State().sort_setting, kSortExtension | kSortReverse);
    RunBrowserCommand("sortForward");
    EXPECT_EQ(Names(*BrowserFileList()), (std::vector<std::string>{"..", "sub", "a.png", "b.png", "c.txt"}));

    // Large icons: the two pictures get thumbnails and reach the window.
    ASSERT_TRUE(Settled());
    EXPECT_EQ(State().thumbnails, 2);
    EXPECT_TRUE(CanvasShowsRed());
    const FileList &list = *BrowserFileList();
    EXPECT_TRUE(list.at(4).state & kStateUnreadable);  // c.txt
    EXPECT_TRUE(list.at(1).state & kStateSkipped);     // sub

    // Small icons: their own thumbnails, 16x16 at most.
    RunBrowserCommand("viewAsSmallIcons");
    ASSERT_TRUE(Settled());
    EXPECT_EQ(State().view_mode, kViewSmallIcons);
    EXPECT_EQ(State().thumbnails, 2);
    EXPECT_LE(list.at(2).small.width, 16);
    EXPECT_TRUE(CanvasShowsRed());

    // List: information only, no pixels of the picture.
    RunBrowserCommand("viewAsList");
    ASSERT_TRUE(Settled());
    EXPECT_EQ(State().thumbnails, 0);
    EXPECT_EQ(list.at(2).info.width, 60u);
    EXPECT_FALSE(CanvasShowsRed());

    RunBrowserCommand("viewAsColumn");
    EXPECT_TRUE(Settled());
    EXPECT_EQ(State().view_mode, kViewColumns);
    RunBrowserCommand("viewAsIcons");
    ASSERT_TRUE(Settled());
    EXPECT_TRUE(CanvasShowsRed());
    RunBrowserCommand("close");
    Pump();
    BrowserState gone;
    EXPECT_FALSE(GetBrowserState(&gone));
  }
}

TEST_F(BrowserTest, ColumnViewOpensNothingAndTypeSortComesLast) {
  Open("QUILLA_TEST_DISPLAY");
  if (!dpy_) return;
  const std::string d = MakeDirectory("columns");
  WriteFile(d + "/.hidden.png", "x");
  Settings().Browser.Viewas = kViewColumns;
  Settings().Browser.ShowHiddenFile = false;
  ASSERT_NE(OpenBrowser(App().shell, d.c_str()), nullptr);
  EXPECT_EQ(BrowserFileList()->count(), 5);  // the dot file hidden, ".." shown
  RunBrowserCommand("showHidden");
  EXPECT_EQ(BrowserFileList()->count(), 6);
  std::remove((d + "/.hidden.png").c_str());
  RunBrowserCommand("quickRefresh");
  ASSERT_TRUE(Settled());
  for (const FileEntry &e : BrowserFileList()->entries()) EXPECT_EQ(e.state & (kStateKnown | kStateUnreadable), 0u);
  // Sorting by type puts the read pictures before the unknown file once
  // the list view has read them.
  RunBrowserCommand("arrangeByType");
  RunBrowserCommand("viewAsList");
  ASSERT_TRUE(Settled());
  EXPECT_EQ(Names(*BrowserFileList()), (std::vector<std::string>{"..", "sub", "a.png", "b.png", "c.txt"}));
}

TEST_F(BrowserTest, CacheIsWrittenAtCloseAndServesTheNextVisit) {
  Open("QUILLA_TEST_DISPLAY");
  if (!dpy_) return;
  const std::string d = MakeDirectory("cached");
  Settings().Cache.IsActive = true;
  Settings().Cache.Compression = 1;
  ASSERT_NE(OpenBrowser(App().shell, d.c_str()), nullptr);
  ASSERT_TRUE(Settled());
  EXPECT_EQ(State().thumbnails, 2);
  RunBrowserCommand("close");
  Pump();
  // The index names the directory; its database counts both thumbnails.
  const std::string index = ReadFile(Home() + "/.quilla/cache/cache.db");
  const size_t at = index.find(d + "/");
  ASSERT_NE(at, std::string::npos);
  const int slot = static_cast<int>((at - 20) / 4097);
  const std::string db = ReadFile(Home() + "/.quilla/cache/" + std::to_string(slot) + ".db");
  EXPECT_EQ(db.compare(0, 15, "Quilla DB v1.05"), 0);
  EXPECT_EQ(BigEndian32(db, 16), 2u);

  // The same names, sizes and times with contents no decoder accepts:
  // only the cache can give their thumbnails now.
  for (const char *name : {"/a.png", "/b.png"}) {
    const std::string path = d + name;
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    WriteFile(path, std::string(static_cast<size_t>(st.st_size), 'x'));
    utimbuf times{st.st_atime, st.st_mtime};
    utime(path.c_str(), &times);
  }
  ASSERT_NE(OpenBrowser(App().shell, d.c_str()), nullptr);
  ASSERT_TRUE(Settled());
  EXPECT_EQ(State().thumbnails, 2);
  EXPECT_TRUE(CanvasShowsRed());

  // The Options dialog's cache page lists the directory with its count,
  // and "Delete All" empties the cache.
  OpenOptions(State().shell);
  Pump();
  Widget options = ShownOptions();
  ASSERT_NE(options, nullptr);
  Widget list = XtNameToWidget(options, "*PCache*scrolledList");
  ASSERT_NE(list, nullptr);
  XmStringTable items = nullptr;
  int rows = 0;
  XtVaGetValues(list, XmNitems, &items, XmNitemCount, &rows, nullptr);
  ASSERT_GE(rows, 1);
  bool listed = false;
  for (int i = 0; i < rows; ++i) {
    const std::string row = guitest::XmText(items[i]);
    listed |= row.rfind((d + "/").substr(0, 30), 0) == 0 && row.find("     2    ") != std::string::npos;
  }
  EXPECT_TRUE(listed);
  Widget all = XtNameToWidget(options, "*PCache*buttonDeleteAll");
  ASSERT_NE(all, nullptr);
  EXPECT_TRUE(XtIsSensitive(all));
  XtCallCallbacks(all, XmNactivateCallback, nullptr);
  XtVaGetValues(list, XmNitemCount, &rows, nullptr);
  EXPECT_EQ(rows, 0);
  XtDestroyWidget(options);
  Pump();
  // The browser goes on without its database: a refresh makes the
  // thumbnails again (the files are no pictures now).
  RunBrowserCommand("refresh");
  ASSERT_TRUE(Settled());
  EXPECT_EQ(State().thumbnails, 0);
  Settings().Cache.IsActive = false;
}

TEST_F(BrowserTest, KeyboardMovesOpensGoesUpAndFindsByName) {
  Open("QUILLA_TEST_DISPLAY");
  if (!dpy_) return;
  if (!testutil::HaveTool("xdotool")) GTEST_SKIP() << "xdotool is not installed";
  const std::string d = MakeDirectory("keys");
  WriteFile(d + "/sub/zz.txt", "z");
  Settings().Browser.Viewas = kViewList;
  Widget shell = OpenBrowser(App().shell, d.c_str());
  ASSERT_NE(shell, nullptr);
  guitest::FocusWhenMapped(dpy_, shell);
  Pump();
  // The icon view has the keyboard from the start.
  EXPECT_EQ(State().current, 0);
  Keys("Down Down");
  EXPECT_EQ(State().current, 2);
  Keys("End");
  EXPECT_EQ(State().current, 4);
  Keys("ctrl+a");  // the menu's accelerator, from the icon view
  EXPECT_EQ(BrowserFileList()->selectedCount(), 4);  // all but ".."
  Keys("Home");
  EXPECT_EQ(State().current, 0);
  Keys("b");  // type-ahead
  EXPECT_EQ(BrowserFileList()->at(State().current).name, std::string("b.png"));
  // Return on a picture opens a view on it.
  Keys("Return");
  ASSERT_TRUE(RunUntil(20000, [] { return ViewCount() == 1; }));
  ViewState vs;
  ASSERT_TRUE(GetViewState(ViewShellAt(0), &vs));
  EXPECT_EQ(vs.path, d + "/b.png");
  RunViewCommand(ViewShellAt(0), "close");
  Pump();
  XSetInputFocus(dpy_, XtWindow(shell), RevertToPointerRoot, CurrentTime);
  Pump();
  // Return on a directory enters it; Backspace comes back to it.
  Keys("s Return");
  EXPECT_EQ(State().directory, d + "/sub/");
  Keys("BackSpace");
  EXPECT_EQ(State().directory, d + "/");
  EXPECT_EQ(BrowserFileList()->at(State().current).name, std::string("sub"));
  // F2 renames in place: the whole name is selected, typing replaces it.
  WriteFile(d + "/.description", "\"a.png\" first\n");
  RunBrowserCommand("quickRefresh");
  Keys("a F2");
  Keys("z period p n g Return");
  EXPECT_TRUE(FileExists(d + "/z.png"));
  EXPECT_FALSE(FileExists(d + "/a.png"));
  EXPECT_EQ(BrowserFileList()->at(State().current).name, std::string("z.png"));
  EXPECT_EQ(BrowserFileList()->at(State().current).description, "first");  // the description went along
  // Escape leaves the name as it was.
  Keys("F2");
  Keys("q Escape");
  EXPECT_TRUE(FileExists(d + "/z.png"));
  EXPECT_EQ(BrowserFileList()->at(State().current).name, std::string("z.png"));
}

TEST_F(BrowserTest, ClickSelectsAndDoubleClickEnters) {
  Open("QUILLA_TEST_DISPLAY");
  if (!dpy_) return;
  if (!testutil::HaveTool("xdotool")) GTEST_SKIP() << "xdotool is not installed";
  const std::string d = MakeDirectory("mouse");
  Settings().Browser.Viewas = kViewList;
  Widget shell = OpenBrowser(App().shell, d.c_str());
  ASSERT_NE(shell, nullptr);
  ASSERT_TRUE(RunUntil(20000, [&] {
    XWindowAttributes a;
    return XGetWindowAttributes(dpy_, XtWindow(shell), &a) && a.map_state == IsViewable;
  }));
  const BrowserState st = State();
  ASSERT_EQ(st.current, 0);
  // The middle of row `row` on the screen.
  auto row_at = [&](int row, int *x, int *y) {
    Window child;
    XTranslateCoordinates(dpy_, st.canvas, DefaultRootWindow(dpy_), st.cell_x + 60,
                          st.cell_y + row * st.cell_h + st.cell_h / 2, x, y, &child);
  };
  const std::string xdo = std::string("DISPLAY=") + DisplayString(dpy_) + " xdotool ";
  int x, y;
  row_at(3, &x, &y);  // b.png
  ASSERT_EQ(std::system((xdo + "mousemove " + std::to_string(x) + " " + std::to_string(y) + " click 1").c_str()), 0);
  RunUntil(20000, [&] { return State().current == 3; });
  EXPECT_EQ(State().current, 3);
  EXPECT_EQ(ViewCount(), 0);  // one click only selects
  row_at(4, &x, &y);          // c.txt, with Shift: the two are selected
  ASSERT_EQ(std::system((xdo + "mousemove " + std::to_string(x) + " " + std::to_string(y) +
                         " keydown shift click 1 keyup shift").c_str()),
            0);
  RunUntil(20000, [&] { return State().current == 4; });
  EXPECT_EQ(BrowserFileList()->selectedCount(), 2);
  usleep(500000);  // no double click with what follows
  row_at(1, &x, &y);  // sub
  ASSERT_EQ(std::system((xdo + "mousemove " + std::to_string(x) + " " + std::to_string(y) +
                         " click --repeat 2 --delay 80 1").c_str()),
            0);
  RunUntil(20000, [&] { return State().directory == d + "/sub/"; });
  EXPECT_EQ(State().directory, d + "/sub/");
}

TEST_F(BrowserTest, OpenTakesTheSelectionAndPropertiesTheCurrentFile) {
  Open("QUILLA_TEST_DISPLAY");
  if (!dpy_) return;
  const std::string d = MakeDirectory("open");
  Widget shell = OpenBrowser(App().shell, d.c_str());
  ASSERT_NE(shell, nullptr);
  // Everything selected: one view walking the pictures (directories and
  // the file the loop found unreadable stay out of its list).
  ASSERT_TRUE(Settled());
  RunBrowserCommand("selectAll");
  // The slide show dialog takes the selected pictures in the browser's order.
  RunBrowserCommand("slideShow");
  Widget slides = ShownSlideDialog();
  ASSERT_NE(slides, nullptr);
  XmString *items = nullptr;
  int item_count = 0;
  XtVaGetValues(XtNameToWidget(slides, "*filelist"), XmNitems, &items, XmNitemCount, &item_count, nullptr);
  ASSERT_GE(item_count, 2);
  char *first = nullptr;
  XmStringGetLtoR(items[0], XmFONTLIST_DEFAULT_TAG, &first);
  EXPECT_NE(std::string(first ? first : "").find("a.png"), std::string::npos);
  XtFree(first);
  XtDestroyWidget(slides);
  RunBrowserCommand("open");
  ASSERT_TRUE(RunUntil(20000, [] { return ViewCount() == 1; }));
  ViewState vs;
  ASSERT_TRUE(GetViewState(ViewShellAt(0), &vs));
  EXPECT_EQ(vs.path, d + "/a.png");
  EXPECT_EQ(vs.list_count, 2);
  RunViewCommand(ViewShellAt(0), "close");
  Pump();
  RunBrowserCommand("itemEnd");
  RunBrowserCommand("itemLeft");  // b.png
  RunBrowserCommand("properties");
  Pump();
  Widget box = XtNameToWidget(shell, "QuillProperties");
  ASSERT_NE(box, nullptr);
  EXPECT_NE(guitest::LabelText(box, "*labelFile").find("b.png"), std::string::npos);

  // "Copy Location" with nothing selected: a paste gets the current file's path.
  RunBrowserCommand("copyLocation");
  std::string pasted;
  bool answered = false;
  auto got = [](Widget, XtPointer data, Atom *, Atom *, XtPointer value, unsigned long *length, int *) {
    auto *out = static_cast<std::pair<std::string *, bool *> *>(data);
    if (value) out->first->assign(static_cast<char *>(value), *length);
    *out->second = true;
    XtFree(static_cast<char *>(value));
  };
  std::pair<std::string *, bool *> into(&pasted, &answered);
  XtGetSelectionValue(shell, XA_PRIMARY, XA_STRING, got, &into, XtLastTimestampProcessed(dpy_));
  ASSERT_TRUE(RunUntil(20000, [&] { return answered; }));
  EXPECT_EQ(pasted, d + "/b.png");

  RunBrowserCommand("openHexa");
  ASSERT_EQ(HexDumpCount(), 1);
  HexDumpState dump;
  ASSERT_TRUE(GetHexDumpState(HexDumpShellAt(0), &dump));
  EXPECT_EQ(dump.path, d + "/b.png");
  XtDestroyWidget(dump.shell);
}

TEST_F(BrowserTest, DescriptionsAndBookmarksRoundTrip) {
  Open("QUILLA_TEST_DISPLAY");
  if (!dpy_) return;
  const std::string d = MakeDirectory("described");
  Widget shell = OpenBrowser(App().shell, d.c_str());
  ASSERT_NE(shell, nullptr);
  RunBrowserCommand("itemEnd");
  RunBrowserCommand("itemLeft");  // b.png
  ASSERT_EQ(BrowserFileList()->at(State().current).name, std::string("b.png"));
  RunBrowserCommand("describe");
  Pump();
  Widget box = XtNameToWidget(shell, "quillDesc");
  ASSERT_NE(box, nullptr);
  XmTextFieldSetString(XtNameToWidget(box, "*textDesc"), const_cast<char *>("the red one"));
  XtCallCallbacks(XtNameToWidget(box, "*buttonOk"), XmNactivateCallback, nullptr);
  Pump();
  EXPECT_EQ(ReadFile(d + "/.description"), "\"b.png\" the red one\n");
  // The column and the sort see it at once: described entries first.
  RunBrowserCommand("arrangeByDesc");
  // (Entries without one keep no defined order among themselves.)
  EXPECT_EQ(BrowserFileList()->at(2).name, std::string("b.png"));
  EXPECT_EQ(BrowserFileList()->at(2).description, "the red one");

  RunBrowserCommand("addBookmark");
  const std::string file = Home() + "/.quilla/bookmark.ini";
  EXPECT_EQ(ReadFile(file), "\"described\"*\"" + d + "/\"\n");
  RunBrowserCommand("editBookmarks");
  Pump();
  Widget editor = ShownBookmarkEditor();
  ASSERT_NE(editor, nullptr);
  Widget list = XtNameToWidget(editor, "*scrolledList");
  int rows = 0;
  XtVaGetValues(list, XmNitemCount, &rows, nullptr);
  EXPECT_EQ(rows, 1);
  XmListSelectPos(list, 1, False);
  // Rename... asks for the new name.
  XtCallCallbacks(XtNameToWidget(editor, "*buttonRename"), XmNactivateCallback, nullptr);
  Pump();
  Widget prompt = XtNameToWidget(editor, "*QuillBookRename");
  ASSERT_NE(prompt, nullptr);
  XmTextFieldSetString(XmSelectionBoxGetChild(prompt, XmDIALOG_TEXT), const_cast<char *>("Reds"));
  XmPushButtonCallbackStruct press{};
  press.reason = XmCR_ACTIVATE;
  XtCallCallbacks(XmSelectionBoxGetChild(prompt, XmDIALOG_OK_BUTTON), XmNactivateCallback, &press);
  Pump();
  EXPECT_EQ(ReadFile(file), "\"Reds\"*\"" + d + "/\"\n");
  XmListSelectPos(list, 1, False);
  XtCallCallbacks(XtNameToWidget(editor, "*buttonRemove"), XmNactivateCallback, nullptr);
  XtVaGetValues(list, XmNitemCount, &rows, nullptr);
  EXPECT_EQ(rows, 0);
  EXPECT_EQ(ReadFile(file), "");
  XtCallCallbacks(XtNameToWidget(editor, "*buttonOk"), XmNactivateCallback, nullptr);
  Pump();
  EXPECT_EQ(ShownBookmarkEditor(), nullptr);
}

// The views' browseFiles opens the browser in the directory browsed last,
// and a second opening with a directory moves the one browser there.
TEST_F(BrowserTest, BrowseFilesOpensOneBrowserWhereItWasLast) {
  Open("QUILLA_TEST_DISPLAY");
  if (!dpy_) return;
  const std::string d = MakeDirectory("last");
  std::strcpy(Settings().PathBrowse, (d + "/sub/").c_str());
  RunViewCommand(App().shell, "browseFiles");
  Pump();
  EXPECT_EQ(State().directory, d + "/sub/");
  const Widget first = State().shell;
  EXPECT_EQ(OpenBrowser(App().shell, d.c_str()), first);
  EXPECT_EQ(State().directory, d + "/");
  EXPECT_EQ(OpenBrowser(App().shell, nullptr), first);  // raised, where it is
  EXPECT_EQ(State().directory, d + "/");
}

TEST_F(BrowserTest, UnreadableDirectoryLeavesTheListing) {
  Open("QUILLA_TEST_DISPLAY");
  if (!dpy_) return;
  const std::string d = MakeDirectory("locked");
  const std::string locked = d + "/sub";
  ASSERT_NE(OpenBrowser(App().shell, d.c_str()), nullptr);
  const int count = BrowserFileList()->count();
  // Without permission (as root: gone since it was listed).
  if (geteuid() != 0)
    chmod(locked.c_str(), 0);
  else
    rmdir(locked.c_str());
  RunBrowserCommand("itemRight");  // "sub"
  ASSERT_EQ(BrowserFileList()->at(State().current).name, std::string("sub"));
  RunBrowserCommand("itemActivate");
  EXPECT_EQ(State().directory, d + "/");
  EXPECT_EQ(BrowserFileList()->count(), count);
  chmod(locked.c_str(), 0755);
}

// The title of the first top-level window whose title starts with `prefix`
// ("" when none).
std::string FindTitle(Display *dpy, const std::string &prefix) {
  Window root, parent, *children = nullptr;
  unsigned n = 0;
  std::string found;
  if (!XQueryTree(dpy, DefaultRootWindow(dpy), &root, &parent, &children, &n)) return found;
  for (unsigned i = 0; i < n && found.empty(); ++i) {
    char *name = nullptr;
    if (XFetchName(dpy, children[i], &name) && name) {
      if (std::strncmp(name, prefix.c_str(), prefix.size()) == 0) found = name;
      XFree(name);
    }
  }
  if (children) XFree(children);
  return found;
}

// Starts the program in `home` on the first test server with `args` and
// the settings file home/rc.
pid_t StartProgram(const TempDir &home, const std::vector<std::string> &args, bool exit_after_thumbnails = false) {
  const pid_t pid = fork();
  if (pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setenv("HOME", home.path().c_str(), 1);
    setenv("DISPLAY", std::getenv("QUILLA_TEST_DISPLAY"), 1);
    if (exit_after_thumbnails) setenv("QUILLA_EXIT_AFTER_THUMBNAILS", "1", 1);
    if (chdir(home.path().c_str()) != 0) _exit(126);
    freopen("/dev/null", "w", stdout);
    std::vector<char *> argv = {const_cast<char *>(QUILLA_BINARY_DIR "/quilla"), const_cast<char *>("-ini"),
                                const_cast<char *>(strdup(home.file("rc").c_str()))};
    for (const std::string &a : args) argv.push_back(strdup(a.c_str()));
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
  }
  return pid;
}

// Runs the program with `args` and a settings file holding `settings`, and
// returns the browser's title once it shows ("" when it never does).
std::string BrowserTitleOfRun(const std::vector<std::string> &args, const std::string &settings, int *views = nullptr) {
  const char *display = std::getenv("QUILLA_TEST_DISPLAY");
  TempDir home;
  WriteFile(home.file("rc"), settings);
  const pid_t pid = StartProgram(home, args);
  Display *dpy = XOpenDisplay(display);
  std::string title;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(15);
  while (dpy && title.empty() && std::chrono::steady_clock::now() < end) {
    title = FindTitle(dpy, "Quilla Browser - ");
    if (title.empty()) usleep(20000);
  }
  if (dpy && views) {
    // Views on the pictures, and no start window.
    usleep(300000);
    *views = 0;
    Window root, parent, *children = nullptr;
    unsigned n = 0;
    if (XQueryTree(dpy, DefaultRootWindow(dpy), &root, &parent, &children, &n)) {
      for (unsigned i = 0; i < n; ++i) {
        XClassHint hint;
        XWindowAttributes a;
        if (!XGetClassHint(dpy, children[i], &hint)) continue;
        if (XGetWindowAttributes(dpy, children[i], &a) && a.map_state == IsViewable) {
          if (std::strcmp(hint.res_name, "QuillView") == 0) ++*views;
          if (std::strcmp(hint.res_name, "QuillInit") == 0) *views = -100;
        }
        XFree(hint.res_name);
        XFree(hint.res_class);
      }
      if (children) XFree(children);
    }
  }
  if (dpy) XCloseDisplay(dpy);
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  return title;
}

TEST(BrowserProgram, OpensWhereTheCommandLineAndTheSettingsSay) {
  if (!std::getenv("QUILLA_TEST_DISPLAY") || !*std::getenv("QUILLA_TEST_DISPLAY"))
    GTEST_SKIP() << "QUILLA_TEST_DISPLAY not set";
  TempDir place;
  const std::string a = place.file("a"), b = place.file("b");
  mkdir(a.c_str(), 0755);
  mkdir(b.c_str(), 0755);
  // -browser with the start-up directory of the settings.
  EXPECT_EQ(BrowserTitleOfRun({"-browser"}, "Browser.StartupIn = 2\nBrowser.StartupDirectory = " + a + "\n"),
            "Quilla Browser - " + a + "/");
  // At start-up by the settings, in the directory browsed last.
  EXPECT_EQ(BrowserTitleOfRun({}, "Start.LaunchBrowserAtStartup = True\nPathBrowse = " + b + "/\n"),
            "Quilla Browser - " + b + "/");
  // A directory and two pictures: the browser there and one view on both.
  Pic p(MakePicture(TSL_RGB, 20, 20));
  ASSERT_TRUE(guitest::SavePicture(place.file("1.png"), p));
  ASSERT_TRUE(guitest::SavePicture(place.file("2.png"), p));
  int views = 0;
  EXPECT_EQ(BrowserTitleOfRun({place.file("1.png"), a, place.file("2.png")}, "", &views),
            "Quilla Browser - " + a + "/");
  EXPECT_EQ(views, 1);
}

// The program itself: a directory on the command line opens the browser,
// and QUILLA_EXIT_AFTER_THUMBNAILS=1 quits once the thumbnails are made,
// with the cache closed.
TEST(BrowserProgram, QuitsAfterItsThumbnailsWithTheCacheOnDisk) {
  const char *display = std::getenv("QUILLA_TEST_DISPLAY");
  if (!display || !*display) GTEST_SKIP() << "QUILLA_TEST_DISPLAY not set";
  TempDir home;
  const std::string pics = home.file("pics");
  mkdir(pics.c_str(), 0755);
  Pic p(MakePicture(TSL_RGB, 120, 90));
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(guitest::SavePicture(pics + "/p" + std::to_string(i) + ".png", p));
  WriteFile(home.file("rc"), "Cache.IsActive = True\n");
  const pid_t pid = StartProgram(home, {pics}, true);
  int status = -1;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (waitpid(pid, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > end) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      FAIL() << "the program did not quit after its thumbnails";
    }
    usleep(20000);
  }
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  const std::string db = ReadFile(home.file(".quilla/cache/0.db"));
  EXPECT_EQ(BigEndian32(db, 16), 5u);
  // The settings were written as at a Ctrl+Q, with the directory browsed.
  EXPECT_NE(ReadFile(home.file("rc")).find("PathBrowse = " + pics + "/"), std::string::npos);
}

}  // namespace
