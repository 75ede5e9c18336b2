// The hand-fused denoise network: one fixed graph of three gated depthwise-separable convolution stages,
// three stacked GRU layers of 256 units and a dense layer with ReLU. 1 x 7 x 80 floats in, 80 floats out.
// The model serves only as a bag of weights read once by layer key; the graph itself is this code.
//
// All memory is one zero-filled block obtained at construction and cut into fixed regions. A variant with
// half weights writes the seven big matrices as half precision into the first half of their regions. Between
// calls only the three GRU hidden vectors carry meaning. No locks: one object serves one stream on one
// thread through Forward.
//
// The weights can also serve any number of streams at once: Run and RunBatch only read the object, and take
// a stream's hidden vectors (RevolverState) and the block's scratch (RevolverScratch, RevolverBatchScratch)
// from the caller, so different threads may call them at the same time with states and scratch of their
// own. Forward is Run on the object's own regions: the same operators in the same order, the same bits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "zelva-kit/src/audiodenoise/revolver_ops.h"

namespace zelva {
namespace runtime {
class ZVModelInfo;
}  // namespace runtime
}  // namespace zelva

namespace hyperspecific {
namespace audiodenoise_v4_final_cpu_sse {

// How a tensor reaches and leaves the fused network. `data` is not owned.
struct HyperspecificTensor {
  std::vector<int32_t> shape;
  uint32_t element_size = 0;
  uint16_t flags = 0;
  const void* data = nullptr;
};

using HyperspecificTensorMap = std::unordered_map<std::string, HyperspecificTensor>;

// How the fused network runs on this processor. Every variant gives the same bits as the 128-bit SSE
// reference with fp32 weights (the order of every sum is kept, and exp and tanh are the same 4-lane
// functions); they differ in speed only.
enum class RevolverIsa : uint8_t {
  kSse,     // the reference: 128-bit operators
  kAvx2,    // AVX2 matrix-vector products and packed convolutions
  kAvx512,  // AVX-512F matrix-vector products, AVX2 packed convolutions
};

struct RevolverVariant {
  RevolverIsa isa = RevolverIsa::kSse;
  // The six GRU matrices and the dense matrix held as IEEE half precision and widened on the fly (F16C):
  // only for a model whose weights are all exactly halves, so the products do not change.
  bool half_weights = false;

  bool operator==(const RevolverVariant& other) const {
    return isa == other.isa && half_weights == other.half_weights;
  }
  // "sse fp32", "avx2 fp32", "avx2+f16c half", "avx512 fp32", "avx512 half".
  const char* Name() const;
};

// What one stream carries from block to block: the hidden vectors of the three GRU layers. Zero is the state
// after a reset.
struct RevolverState {
  alignas(64) float h[3][256];
};

// The working memory of one block, meaningless between calls; sized as the regions of the same names.
struct RevolverScratch {
  alignas(64) float plane_a[6240];
  alignas(64) float plane_b[6240];
  alignas(64) float plane_c[6240];
  alignas(64) float vec_a[256];
  alignas(64) float vec_b[520];
  alignas(64) float gate_a[76];
  alignas(64) float gate_b[76];
  alignas(64) float gates_x[768];
  alignas(64) float gates_h[768];
};

// The working memory of a batch: one block's scratch for the convolution stages (run one stream at a time)
// and, per stream, the recurrent stack's input and gates. Grows to the largest batch seen, then allocates
// nothing.
class RevolverBatchScratch {
 public:
  RevolverBatchScratch();
  ~RevolverBatchScratch();
  RevolverBatchScratch(const RevolverBatchScratch&) = delete;
  RevolverBatchScratch& operator=(const RevolverBatchScratch&) = delete;

  // Room for `count` streams; false if memory ran out.
  bool Reserve(size_t count);
  RevolverScratch& block() { return *block_; }
  float* features(size_t i) { return lanes_ + i * kLaneFloats; }  // 80 floats: the 74 of stage three
  float* gates_x(size_t i) { return features(i) + 80; }           // 768 floats
  float* gates_h(size_t i) { return features(i) + 848; }          // 768 floats
  // Room for one pointer per stream, for the arguments of a product.
  const float** xs() { return xs_.data(); }
  float** ys() { return ys_.data(); }

 private:
  static constexpr size_t kLaneFloats = 80 + 768 + 768;
  RevolverScratch* block_ = nullptr;
  float* lanes_ = nullptr;
  size_t capacity_ = 0;
  std::vector<const float*> xs_;
  std::vector<float*> ys_;
};

class Revolver {
 public:
  static constexpr size_t kRegionCount = 48;
  static constexpr size_t kStorageBytes = 4364960;
  static constexpr int32_t kInputRows = 7;
  static constexpr int32_t kInputCols = 80;
  static constexpr int32_t kOutputSize = 80;

  struct Region {
    const char* name;
    size_t capacity;  // bytes
  };
  // The regions in the order they are cut from the block; each starts at the sum of the capacities before it.
  static constexpr Region kRegions[kRegionCount] = {
      {"layer1_weight", 48},   {"layer1_bias", 16},     {"layer2_weight", 256},   {"layer2_bias", 64},
      {"layer4_weight", 256},  {"layer4_bias", 64},     {"layer7_weight", 576},   {"layer7_bias", 64},
      {"layer8_weight", 1024}, {"layer8_bias", 64},     {"layer10_weight", 1024}, {"layer10_bias", 64},
      {"layer13_weight", 576}, {"layer13_bias", 64},    {"layer14_weight", 256},  {"layer14_bias", 16},
      {"layer16_weight", 256}, {"layer16_bias", 16},    {"gru20_w_ih", 227328},   {"gru20_w_hh", 786432},
      {"gru20_b_ih", 3072},    {"gru20_b_hh", 3072},    {"gru20_h", 1024},        {"gru20_gates_x", 3072},
      {"gru20_gates_h", 3072}, {"gru21_w_ih", 786432},  {"gru21_w_hh", 786432},   {"gru21_b_ih", 3072},
      {"gru21_b_hh", 3072},    {"gru21_h", 1024},       {"gru21_gates_x", 3072},  {"gru21_gates_h", 3072},
      {"gru22_w_ih", 786432},  {"gru22_w_hh", 786432},  {"gru22_b_ih", 3072},     {"gru22_b_hh", 3072},
      {"gru22_h", 1024},       {"gru22_gates_x", 3072}, {"gru22_gates_h", 3072},  {"layer24_weight", 81920},
      {"layer24_bias", 320},   {"vec_a", 1024},         {"plane_a", 24960},       {"plane_b", 24960},
      {"plane_c", 24960},      {"gate_a", 304},         {"gate_b", 304},          {"vec_b", 2080},
  };

  // Reads the weights of the thirteen layers "1", "2", "4", "7", "8", "10", "13", "14", "16", "20", "21",
  // "22", "24". Fails (std::runtime_error) on a missing layer, a layer of another kind or short weight data.
  // Runs the fastest variant this processor supports for this model (BestVariant).
  explicit Revolver(const std::shared_ptr<zelva::runtime::ZVModelInfo>& model);
  // Runs the given variant; fails if the processor cannot run it or if it asks for half weights and a weight
  // of the model is not exactly a half.
  Revolver(const std::shared_ptr<zelva::runtime::ZVModelInfo>& model, RevolverVariant variant);
  ~Revolver();
  Revolver(const Revolver&) = delete;
  Revolver& operator=(const Revolver&) = delete;

  // Runs one block: the data of inputs[0], taken as 1 x 7 x 80 floats (its shape is not read). Sets
  // outputs["25"] to 80 floats that live in this object until the next call. `flag` is not read.
  void Forward(HyperspecificTensorMap& outputs, const std::vector<HyperspecificTensor>& inputs, bool flag);

  // Zeroes the three GRU hidden vectors and nothing else.
  void ResetRnnState();

  // One block of one stream: `input` 7 x 80 floats, `state` updated, 80 floats to `output` (which may not
  // overlap the input or the state). Reads nothing of the object but the weights.
  void Run(const float* input, RevolverState& state, RevolverScratch& scratch, float* output) const;
  // One block to each of `count` streams, the weights read once per batch in groups of rows that stay in
  // the cache while every stream uses them. Stream i's output is bit for bit what Run gives it. The states
  // must be distinct; outputs may not overlap inputs, states or each other. False only if the scratch could
  // not grow.
  bool RunBatch(size_t count, const float* const* inputs, RevolverState* const* states, float* const* outputs,
                RevolverBatchScratch& scratch) const;

  // Start of region `index` (order of kRegions), and the block itself. With half weights the regions of the
  // six GRU matrices and of the dense matrix hold their matrix as half precision bit patterns in their first
  // half.
  const float* region(size_t index) const;
  const void* storage() const { return storage_; }
  RevolverVariant variant() const { return variant_; }

  // The variants, reference first, and whether this processor (with its operating system) can run one; if
  // not, `why` says what is missing.
  static const std::vector<RevolverVariant>& AllVariants();
  static bool ProcessorRuns(RevolverVariant variant, std::string* why = nullptr);
  // The fastest variant this processor runs; half weights only if `weights_are_halves`.
  static RevolverVariant BestVariant(bool weights_are_halves);
  // Every weight the fused network reads from `model` converts to half precision and back unchanged (always
  // so for a binary model read as half precision). Layers that are missing or short count as not.
  static bool WeightsAreHalves(const zelva::runtime::ZVModelInfo& model);

 private:
  using MatVecFn = void (*)(const void* weight, const float* x, const float* bias, float* y, int rows);
  using BatchFn = void (*)(const void* weight, const float* const* x, const float* bias, float* const* y,
                           int rows, size_t count);
  using ConvFn = void (*)(const float* weight, const float* bias, const float* input, ShapeRecord in_shape,
                          float* output, ShapeRecord out_shape);

  // Where one block works: the object's own regions for Forward, the caller's memory for Run.
  struct Work {
    float* plane_a;
    float* plane_b;
    float* plane_c;
    float* vec_a;
    float* vec_b;
    float* gate_a;
    float* gate_b;
    float* h[3];
    float* gates_x[3];
    float* gates_h[3];
  };

  void Init(const std::shared_ptr<zelva::runtime::ZVModelInfo>& model, RevolverVariant variant);
  void LoadWeights(const zelva::runtime::ZVModelInfo& model);
  // The three convolution stages: 74 floats to work.vec_b.
  void Stages(const float* x, const Work& work) const;
  // The recurrent stack and the dense layer on work.vec_b: 80 floats to work.vec_a.
  void Recurrent(const Work& work) const;
  void GruLayer(MatVecFn input_product, const void* w_ih, const void* w_hh, const float* b_ih,
                const float* b_hh, const float* x, float* h, float* gates_x, float* gates_h,
                float* out) const;
  // y[i] = weight x[i] + bias for `count` vectors, `rows` rows of `cols` elements: through `batch` when the
  // variant has one, else `product` a group of rows at a time.
  void BatchProduct(MatVecFn product, BatchFn batch, const void* weight, int cols, int rows,
                    const float* bias, size_t count, const float* const* x, float* const* y) const;
  static Work ScratchWork(RevolverScratch& scratch, RevolverState& state);

  static float* Revolver::*const kSlots[kRegionCount];  // the region pointers in the order of kRegions

  float* layer1_weight_ = nullptr;
  float* layer1_bias_ = nullptr;
  float* layer2_weight_ = nullptr;
  float* layer2_bias_ = nullptr;
  float* layer4_weight_ = nullptr;
  float* layer4_bias_ = nullptr;
  float* layer7_weight_ = nullptr;
  float* layer7_bias_ = nullptr;
  float* layer8_weight_ = nullptr;
  float* layer8_bias_ = nullptr;
  float* layer10_weight_ = nullptr;
  float* layer10_bias_ = nullptr;
  float* layer13_weight_ = nullptr;
  float* layer13_bias_ = nullptr;
  float* layer14_weight_ = nullptr;
  float* layer14_bias_ = nullptr;
  float* layer16_weight_ = nullptr;
  float* layer16_bias_ = nullptr;
  float* gru20_w_ih_ = nullptr;
  float* gru20_w_hh_ = nullptr;
  float* gru20_b_ih_ = nullptr;
  float* gru20_b_hh_ = nullptr;
  float* gru20_h_ = nullptr;
  float* gru20_gates_x_ = nullptr;
  float* gru20_gates_h_ = nullptr;
  float* gru21_w_ih_ = nullptr;
  float* gru21_w_hh_ = nullptr;
  float* gru21_b_ih_ = nullptr;
  float* gru21_b_hh_ = nullptr;
  float* gru21_h_ = nullptr;
  float* gru21_gates_x_ = nullptr;
  float* gru21_gates_h_ = nullptr;
  float* gru22_w_ih_ = nullptr;
  float* gru22_w_hh_ = nullptr;
  float* gru22_b_ih_ = nullptr;
  float* gru22_b_hh_ = nullptr;
  float* gru22_h_ = nullptr;
  float* gru22_gates_x_ = nullptr;
  float* gru22_gates_h_ = nullptr;
  float* layer24_weight_ = nullptr;
  float* layer24_bias_ = nullptr;
  float* vec_a_ = nullptr;
  float* plane_a_ = nullptr;
  float* plane_b_ = nullptr;
  float* plane_c_ = nullptr;
  float* gate_a_ = nullptr;
  float* gate_b_ = nullptr;
  float* vec_b_ = nullptr;
  void* storage_ = nullptr;

  // The operators of the chosen variant, and the seven matrices they stream (fp32 or half, in their regions).
  RevolverVariant variant_;
  MatVecFn rows256_ = nullptr;
  MatVecFn rows74_ = nullptr;
  BatchFn rows256_batch_ = nullptr;  // rows of 256 for many vectors at once, where the variant has it
  ConvFn depthwise8_ = nullptr;
  ConvFn pointwise8_ = nullptr;
  enum Matrix { kGru20Ih, kGru20Hh, kGru21Ih, kGru21Hh, kGru22Ih, kGru22Hh, kDense, kMatrixCount };
  const void* matrices_[kMatrixCount] = {};
};

}  // namespace audiodenoise_v4_final_cpu_sse
}  // namespace hyperspecific
