#include "zelva-kit/src/audiodenoise/revolver.h"

#include <cstdlib>
#include <cstring>

#include "zelva-kit/src/audiodenoise/revolver_ops.h"
#include "zelva/src/runtime/weight_data.h"
#include "zelva/src/runtime/zvmodel2/layer_info.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"
#include "zelva/src/utility/logging.h"

namespace hyperspecific {
namespace audiodenoise_v4_final_cpu_sse {

using zelva::runtime::Conv2dInfo;
using zelva::runtime::FullConnectionInfo;
using zelva::runtime::GRUInfo;
using zelva::runtime::ZVModelInfo;

namespace {

constexpr size_t SumCapacities(const Revolver::Region* regions, size_t count) {
  size_t sum = 0;
  for (size_t i = 0; i < count; ++i) sum += regions[i].capacity;
  return sum;
}

// Decodes one weight field and copies its first `count` floats to `dst`.
void CopyWeights(const std::string& text, size_t count, float* dst, const char* key, const char* field) {
  const std::vector<float> values = zelva::runtime::DecodeWeights(text);
  ZV_ASSERT(values.size() >= count, "Layer [%s] field %s holds %zu floats, %zu needed.", key, field,
            values.size(), count);
  std::memcpy(dst, values.data(), count * sizeof(float));
}

// The first entry of a weight list, which must exist.
const std::string& FirstEntry(const std::vector<std::string>& list, const char* key, const char* field) {
  ZV_ASSERT(!list.empty(), "Layer [%s] field %s holds no entry.", key, field);
  return list.front();
}

enum class ConvTreatment { kCopy, kDepthwise8, kPointwise8x8 };

struct ConvGeometry {
  uint32_t groups, in, out, kernel_h, kernel_w;
  size_t WeightCount() const {
    return static_cast<size_t>(kernel_h) * kernel_w * (in / groups) * (out / groups) * groups;
  }
  size_t BiasCount() const { return static_cast<size_t>(out / groups) * groups; }
};

void LoadConv(const ZVModelInfo& model, const char* key, ConvGeometry g, ConvTreatment treatment,
              float* weight, float* bias) {
  const std::shared_ptr<Conv2dInfo> layer = model.GetLayerInfoAs<Conv2dInfo>(key);
  const size_t count = g.WeightCount();
  if (treatment == ConvTreatment::kCopy) {
    CopyWeights(layer->weight, count, weight, key, "weight");
  } else {
    std::vector<float> plain(count);
    CopyWeights(layer->weight, count, plain.data(), key, "weight");
    const uint32_t out_per_group = g.out / g.groups;
    const uint32_t in_per_group = g.in / g.groups;
    if (treatment == ConvTreatment::kDepthwise8) {
      RepackDepthwise8(plain.data(), weight, g.groups, out_per_group, in_per_group, g.kernel_h, g.kernel_w);
    } else {
      RepackPointwise8x8(plain.data(), weight, g.groups, out_per_group, in_per_group, g.kernel_h, g.kernel_w);
    }
  }
  CopyWeights(layer->bias, g.BiasCount(), bias, key, "bias");
}

void LoadGru(const ZVModelInfo& model, const char* key, size_t input, size_t hidden, float* w_ih, float* w_hh,
             float* b_ih, float* b_hh) {
  const std::shared_ptr<GRUInfo> layer = model.GetLayerInfoAs<GRUInfo>(key);
  CopyWeights(FirstEntry(layer->weight_ih_forward, key, "weight_ih_forward"), 3 * hidden * input, w_ih, key,
              "weight_ih_forward");
  CopyWeights(FirstEntry(layer->weight_hh_forward, key, "weight_hh_forward"), 3 * hidden * hidden, w_hh, key,
              "weight_hh_forward");
  CopyWeights(FirstEntry(layer->bias_ih_forward, key, "bias_ih_forward"), 3 * hidden, b_ih, key,
              "bias_ih_forward");
  CopyWeights(FirstEntry(layer->bias_hh_forward, key, "bias_hh_forward"), 3 * hidden, b_hh, key,
              "bias_hh_forward");
}

}  // namespace

// The members in the order of kRegions.
float* Revolver::*const Revolver::kSlots[kRegionCount] = {
    &Revolver::layer1_weight_,  &Revolver::layer1_bias_,    &Revolver::layer2_weight_,
    &Revolver::layer2_bias_,    &Revolver::layer4_weight_,  &Revolver::layer4_bias_,
    &Revolver::layer7_weight_,  &Revolver::layer7_bias_,    &Revolver::layer8_weight_,
    &Revolver::layer8_bias_,    &Revolver::layer10_weight_, &Revolver::layer10_bias_,
    &Revolver::layer13_weight_, &Revolver::layer13_bias_,   &Revolver::layer14_weight_,
    &Revolver::layer14_bias_,   &Revolver::layer16_weight_, &Revolver::layer16_bias_,
    &Revolver::gru20_w_ih_,     &Revolver::gru20_w_hh_,     &Revolver::gru20_b_ih_,
    &Revolver::gru20_b_hh_,     &Revolver::gru20_h_,        &Revolver::gru20_gates_x_,
    &Revolver::gru20_gates_h_,  &Revolver::gru21_w_ih_,     &Revolver::gru21_w_hh_,
    &Revolver::gru21_b_ih_,     &Revolver::gru21_b_hh_,     &Revolver::gru21_h_,
    &Revolver::gru21_gates_x_,  &Revolver::gru21_gates_h_,  &Revolver::gru22_w_ih_,
    &Revolver::gru22_w_hh_,     &Revolver::gru22_b_ih_,     &Revolver::gru22_b_hh_,
    &Revolver::gru22_h_,        &Revolver::gru22_gates_x_,  &Revolver::gru22_gates_h_,
    &Revolver::layer24_weight_, &Revolver::layer24_bias_,   &Revolver::vec_a_,
    &Revolver::plane_a_,        &Revolver::plane_b_,        &Revolver::plane_c_,
    &Revolver::gate_a_,         &Revolver::gate_b_,         &Revolver::vec_b_,
};

const float* Revolver::region(size_t index) const {
  ZV_ASSERT(index < kRegionCount, "Region index %zu out of range.", index);
  return this->*kSlots[index];
}

Revolver::Revolver(const std::shared_ptr<ZVModelInfo>& model) {
  static_assert(SumCapacities(kRegions, kRegionCount) == kStorageBytes, "regions must fill the block");
  ZV_ASSERT(model != nullptr, "Revolver needs a model.");
  storage_ = std::calloc(1, kStorageBytes);
  ZV_ASSERT(storage_ != nullptr, "Revolver could not allocate %zu bytes.", kStorageBytes);
  size_t offset = 0;
  for (size_t i = 0; i < kRegionCount; ++i) {
    this->*kSlots[i] = reinterpret_cast<float*>(static_cast<char*>(storage_) + offset);
    offset += kRegions[i].capacity;
  }
  try {
    LoadWeights(*model);
  } catch (...) {
    std::free(storage_);
    storage_ = nullptr;
    throw;
  }
}

Revolver::~Revolver() {
  std::free(storage_);
}

void Revolver::LoadWeights(const ZVModelInfo& model) {
  using T = ConvTreatment;
  CopyWeights(model.GetLayerInfoAs<Conv2dInfo>("1")->weight, 9, layer1_weight_, "1", "weight");
  CopyWeights(model.GetLayerInfoAs<Conv2dInfo>("1")->bias, 1, layer1_bias_, "1", "bias");
  CopyWeights(model.GetLayerInfoAs<Conv2dInfo>("2")->weight, 16, layer2_weight_, "2", "weight");
  CopyWeights(model.GetLayerInfoAs<Conv2dInfo>("2")->bias, 16, layer2_bias_, "2", "bias");
  LoadConv(model, "4", {1, 1, 16, 1, 1}, T::kCopy, layer4_weight_, layer4_bias_);
  LoadConv(model, "7", {16, 16, 16, 3, 3}, T::kDepthwise8, layer7_weight_, layer7_bias_);
  LoadConv(model, "8", {1, 16, 16, 1, 1}, T::kPointwise8x8, layer8_weight_, layer8_bias_);
  LoadConv(model, "10", {1, 16, 16, 1, 1}, T::kPointwise8x8, layer10_weight_, layer10_bias_);
  LoadConv(model, "13", {16, 16, 16, 3, 3}, T::kDepthwise8, layer13_weight_, layer13_bias_);
  LoadConv(model, "14", {1, 16, 1, 1, 1}, T::kCopy, layer14_weight_, layer14_bias_);
  LoadConv(model, "16", {1, 16, 1, 1, 1}, T::kCopy, layer16_weight_, layer16_bias_);
  LoadGru(model, "20", 74, 256, gru20_w_ih_, gru20_w_hh_, gru20_b_ih_, gru20_b_hh_);
  LoadGru(model, "21", 256, 256, gru21_w_ih_, gru21_w_hh_, gru21_b_ih_, gru21_b_hh_);
  LoadGru(model, "22", 256, 256, gru22_w_ih_, gru22_w_hh_, gru22_b_ih_, gru22_b_hh_);
  const std::shared_ptr<FullConnectionInfo> dense = model.GetLayerInfoAs<FullConnectionInfo>("24");
  CopyWeights(dense->weight, 256 * 80, layer24_weight_, "24", "weight");
  CopyWeights(dense->bias, 80, layer24_bias_, "24", "bias");
}

void Revolver::Forward(HyperspecificTensorMap& outputs, const std::vector<HyperspecificTensor>& inputs,
                       bool /*flag*/) {
  ZV_ASSERT(!inputs.empty() && inputs.front().data != nullptr, "Revolver needs one input block.");
  const float* x = static_cast<const float*>(inputs.front().data);

  // Stage one: 1 x 7 x 80 -> depthwise 1 x 5 x 78 -> gated pointwise 16 x 5 x 78.
  DepthwiseConv3x3Planar(layer1_weight_, layer1_bias_, x, {1, 7, 80, 4}, vec_b_, {1, 5, 78, 4});
  PointwiseConvPlanar(layer2_weight_, layer2_bias_, vec_b_, {1, 5, 78, 4}, plane_a_, {16, 5, 78, 4});
  HSigmoidPass(plane_a_, plane_a_, {16, 5, 78, 4});
  PointwiseConvPlanar(layer4_weight_, layer4_bias_, vec_b_, {1, 5, 78, 4}, plane_b_, {16, 5, 78, 4});
  ReluPass(plane_b_, plane_b_, {16, 5, 78, 4});
  MulVectors(plane_b_, plane_a_, 6240, plane_c_);

  // Stage two, packed by 8: depthwise 16 x 3 x 76, gated pointwise 16 -> 16.
  PackChannels8(plane_c_, {16, 5, 78, 4}, plane_a_);
  DepthwiseConv3x3Packed8(layer7_weight_, layer7_bias_, plane_a_, {2, 5, 78, 8, 4}, plane_b_,
                          {2, 3, 76, 8, 4});
  PointwiseConvPacked8(layer8_weight_, layer8_bias_, plane_b_, {2, 3, 76, 8, 4}, plane_a_, {2, 3, 76, 8, 4});
  HSigmoidPass(plane_a_, plane_a_, {2, 3, 76, 8, 4});
  PointwiseConvPacked8(layer10_weight_, layer10_bias_, plane_b_, {2, 3, 76, 8, 4}, plane_c_,
                       {2, 3, 76, 8, 4});
  ReluPass(plane_c_, plane_c_, {2, 3, 76, 8, 4});
  MulVectors(plane_c_, plane_a_, 3648, plane_b_);

  // Stage three: depthwise 16 x 1 x 74, gated pointwise 16 -> 1.
  DepthwiseConv3x3Packed8(layer13_weight_, layer13_bias_, plane_b_, {2, 3, 76, 8, 4}, plane_a_,
                          {2, 1, 74, 8, 4});
  UnpackChannels8(plane_a_, {2, 1, 74, 8, 4}, plane_c_);
  PointwiseConvPlanar(layer14_weight_, layer14_bias_, plane_c_, {16, 1, 74, 4}, vec_b_, {1, 1, 74, 4});
  HSigmoidPass(vec_b_, vec_b_, {1, 1, 74, 4});
  PointwiseConvPlanar(layer16_weight_, layer16_bias_, plane_c_, {16, 1, 74, 4}, gate_a_, {1, 1, 74, 4});
  ReluPass(gate_a_, gate_a_, {1, 1, 74, 4});
  MulVectors(gate_a_, vec_b_, 74, gate_b_);
  CopyBytes(gate_b_, vec_b_, {1, 74, 4});

  // Recurrent stack and the dense layer.
  GruLayer74(vec_b_, {1, 74, 4}, vec_a_, gru20_w_ih_, gru20_w_hh_, gru20_b_ih_, gru20_b_hh_, gru20_h_,
             gru20_gates_x_, gru20_gates_h_);
  GruLayer256(vec_a_, {1, 256, 4}, vec_b_, gru21_w_ih_, gru21_w_hh_, gru21_b_ih_, gru21_b_hh_, gru21_h_,
              gru21_gates_x_, gru21_gates_h_);
  GruLayer256(vec_b_, {1, 256, 4}, vec_a_, gru22_w_ih_, gru22_w_hh_, gru22_b_ih_, gru22_b_hh_, gru22_h_,
              gru22_gates_x_, gru22_gates_h_);
  CopyBytes(vec_a_, vec_b_, {256, 4});
  DenseLayer256x80(vec_b_, layer24_weight_, layer24_bias_, vec_a_);
  ReluPass(vec_a_, vec_a_, {80, 4});

  HyperspecificTensor& out = outputs["25"];
  out.shape.assign(1, kOutputSize);
  out.element_size = 4;
  out.flags = 0;
  out.data = vec_a_;
}

void Revolver::ResetRnnState() {
  std::memset(gru20_h_, 0, 1024);
  std::memset(gru21_h_, 0, 1024);
  std::memset(gru22_h_, 0, 1024);
}

}  // namespace audiodenoise_v4_final_cpu_sse
}  // namespace hyperspecific
