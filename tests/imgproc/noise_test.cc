// Noise generators (statistics, seeds, channels) and noise reduction.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "imgproc/noise.h"
#include "imgproc/operations.h"
#include "test_util.h"

using namespace quilla;
using namespace testutil;

namespace {

Pic flat(int model, uint32_t w, uint32_t h, uint8_t v) {
  Pic p(MakePicture(model, w, h));
  Fill(p, v);
  return p;
}

OpParams amount(double a, uint32_t seed = 1) {
  OpParams p;
  p.r[0] = a;
  p.seed = seed;
  return p;
}

struct Stats {
  double mean, sd;
};

// Mean and standard deviation of byte c of every pixel.
Stats stats(const TslPicture &p, int c) {
  double s = 0, s2 = 0;
  const double n = double(p.width) * p.height;
  for (uint32_t y = 0; y < p.height; ++y)
    for (uint32_t x = 0; x < p.width; ++x) {
      const double v = p.pixels[y * p.bytes_per_line + x * p.bytes_per_pixel + c];
      s += v;
      s2 += v * v;
    }
  const double m = s / n;
  return {m, std::sqrt(std::max(0.0, s2 / n - m * m))};
}

}  // namespace

TEST(AddNoise, SpreadFollowsTheAmountAndMeanIsKept) {
  struct Case {
    OpFunc fn;
    double amount;
    double sd;  // the standard deviation the amount stands for
  } cases[] = {
      {OpAddUniformNoise, 20.0, 2.55 * 20 / std::sqrt(3.0)},
      {OpAddUniformNoise, 2.0, 2.55 * 2 / std::sqrt(3.0)},
      {OpAddGaussianNoise, 5.0, 2 * 2.55 * 5},
      {OpAddGaussianNoise, 1.0, 2 * 2.55 * 1},
      {OpAddLaplacianNoise, 8.0, 2.55 * 8 * std::sqrt(2.0)},
      {OpAddPoissonNoise, 1.0, std::sqrt(1.0 * 128)},
      {OpAddPoissonNoise, 0.25, std::sqrt(0.25 * 128)},
  };
  for (auto &k : cases) {
    Pic pic = flat(TSL_GREY, 200, 150, 128);
    ASSERT_EQ(k.fn(&pic, nullptr, nullptr, amount(k.amount, 5)), kOpDone);
    Stats s = stats(pic, 0);
    EXPECT_NEAR(s.mean, 128.0, 0.6) << k.amount;
    EXPECT_NEAR(s.sd, k.sd, 0.08 * k.sd + 0.3) << k.amount;
  }
}

TEST(AddNoise, SeedsAreRepeatable) {
  for (OpFunc fn : {OpAddUniformNoise, OpAddGaussianNoise, OpAddLaplacianNoise, OpAddPoissonNoise}) {
    Pic src(MakePicture(TSL_RGB, 40, 30, 3));
    Pic a, b, c;
    ASSERT_EQ(fn(&src, &a, nullptr, amount(0.5, 42)), kOpDone);
    ASSERT_EQ(fn(&src, &b, nullptr, amount(0.5, 42)), kOpDone);
    ASSERT_EQ(fn(&src, &c, nullptr, amount(0.5, 43)), kOpDone);
    EXPECT_TRUE(SamePicture(a, b));
    EXPECT_FALSE(SamePicture(a, c));
    EXPECT_FALSE(SamePicture(a, src));
  }
}

TEST(AddNoise, ChannelsAreIndependentAndAlphaUntouched) {
  for (int model : {TSL_RGBA, TSL_ARGB, TSL_BGRA, TSL_ABGR}) {
    Pic pic = flat(model, 120, 100, 100);
    const int alpha = (model == TSL_ARGB || model == TSL_ABGR) ? 0 : 3;
    ASSERT_EQ(OpAddGaussianNoise(&pic, nullptr, nullptr, amount(4.0)), kOpDone);
    EXPECT_EQ(stats(pic, alpha).sd, 0.0);
    EXPECT_EQ(stats(pic, alpha).mean, 100.0);
    // Colour bytes all noisy, and not the same deviate for the three.
    int same = 0;
    for (int c = 0; c < 4; ++c)
      if (c != alpha) {
        EXPECT_GT(stats(pic, c).sd, 15.0);
      }
    const int c1 = alpha == 0 ? 1 : 0, c2 = c1 + 1;
    for (uint32_t y = 0; y < 100; ++y)
      for (uint32_t x = 0; x < 120; ++x) {
        const uint8_t *px = pic->pixels + y * pic->bytes_per_line + x * 4;
        same += px[c1] == px[c2];
      }
    EXPECT_LT(same, 120 * 100 / 10);
  }
}

TEST(AddNoise, KindsAndBounds) {
  // Indexed pictures become RGB pictures of the same colours, plus noise.
  Pic idx(MakePicture(TSL_INDEXED, 50, 40, 9, 8));
  Pic orig = idx.clone();
  ASSERT_EQ(OpAddUniformNoise(&idx, nullptr, nullptr, amount(1.0)), kOpDone);
  ASSERT_EQ(idx->color_model, TSL_RGB);
  EXPECT_EQ(idx->palette, nullptr);
  EXPECT_TRUE(SameColors(idx, orig, 3));
  EXPECT_FALSE(SameColors(idx, orig, 0));

  // Amounts outside the dialog bounds are refused before anything is done.
  Pic grey(MakePicture(TSL_GREY, 10, 10));
  Pic before = grey.clone();
  EXPECT_EQ(OpAddUniformNoise(&grey, nullptr, nullptr, amount(0.0)), kOpEmptyRect);
  EXPECT_EQ(OpAddUniformNoise(&grey, nullptr, nullptr, amount(50.5)), kOpEmptyRect);
  EXPECT_EQ(OpAddGaussianNoise(&grey, nullptr, nullptr, amount(10.5)), kOpEmptyRect);
  EXPECT_EQ(OpAddLaplacianNoise(&grey, nullptr, nullptr, amount(NAN)), kOpEmptyRect);
  EXPECT_EQ(OpAddPoissonNoise(&grey, nullptr, nullptr, amount(1.5)), kOpEmptyRect);
  EXPECT_TRUE(SamePicture(grey, before));
  EXPECT_EQ(OpAddUniformNoise(&grey, nullptr, nullptr, amount(50.0)), kOpDone);
  EXPECT_EQ(OpAddPoissonNoise(&grey, nullptr, nullptr, amount(0.01)), kOpDone);
}

TEST(NoiseTables, PoissonRowsHaveTheirMeanAndVariance) {
  // Poisson: each level's row has mean v and variance amount * v (in levels).
  for (double amount : {1.0, 0.05, 0.01}) {
    const int n = 4096;
    std::vector<uint8_t> t = PoissonLevelTables(amount, n);
    for (int level : {3, 40, 128, 200}) {
      double s = 0, s2 = 0;
      for (int i = 0; i < n; ++i) {
        const double x = t[level * n + i];
        s += x;
        s2 += x * x;
      }
      const double mean = s / n, var = s2 / n - mean * mean;
      EXPECT_NEAR(mean, level, 0.02 * level + 0.3) << amount << " " << level;
      EXPECT_NEAR(var, amount * level, 0.1 * amount * level + 0.3) << amount << " " << level;
    }
    for (int i = 0; i < n; ++i) ASSERT_EQ(t[i], 0);  // level 0 stays 0
  }
}

// ---- Reduce noise ----------------------------------------------------------------

TEST(ReduceNoise, RemovesImpulsesAndKeepsEdges) {
  // A smooth ramp with a hard vertical edge, then salt and pepper.
  const uint32_t w = 60, h = 40;
  for (int model : {TSL_GREY, TSL_RGB, TSL_BGRA}) {
    Pic clean(MakePicture(model, w, h));
    const int bpp = clean->bytes_per_pixel;
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x)
        for (int c = 0; c < bpp; ++c)
          clean->pixels[y * clean->bytes_per_line + x * bpp + c] =
              static_cast<uint8_t>((x < 30 ? 40 : 200) + y / 2 + c * 3);
    Pic noisy = clean.clone();
    NoiseRng rng(3);
    for (int i = 0; i < 120; ++i) {
      const uint32_t x = rng.below(w), y = rng.below(h);
      const int c = static_cast<int>(rng.below(std::min(bpp, 3)));
      noisy->pixels[y * noisy->bytes_per_line + x * bpp + c] = (i & 1) ? 255 : 0;
    }
    const double before = MeanAbsDiff(noisy, clean);
    ASSERT_EQ(OpReduceNoise(&noisy, nullptr, nullptr, OpParams()), kOpDone);
    EXPECT_LT(MeanAbsDiff(noisy, clean), before / 5) << model;

    // The clean picture, edge and all, is left exactly as it is.
    Pic copy = clean.clone();
    ASSERT_EQ(OpReduceNoise(&copy, nullptr, nullptr, OpParams()), kOpDone);
    EXPECT_TRUE(SamePicture(copy, clean));
  }
}

TEST(ReduceNoise, AlphaIsNotTouchedAndCornersAreCleaned) {
  Pic pic = flat(TSL_RGBA, 8, 8, 50);
  pic->pixels[3] = 255;    // alpha of the corner pixel: not noise
  pic->pixels[0] = 255;    // red of the corner pixel: an impulse
  pic->pixels[4 * 4 + 3 * pic->bytes_per_line + 1] = 0;  // green of (4, 3)
  ASSERT_EQ(OpReduceNoise(&pic, nullptr, nullptr, OpParams()), kOpDone);
  EXPECT_EQ(pic->pixels[0], 50);
  EXPECT_EQ(pic->pixels[3], 255);
  EXPECT_EQ(pic->pixels[4 * 4 + 3 * pic->bytes_per_line + 1], 50);
}

TEST(ReduceNoise, IndexedAndBilevelLoseIsolatedPixels) {
  Pic idx = flat(TSL_INDEXED, 9, 9, 3);
  for (int k = 0; k < 768; ++k) idx->palette[k] = static_cast<uint8_t>(k * 7);
  Pic pal = idx.clone();
  idx->pixels[4 * idx->bytes_per_line + 4] = 7;                         // isolated
  idx->pixels[1 * idx->bytes_per_line + 1] = 9;                         // a pair: kept
  idx->pixels[1 * idx->bytes_per_line + 2] = 9;
  ASSERT_EQ(OpReduceNoise(&idx, nullptr, nullptr, OpParams()), kOpDone);
  EXPECT_EQ(idx->pixels[4 * idx->bytes_per_line + 4], 3);
  EXPECT_EQ(idx->pixels[1 * idx->bytes_per_line + 1], 9);
  EXPECT_EQ(idx->pixels[1 * idx->bytes_per_line + 2], 9);
  EXPECT_EQ(std::memcmp(idx->palette, pal->palette, 768), 0);

  Pic bits = flat(TSL_BINARY, 12, 5, 0);
  SetBit(bits->pixels + 2 * bits->bytes_per_line, 6, 1);
  SetBit(bits->pixels, 11, 1);  // top-right corner dot
  ASSERT_EQ(OpReduceNoise(&bits, nullptr, nullptr, OpParams()), kOpDone);
  for (uint32_t y = 0; y < 5; ++y)
    for (int x = 0; x < 12; ++x) EXPECT_EQ(GetBit(bits->pixels + y * bits->bytes_per_line, x), 0) << x << "," << y;

  // A 1x2 picture: one neighbour each, nothing can be judged.
  Pic two(MakePicture(TSL_GREY, 1, 2));
  two->pixels[0] = 10;
  two->pixels[two->bytes_per_line] = 200;
  ASSERT_EQ(OpReduceNoise(&two, nullptr, nullptr, OpParams()), kOpDone);
  EXPECT_EQ(two->pixels[0], 10);
  EXPECT_EQ(two->pixels[two->bytes_per_line], 200);
}
