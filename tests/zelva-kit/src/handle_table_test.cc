// The handle table's life cycle with a stand-in engine: slot reuse, empty slots, failed loads, the lock.
// The public side (stale handles, the GPU entry, two families) is in engines_api_test.cc.
#include "zelva-kit/src/handle_table.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

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
  int32_t Apply_Gpu() { return -1; }
  int32_t Reset_RNN_State_Cpu() { return 0; }
  int32_t Set_Attr(const char*, const char*) { return 0; }
  int32_t Get_Attr(const char*, void*) { return 0; }
  char id = 0;
};

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

TEST_F(HandleTableTest, SlotsAreReusedLastFreedFirstAndEmptySlotsFail) {
  EXPECT_EQ(Create('a'), 1u);
  EXPECT_EQ(Create('b'), 2u);
  EXPECT_EQ(Create('c'), 3u);
  uint32_t ha = 1, hc = 3;
  EXPECT_EQ(table.Destroy(kSite, &ha), ZV2_RESULT_OK);
  EXPECT_EQ(table.Destroy(kSite, &hc), ZV2_RESULT_OK);
  EXPECT_EQ(ha, 0u);

  // Every operating entry trusts the slot: an empty one is "context is NULL." and -1.
  Apply(3, ZV2_RESULT_FAILED);
  EXPECT_EQ(table.Reset(kSite, 3), ZV2_RESULT_FAILED);
  EXPECT_EQ(table.Set(kSite, 3, "n", "v"), ZV2_RESULT_FAILED);
  char value = 0;
  EXPECT_EQ(table.Get(kSite, 3, "n", &value), ZV2_RESULT_FAILED);
  ASSERT_EQ(log.lines().size(), 4u);
  for (const std::string& line : log.lines())
    EXPECT_TRUE(IsErrorLine(line, "Entry", "context is NULL.")) << line;

  EXPECT_EQ(Create('d'), 3u);  // last freed first
  EXPECT_EQ(Create('e'), 1u);
  EXPECT_EQ(Create('f'), 4u);  // the table grows only when no slot is free
  EXPECT_EQ(Apply(3), 'd');
  EXPECT_EQ(Apply(1), 'e');
  for (uint32_t h : {1u, 2u, 3u, 4u}) EXPECT_EQ(table.Destroy(kSite, &h), ZV2_RESULT_OK);
  EXPECT_EQ(FakeEngine::live, 0);
}

TEST_F(HandleTableTest, FailedLoadFreesItsEngineAndFailedApplyKeepsIt) {
  const char* argv[] = {"x-broken", "z"};
  uint32_t h = 42;
  EXPECT_EQ(table.Create(kSite, &h, 2, argv), ZV2_RESULT_FAILED);
  EXPECT_EQ(h, 42u);
  EXPECT_TRUE(IsErrorLine(log.Last(), "Entry", "load model failed."));
  EXPECT_EQ(FakeEngine::live, 0);  // the record never entered the table, and its engine is gone

  uint32_t good = Create('g');
  EXPECT_EQ(good, 1u);
  char out = 0;
  EXPECT_EQ(table.ApplyCpu(kSite, good, "f", &out), ZV2_RESULT_FAILED);
  EXPECT_TRUE(IsErrorLine(log.Last(), "Entry", "apply failed."));
  EXPECT_EQ(Apply(good), 'g');  // the engine stays usable
  EXPECT_EQ(table.Destroy(kSite, &good), ZV2_RESULT_OK);
}

TEST_F(HandleTableTest, ThreadsCallsOnOneTableNeverOverlap) {
  uint32_t h = Create('a');
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
  EXPECT_EQ(table.Destroy(kSite, &h), ZV2_RESULT_OK);
}

}  // namespace
