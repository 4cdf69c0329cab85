// Point operations: hand-computed table entries, the conventions of the
// table applier (indexed palettes, fourth bytes, rectangles, bilevel
// pictures), histogram quirks, and a differential check of the applier
// against a plain per-byte loop.
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "imgproc/point.h"
#include "test_util.h"

using namespace quilla;
using namespace testutil;

namespace {

TEST(PointTables, HandComputedEntries) {
  using Make = std::function<void(uint8_t *)>;
  const struct {
    const char *name;
    Make make;
    std::vector<std::pair<int, int>> entries;  // index, value
  } tables[] = {
      {"contrast 64", [](uint8_t *t) { ContrastTable(64, t); }, {{50, 0}, {100, 72}, {200, 255}}},  // (i-64)*255/127
      {"contrast -64", [](uint8_t *t) { ContrastTable(-64, t); }, {{0, 64}, {100, 113}, {255, 191}}},  // i*127/255.0+64
      {"contrast 127", [](uint8_t *t) { ContrastTable(127, t); }, {{126, 0}, {127, 0}, {128, 255}}},  // a threshold
      {"contrast -127", [](uint8_t *t) { ContrastTable(-127, t); }, {{0, 127}, {254, 127}, {255, 128}}},
      {"gamma 2", [](uint8_t *t) { GammaTable(2.0, t); }, {{0, 0}, {64, 128}, {255, 255}}},  // sqrt(64/255)*255+.5
      {"log", [](uint8_t *t) { LogarithmTable(t); }, {{0, 0}, {1, 31}, {3, 63}, {15, 127}}},  // log(i+1)*255/log 256
      {"solarize 0", [](uint8_t *t) { SolarizeTable(0, t); }, {{0, 0}, {1, 254}, {255, 0}}},
      {"solarize 100", [](uint8_t *t) { SolarizeTable(100, t); }, {{100, 100}, {101, 154}}},
      {"brightness 255", [](uint8_t *t) { BrightnessTable(255, t); }, {{0, 255}}},
      {"brightness -255", [](uint8_t *t) { BrightnessTable(-255, t); }, {{255, 0}}},
      {"brightness -10", [](uint8_t *t) { BrightnessTable(-10, t); }, {{5, 0}, {15, 5}}},
      {"posterize 4", [](uint8_t *t) { PosterizeTable(4, t); },
       {{0, 0}, {63, 0}, {64, 85}, {127, 85}, {128, 170}, {191, 170}, {192, 255}}},
      // Runs of 51: 0, 63, 126, 189, then 255 from 204.
      {"posterize 5", [](uint8_t *t) { PosterizeTable(5, t); }, {{50, 0}, {51, 63}, {153, 189}, {203, 189}, {204, 255}}},
      {"posterize 2", [](uint8_t *t) { PosterizeTable(2, t); }, {{127, 0}, {128, 255}}},
  };
  uint8_t t[256];
  for (const auto &table : tables) {
    table.make(t);
    for (const auto &e : table.entries) EXPECT_EQ(t[e.first], e.second) << table.name << " at " << e.first;
  }
  // Identities: gamma 1 and posterize to 1, 0 or more than 256 levels.
  const Make identities[] = {[](uint8_t *t) { GammaTable(1.0, t); }, [](uint8_t *t) { PosterizeTable(1, t); },
                             [](uint8_t *t) { PosterizeTable(0, t); }, [](uint8_t *t) { PosterizeTable(256, t); },
                             [](uint8_t *t) { PosterizeTable(1000, t); }};
  for (const Make &make : identities) {
    make(t);
    for (int i = 0; i < 256; ++i) ASSERT_EQ(t[i], i);
  }
}

TEST(PointOps, FourthByteIndexedPaletteAndRectangle) {
  // RGBA: the fourth byte is never touched.
  Pic p(MakePicture(TSL_RGBA, 5, 4, 2)), d;
  ASSERT_EQ(Brightness(&p, &d, nullptr, 255), kOpDone);
  for (uint32_t y = 0; y < 4; ++y)
    for (uint32_t x = 0; x < 5; ++x) {
      EXPECT_EQ(Px(d, x, y, 0), 255);
      EXPECT_EQ(Px(d, x, y, 2), 255);
      EXPECT_EQ(Px(d, x, y, 3), Px(p, x, y, 3));
    }
  // Indexed: the first `colors` palette entries change, pixels and the
  // other entries do not, whatever the rectangle.
  Pic idx(MakePicture(TSL_INDEXED, 6, 6, 3, 10));
  Pic before = idx.clone();
  const OpRect corner{0, 0, 1, 1};
  ASSERT_EQ(Negative(&idx, nullptr, &corner), kOpDone);
  EXPECT_EQ(std::memcmp(idx->pixels, before->pixels, idx->bytes_per_line * idx->height), 0);
  for (int k = 0; k < 768; ++k) ASSERT_EQ(idx->palette[k], k % 256 < 10 ? 255 - before->palette[k] : before->palette[k]);
  // Grey with a rectangle: only the rectangle changes; x = -10, width 20 on
  // a picture 5 wide covers every column.
  Pic g(Grey(5, 3, std::vector<int>(15, 10)));
  const OpRect wide{-10, 1, 20, 1}, outside{5, 0, 3, 3}, flat{0, 0, 5, 0};
  ASSERT_EQ(Brightness(&g, nullptr, &wide, 5), kOpDone);
  for (int x = 0; x < 5; ++x) {
    EXPECT_EQ(Px(g, x, 0), 10);
    EXPECT_EQ(Px(g, x, 1), 15);
    EXPECT_EQ(Px(g, x, 2), 10);
  }
  EXPECT_EQ(Brightness(&g, nullptr, &outside, 5), kOpEmptyRect);
  EXPECT_EQ(Solarize(&g, nullptr, &flat, 5), kOpEmptyRect);
  EXPECT_EQ(Px(g, 0, 0), 10);
}

TEST(PointOps, BilevelPictures) {
  Pic p(MakePicture(TSL_BINARY, 21, 3, 4));
  Pic before = p.clone();
  EXPECT_EQ(Brightness(&p, nullptr, nullptr, 3), kOpNotBilevel);
  EXPECT_EQ(Contrast(&p, nullptr, nullptr, 3), kOpNotBilevel);
  EXPECT_EQ(ChangeGamma(&p, nullptr, nullptr, 2), kOpNotBilevel);
  EXPECT_EQ(LogarithmicLut(&p, nullptr, nullptr), kOpNotBilevel);
  EXPECT_EQ(Solarize(&p, nullptr, nullptr, 3), kOpNotBilevel);
  EXPECT_EQ(Posterize(&p, nullptr, nullptr, 3), kOpNotBilevel);
  EXPECT_EQ(Normalize(&p, nullptr, nullptr), kOpNotBilevel);
  EXPECT_EQ(Equalize(&p, nullptr, nullptr), kOpNotBilevel);
  EXPECT_TRUE(SamePixels(p, before));
  // Negative inverts the bits inside the rectangle only (columns 3..19, row 1).
  const OpRect r{3, 1, 17, 1};
  ASSERT_EQ(Negative(&p, nullptr, &r), kOpDone);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 21; ++x) {
      const int was = GetBit(RowOf(&before, y), x), now = GetBit(RowOf(&p, y), x);
      EXPECT_EQ(now, (y == 1 && x >= 3 && x < 20) ? !was : was) << x << "," << y;
    }
  // Negate twice is the identity, on every kind, with a destination.
  for (int model : {TSL_GREY, TSL_RGB, TSL_RGBA, TSL_BINARY, TSL_INDEXED}) {
    Pic src(MakePicture(model, 13, 7, 8, 100)), once, twice;
    src->attr_word = 5;
    ASSERT_EQ(Negative(&src, &once, nullptr), kOpDone);
    EXPECT_EQ(once->attr_word, 5);
    EXPECT_FALSE(SameColors(src, once));
    ASSERT_EQ(Negative(&once, &twice, nullptr), kOpDone);
    EXPECT_TRUE(SameColors(src, twice)) << model;
  }
}

TEST(PointOps, NormalizeEqualizeAndBalance) {
  // Normalize: lo 50, hi 150 over the whole picture, applied inside the rectangle.
  Pic n(Grey(4, 1, {50, 100, 150, 75}));
  const OpRect r{1, 0, 3, 1};
  ASSERT_EQ(Normalize(&n, nullptr, &r), kOpDone);
  EXPECT_EQ(std::vector<int>({Px(n, 0, 0), Px(n, 1, 0), Px(n, 2, 0), Px(n, 3, 0)}),
            (std::vector<int>{50, 127, 255, 63}));  // 50 * 255 / 100 = 127
  // Equalize: counts 2 at 0, 1 at 100, 1 at 200; d = 4 - 2.
  Pic e(Grey(2, 2, {0, 0, 100, 200}));
  ASSERT_EQ(Equalize(&e, nullptr, nullptr), kOpDone);
  EXPECT_EQ(std::vector<int>({Px(e, 0, 0), Px(e, 0, 1), Px(e, 1, 1)}), (std::vector<int>{0, 127, 255}));
  // A single value: 0 stays 0, anything else becomes 255; Normalize then leaves it (lo == hi).
  for (int v : {0, 9}) {
    Pic p(Grey(3, 2, std::vector<int>(6, v)));
    ASSERT_EQ(Equalize(&p, nullptr, nullptr), kOpDone);
    EXPECT_EQ(Px(p, 2, 1), v ? 255 : 0);
    ASSERT_EQ(Normalize(&p, nullptr, nullptr), kOpDone);
    EXPECT_EQ(Px(p, 2, 1), v ? 255 : 0);
  }
  // RGBA: per-channel tables, the fourth byte untouched; Color Balance
  // shifts each channel by its own amount.
  Pic p(MakePicture(TSL_RGBA, 3, 1, 1));
  std::memcpy(p->pixels, "\x0a\x00\x07\x01\x14\x32\x07\x02\x1e\x64\x08\x03", 12);
  ASSERT_EQ(Normalize(&p, nullptr, nullptr), kOpDone);
  EXPECT_EQ(std::memcmp(p->pixels, "\x00\x00\x00\x01\x7f\x7f\x00\x02\xff\xff\xff\x03", 12), 0);
  ASSERT_EQ(ColorBalance(&p, nullptr, nullptr, 10, -100, 1), kOpDone);
  EXPECT_EQ(std::memcmp(p->pixels, "\x0a\x00\x01\x01\x89\x1b\x01\x02\xff\x9b\xff\x03", 12), 0);
  // The picture receiving the result gets 256 colours when its model is
  // grey or indexed, the source keeps its count.
  Pic idx(MakePicture(TSL_INDEXED, 4, 4, 5, 12)), d;
  ASSERT_EQ(ColorBalance(&idx, &d, nullptr, 1, 1, 1), kOpDone);
  EXPECT_EQ(d->colors, 256);
  EXPECT_EQ(idx->colors, 12);
  Pic g(Grey(2, 1, {1, 2}));
  g->colors = 16;
  ASSERT_EQ(Equalize(&g, nullptr, nullptr), kOpDone);
  EXPECT_EQ(g->colors, 256);
}

// The table applier against a plain loop, on pictures large enough to be
// split into bands and on odd small ones, with and without rectangles.
TEST(PointOps, ApplierMatchesPlainLoop) {
  uint8_t tabs[3][256];
  std::mt19937 rng(11);
  for (auto &t : tabs)
    for (uint8_t &v : t) v = static_cast<uint8_t>(rng());
  const int sizes[][2] = {{1, 1}, {1, 17}, {17, 1}, {17, 13}, {640, 500}};
  const OpRect rects[] = {{2, 3, 11, 5}, {-3, -3, 8, 900}};
  for (int model : {TSL_GREY, TSL_RGB, TSL_RGBA})
    for (const auto &sz : sizes)
      for (int rk = -1; rk < 2; ++rk) {
        const OpRect *rect = rk < 0 ? nullptr : &rects[rk];
        Pic p(MakePicture(model, sz[0], sz[1], 21)), d;
        OpRect r;
        if (!ClipRect(&p, rect, &r)) {
          EXPECT_EQ(ApplyLut3(&p, &d, rect, tabs[0], tabs[1], tabs[2]), kOpEmptyRect);
          EXPECT_EQ(d->pixels, nullptr);
          continue;
        }
        ASSERT_EQ(ApplyLut3(&p, &d, rect, tabs[0], tabs[1], tabs[2]), kOpDone);
        for (uint32_t y = 0; y < p->height; ++y)
          for (uint32_t x = 0; x < p->width; ++x)
            for (int c = 0; c < p->bytes_per_pixel; ++c) {
              const bool inside = int(x) >= r.x && int(x) < r.x + r.width && int(y) >= r.y && int(y) < r.y + r.height;
              const int v = Px(p, x, y, c);
              ASSERT_EQ(Px(d, x, y, c), inside && c < 3 ? tabs[c][v] : v) << model << " " << x << "," << y;
            }
      }
}

}  // namespace
