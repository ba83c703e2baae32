#pragma once

#include <map>
#include <set>
#include <string>

#include "drv/Program.h"
#include "drv/Quad.h"
#include "styles/StyleRenderer.h"
#include "velour/styles/StyleManager.h"

namespace velour::styles {

class __attribute__((visibility("hidden"))) StyleManager::Impl {
  public:
    Impl() = default;
    // Closes the divider: the owning context must be current.
    ~Impl();

    // Sets the renderer's quad to the half of the screen (and of the captured
    // frame) that shows the effect.
    void updateRenderMode();
    // Builds the black bar drawn between the halves in split-screen modes.
    void buildDivider();
    // The current read surface's size, or the viewport's.
    void updateSurfaceSize();

    int width = 1024;
    int height = 1024;
    RenderMode renderMode = RENDER_MODE_FULL;
    std::string activeStyleName;
    std::map<std::string, Style*> styles;
    StyleRenderer renderer;
    drv::Quad dividerQuad;
    drv::Program dividerProgram;
    // The effect word whose style failed to build: skipped until the word
    // changes (see renderGuarded).
    std::string failedEffect;
    // Styles whose failure has been logged: once each.
    std::set<std::string> reportedFailures;
};

}  // namespace velour::styles
