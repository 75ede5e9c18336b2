// Members of the SSE elementwise family: X(group, class, kind, operation, core). The list also declares
// the classes (ElementwiseKernel instances) below.
#pragma once

#include "zelva/src/kernel/cpu/fallback/elementwise/elementwise_kernel.h"
#include "zelva/src/kernel/cpu/sse/elementwise/elementwise_core.h"

// clang-format off
#define ZV_SSE_ELEMENTWISE_MEMBERS(X)                                             \
  X(kSSE, Elementwise_Add_SSE_Float_M1, kSameShape, kOpAdd, ElementwiseAddSSE)    \
  X(kSSE, Elementwise_Sub_SSE_Float_M1, kSameShape, kOpSub, ElementwiseSubSSE)    \
  X(kSSE, Elementwise_Mul_SSE_Float_M1, kSameShape, kOpMul, ElementwiseMulSSE)    \
  X(kSSE, Elementwise_Div_SSE_Float_M1, kSameShape, kOpDiv, ElementwiseDivSSE)    \
  X(kSSE, Elementwise_Max_SSE_Float_M1, kSameShape, kOpMax, ElementwiseMaxSSE)    \
  X(kSSE, Elementwise_Min_SSE_Float_M1, kSameShape, kOpMin, ElementwiseMinSSE)
// clang-format on

ZV_SSE_ELEMENTWISE_MEMBERS(ZV_DECLARE_ELEMENTWISE_MEMBER)
