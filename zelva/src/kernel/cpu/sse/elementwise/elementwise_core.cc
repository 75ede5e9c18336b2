// SSE cores of the same-shape elementwise members: the lane-wise loops of functional/lanes.h.
#include "zelva/src/kernel/family/elementwise/cores.h"
#include "zelva/src/kernel/functional/lanes.h"

namespace zelva {
namespace kernel {

void ElementwiseAddSSE(const float* a, const float* b, const uint32_t& count, float* out) {
  functional::AddLanes(a, b, count, out);
}
void ElementwiseSubSSE(const float* a, const float* b, const uint32_t& count, float* out) {
  functional::SubLanes(a, b, count, out);
}
void ElementwiseMulSSE(const float* a, const float* b, const uint32_t& count, float* out) {
  functional::MulLanes(a, b, count, out);
}
void ElementwiseDivSSE(const float* a, const float* b, const uint32_t& count, float* out) {
  functional::DivLanes(a, b, count, out);
}
void ElementwiseMaxSSE(const float* a, const float* b, const uint32_t& count, float* out) {
  functional::MaxLanes(a, b, count, out);
}
void ElementwiseMinSSE(const float* a, const float* b, const uint32_t& count, float* out) {
  functional::MinLanes(a, b, count, out);
}

}  // namespace kernel
}  // namespace zelva
