// GIF reader and writer: round trips, animation pages against ImageMagick's
// coalesced frames, damaged and absurd files, limits and stopping.
#include <gtest/gtest.h>

#include "legacy_test_helpers.h"

using namespace testutil;

namespace {

// Same colours and same alpha; colours only compared where visible.
bool SameRgba(const TslPicture &a, const std::string &rgba) {
  if (rgba.size() != static_cast<size_t>(a.width) * a.height * 4) return false;
  std::vector<uint8_t> row(a.width * 4);
  for (uint32_t y = 0; y < a.height; ++y) {
    tslGetRowRGBA(&a, y, row.data());
    const char *ref = &rgba[static_cast<size_t>(y) * a.width * 4];
    for (uint32_t x = 0; x < a.width; ++x) {
      if (row[4 * x + 3] != static_cast<uint8_t>(ref[4 * x + 3])) return false;
      if (ref[4 * x + 3] && std::memcmp(&row[4 * x], &ref[4 * x], 3) != 0) return false;
    }
  }
  return true;
}

// A GIF put together byte by byte: screen w x h with a 2-entry global
// table, then frames of the given rectangles whose LZW data encode the
// pixels 0, 3 (an index beyond the table) repeated.
std::string HandMadeGif(int w, int h, const std::vector<std::vector<int>> &frames) {
  std::string s = "GIF89a" + Le16(w) + Le16(h) + std::string("\x80\0\0\xff\0\0\0\xff\0", 9);
  for (const auto &f : frames)  // codes of 3 bits: clear (4), 0, 3, end (5)
    s += "," + Le16(f[0]) + Le16(f[1]) + Le16(f[2]) + Le16(f[3]) + std::string("\0\x02\x02\xc4\x0a\0", 6);
  return s + ";";
}

// An animation of `pictures` written with default parameters.
void WriteAnimation(const std::string &path, std::vector<Pic> &pictures) {
  TslParams p = Params("gif");
  TslFile *file = nullptr;
  ASSERT_EQ(tslFileCreate(&file, path.c_str(), Fmt("gif"), static_cast<int>(pictures.size()), &p), TSL_OK);
  for (Pic &pic : pictures) ASSERT_EQ(tslFileAddPicture(file, &pic, &p), TSL_OK);
  ASSERT_EQ(tslFileClose(file), TSL_OK);
}

TEST(Gif, RoundTripEveryKind) {
  TempDir dir;
  const struct {
    int model, colors;
    bool gif87, interlace;
  } cases[] = {{TSL_INDEXED, 256, false, false}, {TSL_INDEXED, 5, true, false}, {TSL_INDEXED, 2, false, true},
               {TSL_INDEXED, 16, false, true},   {TSL_GREY, 256, false, false}, {TSL_BINARY, 2, true, true}};
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << "model " << c.model << " colors " << c.colors);
    Pic src(MakePicture(c.model, 37, 23, 7, c.colors)), back;
    TslParams p = Params("gif");
    p.gif87a_header = c.gif87;
    p.progressive = c.interlace;
    const std::string path = dir.file("rt.gif");
    ASSERT_EQ(Save(path, src, p), TSL_OK);
    const std::string bytes = ReadFile(path);
    EXPECT_EQ(bytes.substr(0, 6), c.gif87 ? "GIF87a" : "GIF89a");
    // The global table is as small as the colours allow: 2^(bits) >= colors.
    int bits = 1;
    while ((1 << bits) < c.colors) ++bits;
    EXPECT_EQ((static_cast<uint8_t>(bytes[10]) & 7) + 1, bits);
    ASSERT_EQ(Load(path, &back), TSL_OK);
    EXPECT_EQ(back->color_model, TSL_INDEXED);
    EXPECT_TRUE(SameColors(src, back));
    if (c.model == TSL_INDEXED) {
      EXPECT_TRUE(SamePixels(src, back));
      EXPECT_EQ(back->colors, 1 << bits);
    }
    EXPECT_EQ(back->transparent_index, -1);
  }
  // Transparency and a comment need GIF89a.
  Pic src(MakePicture(TSL_INDEXED, 20, 10, 3, 16));
  for (int gif87 : {0, 1}) {
    TslParams p = Params("gif");
    p.transparent_index = 9;
    p.gif87a_header = gif87;
    p.comment = "made by tessel";
    const std::string path = dir.file("t.gif");
    ASSERT_EQ(Save(path, src, p), TSL_OK);
    Pic back;
    ASSERT_EQ(Load(path, &back), TSL_OK);
    EXPECT_EQ(back->transparent_index, gif87 ? -1 : 9);
    EXPECT_TRUE(SamePixels(src, back));
    Info info;
    ASSERT_EQ(FileInfo(path, &info), TSL_OK);
    EXPECT_STREQ(info->comment ? info->comment : "(none)", gif87 ? "(none)" : "made by tessel");
    EXPECT_EQ(info->pages, 1);
    EXPECT_EQ(info->color_model, TSL_INDEXED);
    EXPECT_EQ(info->compression, TSL_COMP_LZW);
  }
}

TEST(Gif, MultiFrameWriterPagesReadBack) {
  TempDir dir;
  const std::string path = dir.file("multi.gif");
  // Frame 1 shares the first palette, frame 2 has its own; frame 3 is grey.
  std::vector<Pic> pics;
  pics.emplace_back(MakePicture(TSL_INDEXED, 30, 20, 1, 64));
  pics.emplace_back(MakePicture(TSL_INDEXED, 30, 20, 1, 64));
  pics.emplace_back(MakePicture(TSL_GREY, 30, 20, 5));
  for (uint32_t i = 0; i < pics[1]->bytes_per_line * pics[1]->height; ++i)
    pics[1]->pixels[i] = static_cast<uint8_t>(63 - pics[1]->pixels[i]);
  WriteAnimation(path, pics);
  Info info;
  ASSERT_EQ(FileInfo(path, &info), TSL_OK);
  EXPECT_EQ(info->pages, 3);
  EXPECT_EQ(info->loop_count, 0);
  ASSERT_NE(info->delays, nullptr);
  EXPECT_EQ(info->delays[2], 100);
  EXPECT_EQ(info->color_model, TSL_RGBA);  // two palettes
  for (int page : {2, 0, 1, 2}) {
    Pic back;
    ASSERT_EQ(Load(path, &back, page), TSL_OK);
    EXPECT_EQ(back->color_model, TSL_RGBA);
    EXPECT_TRUE(SameColors(pics[page], back, 0, true)) << page;
  }
  Pic none;
  EXPECT_NE(Load(path, &none, 3), TSL_OK);
  // Frames sharing one palette load indexed.
  std::vector<Pic> same;
  same.emplace_back(MakePicture(TSL_INDEXED, 16, 16, 2, 32));
  same.emplace_back(MakePicture(TSL_INDEXED, 16, 16, 2, 32));
  same[1]->pixels[5] = static_cast<uint8_t>((same[1]->pixels[5] + 1) % 32);
  WriteAnimation(dir.file("same.gif"), same);
  Pic back;
  ASSERT_EQ(Load(dir.file("same.gif"), &back, 1), TSL_OK);
  EXPECT_EQ(back->color_model, TSL_INDEXED);
  EXPECT_TRUE(SamePixels(same[1], back));
}

// Pages of an animation made by ImageMagick with every disposal method,
// offsets, transparency and interlaced frames, against its coalesced frames.
TEST(Gif, AnimationPagesMatchCoalescedFrames) {
  if (!HaveTool("convert")) GTEST_SKIP() << "ImageMagick not installed";
  TempDir dir;
  const std::string d = dir.path() + "/";
  ASSERT_EQ(Sh("cd '" + d + "' && convert -size 40x30 gradient:red-blue bg.png"
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
               " && convert anim.gif -coalesce -depth 8 rgba:f%d.rgba"
               " && convert -size 61x47 plasma:fractal -seed 9 -colors 200 -interlace GIF p.gif && convert p.gif p.ppm"),
            0);
  const std::string path = d + "anim.gif";
  Info info;
  ASSERT_EQ(FileInfo(path, &info), TSL_OK);
  ASSERT_EQ(info->pages, 6);
  EXPECT_EQ(info->loop_count, 3);
  ASSERT_NE(info->delays, nullptr);
  EXPECT_EQ(info->delays[0], 70);
  EXPECT_EQ(info->width, 40u);
  // In order (resuming from the previous page), backwards and one at random.
  for (int page : {0, 1, 2, 3, 4, 5, 4, 2, 3, 1, 5}) {
    Pic pic;
    ASSERT_EQ(Load(path, &pic, page), TSL_OK);
    EXPECT_TRUE(SameRgba(pic, ReadFile(d + "f" + std::to_string(page) + ".rgba"))) << page;
  }
  // A single interlaced frame of 200 colours.
  Pic pic, ref;
  ASSERT_EQ(Load(d + "p.gif", &pic), TSL_OK);
  ASSERT_TRUE(ReadPnm(d + "p.ppm", &ref));
  EXPECT_EQ(pic->color_model, TSL_INDEXED);
  EXPECT_TRUE(SameColors(pic, ref));
}

TEST(Gif, OddIndicesAndFramesOutsideTheScreen) {
  TempDir dir;
  int code;
  // The second frame lies entirely outside the 4x2 screen; the first leaves
  // the screen partly uncovered: true colour with alpha.
  const std::string two = HandMadeGif(4, 2, {{0, 0, 2, 1}, {100, 100, 2, 1}});
  Pic pages[2];
  for (int page : {0, 1}) {
    pages[page] = LoadBytes(dir, two, &code, -1, page);
    ASSERT_EQ(code, TSL_OK);
    ASSERT_EQ(pages[page]->color_model, TSL_RGBA);
    ASSERT_EQ(pages[page]->width, 4u);
    ASSERT_EQ(pages[page]->height, 2u);
    const uint8_t *px = pages[page]->pixels;
    EXPECT_EQ(std::vector<uint8_t>(px, px + 12), (std::vector<uint8_t>{255, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 0}));
    EXPECT_EQ(Px(pages[page], 0, 1, 3), 0);
  }
  EXPECT_TRUE(SamePixels(pages[0], pages[1]));
  // A single 2x1 frame with an index beyond its 2-entry table.
  Pic pic = LoadBytes(dir, HandMadeGif(2, 1, {{0, 0, 2, 1}}), &code);
  ASSERT_EQ(code, TSL_OK);
  ASSERT_EQ(pic->color_model, TSL_INDEXED);
  EXPECT_EQ(pic->pixels[0], 0);
  EXPECT_EQ(pic->pixels[1], 3);
  EXPECT_EQ(pic->colors, 2);
}

TEST(Gif, TruncatedAbsurdLimitedAndStopped) {
  TempDir dir;
  Pic src(MakePicture(TSL_INDEXED, 100, 80, 11, 256));
  const std::string path = dir.file("full.gif");
  ASSERT_EQ(Save(path, src, "gif"), TSL_OK);
  const std::string bytes = ReadFile(path);
  // Past the header and the global table (13 + 768 bytes) a cut keeps the
  // picture and the rows decoded before it.
  for (size_t len : {size_t(8), size_t(13), bytes.size() / 3, bytes.size() / 2, bytes.size() - 2})
    ExpectCutHandled(dir, path, len, -1, 800, 0, 4);
  ExpectLimitAndStop(path, 100 * 80);
  // A huge logical screen is refused before anything is allocated.
  std::string huge = bytes;
  huge.replace(6, 4, "\xff\xff\xff\xff");
  WriteFile(dir.file("huge.gif"), huge);
  Pic pic;
  TslParams lp = Params();
  lp.max_pixels = 1 << 20;
  EXPECT_EQ(tslLoad(dir.file("huge.gif").c_str(), &pic, &lp), TSL_ERR_MEMORY);
  LoadRandomlyDamaged(dir, bytes, 5, 2);
}

}  // namespace
