// The transform family: entry rules and refusals of every row, logical-order copies out of blocked layouts
// against the family reference (the layouts' index formulas), the shape rules and their quirks, the tensor
// checks, and the permutation routine against its index definition.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <numeric>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/kernel_tester.h"
#include "support/log_capture.h"
#include "support/model_builder.h"
#include "zelva/src/kernel/family/transform/cores.h"
#include "zelva/src/kernel/family/transform/members.h"
#include "zelva/src/kernel/family/transform/reference.h"

namespace zelva {
namespace kernel {
namespace {

using runtime::DataType;
using runtime::Layout;
using runtime::TensorShape;

struct Member {
  std::string name;
  Accuracy accuracy;
  uint32_t entries;  // 0: any count
  std::function<std::shared_ptr<runtime::IKernel>()> make;
};

std::vector<Member> AllMembers() {
  std::vector<Member> members;
#define ZV_TEST_MEMBER(group, isa, cls, accuracy, form, entries) \
  members.push_back({#cls, accuracy, entries, [] { return std::shared_ptr<runtime::IKernel>(new cls()); }});
  ZV_TRANSFORM_MEMBERS(ZV_TEST_MEMBER)
#undef ZV_TEST_MEMBER
  return members;
}

const Member& Find(const std::string& name) {
  static const std::vector<Member> members = AllMembers();
  for (const Member& m : members) {
    if (m.name == name) return m;
  }
  ADD_FAILURE() << name << " is no row of the list";
  return members[0];
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

class TransformFamilyTest : public ::testing::Test {
 protected:
  std::shared_ptr<runtime::Tensor> Make(const TensorShape& shape, const std::vector<float>& values) {
    std::shared_ptr<runtime::Tensor> t;
    context_->GetDeviceCPU()->CreateTensor(t, shape, values.data());
    return t;
  }
  std::shared_ptr<runtime::IKernel> Configured(const std::string& name, std::vector<int16_t> new_shape) {
    auto kernel = Find(name).make();
    EXPECT_TRUE(kernel->Config(Reshape(std::move(new_shape)), nullptr, nullptr, context_)) << name;
    return kernel;
  }
  std::vector<float> Run(runtime::IKernel& kernel, const std::shared_ptr<runtime::Tensor>& input,
                         TensorShape* out_shape = nullptr) {
    runtime::TensorList outputs;
    kernel.Forward({input}, outputs, context_);
    EXPECT_EQ(outputs.size(), 1u);
    if (out_shape != nullptr) *out_shape = outputs[0]->shape;
    return zvtest::Values(outputs[0]);
  }
  std::shared_ptr<runtime::Context> context_ = zvtest::MakeTestContext();
};

TEST_F(TransformFamilyTest, EntryRulesAndRefusals) {
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
    EXPECT_EQ(kernel->CheckSupport(Reshape(longer), nullptr), m.entries == 0 ? 0 : -1);
    // The fixed-rank members of three and four entries want batch 1 and entries positive or -1; the
    // two-entry member tests the count alone.
    const int want_strict = m.entries >= 3 ? -1 : 0;
    EXPECT_EQ(kernel->CheckSupport(Reshape(batch2), nullptr), want_strict);
    EXPECT_EQ(kernel->CheckSupport(Reshape(zero), nullptr), want_strict);
    EXPECT_EQ(kernel->CheckSupport(Reshape(minus2), nullptr), want_strict);
  }
}

// Every row that keeps logical order turns a blocked tensor into planar order; the two that copy as stored
// keep the stored bytes. Expected values come from the family reference, not from the kernel's loop.
TEST_F(TransformFamilyTest, BlockedInputsComeOutInLogicalOrder) {
  std::mt19937 rng(7);
  std::set<std::string> ran;
  for (const uint32_t lanes : {4u, 8u}) {
    for (int round = 0; round < 6; ++round) {
      const uint32_t c = lanes * (1 + rng() % 3), h = 1 + rng() % 5, w = 1 + rng() % 11;
      const std::vector<float> blocked = zvtest::RandomFloats(c * h * w, rng());
      const std::vector<float> planar = UnblockReference(blocked, c, h * w, lanes);
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
        const std::string what =
            std::string(k.name) + " " + std::to_string(c) + "x" + std::to_string(h) + "x" + std::to_string(w);
        auto kernel = Configured(k.name, k.new_shape);
        TensorShape shape;
        zvtest::ExpectAccuracy(Run(*kernel, input, &shape), k.planar ? planar : blocked,
                               Find(k.name).accuracy, what);
        EXPECT_EQ(shape.dims, k.dims) << what;
        EXPECT_EQ(shape.layout, k.layout) << what;
        EXPECT_EQ(kernel->GetOutputShapes({input->shape})[0].dims, k.dims) << what;
        ran.insert(k.name);
      }
    }
  }
  for (const Member& m : AllMembers()) EXPECT_EQ(ran.count(m.name), 1u) << m.name << " never ran";
}

TEST_F(TransformFamilyTest, ShapeRules) {
  // [1, 16, -1] on 16 x 5 x 3 planar: CL [16, 15] by one copy, for the fixed-rank and the general member.
  std::vector<float> values(16 * 5 * 3);
  std::iota(values.begin(), values.end(), 0.5f);
  auto chw = Make(TensorShape({16, 5, 3}, DataType::FLOAT32, Layout::CHW), values);
  for (const char* name : {"Reshape_Fallback_CnHWn_To_CL_M1", "Transform_MainMemory_Reshape_Fallback"}) {
    TensorShape shape;
    EXPECT_EQ(Run(*Configured(name, {1, 16, -1}), chw, &shape), values) << name;
    EXPECT_EQ(shape.dims, (std::vector<uint32_t>{16, 15})) << name;
    EXPECT_EQ(shape.layout, Layout::CL) << name;
  }

  const TensorShape t24({2, 3, 4}, DataType::FLOAT32, Layout::CHW);
  auto out = [&](const char* name, std::vector<int16_t> ns) {
    return Configured(name, std::move(ns))->GetOutputShapes({t24})[0];
  };
  auto dims = [&](const char* name, std::vector<int16_t> ns) { return out(name, std::move(ns)).dims; };
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
  EXPECT_EQ(out("Reshape_Fallback_Any_M1", {24}).layout, Layout::CHW);
  // The general member: the rank decides the layout; a batch other than 1 stays; 0 counts as unknown.
  const char* general = "Transform_MainMemory_Reshape_Fallback";
  EXPECT_EQ(out(general, {1, 2, 3, 4}).layout, Layout::CHW);
  EXPECT_EQ(dims(general, {1, 0, 6}), (D{4, 6}));
  EXPECT_EQ(out(general, {2, 12}).layout, Layout::CL);
  EXPECT_EQ(dims(general, {2, 12}), (D{2, 12}));
  EXPECT_EQ(out(general, {1, 1, 2, 3, 4}).layout, Layout::FLEXIABLE);

  // Failed batch rules: silent for To_C and To_CHW, with a message for To_SC.
  EXPECT_THROW(dims("Reshape_Fallback_To_C_M1", {2, 12}), std::runtime_error);
  EXPECT_THROW(dims("Reshape_Fallback_To_CHW_M1", {2, 3, 2, 2}), std::runtime_error);
  ExpectAssert(
      [&] {
        dims("Reshape_Fallback_To_SC_M1", {3, 2, 4});
      },
      "[Reshape_Fallback_To_SC_M1] batch of new shape != 1");

  // A new shape of another count is reported instead of copying past a buffer.
  auto input = Make(t24, std::vector<float>(24, 1.0f));
  runtime::TensorList outputs;
  EXPECT_THROW(Configured("Reshape_Fallback_CnHWn_To_C_M1", {1, 5})->Forward({input}, outputs, context_),
               std::runtime_error);
  EXPECT_THROW(Configured("Reshape_Fallback_Any_M1", {5, 5})->Forward({input}, outputs, context_),
               std::runtime_error);
  EXPECT_THROW(dims(general, {1, 5, 5}), std::runtime_error);
}

TEST_F(TransformFamilyTest, TensorRules) {
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
  // A Config refused after one that succeeded leaves nothing to match.
  EXPECT_FALSE(kernel->Config(nullptr, nullptr, nullptr, context_));
  EXPECT_EQ(kernel->CheckInputs({tensor(DataType::FLOAT32, Layout::CHW)}), -2);

  runtime::TensorList outputs;
  kernel = Configured("Reshape_Fallback_CnHWn_To_C_M1", {1, -1});
  ExpectAssert([&] { kernel->Forward({tensor(DataType::FLOAT32, Layout::HWC)}, outputs, context_); },
               "Invalid input tensor layout");
  ExpectAssert([&] { kernel->Forward({tensor(DataType::FLOAT16, Layout::C4HW4)}, outputs, context_); },
               "Invalid input data type");

  // The general member: exactly one FLOAT32 tensor in main memory, either side.
  auto general = Configured("Transform_MainMemory_Reshape_Fallback", {1, -1});
  auto good = Make(TensorShape({2}, DataType::FLOAT32, Layout::C), {1, 2});
  EXPECT_EQ(general->CheckInputs({good}), 0);
  EXPECT_EQ(general->CheckInputs({Make(TensorShape({2}, DataType::FLOAT16, Layout::C), {1})}), -2);
  EXPECT_EQ(general->CheckInputs({good, good}), -2);
  EXPECT_EQ(general->CheckOutputs({}), -2);
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
    std::vector<uint8_t> in(count * unit), out(count * unit, 0);
    for (auto& b : in) b = static_cast<uint8_t>(rng());
    native::Transform_MainMemory_Permute_Fallback(in.data(), shape, unit, axes, out.data());
    EXPECT_EQ(out, PermuteReference(in, shape, axes, unit)) << "round " << round;
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
