// The SSE group: 128-bit vector kernels. Each family's member list is included here and expanded with
// ZV_REGISTER_MEMBER.
#include "zelva/src/kernel/cpu/sse/activation/members.h"
#include "zelva/src/kernel/cpu/sse/conv2d/members.h"
#include "zelva/src/kernel/cpu/sse/depthwise/members.h"
#include "zelva/src/kernel/cpu/sse/elementwise/members.h"
#include "zelva/src/kernel/family/fullconnection/members.h"
#include "zelva/src/kernel/family/rnn/members.h"
#include "zelva/src/kernel/registry/registry.h"

// The family lists (family/<family>/members.h) carry the instruction set as their second column.
#define ZV_REGISTER_FAMILY_ROW(group, isa, cls, ...) ZV_REGISTER_MEMBER(group, cls, isa)

namespace zelva {
namespace kernel {

void RegisterSSEKernels(KernelRegistry& registry) {
  constexpr KernelGroup kGroup = KernelGroup::kSSE;
  (void)kGroup;
  (void)registry;
  ZV_FULLCONNECTION_MEMBERS(ZV_REGISTER_FAMILY_ROW)
  ZV_RNN_MEMBERS(ZV_REGISTER_FAMILY_ROW)
  ZV_SSE_CONV2D_MEMBERS(ZV_REGISTER_MEMBER)
  ZV_SSE_DEPTHWISE_MEMBERS(ZV_REGISTER_MEMBER)
  ZV_SSE_ELEMENTWISE_MEMBERS(ZV_REGISTER_MEMBER)
  ZV_SSE_ACTIVATION_MEMBERS(ZV_REGISTER_MEMBER)
}

}  // namespace kernel
}  // namespace zelva

#undef ZV_REGISTER_FAMILY_ROW
