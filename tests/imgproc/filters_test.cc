// Neighbourhood filters: hand-computed values on tiny pictures, properties,
// status codes, and a differential comparison with the plain per-pixel
// formulas of reference_ops.h on random pictures of every kind.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "imgproc/filters.h"
#include "reference_ops.h"
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

// A 3x3 black picture with 100 in the middle.
TslPicture Spot() { return Grey(3, 3, {0, 0, 0, 0, 100, 0, 0, 0, 0}); }
// A flat 100 picture with 104 in the middle.
TslPicture Bump() { return Grey(3, 3, {100, 100, 100, 100, 104, 100, 100, 100, 100}); }

struct Free {
  TslPicture *p;
  ~Free() { tslFree(p); }
};

TEST(FixedKernels, HandComputedOnASpot) {
  // Enhance Detail: 10*100/6 = 166 in the middle; its neighbours go negative and clamp to 0.
  TslPicture p = Spot(), d{};
  ASSERT_EQ(ApplyKernel3(&p, &d, nullptr, kKernelEnhanceDetail), kOpDone);
  EXPECT_EQ(Px(d, 1, 1), 166);
  EXPECT_EQ(Px(d, 1, 0), 0);
  tslFree(&d);
  ASSERT_EQ(ApplyKernel3(&p, &d, nullptr, kKernelEnhanceFocus), kOpDone);
  EXPECT_EQ(Px(d, 1, 1), 233);  // 700 / 3
  tslFree(&d);
  // Emboss: bias 128 minus the top-left neighbour plus the bottom-right one
  // (edges replicated).
  ASSERT_EQ(ApplyKernel3(&p, &d, nullptr, kKernelEmboss), kOpDone);
  EXPECT_EQ(Px(d, 0, 0), 228);
  EXPECT_EQ(Px(d, 2, 2), 28);
  EXPECT_EQ(Px(d, 1, 1), 128);
  EXPECT_EQ(Px(d, 2, 0), 128);
  tslFree(&d);
  // Edge detect light: -4 * 100 + 128 clamps to 0; a neighbour gets 228.
  ASSERT_EQ(ApplyKernel3(&p, &d, nullptr, kKernelEdgeLight), kOpDone);
  EXPECT_EQ(Px(d, 1, 1), 0);
  EXPECT_EQ(Px(d, 0, 1), 228);
  EXPECT_EQ(Px(d, 0, 0), 128);
  tslFree(&d);
  tslFree(&p);
}

TEST(FixedKernels, FlatPictureGivesBiasForEdgeAndEmboss) {
  TslPicture p = testutil::MakePicture(TSL_RGB, 9, 5, 3);
  std::memset(p.pixels, 77, static_cast<size_t>(p.bytes_per_line) * p.height);
  for (int k = kKernelEdgeLight; k <= kKernelEmbossMore; ++k) {
    TslPicture d{};
    ASSERT_EQ(ApplyKernel3(&p, &d, nullptr, k), kOpDone);
    for (uint32_t i = 0; i < d.bytes_per_line * d.height; ++i) ASSERT_EQ(d.pixels[i], 128) << "kernel " << k;
    tslFree(&d);
  }
  EXPECT_EQ(ApplyKernel3(&p, nullptr, nullptr, 9), kOpEmptyRect);
  tslFree(&p);
}

TEST(StrengthFilters, HandComputed) {
  TslPicture p = Spot(), d{};
  ASSERT_EQ(Soften(&p, &d, nullptr, 100), kOpDone);  // (100 N + 25 c) / 825
  EXPECT_EQ(Px(d, 1, 1), 3);
  EXPECT_EQ(Px(d, 1, 0), 12);
  tslFree(&d);
  ASSERT_EQ(Blur(&p, &d, nullptr, 100), kOpDone);  // (100 K + 200 E + 25 c) / 1225
  EXPECT_EQ(Px(d, 1, 1), 2);
  EXPECT_EQ(Px(d, 1, 0), 16);
  EXPECT_EQ(Px(d, 0, 0), 8);
  tslFree(&d);
  tslFree(&p);

  p = Bump();
  ASSERT_EQ(Sharpen(&p, &d, nullptr, 50), kOpDone);
  EXPECT_EQ(Px(d, 1, 1), 108);  // (10400 - 5000) / 50
  EXPECT_EQ(Px(d, 1, 0), 99);   // (10000 - 5025) / 50 = 99.5, truncated
  tslFree(&d);
  ASSERT_EQ(Sharpen(&p, &d, nullptr, 3), kOpDone);
  EXPECT_EQ(Px(d, 1, 0), 99);  // s*N = 2412 is divided by 8 before the subtraction: (10000 - 301) / 97
  tslFree(&d);
  ASSERT_EQ(EnhanceEdges(&p, &d, nullptr, 100), kOpDone);
  EXPECT_EQ(Px(d, 1, 0), 96);  // 9 * 100 - 804
  EXPECT_EQ(Px(d, 1, 1), 136);
  tslFree(&d);
  ASSERT_EQ(EnhanceEdges(&p, &d, nullptr, 1), kOpDone);
  EXPECT_EQ(Px(d, 1, 0), 99);  // k = 54: (63 * 100 - 804) / 55
  tslFree(&d);
  tslFree(&p);
}

TEST(StrengthFilters, SharpenJumpsAtOneHundredOnAFlatPicture) {
  TslPicture p = testutil::MakePicture(TSL_GREY, 6, 4);
  std::memset(p.pixels, 90, static_cast<size_t>(p.bytes_per_line) * p.height);
  for (int s : {1, 50, 99}) {
    TslPicture d{};
    ASSERT_EQ(Sharpen(&p, &d, nullptr, s), kOpDone);
    EXPECT_TRUE(testutil::SamePixels(p, d)) << s;
    tslFree(&d);
    ASSERT_EQ(Blur(&p, &d, nullptr, s), kOpDone);
    EXPECT_TRUE(testutil::SamePixels(p, d)) << s;
    tslFree(&d);
  }
  ASSERT_EQ(Sharpen(&p, nullptr, nullptr, 100), kOpDone);
  for (uint32_t i = 0; i < p.width; ++i) EXPECT_EQ(p.pixels[i], 0);
  tslFree(&p);
}

TEST(SizeFilters, AverageOfAOnePixelWideColumn) {
  TslPicture p = Grey(1, 7, {0, 10, 20, 30, 40, 50, 60});
  Free f{&p};
  ASSERT_EQ(Average(&p, nullptr, nullptr, 5), kOpDone);
  // rows padded by replication: row 0 sees 0,0,0,10,20; row 1 0,0,10,20,30; the last row 40,50,60,60,60
  const int expect[] = {6, 12, 20, 30, 40, 48, 54};
  for (int y = 0; y < 7; ++y) EXPECT_EQ(Px(p, 0, y), expect[y]) << y;
}

TEST(SizeFilters, GaussianWeightsAndValues) {
  int32_t w[225];
  ASSERT_TRUE(GaussianWeights(3, w));
  EXPECT_EQ(w[0], 138);
  EXPECT_EQ(w[1], 256);
  EXPECT_EQ(w[4], 473);
  EXPECT_FALSE(GaussianWeights(1, w));
  TslPicture p = Spot(), d{};
  ASSERT_EQ(GaussianBlur(&p, &d, nullptr, 3), kOpDone);
  EXPECT_EQ(Px(d, 1, 1), 23);  // 473 * 100 >> 11
  EXPECT_EQ(Px(d, 1, 0), 12);
  EXPECT_EQ(Px(d, 0, 0), 6);
  tslFree(&d);
  // Sizes whose rounded weights add up to more than 2048 still keep white white.
  TslPicture white = testutil::MakePicture(TSL_GREY, 12, 12);
  std::memset(white.pixels, 255, static_cast<size_t>(white.bytes_per_line) * white.height);
  for (int n : {10, 11, 13}) {
    ASSERT_EQ(GaussianBlur(&white, &d, nullptr, n), kOpDone);
    EXPECT_EQ(Px(d, 5, 5), 255) << n;
    tslFree(&d);
  }
  tslFree(&white);
  // Sizes outside 2..15 are refused before anything happens.
  TslPicture before{};
  tslCopyPicture(&before, &p);
  EXPECT_EQ(GaussianBlur(&p, nullptr, nullptr, 1), kOpEmptyRect);
  EXPECT_EQ(GaussianBlur(&p, nullptr, nullptr, 16), kOpEmptyRect);
  EXPECT_EQ(MedianBox(&p, &d, nullptr, 0), kOpEmptyRect);
  EXPECT_EQ(d.pixels, nullptr);
  EXPECT_TRUE(testutil::SamePixels(p, before));
  tslFree(&before);
  tslFree(&p);
}

TEST(SizeFilters, RankFiltersHandComputed) {
  TslPicture p = Grey(3, 3, {9, 1, 7, 3, 5, 2, 8, 4, 6}), d{};
  ASSERT_EQ(MedianBox(&p, &d, nullptr, 3), kOpDone);
  EXPECT_EQ(Px(d, 1, 1), 5);
  // (0,0): window 9 9 1 / 9 9 1 / 3 3 5 -> sorted 1 1 3 3 5 9 9 9 9, element 4
  EXPECT_EQ(Px(d, 0, 0), 5);
  tslFree(&d);
  ASSERT_EQ(MedianCross(&p, &d, nullptr, 3), kOpDone);
  EXPECT_EQ(Px(d, 1, 1), 3);  // 3 5 2 and 1 4: sorted 1 2 3 4 5, element 2
  tslFree(&d);
  ASSERT_EQ(Maximum(&p, &d, nullptr, 3), kOpDone);
  EXPECT_EQ(Px(d, 0, 0), 9);
  EXPECT_EQ(Px(d, 2, 1), 7);
  tslFree(&d);
  ASSERT_EQ(Minimum(&p, &d, nullptr, 3), kOpDone);
  EXPECT_EQ(Px(d, 0, 2), 3);
  EXPECT_EQ(Px(d, 2, 2), 2);
  tslFree(&d);
  tslFree(&p);
}

TEST(Filters, ConventionsAndStatus) {
  TslPicture bin = testutil::MakePicture(TSL_BINARY, 10, 10);
  EXPECT_EQ(ApplyKernel3(&bin, nullptr, nullptr, 0), kOpNotBilevel);
  EXPECT_EQ(Soften(&bin, nullptr, nullptr, 5), kOpNotBilevel);
  EXPECT_EQ(Sharpen(&bin, nullptr, nullptr, 5), kOpNotBilevel);
  EXPECT_EQ(MedianBox(&bin, nullptr, nullptr, 3), kOpNotBilevel);
  tslFree(&bin);

  TslPicture p = testutil::MakePicture(TSL_INDEXED, 8, 6, 5, 40);
  p.transparent_index = 3;
  p.attr_word = 7;
  const OpRect outside{20, 0, 5, 5};
  EXPECT_EQ(Blur(&p, nullptr, &outside, 50), kOpEmptyRect);
  // With a destination: the source stays, the result carries palette and
  // attributes and has no transparent index.
  TslPicture before{}, d{};
  tslCopyPicture(&before, &p);
  ASSERT_EQ(Average(&p, &d, nullptr, 3), kOpDone);
  EXPECT_TRUE(testutil::SamePixels(p, before));
  EXPECT_EQ(d.transparent_index, -1);
  EXPECT_EQ(d.attr_word, 7);
  EXPECT_EQ(d.colors, 40);
  EXPECT_EQ(std::memcmp(d.palette, p.palette, 768), 0);
  tslFree(&d);
  // In place the record is refilled.
  ASSERT_EQ(Average(&p, nullptr, nullptr, 3), kOpDone);
  EXPECT_EQ(p.transparent_index, -1);
  EXPECT_FALSE(testutil::SamePixels(p, before));
  tslFree(&before);
  tslFree(&p);
}

// ---- differential tests ---------------------------------------------------------------

struct Case {
  std::string name;
  std::function<int(TslPicture *, TslPicture *, const OpRect *)> run;
  std::function<int(const TslPicture &, int, int, int)> oracle;
  bool small_only;  // slow oracle: skip the large picture
};

std::vector<Case> AllCases() {
  std::vector<Case> cases;
  for (int k = 0; k < kFixedKernelCount; ++k)
    cases.push_back({"kernel" + std::to_string(k),
                     [k](TslPicture *s, TslPicture *d, const OpRect *r) { return ApplyKernel3(s, d, r, k); },
                     [k](const TslPicture &p, int x, int y, int c) {
                       const FilterKernel3 &f = FixedKernels[k];
                       return reference::Convolve(p, x, y, c, 3, f.weight, f.divisor, f.bias);
                     },
                     false});
  for (int s : {1, 37, 99, 100}) {
    cases.push_back({"soften" + std::to_string(s), [s](TslPicture *a, TslPicture *d, const OpRect *r) { return Soften(a, d, r, s); },
                     [s](const TslPicture &p, int x, int y, int c) { return reference::Soften(p, x, y, c, s); }, false});
    cases.push_back({"blur" + std::to_string(s), [s](TslPicture *a, TslPicture *d, const OpRect *r) { return Blur(a, d, r, s); },
                     [s](const TslPicture &p, int x, int y, int c) { return reference::Blur(p, x, y, c, s); }, false});
    cases.push_back({"sharpen" + std::to_string(s), [s](TslPicture *a, TslPicture *d, const OpRect *r) { return Sharpen(a, d, r, s); },
                     [s](const TslPicture &p, int x, int y, int c) { return reference::Sharpen(p, x, y, c, s); }, false});
    cases.push_back({"edges" + std::to_string(s),
                     [s](TslPicture *a, TslPicture *d, const OpRect *r) { return EnhanceEdges(a, d, r, s); },
                     [s](const TslPicture &p, int x, int y, int c) { return reference::EnhanceEdges(p, x, y, c, s); }, false});
  }
  for (int n : {2, 3, 4, 5, 7, 11, 15}) {
    const bool slow = n > 5;
    std::string sn = std::to_string(n);
    cases.push_back({"average" + sn, [n](TslPicture *a, TslPicture *d, const OpRect *r) { return Average(a, d, r, n); },
                     [n](const TslPicture &p, int x, int y, int c) { return reference::Average(p, x, y, c, n); }, slow});
    auto w = reference::GaussWeights(n);
    cases.push_back({"gauss" + sn, [n](TslPicture *a, TslPicture *d, const OpRect *r) { return GaussianBlur(a, d, r, n); },
                     [n, w](const TslPicture &p, int x, int y, int c) { return reference::Gauss(p, x, y, c, n, w); }, slow});
    cases.push_back({"max" + sn, [n](TslPicture *a, TslPicture *d, const OpRect *r) { return Maximum(a, d, r, n); },
                     [n](const TslPicture &p, int x, int y, int c) {
                       auto v = reference::Window(p, x, y, c, n);
                       return *std::max_element(v.begin(), v.end());
                     },
                     slow});
    cases.push_back({"min" + sn, [n](TslPicture *a, TslPicture *d, const OpRect *r) { return Minimum(a, d, r, n); },
                     [n](const TslPicture &p, int x, int y, int c) {
                       auto v = reference::Window(p, x, y, c, n);
                       return *std::min_element(v.begin(), v.end());
                     },
                     slow});
    cases.push_back({"medianb" + sn, [n](TslPicture *a, TslPicture *d, const OpRect *r) { return MedianBox(a, d, r, n); },
                     [n](const TslPicture &p, int x, int y, int c) { return reference::MedianBox(p, x, y, c, n); }, slow});
    cases.push_back({"medianc" + sn, [n](TslPicture *a, TslPicture *d, const OpRect *r) { return MedianCross(a, d, r, n); },
                     [n](const TslPicture &p, int x, int y, int c) { return reference::MedianCross(p, x, y, c, n); }, slow});
  }
  return cases;
}

// Random content (not the smooth test pattern) so that every comparison
// branch of the rank filters is exercised.
TslPicture Noise(int model, int w, int h, uint32_t seed) {
  TslPicture p = testutil::MakePicture(model, w, h, seed, 200);
  std::mt19937 rng(seed);
  if (model != TSL_INDEXED)
    for (uint32_t i = 0; i < p.bytes_per_line * p.height; ++i) p.pixels[i] = static_cast<uint8_t>(rng());
  return p;
}

void Compare(const Case &c, const TslPicture &src, const OpRect *rect, bool in_place) {
  TslPicture expect{};
  const bool nonempty = reference::Filter(src, rect, &expect, [&](int x, int y, int ch) { return c.oracle(src, x, y, ch); });
  TslPicture work{}, out{};
  tslCopyPicture(&work, &src);
  const int status = in_place ? c.run(&work, nullptr, rect) : c.run(&work, &out, rect);
  if (!nonempty) {
    EXPECT_EQ(status, kOpEmptyRect) << c.name;
  } else {
    ASSERT_EQ(status, kOpDone) << c.name;
    const TslPicture &got = in_place ? work : out;
    EXPECT_TRUE(testutil::SamePixels(got, expect))
        << c.name << " on " << src.width << "x" << src.height << " model " << src.color_model << (in_place ? " in place" : "");
    if (!in_place) {
      EXPECT_TRUE(testutil::SamePixels(work, src)) << c.name << " changed its source";
    }
  }
  tslFree(&expect);
  tslFree(&work);
  tslFree(&out);
}

TEST(FiltersDifferential, SmallPicturesOfEveryKind) {
  const std::vector<Case> cases = AllCases();
  const int models[] = {TSL_GREY, TSL_INDEXED, TSL_RGB, TSL_RGBA};
  const int sizes[][2] = {{1, 1}, {1, 9}, {9, 1}, {17, 13}, {2, 3}};
  const OpRect rects[] = {{3, 2, 9, 7}, {-4, -4, 6, 30}, {16, 12, 5, 5}, {40, 40, 3, 3}};
  uint32_t seed = 1;
  for (const Case &c : cases)
    for (int model : models)
      for (const auto &sz : sizes) {
        TslPicture src = Noise(model, sz[0], sz[1], seed++);
        Compare(c, src, nullptr, (seed & 1) != 0);
        if (sz[0] == 17)
          for (const OpRect &r : rects) Compare(c, src, &r, (seed++ & 1) != 0);
        tslFree(&src);
      }
}

TEST(FiltersDifferential, LargePictureUsesBandsIdentically) {
  // Big enough for the work to be split into row bands.
  TslPicture src = Noise(TSL_RGB, 241, 200, 99);
  const OpRect rect{13, 7, 220, 190};
  for (const Case &c : AllCases()) {
    if (c.small_only) continue;
    Compare(c, src, nullptr, false);
    Compare(c, src, &rect, true);
  }
  tslFree(&src);
}

}  // namespace
