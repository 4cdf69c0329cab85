// File list of the browser: reading, sorting, texts and quick refresh.
#include "browser/filelist.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unordered_map>

namespace quilla {

void SetEntryInfo(FileEntry *entry, const TslFileInfo &info) {
  entry->info = info;
  entry->info.comment = nullptr;
  entry->info.delays = nullptr;
}

namespace {

// The extension rule's text of a name: behind the last dot when that dot is
// not the first character; for a name without one, the name from its second
// character.
const char *extensionText(const char *name, bool *has) {
  const char *dot = std::strrchr(name, '.');
  *has = dot && dot != name;
  if (*has) return dot + 1;
  return name[0] ? name + 1 : name;
}

int compareByKey(const FileEntry &a, const FileEntry &b, int key) {
  switch (key) {
    case kSortExtension: {
      bool ha, hb;
      const char *ea = extensionText(a.name, &ha), *eb = extensionText(b.name, &hb);
      if (!ha && hb) return -5000;
      if (ha && !hb) return 5000;
      int r = std::strcmp(ea, eb);
      return r ? r : std::strcmp(a.name, b.name);
    }
    case kSortDate:
      if (a.mtime != b.mtime) return a.mtime < b.mtime ? -1 : 1;
      return std::strcmp(a.name, b.name);
    case kSortSize: {
      // Sizes compare as signed 32-bit values.
      const int32_t sa = static_cast<int32_t>(a.size), sb = static_cast<int32_t>(b.size);
      if (sa != sb) return sa < sb ? -1 : 1;
      return std::strcmp(a.name, b.name);
    }
    case kSortType: {
      const bool ka = (a.state & kStateKnown) != 0, kb = (b.state & kStateKnown) != 0;
      if (ka != kb) return ka ? -1 : 1;
      const char *fa = ka ? tslFormatGetName(a.info.format) : "";
      const char *fb = kb ? tslFormatGetName(b.info.format) : "";
      int r = std::strcmp(fa, fb);
      return r ? r : std::strcmp(a.name, b.name);
    }
    case kSortDescription:
      if (!a.has_description) return 1;
      if (!b.has_description) return -1;
      return std::strcmp(a.description.c_str(), b.description.c_str());
    default:
      return std::strcmp(a.name, b.name);
  }
}

struct SortContext {
  const std::vector<FileEntry> *entries;
  int setting;
};

int compareOrder(const void *pa, const void *pb, void *ctx) {
  const SortContext *c = static_cast<const SortContext *>(ctx);
  return CompareEntries((*c->entries)[*static_cast<const int *>(pa)], (*c->entries)[*static_cast<const int *>(pb)],
                        c->setting);
}

// Reads every name of a directory but "." into entries; false when the
// directory cannot be opened.
bool readEntries(const std::string &dir, const DescriptionLookup &describe, std::vector<FileEntry> *out) {
  DIR *d = ::opendir(dir.c_str());
  if (!d) return false;
  const int fd = ::dirfd(d);
  out->clear();
  out->reserve(64);
  while (const dirent *de = ::readdir(d)) {
    if (std::strcmp(de->d_name, ".") == 0) continue;
    FileEntry e;
    std::snprintf(e.name, sizeof e.name, "%s", de->d_name);
    struct stat st;
    std::memset(&st, 0, sizeof st);
    // An entry whose status cannot be read is still listed.
    ::fstatat(fd, de->d_name, &st, AT_SYMLINK_NOFOLLOW);
    if (S_ISDIR(st.st_mode)) e.kind |= kEntryDirectory;
    if (S_ISLNK(st.st_mode)) {
      e.kind |= kEntryLink;
      struct stat target;
      if (::fstatat(fd, de->d_name, &target, 0) == 0 && S_ISDIR(target.st_mode)) e.kind |= kEntryDirectory;
    }
    if (::faccessat(fd, de->d_name, R_OK, 0) != 0) e.kind |= kEntryNoAccess;
    e.mode = st.st_mode;
    e.size = static_cast<uint32_t>(st.st_size);
    e.mtime = static_cast<int32_t>(st.st_mtime);
    e.info.format = -1;
    if (describe) {
      if (const char *text = describe(e.name)) {
        e.has_description = true;
        e.description = text;
      }
    }
    out->push_back(std::move(e));
  }
  ::closedir(d);
  return true;
}

std::string withSlash(const std::string &dir) {
  if (dir.empty()) return "/";
  return dir.back() == '/' ? dir : dir + "/";
}

}  // namespace

int CompareEntries(const FileEntry &a, const FileEntry &b, int setting) {
  if (a.isDotDot()) return -1;
  if (b.isDotDot()) return 1;
  const int key = setting & 0x7f;
  const bool reverse = (setting & kSortReverse) != 0;
  const bool da = a.isDirectory(), db = b.isDirectory();
  if (da != db) return da ? -1 : 1;
  if (da) {
    // Directories stay ascending, except when sorting by name.
    int r = std::strcmp(a.name, b.name);
    return key == kSortName && reverse ? -r : r;
  }
  int r = compareByKey(a, b, key);
  return reverse ? -r : r;
}

bool FileList::read(const std::string &directory, const DescriptionLookup &describe) {
  const std::string dir = withSlash(directory);
  std::vector<FileEntry> fresh;
  if (!readEntries(dir, describe, &fresh)) return false;
  directory_ = dir;
  entries_ = std::move(fresh);
  order_.resize(entries_.size());
  for (size_t i = 0; i < order_.size(); ++i) order_[i] = static_cast<int>(i);
  return true;
}

bool FileList::quickRefresh(const DescriptionLookup &describe, const ThumbnailRelease &release) {
  std::vector<FileEntry> fresh;
  if (!readEntries(directory_, describe, &fresh)) return false;
  // The first old entry of each name.
  std::unordered_map<std::string, size_t> old_index;
  old_index.reserve(entries_.size());
  for (size_t i = 0; i < entries_.size(); ++i) old_index.emplace(entries_[i].name, i);
  for (FileEntry &e : fresh) {
    auto it = old_index.find(e.name);
    if (it == old_index.end()) continue;
    FileEntry &old = entries_[it->second];
    e.selected = old.selected;  // the user's selection outlives a refresh, changed file or not
    if (old.mtime != e.mtime || old.size != e.size) continue;
    e.info = old.info;
    e.state = old.state;
    e.large = old.large;
    e.small = old.small;
    old.large = Thumbnail();
    old.small = Thumbnail();
  }
  if (release) {
    for (const FileEntry &old : entries_) {
      if (old.large.handle) release(old.large);
      if (old.small.handle) release(old.small);
    }
  }
  entries_ = std::move(fresh);
  order_.resize(entries_.size());
  for (size_t i = 0; i < order_.size(); ++i) order_[i] = static_cast<int>(i);
  return true;
}

void FileList::removeIf(const std::function<bool(const FileEntry &)> &drop) {
  entries_.erase(std::remove_if(entries_.begin(), entries_.end(), drop), entries_.end());
  order_.resize(entries_.size());
  for (size_t i = 0; i < order_.size(); ++i) order_[i] = static_cast<int>(i);
}

void FileList::sort(int setting) {
  for (size_t i = 0; i < order_.size(); ++i) order_[i] = static_cast<int>(i);
  const int key = setting & 0x7f;
  if (key < kSortName || key > kSortDescription || order_.size() < 2) return;
  // The C library's sort copes with the description rule, which is not a
  // strict order when both descriptions are missing.
  SortContext ctx{&entries_, setting};
  ::qsort_r(order_.data(), order_.size(), sizeof(int), compareOrder, &ctx);
}

int FileList::selectedCount(uint64_t *bytes) const {
  int n = 0;
  uint64_t sum = 0;
  for (const FileEntry &e : entries_) {
    if (!e.selected) continue;
    ++n;
    sum += e.size;
  }
  if (bytes) *bytes = sum;
  return n;
}

std::string SizeText(uint64_t bytes) {
  char buf[64];
  const double v = static_cast<double>(bytes);
  if (bytes < 1024) std::snprintf(buf, sizeof buf, "%ld bytes", static_cast<long>(bytes));
  else if (bytes < 1048576) std::snprintf(buf, sizeof buf, "%.2lf Kb", v / 1024);
  else if (bytes < 1073741824) std::snprintf(buf, sizeof buf, "%.2lf Mb", v / 1048576);
  else std::snprintf(buf, sizeof buf, "%.2lf Gb", v / 1073741824);
  return buf;
}

bool QueryDiskSpace(const std::string &directory, DiskSpace *out) {
  struct statfs fs;
  if (::statfs(directory.c_str(), &fs) != 0) return false;
  out->total = static_cast<uint64_t>(fs.f_blocks) * static_cast<uint64_t>(fs.f_bsize);
  out->available = static_cast<uint64_t>(fs.f_bavail) * static_cast<uint64_t>(fs.f_bsize);
  return true;
}

std::string StatusText(int objects, int selected, uint64_t selected_bytes, const DiskSpace *space) {
  char buf[256];
  if (selected > 1)
    std::snprintf(buf, sizeof buf, "%d object(s) / %s in %d selected file(s)", objects,
                  SizeText(selected_bytes).c_str(), selected);
  else if (!space)
    std::snprintf(buf, sizeof buf, "%d object(s)", objects);
  else
    std::snprintf(buf, sizeof buf, "%d object(s) [ Total: %s / Free: %s ]", objects, SizeText(space->total).c_str(),
                  SizeText(space->available).c_str());
  return buf;
}

std::string StatusText(const FileList &list) {
  uint64_t bytes = 0;
  const int selected = list.selectedCount(&bytes);
  DiskSpace space;
  const bool known = selected <= 1 && QueryDiskSpace(list.directory(), &space);
  return StatusText(list.count(), selected, bytes, known ? &space : nullptr);
}

std::string PropertiesText(const FileEntry &e) {
  if (!(e.state & kStateKnown)) return "";
  char buf[64];
  const int bits = e.info.bits_per_plane * e.info.planes;
  if (bits > 23)
    std::snprintf(buf, sizeof buf, "%dx%d,16M", static_cast<int>(e.info.width), static_cast<int>(e.info.height));
  else
    std::snprintf(buf, sizeof buf, "%dx%d,%d", static_cast<int>(e.info.width), static_cast<int>(e.info.height),
                  1 << (bits < 0 ? 0 : bits));
  return buf;
}

std::string TypeText(const FileEntry &e) {
  if (e.isDirectory()) return "Directory";
  if (e.state & kStateUnreadable) return "Unknown";
  if (e.state & kStateKnown) return tslFormatGetName(e.info.format);
  if (e.kind & kEntryLink) return "Link";
  return "";
}

}  // namespace quilla
