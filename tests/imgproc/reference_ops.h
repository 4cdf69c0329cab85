// Plain, slow implementations of the filter formulas, written pixel by pixel
// with clamped coordinates (no padded rows), used as the oracle of the
// differential tests.
#ifndef QUILLA_TESTS_IMGPROC_REFERENCE_OPS_H
#define QUILLA_TESTS_IMGPROC_REFERENCE_OPS_H

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <vector>

#include "imgproc/op.h"
#include "tessel.h"

namespace reference {

// Byte c of pixel (x, y), coordinates clamped into the picture.
inline int At(const TslPicture &p, int x, int y, int c) {
  x = std::clamp(x, 0, static_cast<int>(p.width) - 1);
  y = std::clamp(y, 0, static_cast<int>(p.height) - 1);
  return p.pixels[static_cast<size_t>(y) * p.bytes_per_line + static_cast<size_t>(x) * p.bytes_per_pixel + c];
}

// The n x n neighbourhood of byte c at (x, y), row by row, offsets from -(n/2).
inline std::vector<int> Window(const TslPicture &p, int x, int y, int c, int n) {
  std::vector<int> v;
  for (int dy = 0; dy < n; ++dy)
    for (int dx = 0; dx < n; ++dx) v.push_back(At(p, x + dx - n / 2, y + dy - n / 2, c));
  return v;
}

inline int Clamp(long v) { return v < 0 ? 0 : v > 255 ? 255 : static_cast<int>(v); }

// A copy of src where every byte inside the clipped rectangle is f(window
// source, x, y, c).  Returns false for an empty rectangle.
inline bool Filter(const TslPicture &src, const quilla::OpRect *rect, TslPicture *out,
                   const std::function<int(int, int, int)> &f) {
  quilla::OpRect r;
  if (!quilla::ClipRect(&src, rect, &r)) return false;
  tslCopyPicture(out, &src);
  for (int y = r.y; y < r.y + r.height; ++y)
    for (int x = r.x; x < r.x + r.width; ++x)
      for (int c = 0; c < src.bytes_per_pixel; ++c)
        out->pixels[static_cast<size_t>(y) * out->bytes_per_line + static_cast<size_t>(x) * src.bytes_per_pixel + c] =
            static_cast<uint8_t>(f(x, y, c));
  return true;
}

inline int Convolve(const TslPicture &p, int x, int y, int c, int n, const int *w, int divisor, int bias) {
  std::vector<int> v = Window(p, x, y, c, n);
  long sum = 0;
  for (size_t k = 0; k < v.size(); ++k) sum += static_cast<long>(w[k]) * v[k];
  return Clamp(sum / divisor + bias);
}

// Centre, sum of the four edge neighbours, sum of the four corners.
inline void Parts(const TslPicture &p, int x, int y, int c, int *centre, int *e, int *k) {
  std::vector<int> v = Window(p, x, y, c, 3);
  *centre = v[4];
  *e = v[1] + v[3] + v[5] + v[7];
  *k = v[0] + v[2] + v[6] + v[8];
}

inline int Soften(const TslPicture &p, int x, int y, int c, int s) {
  int cc, e, k;
  Parts(p, x, y, c, &cc, &e, &k);
  int kk = (100 - s) * 3175 / 100;
  return (100 * (e + k) + (kk + 25) * cc) / (kk + 825);
}

inline int Blur(const TslPicture &p, int x, int y, int c, int s) {
  int cc, e, k;
  Parts(p, x, y, c, &cc, &e, &k);
  int kk = (100 - s) * 3175 / 100;
  return (100 * k + 200 * e + (kk + 25) * cc) / (kk + 1225);
}

inline int Sharpen(const TslPicture &p, int x, int y, int c, int s) {
  int cc, e, k;
  Parts(p, x, y, c, &cc, &e, &k);
  int div = s == 100 ? 1 : 100 - s;
  int scaled = static_cast<int>(static_cast<unsigned>(s * (e + k)) / 8u);
  return Clamp((100 * cc - scaled) / div);
}

inline int EnhanceEdges(const TslPicture &p, int x, int y, int c, int s) {
  int cc, e, k;
  Parts(p, x, y, c, &cc, &e, &k);
  int kk = (100 - s) * 55 / 100;
  return Clamp(((kk + 9) * cc - (e + k)) / (kk + 1));
}

inline int Average(const TslPicture &p, int x, int y, int c, int n) {
  std::vector<int> v = Window(p, x, y, c, n);
  int sum = 0;
  for (int a : v) sum += a;
  return sum / (n * n);
}

inline std::vector<int> GaussWeights(int n) {
  double sigma = std::sqrt(-static_cast<double>(n) * n / (2 * std::log(1.0 / 255)));
  std::vector<double> raw;
  double total = 0;
  for (int dy = -(n / 2); dy < -(n / 2) + n; ++dy)
    for (int dx = -(n / 2); dx < -(n / 2) + n; ++dx) {
      raw.push_back(std::exp(-(dx * dx + dy * dy) / (2 * sigma * sigma)));
      total += raw.back();
    }
  std::vector<int> w;
  for (double r : raw) w.push_back(static_cast<int>(r / total * 2048 + 0.5));
  return w;
}

inline int Gauss(const TslPicture &p, int x, int y, int c, int n, const std::vector<int> &w) {
  std::vector<int> v = Window(p, x, y, c, n);
  long sum = 0;
  for (size_t k = 0; k < v.size(); ++k) sum += static_cast<long>(w[k]) * v[k];
  return std::min<long>(sum >> 11, 255);
}

inline int Maximum(const TslPicture &p, int x, int y, int c, int n) {
  std::vector<int> v = Window(p, x, y, c, n);
  return *std::max_element(v.begin(), v.end());
}

inline int Minimum(const TslPicture &p, int x, int y, int c, int n) {
  std::vector<int> v = Window(p, x, y, c, n);
  return *std::min_element(v.begin(), v.end());
}

inline int MedianBox(const TslPicture &p, int x, int y, int c, int n) {
  std::vector<int> v = Window(p, x, y, c, n);
  std::sort(v.begin(), v.end());
  return v[(n * n) / 2];
}

inline int MedianCross(const TslPicture &p, int x, int y, int c, int n) {
  std::vector<int> v;
  for (int d = 0; d < n; ++d) v.push_back(At(p, x + d - n / 2, y, c));
  for (int d = 0; d < n; ++d)
    if (d != n / 2) v.push_back(At(p, x, y + d - n / 2, c));
  std::sort(v.begin(), v.end());
  return v[(2 * n - 1) / 2];
}

}  // namespace reference

#endif
