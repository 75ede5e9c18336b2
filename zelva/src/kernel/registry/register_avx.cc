// The AVX group: 256-bit vector kernels, registered whatever the processor offers (the configuration decides
// whether they run). Each family's member list is included here and expanded with ZV_REGISTER_ROW, which
// takes the rows of this group.
#include "zelva/src/kernel/family/activation/members.h"
#include "zelva/src/kernel/family/conv2d/members.h"
#include "zelva/src/kernel/family/elementwise/members.h"
#include "zelva/src/kernel/family/fullconnection/members.h"
#include "zelva/src/kernel/registry/registry.h"

namespace zelva {
namespace kernel {

void RegisterAVXKernels(KernelRegistry& registry) {
  constexpr KernelGroup kGroup = KernelGroup::kAVX;
  ZV_FULLCONNECTION_MEMBERS(ZV_REGISTER_ROW)
  ZV_ACTIVATION_MEMBERS(ZV_REGISTER_ROW)
  ZV_ELEMENTWISE_MEMBERS(ZV_REGISTER_ROW)
  ZV_CONV2D_MEMBERS(ZV_REGISTER_ROW)
}

}  // namespace kernel
}  // namespace zelva
