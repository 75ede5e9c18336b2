// Members of the AVX activation family: X(group, class, activation code, core, placement). The list also
// declares the classes (ActivationKernel instances) below; the cores are compiled in their own AVX unit.
#pragma once

#include "zelva/src/kernel/cpu/avx/activation/activation_core_avx.h"
#include "zelva/src/kernel/cpu/sse/activation/activation_kernel.h"

// clang-format off
#define ZV_AVX_ACTIVATION_MEMBERS(X)                                          \
  X(kAVX, ReLU_AVX_Float_M1,    kActReLU,    ReluAVX,    kOutOfPlace)         \
  X(kAVX, ReLU6_AVX_Float_M1,   kActReLU6,   Relu6AVX,   kOutOfPlace)         \
  X(kAVX, Sigmoid_AVX_Float_M1, kActSigmoid, SigmoidAVX, kOutOfPlace)         \
  X(kAVX, HSwish_AVX_Float_M1,  kActHSwish,  HSwishAVX,  kOutOfPlace)         \
  X(kAVX, Leaky_AVX_Float_M1,   kActLeaky,   LeakyAVX,   kOutOfPlace)         \
  X(kAVX, PReLU_AVX_Float_M1,   kActPReLU,   LeakyAVX,   kOutOfPlace)
// clang-format on

ZV_AVX_ACTIVATION_MEMBERS(ZV_DECLARE_ACTIVATION_MEMBER)
