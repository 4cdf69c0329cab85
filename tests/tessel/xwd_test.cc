// X Window Dump reader and writer.
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

// A hand-made dump: header fields (big- or little-endian), colormap, pixel bytes.
std::string MakeXwd(std::vector<uint32_t> f, const std::vector<uint32_t> &cmap_rgb, const std::string &pixels,
                    bool little_endian = false) {
  f.resize(25, 0);
  f[0] = 100 + 4;  // "xyz\0"
  f[1] = 7;
  f[19] = static_cast<uint32_t>(cmap_rgb.size());
  std::string out;
  auto put32 = [&](uint32_t v) {
    for (int i = 0; i < 4; ++i) out += static_cast<char>(little_endian ? v >> (8 * i) : v >> (24 - 8 * i));
  };
  auto put16 = [&](uint32_t v) {
    out += static_cast<char>(little_endian ? v : v >> 8);
    out += static_cast<char>(little_endian ? v >> 8 : v);
  };
  for (uint32_t v : f) put32(v);
  out += std::string("xyz", 4);
  for (size_t i = 0; i < cmap_rgb.size(); ++i) {
    put32(static_cast<uint32_t>(i));
    put16((cmap_rgb[i] >> 16 & 0xff) * 257);
    put16((cmap_rgb[i] >> 8 & 0xff) * 257);
    put16((cmap_rgb[i] & 0xff) * 257);
    out += std::string("\7\0", 2);
  }
  return out + pixels;
}

// Field positions: 2 format, 3 depth, 4 width, 5 height, 7 byte order, 8 unit,
// 9 bit order, 10 pad, 11 bits per pixel, 12 bytes per line, 13 class, 14..16 masks.
std::vector<uint32_t> Fields(uint32_t format, uint32_t depth, uint32_t w, uint32_t h, uint32_t byte_order,
                             uint32_t unit, uint32_t bit_order, uint32_t bpp, uint32_t bpl, uint32_t cls,
                             uint32_t rm = 0, uint32_t gm = 0, uint32_t bm = 0) {
  std::vector<uint32_t> f(25, 0);
  f[2] = format; f[3] = depth; f[4] = w; f[5] = h; f[7] = byte_order; f[8] = unit; f[9] = bit_order;
  f[10] = 32; f[11] = bpp; f[12] = bpl; f[13] = cls; f[14] = rm; f[15] = gm; f[16] = bm;
  return f;
}

TEST(Xwd, RoundTripEveryWritableKind) {
  TempDir dir;
  for (int model : {TSL_BINARY, TSL_GREY, TSL_INDEXED, TSL_RGB}) {
    Pic src(MakePicture(model, 45, 17, 3, 37));
    const std::string path = dir.file("rt.xwd");
    TslParams p = Params("xwd");
    p.comment = "my window";
    ASSERT_EQ(Save(path, src, p), TSL_OK);
    Pic back;
    ASSERT_EQ(Load(path, &back), TSL_OK) << model;
    EXPECT_TRUE(SamePixels(src, back)) << model;
    if (model == TSL_INDEXED) {
      EXPECT_EQ(back->colors, 37);
      EXPECT_TRUE(SameColors(src, back));
    }
    Info info;
    ASSERT_EQ(FileInfo(path, &info), TSL_OK);
    EXPECT_STREQ(info->comment, "my window");
    EXPECT_EQ(info->width, 45u);
    // ImageMagick reads what we wrote.
    if (HaveTool("convert")) {
      Pic im;
      ASSERT_TRUE(ToolPnm("convert '" + path + "' ppm:-", dir, &im)) << model;
      EXPECT_TRUE(SameColors(src, im)) << model;
    }
  }
  // True colour with alpha is written as its colours.
  Pic rgba(MakePicture(TSL_RGBA, 9, 9, 4));
  Pic back;
  ASSERT_EQ(Save(dir.file("a.xwd"), rgba, "xwd"), TSL_OK);
  ASSERT_EQ(Load(dir.file("a.xwd"), &back), TSL_OK);
  EXPECT_EQ(back->color_model, TSL_RGB);
  EXPECT_TRUE(SameColors(rgba, back));
}

TEST(Xwd, ReadsImageMagickAndNetpbmDumps) {
  if (!HaveTool("convert") || !HaveTool("pnmtoxwd")) GTEST_SKIP() << "convert/pnmtoxwd missing";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 37, 23, 5));
  ASSERT_EQ(Save(dir.file("src.ppm"), src, "ppm"), TSL_OK);
  const std::string s = dir.file("src.ppm"), x = dir.file("x.xwd");
  const std::string mid = dir.file("mid.pnm");
  struct Case {
    std::string make;  // writes x.xwd
    std::string reference;  // PNM of the expected colours, written by `make` or by reading x.xwd with convert
  } cases[] = {
      {"convert '" + s + "' '" + x + "'", ""},                                    // 24 bpp DirectColor
      {"convert '" + s + "' -colors 16 '" + x + "'", "convert"},                  // 8-bit PseudoColor
      {"convert '" + s + "' -monochrome '" + x + "'", "convert"},                 // bilevel
      {"pnmtoxwd '" + s + "' > '" + x + "'", ""},                                 // 32 bpp with colormap
      {"convert '" + s + "' -monochrome pbm:- > '" + mid + "' && pnmtoxwd '" + mid + "' > '" + x + "'", mid},
      {"convert '" + s + "' -colorspace gray pgm:- > '" + mid + "' && pnmtoxwd '" + mid + "' > '" + x + "'", mid},
      {"convert '" + s + "' -colorspace gray -depth 4 pgm:- > '" + mid + "' && pnmtoxwd -pseudodepth 4 '" + mid +
           "' > '" + x + "'",
       mid},  // 4 bits per pixel
  };
  for (const Case &c : cases) {
    ASSERT_EQ(Sh(c.make), 0) << c.make;
    Pic ours, ref;
    ASSERT_EQ(Load(x, &ours), TSL_OK) << c.make;
    if (c.reference.empty()) {
      EXPECT_TRUE(SameColors(src, ours)) << c.make;
    } else if (c.reference == "convert") {
      ASSERT_TRUE(ToolPnm("convert '" + x + "' ppm:-", dir, &ref)) << c.make;
      EXPECT_TRUE(SameColors(ref, ours, 1)) << c.make;
    } else {
      ASSERT_TRUE(ReadPnm(c.reference, &ref)) << c.make;
      EXPECT_TRUE(SameColors(ref, ours, 1)) << c.make;
    }
  }
}

TEST(Xwd, DecodesByteOrdersDepthsAndFormats) {
  TempDir dir;
  int code;
  Pic src(MakePicture(TSL_RGB, 5, 3, 9));
  // 16 bits per pixel, 5-6-5 TrueColor, least significant byte first (bytes
  // per line 12); then 24 bits, little-endian pixels and header (16 bytes per line).
  std::string px16, px24;
  for (uint32_t y = 0; y < 3; ++y) {
    for (uint32_t x = 0; x < 5; ++x) {
      const uint32_t v = (Px(src, x, y, 0) >> 3) << 11 | (Px(src, x, y, 1) >> 2) << 5 | Px(src, x, y, 2) >> 3;
      px16 += Le16(v);
      px24 += {char(Px(src, x, y, 2)), char(Px(src, x, y, 1)), char(Px(src, x, y, 0))};
    }
    px16 += std::string(2, '\0');
    px24 += '\0';
  }
  Pic back = LoadBytes(dir, MakeXwd(Fields(2, 16, 5, 3, 0, 32, 0, 16, 12, 4, 0xf800, 0x7e0, 0x1f), {}, px16), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(back->color_model, TSL_RGB);
  for (uint32_t y = 0; y < 3; ++y)
    for (uint32_t x = 0; x < 5; ++x)
      for (int c = 0; c < 3; ++c) EXPECT_NEAR(Px(back, x, y, c), Px(src, x, y, c), c == 1 ? 4 : 8);
  Pic le = LoadBytes(dir, MakeXwd(Fields(2, 24, 5, 3, 0, 32, 0, 24, 16, 4, 0xff0000, 0xff00, 0xff), {}, px24, true), &code);
  ASSERT_EQ(code, TSL_OK);
  EXPECT_TRUE(SamePixels(src, le));

  // XYPixmap of depth 2 with 16-bit units: LSB-first bits, MSB-first bytes.
  // Pixel x has value x % 4; plane 0 holds the high bits.
  const uint32_t w = 20, h = 2, bpl = 4;
  std::string planes;
  for (int plane = 0; plane < 2; ++plane)
    for (uint32_t y = 0; y < h; ++y) {
      uint32_t units[2] = {0, 0};
      for (uint32_t x = 0; x < w; ++x)
        if (((x % 4) >> (1 - plane)) & 1) units[x / 16] |= 1u << (x % 16);
      for (uint32_t u : units) planes += {char(u >> 8), char(u)};
    }
  Pic xy = LoadBytes(dir, MakeXwd(Fields(1, 2, w, h, 1, 16, 0, 1, bpl, 3), {0x000000, 0xff0000, 0x00ff00, 0x0000ff}, planes),
                     &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(xy->color_model, TSL_INDEXED);
  EXPECT_EQ(xy->colors, 4);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) EXPECT_EQ(xy->pixels[y * xy->bytes_per_line + x], x % 4) << x;
  EXPECT_EQ(xy->palette[1], 255);
  EXPECT_EQ(xy->palette[256 + 2], 255);
}

TEST(Xwd, TruncatedAndAbsurdInput) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 40, 30, 2));
  const std::string good = dir.file("g.xwd");
  ASSERT_EQ(Save(good, src, "xwd"), TSL_OK);
  const std::string d = ReadFile(good);
  ExpectCutHandled(dir, good, d.size() - 1000, -1, 0, 0, 1);
  int code;
  LoadBytes(dir, d.substr(0, 60), &code, Fmt("xwd"));
  EXPECT_NE(code, TSL_OK);
  auto patch = [&](int field, uint32_t v) {
    std::string x = d;
    for (int i = 0; i < 4; ++i) x[4 * field + i] = static_cast<char>(v >> (24 - 8 * i));
    WriteFile(dir.file("bad.xwd"), x);
    Pic p;
    Info info;
    const int info_code = FileInfo(dir.file("bad.xwd"), &info, Fmt("xwd"));
    const int code = Load(dir.file("bad.xwd"), &p, 0, TSL_FLAG_KEEP_DAMAGED, Fmt("xwd"));
    EXPECT_TRUE(info_code == code || code == TSL_ERR_MEMORY);
    return code;
  };
  EXPECT_EQ(patch(4, 0xfffffff0u), TSL_ERR_BAD_FILE);   // width beyond any row
  EXPECT_EQ(patch(12, 3), TSL_ERR_BAD_FILE);            // bytes per line too small
  EXPECT_EQ(patch(11, 12), TSL_ERR_BAD_FILE);           // bits per pixel
  EXPECT_EQ(patch(19, 0x1000000), TSL_ERR_BAD_FILE);    // colormap larger than any
  EXPECT_EQ(patch(0, 0x7fffffff), TSL_ERR_BAD_FILE);    // header size
  EXPECT_EQ(patch(5, 60000), TSL_OK);                   // height beyond the data: kept damaged
}

TEST(Xwd, RealScreenDump) {
  const char *display = std::getenv("QUILLA_TEST_DISPLAY");
  if (!display || !*display || !HaveTool("xwd") || !HaveTool("xwdtopnm")) GTEST_SKIP() << "no test display";
  TempDir dir;
  const std::string path = dir.file("root.xwd");
  ASSERT_EQ(Sh("xwd -root -silent -display '" + std::string(display) + "' -out '" + path + "'"), 0);
  Pic ours, ref;
  ASSERT_EQ(Load(path, &ours), TSL_OK);
  ASSERT_TRUE(ToolPnm("xwdtopnm '" + path + "'", dir, &ref));
  EXPECT_TRUE(SameColors(ref, ours, 1));
}

}  // namespace
