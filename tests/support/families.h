// The two product families' entry points side by side, for tests that run one check over both.
#pragma once

#include <ostream>
#include <string>

#include "zv2.h"

namespace zvtest {

struct Family {
  const char* name;  // as it stands in the entries' names: ZV2_Create_<name>, ...
  _ZV2_Result (*create)(uint32_t*, int32_t, const char**);
  _ZV2_Result (*create_stream)(void);
  _ZV2_Result (*destroy)(uint32_t*);
  _ZV2_Result (*apply)(uint32_t, const void*, void*);
  _ZV2_Result (*apply_gpu)(uint32_t, const void*, void*);
  _ZV2_Result (*reset)(uint32_t);
  _ZV2_Result (*set)(uint32_t, const char*, const char*);
  _ZV2_Result (*get)(uint32_t, const char*, void*);
  bool vad() const { return name == std::string("VAD"); }
};

inline const Family kDenoise{"AudioDenoise",
                             ZV2_Create_AudioDenoise,
                             ZV2_Create_AudioDenoise_DataStream,
                             ZV2_Destory_AudioDenoise,
                             ZV2_Apply_AudioDenoise_CPU,
                             ZV_Apply_AudioDenoise_GPU,
                             ZV2_ReSet_AudioDenoise_RNN_State_CPU,
                             ZV2_Set_AudioDenoise,
                             ZV2_Get_AudioDenoise};
inline const Family kVad{"VAD",
                         ZV2_Create_VAD,
                         ZV2_Create_VAD_DataStream,
                         ZV2_Destory_VAD,
                         ZV2_Apply_VAD_CPU,
                         ZV_Apply_VAD_GPU,
                         ZV2_ReSet_VAD_RNN_State_CPU,
                         ZV2_Set_VAD,
                         ZV2_Get_VAD};

inline void PrintTo(const Family& f, std::ostream* os) {
  *os << f.name;
}

// Test names of a suite instantiated over both families.
struct FamilyName {
  template <class Info>
  std::string operator()(const Info& info) const {
    return info.param.name;
  }
};

}  // namespace zvtest
