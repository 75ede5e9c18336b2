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
// tap, so it is taken only where those lie inside the input row (the last one may end at the last output,
// overlapping the one before); the other columns go one at a time.
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
      const auto vector = [&](uint32_t at) {
        __m128 acc = _mm_setzero_ps();
        for (int ky = 0; ky < KY; ++ky) {
          const float* r = in + ky * in_w + static_cast<size_t>(at) * SX;
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
        if constexpr (!kMax) acc = _mm_div_ps(acc, _mm_mul_ps(rows4, _mm_loadu_ps(a.col_count + at)));
        _mm_storeu_ps(out + at, acc);
      };
      for (; x + 4 <= a.out_w && x * SX + 16 <= in_w; x += 4) vector(x);
      // A last vector that ends at the last output (its first lanes again, the same values) where it fits.
      if (x < a.out_w && a.out_w >= 4 && (a.out_w - 4) * SX + 16 <= in_w) {
        vector(a.out_w - 4);
        x = a.out_w;
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
// out of the input row r at c = 2x: two loads split into the even and odd columns; for kx = 2, where the row
// reaches two columns past the windows (kWide), the even columns of two loads from c + 2, else the even
// columns shifted by one with column c + 8 from a single load (no more than the windows' own columns read).
template <int KX, bool kWide>
inline void Stride2Taps(const float* r, __m128 (&tap)[KX]) {
  const __m128 l0 = _mm_loadu_ps(r), l1 = _mm_loadu_ps(r + 4);
  tap[0] = _mm_shuffle_ps(l0, l1, _MM_SHUFFLE(2, 0, 2, 0));
  tap[1] = _mm_shuffle_ps(l0, l1, _MM_SHUFFLE(3, 1, 3, 1));
  if constexpr (KX == 3 && kWide) {
    tap[2] = _mm_shuffle_ps(_mm_loadu_ps(r + 2), _mm_loadu_ps(r + 6), _MM_SHUFFLE(2, 0, 2, 0));
  } else if constexpr (KX == 3) {
    const __m128 t = _mm_shuffle_ps(l1, _mm_load_ss(r + 8), _MM_SHUFFLE(0, 0, 2, 0));
    tap[2] = _mm_shuffle_ps(tap[0], t, _MM_SHUFFLE(2, 1, 2, 1));
  }
}

// Four outputs at column x of NR output rows at stride 2 (input rows 2r .. 2r + KY - 1 for row r): each
// input row is split once (Stride2Taps), and a row that two outputs share serves both; every output still
// takes its taps row by row, left to right.
template <int KY, int KX, bool kMax, bool kWide, int NR>
inline void Stride2Vector(const float* in, size_t in_w, uint32_t x, __m128 (&acc)[NR]) {
  for (int r = 0; r < NR; ++r) acc[r] = _mm_setzero_ps();
  for (int y = 0; y < 2 * (NR - 1) + KY; ++y) {
    __m128 tap[KX];
    Stride2Taps<KX, kWide>(in + y * in_w + 2 * static_cast<size_t>(x), tap);
    for (int r = 0; r < NR; ++r) {
      const int ky = y - 2 * r;
      if (ky < 0 || ky >= KY) continue;
      for (int kx = 0; kx < KX; ++kx) {
        if constexpr (kMax) {
          acc[r] = ky == 0 && kx == 0 ? tap[0] : _mm_max_ps(tap[kx], acc[r]);
        } else {
          acc[r] = _mm_add_ps(acc[r], tap[kx]);
        }
      }
    }
  }
}

// NR output rows from row oy at stride 2: four outputs a vector, their taps split out of each input row in
// registers; the windows of four full outputs lie inside the row, so every full vector of outputs is taken
// this way; the rest go one at a time.
template <int KY, int KX, bool kMax, int NR>
void Stride2Rows(const PoolArgs& a, const float* in, float* out, uint32_t oy) {
  const size_t in_w = a.in_w;
  // The row counts once, out of the loops: the stores to `out` would otherwise have them reloaded.
  __m128 rows[NR];
  for (int r = 0; r < NR; ++r) rows[r] = _mm_set1_ps(kMax ? 0.0f : a.row_count[oy + r]);
  const float* const cols = a.col_count;
  const auto finish = [&](uint32_t x, __m128(&acc)[NR]) {
    for (int r = 0; r < NR; ++r) {
      if constexpr (!kMax) acc[r] = _mm_div_ps(acc[r], _mm_mul_ps(rows[r], _mm_loadu_ps(cols + x)));
      _mm_storeu_ps(out + r * static_cast<size_t>(a.out_w) + x, acc[r]);
    }
  };
  uint32_t x = 0;
  for (; x + 4 <= a.out_w && 2 * static_cast<size_t>(x) + 10 <= in_w; x += 4) {
    __m128 acc[NR];
    Stride2Vector<KY, KX, kMax, true, NR>(in, in_w, x, acc);
    finish(x, acc);
  }
  for (; x + 4 <= a.out_w; x += 4) {
    __m128 acc[NR];
    Stride2Vector<KY, KX, kMax, false, NR>(in, in_w, x, acc);
    finish(x, acc);
  }
  // A last vector that ends at the last output (its first lanes again, the same values) where there is one.
  if (x < a.out_w && a.out_w >= 4) {
    __m128 acc[NR];
    Stride2Vector<KY, KX, kMax, false, NR>(in, in_w, a.out_w - 4, acc);
    finish(a.out_w - 4, acc);
    x = a.out_w;
  }
  for (; x < a.out_w; ++x) {
    for (int r = 0; r < NR; ++r) {
      const float* base = in + 2 * (static_cast<size_t>(r) * in_w + x);
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
      out[r * static_cast<size_t>(a.out_w) + x] = kMax ? acc : acc / (a.row_count[oy + r] * a.col_count[x]);
    }
  }
}

// Stride 2: two output rows a round where the window is three rows high (they share an input row), else one.
template <int KY, int KX, bool kMax>
void PlanarStride2(const PoolArgs& a) {
  static_assert(KX == 2 || KX == 3, "windows of two or three columns");
  constexpr int kPair = KY == 3 ? 2 : 1;
  const size_t in_w = a.in_w;
  for (uint32_t p = 0; p < a.planes; ++p) {
    const float* plane = a.input + static_cast<size_t>(p) * a.in_h * in_w;
    float* out_plane = a.output + static_cast<size_t>(p) * a.out_h * a.out_w;
    uint32_t oy = 0;
    for (; oy + kPair <= a.out_h; oy += kPair)
      Stride2Rows<KY, KX, kMax, kPair>(a, plane + static_cast<size_t>(oy) * 2 * in_w,
                                       out_plane + static_cast<size_t>(oy) * a.out_w, oy);
    for (; oy < a.out_h; ++oy)
      Stride2Rows<KY, KX, kMax, 1>(a, plane + static_cast<size_t>(oy) * 2 * in_w,
                                   out_plane + static_cast<size_t>(oy) * a.out_w, oy);
  }
}

// One scalar lane in the shape of the vector types, for the columns right of the last full vector.
struct Lane {
  using T = float;
  static constexpr uint32_t kLanes = 1;
  static T Load(const float* p) { return *p; }
  static void Store(float* p, T v) { *p = v; }
  static T Zero() { return 0.0f; }
  static T Add(T a, T b) { return a + b; }
};

// One output row of a planar two-pass average from its column sums: each output adds the sums of the
// neighbouring pairs of columns of its window (and its last column when KX is odd), times the reciprocal of
// its divisor. Four outputs a vector, the pairs kept in registers (those of the next four outputs that
// these share carried over), so nothing goes back through memory; then one at a time, in the same order.
template <int KX>
inline void PlanarRow(const float* sums, float* out, uint32_t out_w, const float* recip) {
  constexpr int kPairs = KX / 2;
  const auto pair = [](const float* c) { return _mm_add_ps(_mm_loadu_ps(c), _mm_loadu_ps(c + 1)); };
  const float* const end = out + out_w;
  if (out_w >= 4) {
    __m128 pr[kPairs];
    for (int j = 0; j < kPairs; ++j) pr[j] = pair(sums + 2 * j);
    for (;;) {
      __m128 acc = pr[0];
      for (int j = 1; j < kPairs; ++j) acc = _mm_add_ps(acc, pr[j]);
      if constexpr (KX % 2 == 1) acc = _mm_add_ps(acc, _mm_loadu_ps(sums + KX - 1));
      _mm_storeu_ps(out, _mm_mul_ps(acc, _mm_loadu_ps(recip)));
      out += 4, sums += 4, recip += 4;
      if (out == end) break;
      if (end - out < 4) {
        // A last vector that ends at the last output: its first lanes again, the same values.
        const ptrdiff_t back = 4 - (end - out);
        out -= back, sums -= back, recip -= back;
        for (int j = 0; j < kPairs; ++j) pr[j] = pair(sums + 2 * j);
        continue;
      }
      for (int j = 0; j < kPairs; ++j) pr[j] = j + 2 < kPairs ? pr[j + 2] : pair(sums + 2 * j);
    }
  }
  for (; out < end; ++out, ++sums, ++recip) {
    float acc = sums[0] + sums[1];
    for (int j = 1; j < kPairs; ++j) acc += sums[2 * j] + sums[2 * j + 1];
    if constexpr (KX % 2 == 1) acc += sums[KX - 1];
    *out = acc * *recip;
  }
}

// Stride 1 averages in two passes, a band of KY output rows a round, as the blocked two-pass loop does: the
// column sums of the band (pool_tile::ColumnSums, four columns a vector and the rest one at a time), then
// each row from them (PlanarRow). The same sum in another order, multiplied by the rounded reciprocal.
template <int KY, int KX>
void PlanarSeparable(const PoolArgs& a) {
  static_assert(KY >= 2 && KX >= 2, "windows of two rows and two columns at least");
  const size_t in_w = a.in_w;
  const size_t count = static_cast<size_t>(a.out_w) + KX - 1, vectors = count / 4 * 4;
  float* const sums = a.work;
  float* const recip = a.work + KY * in_w;
  pool_tile::Reciprocals(a, recip);
  for (uint32_t p = 0; p < a.planes; ++p) {
    const float* plane = a.input + static_cast<size_t>(p) * a.in_h * in_w;
    float* out_plane = a.output + static_cast<size_t>(p) * a.out_h * a.out_w;
    for (uint32_t oy = 0; oy < a.out_h; oy += KY) {
      const uint32_t n = a.out_h - oy < static_cast<uint32_t>(KY) ? a.out_h - oy : KY;
      const float* in = plane + static_cast<size_t>(oy) * in_w;
      if (n == KY) {
        pool_tile::ColumnSums<Sse, KY, true>(in, in_w, vectors, n, sums, in_w);
      } else {
        pool_tile::ColumnSums<Sse, KY, false>(in, in_w, vectors, n, sums, in_w);
      }
      pool_tile::ColumnSums<Lane, KY, false>(in + vectors, in_w, count - vectors, n, sums + vectors, in_w);
      for (uint32_t i = 0; i < n; ++i)
        PlanarRow<KX>(sums + i * in_w, out_plane + static_cast<size_t>(oy + i) * a.out_w, a.out_w,
                      recip + static_cast<size_t>(oy + i) * a.out_w);
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
