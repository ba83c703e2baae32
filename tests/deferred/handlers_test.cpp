// Name pools and fences: answered on the game's thread, made real in stream
// order on the worker.
#include <thread>

#include "DeferredFixture.h"

using namespace velour;
using velour::test::Deferred;
using velour::test::threadId;

namespace {

// A driver that hands out names counting up from 1.
void countingNames() {
    static unsigned next;
    next = 1;
    fake::setHandler("glGenTextures", [](const fake::Call& c) {
        auto* out = reinterpret_cast<unsigned*>(static_cast<std::uintptr_t>(c.args[1].bits));
        for (std::uint64_t i = 0; i < c.args[0].bits; ++i) out[i] = next++;
        return 0;
    });
    fake::setHandler("glGenBuffers", [](const fake::Call& c) {
        auto* out = reinterpret_cast<unsigned*>(static_cast<std::uintptr_t>(c.args[1].bits));
        for (std::uint64_t i = 0; i < c.args[0].bits; ++i) out[i] = next++;
        return 0;
    });
}

TEST_F(Deferred, NamePoolServesFromAheadAndRefillsInTheBackground) {
    bind(core::MODE_DEFERRED);
    countingNames();
    auto& names = executor().handler<GLNamesHandler>();

    GLuint none = 7;
    gl_deferred_glGenTextures(0, &none);
    gl_deferred_glGenTextures(3, nullptr);
    EXPECT_EQ(none, 7u);
    EXPECT_TRUE(fake::callsOf("glGenTextures").empty()) << "no job for nothing";

    size_t drains = executor().counters().drains;
    GLuint t = 0;
    gl_deferred_glGenTextures(1, &t);
    EXPECT_EQ(executor().counters().drains, drains + 1) << "the first one drains";
    EXPECT_EQ(t, 32u) << "names come from the back of the pool";
    EXPECT_EQ(names.pooled(names.textures), 31u);

    gl_deferred_glGenTextures(1, &t);
    EXPECT_EQ(executor().counters().drains, drains + 1) << "later ones do not";
    EXPECT_EQ(t, 31u);
    gl_deferred_glFinish();
    EXPECT_EQ(names.pooled(names.textures), 30u + 32u) << "a background refill of 32 ran";
    auto gens = fake::callsOf("glGenTextures");
    ASSERT_EQ(gens.size(), 2u);
    EXPECT_NE(gens[1].thread, threadId());

    // More than pooled: one refill of exactly that many, and the old ones stay.
    std::vector<GLuint> many(100);
    gl_deferred_glGenBuffers(100, many.data());
    EXPECT_EQ(fake::callsOf("glGenBuffers").back().args[0].bits, 100u);
    EXPECT_EQ(names.pooled(names.buffers), 0u);
}

TEST_F(Deferred, UnusedPooledNamesGoBackToTheDriver) {
    bind(core::MODE_DEFERRED);
    countingNames();
    GLuint t;
    gl_deferred_glGenTextures(1, &t);
    unbindAndDestroy();
    auto deleted = fake::callsOf("glDeleteTextures");
    ASSERT_EQ(deleted.size(), 1u);
    EXPECT_EQ(deleted[0].args[0].bits, 31u);
}

TEST_F(Deferred, FenceIsMadeInStreamOrderAndHandlesCountFromOne) {
    bind(core::MODE_DEFERRED);
    std::uint32_t base = core::FenceSyncManager::_proxy;
    fake::setReturn("glFenceSync", 0xf00);
    fake::setReturn("glClientWaitSync", 0x911A);  // GL_ALREADY_SIGNALED
    fake::clearCalls();

    gl_deferred_glClear(1);
    GLsync fence = gl_deferred_glFenceSync(0x9117, 0);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(fence), base + 1u);
    EXPECT_TRUE(fake::callsOf("glFenceSync").empty()) << "no drain for a fence";

    // A wait on a fence whose job is unsent hands it over, then waits.
    EXPECT_EQ(gl_deferred_glClientWaitSync(fence, 0, 0), 0x911Au);
    auto calls = fake::calls();
    ASSERT_GE(calls.size(), 3u);
    EXPECT_STREQ(calls[0].name, "glClear");
    EXPECT_STREQ(calls[1].name, "glFenceSync");
    EXPECT_NE(calls[1].thread, threadId());
    EXPECT_STREQ(calls.back().name, "glClientWaitSync");
    EXPECT_EQ(calls.back().thread, threadId()) << "the wait itself is the game thread's";
    EXPECT_EQ(calls.back().args[0].bits, 0xf00u) << "with the real object";

    EXPECT_EQ(gl_deferred_glClientWaitSync(reinterpret_cast<GLsync>(0x7777), 0, 0), 1281u);
    EXPECT_EQ(gl_deferred_glIsSync(nullptr), 0);
    gl_deferred_glDeleteSync(nullptr);
    gl_deferred_glDeleteSync(fence);
    EXPECT_EQ(fake::callsOf("glDeleteSync").size(), 1u);
}

TEST_F(Deferred, FenceDeletedBeforeItsJobIsNeverMade) {
    bind(core::MODE_DEFERRED);
    GLsync fence = gl_deferred_glFenceSync(0x9117, 0);
    gl_deferred_glDeleteSync(fence);
    gl_deferred_glFinish();
    EXPECT_TRUE(fake::callsOf("glFenceSync").empty());
    EXPECT_TRUE(fake::callsOf("glDeleteSync").empty());
}

TEST_F(Deferred, FenceWaitedOnFromAnotherThread) {
    bind(core::MODE_DEFERRED);
    fake::setReturn("glFenceSync", 0xf00);
    GLsync fence = gl_deferred_glFenceSync(0x9117, 0);
    GLenum status = 0;
    fake::setReturn("glClientWaitSync", 0x911C);
    std::thread([&] { status = gl_deferred_glClientWaitSync(fence, 0, 1000); }).join();
    EXPECT_EQ(status, 0x911Cu);
    gl_deferred_glWaitSync(fence, 0, ~0ull);
    gl_deferred_glFinish();
    auto waits = fake::callsOf("glWaitSync");
    ASSERT_EQ(waits.size(), 1u);
    EXPECT_EQ(waits[0].args[0].bits, 0xf00u) << "the server wait gets the real fence";
}

TEST_F(Deferred, EglFencesStandInForTheGamesHandle) {
    bind(core::MODE_DEFERRED);
    std::uint64_t made = 0x5000;
    fake::setHandler("eglCreateSyncKHR", [&](const fake::Call&) { return made++; });
    fake::setReturn("eglDestroySyncKHR", EGL_TRUE);
    fake::setReturn("eglClientWaitSyncKHR", EGL_CONDITION_SATISFIED_KHR);

    EGLSyncKHR sync = gl_deferred_eglCreateSyncKHR(display(), EGL_SYNC_FENCE_KHR, nullptr);
    EXPECT_EQ(sync, reinterpret_cast<EGLSyncKHR>(0x5000)) << "the game's handle is real";
    EXPECT_EQ(gl_deferred_eglClientWaitSyncKHR(display(), sync, 0, 0), EGL_CONDITION_SATISFIED_KHR);
    auto created = fake::callsOf("eglCreateSyncKHR");
    ASSERT_EQ(created.size(), 2u);
    EXPECT_EQ(created[0].thread, threadId());
    EXPECT_NE(created[1].thread, threadId());
    auto* attribs =
        reinterpret_cast<const EGLint*>(static_cast<std::uintptr_t>(created[1].args[2].bits));
    EXPECT_EQ(attribs[0], EGL_NONE) << "a null list is passed as EGL_NONE alone";
    EXPECT_EQ(fake::callsOf("eglClientWaitSyncKHR").back().args[1].bits, 0x5001u);

    EXPECT_EQ(gl_deferred_eglDestroySyncKHR(display(), sync), EGL_TRUE);
    EXPECT_EQ(fake::callsOf("eglDestroySyncKHR").size(), 2u) << "both objects go";

    // Another type is simply immediate: one object, no job.
    gl_deferred_eglCreateSyncKHR(display(), EGL_SYNC_NATIVE_FENCE_ANDROID, nullptr);
    gl_deferred_glFinish();
    EXPECT_EQ(fake::callsOf("eglCreateSyncKHR").size(), 3u);
}

}  // namespace
