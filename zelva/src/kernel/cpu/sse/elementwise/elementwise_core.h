// SSE cores of the elementwise kernels: out[i] = a[i] op b[i] for i < count, on raw float pointers; `out`
// may equal `a` or `b`. A body of 16 floats a round in four 4-lane groups, then the rest in groups of 4
// where the output overlaps neither operand, then single floats. Max and min keep the instructions' operand
// order: b comes back when either operand is not a number, in the single-float rest too. These are also the
// elementwise steps of the recurrent cells.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

using ElementwiseCore = void (*)(const float* a, const float* b, const uint32_t& count, float* out);

void ElementwiseAddSSE(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseSubSSE(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseMulSSE(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseDivSSE(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseMaxSSE(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseMinSSE(const float* a, const float* b, const uint32_t& count, float* out);

}  // namespace kernel
}  // namespace zelva
