#pragma once

// Copies the colour of the bound draw framebuffer into a texture the layer
// owns. Textures are cached by format and size; the cache is trimmed only when
// a new key turns up.

#include <chrono>
#include <cstdint>
#include <unordered_map>

#include "drv/Texture.h"

namespace velour::drv {

struct TextureKey {
    uint32_t format;  // a sized internal format
    uint32_t width;
    uint32_t height;

    bool operator==(const TextureKey& other) const {
        return format == other.format && width == other.width && height == other.height;
    }
};

struct TextureKeyHash {
    size_t operator()(const TextureKey& key) const {
        return ((5u * 59u + key.format) * 59u + key.width) * 59u + key.height;
    }
};

struct AttachmentCapturer {
    Texture2D texture;
    std::chrono::steady_clock::time_point lastUse;
};

class FramebufferAttachmentCapturer {
  public:
    using TimePoint = std::chrono::steady_clock::time_point;
    // A texture not asked for in this long goes at the next eviction pass.
    static constexpr std::chrono::seconds MAX_AGE{120};
    // An eviction pass runs on every this-many-th texture created.
    static constexpr unsigned EVICTION_PERIOD = 8;

    FramebufferAttachmentCapturer();
    // Closes every texture: the owning context must be current.
    virtual ~FramebufferAttachmentCapturer();
    FramebufferAttachmentCapturer(const FramebufferAttachmentCapturer&) = delete;
    FramebufferAttachmentCapturer& operator=(const FramebufferAttachmentCapturer&) = delete;

    // The texture now holding the bound draw framebuffer's colour, owned by
    // the cache and good until the next capture. Null when the framebuffer's
    // colour format is one no texture can take: then nothing is touched.
    Texture2D* capture();

    TextureKey getFramebufferKey(unsigned framebuffer);
    TextureKey getDefaultFramebufferKey();
    TextureKey getObjectFramebufferKey();
    Texture2D* getTexture(const TextureKey& key);
    Texture2D* createTexture(const TextureKey& key);
    void cleanOldTextures(TimePoint cutoff);

    GLenum getDrawFramebufferFormat(GLenum attachment);
    GLenum getDrawFramebufferColorFormat(GLenum attachment);
    // Throw std::runtime_error for a size no format has.
    static GLenum getDepthFormat(int bits);
    static GLenum getStencilFormat(int bits);

    unsigned getTexturesCreated() const { return texturesCreated; }
    size_t getCacheSize() const { return cache.size(); }

  private:
    GLenum attachment;
    unsigned texturesCreated = 0;
    std::unordered_map<TextureKey, AttachmentCapturer, TextureKeyHash> cache;
};

}  // namespace velour::drv
