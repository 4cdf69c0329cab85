// The file selector and the format list on Motif.  The selector is one
// modal dialog run by a local event loop; its state is a plain record that
// outlives the widgets only as long as the call that made it.
#include "files/selector_x.h"

#include <X11/IntrinsicP.h>
#include <X11/CoreP.h>
#include <Xm/CascadeB.h>
#include <Xm/DialogS.h>
#include <Xm/Form.h>
#include <Xm/Frame.h>
#include <Xm/Label.h>
#include <Xm/List.h>
#include <Xm/Protocols.h>
#include <Xm/PushB.h>
#include <Xm/RowColumn.h>
#include <Xm/TextF.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

#include "core/app_x.h"
#include "core/display_x.h"
#include "core/settings.h"
#include "files/load_x.h"
#include "view/render_x.h"
#include "widgets/MyComboBox.h"

namespace quilla {

namespace {

constexpr int kPreviewWidth = 160, kPreviewHeight = 120, kColumnWidth = 200;
const char *const kInfoNames[6] = {"labelType", "labelWidth", "labelHeight", "labelBits", "labelPlanes", "labelColors"};
const char *const kInfoEmpty[6] = {"Type:", "Width:", "Height:", "Bits Per Plane:", "# Planes:", "# Colors:"};

std::string g_dir;  // the directory of the last use
SelectorHook g_hook = nullptr;
std::vector<Widget> g_shown;
Widget g_format_list = nullptr;

XmString MakeString(const std::string &text) { return XmStringCreateLocalized(const_cast<char *>(text.c_str())); }

Atom DeleteWindowAtom(Widget w) {
  return XmInternAtom(XtDisplay(w), const_cast<char *>("WM_DELETE_WINDOW"), False);
}

std::string StartDirectory() {
  if (!App().start_dir.empty()) return App().start_dir;
  char buf[PATH_MAX];
  return getcwd(buf, sizeof buf) ? buf : "/";
}

bool IsDirectory(const std::string &path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool Exists(const std::string &path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

std::string JoinPath(const std::string &dir, const std::string &name) {
  return dir == "/" ? "/" + name : dir + "/" + name;
}

// ---- the selector's record

struct Selector {
  Widget shell = nullptr, form = nullptr;
  Widget ancestor_cascade = nullptr, ancestor_menu = nullptr, dir_menu = nullptr;
  std::vector<Widget> ancestor_items, dir_items;
  std::vector<std::string> ancestor_paths, dir_paths;
  Widget text = nullptr, dir_list = nullptr, file_list = nullptr, toggle = nullptr, preview = nullptr;
  Widget labels[6] = {};
  Widget combo = nullptr, ok = nullptr, cancel = nullptr;
  int mode = 0;
  bool multiple = false;
  std::string dir;
  std::vector<SelectorEntry> dirs, files, shown;  // shown: the files that pass the filter
  std::vector<FileTypeChoice> types;
  int type = 0;
  bool done = false, accepted = false, destroyed = false, returned = false;
  SelectorResult result;
  ColourData *colours = nullptr;
  DisplayObject *display = nullptr;
  Pixmap pixmap = 0;  // the thumbnail shown
  Window canvas = 0;  // the window showing it
};

std::vector<Selector *> g_selectors;

bool SaveMode(const Selector *s) { return (s->mode & kSelectorSave) != 0; }
bool DirectoryMode(const Selector *s) { return (s->mode & kSelectorDirectory) != 0; }

Selector *SelectorOf(Widget w) {
  for (Selector *s : g_selectors)
    if (!s->destroyed && (w == s->text || ShellOf(w) == s->shell)) return s;
  return nullptr;
}

std::string TypedText(Selector *s) {
  char *t = XmTextFieldGetString(s->text);
  std::string out = t ? t : "";
  XtFree(t);
  // Blanks around a typed name are never meant.
  const size_t a = out.find_first_not_of(" \t"), b = out.find_last_not_of(" \t");
  return a == std::string::npos ? "" : out.substr(a, b - a + 1);
}

void SetTyped(Selector *s, const std::string &text) {
  XmTextFieldSetString(s->text, const_cast<char *>(text.c_str()));
  XmTextFieldSetInsertionPosition(s->text, XmTextFieldGetLastPosition(s->text));
}

// ---- preview

void FreePreview(Selector *s) {
  if (!s->pixmap) return;
  Display *dpy = XtDisplay(s->preview);
  if (s->canvas) {
    XUnmapWindow(dpy, s->canvas);
    XSetWindowBackground(dpy, s->canvas, s->colours ? s->colours->black : 0);
  }
  XFreePixmap(dpy, s->pixmap);
  s->pixmap = 0;
}

void ClearInfo(Selector *s) {
  FreePreview(s);
  for (int i = 0; i < 6; ++i) SetLabelText(s->labels[i], kInfoEmpty[i]);
}

// A reduced picture in a window of the program's visual inside the preview
// label; the window's background is the picture, so the server redraws it.
void ShowThumbnail(Selector *s, const std::string &path, int format) {
  if (!XtIsRealized(s->preview)) return;
  Display *dpy = XtDisplay(s->preview);
  const int screen = XScreenNumberOfScreen(XtScreen(s->preview));
  const VisualDesc &vd = CurrentVisual();
  if (!s->colours) s->colours = GetColourData(dpy, screen, nullptr, false);
  if (!s->colours) return;
  if (!s->display) s->display = MakeDisplayObject(dpy, vd.info.depth, s->colours);
  if (!s->display) return;
  TslParams params;
  tslDefaultParams(&params);
  params.format = format;
  params.target_width = kPreviewWidth;
  params.target_height = kPreviewHeight;
  TslPicture pic{};
  if (tslLoad(path.c_str(), &pic, &params) != TSL_OK || pic.width == 0 || pic.height == 0) {
    tslFree(&pic);
    return;
  }
  if (!s->canvas) {
    XSetWindowAttributes attr;
    attr.colormap = s->colours->colormap;
    attr.background_pixel = s->colours->black;
    attr.border_pixel = 0;
    s->canvas = XCreateWindow(dpy, XtWindow(s->preview), 0, 0, 1, 1, 0, vd.info.depth, InputOutput,
                              CurrentXVisual() ? CurrentXVisual() : DefaultVisual(dpy, screen),
                              CWColormap | CWBackPixel | CWBorderPixel, &attr);
    Window windows[2] = {s->canvas, XtWindow(s->shell)};
    XSetWMColormapWindows(dpy, XtWindow(s->shell), windows, 2);
  }
  const Pixmap pm = PictureToPixmap(s->display, s->canvas, &pic);
  const int w = static_cast<int>(pic.width), h = static_cast<int>(pic.height);
  tslFree(&pic);
  if (!pm) return;
  s->pixmap = pm;
  const int x = (static_cast<int>(s->preview->core.width) - w) / 2;
  const int y = (static_cast<int>(s->preview->core.height) - h) / 2;
  XMoveResizeWindow(dpy, s->canvas, std::max(0, x), std::max(0, y), static_cast<unsigned>(w), static_cast<unsigned>(h));
  XSetWindowBackgroundPixmap(dpy, s->canvas, pm);
  XClearWindow(dpy, s->canvas);
  XMapWindow(dpy, s->canvas);
}

void UpdatePreview(Selector *s, const std::string &path) {
  ClearInfo(s);
  if (!XmToggleButtonGetState(s->toggle) || path.empty()) return;
  TslFileInfo info;
  if (tslFileInformation(path.c_str(), -1, 0, &info) != TSL_OK) {
    tslFileInformationFree(&info);
    for (Widget label : s->labels) SetLabelText(label, "Unavailable");
    return;
  }
  char buf[160];
  const char *description = tslFormatGetDescription(info.format);
  std::snprintf(buf, sizeof buf, "Type: %s", description ? description : "");
  SetLabelText(s->labels[0], buf);
  std::snprintf(buf, sizeof buf, "Width: %d", static_cast<int>(info.width));
  SetLabelText(s->labels[1], buf);
  std::snprintf(buf, sizeof buf, "Height: %d", static_cast<int>(info.height));
  SetLabelText(s->labels[2], buf);
  std::snprintf(buf, sizeof buf, "Bits Per Plane: %d", info.bits_per_plane);
  SetLabelText(s->labels[3], buf);
  std::snprintf(buf, sizeof buf, "# Planes: %d", info.planes);
  SetLabelText(s->labels[4], buf);
  if (TSL_IS_TRUECOLOR(info.color_model) || info.colors >= (1L << 24))
    std::snprintf(buf, sizeof buf, "# Colors: 16 Millions");
  else
    std::snprintf(buf, sizeof buf, "# Colors:  %d", static_cast<int>(info.colors));
  SetLabelText(s->labels[5], buf);
  const int format = info.format;
  tslFileInformationFree(&info);
  ShowThumbnail(s, path, format);
}

// ---- lists and menus

void FillList(Widget list, const std::vector<std::string> &lines) {
  XmListDeleteAllItems(list);
  if (lines.empty()) return;
  std::vector<XmString> items;
  items.reserve(lines.size());
  for (const std::string &l : lines) items.push_back(MakeString(l));
  XmListAddItems(list, items.data(), static_cast<int>(items.size()), 0);
  for (XmString i : items) XmStringFree(i);
}

void FillFileList(Selector *s) {
  s->shown.clear();
  std::vector<std::string> lines;
  const int format = s->types.empty() ? -1 : s->types[s->type].format;
  for (const SelectorEntry &e : s->files)
    if (NameMatchesFormat(e.name, format)) {
      s->shown.push_back(e);
      lines.push_back(SelectorListLine(e));
    }
  FillList(s->file_list, lines);
}

void MenuItemChosen(Widget w, XtPointer client, XtPointer);

// Shows `paths` as the items `prefix`0, 1, ... of `menu`, reusing buttons.
void FillMenu(Selector *s, Widget menu, const char *prefix, std::vector<Widget> *items,
              const std::vector<std::string> &paths) {
  for (size_t i = 0; i < paths.size(); ++i) {
    if (i == items->size()) {
      char name[32];
      std::snprintf(name, sizeof name, "%s%d", prefix, static_cast<int>(i));
      Widget b = XtCreateWidget(name, xmPushButtonWidgetClass, menu, nullptr, 0);
      XtAddCallback(b, XmNactivateCallback, MenuItemChosen, s);
      items->push_back(b);
    }
    SetLabelText((*items)[i], paths[i]);
    XtManageChild((*items)[i]);
  }
  for (size_t i = paths.size(); i < items->size(); ++i) XtUnmanageChild((*items)[i]);
}

bool ChangeDirectory(Selector *s, const std::string &dir) {
  std::vector<SelectorEntry> dirs, files;
  if (!ReadSelectorDirectory(dir, &dirs, &files)) {
    XBell(XtDisplay(s->shell), 0);
    return false;
  }
  s->dir = dir;
  s->dirs = dirs;
  s->files = files;
  std::vector<std::string> names;
  for (const SelectorEntry &e : s->dirs) names.push_back(e.name);
  FillList(s->dir_list, names);
  FillFileList(s);
  s->ancestor_paths = AncestorDirectories(dir);
  FillMenu(s, s->ancestor_menu, "ancestorItem", &s->ancestor_items, s->ancestor_paths);
  SetLabelText(s->ancestor_cascade, dir);
  ClearInfo(s);
  if (DirectoryMode(s))
    SetTyped(s, dir);
  else if (!SaveMode(s))
    SetTyped(s, "");
  return true;
}

void FillRecentMenu(Selector *s) {
  s->dir_paths.clear();
  const char *home = std::getenv("HOME");
  if (home && *home) s->dir_paths.push_back(home);
  for (const std::string &d : RecentDirectories(Settings()))
    if (std::find(s->dir_paths.begin(), s->dir_paths.end(), d) == s->dir_paths.end()) s->dir_paths.push_back(d);
  FillMenu(s, s->dir_menu, "dirItem", &s->dir_items, s->dir_paths);
}

void MenuItemChosen(Widget w, XtPointer client, XtPointer) {
  Selector *s = static_cast<Selector *>(client);
  auto pick = [&](const std::vector<Widget> &items, const std::vector<std::string> &paths) {
    for (size_t i = 0; i < items.size() && i < paths.size(); ++i)
      if (items[i] == w) {
        const std::string target = paths[i];  // the menu is refilled by the move
        ChangeDirectory(s, target);
        return true;
      }
    return false;
  };
  if (!pick(s->ancestor_items, s->ancestor_paths)) pick(s->dir_items, s->dir_paths);
}

// ---- accepting

void Finish(Selector *s, std::vector<std::string> paths, int format) {
  s->result.paths = std::move(paths);
  s->result.format = format;
  s->accepted = true;
  s->done = true;
}

std::vector<int> SelectedPositions(Widget list) {
  int *pos = nullptr, count = 0;
  std::vector<int> out;
  if (XmListGetSelectedPos(list, &pos, &count)) {
    out.assign(pos, pos + count);
    XtFree(reinterpret_cast<char *>(pos));
  }
  return out;
}

void Accept(Selector *s) {
  if (s->done) return;
  const std::string typed = TypedText(s);
  const std::string full = typed.empty() ? "" : AbsoluteSelectorPath(StripAutomountPrefix(typed), s->dir);
  Display *dpy = XtDisplay(s->shell);

  if (DirectoryMode(s)) {
    const std::string target = full.empty() ? s->dir : full;
    if (IsDirectory(target)) return Finish(s, {target}, -1);
    XBell(dpy, 0);
    return;
  }
  // Several files chosen in the list, the field naming one of them or none.
  const std::vector<int> selected = SelectedPositions(s->file_list);
  if (!SaveMode(s) && !selected.empty()) {
    bool field_is_selection = typed.empty();
    for (int p : selected)
      if (p >= 1 && p <= static_cast<int>(s->shown.size()) && s->shown[p - 1].name == typed) field_is_selection = true;
    if (field_is_selection) {
      std::vector<std::string> paths;
      for (int p : selected)
        if (p >= 1 && p <= static_cast<int>(s->shown.size())) paths.push_back(JoinPath(s->dir, s->shown[p - 1].name));
      if (!paths.empty()) return Finish(s, paths, -1);
    }
  }
  if (full.empty()) {
    XBell(dpy, 0);
    return;
  }
  // A directory is entered, never accepted (nor asked about).
  if (IsDirectory(full)) {
    if (ChangeDirectory(s, full) && SaveMode(s)) SetTyped(s, "");
    return;
  }
  const int combo_format = s->types.empty() ? -1 : s->types[s->type].format;
  if (Exists(full)) {
    if (SelectorAsksOverwrite(s->mode) && !AskConfirm(s->shell, "Overwrite this file !! \nConfirm ?")) return;
    if (s->done) return;  // closed while the question was up
    return Finish(s, {full}, SaveMode(s) ? SaveFormatFor(full, combo_format) : -1);
  }
  if (SaveMode(s)) return Finish(s, {full}, SaveFormatFor(full, combo_format));
  // Opening a name that is not there: the bell, and the name stays to be corrected.
  XBell(dpy, 0);
}

// ---- callbacks

void OkPressed(Widget, XtPointer client, XtPointer) { Accept(static_cast<Selector *>(client)); }

void CancelPressed(Widget, XtPointer client, XtPointer) {
  Selector *s = static_cast<Selector *>(client);
  s->done = true;
}

void SelectorDestroyed(Widget, XtPointer client, XtPointer) {
  Selector *s = static_cast<Selector *>(client);
  if (s->returned) {
    delete s;
    return;
  }
  s->destroyed = true;
  s->done = true;
}

void DirectoryActivated(Widget, XtPointer client, XtPointer call) {
  Selector *s = static_cast<Selector *>(client);
  auto *cb = static_cast<XmListCallbackStruct *>(call);
  const int i = cb->item_position - 1;
  if (i < 0 || i >= static_cast<int>(s->dirs.size())) return;
  ChangeDirectory(s, AbsoluteSelectorPath(s->dirs[i].name, s->dir));
}

void FileSelected(Widget, XtPointer client, XtPointer call) {
  Selector *s = static_cast<Selector *>(client);
  auto *cb = static_cast<XmListCallbackStruct *>(call);
  const int i = cb->item_position - 1;
  if (i < 0 || i >= static_cast<int>(s->shown.size())) return;
  SetTyped(s, s->shown[i].name);
  UpdatePreview(s, JoinPath(s->dir, s->shown[i].name));
}

void FileActivated(Widget w, XtPointer client, XtPointer call) {
  Selector *s = static_cast<Selector *>(client);
  FileSelected(w, client, call);
  Accept(s);
}

void PreviewToggled(Widget, XtPointer client, XtPointer) {
  Selector *s = static_cast<Selector *>(client);
  const std::string typed = TypedText(s);
  const std::string full = typed.empty() ? "" : AbsoluteSelectorPath(typed, s->dir);
  UpdatePreview(s, Exists(full) && !IsDirectory(full) ? full : "");
}

void TypeChosen(Widget, XtPointer client, XtPointer call) {
  Selector *s = static_cast<Selector *>(client);
  auto *cb = static_cast<MyComboBoxCallbackStruct *>(call);
  const int i = cb->position - 1;
  if (i < 0 || i >= static_cast<int>(s->types.size()) || i == s->type) return;
  s->type = i;
  FillFileList(s);
  // Saving: a name ending in another format's extension takes this one's.
  if (SaveMode(s)) {
    std::string typed = TypedText(s);
    const size_t slash = typed.find_last_of('/'), dot = typed.find_last_of('.');
    const int f = s->types[i].format;
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash) &&
        tslFormatFromExtension(typed.c_str()) >= 0 && !NameMatchesFormat(typed, f)) {
      const char *suffix = tslFormatGetDefaultSuffix(f);
      if (suffix) SetTyped(s, typed.substr(0, dot + 1) + suffix);
    }
  }
}

// Tab in the path field: completion against the directory it names.
void CompleteAction(Widget w, XEvent *, String *, Cardinal *) {
  Selector *s = SelectorOf(w);
  if (!s) return;
  int matches = 0;
  const std::string typed = TypedText(s);
  const std::string completed = CompleteSelectorPath(typed, s->dir, &matches);
  if (completed != typed) SetTyped(s, completed);
  if (matches != 1) XBell(XtDisplay(w), 0);
  // A name completed to a file is previewed as a click on it would.
  const std::string full = AbsoluteSelectorPath(completed, s->dir);
  if (matches == 1 && Exists(full) && !IsDirectory(full)) UpdatePreview(s, full);
}

XtActionsRec kActions[] = {{const_cast<char *>("FileSelectorComplete"), CompleteAction}};

// ---- building

Widget MakeList(Widget form, const char *name, unsigned char policy) {
  Arg args[4];
  Cardinal n = 0;
  XtSetArg(args[n], XmNselectionPolicy, policy), ++n;
  XtSetArg(args[n], XmNvisibleItemCount, 15), ++n;
  XtSetArg(args[n], XmNscrollBarDisplayPolicy, XmSTATIC), ++n;
  XtSetArg(args[n], XmNlistSizePolicy, XmCONSTANT), ++n;
  Widget list = XmCreateScrolledList(form, const_cast<char *>(name), args, n);
  XtManageChild(list);
  return list;
}

Selector *Build(Widget parent, const SelectorRequest &req) {
  static bool actions_added = false;
  if (!actions_added) {
    XtAppAddActions(XtWidgetToApplicationContext(parent), kActions, XtNumber(kActions));
    actions_added = true;
  }
  Selector *s = new Selector;
  s->mode = req.mode;
  s->multiple = req.multiple && !SaveMode(s) && !DirectoryMode(s);
  s->shell = XtVaCreatePopupShell("FileSelector", xmDialogShellWidgetClass, parent, XmNtitle, req.title.c_str(),
                                  XmNdeleteResponse, XmDO_NOTHING, XmNallowShellResize, True, nullptr);
  XtAddCallback(s->shell, XtNdestroyCallback, SelectorDestroyed, s);
  XmAddWMProtocolCallback(s->shell, DeleteWindowAtom(s->shell), CancelPressed, s);
  s->form = XtVaCreateWidget("form", xmFormWidgetClass, s->shell, XmNdialogStyle, XmDIALOG_FULL_APPLICATION_MODAL,
                             XmNautoUnmanage, False, XmNmarginWidth, 8, XmNmarginHeight, 8, XmNhorizontalSpacing,
                             6, XmNverticalSpacing, 6, nullptr);
  Widget form = s->form;

  // Menu bar: the ancestors of the current directory, and recent places.
  Widget bar = XmCreateMenuBar(form, const_cast<char *>("menuBar"), nullptr, 0);
  XtVaSetValues(bar, XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment,
                XmATTACH_FORM, nullptr);
  s->ancestor_menu = XmCreatePulldownMenu(bar, const_cast<char *>("ancestorMenu"), nullptr, 0);
  s->ancestor_cascade = XtVaCreateManagedWidget("ancestor", xmCascadeButtonWidgetClass, bar, XmNsubMenuId,
                                                s->ancestor_menu, nullptr);
  s->dir_menu = XmCreatePulldownMenu(bar, const_cast<char *>("dirMenu"), nullptr, 0);
  Widget dirs = XtVaCreateManagedWidget("directories", xmCascadeButtonWidgetClass, bar, XmNsubMenuId, s->dir_menu,
                                        XmNmnemonic, XK_D, nullptr);
  SetLabelText(dirs, "Directories");
  XtManageChild(bar);

  s->text = XtVaCreateManagedWidget("textField1", xmTextFieldWidgetClass, form, XmNmaxLength, kPathSize - 1,
                                    XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, bar, XmNleftAttachment,
                                    XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, nullptr);
  static XtTranslations complete = XtParseTranslationTable("~Shift ~Ctrl ~Meta ~Alt <Key>Tab: FileSelectorComplete()");
  XtOverrideTranslations(s->text, complete);

  // Bottom row: file type, then the two buttons.
  s->cancel = XtVaCreateManagedWidget("buttonCancel", xmPushButtonWidgetClass, form, XmNwidth, 90,
                                      XmNrightAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_FORM, nullptr);
  SetLabelText(s->cancel, "Cancel");
  s->ok = XtVaCreateManagedWidget("pushButton2", xmPushButtonWidgetClass, form, XmNwidth, 90, XmNrightAttachment,
                                  XmATTACH_WIDGET, XmNrightWidget, s->cancel, XmNbottomAttachment, XmATTACH_FORM,
                                  nullptr);
  SetLabelText(s->ok, SaveMode(s) ? "Save" : "Open");
  Widget type_label = XtVaCreateManagedWidget("label2", xmLabelWidgetClass, form, XmNleftAttachment, XmATTACH_FORM,
                                              XmNbottomAttachment, XmATTACH_FORM, XmNbottomOffset, 4, nullptr);
  SetLabelText(type_label, "FileType");
  s->combo = MyCreateComboBox(form, "comboBox", nullptr, 0);
  XtVaSetValues(s->combo, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, type_label, XmNrightAttachment,
                XmATTACH_WIDGET, XmNrightWidget, s->ok, XmNrightOffset, 24, XmNbottomAttachment, XmATTACH_FORM,
                MyNvisibleItemCount, 12, nullptr);
  XtManageChild(s->combo);
  XtAddCallback(s->combo, XmNcallback, TypeChosen, s);

  // Right column: preview and the picture's information, of a fixed width
  // so that long texts in the labels never move the lists.
  Widget column = XtVaCreateManagedWidget(
      "previewColumn", xmRowColumnWidgetClass, form, XmNorientation, XmVERTICAL, XmNpacking, XmPACK_TIGHT,
      XmNmarginWidth, 0, XmNmarginHeight, 0, XmNspacing, 4, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget,
      s->text, XmNrightAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget, s->ok,
      nullptr);
  s->toggle = XtVaCreateManagedWidget("togglePreview", xmToggleButtonWidgetClass, column, XmNset, True,
                                      XmNalignment, XmALIGNMENT_BEGINNING, nullptr);
  SetLabelText(s->toggle, "Preview");
  XtAddCallback(s->toggle, XmNvalueChangedCallback, PreviewToggled, s);
  s->preview = XtVaCreateManagedWidget("labelPreview", xmLabelWidgetClass, column, XmNrecomputeSize, False,
                                       XmNwidth, kColumnWidth, XmNheight, kPreviewHeight + 12, nullptr);
  SetLabelText(s->preview, "");
  Widget info = XtVaCreateManagedWidget("info", xmFrameWidgetClass, column, nullptr);
  Widget title = XtVaCreateManagedWidget("infoTitle", xmLabelWidgetClass, info, XmNchildType, XmFRAME_TITLE_CHILD,
                                         nullptr);
  SetLabelText(title, "Image information");
  Widget rows = XtVaCreateManagedWidget("infoRows", xmRowColumnWidgetClass, info, XmNorientation, XmVERTICAL,
                                        XmNspacing, 1, nullptr);
  for (int i = 0; i < 6; ++i) {
    s->labels[i] = XtVaCreateManagedWidget(kInfoNames[i], xmLabelWidgetClass, rows, XmNalignment,
                                           XmALIGNMENT_BEGINNING, XmNrecomputeSize, False, XmNwidth,
                                           kColumnWidth - 16, nullptr);
    SetLabelText(s->labels[i], kInfoEmpty[i]);
  }

  // The two lists between them.
  s->dir_list = MakeList(form, "scrolledList1", XmBROWSE_SELECT);
  XtVaSetValues(XtParent(s->dir_list), XmNwidth, 180, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, s->text,
                XmNleftAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget, s->ok,
                nullptr);
  XtAddCallback(s->dir_list, XmNdefaultActionCallback, DirectoryActivated, s);
  s->file_list = MakeList(form, "scrolledList2", s->multiple ? XmEXTENDED_SELECT : XmBROWSE_SELECT);
  XtVaSetValues(XtParent(s->file_list), XmNwidth, 430, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, s->text,
                XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, XtParent(s->dir_list), XmNrightAttachment,
                XmATTACH_WIDGET, XmNrightWidget, column, XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget,
                s->ok, nullptr);
  XtAddCallback(s->file_list, s->multiple ? XmNextendedSelectionCallback : XmNbrowseSelectionCallback, FileSelected,
                s);
  XtAddCallback(s->file_list, XmNdefaultActionCallback, FileActivated, s);
  if (DirectoryMode(s)) XtSetSensitive(XtParent(s->file_list), False);

  XtAddCallback(s->ok, XmNactivateCallback, OkPressed, s);
  XtAddCallback(s->cancel, XmNactivateCallback, CancelPressed, s);
  XtVaSetValues(form, XmNdefaultButton, s->ok, XmNcancelButton, s->cancel, XmNinitialFocus, s->text, nullptr);

  // The file types: the recognised formats for opening, the writable ones
  // for saving.
  s->types = SelectorFileTypes(SaveMode(s), &Settings());
  for (const FileTypeChoice &c : s->types) {
    XmString item = MakeString(c.label);
    MyComboBoxAddItem(s->combo, item, 0);
    XmStringFree(item);
  }
  s->type = SaveMode(s) ? FileTypeChoiceFor(s->types, req.default_format.c_str()) : 0;
  if (!s->types.empty()) MyComboBoxSelectPos(s->combo, s->type + 1);
  return s;
}

void FreeSelectorResources(Selector *s, Display *dpy) {
  if (s->pixmap) XFreePixmap(dpy, s->pixmap);
  if (s->canvas && !s->destroyed) XDestroyWindow(dpy, s->canvas);
  s->pixmap = 0;
  s->canvas = 0;
  if (s->display) ReleaseDisplayObject(s->display);
  if (s->colours) ReleaseColourData(dpy, s->colours);
  s->display = nullptr;
  s->colours = nullptr;
}

// ---- the format list

void FillFormatList(Widget list, bool by_id) { FillList(list, FormatListLines(by_id)); }

void SortToggled(Widget w, XtPointer client, XtPointer) {
  FillFormatList(static_cast<Widget>(client), XmToggleButtonGetState(w));
}

void FormatListDestroyed(Widget w, XtPointer, XtPointer) {
  if (g_format_list == w) g_format_list = nullptr;
}

void CloseFormatList(Widget, XtPointer client, XtPointer) {
  Widget shell = static_cast<Widget>(client);
  if (WidgetAlive(shell)) XtDestroyWidget(shell);
}

}  // namespace

std::string SelectorDirectory() { return g_dir.empty() ? StartDirectory() : g_dir; }

void SetSelectorDirectory(const std::string &dir) { g_dir = dir; }

bool RunFileSelector(Widget owner, const SelectorRequest &request, SelectorResult *out) {
  Widget parent = DialogParent(owner);
  if (!parent) return false;
  Selector *s = Build(parent, request);
  g_selectors.push_back(s);

  // Where to start: the rules for a path, the field getting a file's name.
  const std::string start = StartDirectory();
  SelectorPlace place = ResolveSelectorPlace(request.initial, SelectorDirectory(), g_dir, start);
  if (!ChangeDirectory(s, place.dir) && !ChangeDirectory(s, start)) ChangeDirectory(s, "/");
  if (!place.file.empty() && !DirectoryMode(s)) SetTyped(s, place.file);
  FillRecentMenu(s);

  Widget shell = s->shell;
  Display *dpy = XtDisplay(shell);
  XtAppContext app = XtWidgetToApplicationContext(shell);
  g_shown.push_back(shell);
  XtManageChild(s->form);  // pops the dialog shell up
  XmProcessTraversal(s->text, XmTRAVERSE_CURRENT);
  XmTextFieldSetInsertionPosition(s->text, XmTextFieldGetLastPosition(s->text));
  XFlush(XtDisplay(shell));
  if (g_hook && !s->done) g_hook(shell);
  while (!s->done && !XtAppGetExitFlag(app)) XtAppProcessEvent(app, XtIMAll);
  g_shown.erase(std::find(g_shown.rbegin(), g_shown.rend(), shell).base() - 1);
  g_selectors.erase(std::find(g_selectors.begin(), g_selectors.end(), s));

  const bool accepted = s->accepted && !s->destroyed;
  if (accepted) {
    if (out) *out = s->result;
    g_dir = s->dir;
    const std::string &first = s->result.paths.front();
    RememberDirectory(&Settings(), DirectoryMode(s) ? first : first.substr(0, std::max<size_t>(1, first.find_last_of('/'))));
  }
  FreeSelectorResources(s, dpy);
  if (s->destroyed) {
    delete s;  // the widgets went with their owner
  } else {
    s->returned = true;
    XtUnmanageChild(s->form);
    XtDestroyWidget(shell);  // frees s, now or when the current dispatch ends
  }
  return accepted;
}

bool ChooseOutputDirectory(Widget owner, const std::string &initial, std::string *dir) {
  SelectorRequest req;
  req.title = "Select Output Directory ...";
  req.mode = kSelectorDirectory;
  req.initial = initial;
  SelectorResult res;
  if (!RunFileSelector(owner, req, &res) || res.paths.empty()) return false;
  *dir = res.paths.front();
  return true;
}

Widget ShownFileSelector() { return g_shown.empty() ? nullptr : g_shown.back(); }

SelectorHook SetSelectorHook(SelectorHook hook) {
  SelectorHook old = g_hook;
  g_hook = hook;
  return old;
}

Widget ShowFormatList(Widget owner) {
  if (g_format_list) {
    XtManageChild(XtNameToWidget(g_format_list, "form"));
    if (XtIsRealized(g_format_list)) XRaiseWindow(XtDisplay(g_format_list), XtWindow(g_format_list));
    return g_format_list;
  }
  Widget parent = DialogParent(owner);
  if (!parent) return nullptr;
  Widget shell = XtVaCreatePopupShell("QuillFormat", xmDialogShellWidgetClass, parent, XmNtitle, "Available formats",
                                      XmNdeleteResponse, XmDESTROY, XmNallowShellResize, True, nullptr);
  g_format_list = shell;
  XtAddCallback(shell, XtNdestroyCallback, FormatListDestroyed, nullptr);
  Widget form = XtVaCreateWidget("form", xmFormWidgetClass, shell, XmNautoUnmanage, False, XmNmarginWidth, 10,
                                 XmNmarginHeight, 10, XmNverticalSpacing, 6, nullptr);
  Widget header = XtVaCreateManagedWidget("label", xmLabelWidgetClass, form, XmNalignment, XmALIGNMENT_BEGINNING,
                                          XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM,
                                          XmNrightAttachment, XmATTACH_FORM, nullptr);
  SetLabelText(header, FormatListHeader());
  Widget ok = XtVaCreateManagedWidget("buttonOK", xmPushButtonWidgetClass, form, XmNwidth, 90, XmNrightAttachment,
                                      XmATTACH_FORM, XmNbottomAttachment, XmATTACH_FORM, nullptr);
  SetLabelText(ok, "O.K.");
  Widget sort = XtVaCreateManagedWidget("toggleSortById", xmToggleButtonWidgetClass, form, XmNset, False,
                                        XmNleftAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_FORM, nullptr);
  SetLabelText(sort, "Sort by ID");
  Arg args[3];
  Cardinal n = 0;
  XtSetArg(args[n], XmNvisibleItemCount, 16), ++n;
  XtSetArg(args[n], XmNselectionPolicy, XmBROWSE_SELECT), ++n;
  XtSetArg(args[n], XmNscrollBarDisplayPolicy, XmSTATIC), ++n;
  Widget list = XmCreateScrolledList(form, const_cast<char *>("scrolledList"), args, n);
  XtVaSetValues(XtParent(list), XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, header, XmNleftAttachment,
                XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_WIDGET,
                XmNbottomWidget, ok, nullptr);
  XtManageChild(list);
  FillFormatList(list, false);
  XtAddCallback(sort, XmNvalueChangedCallback, SortToggled, list);
  XtAddCallback(ok, XmNactivateCallback, CloseFormatList, shell);
  XtVaSetValues(form, XmNdefaultButton, ok, XmNcancelButton, ok, XmNinitialFocus, ok, nullptr);
  XtManageChild(form);
  return shell;
}

Widget ShownFormatList() { return g_format_list; }

}  // namespace quilla
