// The contact sheet run: selector, progress dialog with Stop, central save.
#include "browser/contact_sheet_x.h"

#include <Xm/Xm.h>

#include "browser/contact_sheet.h"
#include "core/app_x.h"
#include "core/settings.h"
#include "files/load_model.h"
#include "files/load_x.h"
#include "files/save_x.h"
#include "files/selector_model.h"
#include "files/selector_x.h"

namespace quilla {

namespace {

const char kTitle[] = "Contact Sheet";

class SheetRun {
 public:
  SheetRun(Widget owner, const std::vector<std::string> &paths, const std::string &first, int format)
      : owner_(owner), sheet_(SheetOptionsFromSettings(Settings()), paths), first_(first), format_(format) {
    XtAddCallback(owner_, XtNdestroyCallback, OwnerGone, this);
    progress_ = OpenProgress(owner_, kTitle, "");
    work_ = XtAppAddWorkProc(App().app, Work, this);
  }
  ~SheetRun() {
    if (work_) XtRemoveWorkProc(work_);
    if (progress_) CloseProgress(progress_);
    if (owner_) XtRemoveCallback(owner_, XtNdestroyCallback, OwnerGone, this);
  }

 private:
  static void OwnerGone(Widget, XtPointer data, XtPointer) { static_cast<SheetRun *>(data)->owner_ = nullptr; }
  static Boolean Work(XtPointer data);

  void Label(const std::string &text) {
    Widget label = progress_ ? XtNameToWidget(progress_, "*labelProgress") : nullptr;
    if (!label) return;
    XmString s = XmStringCreateLocalized(const_cast<char *>(text.c_str()));
    XtVaSetValues(label, XmNlabelString, s, nullptr);
    XmStringFree(s);
    XmUpdateDisplay(label);
  }
  // One picture; false when the run is over.
  bool Step();

  Widget owner_;
  Widget progress_ = nullptr;
  XtWorkProcId work_ = 0;
  ContactSheet sheet_;
  std::string first_;
  int format_;
  uint16_t conversion_ = 65535;  // one conversion answer serves every page
};

SheetRun *g_run = nullptr;

bool SheetRun::Step() {
  // Stop, or the window going away (its progress dialog with it), ends the
  // run; the pages saved so far stay.
  if (!owner_ || ProgressStopped(progress_) || sheet_.done()) return false;
  const int pages = sheet_.pages();
  const int page = static_cast<int>(sheet_.placed()) / sheet_.layout().perPage() + 1;
  Label("Page " + std::to_string(page) + " of " + std::to_string(pages) + ": " +
        FileNameOnly(sheet_.nextPath().c_str()));
  SetProgress(progress_, static_cast<int>(sheet_.placed() * 100 / sheet_.count()));
  TslPicture done;
  int number = 0;
  if (sheet_.step(&done, &number) == TSL_ERR_MEMORY && !done.pixels && sheet_.done()) {
    ShowMessage(owner_, LoadErrorText(first_.c_str(), TSL_ERR_MEMORY, nullptr));
    return false;
  }
  if (!done.pixels) return true;
  std::string path = SheetPageFileName(first_, number);
  Label("Saving " + FileNameOnly(path.c_str()));
  SaveOptions options;
  options.app_switch = App().verbose;
  options.remember = number > 1;
  options.memory = &conversion_;
  const int code = CentralSaveWith(owner_, &path, format_, &done, options);
  tslFree(&done);
  return code == TSL_OK && !sheet_.done();
}

// The procedure is not registered while a step runs: the save's dialogs and
// pump handle events, which would call it again.
Boolean SheetRun::Work(XtPointer data) {
  auto *run = static_cast<SheetRun *>(data);
  run->work_ = 0;
  if (run->Step()) {
    run->work_ = XtAppAddWorkProc(App().app, Work, run);
  } else {
    g_run = nullptr;
    delete run;
  }
  return True;
}

}  // namespace

bool MakeContactSheets(Widget owner, const std::vector<std::string> &paths) {
  if (g_run || paths.empty()) return false;
  const std::string &any = paths.front();
  SelectorRequest request;
  request.title = "Contact Sheet...";
  request.mode = kSelectorSave;
  request.initial = any.substr(0, any.rfind('/') + 1);  // the pictures' directory
  request.default_format = "png";
  SelectorResult result;
  if (!RunFileSelector(owner, request, &result) || result.paths.empty() || g_run) return false;
  const std::string &first = result.paths.front();
  const int format = result.format >= 0 ? result.format : ChooseSaveFormat(first.c_str(), Settings().Convert.DefaultFormat);
  g_run = new SheetRun(ShellOf(owner), paths, first, format);
  return true;
}

bool ContactSheetsRunning() { return g_run != nullptr; }

}  // namespace quilla
