// Every elementwise and broadcast member (the three member lists) through its kernel interface, against a
// memcpy of the same input bytes measured in the same run: the counter "x_memcpy" is the member's time over
// the copy's time.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <random>
#include <type_traits>
#include <vector>

#include "zelva/src/kernel/cpu/avx/elementwise/members.h"
#include "zelva/src/kernel/cpu/fallback/elementwise/members.h"
#include "zelva/src/kernel/frame/member.h"
#include "zelva/src/kernel/cpu/sse/elementwise/members.h"
#include "zelva/src/runtime/context.h"

namespace {

using namespace zelva;

// Nanoseconds of copying `bytes` with memcpy, the best of several timed batches.
double CopyNanoseconds(size_t bytes) {
  std::vector<char> src(bytes, 1), dst(bytes);
  double best = 1e30;
  for (int batch = 0; batch < 20; ++batch) {
    const auto start = std::chrono::steady_clock::now();
    for (int k = 0; k < 200; ++k) {
      std::memcpy(dst.data(), src.data(), bytes);
      benchmark::DoNotOptimize(dst.data());
      benchmark::ClobberMemory();
    }
    const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
    best = std::min(best, took.count() / 200);
  }
  return best;
}

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
  const double copy_ns = CopyNanoseconds((na + nb) * sizeof(float));
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    kernel.Forward(inputs, outputs, context);
    benchmark::DoNotOptimize(outputs[0]->data);
    outputs.clear();
  }
  const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
  state.counters["x_memcpy"] = took.count() / static_cast<double>(state.iterations()) / copy_ns;
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

#define ZV_BENCH_VECTOR(group, cls, kind, op, core)                               \
  Register<kernel::cls, InfoOfKind<kernel::kind>>(#cls, kernel::op, kernel::kind, \
                                                  kernel::KernelGroup::group == kernel::KernelGroup::kAVX);

// The two scalar members: the same-shape one runs Add, the broadcast one multiplies by a per-row value.
template <class Kernel>
void RegisterFallback(const char* name) {
  if (std::is_same<Kernel, kernel::Elementwise_Fallback_Float_M1>::value) {
    Register<Kernel, runtime::ElementWiseOperatorInfo>(name, kernel::kOpAdd, kernel::kSameShape, false);
  } else {
    Register<Kernel, runtime::BroadcastOperatorInfo>(name, kernel::kOpMul, kRowBroadcast, false);
  }
}
#define ZV_BENCH_FALLBACK(group, cls) RegisterFallback<kernel::cls>(#cls);

[[maybe_unused]] const int registered = [] {
  ZV_FALLBACK_ELEMENTWISE_MEMBERS(ZV_BENCH_FALLBACK)
  ZV_SSE_ELEMENTWISE_MEMBERS(ZV_BENCH_VECTOR)
  ZV_AVX_ELEMENTWISE_MEMBERS(ZV_BENCH_VECTOR)
  return 0;
}();

}  // namespace
