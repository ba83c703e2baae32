// The hand-over and memory layer under deferral, without a driver.
#include <gtest/gtest.h>

#include <atomic>
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

TEST(JobQueue, InlineDrainRunsOnTheSubmitterAndDrainsNeverBlock) {
    g_ran.clear();
    JobQueue queue;
    queue.resize(1, 128);
    queue.setInlineDrain(true);
    queue.record(&note, 1);
    queue.record(&note, 2);
    EXPECT_TRUE(g_ran.empty()) << "recording runs nothing";
    queue.submit(false, nullptr, nullptr);
    EXPECT_EQ(g_ran, (std::vector<int>{1, 2}));
    queue.submit(false, nullptr, nullptr);  // an empty workload runs nothing
    queue.record(&note, 3);
    queue.flushAndWait();
    EXPECT_EQ(g_ran, (std::vector<int>{1, 2, 3}));
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

TEST(JobQueue, ResizeKeepsTheFirstBufferCurrent) {
    JobQueue queue;
    queue.resize(1, 128);
    const JobQueue::JobBuffer* first = queue.currentBuffer();
    queue.resize(3, 16384);
    EXPECT_EQ(queue.currentBuffer(), first);
    EXPECT_EQ(first->name, "buffer[0]");
    EXPECT_EQ(first->capacity, 16384u);
    EXPECT_EQ(queue.bufferCount(), 3u);
    queue.resize(1, 0);
    EXPECT_EQ(queue.bufferCount(), 1u);
    EXPECT_EQ(queue.currentBuffer()->capacity, 16384u) << "capacity 0 keeps the arrays";
}

TEST(FrameDataPool, GrowsToItsLimitAndOverflowsLargeRequests) {
    FrameDataPool pool(6, 0x10000, 0x400000);
    EXPECT_EQ(pool.pool(0).memory.size(), 0x10000u);
    void* big = pool.allocate(0x500000);
    void* small = pool.allocate(64);
    EXPECT_EQ(pool.pool(0).overflow.size(), 1u);
    EXPECT_EQ(pool.writeOverflowBytes(), 0x500000u);
    EXPECT_EQ(small, pool.pool(0).memory.data()) << "small requests still fit in the pool";
    EXPECT_NE(big, nullptr);
    // Each pool doubles at each of its recyclings, overflowed or not: six
    // recyclings of every pool of the ring.
    for (int i = 0; i < 6 * 6; ++i) {
        pool.nextWriteFrame();
        pool.releaseReadFrame();
        if (i == 0) {
            EXPECT_TRUE(pool.pool(0).overflow.empty());
        }
    }
    EXPECT_EQ(pool.pool(0).memory.size(), 0x400000u);
    EXPECT_EQ(pool.pool(5).memory.size(), 0x400000u);
    for (int i = 0; i < 6; ++i) {
        pool.nextWriteFrame();
        pool.releaseReadFrame();
    }
    EXPECT_EQ(pool.pool(0).memory.size(), 0x400000u) << "no growth past the limit";
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

TEST(RawMemoryPoolMap, SizeClassesOfOneKilobyte) {
    RawMemoryPoolMap map;
    void* a = map.allocate(2047);
    void* b = map.allocate(1024);
    void* c = map.allocate(1023);
    ASSERT_TRUE(a && b && c);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(a) % 8, 0u);
    // 2047 and 1024 share the pool of 2048-byte blocks; 1023 has its own.
    FixedSizeRawMemoryPool::release(a);
    void* again = map.allocate(1500);
    EXPECT_EQ(again, a);
    FixedSizeRawMemoryPool::release(static_cast<char*>(c) + 4);  // misaligned: ignored
    FixedSizeRawMemoryPool::release(nullptr);
    void* d = map.allocate(10);
    EXPECT_NE(d, c);
}

}  // namespace
