// The Fallback group: plain scalar kernels, the last resort of each layer type. Each family's member list
// is included here and expanded with ZV_REGISTER_MEMBER; members of other groups in a list are skipped.
#include "zelva/src/kernel/cpu/fallback/activation/members.h"
#include "zelva/src/kernel/cpu/fallback/elementwise/members.h"
#include "zelva/src/kernel/family/batchnorm/members.h"
#include "zelva/src/kernel/family/conv2d/members.h"
#include "zelva/src/kernel/family/input/members.h"
#include "zelva/src/kernel/family/transform/members.h"
#include "zelva/src/kernel/registry/registry.h"

// The family lists that lead with (group, isa, class, ...) register through this adapter.
#define ZV_REGISTER_FAMILY_MEMBER(group, isa, cls, ...) ZV_REGISTER_MEMBER(group, cls, isa)

namespace zelva {
namespace kernel {

void RegisterFallbackKernels(KernelRegistry& registry) {
  constexpr KernelGroup kGroup = KernelGroup::kFallback;
  ZV_INPUT_MEMBERS(ZV_REGISTER_FAMILY_MEMBER)
  ZV_BATCHNORM_MEMBERS(ZV_REGISTER_FAMILY_MEMBER)
  ZV_TRANSFORM_MEMBERS(ZV_REGISTER_FAMILY_MEMBER)
  ZV_CONV2D_MEMBERS(ZV_REGISTER_FAMILY_MEMBER)
  ZV_FALLBACK_ACTIVATION_MEMBERS(ZV_REGISTER_MEMBER)
  ZV_FALLBACK_ELEMENTWISE_MEMBERS(ZV_REGISTER_MEMBER)
}

}  // namespace kernel
}  // namespace zelva
