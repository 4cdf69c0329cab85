// The tree view widget on a real X server, inside an automatic scrolled
// window as the browser holds it: building and deleting items, the
// callbacks and their order, keys and clicks through the server, scrolling
// to the selection, and the rows' pixels at 24 and 8 bits.
#include <gtest/gtest.h>

#include <X11/Intrinsic.h>
#include <X11/StringDefs.h>
#include <X11/Xutil.h>
#include <Xm/ScrolledW.h>
#include <Xm/Xm.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "gui_util.h"
#include "test_util.h"
#include "widgets/MyTreeView.h"
#include "widgets/MyTreeViewP.h"

namespace {

std::vector<std::string> g_warnings;
void CatchWarning(String message) { g_warnings.push_back(message); }

struct Call {
  int reason;
  MyTreeViewItem *item;
  bool with_event;
  bool operator==(const Call &o) const {
    return reason == o.reason && item == o.item && with_event == o.with_event;
  }
};
std::ostream &operator<<(std::ostream &os, const Call &c) {
  return os << "{" << c.reason << ", " << c.item << (c.with_event ? ", event}" : "}");
}

void Record(Widget, XtPointer closure, XtPointer data) {
  auto *calls = static_cast<std::vector<Call> *>(closure);
  auto *cbs = static_cast<MyTreeViewCallbackStruct *>(data);
  calls->push_back({cbs->reason, cbs->item, cbs->event != nullptr});
}

class TreeViewTest : public ::testing::Test {
 protected:
  void SetUp() override { Open("QUILLA_TEST_DISPLAY"); }
  // One application context and display per server for the whole run, as
  // in the program: Motif keeps fonts per display, and a display closed and
  // opened again at the same address would find stale ones.
  // The tree scrolls itself in "dirTreeViewSW", or (own_bars false) sits in
  // an automatic scrolled window that moves it.
  void Open(const char *variable, bool own_bars = true) {
    const char *name = std::getenv(variable);
    if (!name) GTEST_SKIP() << variable << " is not set (scripts/test starts the servers)";
    display_name_ = name;
    static std::map<std::string, std::pair<XtAppContext, Display *>> opened;
    auto &slot = opened[display_name_];
    if (!slot.second) {
      XtToolkitInitialize();
      slot.first = XtCreateApplicationContext();
      int argc = 0;
      slot.second = XtOpenDisplay(slot.first, name, "test", "Quilla", nullptr, 0, &argc, nullptr);
      ASSERT_NE(slot.second, nullptr) << "cannot open " << name;
      XtAppSetWarningHandler(slot.first, CatchWarning);
    }
    app_ = slot.first;
    dpy_ = slot.second;
    g_warnings.clear();
    // On a colormapped server the window gets a colormap of its own, so
    // that its colours leave the shared one alone for tests counting cells.
    Visual *visual = DefaultVisual(dpy_, DefaultScreen(dpy_));
    if (visual->c_class == PseudoColor)
      colormap_ = XCreateColormap(dpy_, DefaultRootWindow(dpy_), visual, AllocNone);
    shell_ = XtVaAppCreateShell("test", "Quilla", applicationShellWidgetClass, dpy_, XmNwidth, 240, XmNheight,
                                200, XmNcolormap,
                                colormap_ ? colormap_ : DefaultColormap(dpy_, DefaultScreen(dpy_)), nullptr);
    if (own_bars) {
      tree_ = MyCreateScrolledTreeView(shell_, "dirTreeView", nullptr, 0);
      sw_ = XtParent(tree_);
    } else {
      sw_ = XtVaCreateManagedWidget("dirTreeViewSW", xmScrolledWindowWidgetClass, shell_, XmNscrollingPolicy,
                                    XmAUTOMATIC, nullptr);
      tree_ = MyCreateTreeView(sw_, "dirTreeView", nullptr, 0);
    }
    XtManageChild(tree_);
    for (const char *list : {MyNselectCallback, MyNexpandCallback, MyNcollapseCallback, MyNactivateCallback})
      XtAddCallback(tree_, list, Record, &calls_);
  }
  void TearDown() override {
    if (shell_) {
      XtDestroyWidget(shell_);
      Pump();
    }
    if (colormap_) XFreeColormap(dpy_, colormap_);
  }
  void Realize() {
    XtRealizeWidget(shell_);
    Pump();
  }
  // Handles everything the server has sent until it stays quiet a moment.
  void Pump() {
    for (int quiet = 0; quiet < 5;) {
      XSync(dpy_, False);
      if (XtAppPending(app_)) {
        XtAppProcessEvent(app_, XtIMAll);
        quiet = 0;
      } else {
        usleep(5000);
        ++quiet;
      }
    }
  }
  MyTreeViewItem *Add(MyTreeViewItem *parent, const char *text, bool expandable = true) {
    return MyTreeViewAddItem(tree_, parent, expandable, False, XmUNSPECIFIED_PIXMAP, XmUNSPECIFIED_PIXMAP, text);
  }
  // Runs xdotool against this server; tests sharing the server take turns.
  void Xdo(const std::string &args) {
    std::string lock = "/tmp/quilla-keyboard" + display_name_ + ".lock";
    int fd = open(lock.c_str(), O_CREAT | O_RDWR, 0666);
    if (fd >= 0) flock(fd, LOCK_EX);
    XWarpPointer(dpy_, 0, XtWindow(tree_), 0, 0, 0, 0, 1, 1);
    XSetInputFocus(dpy_, XtWindow(shell_), RevertToPointerRoot, CurrentTime);
    XSync(dpy_, False);
    Pump();
    XmProcessTraversal(tree_, XmTRAVERSE_CURRENT);
    Pump();
    EXPECT_EQ(testutil::Run("DISPLAY=" + display_name_ + " xdotool " + args), 0) << args;
    XSync(dpy_, False);
    Pump();
    if (fd >= 0) close(fd);
  }
  // Clicks at x on the item's row, in the tree's own coordinates, sent to
  // its window through the server (other tests' windows may lie on top of
  // it at the same place, so the pointer is not used).
  void Click(MyTreeViewItem *item, int x, int count = 1) {
    const int row = MyTreeViewGetItemRow(tree_, item);
    ASSERT_GE(row, 0);
    const int rh = MyTreeViewGetRowHeight(tree_);
    const int y = Margin() + row * rh + rh / 2 - reinterpret_cast<MyTreeViewWidget>(tree_)->tree.top;
    Button(x, y, Button1, count);
  }
  void Button(int x, int y, unsigned button, int count = 1) {
    time_ += 5000;  // apart from the previous click
    for (int i = 0; i < count; ++i) {
      for (int type : {ButtonPress, ButtonRelease}) {
        XEvent ev{};
        ev.xbutton.type = type;
        ev.xbutton.display = dpy_;
        ev.xbutton.window = XtWindow(tree_);
        ev.xbutton.root = DefaultRootWindow(dpy_);
        ev.xbutton.x = x;
        ev.xbutton.y = y;
        ev.xbutton.button = button;
        ev.xbutton.state = type == ButtonRelease ? Button1Mask << (button - 1) : 0;
        ev.xbutton.same_screen = True;
        ev.xbutton.time = time_ += 40;
        XSendEvent(dpy_, ev.xbutton.window, True, type == ButtonPress ? ButtonPressMask : ButtonReleaseMask, &ev);
      }
    }
    Pump();
  }
  bool HaveXdotool() { return testutil::HaveTool("xdotool"); }
  int Margin() { return reinterpret_cast<MyTreeViewWidget>(tree_)->primitive.highlight_thickness; }

  std::string display_name_;
  XtAppContext app_ = nullptr;
  Display *dpy_ = nullptr;
  Widget shell_ = nullptr, sw_ = nullptr, tree_ = nullptr;
  std::vector<Call> calls_;
  Time time_ = 100000;
  Colormap colormap_ = 0;
};

TEST_F(TreeViewTest, BuildingLinksAndDeleting) {
  MyTreeViewItem *root = Add(nullptr, "/ [host]");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(Add(nullptr, "second root"), nullptr);  // only the first is the tree
  EXPECT_EQ(MyTreeViewGetRoot(tree_), root);
  MyTreeViewItem *a = Add(root, "a"), *b = Add(root, "b"), *c = Add(root, "c");
  EXPECT_EQ(MyTreeViewGetChildren(tree_, root), a);
  EXPECT_EQ(MyTreeViewGetNextChildren(tree_, a), b);
  EXPECT_EQ(MyTreeViewGetPrevChildren(tree_, c), b);
  EXPECT_EQ(MyTreeViewGetParent(tree_, b), root);
  EXPECT_EQ(root->child_count, 3);
  char *text = MyTreeViewGetString(tree_, b);
  EXPECT_STREQ(text, "b");
  XtFree(text);

  // Rows by depth: each new row goes under the last item one level up.
  MyTreeViewItem *b1 = MyTreeViewAddRow(tree_, 2, True, False, XmUNSPECIFIED_PIXMAP, XmUNSPECIFIED_PIXMAP, "c1");
  MyTreeViewItem *b2 = MyTreeViewAddRow(tree_, 3, True, False, XmUNSPECIFIED_PIXMAP, XmUNSPECIFIED_PIXMAP, "c2");
  MyTreeViewItem *d = MyTreeViewAddRow(tree_, 1, True, False, XmUNSPECIFIED_PIXMAP, XmUNSPECIFIED_PIXMAP, "d");
  EXPECT_EQ(MyTreeViewGetParent(tree_, b1), c);
  EXPECT_EQ(MyTreeViewGetParent(tree_, b2), b1);
  EXPECT_EQ(MyTreeViewGetParent(tree_, d), root);

  // Deleting the selected item's ancestor moves the selection up.
  MyTreeViewSelectItem(tree_, b2);
  MyTreeViewDeleteAllChild(tree_, c);
  EXPECT_EQ(MyTreeViewGetSelected(tree_), c);
  EXPECT_EQ(MyTreeViewGetChildren(tree_, c), nullptr);
  MyTreeViewDeleteItem(tree_, b);  // a middle child
  EXPECT_EQ(MyTreeViewGetNextChildren(tree_, a), c);
  EXPECT_EQ(MyTreeViewGetPrevChildren(tree_, c), a);
  EXPECT_EQ(root->child_count, 3);
  MyTreeViewDeleteItem(tree_, c);  // the selected one
  EXPECT_EQ(MyTreeViewGetSelected(tree_), root);
  MyTreeViewDeleteItem(tree_, a);  // the first child
  EXPECT_EQ(MyTreeViewGetChildren(tree_, root), d);
  MyTreeViewDeleteAllItems(tree_);
  EXPECT_EQ(MyTreeViewGetRoot(tree_), nullptr);
  EXPECT_EQ(MyTreeViewGetSelected(tree_), nullptr);
  EXPECT_NE(Add(nullptr, "new root"), nullptr);  // an emptied tree takes a root again
  EXPECT_TRUE(g_warnings.empty());
}

TEST_F(TreeViewTest, CallbacksAndTheirOrder) {
  Realize();
  MyTreeViewItem *root = Add(nullptr, "root");
  MyTreeViewItem *a = Add(root, "a");
  MyTreeViewItem *a1 = Add(a, "a1");
  MyTreeViewItem *leaf = Add(root, "leaf", false);

  // Selecting below collapsed items opens them from the top first.
  MyTreeViewSelectItem(tree_, a1);
  EXPECT_EQ(calls_, (std::vector<Call>{{MyCR_TREE_EXPAND, root, false},
                                      {MyCR_TREE_EXPAND, a, false},
                                      {MyCR_TREE_SELECT, a1, false}}));
  EXPECT_TRUE(MyTreeViewIsExpanded(tree_, root));
  EXPECT_GE(MyTreeViewGetItemRow(tree_, a1), 0);

  // Nothing happens for an already expanded item, a leaf, or a reselection.
  calls_.clear();
  MyTreeViewExpandItem(tree_, a, True);
  MyTreeViewExpandItem(tree_, leaf, True);
  MyTreeViewExpandItem(tree_, leaf, False);
  MyTreeViewSelectItem(tree_, a1);
  EXPECT_TRUE(calls_.empty());
  EXPECT_FALSE(MyTreeViewIsExpanded(tree_, leaf));

  // Collapsing above the selection moves it to the collapsing item first.
  MyTreeViewExpandItem(tree_, root, False);
  EXPECT_EQ(calls_, (std::vector<Call>{{MyCR_TREE_SELECT, root, false}, {MyCR_TREE_COLLAPSE, root, false}}));
  EXPECT_EQ(MyTreeViewGetSelected(tree_), root);
  EXPECT_FALSE(a1->selected);
  EXPECT_EQ(MyTreeViewGetItemRow(tree_, a), -1);  // hidden, still there
  EXPECT_EQ(MyTreeViewGetChildren(tree_, root), a);
  // The collapsing item itself selected: the select callback still runs.
  MyTreeViewExpandItem(tree_, root, True);
  calls_.clear();
  MyTreeViewExpandItem(tree_, root, False);
  EXPECT_EQ(calls_, (std::vector<Call>{{MyCR_TREE_SELECT, root, false}, {MyCR_TREE_COLLAPSE, root, false}}));
  // Collapsing beside the selection leaves it alone.
  MyTreeViewExpandItem(tree_, root, True);
  MyTreeViewSelectItem(tree_, leaf);
  calls_.clear();
  MyTreeViewExpandItem(tree_, a, False);
  EXPECT_EQ(calls_, (std::vector<Call>{{MyCR_TREE_COLLAPSE, a, false}}));
  EXPECT_EQ(MyTreeViewGetSelected(tree_), leaf);

  // An expand callback that reloads the children, as a directory tree does,
  // deletes the item being selected: nothing is selected then.
  XtAddCallback(
      tree_, MyNexpandCallback,
      [](Widget w, XtPointer, XtPointer data) {
        MyTreeViewItem *item = static_cast<MyTreeViewCallbackStruct *>(data)->item;
        MyTreeViewDeleteAllChild(w, item);
        MyTreeViewAddItem(w, item, False, False, XmUNSPECIFIED_PIXMAP, XmUNSPECIFIED_PIXMAP, "reloaded");
      },
      nullptr);
  calls_.clear();
  MyTreeViewSelectItem(tree_, a1);
  EXPECT_EQ(calls_, (std::vector<Call>{{MyCR_TREE_EXPAND, a, false}}));
  EXPECT_EQ(MyTreeViewGetSelected(tree_), leaf);
  char *text = MyTreeViewGetString(tree_, MyTreeViewGetChildren(tree_, a));
  EXPECT_STREQ(text, "reloaded");
  XtFree(text);
}

TEST_F(TreeViewTest, PicturesAndRowHeight) {
  Realize();
  Pixmap closed = 0, open = 0, none = 0;
  MyTreeViewFolderPixmaps(tree_, &closed, &open, &none);
  Pixmap tall = XCreatePixmap(dpy_, XtWindow(tree_), 16, 40, reinterpret_cast<Widget>(tree_)->core.depth);
  MyTreeViewItem *root = MyTreeViewAddItem(tree_, nullptr, True, False, closed, open, "root");
  EXPECT_TRUE(g_warnings.empty());
  EXPECT_EQ(root->expand_pixmap, open);
  const int text_rows = MyTreeViewGetRowHeight(tree_);
  EXPECT_GE(text_rows, 18);  // a 16-pixel picture plus 2 at least

  // Pictures of different sizes: the warning, and no expanded picture.
  MyTreeViewItem *odd = MyTreeViewAddItem(tree_, root, True, False, tall, closed, "odd");
  ASSERT_EQ(g_warnings.size(), 1u);
  EXPECT_EQ(g_warnings[0], "TreeViewSetItemPixmap: pixmap and expand_pixmap have not the same size !");
  EXPECT_EQ(odd->expand_pixmap, static_cast<Pixmap>(XmUNSPECIFIED_PIXMAP));
  EXPECT_EQ(odd->pixmap, tall);
  EXPECT_EQ(MyTreeViewGetRowHeight(tree_), 42);  // the picture's 40 + 2
  // The row height follows the item labelled last.
  MyTreeViewSetItemString(tree_, root, "root again");
  EXPECT_EQ(MyTreeViewGetRowHeight(tree_), text_rows);
  MyTreeViewSetItemPixmap(tree_, root, none, XmUNSPECIFIED_PIXMAP);
  EXPECT_EQ(root->pixmap, none);
  char *text = MyTreeViewGetString(tree_, root);
  EXPECT_STREQ(text, "root again");
  XtFree(text);
  for (Pixmap p : {closed, open, none, tall}) XFreePixmap(dpy_, p);
}

TEST_F(TreeViewTest, EveryOperationChecksTheClass) {
  Widget other = sw_;
  MyTreeViewAddItem(other, nullptr, True, False, XmUNSPECIFIED_PIXMAP, XmUNSPECIFIED_PIXMAP, "x");
  MyTreeViewAddRow(other, 0, True, False, XmUNSPECIFIED_PIXMAP, XmUNSPECIFIED_PIXMAP, "x");
  MyTreeViewSetItemString(other, nullptr, "x");
  MyTreeViewSetItemPixmap(other, nullptr, XmUNSPECIFIED_PIXMAP, XmUNSPECIFIED_PIXMAP);
  EXPECT_EQ(MyTreeViewGetString(other, nullptr), nullptr);
  EXPECT_EQ(MyTreeViewGetRoot(other), nullptr);
  MyTreeViewGetParent(other, nullptr);
  MyTreeViewGetChildren(other, nullptr);
  MyTreeViewGetNextChildren(other, nullptr);
  MyTreeViewGetPrevChildren(other, nullptr);
  MyTreeViewUpdate(other, True);
  MyTreeViewIsExpanded(other, nullptr);
  MyTreeViewDeleteAllChild(other, nullptr);
  MyTreeViewDeleteItem(other, nullptr);
  MyTreeViewDeleteAllItems(other);
  MyTreeViewExpandItem(other, nullptr, True);
  MyTreeViewSelectItem(other, nullptr);
  MyTreeViewGetSelected(nullptr);
  const std::vector<std::string> want = {
      "MyTreeViewAddItem",        "MyTreeViewAddRow",        "MyTreeViewAddItem",        "MyTreeViewAddItem",
      "MyTreeViewGetString",      "MyTreeViewGetRoot",       "MyTreeViewGetParent",      "MyTreeViewGetChildren",
      "MyTreeViewGetChildren",    "MyTreeViewGetChildren",   "MyTreeViewUpdate",         "MyTreeViewUpdate",
      "MyTreeViewDeleteAllChild", "MyTreeViewDeleteAllChild", "MyTreeViewDeleteAllItems", "MyTreeViewExpandItem",
      "MyTreeViewSelectItem",     "MyTreeViewGetSelected"};
  ASSERT_EQ(g_warnings.size(), want.size());
  for (size_t i = 0; i < want.size(); ++i) EXPECT_EQ(g_warnings[i], want[i] + ": widget has invalid class");
}

TEST_F(TreeViewTest, KeysMoveExpandCollapseAndActivate) {
  if (!HaveXdotool()) GTEST_SKIP() << "xdotool is needed to press keys";
  Realize();
  MyTreeViewItem *root = MyTreeViewAddItem(tree_, nullptr, True, True, XmUNSPECIFIED_PIXMAP,
                                           XmUNSPECIFIED_PIXMAP, "root");
  MyTreeViewItem *a = Add(root, "a");
  MyTreeViewItem *b = Add(root, "b");
  MyTreeViewSelectItem(tree_, root);
  calls_.clear();

  Xdo("key --delay 20 Down Down");  // root -> a -> b
  EXPECT_EQ(calls_, (std::vector<Call>{{MyCR_TREE_SELECT, a, true}, {MyCR_TREE_SELECT, b, true}}));
  calls_.clear();
  Xdo("key Right");  // expands b; the expand callback fills it
  ASSERT_EQ(calls_, (std::vector<Call>{{MyCR_TREE_EXPAND, b, true}}));
  MyTreeViewItem *b1 = Add(b, "b1");
  calls_.clear();
  Xdo("key --delay 20 Right Left");  // into the first child, back to the parent
  EXPECT_EQ(calls_, (std::vector<Call>{{MyCR_TREE_SELECT, b1, true}, {MyCR_TREE_SELECT, b, true}}));
  calls_.clear();
  Xdo("key Left");  // collapses b, which keeps the selection
  EXPECT_EQ(calls_, (std::vector<Call>{{MyCR_TREE_SELECT, b, false}, {MyCR_TREE_COLLAPSE, b, true}}));
  calls_.clear();
  Xdo("key --delay 20 Up Return");  // to a; Return expands it and activates
  EXPECT_EQ(calls_, (std::vector<Call>{{MyCR_TREE_SELECT, a, true},
                                      {MyCR_TREE_EXPAND, a, true},
                                      {MyCR_TREE_ACTIVATE, a, true}}));
  calls_.clear();
  Xdo("key --delay 20 Home Up End");  // Up at the top stays there
  EXPECT_EQ(calls_, (std::vector<Call>{{MyCR_TREE_SELECT, root, true}, {MyCR_TREE_SELECT, b, true}}));
}

TEST_F(TreeViewTest, ClicksSelectToggleAndActivate) {
  Realize();
  MyTreeViewItem *root = MyTreeViewAddItem(tree_, nullptr, True, True, XmUNSPECIFIED_PIXMAP,
                                           XmUNSPECIFIED_PIXMAP, "root");
  MyTreeViewItem *a = Add(root, "folder a");
  Add(a, "a1");
  Pump();
  const int ht = Margin();
  const int box_x = ht + 2 + 18 + 4;  // margin, one level, half the box
  const int label_x = box_x + 30;
  calls_.clear();
  Click(a, label_x);
  EXPECT_EQ(calls_, (std::vector<Call>{{MyCR_TREE_SELECT, a, true}}));
  calls_.clear();
  Click(a, box_x);  // the expand box toggles without selecting
  EXPECT_EQ(calls_, (std::vector<Call>{{MyCR_TREE_EXPAND, a, true}}));
  calls_.clear();
  Click(a, label_x, 2);  // a double click collapses the selected item and activates it
  EXPECT_EQ(calls_, (std::vector<Call>{{MyCR_TREE_SELECT, a, false},
                                      {MyCR_TREE_COLLAPSE, a, true},
                                      {MyCR_TREE_ACTIVATE, a, true}}));
  calls_.clear();
  Click(root, tree_->core.width - 2);  // right of the label: still the row
  EXPECT_EQ(calls_, (std::vector<Call>{{MyCR_TREE_SELECT, root, true}}));
}

// Scrolling with the tree's own bars (past the 32767 pixels of a window)
// and in an automatic scrolled window.
class TreeViewScrollTest : public TreeViewTest, public ::testing::WithParamInterface<bool> {
 protected:
  void SetUp() override { Open("QUILLA_TEST_DISPLAY", GetParam()); }
};

TEST_P(TreeViewScrollTest, SelectionScrollsIntoView) {
  const bool own = GetParam();
  const int count = own ? 3000 : 100;
  Realize();
  MyTreeViewUpdate(tree_, True);
  MyTreeViewItem *root = MyTreeViewAddItem(tree_, nullptr, True, True, XmUNSPECIFIED_PIXMAP,
                                           XmUNSPECIFIED_PIXMAP, "root");
  std::vector<MyTreeViewItem *> items;
  for (int i = 0; i < count; ++i) items.push_back(Add(root, ("directory " + std::to_string(i)).c_str(), false));
  MyTreeViewUpdate(tree_, False);
  Pump();
  const int rh = MyTreeViewGetRowHeight(tree_);
  if (own) {
    EXPECT_GT((count + 1) * rh, 32767);
  }
  // Where a row shows: the tree scrolls inside itself or moves in the clip.
  auto shown = [&](MyTreeViewItem *it) {
    const int view_h = own ? tree_->core.height : XtParent(tree_)->core.height;
    const int top = (own ? -reinterpret_cast<MyTreeViewWidget>(tree_)->tree.top : tree_->core.y) + Margin() +
                    MyTreeViewGetItemRow(tree_, it) * rh;
    return top >= 0 && top + rh <= view_h + 2;
  };
  MyTreeViewItem *last = items.back(), *middle = items[count / 2];
  EXPECT_FALSE(shown(last));
  MyTreeViewSelectItem(tree_, last);
  Pump();
  EXPECT_TRUE(shown(last));
  MyTreeViewSelectItem(tree_, middle);
  Pump();
  EXPECT_TRUE(shown(middle));
  EXPECT_FALSE(shown(last));
  MyTreeViewSelectItem(tree_, root);
  Pump();
  EXPECT_EQ(own ? reinterpret_cast<MyTreeViewWidget>(tree_)->tree.top : tree_->core.y, 0);

  if (own) {  // a taller window: the bar's slider follows
    XtVaSetValues(shell_, XmNheight, 400, nullptr);
    Pump();
    int slider = 0;
    XtVaGetValues(reinterpret_cast<MyTreeViewWidget>(tree_)->tree.vsb, XmNsliderSize, &slider, nullptr);
    EXPECT_GT(tree_->core.height, 300);
    EXPECT_EQ(slider, tree_->core.height);
  }

  // The wheel scrolls and leaves the selection.
  Button(10, 10, Button5);
  EXPECT_FALSE(shown(root));
  EXPECT_EQ(MyTreeViewGetSelected(tree_), root);
  Button(10, 10, Button4);
  EXPECT_TRUE(shown(root));

  if (HaveXdotool()) {  // the page and end keys, which a scrolled window wants too
    Xdo("key End");
    EXPECT_EQ(MyTreeViewGetSelected(tree_), last);
    EXPECT_TRUE(shown(last));
    Xdo("key Prior");
    EXPECT_TRUE(shown(MyTreeViewGetSelected(tree_)));
    EXPECT_LT(MyTreeViewGetItemRow(tree_, MyTreeViewGetSelected(tree_)), count);
  }
}

INSTANTIATE_TEST_SUITE_P(Bars, TreeViewScrollTest, ::testing::Values(true, false));

// The rows reach the window: the selected label's box in the foreground
// colour, folder pictures in their colours, at 24 and at 8 bits.
class TreeViewPixelsTest : public TreeViewTest, public ::testing::WithParamInterface<const char *> {
 protected:
  void SetUp() override { Open(GetParam()); }
};

TEST_P(TreeViewPixelsTest, RowsAreDrawn) {
  Realize();
  Pixmap closed = 0, open = 0, none = 0;
  MyTreeViewFolderPixmaps(tree_, &closed, &open, &none);
  MyTreeViewItem *root = MyTreeViewAddItem(tree_, nullptr, True, True, closed, open, "/ [host]");
  MyTreeViewItem *a = MyTreeViewAddItem(tree_, root, True, False, closed, open, "pictures");
  MyTreeViewAddItem(tree_, root, False, False, none, XmUNSPECIFIED_PIXMAP, "locked");
  MyTreeViewSelectItem(tree_, a);
  Pump();
  if (std::getenv("QUILLA_TREEVIEW_SHOT")) {
    const std::string shot = std::string(std::getenv("QUILLA_TREEVIEW_SHOT")) + GetParam() + ".xwd";
    testutil::Run("xwd -display " + display_name_ + " -id " + std::to_string(XtWindow(shell_)) + " -out " + shot);
  }
  const int rh = MyTreeViewGetRowHeight(tree_);
  const int ht = Margin();
  XImage *img = XGetImage(dpy_, XtWindow(tree_), 0, 0, tree_->core.width, tree_->core.height, AllPlanes, ZPixmap);
  ASSERT_NE(img, nullptr);
  const Pixel fg = reinterpret_cast<MyTreeViewWidget>(tree_)->primitive.foreground;
  const Pixel bg = tree_->core.background_pixel;
  auto count = [&](int x0, int x1, int row, Pixel p) {
    int n = 0;
    for (int y = ht + row * rh + 1; y < ht + (row + 1) * rh - 1; ++y)
      for (int x = x0; x < x1 && x < img->width; ++x) n += XGetPixel(img, x, y) == p;
    return n;
  };
  const int picture_x = ht + 2 + 18 + 13;  // depth 1
  const int label_x = picture_x + 16 + 3;
  // The selected label sits on a filled box; the unselected one does not.
  EXPECT_GT(count(label_x, label_x + 40, 1, fg), 40 * (rh - 2) / 2);
  EXPECT_LT(count(label_x, label_x + 40, 2, fg), 40 * (rh - 2) / 2);
  // The folder pictures are neither background nor foreground inside.
  const int folder_y = ht + rh + (rh - 16) / 2 + 8;
  const Pixel inside = XGetPixel(img, picture_x + 8, folder_y);
  EXPECT_NE(inside, bg);
  EXPECT_NE(inside, fg);
  const Pixel locked = XGetPixel(img, picture_x + 3, ht + 2 * rh + (rh - 16) / 2 + 8);
  EXPECT_NE(locked, inside);
  EXPECT_NE(locked, bg);
  XDestroyImage(img);
  for (Pixmap p : {closed, open, none}) XFreePixmap(dpy_, p);
}

INSTANTIATE_TEST_SUITE_P(Depths, TreeViewPixelsTest,
                         ::testing::Values("QUILLA_TEST_DISPLAY", "QUILLA_TEST_DISPLAY8"));

}  // namespace
