// HEIF, AVIF and JPEG XL through the tsl calls, checked against the
// decoders of the codecs' own tools on files their encoders wrote.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "lazy_library.h"
#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

// A PNG of `src` written by netpbm, as input for the encoders.
std::string ToolPng(const TempDir &dir, const TslPicture &src, const std::string &name) {
  const std::string ppm = dir.file(name + ".ppm"), png = dir.file(name + ".png");
  WritePpm(ppm, src);
  EXPECT_EQ(RunWith("pnmtopng SRC > OUT", ppm, png), 0);
  return png;
}

// What `decoder` (SRC: the file, OUT: a PNG or PNM it writes) makes of a file, as RGB.
bool ToolDecode(const TempDir &dir, const std::string &decoder, const std::string &file, const std::string &out,
                TslPicture *pic) {
  if (RunWith(decoder, file, dir.file(out)) != 0) return false;
  if (out.size() > 4 && out.substr(out.size() - 4) == ".png")
    return ToolPnm("pngtopnm '" + dir.file(out) + "'", dir, pic);
  return ReadPnm(dir.file(out), pic);
}

struct Codec {
  const char *format, *encoder, *decoder, *decoded, *ext;
};
const Codec kCodecs[] = {
    {"heif", "heif-enc -q 70 SRC -o OUT", "heif-convert SRC OUT", "d.png", "heic"},
    {"heif", "heif-enc -L SRC -o OUT", "heif-convert SRC OUT", "d.png", "heic"},
    {"avif", "avifenc -s 8 SRC OUT", "avifdec SRC OUT", "d.png", "avif"},
    {"avif", "avifenc -s 8 -l SRC OUT", "avifdec SRC OUT", "d.png", "avif"},
    {"avif", "heif-enc -A -q 60 SRC -o OUT", "avifdec SRC OUT", "d.png", "avif"},
    {"jxl", "cjxl -d 1.5 SRC OUT", "djxl SRC OUT", "d.png", "jxl"},
    {"jxl", "cjxl -d 0 SRC OUT", "djxl SRC OUT", "d.png", "jxl"},
};

bool HaveTools(const Codec &c) {
  return HaveTool(std::string(c.encoder).substr(0, std::string(c.encoder).find(' '))) &&
         HaveTool(std::string(c.decoder).substr(0, std::string(c.decoder).find(' '))) && HaveTool("pnmtopng");
}

// Odd sizes too: the HEVC and AV1 codecs work on even-sized blocks and the
// container crops them back.
TEST(Heif, ToolFilesMatchTheToolsDecoders) {
  TempDir dir;
  for (const Codec &c : kCodecs) {
    SCOPED_TRACE(c.encoder);
    if (!HaveTools(c)) {
      ADD_FAILURE() << "missing tools for " << c.encoder;
      continue;
    }
    Pic src(MakePicture(TSL_RGB, 61, 47, 3));
    const std::string png = ToolPng(dir, src, "in"), file = dir.file(std::string("x.") + c.ext);
    ASSERT_EQ(RunWith(c.encoder, png, file), 0);
    Info info;
    ASSERT_EQ(FileInfo(file, &info), TSL_OK);
    EXPECT_STREQ(tslFormatGetName(info->format), c.format);
    EXPECT_EQ(info->width, 61u);
    EXPECT_EQ(info->height, 47u);
    EXPECT_EQ(info->pages, 1);
    Pic ours, theirs;
    ASSERT_EQ(Load(file, &ours), TSL_OK);
    ASSERT_TRUE(ToolDecode(dir, c.decoder, file, c.decoded, &theirs));
    // The tools round YCbCr to RGB on their own, and libheif and libavif
    // upsample 4:2:0 chroma each their own way.
    if (std::string(c.encoder).find("heif-enc -A") == std::string::npos) {
      EXPECT_TRUE(SameColors(ours, theirs, 1));
    }
    EXPECT_LT(MeanAbsDiff(ours, theirs), 4.0);
    EXPECT_LT(MeanAbsDiff(ours, src), 12.0);
  }
}

TEST(Heif, WrittenFilesReadBackAndByTheTools) {
  TempDir dir;
  for (const char *format : {"heif", "avif", "jxl"}) {
    for (int model : {TSL_RGB, TSL_RGBA, TSL_GREY, TSL_INDEXED}) {
      SCOPED_TRACE(std::string(format) + " model " + std::to_string(model));
      Pic src(MakePicture(model, 37, 29, 11, 40));
      const std::string path = dir.file(std::string("w.") + tslFormatGetDefaultSuffix(Fmt(format)));
      // Lossless: exact colours and alpha.
      ASSERT_EQ(Save(path, src, format, 1), TSL_OK);
      Pic back;
      ASSERT_EQ(Load(path, &back), TSL_OK);
      EXPECT_EQ(back->width, 37u);
      EXPECT_TRUE(SameColors(src, back, 0, model == TSL_RGBA));
      EXPECT_EQ(back->color_model == TSL_RGBA, model == TSL_RGBA);
      // Lossy: close, smaller at low quality.
      TslParams p = Params(format);
      p.quality = 95;
      ASSERT_EQ(Save(path, src, p), TSL_OK);
      const size_t high = ReadFile(path).size();
      back = Pic();
      ASSERT_EQ(Load(path, &back), TSL_OK);
      if (model != TSL_INDEXED) {
        EXPECT_LT(MeanAbsDiff(src, back), 8.0);  // random palette indices: noise
      }
      const std::string decoder = std::string(format) == "jxl" ? "djxl SRC OUT" : std::string(format) == "avif"
                                                                                      ? "avifdec SRC OUT"
                                                                                      : "heif-convert SRC OUT";
      Pic theirs;
      ASSERT_TRUE(ToolDecode(dir, decoder, path, "d.png", &theirs));
      // libheif and libavif upsample 4:2:0 chroma each their own way
      // (nearest and bilinear): noise pictures differ most.
      if (std::string(format) != "avif") {
        EXPECT_LT(MeanAbsDiff(back, theirs), 2.0);
      } else if (model != TSL_INDEXED) {
        EXPECT_LT(MeanAbsDiff(back, theirs), 6.0);
      }
      p.quality = 10;
      ASSERT_EQ(Save(path, src, p), TSL_OK);
      EXPECT_LT(ReadFile(path).size(), high);
    }
  }
}

// heif-enc puts every input into one file: the first is the primary image.
TEST(Heif, EveryTopLevelImageIsAPagePrimaryFirst) {
  if (!HaveTool("heif-enc")) GTEST_SKIP() << "heif-enc missing";
  TempDir dir;
  Pic a(MakePicture(TSL_RGB, 40, 30, 1)), b(MakePicture(TSL_RGB, 24, 50, 2));
  const std::string pa = ToolPng(dir, a, "a"), pb = ToolPng(dir, b, "b"), file = dir.file("two.heic");
  ASSERT_EQ(Sh("heif-enc -L '" + pa + "' '" + pb + "' -o '" + file + "'"), 0);
  Info info, second;
  ASSERT_EQ(FileInfo(file, &info), TSL_OK);
  EXPECT_EQ(info->pages, 2);
  ASSERT_EQ(FileInfo(file, &second, -1, 1), TSL_OK);
  EXPECT_EQ(second->width, 24u);
  Pic p0, p1, none;
  ASSERT_EQ(Load(file, &p0, 0), TSL_OK);
  ASSERT_EQ(Load(file, &p1, 1), TSL_OK);
  EXPECT_LT(MeanAbsDiff(p0, a), 10.0);
  EXPECT_LT(MeanAbsDiff(p1, b), 10.0);
  EXPECT_EQ(Load(file, &none, 2), TSL_ERR_BAD_FILE);
  EXPECT_EQ(none->pixels, nullptr);
}

TEST(Heif, TruncatedAbsurdAndLimited) {
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 64, 48, 5));
  for (const char *format : {"heif", "avif", "jxl"}) {
    SCOPED_TRACE(format);
    const std::string good = dir.file(std::string("good.") + tslFormatGetDefaultSuffix(Fmt(format)));
    ASSERT_EQ(Save(good, src, format), TSL_OK);
    const std::string data = ReadFile(good);
    for (size_t cut : {size_t(20), data.size() / 3, data.size() - 5}) {
      SCOPED_TRACE(cut);
      int code;
      Pic pic = LoadBytes(dir, data.substr(0, cut), &code, Fmt(format));
      EXPECT_NE(code, TSL_OK);
      EXPECT_EQ(pic->pixels, nullptr);
      Info info;
      FileInfo(dir.file("made.bin"), &info, Fmt(format));  // any code, no crash
    }
    // Not the format at all, forced.
    int code;
    LoadBytes(dir, std::string(300, 'Q'), &code, Fmt(format));
    EXPECT_NE(code, TSL_OK);
    LoadRandomlyDamaged(dir, data, 17);
    Pic pic;
    TslParams limit = Params();
    limit.max_pixels = 64 * 48 - 1;
    EXPECT_EQ(tslLoad(good.c_str(), &pic, &limit), TSL_ERR_MEMORY);
    EXPECT_EQ(pic->pixels, nullptr);
  }
  // An ftyp box claiming HEIC with nothing behind it.
  int code;
  LoadBytes(dir, std::string("\0\0\0\x18" "ftypheic\0\0\0\0mif1heic", 24), &code);
  EXPECT_NE(code, TSL_OK);
  EXPECT_NE(code, TSL_ERR_FORMAT);
}

// JPEG XL keeps the stored pixels and reports the codestream's orientation.
TEST(Heif, JxlOrientationIsReportedNotApplied) {
  if (!HaveTool("cjxl") || !HaveTool("exiftool") || !HaveTool("cjpeg")) GTEST_SKIP() << "tools missing";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 32, 16, 8));
  WritePpm(dir.file("in.ppm"), src);
  ASSERT_EQ(Sh("cjpeg -quality 95 '" + dir.file("in.ppm") + "' > '" + dir.file("in.jpg") + "'"), 0);
  ASSERT_EQ(Sh("exiftool -q -overwrite_original -n -Orientation=6 '" + dir.file("in.jpg") + "'"), 0);
  ASSERT_EQ(Sh("cjxl '" + dir.file("in.jpg") + "' '" + dir.file("o.jxl") + "'"), 0);
  Info info;
  ASSERT_EQ(FileInfo(dir.file("o.jxl"), &info), TSL_OK);
  EXPECT_EQ(info->orientation, 6);
  EXPECT_EQ(info->width, 32u);
  Pic pic, jpeg;
  ASSERT_EQ(Load(dir.file("o.jxl"), &pic), TSL_OK);
  EXPECT_EQ(pic->width, 32u);
  ASSERT_TRUE(ToolPnm("djpeg '" + dir.file("in.jpg") + "'", dir, &jpeg));
  EXPECT_LT(MeanAbsDiff(pic, jpeg), 2.0);
}

// An animated JPEG XL (made by cjxl from an animated GIF) reads as pages:
// each frame's colours, its delay, and no page past the last.
TEST(Heif, JxlAnimationFramesArePages) {
  if (!HaveTool("cjxl") || !HaveTool("convert")) GTEST_SKIP() << "tools missing";
  TempDir dir;
  const std::string gif = dir.file("a.gif"), jxl = dir.file("a.jxl");
  ASSERT_EQ(Sh("convert -size 40x30 xc:red xc:lime xc:blue -set delay 20 -loop 0 '" + gif + "'"), 0);
  ASSERT_EQ(RunWith("cjxl -d 0 SRC OUT", gif, jxl), 0);
  Info info;
  ASSERT_EQ(FileInfo(jxl, &info), TSL_OK);
  ASSERT_EQ(info->pages, 3);
  ASSERT_NE(info->delays, nullptr);
  EXPECT_EQ(info->delays[1], 200);
  for (int page = 0; page < 3; ++page) {
    Pic frame;
    ASSERT_EQ(Load(jxl, &frame, page), TSL_OK) << page;
    const uint8_t *px = frame->pixels;
    EXPECT_EQ(px[page], 255) << page;  // red, lime, blue in turn
    EXPECT_EQ(px[(page + 1) % 3], 0) << page;
  }
  Pic past;
  EXPECT_EQ(Load(jxl, &past, 3), TSL_ERR_BAD_FILE);
}

// libheif and libjxl are opened by the first file that needs them: a JPEG
// never maps them, the first HEIF and JPEG XL files open them even when
// several threads ask at once, and a missing library is a message.
TEST(Heif, CodecLibrariesOpenOnFirstUse) {
  if (!HaveTool("heif-enc") || !HaveTool("cjxl") || !HaveTool("cjpeg")) GTEST_SKIP() << "tools missing";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 40, 30, 6));
  const std::string png = ToolPng(dir, src, "in"), heic = dir.file("a.heic"), jxl = dir.file("a.jxl"),
                    jpg = dir.file("a.jpg");
  ASSERT_EQ(RunWith("heif-enc -q 80 SRC -o OUT", png, heic), 0);
  ASSERT_EQ(RunWith("cjxl -d 1 SRC OUT", png, jxl), 0);
  ASSERT_EQ(Sh("pngtopnm '" + png + "' | cjpeg > '" + jpg + "'"), 0);
  std::string loaded;
  const std::string tesconv = std::string(QUILLA_BINARY_DIR) + "/tools/tesconv/tesconv";
  ASSERT_EQ(testutil::Run("LD_DEBUG=files '" + tesconv + "' -out ppm -o '" + dir.file("o.ppm") + "' '" + jpg + "' 2>&1",
                &loaded),
            0);
  EXPECT_NE(loaded.find("libjpeg"), std::string::npos);
  EXPECT_EQ(loaded.find("libheif"), std::string::npos);
  EXPECT_EQ(loaded.find("libjxl"), std::string::npos);

  std::vector<int> codes(8, -1);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < codes.size(); ++i)
    threads.emplace_back([&, i] {
      Pic pic;
      codes[i] = Load(i % 2 ? heic : jxl, &pic);
    });
  for (std::thread &t : threads) t.join();
  for (int code : codes) EXPECT_EQ(code, TSL_OK);

  tessel::LazyLibrary missing("libquilla-no-such-codec.so.0", [](tessel::LazyLibrary &) { return true; });
  EXPECT_FALSE(missing.open());
  EXPECT_FALSE(missing.open());
  char message[256];
  EXPECT_FALSE(missing.openFor("Test files", message, sizeof message));
  EXPECT_EQ(std::string(message).find("Test files need libquilla-no-such-codec, which could not be loaded ("), 0u);
  EXPECT_NE(std::string(message).find("libquilla-no-such-codec.so.0"), std::string::npos);
}

}  // namespace
