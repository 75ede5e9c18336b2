// The columns every family's member list shares. Each family keeps one list across all instruction sets, an
// X-macro in its family folder (zelva/src/kernel/family/<family>/members.h), one row per registered name:
//
//   X(group, isa, ClassName, accuracy, family-specific columns...)
//
// group is the registration group, isa the instruction set the processor must offer to run the member,
// accuracy its class against the family's scalar reference. Registration reads group and name, the family
// tester and benchmark read every column. Adding a member is one row there and one core.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

// The five registration groups, in the denoise engine's order.
enum class KernelGroup {
  kBase,
  kFallback,
  kSGEMM,
  kSSE,
  kAVX,
};

// What the processor must offer for a member to run. kScalar needs nothing beyond x86-64.
enum class Isa : uint8_t {
  kScalar,
  kSSE,
  kAVX,
};

// How close a member's output is to its family's reference: bit for bit (max_abs = max_rel = 0), or within
// max_abs + max_rel * |reference| at every element. A bound is measured against an independent reference
// (libm in double, or PyTorch) and held by the family's tester.
struct Accuracy {
  float max_abs;
  float max_rel;
  constexpr bool BitExact() const { return max_abs == 0.0f && max_rel == 0.0f; }
};

constexpr Accuracy kBitExact{0.0f, 0.0f};
constexpr Accuracy Within(float max_abs, float max_rel) {
  return Accuracy{max_abs, max_rel};
}

}  // namespace kernel
}  // namespace zelva
