// Streams on one shared fused denoise model: memory per stream, blocks per second on one core for batches of
// 1, 4, 16 and 64 streams (one ZVS_Apply per stream, or one ZVS_ApplyBatch), two threads against one, and how
// many real-time streams (100 blocks per second each) one core carries.
//   build/bench/zelva_bench_streams [--model PATH] [--seconds S]
#include <pthread.h>
#include <sched.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "bench/peak.h"
#include "tests/support/files.h"
#include "zelva/stream.h"

namespace {

using zvtest::ReadFloats;

using Clock = std::chrono::steady_clock;

void PinTo(int cpu) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(cpu, &set);
  pthread_setaffinity_np(pthread_self(), sizeof(set), &set);
}

// `count` streams of `model` fed from `blocks` for about `seconds`; blocks applied per second.
double Run(ZVS_Model* model, const std::vector<float>& blocks, size_t count, bool batched, double seconds) {
  const size_t n = blocks.size() / ZVS_FUSED_INPUT_FLOATS;
  std::vector<ZVS_Stream*> streams(count);
  for (ZVS_Stream*& s : streams) {
    if (ZVS_CreateStream(model, &s) != ZVS_OK) {
      std::fprintf(stderr, "%s\n", ZVS_LastError());
      std::exit(1);
    }
  }
  std::vector<const float*> in(count);
  std::vector<float> out(count * ZVS_FUSED_OUTPUT_FLOATS);
  std::vector<float*> outs(count);
  for (size_t i = 0; i < count; ++i) outs[i] = out.data() + i * ZVS_FUSED_OUTPUT_FLOATS;
  size_t applied = 0;
  size_t t = 0;
  auto step = [&] {
    for (size_t i = 0; i < count; ++i) in[i] = blocks.data() + ((t + 13 * i) % n) * ZVS_FUSED_INPUT_FLOATS;
    if (batched) {
      ZVS_ApplyBatch(streams.data(), in.data(), outs.data(), count);
    } else {
      for (size_t i = 0; i < count; ++i) ZVS_Apply(streams[i], in[i], outs[i]);
    }
    ++t;
    applied += count;
  };
  for (int w = 0; w < 20; ++w) step();  // warm-up: caches, per-thread scratch
  applied = 0;
  const Clock::time_point start = Clock::now();
  double elapsed = 0;
  do {
    for (int k = 0; k < 8; ++k) step();
    elapsed = std::chrono::duration<double>(Clock::now() - start).count();
  } while (elapsed < seconds);
  for (ZVS_Stream* s : streams) ZVS_DestroyStream(s);
  return applied / elapsed;
}

// Multiply-adds of one block of the fused network, layer by layer (output positions x taps x channels).
constexpr double kBlockMultiplyAdds = 5 * 78 * 9         // 3x3 convolution, one channel, 7 x 80 -> 5 x 78
                                      + 2 * 16 * 5 * 78  // two 1x1 gates to 16 channels
                                      + 16 * 3 * 76 * 9  // depthwise 3x3 -> 3 x 76
                                      + 2 * 16 * 16 * 3 * 76      // two pointwise 16 -> 16
                                      + 16 * 74 * 9               // depthwise 3x3 -> 1 x 74
                                      + 2 * 16 * 74               // two 16 -> 1
                                      + 768.0 * (74 + 256 + 256)  // three GRUs' input products
                                      + 3 * 768.0 * 256           // and their recurrent products
                                      + 80 * 256;                 // the dense output

// The widest vector peak this processor runs, in GFLOP/s, and its width in bits.
double VectorPeak(int* bits) {
  if (__builtin_cpu_supports("avx512f")) {
    *bits = 512;
    return zvbench::PeakMulAddAvx512Gflops();
  }
  if (__builtin_cpu_supports("avx")) {
    *bits = 256;
    return zvbench::PeakMulAddAvxGflops();
  }
  *bits = 128;
  return zvbench::PeakMulAddSseGflops();
}

}  // namespace

int main(int argc, char** argv) {
  std::string model_path = std::string(ZELVA_SOURCE_DIR) + "/models/denoise.zvmod";
  double seconds = 1.0;
  for (int i = 1; i + 1 < argc; i += 2) {
    if (std::strcmp(argv[i], "--model") == 0) {
      model_path = argv[i + 1];
    } else if (std::strcmp(argv[i], "--seconds") == 0) {
      seconds = std::atof(argv[i + 1]);
    }
  }
  const std::vector<float> blocks = ReadFloats(std::string(ZELVA_SOURCE_DIR) + "/models/denoise_blocks.f32");
  if (blocks.size() < ZVS_FUSED_INPUT_FLOATS) {
    std::fprintf(stderr, "no blocks to feed\n");
    return 1;
  }
  ZVS_Model* model = nullptr;
  if (ZVS_LoadModel(model_path.c_str(), nullptr, 1, &model) != ZVS_OK) {
    std::fprintf(stderr, "%s\n", ZVS_LastError());
    return 1;
  }
  PinTo(0);
  std::printf("model %s, variant %s\n", model_path.c_str(), ZVS_ModelVariant(model));
  std::printf("per stream beyond the shared model: %zu bytes\n", ZVS_StreamBytes(model));
  std::printf("%-6s %14s %14s %8s\n", "B", "unbatched/s", "batched/s", "gain");
  double single = 0, best = 0;
  for (size_t count : {1, 4, 16, 64}) {
    const double u = Run(model, blocks, count, false, seconds);
    const double b = Run(model, blocks, count, true, seconds);
    if (count == 1) single = u;
    if (b > best) best = b;
    std::printf("%-6zu %14.0f %14.0f %7.2fx\n", count, u, b, b / single);
  }

  // Two threads on two cores against one thread, each thread its own 16 streams in batches.
  const double one = Run(model, blocks, 16, true, seconds);
  double rates[2] = {0, 0};
  std::thread threads[2];
  for (int k = 0; k < 2; ++k) {
    threads[k] = std::thread([&, k] {
      PinTo(k);
      rates[k] = Run(model, blocks, 16, true, seconds);
    });
  }
  for (std::thread& th : threads) th.join();
  std::printf("one thread (B = 16 batched): %.0f blocks/s; two threads on two cores: %.0f blocks/s (%.2fx)\n",
              one, rates[0] + rates[1], (rates[0] + rates[1]) / one);
  // The yardstick: a block's arithmetic at the vector peak for separate multiplies and adds (no fused
  // multiply-add may run: every sum keeps the reference's rounding).
  int bits = 0;
  const double peak = VectorPeak(&bits);
  const double peak_blocks = peak * 1e9 / (2 * kBlockMultiplyAdds);
  std::printf(
      "vector peak (%d-bit multiplies and adds, one core): %.1f GFLOP/s, %.0f blocks/s for %.2f M "
      "multiply-adds "
      "per block; B = 1 runs at %.0f%% of it, the best batch at %.0f%%; 4x B = 1 would need %.0f%%\n",
      bits, peak, peak_blocks, kBlockMultiplyAdds / 1e6, 100 * single / peak_blocks, 100 * best / peak_blocks,
      400 * single / peak_blocks);
  std::printf(
      "real-time capacity at 100 blocks/s per stream: %.0f streams per core unbatched (B = 1), %.0f "
      "batched\n",
      single / 100.0, best / 100.0);
  ZVS_ReleaseModel(model);
  return 0;
}
