// Test-only serializable classes and helpers shared by the format tests.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "zelva/src/runtime/serialization.h"
#include "zelva/src/runtime/weight_data.h"
#include "zelva/src/runtime/zvmodel2/field_visitors.h"
#include "zelva/src/utility/logging.h"

namespace zelva {
namespace runtime {
namespace testing_objects {

// Collects every delivered log line while alive; restores the previous sink afterwards.
class LogCapture {
 public:
  LogCapture() : previous_(utility::GetLogCallback()) {
    Lines().clear();
    utility::SetLogCallback(&LogCapture::Collect);
  }
  ~LogCapture() { utility::SetLogCallback(previous_); }
  bool Contains(const std::string& text) const {
    for (const std::string& line : Lines())
      if (line.find(text) != std::string::npos) return true;
    return false;
  }
  const std::vector<std::string>& lines() const { return Lines(); }

 private:
  static std::vector<std::string>& Lines() {
    static std::vector<std::string> lines;
    return lines;
  }
  static int32_t Collect(const char* text) {
    Lines().emplace_back(text);
    return 0;
  }
  utility::LogCallback previous_;
};

// A fresh path in the test's temporary directory.
inline std::string TempPath(const std::string& name) {
  static int counter = 0;
  return ::testing::TempDir() + "zv_format_" + std::to_string(getpid()) + "_" + std::to_string(counter++) +
         "_" + name;
}

inline std::vector<uint8_t> ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

inline void WriteText(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary);
  out << text;
}

class Inner : public Serializable {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override {
    Serializable::VisitAttr(visitor);
    visitor->Visit(count, "count");
    visitor->Visit(label, "label");
  }
  int32_t count = 7;
  std::string label = "inner";
};

// One field of every visitable type, a nested object, weights, and a field that exists from version 20010 on.
class Sample : public Serializable {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override {
    Serializable::VisitAttr(visitor);
    visitor->Visit(flag, "flag");
    visitor->Visit(letter, "letter");
    visitor->Visit(i8, "i8");
    visitor->Visit(u8, "u8");
    visitor->Visit(i16, "i16");
    visitor->Visit(u16, "u16");
    visitor->Visit(i32, "i32");
    visitor->Visit(u32, "u32");
    visitor->Visit(i64, "i64");
    visitor->Visit(u64, "u64");
    visitor->Visit(f64, "f64");
    visitor->Visit(f16, "f16");
    visitor->Visit(text, "text");
    visitor->Visit(texts, "texts");
    visitor->Visit(v_u64, "v_u64");
    visitor->Visit(v_u32, "v_u32");
    visitor->Visit(v_i64, "v_i64");
    visitor->Visit(v_i32, "v_i32");
    visitor->Visit(v_i16, "v_i16");
    visitor->Visit(v_u16, "v_u16");
    visitor->Visit(v_f16, "v_f16");
    visitor->Visit(v_f32, "v_f32");
    visitor->Visit(nested_lists, "nested_lists");
    visitor->Visit(inner, "inner");
    VisitWeightField(visitor, weights, "weights");
    VisitWeightListField(visitor, weight_list, "weight_list");
    if (visitor->serialization_protocol_version >= 20010) visitor->Visit(gated, "gated");
    visitor->Visit(last, "last");
  }

  bool flag = false;
  char letter = 'a';
  int8_t i8 = 0;
  uint8_t u8 = 0;
  int16_t i16 = 0;
  uint16_t u16 = 0;
  int32_t i32 = 0;
  uint32_t u32 = 0;
  int64_t i64 = 0;
  uint64_t u64 = 0;
  double f64 = 0;
  half f16 = half(0.0f);
  std::string text = "t";
  std::vector<std::string> texts;
  std::vector<uint64_t> v_u64;
  std::vector<uint32_t> v_u32;
  std::vector<int64_t> v_i64;
  std::vector<int32_t> v_i32;
  std::vector<int16_t> v_i16;
  std::vector<uint16_t> v_u16;
  std::vector<half> v_f16;
  std::vector<float> v_f32;
  std::vector<std::vector<uint16_t>> nested_lists;
  Inner inner;
  std::string weights;
  std::vector<std::string> weight_list;
  int32_t gated = -5;
  float last = 0;
};

// A Sample with distinctive, non-default values everywhere (half-exact weights).
inline Sample FilledSample() {
  Sample s;
  s.flag = true;
  s.letter = 'Z';
  s.i8 = -100;
  s.u8 = 200;
  s.i16 = -30000;
  s.u16 = 60000;
  s.i32 = -2000000000;
  s.u32 = 4000000000u;
  s.i64 = INT64_MIN;
  s.u64 = UINT64_MAX;
  s.f64 = 0.1;
  s.f16 = half(1.5f);
  s.text = "hello world";
  s.texts = {"a", "", "ccc"};
  s.v_u64 = {1, UINT64_MAX};
  s.v_u32 = {3, 4, 5};
  s.v_i64 = {-1, INT64_MAX};
  s.v_i32 = {-7};
  s.v_i16 = {-1, 2, -3};
  s.v_u16 = {65535};
  s.v_f16 = {half(0.25f), half(-2.0f)};
  s.v_f32 = {0.1f, -3.5e-7f, 1e30f};
  s.nested_lists = {{1, 2}, {3}};
  s.inner.count = 42;
  s.inner.label = "deep";
  const float w[] = {1.0f, -0.5f, 0.125f};
  s.weights = EncodeWeights(w, 3);
  const float w2[] = {2.0f};
  s.weight_list = {EncodeWeights(w2, 1), std::string()};
  s.gated = 99;
  s.last = 3.25f;
  return s;
}

// Field by field, floats by their bits.
inline void ExpectSameSample(Sample& a, Sample& b) {
  EXPECT_EQ(zvtest::RecordVisitor::Record(a), zvtest::RecordVisitor::Record(b));
}

}  // namespace testing_objects
}  // namespace runtime
}  // namespace zelva
