// Display colour data and picture rendering on real X servers: a 24-bit
// TrueColor one (QUILLA_TEST_DISPLAY) and an 8-bit PseudoColor one
// (QUILLA_TEST_DISPLAY8).  Pixels are read back from pixmaps with XGetImage.
// GoogleTest first: X headers define macros (None, Bool...) that clash with it.
#include <gtest/gtest.h>

#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/display_x.h"
#include "gui_util.h"
#include "test_util.h"
#include "view/render_x.h"

namespace {

using namespace quilla;

struct Rgb {
  int r, g, b;
};

class RenderFixture : public ::testing::Test {
 protected:
  void Open(const char *env, bool verbose = false) {
    // The connection every GUI test of the process shares: colour data is
    // kept per connection, and cells allocated through another connection
    // to the same server could not be freed through this one.
    const guitest::TestServer *server = guitest::UseTestServer(env);
    if (!server) GTEST_SKIP() << env << " not set (scripts/test starts the X servers)";
    dpy_ = server->dpy;
    screen_ = DefaultScreen(dpy_);
    visual_ = InitVisual(dpy_, screen_, -1, verbose);
  }
  void TearDown() override {
    for (TslPicture &p : pics_) tslFree(&p);
    if (!dpy_) return;
    if (obj_) ReleaseDisplayObject(obj_);
    if (pixmap_) XFreePixmap(dpy_, pixmap_);
    if (gc_) XFreeGC(dpy_, gc_);
    FreeAllColourData(dpy_);
    XSync(dpy_, False);
  }
  // A display object and a cleared w x h pixmap to draw into.
  void Surface(int w, int h, bool private_map = false, const TslPicture *pic = nullptr) {
    colours_ = GetColourData(dpy_, screen_, pic, private_map);
    ASSERT_NE(colours_, nullptr);
    obj_ = MakeDisplayObject(dpy_, visual_.info.depth, colours_);
    ASSERT_NE(obj_, nullptr);
    pixmap_ = XCreatePixmap(dpy_, RootWindow(dpy_, screen_), w, h, visual_.info.depth);
    gc_ = XCreateGC(dpy_, pixmap_, 0, nullptr);
    width_ = w;
    height_ = h;
    Clear();
  }
  void Clear() {
    XSetForeground(dpy_, gc_, marker_);
    XFillRectangle(dpy_, pixmap_, gc_, 0, 0, width_, height_);
  }
  TslPicture &Keep(TslPicture p) {
    pics_.push_back(p);
    return pics_.back();
  }
  // Raw pixel values of the pixmap.
  std::vector<unsigned long> Grab() {
    XSync(dpy_, False);
    XImage *im = XGetImage(dpy_, pixmap_, 0, 0, width_, height_, AllPlanes, ZPixmap);
    std::vector<unsigned long> out;
    if (!im) return out;
    for (int y = 0; y < height_; ++y)
      for (int x = 0; x < width_; ++x) out.push_back(XGetPixel(im, x, y));
    XDestroyImage(im);
    return out;
  }
  // A pixel's channel fields, read through the visual's masks.
  Rgb Decode(unsigned long p) const {
    auto field = [p](unsigned long mask) {
      if (!mask) return 0;
      int shift = 0;
      while (!((mask >> shift) & 1)) ++shift;
      return static_cast<int>((p & mask) >> shift);
    };
    return Rgb{field(visual_.info.red_mask), field(visual_.info.green_mask), field(visual_.info.blue_mask)};
  }
  // What an 8-bit colour becomes in those fields (itself on 24-bit visuals).
  Rgb Quantise(int r, int g, int b) const {
    auto q = [](int v, unsigned long mask) {
      int bits = 0;
      for (unsigned long m = mask; m; m >>= 1) bits += m & 1;
      return bits >= 8 ? v : v >> (8 - bits);
    };
    return Rgb{q(r, visual_.info.red_mask), q(g, visual_.info.green_mask), q(b, visual_.info.blue_mask)};
  }
  bool Same(unsigned long pixel, const uint8_t *rgb) const {
    const Rgb c = Decode(pixel), w = Quantise(rgb[0], rgb[1], rgb[2]);
    return c.r == w.r && c.g == w.g && c.b == w.b;
  }
  // Every pixel of the picture (drawn at (ox, oy), 1:1) equals its RGB; the
  // rest of the pixmap keeps the marker.
  void ExpectPictureAt(const TslPicture &pic, int ox, int oy) {
    const std::vector<unsigned long> px = Grab();
    ASSERT_EQ(px.size(), static_cast<size_t>(width_) * height_);
    std::vector<uint8_t> row(pic.width * 3);
    int bad = 0;
    for (int y = 0; y < height_; ++y) {
      const int py = y - oy;
      if (py >= 0 && py < static_cast<int>(pic.height)) tslGetRowRGB(&pic, py, row.data());
      for (int x = 0; x < width_; ++x) {
        const int px_x = x - ox;
        const unsigned long got = px[static_cast<size_t>(y) * width_ + x];
        const bool inside = py >= 0 && py < static_cast<int>(pic.height) && px_x >= 0 && px_x < static_cast<int>(pic.width);
        if (!inside) {
          if (got != marker_ && bad++ < 5) ADD_FAILURE() << "drawn outside the picture at " << x << "," << y;
          continue;
        }
        const Rgb c = Decode(got);
        const uint8_t *want = &row[static_cast<size_t>(px_x) * 3];
        if (!Same(got, want) && bad++ < 5)
          ADD_FAILURE() << "pixel " << px_x << "," << py << " is " << c.r << "," << c.g << "," << c.b << " not "
                        << int(want[0]) << "," << int(want[1]) << "," << int(want[2]);
      }
    }
    EXPECT_EQ(bad, 0);
  }

  static constexpr unsigned long kMarker = 0x123456;
  unsigned long marker_ = kMarker;  // what the marker reads back as at the visual's depth
  Display *dpy_ = nullptr;
  int screen_ = 0;
  VisualDesc visual_;
  ColourData *colours_ = nullptr;
  DisplayObject *obj_ = nullptr;
  Pixmap pixmap_ = 0;
  GC gc_ = nullptr;
  int width_ = 0, height_ = 0;
  std::vector<TslPicture> pics_;
};

class TrueColorRender : public RenderFixture {
 protected:
  void SetUp() override {
    Open("QUILLA_TEST_DISPLAY");
    if (IsSkipped() || HasFatalFailure()) return;
    ASSERT_EQ(visual_.info.cls, kTrueColor);
    marker_ = kMarker & ((visual_.info.depth >= 32 ? 0 : 1ul << visual_.info.depth) - 1);
  }
};

TEST_F(TrueColorRender, OneToOneEqualsThePictureForEveryColourModel) {
  Surface(320, 120);
  const int models[] = {TSL_RGB, TSL_BGR, TSL_RGBA, TSL_BGRA, TSL_ARGB, TSL_ABGR, TSL_GREY, TSL_INDEXED, TSL_BINARY};
  for (int model : models) {
    SCOPED_TRACE(model);
    TslPicture &pic = Keep(testutil::MakePicture(model, 300, 100, 7, model == TSL_INDEXED ? 200 : 256));
    ASSERT_NE(pic.pixels, nullptr);
    Clear();
    ASSERT_TRUE(PrepareDisplay(obj_, &pic, 300, 100));
    const long before = GetRenderStats(obj_).tiles_converted;
    DrawExposedArea(pixmap_, gc_, obj_, 9, 11, 0, 0, width_, height_);
    // 300 wide at 1:1: a 256-wide tile and a 44-wide one.
    EXPECT_EQ(GetRenderStats(obj_).tiles_converted - before, 2);
    ExpectPictureAt(pic, 9, 11);
  }
}

TEST_F(TrueColorRender, PartialExposeDrawsOnlyItsRectangle) {
  Surface(300, 300);
  TslPicture &pic = Keep(testutil::MakePicture(TSL_RGB, 280, 280, 3));
  ASSERT_TRUE(PrepareDisplay(obj_, &pic, 280, 280));
  // Tiles are cut from the exposed rectangle, so a small one is one tile
  // even across the corner of the picture's 256 grid.
  DrawExposedArea(pixmap_, gc_, obj_, 0, 0, 250, 250, 20, 20);
  EXPECT_EQ(GetRenderStats(obj_).tiles_converted, 1);
  const std::vector<unsigned long> px = Grab();
  std::vector<uint8_t> row(pic.width * 3);
  for (int y = 240; y < 275; ++y) {
    tslGetRowRGB(&pic, y, row.data());
    for (int x = 240; x < 275; ++x) {
      const unsigned long got = px[static_cast<size_t>(y) * width_ + x];
      if (x >= 250 && x < 270 && y >= 250 && y < 270) {
        ASSERT_TRUE(Same(got, &row[x * 3])) << x << "," << y;
      } else {
        ASSERT_EQ(got, marker_) << x << "," << y;
      }
    }
  }
}

TEST_F(TrueColorRender, ExposeOutsideThePictureDrawsNothing) {
  Surface(400, 200);
  TslPicture &pic = Keep(testutil::MakePicture(TSL_RGB, 100, 50, 5));
  ASSERT_TRUE(PrepareDisplay(obj_, &pic, 100, 50));
  DrawExposedArea(pixmap_, gc_, obj_, 20, 30, 200, 0, 100, 100);   // right of it
  DrawExposedArea(pixmap_, gc_, obj_, 20, 30, 0, 80, 400, 100);    // below it (touching the edge)
  DrawExposedArea(pixmap_, gc_, obj_, 20, 30, 0, 0, 20, 200);      // left, ending at the origin
  EXPECT_EQ(GetRenderStats(obj_).tiles_converted, 0);
  EXPECT_EQ(GetRenderStats(obj_).tiles_reused, 0);
  for (unsigned long p : Grab()) ASSERT_EQ(p, marker_);
}

TEST_F(TrueColorRender, SecondExposeOfTheLastTileReusesTheHeldImage) {
  Surface(320, 120);
  TslPicture &pic = Keep(testutil::MakePicture(TSL_RGB, 300, 100, 9));
  ASSERT_TRUE(PrepareDisplay(obj_, &pic, 300, 100));
  DrawExposedArea(pixmap_, gc_, obj_, 0, 0, 0, 0, 320, 120);
  EXPECT_EQ(GetRenderStats(obj_).tiles_converted, 2);
  // The last tile was 256..299 x 0..99: exposing exactly it puts the held image.
  Clear();
  DrawExposedArea(pixmap_, gc_, obj_, 0, 0, 256, 0, 44, 100);
  EXPECT_EQ(GetRenderStats(obj_).tiles_converted, 2);
  EXPECT_EQ(GetRenderStats(obj_).tiles_reused, 1);
  // An expose that clips to the same rectangle is the same tile too.
  DrawExposedArea(pixmap_, gc_, obj_, 0, 0, 256, 0, 64, 120);
  EXPECT_EQ(GetRenderStats(obj_).tiles_reused, 2);
  const std::vector<unsigned long> px = Grab();
  std::vector<uint8_t> row(300 * 3);
  for (int y = 0; y < 100; ++y) {
    tslGetRowRGB(&pic, y, row.data());
    for (int x = 256; x < 300; ++x) {
      ASSERT_TRUE(Same(px[static_cast<size_t>(y) * width_ + x], &row[x * 3])) << x << "," << y;
    }
  }
  EXPECT_EQ(px[0], marker_);  // the first tile was not drawn again
  // Another origin, or a new Prepare, converts again.
  DrawExposedArea(pixmap_, gc_, obj_, 1, 0, 257, 0, 44, 100);
  EXPECT_EQ(GetRenderStats(obj_).tiles_converted, 3);
  ASSERT_TRUE(PrepareDisplay(obj_, &pic, 300, 100));
  DrawExposedArea(pixmap_, gc_, obj_, 1, 0, 257, 0, 44, 100);
  EXPECT_EQ(GetRenderStats(obj_).tiles_converted, 4);
  EXPECT_EQ(GetRenderStats(obj_).tiles_reused, 2);
}

TEST_F(TrueColorRender, ZoomInRepeatsPixels) {
  Surface(300, 200);
  TslPicture &pic = Keep(testutil::MakePicture(TSL_INDEXED, 140, 90, 4));
  SetDisplayZoom(obj_, 200);
  ASSERT_TRUE(PrepareDisplay(obj_, &pic, 280, 180));
  DrawExposedArea(pixmap_, gc_, obj_, 0, 0, 0, 0, width_, height_);
  EXPECT_EQ(GetRenderStats(obj_).tiles_converted, 2);
  const std::vector<unsigned long> px = Grab();
  std::vector<uint8_t> row(pic.width * 3);
  for (int y = 0; y < 180; ++y) {
    tslGetRowRGB(&pic, y / 2, row.data());
    for (int x = 0; x < 280; ++x) {
      ASSERT_TRUE(Same(px[static_cast<size_t>(y) * width_ + x], &row[(x / 2) * 3])) << x << "," << y;
    }
  }
  EXPECT_EQ(px[static_cast<size_t>(185) * width_ + 10], marker_);
}

TEST_F(TrueColorRender, ZoomOutAveragesTheSourcePixels) {
  Surface(200, 100);
  // Alternating black and white columns: sampling would give one of them,
  // averaging gives grey.
  TslPicture &stripes = Keep(TslPicture{});
  ASSERT_TRUE(tslAllock(&stripes, TSL_GREY, 0, 120, 60));
  for (uint32_t y = 0; y < 60; ++y)
    for (uint32_t x = 0; x < 120; ++x) stripes.pixels[y * stripes.bytes_per_line + x] = (x & 1) ? 255 : 0;
  SetDisplayZoom(obj_, 50);
  ASSERT_TRUE(PrepareDisplay(obj_, &stripes, 60, 30));
  DrawExposedArea(pixmap_, gc_, obj_, 0, 0, 0, 0, width_, height_);
  std::vector<unsigned long> px = Grab();
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 60; ++x) {
      const uint8_t grey[3] = {128, 128, 128};
      ASSERT_TRUE(Same(px[static_cast<size_t>(y) * width_ + x], grey)) << x << "," << y;
    }
  EXPECT_EQ(px[static_cast<size_t>(30) * width_], marker_);

  // A colour picture at 25%: each screen pixel is the rounded mean of its 4x4 block.
  TslPicture &pic = Keep(testutil::MakePicture(TSL_RGB, 400, 200, 11));
  Clear();
  SetDisplayZoom(obj_, 25);
  ASSERT_TRUE(PrepareDisplay(obj_, &pic, 100, 50));
  DrawExposedArea(pixmap_, gc_, obj_, 0, 0, 0, 0, width_, height_);
  px = Grab();
  std::vector<uint8_t> row(pic.width * 3);
  for (int y = 0; y < 50; ++y) {
    int sum[100][3] = {};
    for (int sy = y * 4; sy < y * 4 + 4; ++sy) {
      tslGetRowRGB(&pic, sy, row.data());
      for (int x = 0; x < 400; ++x)
        for (int c = 0; c < 3; ++c) sum[x / 4][c] += row[x * 3 + c];
    }
    for (int x = 0; x < 100; ++x) {
      uint8_t mean[3];
      for (int c = 0; c < 3; ++c) mean[c] = static_cast<uint8_t>((sum[x][c] + 8) / 16);
      ASSERT_TRUE(Same(px[static_cast<size_t>(y) * width_ + x], mean)) << x << "," << y;
    }
  }
}

TEST_F(TrueColorRender, PixmapOfAWholePictureAndUnknownModels) {
  Surface(1, 1);
  TslPicture &pic = Keep(testutil::MakePicture(TSL_BGRA, 300, 270, 13));
  XFreePixmap(dpy_, pixmap_);
  pixmap_ = PictureToPixmap(obj_, RootWindow(dpy_, screen_), &pic);
  ASSERT_NE(pixmap_, 0u);
  width_ = 300;
  height_ = 270;
  ExpectPictureAt(pic, 0, 0);

  TslPicture odd = pic;
  odd.color_model = 0x400;  // no converter for this layout
  testing::internal::CaptureStderr();
  EXPECT_FALSE(PrepareDisplay(obj_, &odd, 300, 270));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "******** ERROR : ConvertBitmapToImage NULL \n");
  const long before = GetRenderStats(obj_).tiles_converted;
  DrawExposedArea(pixmap_, gc_, obj_, 0, 0, 0, 0, 300, 270);
  EXPECT_EQ(GetRenderStats(obj_).tiles_converted, before);
}

TEST_F(TrueColorRender, ColourDataIsSharedAndCounted) {
  ColourData *a = GetColourData(dpy_, screen_, nullptr, false);
  ColourData *b = GetColourData(dpy_, screen_, nullptr, true);  // private means nothing on TrueColor
  EXPECT_EQ(a, b);
  EXPECT_EQ(a->ref_count, 2);
  EXPECT_TRUE(a->shared);
  // The default colormap only when the chosen visual is the default one (a
  // server with a 32-bit TrueColor visual gets that one and a colormap of its own).
  EXPECT_EQ(a->colormap == DefaultColormap(dpy_, screen_), CurrentXVisual() == DefaultVisual(dpy_, screen_));
  EXPECT_EQ(a->black, 0u);
  EXPECT_EQ(a->white, visual_.info.red_mask | visual_.info.green_mask | visual_.info.blue_mask);
  EXPECT_EQ(a->dither, nullptr);
  ReleaseColourData(dpy_, b);
  EXPECT_EQ(a->ref_count, 1);
  ReleaseColourData(dpy_, a);
}

TEST_F(TrueColorRender, RequestedDirectColorVisualGetsRampsInItsOwnColormap) {
  XVisualInfo templ;
  templ.screen = screen_;
  templ.c_class = DirectColor;
  int n = 0;
  XVisualInfo *dc = XGetVisualInfo(dpy_, VisualScreenMask | VisualClassMask, &templ, &n);
  if (!dc || n == 0) GTEST_SKIP() << "no DirectColor visual";
  const unsigned long id = dc[0].visualid;
  const int depth = dc[0].depth;
  XFree(dc);
  visual_ = InitVisual(dpy_, screen_, static_cast<long>(id), false);
  ASSERT_EQ(visual_.info.id, id);
  ASSERT_EQ(visual_.info.cls, kDirectColor);
  Surface(60, 40);
  EXPECT_NE(colours_->colormap, DefaultColormap(dpy_, screen_));
  EXPECT_TRUE(colours_->shared);
  TslPicture &pic = Keep(testutil::MakePicture(TSL_RGB, 60, 40, 17));
  ASSERT_TRUE(PrepareDisplay(obj_, &pic, 60, 40));
  DrawExposedArea(pixmap_, gc_, obj_, 0, 0, 0, 0, 60, 40);
  // The pixels look up colours in the ramps of the object's colormap.
  const std::vector<unsigned long> px = Grab();
  std::vector<XColor> q(px.size());
  for (size_t i = 0; i < px.size(); ++i) q[i].pixel = px[i];
  XQueryColors(dpy_, colours_->colormap, q.data(), static_cast<int>(q.size()));
  std::vector<uint8_t> row(60 * 3);
  const int shift = depth >= 24 ? 0 : 8 - depth / 3;
  for (int y = 0; y < 40; ++y) {
    tslGetRowRGB(&pic, y, row.data());
    for (int x = 0; x < 60; ++x) {
      const XColor &c = q[y * 60 + x];
      ASSERT_EQ(c.red >> 8 >> shift, row[x * 3] >> shift) << x << "," << y;
      ASSERT_EQ(c.green >> 8 >> shift, row[x * 3 + 1] >> shift) << x << "," << y;
      ASSERT_EQ(c.blue >> 8 >> shift, row[x * 3 + 2] >> shift) << x << "," << y;
    }
  }
}

class PseudoColorRender : public RenderFixture {
 protected:
  void SetUp() override {
    testing::internal::CaptureStderr();
    Open("QUILLA_TEST_DISPLAY8", true);
    verbose_ = testing::internal::GetCapturedStderr();
    if (IsSkipped() || HasFatalFailure()) return;
    ASSERT_EQ(visual_.info.cls, kPseudoColor);
    ASSERT_EQ(visual_.info.depth, 8);
    // Start from an empty default colormap: the tests count its cells.
    FreeAllColourData(dpy_);
    XSync(dpy_, False);
  }
  // The colormap's colours (8-bit channels) of the given pixels.
  std::vector<Rgb> Query(Colormap cmap, const std::vector<unsigned long> &pixels) {
    std::vector<XColor> q(pixels.size());
    for (size_t i = 0; i < pixels.size(); ++i) q[i].pixel = pixels[i];
    XQueryColors(dpy_, cmap, q.data(), static_cast<int>(q.size()));
    std::vector<Rgb> out;
    for (const XColor &c : q) out.push_back(Rgb{c.red >> 8, c.green >> 8, c.blue >> 8});
    return out;
  }
  std::string verbose_;
};

TEST_F(PseudoColorRender, CubeIsChosenAndFlatColourDithersToItsMean) {
  testing::internal::CaptureStderr();
  Surface(64, 64);
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_NE(verbose_.find("Use PseudoColor visual (0x"), std::string::npos) << verbose_;
  ASSERT_GE(colours_->cube_kind, 1);
  const CubeShape *cube = nullptr;
  for (const CubeShape &c : kCubes)
    if (c.kind == colours_->cube_kind) cube = &c;
  ASSERT_NE(cube, nullptr);
  EXPECT_EQ(colours_->colour_count, cube->nr * cube->ng * cube->nb);
  EXPECT_EQ(said, "Use " + std::to_string(cube->nr) + "x" + std::to_string(cube->ng) + "x" +
                      std::to_string(cube->nb) + " colormap \n");
  ASSERT_NE(colours_->dither, nullptr);

  const uint8_t flat[3] = {100, 150, 37};
  TslPicture &pic = Keep(TslPicture{});
  ASSERT_TRUE(tslAllock(&pic, TSL_RGB, 0, 64, 64));
  for (uint32_t y = 0; y < 64; ++y)
    for (uint32_t x = 0; x < 64; ++x) std::memcpy(pic.pixels + y * pic.bytes_per_line + x * 3, flat, 3);
  ASSERT_TRUE(PrepareDisplay(obj_, &pic, 64, 64));
  DrawExposedArea(pixmap_, gc_, obj_, 0, 0, 0, 0, 64, 64);
  const std::vector<unsigned long> px = Grab();
  const std::set<unsigned long> table(colours_->pixels, colours_->pixels + colours_->colour_count);
  std::set<unsigned long> used;
  for (unsigned long p : px) {
    ASSERT_TRUE(table.count(p)) << "pixel " << p << " is not a cube colour";
    used.insert(p);
  }
  EXPECT_GT(used.size(), 1u);  // the colour lies between levels: it dithers
  const std::vector<Rgb> colours = Query(colours_->colormap, px);
  double mean[3] = {0, 0, 0};
  for (const Rgb &c : colours) mean[0] += c.r, mean[1] += c.g, mean[2] += c.b;
  // The threshold matrix is not uniform (values up to 50 of 63), so the mean
  // is close to the colour within a fraction of the channel's level step.
  const int levels[3] = {cube->nr, cube->ng, cube->nb};
  for (int c = 0; c < 3; ++c)
    EXPECT_NEAR(mean[c] / colours.size(), flat[c], 0.15 * 255 / (levels[c] - 1)) << "channel " << c;
}

TEST_F(PseudoColorRender, CrowdedColormapGetsASmallerCubeAndFailedCubesAreGivenBack) {
  const Colormap cmap = DefaultColormap(dpy_, screen_);
  // Take every free cell, then give 150 back: 6x6x6 no longer fits, 4x8x4 does.
  std::vector<unsigned long> held;
  unsigned long cell;
  while (XAllocColorCells(dpy_, cmap, False, nullptr, 0, &cell, 1)) held.push_back(cell);
  ASSERT_GT(held.size(), 150u);
  const std::set<unsigned long> freed(held.end() - 150, held.end());
  XFreeColors(dpy_, cmap, held.data() + held.size() - 150, 150, 0);
  held.resize(held.size() - 150);

  testing::internal::CaptureStderr();
  ColourData *cd = GetColourData(dpy_, screen_, nullptr, false);
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_EQ(cd->cube_kind, 3);
  EXPECT_EQ(said, "Use 4x8x4 colormap \n");
  // What the refused cubes took came back: only the cells the 4x8x4 cube
  // took from the freed ones are gone (other cube colours may share cells
  // the server had already allocated).
  int free_cells = 0;
  std::vector<unsigned long> probe;
  while (XAllocColorCells(dpy_, cmap, False, nullptr, 0, &cell, 1)) probe.push_back(cell), ++free_cells;
  const std::vector<unsigned long> cube_px(cd->pixels, cd->pixels + cd->colour_count);
  const size_t distinct = std::set<unsigned long>(cube_px.begin(), cube_px.end()).size();
  EXPECT_EQ(distinct, 128u);
  int taken = 0;
  for (unsigned long p : std::set<unsigned long>(cube_px.begin(), cube_px.end())) taken += freed.count(p) ? 1 : 0;
  EXPECT_GT(taken, 0);
  EXPECT_EQ(free_cells, 150 - taken);
  if (!probe.empty()) XFreeColors(dpy_, cmap, probe.data(), static_cast<int>(probe.size()), 0);
  ReleaseColourData(dpy_, cd);
  FreeAllColourData(dpy_);
  XFreeColors(dpy_, cmap, held.data(), static_cast<int>(held.size()), 0);
}

TEST_F(PseudoColorRender, PrivateColormapHoldsAnIndexedPicturesPalette) {
  TslPicture &pic = Keep(testutil::MakePicture(TSL_INDEXED, 40, 30, 21, 64));
  Surface(40, 30, true, &pic);
  EXPECT_FALSE(colours_->shared);
  EXPECT_NE(colours_->colormap, DefaultColormap(dpy_, screen_));
  EXPECT_EQ(colours_->colour_count, 64);
  EXPECT_EQ(colours_->dither, nullptr);
  ASSERT_TRUE(PrepareDisplay(obj_, &pic, 40, 30));
  DrawExposedArea(pixmap_, gc_, obj_, 0, 0, 0, 0, 40, 30);
  const std::vector<unsigned long> px = Grab();
  const std::vector<Rgb> seen = Query(colours_->colormap, px);
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 40; ++x) {
      const uint8_t i = pic.pixels[y * pic.bytes_per_line + x];
      ASSERT_EQ(px[y * 40 + x], i);
      const Rgb &c = seen[y * 40 + x];
      ASSERT_TRUE(c.r == pic.palette[i] && c.g == pic.palette[256 + i] && c.b == pic.palette[512 + i]);
    }
  // A shared request does not get the private entry.
  ColourData *shared = GetColourData(dpy_, screen_, nullptr, false);
  EXPECT_NE(shared, colours_);
  EXPECT_TRUE(shared->shared);
  ReleaseColourData(dpy_, shared);
}

}  // namespace
