// The browser's small windows: the bookmark editor QuillBook and the
// Options dialog's cache page.
#ifndef QUILLA_BROWSER_BROWSER_DIALOGS_X_H
#define QUILLA_BROWSER_BROWSER_DIALOGS_X_H

#include <X11/Intrinsic.h>

#include "browser/bookmarks.h"

namespace quilla {

// The user's bookmarks, read from their file on first use.
BookmarkList &Bookmarks();
// Writes them when changed, making their directory when missing.
void SaveBookmarks();

// The bookmark editor "Edit Bookmark..." (one at a time).
void OpenBookmarkEditor(Widget owner);
// The editor now shown, or nullptr.
Widget ShownBookmarkEditor();

}  // namespace quilla

#endif
