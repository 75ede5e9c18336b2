#include "zelva/src/runtime/zvmodel2/model_cfg.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "zelva/src/runtime/zvmodel2/script_visitor.h"

namespace zelva {
namespace runtime {
namespace {

using zvtest::Parse;
using zvtest::ScriptVisitor;
using zvtest::Visited;
using Script = std::map<std::string, std::any>;
using Strings = std::vector<std::string>;

// Written out by hand, in the factory's order, each with its fields after "serializable_type".
const std::pair<const char*, const char*> kParams[] = {
    {"InferenceParamActQuant", "output_step_size:i16"},
    {"InferenceParamFullConnectionQuant", "weight_step_size:i16 output_step_size:i16"},
    {"InferenceParamUpsampling2DQuant", "output_step_size:i16"},
    {"InferenceParamConv2DQuant", "weight_step_size:i16 output_step_size:i16"},
    {"InferenceParamOpenGLCompute", "local_x:u32 local_y:u32 local_z:u32"},
    {"InferenceParamConv2DOpenGLCompute",
     "local_x:u32 local_y:u32 local_z:u32 activation:str activation_type:i32 activation_alpha:half "
     "activation_beta:half num_parameters:i16 weight:str"},
    {"InferenceParamConvTranspose2DOpenGLCompute",
     "local_x:u32 local_y:u32 local_z:u32 activation:str activation_type:i32 activation_alpha:half "
     "activation_beta:half num_parameters:i16 weight:str"},
    {"InferenceParamElementwiseOpenGLCompute",
     "local_x:u32 local_y:u32 local_z:u32 activation:str activation_type:i32 activation_alpha:half "
     "activation_beta:half num_parameters:i16 weight:str"},
    {"InferenceParamConcatOpenGLCompute", "local_x:u32 local_y:u32 local_z:u32"},
    {"InferenceParamPixelShuffleOpenGLCompute", "local_x:u32 local_y:u32 local_z:u32"},
    {"InferenceParamPooling2DOpenGLCompute", "local_x:u32 local_y:u32 local_z:u32"},
    {"InferenceParamFullConnectionOpenGLCompute", "local_x:u32 local_y:u32 local_z:u32"},
    {"InferenceParamTensorReshapeOpenGLCompute", "local_x:u32 local_y:u32 local_z:u32"},
    {"InferenceParamTensorExpandOpenGLCompute", "local_x:u32 local_y:u32 local_z:u32"},
    {"InferenceParamBroadcastOpenGLCompute", "local_x:u32 local_y:u32 local_z:u32"},
    {"InferenceParamActivationOpenGLCompute",
     "local_x:u32 local_y:u32 local_z:u32 activation:str activation_type:i32 activation_alpha:half "
     "activation_beta:half num_parameters:i16 weight:str"},
    {"InferenceParamUpsampling2DOpenGLCompute", "local_x:u32 local_y:u32 local_z:u32"},
    {"InferenceParamBatchnorm2dOpenGLCompute",
     "local_x:u32 local_y:u32 local_z:u32 activation:str activation_type:i32 activation_alpha:half "
     "activation_beta:half num_parameters:i16 weight:str"},
    {"InferenceParamLuaCustomMetalCompute", "lua_script:str mtl_shader:str"},
    {"InferenceParamMetalComputeFusedActivation",
     "activation:str activation_type:i32 activation_alpha:f32 activation_beta:f32"},
    {"InferenceParamConv2dMetalCompute",
     "activation:str activation_type:i32 activation_alpha:f32 activation_beta:f32"},
    {"InferenceParamElementwiseMetalCompute",
     "activation:str activation_type:i32 activation_alpha:f32 activation_beta:f32"},
    {"InferenceParamConcatenateMetalCompute",
     "activation:str activation_type:i32 activation_alpha:f32 activation_beta:f32"},
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
    EXPECT_EQ(made->GetTypeName(), param.first);
    std::vector<Visited> expected = Parse(std::string("serializable_type:str ") + param.second);
    EXPECT_EQ(ScriptVisitor::Walk(*made)->visits, expected);
  }
  EXPECT_EQ(InferenceParamTypeNames(), order);
  EXPECT_EQ(CreateInferenceParam(""), nullptr);
  EXPECT_EQ(CreateInferenceParam("InferenceParam"), nullptr);
  EXPECT_EQ(CreateInferenceParam("InferenceParamActquant"), nullptr);
}

TEST(KernelCfg, ParameterOnlyWhenAKnownClassIsNamed) {
  KernelCfg plain;
  plain.kernel_type = "Conv2d_X";
  auto v = ScriptVisitor::Walk(plain);
  EXPECT_EQ(v->visits, Parse("serializable_type:str kernel_type:str infer_param_type:str"));
  EXPECT_EQ(plain.infer_param, nullptr);

  // Reading: the named class is made and filled from "infer_param".
  KernelCfg quant;
  v = ScriptVisitor::Walk(quant, 20018,
                          {{"infer_param_type", std::any(std::string("InferenceParamConv2DQuant"))},
                           {"infer_param/weight_step_size", std::any(int16_t{-3})}});
  auto param = std::dynamic_pointer_cast<InferenceParamConv2DQuant>(quant.infer_param);
  ASSERT_NE(param, nullptr);
  EXPECT_EQ(param->weight_step_size, -3);
  EXPECT_EQ(v->Level(),
            Parse("serializable_type:str kernel_type:str infer_param_type:str infer_param:object"));
  EXPECT_EQ(v->Seen<std::string>("infer_param/serializable_type"), "InferenceParamConv2DQuant");

  // An existing parameter is kept across walks, whatever the name says afterwards.
  ScriptVisitor::Walk(quant, 20018, {{"infer_param_type", std::any(std::string("InferenceParamActQuant"))}});
  EXPECT_EQ(quant.infer_param, param);

  // A misspelled class reads as no parameter, silently.
  KernelCfg misspelled;
  v = ScriptVisitor::Walk(misspelled, 20018,
                          {{"infer_param_type", std::any(std::string("InferenceParamConv2dQuant"))}});
  EXPECT_EQ(misspelled.infer_param, nullptr);
  EXPECT_EQ(v->visits.size(), 3u);
}

TEST(KernelCfgArr, EntriesFollowTheIdListNotTheMapOrder) {
  KernelCfgArr arr;
  auto v = ScriptVisitor::Walk(arr, 20018,
                               {{"kernel_ids", std::any(Strings{"1", "0", "1"})},
                                {"1/kernel_type", std::any(std::string("LayoutTransform_A"))},
                                {"0/kernel_type", std::any(std::string("LayoutTransform_B"))}});
  EXPECT_EQ(v->Level(), Parse("serializable_type:str kernel_ids:vec<str> 1:object 0:object 1:object"));
  EXPECT_EQ(v->Seen<std::string>("0/serializable_type"), "KernelCfg");
  ASSERT_EQ(arr.kernel_cfgs.size(), 2u);
  EXPECT_EQ(arr.FindKernelCfg("1")->kernel_type, "LayoutTransform_A");
  EXPECT_EQ(arr.FindKernelCfg("0")->kernel_type, "LayoutTransform_B");
  EXPECT_EQ(arr.FindKernelCfg("2"), nullptr);
  EXPECT_EQ(arr.kernel_ids, (Strings{"1", "0", "1"}));
}

TEST(ModelCfg, LayerEntriesAndLookups) {
  ZVModelCfg cfg;
  const Script script = {{"summary", std::any(std::string("sse"))},
                         {"squential_ids", std::any(Strings{"b", "a"})},
                         {"a/kernel/kernel_type", std::any(std::string("Input_Fallback_M1"))},
                         {"b/input_converters/kernel_ids", std::any(Strings{"0"})},
                         {"b/input_converters/0/kernel_type", std::any(std::string("T"))}};
  auto v = ScriptVisitor::Walk(cfg, 20018, script);
  EXPECT_EQ(v->Level(), Parse("serializable_type:str summary:str squential_ids:vec<str> b:object a:object"));
  EXPECT_EQ(v->Level("a/"), Parse("serializable_type:str summary:str input_converters:object kernel:object "
                                  "output_converters:object"));
  EXPECT_EQ(v->Seen<std::string>("a/serializable_type"), "LayerCfg");
  EXPECT_EQ(v->Seen<std::string>("a/input_converters/serializable_type"), "KernelCfgArr");

  EXPECT_EQ(cfg.summary, "sse");
  EXPECT_EQ(cfg.GetLayerCfg("a")->kernel->kernel_type, "Input_Fallback_M1");
  EXPECT_EQ(cfg.GetLayerCfg("b")->input_converters->FindKernelCfg("0")->kernel_type, "T");
  EXPECT_TRUE(cfg.GetLayerCfg("a")->output_converters->kernel_ids.empty());
  EXPECT_EQ(cfg.FindLayerCfg("c"), nullptr);
  EXPECT_THROW(cfg.GetLayerCfg("c"), std::runtime_error);
  EXPECT_EQ(cfg.layer_cfgs.size(), 2u);  // a failed lookup adds nothing
}

TEST(MultiBackendCfgs, EightBackendsFrom20008) {
  ZVModelMultiBackendCfgs all;
  for (const auto* backend : {&all.cpu_sse, &all.cpu_avx, &all.cpu_armv7, &all.cpu_armv8, &all.gpu_opengl,
                              &all.gpu_metal, &all.gpu_cuda, &all.cpu_armv82}) {
    ASSERT_NE(*backend, nullptr);
    EXPECT_TRUE((*backend)->squential_ids.empty());
  }
  const std::string seven =
      "serializable_type:str cpu_sse:object cpu_avx:object cpu_armv7:object cpu_armv8:object "
      "gpu_opengl:object "
      "gpu_metal:object gpu_cuda:object";
  EXPECT_EQ(ScriptVisitor::Walk(all, 20007)->Level(), Parse(seven));
  auto v = ScriptVisitor::Walk(all, 20008, {{"cpu_sse/squential_ids", std::any(Strings{"x"})}});
  EXPECT_EQ(v->Level(), Parse(seven + " cpu_armv82:object"));
  EXPECT_EQ(v->Seen<std::string>("serializable_type"), "ZVModelMultiBackendCfgs");
  EXPECT_EQ(v->Seen<std::string>("gpu_cuda/serializable_type"), "ZVModelCfg");
  EXPECT_EQ(all.cpu_sse->squential_ids, Strings{"x"});
  EXPECT_NE(all.cpu_sse->FindLayerCfg("x"), nullptr);
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
