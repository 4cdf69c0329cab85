// The file operations on X around the toolkit-free FileOp: the work
// procedure, the progress dialog, the questions and what follows the files.
#include "files/fileop_x.h"

#include <X11/IntrinsicP.h>
#include <X11/CoreP.h>
#include <Xm/Form.h>
#include <Xm/Label.h>
#include <Xm/PushB.h>
#include <Xm/RowColumn.h>
#include <Xm/Separator.h>
#include <Xm/TextF.h>
#include <Xm/Xm.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "browser/browser_x.h"
#include "browser/cache_db.h"
#include "browser/descriptions.h"
#include "core/app_x.h"
#include "core/settings.h"
#include "files/load_x.h"
#include "files/modal_x.h"
#include "files/selector_x.h"
#include "imgproc/path_text.h"
#include "view/view_x.h"

namespace quilla {

namespace {

std::string DirOf(const std::string &path) {
  const std::string dir = DirectoryWithSlash(path);
  return dir.empty() ? "./" : dir;
}

// A window to ask on: the owner while it lives, else the main window.
Widget LiveOwner(Widget owner) {
  if (WidgetAlive(owner)) return owner;
  return App().main_window && WidgetAlive(App().main_window) ? App().main_window : App().shell;
}

// ---- the recent target directories

std::vector<std::string> RecentTargets() {
  std::vector<std::string> out;
  for (int i = 0; i < 10; ++i)
    if (Settings().DirName[i][0]) out.push_back(Settings().DirName[i]);
  return out;
}

void RememberTarget(const std::string &dir) {
  if (dir.empty() || dir.size() >= static_cast<size_t>(kPathSize)) return;
  std::vector<std::string> keep = {dir};
  for (const std::string &d : RecentTargets())
    if (d != dir) keep.push_back(d);
  for (int i = 0; i < 10; ++i)
    std::snprintf(Settings().DirName[i], kPathSize, "%s", i < static_cast<int>(keep.size()) ? keep[i].c_str() : "");
}

// ---- the target dialog

struct TargetDialog {
  ModalDialog modal;
  Widget edits[kFileOpRows] = {};
  std::string chosen;
};

// A row chosen by its button or by Return in its field.  The field's Return
// also reaches the form's default button; the first answer wins.
void RowChosen(Widget w, XtPointer client, XtPointer) {
  auto *d = static_cast<TargetDialog *>(client);
  if (d->modal.done) return;
  for (int i = 0; i < kFileOpRows; ++i) {
    char name[16];
    std::snprintf(name, sizeof name, "dir%d", i);
    if (w != d->edits[i] && std::strcmp(XtName(w), name) != 0) continue;
    struct stat st;
    const std::string dir = FieldText(d->edits[i]);
    if (dir.empty() || ::stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return Bell();
    d->modal.choice = i;
    d->chosen = dir;
    d->modal.ok = d->modal.done = true;
    return;
  }
}

void ChooseDirectory(Widget w, XtPointer client, XtPointer) {
  auto *d = static_cast<TargetDialog *>(client);
  int row = -1;
  std::sscanf(XtName(w), "button%d", &row);
  if (row < 0 || row >= kFileOpRows) return;
  std::string dir;
  if (!ChooseOutputDirectory(d->modal.shell, FieldText(d->edits[row]), &dir) || d->modal.destroyed) return;
  XmTextFieldSetString(d->edits[row], const_cast<char *>(dir.c_str()));
  XmProcessTraversal(d->edits[row], XmTRAVERSE_CURRENT);
}

// ---- the run

class FileOpRun : public FileOpUi {
 public:
  FileOpRun(Widget owner, FileOpKind kind, const std::string &dir, const std::vector<std::string> &names,
            const std::string &target, const std::vector<std::string> &new_names)
      : owner_(owner), op(kind, dir, names, target, new_names) {}

  bool AskStop(const std::string &question) override { return AskConfirm(LiveOwner(owner_), question); }
  void OpenProgress(const std::string &title, size_t maximum) override {
    maximum_ = maximum;
    progress_ = quilla::OpenProgress(LiveOwner(owner_), title.c_str(), "");
  }
  void ShowName(const std::string &name) override {
    if (!progress_ || ProgressStopped(progress_)) return;
    if (Widget label = XtNameToWidget(progress_, "*labelProgress")) SetLabelText(label, name);
  }
  void Advance(size_t done) override {
    if (progress_ && maximum_) SetProgress(progress_, static_cast<int>(done * 100 / maximum_));
  }
  void CloseProgress() override {
    if (progress_) quilla::CloseProgress(progress_);
    progress_ = nullptr;
  }
  bool stopped() const { return progress_ && ProgressStopped(progress_); }

  Widget owner_;
  FileOp op;
  std::vector<std::pair<std::string, std::string>> carried;  // for the thumbnail cache
  std::function<void(const FileOp &)> after;

 private:
  Widget progress_ = nullptr;
  size_t maximum_ = 0;
};

FileOpRun *g_run = nullptr;

Boolean FileOpWork(XtPointer) {
  FileOpRun *run = g_run;
  if (!run) return True;
  if (run->stopped()) run->op.Stop();
  if (!run->op.Step(*run)) return False;
  g_run = nullptr;
  delete run;
  return True;
}

// The end of a run (from FileOp's finished hook, the progress closed).
void Finished(FileOpRun *run, const FileOp &op) {
  CarryThumbnails(run->carried);
  BrowserState browser;
  if (GetBrowserState(&browser) &&
      (op.refreshes() || browser.directory == op.target_dir() || browser.directory == op.source_dir()))
    RunBrowserCommand("quickRefresh");
  if (run->after) run->after(op);
}

// The view after its file was moved, renamed or deleted.
void FollowInView(Widget view, const std::string &old_path, const FileOp &op) {
  ViewState state;
  if (op.done().empty() || !WidgetAlive(view) || !GetViewState(view, &state) || state.path != old_path) return;
  if (op.kind() == FileOpKind::kMove) {
    ViewSetFile(view, (op.target_dir() + FileNamePart(old_path)).c_str(), -1, state.modified);
  } else if (op.kind() == FileOpKind::kDelete) {
    ViewForgetFile(view);
  }
}

}  // namespace

bool AskTargetDirectory(Widget owner, FileOpKind kind, std::string *dir) {
  const bool move = kind == FileOpKind::kMove;
  TargetDialog d;
  if (!BuildModalDialog(&d.modal, owner, "QuillFileOp", move ? "Move To..." : "Copy To...", "form")) return false;
  Widget form = d.modal.form;
  Widget rows = XtVaCreateManagedWidget("rows", xmFormWidgetClass, form, XmNtopAttachment, XmATTACH_FORM,
                                        XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM,
                                        XmNverticalSpacing, 4, XmNhorizontalSpacing, 4, nullptr);
  const std::vector<std::string> recent = RecentTargets();
  Widget above = nullptr, first_button = nullptr;
  for (int i = 0; i < kFileOpRows; ++i) {
    char name[16];
    std::snprintf(name, sizeof name, "dir%d", i);
    Widget go = ModalButton(rows, name, move ? "move" : "copy");
    std::snprintf(name, sizeof name, "edit%d", i);
    d.edits[i] = XtVaCreateManagedWidget(name, xmTextFieldWidgetClass, rows, XmNcolumns, 40, XmNmaxLength,
                                         kPathSize - 1, nullptr);
    if (i < static_cast<int>(recent.size()))
      XmTextFieldSetString(d.edits[i], const_cast<char *>(recent[i].c_str()));
    std::snprintf(name, sizeof name, "button%d", i);
    Widget choose = ModalButton(rows, name, "...");
    auto top = [&](Widget w) {
      if (above)
        XtVaSetValues(w, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, above, nullptr);
      else
        XtVaSetValues(w, XmNtopAttachment, XmATTACH_FORM, nullptr);
    };
    top(go);
    top(d.edits[i]);
    top(choose);
    XtVaSetValues(go, XmNleftAttachment, XmATTACH_FORM, XmNwidth, 60, XmNrecomputeSize, False, nullptr);
    XtVaSetValues(choose, XmNrightAttachment, XmATTACH_FORM, nullptr);
    XtVaSetValues(d.edits[i], XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, go, XmNrightAttachment,
                  XmATTACH_WIDGET, XmNrightWidget, choose, nullptr);
    XtAddCallback(go, XmNactivateCallback, RowChosen, &d);
    XtAddCallback(d.edits[i], XmNactivateCallback, RowChosen, &d);
    XtAddCallback(choose, XmNactivateCallback, ChooseDirectory, &d);
    if (!first_button) first_button = go;
    above = d.edits[i];
  }
  Widget sep = XtVaCreateManagedWidget("separator", xmSeparatorWidgetClass, form, XmNtopAttachment, XmATTACH_WIDGET,
                                       XmNtopWidget, rows, XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment,
                                       XmATTACH_FORM, nullptr);
  Widget cancel = ModalButton(form, "buttonCancel", "Cancel");
  XtVaSetValues(cancel, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, sep, XmNbottomAttachment, XmATTACH_FORM,
                XmNleftAttachment, XmATTACH_POSITION, XmNleftPosition, 35, XmNrightAttachment, XmATTACH_POSITION,
                XmNrightPosition, 65, nullptr);
  XtAddCallback(cancel, XmNactivateCallback, ModalDialogCancel, &d.modal);
  XtVaSetValues(form, XmNdefaultButton, first_button, XmNcancelButton, cancel, nullptr);
  if (!RunModalDialog(&d.modal, d.edits[0]) || d.chosen.empty()) return false;
  RememberTarget(d.chosen);
  *dir = d.chosen;
  return true;
}

bool AskNewName(Widget owner, const std::string &current, std::string *name) {
  ModalDialog m;
  if (!BuildModalDialog(&m, owner, "quillRename", "Rename", "form")) return false;
  Widget field = XtVaCreateManagedWidget("textField", xmTextFieldWidgetClass, m.form, XmNcolumns, 40, XmNmaxLength,
                                         255, XmNvalue, current.c_str(), XmNtopAttachment, XmATTACH_FORM,
                                         XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, nullptr);
  Widget ok = ModalButton(m.form, "buttonOk", "O.K.");
  Widget cancel = ModalButton(m.form, "buttonCancel", "Cancel");
  XtVaSetValues(ok, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, field, XmNtopOffset, 10, XmNbottomAttachment,
                XmATTACH_FORM, XmNleftAttachment, XmATTACH_POSITION, XmNleftPosition, 10, XmNrightAttachment,
                XmATTACH_POSITION, XmNrightPosition, 40, nullptr);
  XtVaSetValues(cancel, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, field, XmNtopOffset, 10,
                XmNbottomAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_POSITION, XmNleftPosition, 60,
                XmNrightAttachment, XmATTACH_POSITION, XmNrightPosition, 90, nullptr);
  XtAddCallback(ok, XmNactivateCallback, ModalDialogOk, &m);
  XtAddCallback(cancel, XmNactivateCallback, ModalDialogCancel, &m);
  XtVaSetValues(m.form, XmNdefaultButton, ok, XmNcancelButton, cancel, nullptr);
  // The name is read as O.K. is pressed: the widgets go with the dialog.
  std::string typed;
  auto keep = [](Widget, XtPointer client, XtPointer) {
    auto *pair = static_cast<std::pair<Widget, std::string *> *>(client);
    *pair->second = FieldText(pair->first);
  };
  std::pair<Widget, std::string *> source{field, &typed};
  XtAddCallback(ok, XmNactivateCallback, keep, &source);
  if (!RunModalDialog(&m, field)) return false;
  if (typed.empty() || typed == current) return false;
  if (typed.find('/') != std::string::npos) {
    Bell();
    return false;
  }
  *name = typed;
  return true;
}

bool ConfirmDelete(Widget owner, size_t count) {
  return !Settings().File.ConfirmFileDelete || AskConfirm(owner, DeleteConfirmText(count));
}

bool FileOpRunning() { return g_run != nullptr; }

bool StartFileOp(Widget owner, FileOpKind kind, const std::string &dir, const std::vector<std::string> &names,
                 const std::string &target, const std::vector<std::string> &new_names,
                 const std::function<void(const FileOp &)> &after) {
  if (g_run || names.empty() || !App().app) {
    Bell();
    return false;
  }
  auto *run = new FileOpRun(owner, kind, dir, names, target, new_names);
  run->after = after;
  run->op.hooks.copied = [run](const std::string &from, const std::string &to) {
    run->carried.emplace_back(from, to);
    CarryDescription(from, to, true);
  };
  run->op.hooks.moved = [run](const std::string &from, const std::string &to) {
    run->carried.emplace_back(from, to);
    CarryDescription(from, to, DirOf(from) != DirOf(to));
  };
  run->op.hooks.deleted = [](const std::string &path) { CarryDescription(path, std::string(), false); };
  run->op.hooks.finished = [run](const FileOp &op) { Finished(run, op); };
  g_run = run;
  XtAppAddWorkProc(App().app, FileOpWork, nullptr);
  return true;
}

void CarryThumbnails(const std::vector<std::pair<std::string, std::string>> &moves) {
  const SettingsRecord &s = Settings();
  if (moves.empty() || !s.Cache.IsActive) return;
  ThumbCache &cache = BrowserCache();
  cache.configure(true, s.Cache.Compression);
  cache.open(false);
  if (!cache.isOpen()) return cache.close();
  cache.setThumbnailSize(s.Browser.IconWidth, s.Browser.IconHeight);
  struct Carried {
    std::string dir, name;
    struct stat st;
    TslPicture pic;
    TslFileInfo info;
  };
  std::vector<Carried> found;
  std::string current;
  // First every thumbnail from its old place: the newest entry of the name
  // with the file's size (a copy across file systems has a new time).
  for (const auto &m : moves) {
    Carried c{};
    c.dir = DirOf(m.second);
    c.name = FileNamePart(m.second);
    if (::stat(m.second.c_str(), &c.st) != 0) continue;
    const std::string from_dir = DirOf(m.first), from_name = FileNamePart(m.first);
    if (from_dir != current) cache.setDirectory(current = from_dir);
    const std::vector<ThumbCache::Key> keys = cache.keys();
    for (auto k = keys.rbegin(); k != keys.rend(); ++k) {
      if (k->name != from_name || k->size != static_cast<uint32_t>(c.st.st_size)) continue;
      if (cache.lookup(from_name.c_str(), k->mtime, k->size, &c.pic, &c.info)) found.push_back(c);
      break;
    }
  }
  // Then into the new places.
  for (Carried &c : found) {
    if (c.dir != current) cache.setDirectory(current = c.dir);
    cache.store(c.name.c_str(), static_cast<uint32_t>(c.st.st_mtime), static_cast<uint32_t>(c.st.st_size), c.pic,
                c.info);
    tslFree(&c.pic);
    tslFileInformationFree(&c.info);
  }
  // The browser's directory is the cache's current one again.
  BrowserState browser;
  if (GetBrowserState(&browser) && !browser.directory.empty() && current != browser.directory)
    cache.setDirectory(browser.directory);
  cache.close();
}

void CarryDescription(const std::string &from, const std::string &to, bool keep_source) {
  const std::string from_dir = DirOf(from), name = FileNamePart(from);
  DescriptionTable table = LoadDescriptions(from_dir);
  const std::string *found = FindDescription(table, name);
  if (!found) return;
  const std::string text = *found;
  const bool same_dir = !to.empty() && DirOf(to) == from_dir;
  if (!keep_source) SetDescription(&table, name, std::nullopt);
  if (same_dir) SetDescription(&table, FileNamePart(to), text);
  if (!keep_source || same_dir) SaveDescriptions(table, from_dir, true);
  if (to.empty() || same_dir) return;
  DescriptionTable other = LoadDescriptions(DirOf(to));
  SetDescription(&other, FileNamePart(to), text);
  SaveDescriptions(other, DirOf(to), true);
}

bool RunViewFileOpCommand(Widget view, Widget owner, const char *word) {
  const std::string w = word;
  if (w != "copyTo" && w != "moveTo" && w != "rename" && w != "delete") return false;
  ViewState state;
  if (!view || !GetViewState(view, &state) || state.path.empty()) {
    Bell();
    return true;
  }
  if (FileOpRunning()) {
    Bell();
    return true;
  }
  const std::string path = state.path, dir = DirOf(path), name = FileNamePart(path);
  std::string target, new_name;
  FileOpKind kind;
  std::vector<std::string> new_names;
  if (w == "copyTo" || w == "moveTo") {
    kind = w == "copyTo" ? FileOpKind::kCopy : FileOpKind::kMove;
    if (!AskTargetDirectory(owner, kind, &target)) return true;
  } else if (w == "rename") {
    kind = FileOpKind::kRename;
    if (!AskNewName(owner, name, &new_name)) return true;
    new_names.push_back(new_name);
  } else {
    kind = FileOpKind::kDelete;
    if (!ConfirmDelete(owner, 1)) return true;
  }
  StartFileOp(owner, kind, dir, {name}, target, new_names, [view, path, new_name](const FileOp &op) {
    if (op.kind() == FileOpKind::kRename) {
      ViewState now;
      if (!op.done().empty() && WidgetAlive(view) && GetViewState(view, &now) && now.path == path)
        ViewSetFile(view, (op.source_dir() + new_name).c_str(), -1, now.modified);
      return;
    }
    FollowInView(view, path, op);
  });
  return true;
}

}  // namespace quilla
