// PBM/PGM/PPM/PAM reader and writers: round trips in raw and ASCII form,
// files of netpbm and ImageMagick, header comments, deep samples, pages and
// damaged input.
#include <gtest/gtest.h>

#include <sstream>

#include "legacy_test_helpers.h"

using legacy::Fmt;
using legacy::Load;
using legacy::LoadOptions;
using legacy::Pic;
using legacy::Save;
using testutil::MakePicture;
using testutil::SameColors;
using testutil::SamePixels;
using testutil::TempDir;

namespace {

Pic LoadBytes(const TempDir &dir, const std::string &bytes, int *code, int page = 0) {
  testutil::WriteFile(dir.file("made.pnm"), bytes);
  Pic pic;
  LoadOptions o;
  o.page = page;
  *code = Load(dir.file("made.pnm"), &pic, o);
  return pic;
}

TEST(Pnm, RoundTripRawAndAscii) {
  TempDir dir;
  struct Case {
    const char *format;
    int model;
    int colors;
  } cases[] = {{"pbm", TSL_BINARY, 2}, {"pgm", TSL_GREY, 256}, {"ppm", TSL_RGB, 0}, {"ppm", TSL_INDEXED, 50},
               {"ppm", TSL_RGBA, 0}};
  for (const Case &c : cases) {
    for (int ascii : {0, 1}) {
      SCOPED_TRACE(std::string(c.format) + " model " + std::to_string(c.model) + " ascii " + std::to_string(ascii));
      Pic src(MakePicture(c.model, 83, 9, 4, c.colors));
      const std::string file = dir.file(std::string("rt.") + c.format);
      ASSERT_EQ(Save(file, *src, c.format, 0, ascii), TSL_OK);
      const std::string bytes = testutil::ReadFile(file);
      EXPECT_EQ(bytes.substr(0, 2), std::string("P") + char('0' + (c.model == TSL_BINARY ? 1 : c.model == TSL_GREY ? 2 : 3) +
                                                               (ascii ? 0 : 3)));
      if (ascii) {
        std::istringstream lines(bytes);
        std::string line;
        while (std::getline(lines, line)) EXPECT_LE(line.size(), 70u);
      }
      Pic back;
      ASSERT_EQ(Load(file, &back), TSL_OK);
      EXPECT_TRUE(SameColors(*src, *back));
      if (c.model != TSL_INDEXED && c.model != TSL_RGBA) {
        EXPECT_TRUE(SamePixels(*src, *back));
      }
      // Independent readers: our own test reader for raw files, ImageMagick for all.
      Pic other;
      if (!ascii) {
        ASSERT_TRUE(testutil::ReadPnm(file, &other));
        EXPECT_TRUE(SameColors(*src, *other));
      }
      Pic magick;
      ASSERT_TRUE(legacy::DecodeWithConvert(dir, file, &magick));
      EXPECT_TRUE(SameColors(*src, *magick));
    }
  }
}

TEST(Pnm, ReadsNetpbmPlainAndDeepFiles) {
  if (!testutil::HaveTool("pnmtoplainpnm") || !testutil::HaveTool("pamdepth")) GTEST_SKIP() << "netpbm missing";
  TempDir dir;
  Pic rgb(MakePicture(TSL_RGB, 29, 17, 8));
  legacy::WritePpm(dir.file("src.ppm"), *rgb);
  const std::string src = "'" + dir.file("src.ppm") + "'";
  const char *pipes[] = {"cat", "ppmtopgm", "ppmtopgm | pgmtopbm -threshold", "pamdepth 65535", "pamdepth 1000",
                         "ppmtopgm | pamdepth 4095", "pamdepth 31"};
  for (const char *pipe : pipes) {
    SCOPED_TRACE(pipe);
    const std::string raw = dir.file("raw.pnm"), plain = dir.file("plain.pnm");
    ASSERT_EQ(testutil::Run("(cat " + src + " | " + pipe + " > '" + raw + "')"), 0);
    ASSERT_EQ(testutil::Run("(pnmtoplainpnm '" + raw + "' > '" + plain + "')"), 0);
    Pic reference, ours_raw, ours_plain;
    ASSERT_TRUE(testutil::ReadPnm(raw, &reference));
    ASSERT_EQ(Load(raw, &ours_raw), TSL_OK);
    ASSERT_EQ(Load(plain, &ours_plain), TSL_OK);
    EXPECT_TRUE(SamePixels(*reference, *ours_raw));
    EXPECT_TRUE(SamePixels(*reference, *ours_plain));
  }
}

TEST(Pnm, CommentsAnywhereInTheHeader) {
  TempDir dir;
  int code;
  Pic a = LoadBytes(dir, "P2\n# made by hand\n3 # width\n#height next\n1\n# maxval\n255\n1 2\n# inside\n3\n", &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(a->color_model, TSL_GREY);
  EXPECT_EQ(a->pixels[0], 1);
  EXPECT_EQ(a->pixels[2], 3);
  Pic b = LoadBytes(dir, std::string("P5 2 1 255# right after the maxval\n\x07\x0A", 37), &code);
  ASSERT_EQ(code, TSL_OK);
  EXPECT_EQ(b->pixels[0], 7);
  EXPECT_EQ(b->pixels[1], 10);
  // Plain PBM digits need no blanks; 1 is black.
  Pic c = LoadBytes(dir, "P1 5 1 10110", &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(c->color_model, TSL_BINARY);
  EXPECT_EQ(c->pixels[0] & 0xF8, 0x48);
  // Maximum value 3 scales to 0, 85, 170, 255.
  Pic d = LoadBytes(dir, "P3 4 1 3 0 0 0 1 1 1 2 2 2 3 3 3", &code);
  ASSERT_EQ(code, TSL_OK);
  const uint8_t want[12] = {0, 0, 0, 85, 85, 85, 170, 170, 170, 255, 255, 255};
  EXPECT_EQ(std::memcmp(d->pixels, want, 12), 0);
}

TEST(Pnm, PamTupleTypes) {
  TempDir dir;
  int code;
  const std::string head = "P7\n# comment\nWIDTH 2\nHEIGHT 1\n";
  Pic a = LoadBytes(dir, head + "DEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n" + std::string("\x01\x02\x03\x04\x05\x06\x07\x08", 8),
                    &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(a->color_model, TSL_RGBA);
  EXPECT_EQ(std::memcmp(a->pixels, "\x01\x02\x03\x04\x05\x06\x07\x08", 8), 0);
  Pic b = LoadBytes(dir, head + "DEPTH 2\nMAXVAL 65535\nTUPLTYPE GRAYSCALE_ALPHA\nENDHDR\n" +
                             std::string("\xFF\xFF\x00\x00\x80\x00\xFF\xFF", 8),
                    &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(b->color_model, TSL_RGBA);
  EXPECT_EQ(std::memcmp(b->pixels, "\xFF\xFF\xFF\x00\x80\x80\x80\xFF", 8), 0);
  Pic c = LoadBytes(dir, head + "DEPTH 1\nMAXVAL 1\nTUPLTYPE BLACKANDWHITE\nENDHDR\n" + std::string("\x01\x00", 2), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(c->color_model, TSL_BINARY);
  EXPECT_EQ(c->pixels[0] & 0xC0, 0x80);  // 1 is white in PAM
  Pic d = LoadBytes(dir, head + "DEPTH 3\nMAXVAL 255\nTUPLTYPE RGB\nENDHDR\n123456", &code);
  ASSERT_EQ(code, TSL_OK);
  EXPECT_EQ(d->color_model, TSL_RGB);
  LoadBytes(dir, head + "DEPTH 3\nMAXVAL 255\nTUPLTYPE GRAYSCALE\nENDHDR\n123456", &code);
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  LoadBytes(dir, head + "DEPTH 3\nTUPLTYPE RGB\nENDHDR\n123456", &code);
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  if (testutil::HaveTool("convert")) {
    ASSERT_EQ(testutil::Run("convert -size 20x7 gradient:red-blue -alpha set -channel A -fx 'i/w' +channel '" +
                            dir.file("m.pam") + "'"),
              0);
    Pic ours, theirs;
    ASSERT_EQ(Load(dir.file("m.pam"), &ours), TSL_OK);
    EXPECT_EQ(ours->color_model, TSL_RGBA);
    ASSERT_TRUE(legacy::DecodeWithConvert(dir, dir.file("m.pam"), &theirs));
    EXPECT_TRUE(SameColors(*ours, *theirs, 1));  // 16-bit samples: rounding may differ by one
  }
}

TEST(Pnm, ConcatenatedPicturesArePages) {
  TempDir dir;
  const std::string file = "P6 2 1 255\n" + std::string("abcdef") + "P2 1 1 255 42\n\nP5\n1 2\n65535\n" +
                           std::string("\xFF\xFF\x00\x00", 4);
  testutil::WriteFile(dir.file("pages.ppm"), file);
  TslFileInfo info;
  ASSERT_EQ(tslFileInformation(dir.file("pages.ppm").c_str(), -1, 0, &info), TSL_OK);
  EXPECT_EQ(info.pages, 3);
  EXPECT_EQ(info.width, 2u);
  tslFileInformationFree(&info);
  int code;
  Pic second = LoadBytes(dir, file, &code, 1);
  ASSERT_EQ(code, TSL_OK);
  EXPECT_EQ(second->pixels[0], 42);
  Pic third = LoadBytes(dir, file, &code, 2);
  ASSERT_EQ(code, TSL_OK);
  EXPECT_EQ(third->height, 2u);
  EXPECT_EQ(third->pixels[0], 255);
  EXPECT_EQ(third->pixels[third->bytes_per_line], 0);
  LoadBytes(dir, file, &code, 3);
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
}

TEST(Pnm, AbsurdHeadersTruncationAndStopping) {
  TempDir dir;
  int code;
  LoadBytes(dir, "P6 0 5 255\n", &code);
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  LoadBytes(dir, "P5 5 5 0\nabcdefghijklmnopqrstuvwxy", &code);
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  LoadBytes(dir, "P5 5 5 70000\nabcdefghijklmnopqrstuvwxy", &code);
  EXPECT_EQ(code, TSL_ERR_BAD_FILE);
  LoadBytes(dir, "P6 2147483648 2147483648 255\nabc", &code);
  EXPECT_EQ(code, TSL_ERR_MEMORY);
  LoadBytes(dir, "P4 99999999999999999999 3\nabc", &code);
  EXPECT_EQ(code, TSL_ERR_MEMORY);
  LoadBytes(dir, "P3 2 2 255 1 2 3 4 5 x", &code);
  EXPECT_EQ(code, TSL_ERR_READ);

  Pic rgb(MakePicture(TSL_RGB, 40, 30, 2));
  ASSERT_EQ(Save(dir.file("t.ppm"), *rgb, "ppm"), TSL_OK);
  legacy::CheckTruncations(dir, dir.file("t.ppm"), Fmt("ppm"), 13);
  ASSERT_EQ(Save(dir.file("a.ppm"), *rgb, "ppm", 0, 1), TSL_OK);
  legacy::CheckTruncations(dir, dir.file("a.ppm"), Fmt("ppm"), 13, 4);
  Pic bits(MakePicture(TSL_BINARY, 40, 30, 2));
  ASSERT_EQ(Save(dir.file("t.pbm"), *bits, "pbm"), TSL_OK);
  legacy::CheckTruncations(dir, dir.file("t.pbm"), Fmt("pbm"), 9);

  Pic pic;
  LoadOptions o;
  o.max_pixels = 1000;
  EXPECT_EQ(Load(dir.file("t.ppm"), &pic, o), TSL_ERR_MEMORY);
  o.max_pixels = 0;
  o.progress = legacy::StopAtOnce;
  EXPECT_EQ(Load(dir.file("a.ppm"), &pic, o), TSL_STOPPED);
  EXPECT_EQ(pic->pixels, nullptr);
}

}  // namespace
