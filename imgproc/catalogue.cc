// The operation catalogue, the command-line text of process entries and the
// runner of a process list.
#include "imgproc/catalogue.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "imgproc/filters.h"
#include "imgproc/operations.h"
#include "imgproc/point.h"

namespace quilla {

namespace {

// Adapters from the uniform parameter block to the operations of this folder.
int opNegate(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &) { return Negative(s, d, r); }
int opBrightness(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &p) { return Brightness(s, d, r, p.i[0]); }
int opContrast(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &p) { return Contrast(s, d, r, p.i[0]); }
int opGamma(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &p) { return ChangeGamma(s, d, r, p.r[0]); }
int opBalance(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &p) {
  return ColorBalance(s, d, r, p.i[0], p.i[1], p.i[2]);
}
int opLog(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &) { return LogarithmicLut(s, d, r); }
int opSolarize(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &p) { return Solarize(s, d, r, p.i[0]); }
int opPosterize(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &p) { return Posterize(s, d, r, p.i[0]); }
int opNormalize(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &) { return Normalize(s, d, r); }
int opEqualize(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &) { return Equalize(s, d, r); }

template <int K>
int opKernel(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &) { return ApplyKernel3(s, d, r, K); }

int opEnhanceEdges(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &p) { return EnhanceEdges(s, d, r, p.i[0]); }
int opSoften(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &p) { return Soften(s, d, r, p.i[0]); }
int opBlur(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &p) { return Blur(s, d, r, p.i[0]); }
int opSharpen(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &p) { return Sharpen(s, d, r, p.i[0]); }
int opAverage(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &p) { return Average(s, d, r, p.i[0]); }
int opGauss(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &p) { return GaussianBlur(s, d, r, p.i[0]); }
int opMaximum(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &p) { return Maximum(s, d, r, p.i[0]); }
int opMinimum(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &p) { return Minimum(s, d, r, p.i[0]); }
int opMedianBox(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &p) { return MedianBox(s, d, r, p.i[0]); }
int opMedianCross(TslPicture *s, TslPicture *d, const OpRect *r, const OpParams &p) { return MedianCross(s, d, r, p.i[0]); }

constexpr OpParamDesc kNoDesc = {"", 0, 0};

#define ROW(fn, opt, sub, name, kind, count, d0, d1, d2, i0, i1, i2, i3, r0, r1, r2, word) \
  { fn, opt, sub, name, kind, count, {d0, d1, d2}, {i0, i1, i2, i3}, {r0, r1, r2}, word }
#define B(lo, hi) OpParamDesc{"", lo, hi}
#define N kNoDesc

const OpEntry kCatalogue[] = {
    ROW(OpTrueColors, "-truecolors", nullptr, "Convert to True Colors", kKindTrueColor, 0, N, N, N, 19, 0, 0, 0, 0, 0, 0, 0),
    ROW(OpGrey, "-grey", nullptr, "Convert to Greyscale", kKindGrey, 0, N, N, N, 9, 4, 0, 0, 0, 0, 0, 0),
    ROW(OpColors, "-colors", nullptr, "Convert to Colors", kKindColors, 0, N, N, N, 18, 4, 0, 0, 0, 0, 0, 0),
    ROW(OpBinary, "-binary", nullptr, "Convert to Binary", kKindBinary, 0, N, N, N, 1, 1, 0, 0, 0, 0, 0, 0),
    ROW(OpResize, "-resize", nullptr, "Resize", kKindResize, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 65536),
    ROW(OpCrop, "-crop", nullptr, "Crop", kKindCrop, 0, N, N, N, 0, 0, 256, 256, 0, 0, 0, 0),
    ROW(OpCanvas, "-canvas", nullptr, "Resize Canvas", kKindCanvas, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 65536),
    ROW(OpSetDpi, "-dpi", nullptr, "Set DPI", kKindDpi, 0, N, N, N, 72, 72, 0, 0, 0, 0, 0, 0),
    ROW(OpFlipHorizontal, "-xflip", nullptr, "Flip Horizontal", kKindNone, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(OpFlipVertical, "-yflip", nullptr, "Flip Vertical", kKindNone, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(OpRotate, "-rotate", nullptr, "Rotate", kKindAngle, 0, B(-180, 180), N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(opNegate, "-negate", nullptr, "Negative", kKindNone, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(opBrightness, "-brightness", nullptr, "Brightness", kKindInt, 0, B(-255, 255), N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(opContrast, "-contrast", nullptr, "Contrast", kKindInt, 0, B(-127, 127), N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(opGamma, "-gamma", nullptr, "Change Gamma", kKindReal, 0, B(1, 500), N, N, 0, 0, 0, 0, 1.0, 0, 0, 0),
    ROW(opBalance, "-balance", nullptr, "Color Balance", kKindInt3, 3, (OpParamDesc{"Red", -100, 100}),
        (OpParamDesc{"Green", -100, 100}), (OpParamDesc{"Blue", -100, 100}), 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(opLog, "-log", nullptr, "Logarithmic Lut", kKindNone, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(opSolarize, "-solarize", nullptr, "Solarize", kKindInt, 0, B(0, 255), N, N, 255, 0, 0, 0, 0, 0, 0, 0),
    ROW(opPosterize, "-posterize", nullptr, "Posterize", kKindPosterize, 0, N, N, N, 256, 0, 0, 0, 0, 0, 0, 0),
    ROW(opNormalize, "-normalize", nullptr, "Normalize", kKindNone, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(opEqualize, "-equalize", nullptr, "Equalize", kKindNone, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(OpSwapComponent, "-swap", nullptr, "Swap Component", kKindSwap, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(opKernel<kKernelEnhanceDetail>, "-edetail", nullptr, "Enhance Detail", kKindNone, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(opKernel<kKernelEnhanceFocus>, "-efocus", nullptr, "Enhance Focus", kKindNone, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(opEnhanceEdges, "-eedge", nullptr, "Enhance Edges", kKindInt, 0, B(1, 100), N, N, 1, 0, 0, 0, 0, 0, 0, 0),
    ROW(opKernel<kKernelFocusRestoration>, "-frestore", nullptr, "Focus Restoration", kKindNone, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(opKernel<kKernelEdgeLight>, "-edgedetect", "light", "Edge detect Light", kKindNone, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(opKernel<kKernelEdgeMedium>, "-edgedetect", "medium", "Edge detect Medium", kKindNone, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(opKernel<kKernelEdgeHeavy>, "-edgedetect", "heavy", "Edge detect Heavy", kKindNone, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(opKernel<kKernelEmboss>, "-emboss", nullptr, "Emboss", kKindNone, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(opKernel<kKernelEmbossMore>, "-embossmore", nullptr, "Emboss More", kKindNone, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(opAverage, "-average", nullptr, "Average", kKindFilterSize, 0, N, N, N, 3, 0, 0, 0, 0, 0, 0, 0),
    ROW(opSoften, "-soften", nullptr, "Soften", kKindInt, 0, B(1, 100), N, N, 1, 0, 0, 0, 0, 0, 0, 0),
    ROW(opBlur, "-blur", nullptr, "Blur", kKindInt, 0, B(1, 100), N, N, 1, 0, 0, 0, 0, 0, 0, 0),
    ROW(opGauss, "-gauss", nullptr, "Gaussian Blur", kKindFilterSize, 0, N, N, N, 3, 0, 0, 0, 0, 0, 0, 0),
    ROW(opMaximum, "-maximum", nullptr, "Maximum", kKindFilterSize, 0, N, N, N, 3, 0, 0, 0, 0, 0, 0, 0),
    ROW(opMinimum, "-minimum", nullptr, "Minimum", kKindFilterSize, 0, N, N, N, 3, 0, 0, 0, 0, 0, 0, 0),
    ROW(opMedianBox, "-medianb", nullptr, "Median Box", kKindFilterSize, 0, N, N, N, 3, 0, 0, 0, 0, 0, 0, 0),
    ROW(opMedianCross, "-medianc", nullptr, "Median Cross", kKindFilterSize, 0, N, N, N, 3, 0, 0, 0, 0, 0, 0, 0),
    ROW(opSharpen, "-sharpen", nullptr, "Sharpen", kKindInt, 0, B(1, 100), N, N, 1, 0, 0, 0, 0, 0, 0, 0),
    ROW(OpReduceNoise, "-noise", "reduce", "Reduce noise", kKindNone, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(OpAddUniformNoise, "-noise", "uniform", "Add uniform noise", kKindReal, 0, B(10, 5000), N, N, 0, 0, 0, 0, 0.1, 0, 0, 0),
    ROW(OpAddGaussianNoise, "-noise", "gaussian", "Add gaussian noise", kKindReal, 0, B(10, 1000), N, N, 0, 0, 0, 0, 0.4, 0, 0, 0),
    ROW(OpAddLaplacianNoise, "-noise", "laplacian", "Add laplacian noise", kKindReal, 0, B(10, 5000), N, N, 0, 0, 0, 0, 0.1, 0, 0, 0),
    ROW(OpAddPoissonNoise, "-noise", "poisson", "Add poisson noise", kKindReal, 0, B(1, 100), N, N, 0, 0, 0, 0, 1.0, 0, 0, 0),
    ROW(OpMosaic, "-mosaic", nullptr, "Mosaic", kKindInt, 0, B(1, 64), N, N, 1, 0, 0, 0, 0, 0, 0, 0),
    ROW(OpSlice, "-slice", nullptr, "Slice", kKindNone, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(OpTile, "-tile", nullptr, "Tile", kKindInt, 0, B(1, 64), N, N, 1, 0, 0, 0, 0, 0, 0, 0),
    ROW(OpShear, "-shear", nullptr, "Shear", kKindNone, 0, N, N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(OpOilPainting, "-oil", nullptr, "Oil Painting", kKindInt, 0, B(1, 16), N, N, 1, 0, 0, 0, 0, 0, 0, 0),
    ROW(OpSwirl, "-swirl", nullptr, "Swirl", kKindInt, 0, B(0, 359), N, N, 0, 0, 0, 0, 0, 0, 0, 0),
    ROW(OpSpread, "-spread", nullptr, "Spread", kKindInt, 0, B(1, 32), N, N, 1, 0, 0, 0, 0, 0, 0, 0),
    ROW(OpLens, "-lens", nullptr, "Lens", kKindInt, 0, B(1, 100), N, N, 1, 0, 0, 0, 0, 0, 0, 0),
    ROW(OpWaves, "-waves", nullptr, "Waves", kKindReal3, 3, (OpParamDesc{"Length", 100, 5000}),
        (OpParamDesc{"Phase", 0, 36000}), (OpParamDesc{"Amount", 0, 10000}), 0, 0, 0, 0, 3.0, 5.0, 0.0, 0),
    ROW(OpDeinterlace, "-deinter", nullptr, "De-interlace", kKindDeinterlace, 0, N, N, N, 3, 0, 0, 0, 0, 0, 0, 0),
};

#undef ROW
#undef B
#undef N

constexpr int kCatalogueCount = static_cast<int>(sizeof kCatalogue / sizeof kCatalogue[0]);
static_assert(kCatalogueCount == 55, "the catalogue has 55 rows");

void appendf(std::string *out, const char *fmt, ...) __attribute__((format(printf, 2, 3)));
void appendf(std::string *out, const char *fmt, ...) {
  char buf[512];
  va_list ap;
  va_start(ap, fmt);
  int n = std::vsnprintf(buf, sizeof buf, fmt, ap);
  va_end(ap);
  if (n > 0) out->append(buf, static_cast<size_t>(n) < sizeof buf ? static_cast<size_t>(n) : sizeof buf - 1);
}

int decodeColorCount(int code) {
  switch (code) {
    case 12: return 8;
    case 13: return 16;
    case 14: return 32;
    case 15: return 64;
    case 16: return 128;
    case 17: return 216;
    default: return 256;
  }
}

int decodeGreyCount(int code) {
  switch (code) {
    case 2: return 4;
    case 3: return 8;
    case 4: return 16;
    case 5: return 32;
    case 6: return 64;
    case 7: return 128;
    default: return 256;
  }
}

// The size part of the resize and canvas lines.
void appendSize(std::string *out, const char *option, const OpParams &p) {
  if (p.width_percent > 0)
    appendf(out, "%s %d%% %d%% ", option, p.width_percent, p.height_percent);
  else
    appendf(out, "%s %d %d ", option, p.width, p.height);
}

}  // namespace

const OpEntry *OpCatalogue() { return kCatalogue; }
int OpCatalogueCount() { return kCatalogueCount; }

int OpCatalogueFind(const char *option, const char *sub_option) {
  if (!option) return -1;
  for (int k = 0; k < kCatalogueCount; ++k) {
    const OpEntry &e = kCatalogue[k];
    if (std::strcmp(e.option, option) != 0) continue;
    if (!e.sub_option) return k;
    if (sub_option && std::strcmp(e.sub_option, sub_option) == 0) return k;
  }
  return -1;
}

bool OpOptionHasSubOptions(const char *option) {
  if (!option) return false;
  for (int k = 0; k < kCatalogueCount; ++k)
    if (kCatalogue[k].sub_option && std::strcmp(kCatalogue[k].option, option) == 0) return true;
  return false;
}

OpProcess OpDefaultProcess(int index) {
  OpProcess p;
  p.index = index;
  if (index < 0 || index >= kCatalogueCount) return p;
  const OpEntry &e = kCatalogue[index];
  for (int k = 0; k < 4; ++k) p.params.i[k] = e.def_int[k];
  for (int k = 0; k < 3; ++k) p.params.r[k] = e.def_real[k];
  p.params.word = e.def_word;
  return p;
}

std::string OpProcessCommandLine(const OpProcess &process) {
  std::string out;
  if (process.index < 0 || process.index >= kCatalogueCount) return out;
  const OpEntry &e = kCatalogue[process.index];
  const OpParams &p = process.params;
  const char *opt = e.option;
  switch (e.kind) {
    case 1: case 10: case 15: case 16:
      appendf(&out, "%s %d ", opt, p.i[0]);
      break;
    case 2:
      appendf(&out, "%s %.2lf ", opt, p.r[0]);
      break;
    case 4:
      appendf(&out, "%s %.2lf %.2lf %.2lf ", opt, p.r[0], p.r[1], p.r[2]);
      break;
    case 5: case 18:
      appendf(&out, "%s %d %d %d ", opt, p.i[0], p.i[1], p.i[2]);
      break;
    case 6: case 8:
      appendf(&out, "%s %d %d %d %d ", opt, p.i[0], p.i[1], p.i[2], p.i[3]);
      break;
    case 7:
      if (p.keep_ratio) out += "-ratio ";
      appendf(&out, "-rtype %s ", p.resample == kResampleQuick ? "quick" : "linear");
      appendSize(&out, opt, p);
      break;
    case 9:
      if (p.keep_ratio) out += "-ratio ";
      appendSize(&out, opt, p);
      break;
    case 12:
      if (p.i[1] == 1) out += "-dither ";
      appendf(&out, "%s %d ", opt, decodeColorCount(p.i[0]));
      break;
    case 13:
      if (p.i[1] == 1) out += "-dither ";
      appendf(&out, "%s %d ", opt, decodeGreyCount(p.i[0]));
      break;
    case 14:
      appendf(&out, "%s %s ", opt, p.i[0] == 2 ? "halft45" : p.i[0] == 3 ? "halft90" : p.i[0] == 5 ? "floyd" : "pattern");
      break;
    case 17: {
      static const char *const kSwap[] = {"rbg", "bgr", "brg", "grb"};
      appendf(&out, "%s %s ", opt, p.i[0] >= 0 && p.i[0] < 4 ? kSwap[p.i[0]] : "gbr");
      break;
    }
    case 19:
      appendf(&out, "%s %s %s ", opt, (p.i[0] & 1) ? "even" : "odd", (p.i[0] & 2) ? "dup" : "int");
      break;
    default:  // 0, 3, 11, 20: the option alone
      appendf(&out, "%s ", opt);
      break;
  }
  if (e.sub_option) appendf(&out, "%s ", e.sub_option);
  return out;
}

std::string OpProcessListCommandLine(const OpProcessList &list) {
  std::string out;
  for (const OpProcess &p : list) out += OpProcessCommandLine(p);
  return out;
}

int OpRunProcessList(TslPicture *picture, const OpProcessList &list) {
  int first = kOpDone;
  for (const OpProcess &p : list) {
    int status;
    if (p.index < 0 || p.index >= kCatalogueCount)
      status = kOpEmptyRect;
    else
      status = kCatalogue[p.index].operation(picture, nullptr, nullptr, p.params);
    if (status != kOpDone && first == kOpDone) first = status;
    // A refused operation leaves the picture as it was, so the rest of the
    // list still applies; a memory failure ends the run.
    if (status == kOpNoMemory) break;
  }
  return first;
}

}  // namespace quilla
