// zvkit: the command-line host. Subcommands that run engines go through the public C API exactly as a host's
// code does; only what that API does not offer (reading and converting files, listing kernels) uses the
// internal library.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace zvkit {

struct Command {
  const char* name;
  const char* summary;
  const char* usage;  // full --help text
  int (*run)(const std::vector<std::string>& args);
};

// Every subcommand registers itself in this list (defined in main.cc).
const std::vector<Command>& Commands();

// True when args hold -h or --help.
bool WantsHelp(const std::vector<std::string>& args);

int CmdCpu(const std::vector<std::string>& args);
int CmdInfo(const std::vector<std::string>& args);
int CmdConvert(const std::vector<std::string>& args);
int CmdRun(const std::vector<std::string>& args);
int CmdKernels(const std::vector<std::string>& args);
int CmdBench(const std::vector<std::string>& args);
int CmdCheck(const std::vector<std::string>& args);
int CmdDenoise(const std::vector<std::string>& args);
int CmdVad(const std::vector<std::string>& args);

// Floats per input block and per output block of an engine made from these files (cmd_run.cc): 7 x 80 and 80
// on the fused path; on the generic path the model's base size and the size of the net's first output. A
// binary model is read at the precision of its engine (vad: fp32, denoise: fp16).
bool BlockSizes(const std::string& model_path, const std::string& config_path, bool fused, bool vad,
                size_t* in_floats, size_t* out_floats, std::string* error);

}  // namespace zvkit
