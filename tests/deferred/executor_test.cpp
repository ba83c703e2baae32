// The deferral protocol as the driver sees it: which thread makes which call,
// and in what order.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "DeferredFixture.h"
#include "platform/properties.h"
#include "velour/utils/Configuration.h"

using namespace velour;
using velour::test::Deferred;
using velour::test::threadId;

namespace {

size_t count(const std::vector<std::pair<std::string, long>>& calls, const char* name) {
    size_t n = 0;
    for (auto& c : calls) n += c.first == name;
    return n;
}

TEST_F(Deferred, RecordedCallsReplayInOrderOnTheWorker) {
    bind(core::MODE_DEFERRED);
    fake::reset();
    fake::setReturn("eglSwapBuffers", EGL_TRUE);
    long game = threadId();

    gl_deferred_glClearColor(0.f, 0.5f, 1.f, 1.f);
    gl_deferred_glClear(0x4000);
    gl_deferred_glBlendFunc(1, 0);
    EXPECT_TRUE(fake::calls().empty()) << "recording calls nothing";

    fake::setReturn("glGetError", 0x502);
    EXPECT_EQ(gl_deferred_glGetError(), 0x502u) << "a drain, then the worker's answer";
    auto calls = driverCalls();
    ASSERT_EQ(calls.size(), 4u);
    EXPECT_EQ(calls[0].first, "glClearColor");
    EXPECT_EQ(calls[1].first, "glClear");
    EXPECT_EQ(calls[2].first, "glBlendFunc");
    EXPECT_EQ(calls[3].first, "glGetError");
    for (auto& c : calls) EXPECT_NE(c.second, game) << c.first;

    // Immediate calls run on the game's thread, with no drain.
    size_t drains = executor().counters().drains;
    gl_deferred_glGetUniformLocation(1, "u");
    EXPECT_EQ(fake::calls().back().thread, game);
    EXPECT_EQ(executor().counters().drains, drains);
    // So does link status, the one answer of glGetProgramiv that needs no drain.
    GLint status = 0;
    gl_deferred_glGetProgramiv(1, 35714, &status);
    EXPECT_EQ(fake::calls().back().thread, game);
    EXPECT_EQ(executor().counters().drains, drains);
}

TEST_F(Deferred, RecordedPointerDataIsACopy) {
    bind(core::MODE_DEFERRED);
    std::vector<float> seen;
    fake::setHandler("glUniform4fv", [&](const fake::Call& c) {
        auto* v = reinterpret_cast<const float*>(static_cast<std::uintptr_t>(c.args[2].bits));
        // count vec4s; a count of 0 leaves nothing to read.
        if (c.args[1].bits > 0) seen.assign(v, v + 4 * c.args[1].bits);
        return 0;
    });
    float values[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    gl_deferred_glUniform4fv(3, 2, values);
    std::memset(values, 0, sizeof(values));  // the game reuses its memory at once
    gl_deferred_glFinish();
    EXPECT_EQ(seen, (std::vector<float>{1, 2, 3, 4, 5, 6, 7, 8}));

    // Count 0 with a pointer: the driver still gets a pointer; null stays null.
    gl_deferred_glUniform4fv(3, 0, values);
    gl_deferred_glDeleteTextures(0, nullptr);
    gl_deferred_glBindAttribLocation(1, 0, "");
    gl_deferred_glFinish();
    auto uniform = fake::callsOf("glUniform4fv");
    EXPECT_NE(uniform.back().args[2].bits, 0u);
    EXPECT_NE(uniform.back().args[2].bits, reinterpret_cast<std::uintptr_t>(values));
    EXPECT_EQ(fake::callsOf("glDeleteTextures").back().args[1].bits, 0u);
    EXPECT_EQ(fake::callsOf("glBindAttribLocation").back().args[2].bits, 0u)
        << "an empty name reaches the driver as null";
}

TEST_F(Deferred, CountersTellCopiedBytesAndTimeInDrains) {
    bind(core::MODE_DEFERRED);
    fake::setHandler("glGetError", [](const fake::Call&) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return 0;
    });
    auto before = executor().counters();
    const float values[8] = {};
    gl_deferred_glUniform4fv(0, 2, values);
    gl_deferred_glUniform4fv(0, 1, values);
    core::egl::deferred::swapBuffers(display(), surface());
    gl_deferred_glGetError();
    auto after = executor().counters();
    EXPECT_EQ(after.copiedBytes - before.copiedBytes, 48u) << "counted as each frame ends";
    EXPECT_EQ(after.drains - before.drains, 1u);
    EXPECT_GE(after.drainNanoseconds - before.drainNanoseconds, 5000000u);
}

TEST_F(Deferred, SwapEndsTheFrameOnTheWorkerAndLeavesWarmUpAfterHundredFrames) {
    bind(core::MODE_DEFERRED);
    utils::Configuration::global().sets("orlo.de.job_queue_count", "3");
    utils::Configuration::global().sets("de.job_queue_count", "3");
    auto& ex = executor();
    for (int frame = 0; frame < 101; ++frame) {
        // What a counted draw does around its job.
        for (int draw = 0; draw < 60; ++draw) {
            ex.submitEarly();
            gl_deferred_glFlush();
            ex.countDraw();
        }
        EXPECT_EQ(core::egl::deferred::swapBuffers(display(), surface()), EGL_TRUE);
    }
    gl_deferred_glFinish();
    auto calls = driverCalls();
    EXPECT_EQ(count(calls, "eglSwapBuffers"), 101u);
    EXPECT_EQ(ex.queue.bufferCount(), 3u);
    EXPECT_EQ(ex.counters().deferredState, 2) << "the worker published its thread";
    char value[PROP_VALUE_MAX] = {};
    __system_property_get("vendor.nimbo.orlo.thread.render.id", value);
    EXPECT_EQ(std::string(value), std::to_string(threadId()));
    // 60 draws a frame with early submission every 20th: three hand-overs for
    // the draws and one for the swap, per frame.
    EXPECT_GE(ex.counters().handOvers, 101u * 4);
}

TEST_F(Deferred, FewDrawsKeepWarmUp) {
    bind(core::MODE_DEFERRED);
    utils::Configuration::global().sets("orlo.de.job_queue_count", "4");
    for (int frame = 0; frame < 120; ++frame) {
        for (int draw = 0; draw < 49; ++draw) executor().countDraw();
        core::egl::deferred::swapBuffers(display(), surface());
    }
    EXPECT_EQ(executor().queue.bufferCount(), 1u);
    EXPECT_EQ(executor().counters().deferredState, 0);
}

TEST_F(Deferred, FallbackSwitchesToImmediateModeAtTheSwap) {
    bind(core::MODE_DEFERRED);
    core::context.gameConfig.fallback = 1;
    long game = threadId();
    gl_deferred_glBlendFunc(1, 0);  // raises the flag on its way
    EXPECT_TRUE(core::DeferredExecutor::_fallbackImmediateMode);
    fake::reset();
    fake::setReturn("eglSwapBuffers", 7);
    fake::setReturn("eglMakeCurrent", EGL_TRUE);
    EXPECT_EQ(core::egl::deferred::swapBuffers(display(), surface()), 7u)
        << "after the switch the driver's own answer comes back";
    EXPECT_EQ(core::context.gameConfig.runtimeMode, core::MODE_IMMEDIATE);

    auto calls = fake::calls();
    ASSERT_GE(calls.size(), 4u);
    EXPECT_STREQ(calls[0].name, "glBlendFunc");
    EXPECT_NE(calls[0].thread, game);
    EXPECT_STREQ(calls[1].name, "eglMakeCurrent") << "the worker lets go of the context";
    EXPECT_NE(calls[1].thread, game);
    EXPECT_EQ(calls[1].args[3].bits, 0u);
    EXPECT_STREQ(calls[2].name, "eglMakeCurrent") << "and the game's thread takes it";
    EXPECT_EQ(calls[2].thread, game);
    EXPECT_EQ(calls[2].args[3].bits, reinterpret_cast<std::uintptr_t>(context));
    EXPECT_STREQ(calls[3].name, "eglSwapBuffers");
    EXPECT_EQ(calls[3].thread, game);

    gl_deferred_glClear(0x4000);
    EXPECT_EQ(fake::calls().back().thread, game) << "wrappers are plain forwarders now";
    char tag[PROP_VALUE_MAX] = {};
    __system_property_get("vendor.nimbo.orlo.release.tag", tag);
    EXPECT_STREQ(tag, "1");
}

TEST_F(Deferred, InlineModeReplaysOnTheGameThread) {
    bind(core::MODE_DEFERRED_INLINE);
    long game = threadId();
    gl_deferred_glClear(0x4000);
    EXPECT_TRUE(fake::callsOf("glClear").empty()) << "recorded, not yet handed over";
    core::egl::deferred::swapBuffers(display(), surface());
    ASSERT_EQ(fake::callsOf("glClear").size(), 1u);
    EXPECT_EQ(fake::callsOf("glClear")[0].thread, game);
    EXPECT_EQ(fake::callsOf("eglSwapBuffers").back().thread, game);
}

TEST_F(Deferred, ImmediateModeCallsThroughOnTheGameThread) {
    bind(core::MODE_IMMEDIATE);
    gl_deferred_glClear(0x4000);
    ASSERT_EQ(fake::callsOf("glClear").size(), 1u);
    EXPECT_EQ(fake::callsOf("glClear")[0].thread, threadId());
}

TEST_F(Deferred, DestroyReplaysEverythingFirst) {
    bind(core::MODE_DEFERRED);
    for (int i = 0; i < 300; ++i) gl_deferred_glClear(i);
    unbindAndDestroy();
    EXPECT_EQ(fake::callsOf("glClear").size(), 300u);
    // Both real contexts go, the second one first.
    auto destroyed = fake::callsOf("eglDestroyContext");
    ASSERT_EQ(destroyed.size(), 2u);
    EXPECT_EQ(destroyed[1].args[1].bits, 0x100u);
}

// exit() runs the driver's exit-time teardown, which the driver may have
// registered at any time, on the worker too: the game thread's recorded calls
// must have reached the driver before it.
std::atomic<bool> g_driverTornDown{false};

TEST_F(Deferred, ExitFinishesTheRecordedCallsBeforeTheDriversTeardown) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (unsigned mode : {core::MODE_DEFERRED, core::MODE_DEFERRED_INLINE}) {
        SCOPED_TRACE(mode);
        EXPECT_EXIT(
            {
                bind(mode);
                // The context goes before the fake driver's own statics do.
                static auto* self = this;
                std::atexit([] { self->unbindAndDestroy(); });
                fake::setHandler("glClear", [](const fake::Call&) {
                    std::atexit([] { g_driverTornDown = true; });
                    return 0;
                });
                fake::setHandler("glBlendFunc", [](const fake::Call&) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(200));
                    std::fprintf(stderr, g_driverTornDown ? "replayed after the teardown\n"
                                                          : "replayed before the teardown\n");
                    return 0;
                });
                gl_deferred_glClear(0x4000);
                gl_deferred_glGetError();  // the teardown is registered by now
                gl_deferred_glBlendFunc(1, 0);
                std::exit(0);
            },
            ::testing::ExitedWithCode(0), "replayed before the teardown");
    }
}

TEST_F(Deferred, TwoContextsAndTheGamesView) {
    bind(core::MODE_DEFERRED);
    // The game's thread holds the second context with no surface; the game
    // still sees its own handle and surfaces.
    auto binds = fake::callsOf("eglMakeCurrent");
    ASSERT_EQ(binds.size(), 2u);
    EXPECT_EQ(binds[0].thread, threadId());
    EXPECT_EQ(binds[0].args[3].bits, 0x101u);
    EXPECT_EQ(binds[0].args[1].bits, 0u);
    EXPECT_NE(binds[1].thread, threadId());
    EXPECT_EQ(binds[1].args[3].bits, 0x100u);
    EXPECT_EQ(binds[1].args[1].bits, reinterpret_cast<std::uintptr_t>(surface()));
    EXPECT_EQ(core::egl::deferred::getCurrentContext(), context);
    EXPECT_EQ(core::egl::deferred::getCurrentSurface(EGL_DRAW), surface());
}

TEST_F(Deferred, SecondContextFailureDestroysTheFirst) {
    core::context.gameConfig.runtimeMode = core::MODE_DEFERRED;
    fake::setHandler("eglCreateContext", [](const fake::Call& c) {
        return c.args[2].bits == 0 ? 0x100u : 0u;  // only the one without a share context
    });
    EXPECT_EQ(core::egl::deferred::createContext(display(), nullptr, EGL_NO_CONTEXT, nullptr),
              EGL_NO_CONTEXT);
    auto destroyed = fake::callsOf("eglDestroyContext");
    ASSERT_EQ(destroyed.size(), 1u);
    EXPECT_EQ(destroyed[0].args[1].bits, 0x100u);
}

TEST_F(Deferred, SharedSurfaceIsReleasedByTheWorkerBeforeAnotherContextTakesIt) {
    EGLContext first = bind(core::MODE_DEFERRED);
    EGLContext second =
        core::egl::deferred::createContext(display(), nullptr, EGL_NO_CONTEXT, nullptr);
    fake::reset();
    fake::setReturn("eglMakeCurrent", EGL_TRUE);
    core::egl::deferred::makeCurrent(display(), surface(), surface(), second);
    auto binds = fake::callsOf("eglMakeCurrent");
    ASSERT_GE(binds.size(), 2u);
    EXPECT_EQ(binds[0].args[3].bits, reinterpret_cast<std::uintptr_t>(first));
    EXPECT_EQ(binds[0].args[1].bits, 0u) << "first the old context, surfaceless, on its worker";
    EXPECT_EQ(binds.back().args[3].bits, reinterpret_cast<std::uintptr_t>(second));
    core::egl::deferred::makeCurrent(display(), EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    core::egl::deferred::destroyContext(display(), second);
}

TEST_F(Deferred, DestroyFromAnotherThreadDestroysAtOnce) {
    bind(core::MODE_DEFERRED);
    // The branch meant to postpone this never runs: the context goes at once,
    // and the binding thread's record dangles.
    std::thread([&] { core::egl::deferred::destroyContext(display(), context); }).join();
    {
        std::lock_guard<std::mutex> lock(core::context.renderContextMutex);
        EXPECT_EQ(core::context.renderContexts.count(context), 0u);
    }
    EXPECT_NE(core::tlglobals.renderContext, nullptr);
    core::tlglobals = {nullptr, nullptr};
    context = EGL_NO_CONTEXT;
}

TEST_F(Deferred, ThreadWithoutContextForwards) {
    bind(core::MODE_DEFERRED);
    std::thread([] {
        gl_deferred_glClear(0x100);
        EXPECT_EQ(fake::callsOf("glClear").size(), 1u);
    }).join();
}

}  // namespace
