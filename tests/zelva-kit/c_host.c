/* A C host: the public headers compile as C99 and every C entry links and answers. */
#include <stdio.h>
#include <string.h>

#include "zv2.h"

static int lines_seen = 0;
static int32_t CountLine(const char* text) {
  (void)text;
  ++lines_seen;
  return 0;
}

#define EXPECT(cond)                                        \
  do {                                                      \
    if (!(cond)) {                                          \
      fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #cond); \
      return 1;                                             \
    }                                                       \
  } while (0)

int main(void) {
  uint32_t mask = 0, flags = 0, handle = 0;
  float in[4] = {0}, out[4] = {0};
  const char* argv[2] = {"missing-model.json", "missing-config.json"};
  uint8_t src_px[6] = {1, 2, 3, 4, 5, 6}, dst_px[6] = {0};
  ZVImage src, dst;
  int32_t bytes = -7;

  EXPECT(ZV2_SetLogCallback(CountLine) == ZV2_RESULT_OK);
  EXPECT(ZV2_SetLogTag("CHOST") == ZV2_RESULT_OK);
  EXPECT(ZV2_GetLogLevel(&mask) == ZV2_RESULT_OK && mask == ZV2_LOG_DEFAULT_MASK);
  EXPECT(ZV2_SetLogLevel(ZV2_LOG_ERROR) == ZV2_RESULT_OK);

  EXPECT(ZV2_CheckIsaSupported(&flags) == ZV2_RESULT_OK);
  EXPECT(ZV2_CheckIsaAVX() == ZV2_RESULT_OK || ZV2_CheckIsaAVX() == ZV2_RESULT_FAILED);

  EXPECT(ZV2_Create_AudioDenoise(&handle, 2, argv) == ZV2_RESULT_FAILED);
  EXPECT(ZV2_Create_AudioDenoise_DataStream() == ZV2_RESULT_FAILED);
  EXPECT(ZV2_Apply_AudioDenoise_CPU(handle, in, out) == ZV2_RESULT_HANDLE_NOT_FOUND);
  EXPECT(ZV2_ReSet_AudioDenoise_RNN_State_CPU(handle) == ZV2_RESULT_HANDLE_NOT_FOUND);
  EXPECT(ZV2_Set_AudioDenoise(handle, "UseHyperspecific", "1") == ZV2_RESULT_HANDLE_NOT_FOUND);
  EXPECT(ZV2_Get_AudioDenoise(handle, "UseHyperspecific", out) == ZV2_RESULT_HANDLE_NOT_FOUND);
  EXPECT(ZV2_Destory_AudioDenoise(&handle) == ZV2_RESULT_HANDLE_NOT_FOUND);

  EXPECT(ZV2_Create_VAD(&handle, 2, argv) == ZV2_RESULT_FAILED);
  EXPECT(ZV2_Create_VAD_DataStream() == ZV2_RESULT_FAILED);
  EXPECT(ZV2_Apply_VAD_CPU(handle, in, out) == ZV2_RESULT_HANDLE_NOT_FOUND);
  EXPECT(ZV2_ReSet_VAD_RNN_State_CPU(handle) == ZV2_RESULT_HANDLE_NOT_FOUND);
  EXPECT(ZV2_Set_VAD(handle, "x", "y") == ZV2_RESULT_HANDLE_NOT_FOUND);
  EXPECT(ZV2_Get_VAD(handle, "x", out) == ZV2_RESULT_HANDLE_NOT_FOUND);
  EXPECT(ZV2_Destory_VAD(&handle) == ZV2_RESULT_HANDLE_NOT_FOUND);

  memset(&src, 0, sizeof src);
  src.width = 2;
  src.height = 1;
  src.channels = 3;
  src.format = 13;
  src.data = src_px;
  dst = src;
  dst.data = dst_px;
  EXPECT(ZV2_Get_ZVImage_Bytes(&src, &bytes) == ZV2_RESULT_OK && bytes == 6);
  EXPECT(ZV2_Clockwise_Rotate_Image_CPU(&src, &dst, 180) == ZV2_RESULT_OK);
  EXPECT(memcmp(dst_px, "\4\5\6\1\2\3", 6) == 0);
  EXPECT(ZV2_FlipV_Image_CPU(&src, &dst) == ZV2_RESULT_OK);
  EXPECT(ZV2_Mirror_Image_CPU(&src, &dst) == ZV2_RESULT_OK);
  EXPECT(memcmp(dst_px, "\4\5\6\1\2\3", 6) == 0);

  EXPECT(lines_seen > 0);
  printf("c host: every entry answered\n");
  return 0;
}
