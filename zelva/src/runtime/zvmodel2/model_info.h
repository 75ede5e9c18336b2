// The root of a model file: a header (NetExtraInfo) and the network as a sequence of layer descriptions.
// Its walk turns a file into objects: the layers are not fields, their number and classes follow from the
// id and type lists read earlier in the same walk. Reading and writing are the same code.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "zelva/src/runtime/serialization.h"
#include "zelva/src/runtime/zvmodel2/layer_info.h"
#include "zelva/src/utility/logging.h"

namespace zelva {
namespace runtime {

class TimeInfo final : public Serializable {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  uint32_t year = 0;
  uint32_t moon = 0;  // the month
  uint32_t day = 0;
  uint32_t hour = 0;
  uint32_t min = 0;
  uint32_t sec = 0;
};

class NetExtraInfo final : public Serializable {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  uint32_t version = 0;  // the model's own number, not the protocol's
  uint32_t app_type = 0;
  uint32_t model_id = 0;
  uint32_t model_base_h = 0;
  uint32_t model_base_w = 0;
  uint64_t fmlas = 0;  // 32 bits wide in files before protocol 20007
  TimeInfo time;
  std::string device;
  std::string summary;  // files of protocol 20004 and later
};

class ZVModelInfo final : public Serializable {
 public:
  using LayerEntry = std::pair<std::string, std::shared_ptr<LayerInfo>>;

  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  // The description of a layer, or null when the model has none of that id.
  std::shared_ptr<LayerInfo> FindLayerInfo(const std::string& id) const;
  // The description of a layer; fails when the model has none of that id.
  std::shared_ptr<LayerInfo> GetLayerInfo(const std::string& id) const;
  // The description of a layer as its class; fails when it is missing or of another class.
  template <class T>
  std::shared_ptr<T> GetLayerInfoAs(const std::string& id) const;

  // Ids of the layers of kind Input, in the order of the layer list.
  std::vector<std::string> GetInputLayerIds() const;

  // The descriptions in order of creation (for a model read from a file, the order of squential_ids).
  const std::vector<LayerEntry>& layers() const { return layer_list_; }

  // Appends a layer to the model built in code: to the layer list and to squential_ids / squential_types.
  // Its id must be new, and must not be one of the root's own keys.
  void AddLayer(const std::shared_ptr<LayerInfo>& layer);

  NetExtraInfo extra_info;
  std::vector<std::string> squential_output_ids;
  std::vector<std::string> squential_ids;
  std::vector<uint16_t> squential_types;

 private:
  void InsertLayer(const std::string& id, const std::shared_ptr<LayerInfo>& layer);

  std::vector<LayerEntry> layer_list_;
  std::unordered_map<std::string, size_t> layer_table_;  // id -> position in layer_list_
};

template <class T>
std::shared_ptr<T> ZVModelInfo::GetLayerInfoAs(const std::string& id) const {
  auto layer = std::dynamic_pointer_cast<T>(GetLayerInfo(id));
  ZV_ASSERT(layer != nullptr, "Layer [%s] is not of the expected kind.", id.c_str());
  return layer;
}

}  // namespace runtime
}  // namespace zelva
