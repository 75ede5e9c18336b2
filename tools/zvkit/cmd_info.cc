// zvkit info: a model's header, its layers with their main parameters and weight counts, and its outputs.
#include <cstdio>
#include <cstring>
#include <memory>

#include "tools/zvkit/model_files.h"
#include "tools/zvkit/zvkit.h"
#include "zelva/src/runtime/weight_data.h"
#include "zelva/src/runtime/zvmodel2/layer_info.h"

namespace zvkit {
namespace {

using zelva::runtime::half;
using zelva::runtime::Serializable;
using zelva::runtime::Visitor;

// Floats decoded from a weight text, by the format's count rule: decoded bytes / 4.
uint64_t WeightCount(const std::string& text) {
  return text.size() / 4 * 3 / 4;
}

template <class T>
std::string Number(T value) {
  return std::to_string(value);
}
std::string Number(float value) {
  char text[32];
  std::snprintf(text, sizeof(text), "%g", value);
  return text;
}
std::string Number(double value) {
  char text[32];
  std::snprintf(text, sizeof(text), "%g", value);
  return text;
}
std::string Number(half value) {
  return Number(zelva::runtime::HalfToFloat(value));
}
std::string Number(bool value) {
  return value ? "true" : "false";
}
std::string Number(char value) {
  return std::string(1, value);
}
std::string Number(int8_t value) {
  return std::to_string(int(value));
}
std::string Number(uint8_t value) {
  return std::to_string(unsigned(value));
}

template <class T>
std::string List(const std::vector<T>& values) {
  std::string text = "[";
  for (size_t i = 0; i < values.size(); ++i) text += (i ? "," : "") + Number(values[i]);
  return text + "]";
}

// Lists a description's own fields as "key=value" and its weights as "key=<count>", leaving out the fields
// every layer has (shown in their own columns).
class FieldLister : public Visitor, public zelva::runtime::WeightFieldVisitor {
 public:
  static void List(Serializable& object, std::string* params, std::string* weights, uint64_t* total) {
    auto lister = std::make_shared<FieldLister>();
    lister->params_ = params;
    lister->weights_ = weights;
    lister->total_ = total;
    std::shared_ptr<Visitor> visitor = lister;
    object.VisitAttr(visitor);
  }

  void Visit(std::vector<std::vector<uint16_t>>& v, const std::string& n) override {
    std::string text = "[";
    for (size_t i = 0; i < v.size(); ++i) text += (i ? "," : "") + zvkit::List(v[i]);
    Param(n, text + "]");
  }
  void Visit(std::vector<uint64_t>& v, const std::string& n) override { Param(n, zvkit::List(v)); }
  void Visit(std::vector<uint32_t>& v, const std::string& n) override { Param(n, zvkit::List(v)); }
  void Visit(std::vector<int64_t>& v, const std::string& n) override { Param(n, zvkit::List(v)); }
  void Visit(std::vector<int32_t>& v, const std::string& n) override { Param(n, zvkit::List(v)); }
  void Visit(std::vector<std::string>& v, const std::string& n) override {
    std::string text = "[";
    for (size_t i = 0; i < v.size(); ++i) text += (i ? ",\"" : "\"") + v[i] + "\"";
    Param(n, text + "]");
  }
  void Visit(std::vector<int16_t>& v, const std::string& n) override { Param(n, zvkit::List(v)); }
  void Visit(std::vector<uint16_t>& v, const std::string& n) override { Param(n, zvkit::List(v)); }
  void Visit(std::vector<half>& v, const std::string& n) override { Param(n, zvkit::List(v)); }
  void Visit(std::vector<float>& v, const std::string& n) override { Param(n, zvkit::List(v)); }
  void Visit(std::string& v, const std::string& n) override { Param(n, "\"" + v + "\""); }
  void Visit(char& v, const std::string& n) override { Param(n, Number(v)); }
  void Visit(bool& v, const std::string& n) override { Param(n, Number(v)); }
  void Visit(uint64_t& v, const std::string& n) override { Param(n, Number(v)); }
  void Visit(int64_t& v, const std::string& n) override { Param(n, Number(v)); }
  void Visit(uint32_t& v, const std::string& n) override { Param(n, Number(v)); }
  void Visit(int32_t& v, const std::string& n) override { Param(n, Number(v)); }
  void Visit(uint16_t& v, const std::string& n) override { Param(n, Number(v)); }
  void Visit(int16_t& v, const std::string& n) override { Param(n, Number(v)); }
  void Visit(uint8_t& v, const std::string& n) override { Param(n, Number(v)); }
  void Visit(int8_t& v, const std::string& n) override { Param(n, Number(v)); }
  void Visit(double& v, const std::string& n) override { Param(n, Number(v)); }
  void Visit(half& v, const std::string& n) override { Param(n, Number(v)); }
  void Visit(float& v, const std::string& n) override { Param(n, Number(v)); }
  void Visit(Serializable& object, const std::string& n) override {
    // Nested parts (the sampling entries of a get-item layer): their fields in braces.
    std::string inner, inner_weights;
    auto nested = std::make_shared<FieldLister>();
    nested->params_ = &inner;
    nested->weights_ = &inner_weights;
    nested->total_ = total_;
    nested->nested_ = true;
    std::shared_ptr<Visitor> visitor = nested;
    object.VisitAttr(visitor);
    Param(n, "{" + inner + "}");
  }
  void VisitWeightData(std::string& v, const std::string& n) override { Weight(n, WeightCount(v)); }
  void VisitWeightList(std::vector<std::string>& v, const std::string& n) override {
    if (v.empty()) return;  // directions and layers a recurrent layer does not have
    std::string counts;
    for (size_t i = 0; i < v.size(); ++i) {
      counts += (i ? "+" : "") + std::to_string(WeightCount(v[i]));
      *total_ += WeightCount(v[i]);
    }
    Append(weights_, n + "=" + counts);
  }

 private:
  void Param(const std::string& name, const std::string& value) {
    static const char* const kCommon[] = {"serializable_type", "type", "id", "input_ids", "read_count"};
    for (const char* common : kCommon)
      if (name == common && (!nested_ || name == "serializable_type")) return;
    Append(params_, name + "=" + value);
  }
  void Weight(const std::string& name, uint64_t count) {
    *total_ += count;
    Append(weights_, name + "=" + std::to_string(count));
  }
  static void Append(std::string* out, const std::string& item) {
    if (!out->empty()) *out += " ";
    *out += item;
  }

  std::string* params_ = nullptr;
  std::string* weights_ = nullptr;
  uint64_t* total_ = nullptr;
  bool nested_ = false;
};

std::string Joined(const std::vector<std::string>& items) {
  std::string text;
  for (const std::string& item : items) text += (text.empty() ? "" : ", ") + item;
  return text.empty() ? "-" : text;
}

}  // namespace

uint64_t ModelWeightFloats(zelva::runtime::ZVModelInfo& model) {
  uint64_t total = 0;
  for (const auto& entry : model.layers()) {
    std::string params, weights;
    FieldLister::List(*entry.second, &params, &weights, &total);
  }
  return total;
}

int CmdInfo(const std::vector<std::string>& args) {
  std::string path, precision;  // empty: found from the file
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--precision" && i + 1 < args.size()) {
      precision = args[++i];
    } else if (!args[i].empty() && args[i][0] == '-') {
      std::fprintf(stderr, "zvkit info: unknown option '%s' (see zvkit info --help)\n", args[i].c_str());
      return 2;
    } else if (path.empty()) {
      path = args[i];
    } else {
      std::fprintf(stderr, "zvkit info: unexpected argument '%s' (see zvkit info --help)\n", args[i].c_str());
      return 2;
    }
  }
  if (path.empty()) {
    std::fprintf(stderr, "zvkit info: no model given (see zvkit info --help)\n");
    return 2;
  }
  if (!precision.empty() && precision != "fp16" && precision != "fp32") {
    std::fprintf(stderr, "zvkit info: precision must be fp16 or fp32, not '%s'\n", precision.c_str());
    return 2;
  }
  const FileForm form = FormOf(path);
  if (form == FileForm::kUnknown) {
    std::fprintf(stderr, "zvkit info: %s: unknown extension (use .json, .zvmod or .zvmods)\n", path.c_str());
    return 1;
  }

  if (form == FileForm::kJson) {  // a text that is no JSON object gets a better word than the bare assertion
    try {
      RootTypeOf(path, form);
    } catch (const std::exception& e) {
      if (std::strstr(e.what(), "serializable_type") == nullptr) {
        std::fprintf(stderr, "zvkit info: cannot read %s: %s\n", path.c_str(), e.what());
        return 1;
      }
    }
  }
  std::unique_ptr<zelva::runtime::Serializable> object;
  BinaryPrecision found;
  std::string warnings, reason;
  if (form == FileForm::kJson) {
    object = std::make_unique<zelva::runtime::ZVModelInfo>();
    reason = Load(*object, path, form, "", &warnings);
  } else {
    reason = LoadBinaryFindingPrecision([] { return std::make_unique<zelva::runtime::ZVModelInfo>(); }, path,
                                        precision, "--precision", &object, &found, &warnings);
  }
  if (!reason.empty()) {
    std::fprintf(stderr, "zvkit info: cannot read %s: %s\n", path.c_str(), reason.c_str());
    return 1;
  }
  zelva::runtime::ZVModelInfo& model = static_cast<zelva::runtime::ZVModelInfo&>(*object);
  // The walk never compares the class name it reads; a configuration read as a model can come out empty.
  if (model.serializable_type != "ZVModelInfo") {
    std::fprintf(stderr, "zvkit info: %s is not a model (its root object is \"%s\")\n", path.c_str(),
                 model.serializable_type.c_str());
    return 1;
  }
  if (!warnings.empty()) std::fprintf(stderr, "%s", warnings.c_str());

  const zelva::runtime::NetExtraInfo& x = model.extra_info;
  std::printf("model:        %s\n", path.c_str());
  if (form == FileForm::kBinary) {
    std::printf(
        "precision:    %s (%s; the denoise engine reads binary models as fp16, the VAD engine as fp32)\n",
        found.precision.c_str(), found.how.c_str());
  }
  std::printf("version:      %u (app_type %u, model_id %u)\n", x.version, x.app_type, x.model_id);
  std::printf("base size:    %u x %u\n", x.model_base_h, x.model_base_w);
  std::printf("fmlas:        %llu\n", static_cast<unsigned long long>(x.fmlas));
  std::printf("time:         %04u-%02u-%02u %02u:%02u:%02u\n", x.time.year, x.time.moon, x.time.day,
              x.time.hour, x.time.min, x.time.sec);
  std::printf("device:       %s\n", x.device.c_str());
  std::printf("summary:      %s\n", x.summary.c_str());
  std::printf("layers:       %zu\n", model.layers().size());

  uint64_t total = 0;
  size_t index = 0;
  for (const auto& entry : model.layers()) {
    zelva::runtime::LayerInfo& layer = *entry.second;
    std::string params, weights;
    FieldLister::List(layer, &params, &weights, &total);
    std::printf("  [%zu] %s: %s (kind %u)\n", index++, entry.first.c_str(),
                zelva::runtime::LayerInfoClassName(layer.type).c_str(), static_cast<unsigned>(layer.type));
    std::printf("      inputs:  %s (read by %u)\n", Joined(layer.input_ids).c_str(),
                static_cast<unsigned>(layer.read_count));
    if (!params.empty()) std::printf("      params:  %s\n", params.c_str());
    if (!weights.empty()) std::printf("      weights: %s\n", weights.c_str());
  }
  std::printf("outputs:      %s\n", Joined(model.squential_output_ids).c_str());
  std::printf("weights:      %llu floats\n", static_cast<unsigned long long>(total));
  return 0;
}

}  // namespace zvkit
