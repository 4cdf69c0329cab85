// The file dialogs on a real X server, each along its main path and
// answered with keys typed by xdotool: copy to a directory from the view,
// delete with the confirmation, a lossless JPEG rotation from the view and
// a three-page TIFF made in the multi-page dialog.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <X11/Intrinsic.h>
#include <X11/Shell.h>
#include <Xm/Xm.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "core/app_x.h"
#include "core/display_x.h"
#include "core/settings.h"
#include "files/fileop_x.h"
#include "files/load_x.h"
#include "files/multi_model.h"
#include "files/multi_x.h"
#include "gui_util.h"
#include "test_util.h"
#include "view/view_x.h"

namespace {

using namespace quilla;

std::function<void(Widget)> g_on_dialog;
void Trampoline(Widget shell) {
  if (g_on_dialog) g_on_dialog(shell);
}

class FileDialogs : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!testutil::HaveTool("xdotool")) GTEST_SKIP() << "xdotool is needed to type into the dialogs";
    const guitest::TestServer *server = guitest::UseTestServer("QUILLA_TEST_DISPLAY");
    if (!server) GTEST_SKIP() << "QUILLA_TEST_DISPLAY not set (scripts/test starts the X servers)";
    display_ = server->name;
    dpy_ = server->dpy;
    InitVisual(dpy_, App().screen, -1, false);
    ReadSettingsFile(&Settings(), dir_.file("none.rc"));
    SetDialogHook(Trampoline);
  }
  void TearDown() override {
    if (!dpy_) return;
    g_on_dialog = nullptr;
    while (Widget s = ViewShellAt(0)) RunViewCommand(s, "close");
    SetDialogHook(nullptr);
    Pump(std::chrono::milliseconds(50));
  }

  // Runs the event loop (work procedures included) until `done` or the
  // time is up.
  bool Pump(std::chrono::milliseconds limit, const std::function<bool()> &done = nullptr) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < end) {
      if (done && done()) return true;
      XSync(dpy_, False);
      XtAppAddTimeOut(App().app, 10, [](XtPointer, XtIntervalId *) {}, nullptr);
      XtAppProcessEvent(App().app, XtIMAll);
    }
    return done && done();
  }

  // Keys and text typed into a dialog as a user would: the dialog gets the
  // keyboard and xdotool types through the server.  Tests sharing the
  // server take turns through a lock file.
  void Type(Widget shell, const std::string &text, const std::string &keys) {
    const std::string lock = "/tmp/quilla-keyboard" + display_ + ".lock";
    const int fd = open(lock.c_str(), O_CREAT | O_RDWR, 0666);
    if (fd >= 0) flock(fd, LOCK_EX);
    guitest::FocusWhenMapped(dpy_, shell);
    XWarpPointer(dpy_, 0, XtWindow(shell), 0, 0, 0, 0, 5, 5);
    XSync(dpy_, False);
    const std::string xdo = "DISPLAY=" + display_ + " xdotool ";
    if (!text.empty()) {
      EXPECT_EQ(testutil::Run(xdo + "type --delay 5 '" + text + "'"), 0);
    }
    if (!keys.empty()) {
      EXPECT_EQ(testutil::Run(xdo + "key --delay 20 " + keys), 0);
    }
    if (fd >= 0) close(fd);
  }

  std::string Picture(const std::string &path, uint32_t seed = 1) {
    TslPicture p = testutil::MakePicture(TSL_RGB, 40, 30, seed);
    testutil::WritePpm(path, p);
    tslFree(&p);
    return path;
  }

  testutil::TempDir dir_;
  std::string display_;
  Display *dpy_ = nullptr;
};

TEST_F(FileDialogs, CopyToADirectoryTypedInTheTargetDialog) {
  ASSERT_EQ(::mkdir(dir_.file("out").c_str(), 0777), 0);
  const std::string src = Picture(dir_.file("a.ppm"));
  testutil::WriteFile(dir_.file(".description"), "\"a.ppm\" the red one\n");
  std::snprintf(Settings().DirName[0], kPathSize, "%s", "/nowhere");
  Widget view = OpenViewOnFile(App().shell, src.c_str(), 0);
  ASSERT_NE(view, nullptr);
  std::vector<std::string> seen;
  std::string progress_title;
  g_on_dialog = [&](Widget shell) {
    const std::string name = XtName(shell);
    seen.push_back(name);
    if (name == "QuillFileOp") {
      EXPECT_EQ(guitest::LabelText(shell, "*dir0"), "copy");
      EXPECT_NE(XtNameToWidget(shell, "*edit4"), nullptr);
      EXPECT_NE(XtNameToWidget(shell, "*button4"), nullptr);
      // The first field has the keyboard, its text selected: typing replaces it.
      Type(shell, dir_.file("out"), "Return");
    }
  };
  RunViewCommand(view, "copyTo");
  ASSERT_TRUE(Pump(std::chrono::seconds(10), [] { return !FileOpRunning(); }));
  ASSERT_EQ(seen, std::vector<std::string>{"QuillFileOp"});
  EXPECT_EQ(testutil::ReadFile(dir_.file("out/a.ppm")), testutil::ReadFile(src));
  EXPECT_TRUE(testutil::FileExists(src));
  EXPECT_EQ(testutil::ReadFile(dir_.file("out/.description")), "\"a.ppm\" the red one\n");
  EXPECT_STREQ(Settings().DirName[0], dir_.file("out").c_str());
  EXPECT_STREQ(Settings().DirName[1], "/nowhere");
}

TEST_F(FileDialogs, DeleteAsksThenTheViewShowsTheNextFile) {
  const std::string a = Picture(dir_.file("a.ppm"), 1), b = Picture(dir_.file("b.ppm"), 2);
  auto *list = static_cast<FileListEntry *>(std::calloc(2, sizeof(FileListEntry)));
  std::snprintf(list[0].path, sizeof list[0].path, "%s", a.c_str());
  std::snprintf(list[1].path, sizeof list[1].path, "%s", b.c_str());
  Widget view = OpenViewOnList(App().shell, list, 2, 0);
  ASSERT_NE(view, nullptr);
  std::string question;
  g_on_dialog = [&](Widget shell) {
    if (shell != ShownConfirm()) return;
    question = guitest::LabelText(shell, "*labelMessage");
    Type(shell, "", "Return");
  };
  RunViewCommand(view, "delete");
  ASSERT_TRUE(Pump(std::chrono::seconds(10), [] { return !FileOpRunning(); }));
  EXPECT_EQ(question, "Delete file !! \nConfirm ?");
  EXPECT_FALSE(testutil::FileExists(a));
  ViewState state;
  ASSERT_TRUE(GetViewState(view, &state));
  EXPECT_EQ(state.path, b);
  EXPECT_EQ(state.list_count, 1);  // the gone file left the list
}

TEST_F(FileDialogs, JpegRotationFromTheViewReloadsTheTurnedFile) {
  const std::string path = dir_.file("p.jpg");
  TslPicture p = testutil::MakePicture(TSL_RGB, 64, 32, 3);
  TslParams params;
  tslDefaultParams(&params);
  params.format = tslFormatGetIndex("jpeg");
  ASSERT_EQ(tslSave(path.c_str(), &p, &params), 0);
  tslFree(&p);
  Widget view = OpenViewOnFile(App().shell, path.c_str(), 0);
  ASSERT_NE(view, nullptr);
  std::string title, warning, frame;
  g_on_dialog = [&](Widget shell) {
    if (std::string(XtName(shell)) != "QuillJpegTrans") return;
    char *t = nullptr;
    XtVaGetValues(shell, XmNtitle, &t, nullptr);
    title = t ? t : "";
    warning = guitest::LabelText(shell, "*labelWarning");
    frame = guitest::LabelText(shell, "*Tranformations");
    for (const char *name : {"*toggleButton1", "*toggleButton5", "*buttonApply", "*buttonCancel"})
      EXPECT_NE(XtNameToWidget(shell, name), nullptr) << name;
    Type(shell, "", "Return");  // Apply, with "Rotate 90 degrees (clockwise)" preset
  };
  RunViewCommand(view, "jpegTransform");
  Pump(std::chrono::milliseconds(100));
  EXPECT_EQ(title, "JPEG Lossless Transformations...");
  EXPECT_EQ(warning, "Be carefull: Transformations overwrite \noriginal files!");
  EXPECT_EQ(frame, "Tranformations");
  ViewState state;
  ASSERT_TRUE(GetViewState(view, &state));
  EXPECT_EQ(state.width, 32u);
  EXPECT_EQ(state.height, 64u);
  EXPECT_FALSE(testutil::FileExists(dir_.file("p.jp_")));
}

TEST_F(FileDialogs, MultiPageDialogCreatesAThreePageTiff) {
  ASSERT_EQ(::mkdir(dir_.file("out").c_str(), 0777), 0);
  const std::vector<std::string> files = {Picture(dir_.file("1.ppm"), 1), Picture(dir_.file("2.ppm"), 2),
                                          Picture(dir_.file("3.ppm"), 3)};
  const std::vector<int> formats = MultiPageFormats();
  const auto tiff = std::find(formats.begin(), formats.end(), tslFormatGetIndex("tiff"));
  ASSERT_NE(tiff, formats.end());
  Settings().MultFile.Format = static_cast<int32_t>(tiff - formats.begin());
  Widget shell = OpenMultiDialog(App().shell, files);
  ASSERT_NE(shell, nullptr);
  EXPECT_STREQ(XtName(shell), "QuillMulti");
  Pump(std::chrono::milliseconds(100));
  for (const char *name : {"*filelistDel", "*filelistDelAll", "*filelistUp", "*filelistDown"})
    EXPECT_TRUE(XtIsSensitive(XtNameToWidget(shell, name))) << name;
  // The directory field has the keyboard; the name is the settings' "image".
  Type(shell, dir_.file("out"), "Return");
  ASSERT_TRUE(Pump(std::chrono::seconds(10), [] { return ShownMultiDialog() == nullptr; }));
  TslFileInfo info{};
  ASSERT_EQ(tslFileInformation(dir_.file("out/image.tif").c_str(), -1, 0, &info), TSL_OK);
  EXPECT_EQ(info.pages, 3);
  tslFileInformationFree(&info);
  EXPECT_STREQ(Settings().MultFile.Directory, dir_.file("out").c_str());
}

}  // namespace
