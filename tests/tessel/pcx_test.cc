// PCX and DCX: round trips through every kind and coding, files of
// ImageMagick and netpbm, hand-made rare layouts, multi-page files and
// damaged input.
#include <gtest/gtest.h>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

// A PCX header: version, encoding, bits, window, planes, bytes per line, and
// a 16-entry palette whose entry i is (i*16, i*8, i*4).
std::string PcxHeader(int version, int encoding, int bpp, int w, int h, int planes, int bpl) {
  std::string s = {char(0x0A), char(version), char(encoding), char(bpp)};
  s += Le16(0) + Le16(0) + Le16(w - 1) + Le16(h - 1) + Le16(72) + Le16(72);
  for (int i = 0; i < 16; ++i) s += std::string{char(i * 16), char(i * 8), char(i * 4)};
  s += std::string(1, '\0') + char(planes) + Le16(bpl) + Le16(1);
  s.resize(128, '\0');
  return s;
}

Pic LoadPcx(const TempDir &dir, const std::string &bytes, int *code, const char *format = "pcx") {
  return LoadBytes(dir, bytes, code, Fmt(format));
}

// ImageMagick 6 reads set bits of 1-bit PCX files as black, unlike netpbm
// and GraphicsMagick: bilevel pictures are checked with the latter.
const char *DecoderFor(const TslPicture &p) { return p.color_model == TSL_BINARY ? "gm convert" : "convert"; }

TEST(Pcx, RoundTripEveryKindAndCoding) {
  TempDir dir;
  const int kinds[][3] = {{TSL_BINARY, 2, TSL_BINARY},    {TSL_INDEXED, 2, TSL_INDEXED}, {TSL_INDEXED, 16, TSL_INDEXED},
                          {TSL_INDEXED, 200, TSL_INDEXED}, {TSL_GREY, 256, TSL_GREY},     {TSL_RGB, 0, TSL_RGB},
                          {TSL_RGBA, 0, TSL_RGB}};  // model, colours, model read back
  for (const auto &k : kinds)
    for (int rle : {0, 1}) {
      SCOPED_TRACE(testing::Message() << "model " << k[0] << " colours " << k[1] << " rle " << rle);
      // An odd width exercises the even line padding.
      Pic src(MakePicture(k[0], 37, 11, 9, k[1]));
      const std::string file = dir.file("rt.pcx");
      ASSERT_EQ(Save(file, src, "pcx", rle), TSL_OK);
      Pic back, magick, netpbm;
      ASSERT_EQ(Load(file, &back), TSL_OK);
      EXPECT_EQ(back->color_model, k[2]);
      EXPECT_TRUE(SameColors(src, back));
      if (k[0] == k[2]) {
        EXPECT_TRUE(SamePixels(src, back));
      }
      ASSERT_TRUE(DecodeWithConvert(dir, file, &magick, DecoderFor(src)));
      EXPECT_TRUE(SameColors(src, magick));
      if (rle && HaveTool("pcxtoppm")) {
        ASSERT_TRUE(ToolPnm("pcxtoppm '" + file + "'", dir, &netpbm));
        EXPECT_TRUE(SameColors(src, netpbm));
      }
    }
}

TEST(Pcx, ReadsFilesOfImageMagickAndNetpbm) {
  if (!HaveTool("convert") || !HaveTool("ppmtopcx")) GTEST_SKIP() << "tools missing";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 43, 21, 12));
  for (const char *command :
       {"convert SRC OUT", "convert SRC -type palette OUT", "convert SRC -colors 16 OUT", "convert SRC -monochrome OUT",
        "ppmtopcx SRC > OUT", "pnmquant 200 SRC | ppmtopcx -8bit > OUT", "pnmquant 16 SRC | ppmtopcx > OUT",
        "pnmquant 16 SRC | ppmtopcx -packed > OUT", "pnmquant 4 SRC | ppmtopcx -packed > OUT",
        "pnmquant 8 SRC | ppmtopcx -planes 3 > OUT"})
    ExpectToolFileMatches(dir, src, command, "x.pcx", -1);
}

TEST(Pcx, RareLayoutsByHand) {
  TempDir dir;
  int code;
  // 2 bits per pixel, version 5: colours come from the header palette.
  Pic a = LoadPcx(dir, PcxHeader(5, 0, 2, 4, 1, 1, 2) + std::string("\x1B\x00", 2), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(a->color_model, TSL_INDEXED);
  EXPECT_EQ(std::memcmp(a->pixels, "\x00\x01\x02\x03", 4), 0);
  EXPECT_EQ(a->palette[3], 48);
  // Version 3 has no palette: 4 planes use the EGA colours.  9 pixels in 3
  // bytes per plane; the last run of zeros crosses from row 0 into row 1.
  Pic b = LoadPcx(dir, PcxHeader(3, 1, 1, 9, 2, 4, 3) + std::string("\xC2\xFF\x80\xC7\x00\xCE\x00", 7), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(b->color_model, TSL_INDEXED);
  EXPECT_EQ(b->colors, 16);
  for (int x = 0; x < 9; ++x) {
    EXPECT_EQ(Px(b, x, 0), 1) << x;
    EXPECT_EQ(Px(b, x, 1), 0) << x;
  }
  EXPECT_EQ(b->palette[512 + 1], 0xAA);  // EGA blue
  // 8 bits without the trailing palette: grey.
  Pic c = LoadPcx(dir, PcxHeader(5, 0, 8, 2, 1, 1, 2) + "\x10\x20", &code);
  ASSERT_EQ(code, TSL_OK);
  EXPECT_EQ(c->color_model, TSL_GREY);
  EXPECT_EQ(c->pixels[1], 0x20);
}

TEST(Pcx, DcxPagesRoundTripAndImageMagickFiles) {
  TempDir dir;
  const std::string file = dir.file("multi.dcx");
  TslParams params = Params();
  TslFile *out = nullptr;
  ASSERT_EQ(tslFileCreate(&out, file.c_str(), Fmt("dcx"), 3, &params), TSL_OK);
  std::vector<Pic> pages;
  pages.emplace_back(MakePicture(TSL_RGB, 31, 17, 1));
  pages.emplace_back(MakePicture(TSL_INDEXED, 12, 40, 2, 120));
  pages.emplace_back(MakePicture(TSL_BINARY, 70, 5, 3));
  for (size_t i = 0; i < pages.size(); ++i) {
    params.compression = static_cast<int>(i % 2);
    ASSERT_EQ(tslFileAddPicture(out, &pages[i], &params), TSL_OK);
  }
  ASSERT_EQ(tslFileClose(out), TSL_OK);
  Info info;
  ASSERT_EQ(FileInfo(file, &info, -1, 1), TSL_OK);
  EXPECT_EQ(info->format, Fmt("dcx"));
  EXPECT_EQ(info->pages, 3);
  EXPECT_EQ(info->width, 12u);
  EXPECT_EQ(info->compression, TSL_COMP_RLE);
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    Pic back, magick;
    ASSERT_EQ(Load(file, &back, i), TSL_OK);
    EXPECT_TRUE(SamePixels(pages[i], back));
    ASSERT_TRUE(DecodeWithConvert(dir, file + "[" + std::to_string(i) + "]", &magick, DecoderFor(pages[i])));
    EXPECT_TRUE(SameColors(pages[i], magick));
  }
  Pic none, one;
  EXPECT_EQ(Load(file, &none, 3), TSL_ERR_BAD_FILE);
  // A single save is a one-page DCX.
  ASSERT_EQ(Save(dir.file("one.dcx"), pages[0], "dcx", 1), TSL_OK);
  ASSERT_EQ(Load(dir.file("one.dcx"), &one), TSL_OK);
  EXPECT_TRUE(SamePixels(pages[0], one));

  // Pages of a DCX file of ImageMagick.
  const std::string m = dir.file("m.dcx");
  ASSERT_EQ(Sh("convert -size 20x10 gradient:red-blue -size 15x8 plasma:fractal -depth 8 '" + m + "'"), 0);
  Info minfo;
  ASSERT_EQ(FileInfo(m, &minfo), TSL_OK);
  EXPECT_EQ(minfo->pages, 2);
  for (int page = 0; page < 2; ++page) {
    Pic ours, theirs;
    ASSERT_EQ(Load(m, &ours, page), TSL_OK);
    ASSERT_TRUE(DecodeWithConvert(dir, m + "[" + std::to_string(page) + "]", &theirs));
    EXPECT_TRUE(SameColors(ours, theirs));
  }
}

TEST(Pcx, AbsurdHeadersTruncationLimitsAndStopping) {
  TempDir dir;
  std::string backwards = PcxHeader(5, 1, 8, 4, 4, 1, 4);
  backwards.replace(4, 2, Le16(9));  // xmin beyond xmax
  const std::pair<std::string, int> cases[] = {
      {PcxHeader(5, 1, 8, 1, 1, 1, 2) + "xx", TSL_OK},  // a 1x1 window is fine
      {backwards + "data", TSL_ERR_BAD_FILE},
      {PcxHeader(5, 1, 8, 10, 1, 1, 4) + "data", TSL_ERR_BAD_FILE},  // lines too short
      {PcxHeader(5, 1, 4, 10, 1, 3, 5) + "data", TSL_ERR_BAD_FILE},  // 3 planes of 4 bits
      {PcxHeader(5, 1, 8, 60000, 60000, 3, 60000) + "data", TSL_ERR_MEMORY},
  };
  for (const auto &c : cases) {
    int code;
    LoadPcx(dir, c.first, &code);
    EXPECT_EQ(code, c.second);
  }
  // DCX whose page lies outside the file; DCX without pages.
  int code;
  LoadPcx(dir, Le32(987654321) + Le32(999999) + Le32(0), &code, "dcx");
  EXPECT_EQ(code, TSL_ERR_READ);
  LoadPcx(dir, Le32(987654321) + Le32(0), &code, "dcx");
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);

  Pic rgb(MakePicture(TSL_RGB, 50, 30, 4)), idx(MakePicture(TSL_INDEXED, 50, 30, 4, 256));
  for (int rle : {0, 1}) {
    ASSERT_EQ(Save(dir.file("t.pcx"), rgb, "pcx", rle), TSL_OK);
    CheckTruncations(dir, dir.file("t.pcx"), Fmt("pcx"), 128);
  }
  ASSERT_EQ(Save(dir.file("p.pcx"), idx, "pcx", 1), TSL_OK);
  CheckTruncations(dir, dir.file("p.pcx"), Fmt("pcx"), 128, 769);
  ExpectLimitAndStop(dir.file("t.pcx"), 50 * 30);
}

}  // namespace
