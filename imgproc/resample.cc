// Resampling: nearest neighbour on every model, and separable filters
// (triangle, Catmull-Rom, Lanczos 3) with integer weights computed once per
// output row and column.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "imgproc/convert.h"
#include "imgproc/convert_rows.h"
#include "imgproc/geometry.h"
#include "imgproc/parallel.h"

namespace quilla {

namespace {

// 22 fractional bits: with 8-bit samples and the negative lobes of the
// kernels the sums stay inside 32 bits, and wide reductions keep precision.
constexpr int kWeightBits = 22;
constexpr int kWeightOne = 1 << kWeightBits;

double kernel(int method, double x) {
  x = std::fabs(x);
  switch (method) {
    case kResampleBicubic:  // Catmull-Rom (a = -0.5)
      if (x < 1) return (1.5 * x - 2.5) * x * x + 1;
      if (x < 2) return ((-0.5 * x + 2.5) * x - 4) * x + 2;
      return 0;
    case kResampleLanczos: {
      if (x >= 3) return 0;
      if (x < 1e-8) return 1;
      const double px = M_PI * x;
      return 3 * std::sin(px) * std::sin(px / 3) / (px * px);
    }
    default:  // triangle
      return x < 1 ? 1 - x : 0;
  }
}

double support(int method) { return method == kResampleBicubic ? 2 : method == kResampleLanczos ? 3 : 1; }

// Integer weights of one axis: output i reads `taps` source positions from
// start[i]; the weights of an output sum to exactly kWeightOne.
struct Weights {
  int taps = 0;
  std::vector<int32_t> start;
  std::vector<int32_t> w;
};

bool buildWeights(int method, uint32_t src, uint32_t dst, Weights *out) {
  const double scale = static_cast<double>(dst) / src;
  const double stretch = scale < 1 ? 1 / scale : 1;  // filter widened when shrinking
  const double radius = support(method) * stretch;
  // Source span of each output, clipped to the picture; taps = the widest.
  auto span = [&](uint32_t i, int *lo, int *hi) {
    const double centre = (i + 0.5) / scale;
    *lo = std::max(static_cast<int>(std::floor(centre - radius)), 0);
    *hi = std::min(static_cast<int>(std::ceil(centre + radius)), static_cast<int>(src) - 1);
    if (*hi < *lo) *hi = *lo = std::clamp(static_cast<int>(centre), 0, static_cast<int>(src) - 1);
  };
  int taps = 1;
  for (uint32_t i = 0; i < dst; ++i) {
    int lo, hi;
    span(i, &lo, &hi);
    taps = std::max(taps, hi - lo + 1);
  }
  out->taps = taps;
  try {
    out->start.assign(dst, 0);
    out->w.assign(static_cast<size_t>(dst) * taps, 0);
  } catch (...) {
    return false;
  }
  std::vector<double> f(static_cast<size_t>(taps));
  for (uint32_t i = 0; i < dst; ++i) {
    const double centre = (i + 0.5) / scale;
    int lo, hi;
    span(i, &lo, &hi);
    double sum = 0;
    const int n = hi - lo + 1;
    for (int k = 0; k < n; ++k) {
      f[static_cast<size_t>(k)] = kernel(method, (lo + k + 0.5 - centre) / stretch);
      sum += f[static_cast<size_t>(k)];
    }
    if (std::fabs(sum) < 1e-12) {  // no coverage (cannot happen with these kernels); take the nearest pixel
      const int c = std::clamp(static_cast<int>(centre), 0, static_cast<int>(src) - 1);
      const int start = std::max(0, std::min(c, static_cast<int>(src) - taps));
      out->start[i] = start;
      out->w[static_cast<size_t>(i) * taps + static_cast<size_t>(c - start)] = kWeightOne;
      continue;
    }
    // Start so that the taps stay inside the source; unused taps weigh 0.
    int start = std::min(lo, static_cast<int>(src) - taps);
    if (start < 0) start = 0;
    out->start[i] = start;
    int32_t *wi = &out->w[static_cast<size_t>(i) * taps];
    int total = 0, big = -1;
    for (int k = 0; k < n; ++k) {
      const int slot = lo + k - start;
      if (slot < 0 || slot >= taps) continue;
      const int q = static_cast<int>(std::lround(f[static_cast<size_t>(k)] / sum * kWeightOne));
      wi[slot] = q;
      total += q;
      if (big < 0 || wi[slot] > wi[big]) big = slot;
    }
    if (big >= 0) wi[big] += kWeightOne - total;
  }
  return true;
}

// Drops the taps that weigh 0 for every output on the same side (a 2:1
// triangle has 5 positions in its span, the outer one always at weight 0):
// the sums stay the same, with fewer products.
void trimWeights(Weights *wt, uint32_t dst) {
  const int taps = wt->taps;
  int lead = taps, trail = taps;
  for (uint32_t i = 0; i < dst; ++i) {
    const int32_t *w = &wt->w[static_cast<size_t>(i) * taps];
    int l = 0, t = 0;
    while (l < taps && w[l] == 0) ++l;
    while (t < taps - l && w[taps - 1 - t] == 0) ++t;
    lead = std::min(lead, l);
    trail = std::min(trail, t);
  }
  if (lead + trail == 0 || lead + trail >= taps) return;
  const int kept = taps - lead - trail;
  for (uint32_t i = 0; i < dst; ++i) {
    wt->start[i] += lead;
    std::memmove(&wt->w[static_cast<size_t>(i) * kept], &wt->w[static_cast<size_t>(i) * taps + static_cast<size_t>(lead)],
                 static_cast<size_t>(kept) * sizeof(int32_t));
  }
  wt->taps = kept;
  wt->w.resize(static_cast<size_t>(dst) * kept);
}

inline uint8_t clampRound(int32_t acc) {
  acc = (acc + (1 << (kWeightBits - 1))) >> kWeightBits;
  return static_cast<uint8_t>(acc < 0 ? 0 : acc > 255 ? 255 : acc);
}

// Horizontal pass of one row: `ch` bytes per pixel (1, 3 or 4); TAPS > 0
// fixes the number of taps at compile time (the common small ones).
template <int CH, int TAPS = 0>
void horizontalRow(const uint8_t *in, uint8_t *out, uint32_t dw, const Weights &wx) {
  const int taps = TAPS > 0 ? TAPS : wx.taps;
  for (uint32_t x = 0; x < dw; ++x) {
    const uint8_t *s = in + static_cast<size_t>(wx.start[x]) * CH;
    const int32_t *w = &wx.w[static_cast<size_t>(x) * taps];
    int32_t acc[CH];
    for (int c = 0; c < CH; ++c) acc[c] = 0;
    for (int k = 0; k < taps; ++k, s += CH)
      for (int c = 0; c < CH; ++c) acc[c] += w[k] * s[c];
    for (int c = 0; c < CH; ++c) out[static_cast<size_t>(x) * CH + c] = clampRound(acc[c]);
  }
}

template <int CH>
void horizontalRowTaps(const uint8_t *in, uint8_t *out, uint32_t dw, const Weights &wx) {
  switch (wx.taps) {
    case 2: horizontalRow<CH, 2>(in, out, dw, wx); break;
    case 3: horizontalRow<CH, 3>(in, out, dw, wx); break;
    case 4: horizontalRow<CH, 4>(in, out, dw, wx); break;
    case 5: horizontalRow<CH, 5>(in, out, dw, wx); break;
    default: horizontalRow<CH>(in, out, dw, wx); break;
  }
}

void horizontalRowAny(const uint8_t *in, uint8_t *out, uint32_t dw, const Weights &wx, int ch) {
  switch (ch) {
    case 1: horizontalRowTaps<1>(in, out, dw, wx); break;
    case 3: horizontalRowTaps<3>(in, out, dw, wx); break;
    default: horizontalRowTaps<4>(in, out, dw, wx); break;
  }
}

// Vertical pass of one output row from `taps` rows of the intermediate.
void verticalRow(const uint8_t *base, size_t stride, size_t bytes, const int32_t *w, int taps, int32_t *acc,
                 uint8_t *out) {
  std::fill(acc, acc + bytes, 0);
  for (int k = 0; k < taps; ++k) {
    const int32_t wk = w[k];
    if (!wk) continue;
    const uint8_t *row = base + stride * static_cast<size_t>(k);
    for (size_t i = 0; i < bytes; ++i) acc[i] += wk * row[i];
  }
  for (size_t i = 0; i < bytes; ++i) out[i] = clampRound(acc[i]);
}

int resizeNearest(const TslPicture *src, TslPicture *out) {
  const uint32_t sw = src->width, sh = src->height, dw = out->width, dh = out->height;
  std::vector<uint32_t> xs(dw);
  for (uint32_t x = 0; x < dw; ++x) xs[x] = static_cast<uint32_t>((2 * static_cast<uint64_t>(x) + 1) * sw / (2 * static_cast<uint64_t>(dw)));
  const int bpp = src->bytes_per_pixel;
  ForRowBands(dh, dw, [&](uint32_t y0, uint32_t y1) {
    for (uint32_t y = y0; y < y1; ++y) {
      const uint32_t sy = static_cast<uint32_t>((2 * static_cast<uint64_t>(y) + 1) * sh / (2 * static_cast<uint64_t>(dh)));
      const uint8_t *s = RowOf(src, sy);
      uint8_t *d = RowOf(out, y);
      if (src->color_model == TSL_BINARY) {
        for (uint32_t x = 0; x < dw; ++x) SetBit(d, static_cast<int>(x), GetBit(s, static_cast<int>(xs[x])));
      } else if (bpp == 1) {
        for (uint32_t x = 0; x < dw; ++x) d[x] = s[xs[x]];
      } else if (bpp == 3) {
        for (uint32_t x = 0; x < dw; ++x, d += 3) std::memcpy(d, s + static_cast<size_t>(xs[x]) * 3, 3);
      } else {
        for (uint32_t x = 0; x < dw; ++x, d += 4) std::memcpy(d, s + static_cast<size_t>(xs[x]) * 4, 4);
      }
    }
  });
  return kOpDone;
}

// Separable filtering of a grey or true-colour picture into `out` (same model).
int resizeFiltered(const TslPicture *src, TslPicture *out, int method) {
  const uint32_t sw = src->width, sh = src->height, dw = out->width, dh = out->height;
  const int ch = src->bytes_per_pixel;
  Weights wx, wy;
  if (!buildWeights(method, sw, dw, &wx) || !buildWeights(method, sh, dh, &wy)) return kOpNoMemory;
  trimWeights(&wx, dw);
  trimWeights(&wy, dh);
  if (dh <= sh) {
    // Fewer output rows than source rows: each output row is first filtered
    // vertically from the source rows it covers (contiguous bytes, which
    // vectorise), then horizontally; no intermediate picture.
    const size_t row_bytes = static_cast<size_t>(sw) * ch;
    bool ok = true;
    ForRowBands(dh, static_cast<uint64_t>(sw) * wy.taps + static_cast<uint64_t>(dw) * wx.taps,
                [&](uint32_t y0, uint32_t y1) {
                  std::vector<int32_t> acc;
                  std::vector<uint8_t> line;
                  try {
                    acc.resize(row_bytes);
                    line.resize(row_bytes);
                  } catch (...) {
                    ok = false;
                    return;
                  }
                  for (uint32_t y = y0; y < y1; ++y) {
                    verticalRow(RowOf(src, static_cast<uint32_t>(wy.start[y])), src->bytes_per_line, row_bytes,
                                &wy.w[static_cast<size_t>(y) * wy.taps], wy.taps, acc.data(), line.data());
                    horizontalRowAny(line.data(), RowOf(out, y), dw, wx, ch);
                  }
                });
    return ok ? kOpDone : kOpNoMemory;
  }
  // More output rows: the horizontal pass runs first over the source rows,
  // into an intermediate of dw columns, then the vertical pass.
  const size_t mid_stride = static_cast<size_t>(dw) * ch;
  std::vector<uint8_t> mid;
  try {
    mid.resize(mid_stride * sh);
  } catch (...) {
    return kOpNoMemory;
  }
  ForRowBands(sh, static_cast<uint64_t>(dw) * wx.taps, [&](uint32_t y0, uint32_t y1) {
    for (uint32_t y = y0; y < y1; ++y) horizontalRowAny(RowOf(src, y), &mid[mid_stride * y], dw, wx, ch);
  });
  bool ok = true;
  ForRowBands(dh, static_cast<uint64_t>(dw) * wy.taps, [&](uint32_t y0, uint32_t y1) {
    std::vector<int32_t> acc;
    try {
      acc.resize(mid_stride);
    } catch (...) {
      ok = false;
      return;
    }
    for (uint32_t y = y0; y < y1; ++y)
      verticalRow(&mid[mid_stride * static_cast<size_t>(wy.start[y])], mid_stride, mid_stride,
                  &wy.w[static_cast<size_t>(y) * wy.taps], wy.taps, acc.data(), RowOf(out, y));
  });
  return ok ? kOpDone : kOpNoMemory;
}

// Colour channels multiplied by alpha (forward) or divided by it again, so
// that the filters do not bleed the colour of transparent pixels.
void premultiply(TslPicture *p, bool forward) {
  const rows::Layout L = rows::LayoutOf(p->color_model);
  const int c3[3] = {L.r, L.g, L.b};
  ForRowBands(p->height, p->width, [&](uint32_t y0, uint32_t y1) {
    for (uint32_t y = y0; y < y1; ++y) {
      uint8_t *d = RowOf(p, y);
      for (uint32_t x = 0; x < p->width; ++x, d += 4) {
        const int a = d[L.a];
        if (a == 255) continue;
        for (int c : c3) {
          if (forward) d[c] = static_cast<uint8_t>((d[c] * a + 127) / 255);
          else d[c] = static_cast<uint8_t>(a ? std::min(255, (d[c] * 255 + a / 2) / a) : 0);
        }
      }
    }
  });
}

}  // namespace

int ResizePicture(const TslPicture *src, TslPicture *dst, uint32_t width, uint32_t height, int resample) {
  if (!rows::Usable(src) || !dst || width == 0 || height == 0) return kOpEmptyRect;
  if (width == src->width && height == src->height) return CopyToDest(src, dst);
  const bool quick = resample == kResampleQuick;
  TslPicture work;
  std::memset(&work, 0, sizeof work);
  const TslPicture *from = src;
  if (!quick && src->color_model == TSL_BINARY) {
    if (ConvertToGrey256(src, &work) != kOpDone) return kOpNoMemory;
    from = &work;
  } else if (!quick && src->color_model == TSL_INDEXED) {
    if (ConvertToTrueColor(src, &work) != kOpDone) return kOpNoMemory;
    from = &work;
  } else if (!quick && rows::HasAlpha(src->color_model)) {
    if (tslCopyPicture(&work, src) != TSL_OK) return kOpNoMemory;
    from = &work;
  }
  const bool alpha = !quick && rows::HasAlpha(from->color_model);
  if (alpha) premultiply(&work, true);
  TslPicture out;
  std::memset(&out, 0, sizeof out);
  int status = kOpNoMemory;
  if (tslAllock(&out, from->color_model, src->alloc_param, width, height)) {
    rows::CopyAttributes(src, &out);
    if (from->palette && out.palette) std::memcpy(out.palette, from->palette, 768);
    out.colors = from->colors;
    out.transparent_index = from->transparent_index;
    status = quick ? resizeNearest(from, &out) : resizeFiltered(from, &out, resample);
    if (status == kOpDone && alpha) premultiply(&out, false);
    if (status != kOpDone) tslFree(&out);
  }
  if (from == &work) tslFree(&work);
  if (status == kOpDone) *dst = out;
  return status;
}

}  // namespace quilla
