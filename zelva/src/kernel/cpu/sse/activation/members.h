// Members of the SSE activation family: X(group, class, activation code, core, placement). The list also
// declares the classes (ActivationKernel instances) below.
#pragma once

#include "zelva/src/kernel/cpu/sse/activation/activation_core.h"
#include "zelva/src/kernel/cpu/sse/activation/activation_kernel.h"

// clang-format off
#define ZV_SSE_ACTIVATION_MEMBERS(X)                                                    \
  X(kSSE, ReLU_SSE_Float_M1,             kActReLU,     ReluSSE,     kOutOfPlace)        \
  X(kSSE, ReLU6_SSE_Float_M1,            kActReLU6,    Relu6SSE,    kOutOfPlace)        \
  X(kSSE, Sigmoid_SSE_Float_M1,          kActSigmoid,  SigmoidSSE,  kOutOfPlace)        \
  X(kSSE, HSigmoid_SSE_Float_M1,         kActHSigmoid, HSigmoidSSE, kOutOfPlace)        \
  X(kSSE, HSwish_SSE_Float_M1,           kActHSwish,   HSwishSSE,   kOutOfPlace)        \
  X(kSSE, TanH_SSE_Float_M1,             kActTanH,     TanHSSE,     kOutOfPlace)        \
  X(kSSE, Leaky_SSE_Float_M1,            kActLeaky,    LeakySSE,    kOutOfPlace)        \
  X(kSSE, PReLU_SSE_Float_M1,            kActPReLU,    LeakySSE,    kOutOfPlace)        \
  X(kSSE, HSigmoid_Inplace_SSE_Float_M1, kActHSigmoid, HSigmoidSSE, kInplace)           \
  X(kSSE, ReLU_Inplace_SSE_Float_M1,     kActReLU,     ReluSSE,     kInplace)           \
  X(kSSE, SiLU_SSE_Float_M1,             kActSiLU,     SiLUSSE,     kOutOfPlace)        \
  X(kSSE, Linear_SSE_Float_M1,           kActLinear,   LinearSSE,   kOutOfPlace)
// clang-format on

ZV_SSE_ACTIVATION_MEMBERS(ZV_DECLARE_ACTIVATION_MEMBER)
