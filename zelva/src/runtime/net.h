// A built network: layers in execution order, each with its main kernel and the converter kernels before and
// after it. Net::Forward walks the layers once per call on the caller's thread, hands tensors from layer to
// layer and releases each as soon as its last reader has run.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "zelva/src/runtime/context.h"
#include "zelva/src/runtime/kernel.h"
#include "zelva/src/runtime/tensor.h"

namespace zelva {
namespace runtime {

using LayerEdge = std::pair<uint32_t, uint32_t>;
using KernelByPosition = std::map<uint32_t, std::shared_ptr<IKernel>>;
using NetInputs = std::unordered_map<uint32_t, std::shared_ptr<Tensor>>;
using NetOutputs = std::unordered_map<uint32_t, std::vector<std::shared_ptr<Tensor>>>;

struct Layer {
  std::string name;                  // the type's name ("Input", "Conv2d", ..., "UnKnown"), not the model id
  std::vector<LayerEdge> inputs;     // per input: (source layer index, source output index = 0)
  std::vector<LayerEdge> consumers;  // per use of this layer: (consumer layer index, position there)
  KernelByPosition input_converters;
  std::shared_ptr<IKernel> kernel;  // never null in a built net
  KernelByPosition output_converters;
};

class Net {
 public:
  Net(std::vector<std::shared_ptr<Layer>> layers, std::map<std::string, uint32_t> input_layers)
      : layers(std::move(layers)), input_layers(std::move(input_layers)) {}
  Net(const Net&) = delete;
  Net& operator=(const Net&) = delete;

  // Runs the layers in order until every layer of `output_ids` has run, and replaces `outputs` by the
  // outputs of those layers. `inputs` holds the tensor of every Input layer by layer index. While it runs,
  // the context's device allocates from its up-pool. `cpu_times` and `gpu_times`, when given, receive one
  // entry per layer that ran (milliseconds of wall clock; gpu entries are 0). Kernel failures propagate.
  void Forward(NetOutputs& outputs, const NetInputs& inputs, const std::vector<uint32_t>& output_ids,
               std::shared_ptr<Context>& context, std::vector<float>* cpu_times,
               std::vector<float>* gpu_times);

  std::vector<std::shared_ptr<Layer>> layers;    // execution order
  std::map<std::string, uint32_t> input_layers;  // model id -> layer index, for Input layers
  NetInputs default_inputs;                      // built empty, not read by Forward
  std::vector<uint32_t> default_outputs;         // built empty, not read by Forward
  std::shared_ptr<void> shared_slot_a;
  std::shared_ptr<void> shared_slot_b;

 private:
  // Runs one converter on one tensor and returns its first output.
  std::shared_ptr<Tensor> RunConverter(const std::shared_ptr<IKernel>& converter,
                                       std::shared_ptr<Tensor> tensor, bool may_be_temporary,
                                       std::shared_ptr<Context>& context, uint32_t layer, uint32_t position);
  // Empties the working storage (on every exit of Forward, raising ones included).
  void ReleaseWorkingTensors();

  // Working storage of Forward kept between calls for its capacity only: every call leaves the entries empty,
  // so no tensor outlives the call through it.
  std::vector<std::vector<std::shared_ptr<Tensor>>> layer_outputs_;
  std::vector<uint8_t> finished_;
  std::vector<uint32_t> pending_outputs_;
  std::vector<std::shared_ptr<Tensor>> layer_inputs_;
  std::vector<std::shared_ptr<Tensor>> converter_inputs_;
  std::vector<std::shared_ptr<Tensor>> converter_outputs_;
};

}  // namespace runtime
}  // namespace zelva
