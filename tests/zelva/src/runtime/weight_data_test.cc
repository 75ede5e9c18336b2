#include "zelva/src/runtime/weight_data.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "serialization_test_util.h"
#include "support/log_capture.h"
#include "zelva/src/runtime/file_visitor.h"

namespace zelva {
namespace runtime {
namespace {

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

TEST(Base64, StandardAlphabetOutThreeBytesPerFourCharactersInWithoutValidation) {
  // RFC 4648 test vectors.
  const char* plain[] = {"", "f", "fo", "foo", "foob", "fooba", "foobar", "\xFB\xFF\xBF"};
  const char* coded[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy", "+/+/"};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(Base64Encode(plain[i], std::strlen(plain[i])), coded[i]);
  EXPECT_EQ(Base64Decode("Zm9vYmFy"), "foobar");
  EXPECT_EQ(Base64Decode("+/+/"), "\xFB\xFF\xBF");
  // Padding is not special: '=' counts as -1 like any foreign byte, in 8-bit arithmetic.
  EXPECT_EQ(Base64Decode("Zg=="), std::string("f\x0F\xBF", 3));
  EXPECT_EQ(Base64Decode("!!!!"), "\xFF\xFF\xBF");
  EXPECT_EQ(Base64Decode("Zm9vYg"), "foo");  // a trailing partial group is ignored

  // Weights: the count is the decoded bytes over four, rounded down.
  const float values[] = {1.5f, -2.25f, 3.0e-8f};
  const char* tails[] = {"==", "=", ""};
  for (size_t n = 1; n <= 3; ++n) {
    SCOPED_TRACE(n);
    const std::string text = EncodeWeights(values, n);
    EXPECT_EQ(text.size(), 4 * n + 4);
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

  const std::string path = TempPath("w.zvmod");
  w.ToBin(path, "fp32");
  const std::vector<uint8_t> bytes = ReadBytes(path);
  // version, type name, then: count 3 + three floats, list count 2, count 1 + one float, count 0.
  const size_t header = 4 + 8 + 8;
  ASSERT_EQ(bytes.size(), header + 8 + 12 + 8 + 8 + 4 + 8);
  EXPECT_EQ(bytes[header], 3);
  EXPECT_EQ(std::memcmp(&bytes[header + 8], raw, 12), 0);
  Weighted back;
  back.FromBin(path, "fp32");
  EXPECT_EQ(back.weights, w.weights);
  EXPECT_EQ(back.layers, w.layers);  // an empty text reads back as the empty text

  w.ToBin(path, "fp16");
  EXPECT_EQ(ReadBytes(path).size(), header + 8 + 6 + 8 + 8 + 2 + 8);
  back.FromFile(path);  // the dispatch by extension reads half weights
  const std::vector<float> truncated = DecodeWeights(back.weights);
  ASSERT_EQ(truncated.size(), 3u);
  for (size_t i = 0; i < 3; ++i) EXPECT_EQ(truncated[i], HalfToFloat(FloatToHalf(raw[i])));
  EXPECT_EQ(truncated[0], 1.0f);
}

TEST(WeightData, UnknownPrecisionIsNotImplemented) {
  std::unique_ptr<FILE, int (*)(FILE*)> file(std::tmpfile(), &std::fclose);
  std::shared_ptr<Visitor> writer = std::make_shared<FILEWriter>(file.get(), true, "bf16");
  const float one = 1.0f;
  std::string field = EncodeWeights(&one, 1);
  zvtest::LogCapture log;
  EXPECT_THROW(VisitWeightData(writer, field, "w"), std::runtime_error);
  EXPECT_THAT(log.Last(), ::testing::HasSubstr("Not Implemented."));
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
