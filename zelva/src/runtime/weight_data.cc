#include "zelva/src/runtime/weight_data.h"

#include "zelva/src/utility/logging.h"

namespace zelva {
namespace runtime {

// Weight encodings: filled in with the visitors.
void VisitWeightData(std::shared_ptr<Visitor>&, std::string&, const std::string&) {
  ZV_ASSERT(false, "Not Implemented.");
}
void VisitWeightList(std::shared_ptr<Visitor>&, std::vector<std::string>&, const std::string&) {
  ZV_ASSERT(false, "Not Implemented.");
}
std::string Base64Encode(const void*, size_t) {
  ZV_ASSERT(false, "Not Implemented.");
  return std::string();
}
std::string Base64Decode(const std::string&) {
  ZV_ASSERT(false, "Not Implemented.");
  return std::string();
}
std::vector<float> DecodeWeights(const std::string&) {
  ZV_ASSERT(false, "Not Implemented.");
  return {};
}
std::string EncodeWeights(const float*, size_t) {
  ZV_ASSERT(false, "Not Implemented.");
  return std::string();
}

}  // namespace runtime
}  // namespace zelva
