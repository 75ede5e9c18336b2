// The members of the pooling family, every instruction set, one row per registered name:
//   X(group, isa, ClassName, accuracy, kind, layout, kernel_y, kernel_x, stride_y, stride_x, core)
// Window and stride read height first, as the names do; 0 means any (the two general members, which take
// every layout and run the reference itself). The vector cores keep the reference's divisor, and all but the
// stride 1 averages its order of additions, so those rows are bit-exact to the family reference
// (reference.h). The stride 1 averages add in two passes (columns, then rows) and multiply by the rounded
// reciprocal of the divisor; they are held within kTwoPass.
#pragma once

#include "zelva/src/kernel/family/pooling/cores.h"
#include "zelva/src/kernel/family/pooling/pooling.h"
#include "zelva/src/kernel/family/pooling/reference.h"
#include "zelva/src/kernel/frame/member.h"

namespace zelva {
namespace kernel {
// The bound of the two-pass averages against the reference, max_abs + max_rel * |reference|, for inputs
// within [-2, 2] as the tester draws them: the rounding of two orders of at most 80 additions, divided by the
// window, and half a unit in the last place of the result for the reciprocal. Measured over random layers:
// at most 4e-7 absolute (relative errors are unbounded where a sum cancels to near 0).
inline constexpr Accuracy kTwoPass = Within(1e-6f, 1e-6f);
#define ZV_POOL_CORE(name, core, ky, kx, sy, sx) inline constexpr PoolCore name{&core<ky, kx, sy, sx>, true};
ZV_POOL_CORE(kAvgPool4x4S4ChwSse, AvgPoolChwSse, 4, 4, 4, 4)
ZV_POOL_CORE(kAvgPool4x4S4C4Sse, AvgPoolC4Sse, 4, 4, 4, 4)
ZV_POOL_CORE(kAvgPool2x2S2C8Avx, AvgPoolC8Avx, 2, 2, 2, 2)
ZV_POOL_CORE(kAvgPool3x3S2C8Avx, AvgPoolC8Avx, 3, 3, 2, 2)
ZV_POOL_CORE(kAvgPool4x4S4C8Avx, AvgPoolC8Avx, 4, 4, 4, 4)
ZV_POOL_CORE(kAvgPool3x2S3x2C8Avx, AvgPoolC8Avx, 3, 2, 3, 2)
ZV_POOL_CORE(kMaxPool2x2S2C8Avx, MaxPoolC8Avx, 2, 2, 2, 2)
ZV_POOL_CORE(kMaxPool3x3S2C8Avx, MaxPoolC8Avx, 3, 3, 2, 2)
#undef ZV_POOL_CORE
inline constexpr PoolCore kMaxPool3x3S2ChwSse{&MaxPoolChwSse<3, 3, 2, 2>, true};
inline constexpr PoolCore kMaxPool2x2S2ChwSse{&MaxPoolChwSse<2, 2, 2, 2>, true};
inline constexpr PoolCore kAvgPool3x3S2ChwSse{&AvgPoolChwSse<3, 3, 2, 2>, true};
inline constexpr PoolCore kAvgPool2x2S2ChwSse{&AvgPoolChwSse<2, 2, 2, 2>, true};
inline constexpr PoolCore kAvgPool7x7S1ChwSse{&AvgPoolChwSseSeparable<7, 7>, true, true};
inline constexpr PoolCore kAvgPool4x4S1C8Avx{&AvgPoolC8AvxSeparable<4, 4>, true, true};
inline constexpr PoolCore kAvgPool7x7S1C8Avx{&AvgPoolC8AvxSeparable<7, 7>, true, true};
inline constexpr PoolCore kAvgPool8x8S1C8Avx{&AvgPoolC8AvxSeparable<8, 8>, true, true};
inline constexpr PoolCore kAvgPool5x4S1C8Avx{&AvgPoolC8AvxSeparable<5, 4>, true, true};
inline constexpr PoolCore kAvgPool10x8S1C8Avx{&AvgPoolC8AvxSeparable<10, 8>, true, true};
}  // namespace kernel
}  // namespace zelva

// clang-format off
#define ZV_POOLING_MEMBERS(X)                                                                                  \
  X(kFallback, kScalar, Pooling2D_Avg_Fallback_Float_M1, kBitExact, Avg, Any, 0, 0, 0, 0, kAvgPoolFallback)    \
  X(kFallback, kScalar, Pooling2D_Max_Fallback_Float_M1, kBitExact, Max, Any, 0, 0, 0, 0, kMaxPoolFallback)    \
  X(kSSE, kSSE, Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1, kBitExact, Avg, CHW, 2, 2, 2, 2, kAvgPool2x2S2ChwSse) \
  X(kSSE, kSSE, Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1, kBitExact, Avg, CHW, 3, 3, 2, 2, kAvgPool3x3S2ChwSse) \
  X(kSSE, kSSE, Pooling2D_Avg_K7x7_S1x1_SSE_CHW_Float_M1, kTwoPass, Avg, CHW, 7, 7, 1, 1, kAvgPool7x7S1ChwSse) \
  X(kSSE, kSSE, Pooling2D_Avg_K4x4_S4x4_SSE_CHW_Float_M1, kBitExact, Avg, CHW, 4, 4, 4, 4, kAvgPool4x4S4ChwSse) \
  X(kSSE, kSSE, Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1, kBitExact, Avg, C4HW4, 4, 4, 4, 4,                 \
    kAvgPool4x4S4C4Sse)                                                                                        \
  X(kSSE, kSSE, Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1, kBitExact, Max, CHW, 2, 2, 2, 2, kMaxPool2x2S2ChwSse) \
  X(kSSE, kSSE, Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1, kBitExact, Max, CHW, 3, 3, 2, 2, kMaxPool3x3S2ChwSse) \
  X(kAVX, kAVX, Pooling2D_Avg_K4x4_S1x1_AVX_C8HW8_Float_M1, kTwoPass, Avg, C8HW8, 4, 4, 1, 1,                 \
    kAvgPool4x4S1C8Avx)                                                                                        \
  X(kAVX, kAVX, Pooling2D_Avg_K7x7_S1x1_AVX_C8HW8_Float_M1, kTwoPass, Avg, C8HW8, 7, 7, 1, 1,                 \
    kAvgPool7x7S1C8Avx)                                                                                        \
  X(kAVX, kAVX, Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1, kTwoPass, Avg, C8HW8, 8, 8, 1, 1,                 \
    kAvgPool8x8S1C8Avx)                                                                                        \
  X(kAVX, kAVX, Pooling2D_Avg_K10x8_S1x1_AVX_C8HW8_Float_M1, kTwoPass, Avg, C8HW8, 10, 8, 1, 1,               \
    kAvgPool10x8S1C8Avx)                                                                                       \
  X(kAVX, kAVX, Pooling2D_Avg_K5x4_S1x1_AVX_C8HW8_Float_M1, kTwoPass, Avg, C8HW8, 5, 4, 1, 1,                 \
    kAvgPool5x4S1C8Avx)                                                                                        \
  X(kAVX, kAVX, Pooling2D_Avg_K3x2_S3x2_AVX_C8HW8_Float_M1, kBitExact, Avg, C8HW8, 3, 2, 3, 2,                 \
    kAvgPool3x2S3x2C8Avx)                                                                                      \
  X(kAVX, kAVX, Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1, kBitExact, Avg, C8HW8, 3, 3, 2, 2,                 \
    kAvgPool3x3S2C8Avx)                                                                                        \
  X(kAVX, kAVX, Pooling2D_Avg_K2x2_S2x2_AVX_C8HW8_Float_M1, kBitExact, Avg, C8HW8, 2, 2, 2, 2,                 \
    kAvgPool2x2S2C8Avx)                                                                                        \
  X(kAVX, kAVX, Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1, kBitExact, Max, C8HW8, 2, 2, 2, 2,                 \
    kMaxPool2x2S2C8Avx)                                                                                        \
  X(kAVX, kAVX, Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1, kBitExact, Max, C8HW8, 3, 3, 2, 2,                 \
    kMaxPool3x3S2C8Avx)                                                                                        \
  X(kAVX, kAVX, Pooling2D_Avg_K4x4_S4x4_AVX_C8HW8_Float_M1, kBitExact, Avg, C8HW8, 4, 4, 4, 4,                 \
    kAvgPool4x4S4C8Avx)
// clang-format on

namespace zelva {
namespace kernel {
ZV_POOLING_MEMBERS(ZV_DEFINE_POOLING_MEMBER)
}  // namespace kernel
}  // namespace zelva
