// The SGEMM group: kernels built on the single-precision matrix product. Each family's member list is
// included here and expanded with ZV_REGISTER_MEMBER.
#include "zelva/src/kernel/family/conv2d/members.h"
#include "zelva/src/kernel/registry/registry.h"

// The family lists that lead with (group, isa, class, ...) register through this adapter.
#define ZV_REGISTER_FAMILY_MEMBER(group, isa, cls, ...) ZV_REGISTER_MEMBER(group, cls, isa)

namespace zelva {
namespace kernel {

void RegisterSGEMMKernels(KernelRegistry& registry) {
  constexpr KernelGroup kGroup = KernelGroup::kSGEMM;
  (void)kGroup;
  (void)registry;
  ZV_CONV2D_MEMBERS(ZV_REGISTER_FAMILY_MEMBER)
}

}  // namespace kernel
}  // namespace zelva
