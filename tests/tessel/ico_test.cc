// Windows icon reader and writer: every size a page, PNG pages, AND masks.
#include <gtest/gtest.h>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

// Same alpha everywhere and the same colour wherever a pixel shows.
::testing::AssertionResult SameVisible(const TslPicture &a, const TslPicture &b) {
  if (a.width != b.width || a.height != b.height)
    return ::testing::AssertionFailure() << a.width << "x" << a.height << " vs " << b.width << "x" << b.height;
  std::vector<uint8_t> ra(a.width * 4), rb(b.width * 4);
  for (uint32_t y = 0; y < a.height; ++y) {
    tslGetRowRGBA(&a, y, ra.data());
    tslGetRowRGBA(&b, y, rb.data());
    for (uint32_t x = 0; x < a.width; ++x) {
      const uint8_t *p = &ra[4 * x], *q = &rb[4 * x];
      if (p[3] != q[3] || (p[3] && (p[0] != q[0] || p[1] != q[1] || p[2] != q[2])))
        return ::testing::AssertionFailure() << "pixel " << x << "," << y;
    }
  }
  return ::testing::AssertionSuccess();
}

// ImageMagick's decode of page `page` as RGBA.
bool DecodePage(const TempDir &dir, const std::string &file, int page, TslPicture *out) {
  const std::string png = dir.file("page.png");
  if (Sh("convert '" + file + "[" + std::to_string(page) + "]' -depth 8 '" + png + "'") != 0) return false;
  TslParams p = Params("png");
  return tslLoad(png.c_str(), out, &p) == TSL_OK;
}

TEST(Icon, EverySizeOfAnImageMagickIconIsAPage) {
  if (!HaveTool("convert")) GTEST_SKIP() << "convert missing";
  TempDir dir;
  Pic src(MakePicture(TSL_RGBA, 256, 256, 3));
  for (uint32_t y = 0; y < 256; ++y)
    for (uint32_t x = 0; x < 256; ++x) src->pixels[y * src->bytes_per_line + 4 * x + 3] = x < 40 ? 0 : x > 200 ? 255 : x;
  ASSERT_EQ(Save(dir.file("big.png"), src, "png"), TSL_OK);
  const std::string ico = dir.file("x.ico");
  // 256 as PNG, the others as 32-bit bitmaps with masks.
  ASSERT_EQ(Sh("convert '" + dir.file("big.png") + "' -define icon:auto-resize=256,48,32,16 '" + ico + "'"), 0);
  Info info;
  ASSERT_EQ(FileInfo(ico, &info), TSL_OK);
  EXPECT_EQ(info->pages, 4);
  EXPECT_EQ(info->width, 256u);
  EXPECT_EQ(info->compression, TSL_COMP_DEFLATE);
  const uint32_t sides[] = {256, 48, 32, 16};
  for (int page = 0; page < 4; ++page) {
    SCOPED_TRACE(page);
    Pic ours, theirs;
    ASSERT_EQ(Load(ico, &ours, page), TSL_OK);
    EXPECT_EQ(ours->width, sides[page]);
    ASSERT_TRUE(DecodePage(dir, ico, page, &theirs));
    EXPECT_TRUE(SameVisible(ours, theirs));
    Info page_info;
    ASSERT_EQ(FileInfo(ico, &page_info, -1, page), TSL_OK);
    EXPECT_EQ(page_info->width, sides[page]);
  }
  Pic none;
  EXPECT_EQ(Load(ico, &none, 4), TSL_ERR_BAD_FILE);
}

TEST(Icon, PaletteIconsTakeTheirTransparencyFromTheAndMask) {
  if (!HaveTool("ppmtowinicon") || !HaveTool("convert")) GTEST_SKIP() << "ppmtowinicon missing";
  TempDir dir;
  // 1-, 4- and 8-bit pages, by the number of colours, each with a mask
  // that is white (opaque, to netpbm) on its left eight columns.
  const std::string ico = dir.file("n.ico");
  std::string cmd = "ppmtowinicon -andpgms";
  const int colours[] = {2, 16, 200};
  std::vector<Pic> pics;
  for (int i = 0; i < 3; ++i) {
    const uint32_t side = 16u << (i % 2);
    Pic p(MakePicture(TSL_INDEXED, side, side, 7 + i, colours[i]));
    Pic m(MakePicture(TSL_GREY, side, side, 1));
    for (uint32_t y = 0; y < side; ++y)
      for (uint32_t x = 0; x < side; ++x) m->pixels[y * m->bytes_per_line + x] = x < 8 ? 255 : 0;
    const std::string ppm = dir.file("p" + std::to_string(i) + ".ppm"), pgm = dir.file("m" + std::to_string(i) + ".pgm");
    WritePpm(ppm, p);
    ASSERT_EQ(Save(pgm, m, "pgm"), TSL_OK);
    cmd += " '" + ppm + "' '" + pgm + "'";
    pics.push_back(std::move(p));
  }
  ASSERT_EQ(Sh(cmd + " > '" + ico + "'"), 0) << cmd;
  Info info;
  ASSERT_EQ(FileInfo(ico, &info), TSL_OK);
  ASSERT_EQ(info->pages, 3);
  for (int page = 0; page < 3; ++page) {
    SCOPED_TRACE(page);
    Pic ours;
    ASSERT_EQ(Load(ico, &ours, page), TSL_OK);
    ASSERT_TRUE(SameColors(pics[page], ours));
    for (uint32_t x = 0; x < ours->width; ++x) EXPECT_EQ(Px(ours, x, 3, 3), x < 8 ? 255 : 0) << x;
  }
}

TEST(Icon, OurIconsHoldEveryPageAndOtherProgramsReadThem) {
  TempDir dir;
  const std::string ico = dir.file("ours.ico");
  std::vector<Pic> pics;
  TslFile *file = nullptr;
  TslParams p = Params("ico");
  ASSERT_EQ(tslFileCreate(&file, ico.c_str(), Fmt("ico"), 3, &p), TSL_OK);
  const int models[] = {TSL_RGBA, TSL_INDEXED, TSL_GREY};
  const uint32_t sides[] = {16, 48, 256};
  for (int i = 0; i < 3; ++i) {
    Pic pic(MakePicture(models[i], sides[i], sides[i] - (i == 0 ? 3 : 0), 20 + i, 40));
    if (models[i] == TSL_RGBA)
      for (uint32_t x = 0; x < 16; ++x) pic->pixels[4 * x + 3] = x < 5 ? 0 : 255;
    ASSERT_EQ(tslFileAddPicture(file, &pic, &p), TSL_OK);
    pics.push_back(std::move(pic));
  }
  ASSERT_EQ(tslFileClose(file), TSL_OK);
  for (int i = 0; i < 3; ++i) {
    Pic back;
    ASSERT_EQ(Load(ico, &back, i), TSL_OK);
    EXPECT_TRUE(SameVisible(pics[i], back)) << i;
    if (HaveTool("convert")) {
      Pic theirs;
      ASSERT_TRUE(DecodePage(dir, ico, i, &theirs));
      EXPECT_TRUE(SameVisible(pics[i], theirs)) << i;
    }
  }
  // One picture with tslSave; above 256 pixels a side the format cannot hold it.
  ASSERT_EQ(Save(dir.file("one.ico"), pics[0], "ico"), TSL_OK);
  Info info;
  ASSERT_EQ(FileInfo(dir.file("one.ico"), &info), TSL_OK);
  EXPECT_EQ(info->pages, 1);
  Pic wide(MakePicture(TSL_RGB, 257, 3, 1));
  EXPECT_EQ(Save(dir.file("wide.ico"), wide, "ico"), TSL_ERR_CANT_SAVE);
}

TEST(Icon, TruncatedAndAbsurdFiles) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGBA, 32, 32, 4));
  const std::string good = dir.file("g.ico");
  ASSERT_EQ(Save(good, src, "ico"), TSL_OK);
  CheckTruncations(dir, good, Fmt("ico"), 22 + 40);
  const std::string d = ReadFile(good);
  int code;
  auto set16 = [](std::string s, size_t at, unsigned v) {
    s[at] = char(v & 0xff), s[at + 1] = char(v >> 8);
    return s;
  };
  LoadBytes(dir, set16(d, 4, 60000), &code, Fmt("ico"));  // a directory longer than the file
  EXPECT_EQ(code, TSL_ERR_READ);
  LoadBytes(dir, set16(d, 2, 3), &code, Fmt("ico"));  // neither icon nor cursor
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  LoadBytes(dir, set16(set16(d, 18, 0xffff), 20, 0x7fff), &code, Fmt("ico"));  // data beyond the end
  EXPECT_EQ(code, TSL_ERR_READ);
  LoadBytes(dir, set16(d, 22 + 14, 2), &code, Fmt("ico"));  // 2-bit bitmaps
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  LoadBytes(dir, set16(set16(d, 22 + 4, 0xffff), 22 + 6, 0x7fff), &code, Fmt("ico"));  // absurd width
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  LoadRandomlyDamaged(dir, d, 41);
}

}  // namespace
