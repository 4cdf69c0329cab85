// The dialogs of the picture operations: the parameter panels built from a
// parameter kind, the parameter dialog of one operation, QuillOp and
// QuillUserFilter.  The panels only show and read values; what they mean is
// decided in op_model.
#include "view/op_dialogs_x.h"

#include <X11/IntrinsicP.h>
#include <X11/CoreP.h>
#include <Xm/AtomMgr.h>
#include <Xm/DialogS.h>
#include <Xm/Form.h>
#include <Xm/Frame.h>
#include <Xm/Label.h>
#include <Xm/List.h>
#include <Xm/Protocols.h>
#include <Xm/PushB.h>
#include <Xm/RowColumn.h>
#include <Xm/Scale.h>
#include <Xm/Separator.h>
#include <Xm/TextF.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "core/app_x.h"
#include "files/load_x.h"
#include "view/op_model.h"

namespace quilla {

namespace {

OpDialogHook g_hook = nullptr;

XmString Str(const std::string &text) { return XmStringCreateLocalized(const_cast<char *>(text.c_str())); }

Widget DialogParent(Widget owner) {
  Widget s = ShellOf(owner);
  if (s && !s->core.being_destroyed) return s;
  return App().shell;
}

Widget Button(Widget parent, const char *name, const char *label) {
  XmString s = Str(label);
  Widget b = XtVaCreateManagedWidget(name, xmPushButtonWidgetClass, parent, XmNlabelString, s, nullptr);
  XmStringFree(s);
  return b;
}

Widget Label(Widget parent, const char *name, const std::string &text) {
  XmString s = Str(text);
  Widget l = XtVaCreateManagedWidget(name, xmLabelWidgetClass, parent, XmNlabelString, s, XmNalignment,
                                     XmALIGNMENT_BEGINNING, nullptr);
  XmStringFree(s);
  return l;
}

void SetText(Widget text, const std::string &value) { XmTextFieldSetString(text, const_cast<char *>(value.c_str())); }

std::string GetText(Widget text) {
  char *s = XmTextFieldGetString(text);
  std::string out = s ? s : "";
  XtFree(s);
  return out;
}

// ---- modal dialogs ------------------------------------------------------------------

// The state a modal dialog shares with its callbacks.  The shell may be
// destroyed under the loop (its owner went away): then `destroyed` is set
// and nothing of the tree is read any more.
struct Modal {
  Widget shell = nullptr, form = nullptr;
  bool done = false, ok = false, destroyed = false;
};

void ModalDestroyed(Widget, XtPointer data, XtPointer) {
  auto *m = static_cast<Modal *>(data);
  m->destroyed = true;
  m->done = true;
}
void ModalOk(Widget, XtPointer data, XtPointer) {
  auto *m = static_cast<Modal *>(data);
  m->ok = true;
  m->done = true;
}
void ModalCancel(Widget, XtPointer data, XtPointer) {
  auto *m = static_cast<Modal *>(data);
  m->ok = false;
  m->done = true;
}

// A dialog shell and its form; the caller fills the form.
void BuildModal(Modal *m, Widget owner, const char *shell_name, const char *title, const char *form_name) {
  m->shell = XtVaCreatePopupShell(shell_name, xmDialogShellWidgetClass, DialogParent(owner), XmNtitle, title,
                                  XmNdeleteResponse, XmDO_NOTHING, XmNallowShellResize, True, nullptr);
  XtAddCallback(m->shell, XtNdestroyCallback, ModalDestroyed, m);
  Atom del = XmInternAtom(XtDisplay(m->shell), const_cast<char *>("WM_DELETE_WINDOW"), False);
  XmAddWMProtocolCallback(m->shell, del, ModalCancel, m);
  m->form = XtVaCreateWidget(form_name, xmFormWidgetClass, m->shell, XmNdialogStyle, XmDIALOG_FULL_APPLICATION_MODAL,
                             XmNautoUnmanage, False, XmNmarginWidth, 10, XmNmarginHeight, 10, XmNhorizontalSpacing,
                             6, XmNverticalSpacing, 6, nullptr);
}

// The O.K./Cancel row at the bottom of a form (extra buttons between them):
// O.K. answers Return, Cancel Escape.  Returns the separator above the row,
// for the form's other children to attach to.
Widget ButtonRow(Modal *m, std::vector<Widget> *extra, const std::vector<std::pair<const char *, const char *>> &names) {
  Widget row = XtVaCreateManagedWidget("buttonRow", xmFormWidgetClass, m->form, XmNleftAttachment, XmATTACH_FORM,
                                       XmNrightAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_FORM,
                                       XmNfractionBase, 100, nullptr);
  const int n = static_cast<int>(names.size()) + 2;
  std::vector<Widget> all;
  all.push_back(Button(row, "buttonOk", "O.K."));
  for (const auto &nm : names) {
    all.push_back(Button(row, nm.first, nm.second));
    if (extra) extra->push_back(all.back());
  }
  all.push_back(Button(row, "buttonCancel", "Cancel"));
  for (int k = 0; k < n; ++k)
    XtVaSetValues(all[k], XmNdefaultButtonShadowThickness, 1, XmNleftAttachment, XmATTACH_POSITION,
                  XmNleftPosition, k * 100 / n + 2, XmNrightAttachment, XmATTACH_POSITION, XmNrightPosition,
                  (k + 1) * 100 / n - 2, XmNtopAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_FORM,
                  nullptr);
  XtAddCallback(all.front(), XmNactivateCallback, ModalOk, m);
  XtAddCallback(all.back(), XmNactivateCallback, ModalCancel, m);
  XtVaSetValues(m->form, XmNdefaultButton, all.front(), XmNcancelButton, all.back(), nullptr);
  return XtVaCreateManagedWidget("separator", xmSeparatorWidgetClass, m->form, XmNleftAttachment, XmATTACH_FORM,
                                 XmNrightAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_WIDGET,
                                 XmNbottomWidget, row, nullptr);
}

// Shows the dialog with the keyboard in `focus` and waits for its answer.
void RunModal(Modal *m, Widget focus) {
  XtAppContext app = XtWidgetToApplicationContext(m->shell);
  XtManageChild(m->form);
  if (focus) {
    XtVaSetValues(m->form, XmNinitialFocus, focus, nullptr);
    XmProcessTraversal(focus, XmTRAVERSE_CURRENT);
  }
  XFlush(XtDisplay(m->shell));
  if (g_hook && !m->done) g_hook(m->shell);
  while (!m->done && !XtAppGetExitFlag(app)) XtAppProcessEvent(app, XtIMAll);
}

void EndModal(Modal *m) {
  if (m->destroyed) return;
  XtRemoveCallback(m->shell, XtNdestroyCallback, ModalDestroyed, m);
  XtUnmanageChild(m->form);
  XtDestroyWidget(m->shell);
}

// ---- parameter panels ------------------------------------------------------------------

struct Panel {
  OpPanel desc;
  Widget box = nullptr;
  std::vector<Widget> scales, slider_texts;
  std::vector<std::vector<Widget>> toggles;  // per group; option menus: their buttons
  std::vector<Widget> option_menus;          // per group, nullptr for toggle groups
  std::vector<Widget> checks, fields;
  Widget first_focus = nullptr;
  uint32_t pic_w = 0, pic_h = 0;  // the picture a size panel sizes (0: unknown)
  bool syncing = false;
  std::function<void()> changed;  // called after any value changed
};

void Changed(Panel *p) {
  if (p->changed && !p->syncing) p->changed();
}
void ControlChanged(Widget, XtPointer data, XtPointer) { Changed(static_cast<Panel *>(data)); }

void ScaleMoved(Widget w, XtPointer data, XtPointer call) {
  auto *p = static_cast<Panel *>(data);
  auto *cb = static_cast<XmScaleCallbackStruct *>(call);
  for (size_t k = 0; k < p->scales.size(); ++k)
    if (p->scales[k] == w && !p->syncing) {
      p->syncing = true;
      SetText(p->slider_texts[k], PanelNumberText(cb->value, p->desc.sliders[k].decimals));
      p->syncing = false;
      Changed(p);
    }
}

void SliderTextChanged(Widget w, XtPointer data, XtPointer) {
  auto *p = static_cast<Panel *>(data);
  if (p->syncing) return;
  for (size_t k = 0; k < p->slider_texts.size(); ++k) {
    if (p->slider_texts[k] != w) continue;
    int v;
    if (PanelNumberParse(GetText(w).c_str(), p->desc.sliders[k], &v)) {
      p->syncing = true;
      XmScaleSetValue(p->scales[k], v);
      p->syncing = false;
      Changed(p);
    }
  }
}

int FieldValue(Widget w) { return std::atoi(GetText(w).c_str()); }

bool PercentMode(const Panel *p) {
  return p->desc.size_panel && !p->toggles.empty() && XmToggleButtonGetState(p->toggles[0][1]);
}

// Keep ratio: the other side follows the side typed.
void SizeFieldChanged(Widget w, XtPointer data, XtPointer) {
  auto *p = static_cast<Panel *>(data);
  if (p->syncing) return;
  if (p->fields.size() < 2 || p->checks.empty() || !XmToggleButtonGetState(p->checks[0])) return Changed(p);
  const bool from_w = w == p->fields[0];
  const int other = SizeOtherSide(FieldValue(w), from_w, PercentMode(p), p->pic_w, p->pic_h);
  if (other < 0) return Changed(p);
  p->syncing = true;
  SetText(p->fields[from_w ? 1 : 0], std::to_string(other));
  p->syncing = false;
  Changed(p);
}

// Pixels <-> percent: the fields are converted with the picture's size.
void SizeUnitChanged(Widget w, XtPointer data, XtPointer call) {
  auto *p = static_cast<Panel *>(data);
  auto *cb = static_cast<XmToggleButtonCallbackStruct *>(call);
  if (!cb->set || p->fields.size() < 2) return;
  const bool to_percent = w == p->toggles[0][1];
  const uint32_t size[2] = {p->pic_w, p->pic_h};
  p->syncing = true;
  for (int k = 0; k < 2; ++k)
    SetText(p->fields[k], std::to_string(SizeInOtherUnit(FieldValue(p->fields[k]), to_percent, size[k])));
  p->syncing = false;
  Changed(p);
}

Widget HorizontalRow(Widget parent, const char *name) {
  return XtVaCreateManagedWidget(name, xmRowColumnWidgetClass, parent, XmNorientation, XmHORIZONTAL, XmNpacking,
                                 XmPACK_TIGHT, XmNmarginHeight, 0, XmNmarginWidth, 0, XmNspacing, 6, nullptr);
}

Widget FixedLabel(Widget parent, const std::string &text, Dimension width) {
  XmString s = Str(text);
  Widget l = XtVaCreateManagedWidget("label", xmLabelWidgetClass, parent, XmNlabelString, s, XmNalignment,
                                     XmALIGNMENT_BEGINNING, XmNrecomputeSize, False, XmNwidth, width, nullptr);
  XmStringFree(s);
  return l;
}

// Builds the panel of `row` under `parent` (a frame's work area), showing
// `params`.
Panel *BuildPanel(Widget parent, int row, const OpParams &params, uint32_t pic_w, uint32_t pic_h,
                  std::function<void()> changed = nullptr) {
  auto *p = new Panel;
  p->changed = std::move(changed);
  p->desc = OpPanelFor(row);
  p->pic_w = pic_w;
  p->pic_h = pic_h;
  PanelValues v = OpPanelValues(row, params);
  p->box = XtVaCreateWidget("panel", xmRowColumnWidgetClass, parent, XmNorientation, XmVERTICAL, XmNpacking,
                            XmPACK_TIGHT, XmNspacing, 6, nullptr);
  const OpPanel &d = p->desc;
  if (d.sliders.empty() && d.groups.empty() && d.fields.empty())
    Label(p->box, "labelNoParameters", "No parameters");
  for (size_t k = 0; k < d.sliders.size(); ++k) {
    const PanelNumber &n = d.sliders[k];
    Widget line = HorizontalRow(p->box, "sliderRow");
    FixedLabel(line, n.label, 110);
    Widget scale = XtVaCreateManagedWidget(("scaleValue" + std::to_string(k)).c_str(), xmScaleWidgetClass, line,
                                           XmNorientation, XmHORIZONTAL, XmNminimum, n.min, XmNmaximum, n.max,
                                           XmNvalue, v.sliders[k], XmNshowValue, False, XmNdecimalPoints,
                                           n.decimals, XmNscaleWidth, 220, XmNtraversalOn, False, nullptr);
    Widget text = XtVaCreateManagedWidget(n.name.c_str(), xmTextFieldWidgetClass, line, XmNcolumns, 8, nullptr);
    SetText(text, PanelNumberText(v.sliders[k], n.decimals));
    XtAddCallback(scale, XmNvalueChangedCallback, ScaleMoved, p);
    XtAddCallback(scale, XmNdragCallback, ScaleMoved, p);
    XtAddCallback(text, XmNvalueChangedCallback, SliderTextChanged, p);
    p->scales.push_back(scale);
    p->slider_texts.push_back(text);
    if (!p->first_focus) p->first_focus = text;
  }
  // The size panel: unit first, then the fields, then the toggles.
  auto add_group = [&](size_t k) {
    const PanelGroup &g = d.groups[k];
    std::vector<Widget> buttons;
    if (g.option_menu) {
      Widget pull = XmCreatePulldownMenu(p->box, const_cast<char *>((g.name + "Pulldown").c_str()), nullptr, 0);
      for (const PanelToggle &t : g.toggles) {
        buttons.push_back(Button(pull, t.name.c_str(), t.label.c_str()));
        XtAddCallback(buttons.back(), XmNactivateCallback, ControlChanged, p);
      }
      XmString s = Str(g.title);
      Arg args[3];
      int n = 0;
      XtSetArg(args[n], XmNsubMenuId, pull), ++n;
      XtSetArg(args[n], XmNlabelString, s), ++n;
      XtSetArg(args[n], XmNmenuHistory, buttons[v.groups[k]]), ++n;
      Widget om = XmCreateOptionMenu(p->box, const_cast<char *>(g.name.c_str()), args, n);
      XmStringFree(s);
      XtManageChild(om);
      p->option_menus.push_back(om);
    } else {
      Widget frame = XtVaCreateManagedWidget(g.name.c_str(), xmFrameWidgetClass, p->box, nullptr);
      if (!g.title.empty()) {
        XmString s = Str(g.title);
        XtVaCreateManagedWidget("title", xmLabelWidgetClass, frame, XmNlabelString, s, XmNchildType,
                                XmFRAME_TITLE_CHILD, nullptr);
        XmStringFree(s);
      }
      Widget radio = XtVaCreateManagedWidget("radio", xmRowColumnWidgetClass, frame, XmNorientation, XmHORIZONTAL,
                                             XmNradioBehavior, True, XmNpacking, XmPACK_TIGHT, nullptr);
      for (size_t t = 0; t < g.toggles.size(); ++t) {
        XmString s = Str(g.toggles[t].label);
        Widget b = XtVaCreateManagedWidget(g.toggles[t].name.c_str(), xmToggleButtonWidgetClass, radio,
                                           XmNlabelString, s, XmNindicatorType, XmONE_OF_MANY, XmNset,
                                           static_cast<int>(t) == v.groups[k] ? True : False, nullptr);
        XmStringFree(s);
        if (!g.toggles[t].sensitive) XtSetSensitive(b, False);
        XtAddCallback(b, XmNvalueChangedCallback, ControlChanged, p);
        buttons.push_back(b);
      }
      p->option_menus.push_back(nullptr);
    }
    p->toggles.push_back(buttons);
  };
  if (d.size_panel) add_group(0);
  if (!d.fields.empty()) {
    Widget line = HorizontalRow(p->box, "fieldRow");
    for (size_t k = 0; k < d.fields.size(); ++k) {
      Label(line, "label", d.fields[k].label);
      Widget text = XtVaCreateManagedWidget(d.fields[k].name.c_str(), xmTextFieldWidgetClass, line, XmNcolumns, 7,
                                            nullptr);
      SetText(text, std::to_string(v.fields[k]));
      XtAddCallback(text, XmNvalueChangedCallback, d.size_panel ? SizeFieldChanged : ControlChanged, p);
      p->fields.push_back(text);
      if (!p->first_focus) p->first_focus = text;
    }
  }
  for (size_t k = d.size_panel ? 1 : 0; k < d.groups.size(); ++k) {
    if (d.size_panel && d.groups[k].option_menu) continue;  // after the toggles
    add_group(k);
  }
  if (!d.checks.empty()) {
    Widget line = HorizontalRow(p->box, "checkRow");
    for (size_t k = 0; k < d.checks.size(); ++k) {
      XmString s = Str(d.checks[k].label);
      Widget b = XtVaCreateManagedWidget(d.checks[k].name.c_str(), xmToggleButtonWidgetClass, line, XmNlabelString,
                                         s, XmNset, v.checks[k] ? True : False, nullptr);
      XmStringFree(s);
      XtAddCallback(b, XmNvalueChangedCallback, ControlChanged, p);
      p->checks.push_back(b);
    }
  }
  if (d.size_panel)
    for (size_t k = 1; k < d.groups.size(); ++k)
      if (d.groups[k].option_menu) add_group(k);
  if (d.size_panel)
    for (Widget t : p->toggles[0]) XtAddCallback(t, XmNvalueChangedCallback, SizeUnitChanged, p);
  if (!p->first_focus && !p->toggles.empty() && !p->toggles[0].empty() && !p->option_menus[0]) {
    const int chosen = v.groups[0];
    p->first_focus = p->toggles[0][chosen];
  }
  XtManageChild(p->box);
  return p;
}

PanelValues ReadPanel(const Panel *p) {
  PanelValues v;
  const OpPanel &d = p->desc;
  for (size_t k = 0; k < p->scales.size(); ++k) {
    int value;
    if (!PanelNumberParse(GetText(p->slider_texts[k]).c_str(), d.sliders[k], &value))
      XmScaleGetValue(p->scales[k], &value);
    v.sliders.push_back(value);
  }
  v.groups.assign(d.groups.size(), 0);
  for (size_t k = 0; k < d.groups.size(); ++k) {
    if (p->option_menus[k]) {
      Widget chosen = nullptr;
      XtVaGetValues(p->option_menus[k], XmNmenuHistory, &chosen, nullptr);
      for (size_t t = 0; t < p->toggles[k].size(); ++t)
        if (p->toggles[k][t] == chosen) v.groups[k] = static_cast<int>(t);
    } else {
      for (size_t t = 0; t < p->toggles[k].size(); ++t)
        if (XmToggleButtonGetState(p->toggles[k][t])) v.groups[k] = static_cast<int>(t);
    }
  }
  for (Widget c : p->checks) v.checks.push_back(XmToggleButtonGetState(c) ? 1 : 0);
  for (Widget f : p->fields) v.fields.push_back(FieldValue(f));
  return v;
}

void ApplyPanel(const Panel *p, OpParams *params) {
  // The values go through the model twice so that typed numbers out of
  // range are clamped like remembered ones.
  OpPanelApply(p->desc.row, ReadPanel(p), params);
  OpPanelApply(p->desc.row, OpPanelValues(p->desc.row, *params), params);
}

void DestroyPanel(Panel *p) {
  if (!p) return;
  if (p->box && !p->box->core.being_destroyed) XtDestroyWidget(p->box);
  delete p;
}

Widget ParametersFrame(Widget parent) {
  Widget frame = XtVaCreateManagedWidget("frameParameters", xmFrameWidgetClass, parent, XmNmarginWidth, 8,
                                         XmNmarginHeight, 6, nullptr);
  XmString s = Str("Parameters");
  XtVaCreateManagedWidget("title", xmLabelWidgetClass, frame, XmNlabelString, s, XmNchildType, XmFRAME_TITLE_CHILD,
                          nullptr);
  XmStringFree(s);
  return frame;
}

// ---- QuillOp ---------------------------------------------------------------------------

struct OpDialog {
  Modal modal;
  OpProcessList list;
  Widget choice = nullptr, process = nullptr, frame = nullptr, command = nullptr;
  Panel *panel = nullptr;
  int selected = -1;  // the process entry the panel shows
  std::function<void(const OpProcessList &)> apply;
};

void StorePanel(OpDialog *d) {
  if (!d->panel || d->panel->desc.row < 0 || d->selected < 0 || d->selected >= static_cast<int>(d->list.size())) return;
  ApplyPanel(d->panel, &d->list[d->selected].params);
}

void ShowCommandLine(OpDialog *d) {
  std::string line = OpProcessListCommandLine(d->list);
  if (line.empty()) line = " ";
  XmString s = Str(line);
  XtVaSetValues(d->command, XmNlabelString, s, nullptr);
  XmStringFree(s);
}

void ShowList(OpDialog *d) {
  XmListDeleteAllItems(d->process);
  for (const OpProcess &p : d->list) {
    XmString s = Str(OpProcessLabel(p));
    XmListAddItemUnselected(d->process, s, 0);
    XmStringFree(s);
  }
  if (d->selected >= 0 && d->selected < static_cast<int>(d->list.size()))
    XmListSelectPos(d->process, d->selected + 1, False);
  ShowCommandLine(d);
}

// A value of the panel changed: the entry, its line and the command line follow.
void PanelChanged(OpDialog *d) {
  if (d->selected < 0 || d->selected >= static_cast<int>(d->list.size())) return;
  StorePanel(d);
  XmString s = Str(OpProcessLabel(d->list[d->selected]));
  int pos = d->selected + 1;
  XmListReplaceItemsPosUnselected(d->process, &s, 1, pos);
  XmListSelectPos(d->process, pos, False);
  XmStringFree(s);
  ShowCommandLine(d);
}

void ShowPanel(OpDialog *d, int selected) {
  DestroyPanel(d->panel);
  d->panel = nullptr;
  d->selected = selected;
  if (selected >= 0 && selected < static_cast<int>(d->list.size()))
    d->panel = BuildPanel(d->frame, d->list[selected].index, d->list[selected].params, 0, 0,
                          [d] { PanelChanged(d); });
  else
    d->panel = BuildPanel(d->frame, -1, OpParams(), 0, 0);  // "No parameters"
}

void ProcessSelected(Widget, XtPointer data, XtPointer call) {
  auto *d = static_cast<OpDialog *>(data);
  auto *cb = static_cast<XmListCallbackStruct *>(call);
  StorePanel(d);
  ShowPanel(d, cb->item_position - 1);
  ShowList(d);
}

void AddChosen(OpDialog *d) {
  int *pos = nullptr, count = 0;
  if (!XmListGetSelectedPos(d->choice, &pos, &count) || count < 1) {
    XBell(XtDisplay(d->choice), 0);
    return;
  }
  const int row = pos[0] - 1;
  XtFree(reinterpret_cast<char *>(pos));
  StorePanel(d);
  d->list.push_back(OpNewProcess(row));
  ShowPanel(d, static_cast<int>(d->list.size()) - 1);
  ShowList(d);
  XmListSetBottomPos(d->process, 0);
}

void AddPressed(Widget, XtPointer data, XtPointer) { AddChosen(static_cast<OpDialog *>(data)); }

// A double click adds the operation; Return answers the dialog.
void ChoiceActivated(Widget, XtPointer data, XtPointer call) {
  auto *d = static_cast<OpDialog *>(data);
  auto *cb = static_cast<XmListCallbackStruct *>(call);
  if (cb->event && cb->event->type == KeyPress) {
    ModalOk(nullptr, &d->modal, nullptr);
    return;
  }
  AddChosen(d);
}

void RemovePressed(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<OpDialog *>(data);
  if (d->selected < 0 || d->selected >= static_cast<int>(d->list.size())) {
    XBell(XtDisplay(d->process), 0);
    return;
  }
  d->list.erase(d->list.begin() + d->selected);
  const int next = std::min(d->selected, static_cast<int>(d->list.size()) - 1);
  ShowPanel(d, next);
  ShowList(d);
}

void RemoveAllPressed(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<OpDialog *>(data);
  d->list.clear();
  ShowPanel(d, -1);
  ShowList(d);
}

void ApplyPressed(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<OpDialog *>(data);
  StorePanel(d);
  ShowList(d);
  if (d->apply && !d->list.empty()) d->apply(d->list);
}

// ---- QuillUserFilter ---------------------------------------------------------------------

struct FilterDialog {
  Modal modal;
  UserFilterList list;
  Widget filters = nullptr, name = nullptr, divisor = nullptr, bias = nullptr, size_menu = nullptr;
  Widget size_buttons[3] = {nullptr, nullptr, nullptr};
  Widget values[kUserFilterMaxSize * kUserFilterMaxSize] = {};
  int selected = -1;
  std::function<void(const UserFilter &)> apply;
};

int ShownSize(const FilterDialog *d) {
  Widget chosen = nullptr;
  XtVaGetValues(d->size_menu, XmNmenuHistory, &chosen, nullptr);
  for (int k = 0; k < 3; ++k)
    if (chosen == d->size_buttons[k]) return 3 + 2 * k;
  return 3;
}

void EnableGrid(FilterDialog *d, int size) {
  for (int r = 0; r < kUserFilterMaxSize; ++r)
    for (int c = 0; c < kUserFilterMaxSize; ++c)
      XtSetSensitive(d->values[r * kUserFilterMaxSize + c], r < size && c < size);
}

void SizeChosen(Widget w, XtPointer data, XtPointer) {
  auto *d = static_cast<FilterDialog *>(data);
  for (int k = 0; k < 3; ++k)
    if (d->size_buttons[k] == w) EnableGrid(d, 3 + 2 * k);
}

void ShowFilter(FilterDialog *d, const UserFilter &f) {
  // A name read back from the file carries the blank written before the bar.
  std::string name = f.name;
  while (!name.empty() && name.back() == ' ') name.pop_back();
  SetText(d->name, name);
  SetText(d->divisor, std::to_string(f.divisor));
  SetText(d->bias, std::to_string(f.bias));
  const int size = f.size == 5 || f.size == 7 ? f.size : 3;
  XtVaSetValues(d->size_menu, XmNmenuHistory, d->size_buttons[(size - 3) / 2], nullptr);
  for (int r = 0; r < kUserFilterMaxSize; ++r)
    for (int c = 0; c < kUserFilterMaxSize; ++c)
      SetText(d->values[r * kUserFilterMaxSize + c], r < size && c < size ? std::to_string(f.values[r * size + c]) : "0");
  EnableGrid(d, size);
}

// The filter the fields describe.
UserFilter ReadFilter(const FilterDialog *d) {
  UserFilter f;
  std::memset(&f, 0, sizeof f);
  std::snprintf(f.name, sizeof f.name, "%s", GetText(d->name).c_str());
  f.size = static_cast<int16_t>(ShownSize(d));
  auto num = [](Widget w) {
    const long v = std::strtol(GetText(w).c_str(), nullptr, 10);
    return static_cast<int16_t>(std::max(-32768L, std::min(32767L, v)));
  };
  f.divisor = num(d->divisor);
  if (f.divisor == 0) f.divisor = 1;
  f.bias = num(d->bias);
  for (int r = 0; r < f.size; ++r)
    for (int c = 0; c < f.size; ++c) f.values[r * f.size + c] = num(d->values[r * kUserFilterMaxSize + c]);
  return f;
}

void ShowFilterList(FilterDialog *d) {
  XmListDeleteAllItems(d->filters);
  for (const UserFilter &f : d->list.filters) {
    XmString s = Str(f.name);
    XmListAddItemUnselected(d->filters, s, 0);
    XmStringFree(s);
  }
  if (d->selected >= 0 && d->selected < d->list.count()) XmListSelectPos(d->filters, d->selected + 1, False);
}

void FilterSelected(Widget, XtPointer data, XtPointer call) {
  auto *d = static_cast<FilterDialog *>(data);
  auto *cb = static_cast<XmListCallbackStruct *>(call);
  d->selected = cb->item_position - 1;
  if (d->selected >= 0 && d->selected < d->list.count()) ShowFilter(d, d->list.filters[d->selected]);
}

// The name in the field without the blanks around it (a name read back from
// the file carries the blank written before the bar).
std::string TrimmedName(const FilterDialog *d) {
  std::string n = GetText(d->name);
  const size_t a = n.find_first_not_of(" \t");
  if (a == std::string::npos) return "";
  return n.substr(a, n.find_last_not_of(" \t") - a + 1);
}

int FindFilter(const FilterDialog *d, const std::string &name) {
  for (int k = 0; k < d->list.count(); ++k) {
    std::string n = d->list.filters[k].name;
    while (!n.empty() && n.back() == ' ') n.pop_back();
    if (n == name) return k;
  }
  return -1;
}

void FilterNew(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<FilterDialog *>(data);
  const std::string name = TrimmedName(d);
  if (name.empty() || !AddUserFilter(&d->list, name.c_str(), ReadFilter(d))) {
    XBell(XtDisplay(d->filters), 0);
    return;
  }
  SortUserFilters(&d->list);
  d->selected = FindFilter(d, name.substr(0, 31));
  ShowFilterList(d);
}

void FilterEdit(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<FilterDialog *>(data);
  const std::string name = TrimmedName(d);
  if (d->selected < 0 || d->selected >= d->list.count() || name.empty()) {
    XBell(XtDisplay(d->filters), 0);
    return;
  }
  ReplaceUserFilter(&d->list, d->selected, name.c_str(), ReadFilter(d));
  d->list.modified = true;
  SortUserFilters(&d->list);
  d->selected = FindFilter(d, name.substr(0, 31));
  ShowFilterList(d);
}

void FilterDelete(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<FilterDialog *>(data);
  if (!DeleteUserFilter(&d->list, d->selected)) {
    XBell(XtDisplay(d->filters), 0);
    return;
  }
  if (d->selected >= d->list.count()) d->selected = d->list.count() - 1;
  ShowFilterList(d);
  if (d->selected >= 0) ShowFilter(d, d->list.filters[d->selected]);
}

// The file of the list could not be written: the user is told where.
void SaveFailed(Widget owner, const std::string &path) {
  ShowMessage(owner, "Can't create file \n<" + path + ">");
}

// Writes the list now; the dialog keeps its own copy.
void FilterSave(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<FilterDialog *>(data);
  UserFilterList copy = d->list;
  if (!SaveUserFilters(&copy)) return SaveFailed(d->modal.shell, d->list.path);
  d->list.modified = false;
}

void FilterApply(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<FilterDialog *>(data);
  if (d->apply) d->apply(ReadFilter(d));
}

Widget LabelledField(Widget parent, const char *label, const char *name, int columns) {
  Widget line = HorizontalRow(parent, "fieldRow");
  FixedLabel(line, label, 60);
  return XtVaCreateManagedWidget(name, xmTextFieldWidgetClass, line, XmNcolumns, columns, nullptr);
}

}  // namespace

OpProcessList &AdvancedProcessList() {
  static OpProcessList list;
  return list;
}

OpDialogHook SetOpDialogHook(OpDialogHook hook) {
  OpDialogHook old = g_hook;
  g_hook = hook;
  return old;
}

bool AskOperationParameters(Widget owner, int row, OpParams *params, uint32_t pic_w, uint32_t pic_h) {
  if (!params || row < 0 || row >= OpCatalogueCount()) return false;
  Modal m;
  BuildModal(&m, owner, "QuillParameters", OpCatalogue()[row].name, "formParameters");
  Widget sep = ButtonRow(&m, nullptr, {});
  Widget frame = ParametersFrame(m.form);
  XtVaSetValues(frame, XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment,
                XmATTACH_FORM, XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget, sep, nullptr);
  Panel *panel = BuildPanel(frame, row, *params, pic_w, pic_h);
  RunModal(&m, panel->first_focus);
  const bool ok = m.ok && !m.destroyed;
  if (ok) ApplyPanel(panel, params);
  delete panel;  // its widgets go with the shell
  EndModal(&m);
  return ok;
}

bool EditProcessList(Widget owner, OpProcessList *list, const std::function<void(const OpProcessList &)> &apply) {
  if (!list) return false;
  auto d = std::make_unique<OpDialog>();
  d->list = *list;
  d->apply = apply;
  BuildModal(&d->modal, owner, "QuillOp", "Advanced Operations", "formOp");
  std::vector<Widget> extra;
  std::vector<std::pair<const char *, const char *>> names;
  if (apply) names.push_back({"buttonApply", "Apply"});
  Widget sep = ButtonRow(&d->modal, &extra, names);
  if (!extra.empty()) XtAddCallback(extra[0], XmNactivateCallback, ApplyPressed, d.get());
  Widget form = d->modal.form;

  Widget lchoice = Label(form, "labelChoice", "Operations");
  XtVaSetValues(lchoice, XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM, nullptr);
  Arg args[4];
  int n = 0;
  XtSetArg(args[n], XmNvisibleItemCount, 14), ++n;
  XtSetArg(args[n], XmNselectionPolicy, XmBROWSE_SELECT), ++n;
  XtSetArg(args[n], XmNscrollBarDisplayPolicy, XmSTATIC), ++n;
  d->choice = XmCreateScrolledList(form, const_cast<char *>("listChoice"), args, n);
  for (int row = 0; row < OpCatalogueCount(); ++row) {
    XmString s = Str(OpCatalogue()[row].name);
    XmListAddItemUnselected(d->choice, s, 0);
    XmStringFree(s);
  }
  XmListSelectPos(d->choice, 1, False);
  XtVaSetValues(XtParent(d->choice), XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, lchoice, XmNleftAttachment,
                XmATTACH_FORM, XmNwidth, 220, nullptr);
  XtManageChild(d->choice);
  XtAddCallback(d->choice, XmNdefaultActionCallback, ChoiceActivated, d.get());

  Widget buttons = XtVaCreateManagedWidget("buttonsProcess", xmRowColumnWidgetClass, form, XmNorientation,
                                           XmVERTICAL, XmNpacking, XmPACK_COLUMN, XmNtopAttachment,
                                           XmATTACH_OPPOSITE_WIDGET, XmNtopWidget, XtParent(d->choice),
                                           XmNtopOffset, 30, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget,
                                           XtParent(d->choice), nullptr);
  XtAddCallback(Button(buttons, "buttonAdd", "-->"), XmNactivateCallback, AddPressed, d.get());
  XtAddCallback(Button(buttons, "buttonRemove", "Remove"), XmNactivateCallback, RemovePressed, d.get());
  XtAddCallback(Button(buttons, "buttonRemoveAll", "Remove All"), XmNactivateCallback, RemoveAllPressed, d.get());

  Widget lprocess = Label(form, "labelProcess", "Process");
  XtVaSetValues(lprocess, XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget,
                buttons, nullptr);
  n = 0;
  XtSetArg(args[n], XmNvisibleItemCount, 14), ++n;
  XtSetArg(args[n], XmNselectionPolicy, XmBROWSE_SELECT), ++n;
  XtSetArg(args[n], XmNscrollBarDisplayPolicy, XmSTATIC), ++n;
  d->process = XmCreateScrolledList(form, const_cast<char *>("listProcess"), args, n);
  XtVaSetValues(XtParent(d->process), XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, lprocess, XmNleftAttachment,
                XmATTACH_WIDGET, XmNleftWidget, buttons, XmNrightAttachment, XmATTACH_FORM, XmNwidth, 300, nullptr);
  XtManageChild(d->process);
  XtAddCallback(d->process, XmNbrowseSelectionCallback, ProcessSelected, d.get());

  d->command = Label(form, "labelCommand", " ");
  XtVaSetValues(d->command, XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM,
                XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget, sep, nullptr);
  d->frame = ParametersFrame(form);
  XtVaSetValues(d->frame, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, XtParent(d->choice), XmNleftAttachment,
                XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_WIDGET,
                XmNbottomWidget, d->command, XmNheight, 150, nullptr);
  ShowPanel(d.get(), d->list.empty() ? -1 : 0);
  ShowList(d.get());

  RunModal(&d->modal, d->choice);
  const bool ok = d->modal.ok && !d->modal.destroyed;
  if (ok) {
    StorePanel(d.get());
    *list = d->list;
  }
  delete d->panel;
  d->panel = nullptr;
  EndModal(&d->modal);
  return ok;
}

void EditUserFilters(Widget owner, const std::function<void(const UserFilter &)> &apply) {
  auto d = std::make_unique<FilterDialog>();
  d->apply = apply;
  const char *home = std::getenv("HOME");
  LoadUserFilters(home ? home : ".", &d->list);
  BuildModal(&d->modal, owner, "QuillUserFilter", "User Defined Filter", "formUserFilter");
  Widget sep = ButtonRow(&d->modal, nullptr, {});
  Widget form = d->modal.form;

  Widget actions = XtVaCreateManagedWidget("buttonsFilter", xmRowColumnWidgetClass, form, XmNorientation,
                                           XmHORIZONTAL, XmNpacking, XmPACK_COLUMN, XmNleftAttachment,
                                           XmATTACH_FORM, XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget, sep,
                                           nullptr);
  XtAddCallback(Button(actions, "buttonNew", "New"), XmNactivateCallback, FilterNew, d.get());
  XtAddCallback(Button(actions, "buttonEdit", "Edit"), XmNactivateCallback, FilterEdit, d.get());
  XtAddCallback(Button(actions, "buttonSave", "Save"), XmNactivateCallback, FilterSave, d.get());
  XtAddCallback(Button(actions, "buttonDelete", "Delete"), XmNactivateCallback, FilterDelete, d.get());
  Widget apply_button = Button(actions, "buttonApply", "Apply");
  XtAddCallback(apply_button, XmNactivateCallback, FilterApply, d.get());
  if (!apply) XtSetSensitive(apply_button, False);

  Arg args[4];
  int n = 0;
  XtSetArg(args[n], XmNvisibleItemCount, 12), ++n;
  XtSetArg(args[n], XmNselectionPolicy, XmBROWSE_SELECT), ++n;
  XtSetArg(args[n], XmNscrollBarDisplayPolicy, XmSTATIC), ++n;
  d->filters = XmCreateScrolledList(form, const_cast<char *>("filterList"), args, n);
  XtVaSetValues(XtParent(d->filters), XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM,
                XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget, actions, XmNwidth, 180, nullptr);
  XtManageChild(d->filters);
  XtAddCallback(d->filters, XmNbrowseSelectionCallback, FilterSelected, d.get());

  Widget right = XtVaCreateManagedWidget("filterEdit", xmRowColumnWidgetClass, form, XmNorientation, XmVERTICAL,
                                         XmNpacking, XmPACK_TIGHT, XmNtopAttachment, XmATTACH_FORM,
                                         XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, XtParent(d->filters),
                                         XmNrightAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_WIDGET,
                                         XmNbottomWidget, actions, nullptr);
  d->name = LabelledField(right, "Name", "filterName", 24);
  XtVaSetValues(d->name, XmNmaxLength, 31, nullptr);
  d->divisor = LabelledField(right, "Divisor", "filterDivisor", 6);
  d->bias = LabelledField(right, "Bias", "filterBias", 6);
  Widget pull = XmCreatePulldownMenu(right, const_cast<char *>("sizePulldown"), nullptr, 0);
  static const char *const kSizes[3] = {"3x3", "5x5", "7x7"};
  for (int k = 0; k < 3; ++k) {
    char name[16];
    std::snprintf(name, sizeof name, "size%d", 3 + 2 * k);
    d->size_buttons[k] = Button(pull, name, kSizes[k]);
    XtAddCallback(d->size_buttons[k], XmNactivateCallback, SizeChosen, d.get());
  }
  XmString s = Str("Size");
  n = 0;
  XtSetArg(args[n], XmNsubMenuId, pull), ++n;
  XtSetArg(args[n], XmNlabelString, s), ++n;
  d->size_menu = XmCreateOptionMenu(right, const_cast<char *>("filterSize"), args, n);
  XmStringFree(s);
  XtManageChild(d->size_menu);
  Widget grid = XtVaCreateManagedWidget("filterGrid", xmRowColumnWidgetClass, right, XmNorientation, XmHORIZONTAL,
                                        XmNpacking, XmPACK_COLUMN, XmNnumColumns, kUserFilterMaxSize, nullptr);
  for (int k = 0; k < kUserFilterMaxSize * kUserFilterMaxSize; ++k) {
    char name[16];
    std::snprintf(name, sizeof name, "Value%d", k);
    d->values[k] = XtVaCreateManagedWidget(name, xmTextFieldWidgetClass, grid, XmNcolumns, 4, nullptr);
  }
  ShowFilterList(d.get());
  if (d->list.count() > 0) {
    d->selected = 0;
    XmListSelectPos(d->filters, 1, False);
    ShowFilter(d.get(), d->list.filters[0]);
  } else {
    UserFilter blank;
    std::memset(&blank, 0, sizeof blank);
    blank.size = 3;
    blank.divisor = 1;
    blank.values[4] = 1;
    ShowFilter(d.get(), blank);
  }

  RunModal(&d->modal, d->name);
  const bool ok = d->modal.ok && !d->modal.destroyed;
  EndModal(&d->modal);
  const std::string path = d->list.path;
  if (ok && !SaveUserFilters(&d->list)) SaveFailed(owner, path);  // writes only when something changed
}

}  // namespace quilla
