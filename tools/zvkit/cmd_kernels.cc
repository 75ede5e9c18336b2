// zvkit kernels: the registered kernel names, by registration group, as an engine's registry holds them.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "tools/zvkit/zvkit.h"
#include "zelva/src/kernel/registry/registry.h"

namespace zvkit {

int CmdKernels(const std::vector<std::string>& args) {
  if (!args.empty()) {
    std::fprintf(stderr, "zvkit kernels: unexpected argument '%s' (see zvkit kernels --help)\n",
                 args[0].c_str());
    return 2;
  }
  using zelva::kernel::KernelRegistry;
  struct Group {
    const char* name;
    void (*fill)(KernelRegistry&);
  };
  const Group groups[] = {{"base", zelva::kernel::RegisterBaseKernels},
                          {"Fallback", zelva::kernel::RegisterFallbackKernels},
                          {"SGEMM", zelva::kernel::RegisterSGEMMKernels},
                          {"SSE", zelva::kernel::RegisterSSEKernels},
                          {"AVX", zelva::kernel::RegisterAVXKernels}};
  KernelRegistry all;
  for (const Group& g : groups) {
    KernelRegistry one;
    g.fill(one);
    g.fill(all);
    std::vector<std::string> names;
    for (const auto& entry : one) names.push_back(entry.first);
    std::sort(names.begin(), names.end());
    std::printf("%s (%zu)\n", g.name, names.size());
    for (const auto& n : names) std::printf("  %s\n", n.c_str());
  }
  std::printf("%zu distinct names\n", all.size());
  return 0;
}

}  // namespace zvkit
