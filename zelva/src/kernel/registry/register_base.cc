// The base group: the kernels every net can rely on.
#include "zelva/src/kernel/cpu/fallback/batchnorm/members.h"
#include "zelva/src/kernel/cpu/fallback/input/members.h"
#include "zelva/src/kernel/cpu/fallback/transform/members.h"
#include "zelva/src/kernel/registry/registry.h"

namespace zelva {
namespace kernel {

void RegisterBaseKernels(KernelRegistry& registry) {
  constexpr KernelGroup kGroup = KernelGroup::kBase;
  ZV_FALLBACK_INPUT_MEMBERS(ZV_REGISTER_MEMBER)
  ZV_FALLBACK_BATCHNORM_MEMBERS(ZV_REGISTER_MEMBER)
  ZV_FALLBACK_TRANSFORM_MEMBERS(ZV_REGISTER_MEMBER)
}

}  // namespace kernel
}  // namespace zelva
