// BMP reader and writer: round trips, files written by ImageMagick and
// netpbm, hand-made files for RLE escapes, bit fields and rare headers, and
// damaged input.
#include <gtest/gtest.h>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

// A BMP file: file header, an info header of `hs` bytes (width, height,
// planes, bits, compression, colours used), then `extra` (masks), palette
// and pixel data.
std::string BmpFile(uint32_t hs, int32_t w, int32_t h, int bits, uint32_t compression, const std::string &extra,
                    const std::string &palette, const std::string &data, uint32_t clr_used = 0) {
  std::string info = Le32(hs);
  if (hs == 12) {
    info += Le16(w) + Le16(h) + Le16(1) + Le16(bits);
  } else {
    info += Le32(w) + Le32(h) + Le16(1) + Le16(bits) + Le32(compression) + Le32(data.size()) + Le32(2835) +
            Le32(2835) + Le32(clr_used) + Le32(0);
    info.resize(hs, '\0');
  }
  const uint32_t offset = 14 + hs + extra.size() + palette.size();
  return "BM" + Le32(offset + data.size()) + Le32(0) + Le32(offset) + info + extra + palette + data;
}

std::string Palette4(int n) {
  std::string p;
  for (int i = 0; i < n; ++i) p += std::string{char(i * 10), char(i * 20), char(i * 5), 0};  // B G R 0
  return p;
}

// Rows of an 8-bit picture, top row first, equal to `want`.
void ExpectRows(const TslPicture &p, const std::vector<std::vector<int>> &want) {
  for (size_t y = 0; y < want.size(); ++y)
    for (size_t x = 0; x < want[y].size(); ++x) EXPECT_EQ(Px(p, x, y), want[y][x]) << x << "," << y;
}

TEST(Bmp, RoundTripEveryKindAndOption) {
  TempDir dir;
  const int kinds[][2] = {{TSL_BINARY, 2}, {TSL_INDEXED, 2}, {TSL_INDEXED, 16}, {TSL_INDEXED, 200},
                          {TSL_GREY, 256}, {TSL_RGB, 0},     {TSL_RGBA, 0}};
  for (const auto &k : kinds)
    for (int rle : {0, 1})
      for (int os2 : {0, 1}) {
        SCOPED_TRACE(testing::Message() << "model " << k[0] << " colours " << k[1] << " rle " << rle << " os2 " << os2);
        Pic src(MakePicture(k[0], 45, 13, 7, k[1]));
        src->attr_pair[0] = src->attr_pair[1] = 300;
        const std::string file = dir.file("rt.bmp");
        ASSERT_EQ(Save(file, src, "bmp", rle, 0, os2), TSL_OK);
        Pic back, other;
        ASSERT_EQ(Load(file, &back), TSL_OK);
        const bool alpha = k[0] == TSL_RGBA && !os2;
        EXPECT_TRUE(SameColors(src, back, 0, alpha));
        if (k[0] != TSL_GREY && (k[0] != TSL_RGBA || alpha)) {
          EXPECT_TRUE(SamePixels(src, back));
        }
        if (k[0] == TSL_INDEXED) {
          EXPECT_EQ(back->colors, os2 ? (k[1] <= 2 ? 2 : k[1] <= 16 ? 16 : 256) : k[1]);
        }
        EXPECT_EQ(back->attr_pair[0], os2 ? 0u : 300u);
        ASSERT_TRUE(DecodeWithConvert(dir, file, &other));
        EXPECT_TRUE(SameColors(src, other));
        Info info;
        ASSERT_EQ(FileInfo(file, &info), TSL_OK);
        EXPECT_EQ(info->format, Fmt("bmp"));
        EXPECT_EQ(info->compression, rle && (k[0] == TSL_GREY || k[1] > 16) && !os2 ? TSL_COMP_RLE : TSL_COMP_NONE);
      }
}

TEST(Bmp, RleIsSmallerOnFlatPictures) {
  TempDir dir;
  Pic src(MakePicture(TSL_GREY, 200, 50, 3));
  for (uint32_t y = 0; y < 50; ++y) std::memset(src->pixels + y * src->bytes_per_line, static_cast<int>(y * 5), 200);
  ASSERT_EQ(Save(dir.file("flat.bmp"), src, "bmp", 1), TSL_OK);
  EXPECT_LT(ReadFile(dir.file("flat.bmp")).size(), 2000u);
  Pic back, other;
  ASSERT_EQ(Load(dir.file("flat.bmp"), &back), TSL_OK);
  EXPECT_TRUE(SameColors(src, back));
  if (HaveTool("bmptopnm")) {
    ASSERT_TRUE(ToolPnm("bmptopnm '" + dir.file("flat.bmp") + "'", dir, &other));
    EXPECT_TRUE(SameColors(src, other));
  }
}

TEST(Bmp, ReadsFilesOfImageMagickAndNetpbm) {
  if (!HaveTool("convert") || !HaveTool("ppmtobmp")) GTEST_SKIP() << "tools missing";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 41, 19, 11));
  const std::pair<const char *, int> variants[] = {
      {"convert SRC bmp3:OUT", TSL_RGB},
      {"convert SRC bmp2:OUT", TSL_RGB},
      {"convert SRC OUT", TSL_RGB},
      {"convert SRC -define bmp:subtype=RGB565 OUT", TSL_RGB},
      {"convert SRC -type palette bmp3:OUT", TSL_INDEXED},
      {"convert SRC -type palette -compress RLE bmp3:OUT", TSL_INDEXED},
      {"convert SRC -colors 16 bmp3:OUT", TSL_INDEXED},
      {"convert SRC -monochrome bmp3:OUT", TSL_BINARY},
      {"ppmtobmp -bpp 24 SRC > OUT", TSL_RGB},
      {"ppmtobmp -os2 SRC > OUT", TSL_RGB},
      {"pnmquant 200 SRC | ppmtobmp -bpp 8 > OUT", TSL_INDEXED},
      {"pnmquant 12 SRC | ppmtobmp -bpp 4 > OUT", TSL_INDEXED},
  };
  for (const auto &v : variants) ExpectToolFileMatches(dir, src, v.first, "x.bmp", v.second, 1);
  // Alpha of a 32-bit file, against ImageMagick's own extraction.
  ASSERT_EQ(Sh("convert -size 30x10 gradient:red-blue -alpha set -channel A -fx 'i/w' +channel '" + dir.file("a.bmp") +
               "' && convert '" + dir.file("a.bmp") + "' -alpha extract -depth 8 pgm:'" + dir.file("a.pgm") + "'"),
            0);
  Pic ours, colours, alpha;
  ASSERT_EQ(Load(dir.file("a.bmp"), &ours), TSL_OK);
  ASSERT_EQ(ours->color_model, TSL_RGBA);
  ASSERT_TRUE(DecodeWithConvert(dir, dir.file("a.bmp"), &colours));
  EXPECT_TRUE(SameColors(ours, colours));
  ASSERT_TRUE(ReadPnm(dir.file("a.pgm"), &alpha));
  for (uint32_t y = 0; y < 10; ++y)
    for (uint32_t x = 0; x < 30; ++x) ASSERT_EQ(Px(ours, x, y, 3), Px(alpha, x, y));
}

TEST(Bmp, RleEscapesAreClippedToThePicture) {
  TempDir dir;
  int code;
  // RLE4, 6x4, bottom-up.  Row 0: run 1,2,1,2 then a literal 3,4,5 whose last
  // pixel falls outside; end of line.  Row 1: delta (2, 1) to row 2, run 7,7; end.
  const std::string rle4 = std::string("\x04\x12\x00\x03\x34\x50\x00\x00\x00\x02\x02\x01\x02\x77\x00\x01", 16);
  Pic a = LoadBytes(dir, BmpFile(40, 6, 4, 4, 2, "", Palette4(16), rle4, 16), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(a->color_model, TSL_INDEXED);
  ExpectRows(a, {{0, 0, 0, 0, 0, 0}, {0, 0, 7, 7, 0, 0}, {0, 0, 0, 0, 0, 0}, {1, 2, 1, 2, 3, 4}});
  EXPECT_EQ(a->palette[7], 35);  // red of entry 7
  EXPECT_EQ(a->palette[256 + 7], 140);
  // RLE8, 3x2: a run of 5 clipped to 3, end of line, a literal 9,8,7 (padded), no end of bitmap.
  Pic b = LoadBytes(dir, BmpFile(40, 3, 2, 8, 1, "", Palette4(10), std::string("\x05\x02\0\0\0\x03\x09\x08\x07\0", 10), 10),
                    &code);
  ASSERT_EQ(code, TSL_OK);
  ExpectRows(b, {{9, 8, 7}, {2, 2, 2}});
}

TEST(Bmp, BitFieldsTopDownAndOs2Headers) {
  TempDir dir;
  int code;
  // 16-bit 5-6-5 masks after a Windows 3 header.
  const std::string masks565 = Le32(0xF800) + Le32(0x07E0) + Le32(0x001F);
  const std::string px16 = Le16(0xF800) + Le16(0x07E0) + Le16(0x001F) + Le16(0x8410);
  Pic a = LoadBytes(dir, BmpFile(40, 4, 1, 16, 3, masks565, "", px16), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(a->color_model, TSL_RGB);
  EXPECT_EQ(std::memcmp(a->pixels, "\xFF\0\0\0\xFF\0\0\0\xFF\x84\x82\x84", 12), 0);
  // 32-bit with 10-bit channels and a 2-bit alpha, masks in a V5 header.
  std::string v5 = BmpFile(124, 3, 1, 32, 3, "", "", Le32(0xFFF00000) + Le32(0x60080200) + Le32(0x000003FF));
  v5.replace(14 + 40, 16, Le32(0x3FF00000) + Le32(0x000FFC00) + Le32(0x000003FF) + Le32(0xC0000000));
  Pic b = LoadBytes(dir, v5, &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(b->color_model, TSL_RGBA);
  EXPECT_EQ(std::memcmp(b->pixels, "\xFF\0\0\xFF\x80\x80\x80\x55\0\0\xFF\0", 12), 0);
  // Top-down 24-bit: first stored row is the top one.
  Pic c = LoadBytes(dir, BmpFile(40, 1, -2, 24, 0, "", "", std::string("\x01\x02\x03\0\x04\x05\x06\0", 8)), &code);
  ASSERT_EQ(code, TSL_OK);
  EXPECT_EQ(Px(c, 0, 0), 3);
  EXPECT_EQ(Px(c, 0, 1), 6);
  // OS/2 2.x header (64 bytes), 8 bits with a 4-byte palette.
  Pic d = LoadBytes(dir, BmpFile(64, 2, 1, 8, 0, "", Palette4(3), std::string("\x02\x01\0\0", 4), 3), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(d->color_model, TSL_INDEXED);
  EXPECT_EQ(d->colors, 3);
  EXPECT_EQ(d->pixels[0], 2);
  EXPECT_EQ(d->palette[2], 10);
  // OS/2 1.x core header with a 3-byte palette, white at 0 and black at 1:
  // set file bits are black here, so our bits are the inverse.
  Pic e = LoadBytes(dir, BmpFile(12, 10, 1, 1, 0, "", std::string("\xFF\xFF\xFF\0\0\0", 6), std::string("\xF0\x40\0\0", 4)),
                    &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(e->color_model, TSL_BINARY);
  EXPECT_EQ(e->pixels[0], 0x0F);
  EXPECT_EQ(e->pixels[1] & 0xC0, 0x80);
}

TEST(Bmp, AbsurdHeadersTruncationLimitsAndStopping) {
  TempDir dir;
  const std::string row(8, '\0');
  const std::pair<std::string, int> bad[] = {
      {BmpFile(40, 0, 1, 24, 0, "", "", row), TSL_ERR_BAD_FILE},
      {BmpFile(40, INT32_MIN, 1, 24, 0, "", "", row), TSL_ERR_BAD_FILE},
      {BmpFile(40, 0x7FFFFFFF, 0x7FFFFFFF, 24, 0, "", "", row), TSL_ERR_MEMORY},
      {BmpFile(40, 2, 1, 7, 0, "", "", row), TSL_ERR_BAD_FILE},
      {BmpFile(40, 2, 1, 24, 1, "", "", row), TSL_ERR_BAD_FILE},
      {BmpFile(40, 2, 1, 16, 3, Le32(0) + Le32(0) + Le32(0), "", row), TSL_ERR_BAD_FILE},
      {BmpFile(77, 2, 1, 24, 0, "", "", row), TSL_ERR_FORMAT},  // unknown header: not taken for a BMP
  };
  for (const auto &b : bad) {
    int code;
    Pic pic = LoadBytes(dir, b.first, &code);
    EXPECT_EQ(code, b.second);
    EXPECT_EQ(pic->pixels, nullptr);
    Info info;
    if (b.second == TSL_ERR_BAD_FILE) {
      EXPECT_EQ(FileInfo(dir.file("made.bin"), &info), TSL_ERR_BAD_FILE);
      EXPECT_NE(info->message[0], 0);
    }
  }
  Pic rgb(MakePicture(TSL_RGB, 30, 20, 5)), idx(MakePicture(TSL_INDEXED, 30, 20, 5, 200));
  ASSERT_EQ(Save(dir.file("t.bmp"), rgb, "bmp"), TSL_OK);
  CheckTruncations(dir, dir.file("t.bmp"), Fmt("bmp"), 54);
  ExpectLimitAndStop(dir.file("t.bmp"), 30 * 20);
  ASSERT_EQ(Save(dir.file("r.bmp"), idx, "bmp", 1), TSL_OK);
  CheckTruncations(dir, dir.file("r.bmp"), Fmt("bmp"), 54 + 800);
  ExpectLimitAndStop(dir.file("r.bmp"), 30 * 20);
  // Damaged RLE keeps the decoded bottom rows.
  const std::string data = ReadFile(dir.file("r.bmp"));
  WriteFile(dir.file("cut.bmp"), data.substr(0, (data.size() + 854) / 2));
  Pic kept;
  ASSERT_EQ(Load(dir.file("cut.bmp"), &kept, 0, TSL_FLAG_KEEP_DAMAGED), TSL_OK);
  EXPECT_EQ(std::memcmp(kept->pixels + 19 * kept->bytes_per_line, idx->pixels + 19 * idx->bytes_per_line, 30), 0);
}

}  // namespace
