// The tsl* calls: format table access, detection, information, load, save,
// multi-page files, and error texts.
#include <fcntl.h>
#include <strings.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "format.h"

using tessel::formatAt;
using tessel::formatCount;
using tessel::FormatDef;

namespace {

// A file's bytes, mapped when it is a regular file, read otherwise.
class InputFile {
 public:
  // Returns TSL_OK, TSL_ERR_OPEN or TSL_ERR_READ.
  int open(const char *path) {
    fd_ = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd_ < 0) return TSL_ERR_OPEN;
    struct stat st;
    if (fstat(fd_, &st) != 0) return TSL_ERR_READ;
    if (S_ISDIR(st.st_mode)) return TSL_ERR_OPEN;
    if (S_ISREG(st.st_mode)) {
      if (st.st_size == 0) return TSL_ERR_READ;
      void *p = mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ, MAP_PRIVATE, fd_, 0);
      if (p == MAP_FAILED) return TSL_ERR_READ;
      map_ = p;
      map_size_ = static_cast<size_t>(st.st_size);
      src_.data = static_cast<const uint8_t *>(p);
      src_.size = map_size_;
    } else {
      uint8_t chunk[65536];
      ssize_t n;
      while ((n = ::read(fd_, chunk, sizeof chunk)) > 0) buffer_.insert(buffer_.end(), chunk, chunk + n);
      if (n < 0 || buffer_.empty()) return TSL_ERR_READ;
      src_.data = buffer_.data();
      src_.size = buffer_.size();
    }
    src_.path = path;
    return TSL_OK;
  }
  ~InputFile() {
    if (map_) munmap(map_, map_size_);
    if (fd_ >= 0) ::close(fd_);
  }
  const tessel::Source &source() const { return src_; }

 private:
  int fd_ = -1;
  void *map_ = nullptr;
  size_t map_size_ = 0;
  std::vector<uint8_t> buffer_;
  tessel::Source src_;
};

bool validFormat(int f) { return f >= 0 && f < formatCount(); }

// The extension of a path (after the last dot of the last component), or "".
const char *extensionOf(const char *path) {
  const char *slash = std::strrchr(path, '/');
  const char *base = slash ? slash + 1 : path;
  const char *dot = std::strrchr(base, '.');
  return dot && dot != base ? dot + 1 : "";
}

bool listHas(const char *list, const char *ext) {
  size_t n = std::strlen(ext);
  if (n == 0) return false;
  const char *p = list;
  while (*p) {
    const char *end = std::strchr(p, ';');
    size_t len = end ? static_cast<size_t>(end - p) : std::strlen(p);
    if (len == n && strncasecmp(p, ext, n) == 0) return true;
    if (!end) break;
    p = end + 1;
  }
  return false;
}

int detect(const tessel::Source &src, const char *path, unsigned flags) {
  const int ext = tslFormatFromExtension(path);
  if (flags & TSL_FLAG_BY_EXTENSION) return ext;
  for (int strength : {tessel::kMagicStrong, tessel::kMagicWeak}) {
    for (int i = 0; i < formatCount(); ++i) {
      const FormatDef &f = formatAt(i);
      if (f.magic == strength && f.sniff && f.load && f.sniff(src.data, src.size)) return i;
    }
  }
  // Formats without a reliable signature are taken on their extension.
  if (ext >= 0 && formatAt(ext).magic != tessel::kMagicStrong) return ext;
  return -1;
}

bool acceptsPicture(const FormatDef &f, const TslPicture *p) {
  for (const TslCapability &c : f.caps) {
    if (c.kind == -1) break;
    bool kind_ok = false;
    if (c.kind == 1) kind_ok = p->color_model == TSL_BINARY;
    else if (c.kind == 2) kind_ok = p->color_model == TSL_GREY;
    else if (c.kind == 4) kind_ok = p->color_model == TSL_INDEXED;
    else if (c.kind == TSL_KIND_TRUECOLOR) kind_ok = TSL_IS_TRUECOLOR(p->color_model);
    if (!kind_ok) continue;
    if ((c.kind == 2 || c.kind == 4) && c.max_colors != -1 && p->colors > c.max_colors) continue;
    if (c.width != -1 && (p->width != static_cast<uint32_t>(c.width) || p->height != static_cast<uint32_t>(c.height)))
      continue;
    return true;
  }
  return false;
}

// Writes go to a temporary file beside the target, renamed over it only when
// complete, so a failed save never replaces a good file.
class OutputFile {
 public:
  int create(const char *path) {
    std::string target = path;
    struct stat st;
    if (lstat(path, &st) == 0 && S_ISLNK(st.st_mode)) {
      char resolved[PATH_MAX];
      if (realpath(path, resolved)) target = resolved;
    }
    if (stat(target.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return TSL_ERR_CREATE;
    final_ = target;
    for (int attempt = 0; attempt < 100; ++attempt) {
      temp_ = final_ + ".tsl" + std::to_string(getpid()) + "_" + std::to_string(attempt) + "~";
      int fd = ::open(temp_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
      if (fd < 0) {
        if (errno == EEXIST) continue;
        return TSL_ERR_CREATE;
      }
      replaces_ = stat(final_.c_str(), &st) == 0;
      if (replaces_) fchmod(fd, st.st_mode & 07777);
      file_ = fdopen(fd, "w+b");
      if (!file_) {
        ::close(fd);
        unlink(temp_.c_str());
        return TSL_ERR_CREATE;
      }
      return TSL_OK;
    }
    return TSL_ERR_CREATE;
  }
  FILE *file() { return file_; }
  // Closes the file; on success renames it into place, else removes it.
  // A file that replaces another reaches the disk before the rename, so a
  // crash just after the save finds the old file or the new one, never an
  // empty one.
  int commit(int code) {
    if (!file_) return code;
    if (code == TSL_OK && (std::fflush(file_) != 0 || std::ferror(file_))) code = TSL_ERR_WRITE;
    if (code == TSL_OK && replaces_ && fsync(fileno(file_)) != 0) code = TSL_ERR_WRITE;
    if (std::fclose(file_) != 0 && code == TSL_OK) code = TSL_ERR_WRITE;
    file_ = nullptr;
    if (code == TSL_OK && std::rename(temp_.c_str(), final_.c_str()) != 0) code = TSL_ERR_CREATE;
    if (code != TSL_OK) unlink(temp_.c_str());
    return code;
  }
  ~OutputFile() { commit(TSL_ERR_INTERNAL); }

 private:
  FILE *file_ = nullptr;
  bool replaces_ = false;  // the target existed when the save began
  std::string final_, temp_;
};

}  // namespace

struct TslFile {
  OutputFile out;
  TslParams params;
  tessel::SaveContext *ctx = nullptr;
  tessel::PageWriter *writer = nullptr;
  int format = -1;
  int error = TSL_OK;
};

extern "C" {

void tslInitLibrary(void) {}
void tslExitLibrary(void) {}
void tslVersion(char *buffer) { std::strcpy(buffer, TSL_VERSION_TEXT); }

int tslCount(void) { return formatCount(); }

int tslFormatGetIndex(const char *name) {
  if (!name) return -1;
  for (int i = 0; i < formatCount(); ++i)
    if (strcasecmp(formatAt(i).name, name) == 0) return i;
  return -1;
}

const char *tslFormatGetName(int f) { return validFormat(f) ? formatAt(f).name : ""; }
const char *tslFormatGetDescription(int f) { return validFormat(f) ? formatAt(f).description : ""; }

const char *tslFormatGetDefaultSuffix(int f) {
  // The default suffix is the first entry of the extension list.
  static thread_local char buffer[32];
  if (!validFormat(f)) return "";
  const char *list = formatAt(f).extensions;
  size_t n = std::strcspn(list, ";");
  if (n >= sizeof buffer) n = sizeof buffer - 1;
  std::memcpy(buffer, list, n);
  buffer[n] = 0;
  return buffer;
}

int tslFormatIsWritable(int f) { return validFormat(f) && formatAt(f).save != nullptr; }
int tslFormatIsSupported(int f) { return validFormat(f) && formatAt(f).load != nullptr; }
int tslFormatIsMultiPage(int f) { return validFormat(f) && formatAt(f).create != nullptr; }

int tslFormatGetInfo(int f, TslFormatInfo *info) {
  if (!validFormat(f) || !info) return TSL_ERR_INTERNAL;
  const FormatDef &d = formatAt(f);
  std::memset(info, 0, sizeof *info);
  std::strncpy(info->name, d.name, 10);
  info->description = d.description;
  info->suffix = tslFormatGetDefaultSuffix(f);
  info->extensions = d.extensions;
  info->flags = (d.load ? TSL_CAN_READ : 0) | (d.save ? TSL_CAN_WRITE : 0) | (d.multi_read ? TSL_MULTI_READ : 0) |
                (d.create ? TSL_MULTI_WRITE : 0);
  for (int i = 0; i < TSL_MAX_CAPS; ++i) {
    info->caps[i] = d.save ? d.caps[i] : TslCapability{-1, 0, 0, 0};
    if (info->caps[i].kind == -1) break;
  }
  info->caps[TSL_MAX_CAPS - 1].kind = -1;
  return TSL_OK;
}

int tslFormatFromExtension(const char *path) {
  if (!path) return -1;
  const char *ext = extensionOf(path);
  for (int i = 0; i < formatCount(); ++i)
    if (formatAt(i).load && listHas(formatAt(i).extensions, ext)) return i;
  return -1;
}

int tslHasGoodExtension(const char *path) {
  InputFile in;
  if (in.open(path) != TSL_OK) return 0;
  int f = detect(in.source(), path, 0);
  return f >= 0 && listHas(formatAt(f).extensions, extensionOf(path));
}

void tslSetCorrectExtension(char *path, int f) {
  if (!path || !validFormat(f)) return;
  const char *ext = extensionOf(path);
  if (listHas(formatAt(f).extensions, ext)) return;
  size_t keep = std::strlen(path) - (*ext ? std::strlen(ext) + 1 : 0);
  std::string result(path, keep);
  result += '.';
  result += tslFormatGetDefaultSuffix(f);
  if (result.size() >= 4096) return;
  std::memcpy(path, result.c_str(), result.size() + 1);
}

void tslDefaultParams(TslParams *p) {
  std::memset(p, 0, sizeof *p);
  p->format = -1;
  p->quality = 90;
  p->transparent_index = -1;
  p->ps_dpi = 72;
  p->grob_bpp = 1;
}

const char *tslGetLabelForColorModel(const TslFileInfo *info) {
  if (!info) return "";
  switch (info->color_model) {
    case TSL_BINARY: return "Binary";
    case TSL_GREY: return "Grey levels";
    case TSL_INDEXED: return "Color palette";
    default: break;
  }
  if (TSL_IS_TRUECOLOR(info->color_model)) return info->has_alpha ? "True color with alpha" : "True color";
  return "Unknown";
}

const char *tslGetFullLabelForCompression(const TslFileInfo *info) {
  static const char *const kLabels[] = {
      "None",           "Run-length (RLE)", "LZW",       "PackBits",         "Deflate (ZIP)",
      "JPEG (baseline)", "JPEG (progressive)", "CCITT modified Huffman RLE", "CCITT Group 3 fax",
      "CCITT Group 4 fax", "WebP lossy",    "WebP lossless", "JPEG 2000 wavelet", "ByteRun1", "Huffman",
      "Other",          "HEVC",             "AV1",       "JPEG XL"};
  if (!info || info->compression < 0 || info->compression > TSL_COMP_JPEGXL) return "Other";
  return kLabels[info->compression];
}

int tslFileInformation(const char *path, int format, int page, TslFileInfo *info) {
  std::memset(info, 0, sizeof *info);
  info->format = -1;
  InputFile in;
  int code = in.open(path);
  if (code != TSL_OK) return code;
  int f = validFormat(format) ? format : detect(in.source(), path, 0);
  if (f < 0 || !formatAt(f).load) return TSL_ERR_FORMAT;
  info->format = f;
  const FormatDef &d = formatAt(f);
  if (d.info) {
    code = d.info(in.source(), page, info);
  } else {
    TslParams params;
    tslDefaultParams(&params);
    params.page = page;
    tessel::LoadContext ctx(params);
    TslPicture pic;
    std::memset(&pic, 0, sizeof pic);
    code = d.load(in.source(), &pic, ctx);
    if (code == TSL_OK) {
      info->width = pic.width;
      info->height = pic.height;
      info->color_model = pic.color_model;
      info->planes = pic.color_model == TSL_BINARY ? 1 : pic.bytes_per_pixel;
      info->bits_per_plane = pic.color_model == TSL_BINARY ? 1 : 8;
      info->colors = TSL_IS_TRUECOLOR(pic.color_model) ? (1L << 24) : pic.colors;
      info->pages = 1;
      tslFree(&pic);
    } else if (ctx.message()[0]) {
      std::snprintf(info->message, sizeof info->message, "%s", ctx.message());
    }
  }
  info->format = f;
  if (info->pages < 1) info->pages = 1;
  return code;
}

int tslFileInformationEx(const char *path, const TslParams *params, TslFileInfo *info) {
  if (!params) return tslFileInformation(path, -1, 0, info);
  std::memset(info, 0, sizeof *info);
  info->format = -1;
  InputFile in;
  int code = in.open(path);
  if (code != TSL_OK) return code;
  const int f = validFormat(params->format) ? params->format : detect(in.source(), path, params->flags);
  if (f < 0 || !formatAt(f).load) return TSL_ERR_FORMAT;
  code = tessel::headerlessInfo(formatAt(f), in.source(), *params, info);
  if (code < 0) return tslFileInformation(path, f, params->page, info);
  info->format = f;
  if (info->pages < 1) info->pages = 1;
  return code;
}

void tslFileInformationFree(TslFileInfo *info) {
  if (!info) return;
  std::free(info->comment);
  std::free(info->delays);
  info->comment = nullptr;
  info->delays = nullptr;
}

int tslLoad(const char *path, TslPicture *picture, const TslParams *params) {
  TslParams defaults;
  if (!params) {
    tslDefaultParams(&defaults);
    params = &defaults;
  }
  std::memset(picture, 0, sizeof *picture);
  InputFile in;
  int code = in.open(path);
  if (code != TSL_OK) return code;
  int f = validFormat(params->format) ? params->format : detect(in.source(), path, params->flags);
  if (f < 0 || !formatAt(f).load) return TSL_ERR_FORMAT;
  tessel::LoadContext ctx(*params);
  code = formatAt(f).load(in.source(), picture, ctx);
  if (code == TSL_OK && ctx.stopped()) code = TSL_STOPPED;
  if (code == TSL_OK && (params->target_width > 0 || params->target_height > 0)) {
    int tw = params->target_width > 0 ? params->target_width : INT_MAX;
    int th = params->target_height > 0 ? params->target_height : INT_MAX;
    code = tessel::reducePicture(picture, tw, th);
  }
  if (code != TSL_OK) {
    tslFree(picture);
    std::memset(picture, 0, sizeof *picture);
  }
  return code;
}

int tslSave(const char *path, const TslPicture *picture, const TslParams *params) {
  TslParams defaults;
  if (!params) {
    tslDefaultParams(&defaults);
    params = &defaults;
  }
  int f = params->format;
  if (!validFormat(f) || !formatAt(f).save) return TSL_ERR_CANT_SAVE;
  if (!picture || !picture->pixels || picture->width == 0 || picture->height == 0) return TSL_ERR_INTERNAL;
  if (!acceptsPicture(formatAt(f), picture)) return TSL_ERR_CANT_SAVE;
  OutputFile out;
  int code = out.create(path);
  if (code != TSL_OK) return code;
  tessel::SaveContext ctx(*params);
  code = formatAt(f).save(out.file(), picture, ctx);
  return out.commit(code);
}

int tslFileCreate(TslFile **file, const char *path, int f, int pages, const TslParams *params) {
  *file = nullptr;
  if (!validFormat(f) || !formatAt(f).create) return TSL_ERR_CANT_SAVE;
  auto *tf = new TslFile;
  if (params) tf->params = *params;
  else tslDefaultParams(&tf->params);
  tf->params.format = f;
  tf->format = f;
  int code = tf->out.create(path);
  if (code != TSL_OK) {
    delete tf;
    return code;
  }
  tf->ctx = new tessel::SaveContext(tf->params);
  int error = TSL_OK;
  tf->writer = formatAt(f).create(tf->out.file(), pages, *tf->ctx, &error);
  if (!tf->writer) {
    tf->out.commit(error ? error : TSL_ERR_WRITE);
    delete tf->ctx;
    delete tf;
    return error ? error : TSL_ERR_WRITE;
  }
  *file = tf;
  return TSL_OK;
}

int tslFileAddPicture(TslFile *file, const TslPicture *picture, const TslParams *params) {
  if (!file || !file->writer) return TSL_ERR_INTERNAL;
  if (!picture || !picture->pixels) return TSL_ERR_INTERNAL;
  if (!acceptsPicture(formatAt(file->format), picture)) return TSL_ERR_CANT_SAVE;
  // Per-page settings (compression of this page) come from the caller's parameters.
  if (params) {
    file->params.compression = params->compression;
    file->params.quality = params->quality;
    file->params.progressive = params->progressive;
    file->params.transparent_index = params->transparent_index;
  }
  int code = file->writer->add(picture, *file->ctx);
  if (code != TSL_OK) file->error = code;
  return code;
}

int tslFileClose(TslFile *file) {
  if (!file) return TSL_ERR_INTERNAL;
  int code = file->writer->finish();
  delete file->writer;
  code = file->out.commit(code);
  delete file->ctx;
  delete file;
  return code;
}

uint16_t tslFileReadWordLsbf(FILE *stream) {
  int lo = std::fgetc(stream);
  int hi = std::fgetc(stream);
  if (lo == EOF || hi == EOF) return 0;
  return static_cast<uint16_t>(lo | hi << 8);
}

void tslErrorText(char *buffer, size_t size, const char *path, int code, const char *message) {
  const char *text;
  switch (code & 0xff) {
    case 1: text = "Not enough memory"; break;
    case 2: text = "Don't know how to read \n<%s>"; break;
    case 3: text = "Can't open file \n<%s>"; break;
    case 4: text = "Can't read file \n<%s>"; break;
    case 5: text = "Can't create file \n<%s>"; break;
    case 6: text = "Can't write file \n<%s>"; break;
    case 8: text = "Can't save in this format !!"; break;
    case 9:
      std::snprintf(buffer, size, "%s", message && *message ? message : "Bad picture file");
      return;
    case 10: text = "Corrupt image"; break;
    case 11: text = "Problem with JPEG"; break;
    default: text = "Contact your dealer"; break;
  }
  std::snprintf(buffer, size, text, path ? path : "");
}

}  // extern "C"
