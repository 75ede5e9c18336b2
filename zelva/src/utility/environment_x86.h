// What the processor says about itself: CPUID leaves and the OS-enabled register state (XCR0), read once
// when the library is loaded. The exported ZV2_CheckIsaAVX / ZV2_CheckIsaSupported (zelva-kit/src/zv2_isa.cc)
// answer from it and log a report of the features on every call.
//
// Nothing in the library chooses a kernel from these answers: they exist for the host. The one use inside is
// a guard: net construction refuses a kernel that needs AVX when AvxUsableForKernels() says no, so that such
// a configuration fails its load instead of faulting on its first apply.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace zelva {
namespace utility {

// One CPUID leaf as read: eax, ebx, ecx, edx.
using CpuidRegisters = std::array<uint32_t, 4>;

// One row of the feature report.
struct IsaFeature {
  const char* name;  // "AVX", "SSE4.1", ...
  bool supported;
};

class EnvironmentX86 {
 public:
  // Executes CPUID for (leaf, subleaf).
  using CpuidReader = std::function<CpuidRegisters(uint32_t leaf, uint32_t subleaf)>;
  // Executes XGETBV for register 0. Called only when the OS has set OSXSAVE.
  using Xcr0Reader = std::function<uint64_t()>;

  // Reads this processor.
  EnvironmentX86();
  // Reads through the given functions instead of the processor (tests, diagnostics). The walk over the
  // leaves is the same as for the real processor.
  EnvironmentX86(const CpuidReader& cpuid, const Xcr0Reader& read_xcr0);

  // The instance filled at library load.
  static const EnvironmentX86& Instance();

  // Logs, at the Info level, "CPU Vendor: ...", "CPU Brand: ..." and one line per feature (see Features()).
  void ReportInstructionSupported() const;

  // The 51 features in report order, vendor-bound rows included.
  std::vector<IsaFeature> Features() const;
  // The report's messages, undecorated, in order: vendor, brand, then "<name> supported|not supported".
  std::vector<std::string> ReportLines() const;

  // The processor has AVX and the OS saves the XMM and YMM state (XCR0 bits 1 and 2).
  bool IsAvxUsable() const;
  // The processor has SSE (leaf 1 EDX bit 25).
  bool IsSseSupported() const;
  // AVX usable and the processor has AVX2 (leaf 7 EBX bit 5).
  bool IsAvx2Usable() const;
  // AVX usable and the processor converts half precision (F16C, leaf 1 ECX bit 29).
  bool IsF16cUsable() const;
  // The processor has AVX-512F (leaf 7 EBX bit 16) and the OS saves the opmask and ZMM state as well (XCR0
  // bits 1, 2, 5, 6 and 7). Unlike the report's row, this looks at XCR0: it answers whether code may run.
  bool IsAvx512fUsable() const;

  int32_t max_standard_leaf = 0;
  uint32_t max_extended_leaf = 0;
  std::string vendor;  // 12 characters: EBX, EDX, ECX of leaf 0
  std::string brand;   // leaves 0x80000002..0x80000004, up to the first zero byte
  bool is_intel = false;
  bool is_amd = false;
  uint32_t leaf1_ecx = 0;
  uint32_t leaf1_edx = 0;
  uint32_t leaf7_ebx = 0;  // subleaf 0
  uint32_t leaf7_ecx = 0;
  uint32_t ext1_ecx = 0;  // leaf 0x80000001
  uint32_t ext1_edx = 0;
  uint32_t xcr0 = 0;                            // low half of XCR0, 0 unless OSXSAVE is set
  std::vector<CpuidRegisters> standard_leaves;  // leaf 0 .. max_standard_leaf, subleaf 0
  std::vector<CpuidRegisters> extended_leaves;  // leaf 0x80000000 .. max_extended_leaf

 private:
  void Read(const CpuidReader& cpuid, const Xcr0Reader& read_xcr0);
};

// What kernel creation asks before making an AVX kernel: the library-load instance's IsAvxUsable(), unless
// a test has forced "no AVX". Internal; not exported.
bool AvxUsableForKernels();
// Test-only: `no_avx` true makes AvxUsableForKernels() answer false whatever the processor has; false gives
// the processor's answer back. The exported checks and the report are not affected.
void OverrideAvxForTesting(bool no_avx);

}  // namespace utility
}  // namespace zelva
