// Photoshop reader: ImageMagick's documents of every mode and depth, hand-made
// indexed and PackBits documents, damaged and absurd ones.
#include <gtest/gtest.h>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

std::string Be16(unsigned v) { return std::string{char(v >> 8 & 0xff), char(v & 0xff)}; }
std::string Be32(uint32_t v) { return Be16(v >> 16) + Be16(v & 0xffff); }

// A document of `mode` with raw (or, given row codes, PackBits) channel data.
std::string Document(int mode, uint32_t w, uint32_t h, int channels, const std::string &mode_data,
                     const std::string &pixels, const std::vector<std::string> &packed_rows = {}, int depth = 8) {
  std::string d = "8BPS" + Be16(1) + std::string(6, '\0') + Be16(channels) + Be32(h) + Be32(w) + Be16(depth) + Be16(mode);
  d += Be32(static_cast<uint32_t>(mode_data.size())) + mode_data;
  d += Be32(4) + "8BIM";  // image resources: skipped
  d += Be32(0);           // no layers
  if (packed_rows.empty()) return d + Be16(0) + pixels;
  d += Be16(1);
  for (const std::string &row : packed_rows) d += Be16(static_cast<unsigned>(row.size()));
  for (const std::string &row : packed_rows) d += row;
  return d;
}

TEST(Photoshop, ReadsImageMagickDocumentsOfEveryModeAndDepth) {
  if (!HaveTool("convert")) GTEST_SKIP() << "convert missing";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 37, 23, 4));
  struct Case {
    const char *options;
    int model, tolerance;
  } cases[] = {
      {"", TSL_RGB, 0},
      {"-compress none", TSL_RGB, 0},
      {"-depth 16", TSL_RGB, 0},
      {"-colorspace gray", TSL_GREY, 0},
      {"-colorspace gray -depth 16", TSL_GREY, 1},
      {"-colorspace cmyk", TSL_RGB, 1},
      {"-colorspace cmyk -depth 16 -compress none", TSL_RGB, 1},
      {"-monochrome", -1, 0},
  };
  for (const Case &c : cases) {
    // ImageMagick decodes the composite first, then the layer it adds.
    ExpectToolFileMatches(dir, src, std::string("convert SRC ") + c.options + " OUT", "x.psd", c.model, c.tolerance);
  }
  // Alpha: the fourth channel.
  const std::string x = dir.file("a.psd");
  WritePpm(dir.file("s.ppm"), src);
  ASSERT_EQ(Sh("convert '" + dir.file("s.ppm") + "' -alpha on -channel A -fx 'i/w' +channel '" + x + "'"), 0);
  Pic ours, alpha;
  ASSERT_EQ(Load(x, &ours), TSL_OK);
  ASSERT_EQ(ours->color_model, TSL_RGBA);
  ASSERT_TRUE(ToolPnm("convert '" + x + "[0]' -alpha extract -depth 8 pgm:-", dir, &alpha));
  for (uint32_t px = 0; px < 37; ++px) EXPECT_EQ(Px(ours, px, 3, 3), Px(alpha, px, 3)) << px;
}

TEST(Photoshop, IndexedPackBitsAndGreyAlphaDocuments) {
  TempDir dir;
  std::string palette(768, '\0');
  for (int k = 0; k < 256; ++k) palette[k] = char(k), palette[256 + k] = char(255 - k), palette[512 + k] = char(k / 2);
  int code;
  Pic indexed = LoadBytes(dir, Document(2, 3, 2, 1, palette, std::string("\x01\x02\x03\xff\x00\x80", 6)), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(indexed->color_model, TSL_INDEXED);
  EXPECT_EQ(indexed->pixels[indexed->bytes_per_line + 2], 0x80);
  EXPECT_EQ(indexed->palette[256 + 3], 252);
  // Bitmap mode: one bit a pixel, a set bit is black.
  Pic bits = LoadBytes(dir, Document(0, 10, 1, 1, "", std::string("\x81\x40", 2), {}, 1), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(bits->color_model, TSL_BINARY);
  EXPECT_EQ(bits->pixels[0], 0x7e);
  EXPECT_EQ(bits->pixels[1] & 0xc0, 0x80);
  // PackBits: a run, literals, the no-op code -128; grey with an alpha plane.
  const std::vector<std::string> rows = {std::string("\xfd\x10", 2), std::string("\x80\x01\x20\x21\x80\xff\x22", 7),
                                         std::string("\x03\x01\x02\x03\x04", 5), std::string("\xfe\x09\x00\x08", 4)};
  Pic grey = LoadBytes(dir, Document(1, 4, 2, 2, "", "", rows), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(grey->color_model, TSL_RGBA);
  const int expect_grey[] = {0x10, 0x10, 0x10, 0x10, 0x20, 0x21, 0x22, 0x22};
  const int expect_alpha[] = {1, 2, 3, 4, 9, 9, 9, 8};
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(Px(grey, i % 4, i / 4, 1), expect_grey[i]) << i;
    EXPECT_EQ(Px(grey, i % 4, i / 4, 3), expect_alpha[i]) << i;
  }
  // A row whose runs overfill it, or whose code ends inside a literal.
  for (const std::string &bad : {std::string("\xf0\x10", 2), std::string("\x05\x01", 2)}) {
    std::vector<std::string> broken = rows;
    broken[1] = bad;
    LoadBytes(dir, Document(1, 4, 2, 2, "", "", broken), &code);
    EXPECT_EQ(code, TSL_ERR_CORRUPT);
    Pic kept;
    EXPECT_EQ(Load(dir.file("made.bin"), &kept, 0, TSL_FLAG_KEEP_DAMAGED), TSL_OK);
  }
}

TEST(Photoshop, TruncatedAndAbsurdDocuments) {
  TempDir dir;
  std::string pixels;
  for (int i = 0; i < 3 * 40 * 30; ++i) pixels += char(i * 7);
  const std::string good = Document(3, 40, 30, 3, "", pixels);
  WriteFile(dir.file("g.psd"), good);
  CheckTruncations(dir, dir.file("g.psd"), Fmt("psd"), 26 + 4 + 12 + 4 + 2);
  ExpectLimitAndStop(dir.file("g.psd"), 40 * 30);
  int code;
  struct Bad {
    size_t at;
    std::string bytes;
  } bads[] = {
      {4, Be16(3)},            // version
      {12, Be16(0)},           // no channels
      {14, Be32(0)},           // no height
      {22, Be16(32)},          // 32-bit samples
      {24, Be16(9)},           // Lab
      {24, Be16(2)},           // indexed without a colour table
  };
  for (const Bad &b : bads) {
    std::string d = good;
    d.replace(b.at, b.bytes.size(), b.bytes);
    LoadBytes(dir, d, &code, Fmt("psd"));
    EXPECT_EQ(code, TSL_ERR_BAD_FILE) << b.at;
  }
  std::string huge = good;  // 60000 x 60000 in a small file: refused before allocating
  huge.replace(14, 8, Be32(60000) + Be32(60000));
  LoadBytes(dir, huge, &code);
  EXPECT_EQ(code, TSL_ERR_MEMORY);
  huge.replace(14, 8, Be32(9000) + Be32(9000));
  LoadBytes(dir, huge, &code);
  EXPECT_EQ(code, TSL_ERR_READ);
  std::string long_section = good;  // a section longer than the file
  long_section.replace(26, 4, Be32(0x7fffffff));
  LoadBytes(dir, long_section, &code);
  EXPECT_EQ(code, TSL_ERR_READ);
  LoadRandomlyDamaged(dir, good.substr(0, 600), 31);
}

}  // namespace
