// Members of the AVX fully connected family:
// X(group, class, input layout code, input rule, weight order, core).
// No AVX instruction in this header: the cores are declared here and compiled in this folder with AVX.
#pragma once

#include "zelva/src/kernel/cpu/avx/fullconnection/fullconnection_avx_core.h"
#include "zelva/src/kernel/cpu/fallback/fullconnection/fullconnection_kernel.h"

// clang-format off
#define ZV_AVX_FULLCONNECTION_MEMBERS(X) \
  X(kAVX, FullConnection_AVX_C8HW8_Float_M1, ::zelva::runtime::Layout::FLEXIABLE, kFirstDim, kBlock8,   ::zelva::kernel::DenseBlock8AVX) \
  X(kAVX, FullConnection_AVX_C_Float_M1,     ::zelva::kernel::kFcAnyLayout,       kElements, kRows,     ::zelva::kernel::DenseRowsAVX) \
  X(kAVX, FullConnection_AVX_C88_Float_M1,   ::zelva::kernel::kFcAnyLayout,       kElements, kO8I8,     ::zelva::kernel::DenseBlock8AVX) \
  X(kAVX, FullConnection_AVX_C_Float_M2,     ::zelva::runtime::Layout::C,         kFirstDim, kOutRows8, ::zelva::kernel::DenseOutRows8AVX) \
  X(kAVX, FullConnection_AVX_C_Float_M3,     ::zelva::runtime::Layout::C,         kFirstDim, kRows,     ::zelva::kernel::DenseRows841AVX)
// clang-format on

namespace zelva {
namespace kernel {
ZV_AVX_FULLCONNECTION_MEMBERS(ZV_DEFINE_FULLCONNECTION_MEMBER)
}  // namespace kernel
}  // namespace zelva
