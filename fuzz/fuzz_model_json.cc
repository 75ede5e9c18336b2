// Fuzz target: a model in JSON, through the file loader (in-place parse) as the engines read it.
#include "fuzz/fuzz_common.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zvfuzz::QuietLog();
  const std::string& path = zvfuzz::ScratchPath(0, ".json");
  zvfuzz::WriteFile(path, data, size);
  zelva::runtime::ZVModelInfo loaded;
  try {
    loaded.FromFile(path);
  } catch (const std::exception&) {
    return 0;  // a clean refusal is the expected answer to most inputs
  }
  zvfuzz::CheckBinaryRoundTrip(loaded);
  return 0;
}
