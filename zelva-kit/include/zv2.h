/*
 * zelva: the whole public C interface.
 *
 *   #include <zelva/zv2.h>      (installed)      link: -lzelva, or find_package(zelva) + zelva::zelva
 */
#ifndef ZV2_H_
#define ZV2_H_

#include "zv2_common.h"
#include "zv2_audiodenoise.h"
#include "zv2_vad.h"
#include "zv2_image_process.h"

#endif /* ZV2_H_ */
