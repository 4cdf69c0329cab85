// Softimage reader and writer.  No program in Debian reads or writes these
// files: hand-made files from the published layout stand in for them.
#include <gtest/gtest.h>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

std::string Be16(unsigned v) { return std::string{char(v >> 8 & 0xff), char(v & 0xff)}; }

// A header for w x h followed by the packets (chained, 8, coding, mask) and data.
std::string SoftFile(unsigned w, unsigned h, const std::string &packets, const std::string &data) {
  std::string d = std::string("\x53\x80\xf6\x34", 4) + std::string("\x40\x6d\x70\xa4", 4);  // magic, version 3.71
  d += std::string("made by hand") + std::string(80 - 12, '\0');
  d += "PICT" + Be16(w) + Be16(h) + std::string("\x3f\x80\x00\x00", 4) + Be16(3) + Be16(0);
  return d + packets + data;
}

TEST(Softimage, RoundTripsEveryModelBothCodings) {
  TempDir dir;
  for (int compression : {0, 1}) {
    for (int model : {TSL_BINARY, TSL_GREY, TSL_INDEXED, TSL_RGB, TSL_RGBA}) {
      SCOPED_TRACE(std::to_string(model) + " compression " + std::to_string(compression));
      Pic src(MakePicture(model, 300, 7, 4, 9));
      if (model != TSL_BINARY) {
        // A run longer than 128 pixels (the 16-bit count) and one of exactly 128.
        std::memset(src->pixels, 200, 290 * src->bytes_per_pixel);
        std::memset(src->pixels + 2 * src->bytes_per_line, 9, 128 * src->bytes_per_pixel);
      }
      const std::string path = dir.file("rt.pic");
      TslParams p = Params("soft", compression);
      p.comment = "a comment";
      ASSERT_EQ(Save(path, src, p), TSL_OK);
      Info info;
      ASSERT_EQ(FileInfo(path, &info), TSL_OK);
      EXPECT_EQ(info->compression, compression ? TSL_COMP_RLE : TSL_COMP_NONE);
      EXPECT_STREQ(info->comment, "a comment");
      Pic back;
      ASSERT_EQ(Load(path, &back), TSL_OK);
      EXPECT_EQ(back->color_model, model == TSL_RGBA ? TSL_RGBA : TSL_RGB);
      EXPECT_TRUE(SameColors(src, back, 0, true));
    }
  }
}

TEST(Softimage, ReadsPureAndMixedRunsInSeveralPackets) {
  TempDir dir;
  // Red in a verbatim packet, green and blue in pure runs, alpha in mixed runs.
  const std::string packets = std::string("\x01\x08\x00\x80", 4) + std::string("\x01\x08\x01\x60", 4) +
                              std::string("\x00\x08\x02\x10", 4);
  std::string data;
  for (int y = 0; y < 2; ++y) {
    data += std::string("\x01\x02\x03\x04\x05", 5);             // red
    data += std::string("\x02\x10\x20\x03\x11\x21", 6);         // green/blue: 2 x (16,32), 3 x (17,33)
    data += y == 0 ? std::string("\x01\x07\x08\x82\x09", 5)     // 2 literals, a run of 3
                   : std::string("\x80\x00\x05\x42", 4);        // a 16-bit count of 5
  }
  int code;
  Pic pic = LoadBytes(dir, SoftFile(5, 2, packets, data), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(pic->color_model, TSL_RGBA);
  const int alpha[2][5] = {{7, 8, 9, 9, 9}, {0x42, 0x42, 0x42, 0x42, 0x42}};
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 5; ++x) {
      EXPECT_EQ(Px(pic, x, y, 0), x + 1);
      EXPECT_EQ(Px(pic, x, y, 1), x < 2 ? 16 : 17);
      EXPECT_EQ(Px(pic, x, y, 2), x < 2 ? 32 : 33);
      EXPECT_EQ(Px(pic, x, y, 3), alpha[y][x]) << x << "," << y;
    }
  // A run that overfills its row, a zero pure-run count.
  std::string over = data;
  over[5] = '\x07';
  LoadBytes(dir, SoftFile(5, 2, packets, over), &code);
  EXPECT_EQ(code, TSL_ERR_CORRUPT);
  std::string zero = data;
  zero[5] = '\0';
  LoadBytes(dir, SoftFile(5, 2, packets, zero), &code);
  EXPECT_EQ(code, TSL_ERR_CORRUPT);
  Pic kept;
  EXPECT_EQ(Load(dir.file("made.bin"), &kept, 0, TSL_FLAG_KEEP_DAMAGED), TSL_OK);
}

TEST(Softimage, TruncatedAndAbsurdFiles) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 40, 30, 5));
  const std::string good = dir.file("g.pic");
  for (int rle : {0, 1}) {
    ASSERT_EQ(Save(good, src, "soft", rle), TSL_OK);
    CheckTruncations(dir, good, Fmt("soft"), 108);
  }
  ExpectLimitAndStop(good, 40 * 30);
  const std::string d = ReadFile(good);
  int code;
  // 16-bit channels, an unknown coding, no channels, endless chained packets, no PICT mark.
  for (auto [at, value] : std::vector<std::pair<size_t, char>>{{105, 16}, {106, 3}, {107, 0}, {104, 1}, {88, 'X'}}) {
    std::string bad = d;
    bad[at] = value;
    if (at == 104) {
      bad = bad.substr(0, 104);
      for (int k = 0; k < 16; ++k) bad += std::string("\x01\x08\x00\x80", 4);
    }
    LoadBytes(dir, bad, &code, Fmt("soft"));
    EXPECT_EQ(code, TSL_ERR_BAD_FILE) << at;
  }
  // A 65535 x 65535 picture in a small file fails before allocating.
  std::string huge = d;
  huge.replace(92, 4, "\xff\xff\xff\xff");
  LoadBytes(dir, huge, &code);
  EXPECT_TRUE(code == TSL_ERR_MEMORY || code == TSL_ERR_READ) << code;
  tslSetMaxPixels(uint64_t(1) << 33);
  LoadBytes(dir, huge, &code);
  tslSetMaxPixels(0);
  EXPECT_EQ(code, TSL_ERR_READ);
  LoadRandomlyDamaged(dir, d, 51);
}

}  // namespace
