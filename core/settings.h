// The settings record and its file (.quillarc): one process-wide record,
// read once at start-up and written back by the quitting commands.
// Toolkit-free.
#ifndef QUILLA_CORE_SETTINGS_H
#define QUILLA_CORE_SETTINGS_H

#include <cstdint>
#include <string>
#include <vector>

namespace quilla {

constexpr int kPathSize = 4096;
// The toolbars' default button mask; a stored 0 means "use the default".
constexpr int32_t kDefaultToolbarMask = static_cast<int32_t>(0xF9FFFBFFu);

struct FileTypeEntry {
  char name[11];   // format short name
  bool enabled;
};

// One field per key, grouped by section; names are the keys'.
struct SettingsRecord {
  char PathLoad[kPathSize], PathSave[kPathSize], PathBrowse[kPathSize], PathSlide[kPathSize],
      PathScript[kPathSize], PathExtract[kPathSize];
  char FileName[10][kPathSize];
  char DirName[10][kPathSize];
  struct {
    int32_t X, Y, Width, Height;
    bool SavePosition, LaunchBrowserAtStartup, OpenAll, ShowToolTipsInToolbar, UseMostRecentlyUsedFiles,
        PurgeMostRecentlyUsed;
    int32_t ToolbarViewConfig, ToolbarBrowserConfig, ToolbarIndex;
  } Start;
  struct {
    bool UsePopupInView, OpenHexaViewIfNotPicture, StatusBar, ToolBar;
    uint8_t Fit;
    bool UseUndo, ShowFilename, MouseNavigation, HideMouse;
    uint16_t FileListSort;
    bool DisableAnimation, EnableBmpAnimation, OnlyOneView, DisplayColorInformation, KeepZoomFactor, UseGamma;
    double Gamma;  // the file holds it as a string
    bool UseDPIRatio;
  } View;
  struct {
    char DirName[10][kPathSize];
    bool ConfirmFileDelete;
  } File;
  struct {
    uint16_t Resample;
    bool KeepRatio;
  } Resize;
  struct {
    bool KeepRatio;
  } Canvas;
  struct {
    int32_t X, Y, Width, Height, IconWidth, IconHeight, Viewas, ArrangeBy, ViewColumn, Layout, DirListWidth,
        DirListHeight, IconListWidth, IconListHeight;
    bool ShowDirList, ShowStatusBar, ShowToolBar, ShowPreview, FitPreviewWindow, ShowContent, ShowInAscii,
        ShowHiddenFile;
    uint16_t ItemsThumbnailMode;
    uint8_t StartupIn;
    char StartupDirectory[kPathSize];
    bool RecognizeByExt, HidePreviewScrollBar;
    uint8_t FitWindowOption;
    bool ShowToolTips;
  } Browser;
  struct {
    uint8_t JpegQuality;
    bool JpegProgressive, OptimizeHuffmanTable;
    uint8_t PngCompressionLevel;
    bool PngInterlaced, GifInterlaced, IffCompress, PcxCompress, TgaCompress;
    uint8_t TiffCompress, TiffBinaryCompress;
    bool SoftCompress, RgbCompress, BmpCompress, Os2Header, Hp49Header, Gif87aHeader;
    int32_t Offset;
    uint16_t ChannelOrder, ChannelType;
    bool AddExtensionIfNotExist, GifUseTransparentIndex;
    uint8_t GifTransparentIndex;
    bool PngUseTransparentIndex;
    uint8_t PngTransparentIndex;
    bool PpmAscii, DpxIn10Bits, UseLut;
    char Lut8to10Name[kPathSize];
    char DefaultFormat[16];
  } Save;
  struct {
    uint16_t PcdBase, GrobBpp;
    bool IgnoreError;
    int32_t RawWidth, RawHeight, RawOffset;
    uint16_t ChannelOrder, ChannelType;
    int32_t YuvWidth, YuvHeight, YuvOffset;
    bool Preview, UseLut;
    char Lut10to8Name[kPathSize];
    uint16_t PostscriptDpi, PostscriptPageSize;
  } Load;
  struct {
    uint16_t Timer, FitToWindow, SortOrder;
    bool UseTimer, Loop, Full, Center, Resize, Random, NoTitle, NoError, HideMouse, ShowFilename;
  } Slide;
  struct {
    uint16_t Start, Step;
    char Template[64];
  } Rename;
  struct {
    int32_t TableColumns, TableRows, TableBorder, ThumbWidth, ThumbHeight;
    uint16_t Format;
    bool InterlacedGif, ProgressiveJpeg;
    int32_t QualityJpeg;
    bool UseOriginalIfSmaller, CopySourceFilename, LaunchWebBrowser;
    uint16_t Display, Sort;
    char OutputDirectory[kPathSize];
  } Html;
  struct {
    int32_t Width, Height, Columns, Rows, MarginWidth, MarginHeight, SpacingWidth, SpacingHeight;
    char FontName[128];
    int32_t FontHeight;
    uint8_t FontBold, FontItalic;
    int32_t Flags;
    char HeadNote[64], FootNote[64];
    int32_t BackgroundColor, TextBackgroundColor, TextColor, ThumbnailBackgroundColor;
  } ContactSheet;
  struct {
    bool IsActive;
    uint8_t Compression;
    int32_t MaxDir;
  } Cache;
  struct {
    int32_t BackColor;
    uint16_t Tolerance;
  } AutoCrop;
  struct {
    int32_t Format;
    char Directory[kPathSize];
    char FileName[128];
  } MultFile;
  struct {
    bool AutoView;
    uint8_t Deinterlace;
    int32_t LastValue[25];
  } Process;
  struct {
    bool HideError, DeleteOriginal;
    uint8_t Overwrite;
    char DefaultFormat[16];
  } Convert;

  // One record per format of the image library: room for the library's
  // format count plus 4, file_type_count of them filled.
  FileTypeEntry *file_types;
  int file_type_count;
};

// How a key's value is read and written.
enum class KeyType { kString, kInt32, kInt16, kInt8, kBool, kGamma, kBoolReadIntWrite };

// One key of the file: where its value lives in the record and how it is
// read and written.
struct KeyRef {
  const char *section;  // "" for keys without a section
  std::string key;
  KeyType type;
  void *field;
  size_t size;          // strings: buffer size
  int64_t def;          // numeric default
  const char *sdef;     // string default
  bool written;         // false: read but never written back
};

// Every key but the file types, in reading (and writing) order, bound to
// the fields of `r`.
std::vector<KeyRef> KeyTable(SettingsRecord &r);

// "Section.Key", or "Key" for the keys without a section.
inline std::string KeyName(const KeyRef &k) { return *k.section ? std::string(k.section) + "." + k.key : k.key; }

// The settings path: `ini` when it names an existing non-directory, else
// start_dir/.quillarc when that exists and is no directory, else
// $HOME/.quillarc (start_dir when HOME is unset).
std::string ChooseSettingsPath(const char *ini, const std::string &start_dir);

// Zeroes the record and fills every field from the file at `path` (defaults
// for what is missing; a missing file gives all defaults).
void ReadSettingsFile(SettingsRecord *record, const std::string &path);

// Writes the whole record to `path` through a temporary file renamed into
// place.  Returns false (after printing "Error in creating <path>") when the
// file cannot be created.  Empties the recent-name lists first when
// Start.PurgeMostRecentlyUsed is set, and frees the file-type table.
bool WriteSettingsFile(SettingsRecord *record, const std::string &path);

// Releases the file-type table.
void FreeFileTypes(SettingsRecord *record);

// The process-wide record and the path chosen at load time.
SettingsRecord &Settings();
void LoadSettings(const char *ini, const std::string &start_dir);
bool SaveSettings();
const std::string &SettingsPath();

// The string table the reader parses the file into: keys hashed whole, open
// addressing with linear probing, 1024 slots at first, grown when the number
// of insertions reaches 80% of the slots; the first value of a key wins.
class SettingsTable {
 public:
  SettingsTable();
  void insert(const std::string &key, const std::string &value);
  const std::string *find(const std::string &key) const;
  size_t slots() const { return slots_.size(); }
  size_t insertions() const { return insertions_; }

  // Parses the file's lines; returns false when the file cannot be opened.
  bool readFile(const std::string &path);

  // Typed reads with the reader's conversion rules.
  int64_t readInt(const char *section, const char *key, int64_t def) const;
  bool readBool(const char *section, const char *key, bool def) const;
  void readString(const char *section, const char *key, const char *def, char *out, size_t size) const;

 private:
  struct Slot {
    bool used = false;
    std::string key, value;
  };
  size_t probe(const std::string &key) const;
  void grow();
  std::vector<Slot> slots_;
  size_t insertions_ = 0;
};

}  // namespace quilla

#endif
