// Headerless raw and UYVY readers and writers.
#include <gtest/gtest.h>

#include <algorithm>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

int LoadRaw(const std::string &path, TslPicture *pic, const char *format, int w, int h, long offset,
            int order = TSL_ORDER_RGB, int type = TSL_CHANNEL_INTERLEAVED, unsigned flags = 0, int page = 0) {
  TslParams p = Params(format);
  p.flags = flags;
  p.width = w;
  p.height = h;
  p.offset = offset;
  p.channel_order = order;
  p.channel_type = type;
  p.page = page;
  return tslLoad(path.c_str(), pic, &p);
}

int SaveRaw(const TslPicture &pic, const std::string &path, const char *format, long offset,
            int order = TSL_ORDER_RGB, int type = TSL_CHANNEL_INTERLEAVED) {
  TslParams p = Params(format);
  p.offset = offset;
  p.channel_order = order;
  p.channel_type = type;
  return tslSave(path.c_str(), &pic, &p);
}

TEST(Raw, EveryChannelOrderAndType) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 7, 5, 3));
  const std::string path = dir.file("x.raw");
  const char *names[] = {"RGB", "BGR", "RBG", "GRB", "GBR", "BRG"};
  for (int order = TSL_ORDER_RGB; order <= TSL_ORDER_BRG; ++order) {
    for (int type : {TSL_CHANNEL_INTERLEAVED, TSL_CHANNEL_PLANAR}) {
      ASSERT_EQ(SaveRaw(src, path, "raw", 13, order, type), TSL_OK);
      const std::string d = ReadFile(path);
      ASSERT_EQ(d.size(), 13u + 7 * 5 * 3);
      EXPECT_EQ(d.substr(0, 13), std::string(13, '\0'));
      // The first pixel's bytes follow the order's name (planar: the first byte of each plane).
      for (int i = 0; i < 3; ++i) {
        const int channel = std::string("RGB").find(names[order][i]);
        const size_t at = 13 + (type == TSL_CHANNEL_PLANAR ? i * 35 : i);
        EXPECT_EQ(static_cast<uint8_t>(d[at]), src->pixels[channel]) << names[order] << " " << type;
      }
      Pic back;
      ASSERT_EQ(LoadRaw(path, &back, "raw", 7, 5, 13, order, type), TSL_OK);
      EXPECT_TRUE(SamePixels(src, back)) << names[order] << " " << type;
    }
  }
  // Grey: one byte per pixel.
  Pic grey(MakePicture(TSL_GREY, 9, 4, 2));
  ASSERT_EQ(SaveRaw(grey, path, "raw", 0, 0, TSL_CHANNEL_GREY), TSL_OK);
  EXPECT_EQ(ReadFile(path).size(), 36u);
  Pic back;
  ASSERT_EQ(LoadRaw(path, &back, "raw", 9, 4, 0, 0, TSL_CHANNEL_GREY), TSL_OK);
  EXPECT_TRUE(SamePixels(grey, back));
}

TEST(Raw, MissingGeometryAndShortData) {
  TempDir dir;
  const std::string path = dir.file("x.raw");
  WriteFile(path, std::string(100, '\x40'));
  Pic p;
  EXPECT_EQ(LoadRaw(path, &p, "raw", 0, 5, 0), TSL_ERR_BAD_FILE);
  EXPECT_EQ(LoadRaw(path, &p, "raw", 10, 4, 0), TSL_ERR_BAD_FILE);  // needs 120 bytes
  EXPECT_EQ(LoadRaw(path, &p, "raw", 10, 3, 20), TSL_ERR_BAD_FILE);
  EXPECT_EQ(LoadRaw(path, &p, "raw", 1 << 30, 1 << 30, 0), TSL_ERR_BAD_FILE);
  // What there is, when damaged files are kept: three full rows.
  ASSERT_EQ(LoadRaw(path, &p, "raw", 10, 4, 0, 0, 0, TSL_FLAG_KEEP_DAMAGED), TSL_OK);
  EXPECT_EQ(p->pixels[2 * p->bytes_per_line + 29], 0x40);
  EXPECT_EQ(p->pixels[3 * p->bytes_per_line], 0);
  // Information needs no geometry.
  Info info;
  EXPECT_EQ(FileInfo(path, &info, Fmt("raw")), TSL_OK);
}

TEST(Yuv, StudioRangeColoursAndFrames) {
  TempDir dir;
  const std::string path = dir.file("x.yuv");
  // Two frames of 2x1: black and white, then mid grey and pure red (BT.601: Y 81, U 90, V 240).
  const uint8_t frames[] = {128, 16, 128, 235, 90, 126, 240, 81};
  WriteFile(path, std::string("hdr") + std::string(reinterpret_cast<const char *>(frames), 8));
  Pic f0, f1, none;
  ASSERT_EQ(LoadRaw(path, &f0, "yuv", 2, 1, 3), TSL_OK);
  ASSERT_EQ(f0->color_model, TSL_RGB);
  const uint8_t black_white[] = {0, 0, 0, 255, 255, 255};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(f0->pixels[i], black_white[i]) << i;
  ASSERT_EQ(LoadRaw(path, &f1, "yuv", 2, 1, 3, 0, 0, 0, 1), TSL_OK);
  EXPECT_EQ(f1->pixels[0], 255);  // Y 126 under the red chroma pair: saturated red, some green and blue
  EXPECT_GT(f1->pixels[1], 30);
  EXPECT_NEAR(f1->pixels[3], 255, 2);  // Y 81: pure red
  EXPECT_NEAR(f1->pixels[4], 0, 2);
  EXPECT_NEAR(f1->pixels[5], 0, 2);
  EXPECT_EQ(LoadRaw(path, &none, "yuv", 2, 1, 3, 0, 0, 0, 2), TSL_ERR_BAD_FILE);
  EXPECT_EQ(LoadRaw(path, &none, "yuv", 4, 4, 0), TSL_ERR_BAD_FILE);

  // A written frame reads back close to the source (chroma is shared by pixel pairs).
  Pic src(MakePicture(TSL_RGB, 31, 9, 4));
  ASSERT_EQ(SaveRaw(src, path, "yuv", 0), TSL_OK);
  EXPECT_EQ(ReadFile(path).size(), 16u * 4 * 9);
  Pic back;
  ASSERT_EQ(LoadRaw(path, &back, "yuv", 31, 9, 0), TSL_OK);
  EXPECT_LT(MeanAbsDiff(src, back), 6);
  // Pixel pairs of one colour share their chroma exactly: they survive within rounding.
  Pic pairs(MakePicture(TSL_RGB, 16, 4, 5));
  for (uint32_t y = 0; y < 4; ++y)
    for (uint32_t x = 0; x < 16; x += 2)
      for (int c = 0; c < 3; ++c) {
        uint8_t *row = pairs->pixels + y * pairs->bytes_per_line;
        row[3 * x + c] = static_cast<uint8_t>(std::max(16, std::min<int>(row[3 * x + c], 235)));
        row[3 * (x + 1) + c] = row[3 * x + c];
      }
  ASSERT_EQ(SaveRaw(pairs, path, "yuv", 0), TSL_OK);
  Pic pback;
  ASSERT_EQ(LoadRaw(path, &pback, "yuv", 16, 4, 0), TSL_OK);
  EXPECT_TRUE(SameColors(pairs, pback, 2));
  // A file of whole 720x576 frames is described with that geometry.
  WriteFile(path, std::string(720 * 576 * 2 * 3, '\x80'));
  Info info;
  ASSERT_EQ(FileInfo(path, &info, Fmt("yuv")), TSL_OK);
  EXPECT_EQ(info->pages, 3);
  EXPECT_EQ(info->width, 720u);
}

}  // namespace
