#include <cstdio>
#include <cstring>

#include "tools/zvkit/log_sink.h"
#include "tools/zvkit/zvkit.h"

namespace zvkit {

const std::vector<Command>& Commands() {
  static const std::vector<Command> commands = {
      {"cpu", "print the processor report and what the library's processor checks answer",
       "usage: zvkit cpu\n"
       "\n"
       "Prints the answers of ZV2_CheckIsaSupported (bit 0: SSE) and ZV2_CheckIsaAVX (AVX with OS\n"
       "support), then the processor report that the library logs (vendor, brand, 51 features), compactly:\n"
       "the supported features first, several a line. --verbose also prints the report's lines as logged.\n"
       "Use it to choose a kernel configuration for a machine.\n",
       &CmdCpu},
      {"info", "print a model's header, layers (kind, inputs, parameters, weight counts) and outputs",
       "usage: zvkit info MODEL [--precision fp16|fp32]\n"
       "\n"
       "Reads MODEL (.json, or binary .zvmod/.zvmods) and prints its header, one entry per layer with its\n"
       "id, kind, inputs, parameters and the number of floats in each weight field, then the output ids.\n"
       "A binary file does not record the precision of its weights: zvkit reads it at fp16 and at fp32,\n"
       "takes the one that reads the file exactly to its end and says which; it refuses when both or\n"
       "neither do. --precision fp16|fp32 reads at that precision instead.\n"
       "Exits 1 with the reason on stderr when the file cannot be read or holds no model.\n",
       &CmdInfo},
      {"convert", "convert a model or a kernel configuration between JSON and binary",
       "usage: zvkit convert IN OUT [--for denoise|vad] [--precision fp16|fp32]\n"
       "                            [--input-precision fp16|fp32]\n"
       "\n"
       "Reads IN, a model or a kernel configuration (told apart by the class name of the file's root), and\n"
       "writes it to OUT in the form of OUT's extension: .json, .zvmod/.zvmods for models, .zvcfg/.zvcfgs\n"
       "for configurations.\n"
       "A binary model holds its weights at one precision, which the file does not record, and each engine\n"
       "reads one: the denoise engine fp16, the VAD engine fp32. --for denoise|vad writes the precision of\n"
       "that engine; --precision sets it directly (default fp16). zvkit prints the precision it wrote and\n"
       "the engine that reads it.\n"
       "A binary IN is read at both precisions and the one that reads the file exactly to its end is taken\n"
       "(and named); zvkit refuses when both or neither do. --input-precision reads at that one instead.\n"
       "Exits 1 with the reason on stderr when IN cannot be read or OUT cannot be written.\n",
       &CmdConvert},
      {"check", "build a model's net as the engines do and run one block of zeros through it, layer by layer",
       "usage: zvkit check MODEL CONFIG [--precision fp16|fp32]\n"
       "\n"
       "Finds the models that load and then fail every apply (a base size that disagrees with the first\n"
       "layer, a recurrent in_size or dense in_features that disagrees with what feeds it, a reshape to the\n"
       "wrong count, converters or kernels swapped in the configuration). For each engine that can take the\n"
       "model (both for JSON; for a binary model the one that reads its precision: denoise fp16, VAD fp32,\n"
       "found from the file unless --precision says) it builds the net exactly as the engine does, runs one\n"
       "block of zeros (model_base_h x model_base_w floats) through it and prints every kernel run with its\n"
       "input and output shapes, and the first kernel that refuses its input, with the layer, the kernel's\n"
       "name, the shapes and the reason. It warns about weight texts with characters outside the Base64\n"
       "alphabet. Exits 0 when all is well, 1 on any problem or warning, 2 on a usage error.\n",
       &CmdCheck},
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
      {"denoise", "denoise a recording or a live stream (WAV and the other formats libsndfile reads, or raw)",
       "usage: zvkit denoise IN OUT [--model M --config C] [--fused] [--reference CLEAN] [--quiet]\n"
       "\n"
       "Reads IN (any format libsndfile reads) and writes the denoised audio to OUT as WAV, at IN's rate "
       "and\n"
       "channel count, time-aligned with IN (the 10 ms delay of the denoiser taken out) and of the same "
       "length;\n"
       "float samples when IN holds float samples, 16-bit PCM otherwise. Each channel is its own stream with "
       "its\n"
       "own engine: resampled to 16 kHz, denoised hop by hop (10 ms), resampled back. Files are read and\n"
       "written in chunks, so any length takes the same memory.\n"
       "IN or OUT \"-\" is raw 16-bit little-endian mono PCM at 16 kHz on stdin / stdout, processed a hop at "
       "a\n"
       "time and flushed, for live use:\n"
       "  arecord -f S16_LE -r 16000 -c 1 | zvkit denoise - - | aplay -f S16_LE -r 16000 -c 1\n"
       "Output samples are clamped to full scale; input samples that are not numbers are read as 0 (one "
       "warning).\n"
       "--model/--config: the network (1 x 7 x 80 block in, 80 band gains out); default models/denoise.zvmod "
       "and\n"
       "models/denoise.cfg.json\nin ../models beside zvkit (the source tree's for build/zvkit), or in "
       "$ZVKIT_MODELS. --fused: the\n"
       "hand-fused path.\n"
       "--reference CLEAN: a clean recording at IN's rate and channel count; prints\n"
       "  SI-SDR input X dB, output Y dB, improvement Z dB\n"
       "A progress bar shows on a terminal for inputs over 5 s (not with --quiet). At the end, on stderr,\n"
       "  real-time factor R   (processing time, reading excluded, over the audio's duration)\n"
       "Exits 1 with one line on stderr when IN cannot be read or OUT cannot be written.\n",
       &CmdDenoise},
      {"vad", "print where a recording or a live stream holds speech, and the per-hop probabilities",
       "usage: zvkit vad IN [--model M --config C] [--threshold T] [--hangover MS] [--csv PATH] [--quiet]\n"
       "\n"
       "Reads IN (any format libsndfile reads, or \"-\" for raw 16-bit little-endian mono PCM at 16 kHz on\n"
       "stdin), mixes its channels to one, resamples to 16 kHz and runs the VAD network every 10 ms hop. "
       "Prints\n"
       "one line per speech segment on stdout, start and end in seconds:\n"
       "  0.52 1.87\n"
       "A hop is speech when its probability reaches --threshold (default 0.5); speech lasts --hangover\n"
       "milliseconds (default 200) beyond its last such hop, which also bridges shorter gaps.\n"
       "--csv PATH writes time,probability with one row per hop (time: the hop's start in seconds); --csv -\n"
       "writes those rows to stdout instead of the segments.\n"
       "--model/--config: the network (1 x 1 x 80 features in, 1 probability out); default models/vad.zvmod\n"
       "and models/vad.cfg.json in ../models beside zvkit (the source tree's for build/zvkit), or in "
       "$ZVKIT_MODELS.\n"
       "At the end, on stderr: real-time factor R. Exits 1 with one line on stderr when IN cannot be read.\n",
       &CmdVad},
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
               "usage: zvkit [--verbose] <command> [options]    (zvkit <command> --help for details)\n\n"
               "commands:\n");
  for (const auto& c : Commands()) std::fprintf(out, "  %-10s %s\n", c.name, c.summary);
  std::fprintf(
      out,
      "\nThe library's log lines go to stderr, shortened (\"zelva: error: ...\"); --verbose, anywhere\n"
      "on the command line, shows them exactly as the library composes them.\n");
}
}  // namespace

}  // namespace zvkit

int main(int argc, char** argv) {
  // --verbose is zvkit's own and may stand anywhere; every other argument goes to the command.
  std::vector<std::string> words;
  bool verbose = false;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--verbose") == 0) {
      verbose = true;
    } else {
      words.emplace_back(argv[i]);
    }
  }
  zvkit::InstallLogSink(verbose);
  if (words.empty() || words[0] == "-h" || words[0] == "--help") {
    zvkit::PrintUsage(words.empty() ? stderr : stdout);
    return words.empty() ? 2 : 0;
  }
  const std::string command = words[0];
  std::vector<std::string> args(words.begin() + 1, words.end());
  for (const auto& c : zvkit::Commands()) {
    if (command == c.name) {
      if (zvkit::WantsHelp(args)) {
        std::fputs(c.usage, stdout);
        return 0;
      }
      return c.run(args);
    }
  }
  std::fprintf(stderr, "zvkit: unknown command '%s'\n\n", command.c_str());
  zvkit::PrintUsage(stderr);
  return 2;
}
