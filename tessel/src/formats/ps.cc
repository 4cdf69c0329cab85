// PostScript, EPS and PDF, rendered by Ghostscript.
//
// Ghostscript runs as a separate program (argument vector, no shell,
// -dSAFER) on a private copy of the document in a private temporary
// directory, and writes the page as a PPM file there, which the PPM reader
// of this library reads back.  Each run has a time limit (60 s, or the
// number of seconds in TSL_GS_TIMEOUT) and is killed when the caller asks to
// stop.  Pages are rendered at params.ps_dpi; the page is
// params.ps_page_width x ps_page_height points, or with 0 the document's own
// bounding box (an EPS or DSC %%BoundingBox, a PDF's media box).
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "../bytes.h"
#include "../format.h"

extern char **environ;

namespace tessel {
extern const FormatDef kPpmFormat;

namespace {

const char kNoGhostscript[] = "PostScript and PDF files need Ghostscript (gs), which is not installed";

enum class Kind { kPs, kEps, kPdf };

// What the document says about itself before any rendering.
struct Document {
  Kind kind = Kind::kPs;
  size_t offset = 0, length = 0;  // the PostScript or PDF bytes inside the file
  bool has_bbox = false;
  int llx = 0, lly = 0, urx = 0, ury = 0;
  int pages = 0;  // 0: not stated
};

bool dosEps(const uint8_t *d, size_t n) { return n >= 30 && d[0] == 0xC5 && d[1] == 0xD0 && d[2] == 0xD3 && d[3] == 0xC6; }

bool psSniff(const uint8_t *d, size_t n) {
  if (dosEps(d, n)) return true;
  if (n >= 5 && std::memcmp(d, "%PDF-", 5) == 0) return true;
  return n >= 4 && std::memcmp(d, "%!PS", 4) == 0;
}

// One DSC comment value "%%Key: ..." at the start of a line of text[0..n).
const char *dscValue(const char *text, size_t n, const char *key, size_t *rest) {
  const size_t k = std::strlen(key);
  for (size_t at = 0; at + k < n; ++at) {
    if ((at == 0 || text[at - 1] == '\n' || text[at - 1] == '\r') && std::memcmp(text + at, key, k) == 0) {
      *rest = n - at - k;
      return text + at + k;
    }
  }
  return nullptr;
}

// Reads the header comments (and, for "(atend)", the trailer's).
void readDsc(const uint8_t *data, size_t size, Document *doc) {
  const size_t head = size < 65536 ? size : 65536;
  const char *text = reinterpret_cast<const char *>(data);
  for (int pass = 0; pass < 2; ++pass) {
    const char *from = pass == 0 ? text : text + (size > 65536 ? size - 65536 : 0);
    const size_t n = pass == 0 ? head : (size > 65536 ? 65536 : size);
    size_t rest;
    const char *v = dscValue(from, n, "%%BoundingBox:", &rest);
    if (v && !doc->has_bbox) {
      std::string line(v, rest < 80 ? rest : 80);
      int a, b, c, d;
      if (std::sscanf(line.c_str(), "%d %d %d %d", &a, &b, &c, &d) == 4 && c > a && d > b) {
        doc->has_bbox = true;
        doc->llx = a, doc->lly = b, doc->urx = c, doc->ury = d;
      }
    }
    v = dscValue(from, n, "%%Pages:", &rest);
    if (v && doc->pages == 0) {
      std::string line(v, rest < 40 ? rest : 40);
      int pages;
      if (std::sscanf(line.c_str(), "%d", &pages) == 1 && pages > 0 && pages < 100000) doc->pages = pages;
    }
  }
}

bool scanDocument(const Source &src, Document *doc) {
  const uint8_t *d = src.data;
  size_t n = src.size;
  doc->offset = 0;
  doc->length = n;
  if (dosEps(d, n)) {
    // A DOS EPS binary header: the PostScript section's offset and length.
    const uint32_t off = le32(d + 4), len = le32(d + 8);
    if (off < 30 || off > n || len > n - off || len < 4) return false;
    doc->offset = off;
    doc->length = len;
    d += off;
    n = len;
    if (std::memcmp(d, "%!", 2) != 0) return false;
    doc->kind = Kind::kEps;
  } else if (n >= 5 && std::memcmp(d, "%PDF-", 5) == 0) {
    doc->kind = Kind::kPdf;
    return true;
  } else if (n >= 4 && std::memcmp(d, "%!PS", 4) == 0) {
    const void *eol = std::memchr(d, '\n', n < 200 ? n : 200);
    const size_t first = eol ? static_cast<size_t>(static_cast<const uint8_t *>(eol) - d) : (n < 200 ? n : 200);
    doc->kind = std::string(reinterpret_cast<const char *>(d), first).find("EPSF") != std::string::npos ? Kind::kEps
                                                                                                       : Kind::kPs;
  } else {
    return false;
  }
  readDsc(d, n, doc);
  return true;
}

// ---- Running Ghostscript ---------------------------------------------------

std::string findGhostscript() {
  const char *path = std::getenv("PATH");
  std::string dirs = path && *path ? path : "/usr/bin:/bin";
  size_t start = 0;
  while (start <= dirs.size()) {
    size_t end = dirs.find(':', start);
    if (end == std::string::npos) end = dirs.size();
    std::string dir = dirs.substr(start, end - start);
    if (dir.empty()) dir = ".";
    const std::string candidate = dir + "/gs";
    struct stat st;
    if (::stat(candidate.c_str(), &st) == 0 && S_ISREG(st.st_mode) && ::access(candidate.c_str(), X_OK) == 0)
      return candidate;
    start = end + 1;
  }
  return "";
}

int timeLimitSeconds() {
  const char *v = std::getenv("TSL_GS_TIMEOUT");
  const int s = v ? std::atoi(v) : 0;
  return s > 0 ? s : 60;
}

// A private directory holding the copy of the document and what Ghostscript
// writes; removed with its files at scope end.
class WorkDir {
 public:
  WorkDir() {
    const char *tmp = std::getenv("TMPDIR");
    std::string templ = std::string(tmp && *tmp ? tmp : "/tmp") + "/tslgsXXXXXX";
    std::vector<char> buf(templ.begin(), templ.end());
    buf.push_back(0);
    if (::mkdtemp(buf.data())) path_ = buf.data();
  }
  ~WorkDir() {
    for (const std::string &f : files_) ::unlink(f.c_str());
    if (!path_.empty()) ::rmdir(path_.c_str());
  }
  bool ok() const { return !path_.empty(); }
  const std::string &path() const { return path_; }
  // A file name inside the directory, removed at the end.
  std::string file(const std::string &name) {
    files_.push_back(path_ + "/" + name);
    return files_.back();
  }

 private:
  std::string path_;
  std::vector<std::string> files_;
};

bool writeCopy(const std::string &path, const uint8_t *data, size_t size) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  size_t done = 0;
  while (done < size) {
    const ssize_t w = ::write(fd, data + done, size - done);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) break;
    done += static_cast<size_t>(w);
  }
  return ::close(fd) == 0 && done == size;
}

// Runs gs with `args` (after the program name), its output to `log`; waits
// at most the time limit, asking `ctx` (when given) whether to stop.
// Returns TSL_OK when gs ended with status 0.
int runGhostscript(const std::string &gs, const std::vector<std::string> &args, const WorkDir &dir,
                   const std::string &log, LoadContext *ctx) {
  // Ghostscript lets even a -dSAFER document write into its temporary
  // directory: that is the private one here.
  std::vector<std::string> env_text;
  for (char **e = environ; *e; ++e)
    if (std::strncmp(*e, "TMPDIR=", 7) != 0 && std::strncmp(*e, "TEMP=", 5) != 0) env_text.push_back(*e);
  env_text.push_back("TMPDIR=" + dir.path());
  env_text.push_back("TEMP=" + dir.path());
  std::vector<char *> env;
  for (std::string &e : env_text) env.push_back(&e[0]);
  env.push_back(nullptr);
  std::vector<char *> argv;
  argv.push_back(const_cast<char *>(gs.c_str()));
  for (const std::string &a : args) argv.push_back(const_cast<char *>(a.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  pid_t pid;
  const int spawned = posix_spawn(&pid, gs.c_str(), &actions, nullptr, argv.data(), env.data());
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return TSL_ERR_FORMAT;

  const auto start = std::chrono::steady_clock::now();
  const auto limit = std::chrono::seconds(timeLimitSeconds());
  int status = 0;
  for (;;) {
    const pid_t r = ::waitpid(pid, &status, WNOHANG);
    if (r == pid) break;
    if (r < 0 && errno == ECHILD) {
      // Reaped by someone else (a program ignoring SIGCHLD): the output
      // file tells whether the page was made.
      status = 0;
      break;
    }
    if (r < 0 && errno != EINTR) return TSL_ERR_INTERNAL;
    const auto elapsed = std::chrono::steady_clock::now() - start;
    bool stop = false;
    if (ctx) {
      // Progress over the time limit, never reaching the end before gs does.
      const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count();
      const auto total = std::chrono::duration_cast<std::chrono::milliseconds>(limit).count();
      stop = ctx->progress(static_cast<uint64_t>(ms) * 80 / static_cast<uint64_t>(total), 100);
    }
    if (stop || elapsed > limit) {
      ::kill(pid, SIGKILL);
      while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
      }
      return stop ? TSL_STOPPED : TSL_ERR_CORRUPT;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? TSL_OK : TSL_ERR_CORRUPT;
}

std::vector<std::string> commonArgs() {
  return {"-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", "-dNOPROMPT", "-dNOINTERPOLATE"};
}

// A file's bytes (Ghostscript's messages are cut at 1 MB).
std::string fileText(const std::string &path, size_t limit = 1u << 20) {
  std::string text;
  FILE *f = std::fopen(path.c_str(), "rb");
  if (!f) return text;
  char buf[4096];
  size_t n;
  while (text.size() < limit && (n = std::fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, n);
  std::fclose(f);
  return text;
}

// The number of pages: the DSC count, PDF's page tree as Ghostscript reads
// it, or the pages a bounding-box pass over the PostScript finds.
int countPages(const std::string &gs, const Document &doc, const std::string &input, WorkDir &dir,
               LoadContext *ctx, int *code) {
  *code = TSL_OK;
  if (doc.kind != Kind::kPdf && doc.pages > 0) return doc.pages;
  if (doc.kind == Kind::kEps) return 1;
  const std::string log = dir.file("count.txt");
  std::vector<std::string> args = commonArgs();
  if (doc.kind == Kind::kPdf) {
    args.insert(args.end(), {"-dNODISPLAY", "--permit-file-read=" + input, "-sFile=" + input, "-c",
                             "File (r) file runpdfbegin pdfpagecount = quit"});
    *code = runGhostscript(gs, args, dir, log, ctx);
    return *code == TSL_OK ? std::atoi(fileText(log).c_str()) : 0;
  }
  args.insert(args.end(), {"-sDEVICE=bbox", "-f", input});
  *code = runGhostscript(gs, args, dir, log, ctx);
  if (*code != TSL_OK) return 0;
  const std::string text = fileText(log);
  int pages = 0;
  for (size_t at = 0; (at = text.find("%%BoundingBox:", at)) != std::string::npos; at += 14) ++pages;
  return pages;
}

struct Render {
  int dpi;
  int page_width, page_height;  // points, 0 = the document's own
  int page;                     // from 0
};

// Renders one page into *picture through a PPM file.
int renderPage(const Source &src, const Render &r, TslPicture *picture, LoadContext *ctx, int *pages,
               char *message, size_t message_size) {
  Document doc;
  if (!scanDocument(src, &doc)) return TSL_ERR_FORMAT;
  const std::string gs = findGhostscript();
  if (gs.empty()) {
    std::snprintf(message, message_size, "%s", kNoGhostscript);
    return TSL_ERR_FORMAT;
  }
  WorkDir dir;
  if (!dir.ok()) return TSL_ERR_CREATE;
  const std::string input = dir.file(doc.kind == Kind::kPdf ? "in.pdf" : "in.ps");
  if (!writeCopy(input, src.data + doc.offset, doc.length)) return TSL_ERR_CREATE;
  int code = TSL_OK;
  const int count = countPages(gs, doc, input, dir, ctx, &code);
  if (code == TSL_STOPPED) return code;
  *pages = count > 0 ? count : 1;
  if (r.page < 0 || (count > 0 && r.page >= count)) {
    std::snprintf(message, message_size, "Page %d does not exist (%d pages)", r.page + 1, *pages);
    return TSL_ERR_BAD_FILE;
  }

  std::vector<std::string> args = commonArgs();
  const int dpi = r.dpi < 10 ? 10 : r.dpi > 2400 ? 2400 : r.dpi;
  args.insert(args.end(), {"-sDEVICE=ppmraw", "-r" + std::to_string(dpi), "-dTextAlphaBits=4",
                           "-dGraphicsAlphaBits=4", "-dFirstPage=" + std::to_string(r.page + 1),
                           "-dLastPage=" + std::to_string(r.page + 1)});
  // The page size decides the picture size: check it before rendering.
  int width_pt = 0, height_pt = 0;
  std::string shift;
  if (r.page_width > 0 && r.page_height > 0) {
    width_pt = r.page_width;
    height_pt = r.page_height;
    args.insert(args.end(), {"-dDEVICEWIDTHPOINTS=" + std::to_string(width_pt),
                             "-dDEVICEHEIGHTPOINTS=" + std::to_string(height_pt), "-dFIXEDMEDIA"});
    if (doc.kind == Kind::kPdf) args.push_back("-dPDFFitPage");
  } else if (doc.kind == Kind::kEps && doc.has_bbox) {
    args.push_back("-dEPSCrop");
    width_pt = doc.urx - doc.llx;
    height_pt = doc.ury - doc.lly;
  } else if (doc.kind == Kind::kPs && doc.has_bbox) {
    // A page the size of the DSC bounding box, the drawing moved onto it.
    width_pt = doc.urx - doc.llx;
    height_pt = doc.ury - doc.lly;
    args.insert(args.end(), {"-dDEVICEWIDTHPOINTS=" + std::to_string(width_pt),
                             "-dDEVICEHEIGHTPOINTS=" + std::to_string(height_pt), "-dFIXEDMEDIA"});
    shift = "<< /BeginPage { pop " + std::to_string(-doc.llx) + " " + std::to_string(-doc.lly) +
            " translate } >> setpagedevice";
  }
  if (width_pt > 0 && ctx &&
      !ctx->sizeAllowed(static_cast<uint64_t>(width_pt) * static_cast<uint64_t>(dpi) / 72 + 1,
                        static_cast<uint64_t>(height_pt) * static_cast<uint64_t>(dpi) / 72 + 1))
    return TSL_ERR_MEMORY;
  const std::string output = dir.file("page.ppm");
  args.push_back("-sOutputFile=" + output);
  if (!shift.empty()) args.insert(args.end(), {"-c", shift});
  args.insert(args.end(), {"-f", input});
  code = runGhostscript(gs, args, dir, dir.file("log.txt"), ctx);
  if (code == TSL_STOPPED) return code;

  // The page as Ghostscript wrote it, through the PPM reader.
  std::string ppm = fileText(output, SIZE_MAX);
  if (ppm.empty()) return code == TSL_OK ? TSL_ERR_CORRUPT : code;
  TslParams params;
  tslDefaultParams(&params);
  params.max_pixels = ctx ? ctx->maxPixels() : 0;
  LoadContext ppm_ctx(params);
  Source page{reinterpret_cast<const uint8_t *>(ppm.data()), ppm.size(), output.c_str()};
  code = kPpmFormat.load(page, picture, ppm_ctx);
  if (code != TSL_OK) {
    tslFree(picture);
    std::memset(picture, 0, sizeof *picture);
    return code;
  }
  picture->attr_pair[0] = picture->attr_pair[1] = static_cast<uint32_t>(dpi);
  if (ctx) ctx->progress(1, 1);
  return TSL_OK;
}

int psInfo(const Source &src, int page, TslFileInfo *info) {
  Document doc;
  if (!scanDocument(src, &doc)) return TSL_ERR_FORMAT;
  TslPicture pic;
  std::memset(&pic, 0, sizeof pic);
  int pages = 1;
  const Render r{72, 0, 0, page};
  const int code = renderPage(src, r, &pic, nullptr, &pages, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  info->width = pic.width;
  info->height = pic.height;
  tslFree(&pic);
  info->bits_per_plane = 8;
  info->planes = 3;
  info->colors = 1L << 24;
  info->color_model = TSL_RGB;
  info->compression = TSL_COMP_OTHER;
  info->dpi_x = info->dpi_y = 72;
  info->pages = pages;
  return TSL_OK;
}

int psLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  const TslParams &p = ctx.params();
  const Render r{p.ps_dpi > 0 ? p.ps_dpi : 72, p.ps_page_width, p.ps_page_height, ctx.page()};
  int pages = 1;
  char message[256] = {0};
  const int code = renderPage(src, r, picture, &ctx, &pages, message, sizeof message);
  if (message[0]) {
    ctx.setMessage("%s", message);
    if (p.flags & TSL_FLAG_APP) std::fprintf(stderr, "%s: %s\n", src.path, message);
  }
  return code;
}

}  // namespace

extern const FormatDef kPsFormat = {
    "ps", "PostScript, EPS and PDF", "ps;eps;epsi;epsf;pdf;ai",
    {{-1, 0, 0, 0}},
    kMagicStrong, true, psSniff, psInfo, psLoad, nullptr, nullptr};

}  // namespace tessel
