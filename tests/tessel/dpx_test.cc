// DPX reader and writer: ImageMagick's files of every depth and byte order,
// our 8- and 10-bit files, the look-up tables, damaged and absurd files.
#include <gtest/gtest.h>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

// ImageMagick labels DPX samples linear RGB and would turn them into sRGB
// on output: take the stored values as they are.
const char kRawColours[] = "-set colorspace sRGB";

void SetBe16(std::string &d, size_t at, unsigned v) {
  d[at] = static_cast<char>(v >> 8);
  d[at + 1] = static_cast<char>(v);
}
void SetBe32(std::string &d, size_t at, uint32_t v) {
  SetBe16(d, at, v >> 16);
  SetBe16(d, at + 2, v & 0xffff);
}

TEST(Dpx, ReadsImageMagickFilesOfEveryDepthAndByteOrder) {
  if (!HaveTool("convert")) GTEST_SKIP() << "convert missing";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 37, 23, 3));  // odd width: rows end inside a word
  struct Case {
    const char *options;
    int model, bits, tolerance;  // ImageMagick truncates 10- and 12-bit codes
  } cases[] = {
      {"-depth 8", TSL_RGB, 8, 0},
      {"-depth 10", TSL_RGB, 10, 1},
      {"-depth 10 -endian LSB", TSL_RGB, 10, 1},
      {"-depth 12", TSL_RGB, 12, 1},
      {"-depth 16", TSL_RGB, 16, 0},
      {"-depth 16 -endian LSB", TSL_RGB, 16, 0},
      {"-colorspace gray -depth 8", TSL_GREY, 8, 0},
      {"-colorspace gray -depth 10 -endian LSB", TSL_GREY, 10, 1},
      {"-colorspace gray -depth 16", TSL_GREY, 16, 1},
      {"-alpha on -channel A -fx 'i/w' +channel -depth 8", TSL_RGBA, 8, 0},
      {"-alpha on -channel A -fx 'i/w' +channel -depth 10", TSL_RGBA, 10, 1},
  };
  for (const Case &c : cases) {
    ExpectToolFileMatches(dir, src, std::string("convert SRC ") + c.options + " OUT", "x.dpx", c.model, c.tolerance,
                          kRawColours);
    Info info;
    ASSERT_EQ(FileInfo(dir.file("x.dpx"), &info), TSL_OK);
    EXPECT_EQ(info->bits_per_plane, c.bits) << c.options;
    if (c.model == TSL_RGBA) {
      Pic ours, theirs;
      ASSERT_EQ(Load(dir.file("x.dpx"), &ours), TSL_OK);
      ASSERT_TRUE(ToolPnm("convert '" + dir.file("x.dpx") + "' -alpha extract -depth 8 pgm:-", dir, &theirs));
      for (uint32_t x = 0; x < ours->width; ++x)
        EXPECT_NEAR(Px(ours, x, 5, 3), Px(theirs, x, 5), c.tolerance) << c.options << " x " << x;
    }
  }
}

TEST(Dpx, OurFilesRoundTripAndOtherProgramsReadThem) {
  TempDir dir;
  for (int ten : {0, 1}) {
    for (int model : {TSL_GREY, TSL_RGB, TSL_BGRA}) {
      SCOPED_TRACE(std::to_string(model) + (ten ? " 10-bit" : " 8-bit"));
      Pic src(MakePicture(model, 29, 13, 8));
      TslParams p = Params("dpx");
      p.dpx_10bits = ten;
      const std::string path = dir.file("rt.dpx");
      ASSERT_EQ(Save(path, src, p), TSL_OK);
      Info info;
      ASSERT_EQ(FileInfo(path, &info), TSL_OK);
      EXPECT_EQ(info->bits_per_plane, ten ? 10 : 8);
      Pic back;
      ASSERT_EQ(Load(path, &back), TSL_OK);
      // 8 -> 10 -> 8 bits is exact.
      EXPECT_TRUE(SameColors(src, back, 0, true));
      EXPECT_EQ(back->color_model, model == TSL_GREY ? TSL_GREY : model == TSL_RGB ? TSL_RGB : TSL_RGBA);
      if (HaveTool("convert")) {
        Pic theirs;
        ASSERT_TRUE(DecodeWithConvert(dir, path, &theirs, "convert", kRawColours));
        EXPECT_TRUE(SameColors(src, theirs, ten));
      }
    }
  }
}

// Planes of a table of `size` entries; entry k of plane c is f(c, k).
struct Table {
  std::vector<uint16_t> plane[3];
  template <class F>
  Table(int size, F f) {
    for (int c = 0; c < 3; ++c)
      for (int k = 0; k < size; ++k) plane[c].push_back(static_cast<uint16_t>(f(c, k)));
  }
  void into(TslParams *p) {
    for (int c = 0; c < 3; ++c) p->lut[c] = plane[c].data();
    p->lut_size = static_cast<int>(plane[0].size());
  }
};

TEST(Dpx, LookUpTablesMapEachChannelOnSaveAndLoad) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 16, 4, 2));
  const std::string path = dir.file("lut.dpx");
  // Save: 8 -> 10 bits, each channel its own curve (and out-of-range entries clamp).
  Table save(256, [](int c, int k) { return c == 0 ? 1023 - 4 * k : c == 1 ? 4 * k : 5000; });
  TslParams p = Params("dpx");
  p.dpx_10bits = 1;
  save.into(&p);
  ASSERT_EQ(Save(path, src, p), TSL_OK);
  Pic plain;
  ASSERT_EQ(Load(path, &plain), TSL_OK);
  for (uint32_t x = 0; x < 16; ++x) {
    const int r = Px(src, x, 1, 0), g = Px(src, x, 1, 1);
    EXPECT_EQ(Px(plain, x, 1, 0), ((1023 - 4 * r) * 255 + 511) / 1023);
    EXPECT_EQ(Px(plain, x, 1, 1), (4 * g * 255 + 511) / 1023);
    EXPECT_EQ(Px(plain, x, 1, 2), 255);
  }
  // Load: 10 -> 8 bits through a 1024-entry table; with the file's 10-bit
  // codes the index is the code itself.
  Table load(1024, [](int c, int k) { return c == 2 ? 7 : k < 512 ? 0 : 200 + c; });
  TslParams lp = Params();
  load.into(&lp);
  Pic mapped;
  ASSERT_EQ(tslLoad(path.c_str(), &mapped, &lp), TSL_OK);
  for (uint32_t x = 0; x < 16; ++x) {
    EXPECT_EQ(Px(mapped, x, 2, 0), 1023 - 4 * Px(src, x, 2, 0) < 512 ? 0 : 200);
    EXPECT_EQ(Px(mapped, x, 2, 1), 4 * Px(src, x, 2, 1) < 512 ? 0 : 201);
    EXPECT_EQ(Px(mapped, x, 2, 2), 7);
  }
}

TEST(Dpx, OrientationsFlipTheRows) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 9, 5, 4));
  const std::string path = dir.file("o.dpx");
  ASSERT_EQ(Save(path, src, "dpx"), TSL_OK);
  std::string d = ReadFile(path);
  SetBe16(d, 768, 3);  // right to left, bottom up
  int code;
  Pic turned = LoadBytes(dir, d, &code);
  ASSERT_EQ(code, TSL_OK);
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 9; ++x) ASSERT_EQ(Px(turned, 8 - x, 4 - y, 1), Px(src, x, y, 1));
  Info info;
  ASSERT_EQ(FileInfo(dir.file("made.bin"), &info), TSL_OK);
  EXPECT_EQ(info->origin, 1);
}

TEST(Dpx, TruncatedAndAbsurdFiles) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 40, 30, 5));
  const std::string good = dir.file("g.dpx");
  TslParams p = Params("dpx");
  p.dpx_10bits = 1;
  ASSERT_EQ(Save(good, src, p), TSL_OK);
  CheckTruncations(dir, good, Fmt("dpx"), 2048);
  ExpectLimitAndStop(good, 40 * 30);
  const std::string d = ReadFile(good);
  int code;
  // A huge size in a small file fails before anything is allocated.
  std::string huge = d;
  SetBe32(huge, 772, 60000);
  SetBe32(huge, 776, 60000);
  LoadBytes(dir, huge, &code);
  EXPECT_TRUE(code == TSL_ERR_MEMORY || code == TSL_ERR_READ) << code;
  SetBe32(huge, 772, 4000);
  SetBe32(huge, 776, 4000);
  LoadBytes(dir, huge, &code);
  EXPECT_EQ(code, TSL_ERR_READ);
  // Unknown descriptor, sample size, packing; no size; run-length coding.
  for (auto [at, value] : std::vector<std::pair<size_t, int>>{{800, 157}, {803, 7}, {805, 9}, {807, 1}}) {
    std::string bad = d;
    bad[at] = static_cast<char>(value);
    LoadBytes(dir, bad, &code);
    EXPECT_EQ(code, TSL_ERR_BAD_FILE) << at;
    Info info;
    EXPECT_EQ(FileInfo(dir.file("made.bin"), &info), TSL_ERR_BAD_FILE);
    EXPECT_NE(info->message[0], 0);
  }
  std::string empty = d;
  SetBe32(empty, 772, 0);
  LoadBytes(dir, empty, &code);
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  LoadRandomlyDamaged(dir, d.substr(0, 2048 + 400), 11);
}

}  // namespace
