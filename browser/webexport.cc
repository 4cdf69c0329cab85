// Web pages of thumbnails: texts, layout and the export run.
#include "browser/webexport.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "browser/filelist.h"
#include "core/atomic_write.h"
#include "files/fileop_model.h"
#include "files/load_model.h"
#include "files/save_model.h"
#include "imgproc/geometry.h"
#include "imgproc/path_text.h"
#include "tessel.h"

namespace quilla {

const char kWebVersion[] = "1.50";

namespace {

std::string Printf(const char *format, ...) __attribute__((format(printf, 1, 2)));
std::string Printf(const char *format, ...) {
  va_list ap, copy;
  va_start(ap, format);
  va_copy(copy, ap);
  const int n = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::string out(n > 0 ? static_cast<size_t>(n) : 0, '\0');
  if (n > 0) std::vsnprintf(&out[0], out.size() + 1, format, ap);
  va_end(ap);
  return out;
}

std::string WithSlash(const std::string &dir) { return dir.empty() || dir.back() == '/' ? dir : dir + "/"; }

int AtLeastOne(int v) { return v < 1 ? 1 : v; }

// Makes `dir` unless it is there already.
bool MakeDirectory(const std::string &dir) {
  if (::mkdir(dir.c_str(), 0777) == 0) return true;
  struct stat st;
  return errno == EEXIST && ::stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string DefaultDate(time_t t) {
  struct tm tm;
  char buf[32];
  if (!localtime_r(&t, &tm) || !std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M", &tm)) return std::string();
  return buf;
}

// The save's questions cannot come up (the conversion is given) and its
// messages are turned into the export's own question.
class QuietSave : public SaveUi {
 public:
  int AskConversion(const std::string &, const TslFormatInfo &, const TslPicture &, int) override { return 0; }
  void Message(const std::string &) override {}
};

// Copies are made by the file operations, so that a failed copy leaves no
// partial file; their questions become the export's.
class CopyUi : public FileOpUi {
 public:
  bool failed = false;
  bool AskStop(const std::string &) override {
    failed = true;
    return true;
  }
};

struct Picture {
  TslPicture p{};
  ~Picture() {
    if (p.pixels) tslFree(&p);
  }
};

}  // namespace

WebOptions WebOptionsFromSettings(const SettingsRecord &settings) {
  const auto &h = settings.Html;
  WebOptions o;
  o.columns = h.TableColumns;
  o.rows = h.TableRows;
  o.border = h.TableBorder;
  o.thumb_width = h.ThumbWidth;
  o.thumb_height = h.ThumbHeight;
  o.jpeg = h.Format == 1;
  o.interlaced = h.InterlacedGif;
  o.progressive = h.ProgressiveJpeg;
  o.quality = h.QualityJpeg;
  o.use_original_if_smaller = h.UseOriginalIfSmaller;
  o.copy_sources = h.CopySourceFilename;
  o.launch = h.LaunchWebBrowser;
  o.display = h.Display;
  o.sort = h.Sort;
  o.output_dir = h.OutputDirectory;
  return o;
}

void StoreWebOptions(const WebOptions &o, SettingsRecord *settings) {
  auto &h = settings->Html;
  h.TableColumns = o.columns;
  h.TableRows = o.rows;
  h.TableBorder = o.border;
  h.ThumbWidth = o.thumb_width;
  h.ThumbHeight = o.thumb_height;
  h.Format = o.jpeg ? 1 : 0;
  h.InterlacedGif = o.interlaced;
  h.ProgressiveJpeg = o.progressive;
  h.QualityJpeg = o.quality;
  h.UseOriginalIfSmaller = o.use_original_if_smaller;
  h.CopySourceFilename = o.copy_sources;
  h.LaunchWebBrowser = o.launch;
  h.Display = static_cast<uint16_t>(o.display);
  h.Sort = static_cast<uint16_t>(o.sort);
  std::snprintf(h.OutputDirectory, sizeof h.OutputDirectory, "%s", o.output_dir.c_str());
}

std::vector<FileEntry> ExportEntries(const FileList &list) {
  std::vector<FileEntry> chosen;
  for (bool all : {false, true}) {
    for (int i = 0; i < list.count(); ++i) {
      const FileEntry &e = list.at(i);
      if ((all || e.selected) && !e.isDirectory() && !(e.state & kStateUnreadable)) chosen.push_back(e);
    }
    if (!chosen.empty()) break;
  }
  return chosen;
}

std::vector<std::string> SortedExportPaths(const std::string &directory, std::vector<FileEntry> entries, int sort) {
  if ((sort & 0x7f) >= kSortName && (sort & 0x7f) <= kSortDescription)
    std::stable_sort(entries.begin(), entries.end(),
                     [sort](const FileEntry &a, const FileEntry &b) { return CompareEntries(a, b, sort) < 0; });
  std::vector<std::string> paths;
  const std::string dir = WithSlash(directory);
  for (const FileEntry &e : entries) paths.push_back(dir + e.name);
  return paths;
}

int WebPageCount(int pictures, int columns, int rows) {
  const int per_page = AtLeastOne(columns) * AtLeastOne(rows);
  return pictures <= 0 ? 0 : (pictures + per_page - 1) / per_page;
}

std::string WebPageFileName(const std::string &dir, const std::string &title, int page) {
  return page <= 1 ? Printf("%s%s.html", dir.c_str(), title.c_str())
                   : Printf("%s%s%d.html", dir.c_str(), title.c_str(), page);
}

std::string WebNavigation(const std::string &title, int page, int pages) {
  if (pages <= 1) return std::string();
  const char *b = title.c_str();
  std::string out = Printf("Page %d of %d  \n", page, pages);
  if (page == 1) out += Printf("| <A href=\"%s2.html\">Next</A> |<BR>\n", b);
  else if (page < pages && page == 2)
    out += Printf("| <A href=\"%s.html\">Previous</A> | <A href=\"%s%d.html\">Next</A> |<BR>\n", b, b, 3);
  else if (page < pages)
    out += Printf("| <A href=\"%s%d.html\">Previous</A> | <A href=\"%s%d.html\">Next</A> |<BR>\n", b, page - 1, b,
                  page + 1);
  else if (page == 2) out += Printf("| <A href=\"%s.html\">Previous</A> |<BR>\n", b);
  else out += Printf("| <A href=\"%s%d.html\">Previous</A> |<BR>\n", b, page - 1);
  return out;
}

std::string WebCell(const WebOptions &o, const WebPicture &p) {
  std::string out = "\t\t<TD align=\"center\" valign=\"top\">";
  out += o.copy_sources ? Printf("<A href=\"original/%s\">", p.name.c_str()) : Printf("<A href=\"//%s\">", p.path.c_str());
  out += Printf("<IMG src=\"%s/%s\" border=\"0\" alt=\"%s\" width=\"%d\" height=\"%d\">", p.original ? "original" : "thumb",
                p.thumb_name.c_str(), p.name.c_str(), p.thumb_width, p.thumb_height);
  if (o.display & kWebShowName) out += Printf("<BR>%s", p.name.c_str());
  out += "</A>";
  if (o.display & kWebShowSize) out += Printf("<BR>%d Kb", static_cast<int>(p.size / 1024));
  if (o.display & kWebShowDimensions) {
    out += p.bits_per_pixel > 23 ? Printf("<BR>%dx%d,16M", p.width, p.height)
                                 : Printf("<BR>%dx%d,%d colors", p.width, p.height, p.colors);
  }
  if (o.display & kWebShowDate) out += Printf("<BR>%s", p.date.c_str());
  if ((o.display & kWebShowAnnotation) && !p.description.empty()) out += Printf("<BR>%s", p.description.c_str());
  out += "\n\t\t</TD>\n";
  return out;
}

std::string WebPageText(const WebOptions &o, const std::vector<WebPicture> &pictures, int page) {
  const int n = static_cast<int>(pictures.size());
  const int columns = AtLeastOne(o.columns), per_page = columns * AtLeastOne(o.rows);
  const int pages = WebPageCount(n, o.columns, o.rows);
  const char *t = o.title.c_str();
  std::string out = "<!doctype html public \"-//w3c//dtd html 4.0 transitional//en\">\n<html>\n<head>\n";
  out += Printf("\t<meta name=\"GENERATOR\" content=\"Quilla v%s\">\n", kWebVersion);
  out += Printf("\t<title>%s</title>\n", t);
  out += "</head>\n<BODY>\n";
  out += Printf("<CENTER><H1>%s</H1></CENTER>\n", t);
  out += WebNavigation(o.title, page, pages);
  out += Printf("<BR><BR><CENTER><TABLE border=\"%d\">\n", o.border);
  out += "\t<TR>\n";
  const int first = (page - 1) * per_page;
  for (int k = first; k < n && k < first + per_page; ++k) {
    if (k > first && (k - first) % columns == 0) out += "\t</TR>\n\t<TR>\n";
    out += WebCell(o, pictures[static_cast<size_t>(k)]);
  }
  out += "\t</TR>\n</TABLE></CENTER>\n";
  out += "<BR><BR><I>This thumbnail page was generated by <A href=\"" + o.home_page + "\">" +
         Printf("Quilla v%s</A></I>\n", kWebVersion);
  out += "</BODY>\n</html>\n";
  return out;
}

std::string WebThumbName(const std::string &name) { return "t_" + name; }

void WebThumbSize(int width, int height, int box_width, int box_height, int *out_width, int *out_height) {
  width = AtLeastOne(width), height = AtLeastOne(height);
  box_width = AtLeastOne(box_width), box_height = AtLeastOne(box_height);
  if (width <= box_width && height <= box_height) {
    *out_width = width, *out_height = height;
  } else if (static_cast<int64_t>(width) * box_height >= static_cast<int64_t>(height) * box_width) {
    *out_width = box_width;
    *out_height = AtLeastOne(static_cast<int>(static_cast<int64_t>(height) * box_width / width));
  } else {
    *out_height = box_height;
    *out_width = AtLeastOne(static_cast<int>(static_cast<int64_t>(width) * box_height / height));
  }
}

std::vector<std::string> WebBrowserArguments(const char *browser, const WebOptions &o) {
  std::vector<std::string> args;
  std::string word;
  for (const char *c = browser && *browser ? browser : "netscape"; *c; ++c) {
    if (*c == ' ' || *c == '\t') {
      if (!word.empty()) args.push_back(word);
      word.clear();
    } else {
      word += *c;
    }
  }
  if (!word.empty()) args.push_back(word);
  if (args.empty()) args.push_back("netscape");
  args.push_back(WebPageFileName(WithSlash(o.output_dir), o.title, 1));
  return args;
}

bool LaunchDetached(const std::vector<std::string> &args) {
  if (args.empty()) return false;
  std::vector<char *> argv;
  for (const std::string &a : args) argv.push_back(const_cast<char *>(a.c_str()));
  argv.push_back(nullptr);
  // Twice forked, so the program is nobody's child to wait for.
  const pid_t child = ::fork();
  if (child < 0) return false;
  if (child == 0) {
    if (::fork() == 0) {
      ::setsid();
      ::execvp(argv[0], argv.data());
    }
    ::_exit(0);
  }
  int status;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return true;
}

// ---- the export run

WebExport::WebExport(const WebOptions &options, const SettingsRecord &settings, const std::vector<std::string> &paths)
    : options_(options), settings_(new SettingsRecord(settings)), paths_(paths) {
  options_.output_dir = WithSlash(options_.output_dir);
  auto &save = settings_->Save;
  save.GifInterlaced = options_.interlaced;
  save.GifUseTransparentIndex = false;
  save.JpegProgressive = options_.progressive;
  save.JpegQuality = static_cast<uint8_t>(options_.quality < 1 ? 1 : options_.quality > 100 ? 100 : options_.quality);
  save.AddExtensionIfNotExist = false;
  date_text = DefaultDate;
}

WebExport::~WebExport() = default;

bool WebExport::Start(WebExportUi &ui) {
  const std::string &d = options_.output_dir;
  for (const std::string &dir : {d, d + "thumb", options_.copy_sources ? d + "original" : std::string()}) {
    if (dir.empty()) continue;
    if (!MakeDirectory(dir)) {
      ui.Message(Printf("Can't create %s", dir.c_str()));
      done_ = true;
      return false;
    }
  }
  ui.ShowStatus("Creating...");
  return true;
}

bool WebExport::Step(WebExportUi &ui) {
  if (done_) return true;
  bool go_on = index_ < paths_.size();
  if (go_on && break_) {
    break_ = false;
    go_on = !ui.Confirm("Break process ?");
  }
  if (go_on) {
    go_on = DoPicture(ui, paths_[index_++]);
    if (go_on && index_ < paths_.size()) return false;
  }
  done_ = true;
  ok_ = WritePages(ui);
  return true;
}

bool WebExport::DoPicture(WebExportUi &ui, const std::string &path) {
  WebPicture w;
  w.path = path;
  w.name = FileNameOnly(path.c_str());
  auto ask = [&](const std::string &what) { return ui.Confirm(what + "\n\nDo you want to continue ?"); };

  ui.ShowStatus("Loading " + w.name);
  // The caption's size and colours come from the file; the picture itself
  // is decoded reduced to about the thumbnail's size.
  LoadRequest load;
  FillLoadRequest(*settings_, -1, 0, false, &load);
  load.params.flags |= TSL_FLAG_UNATTENDED;
  TslFileInfo info;
  int code = tslFileInformationEx(path.c_str(), &load.params, &info);
  Picture pic;
  if (code == TSL_OK) {
    w.width = static_cast<int>(info.width);
    w.height = static_cast<int>(info.height);
    w.bits_per_pixel = info.bits_per_plane * info.planes;
    w.colors = static_cast<int>(info.colors);
    load.params.format = info.format;
    load.params.target_width = options_.thumb_width;
    load.params.target_height = options_.thumb_height;
    code = tslLoad(path.c_str(), &pic.p, &load.params);
  }
  if (code != TSL_OK) {
    const std::string text = LoadErrorText(path.c_str(), code, info.message);
    tslFileInformationFree(&info);
    return ask(text);
  }
  tslFileInformationFree(&info);
  const TslPicture &p = pic.p;
  struct stat st;
  if (::stat(path.c_str(), &st) == 0) {
    w.size = static_cast<uint64_t>(st.st_size);
    if (date_text) w.date = date_text(st.st_mtime);
  }
  if (description) w.description = description(path);
  w.original = options_.use_original_if_smaller && w.width <= options_.thumb_width && w.height <= options_.thumb_height;

  // The source goes to original/ when copying, and when it is its own thumbnail.
  if (options_.copy_sources || w.original) {
    ui.ShowStatus("Copying original file " + w.name);
    const std::string to = options_.output_dir + "original";
    bool copied = MakeDirectory(to);
    if (copied) {
      FileOp copy(FileOpKind::kCopy, DirectoryWithSlash(path), {w.name}, to);
      CopyUi quiet;
      while (!copy.Step(quiet)) {
      }
      copied = !quiet.failed;
    }
    if (!copied && !ask(Printf("Problem when copying %s\n\tto %s", path.c_str(), (to + "/" + w.name).c_str())))
      return false;
    if (!copied && w.original) return true;  // nothing to show for it
  }

  if (w.original) {
    w.thumb_name = w.name;
    w.thumb_width = w.width;
    w.thumb_height = w.height;
  } else {
    ui.ShowStatus("Resizing " + w.name);
    WebThumbSize(w.width, w.height, options_.thumb_width, options_.thumb_height, &w.thumb_width, &w.thumb_height);
    Picture small;
    if (ResizePicture(&p, &small.p, static_cast<uint32_t>(w.thumb_width), static_cast<uint32_t>(w.thumb_height),
                      kResampleLinear) != kOpDone)
      return ask(Printf("%s\n\nNot enough memory", path.c_str()));
    ui.ShowStatus("Converting " + w.name);
    std::string thumb = options_.output_dir + "thumb/" + WebThumbName(w.name);
    ui.ShowStatus("Saving thumb/" + WebThumbName(w.name));
    QuietSave quiet;
    SaveOptions so;
    so.unattended = true;
    so.progress = false;
    so.report_errors = false;
    so.conversion = options_.jpeg ? kTrueColorConversion : 31;  // 256 colours, dithered
    const int format = tslFormatGetIndex(options_.jpeg ? "jpeg" : "gif");
    const int saved = SavePicture(quiet, *settings_, &thumb, format, small.p, so);
    if (saved != TSL_OK) return ask(SaveErrorText(thumb.c_str(), saved == kSaveCancelled ? TSL_ERR_CANT_SAVE : saved));
    w.thumb_name = FileNameOnly(thumb.c_str());
  }
  pictures_.push_back(w);
  return true;
}

bool WebExport::WritePages(WebExportUi &ui) {
  const int pages = WebPageCount(static_cast<int>(pictures_.size()), options_.columns, options_.rows);
  for (int page = 1; page <= pages; ++page) {
    const std::string file = WebPageFileName(options_.output_dir, options_.title, page);
    if (!WriteFileAtomically(file, WebPageText(options_, pictures_, page))) {
      ui.Message(Printf("Can't create %s", file.c_str()));
      return false;
    }
  }
  return true;
}

}  // namespace quilla
