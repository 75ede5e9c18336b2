#include "zelva/src/kernel/registry/registry.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "support/probe_kernel.h"
#include "zelva/src/kernel/family/members.h"

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

// The base group holds exactly its three rows; the input kernel stands in the base and the Fallback group,
// and the second registration changes nothing.
TEST(RegistryTest, BaseGroupAndSharedInputKernel) {
  KernelRegistry base, fallback;
  RegisterBaseKernels(base);
  RegisterFallbackKernels(fallback);
  EXPECT_EQ(base.size(), 3u);
  KernelRegistry both = base;
  RegisterFallbackKernels(both);
  EXPECT_EQ(both.size(), base.size() + fallback.size() - 1);
}

TEST(RegistryTest, EveryKernelIsNamedAsItsKey) {
  // Only the recurrent sequence kernels keep state; even unconfigured they answer 0.
  std::set<std::string> stateful;
#define ZV_SEQUENCE(group, isa, cls, accuracy, shape, ...) \
  if (RecurrentShape::shape == RecurrentShape::kSequence) stateful.insert(#cls);
  ZV_RNN_MEMBERS(ZV_SEQUENCE)
#undef ZV_SEQUENCE
  const KernelRegistry registry = AllGroups();
  for (const auto& entry : registry) {
    auto kernel = entry.second();
    ASSERT_NE(kernel, nullptr) << entry.first;
    EXPECT_EQ(kernel->GetName(), entry.first);
    EXPECT_FALSE(kernel->IsConfigured()) << entry.first;
    EXPECT_EQ(kernel->ResetState(),
              stateful.count(entry.first) ? runtime::kKernelOk : runtime::kKernelNoState)
        << entry.first;
  }
}

// Every row of every family's member list stands in its own group under its name, and every registered
// name is a row: so each family's tester, which runs every row of its list, runs every registered kernel.
TEST(RegistryTest, RegisteredNamesAreExactlyTheMemberListRows) {
  struct Row {
    KernelGroup group;
    const char* name;
  };
#define ZV_ROW(group, isa, cls, ...) Row{KernelGroup::group, #cls},
  const std::vector<Row> rows = {ZV_ALL_MEMBERS(ZV_ROW)};
#undef ZV_ROW
  void (*const groups[])(KernelRegistry&) = {RegisterBaseKernels, RegisterFallbackKernels,
                                             RegisterSGEMMKernels, RegisterSSEKernels, RegisterAVXKernels};
  for (const Row& row : rows) {
    KernelRegistry registry;
    groups[static_cast<int>(row.group)](registry);
    auto kernel = LookupKernel(registry, row.name);
    ASSERT_NE(kernel, nullptr) << row.name;
    EXPECT_EQ(kernel->GetName(), row.name);
  }
  std::set<std::string> names;
  for (const Row& row : rows) names.insert(row.name);
  const KernelRegistry all = AllGroups();
  EXPECT_EQ(all.size(), 187u);
  for (const auto& entry : all)
    EXPECT_EQ(names.count(entry.first), 1u) << entry.first << " is no member list row";
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
