#pragma once

namespace velour::test {

// Counts the allocations this thread makes while it is alive. Linking
// allocations.cpp replaces the program's operator new.
class AllocationCounter {
  public:
    AllocationCounter();
    ~AllocationCounter();
    int count() const;
};

}  // namespace velour::test
