// tesconv's command-line parser: every catalogue row written by the process
// writer parses back to the same process, modifiers and sub-options land on
// the right rows, the Save Script line is understood, bad values are refused.
#include <gtest/gtest.h>

#include <cmath>

#include "test_util.h"
#include "tools/tesconv/tesconv.h"

namespace quilla {
namespace {

void ExpectSameProcess(const OpProcess &a, const OpProcess &b, const std::string &text) {
  EXPECT_EQ(a.index, b.index) << text;
  for (int k = 0; k < 4; ++k) EXPECT_EQ(a.params.i[k], b.params.i[k]) << text << " i" << k;
  for (int k = 0; k < 3; ++k) EXPECT_NEAR(a.params.r[k], b.params.r[k], 0.005) << text << " r" << k;
  EXPECT_EQ(a.params.width, b.params.width) << text;
  EXPECT_EQ(a.params.height, b.params.height) << text;
  EXPECT_EQ(a.params.width_percent, b.params.width_percent) << text;
  EXPECT_EQ(a.params.height_percent, b.params.height_percent) << text;
  EXPECT_EQ(a.params.keep_ratio, b.params.keep_ratio) << text;
  EXPECT_EQ(a.params.resample, b.params.resample) << text;
  EXPECT_EQ(a.params.word, b.params.word) << text;
}

// Parses `text` as operations only; fails the test when anything is left.
OpProcessList ParseOps(const std::string &text, std::string *error = nullptr) {
  std::vector<std::string> words = SplitWords(text);
  OpProcessList list;
  size_t pos = 0;
  std::string why;
  while (pos < words.size()) {
    int r = ParseOperation(words, &pos, &list, &why);
    if (r != 1) {
      if (error) *error = why.empty() ? "not an operation: " + words[pos] : why;
      return {};
    }
  }
  return list;
}

TEST(TesconvOptions, EveryCatalogueRowParsesBackFromItsDefaultText) {
  ASSERT_EQ(OpCatalogueCount(), 55);
  for (int k = 0; k < OpCatalogueCount(); ++k) {
    OpProcess p = OpDefaultProcess(k);
    std::string text = OpProcessCommandLine(p);
    std::string error;
    OpProcessList list = ParseOps(text, &error);
    ASSERT_EQ(list.size(), 1u) << text << ": " << error;
    ExpectSameProcess(p, list[0], text);
  }
}

// Values other than the defaults, per kind, for the writer -> parser -> writer loop.
std::vector<OpProcess> Variants(int k) {
  const OpEntry &e = OpCatalogue()[k];
  std::vector<OpProcess> out;
  auto add = [&](auto change) {
    OpProcess p = OpDefaultProcess(k);
    change(&p.params);
    out.push_back(p);
  };
  switch (e.kind) {
    case kKindInt:
      add([&](OpParams *p) { p->i[0] = e.desc[0].min; });
      add([&](OpParams *p) { p->i[0] = e.desc[0].max; });
      break;
    case kKindAngle:
      add([](OpParams *p) { p->i[0] = -90; });
      add([](OpParams *p) { p->i[0] = 17; });
      break;
    case kKindPosterize: add([](OpParams *p) { p->i[0] = 5; }); break;
    case kKindFilterSize:
      for (int s : {5, 13}) add([s](OpParams *p) { p->i[0] = s; });
      break;
    case kKindReal:
      add([&](OpParams *p) { p->r[0] = e.desc[0].min / 100.0; });
      add([&](OpParams *p) { p->r[0] = e.desc[0].max / 100.0; });
      break;
    case kKindReal3: add([](OpParams *p) { p->r[0] = 12.5, p->r[1] = 90, p->r[2] = 33.25; }); break;
    case kKindInt3: add([](OpParams *p) { p->i[0] = -100, p->i[1] = 7, p->i[2] = 100; }); break;
    case kKindCrop: add([](OpParams *p) { p->i[0] = 3, p->i[1] = 4, p->i[2] = 50, p->i[3] = 60; }); break;
    case kKindResize:
    case kKindCanvas:
      add([](OpParams *p) { p->width_percent = 50, p->height_percent = 25, p->keep_ratio = 1; });
      add([](OpParams *p) { p->width = 640, p->height = 480, p->resample = kResampleQuick; });
      break;
    case kKindColors:
    case kKindGrey:
      for (int code = 0; code < 20; ++code)
        for (int dither : {0, 1}) add([=](OpParams *p) { p->i[0] = code, p->i[1] = dither; });
      break;
    case kKindBinary:
    case kKindSwap:
    case kKindDeinterlace:
      for (int m = 0; m < 6; ++m) add([m](OpParams *p) { p->i[0] = m; });
      break;
    default: break;
  }
  return out;
}

TEST(TesconvOptions, WriterTextIsStableThroughTheParserForOtherValues) {
  int checked = 0;
  for (int k = 0; k < OpCatalogueCount(); ++k) {
    for (const OpProcess &p : Variants(k)) {
      std::string text = OpProcessCommandLine(p);
      std::string error;
      OpProcessList list = ParseOps(text, &error);
      ASSERT_EQ(list.size(), 1u) << text << ": " << error;
      EXPECT_EQ(list[0].index, k) << text;
      EXPECT_EQ(OpProcessCommandLine(list[0]), text);
      ++checked;
    }
  }
  EXPECT_GT(checked, 100);
}

TEST(TesconvOptions, WholeListInOrderAmongConverterOptions) {
  OpProcessList all;
  for (int k = 0; k < OpCatalogueCount(); ++k) all.push_back(OpDefaultProcess(k));
  std::string text = "-out png -q 80 " + OpProcessListCommandLine(all) + "-D -o out/ a.jpg b.jpg";
  ConvOptions opt;
  std::string error;
  ASSERT_TRUE(ParseCommandLine(SplitWords(text), &opt, &error)) << error;
  ASSERT_EQ(opt.ops.size(), all.size());
  for (size_t k = 0; k < all.size(); ++k) ExpectSameProcess(all[k], opt.ops[k], OpProcessCommandLine(all[k]));
  EXPECT_EQ(opt.quality, 80);
  EXPECT_TRUE(opt.delete_original);
  EXPECT_EQ(opt.files, (std::vector<std::string>{"a.jpg", "b.jpg"}));
}

TEST(TesconvOptions, ModifiersAndSubOptionsLandOnTheirRows) {
  std::string error;
  OpProcessList l = ParseOps("-noise 0.40 gaussian -noise reduce -dither -colors 16 -binary floyd -swap bgr "
                             "-deinter even dup -canvas 300 200 -ratio -rtype bicubic -resize 50% 50% -dpi 300 150 "
                             "-edgedetect heavy",
                             &error);
  ASSERT_EQ(l.size(), 10u) << error;
  EXPECT_EQ(l[0].index, OpCatalogueFind("-noise", "gaussian"));
  EXPECT_NEAR(l[0].params.r[0], 0.4, 1e-9);
  EXPECT_EQ(l[1].index, OpCatalogueFind("-noise", "reduce"));
  EXPECT_EQ(l[2].index, OpCatalogueFind("-colors", nullptr));
  EXPECT_EQ(l[2].params.i[0], 13);
  EXPECT_EQ(l[2].params.i[1], 1);
  EXPECT_EQ(l[3].params.i[0], 5);
  EXPECT_EQ(l[4].params.i[0], 1);
  EXPECT_EQ(l[5].params.i[0], 3);
  EXPECT_EQ(l[6].index, OpCatalogueFind("-canvas", nullptr));
  EXPECT_EQ(l[6].params.width, 300);
  EXPECT_EQ(l[6].params.keep_ratio, 0);  // -ratio belongs to the resize after it
  EXPECT_EQ(l[7].params.keep_ratio, 1);
  EXPECT_EQ(l[7].params.resample, kResampleBicubic);
  EXPECT_EQ(l[7].params.width_percent, 50);
  EXPECT_EQ(l[8].params.i[0], 300);
  EXPECT_EQ(l[8].params.i[1], 150);
  EXPECT_EQ(l[9].index, OpCatalogueFind("-edgedetect", "heavy"));
  // "-dpi" alone keeps the stored 72 x 72, and does not swallow a file name.
  ConvOptions opt;
  ASSERT_TRUE(ParseCommandLine({"-out", "png", "-dpi", "a.png"}, &opt, &error)) << error;
  ASSERT_EQ(opt.ops.size(), 1u);
  EXPECT_EQ(opt.ops[0].params.i[0], 72);
  EXPECT_EQ(opt.files, std::vector<std::string>{"a.png"});
}

TEST(TesconvOptions, BadValuesAreRefusedWithAReason) {
  for (const char *bad : {"-resize 50%", "-gamma 9.00", "-medianb 4", "-noise 0.40", "-noise 0.40 bogus",
                          "-dither -negate", "-colors 17", "-grey 2", "-ratio -crop 1 2 3 4", "-binary diagonal",
                          "-brightness 300", "-swirl x", "-rtype cubic -resize 1 1", "-deinter even"}) {
    std::string error;
    OpProcessList l = ParseOps(bad, &error);
    EXPECT_TRUE(l.empty()) << bad;
    EXPECT_FALSE(error.empty()) << bad;
  }
  ConvOptions opt;
  std::string error;
  EXPECT_FALSE(ParseCommandLine({"-out", "nosuchformat", "a"}, &opt, &error));
  EXPECT_NE(error.find("nosuchformat"), std::string::npos);
  EXPECT_FALSE(ParseCommandLine({"-bogus", "a"}, &opt, &error));
  EXPECT_FALSE(ParseCommandLine({"a.png"}, &opt, &error));  // no -out
  EXPECT_FALSE(ParseCommandLine({"-out", "png", "-size", "256x256-3", "a"}, &opt, &error));
  EXPECT_FALSE(ParseCommandLine({"-out", "png", "-ctype", "yuv", "a"}, &opt, &error));
  EXPECT_FALSE(ParseCommandLine({"-out", "png", "-q", "101", "a"}, &opt, &error));
}

// The line the batch dialogs' "Save Script" writes parses back.
TEST(TesconvOptions, SaveScriptLineParses) {
  ScriptSettings s;
  s.pcd_base = 3;
  s.raw_width = 320;
  s.raw_height = 200;
  s.raw_offset = 54;
  s.channel_type = 2;   // bgr
  s.channel_order = 1;  // seq
  s.sequence = true;
  s.input_format = "raw";
  s.start = 5, s.end = 20, s.step = 5;
  s.output_format = "png";
  s.delete_original = true;
  s.output = "/tmp/out/pic##";
  s.inputs = {"/tmp/in/scan###.raw"};
  const std::string line = SaveScriptLine(s);
  std::vector<std::string> words = SplitWords(line);
  ASSERT_FALSE(words.empty());
  ASSERT_EQ(words[0], "tesconv");
  words.erase(words.begin());
  ConvOptions opt;
  std::string error;
  ASSERT_TRUE(ParseCommandLine(words, &opt, &error)) << line << ": " << error;
  EXPECT_EQ(opt.pcd_base, 3);
  EXPECT_TRUE(opt.have_size);
  EXPECT_EQ(opt.raw_width, 320);
  EXPECT_EQ(opt.raw_height, 200);
  EXPECT_EQ(opt.raw_offset, 54);
  EXPECT_EQ(opt.ctype, "bgr");
  EXPECT_EQ(opt.corder, "seq");
  EXPECT_EQ(opt.in_format, tslFormatGetIndex("raw"));
  EXPECT_EQ(opt.out_format, tslFormatGetIndex("png"));
  EXPECT_EQ(opt.seq_start, 5);
  EXPECT_EQ(opt.seq_end, 20);
  EXPECT_EQ(opt.seq_step, 5);
  EXPECT_TRUE(opt.delete_original);
  EXPECT_EQ(opt.output, "/tmp/out/pic##");
  EXPECT_EQ(opt.files, std::vector<std::string>{"/tmp/in/scan###.raw"});

  // Every channel type and order the writer knows is accepted.
  for (int t = 0; t < 7; ++t) {
    for (int o = 0; o < 3; ++o) {
      ScriptSettings m;
      m.channel_type = t;
      m.channel_order = o;
      m.output_format = "bmp";
      m.output = "out/";
      m.inputs = {"a.raw", "b.raw"};
      std::vector<std::string> w = SplitWords(SaveScriptLine(m));
      w.erase(w.begin());
      ConvOptions mo;
      EXPECT_TRUE(ParseCommandLine(w, &mo, &error)) << SaveScriptLine(m) << ": " << error;
      EXPECT_EQ(mo.files.size(), 2u);
    }
  }

  TslParams lp;
  LoadParams(opt, &lp);
  EXPECT_EQ(lp.width, 320);
  EXPECT_EQ(lp.offset, 54);
  EXPECT_EQ(lp.channel_order, TSL_ORDER_BGR);
  EXPECT_EQ(lp.channel_type, TSL_CHANNEL_PLANAR);
  EXPECT_EQ(lp.pcd_base, 3);

  // A reversed range means the single named file.
  ConvOptions single;
  ASSERT_TRUE(ParseCommandLine({"-n", "5", "1", "1", "-out", "png", "x#.ppm"}, &single, &error)) << error;
  EXPECT_EQ(single.seq_start, kNoRange);
}

TEST(TesconvOptions, FormatOptionsReachTheSaveParameters) {
  ConvOptions opt;
  std::string error;
  ASSERT_TRUE(ParseCommandLine(SplitWords("-out tiff -compress lzw -q 55 -progressive -gif87a -os2 -ascii -optimize "
                                          "-transparent 7 f"),
                               &opt, &error))
      << error;
  TslPicture pic{};
  TslParams sp;
  SaveParams(opt, pic, &sp);
  EXPECT_EQ(sp.format, tslFormatGetIndex("tiff"));
  EXPECT_EQ(sp.compression, TSL_TIFF_LZW);
  EXPECT_EQ(sp.quality, 55);
  EXPECT_EQ(sp.progressive, 1);
  EXPECT_EQ(sp.gif87a_header, 1);
  EXPECT_EQ(sp.os2_header, 1);
  EXPECT_EQ(sp.ppm_ascii, 1);
  EXPECT_EQ(sp.optimize_huffman, 1);
  EXPECT_EQ(sp.transparent_index, 7);
  ASSERT_TRUE(ParseCommandLine(SplitWords("-out tiff -compress g4 f"), &opt, &error));
  SaveParams(opt, pic, &sp);
  EXPECT_EQ(sp.compression, TSL_TIFF_CCITT_G4);
  ConvOptions png;
  ASSERT_TRUE(ParseCommandLine(SplitWords("-out png f"), &png, &error));
  SaveParams(png, pic, &sp);
  EXPECT_EQ(sp.compression, 6);  // deflated unless asked otherwise
  ASSERT_TRUE(ParseCommandLine(SplitWords("-out png -compress 0 f"), &png, &error));
  SaveParams(png, pic, &sp);
  EXPECT_EQ(sp.compression, 0);
}

}  // namespace
}  // namespace quilla

namespace quilla {
namespace {

// The format options reach the library's parameters; "-dpi" stays the
// Set DPI operation of the scripts.
TEST(TesconvOptions, FormatSettingsReachTheParameters) {
  ConvOptions opt;
  std::string error;
  ASSERT_TRUE(ParseCommandLine(SplitWords("-psdpi 144 -pspage 612x792 -grobbpp 2 -hp49 -dpx10 -dpi 300 300 "
                                          "-out dpx a.ps"),
                               &opt, &error))
      << error;
  TslParams load, save;
  LoadParams(opt, &load);
  EXPECT_EQ(load.ps_dpi, 144);
  EXPECT_EQ(load.ps_page_width, 612);
  EXPECT_EQ(load.ps_page_height, 792);
  EXPECT_EQ(load.grob_bpp, 2);
  TslPicture pic{};
  SaveParams(opt, pic, &save);
  EXPECT_EQ(save.hp49_header, 1);
  EXPECT_EQ(save.dpx_10bits, 1);
  ASSERT_EQ(opt.ops.size(), 1u);
  EXPECT_STREQ(OpCatalogue()[opt.ops[0].index].option, "-dpi");
  for (const char *bad : {"-psdpi 5 a.ps", "-pspage 612 a.ps", "-pspage 0x792 a.ps", "-pspage 99999x1 a.ps",
                          "-grobbpp 9 a.grob"}) {
    ConvOptions o;
    EXPECT_FALSE(ParseCommandLine(SplitWords(bad), &o, &error)) << bad;
    EXPECT_FALSE(error.empty()) << bad;
  }
}

// -lut10to8 reads film samples through a LUT file: an inverting table
// turns a 10-bit DPX of black and white into white and black.
TEST(TesconvOptions, LutFilesReachTheReader) {
  testutil::TempDir dir;
  std::string in_lut = "LUT: 1 1024\n", out_lut = "LUT: 3 256\n";
  for (int i = 0; i < 1024; ++i) in_lut += std::to_string(255 - i / 4) + "\n";
  for (int i = 0; i < 256; ++i) out_lut += std::to_string(i * 4) + "\n";
  testutil::WriteFile(dir.file("in.lut"), in_lut);
  testutil::WriteFile(dir.file("out.lut"), out_lut);
  ConvOptions opt;
  std::string error;
  ASSERT_TRUE(ParseCommandLine(SplitWords("-lut10to8 " + dir.file("in.lut") + " -lut8to10 " + dir.file("out.lut") +
                                          " -out dpx a.dpx"),
                               &opt, &error))
      << error;
  testutil::Pic pic(testutil::MakePicture(TSL_RGB, 2, 1, 0));
  pic->pixels[0] = pic->pixels[1] = pic->pixels[2] = 0;
  pic->pixels[3] = pic->pixels[4] = pic->pixels[5] = 255;
  TslParams save, load;
  SaveParams(opt, pic, &save);
  EXPECT_EQ(save.lut_size, 256);
  save.dpx_10bits = 1;
  ASSERT_EQ(tslSave(dir.file("a.dpx").c_str(), &pic, &save), TSL_OK);
  LoadParams(opt, &load);
  testutil::Pic back;
  ASSERT_EQ(tslLoad(dir.file("a.dpx").c_str(), &back, &load), TSL_OK);
  EXPECT_EQ(back->pixels[0], 255);
  EXPECT_EQ(back->pixels[3], 0);
  for (const char *bad : {"-lut10to8", "-lut10to8 /nonexistent/x.lut"}) {
    ConvOptions o;
    EXPECT_FALSE(ParseCommandLine(SplitWords(std::string(bad) + " -out png a"), &o, &error)) << bad;
    EXPECT_NE(error.find("-lut10to8"), std::string::npos) << error;
  }
}

}  // namespace
}  // namespace quilla
