#include "zelva/src/runtime/zvmodel2/model_cfg.h"

#include <functional>

#include "zelva/src/utility/logging.h"

namespace zelva {
namespace runtime {

namespace {
constexpr uint32_t kArmv82From = 20008;

// The entries listed in `ids`, in that order, each nested under its id; a missing entry is made empty first.
// Listing an id twice visits the one entry twice.
template <class Entry>
void VisitEntriesById(std::shared_ptr<Visitor>& visitor, const std::vector<std::string>& ids,
                      std::map<std::string, std::shared_ptr<Entry>>& entries) {
  for (const std::string& id : ids) {
    std::shared_ptr<Entry>& entry = entries[id];
    if (entry == nullptr) entry = std::make_shared<Entry>();
    visitor->Visit(*entry, id);
  }
}

template <class Entry>
std::shared_ptr<Entry> FindEntry(const std::map<std::string, std::shared_ptr<Entry>>& entries,
                                 const std::string& id) {
  auto it = entries.find(id);
  return it == entries.end() ? nullptr : it->second;
}
}  // namespace

// ---- Parameters
// ---------------------------------------------------------------------------------------------

void InferenceParamActQuant::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  InferenceParam::VisitAttr(visitor);
  visitor->Visit(output_step_size, "output_step_size");
}

void InferenceParamFullConnectionQuant::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  InferenceParam::VisitAttr(visitor);
  visitor->Visit(weight_step_size, "weight_step_size");
  visitor->Visit(output_step_size, "output_step_size");
}

void InferenceParamUpsampling2DQuant::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  InferenceParam::VisitAttr(visitor);
  visitor->Visit(output_step_size, "output_step_size");
}

void InferenceParamConv2DQuant::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  InferenceParam::VisitAttr(visitor);
  visitor->Visit(weight_step_size, "weight_step_size");
  visitor->Visit(output_step_size, "output_step_size");
}

void InferenceParamOpenGLCompute::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  InferenceParam::VisitAttr(visitor);
  visitor->Visit(local_x, "local_x");
  visitor->Visit(local_y, "local_y");
  visitor->Visit(local_z, "local_z");
}

void InferenceParamOpenGLComputeActivation::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  InferenceParamOpenGLCompute::VisitAttr(visitor);
  visitor->Visit(activation, "activation");
  visitor->Visit(activation_type, "activation_type");
  visitor->Visit(activation_alpha, "activation_alpha");
  visitor->Visit(activation_beta, "activation_beta");
  visitor->Visit(num_parameters, "num_parameters");
  visitor->Visit(weight, "weight");
}

void InferenceParamLuaCustomMetalCompute::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  InferenceParam::VisitAttr(visitor);
  visitor->Visit(lua_script, "lua_script");
  visitor->Visit(mtl_shader, "mtl_shader");
}

void InferenceParamMetalComputeFusedActivation::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  InferenceParam::VisitAttr(visitor);
  visitor->Visit(activation, "activation");
  visitor->Visit(activation_type, "activation_type");
  visitor->Visit(activation_alpha, "activation_alpha");
  visitor->Visit(activation_beta, "activation_beta");
}

void InferenceParamMetalComputeCommon::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  InferenceParam::VisitAttr(visitor);
  visitor->Visit(lua_script, "lua_script");
  visitor->Visit(mtl_shader, "mtl_shader");
  visitor->Visit(write_slice_offset, "write_slice_offset");
  visitor->Visit(activation_type, "activation_type");
  visitor->Visit(activation_alpha, "activation_alpha");
  visitor->Visit(activation_beta, "activation_beta");
}

namespace {
struct ParamClass {
  const char* name;
  std::shared_ptr<InferenceParam> (*make)();
};

const ParamClass kParamClasses[] = {
#define ZV_PARAM_CLASS(Class) \
  {#Class, []() -> std::shared_ptr<InferenceParam> { return std::make_shared<Class>(); }},
    ZV_INFERENCE_PARAM_CLASSES(ZV_PARAM_CLASS)
#undef ZV_PARAM_CLASS
};
}  // namespace

std::shared_ptr<InferenceParam> CreateInferenceParam(const std::string& type) {
  for (const ParamClass& param_class : kParamClasses) {
    if (type == param_class.name) return param_class.make();
  }
  return nullptr;
}

const std::vector<std::string>& InferenceParamTypeNames() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> all;
    for (const ParamClass& param_class : kParamClasses) all.emplace_back(param_class.name);
    return all;
  }();
  return names;
}

// ---- Configuration objects
// ------------------------------------------------------------------------------------

void KernelCfg::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  Serializable::VisitAttr(visitor);
  visitor->Visit(kernel_type, "kernel_type");
  visitor->Visit(infer_param_type, "infer_param_type");
  // An existing parameter is kept, whatever the type string says: a kernel entry that a file lists twice
  // under one id is read into the same object both times.
  if (infer_param == nullptr) infer_param = CreateInferenceParam(infer_param_type);
  if (infer_param != nullptr) visitor->Visit(*infer_param, "infer_param");
}

void KernelCfgArr::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  Serializable::VisitAttr(visitor);
  visitor->Visit(kernel_ids, "kernel_ids");
  VisitEntriesById(visitor, kernel_ids, kernel_cfgs);
}

std::shared_ptr<KernelCfg> KernelCfgArr::FindKernelCfg(const std::string& id) const {
  return FindEntry(kernel_cfgs, id);
}

void LayerCfg::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  Serializable::VisitAttr(visitor);
  ZV_ASSERT(input_converters != nullptr && kernel != nullptr && output_converters != nullptr,
            "LayerCfg without its converter sets or kernel.");
  visitor->Visit(summary, "summary");
  visitor->Visit(*input_converters, "input_converters");
  visitor->Visit(*kernel, "kernel");
  visitor->Visit(*output_converters, "output_converters");
}

void ZVModelCfg::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  Serializable::VisitAttr(visitor);
  visitor->Visit(summary, "summary");
  visitor->Visit(squential_ids, "squential_ids");
  VisitEntriesById(visitor, squential_ids, layer_cfgs);
}

std::shared_ptr<LayerCfg> ZVModelCfg::FindLayerCfg(const std::string& id) const {
  return FindEntry(layer_cfgs, id);
}

std::shared_ptr<LayerCfg> ZVModelCfg::GetLayerCfg(const std::string& id) const {
  std::shared_ptr<LayerCfg> cfg = FindLayerCfg(id);
  ZV_ASSERT(cfg != nullptr, "No configuration for layer [%s].", id.c_str());
  return cfg;
}

void ZVModelMultiBackendCfgs::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  using Member = std::shared_ptr<ZVModelCfg> ZVModelMultiBackendCfgs::*;
  static const std::pair<const char*, Member> kBackends[] = {
      {"cpu_sse", &ZVModelMultiBackendCfgs::cpu_sse},
      {"cpu_avx", &ZVModelMultiBackendCfgs::cpu_avx},
      {"cpu_armv7", &ZVModelMultiBackendCfgs::cpu_armv7},
      {"cpu_armv8", &ZVModelMultiBackendCfgs::cpu_armv8},
      {"gpu_opengl", &ZVModelMultiBackendCfgs::gpu_opengl},
      {"gpu_metal", &ZVModelMultiBackendCfgs::gpu_metal},
      {"gpu_cuda", &ZVModelMultiBackendCfgs::gpu_cuda},
  };
  Serializable::VisitAttr(visitor);
  for (const auto& backend : kBackends) {
    std::shared_ptr<ZVModelCfg>& cfg = this->*backend.second;
    ZV_ASSERT(cfg != nullptr, "Backend configuration [%s] is null.", backend.first);
    visitor->Visit(*cfg, backend.first);
  }
  if (visitor->serialization_protocol_version >= kArmv82From) {
    ZV_ASSERT(cpu_armv82 != nullptr, "Backend configuration [%s] is null.", "cpu_armv82");
    visitor->Visit(*cpu_armv82, "cpu_armv82");
  }
}

}  // namespace runtime
}  // namespace zelva
