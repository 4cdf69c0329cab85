// The slide show: the dialog QuillSlide that prepares the list and its
// switches (and loads and saves slide files), and the show window
// QuillSlideView that steps through the list.
#ifndef QUILLA_FILES_SLIDE_X_H
#define QUILLA_FILES_SLIDE_X_H

#include <X11/Intrinsic.h>

#include <string>
#include <vector>

#include "files/slide_model.h"

namespace quilla {

// Opens the dialog QuillSlide ("Slide Show"), a window of its own on the
// application shell, holding `list` (or raises the one already open, which
// then takes the list's entries when it has any).  Returns its shell.
Widget OpenSlideDialog(const SlideList &list);

// An empty list with the switches and timer of the Slide settings.
SlideList SlideListFromSettings();

// Starts a show of `entries` with the switch word `switches`, stepping
// every `interval_ms` milliseconds when the timer switch is on: opens
// QuillSlideView on the first picture that loads.  Returns its shell, or
// nullptr when no entry could be shown.  One show runs at a time: a new
// one ends the old one first.
Widget StartSlideShow(const std::vector<std::string> &entries, unsigned switches, int interval_ms);

// The -slide start-up: reads the slide file and starts its show; a file
// that cannot be opened is reported ("Can't open file : %s") and an empty
// list opens the dialog instead.  Returns the window opened, or nullptr.
Widget OpenSlideShow(Widget parent, const char *slide_file);

// For tests and scripted use.
struct SlideShowState {
  int index = -1;           // the entry shown (-1 before the first)
  bool scheduled = false;   // a step is pending on the timer
  unsigned switches = 0;
  std::string title;        // the window title
  Widget drawing_area = nullptr;
  Pixmap pixmap = 0;        // the picture shown, 0 when none
  int width = 0, height = 0;  // the pixmap's size
};
// The running show's shell, or nullptr.
Widget ShownSlideShow();
bool GetSlideShowState(SlideShowState *out);
// The dialog now shown, or nullptr.
Widget ShownSlideDialog();
// Every entry the show moved to, in order (cleared when a show starts).
const std::vector<int> &SlideShowHistory();

}  // namespace quilla

#endif
