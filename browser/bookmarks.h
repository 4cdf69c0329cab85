// The bookmark file ("~/.quilla/bookmark.ini"): one favourite directory a
// line, written as "\"name\"*\"path\"".  Toolkit-free.
#ifndef QUILLA_BROWSER_BOOKMARKS_H
#define QUILLA_BROWSER_BOOKMARKS_H

#include <string>
#include <vector>

namespace quilla {

constexpr size_t kBookmarkNameSize = 64;
constexpr size_t kBookmarkPathSize = 4096;

struct Bookmark {
  std::string name;  // at most 64 characters
  std::string path;  // at most 4096 characters
};

class BookmarkList {
 public:
  // "$HOME/.quilla/bookmark.ini".
  static std::string DefaultPath();

  // Reads a bookmark file; an absent file gives an empty list.  Every line
  // gives a bookmark, an empty or malformed one included: the line is split
  // at asterisks and double quotes (runs of them count as one), the first
  // piece is the name and the second the path.
  void load(const std::string &file);

  // Adding, removing and renaming mark the list modified.  A missing (null
  // or empty) name becomes "????".
  void add(const std::string &path, const char *name);
  void remove(int index);
  void rename(int index, const std::string &name);

  // Writes the whole file when the list was modified (an empty list leaves
  // an empty file).  False when it could not be written.
  bool save();

  // A line of the bookmark editor's list: "%-24s %s" of name and path.
  std::string editorLine(int index) const;

  const std::vector<Bookmark> &items() const { return items_; }
  int count() const { return static_cast<int>(items_.size()); }
  bool modified() const { return modified_; }
  const std::string &file() const { return file_; }

 private:
  std::vector<Bookmark> items_;
  bool modified_ = false;
  std::string file_;
};

}  // namespace quilla

#endif
