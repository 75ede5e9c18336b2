// Scaffolding shared by the family testers: random data, tensors on a test context, running one kernel
// through Config, CheckInputs, Forward and CheckOutputs as the net does, and holding an output to a member's
// accuracy class against the family reference.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <istream>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/model_builder.h"
#include "zelva/src/kernel/frame/member.h"
#include "zelva/src/runtime/kernel.h"

namespace zvtest {

// Whether this processor runs members of `isa`; a tester skips the others with a message.
inline bool CanRun(zelva::kernel::Isa isa) {
  return isa != zelva::kernel::Isa::kAVX || __builtin_cpu_supports("avx");
}

inline std::vector<float> RandomFloats(size_t n, uint32_t seed, float lo = -2.0f, float hi = 2.0f) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> dist(lo, hi);
  std::vector<float> v(n);
  for (float& x : v) x = dist(rng);
  return v;
}

// A FLOAT32 tensor in main memory on the context's device holding `values` (or zeros).
inline std::shared_ptr<zelva::runtime::Tensor> MakeTensor(const std::shared_ptr<zelva::runtime::Context>& ctx,
                                                          std::vector<uint32_t> dims, uint32_t layout,
                                                          const std::vector<float>& values = {}) {
  std::shared_ptr<zelva::runtime::Tensor> t;
  zelva::runtime::TensorShape shape(std::move(dims), zelva::runtime::DataType::FLOAT32, layout,
                                    zelva::runtime::Location::MainMemory);
  ctx->GetDeviceCPU()->CreateTensor(t, shape, values.empty() ? nullptr : values.data());
  if (values.empty()) std::memset(t->Data<float>(), 0, t->shape.ElementCount() * sizeof(float));
  return t;
}

inline std::vector<float> Values(const std::shared_ptr<zelva::runtime::Tensor>& t) {
  const float* p = t->Data<float>();
  return std::vector<float>(p, p + t->shape.ElementCount());
}

// Config, CheckInputs, Forward, CheckOutputs as the net runs them; the first failing step fails the test.
inline zelva::runtime::TensorList RunKernel(zelva::runtime::IKernel& kernel,
                                            std::shared_ptr<zelva::runtime::LayerInfo> info,
                                            const zelva::runtime::TensorList& inputs,
                                            const std::shared_ptr<zelva::runtime::Context>& ctx) {
  zelva::runtime::TensorList outputs;
  if (!kernel.IsConfigured()) {
    EXPECT_TRUE(kernel.Config(std::move(info), nullptr, nullptr, ctx)) << kernel.GetName();
    if (!kernel.IsConfigured()) return outputs;
  }
  EXPECT_EQ(kernel.CheckInputs(inputs), 0) << kernel.GetName();
  kernel.Forward(inputs, outputs, ctx);
  EXPECT_EQ(kernel.CheckOutputs(outputs), 0) << kernel.GetName();
  // What the net allocates by must be what Forward made.
  std::vector<zelva::runtime::TensorShape> shapes;
  for (const auto& in : inputs) shapes.push_back(in->shape);
  const std::vector<zelva::runtime::TensorShape> promised = kernel.GetOutputShapes(shapes);
  EXPECT_EQ(promised.size(), outputs.size()) << kernel.GetName() << ": outputs against GetOutputShapes";
  for (size_t i = 0; i < outputs.size() && i < promised.size(); ++i) {
    EXPECT_EQ(outputs[i]->shape.dims, promised[i].dims) << kernel.GetName() << " output " << i;
    EXPECT_EQ(outputs[i]->shape.layout, promised[i].layout) << kernel.GetName() << " output " << i;
  }
  return outputs;
}

// Lanes of a layout (4 or 8 for the channel-blocked ones, else 1), and the layout of a lane count.
inline uint32_t LanesOf(uint32_t layout) {
  return layout == zelva::runtime::Layout::C4HW4 ? 4u : layout == zelva::runtime::Layout::C8HW8 ? 8u : 1u;
}
inline uint32_t LayoutOfLanes(uint32_t lanes) {
  using zelva::runtime::Layout;
  return lanes == 8 ? Layout::C8HW8 : lanes == 4 ? Layout::C4HW4 : Layout::CHW;
}
// The dims of a c x h x w map in `layout`: [c, h, w], or [c / B, h, w, B] for a blocked one.
inline std::vector<uint32_t> MapDims(uint32_t layout, uint32_t c, uint32_t h, uint32_t w) {
  const uint32_t b = LanesOf(layout);
  if (b == 1) return {c, h, w};
  return {c / b, h, w, b};
}
// Planar [c, plane] values to blocked [c / lanes, plane, lanes] (to_planar false), or back; by index.
inline std::vector<float> Relayout(const std::vector<float>& v, uint32_t lanes, uint32_t c, size_t plane,
                                   bool to_planar) {
  if (lanes == 1) return v;
  std::vector<float> out(v.size());
  for (uint32_t ch = 0; ch < c; ++ch) {
    for (size_t p = 0; p < plane; ++p) {
      const size_t planar = ch * plane + p, blocked = ((ch / lanes) * plane + p) * lanes + ch % lanes;
      (to_planar ? out[planar] : out[blocked]) = to_planar ? v[blocked] : v[planar];
    }
  }
  return out;
}

// Runs `kernel` on a planar c x h x w map stored in `layout` as the net does; holds its one output to
// `out_layout` and, when given, to the planar size `want_chw`; gives the output planar (empty on failure)
// and its planar size in `got_chw`. The kernel is taken over and released before the context it ran on, since
// the scratch it keeps from that context must go back to its pools before they go.
inline std::vector<float> RunOnMap(std::shared_ptr<zelva::runtime::IKernel> kernel_in,
                                   std::shared_ptr<zelva::runtime::LayerInfo> info,
                                   const std::vector<float>& planar, uint32_t c, uint32_t h, uint32_t w,
                                   uint32_t layout, uint32_t out_layout,
                                   const std::vector<uint32_t>& want_chw = {},
                                   std::vector<uint32_t>* got_chw = nullptr) {
  auto ctx = MakeTestContext();
  const std::shared_ptr<zelva::runtime::IKernel> owned = std::move(kernel_in);
  zelva::runtime::IKernel& kernel = *owned;
  const auto outputs = RunKernel(kernel, std::move(info),
                                 {MakeTensor(ctx, MapDims(layout, c, h, w), layout,
                                             Relayout(planar, LanesOf(layout), c, size_t{h} * w, false))},
                                 ctx);
  if (outputs.size() != 1u) {
    ADD_FAILURE() << kernel.GetName() << ": " << outputs.size() << " outputs";
    return {};
  }
  const zelva::runtime::TensorShape& s = outputs[0]->shape;
  EXPECT_EQ(s.layout, out_layout) << kernel.GetName();
  const uint32_t lanes = LanesOf(out_layout);
  if (s.layout != out_layout || s.dims.size() != (lanes == 1 ? 3u : 4u)) return {};
  const std::vector<uint32_t> chw = {s.dims[0] * lanes, s.dims[1], s.dims[2]};
  if (got_chw != nullptr) *got_chw = chw;
  if (!want_chw.empty()) {
    EXPECT_EQ(s.dims, MapDims(out_layout, want_chw[0], want_chw[1], want_chw[2])) << kernel.GetName();
    if (chw != want_chw) return {};
  }
  return Relayout(Values(outputs[0]), lanes, chw[0], size_t{chw[1]} * chw[2], true);
}

// A tensor of `dims` with unset values.
inline std::shared_ptr<zelva::runtime::Tensor> ShapedTensor(
    const std::shared_ptr<zelva::runtime::Context>& ctx, std::vector<uint32_t> dims, uint32_t layout,
    uint32_t type = zelva::runtime::DataType::FLOAT32) {
  std::shared_ptr<zelva::runtime::Tensor> t;
  ctx->GetDeviceCPU()->CreateTensor(t, zelva::runtime::TensorShape(std::move(dims), type, layout));
  return t;
}

// A description the kernel must refuse: -1 from CheckSupport, false from Config, left unconfigured.
inline void ExpectRefused(zelva::runtime::IKernel& kernel,
                          const std::shared_ptr<zelva::runtime::LayerInfo>& info,
                          const std::shared_ptr<zelva::runtime::Context>& ctx, const std::string& what) {
  EXPECT_EQ(kernel.CheckSupport(info, nullptr), -1) << kernel.GetName() << ": " << what;
  EXPECT_FALSE(kernel.Config(info, nullptr, nullptr, ctx)) << kernel.GetName() << ": " << what;
  EXPECT_FALSE(kernel.IsConfigured()) << kernel.GetName() << ": " << what;
}

inline uint32_t Bits(float f) {
  uint32_t b;
  std::memcpy(&b, &f, 4);
  return b;
}

// Holds `got` to `want` under `accuracy`: bit for bit (NaN matching any NaN), or within the bound
// max_abs + max_rel * |want[i]|; with `scale`, max_abs + max_rel * scale[i] instead (for sums, where
// cancellation makes |want| meaningless: the same sum over the absolute values of the terms). Reports the
// first few differing places with `what`.
inline void ExpectAccuracy(const std::vector<float>& got, const std::vector<float>& want,
                           zelva::kernel::Accuracy accuracy, const std::string& what,
                           const std::vector<float>* scale = nullptr) {
  ASSERT_EQ(got.size(), want.size()) << what;
  if (scale != nullptr) {
    ASSERT_EQ(scale->size(), want.size()) << what;
  }
  int reported = 0;
  for (size_t i = 0; i < got.size() && reported < 5; ++i) {
    bool ok;
    if (std::isnan(want[i]) || std::isnan(got[i])) {
      ok = std::isnan(want[i]) && std::isnan(got[i]);
    } else if (accuracy.BitExact()) {
      ok = Bits(got[i]) == Bits(want[i]);
    } else {
      const double size = scale != nullptr ? (*scale)[i] : std::fabs(static_cast<double>(want[i]));
      const double bound = accuracy.max_abs + accuracy.max_rel * size;
      ok = std::fabs(static_cast<double>(got[i]) - want[i]) <= bound;
    }
    if (!ok) {
      ADD_FAILURE() << what << " at " << i << ": got " << got[i] << ", want " << want[i];
      ++reported;
    }
  }
}

// FNV-1a over the bits of `values`, continuing from `h`: pins a core's outputs bit for bit.
inline uint32_t Fnv1a(const std::vector<float>& values, uint32_t h = 2166136261u) {
  for (float f : values) {
    for (int k = 0; k < 4; ++k) {
      h ^= (Bits(f) >> (8 * k)) & 0xFF;
      h *= 16777619u;
    }
  }
  return h;
}

// Test names and printed parameters of a suite over a member list: the member's name.
struct MemberName {
  template <class Info>
  std::string operator()(const Info& info) const {
    return info.param.name;
  }
};

// The refusals every member shares: parameters of a quantising backend, a description of another kind.
inline void ExpectCommonRefusals(zelva::runtime::IKernel& kernel,
                                 const std::shared_ptr<zelva::runtime::LayerInfo>& own,
                                 const std::shared_ptr<zelva::runtime::LayerInfo>& other,
                                 const std::shared_ptr<zelva::runtime::Context>& ctx) {
  EXPECT_EQ(kernel.CheckSupport(own, std::make_shared<zelva::runtime::InferenceParamActQuant>()), -1)
      << kernel.GetName();
  EXPECT_EQ(kernel.CheckSupport(other, nullptr), -1) << kernel.GetName();
  EXPECT_FALSE(kernel.Config(other, nullptr, nullptr, ctx)) << kernel.GetName();
  EXPECT_FALSE(kernel.IsConfigured()) << kernel.GetName();
}

// One line of a fixture file in tests/data/ as numbers.
inline std::vector<float> ReadFixtureRow(std::istream& in) {
  std::string line;
  std::getline(in, line);
  std::istringstream row(line);
  std::vector<float> values;
  float v;
  while (row >> v) values.push_back(v);
  return values;
}

// A member row as the testers of families without a rule of their own see it; ZV_PLAIN_MEMBERS(LIST) gives
// every row of a member list (rows start group, isa, class, accuracy).
struct PlainMember {
  std::string name;
  zelva::kernel::Isa isa;
  zelva::kernel::Accuracy accuracy;
  std::shared_ptr<zelva::runtime::IKernel> (*make)();
};
#define ZV_TEST_PLAIN_MEMBER(group, isa, cls, accuracy, ...)                                          \
  members.push_back({#cls, ::zelva::kernel::Isa::isa, accuracy, [] {                                  \
                       return std::shared_ptr<::zelva::runtime::IKernel>(new ::zelva::kernel::cls()); \
                     }});
#define ZV_PLAIN_MEMBERS(LIST)                                        \
  [] {                                                                \
    using namespace ::zelva::kernel; /* the rows' accuracy classes */ \
    std::vector<::zvtest::PlainMember> members;                       \
    LIST(ZV_TEST_PLAIN_MEMBER)                                        \
    return members;                                                   \
  }()

// A member row with its rule, for lists whose rows name a `<class>_rule`: ZV_RULED_MEMBERS(Rule, LIST).
template <class Rule>
struct RuledMember {
  std::string name;
  zelva::kernel::Isa isa;
  zelva::kernel::Accuracy accuracy;
  const Rule* rule;
  std::shared_ptr<zelva::runtime::IKernel> (*make)();
};
#define ZV_TEST_RULED_MEMBER(group, isa, cls, accuracy, ...)                                          \
  members.push_back({#cls, ::zelva::kernel::Isa::isa, accuracy, &::zelva::kernel::cls##_rule, [] {    \
                       return std::shared_ptr<::zelva::runtime::IKernel>(new ::zelva::kernel::cls()); \
                     }});
#define ZV_RULED_MEMBERS(Rule, LIST)                                  \
  [] {                                                                \
    using namespace ::zelva::kernel; /* the rows' accuracy classes */ \
    std::vector<::zvtest::RuledMember<Rule>> members;                 \
    LIST(ZV_TEST_RULED_MEMBER)                                        \
    return members;                                                   \
  }()

// A fixture file in tests/data/: a row holding the number of cases, then per case a line with its name and
// the case's own rows, which `read_case(name, file)` reads.
template <class ReadCase>
void ForEachFixtureCase(const std::string& file_name, ReadCase&& read_case) {
  std::ifstream file(std::string(ZELVA_TEST_DATA_DIR) + "/" + file_name);
  ASSERT_TRUE(file.good()) << file_name;
  const std::vector<float> count = ReadFixtureRow(file);
  ASSERT_EQ(count.size(), 1u) << file_name;
  for (int c = 0; c < static_cast<int>(count[0]) && !::testing::Test::HasFatalFailure(); ++c) {
    std::string name;
    std::getline(file, name);
    read_case(name, file);
  }
}

// Logs and skips a member whose instruction set this processor lacks.
template <class Member>
bool SkipUnrunnable(const Member& m) {
  if (CanRun(m.isa)) return false;
  GTEST_LOG_(INFO) << "skipping " << m.name << ": this processor lacks its instruction set";
  return true;
}

// Which members ran at least one fixture case: every member the processor can run must have.
class MemberCoverage {
 public:
  void Ran(const std::string& name) { ran_.insert(name); }
  template <class Members>
  void ExpectEachRan(const Members& members) const {
    for (const auto& m : members) {
      if (CanRun(m.isa)) {
        EXPECT_EQ(ran_.count(m.name), 1u) << m.name << " ran no fixture case";
      }
    }
  }

 private:
  std::set<std::string> ran_;
};

}  // namespace zvtest
