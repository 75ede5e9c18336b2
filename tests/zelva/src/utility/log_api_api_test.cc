// The exported logging controls, as a host sees them.
#include <gtest/gtest.h>

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

}  // namespace
