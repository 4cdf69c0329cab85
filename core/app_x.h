// The application shell side of start-up: the process-wide start-up state,
// the named actions, signal handlers, the window icon, the start window, the
// About box and quit.
#ifndef QUILLA_CORE_APP_X_H
#define QUILLA_CORE_APP_X_H

#include <X11/Intrinsic.h>

#include <string>

namespace quilla {

// Process-wide start-up state, read by the windows.
struct AppState {
  XtAppContext app = nullptr;
  Display *dpy = nullptr;
  int screen = 0;
  Widget shell = nullptr;        // the application shell
  Widget main_window = nullptr;  // the first window opened
  std::string start_dir;         // working directory at start-up
  long visual_id = -1;           // -visualid, -1 when none
  int menu_bar_mode = 1;         // 1 menu bar, 0 pop-up menu in views
  bool own_colormap = false, full_screen = false, verbose = false;
  Pixmap icon = 0;               // the window icon, freed at quit
  Cursor cursors[2] = {0, 0};    // the two shared 32x32 bitmap cursors
  int interrupts = 0;            // Ctrl+C counter
};
AppState &App();

// Registers ViewDoCommand, ViewKeyScroll, ViewClose, BrowserDoCommand,
// BrowserDoPopup, UrlClick, FilelistDoCommand, DoBubble in that order.
void RegisterActions(XtAppContext app);

// The signal handlers: SIGINT (three strikes), SIGFPE/SIGBUS/SIGSEGV,
// SIGALRM, with one-shot semantics.
void InstallSignalHandlers();

// The shell holding `w` (w itself when it is one), or nullptr.
Widget ShellOf(Widget w);
// Whether `w` exists and is not being destroyed.
bool WidgetAlive(Widget w);
// Where a dialog of `owner` goes: the owner's shell, else the main window's,
// else the application shell; nullptr when there is none.
Widget DialogParent(Widget owner);

// Rings the bell of the program's display (a refused key or command).
void Bell();

// The text of a text field, and a label's new text.
std::string FieldText(Widget field);
void SetLabelText(Widget label, const std::string &text);

// A push button of a dialog's bottom row: under `above` in the form `form`,
// attached to the form's bottom, spanning the positions left..right of the
// form's width (fraction base 100).
Widget BottomRowButton(Widget form, Widget above, const char *name, const char *label, int left, int right);

// Makes `text` the PRIMARY and CLIPBOARD selection, owned by `w` (a
// realized widget) until another client takes it: what a paste anywhere
// then inserts.  False when the server refused.
bool OwnTextSelection(Widget w, const std::string &text);

// Sets the window icon on a shell (no-op before the icon is built).
void SetWindowIcon(Widget shell);

// The empty start window QuillInit.
Widget OpenStartWindow(Widget parent);
// The About box QuillAbout.
void OpenAbout(Widget parent);

// Quit: frees the icon, the display colours, toolbar pixmaps, closes the
// image library, frees the cursors, exits 0.  Writes nothing.
[[noreturn]] void Quit();
// The quit command of the windows: writes the settings, then Quit().
[[noreturn]] void QuitWritingSettings();

}  // namespace quilla

#endif
