// EXIF orientation end to end: files whose tag exiftool set, the orientation
// the library reports, tesconv keeping the stored pixels by default and
// turning them upright with -autoorient, and the turning function itself
// against the EXIF definition of each value.
#include <gtest/gtest.h>

#include "imgproc/geometry.h"
#include "../tessel/legacy_test_helpers.h"

using namespace testutil;

namespace {

// The pixel of `stored` shown at (x, y) of the upright picture, by the EXIF
// definition: which stored row and column become the top row and left column.
void StoredPosition(int orientation, int sw, int sh, int x, int y, int *sx, int *sy) {
  switch (orientation) {
    case 2: *sx = sw - 1 - x, *sy = y; break;
    case 3: *sx = sw - 1 - x, *sy = sh - 1 - y; break;
    case 4: *sx = x, *sy = sh - 1 - y; break;
    case 5: *sx = y, *sy = x; break;
    case 6: *sx = y, *sy = sh - 1 - x; break;
    case 7: *sx = sw - 1 - y, *sy = sh - 1 - x; break;
    case 8: *sx = sw - 1 - y, *sy = x; break;
    default: *sx = x, *sy = y; break;
  }
}

// True when `upright` shows `stored` as orientation `o` says.
bool IsUpright(const TslPicture &stored, const TslPicture &upright, int o) {
  const bool turned = o >= 5;
  if (upright.width != (turned ? stored.height : stored.width) ||
      upright.height != (turned ? stored.width : stored.height))
    return false;
  std::vector<uint8_t> a(stored.width * 4), b(upright.width * 4);
  for (uint32_t y = 0; y < upright.height; ++y) {
    tslGetRowRGBA(&upright, y, b.data());
    for (uint32_t x = 0; x < upright.width; ++x) {
      int sx, sy;
      StoredPosition(o, static_cast<int>(stored.width), static_cast<int>(stored.height), static_cast<int>(x),
                     static_cast<int>(y), &sx, &sy);
      tslGetRowRGBA(&stored, static_cast<uint32_t>(sy), a.data());
      if (std::memcmp(&a[4 * static_cast<size_t>(sx)], &b[4 * x], 4) != 0) return false;
    }
  }
  return true;
}

TEST(Orientation, TurningFollowsTheExifDefinitionOnEveryModel) {
  for (int model : {TSL_RGB, TSL_RGBA, TSL_GREY, TSL_INDEXED, TSL_BINARY}) {
    Pic src(MakePicture(model, 13, 6, 3));
    for (int o = 0; o <= 9; ++o) {
      SCOPED_TRACE("model " + std::to_string(model) + " orientation " + std::to_string(o));
      Pic up;
      ASSERT_EQ(quilla::OrientPicture(&src, &up, o), quilla::kOpDone);
      EXPECT_EQ(up->color_model, model);
      EXPECT_TRUE(IsUpright(src, up, o >= 1 && o <= 8 ? o : 1));
    }
  }
}

std::string Quote(const std::string &s) { return "'" + s + "'"; }

int Tesconv(const std::string &args) {
  return Sh(Quote(std::string(QUILLA_BINARY_DIR) + "/tools/tesconv/tesconv") + " " + args);
}

// Each of the eight values, set by exiftool on JPEG, PNG, TIFF and WebP files.
TEST(Orientation, ExiftoolTagsAreReportedAndAutoorientTurns) {
  if (!HaveTool("exiftool") || !HaveTool("convert") || !HaveTool("cwebp") || !HaveTool("cjpeg") || !HaveTool("pnmtopng") ||
      !HaveTool("pnmtotiff"))
    GTEST_SKIP() << "tools missing";
  TempDir dir;
  Pic src(MakePicture(TSL_RGB, 24, 10, 6));
  const std::string ppm = dir.file("src.ppm");
  WritePpm(ppm, src);
  const struct {
    const char *ext, *make;
    bool lossless;
  } kinds[] = {{"jpg", "cjpeg -quality 90 SRC > OUT", false},
               {"png", "pnmtopng SRC > OUT", true},
               {"tif", "pnmtotiff SRC > OUT", true},
               // CMYK goes through libtiff's RGBA interface, which must not turn it.
               {"cmyk.tif", "convert SRC -colorspace CMYK OUT", false},
               {"webp", "cwebp -quiet -lossless SRC -o OUT", true}};
  for (const auto &k : kinds) {
    for (int o = 1; o <= 8; ++o) {
      SCOPED_TRACE(std::string(k.ext) + " orientation " + std::to_string(o));
      const std::string file = dir.file("o" + std::to_string(o) + "." + k.ext);
      ASSERT_EQ(RunWith(k.make, ppm, file), 0);
      ASSERT_EQ(Sh("exiftool -q -overwrite_original -n -Orientation=" + std::to_string(o) + " " + Quote(file)), 0);
      Info info;
      ASSERT_EQ(FileInfo(file, &info), TSL_OK);
      EXPECT_EQ(info->orientation, o);
      Pic stored;
      ASSERT_EQ(Load(file, &stored), TSL_OK);
      EXPECT_EQ(stored->width, 24u);
      // The stored pixels, not turned by the reader.
      if (k.lossless) {
        EXPECT_TRUE(SameColors(stored, src));
      } else if (std::string(k.ext) == "jpg") {
        Pic theirs;
        ASSERT_TRUE(ToolPnm("djpeg " + Quote(file), dir, &theirs));
        EXPECT_TRUE(SameColors(stored, theirs, 1));
      } else {
        EXPECT_LT(MeanAbsDiff(stored, src), 6.0);
      }

      // tesconv keeps the stored pixels unless told to turn them.
      const std::string kept = dir.file("kept.png"), up = dir.file("up.png");
      ASSERT_EQ(Tesconv("-out png -o " + Quote(kept) + " " + Quote(file)), 0);
      ASSERT_EQ(Tesconv("-autoorient -out png -o " + Quote(up) + " " + Quote(file)), 0);
      Pic a, b;
      ASSERT_EQ(Load(kept, &a), TSL_OK);
      ASSERT_EQ(Load(up, &b), TSL_OK);
      EXPECT_TRUE(SamePixels(a, stored));
      EXPECT_TRUE(IsUpright(stored, b, o));
      Info written;
      ASSERT_EQ(FileInfo(up, &written), TSL_OK);
      EXPECT_LE(written->orientation, 1);
      // ImageMagick turns TIFF files the same way.
      if (std::string(k.ext) == "tif" && HaveTool("convert")) {
        Pic theirs;
        ASSERT_TRUE(ToolPnm("convert " + Quote(file) + " -auto-orient -depth 8 ppm:-", dir, &theirs));
        EXPECT_TRUE(SameColors(b, theirs));
      }
    }
  }
}

}  // namespace
