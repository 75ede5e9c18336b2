#include <cstdio>
#include <cstring>

#include "tools/zvkit/zvkit.h"

namespace zvkit {

const std::vector<Command>& Commands() {
  static const std::vector<Command> commands = {
      {"cpu", "print the processor report and what the library's processor checks answer",
       "usage: zvkit cpu\n"
       "\n"
       "Prints the processor report that the library logs (vendor, brand, one line per feature), then\n"
       "the answers of ZV2_CheckIsaSupported (bit 0: SSE) and ZV2_CheckIsaAVX (AVX with OS support).\n"
       "Use it to choose a kernel configuration for a machine.\n",
       &CmdCpu},
      {"info", "print a model's header, layers (kind, inputs, parameters, weight counts) and outputs",
       "usage: zvkit info MODEL [--precision fp16|fp32]\n"
       "\n"
       "Reads MODEL (.json, or binary .zvmod/.zvmods) and prints its header, one entry per layer with its\n"
       "id, kind, inputs, parameters and the number of floats in each weight field, then the output ids.\n"
       "A binary file does not record the precision of its weights: it is read as fp16 (what the engines\n"
       "read) unless --precision fp32 says otherwise.\n"
       "Exits 1 with the reason on stderr when the file cannot be read or holds no model.\n",
       &CmdInfo},
      {"convert", "convert a model or a kernel configuration between JSON and binary",
       "usage: zvkit convert IN OUT [--precision fp16|fp32] [--input-precision fp16|fp32]\n"
       "\n"
       "Reads IN, a model or a kernel configuration (told apart by the class name of the file's root), and\n"
       "writes it to OUT in the form of OUT's extension: .json, .zvmod/.zvmods for models, .zvcfg/.zvcfgs\n"
       "for configurations. --precision sets the weights' precision of a binary OUT (default fp16, the\n"
       "precision the engines read); --input-precision that of a binary IN (default fp16).\n"
       "Exits 1 with the reason on stderr when IN cannot be read or OUT cannot be written.\n",
       &CmdConvert},
      {"run", "stream a raw float32 file through an engine, block by block, through the public C API",
       "usage: zvkit run --model M --config C --input frames.f32 [--output out.f32]\n"
       "                 [--engine denoise|vad] [--fused] [--reset-every N] [--quiet] [--compare other.f32]\n"
       "\n"
       "Creates an engine (denoise by default) from M and C, cuts the input file into blocks of the model's\n"
       "input size (model_base_h x model_base_w floats; 7 x 80 with --fused) and applies them in order,\n"
       "writing the outputs one after the other to --output. --fused selects the hand-fused denoise path\n"
       "(argv[2] = \"1\"). --reset-every N resets the recurrent state before every N-th block. Prints a\n"
       "progress line every 1000 blocks and a summary: blocks, mean and p99 time per block. --compare reads\n"
       "the outputs of another run (e.g. the other path) and prints the largest difference from them.\n",
       &CmdRun},
      {"kernels", "list the registered kernel names by registration group",
       "usage: zvkit kernels\n"
       "\n"
       "Prints every kernel name an engine's registry holds, by group (base, Fallback, SGEMM, SSE, AVX), in\n"
       "alphabetical order within a group, and the number of distinct names. A configuration file names\n"
       "kernels by exactly these names.\n",
       &CmdKernels},
      {"bench", "time a denoise engine per block against streaming its weight bytes once",
       "usage: zvkit bench --model M --config C [--fused] [--blocks N] [--warmup N] [--input blocks.f32]\n"
       "\n"
       "Creates a denoise engine from M and C through the public C API (--fused: the hand-fused path),\n"
       "streams blocks through it with the recurrent state carried, and after a warm-up (default a tenth of\n"
       "the blocks, at least 50) times N blocks (default 2000) one by one: mean, median and p99 per block.\n"
       "Then the same figures for copying the engine's weight bytes once with memcpy (fused: the network's\n"
       "4,364,960-byte block; generic: the model's weights as float32), and the ratio of the two.\n"
       "Blocks come from --input (raw float32, whole blocks) or from a fixed pseudo-random sequence.\n",
       &CmdBench},
  };
  return commands;
}

bool WantsHelp(const std::vector<std::string>& args) {
  for (const auto& a : args)
    if (a == "-h" || a == "--help") return true;
  return false;
}

namespace {
void PrintUsage(std::FILE* out) {
  std::fprintf(out,
               "usage: zvkit <command> [options]    (zvkit <command> --help for details)\n\ncommands:\n");
  for (const auto& c : Commands()) std::fprintf(out, "  %-10s %s\n", c.name, c.summary);
}
}  // namespace

}  // namespace zvkit

int main(int argc, char** argv) {
  if (argc < 2 || std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0) {
    zvkit::PrintUsage(argc < 2 ? stderr : stdout);
    return argc < 2 ? 2 : 0;
  }
  std::vector<std::string> args(argv + 2, argv + argc);
  for (const auto& c : zvkit::Commands()) {
    if (std::strcmp(c.name, argv[1]) == 0) {
      if (zvkit::WantsHelp(args)) {
        std::fputs(c.usage, stdout);
        return 0;
      }
      return c.run(args);
    }
  }
  std::fprintf(stderr, "zvkit: unknown command '%s'\n\n", argv[1]);
  zvkit::PrintUsage(stderr);
  return 2;
}
