#pragma once

#include <cstdint>
#include <mutex>
#include <unordered_map>

#include "core/deferred_executor/MemTracker.h"

namespace velour::core {

// Blocks of one size for data that outlives a frame. Memory goes back to the
// heap only when the pool is destroyed.
class FixedSizeRawMemoryPool {
    using Tracker = MemTracker<MemCategory::RawMemoryPool>;

  public:
    explicit FixedSizeRawMemoryPool(std::uint32_t blockSize);
    ~FixedSizeRawMemoryPool();
    FixedSizeRawMemoryPool(const FixedSizeRawMemoryPool&) = delete;
    FixedSizeRawMemoryPool& operator=(const FixedSizeRawMemoryPool&) = delete;

    void* allocate();
    // Gives a payload back to the pool that made it; ignores a payload with no
    // owner or a misaligned one.
    static void release(void* payload);

    std::uint32_t blockSize() const { return size; }
    std::uint32_t used() const { return usedCount; }

  private:
    struct Block {
        FixedSizeRawMemoryPool* owner;
        Block* prev;
        Block* next;
        void* spare;
    };
    struct Chunk {
        std::uint32_t blocks;
        unsigned char* memory;
        Chunk* next;
    };
    // Four words: 16 bytes on the 32-bit target, 32 on a 64-bit host.
    static constexpr std::uint32_t HEADER = (sizeof(Block) + 7) & ~std::size_t(7);
    static_assert(sizeof(void*) != 4 || HEADER == 16, "a block header is 16 bytes on 32-bit");

    Chunk* chunks = nullptr;
    Block* usedBlocks = nullptr;
    Block* freeBlocks = nullptr;
    std::uint32_t usedCount = 0;
    std::uint32_t nextChunkBlocks = 1;
    std::mutex mutex;
    std::uint32_t size;
    std::uint32_t stride;
};

// Size classes of 1024 bytes: a request of n bytes is served by the pool of
// class n / 1024, whose blocks hold (class + 1) * 1024 bytes.
class RawMemoryPoolMap {
    using Tracker = MemTracker<MemCategory::RawMemoryPool>;

  public:
    static constexpr std::uint32_t granularity = 1024;

    void* allocate(std::uint32_t size);

  private:
    using Pools =
        std::unordered_map<std::uint32_t, Tracker::unique_ptr<FixedSizeRawMemoryPool>,
                           std::hash<std::uint32_t>, std::equal_to<std::uint32_t>,
                           Tracker::allocator<std::pair<
                               const std::uint32_t, Tracker::unique_ptr<FixedSizeRawMemoryPool>>>>;
    Pools pools;
    std::mutex mutex;
};

}  // namespace velour::core
