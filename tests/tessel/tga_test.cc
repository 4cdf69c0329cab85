// Targa reader and writer: round trips, files of ImageMagick and netpbm,
// hand-made origins, packets across rows, 15/16-bit colours, detection
// without a magic number, damaged input.
#include <gtest/gtest.h>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

// ImageMagick 6 keeps a Targa origin as an orientation tag instead of
// applying it; -auto-orient applies it, as netpbm and GraphicsMagick do.
const char kOrient[] = "-auto-orient";

std::string TgaHeader(int cm_type, int type, int cm_first, int cm_length, int cm_bits, int w, int h, int depth,
                      int descriptor) {
  return std::string{char(0), char(cm_type), char(type)} + Le16(cm_first) + Le16(cm_length) + char(cm_bits) +
         Le16(0) + Le16(0) + Le16(w) + Le16(h) + char(depth) + char(descriptor);
}

Pic LoadTga(const TempDir &dir, const std::string &bytes, int *code) {
  return LoadBytes(dir, bytes, code, -1, 0, "made.tga");
}

TEST(Tga, RoundTripEveryKindAndCoding) {
  TempDir dir;
  const int kinds[][2] = {{TSL_GREY, 256}, {TSL_INDEXED, 16}, {TSL_INDEXED, 200}, {TSL_RGB, 0}, {TSL_RGBA, 0}};
  for (const auto &k : kinds)
    for (int rle : {0, 1}) {
      SCOPED_TRACE(testing::Message() << "model " << k[0] << " colours " << k[1] << " rle " << rle);
      Pic src(MakePicture(k[0], 53, 14, 6, k[1]));
      // Flat stretches give the run packets something to do.
      std::memset(src->pixels + 5 * src->bytes_per_line, 9, 20 * src->bytes_per_pixel);
      const std::string file = dir.file("rt.tga");
      TslParams params = Params("tga", rle);
      params.comment = "made by the tests";
      ASSERT_EQ(Save(file, src, params), TSL_OK);
      Pic back, magick, netpbm;
      ASSERT_EQ(Load(file, &back), TSL_OK);
      EXPECT_TRUE(SamePixels(src, back));
      EXPECT_TRUE(SameColors(src, back, 0, true));
      Info info;
      ASSERT_EQ(FileInfo(file, &info), TSL_OK);
      EXPECT_EQ(info->format, Fmt("tga"));
      ASSERT_NE(info->comment, nullptr);
      EXPECT_STREQ(info->comment, "made by the tests");
      EXPECT_EQ(info->compression, rle ? TSL_COMP_RLE : TSL_COMP_NONE);
      EXPECT_EQ(info->origin, 1);
      ASSERT_TRUE(DecodeWithConvert(dir, file, &magick, "convert", kOrient));
      EXPECT_TRUE(SameColors(src, magick));
      if (HaveTool("tgatoppm")) {
        ASSERT_TRUE(ToolPnm("tgatoppm '" + file + "'", dir, &netpbm));
        EXPECT_TRUE(SameColors(src, netpbm));
      }
    }
}

TEST(Tga, ReadsFilesOfImageMagickAndNetpbm) {
  if (!HaveTool("convert") || !HaveTool("ppmtotga")) GTEST_SKIP() << "tools missing";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 47, 22, 13));
  const std::pair<const char *, int> variants[] = {
      {"convert SRC OUT", TSL_RGB},
      {"convert SRC -compress RLE OUT", TSL_RGB},
      {"convert SRC -type palette OUT", TSL_INDEXED},
      {"convert SRC -type palette -compress RLE OUT", TSL_INDEXED},
      {"convert SRC -colorspace gray OUT", TSL_GREY},
      {"convert SRC -alpha set -channel A -fx 'i/w' +channel OUT", TSL_RGBA},
      {"convert SRC -alpha set -channel A -fx 'i/w' +channel -compress RLE OUT", TSL_RGBA},
      {"ppmtotga -rgb SRC > OUT", TSL_RGB},
      {"ppmtotga -rgb -norle SRC > OUT", TSL_RGB},
      {"pnmquant 100 SRC | ppmtotga -cmap > OUT", TSL_INDEXED},
      {"ppmtopgm SRC | ppmtotga -mono > OUT", TSL_GREY},
  };
  for (const auto &v : variants) ExpectToolFileMatches(dir, src, v.first, "x.tga", v.second, 0, kOrient);
}

TEST(Tga, OriginsPacketsAcrossRowsAndSmallColours) {
  TempDir dir;
  int code;
  // 3x2 grey RLE, top-left origin: one run packet of 4 crosses the first row.
  Pic a = LoadTga(dir, TgaHeader(0, 11, 0, 0, 0, 3, 2, 8, 0x20) + "\x83\x05\x01\x07\x08", &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(a->color_model, TSL_GREY);
  EXPECT_EQ(std::memcmp(a->pixels, "\x05\x05\x05", 3), 0);
  EXPECT_EQ(std::memcmp(a->pixels + a->bytes_per_line, "\x05\x07\x08", 3), 0);
  // Same pixels, bottom-left and right-to-left.
  Pic b = LoadTga(dir, TgaHeader(0, 3, 0, 0, 0, 3, 2, 8, 0x10) + "\x01\x02\x03\x04\x05\x06", &code);
  ASSERT_EQ(code, TSL_OK);
  EXPECT_EQ(std::memcmp(b->pixels, "\x06\x05\x04", 3), 0);
  EXPECT_EQ(std::memcmp(b->pixels + b->bytes_per_line, "\x03\x02\x01", 3), 0);
  // 16-bit true colour and a colour map of 15-bit entries starting at 2.
  Pic c = LoadTga(dir, TgaHeader(0, 2, 0, 0, 0, 2, 1, 16, 0x20) + Le16(0x7C00) + Le16(0x0210), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(c->color_model, TSL_RGB);
  EXPECT_EQ(std::memcmp(c->pixels, "\xFF\x00\x00\x00\x84\x84", 6), 0);
  Pic d = LoadTga(dir, TgaHeader(1, 1, 2, 2, 15, 2, 1, 8, 0x20) + Le16(0x03E0) + Le16(0x001F) + "\x02\x03", &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(d->color_model, TSL_INDEXED);
  EXPECT_EQ(d->colors, 4);
  EXPECT_EQ(d->pixels[0], 2);
  EXPECT_EQ(d->palette[256 + 2], 255);  // entry 2 green
  EXPECT_EQ(d->palette[512 + 3], 255);  // entry 3 blue
  // 32-bit without any varying alpha reads as RGB.
  Pic e = LoadTga(dir, TgaHeader(0, 2, 0, 0, 0, 1, 1, 32, 0x28) + "\x01\x02\x03\xFF", &code);
  ASSERT_EQ(code, TSL_OK);
  EXPECT_EQ(e->color_model, TSL_RGB);
  // Without the name a Targa file is still found; text is not taken for one.
  Pic src(MakePicture(TSL_RGB, 10, 10, 3));
  ASSERT_EQ(Save(dir.file("x.tga"), src, "tga", 1), TSL_OK);
  Pic f = LoadBytes(dir, ReadFile(dir.file("x.tga")), &code, -1, 0, "noname");
  ASSERT_EQ(code, TSL_OK);
  EXPECT_TRUE(SamePixels(src, f));
  LoadBytes(dir, "Hello, this is plain text and certainly no picture at all.\n", &code, -1, 0, "text");
  EXPECT_EQ(code, TSL_ERR_FORMAT);
}

TEST(Tga, AbsurdHeadersTruncationLimitsAndStopping) {
  TempDir dir;
  const std::string px(64, '\x01');
  const std::pair<std::string, int> bad[] = {
      {TgaHeader(0, 4, 0, 0, 0, 2, 2, 8, 0), TSL_ERR_BAD_FILE},
      {TgaHeader(0, 2, 0, 0, 0, 0, 2, 24, 0), TSL_ERR_BAD_FILE},
      {TgaHeader(0, 2, 0, 0, 0, 2, 2, 12, 0), TSL_ERR_BAD_FILE},
      {TgaHeader(1, 1, 0, 0, 24, 2, 2, 8, 0), TSL_ERR_BAD_FILE},  // empty colour map
      {TgaHeader(0, 2, 0, 0, 0, 65535, 65535, 24, 0), TSL_ERR_MEMORY},
      {TgaHeader(1, 1, 0, 256, 32, 2, 2, 8, 0), TSL_ERR_READ},  // colour map past the end
  };
  for (const auto &b : bad) {
    int code;
    LoadTga(dir, b.first + px, &code);
    EXPECT_EQ(code, b.second);
  }
  for (int rle : {0, 1}) {
    Pic rgba(MakePicture(TSL_RGBA, 40, 25, 8));
    ASSERT_EQ(Save(dir.file("t.tga"), rgba, "tga", rle), TSL_OK);
    CheckTruncations(dir, dir.file("t.tga"), Fmt("tga"), 18, 26);
  }
  Pic idx(MakePicture(TSL_INDEXED, 40, 25, 8, 256));
  ASSERT_EQ(Save(dir.file("i.tga"), idx, "tga", 1), TSL_OK);
  CheckTruncations(dir, dir.file("i.tga"), Fmt("tga"), 18 + 768, 26);
  ExpectLimitAndStop(dir.file("t.tga"), 40 * 25);
}

}  // namespace
