// The multi-page file dialog.
#include "files/multi_x.h"

#include <X11/IntrinsicP.h>
#include <X11/CoreP.h>
#include <Xm/DialogS.h>
#include <Xm/Form.h>
#include <Xm/Frame.h>
#include <Xm/Label.h>
#include <Xm/List.h>
#include <Xm/PushB.h>
#include <Xm/RowColumn.h>
#include <Xm/Separator.h>
#include <Xm/TextF.h>
#include <Xm/Xm.h>

#include <algorithm>
#include <cstdio>

#include "browser/browser_x.h"
#include "core/app_x.h"
#include "core/options_x.h"
#include "core/settings.h"
#include "files/load_x.h"
#include "files/modal_x.h"
#include "files/multi_model.h"
#include "files/selector_x.h"
#include "tessel.h"
#include "widgets/MyComboBox.h"

namespace quilla {

const char kMultiPageCommand[] = "multiPage";

namespace {

struct MultiDialog {
  Widget shell = nullptr, form = nullptr, list = nullptr, dir = nullptr, name = nullptr, combo = nullptr;
  Widget needs_items[4] = {};  // Remove, Remove All, Move Up, Move Down
  std::vector<std::string> paths;
  std::vector<int> formats;  // the combo's items
};

MultiDialog *g_dialog = nullptr;

struct SortItem {
  const char *name, *label;
  MultiSort key;
  bool descending;
};
const SortItem kSortItems[8] = {
    {"sortName", "Name (ascending)", MultiSort::kName, false},
    {"sortDate", "Date (ascending)", MultiSort::kDate, false},
    {"sortSize", "Size (ascending)", MultiSort::kSize, false},
    {"sortExt", "Extension (ascending)", MultiSort::kExtension, false},
    {"sortNameDesc", "Name (descending)", MultiSort::kName, true},
    {"sortDateDesc", "Date (descending)", MultiSort::kDate, true},
    {"sortSizeDesc", "Size (descending)", MultiSort::kSize, true},
    {"sortExtDesc", "Extension (descending)", MultiSort::kExtension, true},
};

void Bell(MultiDialog *d) { XBell(XtDisplay(d->shell), 0); }

// The list widget shows `paths`; `select` (from 0) is selected, -1 none.
void ShowList(MultiDialog *d, int select = -1) {
  XmListDeleteAllItems(d->list);
  for (const std::string &p : d->paths) {
    XmString s = XmStringCreateLocalized(const_cast<char *>(p.c_str()));
    XmListAddItemUnselected(d->list, s, 0);
    XmStringFree(s);
  }
  if (select >= 0 && select < static_cast<int>(d->paths.size())) {
    XmListSelectPos(d->list, select + 1, False);
    XmListSetKbdItemPos(d->list, select + 1);
  }
  for (Widget w : d->needs_items) XtSetSensitive(w, d->paths.empty() ? False : True);
}

std::vector<int> Selected(MultiDialog *d) {
  int *pos = nullptr, count = 0;
  std::vector<int> out;
  if (XmListGetSelectedPos(d->list, &pos, &count)) {
    for (int i = 0; i < count; ++i) out.push_back(pos[i] - 1);
    XtFree(reinterpret_cast<char *>(pos));
  }
  return out;
}

void AddPaths(MultiDialog *d, const std::vector<std::string> &paths) {
  d->paths.insert(d->paths.end(), paths.begin(), paths.end());
  ShowList(d);
}

void Destroyed(Widget, XtPointer client, XtPointer) {
  auto *d = static_cast<MultiDialog *>(client);
  if (g_dialog == d) g_dialog = nullptr;
  delete d;
}

void Close(MultiDialog *d) {
  if (!d->shell->core.being_destroyed) XtDestroyWidget(d->shell);
}

// "Add..." (files) and "Add Folder..." (the pictures of a directory).
void Add(Widget w, XtPointer client, XtPointer) {
  auto *d = static_cast<MultiDialog *>(client);
  const bool folder = std::string(XtName(w)) == "filelistAddDir";
  SelectorRequest req;
  req.title = folder ? "Select Directory ..." : "Select Multi File ...";
  req.mode = folder ? kSelectorDirectory : 0;
  req.multiple = !folder;
  SelectorResult res;
  if (!RunFileSelector(d->shell, req, &res) || res.paths.empty() || g_dialog != d) return;
  AddPaths(d, folder ? PicturesInFolder(res.paths.front()) : res.paths);
}

void Remove(Widget, XtPointer client, XtPointer) {
  auto *d = static_cast<MultiDialog *>(client);
  std::vector<int> sel = Selected(d);
  if (sel.empty()) return Bell(d);
  std::sort(sel.rbegin(), sel.rend());
  for (int i : sel) d->paths.erase(d->paths.begin() + i);
  ShowList(d, std::min(sel.back(), static_cast<int>(d->paths.size()) - 1));
}

void RemoveAll(Widget, XtPointer client, XtPointer) {
  auto *d = static_cast<MultiDialog *>(client);
  d->paths.clear();
  ShowList(d);
}

void Move(MultiDialog *d, int step) {
  const std::vector<int> sel = Selected(d);
  if (sel.size() != 1) return Bell(d);
  const int from = sel.front(), to = from + step;
  if (to < 0 || to >= static_cast<int>(d->paths.size())) return Bell(d);
  std::swap(d->paths[from], d->paths[to]);
  ShowList(d, to);
}
void MoveUp(Widget, XtPointer client, XtPointer) { Move(static_cast<MultiDialog *>(client), -1); }
void MoveDown(Widget, XtPointer client, XtPointer) { Move(static_cast<MultiDialog *>(client), 1); }

void SortChosen(Widget w, XtPointer client, XtPointer) {
  auto *d = static_cast<MultiDialog *>(client);
  for (const SortItem &item : kSortItems)
    if (std::string(XtName(w)) == item.name) SortMultiInputs(&d->paths, item.key, item.descending);
  ShowList(d);
}

void ChooseOutputDir(Widget, XtPointer client, XtPointer) {
  auto *d = static_cast<MultiDialog *>(client);
  std::string dir;
  if (ChooseOutputDirectory(d->shell, FieldText(d->dir), &dir) && g_dialog == d)
    XmTextFieldSetString(d->dir, const_cast<char *>(dir.c_str()));
}

void Options(Widget, XtPointer client, XtPointer) { ShowSaveOptions(static_cast<MultiDialog *>(client)->shell); }

void Cancel(Widget, XtPointer client, XtPointer) { Close(static_cast<MultiDialog *>(client)); }

void Create(Widget, XtPointer client, XtPointer) {
  auto *d = static_cast<MultiDialog *>(client);
  const std::string dir = FieldText(d->dir), name = FieldText(d->name);
  const int pos = MyComboBoxGetSelectedPos(d->combo);
  if (d->paths.empty() || name.empty() || pos < 1 || pos > static_cast<int>(d->formats.size())) return Bell(d);
  SettingsRecord &s = Settings();
  s.MultFile.Format = pos - 1;
  std::snprintf(s.MultFile.Directory, sizeof s.MultFile.Directory, "%s", dir.c_str());
  std::snprintf(s.MultFile.FileName, sizeof s.MultFile.FileName, "%s", name.c_str());
  const std::string out = dir.empty() ? name : dir + (dir.back() == '/' ? "" : "/") + name;
  const std::vector<std::string> inputs = d->paths;
  Widget shell = d->shell;
  SetBusy(shell, true);
  const MultiResult r = CreateMultiPage(s, out, d->formats[pos - 1], inputs);
  SetBusy(shell, false);
  BrowserState browser;
  if (r.pages > 0 && GetBrowserState(&browser)) RunBrowserCommand("quickRefresh");
  if (r.code != 0) {
    ShowMessage(WidgetAlive(shell) ? shell : App().shell, r.error);
    return;
  }
  if (g_dialog == d) Close(d);
}

Widget Button(Widget parent, const char *name, const char *label, XtCallbackProc proc, MultiDialog *d) {
  Widget b = ModalButton(parent, name, label);
  XtAddCallback(b, XmNactivateCallback, proc, d);
  return b;
}

Widget Caption(Widget parent, const char *name, const char *text) {
  Widget l = XtVaCreateManagedWidget(name, xmLabelWidgetClass, parent, nullptr);
  SetLabelText(l, text);
  return l;
}

MultiDialog *Build(Widget owner) {
  Widget parent = DialogParent(owner);
  if (!parent) return nullptr;
  auto *d = new MultiDialog;
  d->shell = XtVaCreatePopupShell("QuillMulti", xmDialogShellWidgetClass, parent, XmNtitle,
                                  "Create Multi-page file...", XmNdeleteResponse, XmDESTROY, XmNallowShellResize,
                                  True, nullptr);
  XtAddCallback(d->shell, XtNdestroyCallback, Destroyed, d);
  SetWindowIcon(d->shell);
  d->form = XtVaCreateWidget("form", xmFormWidgetClass, d->shell, XmNautoUnmanage, False, XmNmarginWidth, 10,
                             XmNmarginHeight, 10, XmNhorizontalSpacing, 6, XmNverticalSpacing, 6, nullptr);
  Widget form = d->form;

  // The file list with its buttons on the right.
  Widget list_label = Caption(form, "labelFileList", "File List");
  XtVaSetValues(list_label, XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM, nullptr);
  Widget buttons = XtVaCreateManagedWidget("fileButtons", xmRowColumnWidgetClass, form, XmNorientation, XmVERTICAL,
                                           XmNpacking, XmPACK_COLUMN, XmNtopAttachment, XmATTACH_WIDGET,
                                           XmNtopWidget, list_label, XmNrightAttachment, XmATTACH_FORM, nullptr);
  Button(buttons, "filelistAdd", "Add...", Add, d);
  Button(buttons, "filelistAddDir", "Add Folder...", Add, d);
  d->needs_items[0] = Button(buttons, "filelistDel", "Remove", Remove, d);
  d->needs_items[1] = Button(buttons, "filelistDelAll", "Remove All", RemoveAll, d);
  d->needs_items[2] = Button(buttons, "filelistUp", "Move Up", MoveUp, d);
  d->needs_items[3] = Button(buttons, "filelistDown", "Move Down", MoveDown, d);
  Arg args[4];
  Cardinal n = 0;
  XtSetArg(args[n], XmNselectionPolicy, XmEXTENDED_SELECT), ++n;
  XtSetArg(args[n], XmNvisibleItemCount, 10), ++n;
  XtSetArg(args[n], XmNwidth, 380), ++n;
  d->list = XmCreateScrolledList(form, const_cast<char *>("filelist"), args, n);
  XtVaSetValues(XtParent(d->list), XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, list_label, XmNleftAttachment,
                XmATTACH_FORM, XmNrightAttachment, XmATTACH_WIDGET, XmNrightWidget, buttons, nullptr);
  XtManageChild(d->list);
  // "Sort By", the list's pop-up menu (button 3 or the menu key).
  Widget menu = XmCreatePopupMenu(d->list, const_cast<char *>("sortMenu"), nullptr, 0);
  Caption(menu, "sortTitle", "Sort By");
  XtCreateManagedWidget("separator", xmSeparatorWidgetClass, menu, nullptr, 0);
  for (const SortItem &item : kSortItems) Button(menu, item.name, item.label, SortChosen, d);

  // The output.
  Widget frame = XtVaCreateManagedWidget("frameOutput", xmFrameWidgetClass, form, XmNtopAttachment, XmATTACH_WIDGET,
                                         XmNtopWidget, XtParent(d->list), XmNleftAttachment, XmATTACH_FORM,
                                         XmNrightAttachment, XmATTACH_FORM, nullptr);
  Widget title = Caption(frame, "labelOutput", "Output");
  XtVaSetValues(title, XmNchildType, XmFRAME_TITLE_CHILD, nullptr);
  Widget out = XtVaCreateManagedWidget("output", xmFormWidgetClass, frame, XmNhorizontalSpacing, 6,
                                       XmNverticalSpacing, 6, nullptr);
  Widget dir_label = Caption(out, "labelDirectory", "Directory");
  Widget name_label = Caption(out, "labelFilename", "Filename");
  Widget format_label = Caption(out, "labelFormat", "Format");
  Widget choose = Button(out, "OutputDirChoose", "...", ChooseOutputDir, d);
  d->dir = XtVaCreateManagedWidget("OutputDir", xmTextFieldWidgetClass, out, XmNcolumns, 36, XmNmaxLength,
                                   kPathSize - 1, XmNvalue, Settings().MultFile.Directory, nullptr);
  d->name = XtVaCreateManagedWidget("OutputFilename", xmTextFieldWidgetClass, out, XmNcolumns, 24, XmNmaxLength,
                                    127, XmNvalue, Settings().MultFile.FileName, nullptr);
  d->combo = MyCreateComboBox(out, "OutputList", nullptr, 0);
  XtManageChild(d->combo);
  Widget options = Button(out, "OutputOptions", "Options...", Options, d);
  for (Widget l : {dir_label, name_label, format_label}) {
    XtVaSetValues(l, XmNleftAttachment, XmATTACH_FORM, XmNwidth, 70, XmNrecomputeSize, False, XmNalignment,
                  XmALIGNMENT_BEGINNING, nullptr);
  }
  XtVaSetValues(dir_label, XmNtopAttachment, XmATTACH_FORM, XmNtopOffset, 10, nullptr);
  XtVaSetValues(choose, XmNtopAttachment, XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, nullptr);
  XtVaSetValues(d->dir, XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget,
                dir_label, XmNrightAttachment, XmATTACH_WIDGET, XmNrightWidget, choose, nullptr);
  XtVaSetValues(name_label, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, d->dir, XmNtopOffset, 10, nullptr);
  XtVaSetValues(d->name, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, d->dir, XmNleftAttachment,
                XmATTACH_WIDGET, XmNleftWidget, name_label, XmNrightAttachment, XmATTACH_FORM, nullptr);
  XtVaSetValues(format_label, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, d->name, XmNtopOffset, 10,
                XmNbottomAttachment, XmATTACH_FORM, nullptr);
  XtVaSetValues(options, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, d->name, XmNrightAttachment,
                XmATTACH_FORM, XmNbottomAttachment, XmATTACH_FORM, nullptr);
  XtVaSetValues(d->combo, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, d->name, XmNleftAttachment,
                XmATTACH_WIDGET, XmNleftWidget, format_label, XmNrightAttachment, XmATTACH_WIDGET,
                XmNrightWidget, options, XmNbottomAttachment, XmATTACH_FORM, nullptr);
  d->formats = MultiPageFormats();
  for (int f : d->formats) {
    const char *desc = tslFormatGetDescription(f);
    XmString s = XmStringCreateLocalized(const_cast<char *>(desc && *desc ? desc : tslFormatGetName(f)));
    MyComboBoxAddItem(d->combo, s, 0);
    XmStringFree(s);
  }
  if (!d->formats.empty()) {
    int chosen = Settings().MultFile.Format;
    if (chosen < 0 || chosen >= static_cast<int>(d->formats.size())) {
      const auto tiff = std::find(d->formats.begin(), d->formats.end(), tslFormatGetIndex("tiff"));
      chosen = tiff == d->formats.end() ? 0 : static_cast<int>(tiff - d->formats.begin());
    }
    MyComboBoxSelectPos(d->combo, chosen + 1);
  }

  // Create and Cancel: Return and Escape.
  Widget sep = XtVaCreateManagedWidget("separator", xmSeparatorWidgetClass, form, XmNtopAttachment, XmATTACH_WIDGET,
                                       XmNtopWidget, frame, XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment,
                                       XmATTACH_FORM, nullptr);
  Widget go = Button(form, "buttonGo", "Create", Create, d);
  Widget cancel = Button(form, "buttonCancel", "Cancel", Cancel, d);
  for (Widget b : {go, cancel})
    XtVaSetValues(b, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, sep, XmNbottomAttachment, XmATTACH_FORM,
                  XmNleftAttachment, XmATTACH_POSITION, XmNleftPosition, b == go ? 10 : 60, XmNrightAttachment,
                  XmATTACH_POSITION, XmNrightPosition, b == go ? 40 : 90, nullptr);
  XtVaSetValues(form, XmNdefaultButton, go, XmNcancelButton, cancel, XmNinitialFocus, d->dir, nullptr);
  return d;
}

}  // namespace

Widget OpenMultiDialog(Widget owner, const std::vector<std::string> &files) {
  if (g_dialog) {
    AddPaths(g_dialog, files);
    if (XtWindow(g_dialog->shell)) XRaiseWindow(XtDisplay(g_dialog->shell), XtWindow(g_dialog->shell));
    return g_dialog->shell;
  }
  MultiDialog *d = Build(owner);
  if (!d) return nullptr;
  g_dialog = d;
  d->paths = files;
  ShowList(d);
  XtManageChild(d->form);  // pops the dialog shell up
  XmProcessTraversal(d->dir, XmTRAVERSE_CURRENT);
  return d->shell;
}

Widget ShownMultiDialog() { return g_dialog ? g_dialog->shell : nullptr; }

}  // namespace quilla
