// The C8HW8 depthwise cores in AVX (declared in family/depthwise/cores.h): the blocked loop nest over
// eight-lane vectors, separate multiply and add (no fused multiply-add).
#include <immintrin.h>

#include "zelva/src/kernel/family/depthwise/blocked_tile.h"
#include "zelva/src/kernel/family/depthwise/cores.h"
#include "zelva/src/kernel/functional/vector8.h"

namespace zelva {
namespace kernel {

namespace {

using Avx = V8;

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
