// Colour conversions: kinds and counts promised by every conversion code,
// exactness for few colours, dithering keeping the mean, screens, alpha.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "imgproc/convert.h"
#include "imgproc/operations.h"
#include "test_util.h"

using namespace quilla;
using namespace testutil;

namespace {

// A picture of one model with every byte v.
TslPicture Flat(int model, uint32_t w, uint32_t h, int v) {
  TslPicture p = MakePicture(model, w, h);
  Fill(p, v);
  return p;
}

// A true-colour picture using exactly `n` distinct colours.
TslPicture FewColours(int n, uint32_t w, uint32_t h) {
  TslPicture p = MakePicture(TSL_RGB, w, h, 7);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      const int k = static_cast<int>((x * 7 + y * 13) % static_cast<uint32_t>(n));
      uint8_t *d = p.pixels + y * p.bytes_per_line + x * 3;
      d[0] = static_cast<uint8_t>(k * 37);
      d[1] = static_cast<uint8_t>(k * 91 + 5);
      d[2] = static_cast<uint8_t>(255 - k * 53);
    }
  return p;
}

double MeanGrey(const TslPicture &p) {
  double s = 0;
  std::vector<uint8_t> row(p.width * 4);
  for (uint32_t y = 0; y < p.height; ++y) {
    tslGetRowRGBA(&p, y, row.data());
    for (uint32_t x = 0; x < p.width; ++x) s += row[4 * x];
  }
  return s / (static_cast<double>(p.width) * p.height);
}

int BitsSet(const TslPicture &p) {
  int n = 0;
  for (uint32_t y = 0; y < p.height; ++y)
    for (uint32_t x = 0; x < p.width; ++x) n += GetBit(RowOf(&p, y), static_cast<int>(x));
  return n;
}

std::set<int> DistinctBytes(const TslPicture &p) {
  std::set<int> s;
  for (uint32_t y = 0; y < p.height; ++y)
    for (uint32_t x = 0; x < p.width; ++x) s.insert(RowOf(&p, y)[x]);
  return s;
}

}  // namespace

TEST(ConvertByCode, EveryCodeGivesThePromisedKindAndCount) {
  const int grey[7] = {4, 8, 16, 32, 64, 128, 256};
  const int colours[7] = {8, 16, 32, 64, 128, 216, 256};
  const int models[] = {TSL_BINARY, TSL_GREY, TSL_INDEXED, TSL_RGB, TSL_RGBA, TSL_BGR, TSL_ARGB};
  const uint32_t sizes[][2] = {{37, 23}, {1, 1}, {1, 9}, {9, 1}};
  for (int model : models)
    for (const auto &size : sizes) {
      Pic src(MakePicture(model, size[0], size[1], 3));
      src->attr_word = 77;
      src->attr_pair[0] = 300;
      src->attr_pair[1] = 150;
      for (int code = 1; code <= 32; ++code) {
        SCOPED_TRACE(testing::Message() << "model " << model << " code " << code << " " << size[0] << "x" << size[1]);
        Pic out;
        ASSERT_EQ(ConvertByCode(&src, &out, code), 0);
        EXPECT_EQ(out->width, size[0]);
        EXPECT_EQ(out->height, size[1]);
        EXPECT_EQ(out->attr_word, 77);
        EXPECT_EQ(out->attr_pair[0], 300u);
        EXPECT_EQ(out->attr_pair[1], 150u);
        if (code <= 4) {
          EXPECT_EQ(out->color_model, TSL_BINARY);
        } else if (code <= 17) {
          const int levels = code <= 11 ? grey[code - 5] : grey[code - 12];
          EXPECT_EQ(out->color_model, TSL_GREY);
          EXPECT_EQ(out->colors, levels);
          for (int v : DistinctBytes(out)) {
            const int k = (v * (levels - 1) + 127) / 255;
            EXPECT_EQ(v, (k * 255 + (levels - 1) / 2) / (levels - 1)) << "value " << v << " is not a level";
          }
          EXPECT_LE(static_cast<int>(DistinctBytes(out).size()), levels);
        } else if (code <= 31) {
          const int count = code <= 24 ? colours[code - 18] : colours[code - 25];
          EXPECT_EQ(out->color_model, TSL_INDEXED);
          EXPECT_GE(out->colors, 1);
          EXPECT_LE(out->colors, count);
          for (int v : DistinctBytes(out)) EXPECT_LT(v, out->colors);
        } else {
          EXPECT_TRUE(out->color_model == TSL_RGB || out->color_model == TSL_RGBA);
          EXPECT_TRUE(SameColors(src, out));
        }
      }
    }
}

TEST(ConvertByCode, CodesOutsideTheRangeAreRefused) {
  Pic src(MakePicture(TSL_RGB, 4, 4));
  for (int code : {0, 33, -1, 255}) {
    Pic out;
    EXPECT_EQ(ConvertByCode(&src, &out, code), kOpEmptyRect);
    EXPECT_EQ(out->pixels, nullptr);
  }
  Pic out;
  EXPECT_EQ(ConvertToGrey(&src, &out, 1, false), kOpEmptyRect);
  EXPECT_EQ(ConvertToColors(&src, &out, 257, false), kOpEmptyRect);
  EXPECT_EQ(ConvertToBinary(&src, &out, 9), kOpEmptyRect);
}

TEST(ConvertToColors, FewColoursComeOutExact) {
  for (int n : {2, 8, 16, 100, 216, 256}) {
    for (bool dither : {false, true}) {
      Pic src(FewColours(n, 61, 29));
      for (int count : {n, 256}) {
        SCOPED_TRACE(std::to_string(n) + " colours into " + std::to_string(count));
        Pic out;
        ASSERT_EQ(ConvertToColors(&src, &out, count, dither), 0);
        EXPECT_EQ(out->colors, n);
        EXPECT_TRUE(SameColors(src, out));
      }
    }
  }
}

TEST(ConvertToColors, IndexedSourceWithUnusedEntriesStaysExact) {
  Pic src(MakePicture(TSL_INDEXED, 40, 40, 5, 12));
  Pic out;
  ASSERT_EQ(ConvertToColors(&src, &out, 16, true), 0);
  EXPECT_LE(out->colors, 12);
  EXPECT_TRUE(SameColors(src, out));
}

TEST(ConvertToColors, QuantisedPhotoIsClose) {
  Pic src(MakePicture(TSL_RGB, 160, 120, 11));
  double last = 1e9;
  for (int count : {8, 32, 256}) {
    Pic out;
    ASSERT_EQ(ConvertToColors(&src, &out, count, false), 0);
    EXPECT_EQ(out->colors, count);
    const double err = MeanAbsDiff(src, out);
    EXPECT_LT(err, last) << count;  // more colours, closer picture
    last = err;
  }
  EXPECT_LT(last, 3.5);
}

// An independent reference: ImageMagick's own colour reduction of the same
// picture.  Ours should be at least about as close to the original.
TEST(ConvertToColors, AtLeastAsGoodAsImageMagick) {
  if (!HaveTool("convert")) GTEST_SKIP() << "ImageMagick not installed";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 128, 96, 4));
  WritePpm(dir.file("in.ppm"), src);
  for (int count : {16, 64, 256}) {
    const std::string out_path = dir.file("out" + std::to_string(count) + ".ppm");
    ASSERT_EQ(testutil::Run("convert '" + dir.file("in.ppm") + "' +dither -colors " + std::to_string(count) + " '" +
                            out_path + "'"),
              0);
    Pic ref;
    ASSERT_TRUE(ReadPnm(out_path, &ref));
    Pic ours;
    ASSERT_EQ(ConvertToColors(&src, &ours, count, false), 0);
    EXPECT_LE(MeanAbsDiff(src, ours), MeanAbsDiff(src, ref) * 1.05) << count;
  }
}

TEST(ConvertToColors, CubeFor216AndDitherKeepsTheMean) {
  Pic src(MakePicture(TSL_RGB, 120, 80, 2));
  Pic plain, dith;
  ASSERT_EQ(ConvertToColors(&src, &plain, 216, false), 0);
  ASSERT_EQ(ConvertToColors(&src, &dith, 216, true), 0);
  EXPECT_EQ(plain->colors, 216);
  for (int k = 0; k < 216; ++k) {
    EXPECT_EQ(plain->palette[k], k / 36 * 51);
    EXPECT_EQ(plain->palette[256 + k], k / 6 % 6 * 51);
    EXPECT_EQ(plain->palette[512 + k], k % 6 * 51);
  }
  EXPECT_NEAR(MeanGrey(dith), MeanGrey(src), 1.0);
}

TEST(ConvertToColors, TransparencyGetsItsOwnEntry) {
  Pic src(MakePicture(TSL_RGBA, 50, 30, 9));
  for (uint32_t y = 0; y < 30; ++y)
    for (uint32_t x = 0; x < 50; ++x) RowOf(&src, y)[x * 4 + 3] = (x < 10) ? 0 : 255;
  for (int count : {8, 256}) {
    Pic out;
    ASSERT_EQ(ConvertToColors(&src, &out, count, true), 0);
    ASSERT_GE(out->transparent_index, 0);
    EXPECT_LE(out->colors, count);
    for (uint32_t y = 0; y < 30; ++y)
      for (uint32_t x = 0; x < 50; ++x)
        EXPECT_EQ(RowOf(&out, y)[x] == out->transparent_index, x < 10) << x << "," << y;
  }
}

TEST(ConvertToTrueColor, LayoutsAndTransparentIndex) {
  Pic idx(MakePicture(TSL_INDEXED, 9, 5, 1, 4));
  Pic rgb;
  ASSERT_EQ(ConvertToTrueColor(&idx, &rgb), 0);
  EXPECT_EQ(rgb->color_model, TSL_RGB);
  EXPECT_TRUE(SameColors(idx, rgb));

  idx->transparent_index = 2;
  Pic rgba;
  ASSERT_EQ(ConvertToTrueColor(&idx, &rgba), 0);
  EXPECT_EQ(rgba->color_model, TSL_RGBA);
  for (uint32_t y = 0; y < 5; ++y)
    for (uint32_t x = 0; x < 9; ++x)
      EXPECT_EQ(RowOf(&rgba, y)[4 * x + 3], RowOf(&idx, y)[x] == 2 ? 0 : 255);

  Pic argb(MakePicture(TSL_ARGB, 6, 6, 3)), out;
  ASSERT_EQ(ConvertToTrueColor(&argb, &out), 0);
  EXPECT_EQ(out->color_model, TSL_RGBA);
  EXPECT_TRUE(SameColors(argb, out, 0, true));
  Pic bgr(MakePicture(TSL_BGR, 6, 6, 3)), out2;
  ASSERT_EQ(ConvertToTrueColor(&bgr, &out2), 0);
  EXPECT_EQ(out2->color_model, TSL_RGB);
  EXPECT_TRUE(SameColors(bgr, out2));
}

TEST(ConvertToGrey, PlainLevelsAndDitheredMean) {
  for (int v : {30, 100, 128, 201}) {
    Pic src(Flat(TSL_RGB, 64, 64, v));
    for (int levels : {4, 8, 32}) {
      Pic plain, dith;
      ASSERT_EQ(ConvertToGrey(&src, &plain, levels, false), 0);
      ASSERT_EQ(ConvertToGrey(&src, &dith, levels, true), 0);
      EXPECT_EQ(DistinctBytes(plain).size(), 1u);  // a flat picture stays flat
      EXPECT_NEAR(MeanGrey(dith), v, 0.75) << v << " in " << levels;
    }
  }
  Pic bin(MakePicture(TSL_BINARY, 19, 3)), g;
  ASSERT_EQ(ConvertToGrey256(&bin, &g), 0);
  EXPECT_TRUE(SameColors(bin, g));
}

TEST(ConvertToBinary, HalfGreyGivesAboutHalfTheBits) {
  Pic grey(Flat(TSL_GREY, 64, 48, 128));
  for (int method = kBinaryPattern; method <= kBinaryHalftone90; ++method) {
    Pic out;
    ASSERT_EQ(ConvertToBinary(&grey, &out, method), 0);
    EXPECT_EQ(out->color_model, TSL_BINARY);
    EXPECT_NEAR(BitsSet(out), 64 * 48 / 2, 64 * 48 / 20) << method;
  }
  for (int v : {0, 255}) {
    Pic flat(Flat(TSL_GREY, 13, 5, v));
    for (int method = kBinaryPattern; method <= kBinaryHalftone90; ++method) {
      Pic out;
      ASSERT_EQ(ConvertToBinary(&flat, &out, method), 0);
      EXPECT_EQ(BitsSet(out), v ? 13 * 5 : 0) << method;
    }
  }
}

TEST(ConvertToBinary, ScreensDifferAndClusterDots) {
  // A quarter grey: the ordered pattern scatters its white pixels while the
  // halftones gather them into dots, so fewer white pixels touch each other
  // horizontally in the pattern.
  Pic grey(Flat(TSL_GREY, 64, 64, 64));
  int adjacent[5] = {};
  for (int method = kBinaryPattern; method <= kBinaryHalftone90; ++method) {
    Pic out;
    ASSERT_EQ(ConvertToBinary(&grey, &out, method), 0);
    for (uint32_t y = 0; y < 64; ++y)
      for (int x = 0; x + 1 < 64; ++x)
        adjacent[method] += GetBit(RowOf(&out, y), x) & GetBit(RowOf(&out, y), x + 1);
  }
  EXPECT_LT(adjacent[kBinaryPattern], adjacent[kBinaryHalftone45]);
  EXPECT_LT(adjacent[kBinaryPattern], adjacent[kBinaryHalftone90]);
}

TEST(ConvertOps, InPlaceDestinationAndRectangle) {
  Pic src(MakePicture(TSL_RGB, 20, 10, 4));
  Pic keep = src.clone();
  OpParams p;
  p.i[0] = 2;  // 4 levels
  p.i[1] = 1;
  Pic dst;
  ASSERT_EQ(OpGrey(&src, &dst, nullptr, p), 0);
  EXPECT_EQ(dst->color_model, TSL_GREY);
  EXPECT_EQ(dst->colors, 4);
  EXPECT_TRUE(SamePixels(src, keep));  // source untouched

  const OpRect outside{30, 0, 5, 5};
  EXPECT_EQ(OpColors(&src, nullptr, &outside, p), kOpEmptyRect);
  EXPECT_TRUE(SamePixels(src, keep));

  p.i[0] = 13;  // 16 colours
  p.i[1] = 0;
  ASSERT_EQ(OpColors(&src, nullptr, nullptr, p), 0);
  EXPECT_EQ(src->color_model, TSL_INDEXED);
  EXPECT_EQ(src->colors, 16);
  p.i[0] = 5;  // Floyd-Steinberg
  ASSERT_EQ(OpBinary(&src, nullptr, nullptr, p), 0);
  EXPECT_EQ(src->color_model, TSL_BINARY);
  ASSERT_EQ(OpTrueColors(&src, nullptr, nullptr, p), 0);
  EXPECT_EQ(src->color_model, TSL_RGB);
  EXPECT_EQ(src->width, 20u);
}
