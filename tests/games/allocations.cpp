// The program's allocator, counting on a thread that asks for it. Kept in a
// file of its own so that no caller sees these bodies inlined.
#include <cstdlib>
#include <new>

namespace velour::test {
thread_local bool countAllocations = false;
thread_local int allocationCount = 0;
}  // namespace velour::test

void* operator new(std::size_t size) {
    if (velour::test::countAllocations) ++velour::test::allocationCount;
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
