#pragma once

#include <EGL/egl.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/deferred_executor/Job.h"
#include "core/deferred_executor/MemTracker.h"
#include "velour/entry_points.h"

namespace velour::core {

// Job buffers and their hand-over from the recording thread (producer) to
// the worker (consumer).
class JobQueue {
    using Tracker = MemTracker<MemCategory::JobQueue>;

  public:
    struct JobBuffer {
        std::basic_string<char, std::char_traits<char>, Tracker::allocator<char>> name;
        std::uint32_t capacity = 0;
        Job* jobs = nullptr;
        // Raised by the producer only after a job's arguments are stored: a
        // hand-over from another thread may read it at any time.
        std::atomic<std::uint32_t> writeIndex{0};
        std::uint32_t submitIndex = 0;

        ~JobBuffer() { Tracker::deallocate(jobs); }
    };

    struct Workload {
        JobBuffer* buffer;
        std::uint32_t begin;
        std::uint32_t end;
        bool releaseBuffer;
        EGLDisplay display;  // non-null: swap after this workload
        EGLSurface surface;
    };

    struct Statistics {
        std::uint64_t jobsRecorded = 0;
        std::uint64_t handOvers = 0;
        std::uint64_t drains = 0;
        // Time the producer slept for a free buffer, and spent in drains.
        std::uint64_t bufferWaitNanoseconds = 0;
        std::uint64_t drainNanoseconds = 0;
        // Drains by the entry point whose call asked for them (gles::id);
        // the layer's own at DRAIN_BY_LAYER.
        std::uint32_t drainsBy[ENTRY_POINT_COUNT + 1] = {};
    };
    // Drains of the layer's own: frame pacing, a resize, the mode switch, shutdown.
    static constexpr std::uint32_t DRAIN_BY_LAYER = ENTRY_POINT_COUNT;

    JobQueue() = default;
    ~JobQueue();
    JobQueue(const JobQueue&) = delete;
    JobQueue& operator=(const JobQueue&) = delete;

    // Rebuilds the buffer set; capacity 0 keeps the job arrays. The queue must be idle.
    void resize(std::size_t count, std::uint32_t capacity);

    // Records one job. Inlined into every recording wrapper: a compare, the
    // stores and an increment, with a hand-over only when the buffer is full.
    template <typename Args>
    void record(JobAction action, const Args& args) {
        JobBuffer* buffer = current;
        std::uint32_t index = buffer->writeIndex.load(std::memory_order_relaxed);
        // A tail call, so that the usual path needs no stack frame.
        if (__builtin_expect(index == buffer->capacity, 0))
            return recordAfterHandOver(action, args);
        fill(buffer, index, action, args);
    }

    // Hands over what was recorded since the last hand-over. Returns whether
    // the producer had to sleep for a free buffer.
    bool submit(bool releaseBuffer, EGLDisplay display, EGLSurface surface);
    // Hands over and blocks until everything recorded so far has run; counted
    // under cause, the entry point whose call needs it.
    void flushAndWait(std::uint32_t cause = DRAIN_BY_LAYER);
    // Hands over a full buffer and returns the next, which may mean a sleep.
    __attribute__((noinline, cold)) JobBuffer* makeRoom();
    // record() when the buffer is full: hands it over, then records.
    template <typename Args>
    __attribute__((noinline, cold)) void recordAfterHandOver(JobAction action, Args args) {
        fill(makeRoom(), 0, action, args);
    }
    // Stores the job in its slot, then publishes it: a hand-over from another
    // thread may read writeIndex at any time.
    template <typename Args>
    static void fill(JobBuffer* buffer, std::uint32_t index, JobAction action, const Args& args) {
        Job& job = buffer->jobs[index];
        job.action = action;
        storeArgs(job, args);
        buffer->writeIndex.store(index + 1, std::memory_order_release);
    }
    // Consumer: runs one workload; false when the consumer shall end.
    bool processNext();
    // Ends the consumer; work still queued is not run.
    void requestStop();

    void setInlineDrain(bool on) { inlineDrain = on; }
    std::size_t bufferCount() const { return buffers.size(); }
    const JobBuffer* currentBuffer() const { return current; }
    // Counters of the producer's side, for diagnostics and tests.
    const Statistics& stats() const { return statistics; }

  private:
    template <typename T>
    using Deque = std::deque<T, Tracker::allocator<T>>;

    using BufferPtr = Tracker::unique_ptr<JobBuffer>;
    std::vector<BufferPtr, Tracker::allocator<BufferPtr>> buffers;
    Deque<JobBuffer*> freeBuffers;
    Deque<Workload> workloads;
    JobBuffer* current = nullptr;
    // Sizes of freeBuffers and workloads, changed under mutex and read
    // without it by the short spin before a sleep.
    std::atomic<std::uint32_t> freeCount{0};
    std::atomic<std::uint32_t> workloadCount{0};
    std::mutex mutex;
    std::condition_variable workAvailable;
    std::condition_variable bufferAvailable;
    bool stop = false;
    bool inlineDrain = false;
    Statistics statistics;
};

}  // namespace velour::core
