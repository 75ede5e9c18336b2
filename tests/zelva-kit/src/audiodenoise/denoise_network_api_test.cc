// The bundled denoise network (models/denoise.zvmod with models/denoise.cfg.json) through the public C API:
// the fused path and the generic path against PyTorch's streaming output (fixtures of
// tools/gen_denoise_model.py), against each other, and around resets and flag switches.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "zv2.h"

namespace {

using Floats = std::vector<float>;
using zvtest::LogCapture;

constexpr size_t kIn = 7 * 80;
constexpr size_t kOut = 80;

const std::string kModel = std::string(ZELVA_SOURCE_DIR) + "/models/denoise.zvmod";
const std::string kConfig = std::string(ZELVA_SOURCE_DIR) + "/models/denoise.cfg.json";

Floats ReadFloats(const std::string& path) {
  Floats values;
  FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return values;
  float v;
  while (std::fread(&v, sizeof(v), 1, file) == 1) values.push_back(v);
  std::fclose(file);
  return values;
}

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

TEST_F(DenoiseNetwork, FusedPathStreamsLikePyTorch) {
  const uint32_t h = Create(true);
  ASSERT_FALSE(log_.lines().empty());
  EXPECT_NE(log_.lines()[0].find("using hyper specific audio denoise model"), std::string::npos);
  EXPECT_NE(log_.lines()[0].find("Error"), std::string::npos)
      << "the informational line is logged as an error";
  ExpectPyTorch(Run(h, 0, 60), "fused");
}

TEST_F(DenoiseNetwork, GenericPathStreamsLikePyTorch) {
  const uint32_t h = Create(false);
  for (const std::string& line : log_.lines()) {
    EXPECT_EQ(line.find("hyper specific"), std::string::npos) << line;
  }
  ExpectPyTorch(Run(h, 0, 60), "generic");
}

TEST_F(DenoiseNetwork, PathsAgreeBlockByBlock) {
  const uint32_t fused = Create(true), generic = Create(false);
  float worst = 0.0f;
  for (size_t b = 0; b < 60; ++b) {
    const Floats a = Run(fused, b, 1), g = Run(generic, b, 1);
    for (size_t i = 0; i < kOut; ++i) {
      EXPECT_TRUE(Close(a[i], g[i])) << "block " << b << " value " << i << ": " << a[i] << " vs " << g[i];
      worst = std::max(worst, std::fabs(a[i] - g[i]));
    }
  }
  // Different summation orders, same arithmetic: far below PyTorch's tolerance in practice.
  EXPECT_LT(worst, 1e-4f);
}

TEST_F(DenoiseNetwork, ResetRestartsTheStream) {
  const uint32_t fused = Create(true), generic = Create(false);
  const Floats fused_first = Run(fused, 0, 8), generic_first = Run(generic, 0, 8);
  // The state moves: running the same blocks again without a reset gives other outputs.
  EXPECT_NE(Run(fused, 0, 8), fused_first);
  EXPECT_NE(Run(generic, 0, 8), generic_first);

  for (int twice = 0; twice < 2; ++twice) {  // a second reset in a row changes nothing
    EXPECT_EQ(ZV2_ReSet_AudioDenoise_RNN_State_CPU(fused), ZV2_RESULT_OK);
    EXPECT_EQ(ZV2_ReSet_AudioDenoise_RNN_State_CPU(generic), ZV2_RESULT_OK);
  }
  const Floats fused_again = Run(fused, 0, 8), generic_again = Run(generic, 0, 8);
  EXPECT_EQ(std::memcmp(fused_again.data(), fused_first.data(), fused_first.size() * sizeof(float)), 0)
      << "the fused path repeats bit for bit";
  for (size_t i = 0; i < generic_first.size(); ++i) {
    EXPECT_NEAR(generic_again[i], generic_first[i], 1e-6f + 1e-6f * std::fabs(generic_first[i])) << i;
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
