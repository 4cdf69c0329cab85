// quilla: start-up.  Checks the image library, prints the banner, installs
// the signal handlers, opens the toolkit, loads the settings, registers the
// actions, builds the window icon, opens the windows the command line asks
// for (or the start window) and runs the toolkit's main loop.
#include <Xm/Xm.h>
#include <X11/Shell.h>
#include <X11/Xutil.h>

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "browser/browser_x.h"
#include "core/app_x.h"
#include "core/colour_model.h"
#include "core/display_x.h"
#include "core/icon_x.h"
#include "core/settings.h"
#include "core/startup.h"
#include "files/slide_x.h"
#include "tessel.h"
#include "view/view_x.h"


using namespace quilla;

namespace {

// Banner, usage and the other start-up texts go out with one write each, so
// that they reach a pipe at once and in order with the signal handlers'.
void Out(const std::string &text) {
  const char *p = text.data();
  size_t left = text.size();
  while (left > 0) {
    ssize_t n = ::write(STDOUT_FILENO, p, left);
    if (n <= 0) return;
    p += n;
    left -= static_cast<size_t>(n);
  }
}

// -help: banner and usage, with the visuals of the default display's screen.
[[noreturn]] void PrintUsage(const char *argv0) {
  const std::vector<std::string> lines = UsageLines(argv0, {});
  const size_t before_visuals = BannerLines().size() + 3;  // up to "-visualid <id>"
  for (size_t i = 0; i < before_visuals; ++i) Out(lines[i]);

  Display *dpy = XOpenDisplay(nullptr);
  if (!dpy) {
    std::fprintf(stderr, "Can't open X Server : %s\n", XDisplayName(nullptr));
    std::exit(1);
  }
  XVisualInfo templ;
  templ.screen = DefaultScreen(dpy);
  int n = 0;
  XVisualInfo *list = XGetVisualInfo(dpy, VisualScreenMask, &templ, &n);
  std::vector<std::string> visuals;
  for (int i = 0; list && i < n; ++i)
    visuals.push_back(VisualListLine(list[i].visualid, VisualClassName(list[i].c_class), list[i].depth));
  if (list) XFree(list);
  const std::string name = DisplayString(dpy);
  XCloseDisplay(dpy);
  if (visuals.empty()) {
    std::fprintf(stderr, "Error obtaining X visual info for %s\n", name.c_str());
    std::exit(0);
  }
  Out("              Visual available : \n");
  for (const std::string &v : visuals) Out(v);
  for (size_t i = before_visuals; i < lines.size(); ++i) Out(lines[i]);
  std::exit(0);
}


// An argument as an absolute path with links resolved; a name that does not
// resolve (a missing file) is made absolute against the start directory and
// still handed on, so that the view reports it.
std::string ResolvePath(const char *arg, const std::string &start_dir) {
  char buf[PATH_MAX];
  if (realpath(arg, buf)) return buf;
  if (arg[0] == '/') return arg;
  return start_dir + "/" + arg;
}

}  // namespace

int main(int argc, char **argv) {
  // 1. -help / -h, only as the first argument.
  if (argc > 1 && (std::strcmp(argv[1], "-help") == 0 || std::strcmp(argv[1], "-h") == 0)) PrintUsage(argv[0]);

  // 2. Locale from the environment.
  std::setlocale(LC_ALL, "");

  // 3. The image library, in the version this program was made for.
  tslInitLibrary();
  char version[16] = {0};
  tslVersion(version);
  if (std::strcmp(version, "3.87") != 0) {
    Out("Bad version of libtessel\n");
    tslExitLibrary();
    return 0;
  }

  // 4. Banner.
  for (const std::string &line : BannerLines()) Out(line);
  Out(std::string("     Type ") + argv[0] + " -help, for more information\n");

  // 5. Signal handlers.
  AppState &app = App();
  InstallSignalHandlers();

  // 6, 7. The toolkit, with or without the fallback resources.  The full
  // command line is kept for the session property (step 21) before the
  // toolkit takes its own options out of argv.
  std::vector<char *> full_argv(argv, argv + argc);
  const int full_argc = argc;
  XtSetLanguageProc(nullptr, nullptr, nullptr);
  const bool nores = HasNoResOption(argc, argv);
  // The application shell only parents the pop-up shells (views, browser,
  // dialogs) and carries the session properties.  It is realised but never
  // mapped: mappedWhenManaged False keeps it from appearing as an empty
  // window the size of the screen.  The 1x1 start size only spares the
  // toolkit a zero-size shell at realisation; the real size follows.
  Arg shell_args[3];
  XtSetArg(shell_args[0], XmNmappedWhenManaged, False);
  XtSetArg(shell_args[1], XmNwidth, 1);
  XtSetArg(shell_args[2], XmNheight, 1);
  app.shell = XtOpenApplication(&app.app, const_cast<char *>("Quilla"), nullptr, 0, &argc, argv,
                                nores ? nullptr : const_cast<String *>(FallbackResources()),
                                applicationShellWidgetClass, shell_args, 3);

  // 8. Display, screen, realised shell, the shared cursors, and the shell
  // over the whole screen.
  app.dpy = XtDisplay(app.shell);
  app.screen = DefaultScreen(app.dpy);
  XtRealizeWidget(app.shell);
  CreateSharedCursors(app.dpy, XtWindow(app.shell), app.cursors);
  XtVaSetValues(app.shell, XmNx, 0, XmNy, 0, XmNwidth, DisplayWidth(app.dpy, app.screen), XmNheight,
                DisplayHeight(app.dpy, app.screen), nullptr);

  // 9. Start directory.
  {
    char cwd[kPathSize];
    app.start_dir = getcwd(cwd, sizeof cwd) ? cwd : "";
  }

  // 10. Settings, from -ini when given.
  LoadSettings(FindIniPath(argc, argv), app.start_dir);
  SettingsRecord &settings = Settings();

  // 11. Defaults of the globals the options set.
  app.visual_id = -1;
  app.menu_bar_mode = 1;
  app.own_colormap = false;
  app.full_screen = false;
  app.verbose = false;

  // 12. Named actions.
  RegisterActions(app.app);

  // 13. One window per picture by default?
  const bool open_all_default = settings.Start.OpenAll;

  // 14. Window icon, 32x32 or 64x64 as the window manager prefers.
  app.icon = BuildWindowIcon(app.dpy, app.screen);

  StartOptions options;
  bool browser_wanted = false;
  Widget start_window = nullptr;
  if (argc <= 1) {
    // 15. No arguments: the start window or the browser.
    InitVisual(app.dpy, app.screen, app.visual_id, app.verbose);
    if (!settings.Start.LaunchBrowserAtStartup)
      start_window = OpenStartWindow(app.shell);
    else
      OpenBrowser(app.shell, BrowserStartDirectory());
  } else {
    // 16. The option pass.
    options = ParseStartOptions(argc, argv, open_all_default);
    app.visual_id = options.visual_id;
    app.own_colormap = options.own;
    app.full_screen = options.full;
    app.verbose = options.verbose;
    if (options.popup) app.menu_bar_mode = 0;
    if (options.force_fit) settings.View.Fit = 1;
    browser_wanted = options.browser || (settings.Start.LaunchBrowserAtStartup && options.slide.empty());
    if (settings.View.UsePopupInView) app.menu_bar_mode = 0;
    InitVisual(app.dpy, app.screen, app.visual_id, app.verbose);

    if (options.files.empty()) {
      // 17. Options only.
      if (browser_wanted)
        OpenBrowser(app.shell, BrowserStartDirectory());
      else if (options.slide.empty())
        start_window = OpenStartWindow(app.shell);
    } else {
      // 18. Files and directories.
      FileListEntry *list = nullptr;
      int count = 0, windows = 0;
      for (const std::string &arg : options.files) {
        const std::string path = ResolvePath(arg.c_str(), app.start_dir);
        struct stat st;
        if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
          // A directory opens the browser on it.
          if (OpenBrowser(app.shell, path.c_str())) ++windows;
        } else if (options.all) {
          Widget view = OpenViewOnFile(app.shell, path.c_str(), 0);
          if (view) {
            ++windows;
            if (!app.main_window) app.main_window = view;
          }
        } else {
          // The list grows one record at a time.
          void *grown = count == 0 ? std::malloc(sizeof(FileListEntry))
                                   : std::realloc(list, sizeof(FileListEntry) * static_cast<size_t>(count + 1));
          if (!grown) break;  // out of memory: open what is listed so far
          list = static_cast<FileListEntry *>(grown);
          FileListEntry &e = list[count++];
          std::memset(&e, 0, sizeof e);
          std::strncpy(e.path, path.c_str(), sizeof e.path - 1);  // longer paths are cut
        }
      }
      if (!options.all && count > 0) {
        // The view takes the list over, whether it opens or not.
        Widget view = OpenViewOnList(app.shell, list, count, 0);
        list = nullptr;
        if (view) {
          ++windows;
          if (!app.main_window) app.main_window = view;
        }
      }
      if (windows == 0) {
        std::free(list);
        start_window = OpenStartWindow(app.shell);
      }
    }
  }

  // 19. Slide show, or the browser (once more on some paths).
  if (!options.slide.empty()) {
    Widget slide = OpenSlideShow(app.shell, options.slide.c_str());
    if (slide && !app.main_window) app.main_window = slide;
  } else if (browser_wanted || settings.Start.LaunchBrowserAtStartup) {
    Widget browser = OpenBrowser(app.shell, BrowserStartDirectory());
    if (browser && !app.main_window) app.main_window = browser;
  }
  // A slide show that could not start would leave the program without a
  // window: show the start window there too.
  if (!app.main_window && !start_window && ViewCount() == 0) start_window = OpenStartWindow(app.shell);

  // 20. View.UsePopupInView once more, after the windows opened.
  if (settings.View.UsePopupInView) app.menu_bar_mode = 0;

  // 21. Session command on the main window.
  if (app.main_window && XtWindow(app.main_window)) {
    full_argv.push_back(nullptr);
    XSetCommand(app.dpy, XtWindow(app.main_window), full_argv.data(), full_argc);
  }

  // 22. The toolkit's main loop; the program ends in Quit() or a signal.
  XtAppMainLoop(app.app);
  return 0;
}
