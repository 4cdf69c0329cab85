// Reading and writing the per-directory description files.
#include "browser/descriptions.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace quilla {

namespace {

// The reader takes at most this many characters a line; the rest of a
// longer line is read as the next line.
constexpr size_t kLineMax = 1023;

bool LineEnd(char c) { return c == '\n' || c == '\r'; }

// Parses one line into *out; false when the line ends the reading.
bool ParseLine(const char *p, DescriptionRecord *out) {
  const char *name_begin, *name_end, *text;
  if (*p == '"') {
    name_begin = p + 1;
    const char *q = name_begin;
    while (*q && *q != '"' && !LineEnd(*q)) ++q;
    if (*q != '"') return false;
    name_end = q;
    text = q + 1;
    if (*text) ++text;  // the separator after the closing quote
  } else {
    name_begin = p;
    const char *q = p;
    while (*q && *q != ' ' && *q != '\t' && !LineEnd(*q)) ++q;
    if (*q != ' ' && *q != '\t') return false;
    name_end = q;
    text = q + 1;
  }
  const char *text_end = text;
  while (*text_end && !LineEnd(*text_end)) ++text_end;
  size_t name_len = static_cast<size_t>(name_end - name_begin);
  if (name_len > kDescriptionNameMax) name_len = kDescriptionNameMax;
  out->name.assign(name_begin, name_len);
  out->text = std::string(text, text_end);
  return true;
}

// Writes `content` to `path` through a temporary file in the same
// directory, flushed to disk, then renamed over the target.
bool WriteFileReplacing(const std::string &path, const std::string &content) {
  std::string temp = path + ".XXXXXX";
  int fd = mkstemp(&temp[0]);
  if (fd < 0) return false;
  bool ok = true;
  size_t done = 0;
  while (ok && done < content.size()) {
    ssize_t n = write(fd, content.data() + done, content.size() - done);
    if (n < 0 && errno == EINTR) continue;
    ok = n > 0;
    if (ok) done += static_cast<size_t>(n);
  }
  // The new file takes the old one's permissions, else the usual ones.
  struct stat st;
  mode_t mode;
  if (stat(path.c_str(), &st) == 0) {
    mode = st.st_mode & 07777;
  } else {
    const mode_t mask = umask(0);
    umask(mask);
    mode = 0666 & ~mask;
  }
  ok = ok && fchmod(fd, mode) == 0;
  ok = ok && fsync(fd) == 0;
  ok = close(fd) == 0 && ok;
  if (!ok || std::rename(temp.c_str(), path.c_str()) != 0) {
    std::remove(temp.c_str());
    return false;
  }
  return true;
}

}  // namespace

std::string DescriptionPath(const std::string &dir) {
  std::string path = dir;
  if (path.empty() || path.back() != '/') path += '/';
  return path + ".description";
}

DescriptionTable ParseDescriptions(const std::string &content) {
  DescriptionTable table;
  size_t pos = 0;
  while (pos < content.size()) {
    size_t end = pos;
    while (end < content.size() && end - pos < kLineMax)
      if (content[end++] == '\n') break;
    const std::string line = content.substr(pos, end - pos);
    pos = end;
    DescriptionRecord record;
    if (!ParseLine(line.c_str(), &record)) break;
    if (table.records.size() == table.records.capacity()) table.records.reserve(table.records.size() + 16);
    table.records.push_back(std::move(record));
  }
  return table;
}

DescriptionTable LoadDescriptions(const std::string &dir) {
  std::ifstream in(DescriptionPath(dir), std::ios::binary);
  if (!in) return {};
  std::ostringstream ss;
  ss << in.rdbuf();
  return ParseDescriptions(ss.str());
}

const std::string *FindDescription(const DescriptionTable &table, const std::string &name) {
  for (const DescriptionRecord &r : table.records)
    if (r.name == name) return r.text ? &*r.text : nullptr;
  return nullptr;
}

void SetDescription(DescriptionTable *table, const std::string &name, std::optional<std::string> text) {
  for (DescriptionRecord &r : table->records) {
    if (r.name == name) {
      r.text = std::move(text);
      return;
    }
  }
  table->records.push_back({name.substr(0, kDescriptionNameMax), std::move(text)});
}

std::string FormatDescriptions(const DescriptionTable &table, bool quoted) {
  std::string out;
  for (const DescriptionRecord &r : table.records) {
    if (!r.text) continue;
    out += quoted ? "\"" + r.name + "\" " : r.name + " ";
    out += *r.text;
    out += '\n';
  }
  return out;
}

bool SaveDescriptions(const DescriptionTable &table, const std::string &dir, bool quoted) {
  return WriteFileReplacing(DescriptionPath(dir), FormatDescriptions(table, quoted));
}

bool CopyDescription(const std::string &from_dir, const std::string &to_dir, const std::string &name) {
  const DescriptionTable from = LoadDescriptions(from_dir);
  const std::string *text = FindDescription(from, name);
  if (!text) return true;
  DescriptionTable to = LoadDescriptions(to_dir);
  SetDescription(&to, name, *text);
  return SaveDescriptions(to, to_dir, true);
}

bool SaveListedDescriptions(const std::string &dir,
                            const std::vector<std::pair<std::string, std::optional<std::string>>> &entries) {
  DescriptionTable table;
  for (const auto &e : entries)
    if (e.second) table.records.push_back({e.first, e.second});
  if (SaveDescriptions(table, dir, true)) return true;
  std::fputs("WARNING: Can't save description...", stderr);
  return false;
}

}  // namespace quilla
