// The engine owners (through the public C API), the segmenter and the SI-SDR accumulator.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <stdexcept>
#include <vector>

#include "fixture.h"
#include "zelva/audio/denoiser.h"
#include "zelva/audio/metrics.h"
#include "zelva/audio/voice.h"
#include "zv2.h"

namespace zelva::audio {
namespace {

using test::AudioData;
using test::ReadFixture;

const std::string kDenoiseModel = std::string(ZELVA_SOURCE_DIR) + "/models/denoise.zvmod";
const std::string kDenoiseConfig = std::string(ZELVA_SOURCE_DIR) + "/models/denoise.cfg.json";

class Engines : public ::testing::Test {
 protected:
  void SetUp() override {
    ZV2_SetLogLevel(2u);  // no level shown: the failures below are expected
    signal = ReadFixture("signal.f32");
  }
  void TearDown() override { ZV2_SetLogLevel(ZV2_LOG_DEFAULT_MASK); }
  std::vector<float> Denoise(Denoiser& d, size_t hops) {
    std::vector<float> out(hops * kHop);
    for (size_t t = 0; t < hops; ++t) d.Process(&signal[t * kHop], &out[t * kHop]);
    return out;
  }
  std::vector<float> signal;
};

TEST_F(Engines, DenoiserGivesFiniteAudioAndTheSameAfterReset) {
  Denoiser d(kDenoiseModel, kDenoiseConfig);
  const std::vector<float> first = Denoise(d, 30);
  for (float v : first) ASSERT_TRUE(std::isfinite(v));
  for (int b = 0; b < kBands; ++b) ASSERT_TRUE(std::isfinite(d.gains()[b]));
  d.Reset();
  EXPECT_EQ(Denoise(d, 30), first);
}

TEST_F(Engines, FusedAndGenericPathsAgree) {
  Denoiser generic(kDenoiseModel, kDenoiseConfig), fused(kDenoiseModel, kDenoiseConfig, true);
  const std::vector<float> a = Denoise(generic, 40), b = Denoise(fused, 40);
  for (size_t n = 0; n < a.size(); ++n) ASSERT_NEAR(a[n], b[n], 1e-4f) << n;
}

TEST_F(Engines, MissingFilesAreRefused) {
  EXPECT_THROW(Denoiser("no/such/model.zvmod", kDenoiseConfig), std::runtime_error);
  EXPECT_THROW(VoiceDetector(kDenoiseModel, "no/such/config.json"), std::runtime_error);
}

TEST_F(Engines, VoiceDetectorMatchesPyTorchOnTheContractFeatures) {
  const std::vector<float> want = ReadFixture("vad_probability.f32");
  VoiceDetector vad(AudioData("vad_tiny.json"), AudioData("vad_tiny.cfg.json"));
  ASSERT_EQ(want.size(), signal.size() / kHop);
  for (size_t t = 0; t < want.size(); ++t) ASSERT_NEAR(vad.Process(&signal[t * kHop]), want[t], 1e-4f) << t;
  vad.Reset();
  EXPECT_NEAR(vad.Process(&signal[0]), want[0], 1e-4f);
}

std::vector<Segment> Segments(const std::vector<float>& probabilities, float threshold, int hangover) {
  Segmenter s(threshold, hangover);
  std::vector<Segment> out;
  Segment seg;
  for (float p : probabilities)
    if (s.Push(p, &seg)) out.push_back(seg);
  if (s.Finish(&seg)) out.push_back(seg);
  return out;
}

MATCHER_P2(IsSegment, start, end, "") {
  return arg.start == start && arg.end == end;
}

TEST(Segmenter, ThresholdAndHangover) {
  using ::testing::ElementsAre;
  const std::vector<float> p = {0.1f, 0.5f, 0.9f, 0.2f, 0.2f, 0.8f, 0.1f, 0.1f, 0.1f, 0.1f, 0.7f, 0.6f};
  // No hangover: every run at or above the threshold; one still open at the end closes there.
  EXPECT_THAT(Segments(p, 0.5f, 0), ElementsAre(IsSegment(1, 3), IsSegment(5, 6), IsSegment(10, 12)));
  // Two hops of hangover bridge the gap of two and extend the end; the gap of four stays.
  EXPECT_THAT(Segments(p, 0.5f, 2), ElementsAre(IsSegment(1, 8), IsSegment(10, 12)));
  // A hangover longer than the gap of four joins everything.
  EXPECT_THAT(Segments(p, 0.5f, 4), ElementsAre(IsSegment(1, 12)));
  EXPECT_TRUE(Segments(p, 0.95f, 3).empty());
}

TEST(SiSdr, ScaleInvariantAndAgainstKnownNoise) {
  std::mt19937 rng(3);
  std::normal_distribution<float> normal;
  std::vector<float> s(20000), scaled(s.size()), noisy(s.size());
  for (size_t i = 0; i < s.size(); ++i) {
    s[i] = normal(rng);
    scaled[i] = 0.25f * s[i] + 0.5f;  // a scale and an offset are no distortion
    noisy[i] = s[i] + 0.1f * normal(rng);
  }
  SiSdr clean, twenty;
  clean.Add(s.data(), scaled.data(), s.size());
  EXPECT_GT(clean.Decibels(), 100.0);
  // Added in two pieces, as a stream would be.
  twenty.Add(s.data(), noisy.data(), 7000);
  twenty.Add(s.data() + 7000, noisy.data() + 7000, s.size() - 7000);
  EXPECT_NEAR(twenty.Decibels(), 20.0, 0.2);
}

}  // namespace
}  // namespace zelva::audio
