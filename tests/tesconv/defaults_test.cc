// tesconv's output that other programs must read, and headerless data in
// every channel layout -ctype names, checked against netpbm and ImageMagick.
#include <gtest/gtest.h>

#include "../tessel/legacy_test_helpers.h"

using namespace testutil;

namespace {

std::string Q(const std::string &s) { return "'" + s + "'"; }

int Tesconv(const std::string &args, std::string *out = nullptr) {
  return Run(Q(std::string(QUILLA_BINARY_DIR) + "/tools/tesconv/tesconv") + " " + args, out);
}

// Written with tesconv's defaults, read back by netpbm with the same pixels,
// and compressed as the listing says.
TEST(TesconvDefaults, FilesOtherProgramsRead) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 45, 21, 2));
  const std::string ppm = dir.file("in.ppm");
  WritePpm(ppm, src);
  const struct {
    const char *format, *ext, *reader, *compression;
  } cases[] = {{"pcx", "pcx", "pcxtoppm", "Run-length (RLE)"},
               {"iff", "iff", "ilbmtoppm", "ByteRun1"},
               {"tiff", "tif", "tifftopnm", "LZW"}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.format);
    const std::string out = dir.file(std::string("out.") + c.ext);
    ASSERT_EQ(Tesconv(std::string("-out ") + c.format + " -o " + Q(out) + " " + Q(ppm)), 0);
    std::string listing;
    ASSERT_EQ(Tesconv("-info " + Q(out), &listing), 0);
    EXPECT_NE(listing.find(std::string("Compression:    ") + c.compression), std::string::npos) << listing;
    Pic theirs;
    ASSERT_TRUE(ToolPnm(std::string(c.reader) + " " + Q(out), dir, &theirs));
    EXPECT_TRUE(SameColors(theirs, src));
  }
  // Asked for, uncompressed files are still written.
  ASSERT_EQ(Tesconv("-compress none -out pcx -o " + Q(dir.file("plain.pcx")) + " " + Q(ppm)), 0);
  std::string listing;
  ASSERT_EQ(Tesconv("-info " + Q(dir.file("plain.pcx")), &listing), 0);
  EXPECT_NE(listing.find("Compression:    None"), std::string::npos);
}

// ImageMagick's raw RGBA and CMYK streams read with -ctype, and each layout
// written by tesconv read back; -info describes the data with -size.
TEST(TesconvDefaults, HeaderlessChannelLayouts) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGBA, 19, 7, 5));
  for (uint32_t y = 0; y < 7; ++y) src->pixels[y * src->bytes_per_line + 3] = static_cast<uint8_t>(40 * y);
  const std::string png = dir.file("src.png");
  ASSERT_EQ(Save(png, src, "png"), TSL_OK);
  for (const char *ctype : {"rgba", "cmyk"}) {
    SCOPED_TRACE(ctype);
    if (!HaveTool("convert")) break;
    const std::string raw = dir.file(std::string("im.") + ctype);
    ASSERT_EQ(Sh("convert " + Q(png) + " -depth 8 " + ctype + ":" + Q(raw)), 0);
    const std::string back = dir.file("back.png");
    ASSERT_EQ(Tesconv(std::string("-in raw -size 19x7+0 -ctype ") + ctype + " -out png -o " + Q(back) + " " + Q(raw)),
              0);
    Pic pic;
    ASSERT_EQ(Load(back, &pic), TSL_OK);
    const bool alpha = std::string(ctype) == "rgba";
    EXPECT_EQ(pic->color_model, alpha ? TSL_RGBA : TSL_RGB);
    EXPECT_TRUE(SameColors(pic, src, alpha ? 0 : 1, alpha));
  }
  for (const char *ctype : {"rgba", "abgr", "cmy", "cmyk"}) {
    for (const char *corder : {"inter", "seq"}) {
      SCOPED_TRACE(std::string(ctype) + " " + corder);
      const std::string raw = dir.file("ours.raw"), back = dir.file("back.png");
      const std::string layout = std::string(" -ctype ") + ctype + " -corder " + corder + " ";
      ASSERT_EQ(Tesconv("-size 19x7+0" + layout + "-out raw -o " + Q(raw) + " " + Q(png)), 0);
      const bool four = std::string(ctype) != "cmy";
      EXPECT_EQ(ReadFile(raw).size(), 19u * 7u * (four ? 4 : 3));
      ASSERT_EQ(Tesconv("-in raw -size 19x7+0" + layout + "-out png -o " + Q(back) + " " + Q(raw)), 0);
      Pic pic;
      ASSERT_EQ(Load(back, &pic), TSL_OK);
      const bool alpha = std::string(ctype) == "rgba" || std::string(ctype) == "abgr";
      EXPECT_TRUE(SameColors(pic, src, std::string(ctype) == "cmyk" ? 1 : 0, alpha));
      std::string listing;
      ASSERT_EQ(Tesconv("-in raw -size 19x7+0" + layout + "-info " + Q(raw), &listing), 0);
      EXPECT_NE(listing.find("Size:           19x7"), std::string::npos) << listing;
      EXPECT_EQ(listing.find("with alpha") != std::string::npos, alpha) << listing;
    }
  }
  // The byte order itself: the first pixel of an ABGR file.
  const std::string raw = dir.file("abgr.raw");
  ASSERT_EQ(Tesconv("-size 19x7+0 -ctype abgr -out raw -o " + Q(raw) + " " + Q(png)), 0);
  const std::string bytes = ReadFile(raw);
  ASSERT_GE(bytes.size(), 4u);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(static_cast<uint8_t>(bytes[i]), src->pixels[3 - i]) << i;
}

TEST(TesconvDefaults, YuvFramesAreCountedWithTheGivenSize) {
  TempDir dir;
  WriteFile(dir.file("v.yuv"), std::string(3 * 10 * 4 * 2 + 5, '\x80'));
  std::string listing;
  ASSERT_EQ(Tesconv("-in yuv -size 10x4+5 -info " + Q(dir.file("v.yuv")), &listing), 0);
  EXPECT_NE(listing.find("Size:           10x4"), std::string::npos) << listing;
  EXPECT_NE(listing.find("Pages:          3"), std::string::npos) << listing;
}

}  // namespace
