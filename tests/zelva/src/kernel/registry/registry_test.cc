#include "zelva/src/kernel/registry/registry.h"

#include <gtest/gtest.h>

#include "support/probe_kernel.h"

namespace zelva {
namespace kernel {
namespace {

KernelRegistry AllGroups() {
  KernelRegistry registry;
  RegisterBaseKernels(registry);
  RegisterFallbackKernels(registry);
  RegisterSGEMMKernels(registry);
  RegisterSSEKernels(registry);
  RegisterAVXKernels(registry);
  return registry;
}

TEST(RegistryTest, FirstRegistrationWinsUnlessForced) {
  KernelRegistry registry;
  RegisterKernel(registry, "K", [] { return std::make_shared<zvtest::ProbeKernel>("first"); });
  RegisterKernel(registry, "K", [] { return std::make_shared<zvtest::ProbeKernel>("second"); });
  EXPECT_EQ(registry.size(), 1u);
  EXPECT_EQ(LookupKernel(registry, "K")->GetName(), "first");
  RegisterKernel(
      registry, "K", [] { return std::make_shared<zvtest::ProbeKernel>("forced"); }, true);
  EXPECT_EQ(LookupKernel(registry, "K")->GetName(), "forced");
}

TEST(RegistryTest, LookupMakesNewUnconfiguredObjectsAndMissesDoNotInsert) {
  KernelRegistry registry = AllGroups();
  const size_t size = registry.size();
  auto a = LookupKernel(registry, "Input_Fallback_M1");
  auto b = LookupKernel(registry, "Input_Fallback_M1");
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  EXPECT_NE(a.get(), b.get());
  EXPECT_FALSE(a->IsConfigured());
  EXPECT_EQ(LookupKernel(registry, "input_fallback_m1"), nullptr);
  EXPECT_EQ(LookupKernel(registry, "Input_Fallback_M1 "), nullptr);
  EXPECT_EQ(registry.size(), size);
}

TEST(RegistryTest, BaseGroupAndSharedInputKernel) {
  KernelRegistry base;
  RegisterBaseKernels(base);
  EXPECT_EQ(base.size(), 3u);
  for (const char* name :
       {"Input_Fallback_M1", "BatchNorm2d_Fallback_Float_M1", "Transform_MainMemory_Reshape_Fallback"})
    EXPECT_EQ(base.count(name), 1u) << name;

  // The input kernel stands in the base and the Fallback group; the second registration changes nothing.
  KernelRegistry fallback;
  RegisterFallbackKernels(fallback);
  EXPECT_EQ(fallback.count("Input_Fallback_M1"), 1u);
  KernelRegistry both = base;
  RegisterFallbackKernels(both);
  EXPECT_EQ(both.size(), base.size() + fallback.size() - 1);
}

TEST(RegistryTest, EveryKernelIsNamedAsItsKey) {
  const KernelRegistry registry = AllGroups();
  for (const auto& entry : registry) {
    auto kernel = entry.second();
    ASSERT_NE(kernel, nullptr) << entry.first;
    EXPECT_EQ(kernel->GetName(), entry.first);
    EXPECT_FALSE(kernel->IsConfigured()) << entry.first;
    // Only the recurrent sequence kernels keep state; even unconfigured they answer 0.
    const bool stateful = entry.first.find("_SC_F32_") != std::string::npos;
    EXPECT_EQ(kernel->ResetState(), stateful ? runtime::kKernelOk : runtime::kKernelNoState) << entry.first;
  }
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
