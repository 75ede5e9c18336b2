#include "zelva/inc/zelva/kernel/kernel_param.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/log_capture.h"

namespace zelva {
namespace kernel {
namespace {

// The convolution record holds two computed counts; narrow fields widen keeping their sign (or its absence).
TEST(KernelParamTest, WideningAndComputedCounts) {
  auto info = std::make_shared<runtime::Conv2dInfo>();
  info->in_channels = 60000;  // beyond int16: widening must stay unsigned
  info->out_channels = 12;
  info->groups = 4;
  info->padding_b = 4;
  const Conv2dParam p = ToParam(info);
  EXPECT_EQ(p.in_channels, 60000u);
  EXPECT_EQ(p.in_channels_per_group, 15000u);
  EXPECT_EQ(p.out_channels_per_group, 3u);
  EXPECT_EQ(p.padding_b, 4u);
  info->groups = 0;
  EXPECT_THROW(ToParam(info), std::runtime_error);
  EXPECT_THROW(ToParam(std::shared_ptr<runtime::BatchNorm2dInfo>()), std::runtime_error);

  auto t = std::make_shared<runtime::ConvTranspose2dInfo>();
  t->groups = 1;
  t->padding_l = -2;
  EXPECT_EQ(ToParam(t).padding_l, -2);
  auto r = std::make_shared<runtime::TensorReshapeInfo>();
  r->new_shape = {1, -1, 32767};
  EXPECT_EQ(ToParam(r).new_shape, (std::vector<int32_t>{1, -1, 32767}));
  auto rnn = std::make_shared<runtime::RNNInfo>();
  rnn->activation_alpha = runtime::half(0.5f);
  EXPECT_EQ(ToParam(rnn).activation_alpha, 0.5f);
}

// Codes become names; an unknown code leaves the name empty with an Error line, except for broadcast.
TEST(KernelParamTest, OperatorAndUpsampleNames) {
  zvtest::LogCapture capture;
  auto op = std::make_shared<runtime::ElementWiseOperatorInfo>();
  auto broadcast = std::make_shared<runtime::BroadcastOperatorInfo>();
  const char* names[] = {"Add", "Sub", "Mul", "Div", ""};
  for (uint16_t code = 0; code < 5; ++code) {
    op->op_type = broadcast->op_type = code;
    EXPECT_EQ(ToParam(op).op_name, names[code]);
    EXPECT_EQ(ToParam(broadcast).op_name, names[code]);
    EXPECT_EQ(ToParam(broadcast).op_type, code);
  }
  ASSERT_EQ(capture.lines().size(), 1u);
  EXPECT_TRUE(zvtest::IsErrorLine(capture.Last(), "zelva::kernel::ToParam", "Invalid element wise type"));

  capture.Clear();
  auto up = std::make_shared<runtime::Upsample2dInfo>();
  const char* modes[] = {"Nearest", "Bilinear", "Bicubic", ""};
  for (uint16_t code = 0; code < 4; ++code) {
    up->unsample_type = code;
    EXPECT_EQ(ToParam(up).mode, modes[code]);
  }
  ASSERT_EQ(capture.lines().size(), 1u);
  EXPECT_TRUE(zvtest::IsErrorLine(capture.Last(), "zelva::kernel::ToParam", "Invalid upsample2d type"));
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
