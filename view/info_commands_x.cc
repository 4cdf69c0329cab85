// The view commands options, properties (file information), describe (the
// file's line in its directory's description file), changeDpi, pageNumber
// and thanks, each with its small dialog.  The dialogs are children of the
// view's shell, so they go away with the view.
#include <X11/IntrinsicP.h>
#include <X11/CoreP.h>
#include <Xm/DialogS.h>
#include <Xm/Form.h>
#include <Xm/Label.h>
#include <Xm/Protocols.h>
#include <Xm/PushB.h>
#include <Xm/Separator.h>
#include <Xm/TextF.h>
#include <Xm/Xm.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "browser/browser_x.h"
#include "browser/descriptions.h"
#include "core/app_x.h"
#include "core/options_x.h"
#include "files/load_x.h"
#include "view/properties_model.h"
#include "view/view_hooks_x.h"
#include "view/view_x.h"

namespace quilla {

namespace {

XmString Str(const std::string &s) { return XmStringCreateLocalized(const_cast<char *>(s.c_str())); }

// A small dialog: a form "content" for its own widgets, a message line for
// wrong input, "O.K." and (when asked) "Cancel".  O.K. runs `accept`, which
// returns false to keep the dialog open.
struct Small {
  Widget shell = nullptr, form = nullptr, content = nullptr, message = nullptr, ok = nullptr;
  std::vector<Widget> fields;    // text fields, first one focused
  std::vector<Widget> captions;  // made as wide as the widest so the fields line up
  std::function<bool(Small *)> accept;
};

void SmallDestroyed(Widget, XtPointer data, XtPointer) { delete static_cast<Small *>(data); }

void SmallOk(Widget, XtPointer data, XtPointer) {
  Small *s = static_cast<Small *>(data);
  if (s->shell->core.being_destroyed) return;
  if (!s->accept || s->accept(s)) XtDestroyWidget(s->shell);
}

void SmallCancel(Widget, XtPointer data, XtPointer) {
  Small *s = static_cast<Small *>(data);
  if (!s->shell->core.being_destroyed) XtDestroyWidget(s->shell);
}

// The dialog `name` of the owner's shell when one is open (brought forward).
bool RaiseExisting(Widget owner, const char *name) {
  Widget parent = ShellOf(owner);
  for (Cardinal i = 0; parent && i < parent->core.num_popups; ++i) {
    Widget p = parent->core.popup_list[i];
    if (std::strcmp(XtName(p), name) == 0 && !p->core.being_destroyed) {
      if (XtWindow(p)) XRaiseWindow(XtDisplay(p), XtWindow(p));
      return true;
    }
  }
  return false;
}

Small *BuildSmall(Widget owner, const char *name, const char *title, bool cancel_button) {
  Small *s = new Small;
  s->shell = XtVaCreatePopupShell(name, xmDialogShellWidgetClass, ShellOf(owner), XmNtitle, title,
                                  XmNdeleteResponse, XmDESTROY, XmNallowShellResize, True, nullptr);
  XtAddCallback(s->shell, XmNdestroyCallback, SmallDestroyed, s);
  s->form = XtVaCreateWidget("form", xmFormWidgetClass, s->shell, XmNautoUnmanage, False, XmNmarginWidth, 12,
                             XmNmarginHeight, 12, nullptr);
  s->content = XtVaCreateWidget("content", xmFormWidgetClass, s->form, XmNtopAttachment, XmATTACH_FORM,
                                XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, nullptr);
  XmString empty = Str("");
  s->message = XtVaCreateManagedWidget("labelMessage", xmLabelWidgetClass, s->form, XmNlabelString, empty,
                                       XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, s->content, XmNtopOffset, 4,
                                       XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, nullptr);
  XmStringFree(empty);
  Widget sep = XtVaCreateManagedWidget("separator", xmSeparatorWidgetClass, s->form, XmNtopAttachment,
                                       XmATTACH_WIDGET, XmNtopWidget, s->message, XmNtopOffset, 4, XmNleftAttachment,
                                       XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, nullptr);
  s->ok = BottomRowButton(s->form, sep, "buttonOk", "O.K.", cancel_button ? 10 : 35, cancel_button ? 40 : 65);
  XtAddCallback(s->ok, XmNactivateCallback, SmallOk, s);
  Widget cancel = s->ok;
  if (cancel_button) {
    cancel = BottomRowButton(s->form, sep, "buttonCancel", "Cancel", 60, 90);
    XtAddCallback(cancel, XmNactivateCallback, SmallCancel, s);
  }
  XtVaSetValues(s->form, XmNdefaultButton, s->ok, XmNcancelButton, cancel, nullptr);
  return s;
}

// Manages the dialog (a dialog shell pops up with its child) and gives the
// first text field the keyboard, its text selected so typing replaces it.
void ShowSmall(Small *s) {
  Dimension widest = 0;
  for (Widget c : s->captions) {
    Dimension w = 0;
    XtVaGetValues(c, XmNwidth, &w, nullptr);
    widest = std::max(widest, w);
  }
  for (Widget c : s->captions) XtVaSetValues(c, XmNwidth, widest, XmNrecomputeSize, False, nullptr);
  XtManageChild(s->content);
  if (!s->fields.empty()) XtVaSetValues(s->form, XmNinitialFocus, s->fields[0], nullptr);
  SetWindowIcon(s->shell);
  XtManageChild(s->form);
  if (!s->fields.empty()) {
    Widget f = s->fields[0];
    XmProcessTraversal(f, XmTRAVERSE_CURRENT);
    XmTextPosition end = XmTextFieldGetLastPosition(f);
    XmTextFieldSetSelection(f, 0, end, XtLastTimestampProcessed(XtDisplay(f)));
    XmTextFieldSetInsertionPosition(f, end);
  }
}

void SetMessage(Small *s, const std::string &text) {
  XmString m = Str(text);
  XtVaSetValues(s->message, XmNlabelString, m, nullptr);
  XmStringFree(m);
  XBell(XtDisplay(s->shell), 0);
}

// A label in the content form under `above` (nullptr: at the top).
Widget ContentLabel(Small *s, const char *name, const std::string &text, Widget above, Widget left = nullptr) {
  XmString l = Str(text);
  Widget w = XtVaCreateManagedWidget(name, xmLabelWidgetClass, s->content, XmNlabelString, l, XmNalignment,
                                     XmALIGNMENT_BEGINNING, XmNtopAttachment, above ? XmATTACH_WIDGET : XmATTACH_FORM,
                                     XmNtopWidget, above, XmNtopOffset, above ? 4 : 0, nullptr);
  XmStringFree(l);
  if (left)
    XtVaSetValues(w, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, left, XmNleftOffset, 8, XmNrightAttachment,
                  XmATTACH_FORM, nullptr);
  else
    XtVaSetValues(w, XmNleftAttachment, XmATTACH_FORM, nullptr);
  return w;
}

// A caption and a text field on one line of the content form.
Widget ContentField(Small *s, const char *name, const std::string &caption, const std::string &value, short columns,
                    Widget above) {
  Widget label = ContentLabel(s, "label", caption, above);
  Widget f = XtVaCreateManagedWidget(name, xmTextFieldWidgetClass, s->content, XmNcolumns, columns, XmNvalue,
                                     value.c_str(), XmNtopAttachment, above ? XmATTACH_WIDGET : XmATTACH_FORM,
                                     XmNtopWidget, above, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, label,
                                     XmNleftOffset, 8, XmNrightAttachment, XmATTACH_FORM, nullptr);
  XtVaSetValues(label, XmNtopAttachment, XmATTACH_OPPOSITE_WIDGET, XmNtopWidget, f, XmNbottomAttachment,
                XmATTACH_OPPOSITE_WIDGET, XmNbottomWidget, f, nullptr);
  s->fields.push_back(f);
  s->captions.push_back(label);
  return f;
}

// A whole number within [lo, hi] typed in a field (blanks around it allowed).
bool FieldNumber(Widget f, long lo, long hi, long *out) {
  const std::string t = FieldText(f);
  errno = 0;
  char *end = nullptr;
  long v = std::strtol(t.c_str(), &end, 10);
  while (end && (*end == ' ' || *end == '\t')) ++end;
  if (errno || end == t.c_str() || *end || v < lo || v > hi) return false;
  *out = v;
  return true;
}

void Bell(Widget w) { XBell(XtDisplay(w), 0); }

void SplitPath(const std::string &path, std::string *dir, std::string *name) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    *dir = ".";
    *name = path;
  } else {
    *dir = slash == 0 ? "/" : path.substr(0, slash);
    *name = path.substr(slash + 1);
  }
}

// ---- the dialogs

void PropertiesOf(Widget owner, const std::string &path, int format, int page) {
  if (RaiseExisting(owner, "QuillProperties")) return;
  struct stat sb;
  if (stat(path.c_str(), &sb) != 0) {
    ShowMessage(owner, "Can't read file \n<" + path + ">");
    return;
  }
  TslFileInfo info;
  std::memset(&info, 0, sizeof info);
  const int code = tslFileInformation(path.c_str(), format, page, &info);
  if (code != 0) {
    ShowLoadError(owner, path.c_str(), code, info.message);
    tslFileInformationFree(&info);
    return;
  }
  const std::vector<PropertyLine> lines = PropertyLines(path, sb.st_size, info);
  tslFileInformationFree(&info);
  Small *s = BuildSmall(owner, "QuillProperties", "Properties", false);
  Widget above = nullptr;
  for (const PropertyLine &l : lines) {
    Widget caption = ContentLabel(s, ("caption" + l.name).c_str(), l.caption, above);
    s->captions.push_back(caption);
    above = ContentLabel(s, ("label" + l.name).c_str(), l.value, above, caption);
  }
  ShowSmall(s);
}

void Properties(Widget view, Widget owner) {
  ViewState st;
  if (!view || !GetViewState(view, &st) || st.path.empty()) return Bell(owner);
  PropertiesOf(owner, st.path, st.format, st.page);
}

void DescribeOf(Widget owner, const std::string &path, const std::function<void()> &saved) {
  if (RaiseExisting(owner, "quillDesc")) return;
  std::string dir, name;
  SplitPath(path, &dir, &name);
  const DescriptionTable table = LoadDescriptions(dir);
  const std::string *text = FindDescription(table, name);
  Small *s = BuildSmall(owner, "quillDesc", "Description", true);
  Widget label = ContentLabel(s, "labelFile", "Description of \"" + name + "\":", nullptr);
  Widget field = XtVaCreateManagedWidget("textDesc", xmTextFieldWidgetClass, s->content, XmNcolumns, 50, XmNvalue,
                                         text ? text->c_str() : "", XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget,
                                         label, XmNtopOffset, 6, XmNleftAttachment, XmATTACH_FORM,
                                         XmNrightAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_FORM,
                                         nullptr);
  s->fields.push_back(field);
  s->accept = [dir, name, field, saved](Small *d) {
    std::string t = FieldText(field);
    // One line per file: line ends typed or pasted in would start a new one.
    for (char &c : t)
      if (c == '\n' || c == '\r') c = ' ';
    DescriptionTable now = LoadDescriptions(dir);
    const std::string *old = FindDescription(now, name);
    if (t.empty() && !old) return true;
    SetDescription(&now, name, t.empty() ? std::nullopt : std::optional<std::string>(t));
    if (!SaveDescriptions(now, dir, true)) {
      SetMessage(d, "Can't save the description in " + DescriptionPath(dir));
      return false;
    }
    if (saved) saved();
    return true;
  };
  ShowSmall(s);
}

void Describe(Widget view, Widget owner) {
  ViewState st;
  if (!view || !GetViewState(view, &st) || st.path.empty()) return Bell(owner);
  DescribeOf(owner, st.path, nullptr);
}

void ChangeDpi(Widget view, Widget owner) {
  const TslPicture *pic = view ? ViewCurrentPicture(view) : nullptr;
  if (!pic) return Bell(owner);
  if (RaiseExisting(owner, "QuillDpi")) return;
  Small *s = BuildSmall(owner, "QuillDpi", "Change DPI", true);
  Widget x = ContentField(s, "textDpiX", "Horizontal resolution (dpi):", std::to_string(pic->attr_pair[0]), 8,
                          nullptr);
  Widget y = ContentField(s, "textDpiY", "Vertical resolution (dpi):", std::to_string(pic->attr_pair[1]), 8, x);
  s->accept = [view, x, y](Small *d) {
    long dx, dy;
    if (!FieldNumber(x, 0, 65535, &dx) || !FieldNumber(y, 0, 65535, &dy)) {
      SetMessage(d, "The resolution is a whole number from 0 (unknown) to 65535.");
      return false;
    }
    const TslPicture *now = ViewCurrentPicture(view);
    if (now && now->attr_pair[0] == static_cast<uint32_t>(dx) && now->attr_pair[1] == static_cast<uint32_t>(dy))
      return true;  // nothing changes: the picture stays unmodified
    TslPicture *p = ViewBeginChange(view);
    if (!p) return true;
    p->attr_pair[0] = static_cast<uint32_t>(dx);
    p->attr_pair[1] = static_cast<uint32_t>(dy);
    ViewEndChange(view, false);
    return true;
  };
  ShowSmall(s);
}

void PageNumber(Widget view, Widget owner) {
  ViewState st;
  if (!view || !GetViewState(view, &st) || st.pages < 2) return Bell(owner);
  if (RaiseExisting(owner, "QuillPage")) return;
  Small *s = BuildSmall(owner, "QuillPage", "Go To Page", true);
  const int pages = st.pages;
  Widget f = ContentField(s, "textPage", "Page (1 - " + std::to_string(pages) + "):", std::to_string(st.page + 1), 6,
                          nullptr);
  s->accept = [view, f, pages](Small *d) {
    long n;
    if (!FieldNumber(f, 1, pages, &n)) {
      SetMessage(d, "Give a page number from 1 to " + std::to_string(pages) + ".");
      return false;
    }
    XtDestroyWidget(d->shell);  // before the page loads: its questions come on top
    ViewGoToPage(view, static_cast<int>(n - 1));
    return false;
  };
  ShowSmall(s);
}

void Thanks(Widget owner) {
  if (RaiseExisting(owner, "QuillThanks")) return;
  Small *s = BuildSmall(owner, "QuillThanks", "Thanks", false);
  static const char *const kLines[] = {
      "Thanks to everyone who reported bugs, tested pictures,",
      "suggested improvements and sent patches.",
      "",
      "Quilla is built on the work of the Independent JPEG Group (libjpeg),",
      "the PNG Development Group (libpng), the giflib, libtiff, libwebp",
      "and OpenJPEG projects, and Jean-loup Gailly and Mark Adler (zlib).",
  };
  Widget above = nullptr;
  int i = 0;
  for (const char *line : kLines) above = ContentLabel(s, ("label" + std::to_string(++i)).c_str(), line, above);
  ShowSmall(s);
}

}  // namespace

void ShowFileProperties(Widget owner, const std::string &path) { PropertiesOf(owner, path, -1, 0); }

void DescribeFile(Widget owner, const std::string &path, const std::function<void()> &saved) {
  DescribeOf(owner, path, saved);
}

bool RunInfoCommand(Widget view, Widget owner, const char *word) {
  const std::string w = word;
  if (w == "options") {
    OpenOptions(owner);
  } else if (w == "properties") {
    Properties(view, owner);
  } else if (w == "describe") {
    Describe(view, owner);
  } else if (w == "changeDpi") {
    ChangeDpi(view, owner);
  } else if (w == "pageNumber") {
    PageNumber(view, owner);
  } else if (w == "browseFiles") {
    OpenBrowser(App().shell, nullptr);
  } else if (w == "thanks") {
    Thanks(owner);
  } else {
    return false;
  }
  return true;
}

}  // namespace quilla
