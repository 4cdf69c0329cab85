// The Options dialog: its pages are built from the options table; every
// control is found again through the table's widget names.
#include "core/options_x.h"

#include <Xm/DialogS.h>
#include <Xm/Form.h>
#include <Xm/Frame.h>
#include <Xm/Label.h>
#include <Xm/List.h>
#include <Xm/Protocols.h>
#include <Xm/PushB.h>
#include <Xm/RowColumn.h>
#include <Xm/ScrolledW.h>
#include <Xm/Separator.h>
#include <Xm/TextF.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "core/app_x.h"
#include "core/options_model.h"
#include "core/settings.h"
#include "tessel.h"

namespace quilla {

namespace {

constexpr int kPageCount = static_cast<int>(OptionPage::kCount);
// The page area's size: room for two columns of fields; longer pages scroll.
constexpr Dimension kAreaWidth = 780, kAreaHeight = 540;

// One control bound to a row of the table, and the text it showed first.
struct Control {
  const OptionEntry *entry;
  OptionPage page;
  Widget widget;  // text field, toggle or option menu
  std::string initial;
};

struct Dialog {
  Widget shell = nullptr, form = nullptr, page_list = nullptr, area = nullptr, message = nullptr;
  Widget pages[kPageCount] = {};
  Widget file_types = nullptr;  // the list of the file-type page
  std::vector<Control> controls;
  int shown = -1;
  bool modal = false, done = false, applied = false;
};

Dialog *g_dialog = nullptr;
OptionsPageHook g_cache_hook = nullptr;
std::vector<OptionsAppliedHook> g_applied_hooks;
int g_last_page = 0;  // the page shown when the dialog opens again

XmString Str(const std::string &s) { return XmStringCreateLocalized(const_cast<char *>(s.c_str())); }

// ---- the text a control shows, and setting it

std::string ControlText(const Control &c) {
  switch (c.entry->kind) {
    case OptionKind::kToggle: return XmToggleButtonGetState(c.widget) ? "True" : "False";
    case OptionKind::kChoice:
    case OptionKind::kFormat: {
      Widget chosen = nullptr;
      XtVaGetValues(c.widget, XmNmenuHistory, &chosen, nullptr);
      XtPointer data = nullptr;
      if (chosen) XtVaGetValues(chosen, XmNuserData, &data, nullptr);
      return data ? static_cast<const char *>(data) : c.initial;
    }
    default: {
      char *t = XmTextFieldGetString(c.widget);
      std::string s = t ? t : "";
      XtFree(t);
      return s;
    }
  }
}

Widget FirstTextField(const Dialog *d, int page) {
  for (const Control &c : d->controls)
    if (static_cast<int>(c.page) == page && XmIsTextField(c.widget)) return c.widget;
  return nullptr;
}

void Focus(Widget w) {
  if (!w) return;
  XmProcessTraversal(w, XmTRAVERSE_CURRENT);
  if (XmIsTextField(w)) {
    XmTextPosition end = XmTextFieldGetLastPosition(w);
    XmTextFieldSetSelection(w, 0, end, XtLastTimestampProcessed(XtDisplay(w)));
    XmTextFieldSetInsertionPosition(w, end);
  }
}

void ShowPage(Dialog *d, int page) {
  if (page < 0 || page >= kPageCount || !d->pages[page] || page == d->shown) return;
  if (d->shown >= 0) XtUnmanageChild(d->pages[d->shown]);
  XtManageChild(d->pages[page]);
  d->shown = page;
  if (!d->modal) g_last_page = page;
  if (d->page_list) {
    // The list holds the pages that exist, in page order.
    int pos = 0;
    for (int p = 0; p <= page; ++p)
      if (d->pages[p]) ++pos;
    XmListSelectPos(d->page_list, pos, False);
    XmListSetKbdItemPos(d->page_list, pos);
  }
  XmString empty = Str("");
  XtVaSetValues(d->message, XmNlabelString, empty, nullptr);
  XmStringFree(empty);
}

// ---- building

Widget Label(Widget parent, const char *name, const std::string &text) {
  XmString s = Str(text);
  Widget w = XtVaCreateManagedWidget(name, xmLabelWidgetClass, parent, XmNlabelString, s, XmNalignment,
                                     XmALIGNMENT_BEGINNING, nullptr);
  XmStringFree(s);
  return w;
}

short FieldColumns(const OptionEntry &e) {
  switch (e.kind) {
    case OptionKind::kReal: return 6;
    case OptionKind::kColor: return 8;
    case OptionKind::kNumber: return 10;
    default: return e.max_length > 200 ? 30 : 24;
  }
}

// An option menu of the row's choices (or of the writable formats); each
// button carries its value's text as user data.
Widget OptionMenu(Widget parent, const OptionEntry &e, const std::string &value) {
  Widget pull = XmCreatePulldownMenu(parent, const_cast<char *>((e.widget + "Pulldown").c_str()), nullptr, 0);
  std::vector<std::pair<std::string, std::string>> items;  // (widget name, value text) with labels
  std::vector<std::string> labels;
  if (e.kind == OptionKind::kFormat) {
    std::vector<std::string> names;
    for (int i = 0; i < tslCount(); ++i)
      if (tslFormatIsWritable(i) && tslFormatGetName(i)) names.push_back(tslFormatGetName(i));
    std::sort(names.begin(), names.end());
    for (const std::string &n : names) {
      items.push_back({e.widget + "_" + n, n});
      labels.push_back(n);
    }
  } else {
    for (const OptionChoice &c : e.choices) {
      items.push_back({c.widget, std::to_string(c.value)});
      labels.push_back(c.label);
    }
  }
  Widget history = nullptr;
  for (size_t i = 0; i < items.size(); ++i) {
    XmString s = Str(labels[i]);
    // The value text lives as long as the button.
    char *data = XtNewString(items[i].second.c_str());
    Widget b = XtVaCreateManagedWidget(items[i].first.c_str(), xmPushButtonWidgetClass, pull, XmNlabelString, s,
                                       XmNuserData, data, nullptr);
    XtAddCallback(
        b, XmNdestroyCallback,
        [](Widget w, XtPointer, XtPointer) {
          XtPointer p = nullptr;
          XtVaGetValues(w, XmNuserData, &p, nullptr);
          XtFree(static_cast<char *>(p));
        },
        nullptr);
    XmStringFree(s);
    if (!history || items[i].second == value) history = b;  // the value's button, else the first
  }
  Arg args[2];
  XtSetArg(args[0], XmNsubMenuId, pull);
  XtSetArg(args[1], XmNmenuHistory, history);
  Widget menu = XmCreateOptionMenu(parent, const_cast<char *>(e.widget.c_str()), args, 2);
  XtUnmanageChild(XmOptionLabelGadget(menu));
  XtManageChild(menu);
  return menu;
}

// One row: a toggle, or a label and its field or option menu.  Returns the
// row; *label_out is its label (nullptr for toggles).
Widget Row(Dialog *d, Widget column, const OptionEntry &e, Widget *label_out) {
  Widget row = XtVaCreateWidget("row", xmFormWidgetClass, column, nullptr);
  const std::string value = OptionValueText(Settings(), e);
  Widget control;
  *label_out = nullptr;
  if (e.kind == OptionKind::kToggle) {
    XmString s = Str(e.label);
    control = XtVaCreateManagedWidget(e.widget.c_str(), xmToggleButtonWidgetClass, row, XmNlabelString, s, XmNset,
                                      value == "True" ? True : False, XmNleftAttachment, XmATTACH_FORM,
                                      XmNtopAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_FORM, nullptr);
    XmStringFree(s);
  } else {
    Widget label = Label(row, "label", e.label + ":");
    XtVaSetValues(label, XmNleftAttachment, XmATTACH_FORM, XmNtopAttachment, XmATTACH_FORM, XmNbottomAttachment,
                  XmATTACH_FORM, XmNrecomputeSize, False, nullptr);
    *label_out = label;
    if (e.kind == OptionKind::kChoice || e.kind == OptionKind::kFormat) {
      control = OptionMenu(row, e, value);
    } else {
      control = XtVaCreateManagedWidget(e.widget.c_str(), xmTextFieldWidgetClass, row, XmNcolumns, FieldColumns(e),
                                        XmNvalue, value.c_str(), nullptr);
      if (e.kind == OptionKind::kText) XmTextFieldSetMaxLength(control, static_cast<int>(e.max_length));
    }
    XtVaSetValues(control, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, label, XmNleftOffset, 6,
                  XmNtopAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_FORM, nullptr);
  }
  d->controls.push_back({&e, e.page, control, ControlText({&e, e.page, control, value})});
  XtManageChild(row);
  return row;
}

// One column of rows under `top` (nullptr: the top) beside `left` (nullptr:
// the left side); labels share one width so the fields line up.
Widget Column(Dialog *d, Widget parent, const char *name, const std::vector<const OptionEntry *> &rows, Widget top,
              Widget left) {
  Widget column = XtVaCreateWidget(name, xmRowColumnWidgetClass, parent, XmNorientation, XmVERTICAL, XmNpacking,
                                   XmPACK_TIGHT, XmNspacing, 2, nullptr);
  if (top)
    XtVaSetValues(column, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, top, XmNtopOffset, 12, nullptr);
  else
    XtVaSetValues(column, XmNtopAttachment, XmATTACH_FORM, nullptr);
  if (left)
    XtVaSetValues(column, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, left, XmNleftOffset, 24, nullptr);
  else
    XtVaSetValues(column, XmNleftAttachment, XmATTACH_FORM, nullptr);
  std::vector<Widget> labels;
  Dimension widest = 0;
  for (const OptionEntry *e : rows) {
    Widget label;
    Row(d, column, *e, &label);
    if (!label) continue;
    Dimension w = 0;
    XtVaGetValues(label, XmNwidth, &w, nullptr);
    widest = std::max(widest, w);
    labels.push_back(label);
  }
  for (Widget l : labels) XtVaSetValues(l, XmNwidth, widest, nullptr);
  XtManageChild(column);
  return column;
}

// Two columns of about half the rows each, under `top`; returns the taller.
Widget TwoColumns(Dialog *d, Widget parent, const std::vector<const OptionEntry *> &rows, Widget top,
                  const char *names[2]) {
  const auto half = rows.begin() + static_cast<long>((rows.size() + 1) / 2);
  Widget a = Column(d, parent, names[0], {rows.begin(), half}, top, nullptr);
  Column(d, parent, names[1], {half, rows.end()}, top, a);
  return a;
}

// The rows of `page`: the fields, then the switches.  A short list of fields
// (or one holding many paths) is one column with the switches beside it; a long
// list of short fields takes two columns with the switches under them, also
// in two columns.
void FillColumns(Dialog *d, Widget parent, OptionPage page) {
  std::vector<const OptionEntry *> fields, toggles;
  int paths = 0;
  for (const OptionEntry &e : OptionTable()) {
    if (e.page != page) continue;
    (e.kind == OptionKind::kToggle ? toggles : fields).push_back(&e);
    paths += e.kind == OptionKind::kText && e.max_length > 200;
  }
  if (paths > 2 || fields.size() <= 12) {
    Widget left = fields.empty() ? nullptr : Column(d, parent, "column1", fields, nullptr, nullptr);
    if (!toggles.empty()) Column(d, parent, "column2", toggles, nullptr, left);
    return;
  }
  const char *field_names[2] = {"column1", "column2"};
  Widget bottom = TwoColumns(d, parent, fields, nullptr, field_names);
  if (toggles.empty()) return;
  const char *toggle_names[2] = {"column3", "column4"};
  if (toggles.size() > 6)
    TwoColumns(d, parent, toggles, bottom, toggle_names);
  else
    Column(d, parent, "column3", toggles, bottom, nullptr);
}

Widget ScrolledPage(Dialog *d, OptionPage page) {
  Widget sw = XtVaCreateWidget(OptionPageName(page), xmScrolledWindowWidgetClass, d->area, XmNscrollingPolicy,
                               XmAUTOMATIC, XmNscrollBarDisplayPolicy, XmAS_NEEDED, XmNwidth, kAreaWidth,
                               XmNheight, kAreaHeight, XmNtopAttachment, XmATTACH_FORM, XmNbottomAttachment,
                               XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment,
                               XmATTACH_FORM, nullptr);
  Widget work = XtVaCreateWidget("page", xmFormWidgetClass, sw, XmNmarginWidth, 8, XmNmarginHeight, 8, nullptr);
  FillColumns(d, work, page);
  XtManageChild(work);
  return sw;
}

Widget FramedPage(Dialog *d, OptionPage page) {
  return XtVaCreateWidget(OptionPageName(page), xmFormWidgetClass, d->area, XmNwidth, kAreaWidth, XmNheight,
                          kAreaHeight, XmNmarginWidth, 8, XmNmarginHeight, 8, XmNtopAttachment, XmATTACH_FORM,
                          XmNbottomAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM,
                          XmNrightAttachment, XmATTACH_FORM, nullptr);
}

// A list filling the page under `above`, with `bottom` (or the page's
// bottom) below it.
Widget PageList(Widget page, Widget above, Widget bottom, unsigned char policy) {
  Arg args[8];
  int n = 0;
  XtSetArg(args[n], XmNselectionPolicy, policy), ++n;
  XtSetArg(args[n], XmNvisibleItemCount, 12), ++n;
  XtSetArg(args[n], XmNscrollBarDisplayPolicy, XmSTATIC), ++n;
  Widget list = XmCreateScrolledList(page, const_cast<char *>("scrolledList"), args, n);
  XtVaSetValues(XtParent(list), XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, above, XmNtopOffset, 6,
                XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, XmNbottomAttachment,
                bottom ? XmATTACH_WIDGET : XmATTACH_FORM, XmNbottomWidget, bottom, XmNbottomOffset, 6, nullptr);
  XtManageChild(list);
  return list;
}

Widget FileTypesPage(Dialog *d) {
  Widget page = FramedPage(d, OptionPage::kFileTypes);
  Widget label = Label(page, "label", "File types recognised (selected types are enabled):");
  XtVaSetValues(label, XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM, nullptr);
  Widget list = PageList(page, label, nullptr, XmMULTIPLE_SELECT);
  XmFontList fonts = nullptr;
  XtVaGetValues(list, XmNfontList, &fonts, nullptr);
  const SettingsRecord &s = Settings();
  for (int i = 0; i < s.file_type_count; ++i) {
    const int index = tslFormatGetIndex(s.file_types[i].name);
    std::string line = index >= 0 ? FileTypeLine(index) : s.file_types[i].name;
    XmString item = Str(line);
    XmListAddItemUnselected(list, item, 0);
    XmStringFree(item);
    if (s.file_types[i].enabled) XmListSelectPos(list, i + 1, False);
  }
  d->file_types = list;
  return page;
}

Widget CachePage(Dialog *d) {
  Widget page = FramedPage(d, OptionPage::kCache);
  Widget settings = XtVaCreateWidget("settings", xmFormWidgetClass, page, XmNtopAttachment, XmATTACH_FORM,
                                     XmNleftAttachment, XmATTACH_FORM, nullptr);
  FillColumns(d, settings, OptionPage::kCache);
  XtManageChild(settings);
  Widget label = Label(page, "label", "Directories in the cache:");
  XtVaSetValues(label, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, settings, XmNtopOffset, 10,
                XmNleftAttachment, XmATTACH_FORM, nullptr);
  Widget buttons = XtVaCreateWidget("tbCacheActions", xmRowColumnWidgetClass, page, XmNorientation, XmHORIZONTAL,
                                    XmNbottomAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM, nullptr);
  const char *const names[3][2] = {{"buttonDelete", "Delete"}, {"buttonDeleteAll", "Delete All"},
                                   {"buttonClean", "Clean"}};
  for (const auto &nb : names) {
    XmString s = Str(nb[1]);
    Widget b = XtVaCreateManagedWidget(nb[0], xmPushButtonWidgetClass, buttons, XmNlabelString, s, nullptr);
    XmStringFree(s);
    XtSetSensitive(b, False);  // the cache's own module makes them work
  }
  XtManageChild(buttons);
  Widget list = PageList(page, label, buttons, XmEXTENDED_SELECT);
  XtSetSensitive(list, False);
  if (g_cache_hook) g_cache_hook(page);
  return page;
}

// ---- answering

void Finish(Dialog *d, bool applied) {
  d->done = true;
  d->applied = applied;
  if (!d->modal) XtDestroyWidget(d->shell);
}

void Apply(Dialog *d) {
  // Every changed value is checked on a copy first, so a bad one changes nothing.
  auto copy = std::make_unique<SettingsRecord>(Settings());
  for (const Control &c : d->controls) {
    const std::string text = ControlText(c);
    if (text == c.initial) continue;
    if (!SetOptionValue(copy.get(), *c.entry, text)) {
      ShowPage(d, static_cast<int>(c.page));
      XmString s = Str("Invalid value for \"" + c.entry->label + "\": " + text);
      XtVaSetValues(d->message, XmNlabelString, s, nullptr);
      XmStringFree(s);
      XBell(XtDisplay(d->shell), 0);
      Focus(c.widget);
      return;
    }
  }
  for (const Control &c : d->controls) {
    const std::string text = ControlText(c);
    if (text != c.initial) SetOptionValue(&Settings(), *c.entry, text);
  }
  if (d->file_types) {
    SettingsRecord &s = Settings();
    for (int i = 0; i < s.file_type_count; ++i) s.file_types[i].enabled = XmListPosSelected(d->file_types, i + 1);
  }
  Finish(d, true);
  for (OptionsAppliedHook hook : g_applied_hooks) hook();
}

void OkCallback(Widget, XtPointer data, XtPointer) {
  Dialog *d = static_cast<Dialog *>(data);
  if (!d->done) Apply(d);
}

void CancelCallback(Widget, XtPointer data, XtPointer) {
  Dialog *d = static_cast<Dialog *>(data);
  if (!d->done) Finish(d, false);
}

void PageChosen(Widget, XtPointer data, XtPointer call) {
  Dialog *d = static_cast<Dialog *>(data);
  auto *cb = static_cast<XmListCallbackStruct *>(call);
  int pos = 0;
  for (int p = 0; p < kPageCount; ++p) {
    if (d->pages[p] && ++pos == cb->item_position) {
      ShowPage(d, p);
      return;
    }
  }
}

void Destroyed(Widget, XtPointer data, XtPointer) {
  Dialog *d = static_cast<Dialog *>(data);
  if (g_dialog == d) g_dialog = nullptr;
  d->done = true;
  if (!d->modal) delete d;
  else d->shell = nullptr;
}

Widget Button(Widget form, const char *name, const char *text, int left, int right) {
  XmString s = Str(text);
  Widget b = XtVaCreateManagedWidget(name, xmPushButtonWidgetClass, form, XmNlabelString, s, XmNbottomAttachment,
                                     XmATTACH_FORM, XmNleftAttachment, XmATTACH_POSITION, XmNleftPosition, left,
                                     XmNrightAttachment, XmATTACH_POSITION, XmNrightPosition, right, nullptr);
  XmStringFree(s);
  return b;
}

// Builds the dialog with the pages wanted (all, or the Save page alone).
Dialog *Build(Widget owner, bool save_only) {
  Widget parent = ShellOf(owner);
  if (!parent) parent = App().shell;
  Dialog *d = new Dialog;
  d->modal = save_only;
  d->shell = XtVaCreatePopupShell("QuillOption", xmDialogShellWidgetClass, parent, XmNtitle,
                                  save_only ? "Save Options" : "Options", XmNdeleteResponse, XmDO_NOTHING,
                                  XmNallowShellResize, True, nullptr);
  XtAddCallback(d->shell, XmNdestroyCallback, Destroyed, d);
  d->form = XtVaCreateWidget("form", xmFormWidgetClass, d->shell, XmNautoUnmanage, False, XmNmarginWidth, 10,
                             XmNmarginHeight, 10, XmNdialogStyle,
                             save_only ? XmDIALOG_FULL_APPLICATION_MODAL : XmDIALOG_MODELESS, nullptr);
  XmAddWMProtocolCallback(d->shell, XmInternAtom(XtDisplay(d->shell), const_cast<char *>("WM_DELETE_WINDOW"), False),
                          CancelCallback, d);

  // Buttons, a separator and the message line, from the bottom up.
  Widget ok = Button(d->form, "buttonOk", "O.K.", 20, 40);
  Widget cancel = Button(d->form, "buttonCancel", "Cancel", 60, 80);
  Widget sep = XtVaCreateManagedWidget("separator", xmSeparatorWidgetClass, d->form, XmNleftAttachment,
                                       XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, XmNbottomAttachment,
                                       XmATTACH_WIDGET, XmNbottomWidget, ok, XmNbottomOffset, 8, nullptr);
  d->message = Label(d->form, "labelMessage", "");
  XtVaSetValues(d->message, XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM,
                XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget, sep, XmNbottomOffset, 4, nullptr);
  XtAddCallback(ok, XmNactivateCallback, OkCallback, d);
  XtAddCallback(cancel, XmNactivateCallback, CancelCallback, d);

  // The page list on the left, the page area on the right.
  if (!save_only) {
    Arg args[4];
    int n = 0;
    XtSetArg(args[n], XmNselectionPolicy, XmBROWSE_SELECT), ++n;
    XtSetArg(args[n], XmNvisibleItemCount, kPageCount), ++n;
    d->page_list = XmCreateScrolledList(d->form, const_cast<char *>("listPages"), args, n);
    XtVaSetValues(XtParent(d->page_list), XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM,
                  XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget, d->message, XmNbottomOffset, 6, nullptr);
    XtAddCallback(d->page_list, XmNbrowseSelectionCallback, PageChosen, d);
    XtAddCallback(d->page_list, XmNdefaultActionCallback, PageChosen, d);
  }
  d->area = XtVaCreateWidget("pageArea", xmFrameWidgetClass, d->form, XmNtopAttachment, XmATTACH_FORM,
                             XmNrightAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_WIDGET,
                             XmNbottomWidget, d->message, XmNbottomOffset, 6, nullptr);
  if (d->page_list)
    XtVaSetValues(d->area, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, XtParent(d->page_list),
                  XmNleftOffset, 8, nullptr);
  else
    XtVaSetValues(d->area, XmNleftAttachment, XmATTACH_FORM, nullptr);
  // A frame holds one work child: the pages share a form inside it.
  Widget holder = XtVaCreateManagedWidget("pages", xmFormWidgetClass, d->area, nullptr);
  d->area = holder;
  for (int p = 0; p < kPageCount; ++p) {
    const OptionPage page = static_cast<OptionPage>(p);
    if (save_only && page != OptionPage::kSave) continue;
    if (page == OptionPage::kFileTypes)
      d->pages[p] = FileTypesPage(d);
    else if (page == OptionPage::kCache)
      d->pages[p] = CachePage(d);
    else
      d->pages[p] = ScrolledPage(d, page);
    if (d->page_list) {
      XmString s = Str(OptionPageTitle(page));
      XmListAddItemUnselected(d->page_list, s, 0);
      XmStringFree(s);
    }
  }
  XtManageChild(XtParent(holder));
  if (d->page_list) XtManageChild(d->page_list);
  XtVaSetValues(d->form, XmNdefaultButton, ok, XmNcancelButton, cancel, nullptr);
  ShowPage(d, save_only ? static_cast<int>(OptionPage::kSave) : g_last_page);
  XtVaSetValues(d->form, XmNinitialFocus, FirstTextField(d, d->shown), nullptr);
  SetWindowIcon(d->shell);
  XtManageChild(d->form);  // pops the dialog shell up
  Focus(FirstTextField(d, d->shown));
  return d;
}

}  // namespace

void OpenOptions(Widget owner) {
  if (g_dialog && g_dialog->shell) {
    XtPopup(g_dialog->shell, XtGrabNone);
    if (XtWindow(g_dialog->shell)) XRaiseWindow(XtDisplay(g_dialog->shell), XtWindow(g_dialog->shell));
    return;
  }
  g_dialog = Build(owner, false);
}

bool ShowSaveOptions(Widget owner) {
  if (g_dialog && g_dialog->shell) XtDestroyWidget(g_dialog->shell);  // one QuillOption at a time
  Dialog *d = Build(owner, true);
  g_dialog = d;
  XtAppContext app = XtWidgetToApplicationContext(d->shell);
  while (!d->done && !XtAppGetExitFlag(app)) XtAppProcessEvent(app, XtIMAll);
  const bool applied = d->applied;
  if (d->shell) {
    Widget shell = d->shell;
    d->modal = false;  // the destroy callback frees the record now
    XtDestroyWidget(shell);
  } else {
    delete d;
  }
  return applied;
}

void AddOptionsAppliedHook(OptionsAppliedHook hook) {
  if (std::find(g_applied_hooks.begin(), g_applied_hooks.end(), hook) == g_applied_hooks.end())
    g_applied_hooks.push_back(hook);
}

Widget ShownOptions() { return g_dialog ? g_dialog->shell : nullptr; }

OptionsPageHook SetCachePageHook(OptionsPageHook hook) {
  OptionsPageHook old = g_cache_hook;
  g_cache_hook = hook;
  return old;
}

}  // namespace quilla
