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
    if (exact) {
      EXPECT_EQ(Bytes(first), Bytes(second));
    }
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
  // 30,000 nested arrays under an unknown key: the recursive parse ran off the stack.
  LoadAndRoundTrip<ZVModelInfo>("model_deep_nesting.json", "fp32");
  LoadAndRoundTrip<ZVModelMultiBackendCfgs>("model_deep_nesting.json", "fp32");
}

// Nesting ten times deeper than the seed, through both readers and both entries to the JSON route: the load
// is refused cleanly (the root lacks its "serializable_type") instead of crashing, and the same nesting under
// a valid root is simply ignored.
TEST(LoaderRegressions, DeepNestingCostsNoStack) {
  const size_t depth = 300000;
  const std::string nest = std::string(depth, '[') + std::string(depth, ']');
  const std::string bare = "{\"serialization_protocol_version\": 20018, \"x\": " + nest + "}";
  const std::string path = ::testing::TempDir() + "deep_nesting.json";
  std::ofstream(path, std::ios::binary) << bare;
  ZVModelInfo model;
  EXPECT_THROW(model.FromFile(path), std::runtime_error);
  ZVModelMultiBackendCfgs configs;
  EXPECT_THROW(configs.FromJsonString(bare), std::runtime_error);

  ZVModelMultiBackendCfgs empty;
  const std::string valid = ::testing::TempDir() + "valid_cfg.json";
  empty.ToFile(valid, "json");
  std::ifstream in(valid, std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  text.insert(text.find('{') + 1, "\"deep\": " + nest + ",");
  ZVModelMultiBackendCfgs loaded;
  EXPECT_NO_THROW(loaded.FromJsonString(text));
  std::remove(path.c_str());
  std::remove(valid.c_str());
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
