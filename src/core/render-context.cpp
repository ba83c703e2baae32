#include "core/render-context.h"

#include <dlfcn.h>

#include <string>

#include "core/context.h"
#include "core/deferred_executor/Executor.h"
#include "core/log.h"
#include "games/GameGLHooks.h"
#include "platform/paths.h"
#include "styles/RenderGuard.h"
#include "velour/entry_points.h"

namespace velour::core {

namespace {

// Entry of the effect library; null until registerTriggers finds it.
void (*tesselInitialize)(styles::StyleManager* styleManager) = nullptr;

const char TESSEL_LIBRARY[] = "libtessel.so";

std::unique_ptr<RenderContext> newRenderContext(EGLDisplay display, EGLContext context,
                                                EGLContext sharedContext) {
    return RenderContext::create({display, context, sharedContext});
}

// Inserts the render context for the game's handle; an old entry under the
// same handle is replaced. A context made to share the game's objects with
// another marks both executors: the shadows of shared objects then step aside.
void insertRenderContext(EGLContext context, std::unique_ptr<RenderContext> renderContext,
                         EGLContext share) {
    std::lock_guard<std::mutex> lock(core::context.renderContextMutex);
    if (share != EGL_NO_CONTEXT) {
        auto shared = core::context.renderContexts.find(share);
        if (shared != core::context.renderContexts.end() && shared->second.renderContext &&
            shared->second.renderContext->executor)
            shared->second.renderContext->executor->objectsShared = true;
        if (renderContext->executor) renderContext->executor->objectsShared = true;
    }
    auto& entry = core::context.renderContexts[context];
    entry.renderContext = std::move(renderContext);
    entry.current = false;
}

}  // namespace

RenderEffectOnPass::RenderEffectOnPass(styles::StyleManager* styleManager,
                                       std::unordered_set<games::Pass> passes)
    : detectablePasses(std::move(passes)),
      styleManager(styleManager),
      targetPass(games::Pass::end) {
    detectablePasses.max_load_factor(1.0f);
    if (detectablePasses.count(games::Pass::ui)) targetPass = games::Pass::ui;
}

void RenderEffectOnPass::changed(const utils::ChangeEvent<games::Pass>& event) {
    games::Pass pass = *event.newValue;
    if (pass == targetPass) styles::renderGuarded(*styleManager);
    // A frame that ended on the fallback target goes on with ui once the
    // game can tell it.
    if (pass == games::Pass::end && targetPass != games::Pass::ui &&
        detectablePasses.count(games::Pass::ui))
        targetPass = games::Pass::ui;
}

RenderContext::RenderContext() = default;

// The effect's manager goes first, then the hook that drives it, then the
// executor, which drains and joins its worker.
RenderContext::~RenderContext() {
    // The worker may still be replaying calls that reach the hook and the
    // style: it finishes them before those go.
    if (executor && hook && !executor->isShutDown()) executor->queue.flushAndWait();
    styleManager.reset();
    hook.reset();
    executor.reset();
}

std::unique_ptr<RenderContext> RenderContext::create(const CreationParameters& parameters) {
    auto renderContext = std::make_unique<RenderContext>();
    renderContext->display = parameters.display;
    renderContext->context = parameters.context;
    renderContext->sharedContext = parameters.sharedContext;
    if (!renderContext->init()) return nullptr;
    return renderContext;
}

bool RenderContext::init() {
    if (context == EGL_NO_CONTEXT) return false;
    unsigned mode = runtimeMode();
    if (mode == MODE_DEFERRED || mode == MODE_IMMEDIATE || mode == MODE_DEFERRED_INLINE) {
        try {
            executor.reset(MemTracker<MemCategory::Executor>::create<Executor>(this));
        } catch (const std::exception& e) {
            VELOUR_LOG(LOG_ERROR, "no executor for EGL context %p: %s", context, e.what());
            return false;
        }
    }
    // Without the effect library's entry the context defers, but has no hook
    // and no effect.
    if (!tesselInitialize) return true;
    styleManager = std::make_unique<styles::StyleManager>();
    tesselInitialize(styleManager.get());
    if (g_enabledLogSeverity >= 0)
        log("src/core/render-context", 184, "init", LOG_BANNER,
            "Tessel initialized for EGL context %p", context);
    hook = games::createGameHook();
    games::PassTracker& tracker = hook->getPassTracker();
    auto listener =
        std::make_shared<RenderEffectOnPass>(styleManager.get(), hook->getDetectablePasses());
    static_cast<utils::Property<games::Pass>&>(tracker.getPassProperty()).addListener(listener);
    return true;
}

void registerTriggers() {
    const char* folders[] = {"/odm/lib", "/vendor/lib", "/system/lib"};
    void* handle = nullptr;
    std::string path;
    for (const char* folder : folders) {
        path = std::string(folder) + "/" + TESSEL_LIBRARY;
        // RTLD_NOW is 0 on 32-bit bionic; glibc refuses a bare 0.
        handle = dlopen(platform::devicePath(path).c_str(), RTLD_NOW);
        if (handle) break;
    }
    if (!handle) {
        if (g_enabledLogSeverity >= LOG_BANNER)
            log("src/core/render-context", 35, "loadso", LOG_BANNER, "ORLO library %s not found",
                TESSEL_LIBRARY);
        return;
    }
    if (g_enabledLogSeverity >= LOG_BANNER)
        log("src/core/render-context", 30, "loadso", LOG_BANNER, "ORLO library loaded from %s",
            path.c_str());
    if (!games::GameGLHooks::registerGlobalTriggers()) return;
    // The handle stays open for the life of the process.
    tesselInitialize =
        reinterpret_cast<void (*)(styles::StyleManager*)>(dlsym(handle, "Tessel_Initialize"));
}

namespace egl {

EGLContext simple::createContext(EGLDisplay display, EGLConfig config, EGLContext share,
                                 const EGLint* attributes) {
    EGLContext context = hijack::eglCreateContext(display, config, share, attributes);
    if (context == EGL_NO_CONTEXT) return EGL_NO_CONTEXT;
    auto renderContext = newRenderContext(display, context, share);
    if (!renderContext) {
        hijack::eglDestroyContext(display, context);
        return EGL_NO_CONTEXT;
    }
    try {
        insertRenderContext(context, std::move(renderContext), share);
    } catch (const std::bad_alloc&) {
        hijack::eglDestroyContext(display, context);
        return EGL_NO_CONTEXT;
    }
    return context;
}

EGLBoolean simple::destroyContext(EGLDisplay display, EGLContext context) {
    {
        std::lock_guard<std::mutex> lock(core::context.renderContextMutex);
        auto it = core::context.renderContexts.find(context);
        if (it != core::context.renderContexts.end()) {
            it->second.current = false;
            if (tlglobals.renderContext == it->second.renderContext.get())
                tlglobals = ThreadGlobals{nullptr, nullptr};
            core::context.renderContexts.erase(it);
        }
    }
    return hijack::eglDestroyContext(display, context);
}

EGLBoolean simple::makeCurrent(EGLDisplay display, EGLSurface draw, EGLSurface read,
                               EGLContext context) {
    RenderContext* renderContext = nullptr;
    {
        std::lock_guard<std::mutex> lock(core::context.renderContextMutex);
        auto it = core::context.renderContexts.find(context);
        if (it != core::context.renderContexts.end()) {
            renderContext = it->second.renderContext.get();
            renderContext->drawSurface = draw;
            renderContext->readSurface = read;
        }
    }
    tlglobals.renderContext = renderContext;
    return hijack::eglMakeCurrent(display, draw, read, context);
}

EGLBoolean simple::swapBuffers(EGLDisplay display, EGLSurface surface) {
    return hijack::eglSwapBuffers(display, surface);
}

EGLBoolean simple::swapBuffersWithDamageKHR(EGLDisplay display, EGLSurface surface,
                                            const EGLint* rects, EGLint count) {
    return hijack::eglSwapBuffersWithDamageKHR(display, surface, rects, count);
}

EGLBoolean simple::swapBuffersWithDamageEXT(EGLDisplay display, EGLSurface surface,
                                            const EGLint* rects, EGLint count) {
    return hijack::eglSwapBuffersWithDamageEXT(display, surface, rects, count);
}

namespace {

struct MakeCurrentJob {
    EGLBoolean* result;
    EGLDisplay display;
    EGLSurface draw;
    EGLSurface read;
    EGLContext context;
};

void makeCurrentJob(void* args) {
    auto* a = static_cast<MakeCurrentJob*>(args);
    EGLBoolean result = hijack::eglMakeCurrent(a->display, a->draw, a->read, a->context);
    if (a->result) *a->result = result;
}

// Has the worker make the call, and waits for it.
EGLBoolean makeCurrentOnWorker(DeferredExecutor* executor, EGLDisplay display, EGLSurface draw,
                               EGLSurface read, EGLContext context) {
    if (core::context.gameConfig.fallback) DeferredExecutor::raiseFallback();
    EGLBoolean result = EGL_FALSE;
    executor->queue.record(&makeCurrentJob, MakeCurrentJob{&result, display, draw, read, context});
    executor->queue.flushAndWait(gles::id::eglMakeCurrent);
    return result;
}

}  // namespace

EGLContext deferred::createContext(EGLDisplay display, EGLConfig config, EGLContext share,
                                   const EGLint* attributes) {
    EGLContext context = hijack::eglCreateContext(display, config, share, attributes);
    if (context == EGL_NO_CONTEXT) return EGL_NO_CONTEXT;
    // The second context shares the first one's objects: the game's thread
    // holds it while the worker holds the first.
    EGLContext second = hijack::eglCreateContext(display, config, context, attributes);
    if (second == EGL_NO_CONTEXT) {
        hijack::eglDestroyContext(display, context);
        return EGL_NO_CONTEXT;
    }
    auto renderContext = newRenderContext(display, context, second);
    if (!renderContext) {
        hijack::eglDestroyContext(display, second);
        hijack::eglDestroyContext(display, context);
        return EGL_NO_CONTEXT;
    }
    try {
        insertRenderContext(context, std::move(renderContext), share);
    } catch (const std::bad_alloc&) {
        hijack::eglDestroyContext(display, second);
        hijack::eglDestroyContext(display, context);
        return EGL_NO_CONTEXT;
    }
    return context;
}

EGLBoolean deferred::destroyContext(EGLDisplay display, EGLContext context) {
    EGLContext sharedContext;
    {
        std::lock_guard<std::mutex> lock(core::context.renderContextMutex);
        auto it = core::context.renderContexts.find(context);
        if (it == core::context.renderContexts.end()) {
            // Unknown to the layer: the lock is released before the driver call.
            sharedContext = EGL_NO_CONTEXT;
        } else {
            RenderContext* renderContext = it->second.renderContext.get();
            sharedContext = renderContext->sharedContext;
            it->second.current = false;
            if (tlglobals.renderContext == renderContext)
                tlglobals = ThreadGlobals{nullptr, nullptr};
            // Meant for a context still current on another thread; since the
            // flag was cleared just above, this never runs, and such a context
            // is destroyed at once.
            if (it->second.current) {
                renderContext->pendingDestroy = true;
                return EGL_TRUE;
            }
            // Deleting the render context drains and ends its worker.
            core::context.renderContexts.erase(it);
        }
    }
    if (sharedContext != EGL_NO_CONTEXT) hijack::eglDestroyContext(display, sharedContext);
    return hijack::eglDestroyContext(display, context);
}

EGLBoolean deferred::makeCurrent(EGLDisplay display, EGLSurface draw, EGLSurface read,
                                 EGLContext context) {
    if (context == EGL_NO_CONTEXT) {
        if (DeferredExecutor* executor = tlglobals.executor) {
            if (runtimeMode() == MODE_IMMEDIATE)
                hijack::eglMakeCurrent(display, draw, read, EGL_NO_CONTEXT);
            else
                makeCurrentOnWorker(executor, display, draw, read, EGL_NO_CONTEXT);
        }
        EGLContext bound = tlglobals.renderContext ? tlglobals.renderContext->context : nullptr;
        // A loading thread or the platform's own renderer may create or
        // destroy a context meanwhile; unbinds are rare, so the lock is cheap.
        if (bound) {
            std::lock_guard<std::mutex> lock(core::context.renderContextMutex);
            auto it = core::context.renderContexts.find(bound);
            if (it != core::context.renderContexts.end()) {
                it->second.current = false;
                if (it->second.renderContext->pendingDestroy) {
                    hijack::eglDestroyContext(display, bound);
                    core::context.renderContexts.erase(it);
                }
            }
        }
        tlglobals = ThreadGlobals{nullptr, nullptr};
        return hijack::eglMakeCurrent(display, draw, read, EGL_NO_CONTEXT);
    }

    // A surface can be current on one thread only: the worker lets go of it
    // before another context takes it.
    RenderContext* previous = tlglobals.renderContext;
    if (runtimeMode() == MODE_DEFERRED && previous && previous->executor &&
        (previous->readSurface == read || previous->drawSurface == draw)) {
        makeCurrentOnWorker(previous->executor.get(), display, EGL_NO_SURFACE, EGL_NO_SURFACE,
                            previous->context);
    }

    RenderContext* renderContext;
    {
        std::lock_guard<std::mutex> lock(core::context.renderContextMutex);
        auto it = core::context.renderContexts.find(context);
        if (it == core::context.renderContexts.end())
            return hijack::eglMakeCurrent(display, draw, read, context);
        it->second.current = true;
        renderContext = it->second.renderContext.get();
    }
    renderContext->drawSurface = draw;
    renderContext->readSurface = read;
    tlglobals.renderContext = renderContext;
    tlglobals.executor = renderContext->executor.get();
    if (runtimeMode() == MODE_DEFERRED || runtimeMode() == MODE_DEFERRED_INLINE)
        DeferredExecutor::guardRecordingThread();

    if (runtimeMode() == MODE_IMMEDIATE)
        return hijack::eglMakeCurrent(display, draw, read, renderContext->context);
    hijack::eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, renderContext->sharedContext);
    if (runtimeMode() == MODE_DEFERRED_INLINE && hijack::eglGetCurrentContext() != context)
        hijack::eglMakeCurrent(display, draw, read, renderContext->context);
    // The mode may have switched to immediate meanwhile.
    if (runtimeMode() == MODE_IMMEDIATE)
        return hijack::eglMakeCurrent(display, draw, read, renderContext->context);
    return makeCurrentOnWorker(renderContext->executor.get(), display, draw, read,
                               renderContext->context);
}

EGLBoolean deferred::swapBuffers(EGLDisplay display, EGLSurface surface) {
    auto* executor = static_cast<Executor*>(tlglobals.executor);
    if (!executor) return hijack::eglSwapBuffers(display, surface);
    executor->handler<ErrorHandler>().onSwap(display, surface);
    return executor->swapBuffers(display, surface);
}

EGLBoolean deferred::swapBuffersWithDamageKHR(EGLDisplay display, EGLSurface surface, const EGLint*,
                                              EGLint) {
    return swapBuffers(display, surface);
}

EGLBoolean deferred::swapBuffersWithDamageEXT(EGLDisplay display, EGLSurface surface, const EGLint*,
                                              EGLint) {
    return swapBuffers(display, surface);
}

EGLContext deferred::getCurrentContext() {
    if (tlglobals.renderContext && tlglobals.renderContext->context != EGL_NO_CONTEXT)
        return tlglobals.renderContext->context;
    return hijack::eglGetCurrentContext();
}

EGLSurface deferred::getCurrentSurface(EGLint which) {
    if (tlglobals.renderContext) {
        if (which == EGL_DRAW) return tlglobals.renderContext->drawSurface;
        if (which == EGL_READ) return tlglobals.renderContext->readSurface;
    }
    return hijack::eglGetCurrentSurface(which);
}

}  // namespace egl

}  // namespace velour::core
