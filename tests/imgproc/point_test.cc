// Point operations: hand-computed table entries, the conventions of the
// table applier (indexed palettes, fourth bytes, rectangles, bilevel
// pictures), histogram quirks, and a differential check of the applier
// against a plain per-byte loop.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "imgproc/point.h"
#include "test_util.h"

using namespace quilla;

namespace {

TslPicture Grey(int w, int h, const std::vector<int> &values) {
  TslPicture p;
  std::memset(&p, 0, sizeof p);
  EXPECT_TRUE(tslAllock(&p, TSL_GREY, 0, w, h));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) p.pixels[static_cast<size_t>(y) * p.bytes_per_line + x] = static_cast<uint8_t>(values[y * w + x]);
  return p;
}

int Px(const TslPicture &p, int x, int y, int c = 0) {
  return p.pixels[static_cast<size_t>(y) * p.bytes_per_line + static_cast<size_t>(x) * p.bytes_per_pixel + c];
}

TEST(PointTables, HandComputedEntries) {
  uint8_t t[256];
  ContrastTable(64, t);  // (i - 64) * 255 / 127
  EXPECT_EQ(t[50], 0);
  EXPECT_EQ(t[100], 72);
  EXPECT_EQ(t[200], 255);
  ContrastTable(-64, t);  // i * 127 / 255.0 + 64
  EXPECT_EQ(t[0], 64);
  EXPECT_EQ(t[100], 113);
  EXPECT_EQ(t[255], 191);
  ContrastTable(127, t);  // divisor 1: a threshold
  EXPECT_EQ(t[126], 0);
  EXPECT_EQ(t[127], 0);
  EXPECT_EQ(t[128], 255);
  ContrastTable(-127, t);
  EXPECT_EQ(t[0], 127);
  EXPECT_EQ(t[254], 127);
  EXPECT_EQ(t[255], 128);

  GammaTable(2.0, t);  // sqrt(64 / 255) * 255 + 0.5 = 128.25
  EXPECT_EQ(t[64], 128);
  EXPECT_EQ(t[0], 0);
  EXPECT_EQ(t[255], 255);
  GammaTable(1.0, t);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(t[i], i);

  LogarithmTable(t);  // log(i + 1) * 255 / log 256
  EXPECT_EQ(t[0], 0);
  EXPECT_EQ(t[1], 31);  // 31.875
  EXPECT_EQ(t[3], 63);  // 63.75
  EXPECT_EQ(t[15], 127);

  SolarizeTable(0, t);
  EXPECT_EQ(t[0], 0);
  EXPECT_EQ(t[1], 254);
  EXPECT_EQ(t[255], 0);
  SolarizeTable(100, t);
  EXPECT_EQ(t[100], 100);
  EXPECT_EQ(t[101], 154);

  BrightnessTable(255, t);
  EXPECT_EQ(t[0], 255);
  BrightnessTable(-255, t);
  EXPECT_EQ(t[255], 0);
  BrightnessTable(-10, t);
  EXPECT_EQ(t[5], 0);
  EXPECT_EQ(t[15], 5);
}

TEST(PointTables, PosterizeRuns) {
  uint8_t t[256];
  PosterizeTable(4, t);
  EXPECT_EQ(t[0], 0);
  EXPECT_EQ(t[63], 0);
  EXPECT_EQ(t[64], 85);
  EXPECT_EQ(t[127], 85);
  EXPECT_EQ(t[128], 170);
  EXPECT_EQ(t[191], 170);
  EXPECT_EQ(t[192], 255);
  PosterizeTable(5, t);  // runs of 51: 0, 63, 126, 189, then 255 from 204
  EXPECT_EQ(t[50], 0);
  EXPECT_EQ(t[51], 63);
  EXPECT_EQ(t[153], 189);
  EXPECT_EQ(t[203], 189);
  EXPECT_EQ(t[204], 255);
  PosterizeTable(2, t);
  EXPECT_EQ(t[127], 0);
  EXPECT_EQ(t[128], 255);
  for (int n : {1, 0, 256, 1000}) {
    PosterizeTable(n, t);
    for (int i = 0; i < 256; ++i) ASSERT_EQ(t[i], i) << n;
  }
}

TEST(PointOps, FourthByteIndexedPaletteAndRectangle) {
  // RGBA: the fourth byte is never touched.
  TslPicture p = testutil::MakePicture(TSL_RGBA, 5, 4, 2);
  TslPicture d{};
  ASSERT_EQ(Brightness(&p, &d, nullptr, 255), kOpDone);
  for (uint32_t y = 0; y < 4; ++y)
    for (uint32_t x = 0; x < 5; ++x) {
      EXPECT_EQ(Px(d, x, y, 0), 255);
      EXPECT_EQ(Px(d, x, y, 2), 255);
      EXPECT_EQ(Px(d, x, y, 3), Px(p, x, y, 3));
    }
  tslFree(&d);
  tslFree(&p);

  // Indexed: the first `colors` palette entries change, pixels and the
  // other entries do not, whatever the rectangle.
  p = testutil::MakePicture(TSL_INDEXED, 6, 6, 3, 10);
  TslPicture before{};
  tslCopyPicture(&before, &p);
  const OpRect corner{0, 0, 1, 1};
  ASSERT_EQ(Negative(&p, nullptr, &corner), kOpDone);
  EXPECT_EQ(std::memcmp(p.pixels, before.pixels, p.bytes_per_line * p.height), 0);
  for (int k = 0; k < 256; ++k)
    for (int plane = 0; plane < 3; ++plane) {
      int was = before.palette[plane * 256 + k];
      ASSERT_EQ(p.palette[plane * 256 + k], k < 10 ? 255 - was : was);
    }
  tslFree(&before);
  tslFree(&p);

  // Grey with a rectangle: only the rectangle changes; x = -10, width 20 on
  // a picture 5 wide covers every column.
  p = Grey(5, 3, std::vector<int>(15, 10));
  const OpRect wide{-10, 1, 20, 1};
  ASSERT_EQ(Brightness(&p, nullptr, &wide, 5), kOpDone);
  for (int x = 0; x < 5; ++x) {
    EXPECT_EQ(Px(p, x, 0), 10);
    EXPECT_EQ(Px(p, x, 1), 15);
    EXPECT_EQ(Px(p, x, 2), 10);
  }
  const OpRect outside{5, 0, 3, 3};
  EXPECT_EQ(Brightness(&p, nullptr, &outside, 5), kOpEmptyRect);
  const OpRect flat{0, 0, 5, 0};
  EXPECT_EQ(Solarize(&p, nullptr, &flat, 5), kOpEmptyRect);
  EXPECT_EQ(Px(p, 0, 0), 10);
  tslFree(&p);
}

TEST(PointOps, BilevelPictures) {
  TslPicture p = testutil::MakePicture(TSL_BINARY, 21, 3, 4);
  TslPicture before{};
  tslCopyPicture(&before, &p);
  EXPECT_EQ(Brightness(&p, nullptr, nullptr, 3), kOpNotBilevel);
  EXPECT_EQ(Contrast(&p, nullptr, nullptr, 3), kOpNotBilevel);
  EXPECT_EQ(ChangeGamma(&p, nullptr, nullptr, 2), kOpNotBilevel);
  EXPECT_EQ(LogarithmicLut(&p, nullptr, nullptr), kOpNotBilevel);
  EXPECT_EQ(Solarize(&p, nullptr, nullptr, 3), kOpNotBilevel);
  EXPECT_EQ(Posterize(&p, nullptr, nullptr, 3), kOpNotBilevel);
  EXPECT_EQ(Normalize(&p, nullptr, nullptr), kOpNotBilevel);
  EXPECT_EQ(Equalize(&p, nullptr, nullptr), kOpNotBilevel);
  EXPECT_TRUE(testutil::SamePixels(p, before));
  // Negative inverts the bits inside the rectangle only (columns 3..19, row 1).
  const OpRect r{3, 1, 17, 1};
  ASSERT_EQ(Negative(&p, nullptr, &r), kOpDone);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 21; ++x) {
      const int was = GetBit(RowOf(&before, y), x), now = GetBit(RowOf(&p, y), x);
      EXPECT_EQ(now, (y == 1 && x >= 3 && x < 20) ? !was : was) << x << "," << y;
    }
  ASSERT_EQ(Negative(&p, nullptr, &r), kOpDone);
  EXPECT_TRUE(testutil::SamePixels(p, before));
  tslFree(&before);
  tslFree(&p);
}

TEST(PointOps, NormalizeEqualizeAndBalance) {
  // Normalize: lo 50, hi 150 over the whole picture, applied inside the rectangle.
  TslPicture p = Grey(4, 1, {50, 100, 150, 75});
  const OpRect r{1, 0, 3, 1};
  ASSERT_EQ(Normalize(&p, nullptr, &r), kOpDone);
  EXPECT_EQ(Px(p, 0, 0), 50);
  EXPECT_EQ(Px(p, 1, 0), 127);  // 50 * 255 / 100
  EXPECT_EQ(Px(p, 2, 0), 255);
  EXPECT_EQ(Px(p, 3, 0), 63);
  tslFree(&p);

  // Equalize: counts 2 at 0, 1 at 100, 1 at 200; d = 4 - 2.
  p = Grey(2, 2, {0, 0, 100, 200});
  ASSERT_EQ(Equalize(&p, nullptr, nullptr), kOpDone);
  EXPECT_EQ(Px(p, 0, 0), 0);
  EXPECT_EQ(Px(p, 0, 1), 127);
  EXPECT_EQ(Px(p, 1, 1), 255);
  tslFree(&p);
  // A single value: 0 stays 0, anything else becomes 255.
  for (int v : {0, 9}) {
    p = Grey(3, 2, std::vector<int>(6, v));
    ASSERT_EQ(Equalize(&p, nullptr, nullptr), kOpDone);
    EXPECT_EQ(Px(p, 2, 1), v ? 255 : 0);
    ASSERT_EQ(Normalize(&p, nullptr, nullptr), kOpDone);  // lo == hi: left alone
    EXPECT_EQ(Px(p, 2, 1), v ? 255 : 0);
    tslFree(&p);
  }

  // RGBA: per-channel tables, the fourth byte untouched.
  p = testutil::MakePicture(TSL_RGBA, 3, 1, 1);
  const uint8_t px[] = {10, 0, 7, 1, 20, 50, 7, 2, 30, 100, 8, 3};
  std::memcpy(p.pixels, px, sizeof px);
  ASSERT_EQ(Normalize(&p, nullptr, nullptr), kOpDone);
  const uint8_t want[] = {0, 0, 0, 1, 127, 127, 0, 2, 255, 255, 255, 3};
  EXPECT_EQ(std::memcmp(p.pixels, want, sizeof want), 0);
  // Color Balance shifts each channel by its own amount.
  ASSERT_EQ(ColorBalance(&p, nullptr, nullptr, 10, -100, 1), kOpDone);
  const uint8_t want2[] = {10, 0, 1, 1, 137, 27, 1, 2, 255, 155, 255, 3};
  EXPECT_EQ(std::memcmp(p.pixels, want2, sizeof want2), 0);
  tslFree(&p);

  // The picture receiving the result gets 256 colours when its model is
  // grey or indexed, the source keeps its count.
  p = testutil::MakePicture(TSL_INDEXED, 4, 4, 5, 12);
  TslPicture d{};
  ASSERT_EQ(ColorBalance(&p, &d, nullptr, 1, 1, 1), kOpDone);
  EXPECT_EQ(d.colors, 256);
  EXPECT_EQ(p.colors, 12);
  tslFree(&d);
  tslFree(&p);
  p = Grey(2, 1, {1, 2});
  p.colors = 16;
  ASSERT_EQ(Equalize(&p, nullptr, nullptr), kOpDone);
  EXPECT_EQ(p.colors, 256);
  tslFree(&p);
}

TEST(PointOps, NegateTwiceIsIdentityWithDestination) {
  for (int model : {TSL_GREY, TSL_RGB, TSL_RGBA, TSL_BINARY, TSL_INDEXED}) {
    TslPicture p = testutil::MakePicture(model, 13, 7, 8, 100);
    p.attr_word = 5;
    TslPicture once{}, twice{};
    ASSERT_EQ(Negative(&p, &once, nullptr), kOpDone);
    EXPECT_EQ(once.attr_word, 5);
    EXPECT_FALSE(testutil::SameColors(p, once));
    ASSERT_EQ(Negative(&once, &twice, nullptr), kOpDone);
    EXPECT_TRUE(testutil::SameColors(p, twice)) << model;
    tslFree(&p);
    tslFree(&once);
    tslFree(&twice);
  }
}

// The table applier against a plain loop, on pictures large enough to be
// split into bands and on odd small ones, with and without rectangles.
TEST(PointOps, ApplierMatchesPlainLoop) {
  uint8_t t0[256], t1[256], t2[256];
  std::mt19937 rng(11);
  for (int i = 0; i < 256; ++i) {
    t0[i] = static_cast<uint8_t>(rng());
    t1[i] = static_cast<uint8_t>(rng());
    t2[i] = static_cast<uint8_t>(rng());
  }
  const int sizes[][2] = {{1, 1}, {1, 17}, {17, 1}, {17, 13}, {640, 500}};
  const OpRect rects[] = {{2, 3, 11, 5}, {-3, -3, 8, 900}};
  for (int model : {TSL_GREY, TSL_RGB, TSL_RGBA})
    for (const auto &sz : sizes)
      for (int rk = -1; rk < 2; ++rk) {
        const OpRect *rect = rk < 0 ? nullptr : &rects[rk];
        TslPicture p = testutil::MakePicture(model, sz[0], sz[1], 21);
        TslPicture d{};
        OpRect r;
        if (!ClipRect(&p, rect, &r)) {
          EXPECT_EQ(ApplyLut3(&p, &d, rect, t0, t1, t2), kOpEmptyRect);
          EXPECT_EQ(d.pixels, nullptr);
          tslFree(&p);
          continue;
        }
        ASSERT_EQ(ApplyLut3(&p, &d, rect, t0, t1, t2), kOpDone);
        const uint8_t *tabs[] = {t0, t1, t2};
        for (uint32_t y = 0; y < p.height; ++y)
          for (uint32_t x = 0; x < p.width; ++x)
            for (int c = 0; c < p.bytes_per_pixel; ++c) {
              const bool inside = int(x) >= r.x && int(x) < r.x + r.width && int(y) >= r.y && int(y) < r.y + r.height;
              const int v = Px(p, x, y, c);
              const int want = inside && c < 3 ? tabs[c][v] : v;
              ASSERT_EQ(Px(d, x, y, c), want) << model << " " << x << "," << y;
            }
        tslFree(&d);
        tslFree(&p);
      }
}

}  // namespace
