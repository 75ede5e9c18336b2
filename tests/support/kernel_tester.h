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
  return outputs;
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
