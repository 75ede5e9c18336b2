// The AVX group: 256-bit vector kernels, registered whatever the processor offers (the configuration decides
// whether they run). Each family's member list is included here and expanded with ZV_REGISTER_MEMBER.
#include "zelva/src/kernel/cpu/avx/activation/members.h"
#include "zelva/src/kernel/cpu/avx/elementwise/members.h"
#include "zelva/src/kernel/family/fullconnection/members.h"
#include "zelva/src/kernel/registry/registry.h"

// The family lists (family/<family>/members.h) carry the instruction set as their second column.
#define ZV_REGISTER_FAMILY_ROW(group, isa, cls, ...) ZV_REGISTER_MEMBER(group, cls, isa)

namespace zelva {
namespace kernel {

void RegisterAVXKernels(KernelRegistry& registry) {
  constexpr KernelGroup kGroup = KernelGroup::kAVX;
  (void)kGroup;
  (void)registry;
  ZV_FULLCONNECTION_MEMBERS(ZV_REGISTER_FAMILY_ROW)
  ZV_AVX_ACTIVATION_MEMBERS(ZV_REGISTER_MEMBER)
  ZV_AVX_ELEMENTWISE_MEMBERS(ZV_REGISTER_MEMBER)
}

}  // namespace kernel
}  // namespace zelva

#undef ZV_REGISTER_FAMILY_ROW
