// The Options dialog QuillOption: one page per group of settings, built
// from the options table (options_model.h), plus the file-type page
// PFileTypes and the cache page PCache.  O.K. stores the values in the
// settings record (written at quit); Cancel, Escape or closing the window
// discard them.
#ifndef QUILLA_CORE_OPTIONS_X_H
#define QUILLA_CORE_OPTIONS_X_H

#include <X11/Intrinsic.h>

namespace quilla {

// Opens the whole dialog on `owner`'s shell (brought forward when already
// open) and returns at once.
void OpenOptions(Widget owner);

// The Save page alone (the write options of every format), for batch
// conversion's "Options...": runs until answered; true when O.K. stored the
// values.
bool ShowSaveOptions(Widget owner);

// The dialog's shell now shown, or nullptr (tests, scripted use).
Widget ShownOptions();

// Called with the cache page (a form holding "scrolledList", the buttons
// "buttonDelete", "buttonDeleteAll" and "buttonClean", insensitive until a
// hook makes them work) each time the dialog is built.
using OptionsPageHook = void (*)(Widget page);
OptionsPageHook SetCachePageHook(OptionsPageHook hook);

// Called after O.K. stored new values, so open windows can follow them
// (tool and status bars, labels).  Adding the same hook twice adds it once.
using OptionsAppliedHook = void (*)();
void AddOptionsAppliedHook(OptionsAppliedHook hook);

}  // namespace quilla

#endif
