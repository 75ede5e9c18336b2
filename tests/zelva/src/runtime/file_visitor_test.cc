#include "zelva/src/runtime/file_visitor.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

#include "serialization_test_util.h"

namespace zelva {
namespace runtime {
namespace {

using testing_objects::FilledSample;
using testing_objects::LogCapture;
using testing_objects::ReadBytes;
using testing_objects::Sample;
using testing_objects::TempPath;
using testing_objects::WriteBytes;

class Empty : public Serializable {};

class Tiny : public Serializable {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override {
    Serializable::VisitAttr(visitor);
    visitor->Visit(x, "x");
    visitor->Visit(flag, "flag");
    visitor->Visit(empty, "empty");
    visitor->Visit(nested, "nested");
    visitor->Visit(v, "v");
  }
  uint16_t x = 0x0102;
  bool flag = true;
  std::string empty;
  Empty nested;
  std::vector<int16_t> v = {-2};
};

class Floats : public Serializable {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override {
    Serializable::VisitAttr(visitor);
    visitor->Visit(values, "values");
  }
  std::vector<float> values;
};

std::vector<uint8_t> Concat(std::initializer_list<std::vector<uint8_t>> parts) {
  std::vector<uint8_t> out;
  for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}
std::vector<uint8_t> U64(uint64_t v) {
  std::vector<uint8_t> out;
  for (int i = 0; i < 8; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
  return out;
}
std::vector<uint8_t> Chars(const std::string& s) {
  return std::vector<uint8_t>(s.begin(), s.end());
}
const std::vector<uint8_t> kHeader = {0x32, 0x4E, 0x00, 0x00};

TEST(FILEWriter, WritesTheBareSequenceOfValues) {
  const std::string path = TempPath("tiny.zvmod");
  Tiny tiny;
  tiny.ToFile(path, "bin");
  const std::vector<uint8_t> expected = Concat({kHeader,  // version 20018
                                                U64(4),
                                                Chars("Tiny"),  // serializable_type
                                                {0x02, 0x01},   // x
                                                {0x01},         // flag
                                                U64(0),         // empty string: the length only
                                                U64(5),
                                                Chars("Empty"),  // nested object: its values, no header
                                                U64(1),
                                                {0xFE, 0xFF}});  // v
  EXPECT_EQ(ReadBytes(path), expected);

  Tiny back;
  back.x = 0;
  back.flag = false;
  back.empty = "x";
  back.v.clear();
  back.FromFile(path);
  EXPECT_EQ(back.x, 0x0102);
  EXPECT_TRUE(back.flag);
  EXPECT_EQ(back.empty, "");
  EXPECT_EQ(back.nested.serializable_type, "Empty");
  EXPECT_EQ(back.v, std::vector<int16_t>{-2});
}

TEST(FILEReader, RoundTripsEveryTypeInBothPrecisions) {
  for (const char* precision : {"fp16", "fp32"}) {
    SCOPED_TRACE(precision);
    const std::string path = TempPath("sample.zvmod");
    Sample written = FilledSample();
    written.ToBin(path, precision);
    Sample read;
    read.FromBin(path, precision);
    // An empty inner list would be dropped; the filled sample has none.
    testing_objects::ExpectSameSample(written, read);
  }
}

TEST(FILEReader, DropsEmptyInnerListsOfAListOfLists) {
  const std::string path = TempPath("lists.zvmod");
  Sample written;
  written.nested_lists = {{}, {1}, {}, {2, 3}};
  written.ToBin(path, "fp32");
  Sample read;
  read.FromBin(path, "fp32");
  EXPECT_EQ(read.nested_lists, (std::vector<std::vector<uint16_t>>{{1}, {2, 3}}));
}

TEST(FILEReader, TruncatedFileFailsOnItsLastValue) {
  const std::string path = TempPath("cut.zvmod");
  FilledSample().ToBin(path, "fp32");
  std::vector<uint8_t> bytes = ReadBytes(path);
  bytes.pop_back();
  WriteBytes(path, bytes);
  Sample read;
  LogCapture log;
  EXPECT_THROW(read.FromBin(path, "fp32"), std::runtime_error);
  EXPECT_TRUE(log.Contains("failed to read a float value, error code is 0."));
  EXPECT_EQ(read.gated, 99);  // everything before the last value was read
}

TEST(FILEReader, HugeCountsFailBeforeAnyAllocation) {
  // A string length and an element count that no file could hold; the second one overflows when multiplied
  // by the element size. Both must end in the read failure, never in an allocation failure.
  const std::string path = TempPath("huge.zvmod");
  WriteBytes(path, Concat({kHeader, U64(uint64_t(1) << 60), Chars("Tiny")}));
  Tiny tiny;
  {
    LogCapture log;
    EXPECT_THROW(tiny.FromFile(path), std::runtime_error);
    EXPECT_TRUE(log.Contains("failed to read a char value"));
  }
  WriteBytes(path,
             Concat({kHeader, U64(6), Chars("Floats"), U64(0x4000000000000001ull), {0, 0, 0x80, 0x3F}}));
  Floats floats;
  {
    LogCapture log;
    EXPECT_THROW(floats.FromFile(path), std::runtime_error);
    EXPECT_TRUE(log.Contains("failed to read a float value"));
  }
  // The count that exactly fits is fine.
  WriteBytes(path, Concat({kHeader, U64(6), Chars("Floats"), U64(1), {0, 0, 0x80, 0x3F}}));
  floats.FromFile(path);
  EXPECT_EQ(floats.values, std::vector<float>{1.0f});
}

TEST(FILEReader, VersionIsReadOnceAtTheRoot) {
  std::unique_ptr<FILE, int (*)(FILE*)> file(std::tmpfile(), &std::fclose);
  ASSERT_NE(file, nullptr);
  const uint32_t old_version = 20003;
  ASSERT_EQ(std::fwrite(&old_version, 4, 1, file.get()), 1u);
  std::rewind(file.get());

  FILEReader nested(file.get(), 20018, "fp16");  // nested: consumes nothing
  EXPECT_EQ(std::ftell(file.get()), 0);
  EXPECT_EQ(nested.serialization_protocol_version, 20018u);
  FILEReader root(file.get(), 0, "fp16");
  EXPECT_EQ(std::ftell(file.get()), 4);
  EXPECT_EQ(root.serialization_protocol_version, 20003u);

  LogCapture log;
  EXPECT_THROW(FILEReader(nullptr, 0, "fp16"), std::runtime_error);
  EXPECT_TRUE(log.Contains("cant construct FILEReader object using a NULL ptr."));
}

TEST(FILEReader, RefusesNewerVersionsAndSkipsGatedFieldsOfOlderOnes) {
  const std::string path = TempPath("old.zvmod");
  {
    // An old writer: version 20003 in the header, and its walk leaves out the field gated at 20010.
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "wb"), &std::fclose);
    const uint32_t version = 20003;
    ASSERT_EQ(std::fwrite(&version, 4, 1, file.get()), 1u);
    std::shared_ptr<Visitor> writer = std::make_shared<FILEWriter>(file.get(), false, "fp16");
    writer->serialization_protocol_version = version;
    Sample old = FilledSample();
    old.VisitAttr(writer);
  }
  Sample read;
  read.FromFile(path);
  EXPECT_EQ(read.gated, -5);  // not in the file: keeps the constructor's value
  EXPECT_EQ(read.last, 3.25f);
  EXPECT_EQ(read.inner.label, "deep");

  std::vector<uint8_t> bytes = ReadBytes(path);
  bytes[0] = 0x33;  // 20019
  WriteBytes(path, bytes);
  LogCapture log;
  EXPECT_THROW(read.FromFile(path), std::runtime_error);
  EXPECT_TRUE(log.Contains("_serialization_protocol_version > __SERIALIZATION_PROTOCOL_VERSION__."));
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
