// Weight repacking, done once when a kernel is configured. A convolution weight arrives as GNCHW
// [G, N, C, H, W] (groups, outputs per group, inputs per group, kernel rows, kernel columns) and is rewritten
// element by element into the blocked order an inner loop reads. In the doubly blocked forms the output
// channel is the innermost lane, whatever the letter order of the name suggests, so that one vector load from
// a fixed input channel delivers 4 or 8 output channels.
//
// Each converter makes a new tensor on `device` (same data type and extra as the input, MainMemory) and
// returns null when it refuses the input: the GNCHW ones unless the layout is GNCHW and the location
// MainMemory, the fully connected one unless the location is MainMemory. Divided dims must be exact
// multiples of the block; anything else is an assertion failure (there is no padding).
#pragma once

#include <memory>

#include "zelva/src/runtime/device.h"
#include "zelva/src/runtime/tensor.h"

namespace zelva {
namespace runtime {

// [G/4, N, C, H, W, 4]: (g, n, c, h, w) -> (g/4, n, c, h, w, g%4). Layout G4NCHW4g.
std::shared_ptr<Tensor> ConvertGNCHWToG4NCHW4g(const std::shared_ptr<Tensor>& weight, DeviceCPU& device);
// [G/8, N, C, H, W, 8]: (g, n, c, h, w) -> (g/8, n, c, h, w, g%8). Layout G8NCHW8g.
std::shared_ptr<Tensor> ConvertGNCHWToG8NCHW8g(const std::shared_ptr<Tensor>& weight, DeviceCPU& device);
// [G, N/4, C/4, H, W, 4, 4]: (g, n, c, h, w) -> (g, n/4, c/4, h, w, c%4, n%4). Layout GN4C4HW4n4c.
std::shared_ptr<Tensor> ConvertGNCHWToGN4C4HW4n4c(const std::shared_ptr<Tensor>& weight, DeviceCPU& device);
// [G, N/8, C/8, H, W, 8, 8]: (g, n, c, h, w) -> (g, n/8, c/8, h, w, c%8, n%8). Layout GN8C8HW8n8c.
std::shared_ptr<Tensor> ConvertGNCHWToGN8C8HW8n8c(const std::shared_ptr<Tensor>& weight, DeviceCPU& device);
// [G, N/4, C, H, W, 4]: (g, n, c, h, w) -> (g, n/4, c, h, w, n%4). Layout GN4CHW4n.
std::shared_ptr<Tensor> ConvertGNCHWToGN4CHW4n(const std::shared_ptr<Tensor>& weight, DeviceCPU& device);
// [G, N/8, C, H, W, 8]: (g, n, c, h, w) -> (g, n/8, c, h, w, n%8). Layout GN8CHW8n.
std::shared_ptr<Tensor> ConvertGNCHWToGN8CHW8n(const std::shared_ptr<Tensor>& weight, DeviceCPU& device);
// The input-blocked variant [G, N, C/8, H, W, 8]: (g, n, c, h, w) -> (g, n, c/8, h, w, c%8). It carries the
// layout code of GN8CHW8n (20).
std::shared_ptr<Tensor> ConvertGNCHWToGNC8HW8c(const std::shared_ptr<Tensor>& weight, DeviceCPU& device);

// Fully connected weight [O, I] -> [O/8, I/8, 8, 8]: (o, i) -> (o/8, i/8, i%8, o%8). Layout O8I8o8i8.
std::shared_ptr<Tensor> ConvertOIToO8I8o8i8(const std::shared_ptr<Tensor>& weight, DeviceCPU& device);

}  // namespace runtime
}  // namespace zelva
