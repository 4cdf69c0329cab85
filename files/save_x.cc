// The central save on X: the conversion dialog QuillSaveCnv, the progress
// dialog "Saving..." with the save pump, the busy cursor and the message
// box, around the toolkit-free save flow of files/save_model.h.
#include "files/save_x.h"

#include <X11/IntrinsicP.h>
#include <X11/CoreP.h>
#include <Xm/AtomMgr.h>
#include <Xm/DialogS.h>
#include <Xm/Form.h>
#include <Xm/Frame.h>
#include <Xm/Label.h>
#include <Xm/Protocols.h>
#include <Xm/PushB.h>
#include <Xm/RowColumn.h>
#include <Xm/Separator.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>

#include <algorithm>
#include <vector>

#include "core/app_x.h"
#include "core/settings.h"
#include "files/load_x.h"

namespace quilla {

namespace {

int g_saves = 0;                   // central saves running
std::vector<Widget> g_conversions;  // conversion dialogs shown, innermost last

XmString MakeString(const char *text) { return XmStringCreateLocalized(const_cast<char *>(text)); }

// ---- the conversion dialog

struct Conversion {
  Widget shell = nullptr, form = nullptr;
  Widget toggle[kToggleCount + 1] = {};  // 1..19
  Widget grey_dither = nullptr, color_dither = nullptr, ok = nullptr;
  int answer = kSaveCancelled;
  bool done = false;
  bool destroyed = false;  // the shell went away with its owner
  bool returned = false;   // the call is over; the destroy callback frees the record
};

void ConversionDestroyed(Widget, XtPointer data, XtPointer) {
  Conversion *c = static_cast<Conversion *>(data);
  if (c->returned) {
    delete c;
    return;
  }
  c->destroyed = c->done = true;
  c->answer = kSaveCancelled;
}

void ConversionOk(Widget, XtPointer data, XtPointer) {
  Conversion *c = static_cast<Conversion *>(data);
  if (c->done) return;
  for (int t = 1; t <= kToggleCount; ++t) {
    if (!XmToggleButtonGetState(c->toggle[t])) continue;
    c->answer = ConversionCode(t, XmToggleButtonGetState(c->grey_dither), XmToggleButtonGetState(c->color_dither));
    c->done = true;
    return;
  }
}

void ConversionCancel(Widget, XtPointer data, XtPointer) {
  Conversion *c = static_cast<Conversion *>(data);
  if (c->done) return;
  c->answer = kSaveCancelled;
  c->done = true;
}

// The 19 toggles sit in three frames but make one choice: setting one
// clears the others, and the one set stays set when clicked again.
void ToggleChanged(Widget w, XtPointer data, XtPointer call) {
  Conversion *c = static_cast<Conversion *>(data);
  auto *cbs = static_cast<XmToggleButtonCallbackStruct *>(call);
  if (!cbs->set) {
    XmToggleButtonSetState(w, True, False);
    return;
  }
  for (int t = 1; t <= kToggleCount; ++t)
    if (c->toggle[t] != w) XmToggleButtonSetState(c->toggle[t], False, False);
  XtSetSensitive(c->ok, True);
}

// A frame titled `title` holding a vertical column; returns the column.
Widget MakeFrame(Widget form, const char *name, const char *title, Arg *args, Cardinal n) {
  Widget frame = XtCreateManagedWidget(name, xmFrameWidgetClass, form, args, n);
  XmString s = MakeString(title);
  XtVaCreateManagedWidget("title", xmLabelWidgetClass, frame, XmNlabelString, s, XmNchildType, XmFRAME_TITLE_CHILD,
                          nullptr);
  XmStringFree(s);
  return XtVaCreateManagedWidget("column", xmRowColumnWidgetClass, frame, XmNorientation, XmVERTICAL, XmNpacking,
                                 XmPACK_TIGHT, XmNspacing, 0, nullptr);
}

Widget MakeToggle(Widget parent, const char *name, const char *text, bool one_of_many) {
  XmString s = MakeString(text);
  Widget w = XtVaCreateManagedWidget(name, xmToggleButtonWidgetClass, parent, XmNlabelString, s, XmNindicatorType,
                                     one_of_many ? XmONE_OF_MANY : XmN_OF_MANY, nullptr);
  XmStringFree(s);
  return w;
}

Widget MakeChoice(Conversion *c, Widget parent, int toggle, const char *text) {
  char name[16];
  std::snprintf(name, sizeof name, "toggle%d", toggle);
  Widget w = MakeToggle(parent, name, text, true);
  XtAddCallback(w, XmNvalueChangedCallback, ToggleChanged, c);
  c->toggle[toggle] = w;
  return w;
}

Widget MakeButton(Widget form, const char *name, const char *text, int left, int right) {
  XmString s = MakeString(text);
  Widget w = XtVaCreateManagedWidget(
      name, xmPushButtonWidgetClass, form, XmNlabelString, s, XmNbottomAttachment, XmATTACH_FORM, XmNleftAttachment,
      XmATTACH_POSITION, XmNleftPosition, left, XmNrightAttachment, XmATTACH_POSITION, XmNrightPosition, right,
      nullptr);
  XmStringFree(s);
  return w;
}

Conversion *BuildConversion(Widget parent, const char *path, const TslFormatInfo &format) {
  Conversion *c = new Conversion;
  c->shell = XtVaCreatePopupShell("QuillSaveCnv", xmDialogShellWidgetClass, parent, XmNtitle, "Convert To ...",
                                  XmNdeleteResponse, XmDO_NOTHING, XmNallowShellResize, True, nullptr);
  XtAddCallback(c->shell, XtNdestroyCallback, ConversionDestroyed, c);
  XmAddWMProtocolCallback(c->shell, XmInternAtom(XtDisplay(c->shell), const_cast<char *>("WM_DELETE_WINDOW"), False),
                          ConversionCancel, c);
  c->form = XtVaCreateWidget("form", xmFormWidgetClass, c->shell, XmNdialogStyle, XmDIALOG_FULL_APPLICATION_MODAL,
                             XmNautoUnmanage, False, XmNmarginWidth, 10, XmNmarginHeight, 10, XmNhorizontalSpacing,
                             8, XmNverticalSpacing, 8, nullptr);
  XmString s = MakeString(ConvertLabel(path).c_str());
  Widget label = XtVaCreateManagedWidget(
      "labelConvert", xmLabelWidgetClass, c->form, XmNlabelString, s, XmNalignment, XmALIGNMENT_BEGINNING,
      XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, nullptr);
  XmStringFree(s);

  // From the bottom up: the buttons, a separator, then the three frames
  // reaching down to the separator (the first column ends with "True Color").
  Widget ok = c->ok = MakeButton(c->form, "buttonOK", "O.K.", 10, 40);
  Widget cancel = MakeButton(c->form, "buttonCancel", "Cancel", 60, 90);
  Widget sep = XtVaCreateManagedWidget("separator", xmSeparatorWidgetClass, c->form, XmNbottomAttachment,
                                       XmATTACH_WIDGET, XmNbottomWidget, ok, XmNleftAttachment, XmATTACH_FORM,
                                       XmNrightAttachment, XmATTACH_FORM, nullptr);
  Widget true_color = MakeChoice(c, c->form, kToggleCount, "True Color");
  XtVaSetValues(true_color, XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget, sep, XmNleftAttachment,
                XmATTACH_FORM, nullptr);

  Arg args[8];
  Cardinal n = 0;
  XtSetArg(args[n], XmNtopAttachment, XmATTACH_WIDGET), ++n;
  XtSetArg(args[n], XmNtopWidget, label), ++n;
  XtSetArg(args[n], XmNleftAttachment, XmATTACH_FORM), ++n;
  XtSetArg(args[n], XmNbottomAttachment, XmATTACH_WIDGET), ++n;
  XtSetArg(args[n], XmNbottomWidget, true_color), ++n;
  Widget column = MakeFrame(c->form, "frameBinary", "Binary", args, n);
  static const char *const kBinary[4] = {"Pattern", "Floyd Steinberg", "HalfTone 45", "HalfTone 90"};
  for (int t = 1; t <= 4; ++t) MakeChoice(c, column, t, kBinary[t - 1]);
  Widget left = XtParent(column);

  n = 0;
  XtSetArg(args[n], XmNtopAttachment, XmATTACH_WIDGET), ++n;
  XtSetArg(args[n], XmNtopWidget, label), ++n;
  XtSetArg(args[n], XmNleftAttachment, XmATTACH_WIDGET), ++n;
  XtSetArg(args[n], XmNleftWidget, left), ++n;
  XtSetArg(args[n], XmNbottomAttachment, XmATTACH_WIDGET), ++n;
  XtSetArg(args[n], XmNbottomWidget, sep), ++n;
  column = MakeFrame(c->form, "frameGrey", "Grey", args, n);
  static const char *const kLevels[7] = {"4", "8", "16", "32", "64", "128", "256"};
  for (int t = 5; t <= 11; ++t) MakeChoice(c, column, t, kLevels[t - 5]);
  XtVaCreateManagedWidget("separator", xmSeparatorWidgetClass, column, nullptr);
  c->grey_dither = MakeToggle(column, "gdither", "Dithered", false);
  left = XtParent(column);

  XtSetArg(args[3], XmNleftWidget, left);
  XtSetArg(args[n], XmNrightAttachment, XmATTACH_FORM), ++n;
  column = MakeFrame(c->form, "frameColors", "Colors", args, n);
  static const char *const kColors[7] = {"8", "16", "32", "64", "128", "216", "256"};
  for (int t = 12; t <= 18; ++t) MakeChoice(c, column, t, kColors[t - 12]);
  XtVaCreateManagedWidget("separator", xmSeparatorWidgetClass, column, nullptr);
  c->color_dither = MakeToggle(column, "cdither", "Dithered", false);

  // Choices the format cannot store are shown but cannot be taken.
  bool grey_any = false, color_any = false;
  for (int t = 1; t <= kToggleCount; ++t) {
    const bool stores = FormatStoresToggle(format, t);
    XtSetSensitive(c->toggle[t], stores);
    if (t >= 5 && t <= 10) grey_any |= stores;
    if (t >= 12 && t <= 18) color_any |= stores;
  }
  XtSetSensitive(c->grey_dither, grey_any);
  XtSetSensitive(c->color_dither, color_any);

  XtAddCallback(ok, XmNactivateCallback, ConversionOk, c);
  XtAddCallback(cancel, XmNactivateCallback, ConversionCancel, c);
  XtVaSetValues(c->form, XmNdefaultButton, ok, XmNcancelButton, cancel, nullptr);
  return c;
}

}  // namespace

int AskSaveConversion(Widget owner, const char *path, const TslFormatInfo &format, int preselected) {
  Widget parent = DialogParent(owner);
  if (!parent) return kSaveCancelled;
  Conversion *c = BuildConversion(parent, path ? path : "", format);

  ConversionChoice choice;
  Widget focus = nullptr;
  if (ChoiceOfCode(preselected, &choice) && XtIsSensitive(c->toggle[choice.toggle])) {
    focus = c->toggle[choice.toggle];
    XmToggleButtonSetState(focus, True, False);
    XmToggleButtonSetState(c->grey_dither, choice.grey_dither, False);
    XmToggleButtonSetState(c->color_dither, choice.color_dither, False);
  }
  XtSetSensitive(c->ok, focus != nullptr);  // O.K. waits for a choice

  Widget shell = c->shell;
  XtAppContext app = XtWidgetToApplicationContext(shell);
  g_conversions.push_back(shell);
  XtManageChild(c->form);  // pops the dialog shell up
  // The keyboard starts on the chosen toggle, so Return takes it at once
  // and the arrow keys move from there.
  if (focus) XmProcessTraversal(focus, XmTRAVERSE_CURRENT);
  XFlush(XtDisplay(shell));
  if (!c->done) CallDialogHook(shell);
  while (!c->done && !XtAppGetExitFlag(app)) XtAppProcessEvent(app, XtIMAll);
  g_conversions.erase(std::find(g_conversions.rbegin(), g_conversions.rend(), shell).base() - 1);

  const int answer = c->done ? c->answer : kSaveCancelled;
  if (c->destroyed) {
    delete c;
  } else {
    c->returned = true;
    XtUnmanageChild(c->form);
    XtDestroyWidget(shell);  // frees c, now or when the current dispatch ends
  }
  return answer;
}

namespace {

// The save's questions, messages and progress on X.  The owner may go away
// while events are handled inside the save; dialogs then go to the main
// window.
class XSaveUi : public SaveUi {
 public:
  explicit XSaveUi(Widget owner) : owner_(owner), shell_(ShellOf(owner)) {
    app_ = owner ? XtWidgetToApplicationContext(owner) : App().app;
    if (WidgetAlive(shell_)) XtAddCallback(shell_, XtNdestroyCallback, OwnerDestroyed, this);
    else shell_ = owner_ = nullptr;
  }
  ~XSaveUi() override {
    CloseProgress();
    if (busy_ && owner_) SetBusy(owner_, false);
    if (shell_) XtRemoveCallback(shell_, XtNdestroyCallback, OwnerDestroyed, this);
  }

  int AskConversion(const std::string &path, const TslFormatInfo &format, const TslPicture &,
                    int preselected) override {
    return AskSaveConversion(owner_, path.c_str(), format, preselected);
  }
  void Message(const std::string &text) override { ShowMessage(owner_, text); }
  void Busy(bool on) override {
    if (!owner_ || busy_ == on) return;
    SetBusy(owner_, on);
    busy_ = on;
  }
  void OpenProgress(const std::string &label) override {
    progress_ = quilla::OpenProgress(owner_, "Saving...", label.c_str());
    if (!progress_) return;
    // Stop would mean nothing: the library does not give up a save.
    if (Widget stop = XtNameToWidget(progress_, "*buttonStop")) XtSetSensitive(stop, False);
    // While the library reads the picture, the pump hands keys and clicks
    // only to this dialog: no command may change or free the picture.
    // Windows are still redrawn.
    XtAddGrab(progress_, True, False);
    XtAddCallback(progress_, XtNdestroyCallback, ProgressDestroyed, this);
  }
  // The save pump: shows the percentage, then handles every pending event
  // so that the windows stay drawn while the library writes.
  void Progress(int what, int value) override {
    if (what == 0 && grabbed()) SetProgress(progress_, value);
    if (grabbed()) CallDialogHook(progress_);
    if (app_) PumpXEvents(app_);
  }
  void CloseProgress() override {
    if (!progress_) return;
    if (grabbed()) {
      XtRemoveCallback(progress_, XtNdestroyCallback, ProgressDestroyed, this);
      XtRemoveGrab(progress_);
    }
    quilla::CloseProgress(progress_);
    progress_ = nullptr;
    progress_gone_ = false;
  }

 private:
  bool grabbed() const { return progress_ && !progress_gone_; }
  // Xt drops the grab of a destroyed widget by itself.
  static void ProgressDestroyed(Widget, XtPointer data, XtPointer) {
    static_cast<XSaveUi *>(data)->progress_gone_ = true;
  }

  static void OwnerDestroyed(Widget, XtPointer data, XtPointer) {
    XSaveUi *ui = static_cast<XSaveUi *>(data);
    ui->owner_ = ui->shell_ = nullptr;
    ui->busy_ = false;  // the busy cursor went with the shell
  }

  Widget owner_, shell_;
  XtAppContext app_;
  Widget progress_ = nullptr;
  bool progress_gone_ = false;
  bool busy_ = false;
};

}  // namespace

int CentralSaveWith(Widget owner, std::string *path, int format, const TslPicture *pic, const SaveOptions &options) {
  if (!pic || !path) return TSL_ERR_INTERNAL;
  ++g_saves;
  int code;
  {
    XSaveUi ui(owner);
    code = SavePicture(ui, Settings(), path, format, *pic, options);
  }
  --g_saves;
  return code;
}

int CentralSave(Widget owner, const char *path, const TslPicture *pic, int format) {
  std::string target = path ? path : "";
  if (format < 0) format = ChooseSaveFormat(target.c_str(), Settings().Convert.DefaultFormat);
  SaveOptions options;
  options.app_switch = App().verbose;
  return CentralSaveWith(owner, &target, format, pic, options);
}

int SaveRunning() { return g_saves; }

Widget ShownSaveConversion() { return g_conversions.empty() ? nullptr : g_conversions.back(); }

}  // namespace quilla
