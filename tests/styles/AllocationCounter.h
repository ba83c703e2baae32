#pragma once

#include <atomic>

namespace velour::test {

// Set by the test program's operator new while g_countAllocations is on.
extern std::atomic<bool> g_countAllocations;
extern std::atomic<long> g_allocations;

// Counts the allocations made while alive.
class AllocationCounter {
  public:
    AllocationCounter() {
        g_allocations = 0;
        g_countAllocations = true;
    }
    ~AllocationCounter() { g_countAllocations = false; }
    long count() const { return g_allocations.load(); }
};

}  // namespace velour::test
