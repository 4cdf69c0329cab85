// Neighbourhood filters on padded, rotating rows.
//
// Every filter here works byte by byte: the neighbour to the left or right of
// a byte is the byte one pixel (bytes_per_pixel bytes) away in the same row,
// so a padded row is a flat byte array and each output row is computed with
// loops that the compiler turns into vector code.  Rows come from
// FetchBorderRow (edge replication) into n buffers per band of output rows;
// the buffer pointers rotate by one row per output row.
#include "imgproc/filters.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "imgproc/convert_rows.h"


// An AVX2 copy of the hot loop, chosen at load time.  ThreadSanitizer builds
// keep one copy: the loader's resolver would run before its runtime starts.
#if defined(__SANITIZE_THREAD__)
#define QUILLA_AVX2_CLONES
#else
#define QUILLA_AVX2_CLONES __attribute__((target_clones("avx2", "default")))
#endif

namespace quilla {

namespace {

constexpr FilterKernel3 kKernels[kFixedKernelCount] = {
    {{0, -1, 0, -1, 10, -1, 0, -1, 0}, 6, 0},
    {{-1, 0, -1, 0, 7, 0, -1, 0, -1}, 3, 0},
    {{0, -1, 0, -1, 5, -1, 0, -1, 0}, 1, 0},
    {{1, -2, 1, -2, 5, -2, 1, -2, 1}, 1, 0},
    {{0, 1, 0, 1, -4, 1, 0, 1, 0}, 1, 128},
    {{-1, -1, -1, -1, 8, -1, -1, -1, -1}, 1, 128},
    {{1, -2, 1, -2, 4, -2, 1, -2, 1}, 1, 128},
    {{-1, 0, 0, 0, 0, 0, 0, 0, 1}, 1, 128},
    {{-1, -2, 0, -2, 0, 2, 0, 2, 1}, 1, 128},
};

inline uint8_t clampByte(int v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); }

// Exact division of a non-negative numerator below 2^24 by a divisor in
// 1..2^24 through one multiplication: m = ceil(2^s / d) with s = 24 + ceil(log2 d).
struct Divider {
  uint64_t m;
  int s;
  explicit Divider(uint32_t d) {
    int l = 0;
    while ((uint64_t(1) << l) < d) ++l;
    s = 24 + l;
    m = ((uint64_t(1) << s) + d - 1) / d;
  }
  uint32_t div(uint32_t x) const { return static_cast<uint32_t>((x * m) >> s); }
  // Signed numerator, quotient truncated toward zero.
  int sdiv(int x) const { return x >= 0 ? static_cast<int>(div(static_cast<uint32_t>(x))) : -static_cast<int>(div(static_cast<uint32_t>(-x))); }
};

// The record the result is built in: a copy of the source, so that what
// lies outside the rectangle stays as it was; when the rectangle covers every
// pixel byte the filter writes them all, and only the palette and attributes
// are copied (the copy would cost as much memory traffic as the filter).
bool newResult(const TslPicture *src, const OpRect &r, TslPicture *result) {
  std::memset(result, 0, sizeof *result);
  const bool whole = r.x == 0 && r.y == 0 && static_cast<uint32_t>(r.width) == src->width &&
                     static_cast<uint32_t>(r.height) == src->height &&
                     src->bytes_per_line == static_cast<size_t>(src->width) * src->bytes_per_pixel;
  if (!whole) {
    if (tslCopyPicture(result, src) != TSL_OK) return false;
  } else {
    if (!tslAllock(result, src->color_model, src->alloc_param, src->width, src->height)) return false;
    if (src->palette && result->palette) std::memcpy(result->palette, src->palette, 768);
    rows::CopyAttributes(src, result);
    result->colors = src->colors;
  }
  result->transparent_index = -1;
  return true;
}

// What a row function receives: the n padded rows (rows[k] is picture row
// y - n/2 + k), the output bytes, the byte offset of the rectangle's first
// pixel in a padded row (x * bpp, which is where its leftmost neighbour lies),
// the number of output bytes and the bytes per pixel, plus per-band scratch.
struct RowJob {
  const uint8_t *const *rows;
  uint8_t *out;
  size_t off;
  size_t nbytes;
  size_t bpp;
  uint8_t *scratch;
};

// Allocation, bands, row rotation and hand-over shared by all the filters.
// scratch_per_row is in units of padded-row bytes.
//
// Without a destination the result goes straight into the source's rows: a
// row is overwritten only after every output row that reads it has fetched
// its copy, except across bands, so the rows each band reads from its
// neighbours' ranges (its halo) are copied before any band starts.  The
// bytes are those of building the result in a copy, without a second
// picture's memory.
template <class Fn>
int runFilter(TslPicture *src, TslPicture *dst, const OpRect *rect, int n, size_t scratch_bytes_per_padded_byte,
              Fn fn) {
  if (src->color_model == TSL_BINARY) return kOpNotBilevel;
  OpRect r;
  if (!ClipRect(src, rect, &r)) return kOpEmptyRect;
  const bool in_place = dst == nullptr;
  TslPicture result;
  std::memset(&result, 0, sizeof result);
  if (!in_place && !newResult(src, r, &result)) return kOpNoMemory;
  TslPicture *target = in_place ? src : &result;

  const size_t bpp = src->bytes_per_pixel;
  const int half = n / 2, above = half, below = n - 1 - half;
  // Rounded to 64 bytes so that every buffer (and the scratch typed as wider
  // integers) starts aligned.
  const size_t row_bytes = ((static_cast<size_t>(src->width) + 2 * static_cast<size_t>(half)) * bpp + 64 + 63) & ~size_t(63);
  const size_t halo_rows = in_place ? static_cast<size_t>(n - 1) : 0;
  const size_t per_band = row_bytes * (static_cast<size_t>(n) + scratch_bytes_per_padded_byte + halo_rows);
  const int bands = ParallelBandCount(r.height, static_cast<size_t>(r.width) * bpp * static_cast<size_t>(n));
  auto *memory = static_cast<uint8_t *>(std::malloc(per_band * static_cast<size_t>(bands)));
  if (!memory) {
    tslFree(&result);
    return kOpNoMemory;
  }
  const size_t off = static_cast<size_t>(r.x) * bpp;
  const size_t nbytes = static_cast<size_t>(r.width) * bpp;
  auto band_rows = [&](int b, int *y0, int *y1) {
    *y0 = r.y + static_cast<int>(static_cast<int64_t>(r.height) * b / bands);
    *y1 = r.y + static_cast<int>(static_cast<int64_t>(r.height) * (b + 1) / bands);
  };
  // Halo of band b: rows y0 - above .. y0 - 1, then y1 .. y1 + below - 1.
  auto halo = [&](int b, int k) {
    return memory + per_band * static_cast<size_t>(b) +
           row_bytes * (static_cast<size_t>(n) + scratch_bytes_per_padded_byte + static_cast<size_t>(k));
  };
  if (in_place) {
    for (int b = 0; b < bands; ++b) {
      int y0, y1;
      band_rows(b, &y0, &y1);
      for (int k = 0; k < above; ++k) FetchBorderRow(halo(b, k), src, y0 - above + k, n);
      for (int k = 0; k < below; ++k) FetchBorderRow(halo(b, above + k), src, y1 + k, n);
    }
  }
  ParallelFor(bands, [&](int b) {
    int y0, y1;
    band_rows(b, &y0, &y1);
    auto fetch = [&](uint8_t *slot, int row) {
      if (in_place && row < y0) std::memcpy(slot, halo(b, row - (y0 - above)), row_bytes);
      else if (in_place && row >= y1) std::memcpy(slot, halo(b, above + (row - y1)), row_bytes);
      else FetchBorderRow(slot, src, row, n);
    };
    uint8_t *base = memory + per_band * static_cast<size_t>(b);
    const uint8_t *rows[kMaxFilterSize];
    uint8_t *slots[kMaxFilterSize];
    for (int k = 0; k < n; ++k) {
      slots[k] = base + row_bytes * static_cast<size_t>(k);
      fetch(slots[k], y0 - half + k);
    }
    uint8_t *scratch = base + row_bytes * static_cast<size_t>(n);
    for (int y = y0; y < y1; ++y) {
      if (y > y0) {
        uint8_t *oldest = slots[0];
        for (int k = 0; k + 1 < n; ++k) slots[k] = slots[k + 1];
        slots[n - 1] = oldest;
        fetch(oldest, y - half + n - 1);
      }
      for (int k = 0; k < n; ++k) rows[k] = slots[k];
      fn(RowJob{rows, RowOf(target, static_cast<uint32_t>(y)) + off, off, nbytes, bpp, scratch});
    }
  });
  std::free(memory);
  if (in_place) src->transparent_index = -1;
  else HandOver(src, dst, &result);
  return kOpDone;
}

bool badSize(int n) { return n < kMinFilterSize || n > kMaxFilterSize; }

// ---- fixed kernels ---------------------------------------------------------

template <int K>
void kernelLoop(const uint8_t *__restrict a, const uint8_t *__restrict m, const uint8_t *__restrict c,
                uint8_t *__restrict out, size_t n, size_t b) {
  constexpr FilterKernel3 k = kKernels[K];
  for (size_t i = 0; i < n; ++i) {
    int s = k.weight[0] * a[i] + k.weight[1] * a[i + b] + k.weight[2] * a[i + 2 * b] + k.weight[3] * m[i] +
            k.weight[4] * m[i + b] + k.weight[5] * m[i + 2 * b] + k.weight[6] * c[i] + k.weight[7] * c[i + b] +
            k.weight[8] * c[i + 2 * b];
    if (k.divisor != 1) s /= k.divisor;
    out[i] = clampByte(s + k.bias);
  }
}

template <int K>
void kernelRow(const RowJob &j) {
  kernelLoop<K>(j.rows[0] + j.off, j.rows[1] + j.off, j.rows[2] + j.off, j.out, j.nbytes, j.bpp);
}

using RowFn = void (*)(const RowJob &);
constexpr RowFn kKernelRows[kFixedKernelCount] = {kernelRow<0>, kernelRow<1>, kernelRow<2>, kernelRow<3>, kernelRow<4>,
                                                  kernelRow<5>, kernelRow<6>, kernelRow<7>, kernelRow<8>};

// ---- strength filters ------------------------------------------------------

// Calls f(c, E, K, &out) for every byte of the row: centre, sum of the four
// edge neighbours, sum of the four corners.
template <class F>
void strengthRow(const RowJob &j, F f) {
  const size_t b = j.bpp;
  const uint8_t *a = j.rows[0] + j.off, *m = j.rows[1] + j.off, *c = j.rows[2] + j.off;
  for (size_t i = 0; i < j.nbytes; ++i) {
    const int e = a[i + b] + m[i] + m[i + 2 * b] + c[i + b];
    const int k = a[i] + a[i + 2 * b] + c[i] + c[i + 2 * b];
    j.out[i] = f(m[i + b], e, k);
  }
}

int clampStrength(int s) { return s < 1 ? 1 : s > 100 ? 100 : s; }

// ---- size-driven filters ---------------------------------------------------

// Vertical sums (or extremes) of the n rows over the whole padded span the
// row needs, then the horizontal combination of n of them per byte.
void addRow(uint16_t *__restrict col, const uint8_t *__restrict row, size_t span) {
  for (size_t i = 0; i < span; ++i) col[i] = static_cast<uint16_t>(col[i] + row[i]);
}

void widenRow(uint16_t *__restrict col, const uint8_t *__restrict row, size_t span) {
  for (size_t i = 0; i < span; ++i) col[i] = row[i];
}

template <int N>
void averageLoop(const uint16_t *__restrict col, uint8_t *__restrict out, size_t n, size_t b) {
  for (size_t i = 0; i < n; ++i) {
    uint16_t s = col[i];
    for (int k = 1; k < N; ++k) s = static_cast<uint16_t>(s + col[i + k * b]);
    out[i] = static_cast<uint8_t>(s / static_cast<uint16_t>(N * N));
  }
}

template <int N>
void averageRow(const RowJob &j) {
  const size_t span = j.nbytes + (N - 1) * j.bpp;
  uint16_t *col = reinterpret_cast<uint16_t *>(j.scratch);
  widenRow(col, j.rows[0] + j.off, span);
  for (int k = 1; k < N; ++k) addRow(col, j.rows[k] + j.off, span);
  averageLoop<N>(col, j.out, j.nbytes, j.bpp);
}

template <bool Max>
void extremeRows(uint8_t *__restrict col, const uint8_t *__restrict row, size_t span) {
  for (size_t i = 0; i < span; ++i) col[i] = Max ? std::max(col[i], row[i]) : std::min(col[i], row[i]);
}

template <int N, bool Max>
void extremeLoop(const uint8_t *__restrict col, uint8_t *__restrict out, size_t n, size_t b) {
  for (size_t i = 0; i < n; ++i) {
    uint8_t v = col[i];
    for (int k = 1; k < N; ++k) v = Max ? std::max(v, col[i + k * b]) : std::min(v, col[i + k * b]);
    out[i] = v;
  }
}

template <int N, bool Max>
void extremeRow(const RowJob &j) {
  const size_t span = j.nbytes + (N - 1) * j.bpp;
  std::memcpy(j.scratch, j.rows[0] + j.off, span);
  for (int k = 1; k < N; ++k) extremeRows<Max>(j.scratch, j.rows[k] + j.off, span);
  extremeLoop<N, Max>(j.scratch, j.out, j.nbytes, j.bpp);
}

template <int N>
RowFn averageFor(int n);
template <>
RowFn averageFor<kMaxFilterSize + 1>(int) { return nullptr; }
template <int N>
RowFn averageFor(int n) { return n == N ? averageRow<N> : averageFor<N + 1>(n); }

template <int N, bool Max>
RowFn extremeFor(int n);
template <>
RowFn extremeFor<kMaxFilterSize + 1, true>(int) { return nullptr; }
template <>
RowFn extremeFor<kMaxFilterSize + 1, false>(int) { return nullptr; }
template <int N, bool Max>
RowFn extremeFor(int n) { return n == N ? extremeRow<N, Max> : extremeFor<N + 1, Max>(n); }

// Exact median of 3x3: sort each column of three, then the median is the
// median of (largest of the column minima, median of the column medians,
// smallest of the column maxima).
void sortColumns(const uint8_t *__restrict a, const uint8_t *__restrict m, const uint8_t *__restrict c,
                 uint8_t *__restrict lo, uint8_t *__restrict mid, uint8_t *__restrict hi, size_t span) {
  for (size_t i = 0; i < span; ++i) {
    const uint8_t x = a[i], y = m[i], z = c[i];
    const uint8_t l1 = std::min(x, y), h1 = std::max(x, y);
    lo[i] = std::min(l1, z);
    const uint8_t h2 = std::max(l1, z);
    hi[i] = std::max(h1, h2);
    mid[i] = std::min(h1, h2);
  }
}

void combineColumns(const uint8_t *__restrict lo, const uint8_t *__restrict mid, const uint8_t *__restrict hi,
                    uint8_t *__restrict out, size_t n, size_t b) {
  for (size_t i = 0; i < n; ++i) {
    const uint8_t maxlo = std::max(std::max(lo[i], lo[i + b]), lo[i + 2 * b]);
    const uint8_t minhi = std::min(std::min(hi[i], hi[i + b]), hi[i + 2 * b]);
    const uint8_t m0 = mid[i], m1 = mid[i + b], m2 = mid[i + 2 * b];
    const uint8_t medmid = std::max(std::min(m0, m1), std::min(std::max(m0, m1), m2));
    out[i] = std::max(std::min(maxlo, medmid), std::min(std::max(maxlo, medmid), minhi));
  }
}

void median3Row(const RowJob &j) {
  const size_t span = j.nbytes + 2 * j.bpp;
  uint8_t *lo = j.scratch, *mid = lo + span, *hi = mid + span;
  sortColumns(j.rows[0] + j.off, j.rows[1] + j.off, j.rows[2] + j.off, lo, mid, hi, span);
  combineColumns(lo, mid, hi, j.out, j.nbytes, j.bpp);
}

// Median of larger boxes with a sliding 256-bin histogram per channel: one
// column of n values enters and one leaves per pixel, and the median moves
// from its previous place.  `below` counts the values under m.
void medianBoxRow(const RowJob &j, int n) {
  const int target = n * n / 2;
  const size_t b = j.bpp, pixels = j.nbytes / b;
  for (size_t ch = 0; ch < b; ++ch) {
    uint32_t hist[256] = {};
    const size_t base = j.off + ch;
    for (int ky = 0; ky < n; ++ky)
      for (int kx = 0; kx < n; ++kx) ++hist[j.rows[ky][base + static_cast<size_t>(kx) * b]];
    int m = 0, below = 0;
    while (below + static_cast<int>(hist[m]) <= target) below += static_cast<int>(hist[m++]);
    j.out[ch] = static_cast<uint8_t>(m);
    for (size_t x = 1; x < pixels; ++x) {
      const size_t gone = base + (x - 1) * b, come = base + (x - 1 + static_cast<size_t>(n)) * b;
      for (int ky = 0; ky < n; ++ky) {
        const uint8_t v = j.rows[ky][gone], w = j.rows[ky][come];
        --hist[v];
        below -= v < m;
        ++hist[w];
        below += w < m;
      }
      while (below > target) below -= static_cast<int>(hist[--m]);
      while (below + static_cast<int>(hist[m]) <= target) below += static_cast<int>(hist[m++]);
      j.out[x * b + ch] = static_cast<uint8_t>(m);
    }
  }
}

void accumulate(uint32_t *__restrict acc, const uint8_t *__restrict p, uint32_t w, size_t n) {
  for (size_t i = 0; i < n; ++i) acc[i] += w * p[i];
}

void accumulateSigned(int32_t *__restrict acc, const uint8_t *__restrict p, int32_t w, size_t n) {
  for (size_t i = 0; i < n; ++i) acc[i] += w * p[i];
}

// 3x3 gaussian: its weights are symmetric (one for the four corners, one
// for the four edges, one for the centre), so the nine products become three
// on 16-bit sums of the corners and of the edges; the sum is the same.  The
// sums of the top and bottom rows are formed once per row in `col`.
QUILLA_AVX2_CLONES void gauss3Loop(
    const uint8_t *__restrict a, const uint8_t *__restrict m, const uint8_t *__restrict c, uint16_t *__restrict col,
    uint8_t *__restrict out, size_t n, size_t b, uint32_t corner, uint32_t edge, uint32_t centre) {
  const size_t span = n + 2 * b;
  for (size_t i = 0; i < span; ++i) col[i] = static_cast<uint16_t>(a[i] + c[i]);
  for (size_t i = 0; i < n; ++i) {
    const uint32_t k = static_cast<uint32_t>(col[i] + col[i + 2 * b]);
    const uint32_t e = static_cast<uint32_t>(col[i + b] + m[i] + m[i + 2 * b]);
    const uint32_t s = corner * k + edge * e + centre * m[i + b];
    out[i] = static_cast<uint8_t>(std::min<uint32_t>(s >> 11, 255));
  }
}

}  // namespace

const FilterKernel3 FixedKernels[kFixedKernelCount] = {kKernels[0], kKernels[1], kKernels[2], kKernels[3], kKernels[4],
                                                       kKernels[5], kKernels[6], kKernels[7], kKernels[8]};

int ApplyKernel3(TslPicture *src, TslPicture *dst, const OpRect *rect, int index) {
  if (index < 0 || index >= kFixedKernelCount) return kOpEmptyRect;
  const RowFn f = kKernelRows[index];
  return runFilter(src, dst, rect, 3, 0, [f](const RowJob &j) { f(j); });
}

int Soften(TslPicture *src, TslPicture *dst, const OpRect *rect, int s) {
  const int k = (100 - clampStrength(s)) * 3175 / 100;
  const Divider d(static_cast<uint32_t>(k + 825));
  return runFilter(src, dst, rect, 3, 0, [&](const RowJob &j) {
    strengthRow(j, [&](int c, int e, int kk) {
      return static_cast<uint8_t>(d.div(static_cast<uint32_t>(100 * (e + kk) + (k + 25) * c)));
    });
  });
}

int Blur(TslPicture *src, TslPicture *dst, const OpRect *rect, int s) {
  const int k = (100 - clampStrength(s)) * 3175 / 100;
  const Divider d(static_cast<uint32_t>(k + 1225));
  return runFilter(src, dst, rect, 3, 0, [&](const RowJob &j) {
    strengthRow(j, [&](int c, int e, int kk) {
      return static_cast<uint8_t>(d.div(static_cast<uint32_t>(100 * kk + 200 * e + (k + 25) * c)));
    });
  });
}

int Sharpen(TslPicture *src, TslPicture *dst, const OpRect *rect, int s) {
  s = clampStrength(s);
  const Divider d(static_cast<uint32_t>(s == 100 ? 1 : 100 - s));
  return runFilter(src, dst, rect, 3, 0, [&](const RowJob &j) {
    strengthRow(j, [&](int c, int e, int kk) {
      const int scaled = static_cast<int>(static_cast<unsigned>(s * (e + kk)) / 8u);
      return clampByte(d.sdiv(100 * c - scaled));
    });
  });
}

int EnhanceEdges(TslPicture *src, TslPicture *dst, const OpRect *rect, int s) {
  const int k = (100 - clampStrength(s)) * 55 / 100;
  const Divider d(static_cast<uint32_t>(k + 1));
  return runFilter(src, dst, rect, 3, 0, [&](const RowJob &j) {
    strengthRow(j, [&](int c, int e, int kk) { return clampByte(d.sdiv((k + 9) * c - (e + kk))); });
  });
}

bool GaussianWeights(int n, int32_t *weights) {
  if (badSize(n)) return false;
  const double sigma = n / std::sqrt(2.0 * std::log(255.0));
  std::vector<double> raw(static_cast<size_t>(n) * n);
  double total = 0;
  for (int dy = 0; dy < n; ++dy)
    for (int dx = 0; dx < n; ++dx) {
      const int ox = dx - n / 2, oy = dy - n / 2;
      raw[static_cast<size_t>(dy) * n + dx] = std::exp(-(ox * ox + oy * oy) / (2 * sigma * sigma));
      total += raw[static_cast<size_t>(dy) * n + dx];
    }
  for (size_t k = 0; k < raw.size(); ++k) weights[k] = static_cast<int32_t>(raw[k] / total * 2048 + 0.5);
  return true;
}

int Average(TslPicture *src, TslPicture *dst, const OpRect *rect, int n) {
  if (badSize(n)) return kOpEmptyRect;
  const RowFn f = averageFor<kMinFilterSize>(n);
  return runFilter(src, dst, rect, n, 2, [f](const RowJob &j) { f(j); });
}

// The integer weights may add up to a little more than 2048, so the sum is
// kept to 255 after the shift.
int GaussianBlur(TslPicture *src, TslPicture *dst, const OpRect *rect, int n) {
  if (badSize(n)) return kOpEmptyRect;
  int32_t w[kMaxFilterSize * kMaxFilterSize];
  GaussianWeights(n, w);
  if (n == 3 && w[0] == w[2] && w[0] == w[6] && w[0] == w[8] && w[1] == w[3] && w[1] == w[5] && w[1] == w[7]) {
    const uint32_t corner = static_cast<uint32_t>(w[0]), edge = static_cast<uint32_t>(w[1]),
                   centre = static_cast<uint32_t>(w[4]);
    return runFilter(src, dst, rect, 3, 2, [&](const RowJob &j) {
      gauss3Loop(j.rows[0] + j.off, j.rows[1] + j.off, j.rows[2] + j.off, reinterpret_cast<uint16_t *>(j.scratch),
                 j.out, j.nbytes, j.bpp, corner, edge, centre);
    });
  }
  return runFilter(src, dst, rect, n, 4, [&](const RowJob &j) {
    uint32_t *acc = reinterpret_cast<uint32_t *>(j.scratch);
    std::memset(acc, 0, j.nbytes * sizeof(uint32_t));
    for (int ky = 0; ky < n; ++ky)
      for (int kx = 0; kx < n; ++kx)
        accumulate(acc, j.rows[ky] + j.off + static_cast<size_t>(kx) * j.bpp, static_cast<uint32_t>(w[ky * n + kx]),
                   j.nbytes);
    for (size_t i = 0; i < j.nbytes; ++i) j.out[i] = static_cast<uint8_t>(std::min<uint32_t>(acc[i] >> 11, 255));
  });
}

int Maximum(TslPicture *src, TslPicture *dst, const OpRect *rect, int n) {
  if (badSize(n)) return kOpEmptyRect;
  const RowFn f = extremeFor<kMinFilterSize, true>(n);
  return runFilter(src, dst, rect, n, 1, [f](const RowJob &j) { f(j); });
}

int Minimum(TslPicture *src, TslPicture *dst, const OpRect *rect, int n) {
  if (badSize(n)) return kOpEmptyRect;
  const RowFn f = extremeFor<kMinFilterSize, false>(n);
  return runFilter(src, dst, rect, n, 1, [f](const RowJob &j) { f(j); });
}

int MedianBox(TslPicture *src, TslPicture *dst, const OpRect *rect, int n) {
  if (badSize(n)) return kOpEmptyRect;
  if (n == 3) return runFilter(src, dst, rect, 3, 3, median3Row);
  return runFilter(src, dst, rect, n, 0, [n](const RowJob &j) { medianBoxRow(j, n); });
}

int MedianCross(TslPicture *src, TslPicture *dst, const OpRect *rect, int n) {
  if (badSize(n)) return kOpEmptyRect;
  const size_t count = 2 * static_cast<size_t>(n) - 1, index = count / 2;
  const int half = n / 2;
  return runFilter(src, dst, rect, n, 0, [&](const RowJob &j) {
    uint8_t v[2 * kMaxFilterSize];
    const uint8_t *centre_row = j.rows[half] + j.off;
    for (size_t i = 0; i < j.nbytes; ++i) {
      size_t k = 0;
      for (int kx = 0; kx < n; ++kx) v[k++] = centre_row[i + static_cast<size_t>(kx) * j.bpp];
      const size_t col = i + static_cast<size_t>(half) * j.bpp;
      for (int ky = 0; ky < n; ++ky)
        if (ky != half) v[k++] = j.rows[ky][j.off + col];
      std::nth_element(v, v + index, v + count);
      j.out[i] = v[index];
    }
  });
}

}  // namespace quilla

namespace quilla {

int ApplyKernelN(TslPicture *src, TslPicture *dst, const OpRect *rect, int n, const int32_t *weights, int divisor,
                 int bias) {
  if (badSize(n)) return kOpEmptyRect;
  if (divisor == 0) divisor = 1;
  std::vector<int32_t> w(weights, weights + static_cast<size_t>(n) * n);
  int64_t reach = 0;  // largest possible |sum|
  for (int32_t v : w) reach += 255 * static_cast<int64_t>(std::abs(static_cast<int64_t>(v)));
  const bool small = reach < (int64_t(1) << 24) && std::abs(static_cast<int64_t>(divisor)) < (int64_t(1) << 24);
  const bool wide = reach > INT32_MAX;
  const Divider d(static_cast<uint32_t>(divisor < 0 ? -static_cast<int64_t>(divisor) : divisor));
  const int sign = divisor < 0 ? -1 : 1;
  return runFilter(src, dst, rect, n, 8, [&](const RowJob &j) {
    int64_t *acc = reinterpret_cast<int64_t *>(j.scratch);
    std::memset(acc, 0, j.nbytes * sizeof(int64_t));
    if (!wide) {
      int32_t *acc32 = reinterpret_cast<int32_t *>(j.scratch);
      for (int ky = 0; ky < n; ++ky)
        for (int kx = 0; kx < n; ++kx) {
          const int32_t wt = w[static_cast<size_t>(ky) * n + kx];
          if (wt != 0) accumulateSigned(acc32, j.rows[ky] + j.off + static_cast<size_t>(kx) * j.bpp, wt, j.nbytes);
        }
      for (size_t i = 0; i < j.nbytes; ++i) {
        const int32_t s = acc32[i];
        const int64_t q = small ? sign * d.sdiv(s) : static_cast<int64_t>(s) / divisor;
        const int64_t v = q + bias;
        j.out[i] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
      }
      return;
    }
    for (int ky = 0; ky < n; ++ky)
      for (int kx = 0; kx < n; ++kx) {
        const int64_t wt = w[static_cast<size_t>(ky) * n + kx];
        const uint8_t *p = j.rows[ky] + j.off + static_cast<size_t>(kx) * j.bpp;
        for (size_t i = 0; i < j.nbytes; ++i) acc[i] += wt * p[i];
      }
    for (size_t i = 0; i < j.nbytes; ++i) {
      const int64_t v = acc[i] / divisor + bias;
      j.out[i] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
    }
  });
}

}  // namespace quilla
