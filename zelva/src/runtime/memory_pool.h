// Reusing allocators. A pool keeps every block that was ever given back and hands it out again, so that a
// stream in steady state allocates nothing: neither blocks nor bookkeeping (map nodes are recycled).
//
//   AlignedPool  first-fit from the front, a block fits when it is at most a third larger than the request;
//                unknown pointers given to Free are released directly; early destruction is reported on
//                stderr and the blocks in use are leaked.
//   AlignUpPool  requests rounded up with at least 512 bytes of slack past the end (kernels may over-read
//                with wide loads); any block large enough fits, newest returns first; unknown pointers and
//                early destruction are assertion failures.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zelva {
namespace runtime {

class MemoryPool {
 public:
  MemoryPool() = default;
  MemoryPool(const MemoryPool&) = delete;
  MemoryPool& operator=(const MemoryPool&) = delete;
  // An AlignUpPool destroyed with blocks in use raises; through a shared pointer that ends the process after
  // the message has been logged.
  virtual ~MemoryPool() noexcept(false) = default;

  // Gives all free blocks back to the system; blocks in use stay valid and counted.
  virtual void Clear() = 0;
  // A block of at least `size` bytes.
  virtual void* Alloc(uint64_t size) = 0;
  // Takes a block back into the free list.
  virtual void Free(void* pointer) = 0;
  // Sum of the capacities of all blocks, free and in use.
  virtual uint64_t TotalBytes() = 0;
};

using FreeBlock = std::pair<uint64_t, void*>;  // (capacity, pointer)
using UsedBlockMap = std::unordered_map<void*, uint64_t>;

class AlignedPool : public MemoryPool {
 public:
  explicit AlignedPool(uint32_t alignment);
  ~AlignedPool() override;

  void Clear() override;
  void* Alloc(uint64_t size) override;
  void Free(void* pointer) override;
  uint64_t TotalBytes() override;

  std::vector<FreeBlock> free_blocks;  // in the order of their return
  UsedBlockMap used_blocks;            // handed out: pointer -> capacity
  uint32_t alignment;
  float fit_ratio;

 private:
  std::vector<UsedBlockMap::node_type> spare_nodes_;
};

class AlignUpPool : public MemoryPool {
 public:
  explicit AlignUpPool(const uint64_t& alignment);
  ~AlignUpPool() noexcept(false) override;

  void Clear() override;
  void* Alloc(uint64_t size) override;
  void Free(void* pointer) override;
  uint64_t TotalBytes() override;

  std::vector<FreeBlock> free_blocks;  // in the order of their return
  UsedBlockMap used_blocks;            // handed out: pointer -> capacity
  uint64_t alignment;

 private:
  std::vector<UsedBlockMap::node_type> spare_nodes_;
};

}  // namespace runtime
}  // namespace zelva
