// Targa reader and writer: round trips, files of ImageMagick and netpbm,
// hand-made origins, packets across rows, 15/16-bit colours, detection
// without a magic number, damaged input.
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

// ImageMagick 6 keeps a Targa origin as an orientation tag instead of
// applying it; -auto-orient applies it, as netpbm and GraphicsMagick do.
bool DecodeWithMagick(const TempDir &dir, const std::string &file, TslPicture *out) {
  return legacy::DecodeWithConvert(dir, file, out, "convert", "-auto-orient");
}

std::string TgaHeader(int id_length, int cm_type, int type, int cm_first, int cm_length, int cm_bits, int w, int h,
                      int depth, int descriptor) {
  return std::string{char(id_length), char(cm_type), char(type)} + Le16(cm_first) + Le16(cm_length) + char(cm_bits) +
         Le16(0) + Le16(0) + Le16(w) + Le16(h) + char(depth) + char(descriptor);
}

Pic LoadBytes(const TempDir &dir, const std::string &bytes, int *code, const std::string &name = "made.tga") {
  testutil::WriteFile(dir.file(name), bytes);
  Pic pic;
  *code = Load(dir.file(name), &pic);
  return pic;
}

TEST(Tga, RoundTripEveryKindAndCoding) {
  TempDir dir;
  struct Kind {
    int model;
    int colors;
  } kinds[] = {{TSL_GREY, 256}, {TSL_INDEXED, 16}, {TSL_INDEXED, 200}, {TSL_RGB, 0}, {TSL_RGBA, 0}};
  for (const Kind &k : kinds) {
    for (int compression : {0, 1}) {
      SCOPED_TRACE("model " + std::to_string(k.model) + " colours " + std::to_string(k.colors) + " rle " +
                   std::to_string(compression));
      Pic src(MakePicture(k.model, 53, 14, 6, k.colors));
      // Flat stretches give the run packets something to do.
      for (uint32_t x = 0; x < 20 * src->bytes_per_pixel; ++x) src->pixels[5 * src->bytes_per_line + x] = 9;
      const std::string file = dir.file("rt.tga");
      TslParams params;
      tslDefaultParams(&params);
      params.format = Fmt("tga");
      params.compression = compression;
      params.comment = "made by the tests";
      ASSERT_EQ(tslSave(file.c_str(), &*src, &params), TSL_OK);
      Pic back;
      ASSERT_EQ(Load(file, &back), TSL_OK);
      EXPECT_TRUE(SamePixels(*src, *back));
      EXPECT_TRUE(SameColors(*src, *back, 0, true));
      TslFileInfo info;
      ASSERT_EQ(tslFileInformation(file.c_str(), -1, 0, &info), TSL_OK);
      EXPECT_EQ(info.format, Fmt("tga"));
      ASSERT_NE(info.comment, nullptr);
      EXPECT_STREQ(info.comment, "made by the tests");
      EXPECT_EQ(info.compression, compression ? TSL_COMP_RLE : TSL_COMP_NONE);
      EXPECT_EQ(info.origin, 1);
      tslFileInformationFree(&info);
      Pic magick;
      ASSERT_TRUE(DecodeWithMagick(dir, file, &magick));
      EXPECT_TRUE(SameColors(*src, *magick));
      if (testutil::HaveTool("tgatoppm")) {
        Pic netpbm;
        ASSERT_TRUE(legacy::DecodeWithNetpbm(dir, "tgatoppm", file, &netpbm));
        EXPECT_TRUE(SameColors(*src, *netpbm));
      }
    }
  }
}

TEST(Tga, ReadsFilesOfImageMagickAndNetpbm) {
  if (!testutil::HaveTool("convert") || !testutil::HaveTool("ppmtotga")) GTEST_SKIP() << "tools missing";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 47, 22, 13));
  const std::string ppm = dir.file("src.ppm");
  legacy::WritePpm(ppm, *src);
  struct Variant {
    const char *command;
    int model;
  } variants[] = {
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
  for (const Variant &v : variants) {
    std::string cmd = v.command;
    cmd.replace(cmd.find("SRC"), 3, "'" + ppm + "'");
    cmd.replace(cmd.find("OUT"), 3, "'" + dir.file("x.tga") + "'");
    SCOPED_TRACE(cmd);
    ASSERT_EQ(testutil::Run("(" + cmd + ") 2>/dev/null"), 0);
    Pic ours, theirs;
    ASSERT_EQ(Load(dir.file("x.tga"), &ours), TSL_OK);
    EXPECT_EQ(ours->color_model, v.model);
    ASSERT_TRUE(DecodeWithMagick(dir, dir.file("x.tga"), &theirs));
    EXPECT_TRUE(SameColors(*ours, *theirs));
  }
}

TEST(Tga, OriginsPacketsAcrossRowsAndSmallColours) {
  TempDir dir;
  int code;
  // 3x2 grey RLE, top-left origin: one run packet of 4 crosses the first row.
  const std::string grey = TgaHeader(0, 0, 11, 0, 0, 0, 3, 2, 8, 0x20) + std::string("\x83\x05\x01\x07\x08", 5);
  Pic a = LoadBytes(dir, grey, &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(a->color_model, TSL_GREY);
  EXPECT_EQ(std::memcmp(a->pixels, "\x05\x05\x05", 3), 0);
  EXPECT_EQ(std::memcmp(a->pixels + a->bytes_per_line, "\x05\x07\x08", 3), 0);
  // Same pixels, bottom-left and right-to-left.
  Pic b = LoadBytes(dir, TgaHeader(0, 0, 3, 0, 0, 0, 3, 2, 8, 0x10) + "\x01\x02\x03\x04\x05\x06", &code);
  ASSERT_EQ(code, TSL_OK);
  EXPECT_EQ(std::memcmp(b->pixels, "\x06\x05\x04", 3), 0);
  EXPECT_EQ(std::memcmp(b->pixels + b->bytes_per_line, "\x03\x02\x01", 3), 0);
  // 16-bit true colour and a colour map of 15-bit entries starting at 2.
  Pic c = LoadBytes(dir, TgaHeader(0, 0, 2, 0, 0, 0, 2, 1, 16, 0x20) + Le16(0x7C00) + Le16(0x0210), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(c->color_model, TSL_RGB);
  EXPECT_EQ(std::memcmp(c->pixels, "\xFF\x00\x00\x00\x84\x84", 6), 0);
  Pic d = LoadBytes(dir, TgaHeader(0, 1, 1, 2, 2, 15, 2, 1, 8, 0x20) + Le16(0x03E0) + Le16(0x001F) + "\x02\x03", &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(d->color_model, TSL_INDEXED);
  EXPECT_EQ(d->colors, 4);
  EXPECT_EQ(d->pixels[0], 2);
  EXPECT_EQ(d->palette[256 + 2], 255);  // entry 2 green
  EXPECT_EQ(d->palette[512 + 3], 255);  // entry 3 blue
  // 32-bit without any varying alpha reads as RGB.
  Pic e = LoadBytes(dir, TgaHeader(0, 0, 2, 0, 0, 0, 1, 1, 32, 0x28) + std::string("\x01\x02\x03\xFF", 4), &code);
  ASSERT_EQ(code, TSL_OK);
  EXPECT_EQ(e->color_model, TSL_RGB);
}

TEST(Tga, DetectionWithoutMagic) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 10, 10, 3));
  ASSERT_EQ(Save(dir.file("x.tga"), *src, "tga", 1), TSL_OK);
  testutil::WriteFile(dir.file("noname"), testutil::ReadFile(dir.file("x.tga")));
  Pic pic;
  ASSERT_EQ(Load(dir.file("noname"), &pic), TSL_OK);
  EXPECT_TRUE(SamePixels(*src, *pic));
  // Text is not taken for a Targa picture.
  testutil::WriteFile(dir.file("text"), "Hello, this is plain text and certainly no picture at all.\n");
  Pic none;
  EXPECT_EQ(Load(dir.file("text"), &none), TSL_ERR_FORMAT);
}

TEST(Tga, AbsurdHeadersTruncationAndStopping) {
  TempDir dir;
  int code;
  const std::string px(64, '\x01');
  LoadBytes(dir, TgaHeader(0, 0, 4, 0, 0, 0, 2, 2, 8, 0) + px, &code);
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  LoadBytes(dir, TgaHeader(0, 0, 2, 0, 0, 0, 0, 2, 24, 0) + px, &code);
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  LoadBytes(dir, TgaHeader(0, 0, 2, 0, 0, 0, 2, 2, 12, 0) + px, &code);
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  LoadBytes(dir, TgaHeader(0, 1, 1, 0, 0, 24, 2, 2, 8, 0) + px, &code);  // empty colour map
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  LoadBytes(dir, TgaHeader(0, 0, 2, 0, 0, 0, 65535, 65535, 24, 0) + px, &code);
  EXPECT_EQ(code, TSL_ERR_MEMORY);
  LoadBytes(dir, TgaHeader(0, 1, 1, 0, 256, 32, 2, 2, 8, 0) + px, &code);  // colour map past the end
  EXPECT_EQ(code, TSL_ERR_READ);

  for (int compression : {0, 1}) {
    Pic rgb(MakePicture(TSL_RGBA, 40, 25, 8));
    ASSERT_EQ(Save(dir.file("t.tga"), *rgb, "tga", compression), TSL_OK);
    legacy::CheckTruncations(dir, dir.file("t.tga"), Fmt("tga"), 18, 26);
  }
  Pic idx(MakePicture(TSL_INDEXED, 40, 25, 8, 256));
  ASSERT_EQ(Save(dir.file("i.tga"), *idx, "tga", 1), TSL_OK);
  legacy::CheckTruncations(dir, dir.file("i.tga"), Fmt("tga"), 18 + 768, 26);

  Pic pic;
  LoadOptions o;
  o.progress = legacy::StopAtOnce;
  EXPECT_EQ(Load(dir.file("t.tga"), &pic, o), TSL_STOPPED);
  o.progress = nullptr;
  o.max_pixels = 999;
  EXPECT_EQ(Load(dir.file("t.tga"), &pic, o), TSL_ERR_MEMORY);
}

}  // namespace
