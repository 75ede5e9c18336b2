// Loading a model of about 4.4 MB of float weights from JSON, from an fp32 binary file and from an fp16
// binary file, against the time it takes to read the same file's bytes into a buffer (the yardstick, measured
// in the same iterations). Counters: load_ms, fread_ms, x_fread = load time / read time.
//   build/bench/zelva_bench --benchmark_filter=ModelLoad
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "zelva/src/runtime/weight_data.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"

namespace zelva {
namespace runtime {
namespace {

std::string Weights(std::mt19937& rng, size_t count) {
  std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
  std::vector<float> w(count);
  for (float& x : w) x = uniform(rng);
  return EncodeWeights(w.data(), w.size());
}

// Three 512 x 512 fully connected layers and a GRU of 256 inputs and 224 units: 1,110,336 floats.
ZVModelInfo MakeModel() {
  std::mt19937 rng(7);
  ZVModelInfo model;
  auto input = std::make_shared<InputInfo>();
  input->id = "input";
  model.AddLayer(input);
  std::string previous = "input";
  for (int i = 0; i < 3; ++i) {
    auto fc = std::make_shared<FullConnectionInfo>();
    fc->id = "fc" + std::to_string(i);
    fc->input_ids = {previous};
    fc->in_features = 512;
    fc->out_features = 512;
    fc->if_bias = true;
    fc->weight = Weights(rng, 512 * 512 - (i == 2 ? 1024 : 0));
    fc->bias = Weights(rng, 512);
    previous = fc->id;
    model.AddLayer(fc);
  }
  auto gru = std::make_shared<GRUInfo>();
  gru->id = "gru";
  gru->input_ids = {previous};
  gru->in_size = 256;
  gru->hidden_size = 224;
  gru->num_layers = 1;
  gru->if_bias = true;
  gru->weight_ih_forward = {Weights(rng, 3 * 224 * 256)};
  gru->weight_hh_forward = {Weights(rng, 3 * 224 * 224)};
  gru->bias_ih_forward = {Weights(rng, 3 * 224)};
  gru->bias_hh_forward = {Weights(rng, 3 * 224)};
  model.AddLayer(gru);
  model.squential_output_ids = {"gru"};
  return model;
}

struct Files {
  std::string json, fp32, fp16;
  Files() {
    const std::string dir = "/tmp/zelva_bench_" + std::to_string(getpid());
    json = dir + ".json";
    fp32 = dir + "_fp32.zvmod";
    fp16 = dir + "_fp16.zvmod";
    ZVModelInfo model = MakeModel();
    model.ToFile(json, "json");
    model.ToBin(fp32, "fp32");
    model.ToBin(fp16, "fp16");
  }
  ~Files() {
    std::remove(json.c_str());
    std::remove(fp32.c_str());
    std::remove(fp16.c_str());
  }
};

const Files& TheFiles() {
  static Files files;
  return files;
}

// The yardstick: the file's bytes into a buffer, one fread.
size_t ReadBytes(const std::string& path, std::vector<char>& buffer) {
  FILE* file = std::fopen(path.c_str(), "rb");
  std::fseek(file, 0, SEEK_END);
  const long size = std::ftell(file);
  std::fseek(file, 0, SEEK_SET);
  buffer.resize(static_cast<size_t>(size));
  const size_t got = std::fread(buffer.data(), 1, buffer.size(), file);
  std::fclose(file);
  return got;
}

using Clock = std::chrono::steady_clock;

void BM_ModelLoad(benchmark::State& state, const std::string& (*pick)(const Files&), const char* precision) {
  const std::string& path = pick(TheFiles());
  std::vector<char> buffer;
  double load_total = 0, read_total = 0;
  size_t bytes = 0;
  for (auto _ : state) {
    const auto t0 = Clock::now();
    bytes = ReadBytes(path, buffer);
    benchmark::DoNotOptimize(buffer.data());
    const auto t1 = Clock::now();
    ZVModelInfo model;
    if (precision == nullptr) {
      model.FromFile(path);
    } else {
      model.FromBin(path, precision);
    }
    benchmark::DoNotOptimize(model.layers().data());
    const auto t2 = Clock::now();
    const double load = std::chrono::duration<double>(t2 - t1).count();
    read_total += std::chrono::duration<double>(t1 - t0).count();
    load_total += load;
    state.SetIterationTime(load);
  }
  const double n = static_cast<double>(state.iterations());
  state.counters["file_MB"] = static_cast<double>(bytes) / 1e6;
  state.counters["load_ms"] = 1e3 * load_total / n;
  state.counters["fread_ms"] = 1e3 * read_total / n;
  state.counters["x_fread"] = load_total / read_total;
  state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
}

const std::string& Json(const Files& f) {
  return f.json;
}
const std::string& Fp32(const Files& f) {
  return f.fp32;
}
const std::string& Fp16(const Files& f) {
  return f.fp16;
}

BENCHMARK_CAPTURE(BM_ModelLoad, json, &Json, nullptr)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ModelLoad, fp32, &Fp32, "fp32")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ModelLoad, fp16, &Fp16, "fp16")->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace runtime
}  // namespace zelva
