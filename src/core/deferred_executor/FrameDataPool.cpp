#include "core/deferred_executor/FrameDataPool.h"

#include <algorithm>
#include <new>

#include "core/deferred_executor/WaitClock.h"

namespace velour::core {

FrameDataPool::FrameDataPool(std::uint32_t count, std::uint32_t minSize, std::uint32_t maxSize)
    : pools(count) {
    for (Pool& pool : pools) {
        pool.minSize = minSize;
        pool.maxSize = maxSize;
        grow(pool);
    }
}

void* FrameDataPool::allocateOverflow(Pool& pool, std::uint32_t size) {
    // Throws std::bad_alloc with the pool as it was: the caller then runs the
    // call without a copy.
    pool.overflow.emplace_back(size);
    pool.overflowBytes += size;
    return pool.overflow.back().data();
}

void FrameDataPool::nextWriteFrame() {
    std::uint32_t frameBytes = writeOffset + pools[writeIndex].overflowBytes;
    highWater = std::max(highWater, frameBytes);
    bytesWritten += frameBytes;
    writeOffset = 0;
    allocationCount = 0;
    std::uint32_t next = (writeIndex + 1) % pools.size();
    std::unique_lock<std::mutex> lock(mutex);
    if (next == readIndex) {
        // The worker is a whole ring of frames behind: the render stall.
        auto start = WaitClock::now();
        indexChanged.wait(lock, [&] { return next != readIndex; });
        waitNanoseconds += nanosecondsSince(start);
    }
    writeIndex = next;
}

// Pools grow at every recycling, overflowed or not, up to their limit. A pool
// that cannot grow keeps its size: growth only saves overflow blocks.
void FrameDataPool::grow(Pool& pool) {
    try {
        if (pool.memory.empty())
            pool.memory.resize(pool.minSize);
        else if (pool.memory.size() < pool.maxSize)
            pool.memory.resize(std::min<std::size_t>(pool.memory.size() * 2, pool.maxSize));
    } catch (const std::bad_alloc&) {
    }
}

void FrameDataPool::releaseReadFrame() {
    Pool& pool = pools[readIndex];
    grow(pool);
    while (!pool.overflow.empty()) pool.overflow.pop_back();
    pool.overflowBytes = 0;
    std::lock_guard<std::mutex> lock(mutex);
    readIndex = (readIndex + 1) % pools.size();
    indexChanged.notify_all();
}

}  // namespace velour::core
