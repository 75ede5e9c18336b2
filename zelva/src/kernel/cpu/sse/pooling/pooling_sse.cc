// The SSE pooling cores (declared in family/pooling/cores.h): planar members four output columns a vector,
// and the C4HW4 member on the blocked loop nest over four-lane vectors.
#include <xmmintrin.h>

#include <cstddef>
#include <cstdint>

#include "zelva/src/kernel/family/pooling/blocked_tile.h"
#include "zelva/src/kernel/family/pooling/cores.h"

namespace zelva {
namespace kernel {

namespace {

struct Sse {
  static constexpr int kLanes = 4;
  using T = __m128;
  static T Load(const float* p) { return _mm_loadu_ps(p); }
  static void Store(float* p, T v) { _mm_storeu_ps(p, v); }
  static T Add(T a, T b) { return _mm_add_ps(a, b); }
  // a when a > b, else b: the reference's "keep a later tap only when it is greater".
  static T Max(T a, T b) { return _mm_max_ps(a, b); }
  static T Div(T a, T b) { return _mm_div_ps(a, b); }
  static T Set1(float v) { return _mm_set1_ps(v); }
  static T Zero() { return _mm_setzero_ps(); }
};

// The taps of four neighbouring output columns of a planar row: for stride S, p[0], p[S], p[2S], p[3S].
// kSpan is how many floats from p a gather reads, so that a vector stays inside its input row.
template <int S>
struct Gather;
template <>
struct Gather<1> {
  static constexpr int kSpan = 4;
  static __m128 Taps(const float* p) { return _mm_loadu_ps(p); }
};
template <>
struct Gather<2> {
  static constexpr int kSpan = 8;
  static __m128 Taps(const float* p) {
    return _mm_shuffle_ps(_mm_loadu_ps(p), _mm_loadu_ps(p + 4), _MM_SHUFFLE(2, 0, 2, 0));
  }
};

// Four output columns from x of one output row of a plane; `in` is the row's first input row.
template <int KY, int KX, int SY, int SX, bool kMax>
inline __m128 Columns4(const float* in, size_t in_w, uint32_t x) {
  const float* base = in + static_cast<size_t>(x) * SX;
  if constexpr (SX == 4 && KX == 4) {
    // Each input row: four loads, one transpose, and column kx holds tap kx of the four outputs.
    __m128 acc = _mm_setzero_ps();
    for (int ky = 0; ky < KY; ++ky) {
      const float* r = base + ky * in_w;
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
    return acc;
  } else {
    __m128 acc = kMax ? Gather<SX>::Taps(base) : _mm_setzero_ps();
    for (int ky = 0; ky < KY; ++ky) {
      const float* r = base + ky * in_w;
      for (int kx = 0; kx < KX; ++kx) {
        if constexpr (kMax) {
          if (ky != 0 || kx != 0) acc = _mm_max_ps(Gather<SX>::Taps(r + kx), acc);
        } else {
          acc = _mm_add_ps(acc, Gather<SX>::Taps(r + kx));
        }
      }
    }
    return acc;
  }
}

// The floats a vector of four columns reads from its first tap onwards.
template <int KX, int SX>
constexpr uint32_t Span() {
  if constexpr (SX == 4 && KX == 4) {
    return 16;
  } else {
    return (KX - 1) + Gather<SX>::kSpan;
  }
}

template <int KY, int KX, int SY, int SX, bool kMax>
void Planar(const PoolArgs& a) {
  constexpr uint32_t kSpan = Span<KX, SX>();
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
      for (; x + 4 <= a.out_w && x * SX + kSpan <= in_w; x += 4) {
        __m128 v = Columns4<KY, KX, SY, SX, kMax>(in, in_w, x);
        if constexpr (!kMax) v = _mm_div_ps(v, _mm_mul_ps(rows4, _mm_loadu_ps(a.col_count + x)));
        _mm_storeu_ps(out + x, v);
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
  Planar<KY, KX, SY, SX, false>(args);
}

template <int KY, int KX, int SY, int SX>
void MaxPoolChwSse(const PoolArgs& args) {
  Planar<KY, KX, SY, SX, true>(args);
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
