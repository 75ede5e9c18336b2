// The AVX core of the transposed convolution family (declared in family/convtranspose/cores.h): the gather
// loop nest of gather_tile.h over eight-lane vectors, separate multiply and add (no fused multiply-add).
#include <immintrin.h>

#include "zelva/src/kernel/family/convtranspose/gather_tile.h"

namespace zelva {
namespace kernel {

namespace {

struct Avx {
  static constexpr uint32_t kLanes = 8;
  using T = __m256;
  static T Load(const float* p) { return _mm256_loadu_ps(p); }
  static void Store(float* p, T v) { _mm256_storeu_ps(p, v); }
  static T Add(T a, T b) { return _mm256_add_ps(a, b); }
  static T Mul(T a, T b) { return _mm256_mul_ps(a, b); }
  static T Set1(float x) { return _mm256_set1_ps(x); }
  static T Zero() { return _mm256_setzero_ps(); }
};

}  // namespace

void ConvTranspose3x3C8Avx(const ConvTransposeArgs& args) {
  convtranspose_tile::Gather3x3<Avx, true, true>(args);
}

}  // namespace kernel
}  // namespace zelva
