// Recurrent family: every member of the list on one layer of 256 inputs and 256 hidden, one step per Forward
// for cells, 1 and 8 steps for sequences. Yardstick, measured in the same run: streaming the layer's weights
// once with memcpy. Counter x_memcpy: thread CPU time per step over the time of one pass over the weights.
//
//   build/bench/zelva_bench --benchmark_filter='GRU|LSTM|RNN'
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "bench_support.h"
#include "zelva/src/kernel/family/rnn/members.h"
#include "zelva/src/kernel/registry/registry.h"
#include "zelva/src/runtime/context.h"
#include "zelva/src/runtime/weight_data.h"

namespace zelva {
namespace kernel {
namespace {

constexpr uint32_t kIn = 256;
constexpr uint32_t kHidden = 256;

std::vector<float> Random(size_t n, std::mt19937& rng) {
  std::uniform_real_distribution<float> dist(-0.0625f, 0.0625f);
  std::vector<float> v(n);
  for (float& x : v) x = dist(rng);
  return v;
}

std::string Text(const std::vector<float>& v) {
  return runtime::EncodeWeights(v.data(), v.size());
}

std::shared_ptr<runtime::LayerInfo> Describe(RecurrentKind kind, bool sequence, std::mt19937& rng) {
  const uint32_t rows = GateCount(kind) * kHidden;
  const std::string w_ih = Text(Random(rows * kIn, rng)), w_hh = Text(Random(rows * kHidden, rng)),
                    b_ih = Text(Random(rows, rng)), b_hh = Text(Random(rows, rng));
  if (sequence) {
    std::shared_ptr<runtime::RecurrentInfo> info;
    if (kind == RecurrentKind::kGRU) info = std::make_shared<runtime::GRUInfo>();
    if (kind == RecurrentKind::kLSTM) info = std::make_shared<runtime::LSTMInfo>();
    if (kind == RecurrentKind::kRNN) {
      auto rnn = std::make_shared<runtime::RNNInfo>();
      rnn->activation_type = kRecurrentTanH;
      info = rnn;
    }
    info->in_size = kIn;
    info->hidden_size = kHidden;
    info->if_bias = true;
    info->num_layers = 1;
    info->weight_ih_forward = {w_ih};
    info->weight_hh_forward = {w_hh};
    info->bias_ih_forward = {b_ih};
    info->bias_hh_forward = {b_hh};
    return info;
  }
  std::shared_ptr<runtime::RecurrentCellInfo> info;
  if (kind == RecurrentKind::kGRU) info = std::make_shared<runtime::GRUCellInfo>();
  if (kind == RecurrentKind::kLSTM) info = std::make_shared<runtime::LSTMCellInfo>();
  if (kind == RecurrentKind::kRNN) {
    auto rnn = std::make_shared<runtime::RNNCellInfo>();
    rnn->activation_type = kRecurrentTanH;
    info = rnn;
  }
  info->in_size = kIn;
  info->hidden_size = kHidden;
  info->if_bias = true;
  info->weight_ih = w_ih;
  info->weight_hh = w_hh;
  info->bias_ih = b_ih;
  info->bias_hh = b_hh;
  return info;
}

void RunMember(benchmark::State& state, std::shared_ptr<runtime::IKernel> (*make)(), RecurrentKind kind,
               bool sequence) {
  std::mt19937 rng(7);
  auto context = runtime::CreateCPUContext(64);
  auto kernel = make();
  if (!kernel->Config(Describe(kind, sequence, rng), nullptr, nullptr, context)) {
    state.SkipWithError("Config failed");
    return;
  }
  const uint32_t steps = static_cast<uint32_t>(state.range(0));
  const std::vector<float> x = Random(static_cast<size_t>(steps) * kIn, rng);
  std::shared_ptr<runtime::Tensor> input;
  context->GetDeviceCPU()->CreateTensor(
      input, runtime::TensorShape({steps, kIn}, runtime::DataType::FLOAT32, runtime::Layout::SC), x.data());
  const runtime::TensorList inputs = {input};
  runtime::TensorList outputs;

  const size_t weight_bytes = sizeof(float) * GateCount(kind) * kHidden * (kIn + kHidden);
  auto run = [&]() {
    kernel->Forward(inputs, outputs, context);
    benchmark::DoNotOptimize(outputs.data());
  };
  for (auto _ : state) run();
  // Per step, against one pass over the weights.
  state.counters["x_memcpy"] = zvbench::RatioToMemcpy(run, weight_bytes, 30, 5) / steps;
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * steps *
                          static_cast<int64_t>(weight_bytes));
}

#define ZV_BENCH_RNN_MEMBER(group, isa, cls, accuracy, shape, kind, form)                               \
  {                                                                                                     \
    const bool sequence = RecurrentShape::shape == RecurrentShape::kSequence;                           \
    auto* b =                                                                                           \
        benchmark::RegisterBenchmark(#cls, &RunMember, &NewKernel<cls>, RecurrentKind::kind, sequence); \
    b->Arg(1);                                                                                          \
    if (sequence) b->Arg(8);                                                                            \
  }

const int kRegistered = [] {
  ZV_RNN_MEMBERS(ZV_BENCH_RNN_MEMBER)
  return 0;
}();

}  // namespace
}  // namespace kernel
}  // namespace zelva
