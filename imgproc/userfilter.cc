// User-defined filters: file format, list operations and application.
#include "imgproc/userfilter.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "imgproc/filters.h"

#ifndef QUILLA_DATADIR
#define QUILLA_DATADIR "/usr/local/share"
#endif

namespace quilla {

const char kUserFilterHeader[] = "# Quilla UDF v1.0 (do not edit)\n";

namespace {

int16_t toShort(long v) {
  return static_cast<int16_t>(v < INT16_MIN ? INT16_MIN : v > INT16_MAX ? INT16_MAX : v);
}

// A decimal integer made of the whole of [s, e): optional sign, then digits.
bool wholeInteger(const char *s, const char *e, long *out) {
  if (s == e) return false;
  const char *p = s;
  if (*p == '+' || *p == '-') ++p;
  if (p == e) return false;
  for (const char *q = p; q < e; ++q)
    if (!std::isdigit(static_cast<unsigned char>(*q))) return false;
  errno = 0;
  long v = std::strtol(s, nullptr, 10);
  if (errno == ERANGE) v = *s == '-' ? -100000 : 100000;
  *out = v;
  return true;
}

void setName(UserFilter *f, const char *name, size_t len) {
  len = std::min<size_t>(len, sizeof f->name - 1);
  std::memcpy(f->name, name, len);
  f->name[len] = 0;
}

}  // namespace

bool ParseUserFilterLine(const char *line, UserFilter *out) {
  if (line[0] == '#') return false;
  const char *bar = std::strchr(line, '|');
  if (!bar) return false;
  std::memset(out, 0, sizeof *out);
  setName(out, line, static_cast<size_t>(bar - line));

  // size, divisor and bias up to the second bar
  const char *p = bar + 1;
  const char *bar2 = std::strchr(p, '|');
  const char *end3 = bar2 ? bar2 : p + std::strlen(p);
  long head[3] = {0, 0, 0};
  for (int k = 0; k < 3; ++k) {
    while (p < end3 && (*p == ' ' || *p == '\t')) ++p;
    const char *s = p;
    while (p < end3 && *p != ' ' && *p != '\t') ++p;
    std::string token(s, p);
    head[k] = std::strtol(token.c_str(), nullptr, 10);
  }
  long size = head[0], divisor = head[1];
  out->size = static_cast<int16_t>(size < 3 || size > kUserFilterMaxSize ? 3 : size);
  out->divisor = toShort(divisor == 0 ? 1 : divisor);
  if (out->divisor == 0) out->divisor = 1;
  out->bias = toShort(head[2]);
  if (!bar2) return true;

  // the weights: integers, or runs written value x count
  const int want = out->size * out->size;
  int have = 0;
  p = bar2 + 1;
  while (have < want) {
    while (*p == ' ' || *p == '\t' || *p == '\r' || *p == '\n') ++p;
    if (!*p) break;
    const char *s = p;
    while (*p && *p != ' ' && *p != '\t' && *p != '\r' && *p != '\n') ++p;
    const char *x = static_cast<const char *>(std::memchr(s, 'x', static_cast<size_t>(p - s)));
    long value, count;
    if (x && wholeInteger(s, x, &value) && wholeInteger(x + 1, p, &count)) {
      for (long k = 0; k < count && have < want; ++k) out->values[have++] = toShort(value);
    } else {
      std::string token(s, p);
      out->values[have++] = toShort(std::strtol(token.c_str(), nullptr, 10));
    }
  }
  return true;
}

std::string FormatUserFilterLine(const UserFilter &f) {
  char buf[96];
  std::snprintf(buf, sizeof buf, "%s | %d %d %d | ", f.name, f.size, f.divisor, f.bias);
  std::string out = buf;
  const int size = f.size < 1 ? 0 : std::min<int>(f.size, kUserFilterMaxSize);
  const int n = size * size;
  for (int k = 0; k < n;) {
    int run = 1;
    while (k + run < n && f.values[k + run] == f.values[k]) ++run;
    if (run > 1)
      std::snprintf(buf, sizeof buf, "%dx%d ", f.values[k], run);
    else
      std::snprintf(buf, sizeof buf, "%d ", f.values[k]);
    out += buf;
    k += run;
  }
  out += "\n";
  return out;
}

void SortUserFilters(UserFilterList *list) {
  std::stable_sort(list->filters.begin(), list->filters.end(),
                   [](const UserFilter &a, const UserFilter &b) { return std::strcmp(a.name, b.name) < 0; });
}

int ReadUserFilterFile(const char *path, UserFilterList *list) {
  FILE *f = std::fopen(path, "r");
  if (!f) return 0;
  char line[128];
  bool first = true;
  while (std::fgets(line, sizeof line, f)) {
    if (first) {  // the header, whatever it holds
      first = false;
      continue;
    }
    UserFilter filter;
    if (!ParseUserFilterLine(line, &filter)) continue;
    try {
      list->filters.push_back(filter);
    } catch (...) {
      break;
    }
  }
  std::fclose(f);
  SortUserFilters(list);
  return 1;
}

int WriteUserFilterFile(const char *path, const UserFilterList &list) {
  std::string text = kUserFilterHeader;
  for (const UserFilter &f : list.filters) text += FormatUserFilterLine(f);
  std::string temp = std::string(path) + ".tmp";
  FILE *f = std::fopen(temp.c_str(), "w");
  if (!f) return 0;
  bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
  ok = std::fclose(f) == 0 && ok;
  if (!ok || std::rename(temp.c_str(), path) != 0) {
    std::remove(temp.c_str());
    return 0;
  }
  return 1;
}

std::vector<std::string> DefaultUserFilterPaths() {
  std::vector<std::string> paths = {"/usr/share/Quilla/Filters/udf-def.dat"};
  char exe[4096];
  const ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
  if (n > 0) {
    std::string bin(exe, static_cast<size_t>(n));
    const size_t slash = bin.rfind('/');
    if (slash != std::string::npos) {
      const std::string beside = bin.substr(0, slash) + "/../share/Quilla/Filters/udf-def.dat";
      if (beside != paths[0]) paths.push_back(beside);
    }
  }
  std::string installed = std::string(QUILLA_DATADIR) + "/Quilla/Filters/udf-def.dat";
  if (installed != paths[0]) paths.push_back(installed);
  return paths;
}

int LoadUserFilters(const char *home, UserFilterList *list) {
  return LoadUserFilters(home, list, DefaultUserFilterPaths());
}

int LoadUserFilters(const char *home, UserFilterList *list, const std::vector<std::string> &default_paths) {
  list->filters.clear();
  list->modified = false;
  list->path = std::string(home ? home : "") + "/.quilla/udf.dat";
  if (ReadUserFilterFile(list->path.c_str(), list)) return 1;
  for (const std::string &p : default_paths) {
    list->filters.clear();
    if (ReadUserFilterFile(p.c_str(), list)) return 1;
  }
  list->filters.clear();
  return 0;
}

int AddUserFilter(UserFilterList *list, const char *name, const UserFilter &filter) {
  UserFilter f = filter;
  setName(&f, name, std::strlen(name));
  if (f.divisor == 0) f.divisor = 1;
  try {
    list->filters.push_back(f);
  } catch (...) {
    return 0;
  }
  list->modified = true;
  return 1;
}

void ReplaceUserFilter(UserFilterList *list, int index, const char *name, const UserFilter &filter) {
  if (index < 0 || index >= list->count()) return;
  UserFilter f = filter;
  setName(&f, name, std::strlen(name));
  if (f.divisor == 0) f.divisor = 1;
  list->filters[static_cast<size_t>(index)] = f;
  list->modified = true;
}

int DeleteUserFilter(UserFilterList *list, int index) {
  if (index < 0 || index >= list->count()) return 0;
  list->filters.erase(list->filters.begin() + index);
  list->modified = true;
  return 1;
}

int SaveUserFilters(UserFilterList *list) {
  int ok = 1;
  if (list->modified) {
    SortUserFilters(list);
    std::printf("Saving : <%s>\n", list->path.c_str());
    std::fflush(stdout);
    // The first save creates the settings directory when needed.
    std::string dir = list->path.substr(0, list->path.rfind('/'));
    if (!dir.empty()) ::mkdir(dir.c_str(), 0755);
    ok = WriteUserFilterFile(list->path.c_str(), *list);
    list->modified = false;
  }
  std::vector<UserFilter>().swap(list->filters);
  return ok;
}

int ApplyUserFilter(TslPicture *src, TslPicture *dst, const OpRect *rect, const UserFilter &filter) {
  const int n = filter.size;
  if (n < 3 || n > kUserFilterMaxSize) return kOpEmptyRect;
  int32_t w[kUserFilterMaxSize * kUserFilterMaxSize];
  for (int k = 0; k < n * n; ++k) w[k] = filter.values[k];
  return ApplyKernelN(src, dst, rect, n, w, filter.divisor == 0 ? 1 : filter.divisor, filter.bias);
}

}  // namespace quilla
