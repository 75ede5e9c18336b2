// The reference of the pixel shuffle family: planar, any factor, one input value at a time placed by the
// index rule of cores.h. The tester holds it against torch.nn.PixelShuffle and torch.nn.PixelUnshuffle
// (tests/data/pixelshuffle_fixture.txt, tools/gen_pixelshuffle_fixture.py) and every member against it, bit
// for bit.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

// CHW `input` of channels x height x width; `up` shuffles by factor r, else unshuffles by it.
void PixelShuffleReference(const float* input, uint32_t channels, uint32_t height, uint32_t width,
                           uint32_t factor, bool up, float* output);

}  // namespace kernel
}  // namespace zelva
