#include "zelva/src/runtime/file_visitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "serialization_test_util.h"
#include "support/log_capture.h"

namespace zelva {
namespace runtime {
namespace {

using testing_objects::FilledSample;
using testing_objects::ReadBytes;
using testing_objects::Sample;
using testing_objects::TempPath;
using testing_objects::WriteBytes;
using zvtest::FieldWalker;
using Bytes = std::vector<uint8_t>;

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
  std::vector<float> v = {1.0f};
};

Bytes Concat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}
Bytes U64(uint64_t v) {
  Bytes out;
  for (int i = 0; i < 8; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
  return out;
}
Bytes Chars(const std::string& s) {
  return Bytes(s.begin(), s.end());
}
const Bytes kHeader = {0x32, 0x4E, 0x00, 0x00};  // version 20018

TEST(FILEWriter, WritesTheBareSequenceOfValues) {
  const std::string path = TempPath("tiny.zvmod");
  Tiny tiny;
  tiny.ToFile(path, "bin");
  const Bytes expected = Concat({kHeader,
                                 U64(4),
                                 Chars("Tiny"),  // serializable_type
                                 {0x02, 0x01},   // x
                                 {0x01},         // flag
                                 U64(0),         // empty string: the length only
                                 U64(5),
                                 Chars("Empty"),  // nested object: its values, no header
                                 U64(1),
                                 {0, 0, 0x80, 0x3F}});  // v
  EXPECT_EQ(ReadBytes(path), expected);
  Tiny back;
  back.x = 0;
  back.flag = false;
  back.empty = "x";
  back.v.clear();
  back.FromFile(path);
  EXPECT_EQ(FieldWalker::Record(back), FieldWalker::Record(tiny));
}

// Every visitable type through JSON and both binary precisions.
TEST(FILEReader, EveryTypeRoundTripsThroughEachForm) {
  Sample written = FilledSample();
  for (const char* form : {"json", "fp16", "fp32"}) {
    SCOPED_TRACE(form);
    const std::string path = TempPath(std::string(form) == "json" ? "s.json" : "s.zvmod");
    Sample read;
    if (std::string(form) == "json") {
      written.ToFile(path, "json");
      read.FromFile(path);
    } else {
      written.ToBin(path, form);
      read.FromBin(path, form);
    }
    EXPECT_EQ(FieldWalker::Record(read), FieldWalker::Record(written));
  }

  // An empty inner list of a list of lists is dropped.
  const std::string path = TempPath("lists.zvmod");
  written.v_v_u16 = {{}, {1}, {}, {2, 3}};
  written.ToBin(path, "fp32");
  Sample read;
  read.FromBin(path, "fp32");
  EXPECT_EQ(read.v_v_u16, (std::vector<std::vector<uint16_t>>{{1}, {2, 3}}));
}

TEST(FILEReader, ShortFilesAndHugeCountsFailOnTheValueTheyCut) {
  const std::string path = TempPath("cut.zvmod");
  FilledSample().ToBin(path, "fp32");
  Bytes bytes = ReadBytes(path);
  bytes.pop_back();
  WriteBytes(path, bytes);
  zvtest::LogCapture log;
  Sample read;
  EXPECT_THROW(read.FromBin(path, "fp32"), std::runtime_error);
  EXPECT_THAT(log.Last(), ::testing::HasSubstr("failed to read a float value, error code is 0."));

  // A string length and an element count that no file could hold; the second overflows when multiplied by the
  // element size. Both end in the read failure, never in an allocation failure; the count that fits reads.
  Tiny tiny;
  WriteBytes(path, Concat({kHeader, U64(uint64_t(1) << 60), Chars("Tiny")}));
  EXPECT_THROW(tiny.FromFile(path), std::runtime_error);
  EXPECT_THAT(log.Last(), ::testing::HasSubstr("failed to read a char value"));
  const Bytes head = Concat({kHeader, U64(4), Chars("Tiny"), {2, 1, 1}, U64(0), U64(5), Chars("Empty")});
  WriteBytes(path, Concat({head, U64(0x4000000000000001ull), {0, 0, 0x80, 0x3F}}));
  EXPECT_THROW(tiny.FromFile(path), std::runtime_error);
  EXPECT_THAT(log.Last(), ::testing::HasSubstr("failed to read a float value"));
  WriteBytes(path, Concat({head, U64(1), {0, 0, 0x40, 0x40}}));
  tiny.FromFile(path);
  EXPECT_EQ(tiny.v, std::vector<float>{3.0f});
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
