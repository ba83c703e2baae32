#include "core/deferred_executor/RawMemoryPool.h"

#include <new>

namespace velour::core {

FixedSizeRawMemoryPool::FixedSizeRawMemoryPool(std::uint32_t blockSize)
    : size(blockSize), stride((blockSize + HEADER + 7) & ~7u) {}

FixedSizeRawMemoryPool::~FixedSizeRawMemoryPool() {
    while (chunks) {
        Chunk* next = chunks->next;
        Tracker::deallocate(chunks->memory);
        Tracker::destroy(chunks);
        chunks = next;
    }
}

void* FixedSizeRawMemoryPool::allocate() {
    std::lock_guard<std::mutex> lock(mutex);
    if (!freeBlocks) {
        Chunk* chunk = Tracker::create<Chunk>();
        if (!chunk) return nullptr;
        chunk->blocks = nextChunkBlocks;
        chunk->memory =
            static_cast<unsigned char*>(Tracker::allocate(std::size_t(stride) * chunk->blocks));
        if (!chunk->memory) {
            Tracker::destroy(chunk);
            return nullptr;
        }
        nextChunkBlocks *= 2;
        for (std::uint32_t i = 0; i < chunk->blocks; ++i) {
            auto* block = reinterpret_cast<Block*>(chunk->memory + std::size_t(i) * stride);
            *block = Block{this, nullptr, freeBlocks, nullptr};
            freeBlocks = block;
        }
        chunk->next = chunks;
        chunks = chunk;
    }
    Block* block = freeBlocks;
    freeBlocks = block->next;
    block->prev = nullptr;
    block->next = usedBlocks;
    if (usedBlocks) usedBlocks->prev = block;
    usedBlocks = block;
    usedCount++;
    return reinterpret_cast<unsigned char*>(block) + HEADER;
}

void FixedSizeRawMemoryPool::release(void* payload) {
    if (!payload || reinterpret_cast<std::uintptr_t>(payload) % 8 != 0) return;
    auto* block = reinterpret_cast<Block*>(static_cast<unsigned char*>(payload) - HEADER);
    FixedSizeRawMemoryPool* owner = block->owner;
    if (!owner) return;
    std::lock_guard<std::mutex> lock(owner->mutex);
    if (owner->usedCount == 0) return;
    owner->usedCount--;
    if (block->prev)
        block->prev->next = block->next;
    else
        owner->usedBlocks = block->next;
    if (block->next) block->next->prev = block->prev;
    block->next = owner->freeBlocks;
    block->prev = nullptr;
    owner->freeBlocks = block;
}

void* RawMemoryPoolMap::allocate(std::uint32_t size) {
    std::uint32_t sizeClass = size / granularity;
    FixedSizeRawMemoryPool* pool;
    // Out of memory, the caller gets null and takes the driver's own path.
    try {
        std::lock_guard<std::mutex> lock(mutex);
        auto& slot = pools[sizeClass];
        if (!slot)
            slot.reset(Tracker::create<FixedSizeRawMemoryPool>((sizeClass + 1) * granularity));
        pool = slot.get();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    return pool ? pool->allocate() : nullptr;
}

}  // namespace velour::core
