// AVX cores of the layout-transform family (declared in family/layout/cores.h): CHW <-> C8HW8 by 8x8
// transpositions of unpacks, shuffles and lane permutations, which move bits unchanged.
#include <immintrin.h>

#include <cstddef>

#include "zelva/src/kernel/family/layout/cores.h"

namespace zelva {
namespace kernel {

namespace {

// Rows r[0..7] become the columns: afterwards r[j][k] holds what r[k][j] held.
inline void Transpose8x8(__m256 (&r)[8]) {
  const __m256 t0 = _mm256_unpacklo_ps(r[0], r[1]), t1 = _mm256_unpackhi_ps(r[0], r[1]);
  const __m256 t2 = _mm256_unpacklo_ps(r[2], r[3]), t3 = _mm256_unpackhi_ps(r[2], r[3]);
  const __m256 t4 = _mm256_unpacklo_ps(r[4], r[5]), t5 = _mm256_unpackhi_ps(r[4], r[5]);
  const __m256 t6 = _mm256_unpacklo_ps(r[6], r[7]), t7 = _mm256_unpackhi_ps(r[6], r[7]);
  const __m256 u0 = _mm256_shuffle_ps(t0, t2, 0x44), u1 = _mm256_shuffle_ps(t0, t2, 0xEE);
  const __m256 u2 = _mm256_shuffle_ps(t1, t3, 0x44), u3 = _mm256_shuffle_ps(t1, t3, 0xEE);
  const __m256 u4 = _mm256_shuffle_ps(t4, t6, 0x44), u5 = _mm256_shuffle_ps(t4, t6, 0xEE);
  const __m256 u6 = _mm256_shuffle_ps(t5, t7, 0x44), u7 = _mm256_shuffle_ps(t5, t7, 0xEE);
  r[0] = _mm256_permute2f128_ps(u0, u4, 0x20);
  r[1] = _mm256_permute2f128_ps(u1, u5, 0x20);
  r[2] = _mm256_permute2f128_ps(u2, u6, 0x20);
  r[3] = _mm256_permute2f128_ps(u3, u7, 0x20);
  r[4] = _mm256_permute2f128_ps(u0, u4, 0x31);
  r[5] = _mm256_permute2f128_ps(u1, u5, 0x31);
  r[6] = _mm256_permute2f128_ps(u2, u6, 0x31);
  r[7] = _mm256_permute2f128_ps(u3, u7, 0x31);
}

// Eight pixels from p of the eight planes s, stored as eight blocked pixels at d.
inline void PlanarTile(const float* const* s, uint32_t p, float* d) {
  __m256 r[8];
  for (int k = 0; k < 8; ++k) r[k] = _mm256_loadu_ps(s[k] + p);
  Transpose8x8(r);
  for (int j = 0; j < 8; ++j) _mm256_storeu_ps(d + 8 * j, r[j]);
}

// Eight blocked pixels at s, stored from p into the eight planes d.
inline void BlockedTile(const float* s, float* const* d, uint32_t p) {
  __m256 r[8];
  for (int j = 0; j < 8; ++j) r[j] = _mm256_loadu_ps(s + 8 * j);
  Transpose8x8(r);
  for (int k = 0; k < 8; ++k) _mm256_storeu_ps(d[k] + p, r[k]);
}

// Planar -> C8HW8 with `kTiles` tiles of eight pixels a round, then a round of one tile while eight pixels
// remain, then single pixels.
template <int kTiles>
void PlanarToC8(const LayoutArgs& a) {
  for (uint32_t b = 0; b < a.blocks; ++b) {
    const float* s[8];
    for (int k = 0; k < 8; ++k) s[k] = a.src + (static_cast<size_t>(b) * 8 + k) * a.src_stride;
    float* d = a.dst + static_cast<size_t>(b) * a.dst_stride;
    uint32_t p = 0;
    for (; p + 8 * kTiles <= a.pixels; p += 8 * kTiles) {
      for (int t = 0; t < kTiles; ++t) PlanarTile(s, p + 8 * t, d + 8 * (static_cast<size_t>(p) + 8 * t));
    }
    for (; p + 8 <= a.pixels; p += 8) PlanarTile(s, p, d + 8 * static_cast<size_t>(p));
    for (; p < a.pixels; ++p) {
      for (int k = 0; k < 8; ++k) _mm_store_ss(d + 8 * static_cast<size_t>(p) + k, _mm_load_ss(s[k] + p));
    }
  }
}

template <int kTiles>
void C8ToPlanar(const LayoutArgs& a) {
  for (uint32_t b = 0; b < a.blocks; ++b) {
    const float* s = a.src + static_cast<size_t>(b) * a.src_stride;
    float* d[8];
    for (int k = 0; k < 8; ++k) d[k] = a.dst + (static_cast<size_t>(b) * 8 + k) * a.dst_stride;
    uint32_t p = 0;
    for (; p + 8 * kTiles <= a.pixels; p += 8 * kTiles) {
      for (int t = 0; t < kTiles; ++t) BlockedTile(s + 8 * (static_cast<size_t>(p) + 8 * t), d, p + 8 * t);
    }
    for (; p + 8 <= a.pixels; p += 8) BlockedTile(s + 8 * static_cast<size_t>(p), d, p);
    for (; p < a.pixels; ++p) {
      for (int k = 0; k < 8; ++k) _mm_store_ss(d[k] + p, _mm_load_ss(s + 8 * static_cast<size_t>(p) + k));
    }
  }
}

}  // namespace

void PlanarToC8Avx1(const LayoutArgs& a) {
  PlanarToC8<1>(a);
}
void PlanarToC8Avx2(const LayoutArgs& a) {
  PlanarToC8<2>(a);
}
void C8ToPlanarAvx1(const LayoutArgs& a) {
  C8ToPlanar<1>(a);
}
void C8ToPlanarAvx2(const LayoutArgs& a) {
  C8ToPlanar<2>(a);
}

}  // namespace kernel
}  // namespace zelva
