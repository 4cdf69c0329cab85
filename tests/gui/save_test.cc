// The central save on a real X server: the conversion dialog answered with
// the keyboard (xdotool types into it), the progress dialog, the messages of
// a failed save, and the files checked with programs of their own.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <X11/Intrinsic.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/app_x.h"
#include "files/save_x.h"
#include "gui_util.h"

namespace {

using quilla::App;

std::function<void(Widget)> g_on_dialog;
void Trampoline(Widget shell) {
  if (g_on_dialog) g_on_dialog(shell);
}

bool Sensitive(Widget shell, const char *name) {
  Widget w = XtNameToWidget(shell, name);
  return w && XtIsSensitive(w);
}

bool Set(Widget shell, const char *name) {
  Widget w = XtNameToWidget(shell, name);
  return w && XmToggleButtonGetState(w);
}

class CentralSave : public guitest::GuiTest {
 protected:
  void Open(const char *env) {
    guitest::GuiTest::Open(env, true);
    if (IsSkipped()) return;
    quilla::SetDialogHook(Trampoline);
    // Message boxes are answered with Return; their texts are kept.
    g_on_dialog = [this](Widget shell) {
      std::string name = XtName(shell);
      if (name == "QuillMessage") {
        messages_.push_back(Label(shell, "*labelMessage"));
        Xdo("key --delay 10 Return", shell);
      } else if (name == "QuillSaveCnv") {
        ++asked_;
        if (on_conversion_) on_conversion_(shell);
        Xdo("key --delay 10 " + conversion_key_, shell);
      } else if (name == "QuillProgress") {
        if (progress_title_.empty()) {
          progress_title_ = Title(shell);
          progress_label_ = Label(shell, "*labelProgress");
          stop_sensitive_ = Sensitive(shell, "*buttonStop");
        }
      }
    };
  }
  void SetUp() override { Open("QUILLA_TEST_DISPLAY"); }
  void TearDown() override {
    g_on_dialog = nullptr;
    quilla::SetDialogHook(nullptr);
    App() = quilla::AppState();
  }

  int Save(const std::string &path, const TslPicture &pic, const char *format, Widget owner = nullptr) {
    return quilla::CentralSave(owner ? owner : shell_, path.c_str(), &pic, format ? tslFormatGetIndex(format) : -1);
  }

  // Saves a true-colour picture as GIF, accepting the preselected conversion
  // with Return, and reads the file back with netpbm's own decoder.
  void SaveTrueColourAsGif(const testutil::Pic &rgb, const std::string &path, Widget owner) {
    std::string label;
    std::map<int, bool> sensitive;
    bool preselected = false, focused = false;
    on_conversion_ = [&](Widget shell) {
      label = Label(shell, "*labelConvert");
      for (int i = 1; i <= 19; ++i) sensitive[i] = Sensitive(shell, ("*toggle" + std::to_string(i)).c_str());
      preselected = Set(shell, "*toggle18") && !Set(shell, "*cdither");
      focused = XmGetFocusWidget(shell) == XtNameToWidget(shell, "*toggle18");
    };
    EXPECT_EQ(quilla::CentralSave(owner, path.c_str(), &rgb.p, tslFormatGetIndex("gif")), 0);
    EXPECT_EQ(asked_, 1);
    EXPECT_EQ(label, "Convert \"" + quilla::FileNameOnly(path.c_str()) + "\"");
    EXPECT_TRUE(preselected) << "256 colours, not dithered, should be chosen";
    EXPECT_TRUE(focused) << "the keyboard should start on the chosen toggle";
    for (int i = 1; i <= 18; ++i) EXPECT_TRUE(sensitive[i]) << i;
    EXPECT_FALSE(sensitive[19]) << "GIF cannot store true colour";
    EXPECT_EQ(quilla::ShownSaveConversion(), nullptr);
    EXPECT_TRUE(messages_.empty());

    std::string info;
    ASSERT_EQ(testutil::Run("identify -format '%m %w %h' '" + path + "'", &info), 0) << info;
    EXPECT_EQ(info, "GIF 96 64");
    std::string ppm = path + ".ppm";
    ASSERT_EQ(testutil::Run("giftopnm '" + path + "' > '" + ppm + "'"), 0);
    testutil::Pic back;
    ASSERT_TRUE(testutil::ReadPnm(ppm, &back.p));
    EXPECT_LT(testutil::MeanAbsDiff(back, rgb), 6.0);  // 256 good colours for a smooth picture
  }

  std::vector<std::string> messages_;
  std::function<void(Widget)> on_conversion_;
  std::string conversion_key_ = "Return";
  int asked_ = 0;
  std::string progress_title_, progress_label_;
  bool stop_sensitive_ = true;
  testutil::Pic rgb_{testutil::MakePicture(TSL_RGB, 96, 64, 7)};
};

TEST_F(CentralSave, ConversionAskedAndAcceptedWithReturn) {
  SaveTrueColourAsGif(rgb_, dir_.file("photo.gif"), shell_);
  EXPECT_EQ(progress_title_, "Saving...");
  EXPECT_EQ(progress_label_, "Saving photo.gif");
  EXPECT_FALSE(stop_sensitive_) << "a save cannot be stopped";
  EXPECT_EQ(quilla::ShownProgress(), nullptr);
  EXPECT_EQ(quilla::BusyDepth(shell_), 0);
  EXPECT_EQ(quilla::SaveRunning(), 0);
}

TEST_F(CentralSave, EightBitScreen) {
  Open("QUILLA_TEST_DISPLAY8");
  if (IsSkipped()) return;
  SaveTrueColourAsGif(rgb_, dir_.file("eight.gif"), shell_);
}

TEST_F(CentralSave, KeysChooseAnotherConversionAndEscapeCancels) {
  // Up moves from 256 colours to "216"; Space takes it; Return accepts.
  conversion_key_ = "Up space Return";
  std::string path = dir_.file("fewer.gif");
  ASSERT_EQ(Save(path, rgb_, "gif"), 0);
  EXPECT_EQ(quilla::RememberedConversion(), 23);
  testutil::Pic back;
  ASSERT_EQ(tslLoad(path.c_str(), &back.p, nullptr), 0);
  std::set<int> used;  // GIF rounds its colour table up to 256 entries: count the ones in use
  for (uint32_t y = 0; y < back->height; ++y)
    for (uint32_t x = 0; x < back->width; ++x) used.insert(testutil::Px(back, x, y));
  EXPECT_LE(used.size(), 216u);
  EXPECT_GT(used.size(), 64u);

  conversion_key_ = "Escape";
  asked_ = 0;
  std::string never = dir_.file("never.gif");
  EXPECT_EQ(Save(never, rgb_, "gif"), 255);
  EXPECT_EQ(asked_, 1);
  EXPECT_FALSE(testutil::FileExists(never));
  EXPECT_TRUE(messages_.empty());  // cancelling is no error
  EXPECT_EQ(quilla::BusyDepth(shell_), 0);
}

TEST_F(CentralSave, KeysDuringTheSaveDoNotReachTheWindow) {
  Widget owner = XtVaCreatePopupShell("QuillView", topLevelShellWidgetClass, shell_, XmNwidth, 100, XmNheight, 80,
                                      nullptr);
  XtPopup(owner, XtGrabNone);
  int keys = 0;
  XtAddEventHandler(owner, KeyPressMask, False, [](Widget, XtPointer n, XEvent *, Boolean *) { ++*static_cast<int *>(n); },
                    &keys);
  bool typed = false;
  auto answer = g_on_dialog;
  g_on_dialog = [&](Widget shell) {
    if (!typed && std::string(XtName(shell)) == "QuillProgress") {
      typed = true;
      Xdo("key a", owner);  // a command key for the window, while the library reads its picture
    }
    answer(shell);
  };
  testutil::Pic grey(testutil::MakePicture(TSL_GREY, 200, 200, 3));
  ASSERT_EQ(Save(dir_.file("g.png"), grey, "png", owner), 0);
  EXPECT_TRUE(typed);
  EXPECT_EQ(keys, 0);
  // Once the save is over the window takes its keys again.
  Xdo("key a", owner);
  XtAppContext app = XtWidgetToApplicationContext(owner);
  for (int i = 0; i < 200 && keys == 0; ++i) {
    while (XtAppPending(app)) XtAppProcessEvent(app, XtIMAll);
    usleep(5000);
  }
  EXPECT_EQ(keys, 1);
  XtDestroyWidget(owner);
}

TEST_F(CentralSave, UnwritablePlaceKeepsTheExistingFile) {
  // A picture the format takes as it is: no question, only the error.
  testutil::Pic grey(testutil::MakePicture(TSL_GREY, 40, 30, 3));
  std::string target;
  if (geteuid() != 0) {
    std::string ro = dir_.file("ro");
    mkdir(ro.c_str(), 0755);
    target = ro + "/kept.png";
    testutil::WriteFile(target, "old contents");
    chmod(ro.c_str(), 0555);
  } else {
    // Root writes into any directory; a kernel file system is a place even
    // root cannot create files in.
    target = "/proc/version";
    quilla::Settings().Save.AddExtensionIfNotExist = false;
  }
  const std::string before = testutil::ReadFile(target);
  EXPECT_EQ(Save(target, grey, "png"), 5);
  ASSERT_EQ(messages_.size(), 1u);
  EXPECT_EQ(messages_[0], "Can't create file \n<" + target + ">");
  EXPECT_TRUE(testutil::ReadFile(target) == before);
  if (geteuid() != 0) chmod(dir_.file("ro").c_str(), 0755);

  // A directory that does not exist is no better.
  std::string missing = dir_.file("no/such/dir/x.png");
  EXPECT_EQ(Save(missing, grey, "png"), 5);
  ASSERT_EQ(messages_.size(), 2u);
  EXPECT_EQ(messages_[1], "Can't create file \n<" + missing + ">");
  EXPECT_EQ(asked_, 0);
}

TEST_F(CentralSave, ExtensionChoosesTheFormatAndIsAddedWhenMissing) {
  testutil::Pic grey(testutil::MakePicture(TSL_GREY, 40, 30, 3));
  std::string info;
  // The extension names the format.
  ASSERT_EQ(Save(dir_.file("named.png"), grey, nullptr), 0);
  ASSERT_EQ(testutil::Run("identify -format '%m' '" + dir_.file("named.png") + "'", &info), 0);
  EXPECT_EQ(info, "PNG");
  // No extension: Convert.DefaultFormat, and its extension appended.
  ASSERT_EQ(Save(dir_.file("plain"), grey, nullptr), 0);
  std::string jpeg = dir_.file("plain.") + tslFormatGetDefaultSuffix(tslFormatGetIndex("jpeg"));
  ASSERT_EQ(testutil::Run("identify -format '%m' '" + jpeg + "'", &info), 0) << jpeg;
  EXPECT_EQ(info, "JPEG");
  // A dot in a directory name counts: nothing is appended.
  std::string dotted = dir_.file("a.b");
  mkdir(dotted.c_str(), 0755);
  ASSERT_EQ(Save(dotted + "/bare", grey, "png"), 0);
  EXPECT_TRUE(testutil::FileExists(dotted + "/bare"));
  // Switched off, nothing is appended either.
  quilla::Settings().Save.AddExtensionIfNotExist = false;
  ASSERT_EQ(Save(dir_.file("raw"), grey, "png"), 0);
  EXPECT_TRUE(testutil::FileExists(dir_.file("raw")));
  EXPECT_FALSE(testutil::FileExists(dir_.file("raw.png")));
  EXPECT_TRUE(messages_.empty());
  EXPECT_EQ(asked_, 0);
}

}  // namespace
