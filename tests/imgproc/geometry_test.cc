// Geometry: quarter turns, flips, resize, canvas, crop, rotation by any
// angle, on every picture kind and on tiny and odd sizes.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "imgproc/geometry.h"
#include "imgproc/operations.h"
#include "test_util.h"

using namespace quilla;
using testutil::MakePicture;
using testutil::SamePixels;

namespace {

struct Pic {
  TslPicture p;
  Pic() { std::memset(&p, 0, sizeof p); }
  explicit Pic(const TslPicture &q) : p(q) {}
  ~Pic() {
    if (p.pixels) tslFree(&p);
  }
  Pic(const Pic &) = delete;
  Pic &operator=(const Pic &) = delete;
  TslPicture *operator->() { return &p; }
};

const int kModels[] = {TSL_BINARY, TSL_GREY, TSL_INDEXED, TSL_RGB, TSL_RGBA, TSL_BGR, TSL_ABGR};

struct Size {
  uint32_t w, h;
};
const Size kSizes[] = {{1, 1}, {1, 7}, {7, 1}, {13, 7}, {67, 130}, {129, 65}};

std::string Name(int model, Size s) {
  return "model " + std::to_string(model) + " " + std::to_string(s.w) + "x" + std::to_string(s.h);
}

// Colour of pixel (x, y) as 0xRRGGBB.
uint32_t ColourAt(const TslPicture &p, uint32_t x, uint32_t y) {
  std::vector<uint8_t> row(p.width * 4);
  tslGetRowRGBA(&p, y, row.data());
  return static_cast<uint32_t>(row[4 * x]) << 16 | row[4 * x + 1] << 8 | row[4 * x + 2];
}

TslPicture Checker(uint32_t w, uint32_t h) {
  TslPicture p;
  std::memset(&p, 0, sizeof p);
  tslAllock(&p, TSL_GREY, 0, w, h);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) RowOf(&p, y)[x] = ((x + y) & 1) ? 255 : 0;
  return p;
}

}  // namespace

TEST(RotateQuarters, FourTurnsAndBackAgainAreIdentity) {
  for (int model : kModels)
    for (Size s : kSizes) {
      SCOPED_TRACE(Name(model, s));
      Pic src(MakePicture(model, s.w, s.h, 5));
      Pic a;
      ASSERT_EQ(tslCopyPicture(&a.p, &src.p), 0);
      OpParams p;
      p.i[0] = 90;
      for (int k = 0; k < 4; ++k) {
        ASSERT_EQ(OpRotate(&a.p, nullptr, nullptr, p), 0);
        EXPECT_EQ(a->width, k % 2 ? s.w : s.h);
      }
      EXPECT_TRUE(SamePixels(src.p, a.p));
      Pic b, c;
      ASSERT_EQ(RotateQuarters(&src.p, &b.p, 1), 0);
      ASSERT_EQ(RotateQuarters(&b.p, &c.p, -1), 0);
      EXPECT_TRUE(SamePixels(src.p, c.p));
      Pic h1, h2;
      ASSERT_EQ(RotateQuarters(&src.p, &h1.p, 2), 0);
      ASSERT_EQ(RotateQuarters(&h1.p, &h2.p, 2), 0);
      EXPECT_TRUE(SamePixels(src.p, h2.p));
    }
}

TEST(RotateQuarters, CounterClockwiseIsPositive) {
  Pic src(MakePicture(TSL_RGB, 5, 3, 2));
  Pic left, right, half;
  ASSERT_EQ(RotateQuarters(&src.p, &left.p, 1), 0);
  ASSERT_EQ(RotateQuarters(&src.p, &right.p, 3), 0);
  ASSERT_EQ(RotateQuarters(&src.p, &half.p, 2), 0);
  // The top-right corner goes to the top-left when turning left, the
  // top-left corner to the top-right when turning right.
  EXPECT_EQ(ColourAt(left.p, 0, 0), ColourAt(src.p, 4, 0));
  EXPECT_EQ(ColourAt(left.p, 2, 4), ColourAt(src.p, 0, 2));
  EXPECT_EQ(ColourAt(right.p, 2, 0), ColourAt(src.p, 0, 0));
  EXPECT_EQ(ColourAt(half.p, 0, 0), ColourAt(src.p, 4, 2));
  // The any-angle rotation agrees on the direction.
  Pic any;
  ASSERT_EQ(RotatePicture(&src.p, &any.p, 90.0, 0), 0);
  EXPECT_TRUE(SamePixels(any.p, left.p));
  Pic minus;
  ASSERT_EQ(RotatePicture(&src.p, &minus.p, -270.0, 0), 0);
  EXPECT_TRUE(SamePixels(minus.p, left.p));
}

TEST(Flip, TwiceIsIdentityAndOnlyTheRectangleMoves) {
  for (int model : kModels)
    for (Size s : kSizes) {
      SCOPED_TRACE(Name(model, s));
      Pic src(MakePicture(model, s.w, s.h, 6)), a;
      ASSERT_EQ(tslCopyPicture(&a.p, &src.p), 0);
      OpParams p;
      ASSERT_EQ(OpFlipHorizontal(&a.p, nullptr, nullptr, p), 0);
      ASSERT_EQ(OpFlipVertical(&a.p, nullptr, nullptr, p), 0);
      if (s.w > 1) {
        EXPECT_EQ(ColourAt(a.p, 0, 0), ColourAt(src.p, s.w - 1, s.h - 1));
      }
      ASSERT_EQ(OpFlipVertical(&a.p, nullptr, nullptr, p), 0);
      ASSERT_EQ(OpFlipHorizontal(&a.p, nullptr, nullptr, p), 0);
      EXPECT_TRUE(SamePixels(src.p, a.p));
    }
  Pic src(MakePicture(TSL_BINARY, 21, 9, 3)), dst;
  const OpRect r{-4, 2, 10, 5};  // clipped to columns 0..5, rows 2..6
  ASSERT_EQ(OpFlipHorizontal(&src.p, &dst.p, &r, OpParams()), 0);
  for (uint32_t y = 0; y < 9; ++y)
    for (uint32_t x = 0; x < 21; ++x) {
      const bool inside = x <= 5 && y >= 2 && y <= 6;
      EXPECT_EQ(ColourAt(dst.p, x, y), ColourAt(src.p, inside ? 5 - x : x, y)) << x << "," << y;
    }
  const OpRect outside{30, 30, 4, 4};
  EXPECT_EQ(OpFlipVertical(&src.p, nullptr, &outside, OpParams()), kOpEmptyRect);
}

TEST(Resize, SameSizeIsIdentical) {
  for (int model : kModels) {
    Pic src(MakePicture(model, 31, 17, 2));
    for (int method : {kResampleLinear, kResampleQuick, kResampleBicubic, kResampleLanczos}) {
      OpParams p;
      p.width_percent = p.height_percent = 100;
      p.resample = static_cast<int16_t>(method);
      Pic out;
      ASSERT_EQ(OpResize(&src.p, &out.p, nullptr, p), 0);
      EXPECT_TRUE(SamePixels(src.p, out.p));
      OpParams q;
      q.width = 31;
      q.height = 17;
      q.resample = p.resample;
      Pic out2;
      ASSERT_EQ(OpResize(&src.p, &out2.p, nullptr, q), 0);
      EXPECT_TRUE(SamePixels(src.p, out2.p));
    }
  }
}

TEST(Resize, FlatStaysFlatAndShrinkingAveragesTheArea) {
  for (int method : {kResampleLinear, kResampleBicubic, kResampleLanczos}) {
    SCOPED_TRACE(method);
    // A one-pixel checkerboard shrunk to a third: every output pixel covers
    // nine inputs, so the result is an even grey, not an aliased pattern.
    Pic check(Checker(300, 210)), small;
    ASSERT_EQ(ResizePicture(&check.p, &small.p, 100, 70, method), 0);
    for (uint32_t y = 0; y < 70; ++y)
      for (uint32_t x = 0; x < 100; ++x) EXPECT_NEAR(RowOf(&small.p, y)[x], 127.5, 30) << x << "," << y;
    // A flat colour stays that colour at any scale.
    Pic flat(MakePicture(TSL_RGB, 40, 30, 1));
    for (uint32_t y = 0; y < 30; ++y)
      for (uint32_t x = 0; x < 40; ++x) std::memcpy(RowOf(&flat.p, y) + 3 * x, "\x10\x80\xf0", 3);
    for (Size s : {Size{7, 5}, Size{1, 1}, Size{97, 61}, Size{40, 1}}) {
      Pic out;
      ASSERT_EQ(ResizePicture(&flat.p, &out.p, s.w, s.h, method), 0);
      for (uint32_t y = 0; y < s.h; ++y)
        for (uint32_t x = 0; x < s.w; ++x) ASSERT_EQ(ColourAt(out.p, x, y), 0x1080f0u);
    }
  }
}

TEST(Resize, KindsOfResults) {
  for (int model : kModels) {
    Pic src(MakePicture(model, 40, 20, 4));
    Pic quick, smooth;
    ASSERT_EQ(ResizePicture(&src.p, &quick.p, 20, 10, kResampleQuick), 0);
    ASSERT_EQ(ResizePicture(&src.p, &smooth.p, 57, 33, kResampleBicubic), 0);
    EXPECT_EQ(quick->color_model, model);
    EXPECT_EQ(quick->width, 20u);
    EXPECT_EQ(smooth->height, 33u);
    const int expect = model == TSL_BINARY ? TSL_GREY : model == TSL_INDEXED ? TSL_RGB : model;
    EXPECT_EQ(smooth->color_model, expect);
    // Quick halving takes every other pixel.
    EXPECT_EQ(ColourAt(quick.p, 3, 4), ColourAt(src.p, 7, 9));
  }
}

TEST(Resize, RatioAndDirectionSwitches) {
  Pic src(MakePicture(TSL_RGB, 200, 100, 3));
  OpParams p;
  p.width = 50;
  p.height = 50;
  p.keep_ratio = 1;
  Pic a;
  ASSERT_EQ(OpResize(&src.p, &a.p, nullptr, p), 0);
  EXPECT_EQ(a->width, 50u);
  EXPECT_EQ(a->height, 25u);

  p.keep_ratio = 0;
  p.width = 400;
  p.height = 0;  // follows the width
  Pic b;
  ASSERT_EQ(OpResize(&src.p, &b.p, nullptr, p), 0);
  EXPECT_EQ(b->height, 200u);

  p.only_decrease = 1;
  Pic c;
  ASSERT_EQ(OpResize(&src.p, &c.p, nullptr, p), 0);
  EXPECT_TRUE(SamePixels(src.p, c.p));
  p.only_decrease = 0;
  p.only_increase = 1;
  p.width = 100;
  Pic d;
  ASSERT_EQ(OpResize(&src.p, &d.p, nullptr, p), 0);
  EXPECT_TRUE(SamePixels(src.p, d.p));

  OpParams none;
  EXPECT_EQ(OpResize(&src.p, nullptr, nullptr, none), kOpEmptyRect);
  OpParams pct;
  pct.width_percent = 50;
  pct.height_percent = 25;
  ASSERT_EQ(OpResize(&src.p, nullptr, nullptr, pct), 0);  // in place
  EXPECT_EQ(src->width, 100u);
  EXPECT_EQ(src->height, 25u);
}

// Against an independent reference: ImageMagick's triangle-filter resize of
// the same picture to half size.
TEST(Resize, CloseToImageMagick) {
  if (!testutil::HaveTool("convert")) GTEST_SKIP() << "ImageMagick not installed";
  testutil::TempDir dir;
  Pic src(MakePicture(TSL_RGB, 120, 90, 4));
  std::string ppm = "P6\n120 90\n255\n";
  for (uint32_t y = 0; y < 90; ++y) ppm.append(reinterpret_cast<const char *>(RowOf(&src.p, y)), 120 * 3);
  testutil::WriteFile(dir.file("in.ppm"), ppm);
  struct {
    int method;
    const char *filter;
  } cases[] = {{kResampleLinear, "Triangle"}, {kResampleBicubic, "Catrom"}, {kResampleLanczos, "Lanczos"}};
  for (auto c : cases) {
    const std::string out = dir.file(std::string(c.filter) + ".ppm");
    ASSERT_EQ(testutil::Run("convert '" + dir.file("in.ppm") + "' -filter " + c.filter + " -resize 60x45! '" + out + "'"), 0);
    Pic ref, ours;
    ASSERT_TRUE(testutil::ReadPnm(out, &ref.p));
    ASSERT_EQ(ResizePicture(&src.p, &ours.p, 60, 45, c.method), 0);
    EXPECT_LT(testutil::MeanAbsDiff(ref.p, ours.p), 1.0) << c.filter;
  }
}

TEST(Canvas, GrowThenCropBackAndBackgrounds) {
  for (int model : kModels)
    for (Size s : {Size{1, 1}, Size{13, 7}, Size{40, 21}}) {
      SCOPED_TRACE(Name(model, s));
      Pic src(MakePicture(model, s.w, s.h, 9));
      OpParams p;
      p.width = static_cast<int32_t>(s.w + 7);
      p.height = static_cast<int32_t>(s.h + 4);
      p.background = 0x2050e0;
      Pic big;
      ASSERT_EQ(OpCanvas(&src.p, &big.p, nullptr, p), 0);
      EXPECT_EQ(big->color_model, model);
      const uint32_t corner = ColourAt(big.p, 0, 0);
      const uint32_t want = model == TSL_BINARY ? 0xffffffu : model == TSL_GREY ? 0x525252u : 0x2050e0u;
      if (model != TSL_INDEXED) {
        EXPECT_EQ(corner, want);
      }
      OpParams c;
      c.i[0] = 3;
      c.i[1] = 2;
      c.i[2] = static_cast<int32_t>(s.w);
      c.i[3] = static_cast<int32_t>(s.h);
      ASSERT_EQ(OpCrop(&big.p, nullptr, nullptr, c), 0);
      EXPECT_TRUE(SamePixels(src.p, big.p));
      // A canvas back to the original size crops around the centre too.
      Pic big2, back;
      ASSERT_EQ(CanvasPicture(&src.p, &big2.p, s.w + 7, s.h + 4, 0), 0);
      ASSERT_EQ(CanvasPicture(&big2.p, &back.p, s.w, s.h, 0), 0);
      EXPECT_TRUE(SamePixels(src.p, back.p));
    }
}

TEST(Canvas, IndexedTakesTheNearestPaletteEntry) {
  Pic src(MakePicture(TSL_INDEXED, 4, 4, 2, 3));
  src->palette[0] = 0, src->palette[256] = 0, src->palette[512] = 0;
  src->palette[1] = 250, src->palette[257] = 10, src->palette[513] = 10;
  src->palette[2] = 255, src->palette[258] = 255, src->palette[514] = 255;
  Pic out;
  ASSERT_EQ(CanvasPicture(&src.p, &out.p, 8, 8, 0xff0000), 0);
  EXPECT_EQ(RowOf(&out.p, 0)[0], 1);
  EXPECT_EQ(out->colors, 3);
}

TEST(Crop, ClippingAndEmptyRectangles) {
  Pic src(MakePicture(TSL_BINARY, 20, 10, 1));
  OpParams p;
  p.i[0] = -5, p.i[1] = 8, p.i[2] = 12, p.i[3] = 100;
  Pic out;
  ASSERT_EQ(OpCrop(&src.p, &out.p, nullptr, p), 0);
  EXPECT_EQ(out->width, 7u);
  EXPECT_EQ(out->height, 2u);
  for (uint32_t x = 0; x < 7; ++x) EXPECT_EQ(ColourAt(out.p, x, 1), ColourAt(src.p, x, 9));
  p.i[0] = 20, p.i[1] = 0, p.i[2] = 5, p.i[3] = 5;
  EXPECT_EQ(OpCrop(&src.p, nullptr, nullptr, p), kOpEmptyRect);
  p.i[0] = 0, p.i[2] = 0;
  EXPECT_EQ(OpCrop(&src.p, nullptr, nullptr, p), kOpEmptyRect);
  EXPECT_EQ(src->width, 20u);
}

TEST(SetDpi, WritesTheAttributePair) {
  Pic src(MakePicture(TSL_GREY, 3, 3)), out;
  OpParams p;
  p.i[0] = 300, p.i[1] = 150;
  ASSERT_EQ(OpSetDpi(&src.p, &out.p, nullptr, p), 0);
  EXPECT_EQ(out->attr_pair[0], 300u);
  EXPECT_EQ(out->attr_pair[1], 150u);
  EXPECT_EQ(src->attr_pair[0], 0u);
  ASSERT_EQ(OpSetDpi(&src.p, nullptr, nullptr, p), 0);
  EXPECT_EQ(src->attr_pair[1], 150u);
  p.i[0] = -1;
  EXPECT_EQ(OpSetDpi(&src.p, nullptr, nullptr, p), kOpEmptyRect);
}

TEST(Rotate, AnyAngleGrowsTheCanvasAndKeepsTheInside) {
  for (int model : kModels) {
    SCOPED_TRACE(model);
    Pic src(MakePicture(model, 60, 40, 3));
    // Make it flat so the inside of the turned picture is exactly known.
    for (uint32_t y = 0; y < 40; ++y) std::memset(RowOf(&src.p, y), model == TSL_BINARY ? 0xff : 1, src->bytes_per_line);
    const uint32_t inside = ColourAt(src.p, 0, 0);
    OpParams p;
    p.i[0] = 17;
    p.background = 0x102030;
    Pic out;
    ASSERT_EQ(OpRotate(&src.p, &out.p, nullptr, p), 0);
    EXPECT_EQ(out->width, 70u);   // ceil(60 cos 17 + 40 sin 17) = ceil(69.07)
    EXPECT_EQ(out->height, 56u);  // ceil(60 sin 17 + 40 cos 17) = ceil(55.79)
    EXPECT_EQ(out->color_model, model == TSL_BINARY ? TSL_GREY : model == TSL_INDEXED ? TSL_RGB : model);
    EXPECT_EQ(ColourAt(out.p, 35, 28), inside);
    const uint32_t bg = model == TSL_BINARY || model == TSL_GREY ? 0x1d1d1d : 0x102030;
    EXPECT_EQ(ColourAt(out.p, 0, 0), bg);
    EXPECT_EQ(ColourAt(out.p, 69, 55), bg);
  }
}

TEST(Rotate, TinyPicturesAndNegativeAngles) {
  for (Size s : {Size{1, 1}, Size{1, 9}, Size{9, 1}}) {
    Pic src(MakePicture(TSL_RGB, s.w, s.h, 1));
    for (int angle : {-180, -45, -1, 1, 45, 135, 180}) {
      OpParams p;
      p.i[0] = angle;
      Pic out;
      ASSERT_EQ(OpRotate(&src.p, &out.p, nullptr, p), 0) << angle;
      EXPECT_GE(out->width, 1u);
    }
  }
  // Turning by -a undoes +a near the centre.
  Pic src(MakePicture(TSL_GREY, 80, 80, 2)), a, b;
  ASSERT_EQ(RotatePicture(&src.p, &a.p, 30, 0), 0);
  ASSERT_EQ(RotatePicture(&a.p, &b.p, -30, 0), 0);
  const uint32_t ox = (b->width - 80) / 2, oy = (b->height - 80) / 2;
  double diff = 0;
  for (uint32_t y = 30; y < 50; ++y)
    for (uint32_t x = 30; x < 50; ++x) diff += std::abs(RowOf(&b.p, y + oy)[x + ox] - RowOf(&src.p, y)[x]);
  EXPECT_LT(diff / 400, 6.0);
}

TEST(Resize, ExtremeRatiosKeepTheMean) {
  // A long gradient shrunk to one pixel averages it; one pixel grown stays flat.
  Pic line(MakePicture(TSL_GREY, 3000, 2, 1));
  double sum = 0;
  for (uint32_t y = 0; y < 2; ++y)
    for (uint32_t x = 0; x < 3000; ++x) sum += RowOf(&line.p, y)[x];
  for (int method : {kResampleLinear, kResampleBicubic, kResampleLanczos, kResampleQuick}) {
    Pic dot, back;
    ASSERT_EQ(ResizePicture(&line.p, &dot.p, 1, 1, method), 0);
    if (method != kResampleQuick) {
      EXPECT_NEAR(RowOf(&dot.p, 0)[0], sum / 6000, 1.0) << method;
    }
    ASSERT_EQ(ResizePicture(&dot.p, &back.p, 50, 70, method), 0);
    for (uint32_t y = 0; y < 70; ++y)
      for (uint32_t x = 0; x < 50; ++x) ASSERT_EQ(RowOf(&back.p, y)[x], RowOf(&dot.p, 0)[0]);
  }
  Pic src(MakePicture(TSL_RGB, 5, 3, 1)), out;
  EXPECT_EQ(ResizePicture(&src.p, &out.p, 0, 3, kResampleLinear), kOpEmptyRect);
}

TEST(Resize, TransparentPixelsLendNoColour) {
  // Left half transparent red, right half opaque green.
  Pic src(MakePicture(TSL_RGBA, 40, 10, 1));
  for (uint32_t y = 0; y < 10; ++y)
    for (uint32_t x = 0; x < 40; ++x) std::memcpy(RowOf(&src.p, y) + 4 * x, x < 20 ? "\xff\0\0\0" : "\0\xff\0\xff", 4);
  for (int method : {kResampleLinear, kResampleBicubic, kResampleLanczos}) {
    Pic out;
    ASSERT_EQ(ResizePicture(&src.p, &out.p, 13, 10, method), 0);
    for (uint32_t x = 0; x < 13; ++x) {
      const uint8_t *px = RowOf(&out.p, 5) + 4 * x;
      if (px[3] > 0) {
        EXPECT_EQ(px[0], 0) << x;
        EXPECT_EQ(px[1], 255) << x;
      }
    }
  }
}
