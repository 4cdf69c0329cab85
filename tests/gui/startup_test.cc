// The quilla program as a user starts it: the built binary runs as a child
// process against the test X servers (QUILLA_TEST_DISPLAY, 24-bit, and
// QUILLA_TEST_DISPLAY8, 8-bit), with -ini naming a settings file in a
// temporary directory and HOME pointing there too.  The About box is tested
// in this process.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <X11/Intrinsic.h>
#include <X11/Xatom.h>
#include <X11/keysym.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <Xm/Xm.h>

#include <fcntl.h>
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

#include "core/app_x.h"
#include "core/icon.h"
#include "core/icon_x.h"
#include "test_util.h"

namespace {

using namespace quilla;
using Clock = std::chrono::steady_clock;

const char *TestDisplay(const char *env) {
  const char *d = std::getenv(env);
  return d && *d ? d : nullptr;
}

// The program as a child process with its standard output and error read
// through pipes.  Killed at scope end when still running.
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
      std::vector<char *> argv;
      std::string bin = QUILLA_BINARY_DIR "/quilla";
      argv.push_back(&bin[0]);
      for (const std::string &a : args) argv.push_back(const_cast<char *>(a.c_str()));
      argv.push_back(nullptr);
      execv(bin.c_str(), argv.data());
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
    for (int fd : fds_)
      if (fd >= 0) close(fd);
  }
  // Reads what is there for up to `ms` milliseconds.
  void Pump(int ms) {
    pollfd p[2] = {{fds_[0], POLLIN, 0}, {fds_[1], POLLIN, 0}};
    if (poll(p, 2, ms) <= 0) return;
    for (int i = 0; i < 2; ++i)
      if (p[i].revents & (POLLIN | POLLHUP)) {
        char buf[4096];
        ssize_t n = read(fds_[i], buf, sizeof buf);
        if (n > 0) (i == 0 ? out : err).append(buf, static_cast<size_t>(n));
      }
  }
  bool WaitFor(const std::function<bool()> &done, double seconds) {
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    while (Clock::now() < end) {
      if (done()) return true;
      Pump(20);
    }
    return done();
  }
  bool WaitOutput(const std::string &text, double seconds) {
    return WaitFor([&] { return out.find(text) != std::string::npos; }, seconds);
  }
  // Exit status (128 + signal when killed), or -1 when not ended in time.
  int WaitExit(double seconds) {
    if (!WaitFor([&] { return exited_ || (exited_ = waitpid(pid_, &status_, WNOHANG) == pid_); }, seconds))
      return -1;
    for (int i = 0; i < 20; ++i) Pump(5);  // the rest of the output
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

std::string Property(Display *dpy, Window w, Atom prop) {
  Atom type;
  int format;
  unsigned long n, after;
  unsigned char *data = nullptr;
  std::string s;
  if (XGetWindowProperty(dpy, w, prop, 0, 4096, False, AnyPropertyType, &type, &format, &n, &after, &data) ==
          Success &&
      data) {
    // Xlib hands 32-bit items over as longs.
    s.assign(reinterpret_cast<char *>(data), n * (format == 32 ? sizeof(long) : format / 8));
    XFree(data);
  }
  return s;
}

// X errors (a window that went away under us) are ignored in its scope.
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

class Startup : public ::testing::Test {
 protected:
  void Use(const char *env) {
    name_ = TestDisplay(env);
    if (!name_) GTEST_SKIP() << env << " not set (scripts/test starts the X servers)";
    dpy_ = XOpenDisplay(name_);
    ASSERT_NE(dpy_, nullptr) << name_;
    ini_ = tmp_.file("rc");
    ::mkdir(tmp_.file("home").c_str(), 0700);
  }
  void TearDown() override {
    if (dpy_) XCloseDisplay(dpy_);
  }
  std::vector<std::string> Env() const {
    return {std::string("DISPLAY=") + name_, "HOME=" + tmp_.file("home"), "LC_ALL=C"};
  }
  // The viewable top-level window named `res_name` (its WM_CLASS instance)
  // of the program whose command line holds our settings path -- tests may
  // run side by side on one server: its client leader is the application
  // shell, which carries WM_COMMAND.
  Window FindWindow(const char *res_name, Window *leader_out = nullptr) {
    IgnoreXErrors guard(dpy_);  // other clients' windows may vanish while we look
    return FindWindowUnguarded(res_name, leader_out);
  }
  Window FindWindowUnguarded(const char *res_name, Window *leader_out) {
    Window root = DefaultRootWindow(dpy_), parent, *kids = nullptr;
    unsigned n = 0;
    Window found = 0;
    if (!XQueryTree(dpy_, root, &root, &parent, &kids, &n)) return 0;
    const Atom leader_atom = XInternAtom(dpy_, "WM_CLIENT_LEADER", False);
    for (unsigned i = 0; i < n && !found; ++i) {
      XClassHint hint;
      if (!XGetClassHint(dpy_, kids[i], &hint)) continue;
      const bool named = std::string(hint.res_name) == res_name;
      XFree(hint.res_name);
      XFree(hint.res_class);
      XWindowAttributes wa;
      if (!named || !XGetWindowAttributes(dpy_, kids[i], &wa) || wa.map_state != IsViewable) continue;
      std::string leader = Property(dpy_, kids[i], leader_atom);
      if (leader.size() < sizeof(long)) continue;
      const Window lw = static_cast<Window>(*reinterpret_cast<const long *>(leader.data()));
      if (Property(dpy_, lw, XA_WM_COMMAND).find(ini_) == std::string::npos) continue;
      found = kids[i];
      if (leader_out) *leader_out = lw;
    }
    if (kids) XFree(kids);
    return found;
  }
  Window WaitWindow(Child &c, const char *res_name, Window *leader = nullptr) {
    Window w = 0;
    c.WaitFor([&] { return (w = FindWindow(res_name, leader)) != 0; }, 20);
    return w;
  }
  Window WaitStartWindow(Child &c, Window *leader = nullptr) { return WaitWindow(c, "QuillInit", leader); }
  // A key press and release sent to a top-level window, as a window manager
  // passes them on; the toolkit forwards them to the focus widget.
  void SendKey(Window w, KeySym sym, unsigned state) {
    for (int type : {KeyPress, KeyRelease}) {
      XEvent ev{};
      ev.xkey.type = type;
      ev.xkey.display = dpy_;
      ev.xkey.window = w;
      ev.xkey.root = DefaultRootWindow(dpy_);
      ev.xkey.time = CurrentTime;
      ev.xkey.state = state;
      ev.xkey.keycode = XKeysymToKeycode(dpy_, sym);
      ev.xkey.same_screen = True;
      XSendEvent(dpy_, w, True, type == KeyPress ? KeyPressMask : KeyReleaseMask, &ev);
    }
    XFlush(dpy_);
  }

  const char *name_ = nullptr;
  Display *dpy_ = nullptr;
  testutil::TempDir tmp_;
  std::string ini_;
};

TEST_F(Startup, HelpListsTheServersVisuals) {
  for (const char *env : {"QUILLA_TEST_DISPLAY", "QUILLA_TEST_DISPLAY8"}) {
    if (!TestDisplay(env)) continue;
    Use(env);
    static const char *const kClass[] = {"StaticGray", "GrayScale", "StaticColor", "PseudoColor", "TrueColor",
                                         "DirectColor"};
    XVisualInfo templ;
    templ.screen = DefaultScreen(dpy_);
    int n = 0;
    XVisualInfo *v = XGetVisualInfo(dpy_, VisualScreenMask, &templ, &n);
    ASSERT_GT(n, 0);
    std::string expected = "        Options :\n          -visualid <id> : Use this visual number\n"
                           "              Visual available : \n";
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
      EXPECT_NE(c.out.find("Usage : " QUILLA_BINARY_DIR "/quilla [options] file ...\n"), std::string::npos);
      EXPECT_NE(c.out.find(expected), std::string::npos) << c.out;
      const std::string last = "          -fi            : Force \"Fit to Image\"\n";
      EXPECT_EQ(c.out.substr(c.out.size() - last.size()), last);
    }
    XCloseDisplay(dpy_);
    dpy_ = nullptr;
  }
  if (!name_) GTEST_SKIP() << "QUILLA_TEST_DISPLAY not set";
}

TEST_F(Startup, HelpWithoutServerSaysSoAndFails) {
  Use("QUILLA_TEST_DISPLAY");
  // A display number with no server behind it.
  std::string closed;
  for (int d = 4000; d < 4100 && closed.empty(); ++d) {
    const std::string name = ":" + std::to_string(d);
    if (testutil::FileExists("/tmp/.X11-unix/X" + std::to_string(d))) continue;
    Display *probe = XOpenDisplay(name.c_str());
    if (probe)
      XCloseDisplay(probe);
    else
      closed = name;
  }
  ASSERT_FALSE(closed.empty());
  Child c({"-h"}, {"DISPLAY=" + closed, "HOME=" + tmp_.file("home")});
  EXPECT_EQ(c.WaitExit(20), 1);
  EXPECT_NE(c.err.find("Can't open X Server : " + closed + "\n"), std::string::npos) << c.err;
}

TEST_F(Startup, StartWindowOnNothingAndOnAMissingFileWithTheIcon) {
  for (const char *env : {"QUILLA_TEST_DISPLAY", "QUILLA_TEST_DISPLAY8"}) {
    if (!TestDisplay(env)) continue;
    Use(env);
    for (bool missing : {false, true}) {
      SCOPED_TRACE(std::string(env) + (missing ? " missing file" : " no file"));
      std::vector<std::string> args = {"-ini", ini_};
      if (missing) args.push_back(tmp_.file("no-such-picture.png"));
      Child c(args, Env());
      if (missing) {  // the view reports the file; its message box waits for O.K.
        const Window message = WaitWindow(c, "QuillMessage");
        ASSERT_NE(message, 0u) << c.err;
        // There is no window manager to give the box the keyboard focus:
        // without it the key would go nowhere.
        for (int i = 0; i < 20 && FindWindow("QuillMessage") == message; ++i) {
          {
            IgnoreXErrors guard(dpy_);
            XSetInputFocus(dpy_, message, RevertToPointerRoot, CurrentTime);
            SendKey(message, XK_Return, 0);
          }
          c.WaitFor([&] { return FindWindow("QuillMessage") != message; }, 0.5);
        }
      }
      Window leader = 0;
      const Window w = WaitStartWindow(c, &leader);
      ASSERT_NE(w, 0u) << c.out << c.err;
      EXPECT_EQ(Property(dpy_, w, XA_WM_NAME), "Quilla v1.50");
      EXPECT_NE(c.out.find("     Type " QUILLA_BINARY_DIR "/quilla -help, for more information\n"),
                std::string::npos);
      // The application shell stays unmapped.
      XWindowAttributes wa;
      ASSERT_TRUE(XGetWindowAttributes(dpy_, leader, &wa));
      EXPECT_NE(wa.map_state, IsViewable);

      // The icon pixmap holds the icon the window manager's sizes ask for.
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
      XImage *im = XGetImage(dpy_, pix, 0, 0, icon.width, icon.height, AllPlanes, ZPixmap);
      ASSERT_NE(im, nullptr);
      std::vector<int> expect(icon.width * icon.height, 0);
      for (size_t k = 0; k < icon.colours.size(); ++k)
        for (const IconPoint &p : icon.colours[k].points) expect[p.y * icon.width + p.x] = static_cast<int>(k);
      int wrong = 0;
      for (int y = 0; y < icon.height; ++y)
        for (int x = 0; x < icon.width; ++x) {
          XColor got;
          got.pixel = XGetPixel(im, x, y);
          XQueryColor(dpy_, DefaultColormap(dpy_, DefaultScreen(dpy_)), &got);
          const IconColour &want = icon.colours[expect[y * icon.width + x]];
          // 8-bit servers give the nearest colour they have.
          const int tol = DefaultDepth(dpy_, DefaultScreen(dpy_)) >= 24 ? 0 : 64;
          if (std::abs((got.red >> 8) - want.red) > tol || std::abs((got.green >> 8) - want.green) > tol ||
              std::abs((got.blue >> 8) - want.blue) > tol)
            ++wrong;
        }
      XDestroyImage(im);
      EXPECT_EQ(wrong, 0);
    }
    XCloseDisplay(dpy_);
    dpy_ = nullptr;
  }
  if (!name_) GTEST_SKIP() << "QUILLA_TEST_DISPLAY not set";
}

TEST_F(Startup, ThreeInterruptsEndWithoutSaving) {
  Use("QUILLA_TEST_DISPLAY");
  testutil::WriteFile(ini_, "Save.JpegQuality = 42\n");
  Child c({"-ini", ini_}, Env());
  ASSERT_NE(WaitStartWindow(c), 0u) << c.err;  // the handlers are in place by now
  kill(c.pid(), SIGINT);
  ASSERT_TRUE(c.WaitOutput("****** Hit 2 Ctrl+C for exiting without saving ******\n", 10)) << c.out;
  kill(c.pid(), SIGINT);
  ASSERT_TRUE(c.WaitOutput("****** Hit 1 Ctrl+C for exiting without saving ******\n", 10)) << c.out;
  kill(c.pid(), SIGINT);
  EXPECT_EQ(c.WaitExit(10), 1);
  const std::string tail = c.out.substr(c.out.find("****** Interrupt detected ******\n"));
  EXPECT_EQ(tail,
            "****** Interrupt detected ******\n****** Hit 2 Ctrl+C for exiting without saving ******\n"
            "****** Interrupt detected ******\n****** Hit 1 Ctrl+C for exiting without saving ******\n"
            "****** Interrupt detected ******\n");
  EXPECT_EQ(testutil::ReadFile(ini_), "Save.JpegQuality = 42\n");
}

// Quitting the start window writes the settings file read at start-up: known
// values survive, keys absent from it get their defaults, -fi forces View.Fit.
void ExpectSettingsWritten(const std::string &text) {
  EXPECT_NE(text.find("\nSave.JpegQuality = 42\n"), std::string::npos);
  EXPECT_NE(text.find("\nView.Fit = 1\n"), std::string::npos);
  EXPECT_NE(text.find("\nSlide.Timer = 5\n"), std::string::npos);
  EXPECT_NE(text.find("\nContactSheet.Width = 1000\n"), std::string::npos);
}

TEST_F(Startup, CtrlQInTheStartWindowQuitsWritingTheSettings) {
  Use("QUILLA_TEST_DISPLAY");
  testutil::WriteFile(ini_, "Save.JpegQuality = 42\nView.Fit = 3\n");
  Child c({"-fi", "-ini", ini_}, Env());
  const Window w = WaitStartWindow(c);
  ASSERT_NE(w, 0u) << c.err;
  SendKey(w, XK_q, ControlMask);
  EXPECT_EQ(c.WaitExit(10), 0) << c.err;
  ExpectSettingsWritten(testutil::ReadFile(ini_));
}

TEST_F(Startup, ClosingTheStartWindowQuitsWritingTheSettings) {
  Use("QUILLA_TEST_DISPLAY");
  testutil::WriteFile(ini_, "Save.JpegQuality = 42\nView.Fit = 3\n");
  Child c({"-fi", "-ini", ini_}, Env());
  const Window w = WaitStartWindow(c);
  ASSERT_NE(w, 0u) << c.err;
  XEvent ev{};
  ev.xclient.type = ClientMessage;
  ev.xclient.window = w;
  ev.xclient.message_type = XInternAtom(dpy_, "WM_PROTOCOLS", False);
  ev.xclient.format = 32;
  ev.xclient.data.l[0] = static_cast<long>(XInternAtom(dpy_, "WM_DELETE_WINDOW", False));
  ev.xclient.data.l[1] = CurrentTime;
  XSendEvent(dpy_, w, False, NoEventMask, &ev);
  XFlush(dpy_);
  EXPECT_EQ(c.WaitExit(10), 0) << c.err;
  ExpectSettingsWritten(testutil::ReadFile(ini_));
}

// In this process: the About box's widgets, and its links running the web
// browser named by WEBBROWSER.
TEST_F(Startup, AboutBoxLinksRunTheWebBrowser) {
  Use("QUILLA_TEST_DISPLAY");
  const std::string log = tmp_.file("browser.log"), script = tmp_.file("browser.sh");
  testutil::WriteFile(script, "#!/bin/sh\necho \"$*\" >> '" + log + "'\n");
  chmod(script.c_str(), 0755);
  setenv("WEBBROWSER", script.c_str(), 1);

  XtToolkitInitialize();
  XtAppContext app = XtCreateApplicationContext();
  int argc = 1;
  char arg0[] = "quilla", *argv[] = {arg0, nullptr};
  Display *dpy = XtOpenDisplay(app, name_, "quilla", "Quilla", nullptr, 0, &argc, argv);
  ASSERT_NE(dpy, nullptr);
  Widget top = XtVaAppCreateShell("quilla", "Quilla", applicationShellWidgetClass, dpy, XmNmappedWhenManaged,
                                  False, XmNwidth, 1, XmNheight, 1, nullptr);
  XtRealizeWidget(top);
  RegisterActions(app);
  const Pixmap saved_icon = App().icon;
  App().icon = BuildWindowIcon(dpy, DefaultScreen(dpy));
  OpenAbout(top);
  auto pump = [&](const std::function<bool()> &done) {
    const auto end = Clock::now() + std::chrono::seconds(10);
    while (!done() && Clock::now() < end) {
      XSync(dpy, False);
      while (XtAppPending(app)) XtAppProcessEvent(app, XtIMAll);
      usleep(10000);
    }
    return done();
  };
  Widget about = XtNameToWidget(top, "QuillAbout");
  ASSERT_NE(about, nullptr);
  ASSERT_TRUE(pump([&] { return XtIsRealized(about) && XtWindow(about); }));
  auto text = [&](const char *name) {
    Widget w = XtNameToWidget(about, name);
    if (!w) return std::string("<missing ") + name + ">";
    XmString s = nullptr;
    XtVaGetValues(w, XmNlabelString, &s, nullptr);
    char *c = static_cast<char *>(XmStringUnparse(s, nullptr, XmCHARSET_TEXT, XmCHARSET_TEXT, nullptr, 0, XmOUTPUT_ALL));
    std::string r = c ? c : "";
    XtFree(c);
    XmStringFree(s);
    return r;
  };
  EXPECT_EQ(text("*label1"), "Quilla for X11/Motif");
  EXPECT_EQ(text("*label2"), "Version 1.50");
  EXPECT_EQ(text("*label3"), "Libtessel Version 3.87");
  for (const char *n : {"*label4", "*label5", "*label6", "*label7", "*label8", "*separator"})
    EXPECT_NE(XtNameToWidget(about, n), nullptr) << n;
  EXPECT_EQ(text("*buttonOk"), "O.K.");
  Widget pixmap_label = XtNameToWidget(about, "*labelPixmap");
  ASSERT_NE(pixmap_label, nullptr);
  Pixmap shown = 0;
  XtVaGetValues(pixmap_label, XmNlabelPixmap, &shown, nullptr);
  EXPECT_EQ(shown, App().icon);

  // A real button press on each link label goes through its translation.
  XColor blue, exact;
  ASSERT_TRUE(XAllocNamedColor(dpy, DefaultColormap(dpy, DefaultScreen(dpy)), "Blue", &blue, &exact));
  for (const char *name : {"*labelUrl", "*labelEmail"}) {
    Widget link = XtNameToWidget(about, name);
    ASSERT_NE(link, nullptr);
    Pixel fg = 0;
    XtVaGetValues(link, XmNforeground, &fg, nullptr);
    EXPECT_EQ(fg, blue.pixel) << name;
    XEvent press{};
    press.xbutton.type = ButtonPress;
    press.xbutton.display = dpy;
    press.xbutton.window = XtWindow(link);
    press.xbutton.button = Button1;
    press.xbutton.x = press.xbutton.y = 2;
    press.xbutton.time = CurrentTime;
    XSendEvent(dpy, XtWindow(link), False, ButtonPressMask, &press);
  }
  EXPECT_TRUE(pump([&] {
    const std::string l = testutil::ReadFile(log);
    return l.find("https://quilla.example.org/\n") != std::string::npos &&
           l.find("-remote mailto(quilla@example.org)\n") != std::string::npos;
  })) << testutil::ReadFile(log);

  XtCallCallbacks(XtNameToWidget(about, "*buttonOk"), XmNactivateCallback, nullptr);
  EXPECT_TRUE(pump([&] { return XtNameToWidget(top, "QuillAbout") == nullptr; }));
  XFreePixmap(dpy, App().icon);
  App().icon = saved_icon;
  XtDestroyWidget(top);
  unsetenv("WEBBROWSER");
}

}  // namespace
