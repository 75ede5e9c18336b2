#include "zelva/src/kernel/cpu/sse/elementwise/elementwise_core.h"

#include "zelva/src/kernel/cpu/sse/elementwise/binary_ops.h"

namespace zelva {
namespace kernel {

namespace {

template <class Op>
void BinarySSE(const float* a, const float* b, uint32_t n, float* out) {
  const uint32_t i = BinaryRounds<Op, V4>(a, b, 0, n, out);
  BinaryRest<Op>(a, b, i, n, out);
}

}  // namespace

void ElementwiseAddSSE(const float* a, const float* b, const uint32_t& count, float* out) {
  BinarySSE<AddOp>(a, b, count, out);
}
void ElementwiseSubSSE(const float* a, const float* b, const uint32_t& count, float* out) {
  BinarySSE<SubOp>(a, b, count, out);
}
void ElementwiseMulSSE(const float* a, const float* b, const uint32_t& count, float* out) {
  BinarySSE<MulOp>(a, b, count, out);
}
void ElementwiseDivSSE(const float* a, const float* b, const uint32_t& count, float* out) {
  BinarySSE<DivOp>(a, b, count, out);
}
void ElementwiseMaxSSE(const float* a, const float* b, const uint32_t& count, float* out) {
  BinarySSE<MaxOp>(a, b, count, out);
}
void ElementwiseMinSSE(const float* a, const float* b, const uint32_t& count, float* out) {
  BinarySSE<MinOp>(a, b, count, out);
}

}  // namespace kernel
}  // namespace zelva
