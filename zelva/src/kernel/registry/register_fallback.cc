// The Fallback group: plain scalar kernels, the last resort of each layer type.
// Its members are the rows of this group in the family member lists.
#include "zelva/src/kernel/family/members.h"
#include "zelva/src/kernel/registry/registry.h"

namespace zelva {
namespace kernel {

void RegisterFallbackKernels(KernelRegistry& registry) {
  constexpr KernelGroup kGroup = KernelGroup::kFallback;
  ZV_ALL_MEMBERS(ZV_REGISTER_ROW)
}

}  // namespace kernel
}  // namespace zelva
