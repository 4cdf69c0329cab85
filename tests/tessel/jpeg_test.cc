// JPEG reading and writing through the tsl calls, checked against djpeg and
// ImageMagick on files they wrote.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "format.h"
#include "test_util.h"
#include "tessel.h"

namespace {

using testutil::HaveTool;
using testutil::MakePicture;
using testutil::ReadFile;
using testutil::TempDir;
using testutil::WriteFile;

TslParams JpegParams() {
  TslParams p;
  tslDefaultParams(&p);
  p.format = tslFormatGetIndex("jpeg");
  return p;
}

using Pic = testutil::OwnedPicture;
using Info = testutil::OwnedInfo;

int StopAt(int what, int value, void *data) {
  auto *calls = static_cast<std::vector<int> *>(data);
  if (what == 0) calls->push_back(value);
  return what == 0 && value >= 30;
}

int Count(int what, int value, void *data) {
  if (what == 0) static_cast<std::vector<int> *>(data)->push_back(value);
  return 0;
}

TEST(Jpeg, RoundTripGreyAndTrueColourLayouts) {
  TempDir dir;
  for (int model : {TSL_GREY, TSL_RGB, TSL_BGRA}) {
    SCOPED_TRACE(model);
    Pic src;
    src.p = MakePicture(model, 67, 41, 3);
    const std::string path = dir.file("rt.jpg");
    TslParams params = JpegParams();
    params.quality = 95;
    ASSERT_EQ(tslSave(path.c_str(), &src.p, &params), TSL_OK);
    Pic back;
    ASSERT_EQ(tslLoad(path.c_str(), &back.p, nullptr), TSL_OK);
    EXPECT_EQ(back.p.color_model, model == TSL_GREY ? TSL_GREY : TSL_RGB);
    // Colour loses detail to the 2x2 chroma subsampling of the default.
    EXPECT_LT(testutil::MeanAbsDiff(src.p, back.p), model == TSL_GREY ? 3.0 : 8.0);
    Info info;
    ASSERT_EQ(tslFileInformation(path.c_str(), -1, 0, &info.i), TSL_OK);
    EXPECT_EQ(info.i.planes, model == TSL_GREY ? 1 : 3);
    EXPECT_EQ(info.i.width, 67u);
    EXPECT_EQ(info.i.height, 41u);
    EXPECT_EQ(info.i.compression, TSL_COMP_JPEG);
  }
}

TEST(Jpeg, WriterOptionsReachTheFile) {
  TempDir dir;
  Pic src;
  src.p = MakePicture(TSL_RGB, 160, 120, 5);
  src.p.attr_pair[0] = 150;
  src.p.attr_pair[1] = 75;
  TslParams params = JpegParams();
  params.quality = 80;
  const std::string plain = dir.file("plain.jpg"), opt = dir.file("opt.jpg"), prog = dir.file("prog.jpg");
  ASSERT_EQ(tslSave(plain.c_str(), &src.p, &params), TSL_OK);
  params.optimize_huffman = 1;
  ASSERT_EQ(tslSave(opt.c_str(), &src.p, &params), TSL_OK);
  params.optimize_huffman = 0;
  params.progressive = 1;
  params.comment = "made by the jpeg test";
  params.dpi_x = 300;
  params.dpi_y = 200;
  ASSERT_EQ(tslSave(prog.c_str(), &src.p, &params), TSL_OK);

  // Optimised tables only change the entropy coding: smaller, same pixels.
  EXPECT_LT(ReadFile(opt).size(), ReadFile(plain).size());
  Pic a, b, c;
  ASSERT_EQ(tslLoad(plain.c_str(), &a.p, nullptr), TSL_OK);
  ASSERT_EQ(tslLoad(opt.c_str(), &b.p, nullptr), TSL_OK);
  ASSERT_EQ(tslLoad(prog.c_str(), &c.p, nullptr), TSL_OK);
  EXPECT_TRUE(testutil::SamePixels(a.p, b.p));
  EXPECT_TRUE(testutil::SamePixels(a.p, c.p));
  EXPECT_EQ(a.p.attr_pair[0], 150u);
  EXPECT_EQ(a.p.attr_pair[1], 75u);
  EXPECT_EQ(c.p.attr_pair[0], 300u);
  EXPECT_EQ(c.p.attr_pair[1], 200u);

  Info info;
  ASSERT_EQ(tslFileInformation(prog.c_str(), -1, 0, &info.i), TSL_OK);
  EXPECT_EQ(info.i.compression, TSL_COMP_JPEG_PROG);
  ASSERT_NE(info.i.comment, nullptr);
  EXPECT_STREQ(info.i.comment, "made by the jpeg test");
  EXPECT_EQ(info.i.dpi_x, 300);
  EXPECT_EQ(info.i.dpi_y, 200);

  // Lower quality: smaller file, larger error.
  const std::string low = dir.file("low.jpg");
  params = JpegParams();
  params.quality = 20;
  ASSERT_EQ(tslSave(low.c_str(), &src.p, &params), TSL_OK);
  Pic d;
  ASSERT_EQ(tslLoad(low.c_str(), &d.p, nullptr), TSL_OK);
  EXPECT_LT(ReadFile(low).size(), ReadFile(plain).size());
  EXPECT_GT(testutil::MeanAbsDiff(src.p, d.p), testutil::MeanAbsDiff(src.p, a.p));
}

TEST(Jpeg, MatchesDjpegOnCjpegFiles) {
  if (!HaveTool("cjpeg") || !HaveTool("djpeg")) GTEST_SKIP() << "cjpeg/djpeg missing";
  TempDir dir;
  Pic rgb;
  rgb.p = MakePicture(TSL_RGB, 101, 77, 9);
  // A PPM of our own picture as the encoder's input.
  std::string ppm = "P6\n101 77\n255\n";
  for (uint32_t y = 0; y < 77; ++y) ppm.append(reinterpret_cast<char *>(rgb.p.pixels + y * rgb.p.bytes_per_line), 303);
  WriteFile(dir.file("in.ppm"), ppm);
  const struct {
    const char *options;
    int compression;
    int model;
  } cases[] = {{"-quality 85", TSL_COMP_JPEG, TSL_RGB},
               {"-quality 70 -progressive", TSL_COMP_JPEG_PROG, TSL_RGB},
               {"-grayscale -quality 90", TSL_COMP_JPEG, TSL_GREY},
               {"-sample 1x1 -restart 2 -quality 60", TSL_COMP_JPEG, TSL_RGB}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.options);
    const std::string jpg = dir.file("x.jpg"), ref = dir.file("ref.pnm");
    ASSERT_EQ(testutil::Run(std::string("cjpeg ") + c.options + " -outfile '" + jpg + "' '" + dir.file("in.ppm") + "'"), 0);
    ASSERT_EQ(testutil::Run("djpeg -pnm -outfile '" + ref + "' '" + jpg + "'"), 0);
    Pic ours, theirs;
    ASSERT_EQ(tslLoad(jpg.c_str(), &ours.p, nullptr), TSL_OK);
    ASSERT_TRUE(testutil::ReadPnm(ref, &theirs.p));
    EXPECT_EQ(ours.p.color_model, c.model);
    EXPECT_TRUE(testutil::SamePixels(ours.p, theirs.p));
    Info info;
    ASSERT_EQ(tslFileInformation(jpg.c_str(), -1, 0, &info.i), TSL_OK);
    EXPECT_EQ(info.i.compression, c.compression);
    EXPECT_EQ(info.i.bits_per_plane, 8);
  }
}

TEST(Jpeg, CmykAndDensityFromImageMagick) {
  if (!HaveTool("convert")) GTEST_SKIP() << "ImageMagick missing";
  TempDir dir;
  const std::string in = dir.file("in.png"), cmyk = dir.file("cmyk.jpg"), ref = dir.file("ref.ppm");
  ASSERT_EQ(testutil::Run("convert -size 64x48 gradient:red-blue -quality 95 '" + in + "'"), 0);
  ASSERT_EQ(testutil::Run("convert '" + in + "' -colorspace CMYK -quality 95 -density 72 -units PixelsPerCentimeter '" + cmyk +
                "'"),
            0);
  ASSERT_EQ(testutil::Run("convert '" + cmyk + "' -colorspace sRGB -depth 8 ppm:'" + ref + "'"), 0);
  Info info;
  ASSERT_EQ(tslFileInformation(cmyk.c_str(), -1, 0, &info.i), TSL_OK);
  EXPECT_EQ(info.i.planes, 4);
  EXPECT_EQ(info.i.color_model, TSL_RGB);
  EXPECT_EQ(info.i.dpi_x, 183);  // 72 dots per cm
  Pic ours, theirs;
  ASSERT_EQ(tslLoad(cmyk.c_str(), &ours.p, nullptr), TSL_OK);
  ASSERT_TRUE(testutil::ReadPnm(ref, &theirs.p));
  ASSERT_EQ(ours.p.color_model, TSL_RGB);
  EXPECT_LT(testutil::MeanAbsDiff(ours.p, theirs.p), 2.0);
  EXPECT_TRUE(testutil::SameColors(ours.p, theirs.p, 6));
}

// Inserts an APP1 Exif segment holding a TIFF header and IFD0 right after SOI.
std::string WithExif(const std::string &jpeg, bool little_endian, uint32_t ifd_offset, uint16_t orientation) {
  auto u16 = [&](std::string &s, unsigned v) {
    if (little_endian) s += {char(v & 0xff), char(v >> 8)};
    else s += {char(v >> 8), char(v & 0xff)};
  };
  auto u32 = [&](std::string &s, uint32_t v) {
    if (little_endian) { u16(s, v & 0xffff); u16(s, v >> 16); }
    else { u16(s, v >> 16); u16(s, v & 0xffff); }
  };
  std::string tiff = little_endian ? "II" : "MM";
  u16(tiff, 42);
  u32(tiff, ifd_offset);
  u16(tiff, 2);  // entries
  u16(tiff, 0x010F); u16(tiff, 2); u32(tiff, 4); tiff += "ACME";  // Make
  u16(tiff, 0x0112); u16(tiff, 3); u32(tiff, 1); u16(tiff, orientation); u16(tiff, 0);
  u32(tiff, 0);
  std::string body = std::string("Exif\0\0", 6) + tiff;
  std::string seg = "\xFF\xE1";
  seg += char((body.size() + 2) >> 8);
  seg += char((body.size() + 2) & 0xff);
  return jpeg.substr(0, 2) + seg + body + jpeg.substr(2);
}

TEST(Jpeg, ExifOrientationIsParsedSafely) {
  TempDir dir;
  Pic src;
  src.p = MakePicture(TSL_RGB, 16, 16, 1);
  const std::string base = dir.file("base.jpg");
  TslParams params = JpegParams();
  ASSERT_EQ(tslSave(base.c_str(), &src.p, &params), TSL_OK);
  const std::string jpeg = ReadFile(base);
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
    ASSERT_EQ(tslFileInformation(path.c_str(), -1, 0, &info.i), TSL_OK);
    EXPECT_EQ(info.i.orientation, c.expect);
    Pic pic;
    EXPECT_EQ(tslLoad(path.c_str(), &pic.p, nullptr), TSL_OK);
  }
}

TEST(Jpeg, DamagedAndAbsurdFiles) {
  TempDir dir;
  Pic src;
  src.p = MakePicture(TSL_RGB, 200, 150, 2);
  const std::string good = dir.file("good.jpg");
  TslParams params = JpegParams();
  for (int progressive : {0, 1}) {
    SCOPED_TRACE(progressive);
    params.progressive = progressive;
    ASSERT_EQ(tslSave(good.c_str(), &src.p, &params), TSL_OK);
    const std::string data = ReadFile(good);
    const std::string cut = dir.file("cut.jpg");
    WriteFile(cut, data.substr(0, data.size() / 2));
    Pic pic;
    int code = tslLoad(cut.c_str(), &pic.p, nullptr);
    EXPECT_TRUE(code == TSL_ERR_READ || code == TSL_ERR_CORRUPT) << code;
    EXPECT_EQ(pic.p.pixels, nullptr);
    TslParams keep;
    tslDefaultParams(&keep);
    keep.flags = TSL_FLAG_KEEP_DAMAGED;
    ASSERT_EQ(tslLoad(cut.c_str(), &pic.p, &keep), TSL_OK);
    EXPECT_EQ(pic.p.width, 200u);
    // The decoded top rows are the picture's.
    Pic full;
    ASSERT_EQ(tslLoad(good.c_str(), &full.p, nullptr), TSL_OK);
    if (!progressive) {
      EXPECT_EQ(std::memcmp(pic.p.pixels, full.p.pixels, pic.p.bytes_per_line * 8), 0);
    }
    tslFree(&pic.p);
    // Only the header's first bytes.
    WriteFile(cut, data.substr(0, 40));
    code = tslLoad(cut.c_str(), &pic.p, nullptr);
    EXPECT_NE(code, TSL_OK);
    Info info;
    EXPECT_NE(tslFileInformation(cut.c_str(), -1, 0, &info.i), TSL_OK);
  }
  // A frame header claiming 65000 x 65000 pixels.
  std::string data = ReadFile(good);
  for (size_t i = 2; i + 9 < data.size(); ++i) {
    if (static_cast<uint8_t>(data[i]) == 0xFF &&
        (static_cast<uint8_t>(data[i + 1]) == 0xC0 || static_cast<uint8_t>(data[i + 1]) == 0xC2)) {
      data[i + 5] = data[i + 7] = char(0xFD);
      data[i + 6] = data[i + 8] = char(0xE8);
      break;
    }
  }
  const std::string huge = dir.file("huge.jpg");
  WriteFile(huge, data);
  Pic pic;
  EXPECT_EQ(tslLoad(huge.c_str(), &pic.p, nullptr), TSL_ERR_MEMORY);
  Info info;
  ASSERT_EQ(tslFileInformation(huge.c_str(), -1, 0, &info.i), TSL_OK);
  EXPECT_EQ(info.i.width, 65000u);
}

TEST(Jpeg, PixelLimitAndProgress) {
  TempDir dir;
  Pic src;
  src.p = MakePicture(TSL_RGB, 300, 200, 4);
  const std::string path = dir.file("p.jpg");
  TslParams params = JpegParams();
  ASSERT_EQ(tslSave(path.c_str(), &src.p, &params), TSL_OK);

  TslParams load;
  tslDefaultParams(&load);
  load.max_pixels = 300 * 200 - 1;
  Pic pic;
  EXPECT_EQ(tslLoad(path.c_str(), &pic.p, &load), TSL_ERR_MEMORY);

  std::vector<int> calls;
  tslDefaultParams(&load);
  load.progress = Count;
  load.progress_data = &calls;
  ASSERT_EQ(tslLoad(path.c_str(), &pic.p, &load), TSL_OK);
  ASSERT_FALSE(calls.empty());
  EXPECT_EQ(calls.back(), 100);
  for (size_t i = 1; i < calls.size(); ++i) EXPECT_GT(calls[i], calls[i - 1]);
  tslFree(&pic.p);

  calls.clear();
  load.progress = StopAt;
  EXPECT_EQ(tslLoad(path.c_str(), &pic.p, &load), TSL_STOPPED);
  EXPECT_EQ(pic.p.pixels, nullptr);
  EXPECT_LT(calls.back(), 100);
}

TEST(Jpeg, ReducedLoadFitsTheBox) {
  TempDir dir;
  Pic src;
  src.p = MakePicture(TSL_RGB, 1600, 1200, 6);
  const std::string path = dir.file("big.jpg");
  TslParams params = JpegParams();
  ASSERT_EQ(tslSave(path.c_str(), &src.p, &params), TSL_OK);
  TslParams load;
  tslDefaultParams(&load);
  load.target_width = 92;
  load.target_height = 69;
  Pic small, full;
  ASSERT_EQ(tslLoad(path.c_str(), &small.p, &load), TSL_OK);
  EXPECT_EQ(small.p.width, 92u);
  EXPECT_EQ(small.p.height, 69u);
  // Same content as the area-averaged full-size decode.
  load.target_width = load.target_height = 0;
  ASSERT_EQ(tslLoad(path.c_str(), &full.p, &load), TSL_OK);
  ASSERT_EQ(tessel::reducePicture(&full.p, 92, 69), TSL_OK);
  EXPECT_LT(testutil::MeanAbsDiff(small.p, full.p), 2.0);
  // A box of another aspect keeps the picture's.
  load.target_width = 100;
  load.target_height = 100;
  Pic boxed;
  ASSERT_EQ(tslLoad(path.c_str(), &boxed.p, &load), TSL_OK);
  EXPECT_EQ(boxed.p.width, 100u);
  EXPECT_EQ(boxed.p.height, 75u);
}

}  // namespace
