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
    // Field by field: a whole copy would race with the log thread's read of `enabled`.
    auto& config = core::context.gameConfig;
    config.runtimeMode = saved.runtimeMode;
    config.fallback = saved.fallback;
    config.disableAnySamplesPassed = saved.disableAnySamplesPassed;
    config.disableEglTimeStamps = saved.disableEglTimeStamps;
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

static std::string who(const fake::Call& call) {
    return call.thread == threadId() ? "game" : "worker";
}

Names Deferred::trace() {
    Names out;
    for (auto& call : fake::calls()) out.push_back(who(call) + " " + call.name);
    return out;
}

Seen Deferred::callsWith(const char* name, std::initializer_list<std::size_t> indices) {
    Seen out;
    for (auto& call : fake::callsOf(name)) {
        out.emplace_back(who(call), Bits{});
        for (std::size_t i : indices) out.back().second.push_back(call.args.at(i).bits);
    }
    return out;
}

Bits Deferred::argOf(const char* name, std::size_t index) {
    Bits out;
    for (auto& call : fake::callsOf(name)) out.push_back(call.args.at(index).bits);
    return out;
}

}  // namespace velour::test
