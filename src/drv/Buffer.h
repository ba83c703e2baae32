#pragma once

// GL objects that hold their name from construction to destruction.

#include <cstddef>

#include "drv/Named.h"

namespace velour::drv {

class Buffer : public Labeled {
  public:
    explicit Buffer(GLenum target);
    ~Buffer() override;
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    GLenum getNamespace() const override { return GL_BUFFER; }
    void bind();
    void unbind();
    GLenum getTarget() const { return target; }
    void setArrayData(const void* data, size_t size, GLenum usage);
    void setArrayData(const void* data, size_t size) { setArrayData(data, size, GL_STATIC_DRAW); }

  private:
    GLenum target;
};

class FrameBuffer : public Labeled {
  public:
    FrameBuffer();
    ~FrameBuffer() override;
    FrameBuffer(const FrameBuffer&) = delete;
    FrameBuffer& operator=(const FrameBuffer&) = delete;

    GLenum getNamespace() const override { return GL_FRAMEBUFFER; }
};

class VertexArray : public Labeled {
  public:
    VertexArray();
    ~VertexArray() override;
    VertexArray(const VertexArray&) = delete;
    VertexArray& operator=(const VertexArray&) = delete;

    GLenum getNamespace() const override { return GL_VERTEX_ARRAY; }
    void bind();
    // Builds a rectangle's vertex and index lists into buffers of its own,
    // which go again on return; the vertex array itself is not touched.
    static void makeRectangle(VertexArray& array, float a, float b, float c, float d);
};

}  // namespace velour::drv
