// Fuzz target: a kernel configuration in JSON, through the file loader (in-place parse) as the engines read
// it.
#include "fuzz/fuzz_common.h"
#include "zelva/src/runtime/zvmodel2/model_cfg.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return zvfuzz::LoadAndCheck<zelva::runtime::ZVModelMultiBackendCfgs>(data, size, ".json", false);
}
