// The binary form of the serialisation walk: the bare sequence of visited values, little-endian, without
// keys, tags, sizes or padding. A file is a uint32 protocol version followed by the root object's values; a
// nested object's values follow inline. Strings and vectors carry a uint64 count before their contents.
//
// Neither visitor owns the file; the caller opens and closes it. The precision word ("fp16" or "fp32") only
// matters to weight data, which the visitors store as raw half or float32 numbers (see weight_data.h).
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "zelva/src/runtime/serialization.h"

namespace zelva {
namespace runtime {

class FILEReader : public Visitor {
 public:
  // `version` 0 marks the root: the uint32 version is then read from the file and refused when above 20018.
  // A nested reader takes its parent's version and reads nothing. Fails "cant construct FILEReader object
  // using a NULL ptr." on a null file.
  FILEReader(FILE* file, uint32_t version, const std::string& precision);

  ZV_VISIT_OVERRIDES

  // Reads a uint64 count of items, each taking at least `min_item_bytes` in the file, and fails before
  // anything is allocated when the rest of the file cannot hold them. `item_type` names the items in the
  // message.
  uint64_t ReadCount(size_t min_item_bytes, const char* item_type);

  const std::string& precision() const { return precision_; }
  FILE* file() const { return file_; }

 private:
  template <typename T>
  void ReadScalar(T& value);
  template <typename T>
  void ReadVector(std::vector<T>& value);
  // Bytes between the current position and the end of the file; -1 when the stream cannot tell.
  int64_t Remaining() const;

  FILE* file_;
  bool file_open_;
  std::string precision_;
  int64_t file_size_ = -1;
};

class FILEWriter : public Visitor {
 public:
  // The version is always 20018; `write_header` (root only) writes it first as a uint32.
  FILEWriter(FILE* file, bool write_header, const std::string& precision);

  ZV_VISIT_OVERRIDES

  // The uint64 length prefix of a string or vector.
  void WriteCount(uint64_t count);
  // `count` items of `item_bytes` each, in one write.
  void WriteItems(const void* data, size_t item_bytes, size_t count, const char* item_type);

  const std::string& precision() const { return precision_; }
  FILE* file() const { return file_; }

 private:
  template <typename T>
  void WriteScalar(const T& value);
  template <typename T>
  void WriteVector(const std::vector<T>& value);

  FILE* file_;
  bool file_open_;
  std::string precision_;
};

}  // namespace runtime
}  // namespace zelva
