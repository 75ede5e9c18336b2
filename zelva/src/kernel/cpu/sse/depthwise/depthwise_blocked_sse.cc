// The C4HW4 depthwise cores in SSE (declared in family/depthwise/cores.h): the blocked loop nest over
// four-lane vectors, separate multiply and add.
#include <xmmintrin.h>

#include "zelva/src/kernel/family/depthwise/blocked_tile.h"
#include "zelva/src/kernel/family/depthwise/cores.h"
#include "zelva/src/kernel/functional/vector4.h"

namespace zelva {
namespace kernel {

namespace {

using Sse = V4;

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
