// The handle table with a stand-in engine that counts its instances and notes overlapping calls: a failed
// load leaves no engine behind, and calls on one table never overlap. The rest of the table's life cycle
// (slot reuse, stale and empty slots, failed applies) is driven through the public entries in
// engines_api_test.cc.
#include "zelva-kit/src/handle_table.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "support/log_capture.h"

namespace {

struct FakeEngine {
  static inline std::atomic<int> live{0};
  static inline std::atomic<int> in_apply{0};
  static inline std::atomic<int> max_in_apply{0};
  FakeEngine() { ++live; }
  ~FakeEngine() { --live; }
  int32_t Load(int32_t, const char** argv) { return argv[0][0] == 'x' ? -1 : 0; }
  int32_t Apply_Cpu(const void*, void*) {
    const int now = ++in_apply;
    int seen = max_in_apply;
    while (now > seen && !max_in_apply.compare_exchange_weak(seen, now)) {
    }
    std::this_thread::sleep_for(std::chrono::microseconds(200));
    --in_apply;
    return 0;
  }
  int32_t Apply_Gpu() { return -1; }
  int32_t Reset_RNN_State_Cpu() { return 0; }
  int32_t Set_Attr(const char*, const char*) { return 0; }
  int32_t Get_Attr(const char*, void*) { return 0; }
};

const zelva::kit::CallSite kSite{"Entry", "here.cc", 1};

TEST(HandleTableTest, FailedLoadLeavesNoEngineAndThreadsCallsNeverOverlap) {
  zvtest::LogCapture log;
  zelva::kit::HandleTable<FakeEngine> table;
  const char* broken[] = {"x-broken"};
  uint32_t h = 42;
  EXPECT_EQ(table.Create(kSite, &h, 1, broken), ZV2_RESULT_FAILED);
  EXPECT_EQ(FakeEngine::live, 0);

  const char* good[] = {"model"};
  ASSERT_EQ(table.Create(kSite, &h, 1, good), ZV2_RESULT_OK);
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
  EXPECT_EQ(FakeEngine::live, 0);
}

}  // namespace
