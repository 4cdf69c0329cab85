// The quilla program as a user starts it: the built binary runs as a child
// process against the test X servers (QUILLA_TEST_DISPLAY, 24-bit, and
// QUILLA_TEST_DISPLAY8, 8-bit), with -ini naming a settings file in a
// temporary directory and HOME pointing there too.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "core/icon.h"
#include "core/settings.h"
#include "gui_util.h"
#include "test_util.h"

namespace {

using namespace quilla;

const char kNoServer[] = "QUILLA_TEST_DISPLAY not set (scripts/test starts the X servers)";

const char *TestDisplay(const char *env) {
  const char *d = std::getenv(env);
  return d && *d ? d : nullptr;
}

bool Poll(const std::function<bool()> &done, double seconds, const std::function<void()> &step) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!done() && std::chrono::steady_clock::now() < end) step();
  return done();
}

// The program as a child process, its standard output and error read through
// pipes.  Killed at scope end when still running.
class Child {
 public:
  Child(const std::vector<std::string> &args, const std::vector<std::string> &env) {
    int out[2], err[2];
    if (pipe(out) != 0 || pipe(err) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);  // never outlive a test that died
      dup2(out[1], 1);
      dup2(err[1], 2);
      for (const std::string &e : env) putenv(strdup(e.c_str()));
      std::vector<char *> argv = {const_cast<char *>(QUILLA_BINARY_DIR "/quilla")};
      for (const std::string &a : args) argv.push_back(const_cast<char *>(a.c_str()));
      argv.push_back(nullptr);
      execv(argv[0], argv.data());
      _exit(127);
    }
    close(out[1]);
    close(err[1]);
    fds_[0] = out[0];
    fds_[1] = err[0];
  }
  ~Child() {
    if (pid_ > 0 && !exited_) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    for (int fd : fds_) close(fd);
  }
  // Reads what comes within `ms` milliseconds.
  void Pump(int ms = 20) {
    pollfd p[2] = {{fds_[0], POLLIN, 0}, {fds_[1], POLLIN, 0}};
    if (poll(p, 2, ms) <= 0) return;
    for (int i = 0; i < 2; ++i) {
      char buf[4096];
      ssize_t n = (p[i].revents & (POLLIN | POLLHUP)) ? read(fds_[i], buf, sizeof buf) : 0;
      if (n > 0) (i == 0 ? out : err).append(buf, static_cast<size_t>(n));
    }
  }
  bool WaitFor(const std::function<bool()> &done, double seconds) {
    return Poll(done, seconds, [this] { Pump(); });
  }
  bool WaitOutput(const std::string &text) {
    return WaitFor([&] { return out.find(text) != std::string::npos; }, 10);
  }
  // Exit status (128 + signal when killed), or -1 when not ended in time.
  int WaitExit(double seconds = 10) {
    if (!WaitFor([&] { return exited_ || (exited_ = waitpid(pid_, &status_, WNOHANG) == pid_); }, seconds))
      return -1;
    for (int i = 0; i < 10; ++i) Pump(5);  // the rest of the output
    return WIFEXITED(status_) ? WEXITSTATUS(status_) : 128 + WTERMSIG(status_);
  }
  pid_t pid() const { return pid_; }
  std::string out, err;

 private:
  pid_t pid_ = -1;
  int fds_[2] = {-1, -1};
  int status_ = 0;
  bool exited_ = false;
};

// X errors (a window gone away under us) are ignored in its scope.
class IgnoreXErrors {
 public:
  explicit IgnoreXErrors(Display *dpy) : dpy_(dpy) {
    XSync(dpy_, False);
    previous_ = XSetErrorHandler([](Display *, XErrorEvent *) { return 0; });
  }
  ~IgnoreXErrors() {
    XSync(dpy_, False);
    XSetErrorHandler(previous_);
  }

 private:
  Display *dpy_;
  XErrorHandler previous_;
};

std::string Property(Display *dpy, Window w, Atom prop) {
  Atom type;
  int format;
  unsigned long n, after;
  unsigned char *data = nullptr;
  std::string s;
  if (XGetWindowProperty(dpy, w, prop, 0, 4096, False, AnyPropertyType, &type, &format, &n, &after, &data) ==
          Success && data)
    s.assign(reinterpret_cast<char *>(data), n * (format == 32 ? sizeof(long) : format / 8));  // longs for 32
  if (data) XFree(data);
  return s;
}

class Startup : public ::testing::Test {
 protected:
  // Connects to the server named by `env`; false when the variable is unset.
  bool Open(const char *env) {
    if (dpy_) XCloseDisplay(dpy_);
    dpy_ = nullptr;
    if (!(name_ = TestDisplay(env))) return false;
    dpy_ = XOpenDisplay(name_);
    EXPECT_NE(dpy_, nullptr) << name_;
    ::mkdir(tmp_.file("home").c_str(), 0700);
    return dpy_ != nullptr;
  }
  void TearDown() override {
    if (dpy_) XCloseDisplay(dpy_);
  }
  std::vector<std::string> Env() const {
    return {std::string("DISPLAY=") + name_, "HOME=" + tmp_.file("home"), "LC_ALL=C"};
  }
  // The viewable top-level window whose WM_CLASS instance is `res_name`, of
  // the program whose command line holds our settings path (tests may run
  // side by side on one server): its client leader, the application shell,
  // carries WM_COMMAND.
  Window FindWindow(const char *res_name, Window *leader_out = nullptr) {
    IgnoreXErrors guard(dpy_);  // other clients' windows come and go
    Window root = DefaultRootWindow(dpy_), parent, *kids = nullptr, found = 0;
    unsigned n = 0;
    if (!XQueryTree(dpy_, root, &root, &parent, &kids, &n)) return 0;
    for (unsigned i = 0; i < n && !found; ++i) {
      XClassHint hint;
      if (!XGetClassHint(dpy_, kids[i], &hint)) continue;
      const bool named = std::string(hint.res_name) == res_name;
      XFree(hint.res_name);
      XFree(hint.res_class);
      XWindowAttributes wa;
      if (!named || !XGetWindowAttributes(dpy_, kids[i], &wa) || wa.map_state != IsViewable) continue;
      const std::string leader = Property(dpy_, kids[i], XInternAtom(dpy_, "WM_CLIENT_LEADER", False));
      if (leader.size() < sizeof(long)) continue;
      const Window lw = static_cast<Window>(*reinterpret_cast<const long *>(leader.data()));
      if (Property(dpy_, lw, XA_WM_COMMAND).find(ini_) == std::string::npos) continue;
      found = kids[i];
      if (leader_out) *leader_out = lw;
    }
    if (kids) XFree(kids);
    return found;
  }
  Window WaitWindow(Child &c, const char *res_name = "QuillInit", Window *leader = nullptr) {
    Window w = 0;
    c.WaitFor([&] { return (w = FindWindow(res_name, leader)) != 0; }, 20);
    return w;
  }
  // A key press and release sent to a top-level window; the toolkit passes
  // them on to the widget with the keyboard focus.
  void SendKey(Window w, KeySym sym, unsigned state) {
    IgnoreXErrors guard(dpy_);
    guitest::SendKey(dpy_, w, sym, state);
  }

  const char *name_ = nullptr;
  Display *dpy_ = nullptr;
  testutil::TempDir tmp_;
  const std::string ini_ = tmp_.file("rc");
};

TEST_F(Startup, HelpListsTheServersVisuals) {
  for (const char *env : {"QUILLA_TEST_DISPLAY8", "QUILLA_TEST_DISPLAY"}) {
    if (!Open(env)) continue;
    static const char *const kClass[] = {"StaticGray",  "GrayScale", "StaticColor",
                                         "PseudoColor", "TrueColor", "DirectColor"};
    XVisualInfo templ;
    templ.screen = DefaultScreen(dpy_);
    int n = 0;
    XVisualInfo *v = XGetVisualInfo(dpy_, VisualScreenMask, &templ, &n);
    ASSERT_GT(n, 0);
    std::string expected = "          -visualid <id> : Use this visual number\n              Visual available : \n";
    for (int i = 0; i < n; ++i) {
      char line[128];
      snprintf(line, sizeof line, "                0x%x : %-15s / % 2d planes\n",
               static_cast<unsigned>(v[i].visualid), kClass[v[i].c_class], v[i].depth);
      expected += line;
    }
    XFree(v);
    expected += "          -own           : Use own colormap (8 bits only)\n";
    for (const char *opt : {"-h", "-help"}) {
      Child c({opt}, Env());
      ASSERT_EQ(c.WaitExit(20), 0) << env << " " << opt << c.err;
      EXPECT_EQ(c.out.rfind("** ", 0), 0u);
      EXPECT_NE(c.out.find("\nUsage : " QUILLA_BINARY_DIR "/quilla [options] file ...\n        Options :\n" +
                           expected),
                std::string::npos)
          << c.out;
      const std::string last = "          -fi            : Force \"Fit to Image\"\n";
      EXPECT_EQ(c.out.substr(c.out.size() - last.size()), last);
    }
  }
  if (!name_) GTEST_SKIP() << kNoServer;
}

TEST_F(Startup, HelpWithoutServerSaysSoAndFails) {
  if (!Open("QUILLA_TEST_DISPLAY")) GTEST_SKIP() << kNoServer;
  std::string closed;  // a display with no server behind it
  for (int d = 4000; d < 4100 && closed.empty(); ++d) {
    Display *probe = XOpenDisplay((":" + std::to_string(d)).c_str());
    if (probe)
      XCloseDisplay(probe);
    else
      closed = ":" + std::to_string(d);
  }
  Child c({"-h"}, {"DISPLAY=" + closed});
  EXPECT_EQ(c.WaitExit(), 1);
  EXPECT_NE(c.err.find("Can't open X Server : " + closed + "\n"), std::string::npos) << c.err;
}

// On nothing, and on a file that does not exist (once the view's message box
// is acknowledged): the start window, with the icon drawn into its pixmap,
// and the application shell kept unmapped.
TEST_F(Startup, StartWindowOnNothingAndOnAMissingFileWithTheIcon) {
  for (const char *env : {"QUILLA_TEST_DISPLAY8", "QUILLA_TEST_DISPLAY"}) {
    if (!Open(env)) continue;
    for (bool missing : {false, true}) {
      SCOPED_TRACE(std::string(env) + (missing ? " missing file" : " no file"));
      std::vector<std::string> args = {"-ini", ini_};
      if (missing) args.push_back(tmp_.file("no-such-picture.png"));
      Child c(args, Env());
      if (missing) {
        const Window message = WaitWindow(c, "QuillMessage");
        ASSERT_NE(message, 0u) << c.err;
        // No window manager gives the box the keyboard focus: we do.
        for (int i = 0; i < 20 && FindWindow("QuillMessage") == message; ++i) {
          {
            IgnoreXErrors guard(dpy_);
            XSetInputFocus(dpy_, message, RevertToPointerRoot, CurrentTime);
          }
          SendKey(message, XK_Return, 0);
          c.WaitFor([&] { return FindWindow("QuillMessage") != message; }, 0.5);
        }
      }
      Window leader = 0;
      const Window w = WaitWindow(c, "QuillInit", &leader);
      ASSERT_NE(w, 0u) << c.out << c.err;
      EXPECT_EQ(Property(dpy_, w, XA_WM_NAME), "Quilla v1.50");
      EXPECT_NE(c.out.find("\n     Type " QUILLA_BINARY_DIR "/quilla -help, for more information\n"),
                std::string::npos);
      XWindowAttributes wa;
      ASSERT_TRUE(XGetWindowAttributes(dpy_, leader, &wa));
      EXPECT_NE(wa.map_state, IsViewable);

      XWMHints *hints = XGetWMHints(dpy_, w);
      ASSERT_TRUE(hints && (hints->flags & IconPixmapHint));
      const Pixmap pix = hints->icon_pixmap;
      XFree(hints);
      XIconSize *sizes = nullptr;
      int count = 0;
      std::vector<IconSizeRange> ranges;
      if (XGetIconSizes(dpy_, DefaultRootWindow(dpy_), &sizes, &count)) {
        for (int i = 0; i < count; ++i)
          ranges.push_back({sizes[i].min_width, sizes[i].min_height, sizes[i].max_width, sizes[i].max_height});
        XFree(sizes);
      }
      size_t size = 0;
      const unsigned char *data = ChooseIconSize(ranges) == 64 ? Icon64Data(&size) : Icon32Data(&size);
      IconImage icon;
      ASSERT_TRUE(ParseIcon(data, size, &icon));
      std::vector<size_t> colour(static_cast<size_t>(icon.width * icon.height), 0);  // blank: the first
      for (size_t k = 0; k < icon.colours.size(); ++k)
        for (const IconPoint &p : icon.colours[k].points) colour[p.y * icon.width + p.x] = k;
      XImage *im = XGetImage(dpy_, pix, 0, 0, icon.width, icon.height, AllPlanes, ZPixmap);
      ASSERT_NE(im, nullptr);
      // An 8-bit server gives the nearest colour it has.
      const int tolerance = DefaultDepth(dpy_, DefaultScreen(dpy_)) >= 24 ? 0 : 64;
      int wrong = 0;
      for (int y = 0; y < icon.height; ++y)
        for (int x = 0; x < icon.width; ++x) {
          XColor got;
          got.pixel = XGetPixel(im, x, y);
          XQueryColor(dpy_, DefaultColormap(dpy_, DefaultScreen(dpy_)), &got);
          const IconColour &want = icon.colours[colour[y * icon.width + x]];
          wrong += std::abs((got.red >> 8) - want.red) > tolerance ||
                   std::abs((got.green >> 8) - want.green) > tolerance ||
                   std::abs((got.blue >> 8) - want.blue) > tolerance;
        }
      XDestroyImage(im);
      EXPECT_EQ(wrong, 0);
    }
  }
  if (!name_) GTEST_SKIP() << kNoServer;
}

TEST_F(Startup, ThreeInterruptsEndWithoutSaving) {
  if (!Open("QUILLA_TEST_DISPLAY")) GTEST_SKIP() << kNoServer;
  testutil::WriteFile(ini_, "Save.JpegQuality = 42\n");
  Child c({"-ini", ini_}, Env());
  ASSERT_NE(WaitWindow(c), 0u) << c.err;  // the handlers are in place by now
  kill(c.pid(), SIGINT);
  ASSERT_TRUE(c.WaitOutput("****** Hit 2 Ctrl+C for exiting without saving ******\n")) << c.out;
  kill(c.pid(), SIGINT);
  ASSERT_TRUE(c.WaitOutput("****** Hit 1 Ctrl+C for exiting without saving ******\n")) << c.out;
  kill(c.pid(), SIGINT);
  EXPECT_EQ(c.WaitExit(), 1);
  EXPECT_EQ(c.out.substr(c.out.find("******")),
            "****** Interrupt detected ******\n****** Hit 2 Ctrl+C for exiting without saving ******\n"
            "****** Interrupt detected ******\n****** Hit 1 Ctrl+C for exiting without saving ******\n"
            "****** Interrupt detected ******\n");
  EXPECT_EQ(testutil::ReadFile(ini_), "Save.JpegQuality = 42\n");
}

// Ctrl+Q and the window manager's close both quit writing the settings file
// that was read: a known value survives, -fi forces View.Fit, keys absent
// from the file get their defaults.
TEST_F(Startup, CtrlQOrClosingTheStartWindowQuitsWritingTheSettings) {
  if (!Open("QUILLA_TEST_DISPLAY")) GTEST_SKIP() << kNoServer;
  for (bool close : {false, true}) {
    SCOPED_TRACE(close ? "close" : "Ctrl+Q");
    testutil::WriteFile(ini_, "Save.JpegQuality = 42\nView.Fit = 3\n");
    Child c({"-fi", "-ini", ini_}, Env());
    const Window w = WaitWindow(c);
    ASSERT_NE(w, 0u) << c.err;
    if (!close) {
      SendKey(w, XK_q, ControlMask);
    } else {
      XEvent ev{};
      ev.xclient.type = ClientMessage;
      ev.xclient.window = w;
      ev.xclient.message_type = XInternAtom(dpy_, "WM_PROTOCOLS", False);
      ev.xclient.format = 32;
      ev.xclient.data.l[0] = static_cast<long>(XInternAtom(dpy_, "WM_DELETE_WINDOW", False));
      XSendEvent(dpy_, w, False, NoEventMask, &ev);
      XFlush(dpy_);
    }
    EXPECT_EQ(c.WaitExit(), 0) << c.err;
    const std::string text = testutil::ReadFile(ini_);
    for (const char *line : {"\nSave.JpegQuality = 42\n", "\nView.Fit = 1\n", "\nSlide.Timer = 5\n",
                             "\nContactSheet.Width = 1000\n"})
      EXPECT_NE(text.find(line), std::string::npos) << line;
  }
}

// Settings files of garbage: the program starts, shows the picture it was
// given, and at Ctrl+Q writes a settings file that reads back to itself.
TEST_F(Startup, GarbageSettingsFilesStillStartAndAreWrittenValid) {
  if (!Open("QUILLA_TEST_DISPLAY")) GTEST_SKIP() << kNoServer;
  std::string random(5000, '\0');
  uint32_t x = 7;
  for (char &ch : random) ch = static_cast<char>((x = x * 1103515245 + 12345) >> 16);
  const std::pair<const char *, std::string> cases[] = {
      {"random bytes", random},
      {"long lines", "View.Fit = " + std::string(10000, '9') + "\n" + std::string(10000, 'v') + "\n"},
      {"zeros", std::string(8192, '\0')},
      {"huge numbers", "View.Fit = 99999999999999999999\nSave.JpegQuality = -99999999999\n"
                       "Start.ToolbarViewConfig = 0xffffffffffffffff\nSlide.Timer = 1e999\n"},
  };
  TslPicture pic{};
  ASSERT_TRUE(tslAllock(&pic, TSL_RGB, 0, 64, 48));
  TslParams params;
  tslDefaultParams(&params);
  params.format = tslFormatGetIndex("ppm");
  const std::string picture = tmp_.file("p.ppm");
  ASSERT_EQ(tslSave(picture.c_str(), &pic, &params), 0);
  tslFree(&pic);
  for (const auto &[what, text] : cases) {
    SCOPED_TRACE(what);
    testutil::WriteFile(ini_, text);
    Child c({"-ini", ini_, picture}, Env());
    const Window w = WaitWindow(c, "QuillView");
    ASSERT_NE(w, 0u) << c.err;
    SendKey(w, XK_q, ControlMask);
    EXPECT_EQ(c.WaitExit(), 0) << c.err;
    // What was written reads back and writes the same bytes again.
    const std::string written = testutil::ReadFile(ini_);
    EXPECT_NE(written.find("\nView.Fit = "), std::string::npos);
    quilla::SettingsRecord again{};
    quilla::ReadSettingsFile(&again, ini_);
    const std::string copy = tmp_.file("again.rc");
    ASSERT_TRUE(quilla::WriteSettingsFile(&again, copy));
    EXPECT_EQ(testutil::ReadFile(copy), written);
  }
}

}  // namespace
