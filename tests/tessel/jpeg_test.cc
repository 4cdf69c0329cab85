// JPEG reading and writing through the tsl calls, checked against djpeg and
// ImageMagick on files they wrote.
#include <gtest/gtest.h>

#include "format.h"
#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

TEST(Jpeg, RoundTripLayoutsAndWriterOptions) {
  TempDir dir;
  for (int model : {TSL_GREY, TSL_RGB, TSL_BGRA}) {
    SCOPED_TRACE(model);
    Pic src(MakePicture(model, 67, 41, 3)), back;
    const std::string path = dir.file("rt.jpg");
    TslParams params = Params("jpeg");
    params.quality = 95;
    ASSERT_EQ(Save(path, src, params), TSL_OK);
    ASSERT_EQ(Load(path, &back), TSL_OK);
    EXPECT_EQ(back->color_model, model == TSL_GREY ? TSL_GREY : TSL_RGB);
    // Colour loses detail to the 2x2 chroma subsampling of the default.
    EXPECT_LT(MeanAbsDiff(src, back), model == TSL_GREY ? 3.0 : 8.0);
    Info info;
    ASSERT_EQ(FileInfo(path, &info), TSL_OK);
    EXPECT_EQ(info->planes, model == TSL_GREY ? 1 : 3);
    EXPECT_EQ(info->width, 67u);
    EXPECT_EQ(info->height, 41u);
    EXPECT_EQ(info->compression, TSL_COMP_JPEG);
  }

  Pic src(MakePicture(TSL_RGB, 160, 120, 5));
  src->attr_pair[0] = 150;
  src->attr_pair[1] = 75;
  TslParams params = Params("jpeg");
  params.quality = 80;
  const std::string plain = dir.file("plain.jpg"), opt = dir.file("opt.jpg"), prog = dir.file("prog.jpg");
  const std::string low = dir.file("low.jpg");
  ASSERT_EQ(Save(plain, src, params), TSL_OK);
  params.optimize_huffman = 1;
  ASSERT_EQ(Save(opt, src, params), TSL_OK);
  params.optimize_huffman = 0;
  params.progressive = 1;
  params.comment = "made by the jpeg test";
  params.dpi_x = 300;
  params.dpi_y = 200;
  ASSERT_EQ(Save(prog, src, params), TSL_OK);
  params = Params("jpeg");
  params.quality = 20;
  ASSERT_EQ(Save(low, src, params), TSL_OK);
  // Optimised tables only change the entropy coding: smaller, same pixels.
  EXPECT_LT(ReadFile(opt).size(), ReadFile(plain).size());
  Pic a, b, c, d;
  ASSERT_EQ(Load(plain, &a), TSL_OK);
  ASSERT_EQ(Load(opt, &b), TSL_OK);
  ASSERT_EQ(Load(prog, &c), TSL_OK);
  ASSERT_EQ(Load(low, &d), TSL_OK);
  EXPECT_TRUE(SamePixels(a, b));
  EXPECT_TRUE(SamePixels(a, c));
  EXPECT_EQ(a->attr_pair[0], 150u);
  EXPECT_EQ(a->attr_pair[1], 75u);
  EXPECT_EQ(c->attr_pair[0], 300u);
  EXPECT_EQ(c->attr_pair[1], 200u);
  Info info;
  ASSERT_EQ(FileInfo(prog, &info), TSL_OK);
  EXPECT_EQ(info->compression, TSL_COMP_JPEG_PROG);
  ASSERT_NE(info->comment, nullptr);
  EXPECT_STREQ(info->comment, "made by the jpeg test");
  EXPECT_EQ(info->dpi_x, 300);
  EXPECT_EQ(info->dpi_y, 200);
  // Lower quality: smaller file, larger error.
  EXPECT_LT(ReadFile(low).size(), ReadFile(plain).size());
  EXPECT_GT(MeanAbsDiff(src, d), MeanAbsDiff(src, a));
}

TEST(Jpeg, MatchesDjpegOnCjpegFiles) {
  if (!HaveTool("cjpeg") || !HaveTool("djpeg")) GTEST_SKIP() << "cjpeg/djpeg missing";
  TempDir dir;
  Pic rgb(MakePicture(TSL_RGB, 101, 77, 9));
  WritePpm(dir.file("in.ppm"), rgb);
  const struct {
    const char *options;
    int compression, model;
  } cases[] = {{"-quality 85", TSL_COMP_JPEG, TSL_RGB},
               {"-quality 70 -progressive", TSL_COMP_JPEG_PROG, TSL_RGB},
               {"-grayscale -quality 90", TSL_COMP_JPEG, TSL_GREY},
               {"-sample 1x1 -restart 2 -quality 60", TSL_COMP_JPEG, TSL_RGB}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.options);
    const std::string jpg = dir.file("x.jpg");
    ASSERT_EQ(RunWith(std::string("cjpeg ") + c.options + " -outfile OUT SRC", dir.file("in.ppm"), jpg), 0);
    Pic ours, theirs;
    ASSERT_EQ(Load(jpg, &ours), TSL_OK);
    ASSERT_TRUE(ToolPnm("djpeg -pnm '" + jpg + "'", dir, &theirs));
    EXPECT_EQ(ours->color_model, c.model);
    EXPECT_TRUE(SamePixels(ours, theirs));
    Info info;
    ASSERT_EQ(FileInfo(jpg, &info), TSL_OK);
    EXPECT_EQ(info->compression, c.compression);
    EXPECT_EQ(info->bits_per_plane, 8);
  }
}

TEST(Jpeg, CmykAndDensityFromImageMagick) {
  if (!HaveTool("convert")) GTEST_SKIP() << "ImageMagick missing";
  TempDir dir;
  const std::string cmyk = dir.file("cmyk.jpg");
  ASSERT_EQ(Sh("convert -size 64x48 gradient:red-blue -quality 95 png:- | convert - -colorspace CMYK -quality 95 "
               "-density 72 -units PixelsPerCentimeter '" + cmyk + "'"),
            0);
  Info info;
  ASSERT_EQ(FileInfo(cmyk, &info), TSL_OK);
  EXPECT_EQ(info->planes, 4);
  EXPECT_EQ(info->color_model, TSL_RGB);
  EXPECT_EQ(info->dpi_x, 183);  // 72 dots per cm
  Pic ours, theirs;
  ASSERT_EQ(Load(cmyk, &ours), TSL_OK);
  ASSERT_TRUE(ToolPnm("convert '" + cmyk + "' -colorspace sRGB -depth 8 ppm:-", dir, &theirs));
  ASSERT_EQ(ours->color_model, TSL_RGB);
  EXPECT_LT(MeanAbsDiff(ours, theirs), 2.0);
  EXPECT_TRUE(SameColors(ours, theirs, 6));
}

// Inserts an APP1 Exif segment holding a TIFF header and IFD0 right after SOI.
std::string WithExif(const std::string &jpeg, bool little_endian, uint32_t ifd_offset, uint16_t orientation) {
  std::string tiff = little_endian ? "II" : "MM";
  auto u16 = [&](unsigned v) {
    tiff += little_endian ? std::string{char(v & 0xff), char(v >> 8)} : std::string{char(v >> 8), char(v & 0xff)};
  };
  auto u32 = [&](uint32_t v) {
    u16(little_endian ? v & 0xffff : v >> 16);
    u16(little_endian ? v >> 16 : v & 0xffff);
  };
  u16(42);
  u32(ifd_offset);
  u16(2);  // entries
  u16(0x010F), u16(2), u32(4), tiff += "ACME";  // Make
  u16(0x0112), u16(3), u32(1), u16(orientation), u16(0);
  u32(0);
  const std::string body = std::string("Exif\0\0", 6) + tiff;
  return jpeg.substr(0, 2) + "\xFF\xE1" + char((body.size() + 2) >> 8) + char((body.size() + 2) & 0xff) + body +
         jpeg.substr(2);
}

TEST(Jpeg, ExifOrientationIsParsedSafely) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 16, 16, 1));
  ASSERT_EQ(Save(dir.file("base.jpg"), src, "jpeg"), TSL_OK);
  const std::string jpeg = ReadFile(dir.file("base.jpg"));
  const struct {
    bool le;
    uint32_t ifd;
    uint16_t value;
    int expect;
  } cases[] = {{true, 8, 6, 6}, {false, 8, 3, 3}, {true, 8, 9, 0}, {true, 0x7ffffff0, 6, 0}, {false, 60, 8, 0}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.ifd);
    const std::string path = dir.file("exif.jpg");
    WriteFile(path, WithExif(jpeg, c.le, c.ifd, c.value));
    Info info;
    Pic pic;
    ASSERT_EQ(FileInfo(path, &info), TSL_OK);
    EXPECT_EQ(info->orientation, c.expect);
    EXPECT_EQ(Load(path, &pic), TSL_OK);
  }
}

TEST(Jpeg, DamagedAbsurdLimitedAndStopped) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 200, 150, 2));
  const std::string good = dir.file("good.jpg");
  TslParams params = Params("jpeg");
  for (int progressive : {1, 0}) {
    SCOPED_TRACE(progressive);
    params.progressive = progressive;
    ASSERT_EQ(Save(good, src, params), TSL_OK);
    // The decoded top rows of a baseline file are the picture's.
    ExpectCutHandled(dir, good, ReadFile(good).size() / 2, -1, 0, 0, progressive ? 0 : 8);
    // Only the header's first bytes.
    int code;
    Info info;
    LoadBytes(dir, ReadFile(good).substr(0, 40), &code);
    EXPECT_NE(code, TSL_OK);
    EXPECT_NE(FileInfo(dir.file("made.bin"), &info), TSL_OK);
  }
  ExpectLimitAndStop(good, 200 * 150);
  // A frame header claiming 65000 x 65000 pixels.
  std::string data = ReadFile(good);
  for (size_t i = 2; i + 9 < data.size(); ++i) {
    if (static_cast<uint8_t>(data[i]) == 0xFF && (data[i + 1] == '\xC0' || data[i + 1] == '\xC2')) {
      data[i + 5] = data[i + 7] = char(0xFD);
      data[i + 6] = data[i + 8] = char(0xE8);
      break;
    }
  }
  int code;
  Info info;
  LoadBytes(dir, data, &code);
  EXPECT_EQ(code, TSL_ERR_MEMORY);
  ASSERT_EQ(FileInfo(dir.file("made.bin"), &info), TSL_OK);
  EXPECT_EQ(info->width, 65000u);
}

TEST(Jpeg, ReducedLoadFitsTheBox) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 1600, 1200, 6));
  const std::string path = dir.file("big.jpg");
  ASSERT_EQ(Save(path, src, "jpeg"), TSL_OK);
  TslParams load = Params();
  load.target_width = 92;
  load.target_height = 69;
  Pic small, full, boxed;
  ASSERT_EQ(tslLoad(path.c_str(), &small, &load), TSL_OK);
  EXPECT_EQ(small->width, 92u);
  EXPECT_EQ(small->height, 69u);
  // Same content as the area-averaged full-size decode.
  ASSERT_EQ(Load(path, &full), TSL_OK);
  ASSERT_EQ(tessel::reducePicture(&full, 92, 69), TSL_OK);
  EXPECT_LT(MeanAbsDiff(small, full), 2.0);
  // A box of another aspect keeps the picture's.
  load.target_width = load.target_height = 100;
  ASSERT_EQ(tslLoad(path.c_str(), &boxed, &load), TSL_OK);
  EXPECT_EQ(boxed->width, 100u);
  EXPECT_EQ(boxed->height, 75u);
}

// The RGB reduction (rows read directly, large pictures in two bands on two
// threads) gives the very bytes of the general one, checked against the
// colour channels of the same picture reduced as RGBA.
TEST(Jpeg, RgbReductionMatchesTheGeneralOne) {
  struct Case {
    uint32_t w, h;
    int tw, th;
  } cases[] = {{1500, 1125, 1240, 930},  // a reduced photograph fitted to a screen: two bands
               {1001, 999, 1000, 998},   // one pixel less: rows that straddle two
               {777, 555, 13, 11},       // a thumbnail of a prime-ish size
               {1200, 1601, 517, 1024},  // tall, the bands meeting inside a source row
               {3, 900, 1, 300}};
  for (const Case &c : cases) {
    TslPicture rgb = MakePicture(TSL_RGB, c.w, c.h, c.w + c.h);
    TslPicture rgba{};
    ASSERT_TRUE(tslAllock(&rgba, TSL_RGBA, 0, c.w, c.h));
    for (uint32_t y = 0; y < c.h; ++y)
      for (uint32_t x = 0; x < c.w; ++x) {
        const uint8_t *s = rgb.pixels + static_cast<size_t>(y) * rgb.bytes_per_line + x * 3;
        uint8_t *d = rgba.pixels + static_cast<size_t>(y) * rgba.bytes_per_line + x * 4;
        d[0] = s[0], d[1] = s[1], d[2] = s[2], d[3] = 255;
      }
    ASSERT_EQ(tessel::reducePicture(&rgb, c.tw, c.th), TSL_OK);
    ASSERT_EQ(tessel::reducePicture(&rgba, c.tw, c.th), TSL_OK);
    ASSERT_EQ(rgb.width, rgba.width);
    ASSERT_EQ(rgb.height, rgba.height);
    EXPECT_LE(rgb.width, static_cast<uint32_t>(c.tw));
    long wrong = 0;
    for (uint32_t y = 0; y < rgb.height; ++y)
      for (uint32_t x = 0; x < rgb.width; ++x)
        for (int k = 0; k < 3; ++k)
          wrong += rgb.pixels[static_cast<size_t>(y) * rgb.bytes_per_line + x * 3 + k] !=
                   rgba.pixels[static_cast<size_t>(y) * rgba.bytes_per_line + x * 4 + k];
    EXPECT_EQ(wrong, 0) << c.w << "x" << c.h << " to " << c.tw << "x" << c.th;
    tslFree(&rgb);
    tslFree(&rgba);
  }
}

}  // namespace
