#include "zelva/src/runtime/zvmodel2/model_cfg.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "zelva/src/runtime/zvmodel2/field_visitors.h"

namespace zelva {
namespace runtime {
namespace {

using zvtest::FieldWalker;
using zvtest::Script;
using Strings = std::vector<std::string>;

// Every parameter class, written out by hand in the factory's order, with its fields after
// "serializable_type".
const std::string kGL = "local_x:u32 local_y:u32 local_z:u32";
const std::string kGLAct = kGL +
                           " activation:str activation_type:i32 activation_alpha:half activation_beta:half "
                           "num_parameters:i16 weight:str";
const std::string kMetalAct = "activation:str activation_type:i32 activation_alpha:f32 activation_beta:f32";
const std::pair<const char*, std::string> kParams[] = {
    {"InferenceParamActQuant", "output_step_size:i16"},
    {"InferenceParamFullConnectionQuant", "weight_step_size:i16 output_step_size:i16"},
    {"InferenceParamUpsampling2DQuant", "output_step_size:i16"},
    {"InferenceParamConv2DQuant", "weight_step_size:i16 output_step_size:i16"},
    {"InferenceParamOpenGLCompute", kGL},
    {"InferenceParamConv2DOpenGLCompute", kGLAct},
    {"InferenceParamConvTranspose2DOpenGLCompute", kGLAct},
    {"InferenceParamElementwiseOpenGLCompute", kGLAct},
    {"InferenceParamConcatOpenGLCompute", kGL},
    {"InferenceParamPixelShuffleOpenGLCompute", kGL},
    {"InferenceParamPooling2DOpenGLCompute", kGL},
    {"InferenceParamFullConnectionOpenGLCompute", kGL},
    {"InferenceParamTensorReshapeOpenGLCompute", kGL},
    {"InferenceParamTensorExpandOpenGLCompute", kGL},
    {"InferenceParamBroadcastOpenGLCompute", kGL},
    {"InferenceParamActivationOpenGLCompute", kGLAct},
    {"InferenceParamUpsampling2DOpenGLCompute", kGL},
    {"InferenceParamBatchnorm2dOpenGLCompute", kGLAct},
    {"InferenceParamLuaCustomMetalCompute", "lua_script:str mtl_shader:str"},
    {"InferenceParamMetalComputeFusedActivation", kMetalAct},
    {"InferenceParamConv2dMetalCompute", kMetalAct},
    {"InferenceParamElementwiseMetalCompute", kMetalAct},
    {"InferenceParamConcatenateMetalCompute", kMetalAct},
    {"InferenceParamMetalComputeCommon",
     "lua_script:str mtl_shader:str write_slice_offset:u32 activation_type:u32 activation_alpha:f32 "
     "activation_beta:f32"},
};

TEST(InferenceParam, FactoryKnowsTheClassesInOrderWithTheirFields) {
  Strings order;
  for (const auto& param : kParams) {
    SCOPED_TRACE(param.first);
    order.push_back(param.first);
    auto made = CreateInferenceParam(param.first);
    ASSERT_NE(made, nullptr);
    auto walk = FieldWalker::Walk(*made);
    EXPECT_EQ(walk->Fields(), "serializable_type:str " + param.second);
    EXPECT_EQ(walk->Value("serializable_type"), "'" + std::string(param.first) + "'");
  }
  EXPECT_EQ(InferenceParamTypeNames(), order);
  for (const char* unknown : {"", "InferenceParam", "InferenceParamActquant"})
    EXPECT_EQ(CreateInferenceParam(unknown), nullptr);
}

TEST(KernelCfg, ParameterOnlyWhenAKnownClassIsNamed) {
  KernelCfg plain;
  EXPECT_EQ(FieldWalker::Walk(plain)->Fields(), "serializable_type:str kernel_type:str infer_param_type:str");
  EXPECT_EQ(plain.infer_param, nullptr);

  // Reading: the named class is made and filled from "infer_param".
  KernelCfg quant;
  auto walk = FieldWalker::Walk(quant, 20018,
                                {{"infer_param_type", std::string("InferenceParamConv2DQuant")},
                                 {"infer_param/weight_step_size", int16_t{-3}}});
  auto param = std::dynamic_pointer_cast<InferenceParamConv2DQuant>(quant.infer_param);
  ASSERT_NE(param, nullptr);
  EXPECT_EQ(param->weight_step_size, -3);
  EXPECT_EQ(walk->Fields(), "serializable_type:str kernel_type:str infer_param_type:str infer_param:object");

  // An existing parameter is kept across walks, whatever the name says afterwards.
  FieldWalker::Walk(quant, 20018, {{"infer_param_type", std::string("InferenceParamActQuant")}});
  EXPECT_EQ(quant.infer_param, param);

  // A misspelled class reads as no parameter, silently.
  KernelCfg misspelled;
  FieldWalker::Walk(misspelled, 20018, {{"infer_param_type", std::string("InferenceParamConv2dQuant")}});
  EXPECT_EQ(misspelled.infer_param, nullptr);
}

TEST(ModelCfg, EntriesFollowTheIdListsAndLookups) {
  KernelCfgArr arr;
  auto walk = FieldWalker::Walk(arr, 20018,
                                {{"kernel_ids", Strings{"1", "0", "1"}},
                                 {"1/kernel_type", std::string("LayoutTransform_A")},
                                 {"0/kernel_type", std::string("LayoutTransform_B")}});
  EXPECT_EQ(walk->Fields(), "serializable_type:str kernel_ids:vec<str> 1:object 0:object 1:object");
  EXPECT_EQ(walk->Value("0/serializable_type"), "'KernelCfg'");
  ASSERT_EQ(arr.kernel_cfgs.size(), 2u);
  EXPECT_EQ(arr.FindKernelCfg("1")->kernel_type, "LayoutTransform_A");
  EXPECT_EQ(arr.FindKernelCfg("2"), nullptr);

  ZVModelCfg cfg;
  walk = FieldWalker::Walk(cfg, 20018,
                           {{"squential_ids", Strings{"b", "a"}},
                            {"a/kernel/kernel_type", std::string("Input_Fallback_M1")},
                            {"b/input_converters/kernel_ids", Strings{"0"}},
                            {"b/input_converters/0/kernel_type", std::string("T")}});
  EXPECT_EQ(walk->Fields(), "serializable_type:str summary:str squential_ids:vec<str> b:object a:object");
  EXPECT_EQ(
      walk->Fields("a/"),
      "serializable_type:str summary:str input_converters:object kernel:object output_converters:object");
  EXPECT_EQ(walk->Value("a/serializable_type"), "'LayerCfg'");
  EXPECT_EQ(walk->Value("a/input_converters/serializable_type"), "'KernelCfgArr'");
  EXPECT_EQ(cfg.GetLayerCfg("a")->kernel->kernel_type, "Input_Fallback_M1");
  EXPECT_EQ(cfg.GetLayerCfg("b")->input_converters->FindKernelCfg("0")->kernel_type, "T");
  EXPECT_EQ(cfg.FindLayerCfg("c"), nullptr);
  EXPECT_THROW(cfg.GetLayerCfg("c"), std::runtime_error);
  EXPECT_EQ(cfg.layer_cfgs.size(), 2u);  // a failed lookup adds nothing

  // Seven backends up to protocol 20007, the eighth from 20008 on.
  ZVModelMultiBackendCfgs all;
  const std::string seven =
      "serializable_type:str cpu_sse:object cpu_avx:object cpu_armv7:object cpu_armv8:object "
      "gpu_opengl:object "
      "gpu_metal:object gpu_cuda:object";
  EXPECT_EQ(FieldWalker::Walk(all, 20007)->Fields(), seven);
  walk = FieldWalker::Walk(all, 20008);
  EXPECT_EQ(walk->Fields(), seven + " cpu_armv82:object");
  EXPECT_EQ(walk->Value("serializable_type"), "'ZVModelMultiBackendCfgs'");
  EXPECT_EQ(walk->Value("gpu_cuda/serializable_type"), "'ZVModelCfg'");
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
