// The SGEMM group: kernels built on the single-precision matrix product.
// Its members are the rows of this group in the family member lists.
#include "zelva/src/kernel/family/members.h"
#include "zelva/src/kernel/registry/registry.h"

namespace zelva {
namespace kernel {

void RegisterSGEMMKernels(KernelRegistry& registry) {
  constexpr KernelGroup kGroup = KernelGroup::kSGEMM;
  ZV_ALL_MEMBERS(ZV_REGISTER_ROW)
}

}  // namespace kernel
}  // namespace zelva
