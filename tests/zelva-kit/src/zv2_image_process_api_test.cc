// The image operations as a host sees them.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "zv2_image_process.h"

namespace {

constexpr uint8_t kUntouched = 0xEE;
constexpr size_t kSlack = 16;  // bytes past the image that must never be written

struct Image {
  ZVImage record{};
  std::vector<uint8_t> bytes;

  // Pixels with distinct bytes (1, 2, 3, ...), or all kUntouched for a destination.
  Image(int32_t width, int32_t height, int32_t channels, bool fill) {
    const size_t n = width > 0 && height > 0 && channels > 0 ? size_t(width) * height * channels : 0;
    bytes.assign(n + kSlack, kUntouched);
    if (fill) {
      for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(i + 1);
    }
    record.format = 7;
    record.width = width;
    record.height = height;
    record.channels = channels;
    record.data = bytes.data();
  }
  const uint8_t* Pixel(int32_t y, int32_t x) const {
    return bytes.data() + (size_t(y) * record.width + x) * record.channels;
  }
  bool TailUntouched(size_t image_bytes) const {
    for (size_t i = image_bytes; i < bytes.size(); ++i) {
      if (bytes[i] != kUntouched) return false;
    }
    return true;
  }
};

std::vector<uint8_t> Rotated(const Image& src, uint32_t angle) {
  Image dst(src.record.width, src.record.height, src.record.channels, false);
  EXPECT_EQ(ZV2_Clockwise_Rotate_Image_CPU(&src.record, &dst.record, angle), ZV2_RESULT_OK);
  return std::vector<uint8_t>(dst.bytes.begin(), dst.bytes.end() - kSlack);
}

// Destination pixel (r, c) of a clockwise rotation, looked up in the source.
const uint8_t* SourceOf(const Image& src, uint32_t angle, int32_t r, int32_t c) {
  const int32_t w = src.record.width, h = src.record.height;
  switch (angle) {
    case 0:
      return src.Pixel(r, c);
    case 90:
      return src.Pixel(h - 1 - c, r);
    case 180:
      return src.Pixel(h - 1 - r, w - 1 - c);
    default:
      return src.Pixel(c, w - 1 - r);
  }
}

TEST(ImageProcessApi, RotationsPixelByPixel) {
  // By hand, the direction: 3 wide, 2 high, one byte per pixel, 1 2 3 / 4 5 6 turns to 4 1 / 5 2 / 6 3.
  EXPECT_EQ(Rotated(Image(3, 2, 1, true), 90), (std::vector<uint8_t>{4, 1, 5, 2, 6, 3}));
  for (int32_t channels : {1, 3, 4}) {
    for (auto size : {std::pair<int32_t, int32_t>{3, 5}, {5, 3}, {1, 7}, {4, 4}}) {
      const Image src(size.first, size.second, channels, true);
      const size_t image_bytes = size_t(size.first) * size.second * channels;
      for (uint32_t angle : {0u, 90u, 180u, 270u}) {
        SCOPED_TRACE(testing::Message()
                     << size.first << "x" << size.second << "x" << channels << " @" << angle);
        Image dst(1, 1, 1, false);
        dst.bytes.assign(image_bytes + kSlack, kUntouched);
        dst.record.data = dst.bytes.data();
        dst.record.width = dst.record.height = dst.record.channels = -7;
        ASSERT_EQ(ZV2_Clockwise_Rotate_Image_CPU(&src.record, &dst.record, angle), ZV2_RESULT_OK);

        const bool turned = angle == 90 || angle == 270;
        EXPECT_EQ(dst.record.width, turned ? size.second : size.first);
        EXPECT_EQ(dst.record.height, turned ? size.first : size.second);
        EXPECT_EQ(dst.record.channels, channels);
        for (int32_t r = 0; r < dst.record.height; ++r) {
          for (int32_t c = 0; c < dst.record.width; ++c) {
            const uint8_t* want = SourceOf(src, angle, r, c);
            const uint8_t* got = dst.Pixel(r, c);
            for (int32_t k = 0; k < channels; ++k) ASSERT_EQ(got[k], want[k]) << "pixel " << r << "," << c;
          }
        }
        EXPECT_TRUE(dst.TailUntouched(image_bytes));
      }
    }
  }
}

TEST(ImageProcessApi, FlipAndMirrorReverseRowsAndSetNoField) {
  const Image src(3, 5, 3, true);
  for (auto op : {&ZV2_FlipV_Image_CPU, &ZV2_Mirror_Image_CPU}) {
    // The destination's fields are the caller's own, left alone and not read: the source drives the walk.
    Image dst(3, 5, 3, false);
    dst.record.width = dst.record.height = dst.record.channels = 0;
    dst.record.format = 99;
    ASSERT_EQ(op(&src.record, &dst.record), ZV2_RESULT_OK);
    EXPECT_EQ(dst.record.width + dst.record.height + dst.record.channels, 0);
    EXPECT_EQ(dst.record.format, 99);
    for (int32_t y = 0; y < 5; ++y) {
      for (int32_t x = 0; x < 3; ++x) {
        for (int32_t k = 0; k < 3; ++k) ASSERT_EQ(dst.bytes[(y * 3 + x) * 3 + k], src.Pixel(y, 2 - x)[k]);
      }
    }
    EXPECT_TRUE(dst.TailUntouched(45));
  }
}

TEST(ImageProcessApi, UnsupportedAngleChangesNothing) {
  ASSERT_EQ(ZV2_SetLogTag("ZELVA"), ZV2_RESULT_OK);
  zvtest::LogCapture log;
  const std::vector<std::string>& lines = log.lines();
  const std::string head =
      "[ZELVA]: Error in FUNCTION<ZV2_Clockwise_Rotate_Image_CPU>, FILE<zelva-kit/src/zv2_image_process.cc>, "
      "LINE<";
  const std::string tail = ">. [Zelva Error] unsupported rotate angle\n";
  const Image src(3, 5, 3, true);
  for (uint32_t angle : {360u, static_cast<uint32_t>(-90), 45u, 1u, 91u}) {
    SCOPED_TRACE(angle);
    log.Clear();
    Image dst(2, 2, 1, false);
    const Image before = dst;
    EXPECT_EQ(ZV2_Clockwise_Rotate_Image_CPU(&src.record, &dst.record, angle), ZV2_RESULT_INVALID_ARGUMENT);
    EXPECT_EQ(std::memcmp(&dst.record, &before.record, sizeof(ZVImage)), 0);
    EXPECT_EQ(dst.bytes, before.bytes);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind(head, 0), 0u) << lines[0];
    EXPECT_EQ(lines[0].substr(lines[0].size() - tail.size()), tail);
  }
}

TEST(ImageProcessApi, EmptyAndNegativeSizesMoveNothing) {
  const Image src(3, 5, 3, true);  // pixels there, but the record says otherwise
  for (auto size : {std::pair<int32_t, int32_t>{3, 0}, {3, -2}, {0, 5}, {-3, 5}, {-3, -5}}) {
    ZVImage record = src.record;
    record.width = size.first;
    record.height = size.second;
    for (uint32_t angle : {0u, 90u, 180u, 270u}) {
      SCOPED_TRACE(testing::Message() << size.first << "x" << size.second << " @" << angle);
      Image dst(3, 5, 3, false);
      if (angle == 0 && size.first < 0 && size.second > 0) continue;  // a negative block copy: refused
      EXPECT_EQ(ZV2_Clockwise_Rotate_Image_CPU(&record, &dst.record, angle), ZV2_RESULT_OK);
      const bool turned = angle == 90 || angle == 270;
      EXPECT_EQ(dst.record.width, turned ? size.second : size.first);
      EXPECT_EQ(dst.record.height, turned ? size.first : size.second);
      EXPECT_TRUE(dst.TailUntouched(0));
    }
    Image dst(3, 5, 3, false);
    EXPECT_EQ(ZV2_Mirror_Image_CPU(&record, &dst.record), ZV2_RESULT_OK);
    EXPECT_EQ(ZV2_FlipV_Image_CPU(&record, &dst.record), ZV2_RESULT_OK);
    EXPECT_TRUE(dst.TailUntouched(0));
  }
}

int32_t Bytes(int32_t format, int32_t width, int32_t height, int32_t channels, _ZV2_Result expected) {
  const ZVImage image{0, format, 0, width, height, channels, nullptr};
  int32_t bytes = 12345;
  EXPECT_EQ(ZV2_Get_ZVImage_Bytes(&image, &bytes), expected) << "format " << format;
  return bytes;
}

TEST(ImageProcessApi, SizeTable) {
  // Every format on one 3 x 3 image of 2 channels (which only formats 13 and 14 read), then other sizes.
  const std::pair<std::vector<int32_t>, int32_t> by_format[] = {
      {{1, 2, 3, 4, 8, 9}, 13}, {{5, 6, 12}, 36}, {{7}, 9}, {{10, 11}, 27}, {{13}, 18}, {{14}, 72},
      {{0, 15, -1, 100}, 0},
  };
  for (const auto& [formats, bytes] : by_format) {
    for (int32_t format : formats)
      EXPECT_EQ(Bytes(format, 3, 3, 2, bytes ? ZV2_RESULT_OK : ZV2_RESULT_FAILED), bytes);
  }
  struct Row {
    int32_t format, width, height, bytes;
  };
  const Row rows[] = {
      {3, 5, 3, 22},
      {3, 4, 2, 12},
      {13, 5, 3, 60},
      {14, 5, 3, 240},
      // Signed 32-bit arithmetic: a negative side gives a negative size, a product past 2^31 wraps.
      {7, -3, 3, -9},
      {1, -3, 3, -13},
      {7, 65536, 32768, INT32_MIN},
      {5, 65536, 8192, INT32_MIN},
      {1, 65536, 32768, 1073741824},  // p = -2^31: p + p / 2 = -3 * 2^30, wrapped
  };
  for (const Row& row : rows)
    EXPECT_EQ(Bytes(row.format, row.width, row.height, 4, ZV2_RESULT_OK), row.bytes);
}

TEST(ImageProcessApi, UnusableInputFailsLoudly) {
  zvtest::LogCapture log;
  Image img(2, 2, 1, true);
  int32_t bytes = 0;
  EXPECT_EQ(ZV2_Get_ZVImage_Bytes(nullptr, &bytes), ZV2_RESULT_INVALID_ARGUMENT);
  EXPECT_EQ(ZV2_Get_ZVImage_Bytes(&img.record, nullptr), ZV2_RESULT_INVALID_ARGUMENT);
  EXPECT_EQ(ZV2_Clockwise_Rotate_Image_CPU(&img.record, nullptr, 90), ZV2_RESULT_INVALID_ARGUMENT);
  EXPECT_EQ(ZV2_Mirror_Image_CPU(nullptr, &img.record), ZV2_RESULT_INVALID_ARGUMENT);
  Image no_pixels(2, 2, 1, false);
  no_pixels.record.data = nullptr;
  EXPECT_EQ(ZV2_FlipV_Image_CPU(&img.record, &no_pixels.record), ZV2_RESULT_INVALID_ARGUMENT);
  // A block copy of a negative byte count.
  ZVImage negative = img.record;
  negative.width = -2;
  EXPECT_EQ(ZV2_Clockwise_Rotate_Image_CPU(&negative, &no_pixels.record, 0), ZV2_RESULT_INVALID_ARGUMENT);
}

}  // namespace
