#include <immintrin.h>

#include <algorithm>

#include "bench/bench_support.h"
#include "bench/peak.h"

namespace zvbench {

double PeakMulAddAvxGflops() {
  // Multiplies by one and adds of zero keep every value where it is (no overflow, no subnormals); the
  // constants pass through an empty asm so that the compiler cannot fold them away.
  __m256 one = _mm256_set1_ps(1.0f), zero = _mm256_setzero_ps();
  asm volatile("" : "+x"(one), "+x"(zero));
  constexpr int kChains = 6;
  constexpr long kRounds = 20000000;
  double best = 0.0;
  for (int repeat = 0; repeat < 3; ++repeat) {
    __m256 m[kChains], a[kChains];
    for (int i = 0; i < kChains; ++i) m[i] = a[i] = _mm256_set1_ps(static_cast<float>(i + 1));
    const double start = ThreadNanoseconds();
    for (long r = 0; r < kRounds; ++r) {
      for (int i = 0; i < kChains; ++i) {
        m[i] = _mm256_mul_ps(m[i], one);
        a[i] = _mm256_add_ps(a[i], zero);
      }
    }
    const double ns = ThreadNanoseconds() - start;
    __m256 sum = _mm256_setzero_ps();
    for (int i = 0; i < kChains; ++i) sum = _mm256_add_ps(sum, _mm256_add_ps(m[i], a[i]));
    benchmark::DoNotOptimize(sum);
    best = std::max(best, 2.0 * kChains * 8 * kRounds / ns);
  }
  return best;
}

}  // namespace zvbench
