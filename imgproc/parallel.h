// Row bands for the geometry passes: a range of rows split across at most
// hardware_concurrency threads.  Each row is computed by exactly one band
// with the same code, so the result does not depend on the thread count.
#ifndef QUILLA_IMGPROC_PARALLEL_H
#define QUILLA_IMGPROC_PARALLEL_H

#include <algorithm>
#include <cstdint>
#include <thread>
#include <vector>

namespace quilla {

// Calls body(begin, end) over [0, rows), in bands when the work (rows x
// row_cost bytes or pixels) is large enough to pay for the threads.
template <typename Body>
void ForRowBands(uint32_t rows, uint64_t row_cost, Body body) {
  unsigned threads = std::thread::hardware_concurrency();
  if (threads == 0) threads = 1;
  const uint64_t work = static_cast<uint64_t>(rows) * row_cost;
  const uint64_t per_thread = 1u << 18;
  threads = static_cast<unsigned>(std::min<uint64_t>({threads, work / per_thread + 1, rows ? rows : 1u, 16u}));
  if (threads <= 1) {
    body(0u, rows);
    return;
  }
  std::vector<std::thread> pool;
  pool.reserve(threads - 1);
  const uint32_t band = (rows + threads - 1) / threads;
  try {
    for (unsigned t = 1; t < threads; ++t) {
      const uint32_t begin = std::min<uint32_t>(rows, t * band), end = std::min<uint32_t>(rows, begin + band);
      if (begin < end) pool.emplace_back(body, begin, end);
    }
  } catch (...) {
    // No thread could be started: the remaining bands run here.
    const uint32_t done_from = static_cast<uint32_t>(pool.size() + 1) * band;
    for (auto &th : pool) th.join();
    body(0u, std::min(band, rows));
    if (done_from < rows) body(done_from, rows);
    return;
  }
  body(0u, std::min(band, rows));
  for (auto &th : pool) th.join();
}

}  // namespace quilla

#endif
