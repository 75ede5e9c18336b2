// The base group: the kernels every net can rely on.
// Its members are the rows of this group in the family member lists.
#include "zelva/src/kernel/family/members.h"
#include "zelva/src/kernel/registry/registry.h"

namespace zelva {
namespace kernel {

void RegisterBaseKernels(KernelRegistry& registry) {
  constexpr KernelGroup kGroup = KernelGroup::kBase;
  ZV_ALL_MEMBERS(ZV_REGISTER_ROW)
}

}  // namespace kernel
}  // namespace zelva
