#include "velour/styles/StyleManager.h"

#include <unordered_map>

#include "ctrl/ctrl.h"
#include "drv/StateStore.h"
#include "styles/StyleManagerImpl.h"
#include "velour/utils/Strings.h"

namespace velour::styles {

namespace {

const char* const DIVIDER_VERTEX_SHADER =
    "#version 320 es\nlayout(location=0)in vec3 v;void main(){gl_Position=vec4(v.x,v.y,v.z,1.);}";
const char* const DIVIDER_FRAGMENT_SHADER =
    "#version 320 es\nprecision mediump float;\n\nout vec4 FragColor;\n\nvoid main()\n{\nFragColor "
    "= vec4(0.0f, 0.0f, 0.0f, 1.0f);\n}\n";

// Half the divider's width, in pixels.
constexpr float DIVIDER_HALF_WIDTH = 6.0f;

}  // namespace

RenderMode toRenderMode(const std::string& word) {
    static const std::unordered_map<std::string, RenderMode> WORDS = {
        {"left_half", RENDER_MODE_LEFT_HALF},
        {"left", RENDER_MODE_LEFT_HALF},
        {"half", RENDER_MODE_LEFT_HALF},
        {"right_half", RENDER_MODE_RIGHT_HALF},
        {"right", RENDER_MODE_RIGHT_HALF},
        {"full", RENDER_MODE_FULL},
        {"", RENDER_MODE_FULL}};
    const auto found = WORDS.find(utils::Strings::toLowerCase(word));
    return found == WORDS.end() ? RENDER_MODE_FULL : found->second;
}

std::string toString(RenderMode mode) {
    switch (mode) {
        case RENDER_MODE_LEFT_HALF:
            return "left_half";
        case RENDER_MODE_RIGHT_HALF:
            return "right_half";
        default:
            return "full";
    }
}

StyleManager::Impl::~Impl() {
    dividerProgram.close();
    dividerQuad.close();
}

void StyleManager::Impl::updateRenderMode() {
    drv::Quad& quad = renderer.getQuad();
    float vertexMinX = -1.0f, vertexMaxX = 1.0f, textureMinX = 0.0f, textureMaxX = 1.0f;
    if (renderMode == RENDER_MODE_LEFT_HALF) {
        vertexMaxX = 0.0f;
        textureMaxX = 0.5f;
    } else if (renderMode == RENDER_MODE_RIGHT_HALF) {
        vertexMinX = 0.0f;
        textureMinX = 0.5f;
    }
    quad.setVertexMinX(vertexMinX);
    quad.setVertexMaxX(vertexMaxX);
    quad.setTextureMinX(textureMinX);
    quad.setTextureMaxX(textureMaxX);
    quad.setVertexMinY(-1.0f);
    quad.setVertexMaxY(1.0f);
    quad.setTextureMinY(0.0f);
    quad.setTextureMaxY(1.0f);
    quad.reopen();
}

void StyleManager::Impl::updateSurfaceSize() {
    const EGLDisplay display = drv::eglGetCurrentDisplay();
    const EGLSurface surface = drv::eglGetCurrentSurface(EGL_READ);
    EGLint surfaceWidth = 0, surfaceHeight = 0;
    if (drv::eglQuerySurface(display, surface, EGL_WIDTH, &surfaceWidth)) {
        drv::eglQuerySurface(display, surface, EGL_HEIGHT, &surfaceHeight);
    } else {
        GLint viewport[4] = {};
        drv::glGetIntegerv(GL_VIEWPORT, viewport);
        surfaceWidth = viewport[2];
        surfaceHeight = viewport[3];
    }
    width = surfaceWidth;
    height = surfaceHeight;
}

void StyleManager::Impl::buildDivider() {
    dividerProgram.link(DIVIDER_VERTEX_SHADER, DIVIDER_FRAGMENT_SHADER);
    updateSurfaceSize();
    dividerQuad.setVertexMinX(-DIVIDER_HALF_WIDTH / static_cast<float>(width));
    dividerQuad.setVertexMaxX(DIVIDER_HALF_WIDTH / static_cast<float>(width));
    dividerQuad.setVertexMinY(-1.0f);
    dividerQuad.setVertexMaxY(1.0f);
    dividerQuad.reopen();
}

StyleManager::StyleManager() : impl(new Impl) {}

StyleManager::~StyleManager() {
    delete impl;
}

void StyleManager::addStyle(Style* style) {
    if (!style) return;
    impl->styles[style->getName()] = style;
}

void StyleManager::setActiveStyle(const std::string& name) {
    if (name == impl->activeStyleName) return;
    impl->activeStyleName = name;
    impl->renderer.loadStyle(impl->styles[name]);
    impl->dividerProgram.close();
    impl->dividerQuad.close();
}

void StyleManager::render() {
    setActiveStyle(ctrl::getCurrentEffect());
    if (!impl->dividerProgram.isOpen() || !impl->dividerQuad.isOpen()) impl->buildDivider();
    impl->updateSurfaceSize();
    impl->renderer.render();
    if (impl->renderMode == RENDER_MODE_FULL) return;
    drv::StateStore store;
    store.storeProgram();
    store.storeVertexArrayBinding();
    impl->dividerProgram.use();
    impl->dividerQuad.draw();
    store.restore();
}

RenderMode StyleManager::getRenderMode() const {
    return impl->renderMode;
}

void StyleManager::setRenderMode(int mode) {
    impl->renderMode = static_cast<RenderMode>(mode);
    impl->updateRenderMode();
}

void StyleManager::setUniform1f(const std::string& name, float x) {
    impl->renderer.setUniform1f(name, x);
}

void StyleManager::setUniform2f(const std::string& name, float x, float y) {
    impl->renderer.setUniform2f(name, x, y);
}

void StyleManager::setUniform3f(const std::string& name, float x, float y, float z) {
    impl->renderer.setUniform3f(name, x, y, z);
}

void StyleManager::setUniform4f(const std::string& name, float x, float y, float z, float w) {
    impl->renderer.setUniform4f(name, x, y, z, w);
}

}  // namespace velour::styles
