#include <immintrin.h>

#include "bench/peak.h"
#include "bench/peak_loop.h"

namespace zvbench {

namespace {
struct Avx512 {
  using V = __m512;
  static V Set1(float v) { return _mm512_set1_ps(v); }
  static V Mul(V a, V b) { return _mm512_mul_ps(a, b); }
  static V Add(V a, V b) { return _mm512_add_ps(a, b); }
  static int Lanes() { return 16; }
};
}  // namespace

double PeakMulAddAvx512Gflops() {
  return PeakMulAddGflops<Avx512>();
}

}  // namespace zvbench
