// Helpers shared by the file-format tests: temporary paths, raw bytes, and a class with a field of every type
// a visitor knows.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "zelva/src/runtime/serialization.h"
#include "zelva/src/runtime/weight_data.h"
#include "zelva/src/runtime/zvmodel2/field_visitors.h"

namespace zelva {
namespace runtime {
namespace testing_objects {

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

inline void WriteText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

inline void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  WriteText(path, std::string(bytes.begin(), bytes.end()));
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

// One field of every visitable type (named as its type), weights, and a field that exists from 20010 on.
// clang-format off
#define ZV_SAMPLE_FIELDS(X)                                                                                   \
  X(bool, flag) X(char, letter) X(int8_t, i8) X(uint8_t, u8) X(int16_t, i16) X(uint16_t, u16) X(int32_t, i32) \
  X(uint32_t, u32) X(int64_t, i64) X(uint64_t, u64) X(double, f64) X(half, f16) X(std::string, text)          \
  X(std::vector<std::string>, v_str) X(std::vector<uint64_t>, v_u64) X(std::vector<uint32_t>, v_u32)          \
  X(std::vector<int64_t>, v_i64) X(std::vector<int32_t>, v_i32) X(std::vector<int16_t>, v_i16)                \
  X(std::vector<uint16_t>, v_u16) X(std::vector<half>, v_f16) X(std::vector<float>, v_f32)                    \
  X(std::vector<std::vector<uint16_t>>, v_v_u16) X(Inner, inner)
// clang-format on
#define ZV_SAMPLE_VISIT(T, name) visitor->Visit(name, #name);
#define ZV_SAMPLE_DECLARE(T, name) T name{};

class Sample : public Serializable {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override {
    Serializable::VisitAttr(visitor);
    ZV_SAMPLE_FIELDS(ZV_SAMPLE_VISIT)
    VisitWeightField(visitor, weights, "weights");
    VisitWeightListField(visitor, weight_list, "weight_list");
    if (visitor->serialization_protocol_version >= 20010) visitor->Visit(gated, "gated");
    visitor->Visit(last, "last");
  }
  ZV_SAMPLE_FIELDS(ZV_SAMPLE_DECLARE)
  std::string weights;
  std::vector<std::string> weight_list;
  int32_t gated = -5;
  float last = 0;
};

// A Sample with every field away from its default (64-bit integers beyond doubles), weights exact in fp16.
inline Sample FilledSample() {
  Sample s;
  zvtest::FieldWalker::Fill(s);
  const float w[] = {1.0f, -0.5f, 0.125f};
  s.weights = EncodeWeights(w, 3);
  s.weight_list = {EncodeWeights(w, 1), std::string()};
  return s;
}

}  // namespace testing_objects
}  // namespace runtime
}  // namespace zelva
