// Line forms, mask rules, the shared buffer and the raising assertion.
#include "zelva/src/utility/logging.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "support/log_capture.h"

namespace {

using namespace zelva::utility;
using zvtest::LogCapture;

class Logging : public ::testing::Test {
 protected:
  void SetUp() override { SetLogLevelMask(kDefaultLogLevelMask); }
  void TearDown() override {
    SetLogLevelMask(kDefaultLogLevelMask);
    SetLogTag("ZELVA");
  }
  LogCapture log;
};

TEST_F(Logging, LineFormsAndTag) {
  SetLogLevelMask(31);
  Log(kLogVerbose, "f", "a/b.cc", 7, "v %d", 1);
  Log(kLogInfo, "f", "a/b.cc", 7, "i %s", "x");
  Log(kLogWarnning, "f", "a/b.cc", 7, "w");
  Log(kLogError, "int ns::Cls::Method(int, const char*) const", "a/b.cc", 42, "e %u", 5u);
  SetLogTag("HOST");
  Log(kLogInfo, "f", "x", 1, "m");
  EXPECT_EQ(log.lines(), (std::vector<std::string>{
                             "[ZELVA] (Verbose): v 1", "[ZELVA] (Info): i x", "[ZELVA] (Warnning): w",
                             "[ZELVA]: Error in FUNCTION<ns::Cls::Method>, FILE<a/b.cc>, LINE<42>. e 5\n",
                             "[HOST] (Info): m"}));
}

TEST_F(Logging, MaskBitsNotThresholdAndTheSharedResult) {
  SetLogLevelMask(kLogVerbose);
  EXPECT_EQ(Log(kLogVerbose, "f", "x", 1, "shown %d", 1), "shown 1");
  Log(kLogError, "f", "x", 1, "hidden");
  // A filtered message does not touch the buffer: the result is the last text shown.
  EXPECT_EQ(Log(kLogInfo, "f", "x", 1, "hidden"), "shown 1");
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"[ZELVA] (Verbose): shown 1"}));

  log.Clear();
  for (uint32_t mask : {kDefaultLogLevelMask, 0xFFFFFFFFu}) {
    SetLogLevelMask(mask);
    Log(kLogTrace, "f", "x", 1, "never");
    Log(3, "f", "x", 1, "not a level");
  }
  SetLogLevelMask(kDefaultLogLevelMask);
  Log(kLogVerbose, "f", "x", 1, "hidden");
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Logging, LongMessagesAreCutButErrorLinesStayComplete) {
  const std::string big(5000, 'z');
  Log(kLogInfo, "f", "x", 1, "%s", big.c_str());
  Log(kLogError, "fn", "file.cc", 9, "%s", big.c_str());
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_EQ(log.lines()[0], "[ZELVA] (Info): " + std::string(2047, 'z'));
  EXPECT_EQ(log.lines()[1],
            "[ZELVA]: Error in FUNCTION<fn>, FILE<file.cc>, LINE<9>. " + std::string(2047, 'z') + "\n");
}

TEST_F(Logging, AssertRaisesWithItsMessageAndDeliversWhateverTheMask) {
  SetLogLevelMask(kLogVerbose);
  const std::string line = "[ZELVA]: Assert Failed in FUNCTION<a::b>, FILE<src/x.cc>, LINE<3>. bad 7\n";
  try {
    Assert("void a::b()", "src/x.cc", 3, false, "bad %d", 7);
    FAIL() << "did not raise";
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(std::string(e.what()), line);
  }
  EXPECT_EQ(log.lines(), std::vector<std::string>{line});

  log.Clear();
  try {
    Assert("f", "x", 1, false, nullptr);
    FAIL() << "did not raise";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "[ZELVA]: Assert Failed in FUNCTION<f>, FILE<x>, LINE<1>. ");
  }
  EXPECT_NO_THROW(Assert("f", "x", 1, true, "fine"));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Logging, MacrosPassTheQualifiedFunctionAndARepoRelativeFile) {
  struct Local {
    static void Fail() { ZV_LOG_ERROR("boom"); }
  };
  Local::Fail();
  EXPECT_NE(log.Last().find("Local::Fail>, FILE<tests/zelva/src/utility/logging_test.cc>"), std::string::npos)
      << log.Last();
}

TEST(QualifiedFunctionName, CutsSignatures) {
  EXPECT_EQ(QualifiedFunctionName("_ZV2_Result ZV2_Create_VAD(uint32_t*, int32_t, const char**)"),
            "ZV2_Create_VAD");
  EXPECT_EQ(QualifiedFunctionName("zelva::dlvad::VAD::VAD()"), "zelva::dlvad::VAD::VAD");
  EXPECT_EQ(QualifiedFunctionName("const char* ns::f(int)"), "ns::f");
  EXPECT_EQ(QualifiedFunctionName("std::vector<int, std::allocator<int> > ns::g(std::pair<int, int>)"),
            "ns::g");
  EXPECT_EQ(QualifiedFunctionName("void ns::h(T) [with T = int]"), "ns::h");
  EXPECT_EQ(QualifiedFunctionName("ZV2_Clockwise_Rotate_Image_CPU"), "ZV2_Clockwise_Rotate_Image_CPU");
}

}  // namespace
