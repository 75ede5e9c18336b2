// Fuzz target: a model in JSON, through the file loader (in-place parse) as the engines read it.
#include "fuzz/fuzz_common.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return zvfuzz::LoadAndCheck<zelva::runtime::ZVModelInfo>(data, size, ".json", false);
}
