// The generic path that both engines share: the host's block wrapped as the net's input tensor, one run of
// the net, the first output copied back. Each engine owns one GenericPath and fills it at load.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "zelva/src/kernel/registry/registry.h"
#include "zelva/src/runtime/context.h"
#include "zelva/src/runtime/kernel.h"
#include "zelva/src/runtime/net.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"

namespace zelva {
namespace kit {

struct GenericPath {
  std::shared_ptr<runtime::Context> context;
  kernel::KernelRegistry kernel_registry;
  std::shared_ptr<runtime::Net> net;  // null until load has built it
  runtime::NetExtraInfo net_extra_info;
  runtime::NetInputs inputs;         // one entry per Input layer, by layer index
  std::vector<uint32_t> output_ids;  // the model's outputs, in the order of its output list
  runtime::NetOutputs results;       // kept between calls for its capacity; empty outside Apply
};

// The entries of `inputs` (one per Input layer, in list order, with a null tensor) and `output_ids`, from the
// model's layer and output lists.
void BindModelIo(GenericPath& path, const runtime::ZVModelInfo& model);

// Calls ResetState on each layer's main kernel, in order, and returns those that keep state (result not -4).
std::vector<std::shared_ptr<runtime::IKernel>> CollectStatefulKernels(const runtime::Net& net);

// One block: wraps `input` (1 x model_base_h x model_base_w floats, no copy) as the first input, runs the
// net and copies the first tensor of the first result to `output`. Writes nothing if the net produced none.
void RunBlock(GenericPath& path, const void* input, void* output);

}  // namespace kit
}  // namespace zelva
