// The kernel registry: kernel name -> factory of a new, unconfigured kernel. Not a global: each engine owns
// one map, fills it with the five registration functions in its load step and hands it to net construction.
// Names are compared byte for byte, with case, and are never normalised.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

#include "zelva/src/kernel/frame/member.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

using KernelFactory = std::function<std::shared_ptr<runtime::IKernel>()>;
using KernelRegistry = std::unordered_map<std::string, KernelFactory>;

// Inserts `factory` under `name` unless the name is present already: the first registration of a name wins
// and later ones are silently dropped. `force` replaces an existing entry; no registration uses it.
void RegisterKernel(KernelRegistry& registry, const std::string& name, KernelFactory factory,
                    bool force = false);

// A new kernel made by the factory of `name`, or null when the name is not registered. Each call makes a new
// object. A miss does not insert into the map.
std::shared_ptr<runtime::IKernel> LookupKernel(const KernelRegistry& registry, const std::string& name);

// The factory of a kernel class: a plain new of its argument-less constructor, no state.
template <class K>
std::shared_ptr<runtime::IKernel> NewKernel() {
  return std::shared_ptr<runtime::IKernel>(new K());
}

// The five registration groups. The denoise engine calls them in the order base, Fallback, SGEMM, SSE, AVX;
// the VAD engine base, Fallback, SSE, AVX, SGEMM. Apart from Input_Fallback_M1 (base and Fallback) the
// groups are disjoint, so the order decides nothing.
void RegisterBaseKernels(KernelRegistry& registry);
void RegisterFallbackKernels(KernelRegistry& registry);
void RegisterSGEMMKernels(KernelRegistry& registry);
void RegisterSSEKernels(KernelRegistry& registry);
void RegisterAVXKernels(KernelRegistry& registry);

}  // namespace kernel
}  // namespace zelva

// For the registration files: expands one row of a family's member list, X(group, isa, class, ...), into its
// registration when the member belongs to the group `kGroup` in scope. Use:
// ZV_<FAMILY>_MEMBERS(ZV_REGISTER_ROW)
#define ZV_REGISTER_ROW(group, isa, cls, ...)                                          \
  if (::zelva::kernel::KernelGroup::group == kGroup) {                                 \
    ::zelva::kernel::RegisterKernel(registry, #cls, &::zelva::kernel::NewKernel<cls>); \
  }
