// Members of the SSE fully connected family:
// X(group, class, input layout code, input rule, weight order, core).
#pragma once

#include "zelva/src/kernel/cpu/fallback/fullconnection/fullconnection_kernel.h"
#include "zelva/src/kernel/cpu/sse/fullconnection/fullconnection_sse_core.h"
#include "zelva/src/kernel/functional/gemm.h"

// clang-format off
#define ZV_SSE_FULLCONNECTION_MEMBERS(X) \
  X(kSSE, FullConnection_SSE_BC_Float_M1,    ::zelva::runtime::Layout::BC,        kBatchRows, kRows,   ::zelva::kernel::functional::DenseForward) \
  X(kSSE, FullConnection_SSE_C_Float_M1,     ::zelva::kernel::kFcAnyLayout,       kElements,  kRows,   ::zelva::kernel::functional::DenseForward) \
  X(kSSE, FullConnection_SSE_C4HW4_Float_M1, ::zelva::runtime::Layout::FLEXIABLE, kFirstDim,  kBlock4, ::zelva::kernel::DenseBlock4SSE) \
  X(kSSE, FullConnection_SSE_C44_Float_M1,   ::zelva::runtime::Layout::C,         kFirstDim,  kBlock4, ::zelva::kernel::DenseBlock4SSE)
// clang-format on

namespace zelva {
namespace kernel {
ZV_SSE_FULLCONNECTION_MEMBERS(ZV_DEFINE_FULLCONNECTION_MEMBER)
}  // namespace kernel
}  // namespace zelva
