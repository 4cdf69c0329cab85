// The rows of the Options dialog and the text form of each value.
#include "core/options_model.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <algorithm>

#include "tessel.h"

namespace quilla {

namespace {

const char *const kPageNames[] = {"PStart", "PView",         "PBrowser", "PLoad", "PSave",    "PSlide",   "PHtml",
                                  "PContactSheet", "PCache", "PFile", "PConvert", "PProcess", "PFileTypes"};
const char *const kPageTitles[] = {"Start", "View",          "Browser", "Load", "Save",    "Slide Show", "Web Page",
                                   "Contact Sheet", "Cache", "Files", "Convert", "Process", "File Types"};
static_assert(sizeof kPageNames / sizeof kPageNames[0] == static_cast<size_t>(OptionPage::kCount), "page names");
static_assert(sizeof kPageTitles / sizeof kPageTitles[0] == static_cast<size_t>(OptionPage::kCount), "page titles");

// The record the key table is bound to when only the keys' kinds are wanted.
SettingsRecord &Scratch() {
  static SettingsRecord *r = new SettingsRecord();
  return *r;
}

// The key table's row of `key` bound to `record`.
const KeyRef *KeyOf(SettingsRecord &record, const std::string &key, std::vector<KeyRef> *holder) {
  *holder = KeyTable(record);
  static std::map<std::string, size_t> index;
  if (index.empty())
    for (size_t i = 0; i < holder->size(); ++i) index[KeyName((*holder)[i])] = i;
  auto it = index.find(key);
  return it == index.end() ? nullptr : &(*holder)[it->second];
}

void StorageBounds(KeyType type, double *lo, double *hi) {
  switch (type) {
    case KeyType::kInt8: *lo = 0, *hi = 255; break;
    case KeyType::kInt16:
    case KeyType::kBoolReadIntWrite: *lo = 0, *hi = 65535; break;
    default: *lo = INT32_MIN, *hi = INT32_MAX; break;
  }
}

class Builder {
 public:
  explicit Builder(std::vector<OptionEntry> *rows) : rows_(rows), keys_(KeyTable(Scratch())) {}

  // A row whose kind follows the key's type: toggle, number within the
  // type's range, text of the field's size, real for the gamma.
  OptionEntry &add(OptionPage page, const std::string &key, const std::string &label) {
    const KeyRef *k = find(key);
    OptionEntry e;
    e.page = page;
    e.key = key;
    e.label = label;
    if (!k) {  // a name the settings do not have: caught by the tests
      rows_->push_back(e);
      return rows_->back();
    }
    switch (k->type) {
      case KeyType::kBool: e.kind = OptionKind::kToggle; break;
      case KeyType::kString:
        e.kind = OptionKind::kText;
        e.max_length = k->size - 1;
        break;
      case KeyType::kGamma:
        e.kind = OptionKind::kReal;
        e.lo = 0, e.hi = 10;
        break;
      default:
        e.kind = OptionKind::kNumber;
        double lo, hi;
        StorageBounds(k->type, &lo, &hi);
        e.lo = static_cast<int64_t>(lo), e.hi = static_cast<int64_t>(hi);
        break;
    }
    std::string base = "Option" + std::string(k->section) + k->key;
    e.widget = e.kind == OptionKind::kToggle ? base : base + "Text";
    rows_->push_back(e);
    return rows_->back();
  }
  OptionEntry &num(OptionPage page, const std::string &key, const std::string &label, int64_t lo, int64_t hi) {
    OptionEntry &e = add(page, key, label);
    e.lo = lo, e.hi = hi;
    return e;
  }
  OptionEntry &choice(OptionPage page, const std::string &key, const std::string &label,
                      std::vector<std::pair<int, const char *>> items) {
    OptionEntry &e = add(page, key, label);
    e.kind = OptionKind::kChoice;
    e.widget = "Option" + Plain(key) + "Menu";
    for (auto &it : items) e.choices.push_back({it.first, it.second, e.widget + "_" + std::to_string(it.first)});
    return e;
  }
  OptionEntry &toggle(OptionPage page, const std::string &key, const std::string &label) {
    OptionEntry &e = add(page, key, label);
    e.kind = OptionKind::kToggle;
    e.widget = "Option" + Plain(key);
    return e;
  }
  OptionEntry &color(OptionPage page, const std::string &key, const std::string &label) {
    OptionEntry &e = add(page, key, label);
    e.kind = OptionKind::kColor;
    return e;
  }
  OptionEntry &format(OptionPage page, const std::string &key, const std::string &label) {
    OptionEntry &e = add(page, key, label);
    e.kind = OptionKind::kFormat;
    e.widget = "Option" + Plain(key) + "Menu";
    return e;
  }

 private:
  static std::string Plain(const std::string &key) {
    std::string s = key;
    s.erase(std::remove(s.begin(), s.end(), '.'), s.end());
    return s;
  }
  const KeyRef *find(const std::string &key) const {
    for (const KeyRef &k : keys_)
      if (KeyName(k) == key) return &k;
    return nullptr;
  }
  std::vector<OptionEntry> *rows_;
  std::vector<KeyRef> keys_;
};

const std::vector<std::pair<int, const char *>> kChannelOrders = {{0, "RGB"}, {1, "BGR"}, {2, "RBG"},
                                                                  {3, "GRB"}, {4, "GBR"}, {5, "BRG"}};
const std::vector<std::pair<int, const char *>> kChannelTypes = {{0, "Interleaved"}, {1, "Planar"}, {2, "Grey"}};

std::vector<OptionEntry> BuildTable() {
  std::vector<OptionEntry> t;
  Builder b(&t);
  using P = OptionPage;
  constexpr int64_t kMax = INT32_MAX;

  // Start
  b.add(P::kStart, "Start.SavePosition", "Save window position on quit");
  b.add(P::kStart, "Start.LaunchBrowserAtStartup", "Launch the browser at startup");
  b.add(P::kStart, "Start.OpenAll", "Open one view per file");
  b.add(P::kStart, "Start.ShowToolTipsInToolbar", "Show tool tips in the tool bar");
  b.add(P::kStart, "Start.UseMostRecentlyUsedFiles", "Use the most recently used files");
  b.add(P::kStart, "Start.PurgeMostRecentlyUsed", "Purge the recent files on quit");
  b.add(P::kStart, "Start.X", "Window X");
  b.add(P::kStart, "Start.Y", "Window Y");
  b.add(P::kStart, "Start.Width", "Window width");
  b.add(P::kStart, "Start.Height", "Window height");
  b.add(P::kStart, "Start.ToolbarViewConfig", "View tool bar buttons (mask)");
  b.add(P::kStart, "Start.ToolbarBrowserConfig", "Browser tool bar buttons (mask)");
  b.add(P::kStart, "Start.ToolbarIndex", "Tool bar index");

  // View
  b.choice(P::kView, "View.Fit", "Fit mode",
           {{0, "No Fit"}, {1, "Fit Window To Image"}, {2, "Fit Large Image To Window"}, {3, "Fit Image To Window"},
            {4, "Fit Image To Width"}, {5, "Fit Image To Height"}, {6, "Fit Large Image To Desktop"},
            {7, "Fit Image To Desktop"}});
  b.add(P::kView, "View.UsePopupInView", "Pop-up menu instead of the menu bar");
  b.add(P::kView, "View.OpenHexaViewIfNotPicture", "Hex dump of files that are no picture");
  b.add(P::kView, "View.StatusBar", "Status bar");
  b.add(P::kView, "View.ToolBar", "Tool bar");
  b.add(P::kView, "View.UseUndo", "Use undo");
  b.add(P::kView, "View.ShowFilename", "Show the file name in the title");
  b.add(P::kView, "View.MouseNavigation", "Mouse navigation");
  b.add(P::kView, "View.HideMouse", "Hide the mouse pointer");
  b.add(P::kView, "View.DisableAnimation", "Disable animation");
  b.add(P::kView, "View.EnableBmpAnimation", "Enable BMP animation");
  b.add(P::kView, "View.OnlyOneView", "Only one view opened");
  b.add(P::kView, "View.DisplayColorInformation", "Display color information");
  b.add(P::kView, "View.KeepZoomFactor", "Keep the zoom factor");
  b.add(P::kView, "View.UseDPIRatio", "Use the resolution ratio");
  b.add(P::kView, "View.UseGamma", "Use gamma");
  b.add(P::kView, "View.Gamma", "Gamma");
  b.add(P::kView, "View.FileListSort", "File list sort");

  // Browser
  b.choice(P::kBrowser, "Browser.Viewas", "View as",
           {{0, "Icons"}, {1, "Small Icons"}, {2, "List"}, {3, "Columns"}});
  b.choice(P::kBrowser, "Browser.StartupIn", "Start in",
           {{1, "Default Directory"}, {2, "Startup Directory"}});
  b.add(P::kBrowser, "Browser.StartupDirectory", "Startup directory");
  b.add(P::kBrowser, "Browser.ShowDirList", "Show the directory tree");
  b.add(P::kBrowser, "Browser.ShowStatusBar", "Show the status bar");
  b.add(P::kBrowser, "Browser.ShowToolBar", "Show the tool bar");
  b.add(P::kBrowser, "Browser.ShowToolTips", "Show tool tips");
  b.add(P::kBrowser, "Browser.ShowPreview", "Show the preview");
  b.add(P::kBrowser, "Browser.FitPreviewWindow", "Fit the preview to its window");
  b.add(P::kBrowser, "Browser.HidePreviewScrollBar", "Hide the preview scroll bars");
  b.add(P::kBrowser, "Browser.ShowContent", "Show the content of other files");
  b.add(P::kBrowser, "Browser.ShowInAscii", "Show the content in ASCII");
  b.add(P::kBrowser, "Browser.ShowHiddenFile", "Show hidden files");
  b.add(P::kBrowser, "Browser.RecognizeByExt", "Recognize files by extension");
  b.num(P::kBrowser, "Browser.IconWidth", "Thumbnail width", 16, 1024);
  b.num(P::kBrowser, "Browser.IconHeight", "Thumbnail height", 16, 1024);
  b.add(P::kBrowser, "Browser.ArrangeBy", "Arrange by");
  b.add(P::kBrowser, "Browser.ViewColumn", "Columns shown (mask)");
  b.add(P::kBrowser, "Browser.ItemsThumbnailMode", "Thumbnail mode");
  b.add(P::kBrowser, "Browser.FitWindowOption", "Fit window option");
  b.add(P::kBrowser, "Browser.Layout", "Layout");
  b.add(P::kBrowser, "Browser.X", "Window X");
  b.add(P::kBrowser, "Browser.Y", "Window Y");
  b.num(P::kBrowser, "Browser.Width", "Window width", 0, kMax);
  b.num(P::kBrowser, "Browser.Height", "Window height", 0, kMax);
  b.num(P::kBrowser, "Browser.DirListWidth", "Directory tree width", 0, kMax);
  b.num(P::kBrowser, "Browser.DirListHeight", "Directory tree height", 0, kMax);
  b.num(P::kBrowser, "Browser.IconListWidth", "Icon list width", 0, kMax);
  b.num(P::kBrowser, "Browser.IconListHeight", "Icon list height", 0, kMax);

  // Load
  b.add(P::kLoad, "Load.IgnoreError", "Ignore errors (show what could be read)");
  b.add(P::kLoad, "Load.Preview", "Load the preview of the file when it has one");
  b.add(P::kLoad, "Load.Lut10to8Name", "LUT file (10 to 8 bits)");
  b.choice(P::kLoad, "Load.PcdBase", "Photo CD resolution",
           {{0, "Base/16 (192x128)"}, {1, "Base/4 (384x256)"}, {2, "Base (768x512)"}, {3, "4Base (1536x1024)"},
            {4, "16Base (3072x2048)"}});
  b.add(P::kLoad, "Load.GrobBpp", "GROB bits per pixel less one");
  b.num(P::kLoad, "Load.RawWidth", "Raw width", 1, kMax);
  b.num(P::kLoad, "Load.RawHeight", "Raw height", 1, kMax);
  b.num(P::kLoad, "Load.RawOffset", "Raw offset", 0, kMax);
  b.choice(P::kLoad, "Load.ChannelOrder", "Raw channel order", kChannelOrders);
  b.choice(P::kLoad, "Load.ChannelType", "Raw channel type", kChannelTypes);
  b.num(P::kLoad, "Load.YuvWidth", "YUV width", 1, kMax);
  b.num(P::kLoad, "Load.YuvHeight", "YUV height", 1, kMax);
  b.num(P::kLoad, "Load.YuvOffset", "YUV offset", 0, kMax);
  b.num(P::kLoad, "Load.PostscriptDpi", "PostScript resolution (dpi)", 1, 65535);
  b.choice(P::kLoad, "Load.PostscriptPageSize", "PostScript page size",
           {{0, "From the file"}, {1, "11x17"}, {2, "A0"}, {3, "A1"}, {4, "A2"}, {5, "A3"}, {6, "A4"}, {7, "A5"},
            {8, "B4"}, {9, "B5"}, {10, "Ledger"}});
  b.add(P::kLoad, "Load.UseLut", "Use a LUT for 10-bit pictures");

  // Save: the general switches, then each format's write options.
  b.num(P::kSave, "Save.JpegQuality", "JPEG quality", 1, 100).widget = "OptionJpegText";
  b.add(P::kSave, "Save.JpegProgressive", "JPEG progressive");
  b.add(P::kSave, "Save.OptimizeHuffmanTable", "JPEG optimized Huffman tables");
  b.num(P::kSave, "Save.PngCompressionLevel", "PNG compression level", 0, 9);
  b.add(P::kSave, "Save.PngInterlaced", "PNG interlaced");
  b.add(P::kSave, "Save.PngUseTransparentIndex", "PNG transparent index");
  b.add(P::kSave, "Save.PngTransparentIndex", "PNG transparent color index");
  b.add(P::kSave, "Save.GifInterlaced", "GIF interlaced");
  b.add(P::kSave, "Save.Gif87aHeader", "GIF 87a header");
  b.add(P::kSave, "Save.GifUseTransparentIndex", "GIF transparent index");
  b.add(P::kSave, "Save.GifTransparentIndex", "GIF transparent color index");
  b.choice(P::kSave, "Save.TiffCompress", "TIFF compression",
           {{0, "None"}, {1, "LZW"}, {2, "PackBits"}, {3, "JPEG"}, {6, "Deflate"}});
  b.choice(P::kSave, "Save.TiffBinaryCompress", "TIFF black and white compression",
           {{0, "None"}, {1, "LZW"}, {2, "PackBits"}, {3, "CCITT Group 3"}, {4, "CCITT Group 4"}, {5, "Deflate"}});
  b.add(P::kSave, "Save.BmpCompress", "BMP compressed (RLE)");
  b.add(P::kSave, "Save.Os2Header", "BMP OS/2 header");
  b.add(P::kSave, "Save.PcxCompress", "PCX compressed");
  b.add(P::kSave, "Save.TgaCompress", "TGA compressed");
  b.add(P::kSave, "Save.IffCompress", "IFF compressed");
  b.add(P::kSave, "Save.RgbCompress", "SGI compressed");
  b.add(P::kSave, "Save.SoftCompress", "Softimage compressed");
  b.add(P::kSave, "Save.PpmAscii", "PBM/PGM/PPM in ASCII");
  b.add(P::kSave, "Save.Hp49Header", "GROB HP49 header");
  b.add(P::kSave, "Save.DpxIn10Bits", "DPX in 10 bits");
  b.add(P::kSave, "Save.UseLut", "Use a LUT for Cineon/DPX");
  b.add(P::kSave, "Save.Lut8to10Name", "LUT file (8 to 10 bits)");
  b.num(P::kSave, "Save.Offset", "Raw offset", 0, kMax);
  b.choice(P::kSave, "Save.ChannelOrder", "Raw channel order", kChannelOrders);
  b.choice(P::kSave, "Save.ChannelType", "Raw channel type", kChannelTypes);
  b.add(P::kSave, "Save.AddExtensionIfNotExist", "Add the extension when there is none");
  b.format(P::kSave, "Save.DefaultFormat", "Default format");

  // Slide show
  b.num(P::kSlide, "Slide.Timer", "Timer (seconds)", 1, 65535);
  b.add(P::kSlide, "Slide.UseTimer", "Use the timer");
  b.add(P::kSlide, "Slide.Loop", "Loop");
  b.add(P::kSlide, "Slide.Full", "Full screen");
  b.add(P::kSlide, "Slide.Center", "Center");
  b.add(P::kSlide, "Slide.Resize", "Resize");
  b.add(P::kSlide, "Slide.Random", "Use random order");
  b.add(P::kSlide, "Slide.NoTitle", "No title");
  b.add(P::kSlide, "Slide.NoError", "No error messages");
  b.add(P::kSlide, "Slide.HideMouse", "Hide the mouse pointer");
  b.add(P::kSlide, "Slide.ShowFilename", "Show the file name");
  b.add(P::kSlide, "Slide.FitToWindow", "Fit to window");
  b.add(P::kSlide, "Slide.SortOrder", "Sort order");

  // Web page
  b.num(P::kHtml, "Html.TableColumns", "Number of columns", 1, 1000);
  b.num(P::kHtml, "Html.TableRows", "Number of rows", 1, 1000);
  b.num(P::kHtml, "Html.TableBorder", "Border size", 0, 1000);
  b.num(P::kHtml, "Html.ThumbWidth", "Thumbnail width", 1, 65535);
  b.num(P::kHtml, "Html.ThumbHeight", "Thumbnail height", 1, 65535);
  b.choice(P::kHtml, "Html.Format", "Thumbnail format", {{0, "Gif"}, {1, "JPEG"}});
  b.add(P::kHtml, "Html.InterlacedGif", "Interlaced GIF");
  b.add(P::kHtml, "Html.ProgressiveJpeg", "Progressive JPEG");
  b.num(P::kHtml, "Html.QualityJpeg", "JPEG quality", 1, 100);
  b.add(P::kHtml, "Html.UseOriginalIfSmaller", "Use original files if smaller than thumbnail size");
  b.add(P::kHtml, "Html.CopySourceFilename", "Copy source images to output directory");
  b.add(P::kHtml, "Html.LaunchWebBrowser", "Launch web browser when done");
  b.add(P::kHtml, "Html.Display", "Informations displayed (mask)");
  b.add(P::kHtml, "Html.Sort", "Sorted by");
  b.add(P::kHtml, "Html.OutputDirectory", "Output directory");

  // Contact sheet
  b.num(P::kContactSheet, "ContactSheet.Width", "Sheet width", 1, 65535);
  b.num(P::kContactSheet, "ContactSheet.Height", "Sheet height", 1, 65535);
  b.num(P::kContactSheet, "ContactSheet.Columns", "Columns", 1, 1000);
  b.num(P::kContactSheet, "ContactSheet.Rows", "Rows", 1, 1000);
  b.num(P::kContactSheet, "ContactSheet.MarginWidth", "Margin width", 0, 65535);
  b.num(P::kContactSheet, "ContactSheet.MarginHeight", "Margin height", 0, 65535);
  b.num(P::kContactSheet, "ContactSheet.SpacingWidth", "Spacing width", 0, 65535);
  b.num(P::kContactSheet, "ContactSheet.SpacingHeight", "Spacing height", 0, 65535);
  b.add(P::kContactSheet, "ContactSheet.FontName", "Font");
  b.num(P::kContactSheet, "ContactSheet.FontHeight", "Font height", 1, 1000);
  b.toggle(P::kContactSheet, "ContactSheet.FontBold", "Bold");
  b.toggle(P::kContactSheet, "ContactSheet.FontItalic", "Italic");
  b.add(P::kContactSheet, "ContactSheet.Flags", "Flags");
  b.add(P::kContactSheet, "ContactSheet.HeadNote", "Head note");
  b.add(P::kContactSheet, "ContactSheet.FootNote", "Foot note");
  b.color(P::kContactSheet, "ContactSheet.BackgroundColor", "Background color");
  b.color(P::kContactSheet, "ContactSheet.TextBackgroundColor", "Text background color");
  b.color(P::kContactSheet, "ContactSheet.TextColor", "Text color");
  b.color(P::kContactSheet, "ContactSheet.ThumbnailBackgroundColor", "Thumbnail background color");

  // Cache
  b.add(P::kCache, "Cache.IsActive", "Use the thumbnail cache").widget = "tbCache";
  OptionEntry &mode = b.choice(P::kCache, "Cache.Compression", "Compression",
                               {{0, "None"}, {1, "Lossless (ZIP)"}, {2, "Lossy Low (JPEG)"}, {3, "Lossy High (JPEG)"}});
  mode.widget = "optionMenuCache";
  const char *const kCacheButtons[] = {"OptionCacheNone", "OptionCacheLossless", "OptionCacheLossyLow",
                                       "OptionCacheLossyHigh"};
  for (size_t i = 0; i < mode.choices.size(); ++i) mode.choices[i].widget = kCacheButtons[i];
  b.num(P::kCache, "Cache.MaxDir", "Directories kept", 1, kMax);

  // Files: confirmations, renaming, the last paths and the recent lists.
  b.add(P::kFile, "File.ConfirmFileDelete", "Confirm file delete");
  b.add(P::kFile, "Rename.Template", "Rename template");
  b.add(P::kFile, "Rename.Start", "Rename start");
  b.add(P::kFile, "Rename.Step", "Rename step");
  b.add(P::kFile, "PathLoad", "Load directory");
  b.add(P::kFile, "PathSave", "Save directory");
  b.add(P::kFile, "PathBrowse", "Browse directory");
  b.add(P::kFile, "PathSlide", "Slide directory");
  b.add(P::kFile, "PathScript", "Script directory");
  b.add(P::kFile, "PathExtract", "Extract directory");
  for (int i = 0; i < 10; ++i)
    b.add(P::kFile, "FileName_" + std::to_string(i), "Recent file " + std::to_string(i + 1));
  for (int i = 0; i < 10; ++i)
    b.add(P::kFile, "DirName_" + std::to_string(i), "Recent directory " + std::to_string(i + 1));
  for (int i = 0; i < 10; ++i)
    b.add(P::kFile, "File.DirName_" + std::to_string(i), "Selector directory " + std::to_string(i + 1));

  // Convert and multi-page files
  b.format(P::kConvert, "Convert.DefaultFormat", "Default format");
  b.choice(P::kConvert, "Convert.Overwrite", "Overwrite",
           {{0, "Replace"}, {1, "Ask"}, {2, "Skip"}, {3, "Rename"}});
  b.add(P::kConvert, "Convert.HideError", "Hide errors");
  b.add(P::kConvert, "Convert.DeleteOriginal", "Delete the original files");
  b.add(P::kConvert, "MultFile.Format", "Multi-page file format");
  b.add(P::kConvert, "MultFile.Directory", "Multi-page file directory");
  b.add(P::kConvert, "MultFile.FileName", "Multi-page file name");

  // Process: operations, resize, canvas, auto crop, the last values.
  b.add(P::kProcess, "Process.AutoView", "Show the result in a view");
  b.add(P::kProcess, "Process.Deinterlace", "Deinterlace");
  b.choice(P::kProcess, "Resize.Resample", "Resize resampling",
           {{1, "Bilinear"}, {2, "Nearest Neighbour"}, {3, "Bicubic"}, {4, "Lanczos"}});
  b.add(P::kProcess, "Resize.KeepRatio", "Resize keeps the ratio");
  b.add(P::kProcess, "Canvas.KeepRatio", "Canvas keeps the ratio");
  b.color(P::kProcess, "AutoCrop.BackColor", "Auto crop background");
  b.add(P::kProcess, "AutoCrop.Tolerance", "Auto crop tolerance");
  for (int i = 0; i < 25; ++i)
    b.add(P::kProcess, "Process.LastValue_" + std::to_string(i), "Last value " + std::to_string(i));
  return t;
}

bool ParseInteger(const std::string &s, int64_t *out) {
  if (s.empty()) return false;
  errno = 0;
  char *end = nullptr;
  long long v = std::strtoll(s.c_str(), &end, 10);
  if (errno || *end || end == s.c_str()) return false;
  *out = v;
  return true;
}

std::string Trim(const std::string &s) {
  size_t a = s.find_first_not_of(" \t\r\n"), b = s.find_last_not_of(" \t\r\n");
  return a == std::string::npos ? std::string() : s.substr(a, b - a + 1);
}

int64_t ReadInt(const KeyRef &k) {
  switch (k.type) {
    case KeyType::kInt8: return *static_cast<uint8_t *>(k.field);
    case KeyType::kInt16:
    case KeyType::kBoolReadIntWrite: return *static_cast<uint16_t *>(k.field);
    case KeyType::kInt32: return *static_cast<int32_t *>(k.field);
    case KeyType::kBool: return *static_cast<bool *>(k.field);
    default: return 0;
  }
}

// Stores v (already within the storage's range).
void WriteInt(const KeyRef &k, int64_t v) {
  switch (k.type) {
    case KeyType::kInt8: *static_cast<uint8_t *>(k.field) = static_cast<uint8_t>(v); break;
    case KeyType::kInt16:
    case KeyType::kBoolReadIntWrite: *static_cast<uint16_t *>(k.field) = static_cast<uint16_t>(v); break;
    case KeyType::kInt32: *static_cast<int32_t *>(k.field) = static_cast<int32_t>(v); break;
    case KeyType::kBool: *static_cast<bool *>(k.field) = v != 0; break;
    default: break;
  }
}

}  // namespace

const char *OptionPageName(OptionPage page) { return kPageNames[static_cast<int>(page)]; }
const char *OptionPageTitle(OptionPage page) { return kPageTitles[static_cast<int>(page)]; }

const std::vector<OptionEntry> &OptionTable() {
  static const std::vector<OptionEntry> table = BuildTable();
  return table;
}

const OptionEntry *FindOption(const std::string &key) {
  for (const OptionEntry &e : OptionTable())
    if (e.key == key) return &e;
  return nullptr;
}

std::string OptionValueText(SettingsRecord &record, const OptionEntry &entry) {
  std::vector<KeyRef> keys;
  const KeyRef *k = KeyOf(record, entry.key, &keys);
  if (!k) return "";
  char buf[64];
  switch (entry.kind) {
    case OptionKind::kToggle: return ReadInt(*k) ? "True" : "False";
    case OptionKind::kReal:
      std::snprintf(buf, sizeof buf, "%.2f", *static_cast<double *>(k->field));
      return buf;
    case OptionKind::kColor:
      std::snprintf(buf, sizeof buf, "#%06X", static_cast<unsigned>(ReadInt(*k)) & 0xFFFFFFu);
      return buf;
    case OptionKind::kText:
    case OptionKind::kFormat: return static_cast<const char *>(k->field);
    case OptionKind::kNumber:
    case OptionKind::kChoice: return std::to_string(ReadInt(*k));
  }
  return "";
}

bool SetOptionValue(SettingsRecord *record, const OptionEntry &entry, const std::string &raw) {
  std::vector<KeyRef> keys;
  const KeyRef *k = KeyOf(*record, entry.key, &keys);
  if (!k) return false;
  const std::string text = entry.kind == OptionKind::kText ? raw : Trim(raw);
  int64_t v = 0;
  switch (entry.kind) {
    case OptionKind::kToggle:
      if (text == "True" || text == "1") v = 1;
      else if (text == "False" || text == "0") v = 0;
      else return false;
      WriteInt(*k, v);
      return true;
    case OptionKind::kNumber:
      if (!ParseInteger(text, &v) || v < entry.lo || v > entry.hi) return false;
      WriteInt(*k, v);
      return true;
    case OptionKind::kChoice:
      if (!ParseInteger(text, &v)) return false;
      for (const OptionChoice &c : entry.choices) {
        if (c.value == v) {
          WriteInt(*k, v);
          return true;
        }
      }
      return false;
    case OptionKind::kColor: {
      if (text.size() != 7 || text[0] != '#' || text.find_first_not_of("0123456789abcdefABCDEF", 1) != std::string::npos)
        return false;
      WriteInt(*k, std::strtol(text.c_str() + 1, nullptr, 16));
      return true;
    }
    case OptionKind::kReal: {
      char *end = nullptr;
      const double d = std::strtod(text.c_str(), &end);
      if (text.empty() || *end || !std::isfinite(d) || d <= entry.lo || d > entry.hi) return false;
      *static_cast<double *>(k->field) = d;
      return true;
    }
    case OptionKind::kFormat: {
      const int index = tslFormatGetIndex(text.c_str());
      if (text.empty() || index < 0 || !tslFormatIsWritable(index)) return false;
      const char *name = tslFormatGetName(index);
      if (!name || std::strlen(name) >= k->size) return false;
      std::strcpy(static_cast<char *>(k->field), name);
      return true;
    }
    case OptionKind::kText: {
      char *field = static_cast<char *>(k->field);
      const size_t n = std::min(text.size(), k->size - 1);
      std::memcpy(field, text.data(), n);
      field[n] = 0;
      return true;
    }
  }
  return false;
}

std::string FileTypeLine(int index) {
  const char *name = tslFormatGetName(index);
  const char *desc = tslFormatGetDescription(index);
  char buf[256];
  std::snprintf(buf, sizeof buf, "%-10s %s", name ? name : "", desc ? desc : "");
  return buf;
}

}  // namespace quilla
