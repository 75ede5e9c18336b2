// Fuzz target: a model in the binary form, read with fp16 weights (the extension route) and with fp32
// weights.
#include "fuzz/fuzz_common.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return zvfuzz::LoadAndCheck<zelva::runtime::ZVModelInfo>(data, size, ".zvmod", true);
}
