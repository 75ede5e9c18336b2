// A test kernel that records what the net does with it. Registered under any name with RegisterProbe; its
// behaviour follows from the name:
//   "Probe_Refuse"  refuses every layer in CheckSupport (Config returns false);
//   "Probe_Double"  a converter: accepts only null description and parameters, output = 2 x input;
//   "Probe_Empty"   leaves its outputs empty;
//   any other name  accepts every layer, output = sum of all inputs + 1 (shape of the first input).
// Every Prepare appends "<layer id or name>:<may_be_temporary>" to ProbeTrace(), every Forward keeps a weak
// reference to its output in ProbeOutputs() under the same key and counts the earlier outputs still alive
// in ProbeLive().
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "zelva/src/kernel/registry/registry.h"
#include "zelva/src/runtime/kernel.h"

namespace zvtest {

inline std::vector<std::string>& ProbeTrace() {
  static std::vector<std::string> trace;
  return trace;
}
inline std::map<std::string, std::weak_ptr<zelva::runtime::Tensor>>& ProbeOutputs() {
  static std::map<std::string, std::weak_ptr<zelva::runtime::Tensor>> outputs;
  return outputs;
}
// Whether the device allocated from its up-pool during each Forward, by key.
inline std::map<std::string, bool>& ProbeUpPool() {
  static std::map<std::string, bool> flags;
  return flags;
}
// How many earlier probe outputs were still alive when each Forward began, by key.
inline std::map<std::string, int>& ProbeLive() {
  static std::map<std::string, int> live;
  return live;
}
inline void ResetProbes() {
  ProbeTrace().clear();
  ProbeOutputs().clear();
  ProbeUpPool().clear();
  ProbeLive().clear();
}

class ProbeKernel : public zelva::runtime::IKernel {
 public:
  explicit ProbeKernel(std::string name) : name_(std::move(name)) {}
  std::string GetName() const override { return name_; }
  int32_t CheckSupport(const std::shared_ptr<zelva::runtime::LayerInfo>& info,
                       const std::shared_ptr<zelva::runtime::InferenceParam>& param) override {
    if (name_ == "Probe_Refuse") return -1;
    if (name_ == "Probe_Double") return (info == nullptr && param == nullptr) ? 0 : -1;
    return 0;
  }
  bool Config(std::shared_ptr<zelva::runtime::LayerInfo> info,
              std::shared_ptr<zelva::runtime::InferenceParam> param,
              std::shared_ptr<zelva::runtime::NetExtraInfo>,
              std::shared_ptr<zelva::runtime::Context>) override {
    configured = false;
    if (CheckSupport(info, param) == -1) return false;
    key_ = info != nullptr ? info->id : name_;
    configured = true;
    return true;
  }
  int32_t Prepare(std::shared_ptr<zelva::runtime::Context>&, const zelva::runtime::TensorList&,
                  bool* may_be_temporary, zelva::runtime::TensorList&) override {
    ProbeTrace().push_back(key_ + ":" + (*may_be_temporary ? "1" : "0"));
    return 0;
  }
  void Forward(const zelva::runtime::TensorList& inputs, zelva::runtime::TensorList& outputs,
               const std::shared_ptr<zelva::runtime::Context>& context) override {
    ProbeUpPool()[key_] = context->device_cpu->use_up_pool;
    int& live = ProbeLive()[key_] = 0;
    for (const auto& made : ProbeOutputs()) live += made.second.expired() ? 0 : 1;
    if (name_ == "Probe_Empty") return;
    const auto& first = inputs.at(0);
    std::shared_ptr<zelva::runtime::Tensor> out;
    context->GetDeviceCPU()->CreateTensor(out, first->shape);
    const int32_t n = first->shape.ElementCount();
    float* y = out->Data<float>();
    for (int32_t k = 0; k < n; ++k) {
      if (name_ == "Probe_Double") {
        y[k] = 2.0f * first->Data<float>()[k];
      } else {
        float sum = 1.0f;
        for (const auto& in : inputs) sum += in->Data<float>()[k];
        y[k] = sum;
      }
    }
    ProbeOutputs()[key_] = out;
    outputs.clear();
    outputs.push_back(std::move(out));
  }

 private:
  std::string name_;
  std::string key_;
};

inline void RegisterProbe(zelva::kernel::KernelRegistry& registry, const std::string& name) {
  zelva::kernel::RegisterKernel(registry, name, [name]() { return std::make_shared<ProbeKernel>(name); });
}

}  // namespace zvtest
