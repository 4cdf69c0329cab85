// The browser's model of a listed directory: file entries, the display order
// and its six sort keys, the size and status-line texts, and the quick
// refresh that keeps the work already done for unchanged files.
// Toolkit-free: thumbnails are opaque handles that the window owns.
#ifndef QUILLA_BROWSER_FILELIST_H
#define QUILLA_BROWSER_FILELIST_H

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tessel.h"

namespace quilla {

// Kind flags of an entry.
enum : uint32_t {
  kEntryLink = 1,        // a symbolic link
  kEntryNoAccess = 2,    // the user cannot read it
  kEntryDirectory = 4,   // a directory, or a link to one
};

// State flags of an entry, set by the thumbnail loop.
enum : uint32_t {
  kStateUnreadable = 1,  // the picture could not be read
  kStateKnown = 2,       // information (and the view's thumbnail) known
  kStateSkipped = 4,     // not a picture file (a directory)
};

// Sort keys; the low 7 bits of the sort setting, kSortReverse its top bit.
enum SortKey {
  kSortNone = 0,
  kSortName = 1,
  kSortExtension = 2,
  kSortDate = 3,
  kSortSize = 4,
  kSortType = 5,
  kSortDescription = 6,
};
constexpr int kSortReverse = 128;

// View modes of the icon view.
enum ViewMode { kViewIcons = 0, kViewSmallIcons = 1, kViewList = 2, kViewColumns = 3 };

// A thumbnail made for the window: `handle` is the window's own (a pixmap),
// 0 when there is none.
struct Thumbnail {
  uint64_t handle = 0;
  int width = 0, height = 0;
};

constexpr size_t kEntryNameSize = 256;

struct FileEntry {
  uint32_t kind = 0;
  mode_t mode = 0;
  uint32_t state = 0;
  char name[kEntryNameSize] = {0};
  uint32_t size = 0;    // bytes, as the link-status call reported it
  int32_t mtime = 0;    // seconds since 1970
  bool has_description = false;
  std::string description;
  Thumbnail large, small;
  // Filled when the picture was read.  Its comment and delays are never
  // kept (always null), so entries copy freely.
  TslFileInfo info{};
  bool selected = false;

  bool isDirectory() const { return (kind & kEntryDirectory) != 0; }
  bool isDotDot() const { return name[0] == '.' && name[1] == '.' && name[2] == 0; }
};

// Copies a file-information record into an entry, without its heap parts.
void SetEntryInfo(FileEntry *entry, const TslFileInfo &info);

// The description of a file name, or null: how a directory's description
// file is seen while the directory is read.
using DescriptionLookup = std::function<const char *(const char *name)>;
// Releases a thumbnail that no entry holds any more.
using ThumbnailRelease = std::function<void(const Thumbnail &)>;

// The comparison of two entries under a sort setting (key | kSortReverse):
// negative, zero or positive.
int CompareEntries(const FileEntry &a, const FileEntry &b, int sort_setting);

class FileList {
 public:
  // Reads a directory: every name but ".", without following links.  The
  // path gets a trailing "/" when it lacks one.  Returns false and leaves
  // the listing as it was when the directory cannot be opened.  The order
  // table is the directory's own order until sort() is called.
  bool read(const std::string &directory, const DescriptionLookup &describe = nullptr);

  // Re-reads the current directory, keeping information, state flags and
  // thumbnails of entries whose name, size and modification time are
  // unchanged; `release` gets the thumbnails of the entries that go.
  bool quickRefresh(const DescriptionLookup &describe, const ThumbnailRelease &release);

  // Drops the entries `drop` picks (hidden files); the order table becomes
  // the directory's own order, so sort() again.
  void removeIf(const std::function<bool(const FileEntry &)> &drop);

  // Permutes the order table by a sort setting; a key outside 1..6 restores
  // the directory's own order.
  void sort(int sort_setting);

  const std::string &directory() const { return directory_; }
  int count() const { return static_cast<int>(entries_.size()); }
  // The entry at display position `pos`.
  FileEntry &at(int pos) { return entries_[order_[pos]]; }
  const FileEntry &at(int pos) const { return entries_[order_[pos]]; }
  std::vector<FileEntry> &entries() { return entries_; }
  const std::vector<FileEntry> &entries() const { return entries_; }
  const std::vector<int> &order() const { return order_; }
  // The full path of an entry.
  std::string pathOf(const FileEntry &e) const { return directory_ + e.name; }

  // Selected entries and the sum of their sizes.
  int selectedCount(uint64_t *bytes = nullptr) const;

 private:
  std::string directory_;
  std::vector<FileEntry> entries_;
  std::vector<int> order_;
};

// "1023 bytes", "1.00 Kb", "1.50 Mb", "2.00 Gb".
std::string SizeText(uint64_t bytes);

// Disk totals of the file system holding a directory.
struct DiskSpace {
  uint64_t total = 0, available = 0;
};
bool QueryDiskSpace(const std::string &directory, DiskSpace *out);

// The status line: the selection summary when more than one file is
// selected, else the object count with the disk totals when known.
std::string StatusText(int objects, int selected, uint64_t selected_bytes, const DiskSpace *space);
// The same for a list, asking the file system for the totals.
std::string StatusText(const FileList &list);

// Texts of the detailed view's columns.
std::string PropertiesText(const FileEntry &e);  // "640x480,16M", "" when unknown
std::string TypeText(const FileEntry &e);        // "Unknown", "Directory", "Link", the format

}  // namespace quilla

#endif
