#include "zelva/src/runtime/types.h"

namespace zelva {
namespace runtime {
namespace {

const std::map<uint32_t, std::string> kDataTypeStrings = {
    {DataType::FLOAT32, "FLOAT32"}, {DataType::FLOAT16, "FLOAT16"}, {DataType::INT32, "INT32"},
    {DataType::INT16, "INT16"},     {DataType::INT8, "INT8"},       {DataType::UINT32, "UINT32"},
    {DataType::UINT16, "UINT16"},   {DataType::UINT8, "UINT8"},
};

const std::map<uint32_t, std::string> kLayoutStrings = {
    {Layout::CHW, "CHW"},
    {Layout::HWC, "HWC"},
    {Layout::C4HW4, "C4HW4"},
    {Layout::C8HW8, "C8HW8"},
    {Layout::NCHW, "NCHW"},
    {Layout::N4C4HW4n4c, "N4C4HW4n4c"},
    {Layout::N8C8HW8n8c, "N8C8HW8n8c"},
    {Layout::GNCHW, "GNCHW"},
    {Layout::GN4C4HW4n4c, "GN4C4HW4n4c"},
    {Layout::GN8C8HW8n8c, "GN8C8HW8n8c"},
    {Layout::NHWC, "NHWC"},
    {Layout::FLEXIABLE, "FLEXIABLE"},
};

const std::map<uint32_t, std::string> kLocationStrings = {
    {Location::CPUObject, "CPUObject"},
    {Location::MainMemory, "MainMemory"},
    {Location::OpenGLObject, "OpenGLObject"},
    {Location::OpenGLSSBO, "OpenGLSSBO"},
    {Location::OpenGLUBO, "OpenGLUBO"},
    {Location::OpenGLImage, "OpenGLImage"},
    {Location::MetalObject, "MetalObject"},
    {Location::MetalBuffer, "MetalBuffer"},
    {Location::MetalNoCopyBuffer, "MetalNoCopyBuffer"},
    {Location::MetalTempBuffer, "MetalTempBuffer"},
    {Location::MetalImage, "MetalImage"},
    {Location::MetalTempImage, "MetalTempImage"},
};

std::string Lookup(const std::map<uint32_t, std::string>& table, uint32_t value) {
  const auto it = table.find(value);
  return it != table.end() ? it->second : std::to_string(value);
}

}  // namespace

const std::map<uint32_t, std::string>& DataTypeStrings() {
  return kDataTypeStrings;
}
const std::map<uint32_t, std::string>& LayoutStrings() {
  return kLayoutStrings;
}
const std::map<uint32_t, std::string>& LocationStrings() {
  return kLocationStrings;
}

std::string DataTypeToString(uint32_t data_type) {
  return Lookup(kDataTypeStrings, data_type);
}
std::string LayoutToString(uint32_t layout) {
  return Lookup(kLayoutStrings, layout);
}
std::string LocationToString(uint32_t location) {
  return Lookup(kLocationStrings, location);
}

}  // namespace runtime
}  // namespace zelva
