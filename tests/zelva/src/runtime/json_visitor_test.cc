#include "zelva/src/runtime/json_visitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "serialization_test_util.h"
#include "support/log_capture.h"

namespace zelva {
namespace runtime {
namespace {

using testing_objects::FilledSample;
using testing_objects::Sample;
using testing_objects::TempPath;
using zvtest::FieldWalker;

TEST(JSONNodeGetter, ReadsLaxly) {
  Sample s = FilledSample();  // every field away from zero, so that a missing number must read 0
  testing_objects::Inner inner = s.inner;
  s.FromJsonString(R"({
      "serializable_type": "Whatever", "text": "conv", "weights": "", "flag": 1, "last": 1, "u16": 1.5,
      "i64": 0.1, "u32": 0.1, "v_u16": [70000, -2], "f16": 1.0009, "v_u32": [1, 2.5, -1], "letter": "q",
      "unknown": {"deep": [1, 2]}, "another": "ignored"})");
  EXPECT_EQ(s.serializable_type, "Whatever");  // stored as read, never compared
  EXPECT_EQ(s.text, "conv");
  EXPECT_EQ(s.i32, 0);      // missing: 0, not what the object held
  EXPECT_EQ(s.f64, 0.0);    // missing
  EXPECT_FALSE(s.flag);     // only the literal true is true
  EXPECT_EQ(s.last, 1.0f);  // floats accept integers
  EXPECT_EQ(s.u16, 0);      // low 16 bits of the double 1.5 (0x3FF8000000000000)
  // 0.1 is the double 0x3FB999999999999A: integers take the low bytes of that pattern.
  EXPECT_EQ(static_cast<uint64_t>(s.i64), 0x3FB999999999999Aull);
  EXPECT_EQ(s.u32, 0x9999999Au);
  EXPECT_EQ(s.v_u16, (std::vector<uint16_t>{70000 & 0xFFFF, 0xFFFE}));  // two's complement, cut to the width
  EXPECT_EQ(s.f16.bits(), 0x3C00);                                      // 1.0009 truncates to 1.0
  EXPECT_EQ(s.v_u32, (std::vector<uint32_t>{1, 0, 0xFFFFFFFFu}));
  EXPECT_EQ(s.letter, 'q');
  EXPECT_TRUE(s.v_str.empty());  // missing vectors come back empty
  EXPECT_EQ(FieldWalker::Record(s.inner), FieldWalker::Record(inner));

  // The literal true; null vectors and objects as if missing; an object present but partial reads 0s.
  s.FromJsonString(R"({"serializable_type": "S", "text": "", "weights": "", "flag": true, "v_u32": null,
                       "inner": {"serializable_type": "I", "label": "x"}})");
  EXPECT_TRUE(s.flag);
  EXPECT_TRUE(s.v_u32.empty());
  EXPECT_EQ(s.inner.count, 0);
  EXPECT_EQ(s.inner.label, "x");
  s.FromJsonString(R"({"serializable_type": "S", "text": "", "weights": "", "inner": null})");
  EXPECT_EQ(s.inner.label, "x");
}

TEST(JSONNodeGetter, RefusalsNameTheMember) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"serializable_type": "S", "weights": "", "i32": 3})", "missing string member \"text\"."},
      {R"({"serializable_type": "S", "weights": "", "text": 3})", "member \"text\" is not a string."},
      {R"({"serializable_type": "S", "weights": "", "text": "", "v_u32": 4})",
       "member \"v_u32\" is not an array."},
      {R"({"serializable_type": "S", "weights": "", "text": "", "inner": 5})",
       "Created node is a unkown value."},
      // An array passes the kind test but has no members, so its required string is missing.
      {R"({"serializable_type": "S", "weights": "", "text": "", "inner": [1]})",
       "missing string member \"serializable_type\"."},
      {R"({"serialization_protocol_version": 20019, "serializable_type": "S"})",
       "_serialization_protocol_version > __SERIALIZATION_PROTOCOL_VERSION__."},
      {"[1, 2]", "Assert Failed"},  // not an object at the root
      {"{\"text\": ", "JSON parse error in the given text"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.first);
    zvtest::LogCapture log;
    std::string what = "<no failure>";
    try {
      Sample().FromJsonString(c.first);
    } catch (const std::runtime_error& e) {
      what = e.what();  // the assertion's text; its line, when it has a message, goes to the log
    }
    EXPECT_THAT(what + log.Last(), ::testing::HasSubstr(c.second));
  }
}

TEST(JSONNodeGetter, FieldsGatedByTheFilesVersion) {
  Sample s;
  s.FromJsonString(R"({"serialization_protocol_version": 20003, "serializable_type": "S", "text": "t",
                       "inner": {"serializable_type": "I", "label": "l"}, "weights": "", "gated": 12, "last": 2})");
  EXPECT_EQ(s.gated, -5);  // gated at 20010: not read from a 20003 file
  EXPECT_EQ(s.last, 2.0f);
  s.FromJsonString(R"({"serializable_type": "S", "text": "t", "weights": "", "gated": 12})");
  EXPECT_EQ(s.gated, 12);  // no version key: the current version
}

TEST(JSONNodeSetter, WritesVersionFirstWithFourSpaceIndent) {
  const std::string path = TempPath("sample.json");
  Sample s;
  s.letter = 'Z';
  s.ToFile(path, "json");
  EXPECT_EQ(ReadJsonFile2StrStream(path).str().rfind(
                "{\n    \"serialization_protocol_version\": 20018,\n    \"serializable_type\": \"Sample\",\n"
                "    \"flag\": false,\n    \"letter\": \"Z\",\n",
                0),
            0u);
}

TEST(JsonNumbers, ZeroWithAnyExponentReadsZero) {
  // Found by fuzzing: the parser's exact-number path gave 0e304 the value 1.3e95. Zeros keep their sign.
  for (const char* zero : {"0e304", "-0.000E+300", "0.0e308", "0e-400", "0e0"}) {
    SCOPED_TRACE(zero);
    const std::string text =
        std::string(R"({"serializable_type": "Sample", "weights": "", "text": "0e304 \" 0e9", "f64": )") +
        zero + ", \"last\": 1e3, \"v_f32\": [" + zero + ", 2.5e-3]}";
    Sample s, f;
    s.FromJsonString(text);
    EXPECT_EQ(s.f64, 0.0);
    EXPECT_EQ(std::signbit(s.f64), zero[0] == '-');
    EXPECT_EQ(s.text, "0e304 \" 0e9");
    EXPECT_EQ(s.last, 1000.0f);
    EXPECT_EQ(s.v_f32, (std::vector<float>{0.0f, 2.5e-3f}));
    // The file route, parsed in place, agrees.
    const std::string path = TempPath("zero.json");
    testing_objects::WriteText(path, text);
    f.FromFile(path);
    EXPECT_EQ(FieldWalker::Record(f), FieldWalker::Record(s));
  }
  // Far above the largest double (the exact-number path read past its power table here): infinity or a
  // refusal, never garbage. Large values that fit still read, and so do long runs of leading zeros (the
  // exact-number path's leading-zero count went to zero).
  const std::string head = R"({"serializable_type": "S", "weights": "", "text": "", "f64": )";
  Sample big;
  try {
    big.FromJsonString(head + std::string(121, '1') + "e308}");
    EXPECT_TRUE(std::isinf(big.f64)) << big.f64;
  } catch (const std::runtime_error&) {
  }
  big.FromJsonString(head + "0.00" + std::string(30, '1') + "e310}");
  EXPECT_DOUBLE_EQ(big.f64, 1.1111111111111111e307);
  big.FromJsonString(head + "0." + std::string(60, '0') + "12469e1}");
  EXPECT_DOUBLE_EQ(big.f64, 1.2469e-60);
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
