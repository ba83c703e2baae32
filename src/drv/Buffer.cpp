#include "drv/Buffer.h"

namespace velour::drv {

Buffer::Buffer(GLenum target) : target(target) {
    drv::glGenBuffers(1, &name);
}

Buffer::~Buffer() {
    drv::glDeleteBuffers(1, &name);
}

void Buffer::bind() {
    drv::glBindBuffer(target, name);
}

void Buffer::unbind() {
    drv::glBindBuffer(target, 0);
}

void Buffer::setArrayData(const void* data, size_t size, GLenum usage) {
    bind();
    drv::glBufferData(target, static_cast<GLsizeiptr>(size), data, usage);
}

FrameBuffer::FrameBuffer() {
    drv::glGenFramebuffers(1, &name);
}

FrameBuffer::~FrameBuffer() {
    drv::glDeleteFramebuffers(1, &name);
}

VertexArray::VertexArray() {
    drv::glGenVertexArrays(1, &name);
}

VertexArray::~VertexArray() {
    drv::glDeleteVertexArrays(1, &name);
}

void VertexArray::bind() {
    drv::glBindVertexArray(name);
}

void VertexArray::makeRectangle(VertexArray&, float a, float b, float c, float d) {
    const float vertices[] = {c, d, 0.0f, c, b, 0.0f, a, b, 0.0f, a, d, 0.0f};
    const GLuint indices[] = {0, 1, 3, 1, 2, 3};
    Buffer vertexBuffer(GL_ARRAY_BUFFER);
    vertexBuffer.setArrayData(vertices, sizeof vertices);
    Buffer indexBuffer(GL_ELEMENT_ARRAY_BUFFER);
    indexBuffer.setArrayData(indices, sizeof indices);
}

}  // namespace velour::drv
