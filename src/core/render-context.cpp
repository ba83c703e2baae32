#include "core/render-context.h"

#include <dlfcn.h>

#include <string>

#include "core/context.h"
#include "core/log.h"
#include "games/GameGLHooks.h"
#include "platform/paths.h"
#include "velour/entry_points.h"

namespace velour::core {

thread_local ThreadGlobals tlglobals{nullptr, nullptr};

namespace {

// Entry of the effect library; null until registerTriggers finds it.
void (*tesselInitialize)(void* styleManager) = nullptr;

const char TESSEL_LIBRARY[] = "libtessel.so";

std::unique_ptr<RenderContext> newRenderContext(EGLDisplay display, EGLContext context,
                                                EGLContext sharedContext) {
    return RenderContext::create({display, context, sharedContext});
}

// Inserts the render context for the game's handle; an old entry under the
// same handle is replaced.
void insertRenderContext(EGLContext context, std::unique_ptr<RenderContext> renderContext) {
    std::lock_guard<std::mutex> lock(core::context.renderContextMutex);
    auto& entry = core::context.renderContexts[context];
    entry.renderContext = std::move(renderContext);
    entry.current = false;
}

}  // namespace

std::unique_ptr<RenderContext> RenderContext::create(const CreationParameters& parameters) {
    auto renderContext = std::make_unique<RenderContext>();
    renderContext->display = parameters.display;
    renderContext->context = parameters.context;
    renderContext->sharedContext = parameters.sharedContext;
    if (!renderContext->init()) return nullptr;
    return renderContext;
}

bool RenderContext::init() {
    // The hook and the style manager attach here once the effect library has
    // given its entry; without it the context has neither.
    return context != EGL_NO_CONTEXT;
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
    tesselInitialize = reinterpret_cast<void (*)(void*)>(dlsym(handle, "Tessel_Initialize"));
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
        insertRenderContext(context, std::move(renderContext));
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
