// The EGL context life cycle as the layer follows it, over the fake driver.
#include <gtest/gtest.h>

#include <thread>
#include <tuple>
#include <vector>

#include "core/context.h"
#include "core/render-context.h"
#include "fake_driver.h"
#include "velour/entry_points.h"

using namespace velour;
namespace simple = core::egl::simple;
namespace deferred = core::egl::deferred;

namespace {

const EGLDisplay display = reinterpret_cast<EGLDisplay>(0x10);
const auto surface = [](uintptr_t n) { return reinterpret_cast<EGLSurface>(n); };
const auto context = [](uintptr_t n) { return reinterpret_cast<EGLContext>(n); };

class RenderContexts : public ::testing::Test {
  protected:
    void SetUp() override {
        fake::reset();
        drv::initRealGL(nullptr, fake::getNextProc);
        gles::initFunctionTable();
        core::tlglobals = {nullptr, nullptr};
        nextContext = 0x100;
        fake::setHandler("eglCreateContext", [this](const fake::Call&) { return nextContext++; });
        fake::setReturn("eglMakeCurrent", EGL_TRUE);
        fake::setReturn("eglDestroyContext", EGL_TRUE);
    }
    void TearDown() override {
        std::lock_guard<std::mutex> lock(core::context.renderContextMutex);
        core::context.renderContexts.clear();
        core::tlglobals = {nullptr, nullptr};
    }
    bool known(EGLContext c) {
        std::lock_guard<std::mutex> lock(core::context.renderContextMutex);
        return core::context.renderContexts.count(c) != 0;
    }
    uint64_t nextContext;
};

// A game's contexts through their life in hooks-only mode, with one made
// before the layer ("foreign"): the driver sees every call, the layer keeps
// track of its own.
TEST_F(RenderContexts, LifeCycle) {
    // A failed driver create leaves nothing behind.
    fake::setReturn("eglCreateContext", 0);
    EXPECT_EQ(simple::createContext(display, nullptr, EGL_NO_CONTEXT, nullptr), EGL_NO_CONTEXT);
    fake::setHandler("eglCreateContext", [this](const fake::Call&) { return nextContext++; });
    {
        std::lock_guard<std::mutex> lock(core::context.renderContextMutex);
        EXPECT_TRUE(core::context.renderContexts.empty());
    }
    EGLContext first = simple::createContext(display, nullptr, EGL_NO_CONTEXT, nullptr);
    EGLContext second = simple::createContext(display, nullptr, EGL_NO_CONTEXT, nullptr);
    ASSERT_EQ(std::pair(first, second), std::pair(context(0x100), context(0x101)));
    EXPECT_TRUE(known(first) && known(second));
    EXPECT_EQ(core::tlglobals.renderContext, nullptr);

    EXPECT_EQ(simple::makeCurrent(display, surface(1), surface(2), first), EGL_TRUE);
    core::RenderContext* bound = core::tlglobals.renderContext;
    ASSERT_NE(bound, nullptr);
    EXPECT_EQ(core::tlglobals.executor, nullptr);
    // Answered from the thread's record: the driver is not asked.
    EXPECT_EQ(std::tuple(deferred::getCurrentContext(), deferred::getCurrentSurface(EGL_DRAW),
                         deferred::getCurrentSurface(EGL_READ)),
              std::tuple(first, surface(1), surface(2)));
    EXPECT_TRUE(fake::callsOf("eglGetCurrentContext").empty() &&
                fake::callsOf("eglGetCurrentSurface").empty());

    // A foreign context: the thread's record is let go, and with no context
    // of its own the thread asks the driver.
    EGLContext foreign = context(0x999);
    EXPECT_EQ(simple::makeCurrent(display, surface(3), surface(3), foreign), EGL_TRUE);
    EXPECT_EQ(core::tlglobals.renderContext, nullptr);
    EXPECT_EQ(bound->drawSurface, surface(1));
    fake::setReturn("eglGetCurrentContext", 0x777);
    EXPECT_EQ(deferred::getCurrentContext(), context(0x777));
    EXPECT_EQ(simple::destroyContext(display, foreign), EGL_TRUE);

    // Destroyed on the binding thread, the record is cleared; from another
    // thread, only that thread's, so the binding thread's dangles.
    simple::makeCurrent(display, surface(1), surface(1), second);
    EXPECT_EQ(simple::destroyContext(display, second), EGL_TRUE);
    EXPECT_EQ(core::tlglobals.renderContext, nullptr);
    simple::makeCurrent(display, surface(1), surface(1), first);
    std::thread([&] { simple::destroyContext(display, first); }).join();
    EXPECT_NE(core::tlglobals.renderContext, nullptr);
    EXPECT_FALSE(known(first) || known(second));
    std::vector<uint64_t> destroyed;
    for (const fake::Call& call : fake::callsOf("eglDestroyContext"))
        destroyed.push_back(call.args[1].bits);
    EXPECT_EQ(destroyed, (std::vector<uint64_t>{0x999, 0x101, 0x100}));

    // Swaps pass everything on.
    EGLint rects[4] = {1, 2, 3, 4};
    fake::setReturn("eglSwapBuffersWithDamageKHR", EGL_TRUE);
    EXPECT_EQ(simple::swapBuffersWithDamageKHR(display, surface(5), rects, 1), EGL_TRUE);
    auto swaps = fake::callsOf("eglSwapBuffersWithDamageKHR");
    ASSERT_EQ(swaps.size(), 1u);
    EXPECT_EQ(std::pair(swaps[0].args[2].bits, swaps[0].args[3].bits),
              std::pair(static_cast<uint64_t>(reinterpret_cast<uintptr_t>(rects)), uint64_t{1}));
}

}  // namespace
