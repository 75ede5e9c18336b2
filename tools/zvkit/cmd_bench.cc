// zvkit bench: the time per block of a denoise engine, through the public C API, against the time to stream
// the engine's weight bytes once with memcpy (the floor a block cannot beat while its weights do not stay in
// the nearest caches).
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tools/zvkit/host_io.h"
#include "tools/zvkit/model_files.h"
#include "tools/zvkit/zvkit.h"
#include "zv2.h"

namespace zvkit {

namespace {

// Bytes of the fused network's one block (its weights, state and scratch).
constexpr uint64_t kFusedBlockBytes = 4364960;

struct BenchOptions {
  std::string model, config, input;
  bool fused = false;
  long blocks = 2000;
  long warmup = -1;  // default: a tenth of the blocks, at least 50
};

bool ParseBenchOptions(const std::vector<std::string>& args, BenchOptions* o, std::string* error) {
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&](std::string* out) {
      if (i + 1 >= args.size()) {
        *error = a + " needs a value";
        return false;
      }
      *out = args[++i];
      return true;
    };
    auto count = [&](long* out, long least) {
      std::string text;
      if (!value(&text)) return false;
      char* end = nullptr;
      *out = std::strtol(text.c_str(), &end, 10);
      if (end == text.c_str() || *end != '\0' || *out < least) {
        *error = a + " needs a whole number of at least " + std::to_string(least);
        return false;
      }
      return true;
    };
    if (a == "--model") {
      if (!value(&o->model)) return false;
    } else if (a == "--config") {
      if (!value(&o->config)) return false;
    } else if (a == "--input") {
      if (!value(&o->input)) return false;
    } else if (a == "--fused") {
      o->fused = true;
    } else if (a == "--blocks") {
      if (!count(&o->blocks, 1)) return false;
    } else if (a == "--warmup") {
      if (!count(&o->warmup, 0)) return false;
    } else {
      *error = "unknown option " + a;
      return false;
    }
  }
  if (o->model.empty() || o->config.empty()) {
    *error = "--model and --config are required";
    return false;
  }
  if (o->warmup < 0) o->warmup = std::max(50L, o->blocks / 10);
  return true;
}

// Times `rounds` copies of `bytes` bytes from one buffer to another (after `warmup` untimed ones).
std::vector<double> TimeStream(uint64_t bytes, int warmup, int rounds) {
  std::vector<unsigned char> src(bytes), dst(bytes);
  for (uint64_t i = 0; i < bytes; ++i) src[i] = static_cast<unsigned char>(i * 131u);
  std::vector<double> micros;
  volatile unsigned char sink = 0;
  for (int r = 0; r < warmup + rounds; ++r) {
    const auto t0 = std::chrono::steady_clock::now();
    std::memcpy(dst.data(), src.data(), bytes);
    const auto t1 = std::chrono::steady_clock::now();
    sink = sink + dst[static_cast<size_t>(r) % bytes];
    if (r >= warmup) micros.push_back(std::chrono::duration<double, std::micro>(t1 - t0).count());
  }
  return micros;
}

}  // namespace

int CmdBench(const std::vector<std::string>& args) {
  BenchOptions o;
  std::string error;
  if (!ParseBenchOptions(args, &o, &error)) {
    std::fprintf(stderr, "zvkit bench: %s (see zvkit bench --help)\n", error.c_str());
    return 2;
  }
  size_t in_floats = 0, out_floats = 0;
  if (!BlockSizes(o.model, o.config, o.fused, false, &in_floats, &out_floats, &error)) {
    std::fprintf(stderr, "zvkit bench: %s\n", error.c_str());
    return 1;
  }
  // The weight bytes: the fused network keeps everything in its one block; the generic path reads the
  // model's weights (as float32) once per block.
  uint64_t weight_bytes = kFusedBlockBytes;
  if (!o.fused) {
    zelva::runtime::ZVModelInfo model;
    std::string warnings;
    const std::string reason =
        Load(model, o.model, FormOf(o.model) == FileForm::kJson ? FileForm::kJson : FileForm::kBinary, "fp16",
             &warnings);
    if (!reason.empty()) {
      std::fprintf(stderr, "zvkit bench: cannot read %s: %s\n", o.model.c_str(), reason.c_str());
      return 1;
    }
    weight_bytes = ModelWeightFloats(model) * sizeof(float);
  }

  // Input blocks: the file's, or 64 blocks of a fixed pseudo-random sequence in [-1.5, 1.5).
  std::vector<float> input;
  if (!o.input.empty()) {
    ReadFloats(o.input, &input);
    if (input.empty() || input.size() % in_floats != 0) {
      std::fprintf(stderr, "zvkit bench: %s does not hold whole %zu-float blocks\n", o.input.c_str(),
                   in_floats);
      return 1;
    }
  } else {
    input.resize(64 * in_floats);
    uint32_t state = 20018;
    for (float& x : input) {
      state = state * 1664525u + 1013904223u;
      x = static_cast<float>(state >> 8) / 16777216.0f * 3.0f - 1.5f;
    }
  }
  const size_t input_blocks = input.size() / in_floats;

  LogProblemsToStderr();
  const char* argv[] = {o.model.c_str(), o.config.c_str(), "1"};
  uint32_t handle = 0;
  if (ZV2_Create_AudioDenoise(&handle, o.fused ? 3 : 2, argv) != ZV2_RESULT_OK) {
    std::fprintf(stderr, "zvkit bench: the engine could not be created\n");
    return 1;
  }
  // Streaming: the recurrent state runs on through warm-up and timing, blocks taken in turn.
  std::vector<float> output(out_floats);
  std::vector<double> micros;
  micros.reserve(static_cast<size_t>(o.blocks));
  const long total = o.warmup + o.blocks;
  for (long b = 0; b < total; ++b) {
    const float* block = input.data() + static_cast<size_t>(b) % input_blocks * in_floats;
    const auto t0 = std::chrono::steady_clock::now();
    const _ZV2_Result r = ZV2_Apply_AudioDenoise_CPU(handle, block, output.data());
    const auto t1 = std::chrono::steady_clock::now();
    if (r != ZV2_RESULT_OK) {
      std::fprintf(stderr, "zvkit bench: block %ld failed (%d)\n", b, r);
      ZV2_Destory_AudioDenoise(&handle);
      return 1;
    }
    if (b >= o.warmup) micros.push_back(std::chrono::duration<double, std::micro>(t1 - t0).count());
  }
  ZV2_Destory_AudioDenoise(&handle);

  const TimeSummary engine = Summarise(micros);
  const TimeSummary stream =
      Summarise(TimeStream(weight_bytes, 5, static_cast<int>(std::min(200L, o.blocks))));
  std::printf(
      "denoise%s: %ld blocks after %ld warm-up, per block: mean %.1f us, median %.1f us, p99 %.1f us\n",
      o.fused ? " (fused)" : " (generic)", o.blocks, o.warmup, engine.mean, engine.median, engine.p99);
  std::printf("weights: %llu bytes streamed once (memcpy): mean %.1f us, median %.1f us, p99 %.1f us\n",
              static_cast<unsigned long long>(weight_bytes), stream.mean, stream.median, stream.p99);
  std::printf("ratio (block / weight stream): mean %.2f, median %.2f\n",
              stream.mean > 0 ? engine.mean / stream.mean : 0.0,
              stream.median > 0 ? engine.median / stream.median : 0.0);
  return 0;
}

}  // namespace zvkit
