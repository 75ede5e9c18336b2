// Recurrent networks streamed block by block through the engines' public entry points, against PyTorch's
// streaming outputs (fixtures from tools/gen_e2e_models.py): input, reshape to a sequence, GRU or LSTM,
// reshape to a vector, dense, activation. The recurrent state must carry from block to block inside the
// engine, and a reset must bring the stream back to its start.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "support/families.h"
#include "support/log_capture.h"

namespace {

std::string Data(const std::string& name) {
  return std::string(ZELVA_TEST_DATA_DIR) + "/e2e/" + name;
}

std::vector<float> ReadFloats(const std::string& name) {
  std::ifstream file(Data(name), std::ios::binary | std::ios::ate);
  EXPECT_TRUE(file.good()) << name;
  const std::streamsize bytes = file.tellg();
  std::vector<float> values(static_cast<size_t>(bytes) / sizeof(float));
  file.seekg(0);
  file.read(reinterpret_cast<char*>(values.data()),
            static_cast<std::streamsize>(values.size() * sizeof(float)));
  return values;
}

using zvtest::kDenoise;
using zvtest::kVad;

struct Case {
  const char* label;
  const zvtest::Family* engine;
  const char* model;  // under tests/data/e2e
  const char* config;
  const char* stem;      // <stem>_input.f32
  const char* expected;  // PyTorch's streaming outputs
  size_t block_floats;   // model_base_h x model_base_w
  size_t out_floats;
};
void PrintTo(const Case& c, std::ostream* os) {
  *os << c.label;
}

// The sigmoid of the one VAD output runs its scalar rest; ReLU is exact. What remains is the order of the
// sums in the recurrent and dense products, over 100 blocks of carried state.
constexpr float kTolerance = 1e-5f;
// Outputs written past the model's output count would overwrite this.
constexpr float kCanary = -12345.0f;

class EndToEnd : public ::testing::TestWithParam<Case> {
 protected:
  uint32_t Create() {
    const Case& c = GetParam();
    const std::string model = Data(c.model), config = Data(c.config);
    const char* argv[] = {model.c_str(), config.c_str()};
    uint32_t handle = 0;
    EXPECT_EQ(c.engine->create(&handle, 2, argv), ZV2_RESULT_OK) << log.Last();
    return handle;
  }

  // Applies `count` blocks from the start of `input`; the outputs back to back.
  std::vector<float> Stream(uint32_t handle, const std::vector<float>& input, size_t count) {
    const Case& c = GetParam();
    std::vector<float> out(count * c.out_floats);
    std::vector<float> buffer(c.out_floats + 4);
    for (size_t b = 0; b < count; ++b) {
      std::fill(buffer.begin(), buffer.end(), kCanary);
      EXPECT_EQ(c.engine->apply(handle, input.data() + b * c.block_floats, buffer.data()), ZV2_RESULT_OK)
          << "block " << b << ": " << log.Last();
      for (size_t k = c.out_floats; k < buffer.size(); ++k) EXPECT_EQ(buffer[k], kCanary) << "block " << b;
      std::copy(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(c.out_floats),
                out.begin() + static_cast<std::ptrdiff_t>(b * c.out_floats));
    }
    return out;
  }

  zvtest::LogCapture log;
};

TEST_P(EndToEnd, StreamsLikePyTorchAndResetsToTheStart) {
  const Case& c = GetParam();
  const std::vector<float> input = ReadFloats(std::string(c.stem) + "_input.f32");
  const std::vector<float> expected = ReadFloats(c.expected);
  ASSERT_EQ(input.size() % c.block_floats, 0u);
  const size_t blocks = input.size() / c.block_floats;
  ASSERT_EQ(expected.size(), blocks * c.out_floats);
  ASSERT_GE(blocks, 100u);

  uint32_t handle = Create();
  ASSERT_NE(handle, 0u);
  const std::vector<float> got = Stream(handle, input, blocks);
  size_t bad = 0;
  float worst = 0.0f;
  for (size_t i = 0; i < got.size(); ++i) {
    const float diff = std::fabs(got[i] - expected[i]);
    if (!(diff <= kTolerance)) {  // NaN counts as bad
      if (++bad <= 5)
        ADD_FAILURE() << "block " << i / c.out_floats << " output " << i % c.out_floats << ": " << got[i]
                      << " vs " << expected[i];
    }
    if (diff > worst) worst = diff;
  }
  EXPECT_EQ(bad, 0u) << "largest difference " << worst;
  // The state did carry: a fresh start at block 50 differs from the stream's block 50.
  ASSERT_EQ(c.engine->reset(handle), ZV2_RESULT_OK);
  const std::vector<float> tail(input.begin() + static_cast<std::ptrdiff_t>(50 * c.block_floats),
                                input.end());
  const std::vector<float> restarted = Stream(handle, tail, 1);
  bool differs = false;
  for (size_t k = 0; k < c.out_floats; ++k) differs |= restarted[k] != got[50 * c.out_floats + k];
  EXPECT_TRUE(differs) << "the output does not depend on earlier blocks";

  // After a reset the stream starts over: the first blocks again, bit for bit.
  ASSERT_EQ(c.engine->reset(handle), ZV2_RESULT_OK);
  const size_t again = 10;
  const std::vector<float> repeated = Stream(handle, input, again);
  for (size_t i = 0; i < repeated.size(); ++i) {
    ASSERT_EQ(repeated[i], got[i]) << "block " << i / c.out_floats << " output " << i % c.out_floats;
  }

  // A second engine on the same files does the same, whatever the first one's state.
  uint32_t second = Create();
  ASSERT_NE(second, 0u);
  const std::vector<float> fresh = Stream(second, input, again);
  for (size_t i = 0; i < fresh.size(); ++i) ASSERT_EQ(fresh[i], got[i]) << i;

  log.Clear();
  EXPECT_EQ(c.engine->destroy(&second), ZV2_RESULT_OK);
  EXPECT_EQ(c.engine->destroy(&handle), ZV2_RESULT_OK);
  EXPECT_EQ(handle, 0u);
  EXPECT_TRUE(log.lines().empty()) << log.Last();  // every pool block was back before the pools went
}

constexpr size_t kVadBlock = 2 * 40, kLstmBlock = 3 * 40;

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Models, EndToEnd,
    ::testing::Values(
        // The GRU network through the VAD engine: JSON, and the binary twin read at full precision.
        Case{"VadGruJson", &kVad, "vad_gru.json", "vad_gru.cfg.json", "vad_gru", "vad_gru_expected.f32",
             kVadBlock, 1},
        Case{"VadGruBinary", &kVad, "vad_gru.zvmod", "vad_gru.cfg.json", "vad_gru", "vad_gru_expected.f32",
             kVadBlock, 1},
        Case{"VadGruSgemm", &kVad, "vad_gru.json", "vad_gru_sgemm.cfg.json", "vad_gru", "vad_gru_expected.f32",
             kVadBlock, 1},
        // The same network through the denoise engine's generic path (JSON: weights as drawn).
        Case{"DenoiseGruJson", &kDenoise, "vad_gru.json", "vad_gru.cfg.json", "vad_gru", "vad_gru_expected.f32",
             kVadBlock, 1},
        Case{"DenoiseGruSgemm", &kDenoise, "vad_gru.json", "vad_gru_sgemm.cfg.json", "vad_gru",
             "vad_gru_expected.f32", kVadBlock, 1},
        // The LSTM network through the denoise engine: JSON, and the binary twin read at half precision
        // (weights truncated toward zero), against PyTorch on the truncated weights.
        Case{"DenoiseLstmJson", &kDenoise, "denoise_lstm.json", "denoise_lstm.cfg.json", "denoise_lstm",
             "denoise_lstm_expected.f32", kLstmBlock, 18},
        Case{"DenoiseLstmBinaryHalf", &kDenoise, "denoise_lstm.zvmod", "denoise_lstm.cfg.json", "denoise_lstm",
             "denoise_lstm_expected_half.f32", kLstmBlock, 18},
        // The VAD engine takes the LSTM network as well.
        Case{"VadLstmJson", &kVad, "denoise_lstm.json", "denoise_lstm.cfg.json", "denoise_lstm",
             "denoise_lstm_expected.f32", kLstmBlock, 18}),
    [](const ::testing::TestParamInfo<Case>& info) { return std::string(info.param.label); });
// clang-format on

// The binary twin read at full precision holds the JSON model's weights exactly: the same bits out.
TEST(EndToEndFiles, VadBinaryTwinMatchesJsonBitForBit) {
  zvtest::LogCapture log;
  const std::vector<float> input = ReadFloats("vad_gru_input.f32");
  std::vector<float> outs[2];
  const char* models[2] = {"vad_gru.json", "vad_gru.zvmod"};
  for (int m = 0; m < 2; ++m) {
    const std::string model = Data(models[m]), config = Data("vad_gru.cfg.json");
    const char* argv[] = {model.c_str(), config.c_str()};
    uint32_t handle = 0;
    ASSERT_EQ(ZV2_Create_VAD(&handle, 2, argv), ZV2_RESULT_OK) << log.Last();
    outs[m].resize(input.size() / kVadBlock);
    for (size_t b = 0; b < outs[m].size(); ++b)
      ASSERT_EQ(ZV2_Apply_VAD_CPU(handle, input.data() + b * kVadBlock, &outs[m][b]), ZV2_RESULT_OK);
    EXPECT_EQ(ZV2_Destory_VAD(&handle), ZV2_RESULT_OK);
  }
  EXPECT_EQ(outs[0], outs[1]);
}

}  // namespace

// Networks of planar and blocked members with layout converters between them (fixtures from
// tools/gen_conv_e2e_model.py) through the denoise engine: PyTorch's outputs within float rounding of the
// different orders of the sums, block after block, and the same bits from a second engine.
//   denoise_conv     planar and blocked convolutions and depthwise convolutions
//   denoise_decoder  convolution, transposed convolution, bilinear upsampling, pixel shuffle
struct ConvCase {
  const char* stem;
  size_t block_floats, out_floats;
};
class EndToEndConvolution : public ::testing::TestWithParam<ConvCase> {};

TEST_P(EndToEndConvolution, StreamsLikePyTorch) {
  if (ZV2_CheckIsaAVX() != 0) GTEST_SKIP() << "the network has AVX members; this processor has no AVX";
  const ConvCase& c = GetParam();
  zvtest::LogCapture log;
  const std::string model = Data(std::string(c.stem) + ".json"),
                    config = Data(std::string(c.stem) + ".cfg.json");
  const char* argv[] = {model.c_str(), config.c_str()};
  const std::vector<float> input = ReadFloats(std::string(c.stem) + "_input.f32");
  const std::vector<float> expected = ReadFloats(std::string(c.stem) + "_expected.f32");
  ASSERT_EQ(input.size() / c.block_floats * c.out_floats, expected.size());
  std::vector<float> first;
  for (int engine = 0; engine < 2; ++engine) {
    uint32_t handle = 0;
    ASSERT_EQ(ZV2_Create_AudioDenoise(&handle, 2, argv), ZV2_RESULT_OK) << log.Last();
    std::vector<float> out(c.out_floats);
    size_t bad = 0;
    for (size_t b = 0; b * c.block_floats < input.size(); ++b) {
      ASSERT_EQ(ZV2_Apply_AudioDenoise_CPU(handle, input.data() + b * c.block_floats, out.data()),
                ZV2_RESULT_OK)
          << "block " << b << ": " << log.Last();
      for (size_t k = 0; k < c.out_floats; ++k) {
        const float want = expected[b * c.out_floats + k];
        if (engine == 0) {
          if (!(std::fabs(out[k] - want) <= 1e-5f + 1e-5f * std::fabs(want)) && ++bad <= 5)
            ADD_FAILURE() << "block " << b << " output " << k << ": " << out[k] << " vs " << want;
          first.push_back(out[k]);
        } else {
          ASSERT_EQ(out[k], first[b * c.out_floats + k]) << "block " << b << " output " << k;
        }
      }
    }
    EXPECT_EQ(bad, 0u);
    EXPECT_EQ(ZV2_Destory_AudioDenoise(&handle), ZV2_RESULT_OK);
  }
}

INSTANTIATE_TEST_SUITE_P(Models, EndToEndConvolution,
                         ::testing::Values(ConvCase{"denoise_conv", 9 * 13, 5 * 7},
                                           ConvCase{"denoise_decoder", 4 * 5, 32 * 40}),
                         [](const ::testing::TestParamInfo<ConvCase>& info) {
                           return std::string(info.param.stem);
                         });
