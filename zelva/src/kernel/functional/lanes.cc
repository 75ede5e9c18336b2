#include "zelva/src/kernel/functional/lanes.h"

#include "zelva/src/kernel/functional/binary_ops.h"

namespace zelva {
namespace kernel {
namespace functional {

namespace {

template <class Op>
void Lanes(const float* a, const float* b, size_t n, float* out) {
  const uint32_t count = static_cast<uint32_t>(n);
  const uint32_t i = BinaryRounds<Op, V4>(a, b, 0, count, out);
  BinaryRest<Op>(a, b, i, count, out);
}

}  // namespace

void AddLanes(const float* a, const float* b, size_t n, float* out) {
  Lanes<AddOp>(a, b, n, out);
}
void SubLanes(const float* a, const float* b, size_t n, float* out) {
  Lanes<SubOp>(a, b, n, out);
}
void MulLanes(const float* a, const float* b, size_t n, float* out) {
  Lanes<MulOp>(a, b, n, out);
}
void DivLanes(const float* a, const float* b, size_t n, float* out) {
  Lanes<DivOp>(a, b, n, out);
}
void MaxLanes(const float* a, const float* b, size_t n, float* out) {
  Lanes<MaxOp>(a, b, n, out);
}
void MinLanes(const float* a, const float* b, size_t n, float* out) {
  Lanes<MinOp>(a, b, n, out);
}

}  // namespace functional
}  // namespace kernel
}  // namespace zelva
