// The registration groups. Every family's member list tags each member with the group that registers it, so
// that one list feeds the registration, the tester and the benchmark of the family.
//
// A family's list is an X-macro in the family's folder, named ZV_<ISA>_<FAMILY>_MEMBERS(X), with one line per
// member: X(group, ClassName, family-specific parameters...). Registration reads the first two, testers and
// benchmarks the rest. Adding a member is one line there; the group's registration file includes the list.
#pragma once

namespace zelva {
namespace kernel {

enum class KernelGroup {
  kBase,
  kFallback,
  kSGEMM,
  kSSE,
  kAVX,
};

}  // namespace kernel
}  // namespace zelva
