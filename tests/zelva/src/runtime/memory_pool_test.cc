#include "zelva/src/runtime/memory_pool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "support/log_capture.h"

namespace zelva {
namespace runtime {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;

bool Aligned(const void* p, uint64_t alignment) {
  return reinterpret_cast<uintptr_t>(p) % alignment == 0;
}

TEST(AlignedPoolTest, FirstFitFromTheFrontUpToAThirdLarger) {
  AlignedPool pool(4096);
  void* block = pool.Alloc(1000);
  EXPECT_TRUE(Aligned(block, 4096));
  EXPECT_EQ(pool.TotalBytes(), 1000u);  // capacity is the request, without overhead
  pool.Free(block);
  for (uint64_t size : {750u, 1000u, 749u, 1001u}) {
    void* p = pool.Alloc(size);
    EXPECT_EQ(p == block, size == 750u || size == 1000u) << size;
    EXPECT_TRUE(Aligned(p, 4096));
    pool.Free(p);
  }
  EXPECT_EQ(pool.TotalBytes(), 1000u + 749u + 1001u);
  pool.Clear();
  EXPECT_EQ(pool.TotalBytes(), 0u);

  // A taken block is replaced by the last free one.
  void* a = pool.Alloc(1000);
  void* b = pool.Alloc(2000);
  void* c = pool.Alloc(3000);
  pool.Free(a);
  pool.Free(b);
  pool.Free(c);
  EXPECT_EQ(pool.Alloc(1000), a);
  EXPECT_EQ(pool.free_blocks, (std::vector<FreeBlock>{{3000, c}, {2000, b}}));
  EXPECT_EQ(pool.Alloc(1600), b);  // c is more than a third larger than 1600, b is not
  pool.Free(a);
  pool.Free(b);
}

TEST(AlignedPoolTest, ForeignPointersAndEarlyDestruction) {
  AlignedPool owner(64), other(64);
  void* p = owner.Alloc(100);
  owner.used_blocks.erase(p);  // now foreign to both pools
  other.Free(p);               // released to the system (a leak or bad free would show under the sanitizers)
  other.Free(nullptr);
  EXPECT_TRUE(other.free_blocks.empty());
  EXPECT_EQ(other.TotalBytes(), 0u);

  // Destroyed with a block in use: reported on stderr, and the block is leaked.
  void* leaked = nullptr;
  testing::internal::CaptureStderr();
  {
    AlignedPool pool(4096);
    leaked = pool.Alloc(10);
    pool.Free(pool.Alloc(20));
  }
  char expected[64];
  std::snprintf(expected, sizeof(expected), "%p still in use \n", leaked);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), expected);
  other.Free(leaked);  // foreign: released directly
}

TEST(AlignUpPoolTest, RoundsUpWithSlackAndServesTheNewestSufficientBlock) {
  AlignUpPool pool(4096);
  uint64_t total = 0;
  for (auto c :
       {std::pair<uint64_t, uint64_t>{1, 4096}, {3585, 8192}, {0, 4096}, {3584, 4096}, {4096, 8192}}) {
    void* p = pool.Alloc(c.first);
    EXPECT_TRUE(Aligned(p, 4096));
    total += c.second;
    EXPECT_EQ(pool.TotalBytes(), total) << c.first;
    EXPECT_EQ(pool.used_blocks.at(p), c.second);
  }
  while (!pool.used_blocks.empty()) pool.Free(pool.used_blocks.begin()->first);

  AlignUpPool small(64);
  void* a = small.Alloc(10);
  void* b = small.Alloc(100000);
  void* c = small.Alloc(1000);
  small.Free(a);
  small.Free(b);
  small.Free(c);
  const uint64_t before = small.TotalBytes();
  EXPECT_EQ(small.Alloc(1), c);  // scanned from the back, whatever the size
  EXPECT_EQ(small.Alloc(1), b);
  EXPECT_EQ(small.Alloc(1), a);
  small.Free(b);
  EXPECT_EQ(small.TotalBytes(), before);
  small.Clear();
  EXPECT_TRUE(small.free_blocks.empty());
  EXPECT_EQ(small.TotalBytes(), 576u + 1536u);  // a and c are still in use and counted
  std::memset(a, 1, 10);                        // and valid
  small.Free(a);
  small.Free(c);
}

TEST(AlignUpPoolTest, MisuseIsAnAssertionFailure) {
  AlignUpPool pool(4096);
  int not_from_pool = 0;
  zvtest::LogCapture log;
  EXPECT_THROW(pool.Free(&not_from_pool), std::runtime_error);
  const long low = static_cast<long>(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&not_from_pool)));
  EXPECT_THAT(log.Last(), HasSubstr("pointer(0x" + std::to_string(low) + ") not in alignment memory pool !"));
  EXPECT_THROW(pool.Free(nullptr), std::runtime_error);

  void* leaked = nullptr;
  EXPECT_THROW(
      {
        AlignUpPool early(4096);
        leaked = early.Alloc(1);
      },
      std::runtime_error);
  EXPECT_THAT(log.lines(), Contains(HasSubstr("Destory this pool too early!!")));
  ASSERT_NE(leaked, nullptr);
  std::free(leaked);
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
