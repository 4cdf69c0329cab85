// BMP reader and writer: round trips, files written by ImageMagick and
// netpbm, hand-made files for RLE escapes, bit fields and rare headers, and
// damaged input.
#include <gtest/gtest.h>

#include "legacy_test_helpers.h"

using legacy::Fmt;
using legacy::Le16;
using legacy::Le32;
using legacy::Load;
using legacy::LoadOptions;
using legacy::Pic;
using legacy::Save;
using testutil::MakePicture;
using testutil::SameColors;
using testutil::SamePixels;
using testutil::TempDir;

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

Pic LoadFile(const TempDir &dir, const std::string &bytes, int *code) {
  testutil::WriteFile(dir.file("made.bmp"), bytes);
  Pic pic;
  *code = Load(dir.file("made.bmp"), &pic);
  return pic;
}

TEST(Bmp, RoundTripEveryKindAndOption) {
  TempDir dir;
  struct Case {
    int model;
    int colors;
  } cases[] = {{TSL_BINARY, 2}, {TSL_INDEXED, 2}, {TSL_INDEXED, 16}, {TSL_INDEXED, 200},
               {TSL_GREY, 256}, {TSL_RGB, 0},     {TSL_RGBA, 0}};
  for (const Case &c : cases) {
    for (int compression : {0, 1}) {
      for (int os2 : {0, 1}) {
        SCOPED_TRACE("model " + std::to_string(c.model) + " colours " + std::to_string(c.colors) + " rle " +
                     std::to_string(compression) + " os2 " + std::to_string(os2));
        Pic src(MakePicture(c.model, 45, 13, 7, c.colors));
        src->attr_pair[0] = src->attr_pair[1] = 300;
        const std::string file = dir.file("rt.bmp");
        ASSERT_EQ(Save(file, *src, "bmp", compression, 0, os2), TSL_OK);
        Pic back;
        ASSERT_EQ(Load(file, &back), TSL_OK);
        const bool alpha = c.model == TSL_RGBA && !os2;
        EXPECT_TRUE(SameColors(*src, *back, 0, alpha));
        if (c.model == TSL_BINARY || c.model == TSL_INDEXED || c.model == TSL_RGB || alpha) {
          EXPECT_TRUE(SamePixels(*src, *back));
        }
        if (c.model == TSL_INDEXED) {
          EXPECT_EQ(back->colors, os2 ? (c.colors <= 2 ? 2 : c.colors <= 16 ? 16 : 256) : c.colors);
        }
        if (!os2) {
          EXPECT_EQ(back->attr_pair[0], 300u);
        }
        // The independent decoder sees the same colours.
        Pic other;
        ASSERT_TRUE(legacy::DecodeWithConvert(dir, file, &other));
        EXPECT_TRUE(SameColors(*src, *other));
        TslFileInfo info;
        ASSERT_EQ(tslFileInformation(file.c_str(), -1, 0, &info), TSL_OK);
        EXPECT_EQ(info.format, Fmt("bmp"));
        EXPECT_EQ(info.compression, compression && (c.model == TSL_GREY || c.colors > 16) && !os2 ? TSL_COMP_RLE
                                                                                                 : TSL_COMP_NONE);
        tslFileInformationFree(&info);
      }
    }
  }
}

TEST(Bmp, RleIsSmallerOnFlatPictures) {
  TempDir dir;
  Pic src(MakePicture(TSL_GREY, 200, 50, 3));
  for (uint32_t y = 0; y < 50; ++y) std::memset(src->pixels + y * src->bytes_per_line, static_cast<int>(y * 5), 200);
  ASSERT_EQ(Save(dir.file("flat.bmp"), *src, "bmp", 1), TSL_OK);
  EXPECT_LT(testutil::ReadFile(dir.file("flat.bmp")).size(), 2000u);
  Pic back;
  ASSERT_EQ(Load(dir.file("flat.bmp"), &back), TSL_OK);
  EXPECT_TRUE(SameColors(*src, *back));
  if (testutil::HaveTool("bmptopnm")) {
    Pic other;
    ASSERT_TRUE(legacy::DecodeWithNetpbm(dir, "bmptopnm", dir.file("flat.bmp"), &other));
    EXPECT_TRUE(SameColors(*src, *other));
  }
}

TEST(Bmp, ReadsFilesOfImageMagickAndNetpbm) {
  if (!testutil::HaveTool("convert")) GTEST_SKIP() << "ImageMagick missing";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 41, 19, 11));
  const std::string ppm = dir.file("src.ppm");
  legacy::WritePpm(ppm, *src);
  struct Variant {
    const char *command;  // %s: source, %o: output
    int model;
  } variants[] = {
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
  for (const Variant &v : variants) {
    std::string cmd = v.command;
    cmd.replace(cmd.find("SRC"), 3, "'" + ppm + "'");
    cmd.replace(cmd.find("OUT"), 3, "'" + dir.file("x.bmp") + "'");
    SCOPED_TRACE(cmd);
    if (testutil::Run("(" + cmd + ")") != 0) {
      ADD_FAILURE() << "tool failed";
      continue;
    }
    Pic ours, theirs;
    ASSERT_EQ(Load(dir.file("x.bmp"), &ours), TSL_OK);
    EXPECT_EQ(ours->color_model, v.model);
    ASSERT_TRUE(legacy::DecodeWithConvert(dir, dir.file("x.bmp"), &theirs));
    EXPECT_TRUE(SameColors(*ours, *theirs, 1));
  }
}

TEST(Bmp, ReadsAlphaOfImageMagickFiles) {
  if (!testutil::HaveTool("convert")) GTEST_SKIP() << "ImageMagick missing";
  TempDir dir;
  ASSERT_EQ(testutil::Run("convert -size 30x10 gradient:red-blue -alpha set -channel A -fx 'i/w' +channel '" +
                          dir.file("a.bmp") + "'"),
            0);
  Pic ours, colours, alpha;
  ASSERT_EQ(Load(dir.file("a.bmp"), &ours), TSL_OK);
  ASSERT_EQ(ours->color_model, TSL_RGBA);
  ASSERT_TRUE(legacy::DecodeWithConvert(dir, dir.file("a.bmp"), &colours));
  EXPECT_TRUE(SameColors(*ours, *colours));
  ASSERT_EQ(testutil::Run("convert '" + dir.file("a.bmp") + "' -alpha extract -depth 8 pgm:'" + dir.file("a.pgm") + "'"),
            0);
  ASSERT_TRUE(testutil::ReadPnm(dir.file("a.pgm"), &alpha));
  for (uint32_t y = 0; y < 10; ++y)
    for (uint32_t x = 0; x < 30; ++x)
      ASSERT_EQ(ours->pixels[y * ours->bytes_per_line + 4 * x + 3], alpha->pixels[y * alpha->bytes_per_line + x]);
}

TEST(Bmp, Rle4EscapesAreClippedToThePicture) {
  TempDir dir;
  // 6x4, bottom-up.  Row 0: run 1,2,1,2 then a literal 3,4,5 whose last pixel
  // falls outside; end of line.  Row 1: delta (2, 1) to row 2, run 7,7; end.
  const std::string data = std::string("\x04\x12", 2) + std::string("\x00\x03\x34\x50", 4) +
                           std::string("\x00\x00", 2) + std::string("\x00\x02\x02\x01", 4) +
                           std::string("\x02\x77", 2) + std::string("\x00\x01", 2);
  int code;
  Pic pic = LoadFile(dir, BmpFile(40, 6, 4, 4, 2, "", Palette4(16), data, 16), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(pic->color_model, TSL_INDEXED);
  const uint8_t expect[4][6] = {{0, 0, 0, 0, 0, 0}, {0, 0, 7, 7, 0, 0}, {0, 0, 0, 0, 0, 0}, {1, 2, 1, 2, 3, 4}};
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 6; ++x) EXPECT_EQ(pic->pixels[y * pic->bytes_per_line + x], expect[y][x]) << x << "," << y;
  EXPECT_EQ(pic->palette[7], 35);      // red of entry 7
  EXPECT_EQ(pic->palette[256 + 7], 140);
}

TEST(Bmp, Rle8RunsPastTheRightEdgeAndMissingEndOfBitmap) {
  TempDir dir;
  // 3x2: a run of 5 clipped to 3, end of line, a literal 9,8,7 (padded), no end of bitmap.
  const std::string data = std::string("\x05\x02\x00\x00\x00\x03\x09\x08\x07\x00", 10);
  int code;
  Pic pic = LoadFile(dir, BmpFile(40, 3, 2, 8, 1, "", Palette4(10), data, 10), &code);
  ASSERT_EQ(code, TSL_OK);
  const uint8_t expect[2][3] = {{9, 8, 7}, {2, 2, 2}};
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x) EXPECT_EQ(pic->pixels[y * pic->bytes_per_line + x], expect[y][x]);
}

TEST(Bmp, BitFieldsWithAnyMasks) {
  TempDir dir;
  int code;
  // 16-bit 5-6-5 masks after a Windows 3 header.
  const std::string masks565 = Le32(0xF800) + Le32(0x07E0) + Le32(0x001F);
  const std::string px16 = Le16(0xF800) + Le16(0x07E0) + Le16(0x001F) + Le16(0x8410);
  Pic a = LoadFile(dir, BmpFile(40, 4, 1, 16, 3, masks565, "", px16), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(a->color_model, TSL_RGB);
  const uint8_t want16[12] = {255, 0, 0, 0, 255, 0, 0, 0, 255, 132, 130, 132};
  EXPECT_EQ(std::memcmp(a->pixels, want16, 12), 0);
  // 32-bit with 10-bit channels and a 2-bit alpha, masks in a V5 header.
  std::string v5 = Le32(0x3FF00000) + Le32(0x000FFC00) + Le32(0x000003FF) + Le32(0xC0000000);
  const std::string px32 = Le32(0xFFF00000) + Le32(0x60080200) + Le32(0x000003FF);
  std::string file = BmpFile(124, 3, 1, 32, 3, "", "", px32);
  file.replace(14 + 40, 16, v5);
  Pic b = LoadFile(dir, file, &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(b->color_model, TSL_RGBA);
  const uint8_t want32[12] = {255, 0, 0, 255, 128, 128, 128, 85, 0, 0, 255, 0};
  EXPECT_EQ(std::memcmp(b->pixels, want32, 12), 0);
}

TEST(Bmp, TopDownOs2AndInvertedBilevel) {
  TempDir dir;
  int code;
  // Top-down 24-bit: first stored row is the top one.
  const std::string rows = std::string("\x01\x02\x03\x00", 4) + std::string("\x04\x05\x06\x00", 4);
  Pic a = LoadFile(dir, BmpFile(40, 1, -2, 24, 0, "", "", rows), &code);
  ASSERT_EQ(code, TSL_OK);
  EXPECT_EQ(a->pixels[0], 3);
  EXPECT_EQ(a->pixels[a->bytes_per_line], 6);
  // OS/2 2.x header (64 bytes), 8 bits with a 4-byte palette.
  Pic b = LoadFile(dir, BmpFile(64, 2, 1, 8, 0, "", Palette4(3), std::string("\x02\x01\x00\x00", 4), 3), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(b->color_model, TSL_INDEXED);
  EXPECT_EQ(b->colors, 3);
  EXPECT_EQ(b->pixels[0], 2);
  EXPECT_EQ(b->palette[2], 10);
  // OS/2 1.x core header with a 3-byte palette: white at 0, black at 1.
  const std::string pal3 = std::string("\xFF\xFF\xFF\x00\x00\x00", 6);
  Pic c = LoadFile(dir, BmpFile(12, 10, 1, 1, 0, "", pal3, std::string("\xF0\x40\x00\x00", 4)), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(c->color_model, TSL_BINARY);
  // Set file bits are black here, so our bits are the inverse.
  EXPECT_EQ(c->pixels[0], 0x0F);
  EXPECT_EQ(c->pixels[1] & 0xC0, 0x80);
}

TEST(Bmp, AbsurdHeadersAndLimits) {
  TempDir dir;
  const std::string row(8, '\0');
  struct Bad {
    std::string bytes;
    int code;
  } bad[] = {
      {BmpFile(40, 0, 1, 24, 0, "", "", row), TSL_ERR_BAD_FILE},
      {BmpFile(40, INT32_MIN, 1, 24, 0, "", "", row), TSL_ERR_BAD_FILE},
      {BmpFile(40, 0x7FFFFFFF, 0x7FFFFFFF, 24, 0, "", "", row), TSL_ERR_MEMORY},
      {BmpFile(40, 2, 1, 7, 0, "", "", row), TSL_ERR_BAD_FILE},
      {BmpFile(40, 2, 1, 24, 1, "", "", row), TSL_ERR_BAD_FILE},
      {BmpFile(40, 2, 1, 16, 3, Le32(0) + Le32(0) + Le32(0), "", row), TSL_ERR_BAD_FILE},
      {BmpFile(77, 2, 1, 24, 0, "", "", row), TSL_ERR_FORMAT},  // unknown header: not taken for a BMP
  };
  for (const Bad &b : bad) {
    testutil::WriteFile(dir.file("bad.bmp"), b.bytes);
    Pic pic;
    EXPECT_EQ(Load(dir.file("bad.bmp"), &pic), b.code);
    EXPECT_EQ(pic->pixels, nullptr);
    TslFileInfo info;
    if (b.code == TSL_ERR_BAD_FILE) {
      EXPECT_EQ(tslFileInformation(dir.file("bad.bmp").c_str(), -1, 0, &info), TSL_ERR_BAD_FILE);
      EXPECT_NE(info.message[0], 0);
      tslFileInformationFree(&info);
    }
  }
  // The caller's pixel limit.
  Pic big(MakePicture(TSL_RGB, 100, 100));
  ASSERT_EQ(Save(dir.file("big.bmp"), *big, "bmp"), TSL_OK);
  Pic pic;
  LoadOptions o;
  o.max_pixels = 9999;
  EXPECT_EQ(Load(dir.file("big.bmp"), &pic, o), TSL_ERR_MEMORY);
}

TEST(Bmp, TruncatedFilesAndStopping) {
  TempDir dir;
  Pic rgb(MakePicture(TSL_RGB, 30, 20, 5));
  ASSERT_EQ(Save(dir.file("t.bmp"), *rgb, "bmp"), TSL_OK);
  legacy::CheckTruncations(dir, dir.file("t.bmp"), Fmt("bmp"), 54);
  Pic idx(MakePicture(TSL_INDEXED, 30, 20, 5, 200));
  ASSERT_EQ(Save(dir.file("r.bmp"), *idx, "bmp", 1), TSL_OK);
  legacy::CheckTruncations(dir, dir.file("r.bmp"), Fmt("bmp"), 54 + 800);
  // Damaged RLE keeps the decoded bottom rows.
  const std::string data = testutil::ReadFile(dir.file("r.bmp"));
  testutil::WriteFile(dir.file("cut.bmp"), data.substr(0, (data.size() + 854) / 2));
  Pic kept;
  LoadOptions keep;
  keep.flags = TSL_FLAG_KEEP_DAMAGED;
  ASSERT_EQ(Load(dir.file("cut.bmp"), &kept, keep), TSL_OK);
  EXPECT_EQ(std::memcmp(kept->pixels + 19 * kept->bytes_per_line, idx->pixels + 19 * idx->bytes_per_line, 30), 0);

  Pic stopped;
  LoadOptions stop;
  stop.progress = legacy::StopAtOnce;
  EXPECT_EQ(Load(dir.file("t.bmp"), &stopped, stop), TSL_STOPPED);
  EXPECT_EQ(Load(dir.file("r.bmp"), &stopped, stop), TSL_STOPPED);
}

}  // namespace
