// Multi-page file creation without the dialog.
#include "files/multi_model.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <tuple>

#include "files/load_model.h"
#include "imgproc/path_text.h"
#include "tessel.h"

namespace quilla {

namespace {

std::string Extension(const std::string &path) {
  const std::string name = FileNamePart(path);
  const size_t dot = name.find_last_of('.');
  return dot == std::string::npos || dot == 0 ? std::string() : name.substr(dot + 1);
}

bool Flush(const std::string &path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool ok = ::fsync(fd) == 0;
  ::close(fd);
  return ok;
}

}  // namespace

std::string MultiOutputPath(const std::string &path, int format) {
  // Any dot, in a directory name too, counts: the single save's rule.
  if (path.find('.') != std::string::npos) return path;
  const char *suffix = tslFormatGetDefaultSuffix(format);
  return suffix && *suffix ? path + "." + suffix : path;
}

std::vector<int> MultiPageFormats() {
  std::vector<int> out;
  for (int f = 0; f < tslCount(); ++f)
    if (tslFormatIsMultiPage(f)) out.push_back(f);
  return out;
}

void SortMultiInputs(std::vector<std::string> *paths, MultiSort key, bool descending) {
  struct Item {
    std::string path;
    long long time, size;
  };
  std::vector<Item> items;
  for (const std::string &p : *paths) {
    struct stat st;
    const bool ok = ::stat(p.c_str(), &st) == 0;
    items.push_back({p, ok ? static_cast<long long>(st.st_mtime) : 0, ok ? static_cast<long long>(st.st_size) : 0});
  }
  auto less = [key](const Item &a, const Item &b) {
    const std::string na = FileNamePart(a.path), nb = FileNamePart(b.path);
    switch (key) {
      case MultiSort::kDate: return std::tie(a.time, na) < std::tie(b.time, nb);
      case MultiSort::kSize: return std::tie(a.size, na) < std::tie(b.size, nb);
      case MultiSort::kExtension: {
        const std::string ea = Extension(a.path), eb = Extension(b.path);
        return std::tie(ea, na) < std::tie(eb, nb);
      }
      case MultiSort::kName: break;
    }
    return na < nb;
  };
  std::stable_sort(items.begin(), items.end(), [&](const Item &a, const Item &b) {
    return descending ? less(b, a) : less(a, b);
  });
  for (size_t i = 0; i < items.size(); ++i) (*paths)[i] = items[i].path;
}

std::vector<std::string> PicturesInFolder(const std::string &dir) {
  std::vector<std::string> out;
  const std::string base = dir.empty() || dir.back() == '/' ? dir : dir + "/";
  DIR *d = ::opendir(dir.c_str());
  if (!d) return out;
  while (dirent *e = ::readdir(d)) {
    const std::string path = base + e->d_name;
    struct stat st;
    if (e->d_name[0] == '.' || ::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
    const int format = tslFormatFromExtension(path.c_str());
    if (format >= 0 && tslFormatIsSupported(format)) out.push_back(path);
  }
  ::closedir(d);
  std::sort(out.begin(), out.end());
  return out;
}

MultiResult CreateMultiPage(const SettingsRecord &settings, const std::string &output, int format,
                            const std::vector<std::string> &inputs, const std::function<void(size_t)> &progress) {
  MultiResult r;
  r.path = MultiOutputPath(output, format);
  const char *name = tslFormatGetName(format);
  const std::string short_name = name ? name : "";
  TslParams params;
  tslDefaultParams(&params);
  params.format = format;
  // A hidden temporary beside the target: the target is replaced only by a
  // closed and flushed file.
  const size_t slash = r.path.find_last_of('/');
  const std::string dir = slash == std::string::npos ? "" : r.path.substr(0, slash + 1);
  std::string temp = dir + "." + FileNamePart(r.path) + ".XXXXXX";
  const int fd = ::mkostemp(&temp[0], O_CLOEXEC);
  if (fd < 0) {
    r.code = TSL_ERR_CREATE;
    r.error = LoadErrorText(r.path.c_str(), r.code, nullptr);
    return r;
  }
  const mode_t mask = ::umask(0);
  ::umask(mask);
  ::fchmod(fd, 0666 & ~mask);
  ::close(fd);
  TslFile *file = nullptr;
  r.code = tslFileCreate(&file, temp.c_str(), format, static_cast<int>(inputs.size()), &params);
  if (r.code != TSL_OK || !file) {
    if (r.code == TSL_OK) r.code = TSL_ERR_CREATE;
    r.error = LoadErrorText(r.path.c_str(), r.code, nullptr);
    ::unlink(temp.c_str());
    return r;
  }
  for (size_t i = 0; i < inputs.size() && r.code == TSL_OK; ++i) {
    if (progress) progress(i);
    TslParams load;
    tslDefaultParams(&load);
    TslPicture pic{};
    r.code = tslLoad(inputs[i].c_str(), &pic, &load);
    if (r.code != TSL_OK) {
      // The library's own words for a bad file come with its information.
      TslFileInfo info{};
      tslFileInformation(inputs[i].c_str(), -1, 0, &info);
      r.error = LoadErrorText(inputs[i].c_str(), r.code, info.message[0] ? info.message : nullptr);
      // The texts without the path ("Corrupt image") get it below them.
      if (r.error.find(inputs[i]) == std::string::npos) r.error += "\n<" + inputs[i] + ">";
      tslFileInformationFree(&info);
      tslFree(&pic);
      break;
    }
    TslParams write = params;
    if (short_name == "dcx") {
      write.compression = settings.Save.PcxCompress;
    } else if (short_name == "tiff") {
      // As stored: the single-file save's renumbering of the bilevel
      // methods is not applied here.
      write.compression = pic.color_model == TSL_BINARY ? settings.Save.TiffBinaryCompress : settings.Save.TiffCompress;
    }
    r.code = tslFileAddPicture(file, &pic, &write);
    tslFree(&pic);
    if (r.code != TSL_OK) {
      r.error = LoadErrorText(r.path.c_str(), r.code, nullptr);
      break;
    }
    ++r.pages;
  }
  // Closed also after an error: the pages added so far stay.
  const int closed = tslFileClose(file);
  if (closed != TSL_OK || !Flush(temp) || std::rename(temp.c_str(), r.path.c_str()) != 0) {
    ::unlink(temp.c_str());
    if (r.code == TSL_OK) {
      r.code = closed != TSL_OK ? closed : TSL_ERR_WRITE;
      r.error = LoadErrorText(r.path.c_str(), r.code, nullptr);
    }
    r.pages = 0;
  }
  return r;
}

}  // namespace quilla
