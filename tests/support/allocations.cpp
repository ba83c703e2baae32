// The program's allocator, counting the allocations of one thread while asked.
// Kept in a file of its own so that no caller sees these bodies inlined. Plain
// atomics rather than thread-locals: the sanitizer builds reach operator new
// before a thread-local of the test program is ready.
#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "AllocationCounter.h"

namespace velour::test {

namespace {
std::atomic<bool> counting{false};
std::atomic<pthread_t> countingThread{};
std::atomic<int> allocations{0};
}  // namespace

AllocationCounter::AllocationCounter() {
    allocations = 0;
    countingThread = pthread_self();
    counting = true;
}

AllocationCounter::~AllocationCounter() {
    counting = false;
}

int AllocationCounter::count() const {
    return allocations;
}

}  // namespace velour::test

void* operator new(std::size_t size) {
    using namespace velour::test;
    if (counting.load(std::memory_order_relaxed) &&
        pthread_equal(countingThread.load(std::memory_order_relaxed), pthread_self()))
        allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
