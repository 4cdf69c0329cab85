// PCX and DCX: round trips through every kind and coding, files of
// ImageMagick and netpbm, hand-made rare layouts, multi-page files and
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

// A PCX header: version, encoding, bits, window, planes, bytes per line, and
// a 16-entry palette whose entry i is (i*16, i*8, i*4) unless `palette` is false.
std::string PcxHeader(int version, int encoding, int bpp, int w, int h, int planes, int bpl, bool palette = true) {
  std::string s = {char(0x0A), char(version), char(encoding), char(bpp)};
  s += Le16(0) + Le16(0) + Le16(w - 1) + Le16(h - 1) + Le16(72) + Le16(72);
  for (int i = 0; i < 16; ++i)
    s += palette ? std::string{char(i * 16), char(i * 8), char(i * 4)} : std::string(3, '\0');
  s += std::string(1, '\0') + char(planes) + Le16(bpl) + Le16(1);
  s.resize(128, '\0');
  return s;
}

Pic LoadBytes(const TempDir &dir, const std::string &bytes, int *code, const char *format = "pcx") {
  testutil::WriteFile(dir.file("made.pcx"), bytes);
  Pic pic;
  LoadOptions o;
  o.format = Fmt(format);
  *code = Load(dir.file("made.pcx"), &pic, o);
  return pic;
}

struct Kind {
  int model;
  int colors;
  int loaded;  // model read back
};
const Kind kKinds[] = {{TSL_BINARY, 2, TSL_BINARY},   {TSL_INDEXED, 2, TSL_INDEXED}, {TSL_INDEXED, 16, TSL_INDEXED},
                       {TSL_INDEXED, 200, TSL_INDEXED}, {TSL_GREY, 256, TSL_GREY},     {TSL_RGB, 0, TSL_RGB},
                       {TSL_RGBA, 0, TSL_RGB}};

TEST(Pcx, RoundTripEveryKindAndCoding) {
  TempDir dir;
  for (const Kind &k : kKinds) {
    for (int compression : {0, 1}) {
      SCOPED_TRACE("model " + std::to_string(k.model) + " colours " + std::to_string(k.colors) + " rle " +
                   std::to_string(compression));
      // An odd width exercises the even line padding.
      Pic src(MakePicture(k.model, 37, 11, 9, k.colors));
      const std::string file = dir.file("rt.pcx");
      ASSERT_EQ(Save(file, *src, "pcx", compression), TSL_OK);
      Pic back;
      ASSERT_EQ(Load(file, &back), TSL_OK);
      EXPECT_EQ(back->color_model, k.loaded);
      EXPECT_TRUE(SameColors(*src, *back));
      if (k.model == k.loaded) {
        EXPECT_TRUE(SamePixels(*src, *back));
      }
      // ImageMagick 6 reads set bits of 1-bit PCX files as black, unlike
      // netpbm and GraphicsMagick: bilevel files are checked with the latter.
      Pic magick;
      ASSERT_TRUE(legacy::DecodeWithConvert(dir, file, &magick, k.model == TSL_BINARY ? "gm convert" : "convert"));
      EXPECT_TRUE(SameColors(*src, *magick));
      if (compression == 1 && testutil::HaveTool("pcxtoppm")) {
        Pic netpbm;
        ASSERT_TRUE(legacy::DecodeWithNetpbm(dir, "pcxtoppm", file, &netpbm));
        EXPECT_TRUE(SameColors(*src, *netpbm));
      }
    }
  }
}

TEST(Pcx, ReadsFilesOfImageMagickAndNetpbm) {
  if (!testutil::HaveTool("convert") || !testutil::HaveTool("ppmtopcx")) GTEST_SKIP() << "tools missing";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 43, 21, 12));
  const std::string ppm = dir.file("src.ppm");
  legacy::WritePpm(ppm, *src);
  const char *commands[] = {
      "convert SRC OUT",
      "convert SRC -type palette OUT",
      "convert SRC -colors 16 OUT",
      "convert SRC -monochrome OUT",
      "ppmtopcx SRC > OUT",
      "pnmquant 200 SRC | ppmtopcx -8bit > OUT",
      "pnmquant 16 SRC | ppmtopcx > OUT",
      "pnmquant 16 SRC | ppmtopcx -packed > OUT",
      "pnmquant 4 SRC | ppmtopcx -packed > OUT",
      "pnmquant 8 SRC | ppmtopcx -planes 3 > OUT",
  };
  for (const char *command : commands) {
    std::string cmd = command;
    cmd.replace(cmd.find("SRC"), 3, "'" + ppm + "'");
    cmd.replace(cmd.find("OUT"), 3, "'" + dir.file("x.pcx") + "'");
    SCOPED_TRACE(cmd);
    ASSERT_EQ(testutil::Run("(" + cmd + ") 2>/dev/null"), 0);
    Pic ours, theirs;
    ASSERT_EQ(Load(dir.file("x.pcx"), &ours), TSL_OK);
    ASSERT_TRUE(legacy::DecodeWithConvert(dir, dir.file("x.pcx"), &theirs));
    EXPECT_TRUE(SameColors(*ours, *theirs));
  }
}

TEST(Pcx, RareLayoutsByHand) {
  TempDir dir;
  int code;
  // 2 bits per pixel, version 5: colours come from the header palette.
  Pic a = LoadBytes(dir, PcxHeader(5, 0, 2, 4, 1, 1, 2) + std::string("\x1B\x00", 2), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(a->color_model, TSL_INDEXED);
  EXPECT_EQ(std::memcmp(a->pixels, "\x00\x01\x02\x03", 4), 0);
  EXPECT_EQ(a->palette[3], 48);
  // Version 3 has no palette: 4 planes use the EGA colours.  9 pixels in 3
  // bytes per plane; the last run of zeros crosses from row 0 into row 1.
  const std::string data = std::string("\xC2\xFF\x80", 3) + std::string("\xC7\x00", 2) + std::string("\xCE\x00", 2);
  Pic b = LoadBytes(dir, PcxHeader(3, 1, 1, 9, 2, 4, 3) + data, &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(b->color_model, TSL_INDEXED);
  EXPECT_EQ(b->colors, 16);
  for (int x = 0; x < 9; ++x) EXPECT_EQ(b->pixels[x], 1) << x;
  for (int x = 0; x < 9; ++x) EXPECT_EQ(b->pixels[b->bytes_per_line + x], 0) << x;
  EXPECT_EQ(b->palette[512 + 1], 0xAA);  // EGA blue
  // 8 bits without the trailing palette: grey.
  Pic c = LoadBytes(dir, PcxHeader(5, 0, 8, 2, 1, 1, 2) + "\x10\x20", &code);
  ASSERT_EQ(code, TSL_OK);
  EXPECT_EQ(c->color_model, TSL_GREY);
  EXPECT_EQ(c->pixels[1], 0x20);
}

TEST(Pcx, DcxPagesRoundTrip) {
  TempDir dir;
  const std::string file = dir.file("multi.dcx");
  TslParams params;
  tslDefaultParams(&params);
  TslFile *out = nullptr;
  ASSERT_EQ(tslFileCreate(&out, file.c_str(), Fmt("dcx"), 3, &params), TSL_OK);
  std::vector<Pic> pages;
  pages.emplace_back(MakePicture(TSL_RGB, 31, 17, 1));
  pages.emplace_back(MakePicture(TSL_INDEXED, 12, 40, 2, 120));
  pages.emplace_back(MakePicture(TSL_BINARY, 70, 5, 3));
  for (size_t i = 0; i < pages.size(); ++i) {
    params.compression = static_cast<int>(i % 2);
    ASSERT_EQ(tslFileAddPicture(out, &*pages[i], &params), TSL_OK);
  }
  ASSERT_EQ(tslFileClose(out), TSL_OK);
  TslFileInfo info;
  ASSERT_EQ(tslFileInformation(file.c_str(), -1, 1, &info), TSL_OK);
  EXPECT_EQ(info.format, Fmt("dcx"));
  EXPECT_EQ(info.pages, 3);
  EXPECT_EQ(info.width, 12u);
  EXPECT_EQ(info.compression, TSL_COMP_RLE);
  tslFileInformationFree(&info);
  for (size_t i = 0; i < pages.size(); ++i) {
    SCOPED_TRACE(i);
    Pic back;
    LoadOptions o;
    o.page = static_cast<int>(i);
    ASSERT_EQ(Load(file, &back, o), TSL_OK);
    EXPECT_TRUE(SamePixels(*pages[i], *back));
    if (testutil::HaveTool("convert")) {
      Pic magick;
      ASSERT_TRUE(legacy::DecodeWithConvert(dir, file + "[" + std::to_string(i) + "]", &magick,
                                            pages[i]->color_model == TSL_BINARY ? "gm convert" : "convert"));
      EXPECT_TRUE(SameColors(*pages[i], *magick));
    }
  }
  Pic none;
  LoadOptions o;
  o.page = 3;
  EXPECT_EQ(Load(file, &none, o), TSL_ERR_BAD_FILE);
  // A single save is a one-page DCX.
  ASSERT_EQ(Save(dir.file("one.dcx"), *pages[0], "dcx", 1), TSL_OK);
  Pic one;
  ASSERT_EQ(Load(dir.file("one.dcx"), &one), TSL_OK);
  EXPECT_TRUE(SamePixels(*pages[0], *one));
}

TEST(Pcx, ReadsDcxOfImageMagick) {
  if (!testutil::HaveTool("convert")) GTEST_SKIP() << "ImageMagick missing";
  TempDir dir;
  const std::string file = dir.file("m.dcx");
  ASSERT_EQ(testutil::Run("convert -size 20x10 gradient:red-blue -size 15x8 plasma:fractal -depth 8 '" + file + "'"), 0);
  TslFileInfo info;
  ASSERT_EQ(tslFileInformation(file.c_str(), -1, 0, &info), TSL_OK);
  EXPECT_EQ(info.pages, 2);
  tslFileInformationFree(&info);
  for (int page = 0; page < 2; ++page) {
    Pic ours, theirs;
    LoadOptions o;
    o.page = page;
    ASSERT_EQ(Load(file, &ours, o), TSL_OK);
    ASSERT_TRUE(legacy::DecodeWithConvert(dir, file + "[" + std::to_string(page) + "]", &theirs));
    EXPECT_TRUE(SameColors(*ours, *theirs));
  }
}

TEST(Pcx, AbsurdHeadersTruncationAndStopping) {
  TempDir dir;
  int code;
  LoadBytes(dir, PcxHeader(5, 1, 8, 1, 1, 1, 2) + "xx", &code);
  EXPECT_EQ(code, TSL_OK);  // a 1x1 window is fine
  std::string backwards = PcxHeader(5, 1, 8, 4, 4, 1, 4);
  backwards.replace(4, 2, Le16(9));  // xmin beyond xmax
  LoadBytes(dir, backwards + "data", &code);
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  LoadBytes(dir, PcxHeader(5, 1, 8, 10, 1, 1, 4) + "data", &code);  // lines too short
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  LoadBytes(dir, PcxHeader(5, 1, 4, 10, 1, 3, 5) + "data", &code);  // 3 planes of 4 bits
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  LoadBytes(dir, PcxHeader(5, 1, 8, 60000, 60000, 3, 60000) + "data", &code);
  EXPECT_EQ(code, TSL_ERR_MEMORY);
  // DCX whose page lies outside the file; DCX without pages.
  LoadBytes(dir, Le32(987654321) + Le32(999999) + Le32(0), &code, "dcx");
  EXPECT_EQ(code, TSL_ERR_READ);
  LoadBytes(dir, Le32(987654321) + Le32(0), &code, "dcx");
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);

  Pic rgb(MakePicture(TSL_RGB, 50, 30, 4));
  for (int compression : {0, 1}) {
    ASSERT_EQ(Save(dir.file("t.pcx"), *rgb, "pcx", compression), TSL_OK);
    legacy::CheckTruncations(dir, dir.file("t.pcx"), Fmt("pcx"), 128);
  }
  Pic idx(MakePicture(TSL_INDEXED, 50, 30, 4, 256));
  ASSERT_EQ(Save(dir.file("p.pcx"), *idx, "pcx", 1), TSL_OK);
  legacy::CheckTruncations(dir, dir.file("p.pcx"), Fmt("pcx"), 128, 769);

  Pic pic;
  LoadOptions o;
  o.progress = legacy::StopAtOnce;
  EXPECT_EQ(Load(dir.file("t.pcx"), &pic, o), TSL_STOPPED);
  o.progress = nullptr;
  o.max_pixels = 100;
  EXPECT_EQ(Load(dir.file("t.pcx"), &pic, o), TSL_ERR_MEMORY);
}

}  // namespace
