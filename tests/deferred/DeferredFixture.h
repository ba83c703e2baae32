#pragma once

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "core/context.h"
#include "core/deferred_executor/Executor.h"
#include "core/render-context.h"
#include "fake_driver.h"
#include "velour/entry_points.h"

namespace velour::test {

inline long threadId() {
    return static_cast<long>(syscall(SYS_gettid));
}

template <typename T = void>
T* pointerArg(const fake::Call& call, std::size_t index) {
    return reinterpret_cast<T*>(static_cast<std::uintptr_t>(call.args[index].bits));
}

// Has each driver call of the name keep, as it runs, the elements its pointer
// argument shows then: count(call) of them.
template <typename T>
void keepArray(const char* name, std::size_t pointer, std::vector<T>& into,
               std::function<std::size_t(const fake::Call&)> count) {
    fake::setHandler(name, [&into, pointer, count](const fake::Call& c) -> std::uint64_t {
        if (auto* p = pointerArg<const T>(c, pointer)) into.assign(p, p + count(c));
        return 0;
    });
}

// A game thread with a context of the layer current, over the fake driver,
// in the runtime mode given.
class Deferred : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Creates and binds a game context in the mode; returns its handle.
    EGLContext bind(unsigned mode);
    core::Executor& executor();
    std::uint64_t drains() { return executor().counters().drains; }
    void unbindAndDestroy();
    // The names of the driver calls so far, in order, with their threads.
    std::vector<std::pair<std::string, long>> driverCalls();
    // The same as "game <name>" or "worker <name>": made on the test's own
    // thread or on another.
    std::vector<std::string> trace();
    static EGLDisplay display() { return reinterpret_cast<EGLDisplay>(0x10); }
    static EGLSurface surface() { return reinterpret_cast<EGLSurface>(0x20); }

    EGLContext context = EGL_NO_CONTEXT;
    std::atomic<std::uint64_t> nextHandle{0x100};
    GameConfig saved{};
};

}  // namespace velour::test
