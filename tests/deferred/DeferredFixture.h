#pragma once

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
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

using Bits = std::vector<std::uint64_t>;
using Names = std::vector<std::string>;
// Driver calls as "game" or "worker", with some of their arguments.
using Seen = std::vector<std::pair<std::string, Bits>>;

template <typename T>
std::uint64_t bitsOf(T* p) {
    return reinterpret_cast<std::uintptr_t>(p);
}

template <typename T = void>
T* pointerArg(const fake::Call& call, std::size_t index) {
    return reinterpret_cast<T*>(static_cast<std::uintptr_t>(call.args[index].bits));
}

// What a getter of the layer writes through its last argument; all bits set
// if it writes nothing.
template <typename T = GLint, typename Get, typename... A>
T fetch(Get getter, A... args) {
    T value;
    std::memset(&value, 0xFF, sizeof value);
    getter(args..., &value);
    return value;
}

// Has each driver call of the name write value(call) through its argument.
template <typename T, typename F>
void writeBack(const char* name, std::size_t pointer, F value) {
    fake::setHandler(name, [pointer, value](const fake::Call& c) -> std::uint64_t {
        *pointerArg<T>(c, pointer) = value(c);
        return 0;
    });
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
    // The driver calls so far as "game <name>" or "worker <name>": made on the
    // test's own thread or on another.
    static Names trace();
    // The arguments of the given indices of each call of the name, with its thread.
    static Seen callsWith(const char* name, std::initializer_list<std::size_t> indices);
    // Argument `index` of each call of the name.
    static Bits argOf(const char* name, std::size_t index);
    static std::size_t count(const char* name) { return fake::callsOf(name).size(); }
    static EGLDisplay display() { return reinterpret_cast<EGLDisplay>(0x10); }
    static EGLSurface surface() { return reinterpret_cast<EGLSurface>(0x20); }

    EGLContext context = EGL_NO_CONTEXT;
    std::atomic<std::uint64_t> nextHandle{0x100};
    GameConfig saved{};
};

// The same with a deferred context bound, and the driver calls so far forgotten.
class Bound : public Deferred {
  protected:
    void SetUp() override {
        Deferred::SetUp();
        bind(core::MODE_DEFERRED);
        fake::clearCalls();
    }
};

}  // namespace velour::test
