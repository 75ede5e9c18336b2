#include "zelva/inc/zelva/kernel/kernel_param.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/log_capture.h"

namespace zelva {
namespace kernel {
namespace {

using runtime::Conv2dInfo;

// The convolution record is not in file order and holds two computed counts.
TEST(KernelParamTest, Conv2dWidensAndSplitsGroups) {
  auto info = std::make_shared<Conv2dInfo>();
  info->in_channels = 60000;  // beyond int16: widening must stay unsigned
  info->out_channels = 12;
  info->groups = 4;
  info->padding_l = 1;
  info->padding_t = 2;
  info->padding_r = 3;
  info->padding_b = 4;
  info->if_bias = true;
  const Conv2dParam p = ToParam(info);
  EXPECT_EQ(p.in_channels, 60000u);
  EXPECT_EQ(p.in_channels_per_group, 15000u);
  EXPECT_EQ(p.out_channels_per_group, 3u);
  EXPECT_EQ((std::vector<uint32_t>{p.padding_l, p.padding_t, p.padding_r, p.padding_b}),
            (std::vector<uint32_t>{1, 2, 3, 4}));
  EXPECT_EQ(p.if_bias, 1u);
  info->groups = 0;
  EXPECT_THROW(ToParam(info), std::runtime_error);
}

TEST(KernelParamTest, SignedFieldsStaySigned) {
  auto t = std::make_shared<runtime::ConvTranspose2dInfo>();
  t->groups = 1;
  t->padding_l = -2;
  EXPECT_EQ(ToParam(t).padding_l, -2);

  auto r = std::make_shared<runtime::TensorReshapeInfo>();
  r->new_shape = {1, -1, 32767};
  EXPECT_EQ(ToParam(r).new_shape, (std::vector<int32_t>{1, -1, 32767}));
}

TEST(KernelParamTest, ElementWiseNamesAndInvalidCode) {
  zvtest::LogCapture capture;
  auto info = std::make_shared<runtime::ElementWiseOperatorInfo>();
  const char* names[] = {"Add", "Sub", "Mul", "Div"};
  for (uint16_t code = 0; code < 4; ++code) {
    info->op_type = code;
    EXPECT_EQ(ToParam(info).op_name, names[code]);
  }
  EXPECT_TRUE(capture.lines().empty());
  info->op_type = 4;
  EXPECT_EQ(ToParam(info).op_name, "");
  ASSERT_EQ(capture.lines().size(), 1u);
  EXPECT_TRUE(zvtest::IsErrorLine(capture.Last(), "zelva::kernel::ToParam", "Invalid element wise type"));

  // The broadcast layer keeps its code and does not log.
  capture.Clear();
  auto b = std::make_shared<runtime::BroadcastOperatorInfo>();
  b->op_type = 5;
  const BroadcastOperatorParam bp = ToParam(b);
  EXPECT_EQ(bp.op_type, 5u);
  EXPECT_EQ(bp.op_name, "");
  EXPECT_TRUE(capture.lines().empty());
}

TEST(KernelParamTest, UpsampleModes) {
  zvtest::LogCapture capture;
  auto info = std::make_shared<runtime::Upsample2dInfo>();
  info->scale_factor_x = 2.0f;
  info->align_corner = true;
  const char* modes[] = {"Nearest", "Bilinear", "Bicubic"};
  for (uint16_t code = 0; code < 3; ++code) {
    info->unsample_type = code;
    const Upsample2dParam p = ToParam(info);
    EXPECT_EQ(p.mode, modes[code]);
    EXPECT_EQ(p.scale_factor_x, 2.0f);
    EXPECT_EQ(p.align_corner, 1u);
  }
  EXPECT_TRUE(capture.lines().empty());
  info->unsample_type = 3;
  EXPECT_EQ(ToParam(info).mode, "");
  ASSERT_EQ(capture.lines().size(), 1u);
  EXPECT_TRUE(zvtest::IsErrorLine(capture.Last(), "zelva::kernel::ToParam", "Invalid upsample2d type"));
}

TEST(KernelParamTest, HalfFieldsWidenToFloat) {
  auto info = std::make_shared<runtime::RNNInfo>();
  info->activation_alpha = runtime::half(0.5f);
  info->num_layers = 3;
  info->bidirectional = true;
  const RNNParam p = ToParam(info);
  EXPECT_EQ(p.activation_alpha, 0.5f);
  EXPECT_EQ(p.num_layers, 3u);
  EXPECT_EQ(p.bidirectional, 1u);

  std::shared_ptr<runtime::BatchNorm2dInfo> none;
  EXPECT_THROW(ToParam(none), std::runtime_error);
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
