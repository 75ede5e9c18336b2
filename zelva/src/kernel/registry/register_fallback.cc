// The Fallback group: plain scalar kernels, the last resort of each layer type. Each family's member list
// is included here and expanded with ZV_REGISTER_MEMBER; members of other groups in a list are skipped.
#include "zelva/src/kernel/cpu/fallback/batchnorm/members.h"
#include "zelva/src/kernel/cpu/fallback/conv2d/members.h"
#include "zelva/src/kernel/cpu/fallback/input/members.h"
#include "zelva/src/kernel/cpu/fallback/transform/members.h"
#include "zelva/src/kernel/family/activation/members.h"
#include "zelva/src/kernel/family/elementwise/members.h"
#include "zelva/src/kernel/registry/registry.h"

namespace zelva {
namespace kernel {

void RegisterFallbackKernels(KernelRegistry& registry) {
  constexpr KernelGroup kGroup = KernelGroup::kFallback;
  ZV_FALLBACK_INPUT_MEMBERS(ZV_REGISTER_MEMBER)
  ZV_FALLBACK_BATCHNORM_MEMBERS(ZV_REGISTER_MEMBER)
  ZV_FALLBACK_TRANSFORM_MEMBERS(ZV_REGISTER_MEMBER)
  ZV_FALLBACK_CONV2D_MEMBERS(ZV_REGISTER_MEMBER)
  ZV_ACTIVATION_MEMBERS(ZV_REGISTER_ROW)
  ZV_ELEMENTWISE_MEMBERS(ZV_REGISTER_ROW)
}

}  // namespace kernel
}  // namespace zelva
