#include "zelva/src/kernel/family/transform/reshape.h"

#include <climits>
#include <cstring>

#include "zelva/src/kernel/family/transform/cores.h"

namespace zelva {
namespace kernel {

using runtime::DataType;
using runtime::Layout;
using runtime::Location;

namespace {

bool IsCnHWn(ReshapeForm f) {
  return f == ReshapeForm::kCnHWnToC || f == ReshapeForm::kCnHWnToCL;
}

// new_shape of exactly `rank` entries, the first 1 and each other positive or -1.
bool FixedRank(const std::vector<int16_t>& new_shape, size_t rank) {
  if (new_shape.size() != rank || new_shape[0] != 1) return false;
  for (size_t i = 1; i < rank; ++i) {
    if (new_shape[i] <= 0 && new_shape[i] != -1) return false;
  }
  return true;
}

// FLOAT32, FLOAT16 or INT16.
bool AcceptedType(uint32_t data_type) {
  return data_type <= DataType::INT16 && data_type != DataType::INT32;
}

std::vector<uint32_t> Dims(std::vector<int32_t>::const_iterator begin,
                           std::vector<int32_t>::const_iterator end) {
  return std::vector<uint32_t>(begin, end);
}

// total / divisor in signed 32-bit arithmetic, reporting the two quotients that have no value.
int32_t DivideTotal(int32_t total, int32_t divisor) {
  ZV_ASSERT(divisor != 0, "new shape has a zero product of its known entries.");
  ZV_ASSERT(!(total == INT32_MIN && divisor == -1), "new shape deduction overflows.");
  return total / divisor;
}

// Product of the entries of `new_shape` that are at least 1 (1 when there are none).
int32_t PositiveProduct(const std::vector<int32_t>& new_shape) {
  uint32_t product = 1;
  for (const int32_t entry : new_shape) {
    if (entry >= 1) product *= static_cast<uint32_t>(entry);
  }
  return static_cast<int32_t>(product);
}

// The copy of `new_shape` in which every entry below 1 is replaced by total / positive_product.
std::vector<int32_t> ResolveNewShape(const std::vector<int32_t>& new_shape, int32_t positive_product,
                                     int32_t total) {
  std::vector<int32_t> resolved(new_shape);
  for (int32_t& entry : resolved) {
    if (entry < 1) entry = DivideTotal(total, positive_product);
  }
  return resolved;
}

// The deduction of the fixed-rank forms (see reshape.h).
std::vector<int32_t> DeduceMinusOne(const std::vector<int32_t>& new_shape, int32_t total) {
  std::vector<int32_t> deduced(new_shape);
  for (size_t i = 0; i < deduced.size(); ++i) {
    if (deduced[i] != -1) continue;
    uint32_t others = 1;  // wraps like the signed product it stands for
    for (size_t j = 0; j < deduced.size(); ++j) {
      if (j != i) others *= static_cast<uint32_t>(deduced[j]);
    }
    deduced[i] = DivideTotal(total, static_cast<int32_t>(others));
  }
  return deduced;
}

// Copies `input` into `dst` in logical order: a C4HW4 or C8HW8 tensor (FLOAT32 only, else "Invalid input data
// type") is unblocked; any other layout is copied as stored. `dst` holds the input's byte size.
void CopyInLogicalOrder(const runtime::Tensor& input, void* dst) {
  const runtime::TensorShape& in = input.shape;
  if (in.layout == Layout::C4HW4 || in.layout == Layout::C8HW8) {
    ZV_ASSERT(in.data_type == DataType::FLOAT32, "Invalid input data type");
    ZV_ASSERT(in.dims.size() >= 2, "blocked input of rank %zu.", in.dims.size());
    const uint32_t blocks = in.dims.front();
    const uint32_t lanes = in.dims.back();
    uint32_t inner = 1;
    for (size_t d = 1; d + 1 < in.dims.size(); ++d) inner *= in.dims[d];
    UnblockToPlanar(input.Data<float>(), static_cast<float*>(dst), blocks, inner, lanes);
    return;
  }
  const int32_t bytes = in.ByteSize();
  if (bytes > 0) std::memcpy(dst, input.data, static_cast<size_t>(bytes));
}

void CopyAsStored(const runtime::Tensor& input, void* dst) {
  std::memcpy(dst, input.data, static_cast<size_t>(static_cast<uint32_t>(input.shape.ByteSize())));
}

// The output shape of kGeneral.
runtime::TensorShape GeneralShape(const ReshapeRow& row, const ReshapeState& state,
                                  const runtime::TensorShape& in) {
  const int32_t total = in.ElementCount();
  std::vector<int32_t> resolved = ResolveNewShape(state.param.new_shape, state.positive_product, total);
  if (resolved.size() > 1 && resolved[0] == 1) resolved.erase(resolved.begin());

  std::vector<uint32_t> dims(resolved.begin(), resolved.end());
  uint32_t count = 1;
  for (const uint32_t d : dims) count *= d;
  ZV_ASSERT(count == static_cast<uint32_t>(total), "[%s] new shape holds %u values, the input %u.", row.name,
            count, static_cast<uint32_t>(total));

  uint32_t layout = Layout::FLEXIABLE;
  switch (dims.size()) {
    case 1:
      layout = Layout::C;
      break;
    case 2:
      layout = Layout::CL;
      break;
    case 3:
      layout = Layout::CHW;
      break;
    default:
      break;
  }
  return runtime::TensorShape(std::move(dims), in.data_type, layout, in.location, in.extra);
}

}  // namespace

int32_t CheckReshapeSupport(const ReshapeRow& row, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                            const std::shared_ptr<runtime::InferenceParam>& inference_param) {
  return SupportFor<runtime::TensorReshapeInfo>(
      layer_info, inference_param, [&row](const runtime::TensorReshapeInfo& info) {
        bool accepted = true;
        if (row.entries == 2) accepted = info.new_shape.size() == 2;
        if (row.entries > 2) accepted = FixedRank(info.new_shape, row.entries);
        return accepted ? runtime::kKernelOk : runtime::kKernelNotSupported;
      });
}

void ConfigReshape(ReshapeState* state, const std::shared_ptr<runtime::LayerInfo>& layer_info) {
  state->param = ToParam(std::static_pointer_cast<runtime::TensorReshapeInfo>(layer_info));
  state->positive_product = PositiveProduct(state->param.new_shape);
  state->configured = true;
}

runtime::TensorShape ReshapeOutputShape(const ReshapeRow& row, const ReshapeState& state,
                                        const runtime::TensorShape& in) {
  if (row.form == ReshapeForm::kGeneral) return GeneralShape(row, state, in);

  const std::vector<int32_t>& ns = state.param.new_shape;
  const int32_t total = in.ElementCount();
  std::vector<uint32_t> dims;
  uint32_t layout = in.layout;
  switch (row.form) {
    case ReshapeForm::kGeneral:
      break;
    case ReshapeForm::kCnHWnToC:
      ZV_ASSERT(ns.size() == 2, "[%s] not configured.", row.name);
      dims = {static_cast<uint32_t>(ns[1] == -1 ? total : ns[1])};
      layout = Layout::C;
      break;
    case ReshapeForm::kCnHWnToCL:
    case ReshapeForm::kCLToCHW: {
      const size_t rank = row.form == ReshapeForm::kCnHWnToCL ? 3 : 4;
      ZV_ASSERT(ns.size() == rank, "[%s] not configured.", row.name);
      const std::vector<int32_t> deduced = DeduceMinusOne(ns, total);
      dims = Dims(deduced.begin() + 1, deduced.end());
      layout = row.form == ReshapeForm::kCnHWnToCL ? Layout::CL : Layout::CHW;
      break;
    }
    case ReshapeForm::kAny:
      dims = Dims(ns.begin(), ns.end());
      break;
    case ReshapeForm::kToC:
    case ReshapeForm::kToCHW:
    case ReshapeForm::kToSC: {
      std::vector<int32_t> resolved = ResolveNewShape(ns, state.positive_product, total);
      if (row.form == ReshapeForm::kToC) {
        if (resolved.size() == 2) {
          ZV_ASSERT(resolved[0] == 1, nullptr);
          resolved.erase(resolved.begin());
        }
        layout = Layout::C;
      } else if (row.form == ReshapeForm::kToCHW) {
        if (resolved.size() == 4) {
          ZV_ASSERT(resolved[0] == 1, nullptr);
          resolved.erase(resolved.begin());
        }
        layout = Layout::CHW;
      } else {
        if (resolved.size() == 3) {
          if (resolved[0] == 1) {
            resolved.erase(resolved.begin());
          } else {
            ZV_ASSERT(resolved[1] == 1, "[Reshape_Fallback_To_SC_M1] batch of new shape != 1");
            resolved.erase(resolved.begin() + 1);
          }
        }
        layout = Layout::SC;
      }
      dims = Dims(resolved.begin(), resolved.end());
      break;
    }
  }
  return runtime::TensorShape(std::move(dims), in.data_type, layout, in.location, in.extra);
}

int32_t CheckReshapeInputs(const ReshapeRow& row, const ReshapeState& state,
                           const runtime::TensorList& inputs) {
  if (row.form == ReshapeForm::kGeneral) return CheckFloatTensors(inputs);
  if (!IsCnHWn(row.form)) return runtime::kKernelOk;
  if (inputs.size() != 1 || inputs[0] == nullptr) return runtime::kKernelBadTensor;
  const runtime::TensorShape& shape = inputs[0]->shape;
  if (shape.location != Location::MainMemory || !AcceptedType(shape.data_type) ||
      shape.layout > Layout::C8HW8 || shape.layout == Layout::HWC)
    return runtime::kKernelBadTensor;
  // The element count is compared with the configured output; before Config there is nothing to match.
  if (!state.configured || ReshapeOutputShape(row, state, shape).ElementCount() != shape.ElementCount())
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

int32_t CheckReshapeOutputs(const ReshapeRow& row, const runtime::TensorList& outputs) {
  if (row.form == ReshapeForm::kGeneral) return CheckFloatTensors(outputs);
  if (!IsCnHWn(row.form)) return runtime::kKernelOk;
  if (outputs.size() != 1 || outputs[0] == nullptr) return runtime::kKernelBadTensor;
  const runtime::TensorShape& shape = outputs[0]->shape;
  const uint32_t layout = row.form == ReshapeForm::kCnHWnToC ? Layout::C : Layout::CL;
  if (shape.location != Location::MainMemory || !AcceptedType(shape.data_type) || shape.layout != layout)
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

void RunReshape(const ReshapeRow& row, const runtime::TensorList& inputs,
                const runtime::TensorList& outputs) {
  const runtime::Tensor& input = *inputs[0];
  const runtime::TensorShape& in = input.shape;
  runtime::Tensor& output = *outputs[0];
  if (row.form == ReshapeForm::kGeneral) {  // its output shape has already matched the counts
    CopyInLogicalOrder(input, output.data);
    return;
  }
  // A new shape that holds another number of values than the input would copy past one of the two.
  ZV_ASSERT(output.shape.ElementCount() == in.ElementCount(), "[%s] new shape holds %u values, the input %u.",
            row.name, static_cast<uint32_t>(output.shape.ElementCount()),
            static_cast<uint32_t>(in.ElementCount()));
  if (IsCnHWn(row.form)) {
    if (in.layout == Layout::CHW) {
      CopyAsStored(input, output.data);
    } else {
      ZV_ASSERT(in.layout == Layout::C4HW4 || in.layout == Layout::C8HW8, "Invalid input tensor layout");
      CopyInLogicalOrder(input, output.data);
    }
  } else if (row.form == ReshapeForm::kCLToCHW || row.form == ReshapeForm::kAny) {
    CopyAsStored(input, output.data);
  } else {
    CopyInLogicalOrder(input, output.data);
  }
}

}  // namespace kernel
}  // namespace zelva
