#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <string>

namespace velour::utils {

// Times a repeated piece of work and keeps the most recent durations, so that
// print shows how the loop behaves now rather than since start.
class LoopTimer {
  public:
    static constexpr size_t RING_SIZE = 64;

    explicit LoopTimer(std::string name);

    void start();
    // Records the time since start().
    void stop();
    void add(unsigned long long ns);

    size_t count() const { return _count; }
    unsigned long long mean() const;
    unsigned long long min() const;
    unsigned long long max() const;

    // "<name, left-aligned in width> : <mean>, min = <min>, max = <max>, count = <n>"
    std::string print(unsigned width) const;

  private:
    std::string _name;
    std::chrono::steady_clock::time_point _started{};
    std::array<unsigned long long, RING_SIZE> _durations{};
    size_t _next = 0;
    size_t _count = 0;
};

}  // namespace velour::utils
