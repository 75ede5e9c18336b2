// What the kernel benchmarks share: the yardstick (one memcpy of the bytes a kernel must at least stream),
// thread CPU time (the machine is shared, so wall time would count other processes' turns) and random data.
#pragma once

#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace zvbench {

// Thread CPU time in nanoseconds.
inline double ThreadNanoseconds() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) * 1e9 + static_cast<double>(ts.tv_nsec);
}

// Nanoseconds of one memcpy of `bytes`, the best of 20 batches of 200 in thread CPU time.
inline double MemcpyNanoseconds(size_t bytes) {
  std::vector<char> src(bytes, 1), dst(bytes);
  double best = 1e30;
  for (int batch = 0; batch < 20; ++batch) {
    const double start = ThreadNanoseconds();
    for (int k = 0; k < 200; ++k) {
      std::memcpy(dst.data(), src.data(), bytes);
      benchmark::DoNotOptimize(dst.data());
      benchmark::ClobberMemory();
    }
    best = std::min(best, (ThreadNanoseconds() - start) / 200);
  }
  return best;
}

inline std::vector<float> RandomFloats(size_t n, uint32_t seed, float lo = -1.0f, float hi = 1.0f) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> dist(lo, hi);
  std::vector<float> v(n);
  for (float& x : v) x = dist(rng);
  return v;
}

}  // namespace zvbench
