// The SGEMM group: kernels built on the single-precision matrix product. Each family's member list is
// included here and expanded with ZV_REGISTER_ROW.
#include "zelva/src/kernel/family/conv2d/members.h"
#include "zelva/src/kernel/registry/registry.h"

namespace zelva {
namespace kernel {

void RegisterSGEMMKernels(KernelRegistry& registry) {
  constexpr KernelGroup kGroup = KernelGroup::kSGEMM;
  (void)kGroup;
  (void)registry;
  ZV_CONV2D_MEMBERS(ZV_REGISTER_ROW)
}

}  // namespace kernel
}  // namespace zelva
