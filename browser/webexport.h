// The web-page export without the toolkit: the options and their Html.*
// settings, the page texts (head, navigation, table cells, credit line),
// the thumb/ and original/ layout, and the export run one picture per step
// with its questions going through an interface.
#ifndef QUILLA_BROWSER_WEBEXPORT_H
#define QUILLA_BROWSER_WEBEXPORT_H

#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/settings.h"

namespace quilla {

class FileList;
struct FileEntry;

// Html.Display bits: what the cells show under the thumbnail.
constexpr unsigned kWebShowName = 1, kWebShowSize = 2, kWebShowDimensions = 4, kWebShowDate = 8,
                   kWebShowAnnotation = 16;

// The program version the pages name.
extern const char kWebVersion[];  // "1.50"

struct WebOptions {
  std::string title;
  int columns = 4, rows = 4, border = 2;
  int thumb_width = 32, thumb_height = 32;
  bool jpeg = false;  // Html.Format 1; 0 is GIF
  bool interlaced = true, progressive = true;
  int quality = 100;
  bool use_original_if_smaller = true, copy_sources = true, launch = true;
  unsigned display = kWebShowName;
  int sort = 1;                // the browser's sort setting (key | 128 for reverse)
  std::string output_dir;      // ends with "/" once Normalized
  std::string home_page = "https://quilla.example.org/";  // the credit line's link
};

// The entries of a listed directory that an export covers: the selected
// files, or every file when none is selected; never directories, nor files
// the thumbnail loop found unreadable.
std::vector<FileEntry> ExportEntries(const FileList &list);
// Their paths in the order of a sort setting (key | kSortReverse).
std::vector<std::string> SortedExportPaths(const std::string &directory, std::vector<FileEntry> entries, int sort);

// The options from the Html.* settings and back.
WebOptions WebOptionsFromSettings(const SettingsRecord &settings);
void StoreWebOptions(const WebOptions &options, SettingsRecord *settings);

// One picture of the pages, as its cell shows it.
struct WebPicture {
  std::string name;        // the source's file name
  std::string path;        // the source's path (the link when sources are not copied)
  uint64_t size = 0;       // bytes
  int width = 0, height = 0, bits_per_pixel = 0, colors = 0;
  std::string date, description;
  bool original = false;   // the source itself stands for its thumbnail
  std::string thumb_name;  // the file name in thumb/ (or original/)
  int thumb_width = 0, thumb_height = 0;
};

// (N + C x R - 1) / (C x R).
int WebPageCount(int pictures, int columns, int rows);
// "<dir><title>.html" for page 1, "<dir><title><n>.html" after it.
std::string WebPageFileName(const std::string &dir, const std::string &title, int page);
// The navigation block of page p of P (empty for a single page).
std::string WebNavigation(const std::string &title, int page, int pages);
// One table cell.
std::string WebCell(const WebOptions &options, const WebPicture &picture);
// Page p (1-based) of the pictures.
std::string WebPageText(const WebOptions &options, const std::vector<WebPicture> &pictures, int page);

// "t_" followed by the source's file name.
std::string WebThumbName(const std::string &name);
// The size of a thumbnail that fits width x height into the box keeping its
// proportions (never larger than the picture, never 0).
void WebThumbSize(int width, int height, int box_width, int box_height, int *out_width, int *out_height);

// The command that shows the first page: the words of the browser command
// (WEBBROWSER, else "netscape") and the page's path as one more word.
std::vector<std::string> WebBrowserArguments(const char *browser, const WebOptions &options);
// Starts a program without waiting for it and without a shell.
bool LaunchDetached(const std::vector<std::string> &args);

class WebExportUi {
 public:
  virtual ~WebExportUi() = default;
  virtual void ShowStatus(const std::string & /*text*/) {}
  virtual void Message(const std::string &text) = 0;
  // A yes/no question; true for yes.
  virtual bool Confirm(const std::string &question) = 0;
};

class WebExport {
 public:
  // `settings` gives the Load settings and the Save settings the thumbnails
  // are written with (their GIF and JPEG switches replaced by the options').
  WebExport(const WebOptions &options, const SettingsRecord &settings, const std::vector<std::string> &paths);
  ~WebExport();

  // The description of a picture ("" for none); the browser fills it from
  // the directory's description table.
  std::function<std::string(const std::string &path)> description;
  // The date caption of a modification time.
  std::function<std::string(time_t)> date_text;

  // Makes the output directory, thumb/ and original/ (when copying); false
  // after "Can't create <dir>" was shown.
  bool Start(WebExportUi &ui);
  // One picture per call; after the last (or a "no" to a question, or a
  // break) the pages are written.  True when the export is over.
  bool Step(WebExportUi &ui);
  // The user's break: asked as "Break process ?" at the next step.
  void Break() { break_ = true; }

  bool ok() const { return ok_; }
  const std::vector<WebPicture> &pictures() const { return pictures_; }
  const WebOptions &options() const { return options_; }

 private:
  bool DoPicture(WebExportUi &ui, const std::string &path);
  bool WritePages(WebExportUi &ui);

  WebOptions options_;
  std::unique_ptr<SettingsRecord> settings_;
  std::vector<std::string> paths_;
  std::vector<WebPicture> pictures_;
  size_t index_ = 0;
  bool break_ = false, done_ = false, ok_ = false;
};

}  // namespace quilla

#endif
