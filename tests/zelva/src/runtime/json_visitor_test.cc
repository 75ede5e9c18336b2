#include "zelva/src/runtime/json_visitor.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "serialization_test_util.h"

namespace zelva {
namespace runtime {
namespace {

using testing_objects::FilledSample;
using testing_objects::Inner;
using testing_objects::LogCapture;
using testing_objects::Sample;
using testing_objects::TempPath;

// Constructor defaults differ from 0 on purpose: a missing number must read 0, not the default.
class Layerish : public Serializable {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override {
    Serializable::VisitAttr(visitor);
    visitor->Visit(name, "name");
    visitor->Visit(read_count, "read_count");
    visitor->Visit(if_bias, "if_bias");
    visitor->Visit(eps, "eps");
    visitor->Visit(groups, "groups");
    visitor->Visit(offset, "offset");
    visitor->Visit(mask, "mask");
    visitor->Visit(neg, "neg");
    visitor->Visit(small, "small");
    visitor->Visit(scale, "scale");
    visitor->Visit(h, "h");
    visitor->Visit(dims, "dims");
    visitor->Visit(letter, "letter");
    visitor->Visit(inner, "inner");
  }
  std::string name = "unset";
  uint32_t read_count = 5;
  bool if_bias = true;
  float eps = 1e-5f;
  uint16_t groups = 1;
  int64_t offset = 1;
  uint32_t mask = 1;
  uint16_t neg = 1;
  uint16_t small = 1;
  double scale = 2.0;
  half h = half(3.0f);
  std::vector<uint32_t> dims = {9, 9};
  char letter = 'x';
  Inner inner;
};

TEST(JSONNodeGetter, ReadsLaxly) {
  Layerish layer;
  layer.FromJsonString(R"({
      "serializable_type": "Whatever", "name": "conv", "if_bias": 1, "eps": 1, "groups": 1.5,
      "offset": 0.1, "mask": 0.1, "neg": -2, "small": 70000, "h": 1.0009, "dims": [1, 2.5, -1],
      "letter": "q", "unknown": {"deep": [1, 2]}, "another": "ignored"})");
  EXPECT_EQ(layer.serializable_type, "Whatever");  // stored as read, never compared
  EXPECT_EQ(layer.name, "conv");
  EXPECT_EQ(layer.read_count, 0u);  // missing: 0, not the constructor's 5
  EXPECT_FALSE(layer.if_bias);      // only the literal true is true
  EXPECT_EQ(layer.eps, 1.0f);       // floats accept integers
  EXPECT_EQ(layer.groups, 0);       // low 16 bits of the double 1.5 (0x3FF8000000000000)
  // 0.1 is the double 0x3FB999999999999A: integers take the low bytes of that pattern.
  EXPECT_EQ(static_cast<uint64_t>(layer.offset), 0x3FB999999999999Aull);
  EXPECT_EQ(layer.mask, 0x9999999Au);
  EXPECT_EQ(layer.neg, 0xFFFE);  // two's complement, cut to the width
  EXPECT_EQ(layer.small, 70000 & 0xFFFF);
  EXPECT_EQ(layer.scale, 0.0);        // missing
  EXPECT_EQ(layer.h.bits(), 0x3C00);  // 1.0009 truncates to 1.0
  EXPECT_EQ(layer.dims, (std::vector<uint32_t>{1, 0, 0xFFFFFFFFu}));
  EXPECT_EQ(layer.letter, 'q');
  EXPECT_EQ(layer.inner.count, 7);  // missing nested object: constructor values kept
  EXPECT_EQ(layer.inner.label, "inner");

  Layerish literal;
  literal.FromJsonString(R"({"serializable_type": "L", "name": "n", "if_bias": true, "dims": null})");
  EXPECT_TRUE(literal.if_bias);
  EXPECT_TRUE(literal.dims.empty());  // null or missing vectors come back empty
}

TEST(JSONNodeGetter, NestedObjects) {
  Layerish layer;
  layer.FromJsonString(R"({"serializable_type": "L", "name": "n", "inner": null})");
  EXPECT_EQ(layer.inner.count, 7);
  layer.FromJsonString(R"({"serializable_type": "L", "name": "n", "inner": {"serializable_type": "I",
                           "label": "x"}})");
  EXPECT_EQ(layer.inner.count, 0);
  EXPECT_EQ(layer.inner.label, "x");

  LogCapture log;
  EXPECT_THROW(layer.FromJsonString(R"({"serializable_type": "L", "name": "n", "inner": 5})"),
               std::runtime_error);
  EXPECT_TRUE(log.Contains("Created node is a unkown value."));
  // An array passes the kind test but has no members, so its required string is missing.
  EXPECT_THROW(layer.FromJsonString(R"({"serializable_type": "L", "name": "n", "inner": [1]})"),
               std::runtime_error);
  EXPECT_TRUE(log.Contains("missing string member \"serializable_type\"."));
}

TEST(JSONNodeGetter, StringsAreRequiredAndChecked) {
  Layerish layer;
  LogCapture log;
  EXPECT_THROW(layer.FromJsonString(R"({"serializable_type": "L", "read_count": 3})"), std::runtime_error);
  EXPECT_TRUE(log.Contains("missing string member \"name\"."));
  EXPECT_THROW(layer.FromJsonString(R"({"serializable_type": "L", "name": 3})"), std::runtime_error);
  EXPECT_TRUE(log.Contains("member \"name\" is not a string."));
  EXPECT_THROW(layer.FromJsonString(R"({"serializable_type": "L", "name": "n", "dims": 4})"),
               std::runtime_error);
  EXPECT_TRUE(log.Contains("member \"dims\" is not an array."));
  // Not an object at the root, or not JSON at all.
  EXPECT_THROW(layer.FromJsonString("[1, 2]"), std::runtime_error);
  EXPECT_THROW(layer.FromJsonString("{\"name\": "), std::runtime_error);
}

TEST(JSONNodeGetter, VersionRules) {
  Sample sample;
  sample.FromJsonString(R"({"serialization_protocol_version": 20003, "serializable_type": "S", "text": "t",
                            "inner": {"serializable_type": "I", "label": "l"}, "weights": "",
                            "gated": 12, "last": 2})");
  EXPECT_EQ(sample.gated, -5);  // gated at 20010: not read from a 20003 file
  EXPECT_EQ(sample.last, 2.0f);

  sample.FromJsonString(R"({"serializable_type": "S", "text": "t", "weights": "", "gated": 12})");
  EXPECT_EQ(sample.gated, 12);  // no version key: the current version

  LogCapture log;
  EXPECT_THROW(
      sample.FromJsonString(R"({"serialization_protocol_version": 20019, "serializable_type": "S"})"),
      std::runtime_error);
  EXPECT_TRUE(log.Contains("_serialization_protocol_version > __SERIALIZATION_PROTOCOL_VERSION__."));
}

TEST(JSONNodeSetter, WritesVersionFirstAndRoundTripsExactly) {
  const std::string path = TempPath("sample.json");
  Sample written = FilledSample();
  written.ToFile(path, "json");
  const std::string text = ReadJsonFile2StrStream(path).str();
  EXPECT_EQ(
      text.rfind("{\n    \"serialization_protocol_version\": 20018,\n    \"serializable_type\": \"Sample\",\n"
                 "    \"flag\": true,\n    \"letter\": \"Z\",\n",
                 0),
      0u)
      << text.substr(0, 200);
  Sample read;
  read.FromFile(path);
  testing_objects::ExpectSameSample(written, read);
  // Every float32 is exact as a double, so the text form loses nothing.
  for (float f : {0.1f, 1.0f / 3.0f, 1e-45f, 3.4028235e38f, -7.25e-12f}) {
    Sample one;
    one.last = f;
    const std::string p = TempPath("float.json");
    one.ToFile(p, "json");
    Sample back;
    back.FromFile(p);
    EXPECT_EQ(back.last, f);
  }
}

TEST(JsonNumbers, ZeroWithAnyExponentReadsZero) {
  // Found by fuzzing: the parser's exact-number path gave 0e304 the value 1.3e95. Zeros keep their sign.
  for (const char* zero : {"0e304", "-0.000E+300", "0.0e308", "0e-400", "0e0"}) {
    SCOPED_TRACE(zero);
    const std::string text = std::string(
                                 "{\"serializable_type\": \"Sample\", \"weights\": \"\", \"text\": \"0e304 "
                                 "\\\" 0e9\", \"f64\": ") +
                             zero + ", \"last\": 1e3, \"v_f32\": [" + zero + ", 2.5e-3]}";
    Sample s;
    s.FromJsonString(text);
    EXPECT_EQ(s.f64, 0.0);
    EXPECT_EQ(std::signbit(s.f64), zero[0] == '-');
    EXPECT_EQ(s.text, "0e304 \" 0e9");
    EXPECT_EQ(s.last, 1000.0f);
    EXPECT_EQ(s.v_f32, (std::vector<float>{0.0f, 2.5e-3f}));
    // The file route, parsed in place, agrees.
    const std::string path = TempPath("zero.json");
    testing_objects::WriteText(path, text);
    Sample f;
    f.FromFile(path);
    EXPECT_EQ(f.f64, 0.0);
    EXPECT_EQ(f.text, s.text);
  }
  // Far above the largest double (the exact-number path read past its power table here): infinity or a
  // refusal, never garbage. Large values that fit still read.
  Sample big;
  try {
    big.FromJsonString("{\"serializable_type\": \"S\", \"weights\": \"\", \"text\": \"\", \"f64\": " +
                       std::string(121, '1') + "e308}");
    EXPECT_TRUE(std::isinf(big.f64)) << big.f64;
  } catch (const std::runtime_error&) {
  }
  big.FromJsonString("{\"serializable_type\": \"S\", \"weights\": \"\", \"text\": \"\", \"f64\": 0.00" +
                     std::string(30, '1') + "e310}");
  EXPECT_DOUBLE_EQ(big.f64, 1.1111111111111111e307);
  // A long run of zeros before other digits (the exact-number path's leading-zero count went to zero).
  big.FromJsonString("{\"serializable_type\": \"S\", \"weights\": \"\", \"text\": \"\", \"f64\": 0." +
                     std::string(60, '0') + "12469e1}");
  EXPECT_DOUBLE_EQ(big.f64, 1.2469e-60);
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
