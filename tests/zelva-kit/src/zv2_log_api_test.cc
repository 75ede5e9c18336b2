// The exported logging controls, as a host sees them, and clean lines from concurrent callers.
#include <gtest/gtest.h>

#include <atomic>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.h"
#include "zv2.h"

namespace {

TEST(LogApi, LevelTagAndCallbackRules) {
  uint32_t mask = 0;
  EXPECT_EQ(ZV2_GetLogLevel(&mask), ZV2_RESULT_OK);
  EXPECT_EQ(mask, 30u);  // fresh process
  EXPECT_EQ(ZV2_GetLogLevel(nullptr), ZV2_RESULT_INVALID_ARGUMENT);

  EXPECT_EQ(ZV2_SetLogLevel(0), ZV2_RESULT_INVALID_ARGUMENT);
  ZV2_GetLogLevel(&mask);
  EXPECT_EQ(mask, 30u);
  EXPECT_EQ(ZV2_SetLogLevel(0xABCDu), ZV2_RESULT_OK);  // stored unvalidated
  ZV2_GetLogLevel(&mask);
  EXPECT_EQ(mask, 0xABCDu);

  EXPECT_EQ(ZV2_SetLogCallback(nullptr), ZV2_RESULT_FAILED);
  zvtest::LogCapture log;  // installs a sink

  // Level 2 silences every level: an argument error logs nothing.
  EXPECT_EQ(ZV2_SetLogLevel(2), ZV2_RESULT_OK);
  float buffer[1];
  EXPECT_EQ(ZV2_Apply_AudioDenoise_CPU(0, nullptr, buffer), ZV2_RESULT_INVALID_ARGUMENT);
  EXPECT_TRUE(log.lines().empty());

  EXPECT_EQ(ZV2_SetLogLevel(30), ZV2_RESULT_OK);
  EXPECT_EQ(ZV2_SetLogTag(""), ZV2_RESULT_FAILED);
  EXPECT_EQ(ZV2_SetLogTag("MyHost"), ZV2_RESULT_OK);
  EXPECT_EQ(ZV2_Apply_AudioDenoise_CPU(0, nullptr, buffer), ZV2_RESULT_INVALID_ARGUMENT);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].rfind("[MyHost]: Error in FUNCTION<ZV2_Apply_AudioDenoise_CPU>, FILE<"
                                 "zelva-kit/src/audiodenoise/api_audiodenoise.cc>, LINE<",
                                 0),
            0u)
      << log.lines()[0];
  EXPECT_EQ(ZV2_SetLogTag("ZELVA"), ZV2_RESULT_OK);
}

// Lines by calling thread: the sink runs on the thread that logs, and each thread collects into its own
// list, so the sink takes no lock and the two callers overlap as much as they can.
thread_local std::vector<std::string>* thread_lines = nullptr;
int32_t ThreadSink(const char* text) {
  if (thread_lines != nullptr) thread_lines->emplace_back(text);
  return 0;
}

// A denoise call and a VAD call run at the same time (each family has its own lock) and both log. Every
// line must be whole and carry its own caller's handle.
TEST(LogApi, ThreadsTwoFamiliesLogCleanLines) {
  ASSERT_EQ(ZV2_SetLogCallback(&ThreadSink), ZV2_RESULT_OK);
  constexpr uint32_t kCalls = 20000;
  struct Caller {
    _ZV2_Result (*apply)(uint32_t, const void*, void*);
    const char* function;
    const char* file;
    uint32_t first_handle;
  };
  const Caller callers[] = {
      {ZV2_Apply_AudioDenoise_CPU, "ZV2_Apply_AudioDenoise_CPU", "/api_audiodenoise.cc", 1000000},
      {ZV2_Apply_VAD_CPU, "ZV2_Apply_VAD_CPU", "/api_vad.cc", 2000000},
  };
  std::vector<std::string> lines[2];
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&, t] {
      lines[t].reserve(kCalls);
      thread_lines = &lines[t];
      float in[1] = {}, out[1] = {};
      ++ready;
      while (ready < 2) {  // start together, so that the two families' calls overlap
      }
      for (uint32_t i = 0; i < kCalls; ++i) callers[t].apply(callers[t].first_handle + i, in, out);
      thread_lines = nullptr;
    });
  }
  for (std::thread& thread : threads) thread.join();
  zvtest::LogCapture restore;

  for (int t = 0; t < 2; ++t) {
    SCOPED_TRACE(callers[t].function);
    const std::vector<std::string>& got = lines[t];
    ASSERT_EQ(got.size(), kCalls);
    const std::regex form(std::string("\\[ZELVA\\]: Error in FUNCTION<") + callers[t].function +
                          ">, FILE<[^<>]*" + callers[t].file +
                          ">, LINE<[0-9]+>\\. handle\\(([0-9]+)\\) not found\\.\n");
    size_t bad = 0;
    for (uint32_t i = 0; i < kCalls; ++i) {
      std::smatch match;
      if (!std::regex_match(got[i], match, form) || match[1] != std::to_string(callers[t].first_handle + i)) {
        if (++bad <= 3) ADD_FAILURE() << "line " << i << ": " << got[i];
      }
    }
    EXPECT_EQ(bad, 0u);
  }
}

}  // namespace
