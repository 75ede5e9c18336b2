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

  virtual void FromFile(const std::string& path, const std::string& type);
  virtual void FromFile(const std::string& path);
  virtual void FromBin(const std::string& path, const std::string& precision);
  virtual void FromJsonString(const std::string& text);
  virtual void ToFile(const std::string& path, const std::string& type);
  virtual void ToBin(const std::string& path, const std::string& precision);

  std::string serializable_type;
};

class Visitor {
 public:
  virtual ~Visitor() = default;
  virtual void Visit(std::vector<std::vector<uint16_t>>& value, const std::string& name) = 0;
  virtual void Visit(std::vector<uint64_t>& value, const std::string& name) = 0;
  virtual void Visit(std::vector<uint32_t>& value, const std::string& name) = 0;
  virtual void Visit(std::vector<int64_t>& value, const std::string& name) = 0;
  virtual void Visit(std::vector<int32_t>& value, const std::string& name) = 0;
  virtual void Visit(Serializable& value, const std::string& name) = 0;
  virtual void Visit(std::vector<std::string>& value, const std::string& name) = 0;
  virtual void Visit(std::vector<int16_t>& value, const std::string& name) = 0;
  virtual void Visit(std::vector<uint16_t>& value, const std::string& name) = 0;
  virtual void Visit(std::vector<half>& value, const std::string& name) = 0;
  virtual void Visit(std::vector<float>& value, const std::string& name) = 0;
  virtual void Visit(std::string& value, const std::string& name) = 0;
  virtual void Visit(char& value, const std::string& name) = 0;
  virtual void Visit(bool& value, const std::string& name) = 0;
  virtual void Visit(uint64_t& value, const std::string& name) = 0;
  virtual void Visit(int64_t& value, const std::string& name) = 0;
  virtual void Visit(uint32_t& value, const std::string& name) = 0;
  virtual void Visit(int32_t& value, const std::string& name) = 0;
  virtual void Visit(uint16_t& value, const std::string& name) = 0;
  virtual void Visit(int16_t& value, const std::string& name) = 0;
  virtual void Visit(uint8_t& value, const std::string& name) = 0;
  virtual void Visit(int8_t& value, const std::string& name) = 0;
  virtual void Visit(double& value, const std::string& name) = 0;
  virtual void Visit(half& value, const std::string& name) = 0;
  virtual void Visit(float& value, const std::string& name) = 0;

  uint32_t serialization_protocol_version = __SERIALIZATION_PROTOCOL_VERSION__;
};

}  // namespace runtime
}  // namespace zelva
