// Hex dump lines and the windowed file behind the view.
#include "files/hexdump_model.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace quilla {

namespace {

constexpr size_t kWindow = 64 * 1024;

}  // namespace

std::string HexDumpLine(const uint8_t *bytes, size_t count, uint64_t offset) {
  if (count > 16) count = 16;
  char buf[32];
  std::snprintf(buf, sizeof buf, "%08llx: ", static_cast<unsigned long long>(offset));
  std::string line = buf;
  static const char kHex[] = "0123456789abcdef";
  for (size_t i = 0; i < count; ++i) {
    line += kHex[bytes[i] >> 4];
    line += kHex[bytes[i] & 15];
    line += ' ';
  }
  line.append(3 * (16 - count), ' ');
  for (size_t i = 0; i < count; ++i) line += bytes[i] >= 0x20 && bytes[i] < 0x7f ? static_cast<char>(bytes[i]) : '.';
  line.append(16 - count, ' ');
  return line;
}

uint64_t HexLineCount(uint64_t size) { return size / 16 + (size % 16 ? 1 : 0); }

std::string HexDumpTitle(const std::string &path) { return "Dump: " + path; }

HexDumpFile::~HexDumpFile() { Close(); }

void HexDumpFile::Close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  size_ = 0;
  window_.clear();
  window_offset_ = 0;
}

bool HexDumpFile::Open(const std::string &path, std::string *error, uint64_t limit) {
  Close();
  fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat st;
  if (fd_ < 0 || ::fstat(fd_, &st) != 0 || S_ISDIR(st.st_mode)) {
    Close();
    *error = "Can't open file : " + path;
    return false;
  }
  // The size as a seek to the end finds it (devices and pipes give 0).
  const off_t end = ::lseek(fd_, 0, SEEK_END);
  const uint64_t size = end > 0 ? static_cast<uint64_t>(end) : 0;
  if (size > limit) {
    Close();
    *error = "File too large : " + path;
    return false;
  }
  size_ = size;
  return true;
}

bool HexDumpFile::Fill(uint64_t offset, size_t length) {
  if (offset >= window_offset_ && offset + length <= window_offset_ + window_.size()) return true;
  // A window starting a little before the request, so scrolling back by a
  // few lines reads nothing.
  const uint64_t start = offset > kWindow / 4 ? (offset - kWindow / 4) & ~uint64_t{15} : 0;
  const size_t want = length + static_cast<size_t>(offset - start) > kWindow ? length + (offset - start) : kWindow;
  window_.resize(want);
  size_t got = 0;
  while (got < want) {
    const ssize_t n = ::pread(fd_, window_.data() + got, want - got, static_cast<off_t>(start + got));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += static_cast<size_t>(n);
  }
  window_.resize(got);
  window_offset_ = start;
  return offset < start + got;
}

std::vector<std::string> HexDumpFile::Lines(uint64_t first, size_t count) {
  std::vector<std::string> lines;
  if (fd_ < 0) return lines;
  const uint64_t total = line_count();
  if (first >= total) return lines;
  if (count > total - first) count = static_cast<size_t>(total - first);
  const uint64_t offset = first * 16;
  const uint64_t bytes = std::min<uint64_t>(uint64_t{count} * 16, size_ - offset);
  if (!Fill(offset, static_cast<size_t>(bytes))) return lines;
  const uint64_t available = window_offset_ + window_.size();
  for (uint64_t at = offset; at < offset + bytes && at < available; at += 16) {
    const size_t n = static_cast<size_t>(std::min<uint64_t>({16, offset + bytes - at, available - at}));
    lines.push_back(HexDumpLine(window_.data() + (at - window_offset_), n, at));
  }
  return lines;
}

}  // namespace quilla
