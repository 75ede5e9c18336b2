// The bundled binary model (half precision) and a JSON twin of it (the same weights as float32 text) drive
// the engine to the same bits on both paths: the binary read narrows by truncation, and the committed weights
// are already half values, so nothing is lost on either side.
#include "zelva-kit/src/audiodenoise/api_cxx_audiodenoise.h"
#include "support/files.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "zelva/src/runtime/zvmodel2/model_info.h"

namespace zelva {
namespace dlaudiodenoise {
namespace {

using Floats = std::vector<float>;

const std::string kModels = std::string(ZELVA_TEST_DATA_DIR) + "/../../models/";

using zvtest::ReadFloats;

Floats Stream(const std::string& model, bool fused, const Floats& inputs) {
  const std::string config = kModels + "denoise.cfg.json";
  const char* argv[] = {model.c_str(), config.c_str(), fused ? "1" : "0"};
  AudioDenoise engine;
  EXPECT_EQ(engine.Load(3, argv), 0) << model;
  Floats out(inputs.size() / 560 * 80);
  for (size_t b = 0; b < inputs.size() / 560; ++b) {
    EXPECT_EQ(engine.Apply_Cpu(inputs.data() + b * 560, out.data() + b * 80), 0);
  }
  return out;
}

TEST(DenoiseModel, JsonTwinOfTheBinaryModelGivesTheSameBits) {
  auto model = std::make_shared<runtime::ZVModelInfo>();
  model->FromFile(kModels + "denoise.zvmod", "bin");
  const std::string twin = ::testing::TempDir() + "denoise_twin_" + std::to_string(getpid()) + ".json";
  model->ToFile(twin, "json");

  const Floats inputs = ReadFloats(std::string(ZELVA_TEST_DATA_DIR) + "/denoise_fused_input.f32");
  ASSERT_EQ(inputs.size(), 60u * 560);
  for (bool fused : {true, false}) {
    const Floats from_bin = Stream(kModels + "denoise.zvmod", fused, inputs);
    const Floats from_json = Stream(twin, fused, inputs);
    ASSERT_EQ(from_bin.size(), from_json.size());
    EXPECT_EQ(std::memcmp(from_bin.data(), from_json.data(), from_bin.size() * sizeof(float)), 0)
        << (fused ? "fused" : "generic");
  }
  std::remove(twin.c_str());
}

}  // namespace
}  // namespace dlaudiodenoise
}  // namespace zelva
