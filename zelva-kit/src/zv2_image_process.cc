// Geometric operations and the size query on plain ZVImage records. A pixel is `channels` opaque bytes;
// the format code matters only to the size query. Nothing here works in place.
#include "zv2_image_process.h"

#include <cstddef>
#include <cstring>
#include <exception>

#include "zelva/src/utility/logging.h"

namespace {

// 32-bit signed arithmetic with two's-complement wrap-around, as the sizes are defined, without the
// undefined behaviour of a signed overflow.
int32_t Mul32(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}
int32_t Add32(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

// Offset of pixel (y, x) in an image `width` pixels wide.
ptrdiff_t PixelOffset(int32_t y, int32_t x, int32_t width, int32_t channels) {
  return (static_cast<ptrdiff_t>(y) * width + x) * channels;
}

// Checks before a per-pixel walk over a height x width image that moves `channels` bytes per pixel.
bool PixelWalkMovesAnything(const ZVImage* src, const ZVImage* dst) {
  if (src->height <= 0 || src->width <= 0) return false;
  ZV_ASSERT(src->channels >= 0, "Invaild channels(%d) of image.", src->channels);
  if (src->channels == 0) return false;
  ZV_ASSERT(src->data != nullptr && dst->data != nullptr, "Invaild image data.");
  return true;
}

// Reverses every row of `src` into `dst`.
void MirrorRows(const ZVImage* src, ZVImage* dst) {
  ZV_ASSERT(src != nullptr && dst != nullptr, "Invaild image.");
  if (!PixelWalkMovesAnything(src, dst)) return;
  const int32_t width = src->width, height = src->height, channels = src->channels;
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      std::memcpy(dst->data + PixelOffset(y, width - 1 - x, width, channels),
                  src->data + PixelOffset(y, x, width, channels), channels);
    }
  }
}

_ZV2_Result RotateClockwise(const ZVImage* src, ZVImage* dst, uint32_t angle) {
  ZV_ASSERT(src != nullptr && dst != nullptr, "Invaild image.");
  if (angle != 0 && angle != 90 && angle != 180 && angle != 270) {
    zelva::utility::Log(zelva::utility::kLogError, "ZV2_Clockwise_Rotate_Image_CPU", ZV_FILE, __LINE__,
                        "[Zelva Error] unsupported rotate angle");
    return ZV2_RESULT_INVALID_ARGUMENT;
  }

  // Read everything from src before dst is written, in case the two records are one.
  const int32_t width = src->width, height = src->height, channels = src->channels;
  const bool turned = angle == 90 || angle == 270;
  const int32_t dst_width = turned ? height : width;
  const int32_t dst_height = turned ? width : height;

  if (angle == 0) {
    if (height > 0) {
      const int32_t bytes = Mul32(Mul32(channels, width), height);
      ZV_ASSERT(bytes >= 0, "Invaild image size: width(%d) height(%d) channels(%d).", width, height,
                channels);
      if (bytes > 0) {
        ZV_ASSERT(src->data != nullptr && dst->data != nullptr, "Invaild image data.");
        std::memcpy(dst->data, src->data, static_cast<size_t>(bytes));
      }
    }
  } else if (PixelWalkMovesAnything(src, dst)) {
    for (int32_t y = 0; y < height; ++y) {
      for (int32_t x = 0; x < width; ++x) {
        int32_t row = 0, column = 0;
        if (angle == 90) {
          row = x;
          column = height - 1 - y;
        } else if (angle == 180) {
          row = height - 1 - y;
          column = width - 1 - x;
        } else {  // 270
          row = width - 1 - x;
          column = y;
        }
        std::memcpy(dst->data + PixelOffset(row, column, dst_width, channels),
                    src->data + PixelOffset(y, x, width, channels), channels);
      }
    }
  }

  dst->width = dst_width;
  dst->height = dst_height;
  dst->channels = channels;
  return ZV2_RESULT_OK;
}

_ZV2_Result ImageBytes(const ZVImage* image, int32_t* bytes) {
  ZV_ASSERT(image != nullptr && bytes != nullptr, "Invaild image.");
  *bytes = 0;
  const int32_t width = image->width, height = image->height, channels = image->channels;
  const int32_t pixels = Mul32(width, height);
  switch (image->format) {
    case 1:
    case 2:
    case 3:
    case 4:
    case 8:
    case 9:
      *bytes = Add32(pixels, pixels / 2);
      break;
    case 5:
    case 6:
    case 12:
      *bytes = Mul32(pixels, 4);
      break;
    case 7:
      *bytes = pixels;
      break;
    case 10:
    case 11:
      *bytes = Mul32(pixels, 3);
      break;
    case 13:
      *bytes = Mul32(Mul32(channels, height), width);
      break;
    case 14:
      *bytes = Mul32(Mul32(Mul32(channels, height), width), 4);
      break;
    default:
      return ZV2_RESULT_FAILED;
  }
  return ZV2_RESULT_OK;
}

// Unusable records (null pointers, sizes that cannot describe memory) fail through an assertion; the entry
// points turn it into an Error line and -3, since nothing may raise out of a C function.
template <class Operation>
_ZV2_Result Guarded(const char* function, Operation operation) {
  try {
    return operation();
  } catch (const std::exception& e) {
    zelva::utility::Log(zelva::utility::kLogError, function, ZV_FILE, __LINE__,
                        "image operation failed. Error: %s", e.what());
    return ZV2_RESULT_INVALID_ARGUMENT;
  }
}

}  // namespace

extern "C" {

_ZV2_Result ZV2_Clockwise_Rotate_Image_CPU(const ZVImage* src, ZVImage* dst, uint32_t angle) {
  return Guarded(ZV_FUNCTION, [&] { return RotateClockwise(src, dst, angle); });
}

// Two names of one operation: both reverse every row.
_ZV2_Result ZV2_FlipV_Image_CPU(const ZVImage* src, ZVImage* dst) {
  return Guarded(ZV_FUNCTION, [&] {
    MirrorRows(src, dst);
    return ZV2_RESULT_OK;
  });
}

_ZV2_Result ZV2_Mirror_Image_CPU(const ZVImage* src, ZVImage* dst)
    __attribute__((alias("ZV2_FlipV_Image_CPU")));

_ZV2_Result ZV2_Get_ZVImage_Bytes(const ZVImage* image, int32_t* bytes) {
  return Guarded(ZV_FUNCTION, [&] { return ImageBytes(image, bytes); });
}

}  // extern "C"
