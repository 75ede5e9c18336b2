// The C8HW8 depthwise cores in AVX (declared in family/depthwise/cores.h): the blocked loop nest over
// eight-lane vectors, separate multiply and add (no fused multiply-add).
#include <immintrin.h>

#include "zelva/src/kernel/family/depthwise/blocked_tile.h"
#include "zelva/src/kernel/family/depthwise/cores.h"

namespace zelva {
namespace kernel {

namespace {

struct Avx {
  static constexpr int kLanes = 8;
  using T = __m256;
  static T Load(const float* p) { return _mm256_loadu_ps(p); }
  static void Store(float* p, T v) { _mm256_storeu_ps(p, v); }
  static T Add(T a, T b) { return _mm256_add_ps(a, b); }
  static T Mul(T a, T b) { return _mm256_mul_ps(a, b); }
  static T Zero() { return _mm256_setzero_ps(); }
};

}  // namespace

template <int K, int S, int R, int C>
void DepthwiseC8Avx(const BlockedDepthwiseArgs& args) {
  depthwise_tile::Blocked<Avx, K, S, R, C>(args);
}

template void DepthwiseC8Avx<3, 1, 1, 4>(const BlockedDepthwiseArgs&);
template void DepthwiseC8Avx<3, 2, 2, 2>(const BlockedDepthwiseArgs&);
template void DepthwiseC8Avx<5, 1, 1, 4>(const BlockedDepthwiseArgs&);
template void DepthwiseC8Avx<5, 2, 2, 2>(const BlockedDepthwiseArgs&);

}  // namespace kernel
}  // namespace zelva
