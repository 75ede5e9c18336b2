// The committed fixtures (tools/make_test_models.py): the binary twins, written by an encoder of their own,
// load to the same objects as the JSON files; every file of tests/data/bad is refused by its loader with the
// expected failure and nothing worse; the inputs the loader fuzzers once failed on load or are refused
// cleanly.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "../serialization_test_util.h"
#include "support/log_capture.h"
#include "zelva/src/runtime/zvmodel2/field_visitors.h"
#include "zelva/src/runtime/zvmodel2/model_cfg.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"

namespace zelva {
namespace runtime {
namespace {

using testing_objects::ReadBytes;
using testing_objects::TempPath;
using zvtest::FieldWalker;

const std::string kData = ZELVA_TEST_DATA_DIR;

TEST(FixtureFiles, BinaryTwinsLoadLikeTheJsonFiles) {
  ZVModelInfo json, bin;
  json.FromFile(kData + "/models/tiny_model.json");
  bin.FromFile(kData + "/models/tiny_model.zvmod");
  EXPECT_EQ(FieldWalker::Record(bin), FieldWalker::Record(json));

  EXPECT_EQ(json.squential_ids, (std::vector<std::string>{"input", "fc", "gru", "act"}));
  EXPECT_EQ(json.extra_info.fmlas, 123456789012ull);
  EXPECT_EQ(json.extra_info.time.moon, 5u);
  auto fc = json.GetLayerInfoAs<FullConnectionInfo>("fc");
  EXPECT_EQ(DecodeWeights(fc->weight).size(), 32u);
  EXPECT_EQ(DecodeWeights(fc->bias).size(), 4u);
  auto gru = json.GetLayerInfoAs<GRUInfo>("gru");
  ASSERT_EQ(gru->weight_ih_forward.size(), 1u);
  EXPECT_EQ(DecodeWeights(gru->weight_ih_forward[0]).size(), 36u);
  EXPECT_TRUE(gru->weight_ih_reverse.empty());
  EXPECT_EQ(json.GetLayerInfoAs<ActivationInfo>("act")->activation_beta.bits(), 0x3800);

  ZVModelMultiBackendCfgs cfg_json, cfg_bin, cfg_old;
  cfg_json.FromFile(kData + "/models/tiny_cfg.json");
  cfg_bin.FromFile(kData + "/models/tiny_cfg.zvcfgs");
  EXPECT_EQ(FieldWalker::Record(cfg_bin), FieldWalker::Record(cfg_json));
  auto fc_cfg = cfg_json.cpu_sse->GetLayerCfg("fc");
  auto quant = std::dynamic_pointer_cast<InferenceParamActQuant>(fc_cfg->kernel->infer_param);
  ASSERT_NE(quant, nullptr);
  EXPECT_EQ(quant->output_step_size, -3);
  EXPECT_EQ(fc_cfg->input_converters->FindKernelCfg("0")->kernel_type, "Reshape_Base");

  // Protocol 20007: seven backends, the same cpu_sse.
  cfg_old.FromFile(kData + "/models/tiny_cfg_20007.zvcfg");
  EXPECT_EQ(FieldWalker::Record(*cfg_old.cpu_sse), FieldWalker::Record(*cfg_json.cpu_sse));
}

TEST(FixtureFiles, EveryBadFileIsRefusedCleanly) {
  std::ifstream manifest(kData + "/bad/MANIFEST");
  std::string line;
  int files = 0;
  while (std::getline(manifest, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    std::string name, loader, expected;
    std::getline(fields, name, '\t');
    std::getline(fields, loader, '\t');
    std::getline(fields, expected);
    SCOPED_TRACE(name);
    ++files;
    const std::string path = kData + "/bad/" + name;
    zvtest::LogCapture log;
    std::string what = "<no failure>";
    try {
      if (loader == "model") {
        ZVModelInfo().FromFile(path);
      } else if (loader == "model_fp32") {
        ZVModelInfo().FromBin(path, "fp32");
      } else {
        ASSERT_EQ(loader, "cfg");
        ZVModelMultiBackendCfgs().FromFile(path);
      }
    } catch (const std::exception& e) {
      what = e.what();
    }
    ASSERT_NE(what, "<no failure>");
    if (expected[0] == '@') {
      EXPECT_NE(what.find(expected.substr(1)), std::string::npos) << what;
    } else {  // the refusal's own line: the last one logged
      EXPECT_NE(log.Last().find(expected), std::string::npos) << log.Last();
    }
  }
  EXPECT_GE(files, 15);
}

// What loads must write as fp32 binary and, with `exact`, read back from it to the same bytes; without it,
// reading back may also fail, but only cleanly.
template <class T>
void LoadAndRoundTrip(const std::string& name, const std::string& precision, bool exact = true) {
  SCOPED_TRACE(name + " " + precision);
  const std::string path = kData + "/regressions/" + name;
  T loaded, again;
  try {
    if (name.substr(name.size() - 5) == ".json") {
      loaded.FromFile(path, "json");
    } else {
      loaded.FromBin(path, precision);
    }
  } catch (const std::exception&) {
    return;  // a clean refusal is fine
  }
  const std::string first = TempPath("regression.zvmod"), second = TempPath("regression.zvmod");
  loaded.ToBin(first, "fp32");
  try {
    again.FromBin(first, "fp32");
    again.ToBin(second, "fp32");
    if (exact) {
      EXPECT_EQ(ReadBytes(first), ReadBytes(second));
    }
  } catch (const std::exception& e) {
    EXPECT_FALSE(exact) << e.what();
  }
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
  const std::string path = TempPath("deep_nesting.json");
  testing_objects::WriteText(path, bare);
  ZVModelInfo model;
  EXPECT_THROW(model.FromFile(path), std::runtime_error);
  ZVModelMultiBackendCfgs configs;
  EXPECT_THROW(configs.FromJsonString(bare), std::runtime_error);

  const std::string valid = TempPath("valid_cfg.json");
  ZVModelMultiBackendCfgs().ToFile(valid, "json");
  const std::vector<uint8_t> bytes = ReadBytes(valid);
  std::string text(bytes.begin(), bytes.end());
  text.insert(text.find('{') + 1, "\"deep\": " + nest + ",");
  EXPECT_NO_THROW(configs.FromJsonString(text));
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
