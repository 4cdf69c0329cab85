// The file dialogs on a real X server, each along its main path and
// answered with keys typed by xdotool: copy to a directory from the view,
// delete with the confirmation, a lossless JPEG rotation from the view and
// a three-page TIFF made in the multi-page dialog.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <X11/Intrinsic.h>
#include <Xm/Xm.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "core/app_x.h"
#include "files/fileop_x.h"
#include "files/multi_model.h"
#include "files/multi_x.h"
#include "gui_util.h"
#include "view/view_x.h"

namespace {

using namespace quilla;

std::function<void(Widget)> g_on_dialog;
void Trampoline(Widget shell) {
  if (g_on_dialog) g_on_dialog(shell);
}

class FileDialogs : public guitest::GuiTest {
 protected:
  void SetUp() override {
    Open("QUILLA_TEST_DISPLAY", true);
    SetDialogHook(Trampoline);
  }
  void TearDown() override {
    if (!dpy_) return;
    g_on_dialog = nullptr;
    while (Widget s = ViewShellAt(0)) RunViewCommand(s, "close");
    SetDialogHook(nullptr);
    guitest::RunFor(50);
  }
  bool FileOpDone() { return RunUntil(10000, [] { return !FileOpRunning(); }); }
  std::string Picture(const std::string &name, uint32_t seed = 1) { return Png(name, 40, 30, TSL_RGB, seed, "ppm"); }
};

TEST_F(FileDialogs, CopyToADirectoryTypedInTheTargetDialog) {
  ASSERT_EQ(::mkdir(dir_.file("out").c_str(), 0777), 0);
  const std::string src = Picture("a.ppm");
  testutil::WriteFile(dir_.file(".description"), "\"a.ppm\" the red one\n");
  std::snprintf(Settings().DirName[0], kPathSize, "%s", "/nowhere");
  Widget view = OpenViewOnFile(App().shell, src.c_str(), 0);
  ASSERT_NE(view, nullptr);
  std::vector<std::string> seen;
  g_on_dialog = [&](Widget shell) {
    const std::string name = XtName(shell);
    seen.push_back(name);
    if (name == "QuillFileOp") {
      EXPECT_EQ(Label(shell, "*dir0"), "copy");
      EXPECT_NE(XtNameToWidget(shell, "*edit4"), nullptr);
      EXPECT_NE(XtNameToWidget(shell, "*button4"), nullptr);
      // The first field has the keyboard, its text selected: typing replaces it.
      XdoType(shell, dir_.file("out"), "Return");
    }
  };
  RunViewCommand(view, "copyTo");
  ASSERT_TRUE(FileOpDone());
  ASSERT_EQ(seen, std::vector<std::string>{"QuillFileOp"});
  EXPECT_EQ(testutil::ReadFile(dir_.file("out/a.ppm")), testutil::ReadFile(src));
  EXPECT_TRUE(testutil::FileExists(src));
  EXPECT_EQ(testutil::ReadFile(dir_.file("out/.description")), "\"a.ppm\" the red one\n");
  EXPECT_STREQ(Settings().DirName[0], dir_.file("out").c_str());
  EXPECT_STREQ(Settings().DirName[1], "/nowhere");
}

TEST_F(FileDialogs, DeleteAsksThenTheViewShowsTheNextFile) {
  const std::string a = Picture("a.ppm", 1), b = Picture("b.ppm", 2);
  auto *list = static_cast<FileListEntry *>(std::calloc(2, sizeof(FileListEntry)));
  std::snprintf(list[0].path, sizeof list[0].path, "%s", a.c_str());
  std::snprintf(list[1].path, sizeof list[1].path, "%s", b.c_str());
  Widget view = OpenViewOnList(App().shell, list, 2, 0);
  ASSERT_NE(view, nullptr);
  std::string question;
  g_on_dialog = [&](Widget shell) {
    if (shell != ShownConfirm()) return;
    question = Label(shell, "*labelMessage");
    XdoType(shell, "", "Return");
  };
  RunViewCommand(view, "delete");
  ASSERT_TRUE(FileOpDone());
  EXPECT_EQ(question, "Delete file !! \nConfirm ?");
  EXPECT_FALSE(testutil::FileExists(a));
  EXPECT_EQ(State(view).path, b);
  EXPECT_EQ(State(view).list_count, 1);  // the gone file left the list
}

TEST_F(FileDialogs, JpegRotationFromTheViewReloadsTheTurnedFile) {
  const std::string path = Png("p.jpg", 64, 32, TSL_RGB, 3, "jpeg");
  Widget view = OpenViewOnFile(App().shell, path.c_str(), 0);
  ASSERT_NE(view, nullptr);
  std::string title, warning, frame;
  g_on_dialog = [&](Widget shell) {
    if (std::string(XtName(shell)) != "QuillJpegTrans") return;
    title = Title(shell);
    warning = Label(shell, "*labelWarning");
    frame = Label(shell, "*Tranformations");
    for (const char *name : {"*toggleButton1", "*toggleButton5", "*buttonApply", "*buttonCancel"})
      EXPECT_NE(XtNameToWidget(shell, name), nullptr) << name;
    XdoType(shell, "", "Return");  // Apply, with "Rotate 90 degrees (clockwise)" preset
  };
  RunViewCommand(view, "jpegTransform");
  guitest::RunFor(100);
  EXPECT_EQ(title, "JPEG Lossless Transformations...");
  EXPECT_EQ(warning, "Be carefull: Transformations overwrite \noriginal files!");
  EXPECT_EQ(frame, "Tranformations");
  EXPECT_EQ(State(view).width, 32u);
  EXPECT_EQ(State(view).height, 64u);
  EXPECT_FALSE(testutil::FileExists(dir_.file("p.jp_")));
}

TEST_F(FileDialogs, MultiPageDialogCreatesAThreePageTiff) {
  ASSERT_EQ(::mkdir(dir_.file("out").c_str(), 0777), 0);
  const std::vector<std::string> files = {Picture("1.ppm", 1), Picture("2.ppm", 2),
                                          Picture("3.ppm", 3)};
  const std::vector<int> formats = MultiPageFormats();
  const auto tiff = std::find(formats.begin(), formats.end(), tslFormatGetIndex("tiff"));
  ASSERT_NE(tiff, formats.end());
  Settings().MultFile.Format = static_cast<int32_t>(tiff - formats.begin());
  Widget shell = OpenMultiDialog(App().shell, files);
  ASSERT_NE(shell, nullptr);
  EXPECT_STREQ(XtName(shell), "QuillMulti");
  guitest::RunFor(100);
  for (const char *name : {"*filelistDel", "*filelistDelAll", "*filelistUp", "*filelistDown"})
    EXPECT_TRUE(XtIsSensitive(XtNameToWidget(shell, name))) << name;
  // The directory field has the keyboard; the name is the settings' "image".
  XdoType(shell, dir_.file("out"), "Return");
  ASSERT_TRUE(RunUntil(10000, [] { return ShownMultiDialog() == nullptr; }));
  TslFileInfo info{};
  ASSERT_EQ(tslFileInformation(dir_.file("out/image.tif").c_str(), -1, 0, &info), TSL_OK);
  EXPECT_EQ(info.pages, 3);
  tslFileInformationFree(&info);
  EXPECT_STREQ(Settings().MultFile.Directory, dir_.file("out").c_str());
}

}  // namespace
