// The SSE cores of the transposed convolution family (declared in family/convtranspose/cores.h): the gather
// loop nest of gather_tile.h over four-lane vectors, separate multiply and add.
#include <xmmintrin.h>

#include "zelva/src/kernel/family/convtranspose/gather_tile.h"
#include "zelva/src/kernel/functional/vector4.h"

namespace zelva {
namespace kernel {

namespace {

using Sse = V4;

}  // namespace

void ConvTranspose3x3PlanarSse(const ConvTransposeArgs& args) {
  convtranspose_tile::Gather3x3<Sse, false, false>(args);
}

void ConvTranspose3x3C4Sse(const ConvTransposeArgs& args) {
  convtranspose_tile::Gather3x3<Sse, true, true>(args);
}

}  // namespace kernel
}  // namespace zelva
