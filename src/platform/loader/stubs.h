#pragma once

// What the stand-in libraries share with the loader's runtime library.

#include <atomic>
#include <cstddef>

#define VELOUR_LOADER_EXPORT __attribute__((visibility("default")))

extern "C" {
// What the process shall call for name: the layer's answer, given the system's
// function as the next one, or the system's function when no layer is loaded.
// Null when neither has the name. Starts the loader on first use.
VELOUR_LOADER_EXPORT void* velourLoaderResolve(const char* name);
}

namespace velour::loader {

// One slot per exported stub of a stand-in. The layer's answer for a name does
// not change after start, so each slot is resolved once. Has no constructor to
// run: a stub called from another library's static initialiser, before this
// library's own, finds its slots zeroed already.
template <std::size_t N>
class Slots {
  public:
    void* get(std::size_t index, const char* const* names) {
        void* fn = slots[index].load(std::memory_order_acquire);
        if (fn) return fn;
        fn = velourLoaderResolve(names[index]);
        slots[index].store(fn, std::memory_order_release);
        return fn;
    }

  private:
    std::atomic<void*> slots[N];
};

}  // namespace velour::loader
