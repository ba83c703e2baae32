// The game thread's cost of one bind and unbind of its context, in the
// deferred mode (a round trip to the worker each way) and in the immediate
// mode (no worker: the map look-ups and the driver stub alone), over a driver
// whose EGL calls do nothing.
#include <benchmark/benchmark.h>

#include "TestSysroot.h"
#include "core/context.h"
#include "core/render-context.h"
#include "fake_driver.h"
#include "velour/entry_points.h"

using namespace velour;

namespace {

const EGLDisplay display = reinterpret_cast<EGLDisplay>(0x10);
const EGLSurface surface = reinterpret_cast<EGLSurface>(0x20);

void bindAndUnbind(benchmark::State& state, unsigned mode) {
    fake::reset();
    drv::initRealGL(nullptr, fake::getNextProc);
    gles::initFunctionTable();
    static std::uintptr_t next = 0x100;
    fake::setHandler("eglCreateContext", [](const fake::Call&) { return next++; });
    hijack::eglMakeCurrent = [](EGLDisplay, EGLSurface, EGLSurface, EGLContext) -> EGLBoolean {
        return EGL_TRUE;
    };
    hijack::eglGetCurrentContext = []() -> EGLContext { return EGL_NO_CONTEXT; };
    core::context.gameConfig.runtimeMode = mode;
    EGLContext context = core::egl::deferred::createContext(display, nullptr, nullptr, nullptr);
    for (auto _ : state) {
        core::egl::deferred::makeCurrent(display, surface, surface, context);
        core::egl::deferred::makeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    }
    core::egl::deferred::destroyContext(display, context);
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

int main(int argc, char** argv) {
    velour::test::TestSysroot sysroot;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
