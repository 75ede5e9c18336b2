// The SSE group: 128-bit vector kernels.
// Its members are the rows of this group in the family member lists.
#include "zelva/src/kernel/family/members.h"
#include "zelva/src/kernel/registry/registry.h"

namespace zelva {
namespace kernel {

void RegisterSSEKernels(KernelRegistry& registry) {
  constexpr KernelGroup kGroup = KernelGroup::kSSE;
  ZV_ALL_MEMBERS(ZV_REGISTER_ROW)
}

}  // namespace kernel
}  // namespace zelva
