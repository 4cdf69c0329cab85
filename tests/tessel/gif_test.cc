// GIF reader and writer: round trips, animation pages against ImageMagick's
// coalesced frames, damaged and absurd files, limits and stopping.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "test_util.h"
#include "tessel.h"

namespace {

using testutil::TempDir;

int GifIndex() { return tslFormatGetIndex("gif"); }

TslParams SaveParams() {
  TslParams p;
  tslDefaultParams(&p);
  p.format = GifIndex();
  return p;
}

int Load(const std::string &path, TslPicture *pic, int page = 0, unsigned flags = 0) {
  TslParams p;
  tslDefaultParams(&p);
  p.page = page;
  p.flags = flags;
  return tslLoad(path.c_str(), pic, &p);
}

// Same colours and same alpha; colours only compared where visible.
bool SameRgba(const TslPicture &a, const std::vector<uint8_t> &rgba) {
  if (rgba.size() != static_cast<size_t>(a.width) * a.height * 4) return false;
  std::vector<uint8_t> row(a.width * 4);
  for (uint32_t y = 0; y < a.height; ++y) {
    tslGetRowRGBA(&a, y, row.data());
    const uint8_t *ref = &rgba[static_cast<size_t>(y) * a.width * 4];
    for (uint32_t x = 0; x < a.width; ++x) {
      if (row[4 * x + 3] != ref[4 * x + 3]) return false;
      if (ref[4 * x + 3] && std::memcmp(&row[4 * x], &ref[4 * x], 3) != 0) return false;
    }
  }
  return true;
}

// A GIF put together byte by byte: screen w x h with a 2-entry global
// table, then frames of the given rectangles whose LZW data encode the
// pixels 0, 3 (an index beyond the table) repeated.
std::string HandMadeGif(int w, int h, const std::vector<std::vector<int>> &frames) {
  std::string s = "GIF89a";
  auto u16 = [&s](int v) { s += static_cast<char>(v & 255); s += static_cast<char>(v >> 8); };
  u16(w);
  u16(h);
  s += '\x80';
  s += '\0';
  s += '\0';
  s += std::string("\xff\x00\x00\x00\xff\x00", 6);
  for (const auto &f : frames) {
    s += ',';
    u16(f[0]);
    u16(f[1]);
    u16(f[2]);
    u16(f[3]);
    s += '\0';
    s += '\x02';
    // Codes of 3 bits: clear (4), 0, 3, end (5).
    s += std::string("\x02\xc4\x0a\x00", 4);
  }
  s += ';';
  return s;
}

TEST(Gif, RoundTripEveryKind) {
  TempDir dir;
  struct Case { int model; int colors; bool gif87; bool interlace; };
  const Case cases[] = {{TSL_INDEXED, 256, false, false}, {TSL_INDEXED, 5, true, false},
                        {TSL_INDEXED, 2, false, true},    {TSL_INDEXED, 16, false, true},
                        {TSL_GREY, 256, false, false},    {TSL_BINARY, 2, true, true}};
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << "model " << c.model << " colors " << c.colors);
    TslPicture src = testutil::MakePicture(c.model, 37, 23, 7, c.colors);
    TslParams p = SaveParams();
    p.gif87a_header = c.gif87;
    p.progressive = c.interlace;
    const std::string path = dir.file("rt.gif");
    ASSERT_EQ(tslSave(path.c_str(), &src, &p), TSL_OK);
    const std::string bytes = testutil::ReadFile(path);
    EXPECT_EQ(bytes.substr(0, 6), c.gif87 ? "GIF87a" : "GIF89a");
    // The global table is as small as the colours allow: 2^(bits) >= colors.
    int bits = 1;
    while ((1 << bits) < c.colors) ++bits;
    EXPECT_EQ((static_cast<uint8_t>(bytes[10]) & 7) + 1, bits);
    TslPicture back;
    ASSERT_EQ(Load(path, &back), TSL_OK);
    EXPECT_EQ(back.color_model, TSL_INDEXED);
    EXPECT_TRUE(testutil::SameColors(src, back));
    if (c.model == TSL_INDEXED) {
      EXPECT_TRUE(testutil::SamePixels(src, back));
      EXPECT_EQ(back.colors, 1 << bits);
    }
    EXPECT_EQ(back.transparent_index, -1);
    tslFree(&back);
    tslFree(&src);
  }
}

TEST(Gif, TransparencyAndCommentNeed89a) {
  TempDir dir;
  TslPicture src = testutil::MakePicture(TSL_INDEXED, 20, 10, 3, 16);
  for (int gif87 : {0, 1}) {
    TslParams p = SaveParams();
    p.transparent_index = 9;
    p.gif87a_header = gif87;
    p.comment = "made by tessel";
    const std::string path = dir.file("t.gif");
    ASSERT_EQ(tslSave(path.c_str(), &src, &p), TSL_OK);
    TslPicture back;
    ASSERT_EQ(Load(path, &back), TSL_OK);
    EXPECT_EQ(back.transparent_index, gif87 ? -1 : 9);
    EXPECT_TRUE(testutil::SamePixels(src, back));
    tslFree(&back);
    TslFileInfo info;
    ASSERT_EQ(tslFileInformation(path.c_str(), -1, 0, &info), TSL_OK);
    if (gif87) {
      EXPECT_EQ(info.comment, nullptr);
    } else {
      ASSERT_NE(info.comment, nullptr);
      EXPECT_STREQ(info.comment, "made by tessel");
    }
    EXPECT_EQ(info.pages, 1);
    EXPECT_EQ(info.color_model, TSL_INDEXED);
    EXPECT_EQ(info.compression, TSL_COMP_LZW);
    tslFileInformationFree(&info);
  }
  tslFree(&src);
}

TEST(Gif, MultiFrameWriterPagesReadBack) {
  TempDir dir;
  const std::string path = dir.file("multi.gif");
  TslParams p = SaveParams();
  TslFile *file = nullptr;
  ASSERT_EQ(tslFileCreate(&file, path.c_str(), GifIndex(), 3, &p), TSL_OK);
  // Frame 1 shares the first palette, frame 2 has its own; frame 3 is grey.
  TslPicture pics[3] = {testutil::MakePicture(TSL_INDEXED, 30, 20, 1, 64),
                        testutil::MakePicture(TSL_INDEXED, 30, 20, 1, 64),
                        testutil::MakePicture(TSL_GREY, 30, 20, 5)};
  for (uint32_t i = 0; i < pics[1].bytes_per_line * pics[1].height; ++i)
    pics[1].pixels[i] = static_cast<uint8_t>(63 - pics[1].pixels[i]);
  for (TslPicture &pic : pics) ASSERT_EQ(tslFileAddPicture(file, &pic, &p), TSL_OK);
  ASSERT_EQ(tslFileClose(file), TSL_OK);

  TslFileInfo info;
  ASSERT_EQ(tslFileInformation(path.c_str(), -1, 0, &info), TSL_OK);
  EXPECT_EQ(info.pages, 3);
  EXPECT_EQ(info.loop_count, 0);
  ASSERT_NE(info.delays, nullptr);
  EXPECT_EQ(info.delays[2], 100);
  EXPECT_EQ(info.color_model, TSL_RGBA);  // two palettes
  tslFileInformationFree(&info);
  for (int page : {2, 0, 1, 2}) {
    SCOPED_TRACE(page);
    TslPicture back;
    ASSERT_EQ(Load(path, &back, page), TSL_OK);
    EXPECT_EQ(back.color_model, TSL_RGBA);
    EXPECT_TRUE(testutil::SameColors(pics[page], back, 0, true));
    tslFree(&back);
  }
  TslPicture none;
  EXPECT_NE(Load(path, &none, 3), TSL_OK);
  for (TslPicture &pic : pics) tslFree(&pic);
}

TEST(Gif, SharedPaletteAnimationLoadsIndexed) {
  TempDir dir;
  const std::string path = dir.file("same.gif");
  TslParams p = SaveParams();
  TslFile *file = nullptr;
  ASSERT_EQ(tslFileCreate(&file, path.c_str(), GifIndex(), 2, &p), TSL_OK);
  TslPicture a = testutil::MakePicture(TSL_INDEXED, 16, 16, 2, 32), b = testutil::MakePicture(TSL_INDEXED, 16, 16, 2, 32);
  b.pixels[5] = static_cast<uint8_t>((b.pixels[5] + 1) % 32);
  ASSERT_EQ(tslFileAddPicture(file, &a, &p), TSL_OK);
  ASSERT_EQ(tslFileAddPicture(file, &b, &p), TSL_OK);
  ASSERT_EQ(tslFileClose(file), TSL_OK);
  TslPicture back;
  ASSERT_EQ(Load(path, &back, 1), TSL_OK);
  EXPECT_EQ(back.color_model, TSL_INDEXED);
  EXPECT_TRUE(testutil::SamePixels(b, back));
  tslFree(&back);
  tslFree(&a);
  tslFree(&b);
}

// Pages of an animation made by ImageMagick with every disposal method,
// offsets, transparency and an interlaced frame, against its coalesced frames.
TEST(Gif, AnimationPagesMatchCoalescedFrames) {
  if (!testutil::HaveTool("convert")) GTEST_SKIP() << "ImageMagick not installed";
  TempDir dir;
  const std::string d = dir.path() + "/";
  std::string cmd = "cd '" + d + "' && convert -size 40x30 gradient:red-blue bg.png"
                    " && convert -size 12x10 xc:lime -fill white -draw 'rectangle 3,3 6,6' -transparent white a.png"
                    " && convert -size 15x8 plasma:fractal -seed 4 b.png"
                    " && convert -size 9x9 xc:yellow c.png"
                    " && convert -size 20x12 xc:magenta -fill black -draw 'circle 10,6 10,2' d.png"
                    " && convert -delay 7 -dispose none bg.png"
                    " -dispose previous -page +3+4 a.png"
                    " -dispose background -page +20+10 b.png"
                    " -dispose none -page +25+2 c.png"
                    " -dispose previous -page +5+15 d.png"
                    " -dispose none -page +0+0 c.png -loop 3 -interlace GIF anim.gif"
                    " && convert anim.gif -coalesce -depth 8 rgba:f%d.rgba";
  std::string out;
  ASSERT_EQ(testutil::Run(cmd, &out), 0) << out;
  const std::string path = d + "anim.gif";
  TslFileInfo info;
  ASSERT_EQ(tslFileInformation(path.c_str(), -1, 0, &info), TSL_OK);
  ASSERT_EQ(info.pages, 6);
  EXPECT_EQ(info.loop_count, 3);
  ASSERT_NE(info.delays, nullptr);
  EXPECT_EQ(info.delays[0], 70);
  EXPECT_EQ(info.width, 40u);
  tslFileInformationFree(&info);
  // In order (resuming from the previous page), backwards and one at random.
  for (int page : {0, 1, 2, 3, 4, 5, 4, 2, 3, 1, 5}) {
    SCOPED_TRACE(page);
    std::string ref = testutil::ReadFile(d + "f" + std::to_string(page) + ".rgba");
    TslPicture pic;
    ASSERT_EQ(Load(path, &pic, page), TSL_OK);
    EXPECT_TRUE(SameRgba(pic, std::vector<uint8_t>(ref.begin(), ref.end())));
    tslFree(&pic);
  }
}

TEST(Gif, InterlacedFileFromImageMagick) {
  if (!testutil::HaveTool("convert")) GTEST_SKIP() << "ImageMagick not installed";
  TempDir dir;
  const std::string d = dir.path() + "/";
  ASSERT_EQ(testutil::Run("cd '" + d + "' && convert -size 61x47 plasma:fractal -seed 9 -colors 200 -interlace GIF"
                          " p.gif && convert p.gif p.ppm"), 0);
  TslPicture pic, ref;
  ASSERT_EQ(Load(d + "p.gif", &pic), TSL_OK);
  ASSERT_TRUE(testutil::ReadPnm(d + "p.ppm", &ref));
  EXPECT_EQ(pic.color_model, TSL_INDEXED);
  EXPECT_TRUE(testutil::SameColors(pic, ref));
  tslFree(&pic);
  tslFree(&ref);
}

TEST(Gif, OddIndicesAndFramesOutsideTheScreen) {
  TempDir dir;
  const std::string path = dir.file("odd.gif");
  // Second frame lies entirely outside the 4x2 screen.
  testutil::WriteFile(path, HandMadeGif(4, 2, {{0, 0, 2, 1}, {100, 100, 2, 1}}));
  TslPicture pages[2];
  for (int page : {0, 1}) {
    ASSERT_EQ(Load(path, &pages[page], page), TSL_OK);
    // The first frame leaves the screen partly uncovered: true colour with alpha.
    ASSERT_EQ(pages[page].color_model, TSL_RGBA);
    ASSERT_EQ(pages[page].width, 4u);
    ASSERT_EQ(pages[page].height, 2u);
    const uint8_t *px = pages[page].pixels;
    EXPECT_EQ(std::vector<uint8_t>(px, px + 12), (std::vector<uint8_t>{255, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 0}));
    EXPECT_EQ(px[pages[page].bytes_per_line + 3], 0);
  }
  EXPECT_TRUE(testutil::SamePixels(pages[0], pages[1]));
  tslFree(&pages[0]);
  tslFree(&pages[1]);
  TslPicture pic;

  // A single 2x1 frame with an index beyond its 2-entry table.
  testutil::WriteFile(path, HandMadeGif(2, 1, {{0, 0, 2, 1}}));
  ASSERT_EQ(Load(path, &pic), TSL_OK);
  ASSERT_EQ(pic.color_model, TSL_INDEXED);
  EXPECT_EQ(pic.pixels[0], 0);
  EXPECT_EQ(pic.pixels[1], 3);
  EXPECT_EQ(pic.colors, 2);
  tslFree(&pic);
}

TEST(Gif, TruncatedAndAbsurdFiles) {
  TempDir dir;
  TslPicture src = testutil::MakePicture(TSL_INDEXED, 64, 64, 11, 256);
  TslParams p = SaveParams();
  const std::string path = dir.file("full.gif");
  ASSERT_EQ(tslSave(path.c_str(), &src, &p), TSL_OK);
  const std::string bytes = testutil::ReadFile(path);
  const std::string cut = dir.file("cut.gif");
  for (size_t len : {size_t(8), size_t(13), bytes.size() / 3, bytes.size() / 2, bytes.size() - 2}) {
    SCOPED_TRACE(len);
    testutil::WriteFile(cut, bytes.substr(0, len));
    TslPicture pic;
    int code = Load(cut, &pic);
    EXPECT_TRUE(code == TSL_ERR_READ || code == TSL_ERR_CORRUPT) << code;
    if (len > 800) {
      ASSERT_EQ(Load(cut, &pic, 0, TSL_FLAG_KEEP_DAMAGED), TSL_OK);
      // The rows decoded before the cut are right.
      EXPECT_EQ(std::memcmp(pic.pixels, src.pixels, 64 * 4), 0);
      tslFree(&pic);
    }
  }
  // A huge logical screen is refused before anything is allocated.
  std::string huge = bytes;
  huge[6] = huge[7] = huge[8] = huge[9] = '\xff';
  testutil::WriteFile(cut, huge);
  TslPicture pic;
  TslParams lp;
  tslDefaultParams(&lp);
  lp.max_pixels = 1 << 20;
  EXPECT_EQ(tslLoad(cut.c_str(), &pic, &lp), TSL_ERR_MEMORY);
  // Random damage anywhere never crashes.
  std::mt19937 rng(5);
  for (int i = 0; i < 300; ++i) {
    std::string bad = bytes;
    for (int k = 0; k < 4; ++k) bad[rng() % bad.size()] = static_cast<char>(rng());
    testutil::WriteFile(cut, bad);
    if (Load(cut, &pic, static_cast<int>(rng() % 2), rng() % 2 ? TSL_FLAG_KEEP_DAMAGED : 0) == TSL_OK) tslFree(&pic);
  }
  tslFree(&src);
}

int StopAtHalf(int what, int value, void *data) {
  ++*static_cast<int *>(data);
  return what == 0 && value >= 50;
}

TEST(Gif, PixelLimitAndStop) {
  TempDir dir;
  TslPicture src = testutil::MakePicture(TSL_INDEXED, 100, 80, 4, 200);
  TslParams p = SaveParams();
  const std::string path = dir.file("l.gif");
  ASSERT_EQ(tslSave(path.c_str(), &src, &p), TSL_OK);
  TslParams lp;
  tslDefaultParams(&lp);
  lp.max_pixels = 100 * 80 - 1;
  TslPicture pic;
  EXPECT_EQ(tslLoad(path.c_str(), &pic, &lp), TSL_ERR_MEMORY);
  EXPECT_EQ(pic.pixels, nullptr);
  lp.max_pixels = 0;
  int calls = 0;
  lp.progress = StopAtHalf;
  lp.progress_data = &calls;
  EXPECT_EQ(tslLoad(path.c_str(), &pic, &lp), TSL_STOPPED);
  EXPECT_GT(calls, 1);
  EXPECT_EQ(pic.pixels, nullptr);
  tslFree(&src);
}

}  // namespace
