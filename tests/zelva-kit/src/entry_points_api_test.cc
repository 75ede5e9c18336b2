// Argument checks, their order and codes, of both product families, through the public header only.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include "support/log_capture.h"
#include "zv2.h"

namespace {

using zvtest::IsErrorLine;
using zvtest::LogCapture;

struct Family {
  const char* name;
  _ZV2_Result (*create)(uint32_t*, int32_t, const char**);
  _ZV2_Result (*create_stream)(void);
  _ZV2_Result (*destroy)(uint32_t*);
  _ZV2_Result (*apply)(uint32_t, const void*, void*);
  _ZV2_Result (*apply_gpu)(uint32_t, const void*, void*);
  _ZV2_Result (*reset)(uint32_t);
  _ZV2_Result (*set)(uint32_t, const char*, const char*);
  _ZV2_Result (*get)(uint32_t, const char*, void*);
  const char* create_fn;
  const char* destroy_fn;
  const char* apply_fn;
  const char* apply_gpu_fn;
  const char* reset_fn;
  const char* set_fn;
  const char* get_fn;
};

const Family kDenoise{"Denoise",
                      ZV2_Create_AudioDenoise,
                      ZV2_Create_AudioDenoise_DataStream,
                      ZV2_Destory_AudioDenoise,
                      ZV2_Apply_AudioDenoise_CPU,
                      ZV_Apply_AudioDenoise_GPU,
                      ZV2_ReSet_AudioDenoise_RNN_State_CPU,
                      ZV2_Set_AudioDenoise,
                      ZV2_Get_AudioDenoise,
                      "ZV2_Create_AudioDenoise",
                      "ZV2_Destory_AudioDenoise",
                      "ZV2_Apply_AudioDenoise_CPU",
                      "ZV_Apply_AudioDenoise_GPU",
                      "ZV2_ReSet_AudioDenoise_RNN_State_CPU",
                      "ZV2_Set_AudioDenoise",
                      "ZV2_Get_AudioDenoise"};
const Family kVad{"Vad",
                  ZV2_Create_VAD,
                  ZV2_Create_VAD_DataStream,
                  ZV2_Destory_VAD,
                  ZV2_Apply_VAD_CPU,
                  ZV_Apply_VAD_GPU,
                  ZV2_ReSet_VAD_RNN_State_CPU,
                  ZV2_Set_VAD,
                  ZV2_Get_VAD,
                  "ZV2_Create_VAD",
                  "ZV2_Destory_VAD",
                  "ZV2_Apply_VAD_CPU",
                  "ZV_Apply_VAD_GPU",
                  "ZV2_ReSet_VAD_RNN_State_CPU",
                  "ZV2_Set_VAD",
                  "ZV2_Get_VAD"};

void PrintTo(const Family& f, std::ostream* os) {
  *os << f.name;
}

class EntryPoints : public ::testing::TestWithParam<Family> {
 protected:
  // Handles 0 and far beyond any table.
  void ExpectOneError(const char* function, const std::string& message) {
    ASSERT_EQ(log.lines().size(), 1u) << (log.lines().empty() ? "" : log.lines()[0]);
    EXPECT_TRUE(IsErrorLine(log.lines()[0], function, message)) << log.lines()[0];
    log.Clear();
  }
  LogCapture log;
  float in[8] = {};
  float out[8] = {};
};

TEST_P(EntryPoints, CreateRefusesArgcBelowOneAndLeavesHandle) {
  const Family& f = GetParam();
  uint32_t handle = 77;
  const char* argv[] = {"model.json", "cfg.json"};
  EXPECT_EQ(f.create(&handle, 0, argv), ZV2_RESULT_INVALID_ARGUMENT);
  ExpectOneError(f.create_fn, "argc(0) must be > 0.");
  EXPECT_EQ(f.create(&handle, -5, argv), ZV2_RESULT_INVALID_ARGUMENT);
  ExpectOneError(f.create_fn, "argc(-5) must be > 0.");
  EXPECT_EQ(handle, 77u);
}

TEST_P(EntryPoints, FailedCreateGivesTwoErrorLinesAndLeavesHandle) {
  const Family& f = GetParam();
  uint32_t handle = 5;
  const char* argv[] = {"/nonexistent/model.json", "/nonexistent/cfg.json"};
  EXPECT_EQ(f.create(&handle, 2, argv), ZV2_RESULT_FAILED);
  EXPECT_EQ(handle, 5u);
  // The engine's own line, then the entry's.
  ASSERT_GE(log.lines().size(), 2u);
  const auto& lines = log.lines();
  EXPECT_NE(lines[lines.size() - 2].find("]: Error in FUNCTION<zelva::"), std::string::npos);
  EXPECT_TRUE(IsErrorLine(lines.back(), f.create_fn, "load model failed.")) << lines.back();
}

TEST_P(EntryPoints, DataStreamStubFailsSilently) {
  EXPECT_EQ(GetParam().create_stream(), ZV2_RESULT_FAILED);
  EXPECT_TRUE(log.lines().empty());
}

TEST_P(EntryPoints, HandleChecks) {
  const Family& f = GetParam();
  for (uint32_t h : {0u, 4000000000u}) {
    const std::string not_found = "handle(" + std::to_string(h) + ") not found.";
    EXPECT_EQ(f.apply(h, in, out), ZV2_RESULT_HANDLE_NOT_FOUND);
    ExpectOneError(f.apply_fn, not_found);
    EXPECT_EQ(f.apply_gpu(h, in, out), ZV2_RESULT_HANDLE_NOT_FOUND);
    ExpectOneError(f.apply_gpu_fn, not_found);
    EXPECT_EQ(f.reset(h), ZV2_RESULT_HANDLE_NOT_FOUND);
    ExpectOneError(f.reset_fn, not_found);
    EXPECT_EQ(f.set(h, "UseHyperspecific", "1"), ZV2_RESULT_HANDLE_NOT_FOUND);
    ExpectOneError(f.set_fn, not_found);
    EXPECT_EQ(f.get(h, "x", out), ZV2_RESULT_HANDLE_NOT_FOUND);
    ExpectOneError(f.get_fn, not_found);
    uint32_t copy = h;
    EXPECT_EQ(f.destroy(&copy), ZV2_RESULT_HANDLE_NOT_FOUND);
    ExpectOneError(f.destroy_fn, not_found);
    EXPECT_EQ(copy, h);
  }
}

TEST_P(EntryPoints, PointerChecksComeBeforeTheHandle) {
  const Family& f = GetParam();
  const uint32_t bad = 12345;
  EXPECT_EQ(f.apply(bad, nullptr, out), ZV2_RESULT_INVALID_ARGUMENT);
  ExpectOneError(f.apply_fn, "input is NULL.");
  EXPECT_EQ(f.apply(bad, nullptr, nullptr), ZV2_RESULT_INVALID_ARGUMENT);
  ExpectOneError(f.apply_fn, "input is NULL.");
  EXPECT_EQ(f.apply(bad, in, nullptr), ZV2_RESULT_INVALID_ARGUMENT);
  ExpectOneError(f.apply_fn, "output is NULL.");
  EXPECT_EQ(f.apply_gpu(bad, nullptr, out), ZV2_RESULT_INVALID_ARGUMENT);
  ExpectOneError(f.apply_gpu_fn, "input is NULL.");
  EXPECT_EQ(f.apply_gpu(bad, in, nullptr), ZV2_RESULT_INVALID_ARGUMENT);
  ExpectOneError(f.apply_gpu_fn, "output is NULL.");
}

TEST_P(EntryPoints, NameAndValueChecksComeBeforeTheHandle) {
  const Family& f = GetParam();
  const uint32_t bad = 0;
  EXPECT_EQ(f.set(bad, "", "1"), ZV2_RESULT_INVALID_ARGUMENT);
  ExpectOneError(f.set_fn, "name is null or empty.");
  EXPECT_EQ(f.set(bad, nullptr, nullptr), ZV2_RESULT_INVALID_ARGUMENT);
  ExpectOneError(f.set_fn, "name is null or empty.");
  EXPECT_EQ(f.set(bad, "UseHyperspecific", nullptr), ZV2_RESULT_INVALID_ARGUMENT);
  ExpectOneError(f.set_fn, "value is null.");
  EXPECT_EQ(f.get(bad, "", out), ZV2_RESULT_INVALID_ARGUMENT);
  ExpectOneError(f.get_fn, "name is null or empty.");
  EXPECT_EQ(f.get(bad, "x", nullptr), ZV2_RESULT_INVALID_ARGUMENT);
  ExpectOneError(f.get_fn, "value is null.");
}

TEST_P(EntryPoints, NullHandlePointersAreRefused) {
  const Family& f = GetParam();
  const char* argv[] = {"m.json", "c.json"};
  EXPECT_EQ(f.create(nullptr, 2, argv), ZV2_RESULT_INVALID_ARGUMENT);
  ExpectOneError(f.create_fn, "handle is NULL.");
  EXPECT_EQ(f.destroy(nullptr), ZV2_RESULT_INVALID_ARGUMENT);
  ExpectOneError(f.destroy_fn, "handle is NULL.");
}

INSTANTIATE_TEST_SUITE_P(BothFamilies, EntryPoints, ::testing::Values(kDenoise, kVad),
                         [](const ::testing::TestParamInfo<Family>& info) { return info.param.name; });

// ---- Engine-specific load checks that need no model -------------------------------------------------------

class TempFile {
 public:
  explicit TempFile(const std::string& name) : path_(::testing::TempDir() + name) {
    std::FILE* f = std::fopen(path_.c_str(), "wb");
    std::fputs("{}", f);
    std::fclose(f);
  }
  ~TempFile() { std::remove(path_.c_str()); }
  const char* c_str() const { return path_.c_str(); }

 private:
  std::string path_;
};

TEST(VadLoad, RefusesAnyArgumentCountButTwo) {
  LogCapture log;
  uint32_t handle = 9;
  const char* argv[] = {"m.json", "c.json", "1"};
  for (int32_t argc : {1, 3}) {
    log.Clear();
    EXPECT_EQ(ZV2_Create_VAD(&handle, argc, argv), ZV2_RESULT_FAILED);
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_TRUE(
        IsErrorLine(log.lines()[0], "zelva::dlvad::VAD::PrivateMembers::Load", "VAD::Invalid parameter num."))
        << log.lines()[0];
    EXPECT_TRUE(IsErrorLine(log.lines()[1], "ZV2_Create_VAD", "load model failed."));
  }
  EXPECT_EQ(handle, 9u);
}

TEST(VadLoad, MissingModelFileIsOneLineWithoutException) {
  LogCapture log;
  uint32_t handle = 0;
  const char* argv[] = {"/no/such/dir/vad.zvmod", "/no/such/cfg.json"};
  EXPECT_EQ(ZV2_Create_VAD(&handle, 2, argv), ZV2_RESULT_FAILED);
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_TRUE(IsErrorLine(log.lines()[0], "zelva::dlvad::VAD::PrivateMembers::Load",
                          "Load Model occur err: file /no/such/dir/vad.zvmod not found"))
      << log.lines()[0];
  EXPECT_EQ(handle, 0u);
}

TEST(VadLoad, ShortExistingPathFailsOnTheSuffixTest) {
  LogCapture log;
  TempFile file("ab");
  // The file exists but its path is checked with a five-character tail; run from the temp dir so that the
  // relative path is two characters long.
  const std::string dir = ::testing::TempDir();
  char previous[4096];
  ASSERT_NE(getcwd(previous, sizeof previous), nullptr);
  ASSERT_EQ(chdir(dir.c_str()), 0);
  uint32_t handle = 0;
  const char* argv[] = {"ab", "cfg.json"};
  EXPECT_EQ(ZV2_Create_VAD(&handle, 2, argv), ZV2_RESULT_FAILED);
  ASSERT_EQ(chdir(previous), 0);
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_TRUE(IsErrorLine(log.lines()[0], "zelva::dlvad::VAD::Load",
                          "VAD load models failed. Error: invalid string position"))
      << log.lines()[0];
}

TEST(DenoiseLoad, ShortPathFailsOnTheSuffixTest) {
  LogCapture log;
  uint32_t handle = 0;
  const char* argv[] = {"a.js", "cfg.json"};
  EXPECT_EQ(ZV2_Create_AudioDenoise(&handle, 2, argv), ZV2_RESULT_FAILED);
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_TRUE(IsErrorLine(log.lines()[0], "zelva::dlaudiodenoise::AudioDenoise::Load",
                          "AudioDenoise load models failed. Error: invalid string position"))
      << log.lines()[0];
}

}  // namespace

// A directory where a model file is expected: the failure names the path and says why, on both routes.
TEST(DenoiseLoad, DirectoryAsModelPathSaysSo) {
  for (const char* name : {"dir_model.zvmod", "dir_model.json"}) {
    const std::string dir = ::testing::TempDir() + name;
    rmdir(dir.c_str());  // left by an earlier run
    ASSERT_EQ(mkdir(dir.c_str(), 0700), 0) << dir;
    LogCapture log;
    uint32_t handle = 0;
    const char* argv[] = {dir.c_str(), "cfg.json"};
    EXPECT_EQ(ZV2_Create_AudioDenoise(&handle, 2, argv), ZV2_RESULT_FAILED);
    bool named = false;
    for (const std::string& line : log.lines())
      named =
          named || line.find("Error in opening the file [" + dir + "]: is a directory.") != std::string::npos;
    EXPECT_TRUE(named) << log.lines().front();
    rmdir(dir.c_str());
  }
}
