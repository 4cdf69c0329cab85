// The save flow without the toolkit: capability match, conversion codes,
// parameters from the Save settings, and the steps of a save.
#include "files/save_model.h"

#include <cstdio>
#include <cstring>

#include "imgproc/convert.h"
#include "imgproc/geometry.h"

namespace quilla {

namespace {

uint16_t g_remembered = kNoConversion;  // the conversion reused by `remember` saves
int g_last_chosen = 0;                  // the dialog's last answer, for its preselection

const int kGreyLevels[7] = {4, 8, 16, 32, 64, 128, 256};
// A palette entry takes codes 18..24 when its maximum is above these
// (the last one, 256 colours, needs exactly 256).
const int kPaletteAbove[7] = {7, 15, 31, 63, 127, 215, 255};

bool IsTrueColor(const TslPicture &pic) { return TSL_IS_TRUECOLOR(pic.color_model); }

bool ColorsFit(const TslCapability &cap, const TslPicture &pic) {
  return cap.max_colors == -1 || pic.colors <= cap.max_colors;
}

bool CodeFits(const TslCapability &cap, int code) {
  if (code >= 1 && code <= 4) return cap.kind == TSL_BINARY;
  if (code == kTrueColorConversion) return cap.kind == TSL_KIND_TRUECOLOR;
  if (code >= 5 && code <= 17) {
    if (cap.kind != TSL_GREY) return false;
    if (cap.max_colors == -1) return true;
    if (code == 11) return cap.max_colors == 256;
    return cap.max_colors >= kGreyLevels[code <= 11 ? code - 5 : code - 12];
  }
  if (code >= 18 && code <= 31) {
    if (cap.kind != TSL_INDEXED) return false;
    if (cap.max_colors == -1) return true;
    const int i = code <= 24 ? code - 18 : code - 25;
    return i == 6 ? cap.max_colors == 256 : cap.max_colors > kPaletteAbove[i];
  }
  return false;
}

// The first code of `codes` the format stores, else 0.
template <size_t N>
int FirstStored(const TslFormatInfo &format, const int (&codes)[N]) {
  for (int code : codes)
    if (FormatStoresCode(format, code)) return code;
  return 0;
}

// A picture the save makes for itself, freed at scope end.
struct Temporary {
  TslPicture p{};
  Temporary() = default;
  Temporary(const Temporary &) = delete;
  Temporary &operator=(const Temporary &) = delete;
  ~Temporary() {
    if (p.pixels) tslFree(&p);
  }
};

int ValidResample(int method) {
  return method >= kResampleLinear && method <= kResampleLanczos ? method : kResampleLinear;
}

int SavePump(int what, int value, void *data) {
  static_cast<SaveUi *>(data)->Progress(what, value);
  return 0;  // a save cannot be stopped once the library writes
}

// Busy while resizing, converting and writing; released on every way out.
class BusyScope {
 public:
  explicit BusyScope(SaveUi &ui) : ui_(ui) {}
  ~BusyScope() {
    if (on_) ui_.Busy(false);
  }
  void on() {
    if (!on_) ui_.Busy(true);
    on_ = true;
  }

 private:
  SaveUi &ui_;
  bool on_ = false;
};

}  // namespace

// ---- conversion codes

int ConversionCode(int toggle, bool grey_dither, bool color_dither) {
  if (toggle >= 1 && toggle <= 4) return toggle;
  if (toggle >= 5 && toggle <= 11) return grey_dither && toggle != 11 ? toggle + 7 : toggle;
  if (toggle >= 12 && toggle <= 18) return color_dither ? toggle + 13 : toggle + 6;
  if (toggle == kToggleCount) return kTrueColorConversion;
  return 0;
}

bool ChoiceOfCode(int code, ConversionChoice *choice) {
  ConversionChoice c;
  if (code >= 1 && code <= 11) {
    c.toggle = code;
  } else if (code >= 12 && code <= 17) {
    c.toggle = code - 7, c.grey_dither = true;
  } else if (code >= 18 && code <= 24) {
    c.toggle = code - 6;
  } else if (code >= 25 && code <= 31) {
    c.toggle = code - 13, c.color_dither = true;
  } else if (code == kTrueColorConversion) {
    c.toggle = kToggleCount;
  } else {
    return false;
  }
  *choice = c;
  return true;
}

uint16_t RememberedConversion() { return g_remembered; }
void SetRememberedConversion(uint16_t code) { g_remembered = code; }

// ---- capability match

int AcceptingCapability(const TslFormatInfo &format, const TslPicture &pic) {
  for (int i = 0; i < TSL_MAX_CAPS && format.caps[i].kind != -1; ++i) {
    const TslCapability &cap = format.caps[i];
    bool ok = false;
    if (cap.kind == TSL_BINARY) ok = pic.color_model == TSL_BINARY;
    else if (cap.kind == TSL_GREY) ok = pic.color_model == TSL_GREY && ColorsFit(cap, pic);
    else if (cap.kind == TSL_INDEXED) ok = pic.color_model == TSL_INDEXED && ColorsFit(cap, pic);
    else if (cap.kind == TSL_KIND_TRUECOLOR) ok = IsTrueColor(pic);
    if (ok) return i;
  }
  return -1;
}

int CapabilityForCode(const TslFormatInfo &format, int code) {
  for (int i = 0; i < TSL_MAX_CAPS && format.caps[i].kind != -1; ++i)
    if (CodeFits(format.caps[i], code)) return i;
  return -1;
}

bool FormatStoresToggle(const TslFormatInfo &format, int toggle) {
  const int code = ConversionCode(toggle, false, false);
  return code != 0 && FormatStoresCode(format, code);
}

int PreselectedConversion(const TslFormatInfo &format, const TslPicture &pic, int last) {
  if (last >= kFirstConversion && last <= kLastConversion && FormatStoresCode(format, last)) return last;
  // Richest first; fewer than 256 colours or levels look better dithered.
  static const int kPalette[] = {24, 30, 29, 28, 27, 26, 25};
  static const int kGrey[] = {11, 17, 16, 15, 14, 13, 12};
  static const int kTrue[] = {kTrueColorConversion};
  static const int kBinary[] = {2};
  const bool colour = IsTrueColor(pic) || pic.color_model == TSL_INDEXED;
  int code = 0;
  if (colour) {
    if (!(code = FirstStored(format, kTrue)) && !(code = FirstStored(format, kPalette))) code = FirstStored(format, kGrey);
  } else {
    if (!(code = FirstStored(format, kGrey)) && !(code = FirstStored(format, kPalette))) code = FirstStored(format, kTrue);
  }
  return code ? code : FirstStored(format, kBinary);
}

FixedSize ResizeFor(const TslCapability &cap, const TslPicture &pic) {
  FixedSize fs;
  if (cap.width <= 0 || cap.height <= 0) return fs;
  fs.width = static_cast<uint32_t>(cap.width);
  fs.height = static_cast<uint32_t>(cap.height);
  fs.needed = pic.width != fs.width || pic.height != fs.height;
  return fs;
}

// ---- paths and texts

std::string WithDefaultExtension(const std::string &path, const char *suffix, bool add) {
  if (!add || !suffix || !*suffix || path.find('.') != std::string::npos) return path;
  return path + "." + suffix;
}

int ChooseSaveFormat(const char *path, const char *default_name) {
  const int by_extension = path ? tslFormatFromExtension(path) : -1;
  if (by_extension >= 0 && tslFormatIsWritable(by_extension)) return by_extension;
  const int by_name = default_name ? tslFormatGetIndex(default_name) : -1;
  return by_name >= 0 && tslFormatIsWritable(by_name) ? by_name : -1;
}

std::string SavingLabel(const char *path) { return "Saving " + FileNameOnly(path); }

std::string ResizingText(uint32_t width, uint32_t height) {
  char text[64];
  std::snprintf(text, sizeof text, "Resizing in %ux%u", width, height);
  return text;
}

std::string ConvertLabel(const char *path) { return "Convert \"" + FileNameOnly(path) + "\""; }

const char kConvertErrorText[] = "Error converting picture !!";

std::string SaveErrorText(const char *path, int code) { return LoadErrorText(path, code, nullptr); }

// ---- parameters

void FillSaveRequest(const SettingsRecord &settings, int format, const TslPicture &pic, bool app_switch,
                     bool unattended, SaveRequest *req) {
  const auto &save = settings.Save;
  TslParams &p = req->params;
  tslDefaultParams(&p);
  req->lut = Lut();
  p.format = format;
  p.flags = (app_switch ? TSL_FLAG_APP : 0u) | (unattended ? TSL_FLAG_UNATTENDED : 0u) | TSL_FLAG_SAVE;
  p.offset = save.Offset;
  p.channel_order = save.ChannelOrder;
  p.channel_type = save.ChannelType;
  p.quality = 100;
  p.compression = 0;
  p.hp49_header = save.Hp49Header;
  p.gif87a_header = save.Gif87aHeader;
  p.os2_header = save.Os2Header;
  p.optimize_huffman = save.OptimizeHuffmanTable;
  p.ppm_ascii = save.PpmAscii;
  p.dpx_10bits = save.DpxIn10Bits;
  p.progressive = 0;
  const char *name = format >= 0 ? tslFormatGetName(format) : "";
  ApplyFormatSettings(settings, name, pic.color_model == TSL_BINARY, req);
}

void ApplyFormatSettings(const SettingsRecord &settings, const char *name, bool binary, SaveRequest *req) {
  const auto &save = settings.Save;
  TslParams &p = req->params;
  auto is = [name](const char *n) { return name && std::strcmp(name, n) == 0; };
  if (is("cin") || is("dpx")) {
    if (save.UseLut && ReadLutFile(save.Lut8to10Name, 256, &req->lut)) UseLut(req->lut, &p);
  } else if (is("jpeg")) {
    p.quality = save.JpegQuality;
    p.progressive = save.JpegProgressive;
  } else if (is("png")) {
    p.compression = save.PngCompressionLevel;
    p.progressive = save.PngInterlaced;
    if (save.PngUseTransparentIndex) p.transparent_index = save.PngTransparentIndex;
  } else if (is("gif")) {
    p.progressive = save.GifInterlaced;
    if (save.GifUseTransparentIndex) p.transparent_index = save.GifTransparentIndex;
  } else if (is("iff")) {
    p.compression = save.IffCompress;
  } else if (is("pcx")) {
    p.compression = save.PcxCompress;
  } else if (is("tga")) {
    p.compression = save.TgaCompress;
  } else if (is("tiff")) {
    // The setting's list of bilevel methods skips one of the library's
    // (JPEG, which bilevel pictures cannot use).
    const int c = save.TiffBinaryCompress;
    p.compression = binary ? (c > 2 ? c + 1 : c) : save.TiffCompress;
  } else if (is("soft")) {
    p.compression = save.SoftCompress;
  } else if (is("sgi")) {
    p.compression = save.RgbCompress;
  } else if (is("bmp")) {
    p.compression = save.BmpCompress;
  }
}

// ---- the save flow

int SavePicture(SaveUi &ui, const SettingsRecord &settings, std::string *path, int format, const TslPicture &pic,
                const SaveOptions &options) {
  TslFormatInfo info;
  if (format < 0 || tslFormatGetInfo(format, &info) != TSL_OK) {
    info = TslFormatInfo();
    info.caps[0].kind = -1;
  }
  return SavePicture(ui, settings, path, format, info, pic, options);
}

int SavePicture(SaveUi &ui, const SettingsRecord &settings, std::string *path, int format, const TslFormatInfo &info,
                const TslPicture &pic, const SaveOptions &options) {
  uint16_t &memory = options.memory ? *options.memory : g_remembered;
  if (!options.remember) memory = kNoConversion;
  auto fail = [&](int code) {
    if (options.report_errors) ui.Message(SaveErrorText(path->c_str(), code));
    return code & 0xff;
  };
  if (format < 0 || !(info.flags & TSL_CAN_WRITE)) return fail(TSL_ERR_CANT_SAVE);
  if (!pic.pixels || pic.width == 0 || pic.height == 0) return fail(TSL_ERR_INTERNAL);
  *path = WithDefaultExtension(*path, info.suffix, settings.Save.AddExtensionIfNotExist);

  BusyScope busy(ui);
  Temporary resized, converted;
  const TslPicture *saved = &pic;
  // A resize to the size the format demands, with the note that says so.
  auto resize = [&](const TslCapability &cap, const TslPicture &from, int method, Temporary *into) {
    FixedSize fs = ResizeFor(cap, from);
    if (!fs.needed) return true;
    if (options.remember) ui.Message(ResizingText(fs.width, fs.height));
    busy.on();
    if (ResizePicture(&from, &into->p, fs.width, fs.height, method) != kOpDone) return false;
    saved = &into->p;
    return true;
  };
  auto conversion_failed = [&]() {
    if (options.report_errors) ui.Message(kConvertErrorText);
    return kSaveCancelled;
  };

  const int accepted = AcceptingCapability(info, pic);
  if (accepted >= 0) {
    // Nearest-neighbour keeps a palette or bilevel picture in its model, so
    // the format still takes it.
    const bool keep_model = pic.color_model == TSL_BINARY || pic.color_model == TSL_INDEXED;
    const int method = keep_model ? kResampleQuick : ValidResample(settings.Resize.Resample);
    if (!resize(info.caps[accepted], pic, method, &resized)) return conversion_failed();
  } else {
    int code;
    if (options.remember && memory >= kFirstConversion && memory <= kLastConversion) {
      code = memory;
    } else if (options.conversion >= kFirstConversion && options.conversion <= kLastConversion) {
      code = options.conversion;
    } else {
      code = ui.AskConversion(*path, info, pic, PreselectedConversion(info, pic, g_last_chosen));
      if (code >= kFirstConversion && code <= kLastConversion) g_last_chosen = code;
    }
    if (code < kFirstConversion || code > kLastConversion) return kSaveCancelled;
    memory = static_cast<uint16_t>(code);
    const int cap = CapabilityForCode(info, code);
    if (cap >= 0 && !resize(info.caps[cap], pic, ValidResample(settings.Resize.Resample), &resized))
      return conversion_failed();
    busy.on();
    if (ConvertByCode(saved, &converted.p, code) != kOpDone) return conversion_failed();
    saved = &converted.p;
  }

  SaveRequest req;
  FillSaveRequest(settings, format, *saved, options.app_switch, options.unattended, &req);
  // The transparent index goes into a copy of the record: the caller's
  // picture keeps its own.
  TslPicture work = *saved;
  if (req.params.transparent_index >= 0) work.transparent_index = static_cast<int16_t>(req.params.transparent_index);
  if (options.progress) {
    ui.OpenProgress(SavingLabel(path->c_str()));
    req.params.progress = SavePump;
    req.params.progress_data = &ui;
  }
  const int code = tslSave(path->c_str(), &work, &req.params);
  if (options.progress) ui.CloseProgress();
  if (code != TSL_OK) return fail(code);
  return 0;
}

}  // namespace quilla
