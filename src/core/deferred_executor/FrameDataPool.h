#pragma once

#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <vector>

#include "core/deferred_executor/MemTracker.h"

namespace velour::core {

// A ring of per-frame bump allocators for the copies of what the game passed
// by pointer. A frame's pool is recycled once the worker has replayed the
// frame, so the producer runs at most (pools - 1) frame changes ahead.
class FrameDataPool {
    using Tracker = MemTracker<MemCategory::FrameData>;
    using Bytes = std::vector<unsigned char, Tracker::allocator<unsigned char>>;

  public:
    struct Pool {
        Bytes memory;
        std::vector<Bytes, Tracker::allocator<Bytes>> overflow;
        std::uint32_t minSize = 0;
        std::uint32_t maxSize = 0;
        std::uint32_t overflowBytes = 0;
    };

    FrameDataPool(std::uint32_t count, std::uint32_t minSize, std::uint32_t maxSize);

    // Producer: 8-aligned memory valid until the frame's recycling. The caller
    // rounds size up to a multiple of 8.
    void* allocate(std::uint32_t size) {
        allocationCount++;
        Pool& pool = pools[writeIndex];
        if (pool.memory.size() >= std::size_t(writeOffset) + size) {
            void* at = pool.memory.data() + writeOffset;
            writeOffset += size;
            return at;
        }
        return allocateOverflow(pool, size);
    }

    // Producer: moves on to the next pool; sleeps while the ring is full.
    void nextWriteFrame();
    // Consumer: recycles the oldest pool.
    void releaseReadFrame();

    std::uint32_t writeOverflowBytes() const { return pools[writeIndex].overflowBytes; }
    const Pool& pool(std::size_t index) const { return pools[index]; }
    std::uint32_t highWaterMark() const { return highWater; }
    // Producer's totals over finished frames: bytes copied in, time spent
    // waiting for a free frame.
    std::uint64_t totalBytesWritten() const { return bytesWritten; }
    std::uint64_t totalWaitNanoseconds() const { return waitNanoseconds; }

  private:
    void* allocateOverflow(Pool& pool, std::uint32_t size);
    static void grow(Pool& pool);

    std::vector<Pool, Tracker::allocator<Pool>> pools;
    std::uint32_t writeIndex = 0;
    std::uint32_t readIndex = 0;
    std::uint32_t writeOffset = 0;
    std::uint32_t allocationCount = 0;
    std::uint64_t bytesWritten = 0;
    std::uint64_t waitNanoseconds = 0;
    std::uint32_t highWater = 0;
    std::mutex mutex;
    std::condition_variable indexChanged;
};

// Copies count values at data into frame data. Null stays null; a count below
// 1 gives a non-null pointer to a static zero so that the driver still sees a
// pointer.
template <typename T>
struct NullT {
    static T value;
};
template <typename T>
T NullT<T>::value{};

namespace detail {
template <typename T>
const T* cachePointerParam(const T* data, int count, FrameDataPool& pool) {
    if (!data) return nullptr;
    if (count < 1) return &NullT<T>::value;
    std::uint32_t bytes = (static_cast<std::uint32_t>(count) * sizeof(T) + 7) & ~7u;
    void* copy = pool.allocate(bytes);
    std::memcpy(copy, data, static_cast<std::size_t>(count) * sizeof(T));
    return static_cast<const T*>(copy);
}
}  // namespace detail

}  // namespace velour::core
