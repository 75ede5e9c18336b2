// Test visitors that walk an object without a file: FillVisitor gives every field a distinct value that
// differs from what it held, RecordVisitor lists every field as "path:tag=value" with exact bits for floats.
// Two objects are the same, field by field, when their records are equal.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "zelva/src/runtime/serialization.h"
#include "zelva/src/runtime/weight_data.h"
#include "zelva/src/runtime/zvmodel2/layer_info.h"

namespace zelva {
namespace runtime {
namespace zvtest {

// Keys the filler leaves alone: the class name, and a layer's kind and id (the model's lists own those).
inline bool Kept(const std::string& name) {
  return name == "serializable_type" || name == "type" || name == "id";
}

class FillVisitor : public Visitor, public WeightFieldVisitor {
 public:
  explicit FillVisitor(std::shared_ptr<int> counter = std::make_shared<int>(0)) : counter_(counter) {}

  static void Fill(Serializable& object, std::shared_ptr<int> counter = std::make_shared<int>(0)) {
    std::shared_ptr<Visitor> visitor = std::make_shared<FillVisitor>(counter);
    object.VisitAttr(visitor);
  }

  // Weights that are no half values: an fp16 file must narrow them.
  static std::string Weights(int k, int count) {
    std::vector<float> w;
    for (int j = 0; j < count; ++j) w.push_back(0.1f * static_cast<float>(k + j) + 0.0123f);
    return EncodeWeights(w.data(), w.size());
  }

  void Visit(std::vector<std::vector<uint16_t>>& v, const std::string&) override {
    const int k = Next();
    v = {{U16(k), U16(k + 1)}, {U16(k + 2)}};
  }
  void Visit(std::vector<uint64_t>& v, const std::string&) override { v = {Next() + 0ull, UINT64_MAX}; }
  void Visit(std::vector<uint32_t>& v, const std::string&) override { v = {Next() + 0u, 4000000000u}; }
  void Visit(std::vector<int64_t>& v, const std::string&) override { v = {-Next() - 0ll, INT64_MIN}; }
  void Visit(std::vector<int32_t>& v, const std::string&) override { v = {-Next(), INT32_MAX}; }
  void Visit(std::vector<std::string>& v, const std::string&) override {
    const std::string k = std::to_string(Next());
    v = {"a" + k, "", "c" + k};
  }
  void Visit(std::vector<int16_t>& v, const std::string&) override {
    const int k = Next();
    v = {static_cast<int16_t>(-k), 3, -32768};
  }
  void Visit(std::vector<uint16_t>& v, const std::string&) override { v = {U16(Next()), 65535}; }
  void Visit(std::vector<half>& v, const std::string&) override {
    v = {FloatToHalf(0.5f * Next()), FloatToHalf(-3.0f)};
  }
  void Visit(std::vector<float>& v, const std::string&) override { v = {0.1f * Next(), -1e-30f}; }
  void Visit(std::string& v, const std::string& name) override {
    if (!Kept(name)) v = name + "#" + std::to_string(Next());
  }
  void Visit(char& v, const std::string&) override { v = static_cast<char>('A' + Next() % 26); }
  void Visit(bool& v, const std::string&) override {
    Next();
    v = !v;
  }
  void Visit(uint64_t& v, const std::string&) override { v += 0x100000000ull * Next() + 7; }
  void Visit(int64_t& v, const std::string&) override { v -= Next() + 1; }
  void Visit(uint32_t& v, const std::string&) override { v += Next() + 1; }
  void Visit(int32_t& v, const std::string&) override { v -= Next() + 1; }
  void Visit(uint16_t& v, const std::string& name) override {
    if (Kept(name)) return;
    if (name == "num_sampling_infos") {  // the count of nested entries that follow: keep it small
      v = 2;
      return;
    }
    v = static_cast<uint16_t>(v + Next() + 1);
  }
  void Visit(int16_t& v, const std::string&) override { v = static_cast<int16_t>(v - Next() - 1); }
  void Visit(uint8_t& v, const std::string&) override { v = static_cast<uint8_t>(v + Next() + 1); }
  void Visit(int8_t& v, const std::string&) override { v = static_cast<int8_t>(v - Next() - 1); }
  void Visit(double& v, const std::string&) override { v += Next() + 0.1; }
  void Visit(half& v, const std::string&) override {
    v = FloatToHalf(static_cast<float>(v) + 0.25f * static_cast<float>(Next()) + 1.0f);
  }
  void Visit(float& v, const std::string&) override { v += 0.37f * static_cast<float>(Next()) + 0.011f; }
  void VisitWeightData(std::string& v, const std::string&) override {
    const int k = Next();
    v = Weights(k, 1 + k % 3);  // 1, 2 or 3 floats: every padding case of the text
  }
  void VisitWeightList(std::vector<std::string>& v, const std::string&) override {
    const int k = Next();
    v = {Weights(k, 2), Weights(k + 5, 1)};
  }
  void Visit(Serializable& object, const std::string&) override { Fill(object, counter_); }

 private:
  int Next() { return ++*counter_; }
  static uint16_t U16(int k) { return static_cast<uint16_t>(k); }
  std::shared_ptr<int> counter_;
};

class RecordVisitor : public Visitor, public WeightFieldVisitor {
 public:
  explicit RecordVisitor(std::string prefix = "") : prefix_(std::move(prefix)) {}

  static std::vector<std::string> Record(Serializable& object) {
    auto recorder = std::make_shared<RecordVisitor>();
    std::shared_ptr<Visitor> visitor = recorder;
    object.VisitAttr(visitor);
    return recorder->lines;
  }

  void Visit(std::vector<std::vector<uint16_t>>& v, const std::string& n) override {
    std::string text;
    for (const auto& inner : v) text += "[" + Join(inner) + "]";
    Add("vec<vec<u16>>", n, text);
  }
  void Visit(std::vector<uint64_t>& v, const std::string& n) override { Add("vec<u64>", n, Join(v)); }
  void Visit(std::vector<uint32_t>& v, const std::string& n) override { Add("vec<u32>", n, Join(v)); }
  void Visit(std::vector<int64_t>& v, const std::string& n) override { Add("vec<i64>", n, Join(v)); }
  void Visit(std::vector<int32_t>& v, const std::string& n) override { Add("vec<i32>", n, Join(v)); }
  void Visit(std::vector<std::string>& v, const std::string& n) override {
    std::string text;
    for (const auto& s : v) text += "'" + s + "'";
    Add("vec<str>", n, text);
  }
  void Visit(std::vector<int16_t>& v, const std::string& n) override { Add("vec<i16>", n, Join(v)); }
  void Visit(std::vector<uint16_t>& v, const std::string& n) override { Add("vec<u16>", n, Join(v)); }
  void Visit(std::vector<half>& v, const std::string& n) override {
    std::vector<uint16_t> bits;
    for (half h : v) bits.push_back(h.bits());
    Add("vec<half>", n, Join(bits));
  }
  void Visit(std::vector<float>& v, const std::string& n) override {
    std::string text;
    for (float f : v) text += Bits(f) + ",";
    Add("vec<f32>", n, text);
  }
  void Visit(std::string& v, const std::string& n) override { Add("str", n, "'" + v + "'"); }
  void Visit(char& v, const std::string& n) override { Add("char", n, std::to_string(int(v))); }
  void Visit(bool& v, const std::string& n) override { Add("bool", n, v ? "1" : "0"); }
  void Visit(uint64_t& v, const std::string& n) override { Add("u64", n, std::to_string(v)); }
  void Visit(int64_t& v, const std::string& n) override { Add("i64", n, std::to_string(v)); }
  void Visit(uint32_t& v, const std::string& n) override { Add("u32", n, std::to_string(v)); }
  void Visit(int32_t& v, const std::string& n) override { Add("i32", n, std::to_string(v)); }
  void Visit(uint16_t& v, const std::string& n) override { Add("u16", n, std::to_string(v)); }
  void Visit(int16_t& v, const std::string& n) override { Add("i16", n, std::to_string(v)); }
  void Visit(uint8_t& v, const std::string& n) override { Add("u8", n, std::to_string(v)); }
  void Visit(int8_t& v, const std::string& n) override { Add("i8", n, std::to_string(v)); }
  void Visit(double& v, const std::string& n) override {
    uint64_t bits;
    std::memcpy(&bits, &v, 8);
    Add("f64", n, std::to_string(bits));
  }
  void Visit(half& v, const std::string& n) override { Add("half", n, std::to_string(v.bits())); }
  void Visit(float& v, const std::string& n) override { Add("f32", n, Bits(v)); }
  void VisitWeightData(std::string& v, const std::string& n) override { Add("weight", n, "'" + v + "'"); }
  void VisitWeightList(std::vector<std::string>& v, const std::string& n) override {
    std::string text;
    for (const auto& s : v) text += "'" + s + "'";
    Add("weights", n, text);
  }
  void Visit(Serializable& object, const std::string& n) override {
    auto nested = std::make_shared<RecordVisitor>(prefix_ + n + "/");
    nested->serialization_protocol_version = serialization_protocol_version;
    std::shared_ptr<Visitor> visitor = nested;
    object.VisitAttr(visitor);
    lines.insert(lines.end(), nested->lines.begin(), nested->lines.end());
  }

  std::vector<std::string> lines;

 private:
  template <class T>
  static std::string Join(const std::vector<T>& v) {
    std::string text;
    for (const T& x : v) text += std::to_string(x) + ",";
    return text;
  }
  static std::string Bits(float f) {
    uint32_t bits;
    std::memcpy(&bits, &f, 4);
    char text[16];
    std::snprintf(text, sizeof(text), "%08x", bits);
    return text;
  }
  void Add(const char* tag, const std::string& name, const std::string& value) {
    lines.push_back(prefix_ + name + ":" + tag + "=" + value);
  }
  std::string prefix_;
};

}  // namespace zvtest
}  // namespace runtime
}  // namespace zelva
