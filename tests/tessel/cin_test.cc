// Cineon reader and writer: ImageMagick's files, our 10-bit files read by
// ImageMagick, little-endian and bottom-up files, the load look-up table,
// damaged and absurd files.
#include <gtest/gtest.h>

#include <algorithm>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

const char kRawColours[] = "-set colorspace sRGB";  // the stored codes, not ImageMagick's film curve

// Reverses the bytes of the 32-bit field at `at`.
void Swap32(std::string &d, size_t at) { std::reverse(d.begin() + at, d.begin() + at + 4); }

TEST(Cineon, ReadsImageMagickFilesAndImageMagickReadsOurs) {
  if (!HaveTool("convert")) GTEST_SKIP() << "convert missing";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 31, 17, 6));
  ExpectToolFileMatches(dir, src, "convert SRC -depth 8 OUT", "x.cin", TSL_RGB, 0, kRawColours);
  ExpectToolFileMatches(dir, src, "convert SRC -depth 10 OUT", "x.cin", TSL_RGB, 1, kRawColours);
  ExpectToolFileMatches(dir, src, "convert SRC -depth 16 OUT", "x.cin", TSL_RGB, 1, kRawColours);
  for (int model : {TSL_RGB, TSL_GREY, TSL_RGBA}) {
    Pic pic(MakePicture(model, 31, 17, 7));
    const std::string path = dir.file("ours.cin");
    ASSERT_EQ(Save(path, pic, "cin"), TSL_OK);
    Info info;
    ASSERT_EQ(FileInfo(path, &info), TSL_OK);
    EXPECT_EQ(info->bits_per_plane, 10);
    Pic back, theirs;
    ASSERT_EQ(Load(path, &back), TSL_OK);
    EXPECT_TRUE(SameColors(pic, back)) << model;  // 8 -> 10 -> 8 bits is exact
    ASSERT_TRUE(DecodeWithConvert(dir, path, &theirs, "convert", kRawColours));
    EXPECT_TRUE(SameColors(pic, theirs, 1)) << model;
  }
}

TEST(Cineon, LittleEndianBottomUpFilesAndTheLoadTable) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 7, 5, 9));
  const std::string path = dir.file("be.cin");
  ASSERT_EQ(Save(path, src, "cin"), TSL_OK);
  std::string d = ReadFile(path);
  // The same file in the other byte order, stored bottom up.
  for (size_t at : {0, 4, 8, 12, 16, 20, 684, 688}) Swap32(d, at);
  for (size_t c = 0; c < 3; ++c)
    for (size_t f = 4; f < 28; f += 4) Swap32(d, 196 + 28 * c + f);
  for (size_t at = 2048; at + 4 <= d.size(); at += 4) Swap32(d, at);
  d[192] = 1;
  int code;
  Pic le = LoadBytes(dir, d, &code);
  ASSERT_EQ(code, TSL_OK);
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 7; ++x)
      for (int c = 0; c < 3; ++c) ASSERT_EQ(Px(le, x, 4 - y, c), Px(src, x, y, c));
  // A 1024-entry load table: the 10-bit code picks the entry.
  std::vector<uint16_t> ramp(1024);
  for (int k = 0; k < 1024; ++k) ramp[k] = static_cast<uint16_t>(k % 256);
  TslParams p = Params();
  p.lut[0] = p.lut[1] = p.lut[2] = ramp.data();
  p.lut_size = 1024;
  Pic mapped;
  ASSERT_EQ(tslLoad(path.c_str(), &mapped, &p), TSL_OK);
  for (int x = 0; x < 7; ++x) EXPECT_EQ(Px(mapped, x, 2, 1), ((Px(src, x, 2, 1) * 1023 + 127) / 255) % 256);
}

TEST(Cineon, TruncatedAndAbsurdFiles) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 40, 30, 5));
  const std::string good = dir.file("g.cin");
  ASSERT_EQ(Save(good, src, "cin"), TSL_OK);
  CheckTruncations(dir, good, Fmt("cin"), 2048);
  const std::string d = ReadFile(good);
  int code;
  for (auto [at, value] : std::vector<std::pair<size_t, int>>{{193, 2}, {198, 11}, {680, 1}, {681, 3}}) {
    std::string bad = d;
    bad[at] = static_cast<char>(value);
    LoadBytes(dir, bad, &code);
    EXPECT_EQ(code, TSL_ERR_BAD_FILE) << at;
  }
  std::string huge = d;  // 65535 x 65535 claimed by the first channel only: refused as uneven
  huge[200] = huge[201] = huge[204] = huge[205] = '\xff';
  LoadBytes(dir, huge, &code);
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  for (size_t c = 1; c < 3; ++c) std::copy(huge.begin() + 200, huge.begin() + 208, huge.begin() + 200 + 28 * c);
  LoadBytes(dir, huge, &code);
  EXPECT_EQ(code, TSL_ERR_MEMORY);
  LoadRandomlyDamaged(dir, d.substr(0, 2048 + 300), 12);
}

}  // namespace
