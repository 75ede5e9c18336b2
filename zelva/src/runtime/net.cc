#include "zelva/src/runtime/net.h"

#include <algorithm>
#include <chrono>
#include <string_view>

#include "zelva/src/utility/logging.h"

namespace zelva {
namespace runtime {

namespace {

// Wall clock in milliseconds: whole seconds since the epoch (32-bit) times 1000 plus the millisecond part.
double NowMilliseconds() {
  const int64_t ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                         std::chrono::system_clock::now().time_since_epoch())
                         .count();
  const int32_t seconds = static_cast<int32_t>(ms / 1000);
  return static_cast<double>(seconds) * 1000.0 + static_cast<double>(ms % 1000);
}

}  // namespace

std::shared_ptr<Tensor> Net::RunConverter(const std::shared_ptr<IKernel>& converter,
                                          std::shared_ptr<Tensor> tensor, bool may_be_temporary,
                                          std::shared_ptr<Context>& context, uint32_t layer,
                                          uint32_t position) {
  ZV_ASSERT(converter != nullptr, "layer %u: the converter at position %u could not be made.", layer,
            position);
  converter_inputs_.clear();
  converter_inputs_.push_back(std::move(tensor));
  converter_outputs_.clear();
  converter->Prepare(context, converter_inputs_, &may_be_temporary, converter_outputs_);
  converter->Forward(converter_inputs_, converter_outputs_, context);
  ZV_ASSERT(!converter_outputs_.empty(), "layer %u: converter %s at position %u gave no output.", layer,
            converter->GetName().c_str(), position);
  std::shared_ptr<Tensor> result = std::move(converter_outputs_[0]);
  converter_inputs_.clear();
  converter_outputs_.clear();
  return result;
}

void Net::ReleaseWorkingTensors() {
  for (auto& tensors : layer_outputs_) tensors.clear();
  layer_inputs_.clear();
  converter_inputs_.clear();
  converter_outputs_.clear();
}

void Net::Forward(NetOutputs& outputs, const NetInputs& inputs, const std::vector<uint32_t>& output_ids,
                  std::shared_ptr<Context>& context, std::vector<float>* cpu_times,
                  std::vector<float>* gpu_times) {
  ZV_ASSERT(context != nullptr && context->device_cpu != nullptr,
            "Net::Forward needs a context with a device.");
  Device* device = context->device_cpu.get();
  device->use_up_pool = device->up_pool != nullptr;

  const uint32_t count = static_cast<uint32_t>(layers.size());
  if (cpu_times != nullptr) {
    cpu_times->clear();
    cpu_times->reserve(count);
  }
  if (gpu_times != nullptr) {
    gpu_times->clear();
    gpu_times->reserve(count);
  }

  // Whatever way this call ends, no tensor stays behind in the working storage.
  struct Cleanup {
    Net* net;
    ~Cleanup() { net->ReleaseWorkingTensors(); }
  } cleanup{this};
  layer_outputs_.resize(count);
  finished_.assign(count, 0);
  pending_outputs_.assign(output_ids.begin(), output_ids.end());
  NetOutputs results;

  for (uint32_t i = 0; i < count && !pending_outputs_.empty(); ++i) {
    Layer& layer = *layers[i];
    const bool input_layer = std::string_view(layer.name) == std::string_view("Input");
    if (gpu_times != nullptr && input_layer && layer.input_converters.empty() &&
        layer.output_converters.empty())
      ZV_LOG(utility::kLogTrace, "Input Layer without any converter do not need to profile gpu time.");
    const double t0 = cpu_times != nullptr ? NowMilliseconds() : 0.0;

    const auto pending = std::find(pending_outputs_.begin(), pending_outputs_.end(), i);
    const bool is_output = pending != pending_outputs_.end();

    // Inputs of the layer, through their converters.
    if (input_layer) {
      const auto fed = inputs.find(i);
      ZV_ASSERT(fed != inputs.end(), "no input tensor given for the Input layer at index %u.", i);
      layer_inputs_.push_back(fed->second);
    } else if (layer.inputs.empty()) {
      ZV_LOG(utility::kLogError, "forward index %d layer type %s, input size == 0", static_cast<int32_t>(i),
             layer.name.c_str());
      outputs = std::move(results);
      return;
    } else {
      for (uint32_t p = 0; p < layer.inputs.size(); ++p) {
        const LayerEdge& edge = layer.inputs[p];
        const auto& source_outputs = layer_outputs_[edge.first];
        ZV_ASSERT(edge.second < source_outputs.size(),
                  "layer %u: input %u reads output %u of layer %u, which has %zu.", i, p, edge.second,
                  edge.first, source_outputs.size());
        std::shared_ptr<Tensor> tensor = source_outputs[edge.second];
        const auto converter = layer.input_converters.find(p);
        if (converter != layer.input_converters.end())
          tensor = RunConverter(converter->second, std::move(tensor), true, context, i, p);
        layer_inputs_.push_back(std::move(tensor));
      }
    }

    // The main kernel writes straight into the layer's slot.
    bool may_be_temporary = !(is_output && layer.output_converters.empty());
    std::vector<std::shared_ptr<Tensor>>& produced = layer_outputs_[i];
    layer.kernel->Prepare(context, layer_inputs_, &may_be_temporary, produced);
    layer.kernel->Forward(layer_inputs_, produced, context);
    finished_[i] = 1;

    if (!layer.output_converters.empty()) {
      for (uint32_t q = 0; q < produced.size(); ++q) {
        const auto converter = layer.output_converters.find(q);
        if (converter != layer.output_converters.end())
          produced[q] = RunConverter(converter->second, std::move(produced[q]), !is_output, context, i, q);
      }
    }
    layer_inputs_.clear();

    // Release every source whose readers have all run; tensors the caller fed in are the caller's.
    for (const LayerEdge& edge : layer.inputs) {
      if (inputs.count(edge.first) != 0) continue;
      bool all_ran = true;
      for (const LayerEdge& consumer : layers[edge.first]->consumers) {
        if (!finished_[consumer.first]) {
          all_ran = false;
          break;
        }
      }
      if (all_ran) layer_outputs_[edge.first].clear();
    }

    if (is_output) {
      pending_outputs_.erase(pending);
      results[i] = produced;
    }
    if (cpu_times != nullptr) cpu_times->push_back(static_cast<float>(NowMilliseconds() - t0));
    if (gpu_times != nullptr) gpu_times->push_back(0.0f);
  }

  device->use_up_pool = false;
  outputs = std::move(results);
}

}  // namespace runtime
}  // namespace zelva
