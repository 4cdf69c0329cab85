// Lossless JPEG transforms on libturbojpeg, with the EXIF fix-up.
#include "files/jpegtrans.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace quilla {

namespace {

// ---- EXIF: a TIFF structure inside the first APP1 "Exif" segment

class Tiff {
 public:
  Tiff(uint8_t *data, size_t size) : d_(data), n_(size) {
    ok_ = n_ >= 8 && ((d_[0] == 'I' && d_[1] == 'I') || (d_[0] == 'M' && d_[1] == 'M'));
    big_ = ok_ && d_[0] == 'M';
    ok_ = ok_ && Get16(2) == 42;
  }
  bool ok() const { return ok_; }

  // The 12-byte entry of `tag` in the directory at `ifd`, or 0.
  size_t Find(size_t ifd, uint16_t tag) const {
    if (ifd == 0 || ifd + 2 > n_) return 0;
    const size_t count = Get16(ifd);
    for (size_t k = 0; k < count; ++k) {
      const size_t e = ifd + 2 + 12 * k;
      if (e + 12 > n_) return 0;
      if (Get16(e) == tag) return e;
    }
    return 0;
  }
  size_t FirstIfd() const { return ok_ ? Get32(4) : 0; }
  size_t SubIfd(size_t ifd, uint16_t tag) const {
    const size_t e = Find(ifd, tag);
    return e && Get16(e + 2) == 4 && Get32(e + 4) == 1 ? Get32(e + 8) : 0;
  }

  // A single SHORT or LONG value held in its entry.
  bool Value(size_t e, uint32_t *v) const {
    if (!e || Get32(e + 4) != 1) return false;
    const uint16_t type = Get16(e + 2);
    if (type == 3) *v = Get16(e + 8);
    else if (type == 4) *v = Get32(e + 8);
    else return false;
    return true;
  }
  void SetValue(size_t e, uint32_t v) {
    if (Get16(e + 2) == 3 && v <= 0xffff) {
      Put16(e + 8, static_cast<uint16_t>(v));
    } else {
      Put16(e + 2, 4);  // a LONG still fits in the entry
      Put32(e + 8, v);
    }
  }

 private:
  uint32_t Get16(size_t at) const {
    if (at + 2 > n_) return 0;
    return big_ ? (d_[at] << 8 | d_[at + 1]) : (d_[at + 1] << 8 | d_[at]);
  }
  uint32_t Get32(size_t at) const {
    if (at + 4 > n_) return 0;
    return big_ ? (Get16(at) << 16 | Get16(at + 2)) : (Get16(at + 2) << 16 | Get16(at));
  }
  void Put16(size_t at, uint16_t v) {
    if (at + 2 > n_) return;
    d_[at + (big_ ? 0 : 1)] = static_cast<uint8_t>(v >> 8);
    d_[at + (big_ ? 1 : 0)] = static_cast<uint8_t>(v);
  }
  void Put32(size_t at, uint32_t v) {
    Put16(at + (big_ ? 0 : 2), static_cast<uint16_t>(v >> 16));
    Put16(at + (big_ ? 2 : 0), static_cast<uint16_t>(v));
  }

  uint8_t *d_;
  size_t n_;
  bool ok_ = false, big_ = false;
};

// The TIFF block of the first EXIF segment before the image data.
bool FindExif(const uint8_t *data, size_t size, size_t *offset, size_t *length) {
  if (size < 4 || data[0] != 0xFF || data[1] != 0xD8) return false;
  size_t pos = 2;
  while (pos + 4 <= size) {
    if (data[pos] != 0xFF) return false;
    const uint8_t marker = data[pos + 1];
    if (marker == 0xFF) {
      ++pos;  // fill byte
      continue;
    }
    if (marker == 0xDA || marker == 0xD9) return false;  // image data or the end: no EXIF before
    if ((marker >= 0xD0 && marker <= 0xD7) || marker == 0x01) {
      pos += 2;
      continue;
    }
    const size_t len = static_cast<size_t>(data[pos + 2]) << 8 | data[pos + 3];
    if (len < 2 || pos + 2 + len > size) return false;
    if (marker == 0xE1 && len >= 2 + 6 + 8 && std::memcmp(data + pos + 4, "Exif\0\0", 6) == 0) {
      *offset = pos + 10;
      *length = len - 8;
      return true;
    }
    pos += 2 + len;
  }
  return false;
}

constexpr uint16_t kOrientation = 0x0112, kImageWidth = 0x0100, kImageLength = 0x0101, kExifIfd = 0x8769,
                   kPixelX = 0xA002, kPixelY = 0xA003;

// ---- the turns and flips as 2x2 matrices on centred coordinates (y down)

struct Mat {
  int a, b, c, d;  // (x, y) -> (a x + b y, c x + d y)
};

Mat Times(const Mat &m, const Mat &n) {  // m after n
  return {m.a * n.a + m.b * n.c, m.a * n.b + m.b * n.d, m.c * n.a + m.d * n.c, m.c * n.b + m.d * n.d};
}

bool Same(const Mat &m, const Mat &n) { return m.a == n.a && m.b == n.b && m.c == n.c && m.d == n.d; }

// Indexed by TJXOP_*.
const Mat kOps[8] = {
    {1, 0, 0, 1},    // none
    {-1, 0, 0, 1},   // horizontal flip
    {1, 0, 0, -1},   // vertical flip
    {0, 1, 1, 0},    // transpose
    {0, -1, -1, 0},  // transverse
    {0, -1, 1, 0},   // 90 clockwise
    {-1, 0, 0, -1},  // 180
    {0, 1, -1, 0},   // 270 clockwise
};

// The operation that shows a picture of EXIF orientation 1..8 upright.
int OrientationOp(int orientation) {
  static const int kMap[9] = {TJXOP_NONE,  TJXOP_NONE,      TJXOP_HFLIP, TJXOP_ROT180, TJXOP_VFLIP,
                              TJXOP_TRANSPOSE, TJXOP_ROT90, TJXOP_TRANSVERSE, TJXOP_ROT270};
  return orientation >= 1 && orientation <= 8 ? kMap[orientation] : TJXOP_NONE;
}

int CodeOp(int code) {
  switch (code) {
    case kJpegRotate90: return TJXOP_ROT90;
    case kJpegRotate180: return TJXOP_ROT180;
    case kJpegRotate270: return TJXOP_ROT270;
    case kJpegFlipV: return TJXOP_VFLIP;
    case kJpegFlipH: return TJXOP_HFLIP;
    default: return TJXOP_NONE;
  }
}

bool ReadWhole(const std::string &path, std::vector<uint8_t> *data) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat st;
  bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
  data->clear();
  uint8_t buf[65536];
  while (ok) {
    const ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) ok = false;
    if (n <= 0) break;
    data->insert(data->end(), buf, buf + n);
  }
  ::close(fd);
  return ok;
}

}  // namespace

std::string JpegTempPath(const std::string &path) {
  if (path.empty()) return path;
  std::string temp = path;
  temp.back() = '_';
  return temp;
}

int JpegExifOrientation(const uint8_t *data, size_t size) {
  size_t off, len;
  if (!FindExif(data, size, &off, &len)) return 0;
  Tiff tiff(const_cast<uint8_t *>(data) + off, len);  // read only here
  uint32_t v = 0;
  if (!tiff.ok() || !tiff.Value(tiff.Find(tiff.FirstIfd(), kOrientation), &v)) return 0;
  return v >= 1 && v <= 8 ? static_cast<int>(v) : 0;
}

namespace {

// The sizes an EXIF block records: the first directory's width and length
// and the EXIF directory's pixel width and height, where present.
struct ExifSizes {
  bool image = false, pixel = false;
  uint32_t width = 0, length = 0, pixel_x = 0, pixel_y = 0;
};

bool EditExif(uint8_t *data, size_t size, bool reset_orientation, ExifSizes *read, const ExifSizes *write) {
  size_t off, len;
  if (!FindExif(data, size, &off, &len)) return false;
  Tiff tiff(data + off, len);
  if (!tiff.ok()) return false;
  const size_t ifd0 = tiff.FirstIfd(), sub = tiff.SubIfd(ifd0, kExifIfd);
  const size_t w = tiff.Find(ifd0, kImageWidth), l = tiff.Find(ifd0, kImageLength);
  const size_t px = tiff.Find(sub, kPixelX), py = tiff.Find(sub, kPixelY);
  uint32_t v;
  const size_t orientation = tiff.Find(ifd0, kOrientation);
  if (reset_orientation && tiff.Value(orientation, &v)) tiff.SetValue(orientation, 1);
  if (read) {
    read->image = tiff.Value(w, &read->width) && tiff.Value(l, &read->length);
    read->pixel = tiff.Value(px, &read->pixel_x) && tiff.Value(py, &read->pixel_y);
  }
  if (write && write->image && tiff.Value(w, &v) && tiff.Value(l, &v)) {
    tiff.SetValue(w, write->width);
    tiff.SetValue(l, write->length);
  }
  if (write && write->pixel && tiff.Value(px, &v) && tiff.Value(py, &v)) {
    tiff.SetValue(px, write->pixel_x);
    tiff.SetValue(py, write->pixel_y);
  }
  return true;
}

ExifSizes Swapped(const ExifSizes &s) {
  ExifSizes t = s;
  std::swap(t.width, t.length);
  std::swap(t.pixel_x, t.pixel_y);
  return t;
}

}  // namespace

bool JpegExifPixelSize(const uint8_t *data, size_t size, uint32_t *width, uint32_t *height) {
  ExifSizes sizes;
  // Reading only: nothing is written without a `write` or a reset.
  if (!EditExif(const_cast<uint8_t *>(data), size, false, &sizes, nullptr) || !sizes.pixel) return false;
  *width = sizes.pixel_x;
  *height = sizes.pixel_y;
  return true;
}

bool JpegResetExifOrientation(uint8_t *data, size_t size, bool swap_dimensions) {
  ExifSizes sizes;
  if (!EditExif(data, size, true, &sizes, nullptr)) return false;
  if (swap_dimensions) {
    const ExifSizes swapped = Swapped(sizes);
    EditExif(data, size, false, nullptr, &swapped);
  }
  return true;
}

int JpegCombinedOperation(int code, int orientation) {
  if (code == kJpegNone) return TJXOP_NONE;
  const Mat m = Times(kOps[CodeOp(code)], kOps[OrientationOp(orientation)]);
  for (int op = 0; op < 8; ++op)
    if (Same(m, kOps[op])) return op;
  return TJXOP_NONE;
}

bool TransformJpegData(const std::vector<uint8_t> &source, int code, std::vector<uint8_t> *result,
                       std::string *error) {
  if (source.empty()) {
    *error = "empty file";
    return false;
  }
  const int orientation = JpegExifOrientation(source.data(), source.size());
  const int op = JpegCombinedOperation(code, orientation);
  tjhandle handle = tjInitTransform();
  if (!handle) {
    *error = tjGetErrorStr2(nullptr);
    return false;
  }
  tjtransform t;
  std::memset(&t, 0, sizeof t);
  t.op = op;
  t.options = 0;  // untrimmed partial blocks, colour kept, every marker copied
  unsigned char *out = nullptr;
  unsigned long out_size = 0;
  // A warning (a damaged but readable file) stops the transform too: the
  // source stays as it is rather than be rewritten from a partial decode.
  const int rc = tjTransform(handle, source.data(), source.size(), 1, &out, &out_size, &t, TJFLAG_STOPONWARNING);
  const bool ok = rc == 0 && out && out_size > 0;
  if (!ok) *error = tjGetErrorStr2(handle);
  if (ok) {
    result->assign(out, out + out_size);
    // The sizes are taken from the source: the library may or may not have
    // adjusted the copy's block already.
    const bool turned = op == TJXOP_TRANSPOSE || op == TJXOP_TRANSVERSE || op == TJXOP_ROT90 || op == TJXOP_ROT270;
    ExifSizes sizes;
    // Reading only, as in JpegExifPixelSize.
    uint8_t *const source_bytes = const_cast<uint8_t *>(source.data());
    if (code != kJpegNone && EditExif(source_bytes, source.size(), false, &sizes, nullptr)) {
      const ExifSizes target = turned ? Swapped(sizes) : sizes;
      EditExif(result->data(), result->size(), true, nullptr, &target);
    }
  }
  if (out) tjFree(out);
  tjDestroy(handle);
  return ok;
}

int TransformJpegFile(const std::string &path, int code) {
  if (code < kJpegNone || code > kJpegFlipH || path.empty()) return 0;
  std::vector<uint8_t> source, result;
  std::string error;
  if (!ReadWhole(path, &source) || !TransformJpegData(source, code, &result, &error)) return 0;
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return 0;

  const std::string temp = JpegTempPath(path);
  if (temp == path) return 0;  // a name ending with "_" has no temporary name of its own
  // A file that happens to have the temporary name is left alone.
  const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return 0;
  bool ok = ::fchmod(fd, st.st_mode & 07777) == 0;
  size_t done = 0;
  while (ok && done < result.size()) {
    const ssize_t n = ::write(fd, result.data() + done, result.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) ok = false;
    else done += static_cast<size_t>(n);
  }
  ok = ok && ::fsync(fd) == 0;
  ok = ::close(fd) == 0 && ok;
  // The rename replaces the source in one step: there is never a moment
  // without one of the two whole files.
  if (ok && std::rename(temp.c_str(), path.c_str()) == 0) return 1;
  ::unlink(temp.c_str());
  return 0;
}

}  // namespace quilla
