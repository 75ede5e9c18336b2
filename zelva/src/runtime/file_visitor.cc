#include "zelva/src/runtime/file_visitor.h"

#include <cxxabi.h>
#include <sys/stat.h>

#include <cstdlib>
#include <memory>
#include <typeinfo>

#include "zelva/src/utility/logging.h"

namespace zelva {
namespace runtime {
namespace {

// The readable name of a type for failure messages ("float", "unsigned long").
std::string Demangle(const std::type_info& type) {
  int status = 0;
  char* demangled = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
  std::string name = (status == 0 && demangled != nullptr) ? demangled : type.name();
  std::free(demangled);
  return name;
}

template <typename T>
const char* TypeName() {
  static const std::string name = Demangle(typeid(T));
  return name.c_str();
}

// Size of a regular file behind the stream, or -1 (pipes and the like: no bound can be checked).
int64_t FileSize(FILE* file) {
  struct stat info;
  if (fstat(fileno(file), &info) != 0 || !S_ISREG(info.st_mode)) return -1;
  return static_cast<int64_t>(info.st_size);
}

}  // namespace

// ------------------------------------------------------------------------------------------------------------
// FILEReader
// ------------------------------------------------------------------------------------------------------------

FILEReader::FILEReader(FILE* file, uint32_t version, const std::string& precision)
    : file_(file), file_open_(file != nullptr), precision_(precision) {
  ZV_ASSERT(file_open_, "cant construct FILEReader object using a NULL ptr.");
  file_size_ = FileSize(file_);
  if (version != 0) {
    serialization_protocol_version = version;
    return;
  }
  ReadScalar(serialization_protocol_version);
  ZV_ASSERT(serialization_protocol_version <= __SERIALIZATION_PROTOCOL_VERSION__,
            "_serialization_protocol_version > __SERIALIZATION_PROTOCOL_VERSION__.");
}

int64_t FILEReader::Remaining() const {
  if (file_size_ < 0) return -1;
  const off_t position = ftello(file_);
  if (position < 0) return -1;
  return file_size_ > position ? file_size_ - position : 0;
}

template <typename T>
void FILEReader::ReadScalar(T& value) {
  const size_t got = std::fread(&value, sizeof(T), 1, file_);
  ZV_ASSERT(got == 1, "failed to read a %s value, error code is %d.\n", TypeName<T>(), std::ferror(file_));
}

uint64_t FILEReader::ReadCount(size_t min_item_bytes, const char* item_type) {
  uint64_t count = 0;
  ReadScalar(count);
  // A corrupt count must not reach an allocation: the items have to fit in what is left of the file.
  const int64_t remaining = Remaining();
  if (remaining >= 0 && min_item_bytes > 0) {
    ZV_ASSERT(count <= static_cast<uint64_t>(remaining) / min_item_bytes,
              "failed to read a %s value, error code is %d.\n", item_type, std::ferror(file_));
  }
  return count;
}

template <typename T>
void FILEReader::ReadVector(std::vector<T>& value) {
  const uint64_t count = ReadCount(sizeof(T), TypeName<T>());
  value.resize(static_cast<size_t>(count));
  if (count == 0) return;
  const size_t got = std::fread(value.data(), sizeof(T), value.size(), file_);
  ZV_ASSERT(got == value.size(), "failed to read a %s value, error code is %d.\n", TypeName<T>(),
            std::ferror(file_));
}

void FILEReader::Visit(std::vector<std::vector<uint16_t>>& value, const std::string&) {
  const uint64_t count = ReadCount(sizeof(uint64_t), TypeName<std::vector<uint16_t>>());
  value.clear();
  value.reserve(static_cast<size_t>(count));
  std::vector<uint16_t> inner;
  for (uint64_t i = 0; i < count; ++i) {
    ReadVector(inner);
    if (!inner.empty()) value.push_back(std::move(inner));  // empty inner vectors are dropped
    inner.clear();
  }
}

void FILEReader::Visit(std::vector<uint64_t>& value, const std::string&) {
  ReadVector(value);
}
void FILEReader::Visit(std::vector<uint32_t>& value, const std::string&) {
  ReadVector(value);
}
void FILEReader::Visit(std::vector<int64_t>& value, const std::string&) {
  ReadVector(value);
}
void FILEReader::Visit(std::vector<int32_t>& value, const std::string&) {
  ReadVector(value);
}
void FILEReader::Visit(std::vector<int16_t>& value, const std::string&) {
  ReadVector(value);
}
void FILEReader::Visit(std::vector<uint16_t>& value, const std::string&) {
  ReadVector(value);
}
void FILEReader::Visit(std::vector<half>& value, const std::string&) {
  ReadVector(value);
}
void FILEReader::Visit(std::vector<float>& value, const std::string&) {
  ReadVector(value);
}

void FILEReader::Visit(Serializable& value, const std::string&) {
  std::shared_ptr<Visitor> nested =
      std::make_shared<FILEReader>(file_, serialization_protocol_version, precision_);
  value.VisitAttr(nested);
}

void FILEReader::Visit(std::vector<std::string>& value, const std::string& name) {
  const uint64_t count = ReadCount(sizeof(uint64_t), TypeName<std::string>());
  value.clear();
  value.resize(static_cast<size_t>(count));
  for (std::string& s : value) Visit(s, name);
}

void FILEReader::Visit(std::string& value, const std::string&) {
  const uint64_t length = ReadCount(1, TypeName<char>());
  value.resize(static_cast<size_t>(length));
  if (length == 0) return;
  const size_t got = std::fread(&value[0], 1, value.size(), file_);
  ZV_ASSERT(got == value.size(), "failed to read a %s value, error code is %d.\n", TypeName<char>(),
            std::ferror(file_));
}

void FILEReader::Visit(bool& value, const std::string&) {
  uint8_t byte = 0;
  const size_t got = std::fread(&byte, 1, 1, file_);
  ZV_ASSERT(got == 1, "failed to read a %s value, error code is %d.\n", TypeName<bool>(), std::ferror(file_));
  value = byte != 0;
}

void FILEReader::Visit(char& value, const std::string&) {
  ReadScalar(value);
}
void FILEReader::Visit(uint64_t& value, const std::string&) {
  ReadScalar(value);
}
void FILEReader::Visit(int64_t& value, const std::string&) {
  ReadScalar(value);
}
void FILEReader::Visit(uint32_t& value, const std::string&) {
  ReadScalar(value);
}
void FILEReader::Visit(int32_t& value, const std::string&) {
  ReadScalar(value);
}
void FILEReader::Visit(uint16_t& value, const std::string&) {
  ReadScalar(value);
}
void FILEReader::Visit(int16_t& value, const std::string&) {
  ReadScalar(value);
}
void FILEReader::Visit(uint8_t& value, const std::string&) {
  ReadScalar(value);
}
void FILEReader::Visit(int8_t& value, const std::string&) {
  ReadScalar(value);
}
void FILEReader::Visit(double& value, const std::string&) {
  ReadScalar(value);
}
void FILEReader::Visit(half& value, const std::string&) {
  ReadScalar(value);
}
void FILEReader::Visit(float& value, const std::string&) {
  ReadScalar(value);
}

// ------------------------------------------------------------------------------------------------------------
// FILEWriter
// ------------------------------------------------------------------------------------------------------------

FILEWriter::FILEWriter(FILE* file, bool write_header, const std::string& precision)
    : file_(file), file_open_(file != nullptr), precision_(precision) {
  ZV_ASSERT(file_open_, "cant construct FILEWriter object using a NULL ptr.");
  serialization_protocol_version = __SERIALIZATION_PROTOCOL_VERSION__;
  if (write_header) WriteScalar(serialization_protocol_version);
}

template <typename T>
void FILEWriter::WriteScalar(const T& value) {
  const size_t put = std::fwrite(&value, sizeof(T), 1, file_);
  ZV_ASSERT(put == 1, "failed to write a %s value, error code is %d.\n", TypeName<T>(), std::ferror(file_));
}

void FILEWriter::WriteCount(uint64_t count) {
  const size_t put = std::fwrite(&count, sizeof(count), 1, file_);
  ZV_ASSERT(put == 1, "failed to write the %s value, error code is %d.\n", TypeName<uint64_t>(),
            std::ferror(file_));
}

void FILEWriter::WriteItems(const void* data, size_t item_bytes, size_t count, const char* item_type) {
  if (count == 0) return;
  const size_t put = std::fwrite(data, item_bytes, count, file_);
  ZV_ASSERT(put == count, "failed to write a %s value, error code is %d.\n", item_type, std::ferror(file_));
}

template <typename T>
void FILEWriter::WriteVector(const std::vector<T>& value) {
  WriteCount(value.size());
  WriteItems(value.data(), sizeof(T), value.size(), TypeName<T>());
}

void FILEWriter::Visit(std::vector<std::vector<uint16_t>>& value, const std::string&) {
  WriteCount(value.size());
  for (const auto& inner : value) WriteVector(inner);
}

void FILEWriter::Visit(std::vector<uint64_t>& value, const std::string&) {
  WriteVector(value);
}
void FILEWriter::Visit(std::vector<uint32_t>& value, const std::string&) {
  WriteVector(value);
}
void FILEWriter::Visit(std::vector<int64_t>& value, const std::string&) {
  WriteVector(value);
}
void FILEWriter::Visit(std::vector<int32_t>& value, const std::string&) {
  WriteVector(value);
}
void FILEWriter::Visit(std::vector<int16_t>& value, const std::string&) {
  WriteVector(value);
}
void FILEWriter::Visit(std::vector<uint16_t>& value, const std::string&) {
  WriteVector(value);
}
void FILEWriter::Visit(std::vector<half>& value, const std::string&) {
  WriteVector(value);
}
void FILEWriter::Visit(std::vector<float>& value, const std::string&) {
  WriteVector(value);
}

void FILEWriter::Visit(Serializable& value, const std::string&) {
  std::shared_ptr<Visitor> nested = std::make_shared<FILEWriter>(file_, false, precision_);
  value.VisitAttr(nested);
}

void FILEWriter::Visit(std::vector<std::string>& value, const std::string& name) {
  WriteCount(value.size());
  for (std::string& s : value) Visit(s, name);
}

void FILEWriter::Visit(std::string& value, const std::string&) {
  WriteCount(value.size());
  WriteItems(value.data(), 1, value.size(), TypeName<char>());
}

void FILEWriter::Visit(bool& value, const std::string&) {
  const uint8_t byte = value ? 1 : 0;
  const size_t put = std::fwrite(&byte, 1, 1, file_);
  ZV_ASSERT(put == 1, "failed to write a %s value, error code is %d.\n", TypeName<bool>(),
            std::ferror(file_));
}

void FILEWriter::Visit(char& value, const std::string&) {
  WriteScalar(value);
}
void FILEWriter::Visit(uint64_t& value, const std::string&) {
  WriteScalar(value);
}
void FILEWriter::Visit(int64_t& value, const std::string&) {
  WriteScalar(value);
}
void FILEWriter::Visit(uint32_t& value, const std::string&) {
  WriteScalar(value);
}
void FILEWriter::Visit(int32_t& value, const std::string&) {
  WriteScalar(value);
}
void FILEWriter::Visit(uint16_t& value, const std::string&) {
  WriteScalar(value);
}
void FILEWriter::Visit(int16_t& value, const std::string&) {
  WriteScalar(value);
}
void FILEWriter::Visit(uint8_t& value, const std::string&) {
  WriteScalar(value);
}
void FILEWriter::Visit(int8_t& value, const std::string&) {
  WriteScalar(value);
}
void FILEWriter::Visit(double& value, const std::string&) {
  WriteScalar(value);
}
void FILEWriter::Visit(half& value, const std::string&) {
  WriteScalar(value);
}
void FILEWriter::Visit(float& value, const std::string&) {
  WriteScalar(value);
}

}  // namespace runtime
}  // namespace zelva
