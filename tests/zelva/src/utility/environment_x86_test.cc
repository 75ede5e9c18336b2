#include "zelva/src/utility/environment_x86.h"

#include <cpuid.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/log_capture.h"

namespace zelva {
namespace utility {
namespace {

enum Reg { kL1Ecx, kL1Edx, kL7Ebx, kL7Ecx, kE1Ecx, kE1Edx };

// A processor described by its leaves (subleaf 0), read through the same walk as the real one.
struct FakeProcessor {
  std::map<uint32_t, CpuidRegisters> leaves;
  uint64_t xcr0_value = 0;
  int xgetbv_calls = 0;

  FakeProcessor(const char* vendor, uint32_t max_standard, uint32_t max_extended) {
    CpuidRegisters leaf0{max_standard, 0, 0, 0};
    std::memcpy(&leaf0[1], vendor + 0, 4);
    std::memcpy(&leaf0[3], vendor + 4, 4);
    std::memcpy(&leaf0[2], vendor + 8, 4);
    leaves[0] = leaf0;
    leaves[0x80000000u] = {max_extended, 0, 0, 0};
  }

  uint32_t& At(Reg reg) {  // leaf and register index of each Reg
    static const std::pair<uint32_t, int> where[] = {{1, 2}, {1, 3},           {7, 1},
                                                     {7, 2}, {0x80000001u, 2}, {0x80000001u, 3}};
    return leaves[where[reg].first][where[reg].second];
  }
  void Set(Reg reg, uint32_t value) { At(reg) = value; }

  void SetBrand(const char* text) {  // up to 48 bytes, zero padded
    char bytes[48] = {};
    std::memcpy(bytes, text, std::min<size_t>(std::strlen(text), 48));
    for (uint32_t i = 0; i < 3; ++i) std::memcpy(leaves[0x80000002u + i].data(), bytes + 16 * i, 16);
  }

  EnvironmentX86 Read() {
    return EnvironmentX86(
        [this](uint32_t leaf, uint32_t subleaf) {
          EXPECT_EQ(subleaf, 0u);
          auto it = leaves.find(leaf);
          return it == leaves.end() ? CpuidRegisters{} : it->second;
        },
        [this]() {
          ++xgetbv_calls;
          return xcr0_value;
        });
  }
};

// Every register full, with the OS saving the XMM and YMM state.
FakeProcessor AllBitsSet(const char* vendor, uint64_t xcr0) {
  FakeProcessor p(vendor, 7, 0x80000004u);
  for (Reg r : {kL1Ecx, kL1Edx, kL7Ebx, kL7Ecx, kE1Ecx, kE1Edx}) p.Set(r, 0xFFFFFFFFu);
  p.xcr0_value = xcr0;
  return p;
}

std::set<std::string> Unsupported(const EnvironmentX86& env) {
  std::set<std::string> names;
  for (const IsaFeature& f : env.Features()) {
    if (!f.supported) names.insert(f.name);
  }
  return names;
}

bool Supported(const EnvironmentX86& env, const std::string& name) {
  for (const IsaFeature& f : env.Features()) {
    if (name == f.name) return f.supported;
  }
  ADD_FAILURE() << "no feature " << name;
  return false;
}

TEST(EnvironmentX86, WalksTheLeavesUpToTheMaxima) {
  FakeProcessor p("GenuineIntel", 7, 0x80000004u);
  p.Set(kL1Ecx, 0x08000001u);  // OSXSAVE, SSE3
  p.Set(kL7Ecx, 0x1u);
  p.Set(kE1Edx, 0x800u);
  p.SetBrand("  Fake Processor @ 1.00GHz");
  p.xcr0_value = 0x100000007ull;  // only the low half is kept
  EnvironmentX86 env = p.Read();
  EXPECT_TRUE(env.vendor == "GenuineIntel" && env.is_intel && !env.is_amd);
  EXPECT_EQ(env.brand, "  Fake Processor @ 1.00GHz");
  EXPECT_TRUE(env.leaf1_ecx == 0x08000001u && env.leaf7_ecx == 0x1u && env.ext1_edx == 0x800u);
  EXPECT_EQ(env.xcr0, 7u);
  EXPECT_TRUE(env.standard_leaves.size() == 8u && env.extended_leaves.size() == 5u);

  // Leaf 7 and the brand leaves exist in the table, but the processor claims fewer.
  p.leaves[0][0] = 6;
  p.leaves[0x80000000u][0] = 0x80000003u;
  p.Set(kL7Ebx, 0xFFFFFFFFu);
  env = p.Read();
  EXPECT_EQ(env.leaf7_ebx, 0u);
  EXPECT_EQ(env.brand, "");
  EXPECT_EQ(env.ext1_edx, 0x800u);

  // Only leaf 0 and leaf 0x80000000: nothing is copied and XGETBV is not executed.
  p.leaves[0][0] = 0;
  p.leaves[0x80000000u][0] = 0x80000000u;
  p.xgetbv_calls = 0;
  env = p.Read();
  EXPECT_TRUE(env.leaf1_ecx == 0u && env.ext1_edx == 0u && env.xcr0 == 0u);
  EXPECT_EQ(p.xgetbv_calls, 0);
  EXPECT_EQ(Unsupported(env).size(), 51u);

  // No extended range at all.
  p.leaves[0x80000000u][0] = 0x10u;
  EXPECT_TRUE(p.Read().extended_leaves.empty());
}

// Each feature's bit, taken from the compiler's <cpuid.h> where it names it, else from the manuals.
struct ReferenceBit {
  const char* name;
  Reg reg;
  uint32_t mask;
  const char* vendor;  // the vendor the row needs, or a third one when it needs none
  bool ymm;            // needs the AVX bit and XCR0 bits 1 and 2 as well
};

constexpr const char* kOther = "FakeVendorXY";
const ReferenceBit kReferenceBits[] = {
    {"3DNOW", kE1Edx, bit_3DNOW, "AuthenticAMD", false},
    {"3DNOWEXT", kE1Edx, bit_3DNOWP, "AuthenticAMD", false},
    {"ABM", kE1Ecx, bit_ABM, "AuthenticAMD", false},
    {"ADX", kL7Ebx, bit_ADX, kOther, false},
    {"AES", kL1Ecx, bit_AES, kOther, false},
    {"AVX", kL1Ecx, bit_AVX, kOther, true},
    {"AVX2", kL7Ebx, bit_AVX2, kOther, true},
    {"AVX512CD", kL7Ebx, bit_AVX512CD, kOther, false},
    {"AVX512ER", kL7Ebx, bit_AVX512ER, kOther, false},
    {"AVX512F", kL7Ebx, bit_AVX512F, kOther, false},
    {"AVX512PF", kL7Ebx, bit_AVX512PF, kOther, false},
    {"BMI1", kL7Ebx, bit_BMI, kOther, false},
    {"BMI2", kL7Ebx, bit_BMI2, kOther, false},
    {"CLFSH", kL1Edx, 1u << 19, kOther, false},
    {"CMPXCHG16B", kL1Ecx, bit_CMPXCHG16B, kOther, false},
    {"CX8", kL1Edx, bit_CMPXCHG8B, kOther, false},
    {"ERMS", kL7Ebx, 1u << 9, kOther, false},
    {"F16C", kL1Ecx, bit_F16C, kOther, false},
    {"FMA", kL1Ecx, bit_FMA, kOther, false},
    {"FSGSBASE", kL7Ebx, bit_FSGSBASE, kOther, false},
    {"FXSR", kL1Edx, bit_FXSAVE, kOther, false},
    {"HLE", kL7Ebx, bit_HLE, "GenuineIntel", false},
    {"INVPCID", kL7Ebx, 1u << 10, kOther, false},
    {"LAHF", kE1Ecx, bit_LAHF_LM, kOther, false},
    {"LZCNT", kE1Ecx, bit_LZCNT, "GenuineIntel", false},
    {"MMX", kL1Edx, bit_MMX, kOther, false},
    {"MMXEXT", kE1Edx, bit_MMXEXT, "AuthenticAMD", false},
    {"MONITOR", kL1Ecx, 1u << 3, kOther, false},
    {"MOVBE", kL1Ecx, bit_MOVBE, kOther, false},
    {"MSR", kL1Edx, 1u << 5, kOther, false},
    {"OSXSAVE", kL1Ecx, bit_OSXSAVE, kOther, false},
    {"PCLMULQDQ", kL1Ecx, bit_PCLMUL, kOther, false},
    {"POPCNT", kL1Ecx, bit_POPCNT, kOther, false},
    {"PREFETCHWT1", kL7Ecx, bit_PREFETCHWT1, kOther, false},
    {"RDRAND", kL1Ecx, bit_RDRND, kOther, false},
    {"RDSEED", kL7Ebx, bit_RDSEED, kOther, false},
    {"RDTSCP", kE1Edx, 1u << 27, "GenuineIntel", false},
    {"RTM", kL7Ebx, bit_RTM, "GenuineIntel", false},
    {"SEP", kL1Edx, 1u << 11, kOther, false},
    {"SHA", kL7Ebx, bit_SHA, kOther, false},
    {"SSE", kL1Edx, bit_SSE, kOther, false},
    {"SSE2", kL1Edx, bit_SSE2, kOther, false},
    {"SSE3", kL1Ecx, bit_SSE3, kOther, false},
    {"SSE4.1", kL1Ecx, bit_SSE4_1, kOther, false},
    {"SSE4.2", kL1Ecx, bit_SSE4_2, kOther, false},
    {"SSE4a", kE1Ecx, bit_SSE4a, "AuthenticAMD", false},
    {"SSSE3", kL1Ecx, bit_SSSE3, kOther, false},
    {"SYSCALL", kE1Edx, 1u << 11, "GenuineIntel", false},
    {"TBM", kE1Ecx, bit_TBM, "AuthenticAMD", false},
    {"XOP", kE1Ecx, bit_XOP, "AuthenticAMD", true},
    {"XSAVE", kL1Ecx, bit_XSAVE, kOther, false},
};

TEST(EnvironmentX86, EachFeatureReadsItsOwnBit) {
  const std::vector<IsaFeature> order = FakeProcessor(kOther, 7, 0x80000004u).Read().Features();
  ASSERT_EQ(order.size(), sizeof(kReferenceBits) / sizeof(kReferenceBits[0]));
  for (size_t i = 0; i < order.size(); ++i) {
    const ReferenceBit& ref = kReferenceBits[i];
    SCOPED_TRACE(ref.name);
    EXPECT_STREQ(order[i].name, ref.name);  // report order
    for (bool on : {true, false}) {
      FakeProcessor p(ref.vendor, 7, 0x80000004u);
      if (ref.ymm) {
        p.Set(kL1Ecx, bit_AVX | bit_OSXSAVE);
        p.xcr0_value = 6;
      }
      if (on) {
        p.At(ref.reg) |= ref.mask;
      } else {
        p.At(ref.reg) &= ~ref.mask;
      }
      EXPECT_EQ(Supported(p.Read(), ref.name), on);
    }
  }
}

TEST(EnvironmentX86, VendorBoundRowsAndTheOperatingSystemsYmmState) {
  const std::set<std::string> amd_only = {"3DNOW", "3DNOWEXT", "ABM", "MMXEXT", "SSE4a", "TBM", "XOP"};
  const std::set<std::string> intel_only = {"HLE", "LZCNT", "RDTSCP", "RTM", "SYSCALL"};
  std::set<std::string> both = amd_only;
  both.insert(intel_only.begin(), intel_only.end());
  EXPECT_EQ(Unsupported(AllBitsSet("GenuineIntel", 7).Read()), amd_only);
  EXPECT_EQ(Unsupported(AllBitsSet("AuthenticAMD", 7).Read()), intel_only);
  EXPECT_EQ(Unsupported(AllBitsSet("genuineintel", 7).Read()), both);  // the vendor must match exactly

  // The OS saves only x87 and XMM, or only YMM: the AVX-512 rows look at the processor alone.
  for (uint64_t xcr0 : {3ull, 5ull, 1ull}) {
    SCOPED_TRACE(xcr0);
    const EnvironmentX86 env = AllBitsSet("AuthenticAMD", xcr0).Read();
    EXPECT_FALSE(env.IsAvxUsable());
    std::set<std::string> expected = intel_only;
    expected.insert({"AVX", "AVX2", "XOP"});
    EXPECT_EQ(Unsupported(env), expected);
  }
  EXPECT_TRUE(AllBitsSet("AuthenticAMD", 6).Read().IsAvxUsable());

  // What the fused network's wider variants ask: AVX2 and F16C need the YMM state, AVX-512F the opmask
  // and ZMM state too (XCR0 bits 5 to 7), whatever the report's row says.
  for (uint64_t xcr0 : {0x7ull, 0x67ull, 0xA7ull, 0xC7ull, 0xE5ull}) {
    SCOPED_TRACE(xcr0);
    const EnvironmentX86 env = AllBitsSet("GenuineIntel", xcr0).Read();
    EXPECT_EQ(env.IsAvx2Usable(), (xcr0 & 6) == 6);
    EXPECT_EQ(env.IsF16cUsable(), (xcr0 & 6) == 6);
    EXPECT_FALSE(env.IsAvx512fUsable());
    EXPECT_TRUE(Supported(env, "AVX512F"));
  }
  EXPECT_TRUE(AllBitsSet("GenuineIntel", 0xE7).Read().IsAvx512fUsable());
  FakeProcessor no_f16c = AllBitsSet("GenuineIntel", 0xE7);
  no_f16c.Set(kL1Ecx, ~(1u << 29));
  EXPECT_FALSE(no_f16c.Read().IsF16cUsable());
  EXPECT_TRUE(no_f16c.Read().IsAvx2Usable());

  // AVX present but OSXSAVE clear: XGETBV is not executed and AVX is not usable.
  FakeProcessor p = AllBitsSet("GenuineIntel", 7);
  p.Set(kL1Ecx, ~(1u << 27));
  const EnvironmentX86 env = p.Read();
  EXPECT_EQ(p.xgetbv_calls, 0);
  EXPECT_FALSE(env.IsAvxUsable() || Supported(env, "AVX"));
}

TEST(EnvironmentX86, ReportIsLoggedAtInfo) {
  FakeProcessor p = AllBitsSet("AuthenticAMD", 3);
  p.SetBrand("Fake 8-Core");
  zvtest::LogCapture log;
  p.Read().ReportInstructionSupported();
  const auto& lines = log.lines();
  ASSERT_EQ(lines.size(), 53u);
  EXPECT_EQ(lines[0], "[ZELVA] (Info): CPU Vendor: AuthenticAMD");
  EXPECT_EQ(lines[1], "[ZELVA] (Info): CPU Brand: Fake 8-Core");
  EXPECT_EQ(lines[2], "[ZELVA] (Info): 3DNOW supported");
  EXPECT_EQ(lines[7], "[ZELVA] (Info): AVX not supported");
  EXPECT_EQ(lines[26], "[ZELVA] (Info): LZCNT not supported");
}

// The instance read at load against the compiler's own CPUID helpers and feature tests.
TEST(EnvironmentX86, RealProcessorMatchesCompilerView) {
  const EnvironmentX86& env = EnvironmentX86::Instance();
  unsigned a = 0, b = 0, c = 0, d = 0;

  const unsigned max_standard = __get_cpuid_max(0, nullptr);
  EXPECT_EQ(static_cast<unsigned>(env.max_standard_leaf), max_standard);
  EXPECT_EQ(env.standard_leaves.size(), max_standard + 1u);
  ASSERT_TRUE(__get_cpuid(0, &a, &b, &c, &d));
  char vendor[13] = {};
  std::memcpy(vendor, &b, 4);
  std::memcpy(vendor + 4, &d, 4);
  std::memcpy(vendor + 8, &c, 4);
  EXPECT_EQ(env.vendor, vendor);

  ASSERT_TRUE(__get_cpuid(1, &a, &b, &c, &d));
  EXPECT_EQ(env.leaf1_ecx, c);
  EXPECT_EQ(env.leaf1_edx, d);
  if (max_standard >= 7) {
    ASSERT_TRUE(__get_cpuid_count(7, 0, &a, &b, &c, &d));
    EXPECT_EQ(env.leaf7_ebx, b);
    EXPECT_EQ(env.leaf7_ecx, c);
  }

  EXPECT_EQ(env.max_extended_leaf, __get_cpuid_max(0x80000000u, nullptr));
  // With OSXSAVE the x87 state bit of XCR0 is always set.
  EXPECT_EQ(env.xcr0 & 1u, (env.leaf1_ecx & bit_OSXSAVE) ? 1u : 0u);

  // The compiler's runtime checks the operating system's support for AVX, as ours does.
  __builtin_cpu_init();
  EXPECT_EQ(env.IsAvxUsable(), __builtin_cpu_supports("avx") != 0);
  EXPECT_EQ(Supported(env, "AVX2"), __builtin_cpu_supports("avx2") != 0);
  EXPECT_EQ(env.IsAvx2Usable(), __builtin_cpu_supports("avx2") != 0);
  EXPECT_EQ(env.IsAvx512fUsable(), __builtin_cpu_supports("avx512f") != 0);
  EXPECT_EQ(Supported(env, "SSE4.2"), __builtin_cpu_supports("sse4.2") != 0);
  EXPECT_EQ(Supported(env, "BMI2"), __builtin_cpu_supports("bmi2") != 0);
}

}  // namespace
}  // namespace utility
}  // namespace zelva
