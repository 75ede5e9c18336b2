// Every registered name, once, through the registry as the net uses it: the kernel is created, configured
// with a layer it accepts (the first of a small set of sample layers and inputs that its Config takes and
// that runs), run once, and its outputs held to its own GetOutputShapes. A name that no sample fits is a
// failure. The family testers hold the values; this walk holds that no registered name is left unwired.
#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/kernel_tester.h"
#include "support/log_capture.h"
#include "support/model_builder.h"
#include "zelva/src/kernel/registry/registry.h"
#include "zelva/src/runtime/zvmodel2/model_cfg.h"

namespace zelva {
namespace runtime {
namespace {

struct Input {
  std::vector<uint32_t> dims;
  uint32_t layout;
};

struct Sample {
  std::shared_ptr<LayerInfo> info;
  std::shared_ptr<InferenceParam> param;
  std::vector<Input> inputs;
};

// A map of c channels, h x w, planar or in blocks of `block` lanes.
Input Map(uint32_t block, uint32_t c, uint32_t h, uint32_t w) {
  if (block == 1) return {{c, h, w}, Layout::CHW};
  return {{c / block, h, w, block}, block == 4 ? Layout::C4HW4 : Layout::C8HW8};
}

std::string Weights(size_t n) {
  std::vector<float> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = 0.05f * static_cast<float>(i % 7) - 0.1f;
  return zvtest::WeightText(v);
}

template <class Info>
std::shared_ptr<Info> Make(const std::function<void(Info&)>& set) {
  auto info = std::make_shared<Info>();
  set(*info);
  return info;
}

void ConvolutionSamples(std::vector<Sample>& out) {
  const std::pair<uint16_t, uint16_t> kernels[] = {{1, 1}, {1, 3}, {3, 1}, {3, 3}, {5, 5}, {7, 7}};
  const std::pair<uint16_t, uint16_t> channels[] = {{8, 8}, {3, 8}, {8, 1}, {16, 16}};
  for (const auto& [ky, kx] : kernels) {
    for (uint16_t stride : {1, 2}) {
      for (const auto& [in, o] : channels) {
        for (bool depthwise : {false, true}) {
          if (depthwise && in != o) continue;
          const uint16_t groups = depthwise ? in : 1;
          auto info = Make<Conv2dInfo>([&](Conv2dInfo& c) {
            c.in_channels = in;
            c.out_channels = o;
            c.kernel_y = ky;
            c.kernel_x = kx;
            c.stride_x = c.stride_y = stride;
            c.padding_t = c.padding_b = ky / 2;
            c.padding_l = c.padding_r = kx / 2;
            c.groups = groups;
            c.if_bias = true;
            c.weight = Weights(size_t{o} * in / groups * ky * kx);
            c.bias = Weights(o);
          });
          for (uint32_t block : {1u, 4u, 8u}) {
            if (in % block == 0) out.push_back({info, nullptr, {Map(block, in, 9, 11)}});
          }
          if (ky == 1 && kx == 1 && in == 16 && !depthwise) {
            auto quant = std::make_shared<InferenceParamConv2DQuant>();
            quant->weight_step_size = quant->output_step_size = 8;
            out.push_back({info, quant, {Map(8, in, 9, 11)}});
          }
        }
      }
    }
  }
  for (uint16_t stride : {1, 2}) {
    for (uint32_t block : {1u, 4u, 8u}) {
      auto info = Make<ConvTranspose2dInfo>([&](ConvTranspose2dInfo& c) {
        c.in_channels = c.out_channels = 8;
        c.kernel_x = c.kernel_y = 3;
        c.stride_x = c.stride_y = stride;
        c.padding_l = c.padding_r = c.padding_t = c.padding_b = 1;
        c.groups = 1;
        c.if_bias = true;
        c.weight = Weights(8 * 8 * 9);
        c.bias = Weights(8);
      });
      out.push_back({info, nullptr, {Map(block, 8, 5, 6)}});
    }
  }
  auto conv1d = Make<Conv1dInfo>([](Conv1dInfo& c) {
    c.in_channels = c.out_channels = 8;
    c.kernel_size = 3;
    c.padding_f = c.padding_b = 1;
    c.if_bias = true;
    c.weight = Weights(8 * 8 * 3);
    c.bias = Weights(8);
  });
  out.push_back({conv1d, nullptr, {{{8, 16}, Layout::CL}}});
}

void PoolingSamples(std::vector<Sample>& out) {
  const std::pair<uint16_t, uint16_t> windows[] = {{2, 2}, {3, 3}, {4, 4}, {7, 7},
                                                   {8, 8}, {3, 2}, {5, 4}, {10, 8}};
  const std::pair<uint16_t, uint16_t> strides[] = {{1, 1}, {2, 2}, {4, 4}, {3, 2}};
  for (const auto& [ky, kx] : windows) {
    for (const auto& [sy, sx] : strides) {
      for (bool max : {false, true}) {
        std::shared_ptr<LayerInfo> info;
        if (max) {
          info = Make<MaxPool2dInfo>([&](MaxPool2dInfo& p) {
            p.kernel_y = ky, p.kernel_x = kx, p.stride_y = sy, p.stride_x = sx;
            p.dilation_x = p.dilation_y = 1;
          });
        } else {
          info = Make<AvgPool2dInfo>(
              [&](AvgPool2dInfo& p) { p.kernel_y = ky, p.kernel_x = kx, p.stride_y = sy, p.stride_x = sx; });
        }
        for (uint32_t block : {1u, 4u, 8u}) out.push_back({info, nullptr, {Map(block, 8, 20, 21)}});
      }
    }
  }
}

void ElementwiseSamples(std::vector<Sample>& out) {
  for (uint16_t op = 0; op < 6; ++op) {
    auto same = Make<ElementWiseOperatorInfo>([&](ElementWiseOperatorInfo& e) { e.op_type = op; });
    out.push_back({same, nullptr, {Map(1, 8, 4, 5), Map(1, 8, 4, 5)}});
    auto broadcast = Make<BroadcastOperatorInfo>([&](BroadcastOperatorInfo& e) { e.op_type = op; });
    for (uint32_t block : {1u, 4u, 8u})
      out.push_back({broadcast, nullptr, {Map(block, 8, 4, 5), Map(block, 8, 1, 1)}});
  }
  for (uint16_t code = 0; code < 10; ++code) {
    auto act = Make<ActivationInfo>([&](ActivationInfo& a) { a.activation_type = code; });
    out.push_back({act, nullptr, {Map(1, 8, 4, 5)}});
  }
}

void DenseAndRecurrentSamples(std::vector<Sample>& out) {
  auto fc = Make<FullConnectionInfo>([](FullConnectionInfo& f) {
    f.in_features = 16;
    f.out_features = 8;
    f.if_bias = true;
    f.weight = Weights(16 * 8);
    f.bias = Weights(8);
  });
  for (const Input& in : std::vector<Input>{{{16}, Layout::C},
                                            {{1, 16}, Layout::BC},
                                            {{16, 1, 1}, Layout::FLEXIABLE},
                                            {{16, 1, 1}, Layout::CHW},
                                            {{4, 1, 1, 4}, Layout::C4HW4},
                                            {{2, 1, 1, 8}, Layout::C8HW8}})
    out.push_back({fc, nullptr, {in}});

  const uint16_t kIn = 8, kHidden = 8;
  const std::pair<std::function<std::shared_ptr<RecurrentCellInfo>()>, uint32_t> cells[] = {
      {[] { return std::make_shared<RNNCellInfo>(); }, 1},
      {[] { return std::make_shared<LSTMCellInfo>(); }, 4},
      {[] { return std::make_shared<GRUCellInfo>(); }, 3}};
  for (const auto& [make, gates] : cells) {
    auto cell = make();
    cell->in_size = kIn;
    cell->hidden_size = kHidden;
    cell->if_bias = true;
    cell->weight_ih = Weights(gates * kHidden * kIn);
    cell->weight_hh = Weights(gates * kHidden * kHidden);
    cell->bias_ih = cell->bias_hh = Weights(gates * kHidden);
    if (auto rnn = std::dynamic_pointer_cast<RNNCellInfo>(cell)) rnn->activation_type = 5;  // tanh
    std::vector<Input> inputs = {{{1, kIn}, Layout::SC}, {{1, kHidden}, Layout::SC}};
    if (gates == 4) inputs.push_back({{1, kHidden}, Layout::SC});
    out.push_back({cell, nullptr, inputs});
  }
  const std::pair<std::function<std::shared_ptr<RecurrentInfo>()>, uint32_t> sequences[] = {
      {[] { return std::make_shared<RNNInfo>(); }, 1},
      {[] { return std::make_shared<LSTMInfo>(); }, 4},
      {[] { return std::make_shared<GRUInfo>(); }, 3}};
  for (const auto& [make, gates] : sequences) {
    auto seq = make();
    seq->in_size = kIn;
    seq->hidden_size = kHidden;
    seq->if_bias = true;
    seq->num_layers = 1;
    seq->weight_ih_forward = {Weights(gates * kHidden * kIn)};
    seq->weight_hh_forward = {Weights(gates * kHidden * kHidden)};
    seq->bias_ih_forward = seq->bias_hh_forward = {Weights(gates * kHidden)};
    if (auto rnn = std::dynamic_pointer_cast<RNNInfo>(seq)) rnn->activation_type = 5;
    out.push_back({seq, nullptr, {{{3, kIn}, Layout::SC}}});
  }
}

void ShapeSamples(std::vector<Sample>& out) {
  const std::vector<Input> maps = {Map(1, 8, 4, 5),       Map(4, 8, 4, 5),    Map(8, 8, 4, 5),
                                   {{8, 20}, Layout::CL}, {{160}, Layout::C}, {{20, 8}, Layout::SC}};
  for (const std::vector<int16_t>& shape : std::vector<std::vector<int16_t>>{
           {1, -1}, {1, -1, 8}, {1, 8, 4, 5}, {1, 8, 20}, {1, 20, 8}, {-1, 8, 4, 5}}) {
    auto reshape = Make<TensorReshapeInfo>([&](TensorReshapeInfo& r) { r.new_shape = shape; });
    for (const Input& in : maps) out.push_back({reshape, nullptr, {in}});
  }
  for (const Input& in : maps) out.push_back({nullptr, nullptr, {in}});  // layout converters
  out.push_back({std::make_shared<InputInfo>(), nullptr, {Map(1, 8, 4, 5)}});
  auto bn = Make<BatchNorm2dInfo>([](BatchNorm2dInfo& b) {
    b.num_features = 8;
    b.scale = b.shift = b.mean = Weights(8);
    b.variance = zvtest::WeightText(std::vector<float>(8, 1.0f));
  });
  out.push_back({bn, nullptr, {Map(1, 8, 4, 5)}});
  auto concat = Make<ConcatenateInfo>([](ConcatenateInfo& c) { c.dim = 1; });
  for (uint32_t block : {1u, 4u, 8u})
    out.push_back({concat, nullptr, {Map(block, 8, 4, 5), Map(block, 8, 4, 5)}});
  auto expand = Make<TensorExpandInfo>([](TensorExpandInfo& e) { e.new_shape = {1, 8, 4, 5}; });
  for (uint32_t block : {1u, 4u, 8u}) out.push_back({expand, nullptr, {Map(block, 8, 1, 5)}});
}

void ResamplingSamples(std::vector<Sample>& out) {
  for (uint16_t mode = 0; mode < 3; ++mode) {
    auto up = Make<Upsample2dInfo>([&](Upsample2dInfo& u) {
      u.scale_factor_x = u.scale_factor_y = 2.0f;
      u.unsample_type = mode;
    });
    for (uint32_t block : {1u, 4u, 8u}) out.push_back({up, nullptr, {Map(block, 8, 4, 5)}});
  }
  for (float factor : {2.0f, 0.5f}) {
    auto shuffle = Make<PixelShuffleInfo>([&](PixelShuffleInfo& p) { p.upscale_factor = factor; });
    for (uint32_t block : {1u, 4u, 8u}) out.push_back({shuffle, nullptr, {Map(block, 32, 4, 6)}});
  }
  auto sam = Make<SoftArgMaxInfo>([](SoftArgMaxInfo& s) { s.beta = 1.0f; });
  out.push_back({sam, nullptr, {Map(1, 8, 4, 5)}});
  auto warp = Make<WarpAffineInfo>([](WarpAffineInfo& w) {
    w.mode = "bilinear";
    w.padding_mode = "zeros";
  });
  out.push_back({warp, nullptr, {Map(1, 8, 4, 5), {{2, 3}, Layout::FLEXIABLE}}});
}

// Runs `name` on `s` when its Config takes the sample; true when it ran and its outputs have the shapes
// GetOutputShapes gives. Failures inside (an input the member does not read) count as "does not fit".
bool Fits(const kernel::KernelRegistry& registry, const std::string& name, const Sample& s,
          const std::shared_ptr<Context>& ctx, std::string* mismatch) {
  auto kernel = kernel::LookupKernel(registry, name);
  try {
    if (!kernel->Config(s.info, s.param, nullptr, ctx)) return false;
    TensorList inputs;
    std::vector<TensorShape> shapes;
    for (const Input& in : s.inputs) {
      size_t n = 1;
      for (uint32_t d : in.dims) n *= d;
      std::vector<float> values(n);
      for (size_t i = 0; i < n; ++i) values[i] = 0.25f + 0.125f * static_cast<float>(i % 5);
      inputs.push_back(zvtest::MakeTensor(ctx, in.dims, in.layout, values));
      shapes.push_back(inputs.back()->shape);
    }
    if (kernel->CheckInputs(inputs) != kKernelOk) return false;
    TensorList outputs;
    kernel->Forward(inputs, outputs, ctx);
    const std::vector<TensorShape> want = kernel->GetOutputShapes(shapes);
    if (outputs.empty() || outputs.size() != want.size()) {
      *mismatch = std::to_string(outputs.size()) + " outputs where GetOutputShapes gives " +
                  std::to_string(want.size());
      return true;
    }
    for (size_t i = 0; i < outputs.size(); ++i) {
      if (outputs[i]->shape.dims != want[i].dims || outputs[i]->shape.layout != want[i].layout)
        *mismatch = "output " + std::to_string(i) + " differs from GetOutputShapes";
    }
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

TEST(EveryKernel, EachRegisteredNameRunsOnALayerItAccepts) {
  kernel::KernelRegistry registry;
  kernel::RegisterBaseKernels(registry);
  kernel::RegisterFallbackKernels(registry);
  kernel::RegisterSGEMMKernels(registry);
  kernel::RegisterSSEKernels(registry);
  kernel::RegisterAVXKernels(registry);
  EXPECT_EQ(registry.size(), 187u);
  std::vector<Sample> samples;
  ConvolutionSamples(samples);
  PoolingSamples(samples);
  ElementwiseSamples(samples);
  DenseAndRecurrentSamples(samples);
  ShapeSamples(samples);
  ResamplingSamples(samples);

  const bool avx = zvtest::CanRun(kernel::Isa::kAVX);
  auto ctx = zvtest::MakeTestContext();
  zvtest::LogCapture quiet;  // refusals of the samples that do not fit log; none of it is the point here
  std::vector<std::string> unfit;
  for (const auto& entry : registry) {
    if (!avx && entry.first.find("_AVX_") != std::string::npos) continue;
    std::string mismatch;
    bool ran = false;
    for (const Sample& s : samples) {
      if ((ran = Fits(registry, entry.first, s, ctx, &mismatch))) break;
    }
    if (!ran) unfit.push_back(entry.first);
    EXPECT_EQ(mismatch, "") << entry.first;
  }
  std::string list;
  for (const std::string& n : unfit) list += " " + n;
  EXPECT_TRUE(unfit.empty()) << unfit.size() << " names fit no sample layer:" << list;
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
