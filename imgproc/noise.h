// The program's own small random generator for the random operations (noise,
// spread), so that a given seed yields the same bytes on every system, and
// the noise distributions built on it.
#ifndef QUILLA_IMGPROC_NOISE_H
#define QUILLA_IMGPROC_NOISE_H

#include <cstdint>

namespace quilla {

// PCG32 (64-bit linear congruential state, xorshift-rotate output).
class NoiseRng {
 public:
  explicit NoiseRng(uint64_t seed) {
    state_ = 0;
    next();
    state_ += 0x853c49e6748fea9bULL ^ (seed * 0x9e3779b97f4a7c15ULL);
    next();
  }
  uint32_t next() {
    const uint64_t old = state_;
    state_ = old * 6364136223846793005ULL + 1442695040888963407ULL;
    const uint32_t xorshifted = static_cast<uint32_t>(((old >> 18) ^ old) >> 27);
    const uint32_t rot = static_cast<uint32_t>(old >> 59);
    return (xorshifted >> rot) | (xorshifted << ((32 - rot) & 31));
  }
  // Uniform in [0, n) for n >= 1 (Lemire's multiply-shift, tiny bias ignored).
  uint32_t below(uint32_t n) { return static_cast<uint32_t>((static_cast<uint64_t>(next()) * n) >> 32); }
  // Uniform in the open interval (0, 1).
  double open01() { return (static_cast<double>(next()) + 0.5) * (1.0 / 4294967296.0); }

  // Standard normal deviate (Box-Muller; the second value is kept).
  double gaussian();
  // Laplace deviate of scale 1 (mean absolute value 1).
  double laplacian();
  // Poisson deviate of mean lambda >= 0 (exact for small means, normal
  // approximation with continuity correction above 64).
  uint32_t poisson(double lambda);

 private:
  uint64_t state_;
  bool have_spare_ = false;
  double spare_ = 0;
};

}  // namespace quilla

#endif
