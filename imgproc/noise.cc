// Noise reduction and the four noise generators.
//
// Amounts (r[0]) are measured on the 0..255 scale of a channel:
//   uniform    values spread evenly over +-(amount percent of 255)
//   gaussian   standard deviation 2 * amount percent of 255 (10.00 -> 51)
//   laplacian  mean absolute deviation amount percent of 255
//   poisson    signal-dependent: a value v becomes amount * P(v / amount),
//              P a Poisson deviate, so the standard deviation is
//              sqrt(amount * v) (amount 1.00 -> about 11 at mid grey)
// Every colour channel gets its own deviate; alpha bytes are left alone.
// The result is rounded and clamped to 0..255, so away from black and white
// the mean is kept.  Each channel value takes one draw of NoiseRng, seeded
// with OpParams.seed, in row order, which picks an entry of a quantile table
// of the distribution; so a seed always gives the same bytes, and the inner
// loop is an integer table look-up.
#include "imgproc/noise.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "imgproc/effects.h"
#include "imgproc/operations.h"

namespace quilla {

std::vector<double> NormalQuantiles(int n) {
  std::vector<double> q(static_cast<size_t>(n));
  // Walk the normal distribution function on a fine grid and interpolate
  // linearly at each probability (i + 0.5) / n.
  const double step = 1.0 / 1024, limit = 8.0;
  double z = -limit, cdf = 0.5 * std::erfc(limit / std::sqrt(2.0));
  for (int i = 0; i < n; ++i) {
    const double target = (i + 0.5) / n;
    double next_cdf = 0.5 * std::erfc(-(z + step) / std::sqrt(2.0));
    while (next_cdf < target && z < limit) {
      z += step;
      cdf = next_cdf;
      next_cdf = 0.5 * std::erfc(-(z + step) / std::sqrt(2.0));
    }
    const double span = next_cdf - cdf;
    q[i] = z + (span > 0 ? (target - cdf) / span * step : 0);
  }
  return q;
}

std::vector<double> NoiseQuantiles(NoiseKind kind, double scale, int n) {
  std::vector<double> q = kind == kNoiseGaussian ? NormalQuantiles(n) : std::vector<double>(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) {
    const double u = (i + 0.5) / n;
    switch (kind) {
      case kNoiseUniform: q[i] = (2 * u - 1) * scale; break;
      case kNoiseLaplacian: q[i] = (u < 0.5 ? std::log(2 * u) : -std::log(2 * (1 - u))) * scale; break;
      default: q[i] *= scale; break;
    }
  }
  return q;
}

std::vector<uint8_t> PoissonLevelTables(double amount, int n) {
  std::vector<uint8_t> t(static_cast<size_t>(256) * n);
  const std::vector<double> z = NormalQuantiles(n);
  auto level = [&](double k) {
    const double v = std::floor(k * amount + 0.5);
    return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
  };
  for (int v = 0; v < 256; ++v) {
    uint8_t *row = t.data() + static_cast<size_t>(v) * n;
    const double lambda = v / amount;
    if (lambda > 500) {  // normal approximation; exp(-lambda) would underflow
      for (int i = 0; i < n; ++i) row[i] = level(std::floor(lambda + std::sqrt(lambda) * z[i] + 0.5));
      continue;
    }
    // Exact: walk the distribution function k = 0, 1, ...
    double pmf = std::exp(-lambda), cdf = pmf;
    int k = 0;
    for (int i = 0; i < n; ++i) {
      const double target = (i + 0.5) / n;
      while (cdf < target && k < 100000) {
        ++k;
        pmf *= lambda / k;
        cdf += pmf;
      }
      row[i] = level(k);
    }
  }
  return t;
}

using fx::OwnedPicture;

namespace {

bool usable(const TslPicture *p) { return p && p->pixels && p->width > 0 && p->height > 0; }

int addNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p, NoiseKind kind, double lo,
             double hi) {
  if (!usable(src)) return kOpEmptyRect;
  if (src->color_model == TSL_BINARY) return kOpNotBilevel;
  const double amount = p.r[0];
  if (!(amount >= lo - 1e-9 && amount <= hi + 1e-9)) return kOpEmptyRect;
  OpRect r;
  if (!ClipRect(src, rect, &r)) return kOpEmptyRect;

  OwnedPicture conv;
  TslPicture *pic;
  if (src->color_model == TSL_INDEXED) {
    if (!fx::ToTrueColor(src, &conv.pic)) return kOpNoMemory;
    pic = &conv.pic;
  } else if (fx::InPlaceTarget(src, dst, &pic) != kOpDone) {
    return kOpNoMemory;
  }

  const fx::ChannelLayout l = fx::LayoutOf(pic->color_model);
  int pos[3] = {l.r, l.g, l.b};
  int channels = 3;
  if (!TSL_IS_TRUECOLOR(pic->color_model)) channels = 1;
  std::sort(pos, pos + channels);
  const int bpp = pic->bytes_per_pixel;

  // Each channel value takes one 32-bit draw, whose top bits pick a
  // quantile of the distribution from a table: every draw is equally likely,
  // so the values follow the distribution (cut beyond the outermost
  // quantile, 1 / 131072 from either end).
  NoiseRng rng(p.seed);
  std::vector<int32_t> offset;     // deviate in 1/256 levels, by 16-bit draw
  std::vector<uint8_t> by_level;   // Poisson: 4096 results per level
  try {
    if (kind == kNoisePoisson) {
      by_level = PoissonLevelTables(amount, 4096);
    } else {
      const std::vector<double> q =
          NoiseQuantiles(kind, kind == kNoiseGaussian ? 2.0 * 2.55 * amount : 2.55 * amount, 65536);
      offset.resize(q.size());
      for (size_t i = 0; i < q.size(); ++i) offset[i] = static_cast<int32_t>(std::lround(q[i] * 256));
    }
  } catch (const std::bad_alloc &) {
    return kOpNoMemory;
  }
  for (int y = r.y; y < r.y + r.height; ++y) {
    uint8_t *px = RowOf(pic, static_cast<uint32_t>(y)) + static_cast<size_t>(r.x) * bpp;
    for (int x = 0; x < r.width; ++x, px += bpp) {
      for (int c = 0; c < channels; ++c) {
        uint8_t &v = px[pos[c]];
        const uint32_t draw = rng.next();
        if (kind == kNoisePoisson) {
          v = by_level[static_cast<size_t>(v) * 4096 + (draw >> 20)];
          continue;
        }
        const int32_t t = v * 256 + offset[draw >> 16] + 128;
        v = static_cast<uint8_t>(t < 0 ? 0 : t >= 256 * 256 ? 255 : t >> 8);
      }
    }
  }
  if (conv.pic.pixels) HandOver(src, dst, &conv.pic);
  return kOpDone;
}

// Insertion sort for the few values of a 3x3 window.
inline void sortSmall(int *v, int n) {
  for (int i = 1; i < n; ++i) {
    const int t = v[i];
    int j = i;
    for (; j > 0 && v[j - 1] > t; --j) v[j] = v[j - 1];
    v[j] = t;
  }
}

// Reads value c of pixel (x, y): a bit, an index or one byte.
inline int valueAt(const TslPicture *pic, int x, int y, int c) {
  const uint8_t *row = RowOf(pic, static_cast<uint32_t>(y));
  if (pic->color_model == TSL_BINARY) return GetBit(row, x);
  return row[static_cast<size_t>(x) * pic->bytes_per_pixel + c];
}

}  // namespace

// Reduce noise: an impulse-noise filter that leaves edges and fine texture
// alone.  Each value is compared with the same value of its neighbours in
// the 3x3 window (neighbours outside the picture are left out, so border
// pixels are judged by the neighbours they have; a pixel with a single
// neighbour is never changed):
//  - grey and true colour, channel by channel (alpha untouched): a value
//    strictly above the second largest or below the second smallest
//    neighbour is an outlier (so pairs of impulses go too, while a pixel
//    with two like neighbours, as along an edge or a thin line, stays) and
//    is replaced by the median of the window (of the two middle values of
//    an even count, the one farther from the outlier); all other values
//    stay;
//  - indexed and bilevel: a pixel whose index (bit) none of its neighbours
//    shares takes the most frequent neighbour value (on a tie the first in
//    row order); the palette is kept.  Graphics are more often drawn with
//    intended two-pixel details, so only single pixels count as noise.
int OpReduceNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &) {
  if (!usable(src)) return kOpEmptyRect;
  OpRect r;
  if (!ClipRect(src, rect, &r)) return kOpEmptyRect;
  OwnedPicture res;
  if (!fx::CopyFresh(src, &res.pic)) return kOpNoMemory;

  const int w = static_cast<int>(src->width), h = static_cast<int>(src->height);
  const bool blend = fx::CanBlend(src);
  const fx::ChannelLayout l = fx::LayoutOf(src->color_model);
  int pos[3] = {l.r, l.g, l.b};
  const int channels = TSL_IS_TRUECOLOR(src->color_model) ? 3 : 1;
  const int bpp = src->bytes_per_pixel;

  for (int y = r.y; y < r.y + r.height; ++y) {
    uint8_t *out = RowOf(&res.pic, static_cast<uint32_t>(y));
    if (blend) {
      const uint8_t *rows[3] = {y > 0 ? RowOf(src, static_cast<uint32_t>(y - 1)) : nullptr,
                                RowOf(src, static_cast<uint32_t>(y)),
                                y + 1 < h ? RowOf(src, static_cast<uint32_t>(y + 1)) : nullptr};
      for (int x = r.x; x < r.x + r.width; ++x) {
        const uint8_t *nbp[8];
        int n = 0;
        for (int dy = 0; dy < 3; ++dy) {
          if (!rows[dy]) continue;
          for (int xx = std::max(x - 1, 0); xx <= std::min(x + 1, w - 1); ++xx)
            if (dy != 1 || xx != x) nbp[n++] = rows[dy] + static_cast<size_t>(xx) * bpp;
        }
        if (n < 2) continue;  // one neighbour cannot tell an outlier
        const uint8_t *cp = rows[1] + static_cast<size_t>(x) * bpp;
        for (int c = 0; c < channels; ++c) {
          const int off = pos[c], centre = cp[off];
          // Bounds: the second smallest and second largest neighbour (the
          // extremes themselves when there are only two neighbours).
          int mn1 = 256, mn2 = 256, mx1 = -1, mx2 = -1;
          for (int i = 0; i < n; ++i) {
            const int v = nbp[i][off];
            if (v < mn1) {
              mn2 = mn1;
              mn1 = v;
            } else if (v < mn2) {
              mn2 = v;
            }
            if (v > mx1) {
              mx2 = mx1;
              mx1 = v;
            } else if (v > mx2) {
              mx2 = v;
            }
          }
          const int lo = n > 2 ? mn2 : mn1, hi = n > 2 ? mx2 : mx1;
          if (centre >= lo && centre <= hi) continue;
          int win[9];
          for (int i = 0; i < n; ++i) win[i] = nbp[i][off];
          win[n] = centre;
          sortSmall(win, n + 1);
          // The middle value; of the two middles of an even count, the one
          // farther from the outlier.
          const int mid = centre > hi ? n / 2 : (n + 1) / 2;
          out[static_cast<size_t>(x) * bpp + off] = static_cast<uint8_t>(win[mid]);
        }
      }
      continue;
    }
    const int y0 = std::max(y - 1, 0), y1 = std::min(y + 1, h - 1);
    for (int x = r.x; x < r.x + r.width; ++x) {
      const int x0 = std::max(x - 1, 0), x1 = std::min(x + 1, w - 1);
      const int centre = valueAt(src, x, y, 0);
      int nb[8], n = 0;
      bool shared = false;
      for (int yy = y0; yy <= y1; ++yy)
        for (int xx = x0; xx <= x1; ++xx)
          if (xx != x || yy != y) {
            nb[n] = valueAt(src, xx, yy, 0);
            shared |= nb[n++] == centre;
          }
      if (n < 2 || shared) continue;
      int best = nb[0], best_count = 0;
      for (int i = 0; i < n; ++i) {
        const int cnt = static_cast<int>(std::count(nb, nb + n, nb[i]));
        if (cnt > best_count) {
          best = nb[i];
          best_count = cnt;
        }
      }
      if (src->color_model == TSL_BINARY) SetBit(out, x, best);
      else out[x] = static_cast<uint8_t>(best);
    }
  }
  HandOver(src, dst, &res.pic);
  return kOpDone;
}

int OpAddUniformNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  return addNoise(src, dst, rect, p, kNoiseUniform, 0.10, 50.00);
}

int OpAddGaussianNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  return addNoise(src, dst, rect, p, kNoiseGaussian, 0.10, 10.00);
}

int OpAddLaplacianNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  return addNoise(src, dst, rect, p, kNoiseLaplacian, 0.10, 50.00);
}

int OpAddPoissonNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  return addNoise(src, dst, rect, p, kNoisePoisson, 0.01, 1.00);
}

}  // namespace quilla
