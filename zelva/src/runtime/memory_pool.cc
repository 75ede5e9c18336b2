#include "zelva/src/runtime/memory_pool.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "zelva/src/utility/logging.h"

namespace zelva {
namespace runtime {
namespace {

bool IsPowerOfTwo(uint64_t value) {
  return value != 0 && (value & (value - 1)) == 0;
}

// Enters a handed-out block, reusing a node of an earlier Free when there is one.
void MarkUsed(UsedBlockMap& used, std::vector<UsedBlockMap::node_type>& spare, void* pointer,
              uint64_t capacity) {
  if (spare.empty()) {
    used.emplace(pointer, capacity);
    return;
  }
  UsedBlockMap::node_type node = std::move(spare.back());
  spare.pop_back();
  node.key() = pointer;
  node.mapped() = capacity;
  used.insert(std::move(node));
}

// Moves a block from the used map to the back of the free list; false if the pointer is not in use here.
bool MarkFree(UsedBlockMap& used, std::vector<UsedBlockMap::node_type>& spare, std::vector<FreeBlock>& free,
              void* pointer) {
  const auto it = used.find(pointer);
  if (it == used.end()) return false;
  free.emplace_back(it->second, pointer);
  spare.push_back(used.extract(it));
  return true;
}

// Takes free_blocks[index]: the last entry moves into its place.
void* TakeFree(std::vector<FreeBlock>& free, size_t index, uint64_t& capacity) {
  void* pointer = free[index].second;
  capacity = free[index].first;
  free[index] = free.back();
  free.pop_back();
  return pointer;
}

uint64_t SumCapacities(const std::vector<FreeBlock>& free, const UsedBlockMap& used) {
  uint64_t total = 0;
  for (const FreeBlock& block : free) total += block.first;
  for (const auto& entry : used) total += entry.second;
  return total;
}

// AlignedPool blocks keep the system allocator's pointer in the 8 bytes below the aligned address.
void ReleaseAligned(void* pointer) {
  void* raw;
  std::memcpy(&raw, static_cast<char*>(pointer) - sizeof(void*), sizeof(void*));
  std::free(raw);
}

}  // namespace

// ------------------------------------------------------------------------------------------------------------
// AlignedPool
// ------------------------------------------------------------------------------------------------------------

AlignedPool::AlignedPool(uint32_t alignment) : alignment(alignment), fit_ratio(0.75f) {
  ZV_ASSERT(IsPowerOfTwo(alignment), "alignment %u is not a power of two.", alignment);
}

AlignedPool::~AlignedPool() {
  Clear();
  for (const auto& entry : used_blocks) std::fprintf(stderr, "%p still in use \n", entry.first);
}

void AlignedPool::Clear() {
  for (const FreeBlock& block : free_blocks) ReleaseAligned(block.second);
  free_blocks.clear();
}

void* AlignedPool::Alloc(uint64_t size) {
  // A block fits when it is at least the request and at most a third larger (compared in float).
  const float request = static_cast<float>(size);
  for (size_t i = 0; i < free_blocks.size(); ++i) {
    const uint64_t capacity = free_blocks[i].first;
    if (size <= capacity && static_cast<float>(capacity) * fit_ratio <= request) {
      uint64_t taken_capacity;
      void* pointer = TakeFree(free_blocks, i, taken_capacity);
      MarkUsed(used_blocks, spare_nodes_, pointer, taken_capacity);
      return pointer;
    }
  }
  char* raw = static_cast<char*>(std::malloc(size + sizeof(void*) + alignment));
  ZV_ASSERT(raw != nullptr, "out of memory allocating %llu bytes.", static_cast<unsigned long long>(size));
  const uintptr_t aligned_address = (reinterpret_cast<uintptr_t>(raw) + alignment + sizeof(void*) - 1) &
                                    ~(static_cast<uintptr_t>(alignment) - 1);
  char* aligned = reinterpret_cast<char*>(aligned_address);
  std::memcpy(aligned - sizeof(void*), &raw, sizeof(void*));
  MarkUsed(used_blocks, spare_nodes_, aligned, size);
  return aligned;
}

void AlignedPool::Free(void* pointer) {
  if (MarkFree(used_blocks, spare_nodes_, free_blocks, pointer)) return;
  if (pointer != nullptr) ReleaseAligned(pointer);
}

uint64_t AlignedPool::TotalBytes() {
  return SumCapacities(free_blocks, used_blocks);
}

// ------------------------------------------------------------------------------------------------------------
// AlignUpPool
// ------------------------------------------------------------------------------------------------------------

AlignUpPool::AlignUpPool(const uint64_t& alignment) : alignment(alignment) {
  ZV_ASSERT(IsPowerOfTwo(alignment), "alignment %llu is not a power of two.",
            static_cast<unsigned long long>(alignment));
}

AlignUpPool::~AlignUpPool() noexcept(false) {
  // The free blocks go back first so that a failing assertion leaks only the blocks still in use.
  Clear();
  ZV_ASSERT(used_blocks.empty(), "Destory this pool too early!!");
}

void AlignUpPool::Clear() {
  for (const FreeBlock& block : free_blocks) std::free(block.second);
  free_blocks.clear();
}

void* AlignUpPool::Alloc(uint64_t size) {
  // At least 512 bytes of slack past the requested end, beyond the rounding.
  uint64_t rounded = size + 511 + alignment;
  rounded -= rounded % alignment;
  for (size_t i = free_blocks.size(); i-- > 0;) {
    if (free_blocks[i].first >= rounded) {
      uint64_t capacity;
      void* pointer = TakeFree(free_blocks, i, capacity);
      MarkUsed(used_blocks, spare_nodes_, pointer, capacity);
      return pointer;
    }
  }
  void* pointer = std::aligned_alloc(alignment, rounded);
  ZV_ASSERT(pointer != nullptr, "out of memory allocating %llu bytes.",
            static_cast<unsigned long long>(rounded));
  MarkUsed(used_blocks, spare_nodes_, pointer, rounded);
  return pointer;
}

void AlignUpPool::Free(void* pointer) {
  if (MarkFree(used_blocks, spare_nodes_, free_blocks, pointer)) return;
  ZV_ASSERT(false, "pointer(0x%ld) not in alignment memory pool !",
            static_cast<long>(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer))));
}

uint64_t AlignUpPool::TotalBytes() {
  return SumCapacities(free_blocks, used_blocks);
}

}  // namespace runtime
}  // namespace zelva
