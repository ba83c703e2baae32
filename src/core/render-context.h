#pragma once

#include <EGL/egl.h>

#include <memory>

namespace velour::core {

// The layer's shadow of one EGL context that the game created.
class RenderContext {
  public:
    struct CreationParameters {
        EGLDisplay display;
        EGLContext context;
        // The layer's second context in the deferred modes; the game's share
        // context in the hooks-only modes.
        EGLContext sharedContext;
    };

    static std::unique_ptr<RenderContext> create(const CreationParameters& parameters);

    RenderContext() = default;
    ~RenderContext() = default;
    RenderContext(const RenderContext&) = delete;
    RenderContext& operator=(const RenderContext&) = delete;

    bool init();

    // The executor, the game hook and the style manager join this record
    // with the deferred engine and the effects.
    EGLSurface drawSurface = EGL_NO_SURFACE;
    EGLSurface readSurface = EGL_NO_SURFACE;
    bool pendingDestroy = false;
    EGLDisplay display = EGL_NO_DISPLAY;
    EGLContext context = EGL_NO_CONTEXT;
    EGLContext sharedContext = EGL_NO_CONTEXT;
};

// Finds the effect library and lets the configured game install its thunks.
void registerTriggers();

// The EGL entry points that the layer answers itself, by variant. The simple
// ones serve the hooks-only modes; the modes with an executor use the deferred
// ones where they exist and, until the executor is there, the simple ones.
namespace egl {
namespace simple {
EGLContext createContext(EGLDisplay display, EGLConfig config, EGLContext share,
                         const EGLint* attributes);
EGLBoolean destroyContext(EGLDisplay display, EGLContext context);
EGLBoolean makeCurrent(EGLDisplay display, EGLSurface draw, EGLSurface read, EGLContext context);
EGLBoolean swapBuffers(EGLDisplay display, EGLSurface surface);
EGLBoolean swapBuffersWithDamageKHR(EGLDisplay display, EGLSurface surface, const EGLint* rects,
                                    EGLint count);
EGLBoolean swapBuffersWithDamageEXT(EGLDisplay display, EGLSurface surface, const EGLint* rects,
                                    EGLint count);
}  // namespace simple
namespace deferred {
// Answered from the thread's own record: games ask often, and the layer's
// second context is never shown to the game.
EGLContext getCurrentContext();
EGLSurface getCurrentSurface(EGLint which);
}  // namespace deferred
}  // namespace egl

}  // namespace velour::core
