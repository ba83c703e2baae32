#pragma once

// Draws the active style over what the game has drawn so far into the bound
// framebuffer, with every piece of state it touches saved and restored. The
// frame reaches the shader by framebuffer fetch, or as a copied texture on
// unit 0.

#include <string>

#include "drv/FramebufferAttachmentCapturer.h"
#include "drv/Program.h"
#include "drv/Quad.h"
#include "velour/styles/Style.h"
#include "velour/utils/JsonParserBase.h"

namespace velour::styles {

class StyleRenderer {
  public:
    // Reads the filter configuration.
    StyleRenderer();
    // Closes the program and quad: the owning context must be current.
    virtual ~StyleRenderer();
    StyleRenderer(const StyleRenderer&) = delete;
    StyleRenderer& operator=(const StyleRenderer&) = delete;

    // Null stops all drawing and leaves the old program as it is; a style is
    // loaded on the next render.
    void loadStyle(Style* style);
    // Throws the toolkit's exceptions when the style's shaders do not compile
    // or link.
    void render();
    drv::Quad& getQuad() { return quad; }
    // The active program's uniform, when it has one; for a style's onPreRender.
    void setUniform1f(const std::string& name, float x);
    void setUniform2f(const std::string& name, float x, float y);
    void setUniform3f(const std::string& name, float x, float y, float z);
    void setUniform4f(const std::string& name, float x, float y, float z, float w);

    // The steps of render.
    void renderDefault();
    void renderFetch();
    void loadBinaryShaders();
    void loadSourceShaders(ShaderFramebufferType type);

    // The way of reading the frame that the driver offers.
    static ShaderFramebufferType getFramebufferType();

  private:
    // Uniform location in the open program, or -1.
    GLint uniformLocation(const std::string& name) const;
    void applyPixelizeParameters();

    drv::Program program;
    drv::Quad quad;
    drv::FramebufferAttachmentCapturer capturer;
    Style* style = nullptr;
    bool loadRequired = true;
    utils::JsonParser filterConfig;
};

}  // namespace velour::styles
