#include "core/deferred_executor/MemTracker.h"

namespace velour::core {

std::atomic<std::uint64_t> MemTrackerAll::total_memory_usage{0};
std::atomic<std::uint64_t> MemTrackerAll::peak_memory_usage{0};
std::atomic<std::uint32_t> MemTrackerAll::total_allocations{0};

void MemTrackerAll::add(std::uint64_t bytes) {
    std::uint64_t total = total_memory_usage += bytes;
    total_allocations++;
    std::uint64_t peak = peak_memory_usage.load();
    while (peak < total && !peak_memory_usage.compare_exchange_weak(peak, total)) {
    }
}

}  // namespace velour::core
