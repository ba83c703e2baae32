#include "core/deferred_executor/JobQueue.h"

#include <semaphore.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <new>
#include <thread>

#include "core/deferred_executor/WaitClock.h"
#include "velour/entry_points.h"

namespace velour::core {

namespace {

constexpr std::uint32_t WARM_UP_CAPACITY = 128;
constexpr int SPIN_TRIES = 10001;
// How long a thread that finds nothing to take spins before it sleeps. A
// busy worker that catches up with the game usually finds the next hand-over
// within this time; taking it without a futex wake-up saves the wake-up's
// latency on the thread that sets the frame rate.
constexpr std::chrono::microseconds SPIN_TIME{50};

inline void cpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
    asm volatile("yield");
#endif
}

// Spins until count is not 0 or the spin time is over.
void spinWhileZero(const std::atomic<std::uint32_t>& count) {
    auto end = WaitClock::now() + SPIN_TIME;
    do {
        for (int i = 0; i < 64; ++i) {
            if (count.load(std::memory_order_relaxed) != 0) return;
            cpuRelax();
        }
    } while (WaitClock::now() < end);
}

Job* allocateJobs(std::uint32_t count) {
    return static_cast<Job*>(MemTracker<MemCategory::JobQueue>::allocate(count * sizeof(Job)));
}

// The caller of a synchronous call sleeps on this; a job posts it. The short
// spin first saves a futex round trip for the usual quick answers.
struct CompletionSemaphore {
    std::atomic<int> count{0};
    sem_t semaphore;

    CompletionSemaphore() { sem_init(&semaphore, 0, 0); }
    ~CompletionSemaphore() { sem_destroy(&semaphore); }

    static void signal(void* args) {
        auto* self = *static_cast<CompletionSemaphore**>(args);
        if (self->count.fetch_add(1, std::memory_order_release) < 0) {
            while (sem_post(&self->semaphore) != 0) {
            }
        }
    }

    void wait() {
        for (int i = 0; i < SPIN_TRIES; ++i) {
            int value = count.load(std::memory_order_acquire);
            if (value > 0 &&
                count.compare_exchange_weak(value, value - 1, std::memory_order_acquire,
                                            std::memory_order_relaxed))
                return;
        }
        if (count.fetch_sub(1, std::memory_order_acquire) < 1) {
            while (sem_wait(&semaphore) != 0 && errno == EINTR) {
            }
        }
    }
};

}  // namespace

JobQueue::~JobQueue() = default;

void JobQueue::resize(std::size_t count, std::uint32_t capacity) {
    std::lock_guard<std::mutex> lock(mutex);
    while (buffers.size() > count) buffers.pop_back();
    while (buffers.size() < count) buffers.emplace_back();
    Deque<JobBuffer*> oldFree;
    oldFree.swap(freeBuffers);
    for (std::size_t i = 0; i < count; ++i) {
        BufferPtr& buffer = buffers[i];
        if (!buffer) {
            buffer.reset(Tracker::create<JobBuffer>());
            char name[32];
            std::snprintf(name, sizeof(name), "buffer[%zu]", i);
            buffer->name = name;
            buffer->capacity = WARM_UP_CAPACITY;
            buffer->jobs = allocateJobs(WARM_UP_CAPACITY);
        }
        if (capacity != 0) {
            Tracker::deallocate(buffer->jobs);
            buffer->jobs = allocateJobs(capacity);
            buffer->capacity = capacity;
        }
        buffer->writeIndex.store(0, std::memory_order_relaxed);
        buffer->submitIndex = 0;
        if (i == 0)
            current = buffer.get();
        else
            freeBuffers.push_back(buffer.get());
    }
    freeCount.store(static_cast<std::uint32_t>(freeBuffers.size()), std::memory_order_relaxed);
}

bool JobQueue::submit(bool releaseBuffer, EGLDisplay display, EGLSurface surface) {
    std::unique_lock<std::mutex> lock(mutex);
    std::uint32_t begin = current->submitIndex;
    std::uint32_t end = current->writeIndex.load(std::memory_order_acquire);
    // A hand-over never throws: callers have recorded jobs already, which a
    // retry would repeat. Out of memory, wait for the worker to free some.
    for (;;) {
        try {
            workloads.push_back(Workload{current, begin, end, releaseBuffer, display, surface});
            break;
        } catch (const std::bad_alloc&) {
            lock.unlock();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            lock.lock();
        }
    }
    current->submitIndex = end;
    workloadCount.fetch_add(1, std::memory_order_relaxed);
    // Counted here rather than per call, to keep recording short.
    statistics.jobsRecorded += end - begin;
    statistics.handOvers++;
    workAvailable.notify_one();
    if (inlineDrain) {
        lock.unlock();
        processNext();
        lock.lock();
    }
    bool waited = false;
    if (releaseBuffer) {
        if (freeBuffers.empty()) {
            lock.unlock();
            spinWhileZero(freeCount);
            lock.lock();
        }
        if (freeBuffers.empty()) {
            waited = true;
            auto start = WaitClock::now();
            while (freeBuffers.empty()) bufferAvailable.wait(lock);
            statistics.bufferWaitNanoseconds += nanosecondsSince(start);
        }
        current = freeBuffers.front();
        freeBuffers.pop_front();
        freeCount.fetch_sub(1, std::memory_order_relaxed);
    }
    return waited;
}

JobQueue::JobBuffer* JobQueue::makeRoom() {
    submit(true, nullptr, nullptr);
    return current;
}

void JobQueue::flushAndWait(std::uint32_t cause) {
    auto start = WaitClock::now();
    CompletionSemaphore done;
    CompletionSemaphore* self = &done;
    record(&CompletionSemaphore::signal, self);
    statistics.drains++;
    statistics.drainsBy[cause <= DRAIN_BY_LAYER ? cause : DRAIN_BY_LAYER]++;
    submit(false, nullptr, nullptr);
    done.wait();
    statistics.drainNanoseconds += nanosecondsSince(start);
}

bool JobQueue::processNext() {
    std::unique_lock<std::mutex> lock(mutex);
    if (workloads.empty() && !stop) {
        lock.unlock();
        spinWhileZero(workloadCount);
        lock.lock();
    }
    while (workloads.empty() && !stop) workAvailable.wait(lock);
    if (stop) return false;
    Workload work = workloads.front();
    workloads.pop_front();
    workloadCount.fetch_sub(1, std::memory_order_relaxed);
    lock.unlock();

    Job* jobs = work.buffer->jobs;
    for (std::uint32_t i = work.begin; i < work.end; ++i) jobs[i].action(jobs[i].args);

    if (work.releaseBuffer) {
        work.buffer->writeIndex.store(0, std::memory_order_relaxed);
        work.buffer->submitIndex = 0;
        lock.lock();
        freeBuffers.push_back(work.buffer);
        freeCount.fetch_add(1, std::memory_order_relaxed);
        bufferAvailable.notify_one();
        lock.unlock();
    }
    if (work.display) hijack::eglSwapBuffers(work.display, work.surface);
    return true;
}

void JobQueue::requestStop() {
    {
        std::lock_guard<std::mutex> lock(mutex);
        stop = true;
    }
    workAvailable.notify_all();
}

}  // namespace velour::core
