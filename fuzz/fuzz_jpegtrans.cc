// Fuzz target for the lossless JPEG transform's readers: the EXIF walk and
// the transform of whatever bytes a file holds.  Nothing crashes, the EXIF
// edit never changes the length, and a transform that succeeds gives a
// JPEG that transforms again.
#include <turbojpeg.h>

#include <vector>

#include "files/jpegtrans.h"
#include "fuzz/side_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::vector<uint8_t> bytes(data, data + size);
  const int orientation = quilla::JpegExifOrientation(bytes.data(), bytes.size());
  if (orientation < 0 || orientation > 8) sidefuzz::Fail("orientation out of range");
  uint32_t w, h;
  quilla::JpegExifPixelSize(bytes.data(), bytes.size(), &w, &h);
  if (quilla::JpegResetExifOrientation(bytes.data(), bytes.size(), true) && bytes.size() != size)
    sidefuzz::Fail("length changed");
  const int code = size > 0 ? data[size - 1] % 6 : 1;
  std::vector<uint8_t> once, twice;
  std::string error;
  if (quilla::TransformJpegData(std::vector<uint8_t>(data, data + size), code, &once, &error)) {
    if (quilla::JpegExifOrientation(once.data(), once.size()) > 1 && code != quilla::kJpegNone)
      sidefuzz::Fail("orientation not reset");
    if (!quilla::TransformJpegData(once, quilla::kJpegNone, &twice, &error)) sidefuzz::Fail("result unreadable");
  } else if (error.empty()) {
    sidefuzz::Fail("refused without a reason");
  }
  return 0;
}

namespace {

std::string Be16(int v) { return std::string{static_cast<char>(v >> 8), static_cast<char>(v & 255)}; }

std::string Jpeg(int w, int h, int subsamp, const std::string &segments) {
  std::vector<unsigned char> px(static_cast<size_t>(w) * h * 3);
  for (size_t i = 0; i < px.size(); ++i) px[i] = static_cast<unsigned char>(i * 31 / 7);
  tjhandle t = tjInitCompress();
  unsigned char *buf = nullptr;
  unsigned long n = 0;
  tjCompress2(t, px.data(), w, 0, h, TJPF_RGB, &buf, &n, subsamp, 75, 0);
  std::string j(reinterpret_cast<char *>(buf), n);
  tjFree(buf);
  tjDestroy(t);
  return j.substr(0, 2) + segments + j.substr(2);
}

std::string Exif(bool big, int orientation) {
  auto u16 = [big](int v) { return big ? Be16(v) : std::string{static_cast<char>(v & 255), static_cast<char>(v >> 8)}; };
  auto u32 = [&](uint32_t v) { return big ? u16(static_cast<int>(v >> 16)) + u16(static_cast<int>(v & 0xffff))
                                          : u16(static_cast<int>(v & 0xffff)) + u16(static_cast<int>(v >> 16)); };
  std::string t = std::string(big ? "MM" : "II") + u16(42) + u32(8);
  t += u16(2) + u16(0x0112) + u16(3) + u32(1) + u16(orientation) + u16(0) + u16(0x8769) + u16(4) + u32(1) + u32(38) +
       u32(0);
  t += u16(2) + u16(0xA002) + u16(4) + u32(1) + u32(40) + u16(0xA003) + u16(3) + u32(1) + u16(24) + u16(0) + u32(0);
  const std::string body = std::string("Exif\0\0", 6) + t;
  return "\xFF\xE1" + Be16(static_cast<int>(body.size()) + 2) + body;
}

}  // namespace

void WriteSeeds(const std::string &dir) {
  const std::string comment = "\xFF\xFE" + Be16(7) + "hello";
  sidefuzz::WriteWithDamage(dir, "exif-mm.jpg", Jpeg(40, 24, TJSAMP_420, Exif(true, 6) + comment));
  sidefuzz::WriteWithDamage(dir, "exif-ii.jpg", Jpeg(37, 23, TJSAMP_444, Exif(false, 8)));
  sidefuzz::WriteFile(dir + "/plain.jpg", Jpeg(16, 16, TJSAMP_GRAY, ""));
  sidefuzz::WriteFile(dir + "/markers-only.jpg", std::string("\xFF\xD8", 2) + Exif(true, 3) + "\xFF\xD9");
}
