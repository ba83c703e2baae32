#pragma once

#include "core/context.h"
#include "core/render-context.h"
#include "games/GameGLHooks.h"

namespace velour::games {

// The hook of the render context bound on this thread, or null: thunks do
// only their driver call on a thread the layer does not know.
inline GameGLHooks* currentHook() {
    core::RenderContext* renderContext = core::tlglobals.renderContext;
    return renderContext ? renderContext->hook.get() : nullptr;
}

}  // namespace velour::games
