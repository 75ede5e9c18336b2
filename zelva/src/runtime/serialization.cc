#include "zelva/src/runtime/serialization.h"

#include <cxxabi.h>

#include <cstdlib>
#include <typeinfo>

namespace zelva {
namespace runtime {

void Serializable::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  serializable_type = GetTypeName();
  visitor->Visit(serializable_type, "serializable_type");
}

std::string Serializable::GetFullTypeName() const {
  const char* mangled = typeid(*this).name();
  int status = 0;
  char* demangled = abi::__cxa_demangle(mangled, nullptr, nullptr, &status);
  std::string name = (status == 0 && demangled != nullptr) ? demangled : mangled;
  std::free(demangled);
  return name;
}

std::string Serializable::GetTypeName() const {
  std::string full = GetFullTypeName();
  const size_t colon = full.rfind(':');
  return colon == std::string::npos ? full : full.substr(colon + 1);
}

}  // namespace runtime
}  // namespace zelva
