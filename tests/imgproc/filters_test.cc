// Neighbourhood filters: hand-computed values on tiny pictures, properties,
// status codes, and a differential comparison with the plain per-pixel
// formulas of reference_ops.h on random pictures of every kind.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>

#include "imgproc/filters.h"
#include "reference_ops.h"
#include "test_util.h"

using namespace quilla;
using namespace testutil;

namespace {

using Filter = std::function<int(TslPicture *, TslPicture *, const OpRect *)>;

// A filter with a fixed strength or size.
template <typename F>
Filter With(F f, int v) {
  return [f, v](TslPicture *s, TslPicture *d, const OpRect *r) { return f(s, d, r, v); };
}

TEST(Filters, HandComputedValues) {
  const Pic spot(Grey(3, 3, {0, 0, 0, 0, 100, 0, 0, 0, 0}));                   // black, 100 in the middle
  const Pic bump(Grey(3, 3, {100, 100, 100, 100, 104, 100, 100, 100, 100}));  // flat 100, 104 in the middle
  const Pic mixed(Grey(3, 3, {9, 1, 7, 3, 5, 2, 8, 4, 6}));
  const struct {
    const char *name;
    const Pic &src;
    Filter filter;
    std::vector<std::array<int, 3>> want;  // x, y, value
  } cases[] = {
      // 10*100/6 = 166 in the middle; its neighbours go negative and clamp to 0.
      {"enhance detail", spot, With(ApplyKernel3, kKernelEnhanceDetail), {{1, 1, 166}, {1, 0, 0}}},
      {"enhance focus", spot, With(ApplyKernel3, kKernelEnhanceFocus), {{1, 1, 233}}},  // 700 / 3
      // Bias 128 minus the top-left neighbour plus the bottom-right one (edges replicated).
      {"emboss", spot, With(ApplyKernel3, kKernelEmboss), {{0, 0, 228}, {2, 2, 28}, {1, 1, 128}, {2, 0, 128}}},
      // -4 * 100 + 128 clamps to 0; a neighbour gets 228.
      {"edge light", spot, With(ApplyKernel3, kKernelEdgeLight), {{1, 1, 0}, {0, 1, 228}, {0, 0, 128}}},
      {"soften 100", spot, With(Soften, 100), {{1, 1, 3}, {1, 0, 12}}},  // (100 N + 25 c) / 825
      {"blur 100", spot, With(Blur, 100), {{1, 1, 2}, {1, 0, 16}, {0, 0, 8}}},  // (100 K + 200 E + 25 c) / 1225
      // (10400 - 5000) / 50; (10000 - 5025) / 50 = 99.5, truncated.
      {"sharpen 50", bump, With(Sharpen, 50), {{1, 1, 108}, {1, 0, 99}}},
      // s*N = 2412 is divided by 8 before the subtraction: (10000 - 301) / 97.
      {"sharpen 3", bump, With(Sharpen, 3), {{1, 0, 99}}},
      {"edges 100", bump, With(EnhanceEdges, 100), {{1, 0, 96}, {1, 1, 136}}},  // 9 * 100 - 804
      {"edges 1", bump, With(EnhanceEdges, 1), {{1, 0, 99}}},  // k = 54: (63 * 100 - 804) / 55
      {"gauss 3", spot, With(GaussianBlur, 3), {{1, 1, 23}, {1, 0, 12}, {0, 0, 6}}},  // 473 * 100 >> 11
      // (0,0): window 9 9 1 / 9 9 1 / 3 3 5 -> sorted 1 1 3 3 5 9 9 9 9, element 4.
      {"median box", mixed, With(MedianBox, 3), {{1, 1, 5}, {0, 0, 5}}},
      {"median cross", mixed, With(MedianCross, 3), {{1, 1, 3}}},  // 3 5 2 and 1 4: element 2 of 1 2 3 4 5
      {"maximum", mixed, With(Maximum, 3), {{0, 0, 9}, {2, 1, 7}}},
      {"minimum", mixed, With(Minimum, 3), {{0, 2, 3}, {2, 2, 2}}},
  };
  for (const auto &c : cases) {
    Pic src = c.src.clone(), d;
    ASSERT_EQ(c.filter(&src, &d, nullptr), kOpDone) << c.name;
    for (const auto &w : c.want) EXPECT_EQ(Px(d, w[0], w[1]), w[2]) << c.name << " at " << w[0] << "," << w[1];
  }
  // Average of a one-pixel-wide column, rows padded by replication: row 0
  // sees 0,0,0,10,20; row 1 0,0,10,20,30; the last row 40,50,60,60,60.
  Pic column(Grey(1, 7, {0, 10, 20, 30, 40, 50, 60}));
  ASSERT_EQ(Average(&column, nullptr, nullptr, 5), kOpDone);
  const int expect[] = {6, 12, 20, 30, 40, 48, 54};
  for (int y = 0; y < 7; ++y) EXPECT_EQ(Px(column, 0, y), expect[y]) << y;
  int32_t w[225];
  ASSERT_TRUE(GaussianWeights(3, w));
  EXPECT_EQ(std::vector<int>(w, w + 5), (std::vector<int>{138, 256, 138, 256, 473}));
  EXPECT_FALSE(GaussianWeights(1, w));
}

TEST(Filters, FlatPictures) {
  // Edge detection and emboss give their bias on a flat picture.
  Pic p(MakePicture(TSL_RGB, 9, 5, 3));
  Fill(p, 77);
  for (int k = kKernelEdgeLight; k <= kKernelEmbossMore; ++k) {
    Pic d;
    ASSERT_EQ(ApplyKernel3(&p, &d, nullptr, k), kOpDone);
    for (uint32_t i = 0; i < d->bytes_per_line * d->height; ++i) ASSERT_EQ(d->pixels[i], 128) << "kernel " << k;
  }
  EXPECT_EQ(ApplyKernel3(&p, nullptr, nullptr, 9), kOpEmptyRect);
  // Sharpen and blur leave a flat picture alone, but sharpen jumps at 100.
  Pic g(MakePicture(TSL_GREY, 6, 4));
  Fill(g, 90);
  for (int s : {1, 50, 99}) {
    Pic a, b;
    ASSERT_EQ(Sharpen(&g, &a, nullptr, s), kOpDone);
    ASSERT_EQ(Blur(&g, &b, nullptr, s), kOpDone);
    EXPECT_TRUE(SamePixels(g, a)) << s;
    EXPECT_TRUE(SamePixels(g, b)) << s;
  }
  ASSERT_EQ(Sharpen(&g, nullptr, nullptr, 100), kOpDone);
  for (uint32_t i = 0; i < g->width; ++i) EXPECT_EQ(g->pixels[i], 0);
  // Sizes whose rounded weights add up to more than 2048 still keep white white.
  Pic white(MakePicture(TSL_GREY, 12, 12));
  Fill(white, 255);
  for (int n : {10, 11, 13}) {
    Pic d;
    ASSERT_EQ(GaussianBlur(&white, &d, nullptr, n), kOpDone);
    EXPECT_EQ(Px(d, 5, 5), 255) << n;
  }
}

TEST(Filters, ConventionsAndStatus) {
  Pic bin(MakePicture(TSL_BINARY, 10, 10));
  EXPECT_EQ(ApplyKernel3(&bin, nullptr, nullptr, 0), kOpNotBilevel);
  EXPECT_EQ(Soften(&bin, nullptr, nullptr, 5), kOpNotBilevel);
  EXPECT_EQ(Sharpen(&bin, nullptr, nullptr, 5), kOpNotBilevel);
  EXPECT_EQ(MedianBox(&bin, nullptr, nullptr, 3), kOpNotBilevel);

  Pic p(MakePicture(TSL_INDEXED, 8, 6, 5, 40)), d, none;
  p->transparent_index = 3;
  p->attr_word = 7;
  Pic before = p.clone();
  // Sizes outside 2..15 and rectangles outside the picture are refused before anything happens.
  const OpRect outside{20, 0, 5, 5};
  EXPECT_EQ(Blur(&p, nullptr, &outside, 50), kOpEmptyRect);
  EXPECT_EQ(GaussianBlur(&p, nullptr, nullptr, 1), kOpEmptyRect);
  EXPECT_EQ(GaussianBlur(&p, nullptr, nullptr, 16), kOpEmptyRect);
  EXPECT_EQ(MedianBox(&p, &none, nullptr, 0), kOpEmptyRect);
  EXPECT_EQ(none->pixels, nullptr);
  EXPECT_TRUE(SamePixels(p, before));
  // With a destination: the source stays, the result carries palette and
  // attributes and has no transparent index.
  ASSERT_EQ(Average(&p, &d, nullptr, 3), kOpDone);
  EXPECT_TRUE(SamePixels(p, before));
  EXPECT_EQ(d->transparent_index, -1);
  EXPECT_EQ(d->attr_word, 7);
  EXPECT_EQ(d->colors, 40);
  EXPECT_EQ(std::memcmp(d->palette, p->palette, 768), 0);
  // In place the record is refilled.
  ASSERT_EQ(Average(&p, nullptr, nullptr, 3), kOpDone);
  EXPECT_EQ(p->transparent_index, -1);
  EXPECT_FALSE(SamePixels(p, before));
}

// ---- differential tests ---------------------------------------------------------------

using Oracle = std::function<int(const TslPicture &, int, int, int)>;

struct Case {
  std::string name;
  Filter run;
  Oracle oracle;
  bool small_only;  // slow oracle: skip the large picture
};

// A filter of strength or size v with its plain formula.
Case Pair(const char *name, int (*run)(TslPicture *, TslPicture *, const OpRect *, int),
          int (*oracle)(const TslPicture &, int, int, int, int), int v, bool slow = false) {
  return {name + std::to_string(v), With(run, v), [oracle, v](const TslPicture &p, int x, int y, int c) {
            return oracle(p, x, y, c, v);
          }, slow};
}

std::vector<Case> AllCases() {
  std::vector<Case> cases;
  for (int k = 0; k < kFixedKernelCount; ++k)
    cases.push_back({"kernel" + std::to_string(k), With(ApplyKernel3, k), [k](const TslPicture &p, int x, int y, int c) {
                       return reference::Convolve(p, x, y, c, 3, FixedKernels[k].weight, FixedKernels[k].divisor,
                                                  FixedKernels[k].bias);
                     }, false});
  for (int s : {1, 37, 99, 100}) {
    cases.push_back(Pair("soften", Soften, reference::Soften, s));
    cases.push_back(Pair("blur", Blur, reference::Blur, s));
    cases.push_back(Pair("sharpen", Sharpen, reference::Sharpen, s));
    cases.push_back(Pair("edges", EnhanceEdges, reference::EnhanceEdges, s));
  }
  for (int n : {2, 3, 4, 5, 7, 11, 15}) {
    const bool slow = n > 5;
    cases.push_back(Pair("average", Average, reference::Average, n, slow));
    cases.push_back(Pair("max", Maximum, reference::Maximum, n, slow));
    cases.push_back(Pair("min", Minimum, reference::Minimum, n, slow));
    cases.push_back(Pair("medianb", MedianBox, reference::MedianBox, n, slow));
    cases.push_back(Pair("medianc", MedianCross, reference::MedianCross, n, slow));
    const std::vector<int> w = reference::GaussWeights(n);
    cases.push_back({"gauss" + std::to_string(n), With(GaussianBlur, n),
                     [n, w](const TslPicture &p, int x, int y, int c) { return reference::Gauss(p, x, y, c, n, w); },
                     slow});
  }
  return cases;
}

// Random content (not the smooth test pattern) so that every comparison
// branch of the rank filters is exercised.
TslPicture Noise(int model, int w, int h, uint32_t seed) {
  TslPicture p = MakePicture(model, w, h, seed, 200);
  std::mt19937 rng(seed);
  if (model != TSL_INDEXED)
    for (uint32_t i = 0; i < p.bytes_per_line * p.height; ++i) p.pixels[i] = static_cast<uint8_t>(rng());
  return p;
}

void Compare(const Case &c, const TslPicture &src, const OpRect *rect, bool in_place) {
  SCOPED_TRACE(testing::Message() << c.name << " on " << src.width << "x" << src.height << " model "
                                  << src.color_model << (in_place ? " in place" : ""));
  Pic expect, out;
  const bool nonempty =
      reference::Filter(src, rect, &expect, [&](int x, int y, int ch) { return c.oracle(src, x, y, ch); });
  Pic work;
  tslCopyPicture(&work, &src);
  const int status = c.run(&work, in_place ? nullptr : &out, rect);
  if (!nonempty) {
    EXPECT_EQ(status, kOpEmptyRect);
    return;
  }
  ASSERT_EQ(status, kOpDone);
  EXPECT_TRUE(SamePixels(in_place ? work : out, expect));
  if (!in_place) {
    EXPECT_TRUE(SamePixels(work, src)) << "changed its source";
  }
}

TEST(FiltersDifferential, SmallPicturesOfEveryKind) {
  const int sizes[][2] = {{1, 1}, {1, 9}, {9, 1}, {17, 13}, {2, 3}};
  const OpRect rects[] = {{3, 2, 9, 7}, {-4, -4, 6, 30}, {16, 12, 5, 5}, {40, 40, 3, 3}};
  uint32_t seed = 1;
  for (const Case &c : AllCases())
    for (int model : {TSL_GREY, TSL_INDEXED, TSL_RGB, TSL_RGBA})
      for (const auto &sz : sizes) {
        Pic src(Noise(model, sz[0], sz[1], seed++));
        Compare(c, src, nullptr, (seed & 1) != 0);
        if (sz[0] == 17)
          for (const OpRect &r : rects) Compare(c, src, &r, (seed++ & 1) != 0);
      }
}

TEST(FiltersDifferential, LargePictureUsesBandsIdentically) {
  // Big enough for the work to be split into row bands.
  Pic src(Noise(TSL_RGB, 241, 200, 99));
  const OpRect rect{13, 7, 220, 190};
  for (const Case &c : AllCases()) {
    if (c.small_only) continue;
    Compare(c, src, nullptr, false);
    Compare(c, src, nullptr, true);  // in place: each band reads its neighbours' rows before they change
    Compare(c, src, &rect, true);
  }
}

}  // namespace
