#include "zelva/src/kernel/registry/registry.h"

#include <utility>

namespace zelva {
namespace kernel {

void RegisterKernel(KernelRegistry& registry, const std::string& name, KernelFactory factory, bool force) {
  auto found = registry.find(name);
  if (found != registry.end()) {
    if (force) found->second = std::move(factory);
    return;
  }
  registry.emplace(name, std::move(factory));
}

std::shared_ptr<runtime::IKernel> LookupKernel(const KernelRegistry& registry, const std::string& name) {
  auto found = registry.find(name);
  if (found == registry.end()) return nullptr;
  return found->second();
}

}  // namespace kernel
}  // namespace zelva
