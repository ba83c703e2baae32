#include "drv/Quad.h"

#include "drv/StateStore.h"

namespace velour::drv {

void Quad::open() {
    if (opened) return;
    drv::glGenVertexArrays(1, &name);
    drv::glBindVertexArray(name);

    const GLfloat positions[] = {VertexMaxX, VertexMaxY, 0.0f, VertexMaxX, VertexMinY, 0.0f,
                                 VertexMinX, VertexMinY, 0.0f, VertexMinX, VertexMaxY, 0.0f};
    drv::glGenBuffers(1, &positionBuffer);
    drv::glBindBuffer(GL_ARRAY_BUFFER, positionBuffer);
    drv::glBufferData(GL_ARRAY_BUFFER, sizeof positions, positions, GL_STATIC_DRAW);
    drv::glEnableVertexAttribArray(0);
    drv::glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 12, nullptr);

    const GLfloat coordinates[] = {TextureMaxX, TextureMaxY, TextureMaxX, TextureMinY,
                                   TextureMinX, TextureMinY, TextureMinX, TextureMaxY};
    drv::glGenBuffers(1, &textureCoordinateBuffer);
    drv::glBindBuffer(GL_ARRAY_BUFFER, textureCoordinateBuffer);
    drv::glBufferData(GL_ARRAY_BUFFER, sizeof coordinates, coordinates, GL_STATIC_DRAW);
    drv::glEnableVertexAttribArray(1);
    drv::glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, 8, nullptr);

    const GLuint indices[] = {0, 1, 3, 1, 2, 3};
    drv::glGenBuffers(1, &indexBuffer);
    drv::glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, indexBuffer);
    drv::glBufferData(GL_ELEMENT_ARRAY_BUFFER, sizeof indices, indices, GL_STATIC_DRAW);

    drv::glBindBuffer(GL_ARRAY_BUFFER, 0);
    drv::glBindVertexArray(0);
    opened = true;
}

void Quad::reopen() {
    StateStore store;
    store.storeVertexArrayBinding();
    store.storeArrayBufferBinding();
    store.storeElementArrayBufferBinding();
    close();
    open();
    store.restore();
}

void Quad::close() {
    if (!opened) return;
    drv::glDeleteVertexArrays(1, &name);
    const GLuint buffers[] = {positionBuffer, textureCoordinateBuffer, indexBuffer};
    drv::glDeleteBuffers(3, buffers);
    opened = false;
}

void Quad::bind() {
    drv::glBindVertexArray(name);
}

void Quad::unbind() {
    drv::glBindVertexArray(0);
}

void Quad::draw() {
    bind();
    drv::glDrawElements(GL_TRIANGLES, 6, GL_UNSIGNED_INT, nullptr);
    unbind();
}

}  // namespace velour::drv
