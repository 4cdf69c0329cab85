// The toolkit-free half of the central save: the default extension, the
// match of a picture against a format's capability list, the conversion
// codes of the conversion dialog, the library parameters built from the Save
// settings, and the whole save flow with its questions, messages and
// progress going through an interface that the X side (or a test) provides.
#ifndef QUILLA_FILES_SAVE_MODEL_H
#define QUILLA_FILES_SAVE_MODEL_H

#include <cstdint>
#include <string>

#include "core/settings.h"
#include "files/load_model.h"
#include "tessel.h"

namespace quilla {

// ---- conversion codes
//   1..4   black and white: "Pattern", "Floyd Steinberg", "HalfTone 45", "HalfTone 90"
//   5..11  grey 4, 8, 16, 32, 64, 128, 256 levels
//   12..17 grey 4..128 levels, dithered
//   18..24 palette of 8, 16, 32, 64, 128, 216, 256 colours
//   25..31 the same palettes, dithered
//   32     true colour
constexpr int kFirstConversion = 1, kLastConversion = 32;
constexpr int kTrueColorConversion = 32;
// The answer of a save that gave up before calling the library.
constexpr int kSaveCancelled = 255;
// The remembered conversion when none was chosen.
constexpr uint16_t kNoConversion = 65535;

// The conversion dialog's toggles: 1..4 black and white, 5..11 grey levels,
// 12..18 colours, 19 true colour.
constexpr int kToggleCount = 19;

// The code of toggle 1..19 with the two "Dithered" switches; 0 for a toggle
// outside 1..19.  Grey 256 (toggle 11) has no dithered form.
int ConversionCode(int toggle, bool grey_dither, bool color_dither);

// The toggle and switches that give `code` (the inverse of ConversionCode).
// False for a code outside 1..32.
struct ConversionChoice {
  int toggle = 0;
  bool grey_dither = false, color_dither = false;
};
bool ChoiceOfCode(int code, ConversionChoice *choice);

// The application-wide remembered conversion (kNoConversion: none).
uint16_t RememberedConversion();
void SetRememberedConversion(uint16_t code);

// ---- capability match

// The index of the first capability entry that accepts the picture as it
// is: kind 1 a black-and-white picture, kind 2 a grey one and kind 4 a
// palette one when its colour count is within the entry's maximum (-1: no
// limit), kind 1008 any true-colour picture.  -1 when none does.
int AcceptingCapability(const TslFormatInfo &format, const TslPicture &pic);

// The index of the first capability entry that a picture converted with
// `code` fits: grey codes need a kind 2 maximum of at least their level
// count (256 levels exactly 256), palette codes a kind 4 maximum above 7,
// 15, 31, 63, 127, 215 or exactly 256, 1..4 kind 1, 32 kind 1008.  A
// maximum of -1 (no limit) holds anything.  -1 when none does.
int CapabilityForCode(const TslFormatInfo &format, int code);

// Whether a conversion with `code` gives a picture the format stores.
inline bool FormatStoresCode(const TslFormatInfo &format, int code) {
  return CapabilityForCode(format, code) >= 0;
}
// Whether toggle 1..19 of the conversion dialog leads to a picture the
// format stores (with or without the "Dithered" switch, which keeps the
// kind and the count).
bool FormatStoresToggle(const TslFormatInfo &format, int toggle);

// The choice preselected in the conversion dialog: `last` (the conversion
// chosen last time) when the format stores it, else the richest one the format
// takes: for a colour picture true colour, then the largest palette, grey
// levels, black and white; for a grey or black-and-white picture the grey
// levels first.  Palettes and grey levels below 256 are dithered, black and
// white uses "Floyd Steinberg".  0 when the format stores nothing.
int PreselectedConversion(const TslFormatInfo &format, const TslPicture &pic, int last);

// The fixed size an entry demands, when the picture's differs from it.
struct FixedSize {
  bool needed = false;
  uint32_t width = 0, height = 0;
};
FixedSize ResizeFor(const TslCapability &cap, const TslPicture &pic);

// ---- paths and texts

// `path` with "." and `suffix` appended when `add` is set and the path holds
// no "." anywhere (a dot in a directory name counts).
std::string WithDefaultExtension(const std::string &path, const char *suffix, bool add);

// The format to save `path` in: the writable format its extension names,
// else the format called `default_name`, else -1.
int ChooseSaveFormat(const char *path, const char *default_name);

// "Saving <file name>", the progress dialog's label.
std::string SavingLabel(const char *path);
// "Resizing in <w>x<h>".
std::string ResizingText(uint32_t width, uint32_t height);
// "Convert \"<file name>\"", the conversion dialog's label.
std::string ConvertLabel(const char *path);
// The message shown when the conversion fails.
extern const char kConvertErrorText[];
// The user's text for a save's result code (no library message).
std::string SaveErrorText(const char *path, int code);

// ---- parameters

// Everything tslSave needs for one save; owns the LUT the parameters point
// to, hence not copyable.
struct SaveRequest {
  TslParams params;
  Lut lut;
  SaveRequest() = default;
  SaveRequest(const SaveRequest &) = delete;
  SaveRequest &operator=(const SaveRequest &) = delete;
};

// Fills *req from the library's defaults and the Save settings for writing
// `pic` in `format`: flags (1 for `app_switch`, 0xC0 when `unattended`, 4
// always), offset, channel order and type, quality 100 and compression 0,
// the header switches, no interlace, then the settings of the format's own
// row (by its short name, see ApplyFormatSettings).
void FillSaveRequest(const SettingsRecord &settings, int format, const TslPicture &pic, bool app_switch,
                     bool unattended, SaveRequest *req);
// The per-format part of FillSaveRequest for the format called `name`;
// `binary` tells whether the saved picture is black and white (TIFF has a
// compression setting of its own for those).
void ApplyFormatSettings(const SettingsRecord &settings, const char *name, bool binary, SaveRequest *req);

// ---- the save flow

// What the save asks of its surroundings.  The defaults do nothing, so a
// caller overrides only what it shows.
class SaveUi {
 public:
  virtual ~SaveUi() = default;
  // Asks which conversion to use; a code outside 1..32 cancels the save.
  virtual int AskConversion(const std::string &path, const TslFormatInfo &format, const TslPicture &pic,
                            int preselected) = 0;
  virtual void Message(const std::string &text) = 0;
  virtual void Busy(bool /*on*/) {}
  virtual void OpenProgress(const std::string & /*label*/) {}
  // The library's progress (what 0: value is the percentage done).
  virtual void Progress(int /*what*/, int /*value*/) {}
  virtual void CloseProgress() {}
};

struct SaveOptions {
  bool unattended = false;     // batch work: library flags 0xC0
  bool remember = false;       // reuse the remembered conversion instead of asking
  bool progress = true;        // show the progress dialog
  bool report_errors = true;   // show failures as messages
  bool app_switch = false;     // library flag 1 (verbose diagnostics)
  int conversion = 0;          // 1..32: the conversion to use instead of asking
  // Where `remember` keeps the conversion: a run of saves (a batch) may hold
  // its own, so that saves made meanwhile elsewhere do not disturb it;
  // nullptr is the application-wide one (RememberedConversion).
  uint16_t *memory = nullptr;
};

// Saves `pic` as *path in library format `format`, following the Save
// settings: may append the default extension to *path, resizes to a size
// the format demands, converts (asking through `ui` unless a conversion is
// remembered or given) when the format cannot store the picture as it is.
// The caller's picture is never written to.  Returns 0, the library's code
// (low 8 bits) or kSaveCancelled when the conversion was refused or failed.
int SavePicture(SaveUi &ui, const SettingsRecord &settings, std::string *path, int format, const TslPicture &pic,
                const SaveOptions &options);
// The same with the format's description given (as tslFormatGetInfo fills
// it for `format`), whose capability list decides the conversion.
int SavePicture(SaveUi &ui, const SettingsRecord &settings, std::string *path, int format, const TslFormatInfo &info,
                const TslPicture &pic, const SaveOptions &options);

}  // namespace quilla

#endif
