// zvkit cpu: the two processor checks and the processor report, through the public C API. The report is the
// one the library logs (one line per feature); zvkit collects it and prints it compactly.
#include <cstdio>
#include <string>
#include <vector>

#include "tools/zvkit/log_sink.h"
#include "tools/zvkit/zvkit.h"
#include "zv2.h"

namespace zvkit {

namespace {

std::vector<std::string>& Collected() {
  static std::vector<std::string> lines;
  return lines;
}

int32_t Collect(const char* text) {
  Collected().emplace_back(text != nullptr ? text : "");
  return 0;
}

bool StartsWith(const std::string& text, const std::string& head) {
  return text.compare(0, head.size(), head) == 0;
}

bool EndsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// Names in columns, `per_line` a line.
void PrintNames(const std::vector<std::string>& names, size_t per_line) {
  for (size_t i = 0; i < names.size(); ++i) {
    const bool last_of_line = i % per_line == per_line - 1 || i + 1 == names.size();
    std::printf(last_of_line ? "%s%s\n" : "%s%-12s", i % per_line == 0 ? "  " : "", names[i].c_str());
  }
}

}  // namespace

int CmdCpu(const std::vector<std::string>& args) {
  if (!args.empty()) {
    std::fprintf(stderr, "zvkit cpu: unexpected argument '%s' (see zvkit cpu --help)\n", args[0].c_str());
    return 2;
  }
  uint32_t mask = 0;
  ZV2_GetLogLevel(&mask);
  Collected().clear();
  ZV2_SetLogCallback(&Collect);
  ZV2_SetLogLevel(mask | ZV2_LOG_INFO);
  uint32_t flags = 0;
  const _ZV2_Result supported = ZV2_CheckIsaSupported(&flags);  // logs the report
  const std::vector<std::string> report = Collected();
  ZV2_SetLogLevel(ZV2_LOG_ERROR);
  const _ZV2_Result avx = ZV2_CheckIsaAVX();  // logs the same report again: not collected
  ZV2_SetLogLevel(mask);
  RestoreLogSink();

  std::printf("ZV2_CheckIsaSupported: %d, flags 0x%x (SSE %s)\n", supported, flags,
              (flags & 1u) ? "yes" : "no");
  std::printf("ZV2_CheckIsaAVX:       %d (AVX kernels %s)\n", avx,
              avx == ZV2_RESULT_OK ? "can run here" : "must not be configured here");

  std::string vendor, brand;
  std::vector<std::string> yes, no;
  for (const std::string& line : report) {
    if (Verbose()) std::printf("%s\n", line.c_str());
    const std::string message = LogMessage(line);
    if (StartsWith(message, "CPU Vendor: ")) {
      vendor = message.substr(12);
    } else if (StartsWith(message, "CPU Brand: ")) {
      brand = message.substr(11);
    } else if (EndsWith(message, " not supported")) {
      no.push_back(message.substr(0, message.size() - 14));
    } else if (EndsWith(message, " supported")) {
      yes.push_back(message.substr(0, message.size() - 10));
    }
  }
  std::printf("CPU Vendor: %s\nCPU Brand:  %s\n", vendor.c_str(), brand.c_str());
  std::printf("supported (%zu of %zu):\n", yes.size(), yes.size() + no.size());
  PrintNames(yes, 8);
  std::printf("not supported (%zu):\n", no.size());
  PrintNames(no, 8);
  return 0;
}

}  // namespace zvkit
