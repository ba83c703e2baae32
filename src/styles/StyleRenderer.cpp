#include "styles/StyleRenderer.h"

#include <cstring>
#include <exception>
#include <vector>

#include "core/log.h"
#include "ctrl/ctrl.h"
#include "drv/GlUtils.h"
#include "drv/StateStore.h"

namespace velour::styles {

namespace {

// renderDefault stores 104 bytes: room for them from the start.
constexpr unsigned DRAW_STATE_CAPACITY = 128;

const char* const EXT_FETCH = "GL_EXT_shader_framebuffer_fetch";
const char* const ARM_FETCH = "GL_ARM_shader_framebuffer_fetch";

// The GL state the effect's draw must not inherit from the game.
void setDrawState() {
    drv::glDisable(GL_STENCIL_TEST);
    for (GLenum face : {GL_FRONT, GL_BACK}) {
        drv::glStencilFuncSeparate(face, GL_ALWAYS, 0, 255);
        drv::glStencilOpSeparate(face, GL_KEEP, GL_KEEP, GL_KEEP);
        drv::glStencilMaskSeparate(face, 255);
    }
    drv::glDisable(GL_BLEND);
    drv::glDisable(GL_SCISSOR_TEST);
    drv::glDisable(GL_CULL_FACE);
    drv::glDisable(GL_DEPTH_TEST);
}

void storeDrawState(drv::StateStore& store) {
    store.storeProgram();
    store.storeVertexArrayBinding();
    for (GLenum capability :
         {GL_BLEND, GL_SCISSOR_TEST, GL_CULL_FACE, GL_DEPTH_TEST, GL_STENCIL_TEST})
        store.storeEnabled(capability);
    store.storeStencilFunc();
    store.storeStencilMask();
    store.storeStencilOp();
}

}  // namespace

StyleRenderer::StyleRenderer()
    : filterConfig(ctrl::getUpdatedFilterConfig(), ctrl::getDefaultFilterConfig()) {
    if (!filterConfig.getRoot().is<picojson::object>())
        VELOUR_LOG(core::LOG_WARN, "styles: no usable filter configuration in %s, defaults apply",
                   ctrl::getDefaultFilterConfig().c_str());
}

StyleRenderer::~StyleRenderer() {
    program.close();
    quad.close();
}

void StyleRenderer::loadStyle(Style* next) {
    style = next;
    if (next) loadRequired = true;
}

ShaderFramebufferType StyleRenderer::getFramebufferType() {
    if (drv::hasGlExtension(EXT_FETCH)) return SHADER_FRAMEBUFFER_EXT_FETCH;
    if (drv::hasGlExtension(ARM_FETCH)) return SHADER_FRAMEBUFFER_ARM_FETCH;
    return SHADER_FRAMEBUFFER_NO_FETCH;
}

void StyleRenderer::render() {
    if (!style) return;
    if (loadRequired) {
        program.close();
        quad.close();
        if (style->hasBinaryShader())
            loadBinaryShaders();
        else
            loadSourceShaders(getFramebufferType());
        if (style->getName() == "pixelize") applyPixelizeParameters();
        quad.reopen();
        loadRequired = false;
    }
    // A refused binary leaves no program: nothing to draw with.
    if (!program.isOpen()) return;
    if (getFramebufferType() == SHADER_FRAMEBUFFER_NO_FETCH || !style->hasFetchFramebufferSupport())
        renderDefault();
    else
        renderFetch();
}

void StyleRenderer::loadSourceShaders(ShaderFramebufferType type) {
    program.link(style->getVertexShaderSource(type), style->getFragmentShaderSource(type));
}

void StyleRenderer::loadBinaryShaders() {
    const std::vector<uint8_t> binary = style->getShaderBinary();
    if (binary.size() <= sizeof(GLenum)) return;
    GLenum format = 0;
    std::memcpy(&format, binary.data(), sizeof format);
    program.open();
    drv::glProgramBinary(program.getName(), format, binary.data() + sizeof format,
                         static_cast<GLsizei>(binary.size() - sizeof format));
    // A format the driver does not know sets an error that is ours, not the game's.
    if (drv::glGetError) drv::glGetError();
    GLint status = 0;
    drv::glGetProgramiv(program.getName(), GL_LINK_STATUS, &status);
    if (status == 0) program.close();
}

void StyleRenderer::applyPixelizeParameters() {
    if (!program.isOpen()) return;
    try {
        for (const auto& [uniform, value] : filterConfig.getUniform1fData("pixelizeConfig")) {
            const GLint location = program.getUniformLocation(uniform);
            if (location != -1) drv::glProgramUniform1f(program.getName(), location, value);
        }
    } catch (const std::exception& error) {
        VELOUR_LOG(core::LOG_WARN, "styles: pixelizeConfig unreadable (%s), defaults apply",
                   error.what());
    }
}

void StyleRenderer::renderDefault() {
    drv::Texture2D* frame = capturer.capture();
    // A colour format no texture can take: the frame stays as the game drew it.
    if (!frame) return;
    drv::StateStore store(DRAW_STATE_CAPACITY);
    store.storeActiveTexture();
    storeDrawState(store);
    setDrawState();
    program.use();
    drv::glActiveTexture(GL_TEXTURE0);
    drv::StateStore textureStore;
    textureStore.storeTextureBinding2D();
    frame->bind();
    style->onPreRender();
    quad.draw();
    textureStore.restore();
    store.restore();
}

void StyleRenderer::renderFetch() {
    drv::StateStore store(DRAW_STATE_CAPACITY);
    storeDrawState(store);
    setDrawState();
    program.use();
    style->onPreRender();
    quad.draw();
    store.restore();
}

GLint StyleRenderer::uniformLocation(const std::string& name) const {
    return program.isOpen() ? program.getUniformLocation(name) : -1;
}

void StyleRenderer::setUniform1f(const std::string& name, float x) {
    const GLint location = uniformLocation(name);
    if (location != -1) drv::glUniform1f(location, x);
}

void StyleRenderer::setUniform2f(const std::string& name, float x, float y) {
    const GLint location = uniformLocation(name);
    if (location != -1) drv::glUniform2f(location, x, y);
}

void StyleRenderer::setUniform3f(const std::string& name, float x, float y, float z) {
    const GLint location = uniformLocation(name);
    if (location != -1) drv::glUniform3f(location, x, y, z);
}

void StyleRenderer::setUniform4f(const std::string& name, float x, float y, float z, float w) {
    const GLint location = uniformLocation(name);
    if (location != -1) drv::glUniform4f(location, x, y, z, w);
}

}  // namespace velour::styles
