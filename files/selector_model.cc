// The file selector's model: everything it decides without a display.
#include "files/selector_model.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tessel.h"

namespace quilla {

namespace {

bool Exists(const std::string &path, struct stat *st) { return ::stat(path.c_str(), st) == 0; }

bool IsDirectory(const std::string &path) {
  struct stat st;
  return Exists(path, &st) && S_ISDIR(st.st_mode);
}

std::string Join(const std::string &dir, const std::string &name) {
  if (dir.empty()) return name;
  return dir.back() == '/' ? dir + name : dir + "/" + name;
}

std::string Lower(std::string s) {
  for (char &c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string Home() {
  const char *home = std::getenv("HOME");
  return home && *home ? home : "/";
}

bool ByName(const SelectorEntry &a, const SelectorEntry &b) { return a.name < b.name; }

}  // namespace

std::string SelectorListLine(const SelectorEntry &e) {
  if (!e.has_time) return e.name;
  struct tm t {};
  localtime_r(&e.mtime, &t);
  const int day = t.tm_mday, month = t.tm_mon + 1, year = t.tm_year % 100, hour = t.tm_hour, minute = t.tm_min;
  char buf[4400];
  if (e.kind == kEntryLink) {
    std::snprintf(buf, sizeof buf, "%-30s %-8s %02d/%02d/%02d %02d:%02d", e.name.c_str(), "Link", day, month, year,
                  hour, minute);
  } else if ((e.kind == kEntryCharDevice || e.kind == kEntryBlockDevice) && e.has_numbers) {
    std::snprintf(buf, sizeof buf, "%-30s %-8s %02d/%02d/%02d %02d:%02d    %-2d %-2d %-2d", e.name.c_str(), "", day,
                  month, year, hour, minute, e.numbers[0], e.numbers[1], e.numbers[2]);
  } else {
    std::snprintf(buf, sizeof buf, "%-30s % 8lld %02d/%02d/%02d %02d:%02d", e.name.c_str(),
                  static_cast<long long>(e.size), day, month, year, hour, minute);
  }
  return buf;
}

bool ReadSelectorDirectory(const std::string &dir, std::vector<SelectorEntry> *dirs,
                           std::vector<SelectorEntry> *files) {
  dirs->clear();
  files->clear();
  DIR *d = ::opendir(dir.c_str());
  if (!d) return false;
  while (struct dirent *de = ::readdir(d)) {
    const std::string name = de->d_name;
    if (name == "." || (name[0] == '.' && name != "..")) continue;
    if (name == ".." && dir == "/") continue;
    const std::string path = Join(dir, name);
    struct stat lst, st;
    if (::lstat(path.c_str(), &lst) != 0) continue;
    const bool link = S_ISLNK(lst.st_mode);
    const bool target = ::stat(path.c_str(), &st) == 0;
    SelectorEntry e;
    e.name = name;
    if (target && S_ISDIR(st.st_mode)) {
      e.kind = kEntryDirectory;
      dirs->push_back(e);
      continue;
    }
    const struct stat &s = target ? st : lst;
    e.has_time = true;
    e.mtime = s.st_mtime;
    e.size = static_cast<int64_t>(s.st_size);
    if (link) {
      e.kind = kEntryLink;
    } else if (S_ISCHR(s.st_mode) || S_ISBLK(s.st_mode)) {
      e.kind = S_ISCHR(s.st_mode) ? kEntryCharDevice : kEntryBlockDevice;
      e.has_numbers = true;
      e.numbers[0] = static_cast<int>(major(s.st_rdev));
      e.numbers[1] = static_cast<int>(minor(s.st_rdev));
      e.numbers[2] = static_cast<int>(s.st_nlink);
    }
    files->push_back(e);
  }
  ::closedir(d);
  std::sort(dirs->begin(), dirs->end(), [](const SelectorEntry &a, const SelectorEntry &b) {
    if ((a.name == "..") != (b.name == "..")) return a.name == "..";
    return a.name < b.name;
  });
  std::sort(files->begin(), files->end(), ByName);
  return true;
}

std::string StripAutomountPrefix(const std::string &path) {
  if (path.compare(0, 9, "/tmp_mnt/") == 0) return path.substr(8);
  return path;
}

std::string AbsoluteSelectorPath(const std::string &path, const std::string &current) {
  std::string full;
  if (path == "~" || path.compare(0, 2, "~/") == 0)
    full = Home() + path.substr(1);
  else if (!path.empty() && path[0] == '/')
    full = path;
  else
    full = Join(current.empty() ? "/" : current, path);
  // Normalise step by step.
  std::vector<std::string> parts;
  size_t i = 0;
  while (i <= full.size()) {
    size_t j = full.find('/', i);
    if (j == std::string::npos) j = full.size();
    const std::string part = full.substr(i, j - i);
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
    i = j + 1;
  }
  std::string out;
  for (const std::string &p : parts) out += "/" + p;
  return out.empty() ? "/" : out;
}

SelectorPlace ResolveSelectorPlace(const std::string &path, const std::string &current, const std::string &last,
                                   const std::string &start) {
  SelectorPlace place;
  if (path.empty()) {
    place.dir = !last.empty() ? last : start;
    return place;
  }
  std::string full = AbsoluteSelectorPath(StripAutomountPrefix(path), current);
  struct stat st;
  if (!Exists(full, &st)) {
    place.dir = start;
    return place;
  }
  if (S_ISDIR(st.st_mode)) {
    place.dir = full;
    return place;
  }
  const size_t slash = full.find_last_of('/');
  place.dir = slash == 0 ? "/" : full.substr(0, slash);
  place.file = full.substr(slash + 1);
  return place;
}

std::vector<std::string> AncestorDirectories(const std::string &dir) {
  std::vector<std::string> out;
  std::string d = dir.empty() ? "/" : dir;
  while (d.size() > 1 && d.back() == '/') d.pop_back();
  while (true) {
    out.push_back(d);
    if (d == "/") break;
    const size_t slash = d.find_last_of('/');
    d = slash == 0 || slash == std::string::npos ? "/" : d.substr(0, slash);
  }
  return out;
}

void RememberDirectory(SettingsRecord *s, const std::string &dir) {
  if (dir.empty() || dir.size() >= static_cast<size_t>(kPathSize)) return;
  std::vector<std::string> keep = {dir};
  for (const std::string &d : RecentDirectories(*s))
    if (d != dir) keep.push_back(d);
  for (int i = 0; i < 10; ++i)
    std::snprintf(s->File.DirName[i], kPathSize, "%s", i < static_cast<int>(keep.size()) ? keep[i].c_str() : "");
}

std::vector<std::string> RecentDirectories(const SettingsRecord &s) {
  std::vector<std::string> out;
  for (int i = 0; i < 10; ++i)
    if (s.File.DirName[i][0]) out.push_back(s.File.DirName[i]);
  return out;
}

std::string CompleteSelectorPath(const std::string &typed, const std::string &current, int *matches) {
  *matches = 0;
  if (typed == "~") {
    *matches = 1;
    return "~/";
  }
  const size_t slash = typed.find_last_of('/');
  const std::string head = slash == std::string::npos ? "" : typed.substr(0, slash + 1);
  const std::string prefix = slash == std::string::npos ? typed : typed.substr(slash + 1);
  std::string dir = head.empty() ? (current.empty() ? "/" : current) : AbsoluteSelectorPath(head, current);
  DIR *d = ::opendir(dir.c_str());
  if (!d) return typed;
  std::vector<std::string> names;
  while (struct dirent *de = ::readdir(d)) {
    const std::string name = de->d_name;
    if (name == "." || name == "..") continue;
    if (name[0] == '.' && (prefix.empty() || prefix[0] != '.')) continue;
    if (name.compare(0, prefix.size(), prefix) == 0) names.push_back(name);
  }
  ::closedir(d);
  *matches = static_cast<int>(names.size());
  if (names.empty()) return typed;
  if (names.size() == 1) {
    std::string out = head + names[0];
    if (IsDirectory(Join(dir, names[0]))) out += "/";
    return out;
  }
  std::string common = names[0];
  for (const std::string &n : names) {
    size_t k = 0;
    while (k < common.size() && k < n.size() && common[k] == n[k]) ++k;
    common.resize(k);
  }
  return head + common;
}

namespace {

bool Recognised(const SettingsRecord *settings, const char *name) {
  if (!settings || !settings->file_types || !name) return true;
  for (int i = 0; i < settings->file_type_count; ++i)
    if (std::strcmp(settings->file_types[i].name, name) == 0) return settings->file_types[i].enabled;
  return true;
}

}  // namespace

std::vector<FileTypeChoice> SelectorFileTypes(bool for_save, const SettingsRecord *recognised) {
  std::vector<FileTypeChoice> out;
  if (!for_save) out.push_back({-1, "All files (*)"});
  std::vector<FileTypeChoice> formats;
  const int n = tslCount();
  for (int f = 0; f < n; ++f) {
    TslFormatInfo info;
    if (tslFormatGetInfo(f, &info) != TSL_OK) continue;
    if (!(info.flags & (for_save ? TSL_CAN_WRITE : TSL_CAN_READ))) continue;
    if (!for_save && !Recognised(recognised, info.name)) continue;
    std::string label = info.description ? info.description : info.name;
    label += " (";
    label += info.extensions ? info.extensions : "";
    label += ")";
    formats.push_back({f, label});
  }
  std::stable_sort(formats.begin(), formats.end(),
                   [](const FileTypeChoice &a, const FileTypeChoice &b) { return Lower(a.label) < Lower(b.label); });
  out.insert(out.end(), formats.begin(), formats.end());
  return out;
}

int FileTypeChoiceFor(const std::vector<FileTypeChoice> &choices, const char *short_name) {
  const int format = short_name && *short_name ? tslFormatGetIndex(short_name) : -1;
  if (format < 0) return 0;
  for (size_t i = 0; i < choices.size(); ++i)
    if (choices[i].format == format) return static_cast<int>(i);
  return 0;
}

bool NameMatchesFormat(const std::string &name, int format) {
  if (format < 0) return true;
  const size_t dot = name.find_last_of('.');
  if (dot == std::string::npos || dot + 1 >= name.size()) return false;
  const std::string ext = Lower(name.substr(dot + 1));
  TslFormatInfo info;
  if (tslFormatGetInfo(format, &info) != TSL_OK || !info.extensions) return false;
  const std::string list = Lower(info.extensions);
  size_t i = 0;
  while (i <= list.size()) {
    size_t j = list.find(';', i);
    if (j == std::string::npos) j = list.size();
    if (list.compare(i, j - i, ext) == 0 && j - i == ext.size()) return true;
    i = j + 1;
  }
  return false;
}

int SaveFormatFor(const std::string &typed, int combo_format) {
  const size_t slash = typed.find_last_of('/');
  const std::string name = slash == std::string::npos ? typed : typed.substr(slash + 1);
  if (name.find('.') != std::string::npos) {
    const int f = tslFormatFromExtension(name.c_str());
    if (f >= 0 && tslFormatIsWritable(f)) return f;
  }
  return combo_format;
}

namespace {

std::string FormatLine(const char *name, const char *read, const char *write, const char *ext) {
  char buf[512];
  std::snprintf(buf, sizeof buf, "%-32s %-4s %-5s %s", name, read, write, ext);
  return buf;
}

}  // namespace

std::string FormatListHeader() { return FormatLine("Name", "Read", "Write", "Extension"); }

std::vector<std::string> FormatListLines(bool by_id) {
  struct Row {
    std::string name, line;
  };
  std::vector<Row> rows;
  const int n = tslCount();
  for (int f = 0; f < n; ++f) {
    TslFormatInfo info;
    if (tslFormatGetInfo(f, &info) != TSL_OK) continue;
    const char *name = info.description ? info.description : info.name;
    rows.push_back({name, FormatLine(name, (info.flags & TSL_CAN_READ) ? "Yes" : "No",
                                     (info.flags & TSL_CAN_WRITE) ? "Yes" : "No", info.extensions ? info.extensions : "")});
  }
  if (!by_id)
    std::stable_sort(rows.begin(), rows.end(), [](const Row &a, const Row &b) { return Lower(a.name) < Lower(b.name); });
  std::vector<std::string> out;
  for (const Row &r : rows) out.push_back(r.line);
  return out;
}

}  // namespace quilla
