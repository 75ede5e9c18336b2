// The batch-normalisation family: the reference held against the eval-mode layer of torch
// (tools/gen_batchnorm_fixture.py), every row of the list against the reference under its accuracy class, the
// folding quirks, refusals and tensor checks.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "support/kernel_tester.h"
#include "support/model_builder.h"
#include "zelva/src/kernel/family/batchnorm/members.h"
#include "zelva/src/kernel/family/batchnorm/reference.h"

namespace zelva {
namespace kernel {
namespace {

using runtime::DataType;
using runtime::Layout;

using Member = zvtest::PlainMember;

std::vector<Member> AllMembers() {
  return ZV_PLAIN_MEMBERS(ZV_BATCHNORM_MEMBERS);
}

struct Layer {
  std::vector<float> scale, shift, mean, variance;
  float eps = 0.0f;
  std::shared_ptr<runtime::BatchNorm2dInfo> Info() const {
    auto info = std::make_shared<runtime::BatchNorm2dInfo>();
    info->num_features = static_cast<uint16_t>(mean.size());
    info->eps = eps;
    info->scale = zvtest::WeightText(scale);
    info->shift = zvtest::WeightText(shift);
    info->mean = zvtest::WeightText(mean);
    info->variance = zvtest::WeightText(variance);
    return info;
  }
  // The reference on planar [channels, plane] data.
  std::vector<float> Reference(const std::vector<float>& x) const {
    const uint32_t channels = static_cast<uint32_t>(mean.size());
    const uint32_t plane = static_cast<uint32_t>(x.size() / channels);
    std::vector<float> a(channels), b(channels), y(x.size());
    FoldBatchNorm(scale.data(), shift.data(), mean.data(), variance.data(), eps, channels, a.data(),
                  b.data());
    BatchNormPlanar(x.data(), plane, y.data(), plane, channels, plane, a.data(), b.data());
    return y;
  }
};

// The kernels keep tensors of the context's device, so the context outlives every kernel that ran in it.
std::vector<float> RunMember(runtime::IKernel& kernel, const std::shared_ptr<runtime::LayerInfo>& info,
                             const std::vector<uint32_t>& dims, const std::vector<float>& x) {
  static const std::shared_ptr<runtime::Context> ctx = zvtest::MakeTestContext();
  const auto outputs = zvtest::RunKernel(kernel, info, {zvtest::MakeTensor(ctx, dims, Layout::CHW, x)}, ctx);
  if (outputs.size() != 1u) {
    ADD_FAILURE() << outputs.size() << " outputs";
    return {};
  }
  EXPECT_EQ(outputs[0]->shape.dims, dims);
  EXPECT_EQ(outputs[0]->shape.layout, Layout::CHW);
  return zvtest::Values(outputs[0]);
}

// The reference (the member's own core) against torch; every row against the reference, on the fixture and
// on random layers of every rank the planar layout takes.
TEST(BatchNormFamily, ReferenceMatchesTorchAndMembersMatchTheReference) {
  std::ifstream file(std::string(ZELVA_TEST_DATA_DIR) + "/batchnorm2d_fixture.txt");
  ASSERT_TRUE(file.good());
  const std::vector<float> head = zvtest::ReadFixtureRow(file);
  ASSERT_EQ(head.size(), 4u);
  const uint32_t c = static_cast<uint32_t>(head[0]), h = static_cast<uint32_t>(head[1]),
                 w = static_cast<uint32_t>(head[2]);
  Layer fixture;
  fixture.eps = head[3];
  fixture.scale = zvtest::ReadFixtureRow(file);
  fixture.shift = zvtest::ReadFixtureRow(file);
  fixture.mean = zvtest::ReadFixtureRow(file);
  fixture.variance = zvtest::ReadFixtureRow(file);
  const std::vector<float> x = zvtest::ReadFixtureRow(file), expected = zvtest::ReadFixtureRow(file);
  ASSERT_EQ(expected.size(), c * h * w);
  zvtest::ExpectAccuracy(fixture.Reference(x), expected, Within(1e-5f, 1e-5f), "reference against torch");

  std::mt19937 rng(4);
  for (const Member& m : AllMembers()) {
    if (zvtest::SkipUnrunnable(m)) continue;
    auto kernel = m.make();
    zvtest::ExpectAccuracy(RunMember(*kernel, fixture.Info(), {c, h, w}, x), fixture.Reference(x), m.accuracy,
                           m.name + " on the fixture");
    for (int round = 0; round < 8; ++round) {
      const uint32_t channels = 1 + rng() % 9;
      std::vector<uint32_t> dims = {channels};
      for (int d = round % 3; d > 0; --d) dims.push_back(1 + rng() % 13);
      uint32_t count = 1;
      for (const uint32_t v : dims) count *= v;
      Layer l;
      l.scale = zvtest::RandomFloats(channels, rng());
      l.shift = zvtest::RandomFloats(channels, rng());
      l.mean = zvtest::RandomFloats(channels, rng());
      l.variance = zvtest::RandomFloats(channels, rng(), 0.1f, 3.0f);
      l.eps = 1e-5f;
      const std::vector<float> data = zvtest::RandomFloats(count, rng());
      auto fresh = m.make();
      zvtest::ExpectAccuracy(RunMember(*fresh, l.Info(), dims, data), l.Reference(data), m.accuracy,
                             m.name + " rank " + std::to_string(dims.size()));
    }
  }
}

TEST(BatchNormFamily, ZeroVarianceAndNoAffine) {
  const std::vector<float> x = {1.5f, -2.0f, 0.25f, 3.0f, -0.5f, 8.0f};
  for (const Member& m : AllMembers()) {
    SCOPED_TRACE(m.name);
    // variance 0 and eps 0: division by zero, no guard; the channel is no longer finite, the other untouched.
    const std::vector<float> y =
        RunMember(*m.make(), Layer{{1, 1}, {0, 0}, {0, 0}, {0, 1}, 0.0f}.Info(), {2, 1, 3}, x);
    for (int k = 0; k < 3; ++k) EXPECT_FALSE(std::isfinite(y[k])) << k;
    EXPECT_EQ(y[3], 3.0f);

    // Without affine parameters only the statistics act: (x - 1) / sqrt(4) per channel.
    auto info = Layer{{}, {}, {1, 1}, {4, 4}, 0.0f}.Info();
    info->if_affine = false;
    EXPECT_EQ(RunMember(*m.make(), info, {2, 1, 3}, x)[0], 0.25f);
  }
}

TEST(BatchNormFamily, RefusalsAndChecks) {
  auto ctx = zvtest::MakeTestContext();
  for (const Member& m : AllMembers()) {
    SCOPED_TRACE(m.name);
    auto kernel = m.make();
    EXPECT_EQ(kernel->GetName(), m.name);
    auto info = Layer{{1}, {0}, {0}, {1}, 0.0f}.Info();
    EXPECT_FALSE(kernel->Config(info, std::make_shared<runtime::InferenceParamActQuant>(), nullptr, ctx));
    EXPECT_FALSE(kernel->Config(std::make_shared<runtime::BatchNorm1dInfo>(), nullptr, nullptr, ctx));
    EXPECT_FALSE(kernel->IsConfigured());

    // A weight text shorter than the feature count is reported, not read past.
    auto short_info = Layer{{1}, {0}, {0}, {1}, 0.0f}.Info();
    short_info->num_features = 2;
    EXPECT_THROW(kernel->Config(short_info, nullptr, nullptr, ctx), std::runtime_error);

    ASSERT_TRUE(kernel->Config(info, nullptr, nullptr, ctx));
    const std::vector<float> four(4, 1.0f);
    auto planar = zvtest::MakeTensor(ctx, {1, 2, 2}, Layout::CHW, four);
    EXPECT_EQ(kernel->CheckInputs({planar}), 0);
    EXPECT_EQ(kernel->CheckOutputs({planar}), 0);
    EXPECT_EQ(kernel->CheckInputs({zvtest::MakeTensor(ctx, {1, 1, 1, 4}, Layout::C4HW4, four)}), -2);
    EXPECT_EQ(kernel->CheckInputs({planar, planar}), -2);

    // A tensor whose channel count is not the layer's is reported.
    runtime::TensorList outputs;
    EXPECT_THROW(kernel->Forward({zvtest::MakeTensor(ctx, {2, 1, 2}, Layout::CHW, four)}, outputs, ctx),
                 std::runtime_error);
  }
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
