// A game context over a fake driver whose calls do nothing: what the
// micro-benchmarks of the game's thread measure against. Contexts are
// numbered from 0x100; binding one succeeds.
#pragma once

#include <cstdint>

#include "core/context.h"
#include "core/render-context.h"
#include "fake_driver.h"
#include "velour/entry_points.h"

namespace velour::bench {

inline EGLDisplay fakeDisplay() {
    return reinterpret_cast<EGLDisplay>(0x10);
}
inline EGLSurface fakeSurface() {
    return reinterpret_cast<EGLSurface>(0x20);
}

struct FakeGame {
    EGLContext context;

    // The driver table and the wrappers are set up before `stubDriver` may
    // replace driver slots, and the context made after it, in `mode`.
    template <typename StubDriver>
    FakeGame(unsigned mode, StubDriver stubDriver) {
        fake::reset();
        drv::initRealGL(nullptr, fake::getNextProc);
        gles::initFunctionTable();
        static std::uintptr_t next = 0x100;
        fake::setHandler("eglCreateContext", [](const fake::Call&) { return next++; });
        fake::setReturn("eglMakeCurrent", EGL_TRUE);
        stubDriver();
        core::context.gameConfig.runtimeMode = mode;
        context = core::egl::deferred::createContext(fakeDisplay(), nullptr, nullptr, nullptr);
    }
    ~FakeGame() {
        core::egl::deferred::makeCurrent(fakeDisplay(), EGL_NO_SURFACE, EGL_NO_SURFACE,
                                         EGL_NO_CONTEXT);
        core::egl::deferred::destroyContext(fakeDisplay(), context);
    }
    FakeGame(const FakeGame&) = delete;
    FakeGame& operator=(const FakeGame&) = delete;
};

}  // namespace velour::bench
