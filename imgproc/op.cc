// The calling convention: rectangle clipping, destination handling, the row
// fetcher and the table appliers.
#include "imgproc/op.h"

#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>

namespace quilla {

bool ClipRect(const TslPicture *pic, const OpRect *rect, OpRect *out) {
  const int64_t pw = pic->width, ph = pic->height;
  int64_t x = 0, y = 0, w = pw, h = ph;
  if (rect) {
    x = rect->x;
    y = rect->y;
    w = rect->width;
    h = rect->height;
  }
  int64_t right = std::min<int64_t>(x + w, pw);
  int64_t bottom = std::min<int64_t>(y + h, ph);
  if (x < 0) x = 0;
  if (y < 0) y = 0;
  out->x = static_cast<int32_t>(x);
  out->y = static_cast<int32_t>(y);
  out->width = static_cast<int32_t>(std::max<int64_t>(right - x, 0));
  out->height = static_cast<int32_t>(std::max<int64_t>(bottom - y, 0));
  return right - x > 0 && bottom - y > 0;
}

int CopyToDest(const TslPicture *src, TslPicture *dst) {
  return tslCopyPicture(dst, src) == TSL_OK ? kOpDone : kOpNoMemory;
}

void HandOver(TslPicture *src, TslPicture *dst, TslPicture *result) {
  if (dst) {
    *dst = *result;
  } else {
    tslFree(src);
    *src = *result;
  }
  std::memset(result, 0, sizeof *result);
}

void FetchBorderRow(uint8_t *buf, const TslPicture *pic, int row, int size) {
  const int h = static_cast<int>(pic->height);
  if (row < 0) row = 0;
  if (row > h - 1) row = h - 1;
  const size_t bpp = pic->bytes_per_pixel;
  const size_t half = static_cast<size_t>(size / 2);
  const size_t w = pic->width;
  std::memcpy(buf + half * bpp, RowOf(pic, static_cast<uint32_t>(row)), w * bpp);
  for (size_t i = 0; i < half; ++i) {
    std::memcpy(buf + i * bpp, buf + half * bpp, bpp);
    std::memcpy(buf + (half + w + i) * bpp, buf + (half + w - 1) * bpp, bpp);
  }
}

int ParallelBandCount(int rows, size_t bytes_per_row) {
  if (rows < 2) return 1;
  const uint64_t work = static_cast<uint64_t>(rows) * bytes_per_row;
  if (work < (uint64_t(1) << 18)) return 1;
  unsigned hw = std::thread::hardware_concurrency();
  if (hw == 0) hw = 1;
  if (hw > 16) hw = 16;
  return static_cast<int>(std::min<uint64_t>({hw, static_cast<uint64_t>(rows), work >> 17}));
}

void ParallelFor(int count, const std::function<void(int)> &fn) {
  if (count <= 0) return;
  std::vector<std::thread> threads;
  threads.reserve(static_cast<size_t>(count));
  int started = 1;  // tasks 1..started-1 run on their own threads
  for (; started < count; ++started) {
    try {
      threads.emplace_back(fn, started);
    } catch (...) {
      break;
    }
  }
  fn(0);
  for (int k = started; k < count; ++k) fn(k);
  for (std::thread &t : threads) t.join();
}

void ParallelRows(int begin, int end, size_t bytes_per_row, const std::function<void(int, int)> &fn) {
  const int rows = end - begin;
  if (rows <= 0) return;
  const int bands = ParallelBandCount(rows, bytes_per_row);
  if (bands <= 1) {
    fn(begin, end);
    return;
  }
  ParallelFor(bands, [&](int b) {
    fn(begin + static_cast<int>(static_cast<int64_t>(rows) * b / bands),
       begin + static_cast<int>(static_cast<int64_t>(rows) * (b + 1) / bands));
  });
}

namespace {

// The shared body of ApplyLut and ApplyLut3.
int applyTables(TslPicture *src, TslPicture *dst, const OpRect *rect, const uint8_t *t0, const uint8_t *t1,
                const uint8_t *t2) {
  if (src->color_model == TSL_BINARY) return kOpNotBilevel;
  OpRect r;
  if (!ClipRect(src, rect, &r)) return kOpEmptyRect;
  TslPicture *pic = src;
  if (dst) {
    if (CopyToDest(src, dst) != kOpDone) return kOpNoMemory;
    pic = dst;
  }
  if (pic->color_model == TSL_INDEXED) {
    uint8_t *pal = pic->palette;
    if (!pal) return kOpDone;
    const int n = std::min<int>(std::max<int>(pic->colors, 0), 256);
    for (int k = 0; k < n; ++k) {
      pal[k] = t0[pal[k]];
      pal[256 + k] = t1[pal[256 + k]];
      pal[512 + k] = t2[pal[512 + k]];
    }
    return kOpDone;
  }
  const int bpp = pic->bytes_per_pixel;
  const uint8_t *tables[4] = {t0, t1, t2, t0};
  ParallelRows(r.y, r.y + r.height, static_cast<size_t>(r.width) * bpp, [&](int y0, int y1) {
  for (int y = y0; y < y1; ++y) {
    uint8_t *p = RowOf(pic, static_cast<uint32_t>(y)) + static_cast<size_t>(r.x) * bpp;
    if (bpp == 1) {
      for (int x = 0; x < r.width; ++x) p[x] = t0[p[x]];
    } else if (bpp == 3) {
      for (int x = 0; x < r.width; ++x, p += 3) {
        p[0] = t0[p[0]];
        p[1] = t1[p[1]];
        p[2] = t2[p[2]];
      }
    } else if (bpp == 4) {
      for (int x = 0; x < r.width; ++x, p += 4) {
        p[0] = t0[p[0]];
        p[1] = t1[p[1]];
        p[2] = t2[p[2]];
      }
    } else {
      for (int x = 0; x < r.width; ++x)
        for (int c = 0; c < bpp; ++c, ++p) *p = tables[c < 3 ? c : 3][*p];
    }
  }
  });
  return kOpDone;
}

}  // namespace

int ApplyLut(TslPicture *src, TslPicture *dst, const OpRect *rect, const uint8_t table[256]) {
  return applyTables(src, dst, rect, table, table, table);
}

int ApplyLut3(TslPicture *src, TslPicture *dst, const OpRect *rect, const uint8_t r[256], const uint8_t g[256],
              const uint8_t b[256]) {
  return applyTables(src, dst, rect, r, g, b);
}

}  // namespace quilla
