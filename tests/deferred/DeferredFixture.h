#pragma once

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
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

// A game thread with a context of the layer current, over the fake driver,
// in the runtime mode given.
class Deferred : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Creates and binds a game context in the mode; returns its handle.
    EGLContext bind(unsigned mode);
    core::Executor& executor();
    void unbindAndDestroy();
    // The names of the driver calls so far, in order, with their threads.
    std::vector<std::pair<std::string, long>> driverCalls();
    static EGLDisplay display() { return reinterpret_cast<EGLDisplay>(0x10); }
    static EGLSurface surface() { return reinterpret_cast<EGLSurface>(0x20); }

    EGLContext context = EGL_NO_CONTEXT;
    std::atomic<std::uint64_t> nextHandle{0x100};
    GameConfig saved{};
};

}  // namespace velour::test
