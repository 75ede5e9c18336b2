// The C++ analysis and synthesis against the NumPy twin of the feature contract, on the same audio, and the
// properties that catch the faults a comparison on one signal can miss.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "fixture.h"
#include "zelva/audio/features.h"
#include "zelva/audio/stream.h"
#include "zelva/audio/synthesis.h"

namespace zelva::audio {
namespace {

using test::ReadFixture;

class Contract : public ::testing::Test {
 protected:
  void SetUp() override {
    signal = ReadFixture("signal.f32");
    features = ReadFixture("features.f32");
    ASSERT_EQ(signal.size(), 16000u);
    ASSERT_EQ(features.size(), signal.size() / kHop * kBands);
  }
  size_t hops() const { return signal.size() / kHop; }
  std::vector<float> signal, features;
};

// Where a band's energy is down at the floor, float and double FFTs differ in relative terms.
float FeatureTolerance(float reference) {
  return reference > -5.0f ? 1e-4f : 2e-2f;
}

TEST_F(Contract, FeaturesAndBlocksMatchTheNumPyContract) {
  FeatureExtractor fx;
  for (size_t t = 0; t < hops(); ++t) {
    fx.Push(&signal[t * kHop]);
    for (int b = 0; b < kBands; ++b) {
      const float want = features[t * kBands + b];
      ASSERT_NEAR(fx.features()[b], want, FeatureTolerance(want)) << "hop " << t << " band " << b;
      ASSERT_EQ(fx.vad_block()[b], fx.features()[b]);
    }
    // Row r of the block is frame t - 6 + r, silence before the start.
    for (int r = 0; r < kDenoiseRows; ++r) {
      const long frame = static_cast<long>(t) - (kDenoiseRows - 1) + r;
      for (int b = 0; b < kBands; ++b) {
        const float want = frame < 0 ? kSilenceFeature : features[frame * kBands + b];
        ASSERT_NEAR(fx.denoise_block()[r * kBands + b], want, FeatureTolerance(want))
            << "hop " << t << " row " << r << " band " << b;
      }
    }
  }
  // The exact silence in the signal gives exactly the silence feature.
  EXPECT_EQ(features[75 * kBands + 40], kSilenceFeature);
}

TEST_F(Contract, BinGainsAndSynthesisMatchTheNumPyContract) {
  const std::vector<float> gains = ReadFixture("band_gains.f32"), bins = ReadFixture("bin_gains.f32"),
                           want = ReadFixture("synthesis.f32");
  ASSERT_EQ(bins.size(), hops() * kBins);
  ASSERT_EQ(want.size(), signal.size());
  FeatureExtractor fx;
  Synthesizer synth;
  std::vector<float> out(signal.size());
  for (size_t t = 0; t < hops(); ++t) {
    float g[kBins];
    BinGains(&gains[t * kBands], g);
    for (int k = 0; k < kBins; ++k)
      ASSERT_NEAR(g[k], bins[t * kBins + k], 1e-6f) << "hop " << t << " bin " << k;
    fx.Push(&signal[t * kHop]);
    synth.Push(&gains[t * kBands], fx.spectrum(), &out[t * kHop]);
  }
  for (size_t n = 0; n < out.size(); ++n) ASSERT_NEAR(out[n], want[n], 2e-6f) << "sample " << n;
}

// Analysis and synthesis of one stream with every band gain at `gain`.
std::vector<float> Resynthesise(const std::vector<float>& x, float gain) {
  FeatureExtractor fx;
  Synthesizer synth;
  const std::vector<float> gains(kBands, gain);
  std::vector<float> y(x.size());
  for (size_t t = 0; t + kHop <= x.size(); t += kHop) {
    fx.Push(&x[t]);
    synth.Push(gains.data(), fx.spectrum(), &y[t]);
  }
  return y;
}

TEST_F(Contract, UnitGainsGiveTheInputOneHopLaterAndZeroGainsSilence) {
  const std::vector<float> y = Resynthesise(signal, 1.0f);
  for (int n = 0; n < kDelaySamples; ++n) ASSERT_NEAR(y[n], 0.0f, 1e-6f);
  for (size_t n = kDelaySamples; n < y.size(); ++n) ASSERT_NEAR(y[n], signal[n - kDelaySamples], 2e-6f) << n;
  const std::vector<float> silent = Resynthesise(signal, 0.0f);
  EXPECT_TRUE(std::all_of(silent.begin(), silent.end(), [](float v) { return v == 0.0f; }));
  // Gains beyond [0, 1] are clamped, not applied.
  EXPECT_EQ(Resynthesise(signal, 7.0f), y);
  EXPECT_EQ(Resynthesise(signal, -3.0f), silent);
}

TEST_F(Contract, ResetStartsTheStreamAfresh) {
  FeatureExtractor fresh, used;
  for (size_t t = 0; t < 20; ++t) used.Push(&signal[t * kHop]);
  used.Reset();
  for (size_t t = 0; t < 10; ++t) {
    fresh.Push(&signal[t * kHop]);
    used.Push(&signal[t * kHop]);
  }
  EXPECT_TRUE(std::equal(fresh.denoise_block(), fresh.denoise_block() + kDenoiseBlock, used.denoise_block()));
}

// A hop stream over unit-gain analysis and synthesis: the delay taken out, the output is the input.
struct IdentityStream {
  FeatureExtractor fx;
  Synthesizer synth;
  const std::vector<float> unit = std::vector<float>(kBands, 1.0f);
  HopStream stream{[this](const float* in, float* out) {
                     fx.Push(in);
                     synth.Push(unit.data(), fx.spectrum(), out);
                   },
                   kDelaySamples};
};

TEST_F(Contract, StreamingInOddChunksGivesWhatOneCallGives) {
  const std::vector<float> x(signal.begin(), signal.begin() + 4321);  // not a whole number of hops
  std::vector<float> whole, chunked;
  IdentityStream one;
  one.stream.Write(x.data(), x.size(), &whole);
  EXPECT_EQ(whole.size(), x.size() / kHop * kHop - kDelaySamples);
  one.stream.Finish(&whole);
  ASSERT_EQ(whole.size(), x.size());
  for (size_t n = 0; n < x.size(); ++n) ASSERT_NEAR(whole[n], x[n], 2e-6f) << n;

  IdentityStream many;
  std::mt19937 rng(7);
  for (size_t at = 0; at < x.size();) {
    const size_t count = std::min<size_t>(rng() % 397, x.size() - at);  // 0 to 396, odd sizes included
    many.stream.Write(&x[at], count, &chunked);
    at += count;
  }
  many.stream.Finish(&chunked);
  EXPECT_EQ(chunked, whole);
}

TEST_F(Contract, AStreamShorterThanTheDelayStillComesOutWhole) {
  IdentityStream s;
  std::vector<float> out;
  s.stream.Write(signal.data(), 37, &out);
  EXPECT_TRUE(out.empty());
  s.stream.Finish(&out);
  ASSERT_EQ(out.size(), 37u);
  for (size_t n = 0; n < out.size(); ++n) EXPECT_NEAR(out[n], signal[n], 2e-6f);
}

}  // namespace
}  // namespace zelva::audio
