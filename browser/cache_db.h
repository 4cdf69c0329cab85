// The thumbnail cache: an index file mapping directories to numbered slots
// ("cache.db") and one database per slot ("<n>.db") holding the thumbnails of
// that directory's files, all integers big-endian.  Toolkit-free; one object
// serves the whole process, on the main thread.
//
// Index:    16 magic | u32 N | N x (4096 path, u8 in use)
// Database: 16 magic | u32 count | u16 mode | u16 width | u16 height, then
//           entries: u16 L | name (L, zero-terminated) | u32 size | u32 time |
//           u32 R | 18 picture header | information record | u32 P | payload
#ifndef QUILLA_BROWSER_CACHE_DB_H
#define QUILLA_BROWSER_CACHE_DB_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

#include "browser/cache_codec.h"
#include "tessel.h"

namespace quilla {

extern const char kCacheMagic[16];  // "Quilla DB v1.05" and a zero byte
constexpr size_t kCacheSlotPath = 4096;
constexpr size_t kCacheSlotSize = kCacheSlotPath + 1;
constexpr size_t kCacheHeaderSize = 26;
constexpr size_t kCachePictureHeaderSize = 18;

// The information record as the cache stores it (34 fixed bytes and two
// length-prefixed strings), and its reader.  The reader returns the number
// of bytes used, 0 when `size` bytes do not hold a whole record.
std::vector<uint8_t> EncodeCacheInfo(const TslFileInfo &info);
size_t DecodeCacheInfo(const uint8_t *data, size_t size, TslFileInfo *info);

class ThumbCache {
 public:
  // `root` is the cache directory ("/" is appended when missing); it and
  // its parent are made when the cache opens.
  explicit ThumbCache(const std::string &root);
  ~ThumbCache();
  ThumbCache(const ThumbCache &) = delete;
  ThumbCache &operator=(const ThumbCache &) = delete;

  // "$HOME/.quilla/cache/".
  static std::string DefaultRoot();

  // The settings: caching on or off and the compression mode (CacheMode).
  void configure(bool enabled, int mode);

  // Nested: only the outermost open reads the index and only the outermost
  // close writes it.  With force false the cache stays closed while caching
  // is off.
  void open(bool force);
  void close();
  bool isOpen() const { return open_; }

  // Selects the database of a directory (a path ending with "/"), or marks
  // the directory pending: it gets a slot with its first stored thumbnail.
  void setDirectory(const std::string &path);
  // The size of the thumbnails stored from now on; a current database of
  // another size is closed and opened again (and so started afresh).
  void setThumbnailSize(int width, int height);

  // Whether a thumbnail of this file is in the current database (no file
  // access).
  bool contains(const char *name, uint32_t mtime, uint32_t size) const;
  // Reads a cached thumbnail and its information.  The picture is grey or
  // RGB, allocated by the library; the information has no comment.
  bool lookup(const char *name, uint32_t mtime, uint32_t size, TslPicture *picture, TslFileInfo *info);
  // Appends a thumbnail to the current (or pending) directory's database.
  bool store(const char *name, uint32_t mtime, uint32_t size, const TslPicture &picture, const TslFileInfo &info);

  // The options page: a cursor over the in-use slots.
  void resetListing() { cursor_ = 0; }
  // The next in-use slot; its thumbnail count and database size in bytes
  // when the pointers are given.  False at the end.
  bool nextSlot(int *slot, std::string *path, int *count = nullptr, long *bytes = nullptr);
  // The slot number of the n-th (from 0) in-use slot, -1 when none.
  int nthInUse(int n) const;
  void deleteSlot(int n);
  // Drops from every database the entries whose file is gone or changed.
  void compactAll();

  // The options page's list ("%-38s    % 6d    %d": path cut to 30
  // characters, count, file size) and its three actions; rows are the
  // list's 1-based positions.
  std::vector<std::string> listRows();
  void deleteRows(std::vector<int> rows);
  void deleteAll();
  void clean();

  // The entries of the current database: name, modification time, size.
  struct Key {
    std::string name;
    uint32_t mtime, size;
  };
  std::vector<Key> keys() const;

  const std::string &root() const { return root_; }
  std::string indexPath() const { return root_ + "cache.db"; }
  std::string databasePath(int slot) const;
  int slotCount() const { return static_cast<int>(slots_.size()); }
  int currentSlot() const { return current_; }
  bool hasPending() const { return pending_; }

 private:
  struct Slot {
    char path[kCacheSlotPath];
    uint8_t in_use;
  };
  struct Entry {
    std::string name;
    uint32_t size, mtime, length;
    long position;  // of the picture header; -1 when unknown
  };

  void readIndex();
  void saveIndex();
  void openDatabase(int slot);
  bool loadDatabase();
  void closeDatabase();
  void startFresh();
  bool writeHeader(FILE *f, uint32_t count);
  int findEntry(const char *name, uint32_t mtime, uint32_t size) const;
  void addEntry(Entry e);
  void compact(int slot);

  std::string root_;
  bool enabled_ = true;
  int mode_ = kCacheZip;
  bool open_ = false;
  int nesting_ = 0;
  std::vector<Slot> slots_;
  int current_ = -1;
  FILE *file_ = nullptr;
  uint32_t count_ = 0;
  int width_ = 92, height_ = 69;
  std::vector<Entry> entries_;
  std::unordered_multimap<std::string, int> by_name_;
  bool pending_ = false;
  std::string pending_path_;
  int cursor_ = 0;
};

}  // namespace quilla

#endif
