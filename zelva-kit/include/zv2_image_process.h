/*
 * zelva: image operations on plain records. No handle, no lock; safe on any thread.
 * A pixel is `channels` opaque bytes; rows follow one another with no gap. The caller owns all pixel memory
 * and sizes the destination; source and destination must not overlap. No pointer is checked.
 */
#ifndef ZV2_IMAGE_PROCESS_H_
#define ZV2_IMAGE_PROCESS_H_

#include "zv2_common.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ZVImage {
  int32_t reserved0; /* not read */
  int32_t format;    /* format code, only used by ZV2_Get_ZVImage_Bytes */
  int32_t reserved1; /* not read */
  int32_t width;     /* pixels per row */
  int32_t height;    /* rows */
  int32_t channels;  /* bytes per pixel for the geometric operations */
  uint8_t* data;     /* pixels, caller-owned */
} ZVImage;

/*
 * Rotates `src` clockwise by 0, 90, 180 or 270 degrees into dst->data and sets dst's width, height and
 * channels. Any other angle logs an error, leaves dst untouched and returns -3. Otherwise returns 0.
 */
ZV2_API _ZV2_Result ZV2_Clockwise_Rotate_Image_CPU(const ZVImage* src, ZVImage* dst, uint32_t angle);

/*
 * Reverses every row (left-right mirror, despite the name) into dst->data. Sets no field of dst: the caller
 * fills width, height and channels. Always returns 0.
 */
ZV2_API _ZV2_Result ZV2_FlipV_Image_CPU(const ZVImage* src, ZVImage* dst);

/* The same operation as ZV2_FlipV_Image_CPU. Always returns 0. */
ZV2_API _ZV2_Result ZV2_Mirror_Image_CPU(const ZVImage* src, ZVImage* dst);

/*
 * Writes 0 to *bytes, then the byte size of the image by its format code:
 *   1, 2, 3, 4, 8, 9: p + p/2 with p = width*height      5, 6, 12: width*height*4
 *   7: width*height      10, 11: width*height*3      13: channels*height*width      14: channels*height*width*4
 * Returns 0, or -1 for any other format (the size stays 0). 32-bit signed arithmetic.
 */
ZV2_API _ZV2_Result ZV2_Get_ZVImage_Bytes(const ZVImage* image, int32_t* bytes);

#ifdef __cplusplus
}
#endif

#endif /* ZV2_IMAGE_PROCESS_H_ */
