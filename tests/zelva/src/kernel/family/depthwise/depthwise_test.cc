// The depthwise convolution family: every row of its list, planar and blocked, against the plain depthwise
// reference over random layers the row accepts (widths and heights 1, 7, 8, 9 and the stride-2 odd tails,
// channel counts at one to three blocks, padding, bias on and off), and against the torch.nn.Conv2d fixtures
// (tests/data/depthwise_fixture.txt, tools/gen_depthwise_fixture.py; and the depthwise cases of
// conv2d_fixture.txt), which hold the reference itself. Blocked rows get their input blocked and their output
// unblocked by the layout family's element rule.
#include <gtest/gtest.h>

#include <fstream>

#include "zelva/src/kernel/family/conv2d/planar_conv_tester.h"
#include "zelva/src/kernel/family/conv2d/reference.h"
#include "zelva/src/kernel/family/depthwise/members.h"
#include "zelva/src/kernel/family/depthwise/reference.h"
#include "zelva/src/kernel/family/layout/reference.h"

namespace zvtest {
namespace conv {
namespace {

using zelva::kernel::RelayoutReference;

std::vector<Member> DepthwiseMembers() {
  std::vector<Member> members;
  ZV_DEPTHWISE_MEMBERS(ZV_TEST_CONV_MEMBER)
  return members;
}

// Lanes of a row's layout, read off its channel rule: 1 for the planar rows.
uint32_t Lanes(const Member& m) {
  return m.rule->channels == ConvChannels::kMult4 ? 4u : m.rule->channels == ConvChannels::kMult8 ? 8u : 1u;
}

uint32_t BlockedLayout(uint32_t lanes) {
  return lanes == 8 ? runtime::Layout::C8HW8 : runtime::Layout::C4HW4;
}

std::vector<Member> PlanarMembers() {
  std::vector<Member> planar;
  for (const Member& m : DepthwiseMembers())
    if (Lanes(m) == 1) planar.push_back(m);
  return planar;
}

// A layer of the row's kernel and stride with `channels`, a w x h input and random padding of 0 to 2, the
// input grown where the padded size would not hold the kernel.
Layer DepthwiseLayer(const Member& m, uint32_t channels, uint32_t h, uint32_t w, bool bias,
                     std::mt19937& rng) {
  Layer l;
  l.ky = m.rule->kernel_y;
  l.kx = m.rule->kernel_x;
  l.sy = m.rule->stride_y;
  l.sx = m.rule->stride_x;
  l.in = l.out = l.groups = channels;
  l.pl = rng() % 3;
  l.pr = rng() % 3;
  l.pt = rng() % 3;
  l.pb = rng() % 3;
  l.w = std::max(w, l.kx - std::min(l.kx - 1, l.pl + l.pr));
  l.h = std::max(h, l.ky - std::min(l.ky - 1, l.pt + l.pb));
  l.bias = bias;
  l.weight = RandomFloats(static_cast<size_t>(channels) * l.ky * l.kx, rng(), -1.0f, 1.0f);
  l.bias_values = RandomFloats(channels, rng(), -1.0f, 1.0f);
  l.input = RandomFloats(static_cast<size_t>(channels) * l.h * l.w, rng(), -1.0f, 1.0f);
  return l;
}

// Runs a blocked row on `l` as the net does (input blocked, output unblocked) and holds it to `want`.
void ExpectBlockedMember(const Member& m, const Layer& l, const std::vector<float>& want,
                         const std::vector<float>& magnitude, const std::string& what) {
  const uint32_t lanes = Lanes(m), blocks = l.in / lanes, pixels = l.h * l.w,
                 out_pixels = l.OutH() * l.OutW();
  std::vector<float> blocked(l.input.size());
  RelayoutReference(l.input.data(), 1, pixels, blocked.data(), lanes, pixels * lanes, l.in, pixels);
  auto ctx = MakeTestContext();
  auto kernel = m.make();
  const auto outputs = RunKernel(
      *kernel, l.Info(), {MakeTensor(ctx, {blocks, l.h, l.w, lanes}, BlockedLayout(lanes), blocked)}, ctx);
  ASSERT_EQ(outputs.size(), 1u) << what;
  const runtime::TensorShape& s = outputs[0]->shape;
  ASSERT_EQ(s.dims, (std::vector<uint32_t>{l.out / lanes, l.OutH(), l.OutW(), lanes})) << what;
  EXPECT_EQ(s.layout, BlockedLayout(lanes)) << what;
  std::vector<float> got(want.size());
  RelayoutReference(outputs[0]->Data<float>(), lanes, out_pixels * lanes, got.data(), 1, out_pixels, l.out,
                    out_pixels);
  ExpectAccuracy(got, want, m.accuracy, what, &magnitude);
}

void ExpectAnyMember(const Member& m, const Layer& l, const std::vector<float>& want,
                     const std::vector<float>& magnitude, const std::string& what) {
  if (Lanes(m) == 1) {
    ExpectMember(m, l, want, magnitude, what);
  } else {
    ExpectBlockedMember(m, l, want, magnitude, what);
  }
}

TEST(DepthwiseFamily, EveryMemberMatchesTheReferenceOnRandomLayers) {
  std::mt19937 rng(11);
  const uint32_t sizes[] = {1, 7, 8, 9};
  for (const Member& m : DepthwiseMembers()) {
    if (SkipUnrunnable(m)) continue;
    const uint32_t lanes = Lanes(m);
    const uint32_t channels[] = {lanes == 1 ? 1u : lanes, lanes == 1 ? 5u : 2 * lanes,
                                 lanes == 1 ? 8u : 3 * lanes};
    bool odd_h = false, even_h = false, odd_w = false, even_w = false;
    int round = 0;
    for (const uint32_t w : {1u, 7u, 8u, 9u, 10 + static_cast<uint32_t>(rng() % 30)}) {
      for (const uint32_t h : sizes) {
        const Layer l = DepthwiseLayer(m, channels[round % 3], h, w, round % 2 == 0, rng);
        ++round;
        const std::string what = m.name + " " + l.Describe();
        ASSERT_EQ(m.make()->CheckSupport(l.Info(), nullptr), 0) << what;
        ExpectAnyMember(m, l, RunReference(&zelva::kernel::DepthwiseReference, l),
                        RunReference(&zelva::kernel::DepthwiseReference, l, true), what);
        if (::testing::Test::HasFailure()) return;
        (l.OutH() % 2 ? odd_h : even_h) = true;
        (l.OutW() % 2 ? odd_w : even_w) = true;
      }
    }
    // The stride-2 cores take two rows and columns a round: both the full rounds and the odd tails ran.
    EXPECT_TRUE(odd_h && even_h && odd_w && even_w) << m.name;
  }
}

// The reference reads any kernel, stride and dilation: held against the general 2D convolution on layers no
// member takes, so that any geometry of a member finds it sound.
TEST(DepthwiseFamily, ReferenceAgreesWithTheConvolutionOfGroupsEqualToChannels) {
  std::mt19937 rng(3);
  Conv2dRule any{"any",
                 kConvNonZero,
                 kConvNonZero,
                 kConvNonZero,
                 kConvNonZero,
                 kConvNonZero,
                 kConvNonZero,
                 ConvChannels::kDepthwise,
                 ConvGroups::kNonZero,
                 kConvPadAny,
                 kConvPadAny,
                 kConvPadAny,
                 kConvPadAny};
  for (int round = 0; round < 40; ++round) {
    const Layer l = RandomLayer(any, rng);
    ExpectAccuracy(RunReference(&zelva::kernel::DepthwiseReference, l),
                   RunReference(&zelva::kernel::Conv2dReference, l), zelva::kernel::kBitExact, l.Describe());
  }
}

// Every row refuses another kernel, stride or dilation, groups 0, an InferenceParam and another kind of
// layer. Planar rows want in and out equal to groups; blocked rows test multiples of their block alone, and
// Config reports a layer that is not one kernel per channel.
TEST(DepthwiseFamily, RefusalsFollowTheRule) {
  std::mt19937 rng(5);
  auto ctx = MakeTestContext();
  for (const Member& m : DepthwiseMembers()) {
    SCOPED_TRACE(m.name);
    const uint32_t lanes = Lanes(m), c = lanes == 1 ? 3 : 2 * lanes;
    const Layer base = DepthwiseLayer(m, c, 9, 9, true, rng);
    auto kernel = m.make();
    EXPECT_EQ(kernel->GetName(), m.name);
    EXPECT_EQ(kernel->CheckSupport(base.Info(), nullptr), 0);
    EXPECT_EQ(kernel->CheckSupport(base.Info(), std::make_shared<runtime::InferenceParamActQuant>()), -1);
    EXPECT_EQ(kernel->CheckSupport(std::make_shared<runtime::ConvTranspose2dInfo>(), nullptr), -1);
    auto refused = [&](const char* what, const std::function<void(runtime::Conv2dInfo&)>& change) {
      auto info = base.Info();
      change(*info);
      EXPECT_EQ(kernel->CheckSupport(info, nullptr), -1) << what;
      EXPECT_FALSE(kernel->Config(info, nullptr, nullptr, ctx)) << what;
      EXPECT_FALSE(kernel->IsConfigured()) << what;
    };
    refused("groups 0", [](runtime::Conv2dInfo& i) { i.groups = 0; });
    refused("kernel_y", [](runtime::Conv2dInfo& i) { i.kernel_y = static_cast<uint16_t>(i.kernel_y + 2); });
    refused("kernel_x", [](runtime::Conv2dInfo& i) { i.kernel_x = static_cast<uint16_t>(i.kernel_x - 2); });
    refused("stride_y", [](runtime::Conv2dInfo& i) { i.stride_y = static_cast<uint16_t>(3 - i.stride_y); });
    refused("stride_x", [](runtime::Conv2dInfo& i) { i.stride_x = static_cast<uint16_t>(3 - i.stride_x); });
    refused("dilation", [](runtime::Conv2dInfo& i) { i.dilation_x = 2; });
    if (lanes == 1) {
      refused("in != groups",
              [](runtime::Conv2dInfo& i) { i.in_channels = static_cast<uint16_t>(i.groups + 1); });
      refused("out != groups",
              [](runtime::Conv2dInfo& i) { i.out_channels = static_cast<uint16_t>(i.groups * 2); });
    } else {
      const uint16_t off = static_cast<uint16_t>(lanes + 2);
      refused("channels off the block",
              [off](runtime::Conv2dInfo& i) { i.in_channels = i.out_channels = i.groups = off; });
      auto grouped = base.Info();
      grouped->groups = static_cast<uint16_t>(lanes);
      EXPECT_EQ(kernel->CheckSupport(grouped, nullptr), 0);
      EXPECT_THROW(kernel->Config(grouped, nullptr, nullptr, ctx), std::runtime_error);
    }
  }
}

// The planar rows share the planar frame's checks; the blocked rows' tensor checks and reported misuse.
TEST(DepthwiseFamily, TensorChecksAndReportedMisuse) {
  ExpectTensorChecksAndReportedMisuse(PlanarMembers());
  using runtime::DataType;
  std::mt19937 rng(9);
  auto ctx = MakeTestContext();
  for (const Member& m : DepthwiseMembers()) {
    const uint32_t lanes = Lanes(m);
    if (lanes == 1) continue;
    SCOPED_TRACE(m.name);
    const uint32_t layout = BlockedLayout(lanes),
                   other = lanes == 8 ? runtime::Layout::C4HW4 : runtime::Layout::C8HW8;
    auto tensor = [&](std::vector<uint32_t> dims, uint32_t type = DataType::FLOAT32, uint32_t lay = 0xFFu) {
      std::shared_ptr<runtime::Tensor> t;
      ctx->GetDeviceCPU()->CreateTensor(
          t, runtime::TensorShape(std::move(dims), type, lay == 0xFFu ? layout : lay));
      return t;
    };
    const Layer l = DepthwiseLayer(m, 2 * lanes, 9, 9, true, rng);
    auto kernel = m.make();
    ASSERT_TRUE(kernel->Config(l.Info(), nullptr, nullptr, ctx));
    const std::vector<uint32_t> dims = {2, l.h, l.w, lanes};
    EXPECT_EQ(kernel->CheckInputs({tensor(dims)}), 0);
    EXPECT_EQ(kernel->CheckInputs({tensor(dims, DataType::FLOAT16)}), 0);
    EXPECT_EQ(kernel->CheckInputs({tensor(dims, DataType::INT32)}), -2);
    EXPECT_EQ(kernel->CheckInputs({tensor({3, l.h, l.w, lanes})}), -2);
    EXPECT_EQ(kernel->CheckInputs({tensor(dims, DataType::FLOAT32, other)}), -2);
    EXPECT_EQ(kernel->CheckInputs({tensor(dims), tensor(dims)}), -2);
    EXPECT_EQ(kernel->CheckOutputs({tensor(dims)}), 0);
    EXPECT_EQ(kernel->CheckOutputs({tensor(dims, DataType::FLOAT16)}), -2);
    EXPECT_EQ(kernel->CheckOutputs({}), -2);

    runtime::TensorList outputs;
    EXPECT_THROW(kernel->Forward({tensor({3, l.h, l.w, lanes})}, outputs, ctx), std::runtime_error);
    EXPECT_THROW(kernel->Forward({tensor({2 * lanes, l.h, l.w}, DataType::FLOAT32, runtime::Layout::CHW)},
                                 outputs, ctx),
                 std::runtime_error);
    EXPECT_THROW(m.make()->Forward({tensor(dims)}, outputs, ctx), std::runtime_error);  // not configured
    auto info = l.Info();
    info->weight = WeightText(std::vector<float>(l.weight.size() - 1, 0.0f));
    EXPECT_THROW(m.make()->Config(info, nullptr, nullptr, ctx), std::runtime_error);
  }
}

// The cases of a fixture file in the format of conv2d_fixture.txt.
std::vector<FixtureCase> ReadFixture(const std::string& file_name) {
  std::vector<FixtureCase> cases;
  std::ifstream file(std::string(ZELVA_TEST_DATA_DIR) + "/" + file_name);
  EXPECT_TRUE(file.good()) << file_name;
  const std::vector<float> count = ReadFixtureRow(file);
  for (int c = 0; count.size() == 1 && c < static_cast<int>(count[0]); ++c) {
    FixtureCase fc;
    std::getline(file, fc.name);
    const std::vector<float> f = ReadFixtureRow(file);
    if (f.size() != 16u) {
      ADD_FAILURE() << fc.name << ": " << f.size() << " fields";
      break;
    }
    Layer& l = fc.layer;
    uint32_t* fields[] = {&l.in, &l.out, &l.h,      &l.w,  &l.ky, &l.kx, &l.sy, &l.sx,
                          &l.dy, &l.dx,  &l.groups, &l.pl, &l.pr, &l.pt, &l.pb};
    for (int k = 0; k < 15; ++k) *fields[k] = static_cast<uint32_t>(f[k]);
    l.bias = f[15] != 0.0f;
    l.weight = ReadFixtureRow(file);
    l.bias_values = ReadFixtureRow(file);
    l.input = ReadFixtureRow(file);
    fc.want = ReadFixtureRow(file);
    EXPECT_EQ(fc.want.size(), static_cast<size_t>(l.out) * l.OutH() * l.OutW()) << fc.name;
    cases.push_back(std::move(fc));
  }
  return cases;
}

// The reference against torch on every case, every row that accepts a case against the reference; and every
// row runs at least one case.
TEST(DepthwiseFamily, ReferenceAndMembersMatchTorchFixtures) {
  MemberCoverage coverage;
  for (const char* file : {"depthwise_fixture.txt", "conv2d_fixture.txt"}) {
    for (const FixtureCase& fc : ReadFixture(file)) {
      const Layer& l = fc.layer;
      if (l.groups != l.in || l.groups != l.out) continue;
      const std::vector<float> magnitude = RunReference(&zelva::kernel::DepthwiseReference, l, true);
      const std::vector<float> want = RunReference(&zelva::kernel::DepthwiseReference, l);
      ExpectAccuracy(want, fc.want, kAgainstTorch, fc.name + " by the reference", &magnitude);
      for (const Member& m : DepthwiseMembers()) {
        if (!CanRun(m.isa) || m.make()->CheckSupport(l.Info(), nullptr) != 0) continue;
        ExpectAnyMember(m, l, want, magnitude, fc.name + " by " + m.name);
        coverage.Ran(m.name);
      }
    }
  }
  coverage.ExpectEachRan(DepthwiseMembers());
}

}  // namespace
}  // namespace conv
}  // namespace zvtest
