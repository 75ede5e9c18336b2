// The cores of the expand family and what they see. Declarations only: each core is defined in the folder of
// the instruction set it needs (cpu/fallback, cpu/sse, cpu/avx under expand/).
//
// A core sees both tensors as [planes, rows, columns, lanes]: a planar tensor as [C, H, W, 1], a blocked one
// as [C / lanes, H, W, lanes]. Each of the input's planes, rows and columns is either the output's count or
// 1, and a count of 1 is repeated: output (p, y, x, l) = input (p or 0, y or 0, x or 0, l). Moves bits only.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

struct ExpandArgs {
  const float* input;
  uint32_t in_planes, in_rows, in_cols;
  float* output;
  uint32_t planes, rows, cols;
  uint32_t lanes;  // 1, 4 or 8
};

using ExpandCore = void (*)(const ExpandArgs& args);

// ---- Fallback (cpu/fallback/expand): one value at a time, any lanes.
void ExpandScalar(const ExpandArgs& args);
// ---- SSE (cpu/sse/expand): an output row is a copy of its source row four floats a store, or one source
// pixel repeated (a planar value broadcast to four lanes, a C4HW4 pixel stored as it is). Lanes 1 or 4.
void ExpandSse(const ExpandArgs& args);
// ---- AVX (cpu/avx/expand): the same with eight floats a store. Lanes 1 or 8.
void ExpandAvx(const ExpandArgs& args);

}  // namespace kernel
}  // namespace zelva
