// The game thread's cost of recording, in ns per call: a class-1 call, a
// class-2 call with a copy, and a draw. The driver does nothing, so the
// worker keeps up and the numbers are the producer's own.
#include <benchmark/benchmark.h>

#include "core/deferred_executor/Executor.h"
#include "fake_game.h"
#include "velour/utils/Configuration.h"

using namespace velour;

namespace {

// A game context in deferred mode, bound, past warm-up.
struct Game : bench::FakeGame {
    Game()
        : FakeGame(core::MODE_DEFERRED, [] {
              hijack::glBlendFunc = [](GLenum, GLenum) {};
              hijack::glUniform4fv = [](GLint, GLsizei, const GLfloat*) {};
              hijack::glDrawArrays = [](GLenum, GLint, GLsizei) {};
              hijack::glFlush = [] {};
              hijack::glFinish = [] {};
              hijack::eglSwapBuffers = [](EGLDisplay, EGLSurface) -> EGLBoolean {
                  return EGL_TRUE;
              };
          }) {
        core::egl::deferred::makeCurrent(bench::fakeDisplay(), bench::fakeSurface(),
                                         bench::fakeSurface(), context);
        // Past warm-up, with production buffers: what a game runs with.
        utils::Configuration::global().sets("orlo.de.job_queue_count", "2");
        utils::Configuration::global().sets("de.job_queue_count", "2");
        auto* executor = core::tlglobals.executor;
        for (int frame = 0; frame <= 100; ++frame) {
            for (int draw = 0; draw < 50; ++draw) executor->countDraw();
            core::egl::deferred::swapBuffers(bench::fakeDisplay(), bench::fakeSurface());
        }
    }
    // Frames end now and then, so that frame data is recycled as in a game.
    static void frameEvery(benchmark::State&, int calls) {
        static int n = 0;
        if (++n % calls == 0)
            core::egl::deferred::swapBuffers(bench::fakeDisplay(), bench::fakeSurface());
    }
};

void classOne(benchmark::State& state) {
    Game game;
    for (auto _ : state) {
        gl_deferred_glBlendFunc(1, 0);
        Game::frameEvery(state, 2000);
    }
    gl_deferred_glFinish();
}
BENCHMARK(classOne);

void classTwo(benchmark::State& state) {
    Game game;
    float values[16] = {};
    for (auto _ : state) {
        gl_deferred_glUniform4fv(3, 4, values);
        Game::frameEvery(state, 2000);
    }
    gl_deferred_glFinish();
}
BENCHMARK(classTwo);

// Until the client-data handler exists a draw takes the record-and-wait
// path: this is a full drain of the pipeline per draw.
void draw(benchmark::State& state) {
    Game game;
    for (auto _ : state) {
        gl_deferred_glDrawArrays(4, 0, 3);
        Game::frameEvery(state, 2000);
    }
    gl_deferred_glFinish();
}
BENCHMARK(draw);

}  // namespace
