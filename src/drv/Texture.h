#pragma once

#include <string>

#include "drv/Named.h"

namespace velour::drv {

class Texture : public Labeled, public virtual Openable, public virtual Closeable {
  public:
    GLenum getNamespace() const override { return GL_TEXTURE; }
    void open() override;
    // Deletes the texture; the old name stays readable.
    void close() override;
    bool isOpen() const override { return opened; }

    // Format routines. 0 means "unsupported" to every caller.
    // The sized internal format for the bit depths a framebuffer attachment
    // reports.
    static GLenum getSizedColorFormat(GLenum componentType, int r, int g, int b, int a);
    static GLenum getDepthFormat(int bits);
    static GLenum getStencilFormat(int bits);
    // The name of the texture bound to `target` on the active unit.
    static GLuint getTargetBinding(GLenum target);
    static int getFormatComponentCount(GLenum format);
    static int getTypeSize(GLenum type);
    static bool isPackedType(GLenum type);
    static int getPixelSize(GLenum format, GLenum type);
    // Copies `count` pixels, reversing the bytes of each element (a packed
    // pixel, or else one component).
    static void swapEndian(int count, GLenum format, GLenum type, const void* source,
                           void* destination);
    // The enum's name for logs: "GL_NONE" for 0, empty for an unknown one.
    static std::string toFormatString(GLenum format);

  private:
    bool opened = false;
};

class Texture2D : public Texture {
  public:
    void bind();
    // On GL_TEXTURE_2D: the caller has bound this texture.
    void texParameteri(GLenum parameter, GLint value);
    // Immutable storage of the set levels, format and size.
    void storage2D();
    // Copies from the read framebuffer and drops any GL error the copy left,
    // so that the game does not read it.
    void copyTexSubImage2D(GLint level, GLint xoffset, GLint yoffset, GLint x, GLint y,
                           GLsizei width, GLsizei height);

    int getLevels() const { return levels; }
    void setLevels(int value) { levels = value; }
    GLenum getInternalFormat() const { return internalFormat; }
    void setInternalFormat(GLenum value) { internalFormat = value; }
    int getWidth() const { return width; }
    void setWidth(int value) { width = value; }
    int getHeight() const { return height; }
    void setHeight(int value) { height = value; }

  private:
    int levels = 1;
    GLenum internalFormat = GL_RGBA8;
    int width = 0;
    int height = 0;
};

}  // namespace velour::drv
