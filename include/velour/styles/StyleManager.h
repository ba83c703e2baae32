#pragma once

// The exported surface that effect libraries are built against: register
// styles, set uniforms from a style's onPreRender, choose the split-screen mode.

#include <string>

#include "velour/export.h"
#include "velour/styles/Style.h"

namespace velour::styles {

// Int-sized, so that any value setRenderMode is given stays representable.
enum RenderMode : int {
    RENDER_MODE_LEFT_HALF = 0,
    RENDER_MODE_RIGHT_HALF = 1,
    RENDER_MODE_FULL = 2,
};

// "left_half", "left", "half", "right_half", "right", "full" or "" in any case;
// any other word gives full.
VELOUR_EXPORT RenderMode toRenderMode(const std::string& word);
VELOUR_EXPORT std::string toString(RenderMode mode);

class VELOUR_EXPORT StyleManager {
  public:
    StyleManager();
    virtual ~StyleManager();
    StyleManager(const StyleManager&) = delete;
    StyleManager& operator=(const StyleManager&) = delete;

    // Not owned: the style must outlive the manager. Null is ignored; a style
    // of a registered name replaces the old one.
    void addStyle(Style* style);
    void setActiveStyle(const std::string& name);
    // Draws the active style into the bound framebuffer, game state untouched.
    void render();
    RenderMode getRenderMode() const;
    void setRenderMode(int mode);

    // For a style's onPreRender: set a uniform of the active program.
    void setUniform1f(const std::string& name, float x);
    void setUniform2f(const std::string& name, float x, float y);
    void setUniform3f(const std::string& name, float x, float y, float z);
    void setUniform4f(const std::string& name, float x, float y, float z, float w);

    class Impl;

  private:
    friend void renderGuarded(StyleManager& manager);

    Impl* impl;
};

}  // namespace velour::styles

// The one entry of an effect library.
extern "C" void Tessel_Initialize(velour::styles::StyleManager* manager);
