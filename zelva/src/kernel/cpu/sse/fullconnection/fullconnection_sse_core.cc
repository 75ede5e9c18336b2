#include "zelva/src/kernel/family/fullconnection/cores.h"

#include <xmmintrin.h>

#include <cstddef>
#include <cstring>

namespace zelva {
namespace kernel {

namespace {

// kTile output blocks of 4 over all IB input blocks. `w` is the first of the tile's blocks, `block_stride`
// the floats from one output block to the next.
template <int kTile>
inline void Block4Tile(const float* x, int32_t input_blocks, const float* w, size_t block_stride, float* y) {
  __m128 acc[kTile];
  for (int t = 0; t < kTile; ++t) acc[t] = _mm_setzero_ps();
  int32_t ib = 0;
  // Eight inputs (two blocks) a round.
  for (; ib + 2 <= input_blocks; ib += 2) {
    const float* wb = w + static_cast<size_t>(ib) * 16;
    const float* xb = x + static_cast<size_t>(ib) * 4;
    for (int il = 0; il < 8; ++il) {
      const __m128 xi = _mm_set1_ps(xb[il]);
      for (int t = 0; t < kTile; ++t)
        acc[t] = _mm_add_ps(acc[t], _mm_mul_ps(xi, _mm_loadu_ps(wb + t * block_stride + il * 4)));
    }
  }
  // Then one block of four when in/4 is odd.
  if (ib < input_blocks) {
    const float* wb = w + static_cast<size_t>(ib) * 16;
    const float* xb = x + static_cast<size_t>(ib) * 4;
    for (int il = 0; il < 4; ++il) {
      const __m128 xi = _mm_set1_ps(xb[il]);
      for (int t = 0; t < kTile; ++t)
        acc[t] = _mm_add_ps(acc[t], _mm_mul_ps(xi, _mm_loadu_ps(wb + t * block_stride + il * 4)));
    }
  }
  for (int t = 0; t < kTile; ++t) _mm_storeu_ps(y + t * 4, _mm_add_ps(_mm_loadu_ps(y + t * 4), acc[t]));
}

}  // namespace

void DenseBlock4SSE(const float* x, int32_t in_count, int32_t out_count, const float* w, const float* bias,
                    float* y) {
  const size_t out_bytes = sizeof(float) * static_cast<size_t>(out_count);
  if (bias != nullptr) {
    std::memcpy(y, bias, out_bytes);
  } else {
    std::memset(y, 0, out_bytes);
  }
  const int32_t output_blocks = out_count / 4;
  const int32_t input_blocks = in_count / 4;
  if (output_blocks == 0 || input_blocks == 0) return;
  const size_t block_stride = static_cast<size_t>(input_blocks) * 16;
  int32_t ob = 0;
  for (; ob + 4 <= output_blocks; ob += 4)
    Block4Tile<4>(x, input_blocks, w + ob * block_stride, block_stride, y + ob * 4);
  for (; ob < output_blocks; ++ob)
    Block4Tile<1>(x, input_blocks, w + ob * block_stride, block_stride, y + ob * 4);
}

}  // namespace kernel
}  // namespace zelva
