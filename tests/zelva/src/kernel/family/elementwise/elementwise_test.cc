// The elementwise and broadcast family's tester, driven by the one member list: every member is held bit
// for bit against plain scalar loops written here (the family's members are all bit-exact), and each vector
// core's output over a fixed input is pinned bit for bit.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "support/kernel_tester.h"
#include "support/log_capture.h"
#include "zelva/src/kernel/family/elementwise/members.h"
#include "zelva/src/kernel/registry/registry.h"

namespace zelva {
namespace kernel {
namespace {

using runtime::DataType;
using runtime::Layout;
using runtime::TensorShape;

struct Member {
  std::string name;
  std::function<std::shared_ptr<runtime::IKernel>()> make;
  uint32_t kind;
  uint32_t op;
  ElementwiseCore core;  // same-shape vector members only
  Isa isa;
};

template <class T>
constexpr ElementwiseCore SameShapeCore(T core) {
  if constexpr (std::is_same<T, ElementwiseCore>::value) {
    return core;
  } else {
    return nullptr;
  }
}

#define ZV_TEST_ROW(group, isa, cls, accuracy, kind, op, core) \
  Member{#cls, &NewKernel<cls>, kind, op, SameShapeCore(core), Isa::isa},

const std::vector<Member>& Members() {
  static const std::vector<Member> members = {ZV_ELEMENTWISE_MEMBERS(ZV_TEST_ROW)};
  return members;
}

bool Runnable(const Member& m) {
  return zvtest::CanRun(m.isa);
}

// The scalar reference: max and min return b unless a compares greater (smaller), as the instructions do.
float Reference(uint32_t op, float a, float b) {
  switch (op) {
    case kOpAdd:
      return a + b;
    case kOpSub:
      return a - b;
    case kOpMul:
      return a * b;
    case kOpDiv:
      return a / b;
    case kOpMax:
      return a > b ? a : b;
    case kOpMin:
      return a < b ? a : b;
  }
  return std::nanf("");
}

std::vector<float> Random(std::mt19937& rng, size_t n) {
  std::uniform_real_distribution<float> value(-8.0f, 8.0f);
  std::vector<float> v(n);
  for (float& x : v) x = value(rng);
  return v;
}

template <class Info>
std::shared_ptr<Info> OpInfo(uint32_t op_type) {
  auto info = std::make_shared<Info>();
  info->op_type = static_cast<uint16_t>(op_type);
  return info;
}

class ElementwiseFamilyTest : public ::testing::Test {
 protected:
  std::shared_ptr<runtime::Tensor> Tensor(const std::vector<uint32_t>& dims, const std::vector<float>& v,
                                          uint32_t layout = Layout::CHW, uint32_t type = DataType::FLOAT32) {
    std::shared_ptr<runtime::Tensor> t;
    context_->GetDeviceCPU()->CreateTensor(t, TensorShape(dims, type, layout), v.data());
    return t;
  }
  // Forward through the interface; the output's shape must be the one GetOutputShapes promised.
  std::shared_ptr<runtime::Tensor> Forward(runtime::IKernel& kernel, const runtime::TensorList& inputs) {
    const auto shapes = kernel.GetOutputShapes({inputs[0]->shape, inputs[1]->shape});
    runtime::TensorList outputs;
    kernel.Forward(inputs, outputs, context_);
    EXPECT_EQ(outputs.size(), 1u);
    EXPECT_EQ(outputs[0]->shape.dims, shapes[0].dims);
    EXPECT_EQ(outputs[0]->shape.layout, inputs[0]->shape.layout);
    return outputs[0];
  }
  std::shared_ptr<runtime::Context> context_ = zvtest::MakeTestContext();
};

// ---- Same shape: every member, every op it runs, sizes 1..40 and larger ----------------------------------

class SameShapeTest : public ElementwiseFamilyTest, public ::testing::WithParamInterface<Member> {};

// Every op the member runs over sizes 1..40 and larger, with NaNs and zeros in either operand (in the body
// and in the rest) for the operand order of max and min and IEEE division by zero; NaN matches any NaN.
TEST_P(SameShapeTest, MatchesScalarLoopOverAllTailLengths) {
  const Member& m = GetParam();
  if (!Runnable(m)) GTEST_SKIP() << "no AVX on this processor";
  const std::vector<uint32_t> ops =
      m.kind == kByName ? std::vector<uint32_t>{kOpAdd, kOpSub, kOpMul, kOpDiv} : std::vector<uint32_t>{m.op};
  const float nan = std::numeric_limits<float>::quiet_NaN();
  std::mt19937 rng(11);
  std::vector<uint32_t> sizes;
  for (uint32_t n = 1; n <= 40; ++n) sizes.push_back(n);
  for (uint32_t n : {47u, 63u, 64u, 65u, 100u, 1031u}) sizes.push_back(n);
  for (uint32_t op : ops) {
    auto kernel = m.make();
    ASSERT_TRUE(kernel->Config(OpInfo<runtime::ElementWiseOperatorInfo>(op), nullptr, nullptr, context_));
    for (uint32_t n : sizes) {
      std::vector<float> a = Random(rng, n), b = Random(rng, n);
      if (n % 3 == 1) {
        for (uint32_t i = 0; i < n; ++i) {
          if (i % 7 == 0) a[i] = nan;
          if (i % 7 == 3) b[i] = nan;
          if (i % 5 == 2) b[i] = 0.0f;
          if (i % 10 == 2) a[i] = 0.0f;
        }
      }
      std::vector<float> want(n);
      for (uint32_t i = 0; i < n; ++i) want[i] = Reference(op, a[i], b[i]);
      auto out = Forward(*kernel, {Tensor({n}, a), Tensor({n}, b)});
      zvtest::ExpectAccuracy(zvtest::Values(out), want, kBitExact,
                             m.name + " op " + std::to_string(op) + " n " + std::to_string(n));
      if (HasFailure()) return;
    }
  }
}

// FNV-1a over the bits of a core's outputs for every run length 0..70 of fixed inputs in [-9, 9]: the
// members' outputs as they were when the family moved into its house.
TEST_P(SameShapeTest, CoreOutputBitsArePinned) {
  const Member& m = GetParam();
  if (!Runnable(m) || m.core == nullptr) GTEST_SKIP();
  static const std::map<uint32_t, uint32_t> kPinned = {{kOpAdd, 0xB9C6EEB5u}, {kOpSub, 0xC296011Eu},
                                                       {kOpMul, 0x3EAC660Fu}, {kOpDiv, 0x9695DEA8u},
                                                       {kOpMax, 0xDA17375Bu}, {kOpMin, 0x148FCA95u}};
  uint32_t h = 2166136261u;
  for (uint32_t n = 0; n <= 70; ++n) {
    std::vector<float> a = zvtest::RandomFloats(n, n + 1, -9.0f, 9.0f),
                       b = zvtest::RandomFloats(n, n + 100, -9.0f, 9.0f);
    std::vector<float> y(n);
    m.core(a.data(), b.data(), n, y.data());
    h = zvtest::Fnv1a(y, h);
  }
  EXPECT_EQ(h, kPinned.at(m.op)) << m.name;
}

// The cores write in place: out = a and out = b give what a separate output gives.
TEST_P(SameShapeTest, CoreInPlace) {
  const Member& m = GetParam();
  if (!Runnable(m) || m.core == nullptr) GTEST_SKIP();
  std::mt19937 rng(5);
  for (uint32_t n : {3u, 17u, 38u, 70u}) {
    const std::vector<float> a = Random(rng, n), b = Random(rng, n);
    std::vector<float> separate(n), over_a = a, over_b = b;
    m.core(a.data(), b.data(), n, separate.data());
    m.core(over_a.data(), b.data(), n, over_a.data());
    m.core(a.data(), over_b.data(), n, over_b.data());
    EXPECT_EQ(over_a, separate);
    EXPECT_EQ(over_b, separate);
  }
}

TEST_P(SameShapeTest, SupportAndChecks) {
  const Member& m = GetParam();
  auto kernel = m.make();
  EXPECT_EQ(kernel->GetName(), m.name);
  for (uint32_t op = 0; op < 8; ++op) {
    const bool own = m.kind == kByName || m.op >= kOpMax || op == m.op;
    EXPECT_EQ(kernel->CheckSupport(OpInfo<runtime::ElementWiseOperatorInfo>(op), nullptr), own ? 0 : -1)
        << op;
  }
  EXPECT_EQ(kernel->CheckSupport(OpInfo<runtime::BroadcastOperatorInfo>(m.op), nullptr), -1);
  EXPECT_EQ(kernel->CheckSupport(OpInfo<runtime::ElementWiseOperatorInfo>(m.op),
                                 std::make_shared<runtime::InferenceParamActQuant>()),
            -1);
  const std::vector<float> v(6, 1.0f);
  auto f6 = Tensor({2, 3}, v), f3 = Tensor({3}, v), i6 = Tensor({6}, v, Layout::CHW, DataType::INT32);
  EXPECT_EQ(kernel->CheckInputs({f6, f6}), 0);
  EXPECT_EQ(kernel->CheckInputs({f6}), -2);
  EXPECT_EQ(kernel->CheckInputs({f6, i6}), -2);
  EXPECT_EQ(kernel->CheckOutputs({f6}), 0);
  // The scalar member checks count, type and place only; the vector members the element count too.
  EXPECT_EQ(kernel->CheckInputs({f6, f3}), m.kind == kByName ? 0 : -2);
  // Whatever the check says, a shorter second operand is reported rather than read past.
  ASSERT_TRUE(kernel->Config(OpInfo<runtime::ElementWiseOperatorInfo>(m.op), nullptr, nullptr, context_));
  runtime::TensorList outputs;
  EXPECT_THROW(kernel->Forward({f6, f3}, outputs, context_), std::runtime_error);
}

std::vector<Member> SameShapeMembers() {
  std::vector<Member> list;
  for (const Member& m : Members())
    if (m.kind == kSameShape || m.kind == kByName) list.push_back(m);
  return list;
}

void PrintTo(const Member& m, std::ostream* os) {
  *os << m.name;
}
INSTANTIATE_TEST_SUITE_P(AllMembers, SameShapeTest, ::testing::ValuesIn(SameShapeMembers()),
                         zvtest::MemberName());

TEST_F(ElementwiseFamilyTest, FallbackUnknownOpLogsAndComputesNothing) {
  zvtest::LogCapture log;
  Elementwise_Fallback_Float_M1 kernel;
  ASSERT_TRUE(kernel.Config(OpInfo<runtime::ElementWiseOperatorInfo>(7), nullptr, nullptr, context_));
  EXPECT_TRUE(kernel.state().param.op_name.empty());
  ASSERT_FALSE(log.lines().empty());
  EXPECT_NE(log.Last().find("Invalid element wise type"), std::string::npos);
  // Fill a pool block, release it, and see it come back untouched as the output.
  auto a = Tensor({5}, std::vector<float>(5, 1.0f)), b = Tensor({5}, std::vector<float>(5, 2.0f));
  { auto marker = Tensor({5}, std::vector<float>(5, 42.0f)); }
  auto out = Forward(kernel, {a, b});
  for (int i = 0; i < 5; ++i) EXPECT_EQ(out->Data<float>()[i], 42.0f) << i;
  EXPECT_EQ(out->shape.dims, (std::vector<uint32_t>{5}));
}

// ---- Broadcast of any rank -------------------------------------------------------------------------------

// The reference walks the output by a multi-index counter, independent of stride arithmetic.
std::vector<float> BroadcastReference(uint32_t op, const std::vector<float>& a, std::vector<uint32_t> ad,
                                      const std::vector<float>& b, std::vector<uint32_t> bd,
                                      std::vector<uint32_t>& od) {
  const size_t rank = std::max(ad.size(), bd.size());
  ad.insert(ad.begin(), rank - ad.size(), 1);
  bd.insert(bd.begin(), rank - bd.size(), 1);
  od.assign(rank, 0);
  size_t total = 1;
  for (size_t d = 0; d < rank; ++d) total *= (od[d] = std::max(ad[d], bd[d]));
  std::vector<float> out;
  std::vector<uint32_t> idx(rank, 0);
  for (size_t i = 0; i < total; ++i) {
    size_t ia = 0, ib = 0;
    for (size_t d = 0; d < rank; ++d) {
      ia = ia * ad[d] + (ad[d] == 1 ? 0 : idx[d]);
      ib = ib * bd[d] + (bd[d] == 1 ? 0 : idx[d]);
    }
    out.push_back(Reference(op, a[ia], b[ib]));
    for (size_t d = rank; d-- > 0;) {
      if (++idx[d] < od[d]) break;
      idx[d] = 0;
    }
  }
  return out;
}

TEST_F(ElementwiseFamilyTest, BroadcastFallbackRandomShapesAllOps) {
  std::mt19937 rng(3);
  std::uniform_int_distribution<uint32_t> rank_of(1, 4), dim_of(2, 5), coin(0, 2);
  for (uint32_t op = kOpAdd; op <= kOpMin; ++op) {
    BroadcastOperator_Fallback_Float_M1 kernel;
    ASSERT_TRUE(kernel.Config(OpInfo<runtime::BroadcastOperatorInfo>(op), nullptr, nullptr, context_));
    for (int round = 0; round < 25; ++round) {
      const uint32_t ra = rank_of(rng), rb = rank_of(rng);
      std::vector<uint32_t> ad(ra), bd(rb);
      for (uint32_t& d : ad) d = dim_of(rng);
      for (size_t k = 1; k <= rb; ++k) {
        // Where both have the dim, b takes a's size or 1 (or a becomes 1); the rest is free.
        uint32_t& d = bd[rb - k];
        if (k <= ra) {
          const uint32_t c = coin(rng);
          d = c == 0 ? 1 : ad[ra - k];
          if (c == 2) ad[ra - k] = 1, d = dim_of(rng);
        } else {
          d = dim_of(rng);
        }
      }
      size_t na = 1, nb = 1;
      for (uint32_t d : ad) na *= d;
      for (uint32_t d : bd) nb *= d;
      // NaNs and signed zeros among the values: the operand order of max and min shows in the bits.
      std::vector<float> a = Random(rng, na), b = Random(rng, nb);
      const float specials[] = {std::numeric_limits<float>::quiet_NaN(), 0.0f, -0.0f};
      for (size_t i = round % 3; i < na; i += 4) a[i] = specials[i % 3];
      for (size_t i = round % 2; i < nb; i += 3) b[i] = specials[(i + 1) % 3];
      std::vector<uint32_t> od;
      const std::vector<float> want = BroadcastReference(op, a, ad, b, bd, od);
      auto ta = Tensor(ad, a), tb = Tensor(bd, b);
      ASSERT_EQ(kernel.CheckInputs({ta, tb}), 0);
      auto out = Forward(kernel, {ta, tb});
      ASSERT_EQ(out->shape.dims, od);
      zvtest::ExpectAccuracy(zvtest::Values(out), want, kBitExact, "op " + std::to_string(op));
      if (HasFailure()) return;
    }
  }
}

TEST_F(ElementwiseFamilyTest, BroadcastFallbackRefusals) {
  BroadcastOperator_Fallback_Float_M1 kernel;
  EXPECT_EQ(kernel.CheckSupport(OpInfo<runtime::BroadcastOperatorInfo>(6), nullptr), -1);
  EXPECT_EQ(kernel.CheckSupport(OpInfo<runtime::ElementWiseOperatorInfo>(0), nullptr), -1);
  EXPECT_EQ(kernel.CheckSupport(OpInfo<runtime::BroadcastOperatorInfo>(1),
                                std::make_shared<runtime::InferenceParamActQuant>()),
            -1);
  ASSERT_TRUE(kernel.Config(OpInfo<runtime::BroadcastOperatorInfo>(1), nullptr, nullptr, context_));
  // 2 x 3 against 4 x 3 does not fit.
  const std::vector<float> v(12, 1.0f);
  auto a = Tensor({2, 3}, v), b = Tensor({4, 3}, v);
  EXPECT_EQ(kernel.CheckInputs({a, b}), -2);
  EXPECT_EQ(kernel.CheckInputs({a}), -2);
  EXPECT_THROW(kernel.GetOutputShapes({a->shape, b->shape}), std::runtime_error);
  runtime::TensorList outputs;
  EXPECT_THROW(kernel.Forward({a, b}, outputs, context_), std::runtime_error);
}

// ---- Channel gates of the blocked layouts ----------------------------------------------------------------

class ChannelMulTest : public ElementwiseFamilyTest, public ::testing::WithParamInterface<Member> {};

TEST_P(ChannelMulTest, GateAndGeneralBroadcastMatchScalarLoop) {
  const Member& m = GetParam();
  if (!Runnable(m)) GTEST_SKIP() << "no AVX on this processor";
  const uint32_t lanes = m.kind == kChannelBlock4 ? 4 : 8;
  const uint32_t layout = lanes == 4 ? Layout::C4HW4 : Layout::C8HW8;
  auto kernel = m.make();
  ASSERT_TRUE(kernel->Config(OpInfo<runtime::BroadcastOperatorInfo>(kOpMul), nullptr, nullptr, context_));
  std::mt19937 rng(9);
  struct Case {
    uint32_t ha, wa, hb, wb;
  };
  std::vector<Case> cases;
  for (uint32_t h = 1; h <= 5; ++h)
    for (uint32_t w = 1; w <= 9; w += 2) cases.push_back({h, w, 1, 1});  // one value per channel
  cases.push_back({4, 6, 4, 1});
  cases.push_back({1, 6, 3, 6});
  cases.push_back({3, 1, 1, 5});
  cases.push_back({2, 3, 2, 3});
  for (uint32_t blocks : {1u, 3u}) {
    for (const Case& c : cases) {
      const std::vector<uint32_t> ad = {blocks, c.ha, c.wa, lanes}, bd = {blocks, c.hb, c.wb, lanes};
      const std::vector<float> a = Random(rng, blocks * c.ha * c.wa * lanes),
                               b = Random(rng, blocks * c.hb * c.wb * lanes);
      auto ta = Tensor(ad, a, layout), tb = Tensor(bd, b, layout);
      // The check's product test refuses two equal sizes above 1; Forward multiplies them all the same.
      const bool passes = c.ha * c.hb == std::max(c.ha, c.hb) && c.wa * c.wb == std::max(c.wa, c.wb);
      EXPECT_EQ(kernel->CheckInputs({ta, tb}), passes ? 0 : -2)
          << c.ha << "x" << c.wa << " by " << c.hb << "x" << c.wb;
      auto out = Forward(*kernel, {ta, tb});
      const uint32_t h = std::max(c.ha, c.hb), w = std::max(c.wa, c.wb);
      ASSERT_EQ(out->shape.dims, (std::vector<uint32_t>{blocks, h, w, lanes}));
      for (uint32_t k = 0; k < blocks; ++k)
        for (uint32_t y = 0; y < h; ++y)
          for (uint32_t x = 0; x < w; ++x)
            for (uint32_t l = 0; l < lanes; ++l) {
              const float va = a[((k * c.ha + (c.ha == 1 ? 0 : y)) * c.wa + (c.wa == 1 ? 0 : x)) * lanes + l];
              const float vb = b[((k * c.hb + (c.hb == 1 ? 0 : y)) * c.wb + (c.wb == 1 ? 0 : x)) * lanes + l];
              ASSERT_EQ(out->Data<float>()[((k * h + y) * w + x) * lanes + l], va * vb)
                  << c.ha << "x" << c.wa << " by " << c.hb << "x" << c.wb;
            }
    }
  }
}

TEST_P(ChannelMulTest, SupportAndChecks) {
  const Member& m = GetParam();
  const uint32_t lanes = m.kind == kChannelBlock4 ? 4 : 8;
  const uint32_t layout = lanes == 4 ? Layout::C4HW4 : Layout::C8HW8;
  const uint32_t other = lanes == 4 ? Layout::C8HW8 : Layout::C4HW4;
  auto kernel = m.make();
  EXPECT_EQ(kernel->GetName(), m.name);
  EXPECT_EQ(kernel->CheckSupport(OpInfo<runtime::BroadcastOperatorInfo>(kOpMul), nullptr), 0);
  EXPECT_EQ(kernel->CheckSupport(OpInfo<runtime::BroadcastOperatorInfo>(kOpDiv), nullptr), -2);
  EXPECT_EQ(kernel->CheckSupport(OpInfo<runtime::BroadcastOperatorInfo>(kOpMul),
                                 std::make_shared<runtime::InferenceParamActQuant>()),
            -1);
  EXPECT_EQ(kernel->CheckSupport(OpInfo<runtime::ElementWiseOperatorInfo>(kOpMul), nullptr), -1);
  EXPECT_FALSE(kernel->Config(OpInfo<runtime::BroadcastOperatorInfo>(kOpAdd), nullptr, nullptr, context_));
  EXPECT_FALSE(kernel->IsConfigured());
  const std::vector<float> v(2 * 3 * 3 * 8, 1.0f);
  auto a = Tensor({2, 3, 3, lanes}, v, layout);
  EXPECT_EQ(kernel->CheckInputs({a, Tensor({2, 1, 1, lanes}, v, layout)}), 0);
  EXPECT_EQ(kernel->CheckInputs({a, Tensor({2, 2, 3, lanes}, v, layout)}), -2);  // H 3 against 2
  EXPECT_EQ(kernel->CheckInputs({a, Tensor({2, 3, 3, lanes}, v, layout)}), -2);  // equal sizes: 9 != 3
  EXPECT_EQ(kernel->CheckInputs({a, Tensor({2, 1, 1, lanes}, v, other)}), -2);
  EXPECT_EQ(kernel->CheckInputs({a, Tensor({2, 1, 1, lanes}, v, layout, DataType::INT32)}), -2);
  EXPECT_EQ(kernel->CheckInputs({a}), -2);
  // A second operand of another block count, or of a size that does not broadcast, is reported rather than
  // read past.
  ASSERT_TRUE(kernel->Config(OpInfo<runtime::BroadcastOperatorInfo>(kOpMul), nullptr, nullptr, context_));
  runtime::TensorList outputs;
  EXPECT_THROW(kernel->Forward({a, Tensor({2, 2, 3, lanes}, v, layout)}, outputs, context_),
               std::runtime_error);
  EXPECT_THROW(kernel->Forward({a, Tensor({1, 1, 1, lanes}, v, layout)}, outputs, context_),
               std::runtime_error);
}

std::vector<Member> ChannelMembers() {
  std::vector<Member> list;
  for (const Member& m : Members())
    if (m.kind == kChannelBlock4 || m.kind == kChannelBlock8) list.push_back(m);
  return list;
}

INSTANTIATE_TEST_SUITE_P(AllMembers, ChannelMulTest, ::testing::ValuesIn(ChannelMembers()),
                         zvtest::MemberName());

}  // namespace
}  // namespace kernel
}  // namespace zelva
