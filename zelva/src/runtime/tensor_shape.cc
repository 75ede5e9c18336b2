#include "zelva/src/runtime/tensor_shape.h"

namespace zelva {
namespace runtime {

void TensorShape::Extra::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  Serializable::VisitAttr(visitor);
  visitor->Visit(step_size, "step_size");
}

void TensorShape::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  Serializable::VisitAttr(visitor);
  visitor->Visit(dims, "dims");
  visitor->Visit(data_type, "data_type");
  visitor->Visit(layout, "layout");
  visitor->Visit(location, "location");
  visitor->Visit(extra, "extra");
}

}  // namespace runtime
}  // namespace zelva
