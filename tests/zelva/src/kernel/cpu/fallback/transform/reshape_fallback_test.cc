// One tester over the reshape family: entry rules and refusals of every member, logical-order copies out of
// blocked layouts against an independent index formula, the deduction quirks, and the permutation routine.
#include "zelva/src/kernel/cpu/fallback/transform/reshape_fallback.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/model_builder.h"
#include "zelva/src/kernel/cpu/fallback/transform/members.h"
#include "zelva/src/kernel/cpu/fallback/transform/permute.h"

namespace zelva {
namespace kernel {
namespace {

using runtime::DataType;
using runtime::Layout;
using runtime::TensorShape;

struct Member {
  std::string name;
  size_t entries;  // 0: any count
  std::function<std::shared_ptr<runtime::IKernel>()> make;
};

std::vector<Member> AllMembers() {
  std::vector<Member> members;
#define ZV_TEST_MEMBER(group, cls, entries) \
  members.push_back({#cls, entries, [] { return std::shared_ptr<runtime::IKernel>(new cls()); }});
  ZV_FALLBACK_TRANSFORM_MEMBERS(ZV_TEST_MEMBER)
#undef ZV_TEST_MEMBER
  return members;
}

std::shared_ptr<runtime::TensorReshapeInfo> Reshape(std::vector<int16_t> new_shape) {
  auto info = std::make_shared<runtime::TensorReshapeInfo>();
  info->new_shape = std::move(new_shape);
  return info;
}

// Ends with `message` in the last log line (assertions deliver their text to the log, then raise).
template <class F>
void ExpectAssert(F&& f, const std::string& message) {
  zvtest::LogCapture log;
  EXPECT_THROW(f(), std::runtime_error);
  const std::string last = log.Last();
  EXPECT_TRUE(last.size() > message.size() &&
              last.compare(last.size() - message.size() - 1, message.size() + 1, message + "\n") == 0)
      << last;
}

class ReshapeFamilyTest : public ::testing::Test {
 protected:
  std::shared_ptr<runtime::Tensor> Make(const TensorShape& shape, const std::vector<float>& values) {
    std::shared_ptr<runtime::Tensor> t;
    context_->GetDeviceCPU()->CreateTensor(t, shape, values.data());
    return t;
  }
  std::shared_ptr<runtime::IKernel> Configured(const std::string& name, std::vector<int16_t> new_shape) {
    for (const Member& m : AllMembers()) {
      if (m.name != name) continue;
      auto kernel = m.make();
      EXPECT_TRUE(kernel->Config(Reshape(std::move(new_shape)), nullptr, nullptr, context_)) << name;
      return kernel;
    }
    ADD_FAILURE() << name;
    return nullptr;
  }
  std::vector<float> Run(runtime::IKernel& kernel, const std::shared_ptr<runtime::Tensor>& input,
                         TensorShape* out_shape = nullptr) {
    runtime::TensorList outputs;
    kernel.Forward({input}, outputs, context_);
    EXPECT_EQ(outputs.size(), 1u);
    if (out_shape != nullptr) *out_shape = outputs[0]->shape;
    const float* data = outputs[0]->Data<float>();
    return std::vector<float>(data, data + outputs[0]->shape.ElementCount());
  }
  std::shared_ptr<runtime::Context> context_ = zvtest::MakeTestContext();
};

TEST_F(ReshapeFamilyTest, EntryRulesAndRefusals) {
  for (const Member& m : AllMembers()) {
    SCOPED_TRACE(m.name);
    auto kernel = m.make();
    EXPECT_EQ(kernel->GetName(), m.name);
    const size_t n = m.entries == 0 ? 3 : m.entries;
    std::vector<int16_t> good(n, 2);
    good[0] = 1;
    good[n - 1] = -1;
    EXPECT_EQ(kernel->CheckSupport(Reshape(good), nullptr), 0);
    EXPECT_EQ(kernel->CheckSupport(Reshape(good), std::make_shared<runtime::InferenceParamActQuant>()), -1);
    EXPECT_EQ(kernel->CheckSupport(std::make_shared<runtime::TensorExpandInfo>(), nullptr), -1);
    EXPECT_EQ(kernel->CheckSupport(nullptr, nullptr), -1);
    EXPECT_FALSE(kernel->Config(nullptr, nullptr, nullptr, context_));
    EXPECT_FALSE(kernel->IsConfigured());

    std::vector<int16_t> longer(good);
    longer.push_back(2);
    std::vector<int16_t> batch2(good), zero(good), minus2(good);
    batch2[0] = 2;
    zero[1] = 0;
    minus2[1] = -2;
    const int want_longer = m.entries == 0 ? 0 : -1;
    EXPECT_EQ(kernel->CheckSupport(Reshape(longer), nullptr), want_longer);
    // The fixed-rank members of three and four entries want batch 1 and entries positive or -1; the
    // two-entry member tests the count alone.
    const int want_strict = m.entries >= 3 ? -1 : 0;
    EXPECT_EQ(kernel->CheckSupport(Reshape(batch2), nullptr), want_strict);
    EXPECT_EQ(kernel->CheckSupport(Reshape(zero), nullptr), want_strict);
    EXPECT_EQ(kernel->CheckSupport(Reshape(minus2), nullptr), want_strict);
  }
}

// Every member that keeps logical order turns a blocked tensor into planar order; the two that copy as stored
// keep the stored bytes. Expected values come from the layout's index formula, not from the kernel's loop.
TEST_F(ReshapeFamilyTest, BlockedInputsComeOutInLogicalOrder) {
  std::mt19937 rng(7);
  for (const uint32_t lanes : {4u, 8u}) {
    for (int round = 0; round < 6; ++round) {
      const uint32_t c = lanes * (1 + rng() % 3), h = 1 + rng() % 5, w = 1 + rng() % 11;
      std::vector<float> planar(c * h * w), blocked(c * h * w);
      for (uint32_t ch = 0; ch < c; ++ch)
        for (uint32_t y = 0; y < h; ++y)
          for (uint32_t x = 0; x < w; ++x) {
            const float v = static_cast<float>(ch * 10000 + y * 100 + x);
            planar[(ch * h + y) * w + x] = v;
            blocked[((ch / lanes) * h + y) * w * lanes + x * lanes + ch % lanes] = v;
          }
      const uint32_t layout = lanes == 4 ? Layout::C4HW4 : Layout::C8HW8;
      auto input = Make(TensorShape({c / lanes, h, w, lanes}, DataType::FLOAT32, layout), blocked);
      const int16_t cs = static_cast<int16_t>(c), hs = static_cast<int16_t>(h), ws = static_cast<int16_t>(w);
      const struct {
        const char* name;
        std::vector<int16_t> new_shape;
        std::vector<uint32_t> dims;
        uint32_t layout;
        bool planar;
      } cases[] = {
          {"Transform_MainMemory_Reshape_Fallback", {1, -1}, {c * h * w}, Layout::C, true},
          {"Reshape_Fallback_CnHWn_To_C_M1", {1, -1}, {c * h * w}, Layout::C, true},
          {"Reshape_Fallback_CnHWn_To_CL_M1", {1, cs, -1}, {c, h * w}, Layout::CL, true},
          {"Reshape_Fallback_To_C_M1", {1, -1}, {c * h * w}, Layout::C, true},
          {"Reshape_Fallback_To_CHW_M1", {1, -1, hs, ws}, {c, h, w}, Layout::CHW, true},
          {"Reshape_Fallback_To_SC_M1", {1, cs, -1}, {c, h * w}, Layout::SC, true},
          {"Reshape_Fallback_Any_M1", {static_cast<int16_t>(c * h), ws}, {c * h, w}, layout, false},
          {"Reshape_Fallback_CL_To_CHW_M1", {1, 1, -1, 1}, {1, c * h * w, 1}, Layout::CHW, false},
      };
      for (const auto& k : cases) {
        SCOPED_TRACE(std::string(k.name) + " " + std::to_string(c) + "x" + std::to_string(h) + "x" +
                     std::to_string(w));
        auto kernel = Configured(k.name, k.new_shape);
        TensorShape shape;
        EXPECT_EQ(Run(*kernel, input, &shape), k.planar ? planar : blocked);
        EXPECT_EQ(shape.dims, k.dims);
        EXPECT_EQ(shape.layout, k.layout);
        EXPECT_EQ(kernel->GetOutputShapes({input->shape})[0].dims, k.dims);
      }
    }
  }
}

TEST_F(ReshapeFamilyTest, ShapeRules) {
  // [1, 16, -1] on 16 x 5 x 3 planar: CL [16, 15] by one copy.
  std::vector<float> values(16 * 5 * 3);
  std::iota(values.begin(), values.end(), 0.5f);
  auto chw = Make(TensorShape({16, 5, 3}, DataType::FLOAT32, Layout::CHW), values);
  auto cl = Configured("Reshape_Fallback_CnHWn_To_CL_M1", {1, 16, -1});
  TensorShape shape;
  EXPECT_EQ(Run(*cl, chw, &shape), values);
  EXPECT_EQ(shape.dims, (std::vector<uint32_t>{16, 15}));

  const TensorShape t24({2, 3, 4}, DataType::FLOAT32, Layout::CHW);
  auto dims = [&](const char* name, std::vector<int16_t> ns) {
    return Configured(name, std::move(ns))->GetOutputShapes({t24})[0].dims;
  };
  using D = std::vector<uint32_t>;
  // The two-entry member ignores the batch and reads -1 as the whole count; other entries stay as given.
  EXPECT_EQ(dims("Reshape_Fallback_CnHWn_To_C_M1", {7, -1}), D{24});
  EXPECT_EQ(dims("Reshape_Fallback_CnHWn_To_C_M1", {1, 5}), D{5});
  EXPECT_EQ(dims("Reshape_Fallback_CL_To_CHW_M1", {1, 2, -1, 3}), (D{2, 4, 3}));
  // Two -1: the first is divided by the second (-1) and is not repaired; the second follows from it.
  EXPECT_EQ(dims("Reshape_Fallback_CnHWn_To_CL_M1", {1, -1, -1}),
            (D{static_cast<uint32_t>(-24), 4294967295u}));
  // Entries below 1 (0 as well as -1) take the count over the positive product; a batch 1 drops.
  EXPECT_EQ(dims("Reshape_Fallback_To_C_M1", {1, 0}), D{24});
  EXPECT_EQ(dims("Reshape_Fallback_To_C_M1", {2, 3, 4}), (D{2, 3, 4}));
  EXPECT_EQ(dims("Reshape_Fallback_To_CHW_M1", {1, 2, -1, 4}), (D{2, 3, 4}));
  EXPECT_EQ(dims("Reshape_Fallback_To_CHW_M1", {6, 4}), (D{6, 4}));
  EXPECT_EQ(dims("Reshape_Fallback_To_SC_M1", {1, 6, 4}), (D{6, 4}));
  EXPECT_EQ(dims("Reshape_Fallback_To_SC_M1", {3, 1, 8}), (D{3, 8}));
  EXPECT_EQ(dims("Reshape_Fallback_Any_M1", {4, 3, 2}), (D{4, 3, 2}));
  EXPECT_EQ(Configured("Reshape_Fallback_Any_M1", {24})->GetOutputShapes({t24})[0].layout, Layout::CHW);

  // Failed batch rules: silent for To_C and To_CHW, with a message for To_SC.
  EXPECT_THROW(dims("Reshape_Fallback_To_C_M1", {2, 12}), std::runtime_error);
  EXPECT_THROW(dims("Reshape_Fallback_To_CHW_M1", {2, 3, 2, 2}), std::runtime_error);
  ExpectAssert(
      [&] {
        dims("Reshape_Fallback_To_SC_M1", {3, 2, 4});
      },
      "[Reshape_Fallback_To_SC_M1] batch of new shape != 1");

  // A new shape of another count is reported by Forward instead of copying past a buffer.
  auto input = Make(t24, std::vector<float>(24, 1.0f));
  runtime::TensorList outputs;
  EXPECT_THROW(Configured("Reshape_Fallback_CnHWn_To_C_M1", {1, 5})->Forward({input}, outputs, context_),
               std::runtime_error);
  EXPECT_THROW(Configured("Reshape_Fallback_Any_M1", {5, 5})->Forward({input}, outputs, context_),
               std::runtime_error);
}

TEST_F(ReshapeFamilyTest, CnHWnTensorRules) {
  auto kernel = Configured("Reshape_Fallback_CnHWn_To_C_M1", {1, -1});
  auto tensor = [&](uint32_t type, uint32_t layout, uint32_t location = runtime::Location::MainMemory) {
    return Make(TensorShape({2, 1, 1, 4}, type, layout, location), std::vector<float>(8, 1.0f));
  };
  EXPECT_EQ(kernel->CheckInputs({tensor(DataType::FLOAT32, Layout::C4HW4)}), 0);
  EXPECT_EQ(kernel->CheckInputs({tensor(DataType::FLOAT16, Layout::CHW)}), 0);
  EXPECT_EQ(kernel->CheckInputs({tensor(DataType::INT16, Layout::C8HW8)}), 0);
  EXPECT_EQ(kernel->CheckInputs({tensor(DataType::INT32, Layout::CHW)}), -2);
  EXPECT_EQ(kernel->CheckInputs({tensor(DataType::INT8, Layout::CHW)}), -2);
  EXPECT_EQ(kernel->CheckInputs({tensor(DataType::FLOAT32, Layout::HWC)}), -2);
  EXPECT_EQ(kernel->CheckInputs({tensor(DataType::FLOAT32, Layout::NCHW)}), -2);
  EXPECT_EQ(kernel->CheckInputs({tensor(DataType::FLOAT32, Layout::CHW, runtime::Location::CPUObject)}), -2);
  EXPECT_EQ(
      kernel->CheckInputs({tensor(DataType::FLOAT32, Layout::CHW), tensor(DataType::FLOAT32, Layout::CHW)}),
      -2);
  EXPECT_EQ(Configured("Reshape_Fallback_CnHWn_To_C_M1", {1, 7})->CheckInputs({tensor(DataType::FLOAT32, 0)}),
            -2);
  EXPECT_EQ(kernel->CheckOutputs({Make(TensorShape({8}, DataType::FLOAT32, Layout::C), {})}), 0);
  EXPECT_EQ(kernel->CheckOutputs({Make(TensorShape({8}, DataType::FLOAT32, Layout::CL), {})}), -2);
  EXPECT_EQ(Configured("Reshape_Fallback_CnHWn_To_CL_M1", {1, 2, -1})
                ->CheckOutputs({Make(TensorShape({2, 4}, DataType::FLOAT32, Layout::CL), {})}),
            0);

  runtime::TensorList outputs;
  ExpectAssert([&] { kernel->Forward({tensor(DataType::FLOAT32, Layout::HWC)}, outputs, context_); },
               "Invalid input tensor layout");
  ExpectAssert([&] { kernel->Forward({tensor(DataType::FLOAT16, Layout::C4HW4)}, outputs, context_); },
               "Invalid input data type");
}

// Output offset of input multi-index `idx` under `axes`, by the definition: output dim i is input dim
// axes[i], so the output index is (idx[axes[0]], idx[axes[1]], ...).
size_t PermutedOffset(const std::vector<uint32_t>& shape, const std::vector<uint32_t>& axes,
                      const std::vector<uint32_t>& idx) {
  size_t offset = 0;
  for (size_t i = 0; i < axes.size(); ++i) offset = offset * shape[axes[i]] + idx[axes[i]];
  return offset;
}

TEST(PermuteTest, MatchesIndexDefinition) {
  std::mt19937 rng(3);
  for (int round = 0; round < 40; ++round) {
    const size_t rank = 1 + rng() % 5;
    std::vector<uint32_t> shape(rank), axes(rank);
    for (auto& d : shape) d = 1 + rng() % 5;
    std::iota(axes.begin(), axes.end(), 0u);
    std::shuffle(axes.begin(), axes.end(), rng);
    const int32_t unit = 1 + static_cast<int32_t>(rng() % 6);  // odd sizes too: elements are opaque bytes
    size_t count = 1;
    for (const auto d : shape) count *= d;
    std::vector<uint8_t> in(count * unit), out(count * unit, 0), want(count * unit);
    for (auto& b : in) b = static_cast<uint8_t>(rng());
    std::vector<uint32_t> idx(rank, 0);
    for (size_t e = 0; e < count; ++e) {
      size_t rest = e;
      for (size_t d = rank; d-- > 0;) {
        idx[d] = static_cast<uint32_t>(rest % shape[d]);
        rest /= shape[d];
      }
      std::copy_n(&in[e * unit], unit, &want[PermutedOffset(shape, axes, idx) * unit]);
    }
    native::Transform_MainMemory_Permute_Fallback(in.data(), shape, unit, axes, out.data());
    EXPECT_EQ(out, want) << "round " << round;
  }
}

TEST(PermuteTest, AssertionsInOrder) {
  float in[4] = {0}, out[4];
  const std::vector<uint32_t> shape = {2, 2};
  using native::Transform_MainMemory_Permute_Fallback;
  ExpectAssert([&] { Transform_MainMemory_Permute_Fallback(nullptr, shape, 0, {0}, nullptr); },
               "Input shared pointer is null.");
  ExpectAssert([&] { Transform_MainMemory_Permute_Fallback(in, shape, 0, {0}, nullptr); },
               "Output shared pointer is null.");
  ExpectAssert([&] { Transform_MainMemory_Permute_Fallback(in, shape, 0, {0}, out); },
               "bytes per element must be >= 1.");
  ExpectAssert([&] { Transform_MainMemory_Permute_Fallback(in, shape, 4, {0}, out); },
               "dimensions of shape must be equal to tranpose axes's.");
  EXPECT_THROW(Transform_MainMemory_Permute_Fallback(in, shape, 4, {0, 2}, out), std::runtime_error);
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
