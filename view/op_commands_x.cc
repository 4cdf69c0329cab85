// The view commands crop, resize and the picture operations of the Image,
// Filter and Effects menus, Auto Crop, the Advanced Operations dialog and
// the user-defined filters.
//
// An operation runs on a copy of the view's picture; only when it succeeds
// does the copy replace the picture (ViewBeginChange keeps the undo copy and
// stops an animation, ViewEndChange marks the picture modified and redraws).
// A refused operation therefore leaves the picture and the undo copy as they
// were.
#include <Xm/Xm.h>

#include <cstring>
#include <functional>
#include <map>

#include "core/settings.h"
#include "files/load_x.h"
#include "imgproc/operations.h"
#include "view/op_dialogs_x.h"
#include "view/op_model.h"
#include "view/view_hooks_x.h"
#include "view/view_x.h"

namespace quilla {

namespace {

// The values each dialog was last answered with in this session (rows whose
// values have no place in the settings keep them only here).
std::map<int, OpParams> g_session;

void Bell(Widget w) {
  if (w) XBell(XtDisplay(w), 0);
}

// Runs `fn` on a copy of the view's picture and puts the copy in its place
// when fn returns 0; otherwise tells the user why nothing changed.
void ChangePicture(Widget view, Widget owner, const std::function<int(TslPicture *)> &fn) {
  const TslPicture *cur = ViewCurrentPicture(view);
  if (!cur) return Bell(owner);
  TslPicture copy{};
  int status = kOpNoMemory;
  SetBusy(owner, true);
  if (tslCopyPicture(&copy, cur) == 0) status = fn(&copy);
  SetBusy(owner, false);
  if (status != kOpDone) {
    tslFree(&copy);
    ShowMessage(owner, OpStatusText(status));
    return;
  }
  TslPicture *pic = ViewBeginChange(view);
  if (!pic) {
    tslFree(&copy);
    return Bell(owner);
  }
  const bool geometry = pic->width != copy.width || pic->height != copy.height;
  tslFree(pic);
  *pic = copy;
  ViewEndChange(view, geometry);
}

int FindRow(const char *option) { return OpCatalogueFind(option, nullptr); }

// The values a row's dialog starts from.
OpParams StartValues(Widget view, int row, const TslPicture &pic) {
  auto it = g_session.find(row);
  OpParams p = it != g_session.end() ? it->second : OpRecallParams(row, Settings().Process.LastValue);
  const int kind = OpCatalogue()[row].kind;
  if (kind == kKindResize || kind == kKindCanvas) {
    // The picture's own size, in pixels, each time.
    p.width = static_cast<int32_t>(pic.width);
    p.height = static_cast<int32_t>(pic.height);
    p.width_percent = p.height_percent = 0;
    p.keep_ratio = kind == kKindResize ? Settings().Resize.KeepRatio : Settings().Canvas.KeepRatio;
    if (kind == kKindResize) {
      const int r = Settings().Resize.Resample;
      p.resample = static_cast<int16_t>(r >= kResampleLinear && r <= kResampleLanczos ? r : kResampleLinear);
    }
  } else if (kind == kKindCrop) {
    OpRect sel;
    if (!ViewGetSelection(view, &sel)) sel = OpRect{0, 0, static_cast<int32_t>(pic.width), static_cast<int32_t>(pic.height)};
    p.i[0] = sel.x, p.i[1] = sel.y, p.i[2] = sel.width, p.i[3] = sel.height;
  } else if (kind == kKindDpi && it == g_session.end()) {
    if (pic.attr_pair[0] && pic.attr_pair[1]) {
      p.i[0] = static_cast<int32_t>(pic.attr_pair[0]);
      p.i[1] = static_cast<int32_t>(pic.attr_pair[1]);
    }
  }
  return p;
}

void Remember(int row, const OpParams &p) {
  g_session[row] = p;
  OpStoreParams(row, p, Settings().Process.LastValue);
  const int kind = OpCatalogue()[row].kind;
  if (kind == kKindResize) {
    Settings().Resize.KeepRatio = p.keep_ratio != 0;
    Settings().Resize.Resample = static_cast<uint16_t>(p.resample);
  } else if (kind == kKindCanvas) {
    Settings().Canvas.KeepRatio = p.keep_ratio != 0;
  }
}

// One catalogue row from a menu: a choice runs at once, a row with
// parameters asks for them first.
void RunRow(Widget view, Widget owner, int row, int choice, const OpRect *selection = nullptr) {
  const TslPicture *cur = ViewCurrentPicture(view);
  if (!cur) return Bell(owner);
  OpParams params = StartValues(view, row, *cur);
  if (selection) {
    params.i[0] = selection->x, params.i[1] = selection->y;
    params.i[2] = selection->width, params.i[3] = selection->height;
  } else if (choice >= 0) {
    PanelValues v = OpPanelValues(row, params);
    if (!v.groups.empty()) v.groups[0] = choice;
    if (!v.checks.empty()) v.checks[0] = Settings().Process.LastValue[kDitherSlot] == 1 ? 1 : 0;
    OpPanelApply(row, v, &params);
  } else if (OpHasParameters(row)) {
    const uint32_t w = cur->width, h = cur->height;
    if (!AskOperationParameters(owner, row, &params, w, h)) return;
  }
  if (!selection) Remember(row, params);
  const OpFunc op = OpCatalogue()[row].operation;
  // A change takes the selection away (ViewEndChange); a refused one keeps it.
  ChangePicture(view, owner, [&](TslPicture *pic) { return op(pic, nullptr, nullptr, params); });
}

void AutoCrop(Widget view, Widget owner) {
  const TslPicture *cur = ViewCurrentPicture(view);
  if (!cur) return Bell(owner);
  OpRect r;
  SetBusy(owner, true);
  const bool found = AutoCropRect(*cur, static_cast<uint32_t>(Settings().AutoCrop.BackColor) & 0xFFFFFFu,
                                  Settings().AutoCrop.Tolerance, &r);
  SetBusy(owner, false);
  if (!found) {
    ShowMessage(owner, "The whole picture is of the background colour:\nnothing would be left.");
    return;
  }
  if (r.x == 0 && r.y == 0 && static_cast<uint32_t>(r.width) == cur->width &&
      static_cast<uint32_t>(r.height) == cur->height)
    return Bell(owner);  // no border to take away
  RunRow(view, owner, FindRow("-crop"), -1, &r);
}

}  // namespace

bool RunOperationCommand(Widget view, Widget owner, const char *word) {
  if (!word) return false;
  int row, choice;
  const bool op_word = OpParseCommandWord(word, &row, &choice);
  const std::string w = word;
  if (!op_word && w != "crop" && w != "resize" && w != "autoCrop" && w != "advancedOperations" &&
      w != "userFilter")
    return false;
  if (!view) {
    // The start window: only the process list can be edited there.
    if (w == "advancedOperations") EditProcessList(owner, &AdvancedProcessList());
    else Bell(owner);
    return true;
  }
  if (op_word) {
    RunRow(view, owner, row, choice);
  } else if (w == "crop") {
    OpRect sel;
    if (ViewGetSelection(view, &sel))
      RunRow(view, owner, FindRow("-crop"), -1, &sel);
    else
      RunRow(view, owner, FindRow("-crop"), -1);  // asks for the rectangle
  } else if (w == "resize") {
    RunRow(view, owner, FindRow("-resize"), -1);
  } else if (w == "autoCrop") {
    AutoCrop(view, owner);
  } else if (w == "advancedOperations") {
    EditProcessList(owner, &AdvancedProcessList(), [view, owner](const OpProcessList &list) {
      ChangePicture(view, owner, [&](TslPicture *pic) { return OpRunProcessList(pic, list); });
    });
  } else if (w == "userFilter") {
    EditUserFilters(owner, [view, owner](const UserFilter &filter) {
      ChangePicture(view, owner, [&](TslPicture *pic) { return ApplyUserFilter(pic, nullptr, nullptr, filter); });
    });
  }
  return true;
}

}  // namespace quilla
