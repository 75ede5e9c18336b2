// The base group: the kernels every net can rely on.
#include "zelva/src/kernel/family/batchnorm/members.h"
#include "zelva/src/kernel/family/input/members.h"
#include "zelva/src/kernel/family/transform/members.h"
#include "zelva/src/kernel/registry/registry.h"

namespace zelva {
namespace kernel {

void RegisterBaseKernels(KernelRegistry& registry) {
  constexpr KernelGroup kGroup = KernelGroup::kBase;
  ZV_INPUT_MEMBERS(ZV_REGISTER_ROW)
  ZV_BATCHNORM_MEMBERS(ZV_REGISTER_ROW)
  ZV_TRANSFORM_MEMBERS(ZV_REGISTER_ROW)
}

}  // namespace kernel
}  // namespace zelva
