// Builds a model and its kernel configuration in code, layer by layer, for tests that construct and run nets.
//
//   zvtest::ModelBuilder b;
//   b.AddLayer<zelva::runtime::InputInfo>("in", {}, "Input_Fallback_M1");
//   auto r = b.AddLayer<zelva::runtime::TensorReshapeInfo>("r", {"in"},
//   "Transform_MainMemory_Reshape_Fallback"); r->new_shape = {1, -1}; b.AddInputConverter("r", "0",
//   "SomeConverter"); auto net = zelva::runtime::CreateNet(b.model, b.cfg, registry,
//   zvtest::MakeTestContext());
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "zelva/src/runtime/context.h"
#include "zelva/src/runtime/weight_data.h"
#include "zelva/src/runtime/zvmodel2/layer_info.h"
#include "zelva/src/runtime/zvmodel2/model_cfg.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"

namespace zvtest {

class ModelBuilder {
 public:
  // Appends a layer of description class `Info` to the model and names its main kernel in the configuration.
  // Returns the description so that the caller can set its fields.
  template <class Info>
  std::shared_ptr<Info> AddLayer(const std::string& id, const std::vector<std::string>& input_ids,
                                 const std::string& kernel_type,
                                 std::shared_ptr<zelva::runtime::InferenceParam> infer_param = nullptr) {
    auto info = std::make_shared<Info>();
    info->id = id;
    info->input_ids = input_ids;
    model->AddLayer(info);
    auto layer_cfg = std::make_shared<zelva::runtime::LayerCfg>();
    layer_cfg->kernel->kernel_type = kernel_type;
    layer_cfg->kernel->infer_param = std::move(infer_param);
    cfg->squential_ids.push_back(id);
    cfg->layer_cfgs[id] = layer_cfg;
    return info;
  }

  // A converter before input `position` ("0", "1", ...) of layer `id`.
  void AddInputConverter(const std::string& id, const std::string& position, const std::string& kernel_type) {
    AddConverter(cfg->layer_cfgs.at(id)->input_converters, position, kernel_type);
  }
  // A converter behind output `position` of layer `id`.
  void AddOutputConverter(const std::string& id, const std::string& position,
                          const std::string& kernel_type) {
    AddConverter(cfg->layer_cfgs.at(id)->output_converters, position, kernel_type);
  }

  std::shared_ptr<zelva::runtime::ZVModelInfo> model = std::make_shared<zelva::runtime::ZVModelInfo>();
  std::shared_ptr<zelva::runtime::ZVModelCfg> cfg = std::make_shared<zelva::runtime::ZVModelCfg>();

 private:
  static void AddConverter(const std::shared_ptr<zelva::runtime::KernelCfgArr>& set,
                           const std::string& position, const std::string& kernel_type) {
    auto kernel_cfg = std::make_shared<zelva::runtime::KernelCfg>();
    kernel_cfg->kernel_type = kernel_type;
    set->kernel_ids.push_back(position);
    set->kernel_cfgs[position] = kernel_cfg;
  }
};

// An engine-like context: a CPU device with an aligned pool and an up-pool.
inline std::shared_ptr<zelva::runtime::Context> MakeTestContext(uint64_t alignment = 64) {
  return zelva::runtime::CreateCPUContext(alignment);
}

// The weight text of a description field.
inline std::string WeightText(const std::vector<float>& values) {
  return zelva::runtime::EncodeWeights(values.data(), values.size());
}

}  // namespace zvtest
