// Multi Convert on a real X server: opened by the view's command, given its
// files, the output directory typed into it and Go pressed with Return; the
// run's progress dialog and overwrite question, and the files it writes
// compared byte for byte with what the converter makes of the script the
// dialog saves.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <X11/Intrinsic.h>
#include <Xm/TextF.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "core/app_x.h"
#include "core/settings.h"
#include "files/batch_x.h"
#include "gui_util.h"
#include "test_util.h"
#include "view/op_dialogs_x.h"
#include "view/view_hooks_x.h"
#include "widgets/MyComboBox.h"

namespace {

using namespace quilla;

using testutil::DirNames;

std::vector<std::string> g_confirms;

class BatchDialog : public guitest::GuiTest {
 protected:
  void SetUp() override {
    Open("QUILLA_TEST_DISPLAY", true);
    if (IsSkipped()) return;
    // The converter's PNG level, which the script line does not carry.
    Settings().Save.PngCompressionLevel = 6;
    std::snprintf(Settings().Convert.DefaultFormat, sizeof Settings().Convert.DefaultFormat, "png");
    Settings().Convert.Overwrite = 1;  // "Ask"
    g_confirms.clear();
    SetDialogHook([](Widget shell) {
      if (shell != ShownConfirm()) return;
      g_confirms.push_back(guitest::LabelText(shell, "*labelMessage"));
      XtCallCallbacks(XtNameToWidget(shell, "*buttonOK"), XmNactivateCallback, nullptr);
    });
  }
  void TearDown() override {
    if (!dpy_) return;
    if (Widget d = ShownMultiConvert()) XtDestroyWidget(d);
    Pump();
    SetDialogHook(nullptr);
    AdvancedProcessList().clear();
  }
  // Keys as a user types them, into the shell given the keyboard.
  void Type(Widget shell, const std::string &args) {
    Xdo(args, shell);
    Pump();
  }
  // Pictures of `model` w x h saved as `format`, numbered from `seed`.
  static void Save(const std::string &path, int model, uint32_t w, uint32_t h, uint32_t seed, const char *format) {
    testutil::Pic pic(testutil::MakePicture(model, w, h, seed));
    TslParams p;
    tslDefaultParams(&p);
    p.format = tslFormatGetIndex(format);
    p.flags = TSL_FLAG_SAVE;
    ASSERT_EQ(tslSave(path.c_str(), &pic, &p), TSL_OK);
  }
};

TEST_F(BatchDialog, MultiConvertTypedAndRunMatchesItsScriptThroughTheConverter) {
  const std::string in = dir_.file("in"), out = dir_.file("out"), by_script = dir_.file("script");
  for (const std::string &d : {in, out, by_script}) ASSERT_EQ(::mkdir(d.c_str(), 0777), 0);
  std::vector<std::string> inputs;
  for (int k = 0; k < 4; ++k) {
    inputs.push_back(in + "/pic" + std::to_string(k) + (k % 2 ? ".bmp" : ".png"));
    Save(inputs.back(), k == 3 ? TSL_GREY : TSL_RGB, 50 + k, 30, k + 3, k % 2 ? "bmp" : "png");
  }
  testutil::WriteFile(out + "/pic2.png", "old");  // asked about, and replaced
  AdvancedProcessList() = {OpDefaultProcess(OpCatalogueFind("-negate", nullptr)),
                           OpDefaultProcess(OpCatalogueFind("-xflip", nullptr))};

  ASSERT_TRUE(RunFileCommand(nullptr, owner_, "multiConvert"));
  Widget shell = ShownMultiConvert();
  ASSERT_NE(shell, nullptr);
  EXPECT_FALSE(XtIsSensitive(XtNameToWidget(shell, "*buttonRemoveAll")));  // nothing to remove yet
  EXPECT_EQ(OpenMultiConvert(owner_, inputs), shell);                     // one dialog, now with the files
  EXPECT_TRUE(XtIsSensitive(XtNameToWidget(shell, "*buttonRemove")));

  // The output directory field has the keyboard; Return is Go.
  Type(shell, "type --delay 5 '" + out + "'");
  Type(shell, "key Return");
  std::string title;
  ASSERT_TRUE(RunUntil(60000, [&] {
    if (Widget p = ShownProgress()) title = Title(p);
    return !BatchRunning();
  }));
  EXPECT_EQ(title, "Multi Converting...");
  EXPECT_EQ(g_confirms, std::vector<std::string>{"Do you want to overwrite\n<" + out + "/pic2.png> ?"});
  const std::vector<std::string> made = DirNames(out);
  EXPECT_EQ(made, (std::vector<std::string>{"pic0.png", "pic1.png", "pic2.png", "pic3.png"}));

  // The script of the same dialog, into another directory, through tesconv.
  XmTextFieldSetString(XtNameToWidget(shell, "*fncvOutputDir"), const_cast<char *>(by_script.c_str()));
  std::string error;
  const std::string script = dir_.file("convert.sh");
  ASSERT_TRUE(WriteBatchScript(shell, script, &error)) << error;
  const std::string tesconv_dir = std::string(QUILLA_BINARY_DIR) + "/tools/tesconv";
  ASSERT_EQ(testutil::Run("PATH='" + tesconv_dir + "':$PATH sh '" + script + "'"), 0);
  EXPECT_EQ(DirNames(by_script), made);
  for (const std::string &name : made)
    EXPECT_EQ(testutil::ReadFile(out + "/" + name), testutil::ReadFile(by_script + "/" + name)) << name;

  Type(shell, "key Escape");
  EXPECT_EQ(ShownMultiConvert(), nullptr);
}

// Sequence Convert typed field by field: the numbered inputs 1..3 step 2,
// the output name given the chosen format's extension, turned right.
TEST_F(BatchDialog, SequenceConvertTypedAndRun) {
  for (int n : {1, 2, 3}) {
    Save(dir_.file("scan" + std::to_string(n) + ".bmp"), TSL_RGB, 40, 20, n, "bmp");
  }
  ASSERT_TRUE(RunFileCommand(nullptr, owner_, "sequenceConvert"));
  Widget shell = ShownSeqConvert();
  ASSERT_NE(shell, nullptr);
  Widget out_file = XtNameToWidget(shell, "*fncvOutputFile"), formats = XtNameToWidget(shell, "*fncvOutputList");
  XmTextFieldSetString(out_file, const_cast<char *>("out##.bmp"));
  MyComboBoxSelectPos(formats, MyComboBoxGetSelectedPos(formats));  // PNG chosen again
  char *fixed = XmTextFieldGetString(out_file);
  EXPECT_STREQ(fixed, "out##.png");
  XtFree(fixed);
  XmToggleButtonSetState(XtNameToWidget(shell, "*fncvRotateR"), True, True);
  // The input directory has the keyboard; Tab goes on to the file name.
  Type(shell, "type --delay 5 '" + dir_.path() + "'");
  Type(shell, "key Tab");
  Type(shell, "type --delay 5 'scan#.bmp'");
  XmTextFieldSetString(XtNameToWidget(shell, "*fncvInputStart"), const_cast<char *>("1"));
  XmTextFieldSetString(XtNameToWidget(shell, "*fncvInputEnd"), const_cast<char *>("3"));
  XmTextFieldSetString(XtNameToWidget(shell, "*fncvInputStep"), const_cast<char *>("2"));
  Type(shell, "key Return");
  ASSERT_TRUE(RunUntil(60000, [] { return !BatchRunning(); }));
  EXPECT_EQ(DirNames(dir_.path()), (std::vector<std::string>{"out01.png", "out03.png", "scan1.bmp", "scan2.bmp",
                                                          "scan3.bmp"}));
  testutil::Info info;
  ASSERT_EQ(testutil::FileInfo(dir_.file("out03.png"), &info), TSL_OK);
  EXPECT_EQ(info->width, 20u);  // a quarter turn
  Type(shell, "key Escape");
  EXPECT_EQ(ShownSeqConvert(), nullptr);
}

}  // namespace
