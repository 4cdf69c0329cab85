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
// the mean is kept.  The deviates come from NoiseRng seeded with
// OpParams.seed, drawn in row order, so a seed always gives the same bytes.
#include "imgproc/noise.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "imgproc/effects.h"
#include "imgproc/operations.h"

namespace quilla {

double NoiseRng::gaussian() {
  if (have_spare_) {
    have_spare_ = false;
    return spare_;
  }
  const double u = open01(), v = open01();
  const double m = std::sqrt(-2.0 * std::log(u));
  const double a = 2.0 * 3.14159265358979323846 * v;
  spare_ = m * std::sin(a);
  have_spare_ = true;
  return m * std::cos(a);
}

double NoiseRng::laplacian() {
  const double u = open01() - 0.5;  // (-0.5, 0.5), never exactly +-0.5
  return u < 0 ? std::log(1.0 + 2.0 * u) : -std::log(1.0 - 2.0 * u);
}

uint32_t NoiseRng::poisson(double lambda) {
  if (!(lambda > 0)) return 0;
  if (lambda > 64) {
    const double k = std::floor(lambda + std::sqrt(lambda) * gaussian() + 0.5);
    return k <= 0 ? 0 : k >= 4e9 ? 4000000000u : static_cast<uint32_t>(k);
  }
  const double limit = std::exp(-lambda);
  uint32_t k = 0;
  double prod = open01();
  while (prod > limit) {
    ++k;
    prod *= open01();
  }
  return k;
}

using fx::OwnedPicture;

namespace {

enum NoiseKind { kUniform, kGaussian, kLaplacian, kPoisson };

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

  NoiseRng rng(p.seed);
  const double scale = kind == kGaussian ? 2.0 * 2.55 * amount : 2.55 * amount;
  for (int y = r.y; y < r.y + r.height; ++y) {
    uint8_t *px = RowOf(pic, static_cast<uint32_t>(y)) + static_cast<size_t>(r.x) * bpp;
    for (int x = 0; x < r.width; ++x, px += bpp) {
      for (int c = 0; c < channels; ++c) {
        const double v = px[pos[c]];
        double out;
        switch (kind) {
          case kUniform: out = v + (2.0 * rng.open01() - 1.0) * scale; break;
          case kGaussian: out = v + rng.gaussian() * scale; break;
          case kLaplacian: out = v + rng.laplacian() * scale; break;
          default: out = rng.poisson(v / amount) * amount; break;
        }
        out = std::floor(out + 0.5);
        px[pos[c]] = static_cast<uint8_t>(out < 0 ? 0 : out > 255 ? 255 : out);
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
    const int y0 = std::max(y - 1, 0), y1 = std::min(y + 1, h - 1);
    uint8_t *out = RowOf(&res.pic, static_cast<uint32_t>(y));
    for (int x = r.x; x < r.x + r.width; ++x) {
      const int x0 = std::max(x - 1, 0), x1 = std::min(x + 1, w - 1);
      for (int c = 0; c < channels; ++c) {
        const int centre = valueAt(src, x, y, pos[c]);
        int nb[8], n = 0;
        for (int yy = y0; yy <= y1; ++yy)
          for (int xx = x0; xx <= x1; ++xx)
            if (xx != x || yy != y) nb[n++] = valueAt(src, xx, yy, pos[c]);
        if (n < 2) continue;  // one neighbour cannot tell an outlier
        if (blend) {
          // Bounds: the second smallest and second largest neighbour (the
          // extremes themselves when there are only two neighbours).
          sortSmall(nb, n);
          const int lo = n > 2 ? nb[1] : nb[0], hi = n > 2 ? nb[n - 2] : nb[n - 1];
          if (centre >= lo && centre <= hi) continue;
          int win[9];
          std::copy(nb, nb + n, win);
          win[n] = centre;
          // The middle value; of the two middles of an even count, the one
          // farther from the outlier.
          const int mid = centre > hi ? n / 2 : (n + 1) / 2;
          sortSmall(win, n + 1);
          out[static_cast<size_t>(x) * bpp + pos[c]] = static_cast<uint8_t>(win[mid]);
          continue;
        }
        if (std::find(nb, nb + n, centre) != nb + n) continue;
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
  }
  HandOver(src, dst, &res.pic);
  return kOpDone;
}

int OpAddUniformNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  return addNoise(src, dst, rect, p, kUniform, 0.10, 50.00);
}

int OpAddGaussianNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  return addNoise(src, dst, rect, p, kGaussian, 0.10, 10.00);
}

int OpAddLaplacianNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  return addNoise(src, dst, rect, p, kLaplacian, 0.10, 50.00);
}

int OpAddPoissonNoise(TslPicture *src, TslPicture *dst, const OpRect *rect, const OpParams &p) {
  return addNoise(src, dst, rect, p, kPoisson, 0.01, 1.00);
}

}  // namespace quilla
