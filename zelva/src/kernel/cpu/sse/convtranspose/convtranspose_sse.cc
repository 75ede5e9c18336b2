// The SSE cores of the transposed convolution family (declared in family/convtranspose/cores.h): the gather
// loop nest of gather_tile.h over four-lane vectors, separate multiply and add.
#include <xmmintrin.h>

#include "zelva/src/kernel/family/convtranspose/gather_tile.h"

namespace zelva {
namespace kernel {

namespace {

struct Sse {
  static constexpr uint32_t kLanes = 4;
  using T = __m128;
  static T Load(const float* p) { return _mm_loadu_ps(p); }
  static void Store(float* p, T v) { _mm_storeu_ps(p, v); }
  static T Add(T a, T b) { return _mm_add_ps(a, b); }
  static T Mul(T a, T b) { return _mm_mul_ps(a, b); }
  static T Set1(float x) { return _mm_set1_ps(x); }
  static T Zero() { return _mm_setzero_ps(); }
};

}  // namespace

void ConvTranspose3x3PlanarSse(const ConvTransposeArgs& args) {
  convtranspose_tile::Gather3x3<Sse, false, false>(args);
}

void ConvTranspose3x3C4Sse(const ConvTransposeArgs& args) {
  convtranspose_tile::Gather3x3<Sse, true, true>(args);
}

}  // namespace kernel
}  // namespace zelva
