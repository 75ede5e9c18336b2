// Engines created from real files, through the public header only: handle life cycle, the generic path, the
// lock of each family, and load failures.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.h"
#include "zv2.h"

namespace {

using zvtest::IsErrorLine;
using zvtest::LogCapture;

std::string Data(const std::string& name) { return std::string(ZELVA_TEST_DATA_DIR) + "/api/" + name; }

struct Family {
  const char* name;
  _ZV2_Result (*create)(uint32_t*, int32_t, const char**);
  _ZV2_Result (*destroy)(uint32_t*);
  _ZV2_Result (*apply)(uint32_t, const void*, void*);
  _ZV2_Result (*reset)(uint32_t);
  _ZV2_Result (*apply_gpu)(uint32_t, const void*, void*);
};
const Family kDenoise{"Denoise", ZV2_Create_AudioDenoise, ZV2_Destory_AudioDenoise, ZV2_Apply_AudioDenoise_CPU,
                      ZV2_ReSet_AudioDenoise_RNN_State_CPU, ZV_Apply_AudioDenoise_GPU};
const Family kVad{"Vad", ZV2_Create_VAD, ZV2_Destory_VAD, ZV2_Apply_VAD_CPU, ZV2_ReSet_VAD_RNN_State_CPU,
                  ZV_Apply_VAD_GPU};
void PrintTo(const Family& f, std::ostream* os) { *os << f.name; }

uint32_t Create(const Family& f, const std::string& model, const std::string& config) {
  const std::string m = Data(model), c = Data(config);
  const char* argv[] = {m.c_str(), c.c_str()};
  uint32_t handle = 0;
  EXPECT_EQ(f.create(&handle, 2, argv), ZV2_RESULT_OK) << model << " " << config;
  return handle;
}

class Engines : public ::testing::TestWithParam<Family> {
 protected:
  LogCapture log;
};

TEST_P(Engines, GenericPathCopiesTheFirstOutput) {
  const Family& f = GetParam();
  for (const char* model : {"passthrough", "flatten"}) {
    uint32_t h = Create(f, std::string(model) + ".json", std::string(model) + ".cfg.json");
    ASSERT_NE(h, 0u);
    const float block[8] = {1, -2, 3.5f, 4, 5, 6, 7, 8.25f};
    float out[8] = {};
    for (int repeat = 0; repeat < 3; ++repeat) {
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
  uint32_t a = Create(f, "passthrough.json", "passthrough.cfg.json");
  uint32_t b = Create(f, "passthrough.json", "passthrough.cfg.json");
  ASSERT_NE(a, b);
  const uint32_t stale = a;
  ASSERT_EQ(f.destroy(&a), ZV2_RESULT_OK);
  log.Clear();

  // Destroying twice through the same variable: it holds 0 now.
  EXPECT_EQ(f.destroy(&a), ZV2_RESULT_HANDLE_NOT_FOUND);
  EXPECT_NE(log.Last().find("handle(0) not found."), std::string::npos);
  // Through a stale copy: in range, not live.
  uint32_t copy = stale;
  EXPECT_EQ(f.destroy(&copy), ZV2_RESULT_HANDLE_NOT_FOUND);
  EXPECT_NE(log.Last().find("handle(" + std::to_string(stale) + ") mismatched."), std::string::npos);
  // Applying through a stale copy reaches the empty slot.
  float in[8] = {}, out[8] = {};
  EXPECT_EQ(f.apply(stale, in, out), ZV2_RESULT_FAILED);
  EXPECT_NE(log.Last().find("context is NULL."), std::string::npos);

  // The slot freed last is given out first.
  uint32_t c = Create(f, "passthrough.json", "passthrough.cfg.json");
  EXPECT_EQ(c, stale);
  EXPECT_EQ(f.apply(stale, in, out), ZV2_RESULT_OK);  // no generation count: the stale copy works again
  EXPECT_EQ(f.destroy(&b), ZV2_RESULT_OK);
  EXPECT_EQ(f.destroy(&c), ZV2_RESULT_OK);
}

TEST_P(Engines, UnbuildableConfigurationsFailTheCreate) {
  const Family& f = GetParam();
  const std::string m = Data("flatten.json");
  for (const char* config : {"unknown_kernel.cfg.json", "missing_layer.cfg.json", "no_such_file.cfg.json"}) {
    log.Clear();
    const std::string c = Data(config);
    const char* argv[] = {m.c_str(), c.c_str()};
    uint32_t handle = 1234;
    EXPECT_EQ(f.create(&handle, 2, argv), ZV2_RESULT_FAILED) << config;
    EXPECT_EQ(handle, 1234u);
    ASSERT_FALSE(log.lines().empty());
    EXPECT_NE(log.Last().find("load model failed."), std::string::npos);
  }
}

INSTANTIATE_TEST_SUITE_P(BothFamilies, Engines, ::testing::Values(kDenoise, kVad),
                         [](const ::testing::TestParamInfo<Family>& info) { return info.param.name; });

// Every file of the bad corpus, as model or as configuration, fails the create of both engines with an Error
// line and no crash; the process goes on.
TEST(EngineLoad, BadFilesFailTheCreateCleanly) {
  LogCapture log;
  const std::string dir = std::string(ZELVA_TEST_DATA_DIR) + "/bad/";
  std::ifstream manifest(dir + "MANIFEST");
  ASSERT_TRUE(manifest.good());
  const std::string good_model = std::string(ZELVA_TEST_DATA_DIR) + "/models/tiny_model.json";
  const std::string good_cfg = std::string(ZELVA_TEST_DATA_DIR) + "/models/tiny_cfg.json";
  std::string line;
  int files = 0;
  while (std::getline(manifest, line)) {
    if (line.empty() || line[0] == '#') continue;
    const std::string file = dir + line.substr(0, line.find('\t'));
    const bool is_cfg = line.find("\tcfg\t") != std::string::npos;
    const std::string model = is_cfg ? good_model : file;
    const std::string cfg = is_cfg ? file : good_cfg;
    for (const Family* f : {&kDenoise, &kVad}) {
      log.Clear();
      const char* argv[] = {model.c_str(), cfg.c_str()};
      uint32_t handle = 77;
      EXPECT_EQ(f->create(&handle, 2, argv), ZV2_RESULT_FAILED) << f->name << " " << file;
      EXPECT_EQ(handle, 77u);
      ASSERT_FALSE(log.lines().empty());
      EXPECT_NE(log.Last().find("load model failed."), std::string::npos) << f->name << " " << file;
    }
    ++files;
  }
  EXPECT_GE(files, 15);
}

TEST(EngineLoad, UnknownKernelIsReportedAsNotInTheRegistry) {
  LogCapture log;
  const std::string m = Data("flatten.json"), c = Data("unknown_kernel.cfg.json");
  const char* argv[] = {m.c_str(), c.c_str()};
  uint32_t handle = 0;
  ASSERT_EQ(ZV2_Create_AudioDenoise(&handle, 2, argv), ZV2_RESULT_FAILED);
  bool found = false;
  for (const auto& line : log.lines())
    found |= line.find("Config Kernel <NoSuchKernel_M1> failed. Not in KERNEL REGISTRY") != std::string::npos;
  EXPECT_TRUE(found);
}

TEST(EngineLoad, VadMissingConfigurationFile) {
  LogCapture log;
  const std::string m = Data("flatten.json"), c = Data("absent.cfg.json");
  const char* argv[] = {m.c_str(), c.c_str()};
  uint32_t handle = 0;
  ASSERT_EQ(ZV2_Create_VAD(&handle, 2, argv), ZV2_RESULT_FAILED);
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_NE(log.lines()[0].find("Load config occur err: file " + c + " not found"), std::string::npos);
}

TEST(DenoiseAttributes, FusedFlagWithoutTheFusedNetworkFailsUntilCleared) {
  LogCapture log;
  uint32_t h = Create(kDenoise, "passthrough.json", "passthrough.cfg.json");
  float in[8] = {1, 2, 3, 4, 5, 6, 7, 8}, out[8] = {};
  char value[4] = "x";
  EXPECT_EQ(ZV2_Get_AudioDenoise(h, "UseHyperspecific", value), ZV2_RESULT_OK);
  EXPECT_STREQ(value, "x");  // nothing to read
  EXPECT_EQ(ZV2_Set_AudioDenoise(h, "SomethingElse", "1"), ZV2_RESULT_OK);
  EXPECT_EQ(ZV2_Apply_AudioDenoise_CPU(h, in, out), ZV2_RESULT_OK);

  EXPECT_EQ(ZV2_Set_AudioDenoise(h, "UseHyperspecific", "1"), ZV2_RESULT_OK);
  log.Clear();
  EXPECT_EQ(ZV2_Apply_AudioDenoise_CPU(h, in, out), ZV2_RESULT_FAILED);
  ASSERT_GE(log.lines().size(), 2u);
  EXPECT_TRUE(IsErrorLine(log.lines().back(), "ZV2_Apply_AudioDenoise_CPU", "apply failed."));
  EXPECT_NE(log.lines()[log.lines().size() - 2].find("AudioDenoise apply cpu failed. Error: "), std::string::npos);
  EXPECT_EQ(ZV2_ReSet_AudioDenoise_RNN_State_CPU(h), ZV2_RESULT_FAILED);

  EXPECT_EQ(ZV2_Set_AudioDenoise(h, "UseHyperspecific", "1 "), ZV2_RESULT_OK);  // only "1" switches it on
  EXPECT_EQ(ZV2_Apply_AudioDenoise_CPU(h, in, out), ZV2_RESULT_OK);
  EXPECT_EQ(out[7], 8.0f);
  EXPECT_EQ(ZV2_Destory_AudioDenoise(&h), ZV2_RESULT_OK);
}

TEST(VadMetrics, EveryTwoHundredFiftiethApplyLogsTheMeanTime) {
  LogCapture log;
  uint32_t mask = 0;
  ZV2_GetLogLevel(&mask);
  ZV2_SetLogLevel(ZV2_LOG_VERBOSE | ZV2_LOG_ERROR);
  uint32_t h = Create(kVad, "passthrough.json", "passthrough.cfg.json");
  float in[8] = {}, out[8] = {};
  auto metrics_lines = [&] {
    int n = 0;
    for (const auto& line : log.lines()) n += line.find("[Metircs]") != std::string::npos;
    return n;
  };
  for (int i = 0; i < 249; ++i) ASSERT_EQ(ZV2_Apply_VAD_CPU(h, in, out), ZV2_RESULT_OK);
  EXPECT_EQ(ZV2_Apply_VAD_CPU(h, nullptr, out), ZV2_RESULT_INVALID_ARGUMENT);  // refused: not counted
  EXPECT_EQ(metrics_lines(), 0);
  ASSERT_EQ(ZV2_Apply_VAD_CPU(h, in, out), ZV2_RESULT_OK);  // the 250th
  ASSERT_EQ(metrics_lines(), 3);
  const auto& lines = log.lines();
  EXPECT_EQ(lines[lines.size() - 3], "[ZELVA] (Verbose): [Metircs] "
                                     "----------------------------------------------------------------");
  EXPECT_EQ(lines[lines.size() - 2].rfind("[ZELVA] (Verbose): [Metircs] apply_cpu_m0: ", 0), 0u);
  EXPECT_EQ(lines[lines.size() - 2].substr(lines[lines.size() - 2].size() - 3), " ms");
  for (int i = 0; i < 249; ++i) ASSERT_EQ(ZV2_Apply_VAD_CPU(h, in, out), ZV2_RESULT_OK);
  EXPECT_EQ(metrics_lines(), 3);
  ASSERT_EQ(ZV2_Apply_VAD_CPU(h, in, out), ZV2_RESULT_OK);
  EXPECT_EQ(metrics_lines(), 6);
  ZV2_SetLogLevel(mask);
  EXPECT_EQ(ZV2_Destory_VAD(&h), ZV2_RESULT_OK);
}

// ---- Locks ------------------------------------------------------------------------------------------------

// A sink that holds one chosen thread inside the callback, that is, inside its family's lock.
std::mutex gate_mutex;
std::condition_variable gate_cv;
bool gate_open = false;
std::atomic<bool> holder_inside{false};
std::thread::id holder_id;
int32_t GateSink(const char*) {
  if (std::this_thread::get_id() == holder_id) {
    holder_inside = true;
    std::unique_lock<std::mutex> lock(gate_mutex);
    gate_cv.wait(lock, [] { return gate_open; });
  }
  return 0;
}

TEST(Locks, OneFamilyIsSerialisedWhileTheOtherRuns) {
  uint32_t denoise = Create(kDenoise, "passthrough.json", "passthrough.cfg.json");
  uint32_t vad = Create(kVad, "passthrough.json", "passthrough.cfg.json");
  ZV2_SetLogCallback(&GateSink);
  float in[8] = {}, out[8] = {};

  // The holder fails an argument check, so its error line runs the sink with the denoise lock held.
  std::thread holder([&] {
    holder_id = std::this_thread::get_id();
    ZV2_Apply_AudioDenoise_CPU(denoise, nullptr, out);
  });
  while (!holder_inside) std::this_thread::yield();

  std::atomic<bool> second_denoise_done{false};
  std::thread waiter([&] {
    ZV2_Apply_AudioDenoise_CPU(denoise, in, out);
    second_denoise_done = true;
  });
  // A VAD call runs to the end while the denoise family is held.
  float vad_out[8] = {};
  EXPECT_EQ(ZV2_Apply_VAD_CPU(vad, in, vad_out), ZV2_RESULT_OK);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_FALSE(second_denoise_done);  // waits for the holder

  {
    std::lock_guard<std::mutex> lock(gate_mutex);
    gate_open = true;
  }
  gate_cv.notify_all();
  holder.join();
  waiter.join();
  EXPECT_TRUE(second_denoise_done);
  LogCapture restore;
  EXPECT_EQ(ZV2_Destory_AudioDenoise(&denoise), ZV2_RESULT_OK);
  EXPECT_EQ(ZV2_Destory_VAD(&vad), ZV2_RESULT_OK);
}

// The GPU entries raise out of the library with a valid handle and leave their family locked for good; the
// other family goes on. Run in a child process, which is lost afterwards.
TEST(Locks, GpuEntryRaisesAndLeavesItsFamilyLocked) {
  for (const Family* f : {&kDenoise, &kVad}) {
    const Family& other = f == &kDenoise ? kVad : kDenoise;
    uint32_t h = Create(*f, "passthrough.json", "passthrough.cfg.json");
    uint32_t o = Create(other, "passthrough.json", "passthrough.cfg.json");
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      float in[8] = {}, out[8] = {};
      int code = 0;
      try {
        f->apply_gpu(h, in, out);
        code = 10;
      } catch (const std::runtime_error&) {
      }
      if (other.apply(o, in, out) != ZV2_RESULT_OK) code = 11;
      std::atomic<bool> returned{false};
      std::thread blocked([&] {
        float local_out[8];
        f->apply(h, in, local_out);
        returned = true;
      });
      blocked.detach();
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      if (returned) code = 12;
      _exit(code);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << f->name;
    EXPECT_EQ(f->destroy(&h), ZV2_RESULT_OK);
    EXPECT_EQ(other.destroy(&o), ZV2_RESULT_OK);
  }
}

// Handle numbers of a fresh process: the two families count apart. The checks run in a new process of this
// binary, since other tests here have already used both tables.
TEST(FreshProcess, FamiliesAreNumberedApart) {
  if (std::getenv("ZELVA_FRESH_PROCESS") != nullptr) {
    uint32_t d = Create(kDenoise, "passthrough.json", "passthrough.cfg.json");
    uint32_t v = Create(kVad, "passthrough.json", "passthrough.cfg.json");
    EXPECT_EQ(d, 1u);
    EXPECT_EQ(v, 1u);
    uint32_t d2 = Create(kDenoise, "passthrough.json", "passthrough.cfg.json");
    EXPECT_EQ(d2, 2u);
    EXPECT_EQ(ZV2_Destory_AudioDenoise(&d), ZV2_RESULT_OK);
    uint32_t d3 = Create(kDenoise, "passthrough.json", "passthrough.cfg.json");
    EXPECT_EQ(d3, 1u);  // create, create, destroy the first, create: handle 1 again
    for (uint32_t* h : {&d2, &d3}) EXPECT_EQ(ZV2_Destory_AudioDenoise(h), ZV2_RESULT_OK);
    EXPECT_EQ(ZV2_Destory_VAD(&v), ZV2_RESULT_OK);
    return;
  }
  char self[4096];
  const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  ASSERT_GT(n, 0);
  self[n] = '\0';
  const std::string command = std::string("ZELVA_FRESH_PROCESS=1 '") + self +
                              "' --gtest_filter=FreshProcess.FamiliesAreNumberedApart > /dev/null 2>&1";
  EXPECT_EQ(std::system(command.c_str()), 0);
}

}  // namespace
