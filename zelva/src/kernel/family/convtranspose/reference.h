// The reference of the transposed convolution family: plain loops in the order of the family's convention
// (cores.h), on planar tensors. It is also the core of the Fallback member. The family tester holds it
// against torch.nn.ConvTranspose2d (tests/data/convtranspose_fixture.txt, tools/gen_convtranspose_fixture.py)
// and every member against it.
#pragma once

#include "zelva/src/kernel/family/convtranspose/cores.h"

namespace zelva {
namespace kernel {

void ConvTransposeReference(const ConvTransposeArgs& args);

inline constexpr ConvTransposeCore kConvTransposeReferenceCore{&ConvTransposeReference, 0};

// Whether the tap k (spacing `dilation`) of an input of `size` along an axis with `stride` lands on output
// position `o` (`pad` the crop before it); the input position in `*i`.
inline bool TapLands(int32_t o, int32_t pad, uint32_t k, uint32_t dilation, uint32_t stride, uint32_t size,
                     uint32_t* i) {
  const int64_t t = static_cast<int64_t>(o) + pad - static_cast<int64_t>(k) * dilation;
  if (t < 0 || t % stride != 0 || t / stride >= size) return false;
  *i = static_cast<uint32_t>(t / stride);
  return true;
}

}  // namespace kernel
}  // namespace zelva
