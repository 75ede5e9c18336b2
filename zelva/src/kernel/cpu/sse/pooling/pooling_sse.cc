// The SSE pooling cores (declared in family/pooling/cores.h): planar members four output columns a vector,
// and the C4HW4 member on the blocked loop nest over four-lane vectors.
#include <xmmintrin.h>

#include <cstddef>
#include <cstdint>

#include "zelva/src/kernel/family/pooling/blocked_tile.h"
#include "zelva/src/kernel/family/pooling/cores.h"
#include "zelva/src/kernel/functional/vector4.h"

namespace zelva {
namespace kernel {

namespace {

using Sse = V4;

// The 4 x 4 window at stride 4: four output columns a vector; each input row takes four loads and one 4 x 4
// transpose, after which column kx holds tap kx of the four outputs. A vector reads 16 floats from its first
// tap, so it is taken only where those lie inside the input row; the other columns go one at a time.
template <int KY, int KX, int SY, int SX, bool kMax>
void PlanarStride4(const PoolArgs& a) {
  static_assert(KX == 4 && SX == 4, "a window of four columns at stride 4");
  const size_t in_w = a.in_w;
  for (uint32_t p = 0; p < a.planes; ++p) {
    const float* plane = a.input + static_cast<size_t>(p) * a.in_h * in_w;
    float* out_plane = a.output + static_cast<size_t>(p) * a.out_h * a.out_w;
    for (uint32_t oy = 0; oy < a.out_h; ++oy) {
      const float* in = plane + static_cast<size_t>(oy) * SY * in_w;
      float* out = out_plane + static_cast<size_t>(oy) * a.out_w;
      const float rows = kMax ? 0.0f : a.row_count[oy];
      const __m128 rows4 = _mm_set1_ps(rows);
      uint32_t x = 0;
      for (; x + 4 <= a.out_w && x * SX + 16 <= in_w; x += 4) {
        __m128 acc = _mm_setzero_ps();
        for (int ky = 0; ky < KY; ++ky) {
          const float* r = in + ky * in_w + static_cast<size_t>(x) * SX;
          __m128 c0 = _mm_loadu_ps(r), c1 = _mm_loadu_ps(r + 4), c2 = _mm_loadu_ps(r + 8),
                 c3 = _mm_loadu_ps(r + 12);
          _MM_TRANSPOSE4_PS(c0, c1, c2, c3);
          if constexpr (kMax) {
            acc = ky == 0 ? c0 : _mm_max_ps(c0, acc);
            acc = _mm_max_ps(c1, acc);
            acc = _mm_max_ps(c2, acc);
            acc = _mm_max_ps(c3, acc);
          } else {
            acc = _mm_add_ps(acc, c0);
            acc = _mm_add_ps(acc, c1);
            acc = _mm_add_ps(acc, c2);
            acc = _mm_add_ps(acc, c3);
          }
        }
        if constexpr (!kMax) acc = _mm_div_ps(acc, _mm_mul_ps(rows4, _mm_loadu_ps(a.col_count + x)));
        _mm_storeu_ps(out + x, acc);
      }
      for (; x < a.out_w; ++x) {
        const float* base = in + static_cast<size_t>(x) * SX;
        float acc = kMax ? base[0] : 0.0f;
        for (int ky = 0; ky < KY; ++ky) {
          for (int kx = 0; kx < KX; ++kx) {
            const float v = base[ky * in_w + kx];
            if constexpr (kMax) {
              if (v > acc) acc = v;
            } else {
              acc += v;
            }
          }
        }
        out[x] = kMax ? acc : acc / (rows * a.col_count[x]);
      }
    }
  }
}

// The taps kx = 0, 1, 2 of four neighbouring outputs at stride 2, columns c, c + 2, c + 4, c + 6 from c + kx,
// out of the input row r at c = 2x: two loads split into the even and odd columns, and for kx = 2 the even
// columns shifted by one with column c + 8 from a single load (so no more than the windows' own columns are
// read).
template <int KX>
inline void Stride2Taps(const float* r, __m128 (&tap)[KX]) {
  const __m128 l0 = _mm_loadu_ps(r), l1 = _mm_loadu_ps(r + 4);
  tap[0] = _mm_shuffle_ps(l0, l1, _MM_SHUFFLE(2, 0, 2, 0));
  tap[1] = _mm_shuffle_ps(l0, l1, _MM_SHUFFLE(3, 1, 3, 1));
  if constexpr (KX == 3) {
    const __m128 t = _mm_shuffle_ps(l1, _mm_load_ss(r + 8), _MM_SHUFFLE(0, 0, 2, 0));
    tap[2] = _mm_shuffle_ps(tap[0], t, _MM_SHUFFLE(2, 1, 2, 1));
  }
}

// Stride 2: four outputs a vector, their taps split out of each input row in registers (Stride2Taps); the
// taps keep their order. The windows of four full outputs lie inside the row, so every full vector of
// outputs is taken this way; the rest go one at a time.
template <int KY, int KX, bool kMax>
void PlanarStride2(const PoolArgs& a) {
  static_assert(KX == 2 || KX == 3, "windows of two or three columns");
  const size_t in_w = a.in_w;
  for (uint32_t p = 0; p < a.planes; ++p) {
    const float* plane = a.input + static_cast<size_t>(p) * a.in_h * in_w;
    float* out_plane = a.output + static_cast<size_t>(p) * a.out_h * a.out_w;
    for (uint32_t oy = 0; oy < a.out_h; ++oy) {
      const float* in = plane + static_cast<size_t>(oy) * 2 * in_w;
      float* out = out_plane + static_cast<size_t>(oy) * a.out_w;
      const float rows = kMax ? 0.0f : a.row_count[oy];
      const __m128 rows4 = _mm_set1_ps(rows);
      uint32_t x = 0;
      for (; x + 4 <= a.out_w; x += 4) {
        __m128 acc = _mm_setzero_ps();
        for (int ky = 0; ky < KY; ++ky) {
          __m128 tap[KX];
          Stride2Taps<KX>(in + ky * in_w + 2 * static_cast<size_t>(x), tap);
          for (int kx = 0; kx < KX; ++kx) {
            if constexpr (kMax) {
              acc = ky == 0 && kx == 0 ? tap[0] : _mm_max_ps(tap[kx], acc);
            } else {
              acc = _mm_add_ps(acc, tap[kx]);
            }
          }
        }
        if constexpr (!kMax) acc = _mm_div_ps(acc, _mm_mul_ps(rows4, _mm_loadu_ps(a.col_count + x)));
        _mm_storeu_ps(out + x, acc);
      }
      for (; x < a.out_w; ++x) {
        const float* base = in + 2 * static_cast<size_t>(x);
        float acc = kMax ? base[0] : 0.0f;
        for (int ky = 0; ky < KY; ++ky) {
          for (int kx = 0; kx < KX; ++kx) {
            const float v = base[ky * in_w + kx];
            if constexpr (kMax) {
              if (v > acc) acc = v;
            } else {
              acc += v;
            }
          }
        }
        out[x] = kMax ? acc : acc / (rows * a.col_count[x]);
      }
    }
  }
}

// One output row of a two-pass average from the column sums in `work`: each output the KX sums from its
// column, left to right, divided; four outputs a vector, then one at a time.
template <int KX>
inline void RowFromColumns(const float* work, float* out, uint32_t out_w, float rows, const float* cols) {
  const __m128 rows4 = _mm_set1_ps(rows);
  uint32_t o = 0;
  for (; o + 4 <= out_w; o += 4) {
    __m128 acc = _mm_loadu_ps(work + o);
    for (int kx = 1; kx < KX; ++kx) acc = _mm_add_ps(acc, _mm_loadu_ps(work + o + kx));
    _mm_storeu_ps(out + o, _mm_div_ps(acc, _mm_mul_ps(rows4, _mm_loadu_ps(cols + o))));
  }
  for (; o < out_w; ++o) {
    float acc = work[o];
    for (int kx = 1; kx < KX; ++kx) acc += work[o + kx];
    out[o] = acc / (rows * cols[o]);
  }
}

// Stride 1 averages in two passes, two output rows a round, as the blocked two-pass loop does: the sums of
// the KY - 1 input rows the two share, plus each one's own outer row, give the column sums of both (four
// columns a vector); then the row sums of those. A last odd output row sums its own KY rows.
template <int KY, int KX>
void PlanarSeparable(const PoolArgs& a) {
  static_assert(KY >= 2, "two output rows share KY - 1 input rows");
  const size_t in_w = a.in_w;
  float* const upper = a.work;
  float* const lower = a.work + in_w;
  for (uint32_t p = 0; p < a.planes; ++p) {
    const float* plane = a.input + static_cast<size_t>(p) * a.in_h * in_w;
    float* out_plane = a.output + static_cast<size_t>(p) * a.out_h * a.out_w;
    uint32_t oy = 0;
    for (; oy + 2 <= a.out_h; oy += 2) {
      const float* in = plane + static_cast<size_t>(oy) * in_w;
      size_t x = 0;
      for (; x + 4 <= in_w; x += 4) {
        __m128 shared = _mm_loadu_ps(in + in_w + x);
        for (int ky = 2; ky < KY; ++ky) shared = _mm_add_ps(shared, _mm_loadu_ps(in + ky * in_w + x));
        _mm_storeu_ps(upper + x, _mm_add_ps(_mm_loadu_ps(in + x), shared));
        _mm_storeu_ps(lower + x, _mm_add_ps(shared, _mm_loadu_ps(in + KY * in_w + x)));
      }
      for (; x < in_w; ++x) {
        float shared = in[in_w + x];
        for (int ky = 2; ky < KY; ++ky) shared += in[ky * in_w + x];
        upper[x] = in[x] + shared;
        lower[x] = shared + in[KY * in_w + x];
      }
      RowFromColumns<KX>(upper, out_plane + static_cast<size_t>(oy) * a.out_w, a.out_w, a.row_count[oy],
                         a.col_count);
      RowFromColumns<KX>(lower, out_plane + static_cast<size_t>(oy + 1) * a.out_w, a.out_w,
                         a.row_count[oy + 1], a.col_count);
    }
    if (oy < a.out_h) {
      const float* in = plane + static_cast<size_t>(oy) * in_w;
      size_t x = 0;
      for (; x + 4 <= in_w; x += 4) {
        __m128 acc = _mm_loadu_ps(in + x);
        for (int ky = 1; ky < KY; ++ky) acc = _mm_add_ps(acc, _mm_loadu_ps(in + ky * in_w + x));
        _mm_storeu_ps(upper + x, acc);
      }
      for (; x < in_w; ++x) {
        float acc = in[x];
        for (int ky = 1; ky < KY; ++ky) acc += in[ky * in_w + x];
        upper[x] = acc;
      }
      RowFromColumns<KX>(upper, out_plane + static_cast<size_t>(oy) * a.out_w, a.out_w, a.row_count[oy],
                         a.col_count);
    }
  }
}

}  // namespace

template <int KY, int KX>
void AvgPoolChwSseSeparable(const PoolArgs& args) {
  PlanarSeparable<KY, KX>(args);
}

template <int KY, int KX, int SY, int SX>
void AvgPoolChwSse(const PoolArgs& args) {
  if constexpr (SY == 2 && SX == 2) {
    PlanarStride2<KY, KX, false>(args);
  } else {
    PlanarStride4<KY, KX, SY, SX, false>(args);
  }
}

template <int KY, int KX, int SY, int SX>
void MaxPoolChwSse(const PoolArgs& args) {
  static_assert(SY == 2 && SX == 2, "planar maxima at stride 2");
  PlanarStride2<KY, KX, true>(args);
}

template <int KY, int KX, int SY, int SX>
void AvgPoolC4Sse(const PoolArgs& args) {
  pool_tile::Blocked<Sse, KY, KX, SY, SX, false>(args);
}

template void AvgPoolChwSse<2, 2, 2, 2>(const PoolArgs&);
template void AvgPoolChwSse<3, 3, 2, 2>(const PoolArgs&);
template void AvgPoolChwSse<4, 4, 4, 4>(const PoolArgs&);
template void AvgPoolChwSseSeparable<7, 7>(const PoolArgs&);
template void MaxPoolChwSse<2, 2, 2, 2>(const PoolArgs&);
template void MaxPoolChwSse<3, 3, 2, 2>(const PoolArgs&);
template void AvgPoolC4Sse<4, 4, 4, 4>(const PoolArgs&);

}  // namespace kernel
}  // namespace zelva
