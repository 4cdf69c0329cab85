// HP48/49 graphic objects: the exact bytes of a small object, round trips,
// the calculators' text form, grey planes, damaged and absurd objects.
#include <gtest/gtest.h>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

// 3 x 2: black white black / white white black (a clear bit is black).
TslPicture Small() {
  TslPicture p{};
  tslAllock(&p, TSL_BINARY, 0, 3, 2);
  p.pixels[0] = 0x40;
  p.pixels[p.bytes_per_line] = 0xc0;
  return p;
}

TEST(Grob, WritesTheObjectNibbleByNibble) {
  TempDir dir;
  Pic small(Small());
  // Prolog 02B1E, size 19, height 2, width 3 (five nibbles each, low first),
  // then one byte a row with the leftmost pixel in the lowest bit.
  const std::string object("\x1e\x2b\x30\x01\x00\x02\x00\x30\x00\x00\x05\x04", 12);
  for (int hp49 : {0, 1}) {
    TslParams p = Params("grob");
    p.hp49_header = hp49;
    const std::string path = dir.file("s.grob");
    ASSERT_EQ(Save(path, small, p), TSL_OK);
    EXPECT_EQ(ReadFile(path), (hp49 ? "HPHP49-C" : "HPHP48-R") + object);
    Pic back;
    ASSERT_EQ(Load(path, &back), TSL_OK);
    EXPECT_TRUE(SamePixels(small, back));
  }
  // The same object as the calculators print it.
  int code;
  Pic text = LoadBytes(dir, "  GROB 3 2 5040\n", &code, -1, 0, "t.txt");
  ASSERT_EQ(code, TSL_OK);
  EXPECT_TRUE(SamePixels(small, text));
}

TEST(Grob, RoundTripsAndGreyPlanes) {
  TempDir dir;
  Pic src(MakePicture(TSL_BINARY, 131, 64, 3));  // the HP48 screen, rows of 17 bytes
  const std::string path = dir.file("screen.grob");
  ASSERT_EQ(Save(path, src, "grob"), TSL_OK);
  Pic back;
  ASSERT_EQ(Load(path, &back), TSL_OK);
  EXPECT_TRUE(SamePixels(src, back));
  Info info;
  ASSERT_EQ(FileInfo(path, &info), TSL_OK);
  EXPECT_EQ(info->width, 131u);
  // Two bits a pixel: the object's upper and lower halves are planes and a
  // pixel's grey is the number of planes that blacken it.
  TslParams p = Params();
  p.grob_bpp = 2;
  Pic grey;
  ASSERT_EQ(tslLoad(path.c_str(), &grey, &p), TSL_OK);
  ASSERT_EQ(grey->color_model, TSL_GREY);
  ASSERT_EQ(grey->height, 32u);
  for (uint32_t y = 0; y < 32; y += 7)
    for (uint32_t x = 0; x < 131; ++x) {
      const int dark = !(src->pixels[y * src->bytes_per_line + x / 8] >> (7 - x % 8) & 1) +
                       !(src->pixels[(y + 32) * src->bytes_per_line + x / 8] >> (7 - x % 8) & 1);
      ASSERT_EQ(Px(grey, x, y), 255 - dark * 255 / 2) << x << "," << y;
    }
  // A bit count that does not divide the height reads one plane.
  p.grob_bpp = 3;
  Pic odd;
  ASSERT_EQ(tslLoad(path.c_str(), &odd, &p), TSL_OK);
  EXPECT_EQ(odd->color_model, TSL_BINARY);
}

TEST(Grob, TruncatedAndAbsurdObjects) {
  TempDir dir;
  Pic src(MakePicture(TSL_BINARY, 40, 30, 2));
  const std::string good = dir.file("g.grob");
  ASSERT_EQ(Save(good, src, "grob"), TSL_OK);
  CheckTruncations(dir, good, Fmt("grob"), 18);
  ExpectLimitAndStop(good, 40 * 30);
  const std::string d = ReadFile(good);
  int code;
  std::string other = d;  // another object type than a graphic object
  other[8] = '\x1f';
  LoadBytes(dir, other, &code, Fmt("grob"));
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  // Height and width of 0xFFFFF in a small file: no allocation.
  std::string huge = d;
  huge.replace(13, 5, std::string("\xf0\xff\xff\xff\xff", 5));
  LoadBytes(dir, huge, &code);
  EXPECT_TRUE(code == TSL_ERR_MEMORY || code == TSL_ERR_READ) << code;
  for (const char *text : {"GROB 3\n", "GROB 99999999 2 00", "GROB 0 2 00"}) {
    LoadBytes(dir, text, &code, Fmt("grob"));
    EXPECT_EQ(code, TSL_ERR_BAD_FILE) << text;
  }
  LoadBytes(dir, "GROB 64 64 FFFF", &code);
  EXPECT_EQ(code, TSL_ERR_READ);
  LoadRandomlyDamaged(dir, d, 61);
}

}  // namespace
