// The base group: the kernels every net can rely on.
#include "zelva/src/kernel/family/batchnorm/members.h"
#include "zelva/src/kernel/family/input/members.h"
#include "zelva/src/kernel/family/transform/members.h"
#include "zelva/src/kernel/registry/registry.h"

// The family lists that lead with (group, isa, class, ...) register through this adapter.
#define ZV_REGISTER_FAMILY_MEMBER(group, isa, cls, ...) ZV_REGISTER_MEMBER(group, cls, isa)

namespace zelva {
namespace kernel {

void RegisterBaseKernels(KernelRegistry& registry) {
  constexpr KernelGroup kGroup = KernelGroup::kBase;
  ZV_INPUT_MEMBERS(ZV_REGISTER_FAMILY_MEMBER)
  ZV_BATCHNORM_MEMBERS(ZV_REGISTER_FAMILY_MEMBER)
  ZV_TRANSFORM_MEMBERS(ZV_REGISTER_FAMILY_MEMBER)
}

}  // namespace kernel
}  // namespace zelva
