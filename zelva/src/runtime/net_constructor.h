// Turns a loaded model and a loaded kernel configuration into a runnable Net: one kernel by name per layer
// and per converter, nothing chosen here. The model's layer list must be in topological order.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "zelva/src/kernel/registry/registry.h"
#include "zelva/src/runtime/context.h"
#include "zelva/src/runtime/kernel.h"
#include "zelva/src/runtime/net.h"
#include "zelva/src/runtime/zvmodel2/model_cfg.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"

namespace zelva {
namespace runtime {

// The name of a layer type value, "UnKnown" for a value without one.
std::string LayerTypeName(uint16_t type);

// The kernel named by `kernel_cfg`, made by the registry and configured with `layer_info` (null for a
// converter) and the configuration's parameters. Null, with an Error line, when the name is not registered
// or the kernel refuses the layer. Raises, after an Error line naming the kernel and AVX, for an AVX kernel
// on a processor without usable AVX (utility::AvxUsableForKernels), converters included.
std::shared_ptr<IKernel> CreateKernel(std::shared_ptr<KernelCfg> kernel_cfg,
                                      std::shared_ptr<LayerInfo> layer_info,
                                      const kernel::KernelRegistry& registry,
                                      std::shared_ptr<NetExtraInfo> extra_info,
                                      std::shared_ptr<Context> context);

// The net of `model` as `config` names its kernels. Null when a layer has no description or no
// configuration; raises when a layer's main kernel can't be made. A converter that can't be made is stored
// as null (its error line is the only trace) and fails the first Forward that reaches it.
std::shared_ptr<Net> CreateNet(std::shared_ptr<ZVModelInfo> model, std::shared_ptr<ZVModelCfg> config,
                               const kernel::KernelRegistry& registry, std::shared_ptr<Context> context);

}  // namespace runtime
}  // namespace zelva
