#include "zelva/src/runtime/zvmodel2/layer_info.h"

#include "zelva/src/runtime/weight_data.h"

namespace zelva {
namespace runtime {

void VisitWeightField(std::shared_ptr<Visitor>& visitor, std::string& field, const std::string& name) {
  if (auto* own = dynamic_cast<WeightFieldVisitor*>(visitor.get())) {
    own->VisitWeightData(field, name);
    return;
  }
  VisitWeightData(visitor, field, name);
}

void VisitWeightListField(std::shared_ptr<Visitor>& visitor, std::vector<std::string>& field,
                          const std::string& name) {
  if (auto* own = dynamic_cast<WeightFieldVisitor*>(visitor.get())) {
    own->VisitWeightList(field, name);
    return;
  }
  VisitWeightList(visitor, field, name);
}

namespace {

// One row of a field list: visited when the file's protocol has the field.
bool InFile(const std::shared_ptr<Visitor>& visitor, uint32_t since) {
  return since == 0 || visitor->serialization_protocol_version >= since;
}

template <class T>
void VisitRowValue(std::shared_ptr<Visitor>& visitor, uint32_t since, T& field, const char* key) {
  if (InFile(visitor, since)) visitor->Visit(field, key);
}
void VisitRowWeight(std::shared_ptr<Visitor>& visitor, uint32_t since, std::string& field, const char* key) {
  if (InFile(visitor, since)) VisitWeightField(visitor, field, key);
}
void VisitRowWeightList(std::shared_ptr<Visitor>& visitor, uint32_t since, std::vector<std::string>& field,
                        const char* key) {
  if (InFile(visitor, since)) VisitWeightListField(visitor, field, key);
}

}  // namespace

#define ZV_VISIT_FIELD_Value VisitRowValue
#define ZV_VISIT_FIELD_Text VisitRowValue
#define ZV_VISIT_FIELD_Code VisitRowValue
#define ZV_VISIT_FIELD_Weight VisitRowWeight
#define ZV_VISIT_FIELD_WeightList VisitRowWeightList
#define ZV_VISIT_FIELD(form, since, type, name, init) ZV_VISIT_FIELD_##form(visitor, since, name, #name);

// VisitAttr of a class whose fields are all in its list: its base's walk, then the list in order.
// Used with a semicolon after it, like a declaration.
#define ZV_DEFINE_VISIT_ATTR(Class, Base, LIST)              \
  void Class::VisitAttr(std::shared_ptr<Visitor>& visitor) { \
    Base::VisitAttr(visitor);                                \
    LIST(ZV_VISIT_FIELD)                                     \
  }                                                          \
  static_assert(true, "")

ZV_DEFINE_VISIT_ATTR(LayerInfo, Serializable, ZV_FIELDS_LayerInfo);

// ---- Shared field sets ------------------------------------------------------------------------------------

template <class Padding>
ZV_DEFINE_VISIT_ATTR(ConvolutionInfo<Padding>, LayerInfo, ZV_FIELDS_ConvolutionInfo);
template class ConvolutionInfo<uint16_t>;
template class ConvolutionInfo<int16_t>;

ZV_DEFINE_VISIT_ATTR(BatchNormInfo, LayerInfo, ZV_FIELDS_BatchNormInfo);
ZV_DEFINE_VISIT_ATTR(ElementOperatorInfo, LayerInfo, ZV_FIELDS_ElementOperatorInfo);
ZV_DEFINE_VISIT_ATTR(NewShapeInfo, LayerInfo, ZV_FIELDS_NewShapeInfo);
ZV_DEFINE_VISIT_ATTR(SignedDimInfo, LayerInfo, ZV_FIELDS_SignedDimInfo);
ZV_DEFINE_VISIT_ATTR(UnsignedDimInfo, LayerInfo, ZV_FIELDS_UnsignedDimInfo);

void RecurrentCellInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  ZV_FIELDS_RecurrentHead(ZV_VISIT_FIELD);
  VisitActivation(visitor);
  ZV_FIELDS_RecurrentCellTail(ZV_VISIT_FIELD);
}

void RecurrentInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  ZV_FIELDS_RecurrentHead(ZV_VISIT_FIELD);
  VisitActivation(visitor);
  ZV_FIELDS_RecurrentTail(ZV_VISIT_FIELD);
}

void RNNCellInfo::VisitActivation(std::shared_ptr<Visitor>& visitor) {
  ZV_FIELDS_RNNActivation(ZV_VISIT_FIELD);
}

void RNNInfo::VisitActivation(std::shared_ptr<Visitor>& visitor) {
  ZV_FIELDS_RNNActivation(ZV_VISIT_FIELD);
}

// ---- Kinds with fields of their own -----------------------------------------------------------------------

ZV_DEFINE_VISIT_ATTR(InputInfo, LayerInfo, ZV_FIELDS_InputInfo);
ZV_DEFINE_VISIT_ATTR(ActivationInfo, LayerInfo, ZV_FIELDS_ActivationInfo);
ZV_DEFINE_VISIT_ATTR(AvgPool2dInfo, LayerInfo, ZV_FIELDS_AvgPool2dInfo);
ZV_DEFINE_VISIT_ATTR(MaxPool2dInfo, LayerInfo, ZV_FIELDS_MaxPool2dInfo);
ZV_DEFINE_VISIT_ATTR(InstanceNorm2dInfo, LayerInfo, ZV_FIELDS_InstanceNorm2dInfo);
ZV_DEFINE_VISIT_ATTR(Upsample2dInfo, LayerInfo, ZV_FIELDS_Upsample2dInfo);
ZV_DEFINE_VISIT_ATTR(TensorTransposeInfo, LayerInfo, ZV_FIELDS_TensorTransposeInfo);
ZV_DEFINE_VISIT_ATTR(FullConnectionInfo, LayerInfo, ZV_FIELDS_FullConnectionInfo);
ZV_DEFINE_VISIT_ATTR(PixelShuffleInfo, LayerInfo, ZV_FIELDS_PixelShuffleInfo);
ZV_DEFINE_VISIT_ATTR(TensorDimemsionSamplingInfo, Serializable, ZV_FIELDS_TensorDimemsionSamplingInfo);

void TensorGetItemInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  ZV_FIELDS_TensorGetItemInfo(ZV_VISIT_FIELD);
  if (sampling_infos.size() != num_sampling_infos) sampling_infos.resize(num_sampling_infos);
  for (size_t i = 0; i < sampling_infos.size(); ++i) visitor->Visit(sampling_infos[i], std::to_string(i));
}

ZV_DEFINE_VISIT_ATTR(ClipInfo, LayerInfo, ZV_FIELDS_ClipInfo);
ZV_DEFINE_VISIT_ATTR(Conv1dInfo, LayerInfo, ZV_FIELDS_Conv1dInfo);
ZV_DEFINE_VISIT_ATTR(Pad1dInfo, LayerInfo, ZV_FIELDS_Pad1dInfo);
ZV_DEFINE_VISIT_ATTR(Pad2dInfo, LayerInfo, ZV_FIELDS_Pad2dInfo);
ZV_DEFINE_VISIT_ATTR(WarpAffineInfo, LayerInfo, ZV_FIELDS_WarpAffineInfo);
ZV_DEFINE_VISIT_ATTR(SoftArgMaxInfo, LayerInfo, ZV_FIELDS_SoftArgMaxInfo);
ZV_DEFINE_VISIT_ATTR(SpatialGatherInfo, LayerInfo, ZV_FIELDS_SpatialGatherInfo);
ZV_DEFINE_VISIT_ATTR(LayerPlaceholderInfo, LayerInfo, ZV_FIELDS_LayerPlaceholderInfo);

// ---- Kind table
// -------------------------------------------------------------------------------------------------

std::shared_ptr<LayerInfo> CreateLayerInfo(uint16_t type) {
  switch (type) {
#define ZV_CREATE_KIND(Class) \
  case Class::kType:          \
    return std::make_shared<Class>();
    ZV_LAYER_INFO_KINDS(ZV_CREATE_KIND)
#undef ZV_CREATE_KIND
    default:
      return nullptr;
  }
}

std::string LayerInfoClassName(uint16_t type) {
  switch (type) {
#define ZV_NAME_KIND(Class) \
  case Class::kType:        \
    return #Class;
    ZV_LAYER_INFO_KINDS(ZV_NAME_KIND)
#undef ZV_NAME_KIND
    default:
      return std::string();
  }
}

}  // namespace runtime
}  // namespace zelva
