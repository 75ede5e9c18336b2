// The SSE group: 128-bit vector kernels. Each family's member list is included here and expanded with
// ZV_REGISTER_MEMBER.
#include "zelva/src/kernel/cpu/sse/activation/members.h"
#include "zelva/src/kernel/cpu/sse/elementwise/members.h"
#include "zelva/src/kernel/cpu/sse/fullconnection/members.h"
#include "zelva/src/kernel/cpu/sse/rnn/members.h"
#include "zelva/src/kernel/family/conv2d/members.h"
#include "zelva/src/kernel/family/depthwise/members.h"
#include "zelva/src/kernel/registry/registry.h"

// The family lists that lead with (group, isa, class, ...) register through this adapter.
#define ZV_REGISTER_FAMILY_MEMBER(group, isa, cls, ...) ZV_REGISTER_MEMBER(group, cls, isa)

namespace zelva {
namespace kernel {

void RegisterSSEKernels(KernelRegistry& registry) {
  constexpr KernelGroup kGroup = KernelGroup::kSSE;
  (void)kGroup;
  (void)registry;
  ZV_SSE_FULLCONNECTION_MEMBERS(ZV_REGISTER_MEMBER)
  ZV_SSE_RNN_MEMBERS(ZV_REGISTER_MEMBER)
  ZV_CONV2D_MEMBERS(ZV_REGISTER_FAMILY_MEMBER)
  ZV_DEPTHWISE_MEMBERS(ZV_REGISTER_FAMILY_MEMBER)
  ZV_SSE_ELEMENTWISE_MEMBERS(ZV_REGISTER_MEMBER)
  ZV_SSE_ACTIVATION_MEMBERS(ZV_REGISTER_MEMBER)
}

}  // namespace kernel
}  // namespace zelva
