// The bookmark file: reading, editing and writing.
#include "browser/bookmarks.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "browser/atomic_write.h"

namespace quilla {

namespace {

constexpr size_t kMaxLine = 8191;

bool isDelimiter(char c) { return c == '*' || c == '"'; }

// The first two pieces of a line split at runs of asterisks and quotes.
void splitLine(const std::string &line, std::string *name, std::string *path) {
  std::string *pieces[2] = {name, path};
  size_t pos = 0;
  for (std::string *piece : pieces) {
    while (pos < line.size() && isDelimiter(line[pos])) ++pos;
    const size_t start = pos;
    while (pos < line.size() && !isDelimiter(line[pos])) ++pos;
    piece->assign(line, start, pos - start);
  }
}

}  // namespace

std::string BookmarkList::DefaultPath() {
  const char *home = std::getenv("HOME");
  return std::string(home ? home : "") + "/.quilla/bookmark.ini";
}

void BookmarkList::load(const std::string &file) {
  file_ = file;
  items_.clear();
  modified_ = false;
  std::ifstream in(file, std::ios::binary);
  std::string line;
  while (std::getline(in, line)) {
    if (line.size() > kMaxLine) line.resize(kMaxLine);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    Bookmark b;
    splitLine(line, &b.name, &b.path);
    if (b.name.size() > kBookmarkNameSize) b.name.resize(kBookmarkNameSize);
    if (b.path.size() > kBookmarkPathSize) b.path.resize(kBookmarkPathSize);
    items_.push_back(std::move(b));
  }
}

void BookmarkList::add(const std::string &path, const char *name) {
  Bookmark b;
  b.name = name && *name ? name : "????";
  b.path = path;
  if (b.name.size() > kBookmarkNameSize) b.name.resize(kBookmarkNameSize);
  if (b.path.size() > kBookmarkPathSize) b.path.resize(kBookmarkPathSize);
  items_.push_back(std::move(b));
  modified_ = true;
}

void BookmarkList::remove(int index) {
  if (index < 0 || index >= count()) return;
  items_.erase(items_.begin() + index);
  modified_ = true;
}

void BookmarkList::rename(int index, const std::string &name) {
  if (index < 0 || index >= count()) return;
  items_[index].name = name.substr(0, kBookmarkNameSize);
  modified_ = true;
}

bool BookmarkList::save() {
  if (!modified_) return true;
  std::string data;
  for (const Bookmark &b : items_) data += "\"" + b.name + "\"*\"" + b.path + "\"\n";
  if (!WriteFileAtomically(file_, data)) return false;
  modified_ = false;
  return true;
}

std::string BookmarkList::editorLine(int index) const {
  if (index < 0 || index >= count()) return "";
  const Bookmark &b = items_[index];
  std::string line(b.name.size() + b.path.size() + 32, '\0');
  const int n = std::snprintf(&line[0], line.size(), "%-24s %s", b.name.c_str(), b.path.c_str());
  line.resize(n > 0 ? static_cast<size_t>(n) : 0);
  return line;
}

}  // namespace quilla
