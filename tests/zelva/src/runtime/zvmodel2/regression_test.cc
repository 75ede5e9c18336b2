// Inputs the loader fuzzers once failed on. Each must load or be refused with an exception; what loads must
// write as fp32 binary and read back to the same bytes.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "zelva/src/runtime/zvmodel2/model_cfg.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"

namespace zelva {
namespace runtime {
namespace {

std::vector<char> Bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// `exact`: what loads must read back from its own fp32 output to the same bytes. Without it, reading back
// may also fail, but only cleanly.
template <class T>
void LoadAndRoundTrip(const std::string& name, const std::string& precision, bool exact = true) {
  SCOPED_TRACE(name + " " + precision);
  const std::string path = std::string(ZELVA_TEST_DATA_DIR) + "/regressions/" + name;
  T loaded;
  try {
    if (name.size() > 5 && name.substr(name.size() - 5) == ".json") {
      loaded.FromFile(path, "json");
    } else {
      loaded.FromBin(path, precision);
    }
  } catch (const std::exception&) {
    return;  // a clean refusal is fine
  }
  const std::string first = ::testing::TempDir() + "regression_1.zvmod";
  const std::string second = ::testing::TempDir() + "regression_2.zvmod";
  loaded.ToBin(first, "fp32");
  T again;
  try {
    again.FromBin(first, "fp32");
    again.ToBin(second, "fp32");
    if (exact) EXPECT_EQ(Bytes(first), Bytes(second));
  } catch (const std::exception& e) {
    EXPECT_FALSE(exact) << e.what();
  }
  std::remove(first.c_str());
  std::remove(second.c_str());
}

TEST(LoaderRegressions, FuzzFindingsLoadCleanly) {
  for (const char* precision : {"fp16", "fp32"}) {
    // A kernel entry listed twice under one id, naming two parameter classes: both visits read into the first
    // class's object, so the file written from it names one class and holds another's fields.
    LoadAndRoundTrip<ZVModelMultiBackendCfgs>("cfg_repeated_kernel_id.zvcfg", precision, /*exact=*/false);
  }
  // Numbers with a long run of zeros: the parser's exact-number path misread them.
  LoadAndRoundTrip<ZVModelInfo>("model_long_zero_number.json", "fp32");
  LoadAndRoundTrip<ZVModelMultiBackendCfgs>("cfg_long_zero_number.json", "fp32");
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
