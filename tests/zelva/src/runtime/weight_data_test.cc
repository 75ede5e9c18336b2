#include "zelva/src/runtime/weight_data.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "serialization_test_util.h"
#include "zelva/src/runtime/file_visitor.h"

namespace zelva {
namespace runtime {
namespace {

using testing_objects::LogCapture;
using testing_objects::ReadBytes;
using testing_objects::TempPath;

class Weighted : public Serializable {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override {
    Serializable::VisitAttr(visitor);
    VisitWeightData(visitor, weights, "weights");
    VisitWeightList(visitor, layers, "layers");
  }
  std::string weights;
  std::vector<std::string> layers;
};

TEST(Base64, EncodesStandardAlphabetWithPadding) {
  // RFC 4648 test vectors.
  const char* plain[] = {"", "f", "fo", "foo", "foob", "fooba", "foobar"};
  const char* coded[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
  for (int i = 0; i < 7; ++i) EXPECT_EQ(Base64Encode(plain[i], std::strlen(plain[i])), coded[i]);
  const uint8_t high[] = {0xFB, 0xFF, 0xBF};
  EXPECT_EQ(Base64Encode(high, 3), "+/+/");
}

TEST(Base64, DecodesThreeBytesPerFourCharactersWithoutValidation) {
  EXPECT_EQ(Base64Decode("Zm9vYmFy"), "foobar");
  EXPECT_EQ(Base64Decode("+/+/"), "\xFB\xFF\xBF");
  // Padding is not special: '=' counts as -1 like any foreign byte, in 8-bit arithmetic.
  EXPECT_EQ(Base64Decode("Zg=="), std::string("f\x0F\xBF", 3));
  EXPECT_EQ(Base64Decode("!!!!"), "\xFF\xFF\xBF");
  EXPECT_EQ(Base64Decode("Zm9vYg"), "foo");  // a trailing partial group is ignored
  EXPECT_EQ(Base64Decode(""), "");
}

TEST(Base64, WeightCountsFollowTheFloorRule) {
  const float values[] = {1.5f, -2.25f, 3.0e-8f};
  const size_t chars[] = {8, 12, 16};
  const char* tails[] = {"==", "=", ""};
  for (size_t n = 1; n <= 3; ++n) {
    SCOPED_TRACE(n);
    const std::string text = EncodeWeights(values, n);
    EXPECT_EQ(text.size(), chars[n - 1]);
    EXPECT_EQ(text.substr(text.size() - std::strlen(tails[n - 1])), tails[n - 1]);
    EXPECT_EQ(Base64Decode(text).size(), 3 * n + 3);  // 6, 9, 12 bytes
    EXPECT_EQ(DecodeWeights(text), std::vector<float>(values, values + n));
  }
  EXPECT_EQ(EncodeWeights(values, 0), "");
  EXPECT_TRUE(DecodeWeights("").empty());
}

TEST(WeightData, BinaryFilesHoldRawNumbersOfTheirPrecision) {
  const float raw[] = {1.0009f, -2.5f, 1e-6f};
  Weighted w;
  w.weights = EncodeWeights(raw, 3);
  w.layers = {EncodeWeights(raw, 1), std::string()};

  const std::string path32 = TempPath("w.zvmod");
  w.ToBin(path32, "fp32");
  const std::vector<uint8_t> bytes = ReadBytes(path32);
  // version, type name, then: count 3 + three floats, list count 2, count 1 + one float, count 0.
  const size_t header = 4 + 8 + 8;
  ASSERT_EQ(bytes.size(), header + 8 + 12 + 8 + 8 + 4 + 8);
  uint64_t count;
  std::memcpy(&count, &bytes[header], 8);
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(std::memcmp(&bytes[header + 8], raw, 12), 0);
  Weighted back32;
  back32.FromBin(path32, "fp32");
  EXPECT_EQ(back32.weights, w.weights);
  EXPECT_EQ(back32.layers, w.layers);  // an empty text reads back as the empty text

  const std::string path16 = TempPath("w.zvmod");
  w.ToBin(path16, "fp16");
  EXPECT_EQ(ReadBytes(path16).size(), header + 8 + 6 + 8 + 8 + 2 + 8);
  Weighted back16;
  back16.FromFile(path16);  // the dispatch by extension reads half weights
  const std::vector<float> truncated = DecodeWeights(back16.weights);
  ASSERT_EQ(truncated.size(), 3u);
  for (size_t i = 0; i < 3; ++i) EXPECT_EQ(truncated[i], HalfToFloat(FloatToHalf(raw[i])));
  EXPECT_EQ(truncated[0], 1.0f);
  // A second pass through half precision changes nothing.
  back16.ToBin(path16, "fp16");
  Weighted again;
  again.FromBin(path16, "fp16");
  EXPECT_EQ(again.weights, back16.weights);
  EXPECT_EQ(again.layers, back16.layers);
}

TEST(WeightData, UnknownPrecisionIsNotImplemented) {
  std::unique_ptr<FILE, int (*)(FILE*)> file(std::tmpfile(), &std::fclose);
  std::shared_ptr<Visitor> writer = std::make_shared<FILEWriter>(file.get(), true, "bf16");
  const float one = 1.0f;
  std::string field = EncodeWeights(&one, 1);
  LogCapture log;
  EXPECT_THROW(VisitWeightData(writer, field, "w"), std::runtime_error);
  EXPECT_TRUE(log.Contains("Not Implemented."));
  std::string empty;
  VisitWeightData(writer, empty, "w");  // nothing to narrow: just the zero count

  std::rewind(file.get());
  std::shared_ptr<Visitor> reader = std::make_shared<FILEReader>(file.get(), 0, "bf16");
  EXPECT_THROW(VisitWeightData(reader, field, "w"), std::runtime_error);
  EXPECT_EQ(field, "");
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
