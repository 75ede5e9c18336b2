#include "zelva/src/kernel/family/elementwise/cores.h"

#include "zelva/src/kernel/functional/binary_ops.h"
#include "zelva/src/kernel/functional/vector8.h"

namespace zelva {
namespace kernel {

namespace {

template <class Op>
void BinaryAVX(const float* a, const float* b, uint32_t n, float* out) {
  uint32_t i = BinaryRounds<Op, V8>(a, b, 0, n, out);
  if (i + 16 <= n) {
    const __m256 a0 = _mm256_loadu_ps(a + i), a1 = _mm256_loadu_ps(a + i + 8);
    const __m256 b0 = _mm256_loadu_ps(b + i), b1 = _mm256_loadu_ps(b + i + 8);
    _mm256_storeu_ps(out + i, Op::template Apply<V8>(a0, b0));
    _mm256_storeu_ps(out + i + 8, Op::template Apply<V8>(a1, b1));
    i += 16;
  }
  BinaryRest<Op>(a, b, i, n, out);
}

// Index along a dim of an input: 0 where the input has size 1.
inline uint32_t At(uint32_t size, uint32_t index) {
  return size == 1 ? 0 : index;
}

// The general broadcast over H and W, one pixel (4 or 8 lanes) at a time.
template <uint32_t kLanes>
void ChannelMulGeneral(const float* a, const uint32_t* ad, const float* b, const uint32_t* bd, float* out) {
  const uint32_t h = ad[1] == 1 ? bd[1] : ad[1];
  const uint32_t w = ad[2] == 1 ? bd[2] : ad[2];
  for (uint32_t c = 0; c < ad[0]; ++c) {
    const float* ab = a + static_cast<size_t>(c) * ad[1] * ad[2] * kLanes;
    const float* bb = b + static_cast<size_t>(c) * bd[1] * bd[2] * kLanes;
    float* ob = out + static_cast<size_t>(c) * h * w * kLanes;
    for (uint32_t y = 0; y < h; ++y) {
      for (uint32_t x = 0; x < w; ++x) {
        const float* pa = ab + (static_cast<size_t>(At(ad[1], y)) * ad[2] + At(ad[2], x)) * kLanes;
        const float* pb = bb + (static_cast<size_t>(At(bd[1], y)) * bd[2] + At(bd[2], x)) * kLanes;
        float* po = ob + (static_cast<size_t>(y) * w + x) * kLanes;
        if (kLanes == 8) {
          _mm256_storeu_ps(po, _mm256_mul_ps(_mm256_loadu_ps(pa), _mm256_loadu_ps(pb)));
        } else {
          _mm_storeu_ps(po, _mm_mul_ps(_mm_loadu_ps(pa), _mm_loadu_ps(pb)));
        }
      }
    }
  }
}

inline bool IsGate(const uint32_t* bd) {
  return bd[1] == 1 && bd[2] == 1;
}

}  // namespace

void ElementwiseAddAVX(const float* a, const float* b, const uint32_t& count, float* out) {
  BinaryAVX<AddOp>(a, b, count, out);
}
void ElementwiseSubAVX(const float* a, const float* b, const uint32_t& count, float* out) {
  BinaryAVX<SubOp>(a, b, count, out);
}
void ElementwiseMulAVX(const float* a, const float* b, const uint32_t& count, float* out) {
  BinaryAVX<MulOp>(a, b, count, out);
}
void ElementwiseDivAVX(const float* a, const float* b, const uint32_t& count, float* out) {
  BinaryAVX<DivOp>(a, b, count, out);
}
void ElementwiseMaxAVX(const float* a, const float* b, const uint32_t& count, float* out) {
  BinaryAVX<MaxOp>(a, b, count, out);
}
void ElementwiseMinAVX(const float* a, const float* b, const uint32_t& count, float* out) {
  BinaryAVX<MinOp>(a, b, count, out);
}

void BroadcastMulC8HW8AVX(const float* a, const uint32_t* a_dims, const float* b, const uint32_t* b_dims,
                          float* out) {
  if (!IsGate(b_dims)) {
    ChannelMulGeneral<8>(a, a_dims, b, b_dims, out);
    return;
  }
  const size_t plane = static_cast<size_t>(a_dims[1]) * a_dims[2];
  for (uint32_t c = 0; c < a_dims[0]; ++c) {
    const __m256 gate = _mm256_loadu_ps(b + static_cast<size_t>(c) * 8);
    const float* pa = a + c * plane * 8;
    float* po = out + c * plane * 8;
    size_t p = 0;
    for (; p + 4 <= plane; p += 4) {
      const __m256 x0 = _mm256_loadu_ps(pa + p * 8), x1 = _mm256_loadu_ps(pa + p * 8 + 8);
      const __m256 x2 = _mm256_loadu_ps(pa + p * 8 + 16), x3 = _mm256_loadu_ps(pa + p * 8 + 24);
      _mm256_storeu_ps(po + p * 8, _mm256_mul_ps(x0, gate));
      _mm256_storeu_ps(po + p * 8 + 8, _mm256_mul_ps(x1, gate));
      _mm256_storeu_ps(po + p * 8 + 16, _mm256_mul_ps(x2, gate));
      _mm256_storeu_ps(po + p * 8 + 24, _mm256_mul_ps(x3, gate));
    }
    for (; p < plane; ++p) _mm256_storeu_ps(po + p * 8, _mm256_mul_ps(_mm256_loadu_ps(pa + p * 8), gate));
  }
}

void BroadcastMulC4HW4AVX(const float* a, const uint32_t* a_dims, const float* b, const uint32_t* b_dims,
                          float* out) {
  if (!IsGate(b_dims)) {
    ChannelMulGeneral<4>(a, a_dims, b, b_dims, out);
    return;
  }
  // Two pixels of 4 lanes per 8-lane register: the block's 4 gate values stand in both halves.
  const size_t plane = static_cast<size_t>(a_dims[1]) * a_dims[2];
  const size_t floats = plane * 4;
  for (uint32_t c = 0; c < a_dims[0]; ++c) {
    const __m128 g = _mm_loadu_ps(b + static_cast<size_t>(c) * 4);
    const __m256 gate = _mm256_insertf128_ps(_mm256_castps128_ps256(g), g, 1);
    const float* pa = a + c * floats;
    float* po = out + c * floats;
    size_t k = 0;
    for (; k + 32 <= floats; k += 32) {
      const __m256 x0 = _mm256_loadu_ps(pa + k), x1 = _mm256_loadu_ps(pa + k + 8);
      const __m256 x2 = _mm256_loadu_ps(pa + k + 16), x3 = _mm256_loadu_ps(pa + k + 24);
      _mm256_storeu_ps(po + k, _mm256_mul_ps(x0, gate));
      _mm256_storeu_ps(po + k + 8, _mm256_mul_ps(x1, gate));
      _mm256_storeu_ps(po + k + 16, _mm256_mul_ps(x2, gate));
      _mm256_storeu_ps(po + k + 24, _mm256_mul_ps(x3, gate));
    }
    for (; k + 8 <= floats; k += 8) _mm256_storeu_ps(po + k, _mm256_mul_ps(_mm256_loadu_ps(pa + k), gate));
    if (k < floats) _mm_storeu_ps(po + k, _mm_mul_ps(_mm_loadu_ps(pa + k), g));
  }
}

}  // namespace kernel
}  // namespace zelva
