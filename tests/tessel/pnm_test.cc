// PBM/PGM/PPM/PAM reader and writers: round trips in raw and ASCII form,
// files of netpbm and ImageMagick, header comments, deep samples, pages and
// damaged input.
#include <gtest/gtest.h>

#include <sstream>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

Pic LoadPnm(const TempDir &dir, const std::string &bytes, int *code, int page = 0) {
  return LoadBytes(dir, bytes, code, -1, page, "made.pnm");
}

TEST(Pnm, RoundTripRawAndAscii) {
  TempDir dir;
  const struct {
    const char *format;
    int model, colors;
    char magic;  // of the raw form
  } cases[] = {{"pbm", TSL_BINARY, 2, '4'}, {"pgm", TSL_GREY, 256, '5'}, {"ppm", TSL_RGB, 0, '6'},
               {"ppm", TSL_INDEXED, 50, '6'}, {"ppm", TSL_RGBA, 0, '6'}};
  for (const auto &c : cases)
    for (int ascii : {0, 1}) {
      SCOPED_TRACE(testing::Message() << c.format << " model " << c.model << " ascii " << ascii);
      Pic src(MakePicture(c.model, 83, 9, 4, c.colors));
      const std::string file = dir.file(std::string("rt.") + c.format);
      ASSERT_EQ(Save(file, src, c.format, 0, ascii), TSL_OK);
      const std::string bytes = ReadFile(file);
      EXPECT_EQ(bytes.substr(0, 2), (std::string{'P', char(c.magic - 3 * ascii)}));
      std::istringstream lines(bytes);
      for (std::string line; ascii && std::getline(lines, line);) EXPECT_LE(line.size(), 70u);
      Pic back, other, magick;
      ASSERT_EQ(Load(file, &back), TSL_OK);
      EXPECT_TRUE(SameColors(src, back));
      if (c.model != TSL_INDEXED && c.model != TSL_RGBA) {
        EXPECT_TRUE(SamePixels(src, back));
      }
      // Independent readers: our own test reader for raw files, ImageMagick for all.
      if (!ascii) {
        ASSERT_TRUE(ReadPnm(file, &other));
        EXPECT_TRUE(SameColors(src, other));
      }
      ASSERT_TRUE(DecodeWithConvert(dir, file, &magick));
      EXPECT_TRUE(SameColors(src, magick));
    }
}

TEST(Pnm, ReadsNetpbmPlainAndDeepFiles) {
  if (!HaveTool("pnmtoplainpnm") || !HaveTool("pamdepth")) GTEST_SKIP() << "netpbm missing";
  TempDir dir;
  Pic rgb(MakePicture(TSL_RGB, 29, 17, 8));
  WritePpm(dir.file("src.ppm"), rgb);
  const std::string src = "'" + dir.file("src.ppm") + "'";
  const char *pipes[] = {"cat", "ppmtopgm", "ppmtopgm | pgmtopbm -threshold", "pamdepth 65535", "pamdepth 1000",
                         "ppmtopgm | pamdepth 4095", "pamdepth 31"};
  for (const char *pipe : pipes) {
    SCOPED_TRACE(pipe);
    const std::string raw = dir.file("raw.pnm"), plain = dir.file("plain.pnm");
    ASSERT_EQ(Sh("(cat " + src + " | " + pipe + " > '" + raw + "')"), 0);
    ASSERT_EQ(Sh("(pnmtoplainpnm '" + raw + "' > '" + plain + "')"), 0);
    Pic reference, ours_raw, ours_plain;
    ASSERT_TRUE(ReadPnm(raw, &reference));
    ASSERT_EQ(Load(raw, &ours_raw), TSL_OK);
    ASSERT_EQ(Load(plain, &ours_plain), TSL_OK);
    EXPECT_TRUE(SamePixels(reference, ours_raw));
    EXPECT_TRUE(SamePixels(reference, ours_plain));
  }
}

TEST(Pnm, CommentsAnywhereInTheHeader) {
  TempDir dir;
  int code;
  Pic a = LoadPnm(dir, "P2\n# made by hand\n3 # width\n#height next\n1\n# maxval\n255\n1 2\n# inside\n3\n", &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(a->color_model, TSL_GREY);
  EXPECT_EQ(a->pixels[0], 1);
  EXPECT_EQ(a->pixels[2], 3);
  Pic b = LoadPnm(dir, std::string("P5 2 1 255# right after the maxval\n\x07\x0A", 37), &code);
  ASSERT_EQ(code, TSL_OK);
  EXPECT_EQ(b->pixels[0], 7);
  EXPECT_EQ(b->pixels[1], 10);
  // Plain PBM digits need no blanks; 1 is black.
  Pic c = LoadPnm(dir, "P1 5 1 10110", &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(c->color_model, TSL_BINARY);
  EXPECT_EQ(c->pixels[0] & 0xF8, 0x48);
  // Maximum value 3 scales to 0, 85, 170, 255.
  Pic d = LoadPnm(dir, "P3 4 1 3 0 0 0 1 1 1 2 2 2 3 3 3", &code);
  ASSERT_EQ(code, TSL_OK);
  const uint8_t want[12] = {0, 0, 0, 85, 85, 85, 170, 170, 170, 255, 255, 255};
  EXPECT_EQ(std::memcmp(d->pixels, want, 12), 0);
}

TEST(Pnm, PamTupleTypes) {
  TempDir dir;
  int code;
  const std::string head = "P7\n# comment\nWIDTH 2\nHEIGHT 1\n";
  Pic a = LoadPnm(dir, head + "DEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n" + std::string("\x01\x02\x03\x04\x05\x06\x07\x08", 8),
                    &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(a->color_model, TSL_RGBA);
  EXPECT_EQ(std::memcmp(a->pixels, "\x01\x02\x03\x04\x05\x06\x07\x08", 8), 0);
  Pic b = LoadPnm(dir, head + "DEPTH 2\nMAXVAL 65535\nTUPLTYPE GRAYSCALE_ALPHA\nENDHDR\n" +
                             std::string("\xFF\xFF\x00\x00\x80\x00\xFF\xFF", 8),
                    &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(b->color_model, TSL_RGBA);
  EXPECT_EQ(std::memcmp(b->pixels, "\xFF\xFF\xFF\x00\x80\x80\x80\xFF", 8), 0);
  Pic c = LoadPnm(dir, head + "DEPTH 1\nMAXVAL 1\nTUPLTYPE BLACKANDWHITE\nENDHDR\n" + std::string("\x01\x00", 2), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(c->color_model, TSL_BINARY);
  EXPECT_EQ(c->pixels[0] & 0xC0, 0x80);  // 1 is white in PAM
  Pic d = LoadPnm(dir, head + "DEPTH 3\nMAXVAL 255\nTUPLTYPE RGB\nENDHDR\n123456", &code);
  ASSERT_EQ(code, TSL_OK);
  EXPECT_EQ(d->color_model, TSL_RGB);
  LoadPnm(dir, head + "DEPTH 3\nMAXVAL 255\nTUPLTYPE GRAYSCALE\nENDHDR\n123456", &code);
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  LoadPnm(dir, head + "DEPTH 3\nTUPLTYPE RGB\nENDHDR\n123456", &code);
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  if (HaveTool("convert")) {
    ASSERT_EQ(Sh("convert -size 20x7 gradient:red-blue -alpha set -channel A -fx 'i/w' +channel '" +
                            dir.file("m.pam") + "'"),
              0);
    Pic ours, theirs;
    ASSERT_EQ(Load(dir.file("m.pam"), &ours), TSL_OK);
    EXPECT_EQ(ours->color_model, TSL_RGBA);
    ASSERT_TRUE(DecodeWithConvert(dir, dir.file("m.pam"), &theirs));
    EXPECT_TRUE(SameColors(ours, theirs, 1));  // 16-bit samples: rounding may differ by one
  }
}

TEST(Pnm, ConcatenatedPicturesArePages) {
  TempDir dir;
  const std::string file = "P6 2 1 255\n" + std::string("abcdef") + "P2 1 1 255 42\n\nP5\n1 2\n65535\n" +
                           std::string("\xFF\xFF\x00\x00", 4);
  WriteFile(dir.file("pages.ppm"), file);
  Info info;
  ASSERT_EQ(FileInfo(dir.file("pages.ppm"), &info), TSL_OK);
  EXPECT_EQ(info->pages, 3);
  EXPECT_EQ(info->width, 2u);
  int code;
  Pic second = LoadPnm(dir, file, &code, 1);
  ASSERT_EQ(code, TSL_OK);
  EXPECT_EQ(second->pixels[0], 42);
  Pic third = LoadPnm(dir, file, &code, 2);
  ASSERT_EQ(code, TSL_OK);
  EXPECT_EQ(third->height, 2u);
  EXPECT_EQ(third->pixels[0], 255);
  EXPECT_EQ(third->pixels[third->bytes_per_line], 0);
  LoadPnm(dir, file, &code, 3);
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
}

TEST(Pnm, AbsurdHeadersTruncationLimitsAndStopping) {
  TempDir dir;
  const std::pair<const char *, int> bad[] = {
      {"P6 0 5 255\n", TSL_ERR_BAD_FILE},
      {"P5 5 5 0\nabcdefghijklmnopqrstuvwxy", TSL_ERR_BAD_FILE},
      {"P5 5 5 70000\nabcdefghijklmnopqrstuvwxy", TSL_ERR_BAD_FILE},
      {"P6 2147483648 2147483648 255\nabc", TSL_ERR_MEMORY},
      {"P4 99999999999999999999 3\nabc", TSL_ERR_MEMORY},
      {"P3 2 2 255 1 2 3 4 5 x", TSL_ERR_READ},
  };
  for (const auto &b : bad) {
    int code;
    LoadPnm(dir, b.first, &code);
    EXPECT_EQ(code, b.second) << b.first;
  }
  Pic rgb(MakePicture(TSL_RGB, 40, 30, 2)), bits(MakePicture(TSL_BINARY, 40, 30, 2));
  ASSERT_EQ(Save(dir.file("t.ppm"), rgb, "ppm"), TSL_OK);
  CheckTruncations(dir, dir.file("t.ppm"), Fmt("ppm"), 13);
  ASSERT_EQ(Save(dir.file("a.ppm"), rgb, "ppm", 0, 1), TSL_OK);
  CheckTruncations(dir, dir.file("a.ppm"), Fmt("ppm"), 13, 4);
  ASSERT_EQ(Save(dir.file("t.pbm"), bits, "pbm"), TSL_OK);
  CheckTruncations(dir, dir.file("t.pbm"), Fmt("pbm"), 9);
  ExpectLimitAndStop(dir.file("a.ppm"), 40 * 30);
}

}  // namespace
