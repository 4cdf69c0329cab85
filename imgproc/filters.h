// Neighbourhood filters: fixed 3x3 kernels, strength-driven 3x3 filters and
// the size-driven filters (average, Gaussian, maximum, minimum, medians).
// Every byte of a pixel is filtered with the same byte of its neighbours;
// edges are replicated (FetchBorderRow).  The result is built in a fresh
// record and handed over (see op.h).
#ifndef QUILLA_IMGPROC_FILTERS_H
#define QUILLA_IMGPROC_FILTERS_H

#include <cstdint>

#include "imgproc/op.h"

namespace quilla {

// A fixed 3x3 kernel: weights in row order, then divisor and bias.
struct FilterKernel3 {
  int32_t weight[9];
  int32_t divisor;
  int32_t bias;
};

enum FixedKernelIndex {
  kKernelEnhanceDetail = 0, kKernelEnhanceFocus = 1, kKernelFocusRestoration = 2, kKernelSharpenHeavy = 3,
  kKernelEdgeLight = 4, kKernelEdgeMedium = 5, kKernelEdgeHeavy = 6, kKernelEmboss = 7, kKernelEmbossMore = 8,
  kFixedKernelCount = 9,
};

extern const FilterKernel3 FixedKernels[kFixedKernelCount];

// Kernel index outside 0..8 returns kOpEmptyRect.
int ApplyKernel3(TslPicture *src, TslPicture *dst, const OpRect *rect, int index);

// Strength s in 1..100 (values outside are brought into that range).
int Soften(TslPicture *src, TslPicture *dst, const OpRect *rect, int s);
int Blur(TslPicture *src, TslPicture *dst, const OpRect *rect, int s);
int Sharpen(TslPicture *src, TslPicture *dst, const OpRect *rect, int s);
int EnhanceEdges(TslPicture *src, TslPicture *dst, const OpRect *rect, int s);

// Neighbourhood size n in kMinFilterSize..kMaxFilterSize; any other size
// returns kOpEmptyRect before anything is allocated.
constexpr int kMinFilterSize = 2;
constexpr int kMaxFilterSize = 15;
int Average(TslPicture *src, TslPicture *dst, const OpRect *rect, int n);
int GaussianBlur(TslPicture *src, TslPicture *dst, const OpRect *rect, int n);
int Maximum(TslPicture *src, TslPicture *dst, const OpRect *rect, int n);
int Minimum(TslPicture *src, TslPicture *dst, const OpRect *rect, int n);
int MedianBox(TslPicture *src, TslPicture *dst, const OpRect *rect, int n);
int MedianCross(TslPicture *src, TslPicture *dst, const OpRect *rect, int n);

// A general n x n convolution (n in kMinFilterSize..kMaxFilterSize):
// value = (sum of weight times value) / divisor, truncated toward zero, plus
// bias, clamped to 0..255.  weights holds n*n values in row order; a
// divisor of 0 counts as 1.
int ApplyKernelN(TslPicture *src, TslPicture *dst, const OpRect *rect, int n, const int32_t *weights, int divisor,
                 int bias);

// Integer Gaussian weights (units of 1/2048) for size n, n*n values in row
// order; false for a size outside the accepted range.
bool GaussianWeights(int n, int32_t *weights);

}  // namespace quilla

#endif
