#include "zelva/src/runtime/zvmodel2/model_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "support/log_capture.h"
#include "zelva/src/runtime/zvmodel2/field_visitors.h"

namespace zelva {
namespace runtime {
namespace {

using ::testing::HasSubstr;
using zvtest::FieldWalker;
using zvtest::Script;
using Strings = std::vector<std::string>;
using Types = std::vector<uint16_t>;

// The assertion's exception text and the lines it logged.
std::string FailureOf(const std::function<void()>& f) {
  zvtest::LogCapture log;
  try {
    f();
  } catch (const std::runtime_error& e) {
    std::string text = e.what();
    for (const std::string& line : log.lines()) text += " | " + line;
    return text;
  }
  return "<no failure>";
}

std::shared_ptr<LayerInfo> Layer(uint16_t type, const std::string& id, Strings inputs = {}) {
  auto layer = CreateLayerInfo(type);
  layer->id = id;
  layer->input_ids = std::move(inputs);
  return layer;
}

TEST(ModelInfo, RootWalkOrder) {
  ZVModelInfo model;
  model.AddLayer(Layer(kLayerInput, "in"));
  model.AddLayer(Layer(kLayerConv2d, "c", {"in"}));
  model.squential_output_ids = {"c"};
  auto walk = FieldWalker::Walk(model);
  EXPECT_EQ(walk->Fields(),
            "serializable_type:str squential_output_ids:vec<str> extra_info:object squential_ids:vec<str> "
            "squential_types:vec<u16> in:object c:object");
  EXPECT_EQ(walk->Value("serializable_type"), "'ZVModelInfo'");
  EXPECT_EQ(walk->Value("squential_types"), "[0,2,]");
  EXPECT_EQ(walk->Fields("extra_info/"),
            "serializable_type:str version:u32 app_type:u32 model_id:u32 model_base_h:u32 model_base_w:u32 "
            "fmlas:u64 time:object device:str summary:str");
  EXPECT_EQ(walk->Value("extra_info/serializable_type"), "'NetExtraInfo'");
  EXPECT_EQ(walk->Fields("extra_info/time/"),
            "serializable_type:str year:u32 moon:u32 day:u32 hour:u32 min:u32 sec:u32");
  EXPECT_EQ(walk->Value("extra_info/time/serializable_type"), "'TimeInfo'");
}

TEST(ModelInfo, ReadingMakesEachLayerOfItsListedKind) {
  ZVModelInfo model;
  const Script script = {{"squential_ids", Strings{"x", "gru", "x2", "fc"}},
                         {"squential_types", Types{0, 38, 0, 17}},
                         {"gru/id", std::string("gru")},
                         {"gru/hidden_size", uint16_t{256}}};
  FieldWalker::Walk(model, 20018, script);
  ASSERT_EQ(model.layers().size(), 4u);
  EXPECT_EQ(model.layers()[1].first, "gru");
  EXPECT_EQ(model.GetLayerInfoAs<GRUInfo>("gru")->hidden_size, 256);
  EXPECT_NE(model.GetLayerInfoAs<FullConnectionInfo>("fc"), nullptr);
  EXPECT_EQ(model.GetInputLayerIds(), (Strings{"x", "x2"}));
  EXPECT_EQ(model.FindLayerInfo("nope"), nullptr);
  EXPECT_THAT(FailureOf([&] { model.GetLayerInfo("nope"); }), HasSubstr("Layer [nope] not found in model."));
  EXPECT_THAT(FailureOf([&] { model.GetLayerInfoAs<Conv2dInfo>("gru"); }),
              HasSubstr("Layer [gru] is not of the expected kind."));

  // A second read into the same object keeps the descriptions it has.
  auto gru = model.GetLayerInfo("gru");
  FieldWalker::Walk(model, 20018, script);
  EXPECT_EQ(model.layers().size(), 4u);
  EXPECT_EQ(model.GetLayerInfo("gru"), gru);

  // A repeated id makes one description and visits it twice.
  ZVModelInfo repeated;
  auto walk = FieldWalker::Walk(repeated, 20018,
                                {{"squential_ids", Strings{"a", "a"}}, {"squential_types", Types{1, 1}}});
  EXPECT_EQ(repeated.layers().size(), 1u);
  EXPECT_THAT(walk->Fields(), ::testing::EndsWith("a:object a:object"));
}

TEST(ModelInfo, ListedTypeWinsOverStoredTypeWithWarning) {
  zvtest::LogCapture log;
  ZVModelInfo model;
  FieldWalker::Walk(
      model, 20018,
      {{"squential_ids", Strings{"a"}}, {"squential_types", Types{2}}, {"a/type", uint16_t{3}}});
  auto layer = model.GetLayerInfo("a");
  EXPECT_NE(std::dynamic_pointer_cast<Conv2dInfo>(layer), nullptr);
  EXPECT_EQ(layer->type, 2);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_THAT(log.lines()[0], HasSubstr("This ZVModelInfo may be a old vesion file, please verify it."));
}

TEST(ModelInfo, AddLayerRefusesDuplicatesAndRootKeys) {
  ZVModelInfo model;
  model.AddLayer(Layer(kLayerInput, "a"));
  EXPECT_THAT(FailureOf([&] { model.AddLayer(Layer(kLayerClip, "a")); }), HasSubstr("already in model"));
  EXPECT_THAT(FailureOf([&] { model.AddLayer(Layer(kLayerClip, "extra_info")); }), HasSubstr("collides"));
  EXPECT_THAT(FailureOf([&] { model.AddLayer(nullptr); }), HasSubstr("null layer"));
  EXPECT_EQ(model.squential_ids, Strings{"a"});
  EXPECT_EQ(model.squential_types, Types{0});
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
