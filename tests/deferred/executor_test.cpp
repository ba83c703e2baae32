// The deferral protocol as the driver sees it: which thread makes which call,
// and in what order; contexts, name pools and fences.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "DeferredFixture.h"
#include "platform/properties.h"

using namespace velour;
using namespace velour::test;

namespace {

using Protocol = Bound;  // a deferred context bound

// Recorded calls replay in order on the worker, pointer data as a copy taken
// at the call; a question drains and gets the worker's answer.
TEST_F(Protocol, RecordedCallsReplayInOrderOnTheWorker) {
    std::vector<float> seen;
    keepArray("glUniform4fv", 2, seen, [](const fake::Call& c) { return 4 * c.args[1].bits; });
    float values[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    auto before = executor().counters();
    gl_deferred_glClearColor(0.f, 0.5f, 1.f, 1.f);
    gl_deferred_glUniform4fv(3, 2, values);
    std::memset(values, 0, sizeof(values));  // the game reuses its memory at once
    gl_deferred_glBlendFunc(1, 0);
    EXPECT_TRUE(fake::calls().empty()) << "recording calls nothing";

    fake::setHandler("glGetError", [](const fake::Call&) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return 0x502;
    });
    EXPECT_EQ(gl_deferred_glGetError(), 0x502u) << "a drain, then the worker's answer";
    EXPECT_GE(executor().counters().drainNanoseconds - before.drainNanoseconds, 5000000u);
    EXPECT_EQ(seen, (std::vector<float>{1, 2, 3, 4, 5, 6, 7, 8}));
    // Immediate calls run on the game's thread with no drain; so does link status.
    gl_deferred_glGetUniformLocation(1, "u");
    fetch(gl_deferred_glGetProgramiv, 1, 35714);
    EXPECT_EQ(drains(), before.drains + 1);
    EXPECT_EQ(trace(),
              (Names{"worker glClearColor", "worker glUniform4fv", "worker glBlendFunc",
                     "worker glGetError", "game glGetUniformLocation", "game glGetProgramiv"}));
    EXPECT_EQ(executor().counters().copiedBytes, before.copiedBytes) << "counted as frames end";
    core::egl::deferred::swapBuffers(display(), surface());
    EXPECT_EQ(executor().counters().copiedBytes - before.copiedBytes, 32u);

    // Count 0 with a pointer: the driver still gets a pointer; null stays null.
    gl_deferred_glUniform4fv(3, 0, values);
    gl_deferred_glDeleteTextures(0, nullptr);
    gl_deferred_glBindAttribLocation(1, 0, "");
    gl_deferred_glFinish();
    auto uniform = argOf("glUniform4fv", 2).back();
    EXPECT_TRUE(uniform != 0 && uniform != bitsOf(values)) << uniform;
    EXPECT_EQ((Bits{argOf("glDeleteTextures", 1).back(), argOf("glBindAttribLocation", 2).back()}),
              (Bits{0, 0}))
        << "an empty name reaches the driver as null too";
}

TEST_F(Protocol, FallbackSwitchesToImmediateModeAtTheSwap) {
    core::context.gameConfig.fallback = 1;
    gl_deferred_glBlendFunc(1, 0);  // raises the flag on its way
    EXPECT_TRUE(core::DeferredExecutor::_fallbackImmediateMode);
    fake::clearCalls();
    fake::setReturn("eglSwapBuffers", 7);
    EXPECT_EQ(core::egl::deferred::swapBuffers(display(), surface()), 7u)
        << "after the switch the driver's own answer comes back";
    EXPECT_EQ(core::context.gameConfig.runtimeMode, core::MODE_IMMEDIATE);
    gl_deferred_glClear(0x4000);  // wrappers are plain forwarders now

    // The worker lets go of the context and the game's thread takes it.
    EXPECT_EQ(trace(), (Names{"worker glBlendFunc", "worker eglMakeCurrent", "game eglMakeCurrent",
                              "game eglSwapBuffers", "game glClear"}));
    EXPECT_EQ(argOf("eglMakeCurrent", 3), (Bits{0, bitsOf(context)}));
    char tag[PROP_VALUE_MAX] = {};
    __system_property_get("vendor.nimbo.orlo.release.tag", tag);
    EXPECT_STREQ(tag, "1");
}

// Inline mode records and replays at the swap, immediate mode calls through.
TEST_F(Deferred, InlineAndImmediateModesCallOnTheGameThread) {
    for (unsigned mode : {core::MODE_DEFERRED_INLINE, core::MODE_IMMEDIATE}) {
        SCOPED_TRACE(mode);
        bind(mode);
        fake::clearCalls();
        gl_deferred_glClear(0x4000);
        EXPECT_EQ(fake::calls().size(), mode == core::MODE_IMMEDIATE ? 1u : 0u);
        core::egl::deferred::swapBuffers(display(), surface());
        EXPECT_EQ(trace(), (Names{"game glClear", "game eglSwapBuffers"}));
        unbindAndDestroy();
    }
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

// A game context is two real ones: the worker holds the first with the game's
// surfaces, the game's thread the second with none; the game still sees its
// own handle and surfaces.
TEST_F(Deferred, TwoRealContextsAndTheGamesView) {
    EGLContext first = bind(core::MODE_DEFERRED);
    EXPECT_EQ(callsWith("eglMakeCurrent", {1, 3}),
              (Seen{{"game", {0, 0x101}}, {"worker", {bitsOf(surface()), 0x100}}}));
    EXPECT_EQ(core::egl::deferred::getCurrentContext(), context);
    EXPECT_EQ(core::egl::deferred::getCurrentSurface(EGL_DRAW), surface());

    // Another context taking the surface: the worker lets go of it first.
    EGLContext second =
        core::egl::deferred::createContext(display(), nullptr, EGL_NO_CONTEXT, nullptr);
    fake::clearCalls();
    core::egl::deferred::makeCurrent(display(), surface(), surface(), second);
    // The old context surfaceless on its worker, then the new pair as above.
    EXPECT_EQ(callsWith("eglMakeCurrent", {1, 3}),
              (Seen{{"worker", {0, bitsOf(first)}},
                    {"game", {0, 0x103}},
                    {"worker", {bitsOf(surface()), bitsOf(second)}}}));
    core::egl::deferred::makeCurrent(display(), EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    core::egl::deferred::destroyContext(display(), second);
}

// Destroying replays everything first, then both real contexts go, the second
// first; when the second cannot be made, the first goes at once.
TEST_F(Protocol, DestroyReplaysEverythingAndEndsBothRealContexts) {
    for (int i = 0; i < 300; ++i) gl_deferred_glClear(i);
    unbindAndDestroy();
    EXPECT_EQ(count("glClear"), 300u);
    EXPECT_EQ(argOf("eglDestroyContext", 1), (Bits{0x101, 0x100}));

    fake::clearCalls();
    fake::setHandler("eglCreateContext", [](const fake::Call& c) {
        return c.args[2].bits == 0 ? 0x100u : 0u;  // only the one without a share context
    });
    EXPECT_EQ(core::egl::deferred::createContext(display(), nullptr, EGL_NO_CONTEXT, nullptr),
              EGL_NO_CONTEXT);
    EXPECT_EQ(argOf("eglDestroyContext", 1), (Bits{0x100}));
}

// A thread without a context forwards. A destroy from it is meant to be
// postponed, but that branch never runs: the context goes at once, and the
// binding thread's record dangles.
TEST_F(Protocol, AnotherThreadForwardsAndDestroysAtOnce) {
    std::thread([&] {
        gl_deferred_glClear(0x100);
        EXPECT_EQ(count("glClear"), 1u);
        core::egl::deferred::destroyContext(display(), context);
    }).join();
    {
        std::lock_guard<std::mutex> lock(core::context.renderContextMutex);
        EXPECT_EQ(core::context.renderContexts.count(context), 0u);
    }
    EXPECT_NE(core::tlglobals.renderContext, nullptr);
    core::tlglobals = {nullptr, nullptr};
    context = EGL_NO_CONTEXT;
}

// --- Name pools and fences: answered on the game's thread, made real in stream
// order on the worker. ----------------------------------------------------------

TEST_F(Protocol, NamePoolServesFromAheadAndRefillsInTheBackground) {
    unsigned next = 1;  // a driver that hands out names counting up from 1
    for (const char* gen : {"glGenTextures", "glGenBuffers"})
        fake::setHandler(gen, [&next](const fake::Call& c) {
            for (std::uint64_t i = 0; i < c.args[0].bits; ++i) pointerArg<GLuint>(c, 1)[i] = next++;
            return 0;
        });
    auto& names = executor().handler<GLNamesHandler>();

    GLuint none = 7;
    gl_deferred_glGenTextures(0, &none);
    gl_deferred_glGenTextures(3, nullptr);
    EXPECT_EQ(none, 7u);
    EXPECT_EQ(count("glGenTextures"), 0u) << "no job for nothing";

    // The first drains, later ones do not; names come from the back of the pool.
    auto before = drains();
    auto gen = [] { return fetch<GLuint>(gl_deferred_glGenTextures, 1); };
    EXPECT_EQ((Bits{gen(), names.pooled(names.textures), drains() - before}), (Bits{32, 31, 1}));
    EXPECT_EQ((Bits{gen(), drains() - before}), (Bits{31, 1}));
    gl_deferred_glFinish();
    EXPECT_EQ(names.pooled(names.textures), 30u + 32u) << "a background refill of 32 ran";
    EXPECT_EQ(callsWith("glGenTextures", {0}), (Seen{{"worker", {32}}, {"worker", {32}}}));

    // More than pooled: one refill of exactly that many, and the old ones stay.
    std::vector<GLuint> many(100);
    gl_deferred_glGenBuffers(100, many.data());
    EXPECT_EQ(argOf("glGenBuffers", 0).back(), 100u);
    EXPECT_EQ(names.pooled(names.buffers), 0u);

    // Unused names go back to the driver with the context; an empty pool's none.
    unbindAndDestroy();
    EXPECT_EQ(argOf("glDeleteTextures", 0), (Bits{62}));
    EXPECT_EQ(count("glDeleteBuffers"), 0u);
}

TEST_F(Protocol, FencesAreMadeInStreamOrderAndHandlesCountFromOne) {
    std::uint32_t base = core::FenceSyncManager::_proxy;
    std::uint64_t made = 0xf00;
    fake::setHandler("glFenceSync", [&](const fake::Call&) { return made++; });
    fake::setReturn("glClientWaitSync", 0x911A);  // GL_ALREADY_SIGNALED

    // Deleted before its job is sent: never made, nor deleted; its handle is the first.
    gl_deferred_glDeleteSync(gl_deferred_glFenceSync(0x9117, 0));
    gl_deferred_glClear(1);
    GLsync fence = gl_deferred_glFenceSync(0x9117, 0);
    EXPECT_EQ(bitsOf(fence), base + 2u);
    EXPECT_EQ(count("glFenceSync"), 0u) << "no drain for a fence";

    // A wait on an unsent fence hands it over, then waits with the real object.
    EXPECT_EQ(gl_deferred_glClientWaitSync(fence, 0, 0), 0x911Au);
    EXPECT_EQ(trace(), (Names{"worker glClear", "worker glFenceSync", "game glClientWaitSync"}));
    EXPECT_EQ(argOf("glClientWaitSync", 0), (Bits{0xf00}));

    // The server wait is recorded, and gets the real object too.
    GLsync other = gl_deferred_glFenceSync(0x9117, 0);
    gl_deferred_glWaitSync(other, 0, ~0ull);
    gl_deferred_glFinish();
    EXPECT_EQ(argOf("glWaitSync", 0), (Bits{0xf01}));

    EXPECT_EQ(gl_deferred_glClientWaitSync(reinterpret_cast<GLsync>(0x7777), 0, 0), 1281u);
    EXPECT_EQ(gl_deferred_glIsSync(nullptr), 0);
    gl_deferred_glDeleteSync(nullptr);
    gl_deferred_glDeleteSync(fence);
    EXPECT_EQ((Bits{count("glDeleteSync"), count("glFenceSync")}), (Bits{1, 2}));
}

TEST_F(Protocol, EglFencesStandInForTheGamesHandle) {
    std::uint64_t made = 0x5000;
    fake::setHandler("eglCreateSyncKHR", [&](const fake::Call&) { return made++; });
    fake::setReturn("eglDestroySyncKHR", EGL_TRUE);
    fake::setReturn("eglClientWaitSyncKHR", EGL_CONDITION_SATISFIED_KHR);

    EGLSyncKHR sync = gl_deferred_eglCreateSyncKHR(display(), EGL_SYNC_FENCE_KHR, nullptr);
    EXPECT_EQ(sync, reinterpret_cast<EGLSyncKHR>(0x5000)) << "the game's handle is real";
    EXPECT_EQ(gl_deferred_eglClientWaitSyncKHR(display(), sync, 0, 0), EGL_CONDITION_SATISFIED_KHR);
    EXPECT_EQ(trace(), (Names{"game eglCreateSyncKHR", "worker eglCreateSyncKHR",
                              "game eglClientWaitSyncKHR"}));
    EXPECT_EQ(*pointerArg<const EGLint>(fake::callsOf("eglCreateSyncKHR")[1], 2), EGL_NONE)
        << "a null list is passed as EGL_NONE alone";
    EXPECT_EQ(argOf("eglClientWaitSyncKHR", 1), (Bits{0x5001}));

    EXPECT_EQ(gl_deferred_eglDestroySyncKHR(display(), sync), EGL_TRUE);
    EXPECT_EQ(count("eglDestroySyncKHR"), 2u) << "both objects go";

    // Another type is simply immediate: one object, no job.
    gl_deferred_eglCreateSyncKHR(display(), EGL_SYNC_NATIVE_FENCE_ANDROID, nullptr);
    gl_deferred_glFinish();
    EXPECT_EQ(count("eglCreateSyncKHR"), 3u);
}

}  // namespace
