// What the view's picture operations decide without a display: where each
// catalogue row goes in the Image, Filter and Effects menus, the parameter
// panel of each parameter kind with the catalogue's bounds and defaults, the
// values remembered between runs, the process list's texts, the crop
// selection drawn with the mouse, the border found by Auto Crop and the
// words that explain a refused operation.  Toolkit-free.
#ifndef QUILLA_VIEW_OP_MODEL_H
#define QUILLA_VIEW_OP_MODEL_H

#include <cstdint>
#include <string>
#include <vector>

#include "imgproc/catalogue.h"
#include "imgproc/op.h"

namespace quilla {

// ---- menus --------------------------------------------------------------------

// The three menus of the operations, in the order of the menu bar.
enum OpTopMenu { kTopImage = 0, kTopFilter = 1, kTopEffects = 2 };
extern const char *const kOpTopMenuNames[3];   // "Image", "Filter", "Effects"

// The submenus.  MenuEffects is the Effects menu's own pull-down.
enum OpSubmenu {
  kSubNone = -1,  // the entry sits in its top menu directly
  kSubColors = 0, kSubGrey, kSubBinary, kSubAdjust, kSubFlip, kSubRotate, kSubBlur, kSubEnhance, kSubEdge,
  kSubNoise, kSubEffects,
};
constexpr int kOpSubmenuCount = 11;
struct OpSubmenuDesc {
  const char *name;   // widget name: "MenuBinary"
  const char *label;  // cascade label: "Binary"
  int top;            // OpTopMenu
};
extern const OpSubmenuDesc kOpSubmenus[kOpSubmenuCount];

// Where a catalogue row goes: its top menu and submenu (kSubNone: directly
// in the top menu).  False for an index outside the catalogue.
bool OpMenuPlace(int row, int *top, int *submenu);

// One entry of an operation menu.  Rows whose kind is a short list of
// choices (colour count, grey levels, binary method) get one entry per
// choice, which runs at once; other rows with parameters open their dialog.
struct OpMenuItem {
  int row = -1;
  int choice = -1;    // index of the choice in the panel's first group, -1 none
  std::string name;   // widget name
  std::string label;  // "Brightness...", "16 Colors", "Floyd Steindberg"
  std::string word;   // view command word, see OpParseCommandWord
};
// The entries of a submenu, or of a top menu's direct entries (submenu =
// kSubNone), in catalogue order.
std::vector<OpMenuItem> OpMenuItems(int top, int submenu);

// Command words of the operation entries: "op<option>[/<sub-option>][=<choice>]",
// for example "op-negate", "op-noise/gaussian", "op-colors=3".
std::string OpCommandWord(int row, int choice = -1);
// The row and choice of a command word; false when the word is no such word.
bool OpParseCommandWord(const char *word, int *row, int *choice);

// ---- parameter panels -----------------------------------------------------------

// A numeric control: a slider with its text field, or a text field alone.
struct PanelNumber {
  std::string name;   // widget name of the text field ("textValue0", "textX", ...)
  std::string label;
  int min = 0, max = 0;
  int decimals = 0;   // 2: the value is in hundredths, shown "%d.%02d"
};
struct PanelToggle {
  std::string name;   // widget name ("toggleLevel16", "toggleSizePerc", ...)
  std::string label;
  bool sensitive = true;
};
// A group of toggles of which exactly one is set (or an option menu).
struct PanelGroup {
  std::string name;   // frame or option menu name
  std::string title;  // shown above the group ("" none)
  std::vector<PanelToggle> toggles;
  bool option_menu = false;
};

// The panel of a row's parameter kind.  Every value of the panel is an
// integer: slider positions, the chosen toggle of each group, 0/1 for the
// independent toggles, the text fields' numbers.
struct OpPanel {
  int row = -1, kind = 0;
  std::vector<PanelNumber> sliders;
  std::vector<PanelGroup> groups;
  std::vector<PanelToggle> checks;
  std::vector<PanelNumber> fields;
  bool size_panel = false;  // kinds 7 and 9: fields are width and height,
                            // in pixels or percent after group 0
};
struct PanelValues {
  std::vector<int> sliders, groups, checks, fields;
  bool operator==(const PanelValues &o) const {
    return sliders == o.sliders && groups == o.groups && checks == o.checks && fields == o.fields;
  }
};

OpPanel OpPanelFor(int row);
// The panel's values for a parameter block, and the block for the values.
// Values out of their control's range are clamped; a code no toggle stands
// for selects the row's default.
PanelValues OpPanelValues(int row, const OpParams &params);
void OpPanelApply(int row, const PanelValues &values, OpParams *params);
// True when the row's dialog has something to ask.
bool OpHasParameters(int row);

// The text of a value with `decimals` (2: hundredths, "1.05", "-0.50"), and
// the value of a text; false when the text is no number or is out of range.
std::string PanelNumberText(int value, int decimals);
bool PanelNumberParse(const char *text, const PanelNumber &number, int *value);

// Size panels.  With the ratio kept, the side not typed follows the one
// typed: in percent it is the same number, in pixels it keeps the picture's
// proportions (pic_w x pic_h; 0 when the size is unknown: no change, -1).
int SizeOtherSide(int typed, bool typed_width, bool percent, uint32_t pic_w, uint32_t pic_h);
// A size field's number when the unit changes, for a picture side of
// `side` pixels (0: unknown, then percent starts at 100 and pixels keep the
// number).  Never below 1.
int SizeInOtherUnit(int value, bool to_percent, uint32_t side);

// ---- remembered values ---------------------------------------------------------------

constexpr int kLastValueCount = 25;
constexpr int32_t kNoLastValue = -255;
// The values of the row's dialog the last time it was answered: the
// catalogue's defaults, with every value kept in `last` (the settings'
// Process.LastValue_0..24, -255 for none) put in and made valid.
OpParams OpRecallParams(int row, const int32_t last[kLastValueCount]);
// Keeps the row's values in `last`.  Rows that share a meaning share a slot
// (the strength of the four strength filters, the size of the six size
// filters, the dithering of grey and colour reduction).
void OpStoreParams(int row, const OpParams &params, int32_t last[kLastValueCount]);
// The slot the dithering choice of the colour and grey menus is kept in.
constexpr int kDitherSlot = 2;

// A new process-list entry: the row's defaults; resize and canvas entries
// start at 100% with the ratio kept.
OpProcess OpNewProcess(int row);
// The line of a process entry in the list: its name and its values as the
// converter will read them ("Brightness  -brightness 20").
std::string OpProcessLabel(const OpProcess &process);

// ---- crop selection ------------------------------------------------------------------

// The picture rectangle between two points of the window, for a picture
// drawn at (org_x, org_y) at `zoom` percent: each point goes to the nearest
// pixel boundary; the result is clipped to the picture (width or height 0
// when nothing is left).
OpRect SelectionRect(int wx0, int wy0, int wx1, int wy1, int org_x, int org_y, double zoom, uint32_t pic_w,
                     uint32_t pic_h);
// Where a picture rectangle lies in the window: x, y, width, height of the
// outline's box.
OpRect SelectionOnWindow(const OpRect &sel, int org_x, int org_y, double zoom);
// The information label's text while a selection is drawn.
std::string SelectionText(const OpRect &sel);

// ---- auto crop -------------------------------------------------------------------------

// The smallest rectangle holding every pixel whose colour differs from
// `back` (0xRRGGBB) by more than `tolerance` in some channel.  False when
// every pixel is background (nothing would be left).
bool AutoCropRect(const TslPicture &pic, uint32_t back, int tolerance, OpRect *out);

// ---- messages --------------------------------------------------------------------------

// What to tell the user about an operation's status (0: nothing).
std::string OpStatusText(int status);

}  // namespace quilla

#endif
