// Kernel configuration: for each layer of a model, the kernel that runs it (by its registry name), the
// converter kernels before and after it, and optional parameters. One configuration per backend, gathered in
// a ZVModelMultiBackendCfgs; the choice of implementation is made offline and only obeyed here.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "zelva/src/runtime/half.h"
#include "zelva/src/runtime/serialization.h"

namespace zelva {
namespace runtime {

// ---- Parameters of a kernel
// ------------------------------------------------------------------------------------

class InferenceParam : public Serializable {};

class InferenceParamActQuant final : public InferenceParam {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  int16_t output_step_size = 0;
};

class InferenceParamFullConnectionQuant final : public InferenceParam {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  int16_t weight_step_size = 0;
  int16_t output_step_size = 0;
};

class InferenceParamUpsampling2DQuant final : public InferenceParam {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  int16_t output_step_size = 0;
};

class InferenceParamConv2DQuant final : public InferenceParam {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  int16_t weight_step_size = 0;
  int16_t output_step_size = 0;
};

// The OpenGL and Metal parameters are parsed and written back, never acted on.
class InferenceParamOpenGLCompute : public InferenceParam {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  uint32_t local_x = 0;
  uint32_t local_y = 0;
  uint32_t local_z = 0;
};

// OpenGL parameters with a fused activation.
class InferenceParamOpenGLComputeActivation : public InferenceParamOpenGLCompute {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  std::string activation;
  int32_t activation_type = 0;
  half activation_alpha = half(half::FromBits, 0x0000);
  half activation_beta = half(half::FromBits, 0x0000);
  int16_t num_parameters = 0;
  std::string weight;
};

class InferenceParamConv2DOpenGLCompute final : public InferenceParamOpenGLComputeActivation {};
class InferenceParamConvTranspose2DOpenGLCompute final : public InferenceParamOpenGLComputeActivation {};
class InferenceParamElementwiseOpenGLCompute final : public InferenceParamOpenGLComputeActivation {};
class InferenceParamActivationOpenGLCompute final : public InferenceParamOpenGLComputeActivation {};
class InferenceParamBatchnorm2dOpenGLCompute final : public InferenceParamOpenGLComputeActivation {};

class InferenceParamConcatOpenGLCompute final : public InferenceParamOpenGLCompute {};
class InferenceParamUpsampling2DOpenGLCompute final : public InferenceParamOpenGLCompute {};
class InferenceParamPixelShuffleOpenGLCompute final : public InferenceParamOpenGLCompute {};
class InferenceParamPooling2DOpenGLCompute final : public InferenceParamOpenGLCompute {};
class InferenceParamFullConnectionOpenGLCompute final : public InferenceParamOpenGLCompute {};
class InferenceParamTensorReshapeOpenGLCompute final : public InferenceParamOpenGLCompute {};
class InferenceParamTensorExpandOpenGLCompute final : public InferenceParamOpenGLCompute {};
class InferenceParamBroadcastOpenGLCompute final : public InferenceParamOpenGLCompute {};

class InferenceParamLuaCustomMetalCompute final : public InferenceParam {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  std::string lua_script;
  std::string mtl_shader;
};

class InferenceParamMetalComputeFusedActivation : public InferenceParam {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  std::string activation;
  int32_t activation_type = 0;
  float activation_alpha = 0.0f;
  float activation_beta = 0.0f;
};

class InferenceParamConv2dMetalCompute final : public InferenceParamMetalComputeFusedActivation {};
class InferenceParamElementwiseMetalCompute final : public InferenceParamMetalComputeFusedActivation {};
class InferenceParamConcatenateMetalCompute final : public InferenceParamMetalComputeFusedActivation {};

class InferenceParamMetalComputeCommon final : public InferenceParam {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  std::string lua_script;
  std::string mtl_shader;
  uint32_t write_slice_offset = 0;
  uint32_t activation_type = 0;
  float activation_alpha = 0.0f;
  float activation_beta = 0.0f;
};

// The parameter classes in the order the factory tries them, as X(class).
// clang-format off
#define ZV_INFERENCE_PARAM_CLASSES(X)            \
  X(InferenceParamActQuant)                      \
  X(InferenceParamFullConnectionQuant)           \
  X(InferenceParamUpsampling2DQuant)             \
  X(InferenceParamConv2DQuant)                   \
  X(InferenceParamOpenGLCompute)                 \
  X(InferenceParamConv2DOpenGLCompute)           \
  X(InferenceParamConvTranspose2DOpenGLCompute)  \
  X(InferenceParamElementwiseOpenGLCompute)      \
  X(InferenceParamConcatOpenGLCompute)           \
  X(InferenceParamPixelShuffleOpenGLCompute)     \
  X(InferenceParamPooling2DOpenGLCompute)        \
  X(InferenceParamFullConnectionOpenGLCompute)   \
  X(InferenceParamTensorReshapeOpenGLCompute)    \
  X(InferenceParamTensorExpandOpenGLCompute)     \
  X(InferenceParamBroadcastOpenGLCompute)        \
  X(InferenceParamActivationOpenGLCompute)       \
  X(InferenceParamUpsampling2DOpenGLCompute)     \
  X(InferenceParamBatchnorm2dOpenGLCompute)      \
  X(InferenceParamLuaCustomMetalCompute)         \
  X(InferenceParamMetalComputeFusedActivation)   \
  X(InferenceParamConv2dMetalCompute)            \
  X(InferenceParamElementwiseMetalCompute)       \
  X(InferenceParamConcatenateMetalCompute)       \
  X(InferenceParamMetalComputeCommon)
// clang-format on

// A new parameter object of the named class; null for an empty or unknown name (no failure).
std::shared_ptr<InferenceParam> CreateInferenceParam(const std::string& type);
// The class names the factory knows, in the order it compares them.
const std::vector<std::string>& InferenceParamTypeNames();

// ---- Configuration objects
// ------------------------------------------------------------------------------------

class KernelCfg final : public Serializable {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  std::string kernel_type;                      // name in the kernel registry
  std::string infer_param_type;                 // class name of infer_param, or empty
  std::shared_ptr<InferenceParam> infer_param;  // null unless a known class was named
};

// Converter kernels by position: each id is a decimal number in text, the input or output it serves.
class KernelCfgArr final : public Serializable {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  // The entry of an id, or null.
  std::shared_ptr<KernelCfg> FindKernelCfg(const std::string& id) const;

  std::vector<std::string> kernel_ids;  // file order
  std::map<std::string, std::shared_ptr<KernelCfg>> kernel_cfgs;
};

class LayerCfg final : public Serializable {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  std::string summary;
  // Never null.
  std::shared_ptr<KernelCfgArr> input_converters = std::make_shared<KernelCfgArr>();
  std::shared_ptr<KernelCfg> kernel = std::make_shared<KernelCfg>();
  std::shared_ptr<KernelCfgArr> output_converters = std::make_shared<KernelCfgArr>();
};

// The configuration of one backend: a LayerCfg per configured layer id.
class ZVModelCfg final : public Serializable {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  // The configuration of a layer, or null when it has none.
  std::shared_ptr<LayerCfg> FindLayerCfg(const std::string& id) const;
  // The configuration of a layer; fails when it has none.
  std::shared_ptr<LayerCfg> GetLayerCfg(const std::string& id) const;

  std::string summary;
  std::vector<std::string> squential_ids;  // file order
  std::map<std::string, std::shared_ptr<LayerCfg>> layer_cfgs;
};

// One ZVModelCfg per backend, all made at construction (never null); a backend without configuration has
// empty lists. "cpu_armv82" is in files of protocol 20008 and later.
class ZVModelMultiBackendCfgs final : public Serializable {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  std::shared_ptr<ZVModelCfg> cpu_sse = std::make_shared<ZVModelCfg>();
  std::shared_ptr<ZVModelCfg> cpu_avx = std::make_shared<ZVModelCfg>();
  std::shared_ptr<ZVModelCfg> cpu_armv7 = std::make_shared<ZVModelCfg>();
  std::shared_ptr<ZVModelCfg> cpu_armv8 = std::make_shared<ZVModelCfg>();
  std::shared_ptr<ZVModelCfg> gpu_opengl = std::make_shared<ZVModelCfg>();
  std::shared_ptr<ZVModelCfg> gpu_metal = std::make_shared<ZVModelCfg>();
  std::shared_ptr<ZVModelCfg> gpu_cuda = std::make_shared<ZVModelCfg>();
  std::shared_ptr<ZVModelCfg> cpu_armv82 = std::make_shared<ZVModelCfg>();
};

}  // namespace runtime
}  // namespace zelva
