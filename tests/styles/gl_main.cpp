#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "AllocationCounter.h"
#include "TestSysroot.h"

namespace velour::test {

std::atomic<bool> g_countAllocations{false};
std::atomic<long> g_allocations{0};

}  // namespace velour::test

// Counts what the layer allocates while a test asks for it.
void* operator new(std::size_t size) {
    if (velour::test::g_countAllocations.load(std::memory_order_relaxed))
        velour::test::g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* memory = std::malloc(size ? size : 1)) return memory;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

int main(int argc, char** argv) {
    // The filter configuration and the effect property come from here.
    velour::test::TestSysroot sysroot;
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
