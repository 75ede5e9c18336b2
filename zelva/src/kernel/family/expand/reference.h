// The reference of the expand family: every logical output element (c, y, x) read from the input element at
// (c, y, x) with each index of an input size of 1 taken as 0. Planar in and out. The tester holds it against
// torch's Tensor.expand (tests/data/expand_fixture.txt, tools/gen_expand_fixture.py) and every member against
// it, bit for bit.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

// input [in_c, in_h, in_w] -> output [c, h, w]; each input size is 1 or the output's.
void ExpandReference(const float* input, uint32_t in_c, uint32_t in_h, uint32_t in_w, float* output,
                     uint32_t c, uint32_t h, uint32_t w);

}  // namespace kernel
}  // namespace zelva
