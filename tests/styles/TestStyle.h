#pragma once

// A trivial style for the tests, written against the public header alone: it
// mixes the frame towards its inverse by `strength` (0 leaves it as it is).

#include <string>

#include "velour/styles/StyleManager.h"

namespace velour::test {

class TestStyle : public styles::Style {
  public:
    TestStyle(styles::StyleManager* manager, const std::string& name, float strength,
              bool fetch = true)
        : Style(manager, name), strength(strength), fetch(fetch) {}

    std::string getVertexShaderSource(styles::ShaderFramebufferType) override {
        return "#version 300 es\n"
               "layout(location = 0) in vec3 position;\n"
               "layout(location = 1) in vec2 texCoord;\n"
               "out vec2 uv;\n"
               "void main() { uv = texCoord; gl_Position = vec4(position, 1.0); }\n";
    }

    std::string getFragmentShaderSource(styles::ShaderFramebufferType type) override {
        if (!fragmentOverride.empty()) return fragmentOverride;
        const char* effect = "color = vec4(mix(c.rgb, 1.0 - c.rgb, strength), c.a);\n";
        switch (type) {
            case styles::SHADER_FRAMEBUFFER_EXT_FETCH:
                return std::string("#version 300 es\n"
                                   "#extension GL_EXT_shader_framebuffer_fetch : require\n"
                                   "precision highp float;\n"
                                   "uniform float strength;\n"
                                   "inout vec4 color;\n"
                                   "void main() { vec4 c = color; ") +
                       effect + "}\n";
            case styles::SHADER_FRAMEBUFFER_ARM_FETCH:
                return std::string("#version 300 es\n"
                                   "#extension GL_ARM_shader_framebuffer_fetch : require\n"
                                   "precision highp float;\n"
                                   "uniform float strength;\n"
                                   "out vec4 color;\n"
                                   "void main() { vec4 c = gl_LastFragColorARM; ") +
                       effect + "}\n";
            default:
                return std::string("#version 300 es\n"
                                   "precision highp float;\n"
                                   "uniform sampler2D frame;\n"
                                   "uniform float strength;\n"
                                   "in vec2 uv;\n"
                                   "out vec4 color;\n"
                                   "void main() { vec4 c = texture(frame, uv); ") +
                       effect + "}\n";
        }
    }

    void onPreRender() override { manager->setUniform1f("strength", strength); }
    bool hasFetchFramebufferSupport() const override { return fetch; }

    // A fragment shader to use instead of the style's own, for failure tests.
    std::string fragmentOverride;

  private:
    float strength;
    bool fetch;
};

}  // namespace velour::test
