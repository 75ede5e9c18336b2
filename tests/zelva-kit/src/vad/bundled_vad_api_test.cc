// The bundled VAD model (models/vad.zvmod, models/vad.cfg.json) streamed through the public entry points over
// the feature frames of the bundled noisy example, against PyTorch's probabilities for the same frames
// (fixtures from tools/train_vad.py --export: one 80-float block per 10 ms hop, state carried from zero).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/log_capture.h"
#include "zv2.h"

namespace {

constexpr size_t kBands = 80;
// The engine sums the dense and recurrent products in another order than PyTorch; the one sigmoid output
// runs the exact scalar rest.
constexpr float kTolerance = 1e-5f;

std::string Data(const std::string& name) {
  return std::string(ZELVA_TEST_DATA_DIR) + "/vad/" + name;
}

using zvtest::ReadFloats;

std::vector<int> ReadLabels(const std::string& path) {
  std::ifstream file(path);
  std::vector<int> labels;
  int v;
  while (file >> v) labels.push_back(v);
  return labels;
}

class BundledVad : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string model = std::string(ZELVA_SOURCE_DIR) + "/models/vad.zvmod";
    const std::string config = std::string(ZELVA_SOURCE_DIR) + "/models/vad.cfg.json";
    const char* argv[] = {model.c_str(), config.c_str()};
    ASSERT_EQ(ZV2_Create_VAD(&handle_, 2, argv), ZV2_RESULT_OK) << log_.Last();
    input_ = ReadFloats(Data("bundled_input.f32"));
    expected_ = ReadFloats(Data("bundled_expected.f32"));
    ASSERT_EQ(input_.size(), expected_.size() * kBands);
    ASSERT_GE(expected_.size(), 300u);
  }
  void TearDown() override {
    if (handle_ != 0) {
      EXPECT_EQ(ZV2_Destory_VAD(&handle_), ZV2_RESULT_OK);
    }
  }

  std::vector<float> Stream(size_t frames) {
    std::vector<float> out(frames);
    for (size_t t = 0; t < frames; ++t) {
      float buffer[2] = {-1.0f, -12345.0f};
      EXPECT_EQ(ZV2_Apply_VAD_CPU(handle_, input_.data() + t * kBands, buffer), ZV2_RESULT_OK) << log_.Last();
      EXPECT_EQ(buffer[1], -12345.0f) << "frame " << t << ": more than one output written";
      out[t] = buffer[0];
    }
    return out;
  }

  zvtest::LogCapture log_;
  uint32_t handle_ = 0;
  std::vector<float> input_, expected_;
};

// Every frame's probability as PyTorch gave it; a reset starts the stream over bit for bit.
TEST_F(BundledVad, StreamsLikePyTorchAndResetsToTheStart) {
  const std::vector<float> got = Stream(expected_.size());
  size_t bad = 0;
  float worst = 0.0f;
  for (size_t t = 0; t < got.size(); ++t) {
    ASSERT_TRUE(got[t] >= 0.0f && got[t] <= 1.0f) << "frame " << t << ": " << got[t];
    const float diff = std::fabs(got[t] - expected_[t]);
    if (!(diff <= kTolerance) && ++bad <= 5)
      ADD_FAILURE() << "frame " << t << ": " << got[t] << " vs " << expected_[t];
    if (diff > worst) worst = diff;
  }
  EXPECT_EQ(bad, 0u) << "largest difference " << worst;

  ASSERT_EQ(ZV2_ReSet_VAD_RNN_State_CPU(handle_), ZV2_RESULT_OK);
  const std::vector<float> again = Stream(20);
  for (size_t t = 0; t < again.size(); ++t) ASSERT_EQ(again[t], got[t]) << "frame " << t;
}

// The model does its job on the example: its decisions at 0.5 agree with the speech labels of the clean
// recording on most frames, and it both finds speech and leaves pauses.
TEST_F(BundledVad, FindsTheSpeechOfTheExample) {
  const std::vector<int> labels = ReadLabels(Data("bundled_labels.txt"));
  ASSERT_EQ(labels.size(), expected_.size());
  const std::vector<float> got = Stream(expected_.size());
  size_t tp = 0, fp = 0, fn = 0, tn = 0;
  for (size_t t = 0; t < got.size(); ++t) {
    const bool speech = got[t] > 0.5f;
    tp += speech && labels[t];
    fp += speech && !labels[t];
    fn += !speech && labels[t];
    tn += !speech && !labels[t];
  }
  const double f1 = 2.0 * static_cast<double>(tp) / static_cast<double>(2 * tp + fp + fn);
  EXPECT_GT(f1, 0.8) << tp << " hits, " << fp << " false alarms, " << fn << " misses";
  EXPECT_GT(tn, 0u) << "no frame taken for a pause";
}

}  // namespace
