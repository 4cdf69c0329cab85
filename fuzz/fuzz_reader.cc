// Fuzz target for the picture readers of libtessel.
//
// Built with -fsanitize=fuzzer it is one target per format (FUZZ_FORMAT is
// the format's short name): every input is loaded with that format forced,
// loaded again with format detection, and described by tslFileInformation.
// Built with FUZZ_REPLAY it is the plain program fuzz_replay, which runs the
// same three calls for every file of the given corpus directories and every
// readable format, so the corpora can be replayed without libFuzzer (and
// under AddressSanitizer/UBSan with -DQUILLA_SANITIZE=ON).
#include <dirent.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "exif.h"
#include "tessel.h"

namespace {

// Pictures above this many pixels fail with "Not enough memory" instead of
// spending the fuzzer's time and memory on them.
constexpr uint64_t kMaxPixels = 1u << 24;

// The input as a file: an anonymous memory file, seen through /proc.
class MemFile {
 public:
  MemFile(const uint8_t *data, size_t size) {
    fd_ = memfd_create("fuzz", MFD_CLOEXEC);
    if (fd_ < 0) return;
    size_t done = 0;
    while (done < size) {
      ssize_t n = ::write(fd_, data + done, size - done);
      if (n <= 0) break;
      done += static_cast<size_t>(n);
    }
    path_ = "/proc/self/fd/" + std::to_string(fd_);
  }
  ~MemFile() {
    if (fd_ >= 0) ::close(fd_);
  }
  const char *path() const { return path_.c_str(); }
  bool ok() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
  std::string path_;
};

int g_failures = 0;

void Check(int code, const char *what, const char *path) {
  // Every outcome must be one of the library's codes.
  if (code < 0 || code > TSL_STOPPED || (code > TSL_ERR_JPEG && code != TSL_STOPPED)) {
    std::fprintf(stderr, "%s: %s returned %d\n", path, what, code);
    ++g_failures;
  }
}

void CheckPicture(const TslPicture &p, const char *path) {
  if (!p.pixels) return;
  const int bpp = tslBytesPerPixel(p.color_model);
  uint64_t need = p.color_model == TSL_BINARY ? (static_cast<uint64_t>(p.width) + 7) / 8
                                               : static_cast<uint64_t>(p.width) * bpp;
  if (p.width == 0 || p.height == 0 || bpp == 0 || p.bytes_per_line < need ||
      (p.color_model == TSL_INDEXED && !p.palette)) {
    std::fprintf(stderr, "%s: inconsistent picture %ux%u model %d line %u\n", path, p.width, p.height, p.color_model,
                 p.bytes_per_line);
    ++g_failures;
    return;
  }
  // Touch the last row so that a short buffer shows under ASan.
  volatile uint8_t sink = p.pixels[static_cast<size_t>(p.height - 1) * p.bytes_per_line + need - 1];
  (void)sink;
}

void LoadWith(const char *path, int format, const char *label) {
  TslParams params;
  tslDefaultParams(&params);
  params.format = format;
  params.max_pixels = kMaxPixels;
  params.width = 64;  // headerless formats need a geometry
  params.height = 64;
  TslPicture pic;
  std::memset(&pic, 0, sizeof pic);
  int code = tslLoad(path, &pic, &params);
  Check(code, label, path);
  if (code == TSL_OK) CheckPicture(pic, path);
  tslFree(&pic);
  // The same with the damaged-file policy, which takes other paths.
  params.flags |= TSL_FLAG_KEEP_DAMAGED;
  code = tslLoad(path, &pic, &params);
  Check(code, label, path);
  if (code == TSL_OK) CheckPicture(pic, path);
  tslFree(&pic);
}

// The EXIF orientation parsers straight on the bytes: as a bare block, and
// as the PNG and WebP files that carry one.
void ExerciseExif(const uint8_t *data, size_t size) {
  const int found[] = {tessel::exifOrientation(data, size), tessel::pngExifOrientation(data, size),
                       tessel::webpExifOrientation(data, size)};
  for (int o : found)
    if (o < 0 || o > 8) {
      std::fprintf(stderr, "EXIF orientation %d out of range\n", o);
      ++g_failures;
    }
}

void Exercise(const uint8_t *data, size_t size, int format) {
  MemFile file(data, size);
  if (!file.ok()) return;
  LoadWith(file.path(), format, "tslLoad (forced)");
  TslFileInfo info;
  int code = tslFileInformation(file.path(), format, 0, &info);
  Check(code, "tslFileInformation", file.path());
  if (code == TSL_OK && info.comment) (void)std::strlen(info.comment);
  tslFileInformationFree(&info);
}

}  // namespace

#ifndef FUZZ_REPLAY

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  tslInitLibrary();
  tslSetMaxPixels(kMaxPixels);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  ExerciseExif(data, size);
  static const int format = tslFormatGetIndex(FUZZ_FORMAT);
  if (format < 0) return 0;
  Exercise(data, size, format);
  static int n = 0;
  if (++n % 4 == 0) {
    // Detection too, on a quarter of the inputs (it tries every sniffer).
    MemFile file(data, size);
    if (file.ok()) LoadWith(file.path(), -1, "tslLoad (detected)");
  }
  if (g_failures) std::abort();
  return 0;
}

#else

namespace {

void Collect(const std::string &path, std::vector<std::string> *files) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return;
  if (!S_ISDIR(st.st_mode)) {
    files->push_back(path);
    return;
  }
  DIR *dir = ::opendir(path.c_str());
  if (!dir) return;
  while (dirent *e = ::readdir(dir)) {
    if (e->d_name[0] == '.') continue;
    Collect(path + "/" + e->d_name, files);
  }
  ::closedir(dir);
}

bool ReadAll(const std::string &path, std::vector<uint8_t> *data) {
  FILE *f = std::fopen(path.c_str(), "rb");
  if (!f) return false;
  data->clear();
  uint8_t buf[65536];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) data->insert(data->end(), buf, buf + n);
  std::fclose(f);
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: fuzz_replay DIR_OR_FILE...\n");
    return 2;
  }
  tslInitLibrary();
  tslSetMaxPixels(kMaxPixels);
  std::vector<std::string> files;
  for (int k = 1; k < argc; ++k) Collect(argv[k], &files);
  if (files.empty()) {
    std::fprintf(stderr, "fuzz_replay: no input files\n");
    return 2;
  }
  std::vector<uint8_t> data;
  for (const std::string &path : files) {
    if (!ReadAll(path, &data)) continue;
    const int before = g_failures;
    ExerciseExif(data.data(), data.size());
    for (int f = 0; f < tslCount(); ++f)
      if (tslFormatIsSupported(f)) Exercise(data.data(), data.size(), f);
    MemFile file(data.data(), data.size());
    if (file.ok()) LoadWith(file.path(), -1, "tslLoad (detected)");
    if (g_failures != before) std::fprintf(stderr, "fuzz_replay: failing input %s\n", path.c_str());
  }
  std::printf("fuzz_replay: %zu files x %d formats, %d failures\n", files.size(), tslCount(), g_failures);
  return g_failures ? 1 : 0;
}

#endif
