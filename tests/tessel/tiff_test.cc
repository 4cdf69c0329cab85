// TIFF reader and writer: round trips through every kind and compression,
// multi-page files, files written by tiffcp and ImageMagick against their
// pixels, damaged and absurd files, limits and stopping.
#include <gtest/gtest.h>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

int CompressionOf(const std::string &path, int page = 0) {
  Info info;
  return FileInfo(path, &info, -1, page) == TSL_OK ? info->compression : -1;
}

TEST(Tiff, RoundTripEveryKindAndCompression) {
  TempDir dir;
  const std::string path = dir.file("rt.tif");
  const struct {
    int model, compression;
    int reported;  // TSL_COMP_* found in the file
  } cases[] = {
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
      {TSL_RGB, TSL_TIFF_JPEG, TSL_COMP_JPEG},            {TSL_GREY, TSL_TIFF_JPEG, TSL_COMP_JPEG},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << "model " << c.model << " compression " << c.compression);
    // Odd sizes: rows that do not fill whole bytes, strips that do not fill the picture.
    Pic src(MakePicture(c.model, 77, 53, 3, 200)), back;
    TslParams p = Params("tiff", c.compression);
    p.quality = 95;
    ASSERT_EQ(Save(path, src, p), TSL_OK);
    EXPECT_EQ(CompressionOf(path), c.reported);
    ASSERT_EQ(Load(path, &back), TSL_OK);
    const bool alpha = c.model == TSL_RGBA || c.model == TSL_ARGB;
    EXPECT_EQ(back->color_model, TSL_IS_TRUECOLOR(c.model) ? (alpha ? TSL_RGBA : TSL_RGB) : c.model);
    if (c.reported == TSL_COMP_JPEG) {  // lossy but close
      EXPECT_LT(MeanAbsDiff(src, back), 6.0);
      continue;
    }
    EXPECT_TRUE(SameColors(src, back, 0, true));
    if (c.model == TSL_INDEXED) {
      EXPECT_TRUE(SamePixels(src, back));
    }
  }
}

TEST(Tiff, ResolutionAndComment) {
  TempDir dir;
  const std::string path = dir.file("r.tif");
  Pic src(MakePicture(TSL_GREY, 10, 10)), back, again;
  TslParams p = Params("tiff");
  p.dpi_x = 300;
  p.dpi_y = 150;
  p.comment = "scanned page";
  ASSERT_EQ(Save(path, src, p), TSL_OK);
  Info info;
  ASSERT_EQ(FileInfo(path, &info), TSL_OK);
  EXPECT_EQ(info->dpi_x, 300);
  EXPECT_EQ(info->dpi_y, 150);
  ASSERT_NE(info->comment, nullptr);
  EXPECT_STREQ(info->comment, "scanned page");
  ASSERT_EQ(Load(path, &back), TSL_OK);
  EXPECT_EQ(back->attr_pair[0], 300u);
  EXPECT_EQ(back->attr_pair[1], 150u);
  // Without dpi in the parameters the picture's own resolution is written.
  back->attr_pair[0] = back->attr_pair[1] = 72;
  ASSERT_EQ(Save(path, back, "tiff", TSL_TIFF_LZW), TSL_OK);
  ASSERT_EQ(Load(path, &again), TSL_OK);
  EXPECT_EQ(again->attr_pair[0], 72u);
  // Centimetres are turned into inches.
  if (!HaveTool("convert")) return;
  ASSERT_EQ(Sh("convert -size 8x8 xc:gray -units PixelsPerCentimeter -density 40 '" + path + "'"), 0);
  Info cm;
  ASSERT_EQ(FileInfo(path, &cm), TSL_OK);
  EXPECT_EQ(cm->dpi_x, 102);
}

TEST(Tiff, MultiPageWriterEachPageWithItsCompression) {
  TempDir dir;
  const std::string path = dir.file("multi.tif");
  TslParams p = Params("tiff");
  TslFile *file = nullptr;
  ASSERT_EQ(tslFileCreate(&file, path.c_str(), Fmt("tiff"), 4, &p), TSL_OK);
  Pic pics[4] = {Pic(MakePicture(TSL_BINARY, 100, 60, 1)), Pic(MakePicture(TSL_GREY, 30, 40, 2)),
                 Pic(MakePicture(TSL_INDEXED, 12, 9, 3, 7)), Pic(MakePicture(TSL_RGB, 64, 64, 4))};
  const int compression[4] = {TSL_TIFF_CCITT_G4, TSL_TIFF_PACKBITS, TSL_TIFF_LZW, TSL_TIFF_DEFLATE};
  const int reported[4] = {TSL_COMP_CCITT_G4, TSL_COMP_PACKBITS, TSL_COMP_LZW, TSL_COMP_DEFLATE};
  for (int i = 0; i < 4; ++i) {
    p.compression = compression[i];
    ASSERT_EQ(tslFileAddPicture(file, &pics[i], &p), TSL_OK);
  }
  ASSERT_EQ(tslFileClose(file), TSL_OK);
  Info info;
  ASSERT_EQ(FileInfo(path, &info), TSL_OK);
  EXPECT_EQ(info->pages, 4);
  for (int i : {3, 0, 2, 1}) {
    Pic back;
    EXPECT_EQ(CompressionOf(path, i), reported[i]) << i;
    ASSERT_EQ(Load(path, &back, i), TSL_OK);
    EXPECT_TRUE(SamePixels(pics[i], back)) << i;
  }
  Pic none;
  EXPECT_EQ(Load(path, &none, 4), TSL_ERR_BAD_FILE);
  std::string out;
  if (HaveTool("tiffinfo")) {
    ASSERT_EQ(testutil::Run("tiffinfo '" + path + "'", &out), 0) << out;
    EXPECT_NE(out.find("Page Number: 3-4"), std::string::npos) << out;
  }
}

// Files written by tiffcp and ImageMagick, against ImageMagick's or
// tiff2rgba's reading of the same file.
class TiffForeign : public testing::Test {
 protected:
  void SetUp() override {
    if (!HaveTool("convert") || !HaveTool("tiffcp") || !HaveTool("tiff2rgba"))
      GTEST_SKIP() << "ImageMagick or libtiff tools missing";
    d_ = dir_.path() + "/";
    ASSERT_EQ(InDir("convert -size 83x61 plasma:fractal -seed 3 -depth 8 ref.ppm"), 0);
  }
  int InDir(const std::string &cmd) {
    std::string out;
    const int rc = testutil::Run("cd '" + d_ + "' && " + cmd, &out);
    if (rc) ADD_FAILURE() << cmd << ": " << out;
    return rc;
  }
  // Loads `name` and the reference (a PNM, or a TIFF we read through
  // libtiff's RGBA interface) and compares them: mean difference when
  // `mean` is given, else pixel for pixel within the tolerance.
  void Compare(const std::string &name, const std::string &ref, int model, int tolerance, double mean = -1) {
    SCOPED_TRACE(name);
    Pic pic, want;
    ASSERT_EQ(Load(d_ + name, &pic), TSL_OK);
    EXPECT_EQ(pic->color_model, model);
    if (ref.size() > 4 && ref.substr(ref.size() - 4) == ".tif") {
      ASSERT_EQ(Load(d_ + ref, &want), TSL_OK);
    } else {
      ASSERT_TRUE(ReadPnm(d_ + ref, &want));
    }
    if (mean >= 0) {
      EXPECT_LT(MeanAbsDiff(pic, want), mean);
    } else if (model == TSL_BINARY) {
      EXPECT_TRUE(SamePixels(pic, want));
    } else {
      EXPECT_TRUE(SameColors(pic, want, tolerance));
    }
  }
  TempDir dir_;
  std::string d_;
};

TEST_F(TiffForeign, StripsTilesAndPlanes) {
  ASSERT_EQ(InDir("convert ref.ppm -define tiff:rows-per-strip=7 -compress lzw strips.tif"
                  " && tiffcp -t -w 16 -l 32 -c zip strips.tif tiles.tif"
                  " && tiffcp -p separate -c packbits strips.tif planes.tif"
                  " && tiffcp -t -w 32 -l 16 -p separate tiles.tif tiledplanes.tif"
                  " && tiffcp strips.tif tiles.tif planes.tif pages.tif"),
            0);
  for (const char *name : {"strips.tif", "tiles.tif", "planes.tif", "tiledplanes.tif"}) Compare(name, "ref.ppm", TSL_RGB, 0);
  EXPECT_EQ(CompressionOf(d_ + "tiles.tif"), TSL_COMP_DEFLATE);
  Info info;
  ASSERT_EQ(FileInfo(d_ + "pages.tif", &info), TSL_OK);
  EXPECT_EQ(info->pages, 3);
  Pic a, b;
  ASSERT_EQ(Load(d_ + "pages.tif", &a, 2), TSL_OK);
  ASSERT_EQ(Load(d_ + "strips.tif", &b), TSL_OK);
  EXPECT_TRUE(SamePixels(a, b));
}

TEST_F(TiffForeign, SixteenBitsAndFewBitsPerSample) {
  ASSERT_EQ(InDir("convert -size 70x50 gradient:navy-orange -depth 16 -compress none rgb16.tif"
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
  Info info;
  ASSERT_EQ(FileInfo(d_ + "rgb16.tif", &info), TSL_OK);
  EXPECT_EQ(info->bits_per_plane, 16);
  EXPECT_EQ(info->planes, 3);
}

TEST_F(TiffForeign, PaletteBilevelCmykLabAndJpeg) {
  ASSERT_EQ(InDir("convert ref.ppm -colors 50 -type Palette pal.tif && convert pal.tif pal.ppm"
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
  Compare("lab.tif", "lab_rgba.tif", TSL_RGB, 1);
  EXPECT_EQ(CompressionOf(d_ + "g4.tif"), TSL_COMP_CCITT_G4);
  EXPECT_EQ(CompressionOf(d_ + "g3.tif"), TSL_COMP_CCITT_G3);
  EXPECT_EQ(CompressionOf(d_ + "ycc.tif"), TSL_COMP_JPEG);
  // The same translucent picture with straight and premultiplied alpha.
  ASSERT_EQ(InDir("convert -size 40x30 gradient:red-blue \\( -size 40x30 gradient:white-gray20 \\)"
                  " -alpha off -compose CopyOpacity -composite -define tiff:alpha=unassociated straight.tif"
                  " && convert straight.tif -define tiff:alpha=associated assoc.tif"),
            0);
  Pic a, b;
  ASSERT_EQ(Load(d_ + "straight.tif", &a), TSL_OK);
  ASSERT_EQ(Load(d_ + "assoc.tif", &b), TSL_OK);
  EXPECT_EQ(a->color_model, TSL_RGBA);
  EXPECT_EQ(b->color_model, TSL_RGBA);
  EXPECT_TRUE(SameColors(a, b, 2, true));
  EXPECT_LT(Px(a, 0, 29, 3), 80);  // bottom rows mostly transparent
}

// A directory of one strip or tile of 8-bit grey, values at offset 200.
std::string TinyTiff(uint32_t w, uint32_t h, uint32_t tile) {
  std::string s("II*\0\x08\0\0\0", 8);
  auto entry = [&s](unsigned tag, unsigned type, uint32_t value) { s += Le16(tag) + Le16(type) + Le32(1) + Le32(value); };
  s += Le16(tile ? 9 : 7);
  entry(256, 4, w);
  entry(257, 4, h);
  entry(258, 3, 8);
  entry(259, 3, 1);
  entry(262, 3, 1);
  if (tile) {
    entry(322, 4, tile);
    entry(323, 4, tile);
  }
  entry(tile ? 324 : 273, 4, 200);
  entry(tile ? 325 : 279, 4, 16);
  s += Le32(0);
  s.resize(216, '\x55');
  return s;
}

TEST(Tiff, TruncatedAbsurdLimitedAndStopped) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 120, 90, 6));
  const std::string path = dir.file("full.tif"), first = dir.file("first.tif");
  ASSERT_EQ(Save(path, src, "tiff", TSL_TIFF_LZW), TSL_OK);
  const std::string bytes = ReadFile(path);
  // libtiff writes the directory after the strips: cutting the end loses it.
  // Before the directory the file simply ends; a cut inside the values the
  // directory points to leaves a bad directory.
  for (size_t len : {size_t(5), size_t(8), bytes.size() / 2, bytes.size() - 4}) {
    int code;
    Pic pic = LoadBytes(dir, bytes.substr(0, len), &code);
    EXPECT_TRUE(code == TSL_ERR_READ || (len == bytes.size() - 4 && code == TSL_ERR_BAD_FILE)) << len << ": " << code;
    EXPECT_EQ(pic->pixels, nullptr);
  }
  ExpectLimitAndStop(path, 120 * 90);
  // Damaged strip data: the rows before the damage are intact.
  if (HaveTool("tiffcp")) {
    ASSERT_EQ(Sh("tiffcp -r 8 '" + path + "' '" + first + "'"), 0);
    std::string data = ReadFile(first);
    for (size_t i = data.size() / 2; i < data.size() * 3 / 4; ++i) data[i] = static_cast<char>(0xff);
    int code;
    Pic pic = LoadBytes(dir, data, &code), kept;
    EXPECT_TRUE(code == TSL_OK || code == TSL_ERR_READ || code == TSL_ERR_CORRUPT || code == TSL_ERR_BAD_FILE) << code;
    ASSERT_EQ(Load(dir.file("made.bin"), &kept, 0, TSL_FLAG_KEEP_DAMAGED), TSL_OK);
    EXPECT_EQ(std::memcmp(kept->pixels, src->pixels, 120 * 3 * 8), 0);
  }
  // A directory claiming a huge picture, one claiming huge tiles, and a tiny one that fits.
  TslParams lp = Params();
  lp.max_pixels = 1 << 22;
  Pic huge, tiles, tiny;
  WriteFile(dir.file("t.tif"), TinyTiff(100000, 100000, 0));
  EXPECT_EQ(tslLoad(dir.file("t.tif").c_str(), &huge, &lp), TSL_ERR_MEMORY);
  WriteFile(dir.file("t.tif"), TinyTiff(64, 64, 1u << 20));
  EXPECT_NE(tslLoad(dir.file("t.tif").c_str(), &tiles, &lp), TSL_OK);
  WriteFile(dir.file("t.tif"), TinyTiff(4, 4, 0));
  ASSERT_EQ(tslLoad(dir.file("t.tif").c_str(), &tiny, &lp), TSL_OK);
  EXPECT_EQ(tiny->pixels[15], 0x55);
  LoadRandomlyDamaged(dir, bytes, 8);
}

}  // namespace
