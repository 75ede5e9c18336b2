// Exported processor checks: answers from the processor identification read at load, each call with the
// feature report at the Info level.
#include <mutex>

#include "zelva/src/utility/environment_x86.h"
#include "zelva/src/utility/logging.h"
#include "zv2_common.h"

namespace {
// Serialises the reports of concurrent callers, so that their lines don't interleave.
std::mutex report_mutex;
}  // namespace

extern "C" {

ZV2_API _ZV2_Result ZV2_CheckIsaAVX(void) {
  std::lock_guard<std::mutex> lock(report_mutex);
  const zelva::utility::EnvironmentX86& environment = zelva::utility::EnvironmentX86::Instance();
  environment.ReportInstructionSupported();
  return environment.IsAvxUsable() ? ZV2_RESULT_OK : ZV2_RESULT_FAILED;
}

ZV2_API _ZV2_Result ZV2_CheckIsaSupported(uint32_t* isa_flags) {
  std::lock_guard<std::mutex> lock(report_mutex);
  if (isa_flags == nullptr) {
    ZV_LOG_ERROR("isa_flags is null.");
    return ZV2_RESULT_INVALID_ARGUMENT;
  }
  const zelva::utility::EnvironmentX86& environment = zelva::utility::EnvironmentX86::Instance();
  environment.ReportInstructionSupported();
  if (environment.IsSseSupported()) *isa_flags |= 1u;
  return ZV2_RESULT_OK;
}

}  // extern "C"
