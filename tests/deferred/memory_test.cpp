// The hand-over and memory layer under deferral, without a driver.
#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <thread>
#include <vector>

#include "core/deferred_executor/FrameDataPool.h"
#include "core/deferred_executor/JobQueue.h"
#include "core/deferred_executor/RawMemoryPool.h"

using namespace velour::core;

namespace {

std::vector<int> g_ran;
void note(void* args) {
    g_ran.push_back(*static_cast<int*>(args));
}

TEST(JobQueue, FullBufferWaitsForTheConsumerAndComesBackEmpty) {
    g_ran.clear();
    JobQueue queue;
    queue.resize(1, 4);
    std::thread consumer([&] {
        while (queue.processNext()) {
        }
    });
    for (int i = 0; i < 4; ++i) queue.record(&note, i);
    const JobQueue::JobBuffer* first = queue.currentBuffer();
    queue.record(&note, 4);  // full: hands over, sleeps until the buffer is back
    EXPECT_EQ(queue.currentBuffer(), first);
    EXPECT_EQ(queue.currentBuffer()->writeIndex.load(), 1u);
    queue.flushAndWait();
    queue.requestStop();
    consumer.join();
    EXPECT_EQ(g_ran, (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(queue.stats().jobsRecorded, 6u) << "five calls and the drain's own job";
}

TEST(JobQueue, StopDropsQueuedWork) {
    g_ran.clear();
    JobQueue queue;
    queue.resize(1, 128);
    queue.record(&note, 1);
    queue.submit(false, nullptr, nullptr);
    queue.requestStop();
    EXPECT_FALSE(queue.processNext());
    EXPECT_TRUE(g_ran.empty());
}

TEST(FrameDataPool, GrowsToItsLimitAndOverflowsLargeRequests) {
    FrameDataPool pool(6, 0x10000, 0x400000);
    EXPECT_NE(pool.allocate(0x500000), nullptr);
    EXPECT_EQ(pool.allocate(64), pool.pool(0).memory.data()) << "small requests still fit";
    EXPECT_EQ(pool.writeOverflowBytes(), 0x500000u);
    pool.nextWriteFrame();
    pool.releaseReadFrame();
    EXPECT_TRUE(pool.pool(0).overflow.empty()) << "the overflow goes with its frame";
    // Every recycling grows a pool, up to the limit: ten of each pool of the
    // ring are more than it takes.
    for (int i = 0; i < 6 * 10; ++i) {
        pool.nextWriteFrame();
        pool.releaseReadFrame();
    }
    for (int i = 0; i < 6; ++i) EXPECT_EQ(pool.pool(i).memory.size(), 0x400000u) << i;
}

TEST(FrameDataPool, ProducerStaysAtMostFiveFramesAhead) {
    FrameDataPool pool(6, 64, 64);
    for (int i = 0; i < 5; ++i) pool.nextWriteFrame();
    std::atomic<bool> moved{false};
    std::thread producer([&] {
        pool.nextWriteFrame();
        moved = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(moved) << "the sixth frame change waits for the consumer";
    pool.releaseReadFrame();
    producer.join();
    EXPECT_TRUE(moved);
}

// Holds a category at the bytes it has now, as a device out of memory would.
template <MemCategory C>
struct NoMoreMemory {
    NoMoreMemory() { MemTracker<C>::limit = MemTracker<C>::memory_usage.load(); }
    ~NoMoreMemory() { MemTracker<C>::limit = ~std::uint64_t(0); }
};

TEST(OutOfMemory, FrameDataRefusesNewBlocksAndKeepsWhatItHas) {
    FrameDataPool pool(6, 0x10000, 0x400000);
    std::uint64_t held = MemTracker<MemCategory::FrameData>::memory_usage;
    NoMoreMemory<MemCategory::FrameData> full;
    EXPECT_THROW(pool.allocate(0x20000), std::bad_alloc);
    EXPECT_EQ(pool.writeOverflowBytes(), 0u);
    EXPECT_EQ(pool.allocate(64), pool.pool(0).memory.data()) << "the frame's own memory serves";
    pool.nextWriteFrame();
    pool.releaseReadFrame();
    EXPECT_EQ(pool.pool(0).memory.size(), 0x10000u) << "a pool that cannot grow keeps its size";
    EXPECT_EQ(MemTracker<MemCategory::FrameData>::memory_usage, held);
}

// Size classes of a kilobyte: 2047 and 1024 share the pool of 2048-byte
// blocks, 1023 is of the first; a freed block serves its class again.
TEST(OutOfMemory, RawMemoryPoolsAnswerNullAndReuseFreedBlocks) {
    RawMemoryPoolMap map;
    void* kept = map.allocate(100);
    void* large = map.allocate(2047);
    ASSERT_TRUE(kept && large);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(large) % 8, 0u);
    {
        NoMoreMemory<MemCategory::RawMemoryPool> full;
        EXPECT_EQ(map.allocate(5000), nullptr) << "a new size class";
        EXPECT_EQ(map.allocate(200), nullptr) << "a new chunk of a known class";
        FixedSizeRawMemoryPool::release(static_cast<char*>(kept) + 4);  // misaligned: ignored
        FixedSizeRawMemoryPool::release(nullptr);
        EXPECT_EQ(map.allocate(300), nullptr);
        FixedSizeRawMemoryPool::release(kept);
        FixedSizeRawMemoryPool::release(large);
        EXPECT_EQ(map.allocate(1024), large);
        EXPECT_EQ(map.allocate(1023), kept);
    }
    EXPECT_NE(map.allocate(5000), nullptr);
}

}  // namespace
