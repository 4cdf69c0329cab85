// Command lines for /bin/sh: hostile names pass through a real shell as one
// argument each, and the browser launch runs the user's command on exactly
// the address.
#include "core/shell_command.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "test_util.h"

namespace quilla {
namespace {

const char *const kHostile[] = {
    "",          "plain",           "two words",        "it's",          "''",        "'\\''",
    "$(touch PWNED)", "`touch PWNED`", "a; touch PWNED", "a && touch PWNED #", "a\nb",  "back\\slash",
    "\"double\"", "-n",              "*",                "~",             "$HOME",     "a|b>c<d&e",
};

TEST(ShellQuote, EveryNameReachesTheShellAsOneWordUnchanged) {
  testutil::TempDir dir;
  for (const std::string text : kHostile) {
    std::string out;
    // printf prints its one argument between the brackets; a split word
    // would repeat the format.
    const std::string cmd = "cd " + ShellQuote(dir.path()) + " && printf '[%s]' " + ShellQuote(text);
    ASSERT_EQ(testutil::Run(cmd, &out), 0) << text;
    EXPECT_EQ(out, "[" + text + "]");
  }
  EXPECT_FALSE(testutil::FileExists(dir.file("PWNED")));
}

// A browser script that writes its arguments, one a line, then renames
// the file into place so the test never reads half of it.
class BrowserLaunch : public ::testing::Test {
 protected:
  void SetUp() override {
    testutil::WriteFile(script_, "#!/bin/sh\nfor a; do printf '%s\\n' \"$a\"; done > " + ShellQuote(args_ + ".tmp") +
                                     " && mv " + ShellQuote(args_ + ".tmp") + " " + ShellQuote(args_) + "\n");
    ASSERT_EQ(::chmod(script_.c_str(), 0755), 0);
  }
  // Runs the launch line and waits for the browser to report.
  std::string Launch(const std::string &address, bool mail) {
    std::remove(args_.c_str());
    const std::string line = BrowserLaunchLine(WebBrowserCommand(), address, mail);
    EXPECT_EQ(line.substr(line.size() - 2), " &");
    EXPECT_EQ(std::system(("cd " + ShellQuote(dir_.path()) + " && " + line).c_str()), 0);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!testutil::FileExists(args_) && std::chrono::steady_clock::now() < end)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return testutil::ReadFile(args_);
  }
  testutil::TempDir dir_;
  std::string script_ = dir_.file("my browser"), args_ = dir_.file("args");
};

TEST_F(BrowserLaunch, TheAddressIsOneArgumentAndNothingElseRuns) {
  ::setenv("WEBBROWSER", ShellQuote(script_).c_str(), 1);
  EXPECT_EQ(Launch("https://example.org/a b?q='x'&r=$(touch PWNED)", false),
            "https://example.org/a b?q='x'&r=$(touch PWNED)\n");
  EXPECT_EQ(Launch("me@example.org'; touch PWNED; '", true), "-remote\nmailto(me@example.org'; touch PWNED; ')\n");
  EXPECT_FALSE(testutil::FileExists(dir_.file("PWNED")));
  // The user's command is used as written, with its own arguments.
  ::setenv("WEBBROWSER", (ShellQuote(script_) + " --new-window").c_str(), 1);
  EXPECT_EQ(Launch("http://x/", false), "--new-window\nhttp://x/\n");
  ::unsetenv("WEBBROWSER");
}

TEST(WebBrowserCommand, EmptyOrUnsetGivesTheDefault) {
  ::unsetenv("WEBBROWSER");
  EXPECT_EQ(WebBrowserCommand(), "netscape");
  ::setenv("WEBBROWSER", "", 1);
  EXPECT_EQ(WebBrowserCommand(), "netscape");
  ::setenv("WEBBROWSER", "firefox -P x", 1);
  EXPECT_EQ(WebBrowserCommand(), "firefox -P x");
  ::unsetenv("WEBBROWSER");
}

}  // namespace
}  // namespace quilla
