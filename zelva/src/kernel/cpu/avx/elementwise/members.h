// Members of the AVX elementwise and broadcast family: X(group, class, kind, operation, core). The list
// also declares the classes (ElementwiseKernel and ChannelMulKernel instances) below; the cores are compiled
// in their own AVX unit.
#pragma once

#include "zelva/src/kernel/cpu/avx/elementwise/elementwise_core_avx.h"
#include "zelva/src/kernel/cpu/fallback/elementwise/elementwise_kernel.h"

// clang-format off
#define ZV_AVX_ELEMENTWISE_MEMBERS(X)                                                                      \
  X(kAVX, BroadcastOperator_C4114_Mul_C4HW4_AVX_Float_M1, kChannelBlock4, kOpMul, BroadcastMulC4HW4AVX)    \
  X(kAVX, BroadcastOperator_C8118_Mul_C8HW8_AVX_Float_M1, kChannelBlock8, kOpMul, BroadcastMulC8HW8AVX)    \
  X(kAVX, Elementwise_Add_AVX_Float_M1, kSameShape, kOpAdd, ElementwiseAddAVX)                             \
  X(kAVX, Elementwise_Sub_AVX_Float_M1, kSameShape, kOpSub, ElementwiseSubAVX)                             \
  X(kAVX, Elementwise_Mul_AVX_Float_M1, kSameShape, kOpMul, ElementwiseMulAVX)                             \
  X(kAVX, Elementwise_Div_AVX_Float_M1, kSameShape, kOpDiv, ElementwiseDivAVX)                             \
  X(kAVX, Elementwise_Max_AVX_Float_M1, kSameShape, kOpMax, ElementwiseMaxAVX)                             \
  X(kAVX, Elementwise_Min_AVX_Float_M1, kSameShape, kOpMin, ElementwiseMinAVX)
// clang-format on

ZV_AVX_ELEMENTWISE_MEMBERS(ZV_DECLARE_ELEMENTWISE_MEMBER)
