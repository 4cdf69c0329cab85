// TIFF reader and writer: round trips through every kind and compression,
// multi-page files, files written by tiffcp and ImageMagick against their
// pixels, damaged and absurd files, limits and stopping.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "test_util.h"
#include "tessel.h"

namespace {

using testutil::TempDir;

int TiffIndex() { return tslFormatGetIndex("tiff"); }

TslParams SaveParams(int compression) {
  TslParams p;
  tslDefaultParams(&p);
  p.format = TiffIndex();
  p.compression = compression;
  return p;
}

int Load(const std::string &path, TslPicture *pic, int page = 0, unsigned flags = 0) {
  TslParams p;
  tslDefaultParams(&p);
  p.page = page;
  p.flags = flags;
  return tslLoad(path.c_str(), pic, &p);
}

int CompressionOf(const std::string &path, int page = 0) {
  TslFileInfo info;
  if (tslFileInformation(path.c_str(), -1, page, &info) != TSL_OK) return -1;
  int c = info.compression;
  tslFileInformationFree(&info);
  return c;
}

TEST(Tiff, RoundTripEveryKindAndCompression) {
  TempDir dir;
  const std::string path = dir.file("rt.tif");
  struct Case {
    int model;
    int compression;
    int reported;  // TSL_COMP_* found in the file
  };
  const Case cases[] = {
      {TSL_BINARY, TSL_TIFF_NONE, TSL_COMP_NONE},         {TSL_BINARY, TSL_TIFF_LZW, TSL_COMP_LZW},
      {TSL_BINARY, TSL_TIFF_PACKBITS, TSL_COMP_PACKBITS}, {TSL_BINARY, TSL_TIFF_CCITT_G3, TSL_COMP_CCITT_G3},
      {TSL_BINARY, TSL_TIFF_CCITT_G4, TSL_COMP_CCITT_G4}, {TSL_BINARY, TSL_TIFF_DEFLATE, TSL_COMP_DEFLATE},
      {TSL_BINARY, TSL_TIFF_JPEG, TSL_COMP_LZW},          {TSL_GREY, TSL_TIFF_NONE, TSL_COMP_NONE},
      {TSL_GREY, TSL_TIFF_LZW, TSL_COMP_LZW},             {TSL_GREY, TSL_TIFF_PACKBITS, TSL_COMP_PACKBITS},
      {TSL_GREY, TSL_TIFF_DEFLATE, TSL_COMP_DEFLATE},     {TSL_GREY, TSL_TIFF_CCITT_G4, TSL_COMP_LZW},
      {TSL_INDEXED, TSL_TIFF_NONE, TSL_COMP_NONE},        {TSL_INDEXED, TSL_TIFF_LZW, TSL_COMP_LZW},
      {TSL_INDEXED, TSL_TIFF_JPEG, TSL_COMP_LZW},         {TSL_INDEXED, TSL_TIFF_CCITT_G3, TSL_COMP_LZW},
      {TSL_RGB, TSL_TIFF_NONE, TSL_COMP_NONE},            {TSL_RGB, TSL_TIFF_LZW, TSL_COMP_LZW},
      {TSL_RGB, TSL_TIFF_PACKBITS, TSL_COMP_PACKBITS},    {TSL_RGB, TSL_TIFF_DEFLATE, TSL_COMP_DEFLATE},
      {TSL_BGR, TSL_TIFF_LZW, TSL_COMP_LZW},              {TSL_RGBA, TSL_TIFF_DEFLATE, TSL_COMP_DEFLATE},
      {TSL_ARGB, TSL_TIFF_NONE, TSL_COMP_NONE},           {TSL_RGBA, TSL_TIFF_JPEG, TSL_COMP_LZW},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << "model " << c.model << " compression " << c.compression);
    // Odd sizes: rows that do not fill whole bytes, strips that do not fill the picture.
    TslPicture src = testutil::MakePicture(c.model, 77, 53, 3, 200);
    TslParams p = SaveParams(c.compression);
    ASSERT_EQ(tslSave(path.c_str(), &src, &p), TSL_OK);
    EXPECT_EQ(CompressionOf(path), c.reported);
    TslPicture back;
    ASSERT_EQ(Load(path, &back), TSL_OK);
    const bool alpha = c.model == TSL_RGBA || c.model == TSL_ARGB;
    const int expect = TSL_IS_TRUECOLOR(c.model) ? (alpha ? TSL_RGBA : TSL_RGB) : c.model;
    EXPECT_EQ(back.color_model, expect);
    EXPECT_TRUE(testutil::SameColors(src, back, 0, true));
    if (c.model == TSL_INDEXED) {
      EXPECT_TRUE(testutil::SamePixels(src, back));
    }
    tslFree(&back);
    tslFree(&src);
  }
}

TEST(Tiff, JpegIsLossyButClose) {
  TempDir dir;
  const std::string path = dir.file("j.tif");
  for (int model : {TSL_RGB, TSL_GREY}) {
    SCOPED_TRACE(model);
    TslPicture src = testutil::MakePicture(model, 90, 70, 2);
    TslParams p = SaveParams(TSL_TIFF_JPEG);
    p.quality = 95;
    ASSERT_EQ(tslSave(path.c_str(), &src, &p), TSL_OK);
    EXPECT_EQ(CompressionOf(path), TSL_COMP_JPEG);
    TslPicture back;
    ASSERT_EQ(Load(path, &back), TSL_OK);
    EXPECT_EQ(back.color_model, model);
    EXPECT_LT(testutil::MeanAbsDiff(src, back), 6.0);
    tslFree(&back);
    tslFree(&src);
  }
}

TEST(Tiff, ResolutionAndComment) {
  TempDir dir;
  const std::string path = dir.file("r.tif");
  TslPicture src = testutil::MakePicture(TSL_GREY, 10, 10);
  TslParams p = SaveParams(TSL_TIFF_NONE);
  p.dpi_x = 300;
  p.dpi_y = 150;
  p.comment = "scanned page";
  ASSERT_EQ(tslSave(path.c_str(), &src, &p), TSL_OK);
  TslFileInfo info;
  ASSERT_EQ(tslFileInformation(path.c_str(), -1, 0, &info), TSL_OK);
  EXPECT_EQ(info.dpi_x, 300);
  EXPECT_EQ(info.dpi_y, 150);
  ASSERT_NE(info.comment, nullptr);
  EXPECT_STREQ(info.comment, "scanned page");
  tslFileInformationFree(&info);
  TslPicture back;
  ASSERT_EQ(Load(path, &back), TSL_OK);
  EXPECT_EQ(back.attr_pair[0], 300u);
  EXPECT_EQ(back.attr_pair[1], 150u);
  // Without dpi in the parameters the picture's own resolution is written.
  back.attr_pair[0] = back.attr_pair[1] = 72;
  p = SaveParams(TSL_TIFF_LZW);
  ASSERT_EQ(tslSave(path.c_str(), &back, &p), TSL_OK);
  tslFree(&back);
  ASSERT_EQ(Load(path, &back), TSL_OK);
  EXPECT_EQ(back.attr_pair[0], 72u);
  tslFree(&back);
  tslFree(&src);

  // Centimetres are turned into inches.
  if (!testutil::HaveTool("convert")) return;
  ASSERT_EQ(testutil::Run("convert -size 8x8 xc:gray -units PixelsPerCentimeter -density 40 '" + path + "'"), 0);
  ASSERT_EQ(tslFileInformation(path.c_str(), -1, 0, &info), TSL_OK);
  EXPECT_EQ(info.dpi_x, 102);
  tslFileInformationFree(&info);
}

TEST(Tiff, MultiPageWriterEachPageWithItsCompression) {
  TempDir dir;
  const std::string path = dir.file("multi.tif");
  TslParams p = SaveParams(TSL_TIFF_NONE);
  TslFile *file = nullptr;
  ASSERT_EQ(tslFileCreate(&file, path.c_str(), TiffIndex(), 4, &p), TSL_OK);
  TslPicture pics[4] = {testutil::MakePicture(TSL_BINARY, 100, 60, 1), testutil::MakePicture(TSL_GREY, 30, 40, 2),
                        testutil::MakePicture(TSL_INDEXED, 12, 9, 3, 7), testutil::MakePicture(TSL_RGB, 64, 64, 4)};
  const int compression[4] = {TSL_TIFF_CCITT_G4, TSL_TIFF_PACKBITS, TSL_TIFF_LZW, TSL_TIFF_DEFLATE};
  const int reported[4] = {TSL_COMP_CCITT_G4, TSL_COMP_PACKBITS, TSL_COMP_LZW, TSL_COMP_DEFLATE};
  for (int i = 0; i < 4; ++i) {
    p.compression = compression[i];
    ASSERT_EQ(tslFileAddPicture(file, &pics[i], &p), TSL_OK);
  }
  ASSERT_EQ(tslFileClose(file), TSL_OK);
  TslFileInfo info;
  ASSERT_EQ(tslFileInformation(path.c_str(), -1, 0, &info), TSL_OK);
  EXPECT_EQ(info.pages, 4);
  tslFileInformationFree(&info);
  for (int i : {3, 0, 2, 1}) {
    SCOPED_TRACE(i);
    EXPECT_EQ(CompressionOf(path, i), reported[i]);
    TslPicture back;
    ASSERT_EQ(Load(path, &back, i), TSL_OK);
    EXPECT_TRUE(testutil::SamePixels(pics[i], back));
    tslFree(&back);
  }
  TslPicture none;
  EXPECT_EQ(Load(path, &none, 4), TSL_ERR_BAD_FILE);
  if (testutil::HaveTool("tiffinfo")) {
    std::string out;
    ASSERT_EQ(testutil::Run("tiffinfo '" + path + "'", &out), 0) << out;
    EXPECT_NE(out.find("Page Number: 3-4"), std::string::npos) << out;
  }
  for (TslPicture &pic : pics) tslFree(&pic);
}

// Files written by tiffcp and ImageMagick, against ImageMagick's or
// tiff2rgba's reading of the same file.
class TiffForeign : public testing::Test {
 protected:
  void SetUp() override {
    if (!testutil::HaveTool("convert") || !testutil::HaveTool("tiffcp") || !testutil::HaveTool("tiff2rgba"))
      GTEST_SKIP() << "ImageMagick or libtiff tools missing";
    d_ = dir_.path() + "/";
    ASSERT_EQ(Sh("convert -size 83x61 plasma:fractal -seed 3 -depth 8 ref.ppm"), 0);
  }
  int Sh(const std::string &cmd) {
    std::string out;
    int rc = testutil::Run("cd '" + d_ + "' && " + cmd, &out);
    if (rc) ADD_FAILURE() << cmd << ": " << out;
    return rc;
  }
  // Loads name and the PNM reference, compares with the given tolerance.
  void Compare(const std::string &name, const std::string &ref, int model, int tolerance, double mean = -1) {
    SCOPED_TRACE(name);
    TslPicture pic, want;
    ASSERT_EQ(Load(d_ + name, &pic), TSL_OK);
    EXPECT_EQ(pic.color_model, model);
    if (ref.size() > 4 && ref.substr(ref.size() - 4) == ".tif") {
      ASSERT_EQ(Load(d_ + ref, &want), TSL_OK);
    } else {
      ASSERT_TRUE(testutil::ReadPnm(d_ + ref, &want));
    }
    if (mean >= 0) {
      EXPECT_LT(testutil::MeanAbsDiff(pic, want), mean);
    } else if (model == TSL_BINARY) {
      EXPECT_TRUE(testutil::SamePixels(pic, want));
    } else {
      EXPECT_TRUE(testutil::SameColors(pic, want, tolerance));
    }
    tslFree(&pic);
    tslFree(&want);
  }
  TempDir dir_;
  std::string d_;
};

TEST_F(TiffForeign, StripsTilesAndPlanes) {
  ASSERT_EQ(Sh("convert ref.ppm -define tiff:rows-per-strip=7 -compress lzw strips.tif"), 0);
  ASSERT_EQ(Sh("tiffcp -t -w 16 -l 32 -c zip strips.tif tiles.tif"), 0);
  ASSERT_EQ(Sh("tiffcp -p separate -c packbits strips.tif planes.tif"), 0);
  ASSERT_EQ(Sh("tiffcp -t -w 32 -l 16 -p separate tiles.tif tiledplanes.tif"), 0);
  for (const char *name : {"strips.tif", "tiles.tif", "planes.tif", "tiledplanes.tif"}) Compare(name, "ref.ppm", TSL_RGB, 0);
  EXPECT_EQ(CompressionOf(d_ + "tiles.tif"), TSL_COMP_DEFLATE);
  ASSERT_EQ(Sh("tiffcp strips.tif tiles.tif planes.tif pages.tif"), 0);
  TslFileInfo info;
  ASSERT_EQ(tslFileInformation((d_ + "pages.tif").c_str(), -1, 0, &info), TSL_OK);
  EXPECT_EQ(info.pages, 3);
  tslFileInformationFree(&info);
  TslPicture a, b;
  ASSERT_EQ(Load(d_ + "pages.tif", &a, 2), TSL_OK);
  ASSERT_EQ(Load(d_ + "strips.tif", &b), TSL_OK);
  EXPECT_TRUE(testutil::SamePixels(a, b));
  tslFree(&a);
  tslFree(&b);
}

TEST_F(TiffForeign, SixteenBitsAndFewBitsPerSample) {
  ASSERT_EQ(Sh("convert -size 70x50 gradient:navy-orange -depth 16 -compress none rgb16.tif"
               " && convert rgb16.tif -depth 8 rgb16.ppm"
               " && convert ref.ppm -colorspace gray -depth 16 -compress lzw grey16.tif"
               " && convert grey16.tif -depth 8 grey16.pgm"
               " && convert ref.ppm -colorspace gray -depth 4 grey4.tif && convert grey4.tif -depth 8 grey4.pgm"
               " && convert ref.ppm -colorspace gray -depth 2 grey2.tif && convert grey2.tif -depth 8 grey2.pgm"),
            0);
  Compare("rgb16.tif", "rgb16.ppm", TSL_RGB, 1);
  Compare("grey16.tif", "grey16.pgm", TSL_GREY, 1);
  Compare("grey4.tif", "grey4.pgm", TSL_GREY, 0);
  Compare("grey2.tif", "grey2.pgm", TSL_GREY, 0);
  TslFileInfo info;
  ASSERT_EQ(tslFileInformation((d_ + "rgb16.tif").c_str(), -1, 0, &info), TSL_OK);
  EXPECT_EQ(info.bits_per_plane, 16);
  EXPECT_EQ(info.planes, 3);
  tslFileInformationFree(&info);
}

TEST_F(TiffForeign, PaletteBilevelCmykAndJpeg) {
  ASSERT_EQ(Sh("convert ref.ppm -colors 50 -type Palette pal.tif && convert pal.tif pal.ppm"
               " && convert ref.ppm -monochrome -compress Group4 g4.tif && convert g4.tif g4.pbm"
               " && convert ref.ppm -monochrome -compress Fax g3.tif"
               " && convert ref.ppm -colorspace CMYK -compress lzw cmyk.tif"
               " && convert cmyk.tif -colorspace sRGB cmyk.ppm"
               " && convert ref.ppm rgb.tif && tiffcp -c jpeg:90 -r 16 rgb.tif ycc.tif"
               " && tiff2rgba -c none ycc.tif ycc_rgba.tif"
               " && convert ref.ppm -colorspace Lab lab.tif && tiff2rgba -c none lab.tif lab_rgba.tif"),
            0);
  Compare("pal.tif", "pal.ppm", TSL_INDEXED, 1);
  Compare("g4.tif", "g4.pbm", TSL_BINARY, 0);
  Compare("g3.tif", "g4.pbm", TSL_BINARY, 0);
  Compare("cmyk.tif", "cmyk.ppm", TSL_RGB, 2);
  Compare("ycc.tif", "ycc_rgba.tif", TSL_RGB, 1);
  Compare("ycc.tif", "ref.ppm", TSL_RGB, 0, 10.0);
  Compare("lab.tif", "lab_rgba.tif", TSL_RGB, 1);  // through libtiff's RGBA interface
  EXPECT_EQ(CompressionOf(d_ + "g4.tif"), TSL_COMP_CCITT_G4);
  EXPECT_EQ(CompressionOf(d_ + "g3.tif"), TSL_COMP_CCITT_G3);
  EXPECT_EQ(CompressionOf(d_ + "ycc.tif"), TSL_COMP_JPEG);
}

TEST_F(TiffForeign, AlphaAssociatedAndNot) {
  // The same translucent picture with straight and premultiplied alpha.
  ASSERT_EQ(Sh("convert -size 40x30 gradient:red-blue \\( -size 40x30 gradient:white-gray20 \\)"
               " -alpha off -compose CopyOpacity -composite -define tiff:alpha=unassociated straight.tif"
               " && convert straight.tif -define tiff:alpha=associated assoc.tif"),
            0);
  TslPicture a, b;
  ASSERT_EQ(Load(d_ + "straight.tif", &a), TSL_OK);
  ASSERT_EQ(Load(d_ + "assoc.tif", &b), TSL_OK);
  EXPECT_EQ(a.color_model, TSL_RGBA);
  EXPECT_EQ(b.color_model, TSL_RGBA);
  EXPECT_TRUE(testutil::SameColors(a, b, 2, true));
  EXPECT_LT(a.pixels[(29 * 40) * 4 + 3], 80);  // bottom rows mostly transparent
  tslFree(&a);
  tslFree(&b);
}

TEST(Tiff, TruncatedAndAbsurdFiles) {
  TempDir dir;
  TslPicture src = testutil::MakePicture(TSL_RGB, 120, 90, 6);
  TslParams p = SaveParams(TSL_TIFF_LZW);
  const std::string path = dir.file("full.tif");
  ASSERT_EQ(tslSave(path.c_str(), &src, &p), TSL_OK);
  const std::string bytes = testutil::ReadFile(path);
  const std::string cut = dir.file("cut.tif");
  // libtiff writes the directory after the strips: cutting the end loses it.
  for (size_t len : {size_t(5), size_t(8), bytes.size() / 2, bytes.size() - 4}) {
    SCOPED_TRACE(len);
    testutil::WriteFile(cut, bytes.substr(0, len));
    TslPicture pic;
    const int code = Load(cut, &pic);
    // Before the directory the file simply ends; a cut inside the values
    // the directory points to leaves a bad directory.
    if (len == bytes.size() - 4) {
      EXPECT_TRUE(code == TSL_ERR_READ || code == TSL_ERR_BAD_FILE) << code;
    } else {
      EXPECT_EQ(code, TSL_ERR_READ);
    }
    EXPECT_EQ(pic.pixels, nullptr);
  }

  // Damaged strip data (libtiff puts the directory after the strips).
  const std::string first = dir.file("first.tif");
  if (testutil::HaveTool("tiffcp")) {
    ASSERT_EQ(testutil::Run("tiffcp -r 8 '" + path + "' '" + first + "'"), 0);
    std::string data = testutil::ReadFile(first);
    TslPicture pic;
    ASSERT_EQ(Load(first, &pic), TSL_OK);
    tslFree(&pic);
    for (size_t i = data.size() / 2; i < data.size() * 3 / 4; ++i) data[i] = static_cast<char>(0xff);
    testutil::WriteFile(first, data);
    int code = Load(first, &pic);
    if (code == TSL_OK) {
      tslFree(&pic);
    } else {
      EXPECT_TRUE(code == TSL_ERR_READ || code == TSL_ERR_CORRUPT || code == TSL_ERR_BAD_FILE) << code;
    }
    ASSERT_EQ(Load(first, &pic, 0, TSL_FLAG_KEEP_DAMAGED), TSL_OK);
    // The rows before the damage are intact.
    EXPECT_EQ(std::memcmp(pic.pixels, src.pixels, 120 * 3 * 8), 0);
    tslFree(&pic);
  }

  // A directory claiming a huge picture, and one claiming huge tiles.
  auto tiny = [](uint32_t w, uint32_t h, uint32_t tile) {
    std::string s("II*\0\x08\0\0\0", 8);
    auto u16 = [&s](unsigned v) { s += static_cast<char>(v & 255); s += static_cast<char>(v >> 8); };
    auto u32 = [&s, &u16](uint32_t v) { u16(v & 0xffff); u16(v >> 16); };
    auto entry = [&](unsigned tag, unsigned type, uint32_t value) { u16(tag); u16(type); u32(1); u32(value); };
    u16(tile ? 9 : 7);
    entry(256, 4, w);
    entry(257, 4, h);
    entry(258, 3, 8);
    entry(259, 3, 1);
    entry(262, 3, 1);
    if (tile) {
      entry(322, 4, tile);
      entry(323, 4, tile);
      entry(324, 4, 200);
      entry(325, 4, 16);
    } else {
      entry(273, 4, 200);
      entry(279, 4, 16);
    }
    u32(0);
    s.resize(216, '\x55');
    return s;
  };
  TslPicture pic;
  TslParams lp;
  tslDefaultParams(&lp);
  lp.max_pixels = 1 << 22;
  testutil::WriteFile(cut, tiny(100000, 100000, 0));
  EXPECT_EQ(tslLoad(cut.c_str(), &pic, &lp), TSL_ERR_MEMORY);
  testutil::WriteFile(cut, tiny(64, 64, 1u << 20));
  EXPECT_NE(tslLoad(cut.c_str(), &pic, &lp), TSL_OK);
  testutil::WriteFile(cut, tiny(4, 4, 0));  // fits: 16 grey bytes
  ASSERT_EQ(tslLoad(cut.c_str(), &pic, &lp), TSL_OK);
  EXPECT_EQ(pic.pixels[15], 0x55);
  tslFree(&pic);

  // Random damage anywhere never crashes.
  std::mt19937 rng(8);
  for (int i = 0; i < 300; ++i) {
    std::string bad = bytes;
    for (int k = 0; k < 4; ++k) bad[rng() % bad.size()] = static_cast<char>(rng());
    testutil::WriteFile(cut, bad);
    if (Load(cut, &pic, 0, rng() % 2 ? TSL_FLAG_KEEP_DAMAGED : 0) == TSL_OK) tslFree(&pic);
  }
  tslFree(&src);
}

int StopAtHalf(int what, int value, void *data) {
  ++*static_cast<int *>(data);
  return what == 0 && value >= 50;
}

TEST(Tiff, PixelLimitAndStop) {
  TempDir dir;
  TslPicture src = testutil::MakePicture(TSL_RGB, 100, 200, 4);
  TslParams p = SaveParams(TSL_TIFF_NONE);
  const std::string path = dir.file("l.tif");
  ASSERT_EQ(tslSave(path.c_str(), &src, &p), TSL_OK);
  TslParams lp;
  tslDefaultParams(&lp);
  lp.max_pixels = 100 * 200 - 1;
  TslPicture pic;
  EXPECT_EQ(tslLoad(path.c_str(), &pic, &lp), TSL_ERR_MEMORY);
  lp.max_pixels = 0;
  int calls = 0;
  lp.progress = StopAtHalf;
  lp.progress_data = &calls;
  EXPECT_EQ(tslLoad(path.c_str(), &pic, &lp), TSL_STOPPED);
  EXPECT_GT(calls, 1);
  EXPECT_EQ(pic.pixels, nullptr);
  tslFree(&src);
}

}  // namespace
