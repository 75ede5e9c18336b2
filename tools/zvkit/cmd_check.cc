// zvkit check: finds, before shipping, the models that load and then fail every apply. It builds the net as
// each engine that can take the model does (same reading of the files, same registry, same configuration
// backend, same pool alignment), runs one block of zeros through it with every kernel watched, and reports
// each layer's input and output shapes and the first kernel that refuses its input. It also warns about
// weight texts with characters outside the Base64 alphabet, which the library decodes without a word.
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "tools/zvkit/log_sink.h"
#include "tools/zvkit/model_files.h"
#include "tools/zvkit/zvkit.h"
#include "zelva-kit/src/generic_path.h"
#include "zelva/src/kernel/registry/registry.h"
#include "zelva/src/runtime/net_constructor.h"
#include "zelva/src/runtime/zvmodel2/layer_info.h"
#include "zelva/src/utility/logging.h"

namespace zvkit {
namespace {

using zelva::runtime::IKernel;
using zelva::runtime::TensorList;
using zelva::runtime::TensorShape;

// ---- Weight texts
// -------------------------------------------------------------------------------------------

bool IsBase64Letter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

// Characters of a weight text that the decoder reads as no Base64 digit; '=' counts only as trailing padding.
size_t ForeignCharacters(const std::string& text, size_t* first) {
  size_t end = text.size();
  for (int pad = 0; pad < 2 && end > 0 && text[end - 1] == '='; ++pad) --end;
  size_t count = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (i < end ? IsBase64Letter(text[i]) : text[i] == '=') continue;
    if (count++ == 0) *first = i;
  }
  return count;
}

// Visits a description and looks only at its weight fields.
class WeightTextScanner : public zelva::runtime::Visitor, public zelva::runtime::WeightFieldVisitor {
 public:
  WeightTextScanner(const std::string& layer, std::vector<std::string>* warnings)
      : layer_(layer), warnings_(warnings) {}

  void VisitWeightData(std::string& value, const std::string& name) override { Scan(value, name); }
  void VisitWeightList(std::vector<std::string>& value, const std::string& name) override {
    for (size_t i = 0; i < value.size(); ++i) Scan(value[i], name + "[" + std::to_string(i) + "]");
  }
  void Visit(zelva::runtime::Serializable& value, const std::string&) override {
    std::shared_ptr<Visitor> nested = std::make_shared<WeightTextScanner>(layer_, warnings_);
    value.VisitAttr(nested);
  }
  void Visit(std::vector<std::vector<uint16_t>>&, const std::string&) override {}
  void Visit(std::vector<uint64_t>&, const std::string&) override {}
  void Visit(std::vector<uint32_t>&, const std::string&) override {}
  void Visit(std::vector<int64_t>&, const std::string&) override {}
  void Visit(std::vector<int32_t>&, const std::string&) override {}
  void Visit(std::vector<std::string>&, const std::string&) override {}
  void Visit(std::vector<int16_t>&, const std::string&) override {}
  void Visit(std::vector<uint16_t>&, const std::string&) override {}
  void Visit(std::vector<zelva::runtime::half>&, const std::string&) override {}
  void Visit(std::vector<float>&, const std::string&) override {}
  void Visit(std::string&, const std::string&) override {}
  void Visit(char&, const std::string&) override {}
  void Visit(bool&, const std::string&) override {}
  void Visit(uint64_t&, const std::string&) override {}
  void Visit(int64_t&, const std::string&) override {}
  void Visit(uint32_t&, const std::string&) override {}
  void Visit(int32_t&, const std::string&) override {}
  void Visit(uint16_t&, const std::string&) override {}
  void Visit(int16_t&, const std::string&) override {}
  void Visit(uint8_t&, const std::string&) override {}
  void Visit(int8_t&, const std::string&) override {}
  void Visit(double&, const std::string&) override {}
  void Visit(zelva::runtime::half&, const std::string&) override {}
  void Visit(float&, const std::string&) override {}

 private:
  void Scan(const std::string& text, const std::string& name) {
    size_t first = 0;
    const size_t foreign = ForeignCharacters(text, &first);
    if (foreign == 0) return;
    const unsigned char c = static_cast<unsigned char>(text[first]);
    char shown[16];
    std::snprintf(shown, sizeof(shown), c >= 0x20 && c < 0x7F ? "'%c'" : "byte 0x%02X", c);
    warnings_->push_back("layer [" + layer_ + "] " + name + ": " + std::to_string(foreign) +
                         " character(s) outside the Base64 alphabet, the first " + shown + " at offset " +
                         std::to_string(first) + "; the library decodes them as garbage weights");
  }

  std::string layer_;
  std::vector<std::string>* warnings_;
};

// ---- Watching the net's kernels
// -----------------------------------------------------------------------------

std::string ShapeText(const TensorShape& shape) {
  std::string text;
  for (size_t i = 0; i < shape.dims.size(); ++i) text += (i ? "x" : "") + std::to_string(shape.dims[i]);
  if (shape.dims.empty()) text = "scalar";
  // The library's table names the image layouts; the sequence and vector ones are named here.
  std::string layout = zelva::runtime::LayoutToString(shape.layout);
  switch (shape.layout) {
    case zelva::runtime::Layout::FLEXIABLE:
      layout = "FLEXIABLE";
      break;
    case zelva::runtime::Layout::C:
      layout = "C";
      break;
    case zelva::runtime::Layout::BC:
      layout = "BC";
      break;
    case zelva::runtime::Layout::SC:
      layout = "SC";
      break;
    case zelva::runtime::Layout::CL:
      layout = "CL";
      break;
    default:
      break;
  }
  return text + " " + layout;
}

std::string ShapesText(const TensorList& tensors) {
  if (tensors.empty()) return "nothing";
  std::string text;
  for (size_t i = 0; i < tensors.size(); ++i) {
    text += i ? ", " : "";
    text += tensors[i] != nullptr ? ShapeText(tensors[i]->shape) : "no tensor";
  }
  return text;
}

// What one kernel did with the block.
struct Step {
  uint32_t layer = 0;
  std::string role;  // "" for the main kernel, else "input converter 0", "output converter 0", ...
  std::string kernel;
  std::string inputs, outputs;
  int32_t check = 0;    // the kernel's own CheckInputs on what it was given
  std::string failure;  // why its Forward raised
  bool Refused() const { return check != 0 || !failure.empty(); }
};

// Stands in for a kernel of the net: passes every call on and writes down what Forward saw and made.
class WatchedKernel : public IKernel {
 public:
  WatchedKernel(std::shared_ptr<IKernel> inner, std::vector<Step>* steps, uint32_t layer, std::string role)
      : inner_(std::move(inner)), steps_(steps), layer_(layer), role_(std::move(role)) {}

  std::string GetName() const override { return inner_->GetName(); }
  int32_t CheckSupport(const std::shared_ptr<zelva::runtime::LayerInfo>& info,
                       const std::shared_ptr<zelva::runtime::InferenceParam>& param) override {
    return inner_->CheckSupport(info, param);
  }
  bool Config(std::shared_ptr<zelva::runtime::LayerInfo> info,
              std::shared_ptr<zelva::runtime::InferenceParam> param,
              std::shared_ptr<zelva::runtime::NetExtraInfo> extra,
              std::shared_ptr<zelva::runtime::Context> context) override {
    return inner_->Config(std::move(info), std::move(param), std::move(extra), std::move(context));
  }
  bool IsConfigured() const override { return inner_->IsConfigured(); }
  std::vector<TensorShape> GetOutputShapes(const std::vector<TensorShape>& shapes) override {
    return inner_->GetOutputShapes(shapes);
  }
  int32_t Prepare(std::shared_ptr<zelva::runtime::Context>& context, const TensorList& inputs,
                  bool* temporary, TensorList& outputs) override {
    return inner_->Prepare(context, inputs, temporary, outputs);
  }
  int32_t ResetState() override { return inner_->ResetState(); }
  int32_t CheckInputs(const TensorList& inputs) override { return inner_->CheckInputs(inputs); }
  int32_t CheckOutputs(const TensorList& outputs) override { return inner_->CheckOutputs(outputs); }
  void Forward(const TensorList& inputs, TensorList& outputs,
               const std::shared_ptr<zelva::runtime::Context>& context) override {
    Step step;
    step.layer = layer_;
    step.role = role_;
    step.kernel = inner_->GetName();
    step.inputs = ShapesText(inputs);
    step.check = inner_->CheckInputs(inputs);
    try {
      inner_->Forward(inputs, outputs, context);
    } catch (const std::exception& e) {
      step.failure = LogMessage(e.what());
      if (step.failure.empty()) step.failure = "it raised without a message";
      steps_->push_back(step);
      throw;
    }
    step.outputs = ShapesText(outputs);
    steps_->push_back(step);
  }

 private:
  std::shared_ptr<IKernel> inner_;
  std::vector<Step>* steps_;
  uint32_t layer_;
  std::string role_;
};

void Watch(zelva::runtime::Net& net, std::vector<Step>* steps) {
  for (uint32_t i = 0; i < net.layers.size(); ++i) {
    zelva::runtime::Layer& layer = *net.layers[i];
    for (auto& entry : layer.input_converters) {
      if (entry.second == nullptr) continue;  // fails in the net itself, with its own message
      entry.second = std::make_shared<WatchedKernel>(entry.second, steps, i,
                                                     "input converter " + std::to_string(entry.first));
    }
    layer.kernel = std::make_shared<WatchedKernel>(layer.kernel, steps, i, "");
    for (auto& entry : layer.output_converters) {
      if (entry.second == nullptr) continue;
      entry.second = std::make_shared<WatchedKernel>(entry.second, steps, i,
                                                     "output converter " + std::to_string(entry.first));
    }
  }
}

// ---- One engine
// ---------------------------------------------------------------------------------------------

struct EngineCase {
  std::string label;            // "denoise engine", "VAD engine"
  uint64_t pool_alignment;      // as each engine makes its context
  bool vad_registration_order;  // base, Fallback, SSE, AVX, SGEMM (else base, Fallback, SGEMM, SSE, AVX)
};

// printf into a string.
void Append(std::string* out, const char* format, ...) __attribute__((format(printf, 2, 3)));
void Append(std::string* out, const char* format, ...) {
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  const int size = std::vsnprintf(nullptr, 0, format, args);
  va_end(args);
  if (size > 0) {
    std::string text(static_cast<size_t>(size) + 1, '\0');
    std::vsnprintf(&text[0], text.size(), format, again);
    text.resize(static_cast<size_t>(size));
    *out += text;
  }
  va_end(again);
}

// Builds and runs the net as `engine` would; writes the report to `out` and returns the number of problems.
int CheckEngine(const EngineCase& engine, const std::shared_ptr<zelva::runtime::ZVModelInfo>& model,
                const std::shared_ptr<zelva::runtime::ZVModelMultiBackendCfgs>& configs, std::string* out) {
  using namespace zelva;
  kit::GenericPath path;
  path.context = runtime::CreateCPUContext(engine.pool_alignment);
  kernel::RegisterBaseKernels(path.kernel_registry);
  kernel::RegisterFallbackKernels(path.kernel_registry);
  if (!engine.vad_registration_order) kernel::RegisterSGEMMKernels(path.kernel_registry);
  kernel::RegisterSSEKernels(path.kernel_registry);
  kernel::RegisterAVXKernels(path.kernel_registry);
  if (engine.vad_registration_order) kernel::RegisterSGEMMKernels(path.kernel_registry);

  std::string reason = Guarded(
      [&] {
        kit::BindModelIo(path, *model);
        path.net = runtime::CreateNet(model, configs->cpu_sse, path.kernel_registry, path.context);
      },
      nullptr);
  if (reason.empty() && path.net == nullptr) reason = "the configuration lacks a layer of the model";
  if (!reason.empty()) {
    Append(out, "  problem: the net cannot be built: %s\n", reason.c_str());
    return 1;
  }
  path.net_extra_info = model->extra_info;

  std::vector<Step> steps;
  Watch(*path.net, &steps);
  const uint32_t h = model->extra_info.model_base_h, w = model->extra_info.model_base_w;
  std::vector<float> zeros(static_cast<size_t>(h) * w, 0.0f);
  std::vector<float> sink;
  reason = Guarded(
      [&] {
        // kit::RunBlock's steps, but the first output's size is read before anything is copied.
        ZV_ASSERT(!path.inputs.empty(), "the model has no input layer.");
        std::shared_ptr<runtime::Tensor> block;
        path.context->GetDeviceCPU()->WrapPlanar(block, {1, h, w}, zeros.data());
        path.inputs.begin()->second = std::move(block);
        path.net->Forward(path.results, path.inputs, path.output_ids, path.context, nullptr, nullptr);
        path.inputs.begin()->second.reset();
      },
      nullptr);

  Append(out, "  block: 1x%ux%u (model_base_h x model_base_w) of zeros\n", h, w);
  int problems = 0;
  const Step* refused = nullptr;
  for (const Step& step : steps) {
    const std::string& id = model->squential_ids[step.layer];
    const std::shared_ptr<runtime::LayerInfo> info = model->FindLayerInfo(id);
    const std::string kind = info != nullptr ? runtime::LayerInfoClassName(info->type) : "?";
    Append(out, "  [%u] %s (%s)%s%s: %s\n", step.layer, id.c_str(), kind.c_str(),
           step.role.empty() ? "" : ", ", step.role.c_str(), step.kernel.c_str());
    Append(out, "      in %s -> %s\n", step.inputs.c_str(),
           step.Refused() ? "refused" : ("out " + step.outputs).c_str());
    if (step.Refused() && refused == nullptr) {
      refused = &step;
      // An assertion's text travels in its log line, which the run's capture kept, not in the exception.
      std::string why = step.failure;
      if (!step.failure.empty() && !reason.empty()) why = reason;
      if (step.check != 0) {
        why = "its input check answers " + std::to_string(step.check) + (why.empty() ? "" : "; " + why);
      }
      Append(out, "  problem: layer [%u] %s (%s): kernel %s%s%s refuses its input %s: %s\n", step.layer,
             id.c_str(), kind.c_str(), step.kernel.c_str(), step.role.empty() ? "" : ", the layer's ",
             step.role.c_str(), step.inputs.c_str(), why.c_str());
      ++problems;
    }
  }
  if (refused == nullptr && !reason.empty()) {  // a failure of the net itself, outside every kernel
    Append(out, "  problem: the block does not run: %s\n", reason.c_str());
    ++problems;
  }
  if (problems == 0) {
    size_t floats = 0;
    if (!path.results.empty() && !path.results.begin()->second.empty() && path.results.begin()->second[0])
      floats = static_cast<size_t>(path.results.begin()->second[0]->shape.ByteSize()) / sizeof(float);
    Append(out, "  ok: %zu kernel runs, first output %zu floats\n", steps.size(), floats);
  }
  path.results.clear();
  return problems;
}

}  // namespace

int CmdCheck(const std::vector<std::string>& args) {
  std::vector<std::string> paths;
  std::string precision;  // empty: found from the file
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--precision" && i + 1 < args.size()) {
      precision = args[++i];
      if (precision != "fp16" && precision != "fp32") {
        std::fprintf(stderr, "zvkit check: precision must be fp16 or fp32, not '%s'\n", precision.c_str());
        return 2;
      }
    } else if (!args[i].empty() && args[i][0] == '-') {
      std::fprintf(stderr, "zvkit check: unknown option '%s' (see zvkit check --help)\n", args[i].c_str());
      return 2;
    } else {
      paths.push_back(args[i]);
    }
  }
  if (paths.size() != 2) {
    std::fprintf(stderr, "zvkit check: need MODEL and CONFIG (see zvkit check --help)\n");
    return 2;
  }
  const std::string& model_path = paths[0];
  const std::string& config_path = paths[1];

  // The engines' own suffix rule: ".json" is JSON, anything else binary.
  const bool json_model = FormOf(model_path) == FileForm::kJson;
  const FileForm config_form = FormOf(config_path) == FileForm::kJson ? FileForm::kJson : FileForm::kBinary;
  std::unique_ptr<zelva::runtime::Serializable> object;
  std::string warnings, reason;
  BinaryPrecision found;
  if (json_model) {
    object = std::make_unique<zelva::runtime::ZVModelInfo>();
    reason = Load(*object, model_path, FileForm::kJson, "", &warnings);
  } else {
    reason = LoadBinaryFindingPrecision([] { return std::make_unique<zelva::runtime::ZVModelInfo>(); },
                                        model_path, precision, "--precision", &object, &found, &warnings);
  }
  if (!reason.empty()) {
    std::fprintf(stderr, "zvkit check: cannot read %s: %s\n", model_path.c_str(), reason.c_str());
    return 1;
  }
  std::shared_ptr<zelva::runtime::ZVModelInfo> model(
      static_cast<zelva::runtime::ZVModelInfo*>(object.release()));
  auto configs = std::make_shared<zelva::runtime::ZVModelMultiBackendCfgs>();
  reason = Load(*configs, config_path, config_form, "fp16", &warnings);  // the engines read configurations so
  if (!reason.empty()) {
    std::fprintf(stderr, "zvkit check: cannot read %s: %s\n", config_path.c_str(), reason.c_str());
    return 1;
  }
  if (!warnings.empty()) std::fprintf(stderr, "%s", warnings.c_str());

  int problems = 0;
  std::printf("model:  %s (%zu layers)\n", model_path.c_str(), model->squential_ids.size());
  std::printf("config: %s\n", config_path.c_str());

  std::vector<std::string> text_warnings;
  for (const auto& entry : model->layers()) {
    std::shared_ptr<zelva::runtime::Visitor> scanner =
        std::make_shared<WeightTextScanner>(entry.first, &text_warnings);
    entry.second->VisitAttr(scanner);
  }
  for (const std::string& w : text_warnings) std::printf("warning: %s\n", w.c_str());
  problems += static_cast<int>(text_warnings.size());

  // Which engines take the model: both read JSON alike; a binary model only the engine of its precision.
  const EngineCase denoise{"denoise engine", 4096, false};
  const EngineCase vad{"VAD engine", 32, true};
  std::vector<EngineCase> engines;
  if (json_model) {
    engines = {denoise, vad};
  } else {
    const bool half = found.precision == "fp16";
    std::printf(
        "binary model with %s weights (%s): the %s engine reads it; the %s engine reads binary models as "
        "%s and is not checked\n",
        found.precision.c_str(), found.how.c_str(), half ? "denoise" : "VAD", half ? "VAD" : "denoise",
        half ? "fp32" : "fp16");
    engines = {half ? denoise : vad};
  }
  std::string previous;
  for (const EngineCase& engine : engines) {
    std::string report;
    problems += CheckEngine(engine, model, configs, &report);
    std::printf("%s (configuration backend cpu_sse):\n", engine.label.c_str());
    if (!previous.empty() && report == previous) {
      std::printf("  the same layers, shapes and outcome as above\n");
    } else {
      std::printf("%s", report.c_str());
    }
    previous = report;
  }

  if (problems == 0) {
    std::printf("check passed\n");
    return 0;
  }
  std::printf("check failed: %d problem(s)\n", problems);
  return 1;
}

}  // namespace zvkit
