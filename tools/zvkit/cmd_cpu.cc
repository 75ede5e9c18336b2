// zvkit cpu: the processor report and the two processor checks, through the public C API.
#include <cstdio>

#include "tools/zvkit/zvkit.h"
#include "zv2.h"

namespace zvkit {

namespace {
int32_t PrintLine(const char* text) {
  std::printf("%s\n", text);
  return 0;
}
}  // namespace

int CmdCpu(const std::vector<std::string>& args) {
  if (!args.empty()) {
    std::fprintf(stderr, "zvkit cpu: unexpected argument '%s' (see zvkit cpu --help)\n", args[0].c_str());
    return 2;
  }
  ZV2_SetLogCallback(&PrintLine);
  uint32_t mask = 0;
  ZV2_GetLogLevel(&mask);
  ZV2_SetLogLevel(mask | ZV2_LOG_INFO);

  uint32_t flags = 0;
  const _ZV2_Result supported = ZV2_CheckIsaSupported(&flags);  // logs the report
  ZV2_SetLogLevel(mask & ~ZV2_LOG_INFO ? mask & ~ZV2_LOG_INFO : ZV2_LOG_ERROR);
  const _ZV2_Result avx = ZV2_CheckIsaAVX();  // same report again: keep it quiet
  ZV2_SetLogLevel(mask);

  std::printf("\nZV2_CheckIsaSupported: %d, flags 0x%x (SSE %s)\n", supported, flags,
              (flags & 1u) ? "yes" : "no");
  std::printf("ZV2_CheckIsaAVX:       %d (AVX kernels %s)\n", avx,
              avx == ZV2_RESULT_OK ? "can run here" : "must not be configured here");
  return 0;
}

}  // namespace zvkit
