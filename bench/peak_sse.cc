#include <xmmintrin.h>

#include "bench/peak.h"
#include "bench/peak_loop.h"

namespace zvbench {

namespace {
struct Sse {
  using V = __m128;
  static V Set1(float v) { return _mm_set1_ps(v); }
  static V Mul(V a, V b) { return _mm_mul_ps(a, b); }
  static V Add(V a, V b) { return _mm_add_ps(a, b); }
  static int Lanes() { return 4; }
};
}  // namespace

double PeakMulAddSseGflops() {
  return PeakMulAddGflops<Sse>();
}

}  // namespace zvbench
