// The one way into RapidJSON. Its own assertion would abort the process on a missing member or a value of
// the wrong kind; here it raises through ZV_ASSERT like every other failure of the library. Include this
// header instead of any rapidjson header, so that every translation unit sees the same configuration.
#pragma once

#include "zelva/src/utility/logging.h"

#ifdef RAPIDJSON_ASSERT
#error "rapidjson was configured before zelva/src/runtime/rapidjson_config.h"
#endif

// An expression, not a statement: RapidJSON uses its assertion inside expressions in places.
#define RAPIDJSON_ASSERT(x)   \
  ((x) ? static_cast<void>(0) \
       : ::zelva::utility::Assert(ZV_FUNCTION, ZV_FILE, __LINE__, false, "JSON value misuse: %s.", #x))

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
