#include "drv/FramebufferAttachmentCapturer.h"

#include <stdexcept>
#include <string>

#include "drv/StateStore.h"

namespace velour::drv {

namespace {

// The current read surface's size, or the viewport's when EGL cannot say.
void surfaceSize(uint32_t& width, uint32_t& height) {
    const EGLDisplay display = drv::eglGetCurrentDisplay();
    const EGLSurface surface = drv::eglGetCurrentSurface(EGL_READ);
    EGLint w = 0, h = 0;
    if (drv::eglQuerySurface(display, surface, EGL_WIDTH, &w)) {
        drv::eglQuerySurface(display, surface, EGL_HEIGHT, &h);
    } else {
        GLint viewport[4] = {};
        drv::glGetIntegerv(GL_VIEWPORT, viewport);
        w = viewport[2];
        h = viewport[3];
    }
    width = static_cast<uint32_t>(w);
    height = static_cast<uint32_t>(h);
}

}  // namespace

FramebufferAttachmentCapturer::FramebufferAttachmentCapturer() : attachment(GL_COLOR_ATTACHMENT0) {}

FramebufferAttachmentCapturer::~FramebufferAttachmentCapturer() {
    for (auto& entry : cache) entry.second.texture.close();
}

Texture2D* FramebufferAttachmentCapturer::capture() {
    GLint framebuffer = 0;
    drv::glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &framebuffer);
    const TextureKey key = getFramebufferKey(static_cast<unsigned>(framebuffer));
    if (key.format == 0) return nullptr;
    Texture2D* texture = getTexture(key);

    StateStore outer(64, true);
    outer.storeActiveTexture();
    outer.storeReadFramebuffer();
    drv::glBindFramebuffer(GL_READ_FRAMEBUFFER, static_cast<GLuint>(framebuffer));
    drv::glActiveTexture(GL_TEXTURE0);
    {
        StateStore inner(64, true);
        inner.storeTextureBinding2D();
        texture->bind();
        texture->copyTexSubImage2D(0, 0, 0, 0, 0, static_cast<GLsizei>(key.width),
                                   static_cast<GLsizei>(key.height));
    }
    return texture;
}

TextureKey FramebufferAttachmentCapturer::getFramebufferKey(unsigned framebuffer) {
    return framebuffer != 0 ? getObjectFramebufferKey() : getDefaultFramebufferKey();
}

TextureKey FramebufferAttachmentCapturer::getDefaultFramebufferKey() {
    const bool depthOrStencil =
        attachment == GL_DEPTH_ATTACHMENT || attachment == GL_STENCIL_ATTACHMENT;
    TextureKey key{getDrawFramebufferFormat(depthOrStencil ? attachment : GL_BACK), 0, 0};
    surfaceSize(key.width, key.height);
    return key;
}

TextureKey FramebufferAttachmentCapturer::getObjectFramebufferKey() {
    TextureKey key{getDrawFramebufferFormat(attachment), 0, 0};
    GLint type = GL_NONE;
    drv::glGetFramebufferAttachmentParameteriv(GL_DRAW_FRAMEBUFFER, attachment,
                                               GL_FRAMEBUFFER_ATTACHMENT_OBJECT_TYPE, &type);
    GLint object = 0;
    GLint width = 0, height = 0;
    if (type == GL_TEXTURE) {
        GLint level = 0;
        drv::glGetFramebufferAttachmentParameteriv(GL_DRAW_FRAMEBUFFER, attachment,
                                                   GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &object);
        drv::glGetFramebufferAttachmentParameteriv(GL_DRAW_FRAMEBUFFER, attachment,
                                                   GL_FRAMEBUFFER_ATTACHMENT_TEXTURE_LEVEL, &level);
        StateStore store;
        store.storeTextureBinding2D();
        drv::glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(object));
        drv::glGetTexLevelParameteriv(GL_TEXTURE_2D, level, GL_TEXTURE_WIDTH, &width);
        drv::glGetTexLevelParameteriv(GL_TEXTURE_2D, level, GL_TEXTURE_HEIGHT, &height);
        store.restore();
    } else if (type == GL_RENDERBUFFER) {
        drv::glGetFramebufferAttachmentParameteriv(GL_DRAW_FRAMEBUFFER, attachment,
                                                   GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &object);
        StateStore store;
        store.storeRenderbufferBinding();
        drv::glBindRenderbuffer(GL_RENDERBUFFER, static_cast<GLuint>(object));
        drv::glGetRenderbufferParameteriv(GL_RENDERBUFFER, GL_RENDERBUFFER_WIDTH, &width);
        drv::glGetRenderbufferParameteriv(GL_RENDERBUFFER, GL_RENDERBUFFER_HEIGHT, &height);
        store.restore();
    }
    key.width = static_cast<uint32_t>(width);
    key.height = static_cast<uint32_t>(height);
    return key;
}

Texture2D* FramebufferAttachmentCapturer::getTexture(const TextureKey& key) {
    const auto found = cache.find(key);
    if (found == cache.end()) return createTexture(key);
    found->second.lastUse = std::chrono::steady_clock::now();
    return &found->second.texture;
}

Texture2D* FramebufferAttachmentCapturer::createTexture(const TextureKey& key) {
    StateStore store(64, true);
    store.storeTextureBinding2D();
    store.storeActiveTexture();

    AttachmentCapturer& entry = cache[key];
    Texture2D& texture = entry.texture;
    texture.setInternalFormat(key.format);
    texture.setWidth(static_cast<int>(key.width));
    texture.setHeight(static_cast<int>(key.height));
    texture.open();
    texture.bind();
    texture.texParameteri(GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    texture.texParameteri(GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    texture.storage2D();
    const TimePoint now = std::chrono::steady_clock::now();
    entry.lastUse = now;

    if (++texturesCreated % EVICTION_PERIOD == 0) cleanOldTextures(now - MAX_AGE);
    return &texture;
}

void FramebufferAttachmentCapturer::cleanOldTextures(TimePoint cutoff) {
    for (auto it = cache.begin(); it != cache.end();) {
        if (it->second.lastUse < cutoff) {
            it->second.texture.close();
            it = cache.erase(it);
        } else {
            ++it;
        }
    }
}

GLenum FramebufferAttachmentCapturer::getDrawFramebufferFormat(GLenum which) {
    GLint bits = 0;
    if (which == GL_STENCIL_ATTACHMENT) {
        drv::glGetFramebufferAttachmentParameteriv(GL_DRAW_FRAMEBUFFER, GL_STENCIL,
                                                   GL_FRAMEBUFFER_ATTACHMENT_STENCIL_SIZE, &bits);
        return getStencilFormat(bits);
    }
    if (which == GL_DEPTH_ATTACHMENT) {
        drv::glGetFramebufferAttachmentParameteriv(GL_DRAW_FRAMEBUFFER, GL_DEPTH,
                                                   GL_FRAMEBUFFER_ATTACHMENT_DEPTH_SIZE, &bits);
        return getDepthFormat(bits);
    }
    return getDrawFramebufferColorFormat(which);
}

GLenum FramebufferAttachmentCapturer::getDrawFramebufferColorFormat(GLenum which) {
    // Sizes of an empty attachment are an error to ask for, which the game
    // would read: an empty attachment has no format.
    GLint type = GL_NONE;
    drv::glGetFramebufferAttachmentParameteriv(GL_DRAW_FRAMEBUFFER, which,
                                               GL_FRAMEBUFFER_ATTACHMENT_OBJECT_TYPE, &type);
    if (type == GL_NONE) return 0;
    static constexpr GLenum SIZES[] = {
        GL_FRAMEBUFFER_ATTACHMENT_RED_SIZE, GL_FRAMEBUFFER_ATTACHMENT_GREEN_SIZE,
        GL_FRAMEBUFFER_ATTACHMENT_BLUE_SIZE, GL_FRAMEBUFFER_ATTACHMENT_ALPHA_SIZE};
    GLint bits[4] = {};
    for (int i = 0; i < 4; ++i)
        drv::glGetFramebufferAttachmentParameteriv(GL_DRAW_FRAMEBUFFER, which, SIZES[i], &bits[i]);
    GLint componentType = 0;
    drv::glGetFramebufferAttachmentParameteriv(
        GL_DRAW_FRAMEBUFFER, which, GL_FRAMEBUFFER_ATTACHMENT_COMPONENT_TYPE, &componentType);
    return Texture::getSizedColorFormat(static_cast<GLenum>(componentType), bits[0], bits[1],
                                        bits[2], bits[3]);
}

GLenum FramebufferAttachmentCapturer::getDepthFormat(int bits) {
    const GLenum format = Texture::getDepthFormat(bits);
    if (format == 0)
        throw std::runtime_error("src/drv/FramebufferAttachmentCapturer: Unsupported depth size " +
                                 std::to_string(bits));
    return format;
}

GLenum FramebufferAttachmentCapturer::getStencilFormat(int bits) {
    const GLenum format = Texture::getStencilFormat(bits);
    if (format == 0)
        throw std::runtime_error(
            "src/drv/FramebufferAttachmentCapturer: Unsupported stencil size " +
            std::to_string(bits));
    return format;
}

}  // namespace velour::drv
