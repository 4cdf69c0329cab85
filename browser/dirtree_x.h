// The browser's directory pane: the tree view "dirTreeView" in its scrolled
// window "dirTreeViewSW", filled from the directory tree model.  Expanding
// an item reads its subdirectories; the browser follows its current
// directory with Show and hears of the user's choice through on_select.
#ifndef QUILLA_BROWSER_DIRTREE_X_H
#define QUILLA_BROWSER_DIRTREE_X_H

#include <X11/Intrinsic.h>

#include <functional>
#include <string>

#include "browser/dirtree.h"
#include "widgets/MyTreeView.h"

namespace quilla {

class DirTreePane {
 public:
  // Creates the scrolled tree under `parent` (the tree managed, the scrolled
  // window returned by scrolled() for the caller to place).  `fs` is not
  // owned; nullptr uses the real file system.
  explicit DirTreePane(Widget parent, std::string mtab_path = "/etc/mtab", DirTreeFs *fs = nullptr);
  ~DirTreePane();
  DirTreePane(const DirTreePane &) = delete;
  DirTreePane &operator=(const DirTreePane &) = delete;

  Widget tree() const { return tree_; }
  Widget scrolled() const { return XtParent(tree_); }

  // Adds the root when the tree is empty, expands the directories along
  // `path` and selects the last one found, without calling on_select.
  void Show(const std::string &path);
  // The directory an item stands for ("/" for the root).
  std::string PathOf(MyTreeViewItem *item) const;
  // The child item labelled `name`, or nullptr.
  MyTreeViewItem *ChildNamed(MyTreeViewItem *item, const std::string &name) const;

  // The user selected a directory.
  std::function<void(const std::string &path)> on_select;

 private:
  static void ExpandCallback(Widget w, XtPointer closure, XtPointer data);
  static void SelectCallback(Widget w, XtPointer closure, XtPointer data);
  static void DestroyCallback(Widget w, XtPointer closure, XtPointer data);
  // Reads the item's subdirectories anew and adds them as its children.
  void Fill(MyTreeViewItem *item);
  void Suspend();
  void Resume();

  DirTree model_;
  Widget tree_ = nullptr;
  Pixmap closed_ = 0, open_ = 0, no_access_ = 0;
  int suspended_ = 0;
  bool showing_ = false;
};

}  // namespace quilla

#endif
