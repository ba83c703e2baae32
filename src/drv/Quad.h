#pragma once

#include "drv/Named.h"

namespace velour::drv {

// A full-screen (or partial) rectangle: position on attribute location 0,
// texture coordinate on location 1. Opening it touches the vertex array and
// buffer bindings; reopen() leaves them as they were.
class Quad : public Labeled, public virtual Closeable, public virtual Openable {
  public:
    GLenum getNamespace() const override { return GL_VERTEX_ARRAY; }
    void open() override;
    void close() override;
    bool isOpen() const override { return opened; }
    // Closes and opens again with the current rectangle, keeping the caller's
    // vertex array and buffer bindings.
    void reopen();

    void bind();
    void unbind();
    void draw();

    // A new rectangle takes effect when the quad is next opened.
    float getVertexMinX() const { return VertexMinX; }
    float getVertexMinY() const { return VertexMinY; }
    float getVertexMaxX() const { return VertexMaxX; }
    float getVertexMaxY() const { return VertexMaxY; }
    float getTextureMinX() const { return TextureMinX; }
    float getTextureMinY() const { return TextureMinY; }
    float getTextureMaxX() const { return TextureMaxX; }
    float getTextureMaxY() const { return TextureMaxY; }
    void setVertexMinX(float v) { VertexMinX = v; }
    void setVertexMinY(float v) { VertexMinY = v; }
    void setVertexMaxX(float v) { VertexMaxX = v; }
    void setVertexMaxY(float v) { VertexMaxY = v; }
    void setTextureMinX(float v) { TextureMinX = v; }
    void setTextureMinY(float v) { TextureMinY = v; }
    void setTextureMaxX(float v) { TextureMaxX = v; }
    void setTextureMaxY(float v) { TextureMaxY = v; }

  private:
    bool opened = false;
    GLuint positionBuffer = 0;
    GLuint textureCoordinateBuffer = 0;
    GLuint indexBuffer = 0;
    float VertexMinX = -1.0f;
    float VertexMinY = -1.0f;
    float VertexMaxX = 1.0f;
    float VertexMaxY = 1.0f;
    float TextureMinX = 0.0f;
    float TextureMinY = 0.0f;
    float TextureMaxX = 1.0f;
    float TextureMaxY = 1.0f;
};

}  // namespace velour::drv
