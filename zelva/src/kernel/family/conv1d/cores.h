// The cores of the one-dimensional convolution family and what they see. Declarations only: the scalar core
// is the reference (reference.h); the vector cores live in the folder of their instruction set.
//
// Convention (every member): nn.Conv1d on the CL layout [channels, length]. The frame copies the input with
// padding_f zeros in front and padding_b zeros behind each channel; then for every output channel o and
// position x
//   out[o][x] = bias[o] (or 0.0), then + in[i][x * stride + k * dilation] * weight[o][i'][k]
// for the input channels i of o's group (i' its place in the group) in order and, within each, the taps k
// in order; separate multiply and add.
// out_len = (length + padding_f + padding_b - (dilation * (kernel - 1) + 1)) / stride + 1. Weights
// arrive as [out, in / groups, kernel] and are kept so; the bias as [out].
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

struct Conv1dArgs {
  const float* input;  // [in_channels, in_len], already padded
  uint32_t in_len;
  float* output;  // [out_channels, out_len]
  uint32_t out_len;
  const float* weight;  // [out_channels, in_channels / groups, kernel]
  const float* bias;    // [out_channels], null without bias
  uint32_t in_channels, out_channels, groups;
  uint32_t kernel, stride, dilation;
};

struct Conv1dCore {
  void (*run)(const Conv1dArgs& args);
};

// ---- AVX (cpu/avx/conv1d/conv1d_avx.cc): kernel 3, stride 1, dilation 1, one group. Eight output positions
// a vector, four vectors a round, each tap weight broadcast once per round; the tail of a row goes one
// position at a time in scalar code of the same order.
void Conv1dK3S1Avx(const Conv1dArgs& args);
inline constexpr Conv1dCore kConv1dK3S1Avx{&Conv1dK3S1Avx};

}  // namespace kernel
}  // namespace zelva
