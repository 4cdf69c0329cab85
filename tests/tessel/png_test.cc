// PNG reading and writing through the tsl calls: exact round trips of every
// writable kind, files of every colour type written by ImageMagick compared
// with its own decoding, damaged and absurd files.
#include <gtest/gtest.h>

#include <thread>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

TEST(Png, ExactRoundTripOfEveryKind) {
  TempDir dir;
  const struct {
    int model, colors;
    int bits;  // bit depth the writer should choose
    int loaded_model;
  } cases[] = {{TSL_BINARY, 2, 1, TSL_BINARY},    {TSL_GREY, 256, 8, TSL_GREY},   {TSL_INDEXED, 2, 1, TSL_INDEXED},
               {TSL_INDEXED, 4, 2, TSL_INDEXED},  {TSL_INDEXED, 16, 4, TSL_INDEXED}, {TSL_INDEXED, 200, 8, TSL_INDEXED},
               {TSL_RGB, 0, 8, TSL_RGB},          {TSL_RGBA, 0, 8, TSL_RGBA},     {TSL_BGR, 0, 8, TSL_RGB},
               {TSL_ARGB, 0, 8, TSL_RGBA}};
  for (const auto &c : cases)
    for (int interlace : {0, 1}) {
      SCOPED_TRACE(testing::Message() << c.model << "/" << c.colors << (interlace ? " interlaced" : ""));
      Pic src(MakePicture(c.model, 37, 23, 11, c.colors > 0 ? c.colors : 256)), back;
      const std::string path = dir.file("rt.png");
      TslParams params = Params("png", 6);
      params.progressive = interlace;
      ASSERT_EQ(Save(path, src, params), TSL_OK);
      ASSERT_EQ(Load(path, &back), TSL_OK);
      EXPECT_EQ(back->color_model, c.loaded_model);
      EXPECT_TRUE(SameColors(src, back, 0, true));
      if (c.model == TSL_INDEXED) {
        EXPECT_EQ(back->colors, c.colors);
        EXPECT_TRUE(SamePixels(src, back));
        EXPECT_EQ(back->transparent_index, -1);
      }
      Info info;
      ASSERT_EQ(FileInfo(path, &info), TSL_OK);
      EXPECT_EQ(info->bits_per_plane, c.bits);
      EXPECT_EQ(info->color_model, c.loaded_model);
      EXPECT_EQ(info->compression, TSL_COMP_DEFLATE);
    }
  // Indexes beyond an understated colour count are kept.
  Pic src(MakePicture(TSL_INDEXED, 20, 10, 3, 40)), back;
  src->colors = 3;
  ASSERT_EQ(Save(dir.file("idx.png"), src, "png", 6), TSL_OK);
  ASSERT_EQ(Load(dir.file("idx.png"), &back), TSL_OK);
  EXPECT_TRUE(SameColors(src, back));
}

TEST(Png, TransparencyResolutionCommentAndLevels) {
  TempDir dir;
  Pic src(MakePicture(TSL_INDEXED, 30, 20, 5, 16));
  src->attr_pair[0] = src->attr_pair[1] = 96;
  const std::string path = dir.file("t.png");
  TslParams params = Params("png", 6);
  params.transparent_index = 7;
  params.comment = "a comment";
  params.dpi_x = 300;
  params.dpi_y = 150;
  ASSERT_EQ(Save(path, src, params), TSL_OK);
  Pic back, again;
  ASSERT_EQ(Load(path, &back), TSL_OK);
  ASSERT_EQ(back->color_model, TSL_INDEXED);
  EXPECT_EQ(back->transparent_index, 7);
  EXPECT_EQ(back->attr_pair[0], 300u);
  EXPECT_EQ(back->attr_pair[1], 150u);
  Info info;
  ASSERT_EQ(FileInfo(path, &info), TSL_OK);
  ASSERT_NE(info->comment, nullptr);
  EXPECT_STREQ(info->comment, "a comment");
  EXPECT_TRUE(info->has_alpha);
  EXPECT_EQ(info->dpi_x, 300);
  // Without explicit values the picture's resolution is written.
  ASSERT_EQ(Save(path, src, "png", 6), TSL_OK);
  ASSERT_EQ(Load(path, &again), TSL_OK);
  EXPECT_EQ(again->attr_pair[0], 96u);
  EXPECT_EQ(again->transparent_index, -1);

  // Compression levels: 0 stores, 9 packs; out of range means the default.
  Pic rgb(MakePicture(TSL_RGB, 120, 90, 8));
  std::vector<size_t> sizes;
  for (int level : {0, 9, 42, 6}) {
    const std::string file = dir.file("c" + std::to_string(level) + ".png");
    Pic level_back;
    ASSERT_EQ(Save(file, rgb, "png", level), TSL_OK);
    sizes.push_back(ReadFile(file).size());
    ASSERT_EQ(Load(file, &level_back), TSL_OK);
    EXPECT_TRUE(SamePixels(rgb, level_back));
  }
  EXPECT_GT(sizes[0], sizes[1]);
  EXPECT_EQ(sizes[2], sizes[3]);
}

// Files of each PNG colour type written by ImageMagick, decoded by us and by
// ImageMagick into PPM/PGM.
TEST(Png, MatchesImageMagickOnItsFiles) {
  if (!HaveTool("convert")) GTEST_SKIP() << "ImageMagick missing";
  TempDir dir;
  const std::string src = dir.file("src.png");
  ASSERT_EQ(Sh("convert -size 61x43 gradient:'#102030-#f0c080' -swirl 90 '" + src + "'"), 0);
  const struct {
    const char *make;  // options between the input and the output
    const char *prefix;
    int model;
    const char *ref;  // output type for the reference decode
  } cases[] = {
      {"", "PNG24:", TSL_RGB, "ppm"},
      {"-depth 16", "PNG48:", TSL_RGB, "ppm"},
      {"-alpha set -channel A -evaluate set 50% +channel", "PNG32:", TSL_RGBA, "ppm"},
      {"-colors 200", "PNG8:", TSL_INDEXED, "ppm"},
      {"-colorspace Gray", "PNG:", TSL_GREY, "pgm"},
      {"-colorspace Gray -depth 16", "PNG:", TSL_GREY, "pgm"},
      {"-colorspace Gray -depth 2", "PNG:", TSL_GREY, "pgm"},
      {"-colorspace Gray -alpha set -channel A -evaluate set 70% +channel", "PNG:", TSL_RGBA, "pgm"},
      {"-colorspace Gray -threshold 50% -type Bilevel", "PNG:", TSL_BINARY, "pgm"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.make);
    const std::string png = dir.file("x.png");
    ASSERT_EQ(Sh("convert '" + src + "' " + c.make + " " + c.prefix + "'" + png + "'"), 0);
    Pic ours, theirs;
    ASSERT_EQ(Load(png, &ours), TSL_OK);
    ASSERT_TRUE(ToolPnm("convert '" + png + "' -alpha off " + c.ref + ":-", dir, &theirs));
    EXPECT_EQ(ours->color_model, c.model);
    // 16-bit samples may round one level differently.
    EXPECT_TRUE(SameColors(ours, theirs, 1));
  }
}

TEST(Png, PaletteTransparencyKinds) {
  if (!HaveTool("convert")) GTEST_SKIP() << "ImageMagick missing";
  TempDir dir;
  const std::string one = dir.file("one.png"), partial = dir.file("partial.png");
  // Four colours, one of them fully transparent; then a palette file with partial alpha.
  ASSERT_EQ(Sh("convert -size 8x8 xc:red -fill blue -draw 'rectangle 0,0 3,3' -fill green -draw "
               "'rectangle 4,4 7,7' -fill none -draw 'color 7,0 point' PNG8:'" + one + "'"),
            0);
  ASSERT_EQ(Sh("convert -size 8x8 xc:red -alpha set -fill '#0000ff80' -draw 'color 0,0 reset' "
               "-fill '#00ff00' -draw 'rectangle 0,0 3,3' -fill none -draw 'color 7,7 point' "
               "-type PaletteAlpha PNG:'" + partial + "'"),
            0);
  Pic a, b;
  Info ia, ib;
  ASSERT_EQ(Load(one, &a), TSL_OK);
  ASSERT_EQ(FileInfo(one, &ia), TSL_OK);
  ASSERT_EQ(ia->planes, 1);
  ASSERT_LE(ia->bits_per_plane, 8);
  ASSERT_EQ(a->color_model, TSL_INDEXED);
  ASSERT_GE(a->transparent_index, 0);
  EXPECT_EQ(a->pixels[7], a->transparent_index);
  EXPECT_NE(a->pixels[0], a->transparent_index);
  ASSERT_EQ(Load(partial, &b), TSL_OK);
  ASSERT_EQ(FileInfo(partial, &ib), TSL_OK);
  ASSERT_EQ(ib->planes, 1);
  ASSERT_EQ(b->color_model, TSL_RGBA);
  EXPECT_EQ(b->pixels[1], 255);  // opaque green
  EXPECT_EQ(b->pixels[3], 255);
  EXPECT_EQ(Px(b, 7, 7, 3), 0);  // cleared point
  EXPECT_EQ(Px(b, 0, 7, 2), 255);  // half-transparent blue
  EXPECT_EQ(Px(b, 0, 7, 3), 0x80);
}

// The writer's own deflate stream (bands of rows compressed apart and joined,
// one Adler-32 combined from theirs) checked by tools that share none of our
// code: pngcheck verifies every chunk, CRC, the zlib stream and its checksum;
// ImageMagick decodes the pixels.  Sizes: one pixel, one row, one column,
// odd widths, and pictures of several bands whose rows are half noise (coded
// with Huffman codes alone) and half stripes (where LZ77 wins).
TEST(Png, WrittenStreamsPassIndependentDecoders) {
  const bool pngcheck = HaveTool("pngcheck"), magick = HaveTool("convert");
  if (!pngcheck && !magick) GTEST_SKIP() << "neither pngcheck nor ImageMagick";
  TempDir dir;
  const int models[] = {TSL_BINARY, TSL_GREY, TSL_INDEXED, TSL_RGB, TSL_RGBA, TSL_BGR};
  const struct { uint32_t w, h; } sizes[] = {{1, 1}, {333, 1}, {1, 257}, {37, 23}, {1001, 1200}, {60, 16000}};
  for (int model : models)
    for (const auto &size : sizes)
      for (int level : {0, 6, 9}) {
        if (size.w * size.h > 100000 && level != 6) continue;  // the big ones at one level
        // Indexed: 2, 4, 16 and 256 entries give bit depths 1, 2, 4 and 8.
        const int colors = model != TSL_INDEXED ? 256 : size.w == 1 ? 3 : size.w == 333 ? 2 : size.w == 37 ? 5 : 200;
        SCOPED_TRACE(testing::Message() << "model " << model << ", " << size.w << "x" << size.h << ", level " << level);
        Pic src(MakePicture(model, size.w, size.h, size.w + level, colors));
        ASSERT_NE(src->pixels, nullptr);
        for (uint32_t y = size.h / 2; y < size.h; ++y) {
          uint8_t *row = src->pixels + static_cast<size_t>(y) * src->bytes_per_line;
          for (uint32_t i = 0; i < src->bytes_per_line; ++i) row[i] = static_cast<uint8_t>((i / 7 % 3) * (colors / 3));
        }
        const std::string path = dir.file("w.png");
        ASSERT_EQ(Save(path, src, "png", level), TSL_OK);
        if (pngcheck) {
          EXPECT_EQ(Sh("pngcheck -q '" + path + "'"), 0);
        }
        if (magick) {
          Pic theirs;
          ASSERT_TRUE(DecodeWithConvert(dir, path, &theirs));
          EXPECT_TRUE(SameColors(src, theirs));
        }
        Pic back;
        ASSERT_EQ(Load(path, &back), TSL_OK);
        EXPECT_TRUE(model == TSL_INDEXED ? SamePixels(src, back) : SameColors(src, back, 0, true));
      }
}

// A photograph-like picture (noise on gradients) written at the default
// level is smaller than its stored form by the margin filtering gives,
// stays the same file from one save to the next, and reports its progress.
TEST(Png, FilteredPhotoCompressesAndIsReproducible) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 1500, 1400, 3));
  ASSERT_EQ(Save(dir.file("a.png"), src, "png", 6), TSL_OK);
  ASSERT_EQ(Save(dir.file("b.png"), src, "png", 6), TSL_OK);
  ASSERT_EQ(Save(dir.file("s.png"), src, "png", 0), TSL_OK);
  const std::string a = ReadFile(dir.file("a.png")), b = ReadFile(dir.file("b.png"));
  EXPECT_EQ(a, b);
  EXPECT_LT(a.size() * 2, ReadFile(dir.file("s.png")).size());
  // The bands are compressed on worker threads, but progress is reported
  // from the calling thread only, rising to 100 (the callback may run the
  // X event loop, which no other thread may touch).
  struct Calls {
    std::vector<int> seen;
    std::thread::id caller;
    bool other_thread = false;
  } calls{{}, std::this_thread::get_id()};
  TslParams params = Params("png", 6);
  params.progress_data = &calls;
  params.progress = [](int what, int value, void *data) {
    auto *c = static_cast<Calls *>(data);
    if (std::this_thread::get_id() != c->caller) c->other_thread = true;
    if (what == 0) c->seen.push_back(value);
    return 0;
  };
  ASSERT_EQ(Save(dir.file("p.png"), src, params), TSL_OK);
  EXPECT_FALSE(calls.other_thread);
  ASSERT_GT(calls.seen.size(), 2u);
  EXPECT_EQ(calls.seen.back(), 100);
  for (size_t i = 1; i < calls.seen.size(); ++i) EXPECT_GT(calls.seen[i], calls.seen[i - 1]);
}

TEST(Png, DamagedAbsurdLimitedAndStopped) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 100, 80, 1));
  const std::string good = dir.file("good.png");
  ASSERT_EQ(Save(good, src, "png", 0), TSL_OK);  // stored: a cut leaves the top rows intact
  const std::string data = ReadFile(good);
  ExpectCutHandled(dir, good, data.size() / 2, -1, 0, 0, 10);
  int code;
  Info info;
  LoadBytes(dir, data.substr(0, 20), &code);
  EXPECT_EQ(FileInfo(dir.file("made.bin"), &info), TSL_ERR_READ);
  // A flipped bit inside IDAT fails its CRC.
  std::string bad = data;
  const size_t idat = bad.find("IDAT");
  ASSERT_NE(idat, std::string::npos);
  bad[idat + 200] ^= 0x10;
  LoadBytes(dir, bad, &code);
  EXPECT_EQ(code, TSL_ERR_CORRUPT);
  // IHDR claiming 100000 x 100000 (with a correct CRC computed by zlib's
  // polynomial over the chunk type and data).
  std::string huge = data;
  auto put32 = [&](size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) huge[at + i] = char(v >> (24 - 8 * i));
  };
  put32(16, 100000);
  put32(20, 100000);
  uint32_t crc = 0xffffffffu;
  for (size_t i = 12; i < 29; ++i) {
    crc ^= static_cast<uint8_t>(huge[i]);
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1)));
  }
  put32(29, ~crc);
  Info binfo;
  LoadBytes(dir, huge, &code);
  EXPECT_EQ(code, TSL_ERR_MEMORY);
  ASSERT_EQ(FileInfo(dir.file("made.bin"), &binfo), TSL_OK);
  EXPECT_EQ(binfo->width, 100000u);
  ExpectLimitAndStop(good, 100 * 80);
}

}  // namespace
