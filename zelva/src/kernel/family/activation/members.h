// The activation family's members, every instruction set, one row per registered name:
//   X(group, isa, class, accuracy, activation code, core, placement)
// The list declares the classes below; registration, the family tester and the benchmark read it.
//
// Accuracy is against the family reference (reference.h): bit for bit for the exact members (finite input;
// NaN handling follows the vector instructions in a body and may differ in a rest), and within a bound
// against the exact function in double for the members whose body approximates the exponential.
#pragma once

#include "zelva/src/kernel/family/activation/activation.h"
#include "zelva/src/kernel/frame/member.h"

namespace zelva {
namespace kernel {

// Bounds of the approximating members against the function in double (libm), measured over a million
// points of [-20, 20] (worst seen in brackets) and held by the tester. The bit-trick exponential has a few
// percent of relative error: sigmoid (0.0101 absolute), tanh (0.0402 absolute; not 0 at 0), SiLU (4.1%
// relative). The AVX polynomial exponential is accurate to a few units in the last place (8.9e-8 absolute).
constexpr Accuracy kFastSigmoidBound = Within(0.011f, 0.0f);
constexpr Accuracy kFastTanhBound = Within(0.041f, 0.0f);
constexpr Accuracy kFastSiluBound = Within(1e-6f, 0.042f);
constexpr Accuracy kPolySigmoidBound = Within(1e-7f, 2e-7f);

}  // namespace kernel
}  // namespace zelva

// clang-format off
#define ZV_ACTIVATION_MEMBERS(X)                                                                                      \
  X(kFallback, kScalar, Linear_Fallback_Float_M1,      kBitExact,          kActLinear,   LinearFallback, kOutOfPlace) \
  X(kSSE,      kSSE,    ReLU_SSE_Float_M1,             kBitExact,          kActReLU,     ReluSSE,        kOutOfPlace) \
  X(kSSE,      kSSE,    ReLU6_SSE_Float_M1,            kBitExact,          kActReLU6,    Relu6SSE,       kOutOfPlace) \
  X(kSSE,      kSSE,    Sigmoid_SSE_Float_M1,          kFastSigmoidBound,  kActSigmoid,  SigmoidSSE,     kOutOfPlace) \
  X(kSSE,      kSSE,    HSigmoid_SSE_Float_M1,         kBitExact,          kActHSigmoid, HSigmoidSSE,    kOutOfPlace) \
  X(kSSE,      kSSE,    HSwish_SSE_Float_M1,           kBitExact,          kActHSwish,   HSwishSSE,      kOutOfPlace) \
  X(kSSE,      kSSE,    TanH_SSE_Float_M1,             kFastTanhBound,     kActTanH,     TanHSSE,        kOutOfPlace) \
  X(kSSE,      kSSE,    Leaky_SSE_Float_M1,            kBitExact,          kActLeaky,    LeakySSE,       kOutOfPlace) \
  X(kSSE,      kSSE,    PReLU_SSE_Float_M1,            kBitExact,          kActPReLU,    LeakySSE,       kOutOfPlace) \
  X(kSSE,      kSSE,    HSigmoid_Inplace_SSE_Float_M1, kBitExact,          kActHSigmoid, HSigmoidSSE,    kInplace)    \
  X(kSSE,      kSSE,    ReLU_Inplace_SSE_Float_M1,     kBitExact,          kActReLU,     ReluSSE,        kInplace)    \
  X(kSSE,      kSSE,    SiLU_SSE_Float_M1,             kFastSiluBound,     kActSiLU,     SiLUSSE,        kOutOfPlace) \
  X(kSSE,      kSSE,    Linear_SSE_Float_M1,           kBitExact,          kActLinear,   LinearSSE,      kOutOfPlace) \
  X(kAVX,      kAVX,    ReLU_AVX_Float_M1,             kBitExact,          kActReLU,     ReluAVX,        kOutOfPlace) \
  X(kAVX,      kAVX,    ReLU6_AVX_Float_M1,            kBitExact,          kActReLU6,    Relu6AVX,       kOutOfPlace) \
  X(kAVX,      kAVX,    Sigmoid_AVX_Float_M1,          kPolySigmoidBound,  kActSigmoid,  SigmoidAVX,     kOutOfPlace) \
  X(kAVX,      kAVX,    HSwish_AVX_Float_M1,           kBitExact,          kActHSwish,   HSwishAVX,      kOutOfPlace) \
  X(kAVX,      kAVX,    Leaky_AVX_Float_M1,            kBitExact,          kActLeaky,    LeakyAVX,       kOutOfPlace) \
  X(kAVX,      kAVX,    PReLU_AVX_Float_M1,            kBitExact,          kActPReLU,    LeakyAVX,       kOutOfPlace)
// clang-format on

ZV_ACTIVATION_MEMBERS(ZV_DECLARE_ACTIVATION_MEMBER)
