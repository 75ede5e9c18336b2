#include "zelva/src/utility/environment_x86.h"

#include <cpuid.h>

#include <atomic>
#include <cstring>

#include "zelva/src/utility/logging.h"

namespace zelva {
namespace utility {
namespace {

constexpr uint32_t kExtendedBase = 0x80000000u;

CpuidRegisters ReadCpuid(uint32_t leaf, uint32_t subleaf) {
  CpuidRegisters r{};
  __cpuid_count(leaf, subleaf, r[0], r[1], r[2], r[3]);
  return r;
}

uint64_t ReadXcr0() {
  uint32_t lo = 0, hi = 0;
  __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0u));
  return (static_cast<uint64_t>(hi) << 32) | lo;
}

bool Bit(uint32_t value, unsigned bit) {
  return ((value >> bit) & 1u) != 0;
}

// Which register a feature row reads.
enum class Source : uint8_t { kLeaf1Ecx, kLeaf1Edx, kLeaf7Ebx, kLeaf7Ecx, kExt1Ecx, kExt1Edx };

// Further conditions of a row.
enum Requires : uint8_t {
  kPlain = 0,
  kIntelOnly = 1,
  kAmdOnly = 2,
  kYmmState = 4,  // also needs the AVX bit (leaf 1 ECX 28) and the OS saving XMM and YMM (XCR0 bits 1, 2)
};

struct FeatureRow {
  const char* name;
  Source source;
  uint8_t bit;
  uint8_t needs;
};

// Report order. LZCNT and ABM read the same bit under two names; the vendor-bound rows read as
// "not supported" on the other vendor's processors.
// clang-format off
constexpr FeatureRow kFeatureRows[] = {
    {"3DNOW", Source::kExt1Edx, 31, kAmdOnly},
    {"3DNOWEXT", Source::kExt1Edx, 30, kAmdOnly},
    {"ABM", Source::kExt1Ecx, 5, kAmdOnly},
    {"ADX", Source::kLeaf7Ebx, 19, kPlain},
    {"AES", Source::kLeaf1Ecx, 25, kPlain},
    {"AVX", Source::kLeaf1Ecx, 28, kYmmState},
    {"AVX2", Source::kLeaf7Ebx, 5, kYmmState},
    {"AVX512CD", Source::kLeaf7Ebx, 28, kPlain},
    {"AVX512ER", Source::kLeaf7Ebx, 27, kPlain},
    {"AVX512F", Source::kLeaf7Ebx, 16, kPlain},
    {"AVX512PF", Source::kLeaf7Ebx, 26, kPlain},
    {"BMI1", Source::kLeaf7Ebx, 3, kPlain},
    {"BMI2", Source::kLeaf7Ebx, 8, kPlain},
    {"CLFSH", Source::kLeaf1Edx, 19, kPlain},
    {"CMPXCHG16B", Source::kLeaf1Ecx, 13, kPlain},
    {"CX8", Source::kLeaf1Edx, 8, kPlain},
    {"ERMS", Source::kLeaf7Ebx, 9, kPlain},
    {"F16C", Source::kLeaf1Ecx, 29, kPlain},
    {"FMA", Source::kLeaf1Ecx, 12, kPlain},
    {"FSGSBASE", Source::kLeaf7Ebx, 0, kPlain},
    {"FXSR", Source::kLeaf1Edx, 24, kPlain},
    {"HLE", Source::kLeaf7Ebx, 4, kIntelOnly},
    {"INVPCID", Source::kLeaf7Ebx, 10, kPlain},
    {"LAHF", Source::kExt1Ecx, 0, kPlain},
    {"LZCNT", Source::kExt1Ecx, 5, kIntelOnly},
    {"MMX", Source::kLeaf1Edx, 23, kPlain},
    {"MMXEXT", Source::kExt1Edx, 22, kAmdOnly},
    {"MONITOR", Source::kLeaf1Ecx, 3, kPlain},
    {"MOVBE", Source::kLeaf1Ecx, 22, kPlain},
    {"MSR", Source::kLeaf1Edx, 5, kPlain},
    {"OSXSAVE", Source::kLeaf1Ecx, 27, kPlain},
    {"PCLMULQDQ", Source::kLeaf1Ecx, 1, kPlain},
    {"POPCNT", Source::kLeaf1Ecx, 23, kPlain},
    {"PREFETCHWT1", Source::kLeaf7Ecx, 0, kPlain},
    {"RDRAND", Source::kLeaf1Ecx, 30, kPlain},
    {"RDSEED", Source::kLeaf7Ebx, 18, kPlain},
    {"RDTSCP", Source::kExt1Edx, 27, kIntelOnly},
    {"RTM", Source::kLeaf7Ebx, 11, kIntelOnly},
    {"SEP", Source::kLeaf1Edx, 11, kPlain},
    {"SHA", Source::kLeaf7Ebx, 29, kPlain},
    {"SSE", Source::kLeaf1Edx, 25, kPlain},
    {"SSE2", Source::kLeaf1Edx, 26, kPlain},
    {"SSE3", Source::kLeaf1Ecx, 0, kPlain},
    {"SSE4.1", Source::kLeaf1Ecx, 19, kPlain},
    {"SSE4.2", Source::kLeaf1Ecx, 20, kPlain},
    {"SSE4a", Source::kExt1Ecx, 6, kAmdOnly},
    {"SSSE3", Source::kLeaf1Ecx, 9, kPlain},
    {"SYSCALL", Source::kExt1Edx, 11, kIntelOnly},
    {"TBM", Source::kExt1Ecx, 21, kAmdOnly},
    {"XOP", Source::kExt1Ecx, 11, kAmdOnly | kYmmState},
    {"XSAVE", Source::kLeaf1Ecx, 26, kPlain},
};
// clang-format on
static_assert(sizeof(kFeatureRows) / sizeof(kFeatureRows[0]) == 51, "the report has 51 features");

}  // namespace

EnvironmentX86::EnvironmentX86() {
  Read(&ReadCpuid, &ReadXcr0);
}

EnvironmentX86::EnvironmentX86(const CpuidReader& cpuid, const Xcr0Reader& read_xcr0) {
  ZV_ASSERT(cpuid && read_xcr0, "EnvironmentX86 needs a CPUID and an XGETBV reader.");
  Read(cpuid, read_xcr0);
}

void EnvironmentX86::Read(const CpuidReader& cpuid, const Xcr0Reader& read_xcr0) {
  // Standard leaves. The loop counter is wider than the leaf so that no maximum can make it wrap.
  const CpuidRegisters leaf0 = cpuid(0, 0);
  max_standard_leaf = static_cast<int32_t>(leaf0[0]);
  for (int64_t leaf = 0; leaf <= max_standard_leaf; ++leaf) {
    standard_leaves.push_back(cpuid(static_cast<uint32_t>(leaf), 0));
  }

  char text[12];
  std::memcpy(text + 0, &leaf0[1], 4);  // EBX
  std::memcpy(text + 4, &leaf0[3], 4);  // EDX
  std::memcpy(text + 8, &leaf0[2], 4);  // ECX
  vendor.assign(text, sizeof(text));
  is_intel = vendor == "GenuineIntel";
  is_amd = vendor == "AuthenticAMD";

  if (max_standard_leaf > 0) {
    leaf1_ecx = standard_leaves[1][2];
    leaf1_edx = standard_leaves[1][3];
  }
  if (max_standard_leaf > 6) {
    leaf7_ebx = standard_leaves[7][1];
    leaf7_ecx = standard_leaves[7][2];
  }
  // XGETBV faults unless the OS has enabled it, which OSXSAVE tells.
  if (Bit(leaf1_ecx, 27)) xcr0 = static_cast<uint32_t>(read_xcr0());

  // Extended leaves.
  max_extended_leaf = cpuid(kExtendedBase, 0)[0];
  for (uint64_t leaf = kExtendedBase; leaf <= max_extended_leaf; ++leaf) {
    extended_leaves.push_back(cpuid(static_cast<uint32_t>(leaf), 0));
  }
  if (max_extended_leaf > kExtendedBase) {
    ext1_ecx = extended_leaves[1][2];
    ext1_edx = extended_leaves[1][3];
  }
  if (max_extended_leaf > kExtendedBase + 3) {
    char bytes[48];
    for (int i = 0; i < 3; ++i) std::memcpy(bytes + 16 * i, extended_leaves[2 + i].data(), 16);
    brand.assign(bytes, strnlen(bytes, sizeof(bytes)));
  }
}

const EnvironmentX86& EnvironmentX86::Instance() {
  static const EnvironmentX86 instance;
  return instance;
}

namespace {
// Fills the instance while the library loads rather than on the first question.
[[maybe_unused]] const EnvironmentX86& load_time_instance = EnvironmentX86::Instance();
}  // namespace

bool EnvironmentX86::IsAvxUsable() const {
  return Bit(leaf1_ecx, 28) && Bit(xcr0, 1) && Bit(xcr0, 2);
}

bool EnvironmentX86::IsSseSupported() const {
  return Bit(leaf1_edx, 25);
}

bool EnvironmentX86::IsAvx2Usable() const {
  return IsAvxUsable() && Bit(leaf7_ebx, 5);
}

bool EnvironmentX86::IsF16cUsable() const {
  return IsAvxUsable() && Bit(leaf1_ecx, 29);
}

bool EnvironmentX86::IsAvx512fUsable() const {
  return IsAvxUsable() && Bit(leaf7_ebx, 16) && Bit(xcr0, 5) && Bit(xcr0, 6) && Bit(xcr0, 7);
}

namespace {
std::atomic<bool> avx_forced_off{false};
}  // namespace

bool AvxUsableForKernels() {
  return !avx_forced_off.load(std::memory_order_relaxed) && EnvironmentX86::Instance().IsAvxUsable();
}

void OverrideAvxForTesting(bool no_avx) {
  avx_forced_off.store(no_avx, std::memory_order_relaxed);
}

std::vector<IsaFeature> EnvironmentX86::Features() const {
  std::vector<IsaFeature> features;
  features.reserve(sizeof(kFeatureRows) / sizeof(kFeatureRows[0]));
  for (const FeatureRow& row : kFeatureRows) {
    uint32_t value = 0;
    switch (row.source) {
      case Source::kLeaf1Ecx:
        value = leaf1_ecx;
        break;
      case Source::kLeaf1Edx:
        value = leaf1_edx;
        break;
      case Source::kLeaf7Ebx:
        value = leaf7_ebx;
        break;
      case Source::kLeaf7Ecx:
        value = leaf7_ecx;
        break;
      case Source::kExt1Ecx:
        value = ext1_ecx;
        break;
      case Source::kExt1Edx:
        value = ext1_edx;
        break;
    }
    bool supported = Bit(value, row.bit);
    if (row.needs & kIntelOnly) supported = supported && is_intel;
    if (row.needs & kAmdOnly) supported = supported && is_amd;
    if (row.needs & kYmmState) supported = supported && IsAvxUsable();
    features.push_back({row.name, supported});
  }
  return features;
}

std::vector<std::string> EnvironmentX86::ReportLines() const {
  std::vector<std::string> lines;
  lines.push_back("CPU Vendor: " + vendor);
  lines.push_back("CPU Brand: " + brand);
  for (const IsaFeature& feature : Features()) {
    lines.push_back(std::string(feature.name) + (feature.supported ? " supported" : " not supported"));
  }
  return lines;
}

void EnvironmentX86::ReportInstructionSupported() const {
  ZV_LOG(kLogInfo, "CPU Vendor: %s", vendor.c_str());
  ZV_LOG(kLogInfo, "CPU Brand: %s", brand.c_str());
  for (const IsaFeature& feature : Features()) {
    ZV_LOG(kLogInfo, "%s %s", feature.name, feature.supported ? "supported" : "not supported");
  }
}

}  // namespace utility
}  // namespace zelva
