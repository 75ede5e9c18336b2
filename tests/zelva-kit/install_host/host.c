/* The smallest host: links the installed library and asks it something. */
#include <stdio.h>
#include <zelva/zv2.h>

int main(void) {
  uint32_t mask = 0;
  if (ZV2_GetLogLevel(&mask) != ZV2_RESULT_OK || mask != ZV2_LOG_DEFAULT_MASK) return 1;
  printf("installed zelva answers, log mask %u\n", mask);
  return 0;
}
