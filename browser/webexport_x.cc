// The QuillThumb dialog and the web export's work procedure.
#include "browser/webexport_x.h"

#include <Xm/ArrowB.h>
#include <Xm/DialogS.h>
#include <Xm/Form.h>
#include <Xm/Frame.h>
#include <Xm/Label.h>
#include <Xm/PushB.h>
#include <Xm/RowColumn.h>
#include <Xm/Separator.h>
#include <Xm/TextF.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "browser/descriptions.h"
#include "browser/webexport.h"
#include "core/app_x.h"
#include "core/settings.h"
#include "files/load_model.h"
#include "files/load_x.h"
#include "files/selector_model.h"
#include "files/selector_x.h"

namespace quilla {

namespace {

const char kTitle[] = "Thumbnail create";

// The browser's sort keys (its file list's, whose names clash with the file
// selector's here) and their reverse bit.
constexpr int kByName = 1, kByExtension = 2, kByDate = 3, kBySize = 4, kByType = 5, kReverse = 128;

// The "Informations displayed" toggles in the order of the Html.Display bits,
// and the "Sorted by" ones with the sort key each stands for.
const char *const kDisplayNames[5] = {"toggleDispName", "toggleDispSize", "toggleDispDim", "toggleDispDate",
                                      "toggleDispAnnot"};
const char *const kDisplayLabels[5] = {"File name", "File size", "Dimensions", "File date", "Annotation"};
const struct {
  const char *name, *label;
  int key;
} kSorts[5] = {{"toggleSortName", "File name", kByName},
               {"toggleSortExt", "Extension", kByExtension},
               {"toggleSortDate", "File date", kByDate},
               {"toggleSortType", "File type", kByType},
               {"toggleSortSize", "File size", kBySize}};

XmString Str(const std::string &text) { return XmStringCreateLocalized(const_cast<char *>(text.c_str())); }

struct ThumbDialog {
  Widget shell = nullptr, form = nullptr;
  Widget title = nullptr, column = nullptr, row = nullptr, border = nullptr, width = nullptr, height = nullptr;
  Widget gif = nullptr, jpeg = nullptr, inter = nullptr, progr = nullptr, quality = nullptr, quality_label = nullptr;
  Widget use_original = nullptr, output = nullptr, copy_to = nullptr, launch = nullptr, reverse = nullptr;
  Widget display[5] = {}, sort[5] = {};
  std::string directory;
  WebExportPictures pictures;
};

ThumbDialog *g_dialog = nullptr;

// ---- the run

class WebRun : public WebExportUi {
 public:
  WebRun(Widget owner, const WebOptions &options, const std::vector<std::string> &paths, const std::string &dir)
      : owner_(owner), export_(options, Settings(), paths), total_(paths.size()),
        descriptions_(LoadDescriptions(dir)) {
    XtAddCallback(owner_, XtNdestroyCallback, OwnerGone, this);
    export_.description = [this](const std::string &path) {
      const std::string *d = FindDescription(descriptions_, FileNameOnly(path.c_str()));
      return d ? *d : std::string();
    };
  }
  ~WebRun() override {
    if (work_) XtRemoveWorkProc(work_);
    if (progress_) CloseProgress(progress_);
    if (owner_) XtRemoveCallback(owner_, XtNdestroyCallback, OwnerGone, this);
  }

  // Makes the directories and schedules the pictures; false when the
  // export ended at once.
  bool Start() {
    progress_ = OpenProgress(owner_, kTitle, "Creating...");
    if (!export_.Start(*this)) return false;
    work_ = XtAppAddWorkProc(App().app, Work, this);
    return true;
  }

  void ShowStatus(const std::string &text) override {
    Widget label = progress_ && !ProgressStopped(progress_) ? XtNameToWidget(progress_, "*labelProgress") : nullptr;
    if (!label) return;
    XmString s = Str(text);
    XtVaSetValues(label, XmNlabelString, s, nullptr);
    XmStringFree(s);
    XmUpdateDisplay(label);
  }
  void Message(const std::string &text) override { ShowMessage(owner_, text); }
  // Without its window the run asks nobody: a break is taken, and a failed
  // picture ends it.
  bool Confirm(const std::string &question) override {
    if (!owner_) return question == "Break process ?";
    return AskConfirm(owner_, question);
  }

 private:
  static void OwnerGone(Widget, XtPointer data, XtPointer) {
    auto *run = static_cast<WebRun *>(data);
    run->owner_ = nullptr;  // the progress dialog went with it and reads as stopped
    run->export_.Break();
  }

  static Boolean Work(XtPointer data);

  Widget owner_;
  Widget progress_ = nullptr;
  XtWorkProcId work_ = 0;
  WebExport export_;
  size_t total_, steps_ = 0;
  DescriptionTable descriptions_;
};

WebRun *g_run = nullptr;

// One picture per call.  The procedure is not registered while a step
// runs: a question the step asks runs its own event loop, which would call
// it again.
Boolean WebRun::Work(XtPointer data) {
  auto *run = static_cast<WebRun *>(data);
  run->work_ = 0;
  if (run->progress_ && ProgressStopped(run->progress_)) {
    CloseProgress(run->progress_);
    run->progress_ = nullptr;
    run->export_.Break();
  }
  if (!run->export_.Step(*run)) {
    ++run->steps_;
    // A break answered with "no" goes on under a fresh dialog.
    if (!run->progress_ && run->owner_) run->progress_ = OpenProgress(run->owner_, kTitle, "");
    if (run->progress_)
      SetProgress(run->progress_, static_cast<int>(run->steps_ * 100 / std::max<size_t>(run->total_, 1)));
    run->work_ = XtAppAddWorkProc(App().app, Work, run);
    return True;
  }
  const WebOptions options = run->export_.options();
  const bool launch = run->export_.ok() && options.launch;
  g_run = nullptr;
  delete run;
  if (launch) LaunchDetached(WebBrowserArguments(std::getenv("WEBBROWSER"), options));
  return True;
}

// ---- the dialog's widgets

Widget Label(Widget parent, const char *name, const std::string &text) {
  XmString s = Str(text);
  Widget w = XtVaCreateManagedWidget(name, xmLabelWidgetClass, parent, XmNlabelString, s, nullptr);
  XmStringFree(s);
  return w;
}

Widget Text(Widget parent, const char *name, int columns, const std::string &value, int max_length) {
  Widget w = XtVaCreateManagedWidget(name, xmTextFieldWidgetClass, parent, XmNcolumns, columns, XmNmaxLength,
                                     max_length, nullptr);
  XmTextFieldSetString(w, const_cast<char *>(value.c_str()));
  return w;
}

Widget Number(Widget parent, const char *name, int value) { return Text(parent, name, 6, std::to_string(value), 9); }

Widget Toggle(Widget parent, const char *name, const char *label, bool set, bool radio = false) {
  XmString s = Str(label);
  Widget w = XtVaCreateManagedWidget(name, xmToggleButtonWidgetClass, parent, XmNlabelString, s, XmNset,
                                     set ? XmSET : XmUNSET, XmNindicatorType, radio ? XmONE_OF_MANY : XmN_OF_MANY,
                                     nullptr);
  XmStringFree(s);
  return w;
}

Widget Column(Widget parent, const char *name) {
  return XtVaCreateManagedWidget(name, xmRowColumnWidgetClass, parent, XmNorientation, XmVERTICAL, nullptr);
}

Widget Line(Widget parent, const char *name) {
  return XtVaCreateManagedWidget(name, xmRowColumnWidgetClass, parent, XmNorientation, XmHORIZONTAL,
                                 XmNentryVerticalAlignment, XmALIGNMENT_CENTER, nullptr);
}

// A titled frame holding a column of rows.
Widget Frame(Widget parent, const char *name, const char *title) {
  Widget frame = XtVaCreateManagedWidget(name, xmFrameWidgetClass, parent, nullptr);
  XmString s = Str(title);
  XtVaCreateManagedWidget("title", xmLabelWidgetClass, frame, XmNlabelString, s, XmNchildType, XmFRAME_TITLE_CHILD,
                          nullptr);
  XmStringFree(s);
  return Column(frame, "column");
}

// A label of a fixed width before a field, so that the fields line up.
void FieldLabel(Widget line, const char *text, Dimension width) {
  XmString s = Str(text);
  XtVaCreateManagedWidget("label", xmLabelWidgetClass, line, XmNlabelString, s, XmNrecomputeSize, False, XmNwidth,
                          width, XmNalignment, XmALIGNMENT_BEGINNING, nullptr);
  XmStringFree(s);
}

int NumberIn(Widget text, int low, int high, int fallback) {
  char *s = XmTextFieldGetString(text);
  char *end = nullptr;
  const long v = std::strtol(s, &end, 10);
  const bool ok = end != s;
  XtFree(s);
  return ok ? static_cast<int>(std::clamp<long>(v, low, high)) : fallback;
}

// The up and down arrows beside a table field step its number.
void ArrowStep(Widget arrow, XtPointer data, XtPointer) {
  Widget text = static_cast<Widget>(data);
  unsigned char direction = XmARROW_UP;
  XtVaGetValues(arrow, XmNarrowDirection, &direction, nullptr);
  const int low = std::string(XtName(text)) == "textBorder" ? 0 : 1;
  const int v = NumberIn(text, low, 1000, low) + (direction == XmARROW_UP ? 1 : -1);
  XmTextFieldSetString(text, const_cast<char *>(std::to_string(std::clamp(v, low, 1000)).c_str()));
}

Widget TableField(Widget parent, const char *label, const char *name, const char *arrows, int value) {
  Widget line = Line(parent, "line");
  FieldLabel(line, label, 130);
  Widget text = Number(line, name, value);
  for (int up = 1; up >= 0; --up) {
    const std::string arrow = std::string("arrow") + arrows + (up ? "Up" : "Down");
    Widget a = XtVaCreateManagedWidget(arrow.c_str(), xmArrowButtonWidgetClass, line, XmNarrowDirection,
                                       up ? XmARROW_UP : XmARROW_DOWN, XmNtraversalOn, False, nullptr);
    XtAddCallback(a, XmNactivateCallback, ArrowStep, text);
  }
  return text;
}

// GIF and JPEG have their own switches; the other format's are insensitive.
void FormatChanged(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<ThumbDialog *>(data);
  const bool jpeg = XmToggleButtonGetState(d->jpeg);
  XtSetSensitive(d->inter, !jpeg);
  XtSetSensitive(d->progr, jpeg);
  XtSetSensitive(d->quality, jpeg);
  XtSetSensitive(d->quality_label, jpeg);
}

void Destroyed(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<ThumbDialog *>(data);
  if (g_dialog == d) g_dialog = nullptr;
  delete d;
}

void Cancel(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<ThumbDialog *>(data);
  if (WidgetAlive(d->shell)) XtDestroyWidget(d->shell);
}

void Browse(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<ThumbDialog *>(data);
  std::string dir;
  // The dialog may be gone when the selector returns (its owner closed).
  if (!ChooseOutputDirectory(d->shell, FieldText(d->output), &dir) || g_dialog != d) return;
  XmTextFieldSetString(d->output, const_cast<char *>(dir.c_str()));
}

WebOptions ReadOptions(const ThumbDialog *d) {
  WebOptions o = WebOptionsFromSettings(Settings());
  o.title = FieldText(d->title);
  o.columns = NumberIn(d->column, 1, 1000, o.columns);
  o.rows = NumberIn(d->row, 1, 1000, o.rows);
  o.border = NumberIn(d->border, 0, 1000, o.border);
  o.thumb_width = NumberIn(d->width, 1, 65535, o.thumb_width);
  o.thumb_height = NumberIn(d->height, 1, 65535, o.thumb_height);
  o.jpeg = XmToggleButtonGetState(d->jpeg);
  o.interlaced = XmToggleButtonGetState(d->inter);
  o.progressive = XmToggleButtonGetState(d->progr);
  o.quality = NumberIn(d->quality, 1, 100, o.quality);
  o.use_original_if_smaller = XmToggleButtonGetState(d->use_original);
  o.output_dir = FieldText(d->output);
  o.copy_sources = XmToggleButtonGetState(d->copy_to);
  o.launch = XmToggleButtonGetState(d->launch);
  o.display = 0;
  for (int i = 0; i < 5; ++i)
    if (XmToggleButtonGetState(d->display[i])) o.display |= 1u << i;
  o.sort = kByName;
  for (int i = 0; i < 5; ++i)
    if (XmToggleButtonGetState(d->sort[i])) o.sort = kSorts[i].key;
  if (XmToggleButtonGetState(d->reverse)) o.sort |= kReverse;
  return o;
}

void Create(Widget, XtPointer data, XtPointer) {
  auto *d = static_cast<ThumbDialog *>(data);
  const WebOptions o = ReadOptions(d);
  // The title names the page files and the directory receives them: neither may be empty.
  for (Widget needed : {d->title, d->output})
    if (FieldText(needed).empty()) {
      XBell(XtDisplay(d->shell), 0);
      XmProcessTraversal(needed, XmTRAVERSE_CURRENT);
      return;
    }
  StoreWebOptions(o, &Settings());
  const std::vector<std::string> paths = d->pictures(o.sort);
  const std::string directory = d->directory;
  Widget owner = XtParent(d->shell);
  XtDestroyWidget(d->shell);
  if (paths.empty() || g_run) return;
  g_run = new WebRun(owner, o, paths, directory);
  if (!g_run->Start()) {
    delete g_run;
    g_run = nullptr;
  }
}

void Build(ThumbDialog *d, Widget parent) {
  const WebOptions o = WebOptionsFromSettings(Settings());
  d->shell = XtVaCreatePopupShell("QuillThumb", xmDialogShellWidgetClass, parent, XmNtitle, kTitle,
                                  XmNdeleteResponse, XmDESTROY, nullptr);
  XtAddCallback(d->shell, XtNdestroyCallback, Destroyed, d);
  d->form = XtVaCreateWidget("form", xmFormWidgetClass, d->shell, XmNautoUnmanage, False, XmNmarginWidth, 10,
                             XmNmarginHeight, 10, nullptr);

  Widget title_line = Line(d->form, "lineTitle");
  XtVaSetValues(title_line, XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM, nullptr);
  Label(title_line, "labelTitle", "Title :");
  d->title = Text(title_line, "textTitle", 40, o.title, 256);

  Widget columns = Line(d->form, "columns");
  XtVaSetValues(columns, XmNentryVerticalAlignment, XmALIGNMENT_BEGINNING, XmNtopAttachment, XmATTACH_WIDGET,
                XmNtopWidget, title_line, XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM,
                nullptr);
  Widget left = Column(columns, "left"), right = Column(columns, "right");

  Widget table = Frame(left, "frameTable", "Table");
  d->column = TableField(table, "Number of Columns:", "textColumn", "Column", o.columns);
  d->row = TableField(table, "Number of Rows:", "textRow", "Row", o.rows);
  d->border = TableField(table, "Border size:", "textBorder", "Border", o.border);

  Widget size = Frame(left, "frameSize", "Thumbnail size");
  Widget line = Line(size, "line");
  FieldLabel(line, "Width:", 60);
  d->width = Number(line, "textWidth", o.thumb_width);
  line = Line(size, "line");
  FieldLabel(line, "Height:", 60);
  d->height = Number(line, "textHeight", o.thumb_height);

  Widget format = Frame(left, "frameFormat", "Format");
  Widget radio = XmCreateRadioBox(format, const_cast<char *>("radioFormat"), nullptr, 0);
  XtVaSetValues(radio, XmNorientation, XmHORIZONTAL, nullptr);
  d->gif = Toggle(radio, "toggleGif", "Gif", !o.jpeg, true);
  d->jpeg = Toggle(radio, "toggleJpeg", "JPEG", o.jpeg, true);
  XtManageChild(radio);
  d->inter = Toggle(format, "toggleInter", "Interlaced", o.interlaced);
  d->progr = Toggle(format, "toggleProgr", "Progressive", o.progressive);
  line = Line(format, "line");
  d->quality_label = Label(line, "labelJpeg", "Quality :");
  d->quality = Number(line, "textJpeg", o.quality);
  for (Widget t : {d->gif, d->jpeg}) XtAddCallback(t, XmNvalueChangedCallback, FormatChanged, d);
  d->use_original = Toggle(left, "toggleUseOri", "Use original files if smaller than thumbnail size",
                           o.use_original_if_smaller);

  Widget output = Frame(right, "frameOutput", "Output");
  line = Line(output, "line");
  Label(line, "labelOutput", "Directory");
  d->output = Text(line, "textOutput", 30, o.output_dir, 4095);
  XmString dots = Str("...");
  Widget browse = XtVaCreateManagedWidget("buttonBrowse", xmPushButtonWidgetClass, line, XmNlabelString, dots, nullptr);
  XmStringFree(dots);
  XtAddCallback(browse, XmNactivateCallback, Browse, d);
  d->copy_to = Toggle(output, "toggleCopyTo", "Copy source images to output directory", o.copy_sources);
  d->launch = Toggle(output, "toggleLaunch", "Launch web browser when done", o.launch);

  Widget shown = Frame(right, "frameDisplay", "Informations displayed");
  for (int i = 0; i < 5; ++i) d->display[i] = Toggle(shown, kDisplayNames[i], kDisplayLabels[i], (o.display >> i) & 1);

  Widget sorted = Frame(right, "frameSort", "Sorted by");
  Widget keys = XmCreateRadioBox(sorted, const_cast<char *>("radioSort"), nullptr, 0);
  // A key the dialog does not offer (descriptions) shows as the name.
  const int key = (o.sort & 0x7f) >= kByName && (o.sort & 0x7f) <= kByType ? o.sort & 0x7f : kByName;
  for (int i = 0; i < 5; ++i) d->sort[i] = Toggle(keys, kSorts[i].name, kSorts[i].label, key == kSorts[i].key, true);
  XtManageChild(keys);
  d->reverse = Toggle(sorted, "toggleReverse", "Reverse", (o.sort & kReverse) != 0);

  Widget sep = XtVaCreateManagedWidget("separator", xmSeparatorWidgetClass, d->form, XmNtopAttachment,
                                       XmATTACH_WIDGET, XmNtopWidget, columns, XmNtopOffset, 8, XmNleftAttachment,
                                       XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, nullptr);
  Widget ok = BottomRowButton(d->form, sep, "buttonOk", "O.K.", 15, 40);
  Widget cancel = BottomRowButton(d->form, sep, "buttonCancel", "Cancel", 60, 85);
  XtAddCallback(ok, XmNactivateCallback, Create, d);
  XtAddCallback(cancel, XmNactivateCallback, Cancel, d);
  // The initial focus names a child at each level down to the title field.
  XtVaSetValues(d->form, XmNdefaultButton, ok, XmNcancelButton, cancel, XmNinitialFocus, title_line, nullptr);
  XtVaSetValues(title_line, XmNinitialFocus, d->title, nullptr);
  FormatChanged(nullptr, d, nullptr);
}

}  // namespace

Widget OpenWebExport(Widget owner, const std::string &directory, const WebExportPictures &pictures) {
  if (g_run) {
    XBell(XtDisplay(owner), 0);
    return nullptr;
  }
  if (g_dialog) {
    if (XtWindow(g_dialog->shell)) XRaiseWindow(XtDisplay(g_dialog->shell), XtWindow(g_dialog->shell));
    return g_dialog->shell;
  }
  Widget parent = DialogParent(owner);
  if (!parent) return nullptr;
  auto *d = new ThumbDialog;
  d->directory = directory;
  d->pictures = pictures;
  g_dialog = d;
  Build(d, parent);
  XtManageChild(d->form);
  return d->shell;
}

Widget ShownWebExport() { return g_dialog ? g_dialog->shell : nullptr; }

bool WebExportRunning() { return g_run != nullptr; }

}  // namespace quilla
