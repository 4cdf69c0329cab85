// The view commands open, saveFiles and extractInto, the format list, the
// hex dump (viewHexa, openHexa), the screen capture, the file operations
// (copyTo, moveTo, rename, delete), the lossless JPEG transformations and
// the multi-page file dialog.
#include <X11/Intrinsic.h>

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/app_x.h"
#include "core/settings.h"
#include "files/batch_x.h"
#include "files/capture_x.h"
#include "files/fileop_x.h"
#include "files/hexdump_x.h"
#include "files/jpegtrans_x.h"
#include "files/load_x.h"
#include "files/multi_x.h"
#include "files/save_x.h"
#include "files/selector_x.h"
#include "files/slide_x.h"
#include "imgproc/path_text.h"
#include "view/view_hooks_x.h"
#include "view/view_x.h"

namespace quilla {

namespace {

void StorePath(char *field, const std::string &value) { std::snprintf(field, kPathSize, "%s", value.c_str()); }

// "Load Files...": one file opens a view on it, several a view walking them
// (the existing view takes them with View.OnlyOneView).
void OpenFiles(Widget owner) {
  SelectorRequest req;
  req.title = "Load Files...";
  req.multiple = true;
  req.initial = Settings().PathLoad;
  SelectorResult res;
  if (!RunFileSelector(owner, req, &res) || res.paths.empty()) return;
  StorePath(Settings().PathLoad, DirectoryPart(res.paths.front()));
  if (res.paths.size() == 1) {
    OpenViewOnFile(App().shell, res.paths.front().c_str(), 0);
  } else {
    const int count = static_cast<int>(res.paths.size());
    auto *list = static_cast<FileListEntry *>(std::calloc(static_cast<size_t>(count), sizeof(FileListEntry)));
    if (!list) return ShowMessage(owner, "Not enough memory");
    for (int i = 0; i < count; ++i) StorePath(list[i].path, res.paths[i]);
    OpenViewOnList(App().shell, list, count, 0);  // the view takes the list over
  }
}

// The name the central save writes when it appends the format's extension
// to a name without any ".".
std::string NameAsSaved(const std::string &path, int format) {
  if (!Settings().Save.AddExtensionIfNotExist || path.find('.') != std::string::npos) return path;
  const char *suffix = tslFormatGetDefaultSuffix(format);
  return suffix && *suffix ? path + "." + suffix : path;
}

// "Save File...", then the central save of a copy of the view's picture (the
// view may be closed while the save shows its progress).
void SaveFile(Widget view, Widget owner) {
  ViewState state;
  if (!view || !GetViewState(view, &state) || !ViewCurrentPicture(view)) return Bell();
  SelectorRequest req;
  req.title = "Save File...";
  req.mode = kSelectorSave;
  req.initial = state.path;
  req.default_format = Settings().Convert.DefaultFormat;
  SelectorResult res;
  if (!RunFileSelector(owner, req, &res) || res.paths.empty()) return;
  if (res.format < 0) return Bell();
  const std::string chosen = res.paths.front();
  const std::string path = NameAsSaved(chosen, res.format);
  // The extension made it another file: that one is asked about too.
  if (path != chosen && access(path.c_str(), F_OK) == 0 && !AskConfirm(owner, "Overwrite this file !! \nConfirm ?"))
    return;
  StorePath(Settings().PathSave, DirectoryPart(path));
  const TslPicture *shown = GetViewState(view, &state) ? ViewCurrentPicture(view) : nullptr;
  if (!shown) return;
  TslPicture copy{};
  if (tslCopyPicture(&copy, shown) != TSL_OK) return ShowMessage(owner, "Not enough memory");
  const int code = CentralSave(owner, path.c_str(), &copy, res.format);
  tslFree(&copy);
  if (code == 0 && GetViewState(view, &state)) ViewSetFile(view, path.c_str(), res.format, false);
}

// "Select Output Directory ...", then every page into it.
void ExtractInto(Widget view, Widget owner) {
  ViewState state;
  if (!view || !GetViewState(view, &state) || state.pages < 2) return Bell();
  std::string dir;
  if (!ChooseOutputDirectory(owner, Settings().PathExtract[0] ? Settings().PathExtract : DirectoryPart(state.path), &dir))
    return;
  StorePath(Settings().PathExtract, dir);
  if (GetViewState(view, &state)) ExtractViewPages(view, dir.c_str());
}

}  // namespace

bool RunFileCommand(Widget view, Widget owner, const char *word) {
  if (RunViewFileOpCommand(view, owner, word) || RunViewJpegCommand(view, owner, word)) return true;
  if (std::strcmp(word, "open") == 0) {
    OpenFiles(owner);
  } else if (std::strcmp(word, "saveFiles") == 0) {
    SaveFile(view, owner);
  } else if (std::strcmp(word, "extractInto") == 0) {
    ExtractInto(view, owner);
  } else if (std::strcmp(word, "formats") == 0) {
    ShowFormatList(owner);
  } else if (std::strcmp(word, "viewHexa") == 0) {
    ViewHexaCommand(owner);
  } else if (std::strcmp(word, "openHexa") == 0) {
    ViewState state;
    if (view && GetViewState(view, &state) && !state.path.empty()) {
      OpenHexDump(owner, state.path);
    } else {
      Bell();  // no view, or one without a file
    }
  } else if (std::strcmp(word, kMultiPageCommand) == 0) {
    ViewState state;
    std::vector<std::string> files;
    if (view && GetViewState(view, &state) && !state.path.empty()) files.push_back(state.path);
    OpenMultiDialog(owner, files);
  } else if (std::strcmp(word, "capture") == 0) {
    ShowCaptureDialog(owner);
  } else if (std::strcmp(word, "sequenceConvert") == 0) {
    OpenSeqConvert(owner);
  } else if (std::strcmp(word, "multiConvert") == 0) {
    OpenMultiConvert(owner);
  } else if (std::strcmp(word, "slideShow") == 0) {
    OpenSlideDialog(SlideListFromSettings());
  } else {
    return false;
  }
  return true;
}

}  // namespace quilla
