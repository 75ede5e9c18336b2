// The pixel shuffle, expand, soft arg-max, warp affine and 16-bit 1x1 convolution rows, each beside one
// memcpy of the larger of its input and output, measured in the same run, on 64-channel maps of 56 x 56 in
// the row's own layout:
//   pixel shuffle   up by 2 from 64 x 28 x 28, down by 2 from 64 x 56 x 56;
//   expand          rows repeated ([64, 1, 56] -> [64, 56, 56]) and columns repeated ([64, 56, 1] -> ...);
//   soft arg-max    64 x 56 x 56, beta 1;  warp affine   64 x 56 x 56, bilinear, zeros, a small rotation;
//   int16 1x1       64 -> 64 channels, C8HW8, with GOP/s (two per multiply-add).
// Counters: memcpy_ns and x_memcpy (the row's thread CPU time over it).
// Run: build/bench/zelva_bench --benchmark_filter='Pixel|Expand|SoftArgMax|WarpAffine|Int16'
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "bench_support.h"
#include "zelva/src/kernel/family/conv2d_int16/members.h"
#include "zelva/src/kernel/family/expand/members.h"
#include "zelva/src/kernel/family/pixelshuffle/members.h"
#include "zelva/src/kernel/family/softargmax/members.h"
#include "zelva/src/kernel/family/warpaffine/members.h"
#include "zelva/src/runtime/context.h"
#include "zelva/src/runtime/weight_data.h"
#include "zelva/src/runtime/zvmodel2/model_cfg.h"

namespace zelva {
namespace kernel {
namespace {

constexpr uint32_t kChannels = 64, kSize = 56;

uint32_t Lanes(uint32_t layout) {
  return layout == runtime::Layout::C4HW4 ? 4u : layout == runtime::Layout::C8HW8 ? 8u : 1u;
}

std::shared_ptr<runtime::Tensor> Map(const std::shared_ptr<runtime::Context>& ctx, uint32_t layout,
                                     uint32_t c, uint32_t h, uint32_t w) {
  const uint32_t lanes = Lanes(layout);
  std::vector<uint32_t> dims =
      lanes == 1 ? std::vector<uint32_t>{c, h, w} : std::vector<uint32_t>{c / lanes, h, w, lanes};
  const std::vector<float> x = zvbench::RandomFloats(static_cast<size_t>(c) * h * w, 3);
  std::shared_ptr<runtime::Tensor> t;
  ctx->GetDeviceCPU()->CreateTensor(
      t, runtime::TensorShape(std::move(dims), runtime::DataType::FLOAT32, layout), x.data());
  return t;
}

// Times `kernel` (configured) on `inputs`; `ops` per call, 0 for none.
void Time(benchmark::State& state, runtime::IKernel& kernel, const std::shared_ptr<runtime::Context>& ctx,
          const runtime::TensorList& inputs, double ops = 0) {
  runtime::TensorList outputs;
  kernel.Forward(inputs, outputs, ctx);
  const size_t bytes = std::max(inputs[0]->shape.ByteSize(), outputs[0]->shape.ByteSize());
  const double copy_ns = zvbench::MemcpyNanoseconds(bytes);
  const double start = zvbench::ThreadNanoseconds();
  for (auto _ : state) {
    kernel.Forward(inputs, outputs, ctx);
    benchmark::DoNotOptimize(outputs[0]->data);
  }
  const double ns = (zvbench::ThreadNanoseconds() - start) / static_cast<double>(state.iterations());
  if (ops > 0) state.counters["GOP/s"] = ops / ns;
  state.counters["memcpy_ns"] = copy_ns;
  state.counters["x_memcpy"] = ns / copy_ns;
}

// Registers `run(state, kernel, context)` under `name` when the processor runs the row.
template <class Kernel, class Run>
void Register(const std::string& name, Isa isa, Run run) {
  if (isa == Isa::kAVX && !__builtin_cpu_supports("avx")) return;
  benchmark::RegisterBenchmark(name.c_str(), [run](benchmark::State& state) {
    auto ctx = runtime::CreateCPUContext(64);
    Kernel kernel;
    run(state, kernel, ctx);
  });
}

template <class Kernel>
void RegisterShuffle(const char* name, Isa isa, uint32_t layout, bool up, bool down) {
  for (const bool is_up : {true, false}) {
    if (!(is_up ? up : down)) continue;
    Register<Kernel>(std::string(name) + (is_up ? "/up2_c64_28x28" : "/down2_c64_56x56"), isa,
                     [=](benchmark::State& state, Kernel& k, const std::shared_ptr<runtime::Context>& ctx) {
                       auto info = std::make_shared<runtime::PixelShuffleInfo>();
                       info->upscale_factor = is_up ? 2.0f : 0.5f;
                       if (!k.Config(info, nullptr, nullptr, ctx)) return state.SkipWithError("refused");
                       const uint32_t s = is_up ? kSize / 2 : kSize;
                       Time(state, k, ctx, {Map(ctx, layout, kChannels, s, s)});
                     });
  }
}

template <class Kernel>
void RegisterExpand(const char* name, Isa isa, uint32_t layout) {
  for (const bool rows : {true, false}) {
    Register<Kernel>(std::string(name) + (rows ? "/rows_c64_56x56" : "/columns_c64_56x56"), isa,
                     [=](benchmark::State& state, Kernel& k, const std::shared_ptr<runtime::Context>& ctx) {
                       auto info = std::make_shared<runtime::TensorExpandInfo>();
                       info->new_shape = {1, -1, kSize, kSize};
                       if (!k.Config(info, nullptr, nullptr, ctx)) return state.SkipWithError("refused");
                       Time(state, k, ctx, {Map(ctx, layout, kChannels, rows ? 1 : kSize, rows ? kSize : 1)});
                     });
  }
}

template <class Kernel>
void RegisterSoftArgMax(const char* name, Isa isa) {
  Register<Kernel>(std::string(name) + "/c64_56x56", isa,
                   [](benchmark::State& state, Kernel& k, const std::shared_ptr<runtime::Context>& ctx) {
                     auto info = std::make_shared<runtime::SoftArgMaxInfo>();
                     info->beta = 1.0f;
                     k.Config(info, nullptr, nullptr, ctx);
                     Time(state, k, ctx, {Map(ctx, runtime::Layout::CHW, kChannels, kSize, kSize)});
                   });
}

template <class Kernel>
void RegisterWarpAffine(const char* name, Isa isa) {
  Register<Kernel>(std::string(name) + "/bilinear_zeros_c64_56x56", isa,
                   [](benchmark::State& state, Kernel& k, const std::shared_ptr<runtime::Context>& ctx) {
                     auto info = std::make_shared<runtime::WarpAffineInfo>();
                     info->mode = "bilinear";
                     info->padding_mode = "zeros";
                     k.Config(info, nullptr, nullptr, ctx);
                     const float theta[6] = {0.98f, -0.17f, 0.05f, 0.17f, 0.98f, -0.03f};
                     std::shared_ptr<runtime::Tensor> t;
                     ctx->GetDeviceCPU()->CreateTensor(
                         t, runtime::TensorShape({6}, runtime::DataType::FLOAT32, runtime::Layout::C), theta);
                     Time(state, k, ctx, {Map(ctx, runtime::Layout::CHW, kChannels, kSize, kSize), t});
                   });
}

template <class Kernel>
void RegisterInt16(const char* name, Isa isa) {
  Register<Kernel>(std::string(name) + "/c64_to_64_56x56", isa,
                   [](benchmark::State& state, Kernel& k, const std::shared_ptr<runtime::Context>& ctx) {
                     auto info = std::make_shared<runtime::Conv2dInfo>();
                     info->in_channels = info->out_channels = kChannels;
                     info->kernel_x = info->kernel_y = info->groups = 1;
                     const std::vector<float> w = zvbench::RandomFloats(kChannels * kChannels, 1);
                     info->weight = runtime::EncodeWeights(w.data(), w.size());
                     auto param = std::make_shared<runtime::InferenceParamConv2DQuant>();
                     param->weight_step_size = 12;
                     param->output_step_size = 10;
                     if (!k.Config(info, param, nullptr, ctx)) return state.SkipWithError("refused");
                     Time(state, k, ctx, {Map(ctx, runtime::Layout::C8HW8, kChannels, kSize, kSize)},
                          2.0 * kChannels * kChannels * kSize * kSize);
                   });
}

const int kRegistered = [] {
#define ZV_BENCH_PS(group, isa, cls, accuracy, layout, factor, up, down) \
  RegisterShuffle<cls>(#cls, Isa::isa, runtime::Layout::layout, (up) != nullptr, (down) != nullptr);
#define ZV_BENCH_EXPAND(group, isa, cls, accuracy, layout, core) \
  RegisterExpand<cls>(#cls, Isa::isa, runtime::Layout::layout);
#define ZV_BENCH_SAM(group, isa, cls, accuracy, core) RegisterSoftArgMax<cls>(#cls, Isa::isa);
#define ZV_BENCH_WARP(group, isa, cls, accuracy, core) RegisterWarpAffine<cls>(#cls, Isa::isa);
#define ZV_BENCH_INT16(group, isa, cls, accuracy, core) RegisterInt16<cls>(#cls, Isa::isa);
  ZV_PIXELSHUFFLE_MEMBERS(ZV_BENCH_PS)
  ZV_EXPAND_MEMBERS(ZV_BENCH_EXPAND)
  ZV_SOFTARGMAX_MEMBERS(ZV_BENCH_SAM)
  ZV_WARPAFFINE_MEMBERS(ZV_BENCH_WARP)
  ZV_CONV2D_INT16_MEMBERS(ZV_BENCH_INT16)
#undef ZV_BENCH_PS
#undef ZV_BENCH_EXPAND
#undef ZV_BENCH_SAM
#undef ZV_BENCH_WARP
#undef ZV_BENCH_INT16
  return 0;
}();

}  // namespace
}  // namespace kernel
}  // namespace zelva
