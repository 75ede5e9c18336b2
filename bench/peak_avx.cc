#include <immintrin.h>

#include "bench/peak.h"
#include "bench/peak_loop.h"

namespace zvbench {

namespace {
struct Avx {
  using V = __m256;
  static V Set1(float v) { return _mm256_set1_ps(v); }
  static V Mul(V a, V b) { return _mm256_mul_ps(a, b); }
  static V Add(V a, V b) { return _mm256_add_ps(a, b); }
  static int Lanes() { return 8; }
};
}  // namespace

double PeakMulAddAvxGflops() {
  return PeakMulAddGflops<Avx>();
}

}  // namespace zvbench
