// Reading and writing the settings file.
#include "core/settings.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "tessel.h"

namespace quilla {

std::vector<KeyRef> KeyTable(SettingsRecord &r) {
  std::vector<KeyRef> t;
  t.reserve(320);
  auto str = [&](const char *s, std::string k, char *f, size_t n, const char *d) {
    t.push_back({s, std::move(k), KeyType::kString, f, n, 0, d, true});
  };
  auto i32 = [&](const char *s, std::string k, int32_t *f, int64_t d, bool w = true) {
    t.push_back({s, std::move(k), KeyType::kInt32, f, 0, d, nullptr, w});
  };
  auto i16 = [&](const char *s, std::string k, uint16_t *f, int64_t d, bool w = true) {
    t.push_back({s, std::move(k), KeyType::kInt16, f, 0, d, nullptr, w});
  };
  auto i8 = [&](const char *s, std::string k, uint8_t *f, int64_t d) {
    t.push_back({s, std::move(k), KeyType::kInt8, f, 0, d, nullptr, true});
  };
  auto b = [&](const char *s, std::string k, bool *f, bool d) {
    t.push_back({s, std::move(k), KeyType::kBool, f, 0, d, nullptr, true});
  };
#define STR(s, k, n, d) str(s, #k, r.n, sizeof r.n, d)
  STR("", PathLoad, PathLoad, "");
  STR("", PathSave, PathSave, "");
  STR("", PathBrowse, PathBrowse, "");
  STR("", PathSlide, PathSlide, "");
  STR("", PathScript, PathScript, "");
  STR("", PathExtract, PathExtract, "");
  for (int i = 0; i < 10; ++i) str("", "FileName_" + std::to_string(i), r.FileName[i], kPathSize, "");
  for (int i = 0; i < 10; ++i) str("", "DirName_" + std::to_string(i), r.DirName[i], kPathSize, "");
  auto &S = r.Start;
  i32("Start", "X", &S.X, -1);
  i32("Start", "Y", &S.Y, -1);
  i32("Start", "Width", &S.Width, -1);
  i32("Start", "Height", &S.Height, -1);
  b("Start", "SavePosition", &S.SavePosition, false);
  b("Start", "LaunchBrowserAtStartup", &S.LaunchBrowserAtStartup, false);
  b("Start", "OpenAll", &S.OpenAll, false);
  b("Start", "ShowToolTipsInToolbar", &S.ShowToolTipsInToolbar, true);
  b("Start", "UseMostRecentlyUsedFiles", &S.UseMostRecentlyUsedFiles, true);
  b("Start", "PurgeMostRecentlyUsed", &S.PurgeMostRecentlyUsed, false);
  i32("Start", "ToolbarViewConfig", &S.ToolbarViewConfig, kDefaultToolbarMask);
  i32("Start", "ToolbarBrowserConfig", &S.ToolbarBrowserConfig, kDefaultToolbarMask);
  i32("Start", "ToolbarIndex", &S.ToolbarIndex, 0);
  auto &V = r.View;
  b("View", "UsePopupInView", &V.UsePopupInView, false);
  b("View", "OpenHexaViewIfNotPicture", &V.OpenHexaViewIfNotPicture, true);
  b("View", "StatusBar", &V.StatusBar, true);
  b("View", "ToolBar", &V.ToolBar, true);
  i8("View", "Fit", &V.Fit, 1);
  b("View", "UseUndo", &V.UseUndo, true);
  b("View", "ShowFilename", &V.ShowFilename, true);
  b("View", "MouseNavigation", &V.MouseNavigation, true);
  b("View", "HideMouse", &V.HideMouse, false);
  i16("View", "FileListSort", &V.FileListSort, 0);
  b("View", "DisableAnimation", &V.DisableAnimation, false);
  b("View", "EnableBmpAnimation", &V.EnableBmpAnimation, false);
  b("View", "OnlyOneView", &V.OnlyOneView, false);
  b("View", "DisplayColorInformation", &V.DisplayColorInformation, false);
  b("View", "KeepZoomFactor", &V.KeepZoomFactor, false);
  b("View", "UseGamma", &V.UseGamma, false);
  t.push_back({"View", "Gamma", KeyType::kGamma, &V.Gamma, 64, 0, "1.0", true});
  b("View", "UseDPIRatio", &V.UseDPIRatio, false);
  for (int i = 0; i < 10; ++i) str("File", "DirName_" + std::to_string(i), r.File.DirName[i], kPathSize, "");
  b("File", "ConfirmFileDelete", &r.File.ConfirmFileDelete, true);
  i16("Resize", "Resample", &r.Resize.Resample, 1);
  b("Resize", "KeepRatio", &r.Resize.KeepRatio, true);
  b("Canvas", "KeepRatio", &r.Canvas.KeepRatio, true);
  auto &B = r.Browser;
  i32("Browser", "X", &B.X, 0);
  i32("Browser", "Y", &B.Y, 0);
  i32("Browser", "Width", &B.Width, 256);
  i32("Browser", "Height", &B.Height, 256);
  i32("Browser", "IconWidth", &B.IconWidth, 92);
  i32("Browser", "IconHeight", &B.IconHeight, 69);
  i32("Browser", "Viewas", &B.Viewas, 0);
  i32("Browser", "ArrangeBy", &B.ArrangeBy, 1);
  i32("Browser", "ViewColumn", &B.ViewColumn, 255);
  i32("Browser", "Layout", &B.Layout, 0);
  i32("Browser", "DirListWidth", &B.DirListWidth, 0);
  i32("Browser", "DirListHeight", &B.DirListHeight, 0);
  i32("Browser", "IconListWidth", &B.IconListWidth, 0);
  i32("Browser", "IconListHeight", &B.IconListHeight, 0);
  b("Browser", "ShowDirList", &B.ShowDirList, true);
  b("Browser", "ShowStatusBar", &B.ShowStatusBar, true);
  b("Browser", "ShowToolBar", &B.ShowToolBar, true);
  b("Browser", "ShowPreview", &B.ShowPreview, true);
  b("Browser", "FitPreviewWindow", &B.FitPreviewWindow, false);
  b("Browser", "ShowContent", &B.ShowContent, true);
  b("Browser", "ShowInAscii", &B.ShowInAscii, false);
  b("Browser", "ShowHiddenFile", &B.ShowHiddenFile, true);
  i16("Browser", "ItemsThumbnailMode", &B.ItemsThumbnailMode, 0);
  i8("Browser", "StartupIn", &B.StartupIn, 1);
  str("Browser", "StartupDirectory", B.StartupDirectory, kPathSize, "");
  b("Browser", "RecognizeByExt", &B.RecognizeByExt, false);
  b("Browser", "HidePreviewScrollBar", &B.HidePreviewScrollBar, false);
  i8("Browser", "FitWindowOption", &B.FitWindowOption, 0);
  b("Browser", "ShowToolTips", &B.ShowToolTips, true);
  auto &W = r.Save;
  i8("Save", "JpegQuality", &W.JpegQuality, 100);
  b("Save", "JpegProgressive", &W.JpegProgressive, false);
  b("Save", "OptimizeHuffmanTable", &W.OptimizeHuffmanTable, false);
  i8("Save", "PngCompressionLevel", &W.PngCompressionLevel, 9);
  b("Save", "PngInterlaced", &W.PngInterlaced, false);
  b("Save", "GifInterlaced", &W.GifInterlaced, false);
  b("Save", "IffCompress", &W.IffCompress, false);
  b("Save", "PcxCompress", &W.PcxCompress, false);
  b("Save", "TgaCompress", &W.TgaCompress, false);
  i8("Save", "TiffCompress", &W.TiffCompress, 0);
  i8("Save", "TiffBinaryCompress", &W.TiffBinaryCompress, 0);
  b("Save", "SoftCompress", &W.SoftCompress, true);
  b("Save", "RgbCompress", &W.RgbCompress, true);
  b("Save", "BmpCompress", &W.BmpCompress, false);
  b("Save", "Os2Header", &W.Os2Header, false);
  b("Save", "Hp49Header", &W.Hp49Header, false);
  b("Save", "Gif87aHeader", &W.Gif87aHeader, false);
  i32("Save", "Offset", &W.Offset, 0);
  i16("Save", "ChannelOrder", &W.ChannelOrder, 0);
  i16("Save", "ChannelType", &W.ChannelType, 1);
  b("Save", "AddExtensionIfNotExist", &W.AddExtensionIfNotExist, true);
  b("Save", "GifUseTransparentIndex", &W.GifUseTransparentIndex, false);
  i8("Save", "GifTransparentIndex", &W.GifTransparentIndex, 0);
  b("Save", "PngUseTransparentIndex", &W.PngUseTransparentIndex, false);
  i8("Save", "PngTransparentIndex", &W.PngTransparentIndex, 0);
  b("Save", "PpmAscii", &W.PpmAscii, false);
  b("Save", "DpxIn10Bits", &W.DpxIn10Bits, false);
  b("Save", "UseLut", &W.UseLut, false);
  str("Save", "Lut8to10Name", W.Lut8to10Name, kPathSize, "");
  str("Save", "DefaultFormat", W.DefaultFormat, sizeof W.DefaultFormat, "jpeg");
  auto &L = r.Load;
  i16("Load", "PcdBase", &L.PcdBase, 0);
  i16("Load", "GrobBpp", &L.GrobBpp, 0);
  b("Load", "IgnoreError", &L.IgnoreError, false);
  i32("Load", "RawWidth", &L.RawWidth, 256);
  i32("Load", "RawHeight", &L.RawHeight, 256);
  i32("Load", "RawOffset", &L.RawOffset, 0);
  i16("Load", "ChannelOrder", &L.ChannelOrder, 0, false);
  i16("Load", "ChannelType", &L.ChannelType, 1, false);
  i32("Load", "YuvWidth", &L.YuvWidth, 720);
  i32("Load", "YuvHeight", &L.YuvHeight, 576);
  i32("Load", "YuvOffset", &L.YuvOffset, 0);
  b("Load", "Preview", &L.Preview, false);
  b("Load", "UseLut", &L.UseLut, false);
  str("Load", "Lut10to8Name", L.Lut10to8Name, kPathSize, "");
  i16("Load", "PostscriptDpi", &L.PostscriptDpi, 72);
  i16("Load", "PostscriptPageSize", &L.PostscriptPageSize, 0);
  auto &D = r.Slide;
  i16("Slide", "Timer", &D.Timer, 5);
  i16("Slide", "FitToWindow", &D.FitToWindow, 0);
  i16("Slide", "SortOrder", &D.SortOrder, 0);
  b("Slide", "UseTimer", &D.UseTimer, true);
  b("Slide", "Loop", &D.Loop, true);
  b("Slide", "Full", &D.Full, true);
  b("Slide", "Center", &D.Center, true);
  b("Slide", "Resize", &D.Resize, true);
  b("Slide", "Random", &D.Random, false);
  b("Slide", "NoTitle", &D.NoTitle, false);
  b("Slide", "NoError", &D.NoError, false);
  b("Slide", "HideMouse", &D.HideMouse, true);
  b("Slide", "ShowFilename", &D.ShowFilename, true);
  t.push_back({"Rename", "Start", KeyType::kBoolReadIntWrite, &r.Rename.Start, 0, 0, nullptr, true});
  t.push_back({"Rename", "Step", KeyType::kBoolReadIntWrite, &r.Rename.Step, 0, 1, nullptr, true});
  str("Rename", "Template", r.Rename.Template, sizeof r.Rename.Template, "name.#");
  auto &H = r.Html;
  i32("Html", "TableColumns", &H.TableColumns, 4);
  i32("Html", "TableRows", &H.TableRows, 4, false);
  i32("Html", "TableBorder", &H.TableBorder, 2);
  i32("Html", "ThumbWidth", &H.ThumbWidth, 32);
  i32("Html", "ThumbHeight", &H.ThumbHeight, 32);
  i16("Html", "Format", &H.Format, 0);
  b("Html", "InterlacedGif", &H.InterlacedGif, true);
  b("Html", "ProgressiveJpeg", &H.ProgressiveJpeg, true);
  i32("Html", "QualityJpeg", &H.QualityJpeg, 100);
  b("Html", "UseOriginalIfSmaller", &H.UseOriginalIfSmaller, true);
  b("Html", "CopySourceFilename", &H.CopySourceFilename, true);
  b("Html", "LaunchWebBrowser", &H.LaunchWebBrowser, true);
  i16("Html", "Display", &H.Display, 1);
  i16("Html", "Sort", &H.Sort, 1);
  str("Html", "OutputDirectory", H.OutputDirectory, kPathSize, "");
  auto &C = r.ContactSheet;
  i32("ContactSheet", "Width", &C.Width, 1000);
  i32("ContactSheet", "Height", &C.Height, 1000);
  i32("ContactSheet", "Columns", &C.Columns, 4);
  i32("ContactSheet", "Rows", &C.Rows, 4);
  i32("ContactSheet", "MarginWidth", &C.MarginWidth, 16);
  i32("ContactSheet", "MarginHeight", &C.MarginHeight, 16);
  i32("ContactSheet", "SpacingWidth", &C.SpacingWidth, 8);
  i32("ContactSheet", "SpacingHeight", &C.SpacingHeight, 8);
  str("ContactSheet", "FontName", C.FontName, sizeof C.FontName,
      "-*-helvetica-medium-r-normal-*-10-*-*-*-*-*-iso8859-1");
  i32("ContactSheet", "FontHeight", &C.FontHeight, 10);
  i8("ContactSheet", "FontBold", &C.FontBold, 0);
  i8("ContactSheet", "FontItalic", &C.FontItalic, 0);
  i32("ContactSheet", "Flags", &C.Flags, 1);
  str("ContactSheet", "HeadNote", C.HeadNote, sizeof C.HeadNote, "");
  str("ContactSheet", "FootNote", C.FootNote, sizeof C.FootNote, "");
  i32("ContactSheet", "BackgroundColor", &C.BackgroundColor, 0xffffff);
  i32("ContactSheet", "TextBackgroundColor", &C.TextBackgroundColor, 0xffffff);
  i32("ContactSheet", "TextColor", &C.TextColor, 0xffffff);
  i32("ContactSheet", "ThumbnailBackgroundColor", &C.ThumbnailBackgroundColor, 0xffffff);
  b("Cache", "IsActive", &r.Cache.IsActive, false);
  i8("Cache", "Compression", &r.Cache.Compression, 1);
  i32("Cache", "MaxDir", &r.Cache.MaxDir, 99);
  i32("AutoCrop", "BackColor", &r.AutoCrop.BackColor, 0);
  i16("AutoCrop", "Tolerance", &r.AutoCrop.Tolerance, 0);
  i32("MultFile", "Format", &r.MultFile.Format, 0);
  str("MultFile", "Directory", r.MultFile.Directory, kPathSize, "");
  str("MultFile", "FileName", r.MultFile.FileName, sizeof r.MultFile.FileName, "image");
  b("Process", "AutoView", &r.Process.AutoView, false);
  i8("Process", "Deinterlace", &r.Process.Deinterlace, 0);
  for (int i = 0; i < 25; ++i) i32("Process", "LastValue_" + std::to_string(i), &r.Process.LastValue[i], -255);
  b("Convert", "HideError", &r.Convert.HideError, false);
  b("Convert", "DeleteOriginal", &r.Convert.DeleteOriginal, false);
  i8("Convert", "Overwrite", &r.Convert.Overwrite, 0);
  str("Convert", "DefaultFormat", r.Convert.DefaultFormat, sizeof r.Convert.DefaultFormat, "jpeg");
#undef STR
  return t;
}

namespace {

std::string FullKey(const char *section, const char *key) {
  return *section ? std::string(section) + "." + key : std::string(key);
}

void CopyTruncated(char *out, size_t size, const char *value) {
  size_t n = strnlen(value, size - 1);
  std::memcpy(out, value, n);
  out[n] = 0;
}

uint64_t HashKey(const std::string &key) {
  uint64_t h = 1469598103934665603ull;  // FNV-1a
  for (unsigned char c : key) {
    h ^= c;
    h *= 1099511628211ull;
  }
  return h;
}

}  // namespace

// ---- String table ---------------------------------------------------------

SettingsTable::SettingsTable() : slots_(1024) {}

size_t SettingsTable::probe(const std::string &key) const {
  size_t i = HashKey(key) % slots_.size();
  while (slots_[i].used && slots_[i].key != key) i = (i + 1) % slots_.size();
  return i;
}

void SettingsTable::grow() {
  std::vector<Slot> old;
  old.swap(slots_);
  slots_.resize(old.size() * 2);
  for (Slot &s : old) {
    if (!s.used) continue;
    Slot &d = slots_[probe(s.key)];
    d = std::move(s);
  }
}

void SettingsTable::insert(const std::string &key, const std::string &value) {
  // Every line counts towards the growth threshold, also an ignored duplicate.
  ++insertions_;
  if (insertions_ * 10 >= slots_.size() * 8) grow();
  Slot &s = slots_[probe(key)];
  if (s.used) return;  // the first line with a key wins
  s.used = true;
  s.key = key;
  s.value = value;
}

const std::string *SettingsTable::find(const std::string &key) const {
  const Slot &s = slots_[probe(key)];
  return s.used ? &s.value : nullptr;
}

bool SettingsTable::readFile(const std::string &path) {
  FILE *f = std::fopen(path.c_str(), "r");
  if (!f) return false;
  char line[512];
  char key[128], value[512];
  while (std::fgets(line, sizeof line, f)) {
    if (std::sscanf(line, "%127s = %511s\n", key, value) == 2) insert(key, value);
  }
  std::fclose(f);
  return true;
}

int64_t SettingsTable::readInt(const char *section, const char *key, int64_t def) const {
  const std::string *v = find(FullKey(section, key));
  return v ? std::atoi(v->c_str()) : def;
}

bool SettingsTable::readBool(const char *section, const char *key, bool def) const {
  const std::string *v = find(FullKey(section, key));
  if (!v) return def;
  const int n = std::atoi(v->c_str());
  if (strcasecmp(v->c_str(), "true") == 0 || n == 1) return true;
  if (strcasecmp(v->c_str(), "false") == 0 || n == 0) return false;
  return def;
}

void SettingsTable::readString(const char *section, const char *key, const char *def, char *out,
                               size_t size) const {
  const std::string *v = find(FullKey(section, key));
  CopyTruncated(out, size, v ? v->c_str() : def);
}

// ---- Reading and writing --------------------------------------------------

std::string ChooseSettingsPath(const char *ini, const std::string &start_dir) {
  std::string candidate = ini && *ini ? std::string(ini) : start_dir + "/.quillarc";
  struct stat st;
  if (stat(candidate.c_str(), &st) != 0 || S_ISDIR(st.st_mode)) {
    const char *home = std::getenv("HOME");
    candidate = std::string(home ? home : start_dir.c_str()) + "/.quillarc";
  }
  return candidate;
}

void ReadSettingsFile(SettingsRecord *r, const std::string &path) {
  delete[] r->file_types;
  std::memset(static_cast<void *>(r), 0, sizeof *r);
  SettingsTable table;
  table.readFile(path);
  for (const KeyRef &k : KeyTable(*r)) {
    switch (k.type) {
      case KeyType::kString:
        table.readString(k.section, k.key.c_str(), k.sdef, static_cast<char *>(k.field), k.size);
        break;
      case KeyType::kInt32:
        *static_cast<int32_t *>(k.field) = static_cast<int32_t>(table.readInt(k.section, k.key.c_str(), k.def));
        break;
      case KeyType::kInt16:
        *static_cast<uint16_t *>(k.field) = static_cast<uint16_t>(table.readInt(k.section, k.key.c_str(), k.def));
        break;
      case KeyType::kInt8:
        *static_cast<uint8_t *>(k.field) = static_cast<uint8_t>(table.readInt(k.section, k.key.c_str(), k.def));
        break;
      case KeyType::kBool:
        *static_cast<bool *>(k.field) = table.readBool(k.section, k.key.c_str(), k.def != 0);
        break;
      case KeyType::kBoolReadIntWrite:
        *static_cast<uint16_t *>(k.field) = table.readBool(k.section, k.key.c_str(), k.def != 0) ? 1 : 0;
        break;
      case KeyType::kGamma: {
        char text[64];
        table.readString(k.section, k.key.c_str(), k.sdef, text, sizeof text);
        *static_cast<double *>(k.field) = std::atof(text);
        break;
      }
    }
  }
  // A stored 0 for a toolbar mask means the default mask.
  if (r->Start.ToolbarViewConfig == 0) r->Start.ToolbarViewConfig = kDefaultToolbarMask;
  if (r->Start.ToolbarBrowserConfig == 0) r->Start.ToolbarBrowserConfig = kDefaultToolbarMask;

  // File types: all enabled when the file says nothing about jpeg; otherwise
  // every format without a key of its own is disabled.
  const int count = tslCount();
  r->file_types = new FileTypeEntry[static_cast<size_t>(count) + 4]();
  const bool jpeg_absent = table.find("FileTypes.jpeg") == nullptr;
  for (int i = 0; i < count; ++i) {
    TslFormatInfo info;
    if (tslFormatGetInfo(i, &info) != TSL_OK) continue;
    FileTypeEntry &e = r->file_types[r->file_type_count++];
    CopyTruncated(e.name, sizeof e.name, info.name);
    e.enabled = table.readBool("FileTypes", e.name, jpeg_absent);
  }
}

void FreeFileTypes(SettingsRecord *r) {
  delete[] r->file_types;
  r->file_types = nullptr;
  r->file_type_count = 0;
}

bool WriteSettingsFile(SettingsRecord *r, const std::string &path) {
  if (r->Start.PurgeMostRecentlyUsed) {
    for (int i = 0; i < 10; ++i) {
      r->FileName[i][0] = 0;
      r->DirName[i][0] = 0;
      r->File.DirName[i][0] = 0;
    }
  }
  // Written beside the target and renamed into place, so a crash never
  // leaves half a settings file.
  std::string temp = path + ".tmp" + std::to_string(getpid());
  FILE *f = std::fopen(temp.c_str(), "w");
  if (!f) {
    std::fprintf(stderr, "Error in creating <%s>\n", path.c_str());
    FreeFileTypes(r);
    return false;
  }
  for (const KeyRef &k : KeyTable(*r)) {
    if (!k.written) continue;
    const char *sec = k.section;
    const char *key = k.key.c_str();
    long n = 0;
    switch (k.type) {
      case KeyType::kString: {
        const char *v = static_cast<const char *>(k.field);
        if (*sec) std::fprintf(f, "%s.%s = %s\n", sec, key, v);
        else std::fprintf(f, "%s = %s\n", key, v);
        continue;
      }
      case KeyType::kBool:
        std::fprintf(f, "%s.%s = %s\n", sec, key, *static_cast<bool *>(k.field) ? "True" : "False");
        continue;
      case KeyType::kGamma:
        std::fprintf(f, "%s.%s = %1.2lf\n", sec, key, *static_cast<double *>(k.field));
        continue;
      case KeyType::kInt32: n = *static_cast<int32_t *>(k.field); break;
      case KeyType::kInt16:
      case KeyType::kBoolReadIntWrite: n = *static_cast<uint16_t *>(k.field); break;
      case KeyType::kInt8: n = *static_cast<uint8_t *>(k.field); break;
    }
    if (*sec) std::fprintf(f, "%s.%s = %d\n", sec, key, static_cast<int>(n));
    else std::fprintf(f, "%s = %d\n", key, static_cast<int>(n));
  }
  for (int i = 0; i < r->file_type_count; ++i)
    std::fprintf(f, "%s.%s = %s\n", "FileTypes", r->file_types[i].name, r->file_types[i].enabled ? "True" : "False");
  FreeFileTypes(r);
  bool ok = std::fflush(f) == 0 && !std::ferror(f);
  ok = std::fclose(f) == 0 && ok;
  if (!ok || std::rename(temp.c_str(), path.c_str()) != 0) {
    std::remove(temp.c_str());
    std::fprintf(stderr, "Error in creating <%s>\n", path.c_str());
    return false;
  }
  return true;
}

namespace {
SettingsRecord *g_record = nullptr;
std::string g_path;
}  // namespace

SettingsRecord &Settings() {
  if (!g_record) g_record = new SettingsRecord{};
  return *g_record;
}

void LoadSettings(const char *ini, const std::string &start_dir) {
  g_path = ChooseSettingsPath(ini, start_dir);
  ReadSettingsFile(&Settings(), g_path);
}

bool SaveSettings() { return WriteSettingsFile(&Settings(), g_path); }

const std::string &SettingsPath() { return g_path; }

}  // namespace quilla
