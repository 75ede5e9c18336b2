// Cores of the elementwise and broadcast family, every instruction set. Declarations only: each core is
// compiled in its instruction-set folder (cpu/fallback, cpu/sse, cpu/avx) with that folder's flags.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace zelva {
namespace kernel {

// ---- Same shape: out[i] = a[i] op b[i] over `count` floats; `out` may be an operand.
using ElementwiseCore = void (*)(const float* a, const float* b, const uint32_t& count, float* out);

void ElementwiseAddSSE(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseSubSSE(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseMulSSE(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseDivSSE(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseMaxSSE(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseMinSSE(const float* a, const float* b, const uint32_t& count, float* out);

// Four 8-lane groups a round, then two, then the SSE rest.
void ElementwiseAddAVX(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseSubAVX(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseMulAVX(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseDivAVX(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseMaxAVX(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseMinAVX(const float* a, const float* b, const uint32_t& count, float* out);

// ---- Channel gates of the blocked layouts: a {blocks, H, W, lanes} times b {blocks, h, w, lanes} with h and
// w each 1 or equal to a's, broadcast over H and W.
using ChannelMulCore = void (*)(const float* a, const uint32_t* a_dims, const float* b,
                                const uint32_t* b_dims, float* out);
void BroadcastMulC4HW4AVX(const float* a, const uint32_t* a_dims, const float* b, const uint32_t* b_dims,
                          float* out);
void BroadcastMulC8HW8AVX(const float* a, const uint32_t* a_dims, const float* b, const uint32_t* b_dims,
                          float* out);

// ---- Fallback.
// Whether two dim lists fit for broadcasting: compared from the last dim backwards over the shorter rank,
// each pair equal or one of them 1.
bool BroadcastShapesFit(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b);
// `a` of dims `ad` op `b` of dims `bd` into `out` of dims `od` (the broadcast shape, rank at least that of
// each input), one element at a time through `op`.
void BroadcastFallback(const std::function<float(const float&, const float&)>& op, const float* a,
                       const std::vector<uint32_t>& ad, const float* b, const std::vector<uint32_t>& bd,
                       float* out, const std::vector<uint32_t>& od);

}  // namespace kernel
}  // namespace zelva
