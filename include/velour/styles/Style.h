#pragma once

// The contract of a full-screen post effect. An effect library derives from
// Style and registers its objects with StyleManager::addStyle from its
// Tessel_Initialize. The virtual slot order is part of the library interface:
// libraries built against an older header must keep working.

#include <cstdint>
#include <string>
#include <vector>

#include "velour/export.h"

namespace velour::styles {

class StyleManager;

// How a style's fragment shader reads the game's frame.
enum ShaderFramebufferType {
    // Samples the copied frame bound to texture unit 0.
    SHADER_FRAMEBUFFER_NO_FETCH = 0,
    // Reads the destination with GL_EXT_shader_framebuffer_fetch.
    SHADER_FRAMEBUFFER_EXT_FETCH = 1,
    // Reads the destination with GL_ARM_shader_framebuffer_fetch.
    SHADER_FRAMEBUFFER_ARM_FETCH = 2,
};

class VELOUR_EXPORT Style {
  public:
    Style(StyleManager* manager, const std::string& name);
    virtual ~Style();

    const std::string& getName() const { return name; }

    // Shader texts for the given way of reading the frame. Position comes on
    // attribute location 0, texture coordinate on location 1.
    virtual std::string getFragmentShaderSource(ShaderFramebufferType type) = 0;
    virtual std::string getVertexShaderSource(ShaderFramebufferType type) = 0;
    // Called with the style's program current, right before the quad is drawn;
    // set uniforms here through the manager's setUniform functions.
    virtual void onPreRender();
    virtual bool hasBinaryShader() const;
    // The binary format in the first four bytes (machine order), then the
    // program binary.
    virtual std::vector<uint8_t> getShaderBinary();
    virtual bool hasFetchFramebufferSupport() const;

  protected:
    StyleManager* manager;
    std::string name;
};

}  // namespace velour::styles
