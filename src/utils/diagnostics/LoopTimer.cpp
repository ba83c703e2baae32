#include "velour/utils/LoopTimer.h"

#include <algorithm>
#include <utility>

#include "velour/utils/Format.h"

namespace velour::utils {

LoopTimer::LoopTimer(std::string name) : _name(std::move(name)) {}

void LoopTimer::start() {
    _started = std::chrono::steady_clock::now();
}

void LoopTimer::stop() {
    auto elapsed = std::chrono::steady_clock::now() - _started;
    add(static_cast<unsigned long long>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count()));
}

void LoopTimer::add(unsigned long long ns) {
    _durations[_next] = ns;
    _next = (_next + 1) % RING_SIZE;
    if (_count < RING_SIZE) ++_count;
}

unsigned long long LoopTimer::mean() const {
    if (_count == 0) return 0;
    unsigned long long sum = 0;
    for (size_t i = 0; i < _count; ++i) sum += _durations[i];
    return sum / _count;
}

unsigned long long LoopTimer::min() const {
    if (_count == 0) return 0;
    return *std::min_element(_durations.begin(), _durations.begin() + _count);
}

unsigned long long LoopTimer::max() const {
    if (_count == 0) return 0;
    return *std::max_element(_durations.begin(), _durations.begin() + _count);
}

std::string LoopTimer::print(unsigned width) const {
    std::string text = _name;
    if (text.size() < width) text.append(width - text.size(), ' ');
    return text + " : " + ns2string(mean()) + ", min = " + ns2string(min()) +
           ", max = " + ns2string(max()) + ", count = " + std::to_string(_count);
}

}  // namespace velour::utils
