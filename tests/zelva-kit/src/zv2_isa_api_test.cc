// The processor checks as a host sees them. Which bit each feature reads, and the report's order, are checked
// against the compiler's view in tests/zelva/src/utility/environment_x86_test.cc.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.h"
#include "zv2_common.h"

namespace {

constexpr size_t kReportLines = 53;  // vendor, brand, 51 features
const std::string kInfo = "[ZELVA] (Info): ";

// The captured lines; the report runs under its own lock, so calls never overlap.
std::vector<std::string>& lines = zvtest::LogCapture::Lines();

class IsaApi : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(ZV2_SetLogLevel(ZV2_LOG_DEFAULT_MASK), ZV2_RESULT_OK);
    ASSERT_EQ(ZV2_SetLogTag("ZELVA"), ZV2_RESULT_OK);
  }
  void TearDown() override { ZV2_SetLogLevel(ZV2_LOG_DEFAULT_MASK); }
  zvtest::LogCapture capture;
};

// Checks the report that starts at lines[first] and returns the line of `feature`.
std::string CheckReport(size_t first, const std::string& feature) {
  std::string found;
  EXPECT_GE(lines.size(), first + kReportLines);
  for (size_t i = first; i < first + kReportLines && i < lines.size(); ++i) {
    const std::string& line = lines[i];
    const std::string head = i == first ? "CPU Vendor: " : i == first + 1 ? "CPU Brand: " : "";
    EXPECT_EQ(line.rfind(kInfo + head, 0), 0u) << line;
    if (i > first + 1) {
      EXPECT_TRUE(line.size() > 10 && (line.compare(line.size() - 10, 10, " supported") == 0)) << line;
    }
    if (line.rfind(kInfo + feature + " ", 0) == 0) found = line.substr(kInfo.size());
  }
  return found;
}

TEST_F(IsaApi, AnswersAgreeWithTheReport) {
  const _ZV2_Result avx = ZV2_CheckIsaAVX();
  ASSERT_EQ(lines.size(), kReportLines);
  EXPECT_EQ(CheckReport(0, "AVX"), avx == ZV2_RESULT_OK ? "AVX supported" : "AVX not supported");

  uint32_t flags = 1u << 5;  // a bit of the caller's own: kept
  EXPECT_EQ(ZV2_CheckIsaSupported(&flags), ZV2_RESULT_OK);
  EXPECT_EQ(flags, (1u << 5) | 1u);  // every x86-64 processor has SSE
  ASSERT_EQ(lines.size(), 2 * kReportLines);
  EXPECT_EQ(CheckReport(kReportLines, "SSE"), "SSE supported");
  // The answers were fixed at load: the second report repeats the first.
  for (size_t i = 0; i < kReportLines; ++i) EXPECT_EQ(lines[i], lines[kReportLines + i]);

  lines.clear();
  ASSERT_EQ(ZV2_SetLogLevel(ZV2_LOG_DEFAULT_MASK & ~ZV2_LOG_INFO), ZV2_RESULT_OK);
  EXPECT_EQ(ZV2_CheckIsaAVX(), avx);
  EXPECT_TRUE(lines.empty());
  EXPECT_EQ(ZV2_CheckIsaSupported(nullptr), ZV2_RESULT_INVALID_ARGUMENT);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find("FUNCTION<ZV2_CheckIsaSupported>, FILE<zelva-kit/src/zv2_isa.cc>"),
            std::string::npos);
}

TEST_F(IsaApi, ThreadsConcurrentReportsDoNotInterleave) {
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
  for (size_t r = 0; r < 12; ++r) CheckReport(r * kReportLines, "SSE");
}

}  // namespace
