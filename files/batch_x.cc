// The two batch conversion dialogs and the work procedure of their runs.
// The dialog's widgets hold its state; Go hands it to the toolkit-free run
// (files/batch_model.h), whose files the work procedure finishes one per
// call.
#include "files/batch_x.h"

#include <X11/IntrinsicP.h>
#include <Xm/DialogS.h>
#include <Xm/Form.h>
#include <Xm/Frame.h>
#include <Xm/Label.h>
#include <Xm/List.h>
#include <Xm/PushB.h>
#include <Xm/RowColumn.h>
#include <Xm/Separator.h>
#include <Xm/TextF.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "browser/browser_x.h"
#include "core/app_x.h"
#include "core/options_x.h"
#include "core/settings.h"
#include "files/batch_model.h"
#include "files/load_x.h"
#include "files/save_x.h"
#include "files/selector_x.h"
#include "imgproc/batch_text.h"
#include "imgproc/path_text.h"
#include "view/op_dialogs_x.h"
#include "widgets/MyComboBox.h"

namespace quilla {

namespace {

const char *const kOverwriteLabels[] = {"Replace", "Ask", "Skip", "Rename"};

struct Dialog {
  bool sequence = false;
  Widget shell = nullptr, go = nullptr;
  // Multi Convert
  Widget list = nullptr, remove = nullptr, remove_all = nullptr, overwrite = nullptr;
  Widget overwrite_items[4] = {};
  std::vector<std::string> inputs;
  // Sequence Convert
  Widget in_dir = nullptr, in_file = nullptr, in_list = nullptr, start = nullptr, end = nullptr, step = nullptr,
         out_file = nullptr, flip_v = nullptr, flip_h = nullptr, rotate_l = nullptr, rotate_r = nullptr;
  std::vector<FileTypeChoice> in_types;
  // both
  Widget out_dir = nullptr, out_list = nullptr, del = nullptr, errors = nullptr;
  std::vector<FileTypeChoice> out_types;
  OpProcessList operations;
};

Dialog *g_multi = nullptr, *g_seq = nullptr;

// The running batch.
struct Work {
  BatchRun run;
  Widget owner = nullptr;     // where its questions go while it is alive
  Widget progress = nullptr;  // the progress dialog
  Dialog *dialog = nullptr;   // the dialog that started it, while open
  XtWorkProcId id = 0;
};
Work *g_work = nullptr;

XmString Str(const std::string &s) { return XmStringCreateLocalized(const_cast<char *>(s.c_str())); }

void SetText(Widget text, const std::string &value) {
  XmTextFieldSetString(text, const_cast<char *>(value.c_str()));
}

long NumberOf(Widget text) { return std::strtol(FieldText(text).c_str(), nullptr, 10); }

bool IsSet(Widget toggle) { return XmToggleButtonGetState(toggle); }

void Bell(Widget w) { XBell(XtDisplay(w), 0); }

// ---- building

Widget Label(Widget parent, const char *name, const char *text) {
  Widget w = XtVaCreateManagedWidget(name, xmLabelWidgetClass, parent, nullptr);
  SetLabelText(w, text);
  return w;
}

Widget Push(Widget parent, const char *name, const char *text, XtCallbackProc proc, Dialog *d) {
  Widget w = XtVaCreateManagedWidget(name, xmPushButtonWidgetClass, parent, nullptr);
  SetLabelText(w, text);
  if (proc) XtAddCallback(w, XmNactivateCallback, proc, d);
  return w;
}

Widget Toggle(Widget parent, const char *name, const char *text, bool set) {
  Widget w = XtVaCreateManagedWidget(name, xmToggleButtonWidgetClass, parent, XmNset, set ? XmSET : XmUNSET,
                                     nullptr);
  SetLabelText(w, text);
  return w;
}

// A framed form titled `title`, below `above` (the top when nullptr).
Widget Frame(Widget form, const char *name, const char *title, Widget above) {
  Widget frame = XtVaCreateManagedWidget(name, xmFrameWidgetClass, form, XmNleftAttachment, XmATTACH_FORM,
                                         XmNrightAttachment, XmATTACH_FORM, XmNtopOffset, 6, nullptr);
  if (above) XtVaSetValues(frame, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, above, nullptr);
  else XtVaSetValues(frame, XmNtopAttachment, XmATTACH_FORM, nullptr);
  Widget t = XtVaCreateManagedWidget("title", xmLabelWidgetClass, frame, XmNchildType, XmFRAME_TITLE_CHILD, nullptr);
  SetLabelText(t, title);
  return XtVaCreateManagedWidget("form", xmFormWidgetClass, frame, XmNmarginWidth, 6, XmNmarginHeight, 6, nullptr);
}

// One line of a frame: a label of fixed width and a text field filling the
// line (leaving `right` pixels), below `above`.  Returns the text field.
Widget FieldLine(Widget form, Widget above, const char *label, const char *name, int right = 0) {
  Widget l = Label(form, "label", label);
  XtVaSetValues(l, XmNwidth, 80, XmNrecomputeSize, False, XmNalignment, XmALIGNMENT_BEGINNING, XmNleftAttachment,
                XmATTACH_FORM, nullptr);
  Widget t = XtVaCreateManagedWidget(name, xmTextFieldWidgetClass, form, XmNcolumns, 36, XmNmaxLength, 511,
                                     XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, l, XmNrightAttachment,
                                     XmATTACH_FORM, XmNrightOffset, right, nullptr);
  for (Widget w : {l, t}) {
    if (above) XtVaSetValues(w, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, above, XmNtopOffset, 4, nullptr);
    else XtVaSetValues(w, XmNtopAttachment, XmATTACH_FORM, nullptr);
  }
  XtVaSetValues(l, XmNbottomAttachment, XmATTACH_OPPOSITE_WIDGET, XmNbottomWidget, t, nullptr);
  return t;
}

// A "..." button at the right end of the line of `field`.
Widget ChooserButton(Widget form, Widget field, const char *name, XtCallbackProc proc, Dialog *d) {
  Widget b = Push(form, name, "...", proc, d);
  XtVaSetValues(b, XmNrightAttachment, XmATTACH_FORM, XmNtopAttachment, XmATTACH_OPPOSITE_WIDGET, XmNtopWidget,
                field, XmNbottomAttachment, XmATTACH_OPPOSITE_WIDGET, XmNbottomWidget, field, XmNwidth, 30, nullptr);
  return b;
}

// A format list below `above`: the choices, preselecting `preselect`.
Widget FormatCombo(Widget form, Widget above, const char *label, const char *name,
                   const std::vector<FileTypeChoice> &types, int preselect) {
  Widget l = Label(form, "label", label);
  XtVaSetValues(l, XmNwidth, 80, XmNrecomputeSize, False, XmNalignment, XmALIGNMENT_BEGINNING, XmNleftAttachment,
                XmATTACH_FORM, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, above, XmNtopOffset, 6, nullptr);
  Widget c = MyCreateComboBox(form, name, nullptr, 0);
  XtVaSetValues(c, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, l, XmNrightAttachment, XmATTACH_FORM,
                XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, above, XmNtopOffset, 4, MyNvisibleItemCount, 12,
                nullptr);
  XtManageChild(c);
  for (const FileTypeChoice &t : types) {
    XmString item = Str(t.label);
    MyComboBoxAddItem(c, item, 0);
    XmStringFree(item);
  }
  if (!types.empty()) MyComboBoxSelectPos(c, std::max(0, preselect) + 1);
  return c;
}

int ChosenFormat(Widget combo, const std::vector<FileTypeChoice> &types) {
  const int pos = MyComboBoxGetSelectedPos(combo);
  return pos >= 1 && pos <= static_cast<int>(types.size()) ? types[pos - 1].format : -1;
}

int ChoiceOf(const std::vector<FileTypeChoice> &types, int format) {
  for (size_t i = 0; i < types.size(); ++i)
    if (types[i].format == format) return static_cast<int>(i);
  return 0;
}

// ---- Multi Convert's list

void ShowInputs(Dialog *d) {
  XmListDeleteAllItems(d->list);
  for (const std::string &path : d->inputs) {
    XmString s = Str(path);
    XmListAddItemUnselected(d->list, s, 0);
    XmStringFree(s);
  }
  XtSetSensitive(d->remove, !d->inputs.empty());
  XtSetSensitive(d->remove_all, !d->inputs.empty());
}

void AddInputs(Dialog *d, const std::vector<std::string> &paths) {
  for (const std::string &p : paths)
    if (std::find(d->inputs.begin(), d->inputs.end(), p) == d->inputs.end()) d->inputs.push_back(p);
  ShowInputs(d);
}

bool RunSelector(Dialog *d, const char *title, int mode, bool multiple, const std::string &initial,
                 SelectorResult *res) {
  SelectorRequest req;
  req.title = title;
  req.mode = mode;
  req.multiple = multiple;
  req.initial = initial;
  return RunFileSelector(d->shell, req, res) && !res->paths.empty();
}

bool DialogAlive(Dialog *d) { return d && (d == g_multi || d == g_seq); }

void AddPressed(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<Dialog *>(data);
  SelectorResult res;
  if (!RunSelector(d, "Select Multi File ...", 0, true, Settings().PathLoad, &res) || !DialogAlive(d)) return;
  std::snprintf(Settings().PathLoad, kPathSize, "%s", DirectoryPart(res.paths.front()).c_str());
  AddInputs(d, res.paths);
}

void AddFolderPressed(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<Dialog *>(data);
  SelectorResult res;
  if (!RunSelector(d, "Select Directory ...", kSelectorDirectory, false, Settings().PathLoad, &res) ||
      !DialogAlive(d))
    return;
  // The folder's pictures (by their extension), by name; not its sub-folders.
  std::string dir = res.paths.front();
  if (dir.empty() || dir.back() != '/') dir += '/';
  std::vector<std::string> found;
  if (DIR *dp = ::opendir(dir.c_str())) {
    while (dirent *e = ::readdir(dp)) {
      if (e->d_name[0] == '.') continue;
      const std::string path = dir + e->d_name;
      struct stat st;
      if (::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && tslFormatFromExtension(path.c_str()) >= 0)
        found.push_back(path);
    }
    ::closedir(dp);
  }
  std::sort(found.begin(), found.end());
  AddInputs(d, found);
}

void RemovePressed(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<Dialog *>(data);
  int *positions = nullptr, count = 0;
  if (!XmListGetSelectedPos(d->list, &positions, &count)) return Bell(d->shell);
  std::vector<int> pos(positions, positions + count);
  XtFree(reinterpret_cast<char *>(positions));
  std::sort(pos.rbegin(), pos.rend());
  for (int p : pos)
    if (p >= 1 && p <= static_cast<int>(d->inputs.size())) d->inputs.erase(d->inputs.begin() + (p - 1));
  ShowInputs(d);
}

void RemoveAllPressed(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<Dialog *>(data);
  d->inputs.clear();
  ShowInputs(d);
}

void ChooseDirectory(Dialog *d, Widget field, const char *title) {
  SelectorResult res;
  const std::string now = FieldText(field);
  if (!RunSelector(d, title, kSelectorDirectory, false, now.empty() ? Settings().PathSave : now, &res) ||
      !DialogAlive(d))
    return;
  SetText(field, res.paths.front());
}

void OutputDirPressed(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<Dialog *>(data);
  ChooseDirectory(d, d->out_dir, "Select Output Directory ...");
}

void InputDirPressed(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<Dialog *>(data);
  ChooseDirectory(d, d->in_dir, "Select Input Directory ...");
}

// ---- state of a dialog

unsigned FlagsOf(Dialog *d) {
  return (IsSet(d->del) ? kBatchDeleteOriginal : 0u) | (IsSet(d->errors) ? kBatchSuppressErrors : 0u);
}

OverwritePolicy OverwriteOf(Dialog *d) {
  Widget chosen = nullptr;
  XtVaGetValues(d->overwrite, XmNmenuHistory, &chosen, nullptr);
  for (int i = 0; i < 4; ++i)
    if (chosen == d->overwrite_items[i]) return static_cast<OverwritePolicy>(i);
  return OverwritePolicy::kReplace;
}

// The operations of a run: the advanced ones, then Sequence Convert's
// flips and quarter turns.
OpProcessList OperationsOf(Dialog *d) {
  OpProcessList ops = d->operations;
  if (!d->sequence) return ops;
  auto add = [&ops](Widget toggle, const char *option, int angle) {
    if (!IsSet(toggle)) return;
    OpProcess p = OpDefaultProcess(OpCatalogueFind(option, nullptr));
    if (angle) p.params.i[0] = angle;
    ops.push_back(p);
  };
  add(d->flip_v, "-yflip", 0);
  add(d->flip_h, "-xflip", 0);
  add(d->rotate_l, "-rotate", 90);
  add(d->rotate_r, "-rotate", -90);
  return ops;
}

bool SequenceOf(Dialog *d, SequenceSetup *setup, std::string *error) {
  SequenceFields f;
  f.in_dir = FieldText(d->in_dir);
  f.in_file = FieldText(d->in_file);
  f.out_dir = FieldText(d->out_dir);
  f.out_file = FieldText(d->out_file);
  f.in_format = ChosenFormat(d->in_list, d->in_types);
  if (f.in_format < 0) f.in_format = kDetectFormat;
  f.out_format = ChosenFormat(d->out_list, d->out_types);
  f.start = NumberOf(d->start);
  f.end = NumberOf(d->end);
  f.step = NumberOf(d->step);
  return MakeSequenceSetup(f, setup, error);
}

// The switches and the output format become the defaults of the next time.
void RememberChoices(Dialog *d, int out_format) {
  SettingsRecord &s = Settings();
  s.Convert.DeleteOriginal = IsSet(d->del);
  s.Convert.HideError = IsSet(d->errors);
  if (!d->sequence) s.Convert.Overwrite = static_cast<uint8_t>(OverwriteOf(d));
  if (out_format >= 0) std::snprintf(s.Convert.DefaultFormat, sizeof s.Convert.DefaultFormat, "%s",
                                     tslFormatGetName(out_format));
}

// ---- the run

// The run's questions and messages on X, its progress in the progress
// dialog.  Dialogs go to the main window once the owner is gone.
class XBatchUi : public BatchUi {
 public:
  explicit XBatchUi(Work *w) : work_(w) {}
  int AskConversion(const std::string &path, const TslFormatInfo &format, const TslPicture &,
                    int preselected) override {
    return AskSaveConversion(Owner(), path.c_str(), format, preselected);
  }
  void Message(const std::string &text) override { ShowMessage(Owner(), text); }
  bool Confirm(const std::string &question) override { return AskConfirm(Owner(), question); }
  void ShowConverting(const std::string &text) override {
    if (!work_->progress || ProgressStopped(work_->progress)) return;
    if (Widget label = XtNameToWidget(work_->progress, "*labelProgress")) SetLabelText(label, text);
    XmUpdateDisplay(work_->progress);
  }
  void Advance() override {
    if (!work_->progress || ProgressStopped(work_->progress)) return;
    const size_t total = std::max<size_t>(1, work_->run.jobs().size());
    SetProgress(work_->progress, static_cast<int>((work_->run.done() + 1) * 100 / total));
  }

 private:
  Widget Owner() const { return WidgetAlive(work_->owner) ? work_->owner : nullptr; }
  Work *work_;
};

void EndWork(Work *w) {
  if (w->progress) CloseProgress(w->progress);
  if (DialogAlive(w->dialog)) XtSetSensitive(w->dialog->go, True);
  const bool refresh = w->run.refresh();
  g_work = nullptr;
  delete w;
  if (refresh && BrowserFileList()) RunBrowserCommand("quickRefresh");
}

// The work procedure: one finished file per call.  While the next file is
// still with a worker it waits a little and lets events through.
Boolean WorkStep(XtPointer data) {
  auto *w = static_cast<Work *>(data);
  if (w->progress && ProgressStopped(w->progress)) w->run.Stop();
  if (!w->run.Ready(Settings(), std::chrono::milliseconds(20))) return False;
  XBatchUi ui(w);
  if (!w->run.Step(ui, Settings())) return False;
  EndWork(w);
  return True;
}

void StartWork(Dialog *d, BatchRun run, const char *title) {
  auto *w = new Work;
  w->run = std::move(run);
  w->run.SetThreads(0);
  w->owner = XtParent(d->shell);
  w->dialog = d;
  g_work = w;
  XtSetSensitive(d->go, False);
  // The first file's name until the first file is finished.
  const std::vector<BatchJob> &jobs = w->run.jobs();
  const std::string first = jobs.empty() ? "" : ConvertingText(FileNameOnly(jobs.front().input.c_str()));
  w->progress = OpenProgress(w->owner, title, first.c_str());
  w->id = XtAppAddWorkProc(XtWidgetToApplicationContext(d->shell), WorkStep, w);
}

void GoPressed(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<Dialog *>(data);
  if (g_work) return Bell(d->shell);  // one batch at a time
  const int out_format = ChosenFormat(d->out_list, d->out_types);
  if (out_format < 0) return Bell(d->shell);
  if (!d->sequence) {
    if (d->inputs.empty()) return Bell(d->shell);
    BatchRun run = BatchRun::Multi(d->inputs, FieldText(d->out_dir), out_format);
    run.operations = OperationsOf(d);
    run.flags = FlagsOf(d);
    run.overwrite = OverwriteOf(d);
    RememberChoices(d, out_format);
    StartWork(d, std::move(run), "Multi Converting...");
  } else {
    SequenceSetup setup;
    std::string error;
    if (!SequenceOf(d, &setup, &error)) return ShowMessage(d->shell, error);
    BatchRun run = BatchRun::Sequence(setup);
    run.operations = OperationsOf(d);
    run.flags = FlagsOf(d);
    RememberChoices(d, out_format);
    StartWork(d, std::move(run), "Sequence Converting...");
  }
}

// ---- the other buttons

void OptionsPressed(Widget, XtPointer data, XtPointer) { ShowSaveOptions(static_cast<Dialog *>(data)->shell); }

void OperationsPressed(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<Dialog *>(data);
  OpProcessList list = d->operations;
  if (EditProcessList(d->shell, &list) && DialogAlive(d)) d->operations = list;
}

// Sequence Convert: a new output format gives the output name its extension.
void OutputFormatChosen(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<Dialog *>(data);
  const int format = ChosenFormat(d->out_list, d->out_types);
  TslFormatInfo info;
  if (!d->out_file || format < 0 || tslFormatGetInfo(format, &info) != TSL_OK) return;
  const std::string name = FieldText(d->out_file);
  const std::string fixed = FixOutputFileName(name, info.extensions ? info.extensions : "");
  if (fixed != name) SetText(d->out_file, fixed);
}

bool ScriptOf(Dialog *d, ScriptSettings *script, std::string *error) {
  const int out_format = ChosenFormat(d->out_list, d->out_types);
  if (!d->sequence) {
    if (d->inputs.empty()) {
      *error = "No file to convert !!";
      return false;
    }
    *script = MultiScript(d->inputs, FieldText(d->out_dir), out_format, FlagsOf(d), OperationsOf(d), Settings());
    return true;
  }
  SequenceSetup setup;
  if (!SequenceOf(d, &setup, error)) return false;
  *script = SequenceScript(setup, FlagsOf(d), OperationsOf(d), Settings());
  return true;
}

void SaveScriptPressed(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<Dialog *>(data);
  ScriptSettings script;
  std::string error;
  if (!ScriptOf(d, &script, &error)) return ShowMessage(d->shell, error);
  SelectorResult res;
  if (!RunSelector(d, "Choose Filename...", kSelectorSave, false, Settings().PathScript, &res) || !DialogAlive(d))
    return;
  std::snprintf(Settings().PathScript, kPathSize, "%s", DirectoryPart(res.paths.front()).c_str());
  if (!WriteScriptFile(res.paths.front(), script))
    ShowMessage(d->shell, "Can't create file \n<" + res.paths.front() + ">");
}

void SplitPath(const std::string &path, Widget dir, Widget file) {
  const size_t slash = path.rfind('/');
  SetText(dir, slash == std::string::npos ? "" : path.substr(0, slash + 1));
  SetText(file, path.substr(slash == std::string::npos ? 0 : slash + 1));
}

// Fills the dialog from a script: its files, output, formats, range,
// "-D" and operations; the load settings it carries become the Load
// settings.
void ApplyScript(Dialog *d, const ScriptSettings &s) {
  SettingsRecord &rec = Settings();
  if (s.pcd_base >= 0) rec.Load.PcdBase = static_cast<uint16_t>(s.pcd_base);
  if (s.raw_width >= 0 && s.raw_height >= 0) {
    rec.Load.RawWidth = s.raw_width;
    rec.Load.RawHeight = s.raw_height;
    rec.Load.RawOffset = static_cast<int32_t>(s.raw_offset);
  }
  XmToggleButtonSetState(d->del, s.delete_original, False);
  d->operations = s.operations;
  const int out = tslFormatGetIndex(s.output_format.c_str());
  MyComboBoxSelectPos(d->out_list, ChoiceOf(d->out_types, out) + 1);
  if (!d->sequence) {
    SetText(d->out_dir, s.output);
    d->inputs.clear();
    AddInputs(d, s.inputs);
    return;
  }
  for (Widget t : {d->flip_v, d->flip_h, d->rotate_l, d->rotate_r}) XmToggleButtonSetState(t, False, False);
  SplitPath(s.inputs.front(), d->in_dir, d->in_file);
  if (!s.output.empty()) SplitPath(s.output, d->out_dir, d->out_file);
  const int in = s.input_format.empty() ? -1 : tslFormatGetIndex(s.input_format.c_str());
  MyComboBoxSelectPos(d->in_list, ChoiceOf(d->in_types, in) + 1);
  SetText(d->start, std::to_string(s.sequence ? s.start : 0));
  SetText(d->end, std::to_string(s.sequence ? s.end : 0));
  SetText(d->step, std::to_string(s.sequence ? s.step : 0));
}

void LoadScriptPressed(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<Dialog *>(data);
  SelectorResult res;
  if (!RunSelector(d, "Load Script...", 0, false, Settings().PathScript, &res) || !DialogAlive(d)) return;
  ScriptSettings script;
  std::string error;
  if (!ReadScriptFile(res.paths.front(), &script, &error)) return ShowMessage(d->shell, error);
  ApplyScript(d, script);
}

void CancelPressed(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<Dialog *>(data);
  if (!d->shell->core.being_destroyed) XtDestroyWidget(d->shell);
}

void Destroyed(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<Dialog *>(data);
  if (g_multi == d) g_multi = nullptr;
  if (g_seq == d) g_seq = nullptr;
  if (g_work && g_work->dialog == d) g_work->dialog = nullptr;  // the run goes on
  delete d;
}

// ---- the dialogs

Widget MakeShell(Dialog *d, Widget owner, const char *name, const char *title) {
  d->shell = XtVaCreatePopupShell(name, xmDialogShellWidgetClass, DialogParent(owner), XmNtitle, title,
                                  XmNdeleteResponse, XmDESTROY, nullptr);
  XtAddCallback(d->shell, XmNdestroyCallback, Destroyed, d);
  return XtVaCreateWidget("form", xmFormWidgetClass, d->shell, XmNautoUnmanage, False, XmNmarginWidth, 10,
                          XmNmarginHeight, 10, nullptr);
}

// "Options..." and "Advanced Operations..." on one line below `above`.
Widget OptionButtons(Widget form, Widget above, Dialog *d) {
  Widget row = XtVaCreateManagedWidget("rowOptions", xmRowColumnWidgetClass, form, XmNorientation, XmHORIZONTAL,
                                       XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, above, XmNtopOffset, 6,
                                       XmNleftAttachment, XmATTACH_FORM, nullptr);
  Push(row, "fncvOptions", "Options...", OptionsPressed, d);
  Push(row, "fncvOp", "Advanced Operations...", OperationsPressed, d);
  return row;
}

// The switches' line; Multi Convert's holds the overwrite menu too.
Widget SwitchLine(Widget form, Widget above, Dialog *d) {
  Widget row = XtVaCreateManagedWidget("rowSwitches", xmRowColumnWidgetClass, form, XmNorientation, XmHORIZONTAL,
                                       XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, above, XmNtopOffset, 6,
                                       XmNleftAttachment, XmATTACH_FORM, nullptr);
  d->del = Toggle(row, "fncvDelete", "Delete Original", Settings().Convert.DeleteOriginal);
  d->errors = Toggle(row, "fncvError", "Suppress read errors", Settings().Convert.HideError);
  if (d->sequence) return row;
  Widget pull = XmCreatePulldownMenu(row, const_cast<char *>("menuOverwrite"), nullptr, 0);
  for (int i = 0; i < 4; ++i) {
    const std::string name = "Overwrite" + std::to_string(i + 1);
    d->overwrite_items[i] = Push(pull, name.c_str(), kOverwriteLabels[i], nullptr, d);
  }
  XmString label = Str("Overwrite");
  Arg args[2];
  XtSetArg(args[0], XmNsubMenuId, pull);
  XtSetArg(args[1], XmNlabelString, label);
  d->overwrite = XmCreateOptionMenu(row, const_cast<char *>("optionOverwrite"), args, 2);
  XmStringFree(label);
  const int chosen = std::min<int>(3, Settings().Convert.Overwrite);
  XtVaSetValues(d->overwrite, XmNmenuHistory, d->overwrite_items[chosen], nullptr);
  XtManageChild(d->overwrite);
  return row;
}

// The bottom line: the script buttons on the left, Go and Cancel on the
// right; Return is Go, Escape is Cancel.
void BottomButtons(Widget form, Widget above, Dialog *d) {
  Widget sep = XtVaCreateManagedWidget("separator", xmSeparatorWidgetClass, form, XmNtopAttachment, XmATTACH_WIDGET,
                                       XmNtopWidget, above, XmNtopOffset, 8, XmNleftAttachment, XmATTACH_FORM,
                                       XmNrightAttachment, XmATTACH_FORM, nullptr);
  struct B {
    const char *name, *label;
    XtCallbackProc proc;
    int left, right;
  } buttons[] = {{"fncvSaveScript", "Save Script...", SaveScriptPressed, 0, 24},
                 {"fncvLoadScript", "Load Script...", LoadScriptPressed, 25, 49},
                 {"buttonGo", "Go", GoPressed, 56, 76},
                 {"buttonCancel", "Cancel", CancelPressed, 80, 100}};
  Widget made[4];
  for (int i = 0; i < 4; ++i) {
    made[i] = Push(form, buttons[i].name, buttons[i].label, buttons[i].proc, d);
    XtVaSetValues(made[i], XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, sep, XmNtopOffset, 8,
                  XmNbottomAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_POSITION, XmNleftPosition,
                  buttons[i].left, XmNrightAttachment, XmATTACH_POSITION, XmNrightPosition, buttons[i].right,
                  nullptr);
  }
  d->go = made[2];
  XtVaSetValues(form, XmNdefaultButton, made[2], XmNcancelButton, made[3], nullptr);
}

// The keyboard starts in `field`: each manager between it and the dialog's
// form names the child on the way as its initial focus.
void FocusFirst(Widget form, Widget field) {
  for (Widget w = field; w && w != form; w = XtParent(w)) XtVaSetValues(XtParent(w), XmNinitialFocus, w, nullptr);
}

int DefaultOutputChoice(const std::vector<FileTypeChoice> &types) {
  return FileTypeChoiceFor(types, Settings().Convert.DefaultFormat);
}

Dialog *BuildMulti(Widget owner) {
  auto *d = new Dialog;
  d->operations = AdvancedProcessList();
  Widget form = MakeShell(d, owner, "QuillMultiConvert", "Multi Convert");
  Widget in = Frame(form, "frameInput", "Input Files", nullptr);
  Widget buttons = XtVaCreateManagedWidget("rowInput", xmRowColumnWidgetClass, in, XmNorientation, XmVERTICAL,
                                           XmNpacking, XmPACK_COLUMN, XmNtopAttachment, XmATTACH_FORM,
                                           XmNrightAttachment, XmATTACH_FORM, nullptr);
  Push(buttons, "buttonAdd", "Add...", AddPressed, d);
  Push(buttons, "buttonAddFolder", "Add Folder...", AddFolderPressed, d);
  d->remove = Push(buttons, "buttonRemove", "Remove", RemovePressed, d);
  d->remove_all = Push(buttons, "buttonRemoveAll", "Remove All", RemoveAllPressed, d);
  Arg args[3];
  XtSetArg(args[0], XmNvisibleItemCount, 8);
  XtSetArg(args[1], XmNselectionPolicy, XmEXTENDED_SELECT);
  XtSetArg(args[2], XmNscrollBarDisplayPolicy, XmSTATIC);
  d->list = XmCreateScrolledList(in, const_cast<char *>("fncvInputFilename"), args, 3);
  XtVaSetValues(XtParent(d->list), XmNwidth, 380, XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM,
                XmNbottomAttachment, XmATTACH_FORM, XmNrightAttachment, XmATTACH_WIDGET, XmNrightWidget, buttons,
                XmNrightOffset, 6, nullptr);
  XtManageChild(d->list);

  Widget out = Frame(form, "frameOutput", "Output", XtParent(in));
  d->out_dir = FieldLine(out, nullptr, "Directory", "fncvOutputDir", 36);
  ChooserButton(out, d->out_dir, "buttonOutputDir", OutputDirPressed, d);
  d->out_types = SelectorFileTypes(true);
  d->out_list = FormatCombo(out, d->out_dir, "Format", "fncvOutputList", d->out_types, DefaultOutputChoice(d->out_types));
  Widget opts = OptionButtons(out, d->out_list, d);
  XtVaSetValues(opts, XmNbottomAttachment, XmATTACH_FORM, nullptr);

  Widget switches = SwitchLine(form, XtParent(out), d);
  BottomButtons(form, switches, d);
  FocusFirst(form, d->out_dir);
  ShowInputs(d);
  XtManageChild(form);
  return d;
}

Dialog *BuildSequence(Widget owner) {
  auto *d = new Dialog;
  d->sequence = true;
  d->operations = AdvancedProcessList();
  Widget form = MakeShell(d, owner, "QuillSeqConvert", "Sequence Convert");
  Widget note = Label(form, "labelNote", "Use '#' in FileName to indicate where the number appears.");
  XtVaSetValues(note, XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM, nullptr);

  Widget in = Frame(form, "frameInput", "Input", note);
  d->in_dir = FieldLine(in, nullptr, "Directory", "fncvInputDir", 36);
  ChooserButton(in, d->in_dir, "buttonInputDir", InputDirPressed, d);
  d->in_file = FieldLine(in, d->in_dir, "FileName", "fncvInputFile");
  d->in_types = SelectorFileTypes(false, &Settings());
  if (!d->in_types.empty()) d->in_types.front().label = "Automatic";  // the first item: find out from the file
  d->in_list = FormatCombo(in, d->in_file, "Format", "fncvInputList", d->in_types, 0);
  Widget range = XtVaCreateManagedWidget("rowRange", xmRowColumnWidgetClass, in, XmNorientation, XmHORIZONTAL,
                                         XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, d->in_list, XmNtopOffset, 4,
                                         XmNleftAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_FORM,
                                         nullptr);
  Widget *fields[] = {&d->start, &d->end, &d->step};
  const char *names[] = {"fncvInputStart", "fncvInputEnd", "fncvInputStep"};
  const char *labels[] = {"Start:", "End:", "Step:"};
  const char *values[] = {"0", "0", "1"};
  for (int i = 0; i < 3; ++i) {
    Label(range, "label", labels[i]);
    *fields[i] = XtVaCreateManagedWidget(names[i], xmTextFieldWidgetClass, range, XmNcolumns, 6, XmNmaxLength, 5,
                                         nullptr);
    SetText(*fields[i], values[i]);
  }

  Widget out = Frame(form, "frameOutput", "Output", XtParent(in));
  d->out_dir = FieldLine(out, nullptr, "Directory", "fncvOutputDir", 36);
  ChooserButton(out, d->out_dir, "buttonOutputDir", OutputDirPressed, d);
  d->out_file = FieldLine(out, d->out_dir, "FileName", "fncvOutputFile");
  d->out_types = SelectorFileTypes(true);
  d->out_list = FormatCombo(out, d->out_file, "Format", "fncvOutputList", d->out_types, DefaultOutputChoice(d->out_types));
  XtAddCallback(d->out_list, XmNcallback, OutputFormatChosen, d);
  Widget opts = OptionButtons(out, d->out_list, d);
  XtVaSetValues(opts, XmNbottomAttachment, XmATTACH_FORM, nullptr);

  Widget switches = SwitchLine(form, XtParent(out), d);
  Widget turns = XtVaCreateManagedWidget("rowTurns", xmRowColumnWidgetClass, form, XmNorientation, XmHORIZONTAL,
                                         XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, switches,
                                         XmNleftAttachment, XmATTACH_FORM, nullptr);
  d->flip_v = Toggle(turns, "fncvFlipV", "Flip Vertical", false);
  d->flip_h = Toggle(turns, "fncvFlipH", "Flip Horizontal", false);
  d->rotate_l = Toggle(turns, "fncvRotateL", "Rotate Left", false);
  d->rotate_r = Toggle(turns, "fncvRotateR", "Rotate Right", false);
  BottomButtons(form, turns, d);
  FocusFirst(form, d->in_dir);
  XtManageChild(form);
  return d;
}

Widget Raise(Dialog *d) {
  if (XtWindow(d->shell)) XRaiseWindow(XtDisplay(d->shell), XtWindow(d->shell));
  return d->shell;
}

}  // namespace

Widget OpenMultiConvert(Widget owner, const std::vector<std::string> &files) {
  if (!g_multi) g_multi = BuildMulti(owner);
  AddInputs(g_multi, files);
  return Raise(g_multi);
}

Widget OpenSeqConvert(Widget owner) {
  if (!g_seq) g_seq = BuildSequence(owner);
  return Raise(g_seq);
}

Widget ShownMultiConvert() { return g_multi ? g_multi->shell : nullptr; }
Widget ShownSeqConvert() { return g_seq ? g_seq->shell : nullptr; }
bool BatchRunning() { return g_work != nullptr; }

bool WriteBatchScript(Widget dialog, const std::string &path, std::string *error) {
  Dialog *d = g_multi && g_multi->shell == dialog ? g_multi : g_seq && g_seq->shell == dialog ? g_seq : nullptr;
  if (!d) {
    *error = "no batch dialog";
    return false;
  }
  ScriptSettings script;
  if (!ScriptOf(d, &script, error)) return false;
  if (WriteScriptFile(path, script)) return true;
  *error = "Can't create file \n<" + path + ">";
  return false;
}

}  // namespace quilla
