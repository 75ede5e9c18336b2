// Fuzz target: a kernel configuration in the binary form, read with fp16 weights (the extension route) and
// with fp32 weights.
#include "fuzz/fuzz_common.h"
#include "zelva/src/runtime/zvmodel2/model_cfg.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zvfuzz::QuietLog();
  const std::string& path = zvfuzz::ScratchPath(0, ".zvcfg");
  zvfuzz::WriteFile(path, data, size);
  for (const char* precision : {"fp16", "fp32"}) {
    zelva::runtime::ZVModelMultiBackendCfgs loaded;
    try {
      if (precision[2] == '1') {
        loaded.FromFile(path);
      } else {
        loaded.FromBin(path, precision);
      }
    } catch (const std::exception&) {
      continue;
    }
    zvfuzz::CheckBinaryRoundTrip(loaded);
  }
  return 0;
}
