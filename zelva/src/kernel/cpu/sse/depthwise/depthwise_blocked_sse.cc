// The C4HW4 depthwise cores in SSE (declared in family/depthwise/cores.h): the blocked loop nest over
// four-lane vectors, separate multiply and add.
#include <xmmintrin.h>

#include "zelva/src/kernel/family/depthwise/blocked_tile.h"
#include "zelva/src/kernel/family/depthwise/cores.h"

namespace zelva {
namespace kernel {

namespace {

struct Sse {
  static constexpr int kLanes = 4;
  using T = __m128;
  static T Load(const float* p) { return _mm_loadu_ps(p); }
  static void Store(float* p, T v) { _mm_storeu_ps(p, v); }
  static T Add(T a, T b) { return _mm_add_ps(a, b); }
  static T Mul(T a, T b) { return _mm_mul_ps(a, b); }
  static T Zero() { return _mm_setzero_ps(); }
};

}  // namespace

template <int K, int S, int R, int C>
void DepthwiseC4Sse(const BlockedDepthwiseArgs& args) {
  depthwise_tile::Blocked<Sse, K, S, R, C>(args);
}

template void DepthwiseC4Sse<3, 1, 1, 4>(const BlockedDepthwiseArgs&);
template void DepthwiseC4Sse<3, 2, 2, 2>(const BlockedDepthwiseArgs&);
template void DepthwiseC4Sse<5, 1, 1, 4>(const BlockedDepthwiseArgs&);
template void DepthwiseC4Sse<5, 1, 2, 4>(const BlockedDepthwiseArgs&);
template void DepthwiseC4Sse<5, 2, 2, 2>(const BlockedDepthwiseArgs&);

}  // namespace kernel
}  // namespace zelva
