// The lossless JPEG dialog and its two commands.
#include "files/jpegtrans_x.h"

#include <Xm/Form.h>
#include <Xm/Frame.h>
#include <Xm/Label.h>
#include <Xm/RowColumn.h>
#include <Xm/Separator.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>

#include <cstring>

#include "browser/browser_x.h"
#include "core/app_x.h"
#include "files/jpegtrans.h"
#include "files/load_x.h"
#include "files/modal_x.h"
#include "tessel.h"
#include "view/view_x.h"

namespace quilla {

const char kJpegTransformCommand[] = "jpegTransform";

namespace {

// The toggles in the order they are shown, with their codes.
struct Toggle {
  const char *name, *label;
  int code;
};
const Toggle kToggles[5] = {
    {"toggleButton3", "Rotate 90 degrees (clockwise)", kJpegRotate90},
    {"toggleButton4", "Rotate 180 degrees (clockwise)", kJpegRotate180},
    {"toggleButton5", "Rotate 270 degrees (clockwise)", kJpegRotate270},
    {"toggleButton1", "Vertical Flip", kJpegFlipV},
    {"toggleButton2", "Horizontal Flip", kJpegFlipH},
};

struct JpegDialog {
  ModalDialog modal;
  Widget box = nullptr;
  int code = 0;
};

// Apply: the code of the first set toggle of toggleButton1..toggleButton5,
// read before the dialog goes.
void Apply(Widget, XtPointer client, XtPointer) {
  auto *d = static_cast<JpegDialog *>(client);
  if (d->modal.done) return;
  for (int i = 1; i <= 5 && d->code == 0; ++i) {
    const std::string name = "toggleButton" + std::to_string(i);
    Widget t = XtNameToWidget(d->box, name.c_str());
    if (!t || !XmToggleButtonGetState(t)) continue;
    for (const Toggle &k : kToggles)
      if (name == k.name) d->code = k.code;
  }
  d->modal.ok = d->modal.done = true;
}

bool IsJpeg(const std::string &path) {
  TslFileInfo info{};
  const bool jpeg = tslFileInformation(path.c_str(), -1, 0, &info) == TSL_OK && info.format >= 0 &&
                    std::strcmp(tslFormatGetName(info.format), "jpeg") == 0;
  tslFileInformationFree(&info);
  return jpeg;
}

}  // namespace

int AskJpegTransform(Widget owner) {
  JpegDialog d;
  if (!BuildModalDialog(&d.modal, owner, "QuillJpegTrans", "JPEG Lossless Transformations...", "form")) return 0;
  Widget form = d.modal.form;
  XmString s = XmStringCreateLtoR(const_cast<char *>("Be carefull: Transformations overwrite \noriginal files!"),
                                  const_cast<char *>(XmFONTLIST_DEFAULT_TAG));
  Widget warning = XtVaCreateManagedWidget("labelWarning", xmLabelWidgetClass, form, XmNlabelString, s,
                                           XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM,
                                           XmNrightAttachment, XmATTACH_FORM, nullptr);
  XmStringFree(s);
  Widget frame = XtVaCreateManagedWidget("frame", xmFrameWidgetClass, form, XmNtopAttachment, XmATTACH_WIDGET,
                                         XmNtopWidget, warning, XmNleftAttachment, XmATTACH_FORM,
                                         XmNrightAttachment, XmATTACH_FORM, nullptr);
  Widget title = XtVaCreateManagedWidget("Tranformations", xmLabelWidgetClass, frame, XmNchildType,
                                         XmFRAME_TITLE_CHILD, nullptr);
  SetLabelText(title, "Tranformations");
  d.box = XmCreateRadioBox(frame, const_cast<char *>("radioBox"), nullptr, 0);
  Widget first = nullptr;
  for (const Toggle &k : kToggles) {
    XmString l = XmStringCreateLocalized(const_cast<char *>(k.label));
    Widget t = XtVaCreateManagedWidget(k.name, xmToggleButtonWidgetClass, d.box, XmNlabelString, l, nullptr);
    XmStringFree(l);
    if (!first) first = t;
  }
  XmToggleButtonSetState(first, True, True);  // Return turns a quarter right
  XtManageChild(d.box);
  Widget sep = XtVaCreateManagedWidget("separator", xmSeparatorWidgetClass, form, XmNtopAttachment, XmATTACH_WIDGET,
                                       XmNtopWidget, frame, XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment,
                                       XmATTACH_FORM, nullptr);
  Widget apply = ModalButton(form, "buttonApply", "Apply");
  Widget cancel = ModalButton(form, "buttonCancel", "Cancel");
  for (Widget b : {apply, cancel})
    XtVaSetValues(b, XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, sep, XmNbottomAttachment, XmATTACH_FORM,
                  XmNleftAttachment, XmATTACH_POSITION, XmNleftPosition, b == apply ? 10 : 60, XmNrightAttachment,
                  XmATTACH_POSITION, XmNrightPosition, b == apply ? 40 : 90, nullptr);
  XtAddCallback(apply, XmNactivateCallback, Apply, &d);
  XtAddCallback(cancel, XmNactivateCallback, ModalDialogCancel, &d.modal);
  XtVaSetValues(form, XmNdefaultButton, apply, XmNcancelButton, cancel, nullptr);
  return RunModalDialog(&d.modal, first) ? d.code : 0;
}

bool RunViewJpegCommand(Widget view, Widget owner, const char *word) {
  if (std::strcmp(word, kJpegTransformCommand) != 0) return false;
  ViewState state;
  if (!view || !GetViewState(view, &state) || state.path.empty() || state.format < 0 ||
      std::strcmp(tslFormatGetName(state.format), "jpeg") != 0) {
    Bell();
    return true;
  }
  const std::string path = state.path;
  const int code = AskJpegTransform(owner);
  if (code == kJpegNone) return true;
  if (!TransformJpegFile(path, code)) {
    Bell();
    return true;
  }
  if (GetViewState(view, &state) && state.path == path) RunViewCommand(view, "reopenFiles");
  return true;
}

void TransformJpegFiles(Widget owner, const std::string &dir, const std::vector<std::string> &names) {
  if (names.empty()) return Bell();
  const int code = AskJpegTransform(owner);
  if (code == kJpegNone) return;
  const std::string base = dir.empty() || dir.back() == '/' ? dir : dir + "/";
  SetBusy(owner, true);
  for (const std::string &name : names)
    if (IsJpeg(base + name)) TransformJpegFile(base + name, code);
  SetBusy(owner, false);
  RunBrowserCommand("refresh");
}

}  // namespace quilla
