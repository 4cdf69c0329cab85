// Fitting a picture to what the output format can hold: every writable
// format takes the fitted picture of every colour model, and the choice
// loses nothing when the format allows that.
#include <gtest/gtest.h>

#include "test_util.h"
#include "tools/tesconv/tesconv.h"

namespace quilla {
namespace {

bool HasKind(int format, int kind) {
  TslFormatInfo info;
  if (tslFormatGetInfo(format, &info) != TSL_OK) return false;
  for (int k = 0; k < TSL_MAX_CAPS && info.caps[k].kind != -1; ++k)
    if (info.caps[k].kind == kind && info.caps[k].width == -1) return true;
  return false;
}

TEST(TesconvFit, EveryWritableFormatTakesEveryModel) {
  testutil::TempDir dir;
  int saved = 0;
  for (int f = 0; f < tslCount(); ++f) {
    if (!tslFormatIsWritable(f)) continue;
    for (int model : {TSL_BINARY, TSL_GREY, TSL_INDEXED, TSL_RGB, TSL_RGBA}) {
      TslPicture pic = testutil::MakePicture(model, 21, 13, 5, 200);
      ASSERT_NE(pic.pixels, nullptr);
      TslPicture original;
      ASSERT_EQ(tslCopyPicture(&original, &pic), TSL_OK);
      std::string why;
      ASSERT_EQ(FitPictureToFormat(&pic, f, &why), TSL_OK) << tslFormatGetName(f) << " model " << model << ": " << why;
      // True colour formats keep palette, grey and bilevel colours exactly;
      // a bilevel picture stays exact in grey or palette formats too.
      const bool lossless = (model != TSL_RGB && model != TSL_RGBA && HasKind(f, TSL_KIND_TRUECOLOR)) ||
                            (model == TSL_BINARY && (HasKind(f, 2) || HasKind(f, 4)));
      if (lossless) {
        EXPECT_TRUE(testutil::SameColors(original, pic)) << tslFormatGetName(f) << " model " << model;
      }
      if (model == TSL_GREY && HasKind(f, 2)) {
        EXPECT_EQ(pic.color_model, TSL_GREY) << tslFormatGetName(f);
      }
      TslParams params;
      tslDefaultParams(&params);
      params.format = f;
      params.width = static_cast<int>(pic.width);
      params.height = static_cast<int>(pic.height);
      std::string path = dir.file("fit" + std::to_string(f) + "_" + std::to_string(model));
      EXPECT_EQ(tslSave(path.c_str(), &pic, &params), TSL_OK) << tslFormatGetName(f) << " model " << model;
      ++saved;
      tslFree(&pic);
      tslFree(&original);
    }
  }
  EXPECT_GT(saved, 0);
}

TEST(TesconvFit, PaletteOnlyFormatsGetAPaletteNotGreyForColour) {
  const int gif = tslFormatGetIndex("gif");
  if (gif < 0 || !tslFormatIsWritable(gif)) GTEST_SKIP() << "no GIF writer";
  TslPicture pic = testutil::MakePicture(TSL_RGB, 40, 30, 2);
  std::string why;
  ASSERT_EQ(FitPictureToFormat(&pic, gif, &why), TSL_OK) << why;
  EXPECT_EQ(pic.color_model, TSL_INDEXED);
  EXPECT_LE(pic.colors, 256);
  tslFree(&pic);
}

}  // namespace
}  // namespace quilla
