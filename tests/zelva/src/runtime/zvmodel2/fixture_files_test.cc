// The committed fixtures (tools/make_test_models.py): the binary twins, written by an encoder of their own,
// load to the same objects as the JSON files; every file of tests/data/bad is refused by its loader with the
// expected failure and nothing worse.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "support/log_capture.h"
#include "zelva/src/runtime/zvmodel2/field_visitors.h"
#include "zelva/src/runtime/zvmodel2/model_cfg.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"

namespace zelva {
namespace runtime {
namespace {

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

struct BadFile {
  std::string name, loader, expected;
};

std::vector<BadFile> Manifest() {
  std::ifstream in(kData + "/bad/MANIFEST");
  std::vector<BadFile> files;
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    BadFile f;
    std::getline(fields, f.name, '\t');
    std::getline(fields, f.loader, '\t');
    std::getline(fields, f.expected);
    files.push_back(f);
  }
  return files;
}

TEST(FixtureFiles, EveryBadFileIsRefusedCleanly) {
  const std::vector<BadFile> files = Manifest();
  ASSERT_GE(files.size(), 15u);
  for (const BadFile& f : files) {
    SCOPED_TRACE(f.name);
    const std::string path = kData + "/bad/" + f.name;
    zvtest::LogCapture log;
    std::string what = "<no failure>";
    try {
      if (f.loader == "model") {
        ZVModelInfo().FromFile(path);
      } else if (f.loader == "model_fp32") {
        ZVModelInfo().FromBin(path, "fp32");
      } else {
        ASSERT_EQ(f.loader, "cfg");
        ZVModelMultiBackendCfgs().FromFile(path);
      }
    } catch (const std::exception& e) {
      what = e.what();
    }
    ASSERT_NE(what, "<no failure>");
    if (f.expected[0] == '@') {
      EXPECT_NE(what.find(f.expected.substr(1)), std::string::npos) << what;
    } else {
      // The refusal's own line: the last one logged.
      ASSERT_FALSE(log.lines().empty()) << what;
      EXPECT_NE(log.lines().back().find(f.expected), std::string::npos) << log.lines().back();
    }
  }
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
