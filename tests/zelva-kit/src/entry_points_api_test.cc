// Argument checks, their order and codes, of both product families, through the public header only.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>

#include "support/families.h"
#include "support/log_capture.h"

namespace {

using zvtest::Family;
using zvtest::IsErrorLine;
using zvtest::kDenoise;
using zvtest::kVad;
using zvtest::LogCapture;

class EntryPoints : public ::testing::TestWithParam<Family> {
 protected:
  // Exactly one Error line, from `entry` ("Create" stands for ZV2_Create_<family>), with `message`.
  void ExpectOneError(const std::string& entry, const std::string& message) {
    const Family& f = GetParam();
    std::string function = "ZV2_" + entry + "_" + f.name;
    if (entry == "Apply" || entry == "ReSet") function += entry == "Apply" ? "_CPU" : "_RNN_State_CPU";
    if (entry == "GPU") function = std::string("ZV_Apply_") + f.name + "_GPU";
    ASSERT_EQ(log.lines().size(), 1u) << (log.lines().empty() ? "" : log.lines()[0]);
    EXPECT_TRUE(IsErrorLine(log.lines()[0], function, message)) << log.lines()[0];
    log.Clear();
  }
  LogCapture log;
  float in[8] = {};
  float out[8] = {};
};

TEST_P(EntryPoints, CreateChecks) {
  const Family& f = GetParam();
  uint32_t handle = 77;
  const char* argv[] = {"model.json", "cfg.json"};
  EXPECT_EQ(f.create(&handle, 0, argv), ZV2_RESULT_INVALID_ARGUMENT);
  ExpectOneError("Create", "argc(0) must be > 0.");
  EXPECT_EQ(f.create(&handle, -5, argv), ZV2_RESULT_INVALID_ARGUMENT);
  ExpectOneError("Create", "argc(-5) must be > 0.");
  EXPECT_EQ(handle, 77u);
  EXPECT_EQ(f.create(nullptr, 2, argv), ZV2_RESULT_INVALID_ARGUMENT);
  ExpectOneError("Create", "handle is NULL.");
  EXPECT_EQ(f.destroy(nullptr), ZV2_RESULT_INVALID_ARGUMENT);
  ExpectOneError("Destory", "handle is NULL.");
  EXPECT_EQ(f.create_stream(), ZV2_RESULT_FAILED);  // the stub logs nothing
  EXPECT_TRUE(log.lines().empty());
}

// A model that the loader refuses on a missing key: the assertion's own line, the engine's line with the
// assertion's text (the reason included), the entry's line.
TEST_P(EntryPoints, FailedCreateSaysWhyTwice) {
  const Family& f = GetParam();
  const std::string model = std::string(ZELVA_TEST_DATA_DIR) + "/bad/missing_layer_id.json";
  const char* argv[] = {model.c_str(), "/nonexistent/cfg.json"};
  uint32_t handle = 5;
  EXPECT_EQ(f.create(&handle, 2, argv), ZV2_RESULT_FAILED);
  EXPECT_EQ(handle, 5u);
  const auto& lines = log.lines();
  ASSERT_EQ(lines.size(), 3u);
  const std::string reason = "missing string member \"id\".\n";
  EXPECT_NE(lines[0].find("]: Assert Failed in FUNCTION<"), std::string::npos) << lines[0];
  EXPECT_EQ(lines[0].substr(lines[0].size() - reason.size()), reason);
  const std::string engine =
      f.vad() ? "zelva::dlvad::VAD::Load" : "zelva::dlaudiodenoise::AudioDenoise::Load";
  EXPECT_TRUE(IsErrorLine(lines[1], engine, "")) << lines[1];
  EXPECT_NE(lines[1].find(std::string(f.vad() ? "VAD" : "AudioDenoise") +
                          " load models failed. Error: [ZELVA]: Assert Failed in FUNCTION<"),
            std::string::npos)
      << lines[1];
  EXPECT_EQ(lines[1].substr(lines[1].size() - reason.size() - 1), reason + "\n") << lines[1];
  EXPECT_TRUE(IsErrorLine(lines[2], std::string("ZV2_Create_") + f.name, "load model failed.")) << lines[2];
}

// Pointer, name and value checks come before the handle's, so a bad handle still gets -3; then the handle.
TEST_P(EntryPoints, ChecksInTheirOrder) {
  const Family& f = GetParam();
  constexpr _ZV2_Result kInvalid = ZV2_RESULT_INVALID_ARGUMENT, kNotFound = ZV2_RESULT_HANDLE_NOT_FOUND;
  struct Call {
    const char* entry;
    std::function<_ZV2_Result(uint32_t)> call;
    _ZV2_Result code;
    const char* message;  // null: "handle(%u) not found."
  };
  const Call calls[] = {
      {"Apply", [&](uint32_t h) { return f.apply(h, nullptr, nullptr); }, kInvalid, "input is NULL."},
      {"Apply", [&](uint32_t h) { return f.apply(h, in, nullptr); }, kInvalid, "output is NULL."},
      {"GPU", [&](uint32_t h) { return f.apply_gpu(h, nullptr, out); }, kInvalid, "input is NULL."},
      {"GPU", [&](uint32_t h) { return f.apply_gpu(h, in, nullptr); }, kInvalid, "output is NULL."},
      {"Set", [&](uint32_t h) { return f.set(h, "", "1"); }, kInvalid, "name is null or empty."},
      {"Set", [&](uint32_t h) { return f.set(h, nullptr, nullptr); }, kInvalid, "name is null or empty."},
      {"Set", [&](uint32_t h) { return f.set(h, "UseHyperspecific", nullptr); }, kInvalid, "value is null."},
      {"Get", [&](uint32_t h) { return f.get(h, "", out); }, kInvalid, "name is null or empty."},
      {"Get", [&](uint32_t h) { return f.get(h, "x", nullptr); }, kInvalid, "value is null."},
      {"Apply", [&](uint32_t h) { return f.apply(h, in, out); }, kNotFound, nullptr},
      {"GPU", [&](uint32_t h) { return f.apply_gpu(h, in, out); }, kNotFound, nullptr},
      {"ReSet", [&](uint32_t h) { return f.reset(h); }, kNotFound, nullptr},
      {"Set", [&](uint32_t h) { return f.set(h, "UseHyperspecific", "1"); }, kNotFound, nullptr},
      {"Get", [&](uint32_t h) { return f.get(h, "x", out); }, kNotFound, nullptr},
      {"Destory",
       [&](uint32_t h) {
         uint32_t copy = h;
         const _ZV2_Result result = f.destroy(&copy);
         EXPECT_EQ(copy, h);
         return result;
       },
       kNotFound, nullptr},
  };
  for (uint32_t h : {0u, 4000000000u}) {
    for (const Call& c : calls) {
      SCOPED_TRACE(testing::Message() << c.entry << " " << h << " " << (c.message ? c.message : ""));
      EXPECT_EQ(c.call(h), c.code);
      ExpectOneError(c.entry, c.message ? c.message : "handle(" + std::to_string(h) + ") not found.");
    }
  }
}

INSTANTIATE_TEST_SUITE_P(BothFamilies, EntryPoints, ::testing::Values(kDenoise, kVad), zvtest::FamilyName());

// ---- Engine-specific load checks that need no model -------------------------------------------------------

TEST(VadLoad, RefusesAnyArgumentCountButTwoAndAMissingModelWithoutException) {
  LogCapture log;
  uint32_t handle = 9;
  const char* argv[] = {"/no/such/dir/vad.zvmod", "c.json", "1"};
  for (int32_t argc : {1, 3, 2}) {
    log.Clear();
    EXPECT_EQ(ZV2_Create_VAD(&handle, argc, argv), ZV2_RESULT_FAILED);
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_TRUE(IsErrorLine(log.lines()[0], "zelva::dlvad::VAD::PrivateMembers::Load",
                            argc == 2 ? "Load Model occur err: file /no/such/dir/vad.zvmod not found"
                                      : "VAD::Invalid parameter num."))
        << log.lines()[0];
    EXPECT_TRUE(IsErrorLine(log.lines()[1], "ZV2_Create_VAD", "load model failed."));
  }
  EXPECT_EQ(handle, 9u);
}

// A path shorter than the five characters of ".json" fails on the suffix test.
TEST(ShortPath, FailsOnTheSuffixTest) {
  LogCapture log;
  const std::string dir = ::testing::TempDir();
  std::FILE* file = std::fopen((dir + "ab").c_str(), "wb");  // VAD tests that the file exists first
  ASSERT_NE(file, nullptr);
  std::fclose(file);
  char previous[4096];
  ASSERT_NE(getcwd(previous, sizeof previous), nullptr);
  ASSERT_EQ(chdir(dir.c_str()), 0);
  const char* argv[] = {"ab", "cfg.json"};
  uint32_t handle = 0;
  EXPECT_EQ(ZV2_Create_VAD(&handle, 2, argv), ZV2_RESULT_FAILED);
  EXPECT_EQ(ZV2_Create_AudioDenoise(&handle, 2, argv), ZV2_RESULT_FAILED);
  ASSERT_EQ(chdir(previous), 0);
  std::remove((dir + "ab").c_str());
  ASSERT_EQ(log.lines().size(), 4u);
  EXPECT_TRUE(IsErrorLine(log.lines()[0], "zelva::dlvad::VAD::Load",
                          "VAD load models failed. Error: invalid string position"))
      << log.lines()[0];
  EXPECT_TRUE(IsErrorLine(log.lines()[2], "zelva::dlaudiodenoise::AudioDenoise::Load",
                          "AudioDenoise load models failed. Error: invalid string position"))
      << log.lines()[2];
}

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

}  // namespace
