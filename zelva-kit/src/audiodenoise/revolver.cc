#include "zelva-kit/src/audiodenoise/revolver.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "zelva-kit/src/audiodenoise/revolver_ops.h"
#include "zelva-kit/src/audiodenoise/revolver_ops_wide.h"
#include "zelva/src/runtime/half.h"
#include "zelva/src/runtime/weight_data.h"
#include "zelva/src/runtime/zvmodel2/layer_info.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"
#include "zelva/src/utility/environment_x86.h"
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

// Decodes one matrix and stores its first `count` values as half precision bit patterns. The values are known
// to be exact halves (Revolver::WeightsAreHalves), so the conversion changes none.
void CopyHalfWeights(const std::string& text, size_t count, uint16_t* dst, const char* key,
                     const char* field) {
  const std::vector<float> values = zelva::runtime::DecodeWeights(text);
  ZV_ASSERT(values.size() >= count, "Layer [%s] field %s holds %zu floats, %zu needed.", key, field,
            values.size(), count);
  for (size_t i = 0; i < count; ++i) dst[i] = zelva::runtime::FloatToHalf(values[i]).bits();
}

// A matrix goes to its fp32 region, or as half precision to `half` when that is given.
void CopyMatrix(const std::string& text, size_t count, float* region, uint16_t* half, const char* key,
                const char* field) {
  if (half != nullptr) {
    CopyHalfWeights(text, count, half, key, field);
  } else {
    CopyWeights(text, count, region, key, field);
  }
}

// Every decoded value of `text` survives the trip to half precision and back bit for bit.
bool AllHalves(const std::string& text) {
  for (const float v : zelva::runtime::DecodeWeights(text)) {
    const float back = zelva::runtime::HalfToFloat(zelva::runtime::FloatToHalf(v));
    if (std::memcmp(&back, &v, sizeof(v)) != 0) return false;
  }
  return true;
}

// Adapters from the variants' typed operators to one signature.
template <void (*F)(const float*, const float*, const float*, float*, int)>
void FloatRows(const void* w, const float* x, const float* b, float* y, int rows) {
  F(static_cast<const float*>(w), x, b, y, rows);
}
template <void (*F)(const uint16_t*, const float*, const float*, float*, int)>
void HalfRows(const void* w, const float* x, const float* b, float* y, int rows) {
  F(static_cast<const uint16_t*>(w), x, b, y, rows);
}

template <void (*F)(const float*, const float* const*, const float*, float* const*, int, size_t)>
void FloatBatch(const void* w, const float* const* x, const float* b, float* const* y, int rows,
                size_t count) {
  F(static_cast<const float*>(w), x, b, y, rows, count);
}
template <void (*F)(const uint16_t*, const float* const*, const float*, float* const*, int, size_t)>
void HalfBatch(const void* w, const float* const* x, const float* b, float* const* y, int rows,
               size_t count) {
  F(static_cast<const uint16_t*>(w), x, b, y, rows, count);
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

// The two matrices go to their regions, or as half precision to half_ih and half_hh when those are given.
void LoadGru(const ZVModelInfo& model, const char* key, size_t input, size_t hidden, float* w_ih, float* w_hh,
             float* b_ih, float* b_hh, uint16_t* half_ih, uint16_t* half_hh) {
  const std::shared_ptr<GRUInfo> layer = model.GetLayerInfoAs<GRUInfo>(key);
  CopyMatrix(FirstEntry(layer->weight_ih_forward, key, "weight_ih_forward"), 3 * hidden * input, w_ih,
             half_ih, key, "weight_ih_forward");
  CopyMatrix(FirstEntry(layer->weight_hh_forward, key, "weight_hh_forward"), 3 * hidden * hidden, w_hh,
             half_hh, key, "weight_hh_forward");
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

const char* RevolverVariant::Name() const {
  switch (isa) {
    case RevolverIsa::kSse:
      return half_weights ? "sse half" : "sse fp32";
    case RevolverIsa::kAvx2:
      return half_weights ? "avx2+f16c half" : "avx2 fp32";
    case RevolverIsa::kAvx512:
      return half_weights ? "avx512 half" : "avx512 fp32";
  }
  return "unknown";
}

const std::vector<RevolverVariant>& Revolver::AllVariants() {
  static const std::vector<RevolverVariant> variants = {
      {RevolverIsa::kSse, false},    {RevolverIsa::kAvx2, false},  {RevolverIsa::kAvx2, true},
      {RevolverIsa::kAvx512, false}, {RevolverIsa::kAvx512, true},
  };
  return variants;
}

bool Revolver::ProcessorRuns(RevolverVariant variant, std::string* why) {
  const zelva::utility::EnvironmentX86& env = zelva::utility::EnvironmentX86::Instance();
  const char* missing = nullptr;
  if (variant.isa == RevolverIsa::kSse) {
    if (variant.half_weights) missing = "half weights need a wider variant";
  } else if (!env.IsAvx2Usable()) {
    missing = "AVX2 (processor or operating system) missing";
  } else if (variant.isa == RevolverIsa::kAvx512 && !env.IsAvx512fUsable()) {
    missing = "AVX-512F (processor or operating system) missing";
  } else if (variant.half_weights && !env.IsF16cUsable()) {
    missing = "F16C missing";
  }
  if (missing != nullptr && why != nullptr) *why = missing;
  return missing == nullptr;
}

RevolverVariant Revolver::BestVariant(bool weights_are_halves) {
  // Half weights halve the bytes streamed per block, which matters more than the register width.
  const RevolverVariant order[] = {
      {RevolverIsa::kAvx512, true},
      {RevolverIsa::kAvx2, true},
      {RevolverIsa::kAvx512, false},
      {RevolverIsa::kAvx2, false},
  };
  for (const RevolverVariant& v : order) {
    if ((weights_are_halves || !v.half_weights) && ProcessorRuns(v)) return v;
  }
  return RevolverVariant{};
}

bool Revolver::WeightsAreHalves(const ZVModelInfo& model) {
  for (const char* key : {"1", "2", "4", "7", "8", "10", "13", "14", "16"}) {
    const auto layer = std::dynamic_pointer_cast<Conv2dInfo>(model.FindLayerInfo(key));
    if (layer == nullptr || !AllHalves(layer->weight) || !AllHalves(layer->bias)) return false;
  }
  for (const char* key : {"20", "21", "22"}) {
    const auto layer = std::dynamic_pointer_cast<GRUInfo>(model.FindLayerInfo(key));
    if (layer == nullptr) return false;
    for (const std::vector<std::string>* list : {&layer->weight_ih_forward, &layer->weight_hh_forward,
                                                 &layer->bias_ih_forward, &layer->bias_hh_forward}) {
      if (list->empty() || !AllHalves(list->front())) return false;
    }
  }
  const auto dense = std::dynamic_pointer_cast<FullConnectionInfo>(model.FindLayerInfo("24"));
  return dense != nullptr && AllHalves(dense->weight) && AllHalves(dense->bias);
}

Revolver::Revolver(const std::shared_ptr<ZVModelInfo>& model) {
  ZV_ASSERT(model != nullptr, "Revolver needs a model.");
  const bool halves = ProcessorRuns({RevolverIsa::kAvx2, true}) && WeightsAreHalves(*model);
  Init(model, BestVariant(halves));
}

Revolver::Revolver(const std::shared_ptr<ZVModelInfo>& model, RevolverVariant variant) {
  ZV_ASSERT(model != nullptr, "Revolver needs a model.");
  std::string why;
  ZV_ASSERT(ProcessorRuns(variant, &why), "The fused network cannot run %s here: %s.", variant.Name(),
            why.c_str());
  ZV_ASSERT(!variant.half_weights || WeightsAreHalves(*model),
            "The fused network cannot run %s: a weight of the model is not exactly a half.", variant.Name());
  Init(model, variant);
}

void Revolver::Init(const std::shared_ptr<ZVModelInfo>& model, RevolverVariant variant) {
  static_assert(SumCapacities(kRegions, kRegionCount) == kStorageBytes, "regions must fill the block");
  variant_ = variant;
  switch (variant.isa) {
    case RevolverIsa::kSse:
      rows256_ = FloatRows<MatVecRows256Sse>;
      rows74_ = FloatRows<MatVecRows74Sse>;
      depthwise8_ = DepthwiseConv3x3Packed8;
      pointwise8_ = PointwiseConvPacked8;
      break;
    case RevolverIsa::kAvx2:
      rows256_ = variant.half_weights ? HalfRows<MatVecRows256HalfAvx2> : FloatRows<MatVecRows256Avx2>;
      rows74_ = variant.half_weights ? HalfRows<MatVecRows74HalfAvx2> : FloatRows<MatVecRows74Avx2>;
      rows256_batch_ =
          variant.half_weights ? HalfBatch<MatVecRows256HalfBatchAvx2> : FloatBatch<MatVecRows256BatchAvx2>;
      depthwise8_ = DepthwiseConv3x3Packed8Avx2;
      pointwise8_ = PointwiseConvPacked8Avx2;
      break;
    case RevolverIsa::kAvx512:
      rows256_ = variant.half_weights ? HalfRows<MatVecRows256HalfAvx512> : FloatRows<MatVecRows256Avx512>;
      rows74_ = variant.half_weights ? HalfRows<MatVecRows74HalfAvx512> : FloatRows<MatVecRows74Avx512>;
      rows256_batch_ = variant.half_weights ? HalfBatch<MatVecRows256HalfBatchAvx512>
                                            : FloatBatch<MatVecRows256BatchAvx512>;
      depthwise8_ = DepthwiseConv3x3Packed8Avx2;
      pointwise8_ = PointwiseConvPacked8Avx2;
      break;
  }

  storage_ = std::calloc(1, kStorageBytes);
  ZV_ASSERT(storage_ != nullptr, "Revolver could not allocate %zu bytes.", kStorageBytes);
  size_t offset = 0;
  for (size_t i = 0; i < kRegionCount; ++i) {
    this->*kSlots[i] = reinterpret_cast<float*>(static_cast<char*>(storage_) + offset);
    offset += kRegions[i].capacity;
  }
  // The seven matrices are streamed from their own regions: as fp32, or as half precision packed into the
  // first half of the region (the rest of it stays zero and untouched).
  float* const regions[kMatrixCount] = {gru20_w_ih_, gru20_w_hh_, gru21_w_ih_,    gru21_w_hh_,
                                        gru22_w_ih_, gru22_w_hh_, layer24_weight_};
  for (size_t m = 0; m < kMatrixCount; ++m) matrices_[m] = regions[m];
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
  // With half weights the seven matrices are written as half precision into the start of their regions.
  auto half = [&](float* region) {
    return variant_.half_weights ? reinterpret_cast<uint16_t*>(region) : nullptr;
  };
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
  LoadGru(model, "20", 74, 256, gru20_w_ih_, gru20_w_hh_, gru20_b_ih_, gru20_b_hh_, half(gru20_w_ih_),
          half(gru20_w_hh_));
  LoadGru(model, "21", 256, 256, gru21_w_ih_, gru21_w_hh_, gru21_b_ih_, gru21_b_hh_, half(gru21_w_ih_),
          half(gru21_w_hh_));
  LoadGru(model, "22", 256, 256, gru22_w_ih_, gru22_w_hh_, gru22_b_ih_, gru22_b_hh_, half(gru22_w_ih_),
          half(gru22_w_hh_));
  const std::shared_ptr<FullConnectionInfo> dense = model.GetLayerInfoAs<FullConnectionInfo>("24");
  CopyMatrix(dense->weight, 256 * 80, layer24_weight_, half(layer24_weight_), "24", "weight");
  CopyWeights(dense->bias, 80, layer24_bias_, "24", "bias");
}

void Revolver::Forward(HyperspecificTensorMap& outputs, const std::vector<HyperspecificTensor>& inputs,
                       bool /*flag*/) {
  ZV_ASSERT(!inputs.empty() && inputs.front().data != nullptr, "Revolver needs one input block.");
  const Work work = {plane_a_,
                     plane_b_,
                     plane_c_,
                     vec_a_,
                     vec_b_,
                     gate_a_,
                     gate_b_,
                     {gru20_h_, gru21_h_, gru22_h_},
                     {gru20_gates_x_, gru21_gates_x_, gru22_gates_x_},
                     {gru20_gates_h_, gru21_gates_h_, gru22_gates_h_}};
  Stages(static_cast<const float*>(inputs.front().data), work);
  Recurrent(work);

  HyperspecificTensor& out = outputs["25"];
  out.shape.assign(1, kOutputSize);
  out.element_size = 4;
  out.flags = 0;
  out.data = vec_a_;
}

Revolver::Work Revolver::ScratchWork(RevolverScratch& s, RevolverState& state) {
  return Work{s.plane_a,
              s.plane_b,
              s.plane_c,
              s.vec_a,
              s.vec_b,
              s.gate_a,
              s.gate_b,
              {state.h[0], state.h[1], state.h[2]},
              {s.gates_x, s.gates_x, s.gates_x},
              {s.gates_h, s.gates_h, s.gates_h}};
}

void Revolver::Run(const float* input, RevolverState& state, RevolverScratch& scratch, float* output) const {
  const Work work = ScratchWork(scratch, state);
  Stages(input, work);
  Recurrent(work);
  std::memcpy(output, work.vec_a, kOutputSize * sizeof(float));
}

void Revolver::Stages(const float* x, const Work& w) const {
  // Stage one: 1 x 7 x 80 -> depthwise 1 x 5 x 78 -> gated pointwise 16 x 5 x 78.
  DepthwiseConv3x3Planar(layer1_weight_, layer1_bias_, x, {1, 7, 80, 4}, w.vec_b, {1, 5, 78, 4});
  PointwiseConvPlanar(layer2_weight_, layer2_bias_, w.vec_b, {1, 5, 78, 4}, w.plane_a, {16, 5, 78, 4});
  HSigmoidPass(w.plane_a, w.plane_a, {16, 5, 78, 4});
  PointwiseConvPlanar(layer4_weight_, layer4_bias_, w.vec_b, {1, 5, 78, 4}, w.plane_b, {16, 5, 78, 4});
  ReluPass(w.plane_b, w.plane_b, {16, 5, 78, 4});
  MulVectors(w.plane_b, w.plane_a, 6240, w.plane_c);

  // Stage two, packed by 8: depthwise 16 x 3 x 76, gated pointwise 16 -> 16.
  PackChannels8(w.plane_c, {16, 5, 78, 4}, w.plane_a);
  depthwise8_(layer7_weight_, layer7_bias_, w.plane_a, {2, 5, 78, 8, 4}, w.plane_b, {2, 3, 76, 8, 4});
  pointwise8_(layer8_weight_, layer8_bias_, w.plane_b, {2, 3, 76, 8, 4}, w.plane_a, {2, 3, 76, 8, 4});
  HSigmoidPass(w.plane_a, w.plane_a, {2, 3, 76, 8, 4});
  pointwise8_(layer10_weight_, layer10_bias_, w.plane_b, {2, 3, 76, 8, 4}, w.plane_c, {2, 3, 76, 8, 4});
  ReluPass(w.plane_c, w.plane_c, {2, 3, 76, 8, 4});
  MulVectors(w.plane_c, w.plane_a, 3648, w.plane_b);

  // Stage three: depthwise 16 x 1 x 74, gated pointwise 16 -> 1.
  depthwise8_(layer13_weight_, layer13_bias_, w.plane_b, {2, 3, 76, 8, 4}, w.plane_a, {2, 1, 74, 8, 4});
  UnpackChannels8(w.plane_a, {2, 1, 74, 8, 4}, w.plane_c);
  PointwiseConvPlanar(layer14_weight_, layer14_bias_, w.plane_c, {16, 1, 74, 4}, w.vec_b, {1, 1, 74, 4});
  HSigmoidPass(w.vec_b, w.vec_b, {1, 1, 74, 4});
  PointwiseConvPlanar(layer16_weight_, layer16_bias_, w.plane_c, {16, 1, 74, 4}, w.gate_a, {1, 1, 74, 4});
  ReluPass(w.gate_a, w.gate_a, {1, 1, 74, 4});
  MulVectors(w.gate_a, w.vec_b, 74, w.gate_b);
  CopyBytes(w.gate_b, w.vec_b, {1, 74, 4});
}

void Revolver::Recurrent(const Work& w) const {
  // Recurrent stack (one time step per layer, as GruLayer74 and GruLayer256 run it) and the dense layer.
  GruLayer(rows74_, matrices_[kGru20Ih], matrices_[kGru20Hh], gru20_b_ih_, gru20_b_hh_, w.vec_b, w.h[0],
           w.gates_x[0], w.gates_h[0], w.vec_a);
  GruLayer(rows256_, matrices_[kGru21Ih], matrices_[kGru21Hh], gru21_b_ih_, gru21_b_hh_, w.vec_a, w.h[1],
           w.gates_x[1], w.gates_h[1], w.vec_b);
  GruLayer(rows256_, matrices_[kGru22Ih], matrices_[kGru22Hh], gru22_b_ih_, gru22_b_hh_, w.vec_b, w.h[2],
           w.gates_x[2], w.gates_h[2], w.vec_a);
  CopyBytes(w.vec_a, w.vec_b, {256, 4});
  rows256_(matrices_[kDense], w.vec_b, layer24_bias_, w.vec_a, 80);
  ReluPass(w.vec_a, w.vec_a, {80, 4});
}

void Revolver::GruLayer(MatVecFn input_product, const void* w_ih, const void* w_hh, const float* b_ih,
                        const float* b_hh, const float* x, float* h, float* gates_x, float* gates_h,
                        float* out) const {
  input_product(w_ih, x, b_ih, gates_x, 768);
  rows256_(w_hh, h, b_hh, gates_h, 768);
  GruGates(h, h, gates_x, gates_h);
  std::memcpy(out, h, 256 * sizeof(float));
}

void Revolver::BatchProduct(MatVecFn product, BatchFn batch, const void* weight, int cols, int rows,
                            const float* bias, size_t count, const float* const* x, float* const* y) const {
  // One stream alone runs faster through the product's own rows side by side.
  if (batch != nullptr && count >= 2) {
    batch(weight, x, bias, y, rows, count);
    return;
  }
  // 16 rows are 16 KiB of fp32 weights (8 KiB of halves): they stay in the first-level cache while every
  // stream of the batch uses them. Each row's sum is the one the whole product computes for it.
  constexpr int kGroupRows = 16;
  const size_t row_bytes = static_cast<size_t>(cols) * (variant_.half_weights ? 2 : 4);
  for (int r = 0; r < rows; r += kGroupRows) {
    const void* group = static_cast<const char*>(weight) + static_cast<size_t>(r) * row_bytes;
    for (size_t i = 0; i < count; ++i) product(group, x[i], bias + r, y[i] + r, kGroupRows);
  }
}

bool Revolver::RunBatch(size_t count, const float* const* inputs, RevolverState* const* states,
                        float* const* outputs, RevolverBatchScratch& scratch) const {
  if (!scratch.Reserve(count)) return false;
  if (count == 1) {  // nothing to share: the single-stream products are the faster ones
    Run(inputs[0], *states[0], scratch.block(), outputs[0]);
    return true;
  }
  // The convolution stages read little weight: one stream at a time through one block's scratch.
  RevolverState unused;
  const Work work = ScratchWork(scratch.block(), unused);
  for (size_t i = 0; i < count; ++i) {
    Stages(inputs[i], work);
    CopyBytes(work.vec_b, scratch.features(i), {1, 74, 4});
  }
  // The recurrent stack layer by layer over all streams; a layer's output is its hidden vector.
  const MatVecFn input_products[3] = {rows74_, rows256_, rows256_};
  const BatchFn input_batches[3] = {nullptr, rows256_batch_, rows256_batch_};
  const int input_cols[3] = {74, 256, 256};
  const void* const w_ih[3] = {matrices_[kGru20Ih], matrices_[kGru21Ih], matrices_[kGru22Ih]};
  const void* const w_hh[3] = {matrices_[kGru20Hh], matrices_[kGru21Hh], matrices_[kGru22Hh]};
  const float* const b_ih[3] = {gru20_b_ih_, gru21_b_ih_, gru22_b_ih_};
  const float* const b_hh[3] = {gru20_b_hh_, gru21_b_hh_, gru22_b_hh_};
  const float** xs = scratch.xs();
  float** ys = scratch.ys();
  for (int layer = 0; layer < 3; ++layer) {
    for (size_t i = 0; i < count; ++i) {
      xs[i] = layer == 0 ? scratch.features(i) : states[i]->h[layer - 1];
      ys[i] = scratch.gates_x(i);
    }
    BatchProduct(input_products[layer], input_batches[layer], w_ih[layer], input_cols[layer], 768,
                 b_ih[layer], count, xs, ys);
    for (size_t i = 0; i < count; ++i) {
      xs[i] = states[i]->h[layer];
      ys[i] = scratch.gates_h(i);
    }
    BatchProduct(rows256_, rows256_batch_, w_hh[layer], 256, 768, b_hh[layer], count, xs, ys);
    for (size_t i = 0; i < count; ++i) {
      GruGates(states[i]->h[layer], states[i]->h[layer], scratch.gates_x(i), scratch.gates_h(i));
    }
  }
  // The dense layer into each stream's feature row (free by now), then out.
  for (size_t i = 0; i < count; ++i) {
    xs[i] = states[i]->h[2];
    ys[i] = scratch.features(i);
  }
  BatchProduct(rows256_, rows256_batch_, matrices_[kDense], 256, 80, layer24_bias_, count, xs, ys);
  for (size_t i = 0; i < count; ++i) {
    ReluPass(scratch.features(i), scratch.features(i), {80, 4});
    std::memcpy(outputs[i], scratch.features(i), kOutputSize * sizeof(float));
  }
  return true;
}

RevolverBatchScratch::RevolverBatchScratch() = default;

RevolverBatchScratch::~RevolverBatchScratch() {
  std::free(block_);
  std::free(lanes_);
}

bool RevolverBatchScratch::Reserve(size_t count) {
  if (block_ == nullptr) {
    block_ = static_cast<RevolverScratch*>(std::aligned_alloc(64, sizeof(RevolverScratch)));
    if (block_ == nullptr) return false;
    std::memset(static_cast<void*>(block_), 0, sizeof(RevolverScratch));
  }
  if (count <= capacity_) return true;
  try {
    xs_.resize(count);
    ys_.resize(count);
  } catch (const std::bad_alloc&) {
    return false;
  }
  const size_t bytes = count * kLaneFloats * sizeof(float);
  float* lanes = static_cast<float*>(std::aligned_alloc(64, (bytes + 63) / 64 * 64));
  if (lanes == nullptr) return false;
  std::memset(lanes, 0, bytes);
  std::free(lanes_);
  lanes_ = lanes;
  capacity_ = count;
  return true;
}

void Revolver::ResetRnnState() {
  std::memset(gru20_h_, 0, 1024);
  std::memset(gru21_h_, 0, 1024);
  std::memset(gru22_h_, 0, 1024);
}

}  // namespace audiodenoise_v4_final_cpu_sse
}  // namespace hyperspecific
