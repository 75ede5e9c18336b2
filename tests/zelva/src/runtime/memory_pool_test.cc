#include "zelva/src/runtime/memory_pool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "zelva/src/utility/logging.h"

namespace zelva {
namespace runtime {
namespace {

using ::testing::HasSubstr;

// Collects what the log delivers while it lives.
class LogCapture {
 public:
  LogCapture() : previous_(utility::GetLogCallback()) {
    text().clear();
    utility::SetLogCallback(&Collect);
  }
  ~LogCapture() { utility::SetLogCallback(previous_); }
  static std::string& text() {
    static std::string captured;
    return captured;
  }

 private:
  static int32_t Collect(const char* line) {
    text() += line;
    return 0;
  }
  utility::LogCallback previous_;
};

bool Aligned(const void* p, uint64_t alignment) {
  return reinterpret_cast<uintptr_t>(p) % alignment == 0;
}

// Returns a block that an AlignedPool handed out to the system, as the pool's own release would.
void ReleaseLeakedAlignedBlock(void* p) {
  void* raw;
  std::memcpy(&raw, static_cast<char*>(p) - sizeof(void*), sizeof(void*));
  std::free(raw);
}

TEST(AlignedPoolTest, FreedBlockServesRequestsUpToAThirdSmaller) {
  AlignedPool pool(4096);
  void* block = pool.Alloc(1000);
  EXPECT_TRUE(Aligned(block, 4096));
  EXPECT_EQ(pool.TotalBytes(), 1000u);  // capacity is the request, without overhead
  pool.Free(block);

  for (uint64_t size : {750u, 1000u}) {
    void* p = pool.Alloc(size);
    EXPECT_EQ(p, block) << size;
    pool.Free(p);
  }
  for (uint64_t size : {749u, 1001u}) {
    void* p = pool.Alloc(size);
    EXPECT_NE(p, block) << size;
    EXPECT_TRUE(Aligned(p, 4096));
    pool.Free(p);
  }
  EXPECT_EQ(pool.TotalBytes(), 1000u + 749u + 1001u);
}

TEST(AlignedPoolTest, TakenBlockIsReplacedByTheLastFreeBlock) {
  AlignedPool pool(32);
  void* a = pool.Alloc(1000);
  void* b = pool.Alloc(2000);
  void* c = pool.Alloc(3000);
  pool.Free(a);
  pool.Free(b);
  pool.Free(c);
  EXPECT_EQ(pool.Alloc(1000), a);
  ASSERT_EQ(pool.free_blocks.size(), 2u);
  EXPECT_EQ(pool.free_blocks[0], FreeBlock(3000, c));
  EXPECT_EQ(pool.free_blocks[1], FreeBlock(2000, b));
  // First fit from the front: c is more than a third larger than 1600, b is not.
  EXPECT_EQ(pool.Alloc(1600), b);
  pool.Free(a);
  pool.Free(b);
}

TEST(AlignedPoolTest, UnknownPointerIsReleasedDirectlyAndNullIgnored) {
  AlignedPool owner(64);
  AlignedPool other(64);
  void* p = owner.Alloc(100);
  owner.used_blocks.erase(p);  // now foreign to both pools
  other.Free(p);               // released to the system (a leak or bad free would show under the sanitizers)
  other.Free(nullptr);
  EXPECT_TRUE(other.free_blocks.empty());
  EXPECT_EQ(other.TotalBytes(), 0u);
}

TEST(AlignedPoolTest, DestructionWithBlocksInUseReportsAndContinues) {
  void* leaked = nullptr;
  testing::internal::CaptureStderr();
  {
    AlignedPool pool(4096);
    leaked = pool.Alloc(10);
    pool.Free(pool.Alloc(20));
  }
  const std::string err = testing::internal::GetCapturedStderr();
  char expected[64];
  std::snprintf(expected, sizeof(expected), "%p still in use \n", leaked);
  EXPECT_EQ(err, expected);
  ReleaseLeakedAlignedBlock(leaked);
}

TEST(AlignUpPoolTest, RequestsRoundUpWithSlack) {
  const uint64_t alignment = 4096;
  AlignUpPool pool(alignment);
  struct Case {
    uint64_t request, capacity;
  } cases[] = {{1, 4096}, {3585, 8192}, {0, 4096}, {3584, 4096}, {4096, 8192}};
  uint64_t total = 0;
  for (const Case& c : cases) {
    void* p = pool.Alloc(c.request);
    EXPECT_TRUE(Aligned(p, alignment));
    total += c.capacity;
    EXPECT_EQ(pool.TotalBytes(), total) << c.request;
    EXPECT_EQ(pool.used_blocks.at(p), c.capacity);
  }
  while (!pool.used_blocks.empty()) pool.Free(pool.used_blocks.begin()->first);
}

TEST(AlignUpPoolTest, NewestSufficientBlockServesWhateverItsSize) {
  const uint64_t alignment = 64;
  AlignUpPool pool(alignment);
  void* small = pool.Alloc(10);
  void* big = pool.Alloc(100000);
  void* medium = pool.Alloc(1000);
  pool.Free(small);
  pool.Free(big);
  pool.Free(medium);
  EXPECT_EQ(pool.Alloc(1), medium);  // scanned from the back
  EXPECT_EQ(pool.Alloc(1), big);
  EXPECT_EQ(pool.Alloc(1), small);
  const uint64_t total = pool.TotalBytes();
  pool.Free(small);
  pool.Free(big);
  pool.Free(medium);
  EXPECT_EQ(pool.TotalBytes(), total);
}

TEST(AlignUpPoolTest, ReuseCycleAndClearKeepTheCount) {
  const uint64_t alignment = 4096;
  AlignUpPool pool(alignment);
  void* a = pool.Alloc(5000);
  void* b = pool.Alloc(100);
  pool.Free(a);
  const uint64_t total = pool.TotalBytes();
  for (int i = 0; i < 3; ++i) {
    void* p = pool.Alloc(5000);
    EXPECT_EQ(p, a);
    EXPECT_EQ(pool.TotalBytes(), total);
    pool.Free(p);
    EXPECT_EQ(pool.TotalBytes(), total);
  }
  pool.Clear();
  EXPECT_TRUE(pool.free_blocks.empty());
  EXPECT_EQ(pool.TotalBytes(), 4096u);  // b is still in use and counted
  std::memset(b, 1, 100);               // and valid
  pool.Free(b);
}

TEST(AlignUpPoolTest, MisuseIsAnAssertionFailure) {
  const uint64_t alignment = 4096;
  AlignUpPool pool(alignment);
  int not_from_pool = 0;
  {
    LogCapture log;
    EXPECT_THROW(pool.Free(&not_from_pool), std::runtime_error);
    const long low = static_cast<long>(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&not_from_pool)));
    EXPECT_THAT(log.text(),
                HasSubstr("pointer(0x" + std::to_string(low) + ") not in alignment memory pool !"));
  }
  EXPECT_THROW(pool.Free(nullptr), std::runtime_error);

  void* leaked = nullptr;
  {
    LogCapture log;
    EXPECT_THROW(
        {
          AlignUpPool early(alignment);
          leaked = early.Alloc(1);
        },
        std::runtime_error);
    EXPECT_THAT(log.text(), HasSubstr("Destory this pool too early!!"));
  }
  ASSERT_NE(leaked, nullptr);
  std::free(leaked);
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
