#pragma once

#include <EGL/egl.h>

#include <memory>
#include <unordered_set>

#include "core/deferred_executor/MemTracker.h"
#include "games/GameGLHooks.h"
#include "velour/styles/StyleManager.h"
#include "velour/utils/SimpleProperty.h"

namespace velour::core {

class Executor;

// Draws the active style when the frame reaches the pass the game's hook can
// tell: the start of its user interface, else the end of the frame.
class RenderEffectOnPass : public utils::ChangeListener<games::Pass> {
  public:
    RenderEffectOnPass(styles::StyleManager* styleManager,
                       std::unordered_set<games::Pass> detectablePasses);
    void changed(const utils::ChangeEvent<games::Pass>& event) override;

    games::Pass getTargetPass() const { return targetPass; }

  private:
    std::unordered_set<games::Pass> detectablePasses;
    styles::StyleManager* styleManager;
    games::Pass targetPass;
};

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

    RenderContext();
    ~RenderContext();
    RenderContext(const RenderContext&) = delete;
    RenderContext& operator=(const RenderContext&) = delete;

    bool init();

    EGLSurface drawSurface = EGL_NO_SURFACE;
    EGLSurface readSurface = EGL_NO_SURFACE;
    // Null when no effect library is present.
    std::unique_ptr<games::GameGLHooks> hook;
    bool pendingDestroy = false;
    EGLDisplay display = EGL_NO_DISPLAY;
    EGLContext context = EGL_NO_CONTEXT;
    EGLContext sharedContext = EGL_NO_CONTEXT;
    // Null in the hooks-only modes.
    MemTracker<MemCategory::Executor>::unique_ptr<Executor> executor;
    // Null when no effect library is present.
    std::unique_ptr<styles::StyleManager> styleManager;
};

// Finds the effect library and lets the configured game install its thunks.
void registerTriggers();

// The EGL entry points that the layer answers itself, by variant: the simple
// ones serve the hooks-only modes, the deferred ones the modes with an executor.
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
EGLContext createContext(EGLDisplay display, EGLConfig config, EGLContext share,
                         const EGLint* attributes);
EGLBoolean destroyContext(EGLDisplay display, EGLContext context);
EGLBoolean makeCurrent(EGLDisplay display, EGLSurface draw, EGLSurface read, EGLContext context);
// Answered from the thread's own record: games ask often, and the layer's
// second context is never shown to the game.
EGLContext getCurrentContext();
EGLSurface getCurrentSurface(EGLint which);
EGLBoolean swapBuffers(EGLDisplay display, EGLSurface surface);
// The damage is dropped: the frame is always presented whole.
EGLBoolean swapBuffersWithDamageKHR(EGLDisplay display, EGLSurface surface, const EGLint* rects,
                                    EGLint count);
EGLBoolean swapBuffersWithDamageEXT(EGLDisplay display, EGLSurface surface, const EGLint* rects,
                                    EGLint count);
}  // namespace deferred
}  // namespace egl

}  // namespace velour::core
