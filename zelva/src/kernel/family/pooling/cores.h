// The cores of the pooling family and what they see. Declarations only: the vector cores are defined in the
// folder of the instruction set they need (cpu/sse/pooling, cpu/avx/pooling); the two general members run the
// family reference itself (reference.h). Members that differ only in window or stride share one core per
// instruction set and layout, a template on both.
//
// Every core but the two-pass ones below computes what the reference computes, bit for bit: an average adds
// the taps of its window to a sum that starts at 0.0, row by row and left to right, and divides the sum by
// the number of taps it counts; a maximum starts at the first tap and keeps a later tap only when it is
// greater. Vector lanes are channels (blocked layouts) or neighbouring output columns (planar layout);
// neither changes the order of any one output's sum.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

// What a core sees. Vector cores get an input the frame has zero-padded (and extended on the bottom and the
// right far enough for every window of ceil mode), so pad_t and pad_l are 0 for them and every window lies
// inside [in_h, in_w]. The reference gets the input itself with the layer's top and left padding.
//
// Data are [planes, in_h, in_w, lanes] and [planes, out_h, out_w, lanes]: planes are the channels of a
// planar tensor (lanes 1) or the channel blocks of a blocked one (lanes 4 or 8).
struct PoolArgs {
  const float* input;
  uint32_t in_h, in_w;
  uint32_t pad_t, pad_l;
  float* output;
  uint32_t out_h, out_w;
  uint32_t planes, lanes;
  uint32_t kernel_y, kernel_x, stride_y, stride_x;
  bool count_include_pad;
  // Averages of the vector cores: the divisor of output (oy, ox) is row_count[oy] * col_count[ox], the
  // number of taps of its rows and columns that the divisor counts (all of them with count_include_pad,
  // those on the real input without). Both are small whole numbers, so the product is exact.
  const float* row_count;
  const float* col_count;
  // Scratch for the cores that ask for it: (in_h + 2) x (in_w + 1) x lanes floats, a little more than the
  // padded input (the two-pass cores keep KY rows of column sums and out_h x out_w reciprocals in it).
  float* work;
};

struct PoolCore {
  void (*run)(const PoolArgs& args);
  // Whether the core wants the zero-padded copy (vector cores) or reads the input with its margins itself.
  bool padded;
  // Whether the core wants `work`.
  bool work = false;
};

// ---- Planar, SSE (cpu/sse/pooling/pooling_sse.cc): four output columns a vector; stride 2 splits the taps
// of each input row into its even and odd columns in registers, once for the two output rows of a 3-row
// window that share it; the 4x4 stride 4 window takes one
// 4x4 transpose per input row; the columns right of the last full vector go one at a time in scalar code of
// the same order.
template <int KY, int KX, int SY, int SX>
void AvgPoolChwSse(const PoolArgs& args);
template <int KY, int KX, int SY, int SX>
void MaxPoolChwSse(const PoolArgs& args);
// ---- Blocked, one pixel (the lanes of a block) a vector: C4HW4 in SSE, C8HW8 in AVX (cpu/avx/pooling).
template <int KY, int KX, int SY, int SX>
void AvgPoolC4Sse(const PoolArgs& args);
// ---- Stride 1 averages in two passes (they want `work`): the column sums of a band of KY output rows into
// `work` (each the sum of a suffix and a prefix of the band's input rows, pool_tile::ColumnSums), then per
// output the sum of its KX column sums (C8HW8: the same split along the row; planar: sums of neighbouring
// pairs), times the reciprocal of its divisor; five (C8HW8) to eight (planar) additions and a multiplication
// an output instead of KY x KX additions and a division. The same sum in another order and one rounding more,
// so these differ from the reference in rounding alone (their rows in members.h give the bound): planar SSE
// (four columns a vector) and C8HW8 AVX.
template <int KY, int KX>
void AvgPoolChwSseSeparable(const PoolArgs& args);
template <int KY, int KX, int SY, int SX>
void AvgPoolC8Avx(const PoolArgs& args);
template <int KY, int KX, int SY, int SX>
void MaxPoolC8Avx(const PoolArgs& args);
template <int KY, int KX>
void AvgPoolC8AvxSeparable(const PoolArgs& args);

#define ZV_POOL_EXTERN(core, ky, kx, sy, sx) extern template void core<ky, kx, sy, sx>(const PoolArgs&);
ZV_POOL_EXTERN(AvgPoolChwSse, 2, 2, 2, 2)
ZV_POOL_EXTERN(AvgPoolChwSse, 3, 3, 2, 2)
ZV_POOL_EXTERN(AvgPoolChwSse, 4, 4, 4, 4)
ZV_POOL_EXTERN(MaxPoolChwSse, 2, 2, 2, 2)
ZV_POOL_EXTERN(MaxPoolChwSse, 3, 3, 2, 2)
ZV_POOL_EXTERN(AvgPoolC4Sse, 4, 4, 4, 4)
ZV_POOL_EXTERN(AvgPoolC8Avx, 2, 2, 2, 2)
ZV_POOL_EXTERN(AvgPoolC8Avx, 3, 3, 2, 2)
ZV_POOL_EXTERN(AvgPoolC8Avx, 4, 4, 4, 4)
ZV_POOL_EXTERN(AvgPoolC8Avx, 3, 2, 3, 2)
ZV_POOL_EXTERN(MaxPoolC8Avx, 2, 2, 2, 2)
ZV_POOL_EXTERN(MaxPoolC8Avx, 3, 3, 2, 2)
#undef ZV_POOL_EXTERN
extern template void AvgPoolChwSseSeparable<7, 7>(const PoolArgs&);
extern template void AvgPoolC8AvxSeparable<4, 4>(const PoolArgs&);
extern template void AvgPoolC8AvxSeparable<7, 7>(const PoolArgs&);
extern template void AvgPoolC8AvxSeparable<8, 8>(const PoolArgs&);
extern template void AvgPoolC8AvxSeparable<5, 4>(const PoolArgs&);
extern template void AvgPoolC8AvxSeparable<10, 8>(const PoolArgs&);

}  // namespace kernel
}  // namespace zelva
