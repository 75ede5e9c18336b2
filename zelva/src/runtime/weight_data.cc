#include "zelva/src/runtime/weight_data.h"

#include <cstdint>
#include <cstring>

#include "zelva/src/runtime/file_visitor.h"
#include "zelva/src/runtime/json_visitor.h"
#include "zelva/src/utility/logging.h"

namespace zelva {
namespace runtime {
namespace {

constexpr char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// 0..63 for the alphabet, -1 for every other byte ('=' included).
struct Base64DecodeTable {
  int8_t value[256] = {};
  constexpr Base64DecodeTable() {
    for (int i = 0; i < 256; ++i) value[i] = -1;
    for (int i = 0; i < 64; ++i) value[static_cast<uint8_t>(kBase64Alphabet[i])] = static_cast<int8_t>(i);
  }
};
constexpr Base64DecodeTable kBase64Decode;

// The two characters of every 12-bit value: encoding looks up two pairs per three bytes instead of four
// single characters (loading a binary model is mostly this encoding).
struct Base64PairTable {
  char chars[2 * 4096] = {};
  constexpr Base64PairTable() {
    for (int v = 0; v < 4096; ++v) {
      chars[2 * v] = kBase64Alphabet[v >> 6];
      chars[2 * v + 1] = kBase64Alphabet[v & 63];
    }
  }
};
constexpr Base64PairTable kBase64Pairs;

// Three bytes from four characters, in 8-bit arithmetic: a foreign character counts as -1 (all bits set).
inline void DecodeQuad(const char* in, uint8_t out[3]) {
  const uint8_t v0 = static_cast<uint8_t>(kBase64Decode.value[static_cast<uint8_t>(in[0])]);
  const uint8_t v1 = static_cast<uint8_t>(kBase64Decode.value[static_cast<uint8_t>(in[1])]);
  const uint8_t v2 = static_cast<uint8_t>(kBase64Decode.value[static_cast<uint8_t>(in[2])]);
  const uint8_t v3 = static_cast<uint8_t>(kBase64Decode.value[static_cast<uint8_t>(in[3])]);
  out[0] = static_cast<uint8_t>((v0 << 2) + ((v1 >> 4) & 3));
  out[1] = static_cast<uint8_t>(((v1 << 4) & 0xF0) | ((v2 >> 2) & 15));
  out[2] = static_cast<uint8_t>(((v2 << 6) & 0xC0) + v3);
}

// Decodes `text` and keeps the first `limit` bytes of the result in `out`: whole quads straight into `out`,
// then the part of one more that fits.
void Base64DecodeInto(const std::string& text, uint8_t* out, size_t limit) {
  const size_t quads = text.size() / 4;
  const size_t whole = limit / 3 < quads ? limit / 3 : quads;
  const char* in = text.data();
  for (size_t q = 0; q < whole; ++q) DecodeQuad(in + 4 * q, out + 3 * q);
  const size_t rest = limit - 3 * whole;
  if (whole < quads && rest > 0) {
    uint8_t bytes[3];
    DecodeQuad(in + 4 * whole, bytes);
    std::memcpy(out + 3 * whole, bytes, rest < 3 ? rest : 3);
  }
}

size_t DecodedSize(const std::string& text) {
  return text.size() / 4 * 3;
}

// One `weight data` field from a binary file: raw half or float32 numbers become Base64 float32 text.
void FileReader_Visit_B64Encoded_Data(FILEReader& reader, std::string& field, const std::string& name) {
  if (reader.precision() == "fp16") {
    std::vector<half> halves;
    reader.Visit(halves, name);
    std::vector<float> floats(halves.size());
    for (size_t i = 0; i < halves.size(); ++i) floats[i] = HalfToFloat(halves[i]);
    halves = std::vector<half>();
    field = EncodeWeights(floats.data(), floats.size());
  } else if (reader.precision() == "fp32") {
    std::vector<float> floats;
    reader.Visit(floats, name);
    field = EncodeWeights(floats.data(), floats.size());
  } else {
    field = EncodeWeights(nullptr, 0);
    ZV_ASSERT(false, "Not Implemented.");
  }
}

// One `weight data` field to a binary file: the Base64 float32 text becomes raw half or float32 numbers.
void FileWriter_Visit_B64Encoded_Data(FILEWriter& writer, std::string& field, const std::string& name) {
  std::vector<float> floats = DecodeWeights(field);
  if (writer.precision() == "fp16") {
    std::vector<half> halves(floats.size());
    for (size_t i = 0; i < floats.size(); ++i) halves[i] = FloatToHalf(floats[i]);
    writer.Visit(halves, name);
  } else if (writer.precision() == "fp32") {
    writer.Visit(floats, name);
  } else {
    writer.WriteCount(floats.size());
    ZV_ASSERT(floats.empty(), "Not Implemented.");
  }
}

enum class VisitorKind { kJson, kReader, kWriter };

VisitorKind KindOf(const std::shared_ptr<Visitor>& visitor) {
  if (std::dynamic_pointer_cast<JSONNodeSetter>(visitor) ||
      std::dynamic_pointer_cast<JSONNodeGetter>(visitor)) {
    return VisitorKind::kJson;
  }
  if (std::dynamic_pointer_cast<FILEReader>(visitor)) return VisitorKind::kReader;
  if (std::dynamic_pointer_cast<FILEWriter>(visitor)) return VisitorKind::kWriter;
  ZV_ASSERT(false, "Not Implemented.");
  return VisitorKind::kJson;
}

}  // namespace

void VisitWeightData(std::shared_ptr<Visitor>& visitor, std::string& field, const std::string& name) {
  switch (KindOf(visitor)) {
    case VisitorKind::kJson:
      visitor->Visit(field, name);
      break;
    case VisitorKind::kReader:
      FileReader_Visit_B64Encoded_Data(static_cast<FILEReader&>(*visitor), field, name);
      break;
    case VisitorKind::kWriter:
      FileWriter_Visit_B64Encoded_Data(static_cast<FILEWriter&>(*visitor), field, name);
      break;
  }
}

void VisitWeightList(std::shared_ptr<Visitor>& visitor, std::vector<std::string>& field,
                     const std::string& name) {
  switch (KindOf(visitor)) {
    case VisitorKind::kJson:
      visitor->Visit(field, name);
      break;
    case VisitorKind::kReader: {
      auto& reader = static_cast<FILEReader&>(*visitor);
      const uint64_t count = reader.ReadCount(sizeof(uint64_t), "weight data");
      field.clear();
      field.resize(static_cast<size_t>(count));
      for (std::string& entry : field) FileReader_Visit_B64Encoded_Data(reader, entry, name);
      break;
    }
    case VisitorKind::kWriter: {
      auto& writer = static_cast<FILEWriter&>(*visitor);
      writer.WriteCount(field.size());
      for (std::string& entry : field) FileWriter_Visit_B64Encoded_Data(writer, entry, name);
      break;
    }
  }
}

std::string Base64Encode(const void* data, size_t bytes) {
  const uint8_t* in = static_cast<const uint8_t*>(data);
  std::string text;
  text.resize((bytes + 2) / 3 * 4);
  char* out = &text[0];
  size_t i = 0;
  for (; i + 3 <= bytes; i += 3) {
    const uint32_t group = (uint32_t(in[i]) << 16) | (uint32_t(in[i + 1]) << 8) | in[i + 2];
    std::memcpy(out, kBase64Pairs.chars + 2 * (group >> 12), 2);
    std::memcpy(out + 2, kBase64Pairs.chars + 2 * (group & 0xFFF), 2);
    out += 4;
  }
  const size_t tail = bytes - i;
  if (tail > 0) {
    const uint32_t group = (uint32_t(in[i]) << 16) | (tail == 2 ? uint32_t(in[i + 1]) << 8 : 0);
    *out++ = kBase64Alphabet[(group >> 18) & 63];
    *out++ = kBase64Alphabet[(group >> 12) & 63];
    *out++ = tail == 2 ? kBase64Alphabet[(group >> 6) & 63] : '=';
    *out++ = '=';
  }
  return text;
}

std::string Base64Decode(const std::string& text) {
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3);
  bytes.resize(DecodedSize(text));
  if (!bytes.empty()) Base64DecodeInto(text, reinterpret_cast<uint8_t*>(&bytes[0]), bytes.size());
  return bytes;
}

std::vector<float> DecodeWeights(const std::string& text) {
  // Straight into the float array: the bytes past the last whole float (padding garbage) are dropped.
  std::vector<float> weights(DecodedSize(text) / sizeof(float));
  if (!weights.empty()) {
    Base64DecodeInto(text, reinterpret_cast<uint8_t*>(weights.data()), weights.size() * sizeof(float));
  }
  return weights;
}

std::string EncodeWeights(const float* data, size_t count) {
  if (count == 0) return std::string();
  return Base64Encode(data, count * sizeof(float));
}

}  // namespace runtime
}  // namespace zelva
