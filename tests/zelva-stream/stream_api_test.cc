// Streams on a shared model, through the public headers only: every output of the fused network bit for bit
// what the denoise engine's fused path gives (one stream, interleaved streams, batches, two threads), a model
// released under its streams, generic models, and the refusals with their codes and messages.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "support/files.h"
#include "zelva/stream.h"
#include "zv2_audiodenoise.h"

namespace {

using zvtest::ReadFloats;

using Floats = std::vector<float>;
constexpr size_t kIn = ZVS_FUSED_INPUT_FLOATS;
constexpr size_t kOut = ZVS_FUSED_OUTPUT_FLOATS;

const std::string kModel = std::string(ZELVA_SOURCE_DIR) + "/models/denoise.zvmod";
const std::string kConfig = std::string(ZELVA_SOURCE_DIR) + "/models/denoise.cfg.json";

// The two block streams: the PyTorch fixture and the bundled example.
const Floats& Fixture() {
  static const Floats f = ReadFloats(std::string(ZELVA_TEST_DATA_DIR) + "/denoise_fused_input.f32");
  return f;
}
const Floats& Bundled() {
  static const Floats f = ReadFloats(std::string(ZELVA_SOURCE_DIR) + "/models/denoise_blocks.f32");
  return f;
}

size_t Blocks(const Floats& s) {
  return s.size() / kIn;
}

// Blocks before which the state is cleared: one in the middle and one two blocks later.
bool ResetBefore(size_t block, size_t blocks) {
  return block == blocks / 2 || block == blocks / 2 + 2;
}

// The denoise engine's fused path over a whole stream, with the resets.
Floats EngineOutputs(const Floats& stream) {
  const char* argv[] = {kModel.c_str(), kConfig.c_str(), "1"};
  uint32_t handle = 0;
  EXPECT_EQ(ZV2_Create_AudioDenoise(&handle, 3, argv), ZV2_RESULT_OK);
  const size_t blocks = Blocks(stream);
  Floats out(blocks * kOut);
  for (size_t b = 0; b < blocks; ++b) {
    if (ResetBefore(b, blocks)) {
      EXPECT_EQ(ZV2_ReSet_AudioDenoise_RNN_State_CPU(handle), ZV2_RESULT_OK);
    }
    EXPECT_EQ(ZV2_Apply_AudioDenoise_CPU(handle, stream.data() + b * kIn, out.data() + b * kOut),
              ZV2_RESULT_OK);
  }
  EXPECT_EQ(ZV2_Destory_AudioDenoise(&handle), ZV2_RESULT_OK);
  return out;
}

const Floats& EngineFixture() {
  static const Floats f = EngineOutputs(Fixture());
  return f;
}
const Floats& EngineBundled() {
  static const Floats f = EngineOutputs(Bundled());
  return f;
}

// The first block whose output bits differ, or -1.
long FirstDifference(const Floats& got, const Floats& want) {
  if (got.size() != want.size()) return 0;
  for (size_t b = 0; b * kOut < got.size(); ++b) {
    if (std::memcmp(got.data() + b * kOut, want.data() + b * kOut, kOut * sizeof(float)) != 0) {
      return static_cast<long>(b);
    }
  }
  return -1;
}

// One stream over a whole block stream, with the resets.
Floats StreamOutputs(ZVS_Stream* s, const Floats& stream) {
  const size_t blocks = Blocks(stream);
  Floats out(blocks * kOut);
  for (size_t b = 0; b < blocks; ++b) {
    if (ResetBefore(b, blocks)) {
      EXPECT_EQ(ZVS_Reset(s), ZVS_OK);
    }
    EXPECT_EQ(ZVS_Apply(s, stream.data() + b * kIn, out.data() + b * kOut), ZVS_OK) << ZVS_LastError();
  }
  return out;
}

class Streams : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_GE(Blocks(Fixture()), 8u);
    ASSERT_GE(Blocks(Bundled()), 8u);
    ASSERT_EQ(ZVS_LoadModel(kModel.c_str(), nullptr, 1, &model), ZVS_OK) << ZVS_LastError();
  }
  void TearDown() override { ZVS_ReleaseModel(model); }
  ZVS_Stream* NewStream() {
    ZVS_Stream* s = nullptr;
    EXPECT_EQ(ZVS_CreateStream(model, &s), ZVS_OK) << ZVS_LastError();
    return s;
  }
  ZVS_Model* model = nullptr;
};

TEST_F(Streams, OneStreamMatchesTheEngineBitForBit) {
  EXPECT_EQ(ZVS_ModelIsFused(model), 1);
  EXPECT_LE(ZVS_StreamBytes(model), 64u * 1024u);
  ZVS_Stream* s = NewStream();
  // One stream over both block streams, reset in between.
  EXPECT_EQ(FirstDifference(StreamOutputs(s, Fixture()), EngineFixture()), -1);
  ASSERT_EQ(ZVS_Reset(s), ZVS_OK);
  EXPECT_EQ(FirstDifference(StreamOutputs(s, Bundled()), EngineBundled()), -1);
  ZVS_DestroyStream(s);
}

TEST_F(Streams, InterleavedStreamsKeepTheirOwnState) {
  ZVS_Stream* a = NewStream();
  ZVS_Stream* b = NewStream();
  const Floats &fa = Fixture(), &fb = Bundled();
  const size_t na = Blocks(fa), nb = Blocks(fb);
  Floats out_a(na * kOut), out_b(nb * kOut);
  for (size_t t = 0; t < std::max(na, nb); ++t) {
    if (t < na) {
      if (ResetBefore(t, na)) {
        ASSERT_EQ(ZVS_Reset(a), ZVS_OK);
      }
      ASSERT_EQ(ZVS_Apply(a, fa.data() + t * kIn, out_a.data() + t * kOut), ZVS_OK);
    }
    if (t < nb) {
      if (ResetBefore(t, nb)) {
        ASSERT_EQ(ZVS_Reset(b), ZVS_OK);
      }
      ASSERT_EQ(ZVS_Apply(b, fb.data() + t * kIn, out_b.data() + t * kOut), ZVS_OK);
    }
  }
  EXPECT_EQ(FirstDifference(out_a, EngineFixture()), -1);
  EXPECT_EQ(FirstDifference(out_b, EngineBundled()), -1);
  ZVS_DestroyStream(a);
  ZVS_DestroyStream(b);
}

// Batches of several sizes; stream i starts i blocks late on the bundled stream (so that every stream of a
// batch is in a different state) and the streams are reset at different times.
TEST_F(Streams, BatchesMatchSingleStreamsBitForBit) {
  const Floats& src = Bundled();
  const size_t blocks = Blocks(src);
  for (size_t count : {1u, 2u, 3u, 17u}) {
    std::vector<ZVS_Stream*> batch(count), single(count);
    for (size_t i = 0; i < count; ++i) {
      batch[i] = NewStream();
      single[i] = NewStream();
    }
    std::vector<const float*> in(count);
    std::vector<float*> out(count);
    Floats got(count * kOut), want(count * kOut);
    for (size_t t = 0; t < blocks; ++t) {
      for (size_t i = 0; i < count; ++i) {
        if (t == 5 + 3 * i) {
          ASSERT_EQ(ZVS_Reset(batch[i]), ZVS_OK);
          ASSERT_EQ(ZVS_Reset(single[i]), ZVS_OK);
        }
        in[i] = src.data() + ((t + i) % blocks) * kIn;
        out[i] = got.data() + i * kOut;
        ASSERT_EQ(ZVS_Apply(single[i], in[i], want.data() + i * kOut), ZVS_OK);
      }
      ASSERT_EQ(ZVS_ApplyBatch(batch.data(), in.data(), out.data(), count), ZVS_OK) << ZVS_LastError();
      ASSERT_EQ(FirstDifference(got, want), -1) << "batch of " << count << ", block " << t;
    }
    for (size_t i = 0; i < count; ++i) {
      ZVS_DestroyStream(batch[i]);
      ZVS_DestroyStream(single[i]);
    }
  }
}

TEST_F(Streams, ReleasedModelLivesUntilItsLastStream) {
  ZVS_Stream* a = NewStream();
  ZVS_Stream* b = NewStream();
  ZVS_ReleaseModel(model);
  model = nullptr;
  EXPECT_EQ(FirstDifference(StreamOutputs(a, Fixture()), EngineFixture()), -1);
  ZVS_DestroyStream(a);
  ASSERT_EQ(ZVS_Reset(b), ZVS_OK);
  EXPECT_EQ(FirstDifference(StreamOutputs(b, Bundled()), EngineBundled()), -1);
  ZVS_DestroyStream(b);
}

TEST_F(Streams, BadInputIsRefusedWithCodeAndMessage) {
  ZVS_Stream* s = NewStream();
  ZVS_Stream* t = NewStream();
  alignas(16) float in[kIn + 1] = {}, out[kOut + 1] = {};
  auto refused = [](ZVS_Result got, ZVS_Result want, const char* text) {
    EXPECT_EQ(got, want) << text;
    EXPECT_NE(std::string(ZVS_LastError()).find(text), std::string::npos) << ZVS_LastError();
  };
  refused(ZVS_Apply(nullptr, in, out), ZVS_ERROR_INVALID_ARGUMENT, "ZVS_Apply: stream is null.");
  refused(ZVS_Apply(s, nullptr, out), ZVS_ERROR_INVALID_ARGUMENT, "ZVS_Apply: input is null.");
  refused(ZVS_Apply(s, in, nullptr), ZVS_ERROR_INVALID_ARGUMENT, "ZVS_Apply: output is null.");
  const float* odd_in = reinterpret_cast<const float*>(reinterpret_cast<const char*>(in) + 2);
  float* odd_out = reinterpret_cast<float*>(reinterpret_cast<char*>(out) + 1);
  refused(ZVS_Apply(s, odd_in, out), ZVS_ERROR_MISALIGNED, "input is not aligned to 4 bytes");
  refused(ZVS_Apply(s, in, odd_out), ZVS_ERROR_MISALIGNED, "output is not aligned to 4 bytes");
  refused(ZVS_Reset(nullptr), ZVS_ERROR_INVALID_ARGUMENT, "ZVS_Reset: stream is null.");
  refused(ZVS_CreateStream(nullptr, &t), ZVS_ERROR_INVALID_ARGUMENT, "model is null");
  refused(ZVS_CreateStream(model, nullptr), ZVS_ERROR_INVALID_ARGUMENT, "stream is null");

  ZVS_Stream* two[] = {s, t};
  const float* ins[] = {in, in};
  float out2[kOut];
  float* outs[] = {out, out2};
  refused(ZVS_ApplyBatch(two, ins, outs, 0), ZVS_ERROR_INVALID_ARGUMENT, "count is 0");
  refused(ZVS_ApplyBatch(nullptr, ins, outs, 2), ZVS_ERROR_INVALID_ARGUMENT, "streams is null");
  refused(ZVS_ApplyBatch(two, ins, nullptr, 2), ZVS_ERROR_INVALID_ARGUMENT, "outputs is null");
  const float* bad_ins[] = {in, nullptr};
  refused(ZVS_ApplyBatch(two, bad_ins, outs, 2), ZVS_ERROR_INVALID_ARGUMENT, "inputs[1] is null");
  float* odd_outs[] = {out, odd_out};
  refused(ZVS_ApplyBatch(two, ins, odd_outs, 2), ZVS_ERROR_MISALIGNED, "outputs[1] is not aligned");
  ZVS_Stream* twice[] = {s, s};
  refused(ZVS_ApplyBatch(twice, ins, outs, 2), ZVS_ERROR_DUPLICATE_STREAM,
          "streams[0] and streams[1] are one stream");

  ZVS_Model* other = nullptr;
  ASSERT_EQ(ZVS_LoadModel(kModel.c_str(), nullptr, 1, &other), ZVS_OK);
  ZVS_Stream* foreign = nullptr;
  ASSERT_EQ(ZVS_CreateStream(other, &foreign), ZVS_OK);
  ZVS_ReleaseModel(other);
  ZVS_Stream* mixed[] = {s, foreign};
  refused(ZVS_ApplyBatch(mixed, ins, outs, 2), ZVS_ERROR_MIXED_MODELS, "different models");
  ZVS_DestroyStream(foreign);

  // A refused batch ran no block: the states are as before, so the next outputs match fresh streams.
  ZVS_Stream* fresh = NewStream();
  Floats a(kOut), b(kOut);
  ASSERT_EQ(ZVS_Apply(s, Bundled().data(), a.data()), ZVS_OK);
  ASSERT_EQ(ZVS_Apply(fresh, Bundled().data(), b.data()), ZVS_OK);
  EXPECT_EQ(std::memcmp(a.data(), b.data(), kOut * sizeof(float)), 0);
  ZVS_DestroyStream(fresh);

  ZVS_Model* missing = nullptr;
  refused(ZVS_LoadModel("/nonexistent/denoise.zvmod", nullptr, 1, &missing), ZVS_ERROR_LOAD_FAILED,
          "ZVS_LoadModel: ");
  EXPECT_EQ(missing, nullptr);
  refused(ZVS_LoadModel(kModel.c_str(), nullptr, 0, &missing), ZVS_ERROR_INVALID_ARGUMENT,
          "needs config_path");
  refused(ZVS_LoadModel(nullptr, nullptr, 1, &missing), ZVS_ERROR_INVALID_ARGUMENT, "model_path is null");
  ZVS_DestroyStream(s);
  ZVS_DestroyStream(t);
  ZVS_DestroyStream(nullptr);
  ZVS_ReleaseModel(nullptr);
}

// A generic model: each stream its own engine, the engine's blocks; no batches.
TEST(GenericStreams, RunTheEnginesBlocksAndRefuseBatches) {
  const std::string data = std::string(ZELVA_TEST_DATA_DIR) + "/api/";
  ZVS_Model* model = nullptr;
  ASSERT_EQ(
      ZVS_LoadModel((data + "passthrough.json").c_str(), (data + "passthrough.cfg.json").c_str(), 0, &model),
      ZVS_OK)
      << ZVS_LastError();
  EXPECT_EQ(ZVS_ModelIsFused(model), 0);
  EXPECT_STREQ(ZVS_ModelVariant(model), "generic");
  ZVS_Stream *a = nullptr, *b = nullptr;
  ASSERT_EQ(ZVS_CreateStream(model, &a), ZVS_OK);
  ASSERT_EQ(ZVS_CreateStream(model, &b), ZVS_OK);
  ZVS_ReleaseModel(model);
  const float block[8] = {1, -2, 3.5f, 4, 5, 6, 7, 8.25f};
  float out[8] = {};
  ASSERT_EQ(ZVS_Apply(a, block, out), ZVS_OK) << ZVS_LastError();
  EXPECT_EQ(std::memcmp(out, block, sizeof(block)), 0);
  EXPECT_EQ(ZVS_Reset(a), ZVS_OK);
  ZVS_Stream* both[] = {a, b};
  const float* ins[] = {block, block};
  float out2[8];
  float* outs[] = {out, out2};
  EXPECT_EQ(ZVS_ApplyBatch(both, ins, outs, 2), ZVS_ERROR_NOT_FUSED);
  ZVS_DestroyStream(a);
  ZVS_DestroyStream(b);

  EXPECT_EQ(ZVS_LoadModel((data + "passthrough.json").c_str(), "/nonexistent.cfg.json", 0, &model),
            ZVS_ERROR_LOAD_FAILED);
}

// The bundled network on the generic path: a stream's blocks are the generic engine's.
TEST(GenericStreams, BundledNetworkMatchesTheGenericEngine) {
  ZVS_Model* model = nullptr;
  ASSERT_EQ(ZVS_LoadModel(kModel.c_str(), kConfig.c_str(), 0, &model), ZVS_OK) << ZVS_LastError();
  ZVS_Stream* s = nullptr;
  ASSERT_EQ(ZVS_CreateStream(model, &s), ZVS_OK);
  const char* argv[] = {kModel.c_str(), kConfig.c_str()};
  uint32_t handle = 0;
  ASSERT_EQ(ZV2_Create_AudioDenoise(&handle, 2, argv), ZV2_RESULT_OK);
  Floats got(kOut), want(kOut);
  for (size_t b = 0; b < 12; ++b) {
    if (b == 6) {
      ASSERT_EQ(ZVS_Reset(s), ZVS_OK);
      ASSERT_EQ(ZV2_ReSet_AudioDenoise_RNN_State_CPU(handle), ZV2_RESULT_OK);
    }
    ASSERT_EQ(ZVS_Apply(s, Bundled().data() + b * kIn, got.data()), ZVS_OK);
    ASSERT_EQ(ZV2_Apply_AudioDenoise_CPU(handle, Bundled().data() + b * kIn, want.data()), ZV2_RESULT_OK);
    ASSERT_EQ(std::memcmp(got.data(), want.data(), kOut * sizeof(float)), 0) << "block " << b;
  }
  ZV2_Destory_AudioDenoise(&handle);
  ZVS_DestroyStream(s);
  ZVS_ReleaseModel(model);
}

// Two threads, each with streams of one shared model (single blocks on one, batches on the other), at the
// same time: every output as the engine gives it serially.
TEST_F(Streams, ThreadsTwoStreamsInParallelMatchSerial) {
  const Floats& want_a = EngineFixture();
  const Floats& want_b = EngineBundled();
  Floats got_a, got_b1, got_b2;
  ZVS_Stream* a = NewStream();
  ZVS_Stream* b1 = NewStream();
  ZVS_Stream* b2 = NewStream();
  std::thread ta([&] { got_a = StreamOutputs(a, Fixture()); });
  std::thread tb([&] {
    const Floats& src = Bundled();
    const size_t blocks = Blocks(src);
    got_b1.resize(blocks * kOut);
    got_b2.resize(blocks * kOut);
    ZVS_Stream* pair[] = {b1, b2};
    for (size_t t = 0; t < blocks; ++t) {
      if (ResetBefore(t, blocks)) {
        ZVS_Reset(b1);
        ZVS_Reset(b2);
      }
      const float* ins[] = {src.data() + t * kIn, src.data() + t * kIn};
      float* outs[] = {got_b1.data() + t * kOut, got_b2.data() + t * kOut};
      if (ZVS_ApplyBatch(pair, ins, outs, 2) != ZVS_OK) return;
    }
  });
  ta.join();
  tb.join();
  EXPECT_EQ(FirstDifference(got_a, want_a), -1);
  EXPECT_EQ(FirstDifference(got_b1, want_b), -1);
  EXPECT_EQ(FirstDifference(got_b2, want_b), -1);
  ZVS_DestroyStream(a);
  ZVS_DestroyStream(b1);
  ZVS_DestroyStream(b2);
}

}  // namespace
