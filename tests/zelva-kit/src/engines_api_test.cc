// The engines of both product families through the public header only: argument checks, their order and
// codes; engines created from real files: handle life cycle, the generic path, load failures and what they
// give back, and the locks of the two families.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

#include "support/families.h"
#include "support/log_capture.h"

namespace {

using zvtest::Family;
using zvtest::IsErrorLine;
using zvtest::kDenoise;
using zvtest::kVad;
using zvtest::LogCapture;

std::string Data(const std::string& name) {
  return std::string(ZELVA_TEST_DATA_DIR) + "/api/" + name;
}

uint32_t Create(const Family& f, const std::string& model = "passthrough") {
  const std::string m = Data(model + ".json"), c = Data(model + ".cfg.json");
  const char* argv[] = {m.c_str(), c.c_str()};
  uint32_t handle = 0;
  EXPECT_EQ(f.create(&handle, 2, argv), ZV2_RESULT_OK) << model;
  return handle;
}

// ---- Argument checks, their order and codes
// ----------------------------------------------------------------

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

// ---- Engines created from real files ---------------------------------------------------------------------

class Engines : public ::testing::TestWithParam<Family> {
 protected:
  LogCapture log;
};

TEST_P(Engines, GenericPathCopiesTheFirstOutput) {
  const Family& f = GetParam();
  for (const char* model : {"passthrough", "flatten"}) {
    uint32_t h = Create(f, model);
    const float block[8] = {1, -2, 3.5f, 4, 5, 6, 7, 8.25f};
    for (int repeat = 0; repeat < 3; ++repeat) {
      float out[8] = {};
      ASSERT_EQ(f.apply(h, block, out), ZV2_RESULT_OK);
      for (int i = 0; i < 8; ++i) EXPECT_EQ(out[i], block[i]) << model << " " << i;
    }
    EXPECT_EQ(f.reset(h), ZV2_RESULT_OK);  // a stateless net: nothing to clear, still a success
    log.Clear();
    EXPECT_EQ(f.destroy(&h), ZV2_RESULT_OK);
    EXPECT_EQ(h, 0u);
    EXPECT_TRUE(log.lines().empty()) << log.Last();  // every pool block was back before the pools went
  }
}

TEST_P(Engines, HandleLifeCycle) {
  const Family& f = GetParam();
  uint32_t a = Create(f), b = Create(f);
  const uint32_t stale = a;
  ASSERT_EQ(f.destroy(&a), ZV2_RESULT_OK);
  EXPECT_EQ(f.destroy(&a), ZV2_RESULT_HANDLE_NOT_FOUND);  // the variable holds 0 now
  EXPECT_TRUE(IsErrorLine(log.Last(), std::string("ZV2_Destory_") + f.name, "handle(0) not found."));
  uint32_t copy = stale;  // in range, not live
  EXPECT_EQ(f.destroy(&copy), ZV2_RESULT_HANDLE_NOT_FOUND);
  EXPECT_NE(log.Last().find("handle(" + std::to_string(stale) + ") mismatched."), std::string::npos);
  // Every operating entry trusts an in-range slot: an empty one is "context is NULL." and -1.
  float in[8] = {}, out[8] = {};
  log.Clear();
  EXPECT_EQ(f.apply(stale, in, out), ZV2_RESULT_FAILED);
  EXPECT_EQ(f.reset(stale), ZV2_RESULT_FAILED);
  EXPECT_EQ(f.set(stale, "n", "v"), ZV2_RESULT_FAILED);
  EXPECT_EQ(f.get(stale, "n", out), ZV2_RESULT_FAILED);
  ASSERT_EQ(log.lines().size(), 4u);
  for (const std::string& line : log.lines()) EXPECT_NE(line.find("context is NULL."), std::string::npos);

  uint32_t c = Create(f);
  EXPECT_EQ(c, stale);                                // the slot freed last is given out first
  EXPECT_EQ(f.apply(stale, in, out), ZV2_RESULT_OK);  // no generation count: the stale copy works again
  EXPECT_EQ(f.destroy(&b), ZV2_RESULT_OK);
  EXPECT_EQ(f.destroy(&c), ZV2_RESULT_OK);
}

TEST_P(Engines, UnbuildableConfigurationsFailTheCreateAndSayWhy) {
  const Family& f = GetParam();
  const std::string m = Data("flatten.json"), absent = Data("no_such_file.cfg.json");
  const std::pair<const char*, std::string> cases[] = {
      {"unknown_kernel.cfg.json", "Config Kernel <NoSuchKernel_M1> failed. Not in KERNEL REGISTRY"},
      // The VAD engine tests for the missing net and returns -3 without a line of its own.
      {"missing_layer.cfg.json", f.vad() ? "" : "The configuration lacks a layer of the model.\n"},
      {"no_such_file.cfg.json", f.vad() ? "Load config occur err: file " + absent + " not found"
                                        : "Error in opening the file [" + absent + "]."},
  };
  for (const auto& [config, reason] : cases) {
    log.Clear();
    const std::string c = Data(config);
    const char* argv[] = {m.c_str(), c.c_str()};
    uint32_t handle = 1234;
    EXPECT_EQ(f.create(&handle, 2, argv), ZV2_RESULT_FAILED) << config;
    EXPECT_EQ(handle, 1234u);
    ASSERT_FALSE(log.lines().empty());
    EXPECT_TRUE(IsErrorLine(log.Last(), std::string("ZV2_Create_") + f.name, "load model failed."));
    bool said = false;
    for (const std::string& line : log.lines()) said |= line.find(reason) != std::string::npos;
    EXPECT_TRUE(said) << config << ": " << log.lines()[0];
    if (f.vad() && config == std::string("no_such_file.cfg.json")) {
      EXPECT_EQ(log.lines().size(), 2u);  // a line and -8, no raise
    }
  }
}

INSTANTIATE_TEST_SUITE_P(BothFamilies, Engines, ::testing::Values(kDenoise, kVad), zvtest::FamilyName());

// Every file of the bad corpus, as model or as configuration, fails the create of both engines with an Error
// line and no crash; the process goes on.
TEST(EngineLoad, BadFilesFailTheCreateCleanly) {
  LogCapture log;
  const std::string dir = std::string(ZELVA_TEST_DATA_DIR) + "/bad/";
  const std::string good_model = std::string(ZELVA_TEST_DATA_DIR) + "/models/tiny_model.json";
  const std::string good_cfg = std::string(ZELVA_TEST_DATA_DIR) + "/models/tiny_cfg.json";
  std::ifstream manifest(dir + "MANIFEST");
  std::string line;
  int files = 0;
  while (std::getline(manifest, line)) {
    if (line.empty() || line[0] == '#') continue;
    const std::string file = dir + line.substr(0, line.find('\t'));
    const bool is_cfg = line.find("\tcfg\t") != std::string::npos;
    const char* argv[] = {is_cfg ? good_model.c_str() : file.c_str(),
                          is_cfg ? file.c_str() : good_cfg.c_str()};
    for (const Family* f : {&kDenoise, &kVad}) {
      uint32_t handle = 77;
      EXPECT_EQ(f->create(&handle, 2, argv), ZV2_RESULT_FAILED) << f->name << " " << file;
      EXPECT_EQ(handle, 77u);
      EXPECT_NE(log.Last().find("load model failed."), std::string::npos) << f->name << " " << file;
    }
    ++files;
  }
  EXPECT_GE(files, 15);
}

TEST(DenoiseAttributes, FusedFlagWithoutTheFusedNetworkFailsUntilCleared) {
  LogCapture log;
  uint32_t h = Create(kDenoise);
  float in[8] = {1, 2, 3, 4, 5, 6, 7, 8}, out[8] = {};
  char value[4] = "x";
  EXPECT_EQ(ZV2_Get_AudioDenoise(h, "UseHyperspecific", value), ZV2_RESULT_OK);
  EXPECT_STREQ(value, "x");  // nothing to read
  EXPECT_EQ(ZV2_Set_AudioDenoise(h, "SomethingElse", "1"), ZV2_RESULT_OK);
  EXPECT_EQ(ZV2_Apply_AudioDenoise_CPU(h, in, out), ZV2_RESULT_OK);

  EXPECT_EQ(ZV2_Set_AudioDenoise(h, "UseHyperspecific", "1"), ZV2_RESULT_OK);
  log.Clear();
  EXPECT_EQ(ZV2_Apply_AudioDenoise_CPU(h, in, out), ZV2_RESULT_FAILED);
  ASSERT_EQ(log.lines().size(), 3u);  // the assertion's, the engine's and the entry's
  EXPECT_NE(log.lines()[1].find("AudioDenoise apply cpu failed. Error: "), std::string::npos);
  EXPECT_TRUE(IsErrorLine(log.lines()[2], "ZV2_Apply_AudioDenoise_CPU", "apply failed."));
  EXPECT_EQ(ZV2_ReSet_AudioDenoise_RNN_State_CPU(h), ZV2_RESULT_FAILED);

  EXPECT_EQ(ZV2_Set_AudioDenoise(h, "UseHyperspecific", "1 "), ZV2_RESULT_OK);  // only "1" switches it on
  EXPECT_EQ(ZV2_Apply_AudioDenoise_CPU(h, in, out), ZV2_RESULT_OK);
  EXPECT_EQ(out[7], 8.0f);
  EXPECT_EQ(ZV2_Destory_AudioDenoise(&h), ZV2_RESULT_OK);
}

TEST(VadMetrics, EveryTwoHundredFiftiethApplyLogsTheMeanTime) {
  LogCapture log;
  ZV2_SetLogLevel(ZV2_LOG_VERBOSE | ZV2_LOG_ERROR);
  uint32_t h = Create(kVad);
  float in[8] = {}, out[8] = {};
  const std::string rule = "[ZELVA] (Verbose): [Metircs] " + std::string(64, '-');
  auto metrics_lines = [&] {
    int n = 0;
    for (const auto& line : log.lines()) n += line.find("[Metircs]") != std::string::npos;
    return n;
  };
  for (int round = 1; round <= 2; ++round) {
    for (int i = 0; i < 249; ++i) ASSERT_EQ(ZV2_Apply_VAD_CPU(h, in, out), ZV2_RESULT_OK);
    EXPECT_EQ(ZV2_Apply_VAD_CPU(h, nullptr, out), ZV2_RESULT_INVALID_ARGUMENT);  // refused: not counted
    EXPECT_EQ(metrics_lines(), 3 * (round - 1));
    ASSERT_EQ(ZV2_Apply_VAD_CPU(h, in, out), ZV2_RESULT_OK);  // the 250th of the round
    ASSERT_EQ(metrics_lines(), 3 * round);
    const std::string& mean = log.lines()[log.lines().size() - 2];
    EXPECT_EQ(log.lines()[log.lines().size() - 3], rule);
    EXPECT_EQ(mean.rfind("[ZELVA] (Verbose): [Metircs] apply_cpu_m0: ", 0), 0u) << mean;
    EXPECT_EQ(mean.substr(mean.size() - 3), " ms");
    EXPECT_EQ(log.Last(), rule);
  }
  ZV2_SetLogLevel(ZV2_LOG_DEFAULT_MASK);
  EXPECT_EQ(ZV2_Destory_VAD(&h), ZV2_RESULT_OK);
}

// A failed create returns everything it took: a thousand of them leave the resident size flat. They fail
// late, on the missing configuration, after the model, the registry, the pools and (fused) the 4 MiB of the
// fused network were allocated.
size_t ResidentKiB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return std::stoul(line.substr(6));
  }
  ADD_FAILURE() << "no VmRSS in /proc/self/status";
  return 0;
}
int32_t DropLine(const char*) {
  return 0;
}

TEST(FailedCreate, LeavesTheResidentSizeFlat) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer holds freed memory back; LeakSanitizer checks this build instead";
#endif
  const std::string fused_model = std::string(ZELVA_SOURCE_DIR) + "/models/denoise.zvmod";
  const std::string small_model = Data("passthrough.json"), absent = Data("absent.cfg.json");
  const char* fused[] = {fused_model.c_str(), absent.c_str(), "1"};
  const char* small[] = {small_model.c_str(), absent.c_str()};
  ASSERT_EQ(ZV2_SetLogCallback(&DropLine), ZV2_RESULT_OK);
  auto fail_creates = [&](int fused_creates, int small_creates) {
    uint32_t handle = 0;
    for (int i = 0; i < fused_creates; ++i)
      ASSERT_EQ(ZV2_Create_AudioDenoise(&handle, 3, fused), ZV2_RESULT_FAILED);
    for (int i = 0; i < small_creates; ++i) {
      ASSERT_EQ(ZV2_Create_VAD(&handle, 2, small), ZV2_RESULT_FAILED);
      ASSERT_EQ(ZV2_Create_AudioDenoise(&handle, 2, small), ZV2_RESULT_FAILED);
    }
  };
  fail_creates(5, 20);  // the allocator's own first growth
  const size_t before = ResidentKiB();
  fail_creates(50, 475);
  const size_t after = ResidentKiB();
  LogCapture restore;
  EXPECT_LT(after, before + 2048) << "resident KiB before " << before << ", after " << after;
}

// ---- Locks ------------------------------------------------------------------------------------------------

// The GPU entries raise the assertion's whole line, "Not Implemented." included, out of the library with a
// valid handle, and leave their family locked for good: the next call of that family waits, while the other
// family, with a lock of its own, goes on. Run in a child process, which is lost afterwards. (That one
// family's calls never overlap is checked on the handle table itself, in handle_table_test.cc.)
TEST(Locks, GpuEntryRaisesAndLeavesItsFamilyLocked) {
  for (const Family* f : {&kDenoise, &kVad}) {
    const Family& other = f == &kDenoise ? kVad : kDenoise;
    uint32_t h = Create(*f), o = Create(other);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      alarm(10);  // a call that hangs fails the test instead of the run
      float in[8] = {}, out[8] = {};
      int code = 10;  // did not raise
      try {
        f->apply_gpu(h, in, out);
      } catch (const std::runtime_error& e) {
        const std::string what = e.what(), tail = "Not Implemented.\n";
        const bool whole = what.rfind("[ZELVA]: Assert Failed in FUNCTION<", 0) == 0 &&
                           what.size() > tail.size() &&
                           what.compare(what.size() - tail.size(), tail.size(), tail) == 0;
        if (!whole) std::fprintf(stderr, "exception text: %s\n", what.c_str());
        code = whole ? 0 : 11;
      }
      if (other.apply(o, in, out) != ZV2_RESULT_OK) code = 12;
      std::atomic<bool> returned{false};
      std::thread blocked([&] {
        float local_out[8];
        f->apply(h, in, local_out);
        returned = true;
      });
      blocked.detach();
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      _exit(returned ? 13 : code);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << f->name;
    EXPECT_EQ(f->destroy(&h), ZV2_RESULT_OK);
    EXPECT_EQ(other.destroy(&o), ZV2_RESULT_OK);
  }
}

// The two families count their handles apart, and a table grows only when no slot is free, reusing the
// last freed first: in a fresh process (a new run of this binary, since other tests here have used both
// tables) the first engine of each gets handle 1.
TEST(FreshProcess, FamiliesAreNumberedApartAndSlotsReusedLastFreedFirst) {
  if (std::getenv("ZELVA_FRESH_PROCESS") != nullptr) {
    uint32_t d[3] = {Create(kDenoise), Create(kDenoise), Create(kDenoise)}, v = Create(kVad);
    EXPECT_EQ(d[0], 1u);
    EXPECT_EQ(d[2], 3u);
    EXPECT_EQ(v, 1u);
    EXPECT_EQ(ZV2_Destory_AudioDenoise(&d[0]), ZV2_RESULT_OK);
    EXPECT_EQ(ZV2_Destory_AudioDenoise(&d[2]), ZV2_RESULT_OK);
    EXPECT_EQ(Create(kDenoise), 3u);
    EXPECT_EQ(Create(kDenoise), 1u);
    EXPECT_EQ(Create(kDenoise), 4u);
    for (uint32_t h : {1u, 2u, 3u, 4u}) EXPECT_EQ(ZV2_Destory_AudioDenoise(&h), ZV2_RESULT_OK);
    EXPECT_EQ(ZV2_Destory_VAD(&v), ZV2_RESULT_OK);
    return;
  }
  char self[4096];
  const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  ASSERT_GT(n, 0);
  self[n] = '\0';
  const std::string command =
      std::string("ZELVA_FRESH_PROCESS=1 '") + self +
      "' --gtest_filter=FreshProcess.FamiliesAreNumberedApartAndSlotsReusedLastFreedFirst > /dev/null 2>&1";
  EXPECT_EQ(std::system(command.c_str()), 0);
}

}  // namespace
