// The browser's directory pane: the tree view over the directory model.
#include "browser/dirtree_x.h"

#include <vector>

namespace quilla {

DirTreePane::DirTreePane(Widget parent, std::string mtab_path, DirTreeFs *fs)
    : model_(std::move(mtab_path), fs) {
  tree_ = MyCreateScrolledTreeView(parent, "dirTreeView", nullptr, 0);
  XtManageChild(tree_);
  MyTreeViewFolderPixmaps(tree_, &closed_, &open_, &no_access_);
  XtAddCallback(tree_, MyNexpandCallback, ExpandCallback, this);
  XtAddCallback(tree_, MyNselectCallback, SelectCallback, this);
  XtAddCallback(tree_, XmNdestroyCallback, DestroyCallback, this);
}

DirTreePane::~DirTreePane() {
  if (!tree_) return;  // the window went first; the server freed nothing of ours yet
  XtRemoveCallback(tree_, MyNexpandCallback, ExpandCallback, this);
  XtRemoveCallback(tree_, MyNselectCallback, SelectCallback, this);
  XtRemoveCallback(tree_, XmNdestroyCallback, DestroyCallback, this);
  MyTreeViewDeleteAllItems(tree_);  // no item may show a freed picture
  Display *dpy = XtDisplay(tree_);
  for (Pixmap p : {closed_, open_, no_access_})
    if (p) XFreePixmap(dpy, p);
}

void DirTreePane::DestroyCallback(Widget w, XtPointer closure, XtPointer) {
  auto *pane = static_cast<DirTreePane *>(closure);
  for (Pixmap p : {pane->closed_, pane->open_, pane->no_access_})
    if (p) XFreePixmap(XtDisplay(w), p);
  pane->closed_ = pane->open_ = pane->no_access_ = 0;
  pane->tree_ = nullptr;
}

void DirTreePane::ExpandCallback(Widget, XtPointer closure, XtPointer data) {
  static_cast<DirTreePane *>(closure)->Fill(static_cast<MyTreeViewCallbackStruct *>(data)->item);
}

void DirTreePane::SelectCallback(Widget, XtPointer closure, XtPointer data) {
  auto *pane = static_cast<DirTreePane *>(closure);
  MyTreeViewItem *item = static_cast<MyTreeViewCallbackStruct *>(data)->item;
  if (!pane->showing_ && pane->on_select && item) pane->on_select(pane->PathOf(item));
}

// Updates stay suspended until the outermost caller is done.
void DirTreePane::Suspend() {
  if (suspended_++ == 0) MyTreeViewUpdate(tree_, True);
}

void DirTreePane::Resume() {
  if (--suspended_ == 0) MyTreeViewUpdate(tree_, False);
}

std::string DirTreePane::PathOf(MyTreeViewItem *item) const {
  std::vector<std::string> parts;
  for (; item && MyTreeViewGetParent(tree_, item); item = MyTreeViewGetParent(tree_, item)) {
    char *text = MyTreeViewGetString(tree_, item);
    parts.emplace_back(text ? text : "");
    XtFree(text);
  }
  std::string path = "/";
  for (auto it = parts.rbegin(); it != parts.rend(); ++it) path = DirJoin(path, *it);
  return path;
}

void DirTreePane::Fill(MyTreeViewItem *item) {
  Suspend();
  MyTreeViewDeleteAllChild(tree_, item);
  for (const DirChild &c : model_.Children(PathOf(item))) {
    const bool locked = c.kind == DirKind::kNoAccess;
    MyTreeViewAddItem(tree_, item, c.Expandable(), False, locked ? no_access_ : closed_,
                      locked ? XmUNSPECIFIED_PIXMAP : open_, c.name.c_str());
  }
  Resume();
}

MyTreeViewItem *DirTreePane::ChildNamed(MyTreeViewItem *item, const std::string &name) const {
  for (MyTreeViewItem *c = MyTreeViewGetChildren(tree_, item); c; c = MyTreeViewGetNextChildren(tree_, c)) {
    char *text = MyTreeViewGetString(tree_, c);
    const bool same = text && name == text;
    XtFree(text);
    if (same) return c;
  }
  return nullptr;
}

void DirTreePane::Show(const std::string &path) {
  if (!tree_) return;
  Suspend();
  showing_ = true;
  MyTreeViewItem *item = MyTreeViewGetRoot(tree_);
  if (!item)
    item = MyTreeViewAddItem(tree_, nullptr, True, False, closed_, open_, model_.Root()->name.c_str());
  MyTreeViewExpandItem(tree_, item, True);
  for (const std::string &part : DirPathComponents(path)) {
    MyTreeViewItem *next = ChildNamed(item, part);
    if (!next) {  // made since the item was read: read it again once
      Fill(item);
      next = ChildNamed(item, part);
    }
    if (!next) break;
    item = next;
    MyTreeViewExpandItem(tree_, item, True);
  }
  MyTreeViewSelectItem(tree_, item);
  showing_ = false;
  Resume();
}

}  // namespace quilla
