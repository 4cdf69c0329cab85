#include "browser/browser_dialogs_x.h"

#include <Xm/DialogS.h>
#include <Xm/Form.h>
#include <Xm/List.h>
#include <Xm/MessageB.h>
#include <Xm/Protocols.h>
#include <Xm/PushB.h>
#include <Xm/SelectioB.h>
#include <Xm/Xm.h>

#include <sys/stat.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "browser/browser_x.h"
#include "browser/cache_db.h"

namespace quilla {

namespace {

BookmarkList *g_bookmarks = nullptr;
Widget g_editor = nullptr;

XmString Str(const std::string &s) { return XmStringCreateLocalized(const_cast<char *>(s.c_str())); }

void FillList(Widget list, const std::vector<std::string> &rows) {
  XmListDeleteAllItems(list);
  for (const std::string &r : rows) {
    XmString s = Str(r);
    XmListAddItemUnselected(list, s, 0);
    XmStringFree(s);
  }
}

// The selected rows of a list, from 1.
std::vector<int> SelectedRows(Widget list) {
  int *pos = nullptr, n = 0;
  std::vector<int> rows;
  if (XmListGetSelectedPos(list, &pos, &n)) {
    rows.assign(pos, pos + n);
    XtFree(reinterpret_cast<char *>(pos));
  }
  return rows;
}

// ---- bookmark editor

void FillBookmarks(Widget list) {
  std::vector<std::string> rows;
  for (int i = 0; i < Bookmarks().count(); ++i) rows.push_back(Bookmarks().editorLine(i));
  FillList(list, rows);
}

Widget EditorList() { return g_editor ? XtNameToWidget(g_editor, "*scrolledList") : nullptr; }

void RemoveChosen(Widget, XtPointer, XtPointer) {
  Widget list = EditorList();
  if (!list) return;
  std::vector<int> rows = SelectedRows(list);
  for (auto it = rows.rbegin(); it != rows.rend(); ++it) Bookmarks().remove(*it - 1);
  SaveBookmarks();
  FillBookmarks(list);
}

// The name prompt goes once its button's callbacks are over, however they
// were called; closing the editor first takes it along.
XtIntervalId g_prompt_timer = 0;

void DestroyPrompt(XtPointer client, XtIntervalId *) {
  g_prompt_timer = 0;
  XtDestroyWidget(XtParent(static_cast<Widget>(client)));
}

void PromptDestroyed(Widget, XtPointer, XtPointer) {
  if (g_prompt_timer) XtRemoveTimeOut(g_prompt_timer);
  g_prompt_timer = 0;
}

void ClosePrompt(Widget box) {
  XtUnmanageChild(box);
  if (!g_prompt_timer)
    g_prompt_timer = XtAppAddTimeOut(XtWidgetToApplicationContext(box), 0, DestroyPrompt, box);
}

void RenameAnswered(Widget w, XtPointer client, XtPointer call) {
  const int index = static_cast<int>(reinterpret_cast<intptr_t>(client));
  auto *cb = static_cast<XmSelectionBoxCallbackStruct *>(call);
  char *text = nullptr;
  if (XmStringGetLtoR(cb->value, const_cast<char *>(XmFONTLIST_DEFAULT_TAG), &text) && text) {
    if (index < Bookmarks().count()) {
      Bookmarks().rename(index, text);
      SaveBookmarks();
    }
    XtFree(text);
  }
  if (Widget list = EditorList()) FillBookmarks(list);
  ClosePrompt(w);
}

void RenameCancelled(Widget w, XtPointer, XtPointer) { ClosePrompt(w); }

void RenameChosen(Widget, XtPointer, XtPointer) {
  Widget list = EditorList();
  if (!list) return;
  const std::vector<int> rows = SelectedRows(list);
  if (rows.empty()) return;
  const int index = rows[0] - 1;
  Arg args[2];
  XmString title = Str("Rename Bookmark");
  XmString value = Str(Bookmarks().items()[index].name);
  XtSetArg(args[0], XmNdialogTitle, title);
  XtSetArg(args[1], XmNtextString, value);
  Widget box = XmCreatePromptDialog(g_editor, const_cast<char *>("QuillBookRename"), args, 2);
  XmStringFree(title);
  XmStringFree(value);
  XmString label = Str("New name:");
  XtVaSetValues(box, XmNselectionLabelString, label, nullptr);
  XmStringFree(label);
  XtUnmanageChild(XmSelectionBoxGetChild(box, XmDIALOG_HELP_BUTTON));
  XtAddCallback(box, XmNokCallback, RenameAnswered, reinterpret_cast<XtPointer>(static_cast<intptr_t>(index)));
  XtAddCallback(box, XmNcancelCallback, RenameCancelled, nullptr);
  XtAddCallback(box, XmNdestroyCallback, PromptDestroyed, nullptr);
  XtManageChild(box);
}

// Destroyed once the button's callbacks are over, however they were called.
void DestroyEditor(XtPointer, XtIntervalId *) {
  if (g_editor) XtDestroyWidget(g_editor);
}
void EditorClose(Widget w, XtPointer, XtPointer) {
  if (g_editor) XtPopdown(g_editor);
  XtAppAddTimeOut(XtWidgetToApplicationContext(w), 0, DestroyEditor, nullptr);
}

void EditorDestroyed(Widget, XtPointer, XtPointer) { g_editor = nullptr; }

Widget Button(Widget form, const char *name, const char *label) {
  XmString s = Str(label);
  Widget b = XtVaCreateManagedWidget(name, xmPushButtonWidgetClass, form, XmNlabelString, s, XmNbottomAttachment,
                                     XmATTACH_FORM, XmNbottomOffset, 8, nullptr);
  XmStringFree(s);
  return b;
}

// ---- cache page

void RefillCache(Widget page) {
  Widget list = XtNameToWidget(page, "*scrolledList");
  if (!list) return;
  BrowserCache().open(true);
  FillList(list, BrowserCache().listRows());
  BrowserCache().close();
}

void CacheAction(Widget w, XtPointer client, XtPointer) {
  Widget page = static_cast<Widget>(client);
  ThumbCache &cache = BrowserCache();
  const std::string name = XtName(w);
  cache.open(true);
  if (name == "buttonDelete") {
    Widget list = XtNameToWidget(page, "*scrolledList");
    if (list) cache.deleteRows(SelectedRows(list));
  } else if (name == "buttonDeleteAll") {
    cache.deleteAll();
  } else {
    cache.clean();
  }
  cache.close();
  RefillCache(page);
}

}  // namespace

void SaveBookmarks() {
  // The file's directory (~/.quilla) may not exist yet.
  const std::string &file = Bookmarks().file();
  const size_t slash = file.rfind('/');
  if (slash != std::string::npos && slash > 0) mkdir(file.substr(0, slash).c_str(), 0755);
  Bookmarks().save();
}

BookmarkList &Bookmarks() {
  if (!g_bookmarks) {
    g_bookmarks = new BookmarkList;
    g_bookmarks->load(BookmarkList::DefaultPath());
  }
  return *g_bookmarks;
}

Widget ShownBookmarkEditor() { return g_editor; }

void OpenBookmarkEditor(Widget owner) {
  if (g_editor) {
    XtPopup(g_editor, XtGrabNone);
    return;
  }
  g_editor = XtVaCreatePopupShell("QuillBook", xmDialogShellWidgetClass, owner, XmNtitle, "Edit Bookmark...",
                                  XmNdeleteResponse, XmDESTROY, nullptr);
  XtAddCallback(g_editor, XmNdestroyCallback, EditorDestroyed, nullptr);
  Widget form = XtVaCreateWidget("form", xmFormWidgetClass, g_editor, XmNwidth, 520, XmNheight, 300, nullptr);
  Widget remove = Button(form, "buttonRemove", "Remove...");
  Widget rename = Button(form, "buttonRename", "Rename...");
  Widget ok = Button(form, "buttonOk", "O.K.");
  XtVaSetValues(remove, XmNleftAttachment, XmATTACH_POSITION, XmNleftPosition, 5, XmNrightAttachment,
                XmATTACH_POSITION, XmNrightPosition, 30, nullptr);
  XtVaSetValues(rename, XmNleftAttachment, XmATTACH_POSITION, XmNleftPosition, 37, XmNrightAttachment,
                XmATTACH_POSITION, XmNrightPosition, 63, nullptr);
  XtVaSetValues(ok, XmNleftAttachment, XmATTACH_POSITION, XmNleftPosition, 70, XmNrightAttachment, XmATTACH_POSITION,
                XmNrightPosition, 95, nullptr);
  Arg args[8];
  int n = 0;
  XtSetArg(args[n], XmNtopAttachment, XmATTACH_FORM), ++n;
  XtSetArg(args[n], XmNleftAttachment, XmATTACH_FORM), ++n;
  XtSetArg(args[n], XmNrightAttachment, XmATTACH_FORM), ++n;
  XtSetArg(args[n], XmNbottomAttachment, XmATTACH_WIDGET), ++n;
  XtSetArg(args[n], XmNbottomWidget, ok), ++n;
  XtSetArg(args[n], XmNbottomOffset, 8), ++n;
  XtSetArg(args[n], XmNselectionPolicy, XmEXTENDED_SELECT), ++n;
  Widget list = XmCreateScrolledList(form, const_cast<char *>("scrolledList"), args, n);
  XtManageChild(list);
  XtAddCallback(remove, XmNactivateCallback, RemoveChosen, nullptr);
  XtAddCallback(rename, XmNactivateCallback, RenameChosen, nullptr);
  XtAddCallback(ok, XmNactivateCallback, EditorClose, nullptr);
  XtVaSetValues(form, XmNdefaultButton, ok, XmNcancelButton, ok, XmNinitialFocus, list, nullptr);
  FillBookmarks(list);
  XtManageChild(form);
  XtPopup(g_editor, XtGrabNone);
}

void FillCachePage(Widget page) {
  for (const char *name : {"*buttonDelete", "*buttonDeleteAll", "*buttonClean"}) {
    Widget b = XtNameToWidget(page, name);
    if (!b) continue;
    XtSetSensitive(b, True);
    XtAddCallback(b, XmNactivateCallback, CacheAction, page);
  }
  RefillCache(page);
}

}  // namespace quilla
