// Lossless JPEG transforms on real files: pixels after turns and flips,
// markers kept, the EXIF orientation folded in and reset, untrimmed edges,
// and every failure leaving the source byte for byte.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "files/jpegtrans.h"
#include "test_util.h"

namespace quilla {
namespace {

using testutil::FileExists;
using testutil::ReadFile;
using testutil::TempDir;

struct Rgb {
  int w = 0, h = 0;
  std::vector<uint8_t> px;
  uint8_t *at(int x, int y) { return &px[(static_cast<size_t>(y) * w + x) * 3]; }
};

Rgb Pattern(int w, int h) {
  Rgb p;
  p.w = w, p.h = h;
  p.px.resize(static_cast<size_t>(w) * h * 3);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      uint8_t *c = p.at(x, y);
      c[0] = static_cast<uint8_t>(x * 255 / w), c[1] = static_cast<uint8_t>(y * 255 / h);
      c[2] = static_cast<uint8_t>((x * 7 + y * 13) & 255);
    }
  return p;
}

std::string Be16(int v) { return std::string{static_cast<char>(v >> 8), static_cast<char>(v & 255)}; }

// A big-endian EXIF block: orientation in the first directory, pixel
// width and height (SHORT and LONG) in the EXIF directory.
std::string ExifSegment(int orientation, int w, int h) {
  std::string t = "MM" + Be16(42) + std::string("\0\0\0\x08", 4);
  auto entry = [](int tag, int type, uint32_t value) {
    std::string e = Be16(tag) + Be16(type) + std::string("\0\0\0\x01", 4);
    if (type == 3) return e + Be16(static_cast<int>(value)) + std::string(2, '\0');
    return e + Be16(static_cast<int>(value >> 16)) + Be16(static_cast<int>(value & 0xffff));
  };
  t += Be16(2) + entry(0x0112, 3, static_cast<uint32_t>(orientation)) + entry(0x8769, 4, 8 + 2 + 24 + 4) +
       std::string(4, '\0');
  t += Be16(2) + entry(0xA002, 3, static_cast<uint32_t>(w)) + entry(0xA003, 4, static_cast<uint32_t>(h)) +
       std::string(4, '\0');
  const std::string body = std::string("Exif\0\0", 6) + t;
  return "\xFF\xE1" + Be16(static_cast<int>(body.size()) + 2) + body;
}

const char kComment[] = "kept through every turn";

// A JPEG of the pattern with EXIF, a comment and an ICC segment after SOI.
std::string MakeJpeg(const Rgb &p, int subsamp, int orientation) {
  tjhandle h = tjInitCompress();
  unsigned char *buf = nullptr;
  unsigned long size = 0;
  EXPECT_EQ(tjCompress2(h, p.px.data(), p.w, 0, p.h, TJPF_RGB, &buf, &size, subsamp, 90, 0), 0);
  std::string jpeg(reinterpret_cast<char *>(buf), size);
  tjFree(buf);
  tjDestroy(h);
  const std::string icc_body = std::string("ICC_PROFILE\0\x01\x01", 14) + std::string(100, '\x5a');
  std::string extra = ExifSegment(orientation, p.w, p.h);
  extra += "\xFF\xFE" + Be16(static_cast<int>(sizeof kComment - 1) + 2) + kComment;
  extra += "\xFF\xE2" + Be16(static_cast<int>(icc_body.size()) + 2) + icc_body;
  return jpeg.substr(0, 2) + extra + jpeg.substr(2);
}

Rgb Decode(const std::string &jpeg) {
  Rgb p;
  tjhandle h = tjInitDecompress();
  int ss, cs;
  const auto *data = reinterpret_cast<const unsigned char *>(jpeg.data());
  EXPECT_EQ(tjDecompressHeader3(h, data, jpeg.size(), &p.w, &p.h, &ss, &cs), 0);
  p.px.resize(static_cast<size_t>(p.w) * p.h * 3);
  EXPECT_EQ(tjDecompress2(h, data, jpeg.size(), p.px.data(), p.w, 0, p.h, TJPF_RGB, 0), 0);
  tjDestroy(h);
  return p;
}

Rgb Rotate90(Rgb &p) {  // clockwise
  Rgb r;
  r.w = p.h, r.h = p.w;
  r.px.resize(p.px.size());
  for (int y = 0; y < p.h; ++y)
    for (int x = 0; x < p.w; ++x) std::memcpy(r.at(p.h - 1 - y, x), p.at(x, y), 3);
  return r;
}

int Orientation(const std::string &jpeg) {
  return JpegExifOrientation(reinterpret_cast<const uint8_t *>(jpeg.data()), jpeg.size());
}

std::string PixelSize(const std::string &jpeg) {
  uint32_t w = 0, h = 0;
  if (!JpegExifPixelSize(reinterpret_cast<const uint8_t *>(jpeg.data()), jpeg.size(), &w, &h)) return "none";
  return std::to_string(w) + "x" + std::to_string(h);
}

TEST(JpegTransform, TurnsAndFlipsMoveThePixelsExactly) {
  TempDir dir;
  const std::string path = dir.file("photo.jpg");
  testutil::WriteFile(path, MakeJpeg(Pattern(64, 48), TJSAMP_444, 1));
  Rgb original = Decode(ReadFile(path));

  ASSERT_EQ(TransformJpegFile(path, kJpegRotate90), 1);
  EXPECT_FALSE(FileExists(dir.file("photo.jp_")));
  Rgb once = Decode(ReadFile(path));
  EXPECT_EQ(once.w, 48);
  // The turned coefficients decode to the turned picture, up to the
  // rounding of the inverse DCT, which is not symmetric in x and y.
  const Rgb turned = Rotate90(original);
  int worst = 0;
  for (size_t i = 0; i < turned.px.size(); ++i) worst = std::max(worst, std::abs(once.px[i] - turned.px[i]));
  EXPECT_LE(worst, 3);
  for (int k = 0; k < 3; ++k) ASSERT_EQ(TransformJpegFile(path, kJpegRotate90), 1);
  EXPECT_EQ(Decode(ReadFile(path)).px, original.px);

  ASSERT_EQ(TransformJpegFile(path, kJpegRotate180), 1);
  ASSERT_EQ(TransformJpegFile(path, kJpegFlipV), 1);
  ASSERT_EQ(TransformJpegFile(path, kJpegFlipH), 1);  // 180 then both flips: back where it was
  EXPECT_EQ(Decode(ReadFile(path)).px, original.px);
  ASSERT_EQ(TransformJpegFile(path, kJpegRotate270), 1);
  ASSERT_EQ(TransformJpegFile(path, kJpegRotate90), 1);
  EXPECT_EQ(Decode(ReadFile(path)).px, original.px);
}

TEST(JpegTransform, MarkersSurviveAndExifIsSetUpright) {
  TempDir dir;
  const std::string path = dir.file("m.jpg");
  const std::string source = MakeJpeg(Pattern(64, 48), TJSAMP_420, 1);
  testutil::WriteFile(path, source);
  ASSERT_EQ(TransformJpegFile(path, kJpegRotate90), 1);
  const std::string after = ReadFile(path);
  EXPECT_NE(after.find(kComment), std::string::npos);
  EXPECT_NE(after.find(std::string("ICC_PROFILE\0\x01\x01", 14) + std::string(100, '\x5a')), std::string::npos);
  // The EXIF pixel size follows the turn.
  EXPECT_EQ(PixelSize(after), "48x64");
  EXPECT_EQ(Orientation(after), 1);
  ASSERT_EQ(TransformJpegFile(path, kJpegRotate180), 1);
  EXPECT_EQ(PixelSize(ReadFile(path)), "48x64");
  ASSERT_EQ(TransformJpegFile(path, kJpegRotate270), 1);
  EXPECT_EQ(PixelSize(ReadFile(path)), "64x48");

  // Code 0 rewrites the file without touching the orientation.
  const std::string turned = dir.file("o.jpg");
  testutil::WriteFile(turned, MakeJpeg(Pattern(32, 16), TJSAMP_444, 6));
  ASSERT_EQ(TransformJpegFile(turned, kJpegNone), 1);
  EXPECT_EQ(Orientation(ReadFile(turned)), 6);
}

TEST(JpegTransform, TheShownOrientationIsFoldedIn) {
  // Shown turned by its orientation 6 (90 degrees), a picture turned once
  // more by the user ends up half a turn from its stored pixels, upright.
  TempDir dir;
  const std::string path = dir.file("phone.jpg");
  testutil::WriteFile(path, MakeJpeg(Pattern(64, 32), TJSAMP_444, 6));
  Rgb stored = Decode(ReadFile(path));
  ASSERT_EQ(TransformJpegFile(path, kJpegRotate90), 1);
  const std::string after = ReadFile(path);
  EXPECT_EQ(Orientation(after), 1);
  Rgb once = Rotate90(stored);
  EXPECT_EQ(Decode(after).px, Rotate90(once).px);  // half a turn is exact
  EXPECT_EQ(PixelSize(after), "64x32");  // half a turn: the size stays

  for (int o = 1; o <= 8; ++o)
    for (int code = 1; code <= 5; ++code) EXPECT_GE(JpegCombinedOperation(code, o), 0);
  EXPECT_EQ(JpegCombinedOperation(kJpegRotate90, 8), TJXOP_NONE);
  EXPECT_EQ(JpegCombinedOperation(kJpegFlipH, 2), TJXOP_NONE);
  EXPECT_EQ(JpegCombinedOperation(kJpegRotate90, 1), TJXOP_ROT90);
  EXPECT_EQ(JpegCombinedOperation(kJpegNone, 6), TJXOP_NONE);
}

TEST(JpegTransform, PartialEdgeBlocksAreKept) {
  TempDir dir;
  const std::string path = dir.file("odd.jpg");
  testutil::WriteFile(path, MakeJpeg(Pattern(37, 23), TJSAMP_420, 1));
  ASSERT_EQ(TransformJpegFile(path, kJpegRotate90), 1);
  Rgb r = Decode(ReadFile(path));
  EXPECT_EQ(r.w, 23);
  EXPECT_EQ(r.h, 37);
  EXPECT_EQ(JpegTempPath("photo.jpg"), "photo.jp_");
}

TEST(JpegTransform, EveryFailureLeavesTheSource) {
  TempDir dir;
  const std::string good = MakeJpeg(Pattern(64, 48), TJSAMP_420, 1);
  // Not a JPEG, a truncated one, an empty file, a directory, a missing file.
  const std::vector<std::pair<std::string, std::string>> bad = {
      {"text.jpg", "hello"}, {"cut.jpg", good.substr(0, good.size() / 2)}, {"empty.jpg", ""}};
  for (const auto &b : bad) {
    testutil::WriteFile(dir.file(b.first), b.second);
    EXPECT_EQ(TransformJpegFile(dir.file(b.first), kJpegRotate90), 0) << b.first;
    EXPECT_EQ(ReadFile(dir.file(b.first)), b.second);
  }
  EXPECT_EQ(TransformJpegFile(dir.path(), kJpegRotate90), 0);
  EXPECT_EQ(TransformJpegFile(dir.file("missing.jpg"), kJpegRotate90), 0);
  EXPECT_EQ(TransformJpegFile(dir.file("text.jpg"), 9), 0);

  // A file that happens to carry the temporary name is never overwritten.
  testutil::WriteFile(dir.file("p.jpg"), good);
  testutil::WriteFile(dir.file("p.jp_"), "mine");
  EXPECT_EQ(TransformJpegFile(dir.file("p.jpg"), kJpegRotate90), 0);
  EXPECT_EQ(ReadFile(dir.file("p.jp_")), "mine");
  EXPECT_EQ(ReadFile(dir.file("p.jpg")), good);
  ::unlink(dir.file("p.jp_").c_str());

  // A disk that fills up while the temporary is written, and a directory
  // the user may not write in (the child drops root's rights for that).
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::signal(SIGXFSZ, SIG_IGN);
    struct rlimit lim = {1024, 1024};
    ::setrlimit(RLIMIT_FSIZE, &lim);
    int bad_result = TransformJpegFile(dir.file("p.jpg"), kJpegRotate90) != 0;
    lim = {RLIM_INFINITY, RLIM_INFINITY};
    ::setrlimit(RLIMIT_FSIZE, &lim);
    ::chmod(dir.path().c_str(), 0555);
    if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) ::_exit(2);
    bad_result |= (TransformJpegFile(dir.file("p.jpg"), kJpegRotate90) != 0) << 2;
    ::_exit(bad_result);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ::chmod(dir.path().c_str(), 0755);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(ReadFile(dir.file("p.jpg")), good);
  EXPECT_FALSE(FileExists(dir.file("p.jp_")));
}

TEST(JpegExif, ResetSwapsWhatTheBlockHolds) {
  const std::string j = MakeJpeg(Pattern(16, 8), TJSAMP_444, 3);
  std::vector<uint8_t> bytes(j.begin(), j.end());
  ASSERT_TRUE(JpegResetExifOrientation(bytes.data(), bytes.size(), true));
  EXPECT_EQ(bytes.size(), j.size());
  EXPECT_EQ(PixelSize(std::string(bytes.begin(), bytes.end())), "8x16");
  EXPECT_EQ(JpegExifOrientation(bytes.data(), bytes.size()), 1);
  std::vector<uint8_t> none = {0xFF, 0xD8, 0xFF, 0xD9};
  EXPECT_FALSE(JpegResetExifOrientation(none.data(), none.size(), true));
}

}  // namespace
}  // namespace quilla
