// Every elementwise and broadcast member (the three member lists) through its kernel interface, against a
// memcpy of the same input bytes measured in the same run: the counter "x_memcpy" is the member's time over
// the copy's time.
#include <benchmark/benchmark.h>

#include "bench_support.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <type_traits>
#include <vector>

#include "zelva/src/kernel/family/elementwise/members.h"
#include "zelva/src/kernel/frame/member.h"
#include "zelva/src/runtime/context.h"

namespace {

using namespace zelva;

constexpr uint32_t kRowBroadcast = 100;

// Same-shape members get a = b = {n}; broadcast members a {C, H, W, lanes} with a gate b {C, 1, 1, lanes}
// (the fallback broadcast: a planar {C, H*W} with b {C, 1}).
template <class Kernel, class Info>
void BM_Binary(benchmark::State& state, uint32_t op, uint32_t kind, bool avx) {
  if (avx && !__builtin_cpu_supports("avx")) {
    state.SkipWithError("no AVX on this processor");
    return;
  }
  const uint32_t n = static_cast<uint32_t>(state.range(0));
  auto context = runtime::CreateCPUContext(64);
  auto info = std::make_shared<Info>();
  info->op_type = static_cast<uint16_t>(op);
  Kernel kernel;
  if (!kernel.Config(info, nullptr, nullptr, context)) {
    state.SkipWithError("Config failed");
    return;
  }
  std::vector<uint32_t> ad = {n}, bd = {n};
  uint32_t layout = runtime::Layout::CHW;
  if (kind == kernel::kChannelBlock4 || kind == kernel::kChannelBlock8) {
    const uint32_t lanes = kind == kernel::kChannelBlock4 ? 4 : 8;
    layout = lanes == 4 ? runtime::Layout::C4HW4 : runtime::Layout::C8HW8;
    ad = {4, 1, n / (4 * lanes), lanes};
    bd = {4, 1, 1, lanes};
  } else if (kind == kRowBroadcast) {
    ad = {16, n / 16};
    bd = {16, 1};
  }
  size_t na = 1, nb = 1;
  for (uint32_t d : ad) na *= d;
  for (uint32_t d : bd) nb *= d;
  std::mt19937 rng(1);
  std::uniform_real_distribution<float> value(0.5f, 8.0f);
  std::vector<float> a(na), b(nb);
  for (float& v : a) v = value(rng);
  for (float& v : b) v = value(rng);
  std::shared_ptr<runtime::Tensor> ta, tb;
  context->GetDeviceCPU()->CreateTensor(ta, runtime::TensorShape(ad, runtime::DataType::FLOAT32, layout),
                                        a.data());
  context->GetDeviceCPU()->CreateTensor(tb, runtime::TensorShape(bd, runtime::DataType::FLOAT32, layout),
                                        b.data());
  runtime::TensorList inputs = {ta, tb}, outputs;
  const double copy_ns = zvbench::MemcpyNanoseconds((na + nb) * sizeof(float));
  const double start = zvbench::ThreadNanoseconds();
  for (auto _ : state) {
    kernel.Forward(inputs, outputs, context);
    benchmark::DoNotOptimize(outputs[0]->data);
    outputs.clear();
  }
  const double took = zvbench::ThreadNanoseconds() - start;
  state.counters["x_memcpy"] = took / static_cast<double>(state.iterations()) / copy_ns;
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * (na + nb) * sizeof(float));
}

template <class Kernel, class Info>
void Register(const char* name, uint32_t op, uint32_t kind, bool avx) {
  benchmark::RegisterBenchmark(
      name, [=](benchmark::State& state) { BM_Binary<Kernel, Info>(state, op, kind, avx); })
      ->Arg(128)
      ->Arg(1024)
      ->Arg(16384);
}

template <uint32_t kKind>
using InfoOfKind = std::conditional_t<kKind == kernel::kSameShape, runtime::ElementWiseOperatorInfo,
                                      runtime::BroadcastOperatorInfo>;

// Each row by its kind: the same-shape members run their operation, the channel gates multiply, the scalar
// by-name member runs Add and the broadcast one multiplies by a per-row value.
template <class Kernel, uint32_t kKind>
void RegisterRow(const char* name, uint32_t op, bool avx) {
  if constexpr (kKind == kernel::kByName) {
    Register<Kernel, runtime::ElementWiseOperatorInfo>(name, kernel::kOpAdd, kernel::kSameShape, false);
  } else if constexpr (kKind == kernel::kAnyRank) {
    Register<Kernel, runtime::BroadcastOperatorInfo>(name, kernel::kOpMul, kRowBroadcast, false);
  } else {
    Register<Kernel, InfoOfKind<kKind>>(name, op, kKind, avx);
  }
}
#define ZV_BENCH_ROW(group, isa, cls, accuracy, kind, op, core) \
  RegisterRow<kernel::cls, kernel::kind>(#cls, kernel::op, kernel::Isa::isa == kernel::Isa::kAVX);

[[maybe_unused]] const int registered = [] {
  ZV_ELEMENTWISE_MEMBERS(ZV_BENCH_ROW)
  return 0;
}();

}  // namespace
