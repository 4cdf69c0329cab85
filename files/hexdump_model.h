// The toolkit-free half of the hex dump view: the 74-character lines, the
// line count, and a file read in windows as the view scrolls, never whole,
// with files over a size limit refused.
#ifndef QUILLA_FILES_HEXDUMP_MODEL_H
#define QUILLA_FILES_HEXDUMP_MODEL_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace quilla {

constexpr size_t kHexLineLength = 74;
constexpr uint64_t kDefaultHexDumpLimit = uint64_t{1} << 30;  // 1 GiB

// One line for `count` (1..16) bytes at `offset`: "%08x: ", each byte as
// "%02x ", three blanks per missing byte, each byte as itself when printable
// in the C locale else ".", one blank per missing byte.
std::string HexDumpLine(const uint8_t *bytes, size_t count, uint64_t offset);

// The number of lines of a file of `size` bytes: size / 16 rounded up.
uint64_t HexLineCount(uint64_t size);

// "Dump: <path>", the window's title.
std::string HexDumpTitle(const std::string &path);

class HexDumpFile {
 public:
  HexDumpFile() = default;
  ~HexDumpFile();
  HexDumpFile(const HexDumpFile &) = delete;
  HexDumpFile &operator=(const HexDumpFile &) = delete;

  // Opens `path` for reading; false with the message to show in *error when
  // it cannot be opened ("Can't open file : <path>") or is larger than
  // `limit` bytes ("File too large : <path>").
  bool Open(const std::string &path, std::string *error, uint64_t limit = kDefaultHexDumpLimit);
  void Close();

  uint64_t size() const { return size_; }
  uint64_t line_count() const { return HexLineCount(size_); }
  // Lines first .. first + count - 1 (those that exist), read from the file
  // through a window of a few pages; a file that shrank since it was
  // opened gives fewer lines.
  std::vector<std::string> Lines(uint64_t first, size_t count);

 private:
  bool Fill(uint64_t offset, size_t length);

  int fd_ = -1;
  uint64_t size_ = 0;
  uint64_t window_offset_ = 0;
  std::vector<uint8_t> window_;
};

}  // namespace quilla

#endif
