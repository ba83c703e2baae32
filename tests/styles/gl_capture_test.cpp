// The frame capture's texture cache on Mesa.

#include <gtest/gtest.h>

#include <chrono>

#include "GlSupport.h"
#include "drv/FramebufferAttachmentCapturer.h"

namespace velour::test {
namespace {

using drv::FramebufferAttachmentCapturer;

class CaptureCache : public testing::Test {
  protected:
    drv::Texture2D* captureFrom(const GameFramebuffer& framebuffer) {
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, framebuffer.framebuffer);
        drv::Texture2D* texture = capturer.capture();
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, 0);
        return texture;
    }

    GlContext context{64, 48};
    FramebufferAttachmentCapturer capturer;
};

// Framebuffers of one format and size share a texture, which holds the frame
// of the last one captured; a new size makes a new texture and the old one
// stays. Keys take the attached level's size, or the surface's for the
// default framebuffer.
TEST_F(CaptureCache, OneTexturePerFormatAndSizeHoldingTheLastFrameCaptured) {
    GameFramebuffer first(32, 16), second(32, 16), wider(40, 16), levelTwo(24, 10, 2);
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, second.framebuffer);
    drawPicture(32, 16);
    drv::Texture2D* shared = captureFrom(first);
    EXPECT_EQ(captureFrom(second), shared);
    EXPECT_EQ(capturer.getTexturesCreated(), 1u);
    EXPECT_EQ(shared->getInternalFormat(), static_cast<GLenum>(GL_RGBA8));
    GLuint reader = 0;
    glGenFramebuffers(1, &reader);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, reader);
    glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D,
                           shared->getName(), 0);
    EXPECT_EQ(readPixels(32, 16), picture(32, 16));

    drv::Texture2D* wide = captureFrom(wider);
    EXPECT_NE(wide, shared);
    EXPECT_EQ(wide->getWidth(), 40);
    EXPECT_EQ(capturer.getCacheSize(), 2u);
    EXPECT_EQ(captureFrom(first), shared);

    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, levelTwo.framebuffer);  // base level 96 x 40
    EXPECT_EQ(capturer.getFramebufferKey(levelTwo.framebuffer),
              (drv::TextureKey{GL_RGBA8, 24, 10}));
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, 0);
    EXPECT_EQ(capturer.getFramebufferKey(0), (drv::TextureKey{GL_RGBA8, 64, 48}));
}

// The eighth creation runs an eviction pass, which keeps textures younger
// than two minutes; a pass takes only what was last used before its cut-off.
TEST_F(CaptureCache, AnEighthCreationKeepsYoungTexturesAndEvictionTakesOnlyOlderOnes) {
    for (uint32_t width = 1; width <= 8; ++width)
        capturer.getTexture(drv::TextureKey{GL_RGBA8, width, 4});
    EXPECT_EQ(capturer.getCacheSize(), 8u);

    const auto now = std::chrono::steady_clock::now();
    capturer.getTexture(drv::TextureKey{GL_RGBA8, 1, 4});  // used again: newer than `now`
    capturer.cleanOldTextures(now);
    EXPECT_EQ(capturer.getCacheSize(), 1u);
    capturer.cleanOldTextures(now);  // strictly older only
    EXPECT_EQ(capturer.getCacheSize(), 1u);
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
}

}  // namespace
}  // namespace velour::test
