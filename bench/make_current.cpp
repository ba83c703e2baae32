// The game thread's cost of one bind and unbind of its context, in the
// deferred mode (a round trip to the worker each way) and in the immediate
// mode (no worker: the map look-ups and the driver stub alone), over a driver
// whose EGL calls do nothing.
#include <benchmark/benchmark.h>

#include "fake_game.h"

using namespace velour;

namespace {

void bindAndUnbind(benchmark::State& state, unsigned mode) {
    bench::FakeGame game(mode, [] {
        // Straight to a stub, past the fake driver's call log.
        hijack::eglMakeCurrent = [](EGLDisplay, EGLSurface, EGLSurface, EGLContext) -> EGLBoolean {
            return EGL_TRUE;
        };
        hijack::eglGetCurrentContext = []() -> EGLContext { return EGL_NO_CONTEXT; };
    });
    const EGLDisplay display = bench::fakeDisplay();
    const EGLSurface surface = bench::fakeSurface();
    for (auto _ : state) {
        core::egl::deferred::makeCurrent(display, surface, surface, game.context);
        core::egl::deferred::makeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    }
}

void deferredMode(benchmark::State& state) {
    bindAndUnbind(state, core::MODE_DEFERRED);
}
BENCHMARK(deferredMode);

void immediateMode(benchmark::State& state) {
    bindAndUnbind(state, core::MODE_IMMEDIATE);
}
BENCHMARK(immediateMode);

}  // namespace
