// The handle table's life cycle with a stand-in engine: slot reuse, stale handles, the lock.
#include "zelva-kit/src/handle_table.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "support/log_capture.h"

namespace {

using zelva::kit::CallSite;
using zvtest::IsErrorLine;
using zvtest::LogCapture;

struct FakeEngine {
  static inline std::atomic<int> live{0};
  static inline std::atomic<int> in_apply{0};
  static inline std::atomic<int> max_in_apply{0};
  FakeEngine() { ++live; }
  ~FakeEngine() { --live; }
  int32_t Load(int32_t argc, const char** argv) {
    id = argc > 1 ? argv[1][0] : '?';
    return argv[0][0] == 'x' ? -1 : 0;
  }
  int32_t Apply_Cpu(const void* input, void* output) {
    const int now = ++in_apply;
    int seen = max_in_apply;
    while (now > seen && !max_in_apply.compare_exchange_weak(seen, now)) {
    }
    std::this_thread::sleep_for(std::chrono::microseconds(200));
    *static_cast<char*>(output) = id;
    --in_apply;
    return *static_cast<const char*>(input) == 'f' ? -1 : 0;
  }
  int32_t Apply_Gpu() {
    ZV_ASSERT(false, "Not Implemented.");
    return -1;
  }
  int32_t Reset_RNN_State_Cpu() { return 0; }
  int32_t Set_Attr(const char*, const char*) { return 0; }
  int32_t Get_Attr(const char*, void*) { return 0; }
  char id = 0;
};
struct OtherEngine : FakeEngine {};

const CallSite kSite{"Entry", "here.cc", 1};

class HandleTableTest : public ::testing::Test {
 protected:
  uint32_t Create(char id) {
    const char tag[2] = {id, 0};
    const char* argv[] = {"model", tag};
    uint32_t h = 0;
    EXPECT_EQ(table.Create(kSite, &h, 2, argv), ZV2_RESULT_OK);
    return h;
  }
  char Apply(uint32_t h, _ZV2_Result expect = ZV2_RESULT_OK) {
    char out = 0;
    EXPECT_EQ(table.ApplyCpu(kSite, h, "ok", &out), expect);
    return out;
  }
  zelva::kit::HandleTable<FakeEngine> table;
  LogCapture log;
};

TEST_F(HandleTableTest, HandlesCountFromOneAndSlotsAreReusedLastFreedFirst) {
  const uint32_t a = Create('a'), b = Create('b'), c = Create('c');
  EXPECT_EQ(a, 1u);
  EXPECT_EQ(b, 2u);
  EXPECT_EQ(c, 3u);
  uint32_t ha = a, hc = c;
  EXPECT_EQ(table.Destroy(kSite, &ha), ZV2_RESULT_OK);
  EXPECT_EQ(table.Destroy(kSite, &hc), ZV2_RESULT_OK);
  EXPECT_EQ(ha, 0u);
  EXPECT_EQ(Create('d'), 3u);  // last freed first
  EXPECT_EQ(Create('e'), 1u);
  EXPECT_EQ(Create('f'), 4u);  // the table grows only when no slot is free
  EXPECT_EQ(Apply(3), 'd');
  EXPECT_EQ(Apply(1), 'e');
  EXPECT_TRUE(log.lines().empty());
  for (uint32_t h : {1u, 2u, 3u, 4u}) EXPECT_EQ(table.Destroy(kSite, &h), ZV2_RESULT_OK);
  EXPECT_EQ(FakeEngine::live, 0);
}

TEST_F(HandleTableTest, StaleHandles) {
  const uint32_t a = Create('a');
  const uint32_t b = Create('b');
  uint32_t h = a, stale = a;
  ASSERT_EQ(table.Destroy(kSite, &h), ZV2_RESULT_OK);

  // Destroying twice through the same variable: it holds 0 now.
  EXPECT_EQ(table.Destroy(kSite, &h), ZV2_RESULT_HANDLE_NOT_FOUND);
  EXPECT_TRUE(IsErrorLine(log.Last(), "Entry", "handle(0) not found."));
  // Through a stale copy whose slot is free and in range.
  EXPECT_EQ(table.Destroy(kSite, &stale), ZV2_RESULT_HANDLE_NOT_FOUND);
  EXPECT_TRUE(IsErrorLine(log.Last(), "Entry", "handle(1) mismatched."));
  EXPECT_EQ(stale, a);
  // Operating entries trust the slot: an empty one is "context is NULL." and -1.
  Apply(a, ZV2_RESULT_FAILED);
  EXPECT_TRUE(IsErrorLine(log.Last(), "Entry", "context is NULL."));
  EXPECT_EQ(table.Reset(kSite, a), ZV2_RESULT_FAILED);
  EXPECT_EQ(table.Set(kSite, a, "n", "v"), ZV2_RESULT_FAILED);
  char value = 0;
  EXPECT_EQ(table.Get(kSite, a, "n", &value), ZV2_RESULT_FAILED);
  // Once the slot is reused, the stale copy reaches the newer engine: there is no generation count.
  EXPECT_EQ(Create('n'), a);
  EXPECT_EQ(Apply(stale), 'n');
  for (uint32_t x : {a, b}) EXPECT_EQ(table.Destroy(kSite, &x), ZV2_RESULT_OK);
}

TEST_F(HandleTableTest, FailedLoadAndFailedApply) {
  const char* argv[] = {"x-broken", "z"};
  uint32_t h = 42;
  const int before = FakeEngine::live;
  EXPECT_EQ(table.Create(kSite, &h, 2, argv), ZV2_RESULT_FAILED);
  EXPECT_EQ(h, 42u);
  EXPECT_TRUE(IsErrorLine(log.Last(), "Entry", "load model failed."));
  EXPECT_EQ(FakeEngine::live, before + 1);  // the failed engine is abandoned, not destroyed

  const uint32_t good = Create('g');
  EXPECT_EQ(good, 1u);  // the failed create never entered the table
  char out = 0;
  EXPECT_EQ(table.ApplyCpu(kSite, good, "f", &out), ZV2_RESULT_FAILED);
  EXPECT_TRUE(IsErrorLine(log.Last(), "Entry", "apply failed."));
  EXPECT_EQ(Apply(good), 'g');  // the engine stays usable
  uint32_t x = good;
  EXPECT_EQ(table.Destroy(kSite, &x), ZV2_RESULT_OK);
}

TEST_F(HandleTableTest, TwoTablesAreNumberedApart) {
  zelva::kit::HandleTable<OtherEngine> other;
  const char* argv[] = {"m", "o"};
  uint32_t ho = 0;
  ASSERT_EQ(other.Create(kSite, &ho, 2, argv), ZV2_RESULT_OK);
  const uint32_t h = Create('a');
  EXPECT_EQ(h, 1u);
  EXPECT_EQ(ho, 1u);
  EXPECT_EQ(table.Destroy(kSite, &ho), ZV2_RESULT_OK);
  uint32_t again = 1;
  EXPECT_EQ(other.Destroy(kSite, &again), ZV2_RESULT_OK);
}

TEST_F(HandleTableTest, CallsOnOneTableNeverOverlap) {
  const uint32_t h = Create('a');
  FakeEngine::max_in_apply = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 50; ++i) {
        char out;
        table.ApplyCpu(kSite, h, "ok", &out);
      }
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(FakeEngine::max_in_apply, 1);
  uint32_t x = h;
  EXPECT_EQ(table.Destroy(kSite, &x), ZV2_RESULT_OK);
}

// The GPU entry lets the engine's exception out and leaves the table locked for good; another table is not
// affected. Run in a child process, since the locked table can never be used again.
TEST_F(HandleTableTest, GpuEntryRaisesAndLeavesTheTableLocked) {
  const uint32_t h = Create('a');
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    int code = 0;
    try {
      char out;
      table.ApplyGpu(kSite, h, "ok", &out);
      code = 10;  // did not raise
    } catch (const std::runtime_error& e) {
      if (std::string(e.what()).find("Assert Failed in FUNCTION<") == std::string::npos) code = 11;
    }
    zelva::kit::HandleTable<OtherEngine> other;  // a second family still works
    const char* argv[] = {"m", "o"};
    uint32_t ho = 0;
    if (other.Create(kSite, &ho, 2, argv) != ZV2_RESULT_OK) code = 12;
    std::atomic<bool> returned{false};
    std::thread blocked([&] {
      char out;
      table.ApplyCpu(kSite, h, "ok", &out);
      returned = true;
    });
    blocked.detach();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    if (returned) code = 13;
    _exit(code);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  uint32_t x = h;
  EXPECT_EQ(table.Destroy(kSite, &x), ZV2_RESULT_OK);
}

}  // namespace
