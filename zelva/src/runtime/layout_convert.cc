#include "zelva/src/runtime/layout_convert.h"

#include <cstdint>

#include "zelva/src/utility/logging.h"

namespace zelva {
namespace runtime {
namespace {

// Block factors of the three channel dims. The lanes follow the spatial dims in the order g, c, n, so the
// output channel is innermost whenever it is blocked.
struct Blocking {
  uint32_t g, n, c;
  uint32_t layout;
};

template <typename T>
void RepackGNCHW(const T* src, T* dst, const std::vector<uint32_t>& d, const Blocking& b) {
  const uint32_t G = d[0], N = d[1], C = d[2], HW = d[3] * d[4];
  const uint32_t nb = N / b.n, cb = C / b.c, lanes = b.g * b.n * b.c;
  for (uint32_t g = 0; g < G; ++g) {
    for (uint32_t n = 0; n < N; ++n) {
      for (uint32_t c = 0; c < C; ++c) {
        const uint32_t block = ((g / b.g) * nb + n / b.n) * cb + c / b.c;
        const uint32_t lane = ((g % b.g) * b.c + c % b.c) * b.n + n % b.n;
        T* out = dst + static_cast<size_t>(block) * HW * lanes + lane;
        for (uint32_t k = 0; k < HW; ++k) out[static_cast<size_t>(k) * lanes] = *src++;
      }
    }
  }
}

template <typename T>
void RepackOI(const T* src, T* dst, uint32_t O, uint32_t I) {
  const uint32_t ib = I / 8;
  for (uint32_t o = 0; o < O; ++o) {
    for (uint32_t i = 0; i < I; ++i) {
      dst[((static_cast<size_t>(o / 8) * ib + i / 8) * 8 + i % 8) * 8 + o % 8] = *src++;
    }
  }
}

// Runs `repack` with the element type of the data type's size; nothing to move for size 0.
template <typename Repack>
void DispatchBySize(uint32_t element_size, Repack&& repack) {
  switch (element_size) {
    case 4:
      repack(uint32_t());
      break;
    case 2:
      repack(uint16_t());
      break;
    case 1:
      repack(uint8_t());
      break;
    default:
      break;
  }
}

std::shared_ptr<Tensor> ConvertGNCHW(const std::shared_ptr<Tensor>& weight, DeviceCPU& device,
                                     const Blocking& b) {
  if (weight == nullptr) return nullptr;
  const TensorShape& in = weight->shape;
  if (in.layout != Layout::GNCHW || in.location != Location::MainMemory) return nullptr;
  ZV_ASSERT(in.dims.size() == 5, "GNCHW weight of rank %zu, expected 5.", in.dims.size());
  const std::vector<uint32_t>& d = in.dims;
  ZV_ASSERT(d[0] % b.g == 0 && d[1] % b.n == 0 && d[2] % b.c == 0,
            "GNCHW weight [%u, %u, %u, %u, %u] is not a multiple of its blocks (%u, %u, %u).", d[0], d[1],
            d[2], d[3], d[4], b.g, b.n, b.c);

  std::vector<uint32_t> dims;
  dims.reserve(8);
  dims.insert(dims.end(), {d[0] / b.g, d[1] / b.n, d[2] / b.c, d[3], d[4]});
  if (b.g > 1) dims.push_back(b.g);
  if (b.c > 1) dims.push_back(b.c);
  if (b.n > 1) dims.push_back(b.n);

  std::shared_ptr<Tensor> out;
  device.CreateTensor(out,
                      TensorShape(std::move(dims), in.data_type, b.layout, Location::MainMemory, in.extra));
  DispatchBySize(in.ElementSize(), [&](auto type) {
    using T = decltype(type);
    RepackGNCHW(static_cast<const T*>(weight->data), static_cast<T*>(out->data), d, b);
  });
  return out;
}

}  // namespace

std::shared_ptr<Tensor> ConvertGNCHWToG4NCHW4g(const std::shared_ptr<Tensor>& weight, DeviceCPU& device) {
  return ConvertGNCHW(weight, device, {4, 1, 1, Layout::G4NCHW4g});
}
std::shared_ptr<Tensor> ConvertGNCHWToG8NCHW8g(const std::shared_ptr<Tensor>& weight, DeviceCPU& device) {
  return ConvertGNCHW(weight, device, {8, 1, 1, Layout::G8NCHW8g});
}
std::shared_ptr<Tensor> ConvertGNCHWToGN4C4HW4n4c(const std::shared_ptr<Tensor>& weight, DeviceCPU& device) {
  return ConvertGNCHW(weight, device, {1, 4, 4, Layout::GN4C4HW4n4c});
}
std::shared_ptr<Tensor> ConvertGNCHWToGN8C8HW8n8c(const std::shared_ptr<Tensor>& weight, DeviceCPU& device) {
  return ConvertGNCHW(weight, device, {1, 8, 8, Layout::GN8C8HW8n8c});
}
std::shared_ptr<Tensor> ConvertGNCHWToGN4CHW4n(const std::shared_ptr<Tensor>& weight, DeviceCPU& device) {
  return ConvertGNCHW(weight, device, {1, 4, 1, Layout::GN4CHW4n});
}
std::shared_ptr<Tensor> ConvertGNCHWToGN8CHW8n(const std::shared_ptr<Tensor>& weight, DeviceCPU& device) {
  return ConvertGNCHW(weight, device, {1, 8, 1, Layout::GN8CHW8n});
}
std::shared_ptr<Tensor> ConvertGNCHWToGNC8HW8c(const std::shared_ptr<Tensor>& weight, DeviceCPU& device) {
  return ConvertGNCHW(weight, device, {1, 1, 8, Layout::GN8CHW8n});
}

std::shared_ptr<Tensor> ConvertOIToO8I8o8i8(const std::shared_ptr<Tensor>& weight, DeviceCPU& device) {
  if (weight == nullptr) return nullptr;
  const TensorShape& in = weight->shape;
  if (in.location != Location::MainMemory) return nullptr;
  ZV_ASSERT(in.dims.size() == 2, "fully connected weight of rank %zu, expected 2.", in.dims.size());
  const uint32_t O = in.dims[0], I = in.dims[1];
  ZV_ASSERT(O % 8 == 0 && I % 8 == 0, "fully connected weight [%u, %u] is not a multiple of 8.", O, I);

  std::shared_ptr<Tensor> out;
  device.CreateTensor(
      out, TensorShape({O / 8, I / 8, 8, 8}, in.data_type, Layout::O8I8o8i8, Location::MainMemory, in.extra));
  DispatchBySize(in.ElementSize(), [&](auto type) {
    using T = decltype(type);
    RepackOI(static_cast<const T*>(weight->data), static_cast<T*>(out->data), O, I);
  });
  return out;
}

}  // namespace runtime
}  // namespace zelva
