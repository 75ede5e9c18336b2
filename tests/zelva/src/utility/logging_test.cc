// Line forms, mask rules, the shared buffer and the raising assertion.
#include "zelva/src/utility/logging.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

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

TEST_F(Logging, LineFormsOfEachLevel) {
  SetLogLevelMask(31);
  Log(kLogVerbose, "f", "a/b.cc", 7, "v %d", 1);
  Log(kLogInfo, "f", "a/b.cc", 7, "i %s", "x");
  Log(kLogWarnning, "f", "a/b.cc", 7, "w");
  Log(kLogError, "int ns::Cls::Method(int, const char*) const", "a/b.cc", 42, "e %u", 5u);
  ASSERT_EQ(log.lines().size(), 4u);
  EXPECT_EQ(log.lines()[0], "[ZELVA] (Verbose): v 1");
  EXPECT_EQ(log.lines()[1], "[ZELVA] (Info): i x");
  EXPECT_EQ(log.lines()[2], "[ZELVA] (Warnning): w");
  EXPECT_EQ(log.lines()[3], "[ZELVA]: Error in FUNCTION<ns::Cls::Method>, FILE<a/b.cc>, LINE<42>. e 5\n");
}

TEST_F(Logging, MaskBitsNotThreshold) {
  SetLogLevelMask(kLogVerbose);
  Log(kLogVerbose, "f", "x", 1, "shown");
  Log(kLogError, "f", "x", 1, "hidden");
  Log(kLogInfo, "f", "x", 1, "hidden");
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0], "[ZELVA] (Verbose): shown");

  log.Clear();
  SetLogLevelMask(kDefaultLogLevelMask);  // Info, Warnning, Error (and the dead trace bit)
  Log(kLogVerbose, "f", "x", 1, "hidden");
  Log(kLogTrace, "f", "x", 1, "never");
  Log(3, "f", "x", 1, "not a level");
  EXPECT_TRUE(log.lines().empty());

  SetLogLevelMask(0xFFFFFFFFu);
  Log(kLogTrace, "f", "x", 1, "never");
  EXPECT_TRUE(log.lines().empty());

  SetLogLevelMask(kLogError);
  Log(kLogError, "f", "x", 1, "using hyper specific audio denoise model");
  Log(kLogInfo, "f", "x", 1, "AudioDenoise::load done.");
  ASSERT_EQ(log.lines().size(), 1u);
}

TEST_F(Logging, ResultIsTheLastMessageShown) {
  EXPECT_EQ(Log(kLogInfo, "f", "x", 1, "first %d", 1), "first 1");
  // A filtered message does not touch the buffer: the result is the previous shown text.
  EXPECT_EQ(Log(kLogVerbose, "f", "x", 1, "second"), "first 1");
}

TEST_F(Logging, LongMessagesAreCutButErrorLinesStayComplete) {
  const std::string big(5000, 'z');
  Log(kLogInfo, "f", "x", 1, "%s", big.c_str());
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0], "[ZELVA] (Info): " + std::string(2047, 'z'));
  Log(kLogError, "fn", "file.cc", 9, "%s", big.c_str());
  EXPECT_EQ(log.lines()[1], "[ZELVA]: Error in FUNCTION<fn>, FILE<file.cc>, LINE<9>. " + std::string(2047, 'z') + "\n");
}

TEST_F(Logging, Tag) {
  SetLogTag("HOST");
  Log(kLogInfo, "f", "x", 1, "m");
  EXPECT_EQ(log.Last(), "[HOST] (Info): m");
}

TEST_F(Logging, AssertRaisesWithTheDecorationAndDeliversWhateverTheMask) {
  SetLogLevelMask(kLogVerbose);
  try {
    Assert("void a::b()", "src/x.cc", 3, false, "bad %d", 7);
    FAIL() << "did not raise";
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(std::string(e.what()), "[ZELVA]: Assert Failed in FUNCTION<a::b>, FILE<src/x.cc>, LINE<3>. ");
  }
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0], "[ZELVA]: Assert Failed in FUNCTION<a::b>, FILE<src/x.cc>, LINE<3>. bad 7\n");

  log.Clear();
  EXPECT_THROW(Assert("f", "x", 1, false, nullptr), std::runtime_error);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_NO_THROW(Assert("f", "x", 1, true, "fine"));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Logging, MacrosPassTheQualifiedFunctionAndARepoRelativeFile) {
  struct Local {
    static void Fail() { ZV_LOG_ERROR("boom"); }
  };
  Local::Fail();
  const std::string line = log.Last();
  EXPECT_NE(line.find("FUNCTION<"), std::string::npos);
  EXPECT_NE(line.find("Local::Fail>"), std::string::npos) << line;
  EXPECT_NE(line.find("FILE<tests/zelva/src/utility/logging_test.cc>"), std::string::npos) << line;
}

TEST(QualifiedFunctionName, CutsSignatures) {
  EXPECT_EQ(QualifiedFunctionName("_ZV2_Result ZV2_Create_VAD(uint32_t*, int32_t, const char**)"), "ZV2_Create_VAD");
  EXPECT_EQ(QualifiedFunctionName("zelva::dlvad::VAD::VAD()"), "zelva::dlvad::VAD::VAD");
  EXPECT_EQ(QualifiedFunctionName("const char* ns::f(int)"), "ns::f");
  EXPECT_EQ(QualifiedFunctionName("std::vector<int, std::allocator<int> > ns::g(std::pair<int, int>)"), "ns::g");
  EXPECT_EQ(QualifiedFunctionName("void ns::h(T) [with T = int]"), "ns::h");
  EXPECT_EQ(QualifiedFunctionName("ZV2_Clockwise_Rotate_Image_CPU"), "ZV2_Clockwise_Rotate_Image_CPU");
}

}  // namespace
