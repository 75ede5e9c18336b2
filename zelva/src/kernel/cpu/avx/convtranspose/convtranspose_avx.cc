// The AVX core of the transposed convolution family (declared in family/convtranspose/cores.h): the gather
// loop nest of gather_tile.h over eight-lane vectors, separate multiply and add (no fused multiply-add).
#include <immintrin.h>

#include "zelva/src/kernel/family/convtranspose/gather_tile.h"
#include "zelva/src/kernel/functional/vector8.h"

namespace zelva {
namespace kernel {

namespace {

using Avx = V8;

}  // namespace

void ConvTranspose3x3C8Avx(const ConvTransposeArgs& args) {
  convtranspose_tile::Gather3x3<Avx, true, true>(args);
}

}  // namespace kernel
}  // namespace zelva
