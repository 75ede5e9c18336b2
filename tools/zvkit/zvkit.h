// zvkit: the command-line host. Subcommands that run engines go through the public C API exactly as a host's
// code does; only what that API does not offer (reading and converting files, listing kernels) uses the
// internal library.
#pragma once

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

}  // namespace zvkit
