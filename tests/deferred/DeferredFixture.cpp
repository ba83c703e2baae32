#include "DeferredFixture.h"

#include "velour/utils/Configuration.h"

namespace velour::test {

void Deferred::SetUp() {
    fake::reset();
    drv::initRealGL(nullptr, fake::getNextProc);
    gles::initFunctionTable();
    saved = core::context.gameConfig;
    core::DeferredExecutor::_fallbackImmediateMode = false;
    core::tlglobals = {nullptr, nullptr};
    fake::setHandler("eglCreateContext", [this](const fake::Call&) { return nextHandle++; });
    fake::setReturn("eglMakeCurrent", EGL_TRUE);
    fake::setReturn("eglDestroyContext", EGL_TRUE);
    fake::setReturn("eglSwapBuffers", EGL_TRUE);
}

void Deferred::TearDown() {
    if (context != EGL_NO_CONTEXT) unbindAndDestroy();
    core::context.gameConfig.runtimeMode = saved.runtimeMode;
    core::context.gameConfig.fallback = saved.fallback;
    core::DeferredExecutor::_fallbackImmediateMode = false;
    for (const char* key : {"de.job_queue_count", "orlo.de.job_queue_count", "de.fallback",
                            "de.sync_after_swap", "de.early_submission"})
        utils::Configuration::global().sets(key, "");
}

EGLContext Deferred::bind(unsigned mode) {
    core::context.gameConfig.runtimeMode = mode;
    context = core::egl::deferred::createContext(display(), nullptr, EGL_NO_CONTEXT, nullptr);
    EXPECT_NE(context, EGL_NO_CONTEXT);
    EXPECT_EQ(core::egl::deferred::makeCurrent(display(), surface(), surface(), context), EGL_TRUE);
    EXPECT_NE(core::tlglobals.executor, nullptr);
    return context;
}

core::Executor& Deferred::executor() {
    return *static_cast<core::Executor*>(core::tlglobals.executor);
}

void Deferred::unbindAndDestroy() {
    core::egl::deferred::makeCurrent(display(), EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    core::egl::deferred::destroyContext(display(), context);
    context = EGL_NO_CONTEXT;
}

std::vector<std::pair<std::string, long>> Deferred::driverCalls() {
    std::vector<std::pair<std::string, long>> out;
    for (auto& call : fake::calls()) out.emplace_back(call.name, call.thread);
    return out;
}

std::vector<std::string> Deferred::trace() {
    std::vector<std::string> out;
    for (auto& [name, thread] : driverCalls())
        out.push_back((thread == threadId() ? "game " : "worker ") + name);
    return out;
}

}  // namespace velour::test
