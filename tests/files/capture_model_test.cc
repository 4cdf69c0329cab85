// Screen capture without a display: the window list from a tree, ids read
// back from its lines, the xwd arguments, and running without a shell.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "files/capture_model.h"
#include "test_util.h"

namespace quilla {
namespace {

CaptureWindow Win(uint32_t id, const char *name, bool viewable = true, bool input_only = false,
                  std::vector<CaptureWindow> children = {}) {
  CaptureWindow w;
  w.id = id;
  w.has_name = name != nullptr;
  w.name = name ? name : "";
  w.viewable = viewable;
  w.input_only = input_only;
  w.children = std::move(children);
  return w;
}

TEST(CaptureList, DepthFirstOnlyNamedViewableOutputWindows) {
  const CaptureWindow root =
      Win(0x25, nullptr, true, false,
          {Win(0x1a0000d, "a (b)", true, false, {Win(0x1a0000e, "inner"), Win(0x1a0000f, "hidden", false)}),
           Win(0x200001, "input", true, true), Win(0x200002, nullptr), Win(0x300000, "", true, false,
                                                                           {Win(0x300001, "deep")})});
  const std::vector<std::string> lines = CaptureWindowList(root);
  EXPECT_EQ(lines, (std::vector<std::string>{"a (b) (1a0000d)", "inner (1a0000e)", " (300000)", "deep (300001)"}));
  uint32_t id = 0;
  ASSERT_TRUE(WindowIdFromLine(lines[0], &id));
  EXPECT_EQ(id, 0x1a0000du);
  EXPECT_FALSE(WindowIdFromLine("no parenthesis", &id));
  EXPECT_FALSE(WindowIdFromLine("x (zz)", &id));
  EXPECT_FALSE(WindowIdFromLine("x (-1)", &id));
  EXPECT_FALSE(WindowIdFromLine("x (123456789a)", &id));
}

TEST(CaptureCommand, ArgumentsPerMode) {
  const uint32_t id = 0xabc;
  EXPECT_EQ(CaptureArguments(CaptureMode::kSingle, true, nullptr, "/t/o"),
            (std::vector<std::string>{"xwd", "-silent", "-frame", "-out", "/t/o"}));
  EXPECT_EQ(CaptureArguments(CaptureMode::kSingle, false, nullptr, "/t/o"),
            (std::vector<std::string>{"xwd", "-silent", "-nobdrs", "-out", "/t/o"}));
  EXPECT_EQ(CaptureArguments(CaptureMode::kDesktop, true, nullptr, "/t/o"),
            (std::vector<std::string>{"xwd", "-root", "-out", "/t/o"}));
  EXPECT_EQ(CaptureArguments(CaptureMode::kSelect, false, &id, "/t/o"),
            (std::vector<std::string>{"xwd", "-silent", "-nobdrs", "-id", "0xabc", "-out", "/t/o"}));
  EXPECT_TRUE(CaptureArguments(CaptureMode::kSelect, false, nullptr, "/t/o").empty());
}

TEST(CaptureCommand, RunsWithoutAShell) {
  testutil::TempDir dir;
  // Words a shell would act on reach the program untouched.
  const std::string odd = dir.file("a b; touch pwned `touch pwned` $(x) '\"");
  EXPECT_EQ(RunAndWait({"touch", odd}), 0);
  EXPECT_TRUE(testutil::FileExists(odd));
  EXPECT_FALSE(testutil::FileExists(dir.file("pwned")));
  EXPECT_FALSE(testutil::FileExists("pwned"));
  EXPECT_EQ(RunAndWait({"sh", "-c", "exit 3"}), 3);
  EXPECT_EQ(RunAndWait({"no-such-program-here"}), 127);
  EXPECT_EQ(RunAndWait({}), -1);
  const std::string file = MakeCaptureFile();
  ASSERT_FALSE(file.empty());
  EXPECT_TRUE(testutil::FileExists(file));
  ::unlink(file.c_str());
}

}  // namespace
}  // namespace quilla
