// What the kernel benchmarks share: the yardstick (one memcpy of the bytes a kernel must at least stream),
// thread CPU time (the machine is shared, so wall time would count other processes' turns) and random data.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "bench/peak_loop.h"

namespace zvbench {

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

// The yardstick ratio: best thread CPU time per call of `run` over best time per memcpy of `bytes`, each the
// minimum over rounds of `reps` calls, the rounds of the two interleaved so that both see the same machine
// load. Source and destination are page aligned and 2 KiB apart modulo a page, so that the copy does not
// suffer from loads and stores aliasing at the same page offset.
template <class Run>
double RatioToMemcpy(Run&& run, size_t bytes, int rounds = 30, int reps = 20) {
  std::vector<char> buffer(2 * bytes + 3 * 4096, 1);
  char* const src =
      reinterpret_cast<char*>((reinterpret_cast<uintptr_t>(buffer.data()) + 4095) & ~uintptr_t{4095});
  char* const dst = src + (bytes + 4095) / 4096 * 4096 + 2048;
  double best_run = 1e30, best_copy = 1e30;
  for (int round = 0; round < rounds; ++round) {
    const double t0 = ThreadNanoseconds();
    for (int r = 0; r < reps; ++r) run();
    const double t1 = ThreadNanoseconds();
    for (int r = 0; r < reps; ++r) {
      std::memcpy(dst, src, bytes);
      benchmark::ClobberMemory();
    }
    const double t2 = ThreadNanoseconds();
    best_run = std::min(best_run, t1 - t0);
    best_copy = std::min(best_copy, t2 - t1);
  }
  return best_run / best_copy;
}

inline std::vector<float> RandomFloats(size_t n, uint32_t seed, float lo = -1.0f, float hi = 1.0f) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> dist(lo, hi);
  std::vector<float> v(n);
  for (float& x : v) x = dist(rng);
  return v;
}

}  // namespace zvbench
