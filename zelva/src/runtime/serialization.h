// The one serialisation walk. A class describes itself once in VisitAttr, naming each field in order; four
// concrete visitors (JSON getter/setter, binary reader/writer) decide what a visit means. The binary form is
// the order of the visits alone, the JSON form names each member by the visit's key.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zelva/src/runtime/half.h"

namespace zelva {
namespace runtime {

constexpr uint32_t __SERIALIZATION_PROTOCOL_VERSION__ = 20018;

class Visitor;

class Serializable {
 public:
  Serializable() = default;
  Serializable(const Serializable&) = default;
  Serializable& operator=(const Serializable&) = default;
  virtual ~Serializable() = default;

  // Subclasses start with their base's VisitAttr, then visit their own fields in file order.
  virtual void VisitAttr(std::shared_ptr<Visitor>& visitor);

  // The bare class name ("Conv2dInfo", "Extra"): the run-time name cut after its last colon.
  virtual std::string GetTypeName() const;
  virtual std::string GetFullTypeName() const;

  // Reading and writing whole files. These build the concrete visitors, so they are defined above them, in
  // model_file.cc; this base knows no visitor.
  virtual void FromFile(const std::string& path, const std::string& type);
  virtual void FromFile(const std::string& path);
  virtual void FromBin(const std::string& path, const std::string& precision);
  virtual void FromJsonString(const std::string& text);
  virtual void ToFile(const std::string& path, const std::string& type);
  virtual void ToBin(const std::string& path, const std::string& precision);

  std::string serializable_type;
};

// Every value type a Visitor visits, X(type), in the Visitor's slot order. The Visitor base and each concrete
// visitor declare their overloads from this one list.
// clang-format off
#define ZV_VISITED_TYPES(X)            \
  X(std::vector<std::vector<uint16_t>>) \
  X(std::vector<uint64_t>)              \
  X(std::vector<uint32_t>)              \
  X(std::vector<int64_t>)               \
  X(std::vector<int32_t>)               \
  X(Serializable)                       \
  X(std::vector<std::string>)           \
  X(std::vector<int16_t>)               \
  X(std::vector<uint16_t>)              \
  X(std::vector<half>)                  \
  X(std::vector<float>)                 \
  X(std::string)                        \
  X(char)                               \
  X(bool)                               \
  X(uint64_t)                           \
  X(int64_t)                            \
  X(uint32_t)                           \
  X(int32_t)                            \
  X(uint16_t)                           \
  X(int16_t)                            \
  X(uint8_t)                            \
  X(int8_t)                             \
  X(double)                             \
  X(half)                               \
  X(float)
// clang-format on

#define ZV_DECLARE_PURE_VISIT(T) virtual void Visit(T& value, const std::string& name) = 0;
#define ZV_DECLARE_VISIT_OVERRIDE(T) void Visit(T& value, const std::string& name) override;
// Inside a concrete visitor's class: the overrides of all the Visit overloads.
#define ZV_VISIT_OVERRIDES ZV_VISITED_TYPES(ZV_DECLARE_VISIT_OVERRIDE)

class Visitor {
 public:
  virtual ~Visitor() = default;
  ZV_VISITED_TYPES(ZV_DECLARE_PURE_VISIT)

  uint32_t serialization_protocol_version = __SERIALIZATION_PROTOCOL_VERSION__;
};

}  // namespace runtime
}  // namespace zelva
