// Geometry: quarter turns, flips, resize, canvas, crop, rotation by any
// angle, on every picture kind and on tiny and odd sizes.
#include <gtest/gtest.h>

#include "imgproc/geometry.h"
#include "imgproc/operations.h"
#include "test_util.h"

using namespace quilla;
using namespace testutil;

namespace {

const int kModels[] = {TSL_BINARY, TSL_GREY, TSL_INDEXED, TSL_RGB, TSL_RGBA, TSL_BGR, TSL_ABGR};

struct Size {
  uint32_t w, h;
};

// Colour of pixel (x, y) as 0xRRGGBB.
uint32_t ColourAt(const TslPicture &p, uint32_t x, uint32_t y) {
  std::vector<uint8_t> row(p.width * 4);
  tslGetRowRGBA(&p, y, row.data());
  return static_cast<uint32_t>(row[4 * x]) << 16 | row[4 * x + 1] << 8 | row[4 * x + 2];
}

OpParams Ints(int a, int b = 0, int c = 0, int d = 0) {
  OpParams p;
  p.i[0] = a, p.i[1] = b, p.i[2] = c, p.i[3] = d;
  return p;
}

}  // namespace

TEST(QuarterTurnsAndFlips, UndoThemselvesOnEveryKindAndSize) {
  for (int model : kModels)
    for (Size s : {Size{1, 1}, Size{1, 7}, Size{7, 1}, Size{13, 7}, Size{67, 130}, Size{129, 65}}) {
      SCOPED_TRACE(testing::Message() << "model " << model << " " << s.w << "x" << s.h);
      Pic src(MakePicture(model, s.w, s.h, 5));
      Pic a = src.clone(), b, c, h1, h2;
      for (int k = 0; k < 4; ++k) {
        ASSERT_EQ(OpRotate(&a, nullptr, nullptr, Ints(90)), 0);
        EXPECT_EQ(a->width, k % 2 ? s.w : s.h);
      }
      EXPECT_TRUE(SamePixels(src, a));
      ASSERT_EQ(RotateQuarters(&src, &b, 1), 0);
      ASSERT_EQ(RotateQuarters(&b, &c, -1), 0);
      EXPECT_TRUE(SamePixels(src, c));
      ASSERT_EQ(RotateQuarters(&src, &h1, 2), 0);
      ASSERT_EQ(RotateQuarters(&h1, &h2, 2), 0);
      EXPECT_TRUE(SamePixels(src, h2));
      // Both flips turn the picture half round; flipped back it is the same.
      ASSERT_EQ(OpFlipHorizontal(&a, nullptr, nullptr, OpParams()), 0);
      ASSERT_EQ(OpFlipVertical(&a, nullptr, nullptr, OpParams()), 0);
      EXPECT_EQ(ColourAt(a, 0, 0), ColourAt(src, s.w - 1, s.h - 1));
      EXPECT_TRUE(SamePixels(a, h1));
      ASSERT_EQ(OpFlipVertical(&a, nullptr, nullptr, OpParams()), 0);
      ASSERT_EQ(OpFlipHorizontal(&a, nullptr, nullptr, OpParams()), 0);
      EXPECT_TRUE(SamePixels(src, a));
    }
}

TEST(QuarterTurnsAndFlips, DirectionsAndRectangles) {
  Pic src(MakePicture(TSL_RGB, 5, 3, 2)), left, right, half, any, minus;
  ASSERT_EQ(RotateQuarters(&src, &left, 1), 0);
  ASSERT_EQ(RotateQuarters(&src, &right, 3), 0);
  ASSERT_EQ(RotateQuarters(&src, &half, 2), 0);
  // Counter-clockwise is positive: the top-right corner goes to the top-left
  // when turning left, the top-left corner to the top-right when turning right.
  EXPECT_EQ(ColourAt(left, 0, 0), ColourAt(src, 4, 0));
  EXPECT_EQ(ColourAt(left, 2, 4), ColourAt(src, 0, 2));
  EXPECT_EQ(ColourAt(right, 2, 0), ColourAt(src, 0, 0));
  EXPECT_EQ(ColourAt(half, 0, 0), ColourAt(src, 4, 2));
  // The any-angle rotation agrees on the direction.
  ASSERT_EQ(RotatePicture(&src, &any, 90.0, 0), 0);
  EXPECT_TRUE(SamePixels(any, left));
  ASSERT_EQ(RotatePicture(&src, &minus, -270.0, 0), 0);
  EXPECT_TRUE(SamePixels(minus, left));
  // A flip moves only the rectangle.
  Pic bits(MakePicture(TSL_BINARY, 21, 9, 3)), dst;
  const OpRect r{-4, 2, 10, 5}, outside{30, 30, 4, 4};  // r is clipped to columns 0..5, rows 2..6
  ASSERT_EQ(OpFlipHorizontal(&bits, &dst, &r, OpParams()), 0);
  for (uint32_t y = 0; y < 9; ++y)
    for (uint32_t x = 0; x < 21; ++x) {
      const bool inside = x <= 5 && y >= 2 && y <= 6;
      EXPECT_EQ(ColourAt(dst, x, y), ColourAt(bits, inside ? 5 - x : x, y)) << x << "," << y;
    }
  EXPECT_EQ(OpFlipVertical(&bits, nullptr, &outside, OpParams()), kOpEmptyRect);
}

TEST(Resize, SameSizeIsIdenticalAndKindsOfResults) {
  for (int model : kModels) {
    Pic src(MakePicture(model, 40, 20, 2)), quick, smooth;
    for (int method : {kResampleLinear, kResampleQuick, kResampleBicubic, kResampleLanczos}) {
      OpParams pct, px;
      pct.width_percent = pct.height_percent = 100;
      px.width = 40;
      px.height = 20;
      pct.resample = px.resample = static_cast<int16_t>(method);
      Pic a, b;
      ASSERT_EQ(OpResize(&src, &a, nullptr, pct), 0);
      ASSERT_EQ(OpResize(&src, &b, nullptr, px), 0);
      EXPECT_TRUE(SamePixels(src, a));
      EXPECT_TRUE(SamePixels(src, b));
    }
    ASSERT_EQ(ResizePicture(&src, &quick, 20, 10, kResampleQuick), 0);
    ASSERT_EQ(ResizePicture(&src, &smooth, 57, 33, kResampleBicubic), 0);
    EXPECT_EQ(quick->color_model, model);
    EXPECT_EQ(quick->width, 20u);
    EXPECT_EQ(smooth->height, 33u);
    EXPECT_EQ(smooth->color_model, model == TSL_BINARY ? TSL_GREY : model == TSL_INDEXED ? TSL_RGB : model);
    // Quick halving takes every other pixel.
    EXPECT_EQ(ColourAt(quick, 3, 4), ColourAt(src, 7, 9));
  }
}

// Halving with the linear filter weighs the four source pixels around each
// output 1/8, 3/8, 3/8, 1/8 on each axis (the triangle stretched to twice
// its width), rows first, each pass rounded half up.  Checked on the inner
// pixels (at the edges the clipped weights are renormalised) of a noisy
// picture with 1, 3 and 4 bytes per pixel, large enough to be split in
// bands across threads.
TEST(Resize, HalvingWeighsOneThreeThreeOne) {
  for (int model : {TSL_GREY, TSL_RGB, TSL_RGBA}) {
    for (Size s : {Size{40, 32}, Size{2000, 260}}) {
      SCOPED_TRACE(testing::Message() << model << " " << s.w << "x" << s.h);
      Pic src(MakePicture(model, s.w, s.h, 7));
      std::mt19937 rng(3);
      for (uint32_t y = 0; y < s.h; ++y)
        for (uint32_t i = 0; i < src->bytes_per_line; ++i)  // opaque: no premultiplied colour
          RowOf(&src, y)[i] = model == TSL_RGBA && i % 4 == 3 ? 255 : static_cast<uint8_t>(rng());
      Pic half;
      ASSERT_EQ(ResizePicture(&src, &half, s.w / 2, s.h / 2, kResampleLinear), 0);
      const int bpp = src->bytes_per_pixel;
      auto at = [&](uint32_t x, uint32_t y, int c) { return static_cast<int>(RowOf(&src, y)[x * bpp + c]); };
      int mismatches = 0;
      for (uint32_t y = 1; y + 1 < s.h / 2; ++y)
        for (uint32_t x = 1; x + 1 < s.w / 2; ++x)
          for (int c = 0; c < bpp; ++c) {
            int v[4];
            for (int k = 0; k < 4; ++k) {
              const uint32_t sx = 2 * x - 1 + static_cast<uint32_t>(k);
              v[k] = (at(sx, 2 * y - 1, c) + 3 * at(sx, 2 * y, c) + 3 * at(sx, 2 * y + 1, c) + at(sx, 2 * y + 2, c) + 4) / 8;
            }
            const int want = (v[0] + 3 * v[1] + 3 * v[2] + v[3] + 4) / 8;
            if (RowOf(&half, y)[x * bpp + c] != want && mismatches++ < 5)
              ADD_FAILURE() << "at " << x << "," << y << " channel " << c << ": " << int(RowOf(&half, y)[x * bpp + c])
                            << " instead of " << want;
          }
      EXPECT_EQ(mismatches, 0);
    }
  }
}

TEST(Resize, FlatStaysFlatAndShrinkingAveragesTheArea) {
  // A one-pixel checkerboard shrunk to a third: every output pixel covers
  // nine inputs, so the result is an even grey, not an aliased pattern.
  Pic check(MakePicture(TSL_GREY, 300, 210));
  for (uint32_t y = 0; y < 210; ++y)
    for (uint32_t x = 0; x < 300; ++x) RowOf(&check, y)[x] = ((x + y) & 1) ? 255 : 0;
  Pic flat(MakePicture(TSL_RGB, 40, 30, 1));
  for (uint32_t y = 0; y < 30; ++y)
    for (uint32_t x = 0; x < 40; ++x) std::memcpy(RowOf(&flat, y) + 3 * x, "\x10\x80\xf0", 3);
  for (int method : {kResampleLinear, kResampleBicubic, kResampleLanczos}) {
    SCOPED_TRACE(method);
    Pic small;
    ASSERT_EQ(ResizePicture(&check, &small, 100, 70, method), 0);
    for (uint32_t y = 0; y < 70; ++y)
      for (uint32_t x = 0; x < 100; ++x) EXPECT_NEAR(RowOf(&small, y)[x], 127.5, 30) << x << "," << y;
    // A flat colour stays that colour at any scale.
    for (Size s : {Size{7, 5}, Size{1, 1}, Size{97, 61}, Size{40, 1}}) {
      Pic out;
      ASSERT_EQ(ResizePicture(&flat, &out, s.w, s.h, method), 0);
      for (uint32_t y = 0; y < s.h; ++y)
        for (uint32_t x = 0; x < s.w; ++x) ASSERT_EQ(ColourAt(out, x, y), 0x1080f0u);
    }
  }
}

TEST(Resize, RatioAndDirectionSwitches) {
  Pic src(MakePicture(TSL_RGB, 200, 100, 3)), a, b, c, d;
  OpParams p;
  p.width = p.height = 50;
  p.keep_ratio = 1;
  ASSERT_EQ(OpResize(&src, &a, nullptr, p), 0);
  EXPECT_EQ(a->width, 50u);
  EXPECT_EQ(a->height, 25u);
  p.keep_ratio = 0;
  p.width = 400;
  p.height = 0;  // follows the width
  ASSERT_EQ(OpResize(&src, &b, nullptr, p), 0);
  EXPECT_EQ(b->height, 200u);
  p.only_decrease = 1;
  ASSERT_EQ(OpResize(&src, &c, nullptr, p), 0);
  EXPECT_TRUE(SamePixels(src, c));
  p.only_decrease = 0;
  p.only_increase = 1;
  p.width = 100;
  ASSERT_EQ(OpResize(&src, &d, nullptr, p), 0);
  EXPECT_TRUE(SamePixels(src, d));
  EXPECT_EQ(OpResize(&src, nullptr, nullptr, OpParams()), kOpEmptyRect);
  OpParams pct;
  pct.width_percent = 50;
  pct.height_percent = 25;
  ASSERT_EQ(OpResize(&src, nullptr, nullptr, pct), 0);  // in place
  EXPECT_EQ(src->width, 100u);
  EXPECT_EQ(src->height, 25u);
}

// Against an independent reference: ImageMagick's resize of the same
// picture to half size with the matching filters.
TEST(Resize, CloseToImageMagick) {
  if (!HaveTool("convert")) GTEST_SKIP() << "ImageMagick not installed";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 120, 90, 4));
  WritePpm(dir.file("in.ppm"), src);
  const std::pair<int, const char *> cases[] = {
      {kResampleLinear, "Triangle"}, {kResampleBicubic, "Catrom"}, {kResampleLanczos, "Lanczos"}};
  for (const auto &c : cases) {
    const std::string out = dir.file(std::string(c.second) + ".ppm");
    ASSERT_EQ(testutil::Run("convert '" + dir.file("in.ppm") + "' -filter " + c.second + " -resize 60x45! '" + out + "'"),
              0);
    Pic ref, ours;
    ASSERT_TRUE(ReadPnm(out, &ref));
    ASSERT_EQ(ResizePicture(&src, &ours, 60, 45, c.first), 0);
    EXPECT_LT(MeanAbsDiff(ref, ours), 1.0) << c.second;
  }
}

TEST(Resize, ExtremeRatiosAndTransparentPixels) {
  // A long gradient shrunk to one pixel averages it; one pixel grown stays flat.
  Pic line(MakePicture(TSL_GREY, 3000, 2, 1));
  double sum = 0;
  for (uint32_t y = 0; y < 2; ++y)
    for (uint32_t x = 0; x < 3000; ++x) sum += RowOf(&line, y)[x];
  for (int method : {kResampleLinear, kResampleBicubic, kResampleLanczos, kResampleQuick}) {
    Pic dot, back;
    ASSERT_EQ(ResizePicture(&line, &dot, 1, 1, method), 0);
    if (method != kResampleQuick) {
      EXPECT_NEAR(RowOf(&dot, 0)[0], sum / 6000, 1.0) << method;
    }
    ASSERT_EQ(ResizePicture(&dot, &back, 50, 70, method), 0);
    for (uint32_t y = 0; y < 70; ++y)
      for (uint32_t x = 0; x < 50; ++x) ASSERT_EQ(RowOf(&back, y)[x], RowOf(&dot, 0)[0]);
  }
  Pic small(MakePicture(TSL_RGB, 5, 3, 1)), none;
  EXPECT_EQ(ResizePicture(&small, &none, 0, 3, kResampleLinear), kOpEmptyRect);
  // Transparent pixels lend no colour: left half transparent red, right half opaque green.
  Pic src(MakePicture(TSL_RGBA, 40, 10, 1));
  for (uint32_t y = 0; y < 10; ++y)
    for (uint32_t x = 0; x < 40; ++x) std::memcpy(RowOf(&src, y) + 4 * x, x < 20 ? "\xff\0\0\0" : "\0\xff\0\xff", 4);
  for (int method : {kResampleLinear, kResampleBicubic, kResampleLanczos}) {
    Pic out;
    ASSERT_EQ(ResizePicture(&src, &out, 13, 10, method), 0);
    for (uint32_t x = 0; x < 13; ++x) {
      const uint8_t *px = RowOf(&out, 5) + 4 * x;
      if (px[3] > 0) {
        EXPECT_EQ(px[0], 0) << x;
        EXPECT_EQ(px[1], 255) << x;
      }
    }
  }
}

TEST(CanvasCropAndDpi, GrowThenCropBackAndBackgrounds) {
  for (int model : kModels)
    for (Size s : {Size{1, 1}, Size{13, 7}, Size{40, 21}}) {
      SCOPED_TRACE(testing::Message() << "model " << model << " " << s.w << "x" << s.h);
      Pic src(MakePicture(model, s.w, s.h, 9)), big, big2, back;
      OpParams p;
      p.width = static_cast<int32_t>(s.w + 7);
      p.height = static_cast<int32_t>(s.h + 4);
      p.background = 0x2050e0;
      ASSERT_EQ(OpCanvas(&src, &big, nullptr, p), 0);
      EXPECT_EQ(big->color_model, model);
      if (model != TSL_INDEXED) {
        EXPECT_EQ(ColourAt(big, 0, 0), model == TSL_BINARY ? 0xffffffu : model == TSL_GREY ? 0x525252u : 0x2050e0u);
      }
      ASSERT_EQ(OpCrop(&big, nullptr, nullptr, Ints(3, 2, s.w, s.h)), 0);
      EXPECT_TRUE(SamePixels(src, big));
      // A canvas back to the original size crops around the centre too.
      ASSERT_EQ(CanvasPicture(&src, &big2, s.w + 7, s.h + 4, 0), 0);
      ASSERT_EQ(CanvasPicture(&big2, &back, s.w, s.h, 0), 0);
      EXPECT_TRUE(SamePixels(src, back));
    }
  // An indexed picture takes the nearest palette entry for the background.
  Pic idx(MakePicture(TSL_INDEXED, 4, 4, 2, 3)), out;
  std::memcpy(idx->palette, "\0\xfa\xff", 3);
  std::memcpy(idx->palette + 256, "\0\x0a\xff", 3);
  std::memcpy(idx->palette + 512, "\0\x0a\xff", 3);
  ASSERT_EQ(CanvasPicture(&idx, &out, 8, 8, 0xff0000), 0);
  EXPECT_EQ(RowOf(&out, 0)[0], 1);
  EXPECT_EQ(out->colors, 3);
}

TEST(CanvasCropAndDpi, ClippingEmptyRectanglesAndDpi) {
  Pic src(MakePicture(TSL_BINARY, 20, 10, 1)), out;
  ASSERT_EQ(OpCrop(&src, &out, nullptr, Ints(-5, 8, 12, 100)), 0);
  EXPECT_EQ(out->width, 7u);
  EXPECT_EQ(out->height, 2u);
  for (uint32_t x = 0; x < 7; ++x) EXPECT_EQ(ColourAt(out, x, 1), ColourAt(src, x, 9));
  EXPECT_EQ(OpCrop(&src, nullptr, nullptr, Ints(20, 0, 5, 5)), kOpEmptyRect);
  EXPECT_EQ(OpCrop(&src, nullptr, nullptr, Ints(0, 0, 0, 5)), kOpEmptyRect);
  EXPECT_EQ(src->width, 20u);
  // Set DPI writes the attribute pair.
  Pic grey(MakePicture(TSL_GREY, 3, 3)), dpi;
  ASSERT_EQ(OpSetDpi(&grey, &dpi, nullptr, Ints(300, 150)), 0);
  EXPECT_EQ(dpi->attr_pair[0], 300u);
  EXPECT_EQ(dpi->attr_pair[1], 150u);
  EXPECT_EQ(grey->attr_pair[0], 0u);
  ASSERT_EQ(OpSetDpi(&grey, nullptr, nullptr, Ints(300, 150)), 0);
  EXPECT_EQ(grey->attr_pair[1], 150u);
  EXPECT_EQ(OpSetDpi(&grey, nullptr, nullptr, Ints(-1, 150)), kOpEmptyRect);
}

TEST(Rotate, AnyAngleGrowsTheCanvasAndKeepsTheInside) {
  for (int model : kModels) {
    SCOPED_TRACE(model);
    // Flat, so the inside of the turned picture is exactly known.
    Pic src(MakePicture(model, 60, 40, 3)), out;
    Fill(src, model == TSL_BINARY ? 0xff : 1);
    OpParams p = Ints(17);
    p.background = 0x102030;
    ASSERT_EQ(OpRotate(&src, &out, nullptr, p), 0);
    EXPECT_EQ(out->width, 70u);   // ceil(60 cos 17 + 40 sin 17) = ceil(69.07)
    EXPECT_EQ(out->height, 56u);  // ceil(60 sin 17 + 40 cos 17) = ceil(55.79)
    EXPECT_EQ(out->color_model, model == TSL_BINARY ? TSL_GREY : model == TSL_INDEXED ? TSL_RGB : model);
    EXPECT_EQ(ColourAt(out, 35, 28), ColourAt(src, 0, 0));
    const uint32_t bg = model == TSL_BINARY || model == TSL_GREY ? 0x1d1d1d : 0x102030;
    EXPECT_EQ(ColourAt(out, 0, 0), bg);
    EXPECT_EQ(ColourAt(out, 69, 55), bg);
  }
}

TEST(Rotate, TinyPicturesAndNegativeAngles) {
  for (Size s : {Size{1, 1}, Size{1, 9}, Size{9, 1}}) {
    Pic src(MakePicture(TSL_RGB, s.w, s.h, 1));
    for (int angle : {-180, -45, -1, 1, 45, 135, 180}) {
      Pic out;
      ASSERT_EQ(OpRotate(&src, &out, nullptr, Ints(angle)), 0) << angle;
      EXPECT_GE(out->width, 1u);
    }
  }
  // Turning by -a undoes +a near the centre.
  Pic src(MakePicture(TSL_GREY, 80, 80, 2)), a, b;
  ASSERT_EQ(RotatePicture(&src, &a, 30, 0), 0);
  ASSERT_EQ(RotatePicture(&a, &b, -30, 0), 0);
  const uint32_t ox = (b->width - 80) / 2, oy = (b->height - 80) / 2;
  double diff = 0;
  for (uint32_t y = 30; y < 50; ++y)
    for (uint32_t x = 30; x < 50; ++x) diff += std::abs(RowOf(&b, y + oy)[x + ox] - RowOf(&src, y)[x]);
  EXPECT_LT(diff / 400, 6.0);
}
