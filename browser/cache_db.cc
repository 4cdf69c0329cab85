// The thumbnail cache database.
//
// Damaged input is never trusted: every length read from a file is checked
// against the bytes that remain before anything is allocated, a database
// whose header does not match the configuration is started afresh, and a
// database is cut back to its last whole counted entry when it is opened, so
// the entries appended later always follow a well-formed file.
#include "browser/cache_db.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "browser/atomic_write.h"
#include "imgproc/convert.h"

namespace quilla {

const char kCacheMagic[16] = {'Q', 'u', 'i', 'l', 'l', 'a', ' ', 'D', 'B', ' ', 'v', '1', '.', '0', '5', 0};

namespace {

constexpr size_t kInfoFixed = 34;
constexpr size_t kFormatNameKeep = 64;
constexpr size_t kSecondTextKeep = 32;
constexpr uint32_t kNoRecord = 0xFFFFFFFFu;

void put16(std::vector<uint8_t> *b, uint32_t v) {
  b->push_back(static_cast<uint8_t>(v >> 8));
  b->push_back(static_cast<uint8_t>(v));
}
void put32(std::vector<uint8_t> *b, uint32_t v) {
  put16(b, v >> 16);
  put16(b, v & 0xffff);
}
void putString(std::vector<uint8_t> *b, const char *s, size_t limit) {
  const size_t n = strnlen(s, limit);
  put16(b, static_cast<uint32_t>(n + 1));
  b->insert(b->end(), s, s + n);
  b->push_back(0);
}
uint32_t get16(const uint8_t *p) { return static_cast<uint32_t>(p[0]) << 8 | p[1]; }
uint32_t get32(const uint8_t *p) { return get16(p) << 16 | get16(p + 2); }

bool readExact(FILE *f, void *buf, size_t n) { return n == 0 || std::fread(buf, 1, n, f) == n; }

long fileSize(FILE *f) {
  std::fflush(f);
  struct stat st;
  return ::fstat(::fileno(f), &st) == 0 ? static_cast<long>(st.st_size) : 0;
}

// The picture the cache stores: 8-bit grey or RGB rows.  Other models are
// converted into *temp, and *out points at whichever is to be stored.
bool storablePicture(const TslPicture &pic, TslPicture *temp, const TslPicture **out) {
  std::memset(temp, 0, sizeof *temp);
  if (pic.color_model == TSL_GREY || pic.color_model == TSL_RGB) {
    *out = &pic;
    return true;
  }
  if (pic.color_model == TSL_BINARY) {
    if (ConvertToGrey256(&pic, temp) != kOpDone) return false;
  } else {
    if (!tslAllock(temp, TSL_RGB, 0, pic.width, pic.height)) return false;
    for (uint32_t y = 0; y < pic.height; ++y)
      tslGetRowRGB(&pic, y, temp->pixels + static_cast<size_t>(y) * temp->bytes_per_line);
    temp->attr_word = pic.attr_word;
  }
  *out = temp;
  return true;
}

std::string shortened(const char *path) {
  const size_t n = std::strlen(path);
  if (n <= 30) return path;
  return std::string("...") + (path + n - 27);
}

}  // namespace

std::vector<uint8_t> EncodeCacheInfo(const TslFileInfo &info) {
  std::vector<uint8_t> b;
  b.reserve(kInfoFixed + 48);
  put32(&b, static_cast<uint32_t>(std::max<long>(0, std::min<long>(info.colors, 0xFFFFFFFFL))));
  put16(&b, static_cast<uint32_t>(info.bits_per_plane));
  put16(&b, static_cast<uint32_t>(info.planes));
  put32(&b, info.width);
  put32(&b, info.height);
  put16(&b, static_cast<uint32_t>(info.color_model));
  put16(&b, static_cast<uint32_t>(info.compression));
  put32(&b, static_cast<uint32_t>(info.pages));
  put16(&b, static_cast<uint32_t>(info.dpi_x));
  put16(&b, static_cast<uint32_t>(info.dpi_y));
  put16(&b, static_cast<uint32_t>(info.orientation));
  put32(&b, (info.origin ? 1u : 0u) | (info.has_alpha ? 2u : 0u));
  putString(&b, tslFormatGetName(info.format), kFormatNameKeep - 1);
  putString(&b, tslGetFullLabelForCompression(&info), kSecondTextKeep - 1);
  return b;
}

size_t DecodeCacheInfo(const uint8_t *p, size_t size, TslFileInfo *info) {
  std::memset(info, 0, sizeof *info);
  info->format = -1;
  if (size < kInfoFixed + 2) return 0;
  info->colors = static_cast<long>(get32(p));
  info->bits_per_plane = static_cast<int>(get16(p + 4));
  info->planes = static_cast<int>(get16(p + 6));
  info->width = get32(p + 8);
  info->height = get32(p + 12);
  info->color_model = static_cast<int>(get16(p + 16));
  info->compression = static_cast<int>(get16(p + 18));
  info->pages = static_cast<int>(get32(p + 20));
  info->dpi_x = static_cast<int>(get16(p + 24));
  info->dpi_y = static_cast<int>(get16(p + 26));
  info->orientation = static_cast<int>(get16(p + 28));
  const uint32_t flags = get32(p + 30);
  info->origin = flags & 1;
  info->has_alpha = (flags >> 1) & 1;
  size_t pos = kInfoFixed;
  char texts[2][kFormatNameKeep];
  const size_t keep[2] = {kFormatNameKeep, kSecondTextKeep};
  for (int k = 0; k < 2; ++k) {
    if (size - pos < 2) return 0;
    const size_t len = get16(p + pos);
    pos += 2;
    if (len == 0 || size - pos < len) return 0;
    const size_t n = std::min(len, keep[k]);
    std::memcpy(texts[k], p + pos, n);
    texts[k][n - 1] = 0;
    pos += len;
  }
  info->format = texts[0][0] ? tslFormatGetIndex(texts[0]) : -1;
  return pos;
}

ThumbCache::ThumbCache(const std::string &root) : root_(root) {
  if (root_.empty() || root_.back() != '/') root_ += '/';
}

ThumbCache::~ThumbCache() {
  if (nesting_ > 0) {
    nesting_ = 1;
    close();
  }
  if (file_) std::fclose(file_);
}

std::string ThumbCache::DefaultRoot() {
  const char *home = std::getenv("HOME");
  std::string dir = home ? home : "";
  if (dir.empty() || dir.back() != '/') dir += '/';
  return dir + ".quilla/cache/";
}

void ThumbCache::configure(bool enabled, int mode) {
  enabled_ = enabled;
  if (mode < kCacheRaw || mode > kCacheJpegHigh) mode = kCacheRaw;
  if (open_ && current_ >= 0 && mode != mode_) {
    // The open database keeps the mode its entries were written with; the
    // reopening then starts it afresh in the new one.
    const int slot = current_;
    closeDatabase();
    mode_ = mode;
    openDatabase(slot);
  }
  mode_ = mode;
}

std::string ThumbCache::databasePath(int slot) const { return root_ + std::to_string(slot) + ".db"; }

void ThumbCache::open(bool force) {
  if (nesting_++ > 0) return;
  if (!enabled_ && !force) return;
  // The cache directory and its parent.
  const std::string parent = root_.substr(0, root_.find_last_of('/', root_.size() - 2) + 1);
  if (!parent.empty()) ::mkdir(parent.c_str(), 0777);
  ::mkdir(root_.c_str(), 0777);
  slots_.clear();
  entries_.clear();
  by_name_.clear();
  open_ = true;
  pending_ = false;
  current_ = -1;
  readIndex();
}

void ThumbCache::readIndex() {
  FILE *f = std::fopen(indexPath().c_str(), "rb");
  if (!f) return;
  char magic[16];
  uint8_t raw[4];
  if (readExact(f, magic, 16) && std::memcmp(magic, kCacheMagic, 16) == 0 && readExact(f, raw, 4)) {
    // A count larger than the file holds is cut to the slots present.
    const uint32_t n = get32(raw);
    const long room = (fileSize(f) - 20) / static_cast<long>(kCacheSlotSize);
    const uint32_t present = static_cast<uint32_t>(std::max<long>(0, std::min<long>(n, room)));
    slots_.resize(present);
    for (uint32_t i = 0; i < present; ++i) {
      Slot &s = slots_[i];
      if (!readExact(f, s.path, kCacheSlotPath) || !readExact(f, &s.in_use, 1)) {
        slots_.resize(i);
        break;
      }
      s.path[kCacheSlotPath - 1] = 0;
      s.in_use = s.in_use == 1;
    }
  }
  std::fclose(f);
}

void ThumbCache::close() {
  if (nesting_ == 0) return;
  if (--nesting_ > 0) return;
  saveIndex();
  open_ = false;
  pending_ = false;
}

void ThumbCache::saveIndex() {
  if (!open_ || slots_.empty()) return;
  closeDatabase();
  std::string data(kCacheMagic, 16);
  const uint32_t n = static_cast<uint32_t>(slots_.size());
  const char count[4] = {static_cast<char>(n >> 24), static_cast<char>(n >> 16), static_cast<char>(n >> 8),
                         static_cast<char>(n)};
  data.append(count, 4);
  data.reserve(20 + slots_.size() * kCacheSlotSize);
  for (const Slot &s : slots_) {
    data.append(s.path, kCacheSlotPath);
    data.push_back(static_cast<char>(s.in_use));
  }
  WriteFileAtomically(indexPath(), data);
  slots_.clear();
}

void ThumbCache::setDirectory(const std::string &path) {
  if (!open_) return;
  if (current_ >= 0) closeDatabase();
  pending_ = false;
  for (size_t i = 0; i < slots_.size(); ++i) {
    if (slots_[i].in_use && path == slots_[i].path) {
      openDatabase(static_cast<int>(i));
      return;
    }
  }
  pending_ = true;
  pending_path_ = path;
}

void ThumbCache::setThumbnailSize(int width, int height) {
  if (open_ && current_ >= 0 && (width != width_ || height != height_)) {
    // The header keeps the size it was written with; the reopening then
    // finds it different and starts the database afresh.
    const int slot = current_;
    closeDatabase();
    width_ = width;
    height_ = height;
    openDatabase(slot);
  }
  width_ = width;
  height_ = height;
}

bool ThumbCache::writeHeader(FILE *f, uint32_t count) {
  std::vector<uint8_t> h(kCacheMagic, kCacheMagic + 16);
  put32(&h, count);
  put16(&h, static_cast<uint32_t>(mode_));
  put16(&h, static_cast<uint32_t>(width_));
  put16(&h, static_cast<uint32_t>(height_));
  return std::fwrite(h.data(), 1, h.size(), f) == h.size() && std::fflush(f) == 0;
}

void ThumbCache::openDatabase(int slot) {
  entries_.clear();
  by_name_.clear();
  count_ = 0;
  current_ = slot;
  const std::string path = databasePath(slot);
  file_ = std::fopen(path.c_str(), "a+b");
  if (!file_) return;
  if (!loadDatabase()) startFresh();
}

void ThumbCache::startFresh() {
  const std::string path = databasePath(current_);
  if (file_) std::fclose(file_);
  ::unlink(path.c_str());
  entries_.clear();
  by_name_.clear();
  count_ = 0;
  file_ = std::fopen(path.c_str(), "a+b");
  if (file_ && !writeHeader(file_, 0)) {
    std::fclose(file_);
    file_ = nullptr;
  }
}

bool ThumbCache::loadDatabase() {
  std::rewind(file_);
  uint8_t h[kCacheHeaderSize];
  if (!readExact(file_, h, sizeof h) || std::memcmp(h, kCacheMagic, 16) != 0) return false;
  if (get16(h + 20) != static_cast<uint32_t>(mode_) || get16(h + 22) != static_cast<uint32_t>(width_) ||
      get16(h + 24) != static_cast<uint32_t>(height_))
    return false;
  const uint32_t count = get32(h + 16);
  const long size = fileSize(file_);
  // Each entry takes at least 2 + 1 + 12 bytes: no more can be present.
  entries_.reserve(std::max<size_t>(32, std::min<size_t>(count, static_cast<size_t>(size) / 15)));
  long pos = static_cast<long>(kCacheHeaderSize);
  std::vector<char> name(kCacheSlotPath);
  for (uint32_t i = 0; i < count; ++i) {
    uint8_t raw[12];
    if (size - pos < 2 || !readExact(file_, raw, 2)) break;
    const uint32_t len = get16(raw);
    if (len == 0 || size - pos - 2 < static_cast<long>(len) + 12) break;
    const size_t keep = std::min<size_t>(len, kCacheSlotPath);
    if (!readExact(file_, name.data(), keep)) break;
    name[keep - 1] = 0;
    if (len > keep && std::fseek(file_, static_cast<long>(len - keep), SEEK_CUR) != 0) break;
    if (!readExact(file_, raw, 12)) break;
    const long record = pos + 2 + static_cast<long>(len) + 12;
    const uint32_t length = get32(raw + 8);
    if (length != kNoRecord && length > static_cast<uint64_t>(size - record)) break;
    // A record without a length cannot be skipped: it ends the database
    // and is cut off with whatever follows.
    if (length == kNoRecord) break;
    addEntry(Entry{name.data(), get32(raw), get32(raw + 4), length, record});
    pos = record + static_cast<long>(length);
    if (std::fseek(file_, pos, SEEK_SET) != 0) break;
  }
  // Whatever lies behind the counted entries (entries stored after the last
  // close, or a damaged tail) is dropped, so new entries follow whole ones.
  if (size > pos && ::ftruncate(::fileno(file_), pos) != 0) return false;
  return true;
}

void ThumbCache::addEntry(Entry e) {
  by_name_.emplace(e.name, static_cast<int>(entries_.size()));
  entries_.push_back(std::move(e));
  count_ = static_cast<uint32_t>(entries_.size());
}

void ThumbCache::closeDatabase() {
  if (current_ < 0) return;
  if (file_) {
    std::fclose(file_);
    file_ = nullptr;
    if (FILE *f = std::fopen(databasePath(current_).c_str(), "rb+")) {
      writeHeader(f, count_);
      std::fclose(f);
    }
  }
  entries_.clear();
  by_name_.clear();
  count_ = 0;
  current_ = -1;
}

int ThumbCache::findEntry(const char *name, uint32_t mtime, uint32_t size) const {
  int found = -1;
  auto range = by_name_.equal_range(name);
  for (auto it = range.first; it != range.second; ++it) {
    const Entry &e = entries_[it->second];
    if (e.mtime == mtime && e.size == size && (found < 0 || it->second < found)) found = it->second;
  }
  return found;
}

std::vector<ThumbCache::Key> ThumbCache::keys() const {
  std::vector<Key> out;
  out.reserve(entries_.size());
  for (const Entry &e : entries_) out.push_back(Key{e.name, e.mtime, e.size});
  return out;
}

bool ThumbCache::contains(const char *name, uint32_t mtime, uint32_t size) const {
  if (!open_ || current_ < 0 || !file_) return false;
  const int k = findEntry(name, mtime, size);
  return k >= 0 && entries_[k].position >= 0;
}

bool ThumbCache::lookup(const char *name, uint32_t mtime, uint32_t size, TslPicture *picture, TslFileInfo *info) {
  std::memset(picture, 0, sizeof *picture);
  if (!contains(name, mtime, size)) return false;
  const Entry &e = entries_[findEntry(name, mtime, size)];
  if (e.length < kCachePictureHeaderSize + kInfoFixed + 6 + 4) return false;
  std::vector<uint8_t> record;
  try {
    record.resize(e.length);
  } catch (const std::bad_alloc &) {
    return false;
  }
  if (std::fseek(file_, e.position, SEEK_SET) != 0 || !readExact(file_, record.data(), record.size())) return false;
  const uint8_t *p = record.data();
  CacheRows rows;
  rows.width = get32(p);
  rows.height = get32(p + 4);
  rows.stride = get32(p + 8);
  const int type = static_cast<int>(get16(p + 12));
  rows.samples = static_cast<int>(get16(p + 14));
  const uint16_t attr = static_cast<uint16_t>(get16(p + 16));
  const int model = rows.samples == 1 ? TSL_GREY : TSL_RGB;
  if ((type != TSL_GREY && type != TSL_RGB) || model != type) return false;
  if (rows.width == 0 || rows.height == 0 || rows.width > 65535 || rows.height > 65535) return false;
  if (static_cast<uint64_t>(rows.width) * rows.samples > rows.stride || rows.stride > rows.width * 4u + 64) return false;
  TslFileInfo got;
  const size_t info_len = DecodeCacheInfo(p + kCachePictureHeaderSize, record.size() - kCachePictureHeaderSize, &got);
  if (info_len == 0) return false;
  size_t pos = kCachePictureHeaderSize + info_len;
  if (record.size() - pos < 4) return false;
  const uint32_t payload = get32(p + pos);
  pos += 4;
  if (payload > record.size() - pos) return false;
  std::vector<uint8_t> raw;
  try {
    raw.resize(static_cast<size_t>(rows.height) * rows.stride);
  } catch (const std::bad_alloc &) {
    return false;
  }
  if (!DecodeCachePayload(mode_, rows, p + pos, payload, raw.data())) return false;
  if (!tslAllock(picture, model, 1, rows.width, rows.height)) return false;
  const size_t row_bytes = static_cast<size_t>(rows.width) * rows.samples;
  for (uint32_t y = 0; y < rows.height; ++y)
    std::memcpy(picture->pixels + static_cast<size_t>(y) * picture->bytes_per_line,
                raw.data() + static_cast<size_t>(y) * rows.stride, row_bytes);
  picture->attr_word = attr;
  picture->transparent_index = -1;
  *info = got;
  return true;
}

bool ThumbCache::store(const char *name, uint32_t mtime, uint32_t size, const TslPicture &picture,
                       const TslFileInfo &info) {
  if (!open_ || !picture.pixels) return false;
  if (pending_) {
    // The directory's first thumbnail: it takes the first free slot.
    size_t slot = 0;
    while (slot < slots_.size() && slots_[slot].in_use) ++slot;
    if (slot == slots_.size()) slots_.push_back(Slot());
    Slot &s = slots_[slot];
    std::memset(s.path, 0, sizeof s.path);
    std::snprintf(s.path, sizeof s.path, "%s", pending_path_.c_str());
    s.in_use = 1;
    pending_ = false;
    openDatabase(static_cast<int>(slot));
  }
  if (!file_) return false;
  TslPicture temp;
  const TslPicture *pic = nullptr;
  if (!storablePicture(picture, &temp, &pic)) return false;
  CacheRows rows;
  rows.width = pic->width;
  rows.height = pic->height;
  rows.stride = pic->bytes_per_line;
  rows.samples = pic->color_model == TSL_GREY ? 1 : 3;
  std::vector<uint8_t> payload;
  const bool encoded = EncodeCachePayload(mode_, rows, pic->pixels, &payload);
  std::vector<uint8_t> b;
  if (encoded) {
    const size_t name_len = std::strlen(name) + 1;
    const std::vector<uint8_t> info_bytes = EncodeCacheInfo(info);
    const size_t length = kCachePictureHeaderSize + info_bytes.size() + 4 + payload.size();
    b.reserve(2 + name_len + 12 + length);
    put16(&b, static_cast<uint32_t>(name_len));
    b.insert(b.end(), name, name + name_len);
    put32(&b, size);
    put32(&b, mtime);
    put32(&b, static_cast<uint32_t>(length));
    put32(&b, pic->width);
    put32(&b, pic->height);
    put32(&b, pic->bytes_per_line);
    put16(&b, static_cast<uint32_t>(pic->color_model));
    put16(&b, static_cast<uint32_t>(rows.samples));
    put16(&b, pic->attr_word);
    b.insert(b.end(), info_bytes.begin(), info_bytes.end());
    put32(&b, static_cast<uint32_t>(payload.size()));
    b.insert(b.end(), payload.begin(), payload.end());
  }
  tslFree(&temp);
  if (!encoded || std::strlen(name) + 1 > 0xFFFF) return false;
  std::fseek(file_, 0, SEEK_END);
  const long start = std::ftell(file_);
  const bool written = std::fwrite(b.data(), 1, b.size(), file_) == b.size() && std::fflush(file_) == 0;
  if (!written) {
    // A partial record is cut off again.
    if (start >= 0 && ::ftruncate(::fileno(file_), start) != 0) {
      std::fclose(file_);
      file_ = nullptr;
    }
    return false;
  }
  const long name_len = static_cast<long>(std::strlen(name) + 1);
  addEntry(Entry{name, size, mtime, get32(b.data() + 2 + name_len + 8), start < 0 ? -1 : start + 2 + name_len + 12});
  return true;
}

bool ThumbCache::nextSlot(int *slot, std::string *path, int *count, long *bytes) {
  while (cursor_ < static_cast<int>(slots_.size()) && !slots_[cursor_].in_use) ++cursor_;
  if (cursor_ >= static_cast<int>(slots_.size())) return false;
  const int n = cursor_++;
  *slot = n;
  *path = slots_[n].path;
  if (!count && !bytes) return true;
  if (n == current_ && file_) {
    if (count) *count = static_cast<int>(count_);
    if (bytes) *bytes = fileSize(file_);
    return true;
  }
  // Opening in append mode makes an empty file for a slot that lost its own.
  FILE *f = std::fopen(databasePath(n).c_str(), "a+b");
  uint8_t raw[20];
  if (count) *count = f && readExact(f, raw, 20) ? static_cast<int>(get32(raw + 16)) : 0;
  if (bytes) *bytes = f ? fileSize(f) : 0;
  if (f) std::fclose(f);
  return true;
}

int ThumbCache::nthInUse(int n) const {
  for (size_t i = 0; i < slots_.size(); ++i)
    if (slots_[i].in_use && n-- == 0) return static_cast<int>(i);
  return -1;
}

void ThumbCache::deleteSlot(int n) {
  if (n < 0 || n >= static_cast<int>(slots_.size())) return;
  const int nesting = nesting_;
  nesting_ = 0;
  slots_[n].in_use = 0;
  saveIndex();
  ::unlink(databasePath(n).c_str());
  open(true);
  nesting_ = nesting;
}

void ThumbCache::compactAll() {
  closeDatabase();
  for (size_t i = 0; i < slots_.size(); ++i)
    if (slots_[i].in_use) compact(static_cast<int>(i));
}

void ThumbCache::compact(int slot) {
  openDatabase(slot);
  const std::string temp_path = root_ + "tmp.db";
  FILE *out = std::fopen(temp_path.c_str(), "w+b");
  if (!out || !file_) {
    if (out) std::fclose(out);
    return;
  }
  writeHeader(out, 0);
  uint32_t kept = 0;
  bool ok = true;
  std::vector<uint8_t> b;
  for (const Entry &e : entries_) {
    if (e.position < 0) continue;
    struct stat st;
    const std::string full = std::string(slots_[slot].path) + e.name;
    if (::stat(full.c_str(), &st) != 0 || static_cast<uint32_t>(st.st_size) != e.size ||
        static_cast<uint32_t>(st.st_mtime) != e.mtime)
      continue;
    b.clear();
    put16(&b, static_cast<uint32_t>(e.name.size() + 1));
    b.insert(b.end(), e.name.c_str(), e.name.c_str() + e.name.size() + 1);
    put32(&b, e.size);
    put32(&b, e.mtime);
    put32(&b, e.length);
    const size_t head = b.size();
    b.resize(head + e.length);
    if (std::fseek(file_, e.position, SEEK_SET) != 0 || !readExact(file_, b.data() + head, e.length)) continue;
    ok = ok && std::fwrite(b.data(), 1, b.size(), out) == b.size();
    ++kept;
  }
  std::rewind(out);
  ok = ok && writeHeader(out, kept);
  ok = ok && ::fsync(::fileno(out)) == 0;
  ok = std::fclose(out) == 0 && ok;
  std::fclose(file_);
  file_ = nullptr;
  entries_.clear();
  by_name_.clear();
  count_ = 0;
  current_ = -1;
  const std::string path = databasePath(slot);
  if (!ok) {
    ::unlink(temp_path.c_str());
    return;
  }
  ::unlink(path.c_str());
  std::rename(temp_path.c_str(), path.c_str());
}

std::vector<std::string> ThumbCache::listRows() {
  std::vector<std::string> rows;
  open(true);
  resetListing();
  int slot, count = 0;
  long bytes = 0;
  std::string path;
  while (nextSlot(&slot, &path, &count, &bytes)) {
    char line[128];
    std::snprintf(line, sizeof line, "%-38s    % 6d    %d", shortened(path.c_str()).c_str(), count,
                  static_cast<int>(bytes));
    rows.push_back(line);
  }
  close();
  return rows;
}

void ThumbCache::deleteRows(std::vector<int> rows) {
  open(true);
  std::sort(rows.begin(), rows.end());
  for (auto it = rows.rbegin(); it != rows.rend(); ++it) {
    const int slot = nthInUse(*it - 1);
    if (slot >= 0) deleteSlot(slot);
  }
  close();
}

void ThumbCache::deleteAll() {
  open(true);
  int rows = 0;
  while (nthInUse(rows) >= 0) ++rows;
  for (int k = 0; k < rows; ++k) deleteSlot(nthInUse(0));
  close();
}

void ThumbCache::clean() {
  open(true);
  compactAll();
  close();
}

}  // namespace quilla
