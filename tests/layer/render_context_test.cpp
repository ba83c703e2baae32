// The EGL context life cycle as the layer follows it, over the fake driver.
#include <gtest/gtest.h>

#include <thread>
#include <tuple>

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

TEST_F(RenderContexts, CreateBindAnswerAndDestroy) {
    EGLContext context = simple::createContext(display, nullptr, EGL_NO_CONTEXT, nullptr);
    ASSERT_EQ(context, reinterpret_cast<EGLContext>(0x100));
    EXPECT_TRUE(known(context));
    EXPECT_EQ(core::tlglobals.renderContext, nullptr);

    EXPECT_EQ(simple::makeCurrent(display, surface(1), surface(2), context), EGL_TRUE);
    ASSERT_NE(core::tlglobals.renderContext, nullptr);
    EXPECT_EQ(core::tlglobals.executor, nullptr);
    EXPECT_EQ(std::tuple(deferred::getCurrentContext(), deferred::getCurrentSurface(EGL_DRAW),
                         deferred::getCurrentSurface(EGL_READ)),
              std::tuple(context, surface(1), surface(2)));
    // Answered from the thread's record: the driver is not asked.
    EXPECT_TRUE(fake::callsOf("eglGetCurrentContext").empty() &&
                fake::callsOf("eglGetCurrentSurface").empty());

    EXPECT_EQ(simple::destroyContext(display, context), EGL_TRUE);
    EXPECT_FALSE(known(context));
    EXPECT_EQ(core::tlglobals.renderContext, nullptr);
    auto destroyed = fake::callsOf("eglDestroyContext");
    ASSERT_EQ(destroyed.size(), 1u);
    EXPECT_EQ(destroyed[0].args[1].bits, 0x100u);
}

TEST_F(RenderContexts, FailedDriverCreateLeavesNothingBehind) {
    fake::setReturn("eglCreateContext", 0);
    EXPECT_EQ(simple::createContext(display, nullptr, EGL_NO_CONTEXT, nullptr), EGL_NO_CONTEXT);
    std::lock_guard<std::mutex> lock(core::context.renderContextMutex);
    EXPECT_TRUE(core::context.renderContexts.empty());
}

TEST_F(RenderContexts, UnknownContextsPassStraightThrough) {
    EGLContext known = simple::createContext(display, nullptr, EGL_NO_CONTEXT, nullptr);
    simple::makeCurrent(display, surface(1), surface(1), known);
    core::RenderContext* bound = core::tlglobals.renderContext;

    // A context made before the layer, or by another layer.
    EGLContext foreign = reinterpret_cast<EGLContext>(0x999);
    EXPECT_EQ(simple::makeCurrent(display, surface(3), surface(3), foreign), EGL_TRUE);
    EXPECT_EQ(core::tlglobals.renderContext, nullptr);
    EXPECT_EQ(bound->drawSurface, surface(1));
    EXPECT_EQ(simple::destroyContext(display, foreign), EGL_TRUE);
    EXPECT_EQ(fake::callsOf("eglDestroyContext").size(), 1u);
    EXPECT_TRUE(this->known(known));

    // With no context of its own the thread asks the driver.
    fake::setReturn("eglGetCurrentContext", 0x777);
    EXPECT_EQ(deferred::getCurrentContext(), reinterpret_cast<EGLContext>(0x777));
}

TEST_F(RenderContexts, DestroyFromAnotherThreadLeavesTheBindingThreadDangling) {
    EGLContext context = simple::createContext(display, nullptr, EGL_NO_CONTEXT, nullptr);
    simple::makeCurrent(display, surface(1), surface(1), context);
    ASSERT_NE(core::tlglobals.renderContext, nullptr);
    std::thread([&] { simple::destroyContext(display, context); }).join();
    EXPECT_FALSE(known(context));
    // Only the destroying thread's record is cleared.
    EXPECT_NE(core::tlglobals.renderContext, nullptr);
    core::tlglobals = {nullptr, nullptr};
}

TEST_F(RenderContexts, SwapsDropNothingInHooksOnlyMode) {
    EGLint rects[4] = {1, 2, 3, 4};
    fake::setReturn("eglSwapBuffersWithDamageKHR", EGL_TRUE);
    EXPECT_EQ(simple::swapBuffersWithDamageKHR(display, surface(5), rects, 1), EGL_TRUE);
    auto calls = fake::callsOf("eglSwapBuffersWithDamageKHR");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].args[2].bits, reinterpret_cast<uintptr_t>(rects));
    EXPECT_EQ(calls[0].args[3].bits, 1u);
}

}  // namespace
