// The processor checks as a host sees them.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "zv2_common.h"

namespace {

const char* const kFeatureOrder[] = {
    "3DNOW",    "3DNOWEXT",    "ABM",      "ADX",      "AES",    "AVX",   "AVX2",       "AVX512CD",
    "AVX512ER", "AVX512F",     "AVX512PF", "BMI1",     "BMI2",   "CLFSH", "CMPXCHG16B", "CX8",
    "ERMS",     "F16C",        "FMA",      "FSGSBASE", "FXSR",   "HLE",   "INVPCID",    "LAHF",
    "LZCNT",    "MMX",         "MMXEXT",   "MONITOR",  "MOVBE",  "MSR",   "OSXSAVE",    "PCLMULQDQ",
    "POPCNT",   "PREFETCHWT1", "RDRAND",   "RDSEED",   "RDTSCP", "RTM",   "SEP",        "SHA",
    "SSE",      "SSE2",        "SSE3",     "SSE4.1",   "SSE4.2", "SSE4a", "SSSE3",      "SYSCALL",
    "TBM",      "XOP",         "XSAVE",
};
constexpr size_t kFeatures = sizeof(kFeatureOrder) / sizeof(kFeatureOrder[0]);
constexpr size_t kReportLines = kFeatures + 2;
const std::string kInfo = "[ZELVA] (Info): ";

std::vector<std::string> lines;
int32_t Capture(const char* text) {
  lines.push_back(text);  // the report runs under its own lock, so calls never overlap
  return 0;
}

class IsaApiTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(ZV2_GetLogLevel(&saved_mask_), ZV2_RESULT_OK);
    ASSERT_EQ(ZV2_SetLogLevel(ZV2_LOG_DEFAULT_MASK), ZV2_RESULT_OK);
    ASSERT_EQ(ZV2_SetLogTag("ZELVA"), ZV2_RESULT_OK);
    ASSERT_EQ(ZV2_SetLogCallback(&Capture), ZV2_RESULT_OK);
    lines.clear();
  }
  void TearDown() override { ZV2_SetLogLevel(saved_mask_); }

  // Checks one report starting at lines[first] and returns each feature's verdict.
  static std::vector<bool> CheckReport(size_t first) {
    std::vector<bool> verdicts;
    EXPECT_GE(lines.size(), first + kReportLines);
    if (lines.size() < first + kReportLines) return verdicts;
    EXPECT_EQ(lines[first].rfind(kInfo + "CPU Vendor: ", 0), 0u) << lines[first];
    EXPECT_EQ(lines[first + 1].rfind(kInfo + "CPU Brand: ", 0), 0u) << lines[first + 1];
    for (size_t i = 0; i < kFeatures; ++i) {
      const std::string& line = lines[first + 2 + i];
      const std::string yes = kInfo + kFeatureOrder[i] + " supported";
      const std::string no = kInfo + kFeatureOrder[i] + " not supported";
      EXPECT_TRUE(line == yes || line == no) << line;
      verdicts.push_back(line == yes);
    }
    return verdicts;
  }
  static bool Verdict(const std::vector<bool>& verdicts, const std::string& name) {
    for (size_t i = 0; i < kFeatures && i < verdicts.size(); ++i) {
      if (name == kFeatureOrder[i]) return verdicts[i];
    }
    ADD_FAILURE() << name;
    return false;
  }

  uint32_t saved_mask_ = ZV2_LOG_DEFAULT_MASK;
};

TEST_F(IsaApiTest, AnswersAgreeWithTheReport) {
  const _ZV2_Result avx = ZV2_CheckIsaAVX();
  EXPECT_TRUE(avx == ZV2_RESULT_OK || avx == ZV2_RESULT_FAILED);
  ASSERT_EQ(lines.size(), kReportLines);
  const std::vector<bool> verdicts = CheckReport(0);
  EXPECT_EQ(Verdict(verdicts, "AVX"), avx == ZV2_RESULT_OK);

  uint32_t flags = 1u << 5;  // a bit of the caller's own: kept
  EXPECT_EQ(ZV2_CheckIsaSupported(&flags), ZV2_RESULT_OK);
  EXPECT_EQ(flags, (1u << 5) | 1u);  // every x86-64 processor has SSE
  ASSERT_EQ(lines.size(), 2 * kReportLines);
  CheckReport(kReportLines);
  EXPECT_TRUE(Verdict(verdicts, "SSE"));
  // The answers were fixed at load: the second report repeats the first.
  for (size_t i = 0; i < kReportLines; ++i) EXPECT_EQ(lines[i], lines[kReportLines + i]);
}

TEST_F(IsaApiTest, SilentWithoutInfoBit) {
  const _ZV2_Result avx = ZV2_CheckIsaAVX();
  lines.clear();
  ASSERT_EQ(ZV2_SetLogLevel(ZV2_LOG_DEFAULT_MASK & ~ZV2_LOG_INFO), ZV2_RESULT_OK);
  EXPECT_EQ(ZV2_CheckIsaAVX(), avx);
  uint32_t flags = 0;
  EXPECT_EQ(ZV2_CheckIsaSupported(&flags), ZV2_RESULT_OK);
  EXPECT_EQ(flags, 1u);
  EXPECT_TRUE(lines.empty());
}

TEST_F(IsaApiTest, ConcurrentReportsDoNotInterleave) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 3; ++i) {
        uint32_t flags = 0;
        if ((t + i) % 2 == 0) {
          ZV2_CheckIsaAVX();
        } else {
          ZV2_CheckIsaSupported(&flags);
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  ASSERT_EQ(lines.size(), 12 * kReportLines);
  for (size_t r = 0; r < 12; ++r) CheckReport(r * kReportLines);
}

TEST_F(IsaApiTest, NullFlagsFailLoudly) {
  EXPECT_EQ(ZV2_CheckIsaSupported(nullptr), ZV2_RESULT_INVALID_ARGUMENT);
}

}  // namespace
