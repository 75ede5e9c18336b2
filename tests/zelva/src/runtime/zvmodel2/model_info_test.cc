#include "zelva/src/runtime/zvmodel2/model_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "../serialization_test_util.h"
#include "zelva/src/runtime/zvmodel2/script_visitor.h"

namespace zelva {
namespace runtime {
namespace {

using ::testing::HasSubstr;
using testing_objects::LogCapture;
using zvtest::ScriptVisitor;
using zvtest::Visited;
using Script = std::map<std::string, std::any>;
using Strings = std::vector<std::string>;
using Types = std::vector<uint16_t>;

// The assertion's exception text and the line it delivered to the log.
std::string FailureOf(const std::function<void()>& f) {
  LogCapture log;
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

  auto v = ScriptVisitor::Walk(model);
  const std::vector<Visited> root = {{"str", "serializable_type"},
                                     {"vec<str>", "squential_output_ids"},
                                     {"object", "extra_info"},
                                     {"vec<str>", "squential_ids"},
                                     {"vec<u16>", "squential_types"},
                                     {"object", "in"},
                                     {"object", "c"}};
  EXPECT_EQ(v->Level(), root);
  EXPECT_EQ(v->Seen<std::string>("serializable_type"), "ZVModelInfo");
  EXPECT_EQ(v->Seen<Strings>("squential_ids"), (Strings{"in", "c"}));
  EXPECT_EQ(v->Seen<Types>("squential_types"), (Types{0, 2}));

  const std::vector<Visited> extra = {{"str", "serializable_type"},
                                      {"u32", "version"},
                                      {"u32", "app_type"},
                                      {"u32", "model_id"},
                                      {"u32", "model_base_h"},
                                      {"u32", "model_base_w"},
                                      {"u64", "fmlas"},
                                      {"object", "time"},
                                      {"str", "device"},
                                      {"str", "summary"}};
  EXPECT_EQ(v->Level("extra_info/"), extra);
  EXPECT_EQ(v->Seen<std::string>("extra_info/serializable_type"), "NetExtraInfo");
  const std::vector<Visited> time = {{"str", "serializable_type"},
                                     {"u32", "year"},
                                     {"u32", "moon"},
                                     {"u32", "day"},
                                     {"u32", "hour"},
                                     {"u32", "min"},
                                     {"u32", "sec"}};
  EXPECT_EQ(v->Level("extra_info/time/"), time);
  EXPECT_EQ(v->Seen<std::string>("extra_info/time/serializable_type"), "TimeInfo");

  EXPECT_EQ(v->Seen<std::string>("c/serializable_type"), "Conv2dInfo");
  EXPECT_EQ(v->Seen<Strings>("c/input_ids"), Strings{"in"});
}

TEST(ModelInfo, ExtraInfoVersionGates) {
  NetExtraInfo extra;

  // Before 20007 "fmlas" is 32 bits wide and widened into the field.
  auto v = ScriptVisitor::Walk(extra, 20006, {{"fmlas", std::any(uint32_t{0xFFFFFFFFu})}});
  EXPECT_EQ(v->Level()[6], (Visited{"u32", "fmlas"}));
  EXPECT_EQ(extra.fmlas, 0xFFFFFFFFull);
  v = ScriptVisitor::Walk(extra, 20007, {{"fmlas", std::any(uint64_t{1ull << 40})}});
  EXPECT_EQ(v->Level()[6], (Visited{"u64", "fmlas"}));
  EXPECT_EQ(extra.fmlas, 1ull << 40);

  // "summary" from 20004 on.
  v = ScriptVisitor::Walk(extra, 20003, {{"summary", std::any(std::string("s"))}});
  EXPECT_EQ(v->Level().back(), (Visited{"str", "device"}));
  EXPECT_EQ(extra.summary, "");
  v = ScriptVisitor::Walk(extra, 20004, {{"summary", std::any(std::string("s"))}});
  EXPECT_EQ(v->Level().back(), (Visited{"str", "summary"}));
  EXPECT_EQ(extra.summary, "s");
}

TEST(ModelInfo, ReadingMakesEachLayerOfItsListedKind) {
  ZVModelInfo model;
  const Script script = {{"squential_ids", std::any(Strings{"x", "gru", "x2", "fc"})},
                         {"squential_types", std::any(Types{0, 38, 0, 17})},
                         {"squential_output_ids", std::any(Strings{"fc"})},
                         {"gru/id", std::any(std::string("gru"))},
                         {"gru/hidden_size", std::any(uint16_t{256})},
                         {"extra_info/model_base_w", std::any(uint32_t{80})}};
  ScriptVisitor::Walk(model, 20018, script);

  ASSERT_EQ(model.layers().size(), 4u);
  EXPECT_EQ(model.layers()[1].first, "gru");
  EXPECT_EQ(model.GetLayerInfoAs<GRUInfo>("gru")->hidden_size, 256);
  EXPECT_NE(model.GetLayerInfoAs<FullConnectionInfo>("fc"), nullptr);
  EXPECT_EQ(model.GetLayerInfo("x")->type, kLayerInput);
  EXPECT_EQ(model.GetInputLayerIds(), (Strings{"x", "x2"}));
  EXPECT_EQ(model.squential_output_ids, Strings{"fc"});
  EXPECT_EQ(model.extra_info.model_base_w, 80u);

  EXPECT_EQ(model.FindLayerInfo("nope"), nullptr);
  EXPECT_THAT(FailureOf([&] { model.GetLayerInfo("nope"); }), HasSubstr("Layer [nope] not found in model."));
  EXPECT_THAT(FailureOf([&] { model.GetLayerInfoAs<Conv2dInfo>("gru"); }),
              HasSubstr("Layer [gru] is not of the expected kind."));

  // A second read into the same object keeps the descriptions it has.
  auto gru = model.GetLayerInfo("gru");
  ScriptVisitor::Walk(model, 20018, script);
  EXPECT_EQ(model.layers().size(), 4u);
  EXPECT_EQ(model.GetLayerInfo("gru"), gru);
}

TEST(ModelInfo, WalkFailures) {
  auto read = [](Script script, uint32_t version = 20018) {
    return FailureOf([&] {
      ZVModelInfo model;
      ScriptVisitor::Walk(model, version, script);
    });
  };
  EXPECT_THAT(read({{"squential_ids", std::any(Strings{"a", "b"})}, {"squential_types", std::any(Types{0})}}),
              HasSubstr("Length of layer id and type mismatch."));
  EXPECT_THAT(read({{"squential_ids", std::any(Strings{"a"})}, {"squential_types", std::any(Types{0xFFFF})}}),
              HasSubstr("Unknow Layer Type."));
  EXPECT_THAT(read({{"squential_ids", std::any(Strings{"a"})}, {"squential_types", std::any(Types{4})}}),
              HasSubstr("Unsupported Layer Type [4]."));
  EXPECT_THAT(read({}, 20019),
              HasSubstr("_serialization_protocol_version > __SERIALIZATION_PROTOCOL_VERSION__."));
  EXPECT_EQ(read({}, 20018), "<no failure>");  // no layers at all
}

TEST(ModelInfo, ListedTypeWinsOverStoredTypeWithWarning) {
  LogCapture log;
  ZVModelInfo model;
  ScriptVisitor::Walk(model, 20018,
                      {{"squential_ids", std::any(Strings{"a"})},
                       {"squential_types", std::any(Types{2})},
                       {"a/type", std::any(uint16_t{3})}});
  auto layer = model.GetLayerInfo("a");
  EXPECT_NE(std::dynamic_pointer_cast<Conv2dInfo>(layer), nullptr);
  EXPECT_EQ(layer->type, 2);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_THAT(log.lines()[0], HasSubstr("This ZVModelInfo may be a old vesion file, please verify it."));
}

TEST(ModelInfo, RepeatedIdVisitsOneDescriptionTwice) {
  ZVModelInfo model;
  auto v = ScriptVisitor::Walk(
      model, 20018,
      {{"squential_ids", std::any(Strings{"a", "a"})}, {"squential_types", std::any(Types{1, 1})}});
  EXPECT_EQ(model.layers().size(), 1u);
  const auto root = v->Level();
  EXPECT_EQ(root[root.size() - 2], (Visited{"object", "a"}));
  EXPECT_EQ(root.back(), (Visited{"object", "a"}));
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
