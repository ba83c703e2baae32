#pragma once

// Times the producer's waits; read only on slow paths, never per call.

#include <chrono>
#include <cstdint>

namespace velour::core {

using WaitClock = std::chrono::steady_clock;

inline std::uint64_t nanosecondsSince(WaitClock::time_point start) {
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(WaitClock::now() - start).count());
}

}  // namespace velour::core
