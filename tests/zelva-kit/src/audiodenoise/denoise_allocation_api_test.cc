// Steady-state applies on the fused path allocate nothing: this binary replaces the global operator new,
// which the shared library's allocations go through too, and counts calls around a run of blocks.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "zv2.h"

namespace {
std::atomic<long> g_news{0};
}  // namespace

void* operator new(std::size_t size) {
  g_news.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete[](void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
  std::free(p);
}

namespace {

long NewsDuringBlocks(bool fused, int blocks) {
  const std::string model = std::string(ZELVA_SOURCE_DIR) + "/models/denoise.zvmod";
  const std::string config = std::string(ZELVA_SOURCE_DIR) + "/models/denoise.cfg.json";
  const char* argv[] = {model.c_str(), config.c_str(), fused ? "1" : "0"};
  uint32_t h = 0;
  EXPECT_EQ(ZV2_Create_AudioDenoise(&h, 3, argv), ZV2_RESULT_OK);
  std::vector<float> in(560, 0.25f), out(80);
  // Warm-up: the first blocks may fill pools.
  for (int b = 0; b < 4; ++b) EXPECT_EQ(ZV2_Apply_AudioDenoise_CPU(h, in.data(), out.data()), ZV2_RESULT_OK);
  const long before = g_news.load();
  int failures = 0;
  for (int b = 0; b < blocks; ++b) {
    in[b % 560] = static_cast<float>(b % 7) * 0.1f;
    failures += ZV2_Apply_AudioDenoise_CPU(h, in.data(), out.data()) != ZV2_RESULT_OK;
  }
  failures += ZV2_ReSet_AudioDenoise_RNN_State_CPU(h) != ZV2_RESULT_OK;
  failures += ZV2_Apply_AudioDenoise_CPU(h, in.data(), out.data()) != ZV2_RESULT_OK;
  const long news = g_news.load() - before;
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(ZV2_Destory_AudioDenoise(&h), ZV2_RESULT_OK);
  return news;
}

TEST(DenoiseAllocation, FusedAppliesAndResetsAllocateNothing) {
  EXPECT_EQ(NewsDuringBlocks(true, 50), 0);
}

}  // namespace
