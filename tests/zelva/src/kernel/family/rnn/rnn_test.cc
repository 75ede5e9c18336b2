// The recurrent family tester: every row of the member list against the family reference under the row's
// accuracy class, over random sizes with tails, stacked and bidirectional layers, state carried across calls
// and reset; PyTorch fixtures; registration, refusals, tensor checks and the logged cases.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "support/kernel_tester.h"
#include "support/log_capture.h"
#include "support/model_builder.h"
#include "zelva/src/kernel/family/rnn/members.h"
#include "zelva/src/kernel/family/rnn/reference.h"
#include "zelva/src/kernel/registry/registry.h"

namespace zelva {
namespace kernel {
namespace {

using recurrent_reference::CellWeights;
using runtime::DataType;
using runtime::Layout;
using runtime::TensorShape;

struct Member {
  const char* name;
  Isa isa;
  Accuracy accuracy;
  bool sequence;
  RecurrentKind kind;
  std::shared_ptr<runtime::IKernel> (*make)();
  const RecurrentState& (*state)(const runtime::IKernel&);
};

template <class K>
const RecurrentState& StateOf(const runtime::IKernel& kernel) {
  return static_cast<const K&>(kernel).state();
}

#define ZV_RNN_TEST_ROW(group, isa, cls, accuracy, shape, kind, form) \
  Member{#cls,                                                        \
         Isa::isa,                                                    \
         accuracy,                                                    \
         RecurrentShape::shape == RecurrentShape::kSequence,          \
         RecurrentKind::kind,                                         \
         &NewKernel<cls>,                                             \
         &StateOf<cls>},
const std::vector<Member>& Members() {
  static const std::vector<Member> members = {ZV_RNN_MEMBERS(ZV_RNN_TEST_ROW)};
  return members;
}
#undef ZV_RNN_TEST_ROW

std::shared_ptr<runtime::RecurrentInfo> NewSequenceInfo(RecurrentKind kind, uint32_t activation) {
  if (kind == RecurrentKind::kGRU) return std::make_shared<runtime::GRUInfo>();
  if (kind == RecurrentKind::kLSTM) return std::make_shared<runtime::LSTMInfo>();
  auto info = std::make_shared<runtime::RNNInfo>();
  info->activation_type = static_cast<uint16_t>(activation);
  return info;
}

std::shared_ptr<runtime::RecurrentCellInfo> NewCellInfo(RecurrentKind kind, uint32_t activation) {
  if (kind == RecurrentKind::kGRU) return std::make_shared<runtime::GRUCellInfo>();
  if (kind == RecurrentKind::kLSTM) return std::make_shared<runtime::LSTMCellInfo>();
  auto info = std::make_shared<runtime::RNNCellInfo>();
  info->activation_type = static_cast<uint16_t>(activation);
  return info;
}

// The description of a reference layer.
std::shared_ptr<runtime::LayerInfo> SequenceInfo(RecurrentKind kind, const recurrent_reference::Sequence& ref,
                                                 bool bias, uint32_t complex_rnn_type = 0) {
  auto info = NewSequenceInfo(kind, ref.activation);
  info->in_size = static_cast<uint16_t>(ref.in_size);
  info->hidden_size = static_cast<uint16_t>(ref.hidden);
  info->if_bias = bias;
  info->num_layers = static_cast<uint16_t>(ref.layers);
  info->bidirectional = ref.bidirectional;
  info->complex_rnn_type = static_cast<uint16_t>(complex_rnn_type);
  for (uint32_t l = 0; l < ref.layers; ++l) {
    info->weight_ih_forward.push_back(zvtest::WeightText(ref.forward[l].w_ih));
    info->weight_hh_forward.push_back(zvtest::WeightText(ref.forward[l].w_hh));
    info->bias_ih_forward.push_back(zvtest::WeightText(ref.forward[l].b_ih));
    info->bias_hh_forward.push_back(zvtest::WeightText(ref.forward[l].b_hh));
    if (!ref.bidirectional) continue;
    info->weight_ih_reverse.push_back(zvtest::WeightText(ref.reverse[l].w_ih));
    info->weight_hh_reverse.push_back(zvtest::WeightText(ref.reverse[l].w_hh));
    info->bias_ih_reverse.push_back(zvtest::WeightText(ref.reverse[l].b_ih));
    info->bias_hh_reverse.push_back(zvtest::WeightText(ref.reverse[l].b_hh));
  }
  return info;
}

std::shared_ptr<runtime::LayerInfo> CellInfo(RecurrentKind kind, uint32_t activation, uint32_t in_size,
                                             uint32_t hidden, const CellWeights& w) {
  auto info = NewCellInfo(kind, activation);
  info->in_size = static_cast<uint16_t>(in_size);
  info->hidden_size = static_cast<uint16_t>(hidden);
  info->if_bias = !w.b_ih.empty();
  info->weight_ih = zvtest::WeightText(w.w_ih);
  info->weight_hh = zvtest::WeightText(w.w_hh);
  info->bias_ih = zvtest::WeightText(w.b_ih);
  info->bias_hh = zvtest::WeightText(w.b_hh);
  return info;
}

class RecurrentFamilyTest : public ::testing::Test {
 protected:
  std::vector<float> Random(size_t n, float scale) { return zvtest::RandomFloats(n, rng_(), -scale, scale); }
  uint32_t Uniform(uint32_t lo, uint32_t hi) { return std::uniform_int_distribution<uint32_t>(lo, hi)(rng_); }

  CellWeights RandomWeights(RecurrentKind kind, uint32_t in_width, uint32_t hidden, bool bias) {
    const uint32_t rows = GateCount(kind) * hidden;
    const float scale = 1.0f / std::sqrt(static_cast<float>(hidden));
    CellWeights w;
    w.w_ih = Random(static_cast<size_t>(rows) * in_width, scale);
    w.w_hh = Random(static_cast<size_t>(rows) * hidden, scale);
    if (bias) {
      w.b_ih = Random(rows, scale);
      w.b_hh = Random(rows, scale);
    }
    return w;
  }

  recurrent_reference::Sequence RandomSequence(RecurrentKind kind, uint32_t activation, uint32_t in_size,
                                               uint32_t hidden, uint32_t layers, bool bidirectional,
                                               bool bias) {
    recurrent_reference::Sequence ref;
    ref.kind = kind;
    ref.activation = activation;
    ref.in_size = in_size;
    ref.hidden = hidden;
    ref.layers = layers;
    ref.bidirectional = bidirectional;
    for (uint32_t l = 0; l < layers; ++l) {
      ref.forward.push_back(RandomWeights(kind, ref.InWidth(l), hidden, bias));
      if (bidirectional) ref.reverse.push_back(RandomWeights(kind, ref.InWidth(l), hidden, bias));
    }
    return ref;
  }

  std::shared_ptr<runtime::Tensor> Tensor(std::vector<uint32_t> dims, const std::vector<float>& values,
                                          uint32_t layout = Layout::SC) {
    return zvtest::MakeTensor(context_, std::move(dims), layout, values);
  }

  // One sequence call of a configured kernel as the net runs it; the values.
  std::vector<float> RunSequence(runtime::IKernel& kernel, const std::vector<float>& x, uint32_t steps,
                                 uint32_t in_size) {
    const runtime::TensorList outputs =
        zvtest::RunKernel(kernel, nullptr, {Tensor({steps, in_size}, x)}, context_);
    EXPECT_EQ(outputs.size(), 1u);
    return outputs.size() == 1 ? zvtest::Values(outputs[0]) : std::vector<float>();
  }

  static std::vector<float> Flatten(const std::vector<std::vector<float>>& rows) {
    std::vector<float> all;
    for (const auto& r : rows) all.insert(all.end(), r.begin(), r.end());
    return all;
  }

  std::mt19937 rng_{20240611};
  std::shared_ptr<runtime::Context> context_ = zvtest::MakeTestContext();
};

class RecurrentMemberTest : public RecurrentFamilyTest, public ::testing::WithParamInterface<Member> {
 protected:
  void SetUp() override {
    if (!zvtest::CanRun(GetParam().isa)) GTEST_SKIP() << GetParam().name << ": the processor lacks its isa";
  }
};

// Sequences: random sizes, stacks and directions, two calls carrying the state, then a reset. Cells: with
// and without the state inputs.
TEST_P(RecurrentMemberTest, MatchesReference) {
  const Member& m = GetParam();
  if (m.sequence) {
    for (int trial = 0; trial < 16; ++trial) {
      const uint32_t in_size = Uniform(1, 40), hidden = Uniform(1, 40), layers = Uniform(1, 2);
      const bool bidirectional = Uniform(0, 1) == 1, bias = trial % 4 != 3;
      const uint32_t activation = Uniform(0, 1) == 0 ? 2 : 5;
      const uint32_t steps1 = Uniform(1, 5), steps2 = Uniform(1, 5);
      SCOPED_TRACE(testing::Message() << "in " << in_size << " hidden " << hidden << " layers " << layers
                                      << " bi " << bidirectional << " bias " << bias);
      recurrent_reference::Sequence ref =
          RandomSequence(m.kind, activation, in_size, hidden, layers, bidirectional, bias);
      const auto kernel = m.make();
      ASSERT_TRUE(kernel->Config(SequenceInfo(m.kind, ref, bias), nullptr, nullptr, context_));
      const std::vector<float> x1 = Random(steps1 * in_size, 1.5f), x2 = Random(steps2 * in_size, 1.5f);

      const std::vector<float> want1 = ref.Run(x1, steps1);
      const std::vector<float> got1 = RunSequence(*kernel, x1, steps1, in_size);
      zvtest::ExpectAccuracy(got1, want1, m.accuracy, "first call");
      // The second call continues from the state the first left.
      const std::vector<float> want2 = ref.Run(x2, steps2);
      zvtest::ExpectAccuracy(RunSequence(*kernel, x2, steps2, in_size), want2, m.accuracy, "second call");
      const RecurrentState& state = m.state(*kernel);
      ASSERT_NE(state.hidden, nullptr);
      EXPECT_EQ(state.hidden->shape.dims, (std::vector<uint32_t>{layers * ref.Directions(), hidden}));
      zvtest::ExpectAccuracy(zvtest::Values(state.hidden), Flatten(ref.h), m.accuracy, "hidden");
      if (m.kind == RecurrentKind::kLSTM)
        zvtest::ExpectAccuracy(zvtest::Values(state.cell), Flatten(ref.c), m.accuracy, "cell");

      // Reset zeroes the state: the next call repeats the first.
      EXPECT_EQ(kernel->ResetState(), 0);
      EXPECT_EQ(zvtest::Values(state.hidden), std::vector<float>(layers * ref.Directions() * hidden, 0.0f));
      zvtest::ExpectAccuracy(RunSequence(*kernel, x1, steps1, in_size), got1, kBitExact, "after reset");
    }
  } else {
    const bool lstm = m.kind == RecurrentKind::kLSTM;
    for (int trial = 0; trial < 24; ++trial) {
      const uint32_t in_size = Uniform(1, 40), hidden = Uniform(1, 40);
      const uint32_t activation = trial % 2 == 0 ? 2 : 5;
      const CellWeights w = RandomWeights(m.kind, in_size, hidden, trial % 5 != 4);
      const auto kernel = m.make();
      ASSERT_TRUE(
          kernel->Config(CellInfo(m.kind, activation, in_size, hidden, w), nullptr, nullptr, context_));
      EXPECT_EQ(kernel->ResetState(), -4);
      const std::vector<float> x = Random(in_size, 1.5f);
      std::vector<float> h = Random(hidden, 1.0f), c = Random(hidden, 1.0f);

      runtime::TensorList inputs = {Tensor({1, in_size}, x), Tensor({1, hidden}, h)};
      if (lstm) inputs.push_back(Tensor({1, hidden}, c));
      runtime::TensorList outputs = zvtest::RunKernel(*kernel, nullptr, inputs, context_);
      ASSERT_EQ(outputs.size(), lstm ? 2u : 1u);
      recurrent_reference::Step(m.kind, activation, w, x.data(), in_size, h, c);
      zvtest::ExpectAccuracy(zvtest::Values(outputs[0]), h, m.accuracy, "h");
      if (lstm) zvtest::ExpectAccuracy(zvtest::Values(outputs[1]), c, m.accuracy, "c");

      // Without state inputs the step starts from zero.
      std::vector<float> h0(hidden, 0.0f), c0(hidden, 0.0f);
      kernel->Forward({inputs[0]}, outputs, context_);
      recurrent_reference::Step(m.kind, activation, w, x.data(), in_size, h0, c0);
      zvtest::ExpectAccuracy(zvtest::Values(outputs[0]), h0, m.accuracy, "h from zero");
    }
  }
}

void PrintTo(const Member& m, std::ostream* os) {
  *os << m.name;
}
INSTANTIATE_TEST_SUITE_P(AllMembers, RecurrentMemberTest, ::testing::ValuesIn(Members()),
                         zvtest::MemberName());

// ---- Framework fixtures (tools/gen_rnn_fixture.py)

struct FixtureCase {
  std::string name, kind;
  uint32_t in_size = 0, hidden = 0, layers = 0, bidirectional = 0, bias = 0, activation = 0, steps = 0;
  std::map<std::string, std::vector<float>> records;
  const std::vector<float>& operator[](const std::string& key) const {
    static const std::vector<float> none;
    auto it = records.find(key);
    return it == records.end() ? none : it->second;
  }
};

std::vector<FixtureCase> ReadFixture() {
  std::ifstream file(std::string(ZELVA_TEST_DATA_DIR) + "/rnn_fixture.txt");
  EXPECT_TRUE(file.good());
  std::vector<FixtureCase> cases;
  std::string word;
  while (file >> word) {
    if (word == "case") {
      FixtureCase c;
      file >> c.name >> c.kind >> c.in_size >> c.hidden >> c.layers >> c.bidirectional >> c.bias >>
          c.activation >> c.steps;
      cases.push_back(std::move(c));
    } else if (word != "end") {
      size_t count = 0;
      file >> count;
      std::vector<float>& values = cases.back().records[word];
      values.resize(count);
      for (float& v : values) file >> v;
    }
  }
  return cases;
}

TEST_F(RecurrentFamilyTest, MatchesFrameworkFixtures) {
  const std::vector<FixtureCase> cases = ReadFixture();
  ASSERT_EQ(cases.size(), 14u);
  const Accuracy tolerance = Within(2e-5f, 2e-5f);
  int runs = 0;
  for (const FixtureCase& fc : cases) {
    for (const Member& m : Members()) {
      const char* kind = m.kind == RecurrentKind::kGRU    ? "GRU"
                         : m.kind == RecurrentKind::kLSTM ? "LSTM"
                                                          : "RNN";
      if (fc.kind != std::string(kind) + (m.sequence ? "" : "Cell")) continue;
      SCOPED_TRACE(fc.name + " on " + m.name);
      ++runs;
      const auto kernel = m.make();
      if (m.sequence) {
        recurrent_reference::Sequence shape;  // carries the weights into the description
        shape.in_size = fc.in_size;
        shape.hidden = fc.hidden;
        shape.layers = fc.layers;
        shape.bidirectional = fc.bidirectional != 0;
        shape.activation = fc.activation;
        for (uint32_t l = 0; l < fc.layers; ++l) {
          for (const char* d : {"f", "r"}) {
            if (*d == 'r' && !shape.bidirectional) continue;
            const std::string at = std::string("_") + d + "_" + std::to_string(l);
            CellWeights w{fc["w_ih" + at], fc["w_hh" + at], fc["b_ih" + at], fc["b_hh" + at]};
            (*d == 'f' ? shape.forward : shape.reverse).push_back(w);
          }
        }
        ASSERT_TRUE(kernel->Config(SequenceInfo(m.kind, shape, fc.bias != 0), nullptr, nullptr, context_));
        zvtest::ExpectAccuracy(RunSequence(*kernel, fc["x1"], fc.steps, fc.in_size), fc["y1"], tolerance,
                               "y1");
        zvtest::ExpectAccuracy(RunSequence(*kernel, fc["x2"], fc.steps, fc.in_size), fc["y2"], tolerance,
                               "y2");
        const RecurrentState& state = m.state(*kernel);
        zvtest::ExpectAccuracy(zvtest::Values(state.hidden), fc["hn"], tolerance, "hn");
        if (m.kind == RecurrentKind::kLSTM)
          zvtest::ExpectAccuracy(zvtest::Values(state.cell), fc["cn"], tolerance, "cn");
      } else {
        CellWeights w{fc["w_ih"], fc["w_hh"], fc["b_ih"], fc["b_hh"]};
        ASSERT_TRUE(kernel->Config(CellInfo(m.kind, fc.activation, fc.in_size, fc.hidden, w), nullptr,
                                   nullptr, context_));
        runtime::TensorList inputs = {Tensor({1, fc.in_size}, fc["x"]), Tensor({1, fc.hidden}, fc["h"])};
        if (m.kind == RecurrentKind::kLSTM) inputs.push_back(Tensor({1, fc.hidden}, fc["c"]));
        for (const bool given : {true, false}) {
          runtime::TensorList outputs;
          kernel->Forward(given ? inputs : runtime::TensorList{inputs[0]}, outputs, context_);
          const char* prefix = given ? "out_" : "zero_";
          for (size_t k = 0; k < outputs.size(); ++k) {
            const std::string key = prefix + std::string(k == 0 ? "h" : "c");
            zvtest::ExpectAccuracy(zvtest::Values(outputs[k]), fc[key], tolerance, key);
          }
        }
      }
    }
  }
  // Each GRU case on two members, every other case on one.
  EXPECT_EQ(runs, 20);
}

// ---- Refusals, checks and the logged cases

TEST_F(RecurrentFamilyTest, RefusalsAndTensorChecks) {
  recurrent_reference::Sequence ref = RandomSequence(RecurrentKind::kGRU, 0, 5, 3, 1, false, true);
  const auto gru_info = SequenceInfo(RecurrentKind::kGRU, ref, true);
  for (const Member& m : Members()) {
    SCOPED_TRACE(m.name);
    const auto kernel = m.make();
    EXPECT_EQ(kernel->GetName(), m.name);
    // Another kind's or shape's description, or parameters of any backend, are refused.
    const std::shared_ptr<runtime::LayerInfo> other =
        m.sequence ? std::static_pointer_cast<runtime::LayerInfo>(NewCellInfo(m.kind, 5))
                   : std::static_pointer_cast<runtime::LayerInfo>(NewSequenceInfo(m.kind, 5));
    EXPECT_EQ(kernel->CheckSupport(other, nullptr), -1);
    EXPECT_EQ(kernel->CheckSupport(
                  m.sequence ? std::static_pointer_cast<runtime::LayerInfo>(NewSequenceInfo(m.kind, 5))
                             : std::static_pointer_cast<runtime::LayerInfo>(NewCellInfo(m.kind, 5)),
                  std::make_shared<runtime::InferenceParamActQuant>()),
              -1);
    if (m.kind != RecurrentKind::kGRU || !m.sequence) {
      EXPECT_FALSE(kernel->Config(gru_info, nullptr, nullptr, context_));
    }
    EXPECT_FALSE(kernel->IsConfigured());
    runtime::TensorList outputs;
    EXPECT_THROW(kernel->Forward({Tensor({1, 5}, std::vector<float>(5))}, outputs, context_),
                 std::runtime_error)
        << "Forward before Config";
  }

  const auto gru = NewKernel<GRU_SSE_SC_F32_M1>();
  ASSERT_TRUE(gru->Config(gru_info, nullptr, nullptr, context_));
  EXPECT_TRUE(gru->IsConfigured());
  EXPECT_EQ(gru->ResetState(), 0);  // nothing to clear yet
  const std::vector<float> ten(10, 0.5f);
  const auto good = Tensor({2, 5}, ten);
  EXPECT_EQ(gru->CheckInputs({good}), 0);
  EXPECT_EQ(gru->CheckInputs({}), -2);
  EXPECT_EQ(gru->CheckInputs({good, good}), -2);
  EXPECT_EQ(gru->CheckInputs({Tensor({5, 2}, ten)}), -2);
  EXPECT_EQ(gru->CheckInputs({Tensor({10}, ten)}), -2);
  std::shared_ptr<runtime::Tensor> ints;
  context_->GetDeviceCPU()->CreateTensor(ints, TensorShape({2, 5}, DataType::INT32, Layout::SC), ten.data());
  EXPECT_EQ(gru->CheckInputs({ints}), -2);
  const std::vector<float> six(6, 0.0f);
  EXPECT_EQ(gru->CheckOutputs({Tensor({2, 3}, six)}), 0);
  EXPECT_EQ(gru->CheckOutputs({Tensor({2, 3}, six, Layout::BC)}), -2);
  EXPECT_EQ(gru->CheckOutputs({Tensor({3, 2}, six)}), -2);
  // Input whose steps are not rows of in_size is reported, not misread.
  runtime::TensorList outputs;
  EXPECT_THROW(gru->Forward({Tensor({2, 5, 2}, std::vector<float>(20, 0.0f))}, outputs, context_),
               std::runtime_error);

  // The LSTM cell takes x, h and c; a fourth input or a state of the wrong size is bad.
  const CellWeights w = RandomWeights(RecurrentKind::kLSTM, 5, 3, true);
  const auto cell = NewKernel<LSTMCell_SSE_C_F32_M1>();
  ASSERT_TRUE(cell->Config(CellInfo(RecurrentKind::kLSTM, 0, 5, 3, w), nullptr, nullptr, context_));
  const auto x = Tensor({1, 5}, ten), h = Tensor({1, 3}, six);
  EXPECT_EQ(cell->CheckInputs({x, h, h}), 0);
  EXPECT_EQ(cell->CheckInputs({x, h, h, h}), -2);
  EXPECT_EQ(cell->CheckInputs({x, Tensor({1, 2}, six)}), -2);
  EXPECT_EQ(cell->CheckInputs({Tensor({2, 5}, ten)}), -2);
  EXPECT_THROW(cell->Forward({Tensor({2, 5}, ten)}, outputs, context_), std::runtime_error);

  // Weights shorter than the sizes ask, or a list without an entry for a stacked layer, fail loudly.
  auto short_text =
      std::static_pointer_cast<runtime::RecurrentInfo>(SequenceInfo(RecurrentKind::kGRU, ref, true));
  short_text->weight_hh_forward[0] = zvtest::WeightText(std::vector<float>(26, 0.0f));
  EXPECT_THROW(NewKernel<GRU_SSE_SC_F32_M1>()->Config(short_text, nullptr, nullptr, context_),
               std::runtime_error);
  auto short_list =
      std::static_pointer_cast<runtime::RecurrentInfo>(SequenceInfo(RecurrentKind::kGRU, ref, true));
  short_list->num_layers = 2;
  EXPECT_THROW(NewKernel<GRU_SSE_SC_F32_M1>()->Config(short_list, nullptr, nullptr, context_),
               std::runtime_error);
}

TEST_F(RecurrentFamilyTest, EmptySequenceAndNarrowBidirectional) {
  // T = 0 makes no step: an empty output, a zero state made on the way, a later state left alone.
  recurrent_reference::Sequence ref = RandomSequence(RecurrentKind::kLSTM, 0, 4, 6, 2, true, true);
  const auto lstm = NewKernel<LSTM_SSE_SC_F32_M1>();
  ASSERT_TRUE(lstm->Config(SequenceInfo(RecurrentKind::kLSTM, ref, true), nullptr, nullptr, context_));
  EXPECT_TRUE(RunSequence(*lstm, {}, 0, 4).empty());
  const RecurrentState& state = static_cast<const LSTM_SSE_SC_F32_M1&>(*lstm).state();
  ASSERT_NE(state.hidden, nullptr);
  for (int k = 0; k < 24; ++k) ASSERT_EQ(state.hidden->Data<float>()[k], 0.0f);
  const std::vector<float> x = Random(12, 1.0f);
  zvtest::ExpectAccuracy(RunSequence(*lstm, x, 3, 4), ref.Run(x, 3), kBitExact, "two-layer bidirectional");
  const std::vector<float> before(state.hidden->Data<float>(), state.hidden->Data<float>() + 24);
  EXPECT_TRUE(RunSequence(*lstm, {}, 0, 4).empty());
  EXPECT_EQ(std::vector<float>(state.hidden->Data<float>(), state.hidden->Data<float>() + 24), before);

  // complex_rnn_type 1: the second layer takes hidden_size inputs; a bidirectional run is not implemented,
  // leaves the outputs empty and only makes the zero state.
  recurrent_reference::Sequence narrow = ref;
  narrow.kind = RecurrentKind::kGRU;
  narrow.narrow = true;
  narrow.forward.clear();
  narrow.reverse.clear();
  for (uint32_t l = 0; l < 2; ++l) {
    narrow.forward.push_back(RandomWeights(RecurrentKind::kGRU, narrow.InWidth(l), 6, true));
    narrow.reverse.push_back(RandomWeights(RecurrentKind::kGRU, narrow.InWidth(l), 6, true));
  }
  const auto gru = NewKernel<GRU_SSE_SGEMM_SC_F32_M2>();
  ASSERT_TRUE(gru->Config(SequenceInfo(RecurrentKind::kGRU, narrow, true, 1), nullptr, nullptr, context_));
  EXPECT_EQ(static_cast<const GRU_SSE_SGEMM_SC_F32_M2&>(*gru).state().forward_cells[1].weight_ih->shape.dims,
            (std::vector<uint32_t>{18, 6}));
  zvtest::LogCapture log;
  runtime::TensorList outputs = {Tensor({1, 1}, {1.0f})};
  gru->Forward({Tensor({3, 4}, x)}, outputs, context_);
  EXPECT_TRUE(outputs.empty());
  ASSERT_FALSE(log.lines().empty());
  EXPECT_NE(log.Last().find("Not Implemented."), std::string::npos);
}

TEST_F(RecurrentFamilyTest, UnknownRNNActivationLeavesTheSum) {
  for (const bool sequence : {true, false}) {
    recurrent_reference::Sequence ref = RandomSequence(RecurrentKind::kRNN, 4, 7, 5, 1, false, true);
    std::shared_ptr<runtime::IKernel> kernel =
        sequence ? NewKernel<RNN_SSE_SC_F32_M1>() : NewKernel<RNNCell_SSE_C_F32_M1>();
    ASSERT_TRUE(kernel->Config(sequence ? SequenceInfo(RecurrentKind::kRNN, ref, true)
                                        : CellInfo(RecurrentKind::kRNN, 4, 7, 5, ref.forward[0]),
                               nullptr, nullptr, context_));
    zvtest::LogCapture log;
    const std::vector<float> x = Random(7, 1.0f);
    zvtest::ExpectAccuracy(RunSequence(*kernel, x, 1, 7), ref.Run(x, 1), kBitExact, "unknown activation");
    ASSERT_FALSE(log.lines().empty());
    EXPECT_NE(log.Last().find("Not Implemented."), std::string::npos);
  }
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
