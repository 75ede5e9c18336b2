// A test visitor that walks an object without a file. Each visit first gives the field the script's value for
// its path, if there is one, or, when filling, a distinct value that differs from what it held; then records
// it as "path:tag=value" (floats by their bits; a nested object as "path:object", its fields as
// "path/field"). Two objects are the same, field by field, when their records are equal.
#pragma once

#include <any>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "zelva/src/runtime/serialization.h"
#include "zelva/src/runtime/weight_data.h"
#include "zelva/src/runtime/zvmodel2/layer_info.h"
#include "zelva/src/runtime/zvmodel2/model_cfg.h"

namespace zvtest {

using zelva::runtime::__SERIALIZATION_PROTOCOL_VERSION__;
using zelva::runtime::EncodeWeights;
using zelva::runtime::FloatToHalf;
using zelva::runtime::half;
using zelva::runtime::Serializable;
using zelva::runtime::Visitor;
using zelva::runtime::WeightFieldVisitor;

using Lines = std::vector<std::string>;
using Script = std::map<std::string, std::any>;

template <class T>
struct IsVector : std::false_type {};
template <class T>
struct IsVector<std::vector<T>> : std::true_type {};

template <class T>
std::string Tag() {
  if constexpr (std::is_same<T, bool>::value) return "bool";
  if constexpr (std::is_same<T, char>::value) return "char";
  if constexpr (std::is_integral<T>::value)
    return (std::is_signed<T>::value ? "i" : "u") + std::to_string(8 * sizeof(T));
  if constexpr (std::is_same<T, float>::value) return "f32";
  if constexpr (std::is_same<T, double>::value) return "f64";
  if constexpr (std::is_same<T, half>::value) return "half";
  if constexpr (std::is_same<T, std::string>::value) return "str";
  if constexpr (IsVector<T>::value) return "vec<" + Tag<typename T::value_type>() + ">";
  return "?";
}

template <class T>
std::string Text(const T& v) {
  if constexpr (std::is_integral<T>::value) return std::to_string(static_cast<int64_t>(v));
  if constexpr (std::is_same<T, half>::value) return std::to_string(v.bits());
  if constexpr (std::is_floating_point<T>::value) {
    uint64_t bits = 0;
    std::memcpy(&bits, &v, sizeof(T));
    return std::to_string(bits);
  }
  if constexpr (std::is_same<T, std::string>::value) return "'" + v + "'";
  if constexpr (IsVector<T>::value) {
    std::string text = "[";
    for (const auto& x : v) text += Text(x) + ",";
    return text + "]";
  }
  return "?";
}

// Integers move by an odd amount (so the value always changes), 64-bit ones beyond the integers a double
// holds exactly.
template <class T>
void FillValue(T& v, int k) {
  if constexpr (std::is_same<T, bool>::value) {
    v = !v;
  } else if constexpr (std::is_same<T, char>::value) {
    v = static_cast<char>(v == 'A' + k % 26 ? 'a' : 'A' + k % 26);
  } else if constexpr (std::is_integral<T>::value) {
    const uint64_t step = 0x0200000200000002ull * static_cast<uint64_t>(k) + 1;
    v = static_cast<T>(std::is_signed<T>::value ? static_cast<uint64_t>(v) - step
                                                : static_cast<uint64_t>(v) + step);
  } else if constexpr (std::is_same<T, half>::value) {
    v = FloatToHalf(static_cast<float>(v) + 0.25f * static_cast<float>(k) + 1.0f);
  } else if constexpr (std::is_floating_point<T>::value) {
    v = static_cast<T>(v + static_cast<T>(0.37) * static_cast<T>(k) + static_cast<T>(0.011));
  } else if constexpr (std::is_same<T, std::string>::value) {
    v = "s#" + std::to_string(k);
  } else {
    v.assign(2, typename T::value_type());
    FillValue(v[0], k);
    FillValue(v[1], k + 1);
    if constexpr (std::is_same<T, std::vector<std::string>>::value) v.emplace_back();  // an empty entry
  }
}

// Weights that are no half values: an fp16 file must narrow them.
inline std::string Weights(int k, int count) {
  std::vector<float> w;
  for (int j = 0; j < count; ++j) w.push_back(0.1f * static_cast<float>(k + j) + 0.0123f);
  return EncodeWeights(w.data(), w.size());
}

class FieldWalker : public Visitor, public WeightFieldVisitor {
 public:
  // Walks `object` at `version`; fills when `fill` holds a counter (shared by the objects filled with it).
  static std::shared_ptr<FieldWalker> Walk(Serializable& object,
                                           uint32_t version = __SERIALIZATION_PROTOCOL_VERSION__,
                                           Script script = {}, std::shared_ptr<int> fill = nullptr) {
    auto walker = std::make_shared<FieldWalker>();
    walker->serialization_protocol_version = version;
    walker->script_ = std::make_shared<Script>(std::move(script));
    walker->fill_ = std::move(fill);
    std::shared_ptr<Visitor> visitor = walker;
    object.VisitAttr(visitor);
    return walker;
  }
  static Lines Record(Serializable& object) { return Walk(object)->lines; }
  static void Fill(Serializable& object, std::shared_ptr<int> counter = std::make_shared<int>(0)) {
    Walk(object, __SERIALIZATION_PROTOCOL_VERSION__, {}, counter);
  }

  // "key:tag key:tag ..." of the fields directly below `prefix` ("" for the root), in visit order.
  std::string Fields(const std::string& prefix = "") const {
    std::string out;
    for (const std::string& line : lines) {
      const std::string path = line.substr(0, line.find(':'));
      if (path.compare(0, prefix.size(), prefix) != 0 || path.find('/', prefix.size()) != std::string::npos)
        continue;
      out += (out.empty() ? "" : " ") + line.substr(prefix.size(), line.find('=') - prefix.size());
    }
    return out;
  }
  // The recorded value of the field at `path`.
  std::string Value(const std::string& path) const {
    for (const std::string& line : lines)
      if (line.compare(0, path.size() + 1, path + ":") == 0) return line.substr(line.find('=') + 1);
    return "<not visited>";
  }

#define ZV_WALK_VISIT(T)                                   \
  void Visit(T& value, const std::string& name) override { \
    Take(value, name, nullptr);                            \
  }
  ZV_VISITED_TYPES(ZV_WALK_VISIT)
#undef ZV_WALK_VISIT
  void VisitWeightData(std::string& v, const std::string& n) override {
    Take(v, n, "weight");
  }
  void VisitWeightList(std::vector<std::string>& v, const std::string& n) override {
    Take(v, n, "weights");
  }

  Lines lines;

 private:
  void Take(Serializable& object, const std::string& name, const char*) {
    lines.push_back(prefix_ + name + ":object");
    auto nested = std::make_shared<FieldWalker>(*this);
    nested->prefix_ = prefix_ + name + "/";
    nested->lines.clear();
    std::shared_ptr<Visitor> visitor = nested;
    object.VisitAttr(visitor);
    lines.insert(lines.end(), nested->lines.begin(), nested->lines.end());
  }
  template <class T>
  void Take(T& value, const std::string& name, const char* weight_tag) {
    const std::string path = prefix_ + name;
    const auto it = script_->find(path);
    if (it != script_->end()) {
      value = std::any_cast<T>(it->second);
    } else if (fill_ != nullptr && name != "serializable_type" && name != "type" && name != "id") {
      const int k = ++*fill_;
      if constexpr (std::is_same<T, std::string>::value) {
        const auto& params =
            zelva::runtime::InferenceParamTypeNames();  // kernels get parameters of every class
        value = weight_tag != nullptr        ? Weights(k, 1 + k % 3)
                : name == "infer_param_type" ? params[(*next_param_)++ % params.size()]
                                             : name + "#" + std::to_string(k);
      } else if constexpr (std::is_same<T, std::vector<std::string>>::value) {
        if (weight_tag != nullptr) {
          value = {Weights(k, 2), Weights(k + 5, 1)};
        } else {
          FillValue(value, k);
        }
      } else if constexpr (std::is_same<T, uint16_t>::value) {
        value = name == "num_sampling_infos" ? 2 : static_cast<uint16_t>(value + 2 * k + 1);
      } else {
        FillValue(value, k);
      }
    }
    lines.push_back(path + ":" + (weight_tag != nullptr ? std::string(weight_tag) : Tag<T>()) + "=" +
                    Text(value));
  }

  std::string prefix_;
  std::shared_ptr<Script> script_ = std::make_shared<Script>();
  std::shared_ptr<int> fill_;
  std::shared_ptr<size_t> next_param_ = std::make_shared<size_t>(0);
};

}  // namespace zvtest
