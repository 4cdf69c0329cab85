// Channel swap, de-interlace and the artistic effects, plus the conventions
// (rectangle, destination, status codes, picture kinds) for every operation
// of the family.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <set>
#include <tuple>
#include <vector>

#include "imgproc/operations.h"
#include "test_util.h"

using namespace quilla;
using namespace testutil;

namespace {

const int kAllModels[] = {TSL_BINARY, TSL_GREY, TSL_INDEXED, TSL_RGB, TSL_BGR,
                          TSL_RGBA,   TSL_BGRA, TSL_ARGB,    TSL_ABGR};

std::vector<uint8_t> rgbaRow(const TslPicture &p, uint32_t y) {
  std::vector<uint8_t> v(p.width * 4);
  tslGetRowRGBA(&p, y, v.data());
  return v;
}

// Colour (RGBA) of one pixel, whatever the model.
std::array<uint8_t, 4> colourAt(const TslPicture &p, uint32_t x, uint32_t y) {
  auto row = rgbaRow(p, y);
  return {row[4 * x], row[4 * x + 1], row[4 * x + 2], row[4 * x + 3]};
}

// Raw value of one pixel: the bit, or its bytes.
std::vector<uint8_t> rawAt(const TslPicture &p, uint32_t x, uint32_t y) {
  const uint8_t *row = p.pixels + static_cast<size_t>(y) * p.bytes_per_line;
  if (p.color_model == TSL_BINARY) return {static_cast<uint8_t>(GetBit(row, static_cast<int>(x)))};
  return std::vector<uint8_t>(row + x * p.bytes_per_pixel, row + (x + 1) * p.bytes_per_pixel);
}

// The multiset of pixel values inside a rectangle.
std::multiset<std::vector<uint8_t>> pixelSet(const TslPicture &p, const OpRect &r) {
  std::multiset<std::vector<uint8_t>> s;
  for (int y = r.y; y < r.y + r.height; ++y)
    for (int x = r.x; x < r.x + r.width; ++x) s.insert(rawAt(p, x, y));
  return s;
}

// Every pixel outside r equal in a and b.
bool sameOutside(const TslPicture &a, const TslPicture &b, const OpRect &r) {
  for (uint32_t y = 0; y < a.height; ++y)
    for (uint32_t x = 0; x < a.width; ++x) {
      const bool inside = static_cast<int>(x) >= r.x && static_cast<int>(x) < r.x + r.width &&
                          static_cast<int>(y) >= r.y && static_cast<int>(y) < r.y + r.height;
      if (!inside && rawAt(a, x, y) != rawAt(b, x, y)) return false;
    }
  return true;
}

struct OpCase {
  const char *name;
  OpFunc fn;
  OpParams params;
  bool rejects_bilevel;
  bool changes_one_pixel = false;  // may change a 1x1 picture
};

struct Size {
  uint32_t w, h;
};

OpParams ints(int v) {
  OpParams p;
  p.i[0] = v;
  return p;
}
OpParams reals(double a, double b = 0, double c = 0) {
  OpParams p;
  std::tie(p.r[0], p.r[1], p.r[2]) = std::tie(a, b, c);
  return p;
}

// Every operation of the family with parameters that make it change things.
std::vector<OpCase> allOps() {
  return {
      {"swap", OpSwapComponent, ints(2), true, true},
      {"deinterlace-int", OpDeinterlace, ints(0), false},
      {"deinterlace-dup", OpDeinterlace, ints(3), false},
      {"reduce", OpReduceNoise, OpParams(), false},
      {"uniform", OpAddUniformNoise, reals(20), true, true},
      {"gaussian", OpAddGaussianNoise, reals(5), true, true},
      {"laplacian", OpAddLaplacianNoise, reals(20), true, true},
      {"poisson", OpAddPoissonNoise, reals(1), true, true},
      {"mosaic", OpMosaic, ints(3), false},
      {"slice", OpSlice, OpParams(), false},
      {"tile", OpTile, ints(3), false},
      {"shear", OpShear, OpParams(), false},
      {"oil", OpOilPainting, ints(2), false},
      {"swirl", OpSwirl, ints(200), false},
      {"spread", OpSpread, ints(3), false},
      {"lens", OpLens, ints(60), false},
      {"waves", OpWaves, reals(20, 30, 4), false},
  };
}

}  // namespace

// ---- Conventions, on every operation and every kind -----------------------------

TEST(EffectsConventions, StatusCodesRectanglesAndSizes) {
  for (const OpCase &op : allOps()) {
    for (int model : kAllModels) {
      SCOPED_TRACE(std::string(op.name) + " model " + std::to_string(model));
      Pic src(MakePicture(model, 23, 17, 7, 40));
      Pic orig = src.clone();

      // Wholly outside: 16, unchanged.
      OpRect outside{30, 2, 5, 5};
      int want_bilevel = op.rejects_bilevel && model == TSL_BINARY;
      int st = op.fn(&src, nullptr, &outside, op.params);
      EXPECT_EQ(st, want_bilevel ? kOpNotBilevel : kOpEmptyRect);
      EXPECT_TRUE(SamePicture(src, orig));
      if (want_bilevel) {
        EXPECT_EQ(op.fn(&src, nullptr, nullptr, op.params), kOpNotBilevel);
        EXPECT_TRUE(SamePicture(src, orig));
        continue;
      }
      OpRect zero{3, 3, 0, 4};
      EXPECT_EQ(op.fn(&src, nullptr, &zero, op.params), kOpEmptyRect);

      // Partly outside, with a destination: the source stays, the
      // destination changes inside the clipped rectangle only.
      OpRect part{-4, 5, 15, 40};
      const OpRect clipped{0, 5, 11, 12};
      Pic dst;
      ASSERT_EQ(op.fn(&src, &dst, &part, op.params), kOpDone);
      EXPECT_TRUE(SamePicture(src, orig));
      ASSERT_NE(dst->pixels, nullptr);
      EXPECT_EQ(dst->width, src->width);
      EXPECT_EQ(dst->height, src->height);
      if (dst->color_model == src->color_model) {
        EXPECT_TRUE(sameOutside(dst, orig, clipped));
      } else {  // an indexed picture turned true colour: same colours outside
        EXPECT_EQ(src->color_model, TSL_INDEXED);
        EXPECT_TRUE(TSL_IS_TRUECOLOR(dst->color_model));
        for (uint32_t y = 0; y < 17; ++y)
          for (uint32_t x = 11; x < 23; ++x) EXPECT_EQ(colourAt(dst, x, y), colourAt(orig, x, y));
      }
      EXPECT_EQ(dst->alloc_param, orig->alloc_param);

      // In place gives what the destination got.
      ASSERT_EQ(op.fn(&src, nullptr, &part, op.params), kOpDone);
      EXPECT_TRUE(SamePicture(src, dst));
      const bool may_stay = op.fn == OpReduceNoise || (op.fn == OpSwapComponent && model == TSL_GREY);
      EXPECT_FALSE(!may_stay && SamePicture(src, orig)) << "nothing changed";

      // Tiny and odd sizes work; a single pixel has nowhere to go (noise and
      // swaps change it, and an indexed pixel may turn true colour).
      for (const auto &s : {Size{1, 1}, Size{1, 9}, Size{9, 1}, Size{2, 2}, Size{3, 5}, Size{17, 3}, Size{65, 2}}) {
        Pic tiny(MakePicture(model, s.w, s.h, 3, 12));
        Pic before = tiny.clone();
        ASSERT_EQ(op.fn(&tiny, nullptr, nullptr, op.params), kOpDone) << s.w << "x" << s.h;
        EXPECT_EQ(tiny->width, s.w);
        EXPECT_EQ(tiny->height, s.h);
        if (s.w == 1 && s.h == 1 && !op.changes_one_pixel && tiny->color_model == model) {
          EXPECT_TRUE(SamePicture(tiny, before));
        }
      }
    }
  }
}

TEST(EffectsConventions, BoundsAndIdentityParameters) {
  // Parameters outside their bounds are refused before anything is done.
  Pic src(MakePicture(TSL_RGB, 10, 10));
  Pic orig = src.clone();
  const std::pair<OpFunc, OpParams> bad[] = {
      {OpMosaic, ints(0)},      {OpMosaic, ints(65)},      {OpTile, ints(0)},         {OpTile, ints(65)},
      {OpOilPainting, ints(0)}, {OpOilPainting, ints(17)}, {OpSwirl, ints(-1)},       {OpSwirl, ints(360)},
      {OpSpread, ints(0)},      {OpSpread, ints(33)},      {OpLens, ints(0)},         {OpLens, ints(101)},
      {OpWaves, reals(0, 0, 5)}, {OpWaves, reals(NAN, 0, 5)}, {OpWaves, reals(3, INFINITY, 5)}};
  for (const auto &b : bad) {
    EXPECT_EQ(b.first(&src, nullptr, nullptr, b.second), kOpEmptyRect);
    EXPECT_TRUE(SamePicture(src, orig));
  }
  // Mosaic and tile of 1, a swirl of 0 degrees and waves of amount 0 leave any picture as it is.
  const std::pair<OpFunc, OpParams> identity[] = {
      {OpMosaic, ints(1)}, {OpTile, ints(1)}, {OpSwirl, ints(0)}, {OpWaves, reals(3, 5, 0)}};
  for (int model : kAllModels)
    for (const auto &op : identity) {
      Pic pic(MakePicture(model, 13, 11)), out;
      ASSERT_EQ(op.first(&pic, &out, nullptr, op.second), kOpDone);
      EXPECT_TRUE(SamePicture(pic, out)) << model;
      ASSERT_EQ(op.first(&pic, nullptr, nullptr, op.second), kOpDone);
      EXPECT_TRUE(SamePicture(pic, out)) << model;
    }
}

// ---- Swap Component ----------------------------------------------------------

TEST(SwapComponent, PermutesColoursOnEveryLayoutAndKeepsAlpha) {
  // New (red, green, blue) for each choice, as the channel names say.  An
  // indexed picture changes its palette only, whatever the rectangle.
  const int expect[5][3] = {{0, 2, 1}, {2, 1, 0}, {2, 0, 1}, {1, 0, 2}, {1, 2, 0}};
  const OpRect corner{0, 0, 2, 2};
  for (int model : {TSL_RGB, TSL_BGR, TSL_RGBA, TSL_BGRA, TSL_ARGB, TSL_ABGR, TSL_INDEXED})
    for (int choice = 0; choice < 5; ++choice) {
      Pic src(MakePicture(model, 6, 4, 11));
      Pic orig = src.clone();
      ASSERT_EQ(OpSwapComponent(&src, nullptr, model == TSL_INDEXED ? &corner : nullptr, ints(choice)), kOpDone);
      for (uint32_t y = 0; y < 4; ++y)
        for (uint32_t x = 0; x < 6; ++x) {
          auto was = colourAt(orig, x, y), now = colourAt(src, x, y);
          for (int c = 0; c < 3; ++c) EXPECT_EQ(now[c], was[expect[choice][c]]) << model << " " << choice;
          EXPECT_EQ(now[3], was[3]);
        }
      if (model == TSL_INDEXED) {  // the same indexes, every palette entry permuted, used or not
        EXPECT_EQ(std::memcmp(src->pixels, orig->pixels, src->bytes_per_line * src->height), 0);
        for (int k = 0; k < 768; ++k) ASSERT_EQ(src->palette[k], orig->palette[256 * expect[choice][k / 256] + k % 256]);
      }
    }
  Pic grey(MakePicture(TSL_GREY, 8, 8, 2));
  Pic gorig = grey.clone();
  EXPECT_EQ(OpSwapComponent(&grey, nullptr, nullptr, ints(1)), kOpDone);
  EXPECT_TRUE(SamePicture(grey, gorig));
}

// ---- De-interlace -------------------------------------------------------------

TEST(Deinterlace, KeepsTheOtherFieldAndFillsFromNeighbours) {
  for (int model : {TSL_GREY, TSL_RGB, TSL_RGBA, TSL_BINARY, TSL_INDEXED}) {
    for (int mode = 0; mode < 4; ++mode) {
      SCOPED_TRACE("model " + std::to_string(model) + " mode " + std::to_string(mode));
      const uint32_t w = 7, h = 9;
      Pic src(MakePicture(model, w, h, 4));
      Pic orig = src.clone();
      ASSERT_EQ(OpDeinterlace(&src, nullptr, nullptr, ints(mode)), kOpDone);
      const uint32_t replaced = (mode & 1) ? 0 : 1;
      const bool dup = (mode & 2) || model == TSL_BINARY;
      for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
          auto now = colourAt(src, x, y);
          if (y % 2 != replaced) {
            EXPECT_EQ(now, colourAt(orig, x, y));
            continue;
          }
          const bool above = y > 0, below = y + 1 < h;
          if (dup || !above || !below) {
            EXPECT_EQ(now, colourAt(orig, x, above ? y - 1 : y + 1)) << x << "," << y;
          } else {
            auto a = colourAt(orig, x, y - 1), b = colourAt(orig, x, y + 1);
            for (int c = 0; c < 4; ++c) EXPECT_EQ(now[c], (a[c] + b[c] + 1) / 2) << x << "," << y;
          }
        }
      // Duplication keeps an indexed picture indexed; interpolation blends colours.
      if (model == TSL_INDEXED) {
        EXPECT_EQ(src->color_model, (mode & 2) ? TSL_INDEXED : TSL_RGB);
      }
    }
  }
}

TEST(Deinterlace, SingleRowAndRectangleRows) {
  Pic one(MakePicture(TSL_RGB, 5, 1));
  Pic orig = one.clone();
  ASSERT_EQ(OpDeinterlace(&one, nullptr, nullptr, ints(1)), kOpDone);  // row 0 has no neighbour
  EXPECT_TRUE(SamePicture(one, orig));

  // Field parity counts picture rows, not rectangle rows.
  Pic src(MakePicture(TSL_GREY, 6, 8));
  Pic before = src.clone();
  OpRect r{1, 3, 3, 3};  // rows 3..5: odd rows 3 and 5 are replaced
  ASSERT_EQ(OpDeinterlace(&src, nullptr, &r, ints(2)), kOpDone);
  EXPECT_EQ(rawAt(src, 2, 3), rawAt(before, 2, 2));
  EXPECT_EQ(rawAt(src, 2, 4), rawAt(before, 2, 4));
  EXPECT_EQ(rawAt(src, 2, 5), rawAt(before, 2, 4));
}

// ---- Mosaic -------------------------------------------------------------------

TEST(Mosaic, BlocksTakeTheirMeanCutAtTheRectangle) {
  Pic src(MakePicture(TSL_RGBA, 10, 7, 9));
  Pic orig = src.clone();
  OpRect r{1, 1, 9, 5};
  ASSERT_EQ(OpMosaic(&src, nullptr, &r, ints(4)), kOpDone);
  for (int by = 1; by < 6; by += 4)
    for (int bx = 1; bx < 10; bx += 4) {
      const int bw = std::min(4, 10 - bx), bh = std::min(4, 6 - by);
      for (int c = 0; c < 4; ++c) {
        int sum = 0;
        for (int y = by; y < by + bh; ++y)
          for (int x = bx; x < bx + bw; ++x) sum += rawAt(orig, x, y)[c];
        const int n = bw * bh, mean = (sum + n / 2) / n;
        for (int y = by; y < by + bh; ++y)
          for (int x = bx; x < bx + bw; ++x) EXPECT_EQ(rawAt(src, x, y)[c], mean) << bx << "," << by;
      }
    }
  EXPECT_TRUE(sameOutside(src, orig, r));
}

TEST(Mosaic, BilevelMajorityAndIndexedColours) {
  Pic bits(MakePicture(TSL_BINARY, 4, 2));
  std::memset(bits->pixels, 0, bits->bytes_per_line * 2);
  uint8_t *row0 = bits->pixels;
  SetBit(row0, 0, 1);
  SetBit(row0, 1, 1);
  SetBit(row0, 2, 1);  // block 0..1: 2 of 4 white (tie -> white); block 2..3: 1 of 4
  ASSERT_EQ(OpMosaic(&bits, nullptr, nullptr, ints(2)), kOpDone);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 4; ++x) EXPECT_EQ(rawAt(bits, x, y)[0], x < 2 ? 1 : 0) << x << "," << y;

  Pic idx(MakePicture(TSL_INDEXED, 2, 2, 5, 4));
  Pic orig = idx.clone();
  ASSERT_EQ(OpMosaic(&idx, nullptr, nullptr, ints(2)), kOpDone);
  ASSERT_EQ(idx->color_model, TSL_RGB);
  for (int c = 0; c < 3; ++c) {
    int sum = 0;
    for (int y = 0; y < 2; ++y)
      for (int x = 0; x < 2; ++x) sum += colourAt(orig, x, y)[c];
    EXPECT_EQ(colourAt(idx, 1, 1)[c], (sum + 2) / 4);
  }
}

// ---- Slice, shear, tile, spread: pixels move, none is made ----------------------------

TEST(PixelMoves, SliceAndShearRotateEachRowSegment) {
  for (OpFunc fn : {OpSlice, OpShear}) {
    for (int model : {TSL_BINARY, TSL_INDEXED, TSL_BGR, TSL_ARGB}) {
      Pic src(MakePicture(model, 41, 37, 8));
      Pic orig = src.clone();
      OpRect r{3, 2, 30, 33};
      ASSERT_EQ(fn(&src, nullptr, &r, OpParams()), kOpDone);
      EXPECT_FALSE(SamePicture(src, orig));
      EXPECT_TRUE(sameOutside(src, orig, r));
      if (model == TSL_INDEXED) {
        EXPECT_EQ(std::memcmp(src->palette, orig->palette, 768), 0);
      }
      for (int y = r.y; y < r.y + r.height; ++y) {
        // The new segment is the old one rotated by some amount.
        std::vector<std::vector<uint8_t>> a, b;
        for (int x = r.x; x < r.x + r.width; ++x) {
          a.push_back(rawAt(orig, x, y));
          b.push_back(rawAt(src, x, y));
        }
        bool found = false;
        for (int s = 0; s < r.width && !found; ++s) {
          std::rotate(a.begin(), a.begin() + 1, a.end());
          found = a == b;
        }
        EXPECT_TRUE(found) << "row " << y;
      }
    }
  }
}

TEST(PixelMoves, ExactShiftsOfSliceAndShear) {
  // Column-coded rows (value 4 x) show each row's shift.  Shear: round(t / 10)
  // pixels to the right, t being twice the distance above the middle row.
  // Slice: strips of max(2, h / 16) rows go max(1, w / 20) pixels right and
  // left in turn.
  const OpRect r{2, 1, 48, 37};
  for (OpFunc fn : {OpShear, OpSlice}) {
    Pic src(MakePicture(TSL_GREY, 52, 40));
    for (uint32_t y = 0; y < 40; ++y)
      for (uint32_t x = 0; x < 52; ++x) RowOf(&src, y)[x] = static_cast<uint8_t>(x * 4);
    Pic orig = src.clone();
    ASSERT_EQ(fn(&src, nullptr, &r, OpParams()), kOpDone);
    for (int y = 0; y < r.height; ++y) {
      const int shift = fn == OpShear ? static_cast<int>(std::floor((r.height - 1 - 2 * y) / 10.0 + 0.5))
                                      : ((y / 2) % 2 ? -2 : 2);
      for (int x = 0; x < r.width; ++x)
        ASSERT_EQ(Px(src, r.x + x, r.y + y), Px(orig, r.x + ((x - shift) % r.width + r.width) % r.width, r.y + y))
            << (fn == OpShear ? "shear" : "slice") << " row " << y;
    }
    EXPECT_TRUE(sameOutside(src, orig, r));
  }
}

TEST(PixelMoves, TileRepeatsTheReducedPicture) {
  for (int model : {TSL_BINARY, TSL_GREY, TSL_INDEXED, TSL_RGBA}) {
    Pic src(MakePicture(model, 10, 9, 6));
    Pic orig = src.clone();
    OpRect r{1, 0, 8, 9};
    ASSERT_EQ(OpTile(&src, nullptr, &r, ints(3)), kOpDone);
    for (int y = 0; y < 9; ++y)
      for (int x = 0; x < 8; ++x)
        EXPECT_EQ(rawAt(src, 1 + x, y), rawAt(orig, 1 + (x * 3) % 8, (y * 3) % 9)) << x << "," << y;
    EXPECT_TRUE(sameOutside(src, orig, r));
  }
}

TEST(PixelMoves, SpreadIsASeededPermutation) {
  for (int model : kAllModels) {
    Pic src(MakePicture(model, 31, 19, 2));
    Pic orig = src.clone();
    OpRect r{2, 3, 25, 14};
    OpParams p = ints(4);
    p.seed = 77;
    Pic a, b, c;
    ASSERT_EQ(OpSpread(&src, &a, &r, p), kOpDone);
    ASSERT_EQ(OpSpread(&src, &b, &r, p), kOpDone);
    p.seed = 78;
    ASSERT_EQ(OpSpread(&src, &c, &r, p), kOpDone);
    EXPECT_TRUE(SamePicture(a, b));
    EXPECT_FALSE(SamePicture(a, c));
    EXPECT_FALSE(SamePicture(a, orig));
    EXPECT_EQ(pixelSet(a, r), pixelSet(orig, r)) << model;
    EXPECT_TRUE(sameOutside(a, orig, r));
  }
}

// ---- Oil painting -----------------------------------------------------------------

namespace {

// Direct (unoptimised) oil painting of one pixel, for comparison with the
// sliding histogram.
std::vector<uint8_t> oilAt(const TslPicture &p, int x, int y, int radius) {
  const int w = p.width, h = p.height;
  std::map<int, std::pair<int, std::vector<int>>> classes;
  for (int dy = -radius; dy <= radius; ++dy)
    for (int dx = -radius; dx <= radius; ++dx) {
      const int sx = std::clamp(x + dx, 0, w - 1), sy = std::clamp(y + dy, 0, h - 1);
      auto v = rawAt(p, sx, sy);
      int cls;
      if (p.color_model == TSL_INDEXED || p.color_model == TSL_BINARY) {
        cls = v[0];
      } else if (p.color_model == TSL_GREY) {
        cls = v[0] / 8;
      } else {
        auto c = colourAt(p, sx, sy);
        cls = (77 * c[0] + 150 * c[1] + 29 * c[2]) / 256 / 8;
      }
      auto &e = classes[cls];
      e.first++;
      e.second.resize(v.size());
      for (size_t i = 0; i < v.size(); ++i) e.second[i] += v[i];
    }
  int best = -1, count = 0;
  for (auto &kv : classes)
    if (kv.second.first > count) {
      best = kv.first;
      count = kv.second.first;
    }
  if (p.color_model == TSL_INDEXED || p.color_model == TSL_BINARY) return {static_cast<uint8_t>(best)};
  std::vector<uint8_t> out;
  for (int s : classes[best].second) out.push_back(static_cast<uint8_t>((s + count / 2) / count));
  return out;
}

}  // namespace

TEST(OilPainting, MatchesTheDirectDefinition) {
  for (int model : {TSL_GREY, TSL_INDEXED, TSL_BINARY, TSL_BGRA}) {
    for (int radius : {1, 3}) {
      Pic src(MakePicture(model, 19, 13, 3, 6));
      Pic orig = src.clone();
      OpRect r{2, 1, 15, 11};
      ASSERT_EQ(OpOilPainting(&src, nullptr, &r, ints(radius)), kOpDone);
      for (int y = r.y; y < r.y + r.height; ++y)
        for (int x = r.x; x < r.x + r.width; ++x)
          ASSERT_EQ(rawAt(src, x, y), oilAt(orig, x, y, radius)) << model << " r" << radius << " " << x << ","
                                                                      << y;
      EXPECT_TRUE(sameOutside(src, orig, r));
    }
  }
}

TEST(OilPainting, FlatPictureStaysFlat) {
  Pic src(MakePicture(TSL_RGB, 20, 20));
  std::memset(src->pixels, 90, src->bytes_per_line * 20);
  Pic orig = src.clone();
  ASSERT_EQ(OpOilPainting(&src, nullptr, nullptr, ints(16)), kOpDone);
  EXPECT_TRUE(SamePicture(src, orig));
}

// ---- Swirl, lens, waves -----------------------------------------------------------

namespace {

// Concentric rings around the picture centre, smooth enough for bilinear
// sampling to reproduce them.
Pic rings(int model, int size) {
  Pic p(MakePicture(model, size, size));
  const double c = (size - 1) / 2.0;
  for (int y = 0; y < size; ++y)
    for (int x = 0; x < size; ++x) {
      const double d = std::hypot(x - c, y - c);
      const uint8_t v = static_cast<uint8_t>(127.5 + 127.5 * std::cos(d / 3.0));
      uint8_t *px = p->pixels + y * p->bytes_per_line + x * p->bytes_per_pixel;
      for (int b = 0; b < p->bytes_per_pixel; ++b) px[b] = v;
    }
  return p;
}

}  // namespace

TEST(Distortions, SwirlTurnsRingsIntoThemselvesAndLeavesTheCorners) {
  Pic src = rings(TSL_GREY, 61);
  Pic orig = src.clone();
  ASSERT_EQ(OpSwirl(&src, nullptr, nullptr, ints(300)), kOpDone);
  double diff = 0;
  for (uint32_t y = 0; y < 61; ++y)
    for (uint32_t x = 0; x < 61; ++x) diff += std::abs(rawAt(src, x, y)[0] - rawAt(orig, x, y)[0]);
  EXPECT_LT(diff / (61 * 61), 4.0);  // rotation about the centre keeps rings
  EXPECT_EQ(rawAt(src, 0, 0), rawAt(orig, 0, 0));
  EXPECT_EQ(rawAt(src, 60, 60), rawAt(orig, 60, 60));

  // A picture that is not round changes, and really is turned: a vertical
  // bar through the centre leaves its place near the centre.
  Pic bar(MakePicture(TSL_GREY, 41, 41));
  std::memset(bar->pixels, 0, bar->bytes_per_line * 41);
  for (int y = 0; y < 41; ++y) bar->pixels[y * bar->bytes_per_line + 20] = 255;
  ASSERT_EQ(OpSwirl(&bar, nullptr, nullptr, ints(90)), kOpDone);
  EXPECT_EQ(bar->pixels[20 * bar->bytes_per_line + 20], 255);  // the centre stays
  EXPECT_LT(bar->pixels[14 * bar->bytes_per_line + 20], 128);  // above it the bar has turned away
}

TEST(Distortions, LensMagnifiesTheCentreOnly) {
  // A small white dot in the centre of a black square grows.
  for (int model : {TSL_GREY, TSL_INDEXED, TSL_BINARY, TSL_RGB}) {
    Pic src(MakePicture(model, 41, 41));
    std::memset(src->pixels, 0, src->bytes_per_line * 41);
    if (model == TSL_INDEXED) {
      src->palette[1] = src->palette[257] = src->palette[513] = 255;
      src->palette[0] = src->palette[256] = src->palette[512] = 0;
    }
    for (int y = 18; y <= 22; ++y)
      for (int x = 18; x <= 22; ++x) {
        uint8_t *row = src->pixels + y * src->bytes_per_line;
        if (model == TSL_BINARY) SetBit(row, x, 1);
        else if (model == TSL_INDEXED) row[x] = 1;
        else std::memset(row + x * src->bytes_per_pixel, 255, src->bytes_per_pixel);
      }
    Pic orig = src.clone();
    auto whiteCount = [](const TslPicture &p) {
      int n = 0;
      for (uint32_t y = 0; y < p.height; ++y)
        for (uint32_t x = 0; x < p.width; ++x) n += colourAt(p, x, y)[0] > 127;
      return n;
    };
    ASSERT_EQ(OpLens(&src, nullptr, nullptr, ints(100)), kOpDone);
    EXPECT_GT(whiteCount(src), 4 * whiteCount(orig)) << model;
    EXPECT_EQ(src->color_model, model);
    EXPECT_EQ(rawAt(src, 0, 0), rawAt(orig, 0, 0));
  }
  // On a wide rectangle only the circle inscribed in it (radius: half the
  // height) moves, for the lens and the swirl alike.
  for (OpFunc fn : {OpLens, OpSwirl}) {
    Pic wide(MakePicture(TSL_RGB, 60, 20, 4));
    Pic orig = wide.clone();
    ASSERT_EQ(fn(&wide, nullptr, nullptr, ints(90)), kOpDone);
    for (uint32_t y = 0; y < 20; ++y)
      for (uint32_t x = 0; x < 60; ++x)
        if (std::hypot(x - 29.5, y - 9.5) >= 10) {
          ASSERT_EQ(rawAt(wide, x, y), rawAt(orig, x, y)) << x << "," << y;
        }
    EXPECT_FALSE(SamePicture(wide, orig));
  }
}

TEST(Distortions, WavesMoveColumnsByTheAmplitude) {
  // Row-coded picture: value = 4 * row.  Length 100% with phase 90 puts a
  // crest (offset = +amount) on column 0 and a trough half-way across.
  Pic src(MakePicture(TSL_GREY, 40, 60));
  for (uint32_t y = 0; y < 60; ++y) std::memset(src->pixels + y * src->bytes_per_line, 4 * y, 40);
  ASSERT_EQ(OpWaves(&src, nullptr, nullptr, reals(100, 90, 5)), kOpDone);
  for (uint32_t y = 10; y < 50; ++y) {
    EXPECT_EQ(src->pixels[y * src->bytes_per_line + 0], 4 * (y - 5));
    EXPECT_EQ(src->pixels[y * src->bytes_per_line + 20], 4 * (y + 5));
    EXPECT_EQ(src->pixels[y * src->bytes_per_line + 10], 4 * y);  // zero crossing
  }
  // Edge rows repeat instead of reading outside.
  EXPECT_EQ(src->pixels[0], 0);
}
