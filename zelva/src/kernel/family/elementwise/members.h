// The elementwise and broadcast family's members, every instruction set, one row per registered name:
//   X(group, isa, class, accuracy, kind, operation code, core)
// The list declares the classes below; registration, the family tester and the benchmark read it. Every
// member is bit for bit the family reference (reference.h): each output is one IEEE operation.
#pragma once

#include "zelva/src/kernel/family/elementwise/elementwise.h"
#include "zelva/src/kernel/frame/member.h"

// clang-format off
#define ZV_ELEMENTWISE_MEMBERS(X)                                                                                              \
  X(kFallback, kScalar, Elementwise_Fallback_Float_M1,                  kBitExact, kByName,        kOpAdd, nullptr)              \
  X(kFallback, kScalar, BroadcastOperator_Fallback_Float_M1,            kBitExact, kAnyRank,       kOpAdd, nullptr)              \
  X(kSSE,      kSSE,    Elementwise_Add_SSE_Float_M1,                   kBitExact, kSameShape,     kOpAdd, &ElementwiseAddSSE)   \
  X(kSSE,      kSSE,    Elementwise_Sub_SSE_Float_M1,                   kBitExact, kSameShape,     kOpSub, &ElementwiseSubSSE)   \
  X(kSSE,      kSSE,    Elementwise_Mul_SSE_Float_M1,                   kBitExact, kSameShape,     kOpMul, &ElementwiseMulSSE)   \
  X(kSSE,      kSSE,    Elementwise_Div_SSE_Float_M1,                   kBitExact, kSameShape,     kOpDiv, &ElementwiseDivSSE)   \
  X(kSSE,      kSSE,    Elementwise_Max_SSE_Float_M1,                   kBitExact, kSameShape,     kOpMax, &ElementwiseMaxSSE)   \
  X(kSSE,      kSSE,    Elementwise_Min_SSE_Float_M1,                   kBitExact, kSameShape,     kOpMin, &ElementwiseMinSSE)   \
  X(kAVX,      kAVX,    BroadcastOperator_C4114_Mul_C4HW4_AVX_Float_M1, kBitExact, kChannelBlock4, kOpMul, &BroadcastMulC4HW4AVX) \
  X(kAVX,      kAVX,    BroadcastOperator_C8118_Mul_C8HW8_AVX_Float_M1, kBitExact, kChannelBlock8, kOpMul, &BroadcastMulC8HW8AVX) \
  X(kAVX,      kAVX,    Elementwise_Add_AVX_Float_M1,                   kBitExact, kSameShape,     kOpAdd, &ElementwiseAddAVX)   \
  X(kAVX,      kAVX,    Elementwise_Sub_AVX_Float_M1,                   kBitExact, kSameShape,     kOpSub, &ElementwiseSubAVX)   \
  X(kAVX,      kAVX,    Elementwise_Mul_AVX_Float_M1,                   kBitExact, kSameShape,     kOpMul, &ElementwiseMulAVX)   \
  X(kAVX,      kAVX,    Elementwise_Div_AVX_Float_M1,                   kBitExact, kSameShape,     kOpDiv, &ElementwiseDivAVX)   \
  X(kAVX,      kAVX,    Elementwise_Max_AVX_Float_M1,                   kBitExact, kSameShape,     kOpMax, &ElementwiseMaxAVX)   \
  X(kAVX,      kAVX,    Elementwise_Min_AVX_Float_M1,                   kBitExact, kSameShape,     kOpMin, &ElementwiseMinAVX)
// clang-format on

ZV_ELEMENTWISE_MEMBERS(ZV_DECLARE_ELEMENTWISE_MEMBER)
