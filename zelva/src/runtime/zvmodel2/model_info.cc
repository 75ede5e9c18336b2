#include "zelva/src/runtime/zvmodel2/model_info.h"

namespace zelva {
namespace runtime {

namespace {
constexpr uint32_t kSummaryFrom = 20004;
constexpr uint32_t kWideFmlasFrom = 20007;

// Members of the root object beside the layers; a layer id equal to one would collide in JSON.
constexpr const char* kRootKeys[] = {"serialization_protocol_version",
                                     "serializable_type",
                                     "squential_output_ids",
                                     "extra_info",
                                     "squential_ids",
                                     "squential_types"};
}  // namespace

void TimeInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  Serializable::VisitAttr(visitor);
  visitor->Visit(year, "year");
  visitor->Visit(moon, "moon");
  visitor->Visit(day, "day");
  visitor->Visit(hour, "hour");
  visitor->Visit(min, "min");
  visitor->Visit(sec, "sec");
}

void NetExtraInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  Serializable::VisitAttr(visitor);
  visitor->Visit(version, "version");
  visitor->Visit(app_type, "app_type");
  visitor->Visit(model_id, "model_id");
  visitor->Visit(model_base_h, "model_base_h");
  visitor->Visit(model_base_w, "model_base_w");
  if (visitor->serialization_protocol_version >= kWideFmlasFrom) {
    visitor->Visit(fmlas, "fmlas");
  } else {
    uint32_t narrow = static_cast<uint32_t>(fmlas);
    visitor->Visit(narrow, "fmlas");
    fmlas = narrow;
  }
  visitor->Visit(time, "time");
  visitor->Visit(device, "device");
  if (visitor->serialization_protocol_version >= kSummaryFrom) visitor->Visit(summary, "summary");
}

void ZVModelInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  ZV_ASSERT(visitor->serialization_protocol_version <= __SERIALIZATION_PROTOCOL_VERSION__,
            "_serialization_protocol_version > __SERIALIZATION_PROTOCOL_VERSION__.");
  Serializable::VisitAttr(visitor);
  visitor->Visit(squential_output_ids, "squential_output_ids");
  visitor->Visit(extra_info, "extra_info");
  visitor->Visit(squential_ids, "squential_ids");
  visitor->Visit(squential_types, "squential_types");
  ZV_ASSERT(squential_ids.size() == squential_types.size(), "Length of layer id and type mismatch.");

  for (size_t i = 0; i < squential_ids.size(); ++i) {
    const uint16_t type = squential_types[i];
    const std::string& id = squential_ids[i];
    std::shared_ptr<LayerInfo> layer = FindLayerInfo(id);
    if (layer == nullptr) {
      ZV_ASSERT(type != kLayerUnset, "Unknow Layer Type.");
      layer = CreateLayerInfo(type);
      ZV_ASSERT(layer != nullptr, "Unsupported Layer Type [%u].", static_cast<unsigned>(type));
      InsertLayer(id, layer);
    }
    visitor->Visit(*layer, id);
    if (layer->type != type) {
      ZV_LOG(utility::kLogWarnning, "This ZVModelInfo may be a old vesion file, please verify it.");
      layer->type = type;
    }
  }
}

std::shared_ptr<LayerInfo> ZVModelInfo::FindLayerInfo(const std::string& id) const {
  auto it = layer_table_.find(id);
  return it == layer_table_.end() ? nullptr : layer_list_[it->second].second;
}

std::shared_ptr<LayerInfo> ZVModelInfo::GetLayerInfo(const std::string& id) const {
  std::shared_ptr<LayerInfo> layer = FindLayerInfo(id);
  ZV_ASSERT(layer != nullptr, "Layer [%s] not found in model.", id.c_str());
  return layer;
}

std::vector<std::string> ZVModelInfo::GetInputLayerIds() const {
  std::vector<std::string> ids;
  for (const LayerEntry& entry : layer_list_) {
    if (entry.second->type == kLayerInput) ids.push_back(entry.first);
  }
  return ids;
}

void ZVModelInfo::AddLayer(const std::shared_ptr<LayerInfo>& layer) {
  ZV_ASSERT(layer != nullptr, "Cannot add a null layer.");
  ZV_ASSERT(layer_table_.count(layer->id) == 0, "Layer id [%s] already in model.", layer->id.c_str());
  for (const char* key : kRootKeys) {
    ZV_ASSERT(layer->id != key, "Layer id [%s] collides with a key of the model.", layer->id.c_str());
  }
  InsertLayer(layer->id, layer);
  squential_ids.push_back(layer->id);
  squential_types.push_back(layer->type);
}

void ZVModelInfo::InsertLayer(const std::string& id, const std::shared_ptr<LayerInfo>& layer) {
  layer_table_[id] = layer_list_.size();
  layer_list_.emplace_back(id, layer);
}

}  // namespace runtime
}  // namespace zelva
