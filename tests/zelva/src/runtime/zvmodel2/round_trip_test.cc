// Whole-object round trips through both file forms: a whole model holding every layer kind with every field
// set away from its default, a multi-backend configuration with parameters of every class; files of older
// protocol versions.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "../serialization_test_util.h"
#include "zelva/src/runtime/file_visitor.h"
#include "zelva/src/runtime/json_visitor.h"
#include "zelva/src/runtime/zvmodel2/model_cfg.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"

namespace zelva {
namespace runtime {
namespace {

using testing_objects::ReadBytes;
using testing_objects::TempPath;
using testing_objects::WriteText;
using zvtest::FieldWalker;
using zvtest::Lines;

std::vector<uint16_t> AllKinds() {
  std::vector<uint16_t> kinds;
  for (unsigned t = 0; t < 0x10000; ++t)
    if (CreateLayerInfo(static_cast<uint16_t>(t)) != nullptr) kinds.push_back(static_cast<uint16_t>(t));
  return kinds;
}

// A model holding one layer of every kind, all fields filled; the same every call.
std::shared_ptr<ZVModelInfo> FilledModel() {
  auto model = std::make_shared<ZVModelInfo>();
  auto counter = std::make_shared<int>(0);
  FieldWalker::Fill(model->extra_info, counter);
  std::string previous;
  for (uint16_t kind : AllKinds()) {
    auto layer = CreateLayerInfo(kind);
    FieldWalker::Fill(*layer, counter);
    layer->id = "layer_" + std::to_string(kind);
    if (!previous.empty()) layer->input_ids = {previous, "other"};
    previous = layer->id;
    model->AddLayer(layer);
  }
  model->squential_output_ids = {previous, "layer_0"};
  return model;
}

// Writes `object` in one form and reads it back into a fresh T.
template <class T>
std::shared_ptr<T> ThroughFile(T& object, const std::string& form) {
  auto loaded = std::make_shared<T>();
  if (form == "json") {
    const std::string path = TempPath("rt.json");
    object.ToFile(path, "json");
    loaded->FromFile(path);
  } else {
    const std::string path = TempPath("rt.zvmod");
    object.ToBin(path, form);
    loaded->FromBin(path, form);
  }
  return loaded;
}

// Reference narrowing of a weight text to fp16 and back: a float of the normal half range loses the 13 low
// bits of its mantissa (truncation), nothing else.
std::string ThroughHalf(const std::string& text) {
  std::vector<float> w = DecodeWeights(text);
  for (float& f : w) {
    uint32_t bits;
    std::memcpy(&bits, &f, 4);
    bits &= ~0x1FFFu;
    std::memcpy(&f, &bits, 4);
  }
  return EncodeWeights(w.data(), w.size());
}

// Applies ThroughHalf to every weight field of an object.
class HalfWeights : public FieldWalker {
 public:
  static void Narrow(Serializable& object) {
    std::shared_ptr<Visitor> visitor = std::make_shared<HalfWeights>();
    object.VisitAttr(visitor);
  }
  void VisitWeightData(std::string& v, const std::string&) override { v = ThroughHalf(v); }
  void VisitWeightList(std::vector<std::string>& v, const std::string&) override {
    for (std::string& s : v) s = ThroughHalf(s);
  }
  void Visit(Serializable& object, const std::string&) override { Narrow(object); }
  using FieldWalker::Visit;
};

// The model holds one layer of every kind, every field filled, so this is the round trip of every kind
// through each form.
TEST(RoundTrip, WholeModelThroughJsonAndBothPrecisions) {
  auto model = FilledModel();
  const Lines expected = FieldWalker::Record(*model);
  ASSERT_GT(expected.size(), 300u);

  for (const char* form : {"json", "fp32"}) {
    SCOPED_TRACE(form);
    auto loaded = ThroughFile(*model, form);
    EXPECT_EQ(FieldWalker::Record(*loaded), expected);
  }

  auto narrowed = FilledModel();
  HalfWeights::Narrow(*narrowed);
  auto from16 = ThroughFile(*model, "fp16");
  EXPECT_EQ(FieldWalker::Record(*from16), FieldWalker::Record(*narrowed));
  // A second pass through fp16 changes nothing more.
  auto again = ThroughFile(*from16, "fp16");
  EXPECT_EQ(FieldWalker::Record(*again), FieldWalker::Record(*narrowed));
  // And JSON after fp16 keeps the narrowed text exactly.
  EXPECT_EQ(FieldWalker::Record(*ThroughFile(*from16, "json")), FieldWalker::Record(*narrowed));
}

// ---- Files of older protocol versions ------------------------------------------------------------------

// A binary writer of an older protocol: its nested writers keep its version, so the gates of every object
// leave out what that version did not have. (The library's writer always writes the current version.)
class OldFILEWriter : public FILEWriter {
 public:
  OldFILEWriter(FILE* file, uint32_t version) : FILEWriter(file, false, "fp32") {
    serialization_protocol_version = version;
  }
  void Visit(Serializable& value, const std::string&) override {
    std::shared_ptr<Visitor> nested = std::make_shared<OldFILEWriter>(file(), serialization_protocol_version);
    value.VisitAttr(nested);
  }
  using FILEWriter::Visit;
};

// Writes `object` in the binary layout of `version`: the header by hand, then the walk at that version.
void WriteOldBinary(Serializable& object, const std::string& path, uint32_t version) {
  FILE* file = std::fopen(path.c_str(), "wb");
  ASSERT_NE(file, nullptr);
  ASSERT_EQ(std::fwrite(&version, 4, 1, file), 1u);
  {
    std::shared_ptr<Visitor> visitor = std::make_shared<OldFILEWriter>(file, version);
    object.VisitAttr(visitor);
  }
  std::fclose(file);
}

// A JSON file of `version`: the current text with its version member edited. The gated members stay in the
// text and must be ignored.
void WriteOldJson(Serializable& object, const std::string& path, uint32_t version) {
  object.ToFile(path, "json");
  std::vector<uint8_t> bytes = ReadBytes(path);
  std::string text(bytes.begin(), bytes.end());
  const std::string key = "\"serialization_protocol_version\": 20018";
  const size_t at = text.find(key);
  ASSERT_NE(at, std::string::npos);
  text.replace(at, key.size(), "\"serialization_protocol_version\": " + std::to_string(version));
  WriteText(path, text);
}

// The filled model as a reader of a `version` file must see it: gated fields at their defaults.
std::shared_ptr<ZVModelInfo> AsOfVersion(uint32_t version) {
  auto model = FilledModel();
  NetExtraInfo& extra = model->extra_info;
  if (version < 20004) extra.summary.clear();
  if (version < 20007) extra.fmlas &= 0xFFFFFFFFu;  // a 32-bit field then
  for (const auto& entry : model->layers()) {
    LayerInfo* layer = entry.second.get();
    if (auto* act = dynamic_cast<ActivationInfo*>(layer); act != nullptr && version <= 20011) {
      act->num_parameters = 1;
      act->weight.clear();
    }
    if (auto* bn = dynamic_cast<BatchNormInfo*>(layer); bn != nullptr && version < 20005) {
      bn->num_batches_tracked = -1;
    }
    if (auto* up = dynamic_cast<Upsample2dInfo*>(layer); up != nullptr && version <= 20015) {
      up->scale_width = 0.0f;
      up->scale_height = 0.0f;
    }
  }
  return model;
}

TEST(RoundTrip, OlderModelFilesKeepTheDefaultsOfGatedFields) {
  for (uint32_t version : {20003u, 20004u, 20005u, 20006u, 20007u, 20011u, 20012u, 20015u, 20016u}) {
    SCOPED_TRACE(version);
    auto model = FilledModel();
    const Lines expected = FieldWalker::Record(*AsOfVersion(version));

    const std::string bin = TempPath("old.zvmod");
    WriteOldBinary(*model, bin, version);
    ZVModelInfo from_bin;
    from_bin.FromBin(bin, "fp32");
    EXPECT_EQ(FieldWalker::Record(from_bin), expected);

    const std::string json = TempPath("old.json");
    WriteOldJson(*model, json, version);
    ZVModelInfo from_json;
    from_json.FromFile(json);
    EXPECT_EQ(FieldWalker::Record(from_json), expected);
  }
}

// ---- Configuration --------------------------------------------------------------------------------------

TEST(RoundTrip, ConfigurationWithEveryParameterClass) {
  // Every backend, layer and converter list filled; each kernel with a parameter, of each class in turn.
  auto cfgs = std::make_shared<ZVModelMultiBackendCfgs>();
  FieldWalker::Fill(*cfgs);
  const Lines expected = FieldWalker::Record(*cfgs);
  // Every parameter class was written at least once.
  std::set<std::string> seen;
  for (const std::string& line : expected) {
    const size_t at = line.find("infer_param/serializable_type:str='");
    if (at != std::string::npos) seen.insert(line.substr(line.find("='") + 2));
  }
  EXPECT_EQ(seen.size(), InferenceParamTypeNames().size());

  for (const char* form : {"json", "fp16", "fp32"}) {
    SCOPED_TRACE(form);
    auto loaded = ThroughFile(*cfgs, form);
    EXPECT_EQ(FieldWalker::Record(*loaded), expected);
  }

  // A configuration of protocol 20007 has seven backends: "cpu_armv82" stays empty.
  for (auto writer : {&WriteOldBinary, &WriteOldJson}) {
    const std::string path = TempPath(writer == &WriteOldJson ? "cfg.json" : "cfg.zvcfg");
    writer(*cfgs, path, 20007);
    ZVModelMultiBackendCfgs old;
    if (writer == &WriteOldJson) {
      old.FromFile(path);
    } else {
      old.FromBin(path, "fp32");
    }
    EXPECT_TRUE(old.cpu_armv82->squential_ids.empty());
    EXPECT_TRUE(old.cpu_armv82->layer_cfgs.empty());
    EXPECT_EQ(FieldWalker::Record(*old.gpu_cuda), FieldWalker::Record(*cfgs->gpu_cuda));
  }
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
