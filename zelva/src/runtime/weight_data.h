// Weights of a layer description: Base64 text of little-endian float32, in memory and in JSON alike; raw
// half or float32 numbers in binary files (by the visitor's precision). Kernels decode the text when built.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "zelva/src/runtime/serialization.h"

namespace zelva {
namespace runtime {

// One `weight data` field / one `weight list` field, dispatched on the concrete visitor.
void VisitWeightData(std::shared_ptr<Visitor>& visitor, std::string& field, const std::string& name);
void VisitWeightList(std::shared_ptr<Visitor>& visitor, std::vector<std::string>& field,
                     const std::string& name);

std::string Base64Encode(const void* data, size_t bytes);
// Exactly three bytes for every four characters, no validation, padding not treated specially.
std::string Base64Decode(const std::string& text);
// The count rule: decoded bytes / 4, rounded down.
std::vector<float> DecodeWeights(const std::string& text);
std::string EncodeWeights(const float* data, size_t count);

}  // namespace runtime
}  // namespace zelva
