// The SGEMM group: kernels built on the single-precision matrix product. Each family's member list is
// included here and expanded with ZV_REGISTER_MEMBER.
#include "zelva/src/kernel/cpu/sgemm/conv2d/members.h"
#include "zelva/src/kernel/registry/registry.h"

namespace zelva {
namespace kernel {

void RegisterSGEMMKernels(KernelRegistry& registry) {
  constexpr KernelGroup kGroup = KernelGroup::kSGEMM;
  (void)kGroup;
  (void)registry;
  ZV_SGEMM_CONV2D_MEMBERS(ZV_REGISTER_MEMBER)
}

}  // namespace kernel
}  // namespace zelva
