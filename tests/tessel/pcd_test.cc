// Photo CD reader.  ImageMagick writes the three uncompressed resolutions;
// its decoder maps PhotoYCC to RGB with a curve of its own, so the test
// takes its raw luma and chroma planes and applies the published PhotoYCC
// equations to them.  Hand-made image packs pin the layout and rotation.
#include <gtest/gtest.h>

#include <cmath>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

// An image pack holding Base/16 (192 x 128) only: every luma byte `luma`,
// chroma neutral, the top-left pixel black; `rotation` in byte 0x0E02.
std::string HandMadePack(int luma, int rotation) {
  std::string d(0x2000, '\0');
  d.replace(0x800, 7, "PCD_IPI");
  d[0xE02] = static_cast<char>(rotation);
  for (int pair = 0; pair < 64; ++pair) {
    std::string rows(2 * 192, static_cast<char>(luma));
    if (pair == 0) rows[0] = 0;
    d += rows + std::string(96, '\x9c') + std::string(96, '\x89');  // chroma 156 and 137: grey
  }
  return d;
}

uint8_t Clamp(double v) { return static_cast<uint8_t>(v <= 0 ? 0 : v >= 255 ? 255 : v + 0.5); }

// The published PhotoYCC equations on ImageMagick's raw planes of `file`.
bool ReferenceDecode(const TempDir &dir, const std::string &file, TslPicture *out) {
  if (!ToolPnm("convert '" + file + "' -set colorspace sRGB -depth 8 ppm:-", dir, out)) return false;
  for (uint32_t y = 0; y < out->height; ++y)
    for (uint32_t x = 0; x < out->width; ++x) {
      uint8_t *p = out->pixels + y * out->bytes_per_line + 3 * x;
      const double l = 1.3584 * p[0], c1 = 2.2179 * (p[1] - 156.0), c2 = 1.8215 * (p[2] - 137.0);
      p[0] = Clamp(l + c2);
      p[1] = Clamp(l - 0.194 * c1 - 0.509 * c2);
      p[2] = Clamp(l + c1);
    }
  return true;
}

// Chroma is stored at half resolution; decoders fill it in differently.
void ExpectCloseTo(const TslPicture &ours, const TslPicture &ref) {
  ASSERT_EQ(ours.width, ref.width);
  ASSERT_EQ(ours.height, ref.height);
  EXPECT_LT(MeanAbsDiff(ours, ref), 0.5);
  EXPECT_TRUE(SameColors(ours, ref, 12));
}

int LoadBase(const std::string &path, TslPicture *pic, int base) {
  TslParams p = Params();
  p.pcd_base = base;
  return tslLoad(path.c_str(), pic, &p);
}

TEST(PhotoCd, ReadsEveryResolutionOfAnImageMagickPack) {
  if (!HaveTool("convert")) GTEST_SKIP() << "convert missing";
  TempDir dir;
  // Smooth colours: chroma is stored at half resolution.
  Pic src(MakePicture(TSL_RGB, 768, 512, 3));
  for (uint32_t y = 0; y < 512; ++y)
    for (uint32_t x = 0; x < 768; ++x) {
      uint8_t *p = src->pixels + y * src->bytes_per_line + 3 * x;
      p[0] = static_cast<uint8_t>(x / 3), p[1] = static_cast<uint8_t>(y / 2), p[2] = static_cast<uint8_t>((x + y) / 5);
    }
  WritePpm(dir.file("src.ppm"), src);
  const std::string pcd = dir.file("x.pcd");
  ASSERT_EQ(Sh("convert '" + dir.file("src.ppm") + "' '" + pcd + "'"), 0);
  const uint32_t widths[] = {192, 384, 768, 768, 768};  // the Huffman-coded sizes give Base
  for (int base = 0; base < 5; ++base) {
    Pic pic;
    ASSERT_EQ(LoadBase(pcd, &pic, base), TSL_OK) << base;
    EXPECT_EQ(pic->width, widths[base]);
    EXPECT_EQ(pic->height, widths[base] * 2 / 3);
  }
  Pic ours, ref;
  ASSERT_EQ(LoadBase(pcd, &ours, 2), TSL_OK);
  ASSERT_TRUE(ReferenceDecode(dir, pcd, &ref));
  ExpectCloseTo(ours, ref);
  // Portrait packs: a quarter turn either way, as ImageMagick turns them.
  for (char rotation : {1, 3}) {
    std::string d = ReadFile(pcd);
    d[0xE02] = rotation;
    WriteFile(dir.file("r.pcd"), d);
    Pic turned, turned_ref;
    ASSERT_EQ(LoadBase(dir.file("r.pcd"), &turned, 2), TSL_OK);
    EXPECT_EQ(turned->width, 512u);
    ASSERT_TRUE(ReferenceDecode(dir, dir.file("r.pcd"), &turned_ref));
    ExpectCloseTo(turned, turned_ref);
    Info info;
    ASSERT_EQ(FileInfo(dir.file("r.pcd"), &info), TSL_OK);
    EXPECT_EQ(info->height, 768u);
  }
}

TEST(PhotoCd, LayoutGreyLevelsAndRotations) {
  TempDir dir;
  int code;
  // Luma 189 is reference white; 100 is 1.3584 x 100 grey.
  for (auto [luma, grey] : std::vector<std::pair<int, int>>{{189, 255}, {100, 136}, {255, 255}}) {
    Pic pic = LoadBytes(dir, HandMadePack(luma, 0), &code);
    ASSERT_EQ(code, TSL_OK);
    ASSERT_EQ(pic->width, 192u);
    EXPECT_EQ(Px(pic, 0, 0, 1), 0);
    EXPECT_EQ(Px(pic, 5, 77, 0), grey);
    EXPECT_EQ(Px(pic, 191, 127, 2), grey);
  }
  // Where the black top-left pixel of the stored picture ends up.
  struct Turn {
    int rotation;
    uint32_t w, x, y;
  } turns[] = {{1, 128, 0, 191}, {2, 192, 191, 127}, {3, 128, 127, 0}};
  for (const Turn &t : turns) {
    Pic pic = LoadBytes(dir, HandMadePack(150, t.rotation), &code);
    ASSERT_EQ(code, TSL_OK);
    ASSERT_EQ(pic->width, t.w) << t.rotation;
    EXPECT_EQ(Px(pic, t.x, t.y, 0), 0) << t.rotation;
    EXPECT_EQ(Px(pic, 0, 0, 0) + Px(pic, t.w - 1, 0, 0) + Px(pic, 0, pic->height - 1, 0) +
                  Px(pic, t.w - 1, pic->height - 1, 0),
              3 * 204) << t.rotation;
  }
}

TEST(PhotoCd, TruncatedAndForeignFiles) {
  TempDir dir;
  const std::string pack = HandMadePack(120, 0);
  int code;
  // The pack holds Base/16 only: larger resolutions are missing.
  WriteFile(dir.file("p.pcd"), pack);
  Pic pic;
  EXPECT_EQ(LoadBase(dir.file("p.pcd"), &pic, 2), TSL_ERR_READ);
  EXPECT_EQ(pic->pixels, nullptr);
  CheckTruncations(dir, dir.file("p.pcd"), Fmt("pcd"), 0x2000);
  ExpectLimitAndStop(dir.file("p.pcd"), 192 * 128);
  std::string foreign = pack;
  foreign[0x801] = 'X';
  LoadBytes(dir, foreign, &code, Fmt("pcd"));
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  LoadBytes(dir, pack.substr(0, 0x900), &code);
  EXPECT_EQ(code, TSL_ERR_READ);
}

}  // namespace
