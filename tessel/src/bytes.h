// Bounded reading and little/big-endian helpers for the format modules.
#ifndef TESSEL_SRC_BYTES_H
#define TESSEL_SRC_BYTES_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace tessel {

inline uint16_t le16(const uint8_t *p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
inline uint32_t le32(const uint8_t *p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}
inline uint16_t be16(const uint8_t *p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }
inline uint32_t be32(const uint8_t *p) {
  return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 | static_cast<uint32_t>(p[2]) << 8 |
         static_cast<uint32_t>(p[3]);
}

// A cursor over a byte range.  Reads past the end fail (ok() turns false)
// and yield zeros, so a parser can read a whole header and check once.
class ByteReader {
 public:
  ByteReader(const uint8_t *data, size_t size) : data_(data), size_(size) {}
  size_t pos() const { return pos_; }
  size_t size() const { return size_; }
  size_t remaining() const { return pos_ < size_ ? size_ - pos_ : 0; }
  bool ok() const { return ok_; }
  const uint8_t *here() const { return data_ + (pos_ < size_ ? pos_ : size_); }
  bool seek(size_t pos) {
    if (pos > size_) { ok_ = false; return false; }
    pos_ = pos;
    return true;
  }
  bool skip(size_t n) {
    if (n > remaining()) { pos_ = size_; ok_ = false; return false; }
    pos_ += n;
    return true;
  }
  uint8_t u8() {
    if (pos_ >= size_) { ok_ = false; return 0; }
    return data_[pos_++];
  }
  uint16_t u16le() { return need(2) ? (pos_ += 2, le16(data_ + pos_ - 2)) : 0; }
  uint32_t u32le() { return need(4) ? (pos_ += 4, le32(data_ + pos_ - 4)) : 0; }
  uint16_t u16be() { return need(2) ? (pos_ += 2, be16(data_ + pos_ - 2)) : 0; }
  uint32_t u32be() { return need(4) ? (pos_ += 4, be32(data_ + pos_ - 4)) : 0; }
  // Copies n bytes; fewer available copies what there is, zero-fills the rest, fails.
  bool bytes(void *out, size_t n) {
    size_t have = remaining() < n ? remaining() : n;
    std::memcpy(out, data_ + pos_, have);
    if (have < n) std::memset(static_cast<uint8_t *>(out) + have, 0, n - have);
    pos_ += have;
    if (have < n) ok_ = false;
    return have == n;
  }

 private:
  bool need(size_t n) {
    if (remaining() < n) { pos_ = size_; ok_ = false; return false; }
    return true;
  }
  const uint8_t *data_;
  size_t size_;
  size_t pos_ = 0;
  bool ok_ = true;
};

// Little/big-endian writers on a FILE; they return false on a write error.
inline bool put8(FILE *f, unsigned v) { return std::fputc(static_cast<int>(v & 0xff), f) != EOF; }
inline bool put16le(FILE *f, unsigned v) { return put8(f, v) && put8(f, v >> 8); }
inline bool put32le(FILE *f, uint32_t v) { return put16le(f, v & 0xffff) && put16le(f, v >> 16); }
inline bool put16be(FILE *f, unsigned v) { return put8(f, v >> 8) && put8(f, v); }
inline bool put32be(FILE *f, uint32_t v) { return put16be(f, v >> 16) && put16be(f, v & 0xffff); }
inline bool putBytes(FILE *f, const void *p, size_t n) { return std::fwrite(p, 1, n, f) == n; }

}  // namespace tessel

#endif
