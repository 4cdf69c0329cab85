// PostScript, EPS and PDF through Ghostscript: netpbm's pnmtops output,
// multi-page documents, page sizes, and what happens without Ghostscript,
// with a document that never ends, or one that tries to write files.
#include <gtest/gtest.h>

#include <chrono>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

bool HaveGs() { return HaveTool("gs"); }

// Two pages filling the DSC bounding box, red then blue.
const char kTwoPages[] =
    "%!PS-Adobe-3.0\n%%Pages: 2\n%%BoundingBox: 0 0 100 50\n%%EndComments\n"
    "%%Page: 1 1\n1 0 0 setrgbcolor 0 0 100 50 rectfill showpage\n"
    "%%Page: 2 2\n0 0 1 setrgbcolor 0 0 100 50 rectfill showpage\n%%EOF\n";

TslParams PsParams(int dpi, int width = 0, int height = 0) {
  TslParams p = Params();
  p.ps_dpi = dpi;
  p.ps_page_width = width;
  p.ps_page_height = height;
  return p;
}

TEST(Ps, PnmtopsPicturesComeBackAtAnyResolution) {
  if (!HaveGs() || !HaveTool("pnmtops")) GTEST_SKIP() << "gs or pnmtops missing";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 61, 47, 4));
  WritePpm(dir.file("in.ppm"), src);
  const std::string eps = dir.file("in.eps");
  ASSERT_EQ(RunWith("pnmtops -noturn -nocenter -equalpixels -dpi 72 SRC > OUT", dir.file("in.ppm"), eps), 0);
  Info info;
  ASSERT_EQ(FileInfo(eps, &info), TSL_OK);
  EXPECT_STREQ(tslFormatGetName(info->format), "ps");
  EXPECT_EQ(info->width, 61u);
  EXPECT_EQ(info->height, 47u);
  EXPECT_EQ(info->pages, 1);
  Pic at72, at144;
  TslParams p = PsParams(72);
  ASSERT_EQ(tslLoad(eps.c_str(), &at72, &p), TSL_OK);
  EXPECT_TRUE(SameColors(at72, src));  // one device pixel per picture pixel
  p = PsParams(144);
  ASSERT_EQ(tslLoad(eps.c_str(), &at144, &p), TSL_OK);
  EXPECT_EQ(at144->width, 122u);
  EXPECT_EQ(at144->height, 94u);
  EXPECT_EQ(at144->attr_pair[0], 144u);
  // A fixed page: the picture is the page, the drawing at its lower left.
  Pic letter;
  p = PsParams(36, 612, 792);
  ASSERT_EQ(tslLoad(eps.c_str(), &letter, &p), TSL_OK);
  EXPECT_EQ(letter->width, 306u);
  EXPECT_EQ(letter->height, 396u);
  EXPECT_EQ(Px(letter, 300, 5), 255);  // white paper right of the picture
}

TEST(Ps, EveryPageIsAPageInPostScriptAndPdf) {
  if (!HaveGs()) GTEST_SKIP() << "gs missing";
  TempDir dir;
  const std::string ps = dir.file("two.ps"), pdf = dir.file("two.pdf");
  WriteFile(ps, kTwoPages);
  ASSERT_EQ(Sh("gs -q -dSAFER -dBATCH -dNOPAUSE -sDEVICE=pdfwrite -dDEVICEWIDTHPOINTS=100 "
               "-dDEVICEHEIGHTPOINTS=50 -dFIXEDMEDIA -sOutputFile='" + pdf + "' '" + ps + "'"), 0);
  // The same file without its %%Pages comment: the pages are counted by rendering.
  std::string body = kTwoPages;
  body.erase(body.find("%%Pages: 2\n"), 11);
  const std::string bare = dir.file("bare.ps");
  WriteFile(bare, body);
  for (const std::string &file : {ps, pdf, bare}) {
    SCOPED_TRACE(file);
    Info info;
    ASSERT_EQ(FileInfo(file, &info), TSL_OK);
    EXPECT_EQ(info->pages, 2);
    EXPECT_EQ(info->width, 100u);
    EXPECT_EQ(info->height, 50u);
    for (int page = 0; page < 2; ++page) {
      Pic pic;
      TslParams p = PsParams(72);
      p.page = page;
      ASSERT_EQ(tslLoad(file.c_str(), &pic, &p), TSL_OK);
      ASSERT_EQ(pic->width, 100u);
      EXPECT_EQ(Px(pic, 50, 25, 0), page == 0 ? 255 : 0);
      EXPECT_EQ(Px(pic, 50, 25, 2), page == 0 ? 0 : 255);
    }
    Pic none;
    TslParams p = PsParams(72);
    p.page = 2;
    EXPECT_EQ(tslLoad(file.c_str(), &none, &p), TSL_ERR_BAD_FILE);
    EXPECT_EQ(none->pixels, nullptr);
  }
}

// A bounding box away from the origin becomes the whole picture.
TEST(Ps, BoundingBoxOffTheOriginIsCropped) {
  if (!HaveGs()) GTEST_SKIP() << "gs missing";
  TempDir dir;
  for (const char *header : {"%!PS-Adobe-3.0 EPSF-3.0\n", "%!PS-Adobe-3.0\n"}) {
    SCOPED_TRACE(header);
    WriteFile(dir.file("off.ps"), std::string(header) +
                                      "%%BoundingBox: 200 300 240 320\n%%EndComments\n"
                                      "0 1 0 setrgbcolor 200 300 20 20 rectfill showpage\n");
    Pic pic;
    TslParams p = PsParams(72);
    ASSERT_EQ(tslLoad(dir.file("off.ps").c_str(), &pic, &p), TSL_OK);
    ASSERT_EQ(pic->width, 40u);
    ASSERT_EQ(pic->height, 20u);
    EXPECT_EQ(Px(pic, 5, 10, 1), 255);   // green square on the left
    EXPECT_EQ(Px(pic, 5, 10, 0), 0);
    EXPECT_EQ(Px(pic, 35, 10, 0), 255);  // white paper on the right
  }
}

TEST(Ps, WithoutGhostscriptTheLibraryNamesIt) {
  TempDir dir;
  WriteFile(dir.file("two.ps"), kTwoPages);
  const std::string saved = std::getenv("PATH") ? std::getenv("PATH") : "";
  setenv("PATH", dir.path().c_str(), 1);
  Info info;
  const int info_code = FileInfo(dir.file("two.ps"), &info);
  Pic pic;
  const int load_code = Load(dir.file("two.ps"), &pic);
  setenv("PATH", saved.c_str(), 1);
  EXPECT_EQ(info_code, TSL_ERR_FORMAT);
  EXPECT_EQ(load_code, TSL_ERR_FORMAT);
  EXPECT_NE(std::string(info->message).find("Ghostscript"), std::string::npos);
  EXPECT_EQ(pic->pixels, nullptr);
}

TEST(Ps, EndlessBadHostileAndStoppedDocuments) {
  if (!HaveGs()) GTEST_SKIP() << "gs missing";
  TempDir dir;
  // Never ends: killed at the time limit.
  WriteFile(dir.file("loop.ps"), "%!PS\n{} loop\n");
  setenv("TSL_GS_TIMEOUT", "2", 1);
  const auto start = std::chrono::steady_clock::now();
  Pic pic;
  EXPECT_EQ(Load(dir.file("loop.ps"), &pic), TSL_ERR_CORRUPT);
  unsetenv("TSL_GS_TIMEOUT");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_EQ(pic->pixels, nullptr);
  // The caller stops it.
  TslParams p = PsParams(72);
  p.progress = [](int, int, void *) { return 1; };
  EXPECT_EQ(tslLoad(dir.file("loop.ps").c_str(), &pic, &p), TSL_STOPPED);
  // -dSAFER: a document cannot write files.
  const std::string victim = dir.file("written");
  WriteFile(dir.file("evil.ps"), "%!PS\n(" + victim + ") (w) file (x) writestring showpage\n");
  Load(dir.file("evil.ps"), &pic);
  EXPECT_FALSE(FileExists(victim));
  tslFree(&pic);
  // Rubbish, cut documents and absurd DOS EPS headers.
  int code;
  LoadBytes(dir, "%!PS\n/foo bar baz (unclosed\n", &code);
  EXPECT_NE(code, TSL_OK);
  const std::string cut = std::string(kTwoPages).substr(0, 120);
  LoadBytes(dir, cut, &code);  // may render the first page; never crashes
  std::string dos = "\xC5\xD0\xD3\xC6" + Le32(0x7ffffff0) + Le32(100) + std::string(40, '\0');
  LoadBytes(dir, dos, &code);
  EXPECT_EQ(code, TSL_ERR_FORMAT);
  dos = "\xC5\xD0\xD3\xC6" + Le32(30) + Le32(static_cast<uint32_t>(std::string(kTwoPages).size())) +
        std::string(18, '\0') + kTwoPages;
  Pic dos_pic;
  LoadBytes(dir, dos, &code);
  EXPECT_EQ(code, TSL_OK);
  // A page far too large for the pixel limit is refused before rendering.
  Pic big;
  p = PsParams(2400, 100000, 100000);
  p.max_pixels = 1000000;
  WriteFile(dir.file("two.ps"), kTwoPages);
  EXPECT_EQ(tslLoad(dir.file("two.ps").c_str(), &big, &p), TSL_ERR_MEMORY);
}

}  // namespace
