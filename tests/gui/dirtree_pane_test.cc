// The browser's directory pane on a real X server and real directories, with
// a mount table of the test's own: following a path, the user's choice, and
// an NFS point that is shown but not looked into until it is expanded.
#include <gtest/gtest.h>

#include <X11/Intrinsic.h>
#include <X11/StringDefs.h>
#include <Xm/Xm.h>
#include <sys/stat.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "browser/dirtree_x.h"
#include "recording_fs.h"
#include "test_util.h"

namespace {

class DirTreePaneTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char *name = std::getenv("QUILLA_TEST_DISPLAY");
    if (!name) GTEST_SKIP() << "QUILLA_TEST_DISPLAY is not set (scripts/test starts the servers)";
    // One display for the whole run, as in the program (Motif keeps fonts
    // per display).
    static XtAppContext app = nullptr;
    static Display *dpy = nullptr;
    if (!dpy) {
      XtToolkitInitialize();
      app = XtCreateApplicationContext();
      int argc = 0;
      dpy = XtOpenDisplay(app, name, "test", "Quilla", nullptr, 0, &argc, nullptr);
      ASSERT_NE(dpy, nullptr) << "cannot open " << name;
    }
    app_ = app;
    dpy_ = dpy;
    shell_ = XtVaAppCreateShell("test", "Quilla", applicationShellWidgetClass, dpy_, XmNwidth, 300, XmNheight, 300,
                                nullptr);
    base_ = tmp_.path();
    for (const char *d : {"alpha", "alpha/sub", "alpha/sub/deep", "beta", "nfs", "nfs/inside"})
      ASSERT_EQ(::mkdir((base_ + "/" + d).c_str(), 0755), 0) << d;
    testutil::WriteFile(base_ + "/mtab", "server:/export " + base_ + "/nfs nfs rw 0 0\n");
    pane_ = std::make_unique<quilla::DirTreePane>(shell_, base_ + "/mtab", &fs_);
    pane_->on_select = [this](const std::string &path) { chosen_.push_back(path); };
    XtRealizeWidget(shell_);
    Pump();
  }
  void TearDown() override {
    pane_.reset();
    if (shell_) XtDestroyWidget(shell_);
    if (dpy_) Pump();
  }
  void Pump() {
    XSync(dpy_, False);
    while (XtAppPending(app_)) XtAppProcessEvent(app_, XtIMAll);
  }
  Widget Tree() { return pane_->tree(); }
  MyTreeViewItem *Child(MyTreeViewItem *item, const std::string &name) { return pane_->ChildNamed(item, name); }

  testutil::TempDir tmp_;
  testutil::RecordingFs fs_;
  std::string base_;
  XtAppContext app_ = nullptr;
  Display *dpy_ = nullptr;
  Widget shell_ = nullptr;
  std::unique_ptr<quilla::DirTreePane> pane_;
  std::vector<std::string> chosen_;
};

TEST_F(DirTreePaneTest, ShowFollowsThePathAndTheUserChooses) {
  pane_->Show(base_ + "/alpha/sub/");
  Pump();
  MyTreeViewItem *sub = MyTreeViewGetSelected(Tree());
  ASSERT_NE(sub, nullptr);
  EXPECT_EQ(pane_->PathOf(sub), base_ + "/alpha/sub");
  EXPECT_TRUE(chosen_.empty());  // following the browser is no choice
  char *label = MyTreeViewGetString(Tree(), MyTreeViewGetRoot(Tree()));
  EXPECT_EQ(std::string(label).substr(0, 3), "/ [");
  XtFree(label);
  for (MyTreeViewItem *i = sub; i; i = MyTreeViewGetParent(Tree(), i))
    EXPECT_TRUE(MyTreeViewIsExpanded(Tree(), i)) << pane_->PathOf(i);
  EXPECT_NE(Child(sub, "deep"), nullptr);

  // The NFS point shows, expandable, and nothing looked into it.
  MyTreeViewItem *base = MyTreeViewGetParent(Tree(), MyTreeViewGetParent(Tree(), sub));
  MyTreeViewItem *nfs = Child(base, "nfs");
  ASSERT_NE(nfs, nullptr);
  EXPECT_EQ(fs_.TouchedUnder(base_ + "/nfs"), std::vector<std::string>{});
  MyTreeViewSelectItem(Tree(), Child(base, "beta"));
  EXPECT_EQ(chosen_, std::vector<std::string>{base_ + "/beta"});
  // Expanded by the user, it is read then.
  MyTreeViewExpandItem(Tree(), nfs, True);
  EXPECT_NE(Child(nfs, "inside"), nullptr);
  EXPECT_FALSE(fs_.TouchedUnder(base_ + "/nfs").empty());
}

TEST_F(DirTreePaneTest, ShowFindsADirectoryMadeSinceItsParentWasRead) {
  pane_->Show(base_ + "/beta");
  ASSERT_EQ(::mkdir((base_ + "/gamma").c_str(), 0755), 0);
  pane_->Show(base_ + "/gamma");
  EXPECT_EQ(pane_->PathOf(MyTreeViewGetSelected(Tree())), base_ + "/gamma");
  // A path that does not exist stops at its deepest directory shown.
  pane_->Show(base_ + "/alpha/missing");
  EXPECT_EQ(pane_->PathOf(MyTreeViewGetSelected(Tree())), base_ + "/alpha");
  EXPECT_TRUE(chosen_.empty());
}

}  // namespace
