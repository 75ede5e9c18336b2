// The Fallback group: plain scalar kernels, the last resort of each layer type. Each family's member list
// is included here and expanded with ZV_REGISTER_ROW; rows of other groups are skipped.
#include "zelva/src/kernel/family/activation/members.h"
#include "zelva/src/kernel/family/batchnorm/members.h"
#include "zelva/src/kernel/family/conv2d/members.h"
#include "zelva/src/kernel/family/elementwise/members.h"
#include "zelva/src/kernel/family/input/members.h"
#include "zelva/src/kernel/family/transform/members.h"
#include "zelva/src/kernel/registry/registry.h"

namespace zelva {
namespace kernel {

void RegisterFallbackKernels(KernelRegistry& registry) {
  constexpr KernelGroup kGroup = KernelGroup::kFallback;
  ZV_INPUT_MEMBERS(ZV_REGISTER_ROW)
  ZV_BATCHNORM_MEMBERS(ZV_REGISTER_ROW)
  ZV_TRANSFORM_MEMBERS(ZV_REGISTER_ROW)
  ZV_CONV2D_MEMBERS(ZV_REGISTER_ROW)
  ZV_ACTIVATION_MEMBERS(ZV_REGISTER_ROW)
  ZV_ELEMENTWISE_MEMBERS(ZV_REGISTER_ROW)
}

}  // namespace kernel
}  // namespace zelva
