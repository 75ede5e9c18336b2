#include "zelva/src/runtime/json_visitor.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "zelva/src/utility/logging.h"

namespace zelva {
namespace runtime {
namespace {

constexpr const char* kVersionKey = "serialization_protocol_version";

// Integers take the low bytes of the stored number whatever its kind: an integer arrives intact (two's
// complement, truncated to the width), and a number with a fraction or exponent gives the low bytes of its
// double's bit pattern (1.5 -> 0 for every width up to 32 bits). Anything that is not a number reads 0.
template <typename T>
T ReadInteger(const rapidjson::Value* v) {
  static_assert(sizeof(T) <= sizeof(uint64_t), "integers up to 64 bits");
  if (v == nullptr || !v->IsNumber()) return T(0);
  uint64_t bits;
  if (v->IsDouble()) {
    const double d = v->GetDouble();
    std::memcpy(&bits, &d, sizeof(bits));
  } else if (v->IsUint64()) {
    bits = v->GetUint64();
  } else {
    bits = static_cast<uint64_t>(v->GetInt64());
  }
  T out;
  std::memcpy(&out, &bits, sizeof(T));  // little-endian: the low bytes
  return out;
}

// Floats accept any numeric kind; anything else reads 0.
double ReadDouble(const rapidjson::Value* v) {
  if (v == nullptr || !v->IsNumber()) return 0.0;
  return v->GetDouble();
}

float ReadFloat(const rapidjson::Value* v) {
  return static_cast<float>(ReadDouble(v));
}
half ReadHalf(const rapidjson::Value* v) {
  return FloatToHalf(ReadFloat(v));
}

template <typename T>
void ReadIntegerArray(const rapidjson::Value* array, std::vector<T>& out) {
  out.clear();
  if (array == nullptr) return;
  out.reserve(array->Size());
  for (const rapidjson::Value& element : array->GetArray()) out.push_back(ReadInteger<T>(&element));
}

}  // namespace

// ------------------------------------------------------------------------------------------------------------
// JSONNodeGetter
// ------------------------------------------------------------------------------------------------------------

JSONNodeGetter::JSONNodeGetter(const rapidjson::Value* node, uint32_t version) : node_(node) {
  ZV_ASSERT(node_ != nullptr, "cant construct JSONNodeGetter object using a NULL ptr.");
  if (version != 0) {
    serialization_protocol_version = version;
    return;
  }
  const rapidjson::Value* stored = Find(kVersionKey);
  serialization_protocol_version =
      stored == nullptr ? __SERIALIZATION_PROTOCOL_VERSION__ : ReadInteger<uint32_t>(stored);
  ZV_ASSERT(serialization_protocol_version <= __SERIALIZATION_PROTOCOL_VERSION__,
            "_serialization_protocol_version > __SERIALIZATION_PROTOCOL_VERSION__.");
}

const rapidjson::Value* JSONNodeGetter::Find(const std::string& name) const {
  if (!node_->IsObject()) return nullptr;
  const rapidjson::Value key(
      rapidjson::StringRef(name.c_str(), static_cast<rapidjson::SizeType>(name.size())));
  const auto it = node_->FindMember(key);
  return it == node_->MemberEnd() ? nullptr : &it->value;
}

const rapidjson::Value* JSONNodeGetter::FindArray(const std::string& name) const {
  const rapidjson::Value* v = Find(name);
  if (v == nullptr || v->IsNull()) return nullptr;
  ZV_ASSERT(v->IsArray(), "member \"%s\" is not an array.", name.c_str());
  return v;
}

void JSONNodeGetter::Visit(std::vector<std::vector<uint16_t>>& value, const std::string& name) {
  const rapidjson::Value* array = FindArray(name);
  value.clear();
  if (array == nullptr) return;
  value.resize(array->Size());
  for (rapidjson::SizeType i = 0; i < array->Size(); ++i) {
    const rapidjson::Value& inner = (*array)[i];
    if (inner.IsNull()) continue;
    ZV_ASSERT(inner.IsArray(), "member \"%s\" holds an element that is not an array.", name.c_str());
    ReadIntegerArray(&inner, value[i]);
  }
}

void JSONNodeGetter::Visit(std::vector<uint64_t>& value, const std::string& name) {
  ReadIntegerArray(FindArray(name), value);
}
void JSONNodeGetter::Visit(std::vector<uint32_t>& value, const std::string& name) {
  ReadIntegerArray(FindArray(name), value);
}
void JSONNodeGetter::Visit(std::vector<int64_t>& value, const std::string& name) {
  ReadIntegerArray(FindArray(name), value);
}
void JSONNodeGetter::Visit(std::vector<int32_t>& value, const std::string& name) {
  ReadIntegerArray(FindArray(name), value);
}
void JSONNodeGetter::Visit(std::vector<int16_t>& value, const std::string& name) {
  ReadIntegerArray(FindArray(name), value);
}
void JSONNodeGetter::Visit(std::vector<uint16_t>& value, const std::string& name) {
  ReadIntegerArray(FindArray(name), value);
}

void JSONNodeGetter::Visit(Serializable& value, const std::string& name) {
  const rapidjson::Value* member = Find(name);
  if (member == nullptr || member->IsNull()) return;  // absent: the object keeps its constructor's values
  ZV_ASSERT(member->IsObject() || member->IsArray(), "Created node is a unkown value.");
  std::shared_ptr<Visitor> nested = std::make_shared<JSONNodeGetter>(member, serialization_protocol_version);
  value.VisitAttr(nested);
}

void JSONNodeGetter::Visit(std::vector<std::string>& value, const std::string& name) {
  const rapidjson::Value* array = FindArray(name);
  value.clear();
  if (array == nullptr) return;
  value.reserve(array->Size());
  for (const rapidjson::Value& element : array->GetArray()) {
    ZV_ASSERT(element.IsString(), "member \"%s\" holds an element that is not a string.", name.c_str());
    value.emplace_back(element.GetString());  // up to the first zero byte
  }
}

void JSONNodeGetter::Visit(std::vector<half>& value, const std::string& name) {
  const rapidjson::Value* array = FindArray(name);
  value.clear();
  if (array == nullptr) return;
  value.reserve(array->Size());
  for (const rapidjson::Value& element : array->GetArray()) value.push_back(ReadHalf(&element));
}

void JSONNodeGetter::Visit(std::vector<float>& value, const std::string& name) {
  const rapidjson::Value* array = FindArray(name);
  value.clear();
  if (array == nullptr) return;
  value.reserve(array->Size());
  for (const rapidjson::Value& element : array->GetArray()) value.push_back(ReadFloat(&element));
}

void JSONNodeGetter::Visit(std::string& value, const std::string& name) {
  const rapidjson::Value* member = Find(name);
  ZV_ASSERT(member != nullptr, "missing string member \"%s\".", name.c_str());
  ZV_ASSERT(member->IsString(), "member \"%s\" is not a string.", name.c_str());
  value.assign(member->GetString());  // up to the first zero byte
}

// A char is stored as a one-character string; a number gives its low byte; anything else reads 0.
void JSONNodeGetter::Visit(char& value, const std::string& name) {
  const rapidjson::Value* member = Find(name);
  if (member != nullptr && member->IsString()) {
    value = member->GetStringLength() > 0 ? member->GetString()[0] : '\0';
  } else {
    value = ReadInteger<char>(member);
  }
}

void JSONNodeGetter::Visit(bool& value, const std::string& name) {
  const rapidjson::Value* member = Find(name);
  value = member != nullptr && member->IsTrue();
}

void JSONNodeGetter::Visit(uint64_t& value, const std::string& name) {
  value = ReadInteger<uint64_t>(Find(name));
}
void JSONNodeGetter::Visit(int64_t& value, const std::string& name) {
  value = ReadInteger<int64_t>(Find(name));
}
void JSONNodeGetter::Visit(uint32_t& value, const std::string& name) {
  value = ReadInteger<uint32_t>(Find(name));
}
void JSONNodeGetter::Visit(int32_t& value, const std::string& name) {
  value = ReadInteger<int32_t>(Find(name));
}
void JSONNodeGetter::Visit(uint16_t& value, const std::string& name) {
  value = ReadInteger<uint16_t>(Find(name));
}
void JSONNodeGetter::Visit(int16_t& value, const std::string& name) {
  value = ReadInteger<int16_t>(Find(name));
}
void JSONNodeGetter::Visit(uint8_t& value, const std::string& name) {
  value = ReadInteger<uint8_t>(Find(name));
}
void JSONNodeGetter::Visit(int8_t& value, const std::string& name) {
  value = ReadInteger<int8_t>(Find(name));
}
void JSONNodeGetter::Visit(double& value, const std::string& name) {
  value = ReadDouble(Find(name));
}
void JSONNodeGetter::Visit(half& value, const std::string& name) {
  value = ReadHalf(Find(name));
}
void JSONNodeGetter::Visit(float& value, const std::string& name) {
  value = ReadFloat(Find(name));
}

// ------------------------------------------------------------------------------------------------------------
// JSONNodeSetter
// ------------------------------------------------------------------------------------------------------------

JSONNodeSetter::JSONNodeSetter(rapidjson::Value* node, rapidjson::Document::AllocatorType* allocator,
                               bool write_version)
    : node_(node), allocator_(allocator) {
  ZV_ASSERT(node_ != nullptr && allocator_ != nullptr,
            "cant construct JSONNodeSetter object using a NULL ptr.");
  ZV_ASSERT(node_->IsObject(), "JSONNodeSetter needs an object node.");
  if (write_version) {
    rapidjson::Value version(__SERIALIZATION_PROTOCOL_VERSION__);
    Append(kVersionKey, version);
  }
}

void JSONNodeSetter::Append(const std::string& name, rapidjson::Value& value) {
  rapidjson::Value key(name.c_str(), static_cast<rapidjson::SizeType>(name.size()), *allocator_);
  node_->AddMember(key, value, *allocator_);
}

namespace {

// Integers keep their own signedness and width; floats, doubles and halves become doubles.
template <typename T>
rapidjson::Value MakeNumber(T v) {
  if constexpr (std::is_same<T, half>::value) {
    return rapidjson::Value(static_cast<double>(HalfToFloat(v)));
  } else if constexpr (std::is_floating_point<T>::value) {
    return rapidjson::Value(static_cast<double>(v));
  } else if constexpr (std::is_signed<T>::value && sizeof(T) <= 4) {
    return rapidjson::Value(static_cast<int32_t>(v));
  } else if constexpr (sizeof(T) <= 4) {
    return rapidjson::Value(static_cast<uint32_t>(v));
  } else if constexpr (std::is_signed<T>::value) {
    return rapidjson::Value(static_cast<int64_t>(v));
  } else {
    return rapidjson::Value(static_cast<uint64_t>(v));
  }
}

template <typename T>
rapidjson::Value MakeNumberArray(const std::vector<T>& values,
                                 rapidjson::Document::AllocatorType& allocator) {
  rapidjson::Value array(rapidjson::kArrayType);
  array.Reserve(static_cast<rapidjson::SizeType>(values.size()), allocator);
  for (const T& v : values) array.PushBack(MakeNumber(v), allocator);
  return array;
}

}  // namespace

template <typename T>
void JSONNodeSetter::AppendArray(const std::vector<T>& values, const std::string& name) {
  rapidjson::Value array = MakeNumberArray(values, *allocator_);
  Append(name, array);
}

void JSONNodeSetter::Visit(std::vector<std::vector<uint16_t>>& value, const std::string& name) {
  rapidjson::Value array(rapidjson::kArrayType);
  array.Reserve(static_cast<rapidjson::SizeType>(value.size()), *allocator_);
  for (const auto& inner : value) array.PushBack(MakeNumberArray(inner, *allocator_), *allocator_);
  Append(name, array);
}

void JSONNodeSetter::Visit(std::vector<uint64_t>& value, const std::string& name) {
  AppendArray(value, name);
}
void JSONNodeSetter::Visit(std::vector<uint32_t>& value, const std::string& name) {
  AppendArray(value, name);
}
void JSONNodeSetter::Visit(std::vector<int64_t>& value, const std::string& name) {
  AppendArray(value, name);
}
void JSONNodeSetter::Visit(std::vector<int32_t>& value, const std::string& name) {
  AppendArray(value, name);
}
void JSONNodeSetter::Visit(std::vector<int16_t>& value, const std::string& name) {
  AppendArray(value, name);
}
void JSONNodeSetter::Visit(std::vector<uint16_t>& value, const std::string& name) {
  AppendArray(value, name);
}
void JSONNodeSetter::Visit(std::vector<half>& value, const std::string& name) {
  AppendArray(value, name);
}
void JSONNodeSetter::Visit(std::vector<float>& value, const std::string& name) {
  AppendArray(value, name);
}

void JSONNodeSetter::Visit(Serializable& value, const std::string& name) {
  rapidjson::Value object(rapidjson::kObjectType);
  std::shared_ptr<Visitor> nested = std::make_shared<JSONNodeSetter>(&object, allocator_, false);
  value.VisitAttr(nested);
  Append(name, object);
}

void JSONNodeSetter::Visit(std::vector<std::string>& value, const std::string& name) {
  rapidjson::Value array(rapidjson::kArrayType);
  array.Reserve(static_cast<rapidjson::SizeType>(value.size()), *allocator_);
  for (const std::string& s : value) {
    array.PushBack(rapidjson::Value(s.c_str(), static_cast<rapidjson::SizeType>(s.size()), *allocator_),
                   *allocator_);
  }
  Append(name, array);
}

void JSONNodeSetter::Visit(std::string& value, const std::string& name) {
  rapidjson::Value text(value.c_str(), static_cast<rapidjson::SizeType>(value.size()), *allocator_);
  Append(name, text);
}

void JSONNodeSetter::Visit(char& value, const std::string& name) {
  rapidjson::Value text(&value, 1, *allocator_);
  Append(name, text);
}

void JSONNodeSetter::Visit(bool& value, const std::string& name) {
  rapidjson::Value v(value);
  Append(name, v);
}

#define ZV_JSON_SET_NUMBER(T)                                     \
  void JSONNodeSetter::Visit(T& value, const std::string& name) { \
    rapidjson::Value v = MakeNumber(value);                       \
    Append(name, v);                                              \
  }
ZV_JSON_SET_NUMBER(uint64_t)
ZV_JSON_SET_NUMBER(int64_t)
ZV_JSON_SET_NUMBER(uint32_t)
ZV_JSON_SET_NUMBER(int32_t)
ZV_JSON_SET_NUMBER(uint16_t)
ZV_JSON_SET_NUMBER(int16_t)
ZV_JSON_SET_NUMBER(uint8_t)
ZV_JSON_SET_NUMBER(int8_t)
ZV_JSON_SET_NUMBER(double)
ZV_JSON_SET_NUMBER(half)
ZV_JSON_SET_NUMBER(float)
#undef ZV_JSON_SET_NUMBER

// ------------------------------------------------------------------------------------------------------------

std::string ReadJsonFile2String(const std::string& path) {
  std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
  ZV_ASSERT(file != nullptr, "Error in opening the file [%s].", path.c_str());
  struct stat info;
  ZV_ASSERT(fstat(fileno(file.get()), &info) != 0 || !S_ISDIR(info.st_mode),
            "Error in opening the file [%s]: is a directory.", path.c_str());
  long length = -1;
  if (std::fseek(file.get(), 0, SEEK_END) == 0) length = std::ftell(file.get());
  ZV_ASSERT(length >= 0 && std::fseek(file.get(), 0, SEEK_SET) == 0, "Error in read the whole file [%s].",
            path.c_str());
  std::string text(static_cast<size_t>(length), '\0');
  const size_t got = length > 0 ? std::fread(&text[0], 1, text.size(), file.get()) : 0;
  ZV_ASSERT(got == text.size(), "Error in read the whole file [%s].", path.c_str());
  return text;
}

std::stringstream ReadJsonFile2StrStream(const std::string& path) {
  return std::stringstream(ReadJsonFile2String(path));
}

}  // namespace runtime
}  // namespace zelva
