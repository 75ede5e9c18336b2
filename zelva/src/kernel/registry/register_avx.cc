// The AVX group: 256-bit vector kernels, registered whatever the processor offers (the configuration decides
// whether they run; kernel creation refuses them on a processor without AVX).
// Its members are the rows of this group in the family member lists.
#include "zelva/src/kernel/family/members.h"
#include "zelva/src/kernel/registry/registry.h"

namespace zelva {
namespace kernel {

void RegisterAVXKernels(KernelRegistry& registry) {
  constexpr KernelGroup kGroup = KernelGroup::kAVX;
  ZV_ALL_MEMBERS(ZV_REGISTER_ROW)
}

}  // namespace kernel
}  // namespace zelva
