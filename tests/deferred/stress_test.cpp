// Several game threads and contexts at once, fences crossing threads,
// contexts destroyed while bound elsewhere, and the switch to immediate mode
// in the middle. Meant to run under the thread sanitizer too.
#include <atomic>
#include <thread>
#include <vector>

#include "DeferredFixture.h"

using namespace velour;
using namespace velour::test;

namespace {

constexpr int THREADS = 3;
constexpr int FRAMES = 150;

EGLSurface surfaceOf(int thread) {
    return reinterpret_cast<EGLSurface>(0x1000 + thread);
}

// One frame of a small game: state, copies, a fence another thread waits on.
void frame(int i, std::atomic<GLsync>& published) {
    float values[16] = {float(i)};
    gl_deferred_glClear(0x4000);
    gl_deferred_glUniform4fv(1, 4, values);
    gl_deferred_glUniformMatrix4fv(2, 1, 0, values);
    GLuint texture;
    gl_deferred_glGenTextures(1, &texture);
    gl_deferred_glBindAttribLocation(1, 0, "position");
    published = gl_deferred_glFenceSync(0x9117, 0);
}

TEST_F(Deferred, ManyThreadsAndContexts) {
    core::context.gameConfig.runtimeMode = core::MODE_DEFERRED;
    std::atomic<GLsync> fences[THREADS] = {};
    std::atomic<int> ready{0};
    auto waitFor = [](std::atomic<int>& count) {
        while (count < THREADS) std::this_thread::yield();
    };

    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back([&, t] {
            EGLContext context =
                core::egl::deferred::createContext(display(), nullptr, EGL_NO_CONTEXT, nullptr);
            core::egl::deferred::makeCurrent(display(), surfaceOf(t), surfaceOf(t), context);
            ready++;
            waitFor(ready);
            for (int i = 0; i < FRAMES; ++i) {
                frame(i, fences[t]);
                // Wait on a neighbour's fence: its job may sit unsent in the
                // other thread's buffer.
                if (GLsync other = fences[(t + 1) % THREADS])
                    gl_deferred_glClientWaitSync(other, 0, 0);
                // The game's record is fixed after start-up; a wrapper's raise
                // of the flag is what reaches the swaps of every thread.
                if (t == 0 && i == FRAMES / 2) core::DeferredExecutor::raiseFallback();
                core::egl::deferred::swapBuffers(display(), surfaceOf(t));
            }
            core::egl::deferred::makeCurrent(display(), EGL_NO_SURFACE, EGL_NO_SURFACE,
                                             EGL_NO_CONTEXT);
            core::egl::deferred::destroyContext(display(), context);
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(core::runtimeMode(), core::MODE_IMMEDIATE) << "the fallback switched mid-run";
    EXPECT_EQ(fake::callsOf("glClear").size(), size_t(THREADS * FRAMES));
}

TEST_F(Deferred, ContextDestroyedWhileBoundOnAnotherThread) {
    core::context.gameConfig.runtimeMode = core::MODE_DEFERRED;
    for (int round = 0; round < 20; ++round) {
        std::atomic<EGLContext> shared{EGL_NO_CONTEXT};
        std::atomic<bool> done{false};
        std::thread owner([&] {
            EGLContext context =
                core::egl::deferred::createContext(display(), nullptr, EGL_NO_CONTEXT, nullptr);
            core::egl::deferred::makeCurrent(display(), surfaceOf(9), surfaceOf(9), context);
            for (int i = 0; i < 50; ++i) gl_deferred_glClear(i);
            shared = context;
            // The thread stops using GL; its record dangles after the destroy.
            while (!done) std::this_thread::yield();
        });
        while (shared.load() == EGL_NO_CONTEXT) std::this_thread::yield();
        core::egl::deferred::destroyContext(display(), shared);
        done = true;
        owner.join();
    }
    EXPECT_EQ(fake::callsOf("glClear").size(), 20u * 50u) << "the destroy replayed everything";
}

// A loading thread creates and destroys contexts, enough at a time to grow
// the map, while the game's thread binds and unbinds its own.
TEST_F(Deferred, UnbindWhileAnotherThreadCreatesAndDestroys) {
    constexpr int ROUNDS = 300;
    constexpr int BATCH = 40;
    core::context.gameConfig.runtimeMode = core::MODE_IMMEDIATE;
    std::atomic<bool> done{false};
    std::thread loader([&] {
        std::vector<EGLContext> made;
        while (!done) {
            for (int i = 0; i < BATCH; ++i)
                made.push_back(core::egl::deferred::createContext(display(), nullptr,
                                                                  EGL_NO_CONTEXT, nullptr));
            for (EGLContext c : made) core::egl::deferred::destroyContext(display(), c);
            made.clear();
        }
    });
    EGLContext own =
        core::egl::deferred::createContext(display(), nullptr, EGL_NO_CONTEXT, nullptr);
    for (int i = 0; i < ROUNDS; ++i) {
        ASSERT_EQ(core::egl::deferred::makeCurrent(display(), surfaceOf(1), surfaceOf(1), own),
                  EGL_TRUE);
        ASSERT_EQ(core::egl::deferred::makeCurrent(display(), EGL_NO_SURFACE, EGL_NO_SURFACE,
                                                   EGL_NO_CONTEXT),
                  EGL_TRUE);
        ASSERT_EQ(core::tlglobals.renderContext, nullptr);
    }
    done = true;
    loader.join();
    std::lock_guard<std::mutex> lock(core::context.renderContextMutex);
    ASSERT_EQ(core::context.renderContexts.size(), 1u);
    EXPECT_FALSE(core::context.renderContexts.at(own).current);
    core::context.renderContexts.clear();
}

}  // namespace
