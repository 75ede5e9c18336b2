// The bundled denoise network (models/denoise.zvmod with models/denoise.cfg.json) through the public C API:
// the fused path and the generic path against PyTorch's streaming output (fixtures of
// tools/gen_denoise_model.py), around resets and flag switches.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/log_capture.h"
#include "zv2.h"

namespace {

using Floats = std::vector<float>;
using zvtest::LogCapture;

constexpr size_t kIn = 7 * 80;
constexpr size_t kOut = 80;

const std::string kModel = std::string(ZELVA_SOURCE_DIR) + "/models/denoise.zvmod";
const std::string kConfig = std::string(ZELVA_SOURCE_DIR) + "/models/denoise.cfg.json";

using zvtest::ReadFloats;

// PyTorch's tolerance: the engine sums in another order than PyTorch, and the GRU state carries the
// difference from block to block.
bool Close(float got, float want) {
  return std::fabs(got - want) <= 1e-4f + 1e-4f * std::fabs(want);
}

class DenoiseNetwork : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    inputs_ = ReadFloats(std::string(ZELVA_TEST_DATA_DIR) + "/denoise_fused_input.f32");
    expected_ = ReadFloats(std::string(ZELVA_TEST_DATA_DIR) + "/denoise_fused_output.f32");
  }
  void SetUp() override {
    ASSERT_EQ(inputs_.size(), 60 * kIn);
    ASSERT_EQ(expected_.size(), 60 * kOut);
  }
  void TearDown() override {
    for (uint32_t& h : handles_) {
      if (h != 0) {
        EXPECT_EQ(ZV2_Destory_AudioDenoise(&h), ZV2_RESULT_OK);
      }
    }
  }

  uint32_t Create(bool fused) {
    const char* argv[] = {kModel.c_str(), kConfig.c_str(), fused ? "1" : "0"};
    uint32_t h = 0;
    EXPECT_EQ(ZV2_Create_AudioDenoise(&h, 3, argv), ZV2_RESULT_OK) << log_.Last();
    handles_.push_back(h);
    return h;
  }
  static const float* Block(size_t b) { return inputs_.data() + b * kIn; }
  static const float* Expected(size_t b) { return expected_.data() + b * kOut; }
  // Blocks first .. first + count - 1, outputs back to back.
  static Floats Run(uint32_t h, size_t first, size_t count) {
    Floats out(count * kOut, -1.0f);
    for (size_t b = 0; b < count; ++b) {
      EXPECT_EQ(ZV2_Apply_AudioDenoise_CPU(h, Block(first + b), out.data() + b * kOut), ZV2_RESULT_OK);
    }
    return out;
  }
  // Every block against PyTorch; outputs never negative (the last layer is a ReLU).
  static void ExpectPyTorch(const Floats& out, const char* path) {
    size_t positive = 0;
    for (size_t i = 0; i < out.size(); ++i) {
      ASSERT_TRUE(Close(out[i], expected_[i])) << path << ": block " << i / kOut << " value " << i % kOut
                                               << ": " << out[i] << " vs " << expected_[i];
      ASSERT_GE(out[i], 0.0f) << path << " " << i;
      positive += out[i] > 0.0f;
    }
    // The fixture is not degenerate: many outputs are above the ReLU's floor.
    EXPECT_GT(positive, out.size() / 3) << path;
  }

  static Floats inputs_, expected_;
  LogCapture log_;
  std::vector<uint32_t> handles_;
};
Floats DenoiseNetwork::inputs_, DenoiseNetwork::expected_;

// Each path streams like PyTorch; the state moves (the same blocks again give other outputs), and after a
// reset (twice in a row changes nothing) the stream repeats: the fused path bit for bit.
TEST_F(DenoiseNetwork, BothPathsStreamLikePyTorchAndResetRestartsTheStream) {
  for (const bool fused : {true, false}) {
    log_.Clear();
    const uint32_t h = Create(fused);
    int announced = 0;
    for (const std::string& line : log_.lines()) {
      if (line.find("hyper specific") == std::string::npos) continue;
      ++announced;  // the informational line is logged as an error
      EXPECT_TRUE(line.find("Error") != std::string::npos &&
                  line.find("using hyper specific audio denoise model") != std::string::npos)
          << line;
    }
    EXPECT_EQ(announced, fused ? 1 : 0);
    const Floats first = Run(h, 0, 60);
    ExpectPyTorch(first, fused ? "fused" : "generic");
    EXPECT_NE(Run(h, 0, 8), Floats(first.begin(), first.begin() + 8 * kOut));
    for (int twice = 0; twice < 2; ++twice) EXPECT_EQ(ZV2_ReSet_AudioDenoise_RNN_State_CPU(h), ZV2_RESULT_OK);
    const Floats again = Run(h, 0, 8);
    for (size_t i = 0; i < again.size(); ++i) {
      if (fused) {
        ASSERT_EQ(again[i], first[i]) << i;
      } else {
        EXPECT_NEAR(again[i], first[i], 1e-6f + 1e-6f * std::fabs(first[i])) << i;
      }
    }
  }
}

// The fused engine also holds a complete generic net; the flag picks the path per call and each path keeps
// its own recurrent state.
TEST_F(DenoiseNetwork, FlagSwitchesPathsWithSeparateStates) {
  const uint32_t both = Create(true), generic = Create(false);
  const Floats fused_first = Run(both, 0, 3);
  ASSERT_EQ(ZV2_Set_AudioDenoise(both, "UseHyperspecific", "0"), ZV2_RESULT_OK);
  // The generic net of the fused engine starts from zero state, whatever the fused path ran.
  EXPECT_EQ(Run(both, 0, 3), Run(generic, 0, 3));
  // A reset on the generic path leaves the fused state where it was: block 3 continues the fused stream.
  EXPECT_EQ(ZV2_ReSet_AudioDenoise_RNN_State_CPU(both), ZV2_RESULT_OK);
  ASSERT_EQ(ZV2_Set_AudioDenoise(both, "UseHyperspecific", "1"), ZV2_RESULT_OK);
  const Floats fused_next = Run(both, 3, 1);
  for (size_t i = 0; i < kOut; ++i) EXPECT_TRUE(Close(fused_next[i], Expected(3)[i])) << i;
}

// Files of another form or with the flag text a little off still load on the generic path only.
TEST_F(DenoiseNetwork, OnlyTheExactFlagTextSelectsTheFusedPath) {
  for (const char* flag : {"1 ", "11", "true", ""}) {
    log_.Clear();
    const char* argv[] = {kModel.c_str(), kConfig.c_str(), flag};
    uint32_t h = 0;
    ASSERT_EQ(ZV2_Create_AudioDenoise(&h, 3, argv), ZV2_RESULT_OK) << flag;
    for (const std::string& line : log_.lines()) EXPECT_EQ(line.find("hyper specific"), std::string::npos);
    handles_.push_back(h);
  }
}

}  // namespace
