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
  std::fprintf(out, "usage: zvkit <command> [options]    (zvkit <command> --help for details)\n\ncommands:\n");
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
