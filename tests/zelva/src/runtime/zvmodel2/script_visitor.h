// Test visitor for walks without a file: records every visit as (type tag, path) and, where the script holds
// a value for that path, stores it into the field (a missing path leaves the field alone). Nested objects are
// walked in place; their fields' paths are "outer/inner". Weight fields arrive as such ("weight", "weights").
#pragma once

#include <any>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "zelva/src/runtime/serialization.h"
#include "zelva/src/runtime/zvmodel2/layer_info.h"

namespace zelva {
namespace runtime {
namespace zvtest {

struct Visited {
  std::string tag;
  std::string path;
  bool operator==(const Visited& other) const { return tag == other.tag && path == other.path; }
};

inline std::ostream& operator<<(std::ostream& os, const Visited& v) {
  return os << v.path << ":" << v.tag;
}

// "key:tag key:tag ..." as the visits it names, in order.
inline std::vector<Visited> Parse(const std::string& fields) {
  std::vector<Visited> out;
  std::istringstream in(fields);
  std::string item;
  while (in >> item) {
    const size_t colon = item.find(':');
    out.push_back(Visited{item.substr(colon + 1), item.substr(0, colon)});
  }
  return out;
}

class ScriptVisitor : public Visitor, public WeightFieldVisitor {
 public:
  explicit ScriptVisitor(uint32_t version = __SERIALIZATION_PROTOCOL_VERSION__) {
    serialization_protocol_version = version;
  }

  // Walks `object` with a fresh visitor of the given version and script; returns the visitor.
  static std::shared_ptr<ScriptVisitor> Walk(Serializable& object,
                                             uint32_t version = __SERIALIZATION_PROTOCOL_VERSION__,
                                             std::map<std::string, std::any> script = {}) {
    auto visitor = std::make_shared<ScriptVisitor>(version);
    visitor->script = std::move(script);
    std::shared_ptr<Visitor> base = visitor;
    object.VisitAttr(base);
    return visitor;
  }

  // The recorded visits below `prefix` ("" for all), paths relative to it, nested objects' own fields left
  // out.
  std::vector<Visited> Level(const std::string& prefix = "") const {
    std::vector<Visited> out;
    for (const Visited& v : visits) {
      if (v.path.compare(0, prefix.size(), prefix) != 0) continue;
      std::string rest = v.path.substr(prefix.size());
      if (rest.find('/') == std::string::npos) out.push_back(Visited{v.tag, rest});
    }
    return out;
  }

  template <class T>
  T Seen(const std::string& path) const {
    return std::any_cast<T>(seen.at(path));
  }

  void Visit(std::vector<std::vector<uint16_t>>& v, const std::string& n) override {
    Take(v, "vec<vec<u16>>", n);
  }
  void Visit(std::vector<uint64_t>& v, const std::string& n) override { Take(v, "vec<u64>", n); }
  void Visit(std::vector<uint32_t>& v, const std::string& n) override { Take(v, "vec<u32>", n); }
  void Visit(std::vector<int64_t>& v, const std::string& n) override { Take(v, "vec<i64>", n); }
  void Visit(std::vector<int32_t>& v, const std::string& n) override { Take(v, "vec<i32>", n); }
  void Visit(std::vector<std::string>& v, const std::string& n) override { Take(v, "vec<str>", n); }
  void Visit(std::vector<int16_t>& v, const std::string& n) override { Take(v, "vec<i16>", n); }
  void Visit(std::vector<uint16_t>& v, const std::string& n) override { Take(v, "vec<u16>", n); }
  void Visit(std::vector<half>& v, const std::string& n) override { Take(v, "vec<half>", n); }
  void Visit(std::vector<float>& v, const std::string& n) override { Take(v, "vec<f32>", n); }
  void Visit(std::string& v, const std::string& n) override { Take(v, "str", n); }
  void Visit(char& v, const std::string& n) override { Take(v, "char", n); }
  void Visit(bool& v, const std::string& n) override { Take(v, "bool", n); }
  void Visit(uint64_t& v, const std::string& n) override { Take(v, "u64", n); }
  void Visit(int64_t& v, const std::string& n) override { Take(v, "i64", n); }
  void Visit(uint32_t& v, const std::string& n) override { Take(v, "u32", n); }
  void Visit(int32_t& v, const std::string& n) override { Take(v, "i32", n); }
  void Visit(uint16_t& v, const std::string& n) override { Take(v, "u16", n); }
  void Visit(int16_t& v, const std::string& n) override { Take(v, "i16", n); }
  void Visit(uint8_t& v, const std::string& n) override { Take(v, "u8", n); }
  void Visit(int8_t& v, const std::string& n) override { Take(v, "i8", n); }
  void Visit(double& v, const std::string& n) override { Take(v, "f64", n); }
  void Visit(half& v, const std::string& n) override { Take(v, "half", n); }
  void Visit(float& v, const std::string& n) override { Take(v, "f32", n); }
  void VisitWeightData(std::string& v, const std::string& n) override { Take(v, "weight", n); }
  void VisitWeightList(std::vector<std::string>& v, const std::string& n) override { Take(v, "weights", n); }

  void Visit(Serializable& object, const std::string& n) override {
    visits.push_back(Visited{"object", prefix_ + n});
    // Nested objects get a visitor of their own over the same script and record, as the file visitors do.
    auto nested = std::make_shared<ScriptVisitor>(serialization_protocol_version);
    nested->prefix_ = prefix_ + n + "/";
    nested->script = script;
    std::shared_ptr<Visitor> base = nested;
    object.VisitAttr(base);
    visits.insert(visits.end(), nested->visits.begin(), nested->visits.end());
    seen.insert(nested->seen.begin(), nested->seen.end());
  }

  std::map<std::string, std::any> script;
  std::vector<Visited> visits;
  std::map<std::string, std::any> seen;  // value of each field after the visit

 private:
  template <class T>
  void Take(T& value, const char* tag, const std::string& name) {
    const std::string path = prefix_ + name;
    visits.push_back(Visited{tag, path});
    auto it = script.find(path);
    if (it != script.end()) value = std::any_cast<T>(it->second);
    seen[path] = value;
  }

  std::string prefix_;
};

}  // namespace zvtest
}  // namespace runtime
}  // namespace zelva
