// The program's own small random generator for the random operations (noise,
// spread), so that a given seed yields the same bytes on every system, and
// the quantile tables the noise generators draw from.
#ifndef QUILLA_IMGPROC_NOISE_H
#define QUILLA_IMGPROC_NOISE_H

#include <cstdint>
#include <vector>

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

 private:
  uint64_t state_;
};

enum NoiseKind { kNoiseUniform, kNoiseGaussian, kNoiseLaplacian, kNoisePoisson };

// The standard normal deviates at the probabilities (i + 0.5) / n.
std::vector<double> NormalQuantiles(int n);

// Quantile table (n entries, probabilities (i + 0.5) / n) of the additive
// noise of a kind, scaled: uniform over +-scale, gaussian of standard
// deviation scale, laplacian of mean absolute deviation scale.
std::vector<double> NoiseQuantiles(NoiseKind kind, double scale, int n);

// Poisson noise: for each level v (0..255), n results (rounded and clamped
// amount * k) at the quantiles of a Poisson variable k of mean v / amount;
// row v starts at v * n.  Exact up to a mean of 500, normal beyond.
std::vector<uint8_t> PoissonLevelTables(double amount, int n);

}  // namespace quilla

#endif
